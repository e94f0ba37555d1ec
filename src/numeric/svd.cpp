// Golub-Reinsch singular value decomposition.
//
// 1. Householder reduction to upper bidiagonal form B = U1^T A V1: alternately a reflection
//    from the left zeroes column i below the diagonal and one from the right zeroes row i right
//    of the superdiagonal. The diagonal goes to w, the superdiagonal to rv1 (rv1[0] = 0).
// 2. The reflections are accumulated into V (right) and, in place, into A (left, becoming U).
// 3. Implicit-shift QR on B: for the trailing singular value k, find the largest unreduced
//    block l..k (a negligible rv1[l] splits it off; a negligible w[l-1] is first chased out by
//    Givens rotations), shift by the eigenvalue of the trailing 2 x 2 of B^T B nearer to w_k^2
//    and sweep Givens rotations down the block until rv1[k] is negligible.
// Every sqrt(a^2 + b^2) is Hypot2; sums over the m rows are compensated. |x| is negligible
// against y when eps y > |x|; an exact zero is negligible as well, which only matters for an
// all-zero matrix (y = 0), whose bidiagonal is already diagonal.
#include "numeric/svd.h"

#include <cmath>
#include <cstddef>

#include "numeric/compensated.h"

namespace metrofit::numeric {
namespace {

// 2^-50: scale of the plane and line accuracy figures.
const double kAccuracyScale = std::ldexp(1.0, -50);
// Accuracy figure reported when the two compared singular values coincide.
constexpr double kTiedAccuracy = 2.0;

// sign(a, b): a when b >= 0, else -a.
inline double Sign(double a, double b) {
  return b >= 0.0 ? a : -a;
}

inline bool Negligible(double x, double y) {
  return kMachineEpsilon * y > std::fabs(x) || x == 0.0;
}

class RowMajor {
 public:
  RowMajor(double* data, std::int32_t cols) : data_(data), cols_(cols) {}
  double& operator()(std::int32_t i, std::int32_t j) const {
    return data_[static_cast<std::ptrdiff_t>(i) * cols_ + j];
  }

