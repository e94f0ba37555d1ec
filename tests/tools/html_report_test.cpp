#include "html_report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "report_samples.h"
#include "report_svg.h"
#include "report_views.h"

namespace {

using metrofit::FitResult;
using metrofit::Point;
using metrofit::Shape;
using metrofit::Status;
using metrofit::cli::ColourScale;
using metrofit::cli::DrawnPointIndices;
using metrofit::cli::FixedNumber;
using metrofit::cli::HtmlEscape;
using metrofit::cli::kMaxDrawnPoints;
using metrofit::cli::MakeHistogram;
using metrofit::cli::MakeViews;
using metrofit::cli::View;
using metrofit::cli::WriteHtmlReport;
using metrofit_report_samples::MakeSample;
using metrofit_report_samples::Sample;

constexpr std::size_t kSamplePoints = 1200;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
// Picture coordinates are written with one decimal; view coordinates are exact to rounding.
constexpr double kViewTolerance = 1e-9;

std::string Report(const Sample& s, const std::string& source = "part.xyz",
                   const std::string& units = "mm") {
  std::ostringstream out;
  WriteHtmlReport(out, {s.points, s.result, source, units});
  return out.str();
}

std::size_t Count(const std::string& text, const std::string& word) {
  std::size_t n = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    ++n;
  }
  return n;
}

// Every value of the attribute `name`, in document order.
std::vector<std::string> Attributes(const std::string& html, const std::string& name) {
  std::vector<std::string> values;
  const std::regex pattern(" " + name + "=\"([^\"]*)\"");
  for (auto it = std::sregex_iterator(html.begin(), html.end(), pattern);
       it != std::sregex_iterator(); ++it) {
    values.push_back((*it)[1]);
  }
  return values;
}

// The text of the first element holding `marker`, up to the closing tag `end`.
std::string Section(const std::string& html, const std::string& marker, const std::string& end) {
  const std::size_t start = html.find(marker);
  if (start == std::string::npos) return "";
  return html.substr(start, html.find(end, start) - start);
}

const char* ShapeName(Shape shape) {
  static const char* const names[] = {"line", "plane",   "circle",     "sphere",   "cylinder",
                                      "cone", "ellipse", "paraboloid", "spheroid", "torus"};
  return names[static_cast<int>(shape)];
}

TEST(HtmlReport, IsOneSelfContainedDocumentForEveryShape) {
  for (const Shape shape : metrofit_report_samples::AllShapes()) {
    SCOPED_TRACE(ShapeName(shape));
    const std::string html = Report(MakeSample(shape, kSamplePoints));
    EXPECT_EQ(html.rfind("<!DOCTYPE html>\n<html", 0), 0u);
    EXPECT_EQ(html.substr(html.size() - 8), "</html>\n");
    EXPECT_EQ(Count(html, "http://"), 0u);
    EXPECT_EQ(Count(html, "https://"), 0u);
    EXPECT_EQ(Count(html, "src="), 0u);
    EXPECT_EQ(Count(html, "<link"), 0u);
    EXPECT_EQ(Count(html, "@import"), 0u);
    EXPECT_EQ(Count(html, "url("), 0u);
    EXPECT_EQ(Count(html, "<style>"), 1u);
    EXPECT_EQ(Count(html, "<script>"), 1u);
    EXPECT_EQ(Count(html, "<svg "), Count(html, "</svg>"));
    EXPECT_EQ(Count(html, "<figure "), Count(html, "</figure>"));
    EXPECT_EQ(Count(html, "<section "), Count(html, "</section>"));
  }
}

