// PLY: ascii and binary of both byte orders; only the vertex positions are kept.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "io_test_util.h"

namespace {

using namespace metrofit_io_test;

constexpr char kLittle[] = "binary_little_endian";
constexpr char kBig[] = "binary_big_endian";

std::string Header(const std::string& format, const std::string& elements) {
  return "ply\nformat " + format + " 1.0\ncomment made by the test\n" + elements + "end_header\n";
}

std::string VertexXyz(const std::string& type, std::size_t count) {
  return "element vertex " + std::to_string(count) + "\nproperty " + type + " x\nproperty " + type +
         " y\nproperty " + type + " z\n";
}

PointCloud Ply(const std::string& bytes) {
  return ParsePoints(bytes, "scan.ply", {});
}

// Two vertices of double x y z in the given byte order.
std::string DoubleVertices(bool big_endian) {
  std::string bytes = Header(big_endian ? kBig : kLittle, VertexXyz("double", 2));
  for (const double v : {120.5, -40.25, 310.125, 1e-3, -0.0, 987654.321}) {
    Put(&bytes, v, big_endian);
  }
  return bytes;
}

TEST(PlyReader, ReadsAscii) {
  const std::string bytes =
      Header("ascii", VertexXyz("float", 2)) + "120.5 -40.25 310.125\n1 2 3\n";
  ExpectPoints(Ply(bytes), {{120.5, -40.25, 310.125}, {1, 2, 3}});
}

TEST(PlyReader, ReadsAsciiWithCrLfAndBlankLines) {
  const std::string bytes =
      "ply\r\nformat ascii 1.0\r\nelement vertex 2\r\nproperty double x\r\n"
      "property double y\r\nproperty double z\r\nend_header\r\n1 2 3\r\n\r\n4 5 6\r\n";
  ExpectPoints(Ply(bytes), {{1, 2, 3}, {4, 5, 6}});
}

TEST(PlyReader, ReadsBinaryDoublesInBothByteOrders) {
  const std::vector<Point> expected = {{120.5, -40.25, 310.125}, {1e-3, -0.0, 987654.321}};
  ExpectPoints(Ply(DoubleVertices(false)), expected);
  ExpectPoints(Ply(DoubleVertices(true)), expected);
}

TEST(PlyReader, ReadsBinaryFloatsInBothByteOrders) {
  for (const bool big : {false, true}) {
    std::string bytes = Header(big ? kBig : kLittle, VertexXyz("float32", 1));
    for (const float v : {120.5f, -40.25f, 310.125f}) Put(&bytes, v, big);
    ExpectPoints(Ply(bytes), {{120.5, -40.25, 310.125}});
  }
}

// Every scalar type and alias as an extra vertex property, x y z in an unusual order, and a
// face element with lists before and after the vertices.
std::string EveryTypeFile(bool big_endian) {
  const std::string properties =
      "property char a\nproperty uchar b\nproperty short c\nproperty ushort d\nproperty int e\n"
      "property uint f\nproperty float g\nproperty double h\nproperty int8 i\n"
      "property uint8 j\nproperty int16 k\nproperty uint16 l\nproperty int32 m\n"
      "property uint32 n\nproperty float32 o\nproperty float64 p\n"
      "property list uchar int neighbours\n";
  const std::string elements =
      "element face 1\nproperty list uchar uint vertex_indices\nproperty uchar material\n"
      "element vertex 2\nproperty double z\n" +
      properties +
      "property float x\nproperty double y\n"
      "element edge 1\nproperty int8 v1\nproperty list ushort float weights\n";
  std::string bytes = Header(big_endian ? kBig : kLittle, elements);
  Put<std::uint8_t>(&bytes, 3, big_endian);
  for (const std::uint32_t index : {0u, 1u, 0u}) Put(&bytes, index, big_endian);
  Put<std::uint8_t>(&bytes, 9, big_endian);
  for (int v = 0; v < 2; ++v) {
    Put<double>(&bytes, 300.0 + v, big_endian);
    Put<std::int8_t>(&bytes, -1, big_endian);
    Put<std::uint8_t>(&bytes, 255, big_endian);
    Put<std::int16_t>(&bytes, -2, big_endian);
    Put<std::uint16_t>(&bytes, 65535, big_endian);
    Put<std::int32_t>(&bytes, -3, big_endian);
    Put<std::uint32_t>(&bytes, 4000000000u, big_endian);
    Put<float>(&bytes, 0.5f, big_endian);
    Put<double>(&bytes, 0.25, big_endian);
    Put<std::int8_t>(&bytes, 5, big_endian);
    Put<std::uint8_t>(&bytes, 6, big_endian);
    Put<std::int16_t>(&bytes, 7, big_endian);
    Put<std::uint16_t>(&bytes, 8, big_endian);
    Put<std::int32_t>(&bytes, 9, big_endian);
    Put<std::uint32_t>(&bytes, 10, big_endian);
    Put<float>(&bytes, 11.0f, big_endian);
    Put<double>(&bytes, 12.0, big_endian);
    Put<std::uint8_t>(&bytes, static_cast<std::uint8_t>(v), big_endian);  // list length 0 or 1
    if (v == 1) Put<std::int32_t>(&bytes, 0, big_endian);
    Put<float>(&bytes, 100.0f + static_cast<float>(v), big_endian);
    Put<double>(&bytes, -200.0 - v, big_endian);
  }
  Put<std::int8_t>(&bytes, 1, big_endian);
  Put<std::uint16_t>(&bytes, 2, big_endian);
  Put<float>(&bytes, 0.1f, big_endian);
  Put<float>(&bytes, 0.9f, big_endian);
  return bytes;
}

TEST(PlyReader, SkipsEveryOtherPropertyTypeAndElementInBothByteOrders) {
  for (const bool big : {false, true}) {
    ExpectPoints(Ply(EveryTypeFile(big)), {{100, -200, 300}, {101, -201, 301}});
  }
}

TEST(PlyReader, AsciiSkipsOtherPropertiesAndListElements) {
  const std::string elements =
      "element face 2\nproperty list uchar int vertex_indices\n"
      "element vertex 2\nproperty float nx\nproperty double z\nproperty list uint8 int32 tags\n"
      "property double x\nproperty uchar red\nproperty double y\n";
  const std::string bytes = Header("ascii", elements) +
                            "3 0 1 0\n0\n"
                            "0.5 3 2 7 8 1 255 2\n"
                            "0.5 6 0 4 0 5\n";
  ExpectPoints(Ply(bytes), {{1, 2, 3}, {4, 5, 6}});
}

TEST(PlyReader, ObjInfoAndCommentsAreIgnored) {
  const std::string bytes = "ply\nformat ascii 1.0\nobj_info scanner 3\ncomment a b c\n" +
                            VertexXyz("double", 1) + "comment late\nend_header\n1 2 3\n";
  ExpectPoints(Ply(bytes), {{1, 2, 3}});
}

TEST(PlyReader, ZeroVerticesIsAnEmptyCloud) {
  EXPECT_EQ(Ply(Header(kLittle, VertexXyz("float", 0))).size(), 0u);
  EXPECT_EQ(Ply(Header("ascii", VertexXyz("float", 0))).size(), 0u);
}

TEST(PlyReader, HeaderErrorsNameTheLine) {
  const std::string vertex = VertexXyz("float", 1);
  const std::string data = "1 2 3\n";
  EXPECT_EQ(ParseError("plx\n" + vertex, "scan.ply", Options(PointFormat::kPly)),
            "scan.ply:1: not a PLY file: the first line is not 'ply'");
  EXPECT_EQ(ParseError("ply\n" + vertex + "end_header\n" + data, "scan.ply"),
            "scan.ply:6: PLY header has no 'format' line");
  EXPECT_EQ(ParseError("ply\nformat ascii 2.0\n", "scan.ply"),
            "scan.ply:2: expected 'format <encoding> 1.0'");
  EXPECT_EQ(ParseError("ply\nformat binary_middle_endian 1.0\n", "scan.ply"),
            "scan.ply:2: unknown PLY format 'binary_middle_endian'");
  EXPECT_EQ(ParseError("ply\nformat ascii 1.0\nformat ascii 1.0\n", "scan.ply"),
            "scan.ply:3: second 'format' line");
  EXPECT_EQ(ParseError("ply\nformat ascii 1.0\n" + vertex, "scan.ply"),
            "scan.ply: PLY header has no 'end_header' line");
  EXPECT_EQ(ParseError("ply\nformat ascii 1.0\nproperty float x\n", "scan.ply"),
            "scan.ply:3: property before any element");
  EXPECT_EQ(ParseError("ply\nformat ascii 1.0\nelement vertex many\n", "scan.ply"),
            "scan.ply:3: expected 'element <name> <count>'");
  EXPECT_EQ(ParseError("ply\nformat ascii 1.0\nelement vertex -1\n", "scan.ply"),
            "scan.ply:3: expected 'element <name> <count>'");
  EXPECT_EQ(
      ParseError("ply\nformat ascii 1.0\nelement vertex 1\nproperty float128 x\n", "scan.ply"),
      "scan.ply:4: unknown PLY property type 'float128'");
  EXPECT_EQ(ParseError("ply\nformat ascii 1.0\nelement vertex 1\nproperty list float int x\n",
                       "scan.ply"),
            "scan.ply:4: a list count must have an integer type");
  EXPECT_EQ(ParseError("ply\nformat ascii 1.0\ncolour red\n", "scan.ply"),
            "scan.ply:3: unknown PLY header line 'colour'");
}

TEST(PlyReader, VertexPositionsMustBeFloatOrDouble) {
  EXPECT_EQ(ParseError(Header("ascii", "element face 0\nproperty uchar a\n"), "scan.ply"),
            "scan.ply: PLY header has no 'vertex' element");
  EXPECT_EQ(ParseError(
                Header("ascii", "element vertex 1\nproperty float x\nproperty float y\n") + "1 2\n",
                "scan.ply"),
            "scan.ply:4: the vertex element needs exactly one 'z' property");
  EXPECT_EQ(ParseError(Header("ascii", VertexXyz("float", 1) + "property float x\n"), "scan.ply"),
            "scan.ply:4: the vertex element needs exactly one 'x' property");
  EXPECT_EQ(ParseError(Header("ascii", VertexXyz("int", 1)), "scan.ply"),
            "scan.ply:4: vertex property 'x' must be float or double");
  EXPECT_EQ(ParseError(Header("ascii",
                              "element vertex 1\nproperty list uchar float x\nproperty float y\n"
                              "property float z\n"),
                       "scan.ply"),
            "scan.ply:4: vertex property 'x' must be float or double");
  EXPECT_EQ(ParseError(Header("ascii", VertexXyz("float", 1) + "element empty 3\n"), "scan.ply"),
            "scan.ply:8: element 'empty' has no properties");
}

TEST(PlyReader, AnElementDeclaredTwiceIsAnError) {
  EXPECT_EQ(
      ParseError(Header("ascii", VertexXyz("float", 1) + "element vertex 1\nproperty float w\n") +
                     "1 2 3\n4\n",
                 "scan.ply"),
      "scan.ply:8: element 'vertex' declared twice");
}

TEST(PlyReader, EveryTruncationOfABinaryFileIsACleanError) {
  for (const bool big : {false, true}) {
    const std::string whole = EveryTypeFile(big);
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const std::string error =
          ParseError(whole.substr(0, size), "scan.ply", Options(PointFormat::kPly));
      EXPECT_EQ(error.rfind("scan.ply", 0), 0u) << size << ": " << error;
      EXPECT_TRUE(Printable(error)) << error;
    }
  }
}

