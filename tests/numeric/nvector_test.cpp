// Counted vectors, matrices and point sets: allocation rules, indexing and vector kernels.
#include "numeric/nvector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "numeric/numeric_test_util.h"

namespace metrofit::numeric {
namespace {

using testing::NoLeakScope;

TEST(NVector, NegativeCountIsClampedToZeroWithoutElementArray) {
  NoLeakScope scope;
  NVector* v = CreateVector(-7);
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->count, 0);
  EXPECT_EQ(v->unit, 1);
  EXPECT_EQ(v->data, nullptr);
  FreeVector(v);
  NVector* e = CreateVector(0);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->count, 0);
  EXPECT_EQ(e->data, nullptr);
  FreeVector(e);
}

TEST(NVector, HeaderAndElementsAreOneZeroFilledBlock) {
  NoLeakScope scope;
  const std::int64_t before = LiveBlockCount();
  NVector* v = CreateVector(5);
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(LiveBlockCount(), before + 1);
  EXPECT_EQ(v->count, 5);
  EXPECT_EQ(v->unit, 1);
  // The elements follow the header inside the same block.
  const char* head = reinterpret_cast<const char*>(v);
  const char* elems = reinterpret_cast<const char*>(v->data);
  EXPECT_GE(elems - head, static_cast<std::ptrdiff_t>(sizeof(NVector)));
  EXPECT_LT(elems - head, static_cast<std::ptrdiff_t>(sizeof(NVector) + sizeof(double)));
  for (int i = 0; i < 5; ++i) EXPECT_EQ((*v)[i], 0.0);
  FreeVector(v);
  EXPECT_EQ(LiveBlockCount(), before);
}

TEST(NVector, AllocationFailureGivesNullAndLeaksNothing) {
  NoLeakScope scope;
  FailAllocationAfter(0);
  EXPECT_EQ(CreateVector(3), nullptr);
  EXPECT_FALSE(AllocationFailurePending());
  FailAllocationAfter(0);
  EXPECT_EQ(CreateMatrix(2, 2, kGeneral), nullptr);
  FailAllocationAfter(0);
  EXPECT_EQ(CreatePointSet(4), nullptr);
  FailAllocationAfter(-1);
}

TEST(NMatrix, InvalidShapesAndKindsFail) {
  NoLeakScope scope;
  EXPECT_EQ(CreateMatrix(-1, 2, kGeneral), nullptr);
  EXPECT_EQ(CreateMatrix(2, -1, kGeneral), nullptr);
  EXPECT_EQ(CreateMatrix(3, 3, 3), nullptr);
  EXPECT_EQ(CreateMatrix(3, 3, -1), nullptr);
  EXPECT_EQ(CreateMatrix(3, 2, kPackedSymmetric), nullptr);
  EXPECT_EQ(CreateMatrix(2, 3, kDiagonal), nullptr);
  EXPECT_EQ(CreateMatrixOver(-1, 3, nullptr), nullptr);
}

TEST(NMatrix, ElementCountsPerKind) {
  EXPECT_EQ(ElementCount(kGeneral, 3, 4), 12);
  EXPECT_EQ(ElementCount(kPackedSymmetric, 4, 4), 10);
  EXPECT_EQ(ElementCount(kDiagonal, 4, 4), 4);
  EXPECT_EQ(ElementCount(kGeneral, 0, 5), 0);
  EXPECT_EQ(ElementCount(kGeneral, -1, 5), -1);
  EXPECT_EQ(ElementCount(9, 2, 2), -1);
}

TEST(NMatrix, GeneralIsRowMajorAndZeroFilled) {
  NoLeakScope scope;
  UniqueMatrix m(CreateMatrix(2, 3, kGeneral));
  ASSERT_TRUE(m);
  for (int k = 0; k < 6; ++k) EXPECT_EQ(m->data[k], 0.0);
  (*m)(1, 2) = 7.0;
  EXPECT_EQ(m->data[5], 7.0);
  (*m)(0, 1) = 3.0;
  EXPECT_EQ(m->data[1], 3.0);
}

TEST(NMatrix, PackedSymmetricSharesMirroredElements) {
  NoLeakScope scope;
  UniqueMatrix m(CreateMatrix(4, 4, kPackedSymmetric));
  ASSERT_TRUE(m);
  (*m)(3, 1) = 5.0;
  EXPECT_EQ((*m)(1, 3), 5.0);
  EXPECT_EQ(m->data[3 * 4 / 2 + 1], 5.0);
  EXPECT_EQ(ElementIndex(kPackedSymmetric, 4, 2, 2), 5);
  EXPECT_EQ(ElementIndex(kPackedSymmetric, 4, 0, 3), 6);
}

