#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "Platform/Platform.h"

using namespace Platform;
using Kel::NboAttrLog::In;
using Kel::NboAttrLog::Out;

namespace {

// Runs f and returns what() of the RangeException it raised, or "" when none.
std::string rangeMessage(std::function<void()> const& f) {
  try {
    f();
  } catch (Kel::RangeException const& e) {
    return e.what();
  }
  return "";
}

template <class T>
T fromLog(Out const& out) {
  In in(out.bytes());
  T v(&in, Kel::StreamBogon{});
  EXPECT_TRUE(in.atEnd());
  return v;
}

template <class T>
std::string plain(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

}  // namespace

TEST(PlatformTypes, LimitsRaiseTheTypesMessage) {
  Kel::String const vrf100(std::string(100, 'v'));
  Kel::String const vrf101(std::string(101, 'v'));
  auto u16Log = [](unsigned short v) { Out o; o << v; return o; };
  auto u32Log = [](unsigned int v) { Out o; o << v; return o; };
  auto strLog = [](Kel::String const& v) { Out o; o << v; return o; };
  std::string const vlan = "VlanId::value < 1 or > 4094 not allowed";
  std::string const vlanOrNone = "VlanIdOrNone::value > 4094 not allowed";
  std::string const vrf = "VrfName::value::bytes > VrfName::maxLength not allowed";
  std::string const cap = "AutoNegCapBits::value > 0x7fffff not allowed";
  struct Case {
    const char* what;
    std::function<void()> f;
    std::string message;  // "" = accepted
  } const cases[] = {
      {"VlanId 0", [] { VlanId(0); }, vlan},
      {"VlanId 1", [] { VlanId(1); }, ""},
      {"VlanId 4094", [] { VlanId(4094); }, ""},
      {"VlanId 4095", [] { VlanId(4095); }, vlan},
      {"VlanId -1", [] { VlanId(-1); }, vlan},
      {"VlanId 65537 (no narrowing)", [] { VlanId(65537); }, vlan},
      {"VlanId text 4095", [] { Kel::strepToValue<VlanId>("4095"); }, vlan},
      {"VlanId text 0", [] { Kel::strepToValue<VlanId>("0"); }, vlan},
      {"VlanId log 0", [&] { fromLog<VlanId>(u16Log(0)); }, vlan},
      {"VlanId log 4095", [&] { fromLog<VlanId>(u16Log(4095)); }, vlan},
      {"VlanIdOrNone 0", [] { VlanIdOrNone(0); }, ""},
      {"VlanIdOrNone 4094", [] { VlanIdOrNone(4094); }, ""},
      {"VlanIdOrNone 4095", [] { VlanIdOrNone(4095); }, vlanOrNone},
      {"VlanIdOrNone -1", [] { VlanIdOrNone(-1); }, vlanOrNone},
      {"VlanIdOrNone text 65536", [] { Kel::strepToValue<VlanIdOrNone>("65536"); }, vlanOrNone},
      {"VlanIdOrNone log 65535", [&] { fromLog<VlanIdOrNone>(u16Log(65535)); }, vlanOrNone},
      {"VrfName 100", [&] { VrfName{vrf100}; }, ""},
      {"VrfName 101", [&] { VrfName{vrf101}; }, vrf},
      {"VrfName text 101", [&] { Kel::strepToValue<VrfName>(Kel::valueToStrep(vrf101)); }, vrf},
      {"VrfName log 101", [&] { fromLog<VrfName>(strLog(vrf101)); }, vrf},
      {"AutoNegCapBits max", [] { AutoNegCapBits(0x7fffff); }, ""},
      {"AutoNegCapBits max+1", [] { AutoNegCapBits(0x800000); }, cap},
      {"AutoNegCapBits 2^32 (no narrowing)", [] { AutoNegCapBits(0x100000000ull); }, cap},
      {"AutoNegCapBits text", [] { Kel::strepToValue<AutoNegCapBits>("8388608"); }, cap},
      {"AutoNegCapBits log", [&] { fromLog<AutoNegCapBits>(u32Log(0x800000)); }, cap},
      {"AutoNegCapBits bit 23", [] { AutoNegCapBits().bit(23); }, "AutoNegCapBits::bit > 22 not allowed"},
      {"EthAddr 2^48", [] { EthAddr(1ull << 48); }, "EthAddr::value > 0xffffffffffff not allowed"},
      {"ObjectIdentifier 128 ids", [] { ObjectIdentifier(std::vector<std::uint32_t>(128, 1)); }, ""},
      {"ObjectIdentifier 129 ids",
       [] { ObjectIdentifier(std::vector<std::uint32_t>(129, 1)); },
       "ObjectIdentifier::value::subIds > 128 not allowed"},
  };
  for (auto const& c : cases) EXPECT_EQ(rangeMessage(c.f), c.message) << c.what;
}

// valueToStrep, operator<< and the parser agree, for every type.
template <class T>
void expectText(T const& v, std::string const& strep, std::string const& text) {
  EXPECT_EQ(valueToStrep(v).stdString(), strep);
  EXPECT_EQ(plain(v), text);
  EXPECT_EQ(Kel::strepToValue<T>(valueToStrep(v)), v) << strep;
}

TEST(PlatformTypes, TextRoundTrips) {
  expectText(IntfId("Ethernet1/2"), "'Ethernet1/2'", "Ethernet1/2");
  expectText(IntfId(), "''", "");
  expectText(IntfId(Kel::String("a'b\0c", 5)), Kel::valueToStrep(Kel::String("a'b\0c", 5)).stdString(),
             std::string("a'b\0c", 5));
  expectText(EthAddr(0x001c73aabbccull), "'00:1c:73:aa:bb:cc'", "00:1c:73:aa:bb:cc");
  expectText(EthAddr(), "'00:00:00:00:00:00'", "00:00:00:00:00:00");
  expectText(VlanId(4094), "4094", "4094");
  expectText(VlanId(), "1", "1");
  expectText(VlanIdOrNone(), "0", "0");
  expectText(VlanIdOrNone(VlanId(7)), "7", "7");
  expectText(VrfName("mgmt"), "'mgmt'", "mgmt");
  expectText(AddressFamilyNumbers(AddressFamilyNumbers::ipV4), "ipV4", "ipV4");
  expectText(AddressFamilyNumbers(AddressFamilyNumbers::ieee802), "ieee802", "ieee802");
  expectText(AddressFamilyNumbers(16384), "16384", "16384");
  expectText(AddressFamilyNumbers(-5), "-5", "-5");
  expectText(ObjectIdentifier{1, 3, 6, 1, 2, 1, 4294967295u}, "'1.3.6.1.2.1.4294967295'",
             "1.3.6.1.2.1.4294967295");
  expectText(ObjectIdentifier(), "''", "");
  expectText(AutoNegCapBits(0x7fffff), "8388607", "8388607");
  // A number with a name parses from its number too.
  EXPECT_EQ(Kel::strepToValue<AddressFamilyNumbers>("2"), AddressFamilyNumbers::ipV6);
}

TEST(PlatformTypes, MalformedTextRaisesParseException) {
  struct Case {
    const char* what;
    std::function<void()> f;
  } const cases[] = {
      {"IntfId unquoted", [] { Kel::strepToValue<IntfId>("Ethernet1"); }},
      {"IntfId trailing text", [] { Kel::strepToValue<IntfId>("'Ethernet1'x"); }},
      {"EthAddr five bytes", [] { Kel::strepToValue<EthAddr>("'00:1c:73:aa:bb'"); }},
      {"EthAddr bad digit", [] { Kel::strepToValue<EthAddr>("'00:1c:73:aa:bb:zz'"); }},
      {"EthAddr mixed separators", [] { Kel::strepToValue<EthAddr>("'00:1c-73:aa:bb:cc'"); }},
      {"EthAddr dotted short", [] { Kel::strepToValue<EthAddr>("'001c.73aa.bbc'"); }},
      {"EthAddr unquoted", [] { Kel::strepToValue<EthAddr>("00:1c:73:aa:bb:cc"); }},
      {"VlanId word", [] { Kel::strepToValue<VlanId>("ten"); }},
      {"VlanId empty", [] { Kel::strepToValue<VlanId>(""); }},
      {"VlanId trailing", [] { Kel::strepToValue<VlanId>("10 "); }},
      {"VrfName unterminated", [] { Kel::strepToValue<VrfName>("'abc"); }},
      {"AddressFamilyNumbers unknown name", [] { Kel::strepToValue<AddressFamilyNumbers>("ipV5"); }},
      {"AddressFamilyNumbers empty", [] { Kel::strepToValue<AddressFamilyNumbers>(""); }},
      {"ObjectIdentifier double dot", [] { Kel::strepToValue<ObjectIdentifier>("'1..3'"); }},
      {"ObjectIdentifier trailing dot", [] { Kel::strepToValue<ObjectIdentifier>("'1.3.'"); }},
      {"ObjectIdentifier leading dot", [] { Kel::strepToValue<ObjectIdentifier>("'.1'"); }},
      {"ObjectIdentifier sub-id too big", [] { Kel::strepToValue<ObjectIdentifier>("'1.4294967296'"); }},
      {"ObjectIdentifier unquoted", [] { Kel::strepToValue<ObjectIdentifier>("1.3"); }},
      {"AutoNegCapBits word", [] { Kel::strepToValue<AutoNegCapBits>("x1"); }},
  };
  for (auto const& c : cases) EXPECT_THROW(c.f(), Kel::ParseException) << c.what;
}

TEST(PlatformTypes, EthAddrAcceptedSpellings) {
  EthAddr const want(0x001c73aabbccull);
  for (const char* text : {"00:1c:73:aa:bb:cc", "00-1C-73-AA-BB-CC", "001c.73aa.bbcc"})
    EXPECT_EQ(EthAddr::fromText(text), want) << text;
  EXPECT_EQ(want.bytes(), (EthAddr::Bytes{0x00, 0x1c, 0x73, 0xaa, 0xbb, 0xcc}));
  EXPECT_EQ(EthAddr(want.bytes()), want);
  EXPECT_TRUE(EthAddr::fromText("01:80:c2:00:00:0e").isMulticast());
  EXPECT_FALSE(want.isMulticast());
}

// Each type writes the primitive its consumers read it as, and reads back what it wrote.
TEST(PlatformTypes, AttributeLogRoundTrips) {
  auto check = [](auto const& v, auto primitive, const char* what) {
    using T = std::remove_cvref_t<decltype(v)>;
    Out got;
    got << v;
    Out want;
    want << primitive;
    EXPECT_EQ(got.bytes(), want.bytes()) << what;
    EXPECT_EQ(fromLog<T>(got), v) << what;
    // Every truncation is reported, never read past.
    for (std::size_t n = 0; n < got.bytes().size(); ++n) {
      In in(got.bytes().data(), n);
      EXPECT_THROW(T(&in, Kel::StreamBogon{}), Kel::AttrLogException) << what << " cut at " << n;
    }
  };
  check(IntfId("Ethernet49/1"), Kel::String("Ethernet49/1"), "IntfId");
  check(IntfId(), Kel::String(), "empty IntfId");
  check(EthAddr(0x001c73aabbccull), 0x001c73aabbccull, "EthAddr");
  check(VlanId(4094), static_cast<unsigned short>(4094), "VlanId");
  check(VlanIdOrNone(), static_cast<unsigned short>(0), "VlanIdOrNone");
  check(VrfName("default"), Kel::String("default"), "VrfName");
  check(AddressFamilyNumbers(-2), -2, "AddressFamilyNumbers");
  check(ObjectIdentifier{1, 3, 6, 1}, Kel::String("1.3.6.1"), "ObjectIdentifier");
  check(AutoNegCapBits(0x12345), 0x12345u, "AutoNegCapBits");
}

TEST(PlatformTypes, IntfIdOrdersNaturally) {
  std::vector<IntfId> const sorted = {
      IntfId(),           IntfId("Ethernet"),     IntfId("Ethernet1"),     IntfId("Ethernet1/2"),
      IntfId("Ethernet01/3"), IntfId("Ethernet1/10"), IntfId("Ethernet2"), IntfId("Ethernet10"),
      IntfId("Ethernet99999999999999999999"), IntfId("Management1"), IntfId("Port-Channel5"),
  };
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    for (std::size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(sorted[i] <=> sorted[j], i <=> j) << sorted[i] << " vs " << sorted[j];
      EXPECT_EQ(sorted[i] == sorted[j], i == j);
    }
  }
  // Spellings of one number are distinct and ordered consistently.
  IntfId const a("Ethernet01"), b("Ethernet1");
  EXPECT_NE(a, b);
  EXPECT_NE(a < b, b < a);
  std::unordered_set<IntfId> set(sorted.begin(), sorted.end());
  EXPECT_EQ(set.size(), sorted.size());
  EXPECT_TRUE(set.count(IntfId("Ethernet10")));
  EXPECT_EQ(hash(IntfId("Ethernet10")), std::hash<Kel::String>()("Ethernet10"));
}

