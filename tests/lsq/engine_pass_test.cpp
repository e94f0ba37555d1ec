// The engine's specialised passes against a straightforward evaluation of the same models.
//
// The per-point passes (circle, sphere, cylinder, paraboloid, cone, ellipse, torus) must give
// the very bits of the plain evaluation: the iteration of ill-conditioned fits, and the choice
// among the starts of a multi-start fit, follow the last bit of the sums. The line and the
// plane take their sums from the point moments; those agree with the plain sums to rounding.
// The per-point passes are checked on every vector path the processor has (pairs of doubles
// everywhere, four at a time with AVX2): each must give those bits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "lsq/point_moments.h"
#include "lsq/point_pass.h"
#include "lsq/shape.h"
#include "lsq_test_util.h"
#include "metrofit.h"
#include "numeric/vector_path.h"
#include "reference_pass.h"
#include "support/vector_paths.h"

namespace {

using lsq_test::Pt;
using lsq_test::Rng;
using metrofit::NormalSums;
using metrofit::PassContext;
using metrofit::PointMoments;
using metrofit::ShapeFor;

using metrofit::numeric::VectorPath;

using testing_paths::OnEveryVectorPath;

// Equal bit for bit (so 0 differs from -0), except that any NaN equals any NaN: which of two
// NaN operands an operation passes on is the compiler's and the processor's choice, and no
// caller can tell them apart.
bool SameBits(double a, double b) {
  if (std::isnan(a) && std::isnan(b)) return true;
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Plausible parameters of the shape of `type` about a centre far from the origin, turned by
// random angles.
CFitResult RandomShape(int type, Rng& rng) {
  CFitResult r;
  r.m_center = Pt(rng.Uniform(-600, 600), rng.Uniform(-600, 600), rng.Uniform(-600, 600));
  r.m_angles = Pt(rng.Uniform(0, lsq_test::kTwoPi), rng.Uniform(0, lsq_test::kTwoPi), 0.0);
  r.m_size1 = Pt(rng.Uniform(5, 50), rng.Uniform(20, 60), rng.Uniform(2, 8));
  r.m_size2 = Pt(rng.Uniform(10, 80), rng.Uniform(-900, 900), rng.Uniform(0.3, 3.0));
  r.m_size3 = Pt(rng.Uniform(10, 40), rng.Uniform(10, 40), 0.0);
  (void)type;
  return r;
}

// Points scattered about the shape's centre: every model is evaluated away from its surface.
std::vector<Pt> Scatter(const CFitResult& r, int count, Rng& rng) {
  std::vector<Pt> pts;
  for (int i = 0; i < count; ++i) pts.push_back(r.m_center + rng.InBox(60.0));
  return pts;
}

NormalSums Accumulate(int type, const std::vector<Pt>& pts, CFitResult& r, bool noRedundancy,
                      double probe = 0.0) {
  CFitInput in;
  in.m_points = pts;
  in.m_fitType = type;
  in.m_probeRadius = probe;
  PointMoments moments;
  PassContext ctx{in, r, {}, noRedundancy, &moments, true};
  double m9[9];
  ConvertAnglesToMatrix(r.m_angles.x, r.m_angles.y, r.m_angles.z, m9);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) ctx.rotation[i][j] = m9[3 * i + j];
  NormalSums sums;
  ShapeFor(type)->accumulate(ctx, sums);
  return sums;
}

void ExpectSameBits(const NormalSums& s, const lsq_test::ReferenceSums& ref, int n) {
  for (int a = 0; a < n; ++a) {
    for (int b = 0; b < n; ++b)
      EXPECT_TRUE(SameBits(s.N[a][b], ref.N[a][b]))
          << "N[" << a << "][" << b << "] " << s.N[a][b] << " vs " << ref.N[a][b];
    EXPECT_TRUE(SameBits(s.u[a], ref.u[a])) << "u[" << a << "] " << s.u[a] << " vs " << ref.u[a];
  }
  EXPECT_TRUE(SameBits(s.objective, ref.objective)) << s.objective << " vs " << ref.objective;
}

constexpr int kPointTypes[] = {FIT_CIRCLE, FIT_SPHERE,  FIT_CYLINDER, FIT_PARABOLOID,
                               FIT_CONE,   FIT_ELLIPSE, FIT_TORUS};

TEST(EnginePass, AccumulationIsBitForBitThePlainEvaluation) {
  OnEveryVectorPath([] {
    Rng rng(20261124);
    for (int type : kPointTypes) {
      // Counts below, at and above one block and every remainder of two and of four lanes, so
      // the points left over after the last full group and the block boundaries are crossed.
      for (int count : {1, 2, 3, 4, 5, 6, 7, 64, 65, 66, 67, 200}) {
        CFitResult r = RandomShape(type, rng);
        const std::vector<Pt> pts = Scatter(r, count, rng);
        SCOPED_TRACE(::testing::Message() << "type " << type << ", " << count << " points");
        const NormalSums s = Accumulate(type, pts, r, false);
        ExpectSameBits(s, lsq_test::ReferencePass(type, pts, r, false),
                       ShapeFor(type)->engine.parameters);
      }
    }
  });
}

TEST(EnginePass, NoRedundancyReportsVarianceFactorOneAsThePlainEvaluation) {
  OnEveryVectorPath([] {
    Rng rng(7);
    for (int type : kPointTypes) {
      CFitResult r = RandomShape(type, rng);
      const std::vector<Pt> pts = Scatter(r, 9, rng);
      const NormalSums s = Accumulate(type, pts, r, true);
      EXPECT_EQ(s.objective, 1.0);
      ExpectSameBits(s, lsq_test::ReferencePass(type, pts, r, true),
                     ShapeFor(type)->engine.parameters);
    }
  });
}

// Points on the axis (rho = 0) and at the centre make NaN and infinite rows; a focal length of
// 0 makes B infinite. The pass must carry them exactly as the plain evaluation does.
TEST(EnginePass, DegeneratePointsPropagateAsInThePlainEvaluation) {
  OnEveryVectorPath([] {
    Rng rng(11);
    for (int type : kPointTypes) {
      // Degenerate points in several lanes of a group and among the points left over, so a
      // group that must be taken apart meets good points beside the bad one.
      for (int at : {0, 1, 3, 4, 6, 8}) {
        CFitResult r = RandomShape(type, rng);
        std::vector<Pt> pts = Scatter(r, 10, rng);
        pts[at] = r.m_center;  // on the axis and at the centre
        SCOPED_TRACE(::testing::Message() << "type " << type << ", bad point " << at);
        ExpectSameBits(Accumulate(type, pts, r, false),
                       lsq_test::ReferencePass(type, pts, r, false),
                       ShapeFor(type)->engine.parameters);
      }
    }
    CFitResult r = RandomShape(FIT_PARABOLOID, rng);
    r.m_size2.x = 0.0;
    const std::vector<Pt> pts = Scatter(r, 5, rng);
    ExpectSameBits(Accumulate(FIT_PARABOLOID, pts, r, false),
                   lsq_test::ReferencePass(FIT_PARABOLOID, pts, r, false), 6);
  });
}

void ExpectResidualsOfThePlainEvaluation() {
  Rng rng(99);
  for (int type : {FIT_LINE, FIT_PLANE, FIT_CIRCLE, FIT_SPHERE, FIT_CYLINDER, FIT_PARABOLOID,
                   FIT_CONE, FIT_ELLIPSE, FIT_TORUS}) {
    CFitResult r = RandomShape(type, rng);
    const std::vector<Pt> pts = Scatter(r, 33, rng);
    CFitInput in;
    in.m_points = pts;
    in.m_fitType = type;
    PointMoments moments;
    PassContext ctx{in, r, {}, false, &moments, true};
    const metrofit::ResidualSums sums = ShapeFor(type)->residuals(ctx);
    const lsq_test::ReferenceSums ref = lsq_test::ReferencePass(type, pts, r, false);
    ASSERT_EQ(r.m_deviations.size(), pts.size());
    double squares = 0.0, smallest = 1e38, largest = 0.0;
    for (std::size_t i = 0; i < pts.size(); ++i) {
      const Pt& v = r.m_deviations[i];
      EXPECT_TRUE(SameBits(v.x, ref.residuals[i].x) && SameBits(v.y, ref.residuals[i].y) &&
                  SameBits(v.z, ref.residuals[i].z))
          << "type " << type << " point " << i;
      squares += v.Dot(v);
      smallest = std::fmin(smallest, v.Length());
      largest = std::fmax(largest, v.Length());
    }
    EXPECT_EQ(sums.squares, squares);
    EXPECT_EQ(sums.smallest, smallest);
    EXPECT_EQ(sums.largest, largest);
  }
}

TEST(EnginePass, ResidualsAreBitForBitThePlainEvaluation) {
  OnEveryVectorPath([] { ExpectResidualsOfThePlainEvaluation(); });
}

// Probe compensation inside the pass is the exported RemoveProbeRadius, point for point.
void ExpectProbeCompensationOfRemoveProbeRadius();

TEST(EnginePass, ProbeCompensatedPointsAreThoseOfRemoveProbeRadius) {
  OnEveryVectorPath([] { ExpectProbeCompensationOfRemoveProbeRadius(); });
}

void ExpectProbeCompensationOfRemoveProbeRadius() {
  Rng rng(5);
  for (int type : {FIT_PARABOLOID, FIT_TORUS}) {
    CFitResult r = RandomShape(type, rng);
    std::vector<Pt> pts = Scatter(r, 21, rng);
    CFitInput in;
    in.m_points = pts;
    in.m_fitType = type;
    in.m_probeRadius = 1.5;
    lsq_test::Matrix rot(3, 3);
    ConvertAnglesToMatrix(r.m_angles.x, r.m_angles.y, r.m_angles.z, rot.get());
    std::vector<Pt> moved;
    for (int i = 0; i < static_cast<int>(pts.size()); ++i)
      moved.push_back(in.RemoveProbeRadius(i, r, rot.get()));
    ExpectSameBits(Accumulate(type, pts, r, false, 1.5),
                   lsq_test::ReferencePass(type, moved, r, false),
                   ShapeFor(type)->engine.parameters);
  }
}

// The 1 x 1 and 2 x 2 sweeps of the passes are mInvertMatrix, pivot failures included.
TEST(EnginePass, SmallInversionsAreThoseOfMInvertMatrix) {
  Rng rng(3);
  const double cases[][4] = {
      {2.0, 0.5, 0.25, 3.0},         {1e-6, 1e-23, -2e-23, 1e-6},
      {0.0, 1.0, 1.0, 0.0},                                     // first pivot fails
      {1.0, 2.0, 2.0, 4.0},                                     // second pivot fails
      {std::nan(""), 1.0, 1.0, 1.0}, {1e-310, 0.0, 0.0, 1.0}};  // a denormal pivot
  for (const auto& c : cases) {
    double a[2][2] = {{c[0], c[1]}, {c[2], c[3]}};
    lsq_test::Matrix ref(2, 2);
    for (int i = 0; i < 2; ++i)
      for (int j = 0; j < 2; ++j) ref[i][j] = a[i][j];
    metrofit::InvertInPlace<2>(a);
    mInvertMatrix(ref.get(), 2);
    for (int i = 0; i < 2; ++i)
      for (int j = 0; j < 2; ++j) EXPECT_TRUE(SameBits(a[i][j], ref[i][j]));
    double one[1][1] = {{c[0]}};
    lsq_test::Matrix ref1(1, 1);
    ref1[0][0] = c[0];
    metrofit::InvertInPlace<1>(one);
    mInvertMatrix(ref1.get(), 1);
    EXPECT_TRUE(SameBits(one[0][0], ref1[0][0]));
  }
  for (int k = 0; k < 100; ++k) {
    double a[2][2] = {{rng.Uniform(-3, 3), rng.Uniform(-3, 3)},
                      {rng.Uniform(-3, 3), rng.Uniform(-3, 3)}};
    metrofit::DoublePair pair[2][2];
    lsq_test::Matrix ref(2, 2);
    for (int i = 0; i < 2; ++i)
      for (int j = 0; j < 2; ++j) {
        ref[i][j] = a[i][j];
        pair[i][j] = metrofit::MakePair(a[i][j], a[i][j]);
      }
    mInvertMatrix(ref.get(), 2);
    ASSERT_TRUE(metrofit::SweepInPlace<2>(pair));
    for (int i = 0; i < 2; ++i)
      for (int j = 0; j < 2; ++j)
        EXPECT_TRUE(SameBits(pair[i][j][0], ref[i][j]) && SameBits(pair[i][j][1], ref[i][j]));
  }
}

// Line and plane: sums from the moments against the plain sums, at 1000 mm from the origin,
// on a flat part with micrometre noise (the hard case for moments: the misclosures live in the
// smallest direction of the scatter). The tolerances are relative to the size of the terms
// that make up each sum; the plain sums themselves carry rounding of that order.
TEST(EnginePass, MomentSumsAgreeWithThePlainEvaluation) {
  Rng rng(2026);
  for (int type : {FIT_LINE, FIT_PLANE}) {
    for (int trial = 0; trial < 20; ++trial) {
      const Pt centre = rng.AtDistance(1000.0);
      double a1 = rng.Uniform(0, lsq_test::kTwoPi), a2 = rng.Uniform(-1.2, 1.2);
      const lsq_test::Frame f = lsq_test::FrameOf(a1, a2);
      std::vector<Pt> pts;
      for (int i = 0; i < 500; ++i) {
        const double s = rng.Uniform(-100, 100), t = rng.Uniform(-10, 10);
        // A line along u, or a 200 x 20 plane strip across u; 5 micrometre noise.
        const Pt p = type == FIT_LINE ? lsq_test::FromLocal(f, centre, 0, 0, s)
                                      : lsq_test::FromLocal(f, centre, s, t, 0);
        pts.push_back(p + rng.NormalVector(0.005));
      }
      CFitResult r;
      // The iteration's current orientation: a milliradian off the part's own.
      r.m_angles = Pt(a1 + 1e-3, a2 - 1e-3, 0.0);
      r.m_center = type == FIT_LINE ? centre + Pt(0.3, -0.2, 0.1) : Pt();
      r.m_size2.y = centre.Dot(f.u) + 0.01;
      const NormalSums s = Accumulate(type, pts, r, false);
      const lsq_test::ReferenceSums ref = lsq_test::ReferencePass(type, pts, r, false);
      const int n = ShapeFor(type)->engine.parameters;
      double scaleN = 0.0;
      for (int a = 0; a < n; ++a) scaleN = std::fmax(scaleN, std::fabs(ref.N[a][a]));
      for (int a = 0; a < n; ++a) {
        for (int b = 0; b < n; ++b)
          EXPECT_NEAR(s.N[a][b], ref.N[a][b], 1e-12 * scaleN) << type << " N " << a << b;
        const double scaleU = std::sqrt(std::fabs(ref.N[a][a]) * ref.objective * pts.size());
        EXPECT_NEAR(s.u[a], ref.u[a], 1e-10 * scaleU) << type << " u " << a;
      }
      EXPECT_NEAR(s.objective, ref.objective, 1e-11 * ref.objective) << type;
    }
  }
}

TEST(EnginePass, MomentsOfNoPointsGiveEmptySums) {
  for (int type : {FIT_LINE, FIT_PLANE}) {
    CFitResult r;
    r.m_angles = Pt(0.3, 0.2, 0.0);
    const NormalSums s = Accumulate(type, {}, r, false);
    for (int a = 0; a < ShapeFor(type)->engine.parameters; ++a) {
      EXPECT_EQ(s.u[a], 0.0);
      for (int b = 0; b < ShapeFor(type)->engine.parameters; ++b) EXPECT_EQ(s.N[a][b], 0.0);
    }
    EXPECT_EQ(s.objective, 0.0);
  }
}

// Gathered once per fit: a second pass reuses them, however the points change afterwards.
TEST(EnginePass, MomentsAreGatheredOnTheFirstPassOnly) {
  Rng rng(8);
  CFitInput in;
  for (int i = 0; i < 50; ++i) in.m_points.push_back(rng.InBox(10.0));
  in.m_fitType = FIT_PLANE;
  CFitResult r;
  PointMoments moments;
  PassContext ctx{in, r, {}, false, &moments, true};
  NormalSums first, second;
  ShapeFor(FIT_PLANE)->accumulate(ctx, first);
  EXPECT_TRUE(moments.ready);
  EXPECT_EQ(moments.count, 50u);
  in.m_points[0] = Pt(1000, 1000, 1000);
  ShapeFor(FIT_PLANE)->accumulate(ctx, second);
  EXPECT_EQ(first.objective, second.objective);
}

}  // namespace
