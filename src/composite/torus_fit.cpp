// Multi-start torus fit. A torus has no closed-form start and its least-squares iteration only
// converges near the truth, so up to four starts are built from simpler fits:
//   1. a circle through all points (its plane is the torus's equator for a full torus);
//   2. a sphere, whose centre and the circle's centre give an axis direction;
//   3. a cylinder, whose axis crossed with the sphere-to-axis direction gives another axis;
//   4. a circle through the first three points.
// The tube radius of every start comes from the meridian section: all points turned about the
// assumed axis into one half-plane, where they lie on the circle of the tube's cross-section.
// Each start runs the full least-squares torus fit; the smallest RMS wins, ties keep the
// earlier candidate.
//
// Memory. The sub-fits of all the points borrow the caller's points instead of copying them,
// and a start keeps only the few numbers it takes from its sub-fit: the sub-fit's result is
// gone before the next sub-fit runs. A meridian section's circle refinement makes its copy of
// the section from the caller's points again, after the section's own points are freed (the
// section is never held twice). No candidate's deviation list reaches the caller (assigning a
// result keeps the target's own list), so the candidates run without one.
#include "composite/torus_fit.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "composite/cylinder_cone_fit.h"
#include "core/driver.h"
#include "core/entry_points.h"
#include "core/form_error.h"
#include "extended/circle_fit_ex.h"
#include "extended/cylinder_fit_ex.h"

