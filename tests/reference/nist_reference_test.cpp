// Least-squares fits of the NIST reference pairs (NIST Dimensional Metrology Group, Algorithm
// Testing System; reference fits computed in 60-digit arithmetic) compared with the certified
// results. The data are read at test time from METROFIT_REFDATA_DIR and skipped when absent.
//
// Compared quantities, independent of where a fit puts its point on an axis or plane:
//   plane   angle between the normals; distance of the certified point from the fitted plane
//   sphere  distance between the centres; difference of the diameters
//   line    angle between the directions; distance of the certified point from the fitted line
// The line fit holds its line through the input's reference point, so the reference point is
// set to the centroid of the points, through which the least-squares line passes.
//
// Each test prints the largest error over all pairs ("[worst] ...").
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "metrofit.h"
#include "support/geometry_compare.h"
#include "support/nist_reader.h"

namespace {

using metrofit::testing::AxisAngle;
using metrofit::testing::DistancePointToLine;
using metrofit::testing::NistPair;
using metrofit::testing::Pt;

// Agreement required with the certified fits.
constexpr double kLengthTolerance = 1e-8;  // mm
constexpr double kAngleTolerance = 1e-9;   // rad

using Worst = metrofit::testing::WorstError;

// The pairs of one shape folder; skips the calling test when the data are not installed.
#define METROFIT_LOAD_PAIRS(folder, expectedCount, pairs)                               \
  const std::string dir_ = metrofit::testing::RefDataDir() + "/" folder;                \
  if (!metrofit::testing::DirectoryExists(dir_)) {                                      \
    GTEST_SKIP() << "NIST reference data not found at '" << dir_                        \
                 << "' (configure METROFIT_REFDATA_DIR); reference comparison skipped"; \
  }                                                                                     \
  const std::vector<NistPair> pairs = metrofit::testing::ListPairs(dir_);               \
  ASSERT_EQ((pairs).size(), static_cast<std::size_t>(expectedCount)) << "pairs in " << dir_

// Reads one pair; false (with a recorded failure) when either file is unusable.
bool LoadPair(const NistPair& pair, std::vector<Pt>* points, std::vector<double>* fit) {
  std::string error;
  if (!metrofit::testing::ReadDataSet(pair.dataPath, points, &error)) {
    ADD_FAILURE() << error;
    return false;
  }
  if (!metrofit::testing::ReadFitValues(pair.fitPath, fit, &error)) {
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

TEST(NistReference, PlanesMatchCertifiedFits) {
  METROFIT_LOAD_PAIRS("Plane", 30, pairs);
  Worst worstAngle("plane normal angle [rad]");
  Worst worstDistance("plane distance of certified point [mm]");
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    metrofit::testing::NistPlane ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(metrofit::testing::DecodePlane(values, &ref)) << pair.fitPath;

    CFitInput in;
    in.m_points = points;
    CFitResult out;
    const std::int32_t ret = KFitPlane(in, out);
    EXPECT_EQ(ret, 1);
    EXPECT_EQ(out.m_valid, 1);
    if (out.m_valid != 1) continue;

    // The plane is {x : x . m_axis = m_size2.y}.
    const double angle = AxisAngle(out.m_axis, ref.normal);
    const double distance = std::fabs(ref.point.Dot(out.m_axis) - out.m_size2.y);
    EXPECT_LE(angle, kAngleTolerance);
    EXPECT_LE(distance, kLengthTolerance);
    worstAngle.Update(angle, pair.name);
    worstDistance.Update(distance, pair.name);
  }
}

TEST(NistReference, SpheresMatchCertifiedFits) {
  METROFIT_LOAD_PAIRS("Sphere", 30, pairs);
  Worst worstCentre("sphere centre distance [mm]");
  Worst worstDiameter("sphere diameter difference [mm]");
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    metrofit::testing::NistSphere ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(metrofit::testing::DecodeSphere(values, &ref)) << pair.fitPath;

    CFitInput in;
    in.m_points = points;
    CFitResult out;
    const std::int32_t ret = KFitSphere(in, out);
    EXPECT_EQ(ret, 1);
    EXPECT_EQ(out.m_valid, 1);
    if (out.m_valid != 1) continue;

    const double centre = (out.m_center - ref.centre).Length();
    const double diameter = std::fabs(2.0 * out.m_size1.x - ref.diameter);
    EXPECT_LE(centre, kLengthTolerance);
    EXPECT_LE(diameter, kLengthTolerance);
    worstCentre.Update(centre, pair.name);
    worstDiameter.Update(diameter, pair.name);
  }
}

TEST(NistReference, LinesMatchCertifiedFits) {
  METROFIT_LOAD_PAIRS("Line3d", 2, pairs);
  Worst worstAngle("line direction angle [rad]");
  Worst worstDistance("line distance of certified point [mm]");
  for (const NistPair& pair : pairs) {
    SCOPED_TRACE(pair.dataPath);
    std::vector<Pt> points;
    std::vector<double> values;
    metrofit::testing::NistLine ref;
    if (!LoadPair(pair, &points, &values)) continue;
    ASSERT_TRUE(metrofit::testing::DecodeLine(values, &ref)) << pair.fitPath;
    ASSERT_GT(points.size(), 2u);  // two points would bypass the least-squares fit

    CFitInput in;
    in.m_points = points;
    in.m_refPoint = Centroid(points);
    CFitResult out;
    const std::int32_t ret = KFitLine(in, out);
    EXPECT_EQ(ret, 1);
    EXPECT_EQ(out.m_valid, 1);
    if (out.m_valid != 1) continue;

    EXPECT_EQ(out.m_center, in.m_refPoint);  // the line is held through the reference point
    const double angle = AxisAngle(out.m_axis, ref.direction);
    const double distance = DistancePointToLine(ref.point, out.m_center, out.m_axis);
    EXPECT_LE(angle, kAngleTolerance);
    EXPECT_LE(distance, kLengthTolerance);
    worstAngle.Update(angle, pair.name);
    worstDistance.Update(distance, pair.name);
  }
}

}  // namespace
