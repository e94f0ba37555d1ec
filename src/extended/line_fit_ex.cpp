// Extended line fit (geometry in line_fit_ex.h).
//
// KFitLineEx settles two points and coincident point sets directly and otherwise runs
// FitLineEx on a copy of the points; the straightness is then the line form error of the
// least-squares driver (radius of the thinnest cylinder about the fitted line), so both line
// fits report the same measure.
#include "extended/line_fit_ex.h"

#include <cstddef>
#include <limits>
#include <vector>

#include "core/form_error.h"
#include "extended/extended_status.h"
#include "metrofit.h"
#include "numeric/centred_copy.h"
#include "numeric/compensated.h"
#include "numeric/nvector.h"
#include "numeric/svd.h"

namespace metrofit {
namespace {

using numeric::NumericStatus;

// Below this length the two points of FitLineEx give no direction.
constexpr double kCoincidentLength = 1e-7;
// Ten double epsilons: below this a point spread (or a two-point distance) counts as zero.
constexpr double kCoincidentSpread = 2.220446049250313e-15;

}  // namespace

// The running sum of distances never decreases, nor does its quotient by the count, so once a
// partial sum's quotient reaches the bound the answer is no, whatever follows (a NaN distance
// included): the scan stops there, checking after each stretch of points.
bool PointsCoincide(const std::vector<KPt3<double>>& points) {
  constexpr std::size_t kStretch = 1024;  // points between checks
  const std::size_t count = points.size();
  KPt3<double> g;
  for (const KPt3<double>& p : points) g += p;
  g = g * (1.0 / static_cast<double>(count));
  const double n = static_cast<double>(count);
  double spread = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    spread += (points[i] - g).Length();
    if (i % kStretch == kStretch - 1 && spread / n >= kCoincidentSpread) return false;
  }
  return spread / n < kCoincidentSpread;
}

namespace {

template <class Points>
ExtendedStatus FitLine(double* record, std::int32_t n, const Points* points, double* distances) {
  // The decomposition overwrites its centred copy; the distances, when asked for, are measured
  // on a second one, centred on the same centroid.
  numeric::UniquePointSet second;
  if (numeric::CentredCopy(n, points, record, true, second) != NumericStatus::kOk) {
    return ExtendedStatus::kResourceFailure;
  }
  numeric::UniquePointSet first;
  if (distances != nullptr &&
      numeric::CentredCopy(n, points, record, true, first) != NumericStatus::kOk) {
    return ExtendedStatus::kResourceFailure;
  }

  const numeric::UniqueVector x(numeric::CreateVector(6));
  if (!x) return ExtendedStatus::kAllocationFailure;
  for (int k = 0; k < 3; ++k) {
    (*x)[k] = 0.0;
    (*x)[3 + k] = record[3 + k];
  }

  ExtendedStatus status = ExtendedStatus::kOk;
  if (n == 2) {
    const double* p0 = second->Point(0);
    const double* p1 = second->Point(1);
    double d[3] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
    const double len = numeric::Hypot3(d[0], d[1], d[2]);
    if (len < kCoincidentLength) {
      status = ExtendedStatus::kDegeneratePoints;
    } else {
      double dot = 0.0;
      for (int k = 0; k < 3; ++k) {
        d[k] /= len;
        dot += d[k] * record[3 + k];
      }
      const double sign = dot < 0.0 ? -1.0 : 1.0;
      for (int k = 0; k < 3; ++k) (*x)[3 + k] = sign * d[k];
    }
  } else {
    status = ToExtendedStatus(
        numeric::PrincipalDirectionSVD(second.get(), x.get(), numeric::kSvdSweepLimit, nullptr));
  }
  if (status != ExtendedStatus::kOk) return status;

  for (int k = 0; k < 3; ++k) {
    record[k] += (*x)[k];
    record[3 + k] = (*x)[3 + k];
  }
  if (distances == nullptr) return ExtendedStatus::kOk;
  const double* c = x->data;
  const double* u = x->data + 3;
  double largest = 0.0;
  for (std::int32_t i = 0; i < n; ++i) {
    const double* p = first->Point(i);
    const double q[3] = {p[0] - c[0], p[1] - c[1], p[2] - c[2]};
    const double dist = numeric::Hypot3(q[1] * u[2] - q[2] * u[1], q[2] * u[0] - q[0] * u[2],
                                        q[0] * u[1] - q[1] * u[0]);
    distances[i] = dist;
    if (dist > largest) largest = dist;
  }
  record[6] = largest;
  return ExtendedStatus::kOk;
}

}  // namespace

ExtendedStatus FitLineEx(double* record, std::int32_t n, const double* points, double* distances) {
  return FitLine(record, n, points, distances);
}

ExtendedStatus FitLineEx(double* record, std::int32_t n, const KPt3<double>* points,
                         double* distances) {
  return FitLine(record, n, points, distances);
}

}  // namespace metrofit

std::int32_t KFitLineEx(CFitInput& in, CFitResult& out) {
  using namespace metrofit;
  try {
    in.m_fitType = FIT_LINE;
    const std::size_t count = in.m_points.size();
    if (count == 2) {
      const KPt3<double>& p0 = in.m_points[0];
      const KPt3<double>& p1 = in.m_points[1];
      out.m_center = (p0 + p1) * 0.5;
      KPt3<double> d = p1 - p0;
      const double len = d.Length();
      out.m_axis = len > kCoincidentSpread ? d * (1.0 / len) : KPt3<double>(0.0, 0.0, 1.0);
      out.m_formError = 0.0;
      out.m_sigma = 0.0;
      out.m_rms = 0.0;
      out.m_minDeviation = 0.0;
      out.m_maxDeviation = 0.0;
      out.m_extraValue = 0.0;
      out.m_deviations.push_back(KPt3<double>());
      out.m_deviations.push_back(KPt3<double>());
      out.m_valid = 1;
      return out.m_valid;
    }
    if (count < 3) return out.m_valid;  // nothing to fit: the result stays as it was

    if (PointsCoincide(in.m_points)) {
      out.m_center = in.m_points[0];
      out.m_axis = KPt3<double>(0.0, 0.0, 1.0);
      out.m_formError = 0.0;
      out.m_valid = 1;
      return 1;
    }

    double record[kLineRecordSize] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
    ExtendedStatus status = ExtendedStatus::kAllocationFailure;
    if (count <= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() / 3)) {
      // The straightness below is measured on the points themselves: the fit's own distances
      // would go unread, so they are not computed.
      status = FitLineEx(record, static_cast<std::int32_t>(count), in.m_points.data(), nullptr);
    }
    out.m_center = KPt3<double>(record[0], record[1], record[2]);
    out.m_axis = KPt3<double>(record[3], record[4], record[5]);
    out.m_formError = LineFormError(in.m_points, out.m_center, out.m_axis);
    out.m_valid = ValidFlag(status);
    return out.m_valid;
  } catch (...) {
    // Nothing may cross the library boundary: any failure is a failed fit.
    out.m_valid = 0;
    return 0;
  }
}