TEST(PlyReader, TruncatedFixedRecordsAreRefusedByTheCount) {
  const std::string whole = DoubleVertices(false);
  const std::size_t header = whole.size() - 6 * sizeof(double);
  EXPECT_EQ(ParseError(whole.substr(0, whole.size() - 4), "scan.ply"),
            "scan.ply: byte " + std::to_string(header) +
                ": header declares 2 'vertex' elements of at least 24 bytes each, but 44 bytes "
                "follow the header");
}

TEST(PlyReader, TruncatedListNamesTheByteOffset) {
  std::string bytes =
      Header(kLittle, VertexXyz("float", 0) + "element face 2\nproperty list uchar int v\n");
  const std::size_t header = bytes.size();
  for (const int face : {0, 1}) {
    Put<std::uint8_t>(&bytes, 3);
    for (int k = 0; k < 3 - face; ++k) Put<std::int32_t>(&bytes, k);
  }
  EXPECT_EQ(ParseError(bytes, "scan.ply"),
            "scan.ply: byte " + std::to_string(header + 14) +
                ": truncated: 'face' element 1 of 2 needs 12 more bytes, 8 remain");
}

TEST(PlyReader, TrailingBytesMeanTheHeaderLies) {
  const std::string whole = DoubleVertices(true);
  EXPECT_EQ(ParseError(whole + "xyz", "scan.ply"),
            "scan.ply: byte " + std::to_string(whole.size()) +
                ": 3 bytes follow the last element the header declares");
}

