// Starting values for the orthogonal-distance fits, from linear (algebraic) least squares.
//
// Each start minimises the residual of an implicit equation that is linear in its unknowns, so
// it is exact on noiseless points and close on good data, which is all a Levenberg-Marquardt
// start needs. The points are centred on their centroid and scaled to unit RMS radius first:
// 500 mm offsets would otherwise put squares of 2.5e5 beside ones in the same columns. Every
// function returns std::nullopt when its linear system is singular (too few points, collinear
// or coplanar points where a solid is asked for) or when the solution is not the shape asked
// for (no real radius, a hyperbola, a cylinder).
#ifndef METROFIT_PRECISE_ALGEBRAIC_STARTS_H
#define METROFIT_PRECISE_ALGEBRAIC_STARTS_H

#include <array>
#include <cstddef>
#include <optional>

namespace metrofit::precise {

using Point2 = std::array<double, 2>;
using Point3 = std::array<double, 3>;

struct SphereGuess {
  Point3 center{};
  double radius = 0.0;
};

struct CircleGuess2D {
  Point2 center{};
  double radius = 0.0;
};

struct EllipseGuess2D {
  Point2 center{};
  double major = 0.0;  // semi-axis, >= minor
  double minor = 0.0;
  double angle = 0.0;  // of the major axis from +x, in (-pi/2, pi/2]
};

// Spheroid (q1^2 + q2^2) / B^2 + (h - h0)^2 / A^2 = 1 about the axis u through center.
struct SpheroidGuess {
  Point3 center{};
  double along = 0.0;   // A, the semi-axis along u
  double across = 0.0;  // B, the equatorial radius
};

// Paraboloid of revolution h = rho^2 / (4 F) about the axis through vertex along `opening`.
struct ParaboloidGuess {
  Point3 vertex{};
  Point3 opening{};  // the candidate axis or its opposite: the side the paraboloid opens to
  double focal = 0.0;
};

// Centroid and eigen-decomposition of the centred scatter matrix sum (p - c)(p - c)^T.
struct PrincipalFrame {
  Point3 centroid{};
  std::array<Point3, 3> axes{};  // unit, orthogonal, right-handed: axes[2] = axes[0] x axes[1]
  Point3 values{};               // eigenvalues, values[0] >= values[1] >= values[2] >= 0
};

// Kasa sphere: |p|^2 = 2 c . p + (r^2 - |c|^2) by linear least squares; at least 4 points.
std::optional<SphereGuess> SphereStart(const double* xyz, std::size_t count);

// Kasa circle of 2-D points (xy pairs); at least 3 points.
std::optional<CircleGuess2D> CircleStart2D(const double* xy, std::size_t count);

// Direct least-squares ellipse of 2-D points (xy pairs), in the numerically stable form that
// eliminates the linear terms and solves a 3x3 eigenproblem under 4ac - b^2 = 1; at least 5.
std::optional<EllipseGuess2D> EllipseStart2D(const double* xy, std::size_t count);

// Spheroid about the unit candidate axis `axis`, centre free in all three directions: linear
// least squares rho^2 = k h^2 + l1 q1 + l2 q2 + m h + n in a frame of the axis; at least 5.
std::optional<SpheroidGuess> SpheroidStart(const double* xyz, std::size_t count,
                                           const Point3& axis);

// Paraboloid about the unit candidate axis: h = c0 + c1 q1 + c2 q2 + k (q1^2 + q2^2); the sign
// of k gives the opening side. At least 4 points.
std::optional<ParaboloidGuess> ParaboloidStart(const double* xyz, std::size_t count,
                                               const Point3& axis);

// Principal axes by cyclic Jacobi rotations; at least one point.
std::optional<PrincipalFrame> PrincipalAxes(const double* xyz, std::size_t count);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_ALGEBRAIC_STARTS_H
