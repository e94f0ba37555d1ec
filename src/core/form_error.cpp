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
#include "lsq/shape.h"

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
  // A known code without a measure keeps the engine's value.
  if (in.m_fitType == kNoFormErrorType) return;
  const ShapeDescription* shape = ShapeFor(in.m_fitType);
  if (shape == nullptr) {
    out.m_formError = 0.0;  // unknown codes report no form error
    return;
  }
  // A shape without a measure of its own (the cone) keeps the engine's root mean square.
  if (shape->formError != nullptr) shape->formError(in, out);
}

}  // namespace metrofit
