// Singular value decomposition A = U W V^T (Golub-Reinsch) and the plane normal and principal
// direction of a centred point set taken from it.
//
// For centred points as the rows of an n x 3 matrix A, A^T A is the scatter matrix: the right
// singular vector of the smallest singular value is the normal of the orthogonal-regression
// plane, that of the largest the direction of the orthogonal-regression line. Working on A
// rather than forming A^T A keeps the condition number at kappa(A) instead of kappa(A)^2.
#ifndef METROFIT_NUMERIC_SVD_H
#define METROFIT_NUMERIC_SVD_H

#include <cstdint>

#include "numeric/nvector.h"

namespace metrofit::numeric {

// Sweep limit of the QR iteration per singular value used by every fit.
constexpr std::int32_t kSvdSweepLimit = 200;

// Decomposes the general m x n matrix A (m >= n) in place: A is overwritten by U (m x n), the
// n singular values go into w[0..n-1] (not sorted, all >= 0) and V (n x n, general) receives the
// right singular vectors as columns. maxIter limits the implicit-shift QR sweeps per singular
// value. Returns kOk, kIterationLimit when a singular value needs maxIter sweeps, kBadArguments
// (absent A, w or V; fewer rows than columns; A or V not general; w shorter than n; V not n x n;
// maxIter < 1), kAllocationFailure when the work vector cannot be made.
//
// With LeftVectors::kSkip, U is not formed and A is left holding the Householder vectors of the
// reduction: the rotations that would build U never feed back into W or V, so W and V are the
// same to the last bit, for about half the passes over the rows.
enum class LeftVectors { kCompute, kSkip };
NumericStatus SingularValueDecomposition(NMatrix* a, NVector* w, NMatrix* v, std::int32_t maxIter,
                                         LeftVectors left = LeftVectors::kCompute);

// Index of the smallest (largest when `largest` is set) of three singular values and of the
// middle one: w1 replaces w0 only when strictly more extreme (index 0 wins a tie), then w2
// replaces the current one only when strictly more extreme.
void SelectSingularIndices(const double* w, bool largest, int* extreme, int* middle);

// Normal of the best plane through centred points: x[0..2] = 0 and x[3..5] = the right singular
// vector of the smallest singular value, signed so that its dot product with the previous
// x[3..5] is >= 0. The point array is used in place as an n x 3 matrix and is overwritten.
// *accuracy (may be null) = a^2 2^-50 / (|b^2 - a^2| sqrt 3) with a = w_min^2, b = w_mid^2, or
// 2.0 when a = b. Returns the decomposition's status (kBadArguments also for fewer than 3 points
// or x shorter than 6), or kAllocationFailure when the work objects cannot be made.
NumericStatus PlaneNormalSVD(PointSet* points, NVector* x, std::int32_t maxIter, double* accuracy);

// Direction of the best line through centred points: as PlaneNormalSVD with the largest
// singular value instead of the smallest (accuracy from a = w_max^2, b = w_mid^2).
NumericStatus PrincipalDirectionSVD(PointSet* points, NVector* x, std::int32_t maxIter,
                                    double* accuracy);

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_SVD_H
