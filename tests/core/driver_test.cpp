#include "core/driver.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/core_test_util.h"
#include "core/form_error.h"
#include "metrofit.h"

namespace {

using metrofit::ApplyFinalAxis;
using metrofit::ApplyFormError;
using metrofit::AuxiliaryDirection;
using metrofit::AxisToStartAngles;
using metrofit::DriverLayout;
using metrofit::DriverLayoutFor;
using metrofit::ModeWeight;
using metrofit::RunLeastSquaresDriver;
using metrofit::WriteConstraints;
using metrofit_test::Close;
using P = KPt3<double>;

constexpr double kFixed = 1e20;
constexpr double kStart = -1.0;

// The weight matrix and value vector of one fit type, built from the input's modes.
class Constraints {
 public:
  explicit Constraints(CFitInput& in) : n_(DriverLayoutFor(in.m_fitType)->unknowns) {
    w_ = mCreateMatrix(n_, n_);
    v_ = mCreateMatrix(n_, 1);
    WriteConstraints(in, *DriverLayoutFor(in.m_fitType), w_, v_);
  }
  ~Constraints() {
    mFreeMatrix(&w_, n_);
    mFreeMatrix(&v_, n_);
  }
  Constraints(const Constraints&) = delete;
  Constraints& operator=(const Constraints&) = delete;

  double W(int i) const { return w_[i][i]; }
  double V(int i) const { return v_[i][0]; }
  bool OnlyDiagonal() const {
    for (int i = 0; i < n_; ++i)
      for (int j = 0; j < n_; ++j)
        if (i != j && w_[i][j] != 0.0) return false;
    return true;
  }
  // Indices with a non-zero weight or value.
  std::vector<int> Touched() const {
    std::vector<int> t;
    for (int i = 0; i < n_; ++i)
      if (W(i) != 0.0 || V(i) != 0.0) t.push_back(i);
    return t;
  }

