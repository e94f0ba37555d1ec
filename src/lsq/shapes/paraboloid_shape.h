// Paraboloid of revolution: vertex c, opening towards +u, focal length F (h = rho^2 / 4F on
// the surface).
//
//   f = rho^2 / (4F) - h    parameters: vertex (3), a, b, F     (n 6, m 1, offset -6)
//   B = (q1 e1 + q2 e2) / (2F) - u.
//   A = (-B, (q1 dq1/da + q2 g) / (2F) + q2 cos b, -q1 h / (2F) - q1, -rho^2 / (4F^2)).
//   w = h - rho^2 / (4F).
//
// n_r rho is taken as q1 e1 + q2 e2: the surface is smooth on its axis, and the vertex start is
// a measured point, so a point at rho = 0 is the normal case, not a degenerate one. Points are
// taken with the probe radius removed against the current paraboloid.
#ifndef METROFIT_LSQ_SHAPES_PARABOLOID_SHAPE_H
#define METROFIT_LSQ_SHAPES_PARABOLOID_SHAPE_H

#include "core/form_error.h"
#include "lsq/linearisation.h"
#include "lsq/point_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct ParaboloidShape {
  static constexpr int kFitType = FIT_PARABOLOID;
  static constexpr const char* kName = "paraboloid";
  static constexpr EngineLayout kEngine{6, 1, -6};
  static constexpr DriverLayout kDriver{6, 3, 4, 5, kNoSlot};
  static constexpr bool kProbeCompensated = true;
  static constexpr auto kEstimator = &CFitInput::Parab2Est;

  struct Frame : ShapeFrame {
    double F;
    explicit Frame(const CFitResult& res) : ShapeFrame(res), F(res.m_size2.x) {}
  };
  using Pass = PointPass<ParaboloidShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<1, 6, T>& lin) {
    const LocalPoint<T> l(f, p);
    const double twoF = 2.0 * f.F;
    const Vec3<T> b = Minus(l.radial * (1.0 / twoF), f.u);
    SetPointAndCentre(lin, 0, b);
    lin.A[0][3] = l.rhoRhoA / twoF + l.q2 * f.cb;
    lin.A[0][4] = -l.q1 * l.h / twoF - l.q1;
    lin.A[0][5] = -(l.rho * l.rho) / (4.0 * f.F * f.F);
    lin.w[0] = l.h - (l.rho * l.rho) / (4.0 * f.F);
  }

  static void WriteParameters(const CFitInput& in, CFitResult& res, double** x) {
    res.m_center = CentreOf(x);
    WriteAxisAngles(res, x);
    res.m_size2.x = SizeOrFixed(in.m_size2Param, x[5][0]);
  }

  static void FormError(const CFitInput&, CFitResult& out) { out.m_formError = 0.0; }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_PARABOLOID_SHAPE_H
