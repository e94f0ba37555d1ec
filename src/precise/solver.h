// Levenberg-Marquardt on the normal equations of the local parameters of a feature: one pass
// over the points per trial gives the sum of squares and J^T J, J^T r together.
#ifndef METROFIT_PRECISE_SOLVER_H
#define METROFIT_PRECISE_SOLVER_H

#include <cmath>
#include <cstddef>

#include "precise/local_frame.h"

namespace metrofit::precise {

// How the centre follows the data after each step, so rotations stay about a point near it.
enum class Recentre {
  kNone,
  kAlongAxis,  // to the foot of the centroid on the axis (line, cylinder)
  kConePivot,  // along the axis to the foot of the centroid, r0 following the slope
  kInPlane,    // to the foot of the centroid on the plane
};

// Bound on the rounding of a squared residual, per unit of |r| (|q| + sizes): a few rounding
// errors of a double in each residual, doubled by the square.
constexpr double kSumRoundoff = 16.0 * 2.220446049250313e-16;

struct Problem {
  const double* xyz = nullptr;
  std::size_t count = 0;
  Vec3 centroid;
  double scale = 1.0;  // size of the data (mm): relates rotations to lengths
  bool free[kLocalCount] = {};
  Recentre recentre = Recentre::kNone;
  // Length per unit of each local parameter (1 for lengths, scale for angles): makes steps
  // comparable for the convergence test.
  double weight[kLocalCount] = {1, 1, 1, 1, 1, 1, 1, 1};
  // Stop on a negligible Gauss-Newton step without evaluating it: accepted or not, it ends the
  // iteration, and it moves nothing a double holds about the feature. Off only to compare.
  bool stopBeforeNegligible = true;
};

// J^T J and J^T r over the free parameters, in the order of their local indices.
struct Normal {
  int p = 0;
  int index[kLocalCount] = {};
  double a[kLocalCount][kLocalCount] = {};
  double g[kLocalCount] = {};
  // Rounding level of the sum of squares of the same pass: changes below it are invisible.
  double noise = 0.0;
};

void PrepareNormal(const Problem& problem, Normal* ne);

// Sum of squares at s, with the normal equations of its local parameters.
template <class Model>
double Accumulate(const Problem& problem, const State& s, Normal* ne) {
  constexpr int kc = Model::kComponents;
  const Model model(s);
  const int p = ne->p;
  for (int i = 0; i < p; ++i) {
    ne->g[i] = 0.0;
    for (int j = 0; j < p; ++j) ne->a[i][j] = 0.0;
  }
  double sum = 0.0;
  double roundoff = 0.0;
  const double sizes = std::fabs(s.size[0]) + std::fabs(s.size[1]) + std::fabs(s.offset);
  double r[kc];
  double rows[kc][kLocalCount];
  double jr[kLocalCount];
  for (std::size_t k = 0; k < problem.count; ++k) {
    double q[3];
    ToLocal(s, problem.xyz + 3 * k, q);
    model.Rows(q, r, rows);
    for (int c = 0; c < kc; ++c) {
      for (int i = 0; i < p; ++i) jr[i] = rows[c][ne->index[i]];
      sum += r[c] * r[c];
      roundoff += std::fabs(r[c]) * (std::fabs(q[0]) + std::fabs(q[1]) + std::fabs(q[2]) + sizes);
      for (int i = 0; i < p; ++i) {
        ne->g[i] += jr[i] * r[c];
        for (int j = i; j < p; ++j) ne->a[i][j] += jr[i] * jr[j];
      }
    }
  }
  for (int i = 0; i < p; ++i) {
    for (int j = 0; j < i; ++j) ne->a[i][j] = ne->a[j][i];
  }
  ne->noise = kSumRoundoff * roundoff;
  return sum;
}

using AccumulateFn = double (*)(const Problem&, const State&, Normal*);

struct Solution {
  State state;
  double sum = 0.0;
  int iterations = 0;
  bool converged = false;
  bool determined = false;  // the points determine every free parameter (see Determined)
  Normal normal;            // at the solution
};

// Applies the local step and the recentring of the problem.
State Step(const Problem& problem, const State& s, const double* x);

// Iterates from start until the step is negligible at double precision or no longer lowers the
// sum of squares; at most maxIterations trials.
Solution Minimise(const Problem& problem, AccumulateFn accumulate, const State& start,
                  int maxIterations);

// Inverse of the normal matrix (Jacobi scaled Cholesky); false when it is numerically singular.
bool Cofactor(const Normal& ne, double inverse[kLocalCount][kLocalCount]);

// Reciprocal condition of the Jacobi-scaled normal matrix, estimated from the Cholesky pivots
// (0 when it is not positive definite).
double ScaledConditionReciprocal(const Normal& ne);

// True when the points determine every free parameter at this linearisation: each column of J
// moves the points (a column that is zero up to rounding would pass the Jacobi-scaled test)
// and the scaled normal matrix is numerically regular.
bool Determined(const Problem& problem, const Normal& ne);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_SOLVER_H
