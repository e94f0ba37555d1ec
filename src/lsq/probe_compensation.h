// Probe-radius compensation of one point against the current paraboloid or torus.
//
// A tactile probe reports the centre of its ball, which lies one probe radius r off the
// surface. In the frame R (rows e1, e2, u) with l = R (p - c) and rho = sqrt(l0^2 + l1^2):
//   paraboloid (focal length F): the outer normal at radius rho makes the angle
//     phi = atan(rho / 2F) with -u. The angle is taken at rho, then again at the radius moved
//     by the probe, phi = atan2(r sin(phi0) + rho, 2F), and the point moves by r along
//     (sin phi n_r, -cos phi): the ball touched the paraboloid from the side of its focus.
//   torus (major radius R): the point moves by r towards its nearest point of the core circle,
//     k = (R l0 / rho, R l1 / rho, 0): the ball touched the tube from outside.
// The moved point is c + R^T l. Any other fit type only makes the round trip through the frame.
//
// Degenerate cases: a torus point on the axis (rho = 0) or on the core circle gives a
// non-finite point; a paraboloid point on the axis only moves by -r u (phi = 0).
//
// The rotation is anything indexable as rot[i][j]: the engine's fixed 3 x 3 array and the
// row-pointer matrix of CFitInput::RemoveProbeRadius give the same arithmetic.
#ifndef METROFIT_LSQ_PROBE_COMPENSATION_H
#define METROFIT_LSQ_PROBE_COMPENSATION_H

#include <cmath>

#include "metrofit.h"

namespace metrofit {
namespace probe_detail {

inline void CompensateParaboloid(double focal, double probe, KPt3<double>& l) {
  const double rho = std::sqrt(l.x * l.x + l.y * l.y);
  const double phi0 = std::atan2(rho, 2.0 * focal);
  const double phi = std::atan2(std::sin(phi0) * probe + rho, 2.0 * focal);
  l.z = l.z - probe * std::cos(phi);
  const double radialShift = probe * std::sin(phi);
  // On the axis the radial shift is exactly 0 and the 0/0 direction is never formed.
  if (radialShift != 0.0) {
    l.x = l.x + (l.x / rho) * radialShift;
    l.y = l.y + (l.y / rho) * radialShift;
  }
}

inline void CompensateTorus(double major, double probe, KPt3<double>& l) {
  const double rho = std::sqrt(l.x * l.x + l.y * l.y);
  const KPt3<double> core(major * l.x / rho, major * l.y / rho, 0.0);
  const KPt3<double> toCore = core - l;
  const double len = toCore.Length();
  const KPt3<double> e(toCore.x / len, toCore.y / len, toCore.z / len);
  l = l + e * probe;
}

}  // namespace probe_detail

// p -> R p, the components in the frame whose rows R holds.
template <class Rotation>
inline KPt3<double> ToFrame(const Rotation& rot, const KPt3<double>& p) {
  return KPt3<double>(KPt3<double>(rot[0][0], rot[0][1], rot[0][2]).Dot(p),
                      KPt3<double>(rot[1][0], rot[1][1], rot[1][2]).Dot(p),
                      KPt3<double>(rot[2][0], rot[2][1], rot[2][2]).Dot(p));
}

// l -> R^T l.
template <class Rotation>
inline KPt3<double> FromFrame(const Rotation& rot, const KPt3<double>& l) {
  return KPt3<double>(rot[0][0] * l.x + rot[1][0] * l.y + rot[2][0] * l.z,
                      rot[0][1] * l.x + rot[1][1] * l.y + rot[2][1] * l.z,
                      rot[0][2] * l.x + rot[1][2] * l.y + rot[2][2] * l.z);
}

// Point p with the probe radius removed against the shape held in `result`; a radius of
// exactly 0 returns p bit for bit, without the round trip through the frame.
template <class Rotation>
inline KPt3<double> CompensateProbe(int fitType, double probe, const CFitResult& result,
                                    const Rotation& rot, const KPt3<double>& p) {
  if (probe == 0.0) return p;
  KPt3<double> l = ToFrame(rot, p - result.m_center);
  if (fitType == FIT_PARABOLOID) {
    probe_detail::CompensateParaboloid(result.m_size2.x, probe, l);
  } else if (fitType == FIT_TORUS) {
    probe_detail::CompensateTorus(result.m_size1.y, probe, l);
  }
  return FromFrame(rot, l) + result.m_center;
}

}  // namespace metrofit

#endif  // METROFIT_LSQ_PROBE_COMPENSATION_H
