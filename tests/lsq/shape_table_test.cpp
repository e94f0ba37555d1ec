// The shape descriptions: every table the driver, the engine and the form errors read comes from
// them, so their facts must agree with each other and with what each part does.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>

#include "core/driver.h"
#include "core/form_error.h"
#include "lsq/shape.h"
#include "lsq_test_util.h"
#include "metrofit.h"

namespace {

using lsq_test::Matrix;
using lsq_test::Pt;
using metrofit::ConstraintMode;
using metrofit::kNoSlot;
using metrofit::ShapeDescription;
using metrofit::ShapeFor;

constexpr int kTypes = 9;

TEST(ShapeTable, EveryFitTypeHasItsOwnDescriptionAndNoOtherCodeHasOne) {
  std::set<std::string> names;
  for (int t = 0; t < kTypes; ++t) {
    const ShapeDescription* s = ShapeFor(t);
    ASSERT_NE(s, nullptr) << t;
    EXPECT_EQ(s->fitType, t);
    EXPECT_TRUE(names.insert(s->name).second) << s->name;
    EXPECT_NE(s->estimate, nullptr);
    EXPECT_NE(s->writeParameters, nullptr);
    EXPECT_NE(s->accumulate, nullptr);
    EXPECT_NE(s->residuals, nullptr);
    EXPECT_NE(s->evaluate, nullptr);
  }
  EXPECT_EQ(ShapeFor(-1), nullptr);
  EXPECT_EQ(ShapeFor(kTypes), nullptr);
  EXPECT_EQ(metrofit::EngineShapeFor(kTypes).engine.parameters, 0);
}

TEST(ShapeTable, DriverAndEngineLayoutsAreTheDescriptions) {
  for (int t = 0; t < kTypes; ++t) {
    const ShapeDescription& s = *ShapeFor(t);
    EXPECT_EQ(metrofit::DriverLayoutFor(t), &s.driver);
    const metrofit::EngineLayout e = metrofit::EngineLayoutFor(t);
    EXPECT_EQ(e.parameters, s.engine.parameters);
    EXPECT_EQ(e.conditions, s.engine.conditions);
    EXPECT_EQ(e.offset, s.engine.offset);
    // The driver sizes its weight matrix for the engine's unknowns, and every slot it writes
    // lies inside it.
    EXPECT_EQ(s.driver.unknowns, s.engine.parameters) << s.name;
    for (int slot : {s.driver.angle1, s.driver.angle2, s.driver.radius}) {
      EXPECT_GE(slot, 0) << s.name;
      EXPECT_LT(slot, s.engine.parameters) << s.name;
    }
    if (s.driver.radius2 != kNoSlot) {
      EXPECT_LT(s.driver.radius2, s.engine.parameters);
    }
    EXPECT_LE(s.engine.parameters, metrofit::kMaxParameters);
  }
  // Only the ellipse and the torus hold two radii with one constraint.
  for (int t = 0; t < kTypes; ++t)
    EXPECT_EQ(ShapeFor(t)->driver.radius2 != kNoSlot, t == FIT_ELLIPSE || t == FIT_TORUS) << t;
}

// The model writes exactly an m x 3 B, an m x n A and an m x 1 w: entries outside keep the
// marker they were filled with.
TEST(ShapeTable, ModelsWriteTheSizesOfTheirLayout) {
  const double marker = -12345.0;
  CFitResult r;
  r.m_center = Pt(1, 2, 3);
  r.m_angles = Pt(0.3, 0.2, 0.0);
  r.m_size1 = Pt(5, 20, 2);
  r.m_size2 = Pt(4, 1, 1.5);
  r.m_size3 = Pt(6, 4, 0);
  for (int t = 0; t < kTypes; ++t) {
    const ShapeDescription& s = *ShapeFor(t);
    const int n = s.engine.parameters, m = s.engine.conditions;
    Matrix Q(3, 3), B(3, 3), A(3, 8), w(3, 1);
    B.Fill(marker);
    A.Fill(marker);
    w.Fill(marker);
    s.evaluate(Pt(9, -4, 7), r, Q.get(), B.get(), A.get(), w.get());
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) EXPECT_EQ(B[i][j] != marker, i < m) << s.name;
      for (int j = 0; j < 8; ++j) EXPECT_EQ(A[i][j] != marker, i < m && j < n) << s.name;
      EXPECT_EQ(w[i][0] != marker, i < m) << s.name;
    }
    EXPECT_EQ(Q[0][0], 1e-6);
  }
}

