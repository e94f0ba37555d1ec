#include "support/known_solution.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <string>

#include "support/test_frame.h"

namespace metrofit::testing {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
constexpr double kMillimetresPerMicrometre = 1e-3;

// Central-difference steps: relative to the extent of the data for lengths, absolute for the
// dimensionless tilts and the half angle. With h = 1e-5 the truncation error (h^2) and the
// rounding error (eps / h) of the derivatives are both near 1e-10 relative.
constexpr double kRelativeStep = 1e-5;

// A column of the Jacobian whose norm drops below this fraction of its original norm during
// orthogonalisation is linearly dependent on the others and is left out of the basis.
constexpr double kRankTolerance = 1e-9;

// Safety factor on the convergence bounds for the second-order terms J^T J omits.
constexpr double kBoundSafety = 2.0;

// The base frame carried onto a nearby axis; smooth in the axis, unlike MakeFrame, so that
// central differences of frame-dependent residuals (the line's) are well defined.
Frame TransportFrame(const Frame& base, const Pt& axis) {
  const Pt u = Unit(axis);
  const Pt e1 = Unit(base.e1 - u * base.e1.Dot(u));
  return Frame{e1, u.Cross(e1), u};
}

// Deterministic draws from std::mt19937_64, whose output sequence the standard fixes; the
// conversions are written out so the data do not depend on the standard library's
// distributions.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  double Uniform() { return static_cast<double>(engine_() >> 11) * std::ldexp(1.0, -53); }
  double Uniform(double a, double b) { return a + (b - a) * Uniform(); }
  double Normal() {
    const double u1 = 1.0 - Uniform();  // (0, 1]
    const double u2 = Uniform();
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(kTwoPi * u2);
  }
  Pt UnitVector() {
    const double z = Uniform(-1.0, 1.0);
    const double phi = Uniform(0.0, kTwoPi);
    const double s = std::sqrt(std::max(0.0, 1.0 - z * z));
    return Pt(s * std::cos(phi), s * std::sin(phi), z);
  }

 private:
  std::mt19937_64 engine_;
};

// Distance from the axis through the origin along unit u, without cancellation.
double AxisDistance(const Pt& d, const Pt& u) {
  return d.Cross(u).Length();
}

int Residuals(const ShapeTruth& s, const Frame& f, const Pt& p, double r[2]) {
  const Pt d = p - s.centre;
  const Pt& u = s.axis;
  switch (s.shape) {
    case Shape::kLine:
      r[0] = d.Dot(f.e1);
      r[1] = d.Dot(f.e2);
      return 2;
    case Shape::kPlane:
      r[0] = d.Dot(u);
      return 1;
    case Shape::kCircle:
      r[0] = d.Dot(u);
      r[1] = AxisDistance(d, u) - s.radius;
      return 2;
    case Shape::kSphere:
      r[0] = d.Length() - s.radius;
      return 1;
    case Shape::kCylinder:
      r[0] = AxisDistance(d, u) - s.radius;
      return 1;
    case Shape::kCone: {
      const double h = d.Dot(u);
      const double rho = AxisDistance(d, u);
      const double c = std::cos(s.halfAngle), sn = std::sin(s.halfAngle);
      // Nearest point on the surface line through the apex, or the apex itself when the foot
      // would lie behind it.
      r[0] = (h * c + rho * sn >= 0.0) ? rho * c - h * sn : d.Length();
      return 1;
    }
    case Shape::kTorus: {
      const double h = d.Dot(u);
      const double rho = AxisDistance(d, u);
      r[0] = std::hypot(rho - s.radius, h) - s.minorRadius;
      return 1;
    }
  }
  return 0;
}

enum class Kind { kPosition, kAxis, kRadius, kMinorRadius, kHalfAngle };

std::vector<Kind> Kinds(Shape shape) {
  using K = Kind;
  switch (shape) {
    case Shape::kLine:
      return {K::kPosition, K::kPosition, K::kAxis, K::kAxis};
    case Shape::kPlane:
      return {K::kAxis, K::kAxis, K::kPosition};
    case Shape::kCircle:
      return {K::kPosition, K::kPosition, K::kPosition, K::kAxis, K::kAxis, K::kRadius};
    case Shape::kSphere:
      return {K::kPosition, K::kPosition, K::kPosition, K::kRadius};
    case Shape::kCylinder:
      return {K::kPosition, K::kPosition, K::kAxis, K::kAxis, K::kRadius};
    case Shape::kCone:
      return {K::kPosition, K::kPosition, K::kPosition, K::kAxis, K::kAxis, K::kHalfAngle};
    case Shape::kTorus:
      return {K::kPosition, K::kPosition, K::kPosition,   K::kAxis,
              K::kAxis,     K::kRadius,   K::kMinorRadius};
  }
  return {};
}

