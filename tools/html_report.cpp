#include "html_report.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <utility>

#include "report_assets/report_script.h"
#include "report_assets/report_style.h"
#include "report_svg.h"
#include "report_views.h"

namespace metrofit::cli {

namespace {

using metrofit::Shape;

// Decimals for a value without an uncertainty to round it to: sub-micrometre in millimetres,
// and a nanoradian's worth for the components of a direction.
constexpr int kLengthDecimals = 6;
constexpr int kDirectionDecimals = 9;
constexpr int kDegreeDecimals = 4;  // an angle beside its radians, when it has no uncertainty
// Significant digits kept of a standard uncertainty, and the value rounded to the same place.
constexpr int kUncertaintyDigits = 2;
// Significant digits of the largest deviation statistic; the others share its decimals.
constexpr int kStatisticDigits = 4;
// Fixed seed of the drawn sample: the same file gives the same picture on every run.
constexpr std::uint64_t kSampleSeed = 0x6d6574726f666974ULL;
constexpr double kDegreesPerRadian = 180.0 / 3.14159265358979323846;

// A count in groups of three digits, split by a narrow no-break space: 1 000 000.
std::string Count(std::size_t n) {
  std::string digits = std::to_string(n);
  for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, "&#8239;");
  return digits;
}

// "Cylinder" for a title: the library's name with a capital.
std::string ShapeTitle(Shape shape) {
  std::string name = ToString(shape);
  if (!name.empty()) name[0] = static_cast<char>(name[0] - 'a' + 'A');
  return name;
}

// "not converged" for a sentence: the library's name with blanks.
std::string StatusLabel(Status status) {
  std::string name = ToString(status);
  for (char& c : name) {
    if (c == '_') c = ' ';
  }
  return name;
}

// What a parameter means for this shape, shown under its name.
std::string Describe(Shape shape, const std::string& name) {
  if (name == "center") {
    switch (shape) {
      case Shape::kLine:
        return "point on the line nearest the centroid";
      case Shape::kPlane:
        return "point of the plane nearest the centroid";
      case Shape::kCylinder:
        return "point on the axis nearest the centroid";
      case Shape::kCone:
        return "apex";
      case Shape::kParaboloid:
        return "vertex";
      default:
        return "centre";
    }
  }
  if (name == "axis") {
    if (shape == Shape::kLine) return "direction";
    if (shape == Shape::kPlane || shape == Shape::kCircle || shape == Shape::kEllipse) {
      return "normal";
    }
    if (shape == Shape::kCone || shape == Shape::kParaboloid) return "axis, opening direction";
    return "axis direction";
  }
  if (name == "major_direction") return "direction of the major axis";
  if (name == "half_angle") return "half the opening angle";
  if (name == "major_radius") return "centre to the middle of the tube";
  if (name == "minor_radius") return "radius of the tube";
  return "";
}

std::string Component(Shape shape, const std::string& name, std::size_t k, std::size_t count) {
  if (count == 3) return std::string(1, static_cast<char>('x' + k));
  if (name == "semi_axes" && count == 2) {
    if (shape == Shape::kSpheroid) return k == 0 ? "along axis" : "across axis";
    return k == 0 ? "major" : "minor";
  }
  return "";
}

bool IsDirection(const std::string& name) {
  return name == "axis" || name == "major_direction";
}

std::string UnitOf(const std::string& name, const std::string& units) {
  if (IsDirection(name)) return "unit vector";
  if (name == "half_angle") return "rad";
  return units;
}

void WriteParameterRow(std::ostream& out, const Parameter& p, std::size_t k, Shape shape,
                       const std::string& units) {
  const double value = p.value[k];
  const bool has_u = k < p.uncertainty.size() && std::isfinite(p.uncertainty[k]);
  const double u = has_u ? p.uncertainty[k] : 0.0;
  const int fallback = IsDirection(p.name) ? kDirectionDecimals : kLengthDecimals;
  const int decimals = u > 0.0 ? DecimalsFor(u, kUncertaintyDigits) : fallback;
  out << "<tr>";
  if (k == 0) {
    out << "<th scope=\"rowgroup\" rowspan=\"" << p.value.size() << "\"><code>"
        << HtmlEscape(p.name) << "</code>";
    const std::string description = Describe(shape, p.name);
    if (!description.empty()) out << "<span class=\"desc\">" << description << "</span>";
    out << "</th>";
  }
  out << "<td class=\"comp\">" << Component(shape, p.name, k, p.value.size())
      << "</td><td class=\"num\">" << FixedNumber(value, decimals) << "</td><td class=\"num\">"
      << (has_u ? FixedNumber(u, decimals) : "n/a") << "</td><td class=\"unit\">"
      << HtmlEscape(UnitOf(p.name, units));
  if (p.name == "half_angle" && std::isfinite(value)) {
    const int degree_decimals =
        u > 0.0 ? DecimalsFor(u * kDegreesPerRadian, kUncertaintyDigits) : kDegreeDecimals;
    out << " (" << FixedNumber(value * kDegreesPerRadian, degree_decimals) << "°)";
  }
  out << "</td></tr>";
}

void WriteParameters(std::ostream& out, const FitResult& r, const std::string& units) {
  out << "<section class=\"card\" id=\"parameters\"><h2>Parameters</h2>";
  if (r.parameters.empty()) {
    out << "<p class=\"empty\">No parameters: the fit produced none.</p></section>\n";
    return;
  }
  out << "<table><thead><tr><th>Parameter</th><th></th><th class=\"num\">Value</th>"
         "<th class=\"num\">Std. uncertainty</th><th>Unit</th></tr></thead>";
  for (const Parameter& p : r.parameters) {
    out << "<tbody data-parameter=\"" << HtmlEscape(p.name) << "\">";
    for (std::size_t k = 0; k < p.value.size(); ++k) WriteParameterRow(out, p, k, r.shape, units);
    out << "</tbody>";
  }
  out << "</table>";
  if (!r.valid) {
    out << "<p class=\"note\">The fit is not valid: these values are shown for diagnosis "
           "only.</p>";
  }
  out << "<p class=\"note\">Standard uncertainties (one standard deviation); each value is "
         "rounded to two significant digits of its uncertainty. A zero uncertainty marks a "
         "parameter held fixed.</p></section>\n";
}

void WriteStatisticRow(std::ostream& out, const char* key, const char* label,
                       const char* description, const std::string& value, const std::string& unit) {
  out << "<tr data-stat=\"" << key << "\"><th>" << label << "<span class=\"desc\">" << description
      << "</span></th><td class=\"num\">" << value << "</td><td class=\"unit\">" << HtmlEscape(unit)
      << "</td></tr>";
}

void WriteStatistics(std::ostream& out, const FitResult& r, std::size_t points,
                     const std::string& units) {
  double scale = 0.0;
  for (const double v : {r.rms, r.sigma, r.min_deviation, r.max_deviation, r.form_error}) {
    if (std::isfinite(v)) scale = std::max(scale, std::fabs(v));
  }
  const int decimals = scale > 0.0 ? DecimalsFor(scale, kStatisticDigits) : kLengthDecimals;
  const auto length = [decimals](double v) { return FixedNumber(v, decimals); };
  out << "<section class=\"card\" id=\"statistics\"><h2>Statistics</h2><table><tbody>";
  WriteStatisticRow(out, "points", "Points", "measured points fitted", Count(points), "");
  WriteStatisticRow(out, "rms", "RMS", "root mean square of the deviations", length(r.rms), units);
  WriteStatisticRow(out, "sigma", "Sigma", "standard deviation for the degrees of freedom left",
                    length(r.sigma), units);
  WriteStatisticRow(out, "min_deviation", "Min deviation", "smallest signed deviation",
                    length(r.min_deviation), units);
  WriteStatisticRow(out, "max_deviation", "Max deviation", "largest signed deviation",
                    length(r.max_deviation), units);
  WriteStatisticRow(out, "form_error", "Form error",
                    r.shape == Shape::kLine ? "twice the largest distance from the line"
                                            : "max minus min deviation",
                    length(r.form_error), units);
  WriteStatisticRow(out, "iterations", "Iterations", "steps of the solver",
                    std::to_string(r.iterations), "");
  out << "</tbody></table></section>\n";
}

const char* StatusClass(const FitResult& r) {
  if (!r.valid) return "bad";
  return r.status == Status::kOk ? "ok" : "warn";
}

// ": message." after a status, as one sentence however the message ends.
std::string Explanation(const std::string& message) {
  if (message.empty()) return ".";
  const char last = message.back();
  const bool closed = last == '.' || last == '!' || last == '?';
  return ": " + HtmlEscape(message) + (closed ? "" : ".");
}

void WriteHeader(std::ostream& out, const ReportInput& in) {
  const FitResult& r = in.result;
  out << "<header class=\"top\"><div class=\"kicker\">metrofit fit report</div><h1>"
      << ShapeTitle(r.shape) << " fit</h1><div class=\"source\">" << HtmlEscape(in.source)
      << "<span class=\"sep\">|</span>" << Count(in.points.size()) << " points"
      << "<span class=\"sep\">|</span>lengths in " << HtmlEscape(in.units)
      << "</div><div class=\"badges\"><span class=\"badge " << (r.valid ? "ok" : "bad")
      << "\" id=\"validity\">" << (r.valid ? "valid fit" : "not valid")
      << "</span><span class=\"badge " << StatusClass(r)
      << "\" id=\"status\">status: " << StatusLabel(r.status)
      << "</span><span class=\"badge\" id=\"method\">method: " << ToString(r.method)
      << "</span></div>";
  if (!r.message.empty()) {
    out << "<p class=\"message\" id=\"message\">" << HtmlEscape(r.message) << "</p>";
  }
  out << "</header>\n";
  if (!r.valid) {
    out << "<div class=\"banner bad\" role=\"alert\"><strong>This fit is not valid.</strong> "
           "Status: "
        << StatusLabel(r.status) << Explanation(r.message)
        << " Do not use its values to judge the part.</div>\n";
  } else if (r.status != Status::kOk) {
    out << "<div class=\"banner warn\" role=\"status\"><strong>Check this fit.</strong> "
           "Status: "
        << StatusLabel(r.status) << Explanation(r.message) << "</div>\n";
  }
}

// The indices of the smallest and the largest finite deviation; nullopt when there is none.
std::optional<Extremes> FindExtremes(const std::vector<double>& deviations) {
  std::optional<Extremes> found;
  for (std::size_t i = 0; i < deviations.size(); ++i) {
    const double d = deviations[i];
    if (!std::isfinite(d)) continue;
    if (!found) {
      found = Extremes{i, i};
      continue;
    }
    if (d < deviations[found->min_index]) found->min_index = i;
    if (d > deviations[found->max_index]) found->max_index = i;
  }
  return found;
}

void WriteScaleNote(std::ostream& out, const ReportInput& in, const ColourScale& scale) {
  const int decimals = DecimalsFor(scale.limit(), 3);
  out << "<p class=\"note\">Colour shows the signed deviation of each point: red where it lies "
         "outside the feature, blue inside, grey on it. The scale is symmetric about zero and "
         "reaches the largest deviation, "
      << FixedNumber(scale.limit(), decimals) << " " << HtmlEscape(in.units)
      << "; rings mark the smallest and the largest deviation.";
  if (in.result.shape == Shape::kLine) {
    out << " A line's deviation is a distance, never negative.";
  }
  out << "</p>";
}

// How many points the views show, and why not all where they do not.
void WriteSampleNote(std::ostream& out, std::size_t total, std::size_t sampled, std::size_t drawn) {
  out << "<p class=\"note\" id=\"sample-note\">";
  if (drawn == total) {
    out << "Every point is drawn (" << Count(total) << ").";
  } else {
    out << "Each view draws " << Count(drawn) << " of the " << Count(total) << " points";
    if (sampled < total) out << ": a reproducible sample that includes both extremes";
    if (drawn < sampled) out << " (a point without a finite position or deviation is left out)";
    out << ". The statistics and the histogram use every point.";
  }
  out << "</p>";
}

void WriteViews(std::ostream& out, const ReportInput& in, const ColourScale& scale,
                const Extremes& extremes) {
  const std::vector<std::size_t> sample = DrawnPointIndices(in.result.deviations, kMaxDrawnPoints);
  const std::vector<View> views = MakeViews(in.result, in.points, sample, in.units);
  WriteScaleNote(out, in, scale);
  if (views.empty()) {
    out << "<p class=\"empty\" id=\"no-views\">No picture: the fitted feature's position is not "
           "a finite number, so the points cannot be placed on it.</p>";
    return;
  }
  WriteSampleNote(out, in.points.size(), sample.size(), views.front().points.size());
  for (const View& view : views) {
    out << "<figure class=\"view\" data-view=\"" << view.id << "\"><figcaption><h3>"
        << HtmlEscape(view.title) << "</h3><p>" << HtmlEscape(view.caption)
        << "</p></figcaption>\n";
    WriteViewSvg(out, view, scale, in.units, extremes);
    out << "<div class=\"readout\">Point at the picture to read its coordinates.</div>"
           "</figure>\n";
  }
}

void WriteHistogram(std::ostream& out, const ReportInput& in, const ColourScale& scale) {
  const Histogram h = MakeHistogram(in.result.deviations);
  const int decimals = DecimalsFor(std::max(std::fabs(h.mean) + h.std_dev, h.width), 3);
  const std::size_t used = in.result.deviations.size() - h.non_finite;
  out << "<section class=\"card\" id=\"histogram\"><h2>Distribution of the deviations</h2>"
         "<figure class=\"view\" data-view=\"histogram\"><figcaption><p>"
      << h.counts.size() << " bins of " << FixedNumber(h.width, DecimalsFor(h.width, 3)) << " "
      << HtmlEscape(in.units) << " from the smallest to the largest deviation, all " << Count(used)
      << " points. Dashed: the normal distribution of the same mean ("
      << FixedNumber(h.mean, decimals) << ") and standard deviation ("
      << FixedNumber(h.std_dev, decimals) << ").";
  if (h.non_finite > 0) {
    out << " " << Count(h.non_finite) << " deviations are not finite and are left out.";
  }
  out << "</p></figcaption>\n";
  WriteHistogramSvg(out, h, scale, in.units);
  out << "<div class=\"readout\">Point at a bar to read its range and count.</div></figure>"
         "</section>\n";
}

void WriteDeviations(std::ostream& out, const ReportInput& in) {
  const FitResult& r = in.result;
  out << "<section class=\"card\" id=\"deviations\"><h2>Deviations</h2>";
  const std::optional<Extremes> extremes = FindExtremes(r.deviations);
  if (r.deviations.size() != in.points.size() || !extremes) {
    out << "<p class=\"empty\" id=\"no-deviations\">No deviations to show: ";
    if (r.deviations.size() != in.points.size()) {
      out << "the fit returned " << Count(r.deviations.size()) << " deviations for "
          << Count(in.points.size()) << " points.";
    } else if (r.deviations.empty()) {
      out << "there are no points.";
    } else {
      out << "no deviation is a finite number.";
    }
    out << "</p></section>\n";
    return;
  }
  const double limit = std::max(std::fabs(r.deviations[extremes->min_index]),
                                std::fabs(r.deviations[extremes->max_index]));
  const ColourScale scale(limit);
  WriteViews(out, in, scale, *extremes);
  out << "</section>\n";
  WriteHistogram(out, in, scale);
}

}  // namespace

