// Helpers of the precise-fit tests: requests from point lists and closeness in mm and rad.
#ifndef METROFIT_TESTS_PRECISE_PRECISE_TEST_UTIL_H
#define METROFIT_TESTS_PRECISE_PRECISE_TEST_UTIL_H

#include <string>
#include <vector>

#include "precise/precise_fit.h"

namespace metrofit::precise::testing {

// Required agreement with a reference least-squares solution.
constexpr double kLengthTol = 1e-9;  // mm
constexpr double kAngleTol = 1e-10;  // rad

// Points as a flat x, y, z array that outlives the request.
struct PointRequest {
  std::vector<double> xyz;
  Request request;
  PointRequest(Shape shape, const std::vector<Vec3>& points) {
    for (const Vec3& p : points) {
      xyz.push_back(p.x);
      xyz.push_back(p.y);
      xyz.push_back(p.z);
    }
    request.shape = shape;
    request.xyz = xyz.data();
    request.count = points.size();
  }
  PointRequest(const PointRequest&) = delete;
  PointRequest& operator=(const PointRequest&) = delete;
};

inline Vec3 Center(const FitResult& r) {
  return Vec3(r.center[0], r.center[1], r.center[2]);
}
inline Vec3 Axis(const FitResult& r) {
  return r.axis ? Vec3((*r.axis)[0], (*r.axis)[1], (*r.axis)[2]) : Vec3();
}

// The named parameter of a result, or nullptr (FitResult::Find belongs to the modern layer).
inline const Parameter* FindParameter(const FitResult& r, const std::string& name) {
  for (const Parameter& p : r.parameters) {
    if (p.name == name) return &p;
  }
  return nullptr;
}

}  // namespace metrofit::precise::testing

#endif  // METROFIT_TESTS_PRECISE_PRECISE_TEST_UTIL_H
