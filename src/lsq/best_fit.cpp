// CFitInput::BestFit: Gauss-Helmert adjustment of the points against the shape model of
// m_fitType.
//
// Every point p_i is an observation with cofactor Q and gives m conditions f(p_i, x) = 0,
// linearised as B v + A dx = w (B = df/dp, A = df/dx, w = -f; see shape_models.cpp). With
// M = B Q B^T the normal equations of one Gauss-Newton step are
//
//   (sum A^T M^-1 A + C) dx = sum A^T M^-1 w - C (x - x0),
//
// C the diagonal prior weights of the caller (1e20 holds a parameter at its value in x0, 0
// leaves it free; a negative weight counts as 0). No damping and no line search. The variance
// factor sum w^T M^-1 w / r, r = points + offset + fixed parameters, drives the relative-change
// test; on convergence every point gets its residual vector v = Q B^T M^-1 w.
//
// Singular systems are not detected: a vanishing pivot stops an inversion, the partly inverted
// matrix is used as it stands, and the failure shows as divergence, the iteration limit or
// meaningless numbers.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/constants.h"
#include "lsq/shape_models.h"
#include "metrofit.h"

namespace {

using metrofit::EngineLayout;
using Pt = KPt3<double>;

// More full iterations than this fail the fit (the stop is taken at the top of the next pass,
// so 501 iterations run).
constexpr int kMaxIterations = 500;
// A step component above this is divergence.
constexpr double kMaxStep = 1e6;
// Converged when the variance factor changes by less than this, relative.
constexpr double kRelativeChangeTolerance = 1e-6;
// Step tolerances: without redundancy the step is the only measure left; the plane's
// parameters are an offset and two angles, hence its own, coarser bound.
constexpr double kNoRedundancyStepTolerance = 1e-8;
constexpr double kPlaneStepTolerance = 5e-10;
constexpr double kStepTolerance = 1e-12;
// Variance factor reported when there is no redundancy to divide by.
constexpr double kNoRedundancyVarianceFactor = 1.0;
// Value of the previous variance factor before the first iteration.
constexpr double kInitialObjective = 1.0;
// Smallest deviation length reported for an empty deviation list.
constexpr double kEmptyListExtreme = 0.0;

// Every matrix of one BestFit call, allocated at entry and released on every way out; the
// per-point loop allocates nothing. Each matrix gets at least one row and one column so that
// a fit type without a model (no unknowns) still has valid, unused storage.
struct Work {
  // n x 1
  double** x0 = nullptr;  // a-priori values
  double** x = nullptr;   // current parameters
  double** dx = nullptr;  // step
  double** u = nullptr;   // right-hand side
  double** d = nullptr;   // x - x0
  double** N = nullptr;   // n x n normal matrix, inverted in place
  // per point
  double** Q = nullptr;     // 3 x 3
  double** B = nullptr;     // m x 3
  double** A = nullptr;     // m x n
  double** w = nullptr;     // m x 1
  double** BQ = nullptr;    // m x 3
  double** Bt = nullptr;    // 3 x m
  double** M = nullptr;     // m x m, inverted in place
  double** At = nullptr;    // n x m
  double** AtM = nullptr;   // n x m
  double** AtMA = nullptr;  // n x n
  double** AtMw = nullptr;  // n x 1
  double** wt = nullptr;    // 1 x m
  double** wtM = nullptr;   // 1 x m
  double** wtMw = nullptr;  // 1 x 1
  double** QBt = nullptr;   // 3 x m
  double** QBtM = nullptr;  // 3 x m
  double** v = nullptr;     // 3 x 1
  double** R = nullptr;     // 3 x 3 rotation of the current angles

  // Returns false when an allocation failed; whatever was made is released by Release.
  bool Allocate(int n, int m);
  void Release();

