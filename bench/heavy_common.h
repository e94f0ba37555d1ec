// What the heavy-input benchmark programs share: the point count, the shapes' sizes and the
// peak-memory readings of /proc/self/status.
#ifndef METROFIT_BENCH_HEAVY_COMMON_H
#define METROFIT_BENCH_HEAVY_COMMON_H

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <string>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace heavy {

constexpr double kDefaultPoints = 1e7;
constexpr double kNoise = 0.001;  // mm: a scanner's micrometre scatter
constexpr double kRadius = 50.0;
constexpr double kPlaneSide = 300.0;
constexpr double kCylinderLength = 120.0;
constexpr double kMiB = 1024.0 * 1024.0;

// The point count: METROFIT_HEAVY_POINTS when set to a positive number, else 1e7.
inline std::size_t PointCount() {
  const char* env = std::getenv("METROFIT_HEAVY_POINTS");
  const double n = env != nullptr ? std::atof(env) : kDefaultPoints;
  return static_cast<std::size_t>(n > 0.0 ? n : kDefaultPoints);
}

// A field of /proc/self/status in kB ("VmRSS", "VmHWM"), or -1.
inline double StatusKb(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string key;
  double value = -1.0;
  while (status >> key) {
    if (key == field + ":") {
      status >> value;
      return value;
    }
    std::getline(status, key);
  }
  return -1.0;
}

// Makes VmHWM start again from the current resident size. Freed heap memory is handed back
// first: glibc keeps it resident otherwise, and a later fit reusing it would show no peak.
inline void ResetPeak() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
}

}  // namespace heavy

#endif  // METROFIT_BENCH_HEAVY_COMMON_H
