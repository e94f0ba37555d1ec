// Propagation of measurement noise into fitted parameters, and portable random draws for the
// data that are fitted.
//
// For a least-squares fit of residuals r(theta) with Jacobian J at the solution, independent
// residual noise of standard deviation sigma gives the parameters the covariance
// sigma^2 (J^T J)^-1 to first order. A fitted block of parameters then lies within
// k sigma sqrt(trace C_block) of the generating values except with a probability that falls
// off like a Gaussian tail in k; with k = 5 and fixed seeds that is the bound the tests use.
//
// The same matrix bounds systematic point errors e: the first-order parameter error is
// -(J^T J)^-1 J^T e, whose component j is at most sqrt(C_jj) |e| (Cauchy-Schwarz, the row j of
// (J^T J)^-1 J^T has the squared length C_jj).
#ifndef METROFIT_TESTS_SUPPORT_NOISE_PROPAGATION_H
#define METROFIT_TESTS_SUPPORT_NOISE_PROPAGATION_H

#include <cstdint>
#include <random>
#include <vector>

#include "support/known_solution.h"

namespace metrofit::testing {

// (J^T J)^-1 over the listed columns of j (in that order); an empty matrix when J^T J is
// singular to working precision.
DenseMatrix NormalInverse(const DenseMatrix& j, const std::vector<int>& columns);

// sqrt of the sum of the diagonal entries of c at the listed indices (of c's own rows).
double RootTrace(const DenseMatrix& c, const std::vector<int>& indices);

// Euclidean norm of a vector.
double Norm2(const std::vector<double>& v);

// Deterministic draws from std::mt19937_64, whose output sequence the standard fixes; the
// conversions are written out so the data do not depend on the standard library's
// distributions.
class PortableRandom {
 public:
  explicit PortableRandom(std::uint64_t seed) : engine_(seed) {}
  // Uniform in [0, 1).
  double Uniform();
  double Uniform(double a, double b) { return a + (b - a) * Uniform(); }
  // Standard normal (Box-Muller).
  double Normal();

 private:
  std::mt19937_64 engine_;
};

}  // namespace metrofit::testing

#endif  // METROFIT_TESTS_SUPPORT_NOISE_PROPAGATION_H
