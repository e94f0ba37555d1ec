#include "support/geometry_compare.h"

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>

namespace metrofit::testing {

namespace {

// Below this |u1 x u2| / (|u1| |u2|) two lines are treated as parallel: the common
// perpendicular is then numerically meaningless and the point-to-line distance is used.
constexpr double kParallelSine = 1e-12;

}  // namespace

double AxisAngle(const Pt& a, const Pt& b) {
  return std::atan2(a.Cross(b).Length(), std::fabs(a.Dot(b)));
}

double DirectedAngle(const Pt& a, const Pt& b) {
  return std::atan2(a.Cross(b).Length(), a.Dot(b));
}

double DistancePointToLine(const Pt& p, const Pt& c, const Pt& u) {
  const double len = u.Length();
  if (!(len > 0.0)) return (p - c).Length();
  const Pt d = p - c;
  return d.Cross(u).Length() / len;
}

double DistanceBetweenLines(const Pt& c1, const Pt& u1, const Pt& c2, const Pt& u2) {
  const Pt n = u1.Cross(u2);
  const double nl = n.Length();
  const double scale = u1.Length() * u2.Length();
  if (!(scale > 0.0) || nl <= kParallelSine * scale) return DistancePointToLine(c2, c1, u1);
  return std::fabs((c2 - c1).Dot(n)) / nl;
}

double SignedDistanceToPlane(const Pt& p, const Pt& n, double d) {
  return p.Dot(n) - d;
}

bool IsFinite(const Pt& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

::testing::AssertionResult IsClose(double actual, double expected, double relTol, double absTol) {
  const double diff = std::fabs(actual - expected);
  const double tol = absTol + relTol * std::fabs(expected);
  if (std::isfinite(actual) && std::isfinite(expected) && diff <= tol) {
    return ::testing::AssertionSuccess();
  }
  std::ostringstream s;
  s << std::setprecision(17) << actual << " differs from " << expected << " by " << diff
    << " (allowed " << tol << ")";
  return ::testing::AssertionFailure() << s.str();
}

::testing::AssertionResult IsClose(const Pt& actual, const Pt& expected, double relTol,
                                   double absTol) {
  const double diff = (actual - expected).Length();
  const double tol = absTol + relTol * expected.Length();
  if (IsFinite(actual) && IsFinite(expected) && diff <= tol) return ::testing::AssertionSuccess();
  std::ostringstream s;
  s << std::setprecision(17) << "(" << actual.x << ", " << actual.y << ", " << actual.z
    << ") differs from (" << expected.x << ", " << expected.y << ", " << expected.z << ") by "
    << diff << " (allowed " << tol << ")";
  return ::testing::AssertionFailure() << s.str();
}

WorstError::~WorstError() {
  std::printf("[worst] %s: %.3e (%s)\n", what_.c_str(), value_,
              where_.empty() ? "-" : where_.c_str());
  std::fflush(stdout);
}

void WorstError::Update(double value, const std::string& where) {
  if (!(value <= value_)) {
    value_ = value;
    where_ = where;
  }
}

}  // namespace metrofit::testing
