// Writes the HTML report of a synthetic measurement, for the test that opens it in a real
// browser: write_sample_report SHAPE OUT.html [POINTS] [invalid]
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "html_report.h"
#include "report_samples.h"

namespace {

constexpr std::size_t kDefaultPoints = 5000;

bool ShapeNamed(const std::string& name, metrofit::Shape* shape) {
  const char* names[] = {"line", "plane",   "circle",     "sphere",   "cylinder",
                         "cone", "ellipse", "paraboloid", "spheroid", "torus"};
  for (const metrofit::Shape s : metrofit_report_samples::AllShapes()) {
    if (name == names[static_cast<int>(s)]) {
      *shape = s;
      return true;
    }
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  metrofit::Shape shape{};
  if (argc < 3 || !ShapeNamed(argv[1], &shape)) {
    std::cerr << "usage: write_sample_report SHAPE OUT.html [POINTS] [invalid]\n";
    return 2;
  }
  const std::size_t points = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : kDefaultPoints;
  metrofit_report_samples::Sample sample = metrofit_report_samples::MakeSample(shape, points);
  // A failed fit still gets a report: it must say so as loudly as a good one says it is good.
  if (argc > 4 && std::string(argv[4]) == "invalid") {
    sample.result.valid = false;
    sample.result.status = metrofit::Status::kNotConverged;
    sample.result.message = "the iteration stopped after 200 steps without converging";
  }
  std::ofstream out(argv[2], std::ios::binary);
  metrofit::cli::WriteHtmlReport(
      out, {sample.points, sample.result, "measurements/<sample> & \"piece 7\".txt", "mm"});
  out.close();
  if (!out) {
    std::cerr << "cannot write " << argv[2] << "\n";
    return 1;
  }
  return 0;
}
