// Helpers shared by the numeric-core tests: seeded random data and allocation-failure sweeps.
#ifndef METROFIT_TESTS_NUMERIC_NUMERIC_TEST_UTIL_H
#define METROFIT_TESTS_NUMERIC_NUMERIC_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "numeric/nvector.h"

namespace metrofit::numeric::testing {

// Every test draws from its own fixed seed, so failures reproduce.
using Rng = std::mt19937_64;

inline double Uniform(Rng& rng, double lo, double hi) {
  return std::uniform_real_distribution<double>(lo, hi)(rng);
}
inline double Gauss(Rng& rng, double sigma) {
  return std::normal_distribution<double>(0.0, sigma)(rng);
}

// Random unit vector, uniform on the sphere.
inline void RandomUnit(Rng& rng, double* u) {
  for (;;) {
    double s = 0.0;
    for (int k = 0; k < 3; ++k) {
      u[k] = Gauss(rng, 1.0);
      s += u[k] * u[k];
    }
    if (s > 1e-6) {
      const double l = std::sqrt(s);
      for (int k = 0; k < 3; ++k) u[k] /= l;
      return;
    }
  }
}

// Checks at scope exit that every block allocated inside the scope was released.
class NoLeakScope {
 public:
  NoLeakScope() : start_(LiveBlockCount()) {}
  ~NoLeakScope() { EXPECT_EQ(LiveBlockCount(), start_) << "blocks leaked"; }
  NoLeakScope(const NoLeakScope&) = delete;
  NoLeakScope& operator=(const NoLeakScope&) = delete;

 private:
  std::int64_t start_;
};

// Runs `run(k)` for k = 0, 1, ... until a run makes fewer than k + 1 allocations after arming.
// `run` prepares its inputs, calls FailAllocationAfter(k) right before the code under test and
// checks the outcome. Returns the number of runs that did see a failure.
template <class Run>
int SweepAllocationFailures(Run run) {
  int failures = 0;
  for (int k = 0; k < 1000; ++k) {
    run(k);
    const bool pending = AllocationFailurePending();
    FailAllocationAfter(-1);
    if (pending) break;
    ++failures;
  }
  return failures;
}

}  // namespace metrofit::numeric::testing

#endif  // METROFIT_TESTS_NUMERIC_NUMERIC_TEST_UTIL_H
