#include "precise/algebraic_starts.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace metrofit::precise {
namespace {

constexpr double kEps = std::numeric_limits<double>::epsilon();
constexpr double kPi = 3.141592653589793;
// A column whose part independent of the earlier columns is below this share of its norm
// (joined with sqrt(rows), the norm of a column of unit-RMS coordinates) is dependent: the
// data do not determine the unknowns of the model.
constexpr double kRankTolerance = 1e-10;
// A quadratic coefficient below this in unit-RMS coordinates is rounding: the surface is flat
// (paraboloid) or straight along the axis (spheroid), and its size would be noise.
constexpr double kFlatCoefficient = 1e-12;
// 4ac - b^2 of a unit conic coefficient vector at or below this is no ellipse.
constexpr double kEllipseMargin = 1e-14;
// Jacobi sweeps: a 3x3 matrix is diagonal to rounding after about five.
constexpr int kMaxJacobiSweeps = 50;
// Newton steps for the cubic's largest root; it converges monotonically in a few.
constexpr int kMaxCubicSteps = 200;

// ---- Points in centred, unit-RMS coordinates -------------------------------------------

template <std::size_t D>
struct Normalized {
  std::array<double, D> centroid{};
  double scale = 1.0;       // RMS distance from the centroid
  std::vector<double> pts;  // (p - centroid) / scale, D per point
};

// Two-pass centroid: the second pass removes the rounding of the first at large offsets.
template <std::size_t D>
std::optional<Normalized<D>> Normalize(const double* p, std::size_t count) {
  if (p == nullptr || count == 0) return std::nullopt;
  Normalized<D> n;
  for (int pass = 0; pass < 2; ++pass) {
    std::array<double, D> sum{};
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t k = 0; k < D; ++k) sum[k] += p[D * i + k] - n.centroid[k];
    }
    for (std::size_t k = 0; k < D; ++k) n.centroid[k] += sum[k] / static_cast<double>(count);
  }
  n.pts.resize(D * count);
  double ss = 0.0;
  for (std::size_t i = 0; i < D * count; ++i) {
    n.pts[i] = p[i] - n.centroid[i % D];
    ss += n.pts[i] * n.pts[i];
  }
  n.scale = std::sqrt(ss / static_cast<double>(count));
  if (!(n.scale > 0.0) || !std::isfinite(n.scale)) return std::nullopt;
  for (double& v : n.pts) v /= n.scale;
  return n;
}

// ---- Householder QR of a tall column-major matrix --------------------------------------

class Qr {
 public:
  // Factors the rows x cols matrix a (column-major); ok() tells whether it has full rank.
  Qr(std::vector<double> a, std::size_t rows, std::size_t cols)
      : a_(std::move(a)), rows_(rows), cols_(cols), diag_(cols, 0.0) {
    ok_ = rows >= cols;
    for (std::size_t k = 0; k < cols_ && ok_; ++k) ok_ = Reflect(k);
  }
  bool ok() const { return ok_; }

  // b := Q^T b.
  void ApplyQt(std::vector<double>& b) const {
    for (std::size_t k = 0; k < cols_; ++k) {
      const double* v = &a_[k * rows_];
      double dot = 0.0;
      for (std::size_t i = k; i < rows_; ++i) dot += v[i] * b[i];
      for (std::size_t i = k; i < rows_; ++i) b[i] -= dot * v[i];
    }
  }

  // Solves R x = (first cols entries of) qtb.
  std::vector<double> SolveR(const std::vector<double>& qtb) const {
    std::vector<double> x(cols_);
    for (std::size_t k = cols_; k-- > 0;) {
      double s = qtb[k];
      for (std::size_t j = k + 1; j < cols_; ++j) s -= a_[j * rows_ + k] * x[j];
      x[k] = s / diag_[k];
    }
    return x;
  }

  // Least-squares solution of a x = b.
  std::vector<double> Solve(std::vector<double> b) const {
    ApplyQt(b);
    return SolveR(b);
  }