 private:
  int n_;
  double** w_;
  double** v_;
};

CFitInput Typed(int fitType) {
  CFitInput in;
  in.m_fitType = fitType;
  return in;
}

P RowOf(const P& angles, int row) {
  double m[9];
  ConvertAnglesToMatrix(angles.x, angles.y, angles.z, m);
  return P(m[3 * row], m[3 * row + 1], m[3 * row + 2]);
}

TEST(Driver, LayoutTableGivesUnknownsAngleAndRadiusIndices) {
  const int expect[9][5] = {{5, 2, 3, 0, -1}, {3, 0, 1, 2, -1}, {6, 3, 4, 5, -1},
                            {4, 0, 0, 3, -1}, {6, 3, 4, 5, -1}, {6, 3, 4, 5, -1},
                            {6, 3, 4, 5, -1}, {7, 3, 4, 5, 6},  {7, 3, 4, 5, 6}};
  for (int t = 0; t < 9; ++t) {
    const DriverLayout* l = DriverLayoutFor(t);
    ASSERT_NE(l, nullptr) << t;
    EXPECT_EQ(l->unknowns, expect[t][0]) << t;
    EXPECT_EQ(l->angle1, expect[t][1]) << t;
    EXPECT_EQ(l->angle2, expect[t][2]) << t;
    EXPECT_EQ(l->radius, expect[t][3]) << t;
    EXPECT_EQ(l->radius2, expect[t][4]) << t;
  }
  EXPECT_EQ(DriverLayoutFor(-1), nullptr);
  EXPECT_EQ(DriverLayoutFor(9), nullptr);
}

TEST(Driver, ZeroNominalAxisStartsFromZeroAngles) {
  CFitInput in;
  in.m_angleParam.value = P(0.5, 0.6, 0.7);
  AxisToStartAngles(in);
  EXPECT_EQ(in.m_angleParam.value, P(0, 0, 0));
  EXPECT_EQ(in.m_axisParam.value, P(0, 0, 0));

  // Through the whole driver too: the start angles are written into the input.
  CFitInput fit;
  fit.m_fitType = FIT_PLANE;
  fit.m_points = {P(0, 0, 0), P(1, 0, 0), P(0, 1, 0), P(1, 1, 0.1)};
  fit.m_angleParam.value = P(0.5, 0.6, 0.7);
  CFitResult out;
  RunLeastSquaresDriver(fit, out);
  EXPECT_EQ(fit.m_angleParam.value, P(0, 0, 0));
  EXPECT_EQ(fit.m_axisParam.value, P(0, 0, 0));
}

TEST(Driver, NominalAxisShorterThanLimitCountsAsZero) {
  CFitInput in;
  in.m_axisParam.value = P(0, 9e-5, 0);
  AxisToStartAngles(in);
  EXPECT_EQ(in.m_angleParam.value, P(0, 0, 0));
  EXPECT_EQ(in.m_axisParam.value, P(0, 9e-5, 0));
}

TEST(Driver, TiedNominalAxisPicksEarlierComponent) {
  const double s = std::sqrt(0.5);
  EXPECT_EQ(AuxiliaryDirection(P(s, s, 0)), P(0, 1, 0));
  CFitInput in;
  in.m_axisParam.value = P(1, 1, 0);
  AxisToStartAngles(in);
  const P angles = in.m_angleParam.value;
  // h = (0, 1, 0) makes e1 = a x h = +z; a y-win (h = z) would have made it (1, -1, 0)/sqrt 2.
  EXPECT_TRUE(Close(RowOf(angles, 2), P(s, s, 0), 1e-15));
  EXPECT_TRUE(Close(RowOf(angles, 1), P(0, 0, 1), 1e-15));
  EXPECT_TRUE(Close(RowOf(angles, 0), P(-s, s, 0), 1e-15));
}

TEST(Driver, AuxiliaryDirectionFollowsLargestAbsoluteComponent) {
  EXPECT_EQ(AuxiliaryDirection(P(0.9, 0.1, 0.1)), P(0, 1, 0));
  EXPECT_EQ(AuxiliaryDirection(P(0.1, -0.9, 0.1)), P(0, 0, 1));
  EXPECT_EQ(AuxiliaryDirection(P(0.1, 0.1, -0.9)), P(1, 0, 0));
  EXPECT_EQ(AuxiliaryDirection(P(0, 1, -1)), P(0, 0, 1));  // y before z
  EXPECT_EQ(AuxiliaryDirection(P(-1, 0, 1)), P(0, 1, 0));  // x before z
  EXPECT_EQ(AuxiliaryDirection(P(1, 1, 1)), P(0, 1, 0));
}

TEST(Driver, StartAnglesRebuildTheNominalAxis) {
  metrofit_test::Rng rng(21);
  for (int t = 0; t < 200; ++t) {
    const P a = rng.UnitVector() * rng.Uniform(0.001, 100.0);
    CFitInput in;
    in.m_axisParam.value = a;
    AxisToStartAngles(in);
    const P unit = a * (1.0 / a.Length());
    EXPECT_TRUE(Close(RowOf(in.m_angleParam.value, 2), unit, 1e-13));
    EXPECT_EQ(in.m_axisParam.value, a);
    const P h = AuxiliaryDirection(unit);
    P e1 = unit.Cross(h);
    e1.Normalize();
    EXPECT_TRUE(Close(RowOf(in.m_angleParam.value, 1), e1, 1e-13));
  }
}

TEST(Driver, ModesBecomeWeights) {
  EXPECT_EQ(ModeWeight(1), kFixed);
  EXPECT_EQ(ModeWeight(2), kStart);
  EXPECT_EQ(ModeWeight(-1), kStart);
  EXPECT_EQ(ModeWeight(7), kStart);
}

TEST(Driver, FreeParametersLeaveWeightsAndValuesZero) {
  for (int t = 0; t < 9; ++t) {
    CFitInput in = Typed(t);
    in.m_centerParam.value = P(1, 2, 3);
    in.m_size1Param.value = P(4, 0, 0);
    Constraints c(in);
    EXPECT_TRUE(c.Touched().empty()) << t;
  }
}

TEST(Driver, CentreModesBecomeDiagonalWeightsAndValues) {
  CFitInput in = Typed(FIT_SPHERE);
  in.m_centerParam.value = P(1, 2, 3);
  in.m_centerParam.mode[0] = 1;
  in.m_centerParam.mode[2] = 2;
  Constraints c(in);
  EXPECT_EQ(c.W(0), kFixed);
  EXPECT_EQ(c.V(0), 1.0);
  EXPECT_EQ(c.W(1), 0.0);
  EXPECT_EQ(c.V(1), 0.0);
  EXPECT_EQ(c.W(2), kStart);
  EXPECT_EQ(c.V(2), 3.0);
  EXPECT_EQ(c.W(3), 0.0);
  EXPECT_TRUE(c.OnlyDiagonal());
}

TEST(Driver, PlaneIgnoresCentreModes) {
  CFitInput in = Typed(FIT_PLANE);
  in.m_centerParam.value = P(5, 6, 7);
  in.m_centerParam.mode[0] = in.m_centerParam.mode[1] = in.m_centerParam.mode[2] = 1;
  Constraints c(in);
  EXPECT_TRUE(c.Touched().empty());
}

TEST(Driver, AxisModeFillsAngleModesAndConstrainsTheStartAngles) {
  CFitInput in = Typed(FIT_CIRCLE);
  in.m_axisParam.value = P(0, 1, 1);
  in.m_axisParam.mode[0] = 2;
  in.m_axisParam.mode[2] = 2;
  AxisToStartAngles(in);
  const P angles = in.m_angleParam.value;
  Constraints c(in);
  EXPECT_EQ(in.m_angleParam.mode[0], 2);
  EXPECT_EQ(in.m_angleParam.mode[1], 0);
  EXPECT_EQ(in.m_angleParam.mode[2], 2);
  EXPECT_EQ(c.W(3), kStart);
  EXPECT_EQ(c.V(3), angles.x);
  EXPECT_EQ(c.W(4), 0.0);
  EXPECT_EQ(c.V(4), 0.0);
  EXPECT_EQ(c.Touched(), std::vector<int>{3});  // the third angle gets no constraint
}

TEST(Driver, SetAngleModeKeepsItsOwnWeight) {
  CFitInput in = Typed(FIT_CYLINDER);
  in.m_angleParam.value = P(0.25, 0.5, 0);
  in.m_angleParam.mode[0] = 1;
  in.m_axisParam.mode[0] = 3;
  in.m_angleParam.mode[1] = 5;
  Constraints c(in);
  EXPECT_EQ(in.m_angleParam.mode[0], 1);
  EXPECT_EQ(c.W(3), kFixed);
  EXPECT_EQ(c.V(3), 0.25);
  EXPECT_EQ(c.W(4), kStart);
  EXPECT_EQ(c.V(4), 0.5);
}

TEST(Driver, AngleModeZeroWithAxisModeTwoBecomesTwoAfterFit) {
  CFitInput in;
  in.m_points = {P(0, 0, 0), P(2, 0, 0), P(0, 2, 0), P(2, 2, 0), P(1, 1, 0.2)};
  in.m_axisParam.value = P(0, 0, 1);
  in.m_axisParam.mode[0] = in.m_axisParam.mode[1] = in.m_axisParam.mode[2] = 2;
  CFitResult out;
  KFitPlane(in, out);
  EXPECT_EQ(in.m_angleParam.mode[0], 2);
  EXPECT_EQ(in.m_angleParam.mode[1], 2);
  EXPECT_EQ(in.m_angleParam.mode[2], 2);
}

TEST(Driver, SphereSkipsAngleConstraintsEntirely) {
  CFitInput in = Typed(FIT_SPHERE);
  in.m_axisParam.value = P(1, 0, 0);
  in.m_axisParam.mode[0] = in.m_axisParam.mode[1] = in.m_axisParam.mode[2] = 1;
  AxisToStartAngles(in);
  Constraints c(in);
  EXPECT_TRUE(c.Touched().empty());
  EXPECT_EQ(in.m_angleParam.mode[0], 0);
  EXPECT_EQ(in.m_angleParam.mode[2], 0);
}

// The line's angle indices are 2 and 3: an axis constraint lands on the point's z and a1.
TEST(Driver, LineAxisConstraintLandsOnIndicesTwoAndThree) {
  CFitInput in = Typed(FIT_LINE);
  in.m_centerParam.value = P(1, 2, 3);
  in.m_centerParam.mode[2] = 1;
  in.m_axisParam.value = P(0, 1, 1);
  in.m_axisParam.mode[0] = in.m_axisParam.mode[1] = 2;
  AxisToStartAngles(in);
  Constraints c(in);
  EXPECT_EQ(c.W(2), kStart);  // the angle overwrote the centre's z constraint
  EXPECT_EQ(c.V(2), in.m_angleParam.value.x);
  EXPECT_EQ(c.W(3), kStart);
  EXPECT_EQ(c.V(3), in.m_angleParam.value.y);
  EXPECT_EQ(c.W(4), 0.0);
}

TEST(Driver, LineRadiusModeConstrainsIndexZero) {
  CFitInput in = Typed(FIT_LINE);
  in.m_centerParam.value = P(1, 2, 3);
  in.m_centerParam.mode[0] = 2;
  in.m_size1Param.value = P(0.75, 0, 0);
  in.m_size1Param.mode[0] = 1;
  Constraints c(in);
  EXPECT_EQ(c.W(0), kFixed);
  EXPECT_EQ(c.V(0), 0.75);
}

TEST(Driver, RadiusFixedWhenEitherSizeModeIsOne) {
  CFitInput in = Typed(FIT_CIRCLE);
  in.m_size1Param.value = P(4, 0, 0);
  in.m_size1Param.mode[0] = 2;
  in.m_size2Param.mode[0] = 1;
  Constraints c(in);
  EXPECT_EQ(c.W(5), kFixed);
  EXPECT_EQ(c.V(5), 4.0);

  CFitInput start = Typed(FIT_SPHERE);
  start.m_size1Param.value = P(6, 0, 0);
  start.m_size2Param.mode[0] = 3;
  Constraints s(start);
  EXPECT_EQ(s.W(3), kStart);
  EXPECT_EQ(s.V(3), 6.0);
}

TEST(Driver, EllipseAndTorusConstrainBothRadiiToOneValue) {
  for (int t : {FIT_ELLIPSE, FIT_TORUS}) {
    CFitInput in = Typed(t);
    in.m_size1Param.value = P(2.5, 9, 9);
    in.m_size1Param.mode[0] = 1;
    Constraints c(in);
    EXPECT_EQ(c.W(5), kFixed) << t;
    EXPECT_EQ(c.W(6), kFixed) << t;
    EXPECT_EQ(c.V(5), 2.5) << t;
    EXPECT_EQ(c.V(6), 2.5) << t;
  }
}

TEST(Driver, ParaboloidSizeConstraintStartsAtOneHalf) {
  CFitInput in = Typed(FIT_PARABOLOID);
  in.m_size1Param.value = P(7, 0, 0);
  in.m_size1Param.mode[0] = 1;
  Constraints c(in);
  EXPECT_EQ(c.W(5), kFixed);
  EXPECT_EQ(c.V(5), 0.5);
}

CFitInput ParaboloidPoints() {
  CFitInput in;
  for (int i = 0; i < 15; ++i) {
    const double r = 0.4 * (i % 5 + 1), phi = 1.3 * i;
    in.m_points.push_back(P(r * std::cos(phi), r * std::sin(phi), 0.5 * r * r));
  }
  return in;
}

TEST(Driver, ParaboloidAxisConstraintMakesSizeModeTwo) {
  CFitInput in = ParaboloidPoints();
  in.m_axisParam.value = P(0, 0, 1);
  in.m_axisParam.mode[1] = 2;
  CFitResult out;
  KFitParaboloid(in, out);
  EXPECT_EQ(in.m_size2Param.mode[0], 2);
  EXPECT_EQ(in.m_fitType, FIT_PARABOLOID);

  CFitInput fixed = ParaboloidPoints();
  fixed.m_axisParam.mode[0] = 1;
  fixed.m_size2Param.mode[0] = 1;
  KFitParaboloid(fixed, out);
  EXPECT_EQ(fixed.m_size2Param.mode[0], 1);
}

TEST(Driver, ParaboloidWithoutAxisConstraintKeepsSizeMode) {
  CFitInput in = ParaboloidPoints();
  CFitResult out;
  KFitParaboloid(in, out);
  EXPECT_EQ(in.m_size2Param.mode[0], 0);
}

TEST(Driver, FinalAxisIsRowTwoOfFittedAnglesForAllButSphere) {
  const P angles(0.3, 0.2, 0.1);
  const P expect(std::sin(0.2), -std::cos(0.2) * std::sin(0.3), std::cos(0.2) * std::cos(0.3));
  for (int t : {0, 1, 2, 4, 5, 6, 7, 8}) {
    CFitResult out;
    out.m_angles = angles;
    out.m_axis = P(5, 5, 5);
    ApplyFinalAxis(t, out);
    EXPECT_EQ(out.m_axis, expect) << t;
  }
}

TEST(Driver, SphereLeavesAxisAsSeeded) {
  CFitInput in;
  in.m_axisParam.value = P(1, 2, 3);
  CFitResult out;
  out = in;
  out.m_angles = P(0.3, 0.2, 0.1);
  ApplyFinalAxis(FIT_SPHERE, out);
  EXPECT_EQ(out.m_axis, P(1, 2, 3));
}

TEST(Driver, ConeFormErrorIsTheEngineRootMeanSquare) {
  CFitInput in;
  in.m_fitType = FIT_CONE;
  in.m_points = {P(1, 0, 0), P(0, 1, 1)};
  CFitResult out;
  out.m_rms = out.m_formError = 0.0375;
  ApplyFormError(in, out);
  EXPECT_EQ(out.m_formError, out.m_rms);
}

TEST(Driver, TorusFormErrorIsZero) {
  CFitInput in;
  in.m_fitType = FIT_TORUS;
  in.m_points = {P(1, 0, 0), P(0, 1, 1)};
  CFitResult out;
  out.m_rms = out.m_formError = 0.0375;
  ApplyFormError(in, out);
  EXPECT_EQ(out.m_formError, 0.0);
}

// --- Through the least-squares engine ------------------------------------------------------

// Points of a sphere of radius 4 about (1, 2, 5.3), spread over most of its surface.
CFitInput SpherePoints() {
  CFitInput in;
  for (int i = 0; i < 40; ++i) {
    const double th = 0.3 + 2.5 * i / 40.0, ph = 2.4 * i;
    in.m_points.push_back(P(1 + 4 * std::sin(th) * std::cos(ph),
                            2 + 4 * std::sin(th) * std::sin(ph), 5.3 + 4 * std::cos(th)));
  }
  return in;
}

// Points of a circle of radius 3 about (1, 2, 5.3), slightly tilted.
CFitInput CirclePoints() {
  CFitInput in;
  for (int i = 0; i < 20; ++i) {
    const double ph = 0.31 * i;
    in.m_points.push_back(P(1 + 3 * std::cos(ph), 2 + 3 * std::sin(ph), 5.3 + 0.1 * std::cos(ph)));
  }
  return in;
}

CFitInput PlanePoints() {
  CFitInput in;
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 5; ++j)
      in.m_points.push_back(P(i, j, 0.2 * i - 0.1 * j + 7 + 0.01 * ((i * j) % 3)));
  return in;
}