 private:
  struct Slot {
    double*** handle;
    int rows;
  };
  static constexpr int kSlots = 24;
  Slot slots_[kSlots] = {};
  int used_ = 0;
  bool Make(double**& target, int rows, int cols);
};

bool Work::Make(double**& target, int rows, int cols) {
  target = nullptr;
  if (used_ >= kSlots) return false;
  const int r = rows > 0 ? rows : 1;
  const int c = cols > 0 ? cols : 1;
  target = mCreateMatrix(r, c);
  slots_[used_++] = Slot{&target, r};
  return target != nullptr;
}

bool Work::Allocate(int n, int m) {
  bool ok = true;
  ok = Make(x0, n, 1) && ok;
  ok = Make(x, n, 1) && ok;
  ok = Make(dx, n, 1) && ok;
  ok = Make(u, n, 1) && ok;
  ok = Make(d, n, 1) && ok;
  ok = Make(N, n, n) && ok;
  ok = Make(Q, 3, 3) && ok;
  ok = Make(B, m, 3) && ok;
  ok = Make(A, m, n) && ok;
  ok = Make(w, m, 1) && ok;
  ok = Make(BQ, m, 3) && ok;
  ok = Make(Bt, 3, m) && ok;
  ok = Make(M, m, m) && ok;
  ok = Make(At, n, m) && ok;
  ok = Make(AtM, n, m) && ok;
  ok = Make(AtMA, n, n) && ok;
  ok = Make(AtMw, n, 1) && ok;
  ok = Make(wt, 1, m) && ok;
  ok = Make(wtM, 1, m) && ok;
  ok = Make(wtMw, 1, 1) && ok;
  ok = Make(QBt, 3, m) && ok;
  ok = Make(QBtM, 3, m) && ok;
  ok = Make(v, 3, 1) && ok;
  ok = Make(R, 3, 3) && ok;
  return ok;
}

void Work::Release() {
  for (int i = 0; i < used_; ++i) mFreeMatrix(slots_[i].handle, slots_[i].rows);
  used_ = 0;
}

// The reported size: a radius or focal length fixed by mode 1 is reported as given, whatever
// the iteration does to its parameter; the model then also uses the given value.
double SizeOrFixed(const CFitParam& param, double estimate) {
  return param.mode[0] == 1 ? param.value.x : estimate;
}

Pt Centre(double** x) {
  return Pt(x[0][0], x[1][0], x[2][0]);
}

// Cylinder: the axis point slides to the foot of the perpendicular from the reference point,
// both in the result and in x, so the point stays near the measured part along the axis.
void MoveAxisPointToFoot(const Pt& ref, CFitResult& res, double** x) {
  double rot[9];
  ConvertAnglesToMatrix(res.m_angles.x, res.m_angles.y, 0.0, rot);
  const Pt a(rot[6], rot[7], rot[8]);
  const Pt c = Centre(x);
  const double len2 = a.Dot(a);
  const double t = len2 > metrofit::kTinyLength ? (ref - c).Dot(a) / len2 : 0.0;
  const Pt foot = c + a * t;
  res.m_center = foot;
  x[0][0] = foot.x;
  x[1][0] = foot.y;
  x[2][0] = foot.z;
}

// Step 3 of every iteration: x into the result fields of the fit type.
void WriteParameters(const CFitInput& in, CFitResult& res, double** x) {
  const int type = in.m_fitType;
  switch (type) {
    case FIT_LINE:
      // The line's point stays at the reference point on every iteration; x0..x2 take part in
      // the normal equations but are never written back.
      res.m_center = in.m_refPoint;
      res.m_angles.x = x[3][0];
      res.m_angles.y = x[4][0];
      break;
    case FIT_PLANE:
      res.m_center = in.m_refPoint;
      res.m_angles.x = x[0][0];
      res.m_angles.y = x[1][0];
      res.m_size2.y = x[2][0];
      break;
    case FIT_SPHERE:
      res.m_center = Centre(x);
      res.m_size1.x = SizeOrFixed(in.m_size1Param, x[3][0]);
      break;
    case FIT_CIRCLE:
    case FIT_CYLINDER:
      res.m_center = Centre(x);
      res.m_angles.x = x[3][0];
      res.m_angles.y = x[4][0];
      res.m_size1.x = SizeOrFixed(in.m_size1Param, x[5][0]);
      break;
    case FIT_PARABOLOID:
      res.m_center = Centre(x);
      res.m_angles.x = x[3][0];
      res.m_angles.y = x[4][0];
      res.m_size2.x = SizeOrFixed(in.m_size2Param, x[5][0]);
      break;
    case FIT_CONE:
      res.m_center = Centre(x);
      res.m_angles.x = x[3][0];
      res.m_angles.y = x[4][0];
      res.m_size2.z = x[5][0];
      break;
    case FIT_ELLIPSE:
      res.m_center = Centre(x);
      res.m_angles.x = x[3][0];
      res.m_angles.y = x[4][0];
      res.m_size3.x = x[5][0];
      res.m_size3.y = x[6][0];
      break;
    case FIT_TORUS:
      res.m_center = Centre(x);
      res.m_angles.x = x[3][0];
      res.m_angles.y = x[4][0];
      res.m_size1.y = x[5][0];
      res.m_size1.z = x[6][0];
      break;
    default:
      return;  // no model, no parameters
  }
  // The sphere has no orientation, and the ellipse keeps the turn about its axis that its
  // estimator set; every other shape is described with the third angle 0.
  if (type != FIT_SPHERE && type != FIT_ELLIPSE) res.m_angles.z = 0.0;
  if (type == FIT_CYLINDER) MoveAxisPointToFoot(in.m_refPoint, res, x);
}

void RunEstimator(CFitInput& in, CFitResult& res, double** constraints, double** x0) {
  switch (in.m_fitType) {
    case FIT_LINE:
      in.EstimateLine(res, constraints, x0);
      break;
    case FIT_PLANE:
      in.EstimatePlane(res, constraints, x0);
      break;
    case FIT_CIRCLE:
      in.EstimateCircle(res, constraints, x0);
      break;
    case FIT_SPHERE:
      in.EstimateSphere(res, constraints, x0);
      break;
    case FIT_CYLINDER:
      in.EstimateCylinder(res, constraints, x0);
      break;
    case FIT_PARABOLOID:
      in.Parab2Est(res, constraints, x0);
      break;
    case FIT_CONE:
      in.EstimateCone(res, constraints, x0);
      break;
    case FIT_ELLIPSE:
      in.EstimateEllipse(res, constraints, x0);
      break;
    case FIT_TORUS:
      in.EstimateTorus(res, constraints, x0);
      break;
    default:
      break;
  }
}

// r = points + offset + fixed parameters, as an unsigned 64-bit count: with fewer points than
// the offset asks for it wraps to a huge value on purpose, the variance factor then comes out
// near 0 and only the relative-change test can decide. Negative prior weights are free
// parameters: they are zeroed here, with the caller's value beside them.
std::uint64_t Redundancy(std::size_t points, int offset, int n, double** constraints,
                         double** params) {
  std::uint64_t fixed = 0;
  for (int k = 0; k < n; ++k) {
    if (constraints[k][k] > 0.0) ++fixed;
    if (constraints[k][k] < 0.0) {
      constraints[k][k] = 0.0;
      params[k][0] = 0.0;
    }
  }
  const std::uint64_t wrappedOffset = static_cast<std::uint64_t>(static_cast<std::int64_t>(offset));
  return static_cast<std::uint64_t>(points) + wrappedOffset + fixed;
}

// Paraboloid and torus points are taken with the probe radius removed against the current
// shape; all others as measured.
Pt PointFor(CFitInput& in, std::size_t i, CFitResult& res, double** rot) {
  if (in.m_fitType == FIT_PARABOLOID || in.m_fitType == FIT_TORUS)
    return in.RemoveProbeRadius(static_cast<int>(i), res, rot);
  return in.m_points[i];
}

// Model of point i at the result as it stands, with M = B Q B^T inverted in place (its
// failure, if any, is not reported: the engine carries on).
void LinearisePoint(CFitInput& in, std::size_t i, CFitResult& res, const EngineLayout& lay,
                    Work& k) {
  const int m = lay.conditions;
  const Pt p = PointFor(in, i, res, k.R);
  metrofit::EvaluateShapeModel(in.m_fitType, p, res, k.Q, k.B, k.A, k.w);
  mMultiplyMatrix(k.B, k.Q, k.BQ, m, 3, 3);
  mTransposeMatrix(k.B, k.Bt, m, 3);
  mMultiplyMatrix(k.BQ, k.Bt, k.M, m, 3, m);
  mInvertMatrix(k.M, m);
}

// Steps 5 and 6: normal equations over all points, and the weighted sum of squared
// misclosures into m_objective.
void Accumulate(CFitInput& in, CFitResult& res, const EngineLayout& lay, std::uint64_t r, Work& k) {
  const int n = lay.parameters, m = lay.conditions;
  mClearMatrix(k.N, n, n);
  mClearMatrix(k.u, n, 1);
  for (std::size_t i = 0; i < in.m_points.size(); ++i) {
    LinearisePoint(in, i, res, lay, k);
    if (r == 0) {
      res.m_objective = kNoRedundancyVarianceFactor;
    } else {
      mTransposeMatrix(k.w, k.wt, m, 1);
      mMultiplyMatrix(k.wt, k.M, k.wtM, 1, m, m);
      mMultiplyMatrix(k.wtM, k.w, k.wtMw, 1, m, 1);
      res.m_objective += k.wtMw[0][0];
    }
    mTransposeMatrix(k.A, k.At, m, n);
    mMultiplyMatrix(k.At, k.M, k.AtM, n, m, m);
    mMultiplyMatrix(k.AtM, k.A, k.AtMA, n, m, n);
    mAddMatrix(k.N, k.AtMA, n, n);
    mMultiplyMatrix(k.AtM, k.w, k.AtMw, n, m, 1);
    mAddMatrix(k.u, k.AtMw, n, 1);
  }
}

// Step 7: the prior. The caller's parameter vector serves as scratch for C (x - x0).
void ApplyPrior(double** constraints, double** params, int n, Work& k) {
  mCopyMatrix(k.d, k.x, n, 1);
  mSubtractMatrix(k.d, k.x0, n, 1);
  mMultiplyMatrix(constraints, k.d, params, n, n, 1);
  mAddMatrix(k.N, constraints, n, n);
  mSubtractMatrix(k.u, params, n, 1);
}

// Step 8: dx = N^-1 u, x += dx; returns the largest step component (NaN if any is NaN).
double TakeStep(int n, Work& k) {
  mInvertMatrix(k.N, n);
  mMultiplyMatrix(k.N, k.u, k.dx, n, n, 1);
  mAddMatrix(k.x, k.dx, n, 1);
  return mMaxAbs(k.dx, n);
}

// Step 9. Comparisons are written so that a NaN step or variance factor never converges.
bool Converged(int fitType, std::uint64_t r, double delta, double previous, double& rel,
               CFitResult& res) {
  if (r == 0) return delta <= kNoRedundancyStepTolerance;
  res.m_objective /= static_cast<double>(r);
  // A variance factor of exactly 0 keeps the previous relative change (0 before the first
  // iteration), so points exactly on the start shape converge at once.
  if (res.m_objective != 0.0) rel = (res.m_objective - previous) / res.m_objective;
  const double stepTolerance = fitType == FIT_PLANE ? kPlaneStepTolerance : kStepTolerance;
  return std::fabs(rel) < kRelativeChangeTolerance || delta <= stepTolerance;
}

// After convergence: N^-1 and x to the caller, one residual vector per point appended, and
// the statistics. The result keeps the parameters of the start of the converging iteration.
void Finish(CFitInput& in, CFitResult& res, double** constraints, double** params,
            const EngineLayout& lay, Work& k) {
  const int n = lay.parameters, m = lay.conditions;
  mCopyMatrix(constraints, k.N, n, n);
  mCopyMatrix(params, k.x, n, 1);

  const std::size_t count = in.m_points.size();
  // One growth of the caller's list for the whole pass, none per point.
  res.m_deviations.reserve(res.m_deviations.size() + count);
  double sum = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    LinearisePoint(in, i, res, lay, k);
    mMultiplyMatrix(k.Q, k.Bt, k.QBt, 3, 3, m);
    mMultiplyMatrix(k.QBt, k.M, k.QBtM, 3, m, m);
    mMultiplyMatrix(k.QBtM, k.w, k.v, 3, m, 1);
    const Pt v(k.v[0][0], k.v[1][0], k.v[2][0]);
    sum += v.Dot(v);
    res.m_deviations.push_back(v);
  }
  const double points = static_cast<double>(count);
  res.m_sigma = std::sqrt(sum / (count > 1 ? points - 1.0 : 1.0));
  res.m_rms = std::sqrt(sum / points);
  res.m_formError = res.m_rms;  // provisional; the driver puts the shape's own measure here

