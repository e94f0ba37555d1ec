// PTS: a point count, then x y z with optional intensity and colour.
#include <gtest/gtest.h>

#include <string>

#include "io_test_util.h"

namespace {

using namespace metrofit_io_test;

PointCloud Pts(const std::string& bytes, const ReadOptions& options = {}) {
  return ParsePoints(bytes, "scan.pts", options);
}

TEST(PtsReader, ReadsEveryLineLayout) {
  ExpectPoints(Pts("2\n1 2 3\n4 5 6\n"), {{1, 2, 3}, {4, 5, 6}});
  ExpectPoints(Pts("1\n1 2 3 -1200\n"), {{1, 2, 3}});
  ExpectPoints(Pts("1\n1 2 3 10 20 30\n"), {{1, 2, 3}});
  ExpectPoints(Pts("2\r\n1 2 3 -5 255 128 0\r\n4 5 6 7 0 0 0\r\n"), {{1, 2, 3}, {4, 5, 6}});
}

TEST(PtsReader, ReadsSeveralScansOneAfterAnother) {
  ExpectPoints(Pts("1\n1 2 3\n2\n4 5 6\n7 8 9\n"), {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
  ExpectPoints(Pts("0\n1\n1 2 3\n"), {{1, 2, 3}});
}

TEST(PtsReader, FewerPointsThanDeclaredIsAnError) {
  EXPECT_EQ(ParseError("3\n1 2 3\n4 5 6\n", "scan.pts"),
            "scan.pts:1: declares 3 points but 2 follow");
  EXPECT_EQ(ParseError("1\n1 2 3\n3\n4 5 6\n", "scan.pts"),
            "scan.pts:3: declares 3 points but 1 follow");
  // A new count line before the previous scan is complete.
  EXPECT_EQ(ParseError("3\n1 2 3\n2\n4 5 6\n", "scan.pts"),
            "scan.pts:1: declares 3 points but 1 follow");
}

TEST(PtsReader, MorePointsThanDeclaredIsAnError) {
  EXPECT_EQ(ParseError("1\n1 2 3\n4 5 6\n", "scan.pts"),
            "scan.pts:3: more points than the 1 declared on line 1");
}

TEST(PtsReader, TheFirstLineMustBeACount) {
  for (const char* first : {"abc", "-5", "1.5", "+3", "2 3", "1e3"}) {
    const std::string error = ParseError(std::string(first) + "\n1 2 3\n", "scan.pts");
    EXPECT_EQ(error.rfind("scan.pts:1: expected the point count of a PTS scan", 0), 0u) << error;
  }
  EXPECT_EQ(ParseError("99999999999999999999999\n1 2 3\n", "scan.pts").rfind("scan.pts:1: ", 0),
            0u);
}

TEST(PtsReader, AHugeCountIsCheckedNotAllocated) {
  EXPECT_EQ(ParseError("18446744073709551615\n1 2 3\n", "scan.pts"),
            "scan.pts:1: declares 18446744073709551615 points but 1 follow");
  EXPECT_EQ(ParseError("4000000000\n1 2 3\n", "scan.pts"),
            "scan.pts:1: declares 4000000000 points but 1 follow");
}

TEST(PtsReader, RefusesLinesOfOtherWidths) {
  EXPECT_EQ(ParseError("2\n1 2 3\n4 5\n", "scan.pts"),
            "scan.pts:3: found 2 values; a PTS point is x y z [intensity] [r g b]");
  EXPECT_EQ(ParseError("1\n1 2 3 4 5\n", "scan.pts"),
            "scan.pts:2: found 5 values; a PTS point is x y z [intensity] [r g b]");
  EXPECT_EQ(ParseError("1\n1 2 3 4 5 6 7 8\n", "scan.pts"),
            "scan.pts:2: found 8 values; a PTS point is x y z [intensity] [r g b]");
}

TEST(PtsReader, RefusesBadNumbers) {
  EXPECT_EQ(ParseError("1\n1 2 nan\n", "scan.pts"), "scan.pts:2: non-finite coordinate 'nan'");
  EXPECT_EQ(ParseError("1\n1 2 3 x\n", "scan.pts"), "scan.pts:2: 'x' is not a number");
  const std::string error = ParseError("1\n1,5 2,5 3,5\n", "scan.pts");
  EXPECT_NE(error.find("--decimal-comma"), std::string::npos) << error;
}

TEST(PtsReader, ReadsDecimalCommasWhenAsked) {
  ExpectPoints(Pts("1\n1,5 2,5 3,5 7\n", Options(PointFormat::kAuto, true)), {{1.5, 2.5, 3.5}});
}

TEST(PtsReader, EmptyInputHasNoCount) {
  EXPECT_EQ(ParseError("", "scan.pts"), "scan.pts: no point count: the file holds no PTS data");
  EXPECT_EQ(ParseError("\n\n", "scan.pts"), "scan.pts: no point count: the file holds no PTS data");
}

}  // namespace
