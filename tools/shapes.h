// The shapes the tool can fit: name, the library function that fits it, and how to read its
// result (what the centre and axis mean, where each size lives in the size triples, which
// quality figures the function fills in).
#ifndef METROFIT_TOOLS_SHAPES_H
#define METROFIT_TOOLS_SHAPES_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "metrofit.h"

namespace metrofit::cli {

using FitFunction = std::int32_t (*)(CFitInput&, CFitResult&);

// One named size of a shape: component `component` (0 x, 1 y, 2 z) of size triple `triple`
// (1 m_size1, 2 m_size2, 3 m_size3).
struct SizeSlot {
  const char* label;  // for the table, e.g. "major radius"
  const char* key;    // for JSON, e.g. "major_radius"
  int triple;
  int component;
};

// Which parts of a CFitResult a shape's function fills in; the others are not shown.
enum ResultField : unsigned {
  kCentre = 1u << 0,
  kAxis = 1u << 1,
  kIterations = 1u << 2,
  kStatistics = 1u << 3,  // sigma, RMS, smallest and largest deviation
  kFormError = 1u << 4,
};

struct Shape {
  const char* name;
  const char* function;  // name of the library function, for the report
  FitFunction fit;
  const char* summary;  // one line for --help
  const char* centre_label;
  const char* axis_label;
  unsigned fields;
  std::vector<SizeSlot> sizes;
  bool uses_probe_radius;  // the library compensates the probe radius for this shape
};

// Every shape, in the order --help lists them.
const std::vector<Shape>& AllShapes();

// The shape called `name`, or null.
const Shape* FindShape(std::string_view name);

// The value of one size slot in a result.
double SizeValue(const CFitResult& result, const SizeSlot& slot);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_SHAPES_H
