#include "support/precise_known_solution.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/noise_propagation.h"
#include "support/test_frame.h"

namespace metrofit::testing {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
constexpr double kDegree = kPi / 180.0;

// A column whose norm drops below this fraction of its original norm while it is
// orthogonalised depends on the earlier ones (e.g. the sphere's radius column on a full
// sphere is not, but a cylinder's tilt columns vanish when the band has no height).
constexpr double kRankTolerance = 1e-12;

using Column = std::vector<double>;

Pt UnitVector(PortableRandom& rng) {
  const double z = rng.Uniform(-1.0, 1.0);
  const double phi = rng.Uniform(0.0, kTwoPi);
  const double s = std::sqrt(std::max(0.0, 1.0 - z * z));
  return Pt(s * std::cos(phi), s * std::sin(phi), z);
}

double Dot(const Column& a, const Column& b) {
  double s = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) s += a[i] * b[i];
  return s;
}

// Removes from v its components along the span of the columns: modified Gram-Schmidt of the
// columns (twice, for orthogonality to rounding), then two projection passes.
void ProjectOutColumns(const std::vector<Column>& columns, Column* v) {
  std::vector<Column> basis;
  for (Column c : columns) {
    const double norm0 = std::sqrt(Dot(c, c));
    if (!(norm0 > 0.0)) continue;
    for (int pass = 0; pass < 2; ++pass) {
      for (const Column& q : basis) {
        const double d = Dot(q, c);
        for (std::size_t i = 0; i < c.size(); ++i) c[i] -= d * q[i];
      }
    }
    const double norm = std::sqrt(Dot(c, c));
    if (norm < kRankTolerance * norm0) continue;
    for (double& x : c) x /= norm;
    basis.push_back(std::move(c));
  }
  for (int pass = 0; pass < 2; ++pass) {
    for (const Column& q : basis) {
      const double d = Dot(q, *v);
      for (std::size_t i = 0; i < v->size(); ++i) (*v)[i] -= d * q[i];
    }
  }
}

// Standard normal draws projected off the columns, scaled to root mean square `rms`.
Column Deviations(const std::vector<Column>& columns, std::size_t n, double rms,
                  PortableRandom& rng) {
  Column v(n);
  for (double& x : v) x = rng.Normal();
  if (!(rms > 0.0)) return Column(n, 0.0);
  ProjectOutColumns(columns, &v);
  const double norm = std::sqrt(Dot(v, v));
  if (!(norm > 0.0)) throw std::invalid_argument("the projection removed every deviation");
  const double scale = rms * std::sqrt(static_cast<double>(n)) / norm;
  for (double& x : v) x *= scale;
  return v;
}

void Require(bool ok, const char* what) {
  if (!ok) throw std::invalid_argument(std::string("GeneratePreciseKnownSolution: ") + what);
}

// A foot relative to the centre (apex for the cone) and its unit outward normal.
struct Foot {
  Pt p;
  Pt n;
};

