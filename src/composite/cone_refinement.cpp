// Cone refinement of one cone candidate. The least-squares cone iterates on an algebraic
// condition from its apex, which is poorly placed for flat cones; this refinement minimises
// true surface distances in a form that stays regular for every half-angle, and only where it
// fails does the candidate fall back to the least-squares driver.
#include "composite/cone_refinement.h"

#include <cmath>
#include <vector>

#include "composite/cylinder_cone_fit.h"
#include "core/constants.h"
#include "numeric/centred_copy.h"
#include "numeric/compensated.h"
#include "numeric/levenberg_marquardt.h"

namespace metrofit {
namespace {

using numeric::NVector;
using numeric::PointSet;

constexpr std::int32_t kMaxIterations = 100;
constexpr double kStepTolerance = 1e-10;
// Twice the half-angle in degrees: 2 x 180 / pi.
constexpr double kRadiansToFullDegrees = 114.59155902616465;
// Full apex angle start when the candidate has no slope start.
constexpr double kDefaultApexAngle = 180.0;
// A slope start at or below this is treated as missing.
constexpr double kMinSlopeStart = 1e-5;
// Half-angles below this have no usable apex.
constexpr double kMinHalfAngle = 1e-8;
// The slope 1 / tan(x7) is reported only for tangents above this.
constexpr double kMinTangent = 1e-5;
// Largest number of whole turns that the canonical form removes one at a time (see there).
constexpr double kMaxTurnsByLoop = 1e6;

struct Deviation {
  double min = kSentinel, max = -kSentinel;
  numeric::KahanSum sum, sumSq;
};

void QAndAxis(const PointSet& pts, std::int32_t i, const NVector& x, double q[3], double a[3]) {
  const double* p = pts.Point(i);
  for (int k = 0; k < 3; ++k) {
    q[k] = p[k] - x[k];
    a[k] = x[3 + k];
  }
}

double CrossLength(const double q[3], const double a[3]) {
  return numeric::Hypot3(q[1] * a[2] - q[2] * a[1], q[2] * a[0] - q[0] * a[2],
                         q[0] * a[1] - q[1] * a[0]);
}

double ApexAngleStart(const CFitInput& in) {
  const double slope = in.m_size2Param.value.z;
  return slope > kMinSlopeStart ? std::atan2(1.0, slope) * kRadiansToFullDegrees
                                : kDefaultApexAngle;
}

Deviation Deviations(const PointSet& pts, const NVector& x) {
  Deviation d;
  for (std::int32_t i = 0; i < pts.count; ++i) {
    double q[3], a[3];
    QAndAxis(pts, i, x, q, a);
    const double rho = CrossLength(q, a);
    const double z = a[0] * q[0] + a[1] * q[1] + a[2] * q[2];
    const double dev = rho * std::cos(x[7]) - z * std::sin(x[7]) - x[6];
    d.min = std::fmin(d.min, dev);
    d.max = std::fmax(d.max, dev);
    d.sum.Add(dev);
    d.sumSq.Add(dev * dev);
  }
  return d;
}

void WriteCone(const CFitInput& in, const PointSet& pts, const NVector& x, CFitResult& out) {
  const KPt3<double> axis(x[3], x[4], x[5]);
  const KPt3<double> centre = in.m_centerParam.value + KPt3<double>(x[0], x[1], x[2]);
  out.m_center =
      std::fabs(x[7]) > kMinHalfAngle ? centre - axis * (x[6] / std::sin(x[7])) : KPt3<double>();
  out.m_axis = axis;
  if (std::tan(x[7]) > kMinTangent) out.m_size2.z = 1.0 / std::tan(x[7]);
  const Deviation d = Deviations(pts, x);
  const double n = pts.count;
  const double s1 = d.sum.Sum(), s2 = d.sumSq.Sum();
  out.m_sigma = std::sqrt(std::fabs(n * s2 - s1 * s1) / (n * std::fmax(n - 1.0, 1.0)));
  out.m_formError = std::fabs(d.max - d.min);
  out.m_valid = 1;
}

// The minimiser's statuses in the numbering of the cone fit: limit 1 -> 3, arguments 2 -> 2,
// memory 3 -> 1.
std::int32_t RemapStatus(numeric::NumericStatus s) {
  switch (s) {
    case numeric::NumericStatus::kIterationLimit:
      return 3;
    case numeric::NumericStatus::kAllocationFailure:
      return 1;
    default:
      return static_cast<std::int32_t>(s);
  }
}

}  // namespace

double ConeResidual(const PointSet& pts, std::int32_t i, const NVector& x) {
  double q[3], a[3];
  QAndAxis(pts, i, x, q, a);
  const double rho = CrossLength(q, a);
  const double t = q[0] * a[0] + q[1] * a[1] + q[2] * a[2];
  const double len = numeric::Hypot3(a[0], a[1], a[2]);
  return (rho * std::cos(x[7]) - t * std::sin(x[7])) / len - x[6];
}

namespace {

// The residuals, and the rows, of points k onwards, written once for any lanes; the angle's
// cosine c and sine s and the axis length are made once per block.
struct ConeResidualsBody {
  const NVector& x;
  double len, c, s;
  double* out;
  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    const numeric::AxisOffsetLanes<V> o(p, x);
    numeric::StoreLanes(out + k, (o.cross * c - o.t * s) / len - x[6]);
  }
};

struct ConeRowsBody {
  static constexpr std::int32_t kParams = 8;
  const NVector& x;
  double c, s;
  double* rows;
  double* residuals;
  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    const double a[3] = {x[3], x[4], x[5]};
    const numeric::AxisOffsetLanes<V> o(p, x);
    const V& rho = o.cross;
    const V& t = o.t;
    numeric::StoreLanes(residuals + k, rho * c - t * s - x[6]);
    // On the axis (rho = 0) position and axis have no derivative, as in the one-point form.
    for (int j = 0; j < 3; ++j) {
      const V w = o.d[j] - t * a[j];
      const V position = s * a[j] - c * w / rho;
      const V axis = -(t * c / rho + s) * w;
      numeric::StoreRowLanes(rows, kParams, k, j, numeric::ZeroWhereZero(rho, position));
      numeric::StoreRowLanes(rows, kParams, k, 3 + j, numeric::ZeroWhereZero(rho, axis));
    }
    numeric::StoreRowLanes(rows, kParams, k, 6, Filled<V>(-1.0));
    numeric::StoreRowLanes(rows, kParams, k, 7, -t * c - rho * s);
  }
};

}  // namespace