TEST(HtmlReport, EscapesAHostileFileNameMessageAndUnitsLabel) {
  Sample s = MakeSample(Shape::kSphere, kSamplePoints);
  s.result.message = "\"><img onerror=alert(2)> & more";
  const std::string html = Report(s, "<script>alert(1)</script>.xyz", "<b>mm</b>");
  EXPECT_EQ(Count(html, "<script"), 1u);  // the report's own
  EXPECT_EQ(Count(html, "alert(1)</script>"), 0u);
  EXPECT_EQ(Count(html, "<img"), 0u);
  EXPECT_EQ(Count(html, "<b>"), 0u);
  EXPECT_GE(Count(html, "&lt;script&gt;alert(1)&lt;/script&gt;.xyz"), 2u);  // title and header
  EXPECT_GE(Count(html, "&quot;&gt;&lt;img onerror=alert(2)&gt; &amp; more"), 1u);
  EXPECT_GE(Count(html, "&lt;b&gt;mm&lt;/b&gt;"), 1u);
}

TEST(HtmlReport, EscapeHandlesEveryMarkupCharacter) {
  EXPECT_EQ(HtmlEscape("a<b>&\"c'd"), "a&lt;b&gt;&amp;&quot;c&#39;d");
  EXPECT_EQ(HtmlEscape(std::string("x\0y", 3)), "x\xEF\xBF\xBDy");
  EXPECT_EQ(HtmlEscape("Ø 12 µm"), "Ø 12 µm");
}

// A sphere with hand-picked values: the page shows each one rounded to its uncertainty.
Sample HandMadeSphere() {
  Sample s = MakeSample(Shape::kSphere, 400);
  FitResult& r = s.result;
  r.parameters = {{"center", {212.4381234, -148.7164321, 305.2049876}, {0.00041, 0.00041, 0.0012}},
                  {"radius", {12.50003217}, {0.0000123}}};
  r.rms = 0.0014321;
  r.sigma = 0.0014987;
  r.min_deviation = -0.0051234;
  r.max_deviation = 0.0048889;
  r.form_error = 0.0100123;
  r.iterations = 11;
  return s;
}

TEST(HtmlReport, ShowsEveryParameterWithItsUncertainty) {
  const std::string html = Report(HandMadeSphere());
  EXPECT_EQ(Attributes(html, "data-parameter"), (std::vector<std::string>{"center", "radius"}));
  const std::string centre = Section(html, "data-parameter=\"center\"", "</tbody>");
  // Two significant digits of the uncertainty set the decimals of the value.
  EXPECT_NE(centre.find(">212.43812<"), std::string::npos) << centre;
  EXPECT_NE(centre.find(">0.00041<"), std::string::npos);
  EXPECT_NE(centre.find(">-148.71643<"), std::string::npos);
  EXPECT_NE(centre.find(">305.2050<"), std::string::npos);
  EXPECT_NE(centre.find(">0.0012<"), std::string::npos);
  const std::string radius = Section(html, "data-parameter=\"radius\"", "</tbody>");
  EXPECT_NE(radius.find(">12.500032<"), std::string::npos) << radius;
  EXPECT_NE(radius.find(">0.000012<"), std::string::npos);
  EXPECT_NE(radius.find(">mm<"), std::string::npos);
}

TEST(HtmlReport, ShowsEveryStatistic) {
  const std::string html = Report(HandMadeSphere(), "part.xyz", "in");
  const std::vector<std::string> stats = Attributes(html, "data-stat");
  EXPECT_EQ(stats, (std::vector<std::string>{"points", "rms", "sigma", "min_deviation",
                                             "max_deviation", "form_error", "iterations"}));
  // Four significant digits of the largest, the others to the same decimals.
  const std::vector<std::pair<std::string, std::string>> expected{{"points", ">400<"},
                                                                  {"rms", ">0.00143<"},
                                                                  {"sigma", ">0.00150<"},
                                                                  {"min_deviation", ">-0.00512<"},
                                                                  {"max_deviation", ">0.00489<"},
                                                                  {"form_error", ">0.01001<"},
                                                                  {"iterations", ">11<"}};
  for (const auto& [key, text] : expected) {
    const std::string row = Section(html, "data-stat=\"" + key + "\"", "</tr>");
    EXPECT_NE(row.find(text), std::string::npos) << key << ": " << row;
  }
  EXPECT_NE(Section(html, "data-stat=\"rms\"", "</tr>").find(">in<"), std::string::npos);
}

