// Extended sphere fit (model in sphere_fit_ex.h).
//
// 1. The smallest enclosing sphere of the points is the start: it needs no estimate and lies
//    within the points' extent, so the minimisation starts at the right scale.
// 2. The points are shifted by its centre and (c, r) = (0, R_enclosing) is refined by
//    Levenberg-Marquardt on sum (|p - c| - r)^2.
// 3. The form value is the peak-to-valley of the radial deviations, measured from 0.
// When the minimisation stops at its limit the record keeps the enclosing centre and the
// enclosing radius in the diameter slot, so the caller sees that sphere (at half its radius)
// together with m_valid = 0: callers must check m_valid.
#include "extended/sphere_fit_ex.h"

#include <cstddef>
#include <limits>

#include "extended/extended_status.h"
#include "metrofit.h"
#include "numeric/centred_copy.h"
#include "numeric/compensated.h"
#include "numeric/enclosing_ball.h"
#include "numeric/levenberg_marquardt.h"

namespace metrofit {
namespace numeric {

double SphereResidual(const PointSet& points, std::int32_t i, const NVector& x) {
  const double* p = points.Point(i);
  return Hypot3(p[0] - x[0], p[1] - x[1], p[2] - x[2]) - x[3];
}

void SphereResidualRow(const PointSet& points, std::int32_t i, const NVector& x, NVector& row,
                       double& residual) {
  const double* p = points.Point(i);
  const double d[3] = {p[0] - x[0], p[1] - x[1], p[2] - x[2]};
  const double len = Hypot3(d[0], d[1], d[2]);
  for (int k = 0; k < 3; ++k) row[k] = len == 0.0 ? 0.0 : -d[k] / len;
  row[3] = -1.0;
  residual = len - x[3];
}

namespace {

// The residuals, and the rows, of points k onwards, written once for any lanes.
struct SphereResidualsBody {
  const NVector& x;
  double* out;
  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    StoreLanes(out + k, Hypot3(p[0] - x[0], p[1] - x[1], p[2] - x[2]) - x[3]);
  }
};

struct SphereRowsBody {
  const NVector& x;
  double* rows;
  double* residuals;
  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    const V d[3] = {p[0] - x[0], p[1] - x[1], p[2] - x[2]};
    StoreCentreDistanceLanes(rows, residuals, k, d, 3, Hypot3(d[0], d[1], d[2]), x[3]);
  }
};

}  // namespace

void SphereResiduals(const PointSet& points, std::int32_t first, std::int32_t count,
                     const NVector& x, double* out) {
  ForPointLanes(points, first, count, SphereResidualsBody{x, out},
                [&](std::int32_t k) { out[k] = SphereResidual(points, first + k, x); });
}

void SphereResidualRows(const PointSet& points, std::int32_t first, std::int32_t count,
                        const NVector& x, double* rows, double* residuals) {
  constexpr std::int32_t kParams = 4;
  ForPointLanes(points, first, count, SphereRowsBody{x, rows, residuals}, [&](std::int32_t k) {
    NVector view = VectorView(rows + static_cast<std::ptrdiff_t>(k) * kParams, kParams);
    SphereResidualRow(points, first + k, x, view, residuals[k]);
  });
}

double SphereObjective(void* context, const NVector& x) {
  return SumOfSquares(*static_cast<const PointSet*>(context), x, SphereResiduals);
}

void SphereGradient(void* context, NVector& x, NVector& gradient, NMatrix& normal) {
  if (x[3] < 0.0) x[3] = -x[3];
  NormalEquations(*static_cast<const PointSet*>(context), x, SphereResidualRows, gradient, normal);
}

}  // namespace numeric

namespace {

using numeric::NumericStatus;

// Limits of the two numeric stages.
constexpr std::int32_t kEnclosingIterations = 100;
constexpr double kEnclosingTolerance = 1e-9;
constexpr std::int32_t kMinimiserIterations = 100;
// Absolute step tolerance on centre and radius, in the caller's length unit.
constexpr double kStepTolerance = 1e-9;

template <class Points>
ExtendedStatus FitSphere(double* record, std::int32_t n, const Points* points, double* deviations) {
  // The record's centre is (0, 0, 0) here, so the first copy equals the input points.
  numeric::UniquePointSet copy;
  if (numeric::CentredCopy(n, points, record, false, copy) != NumericStatus::kOk) {
    return ExtendedStatus::kResourceFailure;
  }

  const numeric::UniqueVector x(numeric::CreateVector(4));
  if (!x) return ExtendedStatus::kAllocationFailure;
  for (int k = 0; k < 4; ++k) (*x)[k] = record[k];

  const NumericStatus enclosing = numeric::SmallestEnclosingBall(
      copy.get(), x.get(), kEnclosingIterations, kEnclosingTolerance, false, nullptr);
  copy.reset();
  if (enclosing != NumericStatus::kOk) return ExtendedStatus::kEnclosingSphereFailed;
  for (int k = 0; k < 3; ++k) record[k] = (*x)[k];
  record[3] = (*x)[3];  // the enclosing radius, held in the diameter slot until the refit

  if (numeric::CentredCopy(n, points, record, false, copy) != NumericStatus::kOk) {
    return ExtendedStatus::kResourceFailure;
  }
  for (int k = 0; k < 3; ++k) (*x)[k] = 0.0;
  (*x)[3] = record[3];
  double objective = 0.0;
  double accuracy = 0.0;
  const ExtendedStatus status = ToExtendedStatus(
      numeric::MinimiseLM(copy.get(), numeric::SphereObjective, numeric::SphereGradient,
                          kMinimiserIterations, kStepTolerance, &objective, x.get(), &accuracy));
  if (status != ExtendedStatus::kOk) return status;

  for (int k = 0; k < 3; ++k) record[k] += (*x)[k];
  record[3] = 2.0 * (*x)[3];
  for (std::int32_t i = 0; i < n; ++i) deviations[i] = numeric::SphereResidual(*copy, i, *x);
  record[4] = SpreadFromZero(deviations, n);
  return ExtendedStatus::kOk;
}

}  // namespace

ExtendedStatus FitSphereEx(double* record, std::int32_t n, const double* points,
                           double* deviations) {
  return FitSphere(record, n, points, deviations);
}

ExtendedStatus FitSphereEx(double* record, std::int32_t n, const KPt3<double>* points,
                           double* deviations) {
  return FitSphere(record, n, points, deviations);
}

}  // namespace metrofit

std::int32_t KFitSphereEx(CFitInput& in, CFitResult& out) {
  using namespace metrofit;
  try {
    in.m_fitType = FIT_SPHERE;
    const std::size_t count = in.m_points.size();
    double record[kSphereRecordSize] = {0.0, 0.0, 0.0, 0.0, 0.0};
    ExtendedStatus status = ExtendedStatus::kAllocationFailure;
    if (count <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() / 3)) {
      const auto n = static_cast<std::int32_t>(count);
      // The fit copies the points it works on; the deviations, one per point, give the form.
      numeric::UniqueDoubles deviations = numeric::AllocateDoubles(count);
      if (deviations) status = FitSphereEx(record, n, in.m_points.data(), deviations.get());
    }
    out.m_center = KPt3<double>(record[0], record[1], record[2]);
    out.m_size1.x = record[3] * 0.5;
    out.m_formError = record[4];
    out.m_valid = ValidFlag(status);
    out.m_message.clear();
    return out.m_valid;
  } catch (...) {
    // Nothing may cross the library boundary: any failure is a failed fit.
    out.m_valid = 0;
    return 0;
  }
}
