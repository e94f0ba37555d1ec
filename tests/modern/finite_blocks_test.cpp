// The finiteness check of the points runs a block of coordinates at a time: the first
// non-finite coordinate is still the one reported, wherever it falls against the blocks.
#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "modern/request_check.h"

namespace metrofit {
namespace {

// Points of the cloud: several blocks of coordinates and a partial one at the end.
constexpr std::size_t kPoints = 2000;

std::vector<double> Cloud() {
  std::vector<double> xyz(3 * kPoints);
  for (std::size_t i = 0; i < xyz.size(); ++i) {
    xyz[i] = 500.0 + 0.37 * static_cast<double>(i % 97) - 0.011 * static_cast<double>(i % 13);
  }
  return xyz;
}

FitOptions Sphere() {
  FitOptions options;
  options.shape = Shape::kSphere;
  return options;
}

TEST(ModernFiniteBlocks, FirstNonFiniteCoordinateIsReportedWhereverItFalls) {
  const char* const axes[] = {"x", "y", "z"};
  const double bad[] = {std::numeric_limits<double>::quiet_NaN(),
                        std::numeric_limits<double>::infinity(),
                        -std::numeric_limits<double>::infinity()};
  // The first value, values beside block edges (blocks of 1024 coordinates), the middle of a
  // block, the partial block at the end and the very last value.
  const std::size_t where[] = {0, 1, 1023, 1024, 1025, 2047, 2048, 3000, 5119, 5120, 5999};
  for (double value : bad) {
    for (std::size_t i : where) {
      std::vector<double> xyz = Cloud();
      xyz[i] = value;
      if (i + 7 < xyz.size()) xyz[i + 7] = value;  // a later one must not be the one named
      const CheckedRequest checked = CheckRequest(xyz.data(), kPoints, Sphere());
      EXPECT_EQ(checked.status, Status::kNonFinitePoint) << i;
      const std::string expected =
          "point " + std::to_string(i / 3) + " has a non-finite coordinate (" + axes[i % 3];
      EXPECT_EQ(checked.message.rfind(expected, 0), 0u) << checked.message << " at " << i;
    }
  }
}

TEST(ModernFiniteBlocks, ExtremeFiniteValuesPass) {
  std::vector<double> xyz = Cloud();
  xyz[5] = std::numeric_limits<double>::max();
  xyz[1500] = -std::numeric_limits<double>::max();
  xyz[4000] = std::numeric_limits<double>::denorm_min();
  xyz[5999] = -0.0;
  const CheckedRequest checked = CheckRequest(xyz.data(), kPoints, Sphere());
  EXPECT_EQ(checked.status, Status::kOk) << checked.message;
}

}  // namespace
}  // namespace metrofit
