#include "point_reader.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "reader_util.h"

namespace metrofit::io {

namespace {

using detail::Source;

constexpr char kStandardInputName[] = "<stdin>";

struct FormatName {
  const char* name;
  PointFormat format;
};

// Names a user may give, and the extensions that stand for a format.
constexpr FormatName kFormatNames[] = {
    {"auto", PointFormat::kAuto}, {"text", PointFormat::kText}, {"xyz", PointFormat::kText},
    {"txt", PointFormat::kText},  {"asc", PointFormat::kText},  {"csv", PointFormat::kCsv},
    {"ply", PointFormat::kPly},   {"pts", PointFormat::kPts},   {"pcd", PointFormat::kPcd}};

std::string Lowercase(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// The first line that is neither blank nor a '#' comment; empty when there is none.
std::string_view FirstDataLine(std::string_view bytes, std::string_view* next) {
  detail::LineReader lines(bytes);
  std::string_view line;
  while (lines.Next(&line)) {
    const std::string_view content = detail::Trim(detail::StripComment(line));
    if (content.empty()) continue;
    if (next != nullptr) {
      *next = bytes.substr(std::min(lines.offset(), bytes.size()));
    }
    return content;
  }
  return {};
}

bool IsPcdHeader(std::string_view bytes) {
  if (StartsWith(bytes, "# .PCD")) return true;
  const std::string_view first = FirstDataLine(bytes, nullptr);
  return StartsWith(first, "VERSION") || StartsWith(first, "FIELDS");
}

// A header row: some field that is not a number, splitting on commas and blanks alike.
bool HasWordField(std::string_view line) {
  std::string text(line);
  std::replace(text.begin(), text.end(), ',', ' ');
  const auto fields = detail::SplitBlanks(text);
  return std::any_of(fields.begin(), fields.end(),
                     [](std::string_view field) { return !detail::LooksNumeric(field); });
}

bool ValidColumns(const std::vector<int>& columns) {
  std::vector<int> sorted = columns;
  std::sort(sorted.begin(), sorted.end());
  return sorted.size() == detail::kCoordinates && sorted.front() >= 1 &&
         std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end();
}

void CheckColumns(const Source& source, PointFormat format, const ReadOptions& options) {
  if (options.columns.empty()) return;
  if (format != PointFormat::kText && format != PointFormat::kCsv) {
    detail::Fail(source, std::string("a column selection applies to text and CSV files, not ") +
                             PointFormatName(format));
  }
  if (!ValidColumns(options.columns)) {
    detail::Fail(source, "a column selection names three distinct columns, counted from 1");
  }
}

// The bytes left in a stream that can seek (a file redirected to standard input, a string
// stream); 0 where it cannot tell (a pipe, a terminal), whose failed seek is forgotten.
std::size_t RemainingBytes(std::istream& in) {
  if (!in) return 0;
  const std::streampos here = in.tellg();
  if (here == std::streampos(-1)) {
    in.clear();
    return 0;
  }
  in.seekg(0, std::ios::end);
  const std::streampos end = in.tellg();
  in.clear();
  in.seekg(here);
  if (!in || end == std::streampos(-1) || end < here) {
    in.clear();
    return 0;
  }
  return static_cast<std::size_t>(end - here);
}

std::string ReadAll(std::istream& in, const std::string& name) {
  constexpr std::size_t kChunk = 1 << 16;
  std::string bytes;
  // Room for what a seekable stream holds, so the chunks do not grow the buffer by copies.
  bytes.reserve(RemainingBytes(in));
  char chunk[kChunk];
  while (in.read(chunk, kChunk) || in.gcount() > 0) {
    bytes.append(chunk, static_cast<std::size_t>(in.gcount()));
  }
  if (in.bad()) throw PointFileError(name + ": read error");
  return bytes;
}

// A regular file in one buffer of its size: appending chunks would grow the buffer by copies,
// each holding the old and the new buffer at once. Pipes and devices are read in chunks.
std::string ReadFile(std::istream& in, const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return ReadAll(in, path);
  const std::uintmax_t size = std::filesystem::file_size(path, ec);
  if (ec) return ReadAll(in, path);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (in.bad()) throw PointFileError(path + ": read error");
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  // A file still being written may have grown since its size was taken.
  if (bytes.size() == size) bytes += ReadAll(in, path);
  return bytes;
}

}  // namespace

PointFormat FormatFromExtension(std::string_view path) {
  const std::string extension = std::filesystem::path(std::string(path)).extension().string();
  if (extension.size() < 2) return PointFormat::kAuto;
  return PointFormatFromName(std::string_view(extension).substr(1)).value_or(PointFormat::kAuto);
}

PointFormat DetectPointFormat(std::string_view bytes) {
  if (StartsWith(bytes, "ply\n") || StartsWith(bytes, "ply\r\n")) return PointFormat::kPly;
  if (IsPcdHeader(bytes)) return PointFormat::kPcd;
  std::string_view rest;
  const std::string_view first = FirstDataLine(bytes, &rest);
  std::uint64_t count = 0;
  if (detail::ParseCount(first, &count)) return PointFormat::kPts;
  if (first.find_first_of("\t;") != std::string_view::npos || HasWordField(first)) {
    return PointFormat::kCsv;
  }
  return PointFormat::kText;
}

std::optional<PointFormat> PointFormatFromName(std::string_view name) {
  const std::string lower = Lowercase(name);
  for (const FormatName& entry : kFormatNames) {
    if (lower == entry.name) return entry.format;
  }
  return std::nullopt;
}

const char* PointFormatName(PointFormat format) {
  switch (format) {
    case PointFormat::kAuto:
      return "auto";
    case PointFormat::kText:
      return "text";
    case PointFormat::kCsv:
      return "csv";
    case PointFormat::kPly:
      return "ply";
    case PointFormat::kPts:
      return "pts";
    case PointFormat::kPcd:
      return "pcd";
  }
  return "auto";
}

std::optional<std::vector<int>> ParseColumnList(std::string_view text) {
  // Columns beyond this are a typing slip, not a file layout.
  constexpr std::uint64_t kMaxColumn = 1000000;
  std::vector<int> columns;
  std::size_t start = 0;
  while (start <= text.size()) {
    const std::size_t comma = std::min(text.find(',', start), text.size());
    std::uint64_t value = 0;
    if (!detail::ParseCount(detail::Trim(text.substr(start, comma - start)), &value) ||
        value == 0 || value > kMaxColumn) {
      return std::nullopt;
    }
    columns.push_back(static_cast<int>(value));
    start = comma + 1;
  }
  if (!ValidColumns(columns)) return std::nullopt;
  return columns;
}

PointCloud ParsePoints(std::string_view bytes, const std::string& name,
                       const ReadOptions& options) {
  const Source source{bytes, name};
  PointFormat format = options.format;
  if (format == PointFormat::kAuto) format = FormatFromExtension(name);
  if (format == PointFormat::kAuto) format = DetectPointFormat(bytes);
  CheckColumns(source, format, options);
  switch (format) {
    case PointFormat::kCsv:
      return detail::ReadCsv(source, options);
    case PointFormat::kPly:
      return detail::ReadPly(source);
    case PointFormat::kPts:
      return detail::ReadPts(source, options);
    case PointFormat::kPcd:
      return detail::ReadPcd(source);
    case PointFormat::kAuto:
    case PointFormat::kText:
      break;
  }
  return detail::ReadText(source, options);
}

PointCloud ReadPoints(std::istream& in, const std::string& name, const ReadOptions& options) {
  const std::string bytes = ReadAll(in, name);
  return ParsePoints(bytes, name, options);
}

PointCloud ReadPoints(const std::string& path, const ReadOptions& options) {
  if (path == kStandardInputPath) return ReadPoints(std::cin, kStandardInputName, options);
  std::error_code ec;
  // A directory opens as a stream on some systems and then reads as empty.
  if (std::filesystem::is_directory(path, ec)) {
    throw PointFileError("cannot read '" + path + "': is a directory");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    const int saved_errno = errno;
    const std::string reason = saved_errno != 0 ? std::strerror(saved_errno) : "open failed";
    throw PointFileError("cannot open '" + path + "': " + reason);
  }
  // The bytes go before the points are handed on: the caller keeps only the points.
  const std::string bytes = ReadFile(in, path);
  return ParsePoints(bytes, path, options);
}

}  // namespace metrofit::io
