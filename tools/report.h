// The result of one fit as a table, as a line of JSON (schema metrofit.fit/1) and as a CSV of
// per-point deviations.
#ifndef METROFIT_TOOLS_REPORT_H
#define METROFIT_TOOLS_REPORT_H

#include <cstddef>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "metrofit/fit.h"
#include "points_view.h"

namespace metrofit::cli {

// Identifies the JSON documents the tool writes; a reader checks it before anything else.
inline constexpr char kJsonSchema[] = "metrofit.fit/1";

// One fit and what the report needs to describe it.
struct FitReport {
  const std::string& file;  // as given on the command line, "-" for standard input
  std::size_t points;
  const std::string& units;  // label of the length unit
  const FitOptions& options;
  const FitResult& result;
};

// Aligned "label  value" lines; parameters with their standard uncertainties.
void WriteTable(std::ostream& out, const FitReport& report);

// Every field of the result; the per-point deviations and residuals only `with_points`.
nlohmann::ordered_json JsonReport(const FitReport& report, bool with_points);
// JsonReport on one line.
void WriteJson(std::ostream& out, const FitReport& report, bool with_points);

// "x,y,z,deviation" and one row per point, in the order read. The result must hold one
// deviation per point.
void WriteDeviationsCsv(std::ostream& out, PointsView points, const FitResult& result);
void WriteDeviationsCsv(std::ostream& out, const std::vector<Point>& points,
                        const FitResult& result);

// The status for a reader: "too few points" for too_few_points.
std::string StatusText(Status status);

// A number for the table: fixed six decimals (sub-micrometre in millimetres).
std::string TableNumber(double value);
// A number in its shortest form that reads back exactly.
std::string ExactNumber(double value);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_REPORT_H
