// Not built yet: extended line fit. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

std::int32_t KFitLineEx(CFitInput& in, CFitResult& out) {
  in.m_fitType = FIT_LINE;
  out.m_valid = 0;
  return 0;
}
