// The orthogonal-distance least-squares fits behind Method::kPrecise, and the description of a
// given feature (deviations, residual vectors, uncertainties) that both methods share.
#ifndef METROFIT_PRECISE_PRECISE_FIT_H
#define METROFIT_PRECISE_PRECISE_FIT_H

#include <cstddef>
#include <vector>

#include "metrofit.h"
#include "metrofit/fit.h"

namespace metrofit::precise {

using Vec3 = KPt3<double>;

// A request the modern interface has already checked: enough finite points, known parameter
// names with values of the right length, a finite probe radius.
struct Request {
  Shape shape = Shape::kSphere;
  const double* xyz = nullptr;  // count points as x, y, z triples
  std::size_t count = 0;
  std::vector<NamedValue> fixed;
  std::vector<NamedValue> start;
  double probe_radius = 0.0;
  // Off only to compare: the fit without the shortcuts that save passes over the points
  // (specialised sums, statistics computed once, no evaluation of a negligible last step).
  bool shortcuts = true;
};

// A fitted feature in the caller's coordinates.
struct Feature {
  Shape shape = Shape::kSphere;
  Vec3 center;                          // as FitResult::center
  Vec3 axis{0.0, 0.0, 1.0};             // unit; unused for the sphere
  Vec3 major_direction{1.0, 0.0, 0.0};  // ellipse only: unit, across the axis
  // circle, sphere, cylinder: {radius}; cone: {half angle}; torus: {major, minor};
  // paraboloid: {focal length}; ellipse: {major, minor}; spheroid: {along, across}.
  double size[2] = {0.0, 0.0};
};

// The least-squares solution, with status, statistics and uncertainties.
FitResult FitPrecise(const Request& request);

// Fills result's geometry fields and parameters from the feature, and its deviations,
// residuals, statistics and uncertainties from the points (fixed parameters of the request
// get zero uncertainty). Leaves status, valid, message and iterations alone.
void Describe(const Request& request, const Feature& feature, FitResult& result);

struct PointStats;
// The same with the statistics of the request's points (ComputeStats) already at hand.
void Describe(const Request& request, const Feature& feature, const PointStats& stats,
              FitResult& result);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_PRECISE_FIT_H
