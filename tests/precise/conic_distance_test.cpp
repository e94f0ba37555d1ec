// Orthogonal distances to the ellipse and the parabola against a brute-force reference (dense
// sampling of the curve in extended precision, then golden-section refinement of the best
// local minima), closed forms on the axes, and derivatives against central differences.
#include "precise/conic_distance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <utility>
#include <vector>

namespace {

using metrofit::precise::CurveDistance;
using metrofit::precise::EllipseDistance;
using metrofit::precise::ParabolaDistance;

constexpr double kPi = 3.141592653589793;
constexpr long double kGolden = 0.6180339887498948482L;
// Samples of the curve for the brute-force search; the refinement does the rest.
constexpr int kBruteSamples = 6000;
// Local minima of the samples refined: more than the up to four feet a conic can have.
constexpr int kBruteCandidates = 6;
// Golden-section steps: the bracket shrinks below the resolution of long double.
constexpr int kGoldenSteps = 120;
// Distance agreement with the reference, relative to the larger of the sizes and |p|.
constexpr double kDistanceTolerance = 4e-15;
// Agreement of derivatives (dimensionless, of order one) with central differences.
constexpr double kDerivativeTolerance = 1e-6;
// Finite-difference step relative to the local length scale (distance to the centre of
// curvature, or the smaller size): truncation stays near kFdStep^2.
constexpr double kFdStep = 1e-4;
// Tolerance below which a central difference counts as clean in the printed summary.
constexpr double kCleanFd = 2e-6;
// Rounding of one distance evaluation, relative to the size of the problem.
constexpr double kFdRounding = 8.0 * 2.220446049250313e-16;

// |a - b| <= rel * max(scale, 1e-300): the caller names the scale the error is measured in.
::testing::AssertionResult WithinScale(double a, double b, double rel, double scale) {
  if (std::fabs(a - b) <= rel * std::max(scale, 1e-300)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << a << " and " << b << " differ by " << std::fabs(a - b)
                                       << ", more than " << rel << " x " << scale;
}

class Rng {
 public:
  explicit Rng(unsigned seed) : gen_(seed) {}
  double Uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(gen_);
  }
  double LogUniform(double lo_exp, double hi_exp) {
    return std::pow(10.0, Uniform(lo_exp, hi_exp));
  }
  double Sign() { return Uniform(0.0, 1.0) < 0.5 ? -1.0 : 1.0; }
  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen_); }

 private:
  std::mt19937_64 gen_;
};

// Unsigned distance from p to a parametrised curve X(t), t in [lo, hi]: the best of the refined
// local minima of dense samples of |X(t) - p|^2.
template <typename Curve>
long double BruteDistance(const Curve& sq_dist, long double lo, long double hi, bool periodic) {
  std::vector<long double> v(kBruteSamples + 1);
  const long double step = (hi - lo) / kBruteSamples;
  for (int i = 0; i <= kBruteSamples; ++i) v[i] = sq_dist(lo + step * i);
  std::vector<std::pair<long double, int>> minima;
  for (int i = 0; i <= kBruteSamples; ++i) {
    const int prev = i > 0 ? i - 1 : (periodic ? kBruteSamples - 1 : 0);
    const int next = i < kBruteSamples ? i + 1 : (periodic ? 1 : kBruteSamples);
    if (v[i] <= v[prev] && v[i] <= v[next]) minima.emplace_back(v[i], i);
  }
  std::sort(minima.begin(), minima.end());
  long double best = minima.front().first;
  for (std::size_t k = 0; k < minima.size() && k < kBruteCandidates; ++k) {
    long double a = lo + step * (minima[k].second - 1);
    long double b = lo + step * (minima[k].second + 1);
    long double c = b - kGolden * (b - a);
    long double d = a + kGolden * (b - a);
    long double fc = sq_dist(c);
    long double fd = sq_dist(d);
    for (int s = 0; s < kGoldenSteps; ++s) {
      if (fc < fd) {
        b = d;
        d = c;
        fd = fc;
        c = b - kGolden * (b - a);
        fc = sq_dist(c);
      } else {
        a = c;
        c = d;
        fc = fd;
        d = a + kGolden * (b - a);
        fd = sq_dist(d);
      }
    }
    best = std::min({best, fc, fd});
  }
  return std::sqrt(best);
}

