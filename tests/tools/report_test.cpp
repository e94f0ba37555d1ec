#include "report.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools_test_util.h"

namespace {

using metrofit::FitOptions;
using metrofit::FitResult;
using metrofit::Method;
using metrofit::Parameter;
using metrofit::Point;
using metrofit::Shape;
using metrofit::Status;
using metrofit::cli::ExactNumber;
using metrofit::cli::FitReport;
using metrofit::cli::JsonReport;
using metrofit::cli::TableNumber;
using metrofit::cli::WriteDeviationsCsv;
using metrofit::cli::WriteJson;
using metrofit::cli::WriteTable;
using metrofit_tools_test::JsonSyntax;
using Json = nlohmann::json;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

const std::string kFile = "parts/ball.txt";
const std::string kMm = "mm";

// A sphere result as the precise method gives it: 57 points, centre and radius with their
// uncertainties.
FitResult Sphere() {
  FitResult r;
  r.shape = Shape::kSphere;
  r.method = Method::kPrecise;
  r.valid = true;
  r.status = Status::kOk;
  r.center = {212.438, -148.716, 305.204};
  r.radius = 12.5;
  r.parameters = {{"center", {212.438, -148.716, 305.204}, {0.000412, 0.000611, 0.00042}},
                  {"radius", {12.5}, {0.000021}}};
  r.rms = 0.0014;
  r.sigma = 0.0015;
  r.min_deviation = -0.0031;
  r.max_deviation = 0.0029;
  r.form_error = 0.006;
  r.iterations = 4;
  return r;
}

FitResult Cone() {
  FitResult r = Sphere();
  r.shape = Shape::kCone;
  r.radius.reset();
  r.axis = std::array<double, 3>{0.0, 0.6, 0.8};
  r.half_angle = 0.5235987755982988;  // 30 degrees
  r.parameters = {{"center", {1.0, 2.0, 3.0}, {0.001, 0.002, 0.003}},
                  {"axis", {0.0, 0.6, 0.8}, {0.0, 0.00002, 0.000015}},
                  {"half_angle", {0.5235987755982988}, {0.0}}};
  return r;
}

std::string Table(const FitResult& r, const FitOptions& options = FitOptions(),
                  const std::string& units = kMm) {
  std::ostringstream out;
  WriteTable(out, FitReport{kFile, 57, units, options, r});
  return out.str();
}

std::string JsonLine(const FitResult& r, bool with_points = false,
                     const FitOptions& options = FitOptions()) {
  std::ostringstream out;
  WriteJson(out, FitReport{kFile, 57, kMm, options, r}, with_points);
  return out.str();
}

TEST(CliReport, StatusTextIsForReaders) {
  EXPECT_EQ(metrofit::cli::StatusText(Status::kOk), "ok");
  EXPECT_EQ(metrofit::cli::StatusText(Status::kTooFewPoints), "too few points");
  EXPECT_EQ(metrofit::cli::StatusText(Status::kNotConverged), "not converged");
}

TEST(CliReport, TableNumbersHaveSixDecimals) {
  EXPECT_EQ(TableNumber(5.0), "5.000000");
  EXPECT_EQ(TableNumber(-148.7161234567), "-148.716123");
  EXPECT_EQ(TableNumber(-0.0), "0.000000");
  EXPECT_EQ(TableNumber(kNaN), "nan");
  EXPECT_EQ(TableNumber(-kNaN), "nan");
  EXPECT_EQ(TableNumber(-kInf), "-inf");
  EXPECT_EQ(TableNumber(2e12), "2.000000e+12");
}

TEST(CliReport, ExactNumbersReadBackExactly) {
  EXPECT_EQ(ExactNumber(5.0), "5");
  EXPECT_EQ(ExactNumber(0.1), "0.1");
  EXPECT_EQ(ExactNumber(-148.716), "-148.716");
  for (const double v : {1.0 / 3.0, 1e300, 4.9e-324, -2.5e-7, 212.43798412345678}) {
    EXPECT_EQ(std::strtod(ExactNumber(v).c_str(), nullptr), v) << ExactNumber(v);
  }
}

TEST(CliReport, SphereTableShowsUncertaintiesStatisticsAndStatus) {
  EXPECT_EQ(Table(Sphere()),
            "file           parts/ball.txt\n"
            "shape          sphere, precise method\n"
            "points         57\n"
            "center         212.438000  -148.716000  305.204000 \u00b1 0.000412  0.000611  "
            "0.000420 mm\n"
            "radius         12.500000 \u00b1 0.000021 mm\n"
            "rms            0.001400 mm\n"
            "sigma          0.001500 mm\n"
            "min deviation  -0.003100 mm\n"
            "max deviation  0.002900 mm\n"
            "form error     0.006000 mm\n"
            "iterations     4\n"
            "status         ok\n");
}

TEST(CliReport, TableMarksFixedParametersAndNamesTheUnits) {
  FitOptions options;
  options.shape = Shape::kSphere;
  options.fixed = {{"radius", {12.5}}};
  options.probe_radius = 1.5;
  FitResult r = Sphere();
  r.parameters[1].uncertainty = {0.0};
  r.message = "radius held";
  const std::string table = Table(r, options, "inch");
  EXPECT_NE(table.find("\nradius         12.500000 (fixed) inch\n"), std::string::npos) << table;
  EXPECT_NE(table.find("\nprobe radius   1.500000 inch\n"), std::string::npos) << table;
  EXPECT_NE(table.find("\nrms            0.001400 inch\n"), std::string::npos) << table;
  EXPECT_NE(table.find("\nstatus         ok: radius held\n"), std::string::npos) << table;
}

TEST(CliReport, DirectionsHaveNoUnitAndAnglesShowDegreesToo) {
  const std::string table = Table(Cone());
  EXPECT_NE(table.find("\nshape          cone, precise method\n"), std::string::npos) << table;
  EXPECT_NE(table.find("\naxis           0.000000  0.600000  0.800000 \u00b1 0.000000  0.000020  "
                       "0.000015\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("\nhalf_angle     0.523599 \u00b1 0.000000 rad  (30.000000 \u00b1 "
                       "0.000000 deg)\n"),
            std::string::npos)
      << table;
}

TEST(CliReport, JsonIsOneLineWithEveryFieldOfTheResult) {
  const std::string line = JsonLine(Sphere());
  ASSERT_EQ(line.find('\n'), line.size() - 1) << line;
  EXPECT_TRUE(JsonSyntax::Valid(line)) << line;
  const Json json = Json::parse(line);
  // First, so that a reader sees it before anything else.
  EXPECT_EQ(nlohmann::ordered_json::parse(line).begin().key(), "schema");
  EXPECT_EQ(json["schema"], "metrofit.fit/1");
  EXPECT_EQ(json["file"], kFile);
  EXPECT_EQ(json["units"], (Json{{"length", "mm"}, {"angle", "rad"}}));
  EXPECT_EQ(json["shape"], "sphere");
  EXPECT_EQ(json["method"], "precise");
  EXPECT_EQ(json["points"], 57);
  EXPECT_EQ(json["valid"], true);
  EXPECT_EQ(json["status"], metrofit::ToString(Status::kOk));
  EXPECT_EQ(json["message"], "");
  EXPECT_EQ(json["iterations"], 4);
  EXPECT_EQ(json["center"], (Json{212.438, -148.716, 305.204}));
  EXPECT_EQ(json["radius"], 12.5);
  EXPECT_FALSE(json.contains("axis"));  // a sphere has none
  ASSERT_EQ(json["parameters"].size(), 2u);
  EXPECT_EQ(
      json["parameters"][1],
      (Json{{"name", "radius"}, {"value", {12.5}}, {"uncertainty", {0.000021}}, {"fixed", false}}));
  EXPECT_EQ(json["statistics"], (Json{{"rms", 0.0014},
                                      {"sigma", 0.0015},
                                      {"min_deviation", -0.0031},
                                      {"max_deviation", 0.0029},
                                      {"form_error", 0.006}}));
  EXPECT_EQ(json["options"],
            (Json{{"probe_radius", 0.0}, {"fixed", Json::array()}, {"start", Json::array()}}));
  EXPECT_FALSE(json.contains("deviations"));
}

TEST(CliReport, JsonCarriesTheShapesOwnFields) {
  FitResult r = Cone();
  const Json cone = Json::parse(JsonLine(r));
  EXPECT_EQ(cone["axis"], (Json{0.0, 0.6, 0.8}));
  EXPECT_EQ(cone["half_angle"], 0.5235987755982988);
  EXPECT_FALSE(cone.contains("radius"));
  r.shape = Shape::kEllipse;
  r.half_angle.reset();
  r.semi_axes = std::array<double, 2>{30.0, 18.0};
  r.major_direction = std::array<double, 3>{1.0, 0.0, 0.0};
  r.focal_length = 50.0;
  r.major_radius = 40.0;
  r.minor_radius = 6.0;
  const Json all = Json::parse(JsonLine(r));
  EXPECT_EQ(all["semi_axes"], (Json{30.0, 18.0}));
  EXPECT_EQ(all["major_direction"], (Json{1.0, 0.0, 0.0}));
  EXPECT_EQ(all["focal_length"], 50.0);
  EXPECT_EQ(all["major_radius"], 40.0);
  EXPECT_EQ(all["minor_radius"], 6.0);
}

TEST(CliReport, JsonRecordsTheOptionsAndMarksFixedParameters) {
  FitOptions options;
  options.fixed = {{"radius", {12.5}}};
  options.start = {{"center", {212.0, -148.0, 305.0}}};
  options.probe_radius = 2.0;
  const Json json = Json::parse(JsonLine(Sphere(), false, options));
  EXPECT_EQ(json["parameters"][0]["fixed"], false);
  EXPECT_EQ(json["parameters"][1]["fixed"], true);
  EXPECT_EQ(json["options"]["probe_radius"], 2.0);
  EXPECT_EQ(json["options"]["fixed"], (Json{{{"name", "radius"}, {"value", {12.5}}}}));
  EXPECT_EQ(json["options"]["start"],
            (Json{{{"name", "center"}, {"value", {212.0, -148.0, 305.0}}}}));
}

TEST(CliReport, JsonListsDeviationsAndResidualsOnlyWhenAsked) {
  FitResult r = Sphere();
  r.deviations = {0.001, -0.002};
  r.residuals = {{0.001, 0.0, 0.0}, {0.0, -0.002, 0.0}};
  const Json json = Json::parse(JsonLine(r, true));
  EXPECT_EQ(json["deviations"], (Json{0.001, -0.002}));
  EXPECT_EQ(json["residuals"], (Json{{0.001, 0.0, 0.0}, {0.0, -0.002, 0.0}}));
  EXPECT_FALSE(Json::parse(JsonLine(r, false)).contains("residuals"));
}

TEST(CliReport, JsonOfAFitThatIsNotValid) {
  FitResult r;
  r.shape = Shape::kCylinder;
  r.status = Status::kTooFewPoints;
  r.message = "line \"one\"\n\tand \\ two";
  r.rms = kNaN;
  r.form_error = -kInf;
  const std::string line = JsonLine(r);
  EXPECT_TRUE(JsonSyntax::Valid(line)) << line;
  EXPECT_EQ(line.find("nan"), std::string::npos) << line;
  const Json json = Json::parse(line);
  EXPECT_EQ(json["valid"], false);
  EXPECT_EQ(json["status"], metrofit::ToString(Status::kTooFewPoints));
  EXPECT_EQ(json["message"], r.message);
  EXPECT_TRUE(json["statistics"]["rms"].is_null());
  EXPECT_TRUE(json["statistics"]["form_error"].is_null());
}

TEST(CliReport, JsonReplacesBytesThatAreNotUtf8) {
  const std::string file = "bad\xff.txt";
  std::ostringstream out;
  WriteJson(out, FitReport{file, 0, kMm, FitOptions(), Sphere()}, false);
  EXPECT_EQ(Json::parse(out.str())["file"], "bad\xef\xbf\xbd.txt");
}

TEST(CliReport, DeviationsCsvHasOneExactRowPerPoint) {
  FitResult r = Sphere();
  r.deviations = {0.0015, -2.5e-7};
  std::ostringstream out;
  WriteDeviationsCsv(out, {{212.438, -148.716, 317.704}, {0.1, -0.0, 1e-300}}, r);
  EXPECT_EQ(out.str(),
            "x,y,z,deviation\n"
            "212.438,-148.716,317.704,0.0015\n"
            "0.1,-0,1e-300,-2.5e-07\n");
}

TEST(CliReport, DeviationsCsvRefusesAResultForOtherPoints) {
  FitResult r = Sphere();
  r.deviations = {0.0015};
  std::ostringstream out;
  EXPECT_THROW(WriteDeviationsCsv(out, {{0, 0, 0}, {1, 1, 1}}, r), std::logic_error);
}

}  // namespace