namespace metrofit {
namespace {

// Constraint mode of a start value that the iteration may move.
constexpr int kStartMode = 2;
// Points taken by the three-point circle start.
constexpr std::size_t kThreePointStart = 3;

// A sub-fit's own input: the caller's settings and its first `count` points, never steered by
// its reference direction.
CFitInput SubFitInput(const CFitInput& in, std::size_t count) {
  CFitInput sub(in);
  const std::size_t n = std::min(count, in.m_points.size());
  sub.m_points.assign(in.m_points.begin(), in.m_points.begin() + static_cast<std::ptrdiff_t>(n));
  sub.m_useReference = false;
  return sub;
}

// What a start takes from a sub-fit: its return value, validity, centre, axis and first size.
struct SubFit {
  std::int32_t returned = 0;
  int valid = 0;
  KPt3<double> centre, axis;
  double size = 0.0;
};

using SubFitFunction = std::int32_t (*)(CFitInput&, CFitResult&) noexcept;

SubFit Taken(std::int32_t returned, const CFitResult& out) {
  return {returned, out.m_valid, out.m_center, out.m_axis, out.m_size1.x};
}

// A sub-fit of all the caller's points. They are lent to it, not copied, and taken back when
// it returns: none of the sub-fits writes to the points of its input.
SubFit RunSubFit(SubFitFunction fit, CFitInput& in) {
  CFitInput sub = SubFitInput(in, 0);
  std::swap(sub.m_points, in.m_points);
  CFitResult out;
  const std::int32_t returned = fit(sub, out);
  std::swap(sub.m_points, in.m_points);
  return Taken(returned, out);
}

// A sub-fit of the caller's first `count` points, on a copy of them.
SubFit RunSubFitOnFirst(SubFitFunction fit, const CFitInput& in, std::size_t count) {
  CFitInput sub = SubFitInput(in, count);
  CFitResult out;
  return Taken(fit(sub, out), out);
}

KPt3<double> UnitOrZero(const KPt3<double>& v) {
  KPt3<double> u = v;
  return u.Normalize();
}

KPt3<double> FootOnLine(const KPt3<double>& c, const KPt3<double>& u, const KPt3<double>& p) {
  const KPt3<double> b = c + u;
  return c + (b - c) * LineParameter(c, b, p);
}

struct Candidate {
  CFitInput in;
  CFitResult out;
};

CFitInput BaseInput(const CFitInput& in) {
  CFitInput base(in);
  for (int k = 0; k < 3; ++k) {
    base.m_centerParam.mode[k] = kStartMode;
    base.m_axisParam.mode[k] = kStartMode;
  }
  base.m_size1Param.mode[1] = kStartMode;
  base.m_size1Param.mode[2] = kStartMode;
  return base;
}

void AddSphereAndCylinderStarts(CFitInput& in, const SubFit& circle,
                                std::vector<TorusStart>& starts) {
  const SubFit sphere = RunSubFit(&FitSphereInternal, in);
  if (sphere.returned == 0) return;

  const KPt3<double> u = UnitOrZero(circle.centre - sphere.centre);
  const MeridianSection s2 = FitMeridianSection(in, circle.centre, u);
  const KPt3<double> foot = FootOnLine(circle.centre, u, s2.centre);
  starts.push_back({foot, u, (foot - s2.centre).Length(), s2.radius});

  const SubFit cyl = RunSubFit(&FitCylinderExInternal, in);
  if (cyl.returned == 0) return;
  const KPt3<double> d = UnitOrZero(cyl.centre - sphere.centre);
  // Deliberately not normalised: the cross product of two unit vectors is the start axis.
  const KPt3<double> axis = cyl.axis.Cross(d);
  const MeridianSection s3 = FitMeridianSection(in, circle.centre, axis);
  starts.push_back({sphere.centre, axis, (sphere.centre - cyl.centre).Length(), s3.radius});
}

void AddThreePointStart(const CFitInput& in, std::vector<TorusStart>& starts) {
  const SubFit three = RunSubFitOnFirst(&FitCircleExForStart, in, kThreePointStart);
  if (three.valid == 0) return;
  const MeridianSection s4 = FitMeridianSection(in, three.centre, three.axis);
  const KPt3<double> foot = FootOnLine(three.centre, three.axis, s4.centre);
  starts.push_back({foot, three.axis, three.size, s4.radius});
}

void RunCandidate(CFitInput& in, Candidate& cand, CandidateWork work) {
  // The caller's points are lent to the candidate for its run and taken back afterwards.
  std::swap(cand.in.m_points, in.m_points);
  RunLeastSquaresDriver(cand.in, cand.out,
                        work == CandidateWork::kLean ? DriverResult::kWithoutListOrFormError
                                                     : DriverResult::kComplete);
  std::swap(cand.in.m_points, in.m_points);
  cand.out.m_message.clear();
}

}  // namespace

KPt3<double> MeridianDirection(const KPt3<double>& u) {
  const double ax = std::fabs(u.x), ay = std::fabs(u.y), az = std::fabs(u.z);
  int k = 0;
  if (ay > ax) k = 1;
  if (az > std::fmax(ax, ay)) k = 2;
  const KPt3<double> seed = k == 0   ? KPt3<double>(0, 1, 0)
                            : k == 1 ? KPt3<double>(0, 0, 1)
                                     : KPt3<double>(1, 0, 0);
  return u.Cross(seed).Cross(u);
}

MeridianSection FitMeridianSection(const CFitInput& in, const KPt3<double>& c,
                                   const KPt3<double>& u) {
  const KPt3<double> t = MeridianDirection(u);
  const auto section = [&in, &c, &u, &t](std::int32_t i) {
    const KPt3<double>& p = in.m_points[static_cast<std::size_t>(i)];
    const double h = (p - c).Dot(u);
    const double rho = (p - FootOnLine(c, u, p)).Length();
    const double side = h > 0.0 ? 1.0 : -1.0;
    return c + u * (side * std::fabs(h)) + t * rho;
  };
  CFitInput sub(in);
  sub.m_useReference = false;
  const auto count = static_cast<std::int32_t>(in.m_points.size());
  sub.m_points.reserve(in.m_points.size());
  for (std::int32_t i = 0; i < count; ++i) sub.m_points.push_back(section(i));
  // The section's points serve this circle alone: the refinement makes its copy from the
  // section again once they are freed, so the points are never held twice.
  CFitResult circle;
  FitCircleExForStartRemaking(sub, circle, section);
  return {circle.m_center, circle.m_axis, circle.m_size1.x};
}

std::vector<TorusStart> BuildTorusStarts(CFitInput& in) {
  std::vector<TorusStart> starts;
  const SubFit circle = RunSubFit(&FitCircleExForStart, in);
  const MeridianSection s1 = FitMeridianSection(in, circle.centre, circle.axis);
  starts.push_back({circle.centre, circle.axis, circle.size, s1.radius});
  AddSphereAndCylinderStarts(in, circle, starts);
  AddThreePointStart(in, starts);
  return starts;
}

std::int32_t FitTorus(CFitInput& in, CFitResult& out, CandidateWork work) {
  const CFitInput base = BaseInput(in);
  // A growable list that relocates by copy construction: a relocated result starts empty,
  // which is harmless because every candidate is added before any is run.
  std::vector<Candidate> cands;
  for (const TorusStart& s : BuildTorusStarts(in)) {
    Candidate c{base, out};
    c.out = out;
    c.in.m_fitType = FIT_TORUS;
    c.in.m_centerParam.value = s.centre;
    c.in.m_axisParam.value = s.axis;
    c.in.m_size1Param.value.y = s.major;
    c.in.m_size1Param.value.z = s.minor;
    cands.push_back(c);
  }
  for (Candidate& c : cands) RunCandidate(in, c, work);

  out.m_valid = 0;
  bool taken = false;
  for (const Candidate& c : cands) {
    if (c.out.m_valid > 0 && (!taken || c.out.m_rms < out.m_rms)) {
      in = c.in;
      out = c.out;
      taken = true;
    }
  }
  // The winner's form error, as its run would have measured it: `in` now holds its settings
  // beside the caller's points.
  if (taken && work == CandidateWork::kLean) ApplyFormError(in, out);
  return out.m_valid;
}

}  // namespace metrofit

std::int32_t metrofit::FitTorusInternal(CFitInput& in, CFitResult& out) noexcept {
  try {
    in.m_fitType = FIT_TORUS;
    return metrofit::FitTorus(in, out);
  } catch (...) {
    out.m_valid = 0;
    return 0;
  }
}

std::int32_t KFitTorus(CFitInput& in, CFitResult& out) {
  return metrofit::FitTorusInternal(in, out);
}