double EllipseReference(double x, double y, double a, double b) {
  const long double la = a, lb = b, lx = x, ly = y;
  auto sq = [&](long double t) {
    const long double dx = la * std::cos(t) - lx;
    const long double dy = lb * std::sin(t) - ly;
    return dx * dx + dy * dy;
  };
  const long double dist = BruteDistance(sq, 0.0L, 2.0L * 3.14159265358979323846L, true);
  const long double g = lx * lx / (la * la) + ly * ly / (lb * lb) - 1.0L;
  return static_cast<double>(g < 0.0L ? -dist : dist);
}

double ParabolaReference(double r, double z, double focal) {
  const long double lf = focal, lr = r, lz = z;
  auto sq = [&](long double t) {
    const long double dr = t - lr;
    const long double dz = t * t / (4.0L * lf) - lz;
    return dr * dr + dz * dz;
  };
  // The foot is no farther from p than the vertex is, so |t| <= 2 |p|.
  const long double reach = 2.0L * std::hypot(lr, lz) + lf;
  const long double dist = BruteDistance(sq, -reach, reach, false);
  const long double g = lr * lr / (4.0L * lf) - lz;
  return static_cast<double>(g < 0.0L ? -dist : dist);
}

// ---- Ellipse ---------------------------------------------------------------------------

struct EllipseCase {
  double x, y, a, b;
};

// Semi-axes from 0.1 mm to 500 mm, ratios up to 1e3 either way, one case in eight a circle.
void RandomAxes(Rng& rng, double* a, double* b) {
  *a = rng.LogUniform(-1.0, 2.7);
  *b = rng.Int(0, 7) == 0 ? *a : *a / rng.LogUniform(0.0, 3.0);
  if (rng.Int(0, 1) == 1) std::swap(*a, *b);
}

// Points of every kind that is hard for a foot-point search.
EllipseCase RandomEllipseCase(Rng& rng) {
  EllipseCase c{};
  RandomAxes(rng, &c.a, &c.b);
  const double big = std::max(c.a, c.b);
  const double t = rng.Uniform(0.0, 2.0 * kPi);
  switch (rng.Int(0, 6)) {
    case 0:  // anywhere around the ellipse
      c.x = rng.Uniform(-3.0, 3.0) * big;
      c.y = rng.Uniform(-3.0, 3.0) * big;
      break;
    case 1: {  // within 1e-14 .. 1e-2 of the curve, on either side
      const double fx = c.a * std::cos(t), fy = c.b * std::sin(t);
      const double nx = fx / (c.a * c.a), ny = fy / (c.b * c.b), len = std::hypot(nx, ny);
      const double off = rng.Sign() * rng.LogUniform(-14.0, -2.0) * big;
      c.x = fx + off * nx / len;
      c.y = fy + off * ny / len;
      break;
    }
    case 2:  // on an axis
      (rng.Int(0, 1) == 0 ? c.x : c.y) = rng.Uniform(-3.0, 3.0) * big;
      break;
    case 3:  // next to an axis, by down to 1e-300
      c.x = rng.Uniform(-3.0, 3.0) * big;
      c.y = rng.Sign() * rng.LogUniform(-300.0, -3.0) * big;
      if (rng.Int(0, 1) == 1) std::swap(c.x, c.y);
      break;
    case 4: {  // far away
      const double reach = rng.LogUniform(2.0, 6.0) * big;
      c.x = reach * std::cos(t);
      c.y = reach * std::sin(t);
      break;
    }
    case 5:  // near the centre
      c.x = rng.Uniform(-1e-6, 1e-6) * big;
      c.y = rng.Uniform(-1e-6, 1e-6) * big;
      break;
    default:  // near the vertex's centre of curvature on the major axis
      if (c.a >= c.b) {
        c.x = rng.Sign() * (c.a - c.b * c.b / c.a) * (1.0 + rng.Uniform(-1e-3, 1e-3));
        c.y = rng.Uniform(-1e-3, 1e-3) * c.b;
      } else {
        c.y = rng.Sign() * (c.b - c.a * c.a / c.b) * (1.0 + rng.Uniform(-1e-3, 1e-3));
        c.x = rng.Uniform(-1e-3, 1e-3) * c.a;
      }
      break;
  }
  return c;
}

