// Pivoting walk for the smallest enclosing ball; the geometry is in enclosing_ball.h.
#include "numeric/enclosing_ball.h"

#include <cmath>

#include "numeric/cholesky.h"
#include "numeric/compensated.h"

namespace metrofit::numeric {
namespace {

// Smallest relative tolerance for "the centre has reached the circumcentre", relative to the
// larger of r and the centre's coordinates: below it the walk direction is rounding noise.
constexpr double kMinReachTolerance = 1e-14;
// A point blocks the walk only when d.(s - p) > kBlockingTolerance r |d|: points on the
// boundary that the walk moves along (d orthogonal to s - p up to rounding) never block.
constexpr double kBlockingTolerance = 1e-14;
constexpr int kMaxSupport = 4;
// A support point closer than this, relative to its distance from the first support point, to
// the affine hull of the others makes the support set affinely dependent.
constexpr double kDependence = 1e-12;

class Walk {
 public:
  Walk(const PointSet& points, int dim, NMatrix& gram, NVector& rhs)
      : points_(points), dim_(dim), gram_(gram), rhs_(rhs) {}

  NumericStatus Run(std::int32_t maxIter, double reachTol, double* centre, double* radius) {
    const double* p0 = points_.Point(0);
    for (int k = 0; k < dim_; ++k) c_[k] = p0[k];
    // The support set starts with the point farthest from point 0 (the first of equals).
    std::int32_t far = 0;
    double farDist = -1.0;
    for (std::int32_t j = 0; j < points_.count; ++j) {
      const double dj = SquaredDistance(c_, points_.Point(j));
      if (dj > farDist) {
        farDist = dj;
        far = j;
      }
    }
    support_[0] = far;
    size_ = 1;

    NumericStatus status = NumericStatus::kOk;
    std::int32_t it = 0;
    for (;;) {
      double d[3];
      double coeff[kMaxSupport];
      // An affinely dependent support set loses its newest point, which lies on the boundary in
      // aff(S) and so stays there as c moves orthogonally to aff(S): it must not block the walk
      // straight away again.
      std::int32_t dependent = -1;
      while (!DirectionToHull(d, coeff)) dependent = support_[--size_];
      const double dnorm = Norm(d);
      const double r = Radius();
      // A full support set spans the space: c is in aff(S) whatever rounding says about d.
      if (dnorm <= reachTol * r || dnorm <= RoundingFloor(r) || size_ == dim_ + 1) {
        int jmin = 0;
        for (int j = 1; j < size_; ++j) {
          if (coeff[j] < coeff[jmin]) jmin = j;
        }
        if (coeff[jmin] >= 0.0) break;  // c in conv(S): the smallest ball
        Drop(jmin);
        continue;
      }
      if (maxIter != 0 && it >= maxIter) {
        status = NumericStatus::kIterationLimit;
        break;
      }
      double lambda = 1.0;
      const std::int32_t stop = FindStopper(d, dnorm, r, dependent, &lambda);
      for (int k = 0; k < dim_; ++k) c_[k] += lambda * d[k];
      if (stop >= 0) support_[size_++] = stop;
      ++it;
    }
    for (int k = 0; k < 3; ++k) centre[k] = k < dim_ ? c_[k] : 0.0;
    *radius = Radius();
    return status;
  }

 private:
  double SquaredDistance(const double* a, const double* b) const {
    double s = 0.0;
    for (int k = 0; k < dim_; ++k) s += (a[k] - b[k]) * (a[k] - b[k]);
    return s;
  }
  double Norm(const double* v) const {
    return dim_ == 3 ? Hypot3(v[0], v[1], v[2]) : Hypot2(v[0], v[1]);
  }
  // Size of d that rounding alone produces: relative to the coordinates, not only to r, so a
  // small ball far from the origin still counts as having reached its circumcentre.
  double RoundingFloor(double r) const {
    double m = r;
    for (int k = 0; k < dim_; ++k) m = std::fmax(m, std::fabs(c_[k]));
    return kMinReachTolerance * m;
  }
  double Radius() const {
    const double* s = points_.Point(support_[0]);
    double v[3];
    for (int k = 0; k < dim_; ++k) v[k] = c_[k] - s[k];
    return Norm(v);
  }
  bool InSupport(std::int32_t j) const {
    for (int i = 0; i < size_; ++i) {
      if (support_[i] == j) return true;
    }
    return false;
  }
  void Drop(int i) {
    for (int k = i; k + 1 < size_; ++k) support_[k] = support_[k + 1];
    --size_;
  }

