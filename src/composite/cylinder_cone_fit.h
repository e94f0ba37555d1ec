// Multi-start least-squares cylinder and cone fit.
#ifndef METROFIT_COMPOSITE_CYLINDER_CONE_FIT_H
#define METROFIT_COMPOSITE_CYLINDER_CONE_FIT_H

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "composite/candidate_axes.h"
#include "core/constants.h"
#include "metrofit.h"

namespace metrofit {

// What one call did with its candidates; observation only, it changes nothing.
struct CandidateTrace {
  std::array<bool, kCandidateCount> skipped{};
  std::array<bool, kCandidateCount> fitted{};
  // Whose form error was measured (by the candidate's run, or later for the choice).
  std::array<bool, kCandidateCount> formErrorMeasured{};
  int chosen = -1;
};

// Fits a cylinder (fitType 4) or cone (6) from the eighteen candidate axes and copies the
// best candidate into `out`; a cylinder's axis point is the foot of the perpendicular from the
// caller's m_refPoint, a cone's centre its apex. Returns the chosen form error, or 0.0 for
// fewer than 5 points.
// How much of each candidate's result is made. No candidate's deviation list reaches the
// caller (a result assigned keeps its own list), and a candidate's form error is read only
// where the choice compares two, and for the winner. kLean (the fits' own way) makes no lists
// and measures a form error only when it is read; kFull makes all of every candidate's result
// and holds it to the end, the plain computation that tests compare against.
enum class CandidateWork { kLean, kFull };

double FitCylinderOrCone(int fitType, CFitInput& in, CFitResult& out,
                         CandidateTrace* trace = nullptr,
                         CandidateWork work = CandidateWork::kLean);

// What KFitCylinder does (it only forwards here), for fits inside the library that build on
// it: stamps the fit type, runs FitCylinderOrCone, clears the message and returns m_valid; an
// exception becomes m_valid = 0 and a return of 0.
std::int32_t FitCylinderInternal(CFitInput& in, CFitResult& out) noexcept;

// What KFitCone does (it only forwards here), likewise.
std::int32_t FitConeInternal(CFitInput& in, CFitResult& out) noexcept;

// Radial and axial extent of the points about the line through c along a.
struct Extent {
  double rhoMax = -kSentinel, rhoMin = kSentinel;
  double zMax = -kSentinel, zMin = kSentinel;
};
Extent ExtentAbout(const std::vector<KPt3<double>>& pts, const KPt3<double>& c,
                   const KPt3<double>& a);

// ExtentAbout(...).rhoMax alone, bit for bit, without the three other extents.
double LargestRadialDistance(const std::vector<KPt3<double>>& pts, const KPt3<double>& c,
                             const KPt3<double>& a);

// Size start of one candidate about its axis through the centroid c: the largest radial
// distance as the cylinder radius (unless the radius is fixed), or the axial over the radial
// extent as the cone slope (only when the radial spread exceeds 1e-6).
void SetSizeStart(int fitType, const std::vector<KPt3<double>>& pts, const KPt3<double>& c,
                  CFitInput& cand);

// Smallest radius among the valid results with a radius above 1e-4 (1e38 if none).
double SmallestValidRadius(const std::vector<CFitResult>& out);

// Index of the winning candidate result (see the fit's selection rules).
int ChooseCandidate(int fitType, const std::vector<CFitResult>& out, const KPt3<double>& c);

// The same choice with each candidate's form error read through formErrorOf(k), which is
// asked only where two form errors are compared.
int ChooseCandidate(int fitType, const std::vector<CFitResult>& out, const KPt3<double>& c,
                    const std::function<double(int)>& formErrorOf);

// Refines one cone candidate on the Levenberg-Marquardt core; 0 on success.
std::int32_t RefineCone(CFitInput& in, CFitResult& out);

}  // namespace metrofit

#endif  // METROFIT_COMPOSITE_CYLINDER_CONE_FIT_H