void ConeResiduals(const PointSet& pts, std::int32_t first, std::int32_t count, const NVector& x,
                   double* out) {
  const double len = numeric::Hypot3(x[3], x[4], x[5]);
  numeric::ForPointLanes(pts, first, count,
                         ConeResidualsBody{x, len, std::cos(x[7]), std::sin(x[7]), out},
                         [&](std::int32_t k) { out[k] = ConeResidual(pts, first + k, x); });
}

void ConeResidualRows(const PointSet& pts, std::int32_t first, std::int32_t count, const NVector& x,
                      double* rows, double* residuals) {
  numeric::ForPointLanes(
      pts, first, count, ConeRowsBody{x, std::cos(x[7]), std::sin(x[7]), rows, residuals},
      [&](std::int32_t k) {
        NVector view = numeric::VectorView(
            rows + static_cast<std::ptrdiff_t>(k) * ConeRowsBody::kParams, ConeRowsBody::kParams);
        ConeResidualRow(pts, first + k, x, view, residuals[k]);
      });
}

void CanonicalCone(NVector& x) {
  const double pi = 4.0 * std::atan(1.0);
  const double len = numeric::Hypot3(x[3], x[4], x[5]);
  for (int k = 3; k < 6; ++k) x[k] /= len;
  const double t = x[0] * x[3] + x[1] * x[4] + x[2] * x[5];
  for (int k = 0; k < 3; ++k) x[k] -= t * x[3 + k];
  x[6] -= std::sin(x[7]) * t;
  if (x[6] < 0.0) {
    x[6] = -x[6];
    for (int k = 3; k < 6; ++k) x[k] = -x[k];
  }
  // An infinite angle is left as it is (its objective is NaN, which the minimiser never
  // accepts). A finite one beyond kMaxTurnsByLoop turns is first reduced by the exact
  // remainder: one turn at a time would take too long, and from about 1e16 on subtracting 2 pi
  // no longer changes x7 at all, so the loops below would never end.
  if (std::isfinite(x[7])) {
    if (std::fabs(x[7]) > kMaxTurnsByLoop * 2.0 * pi) x[7] = std::fmod(x[7], 2.0 * pi);
    while (x[7] < 0.0) x[7] += 2.0 * pi;
    while (x[7] > 2.0 * pi) x[7] -= 2.0 * pi;
  }
  if (x[7] > pi) {
    for (int k = 3; k < 6; ++k) x[k] = -x[k];
    x[7] -= pi;
  }
  // Deliberately without turning the axis: the half-angle is folded into [0, pi/2] alone.
  if (x[7] > pi / 2.0) x[7] = pi - x[7];
}

