// The unit radial direction (q1, q2) / rho across the axis, with a fixed direction on the axis
// itself where it is undefined.
#ifndef METROFIT_PRECISE_MODELS_RADIAL_DIRECTION_H
#define METROFIT_PRECISE_MODELS_RADIAL_DIRECTION_H

#include <cmath>

namespace metrofit::precise {

inline double RadialDirection(const double q[3], double* c, double* s) {
  // Plain sqrt: local coordinates of measured parts are far from overflow, and hypot is slow.
  const double rho = std::sqrt(q[0] * q[0] + q[1] * q[1]);
  *c = rho > 0.0 ? q[0] / rho : 1.0;
  *s = rho > 0.0 ? q[1] / rho : 0.0;
  return rho;
}

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_RADIAL_DIRECTION_H
