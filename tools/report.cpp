#include "report.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace metrofit::cli {

namespace {

constexpr int kTableDecimals = 6;
// Beyond this magnitude fixed notation gets unreadably long.
constexpr double kFixedLimit = 1e9;
constexpr std::size_t kColumnGap = 2;
constexpr double kDegreesPerRadian = 57.29577951308232;

using Rows = std::vector<std::pair<std::string, std::string>>;

bool IsDirection(const std::string& name) {
  return name == "axis" || name == "major_direction";
}

bool IsAngle(const std::string& name) {
  return name == "half_angle";
}

bool IsFixed(const FitOptions& options, const std::string& name) {
  return std::any_of(options.fixed.begin(), options.fixed.end(),
                     [&](const NamedValue& fixed) { return fixed.name == name; });
}

std::string TableNumbers(const std::vector<double>& values, double scale = 1.0) {
  std::string text;
  for (const double value : values) {
    if (!text.empty()) text += "  ";
    text += TableNumber(value * scale);
  }
  return text;
}

// "12.500136 ± 0.000021 mm", "10.000000 (fixed) mm", "0.523599 ± 0.000012 rad (30.0... deg)".
std::string ParameterText(const Parameter& p, const FitReport& report) {
  const bool fixed = IsFixed(report.options, p.name);
  const auto values = [&](double scale) {
    return TableNumbers(p.value, scale) +
           (fixed ? " (fixed)" : " \u00b1 " + TableNumbers(p.uncertainty, scale));
  };
  if (IsDirection(p.name)) return values(1.0);
  if (IsAngle(p.name)) return values(1.0) + " rad  (" + values(kDegreesPerRadian) + " deg)";
  return values(1.0) + " " + report.units;
}

std::string LengthText(double value, const std::string& units) {
  return TableNumber(value) + " " + units;
}

Rows TableRows(const FitReport& report) {
  const FitResult& r = report.result;
  Rows rows = {{"file", report.file},
               {"shape", std::string(ToString(r.shape)) + ", " + ToString(r.method) + " method"},
               {"points", std::to_string(report.points)}};
  if (report.options.probe_radius != 0.0) {
    rows.emplace_back("probe radius", LengthText(report.options.probe_radius, report.units));
  }
  for (const Parameter& p : r.parameters) rows.emplace_back(p.name, ParameterText(p, report));
  rows.emplace_back("rms", LengthText(r.rms, report.units));
  rows.emplace_back("sigma", LengthText(r.sigma, report.units));
  rows.emplace_back("min deviation", LengthText(r.min_deviation, report.units));
  rows.emplace_back("max deviation", LengthText(r.max_deviation, report.units));
  rows.emplace_back("form error", LengthText(r.form_error, report.units));
  rows.emplace_back("iterations", std::to_string(r.iterations));
  rows.emplace_back("status", StatusText(r.status) + (r.message.empty() ? "" : ": " + r.message));
  return rows;
}

nlohmann::ordered_json NamedValues(const std::vector<NamedValue>& values) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const NamedValue& v : values) list.push_back({{"name", v.name}, {"value", v.value}});
  return list;
}

nlohmann::ordered_json Parameters(const FitReport& report) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Parameter& p : report.result.parameters) {
    list.push_back({{"name", p.name},
                    {"value", p.value},
                    {"uncertainty", p.uncertainty},
                    {"fixed", IsFixed(report.options, p.name)}});
  }
  return list;
}

template <class T>
void PutIfPresent(nlohmann::ordered_json* json, const char* key, const std::optional<T>& value) {
  if (value) (*json)[key] = *value;
}

// The named fields of the result the shape has.
void PutShapeFields(const FitResult& r, nlohmann::ordered_json* json) {
  (*json)["center"] = r.center;
  PutIfPresent(json, "axis", r.axis);
  PutIfPresent(json, "radius", r.radius);
  PutIfPresent(json, "half_angle", r.half_angle);
  PutIfPresent(json, "major_radius", r.major_radius);
  PutIfPresent(json, "minor_radius", r.minor_radius);
  PutIfPresent(json, "focal_length", r.focal_length);
  PutIfPresent(json, "semi_axes", r.semi_axes);
  PutIfPresent(json, "major_direction", r.major_direction);
}

}  // namespace

std::string StatusText(Status status) {
  std::string text = ToString(status);
  std::replace(text.begin(), text.end(), '_', ' ');
  return text;
}

std::string TableNumber(double value) {
  // The C library may print a sign on NaN; it means nothing there.
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  // Print -0 as 0: a sign on a zero only confuses a reader.
  if (value == 0.0) value = 0.0;
  const char* format = std::fabs(value) < kFixedLimit ? "%.*f" : "%.*e";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, kTableDecimals, value);
  return buffer;
}

std::string ExactNumber(double value) {
  char buffer[64];
  const std::to_chars_result res = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, res.ptr);
}

void WriteTable(std::ostream& out, const FitReport& report) {
  const Rows rows = TableRows(report);
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.first.size());
  for (const auto& [label, text] : rows) {
    out << label << std::string(width + kColumnGap - label.size(), ' ') << text << '\n';
  }
}

nlohmann::ordered_json JsonReport(const FitReport& report, bool with_points) {
  const FitResult& r = report.result;
  nlohmann::ordered_json json = {
      {"schema", kJsonSchema},
      {"file", report.file},
      {"units", {{"length", report.units}, {"angle", "rad"}}},
      {"shape", ToString(r.shape)},
      {"method", ToString(r.method)},
      {"points", report.points},
      {"valid", r.valid},
      {"status", ToString(r.status)},
      {"message", r.message},
      {"iterations", r.iterations},
      {"parameters", Parameters(report)},
  };
  PutShapeFields(r, &json);
  json["statistics"] = {{"rms", r.rms},
                        {"sigma", r.sigma},
                        {"min_deviation", r.min_deviation},
                        {"max_deviation", r.max_deviation},
                        {"form_error", r.form_error}};
  json["options"] = {{"probe_radius", report.options.probe_radius},
                     {"fixed", NamedValues(report.options.fixed)},
                     {"start", NamedValues(report.options.start)}};
  if (with_points) {
    json["deviations"] = r.deviations;
    json["residuals"] = r.residuals;
  }
  return json;
}

void WriteJson(std::ostream& out, const FitReport& report, bool with_points) {
  // Text from the file name or the library is not trusted to be UTF-8: replace, never throw.
  out << JsonReport(report, with_points)
             .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
      << '\n';
}

void WriteDeviationsCsv(std::ostream& out, PointsView points, const FitResult& result) {
  if (result.deviations.size() != points.size()) {
    throw std::logic_error("the fit returned " + std::to_string(result.deviations.size()) +
                           " deviations for " + std::to_string(points.size()) + " points");
  }
  out << "x,y,z,deviation\n";
  for (std::size_t k = 0; k < points.size(); ++k) {
    const Point p = points[k];
    out << ExactNumber(p.x) << ',' << ExactNumber(p.y) << ',' << ExactNumber(p.z) << ','
        << ExactNumber(result.deviations[k]) << '\n';
  }
}

void WriteDeviationsCsv(std::ostream& out, const std::vector<Point>& points,
                        const FitResult& result) {
  WriteDeviationsCsv(out, PointsView(points), result);
}

}  // namespace metrofit::cli
