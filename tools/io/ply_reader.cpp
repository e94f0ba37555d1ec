// PLY: a text header of elements and their properties, then the element records as text or
// as packed binary in either byte order. Only the vertex positions are kept.
#include <algorithm>
#include <cmath>
#include <string>

#include "reader_util.h"

namespace metrofit::io::detail {

namespace {

// Fewest bytes an ascii property value takes: one digit and a separator.
constexpr std::size_t kMinAsciiValueBytes = 2;
constexpr char kVertex[] = "vertex";

enum class PlyEncoding { kAscii, kLittleEndian, kBigEndian };

struct PlyProperty {
  std::string name;
  Scalar type = Scalar::kFloat32;
  bool is_list = false;
  Scalar count_type = Scalar::kUint8;
};

struct PlyElement {
  std::string name;
  std::uint64_t count = 0;
  std::vector<PlyProperty> properties;
  std::size_t line = 0;
};

struct PlyHeader {
  PlyEncoding encoding = PlyEncoding::kAscii;
  std::vector<PlyElement> elements;
  std::size_t data_offset = 0;
  std::size_t lines = 0;
};

struct ScalarName {
  const char* name;
  Scalar type;
};

constexpr ScalarName kScalarNames[] = {
    {"char", Scalar::kInt8},      {"int8", Scalar::kInt8},       {"uchar", Scalar::kUint8},
    {"uint8", Scalar::kUint8},    {"short", Scalar::kInt16},     {"int16", Scalar::kInt16},
    {"ushort", Scalar::kUint16},  {"uint16", Scalar::kUint16},   {"int", Scalar::kInt32},
    {"int32", Scalar::kInt32},    {"uint", Scalar::kUint32},     {"uint32", Scalar::kUint32},
    {"float", Scalar::kFloat32},  {"float32", Scalar::kFloat32}, {"double", Scalar::kFloat64},
    {"float64", Scalar::kFloat64}};

Scalar ScalarType(const Source& source, std::size_t line, std::string_view name) {
  for (const ScalarName& entry : kScalarNames) {
    if (name == entry.name) return entry.type;
  }
  FailAtLine(source, line, "unknown PLY property type " + Quote(name));
}

PlyEncoding Encoding(const Source& source, std::size_t line,
                     const std::vector<std::string_view>& words) {
  if (words.size() != 3 || words[2] != "1.0") {
    FailAtLine(source, line, "expected 'format <encoding> 1.0'");
  }
  if (words[1] == "ascii") return PlyEncoding::kAscii;
  if (words[1] == "binary_little_endian") return PlyEncoding::kLittleEndian;
  if (words[1] == "binary_big_endian") return PlyEncoding::kBigEndian;
  FailAtLine(source, line, "unknown PLY format " + Quote(words[1]));
}

PlyProperty Property(const Source& source, std::size_t line,
                     const std::vector<std::string_view>& words) {
  PlyProperty property;
  if (words.size() == 5 && words[1] == "list") {
    property.is_list = true;
    property.count_type = ScalarType(source, line, words[2]);
    property.type = ScalarType(source, line, words[3]);
    property.name = std::string(words[4]);
    if (!IsIntegerScalar(property.count_type)) {
      FailAtLine(source, line, "a list count must have an integer type");
    }
    return property;
  }
  if (words.size() != 3) {
    FailAtLine(source, line, "expected 'property <type> <name>' or 'property list ...'");
  }
  property.type = ScalarType(source, line, words[1]);
  property.name = std::string(words[2]);
  return property;
}

void AddElement(const Source& source, std::size_t line, const std::vector<std::string_view>& words,
                PlyHeader* header) {
  PlyElement element;
  if (words.size() != 3 || !ParseCount(words[2], &element.count)) {
    FailAtLine(source, line, "expected 'element <name> <count>'");
  }
  element.name = std::string(words[1]);
  element.line = line;
  header->elements.push_back(std::move(element));
}

void ParseHeaderLine(const Source& source, std::size_t line,
                     const std::vector<std::string_view>& words, bool* has_format,
                     PlyHeader* header) {
  const std::string_view keyword = words[0];
  if (keyword == "comment" || keyword == "obj_info") return;
  if (keyword == "format") {
    if (*has_format) FailAtLine(source, line, "second 'format' line");
    header->encoding = Encoding(source, line, words);
    *has_format = true;
  } else if (keyword == "element") {
    AddElement(source, line, words, header);
  } else if (keyword == "property") {
    if (header->elements.empty()) FailAtLine(source, line, "property before any element");
    header->elements.back().properties.push_back(Property(source, line, words));
  } else {
    FailAtLine(source, line, "unknown PLY header line " + Quote(words[0]));
  }
}

PlyHeader ParseHeader(const Source& source) {
  LineReader lines(source.bytes);
  std::string_view line;
  if (!lines.Next(&line) || Trim(line) != "ply") {
    FailAtLine(source, 1, "not a PLY file: the first line is not 'ply'");
  }
  PlyHeader header;
  bool has_format = false;
  while (lines.Next(&line)) {
    const std::vector<std::string_view> words = SplitBlanks(line);
    if (words.empty()) continue;
    if (words[0] == "end_header") {
      if (!has_format) FailAtLine(source, lines.number(), "PLY header has no 'format' line");
      header.data_offset = std::min(lines.offset(), source.bytes.size());
      header.lines = lines.number();
      return header;
    }
    ParseHeaderLine(source, lines.number(), words, &has_format, &header);
  }
  Fail(source, "PLY header has no 'end_header' line");
}

const PlyProperty* FindProperty(const PlyElement& element, const std::string& name) {
  const PlyProperty* found = nullptr;
  std::size_t count = 0;
  for (const PlyProperty& property : element.properties) {
    if (property.name != name) continue;
    found = &property;
    ++count;
  }
  return count == 1 ? found : nullptr;
}

// Checks the header for vertex positions the reader can take.
// Element names are unique: a second "vertex" would be read with the first one's positions.
void CheckUniqueElements(const Source& source, const PlyHeader& header) {
  for (std::size_t i = 0; i < header.elements.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (header.elements[i].name != header.elements[j].name) continue;
      FailAtLine(source, header.elements[i].line,
                 "element " + Quote(header.elements[i].name) + " declared twice");
    }
  }
}

void CheckHeader(const Source& source, const PlyHeader& header) {
  CheckUniqueElements(source, header);
  const auto vertex = std::find_if(header.elements.begin(), header.elements.end(),
                                   [](const PlyElement& e) { return e.name == kVertex; });
  if (vertex == header.elements.end()) Fail(source, "PLY header has no 'vertex' element");
  for (const char* name : {"x", "y", "z"}) {
    const PlyProperty* property = FindProperty(*vertex, name);
    if (property == nullptr) {
      FailAtLine(source, vertex->line,
                 std::string("the vertex element needs exactly one '") + name + "' property");
    }
    if (property->is_list || !IsFloatScalar(property->type)) {
      FailAtLine(source, vertex->line,
                 std::string("vertex property '") + name + "' must be float or double");
    }
  }
  for (const PlyElement& element : header.elements) {
    if (element.properties.empty() && element.count > 0) {
      FailAtLine(source, element.line, "element " + Quote(element.name) + " has no properties");
    }
  }
}

// The smallest number of bytes one record of `element` can take.
std::size_t MinRecordBytes(const PlyElement& element, PlyEncoding encoding) {
  std::size_t bytes = 0;
  for (const PlyProperty& property : element.properties) {
    if (encoding == PlyEncoding::kAscii) {
      bytes += kMinAsciiValueBytes;
    } else {
      bytes += ScalarSize(property.is_list ? property.count_type : property.type);
    }
  }
  return bytes;
}

// Refuses a declared count the remaining bytes cannot hold, before anything is allocated.
void CheckCount(const Source& source, const PlyElement& element, PlyEncoding encoding,
                std::size_t offset) {
  const std::size_t remaining = source.bytes.size() - offset;
  const std::size_t min_bytes = MinRecordBytes(element, encoding);
  if (element.count == 0 || element.count <= remaining / min_bytes) return;
  FailAtByte(source, offset,
             "header declares " + std::to_string(element.count) + " " + Quote(element.name) +
                 " elements of at least " + std::to_string(min_bytes) + " bytes each, but " +
                 std::to_string(remaining) + " bytes follow the header");
}

// Index of each of x, y, z in the vertex properties.
std::vector<std::size_t> PositionSlots(const PlyElement& vertex) {
  std::vector<std::size_t> slots;
  for (const char* name : {"x", "y", "z"}) {
    const PlyProperty* property = FindProperty(vertex, name);
    slots.push_back(static_cast<std::size_t>(property - vertex.properties.data()));
  }
  return slots;
}

// ---- binary ----

class BinaryRecords {
 public:
  BinaryRecords(const Source& source, const PlyHeader& header)
      : source_(source),
        pos_(header.data_offset),
        big_endian_(header.encoding == PlyEncoding::kBigEndian) {}

