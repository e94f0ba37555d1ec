// Exact recovery of noiseless features at CMM scales through FitPrecise.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "precise/precise_fit.h"
#include "support/known_solution.h"

namespace metrofit::precise {
namespace {

using testing::GenerateKnownSolution;
using testing::GeneratorOptions;
using testing::KnownSolution;

std::vector<double> Flat(const std::vector<Vec3>& pts) {
  std::vector<double> xyz;
  for (const Vec3& p : pts) {
    xyz.push_back(p.x);
    xyz.push_back(p.y);
    xyz.push_back(p.z);
  }
  return xyz;
}

TEST(PreciseSmoke, SphereNoiseless) {
  GeneratorOptions o;
  o.centreOffset = 800.0;
  o.radius = 25.0;
  KnownSolution s = GenerateKnownSolution(testing::Shape::kSphere, o);
  std::vector<double> xyz = Flat(s.points);
  Request r;
  r.shape = Shape::kSphere;
  r.xyz = xyz.data();
  r.count = s.points.size();
  FitResult res = FitPrecise(r);
  EXPECT_EQ(res.status, Status::kOk) << res.message;
  EXPECT_NEAR(res.center[0], s.truth.centre.x, 1e-9);
  EXPECT_NEAR(*res.radius, 25.0, 1e-9);
}

}  // namespace
}  // namespace metrofit::precise
