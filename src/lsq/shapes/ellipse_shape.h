// Ellipse, modelled as the ellipsoid of revolution (spheroid) about u through c, with
// semi-axis A along u and semi-axis B across it; points of a planar ellipse that contains the
// axis satisfy it whatever the plane's turn about u. The condition is algebraic (dimensionless).
//
//   f = s - 1, s = sqrt(h^2/A^2 + rho^2/B^2)   parameters: centre (3), a, b, A, B
//                                                           (n 7, m 1, offset -7)
//   B = (h u / A^2 + (q1 e1 + q2 e2) / B^2) / s.
//   A = (-B, (h dh/da / A^2 + (q1 dq1/da + q2 g) / B^2) / s, (h q1 / A^2 - h q1 / B^2) / s,
//        -h^2 / (A^3 s), -rho^2 / (B^3 s)).
//   w = 1 - s.
//
// n_r rho is taken as q1 e1 + q2 e2: the spheroid is smooth where it crosses its axis. The
// ellipse keeps the third angle its estimator set (the turn of the ellipse's plane).
#ifndef METROFIT_LSQ_SHAPES_ELLIPSE_SHAPE_H
#define METROFIT_LSQ_SHAPES_ELLIPSE_SHAPE_H

#include <cmath>

#include "lsq/linearisation.h"
#include "lsq/point_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct EllipseShape {
  static constexpr int kFitType = FIT_ELLIPSE;
  static constexpr const char* kName = "ellipse";
  // One radius constraint holds both semi-axes (radius slots 5 and 6).
  static constexpr EngineLayout kEngine{7, 1, -7};
  static constexpr DriverLayout kDriver{7, 3, 4, 5, 6};
  static constexpr bool kProbeCompensated = false;
  static constexpr auto kEstimator = &CFitInput::EstimateEllipse;

  struct Frame : ShapeFrame {
    double sa, sb;  // semi-axis along u, across u
    explicit Frame(const CFitResult& res) : ShapeFrame(res), sa(res.m_size3.x), sb(res.m_size3.y) {}
  };
  using Pass = PointPass<EllipseShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<1, 7, T>& lin) {
    const LocalPoint<T> l(f, p);
    const double sa2 = f.sa * f.sa, sb2 = f.sb * f.sb;
    const T s = Sqrt(l.h * l.h / sa2 + l.rho * l.rho / sb2);
    const Vec3<T> b = (Scale(f.u, l.h / sa2) + l.radial * (1.0 / sb2)) * (1.0 / s);
    SetPointAndCentre(lin, 0, b);
    lin.A[0][3] = (l.h * l.dhda / sa2 + l.rhoRhoA / sb2) / s;
    lin.A[0][4] = (l.h * l.q1 / sa2 - l.h * l.q1 / sb2) / s;
    lin.A[0][5] = -(l.h * l.h) / (sa2 * f.sa * s);
    lin.A[0][6] = -(l.rho * l.rho) / (sb2 * f.sb * s);
    lin.w[0] = 1.0 - s;
  }

  static void WriteParameters(const CFitInput&, CFitResult& res, double** x) {
    res.m_center = CentreOf(x);
    res.m_angles.x = x[3][0];
    res.m_angles.y = x[4][0];
    res.m_size3.x = x[5][0];
    res.m_size3.y = x[6][0];
  }

  static void FormError(const CFitInput&, CFitResult& out) { out.m_formError = 0.0; }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_ELLIPSE_SHAPE_H
