// Values of one point, or of two or four points at once.
//
// The engine evaluates its models on plain doubles or on pairs of doubles, two points side by
// side: with GCC and Clang a vector of two (SSE2 on x86-64, part of the baseline), elsewhere a
// plain pair. Every lane does exactly the scalar operation (no contraction, no reassociation),
// so a pair gives each point the bits the scalar code gives it; pairs only halve the number
// of instructions, divisions and square roots included.
//
// Four lanes (DoubleQuad) are computed only inside kernels built for AVX2. Every function here
// that takes or returns lanes by value is therefore always inlined, also in unoptimised
// builds: called out of line from such a kernel, a four-lane value would cross between code
// built with and without AVX, whose calling conventions for it differ. For the same reason a
// kernel built for AVX2 passes no four-lane value to a function built without it even where
// that function is inlined (Clang refuses the call): the kernel calls an always-inlined
// function without a target (no four-lane arguments), and that function does the work.
#ifndef METROFIT_NUMERIC_LANES_H
#define METROFIT_NUMERIC_LANES_H

#include <cmath>

#include "metrofit.h"

#if defined(__GNUC__) && defined(__SSE2__)
#include <emmintrin.h>
#endif

// Small per-point pieces (models, lanes, sums) are always inlined: a call per point would cost
// more than the piece, and inlined into a kernel built for wider vectors they take its
// instructions.
#if defined(__GNUC__)
#define METROFIT_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define METROFIT_ALWAYS_INLINE inline
#endif

// Loops over small sizes fixed at compile time (a shape's parameters, a block row): unrolled,
// their values stay in registers instead of memory.
#if defined(__GNUC__) && !defined(__clang__)
#define METROFIT_UNROLL _Pragma("GCC unroll 8")
#else
#define METROFIT_UNROLL
#endif

namespace metrofit {

#if defined(__GNUC__)
typedef double DoublePair __attribute__((vector_size(16)));
inline DoublePair MakePair(double a, double b) {
  return DoublePair{a, b};
}
#else
struct DoublePair {
  double v[2];
  double& operator[](int i) { return v[i]; }
  double operator[](int i) const { return v[i]; }
  friend DoublePair operator-(DoublePair a) { return {{-a[0], -a[1]}}; }
#define METROFIT_PAIR_OP(op)                                  \
  friend DoublePair operator op(DoublePair a, DoublePair b) { \
    return {{a[0] op b[0], a[1] op b[1]}};                    \
  }                                                           \
  friend DoublePair operator op(double a, DoublePair b) {     \
    return {{a op b[0], a op b[1]}};                          \
  }                                                           \
  friend DoublePair operator op(DoublePair a, double b) {     \
    return {{a[0] op b, a[1] op b}};                          \
  }
  METROFIT_PAIR_OP(+)
  METROFIT_PAIR_OP(-)
  METROFIT_PAIR_OP(*)
  METROFIT_PAIR_OP(/)
#undef METROFIT_PAIR_OP
  DoublePair& operator+=(DoublePair b) {
    v[0] += b[0];
    v[1] += b[1];
    return *this;
  }
};
inline DoublePair MakePair(double a, double b) {
  return DoublePair{{a, b}};
}
#endif

inline DoublePair Splat(double v) {
  return MakePair(v, v);
}

// A constant as lanes.
template <class T>
METROFIT_ALWAYS_INLINE T Filled(double v);
template <>
inline double Filled<double>(double v) {
  return v;
}
template <>
inline DoublePair Filled<DoublePair>(double v) {
  return Splat(v);
}

inline double Sqrt(double v) {
  return std::sqrt(v);
}
inline DoublePair Sqrt(DoublePair v) {
#if defined(__GNUC__) && defined(__SSE2__)
  return _mm_sqrt_pd(v);
#else
  return MakePair(std::sqrt(v[0]), std::sqrt(v[1]));
#endif
}

#if defined(__GNUC__) && defined(__x86_64__)
// Four points side by side, for the kernels that run where the processor has AVX2
// (numeric/vector_path.h). Only code built for that target computes on them, always inlined
// (see above); elsewhere they are never evaluated.
#define METROFIT_HAS_DOUBLE_QUAD 1
typedef double DoubleQuad __attribute__((vector_size(32)));

template <>
METROFIT_ALWAYS_INLINE DoubleQuad Filled<DoubleQuad>(double v) {
  return DoubleQuad{v, v, v, v};
}

// Two square roots of pairs: an SSE2 instruction that also runs inside an AVX2 kernel.
METROFIT_ALWAYS_INLINE DoubleQuad Sqrt(DoubleQuad v) {
  const DoublePair low = Sqrt(MakePair(v[0], v[1]));
  const DoublePair high = Sqrt(MakePair(v[2], v[3]));
  return DoubleQuad{low[0], low[1], high[0], high[1]};
}
#endif

inline double Lane(double v, int) {
  return v;
}
inline double Lane(const DoublePair& v, int i) {
  return v[i];
}

// A point or vector whose coordinates are T: double, or DoublePair for two points.
template <class T>
struct Vec3 {
  T x, y, z;

