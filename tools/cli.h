// Command-line arguments of the metrofit tool and its help text.
#ifndef METROFIT_TOOLS_CLI_H
#define METROFIT_TOOLS_CLI_H

#include <stdexcept>
#include <string>
#include <vector>

#include "metrofit.h"

namespace metrofit::cli {

// The command line is wrong: unknown command, shape or option, missing or bad value.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  bool help = false;
  std::string shape;  // a name known to FindShape
  std::string file;   // "-" is standard input
  bool json = false;
  double probe_radius = 0.0;
  bool has_probe_radius = false;
  KPt3<double> ref_point;
  bool has_ref_point = false;
  // Nominal values with the library's constraint modes: kFree where not given, kStartValue
  // where given, kHeld where named by --hold. Only value.x and mode[0] of `radius` count.
  CFitParam centre;
  CFitParam axis;
  CFitParam radius;
  bool has_centre = false;
  bool has_axis = false;
  bool has_radius = false;
};

// Constraint modes of a CFitParam component.
constexpr int kFree = 0;
constexpr int kHeld = 1;
constexpr int kStartValue = 2;

// Parses the arguments after the program name. Throws UsageError.
Options ParseArguments(const std::vector<std::string>& args);

// A finite number written in full ("1.5", "-2e-3"); false for anything else.
bool ParseNumber(const std::string& text, double* value);

// Three finite numbers separated by commas ("1,2.5,-3"); false for anything else.
bool ParsePoint(const std::string& text, KPt3<double>* point);

std::string HelpText();

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_CLI_H
