// Working copy of a fit's points, shifted by the centre held in the fit's working record.
//
// The fits built on the numeric core work on p - c rather than p: with c near the points the
// coordinates that enter squares and cross products are of the feature's size instead of the
// machine's range (500 mm from the origin for a 10 mm feature), which is worth two or three
// digits in every residual.
#ifndef METROFIT_NUMERIC_CENTRED_COPY_H
#define METROFIT_NUMERIC_CENTRED_COPY_H

#include <cstdint>
#include <functional>

#include "metrofit.h"
#include "numeric/nvector.h"

namespace metrofit::numeric {

// Copies the n points (3 n doubles, x y z per point) into a new PointSet `out`. When
// computeCentroid is set, the centroid (compensated sum per coordinate) is stored into
// record[0..2] first (for n >= 1; with no points the record is left alone). Then record[0..2] is
// subtracted from every point of the copy. Returns kOk, or kCopyFailed when the copy cannot be
// made or n is negative (out is then empty).
NumericStatus CentredCopy(std::int32_t n, const double* xyz, double* record, bool computeCentroid,
                          UniquePointSet& out);
// The same for points held as KPt3.
NumericStatus CentredCopy(std::int32_t n, const KPt3<double>* points, double* record,
                          bool computeCentroid, UniquePointSet& out);
// The same for points made one at a time, point(0) to point(n - 1), each asked for once.
NumericStatus CentredCopy(std::int32_t n, const std::function<KPt3<double>(std::int32_t)>& point,
                          double* record, bool computeCentroid, UniquePointSet& out);

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_CENTRED_COPY_H
