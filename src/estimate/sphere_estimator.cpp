// Sphere start from four points spread over the sphere.
//
// A is the point nearest to the centroid, B the point farthest from A, C the point farthest
// from B and D the point farthest from the line BC. The centre m is equidistant from each
// consecutive pair:
//   (B - A) . m = (|B|^2 - |A|^2) / 2,  (C - B) . m = (|C|^2 - |B|^2) / 2,
//   (D - C) . m = (|D|^2 - |C|^2) / 2.
// The radius is measured to the first input point.
//
// Parameters: centre x, y, z, radius. Degenerate case: four coplanar points make the system
// singular, and the partly reduced right-hand side is taken as the centre.
#include <cstddef>

#include "estimate/estimate_common.h"
#include "estimate/point_selection.h"

namespace metrofit {
namespace {

using Points = std::vector<KPt3<double>>;

// Start of the nearest-point scan: larger than any squared distance of real measurements.
constexpr double kNearestStart = 1e20;

double SquaredDistance(const KPt3<double>& a, const KPt3<double>& b) {
  const KPt3<double> d = a - b;
  return d.Dot(d);
}

std::size_t NearestTo(const Points& pts, const KPt3<double>& q) {
  std::size_t best = 0;
  double bestScore = kNearestStart;
  for (std::size_t i = 0; i < pts.size(); ++i) {
    const double s = SquaredDistance(pts[i], q);
    if (s < bestScore) {
      bestScore = s;
      best = i;
    }
  }
  return best;
}

// Largest score over the points not excluded; strictly greater only, so the first of equal
// maxima wins and an index no candidate improves stays 0.
template <class Score, class Skip>
std::size_t LargestScore(const Points& pts, Score score, Skip skip) {
  std::size_t best = 0;
  double bestScore = 0.0;
  for (std::size_t i = 0; i < pts.size(); ++i) {
    if (skip(i)) continue;
    const double s = score(pts[i]);
    if (s > bestScore) {
      bestScore = s;
      best = i;
    }
  }
  return best;
}

}  // namespace

SpherePointSet SelectSpherePoints(const Points& pts) {
  SpherePointSet s;
  s.a = NearestTo(pts, PointsCentroid(pts));
  const KPt3<double> a = pts[s.a];
  s.b = LargestScore(
      pts, [&](const KPt3<double>& p) { return SquaredDistance(p, a); },
      [&](std::size_t i) { return i == s.a; });
  const KPt3<double> b = pts[s.b];
  s.c = LargestScore(
      pts, [&](const KPt3<double>& p) { return SquaredDistance(p, b); },
      [&](std::size_t i) { return i == s.a || i == s.b; });
  const KPt3<double> c = pts[s.c];
  const KPt3<double> bc = b - c;
  const KPt3<double> mid = (b + c) * 0.5;
  s.d = LargestScore(
      pts,
      [&](const KPt3<double>& p) {
        const KPt3<double> x = bc.Cross(mid - p);
        return x.Dot(x);
      },
      [&](std::size_t i) { return i == s.a || i == s.b || i == s.c; });
  return s;
}

KPt3<double> SolveSphereCentre(const Points& pts, const SpherePointSet& s) {
  const KPt3<double> p[4] = {pts[s.a], pts[s.b], pts[s.c], pts[s.d]};
  WorkMatrix<3, 3> m;
  WorkMatrix<3, 1> rhs;
  for (int i = 0; i < 3; ++i) {
    const KPt3<double> row = p[i + 1] - p[i];
    m.rows()[i][0] = row.x;
    m.rows()[i][1] = row.y;
    m.rows()[i][2] = row.z;
    rhs.rows()[i][0] = (p[i + 1].Dot(p[i + 1]) - p[i].Dot(p[i])) / 2.0;
  }
  // Status not examined: a singular system leaves its partly reduced right-hand side.
  mSolveLinear(m.rows(), 3, rhs.rows(), 1);
  return KPt3<double>(rhs.at(0, 0), rhs.at(1, 0), rhs.at(2, 0));
}

}  // namespace metrofit

using metrofit::SelectSpherePoints;
using metrofit::SolveSphereCentre;
using metrofit::WriteFreeParameter;

void CFitInput::EstimateSphere(CFitResult& result, double** constraints, double** params) {
  if (m_points.empty()) return;
  const KPt3<double> centre = SolveSphereCentre(m_points, SelectSpherePoints(m_points));
  // Measured to the first input point, not to one of the four, so the start radius is the
  // centre's distance to the point the caller listed first, whichever points were selected.
  const double radius = (m_points[0] - centre).Length();
  result.m_size1.x = radius;
  // The centre goes into the parameter vector only; the result's centre is left alone.
  WriteFreeParameter(constraints, params, 0, centre.x);
  WriteFreeParameter(constraints, params, 1, centre.y);
  WriteFreeParameter(constraints, params, 2, centre.z);
  WriteFreeParameter(constraints, params, 3, radius);
}
