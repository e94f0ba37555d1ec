#include "cli.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "shapes.h"

namespace metrofit::cli {

namespace {

constexpr char kProbeRadius[] = "--probe-radius";
constexpr char kRefPoint[] = "--ref-point";
constexpr char kJson[] = "--json";
constexpr char kCentre[] = "--centre";
constexpr char kAxis[] = "--axis";
constexpr char kRadius[] = "--radius";
constexpr char kHold[] = "--hold";

// The library takes a nominal axis shorter than this for no direction at all and starts along
// z instead; the tool refuses it rather than let a typo turn into a different axis.
constexpr double kMinAxisLength = 1e-4;

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

std::string Trimmed(const std::string& text) {
  const char* blanks = " \t";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The number an option takes: finite, and >= 0 or, for `positive`, > 0.
double NumberValue(const std::string& name, const std::string& text, bool positive) {
  double value = 0.0;
  if (!ParseNumber(text, &value) || value < 0.0 || (positive && value == 0.0)) {
    throw UsageError(name + " needs a finite number " + (positive ? "> 0" : ">= 0") + ", not '" +
                     text + "'");
  }
  return value;
}

// The point or direction an option takes.
KPt3<double> PointValue(const std::string& name, const std::string& text) {
  KPt3<double> point;
  if (!ParsePoint(text, &point)) {
    throw UsageError(name + " needs three finite numbers X,Y,Z, not '" + text + "'");
  }
  return point;
}

// A given nominal value starts the fit; components already named by --hold stay held.
void SetNominal(CFitParam* param, const KPt3<double>& value, int components, bool* given) {
  param->value = value;
  for (int k = 0; k < components; ++k) {
    if (param->mode[k] != kHeld) param->mode[k] = kStartValue;
  }
  *given = true;
}

// --hold x,y,z,axis,radius: the named nominal values are held instead of only starting the fit.
void ApplyHold(const std::string& list, Options* options) {
  std::size_t start = 0;
  while (start <= list.size()) {
    const std::size_t comma = std::min(list.find(',', start), list.size());
    const std::string item = Trimmed(list.substr(start, comma - start));
    if (item == "x" || item == "y" || item == "z") {
      options->centre.mode[item[0] - 'x'] = kHeld;
    } else if (item == "axis") {
      for (int& mode : options->axis.mode) mode = kHeld;
    } else if (item == "radius") {
      options->radius.mode[0] = kHeld;
    } else {
      throw UsageError("--hold takes x, y, z, axis or radius separated by commas, not '" + list +
                       "'");
    }
    start = comma + 1;
  }
}

bool AnyHeld(const CFitParam& param) {
  return std::find(std::begin(param.mode), std::end(param.mode), kHeld) != std::end(param.mode);
}

// A held value must have been given: holding the library's default of zero is never meant.
void CheckHeldValuesGiven(const Options& options) {
  if (AnyHeld(options.centre) && !options.has_centre) {
    throw UsageError("--hold x, y or z needs --centre");
  }
  if (AnyHeld(options.axis) && !options.has_axis) throw UsageError("--hold axis needs --axis");
  if (AnyHeld(options.radius) && !options.has_radius) {
    throw UsageError("--hold radius needs --radius");
  }
}

// Every option but --json takes a value.
void ApplyValueOption(const std::string& name, const std::string& text, Options* options) {
  if (name == kProbeRadius) {
    options->probe_radius = NumberValue(name, text, false);
    options->has_probe_radius = true;
  } else if (name == kRefPoint) {
    options->ref_point = PointValue(name, text);
    options->has_ref_point = true;
  } else if (name == kCentre) {
    SetNominal(&options->centre, PointValue(name, text), 3, &options->has_centre);
  } else if (name == kAxis) {
    const KPt3<double> axis = PointValue(name, text);
    if (axis.Length() < kMinAxisLength) {
      throw UsageError("--axis needs a direction, not '" + text + "'");
    }
    SetNominal(&options->axis, axis, 3, &options->has_axis);
  } else if (name == kRadius) {
    const double r = NumberValue(name, text, true);
    SetNominal(&options->radius, KPt3<double>(r, 0.0, 0.0), 1, &options->has_radius);
  } else {
    ApplyHold(text, options);
  }
}

void ApplyOption(const std::string& arg, const std::vector<std::string>& args, std::size_t* i,
                 Options* options) {
  std::string name, text;
  bool inline_value = false;
  SplitOption(arg, &name, &text, &inline_value);
  if (name == kJson) {
    if (inline_value) throw UsageError("option --json takes no value");
    options->json = true;
    return;
  }
  const char* const value_options[] = {kProbeRadius, kRefPoint, kCentre, kAxis, kRadius, kHold};
  if (std::find(std::begin(value_options), std::end(value_options), name) ==
      std::end(value_options)) {
    throw UsageError("unknown option '" + arg + "'");
  }
  ApplyValueOption(name, OptionValue(name, text, inline_value, args, i), options);
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
  CheckHeldValuesGiven(options);
  return options;
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
          "                    [--centre X,Y,Z] [--axis X,Y,Z] [--radius R] [--hold LIST]\n"
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
          "  --centre X,Y,Z     nominal centre (point, apex, vertex) to start the fit from\n"
          "  --axis X,Y,Z       nominal axis direction (any length) to start the fit from;\n"
          "                     for a line it acts on the point's z and the first angle\n"
          "  --radius R         nominal radius to start the fit from; the ellipse starts both\n"
          "                     semi-axes from it\n"
          "  --hold LIST        hold nominal values instead of starting from them: a comma-\n"
          "                     separated choice of x, y, z (centre), axis and radius\n"
          "                     The least-squares fits (line, plane, circle, sphere, ellipse,\n"
          "                     paraboloid) use these nominal values; the multi-start and\n"
          "                     extended fits make their own starts and may ignore them.\n"
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