TEST(HtmlReport, AngleParametersAreInRadiansWithDegreesBeside) {
  const std::string html = Report(MakeSample(Shape::kCone, kSamplePoints));
  const std::string row = Section(html, "data-parameter=\"half_angle\"", "</tbody>");
  EXPECT_NE(row.find(">0.2617994<"), std::string::npos) << row;  // 15 degrees, u = 4.1e-6
  EXPECT_NE(row.find("rad (15.00000°)"), std::string::npos) << row;
}

TEST(HtmlReport, TitleNamesShapeMethodStatusAndMessage) {
  Sample s = MakeSample(Shape::kTorus, kSamplePoints);
  s.result.method = metrofit::Method::kCompatible;
  s.result.message = "converged in 7 steps";
  const std::string html = Report(s, "ring.txt");
  EXPECT_NE(html.find("<title>Torus fit of ring.txt - metrofit</title>"), std::string::npos);
  EXPECT_NE(html.find("<h1>Torus fit</h1>"), std::string::npos);
  EXPECT_NE(html.find(">method: compatible<"), std::string::npos);
  EXPECT_NE(html.find(">status: ok<"), std::string::npos);
  EXPECT_NE(html.find(">valid fit<"), std::string::npos);
  EXPECT_NE(html.find(">converged in 7 steps<"), std::string::npos);
  EXPECT_EQ(html.find("This fit is not valid"), std::string::npos);
}

TEST(HtmlReport, DrawsTheViewThatSuitsEachShape) {
  const std::vector<std::pair<Shape, std::vector<std::string>>> expected{
      {Shape::kLine, {"along-line"}},
      {Shape::kPlane, {"in-plane"}},
      {Shape::kCircle, {"along-circle", "in-plane"}},
      {Shape::kEllipse, {"along-ellipse", "in-plane"}},
      {Shape::kSphere, {"surface-map"}},
      {Shape::kSpheroid, {"surface-map"}},
      {Shape::kCylinder, {"unrolled"}},
      {Shape::kCone, {"unrolled"}},
      {Shape::kParaboloid, {"paraboloid"}},
      {Shape::kTorus, {"torus"}}};
  for (const auto& [shape, views] : expected) {
    SCOPED_TRACE(ShapeName(shape));
    std::vector<std::string> all = views;
    all.push_back("histogram");
    EXPECT_EQ(Attributes(Report(MakeSample(shape, kSamplePoints)), "data-view"), all);
  }
}

TEST(HtmlReport, ViewAxesSayWhatTheyMeasure) {
  const auto has = [](Shape shape, const std::string& text) {
    return Report(MakeSample(shape, kSamplePoints)).find(text) != std::string::npos;
  };
  EXPECT_TRUE(has(Shape::kCylinder, ">angle around the axis (°)<"));
  EXPECT_TRUE(has(Shape::kCylinder, ">height along the axis (mm)<"));
  EXPECT_TRUE(has(Shape::kCone, ">distance from the apex along the axis (mm)<"));
  EXPECT_TRUE(has(Shape::kTorus, ">angle around the tube (°)<"));
  EXPECT_TRUE(has(Shape::kSphere, ">latitude (°)<"));
  EXPECT_TRUE(has(Shape::kSpheroid, ">longitude (°)<"));
  EXPECT_TRUE(has(Shape::kPlane, ">u (mm)<"));
  EXPECT_TRUE(has(Shape::kCircle, ">angle around the centre (°)<"));
  EXPECT_TRUE(has(Shape::kLine, ">position along the line (mm)<"));
  EXPECT_TRUE(has(Shape::kParaboloid, ">radial distance from the axis (mm)<"));
  EXPECT_TRUE(has(Shape::kPlane, ">deviation (mm)<"));  // the colour scale's legend
}

