// Torus: centre c, axis u, major radius R (the core circle in the plane through c across u)
// and minor radius r (the tube); t is the distance from the point to the core circle.
//
//   f = t - r, t = sqrt((rho - R)^2 + h^2)   parameters: centre (3), a, b, R, r
//                                                         (n 7, m 1, offset -7)
//   B = ((rho - R) / rho (q1 e1 + q2 e2) + h u) / t.
//   A = (-B, ((rho - R) / rho (q1 dq1/da + q2 g) + h dh/da) / t,
//        (-(rho - R) / rho q1 h + h q1) / t, -(rho - R) / t, -1).
//   w = r - t.
//
// Points are taken with the probe radius removed against the current torus.
#ifndef METROFIT_LSQ_SHAPES_TORUS_SHAPE_H
#define METROFIT_LSQ_SHAPES_TORUS_SHAPE_H

#include <cmath>

#include "lsq/linearisation.h"
#include "lsq/point_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct TorusShape {
  static constexpr int kFitType = FIT_TORUS;
  static constexpr const char* kName = "torus";
  // One radius constraint holds both radii (slots 5 and 6).
  static constexpr EngineLayout kEngine{7, 1, -7};
  static constexpr DriverLayout kDriver{7, 3, 4, 5, 6};
  static constexpr bool kProbeCompensated = true;
  static constexpr auto kEstimator = &CFitInput::EstimateTorus;

  struct Frame : ShapeFrame {
    double major, minor;
    explicit Frame(const CFitResult& res)
        : ShapeFrame(res), major(res.m_size1.y), minor(res.m_size1.z) {}
  };
  using Pass = PointPass<TorusShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<1, 7, T>& lin) {
    const LocalPoint<T> l(f, p);
    const T radial = l.rho - f.major;
    const T t = Sqrt(radial * radial + l.h * l.h);
    // (rho - R) / rho times the unnormalised radial vector, i.e. (rho - R) n_r.
    const T scale = radial / l.rho;
    const Vec3<T> b = (l.radial * scale + Scale(f.u, l.h)) * (1.0 / t);
    SetPointAndCentre(lin, 0, b);
    lin.A[0][3] = (scale * l.rhoRhoA + l.h * l.dhda) / t;
    lin.A[0][4] = (-scale * l.q1 * l.h + l.h * l.q1) / t;
    lin.A[0][5] = -radial / t;
    lin.A[0][6] = Filled<T>(-1.0);
    lin.w[0] = f.minor - t;
  }

  static void WriteParameters(const CFitInput&, CFitResult& res, double** x) {
    res.m_center = CentreOf(x);
    WriteAxisAngles(res, x);
    res.m_size1.y = x[5][0];
    res.m_size1.z = x[6][0];
  }

  static void FormError(const CFitInput&, CFitResult& out) { out.m_formError = 0.0; }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_TORUS_SHAPE_H
