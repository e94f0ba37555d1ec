#include "precise/starts.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "composite/cylinder_cone_fit.h"
#include "composite/torus_fit.h"
#include "metrofit.h"
#include "precise/algebraic_starts.h"
#include "precise/local_frame.h"
#include "precise/precise_limits.h"
#include "precise/shape_problems.h"
#include "precise/solver.h"

namespace metrofit::precise {
namespace {

// The binary-interface fits that give starts see at most this many points: a start only has to
// lie in the right basin, and the multi-start cylinder, cone and torus fits cost tens of
// microseconds a point.
constexpr std::size_t kSubsampleSize = 500;
// Iterations of each cylinder that looks for a torus's tube: it only has to bend the right way
// (on a whole torus no cylinder fits, and the iteration would run to its limit).
constexpr int kTubeIterations = 30;
// Smallest tangent of a cone's half angle used as a start (a nearly cylindrical start).
constexpr double kMinConeSlope = 1e-3;
// Relative excess of the major over the minor semi-axis of an ellipse started from a circle:
// with equal semi-axes the in-plane turn would not change the distances at all.
constexpr double kRoundnessSeed = 1e-3;

struct Circle2 {
  Vec3 centre;
  double radius = 0.0;
  bool ok = false;
};

Vec3 PointAt(const double* xyz, std::size_t k) {
  return Vec3(xyz[3 * k], xyz[3 * k + 1], xyz[3 * k + 2]);
}

// Algebraic circle of the points projected onto the plane through s.c across s.u.
Circle2 ProjectedCircle(const Request& r, const State& s) {
  double a[4][4] = {}, b[4] = {};
  for (std::size_t k = 0; k < r.count; ++k) {
    double q[3];
    ToLocal(s, r.xyz + 3 * k, q);
    const double row[3] = {q[0], q[1], 1.0}, w = q[0] * q[0] + q[1] * q[1];
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) a[i][j] += row[i] * row[j];
      b[i] += row[i] * w;
    }
  }
  Circle2 c;
  if (!SolveSmall(3, a, b)) return c;
  const double x = 0.5 * b[0], y = 0.5 * b[1], r2 = b[2] + x * x + y * y;
  c.centre = s.c + s.e1 * x + s.e2 * y;
  c.radius = std::sqrt(std::fabs(r2));
  c.ok = std::isfinite(c.radius) && r2 > 0.0;
  return c;
}

Feature Make(Shape shape, const Vec3& centre, const Vec3& axis, double s0, double s1) {
  Feature f;
  f.shape = shape;
  f.center = centre;
  f.axis = axis;
  f.size[0] = s0;
  f.size[1] = s1;
  return f;
}

Feature SphereStart(const Request& r, const PointStats& st) {
  double a[4][4] = {}, b[4] = {};
  for (std::size_t k = 0; k < r.count; ++k) {
    const Vec3 d = PointAt(r.xyz, k) - st.centroid;
    const double row[4] = {d.x, d.y, d.z, 1.0}, w = d.Dot(d);
    for (int i = 0; i < 4; ++i) {
      for (int j = 0; j < 4; ++j) a[i][j] += row[i] * row[j];
      b[i] += row[i] * w;
    }
  }
  Vec3 c = st.centroid;
  double radius = st.scale;
  if (SolveSmall(4, a, b)) {
    const Vec3 m(0.5 * b[0], 0.5 * b[1], 0.5 * b[2]);
    c = st.centroid + m;
    radius = std::sqrt(std::fabs(b[3] + m.Dot(m)));
  }
  return Make(Shape::kSphere, c, Vec3(0, 0, 1), radius - r.probe_radius, 0.0);
}

