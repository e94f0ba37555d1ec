// Multi-start extended cylinder fit: the extended cylinder refit from each of the eighteen
// candidate axes of the multi-start cylinder fit, and a choice among the results by form error.
//
// Choice, over the valid candidates in slot order (a radius below 2^-23 is not valid):
//   nearest  the candidate whose centre is closest to the centroid of the points (first of
//            equals);
//   best     among candidates with a radius below 1000 times the smallest valid radius (a
//            runaway fit grows its radius without bound), the smallest form error; a candidate
//            whose form error is within 2^-23 of the best's without being smaller takes over
//            only when it is, at that point of the walk, the nearest.
// The caller's result receives the best, else the nearest, else stays as it was.
#ifndef METROFIT_EXTENDED_CYLINDER_CANDIDATE_SEARCH_H
#define METROFIT_EXTENDED_CYLINDER_CANDIDATE_SEARCH_H

#include <array>
#include <cstdint>
#include <vector>

#include "composite/candidate_axes.h"
#include "metrofit.h"

namespace metrofit {

// What one search did; observation only.
struct CylinderSearchTrace {
  std::array<bool, kCandidateCount> skipped{};
  std::array<int, kCandidateCount> valid{};  // m_valid of each candidate after the checks
  int best = -1;
  int nearest = -1;
};

struct CylinderChoice {
  int best = -1;     // -1: none
  int nearest = -1;  // -1: none
};

// Makes every valid candidate with a radius below 2^-23 invalid (in place), then walks the
// candidates in order with the rules above; g is the centroid of the points.
CylinderChoice ChooseCylinderCandidate(std::vector<CFitResult>& cand, const KPt3<double>& g);

// Runs the search on the points of `in` and assigns the chosen candidate to `out` (the record
// assignment: out keeps its own deviation list). Every candidate starts as a copy of `out` with
// m_sigma = 1e38 and m_valid = 0, and its refit writes centre, axis, radius, form error and
// validity; a candidate that is not refitted (duplicate start, or a furthest-point slot when
// those points could not be found) stays invalid. The line and plane fits that give three of
// the axes run on a copy of `in`: the caller's input is not changed. Returns out.m_valid.
std::int32_t CylinderCandidateSearch(CFitInput& in, CFitResult& out,
                                     CylinderSearchTrace* trace = nullptr);

}  // namespace metrofit

#endif  // METROFIT_EXTENDED_CYLINDER_CANDIDATE_SEARCH_H
