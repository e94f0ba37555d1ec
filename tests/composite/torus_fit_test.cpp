// The multi-start torus fit: meridian direction and section, the candidate starts, the choice
// among the candidates, and recovery of known tori at measuring-machine scale (centre 300 mm
// from the origin, tilted axis, micrometre noise).
//
// Full tubes use known-solution data (support/known_solution.h): the generating torus is the
// least-squares solution, the torus condition is the orthogonal distance itself, and the fit
// must end within BoundsFor(data, 1e-6), the distance its relative-change stop allows. Partial
// tubes use points with normal noise; the fit must be a stationary point of the sum of squared
// distances and lie within 5 sigma sqrt(trace C) of the generating torus, C = (J^T J)^-1 at the
// generating torus (support/noise_propagation.h).
#include "composite/torus_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "core/driver.h"
#include "metrofit.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"
#include "support/noise_propagation.h"

namespace {

using metrofit::BuildTorusStarts;
using metrofit::MeridianDirection;
using metrofit::TorusStart;
using metrofit::testing::AxisAngle;
using metrofit::testing::BoundsFor;
using metrofit::testing::ConvergenceBounds;
using metrofit::testing::DenseMatrix;
using metrofit::testing::GenerateKnownSolution;
using metrofit::testing::GeneratorOptions;
using metrofit::testing::KnownSolution;
using metrofit::testing::PortableRandom;
using metrofit::testing::Pt;
using metrofit::testing::Shape;
using metrofit::testing::ShapeTruth;
using metrofit::testing::WorstError;

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;
// Relative change of the variance factor below which the engine declares convergence.
constexpr double kRelativeVarianceChange = 1e-6;
// Agreement for exact data, and the floor under every bound.
constexpr double kLengthFloor = 1e-9;  // mm
constexpr double kAngleFloor = 1e-9;   // rad
// Noise-propagated bounds: k sigma sqrt(trace C).
constexpr double kSigmas = 5.0;
// Cosine between the residuals and a column of their Jacobian at a least-squares minimum: 0;
// the relative-change stop (1e-6) leaves at most about sqrt(1e-6).
constexpr double kStationaryCosine = 1e-3;
// Constraint mode of the candidates' start values.
constexpr int kStartMode = 2;

Pt Unit(Pt v) {
  v.Normalize();
  return v;
}

// Frame (e1, e2, u) about a unit axis.
struct Frame {
  Pt e1, e2, u;
};

Frame FrameAbout(const Pt& axis) {
  const Pt u = Unit(axis);
  const Pt h = std::fabs(u.x) < 0.8 ? Pt(1.0, 0.0, 0.0) : Pt(0.0, 1.0, 0.0);
  const Pt e1 = Unit(u.Cross(h));
  return Frame{e1, u.Cross(e1), u};
}

// The input a candidate runs with: the caller's settings, the four start modes, the start.
void CandidateInput(const CFitInput& caller, const TorusStart& s, CFitInput& cand) {
  cand = caller;
  cand.m_points = caller.m_points;
  cand.m_fitType = FIT_TORUS;
  for (int k = 0; k < 3; ++k) {
    cand.m_centerParam.mode[k] = kStartMode;
    cand.m_axisParam.mode[k] = kStartMode;
  }
  cand.m_size1Param.mode[1] = kStartMode;
  cand.m_size1Param.mode[2] = kStartMode;
  cand.m_centerParam.value = s.centre;
  cand.m_axisParam.value = s.axis;
  cand.m_size1Param.value.y = s.major;
  cand.m_size1Param.value.z = s.minor;
}

// ---------------------------------------------------------------------------------------------
// Meridian direction and section
// ---------------------------------------------------------------------------------------------

TEST(TorusMeridian, AxisAlongZGivesTheUnitXDirection) {
  const Pt t = MeridianDirection(Pt(0.0, 0.0, 1.0));
  EXPECT_EQ(t, Pt(1.0, 0.0, 0.0));
}

// Seed (1, 0, 0) for the dominant z; t = (u x s) x u = (0.64, 0, -0.48), of length 0.8 =
// sqrt(1 - 0.6^2): deliberately not normalised.
TEST(TorusMeridian, TiltedAxisGivesAShortenedDirection) {
  const Pt t = MeridianDirection(Pt(0.6, 0.0, 0.8));
  EXPECT_NEAR(t.x, 0.64, 1e-15);
  EXPECT_NEAR(t.y, 0.0, 1e-15);
  EXPECT_NEAR(t.z, -0.48, 1e-15);
  EXPECT_NEAR(t.Length(), 0.8, 1e-15);
  EXPECT_NEAR(t.Dot(Pt(0.6, 0.0, 0.8)), 0.0, 1e-15);
}

// With the true centre and an axis along z the turned points lie on the tube's cross-section:
// centre c + R (1, 0, 0), radius r.
TEST(TorusMeridian, SectionAboutTheTrueAxisIsTheTubeCircle) {
  const Pt c(120.0, -80.0, 40.0);
  const double R = 30.0, r = 4.0;
  CFitInput in;
  PortableRandom rng(61);
  for (int i = 0; i < 40; ++i) {
    const double t = rng.Uniform(0.0, 2.0 * kPi), phi = rng.Uniform(0.0, 2.0 * kPi);
    const double rho = R + r * std::cos(phi);
    in.m_points.push_back(c + Pt(rho * std::cos(t), rho * std::sin(t), r * std::sin(phi)));
  }
  const metrofit::MeridianSection s = metrofit::FitMeridianSection(in, c, Pt(0.0, 0.0, 1.0));
  EXPECT_LT((s.centre - (c + Pt(R, 0.0, 0.0))).Length(), 1e-9);
  EXPECT_NEAR(s.radius, r, 1e-9);
  EXPECT_LT(AxisAngle(s.axis, Pt(0.0, 1.0, 0.0)), 1e-9);  // the half-plane's normal
}

// ---------------------------------------------------------------------------------------------
// Candidates and the choice among them
// ---------------------------------------------------------------------------------------------

// Points of a torus with the major angle in [0, span) and the tube angle within +-tube/2 of
// the outer equator, moved by `offset` (probe radius) plus normal noise along the tube normal.
struct TorusCase {
  Pt centre;
  Pt axis;
  double major = 100.0;
  double minor = 10.0;
  double span = 2.0 * kPi;
  double tube = 2.0 * kPi;
  int count = 120;
  double noise = 0.0;   // mm
  double offset = 0.0;  // mm, along the outward normal (probe-ball centres)
  std::uint64_t seed = 1;
};

struct TorusData {
  ShapeTruth truth;
  std::vector<Pt> feet;
  std::vector<Pt> points;
};

TorusData MakeTorus(const TorusCase& tc) {
  TorusData d;
  const Frame f = FrameAbout(tc.axis);
  d.truth.shape = Shape::kTorus;
  d.truth.centre = tc.centre;
  d.truth.axis = f.u;
  d.truth.radius = tc.major;
  d.truth.minorRadius = tc.minor;
  PortableRandom rng(tc.seed);
  for (int i = 0; i < tc.count; ++i) {
    const double t = rng.Uniform(0.0, tc.span);
    const double phi = rng.Uniform(-0.5 * tc.tube, 0.5 * tc.tube);
    const Pt nr = f.e1 * std::cos(t) + f.e2 * std::sin(t);
    const Pt n = nr * std::cos(phi) + f.u * std::sin(phi);
    const Pt foot = tc.centre + nr * tc.major + n * tc.minor;
    d.feet.push_back(foot);
    d.points.push_back(foot + n * (tc.offset + tc.noise * rng.Normal()));
  }
  return d;
}

// Eight points on 10 degrees of the major circle, tube angles within +-45 degrees: the sphere
// fit does not converge on them (checked below), so neither the sphere nor the cylinder
// candidate is built.
TEST(TorusCandidates, ShortSegmentBuildsOnlyTheCircleAndThreePointCandidates) {
  TorusCase tc;
  tc.centre = Pt(200.0, -150.0, 180.0);
  tc.axis = Pt(0.2, 0.3, 0.93);
  tc.span = 10.0 * kDegree;
  tc.tube = 90.0 * kDegree;
  tc.count = 8;
  tc.seed = 70;
  const TorusData d = MakeTorus(tc);
  CFitInput in;
  in.m_points = d.points;

  CFitInput sphereIn;
  sphereIn.m_points = d.points;
  CFitResult sphere;
  ASSERT_EQ(KFitSphere(sphereIn, sphere), 0) << "precondition: the sphere fit fails";

  const std::vector<TorusStart> starts = BuildTorusStarts(in);
  ASSERT_EQ(starts.size(), 2u);
  // Candidate 1: the circle through all points, its centre and axis.
  CFitInput circleIn;
  circleIn.m_points = d.points;
  CFitResult circle;
  ASSERT_EQ(KFitCircleEx(circleIn, circle), 1);
  EXPECT_EQ(starts[0].centre, circle.m_center);
  EXPECT_EQ(starts[0].axis, circle.m_axis);
  EXPECT_EQ(starts[0].major, circle.m_size1.x);
  // Candidate 4: the circle through the first three points, its axis and radius.
  CFitInput threeIn;
  threeIn.m_points.assign(d.points.begin(), d.points.begin() + 3);
  CFitResult three;
  ASSERT_EQ(KFitCircleEx(threeIn, three), 1);
  EXPECT_EQ(starts[1].axis, three.m_axis);
  EXPECT_EQ(starts[1].major, three.m_size1.x);
  EXPECT_NE(starts[0].axis, starts[1].axis);
}

// A whole torus of 100 points with 5 um of noise, its axis tilted: every candidate start is built.
TorusData TiltedNoisyTorus(std::uint64_t seed) {
  TorusCase tc;
  tc.centre = Pt(180.0, 210.0, -90.0);
  tc.axis = Pt(-0.3, 0.25, 0.92);
  tc.major = 60.0;
  tc.minor = 8.0;
  tc.count = 100;
  tc.noise = 0.005;
  tc.seed = seed;
  return MakeTorus(tc);
}

// The cylinder candidate's axis is the cross product of the cylinder axis with the unit vector
// from the sphere's centre to the cylinder's axis point, not normalised: unless the two are
// perpendicular it is shorter than 1, and it is used (and, if that candidate wins, left in the
// caller's input) at that length.
TEST(TorusCandidates, CylinderStartAxisIsTheUnnormalisedCrossProduct) {
  const TorusData d = TiltedNoisyTorus(64);
  CFitInput in;
  in.m_points = d.points;
  const std::vector<TorusStart> starts = BuildTorusStarts(in);
  ASSERT_EQ(starts.size(), 4u) << "precondition: sphere and cylinder starts are built";

  CFitInput sphereIn;
  sphereIn.m_points = d.points;
  CFitResult sphere;
  ASSERT_EQ(KFitSphere(sphereIn, sphere), 1);
  CFitInput cylIn;
  cylIn.m_points = d.points;
  CFitResult cyl;
  ASSERT_EQ(KFitCylinderEx(cylIn, cyl), 1);
  Pt d2 = cyl.m_center - sphere.m_center;
  d2.Normalize();
  const Pt expected = cyl.m_axis.Cross(d2);
  EXPECT_EQ(starts[2].axis, expected);
  EXPECT_EQ(starts[2].centre, sphere.m_center);
  EXPECT_LT(starts[2].axis.Length(), 1.0 - 1e-6);
}

// Points with integer coordinates on the torus R = 40, r = 5 about the z axis (tube offsets on
// the 3-4-5 grid, four meridians along the coordinate axes), in a fixed shuffled order. The
// circle and the sphere candidates start at different places so close to the torus that both
// end with exactly the same RMS (checked below). The earlier, the circle candidate, must be
// kept: its start values are the ones the caller's input receives.
TEST(TorusCandidates, EqualRmsKeepsTheEarlierCandidate) {
  const double tube[][2] = {{5, 0},  {3, 4},  {0, 5}, {-3, 4},  {-5, 0}, {-3, -4},
                            {0, -5}, {3, -4}, {4, 3}, {-4, -3}, {4, -3}, {-4, 3}};
  const double R = 40.0;
  std::vector<Pt> pts;
  for (int q = 0; q < 4; ++q) {
    for (const auto& t : tube) {
      const double rho = R + t[0], h = t[1];
      pts.push_back(q == 0   ? Pt(rho, 0.0, h)
                    : q == 1 ? Pt(0.0, rho, h)
                    : q == 2 ? Pt(-rho, 0.0, h)
                             : Pt(0.0, -rho, h));
    }
  }
  PortableRandom rng(3);  // Fisher-Yates with portable draws
  for (std::size_t i = pts.size() - 1; i > 0; --i) {
    const auto j = static_cast<std::size_t>(rng.Uniform() * static_cast<double>(i + 1));
    std::swap(pts[i], pts[j]);
  }
  CFitInput in;
  in.m_points = pts;

  // Precondition: two valid candidates with different starts share the smallest RMS.
  const std::vector<TorusStart> starts = BuildTorusStarts(in);
  std::vector<double> rms;
  std::vector<int> valid;
  for (const TorusStart& s : starts) {
    CFitInput cand;
    CandidateInput(in, s, cand);
    CFitResult r;
    metrofit::RunLeastSquaresDriver(cand, r);
    rms.push_back(r.m_rms);
    valid.push_back(r.m_valid);
  }
  ASSERT_GE(starts.size(), 2u);
  ASSERT_EQ(valid[0], 1);
  ASSERT_EQ(valid[1], 1);
  ASSERT_EQ(rms[0], rms[1]);
  for (std::size_t k = 2; k < starts.size(); ++k) {
    if (valid[k] > 0) {
      ASSERT_GT(rms[k], rms[0]) << k;
    }
  }
  ASSERT_NE(starts[0].centre, starts[1].centre);

  CFitResult out;
  ASSERT_EQ(KFitTorus(in, out), 1);
  EXPECT_EQ(out.m_rms, rms[0]);
  EXPECT_EQ(in.m_centerParam.value, starts[0].centre);
  EXPECT_EQ(in.m_axisParam.value, starts[0].axis);
}

// After the fit the caller's input is the winning candidate's: fit type 8, the start modes and
// the start values of that candidate (and the angles the driver derived from its axis); the
// points stay the caller's. The winner is the first valid candidate with the smallest RMS.
// No candidate's deviation list reaches the caller, so the candidates run without one and
// only the winner's form error is measured: the result, deviations included, and the input
// left behind must be those of the plain computation that makes and keeps everything, bit for
// bit; into a fresh result and one holding a list.
TEST(TorusCandidates, LeanCandidatesChangeNothing) {
  const TorusData d = TiltedNoisyTorus(64);
  for (bool fresh : {true, false}) {
    SCOPED_TRACE(fresh ? "fresh result" : "result holding a list");
    CFitInput in[2];
    CFitResult out[2];
    const metrofit::CandidateWork work[2] = {metrofit::CandidateWork::kFull,
                                             metrofit::CandidateWork::kLean};
    for (int k = 0; k < 2; ++k) {
      in[k].m_points = d.points;
      in[k].m_fitType = FIT_TORUS;
      if (!fresh) out[k].m_deviations = {Pt(1, 2, 3)};
      ASSERT_EQ(metrofit::FitTorus(in[k], out[k], work[k]), 1);
    }
    const auto same = [](double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; };
    const auto samePoint = [&](const Pt& a, const Pt& b) {
      return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z);
    };
    EXPECT_TRUE(samePoint(out[0].m_center, out[1].m_center));
    EXPECT_TRUE(samePoint(out[0].m_axis, out[1].m_axis));
    EXPECT_TRUE(samePoint(out[0].m_angles, out[1].m_angles));
    EXPECT_TRUE(samePoint(out[0].m_size1, out[1].m_size1));
    EXPECT_TRUE(same(out[0].m_sigma, out[1].m_sigma));
    EXPECT_TRUE(same(out[0].m_rms, out[1].m_rms));
    EXPECT_TRUE(same(out[0].m_formError, out[1].m_formError));
    EXPECT_TRUE(same(out[0].m_minDeviation, out[1].m_minDeviation));
    EXPECT_TRUE(same(out[0].m_maxDeviation, out[1].m_maxDeviation));
    EXPECT_EQ(out[0].m_iterations, out[1].m_iterations);
    EXPECT_EQ(out[0].m_deviations, out[1].m_deviations);
    EXPECT_EQ(out[0].m_deviations.size(), fresh ? 0u : 1u);
    EXPECT_EQ(in[0].m_centerParam.value, in[1].m_centerParam.value);
    EXPECT_EQ(in[0].m_axisParam.value, in[1].m_axisParam.value);
    EXPECT_EQ(in[0].m_size1Param.value, in[1].m_size1Param.value);
    EXPECT_EQ(in[0].m_points, in[1].m_points);
  }
}

