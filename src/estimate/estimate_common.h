// Conventions shared by every estimator.
#ifndef METROFIT_ESTIMATE_ESTIMATE_COMMON_H
#define METROFIT_ESTIMATE_ESTIMATE_COMMON_H

#include "metrofit.h"

namespace metrofit {

// Direction to angles: a2 = atan2(nx, sqrt(1 - nx^2) + 1e-20),
// a1 = atan2(-ny / cos a2, nz / cos a2). Rebuilt: (sin a2, -cos a2 sin a1, cos a2 cos a1).
void DirectionToAngles(const KPt3<double>& n, double* a1, double* a2);

// Circle through three points: centre, unit normal ((0, 0, 1) for collinear points), radius.
void CircleFrom3Points(const KPt3<double>& p0, const KPt3<double>& p1, const KPt3<double>& p2,
                       KPt3<double>* centre, KPt3<double>* normal, double* radius);

// The write rule: an estimate enters the parameter vector only where the constraint diagonal
// is exactly 0.0 (a NaN entry counts as non-zero).
inline void WriteFreeParameter(double** constraints, double** params, int k, double value) {
  if (constraints[k][k] == 0.0) params[k][0] = value;
}

}  // namespace metrofit

#endif  // METROFIT_ESTIMATE_ESTIMATE_COMMON_H