ShapeTruth PerturbInFrame(const ShapeTruth& base, const Frame& f, const std::vector<double>& t,
                          Frame* moved) {
  ShapeTruth s = base;
  auto tilt = [&](double t1, double t2) { return Unit(f.u + f.e1 * t1 + f.e2 * t2); };
  switch (base.shape) {
    case Shape::kLine:
      s.centre = base.centre + f.e1 * t[0] + f.e2 * t[1];
      s.axis = tilt(t[2], t[3]);
      break;
    case Shape::kPlane:
      s.axis = tilt(t[0], t[1]);
      s.centre = base.centre + f.u * t[2];
      break;
    case Shape::kCircle:
      s.centre = base.centre + Pt(t[0], t[1], t[2]);
      s.axis = tilt(t[3], t[4]);
      s.radius = base.radius + t[5];
      break;
    case Shape::kSphere:
      s.centre = base.centre + Pt(t[0], t[1], t[2]);
      s.radius = base.radius + t[3];
      break;
    case Shape::kCylinder:
      s.centre = base.centre + f.e1 * t[0] + f.e2 * t[1];
      s.axis = tilt(t[2], t[3]);
      s.radius = base.radius + t[4];
      break;
    case Shape::kCone:
      s.centre = base.centre + Pt(t[0], t[1], t[2]);
      s.axis = tilt(t[3], t[4]);
      s.halfAngle = base.halfAngle + t[5];
      break;
    case Shape::kTorus:
      s.centre = base.centre + Pt(t[0], t[1], t[2]);
      s.axis = tilt(t[3], t[4]);
      s.radius = base.radius + t[5];
      s.minorRadius = base.minorRadius + t[6];
      break;
  }
  if (moved != nullptr) *moved = TransportFrame(f, s.axis);
  return s;
}

// Inverse of a small symmetric positive definite matrix by Gauss-Jordan elimination with
// partial pivoting. Returns false when a pivot vanishes.
bool Invert(DenseMatrix* m) {
  const int n = m->rows;
  DenseMatrix inv(n, n);
  for (int i = 0; i < n; ++i) inv(i, i) = 1.0;
  DenseMatrix& a = *m;
  for (int k = 0; k < n; ++k) {
    int p = k;
    for (int i = k + 1; i < n; ++i)
      if (std::fabs(a(i, k)) > std::fabs(a(p, k))) p = i;
    if (!(std::fabs(a(p, k)) > 0.0)) return false;
    if (p != k) {
      for (int j = 0; j < n; ++j) {
        std::swap(a(p, j), a(k, j));
        std::swap(inv(p, j), inv(k, j));
      }
    }
    const double piv = a(k, k);
    for (int j = 0; j < n; ++j) {
      a(k, j) /= piv;
      inv(k, j) /= piv;
    }
    for (int i = 0; i < n; ++i) {
      if (i == k) continue;
      const double fct = a(i, k);
      if (fct == 0.0) continue;
      for (int j = 0; j < n; ++j) {
        a(i, j) -= fct * a(k, j);
        inv(i, j) -= fct * inv(k, j);
      }
    }
  }
  *m = inv;
  return true;
}

// Orthonormal basis of the column space of J (modified Gram-Schmidt, applied twice for
// stability); dependent columns are dropped.
std::vector<std::vector<double>> ColumnBasis(const DenseMatrix& j) {
  std::vector<std::vector<double>> basis;
  for (int c = 0; c < j.cols; ++c) {
    std::vector<double> v(static_cast<std::size_t>(j.rows));
    double norm0 = 0.0;
    for (int r = 0; r < j.rows; ++r) {
      v[static_cast<std::size_t>(r)] = j(r, c);
      norm0 += j(r, c) * j(r, c);
    }
    norm0 = std::sqrt(norm0);
    if (!(norm0 > 0.0)) continue;
    for (int pass = 0; pass < 2; ++pass) {
      for (const std::vector<double>& q : basis) {
        double dot = 0.0;
        for (std::size_t r = 0; r < v.size(); ++r) dot += q[r] * v[r];
        for (std::size_t r = 0; r < v.size(); ++r) v[r] -= dot * q[r];
      }
    }
    double norm = 0.0;
    for (double x : v) norm += x * x;
    norm = std::sqrt(norm);
    if (norm < kRankTolerance * norm0) continue;
    for (double& x : v) x /= norm;
    basis.push_back(std::move(v));
  }
  return basis;
}

