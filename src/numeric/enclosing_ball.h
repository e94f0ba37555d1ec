// Smallest enclosing ball of a point set by the pivoting walk of Fischer, Gaertner and Kutz.
//
// Invariant: the ball B(c, r) holds every point and the support set S lies on its boundary, so
// c is equidistant from S and c - cc(S) is orthogonal to aff(S), cc(S) being the circumcentre
// of S within its affine hull. Each step:
//   - if c lies in aff(S) (c = cc(S) up to the tolerance) and its affine coefficients with
//     respect to S are all >= 0, c lies in conv(S) and the ball is the smallest: done;
//     a negative coefficient marks a point that holds the ball too large: it leaves S;
//   - otherwise walk c towards cc(S) along d = cc(S) - c. A point p outside S reaches the
//     boundary at lambda_p = ((s + p)/2 - c).(s - p) / (d.(s - p)), s in S, when d.(s - p) > 0;
//     the first such point (smallest lambda_p < 1) stops the walk and enters S, otherwise c
//     reaches cc(S).
// Because c is equidistant from S, cc(S) is the orthogonal projection of c onto aff(S):
// s0 + sum a_i (s_i - s0) with G a = b, G_ij = (s_i - s0).(s_j - s0), b_i = (s_i - s0).(c - s0),
// solved by Cholesky; an affinely dependent S fails the factorisation and its most recently
// added point is dropped. At most 4 points (3 in the plane) are ever in S.
// Stopping only when c reaches cc(S) without the coefficient test would leave an obtuse
// support simplex holding a ball that is too large; the drop step is what makes it smallest.
#ifndef METROFIT_NUMERIC_ENCLOSING_BALL_H
#define METROFIT_NUMERIC_ENCLOSING_BALL_H

#include <cstdint>

#include "numeric/nvector.h"

namespace metrofit::numeric {

// Smallest ball holding the points: x[0..2] = centre, x[3] = radius (the distance from the
// centre to the first support point). Returns kOk, kIterationLimit when the walk needs more than
// maxIter pivot steps (0 = no limit; centre and radius are written all the same), kBadArguments
// without points or when x has fewer than 4 elements, kAllocationFailure when the Gram system
// cannot be allocated.
//   tol     relative tolerance |c - cc(S)| <= tol r for "the centre has reached the
//           circumcentre" (the radius then differs from the smallest by O(tol^2 r)); a step
//           below 1e-14 of the larger of r and the centre's coordinates always counts as
//           reached, so rounding cannot keep the walk going.
//   planar  the points lie in the plane z = 0: the walk uses x and y only, writes centre z = 0
//           and needs at most three support points.
// *accuracy (may be null) receives the machine epsilon, the relative accuracy of the result.
NumericStatus SmallestEnclosingBall(const PointSet* points, NVector* x, std::int32_t maxIter,
                                    double tol, bool planar, double* accuracy);

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_ENCLOSING_BALL_H
