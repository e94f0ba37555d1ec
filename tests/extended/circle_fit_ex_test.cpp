// Extended circle fit: entry point fallbacks, the form value, the plane normal, recovery of
// synthetic circles at CMM scale, agreement with the least-squares circle, failure paths,
// temporary files and concurrent use.
#include "extended/circle_fit_ex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "ex_fit_test_util.h"
#include "extended/point_store.h"
#include "metrofit.h"
#include "numeric/compensated.h"
#include "numeric/nvector.h"

namespace metrofit {
namespace {

using numeric::CreatePointSet;
using numeric::PointSet;
using numeric::UniquePointSet;
using testing::LineAngle;
using testing::PrivateTempDir;
using testing::Pt;
using testing::Rng;

UniquePointSet ToSet(const std::vector<Pt>& pts) {
  UniquePointSet s(CreatePointSet(static_cast<std::int32_t>(pts.size())));
  for (std::size_t i = 0; i < pts.size(); ++i) {
    s->xyz[3 * i] = pts[i].x;
    s->xyz[3 * i + 1] = pts[i].y;
    s->xyz[3 * i + 2] = pts[i].z;
  }
  return s;
}

struct CircleFit {
  std::int32_t status = -1;
  Pt centre;
  Pt normal;
  double radius = 0.0;
  double form = 0.0;
  std::vector<double> deviations;
};

CircleFit RunFitCircleEx(const std::vector<Pt>& pts, const Pt& startNormal) {
  CircleFit f;
  double record[kCircleRecordSize] = {0, 0, 0, startNormal.x, startNormal.y, startNormal.z, 0, 0};
  f.deviations.assign(3 * pts.size(), 0.0);
  f.status = static_cast<std::int32_t>(
      FitCircleEx(record, static_cast<std::int32_t>(pts.size()), pts.data(), f.deviations.data()));
  f.centre = Pt(record[0], record[1], record[2]);
  f.normal = Pt(record[3], record[4], record[5]);
  f.radius = 0.5 * record[6];
  f.form = record[7];
  return f;
}

bool BitEqual(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// ---------------------------------------------------------------------------------------------
// Entry point with too few points.
// ---------------------------------------------------------------------------------------------

TEST(KFitCircleEx, OneOrTwoPointsTakeTheFallbackWithoutAFit) {
  for (int n = 1; n <= 2; ++n) {
    CFitInput in;
    in.m_points = {Pt(1, 0, 0), Pt(0, 2, 0)};
    in.m_points.resize(n);
    in.m_refPoint = Pt(0, 0, 0);
    CFitResult out;
    out.m_axis = Pt(0.6, 0.8, 0);
    out.m_formError = 0.25;
    EXPECT_EQ(KFitCircleEx(in, out), 1);
    EXPECT_EQ(in.m_fitType, FIT_CIRCLE);
    EXPECT_EQ(out.m_center, Pt(0, 0, 0));
    EXPECT_EQ(out.m_size1.x, n == 1 ? 1.0 : 2.0);
    EXPECT_EQ(out.m_axis, Pt(0, 0, 1));
    EXPECT_EQ(out.m_valid, 0);         // not touched by the fallback
    EXPECT_EQ(out.m_formError, 0.25);  // no fit ran

    // With the reference direction in use, it becomes the axis.
    in.m_useReference = true;
    in.m_refDirection = Pt(1, 0, 0);
    CFitResult ref;
    EXPECT_EQ(KFitCircleEx(in, ref), 1);
    EXPECT_EQ(ref.m_axis, Pt(1, 0, 0));
  }
}

TEST(KFitCircleEx, OneOrTwoPointsWithValidSetOnEntryReturnOneWithoutTheFallback) {
  CFitInput in;
  in.m_points = {Pt(1, 0, 0), Pt(0, 2, 0)};
  in.m_refPoint = Pt(0, 0, 0);
  CFitResult out;
  out.m_valid = 1;
  out.m_center = Pt(7, 8, 9);
  out.m_size1.x = 3.5;
  out.m_axis = Pt(0, 1, 0);
  EXPECT_EQ(KFitCircleEx(in, out), 1);
  EXPECT_EQ(out.m_center, Pt(7, 8, 9));
  EXPECT_EQ(out.m_size1.x, 3.5);
  EXPECT_EQ(out.m_axis, Pt(0, 1, 0));
}

TEST(KFitCircleEx, NoPointsReturnZeroWithTheReferencePointAndRadiusZero) {
  CFitInput in;
  in.m_refPoint = Pt(4, -5, 6);
  CFitResult out;
  out.m_axis = Pt(0, 1, 0);
  out.m_size1.x = 9.0;
  EXPECT_EQ(KFitCircleEx(in, out), 0);
  EXPECT_EQ(out.m_center, Pt(4, -5, 6));
  EXPECT_EQ(out.m_size1.x, 0.0);
  EXPECT_EQ(out.m_axis, Pt(0, 1, 0));  // left as it was
  EXPECT_EQ(out.m_valid, 0);
}

TEST(KFitCircleEx, FailedFitOfThreeOrMorePointsReturnsZeroWithTheFallbackCentre) {
  Rng rng(8);
  CFitInput in;
  in.m_points = testing::ArcPoints(rng, 12, Pt(500, 10, -20), Pt(0, 0, 1), 10.0, 1.0, 0.0);
  in.m_refPoint = Pt(500, 10, -20);
  CFitResult out;
  numeric::FailAllocationAfter(0);  // the deviation array: no extended fit can run
  const std::int32_t ret = KFitCircleEx(in, out);
  const bool armed = numeric::AllocationFailurePending();
  numeric::FailAllocationAfter(-1);
  ASSERT_FALSE(armed) << "the fit made no allocation";
  EXPECT_EQ(ret, 0);
  EXPECT_EQ(out.m_valid, 0);
  EXPECT_EQ(out.m_center, in.m_refPoint);
  EXPECT_NEAR(out.m_size1.x, 10.0, 1e-12);
  EXPECT_LT(LineAngle(out.m_axis, Pt(0, 0, 1)), 1e-9);  // the least-squares axis stays
}

// ---------------------------------------------------------------------------------------------
// Form value and normal.
// ---------------------------------------------------------------------------------------------

// The torus starts take only a circle's centre, normal and size: FitCircleExForStart frees
// the least-squares start's deviation list early and must leave everything else, and the
// input, as FitCircleExInternal does, bit for bit.
TEST(KFitCircleEx, FitForAStartLeavesAllButTheListAsTheFullFit) {
  Rng rng(91);
  std::normal_distribution<double> noise(0.0, 0.002);
  for (int trial = 0; trial < 4; ++trial) {
    std::vector<Pt> pts;
    const Pt c(250.0 - 100 * trial, 400.0, -120.0 + 60 * trial);
    const Pt u = testing::Unit(Pt(0.2, -0.4 + 0.3 * trial, 0.9));
    const Pt e1 = testing::Unit(u.Cross(Pt(1, 0, 0)));
    const Pt e2 = u.Cross(e1);
    for (int i = 0; i < 100 + 400 * trial; ++i) {
      const double phi = 0.001 * i * (1 + trial);
      pts.push_back(c + e1 * (15.0 * std::cos(phi)) + e2 * (15.0 * std::sin(phi)) +
                    Pt(noise(rng), noise(rng), noise(rng)));
    }
    CFitInput full, lean;
    full.m_points = lean.m_points = pts;
    CFitResult fullOut, leanOut;
    const std::int32_t returned = FitCircleExInternal(full, fullOut);
    EXPECT_EQ(FitCircleExForStart(lean, leanOut), returned);
    EXPECT_EQ(fullOut.m_deviations.size(), pts.size());
    EXPECT_TRUE(leanOut.m_deviations.empty());
    for (auto field : {&CFitResult::m_center, &CFitResult::m_axis, &CFitResult::m_angles,
                       &CFitResult::m_size1}) {
      EXPECT_TRUE(BitEqual((leanOut.*field).x, (fullOut.*field).x) &&
                  BitEqual((leanOut.*field).y, (fullOut.*field).y) &&
                  BitEqual((leanOut.*field).z, (fullOut.*field).z))
          << trial;
    }
    for (auto field : {&CFitResult::m_sigma, &CFitResult::m_rms, &CFitResult::m_formError,
                       &CFitResult::m_minDeviation, &CFitResult::m_maxDeviation})
      EXPECT_TRUE(BitEqual(leanOut.*field, fullOut.*field)) << trial;
    EXPECT_EQ(leanOut.m_valid, fullOut.m_valid);
    EXPECT_EQ(leanOut.m_iterations, fullOut.m_iterations);
    EXPECT_EQ(lean.m_angleParam.value, full.m_angleParam.value);
    EXPECT_EQ(lean.m_fitType, full.m_fitType);
  }
}

// A torus's meridian section is a set of points made for one circle fit: the fit frees them
// after its least-squares start and makes its centred copy from the same points made again.
// Against the fit on points it keeps: the same result to the last bit; the input ends empty.
TEST(KFitCircleEx, FitOnPointsMadeAgainIsTheFitOnPointsKept) {
  Rng rng(93);
  std::normal_distribution<double> noise(0.0, 0.002);
  for (int trial = 0; trial < 3; ++trial) {
    const Pt c(-310.0 + 90 * trial, 150.0, 420.0);
    const Pt u = testing::Unit(Pt(-0.3, 0.5, 0.8 - 0.2 * trial));
    const Pt e1 = testing::Unit(u.Cross(Pt(0, 1, 0)));
    const Pt e2 = u.Cross(e1);
    std::vector<Pt> made;
    for (int i = 0; i < 300 + 500 * trial; ++i) {
      const double phi = 0.7 + 0.004 * i;  // a partial arc
      made.push_back(c + e1 * (22.0 * std::cos(phi)) + e2 * (22.0 * std::sin(phi)) +
                     Pt(noise(rng), noise(rng), noise(rng)));
    }
    int asked = 0;
    const metrofit::PointSource again = [&](std::int32_t i) {
      ++asked;
      return made[static_cast<std::size_t>(i)];
    };
    CFitInput kept, remade;
    kept.m_points = remade.m_points = made;
    CFitResult keptOut, remadeOut;
    const std::int32_t returned = FitCircleExForStart(kept, keptOut);
    EXPECT_EQ(metrofit::FitCircleExForStartRemaking(remade, remadeOut, again), returned);
    EXPECT_EQ(returned, 1);
    EXPECT_EQ(asked, static_cast<int>(made.size()));  // each point made once more
    EXPECT_TRUE(remade.m_points.empty());
    EXPECT_EQ(kept.m_points.size(), made.size());
    for (auto field : {&CFitResult::m_center, &CFitResult::m_axis, &CFitResult::m_size1}) {
      EXPECT_TRUE(BitEqual((remadeOut.*field).x, (keptOut.*field).x) &&
                  BitEqual((remadeOut.*field).y, (keptOut.*field).y) &&
                  BitEqual((remadeOut.*field).z, (keptOut.*field).z))
          << trial;
    }
    for (auto field : {&CFitResult::m_sigma, &CFitResult::m_formError})
      EXPECT_TRUE(BitEqual(remadeOut.*field, keptOut.*field)) << trial;
    EXPECT_EQ(remadeOut.m_valid, keptOut.m_valid);
  }
}

TEST(CircleFitEx, PointsExactlyOnACircleHaveFormZero) {
  // Distances that are exact in binary: every deviation is 0, the maximum stays 0.0 and the
  // minimum comes down from its start to 0.
  const UniquePointSet s =
      ToSet({Pt(3, 4, 0), Pt(5, 0, 0), Pt(0, -5, 0), Pt(-4, 3, 0), Pt(-3, -4, 0)});
  const double centre[3] = {0, 0, 0};
  std::vector<double> dev(5, 1.0);
  EXPECT_EQ(CircleFormValue(*s, centre, 5.0, dev.data()), 0.0);
  for (double d : dev) EXPECT_EQ(d, 0.0);

  // The whole fit on exact data at CMM scale: zero up to rounding.
  Rng rng(11);
  const std::vector<Pt> pts =
      testing::ArcPoints(rng, 36, Pt(480, -510, 230), testing::Unit(Pt(1, 2, 2)), 25.0, 6.2, 0.0);
  const CircleFit f = RunFitCircleEx(pts, Pt(0, 0, 1));
  ASSERT_EQ(f.status, 0);
  EXPECT_LT(f.form, 1e-11);
}

TEST(CircleFitEx, PositiveDeviationsGiveMaxMinusMinAndNegativeOnesAreMeasuredFromZero) {
  const double centre[3] = {0, 0, 0};
  std::vector<double> dev(3);
  const UniquePointSet outside = ToSet({Pt(5.5, 0, 0), Pt(0, 6, 0), Pt(-7, 0, 0)});
  EXPECT_EQ(CircleFormValue(*outside, centre, 5.0, dev.data()), 1.5);  // 2 - 0.5
  EXPECT_EQ(dev[0], 0.5);
  EXPECT_EQ(dev[2], 2.0);
  const UniquePointSet inside = ToSet({Pt(4, 0, 0), Pt(0, -4.5, 0), Pt(4.75, 0, 0)});
  EXPECT_EQ(CircleFormValue(*inside, centre, 5.0, dev.data()), 1.0);  // |0.0 - (-1)|
}

TEST(CircleFitEx, PointOffThePlaneContributesItsThreeDimensionalDistance) {
  const double centre[3] = {10, 20, 30};
  std::vector<double> dev(2);
  // One point on the circle, one at in-plane radius 6 and 0.8 above the plane.
  const UniquePointSet two = ToSet({Pt(10, 20 + 5.0, 30), Pt(10 + 6.0, 20, 30 + 0.8)});
  const double expected = std::sqrt(36.0 + 0.64) - 5.0;
  EXPECT_DOUBLE_EQ(CircleFormValue(*two, centre, 5.0, dev.data()), expected);
  EXPECT_EQ(dev[0], 0.0);
  EXPECT_DOUBLE_EQ(dev[1], expected);

  // Full fit: a circle with two extra points at the same in-plane radius, one above and one
  // below the plane by h. By symmetry the plane and the circle are unchanged, and the form is
  // the pair's 3-D excess sqrt(R^2 + h^2) - R.
  const Pt c(-470.0, 505.0, 180.0);
  const Pt n = testing::Unit(Pt(0.3, -0.4, 0.87));
  Pt u;
  Pt v;
  testing::Frame(n, &u, &v);
  const double r = 20.0;
  const double h = 0.05;
  std::vector<Pt> pts;
  for (int i = 0; i < 24; ++i) {
    const double t = 2.0 * testing::kPi * i / 24;
    pts.push_back(c + u * (r * std::cos(t)) + v * (r * std::sin(t)));
  }
  pts.push_back(c + u * r + n * h);
  pts.push_back(c + u * r - n * h);
  const CircleFit f = RunFitCircleEx(pts, n);
  ASSERT_EQ(f.status, 0);
  const double excess = std::sqrt(r * r + h * h) - r;
  EXPECT_NEAR(f.radius, r, 1e-10);
  EXPECT_NEAR(f.form, excess, 1e-10);
  EXPECT_NEAR(f.deviations[24], excess, 1e-10);
  EXPECT_NEAR(f.deviations[25], excess, 1e-10);
}

TEST(CircleFitEx, NormalComponentBelow1e20IsStoredAsExactZero) {
  numeric::UniqueVector x(numeric::CreateVector(6));
  (*x)[3] = 9.9e-21;
  (*x)[4] = -5e-21;
  (*x)[5] = 1e-20;  // not below: kept
  double record[kCircleRecordSize] = {};
  StoreCircleNormal(*x, record);
  EXPECT_TRUE(BitEqual(record[3], 0.0));
  EXPECT_TRUE(BitEqual(record[4], 0.0));  // +0, not -0: the component is replaced
  EXPECT_EQ(record[5], 1e-20);

  // Points in a plane z = const: the in-plane components of the fitted normal are exactly 0.
  Rng rng(12);
  const std::vector<Pt> pts =
      testing::ArcPoints(rng, 20, Pt(480, -510, 230), Pt(0, 0, 1), 15.0, 2.0, 0.0);
  const CircleFit f = RunFitCircleEx(pts, Pt(0.1, 0.1, 1));
  ASSERT_EQ(f.status, 0);
  EXPECT_EQ(f.normal.x, 0.0);
  EXPECT_EQ(f.normal.y, 0.0);
  EXPECT_EQ(std::fabs(f.normal.z), 1.0);
}

TEST(CircleFitEx, NormalSignFollowsTheStartAxis) {
  Rng rng(13);
  const Pt n = testing::Unit(Pt(-0.5, 0.2, 0.6));
  const std::vector<Pt> pts = testing::ArcPoints(rng, 30, Pt(300, 400, -200), n, 40.0, 1.5, 0.0);
  EXPECT_GT(RunFitCircleEx(pts, n).normal.Dot(n), 0.999);
  EXPECT_LT(RunFitCircleEx(pts, -n).normal.Dot(n), -0.999);
}

// ---------------------------------------------------------------------------------------------
// In-plane model.
// ---------------------------------------------------------------------------------------------

TEST(CircleFitEx, ResidualRowIsTheDerivativeOfTheResidual) {
  const UniquePointSet s = ToSet({Pt(3.0, -1.5, 0.0)});
  numeric::UniqueVector x(numeric::CreateVector(3));
  (*x)[0] = 0.4;
  (*x)[1] = 0.7;
  (*x)[2] = 2.0;
  numeric::UniqueVector row(numeric::CreateVector(3));
  double res = 0.0;
  numeric::CircleResidualRow(*s, 0, *x, *row, res);
  EXPECT_DOUBLE_EQ(res, numeric::CircleResidual(*s, 0, *x));
  EXPECT_DOUBLE_EQ(res, std::hypot(3.0 - 0.4, -1.5 - 0.7) - 2.0);
  const double step = 1e-6;
  for (int j = 0; j < 3; ++j) {
    const double keep = (*x)[j];
    (*x)[j] = keep + step;
    const double up = numeric::CircleResidual(*s, 0, *x);
    (*x)[j] = keep - step;
    const double down = numeric::CircleResidual(*s, 0, *x);
    (*x)[j] = keep;
    EXPECT_NEAR((*row)[j], (up - down) / (2 * step), 1e-8) << j;
  }
}

TEST(CircleFitEx, ResidualRowAtTheCentreDependsOnTheRadiusOnly) {
  const UniquePointSet s = ToSet({Pt(1.0, 2.0, 0.0)});
  numeric::UniqueVector x(numeric::CreateVector(3));
  (*x)[0] = 1.0;
  (*x)[1] = 2.0;
  (*x)[2] = 0.5;
  numeric::UniqueVector row(numeric::CreateVector(3));
  double res = 0.0;
  numeric::CircleResidualRow(*s, 0, *x, *row, res);
  EXPECT_EQ((*row)[0], 0.0);
  EXPECT_EQ((*row)[1], 0.0);
  EXPECT_EQ((*row)[2], -1.0);
  EXPECT_EQ(res, -0.5);
}

TEST(CircleFitEx, InPlaneFailureStatusesAreMapped) {
  EXPECT_EQ(MapInPlaneFailure(numeric::NumericStatus::kIterationLimit),
            ExtendedStatus::kCircleNumericFailure);
  EXPECT_EQ(MapInPlaneFailure(numeric::NumericStatus::kBadArguments),
            ExtendedStatus::kDegeneratePoints);
  EXPECT_EQ(MapInPlaneFailure(numeric::NumericStatus::kAllocationFailure),
            ExtendedStatus::kResourceFailure);
}

// ---------------------------------------------------------------------------------------------
// Synthetic circles at CMM scale.
// ---------------------------------------------------------------------------------------------

TEST(CircleFitEx, ExactArcsAtCmmScaleAreRecovered) {
  Rng rng(21);
  const double arcs[] = {60.0, 90.0, 120.0, 360.0};
  for (int trial = 0; trial < 24; ++trial) {
    const double arc = arcs[trial % 4] * testing::kPi / 180.0;
    const Pt c = testing::CmmCentre(rng);
    const Pt n = testing::RandomDirection(rng);
    const double r = testing::Uniform(rng, 3.0, 60.0);
    const int count = 12 + trial * 3;
    const std::vector<Pt> pts = testing::ArcPoints(rng, count, c, n, r, arc, 0.0);
    SCOPED_TRACE(::testing::Message() << "trial " << trial << " arc " << arcs[trial % 4]);

    CFitInput in;
    in.m_points = pts;
    in.m_refPoint = c + n * 3.0;
    CFitResult out;
    EXPECT_EQ(KFitCircleEx(in, out), 1);
    EXPECT_EQ(out.m_valid, 1);
    EXPECT_LT((out.m_center - c).Length(), 1e-9);
    EXPECT_NEAR(out.m_size1.x, r, 1e-9);
    EXPECT_LT(LineAngle(out.m_axis, n), 1e-11);
    EXPECT_LT(out.m_formError, 1e-10);
  }
}

TEST(CircleFitEx, NoisyArcsAgreeWithTheLeastSquaresCircle) {
  Rng rng(22);
  const double noise = 1e-3;  // 1 micrometre in mm
  const double arcs[] = {60.0, 90.0, 120.0};
  for (int trial = 0; trial < 18; ++trial) {
    const double arc = arcs[trial % 3] * testing::kPi / 180.0;
    const Pt c = testing::CmmCentre(rng);
    const Pt n = testing::RandomDirection(rng);
    const double r = testing::Uniform(rng, 10.0, 50.0);
    const std::vector<Pt> pts = testing::ArcPoints(rng, 60, c, n, r, arc, noise);
    SCOPED_TRACE(::testing::Message() << "trial " << trial << " arc " << arcs[trial % 3]);

    CFitInput in;
    in.m_points = pts;
    CFitResult ex;
    ASSERT_EQ(KFitCircleEx(in, ex), 1);
    CFitInput lsIn;
    lsIn.m_points = pts;
    CFitResult ls;
    ASSERT_EQ(KFitCircle(lsIn, ls), 1);

    // The two estimators differ only in how out-of-plane noise enters: far below the noise
    // (seen: at most 0.005 of it).
    EXPECT_LT((ex.m_center - ls.m_center).Length(), 0.02 * noise);
    EXPECT_LT(std::fabs(ex.m_size1.x - ls.m_size1.x), 0.02 * noise);
    EXPECT_LT(LineAngle(ex.m_axis, ls.m_axis), 0.02 * noise / r);
    // Both near the truth; short arcs leave the centre less determined along their bisector
    // (seen: up to 5 noise widths).
    EXPECT_LT((ex.m_center - c).Length(), 15 * noise);
    EXPECT_LT(std::fabs(ex.m_size1.x - r), 15 * noise);
    // The form value is the peak-to-valley of the 3-D deviations: a few noise widths.
    EXPECT_GT(ex.m_formError, 2 * noise);
    EXPECT_LT(ex.m_formError, 12 * noise);
  }
}

// ---------------------------------------------------------------------------------------------
// Failure paths, temporary files, threads.
// ---------------------------------------------------------------------------------------------

TEST(CircleFitEx, EveryAllocationFailureIsReportedAndReleasesItsSavedCopies) {
  PrivateTempDir tmp;
  Rng rng(31);
  const Pt c(450, -520, 260);
  const Pt n = testing::Unit(Pt(0.2, -0.3, 0.93));
  const double r = 20.0;
  const double arc = testing::kPi / 2;
  const std::vector<Pt> pts = testing::ArcPoints(rng, 40, c, n, r, arc, 0.0);
  const double halfChord = r * std::sin(arc / 2);
  int resourceFailures = 0;
  int numericFailures = 0;
  int enclosingFallbacks = 0;
  int fullFits = 0;
  int earlyStops = 0;
  const int runs = numeric::testing::SweepAllocationFailures([&](int k) {
    const std::int64_t blocks = numeric::LiveBlockCount();
    double record[kCircleRecordSize] = {0, 0, 0, n.x, n.y, n.z, 0, 0};
    std::vector<double> dev(pts.size());
    numeric::FailAllocationAfter(k);
    const ExtendedStatus s =
        FitCircleEx(record, static_cast<std::int32_t>(pts.size()), pts.data(), dev.data());
    numeric::FailAllocationAfter(-1);
    // Whichever allocation failed, the copies parked in the point store went with the fit.
    EXPECT_EQ(numeric::PendingPointFileCount(), 0) << "k " << k;
    EXPECT_EQ(numeric::LiveBlockCount(), blocks) << "k " << k;
    EXPECT_EQ(tmp.FileCount(), 0u) << "k " << k;
    if (s == ExtendedStatus::kResourceFailure) ++resourceFailures;
    if (s == ExtendedStatus::kCircleNumericFailure) ++numericFailures;
    if (s == ExtendedStatus::kOk) {
      // The least-squares circle; or, when the minimiser's work space failed, the smallest
      // enclosing circle of the arc (radius half the chord); or, when only the scratch block
      // of one normal-equation build failed, the circle at which the minimiser stopped: that
      // build reports a zero gradient, a zero step then passes the step test, and the fit ends
      // early without an error (the core's documented behaviour). All are finite circles.
      const double radius = 0.5 * record[6];
      EXPECT_TRUE(std::isfinite(radius) && std::isfinite(record[0])) << "k " << k;
      if (std::fabs(radius - halfChord) < 1e-9) {
        ++enclosingFallbacks;
      } else if (std::fabs(radius - r) < 1e-9) {
        ++fullFits;
      } else {
        ++earlyStops;
      }
    }
    EXPECT_TRUE(s == ExtendedStatus::kOk || s == ExtendedStatus::kResourceFailure ||
                s == ExtendedStatus::kCircleNumericFailure)
        << static_cast<int>(s);
  });
  EXPECT_GT(runs, 5);
  EXPECT_GT(resourceFailures, 0);
  EXPECT_GT(numericFailures, 0);
  EXPECT_GT(enclosingFallbacks, 0);
  EXPECT_GT(fullFits, 0);
  // Every normal-equation build of the in-plane fit is one allocation that can fail this way.
  EXPECT_GT(earlyStops, 0);
  EXPECT_EQ(tmp.FileCount(), 0u);
}

TEST(CircleFitEx, NoTemporaryFileRemainsAfterSuccessfulFits) {
  PrivateTempDir tmp;
  Rng rng(32);
  ASSERT_EQ(tmp.FileCount(), 0u);
  for (int trial = 0; trial < 10; ++trial) {
    CFitInput in;
    in.m_points = testing::ArcPoints(rng, 30 + trial, testing::CmmCentre(rng),
                                     testing::RandomDirection(rng), 15.0, 1.3, 1e-3);
    CFitResult out;
    ASSERT_EQ(KFitCircleEx(in, out), 1);
    EXPECT_EQ(tmp.FileCount(), 0u) << "trial " << trial;
  }
  EXPECT_EQ(numeric::PendingPointFileCount(), 0);
}

TEST(CircleFitEx, ConcurrentFitsOnSeveralThreadsMatchTheSingleThreadedResults) {
  PrivateTempDir tmp;
  Rng rng(33);
  constexpr int kSets = 12;
  std::vector<CFitInput> inputs(kSets);
  std::vector<CFitResult> expected(kSets);
  std::vector<std::int32_t> expectedRet(kSets);
  for (int i = 0; i < kSets; ++i) {
    inputs[i].m_points =
        testing::ArcPoints(rng, 40 + 7 * i, testing::CmmCentre(rng), testing::RandomDirection(rng),
                           5.0 + 4 * i, (60.0 + 25 * i) * testing::kPi / 180, 2e-3);
    CFitInput in;
    in.m_points = inputs[i].m_points;
    expectedRet[i] = KFitCircleEx(in, expected[i]);
    ASSERT_EQ(expectedRet[i], 1);
  }

  constexpr int kThreads = 4;
  constexpr int kRounds = 6;
  std::vector<int> mismatches(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        for (int j = 0; j < kSets; ++j) {
          const int i = (j * (t + 1) + round) % kSets;  // a different order on every thread
          CFitInput in;
          in.m_points = inputs[i].m_points;
          CFitResult out;
          const std::int32_t ret = KFitCircleEx(in, out);
          const CFitResult& e = expected[i];
          const bool same =
              ret == expectedRet[i] && out.m_valid == e.m_valid &&
              BitEqual(out.m_center.x, e.m_center.x) && BitEqual(out.m_center.y, e.m_center.y) &&
              BitEqual(out.m_center.z, e.m_center.z) && BitEqual(out.m_axis.x, e.m_axis.x) &&
              BitEqual(out.m_axis.y, e.m_axis.y) && BitEqual(out.m_axis.z, e.m_axis.z) &&
              BitEqual(out.m_size1.x, e.m_size1.x) && BitEqual(out.m_formError, e.m_formError);
          if (!same) ++mismatches[t];
        }
      }
    });
  }
  for (std::thread& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(mismatches[t], 0) << "thread " << t;
  EXPECT_EQ(tmp.FileCount(), 0u);
}

}  // namespace
}  // namespace metrofit