// Writing the parameter vector: the centred shapes take their centre from x0..x2 (the
// cylinder then slides it along the axis), the line and the plane report the reference point,
// and a radius slot of the driver is the slot whose value the shape reports as a size.
TEST(ShapeTable, WrittenParametersFollowTheLayout) {
  for (int t = 0; t < kTypes; ++t) {
    const ShapeDescription& s = *ShapeFor(t);
    const int n = s.engine.parameters;
    Matrix x(n, 1);
    for (int k = 0; k < n; ++k) x[k][0] = 0.125 * (k + 1);
    CFitInput in;
    in.m_refPoint = Pt(-7, 8, -9);
    CFitResult res;
    res.m_angles.z = 0.75;
    s.writeParameters(in, res, x.get());
    if (t == FIT_LINE || t == FIT_PLANE) {
      EXPECT_EQ(res.m_center, in.m_refPoint) << s.name;
    } else if (t != FIT_CYLINDER) {
      EXPECT_EQ(res.m_center, Pt(0.125, 0.25, 0.375)) << s.name;
    }
    const double radius = x[s.driver.radius][0];
    const double sizes[] = {res.m_size1.x, res.m_size1.y, res.m_size1.z, res.m_size2.x,
                            res.m_size2.y, res.m_size2.z, res.m_size3.x, res.m_size3.y};
    bool reported = false;
    for (double v : sizes) reported = reported || v == radius;
    // The line's radius slot is a coordinate of its point, which it never writes back.
    if (t != FIT_LINE) {
      EXPECT_TRUE(reported) << s.name;
    }
    // Only the sphere (no orientation) and the ellipse (its plane's turn) keep the third angle.
    EXPECT_EQ(res.m_angles.z == 0.75, t == FIT_SPHERE || t == FIT_ELLIPSE) << s.name;
    if (t == FIT_SPHERE) {
      EXPECT_EQ(res.m_angles.x, 0.0);
    }
  }
}

// The form error is the description's: each shape's own measure, the cone keeping the engine's
// root mean square, the paraboloid, ellipse and torus 0.
TEST(ShapeTable, FormErrorIsTheDescriptions) {
  CFitInput in;
  for (int i = 0; i < 6; ++i) in.m_points.push_back(Pt(i, 0.5 * i * i, 0.1 * i));
  for (int t = 0; t < kTypes; ++t) {
    in.m_fitType = t;
    // Two results set up alike (a copied result is deliberately empty).
    CFitResult out;
    out.m_axis = Pt(0, 0, 1);
    out.m_size1.x = 1.0;
    out.m_formError = 77.0;
    metrofit::ApplyFormError(in, out);
    const ShapeDescription& s = *ShapeFor(t);
    if (s.formError == nullptr) {
      EXPECT_EQ(t, FIT_CONE);
      EXPECT_EQ(out.m_formError, 77.0);
      continue;
    }
    CFitResult direct;
    direct.m_axis = Pt(0, 0, 1);
    direct.m_size1.x = 1.0;
    direct.m_formError = 77.0;
    s.formError(in, direct);
    EXPECT_EQ(out.m_formError, direct.m_formError) << s.name;
    if (t == FIT_PARABOLOID || t == FIT_ELLIPSE || t == FIT_TORUS) {
      EXPECT_EQ(out.m_formError, 0.0);
    }
  }
}

TEST(ConstraintMode, NamesTheCallersModes) {
  EXPECT_EQ(metrofit::ModeOf(0), ConstraintMode::kFree);
  EXPECT_EQ(metrofit::ModeOf(1), ConstraintMode::kFixed);
  for (int raw : {2, -1, 7, 1000}) EXPECT_EQ(metrofit::ModeOf(raw), ConstraintMode::kStart) << raw;
}

}  // namespace
