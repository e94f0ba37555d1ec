// Inputs found by the fuzz targets of fuzz/, replayed as the library sees them: the decoded
// points and options.
#include <gtest/gtest.h>

#include <cmath>
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

}  // namespace
