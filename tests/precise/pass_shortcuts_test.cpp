// The passes over the points that fits on millions of points save, each against the full
// computation it replaces: the sums specialised to a shape's free parameters, the spreads from
// the eigenvalues of the scatter, the statistics handed to Describe with its fused pass, the
// stop before a negligible last step, and all of them together in whole fits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "precise/free_sums.h"
#include "precise/point_stats.h"
#include "precise/precise_fit.h"
#include "precise/shape_problems.h"
#include "precise/solver.h"
#include "precise_test_util.h"
#include "support/known_solution.h"

namespace metrofit::precise {
namespace {

namespace mt = ::metrofit::testing;
using testing::PointRequest;

// Agreement asked of a shortcut with the computation it replaces: rounding only.
constexpr double kSameRel = 1e-12;
// Points of the clouds: above the count from which starts are screened on a subsample.
constexpr int kPoints = 20000;
// Distance of the features from the origin (mm): a part far out on a machine's table.
constexpr double kOffset = 500.0;
// The uncertainties come from central differences of the reported values over steps of 1e-6 of
// the data size: the rounding of values at 500 mm over such a step leaves them good to about
// 1e-9, so a state moved by rounding moves them by that much.
constexpr double kUncertaintyRel = 1e-8;
// Spreads from the eigenvalues agree with measured ones to the eigenvalues' rounding (a few n
// eps of the scatter, n = kPoints), far below this.
constexpr double kSpreadRel = 1e-9;

// |a - b| within kSameRel of the larger magnitude, or of `floor` for values near zero (the
// components of a unit axis, or entries that cancel).
void ExpectSame(double a, double b, double floor, const std::string& what, double rel = kSameRel) {
  const double scale = std::max({std::fabs(a), std::fabs(b), floor});
  EXPECT_LE(std::fabs(a - b), rel * scale) << what << ": " << a << " vs " << b;
}

mt::KnownSolution Cloud(mt::Shape shape, std::uint64_t seed) {
  mt::GeneratorOptions o;
  o.pointCount = kPoints;
  o.noiseMicrometres = 1.0;
  o.centreOffset = kOffset;
  o.axisTilt = 0.6;
  o.radius = 50.0;
  o.length = 120.0;
  o.arcSpan = shape == mt::Shape::kSphere ? 3.5 : 6.283185307179586;  // a sphere cap of 200 deg
  o.seed = seed;
  return mt::GenerateKnownSolution(shape, o);
}

struct ShapeCase {
  mt::Shape generator;
  Shape shape;
};
const ShapeCase kCases[] = {
    {mt::Shape::kSphere, Shape::kSphere},
    {mt::Shape::kPlane, Shape::kPlane},
    {mt::Shape::kCylinder, Shape::kCylinder},
};

// A start near the truth: centre and axis moved, the radius off.
Feature NearTruth(Shape shape, const mt::ShapeTruth& t) {
  Feature f;
  f.shape = shape;
  f.center = t.centre + Vec3(0.03, -0.02, 0.04);
  f.axis = (t.axis + Vec3(0.002, -0.001, 0.0)).Normalize();
  f.size[0] = t.radius + 0.05;
  return f;
}

bool FastPathTaken(Shape shape, const Normal& ne) {
  switch (shape) {
    case Shape::kSphere:
      return SphereSums::Matches(ne);
    case Shape::kPlane:
      return PlaneSums::Matches(ne);
    default:
      return CylinderSums::Matches(ne);
  }
}

TEST(PreciseShortcuts, FreeSumsMatchTheGeneralPass) {
  for (const ShapeCase& sc : kCases) {
    const mt::KnownSolution s = Cloud(sc.generator, 11);
    PointRequest pr(sc.shape, s.points);
    const PointStats st = ComputeStats(pr.request.xyz, pr.request.count);
    const Problem problem = MakeProblem(pr.request, st, Holds{}, Stage::kWhole);
    const State state = StateFromFeature(NearTruth(sc.shape, s.truth), st.centroid, 0.0, false);
    Normal fast, full;
    PrepareNormal(problem, &fast);
    PrepareNormal(problem, &full);
    const std::string where = mt::ShapeName(sc.generator);
    ASSERT_TRUE(FastPathTaken(sc.shape, fast)) << where;
    const double sumFast = AccumulatorFor(sc.shape, Stage::kWhole, true)(problem, state, &fast);
    const double sumFull = AccumulatorFor(sc.shape, Stage::kWhole, false)(problem, state, &full);
    ExpectSame(sumFast, sumFull, 0.0, where + " sum");
    ExpectSame(fast.noise, full.noise, 0.0, where + " noise");
    ASSERT_EQ(fast.p, full.p);
    for (int i = 0; i < full.p; ++i) {
      // Entries that cancel are compared on the scale Cauchy-Schwarz gives them.
      ExpectSame(fast.g[i], full.g[i], std::sqrt(full.a[i][i] * sumFull), where + " g");
      for (int j = 0; j < full.p; ++j) {
        ExpectSame(fast.a[i][j], full.a[i][j], std::sqrt(full.a[i][i] * full.a[j][j]),
                   where + " a");
      }
    }
  }
}

TEST(PreciseShortcuts, SpherePairsTakeAnOddCountAndAPointAtTheCentre) {
  // The sphere's pass goes two points at a time: a last point without a partner, and a point
  // at the centre (whose normal is a convention) in the middle of the pairs.
  const mt::KnownSolution s = Cloud(mt::Shape::kSphere, 17);
  std::vector<Vec3> points = s.points;
  const Feature f = NearTruth(Shape::kSphere, s.truth);
  points[1001] = f.center;
  points.pop_back();
  ASSERT_EQ(points.size() % 2, 1u);
  PointRequest pr(Shape::kSphere, points);
  const PointStats st = ComputeStats(pr.request.xyz, pr.request.count);
  const Problem problem = MakeProblem(pr.request, st, Holds{}, Stage::kWhole);
  const State state = StateFromFeature(f, st.centroid, 0.0, false);
  Normal fast, full;
  PrepareNormal(problem, &fast);
  PrepareNormal(problem, &full);
  const double sumFast = AccumulatorFor(Shape::kSphere, Stage::kWhole, true)(problem, state, &fast);
  const double sumFull = Accumulate<SphereModel>(problem, state, &full);
  ExpectSame(sumFast, sumFull, 0.0, "sum");
  ExpectSame(fast.noise, full.noise, 0.0, "noise");
  for (int i = 0; i < full.p; ++i) {
    ExpectSame(fast.g[i], full.g[i], std::sqrt(full.a[i][i] * sumFull), "g");
    for (int j = 0; j < full.p; ++j) {
      ExpectSame(fast.a[i][j], full.a[i][j], std::sqrt(full.a[i][i] * full.a[j][j]), "a");
    }
  }
}

TEST(PreciseShortcuts, SpreadsFromEigenvaluesMatchMeasuredOnes) {
  for (const ShapeCase& sc : kCases) {
    const mt::KnownSolution s = Cloud(sc.generator, 12);
    PointRequest pr(sc.shape, s.points);
    SpreadRequest asked;
    asked.line = true;
    asked.plane = sc.shape != Shape::kPlane;
    SpreadRequest measured = asked;
    measured.alwaysMeasure = true;
    const PointStats a = ComputeStats(pr.request.xyz, pr.request.count, asked);
    const PointStats b = ComputeStats(pr.request.xyz, pr.request.count, measured);
    const std::string where = mt::ShapeName(sc.generator);
    EXPECT_NEAR(a.lineSpread, b.lineSpread, kSpreadRel * b.lineSpread) << where;
    EXPECT_NEAR(a.planeSpread, b.planeSpread, kSpreadRel * b.planeSpread) << where;
    // The eigenvalues gave them (these clouds have volume, or breadth for the plane).
    const double n = static_cast<double>(pr.request.count);
    EXPECT_EQ(a.lineSpread, std::sqrt((a.eigenvalue[0] + a.eigenvalue[1]) / n)) << where;
    if (asked.plane) {
      EXPECT_EQ(a.planeSpread, std::sqrt(a.eigenvalue[0] / n)) << where;
    }
    EXPECT_EQ(a.centroid.x, b.centroid.x) << where;
    EXPECT_EQ(a.scale, b.scale) << where;
  }
}

TEST(PreciseShortcuts, FlatPointsHaveTheirPlaneSpreadMeasured) {
  // The thickness of a plane 10 nm thin is lost in the rounding of the scatter's large
  // eigenvalues: it must come from the points, exactly as the full computation has it.
  mt::GeneratorOptions o;
  o.pointCount = kPoints;
  o.noiseMicrometres = 0.01;
  o.centreOffset = kOffset;
  o.axisTilt = 0.6;
  o.length = 120.0;
  o.seed = 13;
  const mt::KnownSolution s = mt::GenerateKnownSolution(mt::Shape::kPlane, o);
  PointRequest pr(Shape::kPlane, s.points);
  SpreadRequest asked;
  asked.line = asked.plane = true;
  SpreadRequest measured = asked;
  measured.alwaysMeasure = true;
  const PointStats a = ComputeStats(pr.request.xyz, pr.request.count, asked);
  const PointStats b = ComputeStats(pr.request.xyz, pr.request.count, measured);
  EXPECT_EQ(a.planeSpread, b.planeSpread);
  EXPECT_EQ(a.lineSpread, b.lineSpread);
  EXPECT_GT(a.planeSpread, 0.0);
}

Feature FeatureOf(Shape shape, const FitResult& r) {
  Feature f;
  f.shape = shape;
  f.center = testing::Center(r);
  if (r.axis) f.axis = testing::Axis(r);
  if (r.radius) f.size[0] = *r.radius;
  return f;
}

// Every number of two descriptions of the same feature agrees to rounding.
void ExpectSameDescription(const FitResult& a, const FitResult& b, const std::string& where) {
  ExpectSame(a.rms, b.rms, 0.0, where + " rms");
  ExpectSame(a.sigma, b.sigma, 0.0, where + " sigma");
  ExpectSame(a.min_deviation, b.min_deviation, kOffset, where + " min deviation");
  ExpectSame(a.max_deviation, b.max_deviation, kOffset, where + " max deviation");
  ASSERT_EQ(a.parameters.size(), b.parameters.size()) << where;
  for (std::size_t i = 0; i < a.parameters.size(); ++i) {
    const Parameter& p = a.parameters[i];
    const Parameter& q = b.parameters[i];
    ASSERT_EQ(p.value.size(), q.value.size()) << where;
    for (std::size_t k = 0; k < p.value.size(); ++k) {
      ExpectSame(p.value[k], q.value[k], 1.0, where + " " + p.name);
      ExpectSame(p.uncertainty[k], q.uncertainty[k], 0.0, where + " u(" + p.name + ")",
                 kUncertaintyRel);
    }
  }
  ASSERT_EQ(a.deviations.size(), b.deviations.size()) << where;
  for (std::size_t k = 0; k < a.deviations.size(); ++k) {
    // Deviations are lengths at 500 mm: their rounding is that of the coordinates.
    ExpectSame(a.deviations[k], b.deviations[k], kOffset, where + " deviation");
    for (int c = 0; c < 3; ++c) {
      ExpectSame(a.residuals[k][c], b.residuals[k][c], kOffset, where + " residual");
    }
  }
}

TEST(PreciseShortcuts, DescribeWithGivenStatsAndFusedPassMatchesTheFullOne) {
  for (const ShapeCase& sc : kCases) {
    const mt::KnownSolution s = Cloud(sc.generator, 14);
    PointRequest pr(sc.shape, s.points);
    const FitResult fit = FitPrecise(pr.request);
    ASSERT_EQ(fit.status, Status::kOk) << fit.message;
    const Feature f = FeatureOf(sc.shape, fit);
    SpreadRequest spreads;
    spreads.line = true;
    const PointStats st = ComputeStats(pr.request.xyz, pr.request.count, spreads);
    FitResult fused, full;
    Describe(pr.request, f, st, fused);
    Request plain = pr.request;
    plain.shortcuts = false;
    Describe(plain, f, full);
    ExpectSameDescription(fused, full, mt::ShapeName(sc.generator));
  }
}

// Passes of the counting accumulate below: a test's own tally.
int gPasses = 0;
double CountingSphere(const Problem& problem, const State& s, Normal* ne) {
  ++gPasses;
  return AccumulateFree<SphereSums>(problem, s, ne);
}

TEST(PreciseShortcuts, StopBeforeNegligibleStepSavesOnePassAndMatches) {
  const mt::KnownSolution s = Cloud(mt::Shape::kSphere, 15);
  PointRequest pr(Shape::kSphere, s.points);
  const PointStats st = ComputeStats(pr.request.xyz, pr.request.count);
  Problem problem = MakeProblem(pr.request, st, Holds{}, Stage::kWhole);
  const State start = StateFromFeature(NearTruth(Shape::kSphere, s.truth), st.centroid, 0.0, false);
  ASSERT_TRUE(problem.stopBeforeNegligible);
  gPasses = 0;
  const Solution quick = Minimise(problem, &CountingSphere, start, 200);
  const int quickPasses = gPasses;
  problem.stopBeforeNegligible = false;
  gPasses = 0;
  const Solution full = Minimise(problem, &CountingSphere, start, 200);
  const int fullPasses = gPasses;
  ASSERT_TRUE(quick.converged);
  ASSERT_TRUE(full.converged);
  EXPECT_EQ(quickPasses + 1, fullPasses);
  ExpectSame(quick.state.c.x, full.state.c.x, 1.0, "centre x");
  ExpectSame(quick.state.c.y, full.state.c.y, 1.0, "centre y");
  ExpectSame(quick.state.c.z, full.state.c.z, 1.0, "centre z");
  ExpectSame(quick.state.size[0], full.state.size[0], 1.0, "radius");
  ExpectSame(quick.sum, full.sum, 0.0, "sum of squares");
}

TEST(PreciseShortcuts, WholeFitsMatchTheFullComputation) {
  for (const ShapeCase& sc : kCases) {
    const mt::KnownSolution s = Cloud(sc.generator, 16);
    PointRequest pr(sc.shape, s.points);
    const FitResult quick = FitPrecise(pr.request);
    Request plain = pr.request;
    plain.shortcuts = false;
    const FitResult full = FitPrecise(plain);
    const std::string where = mt::ShapeName(sc.generator);
    ASSERT_EQ(quick.status, Status::kOk) << where << ": " << quick.message;
    ASSERT_EQ(full.status, Status::kOk) << where << ": " << full.message;
    EXPECT_LE(quick.iterations, full.iterations) << where;
    ExpectSameDescription(quick, full, where);
  }
}

}  // namespace
}  // namespace metrofit::precise
