// Point-file readers of the metrofit tool: whitespace text, CSV, PLY, PTS and PCD files, or
// standard input, into one flat array of x y z triples.
//
// Choosing the format: an explicit ReadOptions::format wins; otherwise the file's extension
// (.xyz .txt .asc text, .csv, .ply, .pts, .pcd, in any case); otherwise, for any other extension
// and for standard input, the content (see DetectPointFormat).
//
// Numbers are read strictly: an optional sign ('+' is accepted, since some machine exports
// write it), digits with at most one decimal mark, an optional exponent, and nothing after.
// Hexadecimal, "nan", "inf" and values that overflow a double are refused. The decimal mark is
// a point unless ReadOptions::decimal_comma is set; a decimal comma met in the default mode is
// refused with a message naming --decimal-comma, so "1,5" never becomes two coordinates.
//
// Text (.xyz .txt .asc): one point per line. Fields are separated by blanks, or by single
// commas with optional blanks around them (never both on one line; in decimal-comma mode only
// blanks). Every data line has the same number of fields, at least three, all numbers; x y z
// are the first three, or the columns of ReadOptions::columns. '#' starts a comment.
// CSV (.csv): delimiter tab, semicolon or comma, the first of these found in the first row
// (a comma never with decimal commas). A first row that is not all numbers is a header; its
// x, y and z columns (names in any case) are read and the other columns are ignored, numeric
// or not. ReadOptions::columns chooses columns by number instead. Without header or columns,
// the first three columns. Every row has as many fields as the first.
// PTS: a line with the point count, then one point per line: x y z, optionally intensity and
// r g b (3, 4, 6 or 7 numbers). Another count line may start a further scan.
// PLY: ascii, binary_little_endian or binary_big_endian; the "vertex" element's x y z (float
// or double, in any property order); every other property and element is skipped.
// PCD: DATA ascii or binary; x y z (TYPE F, SIZE 4 or 8, COUNT 1) among any other fields.
//
// Empty input reads as an empty cloud (a PTS file needs its count line); whether that is
// enough points is the caller's decision. docs/point_files.md lists each choice and its test.
//
// Every error is a PointFileError whose message names the source and the line ("scan.csv:12:
// ...") or, in binary data, the byte offset ("scan.ply: byte 4096: ..."); quoted file content is
// cut to a short excerpt with non-printable bytes written as \xNN.
#ifndef METROFIT_TOOLS_IO_POINT_READER_H
#define METROFIT_TOOLS_IO_POINT_READER_H

#include <cstddef>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace metrofit::io {

// Points as consecutive x, y, z triples, in file order.
struct PointCloud {
  std::vector<double> xyz;
  std::size_t size() const { return xyz.size() / 3; }
};

enum class PointFormat { kAuto, kText, kCsv, kPly, kPts, kPcd };

struct ReadOptions {
  PointFormat format = PointFormat::kAuto;
  // Read ',' as the decimal mark (then a '.' in a number is an error).
  bool decimal_comma = false;
  // Text and CSV only: the 1-based columns of x, y and z; empty for the default.
  std::vector<int> columns;
};

// Anything that keeps a source from being read as points. The message is ready for the user.
class PointFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The name standard input goes by on the command line.
inline constexpr char kStandardInputPath[] = "-";

// Reads the file at `path`, or standard input when `path` is "-". Throws PointFileError.
PointCloud ReadPoints(const std::string& path, const ReadOptions& options = {});

// Reads a whole stream; `name` stands for it in messages and its extension, if any, chooses
// the format as a file name would. Throws PointFileError.
PointCloud ReadPoints(std::istream& in, const std::string& name, const ReadOptions& options);

// Reads points from bytes already in memory, as ReadPoints(std::istream&...) does.
PointCloud ParsePoints(std::string_view bytes, const std::string& name, const ReadOptions& options);

// The format a file name's extension stands for; kAuto when it names none.
PointFormat FormatFromExtension(std::string_view path);

// The format of `bytes` by content: PLY and PCD by their headers, PTS by a first line that is
// a single count, CSV by a tab or semicolon or a non-numeric first row, text otherwise.
PointFormat DetectPointFormat(std::string_view bytes);

// "auto", "text" (or "xyz", "txt", "asc"), "csv", "ply", "pts", "pcd", in any case.
std::optional<PointFormat> PointFormatFromName(std::string_view name);
const char* PointFormatName(PointFormat format);

// "2,3,4": three distinct 1-based column numbers; nullopt for anything else.
std::optional<std::vector<int>> ParseColumnList(std::string_view text);

}  // namespace metrofit::io

#endif  // METROFIT_TOOLS_IO_POINT_READER_H
