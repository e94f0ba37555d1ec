// Three well-spread points of a set: the point farthest from the centroid, the point farthest
// from that one, and the point farthest from both (largest sum of squared distances). With a
// reference plane the selection works on the points projected into it,
//   p' = p - ((p - O) . D) D,
// with the plane's origin O and its direction D as stored (not normalised).
#include <cstddef>
#include <utility>
#include <vector>

#include "estimate/point_selection.h"
#include "metrofit.h"

namespace {

using metrofit::PointsCentroid;
using Points = std::vector<KPt3<double>>;

// Squared distance (float epsilon) below which a candidate for the third point counts as
// coinciding with one of the first two: it would span no triangle.
constexpr double kCoincidentSquaredDistance = 1.1920928955078125e-7;

// One pass of the selection: the best score starts at 0 and only a strictly greater one is
// taken, so the first of equal maxima wins and an all-zero pass chooses nothing.
struct Choice {
  std::size_t index = 0;
  bool chosen = false;
};

template <class Score, class Skip>
Choice Farthest(const Points& pts, Score score, Skip skip) {
  Choice c;
  double best = 0.0;
  for (std::size_t i = 0; i < pts.size(); ++i) {
    if (skip(i)) continue;
    const double s = score(pts[i]);
    if (s > best) {
      best = s;
      c.index = i;
      c.chosen = true;
    }
  }
  return c;
}

double SquaredDistance(const KPt3<double>& a, const KPt3<double>& b) {
  const KPt3<double> d = a - b;
  return d.Dot(d);
}

void ProjectIntoPlane(Points& pts, const KPt3<double>& origin, const KPt3<double>& dir) {
  for (KPt3<double>& p : pts) p = p - dir * (p - origin).Dot(dir);
}

bool SelectThree(const Points& pts, KPt3<double>* out) {
  const KPt3<double> c = PointsCentroid(pts);
  const auto none = [](std::size_t) { return false; };
  const Choice c0 = Farthest(
      pts, [&](const KPt3<double>& p) { return SquaredDistance(p, c); }, none);
  out[0] = pts[c0.index];

  const Choice c1 = Farthest(
      pts, [&](const KPt3<double>& p) { return SquaredDistance(p, out[0]); },
      [&](std::size_t i) { return i == c0.index; });
  out[1] = pts[c1.index];

  const auto nearFirstTwo = [&](std::size_t i) {
    return i == c0.index || i == c1.index ||
           SquaredDistance(pts[i], out[0]) < kCoincidentSquaredDistance ||
           SquaredDistance(pts[i], out[1]) < kCoincidentSquaredDistance;
  };
  const Choice c2 = Farthest(
      pts,
      [&](const KPt3<double>& p) {
        return SquaredDistance(p, out[0]) + SquaredDistance(p, out[1]);
      },
      nearFirstTwo);
  out[2] = pts[c2.index];

  // out[0] is always the end of the first edge that lies farther from the third point.
  if (SquaredDistance(out[1], out[2]) > SquaredDistance(out[0], out[2])) std::swap(out[0], out[1]);
  return c0.chosen && c1.chosen && c2.chosen;
}

}  // namespace

// A pass that chooses nothing leaves its index at 0, so its slot holds the first point; the
// result then reports false.
bool CFitInput::GetFurthest3Points(KPt3<double>* out) {
  const std::size_t n = m_points.size();
  if (n == 0) return false;
  if (n < 3) {
    // One or two points: the slots repeat the last point, so every slot holds a real point.
    out[0] = m_points[0];
    out[1] = m_points[n - 1];
    out[2] = m_points[n - 1];
    return false;
  }
  if (!m_useReference) return SelectThree(m_points, out);

  // The copy is exchanged into the input's list for the selection and exchanged back after it,
  // so the chosen points are projected ones while the caller's points come back unchanged.
  Points projected(m_points);
  m_points.swap(projected);
  ProjectIntoPlane(m_points, m_refOrigin, m_refDirection);
  const bool found = SelectThree(m_points, out);
  m_points.swap(projected);
  return found;
}
