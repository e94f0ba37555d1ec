// Not built yet: extended circle fit. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

std::int32_t KFitCircleEx(CFitInput& in, CFitResult& out) {
  in.m_fitType = FIT_CIRCLE;
  out.m_valid = 0;
  return 0;
}
