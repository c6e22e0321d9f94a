#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "Platform/Platform.h"

using namespace Platform;
using namespace Kel::NboAttrLog;

namespace {

template <class T>
Out logOf(T const& v) {
  Out out;
  out << v;
  return out;
}

template <class T>
T fromLog(Out const& out) {
  In in(out.bytes());
  T v(&in, Kel::StreamBogon{});
  EXPECT_TRUE(in.atEnd());
  return v;
}

// Text, plain text and the attribute log all carry v back; the log holds the primitive its
// consumers read it as, and every truncation of it is reported, never read past.
template <class T, class P>
void expectRoundTrips(T const& v, std::string const& strep, std::string const& text, P const& primitive) {
  SCOPED_TRACE(strep);
  EXPECT_EQ(valueToStrep(v).stdString(), strep);
  EXPECT_EQ(Kel::strepToValue<T>(valueToStrep(v)), v);
  std::ostringstream os;
  os << v;
  EXPECT_EQ(os.str(), text);
  Out const got = logOf(v);
  EXPECT_EQ(got.bytes(), logOf(primitive).bytes());
  EXPECT_EQ(fromLog<T>(got), v);
  for (std::size_t n = 0; n < got.bytes().size(); ++n) {
    In in(got.bytes().data(), n);
    EXPECT_THROW(T(&in, Kel::StreamBogon{}), Kel::AttrLogException) << "cut at " << n;
  }
}

}  // namespace

TEST(PlatformTypes, LimitsRaiseTheTypesMessage) {
  Kel::String const vrf101(std::string(101, 'v'));
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
      {"VlanId 4095", [] { VlanId(4095); }, vlan},
      {"VlanId 65537 (no narrowing)", [] { VlanId(65537); }, vlan},
      {"VlanId text 0", [] { Kel::strepToValue<VlanId>("0"); }, vlan},
      {"VlanId log 4095", [] { fromLog<VlanId>(logOf(std::uint16_t{4095})); }, vlan},
      {"VlanIdOrNone -1", [] { VlanIdOrNone(-1); }, vlanOrNone},
      {"VrfName 100", [] { VrfName{Kel::String(std::string(100, 'v'))}; }, ""},
      {"VrfName 101", [&] { VrfName{vrf101}; }, vrf},
      {"VrfName log 101", [&] { fromLog<VrfName>(logOf(vrf101)); }, vrf},
      {"AutoNegCapBits max+1", [] { AutoNegCapBits(0x800000); }, cap},
      {"AutoNegCapBits 2^32 (no narrowing)", [] { AutoNegCapBits(0x100000000ull); }, cap},
      {"AutoNegCapBits log", [] { fromLog<AutoNegCapBits>(logOf(0x800000u)); }, cap},
      {"AutoNegCapBits bit 23", [] { AutoNegCapBits().bit(23); }, "AutoNegCapBits::bit > 22 not allowed"},
      {"EthAddr 2^48", [] { EthAddr(1ull << 48); }, "EthAddr::value > 0xffffffffffff not allowed"},
      {"ObjectIdentifier 128 ids", [] { ObjectIdentifier(std::vector<std::uint32_t>(128, 1)); }, ""},
      {"ObjectIdentifier 129 ids", [] { ObjectIdentifier(std::vector<std::uint32_t>(129, 1)); },
       "ObjectIdentifier::value::subIds > 128 not allowed"},
  };
  for (auto const& c : cases) {
    std::string raised;
    try { c.f(); } catch (Kel::RangeException const& e) { raised = e.what(); }
    EXPECT_EQ(raised, c.message) << c.what;
  }
}

