#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

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

constexpr int kParaboloidParams = 6;
constexpr double kFocal = 10.0;
constexpr double kOuterRadius = 3.0;

// Rings of radius 3, 2 and 1 (six points each) of z = rho^2 / (4 f) in local coordinates;
// the outer ring comes first and the vertex is inserted at `vertexSlot`.
std::vector<P> ParaboloidRings(const metrofit_test::Frame& f, const P& vertex, int vertexSlot,
                               double ySign = 1.0) {
  std::vector<P> pts;
  for (double rho : {kOuterRadius, 2.0, 1.0}) {
    for (int k = 0; k < 6; ++k) {
      const double t = k * kPi / 3.0 + 0.2;
      const double z = rho * rho / (4.0 * kFocal);
      pts.push_back(vertex + f.Local(rho * std::cos(t), ySign * rho * std::sin(t), z));
    }
  }
  pts.insert(pts.begin() + vertexSlot, vertex);
  return pts;
}

// Half the radius of the sphere through the vertex and the outer ring, which is the sphere
// through the four points the estimator selects: (rho^2 + z^2) / (4 z).
double HalfSphereRadius() {
  const double z = kOuterRadius * kOuterRadius / (4.0 * kFocal);
  return (kOuterRadius * kOuterRadius + z * z) / (4.0 * z);
}

TEST(Parab2Est, VertexNearestTheCentroidIsTheStartExactly) {
  std::mt19937 rng(37);
  std::uniform_real_distribution<double> offset(-100.0, 100.0);
  for (int trial = 0; trial < 20; ++trial) {
    const metrofit_test::Frame f = metrofit_test::RandomFrame(rng);
    const P vertex(offset(rng), offset(rng), offset(rng));
    CFitInput in;
    in.m_points = ParaboloidRings(f, vertex, 5);
    CFitResult r;
    EstimatorMatrices m(kParaboloidParams);
    in.Parab2Est(r, m.constraints(), m.params());
    EXPECT_EQ(ParamPoint(m, 0), vertex) << "trial " << trial;
    EXPECT_TRUE(Parallel(AxisFromAngles(m.param(3), m.param(4)), f.w, 1e-10)) << trial;
    // The first point is on the outer ring, so on the selected sphere.
    EXPECT_TRUE(RelNear(m.param(5), HalfSphereRadius(), 1e-9)) << "trial " << trial;
  }
}

TEST(Parab2Est, NormalAwayFromTheCircleCentreIsStoredNegativeAndReversed) {
  // Mirroring y reverses the orientation of the three selected points and so the circle
  // normal; the direction from the vertex to the circle centre stays +z. One of the two sets
  // therefore gets d = -1, stored as it is, and both start with the axis +z.
  const metrofit_test::Frame f{P(1, 0, 0), P(0, 1, 0), P(0, 0, 1)};
  double stored[2] = {0.0, 0.0};
  for (int side = 0; side < 2; ++side) {
    CFitInput in;
    in.m_points = ParaboloidRings(f, P(0, 0, 0), 0, side == 0 ? 1.0 : -1.0);
    CFitResult r;
    EstimatorMatrices m(kParaboloidParams);
    in.Parab2Est(r, m.constraints(), m.params());
    stored[side] = r.m_size2.y;
    EXPECT_TRUE(PointNear(AxisFromAngles(m.param(3), m.param(4)), P(0, 0, 1), 1e-12)) << side;
    EXPECT_EQ(r.m_angles.x, m.param(3));
    EXPECT_EQ(r.m_angles.y, m.param(4));
    EXPECT_TRUE(RelNear(m.param(5), HalfSphereRadius(), 1e-12)) << side;
  }
  EXPECT_NEAR(std::fmin(stored[0], stored[1]), -1.0, 1e-12);
  EXPECT_NEAR(std::fmax(stored[0], stored[1]), 1.0, 1e-12);
}

TEST(Parab2Est, NoPointsWriteNothing) {
  CFitInput in;
  CFitResult r;
  r.m_size2 = P(1, 2, 3);
  EstimatorMatrices m(kParaboloidParams);
  in.Parab2Est(r, m.constraints(), m.params());
  EXPECT_EQ(r.m_size2, P(1, 2, 3));
  for (int k = 0; k < kParaboloidParams; ++k) EXPECT_FALSE(m.written(k));
}

