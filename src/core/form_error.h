// Form-error measures of the least-squares driver, each on given parameters and points.
// Spreads of an empty point set are -2e38 (the scan sentinels); the line measure of fewer than
// two points is 0.
#ifndef METROFIT_CORE_FORM_ERROR_H
#define METROFIT_CORE_FORM_ERROR_H

#include <vector>

#include "metrofit.h"

namespace metrofit {

using Points = std::vector<KPt3<double>>;

// Fit type code that the form-error step knows but measures nothing for: the value the engine
// wrote stays. No entry point stamps it.
constexpr int kNoFormErrorType = 9;

// Radius of the thinnest cylinder about the line (c, a) that holds all points (a unit).
double LineFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& a);
// max - min of the signed distances (p - c) . n.
double PlaneFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& n);
// max - min of (distance from the axis line (c, a)) - r; circle and cylinder.
double AxialFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& a, double r);
// max - min of |p - c| - r.
double SphereFormError(const Points& pts, const KPt3<double>& c, double r);

// Largest distance of a point from the line through a along d (d of any length; a zero d
// measures from a). 0 for no points; NaN distances, from a diverged fit, are passed over.
double RadialExtent(const Points& pts, const KPt3<double>& a, const KPt3<double>& d);

// Writes out.m_formError for the fit type of `in` from the parameters now in `out`.
void ApplyFormError(const CFitInput& in, CFitResult& out);

}  // namespace metrofit

#endif  // METROFIT_CORE_FORM_ERROR_H