TEST(TorusCandidates, FitReplacesTheCallersInputWithTheWinningCandidates) {
  const TorusData d = TiltedNoisyTorus(63);
  CFitInput in;
  in.m_points = d.points;
  in.m_refDirection = Pt(1.0, 0.0, 0.0);
  in.m_useReference = true;  // ignored by the sub-fits, kept by the copies

  const std::vector<TorusStart> starts = BuildTorusStarts(in);
  int winner = -1;
  double best = 0.0;
  CFitInput expected;
  for (std::size_t k = 0; k < starts.size(); ++k) {
    CFitInput cand;
    CandidateInput(in, starts[k], cand);
    CFitResult r;
    metrofit::RunLeastSquaresDriver(cand, r);
    if (r.m_valid > 0 && (winner < 0 || r.m_rms < best)) {
      winner = static_cast<int>(k);
      best = r.m_rms;
      expected = cand;
    }
  }
  ASSERT_GE(winner, 0);
  std::cout << "winning candidate " << winner + 1 << " of " << starts.size() << "\n";

  CFitResult out;
  ASSERT_EQ(KFitTorus(in, out), 1);
  EXPECT_EQ(out.m_rms, best);
  EXPECT_EQ(in.m_fitType, FIT_TORUS);
  const TorusStart& s = starts[static_cast<std::size_t>(winner)];
  EXPECT_EQ(in.m_centerParam.value, s.centre);
  EXPECT_EQ(in.m_axisParam.value, s.axis);
  EXPECT_EQ(in.m_size1Param.value.y, s.major);
  EXPECT_EQ(in.m_size1Param.value.z, s.minor);
  EXPECT_EQ(in.m_angleParam.value.x, expected.m_angleParam.value.x);
  EXPECT_EQ(in.m_angleParam.value.y, expected.m_angleParam.value.y);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(in.m_centerParam.mode[k], kStartMode);
    EXPECT_EQ(in.m_axisParam.mode[k], kStartMode);
  }
  EXPECT_EQ(in.m_size1Param.mode[1], kStartMode);
  EXPECT_EQ(in.m_size1Param.mode[2], kStartMode);
  EXPECT_TRUE(in.m_useReference);
  ASSERT_EQ(in.m_points.size(), d.points.size());
  for (std::size_t i = 0; i < d.points.size(); ++i) EXPECT_EQ(in.m_points[i], d.points[i]);
}

