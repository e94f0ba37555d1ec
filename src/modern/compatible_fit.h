// Method::kCompatible: the matching KFit* function run on the points, its result read back
// into the modern result value. Parameters, statistics, iterations and validity are exactly
// the KFit* function's; deviations, residual vectors and uncertainties are those of the
// feature it returned.
#ifndef METROFIT_MODERN_COMPATIBLE_FIT_H
#define METROFIT_MODERN_COMPATIBLE_FIT_H

#include "metrofit/fit.h"
#include "precise/precise_fit.h"

namespace metrofit {

FitResult FitCompatible(const precise::Request& request);

}  // namespace metrofit

#endif  // METROFIT_MODERN_COMPATIBLE_FIT_H
