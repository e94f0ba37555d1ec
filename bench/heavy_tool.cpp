// The metrofit tool on heavy files: 1e7 points (METROFIT_HEAVY_POINTS for another count) on a
// sphere, a plane, a cylinder and a 90-degree sphere cap, written as whitespace text and as
// binary little-endian PLY into a temporary directory, and fitted by the tool run as a child
// process, one run each. METROFIT_TOOL names another tool binary to measure. The tool's reading
// alone is measured the same way, in this program run with --read-only FILE, or in the program
// METROFIT_READER names (taking the same arguments).
//
// For every run: the wall time of the tool (reading and fitting; writing the file is not
// counted), its peak resident memory, and that peak beyond the points' own size (24 bytes a
// point) and beyond the tool's resident size on a small file of the same shape: the memory the
// heavy input itself costs. The ratio divides that by the points' size.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_data.h"
#include "heavy_common.h"
#include "input.h"

extern char** environ;

namespace {

using bench_data::P;
namespace fs = std::filesystem;

// Points of the run that measures the tool's own resident size.
constexpr std::size_t kBasePoints = 1000;
// Decimals of the text files: a tenth of a micrometre, as scanner exports write;
// METROFIT_HEAVY_DECIMALS chooses another number.
constexpr int kDefaultTextDecimals = 4;
// Beyond this a double has no more digits to give.
constexpr int kMaxTextDecimals = 17;
// The argument that makes this program the read-only child.
constexpr char kReadOnly[] = "--read-only";
// Bytes of text or PLY data gathered before each write.
constexpr std::size_t kWriteBlock = 1 << 20;

struct HeavyShape {
  const char* name;  // as the tool's `fit` takes it
  const char* label;
  std::function<std::vector<P>(std::size_t)> generate;
};

std::vector<HeavyShape> Shapes() {
  return {
      {"sphere", "sphere",
       [](std::size_t n) { return bench_data::SpherePoints(n, heavy::kRadius, heavy::kNoise); }},
      {"plane", "plane",
       [](std::size_t n) {
         return bench_data::PlanePoints(n, heavy::kPlaneSide, heavy::kPlaneSide, heavy::kNoise);
       }},
      {"cylinder", "cylinder",
       [](std::size_t n) {
         return bench_data::CylinderPoints(n, heavy::kRadius, heavy::kCylinderLength,
                                           bench_data::kTwoPi, heavy::kNoise);
       }},
      {"sphere", "cap90",
       [](std::size_t n) { return bench_data::CapPoints(n, heavy::kRadius, heavy::kNoise); }},
  };
}

// Collects bytes and writes them in large blocks.
class BlockWriter {
 public:
  explicit BlockWriter(const fs::path& path) : out_(path, std::ios::binary) {
    if (!out_) throw std::runtime_error("cannot write " + path.string());
    block_.reserve(kWriteBlock);
  }
  ~BlockWriter() { Flush(); }
  void Add(const char* bytes, std::size_t size) {
    block_.append(bytes, size);
    if (block_.size() >= kWriteBlock) Flush();
  }
  void Flush() {
    out_.write(block_.data(), static_cast<std::streamsize>(block_.size()));
    block_.clear();
  }

 private:
  std::ofstream out_;
  std::string block_;
};

int TextDecimals() {
  const char* env = std::getenv("METROFIT_HEAVY_DECIMALS");
  const int decimals = env != nullptr ? std::atoi(env) : kDefaultTextDecimals;
  return decimals >= 0 && decimals <= kMaxTextDecimals ? decimals : kDefaultTextDecimals;
}

void AddNumber(BlockWriter& out, double value, char after) {
  static const int decimals = TextDecimals();
  char text[64];
  const auto end =
      std::to_chars(text, text + sizeof(text) - 1, value, std::chars_format::fixed, decimals).ptr;
  *end = after;
  out.Add(text, static_cast<std::size_t>(end + 1 - text));
}

void WriteText(const fs::path& path, const std::vector<P>& points) {
  BlockWriter out(path);
  for (const P& p : points) {
    AddNumber(out, p.x, ' ');
    AddNumber(out, p.y, ' ');
    AddNumber(out, p.z, '\n');
  }
}

// The eight bytes of `value`, least significant first, whatever the host's byte order.
void AddLittleEndian(BlockWriter& out, double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  char bytes[sizeof(bits)];
  for (std::size_t i = 0; i < sizeof(bits); ++i) bytes[i] = static_cast<char>(bits >> (8 * i));
  out.Add(bytes, sizeof(bytes));
}

void WritePly(const fs::path& path, const std::vector<P>& points) {
  BlockWriter out(path);
  const std::string header = "ply\nformat binary_little_endian 1.0\nelement vertex " +
                             std::to_string(points.size()) +
                             "\nproperty double x\nproperty double y\nproperty double z\n"
                             "end_header\n";
  out.Add(header.data(), header.size());
  for (const P& p : points) {
    AddLittleEndian(out, p.x);
    AddLittleEndian(out, p.y);
    AddLittleEndian(out, p.z);
  }
}

struct Run {
  bool ok = false;
  double seconds = 0.0;
  double peak_mb = 0.0;
};

// Runs `args` with its output in `log`. wait4 gives this child's own peak (getrusage's
// RUSAGE_CHILDREN would give the largest of all children so far). The child starts as a copy
// of this process, whose peak it inherits: that peak is reset first.
Run Spawn(std::vector<std::string> args, const fs::path& log) {
  heavy::ResetPeak();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  Run run;
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("cannot start " + args[0] + ": " + strerror(spawned));
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) throw std::runtime_error("wait4 failed");
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.peak_mb = static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB on Linux
  return run;
}

