// The feature frame of the first two angles a, b and the local coordinates of a point in it.
//
//   e1 = (cos b, sin a sin b, -cos a sin b),  e2 = (0, cos a, sin a),
//   u  = (sin b, -sin a cos b, cos a cos b)   (axis or normal),
// the rows of the rotation of (a, b, 0); the third angle never enters a model. With c the
// centre and d = p - c:
//   q1 = d.e1, q2 = d.e2, h = d.u, rho = sqrt(q1^2 + q2^2), n_r = (q1 e1 + q2 e2) / rho,
// and with g = dz cos a - dy sin a the angle derivatives
//   dq1/da = q2 sin b  dq1/db = -h   dq2/da = g   dq2/db = 0
//   dh/da = -q2 cos b  dh/db = q1    drho/da = (q1 q2 sin b + q2 g) / rho
//   drho/db = -q1 h / rho.
// The frame is made once per pass (the angles are constant within it); the local coordinates
// once per point. Nothing is guarded: a point on the axis gives rho = 0 and infinite or NaN
// derivatives, which the engine meets as non-convergence.
#ifndef METROFIT_LSQ_SHAPES_SHAPE_FRAME_H
#define METROFIT_LSQ_SHAPES_SHAPE_FRAME_H

#include <cmath>

#include "lsq/linearisation.h"
#include "metrofit.h"
#include "numeric/lanes.h"

namespace metrofit {

struct ShapeFrame {
  KPt3<double> e1, e2, u;
  KPt3<double> c;
  double sa, ca, sb, cb;

  ShapeFrame(double a, double b, const KPt3<double>& centre) : c(centre) {
    sa = std::sin(a);
    ca = std::cos(a);
    sb = std::sin(b);
    cb = std::cos(b);
    e1 = KPt3<double>(cb, sa * sb, -ca * sb);
    e2 = KPt3<double>(0.0, ca, sa);
    u = KPt3<double>(sb, -sa * cb, ca * cb);
  }
  explicit ShapeFrame(const CFitResult& r) : ShapeFrame(r.m_angles.x, r.m_angles.y, r.m_center) {}
};

// Local coordinates of one point (or two, T = DoublePair) and their angle derivatives.
template <class T>
struct LocalPoint {
  Vec3<T> d;
  T q1, q2, h, rho;
  T g;        // dq2/da
  T dq1da;    // q2 sin b
  T dhda;     // -q2 cos b
  T rhoRhoA;  // rho drho/da = q1 dq1/da + q2 g, defined also on the axis
  T drhoda, drhodb;
  Vec3<T> radial;  // q1 e1 + q2 e2 = rho n_r, defined also on the axis
  Vec3<T> nr;      // radial unit vector n_r

  METROFIT_ALWAYS_INLINE LocalPoint(const ShapeFrame& f, const Vec3<T>& p) {
    d = Minus(p, f.c);
    q1 = d.Dot(f.e1);
    q2 = d.Dot(f.e2);
    h = d.Dot(f.u);
    rho = Sqrt(q1 * q1 + q2 * q2);
    g = d.z * f.ca - d.y * f.sa;
    dq1da = q2 * f.sb;
    dhda = -q2 * f.cb;
    rhoRhoA = q1 * dq1da + q2 * g;
    drhoda = rhoRhoA / rho;
    drhodb = -q1 * h / rho;
    radial = Scale(f.e1, q1) + Scale(f.e2, q2);
    nr = radial * (1.0 / rho);
  }
};

// B row k and the centre columns of A row k: a derivative by the centre is minus the
// derivative by the point.
template <class Lin, class T>
METROFIT_ALWAYS_INLINE void SetPointAndCentre(Lin& lin, int k, const Vec3<T>& b) {
  lin.B[k][0] = b.x;
  lin.B[k][1] = b.y;
  lin.B[k][2] = b.z;
  lin.A[k][0] = -b.x;
  lin.A[k][1] = -b.y;
  lin.A[k][2] = -b.z;
}

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPES_SHAPE_FRAME_H
