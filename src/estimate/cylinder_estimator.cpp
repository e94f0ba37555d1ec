// Cylinder start from the axis point C, unit axis A and radius r already in the result (put
// there by the fit that runs the iteration).
//
// C is slid along A into the coordinate plane across the dominant component of A:
//   t = C_k / |A_k|,  C' = C - A t   (k the dominant axis, so C'_k = 0),
// and coordinate k is fixed for the fit, which takes away the freedom of the axis point to
// slide along the axis.
//
// Parameters: location x, y, z, angle 1, angle 2, radius. Degenerate cases: fewer than two
// points write nothing; a tie with A_z = 0 gives a NaN location.
#include <cmath>

#include "core/constants.h"
#include "estimate/estimate_common.h"

namespace {

// Unlike the line start, every tie falls to the z plane, so one location coordinate is always
// fixed; callers never pass a tied axis with A_z = 0, which would make the location NaN.
void SlideIntoDominantPlane(const KPt3<double>& c, const KPt3<double>& a, CFitResult& result,
                            double** constraints) {
  const double ax = std::fabs(a.x), ay = std::fabs(a.y), az = std::fabs(a.z);
  if (ax > ay && ax > az) {
    const double t = (a.x / ax) * (c.x / a.x);
    result.m_center = KPt3<double>(0.0, c.y - a.y * t, c.z - a.z * t);
    constraints[0][0] = metrofit::kFixedWeight;
  } else if (ay > ax && ay > az) {
    const double t = (a.y / ay) * (c.y / a.y);
    result.m_center = KPt3<double>(c.x - a.x * t, 0.0, c.z - a.z * t);
    constraints[1][1] = metrofit::kFixedWeight;
  } else {
    const double t = (a.z / az) * (c.z / a.z);
    result.m_center = KPt3<double>(c.x - a.x * t, c.y - a.y * t, 0.0);
    constraints[2][2] = metrofit::kFixedWeight;
  }
}

}  // namespace

using metrofit::DirectionToAngles;
using metrofit::WriteFreeParameter;

void CFitInput::EstimateCylinder(CFitResult& result, double** constraints, double** params) {
  if (m_points.size() < 2) return;
  const KPt3<double> c = result.m_center;
  const KPt3<double> a = result.m_axis;
  const double r = result.m_size1.x;
  DirectionToAngles(a, &result.m_angles.x, &result.m_angles.y);
  SlideIntoDominantPlane(c, a, result, constraints);
  // The coordinate just fixed is not written and keeps the parameter vector's value.
  WriteFreeParameter(constraints, params, 0, result.m_center.x);
  WriteFreeParameter(constraints, params, 1, result.m_center.y);
  WriteFreeParameter(constraints, params, 2, result.m_center.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
  WriteFreeParameter(constraints, params, 5, r);
}
