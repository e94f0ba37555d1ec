#include "cli.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shapes.h"

namespace {

using metrofit::cli::AllShapes;
using metrofit::cli::HelpText;
using metrofit::cli::Options;
using metrofit::cli::ParseArguments;
using metrofit::cli::ParseNumber;
using metrofit::cli::ParsePoint;
using metrofit::cli::UsageError;
using Args = std::vector<std::string>;

// The message of the UsageError that parsing `args` throws; empty when nothing is thrown.
std::string UsageMessage(const Args& args) {
  try {
    ParseArguments(args);
  } catch (const UsageError& e) {
    return e.what();
  }
  return std::string();
}

TEST(CliArguments, FitWithShapeAndFile) {
  const Options o = ParseArguments({"fit", "sphere", "probe.txt"});
  EXPECT_FALSE(o.help);
  EXPECT_EQ(o.shape, "sphere");
  EXPECT_EQ(o.file, "probe.txt");
  EXPECT_FALSE(o.json);
  EXPECT_FALSE(o.has_probe_radius);
  EXPECT_EQ(o.probe_radius, 0.0);
  EXPECT_FALSE(o.has_ref_point);
  for (const CFitParam* p : {&o.centre, &o.axis, &o.radius}) {
    EXPECT_EQ(p->mode[0], 0);
    EXPECT_EQ(p->mode[1], 0);
    EXPECT_EQ(p->mode[2], 0);
  }
}

TEST(CliArguments, OptionsMayStandAnywhereAfterFit) {
  const Options o = ParseArguments(
      {"fit", "--json", "torus", "--probe-radius", "2.5", "p.txt", "--ref-point", "1, -2.5 ,3e1"});
  EXPECT_EQ(o.shape, "torus");
  EXPECT_EQ(o.file, "p.txt");
  EXPECT_TRUE(o.json);
  EXPECT_TRUE(o.has_probe_radius);
  EXPECT_EQ(o.probe_radius, 2.5);
  EXPECT_TRUE(o.has_ref_point);
  EXPECT_EQ(o.ref_point, KPt3<double>(1, -2.5, 30));
}

TEST(CliArguments, ValuesMayFollowAnEqualsSign) {
  const Options o =
      ParseArguments({"fit", "paraboloid", "p.txt", "--probe-radius=0.5", "--ref-point=4,5,6"});
  EXPECT_EQ(o.probe_radius, 0.5);
  EXPECT_EQ(o.ref_point, KPt3<double>(4, 5, 6));
}

TEST(CliArguments, DashIsAFileAndDoubleDashEndsOptions) {
  EXPECT_EQ(ParseArguments({"fit", "line", "-"}).file, "-");
  EXPECT_EQ(ParseArguments({"fit", "line", "--", "--odd-name.txt"}).file, "--odd-name.txt");
}

TEST(CliArguments, HelpInEveryPlace) {
  for (const Args& args : {Args{"--help"}, Args{"-h"}, Args{"help"}, Args{"fit", "--help"},
                           Args{"fit", "sphere", "-h"}, Args{"fit", "nonsense", "--help"}}) {
    EXPECT_TRUE(ParseArguments(args).help) << args.back();
  }
}

TEST(CliArguments, MissingOrUnknownWords) {
  EXPECT_EQ(UsageMessage({}), "missing command");
  EXPECT_EQ(UsageMessage({"solve", "sphere", "p.txt"}), "unknown command 'solve'");
  EXPECT_EQ(UsageMessage({"fit"}), "missing SHAPE and FILE");
  EXPECT_EQ(UsageMessage({"fit", "sphere"}), "missing FILE");
  EXPECT_EQ(UsageMessage({"fit", "sphere", "a.txt", "b.txt"}), "unexpected argument 'b.txt'");
  EXPECT_EQ(UsageMessage({"fit", "Sphere", "a.txt"})
                .rfind("unknown shape 'Sphere' (known: point, "
                       "distance, line, plane, circle, ",
                       0),
            0u);
}

TEST(CliArguments, BadOptions) {
  EXPECT_EQ(UsageMessage({"fit", "sphere", "a.txt", "--fast"}), "unknown option '--fast'");
  EXPECT_EQ(UsageMessage({"fit", "sphere", "a.txt", "-x"}), "unknown option '-x'");
  EXPECT_EQ(UsageMessage({"fit", "sphere", "a.txt", "--json=yes"}), "option --json takes no value");
  EXPECT_EQ(UsageMessage({"fit", "sphere", "a.txt", "--probe-radius"}),
            "option --probe-radius needs a value");
  EXPECT_EQ(UsageMessage({"fit", "sphere", "a.txt", "--ref-point"}),
            "option --ref-point needs a value");
}

TEST(CliArguments, ProbeRadiusMustBeAFiniteNonNegativeNumber) {
  for (const char* bad : {"abc", "", "-1", "nan", "inf", "1e999", "2mm"}) {
    EXPECT_EQ(UsageMessage({"fit", "torus", "a.txt", "--probe-radius", bad}),
              std::string("--probe-radius needs a finite number >= 0, not '") + bad + "'");
  }
  EXPECT_EQ(ParseArguments({"fit", "torus", "a.txt", "--probe-radius", "0"}).probe_radius, 0.0);
}

TEST(CliArguments, RefPointMustBeThreeFiniteNumbers) {
  for (const char* bad : {"1,2", "1,2,3,4", "1,,3", "a,b,c", "1,2,inf", "1 2 3", ""}) {
    EXPECT_EQ(UsageMessage({"fit", "point", "a.txt", "--ref-point", bad}),
              std::string("--ref-point needs three finite numbers X,Y,Z, not '") + bad + "'");
  }
}

TEST(CliArguments, NominalValuesAreStartValues) {
  const Options o = ParseArguments(
      {"fit", "ellipse", "e.txt", "--centre", "330,-95,160", "--axis=0,-1,0.3", "--radius", "24"});
  EXPECT_EQ(o.centre.value, KPt3<double>(330, -95, 160));
  EXPECT_EQ(o.axis.value, KPt3<double>(0, -1, 0.3));
  EXPECT_EQ(o.radius.value.x, 24.0);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(o.centre.mode[k], metrofit::cli::kStartValue) << k;
    EXPECT_EQ(o.axis.mode[k], metrofit::cli::kStartValue) << k;
  }
  EXPECT_EQ(o.radius.mode[0], metrofit::cli::kStartValue);
  // The radius is one number: the other two components stay free.
  EXPECT_EQ(o.radius.mode[1], 0);
  EXPECT_EQ(o.radius.mode[2], 0);
}