 private:
  // Householder reflection I - v v^T (|v|^2 = 2) of column k, v stored over the column from
  // row k on; the entries above row k are R's and stay.
  bool Reflect(std::size_t k) {
    double* col = &a_[k * rows_];
    // The scale of the test: the whole column (reflections keep its norm) together with a
    // column of unit-RMS coordinates, so that a column of rounding noise is not independent.
    // Entries are of order one here: plain sums of squares cannot overflow.
    double whole = static_cast<double>(rows_);
    double below = 0.0;
    for (std::size_t i = 0; i < rows_; ++i) {
      whole += col[i] * col[i];
      if (i >= k) below += col[i] * col[i];
    }
    const double norm = std::sqrt(below);
    if (!(norm > kRankTolerance * std::sqrt(whole))) return false;
    const double alpha = col[k] > 0.0 ? -norm : norm;  // opposite sign: no cancellation below
    col[k] -= alpha;
    const double f = 1.0 / std::sqrt(norm * std::fabs(col[k]));  // |x - alpha e1|^2 / 2
    for (std::size_t i = k; i < rows_; ++i) col[i] *= f;
    for (std::size_t j = k + 1; j < cols_; ++j) {
      double* other = &a_[j * rows_];
      double dot = 0.0;
      for (std::size_t i = k; i < rows_; ++i) dot += col[i] * other[i];
      for (std::size_t i = k; i < rows_; ++i) other[i] -= dot * col[i];
    }
    diag_[k] = alpha;
    return true;
  }

  std::vector<double> a_;
  std::size_t rows_;
  std::size_t cols_;
  std::vector<double> diag_;
  bool ok_ = false;
};

// Column-major design matrix filled row by row.
class Design {
 public:
  Design(std::size_t rows, std::size_t cols) : rows_(rows), cols_(cols), a_(rows * cols) {}
  void Set(std::size_t row, std::size_t col, double v) { a_[col * rows_ + row] = v; }
  std::vector<double>& data() { return a_; }
  std::size_t rows() const { return rows_; }
  std::size_t cols() const { return cols_; }

 private:
  std::size_t rows_;
  std::size_t cols_;
  std::vector<double> a_;
};

std::optional<std::vector<double>> LeastSquares(Design& design, std::vector<double> rhs) {
  const Qr qr(std::move(design.data()), design.rows(), design.cols());
  if (!qr.ok()) return std::nullopt;
  return qr.Solve(std::move(rhs));
}

// ---- Small vector helpers --------------------------------------------------------------

