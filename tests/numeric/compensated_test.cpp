// Compensated sums and overflow-safe hypotenuses.
#include "numeric/compensated.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace metrofit::numeric {
namespace {

TEST(KahanSum, KeepsTermsBelowTheUnitRoundoff) {
  // 1 + 10000 x 1e-16: each term is below half an ulp of 1, so a plain sum stays at 1.
  KahanSum sum;
  double plain = 1.0;
  sum.Add(1.0);
  for (int i = 0; i < 10000; ++i) {
    sum.Add(1e-16);
    plain += 1e-16;
  }
  EXPECT_EQ(plain, 1.0);
  EXPECT_NEAR(sum.Sum(), 1.0 + 1e-12, 4e-16);
}

TEST(KahanSum, SumAndDotOfDecreasingTermsToLastBitAccuracy) {
  // 1/(i+1)^2 for a million terms, largest first: a plain forward sum loses about 1e-13, the
  // compensated sum stays within the Kahan bound of 2 eps sum |x|.
  const int n = 1000000;
  std::vector<double> x(n);
  std::vector<double> y(n);
  for (int i = 0; i < n; ++i) {
    x[i] = 1.0 / ((i + 1.0) * (i + 1.0));
    y[i] = 1.0 / (i + 1.0);
  }
  long double refSum = 0.0L;  // smallest first in extended precision: accurate reference
  long double refDot = 0.0L;
  double plain = 0.0;
  for (int i = n - 1; i >= 0; --i) {
    refSum += x[i];
    refDot += static_cast<long double>(y[i]) * y[i];
  }
  for (int i = 0; i < n; ++i) plain += x[i];
  const double bound = 2.0 * kMachineEpsilon * static_cast<double>(refSum);
  EXPECT_NEAR(CompensatedSum(x.data(), n), static_cast<double>(refSum), bound);
  EXPECT_NEAR(CompensatedDot(y.data(), y.data(), n), static_cast<double>(refDot), bound);
  EXPECT_GT(std::fabs(plain - static_cast<double>(refSum)), 10.0 * bound);
  EXPECT_EQ(CompensatedSum(x.data(), 0), 0.0);
}

TEST(Hypot3, OfZeroIsZero) {
  EXPECT_EQ(Hypot3(0.0, 0.0, 0.0), 0.0);
  EXPECT_EQ(Hypot3(-0.0, 0.0, -0.0), 0.0);
  EXPECT_EQ(Hypot2(0.0, 0.0), 0.0);
}

TEST(Hypot3, Of1e200And1e200And0DoesNotOverflow) {
  const double h = Hypot3(1e200, 1e200, 0.0);
  EXPECT_TRUE(std::isfinite(h));
  EXPECT_DOUBLE_EQ(h, 1e200 * std::sqrt(2.0));
  EXPECT_DOUBLE_EQ(Hypot2(1e200, 1e200), 1e200 * std::sqrt(2.0));
}

TEST(Hypot3, NearTheOverflowThreshold) {
  const double big = std::numeric_limits<double>::max();
  EXPECT_EQ(Hypot3(big, 0.0, 0.0), big);
  EXPECT_EQ(Hypot3(0.0, -big, 0.0), big);
  const double h = Hypot3(1e308, 1e308, 1e308);  // sqrt(3) 1e308 is still below the maximum
  EXPECT_TRUE(std::isfinite(h));
  EXPECT_DOUBLE_EQ(h, 1e308 * std::sqrt(3.0));
  EXPECT_TRUE(std::isinf(Hypot3(big, big, 0.0)));  // the true value is not representable
}

TEST(Hypot3, NearTheUnderflowThreshold) {
  // Plain squares of 1e-200 are 0; the scaled form keeps full precision.
  EXPECT_DOUBLE_EQ(Hypot3(1e-200, 1e-200, 1e-200), 1e-200 * std::sqrt(3.0));
  EXPECT_DOUBLE_EQ(Hypot2(3e-300, 4e-300), 5e-300);
  const double tiny = std::numeric_limits<double>::denorm_min();
  EXPECT_EQ(Hypot3(tiny, 0.0, 0.0), tiny);
  EXPECT_EQ(Hypot3(0.0, 0.0, -tiny), tiny);
}

TEST(Hypot3, IsSymmetricInOrderAndSign) {
  const double h = Hypot3(-3.0, 4.0, -12.0);
  EXPECT_NEAR(h, 13.0, 4e-15);
  EXPECT_EQ(Hypot3(4.0, -12.0, -3.0), Hypot3(-12.0, -3.0, 4.0));
  EXPECT_NEAR(Hypot2(-5.0, 12.0), 13.0, 4e-15);
}

TEST(Hypot3, NanReachesTheResult) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(std::isnan(Hypot3(nan, 1.0, 2.0)));
  EXPECT_TRUE(std::isnan(Hypot3(1.0, nan, 2.0)));
  EXPECT_TRUE(std::isnan(Hypot3(1.0, 2.0, nan)));
  EXPECT_TRUE(std::isnan(Hypot2(1.0, nan)));
}

TEST(ScaledNorm, RawArrayForm) {
  const double x[3] = {1e-310, 1e-310, 0.0};  // subnormal inputs
  EXPECT_NEAR(ScaledNorm(x, 3), 1e-310 * std::sqrt(2.0), 1e-323);
  EXPECT_EQ(ScaledNorm(x, 0), 0.0);
}

}  // namespace
}  // namespace metrofit::numeric
