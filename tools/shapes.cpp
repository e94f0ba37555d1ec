#include "shapes.h"

namespace metrofit::cli {

namespace {

constexpr unsigned kLeastSquares = kCentre | kAxis | kIterations | kStatistics | kFormError;
// The extended fits replace centre, axis, size and form error; the other figures would be
// stale values of an earlier stage, so they are not shown.
constexpr unsigned kExtended = kCentre | kAxis | kFormError;

const SizeSlot kRadius{"radius", "radius", 1, 0};

std::vector<Shape> BuildShapes() {
  return {
      {"point",
       "KFitPoint",
       &KFitPoint,
       "the reference point as a point feature (see --ref-point)",
       "point",
       "",
       kCentre,
       {},
       false},
      {"distance",
       "KFitDistance",
       &KFitDistance,
       "distance between exactly two points",
       "",
       "",
       0,
       {{"distance", "distance", 2, 1}},
       false},
      {"line",
       "KFitLine",
       &KFitLine,
       "least-squares line through the reference point",
       "point",
       "direction",
       kLeastSquares,
       {},
       false},
      {"plane",
       "KFitPlane",
       &KFitPlane,
       "least-squares plane",
       "point",
       "normal",
       kLeastSquares,
       {{"origin distance", "origin_distance", 2, 1}},
       false},
      {"circle",
       "KFitCircle",
       &KFitCircle,
       "least-squares circle in space",
       "centre",
       "axis",
       kLeastSquares,
       {kRadius},
       false},
      {"sphere",
       "KFitSphere",
       &KFitSphere,
       "least-squares sphere",
       "centre",
       "",
       kLeastSquares & ~kAxis,
       {kRadius},
       false},
      {"cylinder",
       "KFitCylinder",
       &KFitCylinder,
       "least-squares cylinder (multi-start)",
       "axis point",
       "axis",
       kLeastSquares,
       {kRadius},
       false},
      {"cone",
       "KFitCone",
       &KFitCone,
       "least-squares cone (multi-start)",
       "apex",
       "axis",
       kLeastSquares,
       {{"slope", "slope", 2, 2}},
       false},
      {"ellipse",
       "KFitEllipse",
       &KFitEllipse,
       "least-squares ellipse in space",
       "centre",
       "axis",
       kLeastSquares,
       {{"semi-axis a", "semi_axis_a", 3, 0}, {"semi-axis b", "semi_axis_b", 3, 1}},
       false},
      {"paraboloid",
       "KFitParaboloid",
       &KFitParaboloid,
       "least-squares paraboloid of revolution",
       "vertex",
       "axis",
       kLeastSquares,
       {{"focal length", "focal_length", 2, 0}, {"radial extent", "radial_extent", 1, 0}},
       true},
      {"torus",
       "KFitTorus",
       &KFitTorus,
       "least-squares torus (multi-start)",
       "centre",
       "axis",
       kLeastSquares,
       {{"major radius", "major_radius", 1, 1}, {"minor radius", "minor_radius", 1, 2}},
       true},
      {"circle-ex",
       "KFitCircleEx",
       &KFitCircleEx,
       "extended circle fit",
       "centre",
       "axis",
       kExtended,
       {kRadius},
       false},
      {"line-ex",
       "KFitLineEx",
       &KFitLineEx,
       "extended line fit",
       "point",
       "direction",
       kExtended,
       {},
       false},
      {"sphere-ex",
       "KFitSphereEx",
       &KFitSphereEx,
       "extended sphere fit",
       "centre",
       "",
       kExtended & ~kAxis,
       {kRadius},
       false},
      {"cylinder-ex",
       "KFitCylinderEx",
       &KFitCylinderEx,
       "extended cylinder fit",
       "axis point",
       "axis",
       kExtended,
       {kRadius},
       false},
  };
}

double Component(const KPt3<double>& v, int component) {
  switch (component) {
    case 0:
      return v.x;
    case 1:
      return v.y;
    default:
      return v.z;
  }
}

}  // namespace

const std::vector<Shape>& AllShapes() {
  static const std::vector<Shape> shapes = BuildShapes();
  return shapes;
}

const Shape* FindShape(std::string_view name) {
  for (const Shape& shape : AllShapes()) {
    if (name == shape.name) return &shape;
  }
  return nullptr;
}

double SizeValue(const CFitResult& result, const SizeSlot& slot) {
  switch (slot.triple) {
    case 1:
      return Component(result.m_size1, slot.component);
    case 2:
      return Component(result.m_size2, slot.component);
    default:
      return Component(result.m_size3, slot.component);
  }
}

}  // namespace metrofit::cli
