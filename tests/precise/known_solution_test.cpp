// Data sets whose least-squares solution is known by construction (deviations projected onto
// the null space of the Jacobian's transpose): partial features, CMM offsets, tilted axes,
// noise up to 1e-2 of the feature size. FitPrecise must land on the generating feature within
// 1e-9 mm and 1e-10 rad.
#include "support/known_solution.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "precise/precise_fit.h"
#include "precise_test_util.h"
#include "support/geometry_compare.h"

namespace metrofit::precise {
namespace {

namespace mt = ::metrofit::testing;
using testing::Axis;
using testing::Center;
using testing::kAngleTol;
using testing::kLengthTol;
using testing::PointRequest;

constexpr double kPi = 3.141592653589793;
constexpr double kDeg = kPi / 180.0;

struct Case {
  mt::Shape shape;
  double span;        // rad
  double noiseRatio;  // rms noise over the feature size
  double offset;      // mm
  double tilt;        // rad
  std::uint64_t seed;
};

Shape ToShape(mt::Shape s) {
  switch (s) {
    case mt::Shape::kLine:
      return Shape::kLine;
    case mt::Shape::kPlane:
      return Shape::kPlane;
    case mt::Shape::kCircle:
      return Shape::kCircle;
    case mt::Shape::kSphere:
      return Shape::kSphere;
    case mt::Shape::kCylinder:
      return Shape::kCylinder;
    case mt::Shape::kCone:
      return Shape::kCone;
    case mt::Shape::kTorus:
      return Shape::kTorus;
  }
  return Shape::kSphere;
}

std::string Name(const Case& c) {
  return std::string(mt::ShapeName(c.shape)) + " span " + std::to_string(c.span / kDeg) +
         " deg, noise " + std::to_string(c.noiseRatio) + ", seed " + std::to_string(c.seed);
}

// Largest of the position (mm) and angle (rad) errors of the fit against the truth.
struct Errors {
  double length = 0.0;
  double angle = 0.0;
};

Errors Compare(const mt::ShapeTruth& t, const FitResult& r) {
  Errors e;
  const Vec3 c = Center(r), u = Axis(r);
  switch (t.shape) {
    case mt::Shape::kLine:
      e.length = mt::DistancePointToLine(c, t.centre, t.axis);
      e.angle = mt::AxisAngle(u, t.axis);
      break;
    case mt::Shape::kPlane:
      e.length = std::fabs(u.Dot(t.centre - c));
      e.angle = mt::AxisAngle(u, t.axis);
      break;
    case mt::Shape::kSphere:
      e.length = std::fmax((c - t.centre).Length(), std::fabs(*r.radius - t.radius));
      break;
    case mt::Shape::kCylinder:
      e.length =
          std::fmax(mt::DistancePointToLine(c, t.centre, t.axis), std::fabs(*r.radius - t.radius));
      e.angle = mt::AxisAngle(u, t.axis);
      break;
    case mt::Shape::kCone:
      e.length = (c - t.centre).Length();
      e.angle = std::fmax(mt::DirectedAngle(u, t.axis), std::fabs(*r.half_angle - t.halfAngle));
      break;
    case mt::Shape::kTorus:
      e.length =
          std::fmax((c - t.centre).Length(), std::fmax(std::fabs(*r.major_radius - t.radius),
                                                       std::fabs(*r.minor_radius - t.minorRadius)));
      e.angle = mt::AxisAngle(u, t.axis);
      break;
    case mt::Shape::kCircle:
      break;
  }
  return e;
}

// 113-bit arithmetic for judging sums of squares that agree to the last bits of a double.
__extension__ typedef __float128 Quad;

Quad QuadSqrt(Quad v) {
  if (v <= 0) return 0;
  Quad x = std::sqrt(static_cast<double>(v));
  for (int i = 0; i < 3; ++i) x = 0.5 * (x + v / x);
  return x;
}

// cos and sin of a double angle of at most a few rad, by their series.
void QuadCosSin(double angle, Quad* c, Quad* s) {
  const Quad a = angle;
  Quad term = 1, cs = 0, sn = 0;
  for (int k = 0; k < 60; ++k) {
    if (k % 4 == 0) cs += term;
    if (k % 4 == 1) sn += term;
    if (k % 4 == 2) cs -= term;
    if (k % 4 == 3) sn -= term;
    term = term * a / (k + 1);
  }
  *c = cs;
  *s = sn;
}

// Sum of squared distances from a cone (apex, unit axis, half angle) in 113-bit arithmetic.
Quad QuadConeSum(const std::vector<Vec3>& points, const Vec3& apex, const Vec3& axis, double half) {
  Quad c, s;
  QuadCosSin(half, &c, &s);
  const Quad un = QuadSqrt(Quad(axis.x) * axis.x + Quad(axis.y) * axis.y + Quad(axis.z) * axis.z);
  const Quad u[3] = {axis.x / un, axis.y / un, axis.z / un};
  Quad sum = 0;
  for (const Vec3& p : points) {
    const Quad v[3] = {Quad(p.x) - apex.x, Quad(p.y) - apex.y, Quad(p.z) - apex.z};
    const Quad h = v[0] * u[0] + v[1] * u[1] + v[2] * u[2];
    const Quad w[3] = {v[0] - u[0] * h, v[1] - u[1] * h, v[2] - u[2] * h};
    const Quad d = QuadSqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]) * c - h * s;
    sum += d * d;
  }
  return sum;
}

