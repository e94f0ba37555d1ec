// Synthetic measurements with a known result for the HTML report's tests: points on a nominal
// feature at CMM scales (offsets of hundreds of mm, tilted axes, partial arcs), displaced along
// the surface normal by a known form pattern plus micrometre noise, so that every deviation is
// known exactly without running a fit.
#ifndef METROFIT_TESTS_TOOLS_REPORT_SAMPLES_H
#define METROFIT_TESTS_TOOLS_REPORT_SAMPLES_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "metrofit/fit.h"

namespace metrofit_report_samples {

using metrofit::FitResult;
using metrofit::Point;
using metrofit::Shape;
using Vec = std::array<double, 3>;

constexpr double kPi = 3.14159265358979323846;
constexpr double kNoise = 0.0008;  // standard deviation of the measuring noise, mm
constexpr double kForm = 0.004;    // amplitude of the form pattern, mm

inline Vec Add(const Vec& a, const Vec& b) {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
inline Vec Scale(const Vec& a, double s) {
  return {a[0] * s, a[1] * s, a[2] * s};
}
inline Vec Cross(const Vec& a, const Vec& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline Vec Unit(const Vec& a) {
  return Scale(a, 1.0 / std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]));
}
inline double Radians(double degrees) {
  return degrees * kPi / 180.0;
}

// Uniform and normal numbers from the engine's raw output, which the standard fixes.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  double Uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_() >> 11) * 0x1.0p-53;
  }
  double Normal(double sd) {
    const double u = Uniform(1e-300, 1.0);
    return sd * std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * kPi * Uniform(0.0, 1.0));
  }

 private:
  std::mt19937_64 engine_;
};

// A frame around a tilted axis: e1, e2 across it, w along it.
struct Frame {
  Vec e1, e2, w;
};

inline Frame TiltedFrame(const Vec& axis) {
  const Vec w = Unit(axis);
  const Vec e1 = Unit(Cross({0.0, 1.0, 0.0}, w));
  return {e1, Cross(w, e1), w};
}

inline Vec Around(const Frame& f, double angle, double across, double along) {
  return Add(Add(Scale(f.e1, across * std::cos(angle)), Scale(f.e2, across * std::sin(angle))),
             Scale(f.w, along));
}

struct Sample {
  std::vector<Point> points;
  FitResult result;
};

inline void AddPoint(Sample* s, const Vec& centre, const Vec& on_surface, const Vec& normal,
                     double deviation) {
  const Vec p = Add(centre, Add(on_surface, Scale(normal, deviation)));
  s->points.push_back({p[0], p[1], p[2]});
  s->result.deviations.push_back(deviation);
}

inline void AddParameter(FitResult* r, const std::string& name, std::vector<double> value,
                         double uncertainty) {
  r->parameters.push_back({name, value, std::vector<double>(value.size(), uncertainty)});
}

inline void AddDirection(FitResult* r, const std::string& name, const Vec& v) {
  AddParameter(r, name, {v[0], v[1], v[2]}, 2.3e-6);
}

// Fills the statistics from the deviations, as the library defines them.
inline void Summarise(FitResult* r, int free_parameters) {
  const std::vector<double>& d = r->deviations;
  double squares = 0.0;
  for (const double v : d) squares += v * v;
  r->rms = std::sqrt(squares / d.size());
  r->sigma = std::sqrt(squares / (d.size() - free_parameters));
  r->min_deviation = *std::min_element(d.begin(), d.end());
  r->max_deviation = *std::max_element(d.begin(), d.end());
  r->form_error =
      r->shape == Shape::kLine ? 2.0 * r->max_deviation : r->max_deviation - r->min_deviation;
  r->valid = true;
  r->status = metrofit::Status::kOk;
  r->iterations = 7;
  r->message = "converged";
}

