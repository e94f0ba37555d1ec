#include "core/entry_points.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/core_test_util.h"
#include "core/form_error.h"
#include "metrofit.h"

namespace {

using metrofit_test::Close;
using P = KPt3<double>;

const char kTwoPointsNeeded[] = "2 Points are needed for this measurement.";

CFitInput WithPoints(std::initializer_list<P> pts) {
  CFitInput in;
  in.m_points.assign(pts);
  return in;
}

TEST(EntryPoints, DistanceWithThreePointsFailsWithMessage) {
  CFitInput in = WithPoints({P(0, 0, 0), P(1, 0, 0), P(2, 0, 0)});
  CFitResult out;
  EXPECT_EQ(KFitDistance(in, out), 0);
  EXPECT_EQ(out.m_message, kTwoPointsNeeded);
}

TEST(EntryPoints, DistanceOfTwoPointsGoesIntoSecondSizeY) {
  CFitInput in = WithPoints({P(0, 0, 0), P(3, 4, 0)});
  CFitResult out;
  out.m_valid = 0;
  out.m_message = "earlier";
  EXPECT_EQ(KFitDistance(in, out), 1);
  EXPECT_EQ(out.m_size2.y, 5.0);
  EXPECT_EQ(out.m_valid, 0);  // not set by a distance
  EXPECT_EQ(out.m_message, "earlier");
  EXPECT_EQ(in.m_fitType, FIT_SPHERE);  // no type stamped
}

TEST(EntryPoints, CircleFromTwoPointsIsAboutTheReferencePoint) {
  CFitInput in = WithPoints({P(1, 0, 0), P(0, 2, 0)});
  CFitResult out;
  out.m_axis = P(1, 0, 0);
  out.m_valid = 0;
  out.m_message = "earlier";
  EXPECT_EQ(KFitCircle(in, out), 1);
  EXPECT_EQ(out.m_center, P(0, 0, 0));
  EXPECT_EQ(out.m_size1.x, 2.0);
  EXPECT_EQ(out.m_axis, P(0, 0, 1));
  EXPECT_EQ(out.m_valid, 0);
  EXPECT_EQ(out.m_message, "earlier");
  EXPECT_EQ(in.m_fitType, FIT_CIRCLE);
}

TEST(EntryPoints, CircleFromOnePointUsesReferenceDirectionWhenAsked) {
  CFitInput in = WithPoints({P(3, 4, 12)});
  in.m_refPoint = P(3, 4, 0);
  in.m_useReference = true;
  in.m_refDirection = P(0, 1, 0);
  CFitResult out;
  EXPECT_EQ(KFitCircle(in, out), 1);
  EXPECT_EQ(out.m_center, P(3, 4, 0));
  EXPECT_EQ(out.m_size1.x, 12.0);
  EXPECT_EQ(out.m_axis, P(0, 1, 0));
}

TEST(EntryPoints, CircleWithNoPointsFailsAndKeepsAxis) {
  CFitInput in;
  in.m_refPoint = P(5, 6, 7);
  CFitResult out;
  out.m_axis = P(1, 0, 0);
  out.m_size1.x = 9.0;
  EXPECT_EQ(KFitCircle(in, out), 0);
  EXPECT_EQ(out.m_center, P(5, 6, 7));
  EXPECT_EQ(out.m_size1.x, 0.0);
  EXPECT_EQ(out.m_axis, P(1, 0, 0));

  in.m_useReference = true;
  in.m_refDirection = P(0, -1, 0);
  EXPECT_EQ(KFitCircle(in, out), 0);
  EXPECT_EQ(out.m_axis, P(0, -1, 0));
}

TEST(EntryPoints, LineThroughIdenticalPointsHasZeroAxis) {
  CFitInput in = WithPoints({P(1, 2, 3), P(1, 2, 3)});
  CFitResult out;
  EXPECT_EQ(KFitLine(in, out), 1);
  EXPECT_EQ(out.m_axis, P(0, 0, 0));
  EXPECT_EQ(out.m_center, P(1, 2, 3));
  EXPECT_EQ(out.m_valid, 1);
}

TEST(EntryPoints, LineThroughTwoPointsIsMidpointAndUnitDirection) {
  CFitInput in = WithPoints({P(1, 1, 1), P(1, 4, 5)});
  CFitResult out;
  out.m_message = "earlier";
  out.m_angles = P(0.1, 0.2, 0.3);
  out.m_size1 = P(8, 8, 8);
  out.m_sigma = out.m_rms = out.m_formError = 3.0;
  out.m_minDeviation = out.m_maxDeviation = 2.0;
  out.m_extraValue = 1.0;
  EXPECT_EQ(KFitLine(in, out), 1);
  EXPECT_EQ(in.m_fitType, FIT_LINE);
  EXPECT_EQ(out.m_center, P(1, 2.5, 3));
  EXPECT_TRUE(Close(out.m_axis, P(0, 0.6, 0.8), 1e-15));
  EXPECT_EQ(out.m_sigma, 0.0);
  EXPECT_EQ(out.m_rms, 0.0);
  EXPECT_EQ(out.m_formError, 0.0);
  EXPECT_EQ(out.m_minDeviation, 0.0);
  EXPECT_EQ(out.m_maxDeviation, 0.0);
  EXPECT_EQ(out.m_extraValue, 0.0);
  EXPECT_EQ(out.m_message, "earlier");
  EXPECT_EQ(out.m_angles, P(0.1, 0.2, 0.3));
  EXPECT_EQ(out.m_size1, P(8, 8, 8));
}

TEST(EntryPoints, LineTwiceOnOneResultLeavesFourZeroDeviations) {
  CFitInput in = WithPoints({P(0, 0, 0), P(1, 0, 0)});
  CFitResult out;
  KFitLine(in, out);
  KFitLine(in, out);
  ASSERT_EQ(out.m_deviations.size(), 4u);
  for (const P& d : out.m_deviations) EXPECT_EQ(d, P(0, 0, 0));
}

TEST(EntryPoints, AngleReturnsZeroAndTouchesNothing) {
  CFitInput in = WithPoints({P(1, 0, 0), P(0, 1, 0)});
  in.m_fitType = FIT_TORUS;
  CFitResult out;
  out.m_valid = 1;
  out.m_message = "earlier";
  EXPECT_EQ(KFitAngle(in, out), 0);
  EXPECT_EQ(in.m_fitType, FIT_TORUS);
  EXPECT_EQ(out.m_valid, 1);
  EXPECT_EQ(out.m_message, "earlier");
  CFitInput empty;
  CFitResult fresh;
  EXPECT_EQ(KFitAngle(empty, fresh), 0);
}

CFitInput PlanarGrid() {
  CFitInput in;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) in.m_points.push_back(P(i, j, 0.01 * ((i + j) % 2)));
  return in;
}

