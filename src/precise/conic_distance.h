// Signed orthogonal distance from a point to a planar conic, with the derivatives an
// orthogonal-distance fit needs.
//
// Ellipse x^2/a^2 + y^2/b^2 = 1 (a, b > 0, either may be the larger). The foot point X of p
// satisfies p = X + t grad(g)(X) / 2 for g = x^2/a^2 + y^2/b^2 - 1, i.e. X_i = e_i^2 p_i /
// (t + e_i^2); in the first quadrant the nearest foot is the unique root t > -min(e)^2 of
// sum (e_i p_i / (t + e_i^2))^2 = 1. Points on an axis are closed-form cases; inside on the
// major axis between the centres of curvature of the two vertices there are two mirrored feet
// (the distance is continuous, its gradient is not): the one on the side of the sign of the
// point's other coordinate is taken (the +side at exactly zero).
//
// Parabola z = r^2 / (4F) (F > 0). With the foot at curve parameter t = r-coordinate, the
// normal condition is the depressed cubic t^3 + 4F(2F - z) t - 8F^2 r = 0. For r > 0 its
// positive root is the nearest foot (any foot with t < 0 has a mirror image that is nearer);
// on the axis above the vertex's centre of curvature (z > 2F) the two feet
// t = +-2 sqrt(F (z - 2F)) are nearest, and the +side one is taken.
//
// Sign: positive on the convex outer side (outside the ellipse; below the parabola, away from
// the focus). Derivatives: with n the unit outward normal at the foot, d(d)/d(point) = n and,
// by the envelope argument, d(d)/d(size) = -n . dX/d(size) at a fixed curve parameter.
#ifndef METROFIT_PRECISE_CONIC_DISTANCE_H
#define METROFIT_PRECISE_CONIC_DISTANCE_H

namespace metrofit::precise {

struct CurveDistance {
  double d = 0.0;                // signed distance, positive on the outer side
  double dx = 0.0;               // d(d)/dx (ellipse) or d(d)/dr (parabola)
  double dy = 0.0;               // d(d)/dy (ellipse) or d(d)/dz (parabola)
  double dsize[2] = {0.0, 0.0};  // ellipse: d(d)/da, d(d)/db; parabola: d(d)/dF, 0
  double foot[2] = {0.0, 0.0};   // nearest point of the curve, in the point's coordinates
};

// Distance from (x, y) to the ellipse x^2/a^2 + y^2/b^2 = 1 centred at the origin.
CurveDistance EllipseDistance(double x, double y, double a, double b);

// Distance from (r, z) to the parabola z = r^2 / (4 focal) with its vertex at the origin.
CurveDistance ParabolaDistance(double r, double z, double focal);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_CONIC_DISTANCE_H
