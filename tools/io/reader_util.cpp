#include "reader_util.h"

#include <fast_float/fast_float.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace metrofit::io::detail {

namespace {

// Longest piece of file content quoted in a message: enough to recognise, never a flood.
constexpr std::size_t kMaxExcerpt = 40;
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
constexpr std::size_t kByteOrderMarkSize = 3;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsPrintable(char c) {
  const auto u = static_cast<unsigned char>(c);
  return u >= 0x20 && u < 0x7F;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

// "nan", "inf", "infinity", with or without a sign: words strtod-like parsers accept.
bool IsNonFiniteWord(std::string_view field) {
  if (!field.empty() && (field[0] == '+' || field[0] == '-')) field.remove_prefix(1);
  return EqualsIgnoreCase(field, "nan") || EqualsIgnoreCase(field, "inf") ||
         EqualsIgnoreCase(field, "infinity");
}

// Whether the field would be a number with the other decimal mark.
bool ParsesWithMark(std::string_view field, char mark) {
  double value = 0;
  const fast_float::parse_options options(fast_float::chars_format::general, mark);
  const auto result =
      fast_float::from_chars_advanced(field.data(), field.data() + field.size(), value, options);
  return result.ec == std::errc() && result.ptr == field.data() + field.size();
}

std::string MarkError(std::string_view field, char decimal_mark) {
  if (decimal_mark == '.') {
    return "decimal comma in " + Quote(field) +
           "; use --decimal-comma to read numbers written with decimal commas";
  }
  return "decimal point in " + Quote(field) + " while reading decimal commas (--decimal-comma)";
}

}  // namespace

std::string Quote(std::string_view text) {
  std::string out = "'";
  const std::size_t shown = std::min(text.size(), kMaxExcerpt);
  for (std::size_t i = 0; i < shown; ++i) {
    const char c = text[i];
    if (IsPrintable(c) && c != '\\') {
      out += c;
    } else if (c == '\\') {
      out += "\\\\";
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(c));
      out += hex;
    }
  }
  out += "'";
  if (shown < text.size()) out += "... (" + std::to_string(text.size()) + " bytes)";
  return out;
}

void FailAtLine(const Source& source, std::size_t line, const std::string& what) {
  throw PointFileError(source.name + ":" + std::to_string(line) + ": " + what);
}

void FailAtByte(const Source& source, std::size_t offset, const std::string& what) {
  throw PointFileError(source.name + ": byte " + std::to_string(offset) + ": " + what);
}

void Fail(const Source& source, const std::string& what) {
  throw PointFileError(source.name + ": " + what);
}

bool ParseNumber(std::string_view field, char decimal_mark, double* value, std::string* error) {
  std::string_view body = field;
  if (!body.empty() && (body[0] == '+' || body[0] == '-')) body.remove_prefix(1);
  // fast_float takes "nan" and "inf" and refuses '+'; the sign is handled here, and a body
  // must start as a decimal number does.
  const bool starts_number =
      !body.empty() &&
      (IsDigit(body[0]) || (body[0] == decimal_mark && body.size() > 1 && IsDigit(body[1])));
  if (IsNonFiniteWord(field)) {
    *error = "non-finite coordinate " + Quote(field);
    return false;
  }
  const char other_mark = decimal_mark == '.' ? ',' : '.';
  if (!starts_number) {
    *error = Quote(field) + " is not a number";
    return false;
  }
  const fast_float::parse_options options(fast_float::chars_format::general, decimal_mark);
  const auto result =
      fast_float::from_chars_advanced(body.data(), body.data() + body.size(), *value, options);
  if (result.ec != std::errc() || result.ptr != body.data() + body.size()) {
    if (result.ptr < body.data() + body.size() && *result.ptr == other_mark &&
        ParsesWithMark(body, other_mark)) {
      *error = MarkError(field, decimal_mark);
    } else if (result.ec == std::errc::result_out_of_range) {
      *error = "non-finite coordinate " + Quote(field);
    } else {
      *error = Quote(field) + " is not a number";
    }
    return false;
  }
  if (!std::isfinite(*value)) {
    *error = "non-finite coordinate " + Quote(field);
    return false;
  }
  if (field[0] == '-') *value = -*value;
  return true;
}

bool LooksNumeric(std::string_view field) {
  double value = 0;
  std::string error;
  return IsNonFiniteWord(field) || ParseNumber(field, '.', &value, &error) ||
         ParseNumber(field, ',', &value, &error);
}

