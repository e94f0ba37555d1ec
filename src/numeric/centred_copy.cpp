// Centred working copies of point arrays; see centred_copy.h.
#include "numeric/centred_copy.h"

#include <cstddef>
#include <utility>

#include "numeric/compensated.h"

namespace metrofit::numeric {
namespace {

template <class Get>
NumericStatus CopyAndCentre(std::int32_t n, Get get, double* record, bool computeCentroid,
                            UniquePointSet& out) {
  out.reset();
  if (n < 0) return NumericStatus::kCopyFailed;
  UniquePointSet copy(CreatePointSet(n));
  if (!copy) return NumericStatus::kCopyFailed;
  // The three compensated sums run side by side while copying: each still adds its coordinate
  // point after point, so the centroid has the bits of three separate passes.
  KahanSum sum[3];
  for (std::int32_t i = 0; i < n; ++i) {
    double* p = copy->Point(i);
    const KPt3<double> q = get(i);
    p[0] = q.x;
    p[1] = q.y;
    p[2] = q.z;
    if (computeCentroid) {
      for (int k = 0; k < 3; ++k) sum[k].Add(p[k]);
    }
  }
  if (computeCentroid && n > 0) {
    for (int k = 0; k < 3; ++k) record[k] = sum[k].Sum() / n;
  }
  const double c[3] = {record[0], record[1], record[2]};
  for (std::int32_t i = 0; i < n; ++i) {
    double* p = copy->Point(i);
    for (int k = 0; k < 3; ++k) p[k] -= c[k];
  }
  out = std::move(copy);
  return NumericStatus::kOk;
}

}  // namespace

NumericStatus CentredCopy(std::int32_t n, const double* xyz, double* record, bool computeCentroid,
                          UniquePointSet& out) {
  return CopyAndCentre(
      n,
      [xyz](std::int32_t i) {
        const double* p = xyz + 3 * static_cast<std::ptrdiff_t>(i);
        return KPt3<double>(p[0], p[1], p[2]);
      },
      record, computeCentroid, out);
}

NumericStatus CentredCopy(std::int32_t n, const KPt3<double>* points, double* record,
                          bool computeCentroid, UniquePointSet& out) {
  return CopyAndCentre(
      n, [points](std::int32_t i) { return points[i]; }, record, computeCentroid, out);
}

NumericStatus CentredCopy(std::int32_t n, const std::function<KPt3<double>(std::int32_t)>& point,
                          double* record, bool computeCentroid, UniquePointSet& out) {
  return CopyAndCentre(n, point, record, computeCentroid, out);
}

}  // namespace metrofit::numeric
