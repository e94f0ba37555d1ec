#include "cli.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using metrofit::Method;
using metrofit::NamedValue;
using metrofit::Shape;
using metrofit::cli::AllShapes;
using metrofit::cli::HelpText;
using metrofit::cli::Options;
using metrofit::cli::OutputPath;
using metrofit::cli::ParseArguments;
using metrofit::cli::ParseNamedValue;
using metrofit::cli::ParseNumber;
using metrofit::cli::UsageError;
using metrofit::cli::VersionText;
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

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

Args Fit(const char* shape, std::initializer_list<std::string> more) {
  Args args = {"fit", shape, "part.txt"};
  args.insert(args.end(), more);
  return args;
}

TEST(CliArguments, FitWithShapeAndFileAndTheDefaults) {
  const Options o = ParseArguments({"fit", "sphere", "probe.txt"});
  EXPECT_EQ(o.print, "");
  EXPECT_EQ(o.shape, Shape::kSphere);
  EXPECT_EQ(o.fit.shape, Shape::kSphere);
  EXPECT_EQ(o.files, Args{"probe.txt"});
  EXPECT_EQ(o.fit.method, Method::kPrecise);
  EXPECT_TRUE(o.fit.fixed.empty());
  EXPECT_TRUE(o.fit.start.empty());
  EXPECT_EQ(o.fit.probe_radius, 0.0);
  EXPECT_FALSE(o.json);
  EXPECT_FALSE(o.json_deviations);
  EXPECT_EQ(o.units, "mm");
  EXPECT_EQ(o.deviations, "");
  EXPECT_EQ(o.report, "");
  EXPECT_EQ(o.input.format, "auto");
  EXPECT_FALSE(o.input.decimal_comma);
  EXPECT_TRUE(o.input.columns.empty());
}

TEST(CliArguments, EveryModernShapeNameIsAccepted) {
  ASSERT_EQ(AllShapes().size(), 10u);
  for (const Shape shape : AllShapes()) {
    EXPECT_EQ(ParseArguments({"fit", metrofit::ToString(shape), "p.txt"}).shape, shape);
  }
}

TEST(CliArguments, SeveralFilesInOrderWithOptionsBetweenThem) {
  const Options o = ParseArguments({"fit", "--json", "cylinder", "a.txt", "--fix", "radius=10",
                                    "b.txt", "--start", "axis=0,0,1", "-", "c.txt"});
  EXPECT_EQ(o.files, (Args{"a.txt", "b.txt", "-", "c.txt"}));
  EXPECT_TRUE(o.json);
  ASSERT_EQ(o.fit.fixed.size(), 1u);
  EXPECT_EQ(o.fit.fixed[0].name, "radius");
  EXPECT_EQ(o.fit.fixed[0].value, std::vector<double>{10.0});
  ASSERT_EQ(o.fit.start.size(), 1u);
  EXPECT_EQ(o.fit.start[0].name, "axis");
  EXPECT_EQ(o.fit.start[0].value, (std::vector<double>{0.0, 0.0, 1.0}));
}

TEST(CliArguments, EveryOptionIsStored) {
  const Options o = ParseArguments(
      Fit("cone",
          {"--method", "compatible", "--fix", "half_angle=0.5", "--start", "center=180,260,-95.5",
           "--start=axis=-0.1,0.2,1", "--probe-radius=1.5", "--units", "inch", "--json",
           "--json-deviations", "--deviations", "d.csv", "--format", "text"}));
  EXPECT_EQ(o.fit.method, Method::kCompatible);
  ASSERT_EQ(o.fit.fixed.size(), 1u);
  EXPECT_EQ(o.fit.fixed[0].value, std::vector<double>{0.5});
  ASSERT_EQ(o.fit.start.size(), 2u);
  EXPECT_EQ(o.fit.start[0].name, "center");
  EXPECT_EQ(o.fit.start[0].value, (std::vector<double>{180.0, 260.0, -95.5}));
  EXPECT_EQ(o.fit.start[1].name, "axis");
  EXPECT_EQ(o.fit.probe_radius, 1.5);
  EXPECT_EQ(o.units, "inch");
  EXPECT_TRUE(o.json_deviations);
  EXPECT_EQ(o.deviations, "d.csv");
  EXPECT_EQ(o.input.format, "text");
}

