#include "report_svg.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace metrofit::cli {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kMaxDecimals = 12;
constexpr double kFullTurn = 360.0;
// Scale used when every deviation is zero: any positive limit colours them all neutral.
constexpr double kFallbackLimit = 1.0;

// Picture layout in SVG user units (the page scales the whole picture to its width).
constexpr double kSvgWidth = 960.0;
constexpr double kLeft = 84.0;
constexpr double kRightWithColourBar = 140.0;
constexpr double kRightPlain = 24.0;
constexpr double kTop = 18.0;
constexpr double kBottom = 56.0;
constexpr double kPlotHeight = 380.0;
constexpr double kMinPlotHeight = 260.0;
constexpr double kMaxPlotHeight = 620.0;
constexpr double kHistogramHeight = 280.0;
constexpr double kColourBarGap = 22.0;
constexpr double kColourBarWidth = 16.0;
constexpr int kTargetTicks = 7;
constexpr int kColourBarTicks = 4;  // intervals between labelled values on the colour bar
// Relative slack so that a tick computed at the edge of a range still counts as inside.
constexpr double kTickSlack = 1e-9;
// Dot sizes: bigger dots for few points so sparse data is still seen, smaller for dense clouds.
constexpr std::size_t kFewPoints = 2000;
constexpr std::size_t kManyPoints = 10000;
constexpr double kLargeDot = 5.5;
constexpr double kMediumDot = 4.0;
constexpr double kSmallDot = 3.0;
constexpr int kCurveVertices = 160;
// A step whose scaled value is this close to a whole number is taken as whole (2.5 -> 1 decimal).
constexpr double kWholeStepTolerance = 1e-6;
// Below this span (degrees) angle ticks fall back to ordinary decimal steps.
constexpr double kMinDegreeSpan = 10.0;
constexpr int kMinVerticalTicks = 3;
constexpr double kTickSpacing = 60.0;  // picture units per vertical tick
// Extreme-value labels go left of points in the right fifth, below points near the top.
constexpr double kLabelRightLimit = 0.8;
constexpr double kLabelAboveRoom = 24.0;
// Half width of the histogram range for deviations of a single value: relative to it, and an
// absolute floor for a value of zero.
constexpr double kFlatRangeRelative = 1e-3;
constexpr double kFlatRangeAbsolute = 1e-9;
constexpr std::size_t kMinHistogramBins = 8;
constexpr std::size_t kMaxHistogramBins = 60;
// Head room above the highest histogram bar.
constexpr double kCountHeadRoom = 1.08;
// Smallest top of the count axis, so that its ticks fall on whole numbers.
constexpr double kMinCountAxis = 5.0;

struct Rgb {
  double r, g, b;
};

// Diverging scale from deep blue through light grey to deep red, at t = -1, -0.5, 0, 0.5, 1.
constexpr std::array<Rgb, 5> kColourStops{
    {{33, 102, 172}, {103, 169, 207}, {208, 208, 208}, {239, 138, 98}, {178, 24, 43}}};

std::string Coordinate(double v) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f", v);
  return buffer;
}

double NiceStep(double span, int target) {
  const double raw = span / target;
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  for (const double m : {1.0, 2.0, 2.5, 5.0}) {
    if (m * magnitude >= raw) return m * magnitude;
  }
  return 10.0 * magnitude;
}

// Angle ticks on round numbers of degrees: 15, 30, 45, 90 rather than 20 or 50.
double AngleStep(double span, int target) {
  for (const double step : {1.0, 2.0, 5.0, 10.0, 15.0, 30.0, 45.0, 60.0, 90.0}) {
    if (span / step <= target) return step;
  }
  return 90.0;
}

int StepDecimals(double step) {
  int decimals = 0;
  double scaled = step;
  while (decimals < kMaxDecimals &&
         std::fabs(scaled - std::round(scaled)) > kWholeStepTolerance * scaled) {
    scaled *= 10.0;
    ++decimals;
  }
  return decimals;
}

std::vector<double> Ticks(double low, double high, double step) {
  std::vector<double> ticks;
  const double first = std::ceil(low / step - kTickSlack);
  for (double k = first; k * step <= high + step * kTickSlack; k += 1.0) ticks.push_back(k * step);
  return ticks;
}

// Maps view coordinates to picture coordinates.
struct Plot {
  double left = kLeft;
  double top = kTop;
  double width = 0.0;
  double height = 0.0;
  ViewAxis x;
  ViewAxis y;

