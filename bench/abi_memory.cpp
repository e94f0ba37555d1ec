// Peak memory of the multi-start, extended and torus fits of the binary interface on
// scanning-probe point counts: one fit each, tilted parts far from the origin, 5 um noise.
//
// Counters: points_MB, the size of the points themselves; extra_peak_MB, the peak resident
// memory during the call beyond what the process held before it, less the deviation list the
// call leaves in the caller's result (the caller's record); extra_per_points, their ratio. The
// peak is reset through /proc/self/clear_refs before each fit.
//
//   metrofit_abi_memory_bench --benchmark_filter=Cylinder
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "bench_data.h"
#include "heavy_common.h"
#include "metrofit.h"

namespace {

using bench_data::P;
using heavy::kMiB;
using heavy::ResetPeak;
using heavy::StatusKb;

constexpr double kTwoPi = 6.283185307179586;
constexpr double kNoise = 0.005;
constexpr double kRadius = 12.5;
constexpr double kLength = 60.0;

#if defined(__GLIBC__)
// Large blocks always from their own mappings, returned on release, as in heavy_input.cpp.
const int kFixedMmapThreshold = mallopt(M_MMAP_THRESHOLD, 1 << 20);
#endif

void MeasureFit(benchmark::State& state, std::int32_t (*fit)(CFitInput&, CFitResult&),
                const std::vector<P>& points) {
  double extraKb = 0.0;
  std::int32_t valid = 1;
  for (auto _ : state) {
    state.PauseTiming();
    CFitInput in;
    in.m_points = points;
    in.m_refPoint = bench_data::kCentre;
    CFitResult out;
    ResetPeak();
    const double before = StatusKb("VmRSS");
    state.ResumeTiming();
    valid = std::min(valid, fit(in, out));
    state.PauseTiming();
    const double records = static_cast<double>(out.m_deviations.capacity() * sizeof(P)) / 1024.0;
    extraKb = std::max(extraKb, StatusKb("VmHWM") - before - records);
    state.ResumeTiming();
  }
  const double pointsMb = static_cast<double>(points.size() * sizeof(P)) / kMiB;
  state.counters["points_MB"] = pointsMb;
  state.counters["extra_peak_MB"] = extraKb / 1024.0;
  state.counters["extra_per_points"] = extraKb / 1024.0 / pointsMb;
  state.counters["valid"] = valid;
}

std::size_t Count(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

void BM_MemoryKFitCylinder(benchmark::State& state) {
  MeasureFit(state, &KFitCylinder,
             bench_data::CylinderPoints(Count(state), kRadius, kLength, kTwoPi, kNoise));
}
void BM_MemoryKFitCone(benchmark::State& state) {
  MeasureFit(state, &KFitCone, bench_data::ConePoints(Count(state), kRadius, 0.35, kTwoPi, kNoise));
}
void BM_MemoryKFitCylinderEx(benchmark::State& state) {
  MeasureFit(state, &KFitCylinderEx,
             bench_data::CylinderPoints(Count(state), kRadius, kLength, kTwoPi, kNoise));
}
void BM_MemoryKFitTorus(benchmark::State& state) {
  MeasureFit(state, &KFitTorus, bench_data::TorusPoints(Count(state), 40.0, 8.0, kNoise));
}
void BM_MemoryKFitSphereEx(benchmark::State& state) {
  MeasureFit(state, &KFitSphereEx, bench_data::SpherePoints(Count(state), kRadius, kNoise));
}
void BM_MemoryKFitCircleEx(benchmark::State& state) {
  MeasureFit(state, &KFitCircleEx, bench_data::CirclePoints(Count(state), kRadius, kTwoPi, kNoise));
}
void BM_MemoryKFitLineEx(benchmark::State& state) {
  MeasureFit(state, &KFitLineEx, bench_data::LinePoints(Count(state), kNoise));
}

#define METROFIT_MEMORY_BENCH(fn, n) \
  BENCHMARK(fn)->Arg(n)->Iterations(1)->Unit(benchmark::kMillisecond)
METROFIT_MEMORY_BENCH(BM_MemoryKFitCylinder, 1000000);
METROFIT_MEMORY_BENCH(BM_MemoryKFitCone, 100000);
METROFIT_MEMORY_BENCH(BM_MemoryKFitCylinderEx, 100000);
METROFIT_MEMORY_BENCH(BM_MemoryKFitTorus, 100000);
METROFIT_MEMORY_BENCH(BM_MemoryKFitSphereEx, 1000000);
METROFIT_MEMORY_BENCH(BM_MemoryKFitCircleEx, 1000000);
METROFIT_MEMORY_BENCH(BM_MemoryKFitLineEx, 1000000);
#undef METROFIT_MEMORY_BENCH

}  // namespace
