// Helpers shared by the cylinder and cone fit tests: centroid, rough data and the first-order
// excess of a sum of squared orthogonal distances over its minimum.
#ifndef METROFIT_TESTS_COMPOSITE_COMPOSITE_TEST_UTIL_H
#define METROFIT_TESTS_COMPOSITE_COMPOSITE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "metrofit.h"
#include "support/known_solution.h"

namespace metrofit::composite_test {

using testing::Pt;

inline Pt Centroid(const std::vector<Pt>& pts) {
  Pt c;
  for (const Pt& p : pts) c += p;
  return c * (1.0 / static_cast<double>(pts.size()));
}

// Forty points with 2 um of noise on a part of the given radius whose axis is tilted by
// `axisTilt` from +z (cone: half-angle 0.3): small data for checking what a fit leaves behind.
inline testing::KnownSolution SmallNoisyPart(testing::Shape shape, double axisTilt, double radius,
                                             std::uint64_t seed) {
  testing::GeneratorOptions o;
  o.pointCount = 40;
  o.noiseMicrometres = 2.0;
  o.axisTilt = axisTilt;
  o.radius = radius;
  if (shape == testing::Shape::kCone) o.halfAngle = 0.3;
  o.seed = seed;
  return testing::GenerateKnownSolution(shape, o);
}

// Each point moved by independent uniform draws per coordinate in [-amplitude/2, amplitude/2)
// (standard deviation amplitude / sqrt(12) per coordinate). Unlike the known-solution noise
// nothing is projected out, so the least-squares solution of the result is not known.
inline std::vector<Pt> Roughen(const std::vector<Pt>& pts, double amplitude, std::uint64_t seed) {
  std::mt19937_64 rng(seed);
  auto uniform = [&rng] { return static_cast<double>(rng() >> 11) * 0x1.0p-53 - 0.5; };
  std::vector<Pt> out;
  out.reserve(pts.size());
  for (const Pt& p : pts) {
    const double u = uniform(), v = uniform(), w = uniform();
    out.push_back(p + Pt(u, v, w) * amplitude);
  }
  return out;
}

// Runs `fit` (KFitCylinder, KFitCone) on the points with the reference point `ref` into
// `out`; true when it succeeds. The caller's reference point must come back unchanged.
inline bool FitAbout(std::int32_t (*fit)(CFitInput&, CFitResult&), const std::vector<Pt>& pts,
                     const Pt& ref, CFitResult& out) {
  CFitInput in;
  in.m_points = pts;
  in.m_refPoint = ref;
  const bool ok = fit(in, out) == 1;
  EXPECT_EQ(in.m_refPoint, ref) << "the reference point was not given back";
  return ok;
}

// g^T (J^T J)^-1 g, with r the signed orthogonal distances of the points from `shape`, J their
// Jacobian in the shape's minimal parametrisation (central differences) and g = J^T r. Near the
// minimum S* of S = sum r^2 this is S - S* to first order; it vanishes at a stationary point.
// *sum receives S.
inline double ExcessOverMinimum(const testing::ShapeTruth& shape, const std::vector<Pt>& pts,
                                double* sum) {
  const testing::DenseMatrix j = testing::ResidualJacobian(shape, pts);
  const int p = j.cols;
  testing::DenseMatrix a(p, p);
  std::vector<double> g(static_cast<std::size_t>(p), 0.0);
  *sum = 0.0;
  for (int i = 0; i < j.rows; ++i) {
    const double r = testing::SignedDistance(shape, pts[static_cast<std::size_t>(i)]);
    *sum += r * r;
    for (int c = 0; c < p; ++c) {
      g[static_cast<std::size_t>(c)] += j(i, c) * r;
      for (int d = 0; d < p; ++d) a(c, d) += j(i, c) * j(i, d);
    }
  }
  // Cholesky factor L of J^T J in the lower triangle; the excess is |L^-1 g|^2.
  for (int c = 0; c < p; ++c) {
    for (int d = 0; d <= c; ++d) {
      double v = a(c, d);
      for (int e = 0; e < d; ++e) v -= a(c, e) * a(d, e);
      a(c, d) = c == d ? std::sqrt(v) : v / a(d, d);
    }
  }
  std::vector<double> y(static_cast<std::size_t>(p), 0.0);
  double excess = 0.0;
  for (int c = 0; c < p; ++c) {
    double v = g[static_cast<std::size_t>(c)];
    for (int e = 0; e < c; ++e) v -= a(c, e) * y[static_cast<std::size_t>(e)];
    y[static_cast<std::size_t>(c)] = v / a(c, c);
    excess += y[static_cast<std::size_t>(c)] * y[static_cast<std::size_t>(c)];
  }
  return excess;
}

}  // namespace metrofit::composite_test

#endif  // METROFIT_TESTS_COMPOSITE_COMPOSITE_TEST_UTIL_H
