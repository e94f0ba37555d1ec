// Pieces the shapes share when they write the parameter vector x (n x 1) into the result.
#ifndef METROFIT_LSQ_SHAPES_PARAMETER_WRITING_H
#define METROFIT_LSQ_SHAPES_PARAMETER_WRITING_H

#include "lsq/shape.h"
#include "metrofit.h"

namespace metrofit {

inline KPt3<double> CentreOf(double** x) {
  return KPt3<double>(x[0][0], x[1][0], x[2][0]);
}

// Angles a1, a2 from x3, x4; the third angle 0: an oriented shape is described by its axis
// alone, the turn about it plays no part.
inline void WriteAxisAngles(CFitResult& res, double** x) {
  res.m_angles.x = x[3][0];
  res.m_angles.y = x[4][0];
  res.m_angles.z = 0.0;
}

// The reported size: a radius or focal length fixed by mode 1 is reported as given, whatever
// the iteration does to its parameter; the model then also uses the given value.
inline double SizeOrFixed(const CFitParam& param, double estimate) {
  return ModeOf(param.mode[0]) == ConstraintMode::kFixed ? param.value.x : estimate;
}

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_PARAMETER_WRITING_H