TEST(EllipseDistance, MatchesBruteForceOnHardPoints) {
  Rng rng(20261125);
  double worst = 0.0;
  constexpr int kCases = 4000;
  for (int i = 0; i < kCases; ++i) {
    const EllipseCase c = RandomEllipseCase(rng);
    const double scale = std::max({c.a, c.b, std::hypot(c.x, c.y)});
    const CurveDistance got = EllipseDistance(c.x, c.y, c.a, c.b);
    const double want = EllipseReference(c.x, c.y, c.a, c.b);
    worst = std::max(worst, std::fabs(got.d - want) / scale);
    ASSERT_TRUE(WithinScale(got.d, want, kDistanceTolerance, scale))
        << "case " << i << ": p = (" << c.x << ", " << c.y << "), a = " << c.a << ", b = " << c.b;
  }
  std::printf("ellipse: largest |d - reference| / scale over %d points: %.3g\n", kCases, worst);
}

// The foot lies on the ellipse and p = foot + d n with n the unit normal there.
TEST(EllipseDistance, FootIsOnTheCurveAlongTheNormal) {
  Rng rng(7);
  for (int i = 0; i < 4000; ++i) {
    const EllipseCase c = RandomEllipseCase(rng);
    const double scale = std::max({c.a, c.b, std::hypot(c.x, c.y)});
    const CurveDistance got = EllipseDistance(c.x, c.y, c.a, c.b);
    const double u = got.foot[0] / c.a, v = got.foot[1] / c.b;
    EXPECT_NEAR(std::hypot(u, v), 1.0, 4e-16 * 4) << i;
    EXPECT_NEAR(std::hypot(got.dx, got.dy), 1.0, 4e-16 * 4) << i;
    EXPECT_TRUE(WithinScale(got.foot[0] + got.d * got.dx, c.x, kDistanceTolerance, scale)) << i;
    EXPECT_TRUE(WithinScale(got.foot[1] + got.d * got.dy, c.y, kDistanceTolerance, scale)) << i;
    // The normal is the gradient direction of x^2/a^2 + y^2/b^2 at the foot.
    const double gx = got.foot[0] / (c.a * c.a), gy = got.foot[1] / (c.b * c.b);
    EXPECT_NEAR(got.dx * gy - got.dy * gx, 0.0, 1e-14 * std::hypot(gx, gy)) << i;
    EXPECT_GE(got.dx * gx + got.dy * gy, 0.0) << i;
  }
}

TEST(EllipseDistance, ClosedFormsOnTheAxesAndAtTheCentre) {
  const double a = 40.0, b = 10.0;
  EXPECT_DOUBLE_EQ(EllipseDistance(0.0, 0.0, a, b).d, -b);
  EXPECT_DOUBLE_EQ(EllipseDistance(0.0, 0.0, b, a).d, -b);
  EXPECT_DOUBLE_EQ(EllipseDistance(55.0, 0.0, a, b).d, 15.0);
  EXPECT_DOUBLE_EQ(EllipseDistance(-38.0, 0.0, a, b).d, -2.0);  // beyond a - b^2/a = 37.5
  EXPECT_DOUBLE_EQ(EllipseDistance(0.0, -3.0, a, b).d, -7.0);
  EXPECT_DOUBLE_EQ(EllipseDistance(0.0, 30.0, a, b).d, 20.0);
  // Inside on the major axis, x = 20: foot x = a^2 x / (a^2 - b^2) = 128 / 6, y = b sqrt(1 -
  // (foot x / a)^2).
  const double fx = a * a * 20.0 / (a * a - b * b);
  const double fy = b * std::sqrt(1.0 - (fx / a) * (fx / a));
  const CurveDistance in = EllipseDistance(20.0, 0.0, a, b);
  EXPECT_DOUBLE_EQ(in.d, -std::hypot(fx - 20.0, fy));
  EXPECT_DOUBLE_EQ(in.foot[0], fx);
  EXPECT_DOUBLE_EQ(in.foot[1], fy);  // the +side of the two mirrored feet
  EXPECT_NEAR(EllipseDistance(20.0, -1e-300, a, b).foot[1], -fy, 1e-12 * b);
  // The circle: |p| - R, normal p / |p|, d(d)/da + d(d)/db = -1.
  const CurveDistance circ = EllipseDistance(3.0, -4.0, 7.0, 7.0);
  EXPECT_DOUBLE_EQ(circ.d, -2.0);
  EXPECT_DOUBLE_EQ(circ.dx, 0.6);
  EXPECT_DOUBLE_EQ(circ.dy, -0.8);
  EXPECT_DOUBLE_EQ(circ.dsize[0], -0.36);
  EXPECT_DOUBLE_EQ(circ.dsize[1], -0.64);
  const CurveDistance centre = EllipseDistance(0.0, 0.0, 7.0, 7.0);
  EXPECT_DOUBLE_EQ(centre.d, -7.0);
  EXPECT_DOUBLE_EQ(std::hypot(centre.dx, centre.dy), 1.0);
}

