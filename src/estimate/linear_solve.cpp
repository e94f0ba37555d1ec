// Gauss-Jordan elimination with partial pivoting by rows, in place, for a x = b with a n x n
// and b n x m (one column per right-hand side).
//
// Column by column the pivot row is brought up by exchanging row pointers, scaled so that the
// pivot becomes 1, and eliminated from every other row. Writing 1.0 into the pivot before the
// scaling leaves 1/pivot there, so without row exchanges a ends holding its own inverse; the
// callers use only b.
#include <cmath>
#include <utility>

#include "core/constants.h"
#include "metrofit.h"

namespace {

// Greater-or-equal on purpose: of equal magnitudes the last row wins, which fixes the row
// order (and so the rounding) of every solve that has ties in a column.
int PivotRow(double** a, int n, int k) {
  int p = k;
  for (int i = k + 1; i < n; ++i)
    if (std::fabs(a[i][k]) >= std::fabs(a[p][k])) p = i;
  return p;
}

void ScaleRow(double* row, int len, double factor) {
  for (int j = 0; j < len; ++j) row[j] *= factor;
}

void SubtractScaledRow(double* row, const double* pivotRow, int len, double f) {
  for (int j = 0; j < len; ++j) row[j] -= pivotRow[j] * f;
}

}  // namespace

std::int32_t mSolveLinear(double** a, int n, double** b, int m) {
  if (n < 1) return 0;
  for (int k = 0; k < n; ++k) {
    const int p = PivotRow(a, n, k);
    if (p != k) {
      std::swap(a[k], a[p]);
      if (m != 0) std::swap(b[k], b[p]);
    }
    const double pivot = a[k][k];
    // A pivot in the subnormal range or zero: the system is singular to working precision.
    // a and b keep what the elimination has made of them so far.
    if (std::fabs(pivot) <= metrofit::kSmallestNormal) return -1;
    const double inverse = 1.0 / pivot;
    a[k][k] = 1.0;
    ScaleRow(a[k], n, inverse);
    if (m != 0) ScaleRow(b[k], m, inverse);
    for (int i = 0; i < n; ++i) {
      if (i == k) continue;
      const double f = a[i][k];
      a[i][k] = 0.0;
      SubtractScaledRow(a[i], a[k], n, f);
      if (m != 0) SubtractScaledRow(b[i], b[k], m, f);
    }
  }
  return 0;
}
