#include "shapes.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using metrofit::cli::AllShapes;
using metrofit::cli::FindShape;
using metrofit::cli::FitFunction;
using metrofit::cli::kAxis;
using metrofit::cli::kCentre;
using metrofit::cli::kIterations;
using metrofit::cli::kStatistics;
using metrofit::cli::Shape;
using metrofit::cli::SizeValue;

const std::vector<std::pair<std::string, FitFunction>> kExpected = {
    {"point", &KFitPoint},           {"distance", &KFitDistance},  {"line", &KFitLine},
    {"plane", &KFitPlane},           {"circle", &KFitCircle},      {"sphere", &KFitSphere},
    {"cylinder", &KFitCylinder},     {"cone", &KFitCone},          {"ellipse", &KFitEllipse},
    {"paraboloid", &KFitParaboloid}, {"torus", &KFitTorus},        {"circle-ex", &KFitCircleEx},
    {"line-ex", &KFitLineEx},        {"sphere-ex", &KFitSphereEx}, {"cylinder-ex", &KFitCylinderEx},
};

// A result whose size components are all different: triple t, component c holds 10 t + c + 1.
void FillSizes(CFitResult* r) {
  r->m_size1 = KPt3<double>(11, 12, 13);
  r->m_size2 = KPt3<double>(21, 22, 23);
  r->m_size3 = KPt3<double>(31, 32, 33);
}

// The value of the size called `key` of `shape` in a result filled by FillSizes.
double Size(const std::string& shape, const std::string& key) {
  CFitResult r;
  FillSizes(&r);
  const Shape* s = FindShape(shape);
  for (const auto& slot : s->sizes) {
    if (key == slot.key) return SizeValue(r, slot);
  }
  ADD_FAILURE() << shape << " has no size " << key;
  return 0.0;
}

TEST(CliShapes, EveryShapeOnceWithItsFunction) {
  ASSERT_EQ(AllShapes().size(), kExpected.size());
  for (std::size_t i = 0; i < kExpected.size(); ++i) {
    const Shape& shape = AllShapes()[i];
    EXPECT_EQ(shape.name, kExpected[i].first);
    EXPECT_EQ(shape.fit, kExpected[i].second) << shape.name;
    EXPECT_EQ(FindShape(kExpected[i].first), &shape);
  }
}

TEST(CliShapes, FunctionNamesMatchTheShapes) {
  EXPECT_EQ(std::string(FindShape("sphere-ex")->function), "KFitSphereEx");
  EXPECT_EQ(std::string(FindShape("paraboloid")->function), "KFitParaboloid");
  EXPECT_EQ(std::string(FindShape("distance")->function), "KFitDistance");
}

TEST(CliShapes, UnknownNamesAreNotFound) {
  EXPECT_EQ(FindShape(""), nullptr);
  EXPECT_EQ(FindShape("Sphere"), nullptr);
  EXPECT_EQ(FindShape("angle"), nullptr);
  EXPECT_EQ(FindShape("sphere "), nullptr);
}

TEST(CliShapes, SizesAreReadFromTheirSlots) {
  for (const char* shape :
       {"circle", "sphere", "cylinder", "circle-ex", "sphere-ex", "cylinder-ex"}) {
    EXPECT_EQ(Size(shape, "radius"), 11) << shape;
  }
  EXPECT_EQ(Size("distance", "distance"), 22);
  EXPECT_EQ(Size("plane", "origin_distance"), 22);
  EXPECT_EQ(Size("cone", "slope"), 23);
  EXPECT_EQ(Size("ellipse", "semi_axis_a"), 31);
  EXPECT_EQ(Size("ellipse", "semi_axis_b"), 32);
  EXPECT_EQ(Size("paraboloid", "focal_length"), 21);
  EXPECT_EQ(Size("paraboloid", "radial_extent"), 11);
  EXPECT_EQ(Size("torus", "major_radius"), 12);
  EXPECT_EQ(Size("torus", "minor_radius"), 13);
}

TEST(CliShapes, PointLineAndLineExHaveNoSizes) {
  EXPECT_TRUE(FindShape("point")->sizes.empty());
  EXPECT_TRUE(FindShape("line")->sizes.empty());
  EXPECT_TRUE(FindShape("line-ex")->sizes.empty());
}

TEST(CliShapes, OnlyParaboloidAndTorusCompensateTheProbeRadius) {
  for (const Shape& shape : AllShapes()) {
    const std::string name = shape.name;
    EXPECT_EQ(shape.uses_probe_radius, name == "paraboloid" || name == "torus") << name;
  }
}

TEST(CliShapes, FieldsShownFollowWhatEachFunctionFillsIn) {
  EXPECT_EQ(FindShape("point")->fields, unsigned{kCentre});
  EXPECT_EQ(FindShape("distance")->fields, 0u);
  EXPECT_EQ(FindShape("sphere")->fields & kAxis, 0u);
  EXPECT_NE(FindShape("sphere")->fields & kIterations, 0u);
  EXPECT_NE(FindShape("torus")->fields & kStatistics, 0u);
  // The extended fits leave sigma, RMS and deviations of an earlier stage or none at all.
  for (const char* shape : {"circle-ex", "line-ex", "sphere-ex", "cylinder-ex"}) {
    EXPECT_EQ(FindShape(shape)->fields & (kStatistics | kIterations), 0u) << shape;
  }
  for (const Shape& shape : AllShapes()) {
    if (shape.fields & kAxis) {
      EXPECT_STRNE(shape.axis_label, "") << shape.name;
    }
    if (shape.fields & kCentre) {
      EXPECT_STRNE(shape.centre_label, "") << shape.name;
    }
  }
}

}  // namespace
