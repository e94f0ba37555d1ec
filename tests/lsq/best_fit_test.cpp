// CFitInput::BestFit run directly.
//
// Every parameter gets the constraint weight -1.0 and its start value in the parameter
// vector: estimators write only where the weight is exactly 0.0, so the starts stay as given,
// and the engine treats the negative weight as a free parameter. Where the axis point of a line
// or cylinder could slide along the axis, that coordinate is fixed with weight 1e20 (the line
// and cylinder estimators fix the same one).
//
// Data are at measuring-machine scale: centres about 500 mm from the origin, tilted axes,
// micrometre noise.
#include "lsq/best_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "lsq/shape.h"
#include "lsq_test_util.h"
#include "metrofit.h"

namespace {

using lsq_test::Close;
using lsq_test::FrameOf;
using lsq_test::FromLocal;
using lsq_test::LineAngle;
using lsq_test::Matrix;
using lsq_test::Near;
using lsq_test::Pt;
using lsq_test::Rng;

constexpr double kFixed = 1e20;
constexpr double kStartValue = -1.0;
constexpr int kIterationLimit = 501;  // 500 plus the one whose result trips the limit
// Coordinate noise of the noisy sets, mm (2 micrometres per coordinate).
constexpr double kNoise = 0.002;
// Exact data: agreement with the generating shape, far above the rounding of 500 mm
// coordinates (about 1e-13) and far below any modelling error.
constexpr double kExactPosition = 1e-10;  // mm
constexpr double kExactAngle = 1e-12;     // rad
// Noisy data: the relative-change test stops when the variance factor changes by less than
// 1e-6, which leaves S within about 1e-6 S of its minimum; the cosine between the residual
// vector and any parameter's column of the Jacobian is then at most sqrt(1e-6) = 1e-3 (at the
// minimum it is 0; for an unfitted shape it is of order 1 / sqrt(points)).
constexpr double kStationaryCosine = 1e-3;
// Noisy data: loose closeness to the generating shape, to confirm the minimum found is the one
// near it. The paraboloid's lateral vertex position and axis tilt nearly replace each other
// (both tilt the surface to first order), so they are known far less well than the noise.
constexpr double kNoisyPosition = 0.01;  // mm
constexpr double kNoisyAngle = 1e-3;     // rad
constexpr double kParaboloidLooseness = 20.0;

// ---------------------------------------------------------------------------------------------
// Shapes at measuring-machine scale, in the engine's parameter order.
// ---------------------------------------------------------------------------------------------

const Pt kLinePoint(380.0, 260.0, -330.0);
const Pt kPlanePoint(420.0, -300.0, 250.0);

std::vector<double> TruthOf(int type) {
  switch (type) {
    case FIT_LINE:
      return {kLinePoint.x, kLinePoint.y, kLinePoint.z, 0.3, 1.1};  // x-dominant direction
    case FIT_PLANE: {
      const double a = 0.3, b = -0.4;
      return {a, b, kPlanePoint.Dot(FrameOf(a, b).u)};
    }
    case FIT_CIRCLE:
      return {-380.0, 310.0, 220.0, 0.35, -0.25, 40.0};
    case FIT_SPHERE:
      return {430.0, -260.0, 180.0, 25.0};
    case FIT_CYLINDER:
      return {290.0, 410.0, -150.0, 0.35, -0.25, 20.0};  // z-dominant axis
    case FIT_PARABOLOID:
      return {-250.0, -400.0, 160.0, 0.3, 0.2, 50.0};
    case FIT_CONE:
      return {350.0, -320.0, 240.0, 0.4, -0.3, 1.5};
    case FIT_ELLIPSE:
      return {-300.0, 350.0, -280.0, 0.25, 0.35, 30.0, 20.0};
    case FIT_TORUS:
      return {410.0, 220.0, -310.0, -0.3, 0.25, 40.0, 8.0};
    default:
      return {};
  }
}

// Exact points of the shape x, spread over its usable surface (away from axes and apexes).
std::vector<Pt> SurfacePoints(int type, const std::vector<double>& x, int count, Rng& rng) {
  std::vector<Pt> pts;
  for (int i = 0; i < count; ++i) {
    const double th = rng.Uniform(0.0, lsq_test::kTwoPi);
    const double ct = std::cos(th), st = std::sin(th);
    if (type == FIT_SPHERE) {
      pts.push_back(Pt(x[0], x[1], x[2]) + rng.AtDistance(x[3]));
      continue;
    }
    if (type == FIT_PLANE) {
      const auto f = FrameOf(x[0], x[1]);
      pts.push_back(FromLocal(f, f.u * x[2], rng.Uniform(-60, 60), rng.Uniform(-60, 60), 0.0));
      continue;
    }
    const auto f = FrameOf(x[3], x[4]);
    const Pt c(x[0], x[1], x[2]);
    switch (type) {
      case FIT_LINE:
        pts.push_back(FromLocal(f, c, 0.0, 0.0, rng.Uniform(-60, 60)));
        break;
      case FIT_CIRCLE:
        pts.push_back(FromLocal(f, c, x[5] * ct, x[5] * st, 0.0));
        break;
      case FIT_CYLINDER:
        pts.push_back(FromLocal(f, c, x[5] * ct, x[5] * st, rng.Uniform(-30, 30)));
        break;
      case FIT_PARABOLOID: {
        const double rho = rng.Uniform(5.0, 60.0);
        pts.push_back(FromLocal(f, c, rho * ct, rho * st, rho * rho / (4.0 * x[5])));
        break;
      }
      case FIT_CONE: {
        const double h = rng.Uniform(10.0, 40.0);
        pts.push_back(FromLocal(f, c, h / x[5] * ct, h / x[5] * st, h));
        break;
      }
      case FIT_ELLIPSE: {
        const double phi = rng.Uniform(0.3, lsq_test::kPi - 0.3);
        pts.push_back(FromLocal(f, c, x[6] * std::sin(phi) * ct, x[6] * std::sin(phi) * st,
                                x[5] * std::cos(phi)));
        break;
      }
      case FIT_TORUS: {
        const double psi = rng.Uniform(0.0, lsq_test::kTwoPi);
        const double rho = x[5] + x[6] * std::cos(psi);
        pts.push_back(FromLocal(f, c, rho * ct, rho * st, x[6] * std::sin(psi)));
        break;
      }
      default:
        break;
    }
  }
  return pts;
}

void AddNoise(std::vector<Pt>& pts, double sigma, Rng& rng) {
  for (Pt& p : pts) p += rng.NormalVector(sigma);
}

bool IsAngle(int type, int j) {
  return type == FIT_PLANE ? j < 2 : (type != FIT_SPHERE && (j == 3 || j == 4));
}

// A start near the truth: 0.05 mm in positions and sizes, 5 mrad in angles, 0.01 in a slope.
std::vector<double> StartNear(int type, const std::vector<double>& x, Rng& rng) {
  std::vector<double> s = x;
  for (std::size_t j = 0; j < s.size(); ++j) {
    if (IsAngle(type, static_cast<int>(j)))
      s[j] += rng.Uniform(-0.005, 0.005);
    else if (type == FIT_CONE && j == 5)
      s[j] += rng.Uniform(-0.01, 0.01);
    else
      s[j] += rng.Uniform(-0.05, 0.05);
  }
  return s;
}

Pt AxisOf(double a, double b) {
  return FrameOf(a, b).u;
}

// ---------------------------------------------------------------------------------------------
// One BestFit call with its constraint matrix and parameter vector.
// ---------------------------------------------------------------------------------------------

struct Fit {
  explicit Fit(int type)
      : n(metrofit::EngineLayoutFor(type).parameters > 0
              ? metrofit::EngineLayoutFor(type).parameters
              : 1),
        C(n, n),
        V(n, 1) {
    in.m_fitType = type;
  }
  // Start values for every parameter, all free.
  void Start(const std::vector<double>& x) {
    for (int k = 0; k < n && k < static_cast<int>(x.size()); ++k) {
      C[k][k] = kStartValue;
      V[k][0] = x[k];
    }
  }
  void Fix(int k, double value) {
    C[k][k] = kFixed;
    V[k][0] = value;
  }
  // Seeds the result the way the driver does before the engine runs (the cylinder and cone
  // estimators read their start from it).
  void Seed(const std::vector<double>& x) {
    lsq_test::SetParams(in.m_fitType, x, res);
    if (in.m_fitType != FIT_SPHERE && in.m_fitType != FIT_PLANE) res.m_axis = AxisOf(x[3], x[4]);
  }
  void Run() {
    if (list == metrofit::DeviationList::kAppended) {
      in.BestFit(res, C.get(), V.get());
    } else {
      metrofit::RunBestFit(in, res, C.get(), V.get(), list);
    }
  }
  std::vector<double> Params() const { return lsq_test::ParamsOf(in.m_fitType, res); }
  int type() const { return in.m_fitType; }

