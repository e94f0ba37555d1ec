// Multi-start cone fit end to end: KFitCone on cones whose least-squares solution is known, on
// rough data (stationarity), and the few-point case.
//
// Each cone candidate runs the cone refinement, whose points are centred on the centroid, so
// unlike the cylinder these fits do not depend on the input's reference point.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "composite/composite_test_util.h"
#include "composite/cylinder_cone_fit.h"
#include "metrofit.h"
#include "support/geometry_compare.h"
#include "support/known_solution.h"

namespace metrofit {
namespace {

using testing::DirectedAngle;
using testing::DistancePointToLine;
using testing::GeneratorOptions;
using testing::KnownSolution;
using testing::Pt;
using testing::Shape;
using testing::ShapeTruth;

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;
// The bound used for every least-squares result of the library: the parameters lie where the
// sum of squares exceeds its minimum by at most 1e-6 of itself. The refinement's own step test
// (no parameter moving by more than 1e-10) lands far inside it.
constexpr double kRelativeExcess = 1e-6;
constexpr double kLengthFloor = 1e-9;  // mm, rounding at 500 mm from the origin
constexpr double kAngleFloor = 1e-11;  // rad

ShapeTruth FittedCone(const CFitResult& out) {
  ShapeTruth c;
  c.shape = Shape::kCone;
  c.centre = out.m_center;
  c.axis = out.m_axis;
  c.halfAngle = std::atan(1.0 / out.m_size2.z);
  return c;
}

TEST(ConeFit, FourPointsReturnZeroAndLeaveBothRecordsUnchanged) {
  CFitInput in;
  in.m_points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  in.m_fitType = FIT_SPHERE;
  CFitResult out;
  out.m_valid = 1;
  out.m_size2.z = 2.5;
  EXPECT_EQ(FitCylinderOrCone(FIT_CONE, in, out), 0.0);
  EXPECT_EQ(out.m_valid, 1);
  EXPECT_EQ(out.m_size2.z, 2.5);
  EXPECT_EQ(in.m_fitType, FIT_SPHERE);
  EXPECT_EQ(in.m_centerParam.mode[0], 0);
  // The entry point stamps its code and returns what the result held.
  EXPECT_EQ(KFitCone(in, out), 1);
  EXPECT_EQ(in.m_fitType, FIT_CONE);
  EXPECT_EQ(out.m_size2.z, 2.5);
}

struct ConeCase {
  int points;
  double span;
  double radius;     // at mid-band
  double halfAngle;  // rad
  double noise;      // micrometres
};

double TiltFor(int i) {
  const double u = std::fmod(0.25 + 0.6180339887498949 * i, 1.0);
  return std::acos(1.0 - 2.0 * u);
}

struct Worst {
  testing::WorstError angle{"cone axis angle / bound"};
  testing::WorstError apex{"cone apex / bound"};
  testing::WorstError axisAtBand{"cone axis at mid-band / bound"};
  testing::WorstError halfAngle{"cone half-angle / bound"};
  testing::WorstError noiseUnits{"cone largest error in noise levels"};
};

void CheckRecovered(const ConeCase& k, int index, Worst& worst) {
  GeneratorOptions o;
  o.pointCount = k.points;
  o.arcSpan = k.span;
  o.radius = k.radius;
  o.halfAngle = k.halfAngle;
  o.noiseMicrometres = k.noise;
  // A band of twice the radius, kept clear of the apex for the wide cones.
  o.length = std::fmin(2.0 * k.radius, 1.5 * k.radius / std::tan(k.halfAngle));
  o.centreOffset = 500.0;
  o.axisTilt = TiltFor(index);
  o.seed = 3000 + static_cast<std::uint64_t>(index);
  const KnownSolution s = testing::GenerateKnownSolution(Shape::kCone, o);
  const std::string where = "case " + std::to_string(index) + ", n " + std::to_string(k.points) +
                            ", half-angle " + std::to_string(k.halfAngle / kDegree) + " deg";
  SCOPED_TRACE(where);

  CFitInput in;
  in.m_points = s.points;
  CFitResult out;
  ASSERT_EQ(KFitCone(in, out), 1);

  const testing::ConvergenceBounds b = testing::BoundsFor(s, kRelativeExcess);
  const double midHeight = k.radius / std::tan(k.halfAngle);
  const Pt midAxis = s.truth.centre + s.truth.axis * midHeight;
  // The fitted axis opens towards increasing radius, like the generated one.
  const double angle = DirectedAngle(out.m_axis, s.truth.axis);
  const double apex = (out.m_center - s.truth.centre).Length();
  const double axisAtBand = DistancePointToLine(midAxis, out.m_center, out.m_axis);
  const double half = std::fabs(std::atan(1.0 / out.m_size2.z) - s.truth.halfAngle);
  const double bandBound = b.position + b.axisAngle * midHeight;
  EXPECT_LE(angle, b.axisAngle + kAngleFloor);
  EXPECT_LE(apex, b.position + kLengthFloor);
  EXPECT_LE(axisAtBand, bandBound + kLengthFloor);
  EXPECT_LE(half, b.halfAngle + kAngleFloor);
  worst.angle.Update(angle / b.axisAngle, where);
  worst.apex.Update(apex / b.position, where);
  worst.axisAtBand.Update(axisAtBand / bandBound, where);
  worst.halfAngle.Update(half / b.halfAngle, where);
  const double noise = k.noise * 1e-3;
  worst.noiseUnits.Update(std::fmax(axisAtBand, std::fmax(angle, half) * 2.0 * k.radius) / noise,
                          where);
}

TEST(ConeFit, RecoversKnownLeastSquaresConesFarFromTheOrigin) {
  // Random axis directions 500 mm from the origin, half-angles 5 to 60 degrees, full and
  // 120-degree sectors, radius 5 to 50 mm, noise 1 to 10 micrometres, 20 to 500 points.
  const double halfAngles[] = {5.0, 15.0, 30.0, 45.0, 60.0};
  const double radii[] = {5.0, 12.0, 25.0, 50.0};
  const double noises[] = {1.0, 3.0, 10.0};
  const int counts[] = {20, 60, 200, 500};
  Worst worst;
  int index = 0;
  for (const int n : counts) {
    for (const double span : {2.0 * kPi, 2.0 * kPi / 3.0}) {
      for (int rep = 0; rep < 2; ++rep, ++index) {
        CheckRecovered(
            {n, span, radii[index % 4], halfAngles[index % 5] * kDegree, noises[index % 3]}, index,
            worst);
      }
    }
  }
}

TEST(ConeFit, RecoversLargeKnownCone) {
  Worst worst;
  CheckRecovered({2000, 2.0 * kPi / 3.0, 20.0, 10.0 * kDegree, 5.0}, 100, worst);
}

TEST(ConeFit, ApexIsThePointOfTheConeWhateverTheReferencePoint) {
  // The cone's centre is its apex, a point of the shape: unlike the cylinder's axis point it is
  // not moved to a foot from the reference point.
  GeneratorOptions o;
  o.pointCount = 80;
  o.radius = 12.0;
  o.halfAngle = 20.0 * kDegree;
  o.length = 20.0;
  o.noiseMicrometres = 2.0;
  o.centreOffset = 500.0;
  o.axisTilt = 0.8;
  o.seed = 61;
  const KnownSolution s = testing::GenerateKnownSolution(Shape::kCone, o);
  const testing::ConvergenceBounds b = testing::BoundsFor(s, kRelativeExcess);
  const Pt c = composite_test::Centroid(s.points);
  CFitResult first;
  bool haveFirst = false;
  for (const Pt ref : {Pt(), c, c + Pt(30.0, -20.0, 10.0), Pt(-250.0, 1200.0, 40.0)}) {
    SCOPED_TRACE(::testing::Message() << "ref " << ref.x << " " << ref.y << " " << ref.z);
    CFitResult out;
    ASSERT_TRUE(composite_test::FitAbout(KFitCone, s.points, ref, out));
    EXPECT_LE((out.m_center - s.truth.centre).Length(), b.position + kLengthFloor);
    EXPECT_LE(DirectedAngle(out.m_axis, s.truth.axis), b.axisAngle + kAngleFloor);
    if (!haveFirst) {
      first = out;
      haveFirst = true;
    }
    EXPECT_EQ(out.m_center, first.m_center);
    EXPECT_EQ(out.m_axis, first.m_axis);
    EXPECT_EQ(out.m_size2.z, first.m_size2.z);
  }
}

TEST(ConeFit, ResultIsAStationaryPointOfTheOrthogonalDistances) {
  // Exact cone points moved by raw 3-D noise: the least-squares cone is unknown, but the
  // gradient of the sum of squared distances must vanish at it.
  GeneratorOptions o;
  o.pointCount = 300;
  o.radius = 15.0;
  o.halfAngle = 25.0 * kDegree;
  o.length = 20.0;
  o.arcSpan = 2.0 * kPi / 3.0;
  o.centreOffset = 500.0;
  o.axisTilt = 2.1;
  o.seed = 78;
  const KnownSolution exact = testing::GenerateKnownSolution(Shape::kCone, o);
  const std::vector<Pt> pts = composite_test::Roughen(exact.surfacePoints, 0.035, 78);
  CFitInput in;
  in.m_points = pts;
  CFitResult out;
  ASSERT_EQ(KFitCone(in, out), 1);
  const ShapeTruth fitted = FittedCone(out);
  double sum = 0.0;
  const double excess = composite_test::ExcessOverMinimum(fitted, pts, &sum);
  const double allowed = 4.0 * kRelativeExcess * sum;
  EXPECT_LE(excess, allowed);
  std::printf("[worst] cone excess over minimum / allowed: %.3e\n", excess / allowed);

  // The same check rejects a cone ten bounds off in its half-angle.
  const testing::ConvergenceBounds b = testing::BoundsFor(fitted, pts, sum, kRelativeExcess);
  ShapeTruth off = fitted;
  off.halfAngle += 10.0 * b.halfAngle;
  double offSum = 0.0;
  EXPECT_GT(composite_test::ExcessOverMinimum(off, pts, &offSum), allowed);
}

// The winning candidate's result comes from the cone refinement, which writes apex, axis, slope,
// m_sigma, m_formError (peak to valley) and m_valid only; the result is handed over by
// assignment, which never copies deviation vectors. So the caller's deviation list, m_rms,
// m_iterations and the smallest and largest deviation stay as the caller's result held them.
TEST(ConeFit, RefinedConeLeavesDeviationsRmsAndIterationsAsTheCallerHadThem) {
  const KnownSolution s = composite_test::SmallNoisyPart(Shape::kCone, 0.5, 10.0, 5);
  for (bool fresh : {true, false}) {
    SCOPED_TRACE(fresh ? "fresh result" : "result of an earlier fit");
    CFitInput in;
    in.m_points = s.points;
    CFitResult out;
    if (!fresh) {
      out.m_deviations = {Pt(1, 2, 3)};
      out.m_rms = 0.75;
      out.m_iterations = 9;
      out.m_minDeviation = 0.125;
      out.m_maxDeviation = 0.5;
    }
    ASSERT_EQ(KFitCone(in, out), 1);
    EXPECT_GT(out.m_sigma, 0.0);
    EXPECT_GT(out.m_formError, 0.0);
    EXPECT_EQ(out.m_deviations.size(), fresh ? 0u : 1u);
    EXPECT_EQ(out.m_rms, fresh ? 0.0 : 0.75);
    EXPECT_EQ(out.m_iterations, fresh ? 0 : 9);
    EXPECT_EQ(out.m_minDeviation, fresh ? 0.0 : 0.125);
    EXPECT_EQ(out.m_maxDeviation, fresh ? 0.0 : 0.5);
  }
}

TEST(ConeFit, CallerInputEndsWithTheLastFittedCandidate) {
  const KnownSolution s = composite_test::SmallNoisyPart(Shape::kCone, 0.5, 10.0, 4);
  CFitInput in;
  in.m_points = s.points;
  CFitResult out;
  CandidateTrace trace;
  FitCylinderOrCone(FIT_CONE, in, out, &trace);
  int last = -1;
  for (int k = 0; k < kCandidateCount; ++k)
    if (trace.fitted[k]) last = k;
  ASSERT_GE(last, 0);
  EXPECT_EQ(in.m_fitType, FIT_CONE);
  for (int m : in.m_axisParam.mode) EXPECT_EQ(m, 2);
  for (int m : in.m_centerParam.mode) EXPECT_EQ(m, 2);
  // The slope start of that candidate: axial over radial extent about its start axis.
  const Pt c = in.m_centerParam.value;
  const Pt a = in.m_axisParam.value;
  double rhoMin = 1e38, rhoMax = -1e38, zMin = 1e38, zMax = -1e38;
  for (const Pt& p : s.points) {
    const double rho = DistancePointToLine(p, c, a);
    const double z = (p - c).Dot(a) / a.Dot(a);
    rhoMin = std::fmin(rhoMin, rho);
    rhoMax = std::fmax(rhoMax, rho);
    zMin = std::fmin(zMin, z);
    zMax = std::fmax(zMax, z);
  }
  EXPECT_NEAR(in.m_size2Param.value.z, (zMax - zMin) / (rhoMax - rhoMin), 1e-9);
  EXPECT_EQ(in.m_size2Param.mode[2], 2);
  ASSERT_GE(trace.chosen, 0);
  EXPECT_TRUE(trace.fitted[trace.chosen]);
}

}  // namespace
}  // namespace metrofit
