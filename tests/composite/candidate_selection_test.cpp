// Building blocks of the multi-start cylinder and cone fit that need no iteration: start
// axes, duplicate starts, size starts and the choice among candidate results.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "composite/candidate_axes.h"
#include "composite/cylinder_cone_fit.h"
#include "metrofit.h"
#include "support/vector_paths.h"

namespace metrofit {
namespace {

CFitResult ValidResult(double sigma, double form, double radius, KPt3<double> centre) {
  CFitResult r;
  r.m_valid = 1;
  r.m_sigma = sigma;
  r.m_formError = form;
  r.m_size1.x = radius;
  r.m_center = centre;
  return r;
}

std::vector<CFitResult> InvalidResults() {
  return std::vector<CFitResult>(kCandidateCount);
}

TEST(CylinderConeFit, FourPointsReturnZeroAndLeaveResultUnchanged) {
  CFitInput in;
  in.m_points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  CFitResult out;
  out.m_valid = 7;
  out.m_size1.x = 3.5;
  out.m_message = "kept";
  EXPECT_EQ(FitCylinderOrCone(FIT_CYLINDER, in, out), 0.0);
  EXPECT_EQ(out.m_valid, 7);
  EXPECT_EQ(out.m_size1.x, 3.5);
  EXPECT_EQ(out.m_message, "kept");
  EXPECT_EQ(in.m_centerParam.mode[0], 0);  // the input is not touched either
}

TEST(CandidateAxes, DuplicateOfEarlierStartIsMarkedEvenWhenTheEarlierIsSkipped) {
  std::array<KPt3<double>, kCandidateCount> axes;
  for (int k = 0; k < kCandidateCount; ++k)
    axes[k] = KPt3<double>(std::cos(0.3 * k), std::sin(0.3 * k), 0.0);
  axes[15] = KPt3<double>(0, 0, 1);
  axes[2] = KPt3<double>(0, 0, 1);
  axes[16] = KPt3<double>(0, 0.0, -1);  // antiparallel counts as the same axis
  const auto skip = DuplicateStarts(axes);
  EXPECT_FALSE(skip[2]);
  EXPECT_TRUE(skip[15]);
  EXPECT_TRUE(skip[16]);
}

TEST(CandidateAxes, FixedStartsAreUnitAndOffTheDiagonals) {
  CFitInput in;
  in.m_points = {{0, 0, 0}, {1, 0, 0}, {0, 2, 0}, {0, 0, 3}, {1, 1, 1}};
  const CandidateAxes c = MakeCandidateAxes(in);
  for (int k = 0; k < 12; ++k) EXPECT_NEAR(c.axis[k].Length(), 1.0, 1e-15) << k;
  EXPECT_NEAR(c.axis[0].y, 0.01 / std::sqrt(1.0002), 1e-15);
  EXPECT_NEAR(c.axis[3].z, 1.01 / std::sqrt(3.0201), 1e-15);
  EXPECT_NEAR(c.axis[10].x, -1.01 / std::sqrt(3.0201), 1e-15);
}

TEST(CylinderConeFit, RunawayRadiusIsNeverChosenWhateverItsScore) {
  auto out = InvalidResults();
  out[0] = ValidResult(1e-3, 0.01, 10.0, {0, 0, 0});
  out[1] = ValidResult(1e-9, 0.001, 10.0 * 1000.0 + 1.0, {0, 0, 0});  // above 1000 x rmin
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, {0, 0, 0}), 0);
  // A cone result takes part whatever its size.
  EXPECT_EQ(ChooseCandidate(FIT_CONE, out, {0, 0, 0}), 1);
}

TEST(CylinderConeFit, TiedScoresGoToSmallerFormOnlyWhenNearestSoFar) {
  // Exact fits score 0: a tie within 1e-20.
  const KPt3<double> g(0, 0, 0);
  auto out = InvalidResults();
  out[0] = ValidResult(0.0, 0.2, 5.0, {1, 0, 0});
  out[1] = ValidResult(0.0, 0.1, 5.0, {2, 0, 0});  // smaller form but farther: not taken
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, g), 0);
  out[1].m_center = {0.5, 0, 0};  // now the nearest so far: taken
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, g), 1);
  out[1].m_formError = 0.3;  // nearest, but a larger form: not taken
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, g), 0);
}

// The fit measures a candidate's form error only when the choice reads it: where a tie
// compares the nearest candidate with the one chosen so far. The choice must be the one made
// from form errors all known, and nothing else may be asked.
TEST(CylinderConeFit, FormErrorsAreReadOnlyWhereATieComparesThem) {
  const KPt3<double> g(0, 0, 0);
  auto out = InvalidResults();
  out[0] = ValidResult(0.0, 0.2, 5.0, {1, 0, 0});
  out[3] = ValidResult(0.0, 0.1, 5.0, {0.5, 0, 0});  // tie, nearest: compared with slot 0
  out[5] = ValidResult(0.0, 0.05, 5.0, {2, 0, 0});   // tie, not nearest: never compared
  out[7] = ValidResult(1e-3, 0.01, 5.0, {0, 0, 0});  // nearest, but no tie
  std::vector<int> asked;
  const std::vector<CFitResult>* set = &out;
  const auto formErrorOf = [&](int k) {
    asked.push_back(k);
    return (*set)[k].m_formError;
  };
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, g, formErrorOf), 3);
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, g), 3);
  std::sort(asked.begin(), asked.end());
  asked.erase(std::unique(asked.begin(), asked.end()), asked.end());
  EXPECT_EQ(asked, (std::vector<int>{0, 3}));

  // Without ties no form error is read at all.
  auto plain = InvalidResults();
  plain[1] = ValidResult(2e-3, 0.2, 5.0, {1, 0, 0});
  plain[4] = ValidResult(1e-3, 0.3, 5.0, {0.5, 0, 0});
  asked.clear();
  set = &plain;
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, plain, g, formErrorOf), 4);
  EXPECT_TRUE(asked.empty());
}

