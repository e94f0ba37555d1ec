// Centred working copies of point arrays.
#include "numeric/centred_copy.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "numeric/compensated.h"
#include "numeric/numeric_test_util.h"

namespace metrofit::numeric {
namespace {

using testing::NoLeakScope;
using testing::Rng;
using testing::Uniform;

TEST(CentredCopy, FlagSetStoresTheCentroidAndCentresTheCopy) {
  NoLeakScope scope;
  const double xyz[9] = {1, 2, 3, 4, 6, 8, 7, 10, 1};
  double record[5] = {9, 9, 9, 9, 9};
  UniquePointSet out;
  ASSERT_EQ(CentredCopy(3, xyz, record, true, out), NumericStatus::kOk);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->count, 3);
  EXPECT_EQ(record[0], 4.0);
  EXPECT_EQ(record[1], 6.0);
  EXPECT_EQ(record[2], 4.0);
  EXPECT_EQ(record[3], 9.0);  // only the centre is touched
  EXPECT_EQ(out->Point(0)[0], -3.0);
  EXPECT_EQ(out->Point(2)[1], 4.0);
  EXPECT_EQ(out->Point(2)[2], -3.0);
}

TEST(CentredCopy, FlagClearShiftsByTheRecordCentre) {
  NoLeakScope scope;
  const double xyz[6] = {1, 2, 3, -1, -2, -3};
  double record[3] = {0.5, 0.0, -1.0};
  UniquePointSet out;
  ASSERT_EQ(CentredCopy(2, xyz, record, false, out), NumericStatus::kOk);
  EXPECT_EQ(record[0], 0.5);
  EXPECT_EQ(out->Point(0)[0], 0.5);
  EXPECT_EQ(out->Point(1)[2], -2.0);
  // A zero centre gives an exact copy.
  double zero[3] = {0, 0, 0};
  ASSERT_EQ(CentredCopy(2, xyz, zero, false, out), NumericStatus::kOk);
  for (int k = 0; k < 6; ++k) EXPECT_EQ(out->xyz[k], xyz[k]);
}

TEST(CentredCopy, CentroidIsCompensated) {
  // A large offset with many small spread values: each coordinate's sum would drift by many
  // ulps with plain summation.
  NoLeakScope scope;
  Rng rng(401);
  const int n = 200000;
  std::vector<double> xyz(3 * n);
  for (double& v : xyz) v = 500.0 + Uniform(rng, -0.1, 0.1);
  long double ref[3] = {0, 0, 0};
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < 3; ++k) ref[k] += xyz[3 * i + k];
  double record[3];
  UniquePointSet out;
  ASSERT_EQ(CentredCopy(n, xyz.data(), record, true, out), NumericStatus::kOk);
  for (int k = 0; k < 3; ++k) {
    const double want = static_cast<double>(ref[k] / n);
    EXPECT_NEAR(record[k], want, 2.3e-13) << k;  // two ulps of 500
  }
}

// The three coordinate sums run side by side in the copying pass; each must be the
// compensated sum of its coordinate over the points in order, bit for bit.
TEST(CentredCopy, CentroidIsThreeSeparateCompensatedSums) {
  NoLeakScope scope;
  Rng rng(402);
  const int n = 20000;
  std::vector<double> xyz(3 * n);
  for (int i = 0; i < n; ++i) {
    xyz[3 * i] = 480.0 + Uniform(rng, -30.0, 30.0);
    xyz[3 * i + 1] = -510.0 + Uniform(rng, -0.5, 0.5);
    xyz[3 * i + 2] = 230.0 + Uniform(rng, -1e-3, 1e-3);
  }
  double record[3];
  UniquePointSet out;
  ASSERT_EQ(CentredCopy(n, xyz.data(), record, true, out), NumericStatus::kOk);
  for (int k = 0; k < 3; ++k) {
    KahanSum alone;
    for (int i = 0; i < n; ++i) alone.Add(xyz[3 * i + k]);
    const double want = alone.Sum() / n;
    EXPECT_EQ(std::memcmp(&record[k], &want, sizeof want), 0) << k;
    EXPECT_EQ(out->Point(n - 1)[k], xyz[3 * (n - 1) + k] - want) << k;
  }
}

TEST(CentredCopy, KPt3OverloadGivesTheSameCopy) {
  NoLeakScope scope;
  const std::vector<KPt3<double>> pts = {{1.0, -2.0, 0.5}, {3.0, 4.0, -1.5}, {0.0, 0.0, 7.0}};
  const double xyz[9] = {1.0, -2.0, 0.5, 3.0, 4.0, -1.5, 0.0, 0.0, 7.0};
  double r1[3];
  double r2[3];
  UniquePointSet a;
  UniquePointSet b;
  ASSERT_EQ(CentredCopy(3, pts.data(), r1, true, a), NumericStatus::kOk);
  ASSERT_EQ(CentredCopy(3, xyz, r2, true, b), NumericStatus::kOk);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(r1[k], r2[k]);
  for (int k = 0; k < 9; ++k) EXPECT_EQ(a->xyz[k], b->xyz[k]);
}

TEST(CentredCopy, NoPointsNegativeCountAndAllocationFailure) {
  NoLeakScope scope;
  double record[3] = {1, 2, 3};
  UniquePointSet out;
  ASSERT_EQ(CentredCopy(0, static_cast<const double*>(nullptr), record, true, out),
            NumericStatus::kOk);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->count, 0);
  EXPECT_EQ(record[0], 1.0);  // no centroid of nothing
  EXPECT_EQ(
      static_cast<int>(CentredCopy(-1, static_cast<const double*>(nullptr), record, true, out)), 1);
  EXPECT_FALSE(out);
  const double xyz[3] = {1, 1, 1};
  FailAllocationAfter(0);
  EXPECT_EQ(static_cast<int>(CentredCopy(1, xyz, record, true, out)), 1);
  FailAllocationAfter(-1);
  EXPECT_FALSE(out);
  EXPECT_EQ(record[0], 1.0);
}

}  // namespace
}  // namespace metrofit::numeric
