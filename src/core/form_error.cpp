// Form errors of the least-squares shapes, measured on the fitted parameters.
//
//   plane            spread of the signed distances (p - c) . n, n the unit normal;
//   circle/cylinder  spread of |o| - r with o = (p - c) - ((p - c) . a) a, the offset of p from
//                    the axis line; for the circle too, so its offset along the axis is ignored;
//   sphere           spread of |p - c| - r;
//   line             radius of the smallest circle holding all offsets o: the thinnest
//                    cylinder about the fitted direction that holds every point.
//   radial extent   largest |p - f(p)|, f(p) the foot of p on a line: the paraboloid's reach
//                    from its axis, reported in place of a radius.
// Each spread is max - min with the running maximum starting at -kSentinel and the minimum at
// +kSentinel, so an empty point set reports -2 kSentinel rather than a plausible zero.
#include "core/form_error.h"

#include "core/constants.h"
#include "core/enclosing_circle.h"

namespace metrofit {
namespace {

class Spread {
 public:
  void Add(double d) {
    if (d > hi_) hi_ = d;
    if (d < lo_) lo_ = d;
  }
  double Value() const { return hi_ - lo_; }

 private:
  double hi_ = -kSentinel;
  double lo_ = kSentinel;
};

// Component of p - c across the unit direction a.
KPt3<double> RadialOffset(const KPt3<double>& p, const KPt3<double>& c, const KPt3<double>& a) {
  const KPt3<double> d = p - c;
  return d - a * d.Dot(a);
}

}  // namespace

double LineFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& a) {
  // Deliberately a radius, not a diameter: the radius of the thinnest holding cylinder.
  Points offsets;
  offsets.reserve(pts.size());
  for (const auto& p : pts) offsets.push_back(RadialOffset(p, c, a));
  return SmallestEnclosingCircleInPlace(offsets.data(), offsets.size()).radius;
}

double PlaneFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& n) {
  Spread s;
  for (const auto& p : pts) s.Add((p - c).Dot(n));
  return s.Value();
}

double AxialFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& a, double r) {
  Spread s;
  for (const auto& p : pts) s.Add(RadialOffset(p, c, a).Length() - r);
  return s.Value();
}

double SphereFormError(const Points& pts, const KPt3<double>& c, double r) {
  Spread s;
  for (const auto& p : pts) s.Add((p - c).Length() - r);
  return s.Value();
}

double RadialExtent(const Points& pts, const KPt3<double>& a, const KPt3<double>& d) {
  const KPt3<double> b = a + d;
  double rho = 0.0;
  for (const auto& p : pts) {
    const double dist = (p - (a + d * LineParameter(a, b, p))).Length();
    if (dist > rho) rho = dist;
  }
  return rho;
}

void ApplyFormError(const CFitInput& in, CFitResult& out) {
  const Points& pts = in.m_points;
  switch (in.m_fitType) {
    case FIT_LINE:
      out.m_formError = LineFormError(pts, out.m_center, out.m_axis);
      return;
    case FIT_PLANE:
      out.m_formError = PlaneFormError(pts, out.m_center, out.m_axis);
      return;
    case FIT_CIRCLE:
    case FIT_CYLINDER:
      out.m_formError = AxialFormError(pts, out.m_center, out.m_axis, out.m_size1.x);
      return;
    case FIT_SPHERE:
      out.m_formError = SphereFormError(pts, out.m_center, out.m_size1.x);
      return;
    case FIT_CONE:
      // Kept as the engine left it (its root mean square): a cone has no measure here.
      return;
    case kNoFormErrorType:
      // Known code without a measure: the engine's value stays.
      return;
    default:
      // Paraboloid, ellipse, torus and unknown codes report no form error.
      out.m_formError = 0.0;
      return;
  }
}

}  // namespace metrofit
