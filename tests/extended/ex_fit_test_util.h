// Helpers of the extended circle and cylinder fit tests: synthetic features at CMM scale and a
// private temporary directory for the point store.
#ifndef METROFIT_TESTS_EXTENDED_EX_FIT_TEST_UTIL_H
#define METROFIT_TESTS_EXTENDED_EX_FIT_TEST_UTIL_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "metrofit.h"
#include "numeric/numeric_test_util.h"

namespace metrofit::testing {

using Pt = KPt3<double>;
using numeric::testing::Gauss;
using numeric::testing::Rng;
using numeric::testing::Uniform;

constexpr double kPi = 3.141592653589793;

inline Pt Unit(Pt v) {
  v.Normalize();
  return v;
}

inline Pt RandomDirection(Rng& rng) {
  double u[3];
  numeric::testing::RandomUnit(rng, u);
  return Pt(u[0], u[1], u[2]);
}

// Two unit vectors completing the unit axis a to a right-handed frame.
inline void Frame(const Pt& a, Pt* u, Pt* v) {
  const Pt helper = std::fabs(a.x) < 0.6 ? Pt(1, 0, 0) : Pt(0, 1, 0);
  *u = Unit(a.Cross(helper));
  *v = a.Cross(*u);
}

// Centre about 500 mm from the origin in a random direction.
inline Pt CmmCentre(Rng& rng) {
  return RandomDirection(rng) * Uniform(rng, 400.0, 600.0);
}

// n points on the arc of `arc` radians (evenly spaced from a random start) of the circle about c
// with normal a and radius r, with isotropic Gaussian noise of `noise` per coordinate.
inline std::vector<Pt> ArcPoints(Rng& rng, int n, const Pt& c, const Pt& a, double r, double arc,
                                 double noise) {
  Pt u;
  Pt v;
  Frame(a, &u, &v);
  const double start = Uniform(rng, 0.0, 2.0 * kPi);
  std::vector<Pt> pts;
  for (int i = 0; i < n; ++i) {
    const double t = start + arc * i / (n - 1);
    Pt p = c + u * (r * std::cos(t)) + v * (r * std::sin(t));
    if (noise > 0.0) p += Pt(Gauss(rng, noise), Gauss(rng, noise), Gauss(rng, noise));
    pts.push_back(p);
  }
  return pts;
}

// n points on the cylinder through c along unit a of radius r: heights uniform in
// [-length/2, length/2], angles uniform over `arc` radians; Gaussian noise per coordinate.
inline std::vector<Pt> CylinderPoints(Rng& rng, int n, const Pt& c, const Pt& a, double r,
                                      double length, double arc, double noise) {
  Pt u;
  Pt v;
  Frame(a, &u, &v);
  const double start = Uniform(rng, 0.0, 2.0 * kPi);
  std::vector<Pt> pts;
  for (int i = 0; i < n; ++i) {
    const double t = start + Uniform(rng, 0.0, arc);
    const double h = Uniform(rng, -0.5 * length, 0.5 * length);
    Pt p = c + a * h + u * (r * std::cos(t)) + v * (r * std::sin(t));
    if (noise > 0.0) p += Pt(Gauss(rng, noise), Gauss(rng, noise), Gauss(rng, noise));
    pts.push_back(p);
  }
  return pts;
}

// Distance of p from the line through c along u.
inline double LineDistance(const Pt& p, const Pt& c, const Pt& u) {
  return (p - c).Cross(u).Length() / u.Length();
}

// Angle between two lines (signs ignored).
inline double LineAngle(const Pt& a, const Pt& b) {
  return std::atan2(a.Cross(b).Length(), std::fabs(a.Dot(b)));
}

// Names in a directory (without "." and ".."); empty when it cannot be read.
inline std::vector<std::string> ListDirectory(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return names;
  while (const dirent* e = readdir(d)) {
    const std::string name = e->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(d);
  return names;
}

// A fresh directory that TMPDIR names for the lifetime of the object. The previous TMPDIR is
// restored and the directory removed (with anything a failed test left in it) at the end.
class PrivateTempDir {
 public:
  PrivateTempDir() {
    const char* old = std::getenv("TMPDIR");
    hadOld_ = old != nullptr;
    if (hadOld_) old_ = old;
    char templ[] = "/tmp/metrofit-test-XXXXXX";
    const char* made = mkdtemp(templ);
    EXPECT_NE(made, nullptr) << "cannot create a private temporary directory";
    if (made != nullptr) path_ = made;
    setenv("TMPDIR", path_.c_str(), 1);
  }
  ~PrivateTempDir() {
    if (hadOld_) {
      setenv("TMPDIR", old_.c_str(), 1);
    } else {
      unsetenv("TMPDIR");
    }
    for (const std::string& name : ListDirectory(path_)) std::remove((path_ + "/" + name).c_str());
    rmdir(path_.c_str());
  }
  PrivateTempDir(const PrivateTempDir&) = delete;
  PrivateTempDir& operator=(const PrivateTempDir&) = delete;

  const std::string& path() const { return path_; }
  std::size_t FileCount() const { return ListDirectory(path_).size(); }

 private:
  std::string path_;
  std::string old_;
  bool hadOld_ = false;
};

}  // namespace metrofit::testing

#endif  // METROFIT_TESTS_EXTENDED_EX_FIT_TEST_UTIL_H
