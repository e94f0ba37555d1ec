// Levenberg-Marquardt minimisers and the sum-of-squares helpers; see levenberg_marquardt.h.
#include "numeric/levenberg_marquardt.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "numeric/cholesky.h"
#include "numeric/compensated.h"
#include "numeric/vector_path.h"

namespace metrofit::numeric {
namespace {

// Smallest normal double: where an underflowed damping restarts.
constexpr double kSmallestNormalDamping = 2.2250738585072014e-308;
// Fraction of the accuracy figure's quadratic sum: the figure is an rms over three
// coordinates.
constexpr double kAccuracyCoordinates = 3.0;

enum class Variant { kStrict, kObjective };

template <bool kInclusive>
bool StepTest(const NVector& x, const NVector& xPrev, double tol) {
  if (x.count < 1) return true;
  if (x.count != xPrev.count) return false;
  for (std::int32_t i = 0; i < x.count; ++i) {
    const double step = std::fabs(x[i] - xPrev[i]);
    bool ok;
    if (tol >= 0.0) {
      ok = kInclusive ? step <= tol : step < tol;
    } else {
      ok = step <= std::fabs(xPrev[i]) * -tol;
    }
    if (!ok) return false;
  }
  return true;
}

// A trial whose step is tested for convergence.
bool TestsStep(Variant variant, double fPrev, double fNew) {
  if (fPrev > fNew) return true;
  return variant == Variant::kStrict ? fNew == fPrev : fNew < fPrev + kObjectiveTieMargin;
}

NumericStatus Minimise(Variant variant, void* context, ObjectiveFn objective, GradientFn gradient,
                       std::int32_t maxIter, double tol, double* result, NVector* x,
                       double* accuracy) {
  if (x == nullptr || objective == nullptr || gradient == nullptr)
    return NumericStatus::kBadArguments;
  const auto stepConverged = variant == Variant::kStrict ? StepTest<false> : StepTest<true>;

  double lambda = kInitialDamping;
  double f = objective(context, *x);
  if (result != nullptr) *result = f;
  const std::int32_t p = x->count;

  const UniqueMatrix a0(CreateMatrix(p, p, kPackedSymmetric));
  const UniqueMatrix a(CreateMatrix(p, p, kPackedSymmetric));
  const UniqueVector step(CreateVector(p));
  const UniqueVector g(CreateVector(p));
  const UniqueVector xPrev(CreateVector(p));
  if (!a0 || !a || !step || !g || !xPrev) return NumericStatus::kAllocationFailure;
  const std::int64_t packed = ElementCount(kPackedSymmetric, p, p);

  // fX is the objective at the current x, which after a rejected trial is the trial point.
  double fX = f;
  std::int32_t it = 1;
  bool converged = false;
  do {
    if (maxIter != 0 && it >= maxIter) break;
    lambda *= kDampingShrink;
    const double fPrev = f;
    gradient(context, *x, *g, *a0);
    CopyVector(x, xPrev.get());
    do {
      if (maxIter != 0 && it >= maxIter) {
        CopyVector(xPrev.get(), x);
        fX = fPrev;
        break;
      }
      for (std::int64_t k = 0; k < packed; ++k) a->data[k] = a0->data[k];
      for (std::int32_t i = 0; i < p; ++i) (*a)(i, i) += ((*a)(i, i) + 1.0) * lambda;
      for (std::int32_t i = 0; i < p; ++i) (*step)[i] = -(*g)[i];
      if (CholeskyFactor(a.get()) != 0) {
        CholeskySolve(a.get(), step.get());
        AddVectors(xPrev.get(), step.get(), x);
        const double fNew = objective(context, *x);
        fX = fNew;
        ++it;
        if (TestsStep(variant, fPrev, fNew)) converged = stepConverged(*x, *xPrev, tol);
        if (fPrev > fNew) {
          f = fNew;
          break;
        }
      }
      lambda = GrowDamping(lambda);
    } while (!converged);
  } while (!converged);
  if (result != nullptr) *result = fX;

  if (accuracy != nullptr) {
    for (std::int32_t i = 0; i < p; ++i) (*a0)(i, i) += ((*a0)(i, i) + 1.0) * lambda;
    const double rc = ConditionEstimate(a0.get());
    double e = 0.0;
    if (rc != 0.0) {  // also a NaN estimate, which then falls back to tol
      const double q = kMachineEpsilon / rc;
      e = q > tol ? q : tol;
    }
    *accuracy = std::sqrt((p * tol * tol + e * e) / kAccuracyCoordinates);
  }
  return converged ? NumericStatus::kOk : NumericStatus::kIterationLimit;
}

}  // namespace

double GrowDamping(double lambda) {
  lambda *= kDampingGrowth;
  return lambda == 0.0 ? kSmallestNormalDamping : lambda;
}

bool StepConverged(const NVector& x, const NVector& xPrev, double tol) {
  return StepTest<false>(x, xPrev, tol);
}

bool StepConvergedInclusive(const NVector& x, const NVector& xPrev, double tol) {
  return StepTest<true>(x, xPrev, tol);
}

double SumOfSquares(const PointSet& points, const NVector& x, ResidualFn residual) {
  if (points.count < 1) return 0.0;
  if (points.count < 2) {
    const double r = residual(points, 0, x);
    return r * r;
  }
  KahanSum sum;
  for (std::int32_t i = 0; i < points.count; ++i) {
    const double r = residual(points, i, x);
    sum.Add(r * r);
  }
  return sum.Sum();
}

double SumOfSquares(const PointSet& points, const NVector& x, ResidualBlockFn residuals) {
  // Small blocks: the compensated sum is one long chain of dependent additions (about 12
  // cycles a point), and with a few points per block the processor works on the next block's
  // residuals while the chain of this one completes.
  constexpr std::int32_t kSumBlock = 16;
  double r[kSumBlock];
  if (points.count < 1) return 0.0;
  if (points.count < 2) {
    residuals(points, 0, 1, x, r);
    return r[0] * r[0];
  }
  KahanSum sum;
  for (std::int32_t first = 0; first < points.count; first += kSumBlock) {
    const std::int32_t n = points.count - first < kSumBlock ? points.count - first : kSumBlock;
    residuals(points, first, n, x, r);
    for (std::int32_t i = 0; i < n; ++i) sum.Add(r[i] * r[i]);
  }
  return sum.Sum();
}

namespace {

void ZeroOutputs(NVector& gradient, NMatrix& normal) {
  for (std::int32_t i = 0; i < gradient.count; ++i) gradient[i] = 0.0;
  const std::int64_t n = ElementCount(normal.kind, normal.rows, normal.cols);
  for (std::int64_t k = 0; k < n; ++k) normal.data[k] = 0.0;
}

// The zero-filled work block of the normal equations: sums and corrections of the packed
// matrix and the gradient, a third section whose first p doubles hold the current Jacobian
// row, and the residual of the current point. Null, with both outputs zeroed, when the shapes
// do not match or the block cannot be allocated.
UniqueDoubles NormalEquationsBlock(const NVector& x, NVector& gradient, NMatrix& normal,
                                   std::int64_t* elements) {
  const std::int32_t p = x.count;
  const std::int64_t packed = ElementCount(kPackedSymmetric, p, p);
  const bool shapesMatch = gradient.count == p && normal.kind == kPackedSymmetric &&
                           normal.rows == p && normal.cols == p;
  *elements = packed + p;
  UniqueDoubles block;
  if (shapesMatch && p > 0) block = AllocateDoubles(static_cast<std::size_t>(*elements * 3 + 1));
  if (!block) ZeroOutputs(gradient, normal);
  return block;
}

void StoreNormalEquations(const double* sum, std::int32_t p, NVector& gradient, NMatrix& normal) {
  const std::int64_t packed = ElementCount(kPackedSymmetric, p, p);
  for (std::int64_t k = 0; k < packed; ++k) normal.data[k] = sum[k];
  for (std::int32_t u = 0; u < p; ++u) gradient[u] = sum[packed + u];
}

// Element k of the normal equations takes the product f[first[k]] f[second[k]] of each point,
// with f = (row[0], ..., row[p - 1], r): row[u] row[v] for v <= u (the packed matrix), then
// r row[u] (the gradient).
template <std::int32_t p>
struct TermFactors {
  static constexpr std::int32_t kTerms = p * (p + 1) / 2 + p;
  std::int32_t first[kTerms];
  std::int32_t second[kTerms];
  constexpr TermFactors() : first(), second() {
    std::int32_t k = 0;
    for (std::int32_t u = 0; u < p; ++u)
      for (std::int32_t v = 0; v <= u; ++v, ++k) {
        first[k] = u;
        second[k] = v;
      }
    for (std::int32_t u = 0; u < p; ++u, ++k) {
      first[k] = p;
      second[k] = u;
    }
  }
};

// Each element's own Kahan step, y = term - corr, t = sum + y, corr = (t - sum) - y, sum = t.
void AddTerms(const double* terms, std::int64_t n, double* sum, double* corr) {
  for (std::int64_t k = 0; k < n; ++k) {
    const double y = terms[k] - corr[k];
    const double t = sum[k] + y;
    corr[k] = (t - sum[k]) - y;
    sum[k] = t;
  }
}

// The points' terms summed into their elements, for a row length fixed at compile time, two
// elements side by side.
template <std::int32_t p>
void SumPointTerms(const double* rows, const double* residuals, std::int32_t count, double* sum,
                   double* corr) {
  constexpr std::int32_t kTerms = TermFactors<p>::kTerms;
  for (std::int32_t i = 0; i < count; ++i) {
    const double* row = rows + static_cast<std::ptrdiff_t>(i) * p;
    double terms[kTerms];
    std::int32_t k = 0;
    METROFIT_UNROLL
    for (std::int32_t u = 0; u < p; ++u) METROFIT_UNROLL
    for (std::int32_t v = 0; v <= u; ++v) terms[k++] = row[u] * row[v];
    METROFIT_UNROLL
    for (std::int32_t u = 0; u < p; ++u) terms[k++] = residuals[i] * row[u];
    k = 0;
    METROFIT_UNROLL
    for (; k + 1 < kTerms; k += 2) {
      DoublePair term, c, s;
      std::memcpy(&term, terms + k, sizeof term);
      std::memcpy(&c, corr + k, sizeof c);
      std::memcpy(&s, sum + k, sizeof s);
      const DoublePair y = term - c;
      const DoublePair t = s + y;
      const DoublePair nc = (t - s) - y;
      std::memcpy(corr + k, &nc, sizeof nc);
      std::memcpy(sum + k, &t, sizeof t);
    }
    if (k < kTerms) AddTerms(terms + k, 1, sum + k, corr + k);
  }
}

#if defined(__GNUC__) && defined(__x86_64__)
typedef double DoubleQuad __attribute__((vector_size(32)));

// The elements grouped into quads by their first factor: quad (u, from) holds the elements
// row[u] row[v], v = from .. from + 3 (only v <= u are elements of the packed matrix), and
// the gradient's quads (u = p) hold r row[v]. Each quad's products are then a broadcast of
// row[u] (or r) times four consecutive entries of the row, read as they lie, with no shuffle.
// Lanes that are no element compute a product nobody stores.
template <std::int32_t p>
struct QuadPlan {
  static constexpr std::int32_t QuadsOf(std::int32_t u) { return u < p ? u / 4 + 1 : (p + 3) / 4; }
  static constexpr std::int32_t Count() {
    std::int32_t n = 0;
    for (std::int32_t u = 0; u <= p; ++u) n += QuadsOf(u);
    return n;
  }
  static constexpr std::int32_t kQuads = Count();
  std::int32_t u[kQuads] = {};     // first factor: a row entry, or p for the residual
  std::int32_t from[kQuads] = {};  // second factor of lane 0: row[from]
  constexpr QuadPlan() {
    std::int32_t q = 0;
    for (std::int32_t first = 0; first <= p; ++first)
      for (std::int32_t k = 0; k < QuadsOf(first); ++k, ++q) {
        u[q] = first;
        from[q] = 4 * k;
      }
  }
  // The element of lane j of quad q, or -1 for a lane that is none.
  constexpr std::int32_t Element(std::int32_t q, std::int32_t j) const {
    const std::int32_t v = from[q] + j;
    if (u[q] < p) return v <= u[q] ? u[q] * (u[q] + 1) / 2 + v : -1;
    return v < p ? p * (p + 1) / 2 + v : -1;
  }
};

// Quads of elements whose sums and corrections stay in registers through one sweep over the
// block's points (fourteen registers of running state); rows of up to four unknowns take one
// sweep, wider ones two.
constexpr std::int32_t kQuadsPerSweep = 7;

// Entry u of a row of p, 0 past its end.
template <std::int32_t p>
METROFIT_ALWAYS_INLINE double RowAt(const double* row, std::int32_t u) {
  return u < p ? row[u] : 0.0;
}

// The Kahan steps of quads [q, last) for one point, the row held as two quads.
template <std::int32_t p, std::int32_t first, std::int32_t q, std::int32_t last>
__attribute__((target("avx2"))) METROFIT_ALWAYS_INLINE void StepQuads(
    const double* row, double residual, DoubleQuad r0, DoubleQuad r1, DoubleQuad (&s)[last - first],
    DoubleQuad (&c)[last - first]) {
  if constexpr (q < last) {
    constexpr QuadPlan<p> kPlan{};
    const double f = kPlan.u[q] < p ? row[kPlan.u[q]] : residual;
    const DoubleQuad term = DoubleQuad{f, f, f, f} * (kPlan.from[q] == 0 ? r0 : r1);
    const DoubleQuad y = term - c[q - first];
    const DoubleQuad t = s[q - first] + y;
    c[q - first] = (t - s[q - first]) - y;
    s[q - first] = t;
    StepQuads<p, first, q + 1, last>(row, residual, r0, r1, s, c);
  }
}

// Quads [first, last) of the plan over all points of a block: the running sums and
// corrections are loaded once, stepped point after point in registers, and stored once.
template <std::int32_t p, std::int32_t first, std::int32_t last>
__attribute__((target("avx2"))) METROFIT_ALWAYS_INLINE void SumQuadsAvx2(
    const double* rows, const double* residuals, std::int32_t count, double* sum, double* corr) {
  constexpr QuadPlan<p> kPlan{};
  DoubleQuad s[last - first], c[last - first];
  for (std::int32_t q = first; q < last; ++q) {
    for (std::int32_t j = 0; j < 4; ++j) {
      const std::int32_t k = kPlan.Element(q, j);
      s[q - first][j] = k >= 0 ? sum[k] : 0.0;
      c[q - first][j] = k >= 0 ? corr[k] : 0.0;
    }
  }
  for (std::int32_t i = 0; i < count; ++i) {
    const double* row = rows + static_cast<std::ptrdiff_t>(i) * p;
    const DoubleQuad r0 = {RowAt<p>(row, 0), RowAt<p>(row, 1), RowAt<p>(row, 2), RowAt<p>(row, 3)};
    const DoubleQuad r1 = {RowAt<p>(row, 4), RowAt<p>(row, 5), RowAt<p>(row, 6), RowAt<p>(row, 7)};
    StepQuads<p, first, first, last>(row, residuals[i], r0, r1, s, c);
  }
  for (std::int32_t q = first; q < last; ++q) {
    for (std::int32_t j = 0; j < 4; ++j) {
      const std::int32_t k = kPlan.Element(q, j);
      if (k < 0) continue;
      sum[k] = s[q - first][j];
      corr[k] = c[q - first][j];
    }
  }
}

template <std::int32_t p, std::int32_t first>
__attribute__((target("avx2"))) METROFIT_ALWAYS_INLINE void SumSweepsAvx2(
    const double* rows, const double* residuals, std::int32_t count, double* sum, double* corr) {
  constexpr std::int32_t kQuads = QuadPlan<p>::kQuads;
  constexpr std::int32_t last = first + kQuadsPerSweep < kQuads ? first + kQuadsPerSweep : kQuads;
  SumQuadsAvx2<p, first, last>(rows, residuals, count, sum, corr);
  if constexpr (last < kQuads) SumSweepsAvx2<p, last>(rows, residuals, count, sum, corr);
}

// The same sums four elements at a time, for processors with AVX2 (vector_path.h): each lane
// does the scalar Kahan step on its element, point after point, so the bits are those of the
// baseline path.
template <std::int32_t p>
__attribute__((target("avx2"))) void SumPointTermsAvx2(const double* rows, const double* residuals,
                                                       std::int32_t count, double* sum,
                                                       double* corr) {
  static_assert(p <= 8, "a row must fit in two quads");
  SumSweepsAvx2<p, 0>(rows, residuals, count, sum, corr);
}

template <std::int32_t p>
void SumPointTermsOnPath(const double* rows, const double* residuals, std::int32_t count,
                         double* sum, double* corr) {
  if (ActiveVectorPath() == VectorPath::kAvx2)
    return SumPointTermsAvx2<p>(rows, residuals, count, sum, corr);
  SumPointTerms<p>(rows, residuals, count, sum, corr);
}
#else
template <std::int32_t p>
void SumPointTermsOnPath(const double* rows, const double* residuals, std::int32_t count,
                         double* sum, double* corr) {
  SumPointTerms<p>(rows, residuals, count, sum, corr);
}
#endif

void SumPointTerms(std::int32_t p, const double* rows, const double* residuals, std::int32_t count,
                   double* sum, double* corr) {
  switch (p) {
    case 1:
      return SumPointTermsOnPath<1>(rows, residuals, count, sum, corr);
    case 2:
      return SumPointTermsOnPath<2>(rows, residuals, count, sum, corr);
    case 3:
      return SumPointTermsOnPath<3>(rows, residuals, count, sum, corr);
    case 4:
      return SumPointTermsOnPath<4>(rows, residuals, count, sum, corr);
    case 5:
      return SumPointTermsOnPath<5>(rows, residuals, count, sum, corr);
    case 6:
      return SumPointTermsOnPath<6>(rows, residuals, count, sum, corr);
    case 7:
      return SumPointTermsOnPath<7>(rows, residuals, count, sum, corr);
    default:
      return SumPointTermsOnPath<kMaxBlockUnknowns>(rows, residuals, count, sum, corr);
  }
}

}  // namespace

void NormalEquations(const PointSet& points, const NVector& x, ResidualRowFn row, NVector& gradient,
                     NMatrix& normal) {
  const std::int32_t p = x.count;
  std::int64_t elements = 0;
  const UniqueDoubles block = NormalEquationsBlock(x, gradient, normal, &elements);
  if (!block) return;
  double* sum = block.get();
  double* corr = sum + elements;
  double* rowData = corr + elements;
  double& r = rowData[elements];
  NVector rowView = VectorView(rowData, p);
  for (std::int32_t i = 0; i < points.count; ++i) {
    row(points, i, x, rowView, r);
    if (p <= kMaxBlockUnknowns) {
      SumPointTerms(p, rowData, &r, 1, sum, corr);
      continue;
    }
    // Wider than the fixed forms: element by element, in the same order.
    std::int64_t k = 0;
    for (std::int32_t u = 0; u < p; ++u)
      for (std::int32_t v = 0; v <= u; ++v, ++k) {
        const double term = rowData[u] * rowData[v];
        AddTerms(&term, 1, sum + k, corr + k);
      }
    for (std::int32_t u = 0; u < p; ++u, ++k) {
      const double term = r * rowData[u];
      AddTerms(&term, 1, sum + k, corr + k);
    }
  }
  StoreNormalEquations(sum, p, gradient, normal);
}

void NormalEquations(const PointSet& points, const NVector& x, ResidualRowBlockFn rows,
                     NVector& gradient, NMatrix& normal) {
  const std::int32_t p = x.count;
  std::int64_t elements = 0;
  if (p > kMaxBlockUnknowns) {
    ZeroOutputs(gradient, normal);  // outside the block form's contract: nothing is summed
    return;
  }
  const UniqueDoubles block = NormalEquationsBlock(x, gradient, normal, &elements);
  if (!block) return;
  double* sum = block.get();
  double* corr = sum + elements;
  double rowData[kResidualBlock * kMaxBlockUnknowns];
  double residuals[kResidualBlock];
  for (std::int32_t first = 0; first < points.count; first += kResidualBlock) {
    const std::int32_t n =
        points.count - first < kResidualBlock ? points.count - first : kResidualBlock;
    rows(points, first, n, x, rowData, residuals);
    SumPointTerms(p, rowData, residuals, n, sum, corr);
  }
  StoreNormalEquations(sum, p, gradient, normal);
}

NumericStatus MinimiseLM(void* context, ObjectiveFn objective, GradientFn gradient,
                         std::int32_t maxIter, double tol, double* result, NVector* x,
                         double* accuracy) {
  return Minimise(Variant::kStrict, context, objective, gradient, maxIter, tol, result, x,
                  accuracy);
}

NumericStatus MinimiseLMObjective(void* context, ObjectiveFn objective, GradientFn gradient,
                                  std::int32_t maxIter, double tol, double* result, NVector* x,
                                  double* accuracy) {
  return Minimise(Variant::kObjective, context, objective, gradient, maxIter, tol, result, x,
                  accuracy);
}

}  // namespace metrofit::numeric
