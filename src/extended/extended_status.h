// Internal statuses of the extended fits and the form measure they share.
//
// The numeric core reports 0..3; the extended fits translate what they cannot recover from into
// these fixed program values before reducing every non-zero status to m_valid = 0.
#ifndef METROFIT_EXTENDED_EXTENDED_STATUS_H
#define METROFIT_EXTENDED_EXTENDED_STATUS_H

#include <cmath>
#include <cstdint>

namespace metrofit {

// A work vector or point copy of an extended fit could not be allocated.
constexpr std::int32_t kExAllocationFailure = 131;
// A decomposition or minimisation stopped at its limit or rejected its arguments.
constexpr std::int32_t kExNumericFailure = 138;
// The smallest enclosing sphere that starts the extended sphere fit failed.
constexpr std::int32_t kExEnclosingSphereFailed = 162;

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