  CFitInput in;
  metrofit::DeviationList list = metrofit::DeviationList::kAppended;
  CFitResult res;
  int n;
  Matrix C, V;
};

// Fixes the axis point coordinate of a line or cylinder that could otherwise slide along the
// axis: the dominant component of the axis, as the estimators of these shapes do.
int DominantComponent(const Pt& a) {
  const double ax = std::fabs(a.x), ay = std::fabs(a.y), az = std::fabs(a.z);
  return (ax >= ay && ax >= az) ? 0 : (ay >= az ? 1 : 2);
}

// Cosine between the stacked residuals and each parameter's column of their Jacobian (central
// differences), at the parameters x. Columns in `skip` (fixed parameters) are not checked.
void ExpectStationary(int type, const std::vector<double>& x, const std::vector<Pt>& pts,
                      const std::vector<int>& skip = {}) {
  std::vector<double> res;
  for (const Pt& p : pts) {
    double r[2];
    const int m = lsq_test::Residuals(type, x, p, r);
    for (int i = 0; i < m; ++i) res.push_back(r[i]);
  }
  double resNorm = 0.0;
  for (double r : res) resNorm += r * r;
  resNorm = std::sqrt(resNorm);
  ASSERT_GT(resNorm, 0.0);
  for (std::size_t j = 0; j < x.size(); ++j) {
    bool skipped = false;
    for (int s : skip) skipped = skipped || s == static_cast<int>(j);
    if (skipped) continue;
    const double h = IsAngle(type, static_cast<int>(j)) ? 1e-7 : 1e-5;
    std::vector<double> xp = x, xm = x;
    xp[j] += h;
    xm[j] -= h;
    double dot = 0.0, colNorm = 0.0;
    std::size_t row = 0;
    for (const Pt& p : pts) {
      double rp[2], rm[2];
      const int m = lsq_test::Residuals(type, xp, p, rp);
      lsq_test::Residuals(type, xm, p, rm);
      for (int i = 0; i < m; ++i, ++row) {
        const double col = (rp[i] - rm[i]) / (xp[j] - xm[j]);
        dot += col * res[row];
        colNorm += col * col;
      }
    }
    const double cosine = std::fabs(dot) / (std::sqrt(colNorm) * resNorm);
    EXPECT_LT(cosine, kStationaryCosine) << "parameter " << j;
  }
}

// The reported shape against the generating one. Line and cylinder: the axis point anywhere
// on the axis; plane: normal and offset.
void ExpectShape(const Fit& f, const std::vector<double>& truth, double pos, double ang) {
  const int type = f.type();
  const std::vector<double> x = f.Params();
  SCOPED_TRACE(::testing::Message() << "fit type " << type);
  if (type == FIT_PLANE) {
    EXPECT_LT(LineAngle(AxisOf(x[0], x[1]), AxisOf(truth[0], truth[1])), ang);
    EXPECT_NEAR(x[2], truth[2], pos);
    return;
  }
  const Pt c(x[0], x[1], x[2]), tc(truth[0], truth[1], truth[2]);
  if (type == FIT_SPHERE) {
    EXPECT_TRUE(Near(c, tc, pos));
    EXPECT_NEAR(x[3], truth[3], pos);
    return;
  }
  const Pt u = AxisOf(x[3], x[4]), tu = AxisOf(truth[3], truth[4]);
  EXPECT_LT(LineAngle(u, tu), ang);
  EXPECT_GT(u.Dot(tu), 0.0);
  if (type == FIT_LINE || type == FIT_CYLINDER) {
    const Pt d = c - tc;
    EXPECT_LT((d - tu * d.Dot(tu)).Length(), pos);
  } else {
    EXPECT_TRUE(Near(c, tc, pos));
  }
  for (std::size_t j = 5; j < x.size(); ++j) {
    const double tol = type == FIT_CONE ? pos / 10.0 : pos;  // the slope is dimensionless
    EXPECT_NEAR(x[j], truth[j], tol) << "size " << j;
  }
}

// Runs one shape on exact or noisy data; returns the points used.
std::vector<Pt> RunShape(Fit& f, int count, double noise, unsigned seed) {
  const int type = f.type();
  Rng rng(seed);
  const std::vector<double> truth = TruthOf(type);
  std::vector<Pt> pts = SurfacePoints(type, truth, count, rng);
  AddNoise(pts, noise, rng);
  f.in.m_points = pts;
  std::vector<double> start = StartNear(type, truth, rng);
  if (type == FIT_LINE || type == FIT_CYLINDER) {
    // The axis point starts on the generating axis (exact data) or at the centroid (noisy),
    // its dominant coordinate fixed; the reference point is that start point.
    Pt ref(truth[0], truth[1], truth[2]);
    if (noise > 0.0 && type == FIT_LINE) {
      ref = Pt();
      for (const Pt& p : pts) ref += p;
      ref = ref * (1.0 / pts.size());
    }
    if (noise > 0.0 && type == FIT_CYLINDER) {
      // Off the axis and along it: the reported axis point is its foot on the axis.
      const auto fr = FrameOf(truth[3], truth[4]);
      ref = ref + fr.e1 * 3.0 + fr.u * 10.0;
    }
    f.in.m_refPoint = ref;
    const int k = DominantComponent(AxisOf(truth[3], truth[4]));
    if (type == FIT_LINE) {
      start[0] = ref.x;
      start[1] = ref.y;
      start[2] = ref.z;
    } else {
      start[k] = truth[k];
    }
    f.Seed(start);
    f.Start(start);
    f.Fix(k, start[k]);
  } else {
    if (type == FIT_PLANE) f.in.m_refPoint = kPlanePoint;
    f.Seed(start);
    f.Start(start);
  }
  f.Run();
  return pts;
}

void ExpectExactConvergence(int type, int count, unsigned seed) {
  Fit f(type);
  RunShape(f, count, 0.0, seed);
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_LT(f.res.m_iterations, 50);
  ExpectShape(f, TruthOf(type), kExactPosition, kExactAngle);
  EXPECT_LT(f.res.m_rms, kExactPosition);
}

void ExpectNoisyStationary(int type, int count, unsigned seed) {
  Fit f(type);
  const std::vector<Pt> pts = RunShape(f, count, kNoise, seed);
  ASSERT_EQ(f.res.m_valid, 1);
  const double loose = type == FIT_PARABOLOID ? kParaboloidLooseness : 1.0;
  ExpectShape(f, TruthOf(type), loose * kNoisyPosition, loose * kNoisyAngle);
  // A least-squares minimum next to the generating shape fits at least as well as it does.
  EXPECT_LE(lsq_test::SumOfSquares(type, f.Params(), pts),
            lsq_test::SumOfSquares(type, TruthOf(type), pts));
  std::vector<int> skip;
  if (type == FIT_CYLINDER) skip.push_back(DominantComponent(AxisOf(f.Params()[3], f.Params()[4])));
  ExpectStationary(type, f.Params(), pts, skip);
  EXPECT_EQ(f.res.m_deviations.size(), pts.size());
  EXPECT_GT(f.res.m_rms, 0.1 * kNoise);
}

// ---------------------------------------------------------------------------------------------
// Exact data converge to the generating shape.
// ---------------------------------------------------------------------------------------------

TEST(BestFit, LineExactDataConverges) {
  ExpectExactConvergence(FIT_LINE, 20, 101);
}
TEST(BestFit, PlaneExactDataConverges) {
  ExpectExactConvergence(FIT_PLANE, 20, 102);
}
TEST(BestFit, CircleExactDataConverges) {
  ExpectExactConvergence(FIT_CIRCLE, 20, 103);
}
TEST(BestFit, SphereExactDataConverges) {
  ExpectExactConvergence(FIT_SPHERE, 20, 104);
}
TEST(BestFit, CylinderExactDataConverges) {
  ExpectExactConvergence(FIT_CYLINDER, 30, 105);
}
TEST(BestFit, ParaboloidExactDataConverges) {
  ExpectExactConvergence(FIT_PARABOLOID, 30, 106);
}
TEST(BestFit, ConeExactDataConverges) {
  ExpectExactConvergence(FIT_CONE, 30, 107);
}
TEST(BestFit, EllipseExactDataConverges) {
  ExpectExactConvergence(FIT_ELLIPSE, 40, 108);
}
TEST(BestFit, TorusExactDataConverges) {
  ExpectExactConvergence(FIT_TORUS, 40, 109);
}

// ---------------------------------------------------------------------------------------------
// Noisy data end at a stationary point of the sum of squared (first-order) orthogonal
// distances.
// ---------------------------------------------------------------------------------------------

TEST(BestFit, LineNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_LINE, 30, 201);
}
TEST(BestFit, PlaneNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_PLANE, 30, 202);
}
TEST(BestFit, CircleNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_CIRCLE, 30, 203);
}
TEST(BestFit, SphereNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_SPHERE, 30, 204);
}
TEST(BestFit, CylinderNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_CYLINDER, 40, 205);
}
TEST(BestFit, ParaboloidNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_PARABOLOID, 40, 206);
}
TEST(BestFit, ConeNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_CONE, 40, 207);
}
TEST(BestFit, EllipseNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_ELLIPSE, 60, 208);
}
TEST(BestFit, TorusNoisyDataIsStationary) {
  ExpectNoisyStationary(FIT_TORUS, 60, 209);
}

