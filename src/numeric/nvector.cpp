// Counted vectors, matrices and point sets: one zero-filled block each, header first.
#include "numeric/nvector.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>

#include "numeric/compensated.h"

namespace metrofit::numeric {
namespace {

// Per-thread fault injection and bookkeeping. Fits on different threads never share a block,
// so thread-local counters are exact without any locking.
thread_local int t_allocationsBeforeFailure = -1;
thread_local std::int64_t t_liveBlocks = 0;

// Largest element count any one object may have: its byte size must fit a size_t comfortably.
constexpr std::int64_t kMaxElements =
    static_cast<std::int64_t>(std::numeric_limits<std::size_t>::max() / sizeof(double) / 2);

// Header size rounded up to a whole number of doubles, so the elements that follow it in the
// same block are aligned.
template <class Header>
constexpr std::size_t PaddedHeaderBytes() {
  return (sizeof(Header) + alignof(double) - 1) / alignof(double) * alignof(double);
}

// One block holding a Header followed by n doubles; the header is constructed in place and its
// element pointer set (null for n = 0).
template <class Header>
Header* AllocateWithElements(std::int64_t n, double** elements) {
  if (n < 0 || n > kMaxElements) return nullptr;
  const std::size_t head = PaddedHeaderBytes<Header>();
  void* block = AllocateBlock(head + static_cast<std::size_t>(n) * sizeof(double));
  if (block == nullptr) return nullptr;
  Header* h = new (block) Header{};
  *elements = n > 0 ? reinterpret_cast<double*>(static_cast<char*>(block) + head) : nullptr;
  return h;
}

}  // namespace

void* AllocateBlock(std::size_t bytes) {
  if (t_allocationsBeforeFailure == 0) {
    t_allocationsBeforeFailure = -1;
    return nullptr;
  }
  if (t_allocationsBeforeFailure > 0) --t_allocationsBeforeFailure;
  void* block = std::calloc(bytes > 0 ? bytes : 1, 1);
  if (block != nullptr) ++t_liveBlocks;
  return block;
}

void ReleaseBlock(void* block) {
  if (block == nullptr) return;
  --t_liveBlocks;
  std::free(block);
}

void FailAllocationAfter(int successes) {
  t_allocationsBeforeFailure = successes;
}

bool AllocationFailurePending() {
  return t_allocationsBeforeFailure >= 0;
}

std::int64_t LiveBlockCount() {
  return t_liveBlocks;
}

// ---------------------------------------------------------------------------------------------

NVector* CreateVector(std::int32_t n) {
  const std::int32_t count = n > 0 ? n : 0;
  double* elements = nullptr;
  NVector* v = AllocateWithElements<NVector>(count, &elements);
  if (v == nullptr) return nullptr;
  v->count = count;
  v->unit = 1;
  v->data = elements;
  return v;
}

void FreeVector(NVector* v) {
  ReleaseBlock(v);
}

// ---------------------------------------------------------------------------------------------

std::int64_t ElementIndex(std::int32_t kind, std::int32_t cols, std::int32_t i, std::int32_t j) {
  const std::int64_t ii = i;
  const std::int64_t jj = j;
  switch (kind) {
    case kGeneral:
      return static_cast<std::int64_t>(cols) * ii + jj;
    case kPackedSymmetric:
      return j <= i ? ii * (ii + 1) / 2 + jj : jj * (jj + 1) / 2 + ii;
    case kDiagonal:
      return ii;
    default:
      return 0;
  }
}

std::int64_t ElementCount(std::int32_t kind, std::int32_t rows, std::int32_t cols) {
  if (rows < 0 || cols < 0) return -1;
  const std::int64_t r = rows;
  switch (kind) {
    case kGeneral:
      return r * cols;
    case kPackedSymmetric:
      return rows == cols ? r * (r + 1) / 2 : -1;
    case kDiagonal:
      return rows == cols ? r : -1;
    default:
      return -1;
  }
}

NMatrix* CreateMatrix(std::int32_t rows, std::int32_t cols, std::int32_t kind) {
  const std::int64_t n = ElementCount(kind, rows, cols);
  if (n < 0) return nullptr;
  double* elements = nullptr;
  NMatrix* m = AllocateWithElements<NMatrix>(n, &elements);
  if (m == nullptr) return nullptr;
  m->rows = rows;
  m->cols = cols;
  m->kind = kind;
  m->data = elements;
  return m;
}

NMatrix* CreateMatrixOver(std::int32_t rows, std::int32_t cols, double* data) {
  if (rows < 0 || cols < 0) return nullptr;
  void* block = AllocateBlock(sizeof(NMatrix));
  if (block == nullptr) return nullptr;
  return new (block) NMatrix{rows, cols, kGeneral, data};
}

void FreeMatrix(NMatrix* m) {
  ReleaseBlock(m);
}

// ---------------------------------------------------------------------------------------------

PointSet* CreatePointSet(std::int32_t n) {
  if (n < 0) return nullptr;
  double* elements = nullptr;
  PointSet* s = AllocateWithElements<PointSet>(3 * static_cast<std::int64_t>(n), &elements);
  if (s == nullptr) return nullptr;
  s->count = n;
  s->xyz = elements;
  return s;
}

void FreePointSet(PointSet* s) {
  ReleaseBlock(s);
}

NMatrix* CreateMatrixOver(PointSet& s) {
  return CreateMatrixOver(s.count, 3, s.xyz);
}

UniqueDoubles AllocateDoubles(std::size_t n) {
  if (n > static_cast<std::size_t>(kMaxElements)) return UniqueDoubles();
  return UniqueDoubles(static_cast<double*>(AllocateBlock(n * sizeof(double))));
}

// ---------------------------------------------------------------------------------------------

namespace {
bool Present(const NVector* v) {
  return v != nullptr && v->count >= 1 && v->data != nullptr;
}
}  // namespace

void CopyVector(const NVector* src, NVector* dst) {
  if (!Present(src) || !Present(dst) || src->count != dst->count) return;
  if (src->data == dst->data) return;
  for (std::int32_t i = 0; i < src->count; ++i) dst->data[i] = src->data[i];
}

void AddVectors(const NVector* x, const NVector* y, NVector* z) {
  if (!Present(x) || !Present(y) || !Present(z)) return;
  if (x->count != y->count || x->count != z->count) return;
  for (std::int32_t i = 0; i < x->count; ++i) z->data[i] = x->data[i] + y->data[i];
}

void ScaleVector(NVector* v, double s) {
  if (!Present(v)) return;
  for (std::int32_t i = 0; i < v->count; ++i) v->data[i] *= s;
}

void FillVector(NVector* v, double value) {
  if (!Present(v)) return;
  for (std::int32_t i = 0; i < v->count; ++i) v->data[i] = value;
}

double ScaledNorm(const NVector* v) {
  if (!Present(v)) return 0.0;
  return ScaledNorm(v->data, v->count);
}

double MaxAbsElement(const NVector* v) {
  if (!Present(v)) return 0.0;
  double m = 0.0;
  for (std::int32_t i = 0; i < v->count; ++i) {
    const double a = std::fabs(v->data[i]);
    if (a > m || std::isnan(a)) m = a;
  }
  return m;
}

double Dot(const NVector* x, const NVector* y) {
  if (!Present(x) || !Present(y) || x->count != y->count) return 0.0;
  return CompensatedDot(x->data, y->data, x->count);
}

}  // namespace metrofit::numeric
