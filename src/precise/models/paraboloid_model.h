// Paraboloid of revolution h = rho^2 / (4F) with its vertex at the centre, opening along u:
// the distance to the parabola in the meridian plane through the point is the 3-D distance,
// positive on the convex side away from the focus; the probe radius is subtracted from it.
#ifndef METROFIT_PRECISE_MODELS_PARABOLOID_MODEL_H
#define METROFIT_PRECISE_MODELS_PARABOLOID_MODEL_H

#include <limits>

#include "precise/conic_distance.h"
#include "precise/local_frame.h"
#include "precise/models/radial_direction.h"

namespace metrofit::precise {

struct ParaboloidModel {
  static constexpr int kComponents = 1;
  explicit ParaboloidModel(const State& s) : focal_(s.size[0]), offset_(s.offset) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    if (!(focal_ > 0.0)) {
      // A focal length through zero would turn the paraboloid inside out: a step there is rejected
      // by its NaN sum.
      r[0] = std::numeric_limits<double>::quiet_NaN();
      for (int i = 0; i < kLocalCount; ++i) rows[0][i] = 0.0;
      return;
    }
    double g[3];
    const CurveDistance c = Meridian(q, g);
    r[0] = c.d - offset_;
    ChainRow(g, q, rows[0]);
    rows[0][kSize0] = c.dsize[0];
    rows[0][kSize1] = 0.0;
  }
  double Deviation(const double q[3], double n[3]) const { return Meridian(q, n).d - offset_; }

 private:
  CurveDistance Meridian(const double q[3], double n[3]) const {
    double cs, sn;
    const double rho = RadialDirection(q, &cs, &sn);
    const CurveDistance c = ParabolaDistance(rho, q[2], focal_);
    n[0] = c.dx * cs;
    n[1] = c.dx * sn;
    n[2] = c.dy;
    return c;
  }

  double focal_;
  double offset_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_PARABOLOID_MODEL_H
