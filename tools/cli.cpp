#include "cli.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "shapes.h"

namespace metrofit::cli {

namespace {

constexpr char kProbeRadius[] = "--probe-radius";
constexpr char kRefPoint[] = "--ref-point";
constexpr char kJson[] = "--json";

bool IsHelp(const std::string& arg) {
  return arg == "--help" || arg == "-h";
}

std::string ShapeNames() {
  std::string names;
  for (const Shape& shape : AllShapes()) {
    if (!names.empty()) names += ", ";
    names += shape.name;
  }
  return names;
}

// Splits "--name=value" into name and value; a plain "--name" gives no value.
void SplitOption(const std::string& arg, std::string* name, std::string* value,
                 bool* inline_value) {
  const std::size_t eq = arg.find('=');
  *inline_value = eq != std::string::npos;
  *name = arg.substr(0, eq);
  *value = *inline_value ? arg.substr(eq + 1) : std::string();
}

// The value of an option that takes one: the text after '=' or the next argument.
std::string OptionValue(const std::string& name, const std::string& inline_text, bool inline_value,
                        const std::vector<std::string>& args, std::size_t* i) {
  if (inline_value) return inline_text;
  if (*i + 1 >= args.size()) throw UsageError("option " + name + " needs a value");
  return args[++*i];
}

void ApplyOption(const std::string& arg, const std::vector<std::string>& args, std::size_t* i,
                 Options* options) {
  std::string name, text;
  bool inline_value = false;
  SplitOption(arg, &name, &text, &inline_value);
  if (name == kJson) {
    if (inline_value) throw UsageError("option --json takes no value");
    options->json = true;
  } else if (name == kProbeRadius) {
    text = OptionValue(name, text, inline_value, args, i);
    if (!ParseNumber(text, &options->probe_radius) || options->probe_radius < 0.0) {
      throw UsageError("--probe-radius needs a finite number >= 0, not '" + text + "'");
    }
    options->has_probe_radius = true;
  } else if (name == kRefPoint) {
    text = OptionValue(name, text, inline_value, args, i);
    if (!ParsePoint(text, &options->ref_point)) {
      throw UsageError("--ref-point needs three finite numbers X,Y,Z, not '" + text + "'");
    }
    options->has_ref_point = true;
  } else {
    throw UsageError("unknown option '" + arg + "'");
  }
}

void SetPositionals(const std::vector<std::string>& positionals, Options* options) {
  if (positionals.empty()) throw UsageError("missing SHAPE and FILE");
  if (positionals.size() == 1) throw UsageError("missing FILE");
  if (positionals.size() > 2) throw UsageError("unexpected argument '" + positionals[2] + "'");
  if (FindShape(positionals[0]) == nullptr) {
    throw UsageError("unknown shape '" + positionals[0] + "' (known: " + ShapeNames() + ")");
  }
  options->shape = positionals[0];
  options->file = positionals[1];
}

Options ParseFit(const std::vector<std::string>& args) {
  Options options;
  std::vector<std::string> positionals;
  bool options_done = false;
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (options_done || arg == "-" || arg.empty() || arg[0] != '-') {
      positionals.push_back(arg);
    } else if (arg == "--") {
      options_done = true;
    } else if (IsHelp(arg)) {
      options.help = true;
      return options;
    } else {
      ApplyOption(arg, args, &i, &options);
    }
  }
  SetPositionals(positionals, &options);
  return options;
}

std::string Trimmed(const std::string& text) {
  const char* blanks = " \t";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

Options ParseArguments(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError("missing command");
  if (IsHelp(args[0]) || args[0] == "help") {
    Options options;
    options.help = true;
    return options;
  }
  if (args[0] != "fit") throw UsageError("unknown command '" + args[0] + "'");
  return ParseFit(args);
}

bool ParseNumber(const std::string& text, double* value) {
  // strtod skips leading blanks; a value is the whole argument or nothing.
  if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) return false;
  char* end = nullptr;
  const double parsed = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !std::isfinite(parsed)) return false;
  *value = parsed;
  return true;
}

