#include <gtest/gtest.h>

#include <cmath>

#include "core/core_test_util.h"
#include "metrofit.h"

namespace {

using metrofit_test::Close;
using P = KPt3<double>;

TEST(Vector, DefaultIsOrigin) {
  const P p;
  EXPECT_EQ(p, P(0, 0, 0));
}

TEST(Vector, NormalizeOfZeroStaysZero) {
  P v(0, 0, 0);
  const P& r = v.Normalize();
  EXPECT_EQ(&r, &v);
  EXPECT_EQ(v, P(0, 0, 0));
  P w(0, 0, 0);
  EXPECT_EQ(Normalize(w), P(0, 0, 0));
}

// 1e-300 squared underflows; the direction must still come out.
TEST(Vector, NormalizeOfTinyVectorGivesUnitVector) {
  P v(0, 0, 1e-300);
  v.Normalize();
  EXPECT_EQ(v, P(0, 0, 1));
}

TEST(Vector, LengthOfHugeVectorDoesNotOverflow) {
  const P v(3e200, 4e200, 0);
  EXPECT_TRUE(Close(v.Length(), 5e200, 1e-15));
  P w = v;
  w.Normalize();
  EXPECT_TRUE(Close(w, P(0.6, 0.8, 0), 1e-15));
}

TEST(Vector, DotCrossAndArithmetic) {
  const P a(1, 2, 3), b(-4, 5, 0.5);
  EXPECT_EQ(Dot(a, b), -4.0 + 10.0 + 1.5);
  EXPECT_EQ(Cross(a, b), P(2 * 0.5 - 3 * 5, 3 * -4 - 1 * 0.5, 1 * 5 - 2 * -4));
  EXPECT_EQ(Cross(P(1, 0, 0), P(0, 1, 0)), P(0, 0, 1));  // right-handed
  EXPECT_EQ(a + b, P(-3, 7, 3.5));
  EXPECT_EQ(a - b, P(5, -3, 2.5));
  EXPECT_EQ(2.0 * a, P(2, 4, 6));
  EXPECT_EQ(a * 2.0, P(2, 4, 6));
  EXPECT_EQ(-a, P(-1, -2, -3));
  EXPECT_EQ(Length(P(2, 3, 6)), 7.0);
}

TEST(Vector, LineParameterOfCoincidentPointsIsZero) {
  const P a(1, 2, 3);
  EXPECT_EQ(LineParameter(a, a, P(5, 5, 5)), 0.0);
  // A squared distance at the tolerance still counts as coincident.
  EXPECT_EQ(LineParameter(P(0, 0, 0), P(1e-8, 0, 0), P(1, 0, 0)), 0.0);
}

TEST(Vector, LineParameterGivesFootOfPerpendicular) {
  EXPECT_EQ(LineParameter(P(0, 0, 0), P(2, 0, 0), P(1, 5, 0)), 0.5);
  EXPECT_EQ(LineParameter(P(1, 1, 1), P(1, 1, 3), P(7, -2, 0)), -0.5);
}

}  // namespace
