// Golub-Reinsch SVD and the plane normal / principal direction built on it.
#include "numeric/svd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "numeric/numeric_test_util.h"

namespace metrofit::numeric {
namespace {

using testing::Gauss;
using testing::NoLeakScope;
using testing::RandomUnit;
using testing::Rng;
using testing::SweepAllocationFailures;
using testing::Uniform;

using LD = long double;

struct Svd {
  UniqueMatrix u;  // the decomposed matrix, now U
  UniqueVector w;
  UniqueMatrix v;
  NumericStatus status = static_cast<NumericStatus>(-1);  // not run
};

Svd Decompose(const std::vector<double>& a0, int m, int n, std::int32_t maxIter = kSvdSweepLimit,
              LeftVectors left = LeftVectors::kCompute) {
  Svd s;
  s.u.reset(CreateMatrix(m, n, kGeneral));
  for (int k = 0; k < m * n; ++k) s.u->data[k] = a0[k];
  s.w.reset(CreateVector(n));
  s.v.reset(CreateMatrix(n, n, kGeneral));
  s.status = SingularValueDecomposition(s.u.get(), s.w.get(), s.v.get(), maxIter, left);
  return s;
}

// ||A - U W V^T||_F / ||A||_F, and the orthogonality defects of U and V, in extended precision.
struct Defects {
  double reconstruction = 0.0;
  double orthoU = 0.0;
  double orthoV = 0.0;
};

Defects Measure(const std::vector<double>& a0, int m, int n, const Svd& s) {
  Defects d;
  LD num = 0.0L;
  LD den = 0.0L;
  for (int i = 0; i < m; ++i) {
    for (int j = 0; j < n; ++j) {
      LD r = 0.0L;
      for (int k = 0; k < n; ++k) r += static_cast<LD>((*s.u)(i, k)) * (*s.w)[k] * (*s.v)(j, k);
      const LD e = r - a0[i * n + j];
      num += e * e;
      den += static_cast<LD>(a0[i * n + j]) * a0[i * n + j];
    }
  }
  d.reconstruction = den > 0 ? static_cast<double>(std::sqrt(num / den)) : 0.0;
  for (int p = 0; p < n; ++p) {
    for (int q = 0; q < n; ++q) {
      LD uu = 0.0L;
      LD vv = 0.0L;
      for (int i = 0; i < m; ++i) uu += static_cast<LD>((*s.u)(i, p)) * (*s.u)(i, q);
      for (int i = 0; i < n; ++i) vv += static_cast<LD>((*s.v)(i, p)) * (*s.v)(i, q);
      const LD want = p == q ? 1.0L : 0.0L;
      d.orthoU = std::max(d.orthoU, static_cast<double>(std::fabs(uu - want)));
      d.orthoV = std::max(d.orthoV, static_cast<double>(std::fabs(vv - want)));
    }
  }
  return d;
}

// Eigenvalues of a symmetric 3 x 3 matrix by cyclic Jacobi rotations in extended precision: an
// independent route to the squared singular values.
std::vector<double> SymmetricEigenvalues3(LD a[3][3]) {
  for (int sweep = 0; sweep < 50; ++sweep) {
    LD off = 0.0L;
    for (int p = 0; p < 3; ++p)
      for (int q = p + 1; q < 3; ++q) off += a[p][q] * a[p][q];
    if (off < 1e-60L) break;
    for (int p = 0; p < 3; ++p) {
      for (int q = p + 1; q < 3; ++q) {
        if (a[p][q] == 0.0L) continue;
        const LD theta = (a[q][q] - a[p][p]) / (2.0L * a[p][q]);
        const LD t =
            (theta >= 0 ? 1.0L : -1.0L) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
        const LD c = 1.0L / std::sqrt(t * t + 1);
        const LD s = t * c;
        for (int k = 0; k < 3; ++k) {  // A = J^T A J
          const LD akp = a[k][p];
          const LD akq = a[k][q];
          a[k][p] = c * akp - s * akq;
          a[k][q] = s * akp + c * akq;
        }
        for (int k = 0; k < 3; ++k) {
          const LD apk = a[p][k];
          const LD aqk = a[q][k];
          a[p][k] = c * apk - s * aqk;
          a[q][k] = s * apk + c * aqk;
        }
      }
    }
  }
  std::vector<double> e = {static_cast<double>(a[0][0]), static_cast<double>(a[1][1]),
                           static_cast<double>(a[2][2])};
  std::sort(e.begin(), e.end());
  return e;
}

std::vector<double> SingularValuesByGram(const std::vector<double>& a0, int m) {
  LD g[3][3] = {};
  for (int i = 0; i < m; ++i)
    for (int p = 0; p < 3; ++p)
      for (int q = 0; q < 3; ++q) g[p][q] += static_cast<LD>(a0[i * 3 + p]) * a0[i * 3 + q];
  std::vector<double> e = SymmetricEigenvalues3(g);
  for (double& x : e) x = std::sqrt(std::max(x, 0.0));
  return e;
}

std::vector<double> Sorted(const NVector& w) {
  std::vector<double> s(w.data, w.data + w.count);
  std::sort(s.begin(), s.end());
  return s;
}

std::vector<double> RandomMatrix(Rng& rng, int m, int n) {
  std::vector<double> a(m * n);
  for (double& e : a) e = Uniform(rng, -1.0, 1.0);
  return a;
}

// ---------------------------------------------------------------------------------------------

TEST(SingularValueDecomposition, RandomTallMatricesReconstruct) {
  NoLeakScope scope;
  Rng rng(101);
  for (int m : {3, 4, 10, 100, 5000}) {
    const std::vector<double> a0 = RandomMatrix(rng, m, 3);
    const Svd s = Decompose(a0, m, 3);
    ASSERT_EQ(s.status, NumericStatus::kOk) << m;
    const Defects d = Measure(a0, m, 3, s);
    EXPECT_LT(d.reconstruction, 1e-12) << m;
    EXPECT_LT(d.orthoV, 1e-14) << m;
    EXPECT_LT(d.orthoU, 1e-13) << m;
    for (int k = 0; k < 3; ++k) EXPECT_GE((*s.w)[k], 0.0);
  }
}

// Skipping U is a shortcut only: W, V and the status are those of the full decomposition, bit
// for bit, on well and badly conditioned matrices, points far from the origin, and a sweep limit.
TEST(SingularValueDecomposition, SkippingTheLeftVectorsLeavesWAndVTheSame) {
  NoLeakScope scope;
  Rng rng(211);
  std::vector<std::vector<double>> cases;
  for (int m : {3, 7, 100, 20000}) cases.push_back(RandomMatrix(rng, m, 3));
  std::vector<double> strip = RandomMatrix(rng, 5000, 3);
  for (std::size_t k = 0; k < strip.size(); k += 3) {
    strip[k] = 1000.0 + 100.0 * strip[k];
    strip[k + 2] = -500.0 + 1e-9 * strip[k + 2];
  }
  cases.push_back(strip);
  for (std::int32_t limit : {kSvdSweepLimit, 1}) {
    for (const std::vector<double>& a0 : cases) {
      const int m = static_cast<int>(a0.size() / 3);
      const Svd full = Decompose(a0, m, 3, limit, LeftVectors::kCompute);
      const Svd fast = Decompose(a0, m, 3, limit, LeftVectors::kSkip);
      ASSERT_EQ(full.status, fast.status) << m;
      for (int k = 0; k < 3; ++k) EXPECT_EQ((*full.w)[k], (*fast.w)[k]) << m << " w" << k;
      for (int k = 0; k < 9; ++k) EXPECT_EQ(full.v->data[k], fast.v->data[k]) << m << " v" << k;
    }
  }
}

TEST(SingularValueDecomposition, OtherShapesReconstruct) {
  NoLeakScope scope;
  Rng rng(102);
  const int shapes[][2] = {{1, 1}, {5, 1}, {6, 2}, {8, 5}, {7, 7}};
  for (const auto& sh : shapes) {
    const std::vector<double> a0 = RandomMatrix(rng, sh[0], sh[1]);
    const Svd s = Decompose(a0, sh[0], sh[1]);
    ASSERT_EQ(s.status, NumericStatus::kOk);
    const Defects d = Measure(a0, sh[0], sh[1], s);
    EXPECT_LT(d.reconstruction, 1e-12) << sh[0] << "x" << sh[1];
    EXPECT_LT(d.orthoV, 1e-14);
    EXPECT_LT(d.orthoU, 1e-13);
  }
}

TEST(SingularValueDecomposition, SingularValuesAreRootsOfGramEigenvalues) {
  NoLeakScope scope;
  Rng rng(103);
  for (int trial = 0; trial < 20; ++trial) {
    const int m = 5 + trial * 37;
    std::vector<double> a0 = RandomMatrix(rng, m, 3);
    for (int i = 0; i < m; ++i) a0[i * 3 + 2] *= 0.3;  // distinct, well separated values
    const Svd s = Decompose(a0, m, 3);
    ASSERT_EQ(s.status, NumericStatus::kOk);
    const std::vector<double> got = Sorted(*s.w);
    const std::vector<double> want = SingularValuesByGram(a0, m);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[k], want[k], 1e-12 * want[2]) << trial << " " << k;
  }
}

TEST(SingularValueDecomposition, IllConditionedAndRankDeficientMatrices) {
  NoLeakScope scope;
  Rng rng(104);
  const int m = 400;
  for (double tiny : {1e-6, 1e-10, 1e-14, 0.0}) {
    std::vector<double> a0(m * 3);
    for (int i = 0; i < m; ++i) {
      const double p = Uniform(rng, -1.0, 1.0);
      const double q = Uniform(rng, -1.0, 1.0);
      a0[i * 3 + 0] = p;
      a0[i * 3 + 1] = q;
      a0[i * 3 + 2] = p - q + tiny * Uniform(rng, -1.0, 1.0);  // nearly dependent column
    }
    const Svd s = Decompose(a0, m, 3);
    ASSERT_EQ(s.status, NumericStatus::kOk) << tiny;
    const Defects d = Measure(a0, m, 3, s);
    EXPECT_LT(d.reconstruction, 1e-12) << tiny;
    EXPECT_LT(d.orthoV, 1e-14) << tiny;
    EXPECT_LT(d.orthoU, 1e-12) << tiny;
    const std::vector<double> w = Sorted(*s.w);
    // The smallest singular value is tiny sqrt(m/3) |(1,-1,1)|/3-ish; only its size matters.
    EXPECT_LT(w[0], std::max(tiny, 1e-15) * std::sqrt(m) * 2.0) << tiny;
    // Its right singular vector is the null direction (1, -1, -1)/sqrt 3 of the exact columns.
    int imin = 0;
    for (int k = 1; k < 3; ++k)
      if ((*s.w)[k] < (*s.w)[imin]) imin = k;
    const double dot = ((*s.v)(0, imin) - (*s.v)(1, imin) - (*s.v)(2, imin)) / std::sqrt(3.0);
    EXPECT_NEAR(std::fabs(dot), 1.0, 1e-9) << tiny;
  }
}

TEST(SingularValueDecomposition, ZeroMatrixHasZeroSingularValues) {
  NoLeakScope scope;
  const std::vector<double> a0(12, 0.0);
  const Svd s = Decompose(a0, 4, 3);
  ASSERT_EQ(s.status, NumericStatus::kOk);
  for (int k = 0; k < 3; ++k) EXPECT_EQ((*s.w)[k], 0.0);
  EXPECT_LT(Measure(a0, 4, 3, s).orthoV, 1e-15);
}

TEST(SingularValueDecomposition, SweepLimitReturnsOne) {
  NoLeakScope scope;
  Rng rng(105);
  const std::vector<double> a0 = RandomMatrix(rng, 10, 3);
  EXPECT_EQ(Decompose(a0, 10, 3, 1).status, NumericStatus::kIterationLimit);
  EXPECT_EQ(Decompose(a0, 10, 3, 200).status, NumericStatus::kOk);
}

TEST(SingularValueDecomposition, BadArgumentsReturnTwo) {
  NoLeakScope scope;
  UniqueMatrix a(CreateMatrix(2, 3, kGeneral));  // fewer rows than columns
  UniqueMatrix tall(CreateMatrix(4, 3, kGeneral));
  UniqueMatrix packed(CreateMatrix(3, 3, kPackedSymmetric));
  UniqueMatrix v(CreateMatrix(3, 3, kGeneral));
  UniqueMatrix v2(CreateMatrix(2, 2, kGeneral));
  UniqueVector w(CreateVector(3));
  UniqueVector w2(CreateVector(2));
  EXPECT_EQ(SingularValueDecomposition(a.get(), w.get(), v.get(), 200),
            NumericStatus::kBadArguments);
  EXPECT_EQ(SingularValueDecomposition(nullptr, w.get(), v.get(), 200),
            NumericStatus::kBadArguments);
  EXPECT_EQ(SingularValueDecomposition(packed.get(), w.get(), v.get(), 200),
            NumericStatus::kBadArguments);
  EXPECT_EQ(SingularValueDecomposition(tall.get(), w.get(), packed.get(), 200),
            NumericStatus::kBadArguments);
  EXPECT_EQ(SingularValueDecomposition(tall.get(), w.get(), v2.get(), 200),
            NumericStatus::kBadArguments);
  EXPECT_EQ(SingularValueDecomposition(tall.get(), w2.get(), v.get(), 200),
            NumericStatus::kBadArguments);
  EXPECT_EQ(SingularValueDecomposition(tall.get(), w.get(), v.get(), 0),
            NumericStatus::kBadArguments);
}

TEST(SingularValueDecomposition, WorkVectorFailureReturnsThree) {
  NoLeakScope scope;
  UniqueMatrix a(CreateMatrix(4, 3, kGeneral));
  UniqueMatrix v(CreateMatrix(3, 3, kGeneral));
  UniqueVector w(CreateVector(3));
  FailAllocationAfter(0);
  EXPECT_EQ(SingularValueDecomposition(a.get(), w.get(), v.get(), 200),
            NumericStatus::kAllocationFailure);
  FailAllocationAfter(-1);
}

TEST(SelectSingularIndices, TiesGoToTheLowerIndexAndW2WinsOnlyStrictly) {
  int e = -1;
  int m = -1;
  const double a[3] = {1.0, 1.0, 2.0};
  SelectSingularIndices(a, false, &e, &m);
  EXPECT_EQ(e, 0);
  EXPECT_EQ(m, 1);
  const double b[3] = {2.0, 1.0, 1.0};
  SelectSingularIndices(b, false, &e, &m);
  EXPECT_EQ(e, 1);
  EXPECT_EQ(m, 2);  // w2 ties the minimum and so becomes the middle value
  const double c[3] = {1.0, 2.0, 1.0};
  SelectSingularIndices(c, false, &e, &m);
  EXPECT_EQ(e, 0);  // w2 equal to the minimum does not replace it
  const double d[3] = {3.0, 1.0, 2.0};
  SelectSingularIndices(d, false, &e, &m);
  EXPECT_EQ(e, 1);
  EXPECT_EQ(m, 2);
  SelectSingularIndices(d, true, &e, &m);
  EXPECT_EQ(e, 0);
  EXPECT_EQ(m, 2);
  const double f[3] = {2.0, 2.0, 1.0};
  SelectSingularIndices(f, true, &e, &m);
  EXPECT_EQ(e, 0);
  EXPECT_EQ(m, 1);
  const double g[3] = {2.0, 1.0, 2.0};
  SelectSingularIndices(g, true, &e, &m);
  EXPECT_EQ(e, 0);
  EXPECT_EQ(m, 2);
}

// ---------------------------------------------------------------------------------------------

// Centred points on the plane through the origin with unit normal nrm, with optional noise.
UniquePointSet PlanePoints(Rng& rng, int n, const double* nrm, double noise) {
  double u[3];
  double v[3];
  // u = any unit vector orthogonal to nrm, v = nrm x u.
  const double pick[3] = {std::fabs(nrm[0]) < 0.6 ? 1.0 : 0.0, std::fabs(nrm[0]) < 0.6 ? 0.0 : 1.0,
                          0.0};
  u[0] = nrm[1] * pick[2] - nrm[2] * pick[1];
  u[1] = nrm[2] * pick[0] - nrm[0] * pick[2];
  u[2] = nrm[0] * pick[1] - nrm[1] * pick[0];
  const double ul = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
  for (double& e : u) e /= ul;
  v[0] = nrm[1] * u[2] - nrm[2] * u[1];
  v[1] = nrm[2] * u[0] - nrm[0] * u[2];
  v[2] = nrm[0] * u[1] - nrm[1] * u[0];
  UniquePointSet pts(CreatePointSet(n));
  for (int i = 0; i < n; ++i) {
    const double a = Uniform(rng, -20.0, 20.0);
    const double b = Uniform(rng, -10.0, 10.0);
    const double h = noise > 0 ? Gauss(rng, noise) : 0.0;
    for (int k = 0; k < 3; ++k) pts->Point(i)[k] = a * u[k] + b * v[k] + h * nrm[k];
  }
  return pts;
}

TEST(PlaneNormalSVD, FewerThanThreePointsReturnsTwo) {
  NoLeakScope scope;
  UniquePointSet two(CreatePointSet(2));
  two->Point(1)[0] = 1.0;
  UniqueVector x(CreateVector(6));
  EXPECT_EQ(PlaneNormalSVD(two.get(), x.get(), kSvdSweepLimit, nullptr),
            NumericStatus::kBadArguments);
  UniquePointSet none(CreatePointSet(0));
  EXPECT_EQ(PlaneNormalSVD(none.get(), x.get(), kSvdSweepLimit, nullptr),
            NumericStatus::kBadArguments);
  UniqueVector shortX(CreateVector(5));
  UniquePointSet three(CreatePointSet(3));
  EXPECT_EQ(PlaneNormalSVD(three.get(), shortX.get(), kSvdSweepLimit, nullptr),
            NumericStatus::kBadArguments);
}

TEST(PlaneNormalSVD, ExactAndNoisyTiltedPlanes) {
  NoLeakScope scope;
  Rng rng(201);
  for (int trial = 0; trial < 10; ++trial) {
    double nrm[3];
    RandomUnit(rng, nrm);
    for (double noise : {0.0, 1e-3}) {
      UniquePointSet pts = PlanePoints(rng, 500, nrm, noise);
      UniqueVector x(CreateVector(6));
      FillVector(x.get(), 7.0);
      for (int k = 0; k < 3; ++k) (*x)[3 + k] = nrm[k];  // previous normal: the true one
      double acc = -1.0;
      ASSERT_EQ(PlaneNormalSVD(pts.get(), x.get(), kSvdSweepLimit, &acc), NumericStatus::kOk);
      for (int k = 0; k < 3; ++k) EXPECT_EQ((*x)[k], 0.0);
      const double dot = (*x)[3] * nrm[0] + (*x)[4] * nrm[1] + (*x)[5] * nrm[2];
      // Noise of 1e-3 over a 40 x 20 patch tilts the normal by about 1e-3 / 10 / sqrt(500).
      EXPECT_NEAR(dot, 1.0, noise == 0.0 ? 1e-15 : 1e-8) << trial;
      EXPECT_GE(acc, 0.0);
      if (noise == 0.0) {
        EXPECT_LT(acc, 1e-30);  // w_min is rounding noise
      }
    }
  }
}

TEST(PlaneNormalSVD, SignFollowsThePreviousNormal) {
  NoLeakScope scope;
  Rng rng(202);
  const double nrm[3] = {0.6, 0.0, 0.8};
  for (double s : {1.0, -1.0}) {
    UniquePointSet pts = PlanePoints(rng, 50, nrm, 1e-4);
    UniqueVector x(CreateVector(6));
    for (int k = 0; k < 3; ++k) (*x)[3 + k] = s * nrm[k] + 0.3 * (k == 1);
    ASSERT_EQ(PlaneNormalSVD(pts.get(), x.get(), kSvdSweepLimit, nullptr), NumericStatus::kOk);
    const double dot = (*x)[3] * nrm[0] + (*x)[4] * nrm[1] + (*x)[5] * nrm[2];
    EXPECT_NEAR(dot, s, 1e-6);
  }
  // A zero previous normal counts as a non-negative product: the singular vector stays as is.
  UniquePointSet pts = PlanePoints(rng, 50, nrm, 0.0);
  std::vector<double> copy(pts->xyz, pts->xyz + 150);
  UniqueVector x(CreateVector(6));
  ASSERT_EQ(PlaneNormalSVD(pts.get(), x.get(), kSvdSweepLimit, nullptr), NumericStatus::kOk);
  const Svd s = Decompose(copy, 50, 3);
  int imin = 0;
  int imid = 0;
  SelectSingularIndices(s.w->data, false, &imin, &imid);
  for (int k = 0; k < 3; ++k) EXPECT_EQ((*x)[3 + k], (*s.v)(k, imin));
}

TEST(PlaneNormalSVD, AccuracyFigureFollowsTheSingularValues) {
  NoLeakScope scope;
  Rng rng(203);
  const int n = 300;
  std::vector<double> a0(n * 3);
  for (int i = 0; i < n; ++i) {
    a0[i * 3 + 0] = Uniform(rng, -3.0, 3.0);
    a0[i * 3 + 1] = Uniform(rng, -2.0, 2.0);
    a0[i * 3 + 2] = Uniform(rng, -1.0, 1.0);
  }
  UniquePointSet pts(CreatePointSet(n));
  std::copy(a0.begin(), a0.end(), pts->xyz);
  UniqueVector x(CreateVector(6));
  double acc = 0.0;
  ASSERT_EQ(PlaneNormalSVD(pts.get(), x.get(), kSvdSweepLimit, &acc), NumericStatus::kOk);
  const std::vector<double> w = SingularValuesByGram(a0, n);
  const double a = w[0] * w[0];
  const double b = w[1] * w[1];
  const double want = a * a * std::ldexp(1.0, -50) / (std::fabs(b * b - a * a) * std::sqrt(3.0));
  EXPECT_NEAR(acc, want, 1e-9 * want);
  // The normal is a unit vector.
  EXPECT_NEAR(std::hypot((*x)[3], (*x)[4], (*x)[5]), 1.0, 1e-15);

  std::copy(a0.begin(), a0.end(), pts->xyz);
  ASSERT_EQ(PrincipalDirectionSVD(pts.get(), x.get(), kSvdSweepLimit, &acc), NumericStatus::kOk);
  const double c = w[2] * w[2];
  const double wantLine =
      c * c * std::ldexp(1.0, -50) / (std::fabs(b * b - c * c) * std::sqrt(3.0));
  EXPECT_NEAR(acc, wantLine, 1e-9 * wantLine);
}

TEST(PrincipalDirectionSVD, LineDirectionAndSign) {
  NoLeakScope scope;
  Rng rng(204);
  for (int trial = 0; trial < 10; ++trial) {
    double dir[3];
    RandomUnit(rng, dir);
    UniquePointSet pts(CreatePointSet(200));
    for (int i = 0; i < 200; ++i) {
      const double t = Uniform(rng, -50.0, 50.0);
      for (int k = 0; k < 3; ++k) pts->Point(i)[k] = t * dir[k] + Gauss(rng, 1e-3);
    }
    UniqueVector x(CreateVector(6));
    for (int k = 0; k < 3; ++k) (*x)[3 + k] = -dir[k];  // previous direction points the other way
    ASSERT_EQ(PrincipalDirectionSVD(pts.get(), x.get(), kSvdSweepLimit, nullptr),
              NumericStatus::kOk);
    const double dot = (*x)[3] * dir[0] + (*x)[4] * dir[1] + (*x)[5] * dir[2];
    EXPECT_NEAR(dot, -1.0, 1e-9) << trial;
    EXPECT_NEAR(std::sqrt((*x)[3] * (*x)[3] + (*x)[4] * (*x)[4] + (*x)[5] * (*x)[5]), 1.0, 1e-15);
  }
}

TEST(PlaneNormalSVD, AllocationFailuresReturnThreeAndLeakNothing) {
  NoLeakScope scope;
  Rng rng(205);
  const double nrm[3] = {0.0, 0.0, 1.0};
  const int runs = SweepAllocationFailures([&](int k) {
    UniquePointSet pts = PlanePoints(rng, 20, nrm, 0.0);
    UniqueVector x(CreateVector(6));
    FailAllocationAfter(k);
    const NumericStatus status = PlaneNormalSVD(pts.get(), x.get(), kSvdSweepLimit, nullptr);
    EXPECT_EQ(status,
              AllocationFailurePending() ? NumericStatus::kOk : NumericStatus::kAllocationFailure)
        << k;
  });
  // V, w, the matrix header, the decomposition's two work vectors (the superdiagonal and the
  // reflection factors)
  EXPECT_EQ(runs, 5);
}

}  // namespace
}  // namespace metrofit::numeric
