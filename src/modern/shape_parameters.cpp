#include "modern/shape_parameters.h"

namespace metrofit {

namespace {

constexpr ParameterSpec kCenter{"center", ParameterKind::kPoint};
constexpr ParameterSpec kAxis{"axis", ParameterKind::kDirection};
constexpr ParameterSpec kRadius{"radius", ParameterKind::kLength};

}  // namespace

std::size_t ValueCount(ParameterKind kind) {
  switch (kind) {
    case ParameterKind::kPoint:
    case ParameterKind::kDirection:
      return 3;
    case ParameterKind::kLengths:
      return 2;
    case ParameterKind::kLength:
    case ParameterKind::kAngle:
      return 1;
  }
  return 0;
}

const std::vector<ParameterSpec>& ParameterSpecs(Shape shape) {
  static const std::vector<ParameterSpec> kLine{kCenter, kAxis};
  static const std::vector<ParameterSpec> kPlane{kCenter, kAxis};
  static const std::vector<ParameterSpec> kCircle{kCenter, kAxis, kRadius};
  static const std::vector<ParameterSpec> kSphere{kCenter, kRadius};
  static const std::vector<ParameterSpec> kCylinder{kCenter, kAxis, kRadius};
  static const std::vector<ParameterSpec> kCone{
      kCenter, kAxis, {"half_angle", ParameterKind::kAngle}};
  static const std::vector<ParameterSpec> kEllipse{kCenter,
                                                   kAxis,
                                                   {"major_direction", ParameterKind::kDirection},
                                                   {"semi_axes", ParameterKind::kLengths}};
  static const std::vector<ParameterSpec> kParaboloid{
      kCenter, kAxis, {"focal_length", ParameterKind::kLength}};
  static const std::vector<ParameterSpec> kSpheroid{
      kCenter, kAxis, {"semi_axes", ParameterKind::kLengths}};
  static const std::vector<ParameterSpec> kTorus{kCenter,
                                                 kAxis,
                                                 {"major_radius", ParameterKind::kLength},
                                                 {"minor_radius", ParameterKind::kLength}};
  static const std::vector<ParameterSpec> kNone;
  switch (shape) {
    case Shape::kLine:
      return kLine;
    case Shape::kPlane:
      return kPlane;
    case Shape::kCircle:
      return kCircle;
    case Shape::kSphere:
      return kSphere;
    case Shape::kCylinder:
      return kCylinder;
    case Shape::kCone:
      return kCone;
    case Shape::kEllipse:
      return kEllipse;
    case Shape::kParaboloid:
      return kParaboloid;
    case Shape::kSpheroid:
      return kSpheroid;
    case Shape::kTorus:
      return kTorus;
  }
  return kNone;
}

const ParameterSpec* FindParameterSpec(Shape shape, std::string_view name) {
  for (const ParameterSpec& param : ParameterSpecs(shape)) {
    if (param.name == name) return &param;
  }
  return nullptr;
}

}  // namespace metrofit