inline Sample LineSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{412.5, -138.2, 96.4};
  const Frame f = TiltedFrame({0.8, 0.5, 0.33});
  for (std::size_t i = 0; i < n; ++i) {
    const double t = rnd->Uniform(-60.0, 60.0);
    const double d = std::fabs(kForm * std::sin(t / 15.0) + rnd->Normal(kNoise));
    const double phi = rnd->Uniform(0.0, 2.0 * kPi);
    AddPoint(&s, c, Scale(f.w, t), Around(f, phi, 1.0, 0.0), d);
  }
  s.result.shape = Shape::kLine;
  s.result.center = c;
  s.result.axis = f.w;
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 3.1e-4);
  AddDirection(&s.result, "axis", f.w);
  Summarise(&s.result, 4);
  return s;
}

inline Sample PlaneSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{250.0, 180.0, -35.7};
  const Frame f = TiltedFrame({0.1, -0.2, 0.97});
  for (std::size_t i = 0; i < n; ++i) {
    const double u = rnd->Uniform(-40.0, 40.0);
    const double v = rnd->Uniform(-25.0, 25.0);
    const double d = kForm * (u / 40.0) * (v / 25.0) + rnd->Normal(kNoise);
    AddPoint(&s, c, Add(Scale(f.e1, u), Scale(f.e2, v)), f.w, d);
  }
  s.result.shape = Shape::kPlane;
  s.result.center = c;
  s.result.axis = f.w;
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 1.9e-4);
  AddDirection(&s.result, "axis", f.w);
  Summarise(&s.result, 3);
  return s;
}

// A partial arc from 20 to 250 degrees, three lobes.
inline Sample CircleSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{512.3, -88.1, 140.2};
  const Frame f = TiltedFrame({0.2, 0.3, 0.93});
  const double radius = 24.5;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = Radians(rnd->Uniform(20.0, 250.0));
    const double d = kForm * std::cos(3.0 * a) + rnd->Normal(kNoise);
    const Vec radial = Around(f, a, 1.0, 0.0);
    AddPoint(&s, c, Scale(radial, radius), radial, d);
  }
  s.result.shape = Shape::kCircle;
  s.result.center = c;
  s.result.axis = f.w;
  s.result.radius = radius;
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 4.4e-4);
  AddDirection(&s.result, "axis", f.w);
  AddParameter(&s.result, "radius", {radius}, 2.7e-4);
  Summarise(&s.result, 6);
  return s;
}

inline Sample SphereSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{212.438, -148.716, 305.204};
  const Frame f{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
  const double radius = 12.5;
  for (std::size_t i = 0; i < n; ++i) {
    const double lon = rnd->Uniform(0.0, 2.0 * kPi);
    const double lat = std::asin(rnd->Uniform(std::sin(Radians(-15.0)), 1.0));
    const double d = kForm * std::sin(2.0 * lon) * std::cos(lat) + rnd->Normal(kNoise);
    const Vec normal = Around(f, lon, std::cos(lat), std::sin(lat));
    AddPoint(&s, c, Scale(normal, radius), normal, d);
  }
  s.result.shape = Shape::kSphere;
  s.result.center = c;
  s.result.radius = radius;
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 3.6e-4);
  AddParameter(&s.result, "radius", {radius}, 2.2e-4);
  Summarise(&s.result, 4);
  return s;
}

inline Sample CylinderSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{350.8, 120.4, -210.3};
  const Frame f = TiltedFrame({0.3, -0.1, 0.95});
  const double radius = 20.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = rnd->Uniform(0.0, 2.0 * kPi);
    const double h = rnd->Uniform(-30.0, 30.0);
    const double d = kForm * std::cos(3.0 * a) + 0.5 * kForm * h / 30.0 + rnd->Normal(kNoise);
    const Vec radial = Around(f, a, 1.0, 0.0);
    AddPoint(&s, c, Add(Scale(radial, radius), Scale(f.w, h)), radial, d);
  }
  s.result.shape = Shape::kCylinder;
  s.result.center = c;
  s.result.axis = f.w;
  s.result.radius = radius;
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 5.2e-4);
  AddDirection(&s.result, "axis", f.w);
  AddParameter(&s.result, "radius", {radius}, 3.1e-4);
  Summarise(&s.result, 5);
  return s;
}

