// Reading the points of one FILE for the tool, through the point-file readers of tools/io/
// (text, CSV, PLY, PTS, PCD; see docs/point_files.md). The rest of the tool sees only points
// and ReadError.
#ifndef METROFIT_TOOLS_INPUT_H
#define METROFIT_TOOLS_INPUT_H

#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "metrofit/fit.h"

namespace metrofit::cli {

// How the point files are read, from --format, --columns and --decimal-comma.
struct InputOptions {
  std::string format = "auto";  // auto: by extension, else by content
  bool decimal_comma = false;   // numbers written with a decimal comma
  std::vector<int> columns;     // 1-based x, y, z columns; empty: the reader decides
};

// A FILE that cannot be opened or is not a point file. The message names the file and the
// line, or the byte offset in binary data.
class ReadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Help text of --format.
extern const char* const kFormatHelp;

// Why these reading options cannot be used; empty when they can.
std::string CheckInputOptions(const InputOptions& options);

// "2,3,4": three different 1-based column numbers; nullopt for anything else.
std::optional<std::vector<int>> ParseColumns(std::string_view text);

// Every point of `file` ("-": `standard_input`), in file order, as consecutive x, y, z
// triples: the layout the reader makes and the fit takes, so the points are held once.
// Throws ReadError.
std::vector<double> ReadInputPoints(const std::string& file, const InputOptions& options,
                                    std::istream& standard_input);

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_INPUT_H
