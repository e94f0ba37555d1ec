// Smallest enclosing circle of coplanar points given in 3-D coordinates.
//
// Circle of a support set:
//   one point p           centre p, radius 0;
//   two points p, q       centre (p + q) / 2, radius |p - q| / 2;
//   three points a, b, c  the circumcircle: with u = b - a, v = c - a, w = u x v,
//                         centre = a + ((|u|^2 v - |v|^2 u) x w) / (2 |w|^2).
// The circumcentre lies in the plane of a, b and c, so a tilted plane needs no in-plane
// frame, and the formula works on differences, so a plane far from the origin loses no digits
// beyond those of the differences themselves.
//
// Search: the incremental method. Point i outside the current circle must lie on the circle of
// points 0..i; point j outside the circle then on it too, and a third point k outside fixes the
// circle through i, j, k. Visiting the points in a fixed pseudo-random order makes the expected
// work linear even for points that arrive sorted (a scan around the part) while keeping the
// result reproducible from run to run.
//
// Degenerate support sets: two points that agree in every coordinate within kTinyLength are
// one point; a (nearly) collinear triple, which exact arithmetic never makes a support set,
// falls back to the circle on its two furthest points.
#include "core/enclosing_circle.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "core/constants.h"

namespace metrofit {
namespace {

// A point counts as outside when its squared distance exceeds the squared radius by this
// relative margin: cocircular points then do not churn the support set over rounding noise.
constexpr double kContainmentSlack = 1e-12;
// Sine of the angle at the first point below which a triple counts as collinear; the
// circumcentre would be meaningless so far out.
constexpr double kCollinearSine = 1e-14;
// Seed of the fixed visiting order; any constant works, a fixed one keeps results repeatable.
constexpr std::uint64_t kOrderSeed = 0x9E3779B97F4A7C15ULL;

struct Circle {
  KPt3<double> centre;
  double radius = 0.0;
};

// Distinct only when some coordinate differs by more than the tolerance.
bool SamePoint(const KPt3<double>& a, const KPt3<double>& b) {
  return std::fabs(a.x - b.x) <= kTinyLength && std::fabs(a.y - b.y) <= kTinyLength &&
         std::fabs(a.z - b.z) <= kTinyLength;
}

bool IsFinite(const KPt3<double>& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

bool Outside(const KPt3<double>& p, const Circle& c) {
  const KPt3<double> d = p - c.centre;
  return d.Dot(d) > c.radius * c.radius * (1.0 + kContainmentSlack);
}

Circle CircleOf2(const KPt3<double>& p, const KPt3<double>& q) {
  if (SamePoint(p, q)) return Circle{p, 0.0};
  return Circle{(p + q) * 0.5, (p - q).Length() * 0.5};
}

// The circle on the two furthest of three points: the answer for a collinear triple.
Circle WidestPairOf3(const KPt3<double>& a, const KPt3<double>& b, const KPt3<double>& c) {
  const double ab = (b - a).Dot(b - a), ac = (c - a).Dot(c - a), bc = (c - b).Dot(c - b);
  if (ab >= ac && ab >= bc) return CircleOf2(a, b);
  return ac >= bc ? CircleOf2(a, c) : CircleOf2(b, c);
}

Circle CircleOf3(const KPt3<double>& a, const KPt3<double>& b, const KPt3<double>& c) {
  if (SamePoint(a, b) || SamePoint(a, c)) return CircleOf2(b, c);
  if (SamePoint(b, c)) return CircleOf2(a, b);
  const KPt3<double> u = b - a, v = c - a;
  const KPt3<double> w = u.Cross(v);
  const double uu = u.Dot(u), vv = v.Dot(v), ww = w.Dot(w);
  if (!(ww > kCollinearSine * kCollinearSine * uu * vv)) return WidestPairOf3(a, b, c);
  const KPt3<double> centre = a + (v * uu - u * vv).Cross(w) * (0.5 / ww);
  // The largest of the three distances, so that all three support points test as inside.
  const double r =
      std::fmax((a - centre).Length(), std::fmax((b - centre).Length(), (c - centre).Length()));
  return Circle{centre, r};
}

// splitmix64: a tiny generator whose sequence is the same on every platform (the standard
// library's shuffle is not).
std::uint64_t NextRandom(std::uint64_t& state) {
  std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

void FixedShuffle(KPt3<double>* pts, std::size_t n) {
  std::uint64_t state = kOrderSeed;
  for (std::size_t i = n - 1; i > 0; --i) {
    const std::size_t j = static_cast<std::size_t>(NextRandom(state) % (i + 1));
    std::swap(pts[i], pts[j]);
  }
}

Circle Incremental(const KPt3<double>* pts, std::size_t n) {
  Circle c{pts[0], 0.0};
  for (std::size_t i = 1; i < n; ++i) {
    if (!Outside(pts[i], c)) continue;
    c = Circle{pts[i], 0.0};
    for (std::size_t j = 0; j < i; ++j) {
      if (!Outside(pts[j], c)) continue;
      c = CircleOf2(pts[i], pts[j]);
      for (std::size_t k = 0; k < j; ++k) {
        if (Outside(pts[k], c)) c = CircleOf3(pts[i], pts[j], pts[k]);
      }
    }
  }
  return c;
}

}  // namespace

EnclosingCircle SmallestEnclosingCircleInPlace(KPt3<double>* points, std::size_t n) {
  EnclosingCircle out;
  if (n < 2) {
    if (n == 1) out.centre = points[0];
    return out;
  }
  if (n == 2) {
    out.centre = (points[0] + points[1]) * 0.5;
    out.radius = (points[0] - points[1]).Length() * 0.5;
    return out;
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (IsFinite(points[i])) continue;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    out.centre = KPt3<double>(nan, nan, nan);
    out.radius = nan;
    out.status = kCircleNonFinite;
    return out;
  }
  FixedShuffle(points, n);
  const Circle c = Incremental(points, n);
  out.centre = c.centre;
  out.radius = c.radius;
  return out;
}

EnclosingCircle SmallestEnclosingCircle(const std::vector<KPt3<double>>& planarPoints) {
  std::vector<KPt3<double>> work(planarPoints);
  return SmallestEnclosingCircleInPlace(work.data(), work.size());
}

}  // namespace metrofit