// Approaching an axis the root search hands over to the closed form without a jump.
TEST(EllipseDistance, ContinuousOntoTheAxes) {
  const double a = 500.0, b = 0.5;  // ratio 1e3
  for (double x : {-400.0, 0.0, 100.0, 499.0, 499.9995, 500.0, 520.0}) {
    const CurveDistance on = EllipseDistance(x, 0.0, a, b);
    for (double y : {1e-300, 1e-200, 1e-100, 1e-30, 1e-16, 1e-12}) {
      // Across the axis the distance may have a kink, of slope at most one.
      const CurveDistance near = EllipseDistance(x, y, a, b);
      EXPECT_LE(std::fabs(near.d - on.d), y + 1e-15 * a) << x << " " << y;
      if (std::fabs(x) != a - b * b / a) {  // the foot leaves a cusp of the evolute like y^(1/3)
        EXPECT_TRUE(WithinScale(near.foot[1], on.foot[1], 1e-9, b)) << x << " " << y;
      }
    }
  }
  for (double y : {-0.7, 0.0, 0.2, 0.5, 3.0}) {
    const CurveDistance on = EllipseDistance(0.0, y, a, b);
    for (double x : {1e-300, 1e-100, 1e-16, 1e-12}) {
      const CurveDistance near = EllipseDistance(x, y, a, b);
      EXPECT_LE(std::fabs(near.d - on.d), x + 1e-15 * a) << x << " " << y;
    }
  }
}

TEST(EllipseDistance, SwappingTheAxesMirrorsTheResult) {
  Rng rng(3);
  for (int i = 0; i < 500; ++i) {
    const EllipseCase c = RandomEllipseCase(rng);
    if (c.x == 0.0 || c.y == 0.0) continue;  // the mirrored foot pair picks its side by sign
    const double scale = std::max({c.a, c.b, std::hypot(c.x, c.y)});
    const CurveDistance p = EllipseDistance(c.x, c.y, c.a, c.b);
    const CurveDistance q = EllipseDistance(c.y, c.x, c.b, c.a);
    if (c.a != c.b) {  // the same arithmetic: bit for bit
      EXPECT_EQ(p.d, q.d);
      EXPECT_EQ(p.dx, q.dy);
      EXPECT_EQ(p.dsize[0], q.dsize[1]);
    }
    EXPECT_TRUE(WithinScale(p.d, q.d, 1e-15, scale));
    EXPECT_NEAR(p.dx, q.dy, 1e-12);
    EXPECT_NEAR(p.dsize[0], q.dsize[1], 1e-12);
  }
}

// Radius of curvature of the ellipse at its point (fx, fy).
double EllipseCurvatureRadius(double fx, double fy, double a, double b) {
  const double s = fy / b, c = fx / a;
  return std::pow(a * a * s * s + b * b * c * c, 1.5) / (a * b);
}

// What a central difference can resolve: the truncation term, plus the rounding of distances of
// size `scale` divided by the step.
double FdTolerance(double scale, double h) {
  return kDerivativeTolerance + kFdRounding * scale / h;
}

