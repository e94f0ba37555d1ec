// The engine's pass over the points, specialised at compile time to one shape's sizes.
//
// Per point: the shape's linearisation (B, A, w), M = B Q B^T (m x m, Q = q I) inverted in
// place as mInvertMatrix does it, then
//   objective += w^T M^-1 w,   N += A^T M^-1 A,   u += A^T M^-1 w,
// and in the residual pass v = Q B^T M^-1 w. Every product is formed in the order of the
// generic row-pointer kernels, so the sums are bit for bit those of a plain evaluation of the
// same model. That includes both triangles of the symmetric N: the two differ in the last bit,
// and the un-pivoted inversion of N turns a one-bit change into visible changes of the
// iteration of ill-conditioned fits (and of which start wins a multi-start fit).
// Nothing here allocates, calls through a pointer or computes trigonometry per point: the
// shape's frame (sines and cosines of the angles, the rotation) is made once per pass.
// Points are evaluated two at a time (pairs of doubles, every x86-64 processor) or, where the
// processor has AVX2, four at a time; each lane does the scalar operations, so both paths give
// the same bits (numeric/vector_path.h).
#ifndef METROFIT_LSQ_POINT_PASS_H
#define METROFIT_LSQ_POINT_PASS_H

#include <cmath>
#include <cstddef>

#include "core/constants.h"
#include "lsq/linearisation.h"
#include "lsq/probe_compensation.h"
#include "lsq/shape.h"
#include "numeric/lanes.h"
#include "numeric/vector_path.h"

