// Not built yet: extended cylinder fit. Every function here fails cleanly until its subsystem
// lands.
#include "metrofit.h"

std::int32_t KFitCylinderEx(CFitInput& in, CFitResult& out) {
  in.m_fitType = FIT_CYLINDER;
  out.m_valid = 0;
  return 0;
}