TEST(PlatformTypes, RoundTrips) {
  Kel::String const odd("a'b\0c", 5);
  expectRoundTrips(IntfId("Ethernet1/2"), "'Ethernet1/2'", "Ethernet1/2", Kel::String("Ethernet1/2"));
  expectRoundTrips(IntfId(), "''", "", Kel::String());
  expectRoundTrips(IntfId(odd), Kel::valueToStrep(odd).stdString(), odd.stdString(), odd);
  expectRoundTrips(EthAddr(0x001c73aabbccull), "'00:1c:73:aa:bb:cc'", "00:1c:73:aa:bb:cc", 0x001c73aabbccull);
  expectRoundTrips(VlanId(4094), "4094", "4094", std::uint16_t{4094});
  expectRoundTrips(VlanId(), "1", "1", std::uint16_t{1});
  expectRoundTrips(VlanIdOrNone(), "0", "0", std::uint16_t{0});
  expectRoundTrips(VrfName("mgmt"), "'mgmt'", "mgmt", Kel::String("mgmt"));
  expectRoundTrips(AddressFamilyNumbers(AddressFamilyNumbers::ipV4), "ipV4", "ipV4", 1);
  expectRoundTrips(AddressFamilyNumbers(-5), "-5", "-5", -5);
  expectRoundTrips(ObjectIdentifier{1, 4294967295u}, "'1.4294967295'", "1.4294967295", Kel::String("1.4294967295"));
  expectRoundTrips(ObjectIdentifier(), "''", "", Kel::String());
  expectRoundTrips(AutoNegCapBits(0x7fffff), "8388607", "8388607", 0x7fffffu);
  // A number with a name parses from its number too; EthAddr text takes other spellings.
  EXPECT_EQ(Kel::strepToValue<AddressFamilyNumbers>("2"), AddressFamilyNumbers::ipV6);
  for (const char* text : {"00-1C-73-AA-BB-CC", "001c.73aa.bbcc"})
    EXPECT_EQ(EthAddr::fromText(text).bytes(), (EthAddr::Bytes{0x00, 0x1c, 0x73, 0xaa, 0xbb, 0xcc})) << text;
  // Only the text given is read, not the digits after it.
  EXPECT_EQ(ObjectIdentifier::fromText(std::string_view("1.23", 3)), (ObjectIdentifier{1, 2}));
}

template <class T>
void parse(const char* strep) {
  Kel::strepToValue<T>(strep);
}

TEST(PlatformTypes, MalformedTextRaisesParseException) {
  struct Case {
    void (*parse)(const char*);
    const char* strep;
  } const cases[] = {
      {parse<IntfId>, "Ethernet1"},           {parse<IntfId>, "'Ethernet1'x"},
      {parse<EthAddr>, "'00:1c:73:aa:bb'"},   {parse<EthAddr>, "'00:1c:73:aa:bb:zz'"},
      {parse<EthAddr>, "'00:1c-73:aa:bb:cc'"}, {parse<VlanId>, "ten"},
      {parse<VlanId>, ""},                    {parse<VlanId>, "10 "},
      {parse<VrfName>, "'abc"},               {parse<AddressFamilyNumbers>, "ipV5"},
      {parse<ObjectIdentifier>, "'1..3'"},    {parse<ObjectIdentifier>, "'1.4294967296'"},
      {parse<ObjectIdentifier>, "1.3"},       {parse<AutoNegCapBits>, "x1"},
  };
  for (auto const& c : cases) EXPECT_THROW(c.parse(c.strep), Kel::ParseException) << c.strep;
}

TEST(PlatformTypes, AutoNegCapBitsSetAndClear) {
  AutoNegCapBits bits(0x8000);
  bits.bitIs(22, true);
  bits.bitIs(AutoNegCapBits::b1000baseTFD, false);
  EXPECT_EQ(bits.value(), 0x400000u);
  EXPECT_TRUE(bits.bit(22) && !bits.bit(15) && !bits.bit(21));
}

// Numbers inside names compare by value, and the order is a strict total order agreeing
// with == (spellings of one number stay distinct), or containers keyed by IntfId break.
TEST(PlatformTypes, IntfIdOrdersNaturally) {
  std::vector<IntfId> const sorted = {
      IntfId(),           IntfId("Ethernet"),     IntfId("Ethernet1"),     IntfId("Ethernet1/2"),
      IntfId("Ethernet01/3"), IntfId("Ethernet1/10"), IntfId("Ethernet2"), IntfId("Ethernet10"),
      IntfId("Ethernet99999999999999999999"), IntfId("Management1"), IntfId("Port-Channel5"),
  };
  for (std::size_t i = 0; i < sorted.size(); ++i)
    for (std::size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(sorted[i] <=> sorted[j], i <=> j) << sorted[i] << " vs " << sorted[j];
      EXPECT_EQ(sorted[i] == sorted[j], i == j);
    }
  EXPECT_EQ(std::unordered_set<IntfId>(sorted.begin(), sorted.end()).size(), sorted.size());
  EXPECT_TRUE(IntfId("Ethernet01") < IntfId("Ethernet1") || IntfId("Ethernet1") < IntfId("Ethernet01"));
}
