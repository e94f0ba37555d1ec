// Helpers for the least-squares engine tests: owned row-pointer matrices, seeded random
// geometry, the feature frame of two angles, and the conditions f of the nine shapes written
// out independently of the library's models.
#ifndef METROFIT_TESTS_LSQ_LSQ_TEST_UTIL_H
#define METROFIT_TESTS_LSQ_LSQ_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "metrofit.h"

namespace lsq_test {

using Pt = KPt3<double>;

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;

// A row-pointer matrix owned by the test.
class Matrix {
 public:
  Matrix(int rows, int cols) : rows_(rows), cols_(cols), m_(mCreateMatrix(rows, cols)) {}
  ~Matrix() { mFreeMatrix(&m_, rows_); }
  Matrix(const Matrix&) = delete;
  Matrix& operator=(const Matrix&) = delete;
  double** get() const { return m_; }
  double* operator[](int i) const { return m_[i]; }
  int rows() const { return rows_; }
  int cols() const { return cols_; }
  void Fill(double v) {
    for (int i = 0; i < rows_; ++i)
      for (int j = 0; j < cols_; ++j) m_[i][j] = v;
  }

 private:
  int rows_;
  int cols_;
  double** m_;
};

class Rng {
 public:
  explicit Rng(unsigned seed) : gen_(seed) {}
  double Uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(gen_);
  }
  double Normal(double sigma) { return std::normal_distribution<double>(0.0, sigma)(gen_); }
  Pt InBox(double half) {
    return Pt(Uniform(-half, half), Uniform(-half, half), Uniform(-half, half));
  }
  Pt NormalVector(double sigma) { return Pt(Normal(sigma), Normal(sigma), Normal(sigma)); }
  // A point at distance `distance` from the origin in a random direction.
  Pt AtDistance(double distance) {
    for (;;) {
      const Pt v = InBox(1.0);
      const double len = v.Length();
      if (len > 0.1 && len <= 1.0) return v * (distance / len);
    }
  }

 private:
  std::mt19937_64 gen_;
};

// Component k (0 x, 1 y, 2 z) of a point.
inline double& Comp(Pt& p, int k) {
  return k == 0 ? p.x : (k == 1 ? p.y : p.z);
}

// Rows e1, e2, u of the rotation of (a, b, 0), taken from the library's rotation convention.
struct Frame {
  Pt e1, e2, u;
};

inline Frame FrameOf(double a, double b) {
  double m[9];
  ConvertAnglesToMatrix(a, b, 0.0, m);
  return Frame{Pt(m[0], m[1], m[2]), Pt(m[3], m[4], m[5]), Pt(m[6], m[7], m[8])};
}

// Local coordinates (l0 along e1, l1 along e2, l2 along u) to the caller's frame.
inline Pt FromLocal(const Frame& f, const Pt& c, double l0, double l1, double l2) {
  return c + f.e1 * l0 + f.e2 * l1 + f.u * l2;
}

// Angles whose axis row is the unit direction n: a2 = asin(nx), a1 from the other two.
inline void AnglesOf(const Pt& n, double* a1, double* a2) {
  *a2 = std::asin(n.x);
  *a1 = std::atan2(-n.y, n.z);
}

// Parameters in the engine's order per fit type, read from / written to a result.
inline std::vector<double> ParamsOf(int type, const CFitResult& r) {
  const Pt& c = r.m_center;
  const double a = r.m_angles.x, b = r.m_angles.y;
  switch (type) {
    case FIT_LINE:
      return {c.x, c.y, c.z, a, b};
    case FIT_PLANE:
      return {a, b, r.m_size2.y};
    case FIT_CIRCLE:
    case FIT_CYLINDER:
      return {c.x, c.y, c.z, a, b, r.m_size1.x};
    case FIT_SPHERE:
      return {c.x, c.y, c.z, r.m_size1.x};
    case FIT_PARABOLOID:
      return {c.x, c.y, c.z, a, b, r.m_size2.x};
    case FIT_CONE:
      return {c.x, c.y, c.z, a, b, r.m_size2.z};
    case FIT_ELLIPSE:
      return {c.x, c.y, c.z, a, b, r.m_size3.x, r.m_size3.y};
    case FIT_TORUS:
      return {c.x, c.y, c.z, a, b, r.m_size1.y, r.m_size1.z};
    default:
      return {};
  }
}

inline void SetParams(int type, const std::vector<double>& x, CFitResult& r) {
  switch (type) {
    case FIT_PLANE:
      r.m_angles.x = x[0];
      r.m_angles.y = x[1];
      r.m_size2.y = x[2];
      return;
    case FIT_SPHERE:
      r.m_center = Pt(x[0], x[1], x[2]);
      r.m_size1.x = x[3];
      return;
    default:
      break;
  }
  r.m_center = Pt(x[0], x[1], x[2]);
  r.m_angles.x = x[3];
  r.m_angles.y = x[4];
  switch (type) {
    case FIT_CIRCLE:
    case FIT_CYLINDER:
      r.m_size1.x = x[5];
      break;
    case FIT_PARABOLOID:
      r.m_size2.x = x[5];
      break;
    case FIT_CONE:
      r.m_size2.z = x[5];
      break;
    case FIT_ELLIPSE:
      r.m_size3.x = x[5];
      r.m_size3.y = x[6];
      break;
    case FIT_TORUS:
      r.m_size1.y = x[5];
      r.m_size1.z = x[6];
      break;
    default:
      break;
  }
}

