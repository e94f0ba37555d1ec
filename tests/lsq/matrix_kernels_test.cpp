// Matrix kernels of the least-squares engine.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "lsq_test_util.h"
#include "metrofit.h"

namespace {

using lsq_test::Matrix;
using lsq_test::Rng;

void Set(Matrix& m, std::initializer_list<double> values) {
  auto it = values.begin();
  for (int i = 0; i < m.rows(); ++i)
    for (int j = 0; j < m.cols(); ++j) m[i][j] = *it++;
}

TEST(MatrixKernels, AddAndSubtractWorkInPlaceOnTheGivenBlock) {
  Matrix a(2, 3), b(2, 3);
  Set(a, {1, 2, 3, 4, 5, 6});
  Set(b, {0.5, -1, 2, 8, 0, -6});
  EXPECT_EQ(mAddMatrix(a.get(), b.get(), 2, 3), 0);
  const double sum[] = {1.5, 1, 5, 12, 5, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(a[i / 3][i % 3], sum[i]);
  EXPECT_EQ(mSubtractMatrix(a.get(), b.get(), 2, 2), 0);
  const double diff[] = {1, 2, 5, 4, 5, 0};  // column 2 untouched
  for (int i = 0; i < 6; ++i) EXPECT_EQ(a[i / 3][i % 3], diff[i]);
}

TEST(MatrixKernels, MultiplyRectangular) {
  Matrix a(2, 3), b(3, 2), c(2, 2);
  Set(a, {1, 2, 3, 4, 5, 6});
  Set(b, {7, 8, 9, 10, 11, 12});
  c.Fill(99.0);  // overwritten, not accumulated
  EXPECT_EQ(mMultiplyMatrix(a.get(), b.get(), c.get(), 2, 3, 2), 0);
  EXPECT_EQ(c[0][0], 58.0);
  EXPECT_EQ(c[0][1], 64.0);
  EXPECT_EQ(c[1][0], 139.0);
  EXPECT_EQ(c[1][1], 154.0);
}

TEST(MatrixKernels, MultiplyWithNoInnerDimensionGivesZero) {
  Matrix a(1, 1), b(1, 1), c(1, 1);
  c.Fill(5.0);
  mMultiplyMatrix(a.get(), b.get(), c.get(), 1, 0, 1);
  EXPECT_EQ(c[0][0], 0.0);
}

TEST(MatrixKernels, TransposeRectangular) {
  Matrix a(2, 3), t(3, 2);
  Set(a, {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(mTransposeMatrix(a.get(), t.get(), 2, 3), 0);
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_EQ(t[j][i], a[i][j]);
}

TEST(MatrixKernels, MaxAbsOfAColumn) {
  Matrix v(4, 1);
  Set(v, {-3.5, 2, 0, 3.25});
  EXPECT_EQ(mMaxAbs(v.get(), 4), 3.5);
  EXPECT_EQ(mMaxAbs(v.get(), 0), 0.0);
  EXPECT_EQ(mMaxAbs(v.get(), -2), 0.0);
}

// A NaN anywhere in the step must not read as a small step.
TEST(MatrixKernels, MaxAbsReportsNaN) {
  Matrix v(3, 1);
  Set(v, {1e-20, std::numeric_limits<double>::quiet_NaN(), 4});
  EXPECT_TRUE(std::isnan(mMaxAbs(v.get(), 3)));
}

TEST(MatrixKernels, InvertTwoByTwo) {
  Matrix a(2, 2);
  Set(a, {4, 7, 2, 6});  // determinant 10
  EXPECT_EQ(mInvertMatrix(a.get(), 2), 0);
  EXPECT_NEAR(a[0][0], 0.6, 1e-15);
  EXPECT_NEAR(a[0][1], -0.7, 1e-15);
  EXPECT_NEAR(a[1][0], -0.2, 1e-15);
  EXPECT_NEAR(a[1][1], 0.4, 1e-15);
}

// Symmetric positive definite matrices like the engine's normal matrices, sizes 1 to 7.
TEST(MatrixKernels, InvertRandomSymmetricPositiveDefinite) {
  Rng rng(3);
  for (int n = 1; n <= 7; ++n) {
    Matrix g(n, n), a(n, n), inv(n, n), prod(n, n);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) g[i][j] = rng.Uniform(-1, 1);
    // a = g g^T + n I
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) {
        double s = i == j ? n : 0.0;
        for (int k = 0; k < n; ++k) s += g[i][k] * g[j][k];
        a[i][j] = s;
        inv[i][j] = s;
      }
    EXPECT_EQ(mInvertMatrix(inv.get(), n), 0);
    mMultiplyMatrix(a.get(), inv.get(), prod.get(), n, n, n);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) EXPECT_NEAR(prod[i][j], i == j ? 1.0 : 0.0, 1e-13) << n;
  }
}

TEST(MatrixKernels, InvertNonSymmetricWithoutPivoting) {
  Rng rng(4);
  const int n = 5;
  Matrix a(n, n), inv(n, n), prod(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      a[i][j] = rng.Uniform(-1, 1) + (i == j ? 6.0 : 0.0);
      inv[i][j] = a[i][j];
    }
  EXPECT_EQ(mInvertMatrix(inv.get(), n), 0);
  mMultiplyMatrix(inv.get(), a.get(), prod.get(), n, n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) EXPECT_NEAR(prod[i][j], i == j ? 1.0 : 0.0, 1e-14);
}

// The sweep stops at the first pivot that is not above the smallest normal double and leaves
// the matrix as the earlier sweeps made it: here [[2, 4], [1, 2]] after pivot 0 is
// [[1/2, -2], [1/2, 0]].
TEST(MatrixKernels, InvertStopsAtVanishingPivotLeavingPartialSweep) {
  Matrix a(2, 2);
  Set(a, {2, 4, 1, 2});
  EXPECT_EQ(mInvertMatrix(a.get(), 2), 1);
  EXPECT_EQ(a[0][0], 0.5);
  EXPECT_EQ(a[0][1], -2.0);
  EXPECT_EQ(a[1][0], 0.5);
  EXPECT_EQ(a[1][1], 0.0);
}

TEST(MatrixKernels, InvertPivotThresholdIsTheSmallestNormal) {
  const double tiny = std::numeric_limits<double>::min();  // 2.2250738585072014e-308
  Matrix a(1, 1);
  a[0][0] = tiny;
  EXPECT_EQ(mInvertMatrix(a.get(), 1), 0 /* index of the failed pivot */);
  EXPECT_EQ(a[0][0], tiny);  // untouched
  a[0][0] = -tiny / 4;       // denormal
  EXPECT_EQ(mInvertMatrix(a.get(), 1), 0);
  EXPECT_EQ(a[0][0], -tiny / 4);
  // Just above the threshold the sweep runs (and 1 / (2 tiny) is still finite).
  Matrix b(2, 2);
  Set(b, {2 * tiny, 0, 0, 1});
  EXPECT_EQ(mInvertMatrix(b.get(), 2), 0);
  EXPECT_EQ(b[0][0], 1.0 / (2 * tiny));
  EXPECT_EQ(b[1][1], 1.0);
}

TEST(MatrixKernels, InvertStopsAtNaNPivot) {
  Matrix a(2, 2);
  Set(a, {std::numeric_limits<double>::quiet_NaN(), 1, 1, 1});
  EXPECT_EQ(mInvertMatrix(a.get(), 2), 0);
  EXPECT_EQ(a[0][1], 1.0);
}

TEST(MatrixKernels, InvertOfNothingSucceeds) {
  Matrix a(1, 1);
  a[0][0] = 0.0;
  EXPECT_EQ(mInvertMatrix(a.get(), 0), 0);
}

}  // namespace
