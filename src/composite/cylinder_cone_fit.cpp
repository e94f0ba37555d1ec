// Multi-start cylinder and cone fit. Every candidate is a full least-squares fit from one of
// eighteen start axes, with the centre tied softly to the centroid and a size start measured
// about that axis; the candidate with the smallest standard deviation wins.
//
// The caller's input is used as the working input of every candidate run, so it ends holding
// the state of the last candidate fitted; callers may rely on that.
//
// Deviations and form errors. No candidate's deviation list ever reaches the caller: assigning
// a result keeps the target's own list (records.h), so `out` keeps the list it came with. The
// candidates' runs therefore make none (their residual passes still give the statistics and
// the extremes). A candidate's form error, a pass of its own, is read only where the choice
// compares two and for the winner, so it is measured then, from the candidate's result as its
// run would have measured it.
//
// Axis point. The cylinder iteration keeps its axis point at the foot of the perpendicular from
// the input's reference point. The candidates run with the reference point at the centroid
// (below); the winner's axis point is then moved along its axis to the foot of the
// perpendicular from the caller's reference point, where the iteration would have put it for
// that point. Axis line, radius, deviations and form error do not change with the move.
// The cone's centre is its apex, a point of the shape itself that no reference point moves.
#include "composite/cylinder_cone_fit.h"

#include <cmath>
#include <cstddef>
#include <vector>

#include "core/axis_foot.h"
#include "core/constants.h"
#include "core/driver.h"
#include "core/form_error.h"
#include "estimate/estimate_common.h"
#include "numeric/lanes.h"
#include "numeric/vector_path.h"