// The true centre is at z = 5.3; a fixed z of 5 must survive the iteration.
TEST(Driver, CentreModeOneOnZKeepsFittedZ) {
  CFitInput sphere = SpherePoints();
  sphere.m_centerParam.value = P(0, 0, 5);
  sphere.m_centerParam.mode[2] = 1;
  CFitResult out;
  ASSERT_EQ(KFitSphere(sphere, out), 1);
  EXPECT_TRUE(Close(out.m_center.z, 5.0, 1e-12));

  CFitInput circle = CirclePoints();
  circle.m_centerParam.value = P(0, 0, 5);
  circle.m_centerParam.mode[2] = 1;
  CFitResult co;
  ASSERT_EQ(KFitCircle(circle, co), 1);
  EXPECT_TRUE(Close(co.m_center.z, 5.0, 1e-12));
}

TEST(Driver, PlaneFitIgnoresCentreModes) {
  CFitInput free = PlanePoints();
  CFitResult a;
  ASSERT_EQ(KFitPlane(free, a), 1);
  CFitInput held = PlanePoints();
  held.m_centerParam.value = P(50, 60, 70);
  held.m_centerParam.mode[0] = held.m_centerParam.mode[1] = held.m_centerParam.mode[2] = 1;
  CFitResult b;
  ASSERT_EQ(KFitPlane(held, b), 1);
  EXPECT_EQ(a.m_axis, b.m_axis);
  EXPECT_EQ(a.m_size2.y, b.m_size2.y);
  EXPECT_EQ(a.m_formError, b.m_formError);
  EXPECT_EQ(a.m_iterations, b.m_iterations);
}

