// Row-pointer matrices: an array of row pointers, each row its own zero-filled block. The
// shape never travels with the matrix; every caller passes rows (and columns) explicitly.
#include <cstdlib>
#include <cstring>

#include "metrofit.h"

double** mCreateMatrix(int rows, int cols) {
  // calloc of zero elements may give null or a unique pointer; either is a valid empty matrix.
  const std::size_t nrows = rows > 0 ? static_cast<std::size_t>(rows) : 0;
  double** m = static_cast<double**>(std::calloc(nrows > 0 ? nrows : 1, sizeof(double*)));
  if (m == nullptr || rows < 1) return m;
  const std::size_t ncols = cols > 0 ? static_cast<std::size_t>(cols) : 0;
  for (int i = 0; i < rows; ++i) {
    m[i] = static_cast<double*>(std::calloc(ncols > 0 ? ncols : 1, sizeof(double)));
    if (m[i] == nullptr) return mFreeMatrix(&m, rows);
  }
  return m;
}

int mClearMatrix(double** m, int rows, int cols) {
  if (rows < 1 || cols < 1) return 0;
  for (int i = 0; i < rows; ++i) std::memset(m[i], 0, sizeof(double) * cols);
  return 0;
}

double** mFreeMatrix(double*** pm, int rows) {
  if (pm == nullptr || *pm == nullptr) return nullptr;
  double** m = *pm;
  for (int i = 0; i < rows; ++i) {
    if (m[i] != nullptr) {
      std::free(m[i]);
      m[i] = nullptr;
    }
  }
  std::free(m);
  *pm = nullptr;
  return nullptr;
}

int mCopyMatrix(double** dst, double** src, int rows, int cols) {
  if (rows < 1 || cols < 1) return 0;
  for (int i = 0; i < rows; ++i) std::memcpy(dst[i], src[i], sizeof(double) * cols);
  return 0;
}

double** mCreateMatrixContiguous(int rows, int cols) {
  const std::size_t nrows = rows > 0 ? static_cast<std::size_t>(rows) : 0;
  const std::size_t ncols = cols > 0 ? static_cast<std::size_t>(cols) : 0;
  // Pointer array first, then the elements; a double* and a double have the same alignment
  // needs on every supported platform, and the pointer block is padded to a double boundary.
  std::size_t head = nrows * sizeof(double*);
  head = (head + sizeof(double) - 1) / sizeof(double) * sizeof(double);
  const std::size_t bytes = head + nrows * ncols * sizeof(double);
  char* block = static_cast<char*>(std::calloc(bytes > 0 ? bytes : 1, 1));
  if (block == nullptr) return nullptr;
  double** m = reinterpret_cast<double**>(block);
  double* data = reinterpret_cast<double*>(block + head);
  for (std::size_t i = 0; i < nrows; ++i) m[i] = data + i * ncols;
  return m;
}

int mFreeMatrixContiguous(double*** pm) {
  if (pm == nullptr || *pm == nullptr) return 0;
  std::free(*pm);
  *pm = nullptr;
  return 0;
}
