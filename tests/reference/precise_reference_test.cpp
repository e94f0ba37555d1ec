// The precise method (metrofit::Fit with Method::kPrecise) against solutions known to far more
// digits than it can give: the NIST reference pairs (least-squares fits computed in 60-digit
// arithmetic, read at test time from METROFIT_REFDATA_DIR and skipped when absent) and the
// exact known-solution sets of support/precise_known_solution.h.
//
// The method iterates until the gradient of the sum of squares vanishes to rounding, so it is
// held to the solution itself: 1e-9 mm for positions and sizes, 1e-10 rad for angles. With
// coordinates of up to 1000 mm (rounding 1e-13 mm) and the sensitivities of these sets, the
// exact minimum of the data as stored differs from the reference by far less.
//
// Compared quantities, independent of where a fit puts its point on an axis or a plane:
//   plane     angle between the normals; distance of the reference point from the fitted plane
//   line      angle between the directions; distance of the reference point from the fitted line
//   circle    distance between the centres; angle between the normals; diameter (the circle is
//             the least-squares circle, in the least-squares plane, of the projected points)
//   sphere    distance between the centres; diameter
//   cylinder  angle between the axes; distance of the reference axis point from the fitted
//             axis; diameter
//   cone      angle between the axes (both towards increasing radius); distance of the
//             reference axis point from the fitted axis; half angle; orthogonal distance of the
//             reference axis point from the fitted surface against the reference one
//   torus     distance between the centres; angle between the axes; both radii
// Angles ignore the sign of the axis except for the cone, whose axis opens towards +axis.
// The six-point cone set is interpolated by a family of cones (NIST notes it may have no unique
// solution); there the fitted sum of squared distances must not exceed the reference's.
//
// Each test prints its largest errors ("[worst] ...") and the known-solution test one line per
// data family ("[precise] ...").
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "metrofit.h"
#include "metrofit/fit.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"
#include "support/nist_reader.h"
#include "support/precise_known_solution.h"