  void Read(const PlyElement& element, PointCloud* cloud) {
    CheckCount(source_, element, big_endian_ ? PlyEncoding::kBigEndian : PlyEncoding::kLittleEndian,
               pos_);
    const bool is_vertex = element.name == kVertex;
    std::vector<std::size_t> slots;
    if (is_vertex) {
      slots = PositionSlots(element);
      cloud->xyz.reserve(cloud->xyz.size() + element.count * kCoordinates);
    }
    double xyz[kCoordinates];
    for (std::uint64_t i = 0; i < element.count; ++i) {
      for (std::size_t p = 0; p < element.properties.size(); ++p) {
        const PlyProperty& property = element.properties[p];
        if (property.is_list) {
          SkipList(element, property, i);
          continue;
        }
        const std::size_t at = pos_;
        const double value = Take(property.type, element, i);
        if (!is_vertex) continue;
        for (std::size_t k = 0; k < kCoordinates; ++k) {
          if (slots[k] != p) continue;
          if (!std::isfinite(value)) FailAtByte(source_, at, "non-finite vertex coordinate");
          xyz[k] = value;
        }
      }
      if (is_vertex) cloud->xyz.insert(cloud->xyz.end(), xyz, xyz + kCoordinates);
    }
  }

  void CheckEnd() const {
    if (pos_ == source_.bytes.size()) return;
    FailAtByte(source_, pos_,
               std::to_string(source_.bytes.size() - pos_) +
                   " bytes follow the last element the header declares");
  }

