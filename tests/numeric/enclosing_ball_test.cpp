// Smallest enclosing ball: the pivoting walk against a brute-force search over support sets.
#include "numeric/enclosing_ball.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "numeric/compensated.h"
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
using Pts = std::vector<double>;  // x y z per point

struct Ball {
  double c[3] = {0.0, 0.0, 0.0};
  double r = -1.0;
};

// Circumcentre of the given points within their affine hull (Gram system by Gaussian
// elimination with partial pivoting in extended precision); false when they are affinely
// dependent.
bool Circumscribed(const Pts& p, const std::vector<int>& s, int dim, Ball* b) {
  const int k = static_cast<int>(s.size()) - 1;
  LD v[3][3] = {};
  LD g[3][4] = {};
  for (int i = 0; i < k; ++i)
    for (int t = 0; t < dim; ++t) v[i][t] = static_cast<LD>(p[s[i + 1] * 3 + t]) - p[s[0] * 3 + t];
  LD scale = 0.0L;
  for (int i = 0; i < k; ++i) {
    for (int j = 0; j < k; ++j) {
      for (int t = 0; t < dim; ++t) g[i][j] += v[i][t] * v[j][t];
    }
    for (int t = 0; t < dim; ++t) g[i][k] += v[i][t] * v[i][t] / 2;
    scale = std::max(scale, g[i][i]);
  }
  for (int col = 0; col < k; ++col) {
    int piv = col;
    for (int r = col + 1; r < k; ++r)
      if (std::fabs(g[r][col]) > std::fabs(g[piv][col])) piv = r;
    if (std::fabs(g[piv][col]) <= 1e-13L * scale) return false;
    for (int c = 0; c <= k; ++c) std::swap(g[col][c], g[piv][c]);
    for (int r = 0; r < k; ++r) {
      if (r == col) continue;
      const LD f = g[r][col] / g[col][col];
      for (int c = col; c <= k; ++c) g[r][c] -= f * g[col][c];
    }
  }
  LD cc[3] = {p[s[0] * 3], p[s[0] * 3 + 1], p[s[0] * 3 + 2]};
  if (dim == 2) cc[2] = 0.0L;
  for (int i = 0; i < k; ++i) {
    const LD a = g[i][k] / g[i][i];
    for (int t = 0; t < dim; ++t) cc[t] += a * v[i][t];
  }
  LD r2 = 0.0L;
  for (int t = 0; t < dim; ++t) r2 += (cc[t] - p[s[0] * 3 + t]) * (cc[t] - p[s[0] * 3 + t]);
  for (int t = 0; t < 3; ++t) b->c[t] = static_cast<double>(cc[t]);
  b->r = static_cast<double>(std::sqrt(r2));
  return true;
}

double Distance(const Pts& p, int i, const double* c, int dim) {
  LD s = 0.0L;
  for (int t = 0; t < dim; ++t) s += (static_cast<LD>(p[i * 3 + t]) - c[t]) * (p[i * 3 + t] - c[t]);
  return static_cast<double>(std::sqrt(s));
}

// The smallest of the balls circumscribed about 1 .. dim + 1 of the points that hold them all.
Ball BruteForce(const Pts& p, int dim) {
  const int n = static_cast<int>(p.size() / 3);
  Ball best;
  std::vector<int> s;
  double extent = 0.0;
  for (int i = 0; i < n; ++i)
    for (int t = 0; t < dim; ++t) extent = std::max(extent, std::fabs(p[i * 3 + t]));
  const auto consider = [&]() {
    Ball b;
    if (!Circumscribed(p, s, dim, &b)) return;
    if (best.r >= 0.0 && b.r >= best.r) return;
    for (int i = 0; i < n; ++i)
      if (Distance(p, i, b.c, dim) > b.r * (1.0 + 1e-12) + 1e-15 * extent) return;
    best = b;
  };
  for (int a = 0; a < n; ++a) {
    s = {a};
    consider();
    for (int b = a + 1; b < n; ++b) {
      s = {a, b};
      consider();
      for (int c = b + 1; c < n; ++c) {
        s = {a, b, c};
        consider();
        if (dim < 3) continue;
        for (int d = c + 1; d < n; ++d) {
          s = {a, b, c, d};
          consider();
        }
      }
    }
  }
  return best;
}

struct Walked {
  NumericStatus status = static_cast<NumericStatus>(-1);  // not run
  Ball ball;
  double accuracy = 0.0;
};