namespace {

namespace mt = metrofit::testing;
using metrofit::FitResult;
using mt::AxisAngle;
using mt::DirectedAngle;
using mt::DistancePointToLine;
using mt::NistPair;
using mt::Pt;
using Worst = mt::WorstError;

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;

// Agreement with a solution known to more digits than double precision holds.
constexpr double kLengthTolerance = 1e-9;  // mm: positions, radii, diameters
constexpr double kAngleTolerance = 1e-10;  // rad: axes, half angles
// A set with as many points as a cone has parameters may have no unique solution: there the
// fitted sum of squared distances may exceed the reference's by this fraction at most (the
// sums are evaluated in extended precision, so their own rounding does not enter).
constexpr double kNonUniqueSumAllowance = 1e-12;
// Such a set is interpolated: both sums are then zero but for the parameters being stored in
// double precision, which leaves each distance uncertain by about this fraction of the
// coordinates' magnitude (a few units in the last place).
constexpr double kStoredDistanceRounding = 4.0 * 1.1102230246251565e-16;
constexpr std::size_t kConeParameterCount = 6;

Pt ToPt(const std::array<double, 3>& a) {
  return Pt(a[0], a[1], a[2]);
}

FitResult FitPrecise(metrofit::Shape shape, const std::vector<Pt>& points) {
  std::vector<metrofit::Point> p;
  p.reserve(points.size());
  for (const Pt& q : points) p.push_back(metrofit::Point{q.x, q.y, q.z});
  metrofit::FitOptions options;
  options.shape = shape;
  options.method = metrofit::Method::kPrecise;
  return metrofit::Fit(p, options);
}

// A converged precise fit with the fields of its shape; records a failure otherwise.
bool Converged(const FitResult& r) {
  EXPECT_EQ(r.status, metrofit::Status::kOk) << r.message;
  EXPECT_TRUE(r.valid) << r.message;
  return r.valid && r.status == metrofit::Status::kOk;
}

Pt Axis(const FitResult& r) {
  EXPECT_TRUE(r.axis.has_value());
  return r.axis ? ToPt(*r.axis) : Pt(std::nan(""), 0.0, 0.0);
}

double Value(const std::optional<double>& v) {
  EXPECT_TRUE(v.has_value());
  return v.value_or(std::nan(""));
}

// ---------------------------------------------------------------------------------------------
// NIST reference pairs
// ---------------------------------------------------------------------------------------------

// The pairs of one shape folder; skips the calling test when the data are not installed.
#define METROFIT_LOAD_PAIRS(folder, expectedCount, pairs)                                  \
  const std::string dir_ = mt::RefDataDir() + "/" folder;                                  \
  if (!mt::DirectoryExists(dir_)) {                                                        \
    GTEST_SKIP() << "NIST reference data not found at '" << dir_                           \
                 << "' (configure METROFIT_REFDATA_DIR); precise reference comparison of " \
                 << folder << " skipped";                                                  \
  }                                                                                        \
  const std::vector<NistPair> pairs = mt::ListPairs(dir_);                                 \
  ASSERT_EQ((pairs).size(), static_cast<std::size_t>(expectedCount)) << "pairs in " << dir_

bool LoadPair(const NistPair& pair, std::vector<Pt>* points, std::vector<double>* fit) {
  std::string error;
  if (!mt::ReadDataSet(pair.dataPath, points, &error) ||
      !mt::ReadFitValues(pair.fitPath, fit, &error)) {
    ADD_FAILURE() << error;
    return false;
  }
  return true;
}

// One checked quantity: its largest error over the pairs, and the check of each.
class Check {
 public:
  Check(const std::string& what, double tolerance)
      : what_(what), worst_(what), tolerance_(tolerance) {}
  void operator()(double error, const std::string& where) {
    EXPECT_LE(error, tolerance_) << what_ << " of " << where;
    worst_.Update(error, where);
  }

 private:
  std::string what_;
  Worst worst_;
  double tolerance_;
};

TEST(PreciseNistReference, Planes) {
  METROFIT_LOAD_PAIRS("Plane", 30, pairs);
  Check angle("precise plane normal angle [rad]", kAngleTolerance);
  Check distance("precise plane distance of the reference point [mm]", kLengthTolerance);
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    mt::NistPlane ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(mt::DecodePlane(values, &ref));
    const FitResult r = FitPrecise(metrofit::Shape::kPlane, points);
    if (!Converged(r)) continue;
    const Pt n = Axis(r);
    angle(AxisAngle(n, ref.normal), pair.name);
    distance(std::fabs((ref.point - ToPt(r.center)).Dot(n)), pair.name);
  }
}

TEST(PreciseNistReference, Lines) {
  METROFIT_LOAD_PAIRS("Line3d", 2, pairs);
  Check angle("precise line direction angle [rad]", kAngleTolerance);
  Check distance("precise line distance of the reference point [mm]", kLengthTolerance);
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    mt::NistLine ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(mt::DecodeLine(values, &ref));
    const FitResult r = FitPrecise(metrofit::Shape::kLine, points);
    if (!Converged(r)) continue;
    const Pt u = Axis(r);
    angle(AxisAngle(u, ref.direction), pair.name);
    distance(DistancePointToLine(ref.point, ToPt(r.center), u), pair.name);
  }
}

TEST(PreciseNistReference, Circles) {
  METROFIT_LOAD_PAIRS("Circle3d", 5, pairs);
  Check centre("precise circle centre distance [mm]", kLengthTolerance);
  Check angle("precise circle normal angle [rad]", kAngleTolerance);
  Check diameter("precise circle diameter difference [mm]", kLengthTolerance);
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    mt::NistCircle ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(mt::DecodeCircle(values, &ref));
    const FitResult r = FitPrecise(metrofit::Shape::kCircle, points);
    if (!Converged(r)) continue;
    centre((ToPt(r.center) - ref.centre).Length(), pair.name);
    angle(AxisAngle(Axis(r), ref.normal), pair.name);
    diameter(std::fabs(2.0 * Value(r.radius) - ref.diameter), pair.name);
  }
}