TEST(NMatrix, DiagonalIgnoresTheColumnAndUnknownKindAddressesElementZero) {
  NoLeakScope scope;
  UniqueMatrix m(CreateMatrix(3, 3, kDiagonal));
  ASSERT_TRUE(m);
  (*m)(2, 0) = 4.0;
  EXPECT_EQ((*m)(2, 2), 4.0);
  EXPECT_EQ(m->data[2], 4.0);
  m->kind = 17;  // a kind no constructor makes
  EXPECT_EQ(ElementIndex(m->kind, m->cols, 2, 1), 0);
  EXPECT_EQ(&(*m)(2, 1), &m->data[0]);
}

TEST(NMatrix, HeaderOverArrayNeitherCopiesNorOwns) {
  NoLeakScope scope;
  double array[6] = {1, 2, 3, 4, 5, 6};
  NMatrix* m = CreateMatrixOver(2, 3, array);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->kind, kGeneral);
  EXPECT_EQ(m->data, array);
  EXPECT_EQ((*m)(1, 0), 4.0);
  (*m)(0, 2) = -3.0;
  EXPECT_EQ(array[2], -3.0);
  FreeMatrix(m);
  EXPECT_EQ(array[5], 6.0);  // the array outlives its header
}

TEST(PointSet, CountsAndMatrixView) {
  NoLeakScope scope;
  EXPECT_EQ(CreatePointSet(-1), nullptr);
  UniquePointSet s(CreatePointSet(3));
  ASSERT_TRUE(s);
  EXPECT_EQ(s->count, 3);
  s->Point(2)[1] = 9.0;
  UniqueMatrix view(CreateMatrixOver(*s));
  ASSERT_TRUE(view);
  EXPECT_EQ(view->rows, 3);
  EXPECT_EQ(view->cols, 3);
  EXPECT_EQ((*view)(2, 1), 9.0);
  (*view)(0, 0) = 1.5;
  EXPECT_EQ(s->Point(0)[0], 1.5);
  UniquePointSet empty(CreatePointSet(0));
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->xyz, nullptr);
}

TEST(VectorKernels, CopyAndAddNeedMatchingPresentVectors) {
  NoLeakScope scope;
  UniqueVector a(CreateVector(3));
  UniqueVector b(CreateVector(3));
  UniqueVector c(CreateVector(2));
  UniqueVector e(CreateVector(0));
  FillVector(a.get(), 2.0);
  FillVector(b.get(), 0.5);
  FillVector(c.get(), 9.0);
  CopyVector(a.get(), c.get());  // counts differ: no effect
  EXPECT_EQ((*c)[0], 9.0);
  CopyVector(nullptr, b.get());
  CopyVector(e.get(), b.get());
  EXPECT_EQ((*b)[0], 0.5);
  AddVectors(a.get(), b.get(), c.get());  // z of another count: no effect
  EXPECT_EQ((*c)[1], 9.0);
  AddVectors(a.get(), b.get(), b.get());
  EXPECT_EQ((*b)[2], 2.5);
  CopyVector(a.get(), b.get());
  EXPECT_EQ((*b)[1], 2.0);
  ScaleVector(b.get(), -3.0);
  EXPECT_EQ((*b)[0], -6.0);
  EXPECT_EQ(MaxAbsElement(b.get()), 6.0);
  EXPECT_EQ(MaxAbsElement(e.get()), 0.0);
}

TEST(VectorKernels, ScaledNormNeitherOverflowsNorUnderflows) {
  NoLeakScope scope;
  UniqueVector v(CreateVector(4));
  FillVector(v.get(), 1e300);
  EXPECT_DOUBLE_EQ(ScaledNorm(v.get()), 2e300);
  FillVector(v.get(), 1e-300);
  EXPECT_DOUBLE_EQ(ScaledNorm(v.get()), 2e-300);
  (*v)[0] = 3.0;
  (*v)[1] = -4.0;
  (*v)[2] = 0.0;
  (*v)[3] = 12.0;
  EXPECT_DOUBLE_EQ(ScaledNorm(v.get()), 13.0);
  FillVector(v.get(), 0.0);
  EXPECT_EQ(ScaledNorm(v.get()), 0.0);
}

TEST(VectorKernels, DotIsCompensatedAndZeroForDifferentCounts) {
  NoLeakScope scope;
  UniqueVector x(CreateVector(4));
  UniqueVector y(CreateVector(4));
  UniqueVector z(CreateVector(3));
  // 1e16 + 1 + 1 - 1e16: plain left-to-right summation loses both ones.
  const double xs[4] = {1e16, 1.0, 1.0, -1e16};
  for (int i = 0; i < 4; ++i) {
    (*x)[i] = xs[i];
    (*y)[i] = 1.0;
  }
  EXPECT_EQ(Dot(x.get(), y.get()), 2.0);
  EXPECT_EQ(Dot(x.get(), z.get()), 0.0);
  EXPECT_EQ(Dot(x.get(), nullptr), 0.0);
}

}  // namespace
}  // namespace metrofit::numeric
