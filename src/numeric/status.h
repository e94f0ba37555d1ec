// Status of a routine of the numeric core.
//
// The core reports what happened instead of throwing; the fits built on it decide what a
// status means for them (extended/extended_status.h holds that mapping for the extended fits).
// The numbers are fixed: they are the integers these routines have always returned.
#ifndef METROFIT_NUMERIC_STATUS_H
#define METROFIT_NUMERIC_STATUS_H

#include <cstdint>

namespace metrofit::numeric {

enum class NumericStatus : std::int32_t {
  kOk = 0,
  // An iteration, sweep or pivot limit was reached; the output holds the last iterate.
  kIterationLimit = 1,
  // An argument is absent, of the wrong shape or too small (too few points, a short vector).
  kBadArguments = 2,
  // A work object could not be allocated.
  kAllocationFailure = 3,
  // CentredCopy's one failure: the copy could not be made (no memory for it, or a negative
  // count). It keeps the number 1 that CentredCopy has always returned; CentredCopy has no
  // iteration limit, so where it is returned the shared number is not ambiguous.
  kCopyFailed = 1,
};

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_STATUS_H