TEST(CliArguments, HelpAndVersionAreTextToPrint) {
  for (const Args& args : {Args{"--help"}, Args{"-h"}, Args{"fit", "--help"},
                           Args{"fit", "sphere", "-h"}, Args{"fit", "nonsense", "--help"}}) {
    EXPECT_EQ(ParseArguments(args).print, HelpText()) << args.back();
  }
  EXPECT_EQ(ParseArguments({"--version"}).print, VersionText() + "\n");
  EXPECT_EQ(VersionText(), std::string("metrofit ") + METROFIT_VERSION);
}

TEST(CliArguments, MissingOrUnknownWords) {
  EXPECT_EQ(UsageMessage({}), "missing command: metrofit fit SHAPE FILE...");
  EXPECT_EQ(UsageMessage({"solve", "sphere", "p.txt"}),
            "unknown command 'solve' (the command is fit)");
  EXPECT_TRUE(Contains(UsageMessage({"fit"}), "SHAPE is required"));
  EXPECT_TRUE(Contains(UsageMessage({"fit", "sphere"}), "FILE is required"));
  EXPECT_EQ(UsageMessage({"fit", "Sphere", "a.txt"}),
            "unknown shape 'Sphere' (known: line, plane, circle, sphere, cylinder, cone, "
            "ellipse, paraboloid, spheroid, torus)");
  // The names of the KFit* era are gone with their functions.
  EXPECT_TRUE(Contains(UsageMessage({"fit", "circle-ex", "a.txt"}), "unknown shape 'circle-ex'"));
  EXPECT_TRUE(Contains(UsageMessage(Fit("sphere", {"--fast"})), "--fast"));
  EXPECT_TRUE(Contains(UsageMessage(Fit("sphere", {"--fix"})), "--fix"));
}

TEST(CliArguments, MethodIsPreciseOrCompatible) {
  EXPECT_EQ(ParseArguments(Fit("line", {"--method", "precise"})).fit.method, Method::kPrecise);
  EXPECT_EQ(UsageMessage(Fit("line", {"--method", "exact"})),
            "--method takes precise or compatible, not 'exact'");
}

TEST(CliArguments, ProbeRadiusMustBeAFiniteNumber) {
  for (const char* bad : {"abc", "nan", "inf", "1e999", "2mm", "0x10", " 1", ""}) {
    EXPECT_EQ(UsageMessage(Fit("torus", {"--probe-radius", bad})),
              std::string("--probe-radius needs a finite number, not '") + bad + "'");
  }
  EXPECT_EQ(ParseArguments(Fit("torus", {"--probe-radius", "0"})).fit.probe_radius, 0.0);
  // Negative: the probe touched from inside, as in a bore.
  EXPECT_EQ(ParseArguments(Fit("cylinder", {"--probe-radius", "-1.5"})).fit.probe_radius, -1.5);
}

TEST(CliArguments, NamedValuesUseTheShapesParameterNames) {
  const NamedValue axes = ParseNamedValue("--start", "semi_axes=30,18.5", Shape::kEllipse);
  EXPECT_EQ(axes.name, "semi_axes");
  EXPECT_EQ(axes.value, (std::vector<double>{30.0, 18.5}));
  const NamedValue major = ParseNamedValue("--fix", "major_radius=-2e-3", Shape::kTorus);
  EXPECT_EQ(major.value, std::vector<double>{-2e-3});
}

