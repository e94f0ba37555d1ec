// Result dump for comparing two builds of libmetrofit.
//
// Runs a fixed, deterministic list of fits through the public entry points and prints one line
// per fit: the case name, the entry point, its return value, m_valid, m_iterations and every
// numeric result field with %.17g. The same binary is run against two builds of the library
// (LD_LIBRARY_PATH) and the two outputs are compared with compare_results.py.
//
// All point data are made here, without calling the library, so both runs see bit-identical
// inputs. Every fit gets a fresh CFitInput and a fresh CFitResult.
//
// Usage: metrofit_result_dump [NIST_DIR] [--quick]
//   NIST_DIR defaults to the reference folder configured at build time; --quick runs a tenth
//   of the random sets.
#include <dirent.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "metrofit.h"
#include "support/nist_reader.h"

namespace {

using P = KPt3<double>;
using Fn = std::int32_t (*)(CFitInput&, CFitResult&);
using Setup = std::function<void(CFitInput&)>;

constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
constexpr double kUm = 1e-3;  // one micrometre in mm

int g_cases = 0;

// ---------------------------------------------------------------------------------------------
// Running and printing one fit
// ---------------------------------------------------------------------------------------------

void PrintPt(const char* key, const P& p) {
  std::printf(" %s=%.17g,%.17g,%.17g", key, p.x, p.y, p.z);
}

void Run(const std::string& name, const char* fnName, Fn fn, const std::vector<P>& pts,
         const Setup& setup = Setup()) {
  CFitInput in;
  in.m_points = pts;
  if (setup) setup(in);
  CFitResult out;
  const std::int32_t ret = fn(in, out);
  double sum = 0.0;
  for (const P& d : out.m_deviations) sum += d.Length();
  std::printf("%s %s ret=%d valid=%d iter=%d", name.c_str(), fnName, static_cast<int>(ret),
              out.m_valid, out.m_iterations);
  PrintPt("center", out.m_center);
  PrintPt("axis", out.m_axis);
  PrintPt("angles", out.m_angles);
  PrintPt("size1", out.m_size1);
  PrintPt("size2", out.m_size2);
  PrintPt("size3", out.m_size3);
  std::printf(" sigma=%.17g rms=%.17g formError=%.17g minDev=%.17g maxDev=%.17g objective=%.17g",
              out.m_sigma, out.m_rms, out.m_formError, out.m_minDeviation, out.m_maxDeviation,
              out.m_objective);
  std::printf(" ndev=%zu sumdev=%.17g\n", out.m_deviations.size(), sum);
  ++g_cases;
}

#define FN(f) #f, f

// ---------------------------------------------------------------------------------------------
// Deterministic random numbers (explicit conversions, no standard distributions)
// ---------------------------------------------------------------------------------------------

class Rng {
 public:
  explicit Rng(std::uint64_t seed) : engine_(seed) {}
  double Uniform() { return static_cast<double>(engine_() >> 11) * std::ldexp(1.0, -53); }
  double Uniform(double a, double b) { return a + (b - a) * Uniform(); }
  int Int(int lo, int hi) { return lo + static_cast<int>(Uniform() * (hi - lo + 1)); }
  double Normal() {
    const double u1 = 1.0 - Uniform();
    const double u2 = Uniform();
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(kTwoPi * u2);
  }
  P UnitVector() {
    const double z = Uniform(-1.0, 1.0);
    const double phi = Uniform(0.0, kTwoPi);
    const double s = std::sqrt(std::max(0.0, 1.0 - z * z));
    return P(s * std::cos(phi), s * std::sin(phi), z);
  }