// Central difference of f at v with step h.
template <typename F>
double CentralDifference(const F& f, double v, double h) {
  return (f(v + h) - f(v - h)) / (2.0 * h);
}

TEST(EllipseDistance, DerivativesMatchCentralDifferences) {
  Rng rng(11);
  double worst = 0.0;
  double worst_share = 0.0;  // of the resolvable tolerance
  double worst_clean = 0.0;  // where rounding lets the difference resolve 1e-6
  int checked = 0;
  while (checked < 3000) {
    EllipseCase c = RandomEllipseCase(rng);
    const double scale = std::max({c.a, c.b, std::hypot(c.x, c.y)});
    const CurveDistance got = EllipseDistance(c.x, c.y, c.a, c.b);
    // Stay clear of the segment of mirrored feet and of the centres of curvature, where the
    // distance has a kink or a large second derivative.
    const bool major_x = c.a >= c.b;
    const double across = std::fabs(major_x ? c.y : c.x);
    const double along = std::fabs(major_x ? c.x : c.y);
    const double lo = std::min(c.a, c.b), hi = std::max(c.a, c.b);
    if (along < hi - lo * lo / hi + 1e-3 * lo && across < 1e-3 * lo) continue;
    const double rho = EllipseCurvatureRadius(got.foot[0], got.foot[1], c.a, c.b);
    if (got.d < 0.0 && -got.d > 0.9 * rho) continue;
    const double h = kFdStep * std::min(lo, rho + got.d);
    auto at = [&](double x, double y, double a, double b) { return EllipseDistance(x, y, a, b).d; };
    const double fx = CentralDifference([&](double v) { return at(v, c.y, c.a, c.b); }, c.x, h);
    const double fy = CentralDifference([&](double v) { return at(c.x, v, c.a, c.b); }, c.y, h);
    const double fa = CentralDifference([&](double v) { return at(c.x, c.y, v, c.b); }, c.a, h);
    const double fb = CentralDifference([&](double v) { return at(c.x, c.y, c.a, v); }, c.b, h);
    for (auto [an, fd] : {std::pair{got.dx, fx}, std::pair{got.dy, fy}, std::pair{got.dsize[0], fa},
                          std::pair{got.dsize[1], fb}}) {
      worst = std::max(worst, std::fabs(an - fd));
      worst_share = std::max(worst_share, std::fabs(an - fd) / FdTolerance(scale, h));
      if (FdTolerance(scale, h) < kCleanFd) worst_clean = std::max(worst_clean, std::fabs(an - fd));
      ASSERT_NEAR(an, fd, FdTolerance(scale, h))
          << "p = (" << c.x << ", " << c.y << "), a = " << c.a << ", b = " << c.b;
    }
    ++checked;
  }
  std::printf(
      "ellipse: largest |derivative - central difference| over %d points: %.3g "
      "(%.3g of the resolvable tolerance; %.3g where it resolves 1e-6)\n",
      checked, worst, worst_share, worst_clean);
}

// ---- Parabola --------------------------------------------------------------------------

struct ParabolaCase {
  double r, z, f;
};

