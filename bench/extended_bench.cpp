// Extended line and sphere fits on 1e2 to 1e6 points at CMM scale (features about 500 mm from
// the origin, micrometre-level form deviation). Inputs are made once per size; each iteration
// fits a fresh result record.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "metrofit.h"

namespace {

using P = KPt3<double>;

constexpr double kTwoPi = 6.283185307179586;
constexpr double kRadius = 12.5;
// Form deviation of the synthetic points, well above rounding.
constexpr double kNoise = 0.002;

// Reproducible values in [0, 1) without a standard-library distribution.
class Lcg {
 public:
  double Next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state_ >> 11) * (1.0 / 9007199254740992.0);
  }

 private:
  std::uint64_t state_ = 20240607ULL;
};

const P kCentre(480.0, -510.0, 230.0);
const P kU(0.6, 0.8, 0.0);
const P kV(-0.48, 0.36, 0.8);
const P kN(0.64, -0.48, 0.6);

std::vector<P> LinePoints(std::size_t count) {
  Lcg rng;
  std::vector<P> pts(count);
  for (auto& p : pts) {
    p = kCentre + kN * (100.0 * rng.Next() - 50.0) + kU * (kNoise * (rng.Next() - 0.5)) +
        kV * (kNoise * (rng.Next() - 0.5));
  }
  return pts;
}

// A 90-degree spherical cap about kN.
std::vector<P> CapPoints(std::size_t count) {
  Lcg rng;
  std::vector<P> pts(count);
  const double zmin = std::cos(0.7853981633974483);
  for (auto& p : pts) {
    const double z = zmin + (1.0 - zmin) * rng.Next();
    const double phi = kTwoPi * rng.Next();
    const double s = std::sqrt(1.0 - z * z);
    const double rho = kRadius + kNoise * (rng.Next() - 0.5);
    p = kCentre + (kN * z + kU * (s * std::cos(phi)) + kV * (s * std::sin(phi))) * rho;
  }
  return pts;
}

void BM_KFitLineEx(benchmark::State& state) {
  CFitInput in;
  in.m_points = LinePoints(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    CFitResult out;
    if (KFitLineEx(in, out) != 1) state.SkipWithError("line fit failed");
    benchmark::DoNotOptimize(out.m_formError);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_KFitLineEx)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);

void BM_KFitSphereEx(benchmark::State& state) {
  CFitInput in;
  in.m_points = CapPoints(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    CFitResult out;
    if (KFitSphereEx(in, out) != 1) state.SkipWithError("sphere fit failed");
    benchmark::DoNotOptimize(out.m_formError);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_KFitSphereEx)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);

}  // namespace
