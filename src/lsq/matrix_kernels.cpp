// Dense kernels of the least-squares engine on row-pointer matrices.
//
// Dimensions always travel beside the matrices and nothing is checked: the engine sizes its
// work matrices once per fit and calls these in its inner loop. Every kernel returns 0 except
// mInvertMatrix (index of a failed pivot) and mMaxAbs (the value it measures).
//
// mInvertMatrix is Gauss-Jordan inversion in place, pivots straight down the diagonal, no row
// or column exchange. For pivot k with value p:
//
//   a[i][k] /= p            (i != k)
//   a[k][k]  = 1 / p
//   a[i][j] -= a[i][k] a[k][j],  then  a[k][j] = -(a[k][k] a[k][j])   (j != k, i != k)
//
// After all n pivots a holds its inverse. The normal matrices it is used on are symmetric
// positive definite when the fit is well posed, which is why no pivoting is needed there.
#include <cmath>

#include "core/constants.h"
#include "metrofit.h"

int mAddMatrix(double** dst, double** src, int rows, int cols) {
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < cols; ++j) dst[i][j] += src[i][j];
  return 0;
}

int mSubtractMatrix(double** dst, double** src, int rows, int cols) {
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < cols; ++j) dst[i][j] -= src[i][j];
  return 0;
}

int mMultiplyMatrix(double** a, double** b, double** c, int rows, int inner, int cols) {
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < cols; ++j) {
      double sum = 0.0;
      for (int k = 0; k < inner; ++k) sum += a[i][k] * b[k][j];
      c[i][j] = sum;
    }
  }
  return 0;
}

int mTransposeMatrix(double** src, double** dst, int rows, int cols) {
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < cols; ++j) dst[j][i] = src[i][j];
  return 0;
}

int mInvertMatrix(double** a, int n) {
  for (int k = 0; k < n; ++k) {
    const double p = a[k][k];
    // A pivot that is not safely normal (zero, denormal or NaN) ends the sweep here; the
    // matrix is left partly transformed and the caller sees the index.
    if (!(std::fabs(p) > metrofit::kSmallestNormal)) return k;
    for (int i = 0; i < n; ++i)
      if (i != k) a[i][k] /= p;
    a[k][k] = 1.0 / p;
    for (int j = 0; j < n; ++j) {
      if (j == k) continue;
      for (int i = 0; i < n; ++i)
        if (i != k) a[i][j] -= a[i][k] * a[k][j];
      a[k][j] = -(a[k][k] * a[k][j]);
    }
  }
  return 0;
}

double mMaxAbs(double** v, int n) {
  double largest = 0.0;
  for (int i = 0; i < n; ++i) {
    const double a = std::fabs(v[i][0]);
    // A NaN entry is reported as NaN: a poisoned step must never pass for a small one.
    if (std::isnan(a)) return a;
    if (a > largest) largest = a;
  }
  return largest;
}