  double X(double v) const { return left + (v - x.low) / (x.high - x.low) * width; }
  double Y(double v) const { return top + (1.0 - (v - y.low) / (y.high - y.low)) * height; }
  bool Inside(double u, double v) const {
    return u >= x.low && u <= x.high && v >= y.low && v <= y.high;
  }
};

void Widen(ViewAxis* axis, double span) {
  const double centre = 0.5 * (axis->low + axis->high);
  axis->low = centre - 0.5 * span;
  axis->high = centre + 0.5 * span;
}

// Equal scale: the picture takes the data's aspect within limits; beyond them the shorter
// range is widened so one unit stays the same length both ways.
Plot MakePlot(const View& view, double right) {
  Plot plot;
  plot.width = kSvgWidth - kLeft - right;
  plot.height = kPlotHeight;
  plot.x = view.x;
  plot.y = view.y;
  if (!view.equal_scale) return plot;
  const double sx = plot.x.high - plot.x.low;
  const double sy = plot.y.high - plot.y.low;
  plot.height = std::clamp(plot.width * sy / sx, kMinPlotHeight, kMaxPlotHeight);
  const double per_unit = std::min(plot.width / sx, plot.height / sy);
  Widen(&plot.x, plot.width / per_unit);
  Widen(&plot.y, plot.height / per_unit);
  return plot;
}

std::string TickLabel(double value, const ViewAxis& axis, int decimals) {
  // A long arc across the seam can run past a full turn; its labels are ordinary angles.
  if (axis.angle && value > kFullTurn) value -= kFullTurn;
  if (axis.angle && value < -kFullTurn / 2) value += kFullTurn;
  return FixedNumber(value, decimals);
}

double AxisStep(const ViewAxis& axis, double span, int target) {
  return axis.angle && span >= kMinDegreeSpan ? AngleStep(span, target) : NiceStep(span, target);
}

void WriteText(std::ostream& out, const char* cls, double x, double y, const char* anchor,
               const std::string& text, const std::string& extra = "") {
  out << "<text class=\"" << cls << "\" x=\"" << Coordinate(x) << "\" y=\"" << Coordinate(y)
      << "\" text-anchor=\"" << anchor << "\"" << extra << ">" << HtmlEscape(text) << "</text>";
}

void WriteXAxis(std::ostream& out, const Plot& plot) {
  const double step = AxisStep(plot.x, plot.x.high - plot.x.low, kTargetTicks);
  const int decimals = StepDecimals(step);
  std::string grid;
  const double bottom = plot.top + plot.height;
  for (const double t : Ticks(plot.x.low, plot.x.high, step)) {
    const double px = plot.X(t);
    grid += "M" + Coordinate(px) + " " + Coordinate(plot.top) + "V" + Coordinate(bottom + 5);
    WriteText(out, "tick", px, bottom + 20, "middle", TickLabel(t, plot.x, decimals));
  }
  out << "<path class=\"grid\" d=\"" << grid << "\"/>";
  WriteText(out, "axis-title", plot.left + plot.width / 2, bottom + 44, "middle", plot.x.label);
}

void WriteYAxis(std::ostream& out, const Plot& plot) {
  const int target = std::max(kMinVerticalTicks, static_cast<int>(plot.height / kTickSpacing));
  const double step = AxisStep(plot.y, plot.y.high - plot.y.low, target);
  const int decimals = StepDecimals(step);
  std::string grid;
  for (const double t : Ticks(plot.y.low, plot.y.high, step)) {
    const double py = plot.Y(t);
    grid += "M" + Coordinate(plot.left - 5) + " " + Coordinate(py) + "H" +
            Coordinate(plot.left + plot.width);
    WriteText(out, "tick", plot.left - 9, py + 4, "end", TickLabel(t, plot.y, decimals));
  }
  out << "<path class=\"grid\" d=\"" << grid << "\"/>";
  const double cx = 18.0;
  const double cy = plot.top + plot.height / 2;
  WriteText(out, "axis-title", cx, cy, "middle", plot.y.label,
            " transform=\"rotate(-90 " + Coordinate(cx) + " " + Coordinate(cy) + ")\"");
}

void OpenSvg(std::ostream& out, const char* cls, const Plot& plot, double total_height,
             const std::string& label) {
  out << "<svg class=\"" << cls << "\" viewBox=\"0 0 " << Coordinate(kSvgWidth) << " "
      << Coordinate(total_height) << "\" role=\"img\" aria-label=\"" << HtmlEscape(label)
      << "\" data-map=\"" << plot.left << " " << plot.top << " " << plot.width << " " << plot.height
      << " " << plot.x.low << " " << plot.x.high << " " << plot.y.low << " " << plot.y.high
      << "\" data-angles=\"" << (plot.x.angle ? 1 : 0) << " " << (plot.y.angle ? 1 : 0)
      << "\" data-x-label=\"" << HtmlEscape(plot.x.label) << "\" data-y-label=\""
      << HtmlEscape(plot.y.label) << "\">";
  out << "<rect class=\"frame\" x=\"" << Coordinate(plot.left) << "\" y=\"" << Coordinate(plot.top)
      << "\" width=\"" << Coordinate(plot.width) << "\" height=\"" << Coordinate(plot.height)
      << "\"/>";
}

