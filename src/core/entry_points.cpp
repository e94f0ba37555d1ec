// Not built yet: entry points. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

std::int32_t KFitPoint(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitDistance(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitAngle(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitLine(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitPlane(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitCircle(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitSphere(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitEllipse(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}

std::int32_t KFitParaboloid(CFitInput& in, CFitResult& out) {
  (void)in;
  out.m_valid = 0;
  return 0;
}
