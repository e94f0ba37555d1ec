// Whitespace (or comma) separated text: .xyz .txt .asc.
#include <gtest/gtest.h>

#include <string>

#include "io_test_util.h"

namespace {

using namespace metrofit_io_test;

PointCloud Text(const std::string& bytes, const ReadOptions& options = {}) {
  return ParsePoints(bytes, "probe.xyz", options);
}

TEST(TextReader, ReadsOnePointPerLineWithCommentsAndBlankLines) {
  const std::string bytes =
      "# bore, section 1\n"
      "\n"
      "120.5 -40.25 310.125  # first touch\n"
      "   \t\n"
      "\t121.5\t-41.0  311.0\n";
  ExpectPoints(Text(bytes), {{120.5, -40.25, 310.125}, {121.5, -41.0, 311.0}});
}

TEST(TextReader, AcceptsCrLfByteOrderMarkAndMissingFinalNewline) {
  ExpectPoints(Text("\xEF\xBB\xBF"
                    "1 2 3\r\n4 5 6"),
               {{1, 2, 3}, {4, 5, 6}});
}

TEST(TextReader, OldMacLineEndsAreLineEnds) {
  ExpectPoints(Text("1 2 3\r4 5 6\r\r7 8 9\r\n10 11 12"),
               {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}});
  EXPECT_EQ(ParseError("1 2 3\r4 5\r", "probe.xyz"),
            "probe.xyz:2: found 2 values, the first point line has 3");
}

TEST(TextReader, AcceptsCommaSeparatedLinesWithOrWithoutBlanks) {
  ExpectPoints(Text("3,4,0\n120.5, -40.25, 310.125\n1 ,2 , 3\n"),
               {{3, 4, 0}, {120.5, -40.25, 310.125}, {1, 2, 3}});
}

TEST(TextReader, TakesTheFirstThreeOfEquallyWideLines) {
  // x y z with a normal, as scanners write them.
  ExpectPoints(Text("1 2 3 0 0 1\n4 5 6 0 1 0\n"), {{1, 2, 3}, {4, 5, 6}});
}

TEST(TextReader, RefusesLinesOfDifferentWidth) {
  EXPECT_EQ(ParseError("1 2 3\n# note\n4 5 6 7\n", "probe.xyz"),
            "probe.xyz:3: found 4 values, the first point line has 3");
  EXPECT_EQ(ParseError("1 2 3 4\n5 6 7\n", "probe.xyz"),
            "probe.xyz:2: found 3 values, the first point line has 4");
}

TEST(TextReader, RefusesFewerThanThreeColumns) {
  EXPECT_EQ(ParseError("1 2\n3 4\n", "plane.txt"),
            "plane.txt:1: found 2 columns, a point needs 3 (x y z)");
  EXPECT_EQ(ParseError("\n# heights\n7\n8\n", "heights.asc"),
            "heights.asc:3: found 1 column, a point needs 3 (x y z)");
}

TEST(TextReader, RefusesTextInAnyColumn) {
  EXPECT_EQ(ParseError("1 2 3 ok\n", "probe.xyz"), "probe.xyz:1: 'ok' is not a number");
  EXPECT_EQ(ParseError("1 2 3\n1 abc 3\n", "probe.xyz"), "probe.xyz:2: 'abc' is not a number");
  EXPECT_EQ(ParseError("1 2 3\n1 2 0x10\n", "probe.xyz"), "probe.xyz:2: '0x10' is not a number");
}

TEST(TextReader, RefusesNonFiniteCoordinates) {
  EXPECT_EQ(ParseError("1 2 3\n1 nan 3\n", "probe.xyz"),
            "probe.xyz:2: non-finite coordinate 'nan'");
  EXPECT_EQ(ParseError("1 2 -inf\n", "probe.xyz"), "probe.xyz:1: non-finite coordinate '-inf'");
}

TEST(TextReader, RefusesEmptyCommaFields) {
  EXPECT_EQ(ParseError("1,,3\n", "probe.txt"), "probe.txt:1: empty field");
  EXPECT_EQ(ParseError("1,2,3,\n", "probe.txt"), "probe.txt:1: empty field");
  EXPECT_EQ(ParseError(",1,2,3\n", "probe.txt"), "probe.txt:1: empty field");
}

TEST(TextReader, DecimalCommasAreRefusedWithTheOptionNamed) {
  const std::string error = ParseError("1.0 2.0 3.0\n1,5 2,5 3,5\n", "probe.txt");
  EXPECT_EQ(error.rfind("probe.txt:2: fields separated by both blanks and commas", 0), 0u) << error;
  EXPECT_NE(error.find("--decimal-comma"), std::string::npos) << error;
}

TEST(TextReader, ReadsDecimalCommasWhenAsked) {
  ExpectPoints(Text("1,5 2,5 -3,25\n10 20 30\n", Options(PointFormat::kAuto, true)),
               {{1.5, 2.5, -3.25}, {10, 20, 30}});
}

TEST(TextReader, DecimalCommaModeRefusesDecimalPoints) {
  const std::string error =
      ParseError("1,5 2,5 3,5\n1.5 2 3\n", "probe.txt", Options(PointFormat::kAuto, true));
  EXPECT_EQ(error.rfind("probe.txt:2: decimal point in '1.5'", 0), 0u) << error;
}

TEST(TextReader, ChosenColumnsReadAnyThreeInAnyOrder) {
  const std::string bytes = "7 1 2 3\n8 4 5 6\n";
  ExpectPoints(Text(bytes, Options(PointFormat::kAuto, false, {2, 3, 4})), {{1, 2, 3}, {4, 5, 6}});
  ExpectPoints(Text(bytes, Options(PointFormat::kAuto, false, {4, 2, 1})), {{3, 1, 7}, {6, 4, 8}});
}

TEST(TextReader, ChosenColumnBeyondTheLineIsAnError) {
  EXPECT_EQ(ParseError("1 2 3\n", "probe.xyz", Options(PointFormat::kAuto, false, {2, 3, 4})),
            "probe.xyz:1: column 4 was chosen but the row has 3");
}

TEST(TextReader, EmptyOrCommentOnlyInputHasNoPoints) {
  EXPECT_EQ(Text("").size(), 0u);
  EXPECT_EQ(Text("# nothing measured\n\n").size(), 0u);
}

TEST(TextReader, ErrorsEscapeControlBytesAndCutLongFields) {
  const std::string error = ParseError("1 2 3\n1 2 \x01\x1b[2J\x7f\n", "probe.xyz");
  EXPECT_EQ(error, "probe.xyz:2: '\\x01\\x1B[2J\\x7F' is not a number");
  const std::string garbage = "1 2 " + std::string(100000, '\x07') + "\n";
  const std::string long_error = ParseError(garbage, "probe.xyz");
  EXPECT_TRUE(Printable(long_error)) << long_error;
  EXPECT_LT(long_error.size(), 300u);
  EXPECT_NE(long_error.find("(100000 bytes)"), std::string::npos) << long_error;
}

TEST(TextReader, BinaryGarbageIsAReadableError) {
  const std::string bytes("\x00\x01\x02 \xff\xfe 3\n", 9);
  const std::string error = ParseError(bytes, "probe.xyz");
  EXPECT_EQ(error.rfind("probe.xyz:1: ", 0), 0u) << error;
  EXPECT_TRUE(Printable(error)) << error;
}

}  // namespace
