// The engine's pass for shapes whose conditions are affine in the point (line, plane): the
// sums of a pass come from the point moments in O(1), after one gathering pass per fit.
//
// Per condition k the shape gives, at the current parameters,
//   A_k(p) = C_k + L_k.(p - o),   w_k(p) = w0_k + W_k.(p - o),   B_k constant,
// so that with M^-1 = (B Q B^T)^-1 (the same for every point) and the moments of
// point_moments.h
//   N[a][b]   = sum_kl M^-1_kl (n A_k(m)[a] A_l(m)[b] + L_ka^T S L_lb)
//   u[a]      = sum_kl M^-1_kl (n A_k(m)[a] w_l(m)    + L_ka^T S W_l)
//   objective = sum_kl M^-1_kl (n w_k(m) w_l(m)       + W_k^T S W_l),
// the sums a pass over every point would give, up to rounding. The residual pass still visits
// every point: each needs its own residual vector.
#ifndef METROFIT_LSQ_MOMENT_PASS_H
#define METROFIT_LSQ_MOMENT_PASS_H

#include "lsq/point_moments.h"
#include "lsq/point_pass.h"

namespace metrofit {

template <int m, int n>
struct AffineRows {
  double B[m][3];
  double C[m][n];
  KPt3<double> L[m][n];
  double w0[m];
  KPt3<double> W[m];
};

template <class Shape>
struct MomentPass {
  static constexpr int m = Shape::kEngine.conditions;
  static constexpr int n = Shape::kEngine.parameters;

  static void Accumulate(PassContext& ctx, NormalSums& sums) {
    const typename Shape::Frame frame(ctx.res);
    PointMoments& moments = *ctx.moments;
    if (!moments.ready) {
      // The frame of the start orientation: close to the part's own for a good start.
      const KPt3<double> rows[3] = {frame.e1, frame.e2, frame.u};
      moments.Collect(ctx.in.m_points, rows);
    }
    AffineRows<m, n> rows;
    Shape::Affine(frame, ctx.res, rows);
    double M[m][m];
    PointWeight<m>(rows.B, M);
    InvertInPlace<m>(M);

    // Values at the mean, and the linear parts in the moments' frame.
    const KPt3<double> dm = moments.mean - Shape::Origin(ctx.res);
    double Am[m][n], wm[m];
    KPt3<double> AL[m][n], WL[m];
    for (int k = 0; k < m; ++k) {
      for (int a = 0; a < n; ++a) {
        Am[k][a] = rows.C[k][a] + rows.L[k][a].Dot(dm);
        AL[k][a] = moments.InFrame(rows.L[k][a]);
      }
      wm[k] = rows.w0[k] + rows.W[k].Dot(dm);
      WL[k] = moments.InFrame(rows.W[k]);
    }

    const double count = static_cast<double>(moments.count);
    for (int a = 0; a < n; ++a) {
      for (int b = a; b < n; ++b) {
        double s = 0.0;
        for (int k = 0; k < m; ++k)
          for (int l = 0; l < m; ++l)
            s += M[k][l] * (count * Am[k][a] * Am[l][b] + moments.Quadratic(AL[k][a], AL[l][b]));
        sums.N[a][b] = sums.N[b][a] = s;
      }
      double s = 0.0;
      for (int k = 0; k < m; ++k)
        for (int l = 0; l < m; ++l)
          s += M[k][l] * (count * Am[k][a] * wm[l] + moments.Quadratic(AL[k][a], WL[l]));
      sums.u[a] = s;
    }
    if (moments.count == 0) {
      sums.objective = 0.0;  // no point contributed anything
    } else if (ctx.noRedundancy) {
      sums.objective = kNoRedundancyVarianceFactor;
    } else {
      double s = 0.0;
      for (int k = 0; k < m; ++k)
        for (int l = 0; l < m; ++l)
          s += M[k][l] * (count * wm[k] * wm[l] + moments.Quadratic(WL[k], WL[l]));
      sums.objective = s;
    }
  }

  // B, and so M, is the same at every point: M^-1 is formed once, and each point needs only
  // its misclosures, w_k = w0_k + W_k.(p - o).
  static ResidualSums Residuals(PassContext& ctx) {
    const typename Shape::Frame frame(ctx.res);
    AffineRows<m, n> rows;
    Shape::Affine(frame, ctx.res, rows);
    double M[m][m];
    PointWeight<m>(rows.B, M);
    InvertInPlace<m>(M);
    const KPt3<double> origin = Shape::Origin(ctx.res);
    const auto& points = ctx.in.m_points;
    auto& out = ctx.res.m_deviations;
    if (ctx.appendDeviations) out.reserve(out.size() + points.size());
    ResidualSums sums;
    for (const KPt3<double>& p : points) {
      const KPt3<double> d = p - origin;
      double w[m];
      for (int k = 0; k < m; ++k) w[k] = rows.w0[k] + rows.W[k].Dot(d);
      const KPt3<double> v = Residual<m>(rows.B, M, w);
      sums.Add(v);
      if (ctx.appendDeviations) out.push_back(v);
    }
    sums.Finish();
    return sums;
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_MOMENT_PASS_H
