#include "precise/conic_distance.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace metrofit::precise {
namespace {

// Relative step below which a Newton iterate is at the rounding level of its own value.
constexpr double kStepTolerance = 4.0 * std::numeric_limits<double>::epsilon();
// |sum - 1| at the rounding level of a sum of two squares near one.
constexpr double kResidualTolerance = 4.0 * std::numeric_limits<double>::epsilon();
// Root searches end well before this; it only guards against a cycle at the rounding level.
constexpr int kMaxRootIterations = 200;
// A bracket wider than this ratio is split at its geometric mean: the ellipse root may lie
// many decades above its lower bound (a point very near the major axis).
constexpr double kGeometricSplitRatio = 4.0;

double SignOf(double v) {
  return v < 0.0 ? -1.0 : 1.0;
}

// Foot and normal of a point on the first quadrant with e0 >= e1 > 0, p0, p1 >= 0; the
// derivatives follow from them alone.
struct QuadrantFoot {
  double d = 0.0;
  double foot[2] = {0.0, 0.0};
  double normal[2] = {1.0, 0.0};
};

// Root u of F(u) = (A / (u + rm))^2 + (B / u)^2 - 1 on [lo, hi], F(lo) >= 0 >= F(hi), where
// F is convex and decreasing for u > 0. Newton runs on S(u) = (F + 1)^(-1/2), which is exactly
// linear in u at both ends (rm = 0 or B = 0) and nearly so in between; a bracket keeps it safe.
double EllipseRoot(double A, double B, double rm, double lo, double hi) {
  double u = lo;
  bool hi_evaluated = false;  // hi starts as a bound that may itself be the root (a circle)
  for (int i = 0; i < kMaxRootIterations; ++i) {
    const double wa = A / (u + rm);
    const double wb = B / u;
    const double sum = wa * wa + wb * wb;
    // Sums of two positive squares carry a few ulps: no nearby u can be told apart from this.
    if (std::fabs(sum - 1.0) <= kResidualTolerance) return u;
    if (sum > 1.0) {
      lo = u;
    } else {
      hi = u;
      hi_evaluated = true;
    }
    // S = sum^(-1/2), dS/du = sum^(-3/2) (wa^2 / (u + rm) + wb^2 / u).
    const double slope = (wa * wa / (u + rm) + wb * wb / u) / (sum * std::sqrt(sum));
    double next = u - (1.0 / std::sqrt(sum) - 1.0) / slope;
    if (std::fabs(next - u) <= kStepTolerance * u) return std::clamp(next, lo, hi);
    // Newton must bring a point not yet evaluated; landing on a known bracket end means its
    // step is rounding noise, and the bracket is split instead.
    const bool fresh = next > lo && (next < hi || (next == hi && !hi_evaluated));
    if (!fresh) {
      next = hi > kGeometricSplitRatio * lo ? std::sqrt(lo) * std::sqrt(hi) : 0.5 * (lo + hi);
      if (next <= lo || next >= hi) return u;  // the bracket is down to adjacent doubles
    }
    u = next;
  }
  return u;
}

// Off-axis point, p0, p1 > 0: the foot is X = (r0 p0 / (u + rm), p1 / u) with u = (t + e1^2) /
// e1^2, so p - X = (u - 1) (p0 / (u + rm), p1 / u), which is parallel to the normal.
QuadrantFoot OffAxisFoot(double p0, double p1, double e0, double e1) {
  const double z0 = p0 / e0;
  const double z1 = p1 / e1;
  const double ratio = e0 / e1;
  const double r0 = ratio * ratio;
  const double rm = (ratio - 1.0) * (ratio + 1.0);  // r0 - 1 without cancellation
  const double g = z0 * z0 + z1 * z1 - 1.0;
  double u = 1.0;
  if (g != 0.0) {
    const double hi = g < 0.0 ? 1.0 : std::hypot(r0 * z0, z1);
    u = EllipseRoot(r0 * z0, z1, rm, z1, hi);
  }
  const double w0 = p0 / (u + rm);
  const double w1 = p1 / u;
  const double len = std::hypot(w0, w1);
  QuadrantFoot q;
  q.d = (u - 1.0) * len;
  q.foot[0] = r0 * w0;
  q.foot[1] = w1;
  q.normal[0] = w0 / len;
  q.normal[1] = w1 / len;
  return q;
}

// Point on the major axis (p1 = 0). Inside, nearer the centre than the centre of curvature of
// the vertex, the nearest feet are the mirrored pair X0 = e0^2 p0 / (e0^2 - e1^2).
QuadrantFoot MajorAxisFoot(double p0, double e0, double e1) {
  QuadrantFoot q;
  const double numer = e0 * p0;
  const double denom = (e0 - e1) * (e0 + e1);
  if (numer < denom) {
    const double xde = numer / denom;
    q.foot[0] = e0 * xde;
    q.foot[1] = e1 * std::sqrt((1.0 - xde) * (1.0 + xde));
    const double n0 = p0 * e1 * e1 / denom;  // X0 - p0, both along the gradient at the foot
    const double len = std::hypot(n0, q.foot[1]);
    q.d = -len;
    q.normal[0] = n0 / len;
    q.normal[1] = q.foot[1] / len;
  } else {
    q.foot[0] = e0;
    q.d = p0 - e0;
  }
  return q;
}

QuadrantFoot FirstQuadrantFoot(double p0, double p1, double e0, double e1) {
  if (p1 == 0.0) return MajorAxisFoot(p0, e0, e1);
  if (p0 == 0.0) {
    // On the minor axis the minor vertex is the nearest point, inside or out.
    QuadrantFoot q;
    q.foot[1] = e1;
    q.normal[0] = 0.0;
    q.normal[1] = 1.0;
    q.d = p1 - e1;
    return q;
  }
  return OffAxisFoot(p0, p1, e0, e1);
}

}  // namespace

