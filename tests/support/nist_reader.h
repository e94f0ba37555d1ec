// Reader for the NIST least-squares reference pairs (NIST Dimensional Metrology Group,
// Algorithm Testing System): a <name>.ds file with the points and a <name>.fit file with the
// certified least-squares fit.
//
//   .ds : first number N, then N lines "x y z" (mm; separators spaces or tabs, CRLF allowed)
//   .fit: one number per line
//     line      point(3), direction cosines(3)
//     plane     point(3), normal direction cosines(3)
//     circle    centre(3), normal of the circle plane(3), diameter
//     sphere    centre(3), diameter
//     cylinder  point on axis(3), axis direction cosines(3), diameter
//     cone      point on axis(3), axis direction cosines(3) towards increasing radius,
//               orthogonal distance from that point to the surface, full apex angle (degrees)
//
// The files are read at test time from the folder named by METROFIT_REFDATA_DIR (a compile
// definition of every test program); they are never part of the repository.
#ifndef METROFIT_TESTS_SUPPORT_NIST_READER_H
#define METROFIT_TESTS_SUPPORT_NIST_READER_H

#include <string>
#include <vector>

#include "metrofit.h"

namespace metrofit::testing {

// Folder of the reference pairs as compiled into the calling test program ("" when the
// definition is missing). Inline so that the definition of the test program, not that of the
// support library, is seen.
inline std::string RefDataDir() {
#ifdef METROFIT_REFDATA_DIR
  return METROFIT_REFDATA_DIR;
#else
  return std::string();
#endif
}

// True when path names an existing directory.
bool DirectoryExists(const std::string& path);

// Points of a .ds file. False (with a reason in *error) when the file cannot be opened, the
// count is missing or not positive, or fewer than N complete points follow.
bool ReadDataSet(const std::string& path, std::vector<KPt3<double>>* points, std::string* error);

// All numbers of a .fit file, in order. False when the file cannot be opened, holds no number
// or holds something that is not a number.
bool ReadFitValues(const std::string& path, std::vector<double>* values, std::string* error);

// One data set and its certified fit.
struct NistPair {
  std::string name;      // file stem, e.g. "pla12"
  std::string dataPath;  // <folder>/<name>.ds
  std::string fitPath;   // <folder>/<name>.fit
};

// Every <name>.ds of the folder that has a <name>.fit beside it, ordered by the stem with
// embedded numbers compared by value (pla2 before pla10). Empty when the folder is missing.
std::vector<NistPair> ListPairs(const std::string& folder);

// Certified fits, decoded from the values of a .fit file. Each returns false when the number
// of values does not match the layout above.
struct NistLine {
  KPt3<double> point;
  KPt3<double> direction;
};
struct NistPlane {
  KPt3<double> point;
  KPt3<double> normal;
};
struct NistCircle {
  KPt3<double> centre;
  KPt3<double> normal;
  double diameter = 0.0;
};
struct NistSphere {
  KPt3<double> centre;
  double diameter = 0.0;
};
struct NistCylinder {
  KPt3<double> point;
  KPt3<double> axis;
  double diameter = 0.0;
};
struct NistCone {
  KPt3<double> point;
  KPt3<double> axis;
  double surfaceDistance = 0.0;
  double apexAngleDegrees = 0.0;
};

bool DecodeLine(const std::vector<double>& v, NistLine* out);
bool DecodePlane(const std::vector<double>& v, NistPlane* out);
bool DecodeCircle(const std::vector<double>& v, NistCircle* out);
bool DecodeSphere(const std::vector<double>& v, NistSphere* out);
bool DecodeCylinder(const std::vector<double>& v, NistCylinder* out);
bool DecodeCone(const std::vector<double>& v, NistCone* out);

}  // namespace metrofit::testing

#endif  // METROFIT_TESTS_SUPPORT_NIST_READER_H
