// Not built yet: cylinder and cone fit. Every function here fails cleanly until its subsystem
// lands.
#include "metrofit.h"

std::int32_t KFitCylinder(CFitInput& in, CFitResult& out) {
  in.m_fitType = FIT_CYLINDER;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitCone(CFitInput& in, CFitResult& out) {
  in.m_fitType = FIT_CONE;
  out.m_valid = 0;
  return 0;
}