 private:
  void Need(std::uint64_t bytes, const PlyElement& element, std::uint64_t index) const {
    if (bytes <= source_.bytes.size() - pos_) return;
    FailAtByte(source_, pos_,
               "truncated: " + Quote(element.name) + " element " + std::to_string(index) + " of " +
                   std::to_string(element.count) + " needs " + std::to_string(bytes) +
                   " more bytes, " + std::to_string(source_.bytes.size() - pos_) + " remain");
  }

  double Take(Scalar type, const PlyElement& element, std::uint64_t index) {
    Need(ScalarSize(type), element, index);
    const double value = DecodeScalar(source_.bytes.data() + pos_, type, big_endian_);
    pos_ += ScalarSize(type);
    return value;
  }

  void SkipList(const PlyElement& element, const PlyProperty& property, std::uint64_t index) {
    const std::size_t at = pos_;
    const double count = Take(property.count_type, element, index);
    if (count < 0) FailAtByte(source_, at, "negative list length");
    const std::uint64_t bytes = static_cast<std::uint64_t>(count) * ScalarSize(property.type);
    Need(bytes, element, index);
    pos_ += static_cast<std::size_t>(bytes);
  }

  const Source& source_;
  std::size_t pos_;
  bool big_endian_;
};

PointCloud ReadBinary(const Source& source, const PlyHeader& header) {
  PointCloud cloud;
  BinaryRecords records(source, header);
  for (const PlyElement& element : header.elements) records.Read(element, &cloud);
  records.CheckEnd();
  return cloud;
}

// ---- ascii ----

class AsciiRecords {
 public:
  AsciiRecords(const Source& source, const PlyHeader& header)
      : source_(source),
        lines_(source.bytes.substr(header.data_offset), header.lines + 1),
        offset_(header.data_offset) {}

