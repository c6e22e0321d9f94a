// The text form of values (Strep) and the binary attribute log (NboAttrLog).
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <variant>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"

using namespace Kel;
using namespace Kel::NboAttrLog;
using Token = Out::TransactToken;

namespace {

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

// The byte layouts of the primitives are pinned in golden-values.txt; here what only the
// writer has: the attribute id, and the widths the stream operators give integer types.
TEST(NboAttrLog, AttributeIdAndOperatorWidths) {
  Out o;
  o.putAttributeId(258);
  o << static_cast<unsigned char>(7) << 7L << 7UL;
  EXPECT_EQ(hex(o.bytes()), String("00000102" "0700000000000000070000000000000007"));
  In in(o.bytes());
  EXPECT_EQ(in.nextAttributeId(), 258u);
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
