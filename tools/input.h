// Reading the points of one FILE for the tool.
//
// INTEGRATION POINT for the point-file readers (tools/io/): this build reads the plain-text
// format of tools/point_file.h only. ReadInputPoints and CheckInputOptions are the two places
// that change when the readers for CSV, PLY, PTS and PCD arrive; the rest of the tool sees
// only points and ReadError.
#ifndef METROFIT_TOOLS_INPUT_H
#define METROFIT_TOOLS_INPUT_H

#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

#include "metrofit/fit.h"

namespace metrofit::cli {

// How the point files are read, from --format, --columns and --decimal-comma.
struct InputOptions {
  std::string format = "auto";  // auto: by extension, else by content
  bool decimal_comma = false;   // numbers written with a decimal comma
  std::vector<int> columns;     // 1-based x, y, z columns; empty: the reader decides
};

// A FILE that cannot be opened or is not a point file. The message names the file and, where
// it applies, the line.
class ReadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Help text of --format.
extern const char* const kFormatHelp;

// Why these reading options cannot be used; empty when they can.
std::string CheckInputOptions(const InputOptions& options);

// Every point of `file` ("-": `standard_input`), in file order. Throws ReadError.
std::vector<Point> ReadInputPoints(const std::string& file, const InputOptions& options,
                                   std::istream& standard_input);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_INPUT_H
