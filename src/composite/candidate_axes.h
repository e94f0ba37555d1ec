// The eighteen start axes of the multi-start cylinder and cone fits.
#ifndef METROFIT_COMPOSITE_CANDIDATE_AXES_H
#define METROFIT_COMPOSITE_CANDIDATE_AXES_H

#include <array>

#include "metrofit.h"

namespace metrofit {

constexpr int kCandidateCount = 18;
// Two starts whose axes have |cos| above this are the same start; the later one is skipped.
constexpr double kDuplicateAxisCos = 0.999;
// Fit type written into a skipped candidate: outside every real fit type, used as a marker.
constexpr int kSkippedFitType = 12;

struct CandidateAxes {
  std::array<KPt3<double>, kCandidateCount> axis;
  bool furthestPointsFound = false;  // what GetFurthest3Points reported for slots 12 to 14
};

// Slots 0..11 are fixed tilted coordinate axes and diagonals; 12..14 the frame of the three
// furthest points; 15 the line-fit axis, 16 the plane-fit normal, 17 their cross product.
// The line and plane fits run on `in` itself and stamp their fit types into it.
CandidateAxes MakeCandidateAxes(CFitInput& in);

// skip[j] is set when the axis of slot j duplicates that of an earlier slot i (skipped or not).
std::array<bool, kCandidateCount> DuplicateStarts(
    const std::array<KPt3<double>, kCandidateCount>& axis);

}  // namespace metrofit

#endif  // METROFIT_COMPOSITE_CANDIDATE_AXES_H
