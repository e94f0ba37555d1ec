// Fits of every shape on as many threads as the machine has, through the KFit* functions and
// metrofit::Fit (both methods), each result compared bit for bit with the same fit run alone
// before the threads start. Fits keep no process-wide state (the point store behind
// KFitCircleEx and KFitTorus is per thread), so any difference is a data race or hidden shared
// state.
//
// Bounded in time: the threads keep cycling through the fits until the budget is spent
// (kDefaultSeconds, or METROFIT_STRESS_SECONDS).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "metrofit.h"
#include "metrofit/fit.h"

namespace {

using P = KPt3<double>;

// Seconds the threads spend cycling through the fits.
constexpr double kDefaultSeconds = 30.0;
// Points per data set: enough for every fit to iterate, few enough for many rounds.
constexpr int kPoints = 240;
// Form noise of the data sets (mm): micrometre scatter, as a CMM gives.
constexpr double kNoise = 0.002;
constexpr std::uint64_t kSeed = 0x5EED0016ULL;
constexpr double kPi = 3.141592653589793;

class Lcg {
 public:
  explicit Lcg(std::uint64_t seed) : state_(seed) {}
  double Uniform() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state_ >> 11) * (1.0 / 9007199254740992.0);
  }
  double Noise() { return kNoise * (2.0 * Uniform() - 1.0); }

 private:
  std::uint64_t state_;
};

// A tilted frame some 600 mm from the origin: centre + a u + b v + h n.
const P kCentre(412.5, -287.25, 318.0);
const P kU(0.6, 0.8, 0.0);
const P kV(-0.48, 0.36, 0.8);
const P kN(0.64, -0.48, 0.6);

P At(double a, double b, double h) {
  return kCentre + kU * a + kV * b + kN * h;
}

// Local point (a, b, h) of each surface for the parameters s, t in [0, 1), before noise;
// arcs and caps are partial, as on a real part.
using Local = std::function<P(double s, double t, Lcg& rng)>;

std::vector<P> Make(const Local& local, std::uint64_t seed) {
  Lcg rng(seed);
  std::vector<P> pts;
  for (int i = 0; i < kPoints; ++i) {
    const double s = rng.Uniform(), t = rng.Uniform();
    pts.push_back(local(s, t, rng));
  }
  return pts;
}

std::vector<P> LinePoints() {
  return Make([](double s, double, Lcg& r) { return At(r.Noise(), r.Noise(), 80.0 * s); }, kSeed);
}
std::vector<P> PlanePoints() {
  return Make([](double s, double t, Lcg& r) { return At(60.0 * s, 40.0 * t, r.Noise()); },
              kSeed + 1);
}
std::vector<P> CirclePoints() {  // 240-degree arc, radius 25
  return Make(
      [](double s, double, Lcg& r) {
        const double a = 4.0 * kPi / 3.0 * s, rho = 25.0 + r.Noise();
        return At(rho * std::cos(a), rho * std::sin(a), r.Noise());
      },
      kSeed + 2);
}
std::vector<P> SpherePoints() {  // cap of 120 degrees, radius 15
  return Make(
      [](double s, double t, Lcg& r) {
        const double pol = kPi / 3.0 * t, az = 2.0 * kPi * s, rho = 15.0 + r.Noise();
        return At(rho * std::sin(pol) * std::cos(az), rho * std::sin(pol) * std::sin(az),
                  rho * std::cos(pol));
      },
      kSeed + 3);
}
std::vector<P> CylinderPoints() {  // 270-degree band, radius 20, 50 high
  return Make(
      [](double s, double t, Lcg& r) {
        const double a = 1.5 * kPi * s, rho = 20.0 + r.Noise();
        return At(rho * std::cos(a), rho * std::sin(a), 50.0 * t);
      },
      kSeed + 4);
}
std::vector<P> ConePoints() {  // half angle 20 degrees
  return Make(
      [](double s, double t, Lcg& r) {
        const double a = 2.0 * kPi * s, h = 10.0 + 30.0 * t;
        const double rho = h * std::tan(20.0 * kPi / 180.0) + r.Noise();
        return At(rho * std::cos(a), rho * std::sin(a), h);
      },
      kSeed + 5);
}
std::vector<P> EllipsePoints() {  // semi-axes 30 and 18, full turn, in the plane
  return Make(
      [](double s, double, Lcg& r) {
        const double a = 2.0 * kPi * s;
        return At((30.0 + r.Noise()) * std::cos(a), (18.0 + r.Noise()) * std::sin(a), r.Noise());
      },
      kSeed + 6);
}
std::vector<P> ParaboloidPoints() {  // focal length 12.5: h = rho^2 / 50
  return Make(
      [](double s, double t, Lcg& r) {
        const double a = 2.0 * kPi * s, rho = 30.0 * t + 1.0;
        return At(rho * std::cos(a), rho * std::sin(a), rho * rho / 50.0 + r.Noise());
      },
      kSeed + 7);
}
std::vector<P> SpheroidPoints() {  // semi-axes 40 along the axis, 25 across
  return Make(
      [](double s, double t, Lcg& r) {
        const double pol = kPi * (0.1 + 0.8 * t), az = 2.0 * kPi * s, e = r.Noise();
        return At((25.0 + e) * std::sin(pol) * std::cos(az),
                  (25.0 + e) * std::sin(pol) * std::sin(az), (40.0 + e) * std::cos(pol));
      },
      kSeed + 8);
}
std::vector<P> TorusPoints() {  // major radius 40, minor 8, outer half of the tube
  return Make(
      [](double s, double t, Lcg& r) {
        const double a = 2.0 * kPi * s, b = kPi * (t - 0.5), m = 8.0 + r.Noise();
        const double rho = 40.0 + m * std::cos(b);
        return At(rho * std::cos(a), rho * std::sin(a), m * std::sin(b));
      },
      kSeed + 9);
}