Walked Walk(const Pts& p, bool planar = false, std::int32_t maxIter = 100, double tol = 1e-9) {
  const int n = static_cast<int>(p.size() / 3);
  UniquePointSet pts(CreatePointSet(n));
  std::copy(p.begin(), p.end(), pts->xyz);
  UniqueVector x(CreateVector(4));
  Walked w;
  w.status = SmallestEnclosingBall(pts.get(), x.get(), maxIter, tol, planar, &w.accuracy);
  for (int k = 0; k < 3; ++k) w.ball.c[k] = (*x)[k];
  w.ball.r = (*x)[3];
  for (int k = 0; k < 3 * n; ++k) EXPECT_EQ(pts->xyz[k], p[k]) << "points must not change";
  return w;
}

void ExpectSameBall(const Pts& p, int dim, const Walked& got, const char* what) {
  const Ball want = BruteForce(p, dim);
  ASSERT_GE(want.r, 0.0) << what;
  ASSERT_EQ(got.status, NumericStatus::kOk) << what;
  const double scale = std::max(want.r, 1e-300);
  EXPECT_NEAR(got.ball.r, want.r, 1e-10 * scale) << what;
  for (int t = 0; t < dim; ++t) EXPECT_NEAR(got.ball.c[t], want.c[t], 1e-6 * scale) << what;
  const int n = static_cast<int>(p.size() / 3);
  for (int i = 0; i < n; ++i) {
    EXPECT_LE(Distance(p, i, got.ball.c, dim), got.ball.r * (1.0 + 1e-12) + 1e-300)
        << what << " point " << i << " outside";
  }
}

Pts RandomSet(Rng& rng, int n, int kind) {
  Pts p(3 * n);
  for (int i = 0; i < n; ++i) {
    double u[3];
    switch (kind) {
      case 0:  // Gaussian blob
        for (int t = 0; t < 3; ++t) p[i * 3 + t] = Gauss(rng, 1.0);
        break;
      case 1:  // uniform box, anisotropic
        p[i * 3] = Uniform(rng, -5.0, 5.0);
        p[i * 3 + 1] = Uniform(rng, -1.0, 1.0);
        p[i * 3 + 2] = Uniform(rng, -0.2, 0.2);
        break;
      case 2:  // on a sphere cap plus interior points
        RandomUnit(rng, u);
        u[2] = std::fabs(u[2]);
        for (int t = 0; t < 3; ++t) p[i * 3 + t] = (i % 3 == 0 ? 0.5 : 2.0) * u[t];
        break;
      default:  // far from the origin, CMM scale
        for (int t = 0; t < 3; ++t)
          p[i * 3 + t] = (t == 0 ? 500.0 : -300.0) + Uniform(rng, -10, 10);
        break;
    }
  }
  return p;
}

// ---------------------------------------------------------------------------------------------

TEST(SmallestEnclosingBall, MatchesBruteForceOnRandomSets) {
  NoLeakScope scope;
  Rng rng(301);
  for (int trial = 0; trial < 48; ++trial) {
    const int n = 3 + trial % 28;  // 3 .. 30 points
    const Pts p = RandomSet(rng, n, trial % 4);
    ExpectSameBall(p, 3, Walk(p), "random");
  }
}

TEST(SmallestEnclosingBall, ObtuseSupportTriangleIsReducedToItsLongEdge) {
  // The walk reaches the circumcentre of (6,-4), (-8,-7), (8,3); that triangle is obtuse at
  // (6,-4), so the circle through all three (radius 9.88) is not the smallest. Dropping (6,-4)
  // gives the circle on the long edge: centre (0,-2), radius sqrt(89).
  NoLeakScope scope;
  const Pts p = {6, -4, 0, -8, -7, 0, 8, 3, 0, -8, -2, 0};
  for (bool planar : {false, true}) {
    const Walked w = Walk(p, planar);
    ASSERT_EQ(w.status, NumericStatus::kOk);
    EXPECT_NEAR(w.ball.r, std::sqrt(89.0), 1e-14);
    EXPECT_NEAR(w.ball.c[0], 0.0, 1e-14);
    EXPECT_NEAR(w.ball.c[1], -2.0, 1e-14);
    EXPECT_EQ(w.ball.c[2], 0.0);
  }
}

