// The rule every estimator shares: an estimate enters the parameter vector only where the
// constraint diagonal is exactly 0.0; fixed (1e20), start-value (-1.0) and NaN entries keep
// the caller's value.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "estimate_test_support.h"
#include "metrofit.h"

namespace {

using metrofit_test::EstimatorMatrices;
using P = KPt3<double>;

using Estimator = void (CFitInput::*)(CFitResult&, double**, double**);

struct Case {
  std::string name;
  Estimator estimate;
  int params;
  std::function<void(CFitInput&, CFitResult&)> setup;
};

// Nine points on a tilted, offset sphere of radius 5: every estimator has data to work on.
void SpherePoints(CFitInput& in, CFitResult&) {
  const P c(3, -2, 7);
  in.m_points = {c + P(5, 0, 0), c + P(0, 5, 0),  c + P(0, 0, 5),  c + P(-5, 0, 0), c + P(0, -5, 0),
                 c + P(3, 4, 0), c + P(0, 3, -4), c + P(-4, 0, 3), c + P(0, -4, -3)};
}

void CylinderOrConeStart(CFitInput& in, CFitResult& r) {
  SpherePoints(in, r);
  r.m_center = P(3, -2, 7);
  P axis(0.2, 0.3, 1.0);
  r.m_axis = axis.Normalize();
  r.m_size1.x = 5.0;
}

void NominalTorus(CFitInput& in, CFitResult& r) {
  SpherePoints(in, r);
  in.m_centerParam.value = P(1, 2, 3);
  in.m_axisParam.value = P(0, 0, 1);
  in.m_size1Param.value = P(0, 50, 5);
}

// Each estimator once with every diagonal entry set to `weight`: nothing may change.
void ExpectCallerValuesKept(const std::vector<Case>& cases, double weight) {
  for (const Case& c : cases) {
    CFitInput in;
    CFitResult r;
    c.setup(in, r);
    EstimatorMatrices m(c.params);
    m.SetAllDiagonals(weight);
    (in.*c.estimate)(r, m.constraints(), m.params());
    for (int k = 0; k < c.params; ++k)
      EXPECT_FALSE(m.written(k)) << c.name << " parameter " << k << " weight " << weight;
  }
}

// Each estimator with one entry at a time held at -1.0: that one keeps its value, every
// other parameter gets an estimate (except a coordinate the estimator fixes itself).
void ExpectOnlyZeroEntriesWritten(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    for (int held = 0; held < c.params; ++held) {
      CFitInput in;
      CFitResult r;
      c.setup(in, r);
      EstimatorMatrices m(c.params);
      m.SetDiagonal(held, -1.0);
      (in.*c.estimate)(r, m.constraints(), m.params());
      for (int k = 0; k < c.params; ++k) {
        if (k == held) {
          EXPECT_FALSE(m.written(k)) << c.name << " held " << held;
        } else if (m.diag(k) == 0.0) {
          EXPECT_TRUE(m.written(k)) << c.name << " held " << held << " parameter " << k;
        }
      }
    }
  }
}

std::vector<Case> LinePlaneCircleSphere() {
  return {{"line", &CFitInput::EstimateLine, 5, SpherePoints},
          {"plane", &CFitInput::EstimatePlane, 3, SpherePoints},
          {"circle", &CFitInput::EstimateCircle, 6, SpherePoints},
          {"sphere", &CFitInput::EstimateSphere, 4, SpherePoints}};
}

std::vector<Case> CylinderConeEllipse() {
  return {{"cylinder", &CFitInput::EstimateCylinder, 6, CylinderOrConeStart},
          {"cone", &CFitInput::EstimateCone, 6, CylinderOrConeStart},
          {"ellipse", &CFitInput::EstimateEllipse, 7, SpherePoints}};
}

std::vector<Case> ParaboloidAndTorus() {
  return {{"paraboloid", &CFitInput::Parab2Est, 6, SpherePoints},
          {"torus", &CFitInput::EstimateTorus, 7, NominalTorus},
          {"torus from two circles", &CFitInput::EstimateTorus2, 7, SpherePoints}};
}

TEST(WriteRule, LinePlaneCircleSphereKeepFixedAndStartValues) {
  ExpectCallerValuesKept(LinePlaneCircleSphere(), -1.0);
  ExpectCallerValuesKept(LinePlaneCircleSphere(), 1e20);
  ExpectOnlyZeroEntriesWritten(LinePlaneCircleSphere());
}

TEST(WriteRule, CylinderConeEllipseKeepEveryNonZeroEntry) {
  ExpectCallerValuesKept(CylinderConeEllipse(), -1.0);
  ExpectCallerValuesKept(CylinderConeEllipse(), 1e20);
  ExpectCallerValuesKept(CylinderConeEllipse(), 1e-300);
  ExpectOnlyZeroEntriesWritten(CylinderConeEllipse());
}

TEST(WriteRule, ParaboloidAndTorusKeepFixedAndStartValues) {
  ExpectCallerValuesKept(ParaboloidAndTorus(), -1.0);
  ExpectCallerValuesKept(ParaboloidAndTorus(), 1e20);
  ExpectOnlyZeroEntriesWritten(ParaboloidAndTorus());
}

TEST(WriteRule, NaNDiagonalCountsAsNonZero) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  ExpectCallerValuesKept(LinePlaneCircleSphere(), nan);
  ExpectCallerValuesKept(CylinderConeEllipse(), nan);
  ExpectCallerValuesKept(ParaboloidAndTorus(), nan);
}

}  // namespace
