// Synthetic data with a known orthogonal-distance least-squares solution.
//
// Every point is an exact surface point F_i of the generating shape plus a deviation along the
// surface normal(s) at F_i. For the shapes with one condition per point the residual is the
// signed orthogonal distance r_i (positive outside). The circle has two residual components per
// point, the height h over the circle's plane and the radial distance rho - R in that plane,
// and the line has two, the coordinates across the line; for both the squared distance from the
// feature is the sum of the squared components (the 3-D distance from a circle is
// sqrt(h^2 + (rho - R)^2)), so the objective of every shape is
//
//   S(theta) = sum_i |r_i(theta)|^2.
//
// For an orthogonal distance the derivative dr_i/dtheta depends only on the foot point F_i, not
// on how far along the normal the point was moved (the foot stays the foot). Hence
//
//   grad S(theta0) = 2 J^T delta,
//
// J the Jacobian of the stacked residual components at the feet with respect to the shape
// parameters, delta the stacked deviations. Projecting a random delta onto the orthogonal
// complement of the columns of J makes the gradient vanish at the generating parameters theta0,
// which are then a stationary point of S; for deviations small against the radii of curvature
// they are its minimum, i.e. the least-squares solution. J is computed here by central
// differences in a minimal parametrisation around theta0, independently of the library.
//
// Minimal parametrisations (index order), used by the Jacobian and by the bounds below:
//   line      s1, s2 (axis point across the axis), t1, t2 (axis tilt)
//   plane     t1, t2 (normal tilt), s (offset along the normal)
//   circle    cx, cy, cz, t1, t2, radius
//   sphere    cx, cy, cz, radius
//   cylinder  s1, s2 (axis point across the axis), t1, t2, radius
//   cone      apex x, y, z, t1, t2, half angle
//   torus     cx, cy, cz, t1, t2, major radius, minor radius
// An axis tilted by (t1, t2) is normalize(u + t1 e1 + t2 e2), (e1, e2, u) the frame of the
// generating axis; the angle between the two axes is atan(|(t1, t2)|).
#ifndef METROFIT_TESTS_SUPPORT_KNOWN_SOLUTION_H
#define METROFIT_TESTS_SUPPORT_KNOWN_SOLUTION_H

#include <cstdint>
#include <vector>

#include "metrofit.h"

