// Foot of the perpendicular from a point onto an axis line.
//
// For the line through c with direction a (of any length) the foot of the perpendicular from p is
//   f = c + t a,   t = ((p - c) . a) / |a|^2.
// When |a|^2 is not above the double machine epsilon the direction carries no information and
// t = 0: the axis point stays where it is rather than being divided by nothing.
#ifndef METROFIT_CORE_AXIS_FOOT_H
#define METROFIT_CORE_AXIS_FOOT_H

#include "metrofit.h"

namespace metrofit {

// Foot of the perpendicular from `from` onto the line through `axisPoint` along `direction`.
KPt3<double> AxisFoot(const KPt3<double>& from, const KPt3<double>& axisPoint,
                      const KPt3<double>& direction);

}  // namespace metrofit

#endif  // METROFIT_CORE_AXIS_FOOT_H
