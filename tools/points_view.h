// Read-only access to the points of one fit, whether they are Point structs or the flat
// x, y, z triples the reader gives, so the tool reports on the points it read without a copy.
#ifndef METROFIT_TOOLS_POINTS_VIEW_H
#define METROFIT_TOOLS_POINTS_VIEW_H

#include <cstddef>
#include <vector>

#include "metrofit/fit.h"

namespace metrofit::cli {

class PointsView {
 public:
  PointsView() = default;
  // Implicit: callers holding Point structs pass them as they are.
  PointsView(const std::vector<Point>& points)  // NOLINT(google-explicit-constructor)
      : points_(points.data()), size_(points.size()) {}
  // `count` points stored as x, y, z triples at `xyz`.
  PointsView(const double* xyz, std::size_t count) : xyz_(xyz), size_(count) {}

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Point operator[](std::size_t i) const {
    if (points_ != nullptr) return points_[i];
    return {xyz_[3 * i], xyz_[3 * i + 1], xyz_[3 * i + 2]};
  }

 private:
  const Point* points_ = nullptr;
  const double* xyz_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_POINTS_VIEW_H
