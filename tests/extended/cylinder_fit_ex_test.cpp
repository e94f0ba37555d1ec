// Extended cylinder fit: recovery of synthetic cylinders at CMM scale, the edge cases of the
// refit, allocation failures, and the entry point with and without a least-squares start.
#include "extended/cylinder_fit_ex.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ex_fit_test_util.h"
#include "extended/cylinder_candidate_search.h"
#include "extended/cylinder_model.h"
#include "extended/extended_status.h"
#include "metrofit.h"
#include "numeric/centred_copy.h"
#include "numeric/nvector.h"

namespace metrofit {
namespace {

using testing::LineAngle;
using testing::LineDistance;
using testing::Pt;
using testing::Rng;

struct CylinderFit {
  std::int32_t status = -1;
  Pt point;
  Pt axis;
  double radius = 0.0;
  double form = 0.0;
  std::vector<double> deviations;
};

CylinderFit RunFitCylinderEx(const std::vector<Pt>& pts, const Pt& start,
                             const CylinderFitLimits& limits = {}) {
  CylinderFit f;
  double record[kCylinderRecordSize] = {0, 0, 0, start.x, start.y, start.z, 0, 0};
  f.deviations.assign(pts.size(), 0.0);
  f.status = static_cast<std::int32_t>(FitCylinderEx(record, static_cast<std::int32_t>(pts.size()),
                                                     pts.data(), f.deviations.data(), limits));
  f.point = Pt(record[0], record[1], record[2]);
  f.axis = Pt(record[3], record[4], record[5]);
  f.radius = 0.5 * record[6];
  f.form = record[7];
  return f;
}

Pt Centroid(const std::vector<Pt>& pts) {
  Pt g;
  for (const Pt& p : pts) g += p;
  return g * (1.0 / static_cast<double>(pts.size()));
}

bool BitEqual(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool SameResult(const CFitResult& a, const CFitResult& b) {
  const double da[] = {a.m_center.x, a.m_center.y, a.m_center.z, a.m_axis.x,   a.m_axis.y,
                       a.m_axis.z,   a.m_size1.x,  a.m_size1.y,  a.m_size1.z,  a.m_formError,
                       a.m_sigma,    a.m_rms,      a.m_angles.x, a.m_objective};
  const double db[] = {b.m_center.x, b.m_center.y, b.m_center.z, b.m_axis.x,   b.m_axis.y,
                       b.m_axis.z,   b.m_size1.x,  b.m_size1.y,  b.m_size1.z,  b.m_formError,
                       b.m_sigma,    b.m_rms,      b.m_angles.x, b.m_objective};
  for (std::size_t i = 0; i < sizeof da / sizeof da[0]; ++i)
    if (!BitEqual(da[i], db[i])) return false;
  return a.m_valid == b.m_valid && a.m_message == b.m_message &&
         a.m_deviations.size() == b.m_deviations.size();
}

// ---------------------------------------------------------------------------------------------
// FitCylinderEx
// ---------------------------------------------------------------------------------------------

TEST(CylinderFitEx, ExactCylindersAtCmmScaleAreRecovered) {
  Rng rng(41);
  const double arcs[] = {360.0, 180.0, 120.0};
  for (int trial = 0; trial < 15; ++trial) {
    const Pt c = testing::CmmCentre(rng);
    const Pt a = testing::RandomDirection(rng);
    const double r = testing::Uniform(rng, 5.0, 60.0);
    const double arc = arcs[trial % 3] * testing::kPi / 180.0;
    const std::vector<Pt> pts = testing::CylinderPoints(
        rng, 60 + 10 * trial, c, a, r, testing::Uniform(rng, 10.0, 80.0), arc, 0.0);
    // A start about 6 degrees off, as a least-squares axis of poor data might be.
    const Pt start = testing::Unit(a + testing::RandomDirection(rng) * 0.1);
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    const CylinderFit f = RunFitCylinderEx(pts, start);
    ASSERT_EQ(f.status, 0);
    EXPECT_LT(LineAngle(f.axis, a), 1e-11);
    EXPECT_LT(LineDistance(c, f.point, f.axis), 1e-9);
    EXPECT_NEAR(f.radius, r, 1e-9);
    EXPECT_LT(f.form, 1e-9);
  }
}

TEST(CylinderFitEx, AxisOfAnyLengthAndEitherSignGivesTheSameCylinder) {
  Rng rng(42);
  const Pt c(510.0, -480.0, 215.0);
  const Pt a = testing::Unit(Pt(0.4, -0.3, 0.85));
  const std::vector<Pt> pts = testing::CylinderPoints(rng, 120, c, a, 16.0, 50.0, 4.5, 1e-3);
  const Pt start = testing::Unit(a + Pt(0.05, 0.05, -0.02));
  const CylinderFit ref = RunFitCylinderEx(pts, start);
  ASSERT_EQ(ref.status, 0);
  for (const double scale : {-1.0, 1e-3, -250.0, 7.5}) {
    SCOPED_TRACE(::testing::Message() << "scale " << scale);
    const CylinderFit f = RunFitCylinderEx(pts, start * scale);
    ASSERT_EQ(f.status, 0);
    EXPECT_NEAR(f.axis.Length(), 1.0, 1e-15);
    EXPECT_LT(LineAngle(f.axis, ref.axis), 1e-12);
    EXPECT_LT((f.point - ref.point).Length(), 1e-10);  // the same foot point
    EXPECT_NEAR(f.radius, ref.radius, 1e-11);
    EXPECT_NEAR(f.form, ref.form, 1e-11);
    EXPECT_GT(f.axis.Dot(start * scale), 0.0);  // the sign of the start is kept
  }
}

TEST(CylinderFitEx, RefitWhoseMinimiserDoesNotConvergeTwiceKeepsTheFirstSolutionAndIsValid) {
  Rng rng(43);
  const Pt c(-450.0, 530.0, 120.0);
  const Pt a = testing::Unit(Pt(-0.6, 0.1, 0.79));
  const std::vector<Pt> pts = testing::CylinderPoints(rng, 80, c, a, 9.0, 25.0, 3.0, 2e-3);
  const Pt start = testing::Unit(a + Pt(0.2, -0.1, 0.1));
  CylinderFitLimits limits;
  limits.maxIterations = 2;  // one trial per run: neither run can pass the step test

  const CylinderFit f = RunFitCylinderEx(pts, start, limits);
  EXPECT_EQ(f.status, 0);

  // The first run's solution, as the minimiser alone gives it on the centred points.
  double record[kCylinderRecordSize] = {0, 0, 0, start.x, start.y, start.z, 0, 0};
  numeric::UniquePointSet centred;
  ASSERT_EQ(static_cast<int>(numeric::CentredCopy(static_cast<std::int32_t>(pts.size()), pts.data(),
                                                  record, true, centred)),
            0);
  numeric::UniqueVector x(numeric::CreateVector(numeric::kCylinderParams));
  for (int k = 0; k < 3; ++k) (*x)[3 + k] = record[3 + k];
  ASSERT_EQ(static_cast<int>(numeric::MinimiseCylinder(centred.get(), x.get(), 2, 1e-9)), 0);
  EXPECT_TRUE(BitEqual(f.point.x, record[0] + (*x)[0]));
  EXPECT_TRUE(BitEqual(f.point.y, record[1] + (*x)[1]));
  EXPECT_TRUE(BitEqual(f.point.z, record[2] + (*x)[2]));
  EXPECT_TRUE(BitEqual(f.axis.x, (*x)[3]));
  EXPECT_TRUE(BitEqual(f.radius, (*x)[6]));
  // Not the converged cylinder: the refit really stopped early.
  EXPECT_GT(LineAngle(f.axis, a), 1e-6);
}

TEST(CylinderFitEx, FormIsThePeakToValleyOfTheDeviationsMeasuredFromZero) {
  Rng rng(44);
  const std::vector<Pt> pts = testing::CylinderPoints(
      rng, 100, Pt(300, 300, 300), testing::Unit(Pt(1, 1, 0)), 7.0, 20.0, 6.2, 5e-3);
  const CylinderFit f = RunFitCylinderEx(pts, testing::Unit(Pt(1, 1, 0.1)));
  ASSERT_EQ(f.status, 0);
  double lo = 0.0;
  double hi = 0.0;
  double sum = 0.0;
  for (std::size_t i = 0; i < pts.size(); ++i) {
    const double d = LineDistance(pts[i], f.point, f.axis) - f.radius;
    EXPECT_NEAR(f.deviations[i], d, 1e-11);
    lo = std::fmin(lo, f.deviations[i]);
    hi = std::fmax(hi, f.deviations[i]);
    sum += f.deviations[i];
  }
  EXPECT_EQ(f.form, hi - lo);
  EXPECT_LT(std::fabs(sum / pts.size()), 1e-3);  // least squares: deviations centred on 0
}

TEST(CylinderFitEx, EveryAllocationFailureIsReportedOrEndsTheRefitEarly) {
  Rng rng(45);
  const Pt a = testing::Unit(Pt(0.2, 0.9, 0.3));
  const std::vector<Pt> pts =
      testing::CylinderPoints(rng, 40, Pt(400, 0, -300), a, 11.0, 30.0, 6.0, 0.0);
  int reported = 0;
  int succeeded = 0;
  const int runs = numeric::testing::SweepAllocationFailures([&](int k) {
    numeric::testing::NoLeakScope noLeak;
    double record[kCylinderRecordSize] = {0, 0, 0, a.x + 0.05, a.y, a.z, 0, 0};
    std::vector<double> dev(pts.size());
    numeric::FailAllocationAfter(k);
    const ExtendedStatus s =
        FitCylinderEx(record, static_cast<std::int32_t>(pts.size()), pts.data(), dev.data());
    numeric::FailAllocationAfter(-1);
    // The copy (kResourceFailure, 1), the parameters or the minimiser's work space
    // (kAllocationFailure, 131); a failed normal-equation scratch block gives a zero step and an
    // early stop, reported as success like any other stop of the minimiser.
    EXPECT_TRUE(s == ExtendedStatus::kOk || s == ExtendedStatus::kResourceFailure ||
                s == ExtendedStatus::kAllocationFailure)
        << "k " << k << " status " << static_cast<int>(s);
    if (s != ExtendedStatus::kOk) ++reported;
    if (s == ExtendedStatus::kOk) {
      ++succeeded;
      EXPECT_TRUE(std::isfinite(record[6])) << "k " << k;
    }
  });
  EXPECT_GT(runs, 3);
  EXPECT_GT(reported, 0);
  EXPECT_GT(succeeded, 0);
}

// ---------------------------------------------------------------------------------------------
// KFitCylinderEx
// ---------------------------------------------------------------------------------------------

TEST(KFitCylinderEx, InvalidLeastSquaresCylinderGivesExactlyTheCandidateSearchResult) {
  // Four points: the least-squares cylinder fit declines (fewer than 5 points) and leaves the
  // result invalid, so the entry point hands over to the candidate search.
  const std::vector<Pt> pts = {Pt(510, 20, 30), Pt(500, 30, 35), Pt(490, 20, 40),
                               Pt(500, 10.5, 45)};
  CFitInput in1;
  in1.m_points = pts;
  CFitResult out1;
  out1.m_message = "earlier";
  const std::int32_t ret1 = KFitCylinderEx(in1, out1);

  CFitInput in2;
  in2.m_points = pts;
  CFitResult out2;
  out2.m_message = "earlier";
  const std::int32_t ret2 = CylinderCandidateSearch(in2, out2);

  EXPECT_EQ(ret1, ret2);
  EXPECT_EQ(ret1, out1.m_valid);
  EXPECT_TRUE(SameResult(out1, out2));
  EXPECT_EQ(in1.m_fitType, FIT_CYLINDER);
}

TEST(KFitCylinderEx, RefinedResultGivesWayOnlyToASmallerFormError) {
  // The entry point replayed step by step: least-squares cylinder, refit from its axis,
  // candidate search on a copy of the refined result; the copy is taken only when its form
  // error is the smaller.
  Rng rng(48);
  int taken = 0;
  int kept = 0;
  for (int trial = 0; trial < 4; ++trial) {
    const Pt c = testing::CmmCentre(rng);
    const Pt a = testing::RandomDirection(rng);
    const std::vector<Pt> pts = testing::CylinderPoints(rng, 60, c, a, 10.0 + 5 * trial, 30.0,
                                                        (trial < 2 ? 6.28 : 2.5), 2e-3);
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    CFitInput in;
    in.m_points = pts;
    in.m_refPoint = Centroid(pts);
    CFitResult out;
    KFitCylinderEx(in, out);

    CFitInput replay;
    replay.m_points = pts;
    replay.m_refPoint = Centroid(pts);
    CFitResult refined;
    ASSERT_EQ(KFitCylinder(replay, refined), 1);
    const CylinderFit f = RunFitCylinderEx(pts, refined.m_axis);
    refined.m_center = f.point;
    refined.m_axis = f.axis;
    refined.m_size1.x = f.radius;
    refined.m_formError = f.form;
    refined.m_valid = f.status == 0 ? 1 : 0;
    refined.m_message.clear();
    CFitResult competitor;
    competitor = refined;
    competitor.m_sigma = 1e38;
    CylinderCandidateSearch(replay, competitor);
    const bool take = competitor.m_valid != 0 && refined.m_valid != 0 &&
                      refined.m_formError > competitor.m_formError;
    EXPECT_TRUE(SameResult(out, take ? competitor : refined));
    ++(take ? taken : kept);
  }
  std::printf("[info] refined result replaced by the candidate search in %d of %d fits\n", taken,
              taken + kept);
}

// The candidate search scores its candidates in m_sigma, which starts at 1e38 and which the
// refits never write. When its result replaces the refined one, that sentinel is what the caller
// reads as m_sigma; when the refined result stays, m_sigma is the least-squares cylinder's.
TEST(KFitCylinderEx, SigmaIsTheSentinelWhenTheCandidateSearchWins) {
  Rng rng(49);
  int sentinel = 0;
  for (int trial = 0; trial < 6; ++trial) {
    const Pt c = testing::CmmCentre(rng);
    const Pt a = testing::RandomDirection(rng);
    const std::vector<Pt> pts =
        testing::CylinderPoints(rng, 60, c, a, 12.0 + 3 * trial, 30.0, 6.28, 1.5e-3);
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    CFitInput lsqIn;
    lsqIn.m_points = pts;
    lsqIn.m_refPoint = Centroid(pts);
    CFitResult lsq;
    ASSERT_EQ(KFitCylinder(lsqIn, lsq), 1);
    ASSERT_LT(lsq.m_sigma, 1.0);

    CFitInput in;
    in.m_points = pts;
    in.m_refPoint = Centroid(pts);
    CFitResult out;
    ASSERT_EQ(KFitCylinderEx(in, out), 1);
    if (out.m_sigma == 1e38) {
      ++sentinel;
    } else {
      EXPECT_EQ(out.m_sigma, lsq.m_sigma);
    }
  }
  std::printf("[info] m_sigma 1e38 in %d of 6 fits\n", sentinel);
  EXPECT_GT(sentinel, 0);
}

TEST(KFitCylinderEx, NoPointsFailWithoutHarm) {
  CFitInput in;
  CFitResult out;
  EXPECT_EQ(KFitCylinderEx(in, out), 0);
  EXPECT_EQ(out.m_valid, 0);
}

TEST(KFitCylinderEx, ExactAndNoisyCylindersAtCmmScaleAreRecovered) {
  Rng rng(46);
  for (int trial = 0; trial < 6; ++trial) {
    const double noise = trial % 2 == 0 ? 0.0 : 1e-3;
    const Pt c = testing::CmmCentre(rng);
    const Pt a = testing::RandomDirection(rng);
    const double r = testing::Uniform(rng, 5.0, 40.0);
    const double arc = (trial < 4 ? 360.0 : 150.0) * testing::kPi / 180.0;
    CFitInput in;
    in.m_points = testing::CylinderPoints(rng, 80, c, a, r, 3.0 * r, arc, noise);
    // Half of the trials with the reference point at the part, half with the default one at
    // the origin, 500 mm away.
    if (trial < 3) in.m_refPoint = Centroid(in.m_points);
    CFitResult out;
    SCOPED_TRACE(::testing::Message() << "trial " << trial << " noise " << noise);
    ASSERT_EQ(KFitCylinderEx(in, out), 1);
    EXPECT_EQ(out.m_valid, 1);
    EXPECT_TRUE(out.m_message.empty());
    const double tol = noise > 0.0 ? 10 * noise : 1e-9;
    EXPECT_LT(LineAngle(out.m_axis, a), tol / r);
    EXPECT_LT(LineDistance(c, out.m_center, out.m_axis), tol);
    EXPECT_NEAR(out.m_size1.x, r, tol);
    if (noise > 0.0) {
      EXPECT_GT(out.m_formError, 2 * noise);
      EXPECT_LT(out.m_formError, 12 * noise);
    } else {
      EXPECT_LT(out.m_formError, 1e-9);
    }
  }
}

TEST(KFitCylinderEx, AxisPointIsTheFootFromTheCentroidWhateverTheReferencePoint) {
  // The refit measures its axis point from the centroid of the points and replaces the point
  // the least-squares cylinder reported (the foot from the caller's reference point); only the
  // least-squares axis is carried over, as the refit's start.
  Rng rng(49);
  for (int trial = 0; trial < 3; ++trial) {
    const Pt c = testing::CmmCentre(rng);
    const Pt a = testing::RandomDirection(rng);
    const std::vector<Pt> pts = testing::CylinderPoints(rng, 80, c, a, 12.0, 36.0, 6.28, 1e-3);
    const Pt g = Centroid(pts);
    for (const Pt ref : {Pt(), g, Pt(-250.0, 1200.0, 40.0)}) {
      SCOPED_TRACE(::testing::Message()
                   << "trial " << trial << " ref " << ref.x << " " << ref.y << " " << ref.z);
      CFitInput in;
      in.m_points = pts;
      in.m_refPoint = ref;
      CFitResult out;
      ASSERT_EQ(KFitCylinderEx(in, out), 1);
      EXPECT_LT(std::fabs((g - out.m_center).Dot(out.m_axis)), 1e-9);
      EXPECT_LT(LineDistance(c, out.m_center, out.m_axis), 0.01);
    }
  }
}

TEST(KFitCylinderEx, NoisyCylindersAgreeWithTheLeastSquaresCylinder) {
  Rng rng(47);
  const double noise = 1e-3;
  for (int trial = 0; trial < 4; ++trial) {
    const Pt c = testing::CmmCentre(rng);
    const Pt a = testing::RandomDirection(rng);
    const double r = testing::Uniform(rng, 8.0, 40.0);
    const std::vector<Pt> pts = testing::CylinderPoints(
        rng, 100, c, a, r, 2.0 * r, (trial < 2 ? 360.0 : 180.0) * testing::kPi / 180.0, noise);
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    CFitInput lsIn;
    lsIn.m_points = pts;
    CFitResult ls;
    ASSERT_EQ(KFitCylinder(lsIn, ls), 1) << "the least-squares cylinder failed";
    CFitInput exIn;
    exIn.m_points = pts;
    CFitResult ex;
    ASSERT_EQ(KFitCylinderEx(exIn, ex), 1);
    // Both minimise the same orthogonal distances: they agree far below the noise (seen: 1e-7
    // of it; the least-squares engine's own stopping rule sets the scale).
    EXPECT_LT(LineAngle(ex.m_axis, ls.m_axis), 0.01 * noise / r);
    EXPECT_LT(LineDistance(ls.m_center, ex.m_center, ex.m_axis), 0.01 * noise);
    EXPECT_NEAR(ex.m_size1.x, ls.m_size1.x, 0.01 * noise);
  }
}

}  // namespace
}  // namespace metrofit
