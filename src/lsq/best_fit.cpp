// Not built yet: BestFit. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

void CFitInput::BestFit(CFitResult& result, double**, double**) {
  result.m_valid = 0;
}
