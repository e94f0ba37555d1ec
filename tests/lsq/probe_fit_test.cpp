// Probe-radius compensation end to end: the measured points are probe-ball centres, one probe
// radius off the surface, and the fits with m_probeRadius set must return the surface.
//
// Torus: the balls touch the tube from outside, so their centres lie on the torus with the
// tube radius r + probe, and moving a centre by the probe radius towards the core circle gives
// the contact point exactly. The fitted surface must therefore agree with the surface points'
// own least-squares solution as closely as a fit of those points would (BoundsFor of the
// known-solution data, support/known_solution.h).
//
// Paraboloid: the balls touch from the focus side. The compensation takes the contact angle
// from the ball centre's radius shifted by r sin(phi0) (phi0 the slope angle at the ball
// centre's own radius), a one-step approximation of the true contact angle. The compensated
// point is therefore off the contact point by r |dphi|, but along the surface (the difference
// of two normals), so its distance from the surface is of second order. That distance e_i is
// computed here from the documented compensation at the generating paraboloid, and the fitted
// parameters may differ from the generating ones by at most sqrt(trace C_block) |e| (the
// least-squares response to the systematic error e, Cauchy-Schwarz; support/noise_propagation.h),
// doubled for the compensation being taken at the fitted rather than the generating shape.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "fit_propagation_util.h"
#include "lsq_test_util.h"
#include "metrofit.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"
#include "support/noise_propagation.h"

