// Ellipse start from the circle through three well-spread points Q0, Q1, Q2.
//
// The circle gives the centre C, unit normal N and radius r; N' is N turned so that
// (Q0 - C) . N' <= 0. The frame U = (Q1 - Q0)/|Q1 - Q0|, V = N' x U (normalised), W = V x N'
// gives the orientation angles from the rows (W, V, N') and a second set of three angles from
// the rows (V, N', W), which is stored in m_size3. The centre is moved along N' by h, from a
// slope k measured between Q0 and Q1 in the rotated frame (h = L / k with L = |Q0 - C|, or the
// radial difference when k is 0).
//
// What goes into the parameter vector: centre x, y, z, angle 1, angle 2, and in slots 5 and 6,
// the model's semi-axes A (along the axis) and B (across it), the first two angles of the rows
// (V, N', W): values in [0, 2 pi), not lengths. The circle's radius r is written to m_size1.x
// and m_size1.y of the result only, which the ellipse model does not read, and m_size1.z gets
// the projection parameter of Q2 on the segment Q0 -> Q1. From this start the iteration does
// not converge on points of a planar ellipse; a caller supplies the axis and nominal sizes.
// Degenerate cases: with fewer than three points the repeated points are used as they are.
#include <cmath>

#include "estimate/estimate_common.h"

namespace {

KPt3<double> Rotate(const double r[9], const KPt3<double>& v) {
  return KPt3<double>(r[0] * v.x + r[1] * v.y + r[2] * v.z, r[3] * v.x + r[4] * v.y + r[5] * v.z,
                      r[6] * v.x + r[7] * v.y + r[8] * v.z);
}

double RadialDistance(const KPt3<double>& q) {
  return std::sqrt(q.x * q.x + q.y * q.y);
}

// Offset of the centre along the normal. With no axial spread between Q0 and Q1 the slope of
// an earlier fit (already in the result) is kept, so a non-zero leftover moves the centre.
double NormalOffset(const KPt3<double>& q0, const KPt3<double>& q1, double l, CFitResult& result) {
  const double s = RadialDistance(q0) - RadialDistance(q1);
  const double d = std::fabs(q1.z - q0.z);
  double k = result.m_size2.z;
  if (d != 0.0) {
    k = s / d;
    result.m_size2.z = k;
  }
  return std::fabs(k) != 0.0 ? l / k : s;
}

}  // namespace

using metrofit::CircleFrom3Points;
using metrofit::WriteFreeParameter;

void CFitInput::EstimateEllipse(CFitResult& result, double** constraints, double** params) {
  KPt3<double> q[3];
  GetFurthest3Points(q);
  KPt3<double> c, n;
  double r = 0.0;
  CircleFrom3Points(q[0], q[1], q[2], &c, &n, &r);
  // Q0 lies in the circle's plane, so this decides on rounding residue only; kept as it is
  // because the sign of the start normal follows from it.
  if ((q[0] - c).Dot(n) > 0.0) n = -n;

  KPt3<double> u = q[1] - q[0];
  u.Normalize();
  KPt3<double> v = n.Cross(u);
  v.Normalize();
  const KPt3<double> w = v.Cross(n);

  KPt3<double> frame[3] = {w, v, n};
  // Delivered as a1, a3, a2 on purpose: the frame's second angle lands in a3 and its third in
  // a2. The rotation below and the iteration start from the angles in this arrangement.
  ConvertMatrixTo3Angles(frame, &result.m_angles.x, &result.m_angles.z, &result.m_angles.y);

  double rot[9];
  ConvertAnglesToMatrix(result.m_angles.x, result.m_angles.y, result.m_angles.z, rot);
  const double h =
      NormalOffset(Rotate(rot, q[0] - c), Rotate(rot, q[1] - c), (q[0] - c).Length(), result);
  result.m_center = c - n * h;
  result.m_size1.x = r;
  result.m_size1.y = r;
  result.m_size1.z = LineParameter(q[0], q[1], q[2]);

  KPt3<double> inPlane[3] = {v, n, w};
  ConvertMatrixTo3Angles(inPlane, &result.m_size3.x, &result.m_size3.y, &result.m_size3.z);

  WriteFreeParameter(constraints, params, 0, result.m_center.x);
  WriteFreeParameter(constraints, params, 1, result.m_center.y);
  WriteFreeParameter(constraints, params, 2, result.m_center.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
  WriteFreeParameter(constraints, params, 5, result.m_size3.x);
  WriteFreeParameter(constraints, params, 6, result.m_size3.y);
}
