#include "app.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>

#include "cli.h"
#include "html_report.h"
#include "input.h"
#include "points_view.h"
#include "progress.h"
#include "report.h"

namespace metrofit::cli {

namespace {

// What one FILE gave: its points, as x, y, z triples, and the fit.
struct FileFit {
  const std::string& file;
  std::vector<double> xyz;
  FitResult result;

  std::size_t size() const { return xyz.size() / 3; }
  PointsView points() const { return PointsView(xyz.data(), size()); }
};

// The HTML report of a valid fit, written to the --report file.
void HtmlReport(std::ostream& out, const FileFit& fit, const Options& options) {
  WriteHtmlReport(out, ReportInput{fit.points(), fit.result, fit.file, options.units});
}

// The exit status of a fit that is not valid.
int NotValidStatus(Status status) {
  switch (status) {
    case Status::kUnknownShape:
    case Status::kUnknownParameter:
    case Status::kInvalidOption:
    case Status::kUnsupported:
      return kExitUsage;  // the options, not the points, are at fault
    case Status::kNonFinitePoint:
      return kExitInput;
    default:
      return kExitFitNotValid;
  }
}

// The fit of the points as they were read: no copy into Point structs.
FitResult FitPoints(const FileFit& fit, const Options& options) {
  return Fit(fit.xyz.empty() ? nullptr : fit.xyz.data(), fit.size(), options.fit);
}

FitResult FitWithProgress(const FileFit& fit, const Options& options, std::ostream& err,
                          const Environment& environment) {
  if (!environment.progress) return FitPoints(fit, options);
  ProgressNotice notice(
      err, "metrofit: fitting " + fit.file + " (" + std::to_string(fit.size()) + " points)...",
      environment.progress_delay);
  FitResult result = FitPoints(fit, options);
  if (notice.Stop()) err << "metrofit: " << fit.file << " done\n";
  return result;
}

// Writes `path` with `write`; false (and a message) when it cannot be written.
bool WriteFile(const std::string& path, const std::function<void(std::ostream&)>& write,
               std::ostream& err) {
  std::ofstream file(path, std::ios::binary);
  if (file) {
    write(file);
    file.close();
  }
  if (!file) {
    const int saved_errno = errno;
    err << "metrofit: cannot write '" << path
        << "': " << (saved_errno != 0 ? std::strerror(saved_errno) : "write failed") << '\n';
    return false;
  }
  return true;
}

// The files a valid fit asks for: deviations and report.
int WriteOutputFiles(const FileFit& fit, const Options& options, std::ostream& err) {
  if (!options.deviations.empty() &&
      !WriteFile(
          OutputPath(options.deviations, fit.file),
          [&](std::ostream& out) { WriteDeviationsCsv(out, fit.points(), fit.result); }, err)) {
    return kExitInternal;
  }
  if (!options.report.empty() &&
      !WriteFile(
          OutputPath(options.report, fit.file),
          [&](std::ostream& out) { HtmlReport(out, fit, options); }, err)) {
    return kExitInternal;
  }
  return kExitOk;
}

void SayNotValid(const FileFit& fit, std::ostream& err) {
  err << "metrofit: " << fit.file << ": no valid " << ToString(fit.result.shape) << " fit ("
      << StatusText(fit.result.status) << ")";
  if (!fit.result.message.empty()) err << ": " << fit.result.message;
  err << '\n';
}

// Reads, fits and reports one FILE. `tables` counts the tables printed so far.
int RunFile(const std::string& file, const Options& options, std::istream& in, std::ostream& out,
            std::ostream& err, const Environment& environment, int* tables) {
  FileFit fit{file, {}, {}};
  try {
    fit.xyz = ReadInputPoints(file, options.input, in);
  } catch (const ReadError& e) {
    err << "metrofit: " << e.what() << '\n';
    return kExitInput;
  }
  fit.result = FitWithProgress(fit, options, err, environment);
  const FitReport report{file, fit.size(), options.units, options.fit, fit.result};
  if (options.json) {
    WriteJson(out, report, options.json_deviations);
  } else if (fit.result.valid) {
    if ((*tables)++ > 0) out << '\n';
    WriteTable(out, report);
  }
  if (!fit.result.valid) {
    SayNotValid(fit, err);
    return NotValidStatus(fit.result.status);
  }
  return WriteOutputFiles(fit, options, err);
}

// The KFit* functions compensate the probe radius only for the paraboloid and torus; the
// compatible method returns what they return, so a radius given for another shape is ignored.
void NoteUncompensatedProbeRadius(const FitOptions& fit, std::ostream& err) {
  if (fit.method != Method::kCompatible || fit.probe_radius == 0.0 ||
      fit.shape == Shape::kParaboloid || fit.shape == Shape::kTorus) {
    return;
  }
  err << "metrofit: note: the compatible " << ToString(fit.shape)
      << " fit does not compensate the probe radius; the result describes the surface of the "
         "probe centres\n";
}

int RunFiles(const Options& options, std::istream& in, std::ostream& out, std::ostream& err,
             const Environment& environment) {
  NoteUncompensatedProbeRadius(options.fit, err);
  int worst = kExitOk;
  int tables = 0;
  for (const std::string& file : options.files) {
    const int status = RunFile(file, options, in, out, err, environment, &tables);
    worst = std::max(worst, status);
    // The same options would be refused for every other file too.
    if (status == kExitUsage) break;
  }
  return worst;
}

}  // namespace

int Run(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
        std::ostream& err, const Environment& environment) {
  Options options;
  try {
    options = ParseArguments(args);
  } catch (const UsageError& e) {
    err << "metrofit: " << e.what() << "\nTry 'metrofit --help'.\n";
    return kExitUsage;
  }
  int status = kExitOk;
  if (options.print.empty()) {
    status = RunFiles(options, in, out, err, environment);
  } else {
    out << options.print;
  }
  out.flush();
  if (!out) {
    err << "metrofit: cannot write the result\n";
    return kExitInternal;
  }
  return status;
}

}  // namespace metrofit::cli
