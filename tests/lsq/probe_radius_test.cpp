// Probe-radius compensation (paraboloid, torus) and point rectification.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "lsq_test_util.h"
#include "metrofit.h"

namespace {

using lsq_test::FrameOf;
using lsq_test::FromLocal;
using lsq_test::Matrix;
using lsq_test::Near;
using lsq_test::Pt;
using lsq_test::Rng;

void Rotation(const CFitResult& r, Matrix& rot) {
  ConvertAnglesToMatrix(r.m_angles.x, r.m_angles.y, r.m_angles.z, rot.get());
}

TEST(ProbeRadius, ZeroRadiusReturnsThePointBitForBit) {
  CFitInput in;
  in.m_fitType = FIT_TORUS;
  in.m_probeRadius = 0.0;
  in.m_points = {Pt(0.1, -1e-300, 123456.789), Pt(-0.0, 3.3e300, 1.0 / 3.0)};
  CFitResult r;
  r.m_center = Pt(1, 2, 3);
  r.m_angles = Pt(0.4, 0.3, 0.2);
  r.m_size1.y = 10.0;
  Matrix rot(3, 3);
  Rotation(r, rot);
  for (int i = 0; i < 2; ++i) {
    const Pt q = in.RemoveProbeRadius(i, r, rot.get());
    EXPECT_EQ(std::memcmp(&q, &in.m_points[i], sizeof(Pt)), 0) << i;
  }
}

// Only the paraboloid and the torus are compensated; every other shape gets its point back
// after the rotation into the frame and out again.
TEST(ProbeRadius, OtherShapesOnlyMakeTheRoundTripThroughTheFrame) {
  Rng rng(5);
  CFitResult r;
  r.m_center = Pt(480.0, -130.0, 250.0);
  r.m_angles = Pt(0.7, -0.4, 1.1);
  r.m_size1 = Pt(20.0, 40.0, 8.0);
  r.m_size2.x = 30.0;
  Matrix rot(3, 3);
  Rotation(r, rot);
  for (int type :
       {FIT_LINE, FIT_PLANE, FIT_CIRCLE, FIT_SPHERE, FIT_CYLINDER, FIT_CONE, FIT_ELLIPSE}) {
    CFitInput in;
    in.m_fitType = type;
    in.m_probeRadius = 1.5;
    in.m_points = {r.m_center + rng.InBox(50.0), r.m_center + rng.InBox(50.0)};
    for (int i = 0; i < 2; ++i)
      EXPECT_TRUE(Near(in.RemoveProbeRadius(i, r, rot.get()), in.m_points[i], 1e-12)) << type;
  }
}

TEST(ProbeRadius, TorusPointsMoveTowardsTheCoreCircle) {
  CFitInput in;
  in.m_fitType = FIT_TORUS;
  in.m_probeRadius = 1.0;
  in.m_points = {Pt(13, 0, 0), Pt(10, 0, 3)};
  CFitResult r;
  r.m_size1.y = 10.0;
  r.m_size1.z = 1.0;
  Matrix rot(3, 3);
  Rotation(r, rot);
  EXPECT_TRUE(Near(in.RemoveProbeRadius(0, r, rot.get()), Pt(12, 0, 0), 1e-14));
  EXPECT_TRUE(Near(in.RemoveProbeRadius(1, r, rot.get()), Pt(10, 0, 2), 1e-14));
}

TEST(ProbeRadius, ParaboloidPointOnTheAxisMovesAlongMinusAxis) {
  CFitInput in;
  in.m_fitType = FIT_PARABOLOID;
  in.m_probeRadius = 1.0;
  in.m_points = {Pt(0, 0, 5)};
  CFitResult r;
  r.m_size2.x = 1.0;
  Matrix rot(3, 3);
  Rotation(r, rot);
  const Pt q = in.RemoveProbeRadius(0, r, rot.get());
  EXPECT_EQ(q.x, 0.0);
  EXPECT_EQ(q.y, 0.0);
  EXPECT_EQ(q.z, 4.0);
}

// A tilted torus far from the origin: ball centres one probe radius outside the tube come
// back exactly onto the tube.
TEST(ProbeRadius, TorusBallCentresReturnToTheSurface) {
  Rng rng(6);
  CFitResult r;
  r.m_center = Pt(-310.0, 420.0, 180.0);
  r.m_angles = Pt(0.35, 5.9, 0.0);
  const double major = 45.0, minor = 6.0, probe = 1.5;
  r.m_size1.y = major;
  r.m_size1.z = minor;
  const auto f = FrameOf(r.m_angles.x, r.m_angles.y);
  CFitInput in;
  in.m_fitType = FIT_TORUS;
  in.m_probeRadius = probe;
  for (int i = 0; i < 20; ++i) {
    const double th = rng.Uniform(0, lsq_test::kTwoPi), psi = rng.Uniform(0, lsq_test::kTwoPi);
    const double rho = major + (minor + probe) * std::cos(psi);
    in.m_points.push_back(FromLocal(f, r.m_center, rho * std::cos(th), rho * std::sin(th),
                                    (minor + probe) * std::sin(psi)));
  }
  Matrix rot(3, 3);
  Rotation(r, rot);
  for (int i = 0; i < 20; ++i) {
    const Pt q = in.RemoveProbeRadius(i, r, rot.get());
    std::vector<double> x = lsq_test::ParamsOf(FIT_TORUS, r);
    double dist[2];
    lsq_test::Conditions(FIT_TORUS, x, q, dist);
    EXPECT_NEAR(dist[0], 0.0, 1e-12) << i;
    EXPECT_NEAR((q - in.m_points[i]).Length(), probe, 1e-12) << i;
  }
}

// The paraboloid compensation moves by exactly the probe radius, outwards across the axis and
// towards -u, along a normal taken from a one-step estimate of the contact radius; the moved
// point is on the paraboloid to second order in probe / focal length.
TEST(ProbeRadius, ParaboloidBallCentresComeCloseToTheSurface) {
  Rng rng(7);
  CFitResult r;
  r.m_center = Pt(250.0, 380.0, -200.0);
  r.m_angles = Pt(6.0, 0.25, 0.0);
  const double focal = 60.0, probe = 1.0;
  r.m_size2.x = focal;
  const auto f = FrameOf(r.m_angles.x, r.m_angles.y);
  CFitInput in;
  in.m_fitType = FIT_PARABOLOID;
  in.m_probeRadius = probe;
  for (int i = 0; i < 20; ++i) {
    // Surface point at radius s, the ball centre one probe radius inside along the normal.
    const double s = rng.Uniform(2.0, 60.0), th = rng.Uniform(0, lsq_test::kTwoPi);
    const double phi = std::atan(s / (2 * focal));
    const double rho = s - probe * std::sin(phi), h = s * s / (4 * focal) + probe * std::cos(phi);
    in.m_points.push_back(FromLocal(f, r.m_center, rho * std::cos(th), rho * std::sin(th), h));
  }
  Matrix rot(3, 3);
  Rotation(r, rot);
  for (int i = 0; i < 20; ++i) {
    const Pt p = in.m_points[i];
    const Pt q = in.RemoveProbeRadius(i, r, rot.get());
    EXPECT_NEAR((q - p).Length(), probe, 1e-12) << i;
    EXPECT_LT((q - p).Dot(f.u), 0.0) << i;
    double dist[1];
    lsq_test::Residuals(FIT_PARABOLOID, lsq_test::ParamsOf(FIT_PARABOLOID, r), q, dist);
    // Contact angle error of the one-step estimate is O((probe / 2F)^2) rad.
    EXPECT_LT(std::fabs(dist[0]), probe * (probe / (2 * focal)) * (probe / (2 * focal))) << i;
  }
}

TEST(ProbeRadius, RectifyForwardThenBackReturnsThePoints) {
  Rng rng(8);
  CFitInput in;
  for (int i = 0; i < 10; ++i) in.m_points.push_back(Pt(300, -200, 150) + rng.InBox(40.0));
  const std::vector<Pt> original = in.m_points;
  Matrix params(6, 1), saved(6, 1), rot(3, 3);
  const double start[6] = {310.0, -190.0, 140.0, 0.4, -0.3, 12.5};
  for (int i = 0; i < 6; ++i) params[i][0] = start[i];

  in.RectifyPoints(params.get(), saved.get(), rot.get(), true);
  const auto f = FrameOf(start[3], start[4]);
  const Pt c(start[0], start[1], start[2]);
  for (int i = 0; i < 10; ++i) {
    const Pt d = original[i] - c;
    EXPECT_TRUE(Near(in.m_points[i], Pt(d.Dot(f.e1), d.Dot(f.e2), d.Dot(f.u)), 1e-12)) << i;
  }
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(saved[i][0], start[i]);
    EXPECT_EQ(params[i][0], 0.0);
  }
  EXPECT_EQ(params[5][0], 12.5);  // sizes are not part of the frame

  in.RectifyPoints(params.get(), saved.get(), rot.get(), false);
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(Near(in.m_points[i], original[i], 1e-12)) << i;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(params[i][0], 0.0);  // not restored
}

}  // namespace