namespace metrofit {

// Whether a pivot passes the sweep's test: safely normal (not zero, denormal or NaN); for two
// matrices side by side, in both.
inline bool PivotPasses(double p) {
  return std::fabs(p) > kSmallestNormal;
}
inline bool PivotPasses(const DoublePair& p) {
  return PivotPasses(p[0]) && PivotPasses(p[1]);
}
#if defined(METROFIT_HAS_DOUBLE_QUAD)
METROFIT_ALWAYS_INLINE bool PivotPasses(const DoubleQuad& p) {
  return PivotPasses(p[0]) && PivotPasses(p[1]) && PivotPasses(p[2]) && PivotPasses(p[3]);
}
#endif

// How many points a vector type of lanes holds.
template <class V>
struct LaneTraits;
template <>
struct LaneTraits<DoublePair> {
  static constexpr int kLanes = 2;
};
#if defined(METROFIT_HAS_DOUBLE_QUAD)
template <>
struct LaneTraits<DoubleQuad> {
  static constexpr int kLanes = 4;
};
#endif

// Gauss-Jordan inversion in place without pivoting, exactly the steps of mInvertMatrix on a
// fixed-size array of one matrix (T = double) or several side by side (T = lanes). A pivot
// that fails the test ends the sweep and returns false, the matrix left partly transformed:
// the engine carries on with a single matrix as it stands (as with every singular system),
// and takes lanes apart to treat each matrix alone.
template <int m, class T>
METROFIT_ALWAYS_INLINE bool SweepInPlace(T (&a)[m][m]) {
  METROFIT_UNROLL
  for (int k = 0; k < m; ++k) {
    const T p = a[k][k];
    if (!PivotPasses(p)) return false;
    METROFIT_UNROLL
    for (int i = 0; i < m; ++i)
      if (i != k) a[i][k] = a[i][k] / p;
    a[k][k] = 1.0 / p;
    METROFIT_UNROLL
    for (int j = 0; j < m; ++j) {
      if (j == k) continue;
      METROFIT_UNROLL
      for (int i = 0; i < m; ++i)
        if (i != k) a[i][j] = a[i][j] - a[i][k] * a[k][j];
      a[k][j] = -(a[k][k] * a[k][j]);
    }
  }
  return true;
}

template <int m>
METROFIT_ALWAYS_INLINE void InvertInPlace(double (&a)[m][m]) {
  (void)SweepInPlace<m>(a);
}

// M = B Q B^T. With finite B the zero entries of Q contribute exact zeros and M is formed from
// the diagonal alone; a non-finite B takes the literal product, whose 0 * inf terms make the
// NaN that the generic kernels make.
template <int m>
METROFIT_ALWAYS_INLINE void PointWeight(const double (&B)[m][3], double (&M)[m][m]) {
  double check = 0.0;
  METROFIT_UNROLL
  for (int i = 0; i < m; ++i) check += B[i][0] + B[i][1] + B[i][2];
  if (std::isfinite(check)) {
    METROFIT_UNROLL
    for (int i = 0; i < m; ++i) METROFIT_UNROLL
    for (int j = 0; j < m; ++j)
      M[i][j] = (B[i][0] * kCofactor) * B[j][0] + (B[i][1] * kCofactor) * B[j][1] +
                (B[i][2] * kCofactor) * B[j][2];
    return;
  }
  double BQ[m][3];
  METROFIT_UNROLL
  for (int i = 0; i < m; ++i) METROFIT_UNROLL
  for (int k = 0; k < 3; ++k) {
    double s = 0.0;
    METROFIT_UNROLL
    for (int l = 0; l < 3; ++l) s += B[i][l] * (l == k ? kCofactor : 0.0);
    BQ[i][k] = s;
  }
  METROFIT_UNROLL
  for (int i = 0; i < m; ++i) METROFIT_UNROLL
  for (int j = 0; j < m; ++j) {
    double s = 0.0;
    METROFIT_UNROLL
    for (int k = 0; k < 3; ++k) s += BQ[i][k] * B[j][k];
    M[i][j] = s;
  }
}

// Q B^T (3 x m), with the same care for non-finite B.
template <int m>
METROFIT_ALWAYS_INLINE void CofactorTimesBt(const double (&B)[m][3], double (&QBt)[3][m]) {
  double check = 0.0;
  METROFIT_UNROLL
  for (int i = 0; i < m; ++i) check += B[i][0] + B[i][1] + B[i][2];
  const bool finite = std::isfinite(check);
  METROFIT_UNROLL
  for (int j = 0; j < 3; ++j) METROFIT_UNROLL
  for (int c = 0; c < m; ++c) {
    if (finite) {
      QBt[j][c] = kCofactor * B[c][j];
      continue;
    }
    double s = 0.0;
    METROFIT_UNROLL
    for (int k = 0; k < 3; ++k) s += (j == k ? kCofactor : 0.0) * B[c][k];
    QBt[j][c] = s;
  }
}

// v = Q B^T M^-1 w, the point's residual vector.
template <int m>
METROFIT_ALWAYS_INLINE KPt3<double> Residual(const double (&B)[m][3], const double (&M)[m][m],
                                             const double (&w)[m]) {
  double QBt[3][m];
  CofactorTimesBt<m>(B, QBt);
  double v[3];
  METROFIT_UNROLL
  for (int j = 0; j < 3; ++j) {
    double QBtM[m];
    METROFIT_UNROLL
    for (int c = 0; c < m; ++c) {
      double s = QBt[j][0] * M[0][c];
      METROFIT_UNROLL
      for (int k = 1; k < m; ++k) s += QBt[j][k] * M[k][c];
      QBtM[c] = s;
    }
    double s = QBtM[0] * w[0];
    METROFIT_UNROLL
    for (int c = 1; c < m; ++c) s += QBtM[c] * w[c];
    v[j] = s;
  }
  return KPt3<double>(v[0], v[1], v[2]);
}

// The sums of one pass, N and u held as groups of adjacent entries in lanes V (pairs, or
// quads on the AVX2 path). Per point, in the order of the row-pointer kernels:
//   AtM[a][j] = sum_k A[k][a] M[k][j],   N[a][b] += sum_k AtM[a][k] A[k][b],
//   u[a] += sum_k AtM[a][k] w[k].
// Each entry is summed over the points in the same order on either path.
template <int m, int n, class V>
struct LaneSums {
  static constexpr int L = LaneTraits<V>::kLanes;
  static constexpr int kGroups = (n + L - 1) / L;  // a short last group is padded with zeros
  V N[n][kGroups];
  V u[kGroups];
  double objective = 0.0;

  LaneSums() {
    for (auto& row : N)
      for (auto& v : row) v = Filled<V>(0.0);
    for (auto& v : u) v = Filled<V>(0.0);
  }

