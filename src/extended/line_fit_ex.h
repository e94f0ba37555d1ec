// Extended line fit: orthogonal regression by singular value decomposition.
//
// The line minimising sum dist(p_i, line)^2 passes through the centroid g and runs along the
// right singular vector of the largest singular value of the centred points (p_i - g): that
// direction maximises the scatter along the line and so minimises the scatter across it.
// dist(p, line) = |(p - g) x u| for the unit direction u.
#ifndef METROFIT_EXTENDED_LINE_FIT_EX_H
#define METROFIT_EXTENDED_LINE_FIT_EX_H

#include <cstdint>

#include "extended/extended_status.h"

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

}  // namespace metrofit

#endif  // METROFIT_EXTENDED_LINE_FIT_EX_H
