// Form-error measures of the least-squares driver on 1e3 to 1e6 points. Point sets are made
// once per size outside the timed loop; the measures themselves allocate at most one scratch
// list per call (the line's radial offsets), never per point.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "bench_data.h"
#include "core/form_error.h"
#include "metrofit.h"

namespace {

using P = KPt3<double>;

constexpr double kTwoPi = 6.283185307179586;
constexpr double kRadius = 12.5;
// Form deviation of the synthetic points, well above rounding.
constexpr double kNoise = 0.01;

// Reproducible values in [0, 1): the shared generator with this file's seed.
class Lcg {
 public:
  double Next() { return rng_.Uniform(); }

 private:
  bench_data::Lcg rng_{20240607ULL};
};

// A tilted frame far from the origin: c + x u + y v + z n.
struct Frame {
  P c{1250.0, -430.0, 880.0};
  P u{0.6, 0.8, 0.0};
  P v{-0.48, 0.36, 0.8};
  P n{0.64, -0.48, 0.6};
};

std::vector<P> CylinderPoints(std::size_t count) {
  const Frame f;
  Lcg rng;
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double phi = kTwoPi * rng.Next(), rho = kRadius + kNoise * (rng.Next() - 0.5);
    p = f.c + (f.u * std::cos(phi) + f.v * std::sin(phi)) * rho + f.n * (100.0 * rng.Next());
  }
  return pts;
}

std::vector<P> PlanePoints(std::size_t count) {
  const Frame f;
  Lcg rng;
  std::vector<P> pts(count);
  for (auto& p : pts) {
    p = f.c + f.u * (200.0 * rng.Next()) + f.v * (200.0 * rng.Next()) +
        f.n * (kNoise * (rng.Next() - 0.5));
  }
  return pts;
}

std::vector<P> SpherePoints(std::size_t count) {
  const Frame f;
  Lcg rng;
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double z = 2.0 * rng.Next() - 1.0, phi = kTwoPi * rng.Next();
    const double s = std::sqrt(1.0 - z * z), rho = kRadius + kNoise * (rng.Next() - 0.5);
    p = f.c + P(s * std::cos(phi), s * std::sin(phi), z) * rho;
  }
  return pts;
}

void BM_LineFormError(benchmark::State& state) {
  const auto pts = CylinderPoints(static_cast<std::size_t>(state.range(0)));
  const Frame f;
  for (auto _ : state) benchmark::DoNotOptimize(metrofit::LineFormError(pts, f.c, f.n));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_PlaneFormError(benchmark::State& state) {
  const auto pts = PlanePoints(static_cast<std::size_t>(state.range(0)));
  const Frame f;
  for (auto _ : state) benchmark::DoNotOptimize(metrofit::PlaneFormError(pts, f.c, f.n));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_CylinderFormError(benchmark::State& state) {
  const auto pts = CylinderPoints(static_cast<std::size_t>(state.range(0)));
  const Frame f;
  for (auto _ : state) benchmark::DoNotOptimize(metrofit::AxialFormError(pts, f.c, f.n, kRadius));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_SphereFormError(benchmark::State& state) {
  const auto pts = SpherePoints(static_cast<std::size_t>(state.range(0)));
  const Frame f;
  for (auto _ : state) benchmark::DoNotOptimize(metrofit::SphereFormError(pts, f.c, kRadius));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_LineFormError)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK(BM_PlaneFormError)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK(BM_CylinderFormError)->RangeMultiplier(10)->Range(1000, 1000000);
BENCHMARK(BM_SphereFormError)->RangeMultiplier(10)->Range(1000, 1000000);

}  // namespace
