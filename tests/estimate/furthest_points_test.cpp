#include <gtest/gtest.h>

#include <vector>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using P = KPt3<double>;

CFitInput InputWith(const std::vector<P>& pts) {
  CFitInput in;
  in.m_points = pts;
  return in;
}

TEST(GetFurthest3Points, NoPointsReturnFalseAndLeaveTheArray) {
  CFitInput in;
  P out[3] = {P(1, 2, 3), P(4, 5, 6), P(7, 8, 9)};
  EXPECT_FALSE(in.GetFurthest3Points(out));
  EXPECT_EQ(out[0], P(1, 2, 3));
  EXPECT_EQ(out[1], P(4, 5, 6));
  EXPECT_EQ(out[2], P(7, 8, 9));
}

TEST(GetFurthest3Points, OnePointFillsAllThreeSlots) {
  CFitInput in = InputWith({P(1, 2, 3)});
  P out[3];
  EXPECT_FALSE(in.GetFurthest3Points(out));
  for (const P& p : out) EXPECT_EQ(p, P(1, 2, 3));
}

TEST(GetFurthest3Points, TwoPointsReturnFalseWithTheSecondRepeated) {
  CFitInput in = InputWith({P(1, 2, 3), P(-4, 0, 2)});
  P out[3];
  EXPECT_FALSE(in.GetFurthest3Points(out));
  EXPECT_EQ(out[0], P(1, 2, 3));
  EXPECT_EQ(out[1], P(-4, 0, 2));
  EXPECT_EQ(out[2], P(-4, 0, 2));
}

TEST(GetFurthest3Points, IdenticalPointsReturnFalse) {
  CFitInput in = InputWith({P(5, 5, 5), P(5, 5, 5), P(5, 5, 5), P(5, 5, 5)});
  P out[3];
  EXPECT_FALSE(in.GetFurthest3Points(out));
  // Passes that choose nothing leave their index at the first point.
  for (const P& p : out) EXPECT_EQ(p, P(5, 5, 5));
}

TEST(GetFurthest3Points, SelectsFarthestFromCentroidThenFromItThenFromBoth) {
  // Centroid (0, 0.2, 0): (-4, 0, 0) is farthest (16.04); farthest from it is (3, 0, 0) (49);
  // the largest sum of squared distances to both is (0, 2, 0) (20 + 13 = 33).
  CFitInput in = InputWith({P(1, 0, 0), P(-4, 0, 0), P(0, 2, 0), P(0, -1, 0), P(3, 0, 0)});
  P out[3];
  EXPECT_TRUE(in.GetFurthest3Points(out));
  EXPECT_EQ(out[0], P(-4, 0, 0));
  EXPECT_EQ(out[1], P(3, 0, 0));
  EXPECT_EQ(out[2], P(0, 2, 0));
}

TEST(GetFurthest3Points, FirstEndIsExchangedWhenTheSecondLiesFartherFromTheThird) {
  // Centroid (-1.5, 0, 0). Passes choose (3, -5), then (-5, 5) (164), then (-5, -5)
  // (64 + 100 = 164 against 140). (-5, 5) is 10 from (-5, -5) and (3, -5) only 8, so the
  // first two are exchanged.
  CFitInput in = InputWith({P(-5, -5, 0), P(-5, 5, 0), P(3, -5, 0), P(1, 5, 0)});
  P out[3];
  EXPECT_TRUE(in.GetFurthest3Points(out));
  EXPECT_EQ(out[0], P(-5, 5, 0));
  EXPECT_EQ(out[1], P(3, -5, 0));
  EXPECT_EQ(out[2], P(-5, -5, 0));
}

TEST(GetFurthest3Points, FirstOfEqualMaximaWins) {
  // Square about the origin plus its centre: all corners tie for the first pass.
  CFitInput in = InputWith({P(0, 0, 0), P(1, 1, 0), P(-1, 1, 0), P(-1, -1, 0), P(1, -1, 0)});
  P out[3];
  EXPECT_TRUE(in.GetFurthest3Points(out));
  // (1, 1) first; (-1, -1) is its only farthest; of the two remaining corners, tied at
  // 4 + 4, (-1, 1) comes first. Both ends are 2 from it, so no exchange.
  EXPECT_EQ(out[0], P(1, 1, 0));
  EXPECT_EQ(out[1], P(-1, -1, 0));
  EXPECT_EQ(out[2], P(-1, 1, 0));
}