TEST(PreciseNistReference, Spheres) {
  METROFIT_LOAD_PAIRS("Sphere", 30, pairs);
  Check centre("precise sphere centre distance [mm]", kLengthTolerance);
  Check diameter("precise sphere diameter difference [mm]", kLengthTolerance);
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    mt::NistSphere ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(mt::DecodeSphere(values, &ref));
    const FitResult r = FitPrecise(metrofit::Shape::kSphere, points);
    if (!Converged(r)) continue;
    centre((ToPt(r.center) - ref.centre).Length(), pair.name);
    diameter(std::fabs(2.0 * Value(r.radius) - ref.diameter), pair.name);
  }
}

TEST(PreciseNistReference, Cylinders) {
  METROFIT_LOAD_PAIRS("Cylinder", 30, pairs);
  Check angle("precise cylinder axis angle [rad]", kAngleTolerance);
  Check distance("precise cylinder axis distance of the reference point [mm]", kLengthTolerance);
  Check diameter("precise cylinder diameter difference [mm]", kLengthTolerance);
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    mt::NistCylinder ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(mt::DecodeCylinder(values, &ref));
    const FitResult r = FitPrecise(metrofit::Shape::kCylinder, points);
    if (!Converged(r)) continue;
    const Pt u = Axis(r);
    angle(AxisAngle(u, ref.axis), pair.name);
    distance(DistancePointToLine(ref.point, ToPt(r.center), u), pair.name);
    diameter(std::fabs(2.0 * Value(r.radius) - ref.diameter), pair.name);
  }
}

// Cones in extended precision, so that two sums of squares can be compared to 1e-12.
struct ConeL {
  long double apex[3];
  long double axis[3];  // unit
  long double half;
};

ConeL MakeConeL(const Pt& apex, const Pt& axis, double half) {
  const long double len = std::sqrt(static_cast<long double>(axis.x) * axis.x +
                                    static_cast<long double>(axis.y) * axis.y +
                                    static_cast<long double>(axis.z) * axis.z);
  return ConeL{{apex.x, apex.y, apex.z}, {axis.x / len, axis.y / len, axis.z / len}, half};
}

// Sum of squared orthogonal distances from the cone (to the apex where the foot would lie
// behind it).
long double ConeSumSquares(const ConeL& c, const std::vector<Pt>& points) {
  long double sum = 0.0L;
  for (const Pt& p : points) {
    const long double d[3] = {p.x - c.apex[0], p.y - c.apex[1], p.z - c.apex[2]};
    const long double h = d[0] * c.axis[0] + d[1] * c.axis[1] + d[2] * c.axis[2];
    const long double x[3] = {d[1] * c.axis[2] - d[2] * c.axis[1],
                              d[2] * c.axis[0] - d[0] * c.axis[2],
                              d[0] * c.axis[1] - d[1] * c.axis[0]};
    const long double rho = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
    const long double cs = std::cos(c.half), sn = std::sin(c.half);
    const long double e = (h * cs + rho * sn >= 0.0L)
                              ? rho * cs - h * sn
                              : std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    sum += e * e;
  }
  return sum;
}

// Orthogonal distance of p from the fitted cone's surface (p on the axis side).
double ConeSurfaceDistance(const Pt& p, const Pt& apex, const Pt& axis, double half) {
  const Pt d = p - apex;
  return std::fabs(d.Cross(axis).Length() * std::cos(half) - d.Dot(axis) * std::sin(half));
}