// Points of a spherical cap of radius 20 about +z, centre (1, 2, 3).
std::vector<P> SphereCap() {
  std::vector<P> pts;
  const P centre(1, 2, 3);
  for (double polar : {0.0, 0.2, 0.4}) {
    const int count = polar == 0.0 ? 1 : 8;
    for (int k = 0; k < count; ++k) {
      const double t = k * kPi / 4.0;
      pts.push_back(
          centre +
          P(std::sin(polar) * std::cos(t), std::sin(polar) * std::sin(t), std::cos(polar)) * 20.0);
    }
  }
  return pts;
}

// The vertex is computed as c + (direction) 2.5 f with f = r / 2.5, not as c + (direction) r:
// the two round differently, and the start keeps the first. Replayed here from the same two
// engine fits the estimator runs (sphere, then plane, on one result record).
TEST(EstimateParaboloid, VertexKeepsTheRoundingOfTwoAndAHalfTimesTheShapeValue) {
  int differs = 0;
  for (double radius = 10.0; radius < 30.0; radius += 0.7) {
    SCOPED_TRACE(radius);
    CFitInput in;
    for (const P& p : SphereCap())
      in.m_points.push_back(P(1, 2, 3) + (p - P(1, 2, 3)) * 0.05 * radius);
    CFitInput replay;
    replay.m_points = in.m_points;
    CFitResult scratch;
    double** sw = mCreateMatrix(4, 4);
    double** sv = mCreateMatrix(4, 1);
    double** pw = mCreateMatrix(3, 3);
    double** pv = mCreateMatrix(3, 1);
    replay.m_fitType = FIT_SPHERE;
    replay.BestFit(scratch, sw, sv);
    replay.m_fitType = FIT_PLANE;
    replay.BestFit(scratch, pw, pv);
    const double cx = sv[0][0], cy = sv[1][0], cz = sv[2][0], r = sv[3][0];
    const double a1 = pv[0][0], a2 = pv[1][0];
    mFreeMatrix(&sw, 4);
    mFreeMatrix(&sv, 4);
    mFreeMatrix(&pw, 3);
    mFreeMatrix(&pv, 3);

    const double f = r / 2.5;
    const P asWritten(cx + std::sin(a2) * std::cos(a1) * 2.5 * f, cy - std::sin(a1) * 2.5 * f,
                      cz - std::cos(a2) * std::cos(a1) * 2.5 * f);
    const double directZ = cz - std::cos(a2) * std::cos(a1) * r;
    if (asWritten.z != directZ) ++differs;

    CFitResult out;
    EstimatorMatrices m(kParaboloidParams);
    in.EstimateParaboloid(out, m.constraints(), m.params());
    EXPECT_EQ(ParamPoint(m, 0), asWritten);
    EXPECT_EQ(m.param(5), f);
  }
  EXPECT_GT(differs, 0) << "no radius tells the two roundings apart";
}

TEST(EstimateParaboloid, LeavesTheFitTypeAtPlane) {
  CFitInput in;
  in.m_points = SphereCap();
  in.m_fitType = FIT_PARABOLOID;
  CFitResult r;
  EstimatorMatrices m(kParaboloidParams);
  in.EstimateParaboloid(r, m.constraints(), m.params());
  EXPECT_EQ(in.m_fitType, FIT_PLANE);
}

TEST(EstimateParaboloid, VertexIsTheSphereCentreMovedByItsRadiusAlongThePlaneNormal) {
  // Needs the least-squares engine: the sphere fit of the cap gives centre (1, 2, 3) and
  // radius 20, the plane fit the normal +z; the vertex is then 20 below the centre and the
  // shape value 20 / 2.5. The cap is not flat, and the plane fit stops on its relative-change
  // test with the normal about 2e-8 off +z, hence the looser tolerances on the direction.
  CFitInput in;
  in.m_points = SphereCap();
  CFitResult r;
  EstimatorMatrices m(kParaboloidParams);
  in.EstimateParaboloid(r, m.constraints(), m.params());
  EXPECT_TRUE(RelNear(m.param(5), 20.0 / 2.5, 1e-9));
  EXPECT_TRUE(Parallel(AxisFromAngles(m.param(3), m.param(4)), P(0, 0, 1), 1e-6));
  EXPECT_TRUE(PointNear(ParamPoint(m, 0), P(1, 2, 3 - 20), 20.0 * 1e-6));
}

}  // namespace
