// Probe-radius compensation and point rectification.
//
// A tactile probe reports the centre of its ball, which lies one probe radius r off the
// surface. For the paraboloid and the torus the engine moves each point by r onto the current
// shape on every iteration; every other shape describes the surface the ball centre traced.
//
// In the frame R (rows e1, e2, u) with l = R (p - c) and rho = sqrt(l0^2 + l1^2):
//   paraboloid (focal length F): the outer normal at radius rho makes the angle
//     phi = atan(rho / 2F) with -u. The angle is taken at rho, then again at the radius moved
//     by the probe, phi = atan2(r sin(phi0) + rho, 2F), and the point moves by r along
//     (sin phi n_r, -cos phi): the ball touched the paraboloid from the side of its focus.
//   torus (major radius R): the point moves by r towards its nearest point of the core circle,
//     k = (R l0 / rho, R l1 / rho, 0): the ball touched the tube from outside.
// The moved point is c + R^T l.
//
// Degenerate cases: a torus point on the axis (rho = 0) or on the core circle gives a
// non-finite point; a paraboloid point on the axis only moves by -r u (phi = 0).
#include <cmath>

#include "metrofit.h"

namespace {

using Pt = KPt3<double>;

Pt RowOf(double** m, int i) {
  return Pt(m[i][0], m[i][1], m[i][2]);
}

// p -> R p, the components in the frame whose rows R holds.
Pt ToFrame(double** rot, const Pt& p) {
  return Pt(RowOf(rot, 0).Dot(p), RowOf(rot, 1).Dot(p), RowOf(rot, 2).Dot(p));
}

// l -> R^T l.
Pt FromFrame(double** rot, const Pt& l) {
  return Pt(rot[0][0] * l.x + rot[1][0] * l.y + rot[2][0] * l.z,
            rot[0][1] * l.x + rot[1][1] * l.y + rot[2][1] * l.z,
            rot[0][2] * l.x + rot[1][2] * l.y + rot[2][2] * l.z);
}

void CompensateParaboloid(double focal, double probe, Pt& l) {
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

void CompensateTorus(double major, double probe, Pt& l) {
  const double rho = std::sqrt(l.x * l.x + l.y * l.y);
  const Pt core(major * l.x / rho, major * l.y / rho, 0.0);
  const Pt toCore = core - l;
  const double len = toCore.Length();
  const Pt e(toCore.x / len, toCore.y / len, toCore.z / len);
  l = l + e * probe;
}

}  // namespace

KPt3<double> CFitInput::RemoveProbeRadius(int index, CFitResult& result, double** rotation) {
  const Pt p = m_points[index];
  const double probe = m_probeRadius;
  // Surface points: returned bit for bit, without the round trip through the frame.
  if (probe == 0.0) return p;
  Pt l = ToFrame(rotation, p - result.m_center);
  if (m_fitType == FIT_PARABOLOID) {
    CompensateParaboloid(result.m_size2.x, probe, l);
  } else if (m_fitType == FIT_TORUS) {
    CompensateTorus(result.m_size1.y, probe, l);
  }
  return FromFrame(rotation, l) + result.m_center;
}

// Forward: points into the local frame of params (centre params[0..2], angles params[3], [4]),
// the centre and angles saved and zeroed so that a fit in that frame starts at the origin with
// zero angles. Backward: points back with the saved centre and the rotation left by the
// forward call; params is not restored, the caller maps fitted values back itself.
void CFitInput::RectifyPoints(double** params, double** saved, double** rotation, bool forward) {
  constexpr int kFrameEntries = 5;  // centre (3) and the two angles
  if (forward) {
    ConvertAnglesToMatrix(params[3][0], params[4][0], 0.0, rotation);
    const Pt c(params[0][0], params[1][0], params[2][0]);
    for (Pt& p : m_points) p = ToFrame(rotation, p - c);
    for (int i = 0; i < kFrameEntries; ++i) {
      saved[i][0] = params[i][0];
      params[i][0] = 0.0;
    }
  } else {
    const Pt c(saved[0][0], saved[1][0], saved[2][0]);
    for (Pt& p : m_points) p = FromFrame(rotation, p) + c;
  }
}
