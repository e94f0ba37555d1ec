// Data whose least-squares features are known exactly, for the fits that minimise the sum of
// squared orthogonal distances, at CMM scales: partial arcs, caps and sectors, features a metre
// from the origin on tilted axes, deviations from 1e-6 to 1e-2 of the feature size.
//
// Every point is a foot F_i on the generating feature plus a deviation along the normal(s) at
// F_i. The generating parameters are the least-squares solution when the deviations are
// orthogonal to every column of the Jacobian of the residuals (see known_solution.h). Here the
// columns are written out exactly, not differenced, so the stationarity holds to rounding and
// the data can hold a fit to 1e-9 mm even when a partial arc makes the parameters sensitive:
//
//   plane     normal deviations orthogonal to (1, s, t), (s, t) the in-plane coordinates
//   line      for each of two directions across the line, deviations orthogonal to (1, t), t
//             the coordinate along the line
//   circle    the least-squares plane of the points, then the least-squares circle of the
//             points projected into it. Two independent parts: in-plane radial deviations
//             orthogonal to (cos a, sin a, 1), a the angle of the foot; then out-of-plane
//             deviations orthogonal to (1, s, t), (s, t) the in-plane coordinates of the
//             points (feet plus radial deviations, so that the plane condition is exact)
//   sphere    n_x, n_y, n_z, 1 (n the unit normal at the foot)
//   cylinder  n.e1, n.e2 (axis moved across itself), h n.e1, h n.e2 (axis tilted about the
//             centre, h the height of the foot), 1 (radius)
//   cone      n (apex), n.(w_k x (F - apex)) for the rotations w_k = u x e_k that tilt the axis
//             about the apex, L (the slant distance of the foot from the apex: half angle)
//   torus     n (centre), n.(w_k x (F - centre)) (tilt), n.radial (major radius), 1 (minor)
// For distances to a surface the derivative with respect to a parameter is the normal speed of
// the surface at the foot, the same for every point along that normal, so these columns are
// exact at the measured points. The plane and line conditions are those of their closed-form
// solutions (centroid on the feature, normal or direction an eigenvector of the scatter
// matrix), so there the generating feature is the solution for any deviation size.
#ifndef METROFIT_TESTS_SUPPORT_PRECISE_KNOWN_SOLUTION_H
#define METROFIT_TESTS_SUPPORT_PRECISE_KNOWN_SOLUTION_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/known_solution.h"

namespace metrofit::testing {

struct PreciseOptions {
  int pointCount = 40;
  // Root mean square length of the deviation vectors as a fraction of FeatureSize.
  double relativeNoise = 1e-4;
  // Distance of the centre from the origin (mm); its direction comes from the seed.
  double centreOffset = 1000.0;
  // Angle between the axis and +z (rad); the azimuth comes from the seed.
  double axisTilt = 0.7;
  // Span about the axis (circle, cylinder, cone, torus) or full opening of a sphere cap (rad).
  double arcSpan = 6.283185307179586;
  // Span around the tube of a torus (rad), centred on the outer equator.
  double tubeSpan = 6.283185307179586;
  // Circle, sphere, cylinder radius; torus major radius; cone radius at mid-band (mm).
  double radius = 10.0;
  double minorRadius = 3.0;  // torus tube radius (mm)
  double halfAngle = 0.5;    // cone (rad)
  // Line length; plane strip length; cylinder and cone band height along the axis (mm).
  double length = 20.0;
  double width = 10.0;  // plane strip width (mm)
  std::uint64_t seed = 1;
};

// The size the noise is relative to: the radius of circle, sphere and cylinder, the tube
// radius of a torus (the tighter curvature), the mid-band radius of a cone, the length of a
// line or a plane strip.
double FeatureSize(Shape shape, const PreciseOptions& options);

// Generates the data; throws std::invalid_argument on options that cannot give a proper shape.
// For the circle, truth.centre and truth.axis are the circle's; KnownSolution::residuals holds
// (height over the plane, radial deviation in the plane) per point.
KnownSolution GeneratePreciseKnownSolution(Shape shape, const PreciseOptions& options);

// A named family of generated sets, for tests that run the fits over all of them.
struct PreciseCase {
  std::string name;
  Shape shape = Shape::kSphere;
  PreciseOptions options;
};

// The partial and full features, tilts, offsets and noise levels the precise fits are held to.
std::vector<PreciseCase> PreciseCases();

}  // namespace metrofit::testing

#endif  // METROFIT_TESTS_SUPPORT_PRECISE_KNOWN_SOLUTION_H
