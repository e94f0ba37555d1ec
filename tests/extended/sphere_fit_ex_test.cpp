// Extended sphere fit: enclosing-sphere start, Levenberg-Marquardt refinement, form value.
#include "extended/sphere_fit_ex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "extended/extended_status.h"
#include "metrofit.h"
#include "numeric/enclosing_ball.h"
#include "numeric/numeric_test_util.h"
#include "support/geometry_compare.h"

namespace metrofit {
namespace {

using numeric::AllocationFailurePending;
using numeric::FailAllocationAfter;
using numeric::testing::Gauss;
using numeric::testing::NoLeakScope;
using numeric::testing::RandomUnit;
using numeric::testing::Rng;
using numeric::testing::SweepAllocationFailures;
using numeric::testing::Uniform;
using Pt = KPt3<double>;
using LD = long double;

// Points on a sphere about c of radius r within `capAngle` of the axis a (pi: whole sphere),
// uniform in area, with isotropic Gaussian noise of `noise`.
std::vector<Pt> SpherePoints(Rng& rng, int n, const Pt& c, double r, const Pt& a, double capAngle,
                             double noise) {
  Pt helper = std::fabs(a.x) < 0.6 ? Pt(1, 0, 0) : Pt(0, 1, 0);
  Pt u = a.Cross(helper);
  u.Normalize();
  const Pt v = a.Cross(u);
  std::vector<Pt> pts;
  const double zmin = std::cos(capAngle);
  for (int i = 0; i < n; ++i) {
    const double z = Uniform(rng, zmin, 1.0);
    const double phi = Uniform(rng, 0.0, 6.283185307179586);
    const double s = std::sqrt(std::max(0.0, 1.0 - z * z));
    Pt p = c + (a * z + u * (s * std::cos(phi)) + v * (s * std::sin(phi))) * r;
    if (noise > 0.0) p += Pt(Gauss(rng, noise), Gauss(rng, noise), Gauss(rng, noise));
    pts.push_back(p);
  }
  return pts;
}

// Sum of squared radial deviations in extended precision.
LD SumSq(const std::vector<Pt>& pts, const LD* q) {
  LD s = 0.0L;
  for (const Pt& p : pts) {
    const LD dx = p.x - q[0];
    const LD dy = p.y - q[1];
    const LD dz = p.z - q[2];
    const LD e = std::sqrt(dx * dx + dy * dy + dz * dz) - q[3];
    s += e * e;
  }
  return s;
}

// Offset of the vertex of the parabola through S(-h), S(0), S(+h) along parameter j: how far
// the minimum along that parameter lies from the fitted value.
double VertexOffset(const std::vector<Pt>& pts, const double* fit, int j, double h) {
  LD q[4] = {fit[0], fit[1], fit[2], fit[3]};
  const LD s0 = SumSq(pts, q);
  q[j] = fit[j] + static_cast<LD>(h);
  const LD sp = SumSq(pts, q);
  q[j] = fit[j] - static_cast<LD>(h);
  const LD sm = SumSq(pts, q);
  return static_cast<double>(-h * (sp - sm) / (2.0L * (sp - 2.0L * s0 + sm)));
}

std::vector<double> Flatten(const std::vector<Pt>& pts) {
  std::vector<double> xyz;
  for (const Pt& p : pts) {
    xyz.push_back(p.x);
    xyz.push_back(p.y);
    xyz.push_back(p.z);
  }
  return xyz;
}

CFitInput InputOf(const std::vector<Pt>& pts) {
  CFitInput in;
  in.m_points = pts;
  return in;
}

const Pt kCmmCentre(480.0, -510.0, 230.0);
constexpr double kCmmRadius = 12.5;

// ---------------------------------------------------------------------------------------------

TEST(KFitSphereEx, PointsExactlyOnASphereGiveFormZeroAndExactRadius) {
  NoLeakScope scope;
  Rng rng(501);
  Pt axis(0.3, -0.5, 0.81);
  axis.Normalize();
  for (double cap : {3.141592653589793, 0.7853981633974483}) {  // whole sphere, 90-degree cap
    const std::vector<Pt> pts = SpherePoints(rng, 400, kCmmCentre, kCmmRadius, axis, cap, 0.0);
    CFitInput in = InputOf(pts);
    CFitResult out;
    ASSERT_EQ(KFitSphereEx(in, out), 1) << cap;
    EXPECT_EQ(in.m_fitType, FIT_SPHERE);
    EXPECT_EQ(out.m_valid, 1);
    METROFIT_EXPECT_CLOSE(out.m_size1.x, kCmmRadius, 1e-11, 0.0);
    EXPECT_LT((out.m_center - kCmmCentre).Length(), 1e-9 * kCmmCentre.Length()) << cap;
    EXPECT_LT(out.m_formError, 1e-10 * kCmmRadius) << cap;
  }
}

TEST(KFitSphereEx, NoisyPointsGiveAStationaryPointOfTheSquaredDeviations) {
  NoLeakScope scope;
  Rng rng(502);
  Pt axis(-0.4, 0.2, 0.89);
  axis.Normalize();
  for (double cap : {3.141592653589793, 0.7853981633974483}) {
    const double noise = 1e-3;  // 1 micrometre in millimetres
    const std::vector<Pt> pts = SpherePoints(rng, 1000, kCmmCentre, kCmmRadius, axis, cap, noise);
    CFitInput in = InputOf(pts);
    CFitResult out;
    ASSERT_EQ(KFitSphereEx(in, out), 1) << cap;
    const double fit[4] = {out.m_center.x, out.m_center.y, out.m_center.z, out.m_size1.x};
    // The minimiser stops at steps below 1e-9 mm; its remaining distance from the minimum is
    // of that order, far below the parabola's resolution limit chosen here.
    for (int j = 0; j < 4; ++j) EXPECT_LT(std::fabs(VertexOffset(pts, fit, j, 1e-4)), 1e-8) << j;
    // The fit is also near the truth: within a few noise levels over sqrt(n).
    EXPECT_LT((out.m_center - kCmmCentre).Length(), cap > 3.0 ? 1e-3 : 3e-3);
    EXPECT_NEAR(out.m_size1.x, kCmmRadius, cap > 3.0 ? 1e-3 : 3e-3);
    // The form value is the spread of the deviations of the fitted sphere.
    double lo = 0.0;
    double hi = 0.0;
    for (const Pt& p : pts) {
      const double d = (p - out.m_center).Length() - out.m_size1.x;
      lo = std::min(lo, d);
      hi = std::max(hi, d);
    }
    EXPECT_NEAR(out.m_formError, hi - lo, 1e-12);
    EXPECT_GT(out.m_formError, 4.0 * noise);
  }
}

TEST(KFitSphereEx, AllDeviationsOfOneSignAreMeasuredFromZero) {
  // The spread starts both extremes at 0: deviations (0.2, 0.5) give 0.5, not 0.3; deviations
  // (-0.4, -0.1) give 0.4.
  const double positive[2] = {0.2, 0.5};
  const double negative[2] = {-0.4, -0.1};
  const double mixed[3] = {-0.25, 0.1, 0.5};
  EXPECT_EQ(SpreadFromZero(positive, 2), 0.5);
  EXPECT_EQ(SpreadFromZero(negative, 2), 0.4);
  EXPECT_EQ(SpreadFromZero(mixed, 3), 0.75);
  EXPECT_EQ(SpreadFromZero(mixed, 0), 0.0);

  // The fit's form value is this spread over the deviations it returns.
  NoLeakScope scope;
  Rng rng(503);
  const std::vector<Pt> pts =
      SpherePoints(rng, 50, Pt(1, 2, 3), 4.0, Pt(0, 0, 1), 3.141592653589793, 0.01);
  std::vector<double> xyz = Flatten(pts);
  std::vector<double> dev(3 * pts.size(), 0.0);
  double record[kSphereRecordSize] = {0, 0, 0, 0, 0};
  ASSERT_EQ(static_cast<int>(FitSphereEx(record, 50, xyz.data(), dev.data())), 0);
  EXPECT_EQ(record[4], SpreadFromZero(dev.data(), 50));
  for (int i = 0; i < 50; ++i) {
    const double d = (pts[i] - Pt(record[0], record[1], record[2])).Length() - 0.5 * record[3];
    EXPECT_NEAR(dev[i], d, 1e-13);
  }
  for (std::size_t i = 50; i < dev.size(); ++i) EXPECT_EQ(dev[i], 0.0);  // only n entries written
}

TEST(KFitSphereEx, OnePointGivesRadiusZeroFromTheEnclosingStart) {
  NoLeakScope scope;
  const double p[3] = {500.25, -3.5, 12.0};
  double record[kSphereRecordSize] = {0, 0, 0, 0, 0};
  double dev[3] = {7, 7, 7};
  ASSERT_EQ(static_cast<int>(FitSphereEx(record, 1, p, dev)), 0);
  EXPECT_EQ(record[0], 500.25);
  EXPECT_EQ(record[1], -3.5);
  EXPECT_EQ(record[2], 12.0);
  EXPECT_EQ(record[3], 0.0);
  EXPECT_EQ(record[4], 0.0);
  EXPECT_EQ(dev[0], 0.0);

  CFitInput in = InputOf({Pt(500.25, -3.5, 12.0)});
  CFitResult out;
  EXPECT_EQ(KFitSphereEx(in, out), 1);
  EXPECT_EQ(out.m_center, Pt(500.25, -3.5, 12.0));
  EXPECT_EQ(out.m_size1.x, 0.0);
  EXPECT_EQ(out.m_formError, 0.0);
}

TEST(KFitSphereEx, NoPointsFailTheEnclosingSphereWithStatus162) {
  NoLeakScope scope;
  double record[kSphereRecordSize] = {0, 0, 0, 0, 0};
  double dev[1] = {0};
  EXPECT_EQ(FitSphereEx(record, 0, dev, dev), ExtendedStatus::kEnclosingSphereFailed);

  CFitInput in;
  CFitResult out;
  out.m_valid = 1;
  out.m_center = Pt(9, 9, 9);
  out.m_message = "stale";
  EXPECT_EQ(KFitSphereEx(in, out), 0);
  EXPECT_EQ(out.m_valid, 0);
  EXPECT_EQ(out.m_center, Pt(0, 0, 0));
  EXPECT_EQ(out.m_size1.x, 0.0);
  EXPECT_EQ(out.m_formError, 0.0);
  EXPECT_TRUE(out.m_message.empty());
}

TEST(KFitSphereEx, MinimiserLimitLeavesTheEnclosingSphereAndFails) {
  // A 10 x 10 patch of a sphere of radius 1e6 is almost flat: starting from the enclosing
  // sphere (radius about 7) the minimiser would have to grow the radius by five orders of
  // magnitude and reaches its limit of 100 trials first. (A sphere of radius 1e4 is still found.)
  // The record keeps the enclosing sphere, the enclosing radius in the diameter slot, so the
  // result shows half that radius with m_valid = 0.
  NoLeakScope scope;
  Rng rng(504);
  const double big = 1e6;
  std::vector<Pt> pts;
  for (int i = 0; i < 60; ++i) {
    const double a = Uniform(rng, -5, 5);
    const double b = Uniform(rng, -5, 5);
    pts.emplace_back(a, b, big - std::sqrt(big * big - a * a - b * b));
  }
  std::vector<double> xyz = Flatten(pts);
  numeric::UniquePointSet set(numeric::CreatePointSet(60));
  std::copy(xyz.begin(), xyz.end(), set->xyz);
  numeric::UniqueVector ball(numeric::CreateVector(4));
  ASSERT_EQ(static_cast<int>(
                numeric::SmallestEnclosingBall(set.get(), ball.get(), 100, 1e-9, false, nullptr)),
            0);

  std::vector<double> dev(180, 0.0);
  double record[kSphereRecordSize] = {0, 0, 0, 0, 0};
  ASSERT_EQ(FitSphereEx(record, 60, xyz.data(), dev.data()), ExtendedStatus::kNumericFailure);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(record[k], (*ball)[k]) << k;

  CFitInput in = InputOf(pts);
  CFitResult out;
  out.m_axis = Pt(0.6, 0.8, 0.0);
  EXPECT_EQ(KFitSphereEx(in, out), 0);
  EXPECT_EQ(out.m_center, Pt((*ball)[0], (*ball)[1], (*ball)[2]));
  EXPECT_EQ(out.m_size1.x, 0.5 * (*ball)[3]);
  EXPECT_EQ(out.m_axis, Pt(0.6, 0.8, 0.0));  // the fit writes no axis
}

TEST(KFitSphereEx, GradientCallbackMakesANegativeRadiusPositive) {
  NoLeakScope scope;
  Rng rng(505);
  const std::vector<Pt> pts = SpherePoints(rng, 20, Pt(0, 0, 0), 2.0, Pt(0, 0, 1), 3.14159, 0.0);
  std::vector<double> xyz = Flatten(pts);
  numeric::PointSet set{20, xyz.data()};
  numeric::UniqueVector x(numeric::CreateVector(4));
  numeric::UniqueVector g(numeric::CreateVector(4));
  numeric::UniqueMatrix a(numeric::CreateMatrix(4, 4, numeric::kPackedSymmetric));
  (*x)[0] = 0.1;
  (*x)[3] = -1.5;
  numeric::SphereGradient(&set, *x, *g, *a);
  EXPECT_EQ((*x)[3], 1.5);
  // The gradient is the one at r = +1.5: sum of r_i times -1 in its radius component.
  double sum = 0.0;
  for (int i = 0; i < 20; ++i) sum += numeric::SphereResidual(set, i, *x);
  EXPECT_NEAR((*g)[3], -sum, 1e-12);
  EXPECT_EQ((*a)(3, 3), 20.0);
}

TEST(KFitSphereEx, ResidualRowAtTheCentreIsRadiusOnly) {
  double p[3] = {1.0, 2.0, 3.0};
  numeric::PointSet set{1, p};
  double xs[4] = {1.0, 2.0, 3.0, 0.5};
  numeric::NVector x = numeric::VectorView(xs, 4);
  double rs[4] = {9, 9, 9, 9};
  numeric::NVector row = numeric::VectorView(rs, 4);
  double r = 0.0;
  numeric::SphereResidualRow(set, 0, x, row, r);
  EXPECT_EQ(rs[0], 0.0);
  EXPECT_EQ(rs[1], 0.0);
  EXPECT_EQ(rs[2], 0.0);
  EXPECT_EQ(rs[3], -1.0);
  EXPECT_EQ(r, -0.5);
}

TEST(KFitSphereEx, AllocationFailuresGiveFixedStatusesAndLeakNothing) {
  NoLeakScope scope;
  Rng rng(506);
  const std::vector<Pt> pts = SpherePoints(rng, 30, Pt(5, 5, 5), 3.0, Pt(0, 0, 1), 3.14159, 1e-3);
  std::vector<double> xyz = Flatten(pts);
  std::vector<std::int32_t> statuses;
  SweepAllocationFailures([&](int k) {
    std::vector<double> dev(90, 0.0);
    double record[kSphereRecordSize] = {0, 0, 0, 0, 0};
    FailAllocationAfter(k);
    statuses.push_back(static_cast<std::int32_t>(FitSphereEx(record, 30, xyz.data(), dev.data())));
  });
  // First copy, parameter vector, the enclosing ball's Gram matrix and right-hand side, second
  // copy, the minimiser's five work objects. A failed normal-equation block then gives a zero
  // step that ties, and a failed condition estimate only changes the accuracy figure: both
  // still end in status 0, as the minimiser defines them.
  const std::vector<std::int32_t> want = {1, 131, 162, 162, 1, 131, 131, 131, 131, 131, 0, 0, 0};
  ASSERT_GE(statuses.size(), want.size());
  for (std::size_t k = 0; k < want.size(); ++k) EXPECT_EQ(statuses[k], want[k]) << k;
  EXPECT_EQ(statuses.back(), 0);

  int failures = 0;
  SweepAllocationFailures([&](int k) {
    CFitInput in = InputOf(pts);
    CFitResult out;
    FailAllocationAfter(k);
    const std::int32_t valid = KFitSphereEx(in, out);
    if (k < 11) {  // the deviation array, then the fit's own objects up to the minimiser
      EXPECT_EQ(valid, 0) << k;
      ++failures;
    }
  });
  EXPECT_EQ(failures, 11);
}

// KFitSphereEx hands the fit its points as KPt3 (no flat copy): the same sphere, form and
// deviations as from the flat array, bit for bit, on a cap far from the origin.
TEST(FitSphereEx, PointsAsKPt3GiveTheFlatArraysBits) {
  Rng rng(507);
  for (int trial = 0; trial < 6; ++trial) {
    const int n = 50 + 900 * trial;
    const Pt c(Uniform(rng, -500, 500), Uniform(rng, -500, 500), Uniform(rng, -500, 500));
    const std::vector<Pt> pts =
        SpherePoints(rng, n, c, 12.5, Pt(0.6, 0.0, 0.8), 0.5 + 0.4 * trial, 2e-3);
    const std::vector<double> xyz = Flatten(pts);
    std::vector<double> flatDev(static_cast<std::size_t>(n)), ptDev(static_cast<std::size_t>(n));
    double flat[kSphereRecordSize] = {0, 0, 0, 0, 0};
    double asPoints[kSphereRecordSize] = {0, 0, 0, 0, 0};
    ASSERT_EQ(FitSphereEx(flat, n, xyz.data(), flatDev.data()), ExtendedStatus::kOk);
    ASSERT_EQ(FitSphereEx(asPoints, n, pts.data(), ptDev.data()), ExtendedStatus::kOk);
    EXPECT_EQ(std::memcmp(flat, asPoints, sizeof flat), 0) << trial;
    EXPECT_EQ(std::memcmp(flatDev.data(), ptDev.data(), flatDev.size() * sizeof(double)), 0);
  }
}

}  // namespace
}  // namespace metrofit
