// Line-oriented formats: whitespace (or comma) separated text, CSV and PTS.
#include <algorithm>
#include <cctype>
#include <string>

#include "reader_util.h"

namespace metrofit::io::detail {

namespace {

// The shortest text line that can hold a point: "0 0 0"; bounds what a declared count reserves.
constexpr std::size_t kMinPointLineBytes = 6;
// PTS lines: x y z, x y z intensity, x y z r g b, x y z intensity r g b.
constexpr std::size_t kPtsFieldCounts[] = {3, 4, 6, 7};

// At most one point a line: the lines long enough to hold "0 0 0" bound the points of line
// text. Reserving that up front spares the copies of a growing array, which hold the old and
// the new array at once; the room header and comment lines leave unused is never written.
std::size_t PointLineBound(std::string_view bytes) {
  std::size_t lines = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= bytes.size(); ++i) {
    if (i < bytes.size() && bytes[i] != '\n' && bytes[i] != '\r') continue;
    if (i - start + 1 >= kMinPointLineBytes) ++lines;
    start = i + 1;
  }
  return lines;
}

void ReserveForLines(const Source& source, PointCloud* cloud) {
  cloud->xyz.reserve(kCoordinates * PointLineBound(source.bytes));
}

char DecimalMark(const ReadOptions& options) {
  return options.decimal_comma ? ',' : '.';
}

// Why a line that mixes blank and comma separation is refused.
constexpr char kMixedSeparators[] =
    "fields separated by both blanks and commas; if the commas are decimal commas, use "
    "--decimal-comma";

// Splits a text line on single commas (blanks around them allowed); false on an empty field
// or on blanks that separate two fields without a comma.
bool SplitCommas(std::string_view text, std::vector<std::string_view>* fields, std::string* error) {
  std::size_t start = 0;
  while (true) {
    const std::size_t comma = text.find(',', start);
    const std::string_view field = Trim(text.substr(start, comma - start));
    if (field.empty()) {
      *error = "empty field";
      return false;
    }
    if (SplitBlanks(field).size() != 1) {
      *error = kMixedSeparators;
      return false;
    }
    fields->push_back(field);
    if (comma == std::string_view::npos) return true;
    start = comma + 1;
  }
}

bool SplitTextLine(std::string_view text, bool decimal_comma, std::vector<std::string_view>* fields,
                   std::string* error) {
  if (decimal_comma || text.find(',') == std::string_view::npos) {
    SplitBlanks(text, fields);
    return true;
  }
  fields->clear();
  return SplitCommas(text, fields, error);
}

// Every field of a line as a number; all must be numbers, not only the ones kept.
void ParseAll(const Source& source, std::size_t line, const std::vector<std::string_view>& fields,
              char mark, std::vector<double>* values) {
  values->resize(fields.size());
  std::string error;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (!ParseNumber(fields[i], mark, &(*values)[i], &error)) FailAtLine(source, line, error);
  }
}

void AppendColumns(const Source& source, std::size_t line,
                   const std::vector<std::string_view>& fields,
                   const std::vector<std::size_t>& columns, char mark, PointCloud* cloud) {
  std::string error;
  for (const std::size_t column : columns) {
    double value = 0;
    if (!ParseNumber(fields[column], mark, &value, &error)) FailAtLine(source, line, error);
    cloud->xyz.push_back(value);
  }
}

void AppendValues(const std::vector<double>& values, const std::vector<std::size_t>& columns,
                  PointCloud* cloud) {
  for (const std::size_t column : columns) cloud->xyz.push_back(values[column]);
}

// Checks the first data row's width against the columns to read.
void CheckWidth(const Source& source, std::size_t line, std::size_t width,
                const ReadOptions& options) {
  if (options.columns.empty() && width < kCoordinates) {
    FailAtLine(source, line,
               "found " + std::to_string(width) + (width == 1 ? " column" : " columns") +
                   ", a point needs 3 (x y z)");
  }
  for (const int column : options.columns) {
    if (static_cast<std::size_t>(column) > width) {
      FailAtLine(source, line,
                 "column " + std::to_string(column) + " was chosen but the row has " +
                     std::to_string(width));
    }
  }
}

// ---- CSV ----

