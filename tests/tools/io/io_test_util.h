// Helpers for the point-reader tests: scratch files, binary records, and error capture.
#ifndef METROFIT_TESTS_TOOLS_IO_IO_TEST_UTIL_H
#define METROFIT_TESTS_TOOLS_IO_IO_TEST_UTIL_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "point_reader.h"

namespace metrofit_io_test {

using metrofit::io::ParsePoints;
using metrofit::io::PointCloud;
using metrofit::io::PointFileError;
using metrofit::io::PointFormat;
using metrofit::io::ReadOptions;

using Point = std::array<double, 3>;

// A scratch directory with files written by the test, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    static int counter = 0;
    path_ = std::filesystem::temp_directory_path() /
            ("metrofit_io_test_" + std::to_string(::getpid()) + "_" + std::to_string(counter++));
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string Write(const std::string& name, const std::string& bytes) const {
    const std::string path = (path_ / name).string();
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

inline ReadOptions Options(PointFormat format = PointFormat::kAuto, bool decimal_comma = false,
                           std::vector<int> columns = {}) {
  ReadOptions options;
  options.format = format;
  options.decimal_comma = decimal_comma;
  options.columns = std::move(columns);
  return options;
}

// The message of the PointFileError that parsing throws; "" when it reads without error.
inline std::string ParseError(const std::string& bytes, const std::string& name,
                              const ReadOptions& options = {}) {
  try {
    ParsePoints(bytes, name, options);
  } catch (const PointFileError& e) {
    return e.what();
  }
  return "";
}

// Whether a message holds only printable ASCII: file content must never reach a terminal raw.
inline bool Printable(const std::string& message) {
  for (const char c : message) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u >= 0x7F) return false;
  }
  return true;
}

inline Point At(const PointCloud& cloud, std::size_t i) {
  return {cloud.xyz[3 * i], cloud.xyz[3 * i + 1], cloud.xyz[3 * i + 2]};
}

// Exact comparison: decimal text is converted with correct rounding, so it must match the
// same literal compiled into the test.
inline void ExpectPoints(const PointCloud& cloud, const std::vector<Point>& expected) {
  ASSERT_EQ(cloud.xyz.size(), 3 * expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const Point p = At(cloud, i);
    EXPECT_EQ(p[0], expected[i][0]) << "point " << i;
    EXPECT_EQ(p[1], expected[i][1]) << "point " << i;
    EXPECT_EQ(p[2], expected[i][2]) << "point " << i;
  }
}

// |a - b| within `relative` of the larger magnitude (a float32 holds about 7 digits).
inline bool NearRelative(double a, double b, double relative) {
  return std::fabs(a - b) <= relative * std::max(std::fabs(a), std::fabs(b));
}

// Appends the bytes of `value` in little- or big-endian order.
template <typename T>
void Put(std::string* out, T value, bool big_endian = false) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  const std::uint16_t probe = 1;
  unsigned char first = 0;
  std::memcpy(&first, &probe, 1);
  const bool host_little = first == 1;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    const std::size_t k = (host_little == !big_endian) ? i : sizeof(T) - 1 - i;
    out->push_back(static_cast<char>(bytes[k]));
  }
}

}  // namespace metrofit_io_test

#endif  // METROFIT_TESTS_TOOLS_IO_IO_TEST_UTIL_H
