// FitPrecise beyond plain recovery: the two-stage circle on data with a known solution,
// degenerate point sets, held and started parameters, the iteration limit, probe radii, and
// the statistics and uncertainties of the description.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "precise/precise_fit.h"
#include "precise/precise_limits.h"
#include "precise_test_util.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"
#include "support/noise_propagation.h"

namespace metrofit::precise {
namespace {

namespace mt = ::metrofit::testing;
using testing::Axis;
using testing::Center;
using testing::FindParameter;
using testing::kAngleTol;
using testing::kLengthTol;
using testing::PointRequest;

constexpr double kPi = 3.141592653589793;

Vec3 Unit(Vec3 v) {
  return v.Normalize();
}

// Removes from v its components along the given columns (modified Gram-Schmidt, twice).
void ProjectOut(std::vector<std::vector<double>> cols, std::vector<double>* v) {
  for (std::size_t a = 0; a < cols.size(); ++a) {
    for (std::size_t b = 0; b < a; ++b) {
      double d = 0;
      for (std::size_t i = 0; i < v->size(); ++i) d += cols[a][i] * cols[b][i];
      for (std::size_t i = 0; i < v->size(); ++i) cols[a][i] -= d * cols[b][i];
    }
    double n = 0;
    for (double x : cols[a]) n += x * x;
    for (double& x : cols[a]) x /= std::sqrt(n);
  }
  for (int pass = 0; pass < 2; ++pass) {
    for (const auto& c : cols) {
      double d = 0;
      for (std::size_t i = 0; i < v->size(); ++i) d += c[i] * (*v)[i];
      for (std::size_t i = 0; i < v->size(); ++i) (*v)[i] -= d * c[i];
    }
  }
}

struct CircleData {
  std::vector<Vec3> points;
  Vec3 centre, normal;
  double radius = 0.0;
};

// A circle arc with in-plane radial deviations orthogonal to (cos t, sin t, 1) and normal
// deviations orthogonal to (1, q1, q2): the least-squares plane and the least-squares circle in
// it are then the generating ones exactly.
CircleData KnownCircle(double span, double noise, std::uint64_t seed) {
  std::mt19937_64 rng(seed);
  std::normal_distribution<double> gauss(0.0, noise);
  CircleData d;
  d.centre = Vec3(640.0, -720.0, 415.0);
  d.normal = Unit(Vec3(0.35, -0.2, 0.9));
  d.radius = 30.0;
  const Vec3 e1 = Unit(Vec3(1, 0, 0) - d.normal * d.normal.x), e2 = d.normal.Cross(e1);
  const int n = 40;
  std::vector<double> t(n), radial(n), height(n);
  for (int i = 0; i < n; ++i) {
    t[i] = span * (i + 0.5) / n;
    radial[i] = gauss(rng);
    height[i] = gauss(rng);
  }
  std::vector<std::vector<double>> cols(3, std::vector<double>(n));
  for (int i = 0; i < n; ++i)
    cols[0][i] = std::cos(t[i]), cols[1][i] = std::sin(t[i]), cols[2][i] = 1;
  ProjectOut(cols, &radial);
  for (int i = 0; i < n; ++i) {
    const double rho = d.radius + radial[i];
    cols[0][i] = 1.0, cols[1][i] = rho * std::cos(t[i]), cols[2][i] = rho * std::sin(t[i]);
  }
  ProjectOut(cols, &height);
  for (int i = 0; i < n; ++i) {
    const double rho = d.radius + radial[i];
    d.points.push_back(d.centre + e1 * (rho * std::cos(t[i])) + e2 * (rho * std::sin(t[i])) +
                       d.normal * height[i]);
  }
  return d;
}

TEST(PreciseCircle, KnownSolutionOnArcs) {
  mt::WorstError pos("circle centre (mm)"), ang("circle normal (rad)"), rad("circle radius (mm)");
  std::uint64_t seed = 3;
  for (double span : {kPi / 6, 2 * kPi / 3, 2 * kPi}) {
    for (double noise : {0.0, 1e-3, 0.3}) {
      const CircleData d = KnownCircle(span, noise, seed++);
      PointRequest pr(Shape::kCircle, d.points);
      const FitResult r = FitPrecise(pr.request);
      const std::string where = "span " + std::to_string(span) + " noise " + std::to_string(noise);
      ASSERT_EQ(r.status, Status::kOk) << where << ": " << r.message;
      pos.Update((Center(r) - d.centre).Length(), where);
      ang.Update(mt::AxisAngle(Axis(r), d.normal), where);
      rad.Update(std::fabs(*r.radius - d.radius), where);
      EXPECT_LE((Center(r) - d.centre).Length(), kLengthTol) << where;
      EXPECT_LE(mt::AxisAngle(Axis(r), d.normal), kAngleTol) << where;
      EXPECT_LE(std::fabs(*r.radius - d.radius), kLengthTol) << where;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Degenerate point sets

std::vector<Vec3> OnLine(int n) {
  std::vector<Vec3> p;
  for (int i = 0; i < n; ++i) p.push_back(Vec3(500 + 0.3 * i, -200 + 0.2 * i, 100 - 0.1 * i));
  return p;
}

std::vector<Vec3> OnCircle(int n, double height) {
  std::vector<Vec3> p;
  for (int i = 0; i < n; ++i) {
    const double t = 2 * kPi * i / n;
    p.push_back(Vec3(500 + 10 * std::cos(t), -200 + 10 * std::sin(t), height));
  }
  return p;
}

FitResult FitPoints(Shape shape, const std::vector<Vec3>& pts) {
  PointRequest pr(shape, pts);
  return FitPrecise(pr.request);
}

void ExpectDegenerate(const FitResult& r, const char* words) {
  EXPECT_EQ(r.status, Status::kDegenerate) << r.message;
  EXPECT_FALSE(r.valid);
  EXPECT_NE(r.message.find(words), std::string::npos) << r.message;
}

TEST(PreciseDegenerate, CoincidentPoints) {
  const std::vector<Vec3> same(10, Vec3(812.5, -33.25, 7.0));
  for (Shape s : {Shape::kLine, Shape::kPlane, Shape::kSphere, Shape::kCylinder}) {
    ExpectDegenerate(FitPoints(s, same), "coincide");
  }
}

TEST(PreciseDegenerate, CollinearPoints) {
  for (Shape s : {Shape::kPlane, Shape::kCircle, Shape::kSphere, Shape::kCylinder, Shape::kCone,
                  Shape::kTorus}) {
    ExpectDegenerate(FitPoints(s, OnLine(12)), "one line");
  }
  EXPECT_EQ(FitPoints(Shape::kLine, OnLine(12)).status, Status::kOk);
}

TEST(PreciseDegenerate, CoplanarPointsForSurfaces) {
  const FitResult sphere = FitPoints(Shape::kSphere, OnCircle(24, 50.0));
  ExpectDegenerate(sphere, "one plane");
  EXPECT_NE(sphere.message.find("sphere"), std::string::npos) << sphere.message;
  for (Shape s : {Shape::kCylinder, Shape::kCone, Shape::kTorus}) {
    ExpectDegenerate(FitPoints(s, OnCircle(24, 50.0)), "one plane");
  }
  EXPECT_EQ(FitPoints(Shape::kCircle, OnCircle(24, 50.0)).status, Status::kOk);
  EXPECT_EQ(FitPoints(Shape::kPlane, OnCircle(24, 50.0)).status, Status::kOk);
}

// A torus held to major radius 0 is a sphere: its axis does not move a single distance.
TEST(PreciseDegenerate, ParameterWithoutEffectAtTheSolution) {
  mt::GeneratorOptions o;
  o.centreOffset = 400.0;
  o.radius = 9.0;
  o.noiseMicrometres = 3.0;
  const mt::KnownSolution s = mt::GenerateKnownSolution(mt::Shape::kSphere, o);
  PointRequest pr(Shape::kTorus, s.points);
  pr.request.fixed.push_back({"major_radius", {0.0}});
  const FitResult r = FitPrecise(pr.request);
  ExpectDegenerate(r, "do not determine");
  EXPECT_NE(r.message.find("torus"), std::string::npos) << r.message;
  // The same points as a sphere are fine.
  PointRequest sphere(Shape::kSphere, s.points);
  EXPECT_EQ(FitPrecise(sphere.request).status, Status::kOk);
}

TEST(PreciseDegenerate, LineRejectsProbeRadius) {
  PointRequest pr(Shape::kLine, OnLine(5));
  pr.request.probe_radius = 1.0;
  const FitResult r = FitPrecise(pr.request);
  EXPECT_EQ(r.status, Status::kInvalidOption);
  EXPECT_FALSE(r.valid);
  EXPECT_FALSE(r.message.empty());
}

// ---------------------------------------------------------------------------------------------
// Held and started parameters

mt::KnownSolution Cylinder(double noiseMicrometres, std::uint64_t seed, double span = 2 * kPi) {
  mt::GeneratorOptions o;
  o.pointCount = 80;
  o.centreOffset = 700.0;
  o.axisTilt = 0.6;
  o.radius = 20.0;
  o.length = 50.0;
  o.arcSpan = span;
  o.noiseMicrometres = noiseMicrometres;
  o.seed = seed;
  return mt::GenerateKnownSolution(mt::Shape::kCylinder, o);
}

TEST(PreciseHeld, SphereRadiusHeldExactly) {
  mt::GeneratorOptions o;
  o.centreOffset = 900.0;
  o.radius = 12.5;
  o.noiseMicrometres = 2.0;
  const mt::KnownSolution s = mt::GenerateKnownSolution(mt::Shape::kSphere, o);
  for (double held : {12.5, 12.6}) {
    PointRequest pr(Shape::kSphere, s.points);
    pr.request.fixed.push_back({"radius", {held}});
    const FitResult r = FitPrecise(pr.request);
    ASSERT_EQ(r.status, Status::kOk) << r.message;
    EXPECT_EQ(*r.radius, held);
    EXPECT_EQ(FindParameter(r, "radius")->uncertainty[0], 0.0);
    EXPECT_GT(FindParameter(r, "center")->uncertainty[0], 0.0);
    // The centre is still the least-squares one: the residual vectors balance.
    Vec3 sum;
    for (const auto& v : r.residuals) sum += Vec3(v[0], v[1], v[2]);
    EXPECT_LT(sum.Length(), 1e-10) << held;
    if (held == 12.5) {
      EXPECT_LT((Center(r) - s.truth.centre).Length(), 1e-4);
    }
  }
}

TEST(PreciseHeld, CylinderAxisHeldAndCentreOnAxis) {
  const mt::KnownSolution s = Cylinder(5.0, 21);
  const Vec3 tilted = Unit(s.truth.axis + Vec3(1e-3, 0, 0));
  PointRequest pr(Shape::kCylinder, s.points);
  pr.request.fixed.push_back({"axis", {tilted.x, tilted.y, tilted.z}});
  const FitResult r = FitPrecise(pr.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  EXPECT_LT(mt::DirectedAngle(Axis(r), tilted), 1e-15);
  for (double u : FindParameter(r, "axis")->uncertainty) EXPECT_EQ(u, 0.0);

  PointRequest line(Shape::kLine, s.points);
  const Vec3 through(s.truth.centre.x + 3.0, s.truth.centre.y, s.truth.centre.z);
  line.request.fixed.push_back({"center", {through.x, through.y, through.z}});
  const FitResult l = FitPrecise(line.request);
  ASSERT_EQ(l.status, Status::kOk) << l.message;
  EXPECT_LT(mt::DistancePointToLine(through, Center(l), Axis(l)), 1e-12);
}

TEST(PreciseHeld, ConeHalfAngleAndApexHeld) {
  mt::GeneratorOptions o;
  o.centreOffset = 600.0;
  o.axisTilt = 0.4;
  o.halfAngle = 0.3;
  o.radius = 15.0;
  o.noiseMicrometres = 0.0;
  const mt::KnownSolution s = mt::GenerateKnownSolution(mt::Shape::kCone, o);
  PointRequest pr(Shape::kCone, s.points);
  pr.request.fixed.push_back({"half_angle", {0.3}});
  pr.request.fixed.push_back({"center", {s.truth.centre.x, s.truth.centre.y, s.truth.centre.z}});
  const FitResult r = FitPrecise(pr.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  EXPECT_EQ(*r.half_angle, 0.3);
  EXPECT_LT((Center(r) - s.truth.centre).Length(), 1e-12);
  EXPECT_LT(mt::DirectedAngle(Axis(r), s.truth.axis), 1e-11);
  EXPECT_LT(r.rms, 1e-10);
}

TEST(PreciseStart, StartedFitMatchesAutomaticAndTakesAxisSense) {
  const mt::KnownSolution s = Cylinder(20.0, 5, 2.0);
  PointRequest automatic(Shape::kCylinder, s.points);
  const FitResult a = FitPrecise(automatic.request);
  PointRequest started(Shape::kCylinder, s.points);
  const Vec3 flipped = -Unit(s.truth.axis + Vec3(0.02, -0.01, 0.0));
  started.request.start.push_back({"axis", {flipped.x, flipped.y, flipped.z}});
  started.request.start.push_back({"radius", {21.0}});
  const FitResult b = FitPrecise(started.request);
  ASSERT_EQ(a.status, Status::kOk) << a.message;
  ASSERT_EQ(b.status, Status::kOk) << b.message;
  EXPECT_LT(mt::AxisAngle(Axis(a), Axis(b)), kAngleTol);
  EXPECT_LT(mt::DistancePointToLine(Center(a), Center(b), Axis(b)), kLengthTol);
  EXPECT_NEAR(*a.radius, *b.radius, kLengthTol);
  EXPECT_GT(Axis(b).Dot(flipped), 0.0);
}

// A start or held axis names the cone's axis line; the cone still opens where the data say.
TEST(PreciseStart, ConeAxisGivenAgainstItsOpening) {
  mt::GeneratorOptions o;
  o.centreOffset = 750.0;
  o.axisTilt = 0.8;
  o.halfAngle = 0.25;
  o.noiseMicrometres = 5.0;
  o.arcSpan = 3.0;
  const mt::KnownSolution s = mt::GenerateKnownSolution(mt::Shape::kCone, o);
  const Vec3 reversed = -s.truth.axis;
  PointRequest automatic(Shape::kCone, s.points);
  const FitResult a = FitPrecise(automatic.request);
  ASSERT_EQ(a.status, Status::kOk) << a.message;
  for (bool held : {false, true}) {
    PointRequest pr(Shape::kCone, s.points);
    (held ? pr.request.fixed : pr.request.start)
        .push_back({"axis", {reversed.x, reversed.y, reversed.z}});
    const FitResult r = FitPrecise(pr.request);
    ASSERT_EQ(r.status, Status::kOk) << r.message;
    EXPECT_GT(Axis(r).Dot(s.truth.axis), 0.0);
    EXPECT_GT(*r.half_angle, 0.0);
    if (!held) {
      EXPECT_LT((Center(r) - Center(a)).Length(), kLengthTol);
      EXPECT_LT(mt::DirectedAngle(Axis(r), Axis(a)), kAngleTol);
    } else {
      EXPECT_LT(mt::AxisAngle(Axis(r), s.truth.axis), 1e-15);
    }
  }
}

// A plane on a 200 x 10 mm strip, noise orthogonal to (1, x, y): the generating plane is the
// least-squares plane exactly.
TEST(PreciseKnownPlane, NarrowStrip) {
  std::mt19937_64 rng(17);
  std::normal_distribution<double> gauss(0.0, 0.1);
  std::uniform_real_distribution<double> along(-100.0, 100.0), across(-5.0, 5.0);
  const Vec3 n = Unit(Vec3(0.1, -0.3, 0.95)), e1 = Unit(n.Cross(Vec3(0, 0, 1))), e2 = n.Cross(e1),
             origin(-930.0, 420.0, 610.0);
  const int count = 60;
  std::vector<double> x(count), y(count), h(count);
  std::vector<std::vector<double>> cols(3, std::vector<double>(count));
  for (int i = 0; i < count; ++i) {
    x[i] = along(rng);
    y[i] = across(rng);
    h[i] = gauss(rng);
    cols[0][i] = 1.0, cols[1][i] = x[i], cols[2][i] = y[i];
  }
  ProjectOut(cols, &h);
  std::vector<Vec3> pts;
  for (int i = 0; i < count; ++i) pts.push_back(origin + e1 * x[i] + e2 * y[i] + n * h[i]);
  const FitResult r = FitPoints(Shape::kPlane, pts);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  EXPECT_LT(mt::AxisAngle(Axis(r), n), kAngleTol);
  EXPECT_LT(std::fabs(n.Dot(Center(r) - origin)), kLengthTol);
}

TEST(PreciseLimit, IterationCapGivesNotConvergedWithEstimate) {
  const mt::KnownSolution s = Cylinder(50.0, 8, 1.0);
  PointRequest pr(Shape::kCylinder, s.points);
  pr.request.start.push_back({"radius", {35.0}});
  const FitResult r = FitPreciseLimited(pr.request, 1);
  EXPECT_EQ(r.status, Status::kNotConverged) << r.message;
  EXPECT_FALSE(r.valid);
  EXPECT_TRUE(r.radius.has_value());
  EXPECT_EQ(r.deviations.size(), s.points.size());
  EXPECT_EQ(FitPreciseLimited(pr.request, kMaxIterations).status, Status::kOk);
}

// ---------------------------------------------------------------------------------------------
// Probe radius: the points are probe centres a probe radius outside the part surface

TEST(PreciseProbe, PartSurfacesFromProbeCentres) {
  const double probe = 1.5;
  for (mt::Shape shape :
       {mt::Shape::kSphere, mt::Shape::kCylinder, mt::Shape::kCone, mt::Shape::kTorus}) {
    mt::GeneratorOptions o;
    o.centreOffset = 500.0;
    o.axisTilt = 0.3;
    o.radius = 20.0;
    o.minorRadius = 5.0;
    o.halfAngle = 0.4;
    const mt::KnownSolution s = mt::GenerateKnownSolution(shape, o);
    std::vector<Vec3> centres;
    for (std::size_t i = 0; i < s.points.size(); ++i) {
      Vec3 n = s.points[i] - s.truth.centre;  // outward normals built per shape below
      if (shape == mt::Shape::kCylinder || shape == mt::Shape::kCone ||
          shape == mt::Shape::kTorus) {
        const Vec3 v = s.points[i] - s.truth.centre;
        const double h = v.Dot(s.truth.axis);
        const Vec3 radial = Unit(v - s.truth.axis * h);
        if (shape == mt::Shape::kCylinder) n = radial;
        if (shape == mt::Shape::kCone) {
          n = radial * std::cos(s.truth.halfAngle) - s.truth.axis * std::sin(s.truth.halfAngle);
        }
        if (shape == mt::Shape::kTorus) n = v - radial * s.truth.radius;
      }
      centres.push_back(s.points[i] + Unit(n) * probe);
    }
    PointRequest pr(static_cast<Shape>(0), centres);
    pr.request.shape = shape == mt::Shape::kSphere     ? Shape::kSphere
                       : shape == mt::Shape::kCylinder ? Shape::kCylinder
                       : shape == mt::Shape::kCone     ? Shape::kCone
                                                       : Shape::kTorus;
    pr.request.probe_radius = probe;
    const FitResult r = FitPrecise(pr.request);
    ASSERT_EQ(r.status, Status::kOk) << mt::ShapeName(shape) << ": " << r.message;
    EXPECT_LT(r.rms, 1e-10) << mt::ShapeName(shape);
    if (shape == mt::Shape::kSphere || shape == mt::Shape::kCylinder) {
      EXPECT_NEAR(*r.radius, 20.0, 1e-10) << mt::ShapeName(shape);
    }
    if (shape == mt::Shape::kTorus) {
      EXPECT_NEAR(*r.minor_radius, 5.0, 1e-10);
      EXPECT_NEAR(*r.major_radius, 20.0, 1e-10);
    }
    if (shape == mt::Shape::kCone) {
      EXPECT_LT((Center(r) - s.truth.centre).Length(), 1e-9);
      EXPECT_NEAR(*r.half_angle, 0.4, 1e-12);
    }
  }
}

// A circle probed from outside and a sphere probed from inside (negative probe radius).
TEST(PreciseProbe, CircleAndInsideSphere) {
  const CircleData d = KnownCircle(2.0, 0.0, 5);
  std::vector<Vec3> centres;
  for (const Vec3& p : d.points) {
    const Vec3 v = p - d.centre;
    centres.push_back(p + Unit(v - d.normal * v.Dot(d.normal)) * 1.5);
  }
  PointRequest circle(Shape::kCircle, centres);
  circle.request.probe_radius = 1.5;
  const FitResult c = FitPrecise(circle.request);
  ASSERT_EQ(c.status, Status::kOk) << c.message;
  EXPECT_NEAR(*c.radius, d.radius, 1e-10);
  EXPECT_LT((Center(c) - d.centre).Length(), 1e-10);

  mt::GeneratorOptions o;
  o.centreOffset = 450.0;
  o.radius = 16.0;
  o.arcSpan = kPi;
  const mt::KnownSolution s = mt::GenerateKnownSolution(mt::Shape::kSphere, o);
  std::vector<Vec3> inside;
  for (const Vec3& p : s.points) inside.push_back(p - Unit(p - s.truth.centre) * 2.0);
  PointRequest sphere(Shape::kSphere, inside);
  sphere.request.probe_radius = -2.0;
  const FitResult r = FitPrecise(sphere.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  EXPECT_NEAR(*r.radius, 16.0, 1e-10);
  EXPECT_LT(r.rms, 1e-10);
}

TEST(PreciseProbe, PlaneMovesAgainstItsNormal) {
  std::vector<Vec3> pts;
  for (int i = 0; i < 5; ++i) {
    for (int j = 0; j < 4; ++j) pts.push_back(Vec3(300 + 10 * i, -40 + 7 * j, 255.0));
  }
  PointRequest pr(Shape::kPlane, pts);
  pr.request.probe_radius = 2.0;
  const FitResult r = FitPrecise(pr.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  EXPECT_NEAR(Axis(r).z, 1.0, 1e-15);
  EXPECT_NEAR(r.center[2], 253.0, 1e-12);
  EXPECT_NEAR(r.max_deviation, 0.0, 1e-12);
}

// ---------------------------------------------------------------------------------------------
// Description: deviations, statistics and uncertainties

TEST(PreciseDescribe, DeviationsResidualsAndStatistics) {
  const mt::KnownSolution s = Cylinder(30.0, 14);
  PointRequest pr(Shape::kCylinder, s.points);
  const FitResult r = FitPrecise(pr.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  ASSERT_EQ(r.deviations.size(), s.points.size());
  double sum = 0, lo = 1e300, hi = -1e300;
  for (std::size_t i = 0; i < s.points.size(); ++i) {
    // The generator's signed distances are positive outside, like ours.
    EXPECT_NEAR(r.deviations[i], s.residuals[i], 1e-9);
    const Vec3 v(r.residuals[i][0], r.residuals[i][1], r.residuals[i][2]);
    EXPECT_NEAR(v.Length(), std::fabs(r.deviations[i]), 1e-12);
    EXPECT_LT(std::fabs(v.Dot(Axis(r))), 1e-12);  // radial for a cylinder
    sum += r.deviations[i] * r.deviations[i];
    lo = std::fmin(lo, r.deviations[i]);
    hi = std::fmax(hi, r.deviations[i]);
  }
  const double n = static_cast<double>(s.points.size());
  EXPECT_NEAR(r.rms, std::sqrt(sum / n), 1e-15);
  EXPECT_NEAR(r.sigma, std::sqrt(sum / (n - 5)), 1e-15);
  EXPECT_EQ(r.min_deviation, lo);
  EXPECT_EQ(r.max_deviation, hi);
  EXPECT_EQ(r.form_error, hi - lo);
  ASSERT_EQ(r.parameters.size(), 3u);
  EXPECT_EQ(r.parameters[0].name, "center");
  EXPECT_EQ(r.parameters[1].name, "axis");
  EXPECT_EQ(r.parameters[2].name, "radius");
}

TEST(PreciseDescribe, UncertaintiesMatchIndependentCovariance) {
  mt::GeneratorOptions o;
  o.centreOffset = 800.0;
  o.radius = 15.0;
  o.arcSpan = kPi;  // a hemisphere: correlated centre and radius
  o.noiseMicrometres = 40.0;
  o.pointCount = 50;
  const mt::KnownSolution s = mt::GenerateKnownSolution(mt::Shape::kSphere, o);
  PointRequest pr(Shape::kSphere, s.points);
  const FitResult r = FitPrecise(pr.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  const mt::DenseMatrix j = mt::ResidualJacobian(s.truth, s.surfacePoints);
  const mt::DenseMatrix c = mt::NormalInverse(j, {0, 1, 2, 3});
  ASSERT_EQ(c.rows, 4);
  const Parameter* centre = FindParameter(r, "center");
  const Parameter* radius = FindParameter(r, "radius");
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(centre->uncertainty[k], r.sigma * std::sqrt(c(k, k)),
                1e-3 * centre->uncertainty[k]);
  }
  EXPECT_NEAR(radius->uncertainty[0], r.sigma * std::sqrt(c(3, 3)), 1e-3 * radius->uncertainty[0]);
}

// Scatter of repeated fits against the reported standard uncertainties (Monte Carlo).
TEST(PreciseDescribe, UncertaintiesMatchScatterOfRepeatedFits) {
  constexpr int kRuns = 400;
  // Agreement of an empirical standard deviation from kRuns runs with the reported one: its
  // own relative standard error is about 1 / sqrt(2 kRuns) = 3.5 %.
  constexpr double kScatterTol = 0.15;
  std::mt19937_64 rng(99);
  std::normal_distribution<double> gauss(0.0, 0.01);
  const Vec3 axis = Unit(Vec3(0.2, 0.5, 0.84)), e1 = Unit(axis.Cross(Vec3(1, 0, 0)));
  const Vec3 e2 = axis.Cross(e1), base(350.0, -620.0, 180.0);
  double lineSum = 0, lineSq = 0, lineU = 0, cylSum = 0, cylSq = 0, cylU = 0;
  for (int run = 0; run < kRuns; ++run) {
    std::vector<Vec3> line, cyl;
    for (int i = 0; i < 30; ++i) {
      line.push_back(base + axis * (2.0 * i) + e1 * gauss(rng) + e2 * gauss(rng));
      const double t = 2 * kPi * i / 30.0;
      const double rho = 12.0 + gauss(rng);
      cyl.push_back(base + axis * (1.0 * (i % 7)) + e1 * (rho * std::cos(t)) +
                    e2 * (rho * std::sin(t)));
    }
    const FitResult l = FitPoints(Shape::kLine, line);
    const FitResult c = FitPoints(Shape::kCylinder, cyl);
    ASSERT_EQ(l.status, Status::kOk) << l.message;
    ASSERT_EQ(c.status, Status::kOk) << c.message;
    const double ax = Axis(l).x;
    lineSum += ax;
    lineSq += ax * ax;
    lineU += FindParameter(l, "axis")->uncertainty[0] * FindParameter(l, "axis")->uncertainty[0];
    cylSum += *c.radius;
    cylSq += *c.radius * *c.radius;
    cylU += FindParameter(c, "radius")->uncertainty[0] * FindParameter(c, "radius")->uncertainty[0];
  }
  auto spread = [&](double sum, double sq) {
    return std::sqrt((sq - sum * sum / kRuns) / (kRuns - 1));
  };
  const double reportedAxis = std::sqrt(lineU / kRuns);
  EXPECT_NEAR(spread(lineSum, lineSq), reportedAxis, kScatterTol * reportedAxis);
  const double reportedRadius = std::sqrt(cylU / kRuns);
  EXPECT_NEAR(spread(cylSum, cylSq), reportedRadius, kScatterTol * reportedRadius);
}

TEST(PreciseDescribe, LineDeviationsAreDistances) {
  const mt::KnownSolution s = Cylinder(10.0, 4);
  PointRequest pr(Shape::kLine, s.points);
  const FitResult r = FitPrecise(pr.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  double hi = 0.0;
  for (double d : r.deviations) {
    EXPECT_GE(d, 0.0);
    hi = std::fmax(hi, d);
  }
  EXPECT_EQ(r.form_error, 2.0 * hi);
}

}  // namespace
}  // namespace metrofit::precise
