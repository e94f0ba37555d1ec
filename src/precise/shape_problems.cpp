#include "precise/shape_problems.h"

#include <cmath>
#include <cstring>

#include "precise/models/cone_model.h"
#include "precise/models/line_model.h"
#include "precise/models/plane_model.h"
#include "precise/models/radial_model.h"
#include "precise/models/sphere_model.h"
#include "precise/models/torus_model.h"

namespace metrofit::precise {
namespace {

// Size of the data below which it counts as a point (then lengths are measured in mm).
constexpr double kTinyScale = 1e-300;

// Name of the value held in Feature::size[i], or nullptr.
const char* SizeName(Shape shape, int i) {
  switch (shape) {
    case Shape::kCircle:
    case Shape::kSphere:
    case Shape::kCylinder:
      return i == 0 ? "radius" : nullptr;
    case Shape::kCone:
      return i == 0 ? "half_angle" : nullptr;
    case Shape::kTorus:
      return i == 0 ? "major_radius" : "minor_radius";
    default:
      return nullptr;
  }
}

void Free(Problem* p, std::initializer_list<int> indices) {
  for (int i : indices) p->free[i] = true;
}

}  // namespace

const std::vector<double>* FindNamed(const std::vector<NamedValue>& list, const char* name) {
  for (const NamedValue& v : list) {
    if (v.name == name) return &v.value;
  }
  return nullptr;
}

Holds HoldsOf(const Request& request) {
  Holds h;
  h.center = FindNamed(request.fixed, "center") != nullptr;
  h.axis = FindNamed(request.fixed, "axis") != nullptr;
  for (int i = 0; i < 2; ++i) {
    const char* name = SizeName(request.shape, i);
    h.size[i] = name != nullptr && FindNamed(request.fixed, name) != nullptr;
  }
  return h;
}

void ApplyNamed(const std::vector<NamedValue>& list, Feature* f) {
  if (const auto* v = FindNamed(list, "center")) f->center = Vec3((*v)[0], (*v)[1], (*v)[2]);
  if (const auto* v = FindNamed(list, "axis")) {
    Vec3 a((*v)[0], (*v)[1], (*v)[2]);
    if (a.Length() > 0.0) f->axis = a.Normalize();
  }
  for (int i = 0; i < 2; ++i) {
    const char* name = SizeName(f->shape, i);
    if (name == nullptr) continue;
    if (const auto* v = FindNamed(list, name)) f->size[i] = (*v)[0];
  }
}

Problem MakeProblem(const Request& request, const PointStats& stats, const Holds& holds,
                    Stage stage) {
  Problem p;
  p.xyz = request.xyz;
  p.count = request.count;
  p.centroid = stats.centroid;
  p.scale = stats.scale > kTinyScale ? stats.scale : 1.0;
  p.weight[kTurnX] = p.weight[kTurnY] = p.weight[kTurnZ] = p.scale;
  const bool c = !holds.center, a = !holds.axis;
  switch (stage == Stage::kCirclePlane ? Shape::kPlane : request.shape) {
    case Shape::kLine:
      if (c) Free(&p, {kShiftX, kShiftY});
      if (a) Free(&p, {kTurnX, kTurnY});
      p.recentre = c ? Recentre::kAlongAxis : Recentre::kNone;
      break;
    case Shape::kPlane:
      if (c) Free(&p, {kShiftZ});
      if (a) Free(&p, {kTurnX, kTurnY});
      p.recentre = c ? Recentre::kInPlane : Recentre::kNone;
      break;
    case Shape::kCircle:
      if (c) Free(&p, {kShiftX, kShiftY});
      break;
    case Shape::kSphere:
    case Shape::kTorus:
      if (c) Free(&p, {kShiftX, kShiftY, kShiftZ});
      if (a && request.shape == Shape::kTorus) Free(&p, {kTurnX, kTurnY});
      break;
    case Shape::kCylinder:
      if (c) Free(&p, {kShiftX, kShiftY});
      if (a) Free(&p, {kTurnX, kTurnY});
      p.recentre = c ? Recentre::kAlongAxis : Recentre::kNone;
      break;
    case Shape::kCone:
      // A held apex is the pivot itself: radius 0 there, no shift.
      if (c) Free(&p, {kShiftX, kShiftY, kSize0});
      if (a) Free(&p, {kTurnX, kTurnY});
      if (!holds.size[0]) Free(&p, {kSize1});
      p.weight[kSize1] = p.scale;
      p.recentre = c ? Recentre::kConePivot : Recentre::kNone;
      return p;
    default:
      break;
  }
  // The circle's plane turns about the circle's centre, which stays where it is.
  if (stage == Stage::kCirclePlane) p.recentre = Recentre::kNone;
  if (stage == Stage::kWhole && request.shape != Shape::kLine && request.shape != Shape::kPlane) {
    if (!holds.size[0]) Free(&p, {kSize0});
    if (request.shape == Shape::kTorus && !holds.size[1]) Free(&p, {kSize1});
  }
  return p;
}

AccumulateFn AccumulatorFor(Shape shape, Stage stage) {
  if (stage == Stage::kCirclePlane) return &Accumulate<PlaneModel>;
  switch (shape) {
    case Shape::kLine:
      return &Accumulate<LineModel>;
    case Shape::kPlane:
      return &Accumulate<PlaneModel>;
    case Shape::kSphere:
      return &Accumulate<SphereModel>;
    case Shape::kCircle:
    case Shape::kCylinder:
      return &Accumulate<RadialModel>;
    case Shape::kCone:
      return &Accumulate<ConeModel>;
    case Shape::kTorus:
      return &Accumulate<TorusModel>;
    default:
      return nullptr;
  }
}

State StateFromFeature(const Feature& f, const Vec3& centroid, double probe, bool pivotAtApex) {
  State s = FrameAround(f.center, f.axis);
  s.offset = probe;
  s.size[0] = f.size[0];
  s.size[1] = f.size[1];
  if (f.shape == Shape::kCone) {
    const double t = pivotAtApex ? 0.0 : s.u.Dot(centroid - f.center);
    s.c = f.center + s.u * t;
    s.size[0] = t * std::tan(f.size[0]);
    s.size[1] = f.size[0];
  }
  return s;
}

Feature FeatureFromState(Shape shape, const State& s, const Vec3& centroid) {
  Feature f;
  f.shape = shape;
  f.center = s.c;
  f.axis = s.u;
  f.size[0] = s.size[0];
  f.size[1] = s.size[1];
  const double t = s.u.Dot(centroid - s.c);
  switch (shape) {
    case Shape::kLine:
    case Shape::kCylinder:
      f.center = s.c + s.u * t;
      break;
    case Shape::kPlane:
      f.center = centroid - s.u * t;
      break;
    case Shape::kCone:
      f.center = s.c - s.u * (s.size[0] / std::tan(s.size[1]));
      f.size[0] = s.size[1];
      f.size[1] = 0.0;
      break;
    default:
      break;
  }
  return f;
}

void ReportValues(const Feature& f, double out[kReportCount]) {
  out[0] = f.center.x;
  out[1] = f.center.y;
  out[2] = f.center.z;
  out[3] = f.axis.x;
  out[4] = f.axis.y;
  out[5] = f.axis.z;
  out[6] = f.size[0];
  out[7] = f.size[1];
}

int SizeCount(Shape shape) {
  return SizeName(shape, 0) == nullptr ? 0 : (SizeName(shape, 1) == nullptr ? 1 : 2);
}

std::vector<std::string> PreciseParameterNames(Shape shape) {
  std::vector<std::string> names{"center"};
  if (shape != Shape::kSphere) names.emplace_back("axis");
  for (int i = 0; i < SizeCount(shape); ++i) names.emplace_back(SizeName(shape, i));
  return names;
}

}  // namespace metrofit::precise
