// Running a check on every vector path the processor can take (numeric/vector_path.h): the
// kernels written once for any lanes must give the same bits on each.
#ifndef METROFIT_TESTS_SUPPORT_VECTOR_PATHS_H
#define METROFIT_TESTS_SUPPORT_VECTOR_PATHS_H

#include <gtest/gtest.h>

#include <cstdio>

#include "numeric/vector_path.h"

namespace testing_paths {

// Runs `check` once on each vector path this processor can take, then returns the choice to
// the processor. A processor without AVX2 checks the baseline path alone, and says so.
template <class Check>
void OnEveryVectorPath(Check check) {
  using metrofit::numeric::VectorPath;
  for (VectorPath path : {VectorPath::kBaseline, VectorPath::kAvx2}) {
    if (!metrofit::numeric::VectorPathAvailable(path)) {
      std::printf("[   NOTE   ] this processor has no AVX2: its path is not checked here\n");
      continue;
    }
    metrofit::numeric::ForceVectorPath(path);
    SCOPED_TRACE(path == VectorPath::kAvx2 ? "AVX2 path" : "baseline path");
    check();
  }
  metrofit::numeric::ResetVectorPath();
}

}  // namespace testing_paths

#endif  // METROFIT_TESTS_SUPPORT_VECTOR_PATHS_H