TEST(SmallestEnclosingBall, CosphericalPoints) {
  NoLeakScope scope;
  // Cube corners: eight points on one sphere, every face a square of four concyclic points.
  Pts cube;
  for (int i = 0; i < 8; ++i) {
    cube.push_back(1.0 + ((i & 1) ? 2.0 : -2.0));
    cube.push_back(-3.0 + ((i & 2) ? 2.0 : -2.0));
    cube.push_back(0.5 + ((i & 4) ? 2.0 : -2.0));
  }
  Walked w = Walk(cube);
  ASSERT_EQ(w.status, NumericStatus::kOk);
  EXPECT_NEAR(w.ball.r, 2.0 * std::sqrt(3.0), 1e-14);
  EXPECT_NEAR(w.ball.c[0], 1.0, 1e-14);
  EXPECT_NEAR(w.ball.c[1], -3.0, 1e-14);
  EXPECT_NEAR(w.ball.c[2], 0.5, 1e-14);
  // Octahedron vertices.
  const Pts oct = {1, 0, 0, -1, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 1, 0, 0, -1};
  w = Walk(oct);
  ASSERT_EQ(w.status, NumericStatus::kOk);
  EXPECT_NEAR(w.ball.r, 1.0, 1e-15);
  for (int t = 0; t < 3; ++t) EXPECT_NEAR(w.ball.c[t], 0.0, 1e-15);
  // Random points on a whole sphere: the ball is (nearly) the sphere itself.
  Rng rng(302);
  for (int trial = 0; trial < 6; ++trial) {
    Pts p;
    for (int i = 0; i < 30; ++i) {
      double u[3];
      RandomUnit(rng, u);
      p.push_back(10.0 + 3.0 * u[0]);
      p.push_back(-4.0 + 3.0 * u[1]);
      p.push_back(2.0 + 3.0 * u[2]);
    }
    ExpectSameBall(p, 3, Walk(p), "cospherical");
  }
}

TEST(SmallestEnclosingBall, CoplanarPointsInThreeDimensionsAndPlanarMode) {
  NoLeakScope scope;
  Rng rng(303);
  for (int trial = 0; trial < 20; ++trial) {
    const int n = 3 + trial;
    Pts p(3 * n);
    for (int i = 0; i < n; ++i) {
      p[i * 3] = Uniform(rng, -4.0, 4.0);
      p[i * 3 + 1] = Uniform(rng, -2.0, 2.0);
      p[i * 3 + 2] = 0.0;
    }
    ExpectSameBall(p, 3, Walk(p, false), "coplanar 3-D");
    ExpectSameBall(p, 2, Walk(p, true), "planar mode");
    // A tilted plane in 3-D: coplanar but not axis-aligned.
    Pts q(3 * n);
    for (int i = 0; i < n; ++i) {
      q[i * 3] = p[i * 3] * 0.6;
      q[i * 3 + 1] = p[i * 3 + 1];
      q[i * 3 + 2] = p[i * 3] * 0.8 + 7.0;
    }
    ExpectSameBall(q, 3, Walk(q, false), "tilted plane");
  }
}

TEST(SmallestEnclosingBall, PlanarModeIgnoresZ) {
  NoLeakScope scope;
  Pts p = {0, 0, 5, 4, 0, -3, 2, 1, 9};
  const Walked w = Walk(p, true);
  ASSERT_EQ(w.status, NumericStatus::kOk);
  EXPECT_NEAR(w.ball.r, 2.0, 1e-15);
  EXPECT_NEAR(w.ball.c[0], 2.0, 1e-15);
  EXPECT_NEAR(w.ball.c[1], 0.0, 1e-15);
  EXPECT_EQ(w.ball.c[2], 0.0);
}

TEST(SmallestEnclosingBall, CollinearPoints) {
  NoLeakScope scope;
  Rng rng(304);
  for (int trial = 0; trial < 10; ++trial) {
    double u[3];
    RandomUnit(rng, u);
    const double base[3] = {Uniform(rng, -9, 9), Uniform(rng, -9, 9), Uniform(rng, -9, 9)};
    const int n = 3 + 3 * trial;
    Pts p(3 * n);
    double lo = 1e300;
    double hi = -1e300;
    for (int i = 0; i < n; ++i) {
      const double t = Uniform(rng, -5.0, 5.0);
      lo = std::min(lo, t);
      hi = std::max(hi, t);
      for (int k = 0; k < 3; ++k) p[i * 3 + k] = base[k] + t * u[k];
    }
    const Walked w = Walk(p);
    ASSERT_EQ(w.status, NumericStatus::kOk);
    EXPECT_NEAR(w.ball.r, 0.5 * (hi - lo), 1e-13);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(w.ball.c[k], base[k] + 0.5 * (lo + hi) * u[k], 1e-12);
  }
}

