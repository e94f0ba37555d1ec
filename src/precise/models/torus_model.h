// Torus: D = hypot(rho - R, h) - r, R the major (centre circle) and r the minor (tube) radius.
#ifndef METROFIT_PRECISE_MODELS_TORUS_MODEL_H
#define METROFIT_PRECISE_MODELS_TORUS_MODEL_H

#include <cmath>

#include "precise/local_frame.h"
#include "precise/models/radial_direction.h"

namespace metrofit::precise {

struct TorusModel {
  static constexpr int kComponents = 1;
  explicit TorusModel(const State& s) : major_(s.size[0]), minor_(s.size[1] + s.offset) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    double g[3];
    double across = 0.0;
    r[0] = Normal(q, g, &across);
    ChainRow(g, q, rows[0]);
    rows[0][kSize0] = -across;
    rows[0][kSize1] = -1.0;
  }
  double Deviation(const double q[3], double n[3]) const {
    double across = 0.0;
    return Normal(q, n, &across);
  }

 private:
  // Signed distance, unit normal n at the foot and its component across the axis.
  double Normal(const double q[3], double n[3], double* across) const {
    double c, s;
    const double rho = RadialDirection(q, &c, &s);
    const double a = rho - major_;
    const double tube = std::sqrt(a * a + q[2] * q[2]);
    *across = tube > 0.0 ? a / tube : 1.0;
    n[0] = *across * c;
    n[1] = *across * s;
    n[2] = tube > 0.0 ? q[2] / tube : 0.0;
    return tube - minor_;
  }

  double major_;
  double minor_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_TORUS_MODEL_H
