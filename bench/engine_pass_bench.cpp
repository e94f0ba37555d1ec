// Cost of one engine pass per point for each of the nine shapes: the accumulation of the
// normal equations (what every iteration pays) and the residual pass (paid once per fit).
// Items processed are points, so 1 / rate is the time per point per pass. For the line and
// the plane an iteration costs O(1) once the point moments are gathered; their accumulation
// benchmark therefore gathers the moments on every pass, which is the per-point work they do.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "bench_data.h"
#include "lsq/point_moments.h"
#include "lsq/shape.h"
#include "metrofit.h"

namespace {

using P = KPt3<double>;

constexpr std::size_t kPoints = 100000;

// Points around (100, 200, 300), none on an axis or a centre, so every model is finite.
std::vector<P> Cloud() {
  std::vector<P> pts(kPoints);
  bench_data::Lcg rng(1234567);
  auto uniform = [&rng] { return rng.Uniform(); };
  for (auto& p : pts) {
    const double t = 6.283185307179586 * uniform(), z = 40.0 * uniform() - 20.0;
    const double r = 25.0 + 0.01 * uniform();
    p = P(100.0 + r * std::cos(t), 200.0 + r * std::sin(t), 300.0 + z);
  }
  return pts;
}

// A result holding plausible parameters of every shape at once.
CFitResult Parameters() {
  CFitResult r;
  r.m_center = P(100.5, 199.5, 290.0);
  r.m_angles = P(0.02, 0.03, 0.0);
  r.m_size1 = P(25.0, 25.0, 3.0);   // radius; torus major, minor
  r.m_size2 = P(40.0, 500.0, 2.0);  // focal length, plane offset, cone slope
  r.m_size3 = P(30.0, 25.0, 0.0);   // spheroid semi-axes
  return r;
}

struct Setup {
  CFitInput in;
  CFitResult res = Parameters();
  metrofit::PointMoments moments;
  metrofit::PassContext ctx{in, res, {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, false, &moments, true};
  explicit Setup(int fitType) {
    in.m_points = Cloud();
    in.m_fitType = fitType;
    in.m_probeRadius = 0.0;
  }
};

void BM_EngineAccumulate(benchmark::State& state) {
  const int type = static_cast<int>(state.range(0));
  Setup s(type);
  const metrofit::ShapeDescription& shape = *metrofit::ShapeFor(type);
  state.SetLabel(shape.name);
  metrofit::NormalSums sums;
  for (auto _ : state) {
    s.moments.ready = false;  // line and plane: gather the moments every time
    shape.accumulate(s.ctx, sums);
    benchmark::DoNotOptimize(sums);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kPoints));
}

void BM_EngineResiduals(benchmark::State& state) {
  const int type = static_cast<int>(state.range(0));
  Setup s(type);
  const metrofit::ShapeDescription& shape = *metrofit::ShapeFor(type);
  state.SetLabel(shape.name);
  s.res.m_deviations.reserve(kPoints);
  for (auto _ : state) {
    s.res.m_deviations.clear();
    benchmark::DoNotOptimize(shape.residuals(s.ctx));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kPoints));
}

BENCHMARK(BM_EngineAccumulate)->DenseRange(0, 8)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EngineResiduals)->DenseRange(0, 8)->Unit(benchmark::kMicrosecond);

}  // namespace
