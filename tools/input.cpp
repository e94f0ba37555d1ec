#include "input.h"

#include "point_reader.h"

namespace metrofit::cli {

namespace {

// How standard input is named in messages.
constexpr char kStandardInputName[] = "<stdin>";

io::ReadOptions ReaderOptions(const InputOptions& options) {
  io::ReadOptions read;
  // CheckInputOptions has accepted the name.
  read.format = io::PointFormatFromName(options.format).value_or(io::PointFormat::kAuto);
  read.decimal_comma = options.decimal_comma;
  read.columns = options.columns;
  return read;
}

}  // namespace

const char* const kFormatHelp =
    "FILE format: auto (by extension, else by content),\n"
    "text, csv, ply, pts or pcd";

std::string CheckInputOptions(const InputOptions& options) {
  if (!io::PointFormatFromName(options.format)) {
    return "--format takes auto, text, csv, ply, pts or pcd, not '" + options.format + "'";
  }
  return std::string();
}

std::optional<std::vector<int>> ParseColumns(std::string_view text) {
  return io::ParseColumnList(text);
}

std::vector<double> ReadInputPoints(const std::string& file, const InputOptions& options,
                                    std::istream& standard_input) {
  const io::ReadOptions read = ReaderOptions(options);
  try {
    if (file == io::kStandardInputPath) {
      return io::ReadPoints(standard_input, kStandardInputName, read).xyz;
    }
    return io::ReadPoints(file, read).xyz;
  } catch (const io::PointFileError& e) {
    throw ReadError(e.what());
  }
}

}  // namespace metrofit::cli
