// One fit as a self-contained HTML page: the result with its uncertainties, the statistics,
// and pictures of where the part deviates. Styles, pictures and script are all inline, so the
// file opens anywhere (an air-gapped measuring room, a mail attachment) without a network.
#ifndef METROFIT_TOOLS_HTML_REPORT_H
#define METROFIT_TOOLS_HTML_REPORT_H

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "metrofit/fit.h"
#include "points_view.h"

namespace metrofit::cli {

// Holds a reference and a view, like FitReport: a measurement may have millions of points.
struct ReportInput {
  PointsView points;         // as fitted, in the caller's order
  const FitResult& result;   // its deviations follow the order of `points`
  std::string source;        // the point file as the user named it
  std::string units = "mm";  // label of the length unit
};

// Most points a deviation view draws. Beyond this a page grows slow to open and a sample
// shows the same picture; statistics and the histogram still use every point.
constexpr std::size_t kMaxDrawnPoints = 20000;

void WriteHtmlReport(std::ostream& out, const ReportInput& input);

// The points a view draws: all of them up to `limit`, else a reproducible random sample of
// `limit` that always holds the smallest and the largest deviation. Ascending.
std::vector<std::size_t> DrawnPointIndices(const std::vector<double>& deviations,
                                           std::size_t limit);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_HTML_REPORT_H
