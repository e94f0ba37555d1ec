// The modern interface's one entry: check the request, then fit by the chosen method. Nothing
// thrown inside the library leaves this function.
#include "metrofit/fit.h"

#include <exception>

#include "extended/point_store.h"
#include "modern/compatible_fit.h"
#include "modern/request_check.h"
#include "precise/precise_fit.h"

namespace metrofit {

namespace {

FitResult Rejected(const FitOptions& options, Status status, std::string message) {
  FitResult result;
  result.shape = options.shape;
  result.method = options.method;
  result.valid = false;
  result.status = status;
  result.message = std::move(message);
  return result;
}

}  // namespace

FitResult Fit(const double* xyz, std::size_t count, const FitOptions& options) {
  try {
    // The compatible circle-based fits (KFitTorus) park a copy of their points; keep it off disk.
    const numeric::InMemoryPointStore noFiles;
    const CheckedRequest checked = CheckRequest(xyz, count, options);
    if (checked.status != Status::kOk) {
      return Rejected(options, checked.status, checked.message);
    }
    FitResult result = options.method == Method::kCompatible ? FitCompatible(checked.request)
                                                             : precise::FitPrecise(checked.request);
    result.shape = options.shape;
    result.method = options.method;
    return result;
  } catch (const std::exception& error) {
    return Rejected(options, Status::kFailed, std::string("internal error: ") + error.what());
  } catch (...) {
    return Rejected(options, Status::kFailed, "internal error");
  }
}

FitResult Fit(const std::vector<Point>& points, const FitOptions& options) {
  static_assert(sizeof(Point) == 3 * sizeof(double), "Point must be three packed doubles");
  return Fit(points.empty() ? nullptr : reinterpret_cast<const double*>(points.data()),
             points.size(), options);
}

}  // namespace metrofit