// A fit turned into the bytes of everything it reports.
struct Job {
  std::string name;
  std::function<std::vector<unsigned char>()> run;
};

void Put(std::vector<unsigned char>& out, const void* p, std::size_t n) {
  const auto* b = static_cast<const unsigned char*>(p);
  out.insert(out.end(), b, b + n);
}
void Put(std::vector<unsigned char>& out, double v) {
  Put(out, &v, sizeof v);
}
void Put(std::vector<unsigned char>& out, const P& v) {
  Put(out, v.x);
  Put(out, v.y);
  Put(out, v.z);
}
void Put(std::vector<unsigned char>& out, const std::string& s) {
  Put(out, s.data(), s.size());
}

P Centroid(const std::vector<P>& pts) {
  P c;
  for (const P& p : pts) c += p;
  return c * (1.0 / static_cast<double>(pts.size()));
}

// The reported record; m_extraValue is left out, it is deliberately never set.
std::vector<unsigned char> Bytes(std::int32_t rc, const CFitResult& r) {
  std::vector<unsigned char> out;
  Put(out, &rc, sizeof rc);
  for (const P* v : {&r.m_center, &r.m_axis, &r.m_angles, &r.m_size1, &r.m_size2, &r.m_size3}) {
    Put(out, *v);
  }
  for (const P& d : r.m_deviations) Put(out, d);
  for (double v :
       {r.m_sigma, r.m_rms, r.m_formError, r.m_minDeviation, r.m_maxDeviation, r.m_objective}) {
    Put(out, v);
  }
  Put(out, &r.m_iterations, sizeof r.m_iterations);
  Put(out, &r.m_valid, sizeof r.m_valid);
  Put(out, r.m_message);
  return out;
}

std::vector<unsigned char> Bytes(const metrofit::FitResult& r) {
  std::vector<unsigned char> out;
  const int head[] = {static_cast<int>(r.valid), static_cast<int>(r.status), r.iterations};
  Put(out, head, sizeof head);
  Put(out, r.message);
  Put(out, r.center.data(), sizeof r.center);
  if (r.axis) Put(out, r.axis->data(), sizeof *r.axis);
  for (const auto& o : {r.radius, r.half_angle, r.major_radius, r.minor_radius, r.focal_length}) {
    if (o) Put(out, *o);
  }
  if (r.semi_axes) Put(out, r.semi_axes->data(), sizeof *r.semi_axes);
  if (r.major_direction) Put(out, r.major_direction->data(), sizeof *r.major_direction);
  for (const metrofit::Parameter& p : r.parameters) {
    Put(out, p.name);
    Put(out, p.value.data(), p.value.size() * sizeof(double));
    Put(out, p.uncertainty.data(), p.uncertainty.size() * sizeof(double));
  }
  Put(out, r.deviations.data(), r.deviations.size() * sizeof(double));
  Put(out, r.residuals.data(), r.residuals.size() * sizeof(r.residuals[0]));
  for (double v : {r.rms, r.sigma, r.min_deviation, r.max_deviation, r.form_error}) Put(out, v);
  return out;
}

using KFit = std::int32_t (*)(CFitInput&, CFitResult&);

Job KFitJob(const std::string& name, KFit fit, const std::vector<P>& pts) {
  return {name, [fit, pts] {
            CFitInput in;
            in.m_points = pts;
            in.m_refPoint = Centroid(pts);
            CFitResult out;
            const std::int32_t rc = fit(in, out);
            return Bytes(rc, out);
          }};
}

