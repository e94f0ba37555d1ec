// Every parameter of every shape held at (or started from) its true value on exact data: the
// fit must keep the held value exactly, find the rest, and give the held one no uncertainty.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "precise/precise_fit.h"
#include "precise_test_util.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"

namespace metrofit::precise {
namespace {

namespace mt = ::metrofit::testing;
using testing::Axis;
using testing::Center;
using testing::FindParameter;
using testing::PointRequest;

// Exact data at 600 mm: the recovered feature agrees to rounding.
constexpr double kExactLength = 1e-9;
constexpr double kExactAngle = 1e-10;

struct ShapeCase {
  mt::Shape generator;
  Shape shape;
};

const ShapeCase kCases[] = {
    {mt::Shape::kLine, Shape::kLine},     {mt::Shape::kPlane, Shape::kPlane},
    {mt::Shape::kSphere, Shape::kSphere}, {mt::Shape::kCylinder, Shape::kCylinder},
    {mt::Shape::kCone, Shape::kCone},     {mt::Shape::kTorus, Shape::kTorus},
};

std::vector<double> Values(const mt::ShapeTruth& t, const std::string& name) {
  if (name == "center") return {t.centre.x, t.centre.y, t.centre.z};
  if (name == "axis") return {t.axis.x, t.axis.y, t.axis.z};
  if (name == "radius" || name == "major_radius") return {t.radius};
  if (name == "minor_radius") return {t.minorRadius};
  return {t.halfAngle};
}

// Sizes of the truth in the order of the shape's parameters after center and axis.
void ExpectSameFeature(const mt::ShapeTruth& t, const FitResult& r, const std::string& where) {
  const Vec3 c = Center(r), u = Axis(r);
  switch (t.shape) {
    case mt::Shape::kLine:
    case mt::Shape::kCylinder:
      EXPECT_LT(mt::DistancePointToLine(c, t.centre, t.axis), kExactLength) << where;
      EXPECT_LT(mt::AxisAngle(u, t.axis), kExactAngle) << where;
      if (t.shape == mt::Shape::kCylinder) {
        EXPECT_NEAR(*r.radius, t.radius, kExactLength) << where;
      }
      break;
    case mt::Shape::kPlane:
      EXPECT_LT(std::fabs(u.Dot(c - t.centre)), kExactLength) << where;
      EXPECT_LT(mt::AxisAngle(u, t.axis), kExactAngle) << where;
      break;
    case mt::Shape::kCircle:
      EXPECT_LT(mt::AxisAngle(u, t.axis), kExactAngle) << where;
      [[fallthrough]];
    case mt::Shape::kSphere:
      EXPECT_LT((c - t.centre).Length(), kExactLength) << where;
      EXPECT_NEAR(*r.radius, t.radius, kExactLength) << where;
      break;
    case mt::Shape::kCone:
      EXPECT_LT((c - t.centre).Length(), kExactLength) << where;
      EXPECT_LT(mt::DirectedAngle(u, t.axis), kExactAngle) << where;
      EXPECT_NEAR(*r.half_angle, t.halfAngle, kExactAngle) << where;
      break;
    case mt::Shape::kTorus:
      EXPECT_LT((c - t.centre).Length(), kExactLength) << where;
      EXPECT_LT(mt::AxisAngle(u, t.axis), kExactAngle) << where;
      EXPECT_NEAR(*r.major_radius, t.radius, kExactLength) << where;
      EXPECT_NEAR(*r.minor_radius, t.minorRadius, kExactLength) << where;
      break;
  }
}

mt::KnownSolution Exact(mt::Shape shape) {
  mt::GeneratorOptions o;
  o.pointCount = 50;
  o.centreOffset = 600.0;
  o.axisTilt = 0.45;
  o.radius = 18.0;
  o.minorRadius = 4.0;
  o.halfAngle = 0.35;
  o.length = 30.0;
  o.arcSpan = 4.0;  // partial: about 230 degrees
  if (shape == mt::Shape::kLine || shape == mt::Shape::kPlane) o.arcSpan = 6.283185307179586;
  o.seed = 31;
  return mt::GenerateKnownSolution(shape, o);
}

TEST(PreciseHeldValues, EachParameterHeldAtItsTrueValue) {
  for (const ShapeCase& sc : kCases) {
    const mt::KnownSolution s = Exact(sc.generator);
    PointRequest probe(sc.shape, s.points);
    const FitResult names = FitPrecise(probe.request);
    ASSERT_EQ(names.status, Status::kOk) << mt::ShapeName(sc.generator) << ": " << names.message;
    for (const Parameter& p : names.parameters) {
      PointRequest pr(sc.shape, s.points);
      const std::vector<double> v = Values(s.truth, p.name);
      pr.request.fixed.push_back({p.name, v});
      const FitResult r = FitPrecise(pr.request);
      const std::string where = std::string(mt::ShapeName(sc.generator)) + " held " + p.name;
      ASSERT_EQ(r.status, Status::kOk) << where << ": " << r.message;
      ExpectSameFeature(s.truth, r, where);
      EXPECT_LT(r.rms, kExactLength) << where;
      const Parameter* held = FindParameter(r, p.name);
      ASSERT_NE(held, nullptr) << where;
      for (double u : held->uncertainty) EXPECT_EQ(u, 0.0) << where;
      // A held size or angle is reported exactly as given.
      if (v.size() == 1) {
        EXPECT_EQ(held->value[0], v[0]) << where;
      }
    }
  }
}

TEST(PreciseHeldValues, EveryParameterStartedNearItsTrueValue) {
  for (const ShapeCase& sc : kCases) {
    const mt::KnownSolution s = Exact(sc.generator);
    PointRequest probe(sc.shape, s.points);
    const FitResult names = FitPrecise(probe.request);
    ASSERT_EQ(names.status, Status::kOk) << names.message;
    PointRequest pr(sc.shape, s.points);
    for (const Parameter& p : names.parameters) {
      std::vector<double> v = Values(s.truth, p.name);
      for (double& x : v) x += (p.name == "axis" ? 0.01 : (p.name == "half_angle" ? 0.01 : 0.2));
      pr.request.start.push_back({p.name, v});
    }
    const FitResult r = FitPrecise(pr.request);
    const std::string where = std::string(mt::ShapeName(sc.generator)) + " started";
    ASSERT_EQ(r.status, Status::kOk) << where << ": " << r.message;
    ExpectSameFeature(s.truth, r, where);
  }
}

// The circle's axis is the normal of its least-squares plane: a started axis (here tilted by
// 0.01) only starts that plane, and a started centre off the plane is moved into it.
TEST(PreciseHeldValues, CircleStartedNearItsTrueValueFindsItsPlane) {
  const mt::KnownSolution s = Exact(mt::Shape::kCircle);
  PointRequest pr(Shape::kCircle, s.points);
  for (const char* name : {"center", "axis", "radius"}) {
    std::vector<double> v = Values(s.truth, name);
    for (double& x : v) x += std::string(name) == "axis" ? 0.01 : 0.2;
    pr.request.start.push_back({name, v});
  }
  const FitResult r = FitPrecise(pr.request);
  ASSERT_EQ(r.status, Status::kOk) << r.message;
  ExpectSameFeature(s.truth, r, "circle started");
}

}  // namespace
}  // namespace metrofit::precise
