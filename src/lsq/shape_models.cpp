// Shape models: per measured point p, the condition(s) f(p, x) = 0 of the shape, linearised.
//
// Frame of the first two angles a, b (the third never enters a model):
//   e1 = (cos b, sin a sin b, -cos a sin b),  e2 = (0, cos a, sin a),
//   u  = (sin b, -sin a cos b, cos a cos b)   (axis or normal),
// the rows of the rotation of (a, b, 0). With c the centre and d = p - c:
//   q1 = d.e1, q2 = d.e2, h = d.u, rho = sqrt(q1^2 + q2^2), n_r = (q1 e1 + q2 e2) / rho,
// and with g = dz cos a - dy sin a the angle derivatives
//   dq1/da = q2 sin b  dq1/db = -h   dq2/da = g   dq2/db = 0
//   dh/da = -q2 cos b  dh/db = q1    drho/da = (q1 q2 sin b + q2 g) / rho
//   drho/db = -q1 h / rho.
// A derivative by the centre is minus the derivative by p.
//
//   line        f1 = q1, f2 = q2                       (centre held at the reference point)
//   plane       f = p.u - D                            (raw coordinates, D offset along u)
//   circle      f1 = h, f2 = rho - r
//   sphere      f = |d| - r
//   cylinder    f = rho - r
//   paraboloid  f = rho^2 / (4F) - h                   (vertex c, opens towards +u)
//   cone        f = k rho - h                          (apex c, slope k = rise per radius)
//   ellipse     f = s - 1, s = sqrt(h^2/A^2 + rho^2/B^2)   (spheroid, A along u)
//   torus       f = t - r, t = sqrt((rho - R)^2 + h^2)
//
// Outputs: Q (3 x 3, diagonal only), B = df/dp (m x 3), A = df/dx (m x n), w = -f (m x 1).
// Degenerate cases are not guarded: rho = 0, |d| = 0, t = 0, F = 0, A = 0 or B = 0 give
// infinities or NaN, which the engine meets as non-convergence.
#include "lsq/shape_models.h"

#include <cmath>

