// The text form of values (Strep) and the binary attribute log (NboAttrLog).
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <variant>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"

using namespace Kel;
using namespace Kel::NboAttrLog;
using Token = Out::TransactToken;

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

TEST(StrepTest, PrintedTexts) {
  std::pair<String, const char*> const cases[] = {
      {valueToStrep(true), "True"}, {valueToStrep(false), "False"},
      {valueToStrep(std::numeric_limits<long long>::min()), "-9223372036854775808"},
      {valueToStrep(std::numeric_limits<unsigned long long>::max()), "18446744073709551615"},
      {valueToStrep(1.0), "1.0"}, {valueToStrep(-0.0), "-0.0"}, {valueToStrep(0.1), "0.1"},
      {valueToStrep(1e100), "1e+100"}, {valueToStrep(123456789012345678.0), "123456789012345680.0"},
      {valueToStrep(5e-324), "5e-324"}, {valueToStrep(-kInf), "-inf"},
      {valueToStrep(-std::numeric_limits<double>::quiet_NaN()), "nan"}, {valueToStrep(""), "''"},
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
  EXPECT_TRUE(parseAll<bool>("True") && !parseAll<bool>("False"));
  for (double v : {0.1, 1e-300, 5e-324, 2.225073858507201e-308, 1.7976931348623157e308, -0.0, -kInf, 1.0 / 3})
    EXPECT_EQ(std::bit_cast<std::uint64_t>(parseAll<double>(valueToStrep(v))), std::bit_cast<std::uint64_t>(v)) << v;
  EXPECT_TRUE(std::isnan(parseAll<double>("nan")));
  EXPECT_EQ(parseAll<double>("42"), 42.0);
  String allBytes;
  for (int b = 0; b < 256; ++b) allBytes += static_cast<char>(b);
  EXPECT_EQ(parseAll<String>(valueToStrep(allBytes)), allBytes);
  // The other quote style and the escapes that the printer never writes.
  EXPECT_EQ(parseAll<String>("\"it's\\\"\\0\\xAb\""), String("it's\"\0\xab", 7));
}

TEST(StrepTest, ParseErrors) {
  struct Case { std::function<void()> parse; const char* message; bool range; };
  auto u8 = [](const char* t) { return [t] { parseAll<std::uint8_t>(t, "subtype"); }; };
  auto str = [](const char* t) { return [t] { parseAll<String>(t); }; };
  Case const cases[] = {
      {u8("300"), "subtype: 300 does not fit unsigned 8-bit", true},
      {u8("-1"), "subtype: -1 does not fit unsigned 8-bit", true},
      {u8("99999999999999999999"), "subtype: 99999999999999999999 does not fit unsigned 8-bit", true},
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
      {str("'a\\"), "f: expected the closing quote of the string but found end of text", false},
      {str("'\\q'"), "f: expected a valid escape (\\\\ \\' \\\" \\n \\r \\t \\0 \\xHH) but found \"\\\\q'\"", false},
      {str("'\\x4'"), "f: expected an escape \\xHH with two hex digits but found \"\\\\x4'\"", false},
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

// What needString says about text, or what follows its match.
std::string needMessage(String const& text, std::string_view literal) {
  StrepIt pos = text.begin();
  try {
    needString(pos, text.end(), literal);
  } catch (ParseException const& e) {
    EXPECT_EQ(pos, text.begin());  // a failed match consumes nothing
    return e.what();
  }
  return "matched, rest " + std::string(pos, text.end());
}

TEST(StrepTest, NeedStringAndRethrow) {
  EXPECT_EQ(needMessage("'a': 1", "'a': "), "matched, rest 1");
  EXPECT_EQ(needMessage("})", "}) and more"), "expected \"}) and more\" but found \"})\"");
  EXPECT_EQ(needMessage("", "})"), "expected \"})\" but found end of text");
  EXPECT_EQ(needMessage("',  'chassisId': 'abcdefghijklmnopqrstuvwxyz'})", "', 'chassisId': "),
            "expected \"', 'chassisId': \" but found \"',  'chassisId': 'abcdef...\"");
  // The field is named once, whether or not the message already names it.
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

struct Id {
  AttributeId v;
  bool operator==(Id const&) const = default;
};
using Prim = std::variant<std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t, std::int32_t, std::int64_t,
                          bool, double, String, Token, Id>;

void put(Out& o, Prim const& p) {
  std::visit([&](auto const& v) {
    using T = std::decay_t<decltype(v)>;
    if constexpr (std::is_same_v<T, Id>) o.putAttributeId(v.v);
    else if constexpr (std::is_same_v<T, std::uint64_t>) o.putU64(v);
    else if constexpr (std::is_same_v<T, std::int64_t>) o.putS64(v);
    else o << v;  // the operators the value types use
  }, p);
}

Prim next(In& in, Prim const& like) {
  switch (like.index()) {
    case 0: return in.nextU8();
    case 1: return in.nextU16();
    case 2: return in.nextU32();
    case 3: return in.nextU64();
    case 4: return in.nextS32();
    case 5: return in.nextS64();
    case 6: return in.nextbool();
    case 7: return in.nextSeconds();
    case 8: return in.nextString();
    case 9: return in.nextToken();
    default: return Id{in.nextAttributeId()};
  }
}

String hex(String const& s) {
  String out;
  for (std::size_t i = 0; i < s.size(); ++i) out += format("%02x", s[i]);
  return out;
}

// Exactly n heap bytes of s, so that ASan reports any read past the end.
std::unique_ptr<char[]> exactCopy(String const& s, std::size_t n) {
  std::unique_ptr<char[]> copy(new char[n ? n : 1]);
  std::memcpy(copy.get(), s.data(), n);
  return copy;
}

TEST(NboAttrLog, EdgeValuesAreBigEndianAndRoundTrip) {
  struct Case { Prim value; const char* bytes; };
  const Case cases[] = {
      {std::uint8_t{0xff}, "ff"}, {std::uint16_t{0x1234}, "1234"}, {std::uint32_t{0x01020304}, "01020304"},
      {std::uint64_t{0x8000000000000001ull}, "8000000000000001"},
      {std::numeric_limits<std::int32_t>::min(), "80000000"}, {std::int32_t{-2}, "fffffffe"},
      {std::numeric_limits<std::int64_t>::min(), "8000000000000000"}, {std::int64_t{-1}, "ffffffffffffffff"},
      {false, "00"}, {true, "01"}, {-0.0, "8000000000000000"}, {-2.5, "c004000000000000"},
      {kInf, "7ff0000000000000"}, {std::numeric_limits<double>::quiet_NaN(), "7ff8000000000000"},
      {String(), "00000000"}, {String("\0\xff" "x", 3), "0000000300ff78"}, {String(std::string(300, 'q')), nullptr},
      {Token::begin, "01"}, {Token::end, "02"}, {Id{258}, "00000102"},
  };
  Out all;
  for (auto const& c : cases) {
    Out o;
    put(o, c.value);
    if (c.bytes) {
      EXPECT_EQ(hex(o.bytes()), String(c.bytes)) << "primitive " << c.value.index();
    }
    put(all, c.value);
  }
  auto copy = exactCopy(all.bytes(), all.bytes().size());
  In in(copy.get(), all.bytes().size());
  for (auto const& c : cases) {
    Prim back = next(in, c.value);
    EXPECT_TRUE(c.value.index() == 7 ? std::bit_cast<std::uint64_t>(std::get<7>(back)) ==
                                           std::bit_cast<std::uint64_t>(std::get<7>(c.value))
                                     : back == c.value) << "primitive " << c.value.index();
  }
  EXPECT_TRUE(in.atEnd());
  // The integer widths of the stream operators: long is 64 bits, unsigned char 8.
  Out o;
  o << static_cast<unsigned char>(7) << 7L << 7UL;
  EXPECT_EQ(hex(o.bytes()), String("0700000000000000070000000000000007"));
}

TEST(NboAttrLog, EveryTruncationRaisesAtTheCutField) {
  const std::vector<Prim> fields = {std::uint8_t{1}, std::uint16_t{2}, std::uint32_t{3}, std::uint64_t{4},
                                    std::int32_t{-5}, std::int64_t{-6}, true, 7.5, String("hello"), Token::end,
                                    Id{300}};
  Out o;
  std::vector<std::size_t> starts;
  for (auto const& f : fields) {
    starts.push_back(o.bytes().size());
    put(o, f);
  }
  for (std::size_t n = 0; n < o.bytes().size(); ++n) {
    std::size_t cut = 0;  // the field the cut falls into
    while (cut + 1 < starts.size() && starts[cut + 1] <= n) ++cut;
    auto copy = exactCopy(o.bytes(), n);
    In in(copy.get(), n);
    try {
      for (auto const& f : fields) next(in, f);
      ADD_FAILURE() << "no exception for " << n << " bytes";
    } catch (AttrLogException const& e) {
      EXPECT_NE(std::string(e.what()).find(format("at offset %zu", starts[cut]).stdString()), std::string::npos)
          << n << " bytes: " << e.what();
      EXPECT_EQ(in.position(), starts[cut]);
    }
  }
}

TEST(NboAttrLog, CorruptOrTruncatedInputMessages) {
  struct Case { String bytes; Prim like; const char* message; };
  const Case cases[] = {
      {String("\x00\x01\x02", 3), std::uint32_t{}, "NboAttrLog::In: truncated u32 at offset 0 (3 bytes left)"},
      {String("\x02", 1), false, "NboAttrLog::In: corrupt bool 0x02 at offset 0 (expected 0 or 1)"},
      {String("\x03", 1), Token::end, "NboAttrLog::In: corrupt transaction token 0x03 at offset 0 (expected 1 or 2)"},
      {String("\xff\xff\xff\xff" "abc", 7), String(),
       "NboAttrLog::In: truncated string at offset 0 (length 4294967295, 3 bytes left)"},
      {String("\x00\x00\x00", 3), String(), "NboAttrLog::In: truncated string length at offset 0 (3 bytes left)"},
  };
  for (auto const& c : cases) {
    In in(c.bytes);
    try {
      next(in, c.like);
      ADD_FAILURE() << "accepted " << hex(c.bytes);
    } catch (AttrLogException const& e) {
      EXPECT_STREQ(e.what(), c.message);
      EXPECT_EQ(in.position(), 0u) << "a refused read consumed bytes: " << c.message;
    }
  }
}

}  // namespace
