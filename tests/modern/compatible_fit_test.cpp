// Method::kCompatible gives exactly what the KFit* function gives for the same points, with
// the reference point at the centroid (where the host application puts it).
#include <gtest/gtest.h>

#include <cmath>

#include "metrofit.h"
#include "metrofit/fit.h"
#include "support/known_solution.h"

namespace metrofit {
namespace {

using testing::GenerateKnownSolution;
using testing::GeneratorOptions;
using Pt = KPt3<double>;

std::vector<Point> ToPoints(const std::vector<Pt>& pts) {
  std::vector<Point> points;
  for (const Pt& p : pts) points.push_back({p.x, p.y, p.z});
  return points;
}

Pt Centroid(const std::vector<Pt>& pts) {
  Pt sum;
  for (const Pt& p : pts) sum += p;
  return sum * (1.0 / static_cast<double>(pts.size()));
}

// The KFit* function run directly, as the host application would.
CFitResult Direct(std::int32_t (*fit)(CFitInput&, CFitResult&), const std::vector<Pt>& pts) {
  CFitInput in;
  in.m_points = pts;
  in.m_refPoint = Centroid(pts);
  CFitResult out;
  fit(in, out);
  return out;
}

void ExpectSameStatistics(const FitResult& result, const CFitResult& out) {
  EXPECT_EQ(result.valid, out.m_valid == 1);
  EXPECT_EQ(result.status, out.m_valid == 1 ? Status::kOk : Status::kFailed);
  EXPECT_EQ(result.method, Method::kCompatible);
  EXPECT_EQ(result.rms, out.m_rms);
  EXPECT_EQ(result.sigma, out.m_sigma);
  EXPECT_EQ(result.min_deviation, out.m_minDeviation);
  EXPECT_EQ(result.max_deviation, out.m_maxDeviation);
  EXPECT_EQ(result.form_error, out.m_formError);
  EXPECT_EQ(result.iterations, out.m_iterations);
}

void ExpectSamePoint(const std::array<double, 3>& a, const Pt& b) {
  EXPECT_EQ(a[0], b.x);
  EXPECT_EQ(a[1], b.y);
  EXPECT_EQ(a[2], b.z);
}

FitResult Compatible(Shape shape, const std::vector<Pt>& pts) {
  FitOptions options;
  options.shape = shape;
  options.method = Method::kCompatible;
  return Fit(ToPoints(pts), options);
}

GeneratorOptions Cmm(std::uint64_t seed) {
  GeneratorOptions options;
  options.pointCount = 60;
  options.noiseMicrometres = 2.0;
  options.centreOffset = 600.0;
  options.axisTilt = 0.4;
  options.seed = seed;
  return options;
}

TEST(CompatibleFit, SphereIsKFitSphere) {
  const auto data = GenerateKnownSolution(testing::Shape::kSphere, Cmm(3));
  const FitResult result = Compatible(Shape::kSphere, data.points);
  const CFitResult out = Direct(&KFitSphere, data.points);
  ASSERT_TRUE(result.valid) << result.message;
  ExpectSamePoint(result.center, out.m_center);
  EXPECT_EQ(*result.radius, out.m_size1.x);
  EXPECT_FALSE(result.axis.has_value());
  ExpectSameStatistics(result, out);
  ASSERT_EQ(result.deviations.size(), data.points.size());
  ASSERT_EQ(result.residuals.size(), data.points.size());
  // KFitSphere writes no axis: the uncertainties must not depend on one.
  for (const Parameter& p : result.parameters) {
    for (double u : p.uncertainty) {
      EXPECT_TRUE(std::isfinite(u)) << p.name;
      EXPECT_GT(u, 0.0) << p.name;
    }
  }
}

TEST(CompatibleFit, CylinderIsKFitCylinder) {
  const auto data = GenerateKnownSolution(testing::Shape::kCylinder, Cmm(5));
  const FitResult result = Compatible(Shape::kCylinder, data.points);
  const CFitResult out = Direct(&KFitCylinder, data.points);
  ASSERT_TRUE(result.valid) << result.message;
  ExpectSamePoint(result.center, out.m_center);
  ExpectSamePoint(*result.axis, out.m_axis);
  EXPECT_EQ(*result.radius, out.m_size1.x);
  ExpectSameStatistics(result, out);
}

TEST(CompatibleFit, CircleIsKFitCircle) {
  const auto data = GenerateKnownSolution(testing::Shape::kCircle, Cmm(7));
  const FitResult result = Compatible(Shape::kCircle, data.points);
  const CFitResult out = Direct(&KFitCircle, data.points);
  ASSERT_TRUE(result.valid) << result.message;
  ExpectSamePoint(result.center, out.m_center);
  ExpectSamePoint(*result.axis, out.m_axis);
  EXPECT_EQ(*result.radius, out.m_size1.x);
  ExpectSameStatistics(result, out);
}

TEST(CompatibleFit, LineIsKFitLineThroughTheCentroid) {
  const auto data = GenerateKnownSolution(testing::Shape::kLine, Cmm(9));
  const FitResult result = Compatible(Shape::kLine, data.points);
  const CFitResult out = Direct(&KFitLine, data.points);
  ASSERT_TRUE(result.valid) << result.message;
  ExpectSamePoint(result.center, out.m_center);
  ExpectSamePoint(*result.axis, out.m_axis);
  ExpectSameStatistics(result, out);
  for (double d : result.deviations) EXPECT_GE(d, 0.0);
}

TEST(CompatibleFit, PlaneReportsItsPointNearestTheCentroid) {
  const auto data = GenerateKnownSolution(testing::Shape::kPlane, Cmm(11));
  const FitResult result = Compatible(Shape::kPlane, data.points);
  const CFitResult out = Direct(&KFitPlane, data.points);
  ASSERT_TRUE(result.valid) << result.message;
  ExpectSamePoint(*result.axis, out.m_axis);
  ExpectSameStatistics(result, out);
  // The reported point lies on the plane p . u = D, straight across from the centroid.
  const Pt c(result.center[0], result.center[1], result.center[2]);
  EXPECT_NEAR(c.Dot(out.m_axis), out.m_size2.y, 1e-9);
  const Pt g = Centroid(data.points);
  const Pt across = (g - c) - out.m_axis * (g - c).Dot(out.m_axis);
  EXPECT_LT(across.Length(), 1e-9);
}

TEST(CompatibleFit, ConeReportsTheHalfAngleOfTheSlope) {
  const auto data = GenerateKnownSolution(testing::Shape::kCone, Cmm(13));
  const FitResult result = Compatible(Shape::kCone, data.points);
  const CFitResult out = Direct(&KFitCone, data.points);
  ASSERT_TRUE(result.valid) << result.message;
  ExpectSamePoint(result.center, out.m_center);
  ExpectSameStatistics(result, out);
  const double slope = out.m_size2.z;
  EXPECT_DOUBLE_EQ(*result.half_angle, std::atan(1.0 / std::fabs(slope)));
  // The reported axis points where the cone opens.
  const double sense = slope < 0.0 ? -1.0 : 1.0;
  EXPECT_EQ((*result.axis)[0], sense * out.m_axis.x);
  EXPECT_NEAR(*result.half_angle, data.truth.halfAngle, 1e-5);
}

TEST(CompatibleFit, TorusIsKFitTorus) {
  GeneratorOptions options = Cmm(17);
  options.pointCount = 80;
  const auto data = GenerateKnownSolution(testing::Shape::kTorus, options);
  const FitResult result = Compatible(Shape::kTorus, data.points);
  const CFitResult out = Direct(&KFitTorus, data.points);
  EXPECT_EQ(result.valid, out.m_valid == 1);
  ExpectSamePoint(result.center, out.m_center);
  EXPECT_EQ(*result.major_radius, out.m_size1.y);
  EXPECT_EQ(*result.minor_radius, out.m_size1.z);
  ExpectSameStatistics(result, out);
}

TEST(CompatibleFit, HeldRadiusReachesKFitSphere) {
  const auto data = GenerateKnownSolution(testing::Shape::kSphere, Cmm(19));
  FitOptions options;
  options.shape = Shape::kSphere;
  options.method = Method::kCompatible;
  options.fixed = {{"radius", {10.5}}};
  const FitResult result = Fit(ToPoints(data.points), options);
  CFitInput in;
  in.m_points = data.points;
  in.m_refPoint = Centroid(data.points);
  in.m_size1Param.value.x = 10.5;
  in.m_size1Param.mode[0] = 1;
  CFitResult out;
  KFitSphere(in, out);
  EXPECT_EQ(*result.radius, 10.5);
  ExpectSamePoint(result.center, out.m_center);
  ExpectSameStatistics(result, out);
  const Parameter* radius = result.Find("radius");
  ASSERT_NE(radius, nullptr);
  EXPECT_EQ(radius->uncertainty.at(0), 0.0);
}

TEST(CompatibleFit, PlaneCannotHoldACentre) {
  const auto data = GenerateKnownSolution(testing::Shape::kPlane, Cmm(23));
  FitOptions options;
  options.shape = Shape::kPlane;
  options.method = Method::kCompatible;
  options.fixed = {{"center", {0.0, 0.0, 0.0}}};
  const FitResult result = Fit(ToPoints(data.points), options);
  EXPECT_EQ(result.status, Status::kUnsupported);
  EXPECT_NE(result.message.find("KFitPlane cannot hold 'center'"), std::string::npos);
}

}  // namespace
}  // namespace metrofit

