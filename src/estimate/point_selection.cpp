// The centroid used by the point scans of the estimators.
#include "estimate/point_selection.h"

namespace metrofit {

// Sum times the reciprocal count, not sum divided by count: the two can differ in the last
// bit, and every scan that starts from the centroid depends on which one it is.
KPt3<double> PointsCentroid(const std::vector<KPt3<double>>& pts) {
  KPt3<double> sum;
  for (const KPt3<double>& p : pts) sum += p;
  return sum * (1.0 / static_cast<double>(pts.size()));
}

}  // namespace metrofit
