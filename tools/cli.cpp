#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <set>
#include <sstream>
#include <system_error>

#include "input.h"

namespace metrofit::cli {

namespace {

constexpr char kStandardInput[] = "-";
constexpr char kStemPlaceholder[] = "{stem}";
// Name of standard input in output file names.
constexpr char kStandardInputStem[] = "stdin";
// Width of the option column of the help text.
constexpr std::size_t kHelpColumn = 26;
// Layout of the shape list in the help: the names, then the parameters, summary beneath.
constexpr std::size_t kShapeIndent = 2;
constexpr std::size_t kShapeNameWidth = 12;

// Options of earlier versions of the tool, and what replaces them.
struct RetiredOption {
  const char* name;
  const char* hint;
};
const RetiredOption kRetiredOptions[] = {
    {"--centre", "--centre was replaced by --start center=X,Y,Z (or --fix center=X,Y,Z)"},
    {"--axis", "--axis was replaced by --start axis=X,Y,Z (or --fix axis=X,Y,Z)"},
    {"--radius", "--radius was replaced by --start radius=R (or --fix radius=R)"},
    {"--hold", "--hold was replaced by --fix NAME=VALUE"},
    {"--ref-point",
     "--ref-point was removed: the center of a line, plane or cylinder is the point of the "
     "line, plane or axis nearest the centroid of the points"},
};

// One line of help per shape: what its center and axis are.
const char* ShapeSummary(Shape shape) {
  switch (shape) {
    case Shape::kLine:
      return "straight line; center: its point nearest the centroid";
    case Shape::kPlane:
      return "plane; center: its point nearest the centroid, axis: the normal";
    case Shape::kCircle:
      return "circle in space; axis: the normal of its plane";
    case Shape::kSphere:
      return "sphere";
    case Shape::kCylinder:
      return "cylinder; center: the axis point nearest the centroid";
    case Shape::kCone:
      return "cone; center: the apex, axis: towards the opening, half_angle in rad";
    case Shape::kEllipse:
      return "ellipse in a plane (precise only); axis: normal; semi_axes: major, minor";
    case Shape::kParaboloid:
      return "paraboloid of revolution; center: the vertex, axis: towards the opening";
    case Shape::kSpheroid:
      return "ellipsoid of revolution; semi_axes: along the axis, across it";
    case Shape::kTorus:
      return "torus; axis: the normal of its middle plane";
  }
  return "";
}

std::string Join(const std::vector<std::string>& items, const char* separator) {
  std::string text;
  for (const std::string& item : items) {
    if (!text.empty()) text += separator;
    text += item;
  }
  return text;
}

std::string ShapeNames() {
  std::vector<std::string> names;
  for (const Shape shape : AllShapes()) names.emplace_back(ToString(shape));
  return Join(names, ", ");
}

std::string ShapesHelp() {
  std::ostringstream text;
  for (const Shape shape : AllShapes()) {
    const std::string name = ToString(shape);
    text << std::string(kShapeIndent, ' ') << name
         << std::string(kShapeNameWidth - name.size(), ' ') << Join(ParameterNames(shape), ", ")
         << "\n"
         << std::string(kShapeIndent + kShapeNameWidth, ' ') << ShapeSummary(shape) << "\n";
  }
  return text.str();
}

std::string Footer() {
  return "SHAPE and the names of its parameters, as --fix and --start take them (center,\n"
         "axis and major_direction hold X,Y,Z, semi_axes two values, the others one):\n" +
         ShapesHelp() +
         "\n"
         "Lengths are in the units of FILE (--units only names them); angles in radians.\n"
         "\n"
         "FILE is whitespace text (.xyz .txt .asc: one point per line, '#' comments),\n"
         "CSV (.csv: a header row naming x, y and z, or --columns), PLY, PTS or PCD,\n"
         "chosen by --format, else by extension, else by content. Numbers are strict\n"
         "decimals (no hexadecimal, nan or inf); --decimal-comma reads decimal commas.\n"
         "'-' reads standard input. Several FILEs are fitted one after the other with\n"
         "the same options, each with its own result, in order.\n"
         "\n"
         "Output: a table per FILE with every parameter and its standard uncertainty\n"
         "(\"(fixed)\" for a fixed one), the number of points, rms, sigma, the smallest\n"
         "and largest signed deviation, the form error, the iterations and the status.\n"
         "A fit that is not valid prints no table: the reason goes to standard error.\n"
         "With --json, one JSON object per FILE, each on one line (schema metrofit.fit/1;\n"
         "not valid fits included, with \"valid\": false; a FILE that cannot be read\n"
         "gives only its message). When standard error is a terminal, a fit still\n"
         "running after a second is announced there.\n"
         "\n"
         "Output file names (--deviations, --report): \"{stem}\" stands for the name of\n"
         "the FILE without directory and extension (\"stdin\" for '-'); with several\n"
         "FILEs the name must contain it.\n"
         "\n"
         "Exit status (the worst over all FILEs):\n"
         "  0  every fit is valid\n"
         "  1  a fit is not valid: too few points, a degenerate point set, no convergence\n"
         "     or a failed compatible fit\n"
         "  2  usage error: unknown option, shape or parameter name, or a bad value\n"
         "  3  a FILE cannot be read or is not a point file\n"
         "  4  internal error, or an output cannot be written\n";
}

// What CLI11 collects before the values are checked.
struct RawArguments {
  std::string shape;
  std::vector<std::string> files;
  std::string method = "precise";
  std::vector<std::string> fix;
  std::vector<std::string> start;
  std::string probe_radius = "0";
  std::string format = "auto";
  std::string columns;
  std::vector<std::string> retired[std::size(kRetiredOptions)];
};

// Each occurrence of a repeatable option takes exactly one value, so that FILEs may follow.
CLI::Option* Repeatable(CLI::App* app, const char* name, std::vector<std::string>* values,
                        const char* type, const char* help) {
  return app->add_option(name, *values, help)->type_name(type)->allow_extra_args(false);
}

void AddFitOptions(CLI::App* fit, RawArguments* raw, Options* options) {
  fit->add_option("SHAPE", raw->shape, "the shape to fit (see below)")->required();
  fit->add_option("FILE", raw->files, "point files; '-' is standard input")->required();
  fit->add_option("--method", raw->method,
                  "precise (default): the orthogonal-distance least-\n"
                  "squares fit to full precision, with standard\n"
                  "uncertainties; compatible: exactly what the\n"
                  "library's KFit* function returns (no planar ellipse)")
      ->type_name("METHOD");
  Repeatable(fit, "--fix", &raw->fix, "NAME=V[,V...]",
             "hold parameter NAME at the value, e.g. radius=10\n"
             "or axis=0,0,1 (repeatable)");
  Repeatable(fit, "--start", &raw->start, "NAME=V[,V...]",
             "start the fit from this value of NAME, a nominal\n"
             "value (repeatable)");
  fit->add_option("--probe-radius", raw->probe_radius,
                  "radius of the probe ball whose centres FILE holds:\n"
                  "positive where the centres lie outside the surface\n"
                  "(a shaft, a ball), negative inside (a bore). The\n"
                  "precise method reports the surface the ball\n"
                  "touched; the compatible one compensates only as\n"
                  "its KFit* function does (paraboloid and torus).\n"
                  "Default 0: the points are on the surface")
      ->type_name("R");
  fit->add_option("--units", options->units,
                  "name of the length unit in the output (default mm;\n"
                  "nothing is converted)")
      ->type_name("LABEL");
  fit->add_flag("--json", options->json, "print each result as one line of JSON");
  fit->add_flag("--json-deviations", options->json_deviations,
                "with --json: also the signed deviation and the\n"
                "residual vector of every point");
  fit->add_option("--deviations", options->deviations,
                  "write x,y,z and the signed deviation of every\n"
                  "point of a valid fit to a CSV file")
      ->type_name("FILE.csv");
  fit->add_option("--report", options->report, "write an HTML report of a valid fit")
      ->type_name("FILE.html");
  fit->add_option("--format", raw->format, kFormatHelp)->type_name("FORMAT");
  fit->add_option("--columns", raw->columns,
                  "the x, y and z columns of a text or CSV FILE,\n"
                  "from 1 (default: the header's, else the first three)")
      ->type_name("X,Y,Z");
  fit->add_flag("--decimal-comma", options->input.decimal_comma,
                "FILE writes numbers with a decimal comma (1,5)");
  for (std::size_t k = 0; k < std::size(kRetiredOptions); ++k) {
    // Hidden: accepted only to say what replaced them.
    fit->add_option(kRetiredOptions[k].name, raw->retired[k])->group("")->allow_extra_args(false);
  }
}

Shape CheckedShape(const std::string& name) {
  const std::optional<Shape> shape = ShapeFromName(name);
  if (!shape) throw UsageError("unknown shape '" + name + "' (known: " + ShapeNames() + ")");
  return *shape;
}

Method CheckedMethod(const std::string& name) {
  const std::optional<Method> method = MethodFromName(name);
  if (!method) throw UsageError("--method takes precise or compatible, not '" + name + "'");
  return *method;
}

double CheckedProbeRadius(const std::string& text) {
  const std::optional<double> value = ParseNumber(text);
  if (!value) throw UsageError("--probe-radius needs a finite number, not '" + text + "'");
  return *value;
}

// --fix and --start values; a parameter is named at most once over both.
void SetNamedValues(const RawArguments& raw, FitOptions* fit) {
  std::set<std::string> named;
  const auto add = [&](const char* option, const std::string& text, std::vector<NamedValue>* into) {
    NamedValue value = ParseNamedValue(option, text, fit->shape);
    if (!named.insert(value.name).second) {
      throw UsageError("parameter '" + value.name + "' is given more than once");
    }
    into->push_back(std::move(value));
  };
  for (const std::string& text : raw.fix) add("--fix", text, &fit->fixed);
  for (const std::string& text : raw.start) add("--start", text, &fit->start);
}

std::vector<int> CheckedColumns(const std::string& text) {
  const std::optional<std::vector<int>> columns = ParseColumns(text);
  if (!columns) {
    throw UsageError("--columns needs three different column numbers X,Y,Z from 1, not '" + text +
                     "'");
  }
  return *columns;
}

void SetInputOptions(const RawArguments& raw, InputOptions* input) {
  input->format = raw.format;
  if (!raw.columns.empty()) input->columns = CheckedColumns(raw.columns);
  const std::string problem = CheckInputOptions(*input);
  if (!problem.empty()) throw UsageError(problem);
}

void CheckFiles(const std::vector<std::string>& files) {
  if (std::count(files.begin(), files.end(), kStandardInput) > 1) {
    throw UsageError("standard input '-' can be read only once");
  }
}

bool SameFile(const std::string& a, const std::string& b) {
  if (a == b) return true;
  std::error_code ec;
  return std::filesystem::equivalent(a, b, ec) && !ec;
}

// Output names: one per FILE, all different, none of them an input file.
void CheckOutputPattern(const char* option, const std::string& pattern,
                        const std::vector<std::string>& files) {
  if (pattern.empty()) return;
  if (files.size() > 1 && pattern.find(kStemPlaceholder) == std::string::npos) {
    throw UsageError(std::string(option) + " needs {stem} in its name with several FILEs");
  }
  std::set<std::string> names;
  for (const std::string& file : files) {
    const std::string name = OutputPath(pattern, file);
    if (!names.insert(name).second) {
      throw UsageError(std::string(option) + " would write '" + name + "' twice");
    }
    for (const std::string& input : files) {
      if (input != kStandardInput && SameFile(name, input)) {
        throw UsageError(std::string(option) + " would overwrite the input file '" + input + "'");
      }
    }
  }
}

// The label is printed into tables, JSON and reports: no control characters (terminal escapes).
void CheckUnits(const std::string& units) {
  constexpr unsigned char kFirstPrintable = 0x20;
  constexpr unsigned char kDelete = 0x7f;
  const bool printable = std::all_of(units.begin(), units.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= kFirstPrintable && byte != kDelete;
  });
  if (units.empty() || !printable) throw UsageError("--units needs a printable label");
}

void CheckRetired(const RawArguments& raw) {
  for (std::size_t k = 0; k < std::size(kRetiredOptions); ++k) {
    if (!raw.retired[k].empty()) throw UsageError(kRetiredOptions[k].hint);
  }
}

Options Validated(const RawArguments& raw, Options options) {
  CheckRetired(raw);
  options.shape = CheckedShape(raw.shape);
  options.files = raw.files;
  CheckFiles(options.files);
  options.fit.shape = options.shape;
  options.fit.method = CheckedMethod(raw.method);
  options.fit.probe_radius = CheckedProbeRadius(raw.probe_radius);
  SetNamedValues(raw, &options.fit);
  SetInputOptions(raw, &options.input);
  CheckUnits(options.units);
  if (options.json_deviations && !options.json) {
    throw UsageError("--json-deviations needs --json");
  }
  CheckOutputPattern("--deviations", options.deviations, options.files);
  CheckOutputPattern("--report", options.report, options.files);
  return options;
}

// The CLI11 application and where it stores what it reads.
struct Parser {
  Parser() {
    fit = app.add_subcommand("fit",
                             "Fits SHAPE to the measured points of each FILE and prints the "
                             "result.\n'metrofit --version' prints the version.");
    AddFitOptions(fit, &raw, &options);
    app.set_version_flag("--version", VersionText());
    app.require_subcommand(1);
    app.get_formatter()->column_width(kHelpColumn);
    fit->footer(Footer());
  }
  CLI::App app{"", "metrofit"};
  CLI::App* fit = nullptr;
  RawArguments raw;
  Options options;
};

}  // namespace

