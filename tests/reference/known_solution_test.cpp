// Checks of the known-solution generator itself, independently of the fitting library: the
// gradient of the sum of squared orthogonal distances vanishes at the generating parameters, the
// deviations are non-zero and have the requested size, and the data are reproducible.
//
// The gradient is taken here in a different, natural parametrisation (centre coordinates, the
// axis as polar angles, sizes) with distance formulas written out afresh, by central differences
// of each point's squared distance at the generated (perturbed) points.
#include "support/known_solution.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "metrofit.h"
#include "support/geometry_compare.h"

namespace {

using metrofit::testing::GenerateKnownSolution;
using metrofit::testing::GeneratorOptions;
using metrofit::testing::KnownSolution;
using metrofit::testing::Pt;
using metrofit::testing::Shape;
using metrofit::testing::ShapeTruth;

constexpr double kPi = 3.14159265358979323846;

// Central-difference step in mm and rad for the independent gradient.
constexpr double kGradientStep = 1e-6;
// A vanishing gradient: each component below this fraction of the sum of the magnitudes of
// the per-point contributions (rounding of the distances at 1e-14 mm over the step gives
// about 1e-8 per point). A random deviation vector that is not projected leaves components of
// order 1 / sqrt(n) of that sum.
constexpr double kVanishingFraction = 1e-6;

Pt Polar(double theta, double phi) {
  return Pt(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta));
}

// Natural parameters of a shape: the centre (or apex, or a point), the axis as polar angles
// (theta, phi), then the sizes. For the plane: polar angles of the normal and the offset D of
// {x : x . n = D}.
std::vector<double> NaturalParameters(const ShapeTruth& s) {
  const double theta = std::acos(s.axis.z);
  const double phi = std::atan2(s.axis.y, s.axis.x);
  const Pt& c = s.centre;
  switch (s.shape) {
    case Shape::kLine:
      return {c.x, c.y, c.z, theta, phi};
    case Shape::kPlane:
      return {theta, phi, c.Dot(s.axis)};
    case Shape::kCircle:
    case Shape::kCylinder:
      return {c.x, c.y, c.z, theta, phi, s.radius};
    case Shape::kSphere:
      return {c.x, c.y, c.z, s.radius};
    case Shape::kCone:
      return {c.x, c.y, c.z, theta, phi, s.halfAngle};
    case Shape::kTorus:
      return {c.x, c.y, c.z, theta, phi, s.radius, s.minorRadius};
  }
  return {};
}

// Squared orthogonal distance of p from the shape with natural parameters v.
double SquaredDistance(Shape shape, const std::vector<double>& v, const Pt& p) {
  if (shape == Shape::kPlane) {
    const double e = p.Dot(Polar(v[0], v[1])) - v[2];
    return e * e;
  }
  const Pt d = p - Pt(v[0], v[1], v[2]);
  if (shape == Shape::kSphere) {
    const double e = d.Length() - v[3];
    return e * e;
  }
  const Pt u = Polar(v[3], v[4]);
  const double h = d.Dot(u);
  const double rho = d.Cross(u).Length();
  switch (shape) {
    case Shape::kLine:
      return rho * rho;
    case Shape::kCircle:
      return h * h + (rho - v[5]) * (rho - v[5]);
    case Shape::kCylinder:
      return (rho - v[5]) * (rho - v[5]);
    case Shape::kCone: {
      const double e = rho * std::cos(v[5]) - h * std::sin(v[5]);
      return e * e;
    }
    case Shape::kTorus: {
      const double e = std::hypot(rho - v[5], h) - v[6];
      return e * e;
    }
    default:
      return 0.0;
  }
}

struct Gradient {
  std::vector<double> value;      // dS/dv_k
  std::vector<double> magnitude;  // sum over the points of |d(dist_i^2)/dv_k|
};

Gradient NaturalGradient(const ShapeTruth& truth, const std::vector<Pt>& points) {
  std::vector<double> v = NaturalParameters(truth);
  Gradient g;
  g.value.assign(v.size(), 0.0);
  g.magnitude.assign(v.size(), 0.0);
  for (std::size_t k = 0; k < v.size(); ++k) {
    const double v0 = v[k];
    for (const Pt& p : points) {
      v[k] = v0 + kGradientStep;
      const double plus = SquaredDistance(truth.shape, v, p);
      v[k] = v0 - kGradientStep;
      const double minus = SquaredDistance(truth.shape, v, p);
      const double d = (plus - minus) / (2.0 * kGradientStep);
      g.value[k] += d;
      g.magnitude[k] += std::fabs(d);
    }
    v[k] = v0;
  }
  return g;
}

