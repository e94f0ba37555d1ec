// Choosing the format, files and standard input, the bundled examples, and damaged input.
#include "point_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>

#include "io_test_util.h"

namespace {

using namespace metrofit_io_test;
using metrofit::io::DetectPointFormat;
using metrofit::io::FormatFromExtension;
using metrofit::io::ParseColumnList;
using metrofit::io::PointFormatFromName;
using metrofit::io::PointFormatName;
using metrofit::io::ReadPoints;

const std::string kFormatsDir = std::string(METROFIT_EXAMPLES_DIR) + "/formats/";

// The example sphere every file in examples/data/formats holds.
constexpr double kCentre[3] = {212.438, -148.716, 305.204};
constexpr double kRadius = 12.5;
constexpr std::size_t kExamplePoints = 40;
// Six sigma of the 0.0015 mm probing noise plus the 5-decimal rounding: every point's distance
// from the true centre is this close to the radius.
constexpr double kRadiusTolerance = 6 * 0.0015 + 1e-5;
// A float32 keeps about 7 significant digits; the files storing x y z as float hold the
// nearest float to the text value.
constexpr double kFloatRelative = 1e-7;

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Standard input replaced by `bytes` for the lifetime of the object.
class StdinFrom {
 public:
  explicit StdinFrom(const std::string& bytes) : buffer_(bytes), saved_(std::cin.rdbuf(&buffer_)) {}
  ~StdinFrom() { std::cin.rdbuf(saved_); }
  StdinFrom(const StdinFrom&) = delete;
  StdinFrom& operator=(const StdinFrom&) = delete;