// The line's point is held at the reference point; the plane reports it as its centre.
TEST(BestFit, LineAndPlaneReportTheReferencePointAsCentre) {
  for (int type : {FIT_LINE, FIT_PLANE}) {
    Fit f(type);
    RunShape(f, 20, kNoise, 301);
    ASSERT_EQ(f.res.m_valid, 1);
    EXPECT_EQ(f.res.m_center, f.in.m_refPoint) << type;
  }
}

// The cylinder's axis point is the foot of the perpendicular from the reference point on the
// reported axis.
TEST(BestFit, CylinderAxisPointIsTheFootOfTheReferencePoint) {
  Fit f(FIT_CYLINDER);
  RunShape(f, 30, kNoise, 302);
  ASSERT_EQ(f.res.m_valid, 1);
  const Pt a = AxisOf(f.res.m_angles.x, f.res.m_angles.y);
  const Pt c = f.res.m_center, ref = f.in.m_refPoint;
  EXPECT_TRUE(Near(c, c + a * (ref - c).Dot(a), 1e-10));
  EXPECT_EQ(f.res.m_angles.z, 0.0);
}

// ---------------------------------------------------------------------------------------------
// Probe-radius compensation inside the iteration.
// ---------------------------------------------------------------------------------------------

// Ball centres one probe radius outside the tube: the fit finds the tube, not the ball path.
TEST(BestFit, TorusWithProbeRadiusFindsTheTube) {
  const double probe = 2.0;
  std::vector<double> truth = TruthOf(FIT_TORUS);
  std::vector<double> path = truth;
  path[6] += probe;
  Rng rng(401);
  Fit f(FIT_TORUS);
  f.in.m_points = SurfacePoints(FIT_TORUS, path, 40, rng);
  f.in.m_probeRadius = probe;
  const std::vector<double> start = StartNear(FIT_TORUS, truth, rng);
  f.Start(start);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  ExpectShape(f, truth, kExactPosition, kExactAngle);
}

