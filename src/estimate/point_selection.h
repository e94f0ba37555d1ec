// Point scans and small work matrices shared by the estimators.
//
// The sphere through four points A, B, C, D: its centre m is equidistant from each pair, so
//   (B - A) . m = (|B|^2 - |A|^2) / 2,  (C - B) . m = (|C|^2 - |B|^2) / 2,
//   (D - C) . m = (|D|^2 - |C|^2) / 2,
// a 3 x 3 linear system that is singular when the four points are coplanar.
#ifndef METROFIT_ESTIMATE_POINT_SELECTION_H
#define METROFIT_ESTIMATE_POINT_SELECTION_H

#include <cstddef>
#include <vector>

#include "metrofit.h"

namespace metrofit {

// Sum of the points times 1/n; the caller guarantees at least one point.
KPt3<double> PointsCentroid(const std::vector<KPt3<double>>& pts);

// Four points spread over a sphere: A nearest to the centroid, B farthest from A, C farthest
// from B, D farthest from the line BC. Indices no candidate improves stay 0.
struct SpherePointSet {
  std::size_t a = 0;
  std::size_t b = 0;
  std::size_t c = 0;
  std::size_t d = 0;
};
SpherePointSet SelectSpherePoints(const std::vector<KPt3<double>>& pts);

// Centre of the sphere through the four selected points. The solver status is not examined:
// for coplanar points the partly reduced right-hand side comes back as the centre.
KPt3<double> SolveSphereCentre(const std::vector<KPt3<double>>& pts, const SpherePointSet& s);

// A zero-filled rows x cols row-pointer matrix on the stack, for the fixed small systems of the
// estimators: no allocation can fail and nothing has to be released on any path.
template <int Rows, int Cols>
class WorkMatrix {
 public:
  WorkMatrix() {
    for (int i = 0; i < Rows; ++i) rows_[i] = cells_[i];
  }
  WorkMatrix(const WorkMatrix&) = delete;
  WorkMatrix& operator=(const WorkMatrix&) = delete;

  double** rows() { return rows_; }
  // Row pointers may have been exchanged by a solver, so elements are read through them.
  double at(int i, int j) const { return rows_[i][j]; }

 private:
  double cells_[Rows][Cols] = {};
  double* rows_[Rows];
};

}  // namespace metrofit

#endif  // METROFIT_ESTIMATE_POINT_SELECTION_H