TEST(CliArguments, BadNamedValuesSayWhatIsWrong) {
  EXPECT_EQ(UsageMessage(Fit("sphere", {"--fix", "radius"})), "--fix radius: expected NAME=VALUE");
  EXPECT_EQ(UsageMessage(Fit("sphere", {"--fix", "axis=0,0,1"})),
            "--fix axis=0,0,1: a sphere has no parameter 'axis' (it has center, radius)");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--start", "centre=1,2,3"})),
            "--start centre=1,2,3: a cylinder has no parameter 'centre' (it has center, axis, "
            "radius)");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--start", "axis=0,1"})),
            "--start axis=0,1: axis takes 3 numbers separated by commas");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--fix", "radius=1,2"})),
            "--fix radius=1,2: radius takes 1 number");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--fix", "radius="})),
            "--fix radius=: '' is not a finite number");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--fix", "axis=0,,1"})),
            "--fix axis=0,,1: '' is not a finite number");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--fix", "radius=nan"})),
            "--fix radius=nan: 'nan' is not a finite number");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--fix", "radius=0x10"})),
            "--fix radius=0x10: '0x10' is not a finite number");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--fix", "radius=10", "--start", "radius=9"})),
            "parameter 'radius' is given more than once");
  EXPECT_EQ(UsageMessage(Fit("cylinder", {"--fix", "radius=10", "--fix", "radius=10"})),
            "parameter 'radius' is given more than once");
}

TEST(CliArguments, RetiredOptionsSayWhatReplacesThem) {
  EXPECT_EQ(UsageMessage(Fit("circle", {"--radius", "5"})),
            "--radius was replaced by --start radius=R (or --fix radius=R)");
  EXPECT_EQ(UsageMessage(Fit("circle", {"--centre", "1,2,3"})),
            "--centre was replaced by --start center=X,Y,Z (or --fix center=X,Y,Z)");
  EXPECT_EQ(UsageMessage(Fit("circle", {"--axis", "0,0,1"})),
            "--axis was replaced by --start axis=X,Y,Z (or --fix axis=X,Y,Z)");
  EXPECT_EQ(UsageMessage(Fit("circle", {"--hold", "radius"})),
            "--hold was replaced by --fix NAME=VALUE");
  EXPECT_TRUE(Contains(UsageMessage(Fit("line", {"--ref-point", "1,2,3"})),
                       "--ref-point was removed: the center of a line, plane or cylinder is the "
                       "point of the line, plane or axis nearest the centroid of the points"));
}

TEST(CliArguments, UnitsAreAPrintableLabel) {
  EXPECT_EQ(ParseArguments(Fit("plane", {"--units", "\u00b5m"})).units, "\u00b5m");
  EXPECT_EQ(UsageMessage(Fit("plane", {"--units", ""})), "--units needs a printable label");
  EXPECT_EQ(UsageMessage(Fit("plane", {"--units", "m\x1b[31m"})),
            "--units needs a printable label");
}

TEST(CliArguments, JsonDeviationsNeedJson) {
  EXPECT_EQ(UsageMessage(Fit("plane", {"--json-deviations"})), "--json-deviations needs --json");
}

TEST(CliArguments, StandardInputOnlyOnce) {
  EXPECT_EQ(UsageMessage({"fit", "plane", "-", "a.txt", "-"}),
            "standard input '-' can be read only once");
}

TEST(CliArguments, OutputNamesFollowTheStemRule) {
  EXPECT_EQ(OutputPath("out/{stem}-dev.csv", "/data/bore 1.txt"), "out/bore 1-dev.csv");
  EXPECT_EQ(OutputPath("{stem}_{stem}.csv", "a.b.ply"), "a.b_a.b.csv");
  EXPECT_EQ(OutputPath("{stem}.csv", "-"), "stdin.csv");
  EXPECT_EQ(OutputPath("fixed.csv", "a.txt"), "fixed.csv");
  // One file: any name; several: the name must tell them apart.
  EXPECT_EQ(ParseArguments(Fit("plane", {"--deviations", "d.csv"})).deviations, "d.csv");
  EXPECT_EQ(UsageMessage({"fit", "plane", "a.txt", "b.txt", "--deviations", "d.csv"}),
            "--deviations needs {stem} in its name with several FILEs");
  EXPECT_EQ(UsageMessage({"fit", "plane", "x/a.txt", "y/a.txt", "--deviations", "{stem}.csv"}),
            "--deviations would write 'a.csv' twice");
  EXPECT_EQ(UsageMessage({"fit", "plane", "a.txt", "b.txt", "--report", "r.html"}),
            "--report needs {stem} in its name with several FILEs");
  EXPECT_EQ(UsageMessage({"fit", "plane", "a.csv", "--deviations", "{stem}.csv"}),
            "--deviations would overwrite the input file 'a.csv'");
}

