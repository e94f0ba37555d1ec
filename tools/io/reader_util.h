// Shared pieces of the point readers: strict numbers, safe excerpts of file content, line
// walking and the error messages that name the source and place.
#ifndef METROFIT_TOOLS_IO_READER_UTIL_H
#define METROFIT_TOOLS_IO_READER_UTIL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "point_reader.h"

namespace metrofit::io::detail {

constexpr std::size_t kCoordinates = 3;
constexpr char kComment = '#';

// The bytes of one source and the name that stands for it in messages.
struct Source {
  std::string_view bytes;
  std::string name;
};

// `text` quoted for a message: at most a short excerpt, non-printable bytes as \xNN.
std::string Quote(std::string_view text);

[[noreturn]] void FailAtLine(const Source& source, std::size_t line, const std::string& what);
[[noreturn]] void FailAtByte(const Source& source, std::size_t offset, const std::string& what);
[[noreturn]] void Fail(const Source& source, const std::string& what);

// Parses a whole field as a finite double with the given decimal mark. On failure returns
// false and sets `error` to a message about the field.
bool ParseNumber(std::string_view field, char decimal_mark, double* value, std::string* error);

// Whether a field is meant as a number: one with either decimal mark, or a non-finite word.
// Tells a header row from a data row without judging the number yet.
bool LooksNumeric(std::string_view field);

// A whole field of decimal digits that fits in 64 bits.
bool ParseCount(std::string_view field, std::uint64_t* value);

bool IsBlank(char c);
std::string_view Trim(std::string_view text);
std::string_view StripComment(std::string_view line);
std::vector<std::string_view> SplitBlanks(std::string_view text);
// The same into `fields` (cleared first), which keeps its capacity from line to line.
void SplitBlanks(std::string_view text, std::vector<std::string_view>* fields);

// Walks the lines of text, ended by "\n", "\r\n" or a lone "\r"; a leading UTF-8 byte order
// mark is dropped from the first.
class LineReader {
 public:
  explicit LineReader(std::string_view bytes, std::size_t first_line = 1);
  bool Next(std::string_view* line);
  std::size_t number() const { return number_; }
  std::size_t offset() const { return pos_; }

 private:
  std::string_view bytes_;
  std::size_t pos_ = 0;
  std::size_t number_;
};

// Binary scalar types of PLY and PCD records.
enum class Scalar {
  kInt8,
  kUint8,
  kInt16,
  kUint16,
  kInt32,
  kUint32,
  kInt64,
  kUint64,
  kFloat32,
  kFloat64
};
std::size_t ScalarSize(Scalar type);
bool IsIntegerScalar(Scalar type);
bool IsFloatScalar(Scalar type);
// The value of the ScalarSize(type) bytes at `bytes`, stored little- or big-endian.
double DecodeScalar(const char* bytes, Scalar type, bool big_endian);

// Room to reserve for `declared` points when each needs at least `min_bytes` of `available`:
// a count read from a file is never trusted beyond what the file could hold.
std::size_t SafeReserve(std::uint64_t declared, std::size_t available, std::size_t min_bytes);

// The 0-based indices of x, y, z: the user's 1-based choice, or the first three columns.
std::vector<std::size_t> ColumnIndices(const ReadOptions& options);

PointCloud ReadText(const Source& source, const ReadOptions& options);
PointCloud ReadCsv(const Source& source, const ReadOptions& options);
PointCloud ReadPts(const Source& source, const ReadOptions& options);
PointCloud ReadPly(const Source& source);
PointCloud ReadPcd(const Source& source);

}  // namespace metrofit::io::detail

#endif  // METROFIT_TOOLS_IO_READER_UTIL_H
