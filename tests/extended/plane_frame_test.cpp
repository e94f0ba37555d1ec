// Plane frame of the extended circle fit: dominant axis, guarded normalisation, rotation into
// the plane and back, and the per-thread state.
#include "extended/plane_frame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

#include "ex_fit_test_util.h"
#include "numeric/nvector.h"

namespace metrofit {
namespace {

using numeric::CreatePointSet;
using numeric::DominantAxis;
using numeric::FromPlaneFrame;
using numeric::GuardedNormalise;
using numeric::PlaneFrame;
using numeric::ThreadPlaneFrame;
using numeric::ToPlaneFrame;
using numeric::UniquePointSet;
using numeric::UniqueVector;
using testing::Pt;

UniqueVector PlaneParams(const Pt& n) {
  UniqueVector x(numeric::CreateVector(6));
  (*x)[3] = n.x;
  (*x)[4] = n.y;
  (*x)[5] = n.z;
  return x;
}

UniquePointSet ToSet(const std::vector<Pt>& pts) {
  UniquePointSet s(CreatePointSet(static_cast<std::int32_t>(pts.size())));
  for (std::size_t i = 0; i < pts.size(); ++i) {
    s->xyz[3 * i] = pts[i].x;
    s->xyz[3 * i + 1] = pts[i].y;
    s->xyz[3 * i + 2] = pts[i].z;
  }
  return s;
}

TEST(PlaneFrame, DominantAxisIsTheLargestComponentWithTiesToTheLowerIndex) {
  const double x[3] = {-0.9, 0.3, 0.3};
  const double y[3] = {0.1, -0.8, 0.5};
  const double z[3] = {0.1, 0.2, -0.97};
  const double tieXY[3] = {0.6, -0.6, 0.5};
  const double tieYZ[3] = {0.0, 0.7, -0.7};
  EXPECT_EQ(DominantAxis(x, 2), 0);
  EXPECT_EQ(DominantAxis(y, 0), 1);
  EXPECT_EQ(DominantAxis(z, 0), 2);
  EXPECT_EQ(DominantAxis(tieXY, 2), 0);
  EXPECT_EQ(DominantAxis(tieYZ, 0), 1);
}

TEST(PlaneFrame, DominantAxisOfAZeroNormalKeepsThePreviousOne) {
  const double zero[3] = {0.0, 0.0, 0.0};
  const double onlyZ[3] = {0.0, 0.0, 1e-300};
  EXPECT_EQ(DominantAxis(zero, 0), 0);
  EXPECT_EQ(DominantAxis(zero, 1), 1);
  EXPECT_EQ(DominantAxis(zero, 2), 2);
  EXPECT_EQ(DominantAxis(onlyZ, 1), 2);
}

TEST(PlaneFrame, GuardedNormalisationDividesTinyVectorsByTheirSquaredLength) {
  double m[3];
  const double unitish[3] = {3.0, 4.0, 0.0};
  GuardedNormalise(unitish, m);
  EXPECT_DOUBLE_EQ(m[0], 0.6);
  EXPECT_DOUBLE_EQ(m[1], 0.8);
  EXPECT_EQ(m[2], 0.0);
  // |n|^2 = 1e-10 is not above 1e-8: divided by 1e-10, giving length 1e5.
  const double tiny[3] = {1e-5, 0.0, 0.0};
  GuardedNormalise(tiny, m);
  EXPECT_DOUBLE_EQ(m[0], 1e-5 / 1e-10);
  // |n|^2 = 1e-22 is below 1e-20: divided by 1, unchanged.
  const double tinier[3] = {0.0, 1e-11, 0.0};
  GuardedNormalise(tinier, m);
  EXPECT_EQ(m[1], 1e-11);
}

TEST(PlaneFrame, RotationTakesTheNormalOntoItsDominantAxisAndCentresThePoints) {
  testing::Rng rng(3);
  for (int trial = 0; trial < 20; ++trial) {
    const Pt n = testing::RandomDirection(rng);
    const Pt c = testing::CmmCentre(rng);
    const std::vector<Pt> pts = testing::ArcPoints(rng, 25, c, n, 30.0, 2.0, 0.0);
    UniquePointSet s = ToSet(pts);
    const UniqueVector x = PlaneParams(n);
    ToPlaneFrame(s.get(), *x);
    const PlaneFrame& f = ThreadPlaneFrame();
    const double nv[3] = {n.x, n.y, n.z};
    EXPECT_EQ(f.k, DominantAxis(nv, 0));
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        double rrt = 0.0;
        for (int l = 0; l < 3; ++l) rrt += f.rotation[i][l] * f.rotation[j][l];
        EXPECT_NEAR(rrt, i == j ? 1.0 : 0.0, 1e-15);
        EXPECT_EQ(f.inverse[i][j], f.rotation[j][i]);
      }
      EXPECT_NEAR(f.rotation[f.k][i], nv[i], 1e-15);  // the normal is row k
    }
    // In-plane coordinates: z = 0, centroid 0, pairwise distances kept.
    double su = 0.0;
    double sv = 0.0;
    for (int i = 0; i < 25; ++i) {
      EXPECT_EQ(s->Point(i)[2], 0.0);
      su += s->Point(i)[0];
      sv += s->Point(i)[1];
    }
    EXPECT_NEAR(su / 25, 0.0, 1e-12);
    EXPECT_NEAR(sv / 25, 0.0, 1e-12);
    const double du = s->Point(7)[0] - s->Point(19)[0];
    const double dv = s->Point(7)[1] - s->Point(19)[1];
    EXPECT_NEAR(std::sqrt(du * du + dv * dv), (pts[7] - pts[19]).Length(), 1e-11);
  }
}

