// Least-squares fits through their entry points on noisy synthetic points: sphere, plane and
// circle on 1e2 to 1e6 points; paraboloid, ellipse and torus on 1e2 to 1e5 (2 micrometres of
// noise). The fit-size benchmarks (BM_FitSize*) run line, plane, circle, full sphere, 90-degree
// sphere cap, ellipse and paraboloid on 1e3 to 1e6 points with 5 micrometres of noise. Items
// processed are points, so the reported rate is points per second of whole fits.
//
// Each iteration starts from the same settings: `in = base` copies the settings of the base
// input but not its points (the records' assignment), so the points are made once per size
// and the fit's own changes to its input (fit type, start angles, a torus winner's starts) do
// not carry over. A fresh result per iteration keeps the deviation list from growing. A fit
// that fails stops the benchmark with an error rather than timing a failure.
//
// The ellipse runs from nominal values with the axis and the centre's offset from the plane
// held: with a free axis the driver's single radius start (a sphere) leaves the axis angles
// without influence and the fit cannot start (see tests/lsq/paraboloid_ellipse_fit_test.cpp).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "bench_data.h"
#include "metrofit.h"

namespace {

using bench_data::Lcg;
using bench_data::P;

constexpr double kTwoPi = bench_data::kTwoPi;
// Coordinate noise of the engine benchmarks' point sets (mm): 2 micrometres, well above
// rounding.
constexpr double kNoise = 0.002;

P Unit(P v) {
  v.Normalize();
  return v;
}

// A tilted frame some 400 mm from the origin: axis n, in-plane directions u, v.
struct Frame {
  P c{-250.0, 310.0, 180.0};
  P u, v, n;
  Frame() {
    n = Unit(P(0.25, 0.35, 0.9));
    u = Unit(n.Cross(P(1.0, 0.0, 0.0)));
    v = n.Cross(u);
  }
};

// Isotropic deviation: each coordinate with standard deviation `noise` (mm).
P Jitter(Lcg& rng, double noise) {
  return P(rng.Noise(noise), rng.Noise(noise), rng.Noise(noise));
}

std::vector<P> SpherePoints(std::size_t count, double noise) {
  const Frame f;
  Lcg rng(11);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double z = 2.0 * rng.Uniform() - 1.0, phi = kTwoPi * rng.Uniform();
    const double s = std::sqrt(1.0 - z * z);
    p = f.c + P(s * std::cos(phi), s * std::sin(phi), z) * 25.0 + Jitter(rng, noise);
  }
  return pts;
}

std::vector<P> PlanePoints(std::size_t count, double noise) {
  const Frame f;
  Lcg rng(12);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    p = f.c + f.u * (200.0 * rng.Uniform() - 100.0) + f.v * (200.0 * rng.Uniform() - 100.0) +
        Jitter(rng, noise);
  }
  return pts;
}

std::vector<P> CirclePoints(std::size_t count, double noise) {
  const Frame f;
  Lcg rng(13);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = kTwoPi * rng.Uniform();
    p = f.c + (f.u * std::cos(t) + f.v * std::sin(t)) * 40.0 + Jitter(rng, noise);
  }
  return pts;
}

// Paraboloid with focal length 50 mm out to a radius of 60 mm, vertex at the frame's centre.
std::vector<P> ParaboloidPoints(std::size_t count, double noise) {
  const Frame f;
  Lcg rng(14);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double rho = 60.0 * std::sqrt(rng.Uniform()), t = kTwoPi * rng.Uniform();
    p = f.c + (f.u * std::cos(t) + f.v * std::sin(t)) * rho + f.n * (rho * rho / 200.0) +
        Jitter(rng, noise);
  }
  return pts;
}

// Planar ellipse in the plane of n and u: semi-axis 30 along n, 18 along u. The plane normal
// v has a large x component, so holding the centre's x fixes the centre's offset from it.
std::vector<P> EllipsePoints(std::size_t count, double noise) {
  const Frame f;
  Lcg rng(15);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = kTwoPi * rng.Uniform();
    p = f.c + f.n * (30.0 * std::cos(t)) + f.u * (18.0 * std::sin(t)) + Jitter(rng, noise);
  }
  return pts;
}

// Full torus, major radius 50, tube radius 5, about n.
std::vector<P> TorusPoints(std::size_t count, double noise) {
  const Frame f;
  Lcg rng(16);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = kTwoPi * rng.Uniform(), phi = kTwoPi * rng.Uniform();
    const P nr = f.u * std::cos(t) + f.v * std::sin(t);
    p = f.c + nr * (50.0 + 5.0 * std::cos(phi)) + f.n * (5.0 * std::sin(phi)) + Jitter(rng, noise);
  }
  return pts;
}