void ProjectOut(const std::vector<std::vector<double>>& basis, std::vector<double>* v) {
  for (int pass = 0; pass < 2; ++pass) {
    for (const std::vector<double>& q : basis) {
      double dot = 0.0;
      for (std::size_t r = 0; r < v->size(); ++r) dot += q[r] * (*v)[r];
      for (std::size_t r = 0; r < v->size(); ++r) (*v)[r] -= dot * q[r];
    }
  }
}

double Norm(const std::vector<double>& v) {
  double s = 0.0;
  for (double x : v) s += x * x;
  return std::sqrt(s);
}

void Require(bool ok, const std::string& what) {
  if (!ok) throw std::invalid_argument("GenerateKnownSolution: " + what);
}

}  // namespace

const char* ShapeName(Shape shape) {
  switch (shape) {
    case Shape::kLine:
      return "line";
    case Shape::kPlane:
      return "plane";
    case Shape::kCircle:
      return "circle";
    case Shape::kSphere:
      return "sphere";
    case Shape::kCylinder:
      return "cylinder";
    case Shape::kCone:
      return "cone";
    case Shape::kTorus:
      return "torus";
  }
  return "?";
}

int ResidualCount(Shape shape) {
  return (shape == Shape::kLine || shape == Shape::kCircle) ? 2 : 1;
}

int ParameterCount(Shape shape) {
  return static_cast<int>(Kinds(shape).size());
}

int ResidualComponents(const ShapeTruth& shape, const Pt& p, double r[2]) {
  return Residuals(shape, MakeFrame(shape.axis), p, r);
}

double OrthogonalDistance(const ShapeTruth& shape, const Pt& p) {
  double r[2] = {0.0, 0.0};
  const int n = ResidualComponents(shape, p, r);
  return n == 2 ? std::hypot(r[0], r[1]) : std::fabs(r[0]);
}

double SignedDistance(const ShapeTruth& shape, const Pt& p) {
  double r[2] = {0.0, 0.0};
  const int n = ResidualComponents(shape, p, r);
  return n == 2 ? std::hypot(r[0], r[1]) : r[0];
}

ShapeTruth Perturb(const ShapeTruth& base, const std::vector<double>& theta) {
  if (static_cast<int>(theta.size()) != ParameterCount(base.shape)) {
    throw std::invalid_argument("Perturb: wrong number of parameters");
  }
  return PerturbInFrame(base, MakeFrame(base.axis), theta, nullptr);
}

DenseMatrix ResidualJacobian(const ShapeTruth& base, const std::vector<Pt>& points) {
  const Shape shape = base.shape;
  const int k = ParameterCount(shape);
  const int m = ResidualCount(shape);
  const std::vector<Kind> kinds = Kinds(shape);

  // Work relative to the base centre: the residuals are translation invariant and the
  // differences then lose no digits to large coordinates.
  ShapeTruth local = base;
  local.centre = Pt();
  std::vector<Pt> p(points.size());
  double extent = 0.0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    p[i] = points[i] - base.centre;
    extent = std::max(extent, p[i].Length());
  }
  const double lengthStep = kRelativeStep * std::max(1.0, extent);
  const Frame f = MakeFrame(local.axis);

  DenseMatrix j(static_cast<int>(points.size()) * m, k);
  std::vector<double> theta(static_cast<std::size_t>(k), 0.0);
  for (int c = 0; c < k; ++c) {
    const Kind kind = kinds[static_cast<std::size_t>(c)];
    const double h = (kind == Kind::kAxis || kind == Kind::kHalfAngle) ? kRelativeStep : lengthStep;
    Frame fp, fm;
    theta[static_cast<std::size_t>(c)] = h;
    const ShapeTruth sp = PerturbInFrame(local, f, theta, &fp);
    theta[static_cast<std::size_t>(c)] = -h;
    const ShapeTruth sm = PerturbInFrame(local, f, theta, &fm);
    theta[static_cast<std::size_t>(c)] = 0.0;
    for (std::size_t i = 0; i < p.size(); ++i) {
      double rp[2] = {0.0, 0.0}, rm[2] = {0.0, 0.0};
      Residuals(sp, fp, p[i], rp);
      Residuals(sm, fm, p[i], rm);
      for (int q = 0; q < m; ++q) {
        j(static_cast<int>(i) * m + q, c) = (rp[q] - rm[q]) / (2.0 * h);
      }
    }
  }
  return j;
}