// Ball centres one probe radius inside (towards the focus): with compensation the paraboloid
// is found to within the second-order error of the one-step contact angle; without it the
// vertex is off by about the probe radius.
TEST(BestFit, ParaboloidWithProbeRadiusFindsTheSurface) {
  const double probe = 1.0;
  const std::vector<double> truth = TruthOf(FIT_PARABOLOID);
  const auto fr = FrameOf(truth[3], truth[4]);
  const Pt vertex(truth[0], truth[1], truth[2]);
  Rng rng(402);
  std::vector<Pt> balls;
  for (int i = 0; i < 40; ++i) {
    const double s = rng.Uniform(5.0, 60.0), th = rng.Uniform(0, lsq_test::kTwoPi);
    const double phi = std::atan(s / (2.0 * truth[5]));
    const double rho = s - probe * std::sin(phi);
    const double h = s * s / (4.0 * truth[5]) + probe * std::cos(phi);
    balls.push_back(FromLocal(fr, vertex, rho * std::cos(th), rho * std::sin(th), h));
  }
  const std::vector<double> start = StartNear(FIT_PARABOLOID, truth, rng);

  Fit f(FIT_PARABOLOID);
  f.in.m_points = balls;
  f.in.m_probeRadius = probe;
  f.Start(start);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  ExpectShape(f, truth, 1e-6, 1e-8);

  Fit g(FIT_PARABOLOID);
  g.in.m_points = balls;
  g.Start(start);
  g.Run();
  ASSERT_EQ(g.res.m_valid, 1);
  EXPECT_GT((g.res.m_center - vertex).Length(), 0.5 * probe);
}

// ---------------------------------------------------------------------------------------------
// Constraint modes and what goes back to the caller.
// ---------------------------------------------------------------------------------------------

std::vector<Pt> NoisySphere(int count, unsigned seed, double noise = kNoise) {
  Rng rng(seed);
  std::vector<Pt> pts = SurfacePoints(FIT_SPHERE, TruthOf(FIT_SPHERE), count, rng);
  AddNoise(pts, noise, rng);
  return pts;
}

// A free fit of NoisySphere(count, seed, noise) from a start near the generating sphere.
void FitNoisySphere(Fit* f, int count, unsigned seed, double noise = kNoise) {
  f->in.m_points = NoisySphere(count, seed, noise);
  Rng rng(seed + 1);
  f->Start(StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng));
  f->Run();
}

TEST(BestFit, FixedRadiusWithFixedWeightIsReportedExactly) {
  const double given = 25.0031;
  Fit f(FIT_SPHERE);
  f.in.m_points = NoisySphere(30, 501);
  f.in.m_size1Param.value.x = given;
  f.in.m_size1Param.mode[0] = 1;
  Rng rng(502);
  f.Start(StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng));
  f.Fix(3, given);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_size1.x, given);
  ExpectStationary(FIT_SPHERE, f.Params(), f.in.m_points, {3});
}

// Mode 1 reports the given radius whatever the iteration does to the radius parameter: here
// the parameter is left free, keeps absorbing the misfit and ends away from the given value.
TEST(BestFit, FixedRadiusModeIsReportedWhateverTheParameterDoes) {
  const double given = 25.01;
  Fit f(FIT_SPHERE);
  f.in.m_points = NoisySphere(30, 503);
  f.in.m_size1Param.value.x = given;
  f.in.m_size1Param.mode[0] = 1;
  Rng rng(504);
  f.Start(StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng));
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_size1.x, given);
  EXPECT_GT(std::fabs(f.V[3][0] - given), 1e-3);
}

TEST(BestFit, FixedFocalLengthIsReportedExactly) {
  const double given = 50.02;
  Fit f(FIT_PARABOLOID);
  Rng rng(505);
  f.in.m_points = SurfacePoints(FIT_PARABOLOID, TruthOf(FIT_PARABOLOID), 40, rng);
  AddNoise(f.in.m_points, kNoise, rng);
  f.in.m_size2Param.value.x = given;
  f.in.m_size2Param.mode[0] = 1;
  f.Start(StartNear(FIT_PARABOLOID, TruthOf(FIT_PARABOLOID), rng));
  f.Fix(5, given);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_size2.x, given);
  ExpectStationary(FIT_PARABOLOID, f.Params(), f.in.m_points, {5});
}

