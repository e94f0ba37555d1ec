// Extended sphere fit: smallest enclosing sphere as the start, then a Levenberg-Marquardt
// minimisation of the sum of squared radial deviations.
//
// Model, parameters x = (a, b, c, r), point p, d = p - (a, b, c), L = |d|:
//   residual  L - r;
//   Jacobian  (-d / L, -1), and (0, 0, 0, -1) where L = 0 (the direction is undefined there);
// the gradient callback replaces a negative r by -r in x before building J^T r and J^T J: the
// residual only sees |p - c|, so -r is the mirror solution and the fit reports a radius >= 0.
#ifndef METROFIT_EXTENDED_SPHERE_FIT_EX_H
#define METROFIT_EXTENDED_SPHERE_FIT_EX_H

#include <cstdint>

#include "extended/extended_status.h"
#include "metrofit.h"
#include "numeric/nvector.h"

namespace metrofit {

// Working record: centre x, y, z; diameter; form value.
constexpr int kSphereRecordSize = 5;

// Fits a sphere to n points (3 n doubles). `record` starts as the caller's working record (all
// zero from KFitSphereEx) and receives centre, diameter and form; `deviations` (at least n
// doubles) receives the signed radial deviations. Returns kOk, kResourceFailure (a centred copy
// could not be made), kAllocationFailure, kEnclosingSphereFailed or kNumericFailure (the record
// then holds the enclosing centre and the enclosing radius in its diameter slot).
ExtendedStatus FitSphereEx(double* record, std::int32_t n, const double* points,
                           double* deviations);
// The same on points held as KPt3, with the same bits.
ExtendedStatus FitSphereEx(double* record, std::int32_t n, const KPt3<double>* points,
                           double* deviations);

namespace numeric {

double SphereResidual(const PointSet& points, std::int32_t i, const NVector& x);
void SphereResidualRow(const PointSet& points, std::int32_t i, const NVector& x, NVector& row,
                       double& residual);
// Both for a block of points, bit for bit the one-point forms, several points side by side
// (ForPointLanes).
void SphereResiduals(const PointSet& points, std::int32_t first, std::int32_t count,
                     const NVector& x, double* out);
void SphereResidualRows(const PointSet& points, std::int32_t first, std::int32_t count,
                        const NVector& x, double* rows, double* residuals);
// Objective callback: SumOfSquares of SphereResidual; the context is the PointSet.
double SphereObjective(void* context, const NVector& x);
// Gradient callback: the radius sign fix, then NormalEquations of SphereResidualRow.
void SphereGradient(void* context, NVector& x, NVector& gradient, NMatrix& normal);

}  // namespace numeric
}  // namespace metrofit

#endif  // METROFIT_EXTENDED_SPHERE_FIT_EX_H
