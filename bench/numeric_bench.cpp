// Numeric core: SVD of n x 3 point matrices, the smallest enclosing ball and one
// Levenberg-Marquardt sphere refinement. Point sets are made once per size outside the timed
// loop; the SVD overwrites its input, so each iteration restores it untimed.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "bench_data.h"
#include "extended/circle_fit_ex.h"
#include "extended/cylinder_model.h"
#include "extended/sphere_fit_ex.h"
#include "numeric/compensated.h"
#include "numeric/enclosing_ball.h"
#include "numeric/levenberg_marquardt.h"
#include "numeric/nvector.h"
#include "numeric/svd.h"
#include "numeric/vector_path.h"

namespace {

using namespace metrofit::numeric;

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

// Centred points near a tilted plane patch (for the SVD).
std::vector<double> PlanePatch(std::size_t count) {
  Lcg rng;
  std::vector<double> xyz(3 * count);
  const double u[3] = {0.6, 0.8, 0.0};
  const double v[3] = {-0.48, 0.36, 0.8};
  const double n[3] = {0.64, -0.48, 0.6};
  for (std::size_t i = 0; i < count; ++i) {
    const double a = 200.0 * rng.Next() - 100.0;
    const double b = 200.0 * rng.Next() - 100.0;
    const double h = kNoise * (rng.Next() - 0.5);
    for (int k = 0; k < 3; ++k) xyz[3 * i + k] = a * u[k] + b * v[k] + h * n[k];
  }
  return xyz;
}

// Points on a sphere of radius kRadius about the origin, with radial noise.
std::vector<double> SphereShell(std::size_t count) {
  Lcg rng;
  std::vector<double> xyz(3 * count);
  for (std::size_t i = 0; i < count; ++i) {
    const double z = 2.0 * rng.Next() - 1.0;
    const double phi = kTwoPi * rng.Next();
    const double s = std::sqrt(1.0 - z * z);
    const double rho = kRadius + kNoise * (rng.Next() - 0.5);
    xyz[3 * i] = rho * s * std::cos(phi);
    xyz[3 * i + 1] = rho * s * std::sin(phi);
    xyz[3 * i + 2] = rho * z;
  }
  return xyz;
}

// Points filling a box (for the enclosing ball: few points on the boundary).
std::vector<double> FilledBox(std::size_t count) {
  Lcg rng;
  std::vector<double> xyz(3 * count);
  for (double& e : xyz) e = 20.0 * rng.Next() - 10.0;
  return xyz;
}

UniquePointSet ToPointSet(const std::vector<double>& xyz) {
  UniquePointSet s(CreatePointSet(static_cast<std::int32_t>(xyz.size() / 3)));
  std::memcpy(s->xyz, xyz.data(), xyz.size() * sizeof(double));
  return s;
}

void BM_SvdNx3(benchmark::State& state) {
  const auto xyz = PlanePatch(static_cast<std::size_t>(state.range(0)));
  UniquePointSet pts = ToPointSet(xyz);
  UniqueMatrix a(CreateMatrixOver(*pts));
  UniqueVector w(CreateVector(3));
  UniqueMatrix v(CreateMatrix(3, 3, kGeneral));
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(pts->xyz, xyz.data(), xyz.size() * sizeof(double));
    state.ResumeTiming();
    const NumericStatus status =
        SingularValueDecomposition(a.get(), w.get(), v.get(), kSvdSweepLimit);
    if (status != NumericStatus::kOk) state.SkipWithError("decomposition failed");
    benchmark::DoNotOptimize(w->data[0]);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SvdNx3)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMicrosecond);