// ---------------------------------------------------------------------------------------------
// Recovery of known tori
// ---------------------------------------------------------------------------------------------

struct FitErrors {
  double centre, axis, major, minor;
};

FitErrors ErrorsOf(const ShapeTruth& t, const CFitResult& out) {
  return {(out.m_center - t.centre).Length(), AxisAngle(out.m_axis, t.axis),
          std::fabs(out.m_size1.y - t.radius), std::fabs(out.m_size1.z - t.minorRadius)};
}

// Largest absolute errors over all recovery cases, printed for the record.
WorstError& AbsoluteWorst(int k) {
  static WorstError centre("torus centre error (mm)");
  static WorstError axis("torus axis error (rad)");
  static WorstError major("torus major radius error (mm)");
  static WorstError minor("torus minor radius error (mm)");
  WorstError* all[] = {&centre, &axis, &major, &minor};
  return *all[k];
}

void ExpectWithin(const FitErrors& e, const FitErrors& tol, WorstError& worst,
                  const std::string& where) {
  AbsoluteWorst(0).Update(e.centre, where);
  AbsoluteWorst(1).Update(e.axis, where);
  AbsoluteWorst(2).Update(e.major, where);
  AbsoluteWorst(3).Update(e.minor, where);
  EXPECT_LE(e.centre, tol.centre) << "centre";
  EXPECT_LE(e.axis, tol.axis) << "axis";
  EXPECT_LE(e.major, tol.major) << "major radius";
  EXPECT_LE(e.minor, tol.minor) << "minor radius";
  worst.Update(e.centre / tol.centre, where + " centre");
  worst.Update(e.axis / tol.axis, where + " axis");
  worst.Update(e.major / tol.major, where + " major radius");
  worst.Update(e.minor / tol.minor, where + " minor radius");
}

