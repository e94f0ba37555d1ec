// The precise fit with an explicit iteration limit, for tests of the limit itself.
#ifndef METROFIT_PRECISE_PRECISE_LIMITS_H
#define METROFIT_PRECISE_PRECISE_LIMITS_H

#include "precise/precise_fit.h"

namespace metrofit::precise {

// Trials of the Levenberg-Marquardt iteration per start before it stops unconverged.
constexpr int kMaxIterations = 200;

FitResult FitPreciseLimited(const Request& request, int maxIterations);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_PRECISE_LIMITS_H