namespace metrofit {
namespace {

// A paraboloid dish with vertex v opening along +z, focal length f, 1 um-scale ripple.
std::vector<KPt3<double>> DishPoints(const KPt3<double>& v, double f) {
  std::vector<KPt3<double>> pts;
  for (int i = 0; i < 80; ++i) {
    const double t = 0.37 * i, rho = 2.0 + 0.25 * (i % 37);
    const double ripple = 1e-3 * std::sin(1.7 * i);
    pts.emplace_back(v.x + rho * std::cos(t), v.y + rho * std::sin(t),
                     v.z + rho * rho / (4.0 * f) + ripple);
  }
  return pts;
}

TEST(CompatibleFit, ParaboloidIsKFitParaboloidAndDescribed) {
  const auto pts = DishPoints(KPt3<double>(300.0, -120.0, 40.0), 25.0);
  const FitResult result = Compatible(Shape::kParaboloid, pts);
  const CFitResult out = Direct(&KFitParaboloid, pts);
  EXPECT_EQ(result.valid, out.m_valid == 1) << result.message;
  ExpectSamePoint(result.center, out.m_center);
  EXPECT_EQ(*result.focal_length, std::fabs(out.m_size2.x));
  ExpectSameStatistics(result, out);
  ASSERT_EQ(result.deviations.size(), pts.size());
}

TEST(CompatibleFit, SpheroidIsKFitEllipseWithoutACrash) {
  // KFitEllipse may fail from its automatic start; the compatible method must say so, not crash.
  const auto data = GenerateKnownSolution(testing::Shape::kSphere, Cmm(29));
  const FitResult result = Compatible(Shape::kSpheroid, data.points);
  const CFitResult out = Direct(&KFitEllipse, data.points);
  EXPECT_EQ(result.valid, out.m_valid == 1);
  EXPECT_EQ(result.status, out.m_valid == 1 ? Status::kOk : Status::kFailed);
  ExpectSamePoint(result.center, out.m_center);
  ExpectSameStatistics(result, out);
  ASSERT_TRUE(result.semi_axes.has_value());
  EXPECT_EQ((*result.semi_axes)[0], std::fabs(out.m_size3.x));
  EXPECT_EQ((*result.semi_axes)[1], std::fabs(out.m_size3.y));
}

}  // namespace
}  // namespace metrofit
