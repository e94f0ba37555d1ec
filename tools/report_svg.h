// Inline SVG pictures for the HTML report: deviation views coloured on a diverging scale, and
// the histogram of the deviations. Plain SVG, no script needed to see them.
#ifndef METROFIT_TOOLS_REPORT_SVG_H
#define METROFIT_TOOLS_REPORT_SVG_H

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "report_views.h"

namespace metrofit::cli {

// Text made safe for HTML and SVG element content and quoted attribute values.
std::string HtmlEscape(std::string_view text);

// A fixed-point number with the given decimals; "n/a" when not finite, no sign on a zero.
std::string FixedNumber(double value, int decimals);

// Decimals that show about `significant` digits of the magnitude `scale`, within [0, 12].
int DecimalsFor(double scale, int significant);

// Blue for material below the feature, red above, a neutral grey for none; symmetric about
// zero so equal deviations of either sign look equally strong.
class ColourScale {
 public:
  // Odd, so that zero has a bin of its own.
  static constexpr int kBins = 21;

  explicit ColourScale(double limit);
  double limit() const { return limit_; }
  int Bin(double deviation) const;
  static std::string BinColour(int bin);
  std::string Colour(double deviation) const { return BinColour(Bin(deviation)); }

 private:
  double limit_;
};

// Deviation counts in equal bins between the smallest and the largest finite deviation.
struct Histogram {
  double low = 0.0;
  double width = 1.0;
  std::vector<std::size_t> counts;
  std::size_t non_finite = 0;  // deviations left out
  double mean = 0.0;           // of the finite deviations
  double std_dev = 0.0;
};

Histogram MakeHistogram(const std::vector<double>& deviations);

// What a scatter plot marks besides the points: the input indices of the extreme deviations.
struct Extremes {
  std::size_t min_index;
  std::size_t max_index;
};

void WriteViewSvg(std::ostream& out, const View& view, const ColourScale& scale,
                  const std::string& units, const Extremes& extremes);
void WriteHistogramSvg(std::ostream& out, const Histogram& histogram, const ColourScale& scale,
                       const std::string& units);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_REPORT_SVG_H
