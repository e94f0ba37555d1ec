// Extended cylinder fit: Levenberg-Marquardt refinement of a cylinder from a start axis.
//
// The points are centred on their centroid g; from (0, a0, 0) (point, start axis, radius 0) the
// cylinder minimiser (cylinder_model.h) fits (c, a, r) to the centred points. The result is the
// point g + c, the axis a and the diameter 2 r; the signed radial deviations
// d_i = |(p_i - g - c) x a| - r give the form value |max - min| with both starting at 0, so that
// deviations all of one sign are measured from 0.
#ifndef METROFIT_EXTENDED_CYLINDER_FIT_EX_H
#define METROFIT_EXTENDED_CYLINDER_FIT_EX_H

#include <cstdint>

#include "extended/extended_status.h"
#include "metrofit.h"

namespace metrofit {

// Working record: point on the axis x, y, z; axis x, y, z; diameter; form value.
constexpr int kCylinderRecordSize = 8;

// Limits of the cylinder minimiser (each of its two runs).
struct CylinderFitLimits {
  std::int32_t maxIterations = 300;
  double stepTolerance = 1e-9;  // absolute, on point, axis and radius
};

// Fits a cylinder to n points from the axis record[3..5] (any length, either sign). Fills the
// record and deviations[0..n-1] (signed radial deviations). Returns kOk, kResourceFailure (the
// centred copy could not be made), kAllocationFailure or kNumericFailure (the minimiser rejected
// its arguments). A minimisation that stops at its limit leaves the record with the centroid,
// the start axis and diameter 0 and still returns kOk.
ExtendedStatus FitCylinderEx(double* record, std::int32_t n, const KPt3<double>* points,
                             double* deviations, const CylinderFitLimits& limits = {});

// What KFitCylinderEx does (it only forwards here), for fits inside the library that build on
// it; an exception becomes m_valid = 0 and a return of 0.
std::int32_t FitCylinderExInternal(CFitInput& in, CFitResult& out) noexcept;

}  // namespace metrofit

#endif  // METROFIT_EXTENDED_CYLINDER_FIT_EX_H
