// Form-error measures of the least-squares driver, each on given parameters and points.
#ifndef METROFIT_CORE_FORM_ERROR_H
#define METROFIT_CORE_FORM_ERROR_H

#include <vector>

#include "metrofit.h"

namespace metrofit {

using Points = std::vector<KPt3<double>>;

// Radius of the thinnest cylinder about the line (c, a) that holds all points (a unit).
double LineFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& a);
// max - min of the signed distances (p - c) . n.
double PlaneFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& n);
// max - min of (distance from the axis line (c, a)) - r; circle and cylinder.
double AxialFormError(const Points& pts, const KPt3<double>& c, const KPt3<double>& a, double r);
// max - min of |p - c| - r.
double SphereFormError(const Points& pts, const KPt3<double>& c, double r);

// Writes out.m_formError for the fit type of `in` from the parameters now in `out`.
void ApplyFormError(const CFitInput& in, CFitResult& out);

}  // namespace metrofit

#endif  // METROFIT_CORE_FORM_ERROR_H