ConvergenceBounds BoundsFor(const ShapeTruth& truth, const std::vector<Pt>& feet, double sumSquares,
                            double relChange, const std::vector<int>& fixed) {
  const DenseMatrix j = ResidualJacobian(truth, feet);
  const std::vector<Kind> kinds = Kinds(truth.shape);
  std::vector<int> freeIdx;
  for (int c = 0; c < j.cols; ++c) {
    if (std::find(fixed.begin(), fixed.end(), c) == fixed.end()) freeIdx.push_back(c);
  }
  const int n = static_cast<int>(freeIdx.size());
  DenseMatrix jtj(n, n);
  for (int a = 0; a < n; ++a) {
    for (int b = 0; b < n; ++b) {
      double s = 0.0;
      for (int r = 0; r < j.rows; ++r) s += j(r, freeIdx[a]) * j(r, freeIdx[b]);
      jtj(a, b) = s;
    }
  }
  ConvergenceBounds out;
  if (!Invert(&jtj)) {
    const double inf = HUGE_VAL;
    return ConvergenceBounds{inf, inf, inf, inf, inf};
  }
  double trace[5] = {0.0, 0.0, 0.0, 0.0, 0.0};
  for (int a = 0; a < n; ++a) {
    trace[static_cast<int>(kinds[static_cast<std::size_t>(freeIdx[a])])] += jtj(a, a);
  }
  auto bound = [&](Kind kind) {
    return kBoundSafety * std::sqrt(relChange * sumSquares * trace[static_cast<int>(kind)]);
  };
  out.position = bound(Kind::kPosition);
  out.axisAngle = bound(Kind::kAxis);
  out.radius = bound(Kind::kRadius);
  out.minorRadius = bound(Kind::kMinorRadius);
  out.halfAngle = bound(Kind::kHalfAngle);
  return out;
}