  // d = q - c for the orthogonal projection q of the centre onto aff(S), and the affine
  // coefficients of q with respect to S; false when S is affinely dependent (the Gram system is
  // not positive definite, or a pivot shows a point within kDependence of the span of the
  // others). As c is equidistant from S, q is the circumcentre of S. Computing d itself as a
  // projection, refined once, and never as the difference q - c keeps it orthogonal to aff(S)
  // relative to |d|, so points that the walk moves along (duplicates of support points,
  // concyclic points) never appear to block it.
  bool DirectionToHull(double* d, double* coeff) {
    const double* s0 = points_.Point(support_[0]);
    const int k = size_ - 1;
    double v[kMaxSupport - 1][3];
    double diag[kMaxSupport - 1];
    for (int t = 0; t < dim_; ++t) d[t] = s0[t] - c_[t];
    for (int i = 0; i < k; ++i) {
      const double* si = points_.Point(support_[i + 1]);
      for (int t = 0; t < dim_; ++t) v[i][t] = si[t] - s0[t];
    }
    // Leading k x k block of the packed storage is itself a packed k x k matrix.
    NMatrix g{k, k, kPackedSymmetric, gram_.data};
    NVector b = VectorView(rhs_.data, k);
    for (int i = 0; i < k; ++i) {
      for (int j = 0; j <= i; ++j) g(i, j) = CompensatedDot(v[i], v[j], dim_);
      diag[i] = g(i, i);
    }
    if (k > 0) {
      if (CholeskyFactor(&g) == 0) return false;
      for (int i = 0; i < k; ++i) {
        if (g(i, i) * g(i, i) <= kDependence * kDependence * diag[i]) return false;
      }
    }
    double beta[kMaxSupport - 1] = {0.0, 0.0, 0.0};
    // d = (s0 - c) + V beta with beta = -G^-1 V^T (s0 - c): two passes, the second removing what
    // rounding left of d's component in aff(S).
    for (int pass = 0; pass < 2 && k > 0; ++pass) {
      for (int i = 0; i < k; ++i) b[i] = -CompensatedDot(v[i], d, dim_);
      CholeskySolve(&g, &b);
      for (int i = 0; i < k; ++i) {
        beta[i] += b[i];
        for (int t = 0; t < dim_; ++t) d[t] += b[i] * v[i][t];
      }
    }
    KahanSum total;
    for (int i = 0; i < k; ++i) {
      coeff[i + 1] = beta[i];
      total.Add(beta[i]);
    }
    coeff[0] = 1.0 - total.Sum();
    return true;
  }

  // First point outside S that reaches the boundary while c moves along d; -1 when none does
  // before lambda = 1. A point already on or just across the boundary blocks at lambda = 0.
  std::int32_t FindStopper(const double* d, double dnorm, double r, std::int32_t ignore,
                           double* lambda) const {
    const double* s = points_.Point(support_[0]);
    const double threshold = kBlockingTolerance * r * dnorm;
    const double r2 = r * r;
    std::int32_t stop = -1;
    for (std::int32_t j = 0; j < points_.count; ++j) {
      const double* p = points_.Point(j);
      double den = 0.0;
      for (int k = 0; k < dim_; ++k) den += d[k] * (s[k] - p[k]);
      if (!(den > threshold) || j == ignore || InSupport(j)) continue;
      // ((s + p)/2 - c).(s - p) = (|s - c|^2 - |p - c|^2) / 2: the centred form is exact for
      // points near c and far from the origin.
      double l = 0.5 * (r2 - SquaredDistance(c_, p)) / den;
      if (l < 0.0) l = 0.0;
      if (l < *lambda) {
        *lambda = l;
        stop = j;
      }
    }
    return stop;
  }

  const PointSet& points_;
  const int dim_;
  NMatrix& gram_;
  NVector& rhs_;
  double c_[3] = {0.0, 0.0, 0.0};
  std::int32_t support_[kMaxSupport] = {0, 0, 0, 0};
  int size_ = 0;
};

}  // namespace

NumericStatus SmallestEnclosingBall(const PointSet* points, NVector* x, std::int32_t maxIter,
                                    double tol, bool planar, double* accuracy) {
  if (accuracy != nullptr) *accuracy = kMachineEpsilon;
  if (points == nullptr || points->count < 1 || x == nullptr || x->count < 4) {
    return NumericStatus::kBadArguments;
  }
  const int dim = planar ? 2 : 3;
  double* out = x->data;
  const double* p0 = points->Point(0);
  if (points->count == 1) {
    for (int k = 0; k < 3; ++k) out[k] = k < dim ? p0[k] : 0.0;
    out[3] = 0.0;
    return NumericStatus::kOk;
  }
  if (points->count == 2) {
    const double* p1 = points->Point(1);
    double h[3] = {0.0, 0.0, 0.0};
    for (int k = 0; k < dim; ++k) {
      out[k] = 0.5 * (p0[k] + p1[k]);
      h[k] = p1[k] - p0[k];
    }
    if (planar) out[2] = 0.0;
    out[3] = 0.5 * Hypot3(h[0], h[1], h[2]);
    return NumericStatus::kOk;
  }

  const UniqueMatrix gram(CreateMatrix(dim, dim, kPackedSymmetric));
  const UniqueVector rhs(CreateVector(dim));
  if (!gram || !rhs) return NumericStatus::kAllocationFailure;
  const double reachTol = tol > 0.0 ? tol : 0.0;
  Walk walk(*points, dim, *gram, *rhs);
  return walk.Run(maxIter, reachTol, out, &out[3]);
}

}  // namespace metrofit::numeric
