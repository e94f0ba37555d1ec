// The common least-squares driver: nominal values to starting angles, constraint modes to a
// diagonal weight matrix and value vector, BestFit, final axis and form error.
#ifndef METROFIT_CORE_DRIVER_H
#define METROFIT_CORE_DRIVER_H

#include "lsq/shape.h"
#include "metrofit.h"

namespace metrofit {

// Where the driver writes constraints for fit types 0..8 (from the shape's description), or
// null for any other code.
const DriverLayout* DriverLayoutFor(int fitType);

// Turns the nominal axis of the input into the three start angles written into the values of
// m_angleParam (zero or tiny axis -> (0, 0, 1)). The value of m_axisParam is not changed.
void AxisToStartAngles(CFitInput& in);

// How much of the result a fit inside the library needs: all of it (every entry point), or
// all but the deviation list and the form error, for a fit that only proposes a start axis or
// competes as one candidate among several. Both are made after the iteration and change
// nothing else (the extremes of the deviations are still reported); the list takes one vector
// per point, the line's form error a scratch copy of the points. The form error can be
// measured later from the result (ApplyFormError), as the full fit would have measured it.
enum class DriverResult { kComplete, kWithoutListOrFormError };

// Runs one least-squares fit of in.m_fitType; success is out.m_valid.
void RunLeastSquaresDriver(CFitInput& in, CFitResult& out,
                           DriverResult what = DriverResult::kComplete);

// --- Building blocks of the driver, exposed for tests -------------------------------------

// Helper direction that completes a frame about the unit axis a: the largest |component| of a
// decides (x -> (0, 1, 0), y -> (0, 0, 1), z -> (1, 0, 0)); on a tie the earlier one wins.
KPt3<double> AuxiliaryDirection(const KPt3<double>& a);

// Diagonal weight of a caller's non-zero constraint mode: a fixed value is held, any other is
// passed as a starting value.
double ModeWeight(int mode);

// Fills the zeroed weight matrix w (unknowns x unknowns) and value vector v (unknowns x 1)
// from the constraint modes of the input: centre (not for the plane), angles (not for the
// sphere), radius. Copies a non-zero axis mode into an angle mode that is 0.
void WriteConstraints(CFitInput& in, const DriverLayout& layout, double** w, double** v);

// The reported axis: row 2 of the rotation of the fitted angles, for every type but the
// sphere, whose axis stays as seeded.
void ApplyFinalAxis(int fitType, CFitResult& out);

// Axis of a paraboloid estimated from three sphere fits (radius free, then held at r1 + 2s and
// at r1 - 2s; r1, s radius and standard deviation of the free fit). The driver runs it for a
// paraboloid with an axis constraint and does not use the values: the three fits still run,
// and may fail, without changing what the paraboloid fit reports. Leaves m_fitType at 5.
struct ParaboloidAxisEstimate {
  KPt3<double> vertex;
  KPt3<double> direction;
  double halfRadius = 0.0;
  double angle1 = 0.0;
  double angle2 = 0.0;
};
ParaboloidAxisEstimate EstimateParaboloidAxis(CFitInput& in);

}  // namespace metrofit

#endif  // METROFIT_CORE_DRIVER_H
