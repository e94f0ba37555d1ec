#include "modern/request_check.h"

#include <cmath>
#include <limits>
#include <sstream>

#include "modern/shape_parameters.h"

namespace metrofit {

namespace {

// A direction shorter than this cannot be made unit reliably.
constexpr double kMinDirectionLength = 1e-12;
constexpr double kHalfPi = 1.5707963267948966;
// Coordinates checked together for finiteness before the first bad one is looked for: a whole
// block has no branch per value, which lets the compiler vectorise the check.
constexpr std::size_t kFiniteBlock = 1024;

// True when every one of the kFiniteBlock values is finite (|v| <= max fails for inf and NaN).
bool BlockFinite(const double* v) {
  bool finite = true;
  for (std::size_t i = 0; i < kFiniteBlock; ++i) {
    finite &= std::fabs(v[i]) <= std::numeric_limits<double>::max();
  }
  return finite;
}

// Index of the first non-finite value, or n.
std::size_t FirstNonFinite(const double* v, std::size_t n) {
  std::size_t begin = 0;
  while (n - begin >= kFiniteBlock && BlockFinite(v + begin)) begin += kFiniteBlock;
  for (std::size_t i = begin; i < n; ++i) {
    if (!std::isfinite(v[i])) return i;
  }
  return n;
}

CheckedRequest Reject(Status status, const std::string& message) {
  CheckedRequest checked;
  checked.status = status;
  checked.message = message;
  return checked;
}

std::string Article(Shape shape) {
  const std::string name = ToString(shape);
  const bool vowel = name[0] == 'e';
  return (vowel ? "an " : "a ") + name;
}

std::string NameList(Shape shape) {
  std::string list;
  for (const std::string& name : ParameterNames(shape)) {
    list += (list.empty() ? "" : ", ") + name;
  }
  return list;
}

// Empty when the values suit the parameter; else what is wrong with them.
std::string CheckValues(const ParameterSpec& param, std::vector<double>& value) {
  const std::size_t expected = ValueCount(param.kind);
  std::ostringstream why;
  if (value.size() != expected) {
    why << "'" << param.name << "' takes " << expected << (expected == 1 ? " value" : " values")
        << ", " << value.size() << " given";
    return why.str();
  }
  for (double v : value) {
    if (!std::isfinite(v)) return "'" + std::string(param.name) + "' has a non-finite value";
  }
  switch (param.kind) {
    case ParameterKind::kPoint:
      break;
    case ParameterKind::kDirection: {
      const double length = std::hypot(value[0], value[1], value[2]);
      if (!(length > kMinDirectionLength)) {
        return "'" + std::string(param.name) + "' must be a non-zero direction";
      }
      for (double& v : value) v /= length;
      break;
    }
    case ParameterKind::kLength:
    case ParameterKind::kLengths:
      for (double v : value) {
        if (!(v > 0.0)) return "'" + std::string(param.name) + "' must be positive";
      }
      break;
    case ParameterKind::kAngle:
      if (!(value[0] > 0.0 && value[0] < kHalfPi)) {
        return "'" + std::string(param.name) + "' must lie strictly between 0 and pi/2 radians";
      }
      break;
  }
  return {};
}

// Checks one list (fixed or start) and copies it into out; empty string when all is well.
CheckedRequest CheckValueList(Shape shape, const char* what, const std::vector<NamedValue>& in,
                              std::vector<NamedValue>& out) {
  for (const NamedValue& named : in) {
    const ParameterSpec* param = FindParameterSpec(shape, named.name);
    if (!param) {
      return Reject(Status::kUnknownParameter, "'" + named.name + "' is not a parameter of " +
                                                   Article(shape) +
                                                   " (its parameters: " + NameList(shape) + ")");
    }
    for (const NamedValue& earlier : out) {
      if (earlier.name == named.name) {
        return Reject(Status::kInvalidOption,
                      "'" + named.name + "' is given twice as a " + what + " value");
      }
    }
    NamedValue copy = named;
    const std::string why = CheckValues(*param, copy.value);
    if (!why.empty()) return Reject(Status::kInvalidOption, why);
    out.push_back(std::move(copy));
  }
  return {};
}

CheckedRequest CheckPoints(const double* xyz, std::size_t count, Shape shape) {
  const std::size_t needed = MinimumPoints(shape);
  if (count < needed) {
    std::ostringstream why;
    why << Article(shape) << " needs at least " << needed << " points; " << count << " given";
    return Reject(Status::kTooFewPoints, why.str());
  }
  if (!xyz) return Reject(Status::kInvalidOption, "no point array given");
  static const char* const kAxes[] = {"x", "y", "z"};
  const std::size_t i = FirstNonFinite(xyz, 3 * count);
  if (i < 3 * count) {
    std::ostringstream why;
    why << "point " << i / 3 << " has a non-finite coordinate (" << kAxes[i % 3] << " = " << xyz[i]
        << ")";
    return Reject(Status::kNonFinitePoint, why.str());
  }
  return {};
}

}  // namespace

CheckedRequest CheckRequest(const double* xyz, std::size_t count, const FitOptions& options) {
  const Shape shape = options.shape;
  if (!IsKnownShape(shape)) return Reject(Status::kUnknownShape, "unknown shape");
  if (options.method != Method::kPrecise && options.method != Method::kCompatible) {
    return Reject(Status::kInvalidOption, "unknown method");
  }
  if (options.method == Method::kCompatible && shape == Shape::kEllipse) {
    return Reject(Status::kUnsupported,
                  "no KFit function fits a planar ellipse (KFitEllipse fits a spheroid): use "
                  "the precise method, or the spheroid shape");
  }
  if (!std::isfinite(options.probe_radius)) {
    return Reject(Status::kInvalidOption, "the probe radius must be finite");
  }
  CheckedRequest checked = CheckPoints(xyz, count, shape);
  if (checked.status != Status::kOk) return checked;
  std::vector<NamedValue> fixed, start;
  checked = CheckValueList(shape, "fixed", options.fixed, fixed);
  if (checked.status != Status::kOk) return checked;
  checked = CheckValueList(shape, "start", options.start, start);
  if (checked.status != Status::kOk) return checked;
  for (const NamedValue& named : start) {
    for (const NamedValue& held : fixed) {
      if (held.name == named.name) {
        return Reject(Status::kInvalidOption,
                      "'" + named.name + "' is given both as a fixed and as a start value");
      }
    }
  }
  checked.request.fixed = std::move(fixed);
  checked.request.start = std::move(start);
  checked.request.shape = shape;
  checked.request.xyz = xyz;
  checked.request.count = count;
  checked.request.probe_radius = options.probe_radius;
  return checked;
}

}  // namespace metrofit
