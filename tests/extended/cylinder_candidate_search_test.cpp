// Multi-start extended cylinder fit: the candidate starts, the validity floor and the choice
// rules among candidates.
#include "extended/cylinder_candidate_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "ex_fit_test_util.h"
#include "metrofit.h"

namespace metrofit {
namespace {

using testing::LineAngle;
using testing::LineDistance;
using testing::Pt;
using testing::Rng;

// A valid candidate result with the given centre, radius and form error.
CFitResult Candidate(const Pt& centre, double radius, double form) {
  CFitResult r;
  r.m_center = centre;
  r.m_size1.x = radius;
  r.m_formError = form;
  r.m_valid = 1;
  return r;
}

// ---------------------------------------------------------------------------------------------
// Choice rules.
// ---------------------------------------------------------------------------------------------

TEST(CylinderCandidateChoice, SmallestFormErrorWins) {
  std::vector<CFitResult> c(3);
  c[0] = Candidate(Pt(0, 0, 0), 5.0, 0.02);
  c[1] = Candidate(Pt(3, 0, 0), 5.0, 0.01);
  c[2] = Candidate(Pt(9, 0, 0), 5.0, 0.03);
  const CylinderChoice choice = ChooseCylinderCandidate(c, Pt(0, 0, 0));
  EXPECT_EQ(choice.best, 1);
  EXPECT_EQ(choice.nearest, 0);
}

TEST(CylinderCandidateChoice, RadiusBelowFloatEpsilonMakesACandidateInvalid) {
  std::vector<CFitResult> c(2);
  c[0] = Candidate(Pt(0, 0, 0), 1.1920928955078125e-07 * 0.99, 0.0);  // better in every way
  c[1] = Candidate(Pt(1, 0, 0), 1.1920928955078125e-07, 0.5);         // at the floor: valid
  const CylinderChoice choice = ChooseCylinderCandidate(c, Pt(0, 0, 0));
  EXPECT_EQ(c[0].m_valid, 0);
  EXPECT_EQ(c[1].m_valid, 1);
  EXPECT_EQ(choice.best, 1);
  EXPECT_EQ(choice.nearest, 1);
}

TEST(CylinderCandidateChoice, RadiusOfAThousandTimesTheSmallestIsNeverBest) {
  std::vector<CFitResult> c(3);
  c[0] = Candidate(Pt(0, 0, 0), 2.0, 0.5);
  c[1] = Candidate(Pt(0, 0, 0), 2000.0, 1e-6);    // exactly 1000 rmin: out
  c[2] = Candidate(Pt(0, 0, 0), 1999.999, 0.25);  // just below: in
  const CylinderChoice choice = ChooseCylinderCandidate(c, Pt(0, 0, 0));
  EXPECT_EQ(choice.best, 2);
}

TEST(CylinderCandidateChoice, NearTieReplacesTheBestOnlyForTheCurrentNearest) {
  const double tie = 1e-7;  // below 2^-23 = 1.19e-7
  {
    // Candidate 1 ties with the best and is the nearest so far: it takes over.
    std::vector<CFitResult> c(2);
    c[0] = Candidate(Pt(5, 0, 0), 3.0, 0.01);
    c[1] = Candidate(Pt(1, 0, 0), 3.0, 0.01 + tie);
    EXPECT_EQ(ChooseCylinderCandidate(c, Pt(0, 0, 0)).best, 1);
  }
  {
    // The same tie, but candidate 1 is farther from the centroid: the best stays.
    std::vector<CFitResult> c(2);
    c[0] = Candidate(Pt(1, 0, 0), 3.0, 0.01);
    c[1] = Candidate(Pt(5, 0, 0), 3.0, 0.01 + tie);
    EXPECT_EQ(ChooseCylinderCandidate(c, Pt(0, 0, 0)).best, 0);
  }
  {
    // Nearer, but the form error is larger by more than the tie: the best stays.
    std::vector<CFitResult> c(2);
    c[0] = Candidate(Pt(5, 0, 0), 3.0, 0.01);
    c[1] = Candidate(Pt(1, 0, 0), 3.0, 0.01 + 2e-7);
    EXPECT_EQ(ChooseCylinderCandidate(c, Pt(0, 0, 0)).best, 0);
  }
  {
    // Equally near (the first of equals stays the nearest): no takeover.
    std::vector<CFitResult> c(2);
    c[0] = Candidate(Pt(2, 0, 0), 3.0, 0.01);
    c[1] = Candidate(Pt(0, 2, 0), 3.0, 0.01);
    const CylinderChoice choice = ChooseCylinderCandidate(c, Pt(0, 0, 0));
    EXPECT_EQ(choice.nearest, 0);
    EXPECT_EQ(choice.best, 0);
  }
}

TEST(CylinderCandidateChoice, WithoutAnyBestTheNearestIsChosen) {
  // A candidate whose form error is not a number can never be the best.
  std::vector<CFitResult> c(2);
  c[0] = Candidate(Pt(4, 0, 0), 3.0, std::numeric_limits<double>::quiet_NaN());
  c[1] = Candidate(Pt(1, 0, 0), 3.0, std::numeric_limits<double>::quiet_NaN());
  const CylinderChoice choice = ChooseCylinderCandidate(c, Pt(0, 0, 0));
  EXPECT_EQ(choice.best, -1);
  EXPECT_EQ(choice.nearest, 1);
}

TEST(CylinderCandidateChoice, NoValidCandidateChoosesNothing) {
  std::vector<CFitResult> c(3);
  const CylinderChoice choice = ChooseCylinderCandidate(c, Pt(0, 0, 0));
  EXPECT_EQ(choice.best, -1);
  EXPECT_EQ(choice.nearest, -1);
}

// ---------------------------------------------------------------------------------------------
// The search.
// ---------------------------------------------------------------------------------------------

TEST(CylinderCandidateSearch, FindsTheCylinderFromItsStarts) {
  Rng rng(51);
  for (int trial = 0; trial < 4; ++trial) {
    const Pt c = testing::CmmCentre(rng);
    const Pt a = testing::RandomDirection(rng);
    const double r = testing::Uniform(rng, 5.0, 30.0);
    CFitInput in;
    in.m_points = testing::CylinderPoints(rng, 90, c, a, r, 2.5 * r, 2 * testing::kPi, 0.0);
    CFitResult out;
    out.m_sigma = 0.125;
    CylinderSearchTrace trace;
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    EXPECT_EQ(CylinderCandidateSearch(in, out, &trace), 1);
    EXPECT_EQ(out.m_valid, 1);
    EXPECT_GE(trace.best, 0);
    EXPECT_LT(LineAngle(out.m_axis, a), 1e-11);
    EXPECT_LT(LineDistance(c, out.m_center, out.m_axis), 1e-9);
    EXPECT_NEAR(out.m_size1.x, r, 1e-9);
    EXPECT_LT(out.m_formError, 1e-9);
    EXPECT_EQ(out.m_sigma, 1e38);  // every candidate's score slot starts at the sentinel
  }
}

TEST(CylinderCandidateSearch, CandidateWhoseRadiusCollapsesIsNotChosen) {
  // Collinear points: the start along the line (slot 14, the first edge of the furthest-point
  // frame) stays on the zero-radius cylinder about the line, which is below the floor. The other
  // starts find cylinders that carry the line as a ruling, of arbitrary radius.
  CFitInput in;
  for (int i = 0; i < 12; ++i) in.m_points.push_back(Pt(500, -300, 20) + Pt(1, 2, 2) * (0.7 * i));
  CFitResult out;
  CylinderSearchTrace trace;
  CylinderCandidateSearch(in, out, &trace);
  ASSERT_FALSE(trace.skipped[14]);
  EXPECT_EQ(trace.valid[14], 0);
  EXPECT_NE(trace.best, 14);
  EXPECT_NE(trace.nearest, 14);
  EXPECT_GE(out.m_size1.x, 1.1920928955078125e-07);
}

TEST(CylinderCandidateSearch, DuplicateStartsAreSkippedAndTheFurthestPointSlotsWhenNotFound) {
  Rng rng(52);
  // Along z: the line-fit axis (slot 15) duplicates slot 2, (0, 0, 1).
  CFitInput in;
  in.m_points =
      testing::CylinderPoints(rng, 200, Pt(100, 200, 50), Pt(0, 0, 1), 3.0, 200.0, 6.28, 0.0);
  CFitResult out;
  CylinderSearchTrace trace;
  CylinderCandidateSearch(in, out, &trace);
  EXPECT_FALSE(trace.skipped[2]);
  EXPECT_TRUE(trace.skipped[15]);

  // Two distinct locations only: no third point for the furthest-point frame.
  CFitInput pair;
  for (int i = 0; i < 3; ++i) {
    pair.m_points.push_back(Pt(1, 2, 3));
    pair.m_points.push_back(Pt(4, 6, 3));
  }
  CFitResult pairOut;
  CylinderSearchTrace pairTrace;
  CylinderCandidateSearch(pair, pairOut, &pairTrace);
  EXPECT_TRUE(pairTrace.skipped[12]);
  EXPECT_TRUE(pairTrace.skipped[13]);
  EXPECT_TRUE(pairTrace.skipped[14]);
}

TEST(CylinderCandidateSearch, CallersInputIsLeftAsItWas) {
  Rng rng(53);
  CFitInput in;
  in.m_points = testing::CylinderPoints(rng, 50, Pt(-300, 420, 90), testing::Unit(Pt(1, 0, 1)),
                                        12.0, 30.0, 6.28, 1e-3);
  in.m_fitType = FIT_CYLINDER;
  in.m_angleParam.value = Pt(0.1, 0.2, 0.3);
  in.m_angleParam.mode[0] = 2;
  in.m_centerParam.value = Pt(7, 8, 9);
  in.m_centerParam.mode[1] = 2;
  const std::vector<Pt> points = in.m_points;
  CFitResult out;
  EXPECT_EQ(CylinderCandidateSearch(in, out), 1);
  EXPECT_EQ(in.m_fitType, FIT_CYLINDER);
  EXPECT_EQ(in.m_angleParam.value, Pt(0.1, 0.2, 0.3));
  EXPECT_EQ(in.m_angleParam.mode[0], 2);
  EXPECT_EQ(in.m_angleParam.mode[1], 0);
  EXPECT_EQ(in.m_centerParam.value, Pt(7, 8, 9));
  EXPECT_EQ(in.m_centerParam.mode[1], 2);
  EXPECT_EQ(in.m_axisParam.mode[0], 0);
  EXPECT_TRUE(in.m_points == points);
}

// The search fits its start lines and planes on the caller's input and puts the settings back
// afterwards: every field must come back as it was, with and without the reference frame (whose
// furthest-point search works on a projected copy of the points), and also from a settings
// state no fit would leave behind.
TEST(CylinderCandidateSearch, EveryFieldOfTheInputComesBack) {
  for (bool useReference : {false, true}) {
    SCOPED_TRACE(useReference ? "with the reference frame" : "without");
    Rng rng(54);
    CFitInput in;
    in.m_points = testing::CylinderPoints(rng, 80, Pt(410, -250, 600), testing::Unit(Pt(1, 2, 2)),
                                          9.0, 40.0, 4.0, 2e-3);
    in.m_fitType = 11;
    in.m_refPoint = Pt(1.5, -2.5, 3.5);
    for (int k = 0; k < 3; ++k) in.m_auxPoints[k] = Pt(k, 2.0 * k, -k);
    in.m_givenMinMax = Pt(-1, 1, 2);
    in.m_givenStats = Pt(0.1, 0.2, 0.3);
    for (int k = 0; k < 5; ++k) in.m_auxValues[k] = 0.5 * k;
    in.m_refOrigin = Pt(400, -250, 600);
    in.m_refDirection = testing::Unit(Pt(1, 2, 2));
    in.m_refSecondDirection = testing::Unit(Pt(2, -1, 0));
    in.m_useReference = useReference;
    in.m_option1Enabled = true;
    in.m_option1Value = 0.25;
    in.m_option2Value = -4.0;
    in.m_probeRadius = 1.5;
    in.m_size1Param.value = Pt(9, 0, 0);
    in.m_size1Param.mode[0] = 2;
    in.m_size2Param.mode[2] = 7;
    in.m_size3Param.value = Pt(3, 2, 1);
    in.m_axisParam.value = Pt(0, 0, 1);
    in.m_axisParam.mode[1] = 1;
    const CFitInput before = [&] {
      CFitInput copy(in);  // the settings
      copy.m_points = in.m_points;
      copy.m_refPoint = in.m_refPoint;
      for (int k = 0; k < 3; ++k) copy.m_auxPoints[k] = in.m_auxPoints[k];
      copy.m_givenMinMax = in.m_givenMinMax;
      copy.m_givenStats = in.m_givenStats;
      for (int k = 0; k < 5; ++k) copy.m_auxValues[k] = in.m_auxValues[k];
      return copy;
    }();
    CFitResult out;
    CylinderCandidateSearch(in, out);
    EXPECT_EQ(in.m_fitType, before.m_fitType);
    EXPECT_TRUE(in.m_points == before.m_points);
    EXPECT_EQ(in.m_refPoint, before.m_refPoint);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(in.m_auxPoints[k], before.m_auxPoints[k]);
    EXPECT_EQ(in.m_givenMinMax, before.m_givenMinMax);
    EXPECT_EQ(in.m_givenStats, before.m_givenStats);
    for (int k = 0; k < 5; ++k) EXPECT_EQ(in.m_auxValues[k], before.m_auxValues[k]);
    EXPECT_EQ(in.m_refOrigin, before.m_refOrigin);
    EXPECT_EQ(in.m_refDirection, before.m_refDirection);
    EXPECT_EQ(in.m_refSecondDirection, before.m_refSecondDirection);
    EXPECT_EQ(in.m_useReference, before.m_useReference);
    EXPECT_EQ(in.m_option1Enabled, before.m_option1Enabled);
    EXPECT_EQ(in.m_option1Value, before.m_option1Value);
    EXPECT_EQ(in.m_option2Enabled, before.m_option2Enabled);
    EXPECT_EQ(in.m_option2Value, before.m_option2Value);
    EXPECT_EQ(in.m_probeRadius, before.m_probeRadius);
    const CFitParam CFitInput::*params[] = {&CFitInput::m_centerParam, &CFitInput::m_axisParam,
                                            &CFitInput::m_angleParam,  &CFitInput::m_size1Param,
                                            &CFitInput::m_size2Param,  &CFitInput::m_size3Param};
    for (const auto param : params) {
      EXPECT_EQ((in.*param).value, (before.*param).value);
      for (int k = 0; k < 3; ++k) EXPECT_EQ((in.*param).mode[k], (before.*param).mode[k]);
    }
  }
}

}  // namespace
}  // namespace metrofit