// On convergence the constraint matrix holds N^-1 and the parameter vector the final x.
// N = 1e6 J^T J over the free parameters, J the Jacobian of the distances (Q = 1e-6 I).
TEST(BestFit, InverseNormalMatrixAndParametersGoBackToTheCaller) {
  Fit f(FIT_SPHERE);
  FitNoisySphere(&f, 30, 506);
  ASSERT_EQ(f.res.m_valid, 1);
  const std::vector<double> x = f.Params();
  double jtj[4][4] = {};
  for (const Pt& p : f.in.m_points) {
    double col[4];
    for (int j = 0; j < 4; ++j) {
      std::vector<double> xp = x, xm = x;
      xp[j] += 1e-5;
      xm[j] -= 1e-5;
      double rp[2], rm[2];
      lsq_test::Residuals(FIT_SPHERE, xp, p, rp);
      lsq_test::Residuals(FIT_SPHERE, xm, p, rm);
      col[j] = (rp[0] - rm[0]) / (xp[j] - xm[j]);
    }
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) jtj[i][j] += 1e6 * col[i] * col[j];
  }
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      double s = 0.0;
      for (int k = 0; k < 4; ++k) s += f.C[i][k] * jtj[k][j];
      EXPECT_NEAR(s, i == j ? 1.0 : 0.0, 1e-6) << i << "," << j;
    }
    // The final x includes the last, small step that the result fields do not.
    EXPECT_NEAR(f.V[i][0], x[i], 1e-6) << i;
  }
}

// The engine stops once the variance factor changes by less than 1e-6 between two iterations.
// The step of that converging iteration goes into the caller's parameter vector, but the result
// fields, and the residual vectors computed from them, keep the parameters from the start of
// that iteration: the result is one small step short of the final vector. With 2 mm of noise
// on the 25 mm sphere the iteration converges slowly enough for that step to be visible.
TEST(BestFit, ResultHoldsTheParametersFromBeforeTheLastStep) {
  Fit f(FIT_SPHERE);
  FitNoisySphere(&f, 30, 512, 2.0);
  ASSERT_EQ(f.res.m_valid, 1);
  const Pt c = f.res.m_center;
  const double r = f.res.m_size1.x;
  const Pt cFinal(f.V[0][0], f.V[1][0], f.V[2][0]);
  const double rFinal = f.V[3][0];
  const double lastStep = std::fmax((cFinal - c).Length(), std::fabs(rFinal - r));
  // A step was taken, and a small one.
  EXPECT_GT(lastStep, 1e-11);
  EXPECT_LT(lastStep, 1e-4);
  // The residual vectors belong to the result's parameters, not to the final vector.
  ASSERT_EQ(f.res.m_deviations.size(), f.in.m_points.size());
  double offResult = 0.0, offFinal = 0.0;
  for (std::size_t i = 0; i < f.in.m_points.size(); ++i) {
    const Pt& p = f.in.m_points[i];
    const double v = f.res.m_deviations[i].Length();
    offResult = std::fmax(offResult, std::fabs(v - std::fabs((p - c).Length() - r)));
    offFinal = std::fmax(offFinal, std::fabs(v - std::fabs((p - cFinal).Length() - rFinal)));
  }
  std::printf("[info] last step %.3g mm; residuals off the result by %.3g, off the final by %.3g\n",
              lastStep, offResult, offFinal);
  EXPECT_LT(offResult, 1e-12);
  EXPECT_GT(offFinal, 10.0 * offResult);
}

// Residual vectors v = Q B^T M^-1 w: for the sphere the displacement onto the sphere along the
// radial direction (outwards for a point inside), and the statistics built from them.
TEST(BestFit, ResidualVectorsAndStatistics) {
  Fit f(FIT_SPHERE);
  FitNoisySphere(&f, 25, 508, 0.01);
  ASSERT_EQ(f.res.m_valid, 1);
  ASSERT_EQ(f.res.m_deviations.size(), 25u);
  const Pt c = f.res.m_center;
  const double r = f.res.m_size1.x;
  double sum = 0.0, lo = 1e300, hi = 0.0;
  for (std::size_t i = 0; i < 25; ++i) {
    const Pt d = f.in.m_points[i] - c;
    const double len = d.Length();
    const Pt expected = d * ((r - len) / len);
    EXPECT_TRUE(Near(f.res.m_deviations[i], expected, 1e-12)) << i;
    // The displaced point lies on the sphere.
    EXPECT_NEAR((f.in.m_points[i] + f.res.m_deviations[i] - c).Length(), r, 1e-12) << i;
    const double v = f.res.m_deviations[i].Length();
    sum += v * v;
    lo = std::min(lo, v);
    hi = std::max(hi, v);
  }
  EXPECT_TRUE(Close(f.res.m_sigma, std::sqrt(sum / 24.0), 1e-12));
  EXPECT_TRUE(Close(f.res.m_rms, std::sqrt(sum / 25.0), 1e-12));
  EXPECT_EQ(f.res.m_formError, f.res.m_rms);
  EXPECT_EQ(f.res.m_minDeviation, lo);
  EXPECT_EQ(f.res.m_maxDeviation, hi);
}

