// Which vector instructions the numeric kernels use.
//
// The library must load and give the same results on any x86-64 processor: the baseline path
// (SSE2, pairs of doubles) runs everywhere, and where the processor has AVX2 a few kernels run
// four doubles at a time instead. Both paths do per lane exactly the scalar operations (no
// fused multiply-add, no reassociation), so they give the same bits; the choice is made once,
// from what the processor reports.
#ifndef METROFIT_NUMERIC_VECTOR_PATH_H
#define METROFIT_NUMERIC_VECTOR_PATH_H

namespace metrofit::numeric {

enum class VectorPath {
  kBaseline,  // pairs of doubles, SSE2
  kAvx2,      // four doubles at a time
};

// Whether this build has the path at all and the processor can run it.
bool VectorPathAvailable(VectorPath path);

// The path the kernels take on this thread: AVX2 where available, unless a test chose.
VectorPath ActiveVectorPath();

// Makes this thread's kernels take `path` (which must be available), so that tests can
// compare the paths; ResetVectorPath returns to the processor's choice.
void ForceVectorPath(VectorPath path);
void ResetVectorPath();

}  // namespace metrofit::numeric

#endif  // METROFIT_NUMERIC_VECTOR_PATH_H