inline int ConditionCount(int type) {
  return (type == FIT_LINE || type == FIT_CIRCLE) ? 2 : 1;
}

// Condition values f of point p at parameters x (engine order), from the geometry of each
// shape. Returns the number of conditions.
inline int Conditions(int type, const std::vector<double>& x, const Pt& p, double f[2]) {
  if (type == FIT_SPHERE) {
    const Pt d = p - Pt(x[0], x[1], x[2]);
    f[0] = std::sqrt(d.Dot(d)) - x[3];
    return 1;
  }
  if (type == FIT_PLANE) {
    const Frame fr = FrameOf(x[0], x[1]);
    f[0] = p.Dot(fr.u) - x[2];
    return 1;
  }
  const Frame fr = FrameOf(x[3], x[4]);
  const Pt d = p - Pt(x[0], x[1], x[2]);
  const double q1 = d.Dot(fr.e1), q2 = d.Dot(fr.e2), h = d.Dot(fr.u);
  const double rho = std::sqrt(q1 * q1 + q2 * q2);
  switch (type) {
    case FIT_LINE:
      f[0] = q1;
      f[1] = q2;
      return 2;
    case FIT_CIRCLE:
      f[0] = h;
      f[1] = rho - x[5];
      return 2;
    case FIT_CYLINDER:
      f[0] = rho - x[5];
      return 1;
    case FIT_PARABOLOID:
      f[0] = rho * rho / (4.0 * x[5]) - h;
      return 1;
    case FIT_CONE:
      f[0] = x[5] * rho - h;
      return 1;
    case FIT_ELLIPSE:
      f[0] = std::sqrt(h * h / (x[5] * x[5]) + rho * rho / (x[6] * x[6])) - 1.0;
      return 1;
    case FIT_TORUS:
      f[0] = std::sqrt((rho - x[5]) * (rho - x[5]) + h * h) - x[6];
      return 1;
    default:
      return 0;
  }
}

// Distance-like residuals whose squared sum the engine minimises: the orthogonal distance for
// the distance-type shapes and the cone, the first-order distance f / |grad_p f| for the
// paraboloid and the ellipse (whose conditions are algebraic). The gradient lengths:
//   paraboloid |rho n_r / (2F) - u|^2 = rho^2 / (4 F^2) + 1,
//   ellipse    |h u / A^2 + rho n_r / B^2|^2 / s^2 = (h^2 / A^4 + rho^2 / B^4) / s^2.
inline int Residuals(int type, const std::vector<double>& x, const Pt& p, double res[2]) {
  const int m = Conditions(type, x, p, res);
  if (type == FIT_CONE) {
    res[0] /= std::sqrt(1.0 + x[5] * x[5]);
  } else if (type == FIT_PARABOLOID || type == FIT_ELLIPSE) {
    const Frame fr = FrameOf(x[3], x[4]);
    const Pt d = p - Pt(x[0], x[1], x[2]);
    const double q1 = d.Dot(fr.e1), q2 = d.Dot(fr.e2), h = d.Dot(fr.u);
    const double rho2 = q1 * q1 + q2 * q2;
    if (type == FIT_PARABOLOID) {
      res[0] /= std::sqrt(rho2 / (4.0 * x[5] * x[5]) + 1.0);
    } else {
      const double a2 = x[5] * x[5], b2 = x[6] * x[6];
      const double s2 = h * h / a2 + rho2 / b2;
      res[0] /= std::sqrt((h * h / (a2 * a2) + rho2 / (b2 * b2)) / s2);
    }
  }
  return m;
}

inline double SumOfSquares(int type, const std::vector<double>& x, const std::vector<Pt>& pts) {
  double s = 0.0;
  for (const Pt& p : pts) {
    double r[2];
    const int m = Residuals(type, x, p, r);
    for (int i = 0; i < m; ++i) s += r[i] * r[i];
  }
  return s;
}

// |a - b| <= rel * max(|a|, |b|, floor).
inline ::testing::AssertionResult Close(double a, double b, double rel, double floor = 1.0) {
  const double scale = std::max({std::fabs(a), std::fabs(b), floor});
  if (std::fabs(a - b) <= rel * scale) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << a << " and " << b << " differ by " << std::fabs(a - b)
                                       << ", more than " << rel << " x " << scale;
}

inline ::testing::AssertionResult Near(const Pt& a, const Pt& b, double tol) {
  const double d = (a - b).Length();
  if (d <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "(" << a.x << ", " << a.y << ", " << a.z << ") and (" << b.x << ", " << b.y << ", "
         << b.z << ") are " << d << " apart, more than " << tol;
}

// Angle between two lines (sign of the directions ignored).
inline double LineAngle(const Pt& a, const Pt& b) {
  return std::atan2(a.Cross(b).Length(), std::fabs(a.Dot(b)));
}

}  // namespace lsq_test

#endif  // METROFIT_TESTS_LSQ_LSQ_TEST_UTIL_H
