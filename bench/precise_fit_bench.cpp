// The precise method (metrofit::Fit, Method::kPrecise) end to end: estimate, iteration to the
// least-squares solution, deviations and uncertainties. Features about 740 mm from the origin
// on a tilted axis with 5 micrometres of noise, on 1e3 to 1e5 points; line, plane, sphere and
// circle also on 1e6. Items processed are points, so the rate is points per second of whole
// fits. The points are made once per size; a fit that does not converge stops the benchmark
// with an error rather than timing a failure.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <vector>

#include "bench_data.h"
#include "metrofit/fit.h"

namespace {

using bench_data::P;

constexpr double kDegree = bench_data::kTwoPi / 360.0;
// Coordinate noise (mm).
constexpr double kNoise = 0.005;
// Feature sizes (mm).
constexpr double kSphereRadius = 12.5;
constexpr double kCylinderRadius = 15.0;
constexpr double kCylinderLength = 40.0;
constexpr double kCircleRadius = 25.0;
constexpr double kConeRadius = 20.0;
constexpr double kConeHalfAngle = 0.5;  // rad
constexpr double kTorusMajor = 40.0;
constexpr double kTorusMinor = 6.0;
constexpr double kStripLength = 200.0;
constexpr double kStripWidth = 10.0;

std::vector<metrofit::Point> ToPoints(const std::vector<P>& pts) {
  std::vector<metrofit::Point> out;
  out.reserve(pts.size());
  for (const P& p : pts) out.push_back(metrofit::Point{p.x, p.y, p.z});
  return out;
}

void RunPrecise(benchmark::State& state, metrofit::Shape shape, const std::vector<P>& pts) {
  const std::vector<metrofit::Point> points = ToPoints(pts);
  metrofit::FitOptions options;
  options.shape = shape;
  options.method = metrofit::Method::kPrecise;
  for (auto _ : state) {
    const metrofit::FitResult r = metrofit::Fit(points, options);
    if (r.status != metrofit::Status::kOk) {
      state.SkipWithError("precise fit did not converge");
      break;
    }
    benchmark::DoNotOptimize(r.rms);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

std::size_t Size(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

void BM_PreciseLine(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kLine, bench_data::LinePoints(Size(state), kNoise));
}

void BM_PrecisePlaneStrip(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kPlane,
             bench_data::PlanePoints(Size(state), kStripLength, kStripWidth, kNoise));
}

void BM_PreciseSphere(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kSphere,
             bench_data::SpherePoints(Size(state), kSphereRadius, kNoise));
}

void BM_PreciseSphereCap90(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kSphere,
             bench_data::CapPoints(Size(state), kSphereRadius, kNoise));
}

void BM_PreciseCircleArc90(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kCircle,
             bench_data::CirclePoints(Size(state), kCircleRadius, 90.0 * kDegree, kNoise));
}

void BM_PreciseCylinder(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kCylinder,
             bench_data::CylinderPoints(Size(state), kCylinderRadius, kCylinderLength,
                                        bench_data::kTwoPi, kNoise));
}

void BM_PreciseCylinderSector120(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kCylinder,
             bench_data::CylinderPoints(Size(state), kCylinderRadius, kCylinderLength,
                                        120.0 * kDegree, kNoise));
}

void BM_PreciseCone(benchmark::State& state) {
  RunPrecise(
      state, metrofit::Shape::kCone,
      bench_data::ConePoints(Size(state), kConeRadius, kConeHalfAngle, bench_data::kTwoPi, kNoise));
}

void BM_PreciseTorus(benchmark::State& state) {
  RunPrecise(state, metrofit::Shape::kTorus,
             bench_data::TorusPoints(Size(state), kTorusMajor, kTorusMinor, kNoise));
}

// Up to 1e6 points for the features with a closed-form or quickly converging fit.
#define METROFIT_PRECISE_UP_TO(fn, largest) \
  BENCHMARK(fn)->RangeMultiplier(10)->Range(1000, largest)->Unit(benchmark::kMillisecond)

METROFIT_PRECISE_UP_TO(BM_PreciseLine, 1000000);
METROFIT_PRECISE_UP_TO(BM_PrecisePlaneStrip, 1000000);
METROFIT_PRECISE_UP_TO(BM_PreciseSphere, 1000000);
METROFIT_PRECISE_UP_TO(BM_PreciseSphereCap90, 1000000);
METROFIT_PRECISE_UP_TO(BM_PreciseCircleArc90, 1000000);
METROFIT_PRECISE_UP_TO(BM_PreciseCylinder, 100000);
METROFIT_PRECISE_UP_TO(BM_PreciseCylinderSector120, 100000);
METROFIT_PRECISE_UP_TO(BM_PreciseCone, 100000);
METROFIT_PRECISE_UP_TO(BM_PreciseTorus, 100000);

}  // namespace
