// Not built yet: torus fit. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

std::int32_t KFitTorus(CFitInput& in, CFitResult& out) {
  in.m_fitType = FIT_TORUS;
  out.m_valid = 0;
  return 0;
}
