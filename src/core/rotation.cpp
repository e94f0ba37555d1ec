// Rotation convention. R(a1, a2, a3) is the transpose of Rx(a1) Ry(a2) Rz(a3):
//
//   row 0: ( c3 c2,  s2 s1 c3 + s3 c1,  s3 s1 - s2 c1 c3)
//   row 1: (-s3 c2,  c3 c1 - s2 s1 s3,  s2 c1 s3 + c3 s1)
//   row 2: ( s2,    -c2 s1,             c2 c1)
//
// Row 2 is the feature axis; rows 0 and 1 span the plane across it and a3 turns them about it.
#include <cmath>

#include "metrofit.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;

// Angles are stored in [0, 2 pi): one addition for a negative value, then one subtraction.
double WrapAngle(double a) {
  if (a < 0.0) a += kTwoPi;
  if (a >= kTwoPi) a -= kTwoPi;
  return a;
}

void AnglesToRows(double a1, double a2, double a3, double r[3][3]) {
  const double s1 = std::sin(a1), c1 = std::cos(a1);
  const double s2 = std::sin(a2), c2 = std::cos(a2);
  const double s3 = std::sin(a3), c3 = std::cos(a3);
  r[0][0] = c3 * c2;
  r[0][1] = s2 * s1 * c3 + s3 * c1;
  r[0][2] = s3 * s1 - s2 * c1 * c3;
  r[1][0] = -s3 * c2;
  r[1][1] = c3 * c1 - s2 * s1 * s3;
  r[1][2] = s2 * c1 * s3 + c3 * s1;
  r[2][0] = s2;
  r[2][1] = -c2 * s1;
  r[2][2] = c2 * c1;
}

}  // namespace

void ConvertAnglesToMatrix(double a1, double a2, double a3, double* m9) {
  double r[3][3];
  AnglesToRows(a1, a2, a3, r);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) m9[3 * i + j] = r[i][j];
}

void ConvertAnglesToMatrix(double a1, double a2, double a3, double** m) {
  double r[3][3];
  AnglesToRows(a1, a2, a3, r);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) m[i][j] = r[i][j];
}

// No special case for gimbal lock: with |m[2].x| = 1 the angles are what atan2 makes of the
// (near-)zero entries, and a |m[2].x| above 1 by rounding gives a NaN a2, unclamped.
void ConvertMatrixTo3Angles(KPt3<double>* const m, double* a1, double* a2, double* a3) {
  *a1 = WrapAngle(std::atan2(-m[2].y, m[2].z));
  *a2 = WrapAngle(std::atan2(m[2].x, std::sqrt(1.0 - m[2].x * m[2].x)));
  *a3 = WrapAngle(std::atan2(-m[1].x, m[0].x));
}
