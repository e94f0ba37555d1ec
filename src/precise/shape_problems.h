// What each shape means to the solver: its model, which local parameters it frees, how its
// centre follows the data, and the map between a Feature (what the caller sees) and the
// solver's State. One place, so the fit and the description agree.
#ifndef METROFIT_PRECISE_SHAPE_PROBLEMS_H
#define METROFIT_PRECISE_SHAPE_PROBLEMS_H

#include <string>
#include <vector>

#include "precise/point_stats.h"
#include "precise/precise_fit.h"
#include "precise/solver.h"

namespace metrofit::precise {

// The circle and the ellipse are solved in two stages: their least-squares plane, then the
// curve in that plane.
enum class Stage { kWhole, kCirclePlane };

// True for the curves fitted inside their least-squares plane (circle, ellipse).
inline bool InPlane(Shape shape) {
  return shape == Shape::kCircle || shape == Shape::kEllipse;
}

// Which parameters the request holds.
struct Holds {
  bool center = false;
  bool axis = false;
  bool direction = false;  // the ellipse's major direction
  bool size[2] = {false, false};
};

// The named value of a list, or nullptr.
const std::vector<double>* FindNamed(const std::vector<NamedValue>& list, const char* name);

Holds HoldsOf(const Request& request);

// Overwrites the feature's values named in the list (center, axis, major_direction, sizes by
// their names; semi_axes gives both sizes).
void ApplyNamed(const std::vector<NamedValue>& list, Feature* feature);

// Free local parameters, recentring and step weights of a shape.
Problem MakeProblem(const Request& request, const PointStats& stats, const Holds& holds,
                    Stage stage);

// The pass of the shape's model; with fixedFree, the one specialised to the shape's usual free
// parameters where it has one (the same sums up to rounding, faster).
AccumulateFn AccumulatorFor(Shape shape, Stage stage, bool fixedFree = true);

// The solver state of a feature. The cone's pivot is its apex when the apex is held, else the
// foot of the centroid on the axis.
State StateFromFeature(const Feature& f, const Vec3& centroid, double probe, bool pivotAtApex);
Feature FeatureFromState(Shape shape, const State& s, const Vec3& centroid);

// center (3), axis (3), major direction (3), sizes (2): the reported values the uncertainties
// are given for.
constexpr int kReportSizes = 9;
constexpr int kReportCount = 11;
void ReportValues(const Feature& f, double out[kReportCount]);

// Where a named parameter's values sit among the reported values.
struct ReportSlot {
  int first = 0;
  int count = 0;
};
ReportSlot SlotOf(Shape shape, const std::string& name);

// Number of sizes the feature reports (Feature::size).
int SizeCount(Shape shape);

// Parameter names in the order of FitResult::parameters.
std::vector<std::string> PreciseParameterNames(Shape shape);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_SHAPE_PROBLEMS_H
