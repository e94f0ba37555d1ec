// Status of the extended fits, its two mappings, and the form measure the fits share.
//
// Every extended fit returns an ExtendedStatus. A numeric routine's status becomes an extended
// one through ToExtendedStatus (the circle fit's in-plane stage has its own numbering, see
// MapInPlaneFailure in circle_fit_ex.h), and an extended status becomes the exported m_valid
// only through ValidFlag. The numbers are fixed: they are the integers the fits have always
// returned.
#ifndef METROFIT_EXTENDED_EXTENDED_STATUS_H
#define METROFIT_EXTENDED_EXTENDED_STATUS_H

#include <cmath>
#include <cstdint>

#include "numeric/status.h"

namespace metrofit {

enum class ExtendedStatus : std::int32_t {
  kOk = 0,
  // A working copy of the points could not be made; for the circle fit also a work vector, or
  // a transfer through the temporary point store failed.
  kResourceFailure = 1,
  // The points give no feature: two coincident points (line fit); the in-plane minimiser or the
  // enclosing circle rejected its arguments (circle fit).
  kDegeneratePoints = 2,
  // Circle fit: the plane's decomposition failed, or the in-plane fit and the enclosing circle
  // stopped at their limits. (The circle fit numbers its failures 1..3, the other fits use the
  // program values below.)
  kCircleNumericFailure = 3,
  // A work vector or point copy of an extended fit could not be allocated.
  kAllocationFailure = 131,
  // A decomposition or minimisation stopped at its limit or rejected its arguments.
  kNumericFailure = 138,
  // The smallest enclosing sphere that starts the extended sphere fit failed.
  kEnclosingSphereFailed = 162,
};

// A numeric routine's status as an extended fit reports it: kOk stays kOk, no memory is
// kAllocationFailure, every other failure kNumericFailure.
inline ExtendedStatus ToExtendedStatus(numeric::NumericStatus status) {
  switch (status) {
    case numeric::NumericStatus::kOk:
      return ExtendedStatus::kOk;
    case numeric::NumericStatus::kAllocationFailure:
      return ExtendedStatus::kAllocationFailure;
    default:
      return ExtendedStatus::kNumericFailure;
  }
}

// The exported m_valid of an extended fit: 1 for kOk, 0 for every failure.
inline int ValidFlag(ExtendedStatus status) {
  return status == ExtendedStatus::kOk ? 1 : 0;
}

// Peak-to-valley of signed deviations with the running maximum and minimum both starting at 0:
// deviations all of one sign are measured from 0, not from each other.
inline double SpreadFromZero(const double* d, std::int32_t n) {
  double lo = 0.0;
  double hi = 0.0;
  for (std::int32_t i = 0; i < n; ++i) {
    if (d[i] > hi) hi = d[i];
    if (d[i] < lo) lo = d[i];
  }
  return std::fabs(hi - lo);
}

}  // namespace metrofit

#endif  // METROFIT_EXTENDED_EXTENDED_STATUS_H
