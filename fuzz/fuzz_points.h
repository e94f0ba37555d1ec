// Decoding fuzzer bytes into point sets a fit can chew on for a while.
//
// libFuzzer keeps inputs short, so raw bytes read as doubles give a handful of points and
// noise. Here a few bytes choose a surface, its pose and size, the covered part and a noise
// level, and a count up to kMaxPoints; the points come from that surface, perturbed by the
// remaining bytes (and a seeded generator once the bytes run out), with hostile values (NaN,
// infinities, huge, tiny, repeats) written over some of them. A short input thus reaches long,
// realistic point lists as well as garbage.
#ifndef METROFIT_FUZZ_FUZZ_POINTS_H
#define METROFIT_FUZZ_FUZZ_POINTS_H

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace fuzz_points {

// Upper bound of a decoded point count: a fit of this many points under the sanitizers takes
// milliseconds for the single-start fits (point, line, plane, circle, sphere, ellipse,
// paraboloid and their extended forms).
constexpr std::size_t kMaxPoints = 3000;
// The same bound for the multi-start fits (cylinder, cone, torus, the extended cylinder and
// everything the modern interface fits through them): each point there is visited thousands
// of times (several candidate axes, each a full minimisation), so that 3000 points cost up to
// 10 s under the sanitizers and an average execution hundreds of times more than a short list.
// At this bound one execution stays under half a second and the targets keep several hundred
// executions a second.
constexpr std::size_t kMaxPointsMultiStart = 300;
// Lists longer than this are never exactly collinear: they get noise across the surface of at
// least kAcrossNoiseFloor. The line fit's form error (the smallest circle about the line, in
// src/core/enclosing_circle.cpp, run by the line fits and by the cylinder and cone fits for
// their candidate axes) is cubic in the count when every offset from the line lies within
// 2.2e-16 of the others, as for noiseless collinear points near the origin: 2000 points take
// half a minute. A known defect of the binary interface's layer; the floor keeps the long
// lists of every other kind fuzzed, the short ones still reach it.
constexpr std::size_t kExactLineMaxPoints = 200;
constexpr double kAcrossNoiseFloor = 1e-9;
// The same floor relative to the largest coordinate of the origin, so that rounding of points
// far out (1e12 mm, say) cannot swallow it.
constexpr double kAcrossRelativeFloor = 1e-12;
// Counts up to this are the common case; longer lists are drawn less often.
constexpr std::size_t kShortList = 40;
constexpr std::size_t kMediumList = 400;
// At most this many points are overwritten by hostile values.
constexpr int kMaxInjections = 4;

constexpr double kTwoPi = 6.283185307179586;

// Values that break naive arithmetic: signed zeros, non-finite, extremes of range, subnormals.
inline double HostileValue(FuzzedDataProvider& fdp) {
  static const double kTable[] = {0.0,
                                  -0.0,
                                  1.0,
                                  -1.0,
                                  std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::max(),
                                  -std::numeric_limits<double>::max(),
                                  std::numeric_limits<double>::min(),
                                  std::numeric_limits<double>::denorm_min(),
                                  std::numeric_limits<double>::epsilon(),
                                  1e-300,
                                  1e300,
                                  1e-12,
                                  1e12};
  return fdp.PickValueInArray(kTable);
}

// A number for a setting: mostly in [lo, hi], sometimes hostile, sometimes any double.
inline double Number(FuzzedDataProvider& fdp, double lo, double hi) {
  switch (fdp.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
      return HostileValue(fdp);
    case 1:
      return fdp.ConsumeFloatingPoint<double>();
    default:
      return fdp.ConsumeFloatingPointInRange<double>(lo, hi);
  }
}

// Reproducible draws once the input bytes are used up.
class Lcg {
 public:
  explicit Lcg(std::uint64_t seed) : state_(seed) {}
  double Uniform() {  // [0, 1)
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state_ >> 11) * (1.0 / 9007199254740992.0);
  }

 private:
  std::uint64_t state_;
};