// Cosine between the orthogonal distances of the points from the fitted torus and each column
// of their Jacobian (central differences in the minimal parameters, known_solution.h).
void ExpectStationary(const CFitResult& out, const std::vector<Pt>& pts) {
  ShapeTruth fitted;
  fitted.shape = Shape::kTorus;
  fitted.centre = out.m_center;
  fitted.axis = out.m_axis;
  fitted.radius = out.m_size1.y;
  fitted.minorRadius = out.m_size1.z;
  std::vector<double> res;
  for (const Pt& p : pts) res.push_back(metrofit::testing::SignedDistance(fitted, p));
  const double norm = metrofit::testing::Norm2(res);
  ASSERT_GT(norm, 0.0);
  const DenseMatrix j = metrofit::testing::ResidualJacobian(fitted, pts);
  for (int q = 0; q < j.cols; ++q) {
    double dot = 0.0, col = 0.0;
    for (int i = 0; i < j.rows; ++i) {
      dot += j(i, q) * res[static_cast<std::size_t>(i)];
      col += j(i, q) * j(i, q);
    }
    EXPECT_LT(std::fabs(dot) / (std::sqrt(col) * norm), kStationaryCosine) << "parameter " << q;
  }
}

struct KnownCase {
  std::string name;
  double major, minor, span, noise;  // mm, mm, rad, micrometres
  int count;
  std::uint64_t seed;
};

