#include "Kel/NboAttrLog.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <variant>
#include <vector>

using namespace Kel;
using namespace Kel::NboAttrLog;
using Token = Out::TransactToken;

namespace {

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

bool sameBits(Prim const& a, Prim const& b) {
  if (a.index() == 7 && b.index() == 7)
    return std::memcmp(&std::get<7>(a), &std::get<7>(b), sizeof(double)) == 0;
  return a == b;
}

String hex(String const& s) {
  String out;
  for (std::size_t i = 0; i < s.size(); ++i) out += format("%02x", s[i]);
  return out;
}

const std::vector<Prim> everyPrimitive = {
    std::uint8_t{0}, std::uint8_t{0xff}, std::uint16_t{0xfedc}, std::uint32_t{0xdeadbeef},
    std::uint64_t{0x8000000000000001ull}, std::int32_t{-1}, std::numeric_limits<std::int32_t>::min(),
    std::numeric_limits<std::int64_t>::min(), std::int64_t{-2}, false, true, -0.0, 0.1,
    std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
    String(), String("\0\xff" "x", 3), String(std::string(300, 'q')), Token::begin, Token::end, Id{258}};

// Exactly n heap bytes of s, so that ASan reports any read past the end.
std::unique_ptr<char[]> exactCopy(String const& s, std::size_t n) {
  std::unique_ptr<char[]> copy(new char[n ? n : 1]);
  std::memcpy(copy.get(), s.data(), n);
  return copy;
}

}  // namespace

TEST(NboAttrLog, EveryPrimitiveRoundTrips) {
  Out o;
  for (auto const& p : everyPrimitive) put(o, p);
  auto copy = exactCopy(o.bytes(), o.bytes().size());
  In in(copy.get(), o.bytes().size());
  for (auto const& p : everyPrimitive) EXPECT_TRUE(sameBits(next(in, p), p)) << "primitive " << p.index();
  EXPECT_TRUE(in.atEnd());
}

TEST(NboAttrLog, BigEndianBytes) {
  struct Case { Prim value; const char* bytes; };
  const Case cases[] = {
      {std::uint16_t{0x1234}, "1234"},
      {std::uint32_t{0x01020304}, "01020304"},
      {std::uint64_t{0x0102030405060708ull}, "0102030405060708"},
      {std::int32_t{-2}, "fffffffe"},
      {std::int64_t{-1}, "ffffffffffffffff"},
      {true, "01"},
      {1.0, "3ff0000000000000"},
      {-2.5, "c004000000000000"},
      {String("ab"), "000000026162"},
      {Token::end, "02"},
      {Id{258}, "00000102"},
  };
  for (auto const& c : cases) {
    Out o;
    put(o, c.value);
    EXPECT_EQ(hex(o.bytes()), String(c.bytes)) << "primitive " << c.value.index();
  }
  // The integer widths of the stream operators: long is 64 bits, unsigned char 8.
  Out o;
  o << static_cast<unsigned char>(7) << 7L << 7UL;
  EXPECT_EQ(hex(o.bytes()), String("0700000000000000070000000000000007"));
}

TEST(NboAttrLog, EveryTruncationRaisesAtTheCutField) {
  const std::vector<Prim> fields = {std::uint8_t{1},    std::uint16_t{2},    std::uint32_t{3}, std::uint64_t{4},
                                    std::int32_t{-5},   std::int64_t{-6},    true,             7.5,
                                    String("hello"),    Token::end,          Id{300}};
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
      {String("\xff", 1), false, "NboAttrLog::In: corrupt bool 0xff at offset 0 (expected 0 or 1)"},
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
