// Flat pictures of a fitted feature's deviations: every drawn point mapped to two coordinates
// that suit the shape, so that a form error shows as a pattern on a plane (a cylinder unrolled
// to angle around its axis against height, a sphere as a map of its surface, ...).
#ifndef METROFIT_TOOLS_REPORT_VIEWS_H
#define METROFIT_TOOLS_REPORT_VIEWS_H

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "metrofit/fit.h"
#include "points_view.h"

namespace metrofit::cli {

// One coordinate of a view and the range it is drawn over.
struct ViewAxis {
  std::string label;   // what it measures, with its unit
  bool angle = false;  // in degrees, between -180 and 360 where the data allows
  double low = 0.0;
  double high = 0.0;
};

using ViewPoint = std::array<double, 2>;

struct View {
  std::string id;  // stable name of the kind of view, e.g. "unrolled" or "surface-map"
  std::string title;
  std::string caption;  // how to read it: where the angles start, what the axes mean
  ViewAxis x;
  ViewAxis y;
  bool equal_scale = false;     // one length per pixel along both axes (in-plane views)
  bool deviation_on_y = false;  // a profile: the vertical coordinate is the deviation itself
  std::vector<ViewPoint> points;
  std::vector<double> deviations;   // per drawn point
  std::vector<std::size_t> source;  // index of each drawn point in the input
  std::vector<ViewPoint> outline;   // the fitted curve, where the view shows it
};

// The views that suit the result's shape, of the points at `indices`. Points whose deviation
// or coordinates are not finite are left out. `units` labels lengths.
std::vector<View> MakeViews(const FitResult& result, PointsView points,
                            const std::vector<std::size_t>& indices, const std::string& units);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_REPORT_VIEWS_H