ParabolaCase RandomParabolaCase(Rng& rng) {
  ParabolaCase c{};
  c.f = rng.LogUniform(-1.0, 2.7);
  const double reach = c.f * rng.LogUniform(-1.0, 2.0);
  switch (rng.Int(0, 6)) {
    case 0:  // anywhere around the vertex region
      c.r = rng.Uniform(-3.0, 3.0) * reach;
      c.z = rng.Uniform(-1.0, 3.0) * reach;
      break;
    case 1: {  // within 1e-14 .. 1e-2 of the curve, on either side
      const double t = rng.Uniform(-3.0, 3.0) * reach;
      const double slope = t / (2.0 * c.f), len = std::hypot(1.0, slope);
      const double off = rng.Sign() * rng.LogUniform(-14.0, -2.0) * std::max(reach, c.f);
      c.r = t + off * slope / len;
      c.z = t * t / (4.0 * c.f) - off / len;
      break;
    }
    case 2:  // on the axis, below and above the vertex's centre of curvature
      c.z = rng.Uniform(-3.0, 6.0) * c.f;
      break;
    case 3:  // next to the axis
      c.r = rng.Sign() * rng.LogUniform(-300.0, -3.0) * c.f;
      c.z = rng.Uniform(-3.0, 6.0) * c.f;
      break;
    case 4: {  // far away
      const double t = rng.Uniform(0.0, 2.0 * kPi);
      const double far = rng.LogUniform(2.0, 6.0) * c.f;
      c.r = far * std::cos(t);
      c.z = far * std::sin(t);
      break;
    }
    case 5:  // near the vertex
      c.r = rng.Uniform(-1e-6, 1e-6) * c.f;
      c.z = rng.Uniform(-1e-6, 1e-6) * c.f;
      break;
    default:  // near the centre of curvature of the vertex, z = 2F
      c.r = rng.Uniform(-1e-3, 1e-3) * c.f;
      c.z = c.f * (2.0 + rng.Uniform(-1e-3, 1e-3));
      break;
  }
  return c;
}

TEST(ParabolaDistance, MatchesBruteForceOnHardPoints) {
  Rng rng(1125);
  double worst = 0.0;
  constexpr int kCases = 4000;
  for (int i = 0; i < kCases; ++i) {
    const ParabolaCase c = RandomParabolaCase(rng);
    const double scale = std::max(c.f, std::hypot(c.r, c.z));
    const CurveDistance got = ParabolaDistance(c.r, c.z, c.f);
    const double want = ParabolaReference(c.r, c.z, c.f);
    worst = std::max(worst, std::fabs(got.d - want) / scale);
    ASSERT_TRUE(WithinScale(got.d, want, kDistanceTolerance, scale))
        << "case " << i << ": p = (" << c.r << ", " << c.z << "), F = " << c.f;
  }
  std::printf("parabola: largest |d - reference| / scale over %d points: %.3g\n", kCases, worst);
}

TEST(ParabolaDistance, FootIsOnTheCurveAlongTheNormal) {
  Rng rng(5);
  for (int i = 0; i < 4000; ++i) {
    const ParabolaCase c = RandomParabolaCase(rng);
    const double scale = std::max(c.f, std::hypot(c.r, c.z));
    const CurveDistance got = ParabolaDistance(c.r, c.z, c.f);
    EXPECT_TRUE(WithinScale(got.foot[1], got.foot[0] * got.foot[0] / (4.0 * c.f), 1e-15,
                            std::max(std::fabs(got.foot[1]), c.f)))
        << i;
    EXPECT_NEAR(std::hypot(got.dx, got.dy), 1.0, 4e-16 * 4) << i;
    EXPECT_TRUE(WithinScale(got.foot[0] + got.d * got.dx, c.r, kDistanceTolerance, scale)) << i;
    EXPECT_TRUE(WithinScale(got.foot[1] + got.d * got.dy, c.z, kDistanceTolerance, scale)) << i;
    // Outward normal (slope, -1) / |.|, with slope = foot r / (2F).
    EXPECT_NEAR(got.dx * 1.0 + got.dy * got.foot[0] / (2.0 * c.f), 0.0, 1e-14) << i;
    EXPECT_LT(got.dy, 0.0) << i;
  }
}

TEST(ParabolaDistance, ClosedFormsOnTheAxis) {
  const double f = 12.5;
  EXPECT_EQ(ParabolaDistance(0.0, 0.0, f).d, 0.0);
  EXPECT_DOUBLE_EQ(ParabolaDistance(0.0, -40.0, f).d, 40.0);
  EXPECT_DOUBLE_EQ(ParabolaDistance(0.0, 20.0, f).d, -20.0);  // below 2F the vertex is nearest
  EXPECT_DOUBLE_EQ(ParabolaDistance(0.0, 25.0, f).d, -25.0);  // at 2F, both forms agree
  // Above 2F the two feet r = +-2 sqrt(F (z - 2F)) are at distance 2 sqrt(F (z - F)).
  const CurveDistance up = ParabolaDistance(0.0, 75.0, f);
  EXPECT_DOUBLE_EQ(up.d, -2.0 * std::sqrt(f * (75.0 - f)));
  EXPECT_DOUBLE_EQ(up.foot[0], 2.0 * std::sqrt(f * (75.0 - 2.0 * f)));
  EXPECT_NEAR(ParabolaDistance(-1e-300, 75.0, f).foot[0], -up.foot[0], 1e-12 * f);
  // A point of the curve and one straight below its normal.
  const CurveDistance on = ParabolaDistance(-10.0, 2.0, f);
  EXPECT_NEAR(on.d, 0.0, 1e-15 * f);
  EXPECT_DOUBLE_EQ(on.dx, -0.4 / std::sqrt(1.16));
  EXPECT_DOUBLE_EQ(on.dy, -1.0 / std::sqrt(1.16));
}