std::size_t HistogramTotal(const std::string& html) {
  std::size_t total = 0;
  for (const std::string& count :
       Attributes(Section(html, "<svg class=\"plot histogram-plot\"", "</svg>"), "data-count")) {
    total += std::stoul(count);
  }
  return total;
}

TEST(HtmlReport, HistogramCountsEveryPointWhileViewsDrawASample) {
  const std::size_t n = 3 * kMaxDrawnPoints / 2;
  const Sample s = MakeSample(Shape::kCylinder, n);
  const std::string html = Report(s);
  EXPECT_EQ(HistogramTotal(html), n);
  // Each dot is one zero-length segment in the view.
  EXPECT_EQ(Count(Section(html, "<svg class=\"plot view-plot\"", "</svg>"), "h0"), kMaxDrawnPoints);
  EXPECT_NE(html.find("draws 20&#8239;000 of the 30&#8239;000 points"), std::string::npos);
  EXPECT_NE(html.find("all 30&#8239;000 points"), std::string::npos);
}

TEST(HtmlReport, HistogramCountsSumToPointCountForEveryShape) {
  for (const Shape shape : metrofit_report_samples::AllShapes()) {
    SCOPED_TRACE(ShapeName(shape));
    EXPECT_EQ(HistogramTotal(Report(MakeSample(shape, kSamplePoints))), kSamplePoints);
  }
}

TEST(HtmlReport, NonFiniteDeviationsAreLeftOutAndCounted) {
  Sample s = MakeSample(Shape::kPlane, kSamplePoints);
  s.result.deviations[17] = kNaN;
  const std::string html = Report(s);
  EXPECT_EQ(HistogramTotal(html), kSamplePoints - 1);
  EXPECT_NE(html.find("1 deviations are not finite and are left out"), std::string::npos);
  EXPECT_EQ(Count(Section(html, "<svg class=\"plot view-plot\"", "</svg>"), "h0"),
            kSamplePoints - 1);
  EXPECT_NE(html.find("draws 1&#8239;199 of the 1&#8239;200 points (a point without a finite "
                      "position or deviation is left out)"),
            std::string::npos);
}

TEST(HtmlReport, AFeatureWithoutAFinitePositionGetsNoPicture) {
  Sample s = MakeSample(Shape::kSphere, kSamplePoints);
  s.result.center[1] = kNaN;
  const std::string html = Report(s);
  EXPECT_NE(html.find("id=\"no-views\""), std::string::npos);
  EXPECT_EQ(Attributes(html, "data-view"), (std::vector<std::string>{"histogram"}));
  EXPECT_EQ(HistogramTotal(html), kSamplePoints);
}

TEST(HtmlReport, InvalidFitWithoutResultSaysSoClearly) {
  const std::vector<Point> points{{1, 2, 3}, {4, 5, 6}};
  FitResult r;
  r.shape = Shape::kCylinder;
  r.valid = false;
  r.status = Status::kTooFewPoints;
  r.message = "5 points are needed for a cylinder";
  std::ostringstream out;
  WriteHtmlReport(out, {points, r, "two.txt", "mm"});
  const std::string html = out.str();
  EXPECT_NE(html.find("This fit is not valid."), std::string::npos);
  EXPECT_NE(html.find(">not valid<"), std::string::npos);
  EXPECT_NE(html.find("Status: too few points: 5 points are needed for a cylinder. Do not use"),
            std::string::npos);
  EXPECT_NE(html.find("No parameters"), std::string::npos);
  EXPECT_NE(html.find("No deviations to show: the fit returned 0 deviations for 2 points."),
            std::string::npos);
  EXPECT_TRUE(Attributes(html, "data-view").empty());
  EXPECT_EQ(Count(html, "http://") + Count(html, "https://") + Count(html, "src="), 0u);
  EXPECT_EQ(html.substr(html.size() - 8), "</html>\n");
}

