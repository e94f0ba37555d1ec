#include <gtest/gtest.h>

#include <cstddef>

#include "metrofit.h"

namespace {

TEST(Matrix, CreateThreeByThreeIsZeroFilled) {
  double** m = mCreateMatrix(3, 3);
  ASSERT_NE(m, nullptr);
  for (int i = 0; i < 3; ++i) {
    ASSERT_NE(m[i], nullptr);
    for (int j = 0; j < 3; ++j) EXPECT_EQ(m[i][j], 0.0) << i << "," << j;
  }
  EXPECT_EQ(mFreeMatrix(&m, 3), nullptr);
  EXPECT_EQ(m, nullptr);
}

// A matrix without rows is an empty pointer array (or null); freeing it with no rows releases
// it. The sanitizer build would report a leak if it did not.
TEST(Matrix, CreateWithNoRowsIsReleasedByFreeWithNoRows) {
  double** m = mCreateMatrix(0, 5);
  EXPECT_EQ(mFreeMatrix(&m, 0), nullptr);
  EXPECT_EQ(m, nullptr);
}

TEST(Matrix, FreeOfNullHandleReturnsNullAndDoesNothing) {
  double** m = nullptr;
  EXPECT_EQ(mFreeMatrix(&m, 4), nullptr);
  EXPECT_EQ(m, nullptr);
}

TEST(Matrix, FreeTwiceThroughSameHandleIsSafe) {
  double** m = mCreateMatrix(2, 7);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(mFreeMatrix(&m, 2), nullptr);
  EXPECT_EQ(mFreeMatrix(&m, 2), nullptr);
  EXPECT_EQ(m, nullptr);
}

TEST(Matrix, ClearWithNoRowsReturnsZeroAndTouchesNothing) {
  double** m = mCreateMatrix(2, 2);
  ASSERT_NE(m, nullptr);
  m[0][0] = 1.5;
  m[1][1] = -2.5;
  EXPECT_EQ(mClearMatrix(m, 0, 2), 0);
  EXPECT_EQ(m[0][0], 1.5);
  EXPECT_EQ(m[1][1], -2.5);
  // With no rows the matrix is not even read.
  EXPECT_EQ(mClearMatrix(nullptr, 0, 3), 0);
  mFreeMatrix(&m, 2);
}

TEST(Matrix, ClearZeroesTheGivenRowsOnly) {
  double** m = mCreateMatrix(3, 2);
  ASSERT_NE(m, nullptr);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 2; ++j) m[i][j] = 10.0 * i + j + 1.0;
  EXPECT_EQ(mClearMatrix(m, 2, 2), 0);
  EXPECT_EQ(m[0][0], 0.0);
  EXPECT_EQ(m[0][1], 0.0);
  EXPECT_EQ(m[1][0], 0.0);
  EXPECT_EQ(m[1][1], 0.0);
  EXPECT_EQ(m[2][0], 21.0);
  EXPECT_EQ(m[2][1], 22.0);
  mFreeMatrix(&m, 3);
}

TEST(Matrix, CopyCopiesTheGivenBlockAndNothingWithNoRows) {
  double** a = mCreateMatrix(2, 3);
  double** b = mCreateMatrix(2, 3);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 3; ++j) a[i][j] = i * 3 + j + 0.5;
  EXPECT_EQ(mCopyMatrix(b, a, 0, 3), 0);
  EXPECT_EQ(b[0][0], 0.0);
  EXPECT_EQ(mCopyMatrix(b, a, 2, 2), 0);
  EXPECT_EQ(b[0][0], 0.5);
  EXPECT_EQ(b[1][1], 4.5);
  EXPECT_EQ(b[1][2], 0.0);  // only two columns were copied
  mFreeMatrix(&a, 2);
  mFreeMatrix(&b, 2);
}

TEST(Matrix, ContiguousBlockHoldsRowsBehindThePointerArray) {
  constexpr int kRows = 3, kCols = 4;
  double** m = mCreateMatrixContiguous(kRows, kCols);
  ASSERT_NE(m, nullptr);
  const char* base = reinterpret_cast<const char*>(m);
  std::size_t head = kRows * sizeof(double*);
  head = (head + sizeof(double) - 1) / sizeof(double) * sizeof(double);
  EXPECT_EQ(reinterpret_cast<const char*>(m[0]), base + head);
  for (int i = 1; i < kRows; ++i) EXPECT_EQ(m[i], m[i - 1] + kCols);
  for (int i = 0; i < kRows; ++i)
    for (int j = 0; j < kCols; ++j) EXPECT_EQ(m[i][j], 0.0);
  m[2][3] = 7.0;
  EXPECT_EQ(m[0][11], 7.0);  // one block: the last element is 11 doubles behind the first
  EXPECT_EQ(mFreeMatrixContiguous(&m), 0);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(mFreeMatrixContiguous(&m), 0);
}

}  // namespace