  Vec3() = default;
  METROFIT_ALWAYS_INLINE Vec3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}

  METROFIT_ALWAYS_INLINE Vec3 operator+(const Vec3& b) const {
    return Vec3(x + b.x, y + b.y, z + b.z);
  }
  METROFIT_ALWAYS_INLINE Vec3 operator-(const Vec3& b) const {
    return Vec3(x - b.x, y - b.y, z - b.z);
  }
  METROFIT_ALWAYS_INLINE Vec3 operator-() const { return Vec3(-x, -y, -z); }
  // Scaling written s * x, as KPt3 writes it.
  template <class S>
  METROFIT_ALWAYS_INLINE Vec3 operator*(S s) const {
    return Vec3(s * x, s * y, s * z);
  }
  // Against a vector of doubles (a frame direction), summed left to right like KPt3::Dot.
  METROFIT_ALWAYS_INLINE T Dot(const KPt3<double>& b) const { return x * b.x + y * b.y + z * b.z; }
  METROFIT_ALWAYS_INLINE T Dot(const Vec3& b) const { return x * b.x + y * b.y + z * b.z; }
};

inline Vec3<double> ToVec3(const KPt3<double>& p) {
  return Vec3<double>(p.x, p.y, p.z);
}
inline Vec3<DoublePair> ToVec3(const KPt3<double>& p, const KPt3<double>& q) {
  return Vec3<DoublePair>(MakePair(p.x, q.x), MakePair(p.y, q.y), MakePair(p.z, q.z));
}

#if defined(METROFIT_HAS_DOUBLE_QUAD)
METROFIT_ALWAYS_INLINE Vec3<DoubleQuad> ToVec3(const KPt3<double>& p0, const KPt3<double>& p1,
                                               const KPt3<double>& p2, const KPt3<double>& p3) {
  return Vec3<DoubleQuad>(DoubleQuad{p0.x, p1.x, p2.x, p3.x}, DoubleQuad{p0.y, p1.y, p2.y, p3.y},
                          DoubleQuad{p0.z, p1.z, p2.z, p3.z});
}
#endif

// p - c for a point p of lanes and a fixed point c.
template <class T>
METROFIT_ALWAYS_INLINE Vec3<T> Minus(const Vec3<T>& p, const KPt3<double>& c) {
  return Vec3<T>(p.x - c.x, p.y - c.y, p.z - c.z);
}

// A fixed direction e scaled by s, written s * e as KPt3 writes it.
template <class T>
METROFIT_ALWAYS_INLINE Vec3<T> Scale(const KPt3<double>& e, T s) {
  return Vec3<T>(s * e.x, s * e.y, s * e.z);
}

// A fixed vector as lanes.
template <class T>
METROFIT_ALWAYS_INLINE Vec3<T> Broadcast(const KPt3<double>& e);
template <>
inline Vec3<double> Broadcast<double>(const KPt3<double>& e) {
  return ToVec3(e);
}
template <>
inline Vec3<DoublePair> Broadcast<DoublePair>(const KPt3<double>& e) {
  return Vec3<DoublePair>(Splat(e.x), Splat(e.y), Splat(e.z));
}
#if defined(METROFIT_HAS_DOUBLE_QUAD)
template <>
METROFIT_ALWAYS_INLINE Vec3<DoubleQuad> Broadcast<DoubleQuad>(const KPt3<double>& e) {
  return Vec3<DoubleQuad>(Filled<DoubleQuad>(e.x), Filled<DoubleQuad>(e.y),
                          Filled<DoubleQuad>(e.z));
}
#endif

}  // namespace metrofit

#endif  // METROFIT_NUMERIC_LANES_H