void EnclosingBall(benchmark::State& state, const std::vector<double>& xyz) {
  UniquePointSet pts = ToPointSet(xyz);
  UniqueVector x(CreateVector(4));
  for (auto _ : state) {
    const NumericStatus status =
        SmallestEnclosingBall(pts.get(), x.get(), 100, 1e-9, false, nullptr);
    if (status != NumericStatus::kOk) state.SkipWithError("walk did not finish within 100 pivots");
    benchmark::DoNotOptimize(x->data[3]);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_EnclosingBallBox(benchmark::State& state) {
  EnclosingBall(state, FilledBox(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(BM_EnclosingBallBox)
    ->RangeMultiplier(10)
    ->Range(100, 1000000)
    ->Unit(benchmark::kMicrosecond);

void BM_EnclosingBallSphereShell(benchmark::State& state) {
  EnclosingBall(state, SphereShell(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(BM_EnclosingBallSphereShell)
    ->RangeMultiplier(10)
    ->Range(100, 1000000)
    ->Unit(benchmark::kMicrosecond);

double SphereResidual(const PointSet& pts, std::int32_t i, const NVector& x) {
  const double* p = pts.Point(i);
  return Hypot3(p[0] - x[0], p[1] - x[1], p[2] - x[2]) - x[3];
}

void SphereRow(const PointSet& pts, std::int32_t i, const NVector& x, NVector& row, double& r) {
  const double* p = pts.Point(i);
  const double d[3] = {p[0] - x[0], p[1] - x[1], p[2] - x[2]};
  const double len = Hypot3(d[0], d[1], d[2]);
  for (int k = 0; k < 3; ++k) row[k] = len == 0.0 ? 0.0 : -d[k] / len;
  row[3] = -1.0;
  r = len - x[3];
}

double SphereObjective(void* ctx, const NVector& x) {
  return SumOfSquares(*static_cast<const PointSet*>(ctx), x, SphereResidual);
}

void SphereGradient(void* ctx, NVector& x, NVector& g, NMatrix& a) {
  NormalEquations(*static_cast<const PointSet*>(ctx), x, SphereRow, g, a);
}

void BM_MinimiseLMSphere(benchmark::State& state) {
  UniquePointSet pts = ToPointSet(SphereShell(static_cast<std::size_t>(state.range(0))));
  UniqueVector x(CreateVector(4));
  for (auto _ : state) {
    // Start off by 1 % of the radius in every parameter, as from an enclosing ball.
    (*x)[0] = 0.125;
    (*x)[1] = -0.125;
    (*x)[2] = 0.125;
    (*x)[3] = kRadius * 1.01;
    double f = 0.0;
    const NumericStatus status =
        MinimiseLM(pts.get(), SphereObjective, SphereGradient, 100, 1e-9, &f, x.get(), nullptr);
    if (status != NumericStatus::kOk) state.SkipWithError("minimiser did not converge");
    benchmark::DoNotOptimize(f);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MinimiseLMSphere)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

// One pass of the extended cylinder's objective (sum of squared residuals) and of its normal
// equations, per point: items are points, so 1 / rate is the cost per point per pass.
namespace {

metrofit::numeric::UniqueVector CylinderParameters() {
  UniqueVector x(CreateVector(metrofit::numeric::kCylinderParams));
  const double values[] = {0.1, -0.2, 0.05, 0.0, 0.0, 1.0, kRadius};
  for (int k = 0; k < metrofit::numeric::kCylinderParams; ++k) (*x)[k] = values[k];
  return x;
}

void BM_NumericCylinderObjective(benchmark::State& state) {
  UniquePointSet pts = ToPointSet(SphereShell(static_cast<std::size_t>(state.range(0))));
  UniqueVector x = CylinderParameters();
  for (auto _ : state) benchmark::DoNotOptimize(CylinderObjective(pts.get(), *x));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_NumericCylinderObjective)->Arg(100000)->Unit(benchmark::kMicrosecond);

void BM_NumericCylinderNormalEquations(benchmark::State& state) {
  // Argument 0: the processor's vector path; 1: the baseline path forced.
  if (state.range(1) == 1)
    metrofit::numeric::ForceVectorPath(metrofit::numeric::VectorPath::kBaseline);
  UniquePointSet pts = ToPointSet(SphereShell(static_cast<std::size_t>(state.range(0))));
  UniqueVector x = CylinderParameters();
  UniqueVector g(CreateVector(metrofit::numeric::kCylinderParams));
  UniqueMatrix a(CreateMatrix(metrofit::numeric::kCylinderParams,
                              metrofit::numeric::kCylinderParams, kPackedSymmetric));
  for (auto _ : state) {
    NormalEquations(*pts, *x, metrofit::numeric::CylinderResidualRows, *g, *a);
    benchmark::DoNotOptimize(a->data[0]);
  }
  metrofit::numeric::ResetVectorPath();
  state.SetLabel(state.range(1) == 1 ? "baseline path" : "processor's path");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_NumericCylinderNormalEquations)
    ->Args({100000, 0})
    ->Args({100000, 1})
    ->Unit(benchmark::kMicrosecond);

// The normal equations of the sphere (4 unknowns) and of the circle in its plane (3), the
// narrow rows of the extended sphere and circle fits, on the processor's path.
void BM_NumericNarrowNormalEquations(benchmark::State& state) {
  const bool sphere = state.range(1) == 4;
  const std::int32_t p = sphere ? 4 : 3;
  UniquePointSet pts = ToPointSet(SphereShell(static_cast<std::size_t>(state.range(0))));
  UniqueVector x(CreateVector(p));
  for (std::int32_t k = 0; k < p; ++k) (*x)[k] = k + 1 < p ? 0.1 * (k + 1) : kRadius;
  UniqueVector g(CreateVector(p));
  UniqueMatrix a(CreateMatrix(p, p, kPackedSymmetric));
  for (auto _ : state) {
    NormalEquations(*pts, *x, sphere ? SphereResidualRows : CircleResidualRows, *g, *a);
    benchmark::DoNotOptimize(a->data[0]);
  }
  state.SetLabel(sphere ? "sphere" : "circle");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_NumericNarrowNormalEquations)
    ->Args({100000, 4})
    ->Args({100000, 3})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