  // Over the whole list, entries from earlier calls included.
  double smallest = metrofit::kSentinel, largest = 0.0;
  for (const Pt& v : res.m_deviations) {
    const double len = v.Length();
    if (len < smallest) smallest = len;
    if (len > largest) largest = len;
  }
  if (res.m_deviations.empty()) smallest = largest = kEmptyListExtreme;
  res.m_minDeviation = smallest;
  res.m_maxDeviation = largest;
}

}  // namespace

void CFitInput::BestFit(CFitResult& result, double** constraints, double** params) {
  const std::size_t points = m_points.size();
  result.m_iterations = 0;
  result.m_objective = kInitialObjective;
  result.m_valid = 1;

  const EngineLayout lay = metrofit::EngineLayoutFor(m_fitType);
  const int n = lay.parameters;
  Work k;
  if (!k.Allocate(n, lay.conditions)) {
    // Out of memory is a failed fit, never an exception across the interface.
    k.Release();
    result.m_valid = 0;
    return;
  }

  mCopyMatrix(k.x0, params, n, 1);
  RunEstimator(*this, result, constraints, k.x0);
  // The only place m_axis is written: the estimate's axis. The driver derives the final one.
  // A sphere has no orientation: its axis stays as the caller seeded it.
  if (m_fitType != FIT_SPHERE) {
    ConvertAnglesToMatrix(result.m_angles.x, result.m_angles.y, result.m_angles.z, k.R);
    result.m_axis = Pt(k.R[2][0], k.R[2][1], k.R[2][2]);
  }
  const std::uint64_t r = Redundancy(points, lay.offset, n, constraints, params);
  mCopyMatrix(k.x, k.x0, n, 1);

  bool stop = false;
  double rel = 0.0;
  for (;;) {
    // The stop decided at the end of the previous pass is taken here: that pass's update is
    // discarded and the result keeps the parameters written at its start.
    if (stop) {
      result.m_valid = 0;
      k.Release();
      return;
    }
    ++result.m_iterations;
    const double previous = result.m_objective;
    result.m_objective = 0.0;

    WriteParameters(*this, result, k.x);
    if (m_fitType != FIT_SPHERE)
      ConvertAnglesToMatrix(result.m_angles.x, result.m_angles.y, result.m_angles.z, k.R);
    Accumulate(*this, result, lay, r, k);
    ApplyPrior(constraints, params, n, k);
    const double delta = TakeStep(n, k);

    if (Converged(m_fitType, r, delta, previous, rel, result)) break;
    // delta > kMaxStep is false for a NaN step, which then runs into the iteration limit.
    if (result.m_iterations > kMaxIterations || delta > kMaxStep) stop = true;
  }

  Finish(*this, result, constraints, params, lay, k);
  k.Release();
  result.m_valid = 1;
}
