// Torus starts.
//
// EstimateTorus takes the caller's nominal torus: centre, axis and the two radii of the
// nominal values, without reading a point.
//
// EstimateTorus2 takes two meridian circles (C1, N1, r1 through points 0..2 and C2, N2, r2
// through points 3..5). Both planes contain the torus axis, so a = N1 x N2 lies along it and
// the angle beta between the normals is the angle between the meridians. The centres lie on a
// circle of radius R about the axis, so the chord |C2 - C1| = 2 R sin(beta / 2). With
// m1 = a x N1 and m2 = N2 x a the radial directions in the two planes and m3 = m1 x m2,
//   C2 - C1 = s m1 + t m2 + w m3
// is solved for s, and the centre is C1 + s m1. The minor radius is the mean circle radius.
//
// Parameters: centre x, y, z, angle 1, angle 2, major radius, minor radius. Degenerate cases:
// parallel meridian planes give beta = 0 and divide by zero; the results reach the iteration
// unchanged.
#include <cmath>
#include <cstddef>

#include "estimate/estimate_common.h"
#include "estimate/point_selection.h"

namespace {

// EstimateTorus2 reads points 0 to 5; with fewer nothing defined can be read.
constexpr std::size_t kTorus2PointsRead = 6;

}  // namespace

using metrofit::CircleFrom3Points;
using metrofit::DirectionToAngles;
using metrofit::WorkMatrix;
using metrofit::WriteFreeParameter;

void CFitInput::EstimateTorus(CFitResult& result, double** constraints, double** params) {
  const KPt3<double>& centre = m_centerParam.value;
  // Used as given, not normalised: a nominal axis of other than unit length goes into the
  // angles as it stands.
  DirectionToAngles(m_axisParam.value, &result.m_angles.x, &result.m_angles.y);
  WriteFreeParameter(constraints, params, 0, centre.x);
  WriteFreeParameter(constraints, params, 1, centre.y);
  WriteFreeParameter(constraints, params, 2, centre.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
  WriteFreeParameter(constraints, params, 5, m_size1Param.value.y);
  WriteFreeParameter(constraints, params, 6, m_size1Param.value.z);
}

void CFitInput::EstimateTorus2(CFitResult& result, double** constraints, double** params) {
  // Callers pass at least six points, three on each meridian; fewer write nothing.
  if (m_points.size() < kTorus2PointsRead) return;
  KPt3<double> c1, n1, c2, n2;
  double r1 = 0.0, r2 = 0.0;
  CircleFrom3Points(m_points[0], m_points[1], m_points[2], &c1, &n1, &r1);
  CircleFrom3Points(m_points[3], m_points[4], m_points[5], &c2, &n2, &r2);
  // The probe radius comes off both radii, deliberately, although only the tube radius is
  // moved by it: callers may rely on both starts being shifted by the same amount.
  const double minor = (r1 + r2) / 2.0 - m_probeRadius;

  // Not normalised (its length is the sine of the angle between the planes): the angles are
  // taken from it as it stands.
  const KPt3<double> a = n1.Cross(n2);
  DirectionToAngles(a, &result.m_angles.x, &result.m_angles.y);
  const double beta = std::acos(n1.Dot(n2));

  const KPt3<double> m1 = a.Cross(n1);
  const KPt3<double> m2 = n2.Cross(a);
  const KPt3<double> m3 = m1.Cross(m2);
  const KPt3<double> b = c2 - c1;
  const double major = b.Length() / (2.0 * std::sin(beta / 2.0)) - m_probeRadius;

  WorkMatrix<3, 3> m;
  WorkMatrix<3, 1> rhs;
  WorkMatrix<3, 1> solution;
  const KPt3<double> columns[3] = {m1, m2, m3};
  for (int j = 0; j < 3; ++j) {
    m.rows()[0][j] = columns[j].x;
    m.rows()[1][j] = columns[j].y;
    m.rows()[2][j] = columns[j].z;
  }
  rhs.rows()[0][0] = b.x;
  rhs.rows()[1][0] = b.y;
  rhs.rows()[2][0] = b.z;
  // Inverted without row exchanges; a vanishing pivot leaves M partly swept, unreported, and
  // the centre then carries that error into the iteration.
  mInvertMatrix(m.rows(), 3);
  mMultiplyMatrix(m.rows(), rhs.rows(), solution.rows(), 3, 3, 1);
  const KPt3<double> centre = c1 + m1 * solution.at(0, 0);

  WriteFreeParameter(constraints, params, 0, centre.x);
  WriteFreeParameter(constraints, params, 1, centre.y);
  WriteFreeParameter(constraints, params, 2, centre.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
  WriteFreeParameter(constraints, params, 5, major);
  WriteFreeParameter(constraints, params, 6, minor);
}

// Kept with the common signature for callers that name it; it writes nothing.
void CFitInput::EstimateTorusBasedOnCircleFit(CFitResult& /*result*/, double** /*constraints*/,
                                              double** /*params*/) {}
