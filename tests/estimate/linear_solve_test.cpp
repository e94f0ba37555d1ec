#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

// A matrix owned by the test, filled from a flat row-major list.
class TestMatrix {
 public:
  TestMatrix(int rows, int cols) : rows_(rows), m_(mCreateMatrix(rows, cols)) {}
  TestMatrix(int rows, int cols, const std::vector<double>& v) : TestMatrix(rows, cols) {
    for (int i = 0; i < rows; ++i)
      for (int j = 0; j < cols; ++j) m_[i][j] = v[static_cast<std::size_t>(i * cols + j)];
  }
  ~TestMatrix() { mFreeMatrix(&m_, rows_); }
  TestMatrix(const TestMatrix&) = delete;
  TestMatrix& operator=(const TestMatrix&) = delete;
  double** get() { return m_; }

 private:
  int rows_;
  double** m_;
};

TEST(SolveLinear, RandomWellConditionedSystemsLeaveSmallResiduals) {
  std::mt19937 rng(20240601);
  std::uniform_real_distribution<double> entry(-1.0, 1.0);
  std::uniform_int_distribution<int> size(1, 7);
  std::uniform_int_distribution<int> rhsCount(1, 3);
  for (int trial = 0; trial < 200; ++trial) {
    const int n = size(rng);
    const int m = rhsCount(rng);
    std::vector<double> a(static_cast<std::size_t>(n * n)), b(static_cast<std::size_t>(n * m));
    for (double& x : a) x = entry(rng);
    // A diagonal shift of n keeps the matrix diagonally dominant, so it is well conditioned
    // while the pivot search still has rows to choose from.
    for (int i = 0; i < n; ++i) a[static_cast<std::size_t>(i * n + i)] += (i % 2 ? -n : n);
    for (double& x : b) x = 100.0 * entry(rng);
    TestMatrix am(n, n, a), bm(n, m, b);
    ASSERT_EQ(mSolveLinear(am.get(), n, bm.get(), m), 0);
    for (int col = 0; col < m; ++col) {
      for (int i = 0; i < n; ++i) {
        double ax = 0.0;
        for (int j = 0; j < n; ++j) ax += a[static_cast<std::size_t>(i * n + j)] * bm.get()[j][col];
        EXPECT_NEAR(ax, b[static_cast<std::size_t>(i * m + col)], 1e-12 * 100.0 * n)
            << "trial " << trial << " row " << i << " column " << col;
      }
    }
  }
}

TEST(SolveLinear, RankDeficientSystemReturnsMinusOne) {
  // Row 1 is twice row 0; every step of the elimination is exact in binary, so the last
  // pivot comes out as exactly 0.
  TestMatrix a(3, 3, {1, 2, 3, 2, 4, 6, 1, 1, 1}), b(3, 1, {1, 2, 3});
  EXPECT_EQ(mSolveLinear(a.get(), 3, b.get(), 1), -1);
}

TEST(SolveLinear, SingularReturnLeavesThePartlyReducedRightHandSide) {
  // Column 0: pivot 2 stays in row 0 (|1| < |2|); row 0 becomes (1, 2) / 2 with b 1; row 1
  // loses row 0 and becomes (0, 0) with b 0; the second pivot is 0.
  TestMatrix a(2, 2, {2, 4, 1, 2}), b(2, 1, {2, 1});
  EXPECT_EQ(mSolveLinear(a.get(), 2, b.get(), 1), -1);
  EXPECT_EQ(b.get()[0][0], 1.0);
  EXPECT_EQ(b.get()[1][0], 0.0);
}

TEST(SolveLinear, SubnormalPivotCountsAsSingular) {
  TestMatrix a(1, 1, {1e-310}), b(1, 1, {1.0});
  EXPECT_EQ(mSolveLinear(a.get(), 1, b.get(), 1), -1);
  TestMatrix a2(1, 1, {2.2250738585072014e-308}), b2(1, 1, {1.0});
  EXPECT_EQ(mSolveLinear(a2.get(), 1, b2.get(), 1), -1);
  TestMatrix a3(1, 1, {4.450147717014403e-308}), b3(1, 1, {1.0});
  EXPECT_EQ(mSolveLinear(a3.get(), 1, b3.get(), 1), 0);
}

TEST(SolveLinear, EmptySystemReturnsZeroWithoutTouchingAnything) {
  EXPECT_EQ(mSolveLinear(nullptr, 0, nullptr, 1), 0);
  EXPECT_EQ(mSolveLinear(nullptr, -3, nullptr, 0), 0);
}

TEST(SolveLinear, EqualMagnitudesPickTheLastRowByPointerExchange) {
  // Column 0 has |1| in both rows: the later row becomes the pivot, and the exchange is of the
  // row pointers themselves, in a and in b.
  TestMatrix a(2, 2, {1, 1, -1, 1}), b(2, 1, {3, 1});
  double* aRow0 = a.get()[0];
  double* aRow1 = a.get()[1];
  double* bRow0 = b.get()[0];
  double* bRow1 = b.get()[1];
  ASSERT_EQ(mSolveLinear(a.get(), 2, b.get(), 1), 0);
  EXPECT_EQ(a.get()[0], aRow1);
  EXPECT_EQ(a.get()[1], aRow0);
  EXPECT_EQ(b.get()[0], bRow1);
  EXPECT_EQ(b.get()[1], bRow0);
  // x + y = 3, -x + y = 1.
  EXPECT_DOUBLE_EQ(b.get()[0][0], 1.0);
  EXPECT_DOUBLE_EQ(b.get()[1][0], 2.0);
}

TEST(SolveLinear, NoRightHandSideLeavesBAlone) {
  TestMatrix a(2, 2, {1, 1, -1, 1});
  EXPECT_EQ(mSolveLinear(a.get(), 2, nullptr, 0), 0);
}

TEST(SolveLinear, WithoutExchangesTheMatrixEndsAsItsInverse) {
  // Upper triangular: every entry below a pivot is 0, so no row is ever exchanged.
  const std::vector<double> v = {4, 1, -2, 0, 3, 5, 0, 0, -2};
  TestMatrix a(3, 3, v), b(3, 1, {1, 2, 3});
  ASSERT_EQ(mSolveLinear(a.get(), 3, b.get(), 1), 0);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      double s = 0.0;
      for (int k = 0; k < 3; ++k) s += v[static_cast<std::size_t>(i * 3 + k)] * a.get()[k][j];
      EXPECT_NEAR(s, i == j ? 1.0 : 0.0, 1e-15) << i << "," << j;
    }
  }
}

TEST(SolveLinear, SeveralRightHandSidesAreSolvedTogether) {
  TestMatrix a(2, 2, {2, 1, 1, 3}), b(2, 3, {3, 1, 0, 4, 2, 5});
  ASSERT_EQ(mSolveLinear(a.get(), 2, b.get(), 3), 0);
  // Solutions of [[2,1],[1,3]] x = (3,4), (1,2), (0,5).
  EXPECT_NEAR(b.get()[0][0], 1.0, 1e-15);
  EXPECT_NEAR(b.get()[1][0], 1.0, 1e-15);
  EXPECT_NEAR(b.get()[0][1], 0.2, 1e-15);
  EXPECT_NEAR(b.get()[1][1], 0.6, 1e-15);
  EXPECT_NEAR(b.get()[0][2], -1.0, 1e-15);
  EXPECT_NEAR(b.get()[1][2], 2.0, 1e-15);
}

}  // namespace
