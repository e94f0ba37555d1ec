#include "numeric/vector_path.h"

namespace metrofit::numeric {
namespace {

bool ProcessorHasAvx2() {
#if defined(__GNUC__) && defined(__x86_64__)
  static const bool has = __builtin_cpu_supports("avx2") != 0;
  return has;
#else
  return false;
#endif
}

// A test's choice for this thread; the processor's otherwise.
thread_local bool t_forced = false;
thread_local VectorPath t_path = VectorPath::kBaseline;

}  // namespace

bool VectorPathAvailable(VectorPath path) {
  return path == VectorPath::kBaseline || ProcessorHasAvx2();
}

VectorPath ActiveVectorPath() {
  if (t_forced) return t_path;
  return ProcessorHasAvx2() ? VectorPath::kAvx2 : VectorPath::kBaseline;
}

void ForceVectorPath(VectorPath path) {
  t_forced = true;
  t_path = VectorPathAvailable(path) ? path : VectorPath::kBaseline;
}

void ResetVectorPath() {
  t_forced = false;
}

}  // namespace metrofit::numeric
