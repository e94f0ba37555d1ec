// Helpers for the estimator tests: the constraint matrix and parameter vector an estimator
// receives, synthetic frames with known truth, and tolerance checks.
#ifndef METROFIT_TESTS_ESTIMATE_ESTIMATE_TEST_SUPPORT_H
#define METROFIT_TESTS_ESTIMATE_ESTIMATE_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "metrofit.h"

namespace metrofit_test {

constexpr double kPi = 3.141592653589793;

// The two matrices an estimator is called with, owned by the test. Every parameter starts at
// a marker value no estimator would produce, so a write shows as a changed value.
class EstimatorMatrices {
 public:
  explicit EstimatorMatrices(int n) : n_(n), c_(mCreateMatrix(n, n)), p_(mCreateMatrix(n, 1)) {
    for (int k = 0; k < n_; ++k) p_[k][0] = Marker(k);
  }
  ~EstimatorMatrices() {
    mFreeMatrix(&c_, n_);
    mFreeMatrix(&p_, n_);
  }
  EstimatorMatrices(const EstimatorMatrices&) = delete;
  EstimatorMatrices& operator=(const EstimatorMatrices&) = delete;

  static double Marker(int k) { return 7777.0 + k; }

  double** constraints() { return c_; }
  double** params() { return p_; }
  double diag(int k) const { return c_[k][k]; }
  double param(int k) const { return p_[k][0]; }
  bool written(int k) const { return p_[k][0] != Marker(k); }
  void SetDiagonal(int k, double w) { c_[k][k] = w; }
  void SetAllDiagonals(double w) {
    for (int k = 0; k < n_; ++k) c_[k][k] = w;
  }
  int size() const { return n_; }

 private:
  int n_;
  double** c_;
  double** p_;
};

// Axis rebuilt from two angles, (sin a2, -cos a2 sin a1, cos a2 cos a1).
inline KPt3<double> AxisFromAngles(double a1, double a2) {
  return KPt3<double>(std::sin(a2), -std::cos(a2) * std::sin(a1), std::cos(a2) * std::cos(a1));
}

// An orthonormal frame: u, v span the plane across the axis w.
struct Frame {
  KPt3<double> u, v, w;
  KPt3<double> Local(double x, double y, double z) const { return u * x + v * y + w * z; }
};

inline Frame RandomFrame(std::mt19937& rng) {
  std::uniform_real_distribution<double> angle(0.0, 2.0 * kPi);
  double r[9];
  ConvertAnglesToMatrix(angle(rng), angle(rng), angle(rng), r);
  return Frame{KPt3<double>(r[0], r[1], r[2]), KPt3<double>(r[3], r[4], r[5]),
               KPt3<double>(r[6], r[7], r[8])};
}

inline ::testing::AssertionResult PointNear(const KPt3<double>& actual,
                                            const KPt3<double>& expected, double tol) {
  const double d = (actual - expected).Length();
  if (d <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "(" << actual.x << ", " << actual.y << ", " << actual.z << ") is " << d << " from ("
         << expected.x << ", " << expected.y << ", " << expected.z << "), tolerance " << tol;
}

// Unit vectors a and b parallel or antiparallel to within tol (on the sine of the angle).
inline ::testing::AssertionResult Parallel(const KPt3<double>& a, const KPt3<double>& b,
                                           double tol) {
  const double s = a.Cross(b).Length();
  if (s <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "sine of the angle " << s << " above " << tol;
}

// |actual - expected| <= tol * max(1, |expected|).
inline ::testing::AssertionResult RelNear(double actual, double expected, double tol) {
  const double scale = std::fmax(1.0, std::fabs(expected));
  if (std::fabs(actual - expected) <= tol * scale) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << actual << " differs from " << expected << " by " << std::fabs(actual - expected);
}

inline KPt3<double> ParamPoint(const EstimatorMatrices& m, int first) {
  return KPt3<double>(m.param(first), m.param(first + 1), m.param(first + 2));
}

}  // namespace metrofit_test

#endif  // METROFIT_TESTS_ESTIMATE_ESTIMATE_TEST_SUPPORT_H