struct Frame {
  double c[3];  // origin
  double u[3];  // three orthonormal directions, n the axis
  double v[3];
  double n[3];
};

inline Frame DecodeFrame(FuzzedDataProvider& fdp) {
  Frame f{};
  for (double& x : f.c) x = Number(fdp, -2000.0, 2000.0);
  const double theta = fdp.ConsumeFloatingPointInRange<double>(0.0, kTwoPi / 2);
  const double phi = fdp.ConsumeFloatingPointInRange<double>(0.0, kTwoPi);
  const double st = std::sin(theta), ct = std::cos(theta);
  const double sp = std::sin(phi), cp = std::cos(phi);
  const double n[3] = {st * cp, st * sp, ct};
  const double u[3] = {ct * cp, ct * sp, -st};
  const double v[3] = {-sp, cp, 0.0};
  for (int k = 0; k < 3; ++k) {
    f.n[k] = n[k];
    f.u[k] = u[k];
    f.v[k] = v[k];
  }
  return f;
}

// Local coordinates (a, b, h) of one point of surface `kind`; s and t in [0, 1) pick the
// point inside the covered part (extent in (0, 1] of the full angle).
inline void LocalPoint(int kind, double size, double extent, double s, double t, double out[3]) {
  const double ang = kTwoPi * extent * s;
  const double h = size * (2.0 * t - 1.0);
  switch (kind) {
    case 0:  // plane patch
      out[0] = h, out[1] = size * (2.0 * s - 1.0), out[2] = 0.0;
      return;
    case 1: {  // sphere zone from the pole
      const double pol = 0.5 * kTwoPi * extent * t;
      out[0] = size * std::sin(pol) * std::cos(kTwoPi * s);
      out[1] = size * std::sin(pol) * std::sin(kTwoPi * s);
      out[2] = size * std::cos(pol);
      return;
    }
    case 2:  // cylinder
      out[0] = size * std::cos(ang), out[1] = size * std::sin(ang), out[2] = h;
      return;
    case 3:  // circle arc
      out[0] = size * std::cos(ang), out[1] = size * std::sin(ang), out[2] = 0.0;
      return;
    case 4:  // line
      out[0] = 0.0, out[1] = 0.0, out[2] = h;
      return;
    case 5: {  // cone, half angle 30 degrees, apex at the origin
      const double z = size * (t + 0.05);
      out[0] = 0.57735 * z * std::cos(ang), out[1] = 0.57735 * z * std::sin(ang), out[2] = z;
      return;
    }
    case 6: {  // torus, minor radius a quarter of the major
      const double r = size + 0.25 * size * std::cos(kTwoPi * t);
      out[0] = r * std::cos(ang), out[1] = r * std::sin(ang);
      out[2] = 0.25 * size * std::sin(kTwoPi * t);
      return;
    }
    case 7: {  // paraboloid of focal length size / 4
      const double r = size * t;
      out[0] = r * std::cos(ang), out[1] = r * std::sin(ang), out[2] = r * r / size;
      return;
    }
    case 8:  // ellipse, semi-axes size and size / 2
      out[0] = size * std::cos(ang), out[1] = 0.5 * size * std::sin(ang), out[2] = 0.0;
      return;
    default: {  // spheroid, semi-axes size (along the axis) and 0.6 size
      const double pol = 0.5 * kTwoPi * t;
      out[0] = 0.6 * size * std::sin(pol) * std::cos(ang);
      out[1] = 0.6 * size * std::sin(pol) * std::sin(ang);
      out[2] = size * std::cos(pol);
      return;
    }
  }
}

// Short lists in 12 of 16 inputs, medium in 3, long (up to `most`) in 1: a long list costs up to
// seconds under the sanitizers, a short one microseconds.
inline std::size_t DecodeAnyCount(FuzzedDataProvider& fdp, std::size_t most) {
  const int bucket = fdp.ConsumeIntegralInRange<int>(0, 15);
  if (bucket < 12) return fdp.ConsumeIntegralInRange<std::size_t>(0, std::min(kShortList, most));
  if (bucket < 15) return fdp.ConsumeIntegralInRange<std::size_t>(0, std::min(kMediumList, most));
  return fdp.ConsumeIntegralInRange<std::size_t>(0, most);
}

