// Planar ellipse inside its least-squares plane: D = the in-plane distance to the ellipse with
// semi-axis size[0] along e1 and size[1] along e2, less the probe radius. The ellipse holds
// its plane (no tilt, no shift along u), so the height drops out.
#ifndef METROFIT_PRECISE_MODELS_ELLIPSE_MODEL_H
#define METROFIT_PRECISE_MODELS_ELLIPSE_MODEL_H

#include <limits>

#include "precise/conic_distance.h"
#include "precise/local_frame.h"

namespace metrofit::precise {

struct EllipseModel {
  static constexpr int kComponents = 1;
  explicit EllipseModel(const State& s) : a_(s.size[0]), b_(s.size[1]), offset_(s.offset) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    if (!(a_ > 0.0 && b_ > 0.0)) {
      // Only positive semi-axes are an ellipse: a step there is rejected by its NaN sum.
      r[0] = std::numeric_limits<double>::quiet_NaN();
      for (int i = 0; i < kLocalCount; ++i) rows[0][i] = 0.0;
      return;
    }
    const CurveDistance c = EllipseDistance(q[0], q[1], a_, b_);
    const double g[3] = {c.dx, c.dy, 0.0};
    r[0] = c.d - offset_;
    ChainRow(g, q, rows[0]);
    rows[0][kSize0] = c.dsize[0];
    rows[0][kSize1] = c.dsize[1];
  }
  double Deviation(const double q[3], double n[3]) const {
    const CurveDistance c = EllipseDistance(q[0], q[1], a_, b_);
    n[0] = c.dx;
    n[1] = c.dy;
    n[2] = 0.0;
    return c.d - offset_;
  }

 private:
  double a_;
  double b_;
  double offset_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_ELLIPSE_MODEL_H