TEST(CylinderConeFit, EqualScoresOfOrdinarySizeAreNoTie) {
  // 0.5 + 1e-20 rounds to 0.5, so equal non-tiny scores never pass the tie test: the earlier
  // candidate stays even when the later one is nearer with a smaller form error.
  auto out = InvalidResults();
  out[0] = ValidResult(0.5, 0.2, 5.0, {1, 0, 0});
  out[1] = ValidResult(0.5, 0.1, 5.0, {0.5, 0, 0});
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, {0, 0, 0}), 0);
}

TEST(CylinderConeFit, NoValidCandidateFallsBackToSlotTwo) {
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, InvalidResults(), {0, 0, 0}), 2);
}

TEST(CylinderConeFit, OnlyTinyRadiiFallBackToNearestCandidate) {
  auto out = InvalidResults();
  out[4] = ValidResult(0.1, 0.1, 1e-5, {3, 0, 0});
  out[9] = ValidResult(0.1, 0.1, 1e-5, {1, 0, 0});
  EXPECT_EQ(ChooseCandidate(FIT_CYLINDER, out, {0, 0, 0}), 9);
}

TEST(CylinderConeFit, ConeWithoutRadialSpreadKeepsPreviousSlopeStart) {
  // Points on a circle about the z axis: in the frame of the z start every radial distance is
  // the same, so the cone slope start is not measured.
  std::vector<KPt3<double>> pts;
  for (int i = 0; i < 8; ++i) pts.emplace_back(std::cos(i * 0.7), std::sin(i * 0.7), 0.1 * i);
  CFitInput cand;
  cand.m_axisParam.value = {0, 0, 1};
  cand.m_size2Param.value.z = 4e-6;
  cand.m_size2Param.mode[2] = 0;
  SetSizeStart(FIT_CONE, pts, {0, 0, 0}, cand);
  EXPECT_EQ(cand.m_size2Param.value.z, 4e-6);
  EXPECT_EQ(cand.m_size2Param.mode[2], 0);
  // Tilted frame: the spread is there and the slope start is axial over radial extent.
  cand.m_axisParam.value = KPt3<double>(1, 0, 1) * (1.0 / std::sqrt(2.0));
  SetSizeStart(FIT_CONE, pts, {0, 0, 0}, cand);
  EXPECT_EQ(cand.m_size2Param.mode[2], 2);
  EXPECT_GT(cand.m_size2Param.value.z, 0.0);
}

// The cylinder's size start computes the largest radial distance alone; it must be the rhoMax
// of the full extent bit for bit, on every vector path, also with a point on the axis, a NaN
// point, a point so far out that its squared distance overflows, and a count that leaves
// points over from the groups of four.
TEST(CylinderConeFit, LargestRadialDistanceIsTheFullExtentsLargestBitForBit) {
  testing_paths::OnEveryVectorPath([] {
    std::mt19937_64 rng(20261125);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int trial = 0; trial < 50; ++trial) {
      const KPt3<double> c(500.0 + 100.0 * u(rng), -300.0 + 100.0 * u(rng), 200.0 * u(rng));
      KPt3<double> a(u(rng), u(rng), u(rng));
      if (trial % 2 == 0) a = a * (1.0 / a.Length());  // unit and non-unit axes
      std::vector<KPt3<double>> pts;
      for (int i = 0; i < 200 + trial % 4; ++i)
        pts.push_back(c + KPt3<double>(u(rng), u(rng), u(rng)) * (10.0 + 40.0 * (trial % 5)));
      if (trial % 3 == 0) pts[7] = c + a * 2.5;  // on the axis: distance 0
      if (trial % 7 == 0) pts[11].y = std::nan("");
      if (trial % 11 == 5) pts[21] = c + KPt3<double>(a.y, -a.x, 0.0) * 1e160;
      const double full = ExtentAbout(pts, c, a).rhoMax;
      const double alone = LargestRadialDistance(pts, c, a);
      EXPECT_EQ(std::memcmp(&full, &alone, sizeof full), 0)
          << trial << ": " << full << " vs " << alone;
    }
  });
}

TEST(CylinderConeFit, CylinderRadiusStartIsLargestRadialDistanceUnlessFixed) {
  std::vector<KPt3<double>> pts = {{3, 0, 0}, {0, 4, 1}, {-2, 0, 2}};
  CFitInput cand;
  cand.m_axisParam.value = {0, 0, 1};
  SetSizeStart(FIT_CYLINDER, pts, {0, 0, 0}, cand);
  EXPECT_DOUBLE_EQ(cand.m_size1Param.value.x, 4.0);
  EXPECT_EQ(cand.m_size1Param.mode[0], 2);
  cand.m_size1Param.value.x = 9.0;
  cand.m_size1Param.mode[0] = 1;
  SetSizeStart(FIT_CYLINDER, pts, {0, 0, 0}, cand);
  EXPECT_EQ(cand.m_size1Param.value.x, 9.0);
  EXPECT_EQ(cand.m_size1Param.mode[0], 1);
}

}  // namespace
}  // namespace metrofit
