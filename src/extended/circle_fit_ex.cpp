// Extended circle fit (model in circle_fit_ex.h).
//
// FitCircleEx keeps the input coordinates in the temporary point store while its working copy
// is overwritten by the decomposition and rotated into the plane frame:
//   1. centred copy (the centroid becomes the record's centre), saved;
//   2. plane normal by SVD of the centred copy (overwritten), stored in the record;
//   3. centred copy read back, centre added again, saved a second time;
//   4. rotation into the plane frame, in-plane circle (enclosing circle as the fallback);
//   5. centre back to model space, form value on the input coordinates read back once more.
// Each saved copy is held in a UniquePointFile until it is read back, so a failure between a
// save and its restore (an early return or an exception) still releases it before the fit
// returns.
//
// KFitCircleEx starts the extended fit from the least-squares circle's axis (the SVD normal
// takes its sign from it) and falls back as the least-squares circle entry point does.
#include "extended/circle_fit_ex.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "core/driver.h"
#include "extended/plane_frame.h"
#include "extended/point_store.h"
#include "numeric/centred_copy.h"
#include "numeric/compensated.h"
#include "numeric/enclosing_ball.h"
#include "numeric/levenberg_marquardt.h"
#include "numeric/svd.h"

namespace metrofit {
namespace numeric {

double CircleResidual(const PointSet& points, std::int32_t i, const NVector& x) {
  const double* p = points.Point(i);
  return Hypot3(p[0] - x[0], p[1] - x[1], 0.0) - x[2];
}

void CircleResidualRow(const PointSet& points, std::int32_t i, const NVector& x, NVector& row,
                       double& residual) {
  const double* p = points.Point(i);
  const double dx = p[0] - x[0];
  const double dy = p[1] - x[1];
  const double len = Hypot3(dx, dy, 0.0);
  row[0] = len == 0.0 ? 0.0 : -dx / len;
  row[1] = len == 0.0 ? 0.0 : -dy / len;
  row[2] = -1.0;
  residual = len - x[2];
}

namespace {

// The residuals, and the rows, of points k onwards in the circle's plane (z ignored), written
// once for any lanes.
struct CircleResidualsBody {
  const NVector& x;
  double* out;
  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    StoreLanes(out + k, Hypot3(p[0] - x[0], p[1] - x[1], Filled<V>(0.0)) - x[2]);
  }
};

struct CircleRowsBody {
  const NVector& x;
  double* rows;
  double* residuals;
  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    const V d[2] = {p[0] - x[0], p[1] - x[1]};
    StoreCentreDistanceLanes(rows, residuals, k, d, 2, Hypot3(d[0], d[1], Filled<V>(0.0)), x[2]);
  }
};

}  // namespace

void CircleResiduals(const PointSet& points, std::int32_t first, std::int32_t count,
                     const NVector& x, double* out) {
  ForPointLanes(points, first, count, CircleResidualsBody{x, out},
                [&](std::int32_t k) { out[k] = CircleResidual(points, first + k, x); });
}

void CircleResidualRows(const PointSet& points, std::int32_t first, std::int32_t count,
                        const NVector& x, double* rows, double* residuals) {
  constexpr std::int32_t kParams = 3;
  ForPointLanes(points, first, count, CircleRowsBody{x, rows, residuals}, [&](std::int32_t k) {
    NVector view = VectorView(rows + static_cast<std::ptrdiff_t>(k) * kParams, kParams);
    CircleResidualRow(points, first + k, x, view, residuals[k]);
  });
}

double CircleObjective(void* context, const NVector& x) {
  return SumOfSquares(*static_cast<const PointSet*>(context), x, CircleResiduals);
}

void CircleGradient(void* context, NVector& x, NVector& gradient, NMatrix& normal) {
  NormalEquations(*static_cast<const PointSet*>(context), x, CircleResidualRows, gradient, normal);
}

}  // namespace numeric

namespace {

using numeric::NumericStatus;

// Parameters of the plane (point, normal) and of the in-plane circle (u, v, radius).
constexpr std::int32_t kPlaneParams = 6;
constexpr std::int32_t kCircleParams = 3;
// Enclosing ball: centre (3) and radius.
constexpr std::int32_t kBallParams = 4;
// Radius the in-plane minimisation starts from, whatever the scale of the points.
constexpr double kStartRadius = 1.0;
// Limits of the decomposition, the minimisation and the enclosing circle.
constexpr std::int32_t kSvdIterations = 200;
constexpr std::int32_t kMinimiserIterations = 200;
constexpr std::int32_t kEnclosingIterations = 200;
// Absolute step tolerance of the in-plane fit and tolerance of the enclosing circle.
constexpr double kStepTolerance = 1e-9;
constexpr double kEnclosingTolerance = 1e-9;
// Normal components below this magnitude are stored as exactly 0.
constexpr double kNormalZero = 1e-20;
// Starting values of the form scan: the minimum starts high at a fixed value (not at the
// largest double), the maximum at 0 so that all-negative deviations are measured from 0.
constexpr double kFormMinStart = 100000.0;
constexpr double kFormMaxStart = 0.0;

}  // namespace

