// Algebraic starts: exact recovery on noiseless points at machine-table offsets with tilted
// axes and partial coverage, closeness under micrometre noise, and clean failure on data that
// do not determine the shape.
#include "precise/algebraic_starts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

using metrofit::precise::CircleStart2D;
using metrofit::precise::EllipseStart2D;
using metrofit::precise::ParaboloidStart;
using metrofit::precise::Point2;
using metrofit::precise::Point3;
using metrofit::precise::PrincipalAxes;
using metrofit::precise::SphereStart;
using metrofit::precise::SpheroidStart;

constexpr double kPi = 3.141592653589793;
// Noiseless recovery: lengths within this share of the 500 mm offset (0.5 nm there).
constexpr double kExact = 1e-12;
// Micrometre noise on a feature of tens of millimetres moves a start by micrometres.
constexpr double kNoiseSigma = 1e-3;
constexpr double kNoisyTolerance = 2e-2;

::testing::AssertionResult Near(double a, double b, double tol) {
  if (std::fabs(a - b) <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << a << " and " << b << " differ by " << std::fabs(a - b) << ", more than " << tol;
}

template <std::size_t D>
::testing::AssertionResult Near(const std::array<double, D>& a, const std::array<double, D>& b,
                                double tol) {
  double d2 = 0.0;
  for (std::size_t k = 0; k < D; ++k) d2 += (a[k] - b[k]) * (a[k] - b[k]);
  if (std::sqrt(d2) <= tol) return ::testing::AssertionSuccess();
  auto out = ::testing::AssertionFailure() << "points " << std::sqrt(d2) << " apart:";
  for (std::size_t k = 0; k < D; ++k) out << " " << a[k] << "/" << b[k];
  return out << ", more than " << tol;
}

class Rng {
 public:
  explicit Rng(unsigned seed) : gen_(seed) {}
  double Uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(gen_);
  }
  double Normal(double sigma) { return std::normal_distribution<double>(0.0, sigma)(gen_); }

 private:
  std::mt19937_64 gen_;
};

Point3 Unit(Point3 v) {
  const double len = std::hypot(v[0], v[1], v[2]);
  return {v[0] / len, v[1] / len, v[2] / len};
}