struct Case {
  Shape shape;
  GeneratorOptions options;
};

std::vector<Case> Cases(double centreOffset, double noiseMicrometres) {
  std::vector<Case> cases;
  GeneratorOptions o;
  o.centreOffset = centreOffset;
  o.noiseMicrometres = noiseMicrometres;
  o.pointCount = 40;

  GeneratorOptions line = o;
  line.length = 40.0;
  line.axisTilt = 0.7;
  line.seed = 11;
  cases.push_back({Shape::kLine, line});

  GeneratorOptions plane = o;
  plane.length = 30.0;
  plane.axisTilt = 0.5;
  plane.seed = 12;
  cases.push_back({Shape::kPlane, plane});

  GeneratorOptions circle = o;
  circle.radius = 12.0;
  circle.arcSpan = 2.0;
  circle.axisTilt = 0.6;
  circle.seed = 13;
  cases.push_back({Shape::kCircle, circle});

  GeneratorOptions sphere = o;
  sphere.radius = 15.0;
  sphere.arcSpan = 1.6;
  sphere.axisTilt = 0.4;
  sphere.seed = 14;
  cases.push_back({Shape::kSphere, sphere});

  GeneratorOptions cylinder = o;
  cylinder.radius = 8.0;
  cylinder.arcSpan = 3.0;
  cylinder.length = 25.0;
  cylinder.axisTilt = 0.8;
  cylinder.seed = 15;
  cases.push_back({Shape::kCylinder, cylinder});

  GeneratorOptions cone = o;
  cone.radius = 10.0;
  cone.halfAngle = 0.4;
  cone.length = 10.0;
  cone.axisTilt = 0.3;
  cone.seed = 16;
  cases.push_back({Shape::kCone, cone});

  GeneratorOptions torus = o;
  torus.radius = 20.0;
  torus.minorRadius = 4.0;
  torus.arcSpan = 4.0;
  torus.axisTilt = 0.4;
  torus.seed = 17;
  cases.push_back({Shape::kTorus, torus});
  return cases;
}

void ExpectVanishingGradient(const ShapeTruth& truth, const std::vector<Pt>& points) {
  const Gradient g = NaturalGradient(truth, points);
  for (std::size_t k = 0; k < g.value.size(); ++k) {
    SCOPED_TRACE("natural parameter " + std::to_string(k));
    ASSERT_GT(g.magnitude[k], 0.0);
    EXPECT_LE(std::fabs(g.value[k]), kVanishingFraction * g.magnitude[k])
        << "gradient " << g.value[k] << " against magnitude " << g.magnitude[k];
  }
}

TEST(KnownSolution, GradientVanishesAtGeneratingParameters) {
  for (const Case& c : Cases(30.0, 5.0)) {
    SCOPED_TRACE(metrofit::testing::ShapeName(c.shape));
    const KnownSolution s = GenerateKnownSolution(c.shape, c.options);
    ExpectVanishingGradient(s.truth, s.points);
  }
}

TEST(KnownSolution, GradientVanishesAtMachineScale) {
  // Centres 500 mm from the origin, as on a coordinate measuring machine.
  for (const Case& c : Cases(500.0, 10.0)) {
    SCOPED_TRACE(metrofit::testing::ShapeName(c.shape));
    const KnownSolution s = GenerateKnownSolution(c.shape, c.options);
    ExpectVanishingGradient(s.truth, s.points);
  }
}

TEST(KnownSolution, GradientCheckDetectsAnUnbalancedDeviation) {
  // The check above must be able to fail: reversing the deviation of one point breaks the
  // balance, and the gradient no longer vanishes in at least one parameter.
  for (const Case& c : Cases(30.0, 5.0)) {
    SCOPED_TRACE(metrofit::testing::ShapeName(c.shape));
    KnownSolution s = GenerateKnownSolution(c.shape, c.options);
    s.points[0] = s.surfacePoints[0] - s.deviations[0];
    const Gradient g = NaturalGradient(s.truth, s.points);
    double worst = 0.0;
    for (std::size_t k = 0; k < g.value.size(); ++k) {
      worst = std::fmax(worst, std::fabs(g.value[k]) / g.magnitude[k]);
    }
    EXPECT_GT(worst, 100.0 * kVanishingFraction);
  }
}