void StoreCircleNormal(const numeric::NVector& params, double* record) {
  for (int k = 0; k < 3; ++k) {
    const double c = params[3 + k];
    record[3 + k] = std::fabs(c) < kNormalZero ? 0.0 : c;
  }
}

double CircleFormValue(const numeric::PointSet& points, const double* centre, double radius,
                       double* deviations) {
  double lo = kFormMinStart;
  double hi = kFormMaxStart;
  for (std::int32_t i = 0; i < points.count; ++i) {
    const double* p = points.Point(i);
    const double d = numeric::Hypot3(p[0] - centre[0], p[1] - centre[1], p[2] - centre[2]) - radius;
    deviations[i] = d;
    if (d < lo) lo = d;
    if (d > hi) hi = d;
  }
  return std::fabs(hi - lo);
}

ExtendedStatus MapInPlaneFailure(NumericStatus status) {
  if (status == NumericStatus::kIterationLimit) return ExtendedStatus::kCircleNumericFailure;
  if (status == NumericStatus::kBadArguments) return ExtendedStatus::kDegeneratePoints;
  return ExtendedStatus::kResourceFailure;
}

namespace {

// The fit after the centred copy (the centroid in record[0..2]) is made.
ExtendedStatus FitCircleExOnCopy(double* record, std::int32_t n, numeric::UniquePointSet copy,
                                 double* deviations) {
  const numeric::UniqueVector plane(numeric::CreateVector(kPlaneParams));
  const numeric::UniqueVector x(numeric::CreateVector(kCircleParams));
  if (!plane || !x) return ExtendedStatus::kResourceFailure;

  numeric::UniquePointFile saved(numeric::SavePoints(copy.get()));
  if (!saved) return ExtendedStatus::kResourceFailure;

  for (int k = 0; k < 3; ++k) {
    (*plane)[k] = 0.0;
    (*plane)[3 + k] = record[3 + k];
  }
  double accuracy = 0.0;
  if (numeric::PlaneNormalSVD(copy.get(), plane.get(), kSvdIterations, &accuracy) !=
      NumericStatus::kOk) {
    return ExtendedStatus::kCircleNumericFailure;
  }
  StoreCircleNormal(*plane, record);

  // The decomposition overwrote the copy: read the centred points back and undo the centring.
  if (numeric::RestorePoints(saved.release(), copy.get()) != 0) {
    return ExtendedStatus::kResourceFailure;
  }
  for (std::int32_t i = 0; i < n; ++i) {
    double* p = copy->Point(i);
    for (int k = 0; k < 3; ++k) p[k] += record[k];
  }
  saved.reset(numeric::SavePoints(copy.get()));
  if (!saved) return ExtendedStatus::kResourceFailure;

  numeric::ToPlaneFrame(copy.get(), *plane);
  (*x)[0] = 0.0;
  (*x)[1] = 0.0;
  (*x)[2] = kStartRadius;
  double objective = 0.0;
  const NumericStatus fit =
      numeric::MinimiseLM(copy.get(), numeric::CircleObjective, numeric::CircleGradient,
                          kMinimiserIterations, kStepTolerance, &objective, x.get(), &accuracy);
  if (fit != NumericStatus::kOk) {
    NumericStatus lastFailure = fit;
    const numeric::UniqueVector ball(numeric::CreateVector(kBallParams));
    if (ball) {
      (*ball)[0] = (*ball)[1] = (*ball)[2] = 0.0;
      (*ball)[3] = kStartRadius;
      lastFailure = numeric::SmallestEnclosingBall(copy.get(), ball.get(), kEnclosingIterations,
                                                   kEnclosingTolerance, true, &accuracy);
      if (lastFailure == NumericStatus::kOk) {
        (*x)[0] = (*ball)[0];
        (*x)[1] = (*ball)[1];
        (*x)[2] = (*ball)[3];  // the ball's z centre is 0 in the plane frame and dropped
      }
    }
    if (lastFailure != NumericStatus::kOk) return MapInPlaneFailure(lastFailure);
  }

  double u = (*x)[0];
  double v = (*x)[1];
  double w = 0.0;
  numeric::FromPlaneFrame(u, v, w);
  record[0] = u;
  record[1] = v;
  record[2] = w;
  const double radius = (*x)[2];
  record[6] = 2.0 * radius;

  // Without the input coordinates the form value stays as it was; the circle itself is good.
  if (numeric::RestorePoints(saved.release(), copy.get()) == 0) {
    record[7] = CircleFormValue(*copy, record, radius, deviations);
  }
  return ExtendedStatus::kOk;
}

template <class Points>
ExtendedStatus FitCircleExFrom(double* record, std::int32_t n, const Points& points,
                               double* deviations) {
  numeric::UniquePointSet copy;
  if (numeric::CentredCopy(n, points, record, true, copy) != NumericStatus::kOk) {
    return ExtendedStatus::kResourceFailure;
  }
  return FitCircleExOnCopy(record, n, std::move(copy), deviations);
}

}  // namespace

