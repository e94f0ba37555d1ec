// Extended line fit: orthogonal regression through the centroid along the principal direction.
#include "extended/line_fit_ex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/form_error.h"
#include "extended/extended_status.h"
#include "metrofit.h"
#include "numeric/centred_copy.h"
#include "numeric/numeric_test_util.h"
#include "numeric/svd.h"
#include "support/geometry_compare.h"

namespace metrofit {
namespace {

using numeric::AllocationFailurePending;
using numeric::FailAllocationAfter;
using numeric::testing::Gauss;
using numeric::testing::NoLeakScope;
using numeric::testing::RandomUnit;
using numeric::testing::Rng;
using numeric::testing::SweepAllocationFailures;
using numeric::testing::Uniform;
using Pt = KPt3<double>;
using LD = long double;

// n points along c + t a, t uniform over `length`, with Gaussian noise across the line only.
std::vector<Pt> LinePoints(Rng& rng, int n, const Pt& c, const Pt& a, double length, double noise) {
  Pt helper = std::fabs(a.x) < 0.6 ? Pt(1, 0, 0) : Pt(0, 1, 0);
  Pt u = a.Cross(helper);
  u.Normalize();
  const Pt v = a.Cross(u);
  std::vector<Pt> pts;
  for (int i = 0; i < n; ++i) {
    const double t = Uniform(rng, -0.5 * length, 0.5 * length);
    Pt p = c + a * t;
    if (noise > 0.0) p += u * Gauss(rng, noise) + v * Gauss(rng, noise);
    pts.push_back(p);
  }
  return pts;
}

std::vector<double> Flatten(const std::vector<Pt>& pts) {
  std::vector<double> xyz;
  for (const Pt& p : pts) {
    xyz.push_back(p.x);
    xyz.push_back(p.y);
    xyz.push_back(p.z);
  }
  return xyz;
}

CFitInput InputOf(const std::vector<Pt>& pts) {
  CFitInput in;
  in.m_points = pts;
  return in;
}

// Sum of squared orthogonal distances from the line (c, a), a of unit length, extended precision.
LD SumSq(const std::vector<Pt>& pts, const LD* c, const LD* a) {
  LD s = 0.0L;
  for (const Pt& p : pts) {
    const LD q[3] = {p.x - c[0], p.y - c[1], p.z - c[2]};
    const LD w[3] = {q[1] * a[2] - q[2] * a[1], q[2] * a[0] - q[0] * a[2],
                     q[0] * a[1] - q[1] * a[0]};
    s += w[0] * w[0] + w[1] * w[1] + w[2] * w[2];
  }
  return s;
}

// The four degrees of freedom of a line: shifts of the centre along e1, e2 and rotations of the
// axis about e1, e2 (e1, e2 orthogonal to the axis). Returns the parabola vertex offset along
// freedom j for step h (a length or an angle).
double VertexOffset(const std::vector<Pt>& pts, const Pt& c, const Pt& a, int j, double h) {
  Pt helper = std::fabs(a.x) < 0.6 ? Pt(1, 0, 0) : Pt(0, 1, 0);
  Pt e1 = a.Cross(helper);
  e1.Normalize();
  const Pt e2 = a.Cross(e1);
  const auto eval = [&](double t) {
    LD cc[3] = {c.x, c.y, c.z};
    LD aa[3] = {a.x, a.y, a.z};
    const Pt& e = (j % 2 == 0) ? e1 : e2;
    const LD ev[3] = {e.x, e.y, e.z};
    if (j < 2) {
      for (int k = 0; k < 3; ++k) cc[k] += t * ev[k];
    } else {  // rotate the axis towards e by the angle t
      for (int k = 0; k < 3; ++k)
        aa[k] = std::cos(static_cast<LD>(t)) * aa[k] + std::sin(static_cast<LD>(t)) * ev[k];
    }
    return SumSq(pts, cc, aa);
  };
  const LD s0 = eval(0.0);
  const LD sp = eval(h);
  const LD sm = eval(-h);
  return static_cast<double>(-h * (sp - sm) / (2.0L * (sp - 2.0L * s0 + sm)));
}

const Pt kCmmCentre(520.0, -480.0, 300.0);

// ---------------------------------------------------------------------------------------------

Pt UnitFrom(Rng& rng) {
  double u[3];
  RandomUnit(rng, u);
  return Pt(u[0], u[1], u[2]);
}

// KFitLineEx measures straightness on the points themselves and asks FitLineEx for no
// distances: on the points as KPt3 and without distances, the line must be the one of the
// full computation (flat copy, distances, largest distance) to the last bit.
TEST(FitLineEx, LineWithoutDistancesIsTheFullComputationsLine) {
  Rng rng(2026);
  for (int trial = 0; trial < 12; ++trial) {
    const int n = trial == 0 ? 2 : 3 + 700 * trial;
    const Pt c(Uniform(rng, -600, 600), Uniform(rng, -600, 600), Uniform(rng, -600, 600));
    const std::vector<Pt> pts = LinePoints(rng, n, c, UnitFrom(rng), 80.0, 0.003);
    std::vector<double> flat;
    for (const Pt& p : pts) flat.insert(flat.end(), {p.x, p.y, p.z});
    std::vector<double> distances(static_cast<std::size_t>(n), -1.0);
    double full[kLineRecordSize] = {0, 0, 0, 0, 0, 1, 0, 0};
    double lean[kLineRecordSize] = {0, 0, 0, 0, 0, 1, 0, 0};
    lean[6] = full[6] = -7.0;
    ASSERT_EQ(FitLineEx(full, n, flat.data(), distances.data()), ExtendedStatus::kOk);
    ASSERT_EQ(FitLineEx(lean, n, pts.data(), nullptr), ExtendedStatus::kOk);
    for (int k = 0; k < 6; ++k)
      EXPECT_EQ(std::memcmp(&full[k], &lean[k], sizeof(double)), 0) << trial << " " << k;
    EXPECT_EQ(lean[6], -7.0);  // left alone without distances
    EXPECT_EQ(full[6], *std::max_element(distances.begin(), distances.end()));
  }
}

// The coincidence scan may stop early; its answer must be the mean distance's against the
// bound, computed in full.
TEST(KFitLineEx, CoincidenceScanAnswersAsTheFullMean) {
  const auto full = [](const std::vector<Pt>& pts) {
    Pt g;
    for (const Pt& p : pts) g += p;
    g = g * (1.0 / static_cast<double>(pts.size()));
    double spread = 0.0;
    for (const Pt& p : pts) spread += (p - g).Length();
    return spread / static_cast<double>(pts.size()) < 2.220446049250313e-15;
  };
  Rng rng(77);
  const Pt c(512.25, -300.5, 75.125);
  std::vector<std::vector<Pt>> sets;
  sets.push_back(std::vector<Pt>(5000, c));  // coincident
  sets.push_back(std::vector<Pt>(5000, c));  // one point off, at the very end
  sets.back().back() = c + Pt(1e-9, 0, 0);
  sets.push_back(std::vector<Pt>(5000, c));  // a NaN first, then spread points
  sets.back()[0].x = std::nan("");
  std::vector<Pt> spread;
  for (int i = 0; i < 5000; ++i) spread.push_back(c + UnitFrom(rng) * Uniform(rng, 0, 20));
  sets.push_back(spread);                    // spread out: the scan stops early
  sets.push_back(std::vector<Pt>(3000, c));  // a ulp-level spread
  for (std::size_t i = 0; i < sets.back().size(); i += 2)
    sets.back()[i].y = std::nextafter(c.y, 0.0);
  sets.push_back(spread);  // a NaN late, after the scan could stop
  sets.back()[4000].z = std::nan("");
  for (std::size_t k = 0; k < sets.size(); ++k)
    EXPECT_EQ(PointsCoincide(sets[k]), full(sets[k])) << k;
  EXPECT_TRUE(PointsCoincide(sets[0]));
  EXPECT_FALSE(PointsCoincide(sets[3]));
}

TEST(KFitLineEx, TwoIdenticalPoints) {
  CFitInput in = InputOf({Pt(3, -4, 5), Pt(3, -4, 5)});
  CFitResult out;
  out.m_sigma = out.m_rms = out.m_minDeviation = out.m_maxDeviation = out.m_extraValue = 9.0;
  out.m_formError = 9.0;
  EXPECT_EQ(KFitLineEx(in, out), 1);
  EXPECT_EQ(in.m_fitType, FIT_LINE);
  EXPECT_EQ(out.m_center, Pt(3, -4, 5));
  EXPECT_EQ(out.m_axis, Pt(0, 0, 1));
  EXPECT_EQ(out.m_formError, 0.0);
  EXPECT_EQ(out.m_sigma, 0.0);
  EXPECT_EQ(out.m_rms, 0.0);
  EXPECT_EQ(out.m_minDeviation, 0.0);
  EXPECT_EQ(out.m_maxDeviation, 0.0);
  EXPECT_EQ(out.m_extraValue, 0.0);
  ASSERT_EQ(out.m_deviations.size(), 2u);
  EXPECT_EQ(out.m_deviations[0], Pt(0, 0, 0));
  EXPECT_EQ(out.m_valid, 1);
}

TEST(KFitLineEx, TwoDistinctPointsGiveMidpointAndUnitDirection) {
  CFitInput in = InputOf({Pt(1, 1, 1), Pt(4, 5, 1)});
  CFitResult out;
  out.m_deviations.push_back(Pt(1, 2, 3));  // appended to, not replaced
  EXPECT_EQ(KFitLineEx(in, out), 1);
  EXPECT_EQ(out.m_center, Pt(2.5, 3, 1));
  EXPECT_NEAR(out.m_axis.x, 0.6, 2.3e-16);
  EXPECT_NEAR(out.m_axis.y, 0.8, 2.3e-16);
  EXPECT_EQ(out.m_axis.z, 0.0);
  EXPECT_EQ(out.m_deviations.size(), 3u);
}

TEST(KFitLineEx, ThreeOrMoreIdenticalPoints) {
  for (int n : {3, 7}) {
    CFitInput in = InputOf(std::vector<Pt>(n, Pt(512.5, -0.25, 8.0)));
    CFitResult out;
    out.m_formError = 4.0;
    EXPECT_EQ(KFitLineEx(in, out), 1);
    EXPECT_EQ(out.m_center, Pt(512.5, -0.25, 8.0));
    EXPECT_EQ(out.m_axis, Pt(0, 0, 1));
    EXPECT_EQ(out.m_formError, 0.0);
    EXPECT_EQ(out.m_valid, 1);
  }
}

TEST(KFitLineEx, PointsExactlyOnALineGiveTheUnitDirectionWithTheSingularVectorSign) {
  NoLeakScope scope;
  Rng rng(601);
  for (int trial = 0; trial < 8; ++trial) {
    double u[3];
    RandomUnit(rng, u);
    const Pt a(u[0], u[1], u[2]);
    const std::vector<Pt> pts = LinePoints(rng, 200, kCmmCentre, a, 100.0, 0.0);
    CFitInput in = InputOf(pts);
    CFitResult out;
    ASSERT_EQ(KFitLineEx(in, out), 1);
    EXPECT_NEAR(out.m_axis.Length(), 1.0, 1e-15);
    EXPECT_LT(metrofit::testing::AxisAngle(out.m_axis, a), 1e-13) << trial;
    EXPECT_LT(metrofit::testing::DistancePointToLine(out.m_center, kCmmCentre, a),
              1e-12 * kCmmCentre.Length());
    EXPECT_LT(out.m_formError, 1e-11);

    // The sign is that of the singular vector itself: the previous direction is zero.
    std::vector<double> xyz = Flatten(pts);
    double record[kLineRecordSize] = {0, 0, 0, 0, 0, 0, 0, 0};
    numeric::UniquePointSet centred;
    ASSERT_EQ(static_cast<int>(numeric::CentredCopy(200, xyz.data(), record, true, centred)), 0);
    numeric::UniqueVector x(numeric::CreateVector(6));
    ASSERT_EQ(
        static_cast<int>(numeric::PrincipalDirectionSVD(centred.get(), x.get(), 200, nullptr)), 0);
    EXPECT_EQ(out.m_axis, Pt((*x)[3], (*x)[4], (*x)[5]));
  }
}

TEST(KFitLineEx, OnePointOrNoneLeavesTheResultUnchanged) {
  for (int n : {0, 1}) {
    for (int valid : {0, 1}) {
      CFitInput in = InputOf(std::vector<Pt>(n, Pt(1, 2, 3)));
      in.m_fitType = FIT_SPHERE;
      CFitResult out;
      out.m_valid = valid;
      out.m_center = Pt(7, 8, 9);
      out.m_axis = Pt(0, 1, 0);
      out.m_formError = 0.5;
      EXPECT_EQ(KFitLineEx(in, out), valid);
      EXPECT_EQ(in.m_fitType, FIT_LINE);
      EXPECT_EQ(out.m_valid, valid);
      EXPECT_EQ(out.m_center, Pt(7, 8, 9));
      EXPECT_EQ(out.m_axis, Pt(0, 1, 0));
      EXPECT_EQ(out.m_formError, 0.5);
      EXPECT_TRUE(out.m_deviations.empty());
    }
  }
}

TEST(KFitLineEx, NoisyTiltedLinesGiveAStationaryPointOfTheSquaredDistances) {
  NoLeakScope scope;
  Rng rng(602);
  for (int trial = 0; trial < 6; ++trial) {
    double u[3];
    RandomUnit(rng, u);
    const Pt a(u[0], u[1], u[2]);
    const double noise = 1e-3;
    const std::vector<Pt> pts = LinePoints(rng, 500, kCmmCentre, a, 100.0, noise);
    CFitInput in = InputOf(pts);
    CFitResult out;
    ASSERT_EQ(KFitLineEx(in, out), 1);
    // Closed-form solution: the stationary point is met to rounding, so the parabola vertices
    // lie within a few hundredths of a nanometre and nanoradians.
    for (int j = 0; j < 2; ++j) {
      EXPECT_LT(std::fabs(VertexOffset(pts, out.m_center, out.m_axis, j, 1e-3)), 1e-10) << j;
    }
    for (int j = 2; j < 4; ++j) {
      EXPECT_LT(std::fabs(VertexOffset(pts, out.m_center, out.m_axis, j, 1e-5)), 1e-12) << j;
    }
    // Near the truth: the direction to about noise / length / sqrt(n) radians.
    EXPECT_LT(metrofit::testing::AxisAngle(out.m_axis, a), 1e-5);
    EXPECT_LT(metrofit::testing::DistancePointToLine(out.m_center, kCmmCentre, a), 1e-3);
    EXPECT_EQ(out.m_formError, LineFormError(pts, out.m_center, out.m_axis));
    EXPECT_GT(out.m_formError, 2.0 * noise);
  }
}

TEST(FitLineEx, DistancesAndLargestDistance) {
  NoLeakScope scope;
  const std::vector<Pt> pts = {Pt(0, 0, 0), Pt(10, 0, 1), Pt(20, 0, 0), Pt(30, 0, -1)};
  std::vector<double> xyz = Flatten(pts);
  std::vector<double> dist(12, -1.0);
  double record[kLineRecordSize] = {0, 0, 0, 0, 0, 0, 0, 0};
  ASSERT_EQ(static_cast<int>(FitLineEx(record, 4, xyz.data(), dist.data())), 0);
  const Pt c(record[0], record[1], record[2]);
  const Pt a(record[3], record[4], record[5]);
  EXPECT_EQ(c, Pt(15, 0, 0));
  double largest = 0.0;
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(dist[i], metrofit::testing::DistancePointToLine(pts[i], c, a), 1e-14);
    largest = std::max(largest, dist[i]);
  }
  EXPECT_EQ(record[6], largest);
  EXPECT_EQ(dist[4], -1.0);  // only the first n entries are written
}

TEST(FitLineEx, TwoPointsFollowThePreviousDirectionOrReportCoincidence) {
  NoLeakScope scope;
  const double xyz[6] = {1, 1, 1, 1, 1, 4};
  double dist[6] = {0};
  double record[kLineRecordSize] = {0, 0, 0, 0, 0, -1, 0, 0};  // previous direction -z
  ASSERT_EQ(static_cast<int>(FitLineEx(record, 2, xyz, dist)), 0);
  EXPECT_EQ(record[2], 2.5);
  EXPECT_EQ(record[5], -1.0);  // flipped to agree with the previous direction
  record[5] = 0.5;
  ASSERT_EQ(static_cast<int>(FitLineEx(record, 2, xyz, dist)), 0);
  EXPECT_EQ(record[5], 1.0);

  const double close[6] = {1, 1, 1, 1, 1, 1 + 5e-8};  // closer than 1e-7
  double rec2[kLineRecordSize] = {0, 0, 0, 0.6, 0.8, 0, 0, 0};
  EXPECT_EQ(static_cast<int>(FitLineEx(rec2, 2, close, dist)), 2);
  EXPECT_EQ(rec2[3], 0.6);  // direction left as it was
  EXPECT_EQ(rec2[4], 0.8);
}

TEST(KFitLineEx, AllocationFailuresGiveAnInvalidFitAndLeakNothing) {
  NoLeakScope scope;
  Rng rng(603);
  const std::vector<Pt> pts = LinePoints(rng, 30, Pt(1, 2, 3), Pt(0, 0.6, 0.8), 10.0, 1e-3);
  std::vector<std::int32_t> statuses;
  SweepAllocationFailures([&](int k) {
    std::vector<double> xyz = Flatten(pts);
    std::vector<double> dist(90, 0.0);
    double record[kLineRecordSize] = {0, 0, 0, 0, 0, 0, 0, 0};
    FailAllocationAfter(k);
    statuses.push_back(static_cast<std::int32_t>(FitLineEx(record, 30, xyz.data(), dist.data())));
  });
  // Two copies, the parameter vector, then the decomposition's V, w, header and two work
  // vectors.
  const std::vector<std::int32_t> want = {1, 1, 131, 131, 131, 131, 131, 131, 0};
  EXPECT_EQ(statuses, want);

  int invalid = 0;
  SweepAllocationFailures([&](int k) {
    CFitInput in = InputOf(pts);
    CFitResult out;
    out.m_valid = 1;
    FailAllocationAfter(k);
    const std::int32_t valid = KFitLineEx(in, out);
    const bool failed = !AllocationFailurePending();
    EXPECT_EQ(valid, failed ? 0 : 1) << k;
    invalid += failed ? 1 : 0;
  });
  // One centred copy (the fit asks for no distances), then the parameter vector and the
  // decomposition's five objects.
  EXPECT_EQ(invalid, 7);
}

}  // namespace
}  // namespace metrofit
