// Cone: apex c, axis u, slope k = axial rise per unit of radius (h = k rho on the surface, so
// the half-angle is atan(1/k) and the cone opens towards +u for k > 0).
//
//   f = k rho - h           parameters: apex (3), a, b, k       (n 6, m 1, offset -6)
//   B = k n_r - u.   A = (-B, k drho/da + q2 cos b, k drho/db - q1, rho).   w = h - k rho.
//
// The condition is algebraic, not a distance. A cone reports no form error of its own: the
// engine's root mean square stays in m_formError.
#ifndef METROFIT_LSQ_SHAPES_CONE_SHAPE_H
#define METROFIT_LSQ_SHAPES_CONE_SHAPE_H

#include "lsq/linearisation.h"
#include "lsq/point_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct ConeShape {
  static constexpr int kFitType = FIT_CONE;
  static constexpr const char* kName = "cone";
  static constexpr EngineLayout kEngine{6, 1, -6};
  static constexpr DriverLayout kDriver{6, 3, 4, 5, kNoSlot};
  static constexpr bool kProbeCompensated = false;
  static constexpr auto kEstimator = &CFitInput::EstimateCone;

  struct Frame : ShapeFrame {
    double k;
    explicit Frame(const CFitResult& res) : ShapeFrame(res), k(res.m_size2.z) {}
  };
  using Pass = PointPass<ConeShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<1, 6, T>& lin) {
    const LocalPoint<T> l(f, p);
    const Vec3<T> b = Minus(l.nr * f.k, f.u);
    SetPointAndCentre(lin, 0, b);
    lin.A[0][3] = f.k * l.drhoda + l.q2 * f.cb;
    lin.A[0][4] = f.k * l.drhodb - l.q1;
    lin.A[0][5] = l.rho;
    lin.w[0] = l.h - f.k * l.rho;
  }

  static void WriteParameters(const CFitInput&, CFitResult& res, double** x) {
    res.m_center = CentreOf(x);
    WriteAxisAngles(res, x);
    res.m_size2.z = x[5][0];
  }

  // No formError: the cone keeps the engine's root mean square, deliberately.
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_CONE_SHAPE_H
