// The moving frame of a feature during the precise fits: a centre, an orthonormal frame
// (e1, e2, u) with u the axis or normal, and up to two sizes. Updates are local: a shift of the
// centre in the frame and a small rotation of the frame about its own axes.
#ifndef METROFIT_PRECISE_LOCAL_FRAME_H
#define METROFIT_PRECISE_LOCAL_FRAME_H

#include <cstddef>

#include "precise/precise_fit.h"

namespace metrofit::precise {

// Indices of the local update parameters.
enum LocalIndex : int {
  kShiftX = 0,
  kShiftY = 1,
  kShiftZ = 2,
  kTurnX = 3,
  kTurnY = 4,
  kTurnZ = 5,
  kSize0 = 6,
  kSize1 = 7,
};
constexpr int kLocalCount = 8;

struct State {
  Vec3 c;
  Vec3 e1{1.0, 0.0, 0.0};
  Vec3 e2{0.0, 1.0, 0.0};
  Vec3 u{0.0, 0.0, 1.0};
  double size[2] = {0.0, 0.0};
  // Probe radius: the points lie this far outside the part surface the state describes.
  double offset = 0.0;
};

// Local coordinates (q1, q2, h) of p.
inline void ToLocal(const State& s, const double* p, double q[3]) {
  const double dx = p[0] - s.c.x, dy = p[1] - s.c.y, dz = p[2] - s.c.z;
  q[0] = s.e1.x * dx + s.e1.y * dy + s.e1.z * dz;
  q[1] = s.e2.x * dx + s.e2.y * dy + s.e2.z * dz;
  q[2] = s.u.x * dx + s.u.y * dy + s.u.z * dz;
}

// World vector of local components.
inline Vec3 ToWorld(const State& s, double a, double b, double h) {
  return s.e1 * a + s.e2 * b + s.u * h;
}

// A frame with the given (unit) axis and a deterministic pair of directions across it.
State FrameAround(const Vec3& centre, const Vec3& axis);

// The state moved by the local update x (kLocalCount values): c' = c + R delta,
// R' = R exp([omega]x) (exact Rodrigues, re-orthonormalised), sizes incremented.
State Moved(const State& s, const double* x);

// Writes into row[0..5] the derivatives of a distance D(q) with gradient g = dD/dq with respect
// to the local shift and rotation (dq/d delta = -I, dq/d omega = -[omega]x q).
inline void ChainRow(const double g[3], const double q[3], double* row) {
  row[kShiftX] = -g[0];
  row[kShiftY] = -g[1];
  row[kShiftZ] = -g[2];
  row[kTurnX] = g[1] * q[2] - g[2] * q[1];
  row[kTurnY] = g[2] * q[0] - g[0] * q[2];
  row[kTurnZ] = g[0] * q[1] - g[1] * q[0];
}

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_LOCAL_FRAME_H
