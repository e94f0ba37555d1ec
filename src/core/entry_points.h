// The least-squares entry points as internal functions, for fits inside the library that build
// on them. Each is exactly what its exported KFit* function does (which only forwards to it):
// the fit type is stamped, the special cases are handled and no exception leaves the call (it
// becomes m_valid = 0 and a return of 0).
#ifndef METROFIT_CORE_ENTRY_POINTS_H
#define METROFIT_CORE_ENTRY_POINTS_H

#include <cstdint>

#include "metrofit.h"

namespace metrofit {

std::int32_t FitLineInternal(CFitInput& in, CFitResult& out) noexcept;
std::int32_t FitPlaneInternal(CFitInput& in, CFitResult& out) noexcept;
std::int32_t FitSphereInternal(CFitInput& in, CFitResult& out) noexcept;

// FitLineInternal and FitPlaneInternal without the deviation list and the form error: every
// other field, and the input, as they leave them. For fits that take only the axis as a start.
std::int32_t FitLineAxisInternal(CFitInput& in, CFitResult& out) noexcept;
std::int32_t FitPlaneAxisInternal(CFitInput& in, CFitResult& out) noexcept;

}  // namespace metrofit

#endif  // METROFIT_CORE_ENTRY_POINTS_H
