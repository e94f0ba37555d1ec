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

void CylinderResiduals(const PointSet& points, std::int32_t first, std::int32_t count,
                       const NVector& x, double* out) {
  const double a[3] = {x[3], x[4], x[5]};
  const double axisLength = Hypot3(a[0], a[1], a[2]);
  const double radius = x[6];
  std::int32_t k = 0;
  for (; k + 1 < count; k += 2) {
    const double* p = points.Point(first + k);
    const double* q = points.Point(first + k + 1);
    const DoublePair d0 = MakePair(p[0], q[0]) - x[0];
    const DoublePair d1 = MakePair(p[1], q[1]) - x[1];
    const DoublePair d2 = MakePair(p[2], q[2]) - x[2];
    // w = d x a, as Cross forms it.
    const DoublePair w0 = d1 * a[2] - d2 * a[1];
    const DoublePair w1 = d2 * a[0] - d0 * a[2];
    const DoublePair w2 = d0 * a[1] - d1 * a[0];
    const DoublePair r = Hypot3(w0, w1, w2) / axisLength - radius;
    out[k] = r[0];
    out[k + 1] = r[1];
  }
  if (k < count) out[k] = CylinderResidual(points, first + k, x);
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

void CylinderResidualRows(const PointSet& points, std::int32_t first, std::int32_t count,
                          const NVector& x, double* rows, double* residuals) {
  const double a[3] = {x[3], x[4], x[5]};
  std::int32_t k = 0;
  for (; k + 1 < count; k += 2) {
    const double* p = points.Point(first + k);
    const double* q = points.Point(first + k + 1);
    const DoublePair d[3] = {MakePair(p[0], q[0]) - x[0], MakePair(p[1], q[1]) - x[1],
                             MakePair(p[2], q[2]) - x[2]};
    const DoublePair w0 = d[1] * a[2] - d[2] * a[1];
    const DoublePair w1 = d[2] * a[0] - d[0] * a[2];
    const DoublePair w2 = d[0] * a[1] - d[1] * a[0];
    const DoublePair len = Hypot3(w0, w1, w2);
    const DoublePair r = len - x[6];
    const DoublePair t = d[0] * a[0] + d[1] * a[1] + d[2] * a[2];
    double* row[2] = {rows + static_cast<std::ptrdiff_t>(k) * kCylinderParams,
                      rows + static_cast<std::ptrdiff_t>(k + 1) * kCylinderParams};
    for (int lane = 0; lane < 2; ++lane) {
      residuals[k + lane] = r[lane];
      row[lane][6] = -1.0;
    }
    for (int j = 0; j < 3; ++j) {
      const DoublePair qj = (d[j] - t * a[j]) / len;
      const DoublePair tq = -t * qj;
      for (int lane = 0; lane < 2; ++lane) {
        // A point on the axis has no direction to move: its row is zero, as in the scalar form.
        const bool onAxis = len[lane] == 0.0;
        row[lane][j] = onAxis ? 0.0 : -qj[lane];
        row[lane][3 + j] = onAxis ? 0.0 : tq[lane];
      }
    }
  }
  if (k < count) {
    NVector view =
        VectorView(rows + static_cast<std::ptrdiff_t>(k) * kCylinderParams, kCylinderParams);
    CylinderResidualRow(points, first + k, x, view, residuals[k]);
  }
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
