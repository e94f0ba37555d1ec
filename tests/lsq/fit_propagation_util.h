// Noise-propagated bounds and stationarity checks for least-squares fits described in the
// engine's own parameters (centre, angles a and b, sizes; see ParamsOf in lsq_test_util.h).
//
// The residuals are the distances of Residuals in lsq_test_util.h: orthogonal distances for
// the distance-type shapes and first-order distances f / |grad_p f| for the algebraic
// conditions, which the engine minimises to first order. Their Jacobian with respect to the
// free engine parameters, at the generating parameters and the exact surface points, gives
// C = (J^T J)^-1; a fit of the points moved by noise of standard deviation sigma along the
// surface normals lies within k sigma sqrt(trace C_block) of the generating parameters (see
// support/noise_propagation.h).
// The orientation is compared as the angle between the axes, whose variance is
// trace(G C_ab G^T), G = du/d(a, b) the derivative of the axis by the free angles.
#ifndef METROFIT_TESTS_LSQ_FIT_PROPAGATION_UTIL_H
#define METROFIT_TESTS_LSQ_FIT_PROPAGATION_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "lsq_test_util.h"
#include "metrofit.h"
#include "support/noise_propagation.h"

namespace lsq_test {

using metrofit::testing::DenseMatrix;

// Central-difference steps: angles in radians, every other parameter relative to its size
// (at least 1 mm). Both keep truncation and rounding of the derivatives near 1e-9 relative.
constexpr double kAngleStep = 1e-7;
constexpr double kRelativeStep = 1e-6;

inline bool IsEngineAngle(int type, int j) {
  return type == FIT_PLANE ? j < 2 : (type != FIT_SPHERE && (j == 3 || j == 4));
}

inline double StepFor(int type, int j, double value) {
  return IsEngineAngle(type, j) ? kAngleStep : kRelativeStep * std::max(1.0, std::fabs(value));
}

// Jacobian of the stacked residuals of the points with respect to every engine parameter at x
// (one-condition shapes).
inline DenseMatrix EngineJacobian(int type, const std::vector<double>& x,
                                  const std::vector<Pt>& pts) {
  const int n = static_cast<int>(x.size());
  DenseMatrix j(static_cast<int>(pts.size()), n);
  for (int q = 0; q < n; ++q) {
    const double h = StepFor(type, q, x[static_cast<std::size_t>(q)]);
    std::vector<double> xp = x, xm = x;
    xp[static_cast<std::size_t>(q)] += h;
    xm[static_cast<std::size_t>(q)] -= h;
    for (std::size_t i = 0; i < pts.size(); ++i) {
      double rp[2], rm[2];
      Residuals(type, xp, pts[i], rp);
      Residuals(type, xm, pts[i], rm);
      j(static_cast<int>(i), q) =
          (rp[0] - rm[0]) / (xp[static_cast<std::size_t>(q)] - xm[static_cast<std::size_t>(q)]);
    }
  }
  return j;
}

// One-sigma spreads (per unit of residual noise) of the centre, the axis direction and each
// free size parameter.
struct Spreads {
  double centre = 0.0;        // mm per mm of noise
  double axis = 0.0;          // rad per mm of noise
  std::vector<double> sizes;  // per engine index 5, 6, ...; 0 for held sizes
  bool valid = false;         // false when J^T J is singular over the free parameters
};

inline Spreads SpreadsAt(int type, const std::vector<double>& x, const std::vector<Pt>& feet,
                         const std::vector<int>& held) {
  Spreads s;
  std::vector<int> freeCols;
  for (int q = 0; q < static_cast<int>(x.size()); ++q) {
    if (std::find(held.begin(), held.end(), q) == held.end()) freeCols.push_back(q);
  }
  const DenseMatrix c = metrofit::testing::NormalInverse(EngineJacobian(type, x, feet), freeCols);
  if (c.rows == 0) return s;
  s.valid = true;
  auto pos = [&](int q) {
    const auto it = std::find(freeCols.begin(), freeCols.end(), q);
    return it == freeCols.end() ? -1 : static_cast<int>(it - freeCols.begin());
  };
  std::vector<int> centre;
  for (int q = 0; q < 3; ++q) {
    if (pos(q) >= 0) centre.push_back(pos(q));
  }
  s.centre = metrofit::testing::RootTrace(c, centre);
  // G = du/d(a, b): du/da = (0, -cos a cos b, -sin a cos b), du/db = (cos b, sin a sin b,
  // -cos a sin b). Variance of the axis angle: trace(G C_ab G^T) = sum_pq (g_p . g_q) C_pq.
  const double a = x[3], b = x[4];
  const Pt g[2] = {Pt(0.0, -std::cos(a) * std::cos(b), -std::sin(a) * std::cos(b)),
                   Pt(std::cos(b), std::sin(a) * std::sin(b), -std::cos(a) * std::sin(b))};
  double var = 0.0;
  for (int p = 0; p < 2; ++p) {
    for (int q = 0; q < 2; ++q) {
      if (pos(3 + p) >= 0 && pos(3 + q) >= 0) var += g[p].Dot(g[q]) * c(pos(3 + p), pos(3 + q));
    }
  }
  s.axis = std::sqrt(std::max(0.0, var));
  for (int q = 5; q < static_cast<int>(x.size()); ++q) {
    s.sizes.push_back(pos(q) >= 0 ? std::sqrt(c(pos(q), pos(q))) : 0.0);
  }
  return s;
}

// Length of grad_p f of the condition f at point p for parameters x: what turns the algebraic
// conditions of the paraboloid, the cone and the ellipse into first-order distances (1 for
// the distance-type shapes).
inline double ConditionGradientLength(int type, const std::vector<double>& x, const Pt& p) {
  if (type == FIT_CONE) return std::sqrt(1.0 + x[5] * x[5]);
  if (type != FIT_PARABOLOID && type != FIT_ELLIPSE) return 1.0;
  const auto fr = FrameOf(x[3], x[4]);
  const Pt d = p - Pt(x[0], x[1], x[2]);
  const double q1 = d.Dot(fr.e1), q2 = d.Dot(fr.e2), h = d.Dot(fr.u);
  const double rho2 = q1 * q1 + q2 * q2;
  if (type == FIT_PARABOLOID) return std::sqrt(rho2 / (4.0 * x[5] * x[5]) + 1.0);
  const double a2 = x[5] * x[5], b2 = x[6] * x[6];
  return std::sqrt((h * h / (a2 * a2) + rho2 / (b2 * b2)) / (h * h / a2 + rho2 / b2));
}

// The engine's fixed point. A Gauss-Helmert step solves sum A^T M^-1 A dx = sum A^T M^-1 w with
// A = df/dx, M = B Q B^T = 1e-6 g^2 (g = |grad_p f| at the point) and w = -f; it stops moving
// where sum (df_i/dx) f_i / g_i^2 = 0: the gradient of sum f_i^2 / g_i^2 with the weights g_i
// held. For the distance-type shapes (g = 1) that is the least-squares orthogonal distance
// fit; for the algebraic conditions it differs from the minimum of the squared first-order
// distances by terms of second order in the residuals (for the cone, g = sqrt(1 + k^2) depends
// on the slope, which biases it by O(noise^2)).
//
// Checked as the cosine between the weighted residuals f_i / g_i and each free parameter's
// column (df_i/dx_q) / g_i (central differences): 0 at the fixed point; the engine's
// relative-change test (1e-6) leaves at most about sqrt(1e-6) = 1e-3; an unfitted shape gives
// values of order 1 / sqrt(points).
constexpr double kStationaryCosine = 1e-3;

inline void ExpectStationaryAt(int type, const std::vector<double>& x, const std::vector<Pt>& pts,
                               const std::vector<int>& held = {}) {
  std::vector<double> res, g;
  for (const Pt& p : pts) {
    double f[2];
    Conditions(type, x, p, f);
    g.push_back(ConditionGradientLength(type, x, p));
    res.push_back(f[0] / g.back());
  }
  const double resNorm = metrofit::testing::Norm2(res);
  ASSERT_GT(resNorm, 0.0);
  for (int q = 0; q < static_cast<int>(x.size()); ++q) {
    if (std::find(held.begin(), held.end(), q) != held.end()) continue;
    const double h = StepFor(type, q, x[static_cast<std::size_t>(q)]);
    std::vector<double> xp = x, xm = x;
    xp[static_cast<std::size_t>(q)] += h;
    xm[static_cast<std::size_t>(q)] -= h;
    double dot = 0.0, col = 0.0;
    for (std::size_t i = 0; i < pts.size(); ++i) {
      double fp[2], fm[2];
      Conditions(type, xp, pts[i], fp);
      Conditions(type, xm, pts[i], fm);
      const double c = (fp[0] - fm[0]) /
                       (xp[static_cast<std::size_t>(q)] - xm[static_cast<std::size_t>(q)]) / g[i];
      dot += c * res[i];
      col += c * c;
    }
    EXPECT_LT(std::fabs(dot) / (std::sqrt(col) * resNorm), kStationaryCosine) << "parameter " << q;
  }
}

// Axis of the angles (a, b): row 2 of their rotation.
inline Pt AxisOfAngles(double a, double b) {
  return FrameOf(a, b).u;
}

}  // namespace lsq_test

#endif  // METROFIT_TESTS_LSQ_FIT_PROPAGATION_UTIL_H