// Cone about an axis direction: the projected circle places the axis, then the line
// rho = r0 + h tan(phi) through the (h, rho) pairs gives the angle and its sense.
bool ConeStart(const Request& r, const PointStats& st, const Vec3& axis, Feature* out) {
  const Circle2 circ = ProjectedCircle(r, FrameAround(st.centroid, axis));
  if (!circ.ok) return false;
  const State s = FrameAround(circ.centre, axis);
  double sh = 0, sr = 0, shh = 0, shr = 0;
  for (std::size_t k = 0; k < r.count; ++k) {
    double q[3];
    ToLocal(s, r.xyz + 3 * k, q);
    const double rho = std::hypot(q[0], q[1]);
    sh += q[2];
    sr += rho;
    shh += q[2] * q[2];
    shr += q[2] * rho;
  }
  const double n = static_cast<double>(r.count);
  const double var = shh - sh * sh / n;
  double slope = var > 0.0 ? (shr - sh * sr / n) / var : 0.0;
  Vec3 u = axis;
  if (slope < 0.0) {
    u = -u;
    slope = -slope;
  }
  slope = std::fmax(slope, kMinConeSlope);
  // The radius at the mean height, then down the slope to the apex.
  const double rMean = sr / n;
  const Vec3 mean = s.c + axis * (sh / n);
  *out = Make(Shape::kCone, mean - u * (rMean / slope), u, std::atan(slope), 0.0);
  return true;
}

// The binary interface's fit of a deterministic subsample; false when it fails.
bool SubsampleFit(const Request& r, std::int32_t (*fit)(CFitInput&, CFitResult&), CFitResult* out) {
  CFitInput in;
  const std::size_t stride = (r.count + kSubsampleSize - 1) / kSubsampleSize;
  in.m_points.reserve(r.count / stride + 1);
  for (std::size_t k = 0; k < r.count; k += stride) in.m_points.push_back(PointAt(r.xyz, k));
  if (fit(in, *out) == 0 || out->m_valid == 0) return false;
  return std::isfinite(out->m_center.x + out->m_center.y + out->m_center.z) &&
         out->m_axis.Length() > 0.0;
}

void CylinderStarts(const Request& r, const PointStats& st, const Vec3* hint, bool withAbi,
                    std::vector<Feature>* out) {
  for (int i = 0; i < 3; ++i) {
    const Vec3 axis = hint != nullptr ? *hint : st.direction[2 - i];
    const Circle2 c = ProjectedCircle(r, FrameAround(st.centroid, axis));
    if (c.ok) out->push_back(Make(Shape::kCylinder, c.centre, axis, c.radius - r.probe_radius, 0));
    if (hint != nullptr) return;
  }
  CFitResult abi;
  if (withAbi && SubsampleFit(r, &FitCylinderInternal, &abi)) {
    Vec3 axis = abi.m_axis;
    out->push_back(
        Make(Shape::kCylinder, abi.m_center, axis.Normalize(), abi.m_size1.x - r.probe_radius, 0));
  }
}

void ConeStarts(const Request& r, const PointStats& st, const Vec3* hint,
                std::vector<Feature>* out) {
  for (int i = 0; i < 3; ++i) {
    Feature f;
    if (ConeStart(r, st, hint != nullptr ? *hint : st.direction[2 - i], &f)) out->push_back(f);
    if (hint != nullptr) return;
  }
  CFitResult abi;
  if (SubsampleFit(r, &FitConeInternal, &abi) && std::isfinite(abi.m_size2.z) &&
      abi.m_size2.z != 0.0) {
    // Slope k: axial rise per unit of radius, the cone opening towards +axis for k > 0.
    Vec3 axis = abi.m_axis;
    axis.Normalize();
    const double k = abi.m_size2.z;
    out->push_back(
        Make(Shape::kCone, abi.m_center, k > 0 ? axis : -axis, std::atan(1.0 / std::fabs(k)), 0));
  }
}

