// Cylinder and cone fits of the NIST reference pairs (NIST Dimensional Metrology Group,
// Algorithm Testing System; reference least-squares fits computed in 60-digit arithmetic),
// compared with the certified results. The data are read at test time from
// METROFIT_REFDATA_DIR and the tests skip when they are absent.
//
// Compared quantities, independent of where a fit puts its point on the axis:
//   cylinder  angle between the axes (either sign); distance of the certified axis point from
//             the fitted axis; diameter
//   cone      angle between the axes (both point towards increasing radius); distance of the
//             certified axis point from the fitted axis; full apex angle; orthogonal distance
//             of the certified axis point from the fitted surface against the certified one
//
// What limits the agreement:
//   cylinder  the least-squares engine stops once the variance factor changed by less than
//             1e-6 (relative) between two iterations and does not write that last step into
//             the result. Near the solution S(theta) - S* = d^T (J^T J) d, so the parameters
//             may be off by up to sqrt(1e-6 S C_kk) (C = (J^T J)^-1, doubled for the rate of
//             convergence and second-order terms). That bound is computed per data set from
//             the certified fit and is the tolerance, with a rounding floor.
//   cone      the cone refinement (Levenberg-Marquardt) stops once no parameter moved by more
//             than 1e-10 in a step, which on slowly converging sets is short of the minimum: on
//             the 498-point con1 a Newton step from the result is still 6e-8 mm (from the
//             certified cone 1e-10 mm). Seen on these sets: up to 2.4e-8 mm, 9.3e-10 rad and
//             6.1e-8 degrees of apex angle; the fixed tolerances below allow factors of 6 to 16.
//
// Each test prints its largest errors ("[worst] ...").
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "metrofit.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"
#include "support/nist_reader.h"

