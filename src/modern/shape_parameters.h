// The named parameters of each shape and how many numbers each holds.
#ifndef METROFIT_MODERN_SHAPE_PARAMETERS_H
#define METROFIT_MODERN_SHAPE_PARAMETERS_H

#include <cstddef>
#include <string_view>
#include <vector>

#include "metrofit/fit.h"

namespace metrofit {

enum class ParameterKind {
  kPoint,      // three coordinates
  kDirection,  // three components of a non-zero direction, made unit
  kLength,     // one positive length
  kAngle,      // one angle strictly between 0 and pi/2
  kLengths,    // two positive lengths
};

struct ParameterSpec {
  std::string_view name;
  ParameterKind kind;
};

std::size_t ValueCount(ParameterKind kind);

// In the order of FitResult::parameters; empty for an unknown shape.
const std::vector<ParameterSpec>& ParameterSpecs(Shape shape);

// The description of the named parameter of the shape, or nullptr.
const ParameterSpec* FindParameterSpec(Shape shape, std::string_view name);

bool IsKnownShape(Shape shape);

}  // namespace metrofit

#endif  // METROFIT_MODERN_SHAPE_PARAMETERS_H