// Items processed are points. `in = base` copies the settings, not the points.
template <class Fit>
void RunFit(benchmark::State& state, std::vector<P> points, const CFitInput& base, Fit fit) {
  CFitInput in;
  in.m_points = std::move(points);
  for (auto _ : state) {
    in = base;  // settings only; the points stay
    CFitResult out;
    if (fit(in, out) == 0 || out.m_valid == 0) {
      state.SkipWithError("fit failed");
      break;
    }
    benchmark::DoNotOptimize(out.m_center);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

std::size_t Size(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

// The settings under which the ellipse converges: the axis and the centre's offset from the
// plane held at nominal values, the rest of the centre and one radius as starting values.
CFitInput EllipseFromNominal() {
  const Frame f;
  CFitInput base;
  base.m_centerParam.value = f.c + f.n * 0.3 + f.u * 0.2;
  base.m_centerParam.value.x = f.c.x;  // the plane offset: held at its nominal value
  base.m_centerParam.mode[0] = 1;
  base.m_centerParam.mode[1] = 2;
  base.m_centerParam.mode[2] = 2;
  base.m_axisParam.value = f.n;
  for (int& m : base.m_axisParam.mode) m = 1;
  base.m_size1Param.value.x = 24.0;
  base.m_size1Param.mode[0] = 2;
  return base;
}

void BM_LsqSphere(benchmark::State& state) {
  RunFit(state, SpherePoints(Size(state), kNoise), CFitInput(), KFitSphere);
}

void BM_LsqPlane(benchmark::State& state) {
  RunFit(state, PlanePoints(Size(state), kNoise), CFitInput(), KFitPlane);
}

void BM_LsqCircle(benchmark::State& state) {
  RunFit(state, CirclePoints(Size(state), kNoise), CFitInput(), KFitCircle);
}

void BM_LsqParaboloid(benchmark::State& state) {
  RunFit(state, ParaboloidPoints(Size(state), kNoise), CFitInput(), KFitParaboloid);
}

void BM_LsqEllipseFromNominal(benchmark::State& state) {
  RunFit(state, EllipsePoints(Size(state), kNoise), EllipseFromNominal(), KFitEllipse);
}

void BM_LsqTorus(benchmark::State& state) {
  RunFit(state, TorusPoints(Size(state), kNoise), CFitInput(), KFitTorus);
}

BENCHMARK(BM_LsqSphere)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LsqPlane)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LsqCircle)->RangeMultiplier(10)->Range(100, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LsqParaboloid)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LsqEllipseFromNominal)
    ->RangeMultiplier(10)
    ->Range(100, 100000)
    ->Unit(benchmark::kMillisecond);
// The torus fit runs up to four candidates, one of them the multi-start extended cylinder:
// seconds per call from 1e4 points on, so the large sizes run once.
BENCHMARK(BM_LsqTorus)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LsqTorus)->Arg(10000)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------------------------
// Fit sizes: every least-squares entry point end to end on 1e3 to 1e6 points with 5 micrometres
// of noise, from no start values (the ellipse from the nominal settings it needs), so the
// figures of one shape across sizes show how a fit scales with the number of points.
// ---------------------------------------------------------------------------------------------

// Standard deviation of the deviations of the fit-size point sets (mm).
constexpr double kSizeNoise = 0.005;
// Sphere cap radius (mm).
constexpr double kCapRadius = 12.5;

void BM_FitSizeLine(benchmark::State& state) {
  RunFit(state, bench_data::LinePoints(Size(state), kSizeNoise), CFitInput(), KFitLine);
}

void BM_FitSizePlane(benchmark::State& state) {
  RunFit(state, PlanePoints(Size(state), kSizeNoise), CFitInput(), KFitPlane);
}

void BM_FitSizeCircle(benchmark::State& state) {
  RunFit(state, CirclePoints(Size(state), kSizeNoise), CFitInput(), KFitCircle);
}

void BM_FitSizeSphere(benchmark::State& state) {
  RunFit(state, SpherePoints(Size(state), kSizeNoise), CFitInput(), KFitSphere);
}

void BM_FitSizeSphereCap90(benchmark::State& state) {
  RunFit(state, bench_data::CapPoints(Size(state), kCapRadius, kSizeNoise), CFitInput(),
         KFitSphere);
}

void BM_FitSizeEllipse(benchmark::State& state) {
  RunFit(state, EllipsePoints(Size(state), kSizeNoise), EllipseFromNominal(), KFitEllipse);
}

void BM_FitSizeParaboloid(benchmark::State& state) {
  RunFit(state, ParaboloidPoints(Size(state), kSizeNoise), CFitInput(), KFitParaboloid);
}

BENCHMARK(BM_FitSizeLine)->RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FitSizePlane)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FitSizeCircle)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FitSizeSphere)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FitSizeSphereCap90)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FitSizeEllipse)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FitSizeParaboloid)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