TEST(Driver, FittedAxisIsRowTwoOfFittedAngles) {
  CFitInput plane = PlanePoints();
  CFitResult p;
  ASSERT_EQ(KFitPlane(plane, p), 1);
  EXPECT_EQ(p.m_axis, RowOf(p.m_angles, 2));
  CFitInput circle = CirclePoints();
  CFitResult c;
  ASSERT_EQ(KFitCircle(circle, c), 1);
  EXPECT_EQ(c.m_axis, RowOf(c.m_angles, 2));
}

// The driver replaces the engine's provisional value with the shape's own measure.
TEST(Driver, FormErrorOfFitIsTheShapeMeasure) {
  CFitInput plane = PlanePoints();
  CFitResult p;
  ASSERT_EQ(KFitPlane(plane, p), 1);
  EXPECT_EQ(p.m_formError, metrofit::PlaneFormError(plane.m_points, p.m_center, p.m_axis));
  EXPECT_GT(p.m_formError, 0.0);

  CFitInput sphere = SpherePoints();
  CFitResult s;
  ASSERT_EQ(KFitSphere(sphere, s), 1);
  EXPECT_EQ(s.m_formError, metrofit::SphereFormError(sphere.m_points, s.m_center, s.m_size1.x));
  EXPECT_LT(s.m_formError, 1e-9);  // the points lie on the sphere

  CFitInput circle = CirclePoints();
  CFitResult c;
  ASSERT_EQ(KFitCircle(circle, c), 1);
  EXPECT_EQ(c.m_formError,
            metrofit::AxialFormError(circle.m_points, c.m_center, c.m_axis, c.m_size1.x));

  CFitInput line;
  for (int i = 0; i < 10; ++i)
    line.m_points.push_back(P(1 + 0.5 * i, 2 - 0.3 * i + 0.01 * (i % 2), 3 + 0.8 * i));
  CFitResult l;
  ASSERT_EQ(KFitLine(line, l), 1);
  EXPECT_EQ(l.m_formError, metrofit::LineFormError(line.m_points, l.m_center, l.m_axis));
}

