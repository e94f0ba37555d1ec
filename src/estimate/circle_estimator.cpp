// Circle start: the circle through three well-spread points of the set.
//
// Parameters: centre x, y, z, angle 1, angle 2, radius. Degenerate cases: fewer than three
// points write nothing; collinear points get the normal (0, 0, 1).
#include "estimate/estimate_common.h"

using metrofit::CircleFrom3Points;
using metrofit::DirectionToAngles;
using metrofit::WriteFreeParameter;

void CFitInput::EstimateCircle(CFitResult& result, double** constraints, double** params) {
  if (m_points.size() < 3) return;
  KPt3<double> q[3];
  // The flag is not examined: repeated points still give a start, and the iteration copes
  // with a poor one.
  GetFurthest3Points(q);
  KPt3<double> centre, normal;
  double radius = 0.0;
  CircleFrom3Points(q[0], q[1], q[2], &centre, &normal, &radius);
  // The normal keeps the sign the three points give it; the iteration settles orientation.
  DirectionToAngles(normal, &result.m_angles.x, &result.m_angles.y);
  // Centre and radius go into the parameter vector only, not into the result.
  WriteFreeParameter(constraints, params, 0, centre.x);
  WriteFreeParameter(constraints, params, 1, centre.y);
  WriteFreeParameter(constraints, params, 2, centre.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
  WriteFreeParameter(constraints, params, 5, radius);
}
