// Deviations, statistics and uncertainties of a given feature.
#include <cmath>
#include <limits>
#include <type_traits>

#include "precise/free_sums.h"
#include "precise/models/cone_model.h"
#include "precise/models/ellipse_model.h"
#include "precise/models/line_model.h"
#include "precise/models/paraboloid_model.h"
#include "precise/models/plane_model.h"
#include "precise/models/radial_model.h"
#include "precise/models/sphere_model.h"
#include "precise/models/spheroid_model.h"
#include "precise/models/torus_model.h"
#include "precise/precise_fit.h"
#include "precise/shape_problems.h"

namespace metrofit::precise {
namespace {

// Central-difference step of the report map, relative to the data size (lengths) or in rad:
// the map is smooth, so its truncation error (step^2) is far below what an uncertainty needs.
constexpr double kReportStep = 1e-6;

// Residual components the sum of squares holds: the line has two per point (the coordinates
// across it), every other shape one.
double Observations(const Request& r) {
  return static_cast<double>(r.count) * (r.shape == Shape::kLine ? 2.0 : 1.0);
}

struct Spread {
  double sum = 0.0;
  double lo = std::numeric_limits<double>::infinity();
  double hi = -std::numeric_limits<double>::infinity();
};

// Sums of no pass: the deviations alone.
struct NoSums {};

// The normal equations of the whole stage at the described state, when the deviations' pass
// made them on the way.
struct WholeNormal {
  bool made = false;
  Normal normal;
  double sum = 0.0;
};

// The deviation and unit normal of a point: from the model's rows where sums need them anyway
// (the shift columns of a FreeSums model's one row are minus its normal, see FreeSums).
template <class Model, class Sums>
METROFIT_PRECISE_INLINE double DeviationOf(const Model& model, const double q[3], double sizes,
                                           Sums* sums, double n[3]) {
  if constexpr (std::is_same_v<Sums, NoSums>) {
    return model.Deviation(q, n);
  } else {
    double d[1], rows[1][kLocalCount];
    model.Rows(q, d, rows);
    sums->AddRow(d, rows, q, sizes);
    for (int i = 0; i < 3; ++i) n[i] = -rows[0][kShiftX + i];
    return d[0];
  }
}

// Deviations and residual vectors; sums gets every point's residual and row as well.
template <class Model, class Sums>
Spread Deviations(const Request& r, const State& s, FitResult& res, Sums* sums) {
  const Model model(s);
  const double sizes = std::fabs(s.size[0]) + std::fabs(s.size[1]) + std::fabs(s.offset);
  Spread sp;
  res.deviations.resize(r.count);
  res.residuals.resize(r.count);
  for (std::size_t k = 0; k < r.count; ++k) {
    double q[3], n[3];
    PrefetchAhead(r.xyz, k, r.count);
    ToLocal(s, r.xyz + 3 * k, q);
    const double d = DeviationOf(model, q, sizes, sums, n);
    const Vec3 v = ToWorld(s, n[0], n[1], n[2]) * d;
    res.deviations[k] = d;
    res.residuals[k] = {v.x, v.y, v.z};
    sp.sum += d * d;
    // As fmin and fmax (a NaN d leaves them), without their call.
    sp.lo = d < sp.lo ? d : sp.lo;
    sp.hi = d > sp.hi ? d : sp.hi;
  }
  return sp;
}

template <class Model>
Spread Deviations(const Request& r, const State& s, FitResult& res) {
  NoSums none;
  return Deviations<Model>(r, s, res, &none);
}

// The deviations, with the whole stage's normal equations in the same pass when Sums' free
// parameters are the stage's.
template <class Sums>
Spread DeviationsAndSums(const Request& r, const PointStats& st, const State& s, FitResult& res,
                         WholeNormal* whole) {
  using Model = typename Sums::ModelType;
  if (whole != nullptr) {
    PrepareNormal(MakeProblem(r, st, HoldsOf(r), Stage::kWhole), &whole->normal);
    if (Sums::Matches(whole->normal)) {
      Sums sums;
      const Spread sp = Deviations<Model>(r, s, res, &sums);
      whole->sum = sums.Store(&whole->normal);
      whole->made = true;
      return sp;
    }
  }
  return Deviations<Model>(r, s, res);
}

Spread DeviationsOf(const Request& r, const PointStats& st, const State& s, FitResult& res,
                    WholeNormal* whole) {
  switch (r.shape) {
    case Shape::kLine:
      return Deviations<LineModel>(r, s, res);
    case Shape::kPlane:
      return DeviationsAndSums<PlaneSums>(r, st, s, res, whole);
    case Shape::kSphere:
      return DeviationsAndSums<SphereSums>(r, st, s, res, whole);
    case Shape::kCylinder:
      return DeviationsAndSums<CylinderSums>(r, st, s, res, whole);
    case Shape::kCone:
      return Deviations<ConeModel>(r, s, res);
    case Shape::kTorus:
      return Deviations<TorusModel>(r, s, res);
    case Shape::kEllipse:
      return Deviations<EllipseModel>(r, s, res);
    case Shape::kSpheroid:
      return Deviations<SpheroidModel>(r, s, res);
    case Shape::kParaboloid:
      return Deviations<ParaboloidModel>(r, s, res);
    default:
      return Deviations<RadialModel>(r, s, res);
  }
}

void FillGeometry(const Feature& f, FitResult& res) {
  res.center = {f.center.x, f.center.y, f.center.z};
  if (f.shape != Shape::kSphere) res.axis = std::array<double, 3>{f.axis.x, f.axis.y, f.axis.z};
  switch (f.shape) {
    case Shape::kCircle:
    case Shape::kSphere:
    case Shape::kCylinder:
      res.radius = f.size[0];
      break;
    case Shape::kCone:
      res.half_angle = f.size[0];
      break;
    case Shape::kTorus:
      res.major_radius = f.size[0];
      res.minor_radius = f.size[1];
      break;
    case Shape::kEllipse:
      res.major_direction =
          std::array<double, 3>{f.major_direction.x, f.major_direction.y, f.major_direction.z};
      res.semi_axes = std::array<double, 2>{f.size[0], f.size[1]};
      break;
    case Shape::kSpheroid:
      res.semi_axes = std::array<double, 2>{f.size[0], f.size[1]};
      break;
    case Shape::kParaboloid:
      res.focal_length = f.size[0];
      break;
    default:
      break;
  }
}

// Adds sigma^2 G C G^T (diagonal) of one stage to var: G the central differences of the report
// map over the free local parameters, C the cofactor matrix. Returns the stage's sum of squares
// and free-parameter count through sum and p; false when the normal matrix is singular.
// A stage whose normal equations the deviations' pass made (known) takes them from there.
bool AddStageVariance(const Request& r, const PointStats& st, const State& s, Stage stage,
                      const WholeNormal* known, double var[kReportCount], double* sum, int* p) {
  const Problem problem = MakeProblem(r, st, HoldsOf(r), stage);
  const AccumulateFn accumulate = AccumulatorFor(r.shape, stage, r.shortcuts);
  if (accumulate == nullptr) return false;  // no model of the shape: nothing to propagate
  Normal ne;
  if (known != nullptr && known->made) {
    ne = known->normal;
    *sum = known->sum;
  } else {
    PrepareNormal(problem, &ne);
    *sum = accumulate(problem, s, &ne);
  }
  *p = ne.p;
  if (ne.p == 0) return true;
  double c[kLocalCount][kLocalCount];
  if (!Cofactor(ne, c)) return false;
  const double dof = Observations(r) - ne.p;
  const double sigma2 = dof > 0.0 ? *sum / dof : 0.0;
  double g[kReportCount][kLocalCount];
  for (int j = 0; j < ne.p; ++j) {
    const int i = ne.index[j];
    const double h = kReportStep * problem.scale / problem.weight[i];
    double x[kLocalCount] = {}, plus[kReportCount], minus[kReportCount];
    x[i] = h;
    ReportValues(FeatureFromState(r.shape, Step(problem, s, x), st.centroid), plus);
    x[i] = -h;
    ReportValues(FeatureFromState(r.shape, Step(problem, s, x), st.centroid), minus);
    for (int k = 0; k < kReportCount; ++k) g[k][j] = (plus[k] - minus[k]) / (2.0 * h);
  }
  for (int k = 0; k < kReportCount; ++k) {
    double v = 0.0;
    for (int a = 0; a < ne.p; ++a) {
      for (int b = 0; b < ne.p; ++b) v += g[k][a] * c[a][b] * g[k][b];
    }
    var[k] += sigma2 * v;
  }
  return true;
}

void FillParameters(const Request& r, const Feature& f, const double var[kReportCount],
                    bool determined, FitResult& res) {
  double value[kReportCount];
  ReportValues(f, value);
  for (const std::string& name : PreciseParameterNames(r.shape)) {
    const ReportSlot slot = SlotOf(r.shape, name);
    Parameter p;
    p.name = name;
    const bool held = FindNamed(r.fixed, name.c_str()) != nullptr;
    for (int k = slot.first; k < slot.first + slot.count; ++k) {
      p.value.push_back(value[k]);
      const double u =
          determined ? std::sqrt(std::fmax(0.0, var[k])) : std::numeric_limits<double>::infinity();
      p.uncertainty.push_back(held ? 0.0 : u);
    }
    res.parameters.push_back(std::move(p));
  }
}

}  // namespace

void Describe(const Request& request, const Feature& feature, FitResult& result) {
  Describe(request, feature, ComputeStats(request.xyz, request.count), result);
}

void Describe(const Request& request, const Feature& feature, const PointStats& st,
              FitResult& result) {
  Request r = request;
  if (r.shape == Shape::kLine) r.probe_radius = 0.0;
  Feature f = feature;
  f.shape = r.shape;
  const bool pivotAtApex = r.shape == Shape::kCone && HoldsOf(r).center;
  const State s = StateFromFeature(f, st.centroid, r.probe_radius, pivotAtApex);
  FillGeometry(f, result);
  WholeNormal whole;
  const Spread sp = DeviationsOf(r, st, s, result, r.shortcuts ? &whole : nullptr);
  const double n = static_cast<double>(r.count);
  result.rms = std::sqrt(sp.sum / n);
  result.min_deviation = sp.lo;
  result.max_deviation = sp.hi;
  result.form_error = r.shape == Shape::kLine ? 2.0 * sp.hi : sp.hi - sp.lo;

  double var[kReportCount] = {};
  double sum = 0.0;
  int p = 0;
  bool determined = true;
  if (InPlane(r.shape)) {
    State plane = s;
    plane.offset = 0.0;
    determined = AddStageVariance(r, st, plane, Stage::kCirclePlane, nullptr, var, &sum, &p);
  }
  determined = AddStageVariance(r, st, s, Stage::kWhole, &whole, var, &sum, &p) && determined;
  const double m = Observations(r);
  result.sigma = m > p ? std::sqrt(sp.sum / (m - p)) : 0.0;
  result.parameters.clear();
  FillParameters(r, f, var, determined, result);
}

}  // namespace metrofit::precise