// A fit inside the library that never hands its deviation list on runs without one. Every
// other field must be the full fit's, bit for bit: the extremes of the deviations still cover
// the entries the result held before (here one longer and one shorter than any residual), and
// the list the result held stays as it was. Point passes and moment passes, noisy data.
TEST(BestFit, WithoutTheListEverythingElseIsTheFullFits) {
  const auto same = [](double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; };
  const std::vector<Pt> earlier = {Pt(3.0, 0.0, 0.0), Pt(0.0, 1e-9, 0.0)};
  for (int type :
       {FIT_LINE, FIT_PLANE, FIT_CIRCLE, FIT_SPHERE, FIT_CYLINDER, FIT_CONE, FIT_TORUS}) {
    for (bool fresh : {true, false}) {
      SCOPED_TRACE(::testing::Message()
                   << "type " << type << (fresh ? ", fresh" : ", earlier list"));
      Fit full(type), lean(type);
      lean.list = metrofit::DeviationList::kNotKept;
      if (!fresh) full.res.m_deviations = lean.res.m_deviations = earlier;
      RunShape(full, 40, kNoise, 700 + type);
      RunShape(lean, 40, kNoise, 700 + type);
      ASSERT_EQ(full.res.m_valid, 1);
      EXPECT_EQ(lean.res.m_valid, 1);
      EXPECT_EQ(lean.res.m_iterations, full.res.m_iterations);
      EXPECT_EQ(lean.Params(), full.Params());
      for (auto field :
           {&CFitResult::m_sigma, &CFitResult::m_rms, &CFitResult::m_formError,
            &CFitResult::m_minDeviation, &CFitResult::m_maxDeviation, &CFitResult::m_objective})
        EXPECT_TRUE(same(lean.res.*field, full.res.*field)) << lean.res.*field;
      EXPECT_EQ(full.res.m_deviations.size(), (fresh ? 0u : earlier.size()) + 40u);
      EXPECT_EQ(lean.res.m_deviations, fresh ? std::vector<Pt>() : earlier);
      if (!fresh) {
        EXPECT_EQ(full.res.m_maxDeviation, 3.0);
        EXPECT_EQ(full.res.m_minDeviation, 1e-9);
      }
    }
  }
}

// m_axis is written once, from the angles the estimator left; the sphere keeps all three
// angles as they were.
TEST(BestFit, SphereKeepsTheSeededAxisAndAngles) {
  Fit f(FIT_SPHERE);
  f.in.m_points = NoisySphere(20, 510);
  f.res.m_angles = Pt(0.3, 0.2, 0.1);
  f.res.m_axis = Pt(1.0, 2.0, 3.0);
  Rng rng(511);
  f.Start(StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng));
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_axis, Pt(1.0, 2.0, 3.0));
  EXPECT_EQ(f.res.m_angles, Pt(0.3, 0.2, 0.1));
}

TEST(BestFit, AxisIsWrittenOnceFromTheStartAngles) {
  Fit f(FIT_CIRCLE);
  Rng rng(513);
  f.in.m_points = SurfacePoints(FIT_CIRCLE, TruthOf(FIT_CIRCLE), 40, rng);
  f.Start(StartNear(FIT_CIRCLE, TruthOf(FIT_CIRCLE), rng));
  // The estimator stores its start angles in the result whatever the constraints say.
  CFitResult est;
  Matrix x0(f.n, 1);
  f.in.EstimateCircle(est, f.C.get(), x0.get());
  double m[9];
  ConvertAnglesToMatrix(est.m_angles.x, est.m_angles.y, 0.0, m);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_axis, Pt(m[6], m[7], m[8]));
  EXPECT_NE(f.res.m_angles.x, est.m_angles.x);  // the angles moved on; the axis did not
}

TEST(BestFit, ThirdAngleIsZeroedForOrientedShapes) {
  Fit f(FIT_TORUS);
  Rng rng(512);
  f.in.m_points = SurfacePoints(FIT_TORUS, TruthOf(FIT_TORUS), 40, rng);
  f.res.m_angles.z = 0.7;
  f.Start(StartNear(FIT_TORUS, TruthOf(FIT_TORUS), rng));
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_angles.z, 0.0);
}

// ---------------------------------------------------------------------------------------------
// Redundancy and the convergence tests.
// ---------------------------------------------------------------------------------------------

TEST(BestFit, EveryParameterFixedConvergesOnTheFirstIterationByStep) {
  Fit f(FIT_SPHERE);
  f.in.m_points = NoisySphere(20, 601);
  Rng rng(602);
  const std::vector<double> start = StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng);
  for (int k = 0; k < 4; ++k) f.Fix(k, start[k]);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_iterations, 1);
  EXPECT_EQ(f.Params(), start);
  for (int k = 0; k < 4; ++k) {
    EXPECT_LE(std::fabs(f.V[k][0] - start[k]), 1e-12) << k;
    EXPECT_TRUE(Close(f.C[k][k], 1.0 / kFixed, 1e-6, 0.0)) << k;
  }
}

// Four points and four free sphere parameters: r = 0. The variance factor reads 1.0 and only
// the step (at most 1e-8) ends the iteration; the sphere interpolates the points.
TEST(BestFit, NoRedundancyReportsVarianceFactorOneAndStopsOnTheStep) {
  Fit f(FIT_SPHERE);
  f.in.m_points = NoisySphere(4, 603, 0.05);
  Rng rng(604);
  f.Start(StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng));
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_objective, 1.0);
  const std::vector<double> x = f.Params();
  for (int k = 0; k < 4; ++k) EXPECT_LE(std::fabs(f.V[k][0] - x[k]), 1e-8) << k;
  for (const Pt& p : f.in.m_points) EXPECT_NEAR((p - f.res.m_center).Length(), x[3], 1e-9);
}

// Best-fit direction of a point set: the dominant eigenvector of its scatter matrix.
Pt PrincipalDirection(const std::vector<Pt>& pts) {
  Pt m;
  for (const Pt& p : pts) m += p;
  m = m * (1.0 / pts.size());
  double s[3][3] = {};
  for (const Pt& p : pts) {
    const double d[3] = {p.x - m.x, p.y - m.y, p.z - m.z};
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) s[i][j] += d[i] * d[j];
  }
  Pt v(1.0, 0.3, 0.2);
  for (int it = 0; it < 500; ++it) {
    Pt w(s[0][0] * v.x + s[0][1] * v.y + s[0][2] * v.z,
         s[1][0] * v.x + s[1][1] * v.y + s[1][2] * v.z,
         s[2][0] * v.x + s[2][1] * v.y + s[2][2] * v.z);
    v = w * (1.0 / w.Length());
  }
  return v;
}

// Sum of squared distances from the line through c along the axis of (a, b), from the two
// coordinates across the line (no cancellation of large squares).
double LineSumOfSquares(const std::vector<Pt>& pts, const Pt& c, double a, double b) {
  const auto f = FrameOf(a, b);
  double s = 0.0;
  for (const Pt& p : pts) {
    const Pt d = p - c;
    s += d.Dot(f.e1) * d.Dot(f.e1) + d.Dot(f.e2) * d.Dot(f.e2);
  }
  return s;
}