// A hostile value or a repeat written over point i after the points are made.
struct Injection {
  std::size_t i = 0;
  bool repeat = false;  // copy point j over point i
  std::size_t j = 0;
  int coordinate = 0;  // otherwise write value into this coordinate
  double value = 0.0;
};

// Decoded before the points, so the noise bytes that follow cannot starve it.
inline std::vector<Injection> DecodeInjections(FuzzedDataProvider& fdp, std::size_t count) {
  std::vector<Injection> list;
  if (count == 0) return list;
  const int injections = fdp.ConsumeIntegralInRange<int>(0, kMaxInjections);
  for (int k = 0; k < injections; ++k) {
    Injection in;
    in.i = fdp.ConsumeIntegralInRange<std::size_t>(0, count - 1);
    in.repeat = fdp.ConsumeBool();
    in.j = fdp.ConsumeIntegralInRange<std::size_t>(0, count - 1);
    in.coordinate = fdp.ConsumeIntegralInRange<int>(0, 2);
    in.value = HostileValue(fdp);
    list.push_back(in);
  }
  return list;
}

inline void Apply(const std::vector<Injection>& list, std::vector<double>& xyz) {
  for (const Injection& in : list) {
    if (in.repeat) {
      for (int c = 0; c < 3; ++c) xyz[3 * in.i + c] = xyz[3 * in.j + c];
    } else {
      xyz[3 * in.i + in.coordinate] = in.value;
    }
  }
}

// x, y, z triples decoded from the bytes (see the file comment), at most `most` of them.
inline std::vector<double> DecodePoints(FuzzedDataProvider& fdp, std::size_t most) {
  const std::size_t count = DecodeAnyCount(fdp, most);
  const int kind = fdp.ConsumeIntegralInRange<int>(0, 10);
  const std::vector<Injection> injections = DecodeInjections(fdp, count);
  std::vector<double> xyz;
  xyz.reserve(3 * count);
  if (kind == 10) {  // raw: every coordinate straight from the bytes
    for (std::size_t i = 0; i < 3 * count; ++i) xyz.push_back(Number(fdp, -2000.0, 2000.0));
    return xyz;
  }
  const Frame f = DecodeFrame(fdp);
  const double size = std::pow(10.0, fdp.ConsumeFloatingPointInRange<double>(-4.0, 4.0));
  const double extent = fdp.ConsumeFloatingPointInRange<double>(0.0, 1.0);
  const double noise = size * std::pow(10.0, fdp.ConsumeFloatingPointInRange<double>(-12.0, 0.0));
  Lcg rng(fdp.ConsumeIntegral<std::uint64_t>());
  const double reach = std::max({std::fabs(f.c[0]), std::fabs(f.c[1]), std::fabs(f.c[2])});
  const double floor = std::max(kAcrossNoiseFloor, kAcrossRelativeFloor * reach);
  const double across = count > kExactLineMaxPoints ? std::max(noise, floor) : 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    double local[3];
    LocalPoint(kind, size, extent, rng.Uniform(), rng.Uniform(), local);
    // Noise from the bytes while they last: small byte changes move single points.
    const double e = fdp.remaining_bytes() > 0 ? (fdp.ConsumeIntegral<std::uint8_t>() / 255.0 - 0.5)
                                               : (rng.Uniform() - 0.5);
    local[2] += 2.0 * noise * e;
    local[0] += across * (rng.Uniform() - 0.5);
    local[1] += across * (rng.Uniform() - 0.5);
    for (int c = 0; c < 3; ++c) {
      xyz.push_back(f.c[c] + local[0] * f.u[c] + local[1] * f.v[c] + local[2] * f.n[c]);
    }
  }
  Apply(injections, xyz);
  return xyz;
}

}  // namespace fuzz_points

#endif  // METROFIT_FUZZ_FUZZ_POINTS_H