void RunKnownCases(const std::vector<KnownCase>& cases, WorstError& worst) {
  for (const KnownCase& kc : cases) {
    SCOPED_TRACE(kc.name);
    GeneratorOptions o;
    o.pointCount = kc.count;
    o.noiseMicrometres = kc.noise;
    o.centreOffset = 300.0;
    o.axisTilt = 0.65;
    o.radius = kc.major;
    o.minorRadius = kc.minor;
    o.arcSpan = kc.span;
    o.seed = kc.seed;
    const KnownSolution s = GenerateKnownSolution(Shape::kTorus, o);
    CFitInput in;
    in.m_points = s.points;
    CFitResult out;
    ASSERT_EQ(KFitTorus(in, out), 1);
    EXPECT_EQ(out.m_formError, 0.0);
    const ConvergenceBounds b = BoundsFor(s, kRelativeVarianceChange);
    const FitErrors tol{b.position + kLengthFloor, b.axisAngle + kAngleFloor,
                        b.radius + kLengthFloor, b.minorRadius + kLengthFloor};
    ExpectWithin(ErrorsOf(s.truth, out), tol, worst, kc.name);
    METROFIT_EXPECT_CLOSE(out.m_rms, s.rms, kRelativeVarianceChange, kLengthFloor);
  }
}

