// Circle in space: centre c, axis u, radius r; two conditions, the distance from the circle's
// plane and the radial distance in that plane.
//
//   f1 = h, f2 = rho - r    parameters: centre (3), a, b, r    (n 6, m 2, offset -3)
//   B rows: u; n_r.   A rows: (-u, -q2 cos b, q1, 0); (-n_r, drho/da, drho/db, -1).
//   w = (-h, r - rho).
#ifndef METROFIT_LSQ_SHAPES_CIRCLE_SHAPE_H
#define METROFIT_LSQ_SHAPES_CIRCLE_SHAPE_H

#include "core/form_error.h"
#include "lsq/linearisation.h"
#include "lsq/point_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct CircleShape {
  static constexpr int kFitType = FIT_CIRCLE;
  static constexpr const char* kName = "circle";
  // The offset -3 with six parameters is deliberate: it only scales the variance factor, but
  // that factor drives the relative-change test and so when a circle fit stops.
  static constexpr EngineLayout kEngine{6, 2, -3};
  static constexpr DriverLayout kDriver{6, 3, 4, 5, kNoSlot};
  static constexpr bool kProbeCompensated = false;
  static constexpr auto kEstimator = &CFitInput::EstimateCircle;

  struct Frame : ShapeFrame {
    double r;
    explicit Frame(const CFitResult& res) : ShapeFrame(res), r(res.m_size1.x) {}
  };
  using Pass = PointPass<CircleShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<2, 6, T>& lin) {
    const LocalPoint<T> l(f, p);
    SetPointAndCentre(lin, 0, Broadcast<T>(f.u));
    lin.A[0][3] = l.dhda;
    lin.A[0][4] = l.q1;
    lin.A[0][5] = Filled<T>(0.0);
    SetPointAndCentre(lin, 1, l.nr);
    lin.A[1][3] = l.drhoda;
    lin.A[1][4] = l.drhodb;
    lin.A[1][5] = Filled<T>(-1.0);
    lin.w[0] = -l.h;
    lin.w[1] = f.r - l.rho;
  }

  static void WriteParameters(const CFitInput& in, CFitResult& res, double** x) {
    res.m_center = CentreOf(x);
    WriteAxisAngles(res, x);
    res.m_size1.x = SizeOrFixed(in.m_size1Param, x[5][0]);
  }

  // Measured from the axis line, like the cylinder's: the offset along the axis is ignored.
  static void FormError(const CFitInput& in, CFitResult& out) {
    out.m_formError = AxialFormError(in.m_points, out.m_center, out.m_axis, out.m_size1.x);
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_CIRCLE_SHAPE_H