// A partial cone: from -60 to 200 degrees around the axis.
inline Sample ConeSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec apex{-120.5, 310.2, 88.0};
  const Frame f = TiltedFrame({-0.2, 0.1, 0.97});
  const double half_angle = Radians(15.0);
  for (std::size_t i = 0; i < n; ++i) {
    const double a = Radians(rnd->Uniform(-60.0, 200.0));
    const double h = rnd->Uniform(20.0, 60.0);
    const double d = kForm * std::cos(2.0 * a) + rnd->Normal(kNoise);
    const Vec radial = Around(f, a, 1.0, 0.0);
    const Vec normal = Add(Scale(radial, std::cos(half_angle)), Scale(f.w, -std::sin(half_angle)));
    AddPoint(&s, apex, Add(Scale(radial, h * std::tan(half_angle)), Scale(f.w, h)), normal, d);
  }
  s.result.shape = Shape::kCone;
  s.result.center = apex;
  s.result.axis = f.w;
  s.result.half_angle = half_angle;
  AddParameter(&s.result, "center", {apex[0], apex[1], apex[2]}, 8.5e-4);
  AddDirection(&s.result, "axis", f.w);
  AddParameter(&s.result, "half_angle", {half_angle}, 4.1e-6);
  Summarise(&s.result, 6);
  return s;
}

inline Sample EllipseSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{-75.0, 44.4, 512.0};
  const Frame f = TiltedFrame({0.0, 0.25, 0.97});
  const double a = 40.0;
  const double b = 25.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double t = rnd->Uniform(0.0, 2.0 * kPi);
    const double d = kForm * std::cos(4.0 * t) + rnd->Normal(kNoise);
    const Vec on = Add(Scale(f.e1, a * std::cos(t)), Scale(f.e2, b * std::sin(t)));
    const Vec normal = Unit(Add(Scale(f.e1, b * std::cos(t)), Scale(f.e2, a * std::sin(t))));
    AddPoint(&s, c, on, normal, d);
  }
  s.result.shape = Shape::kEllipse;
  s.result.center = c;
  s.result.axis = f.w;
  s.result.major_direction = f.e1;
  s.result.semi_axes = std::array<double, 2>{a, b};
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 2.8e-4);
  AddDirection(&s.result, "axis", f.w);
  AddDirection(&s.result, "major_direction", f.e1);
  AddParameter(&s.result, "semi_axes", {a, b}, 3.3e-4);
  Summarise(&s.result, 8);
  return s;
}

inline Sample ParaboloidSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec vertex{180.0, -260.0, 40.0};
  const Frame f = TiltedFrame({0.15, 0.1, 0.98});
  const double focal = 50.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = rnd->Uniform(0.0, 2.0 * kPi);
    const double rho = 60.0 * std::sqrt(rnd->Uniform(0.01, 1.0));
    const double slope = rho / (2.0 * focal);
    const double d = kForm * std::cos(a) * rho / 60.0 + rnd->Normal(kNoise);
    const Vec radial = Around(f, a, 1.0, 0.0);
    const Vec normal = Unit(Add(Scale(radial, slope), Scale(f.w, -1.0)));
    AddPoint(&s, vertex, Add(Scale(radial, rho), Scale(f.w, rho * rho / (4.0 * focal))), normal, d);
  }
  s.result.shape = Shape::kParaboloid;
  s.result.center = vertex;
  s.result.axis = f.w;
  s.result.focal_length = focal;
  AddParameter(&s.result, "center", {vertex[0], vertex[1], vertex[2]}, 6.0e-4);
  AddDirection(&s.result, "axis", f.w);
  AddParameter(&s.result, "focal_length", {focal}, 9.0e-4);
  Summarise(&s.result, 6);
  return s;
}

