#include "precise/point_stats.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "precise/pass_helpers.h"

namespace metrofit::precise {
namespace {

// Jacobi sweeps over the 3 x 3 matrix; convergence is quadratic, a handful suffice.
constexpr int kJacobiSweeps = 50;
// Relative rounding of one operation on doubles.
constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
// Bound on the rounding of an eigenvalue of the scatter, per unit of n eps times the sum of the
// squared offsets from the first point: the sums of n products (n - 1 roundings each), the
// subtraction of the mean, and the 3 x 3 norm.
constexpr double kScatterRoundoff = 3.0;
// Extra roundings beyond the n of the sums: the mean's subtraction and the Jacobi rotations.
constexpr double kScatterSlack = 8.0;
// An eigenvalue this many times its rounding bound gives a spread to a few per cent, plenty for
// the degeneracy tests (which ask for a spread above 1e-9 of the scale).
constexpr double kClearOfRounding = 16.0;

// Distances from the principal line and plane, point by point.
void MeasureSpreads(const double* xyz, std::size_t count, PointStats* st) {
  double line = 0.0, plane = 0.0;
  for (std::size_t k = 0; k < count; ++k) {
    const Vec3 d = Vec3(xyz[3 * k], xyz[3 * k + 1], xyz[3 * k + 2]) - st->centroid;
    const Vec3 across = d - st->direction[2] * d.Dot(st->direction[2]);
    const double h = d.Dot(st->direction[0]);
    line += across.Dot(across);
    plane += h * h;
  }
  const double n = static_cast<double>(count);
  st->lineSpread = std::sqrt(line / n);
  st->planeSpread = std::sqrt(plane / n);
}

}  // namespace

void SymmetricEigen3(const double m[3][3], double value[3], Vec3 vector[3]) {
  double a[3][3], v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  std::copy(&m[0][0], &m[0][0] + 9, &a[0][0]);
  for (int sweep = 0; sweep < kJacobiSweeps; ++sweep) {
    const double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
    if (off == 0.0) break;
    for (int p = 0; p < 2; ++p) {
      for (int q = p + 1; q < 3; ++q) {
        if (a[p][q] == 0.0) continue;
        const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
        const double t = (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::hypot(theta, 1.0));
        const double c = 1.0 / std::hypot(t, 1.0), s = t * c;
        for (int k = 0; k < 3; ++k) {
          const double akp = a[k][p], akq = a[k][q];
          a[k][p] = c * akp - s * akq;
          a[k][q] = s * akp + c * akq;
        }
        for (int k = 0; k < 3; ++k) {
          const double apk = a[p][k], aqk = a[q][k];
          a[p][k] = c * apk - s * aqk;
          a[q][k] = s * apk + c * aqk;
        }
        for (int k = 0; k < 3; ++k) {
          const double vkp = v[k][p], vkq = v[k][q];
          v[k][p] = c * vkp - s * vkq;
          v[k][q] = s * vkp + c * vkq;
        }
      }
    }
  }
  int order[3] = {0, 1, 2};
  std::sort(order, order + 3, [&](int i, int j) { return a[i][i] < a[j][j]; });
  for (int i = 0; i < 3; ++i) {
    const int k = order[i];
    value[i] = a[k][k];
    vector[i] = Vec3(v[0][k], v[1][k], v[2][k]);
    vector[i].Normalize();
  }
}

PointStats ComputeStats(const double* xyz, std::size_t count, SpreadRequest spreads) {
  PointStats st;
  // One pass of sums about the first point: near the data, so the centred scatter loses
  // nothing to the distance of the data from the origin. The sums are locals, in registers.
  const double o[3] = {xyz[0], xyz[1], xyz[2]};
  double s0 = 0, s1 = 0, s2 = 0, m00 = 0, m01 = 0, m02 = 0, m11 = 0, m12 = 0, m22 = 0;
  for (std::size_t k = 0; k < count; ++k) {
    PrefetchAhead(xyz, k, count);
    const double d0 = xyz[3 * k] - o[0], d1 = xyz[3 * k + 1] - o[1], d2 = xyz[3 * k + 2] - o[2];
    s0 += d0;
    m00 += d0 * d0;
    m01 += d0 * d1;
    m02 += d0 * d2;
    s1 += d1;
    m11 += d1 * d1;
    m12 += d1 * d2;
    s2 += d2;
    m22 += d2 * d2;
  }
  const double s[3] = {s0, s1, s2};
  double m[3][3] = {{m00, m01, m02}, {0.0, m11, m12}, {0.0, 0.0, m22}};
  const double offsets = m00 + m11 + m22;
  const double n = static_cast<double>(count);
  const double mean[3] = {s[0] / n, s[1] / n, s[2] / n};
  st.centroid = Vec3(o[0] + mean[0], o[1] + mean[1], o[2] + mean[2]);
  for (int i = 0; i < 3; ++i) {
    for (int j = i; j < 3; ++j) m[i][j] -= n * mean[i] * mean[j];
  }
  m[1][0] = m[0][1];
  m[2][0] = m[0][2];
  m[2][1] = m[1][2];
  SymmetricEigen3(m, st.eigenvalue, st.direction);
  st.scale = std::sqrt(std::max(0.0, (m[0][0] + m[1][1] + m[2][2]) / n));
  if (spreads.line || spreads.plane) {
    const double rounding = kScatterRoundoff * (n + kScatterSlack) * kEpsilon * offsets;
    const double line = st.eigenvalue[0] + st.eigenvalue[1], plane = st.eigenvalue[0];
    const bool clear = (!spreads.line || line >= kClearOfRounding * rounding) &&
                       (!spreads.plane || plane >= kClearOfRounding * rounding);
    if (clear && !spreads.alwaysMeasure) {
      st.lineSpread = spreads.line ? std::sqrt(line / n) : 0.0;
      st.planeSpread = spreads.plane ? std::sqrt(plane / n) : 0.0;
    } else {
      MeasureSpreads(xyz, count, &st);
      if (!spreads.line) st.lineSpread = 0.0;
      if (!spreads.plane) st.planeSpread = 0.0;
    }
  }
  return st;
}

bool SolveSmall(int n, double a[4][4], double b[4]) {
  for (int col = 0; col < n; ++col) {
    int piv = col;
    for (int r = col + 1; r < n; ++r) {
      if (std::fabs(a[r][col]) > std::fabs(a[piv][col])) piv = r;
    }
    if (a[piv][col] == 0.0 || !std::isfinite(a[piv][col])) return false;
    if (piv != col) {
      for (int k = 0; k < n; ++k) std::swap(a[piv][k], a[col][k]);
      std::swap(b[piv], b[col]);
    }
    for (int r = col + 1; r < n; ++r) {
      const double f = a[r][col] / a[col][col];
      for (int k = col; k < n; ++k) a[r][k] -= f * a[col][k];
      b[r] -= f * b[col];
    }
  }
  for (int r = n - 1; r >= 0; --r) {
    for (int k = r + 1; k < n; ++k) b[r] -= a[r][k] * b[k];
    b[r] /= a[r][r];
  }
  return true;
}

}  // namespace metrofit::precise
