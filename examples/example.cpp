// A host program that uses the installed metrofit package.
//
//   metrofit_example POINTS_FILE
//
// Fits a sphere to the points of POINTS_FILE (one "x y z" per line, '#' comments) and prints
// its centre and radius, then calls each of the sixteen fit functions of the library once on
// small generated data and prints what it returns. A fit that reports failure is printed as
// such; the program fails only when the file cannot be read.
#include <metrofit.h>
#include <metrofit/fit.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Point = KPt3<double>;
using Points = std::vector<Point>;
using FitFunction = std::int32_t (*)(CFitInput&, CFitResult&);

constexpr double kPi = 3.14159265358979323846;
// A small deterministic wobble, so that the generated points are not exactly on the shape.
constexpr double kWobble = 2e-4;

// Reads "x y z" lines (blanks or commas between the numbers); false on a malformed line.
bool ReadPoints(const char* path, Points* points) {
  std::ifstream in(path);
  if (!in) {
    std::fprintf(stderr, "cannot open %s\n", path);
    return false;
  }
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    line = line.substr(0, line.find('#'));
    for (char& c : line) {
      if (c == ',') c = ' ';
    }
    std::istringstream fields(line);
    Point p;
    if (fields >> p.x >> p.y >> p.z) {
      points->push_back(p);
    } else if (line.find_first_not_of(" \t\r") != std::string::npos) {
      std::fprintf(stderr, "%s:%d: not a point\n", path, number);
      return false;
    }
  }
  return true;
}

// A tilted frame: unit axis w and two unit vectors u, v across it.
struct Frame {
  Point origin;
  Point u, v, w;
  Point At(double a, double b, double c) const { return origin + u * a + v * b + w * c; }
};

Frame TiltedFrame(const Point& origin) {
  Frame f;
  f.origin = origin;
  f.w = Point(0.1, 0.2, 1.0);
  f.w.Normalize();
  f.u = Point(1.0, 0.0, 0.0).Cross(f.w);
  f.u.Normalize();
  f.v = f.w.Cross(f.u);
  return f;
}

double Wobble(int i) {
  return kWobble * std::sin(7.0 * i);
}

// Points p(s, t) for s in [0, ns), t in [0, nt).
Points Grid(int ns, int nt, const std::function<Point(int, int, double)>& p) {
  Points points;
  for (int s = 0; s < ns; ++s) {
    for (int t = 0; t < nt; ++t) points.push_back(p(s, t, Wobble(s * nt + t)));
  }
  return points;
}

const Frame kFrame = TiltedFrame(Point(120.0, -80.0, 60.0));

Points LinePoints() {
  return Grid(1, 8, [](int, int t, double e) { return kFrame.At(e, -e, 5.0 * t); });
}

Points PlanePoints() {
  return Grid(3, 4, [](int s, int t, double e) { return kFrame.At(10.0 * s, 8.0 * t, e); });
}

Points CirclePoints() {
  return Grid(1, 12, [](int, int t, double e) {
    const double a = 2 * kPi * t / 12;
    return kFrame.At((5.0 + e) * std::cos(a), (5.0 + e) * std::sin(a), e);
  });
}

Points CylinderPoints() {
  return Grid(3, 8, [](int s, int t, double e) {
    const double a = 2 * kPi * (t + 0.5 * s) / 8;
    return kFrame.At((6.0 + e) * std::cos(a), (6.0 + e) * std::sin(a), 4.0 * s);
  });
}

// Apex at the frame origin, opening along w with axial rise 2 per unit radius.
Points ConePoints() {
  return Grid(3, 8, [](int s, int t, double e) {
    const double r = 3.0 + 2.0 * s, a = 2 * kPi * (t + 0.5 * s) / 8;
    return kFrame.At(r * std::cos(a), r * std::sin(a), 2.0 * r + e);
  });
}

// Semi-axes 8 along w and 5 along u, in the plane of w and u.
Points EllipsePoints() {
  return Grid(1, 16, [](int, int t, double e) {
    const double a = 2 * kPi * t / 16;
    return kFrame.At((5.0 + e) * std::cos(a), e, (8.0 + e) * std::sin(a));
  });
}