TEST(CliArguments, InputOptionsAreCheckedAndHandedToTheReader) {
  const Options o =
      ParseArguments(Fit("plane", {"--format", "csv", "--columns", "2,3,4", "--decimal-comma"}));
  EXPECT_EQ(o.input.format, "csv");
  EXPECT_EQ(o.input.columns, (std::vector<int>{2, 3, 4}));
  EXPECT_TRUE(o.input.decimal_comma);
  EXPECT_EQ(ParseArguments(Fit("plane", {"--format", "PLY"})).input.format, "PLY");
  EXPECT_EQ(UsageMessage(Fit("plane", {"--format", "stl"})),
            "--format takes auto, text, csv, ply, pts or pcd, not 'stl'");
  for (const char* bad : {"2,3", "2,2,3", "0,1,2", "1,2,3,", "a,b,c", "1,2,3,4"}) {
    EXPECT_EQ(UsageMessage(Fit("plane", {"--columns", bad})),
              std::string("--columns needs three different column numbers X,Y,Z from 1, not '") +
                  bad + "'");
  }
}

TEST(CliArguments, ParseNumberTakesWholeFiniteNumbersOnly) {
  EXPECT_EQ(ParseNumber("1.5"), 1.5);
  EXPECT_EQ(ParseNumber("-2e-3"), -2e-3);
  EXPECT_EQ(ParseNumber("7"), 7.0);
  for (const char* bad :
       {"", " 1", "1 ", "+1", "1.5mm", "nan", "-inf", "infinity", "1e400", "--1", "0x10", "1,5"}) {
    EXPECT_EQ(ParseNumber(bad), std::nullopt) << bad;
  }
}

TEST(CliArguments, HelpDocumentsShapesParametersOptionsAndExitStatus) {
  const std::string help = HelpText();
  EXPECT_EQ(help.rfind("Fits SHAPE to the measured points of each FILE", 0), 0u) << help;
  EXPECT_TRUE(Contains(help, "Usage: metrofit fit [OPTIONS] SHAPE FILE...")) << help;
  EXPECT_TRUE(Contains(help, "  cylinder    center, axis, radius\n")) << help;
  EXPECT_TRUE(Contains(help, "  ellipse     center, axis, major_direction, semi_axes\n")) << help;
  for (const Shape shape : AllShapes()) {
    EXPECT_TRUE(Contains(help, std::string("\n  ") + metrofit::ToString(shape) + " "))
        << metrofit::ToString(shape);
  }
  for (const char* text :
       {"--method METHOD", "--fix NAME=V[,V...]", "--start NAME=V[,V...]", "--probe-radius R",
        "--units LABEL", "--json ", "--json-deviations", "--deviations FILE.csv",
        "--report FILE.html", "--format FORMAT", "--columns X,Y,Z", "--decimal-comma", "-h,--help",
        "{stem}", "0  every fit is valid", "1  a fit is not valid", "2  usage error",
        "3  a FILE cannot be read", "4  internal error"}) {
    EXPECT_TRUE(Contains(help, text)) << text;
  }
  // The retired options stay out of the help.
  EXPECT_FALSE(Contains(help, "--ref-point")) << help;
  EXPECT_FALSE(Contains(help, "--hold")) << help;
}

}  // namespace