TEST(ParabolaDistance, ContinuousOntoTheAxis) {
  const double f = 0.25;
  for (double z : {-3.0, 0.0, 0.3, 0.49, 0.5, 0.51, 2.0, 300.0}) {
    const CurveDistance on = ParabolaDistance(0.0, z, f);
    for (double r : {1e-300, 1e-100, 1e-16, 1e-12}) {
      for (double s : {-1.0, 1.0}) {
        const CurveDistance near = ParabolaDistance(s * r, z, f);
        EXPECT_LE(std::fabs(near.d - on.d), r + 1e-15 * std::max(f, std::fabs(z))) << r << " " << z;
        if (z != 2.0 * f) {  // the foot leaves the cusp of the evolute like r^(1/3)
          EXPECT_TRUE(WithinScale(std::fabs(near.foot[0]), on.foot[0], 1e-5, f)) << r << " " << z;
        }
      }
    }
  }
}

TEST(ParabolaDistance, DerivativesMatchCentralDifferences) {
  Rng rng(13);
  double worst = 0.0;
  double worst_share = 0.0;  // of the resolvable tolerance
  double worst_clean = 0.0;  // where rounding lets the difference resolve 1e-6
  int checked = 0;
  while (checked < 3000) {
    const ParabolaCase c = RandomParabolaCase(rng);
    const double scale = std::max(c.f, std::hypot(c.r, c.z));
    const CurveDistance got = ParabolaDistance(c.r, c.z, c.f);
    // Clear of the axis above 2F (mirrored feet) and of the centres of curvature.
    if (c.z > 2.0 * c.f - 1e-3 * c.f && std::fabs(c.r) < 1e-3 * c.f) continue;
    const double slope = got.foot[0] / (2.0 * c.f);
    const double rho = 2.0 * c.f * std::pow(1.0 + slope * slope, 1.5);
    if (got.d < 0.0 && -got.d > 0.9 * rho) continue;
    const double h = kFdStep * std::min(c.f, rho + got.d);
    auto at = [&](double r, double z, double f) { return ParabolaDistance(r, z, f).d; };
    const double fr = CentralDifference([&](double v) { return at(v, c.z, c.f); }, c.r, h);
    const double fz = CentralDifference([&](double v) { return at(c.r, v, c.f); }, c.z, h);
    const double ff = CentralDifference([&](double v) { return at(c.r, c.z, v); }, c.f, h);
    for (auto [an, fd] :
         {std::pair{got.dx, fr}, std::pair{got.dy, fz}, std::pair{got.dsize[0], ff}}) {
      worst = std::max(worst, std::fabs(an - fd));
      worst_share = std::max(worst_share, std::fabs(an - fd) / FdTolerance(scale, h));
      if (FdTolerance(scale, h) < kCleanFd) worst_clean = std::max(worst_clean, std::fabs(an - fd));
      ASSERT_NEAR(an, fd, FdTolerance(scale, h))
          << "p = (" << c.r << ", " << c.z << "), F = " << c.f;
    }
    EXPECT_EQ(got.dsize[1], 0.0);
    ++checked;
  }
  std::printf(
      "parabola: largest |derivative - central difference| over %d points: %.3g "
      "(%.3g of the resolvable tolerance; %.3g where it resolves 1e-6)\n",
      checked, worst, worst_share, worst_clean);
}

}  // namespace
