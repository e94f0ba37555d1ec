// A unit direction n as the two angles of the rotation convention, whose axis row is
//   (sin a2, -cos a2 sin a1, cos a2 cos a1):
//   a2 = atan2(nx, sqrt(1 - nx^2) + 1e-20),  a1 = atan2(-ny / cos a2, nz / cos a2).
// a2 lies in [-pi/2, pi/2] and a1 in (-pi, pi]; neither is wrapped into [0, 2 pi).
#include <cmath>

#include "estimate/estimate_common.h"

namespace metrofit {
namespace {

// Keeps the second argument of atan2 positive for nx = +1 or -1, so a2 is then +pi/2 or -pi/2
// rather than depending on the sign of a zero.
constexpr double kAtan2Lift = 1e-20;

}  // namespace

// The direction is used as given: a vector that is not of unit length gives angles whose
// rebuilt axis is not its direction, which callers that pass one rely on as it stands.
void DirectionToAngles(const KPt3<double>& n, double* a1, double* a2) {
  *a2 = std::atan2(n.x, std::sqrt(1.0 - n.x * n.x) + kAtan2Lift);
  const double c2 = std::cos(*a2);
  *a1 = std::atan2(-n.y / c2, n.z / c2);
}

}  // namespace metrofit
