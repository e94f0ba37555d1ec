#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "estimate/estimate_common.h"
#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::AxisFromAngles;
using metrofit_test::EstimatorMatrices;
using metrofit_test::kPi;
using metrofit_test::Parallel;
using metrofit_test::ParamPoint;
using metrofit_test::PointNear;
using metrofit_test::RelNear;
using P = KPt3<double>;

constexpr int kTorusParams = 7;

// Three points on each of two meridian circles (azimuths phi1 and phi2) of a torus with
// major radius bigR and tube radius r, in the frame f about `centre`. The tube angles run the
// same way on both circles, so their normals are the same normal turned about the axis.
std::vector<P> TwoMeridians(const metrofit_test::Frame& f, const P& centre, double bigR, double r,
                            double phi1, double phi2) {
  std::vector<P> pts;
  for (double phi : {phi1, phi2}) {
    for (double theta : {0.3, 2.2, 4.1}) {
      const double rho = bigR + r * std::cos(theta);
      pts.push_back(centre +
                    f.Local(rho * std::cos(phi), rho * std::sin(phi), r * std::sin(theta)));
    }
  }
  return pts;
}

TEST(EstimateTorus, NominalRadiiAreTheStart) {
  CFitInput in;
  in.m_centerParam.value = P(1, 2, 3);
  in.m_axisParam.value = P(0, 0, 1);
  in.m_size1Param.value = P(0, 50, 5);
  CFitResult r;
  EstimatorMatrices m(kTorusParams);
  in.EstimateTorus(r, m.constraints(), m.params());
  EXPECT_EQ(ParamPoint(m, 0), P(1, 2, 3));
  EXPECT_EQ(m.param(3), 0.0);
  EXPECT_EQ(m.param(4), 0.0);
  EXPECT_EQ(m.param(5), 50.0);
  EXPECT_EQ(m.param(6), 5.0);
  EXPECT_EQ(r.m_angles.x, 0.0);
  EXPECT_EQ(r.m_angles.y, 0.0);
}

TEST(EstimateTorus, NominalAxisIsUsedAsGiven) {
  // (0.5, 0, 0) is not normalised first: a2 = asin(0.5), not pi / 2.
  CFitInput in;
  in.m_axisParam.value = P(0.5, 0, 0);
  CFitResult r;
  EstimatorMatrices m(kTorusParams);
  in.EstimateTorus(r, m.constraints(), m.params());
  EXPECT_NEAR(m.param(4), kPi / 6, 1e-15);
}

TEST(EstimateTorus2, TwoMeridianCirclesGiveBothRadiiAndTheCentreOnTheAxis) {
  const metrofit_test::Frame f{P(1, 0, 0), P(0, 1, 0), P(0, 0, 1)};
  CFitInput in;
  in.m_points = TwoMeridians(f, P(0, 0, 0), 50.0, 5.0, 0.0, 70.0 * kPi / 180.0);
  CFitResult r;
  EstimatorMatrices m(kTorusParams);
  in.EstimateTorus2(r, m.constraints(), m.params());
  EXPECT_TRUE(RelNear(m.param(5), 50.0, 1e-12));
  EXPECT_TRUE(RelNear(m.param(6), 5.0, 1e-12));
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(0, 0, 0), 1e-11));
  EXPECT_TRUE(Parallel(AxisFromAngles(m.param(3), m.param(4)), P(0, 0, 1), 1e-12));
}

TEST(EstimateTorus2, ProbeRadiusOneMakesBothRadiiOneSmaller) {
  const metrofit_test::Frame f{P(1, 0, 0), P(0, 1, 0), P(0, 0, 1)};
  CFitInput in;
  in.m_points = TwoMeridians(f, P(0, 0, 0), 50.0, 5.0, 0.0, 70.0 * kPi / 180.0);
  in.m_probeRadius = 1.0;
  CFitResult r;
  EstimatorMatrices m(kTorusParams);
  in.EstimateTorus2(r, m.constraints(), m.params());
  EXPECT_TRUE(RelNear(m.param(5), 49.0, 1e-12));
  EXPECT_TRUE(RelNear(m.param(6), 4.0, 1e-12));
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(0, 0, 0), 1e-11));
}

TEST(EstimateTorus2, TiltedOffsetToriGiveTheirCentreAndRadii) {
  std::mt19937 rng(41);
  std::uniform_real_distribution<double> offset(-300.0, 300.0);
  std::uniform_real_distribution<double> angle(0.0, 2.0 * kPi);
  std::uniform_real_distribution<double> spread(0.5, 2.5);
  for (int trial = 0; trial < 50; ++trial) {
    const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
    const P centre(offset(rng), offset(rng), offset(rng));
    const double phi1 = angle(rng);
    const double delta = spread(rng);
    CFitInput in;
    in.m_points = TwoMeridians(f, centre, 40.0, 6.0, phi1, phi1 + delta);
    CFitResult r;
    EstimatorMatrices m(kTorusParams);
    in.EstimateTorus2(r, m.constraints(), m.params());
    EXPECT_TRUE(PointNear(ParamPoint(m, 0), centre, 1e-9 * 300.0)) << "trial " << trial;
    EXPECT_TRUE(RelNear(m.param(5), 40.0, 1e-10)) << "trial " << trial;
    EXPECT_TRUE(RelNear(m.param(6), 6.0, 1e-10)) << "trial " << trial;
    // The angles come from N1 x N2 as it stands, of length sin(delta): its x component is
    // sin a2 itself, not the x component of the unit axis.
    EXPECT_NEAR(std::fabs(std::sin(m.param(4))), std::sin(delta) * std::fabs(f.w.x), 1e-10)
        << "trial " << trial;
  }
}

TEST(EstimateTorus2, FewerThanSixPointsWriteNothing) {
  const metrofit_test::Frame f{P(1, 0, 0), P(0, 1, 0), P(0, 0, 1)};
  CFitInput in;
  in.m_points = TwoMeridians(f, P(0, 0, 0), 50.0, 5.0, 0.0, 1.0);
  in.m_points.resize(5);
  CFitResult r;
  EstimatorMatrices m(kTorusParams);
  in.EstimateTorus2(r, m.constraints(), m.params());
  for (int k = 0; k < kTorusParams; ++k) EXPECT_FALSE(m.written(k));
}

TEST(EstimateTorusBasedOnCircleFit, LeavesParametersAndResultUnchanged) {
  CFitInput in;
  in.m_points = {P(1, 0, 0), P(0, 1, 0), P(-1, 0, 0), P(0, -1, 0), P(0, 0, 1), P(1, 1, 1)};
  in.m_size1Param.value = P(0, 50, 5);
  CFitResult r;
  r.m_center = P(1, 2, 3);
  r.m_angles = P(0.1, 0.2, 0.3);
  r.m_size1 = P(4, 5, 6);
  EstimatorMatrices m(kTorusParams);
  in.EstimateTorusBasedOnCircleFit(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_center, P(1, 2, 3));
  EXPECT_EQ(r.m_angles, P(0.1, 0.2, 0.3));
  EXPECT_EQ(r.m_size1, P(4, 5, 6));
  EXPECT_EQ(r.m_size2, P());
  EXPECT_EQ(r.m_axis, P());
  for (int k = 0; k < kTorusParams; ++k) {
    EXPECT_FALSE(m.written(k));
    EXPECT_EQ(m.diag(k), 0.0);
  }
}

}  // namespace