Foot DrawFoot(Shape shape, const PreciseOptions& o, const Frame& f, double coneMid,
              PortableRandom& rng) {
  const double r = o.radius;
  Foot ft;
  switch (shape) {
    case Shape::kPlane: {
      const double s = rng.Uniform(-0.5 * o.length, 0.5 * o.length);
      const double t = rng.Uniform(-0.5 * o.width, 0.5 * o.width);
      ft.p = f.e1 * s + f.e2 * t;
      ft.n = f.u;
      break;
    }
    case Shape::kLine:
      ft.p = f.u * rng.Uniform(-0.5 * o.length, 0.5 * o.length);
      ft.n = f.e1;
      break;
    case Shape::kCircle: {
      const double a = rng.Uniform(0.0, o.arcSpan);
      ft.n = f.e1 * std::cos(a) + f.e2 * std::sin(a);
      ft.p = ft.n * r;
      break;
    }
    case Shape::kSphere: {
      const double cb = rng.Uniform(std::cos(std::min(0.5 * o.arcSpan, kPi)), 1.0);
      const double sb = std::sqrt(std::max(0.0, 1.0 - cb * cb));
      const double phi = rng.Uniform(0.0, kTwoPi);
      ft.n = f.e1 * (sb * std::cos(phi)) + f.e2 * (sb * std::sin(phi)) + f.u * cb;
      ft.p = ft.n * r;
      break;
    }
    case Shape::kCylinder: {
      const double a = rng.Uniform(0.0, o.arcSpan);
      const double h = rng.Uniform(-0.5 * o.length, 0.5 * o.length);
      ft.n = f.e1 * std::cos(a) + f.e2 * std::sin(a);
      ft.p = ft.n * r + f.u * h;
      break;
    }
    case Shape::kCone: {
      const double a = rng.Uniform(0.0, o.arcSpan);
      const double h = rng.Uniform(coneMid - 0.5 * o.length, coneMid + 0.5 * o.length);
      const Pt radial = f.e1 * std::cos(a) + f.e2 * std::sin(a);
      ft.p = radial * (h * std::tan(o.halfAngle)) + f.u * h;
      ft.n = radial * std::cos(o.halfAngle) - f.u * std::sin(o.halfAngle);
      break;
    }
    case Shape::kTorus: {
      const double a = rng.Uniform(0.0, o.arcSpan);
      const double phi = rng.Uniform(-0.5 * o.tubeSpan, 0.5 * o.tubeSpan);
      const Pt radial = f.e1 * std::cos(a) + f.e2 * std::sin(a);
      ft.p = radial * (r + o.minorRadius * std::cos(phi)) + f.u * (o.minorRadius * std::sin(phi));
      ft.n = radial * std::cos(phi) + f.u * std::sin(phi);
      break;
    }
  }
  return ft;
}

// The exact Jacobian columns of the one-component shapes at the feet (see the header).
std::vector<Column> SurfaceColumns(Shape shape, const Frame& f, const std::vector<Foot>& feet) {
  const std::size_t n = feet.size();
  const Pt w1 = f.u.Cross(f.e1);  // rotation that tilts u towards e1
  const Pt w2 = f.u.Cross(f.e2);
  std::vector<Column> cols;
  auto add = [&](auto value) {
    Column c(n);
    for (std::size_t i = 0; i < n; ++i) c[i] = value(feet[i]);
    cols.push_back(std::move(c));
  };
  switch (shape) {
    case Shape::kPlane:
      add([&](const Foot&) { return 1.0; });
      add([&](const Foot& ft) { return ft.p.Dot(f.e1); });
      add([&](const Foot& ft) { return ft.p.Dot(f.e2); });
      break;
    case Shape::kSphere:
      add([](const Foot& ft) { return ft.n.x; });
      add([](const Foot& ft) { return ft.n.y; });
      add([](const Foot& ft) { return ft.n.z; });
      add([](const Foot&) { return 1.0; });
      break;
    case Shape::kCylinder:
      add([&](const Foot& ft) { return ft.n.Dot(f.e1); });
      add([&](const Foot& ft) { return ft.n.Dot(f.e2); });
      add([&](const Foot& ft) { return ft.p.Dot(f.u) * ft.n.Dot(f.e1); });
      add([&](const Foot& ft) { return ft.p.Dot(f.u) * ft.n.Dot(f.e2); });
      add([](const Foot&) { return 1.0; });
      break;
    case Shape::kCone:
    case Shape::kTorus:
      add([](const Foot& ft) { return ft.n.x; });
      add([](const Foot& ft) { return ft.n.y; });
      add([](const Foot& ft) { return ft.n.z; });
      add([&](const Foot& ft) { return ft.n.Dot(w1.Cross(ft.p)); });
      add([&](const Foot& ft) { return ft.n.Dot(w2.Cross(ft.p)); });
      if (shape == Shape::kCone) {
        add([](const Foot& ft) { return ft.p.Length(); });
      } else {
        add([&](const Foot& ft) { return ft.n.Dot(Unit(ft.p - f.u * ft.p.Dot(f.u))); });
        add([](const Foot&) { return 1.0; });
      }
      break;
    case Shape::kLine:
    case Shape::kCircle:
      break;  // two-component shapes: see LineDeviations and CircleDeviations
  }
  return cols;
}

Column Constant(std::size_t n) {
  return Column(n, 1.0);
}

// Coordinates of the points (relative to the centre) along a direction.
Column Along(const std::vector<Pt>& p, const Pt& d) {
  Column c(p.size());
  for (std::size_t i = 0; i < p.size(); ++i) c[i] = p[i].Dot(d);
  return c;
}