 private:
  std::stringbuf buffer_;
  std::streambuf* saved_;
};

TEST(PointFormat, ExtensionsChooseTheFormatInAnyCase) {
  EXPECT_EQ(FormatFromExtension("a/b.xyz"), PointFormat::kText);
  EXPECT_EQ(FormatFromExtension("b.TXT"), PointFormat::kText);
  EXPECT_EQ(FormatFromExtension("b.asc"), PointFormat::kText);
  EXPECT_EQ(FormatFromExtension("b.Csv"), PointFormat::kCsv);
  EXPECT_EQ(FormatFromExtension("scan.PLY"), PointFormat::kPly);
  EXPECT_EQ(FormatFromExtension("scan.pts"), PointFormat::kPts);
  EXPECT_EQ(FormatFromExtension("cloud.pcd"), PointFormat::kPcd);
  EXPECT_EQ(FormatFromExtension("points"), PointFormat::kAuto);
  EXPECT_EQ(FormatFromExtension("points.dat"), PointFormat::kAuto);
  EXPECT_EQ(FormatFromExtension("dir.ply/points"), PointFormat::kAuto);
  EXPECT_EQ(FormatFromExtension("-"), PointFormat::kAuto);
}

TEST(PointFormat, NamesRoundTrip) {
  for (const PointFormat format : {PointFormat::kAuto, PointFormat::kText, PointFormat::kCsv,
                                   PointFormat::kPly, PointFormat::kPts, PointFormat::kPcd}) {
    EXPECT_EQ(PointFormatFromName(PointFormatName(format)), format);
  }
  EXPECT_EQ(PointFormatFromName("XYZ"), PointFormat::kText);
  EXPECT_EQ(PointFormatFromName("PLY"), PointFormat::kPly);
  EXPECT_FALSE(PointFormatFromName("las").has_value());
  EXPECT_FALSE(PointFormatFromName("").has_value());
}

TEST(PointFormat, ContentChoosesWhenTheExtensionSaysNothing) {
  EXPECT_EQ(DetectPointFormat("ply\nformat ascii 1.0\n"), PointFormat::kPly);
  EXPECT_EQ(DetectPointFormat("ply\r\nformat ascii 1.0\r\n"), PointFormat::kPly);
  EXPECT_EQ(DetectPointFormat("# .PCD v0.7\nVERSION 0.7\n"), PointFormat::kPcd);
  EXPECT_EQ(DetectPointFormat("VERSION .7\nFIELDS x y z\n"), PointFormat::kPcd);
  EXPECT_EQ(DetectPointFormat("FIELDS x y z\n"), PointFormat::kPcd);
  EXPECT_EQ(DetectPointFormat("\n12\n1 2 3\n"), PointFormat::kPts);
  EXPECT_EQ(DetectPointFormat("x,y,z\n1,2,3\n"), PointFormat::kCsv);
  EXPECT_EQ(DetectPointFormat("# export\nid X Y Z\n"), PointFormat::kCsv);
  EXPECT_EQ(DetectPointFormat("1;2;3\n"), PointFormat::kCsv);
  EXPECT_EQ(DetectPointFormat("1\t2\t3\n"), PointFormat::kCsv);
  EXPECT_EQ(DetectPointFormat("1 2 3\n"), PointFormat::kText);
  EXPECT_EQ(DetectPointFormat("3,4,0\n"), PointFormat::kText);
  EXPECT_EQ(DetectPointFormat("1,5 2,5 3,5\n"), PointFormat::kText);
  EXPECT_EQ(DetectPointFormat(""), PointFormat::kText);
}

TEST(PointFormat, ContentIsReadWhenTheExtensionIsUnknown) {
  ExpectPoints(ParsePoints("x;y;z\n1;2;3\n", "export.dat", {}), {{1, 2, 3}});
  ExpectPoints(ParsePoints("2\n1 2 3\n4 5 6\n", "scan", {}), {{1, 2, 3}, {4, 5, 6}});
}

TEST(PointFormat, AnExplicitFormatOverridesTheExtension) {
  ExpectPoints(ParsePoints("x;y;z\n1;2;3\n", "points.txt", Options(PointFormat::kCsv)),
               {{1, 2, 3}});
  EXPECT_EQ(ParseError("1 2 3\n", "points.ply", Options(PointFormat::kText)), "");
  EXPECT_EQ(ParseError("1 2 3\n", "points.txt", Options(PointFormat::kPly)),
            "points.txt:1: not a PLY file: the first line is not 'ply'");
}

TEST(ColumnList, ParsesThreeDistinctOneBasedColumns) {
  EXPECT_EQ(ParseColumnList("2,3,4"), (std::vector<int>{2, 3, 4}));
  EXPECT_EQ(ParseColumnList(" 5, 1 ,9"), (std::vector<int>{5, 1, 9}));
  for (const char* bad : {"", "1,2", "1,2,3,4", "0,1,2", "1,1,2", "a,b,c", "1,,3", "-1,2,3",
                          "+1,2,3", "1.5,2,3", "1,2,3,", "99999999999,1,2"}) {
    EXPECT_FALSE(ParseColumnList(bad).has_value()) << bad;
  }
}

TEST(ColumnList, AppliesToTextAndCsvOnly) {
  EXPECT_EQ(
      ParseError("2\n1 2 3\n4 5 6\n", "scan.pts", Options(PointFormat::kAuto, false, {1, 2, 3})),
      "scan.pts: a column selection applies to text and CSV files, not pts");
  EXPECT_EQ(ParseError("1 2 3\n", "scan.xyz", Options(PointFormat::kAuto, false, {1, 1, 2})),
            "scan.xyz: a column selection names three distinct columns, counted from 1");
}

TEST(ReadPoints, ReadsFilesAndNamesThemInErrors) {
  const TempDir dir;
  const std::string good = dir.Write("good.xyz", "1 2 3\n");
  ExpectPoints(ReadPoints(good), {{1, 2, 3}});
  const std::string bad = dir.Write("bad.csv", "x,y,z\n1,2,3\n1,2,q\n");
  try {
    ReadPoints(bad);
    FAIL() << "no error";
  } catch (const PointFileError& e) {
    EXPECT_EQ(std::string(e.what()), bad + ":3: 'q' is not a number");
  }
}

TEST(ReadPoints, MissingFilesAndDirectoriesAreErrors) {
  const TempDir dir;
  try {
    ReadPoints(dir.path() + "/absent.ply");
    FAIL() << "no error";
  } catch (const PointFileError& e) {
    EXPECT_EQ(std::string(e.what()),
              "cannot open '" + dir.path() + "/absent.ply': No such file or directory");
  }
  try {
    ReadPoints(dir.path());
    FAIL() << "no error";
  } catch (const PointFileError& e) {
    EXPECT_EQ(std::string(e.what()), "cannot read '" + dir.path() + "': is a directory");
  }
}

TEST(ReadPoints, StandardInputIsReadByContent) {
  const StdinFrom input(Slurp(kFormatsDir + "sphere_be.ply"));
  EXPECT_EQ(ReadPoints("-").size(), kExamplePoints);
}

TEST(ReadPoints, StandardInputTakesAnExplicitFormat) {
  const StdinFrom input("x y z\n");
  try {
    ReadPoints("-", Options(PointFormat::kText));
    FAIL() << "no error";
  } catch (const PointFileError& e) {
    EXPECT_EQ(std::string(e.what()), "<stdin>:1: 'x' is not a number");
  }
}

TEST(ReadPoints, StandardInputErrorsNameIt) {
  const StdinFrom input("1;2;3\n4;5\n");
  try {
    ReadPoints("-");
    FAIL() << "no error";
  } catch (const PointFileError& e) {
    EXPECT_EQ(std::string(e.what()), "<stdin>:2: found 2 fields, the first row has 3");
  }
}

TEST(ReadPoints, StreamsKeepEveryByte) {
  std::string bytes = Slurp(kFormatsDir + "sphere_le.ply");
  std::istringstream in(bytes);
  EXPECT_EQ(ReadPoints(in, "scan.ply", {}).size(), kExamplePoints);
}

// ---- the bundled examples ----

struct Example {
  const char* file;
  ReadOptions options;
  bool float32;
};

std::vector<Example> Examples() {
  return {{"sphere.csv", {}, false},
          {"sphere_decimal_comma.csv", Options(PointFormat::kAuto, true, {2, 3, 4}), false},
          {"sphere.pts", {}, false},
          {"sphere_ascii.ply", {}, false},
          {"sphere_le.ply", {}, true},
          {"sphere_be.ply", {}, false},
          {"sphere_ascii.pcd", {}, false},
          {"sphere_binary.pcd", {}, false}};
}

TEST(Examples, TheTextFileHoldsTheProbedSphere) {
  const PointCloud cloud = ReadPoints(kFormatsDir + "sphere.xyz");
  ASSERT_EQ(cloud.size(), kExamplePoints);
  for (std::size_t i = 0; i < cloud.size(); ++i) {
    const Point p = At(cloud, i);
    const double r = std::hypot(p[0] - kCentre[0], p[1] - kCentre[1], p[2] - kCentre[2]);
    EXPECT_NEAR(r, kRadius, kRadiusTolerance) << "point " << i;
  }
}

TEST(Examples, EveryFormatHoldsTheSamePoints) {
  const PointCloud reference = ReadPoints(kFormatsDir + "sphere.xyz");
  for (const Example& example : Examples()) {
    SCOPED_TRACE(example.file);
    const PointCloud cloud = ReadPoints(kFormatsDir + example.file, example.options);
    ASSERT_EQ(cloud.xyz.size(), reference.xyz.size());
    for (std::size_t k = 0; k < cloud.xyz.size(); ++k) {
      if (example.float32) {
        EXPECT_TRUE(NearRelative(cloud.xyz[k], reference.xyz[k], kFloatRelative))
            << k << ": " << cloud.xyz[k] << " vs " << reference.xyz[k];
      } else {
        EXPECT_EQ(cloud.xyz[k], reference.xyz[k]) << k;
      }
    }
  }
}

TEST(Examples, EachFileIsRecognisedByContentAlone) {
  const std::vector<std::pair<const char*, PointFormat>> expected = {
      {"sphere.xyz", PointFormat::kText},
      {"sphere.csv", PointFormat::kCsv},
      {"sphere_decimal_comma.csv", PointFormat::kCsv},
      {"sphere.pts", PointFormat::kPts},
      {"sphere_ascii.ply", PointFormat::kPly},
      {"sphere_le.ply", PointFormat::kPly},
      {"sphere_be.ply", PointFormat::kPly},
      {"sphere_ascii.pcd", PointFormat::kPcd},
      {"sphere_binary.pcd", PointFormat::kPcd}};
  for (const auto& [file, format] : expected) {
    EXPECT_EQ(DetectPointFormat(Slurp(kFormatsDir + file)), format) << file;
  }
}

TEST(Examples, DecimalCommaFileIsRefusedWithoutTheOption) {
  const std::string path = kFormatsDir + "sphere_decimal_comma.csv";
  try {
    ReadPoints(path, Options(PointFormat::kAuto, false, {2, 3, 4}));
    FAIL() << "no error";
  } catch (const PointFileError& e) {
    const std::string message = e.what();
    EXPECT_EQ(message.rfind(path + ":1: decimal comma in '214,79002'", 0), 0u) << message;
    EXPECT_NE(message.find("--decimal-comma"), std::string::npos) << message;
  }
}

// ---- damaged input ----

// Random byte edits of every example: each read either succeeds or throws a PointFileError
// whose message names the file and is printable. Run under the sanitizers this also shows that
// no damaged file reads out of bounds.
TEST(DamagedInput, RandomEditsGiveCleanErrorsOnly) {
  constexpr int kEditsPerFile = 300;
  constexpr std::uint32_t kSeed = 20251125;
  std::mt19937 rng(kSeed);
  std::vector<Example> examples = Examples();
  examples.push_back({"sphere.xyz", {}, false});
  int errors = 0;
  for (const Example& example : examples) {
    const std::string whole = Slurp(kFormatsDir + example.file);
    ASSERT_FALSE(whole.empty()) << example.file;
    std::uniform_int_distribution<std::size_t> where(0, whole.size() - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int edit = 0; edit < kEditsPerFile; ++edit) {
      std::string bytes = whole;
      const int changes = 1 + edit % 4;
      for (int c = 0; c < changes; ++c) bytes[where(rng)] = static_cast<char>(byte(rng));
      if (edit % 5 == 0) bytes.resize(where(rng));
      try {
        ParsePoints(bytes, example.file, example.options);
      } catch (const PointFileError& e) {
        const std::string message = e.what();
        EXPECT_EQ(message.rfind(example.file, 0), 0u) << message;
        EXPECT_TRUE(Printable(message)) << message;
        EXPECT_LT(message.size(), 400u) << message;
        ++errors;
      }
    }
  }
  // Most edits break something a strict reader must notice.
  EXPECT_GT(errors, static_cast<int>(examples.size()) * kEditsPerFile / 2);
}

}  // namespace
