// Command-line arguments of the metrofit tool (parsed with CLI11) and its help text.
#ifndef METROFIT_TOOLS_CLI_H
#define METROFIT_TOOLS_CLI_H

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "input.h"
#include "metrofit/fit.h"

namespace metrofit::cli {

// The command line is wrong: unknown command, shape, option or parameter, missing or bad value.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  // Text to print on standard output instead of fitting (--help, --version).
  std::string print;

  Shape shape = Shape::kSphere;
  std::vector<std::string> files;  // "-" is standard input
  InputOptions input;
  FitOptions fit;  // shape, method, fixed and start values, probe radius

  bool json = false;
  bool json_deviations = false;  // --json also lists every point's deviation and residual
  std::string units = "mm";      // label of the length unit in the output
  std::string deviations;        // CSV file name pattern; empty: none
  std::string report;            // HTML file name pattern; empty: none
};

// Parses the arguments after the program name. Throws UsageError.
Options ParseArguments(const std::vector<std::string>& args);

// A finite number written in full ("1.5", "-2e-3"): no blanks, hexadecimal, nan or inf.
std::optional<double> ParseNumber(std::string_view text);

// "NAME=V[,V...]" with the parameter names of `shape`: "radius=10", "axis=0,0,1". Throws
// UsageError naming `option` for an unknown name, a wrong count or a bad number.
NamedValue ParseNamedValue(std::string_view option, std::string_view text, Shape shape);

// How many numbers a parameter holds: 3 for a point or direction, 2 for semi_axes, else 1.
std::size_t ValueCount(std::string_view parameter);

// Every shape in the order of the Shape enumeration.
const std::vector<Shape>& AllShapes();

// The output file for input `file` from `pattern`: "{stem}" is replaced by the input file's
// name without directory and extension ("stdin" for "-").
std::string OutputPath(const std::string& pattern, const std::string& file);

std::string HelpText();
std::string VersionText();

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_CLI_H
