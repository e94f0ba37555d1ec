// Comparison helpers for fitted features: angles between axes, distances between points, lines
// and planes, and closeness checks with a relative and an absolute tolerance.
//
// A value a is close to an expected value e when |a - e| <= absTol + relTol * |e|. Non-finite
// values are never close to anything, so a NaN result fails every check.
#ifndef METROFIT_TESTS_SUPPORT_GEOMETRY_COMPARE_H
#define METROFIT_TESTS_SUPPORT_GEOMETRY_COMPARE_H

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "metrofit.h"

namespace metrofit::testing {

using Pt = KPt3<double>;

// Angle in [0, pi/2] between the lines spanned by a and b: the sign of either vector does not
// matter. Computed as atan2(|a x b|, |a . b|), accurate for tiny angles (acos is not).
double AxisAngle(const Pt& a, const Pt& b);

// Angle in [0, pi] between the directions a and b (sign-sensitive).
double DirectedAngle(const Pt& a, const Pt& b);

// Distance of p from the infinite line through c along u (u need not be unit length).
double DistancePointToLine(const Pt& p, const Pt& c, const Pt& u);

// Shortest distance between the lines (c1, u1) and (c2, u2); for (nearly) parallel lines the
// distance of c2 from the first line.
double DistanceBetweenLines(const Pt& c1, const Pt& u1, const Pt& c2, const Pt& u2);

// Signed distance of p from the plane {x : x . n = d}, n unit length.
double SignedDistanceToPlane(const Pt& p, const Pt& n, double d);

// True when every component is finite.
bool IsFinite(const Pt& p);

::testing::AssertionResult IsClose(double actual, double expected, double relTol, double absTol);
// Component-wise closeness; the tolerance is applied to the Euclidean distance between the two
// points with |expected| as the relative scale.
::testing::AssertionResult IsClose(const Pt& actual, const Pt& expected, double relTol,
                                   double absTol);

// Largest error seen over the cases of one test, and where; printed on destruction as
// "[worst] <what>: <value> (<where>)" so that a run's worst agreement can be collected.
class WorstError {
 public:
  explicit WorstError(std::string what) : what_(std::move(what)) {}
  WorstError(const WorstError&) = delete;
  WorstError& operator=(const WorstError&) = delete;
  ~WorstError();
  // Records value when it is larger than every earlier one (a NaN is always recorded).
  void Update(double value, const std::string& where);
  double value() const { return value_; }

 private:
  std::string what_;
  double value_ = 0.0;
  std::string where_;
};

}  // namespace metrofit::testing

// EXPECT_TRUE on IsClose, with the expressions in the failure message.
#define METROFIT_EXPECT_CLOSE(actual, expected, relTol, absTol)                                   \
  EXPECT_TRUE(::metrofit::testing::IsClose((actual), (expected), (relTol), (absTol)))             \
      << "  actual: " #actual "\n  expected: " #expected "\n  relTol " << (relTol) << ", absTol " \
      << (absTol)

#endif  // METROFIT_TESTS_SUPPORT_GEOMETRY_COMPARE_H