KnownSolution GenerateKnownSolution(Shape shape, const GeneratorOptions& o) {
  const int k = ParameterCount(shape);
  const int m = ResidualCount(shape);
  Require(o.pointCount * m > k, "fewer residual components than parameters");
  Require(o.noiseMicrometres >= 0.0, "negative noise");
  for (int held : o.heldParameters) Require(held >= 0 && held < k, "held parameter index");
  Require(o.arcSpan > 0.0 && o.arcSpan <= kTwoPi, "arc span outside (0, 2 pi]");
  Require(o.length > 0.0, "non-positive length");
  if (shape != Shape::kLine && shape != Shape::kPlane) Require(o.radius > 0.0, "radius <= 0");
  if (shape == Shape::kTorus) {
    Require(o.minorRadius > 0.0 && o.minorRadius < o.radius, "torus radii");
  }
  double coneMidHeight = 0.0;
  if (shape == Shape::kCone) {
    Require(o.halfAngle > 0.0 && o.halfAngle < 0.5 * kPi, "cone half angle");
    coneMidHeight = o.radius / std::tan(o.halfAngle);
    Require(coneMidHeight - 0.5 * o.length > 0.0, "cone band reaches the apex");
  }

  Random rng(o.seed);
  const Pt centre = rng.UnitVector() * o.centreOffset;
  const double azimuth = rng.Uniform(0.0, kTwoPi);
  const Pt axis(std::sin(o.axisTilt) * std::cos(azimuth), std::sin(o.axisTilt) * std::sin(azimuth),
                std::cos(o.axisTilt));
  const Frame f = MakeFrame(axis);

  KnownSolution s;
  s.truth.shape = shape;
  s.truth.centre = centre;
  s.truth.axis = f.u;
  s.truth.radius = (shape == Shape::kLine || shape == Shape::kPlane) ? 0.0 : o.radius;
  s.truth.minorRadius = shape == Shape::kTorus ? o.minorRadius : 0.0;
  s.truth.halfAngle = shape == Shape::kCone ? o.halfAngle : 0.0;

  // Feet (relative to the centre) and the unit normals along which each residual component
  // moves the point.
  const std::size_t n = static_cast<std::size_t>(o.pointCount);
  std::vector<Pt> feet(n);
  std::vector<Pt> normals(n * static_cast<std::size_t>(m));
  const double r = o.radius;
  for (std::size_t i = 0; i < n; ++i) {
    Pt foot, n0, n1;
    switch (shape) {
      case Shape::kLine: {
        foot = f.u * rng.Uniform(-0.5 * o.length, 0.5 * o.length);
        n0 = f.e1;
        n1 = f.e2;
        break;
      }
      case Shape::kPlane: {
        const double a = rng.Uniform(-0.5 * o.length, 0.5 * o.length);
        const double b = rng.Uniform(-0.5 * o.length, 0.5 * o.length);
        foot = f.e1 * a + f.e2 * b;
        n0 = f.u;
        break;
      }
      case Shape::kCircle: {
        const double t = rng.Uniform(0.0, o.arcSpan);
        const Pt nr = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = nr * r;
        n0 = f.u;
        n1 = nr;
        break;
      }
      case Shape::kSphere: {
        const double cosMax = std::cos(std::min(0.5 * o.arcSpan, kPi));
        const double cb = rng.Uniform(cosMax, 1.0);
        const double sb = std::sqrt(std::max(0.0, 1.0 - cb * cb));
        const double phi = rng.Uniform(0.0, kTwoPi);
        n0 = f.e1 * (sb * std::cos(phi)) + f.e2 * (sb * std::sin(phi)) + f.u * cb;
        foot = n0 * r;
        break;
      }
      case Shape::kCylinder: {
        const double t = rng.Uniform(0.0, o.arcSpan);
        const double h = rng.Uniform(-0.5 * o.length, 0.5 * o.length);
        n0 = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = n0 * r + f.u * h;
        break;
      }
      case Shape::kCone: {
        const double t = rng.Uniform(0.0, o.arcSpan);
        const double h =
            rng.Uniform(coneMidHeight - 0.5 * o.length, coneMidHeight + 0.5 * o.length);
        const Pt nr = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = nr * (h * std::tan(o.halfAngle)) + f.u * h;
        n0 = nr * std::cos(o.halfAngle) - f.u * std::sin(o.halfAngle);
        break;
      }
      case Shape::kTorus: {
        const double t = rng.Uniform(0.0, o.arcSpan);
        const double phi = rng.Uniform(0.0, kTwoPi);
        const Pt nr = f.e1 * std::cos(t) + f.e2 * std::sin(t);
        foot = nr * (r + o.minorRadius * std::cos(phi)) + f.u * (o.minorRadius * std::sin(phi));
        n0 = nr * std::cos(phi) + f.u * std::sin(phi);
        break;
      }
    }
    feet[i] = foot;
    normals[i * static_cast<std::size_t>(m)] = n0;
    if (m == 2) normals[i * 2 + 1] = n1;
  }

  // Draw the deviations and remove every component the shape parameters could absorb.
  std::vector<double> delta(n * static_cast<std::size_t>(m), 0.0);
  if (o.noiseMicrometres > 0.0) {
    for (double& d : delta) d = rng.Normal();
    const double drawn = Norm(delta);
    ShapeTruth local = s.truth;
    local.centre = Pt();
    const DenseMatrix full = ResidualJacobian(local, feet);
    std::vector<int> columns;
    for (int c = 0; c < full.cols; ++c) {
      const auto& held = o.heldParameters;
      if (std::find(held.begin(), held.end(), c) == held.end()) columns.push_back(c);
    }
    DenseMatrix j(full.rows, static_cast<int>(columns.size()));
    for (int r = 0; r < full.rows; ++r) {
      for (int q = 0; q < j.cols; ++q) j(r, q) = full(r, columns[static_cast<std::size_t>(q)]);
    }
    ProjectOut(ColumnBasis(j), &delta);
    const double kept = Norm(delta);
    Require(kept > 0.0, "the projection removed every deviation");
    s.projectionRatio = kept / drawn;
    const double target = o.noiseMicrometres * kMillimetresPerMicrometre * std::sqrt(double(n));
    for (double& d : delta) d *= target / kept;
  }

  s.points.resize(n);
  s.surfacePoints.resize(n);
  s.deviations.resize(n);
  s.residuals = delta;
  s.sumSquares = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    Pt dev;
    for (int q = 0; q < m; ++q) {
      dev += normals[i * static_cast<std::size_t>(m) + static_cast<std::size_t>(q)] *
             delta[i * static_cast<std::size_t>(m) + static_cast<std::size_t>(q)];
    }
    s.deviations[i] = dev;
    s.surfacePoints[i] = centre + feet[i];
    s.points[i] = centre + (feet[i] + dev);
    s.sumSquares += dev.Dot(dev);
  }
  s.rms = std::sqrt(s.sumSquares / static_cast<double>(n));
  return s;
}

}  // namespace metrofit::testing
