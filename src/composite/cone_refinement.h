// Cone model of the cone refinement on the Levenberg-Marquardt core.
//
// Parameters x (8): x0..x2 a point on the axis, x3..x5 the axis direction, x6 the radial
// offset (distance of the surface from the axis point, measured normal to the surface), x7 the
// half-angle. For q = p - (x0, x1, x2), rho = |q x a| and t = q . a with a of unit length, the
// signed distance of p from the surface is
//   r = rho cos x7 - t sin x7 - x6,
// so the cone opens towards +a and its apex is (x0, x1, x2) - a x6 / sin x7.
#ifndef METROFIT_COMPOSITE_CONE_REFINEMENT_H
#define METROFIT_COMPOSITE_CONE_REFINEMENT_H

#include <cstdint>

#include "numeric/nvector.h"

namespace metrofit {

constexpr int kConeParameters = 8;

// Brings x into canonical form in place: unit axis, axis point at the foot of the perpendicular
// from the origin, x6 >= 0, x7 in [0, pi/2].
void CanonicalCone(numeric::NVector& x);

// Sum of squared residuals, x taken as it stands (the axis need not be unit).
double ConeObjective(void* points, const numeric::NVector& x);

// Canonicalises x, then fills gradient J^T r and normal matrix J^T J.
void ConeGradient(void* points, numeric::NVector& x, numeric::NVector& gradient,
                  numeric::NMatrix& normal);

// Residual and Jacobian row of point i (x canonical).
void ConeResidualRow(const numeric::PointSet& points, std::int32_t i, const numeric::NVector& x,
                     numeric::NVector& row, double& residual);

// The objective's residual of point i, and both forms for a block of points: bit for bit the
// one-point forms, with the angle's sine and cosine and |a| once per block and two points side
// by side.
double ConeResidual(const numeric::PointSet& points, std::int32_t i, const numeric::NVector& x);
void ConeResiduals(const numeric::PointSet& points, std::int32_t first, std::int32_t count,
                   const numeric::NVector& x, double* out);
void ConeResidualRows(const numeric::PointSet& points, std::int32_t first, std::int32_t count,
                      const numeric::NVector& x, double* rows, double* residuals);

// Canonicalise, minimise, and when that did not fail outright, canonicalise and minimise
// again from where the first run stopped. Returns the status of the last run.
numeric::NumericStatus MinimiseCone(numeric::PointSet& points, numeric::NVector& x,
                                    std::int32_t maxIter, double tol);

}  // namespace metrofit

#endif  // METROFIT_COMPOSITE_CONE_REFINEMENT_H