  void Read(const PlyElement& element, PointCloud* cloud) {
    // A lying count shows when the file ends early; only the reservation needs a bound.
    const bool is_vertex = element.name == kVertex;
    std::vector<std::size_t> slots;
    if (is_vertex) {
      slots = PositionSlots(element);
      cloud->xyz.reserve(cloud->xyz.size() +
                         SafeReserve(element.count, source_.bytes.size() - offset_,
                                     MinRecordBytes(element, PlyEncoding::kAscii)));
    }
    for (std::uint64_t i = 0; i < element.count; ++i) {
      const std::vector<std::string_view> words = NextRecord(element, i);
      const std::vector<double> values = Values(element, words);
      if (!is_vertex) continue;
      for (const std::size_t slot : slots) cloud->xyz.push_back(values[slot]);
    }
  }

  void CheckEnd() {
    std::string_view line;
    while (lines_.Next(&line)) {
      if (!Trim(line).empty()) {
        FailAtLine(source_, lines_.number(), "data after the last element the header declares");
      }
    }
  }

 private:
  std::vector<std::string_view> NextRecord(const PlyElement& element, std::uint64_t index) {
    std::string_view line;
    while (lines_.Next(&line)) {
      std::vector<std::string_view> words = SplitBlanks(line);
      if (!words.empty()) return words;
    }
    FailAtLine(source_, element.line,
               "declares " + std::to_string(element.count) + " " + Quote(element.name) +
                   " elements but the file ends after " + std::to_string(index));
  }

  double Number(std::string_view word) const {
    double value = 0;
    std::string error;
    if (!ParseNumber(word, '.', &value, &error)) FailAtLine(source_, lines_.number(), error);
    return value;
  }

  // One value per property; a list gets a placeholder, since positions are never lists.
  std::vector<double> Values(const PlyElement& element,
                             const std::vector<std::string_view>& words) const {
    std::vector<double> values;
    std::size_t w = 0;
    for (const PlyProperty& property : element.properties) {
      if (w >= words.size()) Short(element);
      if (!property.is_list) {
        values.push_back(Number(words[w++]));
        continue;
      }
      std::uint64_t count = 0;
      if (!ParseCount(words[w], &count)) {
        FailAtLine(source_, lines_.number(), "list length " + Quote(words[w]) + " is not a count");
      }
      ++w;
      if (count > words.size() - w) Short(element);
      for (std::uint64_t k = 0; k < count; ++k) Number(words[w++]);
      values.push_back(0);
    }
    if (w != words.size()) {
      const std::size_t extra = words.size() - w;
      FailAtLine(source_, lines_.number(),
                 std::to_string(extra) + (extra == 1 ? " value" : " values") + " too many for a " +
                     Quote(element.name) + " element");
    }
    return values;
  }

  [[noreturn]] void Short(const PlyElement& element) const {
    FailAtLine(source_, lines_.number(),
               "too few values for a " + Quote(element.name) + " element");
  }

  const Source& source_;
  LineReader lines_;
  std::size_t offset_;
};

PointCloud ReadAscii(const Source& source, const PlyHeader& header) {
  PointCloud cloud;
  AsciiRecords records(source, header);
  for (const PlyElement& element : header.elements) records.Read(element, &cloud);
  records.CheckEnd();
  return cloud;
}

}  // namespace

PointCloud ReadPly(const Source& source) {
  const PlyHeader header = ParseHeader(source);
  CheckHeader(source, header);
  if (header.encoding == PlyEncoding::kAscii) return ReadAscii(source, header);
  return ReadBinary(source, header);
}

}  // namespace metrofit::io::detail