CurveDistance EllipseDistance(double x, double y, double a, double b) {
  // Work with the larger semi-axis first, in the first quadrant; map back by symmetry.
  const bool swap = a < b;
  const double e0 = swap ? b : a;
  const double e1 = swap ? a : b;
  const double p0 = std::fabs(swap ? y : x);
  const double p1 = std::fabs(swap ? x : y);
  const QuadrantFoot q = FirstQuadrantFoot(p0, p1, e0, e1);
  const double de0 = -q.normal[0] * q.foot[0] / e0;
  const double de1 = -q.normal[1] * q.foot[1] / e1;

  CurveDistance c;
  c.d = q.d;
  const int ix = swap ? 1 : 0;
  const int iy = 1 - ix;
  c.dx = SignOf(x) * q.normal[ix];
  c.dy = SignOf(y) * q.normal[iy];
  c.foot[0] = SignOf(x) * q.foot[ix];
  c.foot[1] = SignOf(y) * q.foot[iy];
  c.dsize[0] = swap ? de1 : de0;
  c.dsize[1] = swap ? de0 : de1;
  return c;
}

namespace {

// Positive root of T^3 + p T - q = 0 for q > 0. The cubic is convex for T >= 0 and negative at
// 0, so Newton from any upper bound decreases monotonically onto the root; the first step that
// fails to decrease is at the rounding level.
double PositiveCubicRoot(double p, double q) {
  const double cube = std::cbrt(q);
  double t = p >= 0.0 ? std::min(cube, q / p) : std::sqrt(-p) + cube;
  for (int i = 0; i < kMaxRootIterations; ++i) {
    const double value = (t * t + p) * t - q;
    if (value <= 0.0) return t;
    const double next = t - value / (3.0 * t * t + p);
    if (!(next < t)) return t;
    t = next;
  }
  return t;
}

}  // namespace

CurveDistance ParabolaDistance(double r, double z, double focal) {
  // In units of F the foot T = t / F solves T^3 + 4 (2 - Z) T - 8 R = 0 with R = |r| / F.
  const double rr = std::fabs(r) / focal;
  const double zz = z / focal;
  const double p = 4.0 * (2.0 - zz);
  const double q = 8.0 * rr;
  double t = 0.0;
  if (q > 0.0) {
    t = PositiveCubicRoot(p, q);
  } else if (p < 0.0) {
    t = std::sqrt(-p);  // on the axis above the centre of curvature: two mirrored feet
  }
  const double slope = 0.5 * t;  // dz/dr of the curve at the foot
  const double len = std::hypot(1.0, slope);
  const double nr = slope / len;
  const double nz = -1.0 / len;
  // Projection onto the normal: second-order insensitive to a foot off by rounding.
  const double d = ((rr - t) * nr + (zz - 0.25 * t * t) * nz) * focal;

  CurveDistance c;
  c.d = d;
  c.dx = SignOf(r) * nr;
  c.dy = nz;
  c.dsize[0] = -0.25 * t * t / len;  // -n . dX/dF with X = (t, t^2 / (4F)) at fixed t
  c.foot[0] = SignOf(r) * t * focal;
  c.foot[1] = 0.25 * t * t * focal;
  return c;
}

}  // namespace metrofit::precise
