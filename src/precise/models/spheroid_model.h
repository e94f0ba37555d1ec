// Spheroid (ellipsoid of revolution about u): in the meridian plane through the point, with
// rho its distance from the axis and h its height, the section is the ellipse
// rho^2 / B^2 + h^2 / A^2 = 1, A = size[0] along the axis and B = size[1] across it. The
// distance to that ellipse is the 3-D distance; the probe radius is subtracted from it.
#ifndef METROFIT_PRECISE_MODELS_SPHEROID_MODEL_H
#define METROFIT_PRECISE_MODELS_SPHEROID_MODEL_H

#include <limits>

#include "precise/conic_distance.h"
#include "precise/local_frame.h"
#include "precise/models/radial_direction.h"

namespace metrofit::precise {

struct SpheroidModel {
  static constexpr int kComponents = 1;
  explicit SpheroidModel(const State& s)
      : along_(s.size[0]), across_(s.size[1]), offset_(s.offset) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    if (!(along_ > 0.0 && across_ > 0.0)) {
      // Only positive semi-axes are a spheroid: a step there is rejected by its NaN sum.
      r[0] = std::numeric_limits<double>::quiet_NaN();
      for (int i = 0; i < kLocalCount; ++i) rows[0][i] = 0.0;
      return;
    }
    double g[3];
    const CurveDistance c = Meridian(q, g);
    r[0] = c.d - offset_;
    ChainRow(g, q, rows[0]);
    // The meridian ellipse has B along rho (first) and A along h (second).
    rows[0][kSize0] = c.dsize[1];
    rows[0][kSize1] = c.dsize[0];
  }
  double Deviation(const double q[3], double n[3]) const { return Meridian(q, n).d - offset_; }

 private:
  // Distance in the meridian plane, with the 3-D unit normal at the foot.
  CurveDistance Meridian(const double q[3], double n[3]) const {
    double cs, sn;
    const double rho = RadialDirection(q, &cs, &sn);
    const CurveDistance c = EllipseDistance(rho, q[2], across_, along_);
    n[0] = c.dx * cs;
    n[1] = c.dx * sn;
    n[2] = c.dy;
    return c;
  }

  double along_;
  double across_;
  double offset_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_SPHEROID_MODEL_H
