// Extended line and sphere fits on 1e2 to 1e6 points at CMM scale (features about 500 mm from
// the origin, micrometre-level form deviation). Inputs are made once per size; each iteration
// fits a fresh result record.
#include <benchmark/benchmark.h>

#include "bench_data.h"
#include "metrofit.h"

namespace {

using bench_data::CapPoints;
using bench_data::LinePoints;

constexpr double kRadius = 12.5;
// Form deviation of the synthetic points, well above rounding: uniform, 2 micrometres peak to
// valley.
constexpr double kNoise = 0.002 / bench_data::kSqrt12;

void BM_KFitLineEx(benchmark::State& state) {
  CFitInput in;
  in.m_points = LinePoints(static_cast<std::size_t>(state.range(0)), kNoise);
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
  in.m_points = CapPoints(static_cast<std::size_t>(state.range(0)), kRadius, kNoise);
  for (auto _ : state) {
    CFitResult out;
    if (KFitSphereEx(in, out) != 1) state.SkipWithError("sphere fit failed");
    benchmark::DoNotOptimize(out.m_formError);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_KFitSphereEx)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);

}  // namespace
