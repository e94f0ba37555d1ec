// PCD: ascii and binary data; x y z among fields of any size, type and count.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "io_test_util.h"

namespace {

using namespace metrofit_io_test;

struct PcdLayout {
  std::string fields = "x y z";
  std::string size = "4 4 4";
  std::string type = "F F F";
  std::string count = "1 1 1";
  std::string width = "2";
  std::string height = "1";
  std::string points = "2";
  std::string data = "ascii";
};

// A header of 12 lines (the first two are comments), ending with the DATA line.
std::string Header(const PcdLayout& layout) {
  std::string header = "# .PCD v0.7 - Point Cloud Data file format\n# made by the test\n";
  header += "VERSION 0.7\nFIELDS " + layout.fields + "\nSIZE " + layout.size + "\nTYPE " +
            layout.type + "\nCOUNT " + layout.count + "\nWIDTH " + layout.width + "\nHEIGHT " +
            layout.height + "\nVIEWPOINT 0 0 0 1 0 0 0\n";
  if (!layout.points.empty()) header += "POINTS " + layout.points + "\n";
  return header + "DATA " + layout.data + "\n";
}

PointCloud Pcd(const std::string& bytes) {
  return ParsePoints(bytes, "cloud.pcd", {});
}

// Binary records: rgb (U4), x (F8), normal (F4 x3), y (F4), label (I2), z (F8), ring (U1).
PcdLayout MixedLayout(std::size_t points) {
  PcdLayout layout;
  layout.fields = "rgb x normal y label z ring";
  layout.size = "4 8 4 4 2 8 1";
  layout.type = "U F F F I F U";
  layout.count = "1 1 3 1 1 1 1";
  layout.width = std::to_string(points);
  layout.points = std::to_string(points);
  layout.data = "binary";
  return layout;
}

std::string MixedBinary(const std::vector<Point>& points) {
  std::string bytes = Header(MixedLayout(points.size()));
  for (const Point& p : points) {
    Put<std::uint32_t>(&bytes, 0x00FF8040u);
    Put<double>(&bytes, p[0]);
    for (const float n : {0.0f, 0.6f, 0.8f}) Put(&bytes, n);
    Put<float>(&bytes, static_cast<float>(p[1]));
    Put<std::int16_t>(&bytes, -7);
    Put<double>(&bytes, p[2]);
    Put<std::uint8_t>(&bytes, 3);
  }
  return bytes;
}

TEST(PcdReader, ReadsAscii) {
  ExpectPoints(Pcd(Header(PcdLayout()) + "120.5 -40.25 310.125\n1 2 3\n"),
               {{120.5, -40.25, 310.125}, {1, 2, 3}});
}

TEST(PcdReader, AsciiSkipsOtherFieldsOfAnyCount) {
  PcdLayout layout;
  layout.fields = "intensity z normal y x";
  layout.size = "4 8 4 8 8";
  layout.type = "F F F F F";
  layout.count = "1 1 3 1 1";
  ExpectPoints(Pcd(Header(layout) + "0.5 3 nan nan nan 2 1\n7 6 0 0 1 5 4\n"),
               {{1, 2, 3}, {4, 5, 6}});
}

TEST(PcdReader, ReadsBinaryWithMixedFieldTypes) {
  const std::vector<Point> points = {{120.5, -40.25, 310.125}, {-1e-3, 2.5, 987654.321}};
  ExpectPoints(Pcd(MixedBinary(points)), points);
}

TEST(PcdReader, MissingCountAndPointsDefaultSensibly) {
  PcdLayout layout;
  layout.points = "";
  std::string header = Header(layout);
  header.erase(header.find("COUNT"), std::string("COUNT 1 1 1\n").size());
  ExpectPoints(Pcd(header + "1 2 3\n4 5 6\n"), {{1, 2, 3}, {4, 5, 6}});
}

TEST(PcdReader, OrganisedCloudsHaveWidthTimesHeightPoints) {
  PcdLayout layout;
  layout.width = "2";
  layout.height = "2";
  layout.points = "4";
  ExpectPoints(Pcd(Header(layout) + "1 1 1\n2 2 2\n3 3 3\n4 4 4\n"),
               {{1, 1, 1}, {2, 2, 2}, {3, 3, 3}, {4, 4, 4}});
}

TEST(PcdReader, CompressedDataIsRefusedWithAClearMessage) {
  PcdLayout layout;
  layout.data = "binary_compressed";
  EXPECT_EQ(ParseError(Header(layout) + std::string(16, '\0'), "cloud.pcd"),
            "cloud.pcd:12: DATA binary_compressed is not read; save the cloud with DATA binary "
            "or ascii");
}

TEST(PcdReader, HeaderErrorsNameTheLine) {
  PcdLayout layout;
  layout.points = "3";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: POINTS 3 disagrees with WIDTH x HEIGHT = 2");
  layout = PcdLayout();
  layout.size = "4 4";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: FIELDS, SIZE, TYPE and COUNT list different numbers of entries");
  layout = PcdLayout();
  layout.type = "F U F";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: field 'y' must be TYPE F, SIZE 4 or 8, COUNT 1");
  layout = PcdLayout();
  layout.count = "1 1 2";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: field 'z' must be TYPE F, SIZE 4 or 8, COUNT 1");
  layout = PcdLayout();
  layout.count = "1 0 1";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"), "cloud.pcd:12: bad COUNT '0'");
  layout = PcdLayout();
  layout.fields = "x y w";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: FIELDS must name 'z' exactly once");
  layout = PcdLayout();
  layout.fields = "x y x";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: FIELDS must name 'x' exactly once");
  layout = PcdLayout();
  layout.size = "4 2 4";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: unsupported field TYPE 'F' with SIZE '2'");
  layout = PcdLayout();
  layout.data = "text";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"),
            "cloud.pcd:12: expected 'DATA ascii' or 'DATA binary'");
  layout = PcdLayout();
  layout.width = "-2";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"), "cloud.pcd:8: expected 'WIDTH <count>'");
  EXPECT_EQ(ParseError("VERSION 0.7\nFIELDS x y z\nCOLOR red\n", "cloud.pcd"),
            "cloud.pcd:3: unknown PCD header line 'COLOR'");
  EXPECT_EQ(ParseError("VERSION 0.7\nFIELDS x y z\n", "cloud.pcd"),
            "cloud.pcd: PCD header has no DATA line");
  EXPECT_EQ(ParseError("VERSION 0.7\nDATA ascii\n", "cloud.pcd"),
            "cloud.pcd:2: PCD header has no FIELDS line");
  std::string no_width = Header(PcdLayout());
  no_width.erase(no_width.find("WIDTH"), std::string("WIDTH 2\n").size());
  EXPECT_EQ(ParseError(no_width, "cloud.pcd"), "cloud.pcd:11: PCD header has no WIDTH line");
}