// The program `variable` names, or `fallback`.
std::string ProgramPath(const char* variable, const std::string& fallback) {
  const char* env = std::getenv(variable);
  return env != nullptr ? env : fallback;
}

// What one shape is measured with: the tool's fit, and this program reading the file the
// way the tool does and nothing else.
struct Runner {
  std::string tool;
  std::string self;
  fs::path log;
  Run Fit(const std::string& shape, const fs::path& file) const {
    return Spawn({tool, "fit", shape, file.string()}, log);
  }
  Run Read(const fs::path& file) const { return Spawn({self, kReadOnly, file.string()}, log); }
};

// The time, the peak, and the peak beyond `base_mb` and the points.
void PrintRun(const Run& run, double base_mb, double points_mb) {
  const double beyond = run.peak_mb - base_mb - points_mb;
  std::printf(" | %7.2f %8.1f %7.1f %9.1f %5.2f", run.seconds, base_mb, run.peak_mb, beyond,
              beyond / points_mb);
}

double FileMb(const fs::path& path) {
  return static_cast<double>(fs::file_size(path)) / heavy::kMiB;
}

// Fits and reads `file`; false when either fails.
bool MeasureFile(const Runner& runner, const HeavyShape& shape, const char* format,
                 const fs::path& file, double points_mb, const Run& fit_base,
                 const Run& read_base) {
  const Run fit = runner.Fit(shape.name, file);
  const Run read = runner.Read(file);
  std::printf("%-9s %-5s %8.1f %9.1f", shape.label, format, FileMb(file), points_mb);
  PrintRun(fit, fit_base.peak_mb, points_mb);
  PrintRun(read, read_base.peak_mb, points_mb);
  const bool ok = fit.ok && read.ok && fit_base.ok && read_base.ok;
  std::printf(" %s\n", ok ? "ok" : "FAILED");
  std::fflush(stdout);
  return ok;
}

// The tool on the text and PLY files of one shape; false when a run fails.
bool MeasureShape(const Runner& runner, const HeavyShape& shape, std::size_t count,
                  const fs::path& dir) {
  const fs::path text = dir / "points.xyz";
  const fs::path ply = dir / "points.ply";
  {
    const std::vector<P> base = shape.generate(kBasePoints);
    WriteText(text, base);
  }
  const Run fit_base = runner.Fit(shape.name, text);
  const Run read_base = runner.Read(text);
  {
    const std::vector<P> points = shape.generate(count);
    WriteText(text, points);
    WritePly(ply, points);
  }
  const double points_mb = static_cast<double>(count * sizeof(P)) / heavy::kMiB;
  bool ok = MeasureFile(runner, shape, "text", text, points_mb, fit_base, read_base);
  ok = MeasureFile(runner, shape, "ply", ply, points_mb, fit_base, read_base) && ok;
  fs::remove(text);
  fs::remove(ply);
  return ok;
}

// The read-only child: the tool's reading of `file`, the points kept until the end.
int ReadOnly(const char* file) {
  try {
    const std::vector<double> xyz = metrofit::cli::ReadInputPoints(file, {}, std::cin);
    std::printf("%zu points\n", xyz.size() / 3);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}

fs::path MakeTemporaryDirectory() {
  std::string pattern = (fs::temp_directory_path() / "metrofit-heavy-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a directory");
  return pattern;
}

}  // namespace

int main(int argc, char** argv) {
  static_assert(sizeof(P) == 3 * sizeof(double), "points are packed triples");
  if (argc == 3 && std::string(argv[1]) == kReadOnly) return ReadOnly(argv[2]);
  const std::size_t count = heavy::PointCount();
  const fs::path dir = MakeTemporaryDirectory();
  const Runner runner{ProgramPath("METROFIT_TOOL", METROFIT_TOOL_PATH),
                      ProgramPath("METROFIT_READER", fs::read_symlink("/proc/self/exe").string()),
                      dir / "run.log"};
  std::printf("tool %s, %zu points, text with %d decimals; MB are MiB\n", runner.tool.c_str(),
              count, TextDecimals());
  std::printf(
      "fit: the tool's run; read: the tool's reading alone; beyond: peak - base - points\n");
  std::printf("%-9s %-5s %8s %9s | %7s %8s %7s %9s %5s | %7s %8s %7s %9s %5s\n", "shape", "file",
              "file_MB", "points_MB", "fit_s", "base_MB", "peak_MB", "beyond_MB", "ratio", "read_s",
              "base_MB", "peak_MB", "beyond_MB", "ratio");
  bool ok = true;
  try {
    for (const HeavyShape& shape : Shapes()) ok = MeasureShape(runner, shape, count, dir) && ok;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "heavy_tool: %s\n", e.what());
    ok = false;
  }
  std::error_code ec;
  fs::remove_all(dir, ec);
  return ok ? 0 : 1;
}
