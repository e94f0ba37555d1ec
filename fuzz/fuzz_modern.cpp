// Fuzz target: the modern interface, metrofit::Fit.
//
// Property: no crash, no sanitizer report (ASan, UBSan), no hang; and the result keeps its
// documented promises whatever the input:
//   - valid exactly when the status is ok;
//   - a valid result has finite center, axis, sizes, parameter values and uncertainties,
//     rms, sigma, smallest and largest deviation, form error, and one finite deviation and
//     residual vector per point.
// A broken promise ends the run with __builtin_trap, so libFuzzer keeps the input.
//
// The bytes decode into the shape (sometimes an unknown one), the method, fixed and start
// values (names of the shape or not, right or wrong length, ordinary or hostile numbers), the
// probe radius and a point list on a perturbed surface (fuzz_points.h): up to
// fuzz_points::kMaxPoints points, or kMaxPointsMultiStart for the shapes fitted from several
// starts.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_points.h"
#include "metrofit/fit.h"

namespace {

constexpr int kShapeCount = 10;
// Entries of fixed or start at most: more than any shape has parameters.
constexpr int kMaxNamedValues = 4;
constexpr std::size_t kMaxValueLength = 4;

metrofit::Shape DecodeShape(FuzzedDataProvider& fdp) {
  if (fdp.ConsumeIntegralInRange<int>(0, 31) == 0) {
    return static_cast<metrofit::Shape>(fdp.ConsumeIntegral<int>());
  }
  return static_cast<metrofit::Shape>(fdp.ConsumeIntegralInRange<int>(0, kShapeCount - 1));
}

metrofit::Method DecodeMethod(FuzzedDataProvider& fdp) {
  if (fdp.ConsumeIntegralInRange<int>(0, 31) == 0) {
    return static_cast<metrofit::Method>(fdp.ConsumeIntegral<int>());
  }
  return fdp.ConsumeBool() ? metrofit::Method::kCompatible : metrofit::Method::kPrecise;
}

// The shapes whose fits (either method) minimise from several candidate starts over every point.
bool MultiStart(metrofit::Shape shape) {
  return shape == metrofit::Shape::kCylinder || shape == metrofit::Shape::kCone ||
         shape == metrofit::Shape::kTorus;
}

std::size_t ExpectedLength(const std::string& name) {
  if (name == "center" || name == "axis" || name == "major_direction") return 3;
  return name == "semi_axes" ? 2 : 1;
}

std::vector<metrofit::NamedValue> DecodeNamed(FuzzedDataProvider& fdp,
                                              const std::vector<std::string>& names) {
  std::vector<metrofit::NamedValue> list;
  const int count = fdp.ConsumeIntegralInRange<int>(0, kMaxNamedValues);
  for (int k = 0; k < count; ++k) {
    metrofit::NamedValue named;
    if (names.empty() || fdp.ConsumeIntegralInRange<int>(0, 15) == 0) {
      named.name = fdp.ConsumeRandomLengthString(16);
    } else {
      named.name = names[fdp.ConsumeIntegralInRange<std::size_t>(0, names.size() - 1)];
    }
    std::size_t length = ExpectedLength(named.name);
    if (fdp.ConsumeIntegralInRange<int>(0, 15) == 0) {
      length = fdp.ConsumeIntegralInRange<std::size_t>(0, kMaxValueLength);
    }
    for (std::size_t i = 0; i < length; ++i) {
      named.value.push_back(fuzz_points::Number(fdp, -2000.0, 2000.0));
    }
    list.push_back(std::move(named));
  }
  return list;
}

bool Finite(double v) {
  return std::isfinite(v);
}
template <std::size_t N>
bool Finite(const std::array<double, N>& a) {
  for (double v : a) {
    if (!std::isfinite(v)) return false;
  }
  return true;
}
template <class T>
bool Finite(const std::optional<T>& o) {
  return !o || Finite(*o);
}
bool Finite(const std::vector<double>& a) {
  for (double v : a) {
    if (!std::isfinite(v)) return false;
  }
  return true;
}

// The first broken promise of a result (see the file comment), or nullptr.
const char* BrokenPromise(const metrofit::FitResult& r, std::size_t count) {
  if (r.valid != (r.status == metrofit::Status::kOk)) return "valid differs from status ok";
  if (!r.valid) return nullptr;
  if (!Finite(r.center) || !Finite(r.axis)) return "non-finite center or axis";
  if (!Finite(r.radius) || !Finite(r.half_angle) || !Finite(r.major_radius) ||
      !Finite(r.minor_radius) || !Finite(r.focal_length) || !Finite(r.semi_axes) ||
      !Finite(r.major_direction)) {
    return "non-finite size or direction";
  }
  for (const metrofit::Parameter& p : r.parameters) {
    if (!Finite(p.value)) return "non-finite parameter value";
    if (!Finite(p.uncertainty)) return "non-finite parameter uncertainty";
  }
  if (r.deviations.size() != count || r.residuals.size() != count) {
    return "not one deviation and residual per point";
  }
  if (!Finite(r.deviations)) return "non-finite deviation";
  for (const auto& v : r.residuals) {
    if (!Finite(v)) return "non-finite residual";
  }
  if (!Finite(r.rms) || !Finite(r.sigma)) return "non-finite rms or sigma";
  if (!Finite(r.min_deviation) || !Finite(r.max_deviation) || !Finite(r.form_error)) {
    return "non-finite deviation range or form error";
  }
  return nullptr;
}

// The decoded input on stderr, for reproducing a finding outside the fuzzer.
void Describe(const metrofit::FitOptions& o, const std::vector<double>& xyz) {
  std::fprintf(stderr, "shape %d, method %d, probe %.17g, %zu points\n", static_cast<int>(o.shape),
               static_cast<int>(o.method), o.probe_radius, xyz.size() / 3);
  for (const auto* list : {&o.fixed, &o.start}) {
    for (const metrofit::NamedValue& n : *list) {
      std::fprintf(stderr, "%s %s:", list == &o.fixed ? "fixed" : "start", n.name.c_str());
      for (double v : n.value) std::fprintf(stderr, " %.17g", v);
      std::fprintf(stderr, "\n");
    }
  }
  for (std::size_t i = 0; i + 2 < xyz.size(); i += 3) {
    std::fprintf(stderr, "%.17g %.17g %.17g\n", xyz[i], xyz[i + 1], xyz[i + 2]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider fdp(data, size);
  metrofit::FitOptions options;
  options.shape = DecodeShape(fdp);
  options.method = DecodeMethod(fdp);
  const std::vector<std::string> names = metrofit::ParameterNames(options.shape);
  options.fixed = DecodeNamed(fdp, names);
  options.start = DecodeNamed(fdp, names);
  options.probe_radius = fdp.ConsumeBool() ? 0.0 : fuzz_points::Number(fdp, -10.0, 10.0);
  const std::vector<double> xyz = fuzz_points::DecodePoints(
      fdp, MultiStart(options.shape) ? fuzz_points::kMaxPointsMultiStart : fuzz_points::kMaxPoints);
  const std::size_t count = xyz.size() / 3;

  if (std::getenv("METROFIT_FUZZ_VERBOSE") != nullptr) Describe(options, xyz);
  const metrofit::FitResult result =
      metrofit::Fit(xyz.empty() ? nullptr : xyz.data(), count, options);
  if (const char* broken = BrokenPromise(result, count)) {
    std::fprintf(stderr, "fuzz_modern: %s (%s, %s, status %s, %zu points)\n", broken,
                 metrofit::ToString(options.shape), metrofit::ToString(options.method),
                 metrofit::ToString(result.status), count);
    __builtin_trap();
  }
  return 0;
}
