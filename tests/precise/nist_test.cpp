// The NIST least-squares reference pairs through FitPrecise: every fit within 1e-9 mm and
// 1e-10 rad of the certified one (the 6-point cone, which may have no unique solution: a sum
// of squares no larger than the certified fit's).
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "precise/precise_fit.h"
#include "precise_test_util.h"
#include "support/geometry_compare.h"
#include "support/nist_reader.h"

namespace metrofit::precise {
namespace {

namespace mt = ::metrofit::testing;
using testing::Axis;
using testing::Center;
using testing::kAngleTol;
using testing::kLengthTol;
using testing::PointRequest;

// Points below which a cone set may have no unique least-squares solution.
constexpr std::size_t kFewConePoints = 6;
// Slack when comparing two sums of squares evaluated in double precision: relative, and an
// absolute 1e-13 mm per distance (coordinates of hundreds of mm).
constexpr double kSumSlack = 1e-12;
constexpr double kDistanceRounding = 1e-13;

std::vector<mt::NistPair> Pairs(const std::string& folder) {
  const std::string dir = mt::RefDataDir() + "/" + folder;
  if (!mt::DirectoryExists(dir)) return {};
  return mt::ListPairs(dir);
}

#define METROFIT_NIST_PAIRS(folder, pairs)                                                \
  const std::vector<mt::NistPair> pairs = Pairs(folder);                                  \
  if (pairs.empty()) {                                                                    \
    GTEST_SKIP() << "no NIST reference pairs in " << mt::RefDataDir() << "/" << (folder); \
  }

struct Loaded {
  std::vector<Vec3> points;
  std::vector<double> fit;
};

Loaded Load(const mt::NistPair& pair) {
  Loaded l;
  std::string error;
  EXPECT_TRUE(mt::ReadDataSet(pair.dataPath, &l.points, &error)) << error;
  EXPECT_TRUE(mt::ReadFitValues(pair.fitPath, &l.fit, &error)) << error;
  return l;
}

FitResult Fit(Shape shape, const std::vector<Vec3>& points) {
  PointRequest pr(shape, points);
  return FitPrecise(pr.request);
}

TEST(PreciseNist, Lines) {
  METROFIT_NIST_PAIRS("Line3d", pairs);
  mt::WorstError pos("NIST line position (mm)"), ang("NIST line direction (rad)");
  for (const auto& pair : pairs) {
    const Loaded l = Load(pair);
    mt::NistLine ref;
    ASSERT_TRUE(mt::DecodeLine(l.fit, &ref)) << pair.name;
    const FitResult r = Fit(Shape::kLine, l.points);
    ASSERT_EQ(r.status, Status::kOk) << pair.name << ": " << r.message;
    const double d = mt::DistancePointToLine(Center(r), ref.point, ref.direction);
    const double a = mt::AxisAngle(Axis(r), ref.direction);
    pos.Update(d, pair.name);
    ang.Update(a, pair.name);
    EXPECT_LE(d, kLengthTol) << pair.name;
    EXPECT_LE(a, kAngleTol) << pair.name;
  }
}

TEST(PreciseNist, Planes) {
  METROFIT_NIST_PAIRS("Plane", pairs);
  mt::WorstError pos("NIST plane position (mm)"), ang("NIST plane normal (rad)");
  for (const auto& pair : pairs) {
    const Loaded l = Load(pair);
    mt::NistPlane ref;
    ASSERT_TRUE(mt::DecodePlane(l.fit, &ref)) << pair.name;
    const FitResult r = Fit(Shape::kPlane, l.points);
    ASSERT_EQ(r.status, Status::kOk) << pair.name << ": " << r.message;
    const double d = std::fabs(Axis(r).Dot(ref.point - Center(r)));
    const double a = mt::AxisAngle(Axis(r), ref.normal);
    pos.Update(d, pair.name);
    ang.Update(a, pair.name);
    EXPECT_LE(d, kLengthTol) << pair.name;
    EXPECT_LE(a, kAngleTol) << pair.name;
  }
}

TEST(PreciseNist, Circles) {
  METROFIT_NIST_PAIRS("Circle3d", pairs);
  mt::WorstError pos("NIST circle centre (mm)"), ang("NIST circle normal (rad)"),
      rad("NIST circle radius (mm)");
  for (const auto& pair : pairs) {
    const Loaded l = Load(pair);
    mt::NistCircle ref;
    ASSERT_TRUE(mt::DecodeCircle(l.fit, &ref)) << pair.name;
    const FitResult r = Fit(Shape::kCircle, l.points);
    ASSERT_EQ(r.status, Status::kOk) << pair.name << ": " << r.message;
    const double d = (Center(r) - ref.centre).Length();
    const double a = mt::AxisAngle(Axis(r), ref.normal);
    const double e = std::fabs(*r.radius - 0.5 * ref.diameter);
    pos.Update(d, pair.name);
    ang.Update(a, pair.name);
    rad.Update(e, pair.name);
    EXPECT_LE(d, kLengthTol) << pair.name;
    EXPECT_LE(a, kAngleTol) << pair.name;
    EXPECT_LE(e, kLengthTol) << pair.name;
  }
}

TEST(PreciseNist, Spheres) {
  METROFIT_NIST_PAIRS("Sphere", pairs);
  mt::WorstError pos("NIST sphere centre (mm)"), rad("NIST sphere radius (mm)");
  for (const auto& pair : pairs) {
    const Loaded l = Load(pair);
    mt::NistSphere ref;
    ASSERT_TRUE(mt::DecodeSphere(l.fit, &ref)) << pair.name;
    const FitResult r = Fit(Shape::kSphere, l.points);
    ASSERT_EQ(r.status, Status::kOk) << pair.name << ": " << r.message;
    const double d = (Center(r) - ref.centre).Length();
    const double e = std::fabs(*r.radius - 0.5 * ref.diameter);
    pos.Update(d, pair.name);
    rad.Update(e, pair.name);
    EXPECT_LE(d, kLengthTol) << pair.name;
    EXPECT_LE(e, kLengthTol) << pair.name;
  }
}

TEST(PreciseNist, Cylinders) {
  METROFIT_NIST_PAIRS("Cylinder", pairs);
  mt::WorstError pos("NIST cylinder axis position (mm)"), ang("NIST cylinder axis (rad)"),
      rad("NIST cylinder radius (mm)");
  for (const auto& pair : pairs) {
    const Loaded l = Load(pair);
    mt::NistCylinder ref;
    ASSERT_TRUE(mt::DecodeCylinder(l.fit, &ref)) << pair.name;
    const FitResult r = Fit(Shape::kCylinder, l.points);
    ASSERT_EQ(r.status, Status::kOk) << pair.name << ": " << r.message;
    // Our centre is the axis point nearest the centroid: compare it with the certified axis.
    const double d = mt::DistancePointToLine(Center(r), ref.point, ref.axis);
    const double a = mt::AxisAngle(Axis(r), ref.axis);
    const double e = std::fabs(*r.radius - 0.5 * ref.diameter);
    pos.Update(d, pair.name);
    ang.Update(a, pair.name);
    rad.Update(e, pair.name);
    EXPECT_LE(d, kLengthTol) << pair.name;
    EXPECT_LE(a, kAngleTol) << pair.name;
    EXPECT_LE(e, kLengthTol) << pair.name;
  }
}

// Sum of squares of the points' distances from a cone given the NIST way.
double ConeSumOfSquares(const std::vector<Vec3>& points, const mt::NistCone& ref) {
  PointRequest pr(Shape::kCone, points);
  const double half = 0.5 * ref.apexAngleDegrees * M_PI / 180.0;
  Feature f;
  f.shape = Shape::kCone;
  f.axis = ref.axis;
  f.axis.Normalize();
  f.center = ref.point - f.axis * (ref.surfaceDistance / std::sin(half));
  f.size[0] = half;
  FitResult r;
  Describe(pr.request, f, r);
  return r.rms * r.rms * static_cast<double>(points.size());
}

TEST(PreciseNist, Cones) {
  METROFIT_NIST_PAIRS("Cone", pairs);
  mt::WorstError pos("NIST cone axis position (mm)"), ang("NIST cone axis (rad)"),
      surf("NIST cone surface distance at the certified axis point (mm)"),
      half("NIST cone half angle (rad)");
  for (const auto& pair : pairs) {
    const Loaded l = Load(pair);
    mt::NistCone ref;
    ASSERT_TRUE(mt::DecodeCone(l.fit, &ref)) << pair.name;
    const FitResult r = Fit(Shape::kCone, l.points);
    ASSERT_EQ(r.status, Status::kOk) << pair.name << ": " << r.message;
    const double sum = r.rms * r.rms * static_cast<double>(l.points.size());
    if (l.points.size() <= kFewConePoints) {
      const double n = static_cast<double>(l.points.size());
      EXPECT_LE(sum, ConeSumOfSquares(l.points, ref) * (1.0 + kSumSlack) +
                         n * kDistanceRounding * kDistanceRounding)
          << pair.name;
      continue;
    }
    const Vec3 apex = Center(r), u = Axis(r);
    const double phi = *r.half_angle;
    // Distance of the certified axis point from our cone's surface, along our normal.
    const Vec3 v = ref.point - apex;
    const double h = u.Dot(v), rho = (v - u * h).Length();
    const double s = h * std::sin(phi) - rho * std::cos(phi);
    const double d = mt::DistancePointToLine(ref.point, apex, u);
    const double a = mt::DirectedAngle(u, ref.axis);
    const double e = std::fabs(s - ref.surfaceDistance);
    const double p = std::fabs(phi - 0.5 * ref.apexAngleDegrees * M_PI / 180.0);
    pos.Update(d, pair.name);
    ang.Update(a, pair.name);
    surf.Update(e, pair.name);
    half.Update(p, pair.name);
    EXPECT_LE(d, kLengthTol) << pair.name;
    EXPECT_LE(a, kAngleTol) << pair.name;
    EXPECT_LE(e, kLengthTol) << pair.name;
    EXPECT_LE(p, kAngleTol) << pair.name;
  }
}

}  // namespace
}  // namespace metrofit::precise
