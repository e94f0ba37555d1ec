// Accurate small kernels of the numeric core.
//
// Compensated (Kahan) summation keeps a running sum s and a running correction e: each term x
// enters as y = x - e, t = s + y, e = (t - s) - y, s = t. The error of n terms is then about
// 2 eps |sum of |x|| instead of n eps, which is what the fits need with 1e5..1e6 points.
//
// Hypot2(a, b) and Hypot3(a, b, c): with m the largest magnitude and s, t the others,
// m sqrt(1 + (s/m)^2 + (t/m)^2); 0 when m = 0. No intermediate square can over- or underflow.
#ifndef METROFIT_NUMERIC_COMPENSATED_H
#define METROFIT_NUMERIC_COMPENSATED_H

#include <cstdint>

#include "numeric/lanes.h"

namespace metrofit::numeric {

// Double machine epsilon (2^-52).
constexpr double kMachineEpsilon = 2.220446049250313e-16;

class KahanSum {
 public:
  void Add(double x) {
    const double y = x - correction_;
    const double t = sum_ + y;
    correction_ = (t - sum_) - y;
    sum_ = t;
  }
  double Sum() const { return sum_; }
  double Correction() const { return correction_; }

 private:
  double sum_ = 0.0;
  double correction_ = 0.0;
};

double Hypot2(double a, double b);
double Hypot3(double a, double b, double c);
#if defined(__GNUC__)
// Hypot3 of triples side by side (pairs, or quads inside AVX2 kernels), each lane bit for bit
// the scalar Hypot3: the scalar steps with selects for its branches, the same swaps, the same
// quotients, the same sum in the same order, and 0 where the largest magnitude is 0.
template <class V>
struct LaneMask;
template <>
struct LaneMask<DoublePair> {
  typedef long long Type __attribute__((vector_size(16)));
};
#if defined(METROFIT_HAS_DOUBLE_QUAD)
template <>
struct LaneMask<DoubleQuad> {
  typedef long long Type __attribute__((vector_size(32)));
};
#endif

template <class V>
METROFIT_ALWAYS_INLINE V Hypot3Lanes(V a, V b, V c) {
  using Mask = typename LaneMask<V>::Type;
  constexpr long long kMagnitude = 0x7FFFFFFFFFFFFFFFLL;  // every bit but the sign
  Mask magnitudeBits;
  for (int l = 0; l < static_cast<int>(sizeof(V) / sizeof(double)); ++l)
    magnitudeBits[l] = kMagnitude;
  const V m = reinterpret_cast<V>(reinterpret_cast<Mask>(a) & magnitudeBits);
  const V s = reinterpret_cast<V>(reinterpret_cast<Mask>(b) & magnitudeBits);
  const V t = reinterpret_cast<V>(reinterpret_cast<Mask>(c) & magnitudeBits);
  const Mask first = s > m;
  const V m1 = first ? s : m;
  const V s1 = first ? m : s;
  const Mask second = t > m1;
  const V m2 = second ? t : m1;
  const V t2 = second ? m1 : t;
  const V qs = s1 / m2;
  const V qt = t2 / m2;
  const V h = m2 * Sqrt(1.0 + qs * qs + qt * qt);
  return m2 == 0.0 ? Filled<V>(0.0) : h;
}
inline DoublePair Hypot3(DoublePair a, DoublePair b, DoublePair c) {
  return Hypot3Lanes(a, b, c);
}
#if defined(METROFIT_HAS_DOUBLE_QUAD)
METROFIT_ALWAYS_INLINE DoubleQuad Hypot3(DoubleQuad a, DoubleQuad b, DoubleQuad c) {
  return Hypot3Lanes(a, b, c);
}
#endif
#else
inline DoublePair Hypot3(DoublePair a, DoublePair b, DoublePair c) {
  return MakePair(Hypot3(a[0], b[0], c[0]), Hypot3(a[1], b[1], c[1]));
}
#endif

// Compensated sum of x[0..n-1]; 0 for n < 1.
double CompensatedSum(const double* x, std::int32_t n);
// Compensated sum of x[i] y[i]; 0 for n < 1.
double CompensatedDot(const double* x, const double* y, std::int32_t n);
// Euclidean norm of x[0..n-1]: the largest magnitude m times sqrt of the compensated sum of
// (x_i / m)^2, so it neither over- nor underflows; 0 for n < 1 or an all-zero array.
double ScaledNorm(const double* x, std::int32_t n);

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_COMPENSATED_H
