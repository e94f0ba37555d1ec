// Probe-radius compensation (CFitInput::RemoveProbeRadius) and point rectification
// (CFitInput::RectifyPoints). The geometry of the compensation is described in
// lsq/probe_compensation.h, which the engine's point passes share.
#include "lsq/probe_compensation.h"
#include "metrofit.h"

using metrofit::FromFrame;
using metrofit::ToFrame;
using Pt = KPt3<double>;

KPt3<double> CFitInput::RemoveProbeRadius(int index, CFitResult& result, double** rotation) {
  return metrofit::CompensateProbe(m_fitType, m_probeRadius, result, rotation, m_points[index]);
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
