// Multi-start extended cylinder fit; see cylinder_candidate_search.h.
#include "extended/cylinder_candidate_search.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "core/constants.h"
#include "extended/cylinder_fit_ex.h"
#include "extended/extended_status.h"
#include "numeric/nvector.h"

namespace metrofit {
namespace {

// Candidate radii below this (2^-23, the float epsilon) are degenerate fits, not cylinders.
constexpr double kMinCandidateRadius = 1.1920928955078125e-07;
// A candidate radius at or above this multiple of the smallest valid radius is a runaway fit.
constexpr double kRadiusSpread = 1000.0;
// Form errors closer than this count as a tie, settled by nearness to the centroid.
constexpr double kFormTie = 1.1920928955078125e-07;
// Slots of the axes taken from the three furthest points.
constexpr int kFurthestFirstSlot = 12;
constexpr int kFurthestLastSlot = 14;

// Puts an input's settings back as they were when it was made, also when a fit throws.
class SettingsKept {
 public:
  explicit SettingsKept(CFitInput& in) : in_(in), settings_(in) {}
  ~SettingsKept() { in_ = settings_; }
  SettingsKept(const SettingsKept&) = delete;
  SettingsKept& operator=(const SettingsKept&) = delete;

 private:
  CFitInput& in_;
  const CFitInput settings_;  // the copy constructor takes the settings, not the points
};

// The start axes come from line and plane fits, which stamp their settings into the input they
// run on. They run on the caller's input, whose settings are then put back: those fits change
// nothing else of it (points, reference point, auxiliary and given values are only read), so
// it is as it was, and the points are not held a second time as a working copy would.
CandidateAxes AxesLeavingTheInputAsItWas(CFitInput& in) {
  const SettingsKept kept(in);
  return MakeCandidateAxes(in);
}

KPt3<double> PlainCentroid(const std::vector<KPt3<double>>& pts) {
  KPt3<double> g;
  for (const KPt3<double>& p : pts) g += p;
  return g * (1.0 / static_cast<double>(pts.size()));
}

}  // namespace

CylinderChoice ChooseCylinderCandidate(std::vector<CFitResult>& cand, const KPt3<double>& g) {
  double rmin = kSentinel;
  for (CFitResult& r : cand) {
    if (r.m_valid != 0 && r.m_size1.x < kMinCandidateRadius) r.m_valid = 0;
    if (r.m_valid != 0 && r.m_size1.x < rmin) rmin = r.m_size1.x;
  }

  CylinderChoice choice;
  double nearestDistance = kSentinel;
  double bestForm = kSentinel;
  for (std::size_t k = 0; k < cand.size(); ++k) {
    const CFitResult& r = cand[k];
    if (r.m_valid == 0) continue;
    const int slot = static_cast<int>(k);
    const double d = (r.m_center - g).Length();
    if (d < nearestDistance) {
      nearestDistance = d;
      choice.nearest = slot;
    }
    if (!(r.m_size1.x < kRadiusSpread * rmin)) continue;
    if (r.m_formError < bestForm) {
      bestForm = r.m_formError;
      choice.best = slot;
    } else if (std::fabs(r.m_formError - bestForm) < kFormTie && slot == choice.nearest) {
      bestForm = r.m_formError;
      choice.best = slot;
    }
  }
  return choice;
}

std::int32_t CylinderCandidateSearch(CFitInput& in, CFitResult& out, CylinderSearchTrace* trace) {
  const CandidateAxes axes = AxesLeavingTheInputAsItWas(in);
  std::array<bool, kCandidateCount> skip = DuplicateStarts(axes.axis);
  if (!axes.furthestPointsFound) {
    for (int k = kFurthestFirstSlot; k <= kFurthestLastSlot; ++k) skip[k] = true;
  }

  std::vector<CFitResult> cand(kCandidateCount);
  for (CFitResult& c : cand) {
    c = out;
    c.m_sigma = kSentinel;
    // Valid only once its own refit succeeded: a caller's result that is already valid (the
    // refined result of the extended entry point) would otherwise let every skipped candidate
    // take part in the choice with that result's centre, radius and form error.
    c.m_valid = 0;
  }

  const std::size_t count = in.m_points.size();
  const bool countFits =
      count <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
  // One deviation array for every candidate: scratch, nothing of it is reported.
  const numeric::UniqueDoubles deviations =
      countFits ? numeric::AllocateDoubles(count) : numeric::UniqueDoubles();
  for (int k = 0; k < kCandidateCount; ++k) {
    if (skip[k]) continue;
    const KPt3<double>& a = axes.axis[k];
    double record[kCylinderRecordSize] = {0.0, 0.0, 0.0, a.x, a.y, a.z, 0.0, 0.0};
    ExtendedStatus status = ExtendedStatus::kAllocationFailure;
    if (deviations) {
      status = FitCylinderEx(record, static_cast<std::int32_t>(count), in.m_points.data(),
                             deviations.get());
    }
    CFitResult& r = cand[k];
    r.m_center = KPt3<double>(record[0], record[1], record[2]);
    r.m_axis = KPt3<double>(record[3], record[4], record[5]);
    r.m_size1.x = record[6] * 0.5;
    r.m_formError = record[7];
    r.m_valid = ValidFlag(status);
    r.m_message.clear();
  }

  const CylinderChoice choice = ChooseCylinderCandidate(cand, PlainCentroid(in.m_points));
  if (trace != nullptr) {
    trace->skipped = skip;
    for (int k = 0; k < kCandidateCount; ++k) trace->valid[k] = cand[k].m_valid;
    trace->best = choice.best;
    trace->nearest = choice.nearest;
  }
  const int chosen = choice.best >= 0 ? choice.best : choice.nearest;
  if (chosen >= 0) out = cand[chosen];
  return out.m_valid;
}

}  // namespace metrofit
