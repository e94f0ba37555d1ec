// Monte Carlo check of the standard uncertainties the precise method reports: the same
// nominal points are measured again and again with Gaussian noise of known sigma (fixed seeds),
// fitted each time, and the empirical standard deviation of every scalar parameter is compared
// with the mean of the uncertainties reported for it.
//
// Tolerance. From n independent repetitions an empirical standard deviation is uncertain by
// about 1/sqrt(2n) of itself: 3.5 % for the 400 repetitions used here, and the mean of the
// reported uncertainties varies less. The ratio must lie in [0.8, 1.25], six standard errors
// either way, so a correct propagation never fails by chance; a propagation that is wrong by
// a factor (a lost sqrt(2), a wrong number of degrees of freedom on few points, a Jacobian
// column with the wrong lever arm) moves the ratio out of it. The noise is 5 micrometres on
// features of 10 to 40 mm, small enough for the first-order propagation to hold to 1e-3.
//
// The variance factor is checked the same way for the surfaces (one distance per point): the
// mean of sigma^2 = S / (n - p) must be the noise variance within 10 % (its relative standard
// error over 400 fits of 24 to 30 points is about 1.5 %).
//
// Parameters that the fit places by convention rather than estimates (the position along the
// axis of the point nearest the centroid, the position within a plane) are not compared: the
// cylinder, line and plane are therefore set along the z axis, so that x and y of their centre
// lie across the axis. The other features are tilted and all of their coordinates compared.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "metrofit.h"
#include "metrofit/fit.h"
#include "support/known_solution.h"
#include "support/noise_propagation.h"
#include "support/precise_known_solution.h"