TEST(HtmlReport, NoPointsAndNoFiniteDeviationsAreSaidPlainly) {
  FitResult r;
  r.shape = Shape::kPlane;
  r.status = Status::kTooFewPoints;
  std::ostringstream none;
  WriteHtmlReport(none, {{}, r, "empty.txt", "mm"});
  EXPECT_NE(none.str().find("No deviations to show: there are no points."), std::string::npos);
  Sample s = MakeSample(Shape::kPlane, 10);
  for (double& d : s.result.deviations) d = kNaN;
  const std::string html = Report(s);
  EXPECT_NE(html.find("No deviations to show: no deviation is a finite number."),
            std::string::npos);
  EXPECT_TRUE(Attributes(html, "data-view").empty());
}

TEST(HtmlReport, InvalidFitWithAnEstimateStillShowsItForDiagnosis) {
  Sample s = MakeSample(Shape::kCone, kSamplePoints);
  s.result.valid = false;
  s.result.status = Status::kNotConverged;
  const std::string html = Report(s);
  EXPECT_NE(html.find("This fit is not valid."), std::string::npos);
  EXPECT_NE(html.find("shown for diagnosis only"), std::string::npos);
  EXPECT_EQ(Attributes(html, "data-view"), (std::vector<std::string>{"unrolled", "histogram"}));
}

TEST(HtmlReport, ValidButNotConvergedAsksForACheck) {
  Sample s = MakeSample(Shape::kCircle, kSamplePoints);
  s.result.status = Status::kNotConverged;
  const std::string html = Report(s);
  EXPECT_NE(html.find("Check this fit."), std::string::npos);
  EXPECT_EQ(html.find("This fit is not valid"), std::string::npos);
}

TEST(DrawnPointIndices, AllPointsUpToTheLimit) {
  const std::vector<double> d(100, 0.5);
  const std::vector<std::size_t> drawn = DrawnPointIndices(d, 100);
  ASSERT_EQ(drawn.size(), 100u);
  for (std::size_t i = 0; i < drawn.size(); ++i) EXPECT_EQ(drawn[i], i);
}

TEST(DrawnPointIndices, SampleIsReproducibleSortedAndHoldsTheExtremes) {
  const Sample s = MakeSample(Shape::kTorus, 50000);
  const std::vector<double>& d = s.result.deviations;
  const std::vector<std::size_t> drawn = DrawnPointIndices(d, 1000);
  ASSERT_EQ(drawn.size(), 1000u);
  EXPECT_EQ(drawn, DrawnPointIndices(d, 1000));
  EXPECT_TRUE(std::is_sorted(drawn.begin(), drawn.end()));
  EXPECT_EQ(std::adjacent_find(drawn.begin(), drawn.end()), drawn.end());
  const auto lowest = std::min_element(d.begin(), d.end()) - d.begin();
  const auto highest = std::max_element(d.begin(), d.end()) - d.begin();
  EXPECT_TRUE(std::binary_search(drawn.begin(), drawn.end(), lowest));
  EXPECT_TRUE(std::binary_search(drawn.begin(), drawn.end(), highest));
  // Spread over the whole file, not its first thousand points.
  EXPECT_GT(drawn.back(), 45000u);
  EXPECT_LT(drawn.front(), 5000u);
}

TEST(Histogram, EqualBinsFromSmallestToLargest) {
  const std::vector<double> d{-0.003, -0.001, 0.0, 0.0005, 0.002, 0.005};
  const metrofit::cli::Histogram h = MakeHistogram(d);
  ASSERT_FALSE(h.counts.empty());
  EXPECT_DOUBLE_EQ(h.low, -0.003);
  EXPECT_NEAR(h.low + h.width * h.counts.size(), 0.005, 1e-15);
  EXPECT_EQ(h.counts.front(), 1u);
  EXPECT_EQ(h.counts.back(), 1u);  // the largest sits on the upper edge
  std::size_t total = 0;
  for (const std::size_t c : h.counts) total += c;
  EXPECT_EQ(total, d.size());
}