// Three points of a line with one location coordinate fixed: r = 3 - 5 + 1 wraps to 2^64 - 1.
// The variance factor is then the weighted sum of squares over 2^64 - 1, close to 0, and only
// the relative-change test can stop the iteration: the line is held at the reference point
// (the first point, off the best line), so the step in the line's point never becomes small.
TEST(BestFit, TooFewPointsWrapTheRedundancyAndTheRelativeChangeDecides) {
  Fit f(FIT_LINE);
  Rng rng(605);
  const std::vector<double> truth = TruthOf(FIT_LINE);
  f.in.m_points = SurfacePoints(FIT_LINE, truth, 3, rng);
  AddNoise(f.in.m_points, 0.01, rng);
  f.in.m_refPoint = f.in.m_points[0];
  std::vector<double> start = StartNear(FIT_LINE, truth, rng);
  f.Start(start);
  f.Fix(0, f.in.m_refPoint.x);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  const Pt u = AxisOf(f.res.m_angles.x, f.res.m_angles.y);
  const double wrapped = static_cast<double>(std::uint64_t{0} - 1u);
  const double expected =
      1e6 * LineSumOfSquares(f.in.m_points, f.in.m_refPoint, f.res.m_angles.x, f.res.m_angles.y) /
      wrapped;
  EXPECT_TRUE(Close(f.res.m_objective, expected, 1e-9, 0.0));
  EXPECT_LT(f.res.m_objective, 1e-12);
  EXPECT_GT(f.res.m_objective, 0.0);
  EXPECT_LT(LineAngle(u, PrincipalDirection(f.in.m_points)), 1e-6);
}

// Points exactly on the start sphere: the variance factor is exactly 0 on the first iteration,
// the relative change keeps its initial 0 and the fit converges at once.
TEST(BestFit, PointsExactlyOnTheStartShapeConvergeAtOnce) {
  Fit f(FIT_SPHERE);
  f.in.m_points = {Pt(5, 0, 0),  Pt(0, 5, 0),  Pt(0, 0, 5),  Pt(-5, 0, 0),
                   Pt(0, -3, 4), Pt(3, 0, -4), Pt(0, 4, -3), Pt(-4, 3, 0)};
  f.Start({0.0, 0.0, 0.0, 5.0});
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_iterations, 1);
  EXPECT_EQ(f.res.m_objective, 0.0);
  EXPECT_EQ(f.res.m_minDeviation, 0.0);
  EXPECT_EQ(f.res.m_maxDeviation, 0.0);
  EXPECT_EQ(f.res.m_sigma, 0.0);
}

TEST(BestFit, SecondCallAppendsDeviationsAndExtremesCoverBothSets) {
  Fit f(FIT_SPHERE);
  f.in.m_points = NoisySphere(20, 606, 0.001);
  Rng rng(607);
  const std::vector<double> start = StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng);
  f.Start(start);
  f.Run();
  ASSERT_EQ(f.res.m_valid, 1);
  const std::vector<Pt> first = f.res.m_deviations;
  ASSERT_EQ(first.size(), 20u);

  // Second set: other points, ten times the noise.
  f.in.m_points = NoisySphere(15, 608, 0.01);
  Matrix c2(4, 4), v2(4, 1);
  for (int k = 0; k < 4; ++k) {
    c2[k][k] = kStartValue;
    v2[k][0] = start[k];
  }
  f.in.BestFit(f.res, c2.get(), v2.get());
  ASSERT_EQ(f.res.m_valid, 1);
  ASSERT_EQ(f.res.m_deviations.size(), 35u);
  double lo = 1e300, hi = 0.0;
  for (std::size_t i = 0; i < 35; ++i) {
    if (i < 20) {
      EXPECT_EQ(f.res.m_deviations[i], first[i]);
    }
    lo = std::min(lo, f.res.m_deviations[i].Length());
    hi = std::max(hi, f.res.m_deviations[i].Length());
  }
  EXPECT_EQ(f.res.m_minDeviation, lo);
  EXPECT_EQ(f.res.m_maxDeviation, hi);
  // The statistics are those of the second set only.
  double sum = 0.0;
  for (std::size_t i = 20; i < 35; ++i) sum += f.res.m_deviations[i].Dot(f.res.m_deviations[i]);
  EXPECT_TRUE(Close(f.res.m_rms, std::sqrt(sum / 15.0), 1e-12));
}

// ---------------------------------------------------------------------------------------------
// Failure paths.
// ---------------------------------------------------------------------------------------------

// Marks the statistics so that a failed fit can be seen to leave them alone.
void MarkStatistics(CFitResult& r) {
  r.m_sigma = r.m_rms = r.m_formError = r.m_minDeviation = r.m_maxDeviation = -7.0;
}

void ExpectStatisticsUntouched(const CFitResult& r) {
  EXPECT_EQ(r.m_sigma, -7.0);
  EXPECT_EQ(r.m_rms, -7.0);
  EXPECT_EQ(r.m_formError, -7.0);
  EXPECT_EQ(r.m_minDeviation, -7.0);
  EXPECT_EQ(r.m_maxDeviation, -7.0);
  EXPECT_TRUE(r.m_deviations.empty());
}

// Four points of a line with one coordinate fixed: r = 0, so only a step of at most 1e-8 can
// end the iteration. With the reference point (where the line is held) off the best line the
// step in the line's point never shrinks: after 501 iterations the fit fails, holding the
// parameters written at the start of the last one, by then the best direction.
TEST(BestFit, NonConvergingFitStopsAfter501Iterations) {
  Fit f(FIT_LINE);
  Rng rng(701);
  const std::vector<double> truth = TruthOf(FIT_LINE);
  f.in.m_points = SurfacePoints(FIT_LINE, truth, 4, rng);
  AddNoise(f.in.m_points, 0.02, rng);
  f.in.m_refPoint = f.in.m_points[0];
  f.Start(StartNear(FIT_LINE, truth, rng));
  f.Fix(0, f.in.m_refPoint.x);
  MarkStatistics(f.res);
  f.Run();
  EXPECT_EQ(f.res.m_valid, 0);
  EXPECT_EQ(f.res.m_iterations, kIterationLimit);
  EXPECT_EQ(f.res.m_center, f.in.m_refPoint);
  EXPECT_LT(
      LineAngle(AxisOf(f.res.m_angles.x, f.res.m_angles.y), PrincipalDirection(f.in.m_points)),
      1e-9);
  ExpectStatisticsUntouched(f.res);
  // Negative weights were zeroed, in the constraint matrix and beside them in the caller's
  // vector, which now holds the prior correction C (x - x0): 0 for every free parameter.
  EXPECT_EQ(f.C[0][0], kFixed);
  for (int k = 1; k < 5; ++k) {
    EXPECT_EQ(f.C[k][k], 0.0) << k;
    EXPECT_EQ(f.V[k][0], 0.0) << k;
  }
}