TEST(PreciseNistReference, Cones) {
  METROFIT_LOAD_PAIRS("Cone", 30, pairs);
  Check angle("precise cone axis angle [rad]", kAngleTolerance);
  Check distance("precise cone axis distance of the reference point [mm]", kLengthTolerance);
  Check half("precise cone half angle difference [rad]", kAngleTolerance);
  Check surface("precise cone surface distance of the reference point [mm]", kLengthTolerance);
  int nonUnique = 0;
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    mt::NistCone ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(mt::DecodeCone(values, &ref));
    const FitResult r = FitPrecise(metrofit::Shape::kCone, points);
    if (!Converged(r)) continue;
    const Pt u = Axis(r);
    const Pt apex = ToPt(r.center);
    const double fittedHalf = Value(r.half_angle);
    const double refHalf = 0.5 * ref.apexAngleDegrees * kDegree;
    if (points.size() == kConeParameterCount) {
      // The reference is one least-squares solution among possibly many: the fit must be at
      // least as good.
      ++nonUnique;
      Pt refAxis = ref.axis;
      refAxis.Normalize();
      const Pt refApex = ref.point - refAxis * (ref.surfaceDistance / std::sin(refHalf));
      const long double got = ConeSumSquares(MakeConeL(apex, u, fittedHalf), points);
      const long double best = ConeSumSquares(MakeConeL(refApex, refAxis, refHalf), points);
      double extent = 0.0;
      for (const Pt& p : points) extent = std::max(extent, p.Length());
      const double floor = kStoredDistanceRounding * extent;
      const long double allowance =
          best * kNonUniqueSumAllowance + static_cast<long double>(points.size()) * floor * floor;
      EXPECT_LE(got, best + allowance)
          << "fitted sum of squares " << static_cast<double>(got) << ", reference "
          << static_cast<double>(best) << ", allowance " << static_cast<double>(allowance);
      std::printf("[non-unique] %s: sum of squares fitted %.17Lg, reference %.17Lg\n",
                  pair.name.c_str(), got, best);
      continue;
    }
    angle(DirectedAngle(u, ref.axis), pair.name);
    distance(DistancePointToLine(ref.point, apex, u), pair.name);
    half(std::fabs(fittedHalf - refHalf), pair.name);
    surface(std::fabs(ConeSurfaceDistance(ref.point, apex, u, fittedHalf) - ref.surfaceDistance),
            pair.name);
  }
  EXPECT_EQ(nonUnique, 1);
}

// ---------------------------------------------------------------------------------------------
// Exact known solutions
// ---------------------------------------------------------------------------------------------

metrofit::Shape ModernShape(mt::Shape s) {
  switch (s) {
    case mt::Shape::kLine:
      return metrofit::Shape::kLine;
    case mt::Shape::kPlane:
      return metrofit::Shape::kPlane;
    case mt::Shape::kCircle:
      return metrofit::Shape::kCircle;
    case mt::Shape::kSphere:
      return metrofit::Shape::kSphere;
    case mt::Shape::kCylinder:
      return metrofit::Shape::kCylinder;
    case mt::Shape::kCone:
      return metrofit::Shape::kCone;
    case mt::Shape::kTorus:
      return metrofit::Shape::kTorus;
  }
  return metrofit::Shape::kSphere;
}

struct Errors {
  double position = 0.0;  // mm
  double angle = 0.0;     // rad: axis, and the cone's half angle
  double size = 0.0;      // mm: radius, both torus radii
};

