// The description of one least-squares shape: everything the driver, the engine and the form
// error need to know about it, in one place. Every per-shape table and dispatch of the library
// is read from here (ShapeFor); the descriptions themselves are made from the shape classes in
// lsq/shapes/ by shape_table.cpp. See lsq/README.md for what adding a shape takes.
#ifndef METROFIT_LSQ_SHAPE_H
#define METROFIT_LSQ_SHAPE_H

#include <cmath>
#include <cstdint>

#include "metrofit.h"

namespace metrofit {

// What a caller's constraint mode asks for one parameter value.
enum class ConstraintMode {
  kFree,   // 0: the fit determines the value
  kFixed,  // 1: the value is held as given
  kStart,  // any other value: the given value is where the iteration starts
};

inline ConstraintMode ModeOf(int raw) {
  if (raw == 0) return ConstraintMode::kFree;
  return raw == 1 ? ConstraintMode::kFixed : ConstraintMode::kStart;
}

// Variance factor reported when there is no redundancy to divide by.
constexpr double kNoRedundancyVarianceFactor = 1.0;

// Marks a constraint slot the shape does not have.
constexpr int kNoSlot = -1;
// Largest number of unknowns of any shape; the engine's fixed-size sums are this large.
constexpr int kMaxParameters = 7;

// Dimensions of the engine for one shape: parameters n, conditions per point m and the
// redundancy offset (points + offset + fixed parameters).
struct EngineLayout {
  int parameters;
  int conditions;
  int offset;
};

// Where the driver writes constraints: the unknowns, the two angle slots and the two radius
// slots (kNoSlot for none). Centre constraints always go to slots 0, 1, 2.
struct DriverLayout {
  int unknowns;
  int angle1;
  int angle2;
  int radius;
  int radius2;
};

// The sums one pass over the points produces: the normal matrix (symmetric, full), the
// right-hand side and the weighted sum of squared misclosures.
struct NormalSums {
  double N[kMaxParameters][kMaxParameters];
  double u[kMaxParameters];
  double objective;
};

// What the residual pass returns besides the appended vectors: their squared sum and the
// smallest and largest length among them (kSentinel and 0 when nothing was appended).
//
// The lengths are compared as squares and rooted once at the end: the square root is
// correctly rounded and monotonic, so the root of the extreme square is the extreme root bit
// for bit. Squares outside the normal range, where KPt3::Length takes a scaled route, are
// measured by Length itself.
struct ResidualSums {
  double squares = 0.0;
  double smallest = 1e38;
  double largest = 0.0;

  void Add(const KPt3<double>& v) {
    const double s = v.Dot(v);
    squares += s;
    if (s > kSmallestSquare && s <= kLargestSquare) {
      if (s < smallestSquare_) smallestSquare_ = s;
      if (s > largestSquare_) largestSquare_ = s;
      return;
    }
    const double len = v.Length();
    if (len < smallest) smallest = len;
    if (len > largest) largest = len;
  }

  // Folds the squares into smallest and largest; call once after the last Add.
  void Finish() {
    if (largestSquare_ >= 0.0) {
      const double lo = std::sqrt(smallestSquare_), hi = std::sqrt(largestSquare_);
      if (lo < smallest) smallest = lo;
      if (hi > largest) largest = hi;
    }
  }

 private:
  // The range in which KPt3::Length is the plain square root of the square.
  static constexpr double kSmallestSquare = 2.2250738585072014e-308;
  static constexpr double kLargestSquare = 1.7976931348623157e308;
  double smallestSquare_ = kLargestSquare;
  double largestSquare_ = -1.0;  // no square seen yet
};

struct PointMoments;

// What one pass over the points reads: the input, the result holding the current parameters,
// the rotation of the current three angles (for probe compensation), whether the fit has no
// redundancy (the variance factor is then 1), the point moments of the line and plane,
// gathered on their first pass and reused after, and whether the residual pass appends to the
// result's deviation list (lsq/best_fit.h).
struct PassContext {
  const CFitInput& in;
  CFitResult& res;
  double rotation[3][3];
  bool noRedundancy;
  PointMoments* moments;
  bool appendDeviations;
};

struct ShapeDescription {
  int fitType;
  const char* name;
  EngineLayout engine;
  DriverLayout driver;
  // Starting values into the a-priori vector (and result fields); writes only free slots.
  void (CFitInput::*estimate)(CFitResult&, double**, double**);
  // The parameter vector x (n x 1) into the result fields of the shape.
  void (*writeParameters)(const CFitInput& in, CFitResult& res, double** x);
  // One pass: the normal equations at the parameters held in ctx.res.
  void (*accumulate)(PassContext& ctx, NormalSums& sums);
  // The residual pass: one residual vector per point, appended to the list when asked.
  ResidualSums (*residuals)(PassContext& ctx);
  // The model at one point into row-pointer matrices (Q diagonal, B, A, w), for callers
  // outside the engine's loop.
  void (*evaluate)(const KPt3<double>& p, const CFitResult& r, double** Q, double** B, double** A,
                   double** w);
  // Writes m_formError from the fitted parameters; null keeps the engine's value.
  void (*formError)(const CFitInput& in, CFitResult& out);
};

// The description of a fit type 0..8, or null for any other code.
const ShapeDescription* ShapeFor(int fitType);

// The description the engine runs for a fit type: ShapeFor(fitType), or for any other code a
// shape with no unknowns, no estimator and no model (every point gets a zero residual).
const ShapeDescription& EngineShapeFor(int fitType);

// The layout of a fit type; all zero outside 0..8.
EngineLayout EngineLayoutFor(int fitType);

// Fills the diagonal of Q (3 x 3), B (m x 3), A (m x n) and w = -f (m x 1) for point p at the
// current parameters held in r; nothing for a code outside 0..8. No division is guarded.
void EvaluateShapeModel(int fitType, const KPt3<double>& p, const CFitResult& r, double** Q,
                        double** B, double** A, double** w);

}  // namespace metrofit

#endif  // METROFIT_LSQ_SHAPE_H