Point3 Cross(const Point3& a, const Point3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

double Dot(const Point3& a, const Point3& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// A right-handed frame (e1, e2, u) about a tilted axis, independent of the library's.
struct Frame {
  Point3 e1, e2, u;
  Point3 At(const Point3& origin, double q1, double q2, double h) const {
    Point3 p{};
    for (int k = 0; k < 3; ++k) p[k] = origin[k] + q1 * e1[k] + q2 * e2[k] + h * u[k];
    return p;
  }
};

Frame TiltedFrame(const Point3& axis) {
  Frame f;
  f.u = Unit(axis);
  f.e1 = Unit(Cross(f.u, Point3{0.31, 0.77, -0.52}));
  f.e2 = Cross(f.u, f.e1);
  return f;
}

void Append(std::vector<double>& xyz, const Point3& p, Rng* noise = nullptr) {
  for (double c : p) xyz.push_back(c + (noise ? noise->Normal(kNoiseSigma) : 0.0));
}

// ---- Sphere ----------------------------------------------------------------------------

std::vector<double> SpherePoints(const Point3& c, double r, double cap, int count, Rng& rng,
                                 bool noisy) {
  // Points within polar angle `cap` of a tilted pole.
  const Frame f = TiltedFrame({0.2, -0.4, 0.9});
  std::vector<double> xyz;
  for (int i = 0; i < count; ++i) {
    const double polar = std::acos(rng.Uniform(std::cos(cap), 1.0));
    const double az = rng.Uniform(0.0, 2.0 * kPi);
    Append(xyz,
           f.At(c, r * std::sin(polar) * std::cos(az), r * std::sin(polar) * std::sin(az),
                r * std::cos(polar)),
           noisy ? &rng : nullptr);
  }
  return xyz;
}

TEST(SphereStart, RecoversANoiselessSphereFarFromTheOrigin) {
  Rng rng(1);
  const Point3 c{512.3, -488.1, 305.7};
  for (double cap : {kPi, 0.5 * kPi, 0.25 * kPi}) {
    const auto xyz = SpherePoints(c, 12.5, cap, 200, rng, false);
    const auto g = SphereStart(xyz.data(), 200);
    ASSERT_TRUE(g.has_value()) << cap;
    EXPECT_TRUE(Near(g->center, c, kExact * 500.0)) << cap;
    EXPECT_TRUE(Near(g->radius, 12.5, kExact * 500.0)) << cap;
  }
}

TEST(SphereStart, StaysCloseUnderMicrometreNoise) {
  Rng rng(2);
  const Point3 c{-450.0, 380.0, 120.0};
  const auto xyz = SpherePoints(c, 20.0, 0.5 * kPi, 400, rng, true);
  const auto g = SphereStart(xyz.data(), 400);
  ASSERT_TRUE(g.has_value());
  EXPECT_TRUE(Near(g->center, c, kNoisyTolerance));
  EXPECT_TRUE(Near(g->radius, 20.0, kNoisyTolerance));
}

TEST(SphereStart, FailsWhenThePointsDoNotDetermineASphere) {
  std::vector<double> line, ring;
  for (int i = 0; i < 20; ++i) {
    Append(line, {500.0 + i, 200.0 + 2.0 * i, -100.0 - 0.5 * i});
    const double t = 0.3 * i;
    Append(ring, TiltedFrame({1, 2, 3}).At({500, 0, 0}, 7 * std::cos(t), 7 * std::sin(t), 0));
  }
  EXPECT_FALSE(SphereStart(line.data(), 20).has_value());
  EXPECT_FALSE(SphereStart(ring.data(), 20).has_value());  // coplanar: a family of spheres
  EXPECT_FALSE(SphereStart(line.data(), 3).has_value());   // too few
  std::vector<double> same(60, 500.0);
  EXPECT_FALSE(SphereStart(same.data(), 20).has_value());
  EXPECT_FALSE(SphereStart(nullptr, 0).has_value());
}

// ---- Circle ----------------------------------------------------------------------------

TEST(CircleStart2D, RecoversArcsFarFromTheOrigin) {
  const Point2 c{503.25, -497.5};
  for (double arc : {2.0 * kPi, 0.5 * kPi, 0.2 * kPi}) {
    std::vector<double> xy;
    for (int i = 0; i < 50; ++i) {
      const double t = 0.4 + arc * i / 49.0;
      xy.push_back(c[0] + 8.0 * std::cos(t));
      xy.push_back(c[1] + 8.0 * std::sin(t));
    }
    const auto g = CircleStart2D(xy.data(), 50);
    ASSERT_TRUE(g.has_value()) << arc;
    EXPECT_TRUE(Near(g->center, c, kExact * 500.0)) << arc;
    EXPECT_TRUE(Near(g->radius, 8.0, kExact * 500.0)) << arc;
  }
  const double three[] = {1.0, 0.0, 0.0, 1.0, -1.0, 0.0};  // the circle through three points
  const auto g = CircleStart2D(three, 3);
  ASSERT_TRUE(g.has_value());
  EXPECT_TRUE(Near(g->center, Point2{0.0, 0.0}, 1e-15));
  EXPECT_TRUE(Near(g->radius, 1.0, 1e-15));
}

TEST(CircleStart2D, FailsOnCollinearOrTooFewPoints) {
  std::vector<double> xy;
  for (int i = 0; i < 10; ++i) {
    xy.push_back(500.0 + 3.0 * i);
    xy.push_back(-200.0 + 1.5 * i);
  }
  EXPECT_FALSE(CircleStart2D(xy.data(), 10).has_value());
  EXPECT_FALSE(CircleStart2D(xy.data(), 2).has_value());
}

// ---- Ellipse ---------------------------------------------------------------------------

struct Ellipse {
  Point2 c;
  double a, b, angle;
  Point2 At(double t) const {
    const double x = a * std::cos(t), y = b * std::sin(t);
    return {c[0] + x * std::cos(angle) - y * std::sin(angle),
            c[1] + x * std::sin(angle) + y * std::cos(angle)};
  }
};

std::vector<double> EllipsePoints(const Ellipse& e, double from, double arc, int count, Rng* rng) {
  std::vector<double> xy;
  for (int i = 0; i < count; ++i) {
    const Point2 p = e.At(from + arc * i / (count - 1.0));
    for (double v : p) xy.push_back(v + (rng ? rng->Normal(kNoiseSigma) : 0.0));
  }
  return xy;
}

// Axis directions are lines: compare angles modulo pi.
double LineAngleGap(double a, double b) {
  const double d = std::fmod(std::fabs(a - b), kPi);
  return std::min(d, kPi - d);
}

TEST(EllipseStart2D, RecoversNoiselessEllipsesAndArcs) {
  const std::vector<Ellipse> cases = {{{-480.0, 530.0}, 30.0, 12.0, 0.7},
                                      {{499.0, 501.0}, 25.0, 24.0, -1.2},
                                      {{0.0, 650.0}, 40.0, 4.0, kPi / 2},
                                      {{310.0, -420.0}, 15.0, 9.0, 0.0}};
  double worst = 0.0;
  for (const Ellipse& e : cases) {
    for (double arc : {2.0 * kPi, kPi, 0.6 * kPi}) {
      const auto xy = EllipsePoints(e, 0.3, arc, 60, nullptr);
      const auto g = EllipseStart2D(xy.data(), 60);
      ASSERT_TRUE(g.has_value()) << e.a << " " << arc;
      // Conics go through squares of the normalised coordinates: a few digits fewer.
      EXPECT_TRUE(Near(g->center, e.c, 1e-9 * 500.0)) << e.a << " " << arc;
      EXPECT_TRUE(Near(g->major, e.a, 1e-9 * 500.0)) << e.a << " " << arc;
      EXPECT_TRUE(Near(g->minor, e.b, 1e-9 * 500.0)) << e.a << " " << arc;
      EXPECT_LT(LineAngleGap(g->angle, e.angle), 1e-9) << e.a << " " << arc;
      EXPECT_GT(g->angle, -0.5 * kPi);
      EXPECT_LE(g->angle, 0.5 * kPi);
      worst = std::max({worst, std::fabs(g->major - e.a), std::fabs(g->minor - e.b),
                        std::hypot(g->center[0] - e.c[0], g->center[1] - e.c[1])});
    }
  }
  std::printf("ellipse start: largest error on noiseless data %.3g mm\n", worst);
}

TEST(EllipseStart2D, FiveExactPointsDetermineTheEllipse) {
  const Ellipse e{{200.0, -300.0}, 9.0, 5.0, 0.4};
  const auto xy = EllipsePoints(e, 0.1, 5.0, 5, nullptr);
  const auto g = EllipseStart2D(xy.data(), 5);
  ASSERT_TRUE(g.has_value());
  EXPECT_TRUE(Near(g->center, e.c, 1e-9 * 300.0));
  EXPECT_TRUE(Near(g->major, e.a, 1e-9 * 300.0));
  EXPECT_TRUE(Near(g->minor, e.b, 1e-9 * 300.0));
}

TEST(EllipseStart2D, ACircleGivesEqualAxes) {
  const Ellipse e{{-500.0, 500.0}, 10.0, 10.0, 0.0};
  const auto xy = EllipsePoints(e, 0.0, 2.0 * kPi, 40, nullptr);
  const auto g = EllipseStart2D(xy.data(), 40);
  ASSERT_TRUE(g.has_value());
  EXPECT_TRUE(Near(g->center, e.c, 1e-9 * 500.0));
  EXPECT_TRUE(Near(g->major, 10.0, 1e-9 * 500.0));
  EXPECT_TRUE(Near(g->minor, 10.0, 1e-9 * 500.0));
}

TEST(EllipseStart2D, StaysCloseUnderMicrometreNoise) {
  Rng rng(4);
  const Ellipse e{{-480.0, 530.0}, 30.0, 12.0, 0.7};
  const auto xy = EllipsePoints(e, 0.0, 2.0 * kPi, 200, &rng);
  const auto g = EllipseStart2D(xy.data(), 200);
  ASSERT_TRUE(g.has_value());
  EXPECT_TRUE(Near(g->center, e.c, kNoisyTolerance));
  EXPECT_TRUE(Near(g->major, e.a, kNoisyTolerance));
  EXPECT_TRUE(Near(g->minor, e.b, kNoisyTolerance));
  EXPECT_LT(LineAngleGap(g->angle, e.angle), 1e-3);
}

TEST(EllipseStart2D, FailsWhenNoEllipseIsDetermined) {
  std::vector<double> line;
  for (int i = 0; i < 12; ++i) {
    line.push_back(500.0 + 2.0 * i);
    line.push_back(-300.0 - 1.0 * i);
  }
  EXPECT_FALSE(EllipseStart2D(line.data(), 12).has_value());
  // Two parallel lines: a degenerate conic, 4ac - b^2 = 0.
  std::vector<double> rails;
  for (int i = 0; i < 12; ++i) {
    rails.push_back(500.0 + 2.0 * i);
    rails.push_back(i % 2 == 0 ? 100.0 : 104.0);
  }
  EXPECT_FALSE(EllipseStart2D(rails.data(), 12).has_value());
  const Ellipse e{{0.0, 0.0}, 3.0, 2.0, 0.0};
  const auto four = EllipsePoints(e, 0.0, 3.0, 4, nullptr);
  EXPECT_FALSE(EllipseStart2D(four.data(), 4).has_value());
  std::vector<double> same(20, 7.0);
  EXPECT_FALSE(EllipseStart2D(same.data(), 10).has_value());
}

// ---- Spheroid --------------------------------------------------------------------------

std::vector<double> SpheroidPoints(const Frame& f, const Point3& c, double along, double across,
                                   double polar_from, double polar_to, int count, Rng& rng,
                                   bool noisy) {
  std::vector<double> xyz;
  for (int i = 0; i < count; ++i) {
    const double polar = rng.Uniform(polar_from, polar_to);
    const double az = rng.Uniform(0.0, 2.0 * kPi);
    Append(xyz,
           f.At(c, across * std::sin(polar) * std::cos(az), across * std::sin(polar) * std::sin(az),
                along * std::cos(polar)),
           noisy ? &rng : nullptr);
  }
  return xyz;
}

TEST(SpheroidStart, RecoversProlateAndOblateSpheroidsOnATiltedAxis) {
  Rng rng(5);
  const Frame f = TiltedFrame({0.3, -0.5, 0.8});
  const Point3 c{500.0, 200.0, -300.0};
  for (auto [along, across] : {std::pair{20.0, 12.0}, std::pair{8.0, 15.0}, std::pair{9.0, 9.0}}) {
    for (double to : {kPi, 0.6 * kPi}) {  // whole, and a cap past the equator
      const auto xyz = SpheroidPoints(f, c, along, across, 0.0, to, 300, rng, false);
      // The library builds its own frame across the axis; pass the axis reversed too.
      for (double s : {1.0, -1.0}) {
        const auto g = SpheroidStart(xyz.data(), 300, {s * f.u[0], s * f.u[1], s * f.u[2]});
        ASSERT_TRUE(g.has_value()) << along << " " << across << " " << to;
        EXPECT_TRUE(Near(g->center, c, kExact * 500.0)) << along << " " << across;
        EXPECT_TRUE(Near(g->along, along, kExact * 500.0)) << along << " " << across;
        EXPECT_TRUE(Near(g->across, across, kExact * 500.0)) << along << " " << across;
      }
    }
  }
}

TEST(SpheroidStart, StaysCloseUnderMicrometreNoise) {
  Rng rng(6);
  const Frame f = TiltedFrame({-0.6, 0.1, 0.8});
  const Point3 c{-420.0, 515.0, 260.0};
  const auto xyz = SpheroidPoints(f, c, 25.0, 14.0, 0.0, kPi, 500, rng, true);
  const auto g = SpheroidStart(xyz.data(), 500, f.u);
  ASSERT_TRUE(g.has_value());
  EXPECT_TRUE(Near(g->center, c, kNoisyTolerance));
  EXPECT_TRUE(Near(g->along, 25.0, kNoisyTolerance));
  EXPECT_TRUE(Near(g->across, 14.0, kNoisyTolerance));
}

TEST(SpheroidStart, FailsOnARingACylinderOrAZeroAxis) {
  Rng rng(7);
  const Frame f = TiltedFrame({0.0, 0.6, 0.8});
  const Point3 c{500.0, 0.0, 0.0};
  // One ring across the axis: the extent along the axis is undetermined.
  const auto ring = SpheroidPoints(f, c, 10.0, 6.0, 0.5 * kPi, 0.5 * kPi, 40, rng, false);
  EXPECT_FALSE(SpheroidStart(ring.data(), 40, f.u).has_value());
  std::vector<double> cylinder;
  for (int i = 0; i < 60; ++i) {
    const double az = 0.7 * i;
    Append(cylinder, f.At(c, 6.0 * std::cos(az), 6.0 * std::sin(az), -10.0 + i / 3.0));
  }
  EXPECT_FALSE(SpheroidStart(cylinder.data(), 60, f.u).has_value());
  const auto xyz = SpheroidPoints(f, c, 10.0, 6.0, 0.0, kPi, 40, rng, false);
  EXPECT_FALSE(SpheroidStart(xyz.data(), 40, {0.0, 0.0, 0.0}).has_value());
  EXPECT_FALSE(SpheroidStart(xyz.data(), 4, f.u).has_value());
}

// ---- Paraboloid ------------------------------------------------------------------------

std::vector<double> ParaboloidPoints(const Frame& f, const Point3& vertex, double focal,
                                     double reach, int count, Rng& rng, bool noisy) {
  std::vector<double> xyz;
  for (int i = 0; i < count; ++i) {
    const double rho = reach * std::sqrt(rng.Uniform(0.0, 1.0));
    const double az = rng.Uniform(0.0, 2.0 * kPi);
    Append(xyz, f.At(vertex, rho * std::cos(az), rho * std::sin(az), rho * rho / (4.0 * focal)),
           noisy ? &rng : nullptr);
  }
  return xyz;
}

TEST(ParaboloidStart, RecoversTheVertexFocalLengthAndOpeningSide) {
  Rng rng(8);
  const Frame f = TiltedFrame({0.4, 0.3, -0.85});
  const Point3 vertex{480.0, -220.0, 150.0};
  for (double focal : {25.0, 3.0, 400.0}) {
    const auto xyz = ParaboloidPoints(f, vertex, focal, 30.0, 200, rng, false);
    for (double s : {1.0, -1.0}) {
      const auto g = ParaboloidStart(xyz.data(), 200, {s * f.u[0], s * f.u[1], s * f.u[2]});
      ASSERT_TRUE(g.has_value()) << focal;
      EXPECT_TRUE(Near(g->vertex, vertex, kExact * 500.0)) << focal << " " << s;
      EXPECT_TRUE(Near(g->focal, focal, kExact * 500.0 * std::max(1.0, focal / 30.0)))
          << focal << " " << s;
      EXPECT_TRUE(Near(g->opening, f.u, 1e-15)) << focal << " " << s;
    }
  }
}

TEST(ParaboloidStart, StaysCloseUnderMicrometreNoise) {
  Rng rng(9);
  const Frame f = TiltedFrame({0.1, 0.2, 0.97});
  const Point3 vertex{-510.0, 330.0, -75.0};
  const auto xyz = ParaboloidPoints(f, vertex, 20.0, 40.0, 400, rng, true);
  const auto g = ParaboloidStart(xyz.data(), 400, f.u);
  ASSERT_TRUE(g.has_value());
  EXPECT_TRUE(Near(g->vertex, vertex, kNoisyTolerance));
  EXPECT_TRUE(Near(g->focal, 20.0, kNoisyTolerance));
}

TEST(ParaboloidStart, FailsOnAPlaneOrALine) {
  const Frame f = TiltedFrame({0.4, 0.3, -0.85});
  std::vector<double> plane, line;
  for (int i = 0; i < 50; ++i) {
    Append(plane, f.At({500.0, 100.0, 50.0}, std::cos(1.3 * i) * i, std::sin(1.3 * i) * i, 0.0));
    Append(line, f.At({500.0, 100.0, 50.0}, 0.5 * i, 0.0, 0.1 * i));
  }
  EXPECT_FALSE(ParaboloidStart(plane.data(), 50, f.u).has_value());
  EXPECT_FALSE(ParaboloidStart(line.data(), 50, f.u).has_value());
  EXPECT_FALSE(ParaboloidStart(plane.data(), 3, f.u).has_value());
}

// ---- Principal axes --------------------------------------------------------------------

TEST(PrincipalAxes, RecoversAKnownScatterExactly) {
  // Points +-s_k along the axes of a tilted frame: scatter 2 s_k^2 along axis k, none across.
  const Frame f = TiltedFrame({0.3, -0.5, 0.8});
  const Point3 c{500.0, -400.0, 300.0};
  const double spread[3] = {20.0, 7.0, 0.5};
  const Point3 dirs[3] = {f.e2, f.u, f.e1};  // deliberately not in the library's order
  std::vector<double> xyz;
  for (int k = 0; k < 3; ++k) {
    for (double s : {-1.0, 1.0}) {
      Point3 p{};
      for (int j = 0; j < 3; ++j) p[j] = c[j] + s * spread[k] * dirs[k][j];
      Append(xyz, p);
    }
  }
  const auto pf = PrincipalAxes(xyz.data(), 6);
  ASSERT_TRUE(pf.has_value());
  EXPECT_TRUE(Near(pf->centroid, c, 1e-15 * 500.0 * 4));
  for (int k = 0; k < 3; ++k) {
    const double want = 2.0 * spread[k] * spread[k];
    EXPECT_TRUE(Near(pf->values[k], want, 1e-13 * 800.0)) << k;
    EXPECT_NEAR(std::fabs(Dot(pf->axes[k], dirs[k])), 1.0, 1e-14) << k;
  }
  EXPECT_NEAR(Dot(Cross(pf->axes[0], pf->axes[1]), pf->axes[2]), 1.0, 1e-15);
}

TEST(PrincipalAxes, DecomposesRandomClouds) {
  Rng rng(10);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<double> xyz;
    const int count = 3 + trial % 40;
    for (int i = 0; i < count; ++i) {
      Append(xyz, {500.0 + rng.Uniform(-9, 9), -300.0 + rng.Uniform(-3, 3), rng.Uniform(-1, 1)});
    }
    const auto pf = PrincipalAxes(xyz.data(), count);
    ASSERT_TRUE(pf.has_value());
    // Rebuild the scatter independently and check S v = lambda v, orthonormality and order.
    double s[3][3] = {};
    for (int i = 0; i < count; ++i) {
      for (int r = 0; r < 3; ++r) {
        for (int col = 0; col < 3; ++col) {
          s[r][col] += (xyz[3 * i + r] - pf->centroid[r]) * (xyz[3 * i + col] - pf->centroid[col]);
        }
      }
    }
    const double norm = pf->values[0];
    for (int k = 0; k < 3; ++k) {
      for (int r = 0; r < 3; ++r) {
        double sv = 0.0;
        for (int col = 0; col < 3; ++col) sv += s[r][col] * pf->axes[k][col];
        EXPECT_NEAR(sv, pf->values[k] * pf->axes[k][r], 1e-13 * norm) << trial;
      }
      for (int j = 0; j < 3; ++j) {
        EXPECT_NEAR(Dot(pf->axes[k], pf->axes[j]), k == j ? 1.0 : 0.0, 1e-15 * 4) << trial;
      }
    }
    EXPECT_GE(pf->values[0], pf->values[1]);
    EXPECT_GE(pf->values[1], pf->values[2]);
    EXPECT_GE(pf->values[2], 0.0);
    EXPECT_NEAR(Dot(Cross(pf->axes[0], pf->axes[1]), pf->axes[2]), 1.0, 1e-15 * 4);
  }
}

TEST(PrincipalAxes, HandlesDegenerateClouds) {
  const double one[] = {500.0, 1.0, -2.0};
  const auto single = PrincipalAxes(one, 1);
  ASSERT_TRUE(single.has_value());
  EXPECT_EQ(single->values[0], 0.0);
  EXPECT_EQ(single->centroid[0], 500.0);
  std::vector<double> line;
  for (int i = 0; i < 9; ++i) Append(line, {500.0 + 2.0 * i, 10.0 - i, 3.0});
  const auto pf = PrincipalAxes(line.data(), 9);
  ASSERT_TRUE(pf.has_value());
  const Point3 dir = Unit({2.0, -1.0, 0.0});
  EXPECT_NEAR(std::fabs(Dot(pf->axes[0], dir)), 1.0, 1e-15 * 4);
  EXPECT_NEAR(pf->values[1], 0.0, 1e-12);
  EXPECT_NEAR(pf->values[2], 0.0, 1e-12);
  EXPECT_FALSE(PrincipalAxes(nullptr, 0).has_value());
}

}  // namespace

