#include "precise/shape_problems.h"

#include <cmath>
#include <cstring>

#include "precise/free_sums.h"
#include "precise/models/cone_model.h"
#include "precise/models/ellipse_model.h"
#include "precise/models/line_model.h"
#include "precise/models/paraboloid_model.h"
#include "precise/models/plane_model.h"
#include "precise/models/radial_model.h"
#include "precise/models/sphere_model.h"
#include "precise/models/spheroid_model.h"
#include "precise/models/torus_model.h"
#include "precise/sphere_pairs.h"

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
    case Shape::kEllipse:
    case Shape::kSpheroid:
      return "semi_axes";  // one name, two values
    case Shape::kParaboloid:
      return i == 0 ? "focal_length" : nullptr;
    default:
      return nullptr;
  }
}

// True when both sizes are the two values of one name (semi_axes).
bool PairedSizes(Shape shape) {
  const char* a = SizeName(shape, 0);
  const char* b = SizeName(shape, 1);
  return a != nullptr && b != nullptr && std::strcmp(a, b) == 0;
}

Vec3 ToVec3(const std::vector<double>& v) {
  return Vec3(v[0], v[1], v[2]);
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
  h.direction = FindNamed(request.fixed, "major_direction") != nullptr;
  for (int i = 0; i < 2; ++i) {
    const char* name = SizeName(request.shape, i);
    h.size[i] = name != nullptr && FindNamed(request.fixed, name) != nullptr;
  }
  return h;
}

void ApplyNamed(const std::vector<NamedValue>& list, Feature* f) {
  if (const auto* v = FindNamed(list, "center")) f->center = ToVec3(*v);
  if (const auto* v = FindNamed(list, "axis")) {
    Vec3 a = ToVec3(*v);
    if (a.Length() > 0.0) f->axis = a.Normalize();
  }
  if (const auto* v = FindNamed(list, "major_direction")) {
    Vec3 d = ToVec3(*v);
    if (d.Length() > 0.0) f->major_direction = d.Normalize();
  }
  const bool paired = PairedSizes(f->shape);
  for (int i = 0; i < 2; ++i) {
    const char* name = SizeName(f->shape, i);
    if (name == nullptr) continue;
    if (const auto* v = FindNamed(list, name)) f->size[i] = (*v)[paired ? i : 0];
  }
}

Problem MakeProblem(const Request& request, const PointStats& stats, const Holds& holds,
                    Stage stage) {
  Problem p;
  p.xyz = request.xyz;
  p.count = request.count;
  p.centroid = stats.centroid;
  p.stopBeforeNegligible = request.shortcuts;
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
    case Shape::kEllipse:
      if (c) Free(&p, {kShiftX, kShiftY});
      if (!holds.direction) Free(&p, {kTurnZ});
      break;
    case Shape::kSpheroid:
    case Shape::kParaboloid:
      if (c) Free(&p, {kShiftX, kShiftY, kShiftZ});
      if (a) Free(&p, {kTurnX, kTurnY});
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
    if (SizeCount(request.shape) == 2 && !holds.size[1]) Free(&p, {kSize1});
  }
  return p;
}

AccumulateFn AccumulatorFor(Shape shape, Stage stage, bool fixedFree) {
  const AccumulateFn plane = fixedFree ? &AccumulateFree<PlaneSums> : &Accumulate<PlaneModel>;
  if (stage == Stage::kCirclePlane) return plane;
  switch (shape) {
    case Shape::kLine:
      return &Accumulate<LineModel>;
    case Shape::kPlane:
      return plane;
    case Shape::kSphere:
      return fixedFree ? &AccumulateSpherePairs : &Accumulate<SphereModel>;
    case Shape::kCylinder:
      return fixedFree ? &AccumulateFree<CylinderSums> : &Accumulate<RadialModel>;
    case Shape::kCircle:
      return &Accumulate<RadialModel>;
    case Shape::kCone:
      return &Accumulate<ConeModel>;
    case Shape::kTorus:
      return &Accumulate<TorusModel>;
    case Shape::kEllipse:
      return &Accumulate<EllipseModel>;
    case Shape::kSpheroid:
      return &Accumulate<SpheroidModel>;
    case Shape::kParaboloid:
      return &Accumulate<ParaboloidModel>;
    default:
      return nullptr;
  }
}

State StateFromFeature(const Feature& f, const Vec3& centroid, double probe, bool pivotAtApex) {
  State s = FrameAround(f.center, f.axis);
  if (f.shape == Shape::kEllipse) {
    // The frame's first direction is the major axis.
    const Vec3 d = f.major_direction - s.u * s.u.Dot(f.major_direction);
    if (d.Length() > 0.0) {
      s.e1 = d;
      s.e1.Normalize();
      s.e2 = s.u.Cross(s.e1);
    }
  }
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
  f.major_direction = s.e1;
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
    case Shape::kEllipse:
      // The major semi-axis first: if the iteration made e2's the longer, report that one.
      if (s.size[1] > s.size[0]) {
        f.size[0] = s.size[1];
        f.size[1] = s.size[0];
        f.major_direction = s.e2;
      }
      break;
    default:
      break;
  }
  return f;
}

void ReportValues(const Feature& f, double out[kReportCount]) {
  const Vec3* triples[3] = {&f.center, &f.axis, &f.major_direction};
  for (int k = 0; k < 3; ++k) {
    out[3 * k] = triples[k]->x;
    out[3 * k + 1] = triples[k]->y;
    out[3 * k + 2] = triples[k]->z;
  }
  out[kReportSizes] = f.size[0];
  out[kReportSizes + 1] = f.size[1];
}

ReportSlot SlotOf(Shape shape, const std::string& name) {
  if (name == "center") return {0, 3};
  if (name == "axis") return {3, 3};
  if (name == "major_direction") return {6, 3};
  if (PairedSizes(shape)) return {kReportSizes, 2};
  const char* second = SizeName(shape, 1);
  return {second != nullptr && name == second ? kReportSizes + 1 : kReportSizes, 1};
}

int SizeCount(Shape shape) {
  return SizeName(shape, 0) == nullptr ? 0 : (SizeName(shape, 1) == nullptr ? 1 : 2);
}

std::vector<std::string> PreciseParameterNames(Shape shape) {
  std::vector<std::string> names{"center"};
  if (shape != Shape::kSphere) names.emplace_back("axis");
  if (shape == Shape::kEllipse) names.emplace_back("major_direction");
  for (int i = 0; i < SizeCount(shape); ++i) {
    if (i == 0 || !PairedSizes(shape)) names.emplace_back(SizeName(shape, i));
  }
  return names;
}

}  // namespace metrofit::precise
