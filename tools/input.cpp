#include "input.h"

#include "point_file.h"

namespace metrofit::cli {

namespace {

constexpr char kStandardInput[] = "-";
// How standard input is named in messages.
constexpr char kStandardInputName[] = "<stdin>";

std::vector<Point> ToPoints(const std::vector<KPt3<double>>& read) {
  std::vector<Point> points;
  points.reserve(read.size());
  for (const KPt3<double>& p : read) points.push_back({p.x, p.y, p.z});
  return points;
}

}  // namespace

const char* const kFormatHelp = "FILE format: auto (default) or text";

std::string CheckInputOptions(const InputOptions& options) {
  // The plain-text reader knows one format, its columns are always x y z, and its numbers
  // have a decimal point.
  if (options.format != "auto" && options.format != "text") {
    return "--format takes auto or text, not '" + options.format + "'";
  }
  if (!options.columns.empty()) return "--columns needs a CSV reader, which this build lacks";
  if (options.decimal_comma) return "--decimal-comma needs a reader this build lacks";
  return std::string();
}

std::vector<Point> ReadInputPoints(const std::string& file, const InputOptions& options,
                                   std::istream& standard_input) {
  static_cast<void>(options);  // nothing to choose between with one format
  try {
    if (file == kStandardInput) return ToPoints(ReadPoints(standard_input, kStandardInputName));
    return ToPoints(ReadPointFile(file));
  } catch (const InputError& e) {
    throw ReadError(e.what());
  }
}

}  // namespace metrofit::cli