inline Sample SpheroidSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{95.0, 95.0, -400.0};
  const Frame f = TiltedFrame({0.3, 0.3, 0.9});
  const double along = 30.0;
  const double across = 20.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = rnd->Uniform(0.0, 2.0 * kPi);
    const double phi = Radians(rnd->Uniform(-80.0, 80.0));
    const double d = kForm * std::sin(3.0 * a) + rnd->Normal(kNoise);
    const Vec radial = Around(f, a, 1.0, 0.0);
    const Vec normal =
        Unit(Add(Scale(radial, std::cos(phi) / across), Scale(f.w, std::sin(phi) / along)));
    AddPoint(&s, c, Add(Scale(radial, across * std::cos(phi)), Scale(f.w, along * std::sin(phi))),
             normal, d);
  }
  s.result.shape = Shape::kSpheroid;
  s.result.center = c;
  s.result.axis = f.w;
  s.result.semi_axes = std::array<double, 2>{along, across};
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 4.0e-4);
  AddDirection(&s.result, "axis", f.w);
  AddParameter(&s.result, "semi_axes", {along, across}, 5.0e-4);
  Summarise(&s.result, 7);
  return s;
}

// Three quarters of a torus around its axis, the whole tube.
inline Sample TorusSample(std::size_t n, Random* rnd) {
  Sample s;
  const Vec c{-300.0, 150.0, 220.0};
  const Frame f = TiltedFrame({-0.1, 0.2, 0.97});
  const double major = 60.0;
  const double minor = 12.0;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = Radians(rnd->Uniform(0.0, 270.0));
    const double psi = rnd->Uniform(-kPi, kPi);
    const double d = kForm * std::cos(psi) * std::sin(2.0 * a) + rnd->Normal(kNoise);
    const Vec radial = Around(f, a, 1.0, 0.0);
    const Vec normal = Add(Scale(radial, std::cos(psi)), Scale(f.w, std::sin(psi)));
    AddPoint(&s, c, Add(Scale(radial, major), Scale(normal, minor)), normal, d);
  }
  s.result.shape = Shape::kTorus;
  s.result.center = c;
  s.result.axis = f.w;
  s.result.major_radius = major;
  s.result.minor_radius = minor;
  AddParameter(&s.result, "center", {c[0], c[1], c[2]}, 7.0e-4);
  AddDirection(&s.result, "axis", f.w);
  AddParameter(&s.result, "major_radius", {major}, 4.5e-4);
  AddParameter(&s.result, "minor_radius", {minor}, 2.5e-4);
  Summarise(&s.result, 7);
  return s;
}

inline Sample MakeSample(Shape shape, std::size_t n, std::uint64_t seed = 20261125) {
  Random rnd(seed);
  switch (shape) {
    case Shape::kLine:
      return LineSample(n, &rnd);
    case Shape::kPlane:
      return PlaneSample(n, &rnd);
    case Shape::kCircle:
      return CircleSample(n, &rnd);
    case Shape::kSphere:
      return SphereSample(n, &rnd);
    case Shape::kCylinder:
      return CylinderSample(n, &rnd);
    case Shape::kCone:
      return ConeSample(n, &rnd);
    case Shape::kEllipse:
      return EllipseSample(n, &rnd);
    case Shape::kParaboloid:
      return ParaboloidSample(n, &rnd);
    case Shape::kSpheroid:
      return SpheroidSample(n, &rnd);
    case Shape::kTorus:
      return TorusSample(n, &rnd);
  }
  return {};
}

inline const std::vector<Shape>& AllShapes() {
  static const std::vector<Shape> shapes{
      Shape::kLine, Shape::kPlane,   Shape::kCircle,     Shape::kSphere,   Shape::kCylinder,
      Shape::kCone, Shape::kEllipse, Shape::kParaboloid, Shape::kSpheroid, Shape::kTorus};
  return shapes;
}

}  // namespace metrofit_report_samples

#endif  // METROFIT_TESTS_TOOLS_REPORT_SAMPLES_H