namespace metrofit::testing {

using Pt = KPt3<double>;

enum class Shape { kLine, kPlane, kCircle, kSphere, kCylinder, kCone, kTorus };

const char* ShapeName(Shape shape);

// A shape and its parameters, in the caller's coordinates (mm).
struct ShapeTruth {
  Shape shape = Shape::kSphere;
  // line: a point on the line; plane: a point on the plane; circle, sphere, torus: centre;
  // cylinder: the axis point at mid-height of the generated band; cone: apex.
  Pt centre;
  // Unit axis: line direction, plane normal, circle/cylinder/cone/torus axis (the cone opens
  // towards +axis), sphere: axis of the cap the points were drawn from.
  Pt axis{0.0, 0.0, 1.0};
  double radius = 0.0;       // circle, sphere, cylinder; torus major radius
  double minorRadius = 0.0;  // torus tube radius
  double halfAngle = 0.0;    // cone half angle (rad), between axis and surface line
};

// Number of residual components per point: 2 for line and circle, 1 otherwise.
int ResidualCount(Shape shape);

// Residual components of p (see the file comment); returns their number. For the line the
// components are taken in an arbitrary frame across the axis; their squared sum does not depend
// on it.
int ResidualComponents(const ShapeTruth& shape, const Pt& p, double r[2]);

// Orthogonal distance of p from the shape: |r| over the components, unsigned.
double OrthogonalDistance(const ShapeTruth& shape, const Pt& p);

// Signed orthogonal distance (positive outside) for the one-component shapes; for line and
// circle the unsigned distance.
double SignedDistance(const ShapeTruth& shape, const Pt& p);

struct GeneratorOptions {
  int pointCount = 40;
  // Root mean square length of the deviation vectors, in micrometres (coordinates are mm).
  double noiseMicrometres = 0.0;
  // Distance of the centre from the coordinate origin (mm); its direction comes from the seed.
  double centreOffset = 0.0;
  // Angle between the axis and +z (rad); the azimuth of the tilt comes from the seed.
  double axisTilt = 0.0;
  // Angular span of the points (rad), at most 2 pi: about the axis for circle, cylinder, cone
  // and torus; the full opening angle of the cap for the sphere (the points have polar angles
  // up to arcSpan / 2 from the axis; 2 pi is the whole sphere). Unused for line and plane.
  double arcSpan = 6.283185307179586;
  // Circle, sphere, cylinder radius; torus major radius; cone radius at mid-band.
  double radius = 10.0;
  double minorRadius = 2.0;  // torus
  double halfAngle = 0.5;    // cone (rad)
  // Line length; plane square side; cylinder and cone band height along the axis.
  double length = 20.0;
  std::uint64_t seed = 1;
  // Indices of the minimal parametrisation whose Jacobian columns are not projected out: the
  // generating parameters are then the least-squares solution with these parameters held at
  // their generating values (and in general not the free solution).
  std::vector<int> heldParameters;
};

struct KnownSolution {
  ShapeTruth truth;
  std::vector<Pt> points;         // measured points: surfacePoints + deviations
  std::vector<Pt> surfacePoints;  // feet on the generating shape
  std::vector<Pt> deviations;     // 3-D deviation vectors, along the normals at the feet
  std::vector<double> residuals;  // stacked residual components (ResidualCount per point)
  double sumSquares = 0.0;        // sum of |deviation|^2
  double rms = 0.0;               // sqrt(sumSquares / n)
  // |projected| / |drawn| for the random deviation vector before scaling: the fraction of the
  // draw that survived the projection (0 when no noise was asked for).
  double projectionRatio = 0.0;
};

// Generates the data; throws std::invalid_argument on options that cannot give a proper shape
// (fewer points than parameters, non-positive sizes, a cone band that reaches the apex).
KnownSolution GenerateKnownSolution(Shape shape, const GeneratorOptions& options);

// Row-major dense matrix for the small systems of this support code.
struct DenseMatrix {
  int rows = 0;
  int cols = 0;
  std::vector<double> a;
  DenseMatrix() = default;
  DenseMatrix(int r, int c) : rows(r), cols(c), a(static_cast<std::size_t>(r) * c, 0.0) {}
  double& operator()(int i, int j) { return a[static_cast<std::size_t>(i) * cols + j]; }
  double operator()(int i, int j) const { return a[static_cast<std::size_t>(i) * cols + j]; }
};

// Number of parameters of the minimal parametrisation of a shape.
int ParameterCount(Shape shape);

// The shape moved by theta (minimal parametrisation, length ParameterCount) from `base`.
ShapeTruth Perturb(const ShapeTruth& base, const std::vector<double>& theta);

// Jacobian of the stacked residual components of the points with respect to the minimal
// parameters, at `base`, by central differences (evaluated relative to base.centre).
DenseMatrix ResidualJacobian(const ShapeTruth& base, const std::vector<Pt>& points);

// Bounds on how far from the least-squares solution theta* a solver may stop when it declares
// convergence once the sum of squares changed by less than relChange (relative) between two
// iterations.
//
// With a Gauss-Newton iteration converging linearly at rate k (k^2 <= 1/2, true for residuals
// small against the radii of curvature), a relative change below relChange between the last
// two iterates leaves S(theta_k) - S* <= relChange * S. Near theta*, S(theta) - S* =
// d^T (J^T J) d with d = theta - theta*, so the largest displacement of a block of parameters is
// sqrt(relChange * S * lambda_max(C_block)) <= sqrt(relChange * S * trace(C_block)),
// C = (J^T J)^-1 over the free parameters. A factor 2 covers the second-order terms that J^T J
// leaves out of the Hessian. The result is this bound per kind of parameter; a solver that
// converges further is of course closer.
struct ConvergenceBounds {
  double position = 0.0;     // centre / apex / axis point across the axis / plane offset (mm)
  double axisAngle = 0.0;    // rad
  double radius = 0.0;       // radius / major radius (mm)
  double minorRadius = 0.0;  // mm
  double halfAngle = 0.0;    // rad
};

// `fixed` lists indices of the minimal parametrisation held fixed (left out of C).
ConvergenceBounds BoundsFor(const ShapeTruth& truth, const std::vector<Pt>& feet, double sumSquares,
                            double relChange, const std::vector<int>& fixed = {});
inline ConvergenceBounds BoundsFor(const KnownSolution& s, double relChange,
                                   const std::vector<int>& fixed = {}) {
  return BoundsFor(s.truth, s.surfacePoints, s.sumSquares, relChange, fixed);
}

}  // namespace metrofit::testing

#endif  // METROFIT_TESTS_SUPPORT_KNOWN_SOLUTION_H