void Validate(Shape shape, const PreciseOptions& o) {
  Require(o.pointCount >= 8, "fewer than 8 points");
  Require(o.relativeNoise >= 0.0 && o.relativeNoise <= 0.1, "relative noise outside [0, 0.1]");
  Require(o.arcSpan > 0.0 && o.arcSpan <= kTwoPi, "arc span outside (0, 2 pi]");
  Require(o.tubeSpan > 0.0 && o.tubeSpan <= kTwoPi, "tube span outside (0, 2 pi]");
  Require(o.length > 0.0 && o.width > 0.0, "non-positive length or width");
  if (shape != Shape::kLine && shape != Shape::kPlane) Require(o.radius > 0.0, "radius <= 0");
  if (shape == Shape::kTorus) {
    Require(o.minorRadius > 0.0 && o.minorRadius < o.radius, "torus radii");
  }
  if (shape == Shape::kCone) {
    Require(o.halfAngle > 0.0 && o.halfAngle < 0.5 * kPi, "cone half angle");
    Require(o.radius / std::tan(o.halfAngle) > 0.5 * o.length, "cone band reaches the apex");
  }
}

}  // namespace

double FeatureSize(Shape shape, const PreciseOptions& o) {
  switch (shape) {
    case Shape::kLine:
    case Shape::kPlane:
      return o.length;
    case Shape::kTorus:
      return o.minorRadius;
    case Shape::kCircle:
    case Shape::kSphere:
    case Shape::kCylinder:
    case Shape::kCone:
      return o.radius;
  }
  return 0.0;
}

KnownSolution GeneratePreciseKnownSolution(Shape shape, const PreciseOptions& o) {
  Validate(shape, o);
  PortableRandom rng(o.seed);
  const Pt centre = UnitVector(rng) * o.centreOffset;
  const double azimuth = rng.Uniform(0.0, kTwoPi);
  const Frame f = MakeFrame(Pt(std::sin(o.axisTilt) * std::cos(azimuth),
                               std::sin(o.axisTilt) * std::sin(azimuth), std::cos(o.axisTilt)));
  const double coneMid = shape == Shape::kCone ? o.radius / std::tan(o.halfAngle) : 0.0;

  const std::size_t n = static_cast<std::size_t>(o.pointCount);
  std::vector<Foot> feet(n);
  for (Foot& ft : feet) ft = DrawFoot(shape, o, f, coneMid, rng);

  const double rms = o.relativeNoise * FeatureSize(shape, o);
  std::vector<Pt> offsets(n);  // deviation vectors
  Column first, second;        // residual components
  if (shape == Shape::kLine || shape == Shape::kCircle) {
    const double part = rms / std::sqrt(2.0);
    std::vector<Pt> feetP(n);
    for (std::size_t i = 0; i < n; ++i) feetP[i] = feet[i].p;
    if (shape == Shape::kLine) {
      const std::vector<Column> cols{Constant(n), Along(feetP, f.u)};
      first = Deviations(cols, n, part, rng);
      second = Deviations(cols, n, part, rng);
      for (std::size_t i = 0; i < n; ++i) offsets[i] = f.e1 * first[i] + f.e2 * second[i];
    } else {
      // In the plane first; the plane condition then uses the deviated in-plane coordinates.
      const std::vector<Column> radialCols{Along(feetP, f.e1), Along(feetP, f.e2), Constant(n)};
      second = Deviations(radialCols, n, part, rng);
      std::vector<Pt> inPlane(n);
      for (std::size_t i = 0; i < n; ++i) inPlane[i] = feet[i].p + feet[i].n * second[i];
      const std::vector<Column> planeCols{Constant(n), Along(inPlane, f.e1), Along(inPlane, f.e2)};
      first = Deviations(planeCols, n, part, rng);
      for (std::size_t i = 0; i < n; ++i) offsets[i] = feet[i].n * second[i] + f.u * first[i];
    }
  } else {
    first = Deviations(SurfaceColumns(shape, f, feet), n, rms, rng);
    for (std::size_t i = 0; i < n; ++i) offsets[i] = feet[i].n * first[i];
  }

  KnownSolution s;
  s.truth.shape = shape;
  s.truth.centre = centre;
  s.truth.axis = f.u;
  s.truth.radius = (shape == Shape::kLine || shape == Shape::kPlane) ? 0.0 : o.radius;
  s.truth.minorRadius = shape == Shape::kTorus ? o.minorRadius : 0.0;
  s.truth.halfAngle = shape == Shape::kCone ? o.halfAngle : 0.0;
  s.points.resize(n);
  s.surfacePoints.resize(n);
  s.deviations = offsets;
  for (std::size_t i = 0; i < n; ++i) {
    s.surfacePoints[i] = centre + feet[i].p;
    s.points[i] = centre + (feet[i].p + offsets[i]);
    s.sumSquares += offsets[i].Dot(offsets[i]);
    s.residuals.push_back(first[i]);
    if (!second.empty()) s.residuals.push_back(second[i]);
  }
  s.rms = std::sqrt(s.sumSquares / static_cast<double>(n));
  s.projectionRatio = rms > 0.0 ? 1.0 : 0.0;
  return s;
}

