#include "Kel/Strep.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

using namespace Kel;
using ::testing::HasSubstr;

namespace {

// Parses all of text as a T through the field name "f".
template <class T>
T parseAll(String const& text) {
  StrepIt pos = text.begin();
  T v = deserializeAttr<T>(pos, text.end(), "f");
  strepToValueEnd(text, pos);
  return v;
}

template <class E, class F>
std::string messageOf(F&& f) {
  try {
    f();
  } catch (E const& e) {
    return e.what();
  }
  ADD_FAILURE() << "no exception";
  return "";
}

TEST(StrepTest, IntegerTexts) {
  constexpr auto i64min = std::numeric_limits<long long>::min();
  constexpr auto u64max = std::numeric_limits<unsigned long long>::max();
  EXPECT_EQ(valueToStrep(0LL), "0");
  EXPECT_EQ(valueToStrep(-12LL), "-12");
  EXPECT_EQ(valueToStrep(i64min), "-9223372036854775808");
  EXPECT_EQ(valueToStrep(u64max), "18446744073709551615");
  EXPECT_EQ(valueToStrep(std::uint8_t{200}), "200");
  EXPECT_EQ(valueToStrep(std::int16_t{-5}), "-5");
  EXPECT_EQ(parseAll<long long>("-9223372036854775808"), i64min);
  EXPECT_EQ(parseAll<unsigned long long>("18446744073709551615"), u64max);
  EXPECT_EQ(parseAll<std::int8_t>("-128"), -128);
  EXPECT_EQ(parseAll<std::uint8_t>("255"), 255);
  EXPECT_EQ(parseAll<std::int32_t>("-2147483648"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(parseAll<std::uint16_t>("-0"), 0);
}

TEST(StrepTest, IntegerErrors) {
  struct Case {
    std::string text;
    std::string message;
    bool range;
  };
  auto run = [](Case const& c, auto parse) {
    SCOPED_TRACE(c.text);
    if (c.range) {
      EXPECT_EQ(messageOf<RangeException>(parse), c.message);
    } else {
      EXPECT_EQ(messageOf<ParseException>(parse), c.message);
    }
  };
  for (Case const& c : std::initializer_list<Case>{
           {"300", "subtype: 300 does not fit unsigned 8-bit", true},
           {"-1", "subtype: -1 does not fit unsigned 8-bit", true},
           {"99999999999999999999", "subtype: 99999999999999999999 does not fit unsigned 8-bit", true},
           {"abc", "subtype: expected an integer but found \"abc\"", false},
           {"-", "subtype: expected an integer but found \"-\"", false},
           {"", "subtype: expected an integer but found end of text", false},
       }) {
    run(c, [&] {
      String s(c.text);
      StrepIt p = s.begin();
      deserializeAttr<std::uint8_t>(p, s.end(), "subtype");
    });
  }
  for (Case const& c : std::initializer_list<Case>{
           {"-129", "index: -129 does not fit signed 8-bit", true},
           {"128", "index: 128 does not fit signed 8-bit", true},
       }) {
    run(c, [&] {
      String s(c.text);
      StrepIt p = s.begin();
      deserializeAttr<std::int8_t>(p, s.end(), "index");
    });
  }
  EXPECT_EQ(messageOf<RangeException>([] { parseAll<long long>("9223372036854775808"); }),
            "f: 9223372036854775808 does not fit signed 64-bit");
}

TEST(StrepTest, BoolTexts) {
  EXPECT_EQ(valueToStrep(true), "True");
  EXPECT_EQ(valueToStrep(false), "False");
  EXPECT_TRUE(parseAll<bool>("True"));
  EXPECT_FALSE(parseAll<bool>("False"));
  EXPECT_EQ(messageOf<ParseException>([] { parseAll<bool>("true"); }),
            "f: expected True or False but found \"true\"");
}

TEST(StrepTest, DoubleTexts) {
  struct Case {
    double v;
    const char* text;
  };
  for (Case c : std::initializer_list<Case>{
           {1.0, "1.0"},
           {-0.0, "-0.0"},
           {0.1, "0.1"},
           {1e100, "1e+100"},
           {1e-300, "1e-300"},
           {123456789012345678.0, "123456789012345680.0"},
           {5e-324, "5e-324"},
           {std::numeric_limits<double>::infinity(), "inf"},
           {-std::numeric_limits<double>::infinity(), "-inf"},
           {-std::numeric_limits<double>::quiet_NaN(), "nan"},
       }) {
    EXPECT_EQ(valueToStrep(c.v), c.text);
    double back = parseAll<double>(c.text);
    if (std::isnan(c.v)) {
      EXPECT_TRUE(std::isnan(back));
    } else {
      EXPECT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(c.v)) << c.text;
    }
  }
  for (double v : {2.2250738585072014e-308, 2.225073858507201e-308, 1.7976931348623157e308, 1.0 / 3}) {
    EXPECT_EQ(std::bit_cast<std::uint64_t>(parseAll<double>(valueToStrep(v))), std::bit_cast<std::uint64_t>(v));
  }
  EXPECT_EQ(parseAll<double>("42"), 42.0);
  EXPECT_EQ(messageOf<ParseException>([] { parseAll<double>("x1"); }), "f: expected a number but found \"x1\"");
  EXPECT_EQ(messageOf<RangeException>([] { parseAll<double>("1e999"); }), "f: 1e999 does not fit double");
}

TEST(StrepTest, StringTexts) {
  struct Case {
    String v;
    const char* text;
  };
  for (Case const& c : std::initializer_list<Case>{
           {"", "''"},
           {"Ethernet1/2", "'Ethernet1/2'"},
           {"a'b\\c\"", "'a\\'b\\\\c\"'"},
           {"\n\r\t", "'\\n\\r\\t'"},
           {String("\0\x1f\x7f\x80\xff", 5), "'\\x00\\x1f\\x7f\\x80\\xff'"},
       }) {
    EXPECT_EQ(valueToStrep(c.v), c.text);
    EXPECT_EQ(parseAll<String>(c.text), c.v);
  }
  String all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_EQ(parseAll<String>(valueToStrep(all)), all);
  // The other quote style and the escapes the printer never writes.
  EXPECT_EQ(parseAll<String>("\"it's\\\"\\0\\xAb\""), String("it's\"\0\xab", 7));
  String appended("x=");
  appendStrep(appended, String("y"));
  EXPECT_EQ(appended, "x='y'");
}

TEST(StrepTest, StringErrors) {
  for (auto const& [text, message] : std::initializer_list<std::pair<const char*, const char*>>{
           {"'abc", "f: expected the closing quote of the string but found end of text"},
           {"'ab\"", "f: expected the closing quote of the string but found end of text"},
           {"'a\\", "f: expected the closing quote of the string but found end of text"},
           {"'\\q'", "f: expected a valid escape (\\\\ \\' \\\" \\n \\r \\t \\0 \\xHH) but found \"\\\\q'\""},
           {"'\\x4'", "f: expected an escape \\xHH with two hex digits but found \"\\\\x4'\""},
           {"'\\x4", "f: expected an escape \\xHH with two hex digits but found \"\\\\x4\""},
           {"abc", "f: expected a quoted string but found \"abc\""},
       }) {
    const char* input = text;  // clang 14 cannot capture a structured binding
    EXPECT_EQ(messageOf<ParseException>([input] { parseAll<String>(input); }), message) << text;
  }
}

TEST(StrepTest, NeedStringAndLeftovers) {
  String s("Value('X', ** {'a': 1})");
  StrepIt pos = s.begin();
  needString(pos, s.end(), "Value('X', ** {");
  needString(pos, s.end(), "'a': ");
  EXPECT_EQ(deserializeAttr<int>(pos, s.end(), "a"), 1);
  EXPECT_EQ(messageOf<ParseException>([&] { strepToValueEnd(s, pos); }),
            "unexpected text after the value: \"})\"");
  StrepIt at = pos;
  EXPECT_EQ(messageOf<ParseException>([&] { needString(at, s.end(), "}) and more"); }),
            "expected \"}) and more\" but found \"})\"");
  EXPECT_EQ(at, pos);  // a failed match consumes nothing
  String t("',  'chassisId': 'abcdefghijklmnopqrstuvwxyz'})");
  StrepIt p = t.begin();
  EXPECT_EQ(messageOf<ParseException>([&] { needString(p, t.end(), "', 'chassisId': "); }),
            "expected \"', 'chassisId': \" but found \"',  'chassisId': 'abcdef...\"");
  EXPECT_EQ(strepToValue<String>("'x'"), "x");
}

TEST(StrepTest, RethrowNamesTheFieldOnce) {
  EXPECT_EQ(messageOf<RangeException>([] {
              rethrowFromDeserializeAttr(RangeException("ChassisId::value::bytes > 255 not allowed"), "chassisId");
            }),
            "chassisId: ChassisId::value::bytes > 255 not allowed");
  EXPECT_EQ(messageOf<RangeException>([] {
              rethrowFromDeserializeAttr(RangeException("subtype: 300 does not fit unsigned 8-bit"), "subtype");
            }),
            "subtype: 300 does not fit unsigned 8-bit");
}

}  // namespace
