// Not built yet: extended sphere fit. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

std::int32_t KFitSphereEx(CFitInput& in, CFitResult& out) {
  in.m_fitType = FIT_SPHERE;
  out.m_valid = 0;
  return 0;
}
