// Cone start from the point C and unit axis A already in the result, and the first and fourth
// points P0, P3.
//
// A is turned to point away from P3's side ((P3 - C) . A <= 0). In the frame of the rotation R
// whose axis row is A, q = R (p - C) gives each point's radial distance rho = |(q.x, q.y)| and
// axial position q.z. The slope (change of radius per unit of axial length) is
//   k = (rho0 - rho3) / |q3.z - q0.z|,
// and the apex is where the radius L = |C - P0| shrinks to zero along the turned axis:
//   apex = C - A (L / k).
//
// Parameters: apex x, y, z, angle 1, angle 2, slope. Degenerate case: P0 and P3 at the same
// axial position give an infinite or NaN slope, passed on unguarded.
#include <cmath>
#include <cstddef>

#include "estimate/estimate_common.h"

namespace {

// The estimate reads the fourth point; with fewer points nothing defined can be read.
constexpr std::size_t kPointsRead = 4;

KPt3<double> Rotate(const double r[9], const KPt3<double>& v) {
  return KPt3<double>(r[0] * v.x + r[1] * v.y + r[2] * v.z, r[3] * v.x + r[4] * v.y + r[5] * v.z,
                      r[6] * v.x + r[7] * v.y + r[8] * v.z);
}

double RadialDistance(const KPt3<double>& q) {
  return std::sqrt(q.x * q.x + q.y * q.y);
}

}  // namespace

using metrofit::DirectionToAngles;
using metrofit::WriteFreeParameter;

void CFitInput::EstimateCone(CFitResult& result, double** constraints, double** params) {
  // Callers always pass at least four points; fewer write nothing.
  if (m_points.size() < kPointsRead) return;
  const KPt3<double> c = result.m_center;
  const KPt3<double>& p0 = m_points[0];
  const KPt3<double>& p3 = m_points[3];
  KPt3<double> a = result.m_axis;
  // The turned axis is used for the start only; the result's axis is not changed.
  if ((p3 - c).Dot(a) > 0.0) a = -a;

  DirectionToAngles(a, &result.m_angles.x, &result.m_angles.y);
  result.m_angles.z = 0.0;
  double r[9];
  ConvertAnglesToMatrix(result.m_angles.x, result.m_angles.y, result.m_angles.z, r);
  const KPt3<double> q0 = Rotate(r, p0 - c);
  const KPt3<double> q3 = Rotate(r, p3 - c);

  // Unguarded: equal axial positions make the slope infinite or NaN, which the iteration meets.
  const double k = (RadialDistance(q0) - RadialDistance(q3)) / std::fabs(q3.z - q0.z);
  result.m_size2.z = k;
  const double l = (c - p0).Length();
  result.m_center = c - a * (l / k);

  WriteFreeParameter(constraints, params, 0, result.m_center.x);
  WriteFreeParameter(constraints, params, 1, result.m_center.y);
  WriteFreeParameter(constraints, params, 2, result.m_center.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
  WriteFreeParameter(constraints, params, 5, k);
}