double ConeObjective(void* points, const NVector& x) {
  return numeric::SumOfSquares(*static_cast<PointSet*>(points), x, ConeResiduals);
}

void ConeGradient(void* points, NVector& x, NVector& gradient, numeric::NMatrix& normal) {
  CanonicalCone(x);
  numeric::NormalEquations(*static_cast<PointSet*>(points), x, ConeResidualRows, gradient, normal);
}

void ConeResidualRow(const PointSet& pts, std::int32_t i, const NVector& x, NVector& row,
                     double& residual) {
  double q[3], a[3];
  QAndAxis(pts, i, x, q, a);
  const double rho = CrossLength(q, a);
  const double t = q[0] * a[0] + q[1] * a[1] + q[2] * a[2];
  const double c = std::cos(x[7]), s = std::sin(x[7]);
  residual = rho * c - t * s - x[6];
  for (int k = 0; k < 3; ++k) {
    const double w = q[k] - t * a[k];
    row[k] = rho != 0.0 ? s * a[k] - c * w / rho : 0.0;
    row[3 + k] = rho != 0.0 ? -(t * c / rho + s) * w : 0.0;
  }
  row[6] = -1.0;
  row[7] = -t * c - rho * s;
}

numeric::NumericStatus MinimiseCone(PointSet& points, NVector& x, std::int32_t maxIter,
                                    double tol) {
  CanonicalCone(x);
  double f = 0.0, accuracy = 0.0;
  numeric::NumericStatus status = numeric::MinimiseLMObjective(&points, ConeObjective, ConeGradient,
                                                               maxIter, tol, &f, &x, &accuracy);
  // A run that failed outright (arguments, memory) ends here; a converged or limited one is
  // run again.
  if (status != numeric::NumericStatus::kOk && status != numeric::NumericStatus::kIterationLimit) {
    return status;
  }
  CanonicalCone(x);
  status = numeric::MinimiseLMObjective(&points, ConeObjective, ConeGradient, maxIter, tol, &f, &x,
                                        &accuracy);
  CanonicalCone(x);
  return status;
}

std::int32_t RefineCone(CFitInput& in, CFitResult& out) {
  const double apexAngle = ApexAngleStart(in);
  double record[3] = {in.m_centerParam.value.x, in.m_centerParam.value.y, in.m_centerParam.value.z};
  numeric::UniquePointSet pts;
  const numeric::NumericStatus prep = numeric::CentredCopy(
      static_cast<std::int32_t>(in.m_points.size()), in.m_points.data(), record, false, pts);
  // A copy that cannot be made keeps its number 1, the cone fit's number for no memory.
  if (prep != numeric::NumericStatus::kOk) return static_cast<std::int32_t>(prep);
  out.m_valid = 0;

  numeric::UniqueVector x(numeric::CreateVector(kConeParameters));
  if (!x) return RemapStatus(numeric::NumericStatus::kAllocationFailure);
  const KPt3<double>& a = in.m_axisParam.value;
  // Kept as the fit has always started: the apex-angle start goes into the radial-offset slot
  // and the half-angle starts at 0, so the first model is a cylinder about the candidate axis.
  const double start[kConeParameters] = {0.0, 0.0, 0.0, a.x, a.y, a.z, apexAngle, 0.0};
  for (int k = 0; k < kConeParameters; ++k) (*x)[k] = start[k];

  const numeric::NumericStatus status = MinimiseCone(*pts, *x, kMaxIterations, kStepTolerance);
  if (status != numeric::NumericStatus::kOk) return RemapStatus(status);
  WriteCone(in, *pts, *x, out);
  return 0;
}

}  // namespace metrofit
