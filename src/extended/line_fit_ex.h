// Extended line fit: orthogonal regression by singular value decomposition.
//
// The line minimising sum dist(p_i, line)^2 passes through the centroid g and runs along the
// right singular vector of the largest singular value of the centred points (p_i - g): that
// direction maximises the scatter along the line and so minimises the scatter across it.
// dist(p, line) = |(p - g) x u| for the unit direction u.
#ifndef METROFIT_EXTENDED_LINE_FIT_EX_H
#define METROFIT_EXTENDED_LINE_FIT_EX_H

#include <cstdint>
#include <vector>

#include "extended/extended_status.h"
#include "metrofit.h"

namespace metrofit {

// Working record: centre x, y, z; direction x, y, z; largest orthogonal distance; spare.
constexpr int kLineRecordSize = 8;

// Fits a line to n points (3 n doubles). `record` holds the previous direction (its sign
// reference) on entry and receives centre, direction and the largest orthogonal distance;
// `distances` (at least n doubles) receives the orthogonal distance of every point. Returns kOk,
// kResourceFailure (a centred copy could not be made), kAllocationFailure, kNumericFailure (the
// decomposition stopped at its limit or rejected its arguments), or kDegeneratePoints for
// exactly two coincident points.
ExtendedStatus FitLineEx(double* record, std::int32_t n, const double* points, double* distances);

// The same on points held as KPt3, with the same bits. `distances` may be null: the distances
// and the largest one (record[6]) are then neither computed nor written.
ExtendedStatus FitLineEx(double* record, std::int32_t n, const KPt3<double>* points,
                         double* distances);

// Whether the mean distance of the points from their plain centroid is below 1e1 double
// epsilons: KFitLineEx's test for a set of coincident points, which it settles without a fit.
bool PointsCoincide(const std::vector<KPt3<double>>& points);

}  // namespace metrofit

#endif  // METROFIT_EXTENDED_LINE_FIT_EX_H