// Sum of squared distances from a torus (centre, unit axis, major and minor radius) in 113-bit
// arithmetic.
Quad QuadTorusSum(const std::vector<Vec3>& points, const Vec3& centre, const Vec3& axis,
                  double major, double minor) {
  const Quad un = QuadSqrt(Quad(axis.x) * axis.x + Quad(axis.y) * axis.y + Quad(axis.z) * axis.z);
  const Quad u[3] = {axis.x / un, axis.y / un, axis.z / un};
  Quad sum = 0;
  for (const Vec3& p : points) {
    const Quad v[3] = {Quad(p.x) - centre.x, Quad(p.y) - centre.y, Quad(p.z) - centre.z};
    const Quad h = v[0] * u[0] + v[1] * u[1] + v[2] * u[2];
    const Quad w[3] = {v[0] - u[0] * h, v[1] - u[1] * h, v[2] - u[2] * h};
    const Quad a = QuadSqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]) - major;
    const Quad d = QuadSqrt(a * a + h * h) - minor;
    sum += d * d;
  }
  return sum;
}

// The exact sums of squares of the fit and of the generating feature, for the shapes whose
// generated truth can fall short of the minimum (nullopt for the others).
bool ExactSums(const mt::KnownSolution& s, const FitResult& r, Quad* fit, Quad* truth) {
  const mt::ShapeTruth& t = s.truth;
  if (t.shape == mt::Shape::kCone) {
    *fit = QuadConeSum(s.points, Center(r), Axis(r), *r.half_angle);
    *truth = QuadConeSum(s.points, t.centre, t.axis, t.halfAngle);
    return true;
  }
  if (t.shape == mt::Shape::kTorus) {
    *fit = QuadTorusSum(s.points, Center(r), Axis(r), *r.major_radius, *r.minor_radius);
    *truth = QuadTorusSum(s.points, t.centre, t.axis, t.radius, t.minorRadius);
    return true;
  }
  return false;
}

void RunCases(const std::vector<Case>& cases, const char* what) {
  mt::WorstError worstLength(std::string(what) + " position and size (mm)");
  mt::WorstError worstAngle(std::string(what) + " angles (rad)");
  for (const Case& c : cases) {
    mt::GeneratorOptions o;
    o.pointCount = 60;
    o.centreOffset = c.offset;
    o.axisTilt = c.tilt;
    o.arcSpan = c.span;
    o.seed = c.seed;
    o.radius = c.shape == mt::Shape::kTorus ? 40.0 : 25.0;
    o.minorRadius = 6.0;
    o.length = c.shape == mt::Shape::kPlane ? 200.0 : 40.0;
    const double size = c.shape == mt::Shape::kTorus ? o.minorRadius : o.radius;
    o.noiseMicrometres = 1000.0 * c.noiseRatio * size;
    const mt::KnownSolution s = mt::GenerateKnownSolution(c.shape, o);
    PointRequest pr(ToShape(c.shape), s.points);
    const FitResult r = FitPrecise(pr.request);
    ASSERT_EQ(r.status, Status::kOk) << Name(c) << ": " << r.message;
    const Errors e = Compare(s.truth, r);
    Quad fit = 0, truth = 0;
    if ((e.length > kLengthTol || e.angle > kAngleTol) && ExactSums(s, r, &fit, &truth)) {
      // The generator makes its truth stationary through a finite-difference Jacobian (about
      // 1e-10 relative); on a narrow cone arc or torus sector that is amplified beyond 1e-9 mm.
      // The truth is then not the minimum, which the exact sums show: the fit's must be
      // strictly smaller.
      EXPECT_LT(fit, truth) << Name(c) << ": off the generating feature by " << e.length << " mm, "
                            << e.angle << " rad, without a smaller sum of squares";
      std::printf(
          "[generator] %s: generating feature not the minimum; fit lower by %.3e mm^2, "
          "%.3e mm and %.3e rad from it\n",
          Name(c).c_str(), static_cast<double>(truth - fit), e.length, e.angle);
      continue;
    }
    worstLength.Update(e.length, Name(c));
    worstAngle.Update(e.angle, Name(c));
    EXPECT_LE(e.length, kLengthTol) << Name(c);
    EXPECT_LE(e.angle, kAngleTol) << Name(c);
    EXPECT_NEAR(r.rms, s.rms, kLengthTol) << Name(c);
  }
}

std::vector<Case> Sweep(mt::Shape shape, std::vector<double> spans) {
  std::vector<Case> cases;
  std::uint64_t seed = 11;
  for (double span : spans) {
    for (double noise : {0.0, 1e-4, 1e-2}) {
      cases.push_back({shape, span, noise, 1000.0, 0.7, seed++});
    }
  }
  return cases;
}

TEST(PreciseKnownSolution, Lines) {
  RunCases(Sweep(mt::Shape::kLine, {2.0 * kPi}), "line");
}

TEST(PreciseKnownSolution, Planes) {
  RunCases(Sweep(mt::Shape::kPlane, {2.0 * kPi}), "plane");
}

TEST(PreciseKnownSolution, SpheresOnCapsAndWhole) {
  RunCases(Sweep(mt::Shape::kSphere, {90.0 * kDeg, 180.0 * kDeg, 360.0 * kDeg}), "sphere");
}

TEST(PreciseKnownSolution, CylindersOnArcs) {
  RunCases(Sweep(mt::Shape::kCylinder, {30.0 * kDeg, 120.0 * kDeg, 360.0 * kDeg}), "cylinder");
}

TEST(PreciseKnownSolution, ConesOnArcs) {
  RunCases(Sweep(mt::Shape::kCone, {30.0 * kDeg, 120.0 * kDeg, 360.0 * kDeg}), "cone");
}

TEST(PreciseKnownSolution, ToriOnSectors) {
  RunCases(Sweep(mt::Shape::kTorus, {30.0 * kDeg, 60.0 * kDeg, 120.0 * kDeg, 360.0 * kDeg}),
           "torus");
}

}  // namespace
}  // namespace metrofit::precise
