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

// Points of a surface of revolution about the axis kN through kCentre: `count` feet drawn by
// `foot(rng, radial, height)` from an angle about the axis in [0, sector), each moved along its
// outward normal by Gaussian-like noise of standard deviation `noise` (mm).
template <typename FootFn>
std::vector<P> RevolutionPoints(std::size_t count, double sector, double noise, FootFn foot,
                                std::uint64_t seed) {
  Lcg rng(seed);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = sector * rng.Uniform();
    const P radial = kU * std::cos(t) + kV * std::sin(t);
    P normal;
    const P f = foot(rng, radial, &normal);
    p = f + normal * rng.Noise(noise);
  }
  return pts;
}

// A whole sphere of radius `radius` about kCentre.
inline std::vector<P> SpherePoints(std::size_t count, double radius, double noise,
                                   std::uint64_t seed = kSeed) {
  return RevolutionPoints(
      count, kTwoPi, noise,
      [radius](Lcg& rng, const P& radial, P* n) {
        const double z = 2.0 * rng.Uniform() - 1.0;
        *n = radial * std::sqrt(1.0 - z * z) + kN * z;
        return kCentre + *n * radius;
      },
      seed);
}

// A cylinder band of radius `radius` and height `length` centred on kCentre, over `sector`
// radians about its axis.
inline std::vector<P> CylinderPoints(std::size_t count, double radius, double length, double sector,
                                     double noise, std::uint64_t seed = kSeed) {
  return RevolutionPoints(
      count, sector, noise,
      [radius, length](Lcg& rng, const P& radial, P* n) {
        *n = radial;
        return kCentre + radial * radius + kN * (length * (rng.Uniform() - 0.5));
      },
      seed);
}

// A circle of radius `radius` about kCentre in the plane normal to kN, over `arc` radians,
// with noise both in the plane and across it.
inline std::vector<P> CirclePoints(std::size_t count, double radius, double arc, double noise,
                                   std::uint64_t seed = kSeed) {
  return RevolutionPoints(
      count, arc, noise,
      [radius, noise](Lcg& rng, const P& radial, P* n) {
        *n = radial;
        return kCentre + radial * radius + kN * rng.Noise(noise);
      },
      seed);
}

// A cone with its apex at kCentre opening along kN with half angle `half`, between the radii
// 0.5 radius and radius, over `sector` radians.
inline std::vector<P> ConePoints(std::size_t count, double radius, double half, double sector,
                                 double noise, std::uint64_t seed = kSeed) {
  return RevolutionPoints(
      count, sector, noise,
      [radius, half](Lcg& rng, const P& radial, P* n) {
        const double h = radius * (0.5 + 0.5 * rng.Uniform()) / std::tan(half);
        *n = radial * std::cos(half) - kN * std::sin(half);
        return kCentre + kN * h + radial * (h * std::tan(half));
      },
      seed);
}

// A whole torus about kCentre: major radius `major`, tube radius `minor`.
inline std::vector<P> TorusPoints(std::size_t count, double major, double minor, double noise,
                                  std::uint64_t seed = kSeed) {
  return RevolutionPoints(
      count, kTwoPi, noise,
      [major, minor](Lcg& rng, const P& radial, P* n) {
        const double phi = kTwoPi * rng.Uniform();
        *n = radial * std::cos(phi) + kN * std::sin(phi);
        return kCentre + radial * major + *n * minor;
      },
      seed);
}

// A `length` x `width` plane strip through kCentre with normal kN.
inline std::vector<P> PlanePoints(std::size_t count, double length, double width, double noise,
                                  std::uint64_t seed = kSeed) {
  Lcg rng(seed);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double a = length * (rng.Uniform() - 0.5);
    const double b = width * (rng.Uniform() - 0.5);
    p = kCentre + kU * a + kV * b + kN * rng.Noise(noise);
  }
  return pts;
}

}  // namespace bench_data

#endif  // METROFIT_BENCH_BENCH_DATA_H