Errors Compare(const mt::ShapeTruth& t, const FitResult& r) {
  Errors e;
  const Pt c = ToPt(r.center);
  const bool hasAxis = t.shape != mt::Shape::kSphere;
  const Pt u = hasAxis ? Axis(r) : Pt(0.0, 0.0, 1.0);
  switch (t.shape) {
    case mt::Shape::kPlane:
      e.position = std::fabs((t.centre - c).Dot(u));
      break;
    case mt::Shape::kLine:
    case mt::Shape::kCylinder:
      e.position = DistancePointToLine(t.centre, c, u);
      break;
    default:
      e.position = (t.centre - c).Length();
      break;
  }
  if (hasAxis) {
    e.angle = t.shape == mt::Shape::kCone ? DirectedAngle(u, t.axis) : AxisAngle(u, t.axis);
  }
  switch (t.shape) {
    case mt::Shape::kCircle:
    case mt::Shape::kSphere:
    case mt::Shape::kCylinder:
      e.size = std::fabs(Value(r.radius) - t.radius);
      break;
    case mt::Shape::kCone:
      e.angle = std::max(e.angle, std::fabs(Value(r.half_angle) - t.halfAngle));
      break;
    case mt::Shape::kTorus:
      e.size = std::max(std::fabs(Value(r.major_radius) - t.radius),
                        std::fabs(Value(r.minor_radius) - t.minorRadius));
      break;
    default:
      break;
  }
  return e;
}

// Largest difference between the reported deviations and the generated ones: signed for the
// surfaces (a plane's sign follows its fitted normal), the distance for the line. The circle's
// deviation combines its two components in a way the comparison does not assume; it is left out.
double DeviationError(const mt::KnownSolution& s, const FitResult& r) {
  const mt::Shape shape = s.truth.shape;
  if (shape == mt::Shape::kCircle) return 0.0;
  EXPECT_EQ(r.deviations.size(), s.points.size());
  if (r.deviations.size() != s.points.size()) return std::nan("");
  double sign = 1.0;
  if (shape == mt::Shape::kPlane && Axis(r).Dot(s.truth.axis) < 0.0) sign = -1.0;
  double worst = 0.0;
  for (std::size_t i = 0; i < s.points.size(); ++i) {
    const double want = shape == mt::Shape::kLine
                            ? std::hypot(s.residuals[2 * i], s.residuals[2 * i + 1])
                            : sign * s.residuals[i];
    worst = std::max(worst, std::fabs(r.deviations[i] - want));
  }
  return worst;
}

TEST(PreciseKnownSolutionFits, ReachTheGeneratingFeature) {
  std::map<std::string, std::array<std::unique_ptr<Worst>, 4>> worst;
  for (const mt::PreciseCase& c : mt::PreciseCases()) {
    SCOPED_TRACE(c.name);
    const mt::KnownSolution s = mt::GeneratePreciseKnownSolution(c.shape, c.options);
    const FitResult r = FitPrecise(ModernShape(c.shape), s.points);
    if (!Converged(r)) continue;
    const Errors e = Compare(s.truth, r);
    EXPECT_LE(e.position, kLengthTolerance) << "position";
    EXPECT_LE(e.angle, kAngleTolerance) << "angle";
    EXPECT_LE(e.size, kLengthTolerance) << "size";
    const double deviation = DeviationError(s, r);
    EXPECT_LE(deviation, kLengthTolerance) << "deviations";
    std::printf(
        "[precise] %-48s position %.1e mm, angle %.1e rad, size %.1e mm, deviations %.1e mm, "
        "%d iterations\n",
        c.name.c_str(), e.position, e.angle, e.size, deviation, r.iterations);
    auto& w = worst[mt::ShapeName(c.shape)];
    if (!w[0]) {
      const std::string shape = mt::ShapeName(c.shape);
      w[0] = std::make_unique<Worst>("precise known-solution " + shape + " position [mm]");
      w[1] = std::make_unique<Worst>("precise known-solution " + shape + " angle [rad]");
      w[2] = std::make_unique<Worst>("precise known-solution " + shape + " size [mm]");
      w[3] = std::make_unique<Worst>("precise known-solution " + shape + " deviations [mm]");
    }
    w[0]->Update(e.position, c.name);
    w[1]->Update(e.angle, c.name);
    w[2]->Update(e.size, c.name);
    w[3]->Update(deviation, c.name);
  }
}

}  // namespace