TEST(PcdReader, EveryTruncationOfABinaryFileIsACleanError) {
  const std::string whole = MixedBinary({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const std::string error =
        ParseError(whole.substr(0, size), "cloud.pcd", Options(PointFormat::kPcd));
    EXPECT_EQ(error.rfind("cloud.pcd", 0), 0u) << size << ": " << error;
    EXPECT_TRUE(Printable(error)) << error;
  }
}

TEST(PcdReader, TruncatedBinaryNamesDeclaredAndAvailableBytes) {
  const std::string whole = MixedBinary({{1, 2, 3}, {4, 5, 6}});
  const std::size_t header = Header(MixedLayout(2)).size();
  EXPECT_EQ(ParseError(whole.substr(0, whole.size() - 1), "cloud.pcd"),
            "cloud.pcd: byte " + std::to_string(header) +
                ": header declares 2 points of at least 39 bytes each, but 77 bytes follow the "
                "header");
}

TEST(PcdReader, TrailingBytesMeanTheHeaderLies) {
  const std::string whole = MixedBinary({{1, 2, 3}});
  EXPECT_EQ(ParseError(whole + "\n\n", "cloud.pcd"),
            "cloud.pcd: byte " + std::to_string(whole.size()) +
                ": 2 bytes follow the last point the header declares");
}

TEST(PcdReader, HugeCountsAreRefusedBeforeAnyAllocation) {
  PcdLayout layout = MixedLayout(1);
  layout.width = "1000000000";
  layout.height = "1000";
  layout.points = "1000000000000";
  std::string bytes = Header(layout);
  const std::size_t header = bytes.size();
  bytes += std::string(39, '\0');
  EXPECT_EQ(ParseError(bytes, "cloud.pcd"),
            "cloud.pcd: byte " + std::to_string(header) +
                ": header declares 1000000000000 points of at least 39 bytes each, but 39 bytes "
                "follow the header");
  layout = PcdLayout();
  layout.width = "4294967296";
  layout.points = "4294967296";
  EXPECT_EQ(ParseError(Header(layout) + "1 2 3\n", "cloud.pcd"),
            "cloud.pcd:12: header declares 4294967296 points but 1 follow");
  layout.width = std::to_string(std::numeric_limits<std::uint64_t>::max());
  layout.height = "2";
  EXPECT_EQ(ParseError(Header(layout), "cloud.pcd"), "cloud.pcd:12: WIDTH x HEIGHT overflows");
}

TEST(PcdReader, NonFiniteBinaryCoordinateNamesItsOffset) {
  std::string bytes = Header([] {
    PcdLayout layout;
    layout.width = layout.points = "1";
    layout.data = "binary";
    return layout;
  }());
  const std::size_t header = bytes.size();
  Put(&bytes, 1.0f);
  Put(&bytes, 2.0f);
  Put(&bytes, std::numeric_limits<float>::infinity());
  EXPECT_EQ(ParseError(bytes, "cloud.pcd"),
            "cloud.pcd: byte " + std::to_string(header + 8) + ": non-finite coordinate in point 0");
}

TEST(PcdReader, AsciiRecordErrorsNameTheLine) {
  const std::string head = Header(PcdLayout());  // 12 lines
  EXPECT_EQ(ParseError(head + "1 2 3\n", "cloud.pcd"),
            "cloud.pcd:12: header declares 2 points but 1 follow");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 5 6\n7 8 9\n", "cloud.pcd"),
            "cloud.pcd:15: more points than the header's 2");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 5\n", "cloud.pcd"),
            "cloud.pcd:14: found 2 values, the fields hold 3");
  EXPECT_EQ(ParseError(head + "1 2 3\nnan 5 6\n", "cloud.pcd"),
            "cloud.pcd:14: non-finite coordinate 'nan'");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 5 6\x01\n", "cloud.pcd"),
            "cloud.pcd:14: '6\\x01' is not a number");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 5 6,5\n", "cloud.pcd")
                .rfind("cloud.pcd:14: decimal comma in '6,5'", 0),
            0u);
}

}  // namespace