TEST(PlyReader, HugeCountsAreRefusedBeforeAnyAllocation) {
  std::string bytes = Header(kLittle, VertexXyz("double", 4000000000000ull));
  const std::size_t header = bytes.size();
  for (int k = 0; k < 3; ++k) Put(&bytes, 1.0);
  EXPECT_EQ(ParseError(bytes, "scan.ply"),
            "scan.ply: byte " + std::to_string(header) +
                ": header declares 4000000000000 'vertex' elements of at least 24 bytes each, "
                "but 24 bytes follow the header");
  // Ascii records are read line by line; a lying count ends with the file.
  const std::string max = std::to_string(std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(ParseError(Header("ascii", VertexXyz("float", 0) + "element face " + max +
                                           "\nproperty list uchar int v\n") +
                           "3 0 0 0\n",
                       "scan.ply"),
            "scan.ply:8: declares " + max + " 'face' elements but the file ends after 1");
  EXPECT_EQ(
      ParseError(Header("ascii", VertexXyz("double", 4000000000000ull)) + "1 2 3\n", "scan.ply"),
      "scan.ply:4: declares 4000000000000 'vertex' elements but the file ends after 1");
}

TEST(PlyReader, HugeListLengthIsATruncation) {
  std::string bytes =
      Header(kLittle, VertexXyz("float", 0) + "element face 1\nproperty list uint int v\n");
  Put<std::uint32_t>(&bytes, 4000000000u);
  Put<std::int32_t>(&bytes, 1);
  const std::string error = ParseError(bytes, "scan.ply");
  EXPECT_NE(error.find("truncated: 'face' element 0 of 1 needs 16000000000 more bytes"),
            std::string::npos)
      << error;
}

TEST(PlyReader, NegativeListLengthIsAnError) {
  std::string bytes =
      Header(kBig, VertexXyz("float", 0) + "element face 1\nproperty list char int v\n");
  const std::size_t header = bytes.size();
  Put<std::int8_t>(&bytes, -1, true);
  EXPECT_EQ(ParseError(bytes, "scan.ply"),
            "scan.ply: byte " + std::to_string(header) + ": negative list length");
}

TEST(PlyReader, NonFiniteBinaryCoordinateNamesItsOffset) {
  std::string bytes = Header(kLittle, VertexXyz("float", 1));
  const std::size_t header = bytes.size();
  Put(&bytes, 1.0f);
  Put(&bytes, std::numeric_limits<float>::quiet_NaN());
  Put(&bytes, 3.0f);
  EXPECT_EQ(ParseError(bytes, "scan.ply"),
            "scan.ply: byte " + std::to_string(header + 4) + ": non-finite vertex coordinate");
}

TEST(PlyReader, AsciiRecordErrorsNameTheLine) {
  const std::string head = Header("ascii", VertexXyz("float", 2));  // 8 lines
  EXPECT_EQ(ParseError(head + "1 2 3\n4 5\n", "scan.ply"),
            "scan.ply:10: too few values for a 'vertex' element");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 5 6 7\n", "scan.ply"),
            "scan.ply:10: 1 value too many for a 'vertex' element");
  EXPECT_EQ(ParseError(head + "1 2 3\n", "scan.ply"),
            "scan.ply:4: declares 2 'vertex' elements but the file ends after 1");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 5 6\n7 8 9\n", "scan.ply"),
            "scan.ply:11: data after the last element the header declares");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 nan 6\n", "scan.ply"),
            "scan.ply:10: non-finite coordinate 'nan'");
  EXPECT_EQ(ParseError(head + "1 2 3\n4 \x1b[1m 6\n", "scan.ply"),
            "scan.ply:10: '\\x1B[1m' is not a number");
  const std::string lists =
      Header("ascii", VertexXyz("float", 0) + "element face 1\nproperty list uchar int v\n");
  EXPECT_EQ(ParseError(lists + "3 0 1\n", "scan.ply"),
            "scan.ply:11: too few values for a 'face' element");
  EXPECT_EQ(ParseError(lists + "-1\n", "scan.ply"), "scan.ply:11: list length '-1' is not a count");
}

}  // namespace
