#include "point_file.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace metrofit::cli {

namespace {

constexpr std::size_t kCoordinates = 3;
constexpr char kComment = '#';
constexpr char kSeparator = ',';
// Editors on some systems start a UTF-8 file with a byte order mark; it is not data.
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// Splits the fields of a line without its comment. Two separators in a row, or one at either
// end, leave an empty field: that is an error rather than a silently skipped value.
bool SplitFields(const std::string& text, std::vector<std::string>* fields, std::string* error) {
  bool after_separator = false;
  std::size_t i = 0;
  while (i < text.size()) {
    if (IsBlank(text[i])) {
      ++i;
    } else if (text[i] == kSeparator) {
      if (fields->empty() || after_separator) {
        *error = "empty field";
        return false;
      }
      after_separator = true;
      ++i;
    } else {
      const std::size_t start = i;
      while (i < text.size() && !IsBlank(text[i]) && text[i] != kSeparator) ++i;
      fields->push_back(text.substr(start, i - start));
      after_separator = false;
    }
  }
  if (after_separator) {
    *error = "empty field";
    return false;
  }
  return true;
}

bool ParseCoordinate(const std::string& field, double* value, std::string* error) {
  char* end = nullptr;
  errno = 0;
  *value = std::strtod(field.c_str(), &end);
  if (end == field.c_str() || *end != '\0') {
    *error = "'" + field + "' is not a number";
    return false;
  }
  // strtod takes "nan", "inf" and overflows to infinity; none of them is a measured point.
  if (!std::isfinite(*value)) {
    *error = "non-finite coordinate '" + field + "'";
    return false;
  }
  return true;
}

ParsedLine Malformed(std::string error) {
  ParsedLine parsed;
  parsed.kind = ParsedLine::kMalformed;
  parsed.error = std::move(error);
  return parsed;
}

}  // namespace

ParsedLine ParsePointLine(const std::string& line) {
  const std::string text = line.substr(0, line.find(kComment));
  std::vector<std::string> fields;
  std::string error;
  if (!SplitFields(text, &fields, &error)) return Malformed(error);
  if (fields.empty()) return ParsedLine{};
  if (fields.size() != kCoordinates) {
    return Malformed("expected 3 coordinates (x y z), found " + std::to_string(fields.size()));
  }
  double xyz[kCoordinates];
  for (std::size_t k = 0; k < kCoordinates; ++k) {
    if (!ParseCoordinate(fields[k], &xyz[k], &error)) return Malformed(error);
  }
  ParsedLine parsed;
  parsed.kind = ParsedLine::kPoint;
  parsed.point = KPt3<double>(xyz[0], xyz[1], xyz[2]);
  return parsed;
}

std::vector<KPt3<double>> ReadPoints(std::istream& in, const std::string& source) {
  std::vector<KPt3<double>> points;
  std::string line;
  for (long number = 1; std::getline(in, line); ++number) {
    if (number == 1 && line.compare(0, std::strlen(kByteOrderMark), kByteOrderMark) == 0) {
      line.erase(0, std::strlen(kByteOrderMark));
    }
    const ParsedLine parsed = ParsePointLine(line);
    if (parsed.kind == ParsedLine::kMalformed) {
      throw InputError(source + ":" + std::to_string(number) + ": " + parsed.error);
    }
    if (parsed.kind == ParsedLine::kPoint) points.push_back(parsed.point);
  }
  if (in.bad()) throw InputError(source + ": read error");
  return points;
}

std::vector<KPt3<double>> ReadPointFile(const std::string& path) {
  std::error_code ec;
  // A directory opens as a stream on some systems and then reads as empty.
  if (std::filesystem::is_directory(path, ec)) {
    throw InputError("cannot read '" + path + "': is a directory");
  }
  std::ifstream in(path);
  if (!in) {
    const int saved_errno = errno;
    const std::string reason = saved_errno != 0 ? std::strerror(saved_errno) : "open failed";
    throw InputError("cannot open '" + path + "': " + reason);
  }
  return ReadPoints(in, path);
}

}  // namespace metrofit::cli
