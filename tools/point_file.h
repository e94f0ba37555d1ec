// Reading measured points from text: one point per line, "x y z", the coordinates separated by
// blanks and/or single commas. '#' starts a comment; blank lines are skipped.
#ifndef METROFIT_TOOLS_POINT_FILE_H
#define METROFIT_TOOLS_POINT_FILE_H

#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

#include "metrofit.h"

namespace metrofit::cli {

// A point source that cannot be opened or holds a line that is not a point. The message names
// the source and, for a bad line, its number ("points.txt:12: ...").
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Outcome of one line of text.
struct ParsedLine {
  enum Kind { kBlank, kPoint, kMalformed };
  Kind kind = kBlank;
  KPt3<double> point;
  std::string error;  // why the line is malformed
};

ParsedLine ParsePointLine(const std::string& line);

// All points of a stream; `source` names it in error messages. Throws InputError.
std::vector<KPt3<double>> ReadPoints(std::istream& in, const std::string& source);

// All points of the file at `path`. Throws InputError.
std::vector<KPt3<double>> ReadPointFile(const std::string& path);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_POINT_FILE_H