TEST(Histogram, EqualDeviationsStillMakeBins) {
  const metrofit::cli::Histogram h = MakeHistogram(std::vector<double>(5, 0.0));
  ASSERT_FALSE(h.counts.empty());
  EXPECT_GT(h.width, 0.0);
  std::size_t total = 0;
  for (const std::size_t c : h.counts) total += c;
  EXPECT_EQ(total, 5u);
}

TEST(ColourScale, SymmetricBlueGreyRed) {
  const ColourScale scale(0.004);
  const int middle = ColourScale::kBins / 2;
  EXPECT_EQ(scale.Bin(0.0), middle);
  EXPECT_EQ(scale.Bin(0.004), ColourScale::kBins - 1);
  EXPECT_EQ(scale.Bin(-0.004), 0);
  EXPECT_EQ(scale.Bin(0.1), ColourScale::kBins - 1);  // beyond the scale: clamped
  EXPECT_EQ(scale.Bin(0.002) - middle, middle - scale.Bin(-0.002));
  const auto channel = [](const std::string& hex, int k) {
    return std::stoi(hex.substr(1 + 2 * k, 2), nullptr, 16);
  };
  const std::string low = scale.Colour(-0.004);
  const std::string high = scale.Colour(0.004);
  const std::string zero = scale.Colour(0.0);
  EXPECT_GT(channel(low, 2), channel(low, 0) + 100);    // blue
  EXPECT_GT(channel(high, 0), channel(high, 2) + 100);  // red
  EXPECT_EQ(channel(zero, 0), channel(zero, 2));        // grey
  EXPECT_EQ(ColourScale(0.0).Bin(0.0), middle);         // a perfect fit is all grey
}

TEST(FixedNumber, RoundsWithoutANegativeZero) {
  EXPECT_EQ(FixedNumber(12.3456789, 4), "12.3457");
  EXPECT_EQ(FixedNumber(-0.0000001, 6), "0.000000");
  EXPECT_EQ(FixedNumber(-0.0000006, 6), "-0.000001");
  EXPECT_EQ(FixedNumber(kNaN, 3), "n/a");
}

// Points on a cylinder around a tilted axis at known angles and heights: the unrolled view
// gives back the heights and the differences of the angles.
TEST(Views, UnrolledCylinderGivesAngleAndHeight) {
  using metrofit_report_samples::Around;
  using metrofit_report_samples::TiltedFrame;
  const auto f = TiltedFrame({0.3, -0.4, 0.87});
  const std::array<double, 3> c{350.0, -120.0, 75.0};
  const std::vector<double> angles{30.0, 75.0, 120.0, 160.0};
  const std::vector<double> heights{-12.0, 3.5, 20.0, 8.0};
  Sample s;
  for (std::size_t k = 0; k < angles.size(); ++k) {
    const auto p = metrofit_report_samples::Add(
        c, Around(f, metrofit_report_samples::Radians(angles[k]), 25.0, heights[k]));
    s.points.push_back({p[0], p[1], p[2]});
    s.result.deviations.push_back(0.001 * k);
  }
  s.result.shape = Shape::kCylinder;
  s.result.center = c;
  s.result.axis = f.w;
  const std::vector<View> views = MakeViews(s.result, s.points, {0, 1, 2, 3}, "mm");
  ASSERT_EQ(views.size(), 1u);
  const View& v = views[0];
  ASSERT_EQ(v.points.size(), 4u);
  for (std::size_t k = 0; k < angles.size(); ++k) {
    EXPECT_NEAR(v.points[k][1], heights[k], kViewTolerance);
    EXPECT_NEAR(v.points[k][0] - v.points[0][0], angles[k] - angles[0], kViewTolerance);
  }
  // A partial arc is drawn in one piece: the axis spans the arc, not a full turn.
  EXPECT_LT(v.x.high - v.x.low, 180.0);
  EXPECT_LE(v.x.low, v.points[0][0]);
  EXPECT_GE(v.x.high, v.points[3][0]);
}

