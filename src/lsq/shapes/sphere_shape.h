// Sphere: centre c, radius r.
//
//   f = |d| - r, d = p - c  parameters: centre (3), r          (n 4, m 1, offset -4)
//   B = d / |d|.   A = (-d / |d|, -1).   w = r - |d|.
//
// A sphere has no orientation: it writes no angles, and its axis stays as the caller seeded it.
#ifndef METROFIT_LSQ_SHAPES_SPHERE_SHAPE_H
#define METROFIT_LSQ_SHAPES_SPHERE_SHAPE_H

#include <cmath>

#include "core/form_error.h"
#include "lsq/linearisation.h"
#include "lsq/point_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct SphereShape {
  static constexpr int kFitType = FIT_SPHERE;
  static constexpr const char* kName = "sphere";
  // The angle slots are never used: the driver writes no angle constraint for a sphere.
  static constexpr EngineLayout kEngine{4, 1, -4};
  static constexpr DriverLayout kDriver{4, 0, 0, 3, kNoSlot};
  static constexpr bool kProbeCompensated = false;
  static constexpr auto kEstimator = &CFitInput::EstimateSphere;

  struct Frame {
    KPt3<double> c;
    double r;
    explicit Frame(const CFitResult& res) : c(res.m_center), r(res.m_size1.x) {}
  };
  using Pass = PointPass<SphereShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<1, 4, T>& lin) {
    const Vec3<T> d = Minus(p, f.c);
    const T len = Sqrt(d.Dot(d));
    const Vec3<T> nrm = d * (1.0 / len);
    SetPointAndCentre(lin, 0, nrm);
    lin.A[0][3] = Filled<T>(-1.0);
    lin.w[0] = f.r - len;
  }

  static void WriteParameters(const CFitInput& in, CFitResult& res, double** x) {
    res.m_center = CentreOf(x);
    res.m_size1.x = SizeOrFixed(in.m_size1Param, x[3][0]);
  }

  static void FormError(const CFitInput& in, CFitResult& out) {
    out.m_formError = SphereFormError(in.m_points, out.m_center, out.m_size1.x);
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_SPHERE_SHAPE_H
