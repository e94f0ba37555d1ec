// The reader of the NIST reference pairs: layouts, separators, malformed files, pair listing.
#include "support/nist_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "metrofit.h"

namespace {

using metrofit::testing::ListPairs;
using metrofit::testing::ReadDataSet;
using metrofit::testing::ReadFitValues;

std::string WriteTemp(const std::string& name, const std::string& text) {
  const std::string path = ::testing::TempDir() + "metrofit_nist_reader_" + name;
  std::ofstream out(path, std::ios::binary);
  out << text;
  return path;
}

TEST(NistReader, ReadsPointsWithTabsSpacesAndCrLf) {
  const std::string path =
      WriteTemp("ok.ds", "3\r\n1.5\t-2.25\t3\r\n4.00001 5 6\r\n-7.5  8.125\t9.0\r\n");
  std::vector<KPt3<double>> pts;
  std::string error;
  ASSERT_TRUE(ReadDataSet(path, &pts, &error)) << error;
  ASSERT_EQ(pts.size(), 3u);
  EXPECT_EQ(pts[0], KPt3<double>(1.5, -2.25, 3.0));
  EXPECT_EQ(pts[1], KPt3<double>(4.00001, 5.0, 6.0));
  EXPECT_EQ(pts[2], KPt3<double>(-7.5, 8.125, 9.0));
}

TEST(NistReader, RejectsTruncatedAndMalformedDataSets) {
  std::vector<KPt3<double>> pts;
  std::string error;
  EXPECT_FALSE(ReadDataSet(WriteTemp("short.ds", "3\n1 2 3\n4 5 6\n7 8\n"), &pts, &error));
  EXPECT_FALSE(error.empty());
  EXPECT_TRUE(pts.empty());
  EXPECT_FALSE(ReadDataSet(WriteTemp("bad.ds", "2\n1 2 3\n4 x 6\n"), &pts, &error));
  EXPECT_FALSE(ReadDataSet(WriteTemp("nocount.ds", "abc\n"), &pts, &error));
  EXPECT_FALSE(ReadDataSet(WriteTemp("zero.ds", "0\n"), &pts, &error));
  EXPECT_FALSE(ReadDataSet(::testing::TempDir() + "metrofit_nist_reader_missing.ds", &pts, &error));
}

TEST(NistReader, ReadsTwentyDigitFitValuesCorrectlyRounded) {
  const std::string path =
      WriteTemp("ok.fit", "23.199058229376257545\r\n-0.015306418907075130756\r\n6\r\n");
  std::vector<double> v;
  std::string error;
  ASSERT_TRUE(ReadFitValues(path, &v, &error)) << error;
  ASSERT_EQ(v.size(), 3u);
  EXPECT_EQ(v[0], 23.199058229376257545);
  EXPECT_EQ(v[1], -0.015306418907075130756);
  EXPECT_EQ(v[2], 6.0);
  EXPECT_FALSE(ReadFitValues(WriteTemp("bad.fit", "1.0\n2.0x\n"), &v, &error));
  EXPECT_FALSE(ReadFitValues(WriteTemp("empty.fit", "\r\n"), &v, &error));
}

TEST(NistReader, DecodesEachLayoutAndRejectsWrongLengths) {
  metrofit::testing::NistSphere sphere;
  EXPECT_TRUE(metrofit::testing::DecodeSphere({1, 2, 3, 8}, &sphere));
  EXPECT_EQ(sphere.centre, KPt3<double>(1, 2, 3));
  EXPECT_EQ(sphere.diameter, 8.0);
  EXPECT_FALSE(metrofit::testing::DecodeSphere({1, 2, 3}, &sphere));
  metrofit::testing::NistPlane plane;
  EXPECT_TRUE(metrofit::testing::DecodePlane({1, 2, 3, 0, 0, 1}, &plane));
  EXPECT_EQ(plane.normal, KPt3<double>(0, 0, 1));
  EXPECT_FALSE(metrofit::testing::DecodePlane({1, 2, 3, 0, 0, 1, 5}, &plane));
  metrofit::testing::NistCone cone;
  EXPECT_TRUE(metrofit::testing::DecodeCone({1, 2, 3, 0, 0, 1, 5, 30}, &cone));
  EXPECT_EQ(cone.apexAngleDegrees, 30.0);
  metrofit::testing::NistLine line;
  EXPECT_FALSE(metrofit::testing::DecodeLine({1, 2, 3, 0, 0}, &line));
}

TEST(NistReader, ListsPairsInNaturalOrder) {
  const std::string dir = metrofit::testing::RefDataDir() + "/Plane";
  if (!metrofit::testing::DirectoryExists(dir)) {
    GTEST_SKIP() << "NIST reference data not found at " << dir;
  }
  const std::vector<metrofit::testing::NistPair> pairs = ListPairs(dir);
  ASSERT_EQ(pairs.size(), 30u);
  EXPECT_EQ(pairs[0].name, "pla1");
  EXPECT_EQ(pairs[1].name, "pla2");
  EXPECT_EQ(pairs[9].name, "pla10");
  EXPECT_EQ(pairs[29].name, "pla30");
  EXPECT_TRUE(ListPairs(dir + "/no-such-folder").empty());
}

}  // namespace
