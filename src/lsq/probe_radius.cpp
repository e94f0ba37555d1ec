// Not built yet: probe compensation. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

KPt3<double> CFitInput::RemoveProbeRadius(int index, CFitResult&, double**) {
  return m_points[index];
}

void CFitInput::RectifyPoints(double**, double**, double**, bool) {}
