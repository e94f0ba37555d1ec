// PCD: a text header of fields, their sizes, types and counts, then one record per point as
// text or as packed little-endian binary. Only the x, y, z fields are kept.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "reader_util.h"

namespace metrofit::io::detail {

namespace {

// Fewest bytes an ascii value takes: one digit and a separator.
constexpr std::size_t kMinAsciiValueBytes = 2;
constexpr char kPositionNames[kCoordinates][2] = {"x", "y", "z"};

enum class PcdData { kAscii, kBinary };

struct PcdField {
  std::string name;
  Scalar type = Scalar::kFloat32;
  std::uint64_t count = 1;
  std::size_t offset = 0;  // in a binary record
  std::size_t value = 0;   // index of its first value in an ascii record
};

struct PcdHeader {
  std::vector<PcdField> fields;
  std::uint64_t points = 0;
  std::size_t record_bytes = 0;
  std::size_t record_values = 0;
  PcdData data = PcdData::kAscii;
  std::size_t data_offset = 0;
  std::size_t lines = 0;
  std::size_t positions[kCoordinates] = {};
};

// The raw header entries, before they are checked against each other.
struct PcdEntries {
  std::vector<std::string_view> fields, sizes, types, counts;
  std::uint64_t width = 0, height = 1, points = 0;
  bool has_width = false, has_points = false;
  std::size_t line = 0;  // of DATA
};

std::uint64_t Count(const Source& source, std::size_t line,
                    const std::vector<std::string_view>& words) {
  std::uint64_t value = 0;
  if (words.size() != 2 || !ParseCount(words[1], &value)) {
    FailAtLine(source, line, "expected '" + std::string(words[0]) + " <count>'");
  }
  return value;
}

PcdData DataKind(const Source& source, std::size_t line,
                 const std::vector<std::string_view>& words) {
  if (words.size() == 2 && words[1] == "ascii") return PcdData::kAscii;
  if (words.size() == 2 && words[1] == "binary") return PcdData::kBinary;
  if (words.size() == 2 && words[1] == "binary_compressed") {
    FailAtLine(source, line,
               "DATA binary_compressed is not read; save the cloud with DATA binary or ascii");
  }
  FailAtLine(source, line, "expected 'DATA ascii' or 'DATA binary'");
}

// Stores one header line; true when it was the DATA line that ends the header.
bool TakeHeaderLine(const Source& source, std::size_t line,
                    const std::vector<std::string_view>& words, PcdEntries* entries,
                    PcdHeader* header) {
  const std::string_view key = words[0];
  const std::vector<std::string_view> rest(words.begin() + 1, words.end());
  if (key == "VERSION" || key == "VIEWPOINT") return false;
  if (key == "FIELDS" || key == "COLUMNS") {
    entries->fields = rest;
  } else if (key == "SIZE") {
    entries->sizes = rest;
  } else if (key == "TYPE") {
    entries->types = rest;
  } else if (key == "COUNT") {
    entries->counts = rest;
  } else if (key == "WIDTH") {
    entries->width = Count(source, line, words);
    entries->has_width = true;
  } else if (key == "HEIGHT") {
    entries->height = Count(source, line, words);
  } else if (key == "POINTS") {
    entries->points = Count(source, line, words);
    entries->has_points = true;
  } else if (key == "DATA") {
    header->data = DataKind(source, line, words);
    entries->line = line;
    return true;
  } else {
    FailAtLine(source, line, "unknown PCD header line " + Quote(key));
  }
  return false;
}

Scalar FieldType(const Source& source, std::size_t line, std::string_view type,
                 std::string_view size) {
  static constexpr struct {
    const char* type;
    const char* size;
    Scalar scalar;
  } kTypes[] = {{"I", "1", Scalar::kInt8},    {"I", "2", Scalar::kInt16},
                {"I", "4", Scalar::kInt32},   {"I", "8", Scalar::kInt64},
                {"U", "1", Scalar::kUint8},   {"U", "2", Scalar::kUint16},
                {"U", "4", Scalar::kUint32},  {"U", "8", Scalar::kUint64},
                {"F", "4", Scalar::kFloat32}, {"F", "8", Scalar::kFloat64}};
  for (const auto& entry : kTypes) {
    if (type == entry.type && size == entry.size) return entry.scalar;
  }
  FailAtLine(source, line, "unsupported field TYPE " + Quote(type) + " with SIZE " + Quote(size));
}

void BuildFields(const Source& source, const PcdEntries& entries, PcdHeader* header) {
  const std::size_t n = entries.fields.size();
  if (n == 0) FailAtLine(source, entries.line, "PCD header has no FIELDS line");
  const bool counts = !entries.counts.empty();
  if (entries.sizes.size() != n || entries.types.size() != n ||
      (counts && entries.counts.size() != n)) {
    FailAtLine(source, entries.line,
               "FIELDS, SIZE, TYPE and COUNT list different numbers of "
               "entries");
  }
  // A record larger than this cannot be meant; it also keeps the sums below from overflowing.
  constexpr std::uint64_t kMaxRecordValues = std::uint64_t{1} << 20;
  for (std::size_t i = 0; i < n; ++i) {
    PcdField field;
    field.name = std::string(entries.fields[i]);
    field.type = FieldType(source, entries.line, entries.types[i], entries.sizes[i]);
    if (counts && (!ParseCount(entries.counts[i], &field.count) || field.count == 0 ||
                   field.count > kMaxRecordValues)) {
      FailAtLine(source, entries.line, "bad COUNT " + Quote(entries.counts[i]));
    }
    field.offset = header->record_bytes;
    field.value = header->record_values;
    header->record_bytes += ScalarSize(field.type) * static_cast<std::size_t>(field.count);
    header->record_values += static_cast<std::size_t>(field.count);
    header->fields.push_back(std::move(field));
  }
}

void FindPositions(const Source& source, std::size_t line, PcdHeader* header) {
  for (std::size_t k = 0; k < kCoordinates; ++k) {
    const std::string name = kPositionNames[k];
    const auto count = std::count_if(header->fields.begin(), header->fields.end(),
                                     [&](const PcdField& f) { return f.name == name; });
    if (count != 1) {
      FailAtLine(source, line, "FIELDS must name '" + name + "' exactly once");
    }
    const auto field = std::find_if(header->fields.begin(), header->fields.end(),
                                    [&](const PcdField& f) { return f.name == name; });
    if (!IsFloatScalar(field->type) || field->count != 1) {
      FailAtLine(source, line, "field '" + name + "' must be TYPE F, SIZE 4 or 8, COUNT 1");
    }
    header->positions[k] = static_cast<std::size_t>(field - header->fields.begin());
  }
}

void SetPointCount(const Source& source, const PcdEntries& entries, PcdHeader* header) {
  if (!entries.has_width) FailAtLine(source, entries.line, "PCD header has no WIDTH line");
  const std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  if (entries.height != 0 && entries.width > kMax / entries.height) {
    FailAtLine(source, entries.line, "WIDTH x HEIGHT overflows");
  }
  const std::uint64_t organised = entries.width * entries.height;
  if (entries.has_points && entries.points != organised) {
    FailAtLine(source, entries.line,
               "POINTS " + std::to_string(entries.points) +
                   " disagrees with WIDTH x HEIGHT = " + std::to_string(organised));
  }
  header->points = organised;
}

PcdHeader ParseHeader(const Source& source) {
  LineReader lines(source.bytes);
  std::string_view line;
  PcdEntries entries;
  PcdHeader header;
  while (lines.Next(&line)) {
    const std::vector<std::string_view> words = SplitBlanks(StripComment(line));
    if (words.empty()) continue;
    if (!TakeHeaderLine(source, lines.number(), words, &entries, &header)) continue;
    header.data_offset = std::min(lines.offset(), source.bytes.size());
    header.lines = lines.number();
    BuildFields(source, entries, &header);
    FindPositions(source, entries.line, &header);
    SetPointCount(source, entries, &header);
    return header;
  }
  Fail(source, "PCD header has no DATA line");
}

// Refuses a declared count the remaining bytes cannot hold, before anything is allocated.
void CheckCount(const Source& source, const PcdHeader& header, std::size_t min_record) {
  const std::size_t remaining = source.bytes.size() - header.data_offset;
  if (header.points == 0 || header.points <= remaining / min_record) return;
  FailAtByte(source, header.data_offset,
             "header declares " + std::to_string(header.points) + " points of at least " +
                 std::to_string(min_record) + " bytes each, but " + std::to_string(remaining) +
                 " bytes follow the header");
}

PointCloud ReadBinary(const Source& source, const PcdHeader& header) {
  CheckCount(source, header, header.record_bytes);
  const std::size_t remaining = source.bytes.size() - header.data_offset;
  const std::size_t payload = static_cast<std::size_t>(header.points) * header.record_bytes;
  if (payload != remaining) {
    FailAtByte(
        source, header.data_offset + payload,
        std::to_string(remaining - payload) + " bytes follow the last point the header declares");
  }
  PointCloud cloud;
  cloud.xyz.reserve(payload / header.record_bytes * kCoordinates);
  for (std::size_t i = 0; i < header.points; ++i) {
    const std::size_t record = header.data_offset + i * header.record_bytes;
    for (const std::size_t slot : header.positions) {
      const PcdField& field = header.fields[slot];
      const double value =
          DecodeScalar(source.bytes.data() + record + field.offset, field.type, false);
      if (!std::isfinite(value)) {
        FailAtByte(source, record + field.offset,
                   "non-finite coordinate in point " + std::to_string(i));
      }
      cloud.xyz.push_back(value);
    }
  }
  return cloud;
}

PointCloud ReadAscii(const Source& source, const PcdHeader& header) {
  // A lying count shows as "... but N follow" below; only the reservation needs a bound.
  PointCloud cloud;
  cloud.xyz.reserve(SafeReserve(header.points, source.bytes.size() - header.data_offset,
                                header.record_values * kMinAsciiValueBytes));
  LineReader lines(source.bytes.substr(header.data_offset), header.lines + 1);
  std::string_view line;
  std::uint64_t found = 0;
  std::string error;
  while (lines.Next(&line)) {
    const std::vector<std::string_view> words = SplitBlanks(line);
    if (words.empty()) continue;
    if (found == header.points) {
      FailAtLine(source, lines.number(),
                 "more points than the header's " + std::to_string(header.points));
    }
    if (words.size() != header.record_values) {
      FailAtLine(source, lines.number(),
                 "found " + std::to_string(words.size()) + " values, the fields hold " +
                     std::to_string(header.record_values));
    }
    for (const std::size_t slot : header.positions) {
      double value = 0;
      if (!ParseNumber(words[header.fields[slot].value], '.', &value, &error)) {
        FailAtLine(source, lines.number(), error);
      }
      cloud.xyz.push_back(value);
    }
    ++found;
  }
  if (found != header.points) {
    FailAtLine(source, header.lines,
               "header declares " + std::to_string(header.points) + " points but " +
                   std::to_string(found) + " follow");
  }
  return cloud;
}

}  // namespace

PointCloud ReadPcd(const Source& source) {
  const PcdHeader header = ParseHeader(source);
  if (header.data == PcdData::kAscii) return ReadAscii(source, header);
  return ReadBinary(source, header);
}

}  // namespace metrofit::io::detail
