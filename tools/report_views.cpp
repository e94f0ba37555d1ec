#include "report_views.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace metrofit::cli {

namespace {

using Vec = std::array<double, 3>;

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegreesPerRadian = 180.0 / kPi;
constexpr double kFullTurn = 360.0;
// A reference direction whose projection onto the plane across the axis is shorter than this
// lies too close to the axis to define where the angles start.
constexpr double kMinReferenceLength = 0.3;
// A gap in the angles wider than this (degrees) makes the data a partial arc, drawn in one
// piece from the end of the gap instead of across the 0/360 seam.
constexpr double kPartialArcGap = 20.0;
// Fraction of a data range added on each side so that no point sits on the frame.
constexpr double kRangePadding = 0.04;
// Half width of the range drawn for data of a single value: relative to its magnitude, and
// an absolute floor for a value of zero.
constexpr double kFlatRangeRelative = 1e-3;
constexpr double kFlatRangeAbsolute = 1e-9;
constexpr double kMaxLatitude = 90.0;
// Angles are shown between this and a full turn: from -180 to 360 degrees.
constexpr double kLowestAngle = -180.0;
// Vertices of a fitted circle or ellipse drawn over an in-plane view.
constexpr int kOutlineVertices = 240;

Vec Sub(const Vec& a, const Vec& b) {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
Vec Scale(const Vec& a, double s) {
  return {a[0] * s, a[1] * s, a[2] * s};
}
double Dot(const Vec& a, const Vec& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
double Norm(const Vec& a) {
  return std::sqrt(Dot(a, a));
}
Vec Cross(const Vec& a, const Vec& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
bool Finite(const Vec& a) {
  return std::isfinite(a[0]) && std::isfinite(a[1]) && std::isfinite(a[2]);
}
double Degrees(double radians) {
  return radians * kDegreesPerRadian;
}

// A right-handed frame: e1 where the angles start, e2 = w x e1, w along the axis or normal.
struct Frame {
  Vec origin{};
  Vec e1{1.0, 0.0, 0.0};
  Vec e2{0.0, 1.0, 0.0};
  Vec w{0.0, 0.0, 1.0};
  std::string zero = "+X";  // name of e1 for captions

  Vec Local(const Point& p) const {
    const Vec d = Sub({p.x, p.y, p.z}, origin);
    return {Dot(d, e1), Dot(d, e2), Dot(d, w)};
  }
};

// Angle zero along the reference direction where given, else along the machine's +X (or +Y
// for an axis close to X) projected across the axis, so that angles read the same way on
// every report.
Frame MakeFrame(const Vec& origin, const std::optional<Vec>& axis,
                const std::optional<Vec>& reference = std::nullopt) {
  Frame frame;
  frame.origin = origin;
  if (axis && Finite(*axis) && Norm(*axis) > 0.0) frame.w = Scale(*axis, 1.0 / Norm(*axis));
  const auto across = [&frame](const Vec& r) { return Sub(r, Scale(frame.w, Dot(r, frame.w))); };
  Vec e1{};
  if (reference && Finite(*reference)) {
    e1 = across(*reference);
    frame.zero = "the major axis";
  }
  if (Norm(e1) < kMinReferenceLength) {
    e1 = across({1.0, 0.0, 0.0});
    frame.zero = "+X";
  }
  if (Norm(e1) < kMinReferenceLength) {
    e1 = across({0.0, 1.0, 0.0});
    frame.zero = "+Y";
  }
  frame.e1 = Scale(e1, 1.0 / Norm(e1));
  frame.e2 = Cross(frame.w, frame.e1);
  return frame;
}

// The drawn points in a frame's coordinates, with their deviations.
struct Drawn {
  std::vector<std::size_t> source;
  std::vector<Vec> local;
  std::vector<double> deviations;
};

Drawn Collect(const FitResult& result, PointsView points, const std::vector<std::size_t>& indices,
              const Frame& frame) {
  Drawn drawn;
  for (const std::size_t i : indices) {
    if (i >= points.size() || i >= result.deviations.size()) continue;
    const double deviation = result.deviations[i];
    const Vec local = frame.Local(points[i]);
    if (!std::isfinite(deviation) || !Finite(local)) continue;
    drawn.source.push_back(i);
    drawn.local.push_back(local);
    drawn.deviations.push_back(deviation);
  }
  return drawn;
}

double WrapInto(double degrees, double low) {
  double t = std::fmod(degrees - low, kFullTurn);
  if (t < 0.0) t += kFullTurn;
  return low + t;
}

// Moves the angles (degrees) into one turn: starting after the widest gap for a partial arc,
// otherwise starting at `full_low`; the axis covers what is drawn.
ViewAxis AngleAxis(std::vector<double>* degrees, double full_low, std::string label) {
  ViewAxis axis{std::move(label), true, full_low, full_low + kFullTurn};
  if (degrees->empty()) return axis;
  std::vector<double> sorted;
  sorted.reserve(degrees->size());
  for (const double a : *degrees) sorted.push_back(WrapInto(a, 0.0));
  std::sort(sorted.begin(), sorted.end());
  double widest = sorted.front() + kFullTurn - sorted.back();
  double start = sorted.front();
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    if (sorted[i] - sorted[i - 1] > widest) {
      widest = sorted[i] - sorted[i - 1];
      start = sorted[i];
    }
  }
  const bool partial = widest > kPartialArcGap;
  const double low = partial ? start : full_low;
  for (double& a : *degrees) a = WrapInto(a, low);
  if (!partial) return axis;
  const double high = low + kFullTurn - widest;
  const double pad = (high - low) * kRangePadding;
  axis.low = low - pad;
  axis.high = high + pad;
  // An arc across the 0/360 seam reads better as negative angles (-60 to 60, not 300 to 420).
  if (axis.high > kFullTurn && axis.low - kFullTurn >= kLowestAngle) {
    for (double& a : *degrees) a -= kFullTurn;
    axis.low -= kFullTurn;
    axis.high -= kFullTurn;
  }
  return axis;
}

ViewAxis LinearAxis(const std::vector<double>& values, std::string label,
                    bool include_zero = false) {
  double low = include_zero ? 0.0 : HUGE_VAL;
  double high = include_zero ? 0.0 : -HUGE_VAL;
  for (const double v : values) {
    low = std::min(low, v);
    high = std::max(high, v);
  }
  if (!(low <= high)) low = high = 0.0;
  if (high - low <= 0.0) {
    const double half = std::max(std::fabs(low) * kFlatRangeRelative, kFlatRangeAbsolute);
    low -= half;
    high += half;
  }
  const double pad = (high - low) * kRangePadding;
  return {std::move(label), false, low - pad, high + pad};
}

std::vector<double> AroundAxis(const Drawn& drawn) {
  std::vector<double> degrees;
  for (const Vec& l : drawn.local) degrees.push_back(Degrees(std::atan2(l[1], l[0])));
  return degrees;
}

View Assemble(View view, const std::vector<double>& xs, const std::vector<double>& ys,
              const Drawn& drawn) {
  for (std::size_t k = 0; k < xs.size(); ++k) view.points.push_back({xs[k], ys[k]});
  view.deviations = drawn.deviations;
  view.source = drawn.source;
  return view;
}

std::string AngleNote(const Frame& frame) {
  return "Angles are measured around the axis from " + frame.zero +
         " (projected across the axis), counter-clockwise looking against the axis direction.";
}

View Unrolled(const Drawn& drawn, const Frame& frame, const std::string& units, bool cone) {
  std::vector<double> xs = AroundAxis(drawn);
  std::vector<double> ys;
  for (const Vec& l : drawn.local) ys.push_back(l[2]);
  View view;
  view.id = "unrolled";
  view.title = cone ? "Cone surface, unrolled" : "Cylinder surface, unrolled";
  view.x = AngleAxis(&xs, 0.0, "angle around the axis (°)");
  view.y = LinearAxis(ys, cone ? "distance from the apex along the axis (" + units + ")"
                               : "height along the axis (" + units + ")");
  view.caption = "The surface cut along a line parallel to the axis and laid flat. " +
                 AngleNote(frame) +
                 (cone ? " Heights are measured along the axis from the apex."
                       : " Heights are measured along the axis from its point nearest the "
                         "centroid of the points.");
  return Assemble(std::move(view), xs, ys, drawn);
}

View TorusMap(const Drawn& drawn, const Frame& frame, const FitResult& result) {
  const double major = result.major_radius.value_or(0.0);
  std::vector<double> xs = AroundAxis(drawn);
  std::vector<double> ys;
  for (const Vec& l : drawn.local) {
    ys.push_back(Degrees(std::atan2(l[2], std::hypot(l[0], l[1]) - major)));
  }
  View view;
  view.id = "torus";
  view.title = "Torus surface, unrolled in both directions";
  view.x = AngleAxis(&xs, 0.0, "angle around the axis (°)");
  view.y = AngleAxis(&ys, -kFullTurn / 2, "angle around the tube (°)");
  view.caption = AngleNote(frame) +
                 " Around the tube, 0° is the outer equator, 90° the side the axis points to "
                 "and ±180° the inner equator.";
  return Assemble(std::move(view), xs, ys, drawn);
}

View SurfaceMap(const Drawn& drawn, const Frame& frame, const std::string& about) {
  std::vector<double> xs = AroundAxis(drawn);
  std::vector<double> ys;
  for (const Vec& l : drawn.local) ys.push_back(Degrees(std::atan2(l[2], std::hypot(l[0], l[1]))));
  View view;
  view.id = "surface-map";
  view.title = "Surface map";
  view.x = AngleAxis(&xs, 0.0, "longitude (°)");
  view.y = LinearAxis(ys, "latitude (°)");
  view.y.angle = true;
  view.y.low = std::max(view.y.low, -kMaxLatitude);
  view.y.high = std::min(view.y.high, kMaxLatitude);
  view.caption = "Longitude and latitude of each point seen from the centre, about " + about +
                 ": latitude 90° is the pole the axis points to. Longitude is measured from " +
                 frame.zero + " (projected across the axis), counter-clockwise looking against it.";
  return Assemble(std::move(view), xs, ys, drawn);
}

std::vector<ViewPoint> EllipseOutline(double a, double b) {
  std::vector<ViewPoint> outline;
  for (int k = 0; k <= kOutlineVertices; ++k) {
    const double t = 2.0 * kPi * k / kOutlineVertices;
    outline.push_back({a * std::cos(t), b * std::sin(t)});
  }
  return outline;
}

View InPlane(const Drawn& drawn, const Frame& frame, const std::string& units,
             std::vector<ViewPoint> outline) {
  std::vector<double> xs;
  std::vector<double> ys;
  for (const Vec& l : drawn.local) {
    xs.push_back(l[0]);
    ys.push_back(l[1]);
  }
  View view;
  view.id = "in-plane";
  view.title = "Seen along the normal";
  view.x = LinearAxis(xs, "u (" + units + ")");
  view.y = LinearAxis(ys, "v (" + units + ")");
  view.equal_scale = true;
  view.outline = std::move(outline);
  view.caption = "In-plane coordinates from the centre point: u along " + frame.zero +
                 " (projected onto the plane), v completing a right-handed frame with the "
                 "normal pointing at the viewer." +
                 (view.outline.empty() ? "" : " The line is the fitted feature.");
  return Assemble(std::move(view), xs, ys, drawn);
}

View DeviationProfile(const Drawn& drawn, std::vector<double> xs, ViewAxis x,
                      const std::string& units) {
  View view;
  view.x = std::move(x);
  view.y = LinearAxis(drawn.deviations, "deviation (" + units + ")", true);
  view.deviation_on_y = true;
  return Assemble(std::move(view), xs, drawn.deviations, drawn);
}

View AlongCurve(const Drawn& drawn, const Frame& frame, const std::string& units, bool ellipse) {
  std::vector<double> xs = AroundAxis(drawn);
  ViewAxis x = AngleAxis(&xs, 0.0, "angle around the centre (°)");
  View view = DeviationProfile(drawn, xs, std::move(x), units);
  view.id = ellipse ? "along-ellipse" : "along-circle";
  view.title = ellipse ? "Deviation around the ellipse" : "Deviation around the circle";
  view.caption =
      "Signed deviation (positive outside) against the angle around the centre in "
      "the plane, from " +
      frame.zero + ", counter-clockwise seen with the normal pointing at the viewer.";
  return view;
}

View AlongLine(const Drawn& drawn, const std::string& units) {
  std::vector<double> xs;
  for (const Vec& l : drawn.local) xs.push_back(l[2]);
  ViewAxis x = LinearAxis(xs, "position along the line (" + units + ")");
  View view = DeviationProfile(drawn, xs, std::move(x), units);
  view.id = "along-line";
  view.title = "Deviation along the line";
  view.caption =
      "Distance of each point from the line against the position of its foot, "
      "measured along the line direction from the line's point nearest the centroid.";
  return view;
}

View ParaboloidMap(const Drawn& drawn, const Frame& frame, const std::string& units) {
  std::vector<double> xs = AroundAxis(drawn);
  std::vector<double> ys;
  for (const Vec& l : drawn.local) ys.push_back(std::hypot(l[0], l[1]));
  View view;
  view.id = "paraboloid";
  view.title = "Paraboloid surface, angle against radial distance";
  view.x = AngleAxis(&xs, 0.0, "angle around the axis (°)");
  view.y = LinearAxis(ys, "radial distance from the axis (" + units + ")");
  view.caption = AngleNote(frame) + " The radial distance is measured from the axis.";
  return Assemble(std::move(view), xs, ys, drawn);
}

std::vector<View> ShapeViews(const FitResult& r, const Drawn& drawn, const Frame& frame,
                             const std::string& units) {
  switch (r.shape) {
    case metrofit::Shape::kLine:
      return {AlongLine(drawn, units)};
    case metrofit::Shape::kPlane:
      return {InPlane(drawn, frame, units, {})};
    case metrofit::Shape::kCircle: {
      const double radius = r.radius.value_or(0.0);
      return {AlongCurve(drawn, frame, units, false),
              InPlane(drawn, frame, units, EllipseOutline(radius, radius))};
    }
    case metrofit::Shape::kEllipse: {
      const std::array<double, 2> semi = r.semi_axes.value_or(std::array<double, 2>{});
      return {AlongCurve(drawn, frame, units, true),
              InPlane(drawn, frame, units, EllipseOutline(semi[0], semi[1]))};
    }
    case metrofit::Shape::kSphere:
      return {SurfaceMap(drawn, frame, "the Z axis")};
    case metrofit::Shape::kSpheroid:
      return {SurfaceMap(drawn, frame, "the spheroid's axis")};
    case metrofit::Shape::kCylinder:
      return {Unrolled(drawn, frame, units, false)};
    case metrofit::Shape::kCone:
      return {Unrolled(drawn, frame, units, true)};
    case metrofit::Shape::kParaboloid:
      return {ParaboloidMap(drawn, frame, units)};
    case metrofit::Shape::kTorus:
      return {TorusMap(drawn, frame, r)};
  }
  return {};
}

}  // namespace

std::vector<View> MakeViews(const FitResult& result, PointsView points,
                            const std::vector<std::size_t>& indices, const std::string& units) {
  // The sphere has no axis of its own: its map is drawn about the machine's Z.
  const std::optional<Vec> axis =
      result.shape == metrofit::Shape::kSphere ? std::nullopt : result.axis;
  const std::optional<Vec> reference =
      result.shape == metrofit::Shape::kEllipse ? result.major_direction : std::nullopt;
  const Frame frame = MakeFrame(result.center, axis, reference);
  const Drawn drawn = Collect(result, points, indices, frame);
  if (drawn.source.empty()) return {};
  return ShapeViews(result, drawn, frame, units);
}

}  // namespace metrofit::cli