  // Rows [first, last) of N, and u when asked: a pass over a block adds N a few rows at a
  // time (each entry still summed point after point), so that the running sums stay in
  // registers.
  template <int first, int last, bool withU>
  METROFIT_ALWAYS_INLINE void AddRows(const double (&A)[m][n], const double (&M)[m][m],
                                      const double (&w)[m]) {
    V Ag[m][kGroups];
    METROFIT_UNROLL
    for (int k = 0; k < m; ++k) METROFIT_UNROLL
    for (int g = 0; g < kGroups; ++g) Ag[k][g] = Group(A[k], L * g);
    V AtM[kGroups][m];
    METROFIT_UNROLL
    for (int g = 0; g < kGroups; ++g) METROFIT_UNROLL
    for (int j = 0; j < m; ++j) {
      V s = Ag[0][g] * Filled<V>(M[0][j]);
      METROFIT_UNROLL
      for (int k = 1; k < m; ++k) s = s + Ag[k][g] * Filled<V>(M[k][j]);
      AtM[g][j] = s;
    }
    METROFIT_UNROLL
    for (int a = first; a < last; ++a) {
      V coefficient[m];
      METROFIT_UNROLL
      for (int k = 0; k < m; ++k) coefficient[k] = Filled<V>(AtM[a / L][k][a % L]);
      METROFIT_UNROLL
      for (int g = 0; g < kGroups; ++g) {
        V s = coefficient[0] * Ag[0][g];
        METROFIT_UNROLL
        for (int k = 1; k < m; ++k) s = s + coefficient[k] * Ag[k][g];
        N[a][g] += s;
      }
    }
    if constexpr (!withU) return;
    METROFIT_UNROLL
    for (int g = 0; g < kGroups; ++g) {
      V s = AtM[g][0] * Filled<V>(w[0]);
      METROFIT_UNROLL
      for (int k = 1; k < m; ++k) s = s + AtM[g][k] * Filled<V>(w[k]);
      u[g] += s;
    }
  }

  // Entries [at, at + L) of a row, zeros past its end.
  static METROFIT_ALWAYS_INLINE V Group(const double (&row)[n], int at) {
    const auto entry = [&row](int j) { return j < n ? row[j] : 0.0; };
    if constexpr (L == 2) {
      return MakePair(entry(at), entry(at + 1));
    } else {
      return V{entry(at), entry(at + 1), entry(at + 2), entry(at + 3)};
    }
  }

  METROFIT_ALWAYS_INLINE void Store(NormalSums& sums) const {
    for (int a = 0; a < n; ++a) {
      for (int b = 0; b < n; ++b) sums.N[a][b] = N[a][b / L][b % L];
      sums.u[a] = u[a / L][a % L];
    }
    sums.objective = objective;
  }
};

// The point the model sees: paraboloid and torus points with the probe radius removed against
// the current shape, all others as measured.
template <class Shape>
METROFIT_ALWAYS_INLINE KPt3<double> ModelPoint(const PassContext& ctx, std::size_t i) {
  const KPt3<double>& p = ctx.in.m_points[i];
  if constexpr (Shape::kProbeCompensated) {
    return CompensateProbe(Shape::kFitType, ctx.in.m_probeRadius, ctx.res, ctx.rotation, p);
  } else {
    return p;
  }
}

template <class Shape>
struct PointPass {
  static constexpr int m = Shape::kEngine.conditions;
  static constexpr int n = Shape::kEngine.parameters;
  using Lin = Linearisation<m, n>;

  static void Accumulate(PassContext& ctx, NormalSums& sums) {
#if defined(METROFIT_HAS_DOUBLE_QUAD)
    if (numeric::ActiveVectorPath() == numeric::VectorPath::kAvx2) return AccumulateAvx2(ctx, sums);
#endif
    AccumulateOn<DoublePair>(ctx, sums);
  }

  static ResidualSums Residuals(PassContext& ctx) {
#if defined(METROFIT_HAS_DOUBLE_QUAD)
    if (numeric::ActiveVectorPath() == numeric::VectorPath::kAvx2) return ResidualsAvx2(ctx);
#endif
    return ResidualsOn<DoublePair>(ctx);
  }

  // The model at one point into row-pointer matrices (the diagonal of Q, B, A, w).
  static void Evaluate(const KPt3<double>& p, const CFitResult& r, double** Q, double** B,
                       double** A, double** w) {
    Q[0][0] = Q[1][1] = Q[2][2] = kCofactor;
    Lin lin;
    Shape::Evaluate(typename Shape::Frame(r), ToVec3(p), lin);
    METROFIT_UNROLL
    for (int k = 0; k < m; ++k) {
      METROFIT_UNROLL
      for (int j = 0; j < 3; ++j) B[k][j] = lin.B[k][j];
      METROFIT_UNROLL
      for (int j = 0; j < n; ++j) A[k][j] = lin.A[k][j];
      w[k][0] = lin.w[k];
    }
  }

 private:
#if defined(METROFIT_HAS_DOUBLE_QUAD)
  // The same passes with the processor's AVX2: the inlined model and sums take its wider
  // instructions; nothing else differs.
  __attribute__((target("avx2"))) static void AccumulateAvx2(PassContext& ctx, NormalSums& sums) {
    AccumulateOn<DoubleQuad>(ctx, sums);
  }
  __attribute__((target("avx2"))) static ResidualSums ResidualsAvx2(PassContext& ctx) {
    return ResidualsOn<DoubleQuad>(ctx);
  }
#endif

