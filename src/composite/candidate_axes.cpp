// Start axes of the multi-start cylinder and cone fits. A least-squares cylinder or cone only
// converges from a roughly right axis, so the fit tries many: twelve fixed directions that
// cover the sphere of directions coarsely, three from the spread of the points and three from
// line and plane fits of the points.
#include "composite/candidate_axes.h"

#include <cmath>

#include "core/entry_points.h"

namespace metrofit {
namespace {

// p and q normalise the fixed starts. The small offsets (0.01, 1.01) keep the starts off exact
// coordinate axes and exact diagonals, where ties in the estimators' dominant-axis rules sit.
const double kP = 1.0 / std::sqrt(1.0002);
const double kQ = 1.0 / std::sqrt(3.0201);
// Edges of the furthest-point triangle shorter than this are replaced by a coordinate axis.
constexpr double kShortEdge = 1e-5;

void FixedAxes(std::array<KPt3<double>, kCandidateCount>& a) {
  a[0] = KPt3<double>(1, 0.01, 0.01) * kP;
  a[1] = KPt3<double>(0, 1, 0);
  a[2] = KPt3<double>(0, 0, 1);
  a[3] = KPt3<double>(1, 1, 1.01) * kQ;
  a[4] = KPt3<double>(-1, 1, 1.01) * kQ;
  a[5] = KPt3<double>(1, -1, 1.01) * kQ;
  a[6] = KPt3<double>(1, 1.01, 1) * kQ;
  a[7] = KPt3<double>(-1, 1.01, 1) * kQ;
  a[8] = KPt3<double>(1, -1.01, 1) * kQ;
  a[9] = KPt3<double>(1.01, 1, 1) * kQ;
  a[10] = KPt3<double>(-1.01, 1, 1) * kQ;
  a[11] = KPt3<double>(1.01, -1, 1) * kQ;
}

KPt3<double> EdgeOrDefault(const KPt3<double>& edge, const KPt3<double>& fallback) {
  KPt3<double> e = edge.Length() < kShortEdge ? fallback : edge;
  return e.Normalize();
}

// The axis of a line or plane fit on `in`. Only the axis is read, so the fits make neither a
// deviation list nor a form error (the line's straightness would hold a copy of the points).
KPt3<double> AxisOfFit(std::int32_t (*fit)(CFitInput&, CFitResult&) noexcept, CFitInput& in) {
  CFitResult result;
  fit(in, result);
  return result.m_axis;
}

}  // namespace

CandidateAxes MakeCandidateAxes(CFitInput& in) {
  CandidateAxes c;
  FixedAxes(c.axis);

  KPt3<double> t[3];
  c.furthestPointsFound = in.GetFurthest3Points(t);
  const KPt3<double> u = EdgeOrDefault(t[1] - t[0], KPt3<double>(0, 0, 1));
  const KPt3<double> v = EdgeOrDefault(t[2] - t[0], KPt3<double>(1, 0, 0));
  KPt3<double> n = u.Cross(v);
  n.Normalize();
  KPt3<double> w = n.Cross(u);
  w.Normalize();
  c.axis[12] = w;
  c.axis[13] = n;
  c.axis[14] = u;

  c.axis[15] = AxisOfFit(&FitLineAxisInternal, in);
  c.axis[16] = AxisOfFit(&FitPlaneAxisInternal, in);
  KPt3<double> cross = c.axis[15].Cross(c.axis[16]);
  c.axis[17] = cross.Normalize();
  return c;
}

std::array<bool, kCandidateCount> DuplicateStarts(
    const std::array<KPt3<double>, kCandidateCount>& axis) {
  std::array<bool, kCandidateCount> skip{};
  for (int i = 0; i < kCandidateCount; ++i)
    for (int j = i + 1; j < kCandidateCount; ++j)
      if (std::fabs(axis[i].Dot(axis[j])) > kDuplicateAxisCos) skip[j] = true;
  return skip;
}

}  // namespace metrofit