namespace {

using lsq_test::AnglesOf;
using lsq_test::AxisOfAngles;
using lsq_test::FrameOf;
using lsq_test::Pt;
using metrofit::testing::AxisAngle;
using metrofit::testing::BoundsFor;
using metrofit::testing::ConvergenceBounds;
using metrofit::testing::DirectedAngle;
using metrofit::testing::GenerateKnownSolution;
using metrofit::testing::GeneratorOptions;
using metrofit::testing::KnownSolution;
using metrofit::testing::PortableRandom;
using metrofit::testing::Shape;
using metrofit::testing::WorstError;

constexpr double kTwoPi = 6.283185307179586;
// Relative change of the variance factor below which the engine declares convergence.
constexpr double kRelativeVarianceChange = 1e-6;
// Agreement for exact data, and the floor under every bound.
constexpr double kLengthFloor = 1e-9;  // mm
constexpr double kAngleFloor = 1e-9;   // rad
// Noise-propagated bounds: k sigma sqrt(trace C).
constexpr double kSigmas = 5.0;
// Margin on the bound of the paraboloid's systematic compensation error (see above).
constexpr double kCompensationMargin = 2.0;

Pt Unit(Pt v) {
  v.Normalize();
  return v;
}

// ---------------------------------------------------------------------------------------------
// Torus
// ---------------------------------------------------------------------------------------------

// Outward tube normal at a point f of the torus (centre c, unit axis u, major radius R).
Pt TubeNormal(const Pt& f, const Pt& c, const Pt& u, double R) {
  const Pt d = f - c;
  const Pt radial = Unit(d - u * d.Dot(u));
  return Unit(f - (c + radial * R));
}

// Ball centres for the known-solution torus points: each point moved out by the probe radius
// along the tube normal at its foot (the noise already lies along that normal).
std::vector<Pt> TorusBallCentres(const KnownSolution& s, double probe) {
  std::vector<Pt> balls;
  for (std::size_t i = 0; i < s.points.size(); ++i) {
    balls.push_back(s.points[i] +
                    TubeNormal(s.surfacePoints[i], s.truth.centre, s.truth.axis, s.truth.radius) *
                        probe);
  }
  return balls;
}

KnownSolution TorusData(double noise, std::uint64_t seed, double R, double r) {
  GeneratorOptions o;
  o.pointCount = 80;
  o.noiseMicrometres = noise;
  o.centreOffset = 300.0;
  o.axisTilt = 0.7;
  o.radius = R;
  o.minorRadius = r;
  o.seed = seed;
  return GenerateKnownSolution(Shape::kTorus, o);
}

struct TorusErrors {
  double centre, axis, major, minor;
};

TorusErrors ErrorsOf(const KnownSolution& s, const Pt& centre, const Pt& axis, double major,
                     double minor) {
  return {(centre - s.truth.centre).Length(), AxisAngle(axis, s.truth.axis),
          std::fabs(major - s.truth.radius), std::fabs(minor - s.truth.minorRadius)};
}

void ExpectWithinBounds(const KnownSolution& s, const TorusErrors& e, WorstError& worst,
                        const std::string& where) {
  const ConvergenceBounds b = BoundsFor(s, kRelativeVarianceChange);
  const double tc = b.position + kLengthFloor, ta = b.axisAngle + kAngleFloor;
  const double tR = b.radius + kLengthFloor, tr = b.minorRadius + kLengthFloor;
  EXPECT_LE(e.centre, tc);
  EXPECT_LE(e.axis, ta);
  EXPECT_LE(e.major, tR);
  EXPECT_LE(e.minor, tr);
  worst.Update(e.centre / tc, where + " centre");
  worst.Update(e.axis / ta, where + " axis");
  worst.Update(e.major / tR, where + " major radius");
  worst.Update(e.minor / tr, where + " minor radius");
}

// BestFit run directly, from the nominal torus the torus estimator reads from the input.
TEST(ProbeFit, TorusBallCentresWithBestFitGiveTheTube) {
  WorstError worst("torus ball centres, BestFit: error / bound");
  const double probe = 2.0;
  for (double noise : {0.0, 5.0}) {
    SCOPED_TRACE(noise);
    const KnownSolution s = TorusData(noise, 41, 40.0, 6.0);
    const Pt u = s.truth.axis;
    const Pt across = Unit(u.Cross(Pt(1.0, 0.0, 0.0)));
    CFitInput in;
    in.m_points = TorusBallCentres(s, probe);
    in.m_probeRadius = probe;
    in.m_fitType = FIT_TORUS;
    in.m_centerParam.value = s.truth.centre + across * 0.2;
    in.m_axisParam.value = Unit(u + across * 0.01);
    in.m_size1Param.value = Pt(0.0, 40.3, 6.0 + probe);  // the ball path's tube as nominal
    lsq_test::Matrix C(7, 7), V(7, 1);
    CFitResult out;
    in.BestFit(out, C.get(), V.get());
    ASSERT_EQ(out.m_valid, 1);
    const Pt axis = FrameOf(out.m_angles.x, out.m_angles.y).u;
    ExpectWithinBounds(s, ErrorsOf(s, out.m_center, axis, out.m_size1.y, out.m_size1.z), worst,
                       "noise " + std::to_string(noise));
    // The residuals are those of the contact points: their RMS is the noise.
    EXPECT_NEAR(out.m_rms, s.rms, 1e-6 * s.rms + kLengthFloor);
  }
}

TEST(ProbeFit, TorusBallCentresWithKFitTorusGiveTheTube) {
  WorstError worst("torus ball centres, KFitTorus: error / bound");
  struct Case {
    double noise, R, r, probe;
    std::uint64_t seed;
  };
  const Case cases[] = {
      {0.0, 50.0, 5.0, 1.5, 42}, {3.0, 50.0, 5.0, 1.5, 43}, {10.0, 120.0, 15.0, 3.0, 44}};
  for (const Case& c : cases) {
    const std::string where = "R " + std::to_string(c.R) + " noise " + std::to_string(c.noise);
    SCOPED_TRACE(where);
    const KnownSolution s = TorusData(c.noise, c.seed, c.R, c.r);
    CFitInput in;
    in.m_points = TorusBallCentres(s, c.probe);
    in.m_probeRadius = c.probe;
    CFitResult out;
    ASSERT_EQ(KFitTorus(in, out), 1);
    ExpectWithinBounds(s, ErrorsOf(s, out.m_center, out.m_axis, out.m_size1.y, out.m_size1.z),
                       worst, where);
  }
}

// Without the probe radius the same points give the ball path: the tube radius comes out one
// probe radius too large.
TEST(ProbeFit, TorusBallCentresWithoutProbeRadiusGiveTheBallPath) {
  const double probe = 1.5;
  const KnownSolution s = TorusData(0.0, 42, 50.0, 5.0);
  CFitInput in;
  in.m_points = TorusBallCentres(s, probe);
  CFitResult out;
  ASSERT_EQ(KFitTorus(in, out), 1);
  EXPECT_NEAR(out.m_size1.z, s.truth.minorRadius + probe, 1e-9);
  EXPECT_NEAR(out.m_size1.y, s.truth.radius, 1e-9);
}

// ---------------------------------------------------------------------------------------------
// Paraboloid
// ---------------------------------------------------------------------------------------------

struct ParaboloidBalls {
  std::vector<double> truth;  // vertex, a, b, F
  std::vector<Pt> feet;       // contact points
  std::vector<Pt> balls;      // ball centres (with noise along the normal)
};

// Rings of contact points out to `outer`, the ball centres one probe radius towards the focus
// along the inner normal (-sin(phi) n_r + cos(phi) u, tan(phi) = rho / 2F).
ParaboloidBalls MakeParaboloidBalls(const Pt& vertex, const Pt& axisDir, double F, double outer,
                                    double probe, double noise, std::uint64_t seed) {
  ParaboloidBalls d;
  double a = 0.0, b = 0.0;
  AnglesOf(Unit(axisDir), &a, &b);
  d.truth = {vertex.x, vertex.y, vertex.z, a, b, F};
  const auto f = FrameOf(a, b);
  PortableRandom rng(seed);
  const int rings = 5, perRing = 20;
  for (int k = 0; k <= rings; ++k) {
    const double rho = outer * k / rings;
    for (int i = 0; i < (k == 0 ? 1 : perRing); ++i) {
      const double th = kTwoPi * (i + 0.41 * k) / perRing;
      const Pt nr = f.e1 * std::cos(th) + f.e2 * std::sin(th);
      const double phi = std::atan(rho / (2.0 * F));
      const Pt inner = f.u * std::cos(phi) - nr * std::sin(phi);
      const Pt foot = vertex + nr * rho + f.u * (rho * rho / (4.0 * F));
      d.feet.push_back(foot);
      d.balls.push_back(foot + inner * (probe + noise * rng.Normal()));
    }
  }
  return d;
}

// The documented compensation of a ball centre p against the paraboloid x, written out here:
// phi0 = atan2(rho, 2F), phi = atan2(r sin(phi0) + rho, 2F); the point moves by r along
// (sin(phi) n_r - cos(phi) u).
Pt Compensated(const std::vector<double>& x, const Pt& p, double r) {
  const auto f = FrameOf(x[3], x[4]);
  const Pt d = p - Pt(x[0], x[1], x[2]);
  const double l0 = d.Dot(f.e1), l1 = d.Dot(f.e2), l2 = d.Dot(f.u);
  const double rho = std::sqrt(l0 * l0 + l1 * l1);
  const double phi0 = std::atan2(rho, 2.0 * x[5]);
  const double phi = std::atan2(std::sin(phi0) * r + rho, 2.0 * x[5]);
  const double s = rho > 0.0 ? r * std::sin(phi) / rho : 0.0;
  return Pt(x[0], x[1], x[2]) + f.e1 * (l0 + l0 * s) + f.e2 * (l1 + l1 * s) +
         f.u * (l2 - r * std::cos(phi));
}

TEST(ProbeFit, ParaboloidBallCentresWithKFitParaboloidGiveTheSurface) {
  WorstError worst("paraboloid ball centres, KFitParaboloid: error / bound");
  struct Case {
    Pt vertex, axis;
    double F, outer, probe, noise;
    std::uint64_t seed;
  };
  const Case cases[] = {
      {Pt(-250.0, 310.0, 180.0), Pt(0.25, 0.35, -0.9), 50.0, 60.0, 1.0, 0.0, 51},
      {Pt(300.0, 200.0, -260.0), Pt(0.2, -0.45, 0.87), 80.0, 50.0, 2.5, 0.0, 52},
      {Pt(-250.0, 310.0, 180.0), Pt(0.25, 0.35, -0.9), 50.0, 60.0, 1.0, 0.002, 53}};
  for (const Case& c : cases) {
    const std::string where = "F " + std::to_string(c.F) + " probe " + std::to_string(c.probe) +
                              " noise " + std::to_string(c.noise);
    SCOPED_TRACE(where);
    const ParaboloidBalls d =
        MakeParaboloidBalls(c.vertex, c.axis, c.F, c.outer, c.probe, c.noise, c.seed);

    // Distance from the surface of the compensated exact ball centres (the systematic error).
    std::vector<double> e;
    const ParaboloidBalls exact =
        MakeParaboloidBalls(c.vertex, c.axis, c.F, c.outer, c.probe, 0.0, c.seed);
    for (const Pt& ball : exact.balls) {
      double r[2];
      lsq_test::Residuals(FIT_PARABOLOID, d.truth, Compensated(d.truth, ball, c.probe), r);
      e.push_back(r[0]);
    }
    const double systematic = kCompensationMargin * metrofit::testing::Norm2(e);
    const lsq_test::Spreads s = lsq_test::SpreadsAt(FIT_PARABOLOID, d.truth, d.feet, {});
    ASSERT_TRUE(s.valid);
    const double spread = systematic + kSigmas * c.noise;
    const double tv = spread * s.centre + kLengthFloor;
    const double ta = spread * s.axis + kAngleFloor;
    const double tF = spread * s.sizes[0] + kLengthFloor;

    CFitInput in;
    in.m_points = d.balls;
    in.m_probeRadius = c.probe;
    CFitResult out;
    ASSERT_EQ(KFitParaboloid(in, out), 1);
    const Pt vertex(d.truth[0], d.truth[1], d.truth[2]);
    const double dv = (out.m_center - vertex).Length();
    const double da = DirectedAngle(out.m_axis, AxisOfAngles(d.truth[3], d.truth[4]));
    const double dF = std::fabs(out.m_size2.x - c.F);
    EXPECT_LE(dv, tv);
    EXPECT_LE(da, ta);
    EXPECT_LE(dF, tF);
    worst.Update(dv / tv, where + " vertex");
    worst.Update(da / ta, where + " axis");
    worst.Update(dF / tF, where + " focal length");
  }
}

// Without the probe radius the ball centres are fitted as they are: the vertex comes out about
// one probe radius along the axis towards the focus.
TEST(ProbeFit, ParaboloidBallCentresWithoutProbeRadiusAreOffByTheProbe) {
  const double probe = 1.0;
  const ParaboloidBalls d = MakeParaboloidBalls(Pt(-250.0, 310.0, 180.0), Pt(0.25, 0.35, -0.9),
                                                50.0, 60.0, probe, 0.0, 51);
  CFitInput in;
  in.m_points = d.balls;
  CFitResult out;
  ASSERT_EQ(KFitParaboloid(in, out), 1);
  const Pt vertex(d.truth[0], d.truth[1], d.truth[2]);
  const Pt u = AxisOfAngles(d.truth[3], d.truth[4]);
  EXPECT_GT((out.m_center - vertex).Dot(u), 0.5 * probe);
}

}  // namespace
