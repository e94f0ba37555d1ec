// Bad input gives an error status with a message and no fit, for either method.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "metrofit/fit.h"

namespace metrofit {
namespace {

std::vector<Point> SpherePoints(std::size_t n) {
  std::vector<Point> points;
  for (std::size_t i = 0; i < n; ++i) {
    const double t = 0.7 * static_cast<double>(i) + 0.1;
    const double z = std::cos(1.3 * static_cast<double>(i));
    const double r = std::sqrt(1.0 - z * z);
    points.push_back(
        {500.0 + 10.0 * r * std::cos(t), -200.0 + 10.0 * r * std::sin(t), 80.0 + 10.0 * z});
  }
  return points;
}

FitOptions Options(Shape shape, Method method = Method::kPrecise) {
  FitOptions options;
  options.shape = shape;
  options.method = method;
  return options;
}

void ExpectRejected(const FitResult& result, Status status, const std::string& words) {
  EXPECT_EQ(result.status, status) << result.message;
  EXPECT_FALSE(result.valid);
  EXPECT_TRUE(IsInputError(result.status));
  EXPECT_NE(result.message.find(words), std::string::npos) << result.message;
  EXPECT_TRUE(result.deviations.empty());
  EXPECT_TRUE(result.parameters.empty());
}

TEST(ModernRequestCheck, TooFewPointsForEveryMethod) {
  for (Method method : {Method::kPrecise, Method::kCompatible}) {
    ExpectRejected(Fit(SpherePoints(3), Options(Shape::kSphere, method)), Status::kTooFewPoints,
                   "a sphere needs at least 4 points; 3 given");
    ExpectRejected(Fit(SpherePoints(6), Options(Shape::kTorus, method)), Status::kTooFewPoints,
                   "at least 7");
  }
  ExpectRejected(Fit(std::vector<Point>{}, Options(Shape::kLine)), Status::kTooFewPoints,
                 "a line needs at least 2 points; 0 given");
}

TEST(ModernRequestCheck, NonFiniteCoordinateNamesThePoint) {
  std::vector<Point> points = SpherePoints(10);
  points[7].y = std::numeric_limits<double>::quiet_NaN();
  ExpectRejected(Fit(points, Options(Shape::kSphere)), Status::kNonFinitePoint, "point 7");
  points[7].y = 0.0;
  points[2].z = std::numeric_limits<double>::infinity();
  ExpectRejected(Fit(points, Options(Shape::kSphere, Method::kCompatible)), Status::kNonFinitePoint,
                 "z = inf");
}

TEST(ModernRequestCheck, UnknownShapeValue) {
  ExpectRejected(Fit(SpherePoints(10), Options(static_cast<Shape>(42))), Status::kUnknownShape,
                 "unknown shape");
}

TEST(ModernRequestCheck, UnknownParameterNamesTheShapesParameters) {
  FitOptions options = Options(Shape::kPlane);
  options.fixed = {{"radius", {3.0}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kUnknownParameter,
                 "'radius' is not a parameter of a plane (its parameters: center, axis)");
  options.fixed.clear();
  options.start = {{"Radius", {3.0}}};
  options.shape = Shape::kSphere;
  ExpectRejected(Fit(SpherePoints(10), options), Status::kUnknownParameter, "'Radius'");
}

TEST(ModernRequestCheck, WrongLengthsAndRangesAreInvalidOptions) {
  FitOptions options = Options(Shape::kCylinder);
  options.start = {{"axis", {0.0, 1.0}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption,
                 "'axis' takes 3 values, 2 given");
  options.start = {{"axis", {0.0, 0.0, 0.0}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption, "non-zero direction");
  options.start = {{"radius", {-1.0}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption, "positive");
  options.start = {{"radius", {std::nan("")}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption, "non-finite");
  options.shape = Shape::kCone;
  options.start = {{"half_angle", {1.6}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption, "pi/2");
}

TEST(ModernRequestCheck, NameGivenTwiceOrBothFixedAndStarted) {
  FitOptions options = Options(Shape::kSphere);
  options.fixed = {{"radius", {10.0}}, {"radius", {11.0}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption, "given twice");
  options.fixed = {{"radius", {10.0}}};
  options.start = {{"radius", {10.0}}};
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption,
                 "both as a fixed and as a start value");
}

TEST(ModernRequestCheck, NonFiniteProbeRadius) {
  FitOptions options = Options(Shape::kSphere);
  options.probe_radius = std::numeric_limits<double>::infinity();
  ExpectRejected(Fit(SpherePoints(10), options), Status::kInvalidOption, "probe radius");
}

TEST(ModernRequestCheck, CompatiblePlanarEllipseIsUnsupported) {
  ExpectRejected(Fit(SpherePoints(10), Options(Shape::kEllipse, Method::kCompatible)),
                 Status::kUnsupported, "planar ellipse");
}

TEST(ModernRequestCheck, NullPointerWithPointsIsRejected) {
  ExpectRejected(Fit(nullptr, 10, Options(Shape::kSphere)), Status::kInvalidOption,
                 "no point array");
}

TEST(ModernRequestCheck, TheCallersPointsAreNotChanged) {
  const std::vector<Point> points = SpherePoints(30);
  std::vector<Point> copy = points;
  for (Method method : {Method::kPrecise, Method::kCompatible}) {
    Fit(copy, Options(Shape::kSphere, method));
    for (std::size_t i = 0; i < points.size(); ++i) {
      EXPECT_EQ(copy[i].x, points[i].x);
      EXPECT_EQ(copy[i].y, points[i].y);
      EXPECT_EQ(copy[i].z, points[i].z);
    }
  }
}

}  // namespace
}  // namespace metrofit
