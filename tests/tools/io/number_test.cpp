// Strict number parsing shared by every text-based reader.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "reader_util.h"

namespace {

using metrofit::io::detail::ParseNumber;
using metrofit::io::detail::Quote;

// The value of `field`, failing the test when it is refused.
double Accept(const std::string& field, char mark = '.') {
  double value = 0;
  std::string error;
  EXPECT_TRUE(ParseNumber(field, mark, &value, &error)) << field << ": " << error;
  return value;
}

// Why `field` is refused; "" (a test failure) when it is accepted.
std::string Refuse(const std::string& field, char mark = '.') {
  double value = 0;
  std::string error;
  EXPECT_FALSE(ParseNumber(field, mark, &value, &error)) << field << " gave " << value;
  return error;
}

TEST(StrictNumber, AcceptsDecimalAndScientificForms) {
  EXPECT_EQ(Accept("1"), 1.0);
  EXPECT_EQ(Accept("-1.5"), -1.5);
  EXPECT_EQ(Accept(".5"), 0.5);
  EXPECT_EQ(Accept("-.25"), -0.25);
  EXPECT_EQ(Accept("5."), 5.0);
  EXPECT_EQ(Accept("1e3"), 1000.0);
  EXPECT_EQ(Accept("1E-3"), 1e-3);
  EXPECT_EQ(Accept("-2.5e+2"), -250.0);
  EXPECT_EQ(Accept("0.1"), 0.1);
  EXPECT_EQ(Accept("214.79002"), 214.79002);
  EXPECT_EQ(Accept("-152.24403"), -152.24403);
  EXPECT_TRUE(std::signbit(Accept("-0.0")));
}

TEST(StrictNumber, AcceptsOneLeadingPlus) {
  EXPECT_EQ(Accept("+2.25"), 2.25);
  EXPECT_EQ(Accept("+.5"), 0.5);
  EXPECT_NE(Refuse("++1").find("is not a number"), std::string::npos);
  EXPECT_NE(Refuse("+-1").find("is not a number"), std::string::npos);
  EXPECT_NE(Refuse("-+1").find("is not a number"), std::string::npos);
  EXPECT_NE(Refuse("+").find("is not a number"), std::string::npos);
}

TEST(StrictNumber, RefusesWhatIsNotADecimalNumber) {
  for (const char* field :
       {"",   "-",   ".",   "-.",  "0x1A", "0x1p3", "1.5abc", "1..2", "1.2.3", "1e",      "1e+",
        "e5", ".e1", "--1", "1 2", " 1",   "1 ",    "1_000",  "abc",  "1d0",   "\xD9\xA1"}) {
    EXPECT_NE(Refuse(field).find("is not a number"), std::string::npos) << field;
  }
}

TEST(StrictNumber, RefusesNonFiniteValues) {
  for (const char* field :
       {"nan", "NaN", "-nan", "inf", "-inf", "+Inf", "infinity", "1e400", "-1e999"}) {
    EXPECT_EQ(Refuse(field), "non-finite coordinate '" + std::string(field) + "'") << field;
  }
}

TEST(StrictNumber, NamesTheDecimalCommaOption) {
  const std::string error = Refuse("1,5");
  EXPECT_NE(error.find("decimal comma in '1,5'"), std::string::npos) << error;
  EXPECT_NE(error.find("--decimal-comma"), std::string::npos) << error;
}

TEST(StrictNumber, ReadsDecimalCommasWhenAsked) {
  EXPECT_EQ(Accept("1,5", ','), 1.5);
  EXPECT_EQ(Accept("-0,25", ','), -0.25);
  EXPECT_EQ(Accept("+3,0e2", ','), 300.0);
  EXPECT_EQ(Accept(",5", ','), 0.5);
  EXPECT_EQ(Accept("42", ','), 42.0);
  const std::string error = Refuse("1.5", ',');
  EXPECT_NE(error.find("decimal point in '1.5'"), std::string::npos) << error;
  EXPECT_NE(Refuse("1,2,3", ',').find("is not a number"), std::string::npos);
}

TEST(Quote, EscapesControlBytesAndCapsLength) {
  EXPECT_EQ(Quote("abc"), "'abc'");
  EXPECT_EQ(Quote(std::string("a\x01\x1b[31m\x7f\xff", 9)), "'a\\x01\\x1B[31m\\x7F\\xFF'");
  EXPECT_EQ(Quote(std::string("\0", 1)), "'\\x00'");
  EXPECT_EQ(Quote("a\\b"), "'a\\\\b'");
  const std::string quoted = Quote(std::string(5000, 'x'));
  EXPECT_LT(quoted.size(), 80u);
  EXPECT_NE(quoted.find("... (5000 bytes)"), std::string::npos) << quoted;
}

}  // namespace
