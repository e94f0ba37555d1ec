// The bundled example files through the tool, as a user runs them: the command each file names
// on its "# fit with:" line must succeed (exit status 0) and give back the feature the file was
// made from, as its "# true" header lines state it.
//
// Each file is fitted with both methods: the stated command as it stands (the precise method)
// and with --method compatible, which must find the same feature where the compatible method
// has the shape.
//
// Tolerances. The points carry 1.5 um of noise, so a fit that found the feature is within a
// few micrometres and a few 1e-5 rad of it; a fit from a wrong start, a diverged one or a
// wrongly read result is off by millimetres. Where the geometry magnifies the noise, the case
// says why it needs more room. The expected values are those of each file's header.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "app.h"
#include "support/geometry_compare.h"

namespace {

using metrofit::cli::kExitOk;
using metrofit::cli::kExitUsage;
using Json = nlohmann::json;
using metrofit::testing::AxisAngle;
using metrofit::testing::DirectedAngle;
using metrofit::testing::DistancePointToLine;
using Pt = KPt3<double>;

const std::string kExamples = METROFIT_EXAMPLES_DIR;
constexpr char kCommandPrefix[] = "# fit with: metrofit ";

// A length found from the points: three times the noise and more.
constexpr double kLength = 0.005;  // mm
// A direction found from the points.
constexpr double kAngle = 1e-4;  // rad

// Every example file; each has a test below.
const std::set<std::string> kExampleNames = {"line", "plane",   "circle",     "sphere", "cylinder",
                                             "cone", "ellipse", "paraboloid", "torus"};

std::string ExamplePath(const std::string& name) {
  return kExamples + "/" + name + ".txt";
}

// The arguments after "metrofit" on the file's "# fit with:" line; empty when there is none.
std::vector<std::string> StatedCommand(const std::string& name) {
  std::ifstream in(ExamplePath(name));
  std::string line;
  while (std::getline(in, line) && !line.empty() && line[0] == '#') {
    if (line.rfind(kCommandPrefix, 0) != 0) continue;
    std::istringstream words(line.substr(sizeof(kCommandPrefix) - 1));
    std::vector<std::string> args;
    for (std::string word; words >> word;) args.push_back(word);
    return args;
  }
  return {};
}

// The tool's JSON output of one run and readers for its numbers.
struct ToolRun {
  int status = -1;
  Json json;
  std::string err;