// Splits a CSV row; a field may be enclosed in double quotes, with "" for a quote inside.
bool SplitCsv(std::string_view row, char delimiter, std::vector<std::string>* fields,
              std::string* error) {
  fields->clear();
  std::size_t i = 0;
  while (true) {
    std::string field;
    while (i < row.size() && row[i] != delimiter && IsBlank(row[i])) ++i;
    if (i < row.size() && row[i] == '"') {
      ++i;
      while (true) {
        if (i >= row.size()) {
          *error = "unterminated quoted field";
          return false;
        }
        if (row[i] == '"' && i + 1 < row.size() && row[i + 1] == '"') {
          field += '"';
          i += 2;
        } else if (row[i] == '"') {
          ++i;
          break;
        } else {
          field += row[i++];
        }
      }
      while (i < row.size() && row[i] != delimiter && IsBlank(row[i])) ++i;
      if (i < row.size() && row[i] != delimiter) {
        *error = "text after a quoted field";
        return false;
      }
    } else {
      const std::size_t end = std::min(row.find(delimiter, i), row.size());
      field = std::string(Trim(row.substr(i, end - i)));
      i = end;
    }
    fields->push_back(std::move(field));
    if (i >= row.size()) return true;
    ++i;  // the delimiter
  }
}

bool IsCsvContent(std::string_view line) {
  return !Trim(line).empty() && Trim(line)[0] != kComment;
}

char DetectDelimiter(const Source& source, std::size_t line, std::string_view row,
                     bool decimal_comma) {
  for (const char candidate : {'\t', ';'}) {
    if (row.find(candidate) != std::string_view::npos) return candidate;
  }
  if (decimal_comma) {
    FailAtLine(source, line,
               "no semicolon or tab delimiter in the first row; with decimal commas the "
               "columns must be separated by semicolons or tabs");
  }
  if (row.find(',') != std::string_view::npos) return ',';
  const std::string hint = SplitBlanks(row).size() > 1
                               ? "; blank-separated columns are read as text, with a header "
                                 "line commented out by '#'"
                               : "";
  FailAtLine(source, line,
             "no delimiter (comma, semicolon or tab) in the first row " + Quote(row) + hint);
}

std::string Lowercase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// A first row is a header when one of the fields read as coordinates is a word.
bool IsHeaderRow(const std::vector<std::string>& fields, const std::vector<std::size_t>& read) {
  return std::any_of(read.begin(), read.end(),
                     [&](std::size_t column) { return !LooksNumeric(fields[column]); });
}

std::vector<std::size_t> AllColumns(std::size_t width) {
  std::vector<std::size_t> all(width);
  for (std::size_t i = 0; i < width; ++i) all[i] = i;
  return all;
}

// The indices of the x, y, z columns a header names.
std::vector<std::size_t> HeaderColumns(const Source& source, std::size_t line,
                                       const std::vector<std::string>& header) {
  std::vector<std::size_t> columns;
  for (const char* name : {"x", "y", "z"}) {
    std::size_t found = header.size();
    for (std::size_t i = 0; i < header.size(); ++i) {
      if (Lowercase(header[i]) != name) continue;
      if (found != header.size()) {
        FailAtLine(source, line, std::string("header names column '") + name + "' twice");
      }
      found = i;
    }
    if (found == header.size()) {
      FailAtLine(source, line,
                 std::string("the first row is not numeric and has no '") + name +
                     "' column; name the columns x, y, z or choose them with --columns");
    }
    columns.push_back(found);
  }
  return columns;
}

std::string FieldCountHint(char delimiter, bool decimal_comma) {
  if (delimiter != ',' || decimal_comma) return "";
  return " (if the commas are decimal commas, use --decimal-comma with semicolon or tab "
         "delimiters)";
}

// ---- PTS ----

bool IsPtsFieldCount(std::size_t count) {
  return std::find(std::begin(kPtsFieldCounts), std::end(kPtsFieldCounts), count) !=
         std::end(kPtsFieldCounts);
}

struct PtsBlock {
  std::uint64_t declared = 0;
  std::uint64_t found = 0;
  std::size_t line = 0;  // of the count
};

void CheckPtsBlockComplete(const Source& source, const PtsBlock& block) {
  if (block.found == block.declared) return;
  FailAtLine(source, block.line,
             "declares " + std::to_string(block.declared) + " points but " +
                 std::to_string(block.found) + " follow");
}

}  // namespace

