// A right-handed frame about an axis, for the generators of synthetic test data.
#ifndef METROFIT_TESTS_SUPPORT_TEST_FRAME_H
#define METROFIT_TESTS_SUPPORT_TEST_FRAME_H

#include <cmath>

#include "metrofit.h"

namespace metrofit::testing {

struct Frame {
  KPt3<double> e1;
  KPt3<double> e2;
  KPt3<double> u;
};

inline KPt3<double> Unit(KPt3<double> v) {
  v.Normalize();
  return v;
}

// Right-handed frame (e1, e2, u), e1 from the coordinate axis least aligned with u.
inline Frame MakeFrame(const KPt3<double>& axis) {
  const KPt3<double> u = Unit(axis);
  const double ax = std::fabs(u.x), ay = std::fabs(u.y), az = std::fabs(u.z);
  KPt3<double> h(0.0, 0.0, 1.0);
  if (ax <= ay && ax <= az) {
    h = KPt3<double>(1.0, 0.0, 0.0);
  } else if (ay <= az) {
    h = KPt3<double>(0.0, 1.0, 0.0);
  }
  const KPt3<double> e1 = Unit(h.Cross(u));
  return Frame{e1, u.Cross(e1), u};
}

}  // namespace metrofit::testing

#endif  // METROFIT_TESTS_SUPPORT_TEST_FRAME_H
