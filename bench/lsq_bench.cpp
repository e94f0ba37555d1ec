// Least-squares fits through their entry points on noisy synthetic points: sphere, plane and
// circle on 1e2 to 1e6 points; paraboloid, ellipse and torus on 1e2 to 1e5. Items processed
// are points, so the reported rate is points per second of whole fits.
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
#include <vector>

#include "metrofit.h"

namespace {

using P = KPt3<double>;

constexpr double kTwoPi = 6.283185307179586;
// Coordinate noise of every point set (mm): 2 micrometres, well above rounding.
constexpr double kNoise = 0.002;

// Reproducible draws without a standard-library distribution.
class Lcg {
 public:
  explicit Lcg(std::uint64_t seed) : state_(seed) {}
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

 private:
  std::uint64_t state_;
};

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

P Jitter(Lcg& rng) {
  return P(rng.Noise(kNoise), rng.Noise(kNoise), rng.Noise(kNoise));
}

std::vector<P> SpherePoints(std::size_t count) {
  const Frame f;
  Lcg rng(11);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double z = 2.0 * rng.Uniform() - 1.0, phi = kTwoPi * rng.Uniform();
    const double s = std::sqrt(1.0 - z * z);
    p = f.c + P(s * std::cos(phi), s * std::sin(phi), z) * 25.0 + Jitter(rng);
  }
  return pts;
}

std::vector<P> PlanePoints(std::size_t count) {
  const Frame f;
  Lcg rng(12);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    p = f.c + f.u * (200.0 * rng.Uniform() - 100.0) + f.v * (200.0 * rng.Uniform() - 100.0) +
        Jitter(rng);
  }
  return pts;
}

std::vector<P> CirclePoints(std::size_t count) {
  const Frame f;
  Lcg rng(13);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = kTwoPi * rng.Uniform();
    p = f.c + (f.u * std::cos(t) + f.v * std::sin(t)) * 40.0 + Jitter(rng);
  }
  return pts;
}

// Paraboloid with focal length 50 mm out to a radius of 60 mm, vertex at the frame's centre.
std::vector<P> ParaboloidPoints(std::size_t count) {
  const Frame f;
  Lcg rng(14);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double rho = 60.0 * std::sqrt(rng.Uniform()), t = kTwoPi * rng.Uniform();
    p = f.c + (f.u * std::cos(t) + f.v * std::sin(t)) * rho + f.n * (rho * rho / 200.0) +
        Jitter(rng);
  }
  return pts;
}

// Planar ellipse in the plane of n and u: semi-axis 30 along n, 18 along u. The plane normal
// v has a large x component, so holding the centre's x fixes the centre's offset from it.
std::vector<P> EllipsePoints(std::size_t count) {
  const Frame f;
  Lcg rng(15);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = kTwoPi * rng.Uniform();
    p = f.c + f.n * (30.0 * std::cos(t)) + f.u * (18.0 * std::sin(t)) + Jitter(rng);
  }
  return pts;
}

// Full torus, major radius 50, tube radius 5, about n.
std::vector<P> TorusPoints(std::size_t count) {
  const Frame f;
  Lcg rng(16);
  std::vector<P> pts(count);
  for (auto& p : pts) {
    const double t = kTwoPi * rng.Uniform(), phi = kTwoPi * rng.Uniform();
    const P nr = f.u * std::cos(t) + f.v * std::sin(t);
    p = f.c + nr * (50.0 + 5.0 * std::cos(phi)) + f.n * (5.0 * std::sin(phi)) + Jitter(rng);
  }
  return pts;
}

template <class Make, class Fit>
void RunFit(benchmark::State& state, Make make, const CFitInput& base, Fit fit) {
  CFitInput in;
  in.m_points = make(static_cast<std::size_t>(state.range(0)));
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

void BM_LsqSphere(benchmark::State& state) {
  RunFit(state, SpherePoints, CFitInput(), KFitSphere);
}

void BM_LsqPlane(benchmark::State& state) {
  RunFit(state, PlanePoints, CFitInput(), KFitPlane);
}

void BM_LsqCircle(benchmark::State& state) {
  RunFit(state, CirclePoints, CFitInput(), KFitCircle);
}

void BM_LsqParaboloid(benchmark::State& state) {
  RunFit(state, ParaboloidPoints, CFitInput(), KFitParaboloid);
}

void BM_LsqEllipseFromNominal(benchmark::State& state) {
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
  RunFit(state, EllipsePoints, base, KFitEllipse);
}

void BM_LsqTorus(benchmark::State& state) {
  RunFit(state, TorusPoints, CFitInput(), KFitTorus);
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

}  // namespace
