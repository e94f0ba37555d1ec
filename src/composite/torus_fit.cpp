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
#include "composite/torus_fit.h"

#include <cmath>
#include <utility>

#include "core/driver.h"
#include "core/entry_points.h"
#include "extended/circle_fit_ex.h"
#include "extended/cylinder_fit_ex.h"

namespace metrofit {
namespace {

// Constraint mode of a start value that the iteration may move.
constexpr int kStartMode = 2;
// Points taken by the three-point circle start.
constexpr std::size_t kThreePointStart = 3;

// A sub-fit's own input: the caller's settings and points, never steered by its reference
// direction.
CFitInput SubFitInput(const CFitInput& in) {
  CFitInput sub(in);
  sub.m_points = in.m_points;
  sub.m_useReference = false;
  return sub;
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

void AddSphereAndCylinderStarts(const CFitInput& in, const CFitResult& circle,
                                std::vector<TorusStart>& starts) {
  CFitInput sphereIn = SubFitInput(in);
  CFitResult sphere;
  if (FitSphereInternal(sphereIn, sphere) == 0) return;

  const KPt3<double> u = UnitOrZero(circle.m_center - sphere.m_center);
  const MeridianSection s2 = FitMeridianSection(in, circle.m_center, u);
  const KPt3<double> foot = FootOnLine(circle.m_center, u, s2.centre);
  starts.push_back({foot, u, (foot - s2.centre).Length(), s2.radius});

  CFitInput cylIn = SubFitInput(in);
  CFitResult cyl;
  if (FitCylinderExInternal(cylIn, cyl) == 0) return;
  const KPt3<double> d = UnitOrZero(cyl.m_center - sphere.m_center);
  // Deliberately not normalised: the cross product of two unit vectors is the start axis.
  const KPt3<double> axis = cyl.m_axis.Cross(d);
  const MeridianSection s3 = FitMeridianSection(in, circle.m_center, axis);
  starts.push_back({sphere.m_center, axis, (sphere.m_center - cyl.m_center).Length(), s3.radius});
}

void AddThreePointStart(const CFitInput& in, std::vector<TorusStart>& starts) {
  CFitInput threeIn = SubFitInput(in);
  if (threeIn.m_points.size() > kThreePointStart) threeIn.m_points.resize(kThreePointStart);
  CFitResult three;
  FitCircleExInternal(threeIn, three);
  if (three.m_valid == 0) return;
  const MeridianSection s4 = FitMeridianSection(in, three.m_center, three.m_axis);
  const KPt3<double> foot = FootOnLine(three.m_center, three.m_axis, s4.centre);
  starts.push_back({foot, three.m_axis, three.m_size1.x, s4.radius});
}

void RunCandidate(CFitInput& in, Candidate& cand) {
  // The caller's points are lent to the candidate for its run and taken back afterwards.
  std::swap(cand.in.m_points, in.m_points);
  RunLeastSquaresDriver(cand.in, cand.out);
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
  CFitInput sub(in);
  sub.m_useReference = false;
  sub.m_points.reserve(in.m_points.size());
  for (const auto& p : in.m_points) {
    const double h = (p - c).Dot(u);
    const double rho = (p - FootOnLine(c, u, p)).Length();
    const double side = h > 0.0 ? 1.0 : -1.0;
    sub.m_points.push_back(c + u * (side * std::fabs(h)) + t * rho);
  }
  CFitResult circle;
  FitCircleExInternal(sub, circle);
  return {circle.m_center, circle.m_axis, circle.m_size1.x};
}

std::vector<TorusStart> BuildTorusStarts(const CFitInput& in) {
  std::vector<TorusStart> starts;
  CFitInput circleIn = SubFitInput(in);
  CFitResult circle;
  FitCircleExInternal(circleIn, circle);
  const MeridianSection s1 = FitMeridianSection(in, circle.m_center, circle.m_axis);
  starts.push_back({circle.m_center, circle.m_axis, circle.m_size1.x, s1.radius});
  AddSphereAndCylinderStarts(in, circle, starts);
  AddThreePointStart(in, starts);
  return starts;
}

std::int32_t FitTorus(CFitInput& in, CFitResult& out) {
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
  for (Candidate& c : cands) RunCandidate(in, c);

  out.m_valid = 0;
  bool taken = false;
  for (const Candidate& c : cands) {
    if (c.out.m_valid > 0 && (!taken || c.out.m_rms < out.m_rms)) {
      in = c.in;
      out = c.out;
      taken = true;
    }
  }
  return out.m_valid;
}

}  // namespace metrofit

std::int32_t KFitTorus(CFitInput& in, CFitResult& out) {
  try {
    in.m_fitType = FIT_TORUS;
    return metrofit::FitTorus(in, out);
  } catch (...) {
    out.m_valid = 0;
    return 0;
  }
}
