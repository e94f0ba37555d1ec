// Reading a point file from disk: a regular file goes into one buffer of its size, a pipe or
// standard input is read in chunks. Both must give the same points, in every format, and the
// tool must keep the points exactly as the reader gives them.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "input.h"
#include "io_test_util.h"

namespace {

using namespace metrofit_io_test;
using metrofit::io::ReadPoints;

const std::string kFormatsDir = std::string(METROFIT_EXAMPLES_DIR) + "/formats/";

// Every example of examples/data/formats holds the same probed sphere.
constexpr std::size_t kExamplePoints = 40;
// Enough points that a text file spans many of the 64 KiB chunks a stream is read in.
constexpr std::size_t kManyPoints = 20000;
constexpr std::uint32_t kSeed = 20251125;

struct Sample {
  const char* file;
  ReadOptions options;
};

std::vector<Sample> Samples() {
  return {{"sphere.xyz", {}},
          {"sphere.csv", {}},
          {"sphere_decimal_comma.csv", Options(PointFormat::kAuto, true, {2, 3, 4})},
          {"sphere.pts", {}},
          {"sphere_ascii.ply", {}},
          {"sphere_le.ply", {}},
          {"sphere_be.ply", {}},
          {"sphere_ascii.pcd", {}},
          {"sphere_binary.pcd", {}}};
}

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The file read as a stream of unknown length, in chunks.
PointCloud StreamRead(const std::string& path, const ReadOptions& options = {}) {
  std::ifstream in(path, std::ios::binary);
  return ReadPoints(in, path, options);
}

// Points on a tilted cylinder of radius 40 mm about 600 mm from the origin, with micrometre
// noise: x y z triples.
std::vector<double> CylinderXyz(std::size_t count) {
  constexpr double kCentre[3] = {350.0, -220.0, 480.0};
  constexpr double kU[3] = {0.6, 0.8, 0.0};
  constexpr double kV[3] = {-0.48, 0.36, 0.8};
  constexpr double kW[3] = {0.64, -0.48, 0.6};  // the axis
  constexpr double kRadius = 40.0;
  constexpr double kNoise = 0.002;
  std::mt19937 rng(kSeed);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
  std::uniform_real_distribution<double> height(-60.0, 60.0);
  std::normal_distribution<double> noise(0.0, kNoise);
  std::vector<double> xyz;
  for (std::size_t i = 0; i < count; ++i) {
    const double a = angle(rng);
    const double h = height(rng);
    const double r = kRadius + noise(rng);
    for (int k = 0; k < 3; ++k) {
      xyz.push_back(kCentre[k] + r * (std::cos(a) * kU[k] + std::sin(a) * kV[k]) + h * kW[k]);
    }
  }
  return xyz;
}

// A double in text that reads back as the same double.
std::string Exact(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.17g", value);
  return text;
}

// Text with every kind of line end, blank lines and comments among the points.
std::string MixedText(const std::vector<double>& xyz) {
  const char* const kLineEnds[] = {"\n", "\r\n", "\r"};
  std::string text = "# scan of bore 3\n";
  for (std::size_t i = 0; i < xyz.size() / 3; ++i) {
    text += Exact(xyz[3 * i]) + ' ' + Exact(xyz[3 * i + 1]) + '\t' + Exact(xyz[3 * i + 2]);
    text += kLineEnds[i % 3];
    if (i % 997 == 0) text += "\n# probe change\n";
  }
  return text;
}

// The same points with lone carriage returns as the only line ends.
std::string CarriageReturnText(const std::vector<double>& xyz) {
  std::string text;
  for (std::size_t i = 0; i < xyz.size(); i += 3) {
    text += Exact(xyz[i]) + ' ' + Exact(xyz[i + 1]) + ' ' + Exact(xyz[i + 2]) + '\r';
  }
  return text;
}

std::string HeaderCsv(const std::vector<double>& xyz) {
  std::string text = "id;X;Y;Z;quality\r\n";
  for (std::size_t i = 0; i < xyz.size() / 3; ++i) {
    text += std::to_string(i) + ';' + Exact(xyz[3 * i]) + ';' + Exact(xyz[3 * i + 1]) + ';' +
            Exact(xyz[3 * i + 2]) + ";0.5\r\n";
  }
  return text;
}

std::string LittleEndianPly(const std::vector<double>& xyz) {
  std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex " +
                      std::to_string(xyz.size() / 3) +
                      "\nproperty double x\nproperty double y\nproperty double z\nend_header\n";
  for (const double value : xyz) Put(&bytes, value);
  return bytes;
}

TEST(PointFileRead, EveryFormatSampleReadsAsItDoesAsAStream) {
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.file);
    const std::string path = kFormatsDir + sample.file;
    const PointCloud file = ReadPoints(path, sample.options);
    ASSERT_EQ(file.size(), kExamplePoints);
    EXPECT_EQ(file.xyz, StreamRead(path, sample.options).xyz);
    EXPECT_EQ(file.xyz, ParsePoints(Slurp(path), path, sample.options).xyz);
  }
}

