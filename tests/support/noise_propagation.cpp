#include "support/noise_propagation.h"

#include <cmath>
#include <cstddef>

namespace metrofit::testing {

namespace {

constexpr double kTwoPi = 6.283185307179586;

// A Gauss-Jordan pivot below this fraction of the largest diagonal entry marks J^T J as
// singular: the columns are then dependent to working precision and no covariance exists.
constexpr double kSingularPivot = 1e-14;

}  // namespace

DenseMatrix NormalInverse(const DenseMatrix& j, const std::vector<int>& columns) {
  const int n = static_cast<int>(columns.size());
  DenseMatrix a(n, 2 * n);
  double largest = 0.0;
  for (int p = 0; p < n; ++p) {
    for (int q = 0; q < n; ++q) {
      double s = 0.0;
      for (int r = 0; r < j.rows; ++r) {
        s +=
            j(r, columns[static_cast<std::size_t>(p)]) * j(r, columns[static_cast<std::size_t>(q)]);
      }
      a(p, q) = s;
    }
    a(p, n + p) = 1.0;
    largest = std::fmax(largest, a(p, p));
  }
  // Gauss-Jordan with partial pivoting on [J^T J | I].
  for (int col = 0; col < n; ++col) {
    int pivot = col;
    for (int r = col + 1; r < n; ++r) {
      if (std::fabs(a(r, col)) > std::fabs(a(pivot, col))) pivot = r;
    }
    if (!(std::fabs(a(pivot, col)) > kSingularPivot * largest)) return DenseMatrix();
    if (pivot != col) {
      for (int q = 0; q < 2 * n; ++q) std::swap(a(col, q), a(pivot, q));
    }
    const double inv = 1.0 / a(col, col);
    for (int q = 0; q < 2 * n; ++q) a(col, q) *= inv;
    for (int r = 0; r < n; ++r) {
      if (r == col || a(r, col) == 0.0) continue;
      const double f = a(r, col);
      for (int q = 0; q < 2 * n; ++q) a(r, q) -= f * a(col, q);
    }
  }
  DenseMatrix c(n, n);
  for (int p = 0; p < n; ++p) {
    for (int q = 0; q < n; ++q) c(p, q) = a(p, n + q);
  }
  return c;
}

double RootTrace(const DenseMatrix& c, const std::vector<int>& indices) {
  double s = 0.0;
  for (int i : indices) s += c(i, i);
  return std::sqrt(s);
}

double Norm2(const std::vector<double>& v) {
  double s = 0.0;
  for (double x : v) s += x * x;
  return std::sqrt(s);
}

double PortableRandom::Uniform() {
  return static_cast<double>(engine_() >> 11) * std::ldexp(1.0, -53);
}

double PortableRandom::Normal() {
  const double u1 = 1.0 - Uniform();  // (0, 1]
  const double u2 = Uniform();
  return std::sqrt(-2.0 * std::log(u1)) * std::cos(kTwoPi * u2);
}

}  // namespace metrofit::testing