 private:
  std::mt19937_64 engine_;
};

P Unit(P v) {
  v.Normalize();
  return v;
}

// Right-handed frame (e1, e2, u) about the unit axis u.
struct Frame {
  P e1, e2, u;
};

Frame MakeFrame(const P& axis) {
  const P u = Unit(axis);
  const double ax = std::fabs(u.x), ay = std::fabs(u.y), az = std::fabs(u.z);
  P h(0.0, 0.0, 1.0);
  if (ax <= ay && ax <= az) {
    h = P(1.0, 0.0, 0.0);
  } else if (ay <= az) {
    h = P(0.0, 1.0, 0.0);
  }
  const P e1 = Unit(h.Cross(u));
  return Frame{e1, u.Cross(e1), u};
}

// ---------------------------------------------------------------------------------------------
// Synthetic sets at machine scale: exact surface points moved along the surface normal(s) by
// Gaussian noise. (Unlike the test suite's generator the noise is not projected, so the
// generating shape is close to, not exactly, the least-squares solution; for comparing two
// builds that does not matter.)
// ---------------------------------------------------------------------------------------------

enum class Shape { kLine, kPlane, kCircle, kSphere, kCylinder, kCone, kTorus };

struct Options {
  int count = 40;
  double noiseUm = 0.0;
  double offset = 0.0;  // distance of the centre from the origin (mm)
  double tilt = 0.0;    // axis angle from +z (rad)
  double arc = kTwoPi;  // angular span about the axis; full opening angle of a sphere cap
  double radius = 10.0;
  double minor = 2.0;
  double halfAngle = 0.5;
  double length = 20.0;
  std::uint64_t seed = 1;
};

// One row of a set table: size, span, radius, noise (micrometres), offset and tilt.
struct SetRow {
  int n;
  double arc, radius, noise, offset, tilt;
};

Options OptionsOf(const SetRow& c, std::uint64_t seed) {
  Options o;
  o.count = c.n;
  o.arc = c.arc;
  o.radius = c.radius;
  o.noiseUm = c.noise;
  o.offset = c.offset;
  o.tilt = c.tilt;
  o.seed = seed;
  return o;
}

struct Truth {
  P centre;  // line/plane point, centres, cylinder mid-band axis point, cone apex
  P axis;
  double radius = 0.0, minor = 0.0, halfAngle = 0.0;
};

struct Set {
  Truth truth;
  std::vector<P> points;
  std::vector<P> feet;
  std::vector<P> normals;  // outward unit normal at each foot (first one for line/circle)
};

Set Generate(Shape shape, const Options& o) {
  Rng rng(o.seed);
  Set s;
  const P centre = rng.UnitVector() * o.offset;
  const double az = rng.Uniform(0.0, kTwoPi);
  const P axis(std::sin(o.tilt) * std::cos(az), std::sin(o.tilt) * std::sin(az), std::cos(o.tilt));
  const Frame f = MakeFrame(axis);
  s.truth.centre = centre;
  s.truth.axis = f.u;
  s.truth.radius = o.radius;
  s.truth.minor = o.minor;
  s.truth.halfAngle = o.halfAngle;
  const double sigma = o.noiseUm * kUm;
  const double coneMid = o.radius / std::tan(o.halfAngle);
  for (int i = 0; i < o.count; ++i) {
    P foot, n0, n1;
    bool two = false;
    switch (shape) {
      case Shape::kLine:
        foot = f.u * rng.Uniform(-0.5 * o.length, 0.5 * o.length);
        n0 = f.e1;
        n1 = f.e2;
        two = true;
        break;
      case Shape::kPlane:
        foot = f.e1 * rng.Uniform(-0.5 * o.length, 0.5 * o.length) +
               f.e2 * rng.Uniform(-0.5 * o.length, 0.5 * o.length);
        n0 = f.u;
        break;
      case Shape::kCircle: {
        const double t = rng.Uniform(0.0, o.arc);
        const P nr = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = nr * o.radius;
        n0 = nr;
        n1 = f.u;
        two = true;
        break;
      }
      case Shape::kSphere: {
        const double cosMax = std::cos(std::min(0.5 * o.arc, kPi));
        const double cb = rng.Uniform(cosMax, 1.0);
        const double sb = std::sqrt(std::max(0.0, 1.0 - cb * cb));
        const double phi = rng.Uniform(0.0, kTwoPi);
        n0 = f.e1 * (sb * std::cos(phi)) + f.e2 * (sb * std::sin(phi)) + f.u * cb;
        foot = n0 * o.radius;
        break;
      }
      case Shape::kCylinder: {
        const double t = rng.Uniform(0.0, o.arc);
        const double h = rng.Uniform(-0.5 * o.length, 0.5 * o.length);
        n0 = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = n0 * o.radius + f.u * h;
        break;
      }
      case Shape::kCone: {
        const double t = rng.Uniform(0.0, o.arc);
        const double h = rng.Uniform(coneMid - 0.5 * o.length, coneMid + 0.5 * o.length);
        const P nr = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = nr * (h * std::tan(o.halfAngle)) + f.u * h;
        n0 = nr * std::cos(o.halfAngle) - f.u * std::sin(o.halfAngle);
        break;
      }
      case Shape::kTorus: {
        const double t = rng.Uniform(0.0, o.arc);
        const double phi = rng.Uniform(0.0, kTwoPi);
        const P nr = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = nr * (o.radius + o.minor * std::cos(phi)) + f.u * (o.minor * std::sin(phi));
        n0 = nr * std::cos(phi) + f.u * std::sin(phi);
        break;
      }
    }
    P dev = n0 * (sigma * rng.Normal());
    if (two) dev += n1 * (sigma * rng.Normal());
    s.feet.push_back(centre + foot);
    s.normals.push_back(n0);
    s.points.push_back(centre + (foot + dev));
  }
  return s;
}

// Paraboloid rings (vertex, opening along the axis, focal length F) out to `outer`, optionally
// with the vertex point; each point moved along the inner normal by `probe` (ball centres) plus
// Gaussian noise.
std::vector<P> ParaboloidRings(const P& vertex, const P& axis, double F, double outer, int rings,
                               int perRing, bool vertexPoint, double noise, double probe,
                               std::uint64_t seed) {
  const Frame f = MakeFrame(axis);
  Rng rng(seed);
  std::vector<P> pts;
  auto add = [&](double rho, double th) {
    const P nr = f.e1 * std::cos(th) + f.e2 * std::sin(th);
    const P foot = vertex + nr * rho + f.u * (rho * rho / (4.0 * F));
    const double phi = std::atan(rho / (2.0 * F));
    const P inner = f.u * std::cos(phi) - nr * std::sin(phi);
    pts.push_back(foot + inner * (probe + noise * rng.Normal()));
  };
  if (vertexPoint) add(0.0, 0.0);
  for (int k = 1; k <= rings; ++k) {
    const double rho = outer * k / rings;
    for (int i = 0; i < perRing; ++i) add(rho, kTwoPi * (i + 0.37 * k) / perRing);
  }
  return pts;
}

// Paraboloid points scattered over the disc of radius `outer` (random sets and large sets).
std::vector<P> ParaboloidScatter(const P& vertex, const P& axis, double F, double outer, int count,
                                 double noise, Rng& rng) {
  const Frame f = MakeFrame(axis);
  std::vector<P> pts;
  for (int i = 0; i < count; ++i) {
    const double rho = outer * std::sqrt(rng.Uniform()), th = rng.Uniform(0.0, kTwoPi);
    const P nr = f.e1 * std::cos(th) + f.e2 * std::sin(th);
    const double phi = std::atan(rho / (2.0 * F));
    const P inner = f.u * std::cos(phi) - nr * std::sin(phi);
    pts.push_back(vertex + nr * rho + f.u * (rho * rho / (4.0 * F)) +
                  inner * (noise * rng.Normal()));
  }
  return pts;
}

// A planar ellipse whose plane contains the axis u; the plane normal n is the x direction made
// perpendicular to u, so for axes with a small x component the centre's x pins the plane.
struct Ellipse {
  P centre, axis, e, n;
  std::vector<P> points;
};

Ellipse MakeEllipse(const P& centre, const P& axis, double along, double across, int count,
                    double noise, double phase, std::uint64_t seed) {
  Ellipse d;
  d.centre = centre;
  d.axis = Unit(axis);
  d.n = Unit(P(1.0, 0.0, 0.0) - d.axis * d.axis.x);
  d.e = d.axis.Cross(d.n);
  Rng rng(seed);
  for (int i = 0; i < count; ++i) {
    const double t = kTwoPi * (i + phase) / count;
    const P foot = centre + d.e * (across * std::sin(t)) + d.axis * (along * std::cos(t));
    const P normal = Unit(d.e * (std::sin(t) / across) + d.axis * (std::cos(t) / along));
    d.points.push_back(foot + normal * (noise * rng.Normal()) + d.n * (noise * rng.Normal()));
  }
  return d;
}

// The settings under which the ellipse converges: axis held, the centre's x held (the plane
// offset), the other centre coordinates and one radius as starting values.
void EllipseHeld(CFitInput& in, const P& centre, const P& axis, double radius) {
  in.m_centerParam.value = centre;
  in.m_centerParam.mode[0] = 1;
  in.m_centerParam.mode[1] = 2;
  in.m_centerParam.mode[2] = 2;
  in.m_axisParam.value = axis;
  for (int& m : in.m_axisParam.mode) m = 1;
  in.m_size1Param.value.x = radius;
  in.m_size1Param.mode[0] = 2;
}

// Ball centres for torus points: moved out by the probe radius along the tube normal.
std::vector<P> TorusBalls(const Set& s, double probe) {
  std::vector<P> balls;
  for (std::size_t i = 0; i < s.points.size(); ++i)
    balls.push_back(s.points[i] + s.normals[i] * probe);
  return balls;
}

// ---------------------------------------------------------------------------------------------
// Constraint helpers
// ---------------------------------------------------------------------------------------------

void SetParam(CFitParam& p, const P& value, int m0, int m1, int m2) {
  p.value = value;
  p.mode[0] = m0;
  p.mode[1] = m1;
  p.mode[2] = m2;
}

std::string Num(double v) {
  char b[32];
  std::snprintf(b, sizeof b, "%g", v);
  return b;
}

// ---------------------------------------------------------------------------------------------
// NIST reference pairs, read by the test suite's reader (points only)
// ---------------------------------------------------------------------------------------------

void NistCases(const std::string& root) {
  struct Kind {
    const char* folder;
    std::vector<std::pair<const char*, Fn>> fns;
  };
  const Kind kinds[] = {
      {"Line3d", {{FN(KFitLine)}, {FN(KFitLineEx)}}},
      {"Plane", {{FN(KFitPlane)}}},
      {"Circle3d", {{FN(KFitCircle)}, {FN(KFitCircleEx)}}},
      {"Sphere", {{FN(KFitSphere)}, {FN(KFitSphereEx)}}},
      {"Cylinder", {{FN(KFitCylinder)}, {FN(KFitCylinderEx)}}},
      {"Cone", {{FN(KFitCone)}}},
  };
  int pairs = 0;
  for (const Kind& k : kinds) {
    const std::string folder = root + "/" + k.folder;
    for (const metrofit::testing::NistPair& pair : metrofit::testing::ListPairs(folder)) {
      const std::string& stem = pair.name;
      std::vector<P> pts;
      std::string error;
      if (!metrofit::testing::ReadDataSet(pair.dataPath, &pts, &error)) {
        std::fprintf(stderr, "cannot read %s: %s\n", pair.dataPath.c_str(), error.c_str());
        std::exit(2);
      }
      ++pairs;
      for (const auto& fn : k.fns)
        Run("nist/" + std::string(k.folder) + "/" + stem, fn.first, fn.second, pts);
    }
  }
  if (pairs == 0) {
    std::fprintf(stderr, "no NIST pairs under %s\n", root.c_str());
    std::exit(2);
  }
}

// ---------------------------------------------------------------------------------------------
// Known-solution style sets
// ---------------------------------------------------------------------------------------------

std::string Tag(const char* shape, const Options& o) {
  return "ks/" + std::string(shape) + "/n" + std::to_string(o.count) + "-off" + Num(o.offset) +
         "-tilt" + Num(o.tilt) + "-arc" + Num(o.arc) + "-um" + Num(o.noiseUm) + "-s" +
         std::to_string(o.seed);
}

void LineSets() {
  const int counts[] = {20, 200, 2000};
  const double noise[] = {0.0, 1.0, 5.0};
  for (int i = 0; i < 3; ++i) {
    Options o;
    o.count = counts[i];
    o.noiseUm = noise[i];
    o.offset = 300.0 + 250.0 * i;
    o.tilt = 0.7 + 0.3 * i;
    o.length = 40.0 + 80.0 * i;
    o.seed = 11 + i;
    const Set s = Generate(Shape::kLine, o);
    const std::string t = Tag("line", o);
    for (auto fn : {std::make_pair(FN(KFitLine)), std::make_pair(FN(KFitLineEx))}) {
      Run(t + "/default", fn.first, fn.second, s.points);
      Run(t + "/ref", fn.first, fn.second, s.points,
          [&](CFitInput& in) { in.m_refPoint = s.truth.centre + P(3.0, -2.0, 1.0); });
    }
    Run(t + "/start", FN(KFitLine), s.points, [&](CFitInput& in) {
      SetParam(in.m_centerParam, s.truth.centre + P(0.2, -0.1, 0.3), 2, 2, 2);
      SetParam(in.m_axisParam, Unit(s.truth.axis + P(0.01, 0.02, 0.0)), 2, 2, 2);
    });
    Run(t + "/fixedaxis", FN(KFitLine), s.points,
        [&](CFitInput& in) { SetParam(in.m_axisParam, s.truth.axis, 1, 1, 1); });
  }
}

void PlaneSets() {
  const int counts[] = {20, 200, 2000};
  for (int i = 0; i < 3; ++i) {
    Options o;
    o.count = counts[i];
    o.noiseUm = i == 0 ? 0.0 : 2.0 * i;
    o.offset = 400.0 + 200.0 * i;
    o.tilt = 0.5 + 0.4 * i;
    o.length = 30.0 + 100.0 * i;
    o.seed = 21 + i;
    const Set s = Generate(Shape::kPlane, o);
    const std::string t = Tag("plane", o);
    Run(t + "/default", FN(KFitPlane), s.points);
    Run(t + "/ref", FN(KFitPlane), s.points,
        [&](CFitInput& in) { in.m_refPoint = s.truth.centre + P(5.0, 5.0, 0.0); });
    Run(t + "/start", FN(KFitPlane), s.points, [&](CFitInput& in) {
      SetParam(in.m_axisParam, Unit(s.truth.axis + P(0.02, 0.0, 0.01)), 2, 2, 2);
    });
    Run(t + "/fixedaxis", FN(KFitPlane), s.points,
        [&](CFitInput& in) { SetParam(in.m_axisParam, s.truth.axis, 1, 1, 1); });
  }
}

void CircleSets() {
  const SetRow cs[] = {{20, kTwoPi, 12.0, 0.0, 300.0, 0.6},
                       {60, 2.0, 12.0, 5.0, 500.0, 0.6},
                       {200, 0.5 * kPi, 25.0, 2.0, 700.0, 1.1},
                       {2000, kTwoPi, 40.0, 5.0, 450.0, 0.3}};
  std::uint64_t seed = 31;
  for (const SetRow& c : cs) {
    const Options o = OptionsOf(c, seed++);
    const Set s = Generate(Shape::kCircle, o);
    const std::string t = Tag("circle", o);
    for (auto fn : {std::make_pair(FN(KFitCircle)), std::make_pair(FN(KFitCircleEx))}) {
      Run(t + "/default", fn.first, fn.second, s.points);
      Run(t + "/ref", fn.first, fn.second, s.points,
          [&](CFitInput& in) { in.m_refPoint = s.truth.centre + P(1.0, 2.0, -1.0); });
    }
    Run(t + "/start", FN(KFitCircle), s.points, [&](CFitInput& in) {
      SetParam(in.m_centerParam, s.truth.centre + P(0.3, -0.2, 0.1), 2, 2, 2);
      SetParam(in.m_axisParam, Unit(s.truth.axis + P(0.01, -0.01, 0.0)), 2, 2, 2);
      SetParam(in.m_size1Param, P(c.radius + 0.5, 0.0, 0.0), 2, 0, 0);
    });
    Run(t + "/fixedradius", FN(KFitCircle), s.points,
        [&](CFitInput& in) { SetParam(in.m_size1Param, P(c.radius, 0.0, 0.0), 1, 0, 0); });
    Run(t + "/fixedaxis", FN(KFitCircle), s.points, [&](CFitInput& in) {
      SetParam(in.m_axisParam, s.truth.axis, 1, 1, 1);
      SetParam(in.m_centerParam, s.truth.centre + P(0.1, 0.1, 0.1), 2, 2, 2);
    });
  }
}

void SphereSets() {
  const SetRow cs[] = {{20, kTwoPi, 15.0, 0.0, 300.0, 0.4},
                       {100, 1.6, 15.0, 5.0, 500.0, 0.4},
                       {300, 0.5 * kPi, 12.5, 2.0, 800.0, 0.9},
                       {2000, kTwoPi, 25.0, 5.0, 400.0, 0.2},
                       {2000, 0.5 * kPi, 25.0, 5.0, 600.0, 1.2}};
  std::uint64_t seed = 41;
  for (const SetRow& c : cs) {
    const Options o = OptionsOf(c, seed++);
    const Set s = Generate(Shape::kSphere, o);
    const std::string t = Tag("sphere", o);
    for (auto fn : {std::make_pair(FN(KFitSphere)), std::make_pair(FN(KFitSphereEx))}) {
      Run(t + "/default", fn.first, fn.second, s.points);
      Run(t + "/ref", fn.first, fn.second, s.points,
          [&](CFitInput& in) { in.m_refPoint = s.truth.centre + P(-2.0, 1.0, 4.0); });
    }
    Run(t + "/start", FN(KFitSphere), s.points, [&](CFitInput& in) {
      SetParam(in.m_centerParam, s.truth.centre + P(0.5, -0.4, 0.2), 2, 2, 2);
      SetParam(in.m_size1Param, P(c.radius - 0.3, 0.0, 0.0), 2, 0, 0);
    });
    Run(t + "/fixedradius", FN(KFitSphere), s.points,
        [&](CFitInput& in) { SetParam(in.m_size1Param, P(c.radius, 0.0, 0.0), 1, 0, 0); });
    Run(t + "/fixedz", FN(KFitSphere), s.points, [&](CFitInput& in) {
      SetParam(in.m_centerParam, s.truth.centre + P(0.1, 0.1, 0.0), 2, 2, 1);
    });
  }
}

void CylinderSets() {
  struct C {
    SetRow row;
    double length;
  };
  const C cs[] = {{{20, kTwoPi, 8.0, 0.0, 300.0, 0.8}, 25.0},
                  {{100, 3.0, 8.0, 5.0, 500.0, 0.8}, 25.0},
                  {{400, 0.75 * kTwoPi, 15.0, 2.0, 700.0, 0.4}, 40.0},
                  {{2000, kTwoPi, 12.5, 5.0, 740.0, 1.0}, 60.0}};
  std::uint64_t seed = 51;
  for (const C& entry : cs) {
    const SetRow& c = entry.row;
    Options o = OptionsOf(c, seed++);
    o.length = entry.length;
    const Set s = Generate(Shape::kCylinder, o);
    const std::string t = Tag("cylinder", o);
    for (auto fn : {std::make_pair(FN(KFitCylinder)), std::make_pair(FN(KFitCylinderEx))}) {
      Run(t + "/default", fn.first, fn.second, s.points);
      Run(t + "/ref", fn.first, fn.second, s.points,
          [&](CFitInput& in) { in.m_refPoint = s.truth.centre; });
    }
    Run(t + "/start", FN(KFitCylinder), s.points, [&](CFitInput& in) {
      in.m_refPoint = s.truth.centre;
      SetParam(in.m_centerParam, s.truth.centre + P(0.2, 0.1, -0.1), 2, 2, 2);
      SetParam(in.m_size1Param, P(c.radius + 0.2, 0.0, 0.0), 2, 0, 0);
    });
    Run(t + "/fixedradius", FN(KFitCylinder), s.points, [&](CFitInput& in) {
      in.m_refPoint = s.truth.centre;
      SetParam(in.m_size1Param, P(c.radius, 0.0, 0.0), 1, 0, 0);
    });
  }
}

void ConeSets() {
  struct C {
    SetRow row;
    double half, length;
  };
  const C cs[] = {{{30, kTwoPi, 10.0, 0.0, 300.0, 0.3}, 0.4, 10.0},
                  {{120, kTwoPi, 10.0, 5.0, 500.0, 0.3}, 0.4, 10.0},
                  {{300, 3.5, 20.0, 2.0, 600.0, 0.9}, 0.35, 20.0},
                  {{2000, kTwoPi, 20.0, 5.0, 740.0, 0.6}, 0.35, 30.0}};
  std::uint64_t seed = 61;
  for (const C& entry : cs) {
    Options o = OptionsOf(entry.row, seed++);
    o.halfAngle = entry.half;
    o.length = entry.length;
    const Set s = Generate(Shape::kCone, o);
    const std::string t = Tag("cone", o);
    Run(t + "/default", FN(KFitCone), s.points);
    Run(t + "/ref", FN(KFitCone), s.points,
        [&](CFitInput& in) { in.m_refPoint = s.truth.centre + s.truth.axis * 20.0; });
    Run(t + "/start", FN(KFitCone), s.points, [&](CFitInput& in) {
      SetParam(in.m_centerParam, s.truth.centre + P(0.2, 0.1, -0.1), 2, 2, 2);
      SetParam(in.m_axisParam, Unit(s.truth.axis + P(0.01, 0.0, 0.01)), 2, 2, 2);
    });
  }
}

void TorusSets() {
  struct C {
    int n;
    double R, r, arc, noise, offset, tilt, probe;
  };
  const C cs[] = {{80, 40.0, 6.0, kTwoPi, 0.0, 300.0, 0.7, 0.0},
                  {80, 20.0, 4.0, 4.0, 5.0, 300.0, 0.4, 0.0},
                  {80, 50.0, 5.0, kTwoPi, 3.0, 300.0, 0.7, 1.5},
                  {300, 120.0, 15.0, kTwoPi, 10.0, 500.0, 0.7, 3.0},
                  {2000, 50.0, 5.0, kTwoPi, 5.0, 400.0, 0.5, 0.0}};
  std::uint64_t seed = 71;
  for (const C& c : cs) {
    Options o;
    o.count = c.n;
    o.radius = c.R;
    o.minor = c.r;
    o.arc = c.arc;
    o.noiseUm = c.noise;
    o.offset = c.offset;
    o.tilt = c.tilt;
    o.seed = seed++;
    const Set s = Generate(Shape::kTorus, o);
    const std::string t = Tag("torus", o) + "-probe" + Num(c.probe);
    const std::vector<P> pts = c.probe > 0.0 ? TorusBalls(s, c.probe) : s.points;
    Run(t + "/default", FN(KFitTorus), pts, [&](CFitInput& in) { in.m_probeRadius = c.probe; });
    Run(t + "/ref", FN(KFitTorus), pts, [&](CFitInput& in) {
      in.m_probeRadius = c.probe;
      in.m_refPoint = s.truth.centre;
    });
    Run(t + "/start", FN(KFitTorus), pts, [&](CFitInput& in) {
      in.m_probeRadius = c.probe;
      SetParam(in.m_centerParam, s.truth.centre + P(0.2, 0.0, 0.1), 2, 2, 2);
      SetParam(in.m_axisParam, Unit(s.truth.axis + P(0.01, 0.0, 0.0)), 2, 2, 2);
      SetParam(in.m_size1Param, P(0.0, c.R + 0.3, c.r + c.probe), 0, 2, 2);
    });
  }
}

void ParaboloidSets() {
  struct C {
    P vertex, axis;
    double F, outer;
    int rings, perRing;
    bool vertexPoint;
    double noise, probe;
  };
  const C cs[] = {
      {P(-250.0, 310.0, 180.0), P(0.25, 0.35, -0.9), 50.0, 60.0, 5, 24, true, 0.0, 0.0},
      {P(380.0, -120.0, 240.0), P(-0.3, 0.1, 0.95), 25.0, 80.0, 6, 20, false, 0.0, 0.0},
      {P(-250.0, 310.0, 180.0), P(0.25, 0.35, -0.9), 50.0, 60.0, 5, 24, true, 0.002, 0.0},
      {P(300.0, 200.0, -260.0), P(0.2, -0.45, 0.87), 100.0, 40.0, 4, 16, false, 0.005, 0.0},
      {P(-90.0, -280.0, -350.0), P(0.5, -0.4, 0.77), 200.0, 50.0, 3, 12, false, 0.005, 0.0},
      {P(-250.0, 310.0, 180.0), P(0.25, 0.35, -0.9), 50.0, 60.0, 5, 20, true, 0.0, 1.0},
      {P(300.0, 200.0, -260.0), P(0.2, -0.45, 0.87), 80.0, 50.0, 5, 20, true, 0.0, 2.5},
      {P(-250.0, 310.0, 180.0), P(0.25, 0.35, -0.9), 50.0, 60.0, 5, 20, true, 0.002, 1.0},
      {P(420.0, 150.0, -310.0), P(-0.1, 0.2, 0.97), 60.0, 70.0, 20, 100, true, 0.001, 0.0}};
  std::uint64_t seed = 81;
  for (const C& c : cs) {
    const std::uint64_t sd = seed++;
    const std::vector<P> pts = ParaboloidRings(c.vertex, c.axis, c.F, c.outer, c.rings, c.perRing,
                                               c.vertexPoint, c.noise, c.probe, sd);
    const std::string t = "ks/paraboloid/n" + std::to_string(pts.size()) + "-F" + Num(c.F) + "-um" +
                          Num(c.noise * 1e3) + "-probe" + Num(c.probe) + "-s" + std::to_string(sd);
    auto probe = [&](CFitInput& in) { in.m_probeRadius = c.probe; };
    Run(t + "/default", FN(KFitParaboloid), pts, probe);
    Run(t + "/ref", FN(KFitParaboloid), pts, [&](CFitInput& in) {
      probe(in);
      in.m_refPoint = c.vertex;
    });
    Run(t + "/startaxis", FN(KFitParaboloid), pts, [&](CFitInput& in) {
      probe(in);
      SetParam(in.m_centerParam, c.vertex + P(0.2, -0.1, 0.1), 2, 2, 2);
      SetParam(in.m_axisParam, Unit(Unit(c.axis) + P(0.01, 0.0, 0.0)), 2, 2, 2);
    });
    Run(t + "/fixedaxis", FN(KFitParaboloid), pts, [&](CFitInput& in) {
      probe(in);
      SetParam(in.m_axisParam, Unit(c.axis), 1, 1, 1);
      SetParam(in.m_size2Param, P(c.F, 0.0, 0.0), 2, 0, 0);
    });
  }
}

void EllipseSets() {
  struct C {
    P centre, axis;
    double along, across;
    int n;
    double noise;
  };
  const C cs[] = {{P(320.0, -210.0, 150.0), P(0.3, -0.2, 0.93), 30.0, 18.0, 60, 0.0},
                  {P(320.0, -210.0, 150.0), P(0.3, -0.2, 0.93), 30.0, 18.0, 60, 0.002},
                  {P(320.0, -210.0, 150.0), P(0.3, -0.2, 0.93), 30.0, 18.0, 60, 0.01},
                  {P(-280.0, 330.0, -120.0), P(-0.2, 0.5, 0.84), 40.0, 12.0, 48, 0.002},
                  {P(150.0, 400.0, 90.0), P(0.1, 0.7, 0.7), 15.0, 25.0, 36, 0.005},
                  {P(-250.0, 310.0, 180.0), P(0.1, 0.35, 0.93), 30.0, 18.0, 2000, 0.005}};
  std::uint64_t seed = 91;
  for (const C& c : cs) {
    const std::uint64_t sd = seed++;
    const Ellipse d = MakeEllipse(c.centre, c.axis, c.along, c.across, c.n, c.noise, 0.25, sd);
    const std::string t = "ks/ellipse/n" + std::to_string(c.n) + "-A" + Num(c.along) + "-B" +
                          Num(c.across) + "-um" + Num(c.noise * 1e3) + "-s" + std::to_string(sd);
    Run(t + "/held", FN(KFitEllipse), d.points, [&](CFitInput& in) {
      EllipseHeld(in, P(c.centre.x, c.centre.y + 0.4, c.centre.z - 0.3), d.axis,
                  0.5 * (c.along + c.across));
    });
    Run(t + "/held-ref", FN(KFitEllipse), d.points, [&](CFitInput& in) {
      EllipseHeld(in, P(c.centre.x, c.centre.y - 0.2, c.centre.z + 0.2), d.axis, c.across);
      in.m_refPoint = c.centre;
    });
    // Automatic start and a free axis: expected to fail, and must fail the same way.
    Run(t + "/auto", FN(KFitEllipse), d.points);
    Run(t + "/freeaxis", FN(KFitEllipse), d.points, [&](CFitInput& in) {
      SetParam(in.m_centerParam, c.centre + P(0.3, -0.2, 0.1), 2, 2, 2);
      SetParam(in.m_axisParam, Unit(d.axis + P(0.0, 0.01, 0.0)), 2, 2, 2);
      SetParam(in.m_size1Param, P(24.0, 0.0, 0.0), 2, 0, 0);
    });
  }
}

// ---------------------------------------------------------------------------------------------
// Random stress: small sets with random poses, sizes, spans, noise and (sometimes) constraints.
// ---------------------------------------------------------------------------------------------

P RandomAxis(Rng& r) {
  P a = r.UnitVector();
  return a;
}

// Random constraint modes on a parameter triple: mostly free, sometimes start values, rarely
// held.
int RandomMode(Rng& r) {
  const double u = r.Uniform();
  return u < 0.7 ? 0 : (u < 0.92 ? 2 : 1);
}

void RandomModes(Rng& r, CFitParam& p, const P& value) {
  p.value = value;
  for (int& m : p.mode) m = RandomMode(r);
}

Options RandomOptions(Rng& r, int minCount, int maxCount) {
  Options o;
  o.count = r.Int(minCount, maxCount);
  o.noiseUm = r.Uniform() < 0.1 ? 0.0 : r.Uniform(0.5, 50.0);
  o.offset = r.Uniform(0.0, 1000.0);
  o.tilt = r.Uniform(0.0, kPi);
  o.arc = r.Uniform() < 0.4 ? kTwoPi : r.Uniform(0.3, kTwoPi);
  o.radius = std::exp(r.Uniform(std::log(1.0), std::log(250.0)));
  o.minor = o.radius * r.Uniform(0.05, 0.4);
  o.halfAngle = r.Uniform(0.1, 1.2);
  o.length = std::exp(r.Uniform(std::log(2.0), std::log(400.0)));
  o.seed = static_cast<std::uint64_t>(r.Uniform() * 9007199254740992.0);
  if (o.halfAngle > 0.0) {
    // keep the cone band clear of the apex
    const double mid = o.radius / std::tan(o.halfAngle);
    if (o.length > 1.8 * mid) o.length = 1.8 * mid;
  }
  return o;
}

// Points uniformly in a box about a random centre: sets with no shape at all.
std::vector<P> Junk(Rng& r, int count) {
  const P c = r.UnitVector() * r.Uniform(0.0, 800.0);
  const double s = r.Uniform(1.0, 100.0);
  std::vector<P> pts;
  for (int i = 0; i < count; ++i) {
    pts.push_back(c + P(r.Uniform(-s, s), r.Uniform(-s, s), r.Uniform(-s, s)));
  }
  return pts;
}

void RandomShape(const char* label, Shape shape, const char* fnName, Fn fn, int sets, int minCount,
                 int maxCount, std::uint64_t seed) {
  Rng r(seed);
  for (int k = 0; k < sets; ++k) {
    const Options o = RandomOptions(r, minCount, maxCount);
    const Set s = Generate(shape, o);
    const double kind = r.Uniform();
    std::vector<P> pts = s.points;
    std::string variant = "free";
    if (kind < 0.08) {
      pts = Junk(r, o.count);
      variant = "junk";
    }
    const bool constrained = kind >= 0.75;
    const bool ref = r.Uniform() < 0.3;
    const P refPoint = s.truth.centre + r.UnitVector() * r.Uniform(0.0, 50.0);
    const P cStart = s.truth.centre + r.UnitVector() * r.Uniform(0.0, 1.0);
    const P aStart = Unit(s.truth.axis + r.UnitVector() * r.Uniform(0.0, 0.05));
    const double rStart = o.radius * r.Uniform(0.9, 1.1);
    Rng modes(o.seed ^ 0x9e3779b97f4a7c15ULL);
    if (constrained) variant = "modes";
    const std::string name = "rnd/" + std::string(label) + "/" + std::to_string(k) + "-" + variant +
                             (ref ? "-ref" : "") + "-n" + std::to_string(pts.size());
    Run(name, fnName, fn, pts, [&](CFitInput& in) {
      if (ref) in.m_refPoint = refPoint;
      if (constrained) {
        RandomModes(modes, in.m_centerParam, cStart);
        RandomModes(modes, in.m_axisParam, aStart);
        in.m_size1Param.value = P(rStart, o.radius, o.minor);
        in.m_size1Param.mode[0] = RandomMode(modes);
      }
      if (shape == Shape::kTorus && modes.Uniform() < 0.3)
        in.m_probeRadius = modes.Uniform(0.5, 2.0);
    });
  }
}

void RandomParaboloid(int sets, std::uint64_t seed) {
  Rng r(seed);
  for (int k = 0; k < sets; ++k) {
    const P vertex = r.UnitVector() * r.Uniform(0.0, 800.0);
    const P axis = RandomAxis(r);
    const double F = std::exp(r.Uniform(std::log(5.0), std::log(500.0)));
    const double outer = F * r.Uniform(0.3, 3.0);
    const double noise = r.Uniform() < 0.1 ? 0.0 : r.Uniform(0.0005, 0.05);
    const int count = r.Int(8, 60);
    std::vector<P> pts = ParaboloidScatter(vertex, axis, F, outer, count, noise, r);
    const double kind = r.Uniform();
    std::string variant = "free";
    if (kind < 0.08) {
      pts = Junk(r, count);
      variant = "junk";
    }
    const double probe = r.Uniform() < 0.25 ? r.Uniform(0.3, 3.0) : 0.0;
    const bool startAxis = kind >= 0.8;
    if (startAxis) variant = "startaxis";
    if (probe > 0.0) {
      // ball centres: moved along the inner normal by the probe radius
      const Frame f = MakeFrame(axis);
      for (P& p : pts) {
        const P d = p - vertex;
        const P radial = d - f.u * d.Dot(f.u);
        const double rho = radial.Length();
        const P nr = rho > 0.0 ? radial * (1.0 / rho) : f.e1;
        const double phi = std::atan(rho / (2.0 * F));
        p += (f.u * std::cos(phi) - nr * std::sin(phi)) * probe;
      }
      variant += "-probe";
    }
    const P aStart = Unit(axis + r.UnitVector() * r.Uniform(0.0, 0.05));
    const std::string name =
        "rnd/paraboloid/" + std::to_string(k) + "-" + variant + "-n" + std::to_string(count);
    Run(name, FN(KFitParaboloid), pts, [&](CFitInput& in) {
      in.m_probeRadius = probe;
      if (startAxis) SetParam(in.m_axisParam, aStart, 2, 2, 2);
    });
  }
}

void RandomEllipse(int sets, std::uint64_t seed) {
  Rng r(seed);
  for (int k = 0; k < sets; ++k) {
    const P centre = r.UnitVector() * r.Uniform(0.0, 800.0);
    // Axes with a modest x component, so the held centre x pins the plane offset.
    const P axis = Unit(P(r.Uniform(-0.5, 0.5), r.Uniform(-1.0, 1.0), r.Uniform(-1.0, 1.0)));
    const double along = std::exp(r.Uniform(std::log(2.0), std::log(150.0)));
    const double across = along * r.Uniform(0.3, 1.6);
    const int count = r.Int(8, 60);
    const double noise = r.Uniform() < 0.1 ? 0.0 : r.Uniform(0.0005, 0.05);
    const Ellipse d = MakeEllipse(centre, axis, along, across, count, noise, r.Uniform(), k + 1);
    const double kind = r.Uniform();
    const P cStart = P(centre.x, centre.y + r.Uniform(-0.5, 0.5), centre.z + r.Uniform(-0.5, 0.5));
    const double radius = std::min(along, across) + r.Uniform() * std::fabs(along - across);
    std::string variant = kind < 0.8 ? "held" : (kind < 0.9 ? "auto" : "freeaxis");
    const std::string name =
        "rnd/ellipse/" + std::to_string(k) + "-" + variant + "-n" + std::to_string(count);
    Run(name, FN(KFitEllipse), d.points, [&](CFitInput& in) {
      if (kind < 0.8) {
        EllipseHeld(in, cStart, d.axis, radius);
      } else if (kind >= 0.9) {
        SetParam(in.m_centerParam, cStart, 2, 2, 2);
        SetParam(in.m_axisParam, d.axis, 2, 2, 2);
        SetParam(in.m_size1Param, P(radius, 0.0, 0.0), 2, 0, 0);
      }
    });
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string nist = METROFIT_REFDATA_DIR;
  bool quick = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      quick = true;
    } else {
      nist = argv[i];
    }
  }
  setvbuf(stdout, nullptr, _IOLBF, 1 << 16);  // a crash loses at most the line being written
  const auto t0 = std::chrono::steady_clock::now();
  auto lap = [&](const char* what) {
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::fprintf(stderr, "%-12s done at %7.2f s, %d cases\n", what, s, g_cases);
  };

