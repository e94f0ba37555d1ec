// Line start from the difference vectors of the points to the reference point R.
//
// Direction: S = sum of d_i = p_i - R, each d_i flipped when dx + dy + dz < 0 so that vectors
// pointing either way along the line add up instead of cancelling; S is then normalised.
// Location: the first point P slid along S into the coordinate plane across the dominant
// component of S (x = 0, y = 0 or z = 0), and that coordinate is fixed for the fit, which
// takes away the line's freedom to slide along itself.
//
// Parameters: location x, y, z, angle 1, angle 2. Degenerate cases: fewer than two points
// write nothing; a zero sum stays the zero vector; a tie between the largest components
// fixes no coordinate.
#include <cmath>

#include "core/constants.h"
#include "estimate/estimate_common.h"

namespace {

KPt3<double> FoldedDirectionSum(const std::vector<KPt3<double>>& pts, const KPt3<double>& ref) {
  KPt3<double> s;
  for (const KPt3<double>& p : pts) {
    const KPt3<double> d = p - ref;
    // Strictly negative only: a difference whose components sum to exactly 0 is kept as is.
    s += (d.x + d.y + d.z < 0.0) ? -d : d;
  }
  return s;
}

// Slides the first point along s into the plane of the dominant axis and fixes that axis.
// t is the coordinate divided by |component|, not by the signed component: for a negative
// dominant component the location lands on the mirrored side, off the line, and is kept so
// because the iteration moves it onto the line. On a tie no branch runs, the result's centre
// keeps its previous contents and no coordinate is fixed.
void SlideIntoDominantPlane(const KPt3<double>& p, const KPt3<double>& s, CFitResult& result,
                            double** constraints) {
  const double ax = std::fabs(s.x), ay = std::fabs(s.y), az = std::fabs(s.z);
  if (ax > ay && ax > az) {
    const double t = (p.x / s.x) * (s.x / ax);
    result.m_center = KPt3<double>(0.0, p.y - s.y * t, p.z - s.z * t);
    constraints[0][0] = metrofit::kFixedWeight;
  } else if (ay > ax && ay > az) {
    const double t = (p.y / s.y) * (s.y / ay);
    result.m_center = KPt3<double>(p.x - s.x * t, 0.0, p.z - s.z * t);
    constraints[1][1] = metrofit::kFixedWeight;
  } else if (az > ax && az > ay) {
    const double t = (p.z / s.z) * (s.z / az);
    result.m_center = KPt3<double>(p.x - s.x * t, p.y - s.y * t, 0.0);
    constraints[2][2] = metrofit::kFixedWeight;
  }
}

}  // namespace

using metrofit::DirectionToAngles;
using metrofit::WriteFreeParameter;

void CFitInput::EstimateLine(CFitResult& result, double** constraints, double** params) {
  if (m_points.size() < 2) return;
  KPt3<double> s = FoldedDirectionSum(m_points, m_refPoint);
  s.Normalize();
  DirectionToAngles(s, &result.m_angles.x, &result.m_angles.y);
  SlideIntoDominantPlane(m_points[0], s, result, constraints);
  // The coordinate just fixed has a non-zero diagonal now, so it is not written: it stays at
  // the value the parameter vector held, for the whole fit.
  WriteFreeParameter(constraints, params, 0, result.m_center.x);
  WriteFreeParameter(constraints, params, 1, result.m_center.y);
  WriteFreeParameter(constraints, params, 2, result.m_center.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
}
