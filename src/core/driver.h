// The common least-squares driver: nominal values to starting angles, constraint modes to a
// diagonal weight matrix and value vector, BestFit, final axis and form error.
#ifndef METROFIT_CORE_DRIVER_H
#define METROFIT_CORE_DRIVER_H

#include "metrofit.h"

namespace metrofit {

// Where the driver writes angle and radius constraints for one fit type. -1 marks "none".
struct DriverLayout {
  int unknowns;
  int angle1;
  int angle2;
  int radius;
  int radius2;
};

// Layout of fit types 0..8, or null for any other code.
const DriverLayout* DriverLayoutFor(int fitType);

// Turns the nominal axis of the input into the three start angles written into the values of
// m_angleParam (zero or tiny axis -> (0, 0, 1)). The value of m_axisParam is not changed.
void AxisToStartAngles(CFitInput& in);

// Runs one least-squares fit of in.m_fitType; success is out.m_valid.
void RunLeastSquaresDriver(CFitInput& in, CFitResult& out);

}  // namespace metrofit

#endif  // METROFIT_CORE_DRIVER_H
