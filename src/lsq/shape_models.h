// Per-point condition equations of the nine shapes, linearised for the Gauss-Helmert engine.
#ifndef METROFIT_LSQ_SHAPE_MODELS_H
#define METROFIT_LSQ_SHAPE_MODELS_H

#include "metrofit.h"

namespace metrofit {

// Dimensions of the engine for one fit type: parameters n, conditions per point m and the
// redundancy offset. All zero outside 0..8.
struct EngineLayout {
  int parameters;
  int conditions;
  int offset;
};

EngineLayout EngineLayoutFor(int fitType);

// Fills the diagonal of Q (3 x 3), B (m x 3), A (m x n) and w = -f (m x 1) for point p at the
// current parameters held in r. No division is guarded.
void EvaluateShapeModel(int fitType, const KPt3<double>& p, const CFitResult& r, double** Q,
                        double** B, double** A, double** w);

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPE_MODELS_H