double Dot(const Point3& a, const Point3& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Point3 Cross(const Point3& a, const Point3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

std::optional<Point3> Unit(const Point3& v) {
  const double len = std::hypot(v[0], v[1], v[2]);
  if (!(len > 0.0) || !std::isfinite(len)) return std::nullopt;
  return Point3{v[0] / len, v[1] / len, v[2] / len};
}

// Orthonormal right-handed frame (e1, e2, u) of a unit axis u.
struct AxisFrame {
  Point3 e1, e2, u;
};

std::optional<AxisFrame> FrameOf(const Point3& axis) {
  const std::optional<Point3> u = Unit(axis);
  if (!u) return std::nullopt;
  // Cross with the coordinate axis least aligned with u: the product is never short.
  Point3 helper{0.0, 0.0, 0.0};
  const double ax = std::fabs((*u)[0]), ay = std::fabs((*u)[1]), az = std::fabs((*u)[2]);
  helper[ax <= ay && ax <= az ? 0 : (ay <= az ? 1 : 2)] = 1.0;
  const Point3 e1 = *Unit(Cross(helper, *u));
  return AxisFrame{e1, Cross(*u, e1), *u};
}

// Point of the normalised cloud, original units back: centroid + scale * local.
Point3 Denormalize(const Normalized<3>& n, const AxisFrame& f, double q1, double q2, double h) {
  Point3 p{};
  for (int k = 0; k < 3; ++k) {
    p[k] = n.centroid[k] + n.scale * (q1 * f.e1[k] + q2 * f.e2[k] + h * f.u[k]);
  }
  return p;
}

// ---- Symmetric 3x3 eigen-decomposition -------------------------------------------------

using Mat3 = std::array<std::array<double, 3>, 3>;

// Jacobi rotation zeroing a[p][q] of the symmetric a, accumulated into the columns of v.
void JacobiRotate(Mat3& a, Mat3& v, int p, int q) {
  const double apq = a[p][q];
  const double theta = (a[q][q] - a[p][p]) / (2.0 * apq);
  // The smaller root of t^2 + 2 theta t - 1 = 0; for huge theta, 1 / (2 theta).
  const double t = std::isfinite(theta * theta)
                       ? std::copysign(1.0, theta) / (std::fabs(theta) + std::hypot(theta, 1.0))
                       : 0.5 / theta;
  const double c = 1.0 / std::hypot(t, 1.0);
  const double s = t * c;
  for (int k = 0; k < 3; ++k) {  // a := a J
    const double akp = a[k][p], akq = a[k][q];
    a[k][p] = c * akp - s * akq;
    a[k][q] = s * akp + c * akq;
  }
  for (int k = 0; k < 3; ++k) {  // a := J^T a
    const double apk = a[p][k], aqk = a[q][k];
    a[p][k] = c * apk - s * aqk;
    a[q][k] = s * apk + c * aqk;
  }
  a[p][q] = a[q][p] = 0.0;
  for (int k = 0; k < 3; ++k) {
    const double vkp = v[k][p], vkq = v[k][q];
    v[k][p] = c * vkp - s * vkq;
    v[k][q] = s * vkp + c * vkq;
  }
}

// Eigenvalues (diagonal of the result) and eigenvectors (columns of v) of a symmetric a.
void Jacobi(Mat3& a, Mat3& v) {
  v = Mat3{{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}}};
  constexpr int kPairs[3][2] = {{0, 1}, {0, 2}, {1, 2}};
  for (int sweep = 0; sweep < kMaxJacobiSweeps; ++sweep) {
    bool rotated = false;
    for (const auto& pq : kPairs) {
      const int p = pq[0], q = pq[1];
      // Negligible against both diagonal entries: dropping it changes no eigenvalue by more
      // than rounding (and it keeps small eigenvalues to high relative accuracy).
      if (std::fabs(a[p][q]) <= kEps * std::sqrt(std::fabs(a[p][p] * a[q][q]))) {
        a[p][q] = a[q][p] = 0.0;
        continue;
      }
      JacobiRotate(a, v, p, q);
      rotated = true;
    }
    if (!rotated) return;
  }
}

// ---- The direct ellipse ----------------------------------------------------------------

// Largest real root of -4 mu^3 + c2 mu^2 + c1 mu + c0 (the cubic det(M - mu C)). Its roots are
// the generalised eigenvalues of a positive semi-definite M and the indefinite constraint
// matrix C, so they are real and only the largest can be non-negative: Newton from above the
// Cauchy bound descends monotonically onto it.
double LargestCubicRoot(double c2, double c1, double c0) {
  const double p2 = -c2 / 4.0, p1 = -c1 / 4.0, p0 = -c0 / 4.0;  // monic mu^3 + p2 mu^2 + ...
  double mu = 1.0 + std::max({std::fabs(p2), std::fabs(p1), std::fabs(p0)});
  for (int i = 0; i < kMaxCubicSteps; ++i) {
    const double value = ((mu + p2) * mu + p1) * mu + p0;
    if (value <= 0.0) return mu;
    const double slope = (3.0 * mu + 2.0 * p2) * mu + p1;
    const double next = mu - value / slope;
    if (!(next < mu)) return mu;
    mu = next;
  }
  return mu;
}

double Det3(const Mat3& m) {
  return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
         m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

Mat3 Adjugate(const Mat3& m) {
  Mat3 r{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      const int i1 = (j + 1) % 3, i2 = (j + 2) % 3, j1 = (i + 1) % 3, j2 = (i + 2) % 3;
      r[i][j] = m[i1][j1] * m[i2][j2] - m[i1][j2] * m[i2][j1];
    }
  }
  return r;
}

double TraceOfProduct(const Mat3& a, const Mat3& b) {
  double s = 0.0;
  for (int i = 0; i < 3; ++i) {
    for (int k = 0; k < 3; ++k) s += a[i][k] * b[k][i];
  }
  return s;
}

// Null vector of a rank-2 matrix: the longest cross product of two of its rows.
Point3 NullVector(const Mat3& m) {
  Point3 best{0.0, 0.0, 0.0};
  double best_len = -1.0;
  for (const auto& [i, j] : {std::pair{0, 1}, std::pair{0, 2}, std::pair{1, 2}}) {
    const Point3 c = Cross(m[i], m[j]);
    const double len = std::hypot(c[0], c[1], c[2]);
    if (len > best_len) {
      best = c;
      best_len = len;
    }
  }
  return best;
}

// Conic coefficients (a x^2 + b xy + c y^2 + d x + e y + f = 0) of the normalised points, or
// nothing when the points do not single out an ellipse.
std::optional<std::array<double, 6>> DirectEllipse(const Normalized<2>& n) {
  const std::size_t m = n.pts.size() / 2;
  // Eliminate the linear part: with D2 = [x y 1] = Q R, the quadratic columns D1 = [x^2 xy y^2]
  // reduce to their components outside span(D2), i.e. rows 3.. of Q^T D1.
  Design d2(m, 3);
  std::array<std::vector<double>, 3> d1;
  for (auto& col : d1) col.resize(m);
  for (std::size_t i = 0; i < m; ++i) {
    const double x = n.pts[2 * i], y = n.pts[2 * i + 1];
    d2.Set(i, 0, x);
    d2.Set(i, 1, y);
    d2.Set(i, 2, 1.0);
    d1[0][i] = x * x;
    d1[1][i] = x * y;
    d1[2][i] = y * y;
  }
  const Qr qr(std::move(d2.data()), m, 3);
  if (!qr.ok()) return std::nullopt;  // collinear points
  for (auto& col : d1) qr.ApplyQt(col);
  Mat3 reduced{};  // D1^T (I - P2) D1, positive semi-definite
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      double s = 0.0;
      for (std::size_t i = 3; i < m; ++i) s += d1[r][i] * d1[c][i];
      reduced[r][c] = s;
    }
  }
  const double size =
      std::fabs(reduced[0][0]) + std::fabs(reduced[1][1]) + std::fabs(reduced[2][2]);
  if (!(size > 0.0)) return std::nullopt;
  for (auto& row : reduced) {
    for (double& v : row) v /= size;
  }
  // det(M - mu C) = det M + mu tr(adj(M) B) + mu^2 tr(adj(B) M) + mu^3 det B with B = -C.
  const Mat3 b{{{0.0, 0.0, -2.0}, {0.0, 1.0, 0.0}, {-2.0, 0.0, 0.0}}};
  const double mu = LargestCubicRoot(TraceOfProduct(Adjugate(b), reduced),
                                     TraceOfProduct(Adjugate(reduced), b), Det3(reduced));
  Mat3 shifted = reduced;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) shifted[r][c] += mu * b[r][c];
  }
  const std::optional<Point3> quad = Unit(NullVector(shifted));
  if (!quad) return std::nullopt;
  const double a = (*quad)[0], bxy = (*quad)[1], c = (*quad)[2];
  if (!(4.0 * a * c - bxy * bxy > kEllipseMargin)) return std::nullopt;
  // The linear part that best completes the quadratic one: D2 lin = -D1 quad.
  std::vector<double> rhs(m, 0.0);
  for (std::size_t i = 0; i < m; ++i) {
    const double x = n.pts[2 * i], y = n.pts[2 * i + 1];
    rhs[i] = -(a * x * x + bxy * x * y + c * y * y);
  }
  const std::vector<double> lin = qr.Solve(std::move(rhs));
  return std::array<double, 6>{a, bxy, c, lin[0], lin[1], lin[2]};
}

}  // namespace