double DotSize(std::size_t points) {
  if (points <= kFewPoints) return kLargeDot;
  return points <= kManyPoints ? kMediumDot : kSmallDot;
}

// One path per colour, each dot a zero-length segment with a round cap; the colours nearest
// zero first so the largest deviations are drawn on top.
void WritePoints(std::ostream& out, const View& view, const Plot& plot, const ColourScale& scale) {
  std::vector<std::string> paths(ColourScale::kBins);
  for (std::size_t k = 0; k < view.points.size(); ++k) {
    const ViewPoint& p = view.points[k];
    if (!plot.Inside(p[0], p[1])) continue;
    paths[scale.Bin(view.deviations[k])] +=
        "M" + Coordinate(plot.X(p[0])) + " " + Coordinate(plot.Y(p[1])) + "h0";
  }
  std::vector<int> order(ColourScale::kBins);
  for (int b = 0; b < ColourScale::kBins; ++b) order[b] = b;
  const int middle = ColourScale::kBins / 2;
  std::stable_sort(order.begin(), order.end(),
                   [middle](int a, int b) { return std::abs(a - middle) < std::abs(b - middle); });
  out << "<g class=\"points\" fill=\"none\" stroke-linecap=\"round\" stroke-width=\""
      << DotSize(view.points.size()) << "\">";
  for (const int b : order) {
    if (paths[b].empty()) continue;
    out << "<path stroke=\"" << ColourScale::BinColour(b) << "\" d=\"" << paths[b] << "\"/>";
  }
  out << "</g>";
}

void WriteOutline(std::ostream& out, const View& view, const Plot& plot) {
  std::string d;
  bool open = false;
  for (const ViewPoint& p : view.outline) {
    if (!plot.Inside(p[0], p[1])) {
      open = false;
      continue;
    }
    d += (open ? "L" : "M") + Coordinate(plot.X(p[0])) + " " + Coordinate(plot.Y(p[1]));
    open = true;
  }
  if (!d.empty()) out << "<path class=\"outline\" d=\"" << d << "\"/>";
}

void WriteMarker(std::ostream& out, const View& view, const Plot& plot, std::size_t index,
                 const char* name, const std::string& units, int decimals) {
  const auto it = std::find(view.source.begin(), view.source.end(), index);
  if (it == view.source.end()) return;
  const std::size_t k = static_cast<std::size_t>(it - view.source.begin());
  const ViewPoint& p = view.points[k];
  if (!plot.Inside(p[0], p[1])) return;
  const double px = plot.X(p[0]);
  const double py = plot.Y(p[1]);
  out << "<circle class=\"extreme\" cx=\"" << Coordinate(px) << "\" cy=\"" << Coordinate(py)
      << "\" r=\"7\"/>";
  // The label goes on the side of the point with more room.
  const bool right = px < plot.left + plot.width * kLabelRightLimit;
  const bool below = py < plot.top + kLabelAboveRoom;
  WriteText(out, "extreme-label", px + (right ? 11 : -11), py + (below ? 18 : -9),
            right ? "start" : "end",
            std::string(name) + " " + FixedNumber(view.deviations[k], decimals) + " " + units);
}

void WriteColourBar(std::ostream& out, const Plot& plot, const ColourScale& scale,
                    const std::string& units, int decimals) {
  const double x = plot.left + plot.width + kColourBarGap;
  const double cell = plot.height / ColourScale::kBins;
  for (int b = 0; b < ColourScale::kBins; ++b) {
    const double y = plot.top + plot.height - (b + 1) * cell;
    out << "<rect x=\"" << Coordinate(x) << "\" y=\"" << Coordinate(y) << "\" width=\""
        << kColourBarWidth << "\" height=\"" << Coordinate(cell + 0.6) << "\" fill=\""
        << ColourScale::BinColour(b) << "\"/>";
  }
  out << "<rect class=\"bar-frame\" x=\"" << Coordinate(x) << "\" y=\"" << Coordinate(plot.top)
      << "\" width=\"" << kColourBarWidth << "\" height=\"" << Coordinate(plot.height) << "\"/>";
  for (int k = 0; k <= kColourBarTicks; ++k) {
    const double value = scale.limit() * (2.0 * k / kColourBarTicks - 1.0);
    const double y = plot.top + plot.height * (1.0 - static_cast<double>(k) / kColourBarTicks);
    std::string text = FixedNumber(value, decimals);
    if (value > 0.0) text = "+" + text;
    WriteText(out, "tick", x + kColourBarWidth + 6, y + 4, "start", text);
  }
  const double cx = x + kColourBarWidth + 74;
  const double cy = plot.top + plot.height / 2;
  WriteText(out, "axis-title", cx, cy, "middle", "deviation (" + units + ")",
            " transform=\"rotate(90 " + Coordinate(cx) + " " + Coordinate(cy) + ")\"");
}

