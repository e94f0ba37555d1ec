#include "precise/local_frame.h"

#include <cmath>

namespace metrofit::precise {
namespace {

// Below this rotation angle (rad) the Rodrigues coefficients use their series.
constexpr double kSmallTurn = 1e-8;

Vec3 Unit(Vec3 v) {
  return v.Normalize();
}

}  // namespace

State FrameAround(const Vec3& centre, const Vec3& axis) {
  State s;
  s.c = centre;
  s.u = Unit(axis);
  // Start e1 from the coordinate axis least aligned with u.
  const double ax = std::fabs(s.u.x), ay = std::fabs(s.u.y), az = std::fabs(s.u.z);
  Vec3 seed = (ax <= ay && ax <= az) ? Vec3(1, 0, 0) : (ay <= az ? Vec3(0, 1, 0) : Vec3(0, 0, 1));
  s.e1 = Unit(seed - s.u * s.u.Dot(seed));
  s.e2 = s.u.Cross(s.e1);
  return s;
}

State Moved(const State& s, const double* x) {
  State m = s;
  m.c = s.c + ToWorld(s, x[kShiftX], x[kShiftY], x[kShiftZ]);
  const double w[3] = {x[kTurnX], x[kTurnY], x[kTurnZ]};
  const double t2 = w[0] * w[0] + w[1] * w[1] + w[2] * w[2];
  const double t = std::sqrt(t2);
  const double a = t < kSmallTurn ? 1.0 - t2 / 6.0 : std::sin(t) / t;
  const double b = t < kSmallTurn ? 0.5 - t2 / 24.0 : (1.0 - std::cos(t)) / t2;
  // Columns of exp([w]x) = I + a [w]x + b [w]x^2.
  double e[3][3];
  for (int j = 0; j < 3; ++j) {
    for (int i = 0; i < 3; ++i)
      e[i][j] = (i == j ? 1.0 : 0.0) + b * (w[i] * w[j] - (i == j ? t2 : 0.0));
  }
  e[1][0] += a * w[2];
  e[2][0] -= a * w[1];
  e[0][1] -= a * w[2];
  e[2][1] += a * w[0];
  e[0][2] += a * w[1];
  e[1][2] -= a * w[0];
  Vec3 n1 = ToWorld(s, e[0][0], e[1][0], e[2][0]);
  Vec3 nu = Unit(ToWorld(s, e[0][2], e[1][2], e[2][2]));
  m.u = nu;
  m.e1 = Unit(n1 - nu * nu.Dot(n1));
  m.e2 = nu.Cross(m.e1);
  m.size[0] = s.size[0] + x[kSize0];
  m.size[1] = s.size[1] + x[kSize1];
  return m;
}

}  // namespace metrofit::precise