TEST(Views, ArcAcrossTheSeamReadsAsNegativeAngles) {
  Sample s;
  for (const double a : {-50.0, -20.0, 0.0, 25.0, 50.0}) {
    const double r = metrofit_report_samples::Radians(a);
    s.points.push_back({10.0 * std::cos(r), 10.0 * std::sin(r), 0.0});
    s.result.deviations.push_back(0.0);
  }
  s.result.shape = Shape::kCircle;
  s.result.axis = std::array<double, 3>{0.0, 0.0, 1.0};
  s.result.radius = 10.0;
  const std::vector<View> views = MakeViews(s.result, s.points, {0, 1, 2, 3, 4}, "mm");
  ASSERT_EQ(views.size(), 2u);
  EXPECT_EQ(views[0].id, "along-circle");
  EXPECT_NEAR(views[0].points[0][0], -50.0, kViewTolerance);
  EXPECT_NEAR(views[0].points[4][0], 50.0, kViewTolerance);
  EXPECT_GT(views[0].x.low, -60.0);
  EXPECT_LT(views[0].x.high, 60.0);
}

TEST(Views, TorusGivesTheAngleAroundTheTube) {
  Sample s = MakeSample(Shape::kTorus, 200);
  const std::vector<View> views = MakeViews(s.result, s.points, {0, 1, 2}, "mm");
  ASSERT_EQ(views.size(), 1u);
  // Recompute the tube angle from the sample's own construction: the point's offset from the
  // tube's centre circle, along the axis and outward.
  for (std::size_t k = 0; k < 3; ++k) {
    const auto& p = s.points[k];
    const std::array<double, 3> d{p.x - s.result.center[0], p.y - s.result.center[1],
                                  p.z - s.result.center[2]};
    const auto& w = *s.result.axis;
    const double along = d[0] * w[0] + d[1] * w[1] + d[2] * w[2];
    const double out = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2] - along * along) - 60.0;
    const double expected = std::atan2(along, out) * 180.0 / metrofit_report_samples::kPi;
    EXPECT_NEAR(std::remainder(views[0].points[k][1] - expected, 360.0), 0.0, 1e-9);
  }
}

TEST(Views, SphereMapLatitudeAboutZ) {
  Sample s;
  s.result.shape = Shape::kSphere;
  s.result.center = {100.0, 200.0, 300.0};
  s.points = {{100.0, 200.0, 310.0}, {110.0, 200.0, 300.0}, {100.0, 190.0, 300.0}};
  s.result.deviations = {0.0, 0.001, -0.001};
  const std::vector<View> views = MakeViews(s.result, s.points, {0, 1, 2}, "mm");
  ASSERT_EQ(views.size(), 1u);
  EXPECT_NEAR(views[0].points[0][1], 90.0, kViewTolerance);  // the pole
  EXPECT_NEAR(views[0].points[1][1], 0.0, kViewTolerance);
  EXPECT_NEAR(std::remainder(views[0].points[1][0] - views[0].points[2][0], 360.0), 90.0,
              kViewTolerance);  // +X to -Y is a quarter turn clockwise about +Z
}

TEST(Views, LineProfileIsPositionAgainstDeviation) {
  Sample s;
  s.result.shape = Shape::kLine;
  s.result.center = {5.0, 5.0, 5.0};
  s.result.axis = std::array<double, 3>{0.0, 1.0, 0.0};
  s.points = {{5.0, -10.0, 5.002}, {5.0, 30.0, 5.0}};
  s.result.deviations = {0.002, 0.0};
  const std::vector<View> views = MakeViews(s.result, s.points, {0, 1}, "mm");
  ASSERT_EQ(views.size(), 1u);
  EXPECT_TRUE(views[0].deviation_on_y);
  EXPECT_NEAR(views[0].points[0][0], -15.0, kViewTolerance);
  EXPECT_NEAR(views[0].points[1][0], 25.0, kViewTolerance);
  EXPECT_NEAR(views[0].points[0][1], 0.002, kViewTolerance);
}

}  // namespace