namespace metrofit {
namespace {

constexpr int kMinPoints = 5;
// Constraint mode of a start value that the iteration may move.
constexpr int kStartMode = 2;
// Cylinder radii at or below this are degenerate and take no part in the choice.
constexpr double kMinRadius = 1e-4;
// A cylinder radius above this multiple of the smallest valid radius is a runaway candidate.
constexpr double kRadiusSpread = 1000.0;
// Scores closer than this count as a tie, settled by form error and nearness to the centroid.
constexpr double kScoreTie = 1e-20;
// A cone's radial spread must exceed this for its slope start to be measured.
constexpr double kMinRadialSpread = 1e-6;
// Candidate taken when no candidate is valid: the start along z.
constexpr int kFallbackCandidate = 2;

KPt3<double> Centroid(const std::vector<KPt3<double>>& pts) {
  KPt3<double> c;
  for (const auto& p : pts) c += p;
  return c * (1.0 / static_cast<double>(pts.size()));
}

// Distance of p from the line through c along a (b = c + a).
inline double RadialDistance(const KPt3<double>& c, const KPt3<double>& a, const KPt3<double>& b,
                             const KPt3<double>& p) {
  const double t = LineParameter(c, b, p);
  return (c + a * t - p).Length();
}

}  // namespace

Extent ExtentAbout(const std::vector<KPt3<double>>& pts, const KPt3<double>& c,
                   const KPt3<double>& a) {
  Extent e;
  const KPt3<double> b = c + a;
  const double a2 = a.Dot(a);
  for (const auto& p : pts) {
    const double rho = RadialDistance(c, a, b, p);
    const double z = a2 > kTinyLength ? (p - c).Dot(a) / a2 : 0.0;
    e.rhoMax = std::fmax(e.rhoMax, rho);
    e.rhoMin = std::fmin(e.rhoMin, rho);
    e.zMax = std::fmax(e.zMax, z);
    e.zMin = std::fmin(e.zMin, z);
  }
  return e;
}

namespace {

// Points [from, size) one at a time: the distance of each exactly as ExtentAbout forms it.
double LargestRadialDistanceFrom(const std::vector<KPt3<double>>& pts, std::size_t from,
                                 const KPt3<double>& c, const KPt3<double>& a, double largest) {
  const KPt3<double> b = c + a;
  for (std::size_t i = from; i < pts.size(); ++i) {
    const double rho = RadialDistance(c, a, b, pts[i]);
    if (rho > largest) largest = rho;
  }
  return largest;
}

#if defined(METROFIT_HAS_DOUBLE_QUAD)
// Smallest and largest squared length for which KPt3::Length is the plain square root.
constexpr double kPlainSquareMin = 2.2250738585072014e-308;
constexpr double kPlainSquareMax = 1.7976931348623157e308;
// KPt3's LineParameter leaves the parameter at 0 for an axis this short (squared).
constexpr double kLineParameterTiny = 2.220446049250313e-16;

// The same four points at a time. Each lane forms the distance as RadialDistance does; where
// its square lies in the plain range of KPt3::Length the distance is that square root,
// elsewhere the lane's point takes the one-point form. The largest of a set does not depend on
// the order in which it is taken (distances are never -0, and NaN distances are never taken),
// so the four lanes keep their own maxima until the end. Inlined into the AVX2 kernel below,
// which passes no four-lane value across a call itself.
METROFIT_ALWAYS_INLINE double LargestRadialDistanceQuads(const std::vector<KPt3<double>>& pts,
                                                         const KPt3<double>& c,
                                                         const KPt3<double>& a) {
  const KPt3<double> b = c + a;
  const KPt3<double> ab = b - c;  // as LineParameter forms it
  const double len2 = ab.Dot(ab);
  const bool tiny = !(len2 > kLineParameterTiny);
  double largest = -kSentinel;
  DoubleQuad lanes = Filled<DoubleQuad>(-kSentinel);
  std::size_t i = 0;
  for (; i + 4 <= pts.size(); i += 4) {
    const KPt3<double>* p = pts.data() + i;
    const DoubleQuad px = {p[0].x, p[1].x, p[2].x, p[3].x};
    const DoubleQuad py = {p[0].y, p[1].y, p[2].y, p[3].y};
    const DoubleQuad pz = {p[0].z, p[1].z, p[2].z, p[3].z};
    const DoubleQuad t = tiny ? Filled<DoubleQuad>(0.0)
                              : ((px - c.x) * ab.x + (py - c.y) * ab.y + (pz - c.z) * ab.z) / len2;
    const DoubleQuad vx = (c.x + a.x * t) - px;
    const DoubleQuad vy = (c.y + a.y * t) - py;
    const DoubleQuad vz = (c.z + a.z * t) - pz;
    const DoubleQuad s = vx * vx + vy * vy + vz * vz;
    bool plain = true;
    for (int l = 0; l < 4; ++l) plain = plain && s[l] > kPlainSquareMin && s[l] <= kPlainSquareMax;
    if (plain) {
      const DoubleQuad rho = Sqrt(s);
      lanes = rho > lanes ? rho : lanes;
      continue;
    }
    for (int l = 0; l < 4; ++l) {
      const double rho = KPt3<double>(vx[l], vy[l], vz[l]).Length();
      if (rho > largest) largest = rho;
    }
  }
  largest = LargestRadialDistanceFrom(pts, i, c, a, largest);
  for (int l = 0; l < 4; ++l)
    if (lanes[l] > largest) largest = lanes[l];
  return largest;
}

__attribute__((target("avx2"))) double LargestRadialDistanceAvx2(
    const std::vector<KPt3<double>>& pts, const KPt3<double>& c, const KPt3<double>& a) {
  return LargestRadialDistanceQuads(pts, c, a);
}
#endif

}  // namespace

// A distance is never -0, so the comparison keeps what fmax keeps, and a NaN distance leaves
// the maximum as it was, as in fmax.
double LargestRadialDistance(const std::vector<KPt3<double>>& pts, const KPt3<double>& c,
                             const KPt3<double>& a) {
#if defined(METROFIT_HAS_DOUBLE_QUAD)
  if (numeric::ActiveVectorPath() == numeric::VectorPath::kAvx2)
    return LargestRadialDistanceAvx2(pts, c, a);
#endif
  return LargestRadialDistanceFrom(pts, 0, c, a, -kSentinel);
}

void SetSizeStart(int fitType, const std::vector<KPt3<double>>& pts, const KPt3<double>& c,
                  CFitInput& cand) {
  // A cylinder needs only the largest distance, and nothing when its radius is fixed.
  if (fitType == FIT_CYLINDER) {
    if (cand.m_size1Param.mode[0] != 1) {
      cand.m_size1Param.value.x = LargestRadialDistance(pts, c, cand.m_axisParam.value);
      cand.m_size1Param.mode[0] = kStartMode;
    }
    return;
  }
  const Extent e = ExtentAbout(pts, c, cand.m_axisParam.value);
  if (std::fabs(e.rhoMax - e.rhoMin) > kMinRadialSpread) {
    cand.m_size2Param.value.z = (e.zMax - e.zMin) / (e.rhoMax - e.rhoMin);
    cand.m_size2Param.mode[2] = kStartMode;
  }
}

namespace {

struct Candidates {
  std::vector<CFitInput> in;
  std::vector<CFitResult> out;
  std::array<bool, kCandidateCount> formErrorPending{};  // fitted without its form error
};

Candidates MakeCandidates(int fitType, CFitInput& in, const CFitResult& out) {
  Candidates c;
  c.in.resize(kCandidateCount);
  c.out.resize(kCandidateCount);
  for (int k = 0; k < kCandidateCount; ++k) {
    c.in[k] = in;
    c.in[k].m_fitType = fitType;
    for (int& m : c.in[k].m_axisParam.mode) m = kStartMode;
    c.out[k] = out;
    c.out[k].m_sigma = kSentinel;
    // A candidate is valid only once its own fit succeeded. The caller's result may still be
    // valid from an earlier fit; left in the copies, that would stop every cylinder candidate
    // from being fitted (the driver runs where m_valid is 0) and let the skipped candidates'
    // stale radius and centre take part in the choice.
    c.out[k].m_valid = 0;
  }
  return c;
}

void SetAxes(int fitType, CFitInput& in, const KPt3<double>& centroid, Candidates& c) {
  const CandidateAxes axes = MakeCandidateAxes(in);
  const auto skip = DuplicateStarts(axes.axis);
  for (int k = 0; k < kCandidateCount; ++k) {
    CFitInput& cand = c.in[k];
    cand.m_axisParam.value = axes.axis[k];
    if (fitType == FIT_CYLINDER) {
      double a1 = 0.0, a2 = 0.0;
      DirectionToAngles(axes.axis[k], &a1, &a2);
      cand.m_angleParam.value = KPt3<double>(a1, a2, 0.0);
    }
    // A skipped candidate is never fitted: its size start would never be read.
    if (skip[k]) {
      cand.m_fitType = kSkippedFitType;
      continue;
    }
    SetSizeStart(fitType, in.m_points, centroid, cand);
  }
}

void RunCandidates(int fitType, CFitInput& in, Candidates& c, CandidateWork work,
                   CandidateTrace* trace) {
  const DriverResult what = work == CandidateWork::kLean ? DriverResult::kWithoutListOrFormError
                                                         : DriverResult::kComplete;
  for (int k = 0; k < kCandidateCount; ++k) {
    if (trace != nullptr) trace->skipped[k] = c.in[k].m_fitType == kSkippedFitType;
    if (c.in[k].m_fitType == kSkippedFitType) continue;
    in = c.in[k];
    in.m_fitType = fitType;
    if (fitType == FIT_CONE) RefineCone(in, c.out[k]);
    if (c.out[k].m_valid == 0) {
      RunLeastSquaresDriver(in, c.out[k], what);
      c.formErrorPending[k] = what != DriverResult::kComplete;
      if (trace != nullptr) trace->formErrorMeasured[k] = what == DriverResult::kComplete;
    }
    c.in[k] = in;
    if (trace != nullptr) trace->fitted[k] = true;
  }
}

// Candidate k's form error, measured on first asking if its run left it out. `in` holds the
// points and the fit type, all the measure reads besides the candidate's result.
double FormErrorOf(const CFitInput& in, Candidates& c, int k, CandidateTrace* trace) {
  if (c.formErrorPending[k]) {
    ApplyFormError(in, c.out[k]);
    c.formErrorPending[k] = false;
    if (trace != nullptr) trace->formErrorMeasured[k] = true;
  }
  return c.out[k].m_formError;
}

// Moves the cylinder's axis point along the axis of its angles to the foot of the
// perpendicular from ref; the axis is built as the iteration builds it, the third row of the
// rotation of (a1, a2, 0).
void MoveAxisPointToFootFrom(const KPt3<double>& ref, CFitResult& out) {
  double rot[9];
  ConvertAnglesToMatrix(out.m_angles.x, out.m_angles.y, 0.0, rot);
  out.m_center = AxisFoot(ref, out.m_center, KPt3<double>(rot[6], rot[7], rot[8]));
}

}  // namespace

double SmallestValidRadius(const std::vector<CFitResult>& out) {
  double rmin = kSentinel;
  for (const auto& r : out)
    if (r.m_valid != 0 && r.m_size1.x > kMinRadius) rmin = std::fmin(rmin, r.m_size1.x);
  return rmin;
}

// Smallest sigma wins; a tie within kScoreTie goes to the smaller form error, but only for the
// candidate that is at that moment the nearest to the centroid. Falls back to the nearest
// candidate, then to slot 2 (the start along z).
int ChooseCandidate(int fitType, const std::vector<CFitResult>& out, const KPt3<double>& c) {
  return ChooseCandidate(fitType, out, c, [&out](int k) { return out[k].m_formError; });
}

// The form error of the candidate chosen so far is read only when a later one ties with it.
int ChooseCandidate(int fitType, const std::vector<CFitResult>& out, const KPt3<double>& c,
                    const std::function<double(int)>& formErrorOf) {
  const double rmin = SmallestValidRadius(out);
  double bestScore = kSentinel, nearestDist = kSentinel;
  int nearest = -1, chosen = -1;
  for (int k = 0; k < kCandidateCount; ++k) {
    const CFitResult& r = out[k];
    if (r.m_valid == 0) continue;
    const double d = (c - r.m_center).Length();
    if (d < nearestDist) {
      nearestDist = d;
      nearest = k;
    }
    if (fitType == FIT_CYLINDER &&
        !(r.m_size1.x > kMinRadius && r.m_size1.x < rmin * kRadiusSpread))
      continue;
    if (r.m_sigma < bestScore - kScoreTie) {
      bestScore = r.m_sigma;
      chosen = k;
    } else if (r.m_sigma < bestScore + kScoreTie && k == nearest &&
               formErrorOf(k) < (chosen < 0 ? kSentinel : formErrorOf(chosen))) {
      chosen = k;
    }
  }
  if (chosen < 0) chosen = nearest;
  return chosen < 0 ? kFallbackCandidate : chosen;
}

double FitCylinderOrCone(int fitType, CFitInput& in, CFitResult& out, CandidateTrace* trace,
                         CandidateWork work) {
  if (in.m_points.size() < static_cast<std::size_t>(kMinPoints)) return 0.0;
  const KPt3<double> c = Centroid(in.m_points);
  in.m_centerParam.value = c;
  for (int& m : in.m_centerParam.mode) m = kStartMode;

  // The cylinder iteration keeps its axis point at the foot of the perpendicular from the
  // reference point, and the line start is held through it. From a reference point far from
  // the part (the origin, 500 mm away) that lever arm narrows every candidate's basin below the
  // spacing of the starts, so the candidates run about the centroid; the caller's reference
  // point is given back afterwards, and the cylinder's axis point is measured from it.
  const KPt3<double> callerRef = in.m_refPoint;
  in.m_refPoint = c;
  Candidates cand = MakeCandidates(fitType, in, out);
  SetAxes(fitType, in, c, cand);
  RunCandidates(fitType, in, cand, work, trace);
  in.m_refPoint = callerRef;
  const auto formErrorOf = [&](int k) { return FormErrorOf(in, cand, k, trace); };
  const int chosen = ChooseCandidate(fitType, cand.out, c, formErrorOf);
  if (trace != nullptr) trace->chosen = chosen;
  formErrorOf(chosen);
  out = cand.out[chosen];
  if (fitType == FIT_CYLINDER) MoveAxisPointToFootFrom(callerRef, out);
  return out.m_formError;
}

}  // namespace metrofit

namespace {

template <class Fit>
std::int32_t Guarded(CFitResult& out, Fit fit) {
  try {
    return fit();
  } catch (...) {
    out.m_valid = 0;
    return 0;
  }
}

}  // namespace

std::int32_t metrofit::FitCylinderInternal(CFitInput& in, CFitResult& out) noexcept {
  return Guarded(out, [&] {
    in.m_fitType = FIT_CYLINDER;
    metrofit::FitCylinderOrCone(FIT_CYLINDER, in, out);
    out.m_message.clear();
    return static_cast<std::int32_t>(out.m_valid);
  });
}

std::int32_t KFitCylinder(CFitInput& in, CFitResult& out) {
  return metrofit::FitCylinderInternal(in, out);
}

std::int32_t metrofit::FitConeInternal(CFitInput& in, CFitResult& out) noexcept {
  return Guarded(out, [&] {
    in.m_fitType = FIT_CONE;
    metrofit::FitCylinderOrCone(FIT_CONE, in, out);
    out.m_message.clear();
    return static_cast<std::int32_t>(out.m_valid);
  });
}

std::int32_t KFitCone(CFitInput& in, CFitResult& out) {
  return metrofit::FitConeInternal(in, out);
}
