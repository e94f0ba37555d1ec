// CSV: detected delimiter, x y z found by header name or chosen by number.
#include <gtest/gtest.h>

#include <string>

#include "io_test_util.h"

namespace {

using namespace metrofit_io_test;

PointCloud Csv(const std::string& bytes, const ReadOptions& options = {}) {
  return ParsePoints(bytes, "probe.csv", options);
}

ReadOptions Columns(std::vector<int> columns, bool decimal_comma = false) {
  return Options(PointFormat::kAuto, decimal_comma, std::move(columns));
}

TEST(CsvReader, HeaderNamesTheColumnsInAnyCaseAndOrder) {
  ExpectPoints(Csv("x,y,z\n1,2,3\n"), {{1, 2, 3}});
  ExpectPoints(Csv("Z,X,Y\n3,1,2\n6,4,5\n"), {{1, 2, 3}, {4, 5, 6}});
  ExpectPoints(Csv(" x , Y ,z \n1,2,3\n"), {{1, 2, 3}});
}

TEST(CsvReader, OtherColumnsAreIgnoredEvenWhenTheyHoldText) {
  const std::string bytes =
      "id,x,y,z,probe,note\n"
      "P001,120.5,-40.25,310.125,A0B0,first touch\n"
      "P002,121.5,-41,311,A0B0,\n";
  ExpectPoints(Csv(bytes), {{120.5, -40.25, 310.125}, {121.5, -41, 311}});
}

TEST(CsvReader, DetectsSemicolonAndTabDelimiters) {
  ExpectPoints(Csv("X;Y;Z\n1.5;2.5;3.5\n"), {{1.5, 2.5, 3.5}});
  ExpectPoints(Csv("x\ty\tz\n1\t2\t3\n"), {{1, 2, 3}});
  ExpectPoints(Csv("1\t2\t3\n4\t5\t6\n"), {{1, 2, 3}, {4, 5, 6}});
}

TEST(CsvReader, QuotedFieldsAreUnquoted) {
  ExpectPoints(Csv("\"x\",\"y\",\"z\",\"label, with comma\"\n\"1\",2,\"3\",\"a \"\"b\"\"\"\n"),
               {{1, 2, 3}});
  EXPECT_EQ(ParseError("x,y,z\n1,2,\"3\n", "probe.csv"), "probe.csv:2: unterminated quoted field");
  EXPECT_EQ(ParseError("x,y,z\n1,2,\"3\"4\n", "probe.csv"),
            "probe.csv:2: text after a quoted field");
}

TEST(CsvReader, WithoutHeaderTheFirstThreeColumnsAreRead) {
  ExpectPoints(Csv("1,2,3,99\n4,5,6,98\n"), {{1, 2, 3}, {4, 5, 6}});
}

TEST(CsvReader, ChosenColumnsWithoutHeader) {
  ExpectPoints(Csv("17,1,2,3\n18,4,5,6\n", Columns({2, 3, 4})), {{1, 2, 3}, {4, 5, 6}});
}

TEST(CsvReader, ChosenColumnsOverrideAHeader) {
  ExpectPoints(Csv("x,y,z,u,v,w\n1,2,3,4,5,6\n", Columns({4, 5, 6})), {{4, 5, 6}});
}

TEST(CsvReader, ChosenColumnsSkipATextColumn) {
  ExpectPoints(Csv("P1;10;20;30\nP2;11;21;31\n", Columns({2, 3, 4})), {{10, 20, 30}, {11, 21, 31}});
}

TEST(CsvReader, CommentsAndBlankLinesAreSkippedAndCrLfAccepted) {
  ExpectPoints(Csv("# exported by the machine\r\n\r\nx,y,z\r\n1,2,3\r\n# end\r\n"), {{1, 2, 3}});
}

TEST(CsvReader, HeaderWithoutXyzNamesTheColumnsOption) {
  const std::string error = ParseError("id;a;b;c\nP1;1;2;3\n", "probe.csv");
  EXPECT_EQ(error.rfind("probe.csv:1: the first row is not numeric and has no 'x' column", 0), 0u)
      << error;
  EXPECT_NE(error.find("--columns"), std::string::npos) << error;
  EXPECT_NE(ParseError("x,y,w\n1,2,3\n", "probe.csv").find("no 'z' column"), std::string::npos);
}

TEST(CsvReader, HeaderNamingAColumnTwiceIsAnError) {
  EXPECT_EQ(ParseError("x,y,z,X\n1,2,3,4\n", "probe.csv"),
            "probe.csv:1: header names column 'x' twice");
}

TEST(CsvReader, FewerThanThreeColumnsIsAnError) {
  EXPECT_EQ(ParseError("x,y\n1,2\n", "probe.csv"),
            "probe.csv:1: found 2 columns, a point needs 3 (x y z)");
  EXPECT_EQ(ParseError("1;2\n", "probe.csv"),
            "probe.csv:1: found 2 columns, a point needs 3 (x y z)");
}

TEST(CsvReader, ASingleColumnHasNoDelimiter) {
  EXPECT_EQ(ParseError("# one value\n12.5\n", "probe.csv"),
            "probe.csv:2: no delimiter (comma, semicolon or tab) in the first row '12.5'");
}

TEST(CsvReader, ABlankSeparatedHeaderPointsToTheTextFormat) {
  const std::string error = ParseError("X Y Z\n1 2 3\n", "probe.csv");
  EXPECT_EQ(error.rfind("probe.csv:1: no delimiter (comma, semicolon or tab) in the first row "
                        "'X Y Z'; blank-separated columns are read as text",
                        0),
            0u)
      << error;
}

TEST(CsvReader, RowsOfAnotherWidthAreErrors) {
  EXPECT_EQ(ParseError("x;y;z\n1;2;3\n1;2\n", "probe.csv"),
            "probe.csv:3: found 2 fields, the first row has 3");
}

TEST(CsvReader, CommaRowsThatGrowHintAtDecimalCommas) {
  const std::string error = ParseError("x,y,z\n1,5,2,5,3,5\n", "probe.csv");
  EXPECT_EQ(error.rfind("probe.csv:2: found 6 fields, the first row has 3", 0), 0u) << error;
  EXPECT_NE(error.find("--decimal-comma"), std::string::npos) << error;
}

TEST(CsvReader, SemicolonDecimalCommasAreRefusedWithTheOptionNamed) {
  const std::string error = ParseError("x;y;z\n1,5;2,5;3,5\n", "probe.csv");
  EXPECT_EQ(error.rfind("probe.csv:2: decimal comma in '1,5'", 0), 0u) << error;
  EXPECT_NE(error.find("--decimal-comma"), std::string::npos) << error;
}

TEST(CsvReader, ReadsDecimalCommasWithSemicolonOrTab) {
  const ReadOptions comma = Options(PointFormat::kAuto, true);
  ExpectPoints(Csv("x;y;z\n1,5;2,5;-3,25\n", comma), {{1.5, 2.5, -3.25}});
  ExpectPoints(Csv("1,5\t2,5\t3\n", comma), {{1.5, 2.5, 3}});
  ExpectPoints(Csv("7;1,5;2,5;3,5\n", Columns({2, 3, 4}, true)), {{1.5, 2.5, 3.5}});
}

TEST(CsvReader, DecimalCommaModeNeedsSemicolonOrTab) {
  const std::string error =
      ParseError("x,y,z\n1,2,3\n", "probe.csv", Options(PointFormat::kAuto, true));
  EXPECT_EQ(error.rfind("probe.csv:1: no semicolon or tab delimiter in the first row", 0), 0u)
      << error;
}

TEST(CsvReader, DecimalCommaModeRefusesDecimalPoints) {
  const std::string error =
      ParseError("x;y;z\n1.5;2;3\n", "probe.csv", Options(PointFormat::kAuto, true));
  EXPECT_EQ(error.rfind("probe.csv:2: decimal point in '1.5'", 0), 0u) << error;
}

TEST(CsvReader, BadNumbersInTheChosenColumnsNameTheLine) {
  EXPECT_EQ(ParseError("x,y,z\n1,2,3\n1,,3\n", "probe.csv"), "probe.csv:3: '' is not a number");
  EXPECT_EQ(ParseError("x,y,z\n1,2,nan\n", "probe.csv"),
            "probe.csv:2: non-finite coordinate 'nan'");
  EXPECT_EQ(ParseError("x,y,z\n1,2,+-3\n", "probe.csv"), "probe.csv:2: '+-3' is not a number");
}

TEST(CsvReader, ChosenColumnBeyondTheRowIsAnError) {
  EXPECT_EQ(ParseError("1,2,3\n", "probe.csv", Columns({1, 2, 5})),
            "probe.csv:1: column 5 was chosen but the row has 3");
}

TEST(CsvReader, ControlBytesInAHeaderAreEscaped) {
  const std::string error = ParseError("id,\x1b[31mx,y\x07,z\n1,2,3,4\n", "probe.csv");
  EXPECT_TRUE(Printable(error)) << error;
  EXPECT_EQ(error.rfind("probe.csv:1: ", 0), 0u) << error;
}

TEST(CsvReader, EmptyInputHasNoPoints) {
  EXPECT_EQ(Csv("").size(), 0u);
  EXPECT_EQ(Csv("x,y,z\n").size(), 0u);
}

}  // namespace