TEST(PointFileRead, LargeFilesGiveThePointsWritten) {
  const std::vector<double> xyz = CylinderXyz(kManyPoints);
  const TempDir dir;
  const std::string files[] = {
      dir.Write("mixed.xyz", MixedText(xyz)), dir.Write("cr.txt", CarriageReturnText(xyz)),
      dir.Write("header.csv", HeaderCsv(xyz)), dir.Write("le.ply", LittleEndianPly(xyz))};
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    const PointCloud file = ReadPoints(path);
    EXPECT_EQ(file.xyz, xyz);
    EXPECT_EQ(StreamRead(path).xyz, xyz);
  }
}

TEST(PointFileRead, APipeIsReadInChunksToTheSamePoints) {
  const std::vector<double> xyz = CylinderXyz(kManyPoints);
  const TempDir dir;
  const std::string fifo = dir.path() + "/scan.xyz";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string text = MixedText(xyz);
  // Opening a pipe waits for the other end: the writer runs beside the reader.
  std::thread writer([&] { std::ofstream(fifo, std::ios::binary) << text; });
  PointCloud cloud;
  try {
    cloud = ReadPoints(fifo);
  } catch (...) {
    writer.join();
    throw;
  }
  writer.join();
  EXPECT_EQ(cloud.xyz, xyz);
}

TEST(PointFileRead, ASeekableStreamIsReadFromWhereItStands) {
  const std::vector<double> xyz = CylinderXyz(kManyPoints);
  const std::string first_line = "1 2 3\n";
  std::istringstream in(first_line + CarriageReturnText(xyz));
  in.ignore(static_cast<std::streamsize>(first_line.size()));
  EXPECT_EQ(ReadPoints(in, "rest.xyz", {}).xyz, xyz);
}

TEST(PointFileRead, TheToolKeepsThePointsAsRead) {
  const std::vector<double> xyz = CylinderXyz(kManyPoints);
  const TempDir dir;
  const std::string path = dir.Write("bore.xyz", MixedText(xyz));
  std::istringstream unused;
  EXPECT_EQ(metrofit::cli::ReadInputPoints(path, {}, unused), xyz);
  // Without a name, a tab would make the content CSV: standard input gets blanks only.
  std::istringstream standard_input(CarriageReturnText(xyz));
  EXPECT_EQ(metrofit::cli::ReadInputPoints("-", {}, standard_input), xyz);
}

TEST(PointFileRead, TheToolReadsEveryFormatSampleAsTheReaderDoes) {
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.file);
    const std::string path = kFormatsDir + sample.file;
    metrofit::cli::InputOptions options;
    options.decimal_comma = sample.options.decimal_comma;
    options.columns = sample.options.columns;
    std::istringstream unused;
    EXPECT_EQ(metrofit::cli::ReadInputPoints(path, options, unused),
              ReadPoints(path, sample.options).xyz);
  }
}

}  // namespace
