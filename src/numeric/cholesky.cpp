// Packed Cholesky factorisation, solve and reciprocal condition estimate; see cholesky.h.
#include "numeric/cholesky.h"

#include <cmath>

#include "numeric/compensated.h"

namespace metrofit::numeric {
namespace {

// Sweeps of the Hager-Higham estimator; it usually settles after two or three.
constexpr int kConditionSweeps = 5;

// Start of row i in packed lower storage.
inline std::int64_t RowStart(std::int64_t i) {
  return i * (i + 1) / 2;
}

bool IsPacked(const NMatrix* a) {
  return a != nullptr && a->kind == kPackedSymmetric && a->rows == a->cols && a->rows >= 0;
}

// Solve with the raw packed factor l (n x n) in place in b.
void SolvePacked(const double* l, std::int32_t n, double* b) {
  for (std::int32_t i = 0; i < n; ++i) {  // L y = b
    const double* row = l + RowStart(i);
    KahanSum s;
    s.Add(b[i]);
    for (std::int32_t k = 0; k < i; ++k) s.Add(-row[k] * b[k]);
    b[i] = s.Sum() / row[i];
  }
  for (std::int32_t i = n - 1; i >= 0; --i) {  // L^T x = y
    KahanSum s;
    s.Add(b[i]);
    for (std::int32_t k = i + 1; k < n; ++k) s.Add(-l[RowStart(k) + i] * b[k]);
    b[i] = s.Sum() / l[RowStart(i) + i];
  }
}

double OneNorm(const double* x, std::int32_t n) {
  KahanSum s;
  for (std::int32_t i = 0; i < n; ++i) s.Add(std::fabs(x[i]));
  return s.Sum();
}

}  // namespace

std::int32_t CholeskyFactor(NMatrix* a) {
  if (!IsPacked(a)) return 0;
  const std::int32_t n = a->rows;
  double* p = a->data;
  for (std::int32_t i = 0; i < n; ++i) {
    double* rowI = p + RowStart(i);
    for (std::int32_t j = 0; j <= i; ++j) {
      const double* rowJ = p + RowStart(j);
      KahanSum s;
      s.Add(rowI[j]);
      for (std::int32_t k = 0; k < j; ++k) s.Add(-rowI[k] * rowJ[k]);
      if (j < i) {
        rowI[j] = s.Sum() / rowJ[j];
      } else {
        const double pivot = s.Sum();
        if (pivot <= 0.0) return 0;
        rowI[i] = std::sqrt(pivot);
      }
    }
  }
  return 1;
}

void CholeskySolve(const NMatrix* l, NVector* b) {
  if (!IsPacked(l) || b == nullptr || b->count != l->rows || l->rows < 1) return;
  SolvePacked(l->data, l->rows, b->data);
}

double ConditionEstimate(const NMatrix* a) {
  if (!IsPacked(a)) return 0.0;
  const std::int32_t n = a->rows;
  if (n == 0) return 1.0;
  const std::int64_t packed = RowStart(n);

  // |A|_1 of the symmetric matrix: the largest absolute column sum.
  double anorm = 0.0;
  for (std::int32_t j = 0; j < n; ++j) {
    KahanSum s;
    for (std::int32_t i = 0; i < n; ++i) s.Add(std::fabs((*a)(i, j)));
    if (s.Sum() > anorm || std::isnan(s.Sum())) anorm = s.Sum();
  }

  // One block: factor copy, iterate x, solution y.
  UniqueDoubles block = AllocateDoubles(static_cast<std::size_t>(packed + 2 * n));
  if (!block) return 0.0;
  double* l = block.get();
  double* x = l + packed;
  double* y = x + n;
  for (std::int64_t k = 0; k < packed; ++k) l[k] = a->data[k];
  NMatrix factor{n, n, kPackedSymmetric, l};
  if (CholeskyFactor(&factor) == 0) return 0.0;

  // Hager's method: maximise |A^-1 x|_1 over the unit 1-norm ball by moving to the vertex
  // e_j where the subgradient A^-1 sign(A^-1 x) is largest. A is symmetric, so A^-T = A^-1.
  for (std::int32_t i = 0; i < n; ++i) x[i] = 1.0 / n;
  double estimate = 0.0;
  for (int sweep = 0; sweep < kConditionSweeps; ++sweep) {
    for (std::int32_t i = 0; i < n; ++i) y[i] = x[i];
    SolvePacked(l, n, y);
    const double ynorm = OneNorm(y, n);
    if (sweep > 0 && ynorm <= estimate) break;
    estimate = ynorm;
    for (std::int32_t i = 0; i < n; ++i) y[i] = y[i] >= 0.0 ? 1.0 : -1.0;
    SolvePacked(l, n, y);  // z = A^-1 sign(y)
    std::int32_t jmax = 0;
    for (std::int32_t i = 1; i < n; ++i) {
      if (std::fabs(y[i]) > std::fabs(y[jmax])) jmax = i;
    }
    const double ztx = CompensatedDot(y, x, n);
    if (sweep > 0 && std::fabs(y[jmax]) <= ztx) break;
    for (std::int32_t i = 0; i < n; ++i) x[i] = 0.0;
    x[jmax] = 1.0;
  }
  // Higham's safeguard against matrices that fool the vertex search: an alternating vector.
  for (std::int32_t i = 0; i < n; ++i) {
    const double mag = n > 1 ? 1.0 + static_cast<double>(i) / (n - 1) : 1.0;
    y[i] = (i % 2 == 0) ? mag : -mag;
  }
  SolvePacked(l, n, y);
  const double alt = 2.0 * OneNorm(y, n) / (3.0 * n);
  if (alt > estimate) estimate = alt;

  const double denom = anorm * estimate;
  if (std::isnan(denom)) return denom;  // non-finite input: no estimate, say so
  return denom > 0.0 ? 1.0 / denom : 0.0;
}

}  // namespace metrofit::numeric