PointCloud ReadText(const Source& source, const ReadOptions& options) {
  const std::vector<std::size_t> columns = ColumnIndices(options);
  const char mark = DecimalMark(options);
  PointCloud cloud;
  ReserveForLines(source, &cloud);
  LineReader lines(source.bytes);
  std::string_view line;
  std::vector<std::string_view> fields;
  std::vector<double> values;
  std::size_t width = 0;
  std::string error;
  while (lines.Next(&line)) {
    if (!SplitTextLine(StripComment(line), options.decimal_comma, &fields, &error)) {
      FailAtLine(source, lines.number(), error);
    }
    if (fields.empty()) continue;
    if (width == 0) {
      width = fields.size();
      CheckWidth(source, lines.number(), width, options);
    } else if (fields.size() != width) {
      FailAtLine(source, lines.number(),
                 "found " + std::to_string(fields.size()) + " values, the first point line has " +
                     std::to_string(width));
    }
    ParseAll(source, lines.number(), fields, mark, &values);
    AppendValues(values, columns, &cloud);
  }
  return cloud;
}

PointCloud ReadCsv(const Source& source, const ReadOptions& options) {
  const char mark = DecimalMark(options);
  PointCloud cloud;
  ReserveForLines(source, &cloud);
  LineReader lines(source.bytes);
  std::string_view line;
  std::vector<std::string> fields;
  std::string error;
  char delimiter = 0;
  std::size_t width = 0;
  std::vector<std::size_t> columns = ColumnIndices(options);
  while (lines.Next(&line)) {
    if (!IsCsvContent(line)) continue;
    const bool first = delimiter == 0;
    if (first) delimiter = DetectDelimiter(source, lines.number(), line, options.decimal_comma);
    if (!SplitCsv(line, delimiter, &fields, &error)) FailAtLine(source, lines.number(), error);
    if (first) {
      width = fields.size();
      CheckWidth(source, lines.number(), width, options);
      const bool chosen = !options.columns.empty();
      if (IsHeaderRow(fields, chosen ? columns : AllColumns(width))) {
        if (options.columns.empty()) columns = HeaderColumns(source, lines.number(), fields);
        continue;
      }
    } else if (fields.size() != width) {
      FailAtLine(source, lines.number(),
                 "found " + std::to_string(fields.size()) + " fields, the first row has " +
                     std::to_string(width) + FieldCountHint(delimiter, options.decimal_comma));
    }
    std::vector<std::string_view> views(fields.begin(), fields.end());
    AppendColumns(source, lines.number(), views, columns, mark, &cloud);
  }
  return cloud;
}

PointCloud ReadPts(const Source& source, const ReadOptions& options) {
  const char mark = DecimalMark(options);
  PointCloud cloud;
  LineReader lines(source.bytes);
  std::string_view line;
  PtsBlock block;
  bool in_block = false;
  const std::vector<std::size_t> position = ColumnIndices(ReadOptions());  // x y z first
  std::vector<std::string_view> fields;
  std::vector<double> values;
  while (lines.Next(&line)) {
    SplitBlanks(StripComment(line), &fields);
    if (fields.empty()) continue;
    if (!in_block || (block.found == block.declared && fields.size() == 1)) {
      if (fields.size() != 1 || !ParseCount(fields[0], &block.declared)) {
        FailAtLine(source, lines.number(),
                   "expected the point count of a PTS scan, found " + Quote(Trim(line)));
      }
      block.found = 0;
      block.line = lines.number();
      in_block = true;
      cloud.xyz.reserve(cloud.xyz.size() +
                        SafeReserve(block.declared, source.bytes.size(), kMinPointLineBytes));
      continue;
    }
    if (block.found == block.declared) {
      FailAtLine(source, lines.number(),
                 "more points than the " + std::to_string(block.declared) + " declared on line " +
                     std::to_string(block.line));
    }
    if (fields.size() == 1) CheckPtsBlockComplete(source, block);
    if (!IsPtsFieldCount(fields.size())) {
      FailAtLine(source, lines.number(),
                 "found " + std::to_string(fields.size()) +
                     " values; a PTS point is x y z [intensity] [r g b]");
    }
    ParseAll(source, lines.number(), fields, mark, &values);
    AppendValues(values, position, &cloud);
    ++block.found;
  }
  if (!in_block) Fail(source, "no point count: the file holds no PTS data");
  CheckPtsBlockComplete(source, block);
  return cloud;
}

}  // namespace metrofit::io::detail
