#include "report.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <vector>

namespace metrofit::cli {

namespace {

constexpr int kTableDecimals = 6;
// Beyond this magnitude fixed notation gets unreadably long.
constexpr double kFixedLimit = 1e9;
constexpr std::size_t kColumnGap = 2;

// One line of the report: a label for the table, a key for JSON and the value in both forms.
struct Row {
  std::string label;
  std::string key;
  std::string table;
  std::string json;
};

// The report in three parts; JSON gathers the middle one in a "sizes" object.
struct Rows {
  std::vector<Row> head;
  std::vector<Row> sizes;
  std::vector<Row> tail;
};

std::string TableVector(const KPt3<double>& v) {
  return TableNumber(v.x) + "  " + TableNumber(v.y) + "  " + TableNumber(v.z);
}

std::string JsonVector(const KPt3<double>& v) {
  return "[" + JsonNumber(v.x) + ", " + JsonNumber(v.y) + ", " + JsonNumber(v.z) + "]";
}

Row NumberRow(const std::string& label, const std::string& key, double value) {
  return {label, key, TableNumber(value), JsonNumber(value)};
}

Row IntegerRow(const std::string& label, const std::string& key, long long value) {
  const std::string text = std::to_string(value);
  return {label, key, text, text};
}

std::vector<Row> HeadRows(const FitReport& report) {
  const Shape& shape = report.shape;
  const CFitResult& r = report.result;
  std::vector<Row> rows;
  rows.push_back({"shape", "shape", shape.name, JsonString(shape.name)});
  rows.push_back({"function", "function", shape.function, JsonString(shape.function)});
  rows.push_back(IntegerRow("points", "points", static_cast<long long>(report.points)));
  rows.push_back(IntegerRow("valid", "valid", report.status != 0 ? 1 : 0));
  if (shape.fields & kIterations) {
    rows.push_back(IntegerRow("iterations", "iterations", r.m_iterations));
  }
  if (shape.fields & kCentre) {
    rows.push_back({shape.centre_label, "centre", TableVector(r.m_center), JsonVector(r.m_center)});
  }
  if (shape.fields & kAxis) {
    rows.push_back({shape.axis_label, "axis", TableVector(r.m_axis), JsonVector(r.m_axis)});
  }
  return rows;
}

std::vector<Row> TailRows(const FitReport& report) {
  const CFitResult& r = report.result;
  const unsigned fields = report.shape.fields;
  std::vector<Row> rows;
  if (fields & kStatistics) {
    rows.push_back(NumberRow("sigma", "sigma", r.m_sigma));
    rows.push_back(NumberRow("rms", "rms", r.m_rms));
    rows.push_back(NumberRow("min deviation", "min_deviation", r.m_minDeviation));
    rows.push_back(NumberRow("max deviation", "max_deviation", r.m_maxDeviation));
  }
  if (fields & kFormError) rows.push_back(NumberRow("form error", "form_error", r.m_formError));
  rows.push_back({"message", "message", r.m_message, JsonString(r.m_message)});
  return rows;
}

Rows CollectRows(const FitReport& report) {
  Rows rows{HeadRows(report), {}, TailRows(report)};
  for (const SizeSlot& slot : report.shape.sizes) {
    rows.sizes.push_back(NumberRow(slot.label, slot.key, SizeValue(report.result, slot)));
  }
  return rows;
}

// "key": value lines of a JSON object at the given indent, without the braces.
std::string JsonMembers(const std::vector<Row>& rows, const std::string& indent) {
  std::string text;
  for (const Row& row : rows) {
    if (!text.empty()) text += ",\n";
    text += indent + JsonString(row.key) + ": " + row.json;
  }
  return text;
}

}  // namespace

std::string TableNumber(double value) {
  // The C library may print a sign on NaN; it means nothing there.
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  // Print -0 as 0: a sign on a zero only confuses a reader.
  if (value == 0.0) value = 0.0;
  const char* format = std::fabs(value) < kFixedLimit ? "%.*f" : "%.*e";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, kTableDecimals, value);
  return buffer;
}

std::string JsonNumber(double value) {
  if (!std::isfinite(value)) return "null";
  char buffer[64];
  const std::to_chars_result res = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, res.ptr);
}

std::string JsonString(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    switch (c) {
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\t':
        quoted += "\\t";
        break;
      case '\r':
        quoted += "\\r";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char buffer[8];
          std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(c));
          quoted += buffer;
        } else {
          quoted += c;
        }
    }
  }
  return quoted + "\"";
}

void WriteTable(std::ostream& out, const FitReport& report) {
  const Rows parts = CollectRows(report);
  std::vector<Row> rows = parts.head;
  rows.insert(rows.end(), parts.sizes.begin(), parts.sizes.end());
  rows.insert(rows.end(), parts.tail.begin(), parts.tail.end());
  // An empty message carries no information in a table.
  if (report.result.m_message.empty()) rows.pop_back();
  std::size_t width = 0;
  for (const Row& row : rows) width = std::max(width, row.label.size());
  for (const Row& row : rows) {
    out << row.label << std::string(width + kColumnGap - row.label.size(), ' ') << row.table
        << '\n';
  }
}

void WriteJson(std::ostream& out, const FitReport& report) {
  const Rows parts = CollectRows(report);
  std::vector<Row> top = parts.head;
  // Every shape has a "sizes" object, empty when it has no sizes, so readers find the key.
  const std::string sizes = JsonMembers(parts.sizes, "    ");
  top.push_back({"", "sizes", "", sizes.empty() ? "{}" : "{\n" + sizes + "\n  }"});
  top.insert(top.end(), parts.tail.begin(), parts.tail.end());
  out << "{\n" << JsonMembers(top, "  ") << "\n}\n";
}

}  // namespace metrofit::cli
