#include "precise/precise_fit.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "precise/precise_limits.h"
#include "precise/shape_problems.h"
#include "precise/starts.h"

namespace metrofit::precise {
namespace {

// Spread of the points (rms, relative to the size of their coordinates) below which they are
// one point.
constexpr double kCoincidentSpread = 1e-12;
// Thickness over extent below which the points lie on a line or in a plane.
constexpr double kFlatRatio = 1e-9;
// Above this many points the starts are made and compared on a subsample of about kScreenSize.
constexpr std::size_t kScreenSize = 4000;
constexpr std::size_t kScreenThreshold = 2 * kScreenSize;
// Iterations each of several starts runs before the best of them is taken on to convergence:
// enough for a start in the right basin to reach its minimum's neighbourhood (Gauss-Newton
// from the algebraic and subsample starts takes a handful).
constexpr int kScreenIterations = 15;

bool NeedsVolume(Shape shape) {
  return shape == Shape::kSphere || shape == Shape::kCylinder || shape == Shape::kCone ||
         shape == Shape::kTorus || shape == Shape::kSpheroid || shape == Shape::kParaboloid;
}

// A message when the point cloud cannot determine the shape, else empty.
std::string Degeneracy(Shape shape, const PointStats& st) {
  const double size = std::max(1.0, st.centroid.Length());
  const std::string what = std::string(" a ") + ToString(shape) + " is not determined";
  if (!(st.scale > kCoincidentSpread * size)) return "all points coincide:" + what;
  if (shape != Shape::kLine && !(st.lineSpread > kFlatRatio * st.scale)) {
    return "all points lie on one line:" + what;
  }
  if (NeedsVolume(shape) && !(st.planeSpread > kFlatRatio * st.scale)) {
    return "all points lie in one plane:" + what;
  }
  return std::string();
}

struct Outcome {
  Status status = Status::kOk;
  std::string message;
  Feature feature;
  int iterations = 0;
};

// The sense of an axis: that of the caller's axis if one was given, else its largest component
// positive.
void Orient(const Vec3* given, Vec3* axis) {
  double ref;
  if (given != nullptr) {
    ref = given->Dot(*axis);
  } else {
    const double ax = std::fabs(axis->x), ay = std::fabs(axis->y), az = std::fabs(axis->z);
    ref = ax >= ay && ax >= az ? axis->x : (ay >= az ? axis->y : axis->z);
  }
  if (ref < 0.0) *axis = -*axis;
}

// The caller's fixed or start direction of that name, normalised, or nullptr.
const Vec3* GivenNamed(const Request& r, const char* name, Vec3* storage) {
  const std::vector<double>* v = FindNamed(r.fixed, name);
  if (v == nullptr) v = FindNamed(r.start, name);
  if (v == nullptr) return nullptr;
  *storage = Vec3((*v)[0], (*v)[1], (*v)[2]);
  if (!(storage->Length() > 0.0)) return nullptr;
  storage->Normalize();
  return storage;
}

// Shapes whose axis sense is part of the geometry (the side they open to).
bool Directed(Shape shape) {
  return shape == Shape::kCone || shape == Shape::kParaboloid;
}

// A start with the caller's start and fixed values put in.
Feature Prepared(const Request& r, Feature f, const Vec3* given) {
  if (!Directed(r.shape)) Orient(given, &f.axis);
  const Vec3 opening = f.axis;
  ApplyNamed(r.start, &f);
  ApplyNamed(r.fixed, &f);
  // A cone's or paraboloid's axis sense is where it opens, which the start found from the
  // data: a given axis names the line, not necessarily that sense.
  if (Directed(r.shape) && f.axis.Dot(opening) < 0.0) f.axis = -f.axis;
  return f;
}

// The smaller sum of squares wins: a start still descending after the screening iterations
// may well end below one that has already stopped.
bool Better(const Solution& a, const Solution& b) {
  return a.sum < b.sum;
}

// The best of several starts on these points. Each start first runs a few iterations only;
// the one with the smallest sum of squares then runs to convergence. A start far from the
// feature (a principal axis across a cylinder) may need hundreds of damped steps to get
// anywhere, and would only lose the comparison at the end.
Solution SolveAll(const Request& r, const PointStats& st, const Holds& holds, Stage stage,
                  const std::vector<Feature>& starts, const Vec3* given, int maxIterations,
                  int* iterations) {
  const Problem problem = MakeProblem(r, st, holds, stage);
  const AccumulateFn acc = AccumulatorFor(r.shape, stage, r.shortcuts);
  // Competing starts are judged by their sums, and equivalent solutions (a cone and its mirror
  // image) tie up to rounding: each start's last step is evaluated as ever, so the same one wins.
  Problem screen = problem;
  if (starts.size() > 1) screen.stopBeforeNegligible = false;
  const bool pivotAtApex = r.shape == Shape::kCone && holds.center;
  const double offset = stage == Stage::kCirclePlane ? 0.0 : r.probe_radius;
  const int screening =
      starts.size() > 1 ? std::min(maxIterations, kScreenIterations) : maxIterations;
  Solution best;
  bool have = false;
  for (const Feature& f : starts) {
    const State s = StateFromFeature(Prepared(r, f, given), st.centroid, offset, pivotAtApex);
    Solution sol = Minimise(screen, acc, s, screening);
    *iterations += sol.iterations;
    if (!std::isfinite(sol.sum)) continue;
    if (!have || Better(sol, best)) best = sol;
    have = true;
  }
  if (!have) {
    best.sum = NAN;
    return best;
  }
  if (!best.converged && screening < maxIterations) {
    best = Minimise(problem, acc, best.state, maxIterations);
    *iterations += best.iterations;
  }
  return best;
}

// Every stride-th point, for comparing starts cheaply.
std::vector<double> Subsample(const Request& r, std::size_t size) {
  const std::size_t stride = (r.count + size - 1) / size;
  std::vector<double> xyz;
  xyz.reserve(3 * (r.count / stride + 1));
  for (std::size_t k = 0; k < r.count; k += stride)
    xyz.insert(xyz.end(), r.xyz + 3 * k, r.xyz + 3 * k + 3);
  return xyz;
}

// One stage from the best of the starts of the request's shape. On many points the starts are
// made and compared on a subsample, and only the winner is iterated on all the points: a poor
// start then costs passes over a few thousand points, not over all.
Solution SolveFromStarts(const Request& r, const PointStats& st, const Holds& holds,
                         const Vec3* given, int maxIterations, int* iterations) {
  if (r.count > kScreenThreshold) {
    const std::vector<double> sub = Subsample(r, kScreenSize);
    Request rs = r;
    rs.xyz = sub.data();
    rs.count = sub.size() / 3;
    const PointStats ss = ComputeStats(rs.xyz, rs.count);
    const std::vector<Feature> starts = StartCandidates(rs, ss, given);
    const Solution screened =
        SolveAll(rs, ss, holds, Stage::kWhole, starts, given, maxIterations, iterations);
    if (std::isfinite(screened.sum)) {
      const std::vector<Feature> best{FeatureFromState(r.shape, screened.state, ss.centroid)};
      return SolveAll(r, st, holds, Stage::kWhole, best, given, maxIterations, iterations);
    }
  }
  return SolveAll(r, st, holds, Stage::kWhole, StartCandidates(r, st, given), given, maxIterations,
                  iterations);
}

// The circle or ellipse: its least-squares plane, then the curve of the points in that plane.
// The request of the in-plane stage: the fitted plane replaces a started axis, and a started
// centre is moved into that plane (the in-plane stage moves the centre only within it).
Request InFittedPlane(const Request& r, const Vec3& normal, const Vec3& onPlane) {
  Request in = r;
  in.start.clear();
  for (const NamedValue& named : r.start) {
    if (named.name == "axis") continue;
    NamedValue copy = named;
    if (named.name == "center") {
      Vec3 c(named.value[0], named.value[1], named.value[2]);
      c -= normal * normal.Dot(c - onPlane);
      copy.value = {c.x, c.y, c.z};
    }
    in.start.push_back(copy);
  }
  return in;
}

Solution SolveCircle(const Request& r, const PointStats& st, const Holds& holds, const Vec3* given,
                     int maxIterations, Outcome* out, Solution* plane) {
  const std::vector<Feature> starts = StartCandidates(r, st, given);
  *plane =
      SolveAll(r, st, holds, Stage::kCirclePlane, starts, given, maxIterations, &out->iterations);
  if (!std::isfinite(plane->sum)) return *plane;
  Vec3 normal = plane->state.u;
  const Request inPlane = InFittedPlane(r, normal, plane->state.c);
  std::vector<Feature> circleStart = StartCandidates(inPlane, st, &normal);
  for (Feature& f : circleStart) {
    f.axis = normal;
    // The algebraic centre lies in the plane through the centroid; put it in the fitted plane.
    f.center -= normal * normal.Dot(f.center - plane->state.c);
  }
  Solution sol = SolveAll(inPlane, st, holds, Stage::kWhole, circleStart, &normal, maxIterations,
                          &out->iterations);
  return sol;
}

std::string Undetermined(Shape shape) {
  return std::string("the points do not determine every parameter of the ") + ToString(shape) +
         " (singular normal equations at the solution)";
}

bool UncertaintiesFinite(const FitResult& result) {
  for (const Parameter& p : result.parameters) {
    for (double u : p.uncertainty) {
      if (!std::isfinite(u)) return false;
    }
  }
  return true;
}

Outcome FitShape(const Request& r, const PointStats& st, int maxIterations) {
  Outcome out;
  const Holds holds = HoldsOf(r);
  Vec3 axisStorage;
  const Vec3* given = GivenNamed(r, "axis", &axisStorage);
  Solution plane;
  Solution sol;
  if (InPlane(r.shape)) {
    sol = SolveCircle(r, st, holds, given, maxIterations, &out, &plane);
  } else {
    sol = SolveFromStarts(r, st, holds, given, maxIterations, &out.iterations);
  }
  if (!std::isfinite(sol.sum)) {
    out.status = Status::kFailed;
    out.message = std::string("no start of the ") + ToString(r.shape) + " led to a finite fit";
    return out;
  }
  out.feature = FeatureFromState(r.shape, sol.state, st.centroid);
  if (r.shape == Shape::kCone && out.feature.size[0] < 0.0) {
    out.feature.axis = -out.feature.axis;
    out.feature.size[0] = -out.feature.size[0];
  }
  if (!Directed(r.shape) && !(r.shape == Shape::kPlane && r.probe_radius != 0.0)) {
    Orient(given, &out.feature.axis);
  }
  if (r.shape == Shape::kEllipse) {
    Vec3 storage;
    Orient(GivenNamed(r, "major_direction", &storage), &out.feature.major_direction);
  }
  const bool planeOk = !InPlane(r.shape) || plane.determined;
  if (!planeOk || !sol.determined) {
    out.status = Status::kDegenerate;
    out.message = Undetermined(r.shape);
  } else if (!sol.converged || (InPlane(r.shape) && !plane.converged)) {
    out.status = Status::kNotConverged;
    out.message =
        "the iteration stopped before converging (iteration limit, or no step lowered the sum of "
        "squares any more); best estimate returned";
  }
  return out;
}

}  // namespace

FitResult FitPreciseLimited(const Request& request, int maxIterations) {
  FitResult result;
  result.shape = request.shape;
  result.method = Method::kPrecise;
  result.valid = false;
  if (request.shape == Shape::kLine && request.probe_radius != 0.0) {
    result.status = Status::kInvalidOption;
    result.message = "a probe radius has no meaning for a line: it must be 0";
    return result;
  }
  if (AccumulatorFor(request.shape, Stage::kWhole) == nullptr) {
    result.status = Status::kUnsupported;
    result.message =
        std::string("the precise ") + ToString(request.shape) + " fit is not available";
    return result;
  }
  SpreadRequest spreads;
  spreads.line = request.shape != Shape::kLine;
  spreads.plane = NeedsVolume(request.shape);
  spreads.alwaysMeasure = !request.shortcuts;
  const PointStats st = ComputeStats(request.xyz, request.count, spreads);
  const std::string degenerate = Degeneracy(request.shape, st);
  if (!degenerate.empty()) {
    result.status = Status::kDegenerate;
    result.message = degenerate;
    return result;
  }
  const Outcome out = FitShape(request, st, maxIterations);
  result.status = out.status;
  result.message = out.message;
  result.iterations = out.iterations;
  if (out.status == Status::kFailed) return result;
  if (request.shortcuts) {
    Describe(request, out.feature, st, result);
  } else {
    Describe(request, out.feature, result);
  }
  // The solver judged the normal equations at its last iterate; at the reported feature they
  // may still be singular (a torus on a short, almost straight arc): an uncertainty without
  // bound means a parameter the points do not fix.
  if (result.status == Status::kOk && !UncertaintiesFinite(result)) {
    result.status = Status::kDegenerate;
    result.message = Undetermined(request.shape);
  }
  result.valid = result.status == Status::kOk;
  return result;
}

FitResult FitPrecise(const Request& request) {
  return FitPreciseLimited(request, kMaxIterations);
}

}  // namespace metrofit::precise