std::optional<SphereGuess> SphereStart(const double* xyz, std::size_t count) {
  if (count < 4) return std::nullopt;
  const auto n = Normalize<3>(xyz, count);
  if (!n) return std::nullopt;
  Design design(count, 4);
  std::vector<double> rhs(count);
  for (std::size_t i = 0; i < count; ++i) {
    const double* p = &n->pts[3 * i];
    for (std::size_t k = 0; k < 3; ++k) design.Set(i, k, 2.0 * p[k]);
    design.Set(i, 3, 1.0);
    rhs[i] = p[0] * p[0] + p[1] * p[1] + p[2] * p[2];
  }
  const auto x = LeastSquares(design, std::move(rhs));
  if (!x) return std::nullopt;
  const double r2 = (*x)[3] + (*x)[0] * (*x)[0] + (*x)[1] * (*x)[1] + (*x)[2] * (*x)[2];
  if (!(r2 > 0.0)) return std::nullopt;
  SphereGuess g;
  for (std::size_t k = 0; k < 3; ++k) g.center[k] = n->centroid[k] + n->scale * (*x)[k];
  g.radius = n->scale * std::sqrt(r2);
  return g;
}

std::optional<CircleGuess2D> CircleStart2D(const double* xy, std::size_t count) {
  if (count < 3) return std::nullopt;
  const auto n = Normalize<2>(xy, count);
  if (!n) return std::nullopt;
  Design design(count, 3);
  std::vector<double> rhs(count);
  for (std::size_t i = 0; i < count; ++i) {
    const double x = n->pts[2 * i], y = n->pts[2 * i + 1];
    design.Set(i, 0, 2.0 * x);
    design.Set(i, 1, 2.0 * y);
    design.Set(i, 2, 1.0);
    rhs[i] = x * x + y * y;
  }
  const auto s = LeastSquares(design, std::move(rhs));
  if (!s) return std::nullopt;
  const double r2 = (*s)[2] + (*s)[0] * (*s)[0] + (*s)[1] * (*s)[1];
  if (!(r2 > 0.0)) return std::nullopt;
  CircleGuess2D g;
  for (std::size_t k = 0; k < 2; ++k) g.center[k] = n->centroid[k] + n->scale * (*s)[k];
  g.radius = n->scale * std::sqrt(r2);
  return g;
}

