// The metrofit tool as a function: arguments in, results and exit status out. main() only
// adapts argv and the environment and guards against exceptions; tests call Run directly.
#ifndef METROFIT_TOOLS_APP_H
#define METROFIT_TOOLS_APP_H

#include <chrono>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace metrofit::cli {

// Exit statuses, from the best to the worst; a run over several files returns the worst.
enum ExitStatus {
  kExitOk = 0,
  kExitFitNotValid = 1,
  kExitUsage = 2,
  kExitInput = 3,
  kExitInternal = 4,
};

// What the tool takes from its surroundings rather than from its arguments.
struct Environment {
  // Announce on `err` a fit still running after `progress_delay` (main: when standard error
  // is a terminal).
  bool progress = false;
  std::chrono::milliseconds progress_delay{1000};
};

// Runs the tool on the arguments after the program name. `in` is read for FILE "-".
int Run(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
        std::ostream& err, const Environment& environment = Environment());

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_APP_H
