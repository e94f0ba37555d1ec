// The tool run as a function: arguments and input in, output, messages and exit status out.
#include "app.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "metrofit/fit.h"
#include "tools_test_util.h"

namespace {

using metrofit::Shape;
using metrofit::Status;
using metrofit::cli::Environment;
using metrofit::cli::kExitFitNotValid;
using metrofit::cli::kExitInput;
using metrofit::cli::kExitInternal;
using metrofit::cli::kExitOk;
using metrofit::cli::kExitUsage;
using metrofit_tools_test::TempFile;
using Json = nlohmann::json;
using Vec = std::array<double, 3>;

// Noise on the synthetic points, as a good CMM leaves it.
constexpr double kNoise = 0.001;  // mm
// A length the fit recovers from the noisy points: a few times the noise.
constexpr double kLength = 0.005;  // mm
// Agreement of two computations of the same least-squares solution.
constexpr double kSameSolution = 1e-9;  // mm

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome RunTool(const std::vector<std::string>& args, const std::string& stdin_text = "",
                const Environment& environment = Environment()) {
  std::istringstream in(stdin_text);
  std::ostringstream out, err;
  const int status = metrofit::cli::Run(args, in, out, err, environment);
  return {status, out.str(), err.str()};
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

double Distance(const Json& a, const Vec& b) {
  return std::hypot(a[0].get<double>() - b[0], a[1].get<double>() - b[1],
                    a[2].get<double>() - b[2]);
}

Vec Unit(const Vec& v) {
  const double n = std::hypot(v[0], v[1], v[2]);
  return {v[0] / n, v[1] / n, v[2] / n};
}

Vec Cross(const Vec& a, const Vec& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// Angle between two axes, sign ignored.
double AxisAngle(const Json& a, const Vec& b) {
  const Vec u = Unit(b);
  const double dot =
      a[0].get<double>() * u[0] + a[1].get<double>() * u[1] + a[2].get<double>() * u[2];
  return std::acos(std::min(1.0, std::fabs(dot)));
}

std::string PointText(const std::vector<Vec>& points) {
  std::ostringstream text;
  text.precision(17);
  for (const Vec& p : points) text << p[0] << ' ' << p[1] << ' ' << p[2] << '\n';
  return text.str();
}

// Sphere of centre (-320.5, 410.25, 95.75) and radius 25 probed on a cap of 120 degrees about a
// tilted direction, `count` points with kNoise along the normal (seeded).
const Vec kSphereCentre = {-320.5, 410.25, 95.75};
constexpr double kSphereRadius = 25.0;
std::vector<Vec> SpherePoints(int count = 60, double radius = kSphereRadius) {
  std::mt19937 rng(7);
  std::normal_distribution<double> noise(0.0, kNoise);
  const Vec axis = Unit({0.2, -0.3, 1.0});
  const Vec e1 = Unit(Cross({1, 0, 0}, axis));
  const Vec e2 = Cross(axis, e1);
  std::vector<Vec> points;
  for (int k = 0; k < count; ++k) {
    const double polar = 1.0472 * (k % 6 + 1) / 6.0;  // up to 60 degrees from the axis
    const double azimuth = 0.7 * k;
    Vec n;
    for (int i = 0; i < 3; ++i) {
      n[i] = std::cos(polar) * axis[i] +
             std::sin(polar) * (std::cos(azimuth) * e1[i] + std::sin(azimuth) * e2[i]);
    }
    const double r = radius + noise(rng);
    points.push_back(
        {kSphereCentre[0] + r * n[0], kSphereCentre[1] + r * n[1], kSphereCentre[2] + r * n[2]});
  }
  return points;
}

// Cylinder of radius 8 about the axis through (150, -240, 60) along (0.1, 0.15, 1): 4 rings of
// 10 points over 30 mm, kNoise radially (seeded).
const Vec kCylinderPoint = {150.0, -240.0, 60.0};
const Vec kCylinderAxis = {0.1, 0.15, 1.0};
constexpr double kCylinderRadius = 8.0;
std::vector<Vec> CylinderPoints() {
  std::mt19937 rng(11);
  std::normal_distribution<double> noise(0.0, kNoise);
  const Vec axis = Unit(kCylinderAxis);
  const Vec e1 = Unit(Cross({1, 0, 0}, axis));
  const Vec e2 = Cross(axis, e1);
  std::vector<Vec> points;
  for (int ring = 0; ring < 4; ++ring) {
    for (int k = 0; k < 10; ++k) {
      const double a = 0.6283 * k + 0.3 * ring;
      const double r = kCylinderRadius + noise(rng);
      Vec p;
      for (int i = 0; i < 3; ++i) {
        p[i] = kCylinderPoint[i] + 10.0 * ring * axis[i] +
               r * (std::cos(a) * e1[i] + std::sin(a) * e2[i]);
      }
      points.push_back(p);
    }
  }
  return points;
}

Json OnlyJson(const Outcome& o) {
  EXPECT_EQ(o.out.find('\n'), o.out.size() - 1) << "one line of JSON expected: " << o.out;
  return Json::parse(o.out);
}

TEST(CliRun, HelpGoesToStandardOutput) {
  const Outcome o = RunTool({"--help"});
  EXPECT_EQ(o.status, kExitOk);
  EXPECT_EQ(o.out, metrofit::cli::HelpText());
  EXPECT_EQ(o.err, "");
}

TEST(CliRun, VersionIsTheProjectVersion) {
  const Outcome o = RunTool({"--version"});
  EXPECT_EQ(o.status, kExitOk);
  EXPECT_EQ(o.out, std::string("metrofit ") + METROFIT_VERSION + "\n");
}

TEST(CliRun, UsageErrorsExitWithTwoAndPointToHelp) {
  const Outcome shape = RunTool({"fit", "hexagon", "-"}, "0 0 0\n");
  EXPECT_EQ(shape.status, kExitUsage);
  EXPECT_EQ(shape.out, "");
  EXPECT_EQ(shape.err.rfind("metrofit: unknown shape 'hexagon'", 0), 0u) << shape.err;
  EXPECT_TRUE(Contains(shape.err, "\nTry 'metrofit --help'.\n")) << shape.err;
  const Outcome name = RunTool({"fit", "sphere", "-", "--fix", "diameter=20"}, "0 0 0\n");
  EXPECT_EQ(name.status, kExitUsage);
  EXPECT_TRUE(Contains(name.err, "a sphere has no parameter 'diameter'")) << name.err;
  EXPECT_EQ(RunTool({}).status, kExitUsage);
}

TEST(CliRun, InputErrorsExitWithThreeNamingFileAndLine) {
  const Outcome missing = RunTool({"fit", "sphere", "/nonexistent/metrofit/p.txt"});
  EXPECT_EQ(missing.status, kExitInput);
  EXPECT_EQ(missing.out, "");
  EXPECT_TRUE(Contains(missing.err, "metrofit: cannot open '/nonexistent/metrofit/p.txt'"));

  const TempFile file("1 2 3\n4 5 6\n7 8\n");
  const Outcome bad = RunTool({"fit", "sphere", file.path()});
  EXPECT_EQ(bad.status, kExitInput);
  EXPECT_EQ(bad.err.rfind("metrofit: " + file.path() + ":3: ", 0), 0u) << bad.err;

  const Outcome nan = RunTool({"fit", "line", "-"}, "1 2 3\n1 2 nan\n");
  EXPECT_EQ(nan.status, kExitInput);
  EXPECT_EQ(nan.err.rfind("metrofit: <stdin>:2: ", 0), 0u) << nan.err;

  // A decimal comma is never read as a field separator by accident.
  const Outcome comma = RunTool({"fit", "line", "-"}, "1,5 2,5 3,5\n");
  EXPECT_EQ(comma.status, kExitInput);
  EXPECT_TRUE(Contains(comma.err, "--decimal-comma")) << comma.err;

  const Outcome directory =
      RunTool({"fit", "plane", std::filesystem::temp_directory_path().string()});
  EXPECT_EQ(directory.status, kExitInput);
  EXPECT_TRUE(Contains(directory.err, "is a directory")) << directory.err;
}

// The bundled sphere in every format the readers know, with the options each file needs
// (examples/data/formats/README.md): the same sphere every time.
TEST(CliRun, EveryPointFileFormatGivesTheSameSphere) {
  const std::string dir = std::string(METROFIT_EXAMPLES_DIR) + "/formats/";
  const std::vector<std::vector<std::string>> runs = {
      {"sphere.xyz"},
      {"sphere.csv"},
      {"sphere_decimal_comma.csv", "--decimal-comma", "--columns", "2,3,4"},
      {"sphere.pts"},
      {"sphere_ascii.ply"},
      {"sphere_le.ply"},
      {"sphere_be.ply"},
      {"sphere_ascii.pcd"},
      {"sphere_binary.pcd"}};
  for (const std::vector<std::string>& run : runs) {
    SCOPED_TRACE(run[0]);
    std::vector<std::string> args = {"fit", "sphere", dir + run[0], "--json"};
    args.insert(args.end(), run.begin() + 1, run.end());
    const Outcome o = RunTool(args);
    ASSERT_EQ(o.status, kExitOk) << o.err;
    const Json json = OnlyJson(o);
    EXPECT_EQ(json["points"], 40);
    // Float32 files hold the coordinates to about 15 um at 300 mm: a few micrometres here.
    EXPECT_LE(Distance(json["center"], {212.438, -148.716, 305.204}), kLength);
    EXPECT_NEAR(json["radius"].get<double>(), 12.5, kLength);
  }
}

TEST(CliRun, FormatOptionOverridesTheExtension) {
  const TempFile csv("x;y;z\n10;0;0\n0;10;0\n-10;0;0\n0;0;10\n0;-10;0\n");  // a .txt name
  EXPECT_EQ(RunTool({"fit", "sphere", csv.path()}).status, kExitInput);
  const Outcome o = RunTool({"fit", "sphere", csv.path(), "--format", "csv", "--json"});
  ASSERT_EQ(o.status, kExitOk) << o.err;
  EXPECT_NEAR(OnlyJson(o)["radius"].get<double>(), 10.0, kSameSolution);
}

TEST(CliRun, AnEmptyFileIsNotAValidFit) {
  const TempFile file("# nothing measured\n");
  const Outcome o = RunTool({"fit", "sphere", file.path()});
  EXPECT_EQ(o.status, kExitFitNotValid);
  EXPECT_EQ(o.out, "");  // no table that could be taken for a result
  const std::string reason = ": no valid sphere fit (too few points): a sphere needs at least";
  EXPECT_EQ(o.err.rfind("metrofit: " + file.path() + reason, 0), 0u) << o.err;
}

TEST(CliRun, TooFewPointsForTheShapeAreNotAValidFit) {
  for (const std::size_t count : {std::size_t{1}, metrofit::MinimumPoints(Shape::kSphere) - 1}) {
    SCOPED_TRACE(count);
    const Outcome o = RunTool({"fit", "sphere", "-"}, PointText(SpherePoints(int(count))));
    EXPECT_EQ(o.status, kExitFitNotValid);
    EXPECT_EQ(o.out, "");
    EXPECT_TRUE(Contains(o.err, "no valid sphere fit (too few points)")) << o.err;
  }
}

TEST(CliRun, ADegeneratePointSetIsNotAValidFit) {
  // Points along one line leave the plane free to turn about it.
  const std::string points = "100 200 300\n110 205 301\n120 210 302\n130 215 303\n140 220 304\n";
  const Outcome o = RunTool({"fit", "plane", "-"}, points);
  EXPECT_EQ(o.status, kExitFitNotValid);
  EXPECT_EQ(o.out, "");
  EXPECT_TRUE(Contains(o.err, "metrofit: -: no valid plane fit (")) << o.err;
}

TEST(CliRun, JsonOfAFitThatIsNotValidIsStillWritten) {
  const Outcome o = RunTool({"fit", "cylinder", "-", "--json"}, "1 2 3\n");
  EXPECT_EQ(o.status, kExitFitNotValid);
  const Json json = OnlyJson(o);
  EXPECT_EQ(json["valid"], false);
  EXPECT_EQ(json["status"], metrofit::ToString(Status::kTooFewPoints));
  EXPECT_EQ(json["points"], 1);
  EXPECT_TRUE(Contains(o.err, "no valid cylinder fit")) << o.err;
}

// The number after `label` and the blanks that align the table; NaN when absent.
double TableValue(const std::string& table, const std::string& label) {
  const std::size_t at = table.find("\n" + label + "  ");
  if (at == std::string::npos) return std::nan("");
  return std::strtod(table.c_str() + at + label.size() + 1, nullptr);
}

TEST(CliRun, SphereTableWithUncertainties) {
  const Outcome o = RunTool({"fit", "sphere", "-"}, PointText(SpherePoints()));
  ASSERT_EQ(o.status, kExitOk) << o.err;
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out.rfind("file           -\nshape          sphere, precise method\n"
                        "points         60\ncenter         -320.",
                        0),
            0u)
      << o.out;
  EXPECT_NEAR(TableValue(o.out, "radius"), kSphereRadius, kLength) << o.out;
  // "radius  24.999324 ± 0.000628 mm": six decimals, the uncertainty, the unit.
  const std::size_t radius = o.out.find("\nradius         ");
  ASSERT_NE(radius, std::string::npos) << o.out;
  const std::string line = o.out.substr(radius + 1, o.out.find('\n', radius + 1) - radius - 1);
  EXPECT_EQ(line.size(), std::string("radius         24.999324 ± 0.000628 mm").size()) << line;
  EXPECT_NE(line.find(" ± 0.000"), std::string::npos) << line;
  EXPECT_NEAR(TableValue(o.out, "rms"), kNoise, kNoise / 2) << o.out;
  for (const char* label : {"sigma", "min deviation", "max deviation", "form error"}) {
    EXPECT_FALSE(std::isnan(TableValue(o.out, label))) << label << "\n" << o.out;
  }
  EXPECT_TRUE(
      Contains(o.out, std::string("\nstatus         ") + metrofit::ToString(Status::kOk) + "\n"))
      << o.out;
}

TEST(CliRun, SphereJsonGivesBackTheSphere) {
  const Outcome o = RunTool({"fit", "sphere", "-", "--json"}, PointText(SpherePoints()));
  ASSERT_EQ(o.status, kExitOk) << o.err;
  const Json json = OnlyJson(o);
  EXPECT_EQ(json["schema"], "metrofit.fit/1");
  EXPECT_EQ(json["file"], "-");
  EXPECT_EQ(json["method"], "precise");
  EXPECT_EQ(json["valid"], true);
  EXPECT_LE(Distance(json["center"], kSphereCentre), kLength);
  EXPECT_NEAR(json["radius"].get<double>(), kSphereRadius, kLength);
  for (const Json& p : json["parameters"]) {
    for (const Json& u : p["uncertainty"]) {
      // Noise of 1 um over 60 points: uncertainties well under a micrometre, and not zero.
      EXPECT_GT(u.get<double>(), 0.0) << p;
      EXPECT_LT(u.get<double>(), kNoise) << p;
    }
  }
  EXPECT_NEAR(json["statistics"]["rms"].get<double>(), kNoise, kNoise / 2);
}

TEST(CliRun, FixedRadiusIsHeldExactly) {
  const Outcome o =
      RunTool({"fit", "sphere", "-", "--fix", "radius=25.01", "--json"}, PointText(SpherePoints()));
  ASSERT_EQ(o.status, kExitOk) << o.err;
  const Json json = OnlyJson(o);
  EXPECT_EQ(json["radius"], 25.01);
  EXPECT_EQ(json["parameters"][1]["fixed"], true);
  EXPECT_EQ(json["parameters"][1]["uncertainty"], Json{0.0});
  // A radius 10 um off cannot fit the points as well as the free one.
  const Json free = OnlyJson(RunTool({"fit", "sphere", "-", "--json"}, PointText(SpherePoints())));
  EXPECT_GT(json["statistics"]["rms"].get<double>(), free["statistics"]["rms"].get<double>());

  const Outcome table =
      RunTool({"fit", "sphere", "-", "--fix", "radius=25.01"}, PointText(SpherePoints()));
  EXPECT_TRUE(Contains(table.out, "\nradius         25.010000 (fixed) mm\n")) << table.out;
}

TEST(CliRun, StartValuesLeadToTheSameSolution) {
  const std::string points = PointText(CylinderPoints());
  const Outcome automatic = RunTool({"fit", "cylinder", "-", "--json"}, points);
  const Outcome started = RunTool(
      {"fit", "cylinder", "-", "--json", "--start", "axis=0.1,0.15,1", "--start", "radius=7.5"},
      points);
  ASSERT_EQ(automatic.status, kExitOk) << automatic.err;
  ASSERT_EQ(started.status, kExitOk) << started.err;
  const Json a = OnlyJson(automatic), s = OnlyJson(started);
  EXPECT_NEAR(a["radius"].get<double>(), kCylinderRadius, kLength);
  EXPECT_LE(AxisAngle(a["axis"], kCylinderAxis), 1e-4);
  EXPECT_NEAR(s["radius"].get<double>(), a["radius"].get<double>(), kSameSolution);
  EXPECT_EQ(s["options"]["start"][0]["name"], "axis");
}

TEST(CliRun, CompatibleMethodFitsTheSameSphere) {
  const Outcome o = RunTool({"fit", "sphere", "-", "--json", "--method", "compatible"},
                            PointText(SpherePoints()));
  ASSERT_EQ(o.status, kExitOk) << o.err;
  const Json json = OnlyJson(o);
  EXPECT_EQ(json["method"], "compatible");
  EXPECT_LE(Distance(json["center"], kSphereCentre), kLength);
  EXPECT_NEAR(json["radius"].get<double>(), kSphereRadius, kLength);
}

TEST(CliRun, CompatibleMethodHasNoPlanarEllipse) {
  const std::string points = "10 0 0\n0 5 0\n-10 0 0\n0 -5 0\n7.0710678 3.5355339 0\n";
  const Outcome o = RunTool({"fit", "ellipse", "-", "--method", "compatible"}, points);
  EXPECT_EQ(o.status, kExitUsage);
  EXPECT_TRUE(Contains(o.err, metrofit::ToString(Status::kUnsupported))) << o.err;
}

TEST(CliRun, UnitsAreOnlyALabel) {
  const std::string points = PointText(SpherePoints());
  const Outcome table = RunTool({"fit", "sphere", "-", "--units", "inch"}, points);
  EXPECT_NEAR(TableValue(table.out, "radius"), kSphereRadius, kLength) << table.out;
  EXPECT_TRUE(Contains(table.out, " inch\n")) << table.out;
  EXPECT_FALSE(Contains(table.out, " mm\n")) << table.out;
  const Outcome json = RunTool({"fit", "sphere", "-", "--units", "inch", "--json"}, points);
  EXPECT_EQ(OnlyJson(json)["units"], (Json{{"length", "inch"}, {"angle", "rad"}}));
}

TEST(CliRun, SeveralFilesInOrderWithTheWorstExitStatus) {
  const TempFile sphere(PointText(SpherePoints()));
  const TempFile empty("");
  const Outcome o = RunTool({"fit", "sphere", sphere.path(), empty.path(), sphere.path()});
  EXPECT_EQ(o.status, kExitFitNotValid);
  // Two tables, the empty file between them reported on standard error.
  const std::size_t first = o.out.find("file           " + sphere.path() + "\n");
  const std::size_t second = o.out.find("\n\nfile           " + sphere.path() + "\n");
  EXPECT_EQ(first, 0u) << o.out;
  EXPECT_NE(second, std::string::npos) << o.out;
  EXPECT_TRUE(Contains(o.err, empty.path() + ": no valid sphere fit")) << o.err;

  const Outcome missing = RunTool({"fit", "sphere", empty.path(), "/nonexistent/p.txt"});
  EXPECT_EQ(missing.status, kExitInput);
}

TEST(CliRun, JsonGivesOneLinePerFile) {
  const TempFile sphere(PointText(SpherePoints()));
  const TempFile single("1 2 3\n");
  const Outcome o = RunTool({"fit", "sphere", single.path(), sphere.path(), "--json"});
  EXPECT_EQ(o.status, kExitFitNotValid);
  std::istringstream lines(o.out);
  std::vector<Json> results;
  for (std::string line; std::getline(lines, line);) results.push_back(Json::parse(line));
  ASSERT_EQ(results.size(), 2u) << o.out;
  EXPECT_EQ(results[0]["file"], single.path());
  EXPECT_EQ(results[0]["valid"], false);
  EXPECT_EQ(results[1]["file"], sphere.path());
  EXPECT_EQ(results[1]["valid"], true);
}

TEST(CliRun, DeviationsCsvAgreesWithTheJsonDeviations) {
  const std::vector<Vec> points = SpherePoints();
  const TempFile input(PointText(points));
  const std::filesystem::path csv = std::filesystem::path(input.path()).replace_extension(".csv");
  const Outcome o = RunTool(
      {"fit", "sphere", input.path(), "--json", "--json-deviations", "--deviations", csv.string()});
  ASSERT_EQ(o.status, kExitOk) << o.err;
  const Json json = OnlyJson(o);
  ASSERT_EQ(json["deviations"].size(), points.size());
  ASSERT_EQ(json["residuals"].size(), points.size());
  std::ifstream in(csv);
  std::string line;
  ASSERT_TRUE(std::getline(in, line));
  EXPECT_EQ(line, "x,y,z,deviation");
  std::size_t rows = 0;
  double sum_squares = 0.0;
  for (; std::getline(in, line); ++rows) {
    ASSERT_LT(rows, points.size());
    double v[4];
    std::istringstream fields(line);
    char comma;
    fields >> v[0] >> comma >> v[1] >> comma >> v[2] >> comma >> v[3];
    for (int i = 0; i < 3; ++i) EXPECT_EQ(v[i], points[rows][i]) << line;
    EXPECT_EQ(v[3], json["deviations"][rows].get<double>()) << line;
    sum_squares += v[3] * v[3];
  }
  EXPECT_EQ(rows, points.size());
  EXPECT_NEAR(std::sqrt(sum_squares / rows), json["statistics"]["rms"].get<double>(), 1e-12);
  std::filesystem::remove(csv);
}

TEST(CliRun, DeviationsOfSeveralFilesAreNamedByStem) {
  const TempFile a(PointText(SpherePoints())), b(PointText(SpherePoints(50)));
  const std::filesystem::path dir = std::filesystem::temp_directory_path();
  const std::string pattern = (dir / "{stem}-dev.csv").string();
  const Outcome o = RunTool({"fit", "sphere", a.path(), b.path(), "--deviations", pattern});
  ASSERT_EQ(o.status, kExitOk) << o.err;
  for (const TempFile* file : {&a, &b}) {
    const std::filesystem::path csv =
        dir / (std::filesystem::path(file->path()).stem().string() + "-dev.csv");
    EXPECT_TRUE(std::filesystem::exists(csv)) << csv;
    std::filesystem::remove(csv);
  }
}

TEST(CliRun, NoDeviationsFileForAFitThatIsNotValid) {
  const std::filesystem::path csv = std::filesystem::temp_directory_path() / "metrofit_nofit.csv";
  std::filesystem::remove(csv);
  const Outcome o = RunTool({"fit", "sphere", "-", "--deviations", csv.string()}, "1 2 3\n");
  EXPECT_EQ(o.status, kExitFitNotValid);
  EXPECT_FALSE(std::filesystem::exists(csv));
}

TEST(CliRun, AnUnwritableDeviationsFileIsExitFour) {
  const Outcome o = RunTool({"fit", "sphere", "-", "--deviations", "/nonexistent/metrofit/d.csv"},
                            PointText(SpherePoints()));
  EXPECT_EQ(o.status, kExitInternal);
  EXPECT_TRUE(Contains(o.err, "metrofit: cannot write '/nonexistent/metrofit/d.csv': ")) << o.err;
}

std::string FileText(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(CliRun, ReportIsAnHtmlPagePerValidFit) {
  const TempFile a(PointText(SpherePoints())), single("1 2 3\n");
  const std::filesystem::path dir = std::filesystem::temp_directory_path();
  const std::string pattern = (dir / "{stem}-report.html").string();
  const auto report_of = [&](const TempFile& file) {
    return dir / (std::filesystem::path(file.path()).stem().string() + "-report.html");
  };
  std::filesystem::remove(report_of(single));
  const Outcome o = RunTool({"fit", "sphere", a.path(), single.path(), "--report", pattern});
  EXPECT_EQ(o.status, kExitFitNotValid);
  const std::string html = FileText(report_of(a));
  EXPECT_EQ(html.rfind("<!DOCTYPE html>", 0), 0u) << html.substr(0, 200);
  EXPECT_NE(html.find(a.path()), std::string::npos);  // names the measured file
  EXPECT_NE(html.find("</html>"), std::string::npos);
  // Self-contained: nothing is fetched when the page opens.
  EXPECT_EQ(html.find("src=\"http"), std::string::npos);
  EXPECT_EQ(html.find("href=\"http"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(report_of(single)));  // no report of a fit not valid
  std::filesystem::remove(report_of(a));
}

TEST(CliRun, AnUnwritableOutputIsAnInternalError) {
  std::istringstream in(PointText(SpherePoints()));
  std::ostringstream out, err;
  out.setstate(std::ios::badbit);
  EXPECT_EQ(metrofit::cli::Run({"fit", "sphere", "-"}, in, out, err), kExitInternal);
  EXPECT_EQ(err.str(), "metrofit: cannot write the result\n");
}

TEST(CliRun, ProgressIsAnnouncedOnlyWhenAsked) {
  const std::string points = PointText(SpherePoints());
  Environment now;
  now.progress = true;
  now.progress_delay = std::chrono::milliseconds(0);
  const Outcome announced = RunTool({"fit", "sphere", "-"}, points, now);
  EXPECT_EQ(announced.status, kExitOk);
  EXPECT_EQ(announced.err, "metrofit: fitting - (60 points)...\nmetrofit: - done\n");

  Environment later = now;
  later.progress_delay = std::chrono::hours(1);
  EXPECT_EQ(RunTool({"fit", "sphere", "-"}, points, later).err, "");
  EXPECT_EQ(RunTool({"fit", "sphere", "-"}, points).err, "");
}

}  // namespace
