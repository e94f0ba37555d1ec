// Helpers of the passes over all the points, which dominate the time of fits on millions of
// points.
#ifndef METROFIT_PRECISE_PASS_HELPERS_H
#define METROFIT_PRECISE_PASS_HELPERS_H

#include <cstddef>

// The per-point pieces of those passes: always inlined, so that the loop holds no call and its
// sums stay in registers.
#if defined(__GNUC__)
#define METROFIT_PRECISE_INLINE inline __attribute__((always_inline))
#else
#define METROFIT_PRECISE_INLINE inline
#endif

namespace metrofit::precise {

// Points ahead of the current one whose memory a pass asks for early: a pass with much
// arithmetic per point keeps too few loads in flight for memory to keep up on its own.
constexpr std::size_t kPrefetchPoints = 64;

// Asks for point k + kPrefetchPoints of the count points at xyz, if there is one: a hint only.
METROFIT_PRECISE_INLINE void PrefetchAhead(const double* xyz, std::size_t k, std::size_t count) {
#if defined(__GNUC__)
  if (k + kPrefetchPoints < count) __builtin_prefetch(xyz + 3 * (k + kPrefetchPoints));
#else
  (void)xyz, (void)k, (void)count;
#endif
}

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_PASS_HELPERS_H