bool ParsePoint(const std::string& text, KPt3<double>* point) {
  double xyz[3];
  std::size_t start = 0;
  for (int k = 0; k < 3; ++k) {
    const std::size_t comma = text.find(',', start);
    const bool last = k == 2;
    // The first two coordinates end at a comma, the last at the end of the text.
    if (last != (comma == std::string::npos)) return false;
    const std::size_t end = last ? text.size() : comma;
    if (!ParseNumber(Trimmed(text.substr(start, end - start)), &xyz[k])) return false;
    start = end + 1;
  }
  *point = KPt3<double>(xyz[0], xyz[1], xyz[2]);
  return true;
}

std::string HelpText() {
  std::ostringstream help;
  help << "Usage: metrofit fit SHAPE FILE [--json] [--probe-radius R] [--ref-point X,Y,Z]\n"
          "       metrofit --help\n"
          "\n"
          "Fits a geometric feature to the measured points in FILE and prints the result.\n"
          "\n"
          "FILE holds one point per line, \"x y z\", the coordinates separated by blanks or\n"
          "commas. '#' starts a comment; blank lines are skipped. FILE '-' reads standard\n"
          "input.\n"
          "\n"
          "SHAPE:\n";
  for (const Shape& shape : AllShapes()) {
    help << "  ";
    help.width(13);
    help << std::left << shape.name << shape.summary << " (" << shape.function << ")\n";
  }
  help << "\n"
          "Options:\n"
          "  --json             print the result as JSON instead of a table\n"
          "  --probe-radius R   radius of the probe ball whose centres FILE holds (default 0).\n"
          "                     The paraboloid and torus fits compensate it; the other fits\n"
          "                     describe the surface traced by the probe centre.\n"
          "  --ref-point X,Y,Z  reference point (default: the mean of the points). The point\n"
          "                     and the plane report it as their point. A line of three or\n"
          "                     more points is held through it and reports it as its point (a\n"
          "                     two-point line reports the midpoint). The cylinder's axis\n"
          "                     point is the foot of the perpendicular from it on the fitted\n"
          "                     axis (cylinder-ex measures its axis point from the mean of the\n"
          "                     points). A circle or circle-ex from one or two points, or whose\n"
          "                     fit failed, is centred on it.\n"
          "  -h, --help         show this help\n"
          "\n"
          "Result (JSON key in brackets):\n"
          "  shape, function    the shape and the library function that fitted it\n"
          "  points             number of points read\n"
          "  valid              1 when the fit function reported success, else 0\n"
          "  iterations         least-squares iterations\n"
          "  centre, axis       centre (point, apex, vertex or axis point) and unit axis\n"
          "                     (normal, direction) [centre, axis]\n"
          "  sizes [sizes]      radius (circle, sphere, cylinder); origin distance (plane);\n"
          "                     slope, the axial rise per unit radius (cone); semi-axis a along\n"
          "                     and b across the axis (ellipse); focal length and radial extent\n"
          "                     (paraboloid); major and minor radius (torus); distance\n"
          "  sigma, rms         standard deviation and root mean square of the distances\n"
          "  min/max deviation  smallest and largest distance [min_deviation, max_deviation]\n"
          "  form error         form error [form_error]\n"
          "  message            message of the library, if any\n"
          "Only the figures the shape's function fills in are shown. In JSON, non-finite\n"
          "numbers are null.\n"
          "\n"
          "Exit status:\n"
          "  0  the fit succeeded\n"
          "  1  the fit failed (the result is printed with valid 0)\n"
          "  2  usage error\n"
          "  3  FILE cannot be read or holds a line that is not a point\n"
          "  4  internal error\n";
  return help.str();
}

}  // namespace metrofit::cli