  template <class V>
  static METROFIT_ALWAYS_INLINE void AccumulateOn(PassContext& ctx, NormalSums& sums) {
    const typename Shape::Frame frame(ctx.res);
    LaneSums<m, n, V> acc;
    const std::size_t count = ctx.in.m_points.size();
    Block block;
    for (std::size_t first = 0; first < count; first += kBlockSize) {
      const int size = static_cast<int>(count - first < kBlockSize ? count - first : kBlockSize);
      block.template Linearise<V>(ctx, frame, first, size);
      for (int i = 0; i < size; ++i) {
        const Lin& lin = block.lin[i];
        const auto& M = block.M[i];
        if (ctx.noRedundancy) {
          acc.objective = kNoRedundancyVarianceFactor;
        } else {
          acc.objective += WeightedSquare(lin.w, M);
        }
      }
      AddBlockRows<V, 0>(acc, block, size);
    }
    acc.Store(sums);
  }

  // Rows of N added per sweep over a block's points: with three rows (six quads of sums for a
  // cylinder) the running sums stay in registers; all rows at once spill them, and every point
  // then waits on a store and a load of each.
  static constexpr int kRowsPerSweep = 3;
  template <class V, int first, class Points>
  static METROFIT_ALWAYS_INLINE void AddBlockRows(LaneSums<m, n, V>& acc, const Points& block,
                                                  int size) {
    constexpr int last = first + kRowsPerSweep < n ? first + kRowsPerSweep : n;
    for (int i = 0; i < size; ++i)
      acc.template AddRows<first, last, last == n>(block.lin[i].A, block.M[i], block.lin[i].w);
    if constexpr (last < n) AddBlockRows<V, last>(acc, block, size);
  }

  template <class V>
  static METROFIT_ALWAYS_INLINE ResidualSums ResidualsOn(PassContext& ctx) {
    const typename Shape::Frame frame(ctx.res);
    const std::size_t count = ctx.in.m_points.size();
    auto& out = ctx.res.m_deviations;
    // One growth of the caller's list for the whole pass, none per point.
    if (ctx.appendDeviations) out.reserve(out.size() + count);
    ResidualSums sums;
    Block block;
    for (std::size_t first = 0; first < count; first += kBlockSize) {
      const int size = static_cast<int>(count - first < kBlockSize ? count - first : kBlockSize);
      block.template Linearise<V>(ctx, frame, first, size);
      for (int i = 0; i < size; ++i) {
        const KPt3<double> v = Residual(block.lin[i].B, block.M[i], block.lin[i].w);
        sums.Add(v);
        if (ctx.appendDeviations) out.push_back(v);
      }
    }
    sums.Finish();
    return sums;
  }

  // Points linearised ahead of the sums: the evaluations of a block are independent of each
  // other, so their square roots and divisions overlap instead of waiting on one another.
  static constexpr std::size_t kBlockSize = 64;
  static constexpr std::ptrdiff_t kCacheLine = 64;  // bytes the processor fetches at once
  struct Block {
    Lin lin[kBlockSize];
    double M[kBlockSize][m][m];

    // Points [first, first + size) in groups of V's lanes, the few left over one at a time.
    template <class V>
    METROFIT_ALWAYS_INLINE void Linearise(const PassContext& ctx,
                                          const typename Shape::Frame& frame, std::size_t first,
                                          int size) {
      constexpr int L = LaneTraits<V>::kLanes;
      PrefetchNextBlock(ctx, first + kBlockSize);
      int i = 0;
      for (; i + L <= size; i += L) {
        Linearisation<m, n, V> group;
        Shape::Evaluate(frame, Gather<V>(ctx, first + static_cast<std::size_t>(i)), group);
        METROFIT_UNROLL
        for (int l = 0; l < L; ++l) Unpack(group, l, lin[i + l]);
        if (!WeighLanes(group.B, i)) {
          METROFIT_UNROLL
          for (int l = 0; l < L; ++l) Weigh(i + l);
        }
      }
      for (; i < size; ++i) {
        Shape::Evaluate(frame, ToVec3(ModelPoint<Shape>(ctx, first + static_cast<std::size_t>(i))),
                        lin[i]);
        Weigh(i);
      }
    }