// Vertex at the frame origin, focal length 10.
Points ParaboloidPoints() {
  return Grid(3, 8, [](int s, int t, double e) {
    const double r = 4.0 + 4.0 * s, a = 2 * kPi * (t + 0.5 * s) / 8;
    return kFrame.At(r * std::cos(a), r * std::sin(a), r * r / 40.0 + e);
  });
}

// Major radius 20, minor radius 3, outer half of the tube.
Points TorusPoints() {
  return Grid(12, 5, [](int s, int t, double e) {
    const double a = 2 * kPi * s / 12, b = kPi * (t - 2) / 4;
    const double rho = 20.0 + (3.0 + e) * std::cos(b);
    return kFrame.At(rho * std::cos(a), rho * std::sin(a), (3.0 + e) * std::sin(b));
  });
}

void PrintPoint(const char* label, const Point& p) {
  std::printf("  %-8s %.6f %.6f %.6f\n", label, p.x, p.y, p.z);
}

void FitSphere(const char* path, const Points& points) {
  CFitInput in;
  in.m_points = points;
  CFitResult out;
  const std::int32_t status = KFitSphere(in, out);
  std::printf("sphere from %s (%zu points): KFitSphere returned %d\n", path, in.m_points.size(),
              static_cast<int>(status));
  PrintPoint("centre", out.m_center);
  std::printf("  radius   %.6f\n  valid    %d\n  sigma    %.6f\n", out.m_size1.x, out.m_valid,
              out.m_sigma);
}

void Call(const char* name, FitFunction fit, Points points, const Point& ref = Point()) {
  CFitInput in;
  in.m_points = std::move(points);
  in.m_refPoint = ref;
  CFitResult out;
  const std::int32_t status = fit(in, out);
  std::printf("%-15s %3zu points  returned %d  valid %d", name, in.m_points.size(),
              static_cast<int>(status), out.m_valid);
  if (!out.m_message.empty()) std::printf("  message \"%s\"", out.m_message.c_str());
  std::printf("\n");
}

void CallEveryFit(const Points& file_points) {
  std::printf("\nevery fit function once:\n");
  Call("KFitPoint", &KFitPoint, {}, Point(10.0, 20.0, 30.0));
  Call("KFitDistance", &KFitDistance, {Point(0, 0, 0), Point(3, 4, 0)});
  Call("KFitAngle", &KFitAngle, {});
  Call("KFitLine", &KFitLine, LinePoints(), kFrame.origin);
  Call("KFitLineEx", &KFitLineEx, LinePoints(), kFrame.origin);
  Call("KFitPlane", &KFitPlane, PlanePoints(), kFrame.origin);
  Call("KFitCircle", &KFitCircle, CirclePoints(), kFrame.origin);
  Call("KFitCircleEx", &KFitCircleEx, CirclePoints(), kFrame.origin);
  Call("KFitSphere", &KFitSphere, file_points);
  Call("KFitSphereEx", &KFitSphereEx, file_points);
  Call("KFitCylinder", &KFitCylinder, CylinderPoints(), kFrame.origin);
  Call("KFitCylinderEx", &KFitCylinderEx, CylinderPoints(), kFrame.origin);
  Call("KFitCone", &KFitCone, ConePoints());
  Call("KFitEllipse", &KFitEllipse, EllipsePoints());
  Call("KFitParaboloid", &KFitParaboloid, ParaboloidPoints());
  Call("KFitTorus", &KFitTorus, TorusPoints());
}

// The same sphere through the modern interface: the exact least-squares solution with the
// standard uncertainty of its radius.
bool FitSpherePrecisely(const Points& points) {
  std::vector<metrofit::Point> xyz;
  for (const auto& p : points) xyz.push_back({p.x, p.y, p.z});
  metrofit::FitOptions options;
  options.shape = metrofit::Shape::kSphere;
  const metrofit::FitResult fit = metrofit::Fit(xyz, options);
  std::printf("metrofit::Fit sphere: %s, radius %.6f +- %.6f\n", metrofit::ToString(fit.status),
              fit.radius.value_or(0.0),
              fit.Find("radius") ? fit.Find("radius")->uncertainty[0] : 0.0);
  return fit.valid;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s POINTS_FILE\n", argv[0]);
    return 2;
  }
  Points points;
  if (!ReadPoints(argv[1], &points)) return 1;
  FitSphere(argv[1], points);
  CallEveryFit(points);
  return FitSpherePrecisely(points) ? 0 : 1;
}
