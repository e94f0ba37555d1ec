// Cylinder model and two-run minimiser; see cylinder_model.h.
#include "extended/cylinder_model.h"

#include <cmath>

#include "extended/extended_status.h"
#include "numeric/compensated.h"
#include "numeric/levenberg_marquardt.h"

namespace metrofit::numeric {
namespace {

void Cross(const double* u, const double* v, double* w) {
  w[0] = u[1] * v[2] - u[2] * v[1];
  w[1] = u[2] * v[0] - u[0] * v[2];
  w[2] = u[0] * v[1] - u[1] * v[0];
}

}  // namespace

void NormaliseCylinderParameters(NVector& x) {
  const double len = Hypot3(x[3], x[4], x[5]);
  for (int k = 3; k < 6; ++k) x[k] /= len;
  const double t = x[3] * x[0] + x[4] * x[1] + x[5] * x[2];
  for (int k = 0; k < 3; ++k) x[k] -= x[3 + k] * t;
  x[6] = std::fabs(x[6]);
}

double CylinderResidual(const PointSet& points, std::int32_t i, const NVector& x) {
  const double* p = points.Point(i);
  const double d[3] = {p[0] - x[0], p[1] - x[1], p[2] - x[2]};
  const double a[3] = {x[3], x[4], x[5]};
  double w[3];
  Cross(d, a, w);
  return Hypot3(w[0], w[1], w[2]) / Hypot3(a[0], a[1], a[2]) - x[6];
}

namespace {

// The residuals of points k onwards, written once for any lanes.
struct CylinderResidualsBody {
  const NVector& x;
  double axisLength;
  double* out;
  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    StoreLanes(out + k, AxisOffsetLanes<V>(p, x).cross / axisLength - x[6]);
  }
};

}  // namespace

void CylinderResiduals(const PointSet& points, std::int32_t first, std::int32_t count,
                       const NVector& x, double* out) {
  const double axisLength = Hypot3(x[3], x[4], x[5]);
  ForPointLanes(points, first, count, CylinderResidualsBody{x, axisLength, out},
                [&](std::int32_t k) { out[k] = CylinderResidual(points, first + k, x); });
}

void CylinderResidualRow(const PointSet& points, std::int32_t i, const NVector& x, NVector& row,
                         double& residual) {
  const double* p = points.Point(i);
  const double d[3] = {p[0] - x[0], p[1] - x[1], p[2] - x[2]};
  const double a[3] = {x[3], x[4], x[5]};
  double w[3];
  Cross(d, a, w);
  const double len = Hypot3(w[0], w[1], w[2]);
  residual = len - x[6];
  row[6] = -1.0;
  if (len == 0.0) {
    for (int k = 0; k < 6; ++k) row[k] = 0.0;
    return;
  }
  const double t = d[0] * a[0] + d[1] * a[1] + d[2] * a[2];
  for (int k = 0; k < 3; ++k) {
    const double q = (d[k] - t * a[k]) / len;
    row[k] = -q;
    row[3 + k] = -t * q;
  }
}

namespace {

// The rows and residuals of points k onwards, written once for any lanes (ForPointLanes).
struct CylinderRowsBody {
  const NVector& x;
  double* rows;
  double* residuals;

  template <class V>
  METROFIT_ALWAYS_INLINE void operator()(std::int32_t k, const V (&p)[3]) const {
    const double a[3] = {x[3], x[4], x[5]};
    const AxisOffsetLanes<V> o(p, x);
    const V& len = o.cross;
    const V& t = o.t;
    StoreLanes(residuals + k, len - x[6]);
    // A point on the axis has no direction to move: its row is zero, as in the scalar form.
    for (int j = 0; j < 3; ++j) {
      const V q = (o.d[j] - t * a[j]) / len;
      StoreRowLanes(rows, kCylinderParams, k, j, ZeroWhereZero(len, -q));
      StoreRowLanes(rows, kCylinderParams, k, 3 + j, ZeroWhereZero(len, -t * q));
    }
    StoreRowLanes(rows, kCylinderParams, k, 6, Filled<V>(-1.0));
  }
};

}  // namespace

void CylinderResidualRows(const PointSet& points, std::int32_t first, std::int32_t count,
                          const NVector& x, double* rows, double* residuals) {
  ForPointLanes(points, first, count, CylinderRowsBody{x, rows, residuals}, [&](std::int32_t k) {
    NVector view =
        VectorView(rows + static_cast<std::ptrdiff_t>(k) * kCylinderParams, kCylinderParams);
    CylinderResidualRow(points, first + k, x, view, residuals[k]);
  });
}

double CylinderObjective(void* context, const NVector& x) {
  return SumOfSquares(*static_cast<const PointSet*>(context), x, CylinderResiduals);
}

void CylinderGradient(void* context, NVector& x, NVector& gradient, NMatrix& normal) {
  NormaliseCylinderParameters(x);
  NormalEquations(*static_cast<const PointSet*>(context), x, CylinderResidualRows, gradient,
                  normal);
}

NumericStatus MinimiseCylinder(PointSet* points, NVector* x, std::int32_t maxIter, double tol) {
  NormaliseCylinderParameters(*x);
  double objective = 0.0;
  double accuracy = 0.0;
  NumericStatus status = MinimiseLM(points, CylinderObjective, CylinderGradient, maxIter, tol,
                                    &objective, x, &accuracy);
  if (status == NumericStatus::kBadArguments || status == NumericStatus::kAllocationFailure) {
    return status;
  }

  // A second run from the first solution polishes it; if it does not settle, the first
  // solution stands and counts as converged.
  double first[kCylinderParams];
  for (std::int32_t k = 0; k < kCylinderParams; ++k) first[k] = (*x)[k];
  status = MinimiseLM(points, CylinderObjective, CylinderGradient, maxIter, tol, &objective, x,
                      &accuracy);
  if (status != NumericStatus::kOk) {
    for (std::int32_t k = 0; k < kCylinderParams; ++k) (*x)[k] = first[k];
    status = NumericStatus::kOk;
  }
  NormaliseCylinderParameters(*x);
  return status;
}

double CylinderDeviations(const PointSet& points, const NVector& x, double* deviations) {
  const double a[3] = {x[3], x[4], x[5]};
  for (std::int32_t i = 0; i < points.count; ++i) {
    const double* p = points.Point(i);
    const double d[3] = {p[0] - x[0], p[1] - x[1], p[2] - x[2]};
    double w[3];
    Cross(d, a, w);
    const double e = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
    deviations[i] = e - x[6];
  }
  return SpreadFromZero(deviations, points.count);
}

}  // namespace metrofit::numeric