ExtendedStatus FitCircleEx(double* record, std::int32_t n, const KPt3<double>* points,
                           double* deviations) {
  return FitCircleExFrom(record, n, points, deviations);
}

ExtendedStatus FitCircleEx(double* record, std::int32_t n, const PointSource& points,
                           double* deviations) {
  return FitCircleExFrom(record, n, points, deviations);
}

}  // namespace metrofit

namespace {

// The whole fit (the entry point), or a fit for a start (no list from the least-squares
// start); `remake`, when given, makes the input's points again for the refinement, which
// then runs after they are freed.
enum class CircleExUse { kFull, kStart };

std::int32_t FitCircleExWith(CFitInput& in, CFitResult& out, CircleExUse use,
                             const metrofit::PointSource* remake = nullptr) noexcept {
  using namespace metrofit;
  try {
    in.m_fitType = FIT_CIRCLE;
    const std::size_t n = in.m_points.size();
    double rmax = 0.0;
    for (const KPt3<double>& p : in.m_points) {
      const double d = (p - in.m_refPoint).Length();
      if (d > rmax) rmax = d;
    }

    if (n > 2) {
      RunLeastSquaresDriver(in, out,
                            use == CircleExUse::kFull ? DriverResult::kComplete
                                                      : DriverResult::kWithoutListOrFormError);
      double record[kCircleRecordSize] = {0.0,          0.0,          0.0, out.m_axis.x,
                                          out.m_axis.y, out.m_axis.z, 0.0, 0.0};
      ExtendedStatus status = ExtendedStatus::kResourceFailure;
      if (n <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() / 3)) {
        // 3 n doubles of which the fit uses the first n: scratch, nothing of it is reported.
        numeric::UniqueDoubles deviations = numeric::AllocateDoubles(3 * n);
        if (deviations) {
          if (remake == nullptr) {
            status = FitCircleEx(record, static_cast<std::int32_t>(n), in.m_points.data(),
                                 deviations.get());
          } else {
            std::vector<KPt3<double>>().swap(in.m_points);
            status = FitCircleEx(record, static_cast<std::int32_t>(n), *remake, deviations.get());
          }
        }
      }
      out.m_center = KPt3<double>(record[0], record[1], record[2]);
      out.m_axis = KPt3<double>(record[3], record[4], record[5]);
      out.m_size1.x = record[6] * 0.5;
      out.m_formError = record[7];
      out.m_valid = ValidFlag(status);
    }
    if (out.m_valid != 0) return 1;

    // Fallback of the circle entry points: the reference point and the farthest point from it.
    // A failed fit of three or more points also gets it, and still returns 0.
    out.m_center = in.m_refPoint;
    out.m_size1.x = rmax;
    if (in.m_useReference) {
      out.m_axis = in.m_refDirection;
    } else if (n == 1 || n == 2) {
      out.m_axis = KPt3<double>(0.0, 0.0, 1.0);
    }
    return n == 1 || n == 2 ? 1 : 0;
  } catch (...) {
    // Nothing may cross the library boundary: any failure is a failed fit.
    out.m_valid = 0;
    return 0;
  }
}

}  // namespace

std::int32_t metrofit::FitCircleExInternal(CFitInput& in, CFitResult& out) noexcept {
  return FitCircleExWith(in, out, CircleExUse::kFull);
}

std::int32_t metrofit::FitCircleExForStart(CFitInput& in, CFitResult& out) noexcept {
  return FitCircleExWith(in, out, CircleExUse::kStart);
}

std::int32_t metrofit::FitCircleExForStartRemaking(CFitInput& in, CFitResult& out,
                                                   const PointSource& points) noexcept {
  return FitCircleExWith(in, out, CircleExUse::kStart, &points);
}

std::int32_t KFitCircleEx(CFitInput& in, CFitResult& out) {
  return metrofit::FitCircleExInternal(in, out);
}
