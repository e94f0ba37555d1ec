// One point's linearised condition equations at fixed sizes: B = df/dp (m x 3), A = df/dx
// (m x n) and the misclosure w = -f (m x 1). The point cofactor matrix is not stored: it is
// kCofactor times the identity for every point and every shape.
#ifndef METROFIT_LSQ_LINEARISATION_H
#define METROFIT_LSQ_LINEARISATION_H

#include "numeric/lanes.h"

namespace metrofit {

// A-priori standard deviation of one point coordinate. Nothing in the library changes it.
constexpr double kCoordinateSigma = 1.0;
// Cofactor of one coordinate, Q = kCofactor I: 1e-6 / sigma^2.
constexpr double kCofactor = 1e-6 / (kCoordinateSigma * kCoordinateSigma);

// T is double for one point, DoublePair or DoubleQuad (numeric/lanes.h) for two or four side
// by side.
template <int m, int n, class T = double>
struct Linearisation {
  static constexpr int kConditions = m;
  static constexpr int kParameters = n;
  T B[m][3];
  T A[m][n];
  T w[m];
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_LINEARISATION_H
