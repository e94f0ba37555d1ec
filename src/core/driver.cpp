// The least-squares driver.
//
// Orientation: a feature's axis a is row 2 of the rotation R(a1, a2, a3). A start orientation is
// made from the nominal axis by completing a right-handed frame
//   e1 = |a x h|^-1 (a x h),   e0 = |e1 x a|^-1 (e1 x a),
// with a helper direction h away from a, and reading the angles off the rows (e0, e1, a).
//
// Constraints: BestFit takes a diagonal prior weight per unknown and a value vector. Mode 1
// (fixed) weighs 1e20, which holds the unknown at its value; any other non-zero mode weighs
// -1, which the engine treats as free but which marks the value as a start; mode 0 leaves the
// row empty. The unknowns' order depends on the fit type (DriverLayoutFor).
//
// After the fit the reported axis is rebuilt from the fitted angles and the form error of the
// shape replaces the engine's provisional root mean square.
#include "core/driver.h"

#include <cmath>

#include "core/constants.h"
#include "core/form_error.h"
#include "lsq/best_fit.h"

namespace metrofit {
namespace {

// A nominal axis shorter than this carries no direction; the start is then along z.
constexpr double kMinNominalAxisLength = 0.0001;
// A paraboloid with an axis constraint always takes its size as a start value (mode 2) when
// the caller left it free.
constexpr int kStartValueMode = 2;
// Start value of the paraboloid's size constraint, whatever radius the caller gave.
constexpr double kParaboloidSizeStart = 0.5;
// Keeps the paraboloid axis angle defined when the direction is along x.
constexpr double kAtanGuard = 1e-20;

// Owns one row-pointer matrix and releases it on every path, exceptions included.
class ScopedMatrix {
 public:
  ScopedMatrix(int rows, int cols) : rows_(rows), m_(mCreateMatrix(rows, cols)) {}
  ~ScopedMatrix() { Release(); }
  ScopedMatrix(const ScopedMatrix&) = delete;
  ScopedMatrix& operator=(const ScopedMatrix&) = delete;

  double** get() const { return m_; }
  void Release() { mFreeMatrix(&m_, rows_); }

 private:
  int rows_;
  double** m_;
};

bool IsFree(int mode) {
  return ModeOf(mode) == ConstraintMode::kFree;
}

bool AnyModeSet(const CFitParam& p) {
  return !IsFree(p.mode[0]) || !IsFree(p.mode[1]) || !IsFree(p.mode[2]);
}

void SetDiagonal(double** w, double** v, int i, double value, double weight) {
  v[i][0] = value;
  w[i][i] = weight;
}

void WriteCentreConstraints(const CFitInput& in, double** w, double** v) {
  const CFitParam& c = in.m_centerParam;
  const double values[3] = {c.value.x, c.value.y, c.value.z};
  for (int k = 0; k < 3; ++k) {
    if (!IsFree(c.mode[k])) SetDiagonal(w, v, k, values[k], ModeWeight(c.mode[k]));
  }
}

// One angle: an axis mode fills an angle mode left at 0, and the angle derived from the
// nominal axis becomes the constrained value.
void WriteAngleConstraint(CFitInput& in, int component, int index, double** w, double** v) {
  int& angleMode = in.m_angleParam.mode[component];
  const int axisMode = in.m_axisParam.mode[component];
  if (IsFree(axisMode) && IsFree(angleMode)) return;
  if (IsFree(angleMode)) angleMode = axisMode;
  const KPt3<double>& a = in.m_angleParam.value;
  const double value = component == 0 ? a.x : a.y;
  SetDiagonal(w, v, index, value, ModeWeight(angleMode));
}

void WriteAngleConstraints(CFitInput& in, const DriverLayout& layout, double** w, double** v) {
  WriteAngleConstraint(in, 0, layout.angle1, w, v);
  WriteAngleConstraint(in, 1, layout.angle2, w, v);
  // The third angle is never constrained; only its mode follows the axis.
  if (IsFree(in.m_angleParam.mode[2])) in.m_angleParam.mode[2] = in.m_axisParam.mode[2];
}

// A radius mode on either size triple constrains the radius slot (and the second radius slot
// where the shape has one) to the one given radius.
void WriteRadiusConstraint(const CFitInput& in, const DriverLayout& layout, double** w,
                           double** v) {
  const ConstraintMode m1 = ModeOf(in.m_size1Param.mode[0]);
  const ConstraintMode m2 = ModeOf(in.m_size2Param.mode[0]);
  if (m1 == ConstraintMode::kFree && m2 == ConstraintMode::kFree) return;
  const double r = in.m_fitType == FIT_PARABOLOID ? kParaboloidSizeStart : in.m_size1Param.value.x;
  const bool fixed = m1 == ConstraintMode::kFixed || m2 == ConstraintMode::kFixed;
  const double weight = fixed ? kFixedWeight : kStartValueWeight;
  SetDiagonal(w, v, layout.radius, r, weight);
  if (layout.radius2 != kNoSlot) SetDiagonal(w, v, layout.radius2, r, weight);
}

// Sphere fit on the input's points with the radius free (weight 0) or held at `radius`.
void FitSphereForAxis(CFitInput& in, CFitResult& tmp, double** w, double** v, bool holdRadius,
                      double radius) {
  constexpr int kSphereUnknowns = 4, kSphereRadius = 3;
  mClearMatrix(w, kSphereUnknowns, kSphereUnknowns);
  mClearMatrix(v, kSphereUnknowns, 1);
  if (holdRadius) SetDiagonal(w, v, kSphereRadius, radius, kFixedWeight);
  in.BestFit(tmp, w, v);
}

// Sets the fit type back to the paraboloid on every way out of the axis estimate.
class ParaboloidTypeRestorer {
 public:
  explicit ParaboloidTypeRestorer(CFitInput& in) : in_(in) {}
  ~ParaboloidTypeRestorer() { in_.m_fitType = FIT_PARABOLOID; }
  ParaboloidTypeRestorer(const ParaboloidTypeRestorer&) = delete;
  ParaboloidTypeRestorer& operator=(const ParaboloidTypeRestorer&) = delete;

