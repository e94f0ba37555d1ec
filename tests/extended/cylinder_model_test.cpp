// Cylinder model of the extended cylinder fit: residual, Jacobian row, normal form, the two-run
// minimiser and the form value.
#include "extended/cylinder_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "ex_fit_test_util.h"
#include "numeric/centred_copy.h"
#include "numeric/levenberg_marquardt.h"
#include "numeric/nvector.h"

namespace metrofit {
namespace {

using numeric::CreatePointSet;
using numeric::CreateVector;
using numeric::kCylinderParams;
using numeric::UniquePointSet;
using numeric::UniqueVector;
using testing::Pt;
using testing::Rng;

UniquePointSet ToSet(const std::vector<Pt>& pts) {
  UniquePointSet s(CreatePointSet(static_cast<std::int32_t>(pts.size())));
  for (std::size_t i = 0; i < pts.size(); ++i) {
    s->xyz[3 * i] = pts[i].x;
    s->xyz[3 * i + 1] = pts[i].y;
    s->xyz[3 * i + 2] = pts[i].z;
  }
  return s;
}

UniqueVector Params(const Pt& c, const Pt& a, double r) {
  UniqueVector x(CreateVector(kCylinderParams));
  (*x)[0] = c.x;
  (*x)[1] = c.y;
  (*x)[2] = c.z;
  (*x)[3] = a.x;
  (*x)[4] = a.y;
  (*x)[5] = a.z;
  (*x)[6] = r;
  return x;
}

bool BitEqual(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(CylinderModel, ResidualIsTheDistanceFromTheAxisMinusTheRadius) {
  const UniquePointSet s = ToSet({Pt(4, 6, 7)});
  // Axis through (1, 2, 0) along z, given with length 3: the distance is |(3, 4)| = 5.
  const UniqueVector x = Params(Pt(1, 2, 0), Pt(0, 0, 3), 4.5);
  EXPECT_DOUBLE_EQ(numeric::CylinderResidual(*s, 0, *x), 0.5);
  const UniqueVector flipped = Params(Pt(1, 2, -40), Pt(0, 0, -0.25), 4.5);
  EXPECT_DOUBLE_EQ(numeric::CylinderResidual(*s, 0, *flipped), 0.5);
}

TEST(CylinderModel, ResidualRowIsTheDerivativeTangentToTheUnitAxis) {
  const UniquePointSet s = ToSet({Pt(2.0, -1.0, 3.5)});
  const Pt a = testing::Unit(Pt(0.3, -0.4, 0.8));
  UniqueVector x = Params(Pt(0.2, 0.1, -0.3), a, 1.7);
  UniqueVector row(CreateVector(kCylinderParams));
  double res = 0.0;
  numeric::CylinderResidualRow(*s, 0, *x, *row, res);
  EXPECT_NEAR(res, numeric::CylinderResidual(*s, 0, *x), 1e-14);
  // The residual divides by |a|, so its derivative by a at |a| = 1 is the tangential one.
  const double step = 1e-6;
  for (int j = 0; j < kCylinderParams; ++j) {
    const double keep = (*x)[j];
    (*x)[j] = keep + step;
    const double up = numeric::CylinderResidual(*s, 0, *x);
    (*x)[j] = keep - step;
    const double down = numeric::CylinderResidual(*s, 0, *x);
    (*x)[j] = keep;
    EXPECT_NEAR((*row)[j], (up - down) / (2 * step), 1e-8) << j;
  }
}

TEST(CylinderModel, ResidualRowOnTheAxisDependsOnTheRadiusOnly) {
  const UniquePointSet s = ToSet({Pt(1, 1, 9)});
  const UniqueVector x = Params(Pt(1, 1, 0), Pt(0, 0, 1), 2.0);
  UniqueVector row(CreateVector(kCylinderParams));
  double res = 1.0;
  numeric::CylinderResidualRow(*s, 0, *x, *row, res);
  for (int j = 0; j < 6; ++j) EXPECT_EQ((*row)[j], 0.0) << j;
  EXPECT_EQ((*row)[6], -1.0);
  EXPECT_EQ(res, -2.0);
}

TEST(CylinderModel, NormalFormHasAUnitAxisTheFootPointAndAPositiveRadius) {
  UniqueVector x = Params(Pt(5, 5, 5), Pt(0, 0, -2), -3.0);
  numeric::NormaliseCylinderParameters(*x);
  EXPECT_EQ((*x)[0], 5.0);
  EXPECT_EQ((*x)[1], 5.0);
  EXPECT_EQ((*x)[2], 0.0);
  EXPECT_EQ((*x)[3], 0.0);
  EXPECT_EQ((*x)[4], 0.0);
  EXPECT_EQ((*x)[5], -1.0);  // the sign of the axis is kept
  EXPECT_EQ((*x)[6], 3.0);

  UniqueVector y = Params(Pt(100, -200, 300), Pt(1, 2, 2), 1.0);
  numeric::NormaliseCylinderParameters(*y);
  const Pt c((*y)[0], (*y)[1], (*y)[2]);
  const Pt a((*y)[3], (*y)[4], (*y)[5]);
  EXPECT_NEAR(a.Length(), 1.0, 1e-15);
  EXPECT_NEAR(c.Dot(a), 0.0, 1e-12);
  EXPECT_NEAR(testing::LineDistance(Pt(100, -200, 300), c, a), 0.0, 1e-12);
}

TEST(CylinderModel, GradientCallbackNormalisesTheParametersFirst) {
  Rng rng(2);
  const std::vector<Pt> pts =
      testing::CylinderPoints(rng, 20, Pt(1, 2, 3), Pt(0, 0, 1), 4.0, 10.0, 6.0, 0.0);
  UniquePointSet s = ToSet(pts);
  UniqueVector x = Params(Pt(1, 2, 3), Pt(0, 0, -7), -4.0);
  UniqueVector g(CreateVector(kCylinderParams));
  numeric::UniqueMatrix a(
      numeric::CreateMatrix(kCylinderParams, kCylinderParams, numeric::kPackedSymmetric));
  numeric::CylinderGradient(s.get(), *x, *g, *a);
  EXPECT_EQ((*x)[5], -1.0);
  EXPECT_EQ((*x)[2], 0.0);
  EXPECT_EQ((*x)[6], 4.0);
  // At the true cylinder the gradient vanishes.
  for (int j = 0; j < kCylinderParams; ++j) EXPECT_NEAR((*g)[j], 0.0, 1e-12) << j;
}

TEST(CylinderModel, SecondRunThatStopsAtItsLimitKeepsTheFirstSolution) {
  Rng rng(3);
  const std::vector<Pt> pts = testing::CylinderPoints(
      rng, 50, Pt(0.5, -0.2, 0.1), testing::Unit(Pt(0.1, 0.2, 1)), 12.0, 30.0, 5.0, 2e-3);
  const Pt start = testing::Unit(Pt(0.3, 0.1, 1));
  constexpr std::int32_t kTinyLimit = 2;  // one trial per run: neither run can converge

  // What the rule prescribes: the first run's solution, normalised.
  UniquePointSet s1 = ToSet(pts);
  UniqueVector first = Params(Pt(0, 0, 0), start, 0.0);
  numeric::NormaliseCylinderParameters(*first);
  ASSERT_EQ(numeric::MinimiseLM(s1.get(), numeric::CylinderObjective, numeric::CylinderGradient,
                                kTinyLimit, 1e-9, nullptr, first.get(), nullptr),
            numeric::NumericStatus::kIterationLimit);
  UniqueVector second = Params(Pt(0, 0, 0), Pt(0, 0, 1), 0.0);
  numeric::CopyVector(first.get(), second.get());
  ASSERT_EQ(numeric::MinimiseLM(s1.get(), numeric::CylinderObjective, numeric::CylinderGradient,
                                kTinyLimit, 1e-9, nullptr, second.get(), nullptr),
            numeric::NumericStatus::kIterationLimit);
  numeric::NormaliseCylinderParameters(*first);

  UniquePointSet s2 = ToSet(pts);
  UniqueVector x = Params(Pt(0, 0, 0), start, 0.0);
  EXPECT_EQ(numeric::MinimiseCylinder(s2.get(), x.get(), kTinyLimit, 1e-9),
            numeric::NumericStatus::kOk);
  for (int j = 0; j < kCylinderParams; ++j) EXPECT_TRUE(BitEqual((*x)[j], (*first)[j])) << j;
}

TEST(CylinderModel, MinimiserConvergesOnExactDataFromATiltedStart) {
  Rng rng(4);
  const Pt a = testing::Unit(Pt(-0.2, 0.5, 0.8));
  const std::vector<Pt> pts =
      testing::CylinderPoints(rng, 80, Pt(0.3, 0.1, -0.2), a, 20.0, 40.0, 4.0, 0.0);
  UniquePointSet s = ToSet(pts);
  UniqueVector x = Params(Pt(0, 0, 0), testing::Unit(a + Pt(0.1, -0.05, 0.0)), 0.0);
  EXPECT_EQ(numeric::MinimiseCylinder(s.get(), x.get(), 300, 1e-9), numeric::NumericStatus::kOk);
  const Pt axis((*x)[3], (*x)[4], (*x)[5]);
  EXPECT_LT(testing::LineAngle(axis, a), 1e-11);
  EXPECT_NEAR((*x)[6], 20.0, 1e-10);
  EXPECT_LT(testing::LineDistance(Pt(0.3, 0.1, -0.2), Pt((*x)[0], (*x)[1], (*x)[2]), axis), 1e-10);
}

TEST(CylinderModel, DeviationsAllOfOneSignAreMeasuredFromZero) {
  const UniqueVector x = Params(Pt(0, 0, 0), Pt(0, 0, 1), 1.0);
  std::vector<double> dev(3);
  const UniquePointSet outside = ToSet({Pt(2, 0, 5), Pt(0, 3, -1), Pt(-2.5, 0, 0)});
  EXPECT_EQ(numeric::CylinderDeviations(*outside, *x, dev.data()), 2.0);  // max 2 - 0
  EXPECT_EQ(dev[0], 1.0);
  EXPECT_EQ(dev[1], 2.0);
  EXPECT_EQ(dev[2], 1.5);
  const UniquePointSet inside = ToSet({Pt(0.5, 0, 5), Pt(0, -0.25, 1)});
  EXPECT_EQ(numeric::CylinderDeviations(*inside, *x, dev.data()), 0.75);  // 0 - min
}

}  // namespace
}  // namespace metrofit