// ---- Random poses ----------------------------------------------------------------------

// Worst errors over many random noiseless poses, printed for the record and bounded.
TEST(AlgebraicStarts, RandomNoiselessPosesAreRecovered) {
  Rng rng(11);
  constexpr int kTrials = 200;
  constexpr double kBound = 1e-9;  // mm, for features of 1 to 100 mm up to 600 mm away
  double sphere = 0.0, circle = 0.0, ellipse = 0.0, spheroid = 0.0, paraboloid = 0.0;
  auto offset = [&] {
    return Point3{rng.Uniform(-600, 600), rng.Uniform(-600, 600), rng.Uniform(-600, 600)};
  };
  auto axis = [&] { return Point3{rng.Uniform(-1, 1), rng.Uniform(-1, 1), rng.Uniform(0.2, 1)}; };
  for (int t = 0; t < kTrials; ++t) {
    {
      const Point3 c = offset();
      const double r = rng.Uniform(1.0, 100.0);
      const auto xyz = SpherePoints(c, r, rng.Uniform(0.3 * kPi, kPi), 50, rng, false);
      const auto g = SphereStart(xyz.data(), 50);
      ASSERT_TRUE(g.has_value());
      sphere =
          std::max({sphere, std::fabs(g->radius - r),
                    std::hypot(g->center[0] - c[0], g->center[1] - c[1], g->center[2] - c[2])});
    }
    {
      const Point2 c{rng.Uniform(-600, 600), rng.Uniform(-600, 600)};
      const double r = rng.Uniform(1.0, 100.0);
      const Ellipse e{c, r, r, 0.0};
      const auto xy =
          EllipsePoints(e, rng.Uniform(0, 2 * kPi), rng.Uniform(0.3 * kPi, 2 * kPi), 30, nullptr);
      const auto g = CircleStart2D(xy.data(), 30);
      ASSERT_TRUE(g.has_value());
      circle = std::max(
          {circle, std::fabs(g->radius - r), std::hypot(g->center[0] - c[0], g->center[1] - c[1])});
    }
    {
      const double a = rng.Uniform(2.0, 60.0);
      const Ellipse e{{rng.Uniform(-600, 600), rng.Uniform(-600, 600)},
                      a,
                      a * rng.Uniform(0.1, 1.0),
                      rng.Uniform(-kPi, kPi)};
      const auto xy =
          EllipsePoints(e, rng.Uniform(0, 2 * kPi), rng.Uniform(0.6 * kPi, 2 * kPi), 40, nullptr);
      const auto g = EllipseStart2D(xy.data(), 40);
      ASSERT_TRUE(g.has_value());
      ellipse = std::max({ellipse, std::fabs(g->major - e.a), std::fabs(g->minor - e.b),
                          std::hypot(g->center[0] - e.c[0], g->center[1] - e.c[1])});
    }
    {
      const Frame f = TiltedFrame(axis());
      const Point3 c = offset();
      const double along = rng.Uniform(2.0, 60.0), across = rng.Uniform(2.0, 60.0);
      const auto xyz =
          SpheroidPoints(f, c, along, across, 0.0, rng.Uniform(0.6 * kPi, kPi), 60, rng, false);
      const auto g = SpheroidStart(xyz.data(), 60, f.u);
      ASSERT_TRUE(g.has_value());
      spheroid =
          std::max({spheroid, std::fabs(g->along - along), std::fabs(g->across - across),
                    std::hypot(g->center[0] - c[0], g->center[1] - c[1], g->center[2] - c[2])});
    }
    {
      const Frame f = TiltedFrame(axis());
      const Point3 v = offset();
      const double focal = rng.Uniform(2.0, 100.0);
      const auto xyz = ParaboloidPoints(f, v, focal, rng.Uniform(5.0, 60.0), 60, rng, false);
      const auto g = ParaboloidStart(xyz.data(), 60, f.u);
      ASSERT_TRUE(g.has_value());
      paraboloid =
          std::max({paraboloid, std::fabs(g->focal - focal),
                    std::hypot(g->vertex[0] - v[0], g->vertex[1] - v[1], g->vertex[2] - v[2])});
    }
  }
  std::printf(
      "largest errors over %d random poses (mm): sphere %.3g, circle %.3g, ellipse %.3g, "
      "spheroid %.3g, paraboloid %.3g\n",
      kTrials, sphere, circle, ellipse, spheroid, paraboloid);
  EXPECT_LT(sphere, kBound);
  EXPECT_LT(circle, kBound);
  EXPECT_LT(ellipse, kBound);
  EXPECT_LT(spheroid, kBound);
  EXPECT_LT(paraboloid, kBound);
}