  // The number `key` or, for a list, its element `index`; NaN when absent.
  double Number(const std::string& key, int index = -1) const {
    if (!json.contains(key)) return std::nan("");
    const Json& value = json[key];
    if (index < 0) return value.is_number() ? value.get<double>() : std::nan("");
    return value.is_array() && index < int(value.size()) ? value[index].get<double>()
                                                         : std::nan("");
  }
  Pt Point(const std::string& key) const {
    return Pt(Number(key, 0), Number(key, 1), Number(key, 2));
  }
};

// Runs the file's stated command with the file's path filled in, as JSON, with `extra`
// arguments after it.
ToolRun RunExample(const std::string& name, const std::vector<std::string>& extra) {
  std::vector<std::string> args = StatedCommand(name);
  ToolRun run;
  if (args.size() < 3) {
    run.err = "no '# fit with: metrofit fit SHAPE FILE' line in " + ExamplePath(name);
    return run;
  }
  args[2] = ExamplePath(name);
  args.push_back("--json");
  args.insert(args.end(), extra.begin(), extra.end());
  std::istringstream in;
  std::ostringstream out, err;
  run.status = metrofit::cli::Run(args, in, out, err);
  run.err = err.str();
  if (!out.str().empty()) run.json = Json::parse(out.str());
  return run;
}

// Runs example `name` with each method and, once the run succeeded (exit status 0 and a valid
// fit), hands it to `check`.
template <class Check>
void ForEachMethod(const std::string& name, Check check) {
  for (const char* method : {"precise", "compatible"}) {
    SCOPED_TRACE(method);
    const ToolRun run = RunExample(name, {"--method", method});
    ASSERT_EQ(run.status, kExitOk) << run.err << run.json;
    EXPECT_EQ(run.json["valid"], true) << run.json;
    EXPECT_EQ(run.json["method"], method) << run.json;
    check(run);
  }
}

// The reported point lies on the line through `point` along `axis` (any point of it may be
// reported), and the reported axis runs along it.
void ExpectAxisLine(const ToolRun& run, const Pt& point, const Pt& axis) {
  EXPECT_LE(DistancePointToLine(run.Point("center"), point, axis), kLength);
  EXPECT_LE(AxisAngle(run.Point("axis"), axis), kAngle);
}

// The reported centre is `centre` and the reported axis runs along `axis`.
void ExpectCentreAndAxis(const ToolRun& run, const Pt& centre, const Pt& axis) {
  EXPECT_LE((run.Point("center") - centre).Length(), kLength);
  EXPECT_LE(AxisAngle(run.Point("axis"), axis), kAngle);
}

TEST(BundledExamples, EveryFileStatesItsCommandAndIsCovered) {
  std::size_t files = 0;
  for (const auto& file : std::filesystem::directory_iterator(kExamples)) {
    if (file.path().extension() != ".txt") continue;
    ++files;
    const std::string name = file.path().stem().string();
    EXPECT_EQ(kExampleNames.count(name), 1u) << name << ".txt has no test here";
    const std::vector<std::string> args = StatedCommand(name);
    ASSERT_GE(args.size(), 3u) << name;
    EXPECT_EQ(args[0], "fit") << name;
    EXPECT_EQ(args[1], name) << name;
    EXPECT_EQ(args[2], name + ".txt") << name;
  }
  EXPECT_EQ(files, kExampleNames.size());
}

TEST(BundledExamples, Line) {
  ForEachMethod("line", [](const ToolRun& run) {
    ExpectAxisLine(run, Pt(100.0, 300.0, 50.0), Pt(1.0, 0.25, -0.05));
  });
}

TEST(BundledExamples, Plane) {
  const Pt point(310.25, 124.8, 42.6), normal(0.02, -0.035, 1.0);
  ForEachMethod("plane", [&](const ToolRun& run) {
    const Pt n = run.Point("axis");
    EXPECT_LE(AxisAngle(n, normal), kAngle);
    EXPECT_LE(std::fabs((point - run.Point("center")).Dot(n)), kLength);
    // The distance from the origin, 330 mm away, moves by the normal's error times that lever.
    EXPECT_NEAR(std::fabs(run.Point("center").Dot(n)), 44.40094, kLength + kAngle * point.Length());
  });
}

TEST(BundledExamples, Circle) {
  ForEachMethod("circle", [](const ToolRun& run) {
    ExpectCentreAndAxis(run, Pt(150.32, 220.75, -35.4), Pt(0.1, 0.05, 1.0));
    EXPECT_NEAR(run.Number("radius"), 20.0, kLength);
  });
}

TEST(BundledExamples, Sphere) {
  ForEachMethod("sphere", [](const ToolRun& run) {
    EXPECT_LE((run.Point("center") - Pt(212.438, -148.716, 305.204)).Length(), kLength);
    EXPECT_NEAR(run.Number("radius"), 12.5, kLength);
  });
}

TEST(BundledExamples, Cylinder) {
  ForEachMethod("cylinder", [](const ToolRun& run) {
    ExpectAxisLine(run, Pt(250.0, -180.0, 120.0), Pt(0.15, -0.1, 1.0));
    EXPECT_NEAR(run.Number("radius"), 15.0, kLength);
  });
}

TEST(BundledExamples, Cone) {
  ForEachMethod("cone", [](const ToolRun& run) {
    // The apex lies 14 mm along the axis beyond the smallest probed section: extrapolated.
    EXPECT_LE((run.Point("center") - Pt(180.0, 260.0, 95.0)).Length(), 2.0 * kLength);
    // The cone opens towards its axis, so the direction counts with its sign.
    EXPECT_LE(DirectedAngle(run.Point("axis"), Pt(-0.1, 0.2, 1.0)), kAngle);
    EXPECT_NEAR(run.Number("half_angle"), std::atan(1.0 / std::sqrt(3.0)), kAngle);  // 30 deg
  });
}

TEST(BundledExamples, Ellipse) {
  const ToolRun run = RunExample("ellipse", {});
  ASSERT_EQ(run.status, kExitOk) << run.err << run.json;
  ExpectCentreAndAxis(run, Pt(330.0, -95.0, 160.0), Pt(0.05, 0.3, 1.0));
  EXPECT_LE(AxisAngle(run.Point("major_direction"), Pt(0.0, -1.0, 0.3)), kAngle);
  EXPECT_NEAR(run.Number("semi_axes", 0), 30.0, kLength);
  EXPECT_NEAR(run.Number("semi_axes", 1), 18.0, kLength);
  // The KFit* functions have no planar ellipse: the compatible method says so.
  EXPECT_EQ(RunExample("ellipse", {"--method", "compatible"}).status, kExitUsage);
}

TEST(BundledExamples, Paraboloid) {
  ForEachMethod("paraboloid", [](const ToolRun& run) {
    // On a paraboloid probed out to 40 mm a tilt of the axis and a sideways shift of the vertex
    // move the surface nearly alike, so the noise leaves both ten times less certain than on
    // the other shapes (about 20 um and 2e-4 rad here); the focal length is not affected.
    EXPECT_LE((run.Point("center") - Pt(140.0, 380.0, -60.0)).Length(), 10.0 * kLength);
    EXPECT_LE(DirectedAngle(run.Point("axis"), Pt(0.05, -0.08, 1.0)), 10.0 * kAngle);
    EXPECT_NEAR(run.Number("focal_length"), 50.0, kLength);
  });
}

TEST(BundledExamples, Torus) {
  ForEachMethod("torus", [](const ToolRun& run) {
    ExpectCentreAndAxis(run, Pt(320.0, 150.0, 80.0), Pt(-0.08, 0.12, 1.0));
    EXPECT_NEAR(run.Number("major_radius"), 40.0, kLength);
    EXPECT_NEAR(run.Number("minor_radius"), 6.0, kLength);
  });
}

}  // namespace