std::vector<std::size_t> DrawnPointIndices(const std::vector<double>& deviations,
                                           std::size_t limit) {
  const std::size_t n = deviations.size();
  std::vector<std::size_t> indices(n);
  for (std::size_t i = 0; i < n; ++i) indices[i] = i;
  if (n <= limit) return indices;
  // The extremes go first, then a partial Fisher-Yates shuffle fills the rest. The engine's
  // raw output is used directly: the standard fixes its sequence, not the distributions'.
  std::size_t taken = 0;
  if (const std::optional<Extremes> e = FindExtremes(deviations)) {
    std::swap(indices[taken++], indices[e->min_index]);
    const auto at = std::find(indices.begin() + taken, indices.end(), e->max_index);
    if (at != indices.end() && taken < limit) std::swap(indices[taken++], *at);
  }
  std::mt19937_64 engine(kSampleSeed);
  for (; taken < limit; ++taken) {
    const std::size_t pick = taken + static_cast<std::size_t>(engine() % (n - taken));
    std::swap(indices[taken], indices[pick]);
  }
  indices.resize(limit);
  std::sort(indices.begin(), indices.end());
  return indices;
}

void WriteHtmlReport(std::ostream& out, const ReportInput& in) {
  const std::string title = ShapeTitle(in.result.shape) + " fit of " + in.source;
  out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
         "<meta name=\"generator\" content=\"metrofit\"><title>"
      << HtmlEscape(title) << " - metrofit</title>\n<style>" << kReportStyle
      << "</style></head>\n<body><main class=\"report\" data-shape=\""
      << ShapeTitle(in.result.shape) << "\" data-valid=\"" << (in.result.valid ? 1 : 0) << "\">\n";
  WriteHeader(out, in);
  out << "<div class=\"cards\">";
  WriteParameters(out, in.result, in.units);
  WriteStatistics(out, in.result, in.points.size(), in.units);
  out << "</div>\n";
  WriteDeviations(out, in);
  out << "<footer>Written by metrofit. This page is self-contained: it needs no network and "
         "no other file.</footer>\n</main>\n<script>"
      << kReportScript << "</script>\n</body></html>\n";
}

}  // namespace metrofit::cli
