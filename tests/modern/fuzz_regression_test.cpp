// Inputs found by the fuzz targets of fuzz/ and the concurrent stress test, replayed as the
// library sees them: the decoded points and options.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "metrofit/fit.h"

namespace {

using metrofit::FitOptions;
using metrofit::FitResult;
using metrofit::Method;
using metrofit::Point;
using metrofit::Shape;
using metrofit::Status;

// fuzz_modern, crash-6575d5b5: 2514 points on one line (x = 1e-4, y = 0, z scattered by
// 8e-5). KFitPlane calls the plane through them a success; the plane's tilt about the line
// is free, so its uncertainties are infinite. A valid result must not carry them.
TEST(FuzzRegression, CompatiblePlaneThroughCollinearPointsIsNotValid) {
  std::vector<Point> points;
  constexpr int kCount = 2514;
  for (int i = 0; i < kCount; ++i) {
    points.push_back({1e-4, 0.0, 8e-5 * std::sin(0.7 * i)});
  }
  FitOptions options;
  options.shape = Shape::kPlane;
  options.method = Method::kCompatible;
  const FitResult result = metrofit::Fit(points, options);
  EXPECT_FALSE(result.valid);
  EXPECT_EQ(result.status, Status::kFailed);
  EXPECT_NE(result.message.find("KFitPlane"), std::string::npos) << result.message;
}

// A sphere cap at CMM scale: 60 points, 2 um noise, 600 mm out.
std::vector<Point> SphereCap() {
  std::vector<Point> points;
  for (int i = 0; i < 60; ++i) {
    const double z = 0.2 + 0.8 * (i % 7) / 7.0, phi = 0.37 * i, q = std::sqrt(1.0 - z * z);
    const double r = 20.0 + 0.002 * std::sin(1.3 * i);
    points.push_back(
        {600.0 + r * q * std::cos(phi), -300.0 + r * q * std::sin(phi), 200.0 + r * z});
  }
  return points;
}

// Stress test: KFitSphere leaves its axis unset, and the compatible sphere measured its
// uncertainties in a frame built on that zero axis: all infinite.
TEST(FuzzRegression, CompatibleSphereHasTheUncertaintiesOfThePreciseOne) {
  FitOptions options;
  options.shape = Shape::kSphere;
  options.method = Method::kCompatible;
  const FitResult compatible = metrofit::Fit(SphereCap(), options);
  options.method = Method::kPrecise;
  const FitResult precise = metrofit::Fit(SphereCap(), options);
  ASSERT_TRUE(compatible.valid) << compatible.message;
  ASSERT_TRUE(precise.valid) << precise.message;
  const metrofit::Parameter* c = compatible.Find("radius");
  const metrofit::Parameter* p = precise.Find("radius");
  ASSERT_NE(c, nullptr);
  ASSERT_NE(p, nullptr);
  EXPECT_TRUE(std::isfinite(c->uncertainty[0]));
  // The same least-squares sphere, so the same uncertainty to a few digits.
  EXPECT_NEAR(c->uncertainty[0], p->uncertainty[0], 1e-3 * p->uncertainty[0]);
}

// Stress test: the compatible paraboloid and spheroid called a missing model function (a null
// pointer) while describing the result. Both are now described by their own distance models:
// whatever KFitParaboloid and KFitEllipse make of a sphere cap, the call returns a result with
// a deviation per point and never reports a non-finite field as valid.
TEST(FuzzRegression, CompatibleParaboloidAndSpheroidAreDescribed) {
  const std::vector<Point> cap = SphereCap();
  for (Shape shape : {Shape::kParaboloid, Shape::kSpheroid}) {
    FitOptions options;
    options.shape = shape;
    options.method = Method::kCompatible;
    const FitResult result = metrofit::Fit(cap, options);
    EXPECT_TRUE(result.status == Status::kOk || result.status == Status::kFailed)
        << ToString(shape) << ": " << result.message;
    EXPECT_EQ(result.deviations.size(), cap.size()) << ToString(shape);
    if (result.valid) {
      for (double d : result.deviations) EXPECT_TRUE(std::isfinite(d)) << ToString(shape);
    }
  }
}

// fuzz_modern, crash-249cc871: 218 points of a torus 2e-4 mm across, 2000 mm out, so nearly
// straight that the normal equations at the reported torus are singular, though the solver's
// last iterate passed its rank test: the fit said ok with infinite uncertainties. An
// undetermined parameter makes the fit degenerate, never valid.
TEST(FuzzRegression, PreciseTorusWithAnUndeterminedParameterIsDegenerate) {
  std::ifstream file(std::string(METROFIT_TEST_DATA_DIR) + "/torus_on_a_short_straight_arc.xyz");
  ASSERT_TRUE(file.good());
  std::vector<Point> points;
  Point p;
  while (file >> p.x >> p.y >> p.z) points.push_back(p);
  ASSERT_EQ(points.size(), 218u);
  FitOptions options;
  options.shape = Shape::kTorus;
  options.method = Method::kPrecise;
  const FitResult result = metrofit::Fit(points, options);
  EXPECT_FALSE(result.valid);
  EXPECT_EQ(result.status, Status::kDegenerate) << result.message;
  EXPECT_NE(result.message.find("do not determine"), std::string::npos) << result.message;
}

}  // namespace