namespace {

using metrofit::testing::AxisAngle;
using metrofit::testing::DirectedAngle;
using metrofit::testing::DistancePointToLine;
using metrofit::testing::NistPair;
using metrofit::testing::Pt;
using metrofit::testing::Shape;
using metrofit::testing::ShapeTruth;
using Worst = metrofit::testing::WorstError;

constexpr double kPi = 3.14159265358979323846;
// Stopping rule of the least-squares engine (relative change of the variance factor).
constexpr double kEngineRelativeChange = 1e-6;
// Rounding floor for the cylinder comparisons (coordinates up to 1000 mm, 5 decimals).
constexpr double kCylinderLengthFloor = 1e-10;  // mm
constexpr double kCylinderAngleFloor = 1e-12;   // rad
// Cone tolerances (see the file comment).
constexpr double kConeLength = 1.5e-7;          // mm
constexpr double kConeAngle = 1e-8;             // rad
constexpr double kConeApexAngleDegrees = 1e-6;  // full apex angle
// Points through which a set of as many points as the cone has parameters is fitted exactly.
constexpr double kInterpolationTolerance = 1e-9;  // mm
constexpr std::size_t kConeParameterCount = 6;

#define METROFIT_LOAD_PAIRS(folder, expectedCount, pairs)                               \
  const std::string dir_ = metrofit::testing::RefDataDir() + "/" folder;                \
  if (!metrofit::testing::DirectoryExists(dir_)) {                                      \
    GTEST_SKIP() << "NIST reference data not found at '" << dir_                        \
                 << "' (configure METROFIT_REFDATA_DIR); reference comparison skipped"; \
  }                                                                                     \
  const std::vector<NistPair> pairs = metrofit::testing::ListPairs(dir_);               \
  ASSERT_EQ((pairs).size(), static_cast<std::size_t>(expectedCount)) << "pairs in " << dir_

bool LoadPair(const NistPair& pair, std::vector<Pt>* points, std::vector<double>* fit) {
  std::string error;
  if (!metrofit::testing::ReadDataSet(pair.dataPath, points, &error) ||
      !metrofit::testing::ReadFitValues(pair.fitPath, fit, &error)) {
    ADD_FAILURE() << error;
    return false;
  }
  return true;
}

Pt Centroid(const std::vector<Pt>& points) {
  Pt c;
  for (const Pt& p : points) c += p;
  return c * (1.0 / static_cast<double>(points.size()));
}

// ---------------------------------------------------------------------------------------------
// Cylinders
// ---------------------------------------------------------------------------------------------

struct CylinderErrors {
  bool valid = false;
  double angle = 0.0, distance = 0.0, diameter = 0.0;
  metrofit::testing::ConvergenceBounds bounds;
};

CylinderErrors FitCylinder(const std::vector<Pt>& points,
                           const metrofit::testing::NistCylinder& ref,
                           bool referencePointAtCentroid) {
  CFitInput in;
  in.m_points = points;
  if (referencePointAtCentroid) in.m_refPoint = Centroid(points);
  CFitResult out;
  CylinderErrors e;
  e.valid = KFitCylinder(in, out) == 1 && out.m_valid == 1;
  e.angle = AxisAngle(out.m_axis, ref.axis);
  e.distance = DistancePointToLine(ref.point, out.m_center, out.m_axis);
  e.diameter = std::fabs(2.0 * out.m_size1.x - ref.diameter);

  // Convergence bounds about the certified cylinder, from the feet of the points on it.
  ShapeTruth t;
  t.shape = Shape::kCylinder;
  t.centre = ref.point;
  t.axis = ref.axis;
  t.axis.Normalize();
  t.radius = 0.5 * ref.diameter;
  std::vector<Pt> feet;
  double sum = 0.0;
  for (const Pt& p : points) {
    const double d = metrofit::testing::SignedDistance(t, p);
    sum += d * d;
    const Pt w = p - t.centre;
    Pt radial = w - t.axis * w.Dot(t.axis);
    radial.Normalize();
    feet.push_back(p - radial * d);
  }
  e.bounds = metrofit::testing::BoundsFor(t, feet, sum, kEngineRelativeChange);
  return e;
}

bool WithinBounds(const CylinderErrors& e) {
  return e.valid && e.angle <= e.bounds.axisAngle + kCylinderAngleFloor &&
         e.distance <= e.bounds.position + kCylinderLengthFloor &&
         e.diameter <= 2.0 * e.bounds.radius + kCylinderLengthFloor;
}

TEST(NistCylinderConeReference, CylindersMatchCertifiedFits) {
  // The cylinder iteration keeps its axis point at the foot of the perpendicular from the
  // input's reference point, so the reference point is put at the part (its centroid), as for
  // the line fits.
  METROFIT_LOAD_PAIRS("Cylinder", 30, pairs);
  Worst angle("cylinder axis angle [rad]");
  Worst distance("cylinder axis distance of certified point [mm]");
  Worst diameter("cylinder diameter difference [mm]");
  Worst ratio("cylinder largest error / convergence bound");
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    metrofit::testing::NistCylinder ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(metrofit::testing::DecodeCylinder(values, &ref)) << pair.fitPath;

    const CylinderErrors e = FitCylinder(points, ref, true);
    EXPECT_TRUE(e.valid);
    if (!e.valid) continue;
    EXPECT_LE(e.angle, e.bounds.axisAngle + kCylinderAngleFloor);
    EXPECT_LE(e.distance, e.bounds.position + kCylinderLengthFloor);
    EXPECT_LE(e.diameter, 2.0 * e.bounds.radius + kCylinderLengthFloor);
    angle.Update(e.angle, pair.name);
    distance.Update(e.distance, pair.name);
    diameter.Update(e.diameter, pair.name);
    ratio.Update(std::fmax(std::fmax(e.angle / e.bounds.axisAngle, e.distance / e.bounds.position),
                           e.diameter / (2.0 * e.bounds.radius)),
                 pair.name);
  }
}

TEST(NistCylinderConeReference, CylindersWithTheDefaultReferencePoint) {
  // With the reference point left at the origin (up to about 1000 mm from these parts): the
  // candidates run about the centroid whatever the caller's reference point, so every set
  // agrees, cyl3 (9 points on a 0.044 mm arc) and cyl7 (6 points) included.
  METROFIT_LOAD_PAIRS("Cylinder", 30, pairs);
  const std::set<std::string> knownFailures = {};
  Worst angle("cylinder (reference point at origin) axis angle [rad]");
  Worst distance("cylinder (reference point at origin) axis distance [mm]");
  Worst diameter("cylinder (reference point at origin) diameter difference [mm]");
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    metrofit::testing::NistCylinder ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(metrofit::testing::DecodeCylinder(values, &ref)) << pair.fitPath;

    const CylinderErrors e = FitCylinder(points, ref, false);
    if (knownFailures.count(pair.name) != 0) {
      EXPECT_FALSE(WithinBounds(e)) << pair.name << " now agrees; remove it from the list";
      std::printf("[known failure] %s: valid %d, axis angle %.3e rad, diameter error %.3e mm\n",
                  pair.name.c_str(), e.valid ? 1 : 0, e.angle, e.diameter);
      continue;
    }
    EXPECT_TRUE(WithinBounds(e)) << "angle " << e.angle << " (bound " << e.bounds.axisAngle
                                 << "), distance " << e.distance << " (bound " << e.bounds.position
                                 << "), diameter " << e.diameter;
    angle.Update(e.angle, pair.name);
    distance.Update(e.distance, pair.name);
    diameter.Update(e.diameter, pair.name);
  }
}

