#include "modern/compatible_fit.h"

#include <cmath>
#include <cstdint>
#include <string>

namespace metrofit {

namespace {

using Vec3 = precise::Vec3;
using FitFunction = std::int32_t (*)(CFitInput&, CFitResult&);

// Constraint modes of a CFitParam component: held at its value, or started from it.
constexpr int kModeFixed = 1;
constexpr int kModeStart = 2;

struct Compatible {
  FitFunction fit;
  const char* name;
};

Compatible FunctionFor(Shape shape) {
  switch (shape) {
    case Shape::kLine:
      return {&KFitLine, "KFitLine"};
    case Shape::kPlane:
      return {&KFitPlane, "KFitPlane"};
    case Shape::kCircle:
      return {&KFitCircle, "KFitCircle"};
    case Shape::kSphere:
      return {&KFitSphere, "KFitSphere"};
    case Shape::kCylinder:
      return {&KFitCylinder, "KFitCylinder"};
    case Shape::kCone:
      return {&KFitCone, "KFitCone"};
    case Shape::kParaboloid:
      return {&KFitParaboloid, "KFitParaboloid"};
    case Shape::kSpheroid:
      return {&KFitEllipse, "KFitEllipse"};
    case Shape::kTorus:
      return {&KFitTorus, "KFitTorus"};
    case Shape::kEllipse:
      break;
  }
  return {nullptr, ""};
}

Vec3 Centroid(const precise::Request& request) {
  double sum[3] = {0.0, 0.0, 0.0};
  for (std::size_t i = 0; i < request.count; ++i) {
    for (int k = 0; k < 3; ++k) sum[k] += request.xyz[3 * i + k];
  }
  const double n = static_cast<double>(request.count);
  return Vec3(sum[0] / n, sum[1] / n, sum[2] / n);
}

void SetComponent(CFitParam& param, int component, double value, int mode) {
  double* values[3] = {&param.value.x, &param.value.y, &param.value.z};
  *values[component] = value;
  param.mode[component] = mode;
}

void SetTriple(CFitParam& param, const std::vector<double>& value, int mode) {
  for (int k = 0; k < 3; ++k) SetComponent(param, k, value[k], mode);
}

// Puts one named value into the KFit input; false when the KFit function has no such setting.
bool Apply(Shape shape, const NamedValue& named, int mode, CFitInput& in) {
  const std::string& name = named.name;
  const std::vector<double>& v = named.value;
  if (name == "center") {
    if (shape == Shape::kPlane) return false;
    // The line is held through its reference point on every iteration.
    if (shape == Shape::kLine) {
      if (mode != kModeFixed) return false;
      in.m_refPoint = Vec3(v[0], v[1], v[2]);
      return true;
    }
    SetTriple(in.m_centerParam, v, mode);
    return true;
  }
  if (name == "axis") {
    SetTriple(in.m_axisParam, v, mode);
    return true;
  }
  if (name == "radius") SetComponent(in.m_size1Param, 0, v[0], mode);
  if (name == "half_angle") SetComponent(in.m_size2Param, 2, 1.0 / std::tan(v[0]), mode);
  if (name == "focal_length") SetComponent(in.m_size2Param, 0, v[0], mode);
  if (name == "major_radius") SetComponent(in.m_size1Param, 1, v[0], mode);
  if (name == "minor_radius") SetComponent(in.m_size1Param, 2, v[0], mode);
  if (name == "semi_axes") {
    SetComponent(in.m_size3Param, 0, v[0], mode);
    SetComponent(in.m_size3Param, 1, v[1], mode);
  }
  return true;
}

// The feature the KFit result describes, in the modern conventions (unit axis pointing where
// the surface opens, positive sizes).
precise::Feature FeatureOf(Shape shape, const CFitResult& out, const Vec3& centroid) {
  precise::Feature feature;
  feature.shape = shape;
  feature.center = out.m_center;
  // Already unit: the KFit functions build it from their angles. Kept to the bit.
  feature.axis = out.m_axis;
  switch (shape) {
    case Shape::kPlane: {
      // The plane is {p : p . u = D}; report its point nearest the centroid.
      const double offset = centroid.Dot(feature.axis) - out.m_size2.y;
      feature.center = centroid - offset * feature.axis;
      break;
    }
    case Shape::kSphere:
      // KFitSphere writes no axis; the description's frame needs one, and any will do.
      feature.axis = Vec3(0.0, 0.0, 1.0);
      feature.size[0] = out.m_size1.x;
      break;
    case Shape::kCircle:
    case Shape::kCylinder:
      feature.size[0] = out.m_size1.x;
      break;
    case Shape::kCone: {
      // Slope k: axial rise per unit of radius; a negative slope opens towards -u.
      const double slope = out.m_size2.z;
      if (slope < 0.0) feature.axis = -feature.axis;
      feature.size[0] = std::atan(1.0 / std::fabs(slope));
      break;
    }
    case Shape::kParaboloid: {
      const double focal = out.m_size2.x;
      if (focal < 0.0) feature.axis = -feature.axis;
      feature.size[0] = std::fabs(focal);
      break;
    }
    case Shape::kSpheroid:
      feature.size[0] = std::fabs(out.m_size3.x);
      feature.size[1] = std::fabs(out.m_size3.y);
      break;
    case Shape::kTorus:
      feature.size[0] = out.m_size1.y;
      feature.size[1] = out.m_size1.z;
      break;
    case Shape::kLine:
    case Shape::kEllipse:
      break;
  }
  return feature;
}

bool AllFinite(const std::vector<double>& values) {
  for (double v : values) {
    if (!std::isfinite(v)) return false;
  }
  return true;
}

// Why a fit its KFit function calls a success cannot be reported valid, or nullptr. The KFit
// functions may return NaN or overflowed values, or a feature the points do not determine (a
// plane through collinear points), as a success; a valid result promises finite numbers.
const char* UnusableSuccess(const FitResult& result) {
  for (const Parameter& p : result.parameters) {
    if (!AllFinite(p.value)) return "non-finite parameters";
  }
  if (!AllFinite(result.deviations)) return "non-finite deviations";
  for (const auto& r : result.residuals) {
    if (!std::isfinite(r[0]) || !std::isfinite(r[1]) || !std::isfinite(r[2])) {
      return "non-finite residuals";
    }
  }
  const double stats[] = {result.rms, result.sigma, result.min_deviation, result.max_deviation,
                          result.form_error};
  for (double v : stats) {
    if (!std::isfinite(v)) return "non-finite statistics";
  }
  for (const Parameter& p : result.parameters) {
    if (!AllFinite(p.uncertainty)) return "an infinite uncertainty: the points do not determine it";
  }
  return nullptr;
}

}  // namespace

FitResult FitCompatible(const precise::Request& request) {
  const Compatible compatible = FunctionFor(request.shape);
  FitResult result;
  result.shape = request.shape;
  result.method = Method::kCompatible;

  CFitInput in;
  in.m_points.reserve(request.count);
  for (std::size_t i = 0; i < request.count; ++i) {
    const double* p = request.xyz + 3 * i;
    in.m_points.emplace_back(p[0], p[1], p[2]);
  }
  const Vec3 centroid = Centroid(request);
  // The host application's usual reference point: the line is held through it and the
  // cylinder's axis point is the foot from it.
  in.m_refPoint = centroid;
  in.m_probeRadius = request.probe_radius;
  for (const NamedValue& named : request.fixed) {
    if (!Apply(request.shape, named, kModeFixed, in)) {
      result.status = Status::kUnsupported;
      result.message = std::string(compatible.name) + " cannot hold '" + named.name + "'";
      return result;
    }
  }
  for (const NamedValue& named : request.start) {
    if (!Apply(request.shape, named, kModeStart, in)) {
      result.status = Status::kUnsupported;
      result.message = std::string(compatible.name) + " cannot start from '" + named.name + "'";
      return result;
    }
  }

  CFitResult out;
  const bool valid = compatible.fit(in, out) == 1;
  precise::Describe(request, FeatureOf(request.shape, out, centroid), result);
  result.valid = valid;
  result.status = valid ? Status::kOk : Status::kFailed;
  result.message = valid ? std::string() : std::string(compatible.name) + " reported failure";
  if (!valid && !out.m_message.empty()) result.message += ": " + out.m_message;
  result.rms = out.m_rms;
  result.sigma = out.m_sigma;
  result.min_deviation = out.m_minDeviation;
  result.max_deviation = out.m_maxDeviation;
  result.form_error = out.m_formError;
  result.iterations = out.m_iterations;
  if (const char* why = valid ? UnusableSuccess(result) : nullptr) {
    result.valid = false;
    result.status = Status::kFailed;
    result.message = std::string(compatible.name) + " reported success with " + why;
  }
  return result;
}

}  // namespace metrofit