TEST(EntryPoints, PlaneKeepsEarlierMessageAndSphereClearsIt) {
  CFitInput in = PlanarGrid();
  CFitResult out;
  out.m_message = "earlier";
  const std::int32_t r = KFitPlane(in, out);
  EXPECT_EQ(r, out.m_valid);
  EXPECT_EQ(in.m_fitType, FIT_PLANE);
  EXPECT_EQ(out.m_message, "earlier");

  KFitSphere(in, out);
  EXPECT_EQ(in.m_fitType, FIT_SPHERE);
  EXPECT_TRUE(out.m_message.empty());
}

TEST(EntryPoints, EllipseAndParaboloidClearTheMessage) {
  CFitInput in = PlanarGrid();
  CFitResult out;
  out.m_message = "earlier";
  EXPECT_EQ(KFitEllipse(in, out), out.m_valid);
  EXPECT_EQ(in.m_fitType, FIT_ELLIPSE);
  EXPECT_TRUE(out.m_message.empty());
  out.m_message = "earlier";
  EXPECT_EQ(KFitParaboloid(in, out), out.m_valid);
  EXPECT_EQ(in.m_fitType, FIT_PARABOLOID);
  EXPECT_TRUE(out.m_message.empty());
}

// The radius slot holds the radial extent about the reported axis, whether or not the fit
// converged; the given radius (9) would show if it were not overwritten.
TEST(EntryPoints, ParaboloidReportsRadialExtentAboutReportedAxis) {
  CFitInput in;
  for (int i = 0; i < 12; ++i) {
    const double t = 0.5 * i, phi = 0.7 * i;
    in.m_points.push_back(P(t * std::cos(phi), t * std::sin(phi), 0.25 * t * t));
  }
  in.m_size1Param.value = P(9, 0, 0);
  CFitResult out;
  KFitParaboloid(in, out);
  const double expect = metrofit::RadialExtent(in.m_points, out.m_center, out.m_axis);
  EXPECT_EQ(out.m_size1.x, expect);
  EXPECT_NE(out.m_size1.x, 9.0);
}

