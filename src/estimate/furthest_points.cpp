// Not built yet: three furthest points. Every function here fails cleanly until its subsystem
// lands.
#include "metrofit.h"

bool CFitInput::GetFurthest3Points(KPt3<double>*) {
  return false;
}
