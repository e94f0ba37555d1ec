// Extended cylinder fit (model in cylinder_model.h, choice of starts in
// cylinder_candidate_search.h).
//
// KFitCylinderEx refines the multi-start least-squares cylinder with FitCylinderEx from its
// axis, then lets the candidate search propose a competitor, which is taken only when both are
// valid and its form error is smaller. When the least-squares cylinder fails, the candidate
// search alone gives the result.
#include "extended/cylinder_fit_ex.h"

#include <cstddef>
#include <limits>

#include "composite/cylinder_cone_fit.h"
#include "core/constants.h"
#include "extended/cylinder_candidate_search.h"
#include "extended/cylinder_model.h"
#include "extended/extended_status.h"
#include "numeric/centred_copy.h"
#include "numeric/nvector.h"

namespace metrofit {

ExtendedStatus FitCylinderEx(double* record, std::int32_t n, const KPt3<double>* points,
                             double* deviations, const CylinderFitLimits& limits) {
  numeric::UniquePointSet copy;
  if (numeric::CentredCopy(n, points, record, true, copy) != numeric::NumericStatus::kOk) {
    return ExtendedStatus::kResourceFailure;
  }

  const numeric::UniqueVector x(numeric::CreateVector(numeric::kCylinderParams));
  if (!x) return ExtendedStatus::kAllocationFailure;
  for (int k = 0; k < 3; ++k) {
    (*x)[k] = 0.0;
    (*x)[3 + k] = record[3 + k];
  }
  (*x)[6] = 0.0;

  const numeric::NumericStatus minimised =
      numeric::MinimiseCylinder(copy.get(), x.get(), limits.maxIterations, limits.stepTolerance);
  if (minimised == numeric::NumericStatus::kIterationLimit) {
    return ExtendedStatus::kOk;  // reported valid with the centroid, start axis, diameter 0
  }
  const ExtendedStatus status = ToExtendedStatus(minimised);
  if (status != ExtendedStatus::kOk) return status;
  for (int k = 0; k < 3; ++k) {
    record[k] += (*x)[k];
    record[3 + k] = (*x)[3 + k];
  }
  record[7] = numeric::CylinderDeviations(*copy, *x, deviations);
  record[6] = 2.0 * (*x)[6];
  return ExtendedStatus::kOk;
}

}  // namespace metrofit

std::int32_t metrofit::FitCylinderExInternal(CFitInput& in, CFitResult& out) noexcept {
  try {
    in.m_fitType = FIT_CYLINDER;
    FitCylinderInternal(in, out);
    if (out.m_valid == 0) return CylinderCandidateSearch(in, out);

    const std::size_t n = in.m_points.size();
    double record[kCylinderRecordSize] = {0.0,          0.0,          0.0, out.m_axis.x,
                                          out.m_axis.y, out.m_axis.z, 0.0, 0.0};
    ExtendedStatus status = ExtendedStatus::kAllocationFailure;
    if (n <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
      numeric::UniqueDoubles deviations = numeric::AllocateDoubles(n);
      if (deviations) {
        status = FitCylinderEx(record, static_cast<std::int32_t>(n), in.m_points.data(),
                               deviations.get());
      }
    }
    out.m_center = KPt3<double>(record[0], record[1], record[2]);
    out.m_axis = KPt3<double>(record[3], record[4], record[5]);
    out.m_size1.x = record[6] * 0.5;
    out.m_formError = record[7];
    out.m_valid = ValidFlag(status);
    out.m_message.clear();

    // The competitor starts as a full copy of the refined result (the record assignment leaves
    // the deviation list out, so it is copied by hand), with the score slot at its sentinel.
    CFitResult competitor;
    competitor = out;
    competitor.m_deviations = out.m_deviations;
    competitor.m_sigma = kSentinel;
    CylinderCandidateSearch(in, competitor);
    if (competitor.m_valid != 0 && out.m_valid != 0 && out.m_formError > competitor.m_formError) {
      out = competitor;
      out.m_deviations = competitor.m_deviations;
    }
    return out.m_valid;
  } catch (...) {
    // Nothing may cross the library boundary: any failure is a failed fit.
    out.m_valid = 0;
    return 0;
  }
}

std::int32_t KFitCylinderEx(CFitInput& in, CFitResult& out) {
  return metrofit::FitCylinderExInternal(in, out);
}
