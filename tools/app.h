// The metrofit tool as a function: arguments in, report and exit status out. main() only
// adapts argv and guards against exceptions; tests call Run directly.
#ifndef METROFIT_TOOLS_APP_H
#define METROFIT_TOOLS_APP_H

#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "metrofit.h"

namespace metrofit::cli {

enum ExitStatus {
  kExitOk = 0,
  kExitFitFailed = 1,
  kExitUsage = 2,
  kExitInput = 3,
  kExitInternal = 4,
};

// Runs the tool on the arguments after the program name. `in` is read for FILE "-".
int Run(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
        std::ostream& err);

// Mean of the points; the origin for none.
KPt3<double> MeanPoint(const std::vector<KPt3<double>>& points);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_APP_H
