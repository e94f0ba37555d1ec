// The Jacobian rows of every shape model against central differences of its residuals under the
// local update (shift in the frame, rotation about the frame's axes, size increments).
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "precise/local_frame.h"
#include "precise/models/cone_model.h"
#include "precise/models/ellipse_model.h"
#include "precise/models/line_model.h"
#include "precise/models/paraboloid_model.h"
#include "precise/models/plane_model.h"
#include "precise/models/radial_model.h"
#include "precise/models/sphere_model.h"
#include "precise/models/spheroid_model.h"
#include "precise/models/torus_model.h"

namespace metrofit::precise {
namespace {

// Central-difference step (mm or rad) and the agreement it allows (relative to the row's size).
constexpr double kStep = 1e-6;
constexpr double kRowTol = 1e-7;

State TiltedState(double s0, double s1) {
  State s = FrameAround(Vec3(612.5, -480.25, 730.0), Vec3(0.3, -0.5, 0.81));
  s.size[0] = s0;
  s.size[1] = s1;
  s.offset = 0.75;
  return s;
}

template <class Model>
void CheckRows(const State& s, double spread) {
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> uni(-spread, spread);
  constexpr int kc = Model::kComponents;
  for (int k = 0; k < 20; ++k) {
    const Vec3 p = s.c + Vec3(uni(rng), uni(rng), uni(rng));
    const double xyz[3] = {p.x, p.y, p.z};
    double q[3], r[kc], rows[kc][kLocalCount];
    ToLocal(s, xyz, q);
    Model(s).Rows(q, r, rows);
    double scale = 0.0;
    for (int c = 0; c < kc; ++c) {
      for (int i = 0; i < kLocalCount; ++i) scale = std::fmax(scale, std::fabs(rows[c][i]));
    }
    for (int i = 0; i < kLocalCount; ++i) {
      double x[kLocalCount] = {};
      double rp[kc], rm[kc], unused[kc][kLocalCount];
      x[i] = kStep;
      const State sp = Moved(s, x);
      ToLocal(sp, xyz, q);
      Model(sp).Rows(q, rp, unused);
      x[i] = -kStep;
      const State sm = Moved(s, x);
      ToLocal(sm, xyz, q);
      Model(sm).Rows(q, rm, unused);
      for (int c = 0; c < kc; ++c) {
        const double fd = (rp[c] - rm[c]) / (2.0 * kStep);
        EXPECT_NEAR(rows[c][i], fd, kRowTol * scale) << "point " << k << " parameter " << i;
      }
    }
  }
}

TEST(PreciseModelRows, Line) {
  CheckRows<LineModel>(TiltedState(0, 0), 30.0);
}
TEST(PreciseModelRows, Plane) {
  CheckRows<PlaneModel>(TiltedState(0, 0), 30.0);
}
TEST(PreciseModelRows, Sphere) {
  CheckRows<SphereModel>(TiltedState(20.0, 0), 30.0);
}
TEST(PreciseModelRows, CylinderAndCircle) {
  CheckRows<RadialModel>(TiltedState(20.0, 0), 30.0);
}
TEST(PreciseModelRows, Cone) {
  CheckRows<ConeModel>(TiltedState(15.0, 0.4), 30.0);
}
TEST(PreciseModelRows, Torus) {
  CheckRows<TorusModel>(TiltedState(25.0, 5.0), 30.0);
}
TEST(PreciseModelRows, Ellipse) {
  CheckRows<EllipseModel>(TiltedState(25.0, 14.0), 30.0);
  CheckRows<EllipseModel>(TiltedState(14.0, 25.0), 30.0);  // the longer axis along e2
}
TEST(PreciseModelRows, Spheroid) {
  CheckRows<SpheroidModel>(TiltedState(24.0, 15.0), 30.0);  // prolate
  CheckRows<SpheroidModel>(TiltedState(12.0, 22.0), 30.0);  // oblate
}
TEST(PreciseModelRows, Paraboloid) {
  CheckRows<ParaboloidModel>(TiltedState(15.0, 0), 30.0);
}

// The spheroid with equal semi-axes is the sphere, and its size rows add up to the sphere's.
TEST(PreciseModelRows, RoundSpheroidIsTheSphere) {
  const State s = TiltedState(20.0, 20.0);
  const double q[3] = {7.0, -11.0, 13.0};
  double rs[1], rowsS[1][kLocalCount], rb[1], rowsB[1][kLocalCount];
  SpheroidModel(s).Rows(q, rs, rowsS);
  SphereModel(s).Rows(q, rb, rowsB);
  EXPECT_NEAR(rs[0], rb[0], 1e-12);
  EXPECT_NEAR(rowsS[0][kSize0] + rowsS[0][kSize1], rowsB[0][kSize0], 1e-12);
  for (int i = 0; i < kSize0; ++i) EXPECT_NEAR(rowsS[0][i], rowsB[0][i], 1e-12) << i;
}

// The deviation of each model is the residual itself (the line's is the distance), and the
// unit normal it gives is the gradient of the distance in local coordinates.
TEST(PreciseModelRows, DeviationNormalsAreUnitGradients) {
  const State s = TiltedState(25.0, 5.0);
  const TorusModel torus(s);
  const double q[3] = {20.0, 12.0, 3.0};
  double n[3];
  const double d = torus.Deviation(q, n);
  EXPECT_NEAR(d, std::hypot(std::hypot(20.0, 12.0) - 25.0, 3.0) - 5.0 - 0.75, 1e-12);
  EXPECT_NEAR(n[0] * n[0] + n[1] * n[1] + n[2] * n[2], 1.0, 1e-15);
  for (int j = 0; j < 3; ++j) {
    double qp[3] = {q[0], q[1], q[2]}, qm[3] = {q[0], q[1], q[2]}, unused[3];
    qp[j] += kStep;
    qm[j] -= kStep;
    EXPECT_NEAR(n[j], (torus.Deviation(qp, unused) - torus.Deviation(qm, unused)) / (2 * kStep),
                kRowTol);
  }
}

}  // namespace
}  // namespace metrofit::precise
