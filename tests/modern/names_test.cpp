// Names of shapes, methods and statuses, point minimums and parameter names.
#include <gtest/gtest.h>

#include "metrofit/fit.h"

namespace metrofit {
namespace {

const Shape kAllShapes[] = {Shape::kLine,     Shape::kPlane, Shape::kCircle,  Shape::kSphere,
                            Shape::kCylinder, Shape::kCone,  Shape::kEllipse, Shape::kParaboloid,
                            Shape::kSpheroid, Shape::kTorus};

TEST(ModernNames, EveryShapeNameRoundTrips) {
  for (Shape shape : kAllShapes) {
    const auto parsed = ShapeFromName(ToString(shape));
    ASSERT_TRUE(parsed.has_value()) << ToString(shape);
    EXPECT_EQ(*parsed, shape);
  }
  EXPECT_FALSE(ShapeFromName("Sphere").has_value());
  EXPECT_FALSE(ShapeFromName("").has_value());
  EXPECT_FALSE(ShapeFromName("ellipsoid").has_value());
}

TEST(ModernNames, MethodsRoundTrip) {
  EXPECT_EQ(MethodFromName("precise"), Method::kPrecise);
  EXPECT_EQ(MethodFromName("compatible"), Method::kCompatible);
  EXPECT_FALSE(MethodFromName("exact").has_value());
  EXPECT_STREQ(ToString(Method::kPrecise), "precise");
}

TEST(ModernNames, MinimumPointsPerShape) {
  EXPECT_EQ(MinimumPoints(Shape::kLine), 2u);
  EXPECT_EQ(MinimumPoints(Shape::kPlane), 3u);
  EXPECT_EQ(MinimumPoints(Shape::kCircle), 3u);
  EXPECT_EQ(MinimumPoints(Shape::kSphere), 4u);
  EXPECT_EQ(MinimumPoints(Shape::kCylinder), 5u);
  EXPECT_EQ(MinimumPoints(Shape::kCone), 6u);
  EXPECT_EQ(MinimumPoints(Shape::kEllipse), 5u);
  EXPECT_EQ(MinimumPoints(Shape::kParaboloid), 6u);
  EXPECT_EQ(MinimumPoints(Shape::kSpheroid), 7u);
  EXPECT_EQ(MinimumPoints(Shape::kTorus), 7u);
}

TEST(ModernNames, ParameterNamesPerShape) {
  using Names = std::vector<std::string>;
  EXPECT_EQ(ParameterNames(Shape::kSphere), (Names{"center", "radius"}));
  EXPECT_EQ(ParameterNames(Shape::kCone), (Names{"center", "axis", "half_angle"}));
  EXPECT_EQ(ParameterNames(Shape::kEllipse),
            (Names{"center", "axis", "major_direction", "semi_axes"}));
  EXPECT_EQ(ParameterNames(Shape::kTorus),
            (Names{"center", "axis", "major_radius", "minor_radius"}));
  for (Shape shape : kAllShapes) {
    EXPECT_EQ(ParameterNames(shape).front(), "center") << ToString(shape);
  }
}

TEST(ModernNames, InputErrorsAreTheRejectingStatuses) {
  EXPECT_FALSE(IsInputError(Status::kOk));
  EXPECT_FALSE(IsInputError(Status::kDegenerate));
  EXPECT_FALSE(IsInputError(Status::kNotConverged));
  EXPECT_FALSE(IsInputError(Status::kFailed));
  EXPECT_TRUE(IsInputError(Status::kTooFewPoints));
  EXPECT_TRUE(IsInputError(Status::kNonFinitePoint));
  EXPECT_TRUE(IsInputError(Status::kUnknownShape));
  EXPECT_TRUE(IsInputError(Status::kUnknownParameter));
  EXPECT_TRUE(IsInputError(Status::kInvalidOption));
  EXPECT_TRUE(IsInputError(Status::kUnsupported));
  EXPECT_STREQ(ToString(Status::kNotConverged), "not_converged");
  EXPECT_STREQ(ToString(Status::kTooFewPoints), "too_few_points");
}

}  // namespace
}  // namespace metrofit