TEST(TorusFit, FullToriGiveTheLeastSquaresTorus) {
  WorstError worst("full torus: error / convergence bound");
  RunKnownCases({{"R 20 r 2, exact", 20.0, 2.0, 2.0 * kPi, 0.0, 100, 71},
                 {"R 20 r 2, 1 um", 20.0, 2.0, 2.0 * kPi, 1.0, 100, 72},
                 {"R 50 r 5, 3 um", 50.0, 5.0, 2.0 * kPi, 3.0, 120, 73},
                 {"R 200 r 20, 10 um", 200.0, 20.0, 2.0 * kPi, 10.0, 120, 74}},
                worst);
}

TEST(TorusFit, HalfTorusSegmentsGiveTheLeastSquaresTorus) {
  WorstError worst("180 degree segment: error / convergence bound");
  RunKnownCases({{"R 100 r 10, exact", 100.0, 10.0, kPi, 0.0, 120, 75},
                 {"R 100 r 10, 5 um", 100.0, 10.0, kPi, 5.0, 120, 76},
                 {"R 30 r 12, 2 um", 30.0, 12.0, kPi, 2.0, 120, 77}},
                worst);
}

TEST(TorusFit, QuarterTorusSegmentsGiveTheLeastSquaresTorus) {
  WorstError worst("90 degree segment: error / convergence bound");
  RunKnownCases({{"R 100 r 10, 5 um", 100.0, 10.0, 0.5 * kPi, 5.0, 120, 78},
                 {"R 200 r 5, 2 um", 200.0, 5.0, 0.5 * kPi, 2.0, 120, 79},
                 {"R 40 r 15, 10 um", 40.0, 15.0, 0.5 * kPi, 10.0, 120, 80}},
                worst);
}

