// Centroid, principal directions and size of a point set, and the small dense solves the
// starting estimates need.
#ifndef METROFIT_PRECISE_POINT_STATS_H
#define METROFIT_PRECISE_POINT_STATS_H

#include <cstddef>

#include "precise/precise_fit.h"

namespace metrofit::precise {

struct PointStats {
  Vec3 centroid;
  // Eigenvalues of the centred scatter matrix, ascending, and their unit eigenvectors.
  double eigenvalue[3] = {0.0, 0.0, 0.0};
  Vec3 direction[3];
  double scale = 0.0;  // root mean square distance from the centroid
  // Root mean square distances from the principal line and from the principal plane, only
  // where asked for (else 0): from the eigenvalues when these stand well clear of the rounding
  // of the sums, else measured point by point (a small eigenvalue carries the rounding of the
  // large one).
  double lineSpread = 0.0;
  double planeSpread = 0.0;
};

// The spreads ComputeStats is to give.
struct SpreadRequest {
  bool line = false;
  bool plane = false;
  bool alwaysMeasure = false;  // measure even where the eigenvalues would do (to compare)
};

// Centroid, principal directions and scale in one pass; the spreads asked for, measured in a
// second pass where the eigenvalues cannot give them.
PointStats ComputeStats(const double* xyz, std::size_t count, SpreadRequest spreads = {});

// Eigen decomposition of a symmetric 3 x 3 matrix by Jacobi rotations, eigenvalues ascending.
void SymmetricEigen3(const double m[3][3], double value[3], Vec3 vector[3]);

// Solves the n x n system a x = b (n <= 4) by Gaussian elimination with partial pivoting;
// false when a pivot vanishes.
bool SolveSmall(int n, double a[4][4], double b[4]);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_POINT_STATS_H
