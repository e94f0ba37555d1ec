// The engine's fit for fits inside the library, with the one choice CFitInput::BestFit does
// not offer: whether the residual pass appends each point's residual vector to the result's
// deviation list. A fit that only proposes a start, or competes as one candidate among
// several, never hands its list to anyone; without it the pass still reports the statistics
// and the extremes of the residuals, bit for bit those of the full fit.
#ifndef METROFIT_LSQ_BEST_FIT_H
#define METROFIT_LSQ_BEST_FIT_H

#include "metrofit.h"

namespace metrofit {

enum class DeviationList { kAppended, kNotKept };

// CFitInput::BestFit is RunBestFit(..., DeviationList::kAppended).
void RunBestFit(CFitInput& in, CFitResult& result, double** constraints, double** params,
                DeviationList list);

}  // namespace metrofit

#endif  // METROFIT_LSQ_BEST_FIT_H
