// Cholesky factorisation of a packed symmetric matrix, its solve, and a reciprocal condition
// estimate.
//
// A = L L^T with L lower triangular, overwriting the packed lower triangle of A:
//   L_jj = sqrt(A_jj - sum_{k<j} L_jk^2),  L_ij = (A_ij - sum_{k<j} L_ik L_jk) / L_jj  (i > j).
// The factorisation stops when a pivot (the radicand of L_jj) is <= 0: A is not positive
// definite. A NaN pivot does not stop it, so non-finite input flows on into the caller's
// objective instead of looking like a matrix that merely needs more damping.
#ifndef METROFIT_NUMERIC_CHOLESKY_H
#define METROFIT_NUMERIC_CHOLESKY_H

#include <cstdint>

#include "numeric/nvector.h"

namespace metrofit::numeric {

// Factors a packed symmetric (kind 1) matrix in place. 1 on success (also for an empty matrix),
// 0 when a pivot is <= 0 or the matrix is absent or not packed symmetric.
std::int32_t CholeskyFactor(NMatrix* a);

// Solves L L^T y = b in place in b, L from CholeskyFactor (forward, then back substitution).
// Nothing happens when the shapes do not match.
void CholeskySolve(const NMatrix* l, NVector* b);

// Estimate of the reciprocal 1-norm condition number 1 / (|A|_1 |A^-1|_1) of a symmetric
// positive definite packed matrix (Hager-Higham estimate of |A^-1|_1 on a Cholesky factor of a
// copy; A is not modified). 1 for an empty matrix; 0 when A is not positive definite, absent
// or not packed symmetric, or the copy cannot be allocated.
double ConditionEstimate(const NMatrix* a);

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_CHOLESKY_H
