// Count, mean and centred second moments of a point set, for conditions linear in the point.
//
// The line's and the plane's conditions, and their derivatives, are affine in the point, so the
// sums of one Gauss-Newton pass depend on the points only through
//   n,   m = mean of p,   S = sum (p - m)(p - m)^T:
// with f(p) = f0 + F.(p - o) and g(p) = g0 + G.(p - o),
//   sum f g = n f(m) g(m) + F^T S G.
// The quadratic forms F^T S G are where digits get lost: for a flat part S has two large and
// one tiny eigenvalue, and the misclosures live in the tiny one. S is therefore kept in a frame
// near the part's own (the start orientation of the fit), where the across-part moment is
// accumulated directly rather than recovered from the cancellation of large terms, and the
// points are taken relative to one of them so that parts far from the origin lose no digits.
#ifndef METROFIT_LSQ_POINT_MOMENTS_H
#define METROFIT_LSQ_POINT_MOMENTS_H

#include <cstddef>
#include <vector>

#include "metrofit.h"

namespace metrofit {

struct PointMoments {
  bool ready = false;
  std::size_t count = 0;
  KPt3<double> mean;
  KPt3<double> frame[3];  // orthonormal rows: the frame S is kept in
  double S[3][3] = {};    // centred scatter in frame coordinates

  // One pass over the points; `frame` rows orthonormal (any frame gives the same sums, one
  // close to the part's own keeps the most digits).
  void Collect(const std::vector<KPt3<double>>& points, const KPt3<double> (&rows)[3]);

  // A world vector in frame coordinates.
  KPt3<double> InFrame(const KPt3<double>& v) const {
    return KPt3<double>(frame[0].Dot(v), frame[1].Dot(v), frame[2].Dot(v));
  }

  // F^T S G for vectors already in frame coordinates.
  double Quadratic(const KPt3<double>& f, const KPt3<double>& g) const {
    const double sg0 = S[0][0] * g.x + S[0][1] * g.y + S[0][2] * g.z;
    const double sg1 = S[1][0] * g.x + S[1][1] * g.y + S[1][2] * g.z;
    const double sg2 = S[2][0] * g.x + S[2][1] * g.y + S[2][2] * g.z;
    return f.x * sg0 + f.y * sg1 + f.z * sg2;
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_POINT_MOMENTS_H
