// Plane start from two well-spread directions in the point set.
//
// With c the centroid, A is the point farthest from c and u = A - c; B is the point farthest
// from the line through c along u (largest |u x (c - p)|^2) and v = B - c. The normal is
// N = u x v (after normalising u and v), and the distance is d = N . P with P the first point.
// N is turned so that d >= 0.
//
// Parameters: angle 1, angle 2, distance. Degenerate cases: no points write nothing; a
// zero-length u, v or N is left unnormalised.
#include <cstddef>
#include <vector>

#include "estimate/estimate_common.h"
#include "estimate/point_selection.h"

namespace {

using Points = std::vector<KPt3<double>>;

// Index of the largest score; strictly greater only, from best 0 at index 0, so the first of
// equal maxima wins.
template <class Score>
std::size_t LargestScore(const Points& pts, Score score) {
  std::size_t best = 0;
  double bestScore = 0.0;
  for (std::size_t i = 0; i < pts.size(); ++i) {
    const double s = score(pts[i]);
    if (s > bestScore) {
      bestScore = s;
      best = i;
    }
  }
  return best;
}

KPt3<double> PlaneNormal(const Points& pts) {
  const KPt3<double> c = metrofit::PointsCentroid(pts);
  KPt3<double> u =
      pts[LargestScore(pts, [&](const KPt3<double>& p) { return (p - c).Length(); })] - c;
  KPt3<double> v = pts[LargestScore(pts,
                                    [&](const KPt3<double>& p) {
                                      const KPt3<double> x = u.Cross(c - p);
                                      return x.Dot(x);
                                    })] -
                   c;
  u.Normalize();
  v.Normalize();
  KPt3<double> n = u.Cross(v);
  n.Normalize();
  return n;
}

}  // namespace

using metrofit::DirectionToAngles;
using metrofit::WriteFreeParameter;

void CFitInput::EstimatePlane(CFitResult& result, double** constraints, double** params) {
  if (m_points.empty()) return;
  KPt3<double> n = PlaneNormal(m_points);
  // Measured from the first point, not the centroid; the sign test keeps the reported
  // distance non-negative, the normal pointing from the origin towards the plane.
  double d = n.Dot(m_points[0]);
  if (d < 0.0) {
    d = -d;
    n = -n;
  }
  result.m_size2.y = d;
  DirectionToAngles(n, &result.m_angles.x, &result.m_angles.y);
  WriteFreeParameter(constraints, params, 0, result.m_angles.x);
  WriteFreeParameter(constraints, params, 1, result.m_angles.y);
  WriteFreeParameter(constraints, params, 2, d);
}