// ---------------------------------------------------------------------------------------------
// Cones
// ---------------------------------------------------------------------------------------------

// Orthogonal distance of p from the cone with apex a, unit axis u (opening towards +u) and
// half-angle h, for points whose foot lies on the nappe.
double ConeDistance(const Pt& p, const Pt& apex, const Pt& u, double half) {
  const Pt q = p - apex;
  return q.Cross(u).Length() * std::cos(half) - q.Dot(u) * std::sin(half);
}

TEST(NistCylinderConeReference, ConesMatchCertifiedFits) {
  METROFIT_LOAD_PAIRS("Cone", 30, pairs);
  Worst angle("cone axis angle [rad]");
  Worst distance("cone axis distance of certified point [mm]");
  Worst apexAngle("cone full apex angle difference [deg]");
  Worst surface("cone surface distance difference [mm]");
  int interpolated = 0;
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    metrofit::testing::NistCone ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(metrofit::testing::DecodeCone(values, &ref)) << pair.fitPath;

    CFitInput in;
    in.m_points = points;
    CFitResult out;
    EXPECT_EQ(KFitCone(in, out), 1);
    if (out.m_valid != 1) continue;
    const double half = std::atan(1.0 / out.m_size2.z);
    Pt axis = out.m_axis;
    axis.Normalize();

    if (points.size() == kConeParameterCount) {
      // As many points as parameters: cones through all of them generally form a family, and
      // the certified fit is one of them (NIST notes the 6-point set may have no unique
      // solution). Both must pass through every point; which one is found is not defined.
      ++interpolated;
      const double refHalf = ref.apexAngleDegrees * kPi / 360.0;
      Pt refAxis = ref.axis;
      refAxis.Normalize();
      const Pt refApex = ref.point - refAxis * (ref.surfaceDistance / std::sin(refHalf));
      double fitted = 0.0, certified = 0.0;
      for (const Pt& p : points) {
        fitted = std::fmax(fitted, std::fabs(ConeDistance(p, out.m_center, axis, half)));
        certified = std::fmax(certified, std::fabs(ConeDistance(p, refApex, refAxis, refHalf)));
      }
      EXPECT_LE(fitted, kInterpolationTolerance);
      EXPECT_LE(certified, kInterpolationTolerance);
      std::printf(
          "[non-unique] %s: fitted full apex angle %.6f deg, certified %.6f deg; largest point "
          "distance %.1e mm (fitted), %.1e mm (certified)\n",
          pair.name.c_str(), 2.0 * half * 180.0 / kPi, ref.apexAngleDegrees, fitted, certified);
      continue;
    }

    const double a = DirectedAngle(axis, ref.axis);
    const double d = DistancePointToLine(ref.point, out.m_center, axis);
    const double apex = std::fabs(2.0 * half * 180.0 / kPi - ref.apexAngleDegrees);
    const double s = std::fabs(std::fabs(ConeDistance(ref.point, out.m_center, axis, half)) -
                               ref.surfaceDistance);
    EXPECT_LE(a, kConeAngle);
    EXPECT_LE(d, kConeLength);
    EXPECT_LE(apex, kConeApexAngleDegrees);
    EXPECT_LE(s, kConeLength);
    angle.Update(a, pair.name);
    distance.Update(d, pair.name);
    apexAngle.Update(apex, pair.name);
    surface.Update(s, pair.name);
  }
  // Only the one set of six points is compared that way.
  EXPECT_EQ(interpolated, 1);
}

}  // namespace
