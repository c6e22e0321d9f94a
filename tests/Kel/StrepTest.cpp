#include "Kel/Strep.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>

using namespace Kel;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// Parses all of text as a T through the field name "f".
template <class T>
T parseAll(String const& text, const char* field = "f") {
  StrepIt pos = text.begin();
  T v = deserializeAttr<T>(pos, text.end(), field);
  strepToValueEnd(text, pos);
  return v;
}

String allBytes() {
  String s;
  for (int b = 0; b < 256; ++b) s += static_cast<char>(b);
  return s;
}

TEST(StrepTest, PrintedTexts) {
  std::pair<String, const char*> const cases[] = {
      {valueToStrep(true), "True"},
      {valueToStrep(false), "False"},
      {valueToStrep(std::numeric_limits<long long>::min()), "-9223372036854775808"},
      {valueToStrep(std::numeric_limits<unsigned long long>::max()), "18446744073709551615"},
      {valueToStrep(std::int16_t{-5}), "-5"},
      {valueToStrep(1.0), "1.0"},
      {valueToStrep(-0.0), "-0.0"},
      {valueToStrep(0.1), "0.1"},
      {valueToStrep(1e100), "1e+100"},
      {valueToStrep(123456789012345678.0), "123456789012345680.0"},
      {valueToStrep(5e-324), "5e-324"},
      {valueToStrep(-kInf), "-inf"},
      {valueToStrep(-std::numeric_limits<double>::quiet_NaN()), "nan"},
      {valueToStrep(""), "''"},
      {valueToStrep("a'b\\c\"\n\r\t"), "'a\\'b\\\\c\"\\n\\r\\t'"},
      {valueToStrep(String("\0\x1f\x7f\x80\xff", 5)), "'\\x00\\x1f\\x7f\\x80\\xff'"},
  };
  for (auto const& [printed, expected] : cases) EXPECT_EQ(printed, expected);
  String appended("x=");
  appendStrep(appended, String("y"));
  appendStrep(appended, 2.0);
  EXPECT_EQ(appended, "x='y'2.0");
}

TEST(StrepTest, RoundTrips) {
  EXPECT_EQ(parseAll<long long>(valueToStrep(std::numeric_limits<long long>::min())),
            std::numeric_limits<long long>::min());
  EXPECT_EQ(parseAll<std::uint64_t>(valueToStrep(std::numeric_limits<std::uint64_t>::max())),
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(parseAll<std::int8_t>("-128"), -128);
  EXPECT_EQ(parseAll<std::uint16_t>("-0"), 0);
  EXPECT_TRUE(parseAll<bool>("True"));
  EXPECT_FALSE(parseAll<bool>("False"));
  for (double v : {0.1, 1e-300, 5e-324, 2.225073858507201e-308, 1.7976931348623157e308, -0.0, -kInf, 1.0 / 3}) {
    EXPECT_EQ(std::bit_cast<std::uint64_t>(parseAll<double>(valueToStrep(v))), std::bit_cast<std::uint64_t>(v)) << v;
  }
  EXPECT_TRUE(std::isnan(parseAll<double>("nan")));
  EXPECT_EQ(parseAll<double>("42"), 42.0);
  EXPECT_EQ(parseAll<String>(valueToStrep(allBytes())), allBytes());
  // The other quote style and the escapes that the printer never writes.
  EXPECT_EQ(parseAll<String>("\"it's\\\"\\0\\xAb\""), String("it's\"\0\xab", 7));
  EXPECT_EQ(strepToValue<String>("'x'"), "x");
}

TEST(StrepTest, ParseErrors) {
  struct Case {
    std::function<void()> parse;
    const char* message;
    bool range;
  };
  auto u8 = [](const char* t) { return [t] { parseAll<std::uint8_t>(t, "subtype"); }; };
  auto str = [](const char* t) { return [t] { parseAll<String>(t); }; };
  Case const cases[] = {
      {u8("300"), "subtype: 300 does not fit unsigned 8-bit", true},
      {u8("-1"), "subtype: -1 does not fit unsigned 8-bit", true},
      {u8("99999999999999999999"), "subtype: 99999999999999999999 does not fit unsigned 8-bit", true},
      {u8("abc"), "subtype: expected an integer but found \"abc\"", false},
      {u8("-"), "subtype: expected an integer but found \"-\"", false},
      {u8(""), "subtype: expected an integer but found end of text", false},
      {u8("7 "), "unexpected text after the value: \" \"", false},
      {[] { parseAll<std::int8_t>("-129"); }, "f: -129 does not fit signed 8-bit", true},
      {[] { parseAll<long long>("9223372036854775808"); }, "f: 9223372036854775808 does not fit signed 64-bit",
       true},
      {[] { parseAll<bool>("true"); }, "f: expected True or False but found \"true\"", false},
      {[] { parseAll<double>("x1"); }, "f: expected a number but found \"x1\"", false},
      {[] { parseAll<double>("1e999"); }, "f: 1e999 does not fit double", true},
      {str("'abc"), "f: expected the closing quote of the string but found end of text", false},
      {str("'ab\""), "f: expected the closing quote of the string but found end of text", false},
      {str("'a\\"), "f: expected the closing quote of the string but found end of text", false},
      {str("'\\q'"), "f: expected a valid escape (\\\\ \\' \\\" \\n \\r \\t \\0 \\xHH) but found \"\\\\q'\"", false},
      {str("'\\x4'"), "f: expected an escape \\xHH with two hex digits but found \"\\\\x4'\"", false},
      {str("'\\x4"), "f: expected an escape \\xHH with two hex digits but found \"\\\\x4\"", false},
      {str("abc"), "f: expected a quoted string but found \"abc\"", false},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.message);
    try {
      c.parse();
      ADD_FAILURE() << "no exception";
    } catch (RangeException const& e) {
      EXPECT_TRUE(c.range);
      EXPECT_STREQ(e.what(), c.message);
    } catch (ParseException const& e) {
      EXPECT_FALSE(c.range);
      EXPECT_STREQ(e.what(), c.message);
    }
  }
}

std::string parseMessage(String const& text, std::string_view literal) {
  StrepIt pos = text.begin();
  try {
    needString(pos, text.end(), literal);
  } catch (ParseException const& e) {
    EXPECT_EQ(pos, text.begin());  // a failed match consumes nothing
    return e.what();
  }
  return "matched, rest " + std::string(pos, text.end());
}

TEST(StrepTest, NeedString) {
  EXPECT_EQ(parseMessage("'a': 1", "'a': "), "matched, rest 1");
  EXPECT_EQ(parseMessage("})", "}) and more"), "expected \"}) and more\" but found \"})\"");
  EXPECT_EQ(parseMessage("", "})"), "expected \"})\" but found end of text");
  EXPECT_EQ(parseMessage("',  'chassisId': 'abcdefghijklmnopqrstuvwxyz'})", "', 'chassisId': "),
            "expected \"', 'chassisId': \" but found \"',  'chassisId': 'abcdef...\"");
}

TEST(StrepTest, RethrowNamesTheFieldOnce) {
  for (auto [original, expected] : {std::pair{"ChassisId::value::bytes > 255 not allowed",
                                               "chassisId: ChassisId::value::bytes > 255 not allowed"},
                                    {"chassisId: 300 does not fit unsigned 8-bit",
                                     "chassisId: 300 does not fit unsigned 8-bit"}}) {
    try {
      rethrowFromDeserializeAttr(RangeException(original), "chassisId");
    } catch (RangeException const& e) {
      EXPECT_STREQ(e.what(), expected);
    }
  }
}

}  // namespace
