#include "app.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "point_file.h"
#include "tools_test_util.h"

namespace {

using metrofit::cli::kExitFitFailed;
using metrofit::cli::kExitInput;
using metrofit::cli::kExitInternal;
using metrofit::cli::kExitOk;
using metrofit::cli::kExitUsage;
using metrofit::cli::MeanPoint;
using metrofit_tools_test::JsonSyntax;
using metrofit_tools_test::TempFile;

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome RunTool(const std::vector<std::string>& args, const std::string& stdin_text = "") {
  std::istringstream in(stdin_text);
  std::ostringstream out, err;
  const int status = metrofit::cli::Run(args, in, out, err);
  return {status, out.str(), err.str()};
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(CliRun, HelpGoesToStandardOutput) {
  const Outcome o = RunTool({"--help"});
  EXPECT_EQ(o.status, kExitOk);
  EXPECT_EQ(o.out.rfind("Usage: metrofit fit SHAPE FILE", 0), 0u);
  EXPECT_EQ(o.err, "");
}

TEST(CliRun, UsageErrorsExitWithTwoAndPointToHelp) {
  const Outcome none = RunTool({});
  EXPECT_EQ(none.status, kExitUsage);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.err, "metrofit: missing command\nTry 'metrofit --help'.\n");
  const Outcome shape = RunTool({"fit", "hexagon", "-"}, "0 0 0\n");
  EXPECT_EQ(shape.status, kExitUsage);
  EXPECT_TRUE(Contains(shape.err, "unknown shape 'hexagon'")) << shape.err;
}

TEST(CliRun, InputErrorsExitWithThree) {
  const Outcome missing = RunTool({"fit", "sphere", "/nonexistent/metrofit/p.txt"});
  EXPECT_EQ(missing.status, kExitInput);
  EXPECT_EQ(missing.out, "");
  EXPECT_TRUE(Contains(missing.err, "metrofit: cannot open '/nonexistent/metrofit/p.txt'"));

  const TempFile file("1 2 3\n4 5 6\n7 8\n");
  const Outcome bad = RunTool({"fit", "sphere", file.path()});
  EXPECT_EQ(bad.status, kExitInput);
  EXPECT_EQ(bad.err, "metrofit: " + file.path() + ":3: expected 3 coordinates (x y z), found 2\n");

  const Outcome nan = RunTool({"fit", "line", "-"}, "1 2 3\n1 2 nan\n");
  EXPECT_EQ(nan.status, kExitInput);
  EXPECT_EQ(nan.err, "metrofit: <stdin>:2: non-finite coordinate 'nan'\n");
}

TEST(CliRun, DistanceOfTwoPoints) {
  const TempFile file("# two touches\n0 0 0\n3,4,0\n");
  const Outcome o = RunTool({"fit", "distance", file.path()});
  EXPECT_EQ(o.status, kExitOk);
  EXPECT_EQ(o.out,
            "shape     distance\n"
            "function  KFitDistance\n"
            "points    2\n"
            "valid     1\n"
            "distance  5.000000\n");
  EXPECT_EQ(o.err, "");
}

TEST(CliRun, DistanceAsJson) {
  const Outcome o = RunTool({"fit", "distance", "-", "--json"}, "0 0 0\n3 4 0\n");
  EXPECT_EQ(o.status, kExitOk);
  EXPECT_TRUE(JsonSyntax::Valid(o.out)) << o.out;
  EXPECT_TRUE(Contains(o.out, "\"distance\": 5\n")) << o.out;
  EXPECT_TRUE(Contains(o.out, "\"valid\": 1,")) << o.out;
}

TEST(CliRun, AFailedFitIsPrintedAndExitsWithOne) {
  const Outcome o = RunTool({"fit", "distance", "-"}, "0 0 0\n3 4 0\n6 8 0\n");
  EXPECT_EQ(o.status, kExitFitFailed);
  EXPECT_TRUE(Contains(o.out, "valid     0\n")) << o.out;
  EXPECT_TRUE(Contains(o.out, "message   2 Points are needed for this measurement.\n")) << o.out;
}

TEST(CliRun, PointIsTheMeanOfThePointsByDefault) {
  const Outcome o = RunTool({"fit", "point", "-"}, "1 2 3\n3 4 5\n");
  EXPECT_EQ(o.status, kExitOk);
  EXPECT_TRUE(Contains(o.out, "\npoint     2.000000  3.000000  4.000000\n")) << o.out;
}

TEST(CliRun, PointIsTheGivenReferencePoint) {
  const Outcome o =
      RunTool({"fit", "point", "-", "--ref-point", "10,-20,30.5", "--json"}, "1 2 3\n");
  EXPECT_EQ(o.status, kExitOk);
  EXPECT_TRUE(JsonSyntax::Valid(o.out)) << o.out;
  EXPECT_TRUE(Contains(o.out, "\"centre\": [10, -20, 30.5],")) << o.out;
}

TEST(CliRun, ProbeRadiusOnAShapeThatIgnoresItIsNoted) {
  const Outcome noted =
      RunTool({"fit", "distance", "-", "--probe-radius", "1.5"}, "0 0 0\n1 0 0\n");
  EXPECT_EQ(noted.status, kExitOk);
  EXPECT_TRUE(Contains(noted.err, "the distance fit does not compensate the probe radius"))
      << noted.err;
  const Outcome zero = RunTool({"fit", "distance", "-", "--probe-radius", "0"}, "0 0 0\n1 0 0\n");
  EXPECT_EQ(zero.err, "");
  // Whatever the torus fit makes of two points, it is not told that it ignores the radius.
  const Outcome torus = RunTool({"fit", "torus", "-", "--probe-radius", "1.5"}, "0 0 0\n1 0 0\n");
  EXPECT_TRUE(torus.status == kExitOk || torus.status == kExitFitFailed) << torus.status;
  EXPECT_FALSE(Contains(torus.err, "note")) << torus.err;
}

TEST(CliRun, SphereThroughTheTool) {
  // Eight points of the sphere with centre (100, 200, 300) and radius 5.
  const Outcome o = RunTool({"fit", "sphere", "-", "--json"},
                            "105 200 300\n95 200 300\n100 205 300\n100 195 300\n"
                            "100 200 305\n100 200 295\n103 204 300\n100 203 304\n");
  EXPECT_TRUE(JsonSyntax::Valid(o.out)) << o.out;
  EXPECT_TRUE(Contains(o.out, "\"points\": 8,")) << o.out;
  if (o.status == kExitOk) {
    // Numbers are printed exactly, so compare after reading them back.
    const std::size_t at = o.out.find("\"radius\": ");
    ASSERT_NE(at, std::string::npos) << o.out;
    EXPECT_NEAR(std::strtod(o.out.c_str() + at + 10, nullptr), 5.0, 1e-9) << o.out;
  } else {
    EXPECT_EQ(o.status, kExitFitFailed);
    EXPECT_TRUE(Contains(o.out, "\"valid\": 0,")) << o.out;
  }
}

// The three numbers of the JSON array `key` in `json`; NaN when the key is missing.
KPt3<double> JsonTriple(const std::string& json, const std::string& key) {
  const std::string start = "\"" + key + "\": [";
  const std::size_t at = json.find(start);
  if (at == std::string::npos) {
    const double nan = std::nan("");
    return KPt3<double>(nan, nan, nan);
  }
  const char* p = json.c_str() + at + start.size();
  char* end = nullptr;
  double v[3];
  for (double& x : v) {
    x = std::strtod(p, &end);
    p = end + 1;  // past the comma
  }
  return KPt3<double>(v[0], v[1], v[2]);
}

// Exact points of the cylinder of radius 10 about the axis through (400, -150, 220) along
// (0.3, -0.2, 0.93), normalised: 5 rings of 12 points over 40 mm.
std::string FarCylinderText() {
  KPt3<double> a(0.3, -0.2, 0.93);
  a.Normalize();
  KPt3<double> u = a.Cross(KPt3<double>(1, 0, 0));
  u.Normalize();
  const KPt3<double> v = a.Cross(u);
  const KPt3<double> c(400, -150, 220);
  std::ostringstream text;
  text.precision(17);
  for (int ring = 0; ring < 5; ++ring) {
    for (int k = 0; k < 12; ++k) {
      const double t = 0.5236 * k + 0.1 * ring;
      const KPt3<double> p =
          c + a * (-20.0 + 10.0 * ring) + u * (10.0 * std::cos(t)) + v * (10.0 * std::sin(t));
      text << p.x << ' ' << p.y << ' ' << p.z << '\n';
    }
  }
  return text.str();
}

TEST(CliRun, CylinderAxisPointIsTheFootFromTheReferencePoint) {
  const std::string points = FarCylinderText();
  std::istringstream stream(points);
  const KPt3<double> byDefault = MeanPoint(metrofit::cli::ReadPoints(stream, "<test>"));
  KPt3<double> line;
  KPt3<double> lineAxis;
  for (const KPt3<double> ref : {byDefault, KPt3<double>(0, 0, 0), KPt3<double>(-1000, 50, 30)}) {
    SCOPED_TRACE(::testing::Message() << "ref " << ref.x << " " << ref.y << " " << ref.z);
    std::vector<std::string> args = {"fit", "cylinder", "-", "--json"};
    if (!(ref == byDefault)) {
      std::ostringstream r;
      r.precision(17);
      r << ref.x << ',' << ref.y << ',' << ref.z;
      args.insert(args.end(), {"--ref-point", r.str()});
    }
    const Outcome o = RunTool(args, points);
    ASSERT_EQ(o.status, kExitOk) << o.out << o.err;
    const KPt3<double> centre = JsonTriple(o.out, "centre");
    const KPt3<double> axis = JsonTriple(o.out, "axis");
    EXPECT_NEAR((ref - centre).Dot(axis), 0.0, 1e-9);
    if (ref == byDefault) {
      line = centre;
      lineAxis = axis;
    } else {
      // The same axis line, another point on it.
      EXPECT_NEAR((centre - line).Cross(lineAxis).Length(), 0.0, 1e-9);
    }
  }
}

TEST(CliRun, LineAndPlaneReportTheGivenReferencePoint) {
  const std::string linePoints =
      "0 0 0\n5 0.01 0\n10 -0.01 0.02\n15 0 0\n20 0.02 -0.01\n25 0 0.01\n30 -0.01 0\n";
  const std::string planePoints = "0 0 0\n10 0 0.01\n0 10 -0.01\n10 10 0\n5 5 0.02\n";
  for (const auto& [shape, points] :
       {std::pair<const char*, const std::string&>{"line", linePoints}, {"plane", planePoints}}) {
    const Outcome o = RunTool({"fit", shape, "-", "--ref-point", "5,0.5,-0.25", "--json"}, points);
    EXPECT_EQ(o.status, kExitOk) << shape << o.out;
    EXPECT_TRUE(Contains(o.out, "\"centre\": [5, 0.5, -0.25],")) << shape << o.out;
  }
  // Two points: the line through them, reported at their midpoint.
  const Outcome two =
      RunTool({"fit", "line", "-", "--ref-point", "5,0.5,-0.25", "--json"}, "0 0 0\n10 2 4\n");
  EXPECT_EQ(two.status, kExitOk) << two.out;
  EXPECT_TRUE(Contains(two.out, "\"centre\": [5, 1, 2],")) << two.out;
}

// Twelve points of the circle with centre (10, 20, 5), radius 4, in the plane z = 5.
std::string CircleOfRadiusFour() {
  std::string text;
  for (int k = 0; k < 12; ++k) {
    const double a = 6.283185307179586 * k / 12;
    text +=
        std::to_string(10 + 4 * std::cos(a)) + " " + std::to_string(20 + 4 * std::sin(a)) + " 5\n";
  }
  return text;
}

double JsonRadius(const std::string& json) {
  const std::size_t at = json.find("\"radius\": ");
  return at == std::string::npos ? std::nan("") : std::strtod(json.c_str() + at + 10, nullptr);
}

TEST(CliRun, NominalRadiusStartsOrHoldsTheFit) {
  const std::string points = CircleOfRadiusFour();
  // A start value is left behind by the fit.
  const Outcome start = RunTool({"fit", "circle", "-", "--radius", "3", "--json"}, points);
  EXPECT_EQ(start.status, kExitOk) << start.out;
  EXPECT_NEAR(JsonRadius(start.out), 4.0, 1e-5) << start.out;
  // A held radius comes back exactly as given, however badly it fits.
  const Outcome held =
      RunTool({"fit", "circle", "-", "--radius", "3.5", "--hold", "radius", "--json"}, points);
  EXPECT_EQ(held.status, kExitOk) << held.out;
  EXPECT_EQ(JsonRadius(held.out), 3.5) << held.out;
}

TEST(CliRun, AnUnwritableOutputIsAnInternalError) {
  std::istringstream in("0 0 0\n3 4 0\n");
  std::ostringstream out, err;
  out.setstate(std::ios::badbit);
  EXPECT_EQ(metrofit::cli::Run({"fit", "distance", "-"}, in, out, err), kExitInternal);
  EXPECT_EQ(err.str(), "metrofit: cannot write the result\n");
}

TEST(CliRun, MeanPoint) {
  EXPECT_EQ(MeanPoint({}), KPt3<double>(0, 0, 0));
  EXPECT_EQ(MeanPoint({KPt3<double>(1, 2, 3)}), KPt3<double>(1, 2, 3));
  EXPECT_EQ(MeanPoint({KPt3<double>(0, 0, 0), KPt3<double>(2, -4, 6)}), KPt3<double>(1, -2, 3));
}

}  // namespace
