// The sphere's pass two points at a time: the fits on millions of points wait mostly on its
// square root and division, which a pair of lanes does for two points at once. Each lane does
// its point's arithmetic as Accumulate does; the even and the odd points' sums are added last.
#ifndef METROFIT_PRECISE_SPHERE_PAIRS_H
#define METROFIT_PRECISE_SPHERE_PAIRS_H

#include "precise/solver.h"

namespace metrofit::precise {

// Accumulate<SphereModel> with the sums in another order (the same up to rounding).
double AccumulateSpherePairs(const Problem& problem, const State& s, Normal* ne);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_SPHERE_PAIRS_H