// A step component above 1e6 stops the fit at the top of the next pass: the reference point
// lies 2e6 mm along the cylinder axis, the axis point jumps there, and the fixed coordinate is
// pulled back by more than 1e6 in the first step.
TEST(BestFit, StepAboveTheLimitStopsTheFitAtThatIteration) {
  Fit f(FIT_CYLINDER);
  Rng rng(702);
  const std::vector<double> truth = TruthOf(FIT_CYLINDER);
  f.in.m_points = SurfacePoints(FIT_CYLINDER, truth, 20, rng);
  const std::vector<double> start = StartNear(FIT_CYLINDER, truth, rng);
  const Pt c(start[0], start[1], start[2]), a = AxisOf(start[3], start[4]);
  f.in.m_refPoint = c + a * 2e6;
  f.Seed(start);
  f.Start(start);
  f.Fix(2, start[2]);
  MarkStatistics(f.res);
  f.Run();
  EXPECT_EQ(f.res.m_valid, 0);
  EXPECT_EQ(f.res.m_iterations, 1);
  // The parameters written at the start of that iteration: the foot of the reference point.
  EXPECT_TRUE(Near(f.res.m_center, c + a * (f.in.m_refPoint - c).Dot(a), 1e-6));
  EXPECT_EQ(f.res.m_angles.x, start[3]);
  EXPECT_EQ(f.res.m_angles.y, start[4]);
  ExpectStatisticsUntouched(f.res);
}

// NaN coordinates poison every sum; the step is NaN, which never passes for converged, and the
// fit fails at the iteration limit without computing residuals.
TEST(BestFit, NaNCoordinateFailsWithoutCrashing) {
  Fit f(FIT_SPHERE);
  f.in.m_points = NoisySphere(20, 703);
  f.in.m_points[7].y = std::numeric_limits<double>::quiet_NaN();
  Rng rng(704);
  f.Start(StartNear(FIT_SPHERE, TruthOf(FIT_SPHERE), rng));
  MarkStatistics(f.res);
  f.Run();
  EXPECT_EQ(f.res.m_valid, 0);
  EXPECT_EQ(f.res.m_iterations, kIterationLimit);
  ExpectStatisticsUntouched(f.res);
}

// What the engine decides for degenerate sets is its own; it must end cleanly, with residuals
// exactly when it reports success.
void ExpectCleanEnd(const Fit& f) {
  EXPECT_TRUE(f.res.m_valid == 0 || f.res.m_valid == 1);
  EXPECT_GE(f.res.m_iterations, 1);
  EXPECT_LE(f.res.m_iterations, kIterationLimit);
  EXPECT_EQ(f.res.m_deviations.size(), f.res.m_valid == 1 ? f.in.m_points.size() : 0u);
}

TEST(BestFit, TooFewPointsEndCleanly) {
  for (int type = FIT_LINE; type <= FIT_TORUS; ++type) {
    Fit f(type);
    Rng rng(705 + type);
    const std::vector<double> truth = TruthOf(type);
    f.in.m_points = SurfacePoints(type, truth, 2, rng);
    AddNoise(f.in.m_points, kNoise, rng);
    f.Start(StartNear(type, truth, rng));
    f.Run();
    SCOPED_TRACE(::testing::Message() << "fit type " << type << " valid " << f.res.m_valid
                                      << " iterations " << f.res.m_iterations);
    ExpectCleanEnd(f);
  }
}

TEST(BestFit, IdenticalPointsEndCleanly) {
  for (int type = FIT_LINE; type <= FIT_TORUS; ++type) {
    Fit f(type);
    Rng rng(720 + type);
    const std::vector<double> truth = TruthOf(type);
    const std::vector<Pt> one = SurfacePoints(type, truth, 1, rng);
    f.in.m_points.assign(12, one[0] + Pt(0.1, -0.2, 0.3));
    f.Start(StartNear(type, truth, rng));
    f.Run();
    SCOPED_TRACE(::testing::Message() << "fit type " << type << " valid " << f.res.m_valid
                                      << " iterations " << f.res.m_iterations);
    ExpectCleanEnd(f);
  }
}

// No points and every parameter free: N is zero, its inversion stops at once, the step is 0
// and the variance factor 0, so the fit "converges" on the first iteration. The deviation list
// stays empty and both extremes are reported as 0.
TEST(BestFit, EmptyPointListReportsZeroExtremes) {
  Fit f(FIT_SPHERE);
  f.Start({430.0, -260.0, 180.0, 25.0});
  f.Run();
  EXPECT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_iterations, 1);
  EXPECT_TRUE(f.res.m_deviations.empty());
  EXPECT_EQ(f.res.m_minDeviation, 0.0);
  EXPECT_EQ(f.res.m_maxDeviation, 0.0);
  EXPECT_EQ(f.res.m_sigma, 0.0);
}

// A fit type without a model runs with no unknowns: nothing to solve, zero residual vectors.
TEST(BestFit, FitTypeWithoutModelRunsWithNoUnknowns) {
  Fit f(9);
  f.in.m_points = {Pt(1, 2, 3), Pt(4, 5, 6), Pt(7, 8, 10)};
  f.Run();
  EXPECT_EQ(f.res.m_valid, 1);
  EXPECT_EQ(f.res.m_iterations, 1);
  ASSERT_EQ(f.res.m_deviations.size(), 3u);
  for (const Pt& v : f.res.m_deviations) EXPECT_EQ(v, Pt());
}

}  // namespace
