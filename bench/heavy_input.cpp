// The modern interface on the point counts a line scanner makes: 1e7 points (set
// METROFIT_HEAVY_POINTS for another count) on a sphere, a plane, a cylinder and a 90-degree
// sphere cap, precise method, one thread, one run each.
//
// Counters: points_MB, the size of the points themselves; extra_peak_MB, the peak resident
// memory during the fit beyond what the process held before it (the points included there);
// extra_per_points, their ratio. The peak is reset through /proc/self/clear_refs before each
// fit, so every benchmark reports its own.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "bench_data.h"
#include "heavy_common.h"
#include "metrofit/fit.h"

namespace {

using bench_data::P;

using heavy::kCylinderLength;
using heavy::kMiB;
using heavy::kNoise;
using heavy::kPlaneSide;
using heavy::kRadius;
using heavy::PointCount;
using heavy::ResetPeak;
using heavy::StatusKb;

void FitHeavy(benchmark::State& state, metrofit::Shape shape, const std::vector<P>& points) {
  static_assert(sizeof(P) == 3 * sizeof(double), "points are packed triples");
  metrofit::FitOptions options;
  options.shape = shape;
  double extraKb = 0.0;
  bool valid = true;
  for (auto _ : state) {
    state.PauseTiming();
    ResetPeak();
    const double before = StatusKb("VmRSS");
    state.ResumeTiming();
    const metrofit::FitResult result =
        metrofit::Fit(reinterpret_cast<const double*>(points.data()), points.size(), options);
    state.PauseTiming();
    extraKb = std::max(extraKb, StatusKb("VmHWM") - before);
    valid = valid && result.valid;
    state.ResumeTiming();
  }
  const double pointsMb = static_cast<double>(points.size() * sizeof(P)) / kMiB;
  state.counters["points_MB"] = pointsMb;
  state.counters["extra_peak_MB"] = extraKb / 1024.0;
  state.counters["extra_per_points"] = extraKb / 1024.0 / pointsMb;
  state.counters["valid"] = valid ? 1.0 : 0.0;
}

#if defined(__GLIBC__)
// Large blocks always from their own mappings, returned on release: glibc otherwise raises
// the threshold after the first large free and serves later blocks from pages already resident.
const int kFixedMmapThreshold = mallopt(M_MMAP_THRESHOLD, 1 << 20);
#endif

void BM_HeavySphere(benchmark::State& state) {
  const std::vector<P> pts = bench_data::SpherePoints(PointCount(), kRadius, kNoise);
  FitHeavy(state, metrofit::Shape::kSphere, pts);
}
void BM_HeavyPlane(benchmark::State& state) {
  const std::vector<P> pts = bench_data::PlanePoints(PointCount(), kPlaneSide, kPlaneSide, kNoise);
  FitHeavy(state, metrofit::Shape::kPlane, pts);
}
void BM_HeavyCylinder(benchmark::State& state) {
  const std::vector<P> pts = bench_data::CylinderPoints(PointCount(), kRadius, kCylinderLength,
                                                        bench_data::kTwoPi, kNoise);
  FitHeavy(state, metrofit::Shape::kCylinder, pts);
}
void BM_HeavySphereCap90(benchmark::State& state) {
  const std::vector<P> pts = bench_data::CapPoints(PointCount(), kRadius, kNoise);
  FitHeavy(state, metrofit::Shape::kSphere, pts);
}

BENCHMARK(BM_HeavySphere)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeavyPlane)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeavyCylinder)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HeavySphereCap90)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