double NormalDensity(double x, double mean, double sd) {
  const double z = (x - mean) / sd;
  return std::exp(-0.5 * z * z) / (sd * std::sqrt(2.0 * kPi));
}

void WriteNormalCurve(std::ostream& out, const Histogram& h, const Plot& plot, std::size_t total) {
  if (!(h.std_dev > 0.0) || total == 0) return;
  std::string d;
  for (int k = 0; k <= kCurveVertices; ++k) {
    const double x = plot.x.low + (plot.x.high - plot.x.low) * k / kCurveVertices;
    const double count = total * h.width * NormalDensity(x, h.mean, h.std_dev);
    d += (k == 0 ? "M" : "L") + Coordinate(plot.X(x)) + " " + Coordinate(plot.Y(count));
  }
  out << "<path class=\"normal\" d=\"" << d << "\"/>";
}

void WriteBars(std::ostream& out, const Histogram& h, const Plot& plot, const ColourScale& scale,
               const std::string& units, int decimals) {
  for (std::size_t b = 0; b < h.counts.size(); ++b) {
    const double from = h.low + h.width * b;
    const double to = from + h.width;
    const double x0 = plot.X(from);
    const double y0 = plot.Y(static_cast<double>(h.counts[b]));
    out << "<rect class=\"bar\" x=\"" << Coordinate(x0) << "\" y=\"" << Coordinate(y0)
        << "\" width=\"" << Coordinate(plot.X(to) - x0) << "\" height=\""
        << Coordinate(plot.top + plot.height - y0) << "\" fill=\""
        << scale.Colour(0.5 * (from + to)) << "\" data-count=\"" << h.counts[b] << "\"><title>"
        << HtmlEscape(FixedNumber(from, decimals) + " to " + FixedNumber(to, decimals) + " " +
                      units + ": " + std::to_string(h.counts[b]) + " points")
        << "</title></rect>";
  }
}

}  // namespace

std::string HtmlEscape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      case '\0':
        escaped += "\xEF\xBF\xBD";  // U+FFFD: a NUL may not appear in an HTML document
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string FixedNumber(double value, int decimals) {
  if (!std::isfinite(value)) return "n/a";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*f", std::clamp(decimals, 0, kMaxDecimals), value);
  std::string text = buffer;
  // A value that rounds to zero is shown without a sign.
  if (text[0] == '-' && text.find_first_not_of("-0.") == std::string::npos) text.erase(0, 1);
  return text;
}

int DecimalsFor(double scale, int significant) {
  if (!std::isfinite(scale) || scale <= 0.0) return significant;
  const int leading = static_cast<int>(std::floor(std::log10(scale)));
  return std::clamp(significant - 1 - leading, 0, kMaxDecimals);
}

ColourScale::ColourScale(double limit)
    : limit_(std::isfinite(limit) && limit > 0.0 ? limit : kFallbackLimit) {}

int ColourScale::Bin(double deviation) const {
  const double t = std::clamp(deviation / limit_, -1.0, 1.0);
  return static_cast<int>(std::lround((t + 1.0) / 2.0 * (kBins - 1)));
}

std::string ColourScale::BinColour(int bin) {
  const double t = 2.0 * bin / (kBins - 1) - 1.0;  // in [-1, 1]
  const double s = (t + 1.0) * 0.5 * (kColourStops.size() - 1);
  const std::size_t i = std::min(static_cast<std::size_t>(s), kColourStops.size() - 2);
  const double f = s - static_cast<double>(i);
  const Rgb& a = kColourStops[i];
  const Rgb& b = kColourStops[i + 1];
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "#%02x%02x%02x",
                static_cast<unsigned>(std::lround(a.r + (b.r - a.r) * f)),
                static_cast<unsigned>(std::lround(a.g + (b.g - a.g) * f)),
                static_cast<unsigned>(std::lround(a.b + (b.b - a.b) * f)));
  return buffer;
}

