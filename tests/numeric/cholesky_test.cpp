// Packed Cholesky factorisation, solve and the reciprocal condition estimate.
#include "numeric/cholesky.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "numeric/numeric_test_util.h"

namespace metrofit::numeric {
namespace {

using testing::NoLeakScope;
using testing::Rng;
using testing::Uniform;

// Random symmetric positive definite n x n matrix B^T B + I, packed.
UniqueMatrix RandomSpd(Rng& rng, int n) {
  std::vector<double> b(n * n);
  for (double& e : b) e = Uniform(rng, -1.0, 1.0);
  UniqueMatrix a(CreateMatrix(n, n, kPackedSymmetric));
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j <= i; ++j) {
      double s = i == j ? 1.0 : 0.0;
      for (int k = 0; k < n; ++k) s += b[k * n + i] * b[k * n + j];
      (*a)(i, j) = s;
    }
  }
  return a;
}

UniqueMatrix CopyOf(const NMatrix& a) {
  UniqueMatrix c(CreateMatrix(a.rows, a.cols, a.kind));
  const std::int64_t n = ElementCount(a.kind, a.rows, a.cols);
  for (std::int64_t k = 0; k < n; ++k) c->data[k] = a.data[k];
  return c;
}

// Exact reciprocal 1-norm condition number by solving for every column of A^-1.
double ExactReciprocalCondition(const NMatrix& a) {
  const int n = a.rows;
  UniqueMatrix l = CopyOf(a);
  EXPECT_EQ(CholeskyFactor(l.get()), 1);
  double anorm = 0.0;
  double inorm = 0.0;
  UniqueVector e(CreateVector(n));
  for (int j = 0; j < n; ++j) {
    double colA = 0.0;
    for (int i = 0; i < n; ++i) colA += std::fabs(a(i, j));
    anorm = std::max(anorm, colA);
    FillVector(e.get(), 0.0);
    (*e)[j] = 1.0;
    CholeskySolve(l.get(), e.get());
    double colInv = 0.0;
    for (int i = 0; i < n; ++i) colInv += std::fabs((*e)[i]);
    inorm = std::max(inorm, colInv);
  }
  return 1.0 / (anorm * inorm);
}

TEST(Cholesky, FactorReconstructsSpdMatrixAndSolves) {
  NoLeakScope scope;
  Rng rng(11);
  for (int n : {1, 2, 4, 7}) {
    UniqueMatrix a = RandomSpd(rng, n);
    UniqueMatrix l = CopyOf(*a);
    ASSERT_EQ(CholeskyFactor(l.get()), 1) << n;
    double scale = 0.0;
    for (int i = 0; i < n; ++i) scale = std::max(scale, (*a)(i, i));
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j <= i; ++j) {
        double s = 0.0;
        for (int k = 0; k <= j; ++k) s += (*l)(i, k) * (*l)(j, k);
        EXPECT_NEAR(s, (*a)(i, j), 1e-14 * scale) << n << " " << i << " " << j;
      }
    }
    UniqueVector b(CreateVector(n));
    std::vector<double> want(n);
    for (int i = 0; i < n; ++i) want[i] = Uniform(rng, -2.0, 2.0);
    for (int i = 0; i < n; ++i) {
      double s = 0.0;
      for (int k = 0; k < n; ++k) s += (*a)(i, k) * want[k];
      (*b)[i] = s;
    }
    CholeskySolve(l.get(), b.get());
    for (int i = 0; i < n; ++i) EXPECT_NEAR((*b)[i], want[i], 1e-12) << n;
  }
}