  NistCases(nist);
  lap("nist");
  LineSets();
  PlaneSets();
  CircleSets();
  SphereSets();
  lap("ks basic");
  CylinderSets();
  ConeSets();
  lap("ks cyl/cone");
  TorusSets();
  lap("ks torus");
  ParaboloidSets();
  EllipseSets();
  lap("ks par/ell");

  const int n = quick ? 20 : 200;
  RandomShape("line", Shape::kLine, FN(KFitLine), n, 3, 60, 1001);
  RandomShape("plane", Shape::kPlane, FN(KFitPlane), n, 3, 60, 1002);
  RandomShape("circle", Shape::kCircle, FN(KFitCircle), n, 3, 60, 1003);
  RandomShape("sphere", Shape::kSphere, FN(KFitSphere), n, 4, 60, 1004);
  RandomEllipse(n, 1005);
  RandomParaboloid(n, 1006);
  lap("rnd lsq");
  const int slow = quick ? 10 : 100;
  RandomShape("cylinder", Shape::kCylinder, FN(KFitCylinder), slow, 6, 40, 1007);
  RandomShape("cone", Shape::kCone, FN(KFitCone), slow, 7, 40, 1008);
  RandomShape("torus", Shape::kTorus, FN(KFitTorus), slow, 8, 40, 1009);
  lap("rnd slow");
  std::fprintf(stderr, "%d cases\n", g_cases);
  return 0;
}
