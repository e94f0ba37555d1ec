// metrofit: the modern interface.
//
// One call per fit: points in, a result value out. The same engine as the KFit* functions of
// <metrofit.h>, with two methods:
//   - Method::kPrecise (the default): the orthogonal-distance least-squares solution itself,
//     iterated until the gradient of the sum of squared distances vanishes to the limit of
//     double precision, with the standard uncertainty of every parameter;
//   - Method::kCompatible: exactly what the matching KFit* function returns.
// Bad input never throws: it gives an error status and no fit. Calls are thread-safe, keep no
// process-wide state, write no files and never change the caller's points.
//
// Units are the caller's (typically mm); angles are in radians.
#ifndef METROFIT_FIT_H
#define METROFIT_FIT_H

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "metrofit/export.h"

namespace metrofit {

enum class Shape {
  kLine,
  kPlane,
  kCircle,  // a circle in space
  kSphere,
  kCylinder,
  kCone,
  kEllipse,     // a planar ellipse in space: centre, normal, major direction, two semi-axes
  kParaboloid,  // paraboloid of revolution
  kSpheroid,    // ellipsoid of revolution (the surface KFitEllipse fits)
  kTorus,
};

enum class Method { kPrecise, kCompatible };

enum class Status {
  kOk,            // a converged fit
  kDegenerate,    // the points do not determine the feature (the message says how)
  kNotConverged,  // the iteration stopped on its limit; the best estimate is returned
  kFailed,        // the compatible method's KFit* function reported failure
  // Input errors: no fit is made.
  kTooFewPoints,
  kNonFinitePoint,
  kUnknownShape,
  kUnknownParameter,
  kInvalidOption,  // a bad value for a known option (wrong length, non-finite, out of range)
  kUnsupported,    // a valid request this method cannot answer (compatible planar ellipse)
};

// True for the statuses that reject the input before any fit is made.
METROFIT_API bool IsInputError(Status status);

METROFIT_API const char* ToString(Shape shape);
METROFIT_API const char* ToString(Method method);
METROFIT_API const char* ToString(Status status);
// Names as ToString gives them ("line", "precise", ...); nullopt for an unknown name.
METROFIT_API std::optional<Shape> ShapeFromName(std::string_view name);
METROFIT_API std::optional<Method> MethodFromName(std::string_view name);

// The smallest number of points that determines the shape.
METROFIT_API std::size_t MinimumPoints(Shape shape);

// Names of the shape's parameters, in the order of FitResult::parameters:
//   line        center, axis
//   plane       center, axis (the normal)
//   circle      center, axis, radius
//   sphere      center, radius
//   cylinder    center, axis, radius
//   cone        center (the apex), axis (opening direction), half_angle
//   ellipse     center, axis (the normal), major_direction, semi_axes (major, minor)
//   paraboloid  center (the vertex), axis (opening direction), focal_length
//   spheroid    center, axis, semi_axes (along the axis, across it)
//   torus       center, axis, major_radius, minor_radius
// center, axis and major_direction hold three values, semi_axes two, the others one.
METROFIT_API std::vector<std::string> ParameterNames(Shape shape);

struct Point {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

// A value for a named parameter: three numbers for a point or direction, two for semi_axes,
// one for a size or angle.
struct NamedValue {
  std::string name;
  std::vector<double> value;
};

struct FitOptions {
  Shape shape = Shape::kSphere;
  Method method = Method::kPrecise;
  // Parameters held at the given values.
  std::vector<NamedValue> fixed;
  // Starting values: the iteration starts there instead of from its own estimate.
  std::vector<NamedValue> start;
  // Radius of the probe ball whose centres the points are (0: surface points).
  double probe_radius = 0.0;
};

struct Parameter {
  std::string name;
  std::vector<double> value;
  // Standard uncertainty of each value (0 for a fixed parameter).
  std::vector<double> uncertainty;
};

struct FitResult {
  Shape shape = Shape::kSphere;
  Method method = Method::kPrecise;
  bool valid = false;
  Status status = Status::kFailed;
  std::string message;

  // The point on the line or axis nearest the centroid of the points, the plane's point
  // nearest the centroid, the centre of a sphere, circle, ellipse, spheroid or torus, the apex
  // of a cone, the vertex of a paraboloid.
  std::array<double, 3> center{};
  // Unit direction: line direction, plane or circle or ellipse normal, axis of the surfaces of
  // revolution. Absent for the sphere.
  std::optional<std::array<double, 3>> axis;
  std::optional<double> radius;        // circle, sphere, cylinder
  std::optional<double> half_angle;    // cone, radians
  std::optional<double> major_radius;  // torus
  std::optional<double> minor_radius;  // torus
  std::optional<double> focal_length;  // paraboloid
  // Ellipse: (major, minor); spheroid: (along the axis, across it).
  std::optional<std::array<double, 2>> semi_axes;
  std::optional<std::array<double, 3>> major_direction;  // ellipse

  std::vector<Parameter> parameters;

  // Signed orthogonal distance of every point, in the order given: positive outside a sphere,
  // cylinder, cone, torus, spheroid or paraboloid (away from its axis side), on the normal's
  // side of a plane, outside the circle or ellipse in its plane; never negative for a line.
  std::vector<double> deviations;
  // deviation times the unit normal of the feature at the point's foot: the vector from the
  // feature to the point.
  std::vector<std::array<double, 3>> residuals;

  double rms = 0.0;            // sqrt(sum d^2 / n)
  double sigma = 0.0;          // sqrt(sum d^2 / (m - free parameters)), m = n (2n for a line)
  double min_deviation = 0.0;  // smallest signed deviation
  double max_deviation = 0.0;  // largest signed deviation
  double form_error = 0.0;     // max - min deviation (for a line: twice the largest distance)
  int iterations = 0;

  // The named parameter, or nullptr.
  METROFIT_API const Parameter* Find(std::string_view name) const;
};

// Fits the shape to count points stored as x, y, z triples at xyz.
METROFIT_API FitResult Fit(const double* xyz, std::size_t count, const FitOptions& options);
METROFIT_API FitResult Fit(const std::vector<Point>& points, const FitOptions& options);

}  // namespace metrofit

#endif  // METROFIT_FIT_H
