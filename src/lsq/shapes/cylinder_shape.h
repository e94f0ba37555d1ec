// Cylinder: infinite, axis through the axis point c along u, radius r.
//
//   f = rho - r             parameters: axis point (3), a, b, r  (n 6, m 1, offset -5)
//   B = n_r.   A = (-n_r, drho/da, drho/db, -1).   w = r - rho.
//
// On every iteration the axis point slides to the foot of the perpendicular from the caller's
// reference point onto the current axis, in the result and in x, so it stays by the measured
// part along the axis (the offset -5 with six parameters is deliberate: that slide takes one
// freedom away).
#ifndef METROFIT_LSQ_SHAPES_CYLINDER_SHAPE_H
#define METROFIT_LSQ_SHAPES_CYLINDER_SHAPE_H

#include "core/axis_foot.h"
#include "core/form_error.h"
#include "lsq/linearisation.h"
#include "lsq/point_pass.h"
#include "lsq/shapes/parameter_writing.h"
#include "lsq/shapes/shape_frame.h"

namespace metrofit {

struct CylinderShape {
  static constexpr int kFitType = FIT_CYLINDER;
  static constexpr const char* kName = "cylinder";
  static constexpr EngineLayout kEngine{6, 1, -5};
  static constexpr DriverLayout kDriver{6, 3, 4, 5, kNoSlot};
  static constexpr bool kProbeCompensated = false;
  static constexpr auto kEstimator = &CFitInput::EstimateCylinder;

  struct Frame : ShapeFrame {
    double r;
    explicit Frame(const CFitResult& res) : ShapeFrame(res), r(res.m_size1.x) {}
  };
  using Pass = PointPass<CylinderShape>;

  template <class T>
  static METROFIT_ALWAYS_INLINE void Evaluate(const Frame& f, const Vec3<T>& p,
                                              Linearisation<1, 6, T>& lin) {
    const LocalPoint<T> l(f, p);
    SetPointAndCentre(lin, 0, l.nr);
    lin.A[0][3] = l.drhoda;
    lin.A[0][4] = l.drhodb;
    lin.A[0][5] = Filled<T>(-1.0);
    lin.w[0] = f.r - l.rho;
  }

  static void WriteParameters(const CFitInput& in, CFitResult& res, double** x) {
    res.m_center = CentreOf(x);
    WriteAxisAngles(res, x);
    res.m_size1.x = SizeOrFixed(in.m_size1Param, x[5][0]);
    MoveAxisPointToFoot(in.m_refPoint, res, x);
  }

  // Spread of the distances from the axis line minus the radius.
  static void FormError(const CFitInput& in, CFitResult& out) {
    out.m_formError = AxialFormError(in.m_points, out.m_center, out.m_axis, out.m_size1.x);
  }

 private:
  static void MoveAxisPointToFoot(const KPt3<double>& ref, CFitResult& res, double** x) {
    double rot[9];
    ConvertAnglesToMatrix(res.m_angles.x, res.m_angles.y, 0.0, rot);
    const KPt3<double> foot = AxisFoot(ref, CentreOf(x), KPt3<double>(rot[6], rot[7], rot[8]));
    res.m_center = foot;
    x[0][0] = foot.x;
    x[1][0] = foot.y;
    x[2][0] = foot.z;
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_CYLINDER_SHAPE_H
