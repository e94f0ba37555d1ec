// Entry points of the point, distance, line, plane, circle, sphere, ellipse and paraboloid
// measurements. Each stamps its fit type, handles what needs no iteration (a point, a distance,
// a two-point line, a circle from one or two points) and hands the rest to the least-squares
// driver.
//
// Nothing may cross the library boundary as an exception: every body runs under Guarded, which
// turns any exception into a failed fit (m_valid = 0, return 0).
#include "core/entry_points.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "core/driver.h"
#include "core/form_error.h"

namespace {

// The library's only message text.
constexpr char kTwoPointsNeeded[] = "2 Points are needed for this measurement.";

template <class Body>
std::int32_t Guarded(CFitResult& out, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    out.m_valid = 0;
    return 0;
  }
}

std::int32_t RunDriver(CFitInput& in, CFitResult& out, int fitType,
                       metrofit::DriverResult what = metrofit::DriverResult::kComplete) {
  in.m_fitType = fitType;
  metrofit::RunLeastSquaresDriver(in, out, what);
  return out.m_valid;
}

// Largest distance of a point from p; 0 for no points.
double LargestDistanceFrom(const std::vector<KPt3<double>>& pts, const KPt3<double>& p) {
  double d = 0.0;
  for (const auto& q : pts) d = std::fmax(d, (q - p).Length());
  return d;
}

// A line through two points: no iteration, zero residuals, one zero deviation per point.
std::int32_t TwoPointLine(const CFitInput& in, CFitResult& out) {
  const KPt3<double>& p0 = in.m_points[0];
  const KPt3<double>& p1 = in.m_points[1];
  out.m_center = (p0 + p1) * 0.5;
  KPt3<double> axis = p1 - p0;
  // Coincident points leave the raw zero difference as the axis.
  out.m_axis = axis.Normalize();
  out.m_minDeviation = out.m_maxDeviation = out.m_formError = 0.0;
  out.m_extraValue = out.m_sigma = out.m_rms = 0.0;
  // Appended, not replaced: the deviation list is the caller's to clear.
  out.m_deviations.push_back(KPt3<double>());
  out.m_deviations.push_back(KPt3<double>());
  out.m_valid = 1;
  return 1;
}

}  // namespace

std::int32_t KFitPoint(CFitInput& in, CFitResult& out) {
  return Guarded(out, [&]() -> std::int32_t {
    out.m_center = in.m_refPoint;
    out.m_minDeviation = in.m_givenMinMax.x;
    out.m_maxDeviation = in.m_givenMinMax.y;
    out.m_extraValue = in.m_givenMinMax.z;
    out.m_sigma = in.m_givenStats.x;
    out.m_rms = in.m_givenStats.y;
    out.m_formError = in.m_givenStats.z;
    out.m_message.clear();
    return 1;
  });
}

std::int32_t KFitDistance(CFitInput& in, CFitResult& out) {
  return Guarded(out, [&]() -> std::int32_t {
    if (in.m_points.size() != 2) {
      out.m_message = kTwoPointsNeeded;
      return 0;
    }
    out.m_size2.y = (in.m_points[1] - in.m_points[0]).Length();
    return 1;
  });
}

// A placeholder kept for the interface: it reads and writes nothing.
std::int32_t KFitAngle(CFitInput& /*in*/, CFitResult& /*out*/) {
  return 0;
}

std::int32_t metrofit::FitLineInternal(CFitInput& in, CFitResult& out) noexcept {
  return Guarded(out, [&]() -> std::int32_t {
    in.m_fitType = FIT_LINE;
    if (in.m_points.size() == 2) return TwoPointLine(in, out);
    return RunDriver(in, out, FIT_LINE);
  });
}

std::int32_t metrofit::FitLineAxisInternal(CFitInput& in, CFitResult& out) noexcept {
  return Guarded(out, [&]() -> std::int32_t {
    in.m_fitType = FIT_LINE;
    if (in.m_points.size() == 2) return TwoPointLine(in, out);
    return RunDriver(in, out, FIT_LINE, DriverResult::kWithoutListOrFormError);
  });
}

std::int32_t KFitLine(CFitInput& in, CFitResult& out) {
  return metrofit::FitLineInternal(in, out);
}

// Leaves any earlier message in place.
std::int32_t metrofit::FitPlaneInternal(CFitInput& in, CFitResult& out) noexcept {
  return Guarded(out, [&]() { return RunDriver(in, out, FIT_PLANE); });
}

std::int32_t metrofit::FitPlaneAxisInternal(CFitInput& in, CFitResult& out) noexcept {
  return Guarded(
      out, [&]() { return RunDriver(in, out, FIT_PLANE, DriverResult::kWithoutListOrFormError); });
}

std::int32_t KFitPlane(CFitInput& in, CFitResult& out) {
  return metrofit::FitPlaneInternal(in, out);
}

std::int32_t KFitCircle(CFitInput& in, CFitResult& out) {
  return Guarded(out, [&]() -> std::int32_t {
    in.m_fitType = FIT_CIRCLE;
    const std::size_t n = in.m_points.size();
    const double reach = LargestDistanceFrom(in.m_points, in.m_refPoint);
    if (n > 2 && RunDriver(in, out, FIT_CIRCLE) != 0) return 1;
    // Fallback: a circle about the reference point through the furthest point. m_valid keeps
    // what the fit (if any) left; one or two points still count as a measurement.
    const bool fewPoints = n == 1 || n == 2;
    out.m_center = in.m_refPoint;
    out.m_size1.x = reach;
    if (in.m_useReference) {
      out.m_axis = in.m_refDirection;
    } else if (fewPoints) {
      out.m_axis = KPt3<double>(0.0, 0.0, 1.0);
    }
    return fewPoints ? 1 : 0;
  });
}

std::int32_t metrofit::FitSphereInternal(CFitInput& in, CFitResult& out) noexcept {
  return Guarded(out, [&]() {
    const std::int32_t valid = RunDriver(in, out, FIT_SPHERE);
    out.m_message.clear();
    return valid;
  });
}

std::int32_t KFitSphere(CFitInput& in, CFitResult& out) {
  return metrofit::FitSphereInternal(in, out);
}

std::int32_t KFitEllipse(CFitInput& in, CFitResult& out) {
  return Guarded(out, [&]() {
    const std::int32_t valid = RunDriver(in, out, FIT_ELLIPSE);
    out.m_message.clear();
    return valid;
  });
}

std::int32_t KFitParaboloid(CFitInput& in, CFitResult& out) {
  return Guarded(out, [&]() {
    RunDriver(in, out, FIT_PARABOLOID);
    // Deliberately overwrites the radius slot with the radial extent of the points about the
    // fitted axis, whether or not the fit succeeded.
    out.m_size1.x = metrofit::RadialExtent(in.m_points, out.m_center, out.m_axis);
    out.m_message.clear();
    return out.m_valid;
  });
}