namespace {

namespace mt = metrofit::testing;
using mt::Pt;

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;

constexpr int kRepetitions = 400;
constexpr double kNoise = 0.005;  // mm, standard deviation of each coordinate
// Empirical standard deviation over mean reported uncertainty (see the file comment).
constexpr double kLowestRatio = 0.8;
constexpr double kHighestRatio = 1.25;
// Mean variance factor over the noise variance (see the file comment).
constexpr double kVarianceFactorTolerance = 0.1;

// One scalar compared: the index-th value of the named parameter.
struct Tracked {
  const char* name;
  int index;
};

struct McCase {
  mt::Shape shape;
  metrofit::Shape fitShape;
  mt::PreciseOptions options;
  std::vector<Tracked> tracked;
  int freeParameters;  // for the variance factor; 0 where it is not checked
};

struct Series {
  std::vector<double> values;
  double uncertaintySum = 0.0;
};

double StandardDeviation(const std::vector<double>& v) {
  double mean = 0.0;
  for (double x : v) mean += x;
  mean /= static_cast<double>(v.size());
  double ss = 0.0;
  for (double x : v) ss += (x - mean) * (x - mean);
  return std::sqrt(ss / static_cast<double>(v.size() - 1));
}

// Records the tracked values of one fit; the axis is turned to the generating sense so that
// an arbitrary sign does not look like spread.
void Record(const McCase& c, const Pt& truthAxis, const metrofit::FitResult& r,
            std::vector<Series>* series) {
  double sign = 1.0;
  if (r.axis && truthAxis.Dot(Pt((*r.axis)[0], (*r.axis)[1], (*r.axis)[2])) < 0.0) sign = -1.0;
  for (std::size_t i = 0; i < c.tracked.size(); ++i) {
    const Tracked& t = c.tracked[i];
    const metrofit::Parameter* p = r.Find(t.name);
    ASSERT_NE(p, nullptr) << t.name;
    const std::size_t k = static_cast<std::size_t>(t.index);
    ASSERT_GT(p->value.size(), k) << t.name;
    ASSERT_GT(p->uncertainty.size(), k) << t.name;
    const double s = std::string(t.name) == "axis" ? sign : 1.0;
    (*series)[i].values.push_back(s * p->value[k]);
    (*series)[i].uncertaintySum += p->uncertainty[k];
  }
}

void RunMonteCarlo(const McCase& c) {
  const mt::KnownSolution nominal = mt::GeneratePreciseKnownSolution(c.shape, c.options);
  std::vector<Series> series(c.tracked.size());
  mt::PortableRandom rng(c.options.seed * 7919 + 1);
  double varianceFactorSum = 0.0;
  int converged = 0;
  for (int rep = 0; rep < kRepetitions; ++rep) {
    std::vector<metrofit::Point> points;
    for (const Pt& f : nominal.surfacePoints) {
      const double x = f.x + kNoise * rng.Normal();
      const double y = f.y + kNoise * rng.Normal();
      const double z = f.z + kNoise * rng.Normal();
      points.push_back(metrofit::Point{x, y, z});
    }
    metrofit::FitOptions options;
    options.shape = c.fitShape;
    options.method = metrofit::Method::kPrecise;
    const metrofit::FitResult r = metrofit::Fit(points, options);
    if (r.status != metrofit::Status::kOk || !r.valid) continue;
    ++converged;
    varianceFactorSum += r.sigma * r.sigma;
    Record(c, nominal.truth.axis, r, &series);
    if (::testing::Test::HasFatalFailure()) return;
  }
  ASSERT_EQ(converged, kRepetitions) << "fits that did not converge";
  const char* shape = mt::ShapeName(c.shape);
  for (std::size_t i = 0; i < c.tracked.size(); ++i) {
    const double empirical = StandardDeviation(series[i].values);
    const double reported = series[i].uncertaintySum / kRepetitions;
    const double ratio = empirical / reported;
    std::printf("[mc] %-8s %-12s[%d]: empirical sd %.3e, mean reported %.3e, ratio %.3f\n", shape,
                c.tracked[i].name, c.tracked[i].index, empirical, reported, ratio);
    EXPECT_GE(ratio, kLowestRatio)
        << shape << " " << c.tracked[i].name << "[" << c.tracked[i].index << "]";
    EXPECT_LE(ratio, kHighestRatio)
        << shape << " " << c.tracked[i].name << "[" << c.tracked[i].index << "]";
  }
  if (c.freeParameters > 0) {
    const double ratio = varianceFactorSum / kRepetitions / (kNoise * kNoise);
    std::printf("[mc] %-8s mean sigma^2 / noise^2 = %.3f\n", shape, ratio);
    EXPECT_NEAR(ratio, 1.0, kVarianceFactorTolerance) << shape << " variance factor";
  }
}

mt::PreciseOptions Nominal(int points, double radius, double arc, double tilt) {
  mt::PreciseOptions o;
  o.relativeNoise = 0.0;
  o.pointCount = points;
  o.radius = radius;
  o.arcSpan = arc;
  o.axisTilt = tilt;
  o.centreOffset = 500.0;
  return o;
}

const std::vector<Tracked> kCentre{{"center", 0}, {"center", 1}, {"center", 2}};

std::vector<Tracked> With(std::vector<Tracked> a, const std::vector<Tracked>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const std::vector<Tracked> kAxis{{"axis", 0}, {"axis", 1}, {"axis", 2}};
const std::vector<Tracked> kAcross{{"center", 0}, {"center", 1}, {"axis", 0}, {"axis", 1}};

TEST(PreciseUncertainty, SphereCap90) {
  McCase c{mt::Shape::kSphere, metrofit::Shape::kSphere, Nominal(30, 12.5, 90 * kDegree, 0.6),
           With(kCentre, {{"radius", 0}}), 4};
  RunMonteCarlo(c);
}

TEST(PreciseUncertainty, CylinderSector120) {
  mt::PreciseOptions o = Nominal(30, 15.0, 120 * kDegree, 0.0);
  o.length = 30.0;
  McCase c{mt::Shape::kCylinder, metrofit::Shape::kCylinder, o, With(kAcross, {{"radius", 0}}), 5};
  RunMonteCarlo(c);
}

TEST(PreciseUncertainty, CircleArc90) {
  McCase c{mt::Shape::kCircle, metrofit::Shape::kCircle, Nominal(24, 20.0, 90 * kDegree, 0.6),
           With(With(kCentre, kAxis), {{"radius", 0}}), 0};
  RunMonteCarlo(c);
}

TEST(PreciseUncertainty, PlaneStrip) {
  mt::PreciseOptions o = Nominal(24, 10.0, 2 * kPi, 0.0);
  o.length = 60.0;
  o.width = 20.0;
  McCase c{
      mt::Shape::kPlane, metrofit::Shape::kPlane, o, {{"center", 2}, {"axis", 0}, {"axis", 1}}, 3};
  RunMonteCarlo(c);
}

TEST(PreciseUncertainty, Line) {
  mt::PreciseOptions o = Nominal(20, 10.0, 2 * kPi, 0.0);
  o.length = 50.0;
  McCase c{mt::Shape::kLine, metrofit::Shape::kLine, o, kAcross, 0};
  RunMonteCarlo(c);
}

TEST(PreciseUncertainty, ConeSector180) {
  mt::PreciseOptions o = Nominal(30, 20.0, 180 * kDegree, 0.6);
  o.halfAngle = 0.5;
  o.length = 20.0;
  McCase c{mt::Shape::kCone, metrofit::Shape::kCone, o,
           With(With(kCentre, kAxis), {{"half_angle", 0}}), 6};
  RunMonteCarlo(c);
}

TEST(PreciseUncertainty, Torus) {
  mt::PreciseOptions o = Nominal(30, 30.0, 2 * kPi, 0.6);
  o.minorRadius = 6.0;
  McCase c{mt::Shape::kTorus, metrofit::Shape::kTorus, o,
           With(With(kCentre, kAxis), {{"major_radius", 0}, {"minor_radius", 0}}), 7};
  RunMonteCarlo(c);
}

}  // namespace