TEST(CliArguments, HoldKeepsNamedNominalValuesWhereverItStands) {
  using metrofit::cli::kHeld;
  using metrofit::cli::kStartValue;
  const Options o = ParseArguments({"fit", "ellipse", "e.txt", "--hold", "z, axis", "--centre",
                                    "1,2,3", "--axis", "0,0,1", "--radius", "5"});
  EXPECT_EQ(o.centre.mode[0], kStartValue);
  EXPECT_EQ(o.centre.mode[1], kStartValue);
  EXPECT_EQ(o.centre.mode[2], kHeld);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(o.axis.mode[k], kHeld) << k;
  EXPECT_EQ(o.radius.mode[0], kStartValue);

  const Options r =
      ParseArguments({"fit", "circle", "c.txt", "--radius=5", "--hold=radius,x", "--centre=1,2,3"});
  EXPECT_EQ(r.radius.mode[0], kHeld);
  EXPECT_EQ(r.centre.mode[0], kHeld);
  EXPECT_EQ(r.centre.mode[1], kStartValue);
  EXPECT_EQ(r.axis.mode[0], 0);
}

TEST(CliArguments, BadNominalValuesAndHolds) {
  const Args base = {"fit", "ellipse", "e.txt"};
  auto with = [&base](std::initializer_list<std::string> more) {
    Args args = base;
    args.insert(args.end(), more);
    return UsageMessage(args);
  };
  EXPECT_EQ(with({"--centre", "1,2"}), "--centre needs three finite numbers X,Y,Z, not '1,2'");
  EXPECT_EQ(with({"--axis", "0,0,nan"}), "--axis needs three finite numbers X,Y,Z, not '0,0,nan'");
  EXPECT_EQ(with({"--axis", "0,0,0"}), "--axis needs a direction, not '0,0,0'");
  EXPECT_EQ(with({"--radius", "0"}), "--radius needs a finite number > 0, not '0'");
  EXPECT_EQ(with({"--radius", "-3"}), "--radius needs a finite number > 0, not '-3'");
  EXPECT_EQ(with({"--radius"}), "option --radius needs a value");
  EXPECT_EQ(with({"--hold", "z,tilt", "--centre", "1,2,3"}),
            "--hold takes x, y, z, axis or radius separated by commas, not 'z,tilt'");
  EXPECT_EQ(with({"--hold", ""}),
            "--hold takes x, y, z, axis or radius separated by commas, not ''");
  EXPECT_EQ(with({"--hold", "y"}), "--hold x, y or z needs --centre");
  EXPECT_EQ(with({"--hold", "axis", "--centre", "1,2,3"}), "--hold axis needs --axis");
  EXPECT_EQ(with({"--hold", "radius", "--axis", "0,0,1"}), "--hold radius needs --radius");
}

