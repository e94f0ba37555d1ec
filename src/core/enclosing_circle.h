// Exact smallest enclosing circle of points that lie in one plane (in 3-D coordinates).
#ifndef METROFIT_CORE_ENCLOSING_CIRCLE_H
#define METROFIT_CORE_ENCLOSING_CIRCLE_H

#include <vector>

#include "metrofit.h"

namespace metrofit {

struct EnclosingCircle {
  KPt3<double> centre;
  double radius = 0.0;
  int status = 0;  // 0 success
};

EnclosingCircle SmallestEnclosingCircle(const std::vector<KPt3<double>>& planarPoints);

}  // namespace metrofit

#endif  // METROFIT_CORE_ENCLOSING_CIRCLE_H