std::optional<EllipseGuess2D> EllipseStart2D(const double* xy, std::size_t count) {
  if (count < 5) return std::nullopt;
  const auto n = Normalize<2>(xy, count);
  if (!n) return std::nullopt;
  const auto conic = DirectEllipse(*n);
  if (!conic) return std::nullopt;
  auto [a, b, c, d, e, f] = *conic;
  if (a + c < 0.0) {  // make the quadratic form positive definite
    a = -a, b = -b, c = -c, d = -d, e = -e, f = -f;
  }
  // Centre: the gradient vanishes, [2a b; b 2c] x = -[d; e].
  const double det = 4.0 * a * c - b * b;
  const double cx = (b * e - 2.0 * c * d) / det;
  const double cy = (b * d - 2.0 * a * e) / det;
  const double level = f + 0.5 * (d * cx + e * cy);  // the conic's value at the centre
  const double mean = 0.5 * (a + c);
  const double spread = std::hypot(0.5 * (a - c), 0.5 * b);
  const double small = mean - spread, large = mean + spread;  // eigenvalues of the form
  if (!(level < 0.0) || !(small > 0.0)) return std::nullopt;  // empty or degenerate
  EllipseGuess2D g;
  g.center = {n->centroid[0] + n->scale * cx, n->centroid[1] + n->scale * cy};
  g.major = n->scale * std::sqrt(-level / small);
  g.minor = n->scale * std::sqrt(-level / large);
  // 0.5 atan2(b, a - c) is the direction of the larger eigenvalue: the minor axis.
  double angle = 0.5 * std::atan2(b, a - c) + 0.5 * kPi;
  if (angle > 0.5 * kPi) angle -= kPi;
  g.angle = angle;
  return g;
}

std::optional<SpheroidGuess> SpheroidStart(const double* xyz, std::size_t count,
                                           const Point3& axis) {
  if (count < 5) return std::nullopt;
  const auto frame = FrameOf(axis);
  const auto n = Normalize<3>(xyz, count);
  if (!frame || !n) return std::nullopt;
  // rho^2 = k h^2 + l1 q1 + l2 q2 + m h + n, from |q - c|^2 + K (h - h0)^2 = B^2, K = B^2/A^2.
  Design design(count, 5);
  std::vector<double> rhs(count);
  for (std::size_t i = 0; i < count; ++i) {
    const Point3 p{n->pts[3 * i], n->pts[3 * i + 1], n->pts[3 * i + 2]};
    const double q1 = Dot(p, frame->e1), q2 = Dot(p, frame->e2), h = Dot(p, frame->u);
    design.Set(i, 0, h * h);
    design.Set(i, 1, q1);
    design.Set(i, 2, q2);
    design.Set(i, 3, h);
    design.Set(i, 4, 1.0);
    rhs[i] = q1 * q1 + q2 * q2;
  }
  const auto s = LeastSquares(design, std::move(rhs));
  if (!s) return std::nullopt;
  const double ratio = -(*s)[0];                         // K = B^2 / A^2
  if (!(ratio > kFlatCoefficient)) return std::nullopt;  // a cylinder or a hyperboloid
  const double c1 = 0.5 * (*s)[1], c2 = 0.5 * (*s)[2], h0 = 0.5 * (*s)[3] / ratio;
  const double across2 = (*s)[4] + c1 * c1 + c2 * c2 + ratio * h0 * h0;
  if (!(across2 > 0.0)) return std::nullopt;
  SpheroidGuess g;
  g.center = Denormalize(*n, *frame, c1, c2, h0);
  g.across = n->scale * std::sqrt(across2);
  g.along = g.across / std::sqrt(ratio);
  return g;
}

