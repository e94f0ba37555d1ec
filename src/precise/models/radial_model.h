// Cylinder, and the circle inside its least-squares plane: D = rho - r, rho the distance from
// the axis. The circle holds its plane (no turn, no shift along u), so the height drops out.
#ifndef METROFIT_PRECISE_MODELS_RADIAL_MODEL_H
#define METROFIT_PRECISE_MODELS_RADIAL_MODEL_H

#include "precise/local_frame.h"
#include "precise/models/radial_direction.h"

namespace metrofit::precise {

struct RadialModel {
  static constexpr int kComponents = 1;
  explicit RadialModel(const State& s) : radius_(s.size[0] + s.offset) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    double g[3];
    r[0] = Deviation(q, g);
    ChainRow(g, q, rows[0]);
    rows[0][kSize0] = -1.0;
    rows[0][kSize1] = 0.0;
  }
  double Deviation(const double q[3], double n[3]) const {
    const double rho = RadialDirection(q, &n[0], &n[1]);
    n[2] = 0.0;
    return rho - radius_;
  }

 private:
  double radius_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_RADIAL_MODEL_H