TEST(PlatformTypes, OrderingAndBits) {
  EXPECT_LT(AddressFamilyNumbers(-1), AddressFamilyNumbers::other);
  EXPECT_LT(AddressFamilyNumbers::ipV4, AddressFamilyNumbers::ipV6);
  EXPECT_LT(ObjectIdentifier({1, 3}), ObjectIdentifier({1, 3, 0}));
  EXPECT_LT(VlanIdOrNone(), VlanIdOrNone(1));

  AutoNegCapBits bits;
  bits.bitIs(AutoNegCapBits::b1000baseTFD, true);
  bits.bitIs(22, true);
  EXPECT_EQ(bits.value(), 0x408000u);
  EXPECT_TRUE(bits.bit(15));
  EXPECT_FALSE(bits.bit(14));
  bits.bitIs(22, false);
  EXPECT_EQ(bits.value(), 0x8000u);
  EXPECT_THROW(bits.bitIs(23, true), Kel::RangeException);
}

// The natural order must be a strict total order agreeing with ==, or ordered
// containers keyed by IntfId break; check it over many short names built from
// digits (with leading zeros) and separators.
TEST(PlatformTypes, IntfIdOrderIsTotal) {
  std::vector<IntfId> ids;
  const char alphabet[] = {'E', 't', '0', '1', '9', '/', '.'};
  unsigned seed = 12345;
  for (int n = 0; n < 300; ++n) {
    std::string s;
    seed = seed * 1103515245u + 12345u;
    for (unsigned len = (seed >> 16) % 7; len > 0; --len) {
      seed = seed * 1103515245u + 12345u;
      s += alphabet[(seed >> 16) % sizeof alphabet];
    }
    ids.emplace_back(Kel::String(s));
  }
  std::sort(ids.begin(), ids.end());
  for (std::size_t i = 0; i + 1 < ids.size(); ++i) {
    EXPECT_LE(ids[i], ids[i + 1]);
    EXPECT_EQ(ids[i] <=> ids[i + 1] == 0, ids[i].stringValue() == ids[i + 1].stringValue());
  }
  // A sorted sequence of a transitive order is ordered between any two positions.
  std::size_t inversions = 0;
  for (std::size_t i = 0; i < ids.size(); ++i) {
    for (std::size_t j = i + 1; j < ids.size(); ++j) inversions += ids[j] < ids[i];
  }
  EXPECT_EQ(inversions, 0u);
}
