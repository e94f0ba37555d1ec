#include "app.h"

#include "cli.h"
#include "point_file.h"
#include "report.h"
#include "shapes.h"

namespace metrofit::cli {

namespace {

constexpr char kStandardInput[] = "-";

std::vector<KPt3<double>> ReadInput(const Options& options, std::istream& in) {
  if (options.file == kStandardInput) return ReadPoints(in, "<stdin>");
  return ReadPointFile(options.file);
}

// A probe radius the chosen fit ignores is most likely a misunderstanding; say so, but fit.
void WarnUnusedProbeRadius(const Options& options, const Shape& shape, std::ostream& err) {
  if (options.has_probe_radius && options.probe_radius != 0.0 && !shape.uses_probe_radius) {
    err << "metrofit: note: the " << shape.name
        << " fit does not compensate the probe radius; the result describes the surface "
           "traced by the probe centre\n";
  }
}

int FitAndReport(const Options& options, const Shape& shape, std::vector<KPt3<double>> points,
                 std::ostream& out) {
  CFitInput input;
  input.m_refPoint = options.has_ref_point ? options.ref_point : MeanPoint(points);
  input.m_probeRadius = options.probe_radius;
  input.m_centerParam = options.centre;
  input.m_axisParam = options.axis;
  input.m_size1Param = options.radius;
  input.m_points = std::move(points);
  CFitResult result;
  const std::int32_t status = shape.fit(input, result);
  const FitReport report{shape, input.m_points.size(), status, result};
  if (options.json) {
    WriteJson(out, report);
  } else {
    WriteTable(out, report);
  }
  return status != 0 ? kExitOk : kExitFitFailed;
}

}  // namespace

KPt3<double> MeanPoint(const std::vector<KPt3<double>>& points) {
  KPt3<double> sum;
  if (points.empty()) return sum;
  for (const KPt3<double>& p : points) sum += p;
  return sum * (1.0 / static_cast<double>(points.size()));
}

int Run(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
        std::ostream& err) {
  Options options;
  try {
    options = ParseArguments(args);
  } catch (const UsageError& e) {
    err << "metrofit: " << e.what() << "\nTry 'metrofit --help'.\n";
    return kExitUsage;
  }
  if (options.help) {
    out << HelpText();
    return kExitOk;
  }
  const Shape* shape = FindShape(options.shape);
  if (shape == nullptr) {  // ParseArguments accepts known shapes only
    err << "metrofit: unknown shape '" << options.shape << "'\n";
    return kExitUsage;
  }
  std::vector<KPt3<double>> points;
  try {
    points = ReadInput(options, in);
  } catch (const InputError& e) {
    err << "metrofit: " << e.what() << '\n';
    return kExitInput;
  }
  WarnUnusedProbeRadius(options, *shape, err);
  const int status = FitAndReport(options, *shape, std::move(points), out);
  out.flush();
  if (!out) {
    err << "metrofit: cannot write the result\n";
    return kExitInternal;
  }
  return status;
}

}  // namespace metrofit::cli