bool ParseCount(std::string_view field, std::uint64_t* value) {
  if (field.empty()) return false;
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t n = 0;
  for (const char c : field) {
    if (!IsDigit(c)) return false;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (n > (kMax - digit) / 10) return false;
    n = n * 10 + digit;
  }
  *value = n;
  return true;
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view StripComment(std::string_view line) {
  return line.substr(0, line.find(kComment));
}

void SplitBlanks(std::string_view text, std::vector<std::string_view>* fields) {
  fields->clear();
  std::size_t i = 0;
  while (i < text.size()) {
    if (IsBlank(text[i])) {
      ++i;
      continue;
    }
    const std::size_t start = i;
    while (i < text.size() && !IsBlank(text[i])) ++i;
    fields->push_back(text.substr(start, i - start));
  }
}

std::vector<std::string_view> SplitBlanks(std::string_view text) {
  std::vector<std::string_view> fields;
  SplitBlanks(text, &fields);
  return fields;
}

LineReader::LineReader(std::string_view bytes, std::size_t first_line)
    : bytes_(bytes), number_(first_line - 1) {
  if (first_line == 1 && bytes_.substr(0, kByteOrderMarkSize) == kByteOrderMark) {
    pos_ = kByteOrderMarkSize;
  }
}

bool LineReader::Next(std::string_view* line) {
  if (pos_ >= bytes_.size()) return false;
  std::size_t end = bytes_.find_first_of("\r\n", pos_);
  if (end == std::string_view::npos) end = bytes_.size();
  *line = bytes_.substr(pos_, end - pos_);
  // A lone '\r' ends a line too: read as a blank, it would join every line into one.
  const bool crlf = end + 1 < bytes_.size() && bytes_[end] == '\r' && bytes_[end + 1] == '\n';
  pos_ = end + (crlf ? 2 : 1);
  ++number_;
  return true;
}

std::size_t ScalarSize(Scalar type) {
  switch (type) {
    case Scalar::kInt8:
    case Scalar::kUint8:
      return 1;
    case Scalar::kInt16:
    case Scalar::kUint16:
      return 2;
    case Scalar::kInt32:
    case Scalar::kUint32:
    case Scalar::kFloat32:
      return 4;
    case Scalar::kInt64:
    case Scalar::kUint64:
    case Scalar::kFloat64:
      return 8;
  }
  return 0;
}

bool IsFloatScalar(Scalar type) {
  return type == Scalar::kFloat32 || type == Scalar::kFloat64;
}
bool IsIntegerScalar(Scalar type) {
  return !IsFloatScalar(type);
}

namespace {

// The bytes as an unsigned integer; byte order handled here so any host reads any file.
std::uint64_t LoadBits(const char* bytes, std::size_t size, bool big_endian) {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t k = big_endian ? i : size - 1 - i;
    bits = (bits << 8) | static_cast<unsigned char>(bytes[k]);
  }
  return bits;
}

template <typename T, typename Bits>
T BitCast(Bits bits) {
  static_assert(sizeof(T) == sizeof(Bits), "same size");
  T value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

}  // namespace

double DecodeScalar(const char* bytes, Scalar type, bool big_endian) {
  const std::uint64_t bits = LoadBits(bytes, ScalarSize(type), big_endian);
  switch (type) {
    case Scalar::kInt8:
      return BitCast<std::int8_t>(static_cast<std::uint8_t>(bits));
    case Scalar::kUint8:
      return static_cast<double>(bits);
    case Scalar::kInt16:
      return BitCast<std::int16_t>(static_cast<std::uint16_t>(bits));
    case Scalar::kUint16:
      return static_cast<double>(bits);
    case Scalar::kInt32:
      return BitCast<std::int32_t>(static_cast<std::uint32_t>(bits));
    case Scalar::kUint32:
      return static_cast<double>(bits);
    case Scalar::kInt64:
      return static_cast<double>(BitCast<std::int64_t>(bits));
    case Scalar::kUint64:
      return static_cast<double>(bits);
    case Scalar::kFloat32:
      return BitCast<float>(static_cast<std::uint32_t>(bits));
    case Scalar::kFloat64:
      return BitCast<double>(bits);
  }
  return 0;
}

std::size_t SafeReserve(std::uint64_t declared, std::size_t available, std::size_t min_bytes) {
  const std::uint64_t fits = available / (min_bytes == 0 ? 1 : min_bytes);
  return static_cast<std::size_t>(std::min(declared, fits)) * kCoordinates;
}

std::vector<std::size_t> ColumnIndices(const ReadOptions& options) {
  if (options.columns.empty()) return {0, 1, 2};
  std::vector<std::size_t> indices;
  for (const int column : options.columns) indices.push_back(static_cast<std::size_t>(column - 1));
  return indices;
}

}  // namespace metrofit::io::detail
