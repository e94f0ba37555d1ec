// Parameter names and their slots among the reported values, for every shape, in the order of
// FitResult::parameters; and the named values a request may give.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "precise/shape_problems.h"

namespace metrofit::precise {
namespace {

using Names = std::vector<std::string>;

TEST(PreciseParameterNames, OrderOfEveryShape) {
  EXPECT_EQ(PreciseParameterNames(Shape::kLine), (Names{"center", "axis"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kPlane), (Names{"center", "axis"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kCircle), (Names{"center", "axis", "radius"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kSphere), (Names{"center", "radius"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kCylinder), (Names{"center", "axis", "radius"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kCone), (Names{"center", "axis", "half_angle"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kEllipse),
            (Names{"center", "axis", "major_direction", "semi_axes"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kParaboloid), (Names{"center", "axis", "focal_length"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kSpheroid), (Names{"center", "axis", "semi_axes"}));
  EXPECT_EQ(PreciseParameterNames(Shape::kTorus),
            (Names{"center", "axis", "major_radius", "minor_radius"}));
}

TEST(PreciseParameterNames, SlotsAndNamedValues) {
  EXPECT_EQ(SlotOf(Shape::kTorus, "minor_radius").first, kReportSizes + 1);
  EXPECT_EQ(SlotOf(Shape::kTorus, "major_radius").first, kReportSizes);
  EXPECT_EQ(SlotOf(Shape::kSpheroid, "semi_axes").count, 2);
  EXPECT_EQ(SlotOf(Shape::kEllipse, "major_direction").count, 3);

  Feature f;
  f.shape = Shape::kSpheroid;
  ApplyNamed({{"semi_axes", {7.0, 4.0}}, {"axis", {0.0, 0.0, -2.0}}}, &f);
  EXPECT_EQ(f.size[0], 7.0);
  EXPECT_EQ(f.size[1], 4.0);
  EXPECT_EQ(f.axis.z, -1.0);
  double report[kReportCount];
  ReportValues(f, report);
  EXPECT_EQ(report[kReportSizes + 1], 4.0);

  Request r;
  r.shape = Shape::kEllipse;
  r.fixed = {{"semi_axes", {3.0, 2.0}}, {"major_direction", {1.0, 0.0, 0.0}}};
  const Holds h = HoldsOf(r);
  EXPECT_TRUE(h.size[0] && h.size[1] && h.direction);
  EXPECT_FALSE(h.center || h.axis);
}

}  // namespace
}  // namespace metrofit::precise
