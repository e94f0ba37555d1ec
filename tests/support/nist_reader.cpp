#include "support/nist_reader.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace metrofit::testing {

namespace {

namespace fs = std::filesystem;

// Reads whitespace-separated tokens (spaces, tabs, CR and LF all separate) and converts each
// with strtod, which rounds the ~20-digit certified values correctly.
bool NextNumber(std::istream& in, double* value, bool* bad, std::string* token) {
  *bad = false;
  if (!(in >> *token)) return false;
  const char* begin = token->c_str();
  char* end = nullptr;
  errno = 0;
  *value = std::strtod(begin, &end);
  if (end == begin || *end != '\0' || errno == ERANGE) *bad = true;
  return true;
}

// Order of stems with embedded numbers compared by value: "pla2" < "pla10".
bool NaturalLess(const std::string& a, const std::string& b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    const bool da = std::isdigit(static_cast<unsigned char>(a[i])) != 0;
    const bool db = std::isdigit(static_cast<unsigned char>(b[j])) != 0;
    if (da && db) {
      std::size_t ie = i, je = j;
      while (ie < a.size() && std::isdigit(static_cast<unsigned char>(a[ie]))) ++ie;
      while (je < b.size() && std::isdigit(static_cast<unsigned char>(b[je]))) ++je;
      const unsigned long long na = std::stoull(a.substr(i, ie - i));
      const unsigned long long nb = std::stoull(b.substr(j, je - j));
      if (na != nb) return na < nb;
      i = ie;
      j = je;
    } else {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i;
      ++j;
    }
  }
  return a.size() - i < b.size() - j;
}

}  // namespace

bool DirectoryExists(const std::string& path) {
  std::error_code ec;
  return !path.empty() && fs::is_directory(fs::path(path), ec);
}

bool ReadDataSet(const std::string& path, std::vector<KPt3<double>>* points, std::string* error) {
  points->clear();
  std::ifstream in(path);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  double count = 0.0;
  bool bad = false;
  std::string token;
  if (!NextNumber(in, &count, &bad, &token) || bad || count < 1.0 ||
      count != static_cast<double>(static_cast<long>(count))) {
    *error = "missing or invalid point count in " + path;
    return false;
  }
  const long n = static_cast<long>(count);
  points->reserve(static_cast<std::size_t>(n));
  for (long i = 0; i < n; ++i) {
    double c[3];
    for (double& v : c) {
      if (!NextNumber(in, &v, &bad, &token) || bad) {
        std::ostringstream s;
        s << path << ": point " << i << " of " << n << " is missing or not a number";
        *error = s.str();
        points->clear();
        return false;
      }
    }
    points->emplace_back(c[0], c[1], c[2]);
  }
  return true;
}

bool ReadFitValues(const std::string& path, std::vector<double>* values, std::string* error) {
  values->clear();
  std::ifstream in(path);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  double v = 0.0;
  bool bad = false;
  std::string token;
  while (NextNumber(in, &v, &bad, &token)) {
    if (bad) {
      *error = path + ": not a number: '" + token + "'";
      values->clear();
      return false;
    }
    values->push_back(v);
  }
  if (values->empty()) {
    *error = path + " holds no number";
    return false;
  }
  return true;
}

std::vector<NistPair> ListPairs(const std::string& folder) {
  std::vector<NistPair> pairs;
  if (!DirectoryExists(folder)) return pairs;
  std::error_code ec;
  for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(folder), ec)) {
    const fs::path p = entry.path();
    if (p.extension() != ".ds") continue;
    fs::path fit = p;
    fit.replace_extension(".fit");
    if (!fs::is_regular_file(fit, ec)) continue;
    pairs.push_back(NistPair{p.stem().string(), p.string(), fit.string()});
  }
  std::sort(pairs.begin(), pairs.end(),
            [](const NistPair& a, const NistPair& b) { return NaturalLess(a.name, b.name); });
  return pairs;
}

bool DecodeLine(const std::vector<double>& v, NistLine* out) {
  if (v.size() != 6) return false;
  out->point = KPt3<double>(v[0], v[1], v[2]);
  out->direction = KPt3<double>(v[3], v[4], v[5]);
  return true;
}

bool DecodePlane(const std::vector<double>& v, NistPlane* out) {
  if (v.size() != 6) return false;
  out->point = KPt3<double>(v[0], v[1], v[2]);
  out->normal = KPt3<double>(v[3], v[4], v[5]);
  return true;
}

bool DecodeCircle(const std::vector<double>& v, NistCircle* out) {
  if (v.size() != 7) return false;
  out->centre = KPt3<double>(v[0], v[1], v[2]);
  out->normal = KPt3<double>(v[3], v[4], v[5]);
  out->diameter = v[6];
  return true;
}

bool DecodeSphere(const std::vector<double>& v, NistSphere* out) {
  if (v.size() != 4) return false;
  out->centre = KPt3<double>(v[0], v[1], v[2]);
  out->diameter = v[3];
  return true;
}

bool DecodeCylinder(const std::vector<double>& v, NistCylinder* out) {
  if (v.size() != 7) return false;
  out->point = KPt3<double>(v[0], v[1], v[2]);
  out->axis = KPt3<double>(v[3], v[4], v[5]);
  out->diameter = v[6];
  return true;
}

bool DecodeCone(const std::vector<double>& v, NistCone* out) {
  if (v.size() != 8) return false;
  out->point = KPt3<double>(v[0], v[1], v[2]);
  out->axis = KPt3<double>(v[3], v[4], v[5]);
  out->surfaceDistance = v[6];
  out->apexAngleDegrees = v[7];
  return true;
}

}  // namespace metrofit::testing
