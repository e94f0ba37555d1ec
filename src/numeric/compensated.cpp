// Compensated sums and overflow-safe hypotenuses; see compensated.h for the formulas.
#include "numeric/compensated.h"

#include <cmath>

namespace metrofit::numeric {

double Hypot2(double a, double b) {
  double m = std::fabs(a);
  double s = std::fabs(b);
  if (s > m) {
    const double t = m;
    m = s;
    s = t;
  }
  if (m == 0.0) return 0.0;
  const double q = s / m;
  return m * std::sqrt(1.0 + q * q);
}

double Hypot3(double a, double b, double c) {
  // Sort the magnitudes so m is the largest; a NaN stays in one of the three slots and so
  // reaches the result.
  double m = std::fabs(a);
  double s = std::fabs(b);
  double t = std::fabs(c);
  if (s > m) {
    const double u = m;
    m = s;
    s = u;
  }
  if (t > m) {
    const double u = m;
    m = t;
    t = u;
  }
  if (m == 0.0) return 0.0;
  const double qs = s / m;
  const double qt = t / m;
  return m * std::sqrt(1.0 + qs * qs + qt * qt);
}

double CompensatedSum(const double* x, std::int32_t n) {
  KahanSum sum;
  for (std::int32_t i = 0; i < n; ++i) sum.Add(x[i]);
  return sum.Sum();
}

double CompensatedDot(const double* x, const double* y, std::int32_t n) {
  KahanSum sum;
  for (std::int32_t i = 0; i < n; ++i) sum.Add(x[i] * y[i]);
  return sum.Sum();
}

double ScaledNorm(const double* x, std::int32_t n) {
  double m = 0.0;
  for (std::int32_t i = 0; i < n; ++i) {
    const double a = std::fabs(x[i]);
    if (a > m || std::isnan(a)) m = a;
  }
  if (m == 0.0 || !std::isfinite(m)) return m;
  KahanSum sum;
  for (std::int32_t i = 0; i < n; ++i) {
    const double q = x[i] / m;
    sum.Add(q * q);
  }
  return m * std::sqrt(sum.Sum());
}

}  // namespace metrofit::numeric