TEST(GetFurthest3Points, ThirdPassSkipsPointsWithinFloatEpsilonOfTheFirstTwo) {
  // The first passes choose (-10, 0, 0) and (10.0003, 0, 0). (10, 0, 0) would score highest
  // for the third, but lies 9e-8 (squared) from the second and counts as the same point;
  // (0, 1, 0) is taken instead, and being nearer (-10, 0, 0) the two ends are exchanged.
  CFitInput in = InputWith({P(10, 0, 0), P(-10, 0, 0), P(10.0003, 0, 0), P(0, 1, 0)});
  P out[3];
  EXPECT_TRUE(in.GetFurthest3Points(out));
  EXPECT_EQ(out[0], P(10.0003, 0, 0));
  EXPECT_EQ(out[1], P(-10, 0, 0));
  EXPECT_EQ(out[2], P(0, 1, 0));

  // 4e-4 away (squared 1.6e-7) it is a point of its own and wins the third pass.
  CFitInput far = InputWith({P(10, 0, 0), P(-10, 0, 0), P(10.0004, 0, 0), P(0, 1, 0)});
  EXPECT_TRUE(far.GetFurthest3Points(out));
  EXPECT_EQ(out[0], P(-10, 0, 0));
  EXPECT_EQ(out[1], P(10.0004, 0, 0));
  EXPECT_EQ(out[2], P(10, 0, 0));
}

TEST(GetFurthest3Points, OnlyNearCoincidentCandidatesLeaveTheThirdPassEmpty) {
  CFitInput in = InputWith({P(10, 0, 0), P(-10, 0, 0), P(10.0001, 0, 0), P(-10, 0.0001, 0)});
  P out[3];
  EXPECT_FALSE(in.GetFurthest3Points(out));
}

TEST(GetFurthest3Points, ReferencePlaneProjectsACopyAndRestoresThePoints) {
  const std::vector<P> pts = {P(1, 0, 3), P(-4, 0, -2), P(0, 2, 7), P(0, -1, 1), P(3, 0, 0)};
  CFitInput in = InputWith(pts);
  in.m_useReference = true;
  in.m_refOrigin = P(0, 0, 5);
  in.m_refDirection = P(0, 0, 1);
  P out[3];
  EXPECT_TRUE(in.GetFurthest3Points(out));
  // Projected into z = 5, the points are those of the selection test above.
  EXPECT_EQ(out[0], P(-4, 0, 5));
  EXPECT_EQ(out[1], P(3, 0, 5));
  EXPECT_EQ(out[2], P(0, 2, 5));
  EXPECT_EQ(in.m_points, pts);
}

TEST(GetFurthest3Points, ReferenceDirectionIsUsedAsStored) {
  // D = (0, 0, 2), O = 0: p' = p - ((p . D) D) takes z to z - 4 z = -3 z.
  CFitInput in = InputWith({P(1, 0, 1), P(-4, 0, 1), P(0, 2, 1), P(0, -1, 1), P(3, 0, 1)});
  in.m_useReference = true;
  in.m_refDirection = P(0, 0, 2);
  P out[3];
  EXPECT_TRUE(in.GetFurthest3Points(out));
  for (const P& p : out) EXPECT_EQ(p.z, -3.0);
}

TEST(GetFurthest3Points, ReferencePlaneIsIgnoredForFewerThanThreePoints) {
  CFitInput in = InputWith({P(1, 2, 3), P(-4, 0, 2)});
  in.m_useReference = true;
  in.m_refOrigin = P(0, 0, 0);
  in.m_refDirection = P(0, 0, 1);
  P out[3];
  EXPECT_FALSE(in.GetFurthest3Points(out));
  EXPECT_EQ(out[0], P(1, 2, 3));
  EXPECT_EQ(out[2], P(-4, 0, 2));
}

}  // namespace
