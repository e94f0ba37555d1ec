// Numbers shared across the subsystems. Each guards one specific thing; keep them named so a
// change of one is visible everywhere it matters.
#ifndef METROFIT_CORE_CONSTANTS_H
#define METROFIT_CORE_CONSTANTS_H

namespace metrofit {

// Prior weight that holds a fixed parameter at its given value in the normal equations.
constexpr double kFixedWeight = 1e20;
// Weight that marks a given starting value; the engine treats negative weights as free.
constexpr double kStartValueWeight = -1.0;
// Start of every running minimum/maximum scan (max starts at -kSentinel, min at +kSentinel).
constexpr double kSentinel = 1e38;
// Double machine epsilon: the threshold below which squared lengths count as zero.
constexpr double kTinyLength = 2.220446049250313e-16;
// Smallest normalised double: pivots not above it stop an elimination.
constexpr double kSmallestNormal = 2.2250738585072014e-308;
// Largest fit type code the driver knows; 9 is known but gets no form error.
constexpr int kLastFitType = 8;

}  // namespace metrofit

#endif  // METROFIT_CORE_CONSTANTS_H
