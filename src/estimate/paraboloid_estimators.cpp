// Paraboloid starts.
//
// Parab2Est: the vertex is A, the point nearest to the centroid. The axis is the normal N of
// the circle through three well-spread points, turned towards that circle's centre K as seen
// from A (d = N . (K - A)/|K - A| >= 0 after turning). The shape value is half the radius of
// the sphere through the four sphere-start points A, B, C, D, measured to the first point;
// near the vertex that sphere approximates the osculating one, of radius twice the focal
// length.
//
// EstimateParaboloid (older variant, not run by the library): a least-squares sphere gives the
// centre c and radius r, a least-squares plane the angles a1, a2; then
//   vertex = c + r (sin a2 cos a1, -sin a1, -cos a2 cos a1),  shape value = r / 2.5.
//
// Parameters: vertex x, y, z, angle 1, angle 2, shape value. Degenerate cases: no points write
// nothing; K equal to A gives NaN angles.
#include <cmath>

#include "estimate/estimate_common.h"
#include "estimate/point_selection.h"

namespace {

// Ratio of the sphere radius to the shape value in the older variant.
constexpr double kSphereToShape = 2.5;

}  // namespace

using metrofit::CircleFrom3Points;
using metrofit::DirectionToAngles;
using metrofit::SelectSpherePoints;
using metrofit::SolveSphereCentre;
using metrofit::WorkMatrix;
using metrofit::WriteFreeParameter;

void CFitInput::Parab2Est(CFitResult& result, double** constraints, double** params) {
  if (m_points.empty()) return;
  const metrofit::SpherePointSet s = SelectSpherePoints(m_points);
  const KPt3<double> vertex = m_points[s.a];

  KPt3<double> q[3];
  GetFurthest3Points(q);
  KPt3<double> k, n;
  double unusedRadius = 0.0;
  CircleFrom3Points(q[0], q[1], q[2], &k, &n, &unusedRadius);

  // Divided unguarded: K equal to A gives NaN, which the iteration meets.
  const KPt3<double> toCentre = k - vertex;
  const double len = toCentre.Length();
  const KPt3<double> u(toCentre.x / len, toCentre.y / len, toCentre.z / len);
  const double d = n.Dot(u);
  // Stored before the turn, so its sign tells the caller which way the circle normal pointed.
  result.m_size2.y = d;
  if (d < 0.0) n = -n;
  DirectionToAngles(n, &result.m_angles.x, &result.m_angles.y);

  const KPt3<double> centre = SolveSphereCentre(m_points, s);
  const double r = (m_points[0] - centre).Length();

  WriteFreeParameter(constraints, params, 0, vertex.x);
  WriteFreeParameter(constraints, params, 1, vertex.y);
  WriteFreeParameter(constraints, params, 2, vertex.z);
  WriteFreeParameter(constraints, params, 3, result.m_angles.x);
  WriteFreeParameter(constraints, params, 4, result.m_angles.y);
  WriteFreeParameter(constraints, params, 5, r / 2.0);
}

// Runs two full fits on the input's points; each appends its residuals to the result and
// leaves its parameters there.
void CFitInput::EstimateParaboloid(CFitResult& result, double** constraints, double** params) {
  WorkMatrix<4, 4> sphereWeights;
  WorkMatrix<4, 1> sphere;
  m_fitType = FIT_SPHERE;
  BestFit(result, sphereWeights.rows(), sphere.rows());
  const double cx = sphere.at(0, 0), cy = sphere.at(1, 0), cz = sphere.at(2, 0);
  const double f = sphere.at(3, 0) / kSphereToShape;

  WorkMatrix<3, 3> planeWeights;
  WorkMatrix<3, 1> plane;
  // Left at the plane's type on return, deliberately: a caller that goes on must set the type
  // again.
  m_fitType = FIT_PLANE;
  BestFit(result, planeWeights.rows(), plane.rows());
  const double a1 = plane.at(0, 0), a2 = plane.at(1, 0);

  // 2.5 f is r again; the factor is kept as written so the arithmetic rounds the same way.
  const double x = cx + std::sin(a2) * std::cos(a1) * kSphereToShape * f;
  const double y = cy - std::sin(a1) * kSphereToShape * f;
  const double z = cz - std::cos(a2) * std::cos(a1) * kSphereToShape * f;

  WriteFreeParameter(constraints, params, 0, x);
  WriteFreeParameter(constraints, params, 1, y);
  WriteFreeParameter(constraints, params, 2, z);
  WriteFreeParameter(constraints, params, 3, a1);
  WriteFreeParameter(constraints, params, 4, a2);
  WriteFreeParameter(constraints, params, 5, f);
}
