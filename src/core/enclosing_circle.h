// Exact smallest enclosing circle of points that lie in one plane (in 3-D coordinates).
#ifndef METROFIT_CORE_ENCLOSING_CIRCLE_H
#define METROFIT_CORE_ENCLOSING_CIRCLE_H

#include <cstddef>
#include <vector>

#include "metrofit.h"

namespace metrofit {

// Status of a smallest-enclosing-circle search.
constexpr int kCircleOk = 0;
// A coordinate was NaN or infinite: no circle exists, centre and radius are NaN.
constexpr int kCircleNonFinite = 1;

struct EnclosingCircle {
  KPt3<double> centre;
  double radius = 0.0;
  int status = 0;  // 0 success
};

EnclosingCircle SmallestEnclosingCircle(const std::vector<KPt3<double>>& planarPoints);

// The same on n points in place: the points are reordered (a fixed permutation of their
// order), which spares the copy when the caller owns a scratch list anyway.
EnclosingCircle SmallestEnclosingCircleInPlace(KPt3<double>* points, std::size_t n);

}  // namespace metrofit

#endif  // METROFIT_CORE_ENCLOSING_CIRCLE_H