TEST(SmallestEnclosingBall, DuplicatePoints) {
  NoLeakScope scope;
  const Pts same = {1.5, -2.0, 3.0, 1.5, -2.0, 3.0, 1.5, -2.0, 3.0, 1.5, -2.0, 3.0};
  Walked w = Walk(same);
  ASSERT_EQ(w.status, NumericStatus::kOk);
  EXPECT_EQ(w.ball.r, 0.0);
  EXPECT_EQ(w.ball.c[0], 1.5);
  EXPECT_EQ(w.ball.c[1], -2.0);
  EXPECT_EQ(w.ball.c[2], 3.0);
  // Every point three times, in a shuffled order.
  Rng rng(305);
  for (int trial = 0; trial < 8; ++trial) {
    const Pts base = RandomSet(rng, 6, trial % 4);
    std::vector<int> order;
    for (int r = 0; r < 3; ++r)
      for (int i = 0; i < 6; ++i) order.push_back(i);
    std::shuffle(order.begin(), order.end(), rng);
    Pts p;
    for (int i : order)
      for (int t = 0; t < 3; ++t) p.push_back(base[i * 3 + t]);
    ExpectSameBall(p, 3, Walk(p), "duplicates");
  }
}

TEST(SmallestEnclosingBall, NoPointsOnePointTwoPoints) {
  NoLeakScope scope;
  Walked w = Walk({});
  EXPECT_EQ(w.status, NumericStatus::kBadArguments);
  EXPECT_EQ(w.accuracy, kMachineEpsilon);
  w = Walk({4.0, 5.0, 6.0});
  ASSERT_EQ(w.status, NumericStatus::kOk);
  EXPECT_EQ(w.ball.r, 0.0);
  EXPECT_EQ(w.ball.c[1], 5.0);
  w = Walk({0.0, 0.0, 0.0, 2.0, -4.0, 4.0});
  ASSERT_EQ(w.status, NumericStatus::kOk);
  EXPECT_EQ(w.ball.r, 3.0);
  EXPECT_EQ(w.ball.c[0], 1.0);
  EXPECT_EQ(w.ball.c[1], -2.0);
  EXPECT_EQ(w.ball.c[2], 2.0);
  UniquePointSet one(CreatePointSet(1));
  UniqueVector shortX(CreateVector(3));
  EXPECT_EQ(SmallestEnclosingBall(one.get(), shortX.get(), 100, 1e-9, false, nullptr),
            NumericStatus::kBadArguments);
}

TEST(SmallestEnclosingBall, IterationLimitStillWritesAnEnclosingBall) {
  NoLeakScope scope;
  Rng rng(306);
  const Pts p = RandomSet(rng, 30, 0);
  const Walked full = Walk(p, false, 0);  // no limit
  ASSERT_EQ(full.status, NumericStatus::kOk);
  const Walked cut = Walk(p, false, 1);
  EXPECT_EQ(cut.status, NumericStatus::kIterationLimit);
  EXPECT_GT(cut.ball.r, full.ball.r);  // one pivot is not enough here
  for (int i = 0; i < 30; ++i) EXPECT_LE(Distance(p, i, cut.ball.c, 3), cut.ball.r * (1 + 1e-12));
}

TEST(SmallestEnclosingBall, ManyPointsWithinTheFitsIterationLimit) {
  NoLeakScope scope;
  Rng rng(307);
  for (int kind = 0; kind < 4; ++kind) {
    Pts p = RandomSet(rng, 20000, kind);
    const Walked w = Walk(p, false, 100);
    EXPECT_EQ(w.status, NumericStatus::kOk) << kind;
    double far = 0.0;
    for (int i = 0; i < 20000; ++i) far = std::max(far, Distance(p, i, w.ball.c, 3));
    EXPECT_LE(far, w.ball.r * (1.0 + 1e-12)) << kind;
  }
}

TEST(SmallestEnclosingBall, AllocationFailuresReturnThreeAndLeakNothing) {
  NoLeakScope scope;
  Rng rng(308);
  const Pts p = RandomSet(rng, 10, 0);
  const int runs = SweepAllocationFailures([&](int k) {
    UniquePointSet pts(CreatePointSet(10));
    std::copy(p.begin(), p.end(), pts->xyz);
    UniqueVector x(CreateVector(4));
    FailAllocationAfter(k);
    const NumericStatus status =
        SmallestEnclosingBall(pts.get(), x.get(), 100, 1e-9, false, nullptr);
    EXPECT_EQ(status,
              AllocationFailurePending() ? NumericStatus::kOk : NumericStatus::kAllocationFailure)
        << k;
  });
  EXPECT_EQ(runs, 2);  // the Gram matrix and its right-hand side
}

}  // namespace
}  // namespace metrofit::numeric