TEST(PlaneFrame, FromPlaneFrameMapsInPlanePointsBackIntoTheMeanPlane) {
  testing::Rng rng(4);
  const Pt n = testing::Unit(Pt(-0.2, 0.9, 0.35));
  const Pt c(512.0, -487.0, 233.0);
  const std::vector<Pt> pts = testing::ArcPoints(rng, 30, c, n, 12.0, 1.2, 0.0);
  UniquePointSet s = ToSet(pts);
  const UniqueVector x = PlaneParams(n);
  ToPlaneFrame(s.get(), *x);
  for (int i = 0; i < 30; ++i) {
    double u = s->Point(i)[0];
    double v = s->Point(i)[1];
    double w = 12345.0;  // ignored
    FromPlaneFrame(u, v, w);
    EXPECT_NEAR(u, pts[i].x, 1e-11);
    EXPECT_NEAR(v, pts[i].y, 1e-11);
    EXPECT_NEAR(w, pts[i].z, 1e-11);
  }
  // The in-plane origin is the centroid of the points.
  double u = 0.0;
  double v = 0.0;
  double w = 0.0;
  FromPlaneFrame(u, v, w);
  Pt g;
  for (const Pt& p : pts) g += p;
  g = g * (1.0 / 30.0);
  EXPECT_NEAR((Pt(u, v, w) - g).Length(), 0.0, 1e-11);
}

TEST(PlaneFrame, ZeroNormalLeavesPointsRotationAndOffsetAsTheyWere) {
  testing::Rng rng(5);
  const std::vector<Pt> pts =
      testing::ArcPoints(rng, 10, Pt(400, 100, -50), Pt(0, 1, 0), 8.0, 3.0, 0.0);
  UniquePointSet first = ToSet(pts);
  ToPlaneFrame(first.get(), *PlaneParams(Pt(0, 1, 0)));
  const PlaneFrame before = ThreadPlaneFrame();
  EXPECT_EQ(before.k, 1);

  UniquePointSet s = ToSet(pts);
  ToPlaneFrame(s.get(), *PlaneParams(Pt(0, 0, 0)));
  const PlaneFrame& after = ThreadPlaneFrame();
  EXPECT_EQ(after.k, 1);  // kept from the previous call
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(after.offset[i], before.offset[i]);
    for (int j = 0; j < 3; ++j) EXPECT_EQ(after.rotation[i][j], i == j ? 1.0 : 0.0);
  }
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(s->Point(i)[0], pts[i].x);
    EXPECT_EQ(s->Point(i)[1], pts[i].y);
    EXPECT_EQ(s->Point(i)[2], pts[i].z);
  }
}

TEST(PlaneFrame, EachThreadHasItsOwnFrame) {
  UniquePointSet s = ToSet({Pt(1, 2, 3), Pt(4, 5, 6), Pt(7, 8, 10)});
  ToPlaneFrame(s.get(), *PlaneParams(testing::Unit(Pt(0.1, 0.2, -0.9))));
  const PlaneFrame mine = ThreadPlaneFrame();
  ASSERT_EQ(mine.k, 2);

  PlaneFrame fresh;
  PlaneFrame changed;
  std::thread t([&] {
    fresh = ThreadPlaneFrame();
    UniquePointSet other = ToSet({Pt(0, 0, 0), Pt(1, 1, 1), Pt(2, 0, 5)});
    ToPlaneFrame(other.get(), *PlaneParams(Pt(1, 0, 0)));
    changed = ThreadPlaneFrame();
  });
  t.join();
  EXPECT_EQ(fresh.k, 0);
  EXPECT_EQ(fresh.offset[0], 0.0);
  EXPECT_EQ(fresh.rotation[0][0], 1.0);
  EXPECT_EQ(changed.k, 0);
  const PlaneFrame& now = ThreadPlaneFrame();
  EXPECT_EQ(now.k, mine.k);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(now.offset[i], mine.offset[i]);
    for (int j = 0; j < 3; ++j) EXPECT_EQ(now.rotation[i][j], mine.rotation[i][j]);
  }
}

}  // namespace
}  // namespace metrofit
