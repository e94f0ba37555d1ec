// Not built yet: the cone refinement on the Levenberg-Marquardt core. Until it lands every
// cone candidate goes straight to the least-squares driver.
#include "composite/cylinder_cone_fit.h"

namespace metrofit {

// Status reported while the refinement is missing: the candidate falls back to the driver.
constexpr std::int32_t kRefinementUnavailable = 3;

std::int32_t RefineCone(CFitInput& /*in*/, CFitResult& out) {
  out.m_valid = 0;
  return kRefinementUnavailable;
}

}  // namespace metrofit