TEST(KnownSolution, HeldParametersKeepTheirGradient) {
  // Holding the centre's z of a sphere cap: the gradient vanishes in x, y and the radius but
  // not in z, so the generating parameters are the solution with z held, not the free one.
  GeneratorOptions o;
  o.radius = 10.0;
  o.arcSpan = 2.0;
  o.axisTilt = 0.5;
  o.noiseMicrometres = 20.0;
  o.seed = 3;
  o.heldParameters = {2};
  const KnownSolution s = GenerateKnownSolution(Shape::kSphere, o);
  const Gradient g = NaturalGradient(s.truth, s.points);
  ASSERT_EQ(g.value.size(), 4u);
  for (std::size_t k : {0u, 1u, 3u}) {
    EXPECT_LE(std::fabs(g.value[k]), kVanishingFraction * g.magnitude[k]) << "parameter " << k;
  }
  EXPECT_GT(std::fabs(g.value[2]), 100.0 * kVanishingFraction * g.magnitude[2]);
}

TEST(KnownSolution, DeviationsAreNonZeroAndHaveTheRequestedSize) {
  for (const Case& c : Cases(30.0, 5.0)) {
    SCOPED_TRACE(metrofit::testing::ShapeName(c.shape));
    const KnownSolution s = GenerateKnownSolution(c.shape, c.options);
    const std::size_t n = s.points.size();
    ASSERT_EQ(n, static_cast<std::size_t>(c.options.pointCount));
    ASSERT_EQ(s.surfacePoints.size(), n);
    ASSERT_EQ(s.deviations.size(), n);

    // The requested root mean square, in mm.
    const double expectedRms = c.options.noiseMicrometres * 1e-3;
    METROFIT_EXPECT_CLOSE(s.rms, expectedRms, 1e-12, 0.0);
    double sum = 0.0;
    for (const Pt& d : s.deviations) sum += d.Dot(d);
    METROFIT_EXPECT_CLOSE(std::sqrt(sum / static_cast<double>(n)), expectedRms, 1e-12, 0.0);

    // The projection keeps most of the draw (n m - k of n m dimensions survive).
    EXPECT_GT(s.projectionRatio, 0.5);
    EXPECT_LT(s.projectionRatio, 1.0);

    // Nearly every point is off the surface, and by its deviation: the distance from the
    // generating shape (computed here, not by the generator) equals the deviation's length.
    const std::vector<double> v = NaturalParameters(s.truth);
    std::size_t offSurface = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const double len = s.deviations[i].Length();
      if (len > 1e-3 * expectedRms) ++offSurface;
      const double dist = std::sqrt(SquaredDistance(c.shape, v, s.points[i]));
      METROFIT_EXPECT_CLOSE(dist, len, 1e-6, 1e-12) << "point " << i;
      // The foot lies on the shape.
      EXPECT_LE(std::sqrt(SquaredDistance(c.shape, v, s.surfacePoints[i])), 1e-12) << "foot " << i;
    }
    EXPECT_GE(offSurface, n * 9 / 10);
  }
}

TEST(KnownSolution, ExactDataLieOnTheShape) {
  for (const Case& c : Cases(30.0, 0.0)) {
    SCOPED_TRACE(metrofit::testing::ShapeName(c.shape));
    const KnownSolution s = GenerateKnownSolution(c.shape, c.options);
    EXPECT_EQ(s.rms, 0.0);
    EXPECT_EQ(s.sumSquares, 0.0);
    const std::vector<double> v = NaturalParameters(s.truth);
    for (std::size_t i = 0; i < s.points.size(); ++i) {
      EXPECT_LE(std::sqrt(SquaredDistance(c.shape, v, s.points[i])), 1e-12) << "point " << i;
    }
  }
}

