// Checks of the exact known-solution generator, independently of the fitting library: at the
// generating feature the gradient of the objective vanishes, with distance formulas written
// out afresh and differenced in a natural parametrisation (centre, a rotation vector for the
// axis, sizes). The circle is checked as it is defined: the gradient of the plane's objective
// over the points, then that of the 2-D circle's over the points projected into the plane.
// Also: the deviations have the requested size and the data are reproducible.
#include "support/precise_known_solution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "metrofit.h"
#include "support/geometry_compare.h"
#include "support/noise_propagation.h"

namespace {

using metrofit::testing::GeneratePreciseKnownSolution;
using metrofit::testing::KnownSolution;
using metrofit::testing::PreciseCase;
using metrofit::testing::PreciseOptions;
using metrofit::testing::Pt;
using metrofit::testing::Shape;

// Central-difference step relative to the feature size. Angles are differenced as lengths
// (angle times feature size) so that every component has the same scale.
constexpr double kStep = 1e-6;
// The line's squared distance is differenced directly (it is a polynomial in the centre and
// smooth in the axis); its step is small against the distances of 1e-4 mm and more.
constexpr double kLineStep = 1e-9;
// A vanishing gradient: every component below this fraction of the largest sum of the
// magnitudes of the per-point contributions. Differencing local coordinates costs about 1e-9
// of that (also in the directions the feature does not depend on, such as a cylinder's centre
// along its axis, where every contribution is rounding); a deviation vector left unprojected
// gives about 1 / sqrt(n), i.e. 0.1.
constexpr double kVanishingFraction = 1e-7;
// The scaled deviations have the requested root mean square to rounding.
constexpr double kRmsRelativeTolerance = 1e-12;

// The axis u rotated by the rotation vector w (Rodrigues).
Pt Rotate(const Pt& u, const Pt& w) {
  const double angle = w.Length();
  if (angle == 0.0) return u;
  const Pt k = w * (1.0 / angle);
  return u * std::cos(angle) + k.Cross(u) * std::sin(angle) +
         k * (k.Dot(u) * (1.0 - std::cos(angle)));
}

// Distance of a point (relative to the generating centre) from the feature with natural
// parameters v = (centre offset 3, rotation vector times size 3, sizes...; a cone's half angle
// times size).
using Distance = std::function<double(const std::vector<double>& v, const Pt& p)>;

Distance NaturalDistance(Shape shape, const Pt& axis, double size) {
  return [shape, axis, size](const std::vector<double>& v, const Pt& p) {
    const Pt d = p - Pt(v[0], v[1], v[2]);
    const Pt u = Rotate(axis, Pt(v[3], v[4], v[5]) * (1.0 / size));
    const double h = d.Dot(u);
    const double rho = d.Cross(u).Length();
    switch (shape) {
      case Shape::kPlane:
        return h;
      case Shape::kLine:
        return rho * rho;  // squared: rho is not smooth where it vanishes
      case Shape::kSphere:
        return d.Length() - v[6];
      case Shape::kCylinder:
        return rho - v[6];
      case Shape::kCone:
        return rho * std::cos(v[6] / size) - h * std::sin(v[6] / size);
      case Shape::kTorus:
        return std::hypot(rho - v[6], h) - v[7];
      case Shape::kCircle:
        break;
    }
    return std::nan("");
  };
}

// The largest gradient component of sum d_i^2 at v over the largest sum of the per-point
// magnitudes.
double RelativeGradient(const Distance& dist, const std::vector<double>& v,
                        const std::vector<Pt>& points, double h, bool squared = false) {
  double largestSum = 0.0, largestMagnitude = 0.0;
  for (std::size_t j = 0; j < v.size(); ++j) {
    std::vector<double> plus = v, minus = v;
    plus[j] += h;
    minus[j] -= h;
    double sum = 0.0, magnitude = 0.0;
    for (const Pt& p : points) {
      // 2 d dd/dv_j: differencing d itself keeps the truncation error relative to dd/dv_j,
      // where differencing d^2 would leave h^2 / size against a tiny d.
      const double dp = dist(plus, p), dm = dist(minus, p);
      const double g = squared ? (dp - dm) / (2.0 * h) : dist(v, p) * (dp - dm) / h;
      sum += g;
      magnitude += std::fabs(g);
    }
    largestSum = std::max(largestSum, std::fabs(sum));
    largestMagnitude = std::max(largestMagnitude, magnitude);
  }
  return largestSum / largestMagnitude;
}

std::vector<Pt> Local(const KnownSolution& s) {
  std::vector<Pt> p;
  for (const Pt& q : s.points) p.push_back(q - s.truth.centre);
  return p;
}

// The circle's two stages: the plane through the points, then the circle of their
// projections into it.
double CircleRelativeGradient(const KnownSolution& s, double lengthStep) {
  const std::vector<Pt> local = Local(s);
  const Pt u = s.truth.axis;
  const double plane = RelativeGradient(NaturalDistance(Shape::kPlane, u, s.truth.radius),
                                        {0, 0, 0, 0, 0, 0}, local, lengthStep);
  std::vector<Pt> projected;
  for (const Pt& p : local) projected.push_back(p - u * p.Dot(u));
  const Distance inPlane = [u](const std::vector<double>& v, const Pt& p) {
    const Pt d = p - Pt(v[0], v[1], v[2]);
    return (d - u * d.Dot(u)).Length() - v[3];
  };
  const double circle = RelativeGradient(inPlane, {0, 0, 0, s.truth.radius}, projected, lengthStep);
  return std::max(plane, circle);
}

double GeneratorRelativeGradient(Shape shape, const KnownSolution& s, double size) {
  const double lengthStep = kStep * size;
  if (shape == Shape::kCircle) return CircleRelativeGradient(s, lengthStep);
  std::vector<double> v{0, 0, 0, 0, 0, 0};
  if (shape == Shape::kSphere || shape == Shape::kCylinder) v.push_back(s.truth.radius);
  if (shape == Shape::kCone) v.push_back(s.truth.halfAngle * size);
  if (shape == Shape::kTorus) {
    v.push_back(s.truth.radius);
    v.push_back(s.truth.minorRadius);
  }
  if (shape == Shape::kLine) {
    return RelativeGradient(NaturalDistance(shape, s.truth.axis, size), v, Local(s),
                            kLineStep * size, true);
  }
  return RelativeGradient(NaturalDistance(shape, s.truth.axis, size), v, Local(s), lengthStep);
}

TEST(PreciseKnownSolution, GradientVanishesAtTheGeneratingFeature) {
  metrofit::testing::WorstError worst("relative gradient at the generating feature");
  for (const PreciseCase& c : metrofit::testing::PreciseCases()) {
    SCOPED_TRACE(c.name);
    const KnownSolution s = GeneratePreciseKnownSolution(c.shape, c.options);
    const double size = metrofit::testing::FeatureSize(c.shape, c.options);
    const double g = GeneratorRelativeGradient(c.shape, s, size);
    EXPECT_LE(g, kVanishingFraction);
    worst.Update(g, c.name);
  }
}

TEST(PreciseKnownSolution, UnprojectedDeviationsWouldBeSeen) {
  // The same check on points whose deviations are scaled unevenly (no longer orthogonal to
  // the columns) must fail, or the check above proves nothing.
  for (const PreciseCase& c : metrofit::testing::PreciseCases()) {
    SCOPED_TRACE(c.name);
    KnownSolution s = GeneratePreciseKnownSolution(c.shape, c.options);
    for (std::size_t i = 0; i < s.points.size(); i += 2) s.points[i] += s.deviations[i];
    const double size = metrofit::testing::FeatureSize(c.shape, c.options);
    EXPECT_GT(GeneratorRelativeGradient(c.shape, s, size), 1e3 * kVanishingFraction);
  }
}

TEST(PreciseKnownSolution, DeviationsHaveTheRequestedSize) {
  for (const PreciseCase& c : metrofit::testing::PreciseCases()) {
    SCOPED_TRACE(c.name);
    const KnownSolution s = GeneratePreciseKnownSolution(c.shape, c.options);
    const double want =
        c.options.relativeNoise * metrofit::testing::FeatureSize(c.shape, c.options);
    EXPECT_NEAR(s.rms, want, kRmsRelativeTolerance * want);
    ASSERT_EQ(s.points.size(), static_cast<std::size_t>(c.options.pointCount));
  }
}

// The sets can hold a fit to 1e-9 mm and 1e-10 rad: the coordinates are stored with a
// rounding of up to eps |p| each, which moves the exact least-squares solution of the stored
// points by at most sqrt(C_jj) |e| in parameter j (C = (J^T J)^-1, |e| the length of the
// rounding vector; see noise_propagation.h). That must stay a small fraction of the tolerance.
constexpr double kStoredRounding = 1.1102230246251565e-16;  // unit roundoff of double
constexpr double kLengthFitTolerance = 1e-9;                // mm
constexpr double kAngleFitTolerance = 1e-10;                // rad
constexpr double kFloorFraction = 0.1;

// The tilts (and the cone's half angle) in the minimal parametrisation of known_solution.h.
bool IsAngle(Shape shape, int k) {
  switch (shape) {
    case Shape::kLine:
      return k >= 2;
    case Shape::kPlane:
      return k <= 1;
    case Shape::kCylinder:
      return k == 2 || k == 3;
    case Shape::kCone:
      return k >= 3;
    case Shape::kCircle:
    case Shape::kTorus:
      return k == 3 || k == 4;
    case Shape::kSphere:
      return false;
  }
  return false;
}

TEST(PreciseKnownSolution, StoredPointsDetermineTheSolutionFarBelowTheFitTolerance) {
  metrofit::testing::WorstError worst("parameter movement from stored rounding / fit tolerance");
  for (const PreciseCase& c : metrofit::testing::PreciseCases()) {
    SCOPED_TRACE(c.name);
    const KnownSolution s = GeneratePreciseKnownSolution(c.shape, c.options);
    const metrofit::testing::DenseMatrix j =
        metrofit::testing::ResidualJacobian(s.truth, s.surfacePoints);
    std::vector<int> columns;
    for (int k = 0; k < j.cols; ++k) columns.push_back(k);
    const metrofit::testing::DenseMatrix cov = metrofit::testing::NormalInverse(j, columns);
    ASSERT_EQ(cov.rows, j.cols) << "singular normal matrix";
    double rounding = 0.0;
    for (const Pt& p : s.points) rounding += std::pow(kStoredRounding * p.Length(), 2) * 3.0;
    double fraction = 0.0;  // largest movement over its tolerance
    for (int k = 0; k < cov.rows; ++k) {
      const double tolerance = IsAngle(c.shape, k) ? kAngleFitTolerance : kLengthFitTolerance;
      fraction = std::max(fraction, std::sqrt(cov(k, k) * rounding) / tolerance);
    }
    EXPECT_LE(fraction, kFloorFraction);
    worst.Update(fraction, c.name);
  }
}

TEST(PreciseKnownSolution, SameSeedSamePoints) {
  PreciseOptions o;
  o.arcSpan = 0.5;
  const KnownSolution a = GeneratePreciseKnownSolution(Shape::kCircle, o);
  const KnownSolution b = GeneratePreciseKnownSolution(Shape::kCircle, o);
  o.seed = 2;
  const KnownSolution other = GeneratePreciseKnownSolution(Shape::kCircle, o);
  ASSERT_EQ(a.points.size(), b.points.size());
  for (std::size_t i = 0; i < a.points.size(); ++i) EXPECT_EQ(a.points[i], b.points[i]);
  EXPECT_NE(a.points[0], other.points[0]);
}

TEST(PreciseKnownSolution, RejectsImpossibleShapes) {
  PreciseOptions o;
  o.radius = 5.0;
  o.minorRadius = 6.0;
  EXPECT_THROW(GeneratePreciseKnownSolution(Shape::kTorus, o), std::invalid_argument);
  o = PreciseOptions();
  o.halfAngle = 1.5;
  o.radius = 1.0;
  o.length = 10.0;
  EXPECT_THROW(GeneratePreciseKnownSolution(Shape::kCone, o), std::invalid_argument);
}

}  // namespace