 private:
  double* data_;
  std::int32_t cols_;
};

enum class Extreme { kSmallest, kLargest };

NumericStatus ExtremeDirection(Extreme which, PointSet* points, NVector* x, std::int32_t maxIter,
                               double* accuracy) {
  if (points == nullptr || x == nullptr || x->count < 6) return NumericStatus::kBadArguments;
  const UniqueMatrix v(CreateMatrix(3, 3, kGeneral));
  const UniqueVector w(CreateVector(3));
  const UniqueMatrix a(CreateMatrixOver(*points));
  if (!v || !w || !a) return NumericStatus::kAllocationFailure;
  for (int k = 0; k < 3; ++k) (*x)[k] = 0.0;

  // Only the right singular vectors are wanted: the points' copy is scratch.
  const NumericStatus status =
      SingularValueDecomposition(a.get(), w.get(), v.get(), maxIter, LeftVectors::kSkip);
  if (status != NumericStatus::kOk) return status;

  const double* s = w->data;
  int iext = 0;
  int imid = 0;
  SelectSingularIndices(s, which == Extreme::kLargest, &iext, &imid);

  double column[3];
  for (int k = 0; k < 3; ++k) column[k] = (*v)(k, iext);
  const double sign = CompensatedDot(x->data + 3, column, 3) >= 0.0 ? 1.0 : -1.0;
  for (int k = 0; k < 3; ++k) (*x)[3 + k] = sign * column[k];

  if (accuracy != nullptr) {
    const double a2 = s[iext] * s[iext];
    const double b2 = s[imid] * s[imid];
    *accuracy = a2 != b2
                    ? a2 * a2 * kAccuracyScale / (std::fabs(b2 * b2 - a2 * a2) * std::sqrt(3.0))
                    : kTiedAccuracy;
  }
  return NumericStatus::kOk;
}

}  // namespace

void SelectSingularIndices(const double* w, bool largest, int* extreme, int* middle) {
  const auto beyond = [largest](double p, double q) { return largest ? p > q : p < q; };
  int iext = beyond(w[1], w[0]) ? 1 : 0;
  int imid = 1 - iext;
  if (beyond(w[2], w[iext])) {
    imid = iext;
    iext = 2;
  } else if (beyond(w[2], w[imid])) {
    imid = 2;
  }
  *extreme = iext;
  *middle = imid;
}

namespace {

// The left reflection of column i applied to the columns after it, and column i given back
// its scale: for each later column j, f_j = (sum_k A(k, i) A(k, j)) / h, then
// A(k, j) += f_j A(k, i), then A(k, i) *= scale (rows i..m-1). The sums of the later columns
// do not depend on one another, so one pass over the rows forms them side by side (each a
// compensated sum over the rows in order, as alone) and a second applies them all and the
// scale: two passes instead of two per column and one more, with the same bits. `f` holds
// the n factors.
void ReflectLaterColumns(const RowMajor& A, std::int32_t i, std::int32_t m, std::int32_t n,
                         double h, double scale, double* f) {
  const std::int32_t l = i + 1;
  if (l < n) {
    constexpr std::int32_t kSideBySide = 4;  // sums formed together; wider matrices in turns
    for (std::int32_t first = l; first < n; first += kSideBySide) {
      const std::int32_t last = first + kSideBySide < n ? first + kSideBySide : n;
      KahanSum st[kSideBySide];
      for (std::int32_t k = i; k < m; ++k) {
        const double a = A(k, i);
        for (std::int32_t j = first; j < last; ++j) st[j - first].Add(a * A(k, j));
      }
      for (std::int32_t j = first; j < last; ++j) f[j] = st[j - first].Sum() / h;
    }
  }
  for (std::int32_t k = i; k < m; ++k) {
    const double a = A(k, i);
    for (std::int32_t j = l; j < n; ++j) A(k, j) += f[j] * a;
    A(k, i) = a * scale;
  }
}

}  // namespace

NumericStatus SingularValueDecomposition(NMatrix* am, NVector* wv, NMatrix* vm,
                                         std::int32_t maxIter, LeftVectors left) {
  if (am == nullptr || wv == nullptr || vm == nullptr) return NumericStatus::kBadArguments;
  if (am->kind != kGeneral || vm->kind != kGeneral) return NumericStatus::kBadArguments;
  const std::int32_t m = am->rows;
  const std::int32_t n = am->cols;
  if (n < 0 || m < n) return NumericStatus::kBadArguments;
  if (vm->rows != n || vm->cols != n || wv->count < n || maxIter < 1)
    return NumericStatus::kBadArguments;
  if (n == 0) return NumericStatus::kOk;
  if (am->data == nullptr) return NumericStatus::kBadArguments;

  const UniqueVector rv1v(CreateVector(n));
  if (!rv1v) return NumericStatus::kAllocationFailure;
  const UniqueVector workv(CreateVector(n));
  if (!workv) return NumericStatus::kAllocationFailure;
  double* work = workv->data;
  double* rv1 = rv1v->data;
  double* w = wv->data;
  const RowMajor A(am->data, n);
  const RowMajor V(vm->data, n);
  const bool formU = left == LeftVectors::kCompute;

  // 1. Householder reduction to bidiagonal form.
  double g = 0.0;
  double scale = 0.0;
  double anorm = 0.0;
  std::int32_t l = 0;
  for (std::int32_t i = 0; i < n; ++i) {
    l = i + 1;
    rv1[i] = scale * g;
    g = 0.0;
    scale = 0.0;
    double s = 0.0;
    {  // left reflection: column i, rows i..m-1
      KahanSum sc;
      for (std::int32_t k = i; k < m; ++k) sc.Add(std::fabs(A(k, i)));
      scale = sc.Sum();
      if (scale != 0.0) {
        KahanSum ss;
        for (std::int32_t k = i; k < m; ++k) {
          A(k, i) /= scale;
          ss.Add(A(k, i) * A(k, i));
        }
        s = ss.Sum();
        const double f = A(i, i);
        g = -Sign(std::sqrt(s), f);
        const double h = f * g - s;
        A(i, i) = f - g;
        ReflectLaterColumns(A, i, m, n, h, scale, work);
      }
    }
    w[i] = scale * g;
    g = 0.0;
    s = 0.0;
    scale = 0.0;
    if (i != n - 1) {  // right reflection: row i, columns l..n-1
      KahanSum sc;
      for (std::int32_t k = l; k < n; ++k) sc.Add(std::fabs(A(i, k)));
      scale = sc.Sum();
      if (scale != 0.0) {
        KahanSum ss;
        for (std::int32_t k = l; k < n; ++k) {
          A(i, k) /= scale;
          ss.Add(A(i, k) * A(i, k));
        }
        s = ss.Sum();
        const double f = A(i, l);
        g = -Sign(std::sqrt(s), f);
        const double h = f * g - s;
        A(i, l) = f - g;
        for (std::int32_t k = l; k < n; ++k) rv1[k] = A(i, k) / h;
        for (std::int32_t j = l; j < m; ++j) {
          KahanSum st;
          for (std::int32_t k = l; k < n; ++k) st.Add(A(j, k) * A(i, k));
          const double t = st.Sum();
          for (std::int32_t k = l; k < n; ++k) A(j, k) += t * rv1[k];
        }
        for (std::int32_t k = l; k < n; ++k) A(i, k) *= scale;
      }
    }
    const double size = std::fabs(w[i]) + std::fabs(rv1[i]);
    if (size > anorm) anorm = size;
  }

  // 2a. Accumulate the right reflections into V.
  for (std::int32_t i = n - 1; i >= 0; --i) {
    if (i < n - 1) {
      if (g != 0.0) {
        // Double division avoids a possible underflow of A(i, l) g.
        for (std::int32_t j = l; j < n; ++j) V(j, i) = (A(i, j) / A(i, l)) / g;
        for (std::int32_t j = l; j < n; ++j) {
          KahanSum st;
          for (std::int32_t k = l; k < n; ++k) st.Add(A(i, k) * V(k, j));
          const double t = st.Sum();
          for (std::int32_t k = l; k < n; ++k) V(k, j) += t * V(k, i);
        }
      }
      for (std::int32_t j = l; j < n; ++j) {
        V(i, j) = 0.0;
        V(j, i) = 0.0;
      }
    }
    V(i, i) = 1.0;
    g = rv1[i];
    l = i;
  }

  // 2b. Accumulate the left reflections into A.
  for (std::int32_t i = formU ? n - 1 : -1; i >= 0; --i) {
    l = i + 1;
    g = w[i];
    for (std::int32_t j = l; j < n; ++j) A(i, j) = 0.0;
    if (g != 0.0) {
      g = 1.0 / g;
      for (std::int32_t j = l; j < n; ++j) {
        KahanSum st;
        for (std::int32_t k = l; k < m; ++k) st.Add(A(k, i) * A(k, j));
        const double f = (st.Sum() / A(i, i)) * g;
        for (std::int32_t k = i; k < m; ++k) A(k, j) += f * A(k, i);
      }
      for (std::int32_t j = i; j < m; ++j) A(j, i) *= g;
    } else {
      for (std::int32_t j = i; j < m; ++j) A(j, i) = 0.0;
    }
    A(i, i) += 1.0;
  }

  // 3. Diagonalise the bidiagonal form, one singular value at a time from the bottom.
  for (std::int32_t k = n - 1; k >= 0; --k) {
    for (std::int32_t its = 1;; ++its) {
      bool cancel = true;
      std::int32_t nm = 0;
      for (l = k; l >= 0; --l) {
        nm = l - 1;
        if (l == 0 || Negligible(rv1[l], anorm)) {
          cancel = false;
          break;
        }
        if (Negligible(w[nm], anorm)) break;
      }
      if (cancel) {
        // w[l-1] is negligible: chase rv1[l] out with rotations of rows l-1 and l..k.
        double c = 0.0;
        double s = 1.0;
        for (std::int32_t i = l; i <= k; ++i) {
          const double f = s * rv1[i];
          rv1[i] = c * rv1[i];
          if (Negligible(f, anorm)) break;
          g = w[i];
          double h = Hypot2(f, g);
          w[i] = h;
          h = 1.0 / h;
          c = g * h;
          s = -f * h;
          for (std::int32_t j = 0; formU && j < m; ++j) {
            const double y = A(j, nm);
            const double z = A(j, i);
            A(j, nm) = y * c + z * s;
            A(j, i) = z * c - y * s;
          }
        }
      }
      double z = w[k];
      if (l == k) {  // converged: make the singular value non-negative
        if (z < 0.0) {
          w[k] = -z;
          for (std::int32_t j = 0; j < n; ++j) V(j, k) = -V(j, k);
        }
        break;
      }
      if (its >= maxIter) return NumericStatus::kIterationLimit;

      // Shift from the trailing 2 x 2 minor, then one implicit QR sweep over l..k.
      double x = w[l];
      nm = k - 1;
      double y = w[nm];
      g = rv1[nm];
      double h = rv1[k];
      double f = ((y - z) * (y + z) + (g - h) * (g + h)) / (2.0 * h * y);
      g = Hypot2(f, 1.0);
      f = ((x - z) * (x + z) + h * ((y / (f + Sign(g, f))) - h)) / x;
      double c = 1.0;
      double s = 1.0;
      for (std::int32_t j = l; j <= nm; ++j) {
        const std::int32_t i = j + 1;
        g = rv1[i];
        y = w[i];
        h = s * g;
        g = c * g;
        z = Hypot2(f, h);
        rv1[j] = z;
        c = f / z;
        s = h / z;
        f = x * c + g * s;
        g = g * c - x * s;
        h = y * s;
        y *= c;
        for (std::int32_t jj = 0; jj < n; ++jj) {
          const double vx = V(jj, j);
          const double vz = V(jj, i);
          V(jj, j) = vx * c + vz * s;
          V(jj, i) = vz * c - vx * s;
        }
        z = Hypot2(f, h);
        w[j] = z;
        if (z != 0.0) {  // rotation can be arbitrary when z = 0
          z = 1.0 / z;
          c = f * z;
          s = h * z;
        }
        f = c * g + s * y;
        x = c * y - s * g;
        for (std::int32_t jj = 0; formU && jj < m; ++jj) {
          const double ay = A(jj, j);
          const double az = A(jj, i);
          A(jj, j) = ay * c + az * s;
          A(jj, i) = az * c - ay * s;
        }
      }
      rv1[l] = 0.0;
      rv1[k] = f;
      w[k] = x;
    }
  }
  return NumericStatus::kOk;
}

NumericStatus PlaneNormalSVD(PointSet* points, NVector* x, std::int32_t maxIter, double* accuracy) {
  return ExtremeDirection(Extreme::kSmallest, points, x, maxIter, accuracy);
}

NumericStatus PrincipalDirectionSVD(PointSet* points, NVector* x, std::int32_t maxIter,
                                    double* accuracy) {
  return ExtremeDirection(Extreme::kLargest, points, x, maxIter, accuracy);
}

}  // namespace metrofit::numeric
