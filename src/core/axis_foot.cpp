// Foot of the perpendicular from a point onto an axis line; see axis_foot.h.
#include "core/axis_foot.h"

#include "core/constants.h"

namespace metrofit {

KPt3<double> AxisFoot(const KPt3<double>& from, const KPt3<double>& axisPoint,
                      const KPt3<double>& direction) {
  const double len2 = direction.Dot(direction);
  const double t = len2 > kTinyLength ? (from - axisPoint).Dot(direction) / len2 : 0.0;
  return axisPoint + direction * t;
}

}  // namespace metrofit