 private:
  CFitInput& in_;
};

}  // namespace

const DriverLayout* DriverLayoutFor(int fitType) {
  const ShapeDescription* shape = ShapeFor(fitType);
  return shape != nullptr ? &shape->driver : nullptr;
}

KPt3<double> AuxiliaryDirection(const KPt3<double>& a) {
  const double ax = std::fabs(a.x), ay = std::fabs(a.y), az = std::fabs(a.z);
  // Strict comparisons: a tie keeps the earlier component.
  int largest = 0;
  double best = ax;
  if (ay > best) {
    largest = 1;
    best = ay;
  }
  if (az > best) largest = 2;
  if (largest == 0) return KPt3<double>(0.0, 1.0, 0.0);
  if (largest == 1) return KPt3<double>(0.0, 0.0, 1.0);
  return KPt3<double>(1.0, 0.0, 0.0);
}

void AxisToStartAngles(CFitInput& in) {
  KPt3<double> a = in.m_axisParam.value;
  if (a.Length() < kMinNominalAxisLength) {
    a = KPt3<double>(0.0, 0.0, 1.0);
  } else {
    a.Normalize();
  }
  KPt3<double> e1 = a.Cross(AuxiliaryDirection(a));
  e1.Normalize();
  KPt3<double> e0 = e1.Cross(a);
  e0.Normalize();
  KPt3<double> rows[3] = {e0, e1, a};
  double a1 = 0.0, a2 = 0.0, a3 = 0.0;
  ConvertMatrixTo3Angles(rows, &a1, &a2, &a3);
  in.m_angleParam.value = KPt3<double>(a1, a2, a3);
}

double ModeWeight(int mode) {
  return ModeOf(mode) == ConstraintMode::kFixed ? kFixedWeight : kStartValueWeight;
}

void WriteConstraints(CFitInput& in, const DriverLayout& layout, double** w, double** v) {
  if (in.m_fitType != FIT_PLANE) WriteCentreConstraints(in, w, v);
  if (in.m_fitType != FIT_SPHERE) WriteAngleConstraints(in, layout, w, v);
  WriteRadiusConstraint(in, layout, w, v);
}

void ApplyFinalAxis(int fitType, CFitResult& out) {
  if (fitType == FIT_SPHERE) return;
  double r[9];
  ConvertAnglesToMatrix(out.m_angles.x, out.m_angles.y, out.m_angles.z, r);
  out.m_axis = KPt3<double>(r[6], r[7], r[8]);
}

ParaboloidAxisEstimate EstimateParaboloidAxis(CFitInput& in) {
  ParaboloidTypeRestorer restore(in);
  CFitResult tmp;
  tmp = in;
  in.m_fitType = FIT_SPHERE;
  ScopedMatrix w(4, 4), v(4, 1);
  ParaboloidAxisEstimate est;
  if (w.get() == nullptr || v.get() == nullptr) return est;

  FitSphereForAxis(in, tmp, w.get(), v.get(), false, 0.0);
  const KPt3<double> c1 = tmp.m_center;
  const double r1 = tmp.m_size1.x, s = tmp.m_sigma;
  FitSphereForAxis(in, tmp, w.get(), v.get(), true, r1 + 2.0 * s);
  const KPt3<double> c2 = tmp.m_center;
  FitSphereForAxis(in, tmp, w.get(), v.get(), true, r1 - 2.0 * s);
  const KPt3<double> c3 = tmp.m_center;

  // Normalize leaves a zero difference as it is.
  KPt3<double> d = c2 - c3;
  d.Normalize();
  est.direction = d;
  est.vertex = c1 - d * r1;
  est.halfRadius = r1 * 0.5;
  est.angle2 = std::atan2(d.x, std::sqrt(1.0 - d.x * d.x) + kAtanGuard);
  const double c = std::cos(est.angle2);
  est.angle1 = std::atan2(-d.y / c, d.z / c);
  return est;
}

void RunLeastSquaresDriver(CFitInput& in, CFitResult& out, DriverResult what) {
  out = in;  // the caller's nominal values are the start
  AxisToStartAngles(in);
  if (in.m_fitType == FIT_PARABOLOID && AnyModeSet(in.m_axisParam)) {
    (void)EstimateParaboloidAxis(in);
    if (IsFree(in.m_size2Param.mode[0])) in.m_size2Param.mode[0] = kStartValueMode;
  }

  // Types without a layout (none of the entry points stamps one) run with no unknowns.
  const DriverLayout* layout = DriverLayoutFor(in.m_fitType);
  const int n = layout != nullptr ? layout->unknowns : 0;
  ScopedMatrix w(n, n), v(n, 1);
  if (w.get() == nullptr || v.get() == nullptr) {
    out.m_valid = 0;  // out of memory: report a failed fit rather than fit without constraints
    return;
  }
  if (layout != nullptr) WriteConstraints(in, *layout, w.get(), v.get());
  RunBestFit(in, out, w.get(), v.get(),
             what == DriverResult::kComplete ? DeviationList::kAppended : DeviationList::kNotKept);
  w.Release();
  v.Release();

  ApplyFinalAxis(in.m_fitType, out);
  if (what == DriverResult::kComplete) ApplyFormError(in, out);
}

}  // namespace metrofit