// The least-squares cylinder of the points (probe centres), from the cylinder's own starts.
bool TubeCylinder(const Request& r, const PointStats& st, State* tube) {
  Request rc;
  rc.shape = Shape::kCylinder;
  rc.xyz = r.xyz;
  rc.count = r.count;
  rc.shortcuts = r.shortcuts;
  std::vector<Feature> starts;
  // The principal axes suffice for a tube; the binary interface's cylinder is the costly one.
  CylinderStarts(rc, st, nullptr, false, &starts);
  const Problem problem = MakeProblem(rc, st, Holds{}, Stage::kWhole);
  bool found = false;
  double best = 0.0;
  for (const Feature& f : starts) {
    const Solution sol =
        Minimise(problem, AccumulatorFor(Shape::kCylinder, Stage::kWhole, r.shortcuts),
                 StateFromFeature(f, st.centroid, 0.0, false), kTubeIterations);
    if (std::isfinite(sol.sum) && (!found || sol.sum < best)) {
      *tube = sol.state;
      best = sol.sum;
      found = true;
    }
  }
  return found;
}

// A torus seen as a bent tube, for short sectors whose scatter says nothing of the torus's
// axis: the points moved inwards by the radius of their least-squares cylinder lie near the
// centre circle, whose plane and algebraic circle give centre, axis and major radius.
bool TorusFromTube(const Request& r, const PointStats& st, Feature* out) {
  State tube;
  if (!TubeCylinder(r, st, &tube)) return false;
  std::vector<double> core(3 * r.count);
  for (std::size_t k = 0; k < r.count; ++k) {
    double q[3];
    ToLocal(tube, r.xyz + 3 * k, q);
    // Inwards by the tube radius, across the cylinder's axis.
    const double rho = std::sqrt(q[0] * q[0] + q[1] * q[1]);
    const double f = rho > 0.0 ? 1.0 - tube.size[0] / rho : 0.0;
    const Vec3 m = tube.c + ToWorld(tube, f * q[0], f * q[1], q[2]);
    core[3 * k] = m.x;
    core[3 * k + 1] = m.y;
    core[3 * k + 2] = m.z;
  }
  Request rm = r;
  rm.xyz = core.data();
  const PointStats cs = ComputeStats(rm.xyz, rm.count);
  const Circle2 c = ProjectedCircle(rm, FrameAround(cs.centroid, cs.direction[0]));
  if (!c.ok) return false;
  *out = Make(Shape::kTorus, c.centre, cs.direction[0], c.radius, tube.size[0] - r.probe_radius);
  return true;
}

void TorusStarts(const Request& r, const PointStats& st, const Vec3* hint,
                 std::vector<Feature>* out) {
  const Vec3 axis = hint != nullptr ? *hint : st.direction[0];
  const Circle2 c = ProjectedCircle(r, FrameAround(st.centroid, axis));
  if (c.ok) {
    const State s = FrameAround(c.centre, axis);
    double tube = 0.0;
    for (std::size_t k = 0; k < r.count; ++k) {
      double q[3];
      ToLocal(s, r.xyz + 3 * k, q);
      tube += std::hypot(std::hypot(q[0], q[1]) - c.radius, q[2]);
    }
    tube /= static_cast<double>(r.count);
    out->push_back(Make(Shape::kTorus, c.centre, axis, c.radius, tube - r.probe_radius));
  }
  if (hint != nullptr) return;
  Feature bent;
  if (TorusFromTube(r, st, &bent)) out->push_back(bent);
  CFitResult abi;
  if (SubsampleFit(r, &FitTorusInternal, &abi) && abi.m_size1.y > 0.0 && abi.m_size1.z > 0.0) {
    Vec3 a = abi.m_axis;
    out->push_back(Make(Shape::kTorus, abi.m_center, a.Normalize(), abi.m_size1.y,
                        abi.m_size1.z - r.probe_radius));
  }
}

Point3 ToPoint3(const Vec3& v) {
  return Point3{v.x, v.y, v.z};
}

Vec3 FromPoint3(const Point3& p) {
  return Vec3(p[0], p[1], p[2]);
}