TEST(CliArguments, ParseNumberTakesWholeFiniteNumbersOnly) {
  double v = -7.0;
  EXPECT_TRUE(ParseNumber("1.5", &v));
  EXPECT_EQ(v, 1.5);
  EXPECT_TRUE(ParseNumber("-2e-3", &v));
  EXPECT_EQ(v, -2e-3);
  for (const char* bad : {"", " 1", "1 ", "1.5mm", "nan", "-inf", "1e400", "--1"}) {
    v = -7.0;
    EXPECT_FALSE(ParseNumber(bad, &v)) << bad;
    EXPECT_EQ(v, -7.0) << "changed by " << bad;
  }
}

TEST(CliArguments, ParsePointLeavesTheTargetAloneOnFailure) {
  KPt3<double> p(9, 9, 9);
  EXPECT_TRUE(ParsePoint("1,2,3", &p));
  EXPECT_EQ(p, KPt3<double>(1, 2, 3));
  EXPECT_FALSE(ParsePoint("4,5", &p));
  EXPECT_EQ(p, KPt3<double>(1, 2, 3));
}

TEST(CliArguments, HelpDocumentsShapesOptionsAndExitStatus) {
  const std::string help = HelpText();
  for (const auto& shape : AllShapes()) {
    EXPECT_NE(help.find(std::string("  ") + shape.name + " "), std::string::npos) << shape.name;
    EXPECT_NE(help.find(shape.function), std::string::npos) << shape.function;
  }
  for (const char* text :
       {"--json", "--probe-radius R", "--ref-point X,Y,Z", "--centre X,Y,Z", "--axis X,Y,Z",
        "--radius R", "--hold LIST", "--help", "0  the fit succeeded", "1  the fit failed",
        "2  usage error", "3  FILE cannot be read", "4  internal error"}) {
    EXPECT_NE(help.find(text), std::string::npos) << text;
  }
}

TEST(CliArguments, HelpSaysWhatTheReferencePointDoesForEachShape) {
  const std::string help = HelpText();
  for (const char* text :
       {"The point\n", "and the plane report it as their point.", "A line of three or\n",
        "is held through it and reports it as its point", "two-point line reports the midpoint",
        "The cylinder's axis\n", "point is the foot of the perpendicular from it on the fitted\n",
        "cylinder-ex measures its axis point from the mean of the",
        "A circle or circle-ex from one or two points, or whose\n",
        "fit failed, is centred on it."}) {
    EXPECT_NE(help.find(text), std::string::npos) << text;
  }
}

}  // namespace
