// Extended circle fit: orthogonal-regression plane, then a least-squares circle in that plane.
//
// Plane: the normal is the right singular vector of the smallest singular value of the centred
// points (it minimises sum ((p_i - g) . m)^2 over unit m, g the centroid).
// Circle: the points are rotated into the plane frame (plane_frame.h) and (a, b, r) minimises
//   sum r_i^2,  r_i = |(u_i - a, v_i - b)| - r,
// by Levenberg-Marquardt from (0, 0, 1) (the in-plane centroid, unit radius), with the Jacobian
// row (-(u_i - a) / L_i, -(v_i - b) / L_i, -1), L_i = |(u_i - a, v_i - b)|, and (0, 0, -1) where
// L_i = 0 (the direction to the centre is undefined there). When the minimisation does not
// converge the smallest enclosing circle of the in-plane points takes its place.
// Form: d_i = |p_i - centre| - r over the input points in 3-D (a point's distance from the plane
// counts), and the form value is |max - min| with the running minimum starting at 100000.0 and
// the maximum at 0.0: deviations that are all negative are measured from 0.
#ifndef METROFIT_EXTENDED_CIRCLE_FIT_EX_H
#define METROFIT_EXTENDED_CIRCLE_FIT_EX_H

#include <cstdint>
#include <functional>

#include "extended/extended_status.h"
#include "metrofit.h"
#include "numeric/nvector.h"

namespace metrofit {

// Working record: centre x, y, z; normal x, y, z; diameter; form value.
constexpr int kCircleRecordSize = 8;

// Fits a circle to n points. `record` holds the previous normal (the sign reference of the new
// one) on entry and receives centre, normal, diameter and form value; `deviations` (at least n
// doubles) receives the signed 3-D radial deviations when the form is measured. Returns kOk,
// kResourceFailure (a point copy, work vector or temporary file failed), kDegeneratePoints (the
// in-plane fit or the enclosing circle rejected its points) or kCircleNumericFailure (the
// plane's decomposition failed, or the enclosing circle stopped at its limit). Every copy it
// parks in the point store (point_store.h) is released before it returns, on every path.
ExtendedStatus FitCircleEx(double* record, std::int32_t n, const KPt3<double>* points,
                           double* deviations);

// Points made one at a time, point(0) to point(n - 1).
using PointSource = std::function<KPt3<double>(std::int32_t)>;

// The same fit on points made by `points`, each asked for once: the points are read only to
// make the fit's centred copy.
ExtendedStatus FitCircleEx(double* record, std::int32_t n, const PointSource& points,
                           double* deviations);

// What KFitCircleEx does (it only forwards here), for fits inside the library that build on
// it; an exception becomes m_valid = 0 and a return of 0.
std::int32_t FitCircleExInternal(CFitInput& in, CFitResult& out) noexcept;

// The same for a fit that takes only the circle's centre, normal and size: the least-squares
// start makes no deviation list (nor the form error the refinement overwrites). Everything
// else as FitCircleExInternal.
std::int32_t FitCircleExForStart(CFitInput& in, CFitResult& out) noexcept;

// FitCircleExForStart on points made for this fit alone, which `points` can make again bit
// for bit: in.m_points is freed after the least-squares start, and the refinement's centred
// copy is made from `points`, so the points are never held twice.
std::int32_t FitCircleExForStartRemaking(CFitInput& in, CFitResult& out,
                                         const PointSource& points) noexcept;

// Stores params[3..5] as the record's normal, a component of magnitude below 1e-20 as exactly 0.
void StoreCircleNormal(const numeric::NVector& params, double* record);

// Fills deviations[i] = |p_i - centre| - radius and returns the form value described above.
double CircleFormValue(const numeric::PointSet& points, const double* centre, double radius,
                       double* deviations);

// Status of FitCircleEx for a failed in-plane fit, from the status of the last failed call:
// limit -> kCircleNumericFailure, bad arguments -> kDegeneratePoints, anything else ->
// kResourceFailure. The circle fit's own numbering, unlike ToExtendedStatus.
ExtendedStatus MapInPlaneFailure(numeric::NumericStatus status);

namespace numeric {

// In-plane circle model, parameters x = (a, b, r), points (u, v, 0).
double CircleResidual(const PointSet& points, std::int32_t i, const NVector& x);
void CircleResidualRow(const PointSet& points, std::int32_t i, const NVector& x, NVector& row,
                       double& residual);
// Both for a block of points, bit for bit the one-point forms, several points side by side
// (ForPointLanes).
void CircleResiduals(const PointSet& points, std::int32_t first, std::int32_t count,
                     const NVector& x, double* out);
void CircleResidualRows(const PointSet& points, std::int32_t first, std::int32_t count,
                        const NVector& x, double* rows, double* residuals);
// Objective callback: SumOfSquares of CircleResidual; the context is the PointSet.
double CircleObjective(void* context, const NVector& x);
// Gradient callback: NormalEquations of CircleResidualRow.
void CircleGradient(void* context, NVector& x, NVector& gradient, NMatrix& normal);

}  // namespace numeric
}  // namespace metrofit

#endif  // METROFIT_EXTENDED_CIRCLE_FIT_EX_H