TEST(Cholesky, IndefiniteSingularAndNegativeMatricesFail) {
  NoLeakScope scope;
  UniqueMatrix a(CreateMatrix(2, 2, kPackedSymmetric));
  (*a)(0, 0) = 1.0;
  (*a)(1, 0) = 2.0;
  (*a)(1, 1) = 1.0;  // eigenvalues 3 and -1
  EXPECT_EQ(CholeskyFactor(a.get()), 0);
  UniqueMatrix z(CreateMatrix(1, 1, kPackedSymmetric));  // pivot exactly 0 fails
  EXPECT_EQ(CholeskyFactor(z.get()), 0);
  (*z)(0, 0) = -4.0;
  EXPECT_EQ(CholeskyFactor(z.get()), 0);
  UniqueMatrix s(CreateMatrix(2, 2, kPackedSymmetric));  // rank one: second pivot 0
  (*s)(0, 0) = 4.0;
  (*s)(1, 0) = 2.0;
  (*s)(1, 1) = 1.0;
  EXPECT_EQ(CholeskyFactor(s.get()), 0);
}

TEST(Cholesky, EmptyMatrixFactorsAndWrongKindDoesNot) {
  NoLeakScope scope;
  UniqueMatrix e(CreateMatrix(0, 0, kPackedSymmetric));
  EXPECT_EQ(CholeskyFactor(e.get()), 1);
  UniqueMatrix g(CreateMatrix(2, 2, kGeneral));
  (*g)(0, 0) = 1.0;
  (*g)(1, 1) = 1.0;
  EXPECT_EQ(CholeskyFactor(g.get()), 0);
  EXPECT_EQ(CholeskyFactor(nullptr), 0);
}

TEST(ConditionEstimate, DiagonalMatrixIsExact) {
  NoLeakScope scope;
  UniqueMatrix a(CreateMatrix(3, 3, kPackedSymmetric));
  (*a)(0, 0) = 2.0;
  (*a)(1, 1) = 1e-6;
  (*a)(2, 2) = 0.5;
  EXPECT_NEAR(ConditionEstimate(a.get()), 0.5e-6, 1e-18);
  (*a)(0, 0) = (*a)(1, 1) = (*a)(2, 2) = 3.0;
  EXPECT_NEAR(ConditionEstimate(a.get()), 1.0, 1e-15);
}

TEST(ConditionEstimate, WithinAFactorOfThreeOfTheExactValue) {
  NoLeakScope scope;
  // Hilbert matrices are the classic ill-conditioned SPD family.
  for (int n : {3, 5, 7}) {
    UniqueMatrix h(CreateMatrix(n, n, kPackedSymmetric));
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j <= i; ++j) (*h)(i, j) = 1.0 / (i + j + 1);
    }
    const double exact = ExactReciprocalCondition(*h);
    const double est = ConditionEstimate(h.get());
    EXPECT_GE(est, exact * (1 - 1e-6)) << n;  // |A^-1| is estimated from below
    EXPECT_LE(est, 3.0 * exact) << n;
  }
  Rng rng(5);
  for (int trial = 0; trial < 20; ++trial) {
    UniqueMatrix a = RandomSpd(rng, 6);
    const double exact = ExactReciprocalCondition(*a);
    const double est = ConditionEstimate(a.get());
    EXPECT_GE(est, exact * (1 - 1e-9));
    EXPECT_LE(est, 3.0 * exact);
  }
}

TEST(ConditionEstimate, NonPositiveDefiniteEmptyAndNoMemory) {
  NoLeakScope scope;
  UniqueMatrix a(CreateMatrix(2, 2, kPackedSymmetric));
  (*a)(0, 0) = 1.0;
  (*a)(1, 0) = 2.0;
  (*a)(1, 1) = 1.0;
  EXPECT_EQ(ConditionEstimate(a.get()), 0.0);
  const double before = (*a)(1, 0);
  EXPECT_EQ((*a)(1, 0), before);  // the input is not modified
  UniqueMatrix e(CreateMatrix(0, 0, kPackedSymmetric));
  EXPECT_EQ(ConditionEstimate(e.get()), 1.0);
  (*a)(1, 0) = 0.0;
  FailAllocationAfter(0);
  EXPECT_EQ(ConditionEstimate(a.get()), 0.0);
  FailAllocationAfter(-1);
}

}  // namespace
}  // namespace metrofit::numeric