// A paraboloid fit that fails (points of a flat circle) still has its radius slot replaced by
// the radial extent about the axis it reports.
TEST(EntryPoints, ParaboloidReportsRadialExtentAfterAFailedFitToo) {
  CFitInput in;
  for (int i = 0; i < 12; ++i) {
    const double phi = 0.5 * i;
    in.m_points.push_back(P(10 * std::cos(phi), 10 * std::sin(phi), 0));
  }
  in.m_size1Param.value = P(9, 0, 0);
  CFitResult out;
  EXPECT_EQ(KFitParaboloid(in, out), 0);
  EXPECT_EQ(out.m_valid, 0);
  EXPECT_EQ(out.m_size1.x, metrofit::RadialExtent(in.m_points, out.m_center, out.m_axis));
  EXPECT_GT(out.m_size1.x, 0.0);
}

// With no points the engine has nothing to reject: the least-squares fits report success. The
// spread measures start at -1e38 and 1e38 and come out as -2e38 for the plane and the sphere;
// the root mean square is 0 / 0.
TEST(EntryPoints, EmptyPointListIsAValidFitWithSentinelFormErrorAndNaNRms) {
  const struct {
    const char* name;
    std::int32_t (*fit)(CFitInput&, CFitResult&);
    double formError;
  } fits[] = {{"plane", &KFitPlane, -2e38},
              {"sphere", &KFitSphere, -2e38},
              {"line", &KFitLine, 0.0},
              {"ellipse", &KFitEllipse, 0.0},
              {"paraboloid", &KFitParaboloid, 0.0},
              {"torus", &KFitTorus, 0.0}};
  for (const auto& f : fits) {
    SCOPED_TRACE(f.name);
    CFitInput in;
    CFitResult out;
    EXPECT_EQ(f.fit(in, out), 1);
    EXPECT_EQ(out.m_valid, 1);
    EXPECT_EQ(out.m_formError, f.formError);
    EXPECT_TRUE(std::isnan(out.m_rms));
    EXPECT_TRUE(out.m_deviations.empty());
  }
  // The circle, cylinder and cone refuse an empty list.
  for (auto fit : {&KFitCircle, &KFitCylinder, &KFitCone}) {
    CFitInput in;
    CFitResult out;
    EXPECT_EQ(fit(in, out), 0);
    EXPECT_EQ(out.m_valid, 0);
  }
}

TEST(EntryPoints, ParaboloidWithoutPointsHasZeroExtent) {
  CFitInput in;
  CFitResult out;
  out.m_size1.x = 3.0;
  KFitParaboloid(in, out);
  EXPECT_EQ(out.m_size1.x, 0.0);
}

TEST(EntryPoints, PointReportsReferencePointAndGivenFigures) {
  CFitInput in;
  in.m_fitType = FIT_CONE;
  in.m_refPoint = P(1, 2, 3);
  in.m_givenMinMax = P(-0.1, 0.2, 0.3);
  in.m_givenStats = P(0.4, 0.5, 0.6);
  CFitResult out;
  out.m_valid = 0;
  out.m_message = "earlier";
  out.m_size1 = P(7, 7, 7);
  EXPECT_EQ(KFitPoint(in, out), 1);
  EXPECT_EQ(out.m_center, P(1, 2, 3));
  EXPECT_EQ(out.m_minDeviation, -0.1);
  EXPECT_EQ(out.m_maxDeviation, 0.2);
  EXPECT_EQ(out.m_extraValue, 0.3);
  EXPECT_EQ(out.m_sigma, 0.4);
  EXPECT_EQ(out.m_rms, 0.5);
  EXPECT_EQ(out.m_formError, 0.6);
  EXPECT_TRUE(out.m_message.empty());
  EXPECT_EQ(out.m_valid, 0);
  EXPECT_EQ(out.m_size1, P(7, 7, 7));
  EXPECT_EQ(in.m_fitType, FIT_CONE);
}

