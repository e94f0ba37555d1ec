// Checks of a fit request before any fit is made: point count, finite coordinates, known
// parameter names with values of the right length and range. Bad input is the caller's to
// correct, so each check answers with an error status and a message that says what to change.
#ifndef METROFIT_MODERN_REQUEST_CHECK_H
#define METROFIT_MODERN_REQUEST_CHECK_H

#include <string>

#include "metrofit/fit.h"
#include "precise/precise_fit.h"

namespace metrofit {

struct CheckedRequest {
  Status status = Status::kOk;  // kOk, or one of the input errors
  std::string message;
  // With status kOk: the request with directions made unit.
  precise::Request request;
};

CheckedRequest CheckRequest(const double* xyz, std::size_t count, const FitOptions& options);

}  // namespace metrofit

#endif  // METROFIT_MODERN_REQUEST_CHECK_H
