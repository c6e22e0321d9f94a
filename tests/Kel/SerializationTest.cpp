// The text form of values (Strep) and the binary attribute log (NboAttrLog).
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
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

// Printed and parsed texts of the primitives: golden-values.txt.
TEST(StrepTest, AppendStrep) {
  String appended("x=");
  appendStrep(appended, String("y"));
  appendStrep(appended, 2.0);
  EXPECT_EQ(appended, "x='y'2.0");
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

}  // namespace