TEST(KnownSolution, OptionsShapeTheData) {
  GeneratorOptions o;
  o.centreOffset = 500.0;
  o.axisTilt = 0.6;
  o.arcSpan = kPi / 3.0;
  o.radius = 25.0;
  o.pointCount = 30;
  o.noiseMicrometres = 2.0;
  o.seed = 99;
  const KnownSolution s = GenerateKnownSolution(Shape::kCircle, o);
  METROFIT_EXPECT_CLOSE(s.truth.centre.Length(), 500.0, 1e-14, 0.0);
  METROFIT_EXPECT_CLOSE(metrofit::testing::AxisAngle(s.truth.axis, Pt(0, 0, 1)), 0.6, 1e-14, 1e-15);
  METROFIT_EXPECT_CLOSE(s.truth.axis.Length(), 1.0, 0.0, 1e-15);
  // Every foot within the 60 degree arc: all pairwise central angles are at most the span.
  for (std::size_t i = 0; i < s.surfacePoints.size(); ++i) {
    for (std::size_t j = i + 1; j < s.surfacePoints.size(); ++j) {
      const Pt a = s.surfacePoints[i] - s.truth.centre;
      const Pt b = s.surfacePoints[j] - s.truth.centre;
      EXPECT_LE(metrofit::testing::DirectedAngle(a, b), o.arcSpan + 1e-12);
    }
  }

  // A 90 degree sphere cap: polar angles up to 45 degrees from the cap axis.
  GeneratorOptions cap = o;
  cap.arcSpan = kPi / 2.0;
  const KnownSolution sp = GenerateKnownSolution(Shape::kSphere, cap);
  for (const Pt& f : sp.surfacePoints) {
    EXPECT_LE(metrofit::testing::DirectedAngle(f - sp.truth.centre, sp.truth.axis),
              kPi / 4.0 + 1e-12);
  }
}

TEST(KnownSolution, SeedsMakeTheDataReproducible) {
  GeneratorOptions o;
  o.noiseMicrometres = 3.0;
  o.seed = 5;
  const KnownSolution a = GenerateKnownSolution(Shape::kSphere, o);
  const KnownSolution b = GenerateKnownSolution(Shape::kSphere, o);
  o.seed = 6;
  const KnownSolution c = GenerateKnownSolution(Shape::kSphere, o);
  ASSERT_EQ(a.points.size(), b.points.size());
  for (std::size_t i = 0; i < a.points.size(); ++i) EXPECT_EQ(a.points[i], b.points[i]);
  EXPECT_NE(a.points[0], c.points[0]);
}

TEST(KnownSolution, RejectsOptionsWithoutAProperShape) {
  GeneratorOptions o;
  o.pointCount = 3;  // three points cannot determine a sphere's four parameters
  EXPECT_THROW(GenerateKnownSolution(Shape::kSphere, o), std::invalid_argument);
  GeneratorOptions t;
  t.radius = 2.0;
  t.minorRadius = 3.0;
  EXPECT_THROW(GenerateKnownSolution(Shape::kTorus, t), std::invalid_argument);
  GeneratorOptions k;
  k.radius = 1.0;
  k.halfAngle = 1.2;
  k.length = 10.0;  // the band would reach past the apex
  EXPECT_THROW(GenerateKnownSolution(Shape::kCone, k), std::invalid_argument);
}

TEST(KnownSolution, BoundsShrinkWithTheResidualsAndVanishForExactData) {
  GeneratorOptions o;
  o.noiseMicrometres = 10.0;
  o.arcSpan = kPi / 2.0;
  const KnownSolution noisy = GenerateKnownSolution(Shape::kSphere, o);
  const auto b = metrofit::testing::BoundsFor(noisy, 1e-6);
  EXPECT_GT(b.position, 0.0);
  EXPECT_GT(b.radius, 0.0);
  EXPECT_TRUE(std::isfinite(b.position) && std::isfinite(b.radius));
  // Bounds scale with the root of the sum of squares: a tenth of the noise, a tenth of the
  // bound.
  o.noiseMicrometres = 1.0;
  const KnownSolution quiet = GenerateKnownSolution(Shape::kSphere, o);
  const auto bq = metrofit::testing::BoundsFor(quiet, 1e-6);
  METROFIT_EXPECT_CLOSE(bq.position, 0.1 * b.position, 1e-9, 0.0);
  // Holding the radius fixed can only tighten the centre.
  const auto bf = metrofit::testing::BoundsFor(noisy, 1e-6, {3});
  EXPECT_LE(bf.position, b.position);
  EXPECT_EQ(bf.radius, 0.0);
  o.noiseMicrometres = 0.0;
  const auto b0 = metrofit::testing::BoundsFor(GenerateKnownSolution(Shape::kSphere, o), 1e-6);
  EXPECT_EQ(b0.position, 0.0);
}

}  // namespace