Histogram MakeHistogram(const std::vector<double>& deviations) {
  Histogram h;
  double low = HUGE_VAL;
  double high = -HUGE_VAL;
  double sum = 0.0;
  std::size_t finite = 0;
  for (const double d : deviations) {
    if (!std::isfinite(d)) {
      ++h.non_finite;
      continue;
    }
    low = std::min(low, d);
    high = std::max(high, d);
    sum += d;
    ++finite;
  }
  if (finite == 0) return h;
  h.mean = sum / finite;
  double squares = 0.0;
  for (const double d : deviations) {
    if (std::isfinite(d)) squares += (d - h.mean) * (d - h.mean);
  }
  h.std_dev = std::sqrt(squares / finite);
  // Rice's rule: enough bins to show the shape of large samples, few for small ones.
  const std::size_t bins = std::clamp<std::size_t>(
      static_cast<std::size_t>(std::ceil(2.0 * std::cbrt(static_cast<double>(finite)))),
      kMinHistogramBins, kMaxHistogramBins);
  if (high - low <= 0.0) {
    const double half = std::max(std::fabs(low) * kFlatRangeRelative, kFlatRangeAbsolute);
    low -= half;
    high += half;
  }
  h.low = low;
  h.width = (high - low) / bins;
  h.counts.assign(bins, 0);
  for (const double d : deviations) {
    if (!std::isfinite(d)) continue;
    const double bin = std::floor((d - low) / h.width);
    // The largest deviation lies on the upper edge of the last bin.
    h.counts[std::min(static_cast<std::size_t>(std::max(bin, 0.0)), bins - 1)] += 1;
  }
  return h;
}

void WriteViewSvg(std::ostream& out, const View& view, const ColourScale& scale,
                  const std::string& units, const Extremes& extremes) {
  const Plot plot = MakePlot(view, kRightWithColourBar);
  const int decimals = DecimalsFor(scale.limit(), 3);
  OpenSvg(out, "plot view-plot", plot, plot.top + plot.height + kBottom, view.title);
  WriteXAxis(out, plot);
  WriteYAxis(out, plot);
  if (view.deviation_on_y && plot.y.low < 0.0 && plot.y.high > 0.0) {
    out << "<path class=\"zero\" d=\"M" << Coordinate(plot.left) << " " << Coordinate(plot.Y(0.0))
        << "H" << Coordinate(plot.left + plot.width) << "\"/>";
  }
  WriteOutline(out, view, plot);
  WritePoints(out, view, plot, scale);
  WriteMarker(out, view, plot, extremes.max_index, "max", units, decimals);
  WriteMarker(out, view, plot, extremes.min_index, "min", units, decimals);
  WriteColourBar(out, plot, scale, units, decimals);
  out << "</svg>\n";
}

void WriteHistogramSvg(std::ostream& out, const Histogram& h, const ColourScale& scale,
                       const std::string& units) {
  std::size_t total = 0;
  std::size_t highest = 0;
  for (const std::size_t c : h.counts) {
    total += c;
    highest = std::max(highest, c);
  }
  Plot plot;
  plot.width = kSvgWidth - kLeft - kRightPlain;
  plot.height = kHistogramHeight;
  const double high = h.low + h.width * h.counts.size();
  plot.x = {"deviation (" + units + ")", false, h.low, high};
  // The axis also reaches the peak of the normal curve, so that the curve is never cut off.
  double peak = static_cast<double>(highest);
  if (h.std_dev > 0.0)
    peak = std::max(peak, total * h.width * NormalDensity(h.mean, h.mean, h.std_dev));
  plot.y = {"number of points", false, 0.0, std::max(kMinCountAxis, peak * kCountHeadRoom)};
  const int decimals = DecimalsFor(std::max(std::fabs(h.low), std::fabs(high)), 3);
  OpenSvg(out, "plot histogram-plot", plot, plot.top + plot.height + kBottom,
          "Histogram of the deviations");
  WriteXAxis(out, plot);
  WriteYAxis(out, plot);
  WriteBars(out, h, plot, scale, units, decimals);
  WriteNormalCurve(out, h, plot, total);
  if (h.low < 0.0 && high > 0.0) {
    out << "<path class=\"zero\" d=\"M" << Coordinate(plot.X(0.0)) << " " << Coordinate(plot.top)
        << "V" << Coordinate(plot.top + plot.height) << "\"/>";
  }
  out << "</svg>\n";
}

}  // namespace metrofit::cli
