// Counted vectors, matrices and point sets of the numeric core.
//
//   NVector   count n, a unit stride field, n doubles; header and elements are one block.
//   NMatrix   rows r, columns c, a storage kind and the elements, addressed as
//               kind 0 general (row-major)       i c + j                      r c elements
//               kind 1 packed symmetric (lower)  i(i+1)/2 + j for j <= i,
//                                                j(j+1)/2 + i otherwise       n(n+1)/2 elements
//               kind 2 diagonal                  i, whatever j is             n elements
//             any other kind addresses element 0. A general matrix can also be a header over an
//             existing array (no copy): that is how a PointSet is seen as an n x 3 matrix.
//   PointSet  count n and 3 n doubles, x y z per point; one block.
//
// Every object is one block from AllocateBlock and is released by one ReleaseBlock (the
// header-only matrix does not own its array). Blocks are zero-filled. The core reports a
// NumericStatus (status.h) instead of throwing.
#ifndef METROFIT_NUMERIC_NVECTOR_H
#define METROFIT_NUMERIC_NVECTOR_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "numeric/status.h"

namespace metrofit::numeric {

// ---------------------------------------------------------------------------------------------
// Allocation. Every block of the core comes from here so that a test can make any one of them
// fail and check that the failure path releases what was already made.
// ---------------------------------------------------------------------------------------------

// Zero-filled block of `bytes` bytes (at least one byte is requested), or null.
void* AllocateBlock(std::size_t bytes);
// Releases a block from AllocateBlock; null is ignored.
void ReleaseBlock(void* block);

// Test seam, per thread: the next `successes` allocations succeed and the one after fails,
// once; a negative value (the default) never fails.
void FailAllocationAfter(int successes);
// True while an armed failure has not happened yet (so a test knows its code allocated less).
bool AllocationFailurePending();
// Blocks of this thread that are allocated and not yet released.
std::int64_t LiveBlockCount();

// ---------------------------------------------------------------------------------------------
// Vectors
// ---------------------------------------------------------------------------------------------

struct NVector {
  std::int32_t count;
  std::int32_t unit;  // element stride, always 1
  double* data;       // null when count < 1

  double& operator[](std::int32_t i) { return data[i]; }
  const double& operator[](std::int32_t i) const { return data[i]; }
};

// Vector of n zeros; a negative n is clamped to 0 (no element array). Null when out of memory.
NVector* CreateVector(std::int32_t n);
void FreeVector(NVector* v);
// Header over an existing array, on the stack: nothing to release.
inline NVector VectorView(double* data, std::int32_t n) {
  return NVector{n, 1, data};
}

// ---------------------------------------------------------------------------------------------
// Matrices
// ---------------------------------------------------------------------------------------------

enum MatrixKind : std::int32_t { kGeneral = 0, kPackedSymmetric = 1, kDiagonal = 2 };

struct NMatrix {
  std::int32_t rows;
  std::int32_t cols;
  std::int32_t kind;
  double* data;  // null when the matrix has no elements

  double& operator()(std::int32_t i, std::int32_t j);
  double operator()(std::int32_t i, std::int32_t j) const;
};

// Element index of (i, j) by the storage kind; 0 for an unknown kind.
std::int64_t ElementIndex(std::int32_t kind, std::int32_t cols, std::int32_t i, std::int32_t j);
// Number of elements of a rows x cols matrix of the kind, or -1 when the shape is invalid
// (negative dimension, unknown kind, rows != cols for the packed and diagonal kinds).
std::int64_t ElementCount(std::int32_t kind, std::int32_t rows, std::int32_t cols);

inline double& NMatrix::operator()(std::int32_t i, std::int32_t j) {
  return data[ElementIndex(kind, cols, i, j)];
}
inline double NMatrix::operator()(std::int32_t i, std::int32_t j) const {
  return data[ElementIndex(kind, cols, i, j)];
}

// Zero-filled matrix, or null on an invalid shape or when out of memory.
NMatrix* CreateMatrix(std::int32_t rows, std::int32_t cols, std::int32_t kind);
// General rows x cols header over `data` (not copied, not owned); null on negative dimensions
// or when out of memory.
NMatrix* CreateMatrixOver(std::int32_t rows, std::int32_t cols, double* data);
void FreeMatrix(NMatrix* m);

// ---------------------------------------------------------------------------------------------
// Point sets
// ---------------------------------------------------------------------------------------------

struct PointSet {
  std::int32_t count;
  double* xyz;  // 3 count doubles; null when count < 1

  double* Point(std::int32_t i) { return xyz + 3 * static_cast<std::ptrdiff_t>(i); }
  const double* Point(std::int32_t i) const { return xyz + 3 * static_cast<std::ptrdiff_t>(i); }
};

// Set of n points at the origin; null for negative n or when out of memory.
PointSet* CreatePointSet(std::int32_t n);
void FreePointSet(PointSet* s);
// The points as a general n x 3 matrix header (the coordinates are not copied).
NMatrix* CreateMatrixOver(PointSet& s);

// Owning handles for code that has several exits.
struct NumericDeleter {
  void operator()(NVector* v) const { FreeVector(v); }
  void operator()(NMatrix* m) const { FreeMatrix(m); }
  void operator()(PointSet* s) const { FreePointSet(s); }
};
using UniqueVector = std::unique_ptr<NVector, NumericDeleter>;
using UniqueMatrix = std::unique_ptr<NMatrix, NumericDeleter>;
using UniquePointSet = std::unique_ptr<PointSet, NumericDeleter>;

// Owning handle for a plain block of doubles (scratch arrays of the extended fits).
struct BlockDeleter {
  void operator()(double* p) const { ReleaseBlock(p); }
};
using UniqueDoubles = std::unique_ptr<double[], BlockDeleter>;
// Zero-filled array of n doubles (at least one is made, so n = 0 is not a failure).
UniqueDoubles AllocateDoubles(std::size_t n);

// ---------------------------------------------------------------------------------------------
// Vector kernels. "Absent" is a null pointer or a vector without elements.
// ---------------------------------------------------------------------------------------------

// dst = src; nothing happens when either is absent or the counts differ.
void CopyVector(const NVector* src, NVector* dst);
// z = x + y; nothing happens when any is absent or the counts differ. z may alias x or y.
void AddVectors(const NVector* x, const NVector* y, NVector* z);
void ScaleVector(NVector* v, double s);
void FillVector(NVector* v, double value);
// Euclidean norm, scaled by the largest magnitude so it neither over- nor underflows.
double ScaledNorm(const NVector* v);
// Largest absolute element; 0 for an absent vector.
double MaxAbsElement(const NVector* v);
// Compensated dot product; 0 when the counts differ or a vector is absent.
double Dot(const NVector* x, const NVector* y);

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_NVECTOR_H