namespace metrofit {
namespace {

// A-priori standard deviation of one point coordinate. Nothing in the library changes it.
constexpr double kCoordinateSigma = 1.0;
// Cofactor scale of a coordinate: Q = kCofactorScale / sigma^2 on the diagonal.
constexpr double kCofactorScale = 1e-6;

//   code  shape        n  m  offset
// The redundancy offsets are deliberate and are not -n throughout: the circle counts -3 with
// six parameters, the cylinder -5 with six, the line -5 although each point gives two
// conditions. The redundancy only divides the variance factor, but that factor feeds the
// relative-change convergence test, so changing an offset changes when fits stop.
constexpr EngineLayout kLayouts[] = {
    {5, 2, -5},  // 0 line: point (3), a, b
    {3, 1, -3},  // 1 plane: a, b, D
    {6, 2, -3},  // 2 circle: centre (3), a, b, r
    {4, 1, -4},  // 3 sphere: centre (3), r
    {6, 1, -5},  // 4 cylinder: axis point (3), a, b, r
    {6, 1, -6},  // 5 paraboloid: vertex (3), a, b, F
    {6, 1, -6},  // 6 cone: apex (3), a, b, k
    {7, 1, -7},  // 7 ellipse: centre (3), a, b, A, B
    {7, 1, -7},  // 8 torus: centre (3), a, b, R, r
};
constexpr int kLayoutCount = static_cast<int>(sizeof(kLayouts) / sizeof(kLayouts[0]));

using Pt = KPt3<double>;

// Frame and local coordinates of one point with their angle derivatives.
struct Local {
  Pt e1, e2, u;
  Pt d;
  double sa, ca, sb, cb;
  double q1, q2, h, rho;
  double g;        // dq2/da
  double dq1da;    // q2 sin b
  double dhda;     // -q2 cos b
  double rhoRhoA;  // rho drho/da = q1 dq1/da + q2 g, defined also on the axis
  double drhoda, drhodb;
  Pt nr;  // radial unit vector (q1 e1 + q2 e2) / rho
};

Local MakeLocal(const Pt& p, const CFitResult& r) {
  Local l;
  const double a = r.m_angles.x, b = r.m_angles.y;
  l.sa = std::sin(a);
  l.ca = std::cos(a);
  l.sb = std::sin(b);
  l.cb = std::cos(b);
  l.e1 = Pt(l.cb, l.sa * l.sb, -l.ca * l.sb);
  l.e2 = Pt(0.0, l.ca, l.sa);
  l.u = Pt(l.sb, -l.sa * l.cb, l.ca * l.cb);
  l.d = p - r.m_center;
  l.q1 = l.d.Dot(l.e1);
  l.q2 = l.d.Dot(l.e2);
  l.h = l.d.Dot(l.u);
  l.rho = std::sqrt(l.q1 * l.q1 + l.q2 * l.q2);
  l.g = l.d.z * l.ca - l.d.y * l.sa;
  l.dq1da = l.q2 * l.sb;
  l.dhda = -l.q2 * l.cb;
  l.rhoRhoA = l.q1 * l.dq1da + l.q2 * l.g;
  l.drhoda = l.rhoRhoA / l.rho;
  l.drhodb = -l.q1 * l.h / l.rho;
  l.nr = (l.e1 * l.q1 + l.e2 * l.q2) * (1.0 / l.rho);
  return l;
}

void SetRow3(double* row, const Pt& v) {
  row[0] = v.x;
  row[1] = v.y;
  row[2] = v.z;
}

// A row of a centred model: -B for the centre, then the remaining derivatives.
void SetCentreColumns(double* row, const Pt& b) {
  SetRow3(row, -b);
}

void Line(const Local& l, double** B, double** A, double** w) {
  SetRow3(B[0], l.e1);
  SetRow3(B[1], l.e2);
  SetCentreColumns(A[0], l.e1);
  A[0][3] = l.dq1da;
  A[0][4] = -l.h;
  SetCentreColumns(A[1], l.e2);
  A[1][3] = l.g;
  A[1][4] = 0.0;
  w[0][0] = -l.q1;
  w[1][0] = -l.q2;
}

// The plane is {p : p.u = D}; its model uses p itself, not p - centre.
void Plane(const Pt& p, const Local& l, const CFitResult& r, double** B, double** A, double** w) {
  SetRow3(B[0], l.u);
  A[0][0] = -(p.y * l.ca + p.z * l.sa) * l.cb;
  A[0][1] = p.x * l.cb + p.y * l.sa * l.sb - p.z * l.ca * l.sb;
  A[0][2] = -1.0;
  w[0][0] = r.m_size2.y - p.Dot(l.u);
}

void Circle(const Local& l, const CFitResult& r, double** B, double** A, double** w) {
  SetRow3(B[0], l.u);
  SetRow3(B[1], l.nr);
  SetCentreColumns(A[0], l.u);
  A[0][3] = l.dhda;
  A[0][4] = l.q1;
  A[0][5] = 0.0;
  SetCentreColumns(A[1], l.nr);
  A[1][3] = l.drhoda;
  A[1][4] = l.drhodb;
  A[1][5] = -1.0;
  w[0][0] = -l.h;
  w[1][0] = r.m_size1.x - l.rho;
}

void Sphere(const Pt& p, const CFitResult& r, double** B, double** A, double** w) {
  const Pt d = p - r.m_center;
  const double len = std::sqrt(d.Dot(d));
  const Pt n = d * (1.0 / len);
  SetRow3(B[0], n);
  SetCentreColumns(A[0], n);
  A[0][3] = -1.0;
  w[0][0] = r.m_size1.x - len;
}

void Cylinder(const Local& l, const CFitResult& r, double** B, double** A, double** w) {
  SetRow3(B[0], l.nr);
  SetCentreColumns(A[0], l.nr);
  A[0][3] = l.drhoda;
  A[0][4] = l.drhodb;
  A[0][5] = -1.0;
  w[0][0] = r.m_size1.x - l.rho;
}

void Paraboloid(const Local& l, const CFitResult& r, double** B, double** A, double** w) {
  const double f = r.m_size2.x;
  const double twoF = 2.0 * f;
  // n_r rho taken as q1 e1 + q2 e2: the surface is smooth on its axis, and the vertex start is
  // a measured point, so a point at rho = 0 is the normal case, not a degenerate one.
  const Pt b = (l.e1 * l.q1 + l.e2 * l.q2) * (1.0 / twoF) - l.u;
  SetRow3(B[0], b);
  SetCentreColumns(A[0], b);
  A[0][3] = l.rhoRhoA / twoF + l.q2 * l.cb;
  A[0][4] = -l.q1 * l.h / twoF - l.q1;
  A[0][5] = -(l.rho * l.rho) / (4.0 * f * f);
  w[0][0] = l.h - (l.rho * l.rho) / (4.0 * f);
}

void Cone(const Local& l, const CFitResult& r, double** B, double** A, double** w) {
  const double k = r.m_size2.z;
  const Pt b = l.nr * k - l.u;
  SetRow3(B[0], b);
  SetCentreColumns(A[0], b);
  A[0][3] = k * l.drhoda + l.q2 * l.cb;
  A[0][4] = k * l.drhodb - l.q1;
  A[0][5] = l.rho;
  w[0][0] = l.h - k * l.rho;
}

void Ellipse(const Local& l, const CFitResult& r, double** B, double** A, double** w) {
  const double sa = r.m_size3.x;  // semi-axis along u
  const double sb = r.m_size3.y;  // semi-axis across u
  const double sa2 = sa * sa, sb2 = sb * sb;
  const double s = std::sqrt(l.h * l.h / sa2 + l.rho * l.rho / sb2);
  // n_r rho taken as q1 e1 + q2 e2: the spheroid is smooth where it crosses its axis.
  const Pt b = (l.u * (l.h / sa2) + (l.e1 * l.q1 + l.e2 * l.q2) * (1.0 / sb2)) * (1.0 / s);
  SetRow3(B[0], b);
  SetCentreColumns(A[0], b);
  A[0][3] = (l.h * l.dhda / sa2 + l.rhoRhoA / sb2) / s;
  A[0][4] = (l.h * l.q1 / sa2 - l.h * l.q1 / sb2) / s;
  A[0][5] = -(l.h * l.h) / (sa2 * sa * s);
  A[0][6] = -(l.rho * l.rho) / (sb2 * sb * s);
  w[0][0] = 1.0 - s;
}

void Torus(const Local& l, const CFitResult& r, double** B, double** A, double** w) {
  const double major = r.m_size1.y;
  const double minor = r.m_size1.z;
  const double radial = l.rho - major;
  const double t = std::sqrt(radial * radial + l.h * l.h);
  // (rho - R) / rho times the unnormalised radial vector q1 e1 + q2 e2, i.e. (rho - R) n_r.
  const double scale = radial / l.rho;
  const Pt b = ((l.e1 * l.q1 + l.e2 * l.q2) * scale + l.u * l.h) * (1.0 / t);
  SetRow3(B[0], b);
  SetCentreColumns(A[0], b);
  A[0][3] = (scale * l.rhoRhoA + l.h * l.dhda) / t;
  A[0][4] = (-scale * l.q1 * l.h + l.h * l.q1) / t;
  A[0][5] = -radial / t;
  A[0][6] = -1.0;
  w[0][0] = minor - t;
}

}  // namespace

EngineLayout EngineLayoutFor(int fitType) {
  if (fitType < 0 || fitType >= kLayoutCount) return EngineLayout{0, 0, 0};
  return kLayouts[fitType];
}

void EvaluateShapeModel(int fitType, const KPt3<double>& p, const CFitResult& r, double** Q,
                        double** B, double** A, double** w) {
  const double cofactor = kCofactorScale / (kCoordinateSigma * kCoordinateSigma);
  Q[0][0] = cofactor;
  Q[1][1] = cofactor;
  Q[2][2] = cofactor;
  switch (fitType) {
    case FIT_LINE:
      Line(MakeLocal(p, r), B, A, w);
      break;
    case FIT_PLANE:
      Plane(p, MakeLocal(p, r), r, B, A, w);
      break;
    case FIT_CIRCLE:
      Circle(MakeLocal(p, r), r, B, A, w);
      break;
    case FIT_SPHERE:
      Sphere(p, r, B, A, w);
      break;
    case FIT_CYLINDER:
      Cylinder(MakeLocal(p, r), r, B, A, w);
      break;
    case FIT_PARABOLOID:
      Paraboloid(MakeLocal(p, r), r, B, A, w);
      break;
    case FIT_CONE:
      Cone(MakeLocal(p, r), r, B, A, w);
      break;
    case FIT_ELLIPSE:
      Ellipse(MakeLocal(p, r), r, B, A, w);
      break;
    case FIT_TORUS:
      Torus(MakeLocal(p, r), r, B, A, w);
      break;
    default:
      break;  // no model: the engine runs with no unknowns
  }
}

}  // namespace metrofit