std::vector<PreciseCase> PreciseCases() {
  std::vector<PreciseCase> cases;
  const double noises[] = {1e-6, 1e-4, 1e-2};
  auto add = [&](const char* label, Shape shape, PreciseOptions o) {
    std::uint64_t seed = 11;
    for (double noise : noises) {
      o.relativeNoise = noise;
      o.seed = seed++;
      char name[96];
      std::snprintf(name, sizeof name, "%s %s noise %.0e", ShapeName(shape), label, noise);
      cases.push_back(PreciseCase{name, shape, o});
    }
  };
  PreciseOptions o;
  // Circles: 30-degree, 90-degree and full arcs; a large circle on a short arc.
  o.pointCount = 40;
  o.arcSpan = 30.0 * kDegree;
  add("arc 30 deg", Shape::kCircle, o);
  o.arcSpan = 90.0 * kDegree;
  add("arc 90 deg", Shape::kCircle, o);
  o.arcSpan = kTwoPi;
  add("full", Shape::kCircle, o);
  o.arcSpan = 30.0 * kDegree;
  o.radius = 150.0;
  add("R150 arc 30 deg", Shape::kCircle, o);
  // Spheres: 90-degree cap and whole sphere.
  o = PreciseOptions();
  o.radius = 12.5;
  o.arcSpan = 90.0 * kDegree;
  add("cap 90 deg", Shape::kSphere, o);
  o.arcSpan = kTwoPi;
  add("full", Shape::kSphere, o);
  // Cylinders: 120-degree sector and full.
  o = PreciseOptions();
  o.radius = 15.0;
  o.length = 40.0;
  o.arcSpan = 120.0 * kDegree;
  add("sector 120 deg", Shape::kCylinder, o);
  o.arcSpan = kTwoPi;
  add("full", Shape::kCylinder, o);
  // Plane strip 200 x 10 mm; a 100 mm line.
  o = PreciseOptions();
  o.length = 200.0;
  o.width = 10.0;
  add("strip 200 x 10", Shape::kPlane, o);
  o.length = 100.0;
  add("100 mm", Shape::kLine, o);
  // Cones: narrow and wide, partial sectors and full.
  o = PreciseOptions();
  o.radius = 20.0;
  o.length = 15.0;
  o.halfAngle = 0.3;
  o.arcSpan = 120.0 * kDegree;
  add("half angle 0.3 sector 120 deg", Shape::kCone, o);
  o.halfAngle = 1.0;
  o.arcSpan = 180.0 * kDegree;
  add("half angle 1.0 sector 180 deg", Shape::kCone, o);
  o.halfAngle = 0.5;
  o.arcSpan = kTwoPi;
  add("half angle 0.5 full", Shape::kCone, o);
  // Tori: whole, and a quarter of the outer half of the tube.
  o = PreciseOptions();
  o.radius = 40.0;
  o.minorRadius = 6.0;
  o.pointCount = 60;
  add("full", Shape::kTorus, o);
  o.arcSpan = 90.0 * kDegree;
  o.tubeSpan = 180.0 * kDegree;
  add("arc 90 deg outer half", Shape::kTorus, o);
  // An untilted feature at the origin, for contrast with the tilted, offset ones.
  o = PreciseOptions();
  o.centreOffset = 0.0;
  o.axisTilt = 0.0;
  o.arcSpan = 90.0 * kDegree;
  add("arc 90 deg at the origin", Shape::kCircle, o);
  add("sector 90 deg at the origin", Shape::kCylinder, o);
  return cases;
}

}  // namespace metrofit::testing