    template <class V>
    static METROFIT_ALWAYS_INLINE Vec3<V> Gather(const PassContext& ctx, std::size_t at) {
      if constexpr (LaneTraits<V>::kLanes == 2) {
        return ToVec3(ModelPoint<Shape>(ctx, at), ModelPoint<Shape>(ctx, at + 1));
      } else {
        return ToVec3(ModelPoint<Shape>(ctx, at), ModelPoint<Shape>(ctx, at + 1),
                      ModelPoint<Shape>(ctx, at + 2), ModelPoint<Shape>(ctx, at + 3));
      }
    }

    // Asks for the next block's points while this one is computed: on lists larger than the
    // caches, waiting on the loads of the points otherwise takes a third of the pass.
    static METROFIT_ALWAYS_INLINE void PrefetchNextBlock(const PassContext& ctx, std::size_t next) {
#if defined(__GNUC__)
      const std::size_t count = ctx.in.m_points.size();
      if (next >= count) return;
      const std::size_t end = next + kBlockSize < count ? next + kBlockSize : count;
      const char* from = reinterpret_cast<const char*>(ctx.in.m_points.data() + next);
      const char* to = reinterpret_cast<const char*>(ctx.in.m_points.data() + end);
      for (; from < to; from += kCacheLine) __builtin_prefetch(from);
#else
      (void)ctx;
      (void)next;
#endif
    }

    // M^-1 of point i alone.
    METROFIT_ALWAYS_INLINE void Weigh(int i) {
      // Formed and inverted in registers, stored once: reading back part of a just-stored
      // vector stalls the store forwarding.
      double local[m][m];
      PointWeight<m>(lin[i].B, local);
      InvertInPlace<m>(local);
      Store(local, M[i]);
    }

    // M^-1 of the points from i on, one per lane, together; false where any needs the careful
    // path (a non-finite B or a failing pivot), which the caller then takes for each alone.
    template <class V>
    METROFIT_ALWAYS_INLINE bool WeighLanes(const V (&B)[m][3], int i) {
      constexpr int L = LaneTraits<V>::kLanes;
      V check = Filled<V>(0.0);
      METROFIT_UNROLL
      for (int k = 0; k < m; ++k) check = check + (B[k][0] + B[k][1] + B[k][2]);
      METROFIT_UNROLL
      for (int l = 0; l < L; ++l)
        if (!std::isfinite(check[l])) return false;
      V lanes[m][m];
      METROFIT_UNROLL
      for (int k = 0; k < m; ++k) METROFIT_UNROLL
      for (int c = 0; c < m; ++c)
        lanes[k][c] = (B[k][0] * kCofactor) * B[c][0] + (B[k][1] * kCofactor) * B[c][1] +
                      (B[k][2] * kCofactor) * B[c][2];
      if (!SweepInPlace<m>(lanes)) return false;
      METROFIT_UNROLL
      for (int l = 0; l < L; ++l) METROFIT_UNROLL
      for (int k = 0; k < m; ++k) METROFIT_UNROLL
      for (int c = 0; c < m; ++c) M[i + l][k][c] = lanes[k][c][l];
      return true;
    }

    static METROFIT_ALWAYS_INLINE void Store(const double (&from)[m][m], double (&to)[m][m]) {
      METROFIT_UNROLL
      for (int k = 0; k < m; ++k) METROFIT_UNROLL
      for (int l = 0; l < m; ++l) to[k][l] = from[k][l];
    }

    template <class V>
    static METROFIT_ALWAYS_INLINE void Unpack(const Linearisation<m, n, V>& group, int lane,
                                              Lin& one) {
      METROFIT_UNROLL
      for (int k = 0; k < m; ++k) {
        METROFIT_UNROLL
        for (int j = 0; j < 3; ++j) one.B[k][j] = group.B[k][j][lane];
        METROFIT_UNROLL
        for (int j = 0; j < n; ++j) one.A[k][j] = group.A[k][j][lane];
        one.w[k] = group.w[k][lane];
      }
    }
  };

  static METROFIT_ALWAYS_INLINE double WeightedSquare(const double (&w)[m],
                                                      const double (&M)[m][m]) {
    double wtM[m];
    METROFIT_UNROLL
    for (int j = 0; j < m; ++j) {
      double s = w[0] * M[0][j];
      METROFIT_UNROLL
      for (int k = 1; k < m; ++k) s += w[k] * M[k][j];
      wtM[j] = s;
    }
    double s = wtM[0] * w[0];
    METROFIT_UNROLL
    for (int j = 1; j < m; ++j) s += wtM[j] * w[j];
    return s;
  }
};

}  // namespace metrofit

#endif  // METROFIT_LSQ_POINT_PASS_H
