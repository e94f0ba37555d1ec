#include "point_file.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tools_test_util.h"

namespace {

using metrofit::cli::InputError;
using metrofit::cli::ParsedLine;
using metrofit::cli::ParsePointLine;
using metrofit::cli::ReadPointFile;
using metrofit::cli::ReadPoints;
using metrofit_tools_test::TempFile;

void ExpectPoint(const std::string& line, double x, double y, double z) {
  const ParsedLine parsed = ParsePointLine(line);
  ASSERT_EQ(parsed.kind, ParsedLine::kPoint) << line << ": " << parsed.error;
  EXPECT_EQ(parsed.point.x, x) << line;
  EXPECT_EQ(parsed.point.y, y) << line;
  EXPECT_EQ(parsed.point.z, z) << line;
}

void ExpectMalformed(const std::string& line, const std::string& error) {
  const ParsedLine parsed = ParsePointLine(line);
  EXPECT_EQ(parsed.kind, ParsedLine::kMalformed) << line;
  EXPECT_EQ(parsed.error, error) << line;
}

// The message of the InputError that reading `text` throws; empty when nothing is thrown.
std::string ReadError(const std::string& text) {
  std::istringstream in(text);
  try {
    ReadPoints(in, "probe.txt");
  } catch (const InputError& e) {
    return e.what();
  }
  return std::string();
}

TEST(CliPointFile, ReadsBlankSeparatedCoordinates) {
  ExpectPoint("1 2 3", 1, 2, 3);
  ExpectPoint("  212.43800\t-148.71600   305.20400  ", 212.438, -148.716, 305.204);
  ExpectPoint("1 2 3\r", 1, 2, 3);  // a file written with CR LF line ends
}

TEST(CliPointFile, ReadsCommaSeparatedCoordinates) {
  ExpectPoint("1,2,3", 1, 2, 3);
  ExpectPoint("1.5, -2e-3 ,4", 1.5, -2e-3, 4);
  ExpectPoint("1, 2 3", 1, 2, 3);
}

TEST(CliPointFile, SkipsBlankLinesAndComments) {
  for (const char* line : {"", "   ", "\t\r", "# header", "   # indented comment"}) {
    const ParsedLine parsed = ParsePointLine(line);
    EXPECT_EQ(parsed.kind, ParsedLine::kBlank) << '"' << line << '"';
  }
  ExpectPoint("4 5 6 # touch 12", 4, 5, 6);
  ExpectPoint("4,5,6# no blank before the comment", 4, 5, 6);
}

TEST(CliPointFile, RejectsAWrongNumberOfCoordinates) {
  ExpectMalformed("1 2", "expected 3 coordinates (x y z), found 2");
  ExpectMalformed("1 2 3 0 0 1", "expected 3 coordinates (x y z), found 6");
  ExpectMalformed("7 # two numbers went into the comment 8 9",
                  "expected 3 coordinates (x y z), found 1");
}

TEST(CliPointFile, RejectsEmptyFields) {
  ExpectMalformed("1,,2,3", "empty field");
  ExpectMalformed(",1,2,3", "empty field");
  ExpectMalformed("1,2,3,", "empty field");
  ExpectMalformed("1, ,2", "empty field");
}

TEST(CliPointFile, RejectsWhatIsNotANumber) {
  ExpectMalformed("1 2 abc", "'abc' is not a number");
  ExpectMalformed("1 2 3mm", "'3mm' is not a number");
  ExpectMalformed("1;2;3", "expected 3 coordinates (x y z), found 1");
}

TEST(CliPointFile, RejectsNonFiniteCoordinates) {
  ExpectMalformed("nan 0 0", "non-finite coordinate 'nan'");
  ExpectMalformed("0 -inf 0", "non-finite coordinate '-inf'");
  ExpectMalformed("0 0 1e999", "non-finite coordinate '1e999'");  // overflows to infinity
}

TEST(CliPointFile, ReadsAllPointsInOrder) {
  std::istringstream in("# sphere probing\n1 2 3\n\n4,5,6\n  # end\n7 8 9");
  const auto points = ReadPoints(in, "probe.txt");
  ASSERT_EQ(points.size(), 3u);
  EXPECT_EQ(points[0], KPt3<double>(1, 2, 3));
  EXPECT_EQ(points[1], KPt3<double>(4, 5, 6));
  EXPECT_EQ(points[2], KPt3<double>(7, 8, 9));
}

TEST(CliPointFile, SkipsAByteOrderMarkAtTheStart) {
  std::istringstream in(
      "\xEF\xBB\xBF"
      "1 2 3\n");
  const auto points = ReadPoints(in, "probe.txt");
  ASSERT_EQ(points.size(), 1u);
  EXPECT_EQ(points[0], KPt3<double>(1, 2, 3));
}

TEST(CliPointFile, NamesSourceAndLineOfAMalformedLine) {
  EXPECT_EQ(ReadError("# header\n1 2 3\n\n4 5\n7 8 9\n"),
            "probe.txt:4: expected 3 coordinates (x y z), found 2");
  EXPECT_EQ(ReadError("1 2 3\r\n1 nan 3\r\n"), "probe.txt:2: non-finite coordinate 'nan'");
  EXPECT_EQ(ReadError("x,y,z\n1,2,3\n"), "probe.txt:1: 'x' is not a number");
}

TEST(CliPointFile, EmptyInputHasNoPoints) {
  std::istringstream in("");
  EXPECT_TRUE(ReadPoints(in, "empty.txt").empty());
  std::istringstream comments("# nothing measured\n\n");
  EXPECT_TRUE(ReadPoints(comments, "empty.txt").empty());
}

TEST(CliPointFile, ReadsAFile) {
  const TempFile file("# two touches\r\n0 0 0\r\n3,4,0\r\n");
  const auto points = ReadPointFile(file.path());
  ASSERT_EQ(points.size(), 2u);
  EXPECT_EQ(points[1], KPt3<double>(3, 4, 0));
}

TEST(CliPointFile, AMalformedFileNamesItsPath) {
  const TempFile file("1 2 3\n1 2\n");
  try {
    ReadPointFile(file.path());
    FAIL() << "no error for a malformed file";
  } catch (const InputError& e) {
    EXPECT_EQ(std::string(e.what()), file.path() + ":2: expected 3 coordinates (x y z), found 2");
  }
}

TEST(CliPointFile, AMissingFileIsAnInputError) {
  try {
    ReadPointFile("/nonexistent/metrofit/points.txt");
    FAIL() << "no error for a missing file";
  } catch (const InputError& e) {
    // The reason after the colon is the system's wording.
    EXPECT_EQ(std::string(e.what()).rfind("cannot open '/nonexistent/metrofit/points.txt': ", 0),
              0u)
        << e.what();
  }
}

TEST(CliPointFile, ADirectoryIsAnInputError) {
  const std::string dir = std::filesystem::temp_directory_path().string();
  try {
    ReadPointFile(dir);
    FAIL() << "no error for a directory";
  } catch (const InputError& e) {
    EXPECT_EQ(std::string(e.what()), "cannot read '" + dir + "': is a directory");
  }
}

}  // namespace
