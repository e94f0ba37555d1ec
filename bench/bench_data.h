// Point generators shared by more than one benchmark program. Every generator is reproducible:
// the same count, noise and seed give the same points on every run and every platform.
#ifndef METROFIT_BENCH_BENCH_DATA_H
#define METROFIT_BENCH_BENCH_DATA_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "metrofit.h"

namespace bench_data {

using P = KPt3<double>;

constexpr double kTwoPi = 6.283185307179586;
constexpr double kSqrt12 = 3.4641016151377544;

// Reproducible draws without a standard-library distribution.
class Lcg {
 public:
  explicit Lcg(std::uint64_t seed) : state_(seed) {}
  // Uniform in [0, 1).
  double Uniform() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state_ >> 11) * (1.0 / 9007199254740992.0);
  }
  // Zero-mean noise of standard deviation s (sum of uniforms, close enough to normal).
  double Noise(double s) {
    double sum = 0.0;
    for (int i = 0; i < 4; ++i) sum += Uniform() - 0.5;
    return sum * s * std::sqrt(3.0);
  }
  // Zero-mean uniform noise of standard deviation s (width s sqrt(12)).
  double UniformNoise(double s) { return s * kSqrt12 * (Uniform() - 0.5); }

 private:
  std::uint64_t state_;
};

// A tilted frame about 740 mm from the origin: kCentre + x kU + y kV + z kN.
const P kCentre(480.0, -510.0, 230.0);
const P kU(0.6, 0.8, 0.0);
const P kV(-0.48, 0.36, 0.8);
const P kN(0.64, -0.48, 0.6);

constexpr std::uint64_t kSeed = 20240607ULL;

// A 100 mm line through kCentre along kN; uniform deviations of standard deviation `noise`
// (mm) along kU and kV.
inline std::vector<P> LinePoints(std::size_t count, double noise, std::uint64_t seed = kSeed) {
  Lcg rng(seed);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = 100.0 * rng.Uniform() - 50.0;
    const double a = rng.UniformNoise(noise);
    const double b = rng.UniformNoise(noise);
    p = kCentre + kN * t + kU * a + kV * b;
  }
  return pts;
}

// A 90-degree cap (polar angles up to 45 degrees) of the sphere of radius `radius` about
// kCentre, centred on kN; uniform radial deviations of standard deviation `noise` (mm).
inline std::vector<P> CapPoints(std::size_t count, double radius, double noise,
                                std::uint64_t seed = kSeed) {
  Lcg rng(seed);
  std::vector<P> pts(count);
  const double zmin = std::cos(0.7853981633974483);
  for (auto& p : pts) {
    const double z = zmin + (1.0 - zmin) * rng.Uniform();
    const double phi = kTwoPi * rng.Uniform();
    const double s = std::sqrt(1.0 - z * z);
    const double rho = radius + rng.UniformNoise(noise);
    p = kCentre + (kN * z + kU * (s * std::cos(phi)) + kV * (s * std::sin(phi))) * rho;
  }
  return pts;
}

// The whole sphere of radius `radius` about kCentre, uniform over the surface; uniform radial
// deviations of standard deviation `noise` (mm).
inline std::vector<P> SpherePoints(std::size_t count, double radius, double noise,
                                   std::uint64_t seed = kSeed) {
  Lcg rng(seed);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double z = 2.0 * rng.Uniform() - 1.0;
    const double phi = kTwoPi * rng.Uniform();
    const double s = std::sqrt(1.0 - z * z);
    const double rho = radius + rng.UniformNoise(noise);
    p = kCentre + (kN * z + kU * (s * std::cos(phi)) + kV * (s * std::sin(phi))) * rho;
  }
  return pts;
}

// A `side` x `side` mm square of the plane through kCentre with normal kN; uniform deviations
// of standard deviation `noise` (mm) along the normal.
inline std::vector<P> PlanePoints(std::size_t count, double side, double noise,
                                  std::uint64_t seed = kSeed) {
  Lcg rng(seed);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double a = side * (rng.Uniform() - 0.5);
    const double b = side * (rng.Uniform() - 0.5);
    p = kCentre + kU * a + kV * b + kN * rng.UniformNoise(noise);
  }
  return pts;
}

// The full turn of the cylinder of radius `radius` about the axis through kCentre along kN,
// `length` mm long; uniform radial deviations of standard deviation `noise` (mm).
inline std::vector<P> CylinderPoints(std::size_t count, double radius, double length, double noise,
                                     std::uint64_t seed = kSeed) {
  Lcg rng(seed);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double phi = kTwoPi * rng.Uniform();
    const double h = length * (rng.Uniform() - 0.5);
    const double rho = radius + rng.UniformNoise(noise);
    p = kCentre + kN * h + (kU * std::cos(phi) + kV * std::sin(phi)) * rho;
  }
  return pts;
}

}  // namespace bench_data

#endif  // METROFIT_BENCH_BENCH_DATA_H
