// Names of shapes, methods, statuses and parameters of the modern interface, and the smallest
// point counts: the one table every front end (C++, Python, the tool) reads them from.
#include <array>
#include <string_view>

#include "metrofit/fit.h"
#include "modern/shape_parameters.h"

namespace metrofit {

namespace {

struct ShapeInfo {
  Shape shape;
  const char* name;
  std::size_t minimum_points;
};

// Fewest points that can determine each shape: its number of free parameters, counting a
// line's or circle's two conditions per point.
constexpr std::array<ShapeInfo, 10> kShapes{{
    {Shape::kLine, "line", 2},
    {Shape::kPlane, "plane", 3},
    {Shape::kCircle, "circle", 3},
    {Shape::kSphere, "sphere", 4},
    {Shape::kCylinder, "cylinder", 5},
    {Shape::kCone, "cone", 6},
    {Shape::kEllipse, "ellipse", 5},
    {Shape::kParaboloid, "paraboloid", 6},
    {Shape::kSpheroid, "spheroid", 7},
    {Shape::kTorus, "torus", 7},
}};

const ShapeInfo* Info(Shape shape) {
  for (const ShapeInfo& info : kShapes) {
    if (info.shape == shape) return &info;
  }
  return nullptr;
}

}  // namespace

bool IsKnownShape(Shape shape) {
  return Info(shape) != nullptr;
}

bool IsInputError(Status status) {
  switch (status) {
    case Status::kTooFewPoints:
    case Status::kNonFinitePoint:
    case Status::kUnknownShape:
    case Status::kUnknownParameter:
    case Status::kInvalidOption:
    case Status::kUnsupported:
      return true;
    default:
      return false;
  }
}

const char* ToString(Shape shape) {
  const ShapeInfo* info = Info(shape);
  return info ? info->name : "unknown";
}

const char* ToString(Method method) {
  switch (method) {
    case Method::kPrecise:
      return "precise";
    case Method::kCompatible:
      return "compatible";
  }
  return "unknown";
}

const char* ToString(Status status) {
  switch (status) {
    case Status::kOk:
      return "ok";
    case Status::kDegenerate:
      return "degenerate";
    case Status::kNotConverged:
      return "not_converged";
    case Status::kFailed:
      return "failed";
    case Status::kTooFewPoints:
      return "too_few_points";
    case Status::kNonFinitePoint:
      return "non_finite_point";
    case Status::kUnknownShape:
      return "unknown_shape";
    case Status::kUnknownParameter:
      return "unknown_parameter";
    case Status::kInvalidOption:
      return "invalid_option";
    case Status::kUnsupported:
      return "unsupported";
  }
  return "unknown";
}

std::optional<Shape> ShapeFromName(std::string_view name) {
  for (const ShapeInfo& info : kShapes) {
    if (name == info.name) return info.shape;
  }
  return std::nullopt;
}

std::optional<Method> MethodFromName(std::string_view name) {
  if (name == "precise") return Method::kPrecise;
  if (name == "compatible") return Method::kCompatible;
  return std::nullopt;
}

std::size_t MinimumPoints(Shape shape) {
  const ShapeInfo* info = Info(shape);
  return info ? info->minimum_points : 0;
}

std::vector<std::string> ParameterNames(Shape shape) {
  std::vector<std::string> names;
  for (const ParameterSpec& param : ParameterSpecs(shape)) names.emplace_back(param.name);
  return names;
}

const Parameter* FitResult::Find(std::string_view name) const {
  for (const Parameter& parameter : parameters) {
    if (parameter.name == name) return &parameter;
  }
  return nullptr;
}

}  // namespace metrofit
