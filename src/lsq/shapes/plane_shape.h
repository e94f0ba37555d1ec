// Plane: {p : p.u = D}, D the signed offset of the plane from the origin along the normal u.
//
//   f = p.u - D             parameters: a, b, D                 (n 3, m 1, offset -3)
//   B = u.   A = (p.du/da, p.du/db, -1)
//            = (-(py cos a + pz sin a) cos b, px cos b + py sin a sin b - pz cos a sin b, -1).
//   w = D - p.u.
//
// The model uses the raw coordinates of p, not p - centre; the reported point is the caller's
// reference point. Condition and derivatives are affine in the point, so a pass is computed
// from the point moments.
#ifndef METROFIT_LSQ_SHAPES_PLANE_SHAPE_H
#define METROFIT_LSQ_SHAPES_PLANE_SHAPE_H

#include "core/form_error.h"
#include "lsq/linearisation.h"
#include "lsq/moment_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct PlaneShape {
  static constexpr int kFitType = FIT_PLANE;
  static constexpr const char* kName = "plane";
  static constexpr EngineLayout kEngine{3, 1, -3};
  static constexpr DriverLayout kDriver{3, 0, 1, 2, kNoSlot};
  static constexpr bool kProbeCompensated = false;
  static constexpr auto kEstimator = &CFitInput::EstimatePlane;

  // The frame alone (its centre plays no part) and the offset D.
  struct Frame : ShapeFrame {
    double D;
    explicit Frame(const CFitResult& r) : ShapeFrame(r), D(r.m_size2.y) {}
  };
  using Pass = MomentPass<PlaneShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<1, 3, T>& lin) {
    SetPointAndCentre(lin, 0, Broadcast<T>(f.u));
    lin.A[0][0] = -(p.y * f.ca + p.z * f.sa) * f.cb;
    lin.A[0][1] = p.x * f.cb + p.y * f.sa * f.sb - p.z * f.ca * f.sb;
    lin.A[0][2] = Filled<T>(-1.0);
    lin.w[0] = f.D - p.Dot(f.u);
  }

  static KPt3<double> Origin(const CFitResult&) { return KPt3<double>(); }
  static void Affine(const Frame& f, const CFitResult&, AffineRows<1, 3>& rows) {
    rows.B[0][0] = f.u.x;
    rows.B[0][1] = f.u.y;
    rows.B[0][2] = f.u.z;
    rows.C[0][0] = 0.0;
    rows.C[0][1] = 0.0;
    rows.C[0][2] = -1.0;
    rows.L[0][0] = KPt3<double>(0.0, -f.ca * f.cb, -f.sa * f.cb);
    rows.L[0][1] = KPt3<double>(f.cb, f.sa * f.sb, -f.ca * f.sb);
    rows.L[0][2] = KPt3<double>();
    rows.w0[0] = f.D;
    rows.W[0] = -f.u;
  }

  static void WriteParameters(const CFitInput& in, CFitResult& res, double** x) {
    res.m_center = in.m_refPoint;
    res.m_angles.x = x[0][0];
    res.m_angles.y = x[1][0];
    res.m_angles.z = 0.0;
    res.m_size2.y = x[2][0];
  }

  // Spread of the signed distances from the plane.
  static void FormError(const CFitInput& in, CFitResult& out) {
    out.m_formError = PlaneFormError(in.m_points, out.m_center, out.m_axis);
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_PLANE_SHAPE_H
