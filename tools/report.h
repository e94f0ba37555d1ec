// Printing a fit result as an aligned table or as JSON.
#ifndef METROFIT_TOOLS_REPORT_H
#define METROFIT_TOOLS_REPORT_H

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "metrofit.h"
#include "shapes.h"

namespace metrofit::cli {

// What one run produced. Holds references: a CFitResult must not be copied (its copy
// constructor deliberately starts empty).
struct FitReport {
  const Shape& shape;
  std::size_t points;
  std::int32_t status;  // return value of the fit function
  const CFitResult& result;
};

void WriteTable(std::ostream& out, const FitReport& report);
void WriteJson(std::ostream& out, const FitReport& report);

// A number for the table: fixed six decimals (sub-micrometre in millimetres).
std::string TableNumber(double value);
// A JSON number in its shortest exact form; null when not finite (JSON has no NaN or inf).
std::string JsonNumber(double value);
// A quoted, escaped JSON string.
std::string JsonString(std::string_view text);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_REPORT_H
