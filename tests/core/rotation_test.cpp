#include <gtest/gtest.h>

#include <cmath>

#include "core/core_test_util.h"
#include "metrofit.h"

namespace {

using metrofit_test::AngleGap;
using metrofit_test::Close;
using metrofit_test::kPi;
using metrofit_test::kTwoPi;
using P = KPt3<double>;

void Rows(double a1, double a2, double a3, P rows[3]) {
  double m[9];
  ConvertAnglesToMatrix(a1, a2, a3, m);
  for (int r = 0; r < 3; ++r) rows[r] = P(m[3 * r], m[3 * r + 1], m[3 * r + 2]);
}

// Right-handed elementary rotations, multiplied independently of the library.
void Mul(const double a[3][3], const double b[3][3], double c[3][3]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      c[i][j] = 0.0;
      for (int k = 0; k < 3; ++k) c[i][j] += a[i][k] * b[k][j];
    }
}

void TransposeOfRxRyRz(double a1, double a2, double a3, double out[3][3]) {
  const double c1 = std::cos(a1), s1 = std::sin(a1), c2 = std::cos(a2), s2 = std::sin(a2);
  const double c3 = std::cos(a3), s3 = std::sin(a3);
  const double rx[3][3] = {{1, 0, 0}, {0, c1, -s1}, {0, s1, c1}};
  const double ry[3][3] = {{c2, 0, s2}, {0, 1, 0}, {-s2, 0, c2}};
  const double rz[3][3] = {{c3, -s3, 0}, {s3, c3, 0}, {0, 0, 1}};
  double t[3][3], r[3][3];
  Mul(rx, ry, t);
  Mul(t, rz, r);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) out[i][j] = r[j][i];
}

TEST(Rotation, IdentityGivesZeroAngles) {
  P rows[3] = {P(1, 0, 0), P(0, 1, 0), P(0, 0, 1)};
  double a1 = -1, a2 = -1, a3 = -1;
  ConvertMatrixTo3Angles(rows, &a1, &a2, &a3);
  EXPECT_EQ(a1, 0.0);
  EXPECT_EQ(a2, 0.0);
  EXPECT_EQ(a3, 0.0);
}

TEST(Rotation, NegativeAnglesComeBackWrappedIntoZeroToTwoPi) {
  P rows[3];
  Rows(-0.1, 0.2, -0.3, rows);
  double a1, a2, a3;
  ConvertMatrixTo3Angles(rows, &a1, &a2, &a3);
  EXPECT_TRUE(Close(a1, kTwoPi - 0.1, 1e-14));
  EXPECT_TRUE(Close(a2, 0.2, 1e-14));
  EXPECT_TRUE(Close(a3, kTwoPi - 0.3, 1e-14));
}

// Gimbal lock is not special-cased: a1 and a3 come from atan2 of signed zeros.
TEST(Rotation, AxisAlongXGivesQuarterTurnAndSignOfZeroAngles) {
  P rows[3] = {P(0, 1, 0), P(0, 0, 1), P(1, 0, 0)};
  double a1, a2, a3;
  ConvertMatrixTo3Angles(rows, &a1, &a2, &a3);
  EXPECT_EQ(a2, kPi / 2);
  EXPECT_EQ(a1, 0.0);  // atan2(-0.0, 0.0) = -0.0, which wrapping leaves alone
  EXPECT_TRUE(std::signbit(a1));
  EXPECT_EQ(a3, 0.0);

  P flipped[3] = {P(0, 1, 0), P(0, 0, 1), P(1, 0, -0.0)};
  ConvertMatrixTo3Angles(flipped, &a1, &a2, &a3);
  EXPECT_EQ(a1, kPi);  // atan2(-0.0, -0.0) = -pi, wrapped to pi
  EXPECT_EQ(a2, kPi / 2);
}

// A |m[2].x| above 1 by rounding is not clamped: a2 becomes NaN, no error is raised.
TEST(Rotation, AxisComponentAboveOneGivesNaNSecondAngle) {
  P rows[3] = {P(0, 1, 0), P(0, 0, 1), P(1.0 + 4.440892098500626e-16, 0, 0)};
  double a1, a2, a3;
  ConvertMatrixTo3Angles(rows, &a1, &a2, &a3);
  EXPECT_TRUE(std::isnan(a2));
  EXPECT_FALSE(std::isnan(a1));
}

TEST(Rotation, MatrixIsTransposeOfRxRyRz) {
  metrofit_test::Rng rng(11);
  for (int t = 0; t < 50; ++t) {
    const double a1 = rng.Uniform(-7, 7), a2 = rng.Uniform(-7, 7), a3 = rng.Uniform(-7, 7);
    double expect[3][3];
    TransposeOfRxRyRz(a1, a2, a3, expect);
    double m9[9];
    ConvertAnglesToMatrix(a1, a2, a3, m9);
    double** m = mCreateMatrix(3, 3);
    ASSERT_NE(m, nullptr);
    ConvertAnglesToMatrix(a1, a2, a3, m);
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        EXPECT_NEAR(m9[3 * i + j], expect[i][j], 1e-15);
        EXPECT_EQ(m[i][j], m9[3 * i + j]);  // both forms hold the same numbers
      }
    mFreeMatrix(&m, 3);
  }
}

TEST(Rotation, RowTwoIsTheAxisAndIndependentOfThirdAngle) {
  P rows[3];
  Rows(0, 0, 0, rows);
  EXPECT_EQ(rows[2], P(0, 0, 1));
  const double a1 = 0.7, a2 = -0.4;
  const P axis(std::sin(a2), -std::cos(a2) * std::sin(a1), std::cos(a2) * std::cos(a1));
  for (double a3 : {0.0, 1.0, 2.5, -3.0}) {
    Rows(a1, a2, a3, rows);
    EXPECT_EQ(rows[2], axis);
    EXPECT_NEAR(rows[0].Dot(axis), 0.0, 1e-15);
    EXPECT_NEAR(rows[1].Dot(axis), 0.0, 1e-15);
  }
}

// a2 in [0, pi/2) or (3 pi/2, 2 pi): every angle comes back modulo 2 pi.
TEST(Rotation, AnglesRoundTripThroughMatrix) {
  metrofit_test::Rng rng(12);
  for (int t = 0; t < 200; ++t) {
    const double a1 = rng.Uniform(0, kTwoPi), a3 = rng.Uniform(0, kTwoPi);
    const double a2 = rng.Uniform(-1.5, 1.5);
    P rows[3];
    Rows(a1, a2, a3, rows);
    double b1, b2, b3;
    ConvertMatrixTo3Angles(rows, &b1, &b2, &b3);
    for (double b : {b1, b2, b3}) {
      EXPECT_GE(b, 0.0);
      EXPECT_LT(b, kTwoPi);
    }
    EXPECT_LT(AngleGap(a1, b1), 1e-12);
    EXPECT_LT(AngleGap(a2, b2), 1e-12);
    EXPECT_LT(AngleGap(a3, b3), 1e-12);
  }
}

}  // namespace