// The algebraic ellipse of the points projected onto the plane through the centroid across
// the normal; the projected circle, a hair out of round so the turn is not idle, when the
// conic is no ellipse.
bool EllipseStart(const Request& r, const PointStats& st, const Vec3& normal, Feature* out) {
  const State s = FrameAround(st.centroid, normal);
  std::vector<double> xy(2 * r.count);
  for (std::size_t k = 0; k < r.count; ++k) {
    double q[3];
    ToLocal(s, r.xyz + 3 * k, q);
    xy[2 * k] = q[0];
    xy[2 * k + 1] = q[1];
  }
  const std::optional<EllipseGuess2D> e = EllipseStart2D(xy.data(), r.count);
  if (e) {
    *out = Make(Shape::kEllipse, s.c + ToWorld(s, e->center[0], e->center[1], 0.0), normal,
                e->major - r.probe_radius, e->minor - r.probe_radius);
    out->major_direction = ToWorld(s, std::cos(e->angle), std::sin(e->angle), 0.0);
    return true;
  }
  const Circle2 c = ProjectedCircle(r, s);
  if (!c.ok) return false;
  const double radius = c.radius - r.probe_radius;
  *out = Make(Shape::kEllipse, c.centre, normal, radius * (1.0 + kRoundnessSeed), radius);
  out->major_direction = s.e1;
  return true;
}

// The three principal axes of the scatter, or the hint alone.
std::vector<Vec3> CandidateAxes(const PointStats& st, const Vec3* hint) {
  if (hint != nullptr) return {*hint};
  return {st.direction[0], st.direction[1], st.direction[2]};
}

void SpheroidStarts(const Request& r, const PointStats& st, const Vec3* hint,
                    std::vector<Feature>* out) {
  for (const Vec3& axis : CandidateAxes(st, hint)) {
    const std::optional<SpheroidGuess> g = SpheroidStart(r.xyz, r.count, ToPoint3(axis));
    if (!g) continue;
    out->push_back(Make(Shape::kSpheroid, FromPoint3(g->center), axis, g->along - r.probe_radius,
                        g->across - r.probe_radius));
  }
}

void ParaboloidStarts(const Request& r, const PointStats& st, const Vec3* hint,
                      std::vector<Feature>* out) {
  for (const Vec3& axis : CandidateAxes(st, hint)) {
    const std::optional<ParaboloidGuess> g = ParaboloidStart(r.xyz, r.count, ToPoint3(axis));
    if (!g) continue;
    // The probe centres' vertex lies the probe radius outside the part's, on the side away
    // from the focus.
    const Vec3 opening = FromPoint3(g->opening);
    out->push_back(Make(Shape::kParaboloid, FromPoint3(g->vertex) + opening * r.probe_radius,
                        opening, g->focal, 0.0));
  }
}

}  // namespace

std::vector<Feature> StartCandidates(const Request& r, const PointStats& st, const Vec3* hint) {
  std::vector<Feature> out;
  const Vec3 normal = hint != nullptr ? *hint : st.direction[0];
  switch (r.shape) {
    case Shape::kLine:
      out.push_back(Make(r.shape, st.centroid, hint != nullptr ? *hint : st.direction[2], 0, 0));
      break;
    case Shape::kPlane:
      out.push_back(Make(r.shape, st.centroid, normal, 0, 0));
      break;
    case Shape::kCircle: {
      const Circle2 c = ProjectedCircle(r, FrameAround(st.centroid, normal));
      out.push_back(Make(r.shape, c.ok ? c.centre : st.centroid, normal,
                         (c.ok ? c.radius : st.scale) - r.probe_radius, 0));
      break;
    }
    case Shape::kSphere:
      out.push_back(SphereStart(r, st));
      break;
    case Shape::kCylinder:
      CylinderStarts(r, st, hint, true, &out);
      break;
    case Shape::kCone:
      ConeStarts(r, st, hint, &out);
      break;
    case Shape::kTorus:
      TorusStarts(r, st, hint, &out);
      break;
    case Shape::kEllipse: {
      Feature f;
      if (EllipseStart(r, st, normal, &f)) out.push_back(f);
      break;
    }
    case Shape::kSpheroid:
      SpheroidStarts(r, st, hint, &out);
      break;
    case Shape::kParaboloid:
      ParaboloidStarts(r, st, hint, &out);
      break;
    default:
      break;
  }
  return out;
}

}  // namespace metrofit::precise