// Partial tubes (the outer half, or less) on segments: the generating torus is no longer the
// exact least-squares solution of the noisy points, so the fit is checked for stationarity and
// against the noise-propagated bound.
struct PartialCase {
  std::string name;
  TorusCase data;
};

void RunPartialCases(const std::vector<PartialCase>& cases, WorstError& worst) {
  for (const PartialCase& pc : cases) {
    SCOPED_TRACE(pc.name);
    const TorusData d = MakeTorus(pc.data);
    CFitInput in;
    in.m_points = d.points;
    in.m_probeRadius = pc.data.offset;
    CFitResult out;
    ASSERT_EQ(KFitTorus(in, out), 1);

    const DenseMatrix c = metrofit::testing::NormalInverse(
        metrofit::testing::ResidualJacobian(d.truth, d.feet), {0, 1, 2, 3, 4, 5, 6});
    ASSERT_GT(c.rows, 0);
    const double k = kSigmas * pc.data.noise;
    const FitErrors tol{k * metrofit::testing::RootTrace(c, {0, 1, 2}) + kLengthFloor,
                        k * metrofit::testing::RootTrace(c, {3, 4}) + kAngleFloor,
                        k * metrofit::testing::RootTrace(c, {5}) + kLengthFloor,
                        k * metrofit::testing::RootTrace(c, {6}) + kLengthFloor};
    ExpectWithin(ErrorsOf(d.truth, out), tol, worst, pc.name);
    if (pc.data.noise > 0.0 && pc.data.offset == 0.0) ExpectStationary(out, d.points);
  }
}

TorusCase Partial(double major, double minor, double spanDeg, double tubeDeg, double noise,
                  std::uint64_t seed) {
  TorusCase tc;
  tc.centre = Unit(Pt(0.6, -0.48, 0.64)) * 300.0;
  tc.axis = Pt(0.2, 0.3, 0.93);
  tc.major = major;
  tc.minor = minor;
  tc.span = spanDeg * kDegree;
  tc.tube = tubeDeg * kDegree;
  tc.count = 120;
  tc.noise = noise;
  tc.seed = seed;
  return tc;
}

TEST(TorusFit, PartialTubesStayWithinThePropagatedNoise) {
  WorstError worst("partial tube: error / propagated bound");
  RunPartialCases(
      {{"full ring, outer half tube, R 50 r 5, 2 um", Partial(50, 5, 360, 180, 0.002, 81)},
       {"180 deg, outer half tube, R 100 r 10, 5 um", Partial(100, 10, 180, 180, 0.005, 82)},
       {"90 deg, outer half tube, R 200 r 20, 10 um", Partial(200, 20, 90, 180, 0.010, 83)},
       {"180 deg, 120 deg of tube, R 100 r 10, 5 um", Partial(100, 10, 180, 120, 0.005, 84)}},
      worst);
}

// Probe-ball centres one probe radius outside the tube, fitted with the probe radius: the
// surface comes back.
TEST(TorusFit, ProbeCentresOnASegmentGiveTheSurface) {
  WorstError worst("probe centres on a segment: error / propagated bound");
  TorusCase exact = Partial(80, 8, 180, 240, 0.0, 85);
  exact.offset = 2.0;
  TorusCase noisy = Partial(80, 8, 180, 240, 0.003, 86);
  noisy.offset = 2.0;
  RunPartialCases({{"180 deg, 240 deg of tube, probe 2, exact", exact},
                   {"180 deg, 240 deg of tube, probe 2, 3 um", noisy}},
                  worst);
}

}  // namespace
