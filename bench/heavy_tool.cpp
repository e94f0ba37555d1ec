// The metrofit tool on heavy files: 1e7 points (METROFIT_HEAVY_POINTS for another count) on a
// sphere, a plane, a cylinder and a 90-degree sphere cap, written as whitespace text and as
// binary little-endian PLY into a temporary directory, and fitted by the tool run as a child
// process, one run each. METROFIT_TOOL names another tool binary to measure.
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
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_data.h"
#include "heavy_common.h"

extern char** environ;

namespace {

using bench_data::P;
namespace fs = std::filesystem;

// Points of the run that measures the tool's own resident size.
constexpr std::size_t kBasePoints = 1000;
// Decimals of the text files: a tenth of a micrometre, as scanner exports write.
constexpr int kTextDecimals = 4;
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

void AddNumber(BlockWriter& out, double value, char after) {
  char text[64];
  const auto end =
      std::to_chars(text, text + sizeof(text) - 1, value, std::chars_format::fixed, kTextDecimals)
          .ptr;
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

// Runs `tool fit shape file` with its output in `log`. wait4 gives this child's own peak
// (getrusage's RUSAGE_CHILDREN would give the largest of all children so far).
Run RunTool(const std::string& tool, const std::string& shape, const fs::path& file,
            const fs::path& log) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  std::vector<std::string> args = {tool, "fit", shape, file.string()};
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  Run run;
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("cannot start " + tool + ": " + strerror(spawned));
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) throw std::runtime_error("wait4 failed");
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.peak_mb = static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB on Linux
  return run;
}

std::string ToolPath() {
  const char* env = std::getenv("METROFIT_TOOL");
  return env != nullptr ? env : METROFIT_TOOL_PATH;
}

void Report(const char* shape, const char* format, double file_mb, double points_mb,
            double base_mb, const Run& run) {
  const double beyond = run.peak_mb - base_mb - points_mb;
  std::printf("%-9s %-5s %9.1f %9.1f %8.2f %8.1f %9.1f %10.1f %6.2f %s\n", shape, format,
              file_mb, points_mb, run.seconds, base_mb, run.peak_mb, beyond, beyond / points_mb,
              run.ok ? "ok" : "FAILED");
  std::fflush(stdout);
}

double FileMb(const fs::path& path) {
  return static_cast<double>(fs::file_size(path)) / heavy::kMiB;
}

// The tool on the text and PLY files of one shape; false when a run fails.
bool MeasureShape(const HeavyShape& shape, std::size_t count, const std::string& tool,
                  const fs::path& dir) {
  const fs::path text = dir / "points.xyz";
  const fs::path ply = dir / "points.ply";
  const fs::path log = dir / "tool.log";
  {
    const std::vector<P> base = shape.generate(kBasePoints);
    WriteText(text, base);
  }
  const double base_mb = RunTool(tool, shape.name, text, log).peak_mb;
  {
    const std::vector<P> points = shape.generate(count);
    WriteText(text, points);
    WritePly(ply, points);
  }
  const double points_mb = static_cast<double>(count * sizeof(P)) / heavy::kMiB;
  const Run text_run = RunTool(tool, shape.name, text, log);
  Report(shape.label, "text", FileMb(text), points_mb, base_mb, text_run);
  const Run ply_run = RunTool(tool, shape.name, ply, log);
  Report(shape.label, "ply", FileMb(ply), points_mb, base_mb, ply_run);
  fs::remove(text);
  fs::remove(ply);
  return text_run.ok && ply_run.ok;
}

fs::path MakeTemporaryDirectory() {
  std::string pattern = (fs::temp_directory_path() / "metrofit-heavy-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a directory");
  return pattern;
}

}  // namespace

int main() {
  static_assert(sizeof(P) == 3 * sizeof(double), "points are packed triples");
  const std::size_t count = heavy::PointCount();
  const std::string tool = ToolPath();
  std::printf("metrofit tool %s, %zu points; MB are MiB; beyond: peak - base - points\n",
              tool.c_str(), count);
  std::printf("%-9s %-5s %9s %9s %8s %8s %9s %10s %6s\n", "shape", "file", "file_MB",
              "points_MB", "time_s", "base_MB", "peak_MB", "beyond_MB", "ratio");
  const fs::path dir = MakeTemporaryDirectory();
  bool ok = true;
  try {
    for (const HeavyShape& shape : Shapes()) ok = MeasureShape(shape, count, tool, dir) && ok;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "heavy_tool: %s\n", e.what());
    ok = false;
  }
  std::error_code ec;
  fs::remove_all(dir, ec);
  return ok ? 0 : 1;
}