const std::vector<Shape>& AllShapes() {
  static const std::vector<Shape> shapes = [] {
    std::vector<Shape> all;
    for (int k = 0; k <= static_cast<int>(Shape::kTorus); ++k) all.push_back(Shape(k));
    return all;
  }();
  return shapes;
}

std::optional<double> ParseNumber(std::string_view text) {
  double value = 0.0;
  const char* end = text.data() + text.size();
  // from_chars takes no blanks, no '+' and no hexadecimal in the general format.
  const auto [ptr, ec] = std::from_chars(text.data(), end, value, std::chars_format::general);
  if (text.empty() || ec != std::errc() || ptr != end || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::size_t ValueCount(std::string_view parameter) {
  if (parameter == "center" || parameter == "axis" || parameter == "major_direction") return 3;
  return parameter == "semi_axes" ? 2 : 1;
}

NamedValue ParseNamedValue(std::string_view option, std::string_view text, Shape shape) {
  const std::string where = std::string(option) + " " + std::string(text);
  const std::size_t eq = text.find('=');
  if (eq == std::string_view::npos) throw UsageError(where + ": expected NAME=VALUE");
  NamedValue named{std::string(text.substr(0, eq)), {}};
  const std::vector<std::string> names = ParameterNames(shape);
  if (std::find(names.begin(), names.end(), named.name) == names.end()) {
    throw UsageError(where + ": a " + ToString(shape) + " has no parameter '" + named.name +
                     "' (it has " + Join(names, ", ") + ")");
  }
  std::string_view values = text.substr(eq + 1);
  while (true) {
    const std::size_t comma = std::min(values.find(','), values.size());
    const std::optional<double> value = ParseNumber(values.substr(0, comma));
    if (!value)
      throw UsageError(where + ": '" + std::string(values.substr(0, comma)) +
                       "' is not a finite number");
    named.value.push_back(*value);
    if (comma == values.size()) break;
    values.remove_prefix(comma + 1);
  }
  const std::size_t count = ValueCount(named.name);
  if (named.value.size() != count) {
    throw UsageError(where + ": " + named.name + " takes " + std::to_string(count) +
                     (count == 1 ? " number" : " numbers separated by commas"));
  }
  return named;
}

std::string OutputPath(const std::string& pattern, const std::string& file) {
  const std::string stem =
      file == kStandardInput ? kStandardInputStem : std::filesystem::path(file).stem().string();
  std::string path = pattern;
  const std::size_t length = std::string(kStemPlaceholder).size();
  for (std::size_t at = path.find(kStemPlaceholder); at != std::string::npos;
       at = path.find(kStemPlaceholder, at + stem.size())) {
    path.replace(at, length, stem);
  }
  return path;
}

Options ParseArguments(const std::vector<std::string>& args) {
  // CLI11 would only say that a subcommand is required.
  if (args.empty()) throw UsageError("missing command: metrofit fit SHAPE FILE...");
  if (args[0] != "fit" && !args[0].empty() && args[0][0] != '-') {
    throw UsageError("unknown command '" + args[0] + "' (the command is fit)");
  }
  Parser parser;
  // CLI11 takes the arguments in reverse order.
  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    parser.app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    parser.options.print = HelpText();
    return parser.options;
  } catch (const CLI::CallForVersion&) {
    parser.options.print = VersionText() + "\n";
    return parser.options;
  } catch (const CLI::ParseError& e) {
    throw UsageError(e.what());
  }
  return Validated(parser.raw, std::move(parser.options));
}

std::string HelpText() {
  Parser parser;
  return parser.fit->help("metrofit");
}

std::string VersionText() {
  return std::string("metrofit ") + METROFIT_VERSION;
}

}  // namespace metrofit::cli
