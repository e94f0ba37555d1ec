// Cone refinement of one cone candidate: canonical form, objective, residual rows and normal
// equations, the two-run wrapper, the start vector, status remapping and the write-back.
//
// Model under test (x of 8): x0..x2 a point on the axis, x3..x5 the axis, x6 the radial
// offset, x7 the half-angle; r = (|q x a| cos x7 - (q . a) sin x7) / |a| - x6 with
// q = p - (x0, x1, x2).
#include "composite/cone_refinement.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "composite/composite_test_util.h"
#include "composite/cylinder_cone_fit.h"
#include "metrofit.h"
#include "numeric/centred_copy.h"
#include "numeric/levenberg_marquardt.h"
#include "numeric/nvector.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"
#include "support/vector_paths.h"

namespace metrofit {
namespace {

using composite_test::Centroid;
using numeric::NVector;
using numeric::PointSet;
using numeric::UniquePointSet;
using numeric::UniqueVector;
using testing::Pt;

constexpr double kPi = 3.14159265358979323846;
using Params = std::array<double, kConeParameters>;

UniqueVector MakeX(const Params& v) {
  UniqueVector x(numeric::CreateVector(kConeParameters));
  for (int k = 0; k < kConeParameters; ++k) (*x)[k] = v[k];
  return x;
}

Params ToArray(const NVector& x) {
  Params v{};
  for (int k = 0; k < kConeParameters; ++k) v[k] = x[k];
  return v;
}

UniquePointSet MakePoints(const std::vector<Pt>& pts) {
  UniquePointSet s(numeric::CreatePointSet(static_cast<std::int32_t>(pts.size())));
  for (std::size_t i = 0; i < pts.size(); ++i) {
    double* p = s->Point(static_cast<std::int32_t>(i));
    p[0] = pts[i].x;
    p[1] = pts[i].y;
    p[2] = pts[i].z;
  }
  return s;
}

// The residual straight from the model formula, written independently of the library.
double ModelResidual(const Params& x, const Pt& p) {
  const Pt q = p - Pt(x[0], x[1], x[2]);
  const Pt a(x[3], x[4], x[5]);
  return (q.Cross(a).Length() * std::cos(x[7]) - q.Dot(a) * std::sin(x[7])) / a.Length() - x[6];
}

// A canonical parameter vector: unit axis, axis point at the foot from the origin, x6 > 0,
// x7 in (0, pi/2).
Params CanonicalParams(const Pt& axisPoint, Pt axis, double offset, double halfAngle) {
  axis.Normalize();
  const Pt foot = axisPoint - axis * axisPoint.Dot(axis);
  return {foot.x, foot.y, foot.z, axis.x, axis.y, axis.z, offset, halfAngle};
}

std::vector<Pt> ScatteredPoints() {
  // Points off the axis at various heights, some inside and some outside the cone.
  std::vector<Pt> pts;
  for (int i = 0; i < 24; ++i) {
    const double t = 0.7 * i;
    pts.emplace_back(3.0 * std::cos(t) + 0.1 * i, 2.5 * std::sin(t) - 0.05 * i, 0.4 * i - 3.0);
  }
  return pts;
}

// ---------------------------------------------------------------------------------------------
// Canonical form
// ---------------------------------------------------------------------------------------------

TEST(CanonicalCone, NormalisesAxisAndMovesAxisPointToFootFromOrigin) {
  // a: axis (0, 0, 2) -> (0, 0, 1); b: t = 3, point (1, 2, 3) -> (1, 2, 0);
  // c: x6 = 5 - sin(0.5) * 3.
  auto x = MakeX({1.0, 2.0, 3.0, 0.0, 0.0, 2.0, 5.0, 0.5});
  CanonicalCone(*x);
  const Params v = ToArray(*x);
  EXPECT_EQ(v[0], 1.0);
  EXPECT_EQ(v[1], 2.0);
  EXPECT_EQ(v[2], 0.0);
  EXPECT_EQ(v[3], 0.0);
  EXPECT_EQ(v[4], 0.0);
  EXPECT_EQ(v[5], 1.0);
  EXPECT_DOUBLE_EQ(v[6], 5.0 - std::sin(0.5) * 3.0);
  EXPECT_EQ(v[7], 0.5);
}

TEST(CanonicalCone, NegativeOffsetTurnsTheAxis) {
  // d: x6 = -2 (axis point already the foot) becomes 2 and the axis is negated.
  auto x = MakeX({1.0, 0.0, 0.0, 0.0, 0.0, 1.0, -2.0, 0.3});
  CanonicalCone(*x);
  const Params v = ToArray(*x);
  EXPECT_EQ(v[6], 2.0);
  EXPECT_EQ(v[5], -1.0);
  EXPECT_EQ(v[7], 0.3);
  EXPECT_EQ(v[0], 1.0);
}

TEST(CanonicalCone, OffsetUsesTheHalfAngleBeforeItIsWrapped) {
  // c comes before e and f: with x7 = pi + 0.5, sin(x7) = -sin(0.5), so x6 = 1 + sin(0.5) * 3
  // stays positive (no turn from d); f then turns the axis once and leaves x7 = 0.5.
  auto x = MakeX({0.0, 0.0, 3.0, 0.0, 0.0, 1.0, 1.0, kPi + 0.5});
  CanonicalCone(*x);
  const Params v = ToArray(*x);
  EXPECT_NEAR(v[6], 1.0 + std::sin(0.5) * 3.0, 1e-15);
  EXPECT_EQ(v[5], -1.0);
  EXPECT_NEAR(v[7], 0.5, 1e-15);
}

TEST(CanonicalCone, WholeTurnsAreRemovedWithoutTurningTheAxis) {
  for (const double turns : {-3.0, -1.0, 1.0, 4.0}) {
    SCOPED_TRACE(turns);
    auto x = MakeX({0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 1.0, 0.4 + 2.0 * kPi * turns});
    CanonicalCone(*x);
    EXPECT_NEAR((*x)[7], 0.4, 1e-13);
    EXPECT_EQ((*x)[4], 1.0);
  }
}

TEST(CanonicalCone, AngleAbovePiTurnsTheAxis) {
  // f: x7 = pi + 0.2 -> axis negated, x7 = 0.2.
  auto x = MakeX({0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 1.0, kPi + 0.2});
  CanonicalCone(*x);
  EXPECT_EQ((*x)[3], -1.0);
  EXPECT_NEAR((*x)[7], 0.2, 1e-15);
}

TEST(CanonicalCone, ObtuseAngleIsFoldedWithoutTurningTheAxis) {
  // g: x7 = pi - 0.2 -> 0.2 with the axis as it was, deliberately.
  auto x = MakeX({0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 1.0, kPi - 0.2});
  CanonicalCone(*x);
  EXPECT_EQ((*x)[3], 1.0);
  EXPECT_NEAR((*x)[7], 0.2, 1e-15);
  // Negative angle: + 2 pi gives 2 pi - 0.2 (> pi): turned once by f, then folded by g.
  auto y = MakeX({0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 1.0, -0.2});
  CanonicalCone(*y);
  EXPECT_EQ((*y)[3], -1.0);
  EXPECT_NEAR((*y)[7], 0.2, 1e-15);
}

TEST(CanonicalCone, StepsBeforeTheFoldsKeepTheModelledSurface) {
  // Scaling the axis, sliding the axis point along it with the matching offset change and
  // whole turns of the half-angle describe the same surface: every residual is unchanged.
  const Params raw = {2.0, -1.0, 4.0, 0.3, -0.6, 1.8, 1.7, 0.35 + 2.0 * kPi};
  auto x = MakeX(raw);
  CanonicalCone(*x);
  const Params canon = ToArray(*x);
  ASSERT_GE(canon[6], 0.0);  // no turn by d in this case
  for (const Pt& p : ScatteredPoints()) {
    EXPECT_NEAR(ModelResidual(canon, p), ModelResidual(raw, p), 1e-12);
  }
}

TEST(CanonicalCone, HugeOrInfiniteAngleDoesNotHang) {
  // Regression: whole turns were removed one at a time, which never ends for an infinite
  // angle and takes practically forever for one of 1e12 or more.
  auto big = MakeX({0.0, 0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1e300});
  CanonicalCone(*big);
  EXPECT_GE((*big)[7], 0.0);
  EXPECT_LE((*big)[7], kPi / 2.0);
  auto mid = MakeX({0.0, 0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1e12});
  CanonicalCone(*mid);
  EXPECT_GE((*mid)[7], 0.0);
  EXPECT_LE((*mid)[7], kPi / 2.0);
  auto inf = MakeX({0.0, 0.0, 0.0, 0.0, 0.0, 1.0, 1.0, HUGE_VAL});
  CanonicalCone(*inf);
  EXPECT_FALSE(std::isfinite((*inf)[7]));
}

// ---------------------------------------------------------------------------------------------
// Objective, residual rows, normal equations
// ---------------------------------------------------------------------------------------------

TEST(ConeObjective, IsTheSumOfSquaredModelResidualsForAnyAxisLength) {
  const std::vector<Pt> pts = ScatteredPoints();
  auto set = MakePoints(pts);
  for (const double scale : {1.0, 0.01, 37.0}) {
    const Params x = {0.5, -0.2, 0.1, 0.2 * scale, 0.1 * scale, 0.97 * scale, 1.3, 0.4};
    double expected = 0.0;
    for (const Pt& p : pts) expected += ModelResidual(x, p) * ModelResidual(x, p);
    auto xv = MakeX(x);
    EXPECT_NEAR(ConeObjective(set.get(), *xv), expected, 1e-12 * expected) << scale;
  }
}

// Signed residual of one point through the library's objective (a one-point set gives r^2).
double ObjectiveResidual(const Pt& p, const Params& x, double sign) {
  auto one = MakePoints({p});
  auto xv = MakeX(x);
  return sign * std::sqrt(ConeObjective(one.get(), *xv));
}

TEST(ConeResidualRow, MatchesCentralDifferencesOfTheObjectiveResidual) {
  const std::vector<Pt> pts = ScatteredPoints();
  auto set = MakePoints(pts);
  const Params cases[] = {
      CanonicalParams({0.3, -0.2, 0.0}, {0.1, 0.2, 1.0}, 1.2, 0.4),
      CanonicalParams({-1.0, 0.5, 2.0}, {1.0, -0.3, 0.4}, 0.2, 1.2),
      CanonicalParams({0.0, 0.0, 0.0}, {0.0, 0.0, 1.0}, 2.0, 0.05),
  };
  constexpr double kStep = 1e-6;
  double worst = 0.0;
  int checked = 0;
  for (const Params& x : cases) {
    auto xv = MakeX(x);
    auto row = UniqueVector(numeric::CreateVector(kConeParameters));
    for (std::size_t i = 0; i < pts.size(); ++i) {
      double r = 0.0;
      ConeResidualRow(*set, static_cast<std::int32_t>(i), *xv, *row, r);
      EXPECT_NEAR(r, ModelResidual(x, pts[i]), 1e-12);
      if (std::fabs(r) < 1e-3) continue;  // too near the surface for a stable sign
      ++checked;
      const double sign = r > 0.0 ? 1.0 : -1.0;
      for (int k = 0; k < kConeParameters; ++k) {
        Params xp = x, xm = x;
        xp[k] += kStep;
        xm[k] -= kStep;
        const double fd =
            (ObjectiveResidual(pts[i], xp, sign) - ObjectiveResidual(pts[i], xm, sign)) /
            (2.0 * kStep);
        const double err = std::fabs((*row)[k] - fd);
        worst = std::fmax(worst, err);
        EXPECT_NEAR((*row)[k], fd, 1e-7) << "point " << i << ", parameter " << k;
      }
    }
  }
  EXPECT_GE(checked, 60);
  std::printf("[worst] cone residual row vs central differences: %.3e\n", worst);
}

void ExpectConeBlockFormsMatch() {
  std::vector<Pt> pts = ScatteredPoints();
  pts.push_back({0.3, -0.2, 4.0});  // on the axis of the first case
  pts.push_back({0.3, -0.2, 1.0});
  // Also inside the first group of four lanes and in a pair's second lane.
  pts.insert(pts.begin() + 1, Pt(0.3, -0.2, 2.5));
  pts.insert(pts.begin() + 5, Pt(0.3, -0.2, -1.5));
  auto set = MakePoints(pts);
  const auto same = [](double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
  };
  const Params cases[] = {CanonicalParams({0.3, -0.2, 0.0}, {0.0, 0.0, 1.0}, 1.2, 0.4),
                          CanonicalParams({-1.0, 0.5, 2.0}, {1.0, -0.3, 0.4}, 0.2, 1.2)};
  for (const Params& x : cases) {
    auto xv = MakeX(x);
    for (std::int32_t count : {1, 2, 3, 4, 5, 6, 7, static_cast<std::int32_t>(pts.size())}) {
      std::vector<double> out(static_cast<std::size_t>(count)), res(out.size());
      std::vector<double> rows(out.size() * kConeParameters);
      ConeResiduals(*set, 0, count, *xv, out.data());
      ConeResidualRows(*set, 0, count, *xv, rows.data(), res.data());
      auto row = UniqueVector(numeric::CreateVector(kConeParameters));
      for (std::int32_t i = 0; i < count; ++i) {
        EXPECT_TRUE(same(out[i], ConeResidual(*set, i, *xv))) << i;
        double r = 0.0;
        ConeResidualRow(*set, i, *xv, *row, r);
        EXPECT_TRUE(same(res[i], r)) << i;
        for (int k = 0; k < kConeParameters; ++k)
          EXPECT_TRUE(same(rows[static_cast<std::size_t>(i) * kConeParameters + k], (*row)[k]))
              << i << " " << k;
      }
    }
  }
}

// The block forms that the minimiser uses are the one-point forms bit for bit, on every
// vector path, for every remainder of four and two lanes and for points on the axis (any NaN
// counting as equal to any NaN).
TEST(ConeResidualRow, BlockFormsAreTheOnePointFormsBitForBit) {
  testing_paths::OnEveryVectorPath([] { ExpectConeBlockFormsMatch(); });
}

TEST(ConeResidualRow, PointOnTheAxisHasNoPositionOrAxisDerivatives) {
  const Params x = CanonicalParams({0.0, 0.0, 0.0}, {0.0, 0.0, 1.0}, 1.5, 0.3);
  auto set = MakePoints({{0.0, 0.0, 2.0}});
  auto xv = MakeX(x);
  auto row = UniqueVector(numeric::CreateVector(kConeParameters));
  double r = 0.0;
  ConeResidualRow(*set, 0, *xv, *row, r);
  for (int k = 0; k < 6; ++k) EXPECT_EQ((*row)[k], 0.0) << k;
  EXPECT_EQ((*row)[6], -1.0);
  EXPECT_DOUBLE_EQ((*row)[7], -2.0 * std::cos(0.3));
  EXPECT_DOUBLE_EQ(r, -2.0 * std::sin(0.3) - 1.5);
}

TEST(ConeGradient, IsHalfTheObjectiveGradientAndSumsTheRows) {
  const std::vector<Pt> pts = ScatteredPoints();
  auto set = MakePoints(pts);
  const Params x = CanonicalParams({0.4, 0.1, -0.3}, {0.2, -0.1, 1.0}, 0.8, 0.6);
  auto xv = MakeX(x);
  auto g = UniqueVector(numeric::CreateVector(kConeParameters));
  numeric::UniqueMatrix n(
      numeric::CreateMatrix(kConeParameters, kConeParameters, numeric::kPackedSymmetric));
  ConeGradient(set.get(), *xv, *g, *n);
  // x was canonical already: the call leaves it (up to rounding) as it was.
  for (int k = 0; k < kConeParameters; ++k) EXPECT_NEAR((*xv)[k], x[k], 1e-15) << k;

  std::array<double, kConeParameters> gs{};
  std::array<std::array<double, kConeParameters>, kConeParameters> ns{};
  auto row = UniqueVector(numeric::CreateVector(kConeParameters));
  for (std::size_t i = 0; i < pts.size(); ++i) {
    double r = 0.0;
    ConeResidualRow(*set, static_cast<std::int32_t>(i), *xv, *row, r);
    for (int a = 0; a < kConeParameters; ++a) {
      gs[a] += r * (*row)[a];
      for (int b = 0; b < kConeParameters; ++b) ns[a][b] += (*row)[a] * (*row)[b];
    }
  }
  constexpr double kStep = 1e-6;
  for (int a = 0; a < kConeParameters; ++a) {
    EXPECT_NEAR((*g)[a], gs[a], 1e-12 * (1.0 + std::fabs(gs[a]))) << a;
    for (int b = 0; b < kConeParameters; ++b)
      EXPECT_NEAR((*n)(a, b), ns[a][b], 1e-12 * (1.0 + std::fabs(ns[a][b]))) << a << "," << b;
    Params xp = x, xm = x;
    xp[a] += kStep;
    xm[a] -= kStep;
    auto vp = MakeX(xp), vm = MakeX(xm);
    const double fd =
        (ConeObjective(set.get(), *vp) - ConeObjective(set.get(), *vm)) / (2.0 * kStep);
    EXPECT_NEAR((*g)[a], 0.5 * fd, 1e-6 * (1.0 + std::fabs(fd))) << a;
  }
}

// ---------------------------------------------------------------------------------------------
// The two-run wrapper and the refinement
// ---------------------------------------------------------------------------------------------

TEST(MinimiseCone, SecondRunStartsWhereTheFirstStopped) {
  // With a limit of 2 evaluations each run makes at most one trial, so the wrapper's result is
  // exactly: canonicalise, one run, canonicalise, one more run, canonicalise.
  const std::vector<Pt> pts = ScatteredPoints();
  auto set = MakePoints(pts);
  const Params start = {0.2, 0.1, -0.5, 0.1, 0.1, 2.0, 3.0, 0.2};
  auto viaWrapper = MakeX(start);
  const numeric::NumericStatus status = MinimiseCone(*set, *viaWrapper, 2, 1e-10);

  auto byHand = MakeX(start);
  double f = 0.0;
  CanonicalCone(*byHand);
  EXPECT_EQ(static_cast<int>(numeric::MinimiseLMObjective(set.get(), ConeObjective, ConeGradient, 2,
                                                          1e-10, &f, byHand.get(), nullptr)),
            1);
  CanonicalCone(*byHand);
  const numeric::NumericStatus second = numeric::MinimiseLMObjective(
      set.get(), ConeObjective, ConeGradient, 2, 1e-10, &f, byHand.get(), nullptr);
  CanonicalCone(*byHand);
  EXPECT_EQ(status, second);
  for (int k = 0; k < kConeParameters; ++k) EXPECT_EQ((*viaWrapper)[k], (*byHand)[k]) << k;
}

// The refinement as stated: centred copy about the m_centerParam value, start vector
// (0, 0, 0, axis, apex-angle start, 0), 100 evaluations per run, tolerance 1e-10.
Params ReproduceRefinement(const CFitInput& in, double apexAngleStart) {
  double record[3] = {in.m_centerParam.value.x, in.m_centerParam.value.y, in.m_centerParam.value.z};
  UniquePointSet pts;
  EXPECT_EQ(static_cast<int>(numeric::CentredCopy(static_cast<std::int32_t>(in.m_points.size()),
                                                  in.m_points.data(), record, false, pts)),
            0);
  const Pt& a = in.m_axisParam.value;
  auto x = MakeX({0.0, 0.0, 0.0, a.x, a.y, a.z, apexAngleStart, 0.0});
  EXPECT_EQ(static_cast<int>(MinimiseCone(*pts, *x, 100, 1e-10)), 0);
  return ToArray(*x);
}

// Apex and slope as the refinement writes them from a solution x.
void ExpectWrittenFrom(const Params& x, const CFitInput& in, const CFitResult& out) {
  const Pt axis(x[3], x[4], x[5]);
  const Pt centre = in.m_centerParam.value + Pt(x[0], x[1], x[2]);
  EXPECT_EQ(out.m_axis, axis);
  EXPECT_EQ(out.m_center, centre - axis * (x[6] / std::sin(x[7])));
  EXPECT_EQ(out.m_size2.z, 1.0 / std::tan(x[7]));
}

testing::KnownSolution NoisyCone(std::uint64_t seed) {
  testing::GeneratorOptions o;
  o.pointCount = 60;
  o.noiseMicrometres = 5.0;
  o.centreOffset = 500.0;
  o.axisTilt = 1.1;
  o.radius = 15.0;
  o.halfAngle = 0.45;
  o.length = 20.0;
  o.seed = seed;
  return testing::GenerateKnownSolution(testing::Shape::kCone, o);
}

TEST(RefineCone, ApexAngleStartIsFromTheSlopeStartOnlyAboveTheThreshold) {
  // The start vector is observable through the exact solution the minimiser reaches from it.
  const testing::KnownSolution s = NoisyCone(11);
  CFitInput in;
  in.m_points = s.points;
  in.m_centerParam.value = Centroid(s.points);
  Pt tilted = s.truth.axis + Pt(0.05, -0.04, 0.03);
  in.m_axisParam.value = tilted.Normalize();

  const Params from180 = ReproduceRefinement(in, 180.0);
  const double degreesPerSlope = 114.59155902616465;
  const Params fromSlope = ReproduceRefinement(in, std::atan2(1.0, 2e-5) * degreesPerSlope);
  ASSERT_NE(from180, fromSlope) << "these data do not tell the two starts apart";

  // At or below 1e-5 (the radial spread was too small to measure a slope, or the value left
  // from before is tiny) the full apex angle starts at 180 degrees.
  for (const double slope : {0.0, 4e-6, 1e-5, -3.0}) {
    SCOPED_TRACE(slope);
    in.m_size2Param.value.z = slope;
    CFitResult out;
    ASSERT_EQ(RefineCone(in, out), 0);
    ExpectWrittenFrom(from180, in, out);
  }
  in.m_size2Param.value.z = 2e-5;
  CFitResult out;
  ASSERT_EQ(RefineCone(in, out), 0);
  ExpectWrittenFrom(fromSlope, in, out);
}

TEST(RefineCone, WritesApexAxisSlopeSigmaAndFormErrorOfTheSolution) {
  const testing::KnownSolution s = NoisyCone(5);
  CFitInput in;
  in.m_points = s.points;
  in.m_centerParam.value = Centroid(s.points);
  Pt start = s.truth.axis + Pt(0.03, 0.02, -0.04);
  in.m_axisParam.value = start.Normalize();
  in.m_size2Param.value.z = 1.0;
  CFitResult out;
  out.m_size1 = Pt(7.0, 8.0, 9.0);
  out.m_angles = Pt(0.1, 0.2, 0.3);
  out.m_rms = 42.0;
  out.m_valid = 0;
  ASSERT_EQ(RefineCone(in, out), 0);
  EXPECT_EQ(out.m_valid, 1);

  // The known least-squares cone, within what the minimiser's step test leaves.
  const testing::ConvergenceBounds b = testing::BoundsFor(s, 1e-6);
  EXPECT_LE(testing::DirectedAngle(out.m_axis, s.truth.axis), b.axisAngle);
  EXPECT_LE((out.m_center - s.truth.centre).Length(), b.position);
  EXPECT_NEAR(std::atan(1.0 / out.m_size2.z), s.truth.halfAngle, b.halfAngle);
  EXPECT_NEAR(out.m_axis.Length(), 1.0, 1e-15);

  // Sigma and form error from the deviations about the written cone, recomputed here.
  const double half = std::atan(1.0 / out.m_size2.z);
  double s1 = 0.0, s2 = 0.0, lo = 1e38, hi = -1e38;
  for (const Pt& p : s.points) {
    const Pt q = p - out.m_center;
    const double d =
        q.Cross(out.m_axis).Length() * std::cos(half) - q.Dot(out.m_axis) * std::sin(half);
    s1 += d;
    s2 += d * d;
    lo = std::fmin(lo, d);
    hi = std::fmax(hi, d);
  }
  const double n = static_cast<double>(s.points.size());
  const double sigma = std::sqrt(std::fabs(n * s2 - s1 * s1) / (n * (n - 1.0)));
  EXPECT_NEAR(out.m_sigma, sigma, 1e-6 * sigma);
  EXPECT_NEAR(out.m_formError, hi - lo, 1e-6 * (hi - lo));
  EXPECT_NEAR(out.m_sigma, s.rms * std::sqrt(n / (n - 1.0)), 0.01 * s.rms);  // mean ~ 0

  // Nothing else is written.
  EXPECT_EQ(out.m_size1, Pt(7.0, 8.0, 9.0));
  EXPECT_EQ(out.m_angles, Pt(0.1, 0.2, 0.3));
  EXPECT_EQ(out.m_rms, 42.0);
  EXPECT_TRUE(out.m_deviations.empty());
}

std::vector<Pt> CylinderPoints(double noise) {
  std::vector<Pt> pts;
  for (int i = 0; i < 30; ++i) {
    const double t = 0.9 * i;
    pts.emplace_back(10.0 + 4.0 * std::cos(t) + noise * std::sin(7.0 * i), 20.0 + 4.0 * std::sin(t),
                     30.0 + 0.5 * i);
  }
  return pts;
}

TEST(RefineCone, CylinderDataGiveNoApexAndKeepThePreviousSlope) {
  CFitInput in;
  in.m_centerParam.value = Pt(10.3, 19.8, 37.0);
  in.m_axisParam.value = Pt(0.05, 0.02, 1.0);

  // Exact cylinder: the half-angle ends below 1e-8, so the apex is reported as (0, 0, 0), and
  // its tangent below 1e-5, so the slope keeps the value it had.
  in.m_points = CylinderPoints(0.0);
  CFitResult exact;
  exact.m_size2.z = 123.0;
  exact.m_center = Pt(1.0, 1.0, 1.0);
  ASSERT_EQ(RefineCone(in, exact), 0);
  EXPECT_EQ(exact.m_valid, 1);
  EXPECT_EQ(exact.m_center, Pt());
  EXPECT_EQ(exact.m_size2.z, 123.0);
  EXPECT_NEAR(testing::AxisAngle(exact.m_axis, Pt(0.0, 0.0, 1.0)), 0.0, 1e-12);
  EXPECT_LT(exact.m_formError, 1e-12);

  // Slightly rough cylinder: a half-angle between 1e-8 and atan(1e-5) gives a far apex on the
  // axis, and still no slope.
  in.m_points = CylinderPoints(1e-4);
  CFitResult rough;
  rough.m_size2.z = 123.0;
  ASSERT_EQ(RefineCone(in, rough), 0);
  EXPECT_EQ(rough.m_size2.z, 123.0);
  EXPECT_GT((rough.m_center - in.m_centerParam.value).Length(), 1e4);
  EXPECT_LT(testing::DistancePointToLine(Pt(10.0, 20.0, 0.0), rough.m_center, rough.m_axis), 1e-3);
}

TEST(RefineCone, PreparationFailureIsReturnedUnchangedAndLeavesTheResult) {
  CFitInput in;
  in.m_points = CylinderPoints(0.0);
  in.m_axisParam.value = Pt(0.0, 0.0, 1.0);
  CFitResult out;
  out.m_valid = 5;
  const std::int64_t live = numeric::LiveBlockCount();
  numeric::FailAllocationAfter(0);  // the centred copy
  const std::int32_t status = RefineCone(in, out);
  numeric::FailAllocationAfter(-1);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out.m_valid, 5);
  EXPECT_EQ(numeric::LiveBlockCount(), live);
}

TEST(RefineCone, MinimiserOutOfMemoryIsRemappedToOne) {
  CFitInput in;
  in.m_points = CylinderPoints(0.0);
  in.m_axisParam.value = Pt(0.0, 0.0, 1.0);
  CFitResult out;
  out.m_valid = 5;
  out.m_sigma = 42.0;
  const std::int64_t live = numeric::LiveBlockCount();
  numeric::FailAllocationAfter(2);  // centred copy and start vector succeed, the minimiser not
  const std::int32_t status = RefineCone(in, out);
  const bool pending = numeric::AllocationFailurePending();
  numeric::FailAllocationAfter(-1);
  ASSERT_FALSE(pending);
  EXPECT_EQ(status, 1);  // the minimiser's 3
  EXPECT_EQ(out.m_valid, 0);
  EXPECT_EQ(out.m_sigma, 42.0);
  EXPECT_EQ(numeric::LiveBlockCount(), live);
}

TEST(RefineCone, IterationLimitIsRemappedToThree) {
  // Twelve scattered points that no cone describes: the second run does not settle within
  // 100 evaluations.
  CFitInput in;
  in.m_points = {{-0.29569112360317396, 0.40904094634977972, 0.96948786935597586},
                 {-0.9459666148187259, 0.7048584389849577, -0.97787294091664601},
                 {0.69542898932290442, -0.56570953600660079, 0.67567173454467189},
                 {-0.96142231038580017, 0.96012459728237376, 0.5078280028770592},
                 {-0.77707704158491608, 0.23812058033446526, 0.3520406713175972},
                 {-0.88868292378865277, -0.76786030775996517, 0.55259968978405971},
                 {0.27002809527417049, 0.49085163147180411, -0.59213308692714572},
                 {0.47354274467170843, 0.017243664571501727, 0.9566881462509258},
                 {0.95815332989772584, 0.90443511885292782, 0.46561823948045866},
                 {0.54637216329752758, 0.40289546339366877, 0.54451764066113628},
                 {-0.88000153738136322, 0.51540558366189471, 0.021893373756907364},
                 {0.6022926539824105, 0.57927509346561612, 0.16857096880940858}};
  in.m_axisParam.value = Pt(-0.20288665959717089, 0.39424545978883874, -0.095128249917942664);
  in.m_size2Param.value.z = 1.4957540114777126;
  CFitResult out;
  out.m_valid = 1;
  out.m_center = Pt(1.0, 2.0, 3.0);
  EXPECT_EQ(RefineCone(in, out), 3);
  EXPECT_EQ(out.m_valid, 0);
  EXPECT_EQ(out.m_center, Pt(1.0, 2.0, 3.0));
}

}  // namespace
}  // namespace metrofit