// The start axes of the cylinder and cone fits come from line and plane fits without their
// deviation lists and form errors. Everything else they leave, in the result and in the input,
// must be the full fit's, bit for bit, the extremes of the deviations included.
TEST(EntryPoints, AxisFitsWithoutListOrFormErrorLeaveAllElseAsTheFullFit) {
  std::mt19937_64 rng(31);
  std::normal_distribution<double> noise(0.0, 0.003);
  const auto same = [](double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; };
  const auto samePoint = [&](const P& a, const P& b) {
    return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z);
  };
  using Fit = std::int32_t (*)(CFitInput&, CFitResult&) noexcept;
  const struct {
    Fit full, lean;
  } fits[2] = {{&metrofit::FitLineInternal, &metrofit::FitLineAxisInternal},
               {&metrofit::FitPlaneInternal, &metrofit::FitPlaneAxisInternal}};
  for (int trial = 0; trial < 5; ++trial) {
    std::vector<P> pts;
    const P c(300.0 + 50 * trial, -420.0, 150.0 * trial);
    const P a = P(0.3, -0.5 + 0.2 * trial, 0.8) * (1.0 / P(0.3, -0.5 + 0.2 * trial, 0.8).Length());
    const P b = a.Cross(P(0.0, 0.0, 1.0)) * (1.0 / a.Cross(P(0.0, 0.0, 1.0)).Length());
    for (int i = 0; i < 200 + 300 * trial; ++i) {
      const double t = -40.0 + 80.0 * (i % 97) / 97.0;
      const double spread = 5.0 * (i % 7);  // across the line: a plane's second direction
      pts.push_back(c + a * t + P(noise(rng), noise(rng), noise(rng)));
      pts.push_back(c + a * t + b * spread + P(noise(rng), noise(rng), noise(rng)));
    }
    for (int f = 0; f < 2; ++f) {
      SCOPED_TRACE(::testing::Message() << "trial " << trial << (f == 0 ? ", line" : ", plane"));
      CFitInput full, lean;
      if (f == 0) {
        for (std::size_t i = 0; i < pts.size(); i += 2) full.m_points.push_back(pts[i]);
      } else {
        full.m_points = pts;
      }
      lean.m_points = full.m_points;
      full.m_refPoint = lean.m_refPoint = c;
      CFitResult fullOut, leanOut;
      fullOut.m_formError = leanOut.m_formError = -3.0;
      ASSERT_EQ(fits[f].full(full, fullOut), 1);
      ASSERT_EQ(fits[f].lean(lean, leanOut), 1);
      EXPECT_GT(fullOut.m_formError, 0.0);
      EXPECT_EQ(leanOut.m_formError, fullOut.m_rms);  // the engine's provisional value stays
      EXPECT_TRUE(samePoint(leanOut.m_axis, fullOut.m_axis));
      EXPECT_TRUE(samePoint(leanOut.m_center, fullOut.m_center));
      EXPECT_TRUE(samePoint(leanOut.m_angles, fullOut.m_angles));
      EXPECT_TRUE(same(leanOut.m_sigma, fullOut.m_sigma));
      EXPECT_TRUE(same(leanOut.m_objective, fullOut.m_objective));
      EXPECT_TRUE(same(leanOut.m_minDeviation, fullOut.m_minDeviation));
      EXPECT_TRUE(same(leanOut.m_maxDeviation, fullOut.m_maxDeviation));
      EXPECT_GT(fullOut.m_maxDeviation, 0.0);
      EXPECT_EQ(leanOut.m_iterations, fullOut.m_iterations);
      EXPECT_EQ(fullOut.m_deviations.size(), full.m_points.size());
      EXPECT_TRUE(leanOut.m_deviations.empty());
      EXPECT_EQ(lean.m_fitType, full.m_fitType);
      EXPECT_EQ(lean.m_angleParam.value, full.m_angleParam.value);
    }
  }
}

}  // namespace
