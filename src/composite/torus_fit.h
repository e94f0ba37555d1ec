// Multi-start torus fit and its meridian-section building block.
#ifndef METROFIT_COMPOSITE_TORUS_FIT_H
#define METROFIT_COMPOSITE_TORUS_FIT_H

#include <cstdint>
#include <vector>

#include "composite/cylinder_cone_fit.h"
#include "metrofit.h"

namespace metrofit {

// Circle of the tube's cross-section found by turning all points into one half-plane.
struct MeridianSection {
  KPt3<double> centre;
  KPt3<double> axis;
  double radius = 0.0;
};

// In-plane direction of the meridian half-plane for an assumed axis u: (u x s) x u with the
// seed s chosen by the largest component of u. Deliberately not normalised.
KPt3<double> MeridianDirection(const KPt3<double>& u);

// Turns every point about the axis (c, u) into the half-plane along MeridianDirection(u) and
// fits a circle to the turned points.
MeridianSection FitMeridianSection(const CFitInput& in, const KPt3<double>& c,
                                   const KPt3<double>& u);

// Start of one torus candidate.
struct TorusStart {
  KPt3<double> centre;
  KPt3<double> axis;
  double major = 0.0;
  double minor = 0.0;
};

// The starts the torus fit builds from circle, sphere, cylinder and three-point fits, in the
// order they are tried. Exposed so the construction can be observed. The points of `in` are
// lent to the sub-fits and are back in place when it returns; nothing else of it changes.
std::vector<TorusStart> BuildTorusStarts(CFitInput& in);

// The fit; `work` says whether the candidates run without deviation lists, the winner's form
// error measured once chosen (the fit's own way), or make all of their results and hold them
// to the end (the plain computation, for tests): the same result.
std::int32_t FitTorus(CFitInput& in, CFitResult& out, CandidateWork work = CandidateWork::kLean);

// What KFitTorus does (it only forwards here), for fits inside the library that build on it:
// stamps the fit type, runs FitTorus; an exception becomes m_valid = 0 and a return of 0.
std::int32_t FitTorusInternal(CFitInput& in, CFitResult& out) noexcept;

}  // namespace metrofit

#endif  // METROFIT_COMPOSITE_TORUS_FIT_H
