// Small helpers for the core tests: relative comparisons and seeded random geometry.
#ifndef METROFIT_TESTS_CORE_CORE_TEST_UTIL_H
#define METROFIT_TESTS_CORE_CORE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "metrofit.h"

namespace metrofit_test {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;

// |a - b| <= rel * max(|a|, |b|, floor): relative, with a floor for values near zero.
inline ::testing::AssertionResult Close(double a, double b, double rel, double floor = 1.0) {
  const double scale = std::max({std::fabs(a), std::fabs(b), floor});
  if (std::fabs(a - b) <= rel * scale) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << a << " and " << b << " differ by " << std::fabs(a - b)
                                       << ", more than " << rel << " x " << scale;
}

inline ::testing::AssertionResult Close(const KPt3<double>& a, const KPt3<double>& b, double rel,
                                        double floor = 1.0) {
  const double scale = std::max({a.Length(), b.Length(), floor});
  const double d = (a - b).Length();
  if (d <= rel * scale) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "(" << a.x << ", " << a.y << ", " << a.z << ") and (" << b.x << ", " << b.y << ", "
         << b.z << ") are " << d << " apart, more than " << rel << " x " << scale;
}

// Distance of two angles on the circle, in [0, pi].
inline double AngleGap(double a, double b) {
  const double d = std::fmod(std::fabs(a - b), kTwoPi);
  return std::min(d, kTwoPi - d);
}

// Seeded source of random geometry; the same seed gives the same sets on one platform.
class Rng {
 public:
  explicit Rng(unsigned seed) : gen_(seed) {}
  double Uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(gen_);
  }
  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen_); }
  KPt3<double> InBox(double half) {
    return KPt3<double>(Uniform(-half, half), Uniform(-half, half), Uniform(-half, half));
  }
  KPt3<double> UnitVector() {
    for (;;) {
      KPt3<double> v = InBox(1.0);
      const double len = v.Length();
      if (len > 0.1 && len <= 1.0) return v * (1.0 / len);
    }
  }

 private:
  std::mt19937_64 gen_;
};

// An orthonormal pair spanning the plane across the unit normal n.
inline void PlaneBasis(const KPt3<double>& n, KPt3<double>* u, KPt3<double>* v) {
  const KPt3<double> h = std::fabs(n.x) < 0.9 ? KPt3<double>(1, 0, 0) : KPt3<double>(0, 1, 0);
  *u = n.Cross(h);
  u->Normalize();
  *v = n.Cross(*u);
}

}  // namespace metrofit_test

#endif  // METROFIT_TESTS_CORE_CORE_TEST_UTIL_H
