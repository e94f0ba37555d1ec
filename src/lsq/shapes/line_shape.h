// Line: a point and a direction u; two conditions, the coordinates of p across the line.
//
//   f1 = q1, f2 = q2        parameters: point (3), a, b       (n 5, m 2, offset -5)
//   B rows: e1; e2.   A rows: (-e1, q2 sin b, -h); (-e2, g, 0).   w = (-q1, -q2).
//
// The line's point is held at the caller's reference point on every iteration: x0..x2 take
// part in the normal equations but are never written back. The driver's angle slots (2, 3)
// differ from this layout on purpose: an axis constraint on a line lands on the z of the
// point and on a1. Both conditions and all derivatives are affine in the point, so a pass is
// computed from the point moments.
#ifndef METROFIT_LSQ_SHAPES_LINE_SHAPE_H
#define METROFIT_LSQ_SHAPES_LINE_SHAPE_H

#include "core/form_error.h"
#include "lsq/linearisation.h"
#include "lsq/moment_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct LineShape {
  static constexpr int kFitType = FIT_LINE;
  static constexpr const char* kName = "line";
  static constexpr EngineLayout kEngine{5, 2, -5};
  static constexpr DriverLayout kDriver{5, 2, 3, 0, kNoSlot};
  static constexpr bool kProbeCompensated = false;
  static constexpr auto kEstimator = &CFitInput::EstimateLine;
  using Frame = ShapeFrame;
  using Pass = MomentPass<LineShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<2, 5, T>& lin) {
    const LocalPoint<T> l(f, p);
    SetPointAndCentre(lin, 0, Broadcast<T>(f.e1));
    lin.A[0][3] = l.dq1da;
    lin.A[0][4] = -l.h;
    SetPointAndCentre(lin, 1, Broadcast<T>(f.e2));
    lin.A[1][3] = l.g;
    lin.A[1][4] = Filled<T>(0.0);
    lin.w[0] = -l.q1;
    lin.w[1] = -l.q2;
  }

  // d = p - c: q1 = e1.d, q2 = e2.d, h = u.d, g = (0, -sin a, cos a).d.
  static KPt3<double> Origin(const CFitResult& r) { return r.m_center; }
  static void Affine(const Frame& f, const CFitResult&, AffineRows<2, 5>& rows) {
    const KPt3<double> zero;
    const KPt3<double> rows3[2] = {f.e1, f.e2};
    for (int k = 0; k < 2; ++k) {
      const KPt3<double>& e = rows3[k];
      rows.B[k][0] = e.x;
      rows.B[k][1] = e.y;
      rows.B[k][2] = e.z;
      const double c[5] = {-e.x, -e.y, -e.z, 0.0, 0.0};
      for (int a = 0; a < 5; ++a) {
        rows.C[k][a] = c[a];
        rows.L[k][a] = zero;
      }
      rows.w0[k] = 0.0;
      rows.W[k] = -e;
    }
    rows.L[0][3] = f.e2 * f.sb;
    rows.L[0][4] = -f.u;
    rows.L[1][3] = KPt3<double>(0.0, -f.sa, f.ca);
  }

  static void WriteParameters(const CFitInput& in, CFitResult& res, double** x) {
    res.m_center = in.m_refPoint;
    WriteAxisAngles(res, x);
  }

  // A radius, not a diameter: the radius of the thinnest cylinder about the fitted direction
  // that holds every point.
  static void FormError(const CFitInput& in, CFitResult& out) {
    out.m_formError = LineFormError(in.m_points, out.m_center, out.m_axis);
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_LINE_SHAPE_H
