// Cylinder model of the extended cylinder fit and its two-run minimiser.
//
// Parameters x = (c, a, r): a point c on the axis, the axis direction a (any length, either
// sign) and the radius r. For a point p the residual is the distance from the axis minus r:
//   r_p = |(p - c) x a| / |a| - r   (lengths by the overflow-safe Hypot3).
// Jacobian row with a taken as a unit vector, d = p - c, w = d x a, L = |w|, t = d . a and
// q = (d - t a) / L, the unit vector from the axis towards p:
//   dr/dc = -q,  dr/da = -t q,  dr/dr = -1,
// and (0, 0, 0, 0, 0, 0, -1) where L = 0 (the direction from the axis is undefined there). The
// derivative by a is the one tangent to the unit sphere, so steps keep |a| near 1.
// The model is invariant to the length and sign of a, to the radius' sign and to sliding c
// along the axis; normalising fixes one representative: a / |a|, c moved to the foot of the
// perpendicular from the origin (c - a (a . c)), |r|. The gradient callback normalises before
// every evaluation, which keeps those directions from drifting.
#ifndef METROFIT_EXTENDED_CYLINDER_MODEL_H
#define METROFIT_EXTENDED_CYLINDER_MODEL_H

#include <cstdint>

#include "numeric/nvector.h"

namespace metrofit::numeric {

// Number of cylinder parameters: point (3), axis (3), radius.
constexpr std::int32_t kCylinderParams = 7;

// Brings x (at least 7 elements) into the normal form described above, in place.
void NormaliseCylinderParameters(NVector& x);

double CylinderResidual(const PointSet& points, std::int32_t i, const NVector& x);
// CylinderResidual of a block of points, bit for bit: |a| once per block, two points side by
// side.
void CylinderResiduals(const PointSet& points, std::int32_t first, std::int32_t count,
                       const NVector& x, double* out);
// CylinderResidualRow of a block of points, bit for bit, several points side by side
// (ForPointLanes).
void CylinderResidualRows(const PointSet& points, std::int32_t first, std::int32_t count,
                          const NVector& x, double* rows, double* residuals);
void CylinderResidualRow(const PointSet& points, std::int32_t i, const NVector& x, NVector& row,
                         double& residual);
// Objective callback: SumOfSquares of CylinderResidual; the context is the PointSet.
double CylinderObjective(void* context, const NVector& x);
// Gradient callback: normalises x, then NormalEquations of CylinderResidualRow.
void CylinderGradient(void* context, NVector& x, NVector& gradient, NMatrix& normal);

// Minimises the cylinder objective over the points from x (7 elements, overwritten): normalise,
// MinimiseLM, and a second MinimiseLM from the first solution; when the second run does not
// converge the first solution is kept and the outcome is still kOk. Returns kOk, or the first
// run's status when it is kBadArguments or kAllocationFailure, then with x as that run left it.
NumericStatus MinimiseCylinder(PointSet* points, NVector* x, std::int32_t maxIter, double tol);

// Distances e_i = |(p_i - c) x a| of the points from the axis (a as given, not divided by its
// length), deviations[i] = e_i - r; returns the form value |max - min| with both starting at 0.
double CylinderDeviations(const PointSet& points, const NVector& x, double* deviations);

}  // namespace metrofit::numeric

#endif  // METROFIT_EXTENDED_CYLINDER_MODEL_H
