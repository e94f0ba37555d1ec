#include "core/form_error.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/core_test_util.h"
#include "metrofit.h"

namespace {

using metrofit::ApplyFormError;
using metrofit::AxialFormError;
using metrofit::LineFormError;
using metrofit::PlaneFormError;
using metrofit::Points;
using metrofit::RadialExtent;
using metrofit::SphereFormError;
using metrofit_test::Close;
using P = KPt3<double>;

constexpr double kEmptySpread = -2e38;

struct Frame {
  P origin, u, v, n;
};

Frame RandomFrame(metrofit_test::Rng& rng, double reach) {
  Frame f;
  f.origin = rng.InBox(reach);
  f.n = rng.UnitVector();
  metrofit_test::PlaneBasis(f.n, &f.u, &f.v);
  return f;
}

TEST(FormError, PlaneIsSpreadOfSignedDistances) {
  metrofit_test::Rng rng(31);
  const Frame f = RandomFrame(rng, 1e3);
  Points pts;
  const double heights[] = {0.02, -0.03, 0.0, 0.01, -0.005};
  for (int i = 0; i < 5; ++i) {
    pts.push_back(f.origin + f.u * rng.Uniform(-50, 50) + f.v * rng.Uniform(-50, 50) +
                  f.n * heights[i]);
  }
  EXPECT_TRUE(Close(PlaneFormError(pts, f.origin, f.n), 0.05, 1e-9));
  // A shifted reference point on the plane moves nothing.
  EXPECT_TRUE(Close(PlaneFormError(pts, f.origin + f.u * 7.0, f.n), 0.05, 1e-9));
}

// Circle and cylinder share the measure: the offset along the axis does not count.
TEST(FormError, AxialMeasureIgnoresOffsetAlongAxis) {
  metrofit_test::Rng rng(32);
  const Frame f = RandomFrame(rng, 1e3);
  const double r = 12.5;
  const double radial[] = {0.01, -0.02, 0.0, 0.015};
  Points pts;
  for (int i = 0; i < 4; ++i) {
    const double phi = 1.1 * i;
    pts.push_back(f.origin + (f.u * std::cos(phi) + f.v * std::sin(phi)) * (r + radial[i]) +
                  f.n * (40.0 * i - 60.0));
  }
  EXPECT_TRUE(Close(AxialFormError(pts, f.origin, f.n, r), 0.035, 1e-9));
}

TEST(FormError, SphereIsSpreadOfRadialDistances) {
  metrofit_test::Rng rng(33);
  const P c = rng.InBox(500.0);
  const double r = 30.0;
  const double radial[] = {0.004, -0.006, 0.001, 0.0, -0.002};
  Points pts;
  for (double d : radial) pts.push_back(c + rng.UnitVector() * (r + d));
  EXPECT_TRUE(Close(SphereFormError(pts, c, r), 0.010, 1e-9));
}

TEST(FormError, NoPointsGiveSentinelSpreadAndZeroLineError) {
  const Points none;
  const P o(1, 2, 3), z(0, 0, 1);
  EXPECT_EQ(PlaneFormError(none, o, z), kEmptySpread);
  EXPECT_EQ(AxialFormError(none, o, z, 2.0), kEmptySpread);
  EXPECT_EQ(SphereFormError(none, o, 2.0), kEmptySpread);
  EXPECT_EQ(LineFormError(none, o, z), 0.0);
}

// Deliberately a radius: the thinnest cylinder about the direction that holds all points.
TEST(FormError, LineErrorIsRadiusOfThinnestHoldingCylinder) {
  metrofit_test::Rng rng(34);
  const Frame f = RandomFrame(rng, 1e4);
  Points pts;
  for (int i = 0; i < 40; ++i) {
    const double phi = rng.Uniform(0, metrofit_test::kTwoPi);
    const double rho = i % 4 == 0 ? 2.0 : rng.Uniform(0.0, 2.0);
    pts.push_back(f.origin + (f.u * std::cos(phi) + f.v * std::sin(phi)) * rho +
                  f.n * rng.Uniform(-100, 100));
  }
  // Three points on the rim at 120 degrees pin the circle.
  for (int k = 0; k < 3; ++k) {
    const double phi = 2.0943951023931953 * k;
    pts.push_back(f.origin + (f.u * std::cos(phi) + f.v * std::sin(phi)) * 2.0);
  }
  EXPECT_TRUE(Close(LineFormError(pts, f.origin, f.n), 2.0, 1e-9));
  // The line's point may sit anywhere along the axis.
  EXPECT_TRUE(Close(LineFormError(pts, f.origin + f.n * 55.0, f.n), 2.0, 1e-9));
}

TEST(FormError, LineErrorOfPointsBesideTheLineIsTheirOwnCircle) {
  // Offsets (3, 0), (5, 0), (4, 1) about the z axis: the circle on (3, 0), (5, 0) holds them.
  const Points pts = {P(3, 0, -5), P(5, 0, 1), P(4, 1, 9)};
  EXPECT_TRUE(Close(LineFormError(pts, P(0, 0, 0), P(0, 0, 1)), 1.0, 1e-15));
}

TEST(FormError, RadialExtentIsLargestDistanceFromLine) {
  metrofit_test::Rng rng(35);
  const Frame f = RandomFrame(rng, 1e3);
  const double rho[] = {1.0, 3.0, 2.0, 0.0};
  Points pts;
  for (int i = 0; i < 4; ++i) {
    const double phi = 0.9 * i;
    pts.push_back(f.origin + (f.u * std::cos(phi) + f.v * std::sin(phi)) * rho[i] +
                  f.n * (25.0 * i - 30.0));
  }
  // The direction need not be unit length.
  EXPECT_TRUE(Close(RadialExtent(pts, f.origin, f.n * 4.0), 3.0, 1e-9));
  EXPECT_EQ(RadialExtent(Points(), f.origin, f.n), 0.0);
  // A zero direction measures from the line's point itself.
  EXPECT_EQ(RadialExtent({P(3, 4, 0), P(0, 1, 0)}, P(0, 0, 0), P(0, 0, 0)), 5.0);
}

CFitInput WithType(int t, const Points& pts) {
  CFitInput in;
  in.m_fitType = t;
  in.m_points = pts;
  return in;
}

TEST(FormError, FormErrorByFitType) {
  const Points pts = {P(1, 0, 0.5), P(0, 2, -0.5), P(-1.5, 0, 0.25), P(0, -1, 0)};
  CFitResult out;
  out.m_center = P(0, 0, 0);
  out.m_axis = P(0, 0, 1);
  out.m_size1.x = 1.0;
  const double engineValue = 0.123;

  const struct {
    int type;
    double expect;
  } cases[] = {
      {FIT_LINE, LineFormError(pts, out.m_center, out.m_axis)},
      {FIT_PLANE, 1.0},
      {FIT_CIRCLE, 1.0},
      {FIT_CYLINDER, 1.0},
      {FIT_SPHERE, SphereFormError(pts, out.m_center, 1.0)},
      {FIT_PARABOLOID, 0.0},
      {FIT_CONE, engineValue},
      {FIT_ELLIPSE, 0.0},
      {FIT_TORUS, 0.0},
      {9, engineValue},
      {10, 0.0},
      {-1, 0.0},
  };
  for (const auto& c : cases) {
    out.m_formError = engineValue;
    ApplyFormError(WithType(c.type, pts), out);
    EXPECT_TRUE(Close(out.m_formError, c.expect, 1e-15)) << "type " << c.type;
  }
  EXPECT_GT(LineFormError(pts, out.m_center, out.m_axis), 1.0);
}

}  // namespace