Job ModernJob(metrofit::Shape shape, metrofit::Method method, const std::vector<P>& pts) {
  std::vector<metrofit::Point> points;
  for (const P& p : pts) points.push_back({p.x, p.y, p.z});
  metrofit::FitOptions options;
  options.shape = shape;
  options.method = method;
  return {std::string("Fit ") + metrofit::ToString(shape) + " " + metrofit::ToString(method),
          [points, options] { return Bytes(metrofit::Fit(points, options)); }};
}

std::vector<Job> AllJobs() {
  const std::vector<P> line = LinePoints(), plane = PlanePoints(), circle = CirclePoints(),
                       sphere = SpherePoints(), cylinder = CylinderPoints(), cone = ConePoints(),
                       ellipse = EllipsePoints(), paraboloid = ParaboloidPoints(),
                       spheroid = SpheroidPoints(), torus = TorusPoints();
  std::vector<Job> jobs = {
      KFitJob("KFitLine", KFitLine, line),
      KFitJob("KFitLineEx", KFitLineEx, line),
      KFitJob("KFitPlane", KFitPlane, plane),
      KFitJob("KFitCircle", KFitCircle, circle),
      KFitJob("KFitCircleEx", KFitCircleEx, circle),
      KFitJob("KFitSphere", KFitSphere, sphere),
      KFitJob("KFitSphereEx", KFitSphereEx, sphere),
      KFitJob("KFitCylinder", KFitCylinder, cylinder),
      KFitJob("KFitCylinderEx", KFitCylinderEx, cylinder),
      KFitJob("KFitCone", KFitCone, cone),
      KFitJob("KFitEllipse", KFitEllipse, spheroid),
      KFitJob("KFitParaboloid", KFitParaboloid, paraboloid),
      KFitJob("KFitTorus", KFitTorus, torus),
  };
  using metrofit::Shape;
  const std::pair<Shape, const std::vector<P>*> shapes[] = {
      {Shape::kLine, &line},       {Shape::kPlane, &plane},           {Shape::kCircle, &circle},
      {Shape::kSphere, &sphere},   {Shape::kCylinder, &cylinder},     {Shape::kCone, &cone},
      {Shape::kEllipse, &ellipse}, {Shape::kParaboloid, &paraboloid}, {Shape::kSpheroid, &spheroid},
      {Shape::kTorus, &torus}};
  for (const auto& [shape, pts] : shapes) {
    for (metrofit::Method m : {metrofit::Method::kPrecise, metrofit::Method::kCompatible}) {
      jobs.push_back(ModernJob(shape, m, *pts));
    }
  }
  return jobs;
}

double BudgetSeconds() {
  const char* env = std::getenv("METROFIT_STRESS_SECONDS");
  if (env == nullptr) return kDefaultSeconds;
  const double s = std::atof(env);
  return s > 0.0 ? s : kDefaultSeconds;
}

TEST(ConcurrentFits, EveryShapeOnEveryThreadMatchesTheSerialResultBitForBit) {
  const std::vector<Job> jobs = AllJobs();
  std::vector<std::vector<unsigned char>> serial;
  for (const Job& job : jobs) serial.push_back(job.run());

  const unsigned threads = std::max(2u, std::thread::hardware_concurrency());
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                            std::chrono::duration<double>(BudgetSeconds()));
  std::atomic<long> runs{0};
  std::mutex lock;
  std::vector<std::string> mismatches;
  std::vector<long> rounds(threads, 0);

  std::vector<std::thread> pool;
  for (unsigned t = 0; t < threads; ++t) {
    pool.emplace_back([&, t] {
      // Each thread starts at its own place in the list, so different fits overlap.
      for (std::size_t k = t * jobs.size() / threads;; ++k) {
        const std::size_t j = k % jobs.size();
        const std::vector<unsigned char> got = jobs[j].run();
        runs.fetch_add(1);
        if (got.size() != serial[j].size() ||
            std::memcmp(got.data(), serial[j].data(), got.size()) != 0) {
          std::lock_guard<std::mutex> guard(lock);
          mismatches.push_back(jobs[j].name + " on thread " + std::to_string(t));
        }
        if (j + 1 == jobs.size()) ++rounds[t];
        // Every thread finishes at least one whole round, whatever the budget.
        if (rounds[t] > 0 && std::chrono::steady_clock::now() > deadline) return;
      }
    });
  }
  for (std::thread& th : pool) th.join();

  std::string first;
  for (std::size_t i = 0; i < mismatches.size() && i < 10; ++i) first += mismatches[i] + "; ";
  EXPECT_TRUE(mismatches.empty()) << mismatches.size()
                                  << " results differ from the serial run: " << first;
  std::cout << threads << " threads, " << jobs.size() << " fits, " << runs.load()
            << " runs compared\n";
}

}  // namespace
