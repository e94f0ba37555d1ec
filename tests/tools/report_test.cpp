#include "report.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tools_test_util.h"

namespace {

using metrofit::cli::AllShapes;
using metrofit::cli::FindShape;
using metrofit::cli::FitReport;
using metrofit::cli::JsonNumber;
using metrofit::cli::JsonString;
using metrofit::cli::TableNumber;
using metrofit::cli::WriteJson;
using metrofit::cli::WriteTable;
using metrofit_tools_test::JsonSyntax;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

std::string Table(const char* shape, std::int32_t status, const CFitResult& r) {
  std::ostringstream out;
  WriteTable(out, FitReport{*FindShape(shape), 57, status, r});
  return out.str();
}

std::string Json(const char* shape, std::int32_t status, const CFitResult& r) {
  std::ostringstream out;
  WriteJson(out, FitReport{*FindShape(shape), 57, status, r});
  return out.str();
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void FillSphere(CFitResult* r) {
  r->m_center = KPt3<double>(212.438, -148.716, 305.204);
  r->m_size1.x = 12.5;
  r->m_iterations = 4;
  r->m_valid = 1;
  r->m_sigma = 0.0015;
  r->m_rms = 0.0014;
  r->m_minDeviation = 0.0001;
  r->m_maxDeviation = 0.003;
  r->m_formError = 0.0055;
}

TEST(CliReport, JsonNumbersAreShortestExactOrNull) {
  EXPECT_EQ(JsonNumber(5.0), "5");
  EXPECT_EQ(JsonNumber(0.1), "0.1");
  EXPECT_EQ(JsonNumber(-148.716), "-148.716");
  EXPECT_EQ(JsonNumber(kNaN), "null");
  EXPECT_EQ(JsonNumber(kInf), "null");
  EXPECT_EQ(JsonNumber(-kInf), "null");
  for (const double v : {1.0 / 3.0, 1e300, 4.9e-324, -2.5e-7}) {
    EXPECT_EQ(std::strtod(JsonNumber(v).c_str(), nullptr), v) << JsonNumber(v);
    EXPECT_TRUE(JsonSyntax::Valid(JsonNumber(v))) << JsonNumber(v);
  }
}

TEST(CliReport, JsonStringsAreEscaped) {
  EXPECT_EQ(JsonString("plain"), "\"plain\"");
  EXPECT_EQ(JsonString("say \"2\"\\n"), "\"say \\\"2\\\"\\\\n\"");
  EXPECT_EQ(JsonString("a\nb\tc\r"), "\"a\\nb\\tc\\r\"");
  EXPECT_EQ(JsonString(std::string("\x01\x1f", 2)), "\"\\u0001\\u001f\"");
  EXPECT_TRUE(JsonSyntax::Valid(JsonString(std::string("\x01\"\\\n\x7f", 5))));
}

TEST(CliReport, TableNumbersHaveSixDecimals) {
  EXPECT_EQ(TableNumber(5.0), "5.000000");
  EXPECT_EQ(TableNumber(-148.7161234567), "-148.716123");
  EXPECT_EQ(TableNumber(-0.0), "0.000000");
  EXPECT_EQ(TableNumber(kNaN), "nan");
  EXPECT_EQ(TableNumber(-kNaN), "nan");
  EXPECT_EQ(TableNumber(-kInf), "-inf");
  EXPECT_EQ(TableNumber(2e12), "2.000000e+12");
}

TEST(CliReport, TheJsonCheckRejectsBrokenDocuments) {
  EXPECT_TRUE(JsonSyntax::Valid("{\"a\": [1, -2.5e-3, null, true], \"b\": {}}"));
  for (const char* bad : {"{\"a\": nan}", "{\"a\": 1,}", "[1 2]", "{a: 1}", "01", "1.", "",
                          "{\"a\": 1} x", "\"tab\there\"", "[-inf]"}) {
    EXPECT_FALSE(JsonSyntax::Valid(bad)) << bad;
  }
}

TEST(CliReport, SphereTable) {
  CFitResult r;
  FillSphere(&r);
  EXPECT_EQ(Table("sphere", 1, r),
            "shape          sphere\n"
            "function       KFitSphere\n"
            "points         57\n"
            "valid          1\n"
            "iterations     4\n"
            "centre         212.438000  -148.716000  305.204000\n"
            "radius         12.500000\n"
            "sigma          0.001500\n"
            "rms            0.001400\n"
            "min deviation  0.000100\n"
            "max deviation  0.003000\n"
            "form error     0.005500\n");
}

TEST(CliReport, TableShowsAMessageOnlyWhenThereIsOne) {
  CFitResult r;
  r.m_size2.y = 0.0;
  EXPECT_EQ(Table("distance", 1, r).find("message"), std::string::npos);
  r.m_message = "2 Points are needed for this measurement.";
  const auto lines = Lines(Table("distance", 0, r));
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "message   2 Points are needed for this measurement.");
  EXPECT_NE(Table("distance", 0, r).find("valid     0\n"), std::string::npos);
}

TEST(CliReport, TableColumnsLineUpForEveryShape) {
  CFitResult r;
  FillSphere(&r);
  r.m_message = "note";
  for (const auto& shape : AllShapes()) {
    const auto lines = Lines(Table(shape.name, 1, r));
    std::size_t column = 0;  // where the first value starts, after the widest label
    for (const auto& line : lines) column = std::max(column, line.find("  ") + 2);
    for (const auto& line : lines) {
      ASSERT_GT(line.size(), column) << shape.name << ": " << line;
      EXPECT_EQ(line.substr(column - 2, 2), "  ") << shape.name << ": " << line;
      EXPECT_NE(line[column], ' ') << shape.name << ": " << line;
    }
  }
}

TEST(CliReport, ShapesNameTheirCentreAndAxis) {
  CFitResult r;
  EXPECT_NE(Table("cone", 1, r).find("\napex  "), std::string::npos);
  EXPECT_NE(Table("paraboloid", 1, r).find("\nvertex  "), std::string::npos);
  EXPECT_NE(Table("plane", 1, r).find("\nnormal  "), std::string::npos);
  EXPECT_NE(Table("line", 1, r).find("\ndirection  "), std::string::npos);
  EXPECT_NE(Table("torus", 1, r).find("\nmajor radius  "), std::string::npos);
  EXPECT_EQ(Table("sphere", 1, r).find("axis"), std::string::npos);
}

TEST(CliReport, SphereJson) {
  CFitResult r;
  FillSphere(&r);
  EXPECT_EQ(Json("sphere", 1, r),
            "{\n"
            "  \"shape\": \"sphere\",\n"
            "  \"function\": \"KFitSphere\",\n"
            "  \"points\": 57,\n"
            "  \"valid\": 1,\n"
            "  \"iterations\": 4,\n"
            "  \"centre\": [212.438, -148.716, 305.204],\n"
            "  \"sizes\": {\n"
            "    \"radius\": 12.5\n"
            "  },\n"
            "  \"sigma\": 0.0015,\n"
            "  \"rms\": 0.0014,\n"
            "  \"min_deviation\": 1e-04,\n"
            "  \"max_deviation\": 0.003,\n"
            "  \"form_error\": 0.0055,\n"
            "  \"message\": \"\"\n"
            "}\n");
}

TEST(CliReport, JsonValidReflectsTheReturnedStatus) {
  CFitResult r;
  r.m_valid = 1;  // the status of the function decides, not the field
  EXPECT_NE(Json("circle", 0, r).find("\"valid\": 0,"), std::string::npos);
  EXPECT_NE(Json("circle", 1, r).find("\"valid\": 1,"), std::string::npos);
}

TEST(CliReport, JsonHasAnEmptySizesObjectForShapesWithoutSizes) {
  CFitResult r;
  EXPECT_NE(Json("line", 1, r).find("\"sizes\": {},"), std::string::npos);
  EXPECT_NE(Json("point", 1, r).find("\"sizes\": {},"), std::string::npos);
}

TEST(CliReport, JsonIsValidForEveryShapeWithNonFiniteValues) {
  CFitResult r;
  r.m_center = KPt3<double>(kNaN, kInf, -kInf);
  r.m_axis = KPt3<double>(kNaN, kNaN, kNaN);
  r.m_size1 = r.m_size2 = r.m_size3 = KPt3<double>(kNaN, -kInf, kNaN);
  r.m_sigma = r.m_rms = r.m_minDeviation = r.m_maxDeviation = r.m_formError = kNaN;
  r.m_message = "line \"one\"\n\tand \\ two";
  for (const auto& shape : AllShapes()) {
    const std::string json = Json(shape.name, 0, r);
    EXPECT_TRUE(JsonSyntax::Valid(json)) << json;
    EXPECT_EQ(json.find("nan"), std::string::npos) << json;
    EXPECT_EQ(json.find("inf"), std::string::npos) << json;
    EXPECT_NE(json.find("\"message\": \"line \\\"one\\\"\\n\\tand \\\\ two\""), std::string::npos)
        << json;
  }
}

}  // namespace