std::optional<ParaboloidGuess> ParaboloidStart(const double* xyz, std::size_t count,
                                               const Point3& axis) {
  if (count < 4) return std::nullopt;
  const auto frame = FrameOf(axis);
  const auto n = Normalize<3>(xyz, count);
  if (!frame || !n) return std::nullopt;
  Design design(count, 4);
  std::vector<double> rhs(count);
  for (std::size_t i = 0; i < count; ++i) {
    const Point3 p{n->pts[3 * i], n->pts[3 * i + 1], n->pts[3 * i + 2]};
    const double q1 = Dot(p, frame->e1), q2 = Dot(p, frame->e2);
    design.Set(i, 0, 1.0);
    design.Set(i, 1, q1);
    design.Set(i, 2, q2);
    design.Set(i, 3, q1 * q1 + q2 * q2);
    rhs[i] = Dot(p, frame->u);
  }
  const auto s = LeastSquares(design, std::move(rhs));
  if (!s) return std::nullopt;
  const double k = (*s)[3];
  if (!(std::fabs(k) > kFlatCoefficient)) return std::nullopt;  // a plane
  // h = k |q - qv|^2 + hv with qv = -(c1, c2) / (2k), hv = c0 - (c1^2 + c2^2) / (4k).
  const double qv1 = -0.5 * (*s)[1] / k, qv2 = -0.5 * (*s)[2] / k;
  const double hv = (*s)[0] - 0.25 * ((*s)[1] * (*s)[1] + (*s)[2] * (*s)[2]) / k;
  ParaboloidGuess g;
  g.vertex = Denormalize(*n, *frame, qv1, qv2, hv);
  const double side = k > 0.0 ? 1.0 : -1.0;
  g.opening = {side * frame->u[0], side * frame->u[1], side * frame->u[2]};
  g.focal = n->scale / (4.0 * std::fabs(k));
  return g;
}

std::optional<PrincipalFrame> PrincipalAxes(const double* xyz, std::size_t count) {
  if (xyz == nullptr || count == 0) return std::nullopt;
  // Centroid as in Normalize, without the scaling (a single point has none).
  PrincipalFrame pf;
  for (int pass = 0; pass < 2; ++pass) {
    Point3 sum{};
    for (std::size_t i = 0; i < count; ++i) {
      for (int k = 0; k < 3; ++k) sum[k] += xyz[3 * i + k] - pf.centroid[k];
    }
    for (int k = 0; k < 3; ++k) pf.centroid[k] += sum[k] / static_cast<double>(count);
  }
  Mat3 scatter{};
  for (std::size_t i = 0; i < count; ++i) {
    Point3 d{};
    for (int k = 0; k < 3; ++k) d[k] = xyz[3 * i + k] - pf.centroid[k];
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) scatter[r][c] += d[r] * d[c];
    }
  }
  Mat3 v{};
  Jacobi(scatter, v);
  std::array<int, 3> order{0, 1, 2};
  std::sort(order.begin(), order.end(),
            [&](int i, int j) { return scatter[i][i] > scatter[j][j]; });
  for (int k = 0; k < 3; ++k) {
    const int col = order[k];
    pf.values[k] = std::max(scatter[col][col], 0.0);  // rounding may leave -1e-30
    pf.axes[k] = {v[0][col], v[1][col], v[2][col]};
  }
  if (Dot(Cross(pf.axes[0], pf.axes[1]), pf.axes[2]) < 0.0) {
    for (double& c : pf.axes[2]) c = -c;
  }
  return pf;
}

}  // namespace metrofit::precise
