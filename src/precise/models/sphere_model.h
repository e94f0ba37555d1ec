// Sphere: D = |q| - r.
#ifndef METROFIT_PRECISE_MODELS_SPHERE_MODEL_H
#define METROFIT_PRECISE_MODELS_SPHERE_MODEL_H

#include <cmath>

#include "precise/local_frame.h"

namespace metrofit::precise {

struct SphereModel {
  static constexpr int kComponents = 1;
  explicit SphereModel(const State& s) : radius_(s.size[0] + s.offset) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    double g[3];
    r[0] = Deviation(q, g);
    ChainRow(g, q, rows[0]);
    rows[0][kSize0] = -1.0;
    rows[0][kSize1] = 0.0;
  }
  double Deviation(const double q[3], double n[3]) const {
    const double d = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
    // One division, not three: the passes over millions of points are bound by them.
    const double inverse = d > 0.0 ? 1.0 / d : 0.0;
    n[0] = q[0] * inverse;
    n[1] = q[1] * inverse;
    n[2] = d > 0.0 ? q[2] * inverse : 1.0;
    return d - radius_;
  }

 private:
  double radius_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_SPHERE_MODEL_H