TEST(Driver, ConeFitReportsEngineRootMeanSquareAsFormError) {
  CFitInput in;
  for (int i = 0; i < 40; ++i) {
    const double z = 1 + 0.1 * i, ph = 0.7 * i;
    in.m_points.push_back(P(0.5 * z * std::cos(ph) + 0.001 * (i % 3), 0.5 * z * std::sin(ph), z));
  }
  in.m_fitType = FIT_CONE;
  in.m_axisParam.value = P(0, 0, 1);
  in.m_axisParam.mode[0] = in.m_axisParam.mode[1] = 2;
  CFitResult out;
  RunLeastSquaresDriver(in, out);
  ASSERT_EQ(out.m_valid, 1);
  EXPECT_GT(out.m_rms, 0.0);
  EXPECT_EQ(out.m_formError, out.m_rms);
}

// Whatever the engine makes of the torus, its form error is 0.
TEST(Driver, TorusFitReportsZeroFormError) {
  CFitInput in;
  for (int i = 0; i < 60; ++i) {
    const double u = 0.37 * i, v = 1.1 * i;
    in.m_points.push_back(
        P((5 + std::cos(v)) * std::cos(u), (5 + std::cos(v)) * std::sin(u), std::sin(v)));
  }
  in.m_fitType = FIT_TORUS;
  CFitResult out;
  out.m_formError = 5.0;
  RunLeastSquaresDriver(in, out);
  EXPECT_EQ(out.m_formError, 0.0);
}

}  // namespace
