#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

using namespace std::string_literals;

Kel::String b(std::string s) { return Kel::String(std::move(s)); }

const std::string mac("\x00\x1c\x73\xaa\xbb\xcc", 6);
const std::string v6("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x01", 16);

TEST(IdentifiersTest, AddressText) {
  struct Case {
    Kel::String got;
    std::string want;
  };
  std::vector<Case> const cases = {
      {bytesToHex(b("")), ""},
      {bytesToHex(b("\xff")), "ff"},
      {bytesToHex(b(std::string("\x00\x1c\x73", 3))), "00 1c 73"},
      {formatMacAddress(b(mac), colon), "00:1c:73:aa:bb:cc"},
      {formatMacAddress(b(mac.substr(0, 5)), colon), "Invalid MAC address: 00 1c 73 aa bb"},
      {formatMacAddress(b(mac + "\x01"), period), "Invalid MAC address: 00 1c 73 aa bb cc 01"},
      {formatAddr(b(""), colon), ""},
      {formatAddr(b("\x01\xc0\x00\x02\x01"s), colon), "192.0.2.1"},
      {formatAddr(b(std::string("\x01\xc0\x00\x02", 4)), colon), "Invalid IPv4 address: c0 00 02"},
      {formatAddr(b("\x02" + v6), colon), "2001:db8::1"},
      {formatAddr(b("\x02" + v6.substr(0, 4)), colon), "Invalid IPv6 address: 20 01 0d b8"},
      {formatAddr(b("\x06" + mac), colon), "00:1c:73:aa:bb:cc"},
      {formatAddr(b("\x06" + mac), period), "001c.73aa.bbcc"},
      {formatAddr(b("\x06\x01\x02"), period), "Invalid MAC address: 01 02"},
      {formatAddr(b("\x0f\xab\x01"), colon), "ab 01"},
      {formatAddr(b("\x01"), colon), "Invalid IPv4 address: "},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(cases[i].got.view(), cases[i].want) << "case " << i;
}

TEST(IdentifiersTest, ChassisAndPortText) {
  auto chassis = [](ChassisIdSubtype t, std::string id, MacSeparator sep, bool quoted) {
    ChassisIdentifier c;
    c.chassisIdSubtypeIs(t);
    c.chassisIdIs(ChassisId(b(std::move(id))));
    return std::string(c.stringValue(sep, quoted).view());
  };
  auto port = [](PortIdSubtype t, std::string id, MacSeparator sep, bool quoted) {
    PortIdentifier p;
    p.portIdSubtypeIs(t);
    p.portIdIs(PortId(b(std::move(id))));
    return std::string(p.stringValue(sep, quoted).view());
  };
  struct Case {
    std::string got, want;
  };
  std::vector<Case> const cases = {
      {chassis(cidChassisComponent, "sw1", colon, false), "sw1"},
      {chassis(cidInterfaceAlias, "up link", colon, true), "\"up link\""},
      {chassis(cidLocal, "a\"b", colon, true), "\"a\"b\""},
      {chassis(cidMacAddress, mac, colon, true), "00:1c:73:aa:bb:cc"},
      {chassis(cidMacAddress, mac, period, false), "001c.73aa.bbcc"},
      {chassis(cidMacAddress, mac.substr(0, 5), colon, false), "Invalid MAC address: 00 1c 73 aa bb"},
      {chassis(cidNetworkAddress, "\x01\xc0\x00\x02\x01"s, colon, true), "192.0.2.1"},
      {chassis(cidNetworkAddress, "", colon, true), ""},
      {chassis(cidReserved, "ab", colon, true), "61 62"},
      {chassis(static_cast<ChassisIdSubtype>(77), "ab", colon, true), "61 62"},
      {port(pidInterfaceAlias, "x", colon, true), "\"x\""},
      {port(pidInterfaceName, "Ethernet1", colon, true), "\"Ethernet1\""},
      {port(pidMacAddress, mac, period, true), "001c.73aa.bbcc"},
      {port(pidNetworkAddress, "\x06" + mac, colon, true), "00:1c:73:aa:bb:cc"},
      {port(pidAgentCircuitId, "ab", colon, true), "61 62"},
      {port(pidUnknown, "", colon, true), ""},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;
}

TEST(IdentifiersTest, ManagementAddressText) {
  auto key = [](std::int32_t family, std::string addr) {
    ManagementAddress::Key k;
    k.manAddrSubtypeIs(Platform::AddressFamilyNumbers(family));
    k.manAddrIs(ManAddress(b(std::move(addr))));
    return k;
  };
  // The subtype's decimal digits stand in front of the address, so the family is never
  // recognised and everything after the first digit prints in hex.
  EXPECT_EQ(key(1, "\xc0\x00\x02\x01"s).stringValue(), "c0 00 02 01");
  EXPECT_EQ(key(6, mac).stringValue(), "00 1c 73 aa bb cc");
  EXPECT_EQ(key(16, "\x0a").stringValue(), "36 0a");
  EXPECT_EQ(key(2, "").stringValue(), "");
  ManagementAddress m(key(1, "\xc0\x00\x02\x01"s));
  EXPECT_EQ(m.manAddrLen(), 5u);
  EXPECT_EQ(ManagementAddress().manAddrLen(), 1u);
  EXPECT_EQ(m.ifSubtype(), unknown);
  EXPECT_EQ(m.ifId(), 0u);
  EXPECT_TRUE(m.oid().empty());
  EXPECT_EQ(m.key(), key(1, "\xc0\x00\x02\x01"s));
}

ChassisIdentifier chassis(ChassisIdSubtype t, const char* id) {
  ChassisIdentifier c;
  c.chassisIdSubtypeIs(t);
  c.chassisIdIs(ChassisId(id));
  return c;
}
PortIdentifier port(PortIdSubtype t, const char* id) {
  PortIdentifier p;
  p.portIdSubtypeIs(t);
  p.portIdIs(PortId(id));
  return p;
}
RemoteSystem::Msap msap(ChassisIdentifier c, PortIdentifier p) {
  RemoteSystem::Msap m;
  m.chassisIdentifierIs(c);
  m.portIdentifierIs(p);
  return m;
}

TEST(IdentifiersTest, OrderingAndHash) {
  // Each list is in ascending order.
  std::vector<RemoteSystem::Msap> const msaps = {
      msap(chassis(cidChassisComponent, "zz"), port(pidLocal, "z")),
      msap(chassis(cidMacAddress, "a"), port(pidInterfaceAlias, "b")),
      msap(chassis(cidMacAddress, "a"), port(pidInterfaceName, "a")),
      msap(chassis(cidMacAddress, "a"), port(pidInterfaceName, "a\x01")),
      msap(chassis(cidMacAddress, "b"), port(pidReserved, "")),
  };
  EXPECT_TRUE(std::is_sorted(msaps.begin(), msaps.end()));
  for (std::size_t i = 1; i < msaps.size(); ++i) {
    EXPECT_FALSE(msaps[i] < msaps[i - 1]);
    EXPECT_NE(msaps[i], msaps[i - 1]);
    EXPECT_NE(msaps[i].hash(0), msaps[i - 1].hash(0));
  }
  auto const& m = msaps[1];
  EXPECT_EQ(m.hash(7), Kel::hashMix(Kel::hashMix(7, m.chassisIdentifier().hash(0)), m.portIdentifier().hash(0)));
  auto const& c = m.chassisIdentifier();
  EXPECT_EQ(c.hash(3), Kel::hashMix(Kel::hashMix(3, cidMacAddress), Kel::String("a").hash()));
  ManagementAddress::Key k;
  k.manAddrSubtypeIs(Platform::AddressFamilyNumbers::ipV4);
  k.manAddrIs(ManAddress("\x01"));
  EXPECT_EQ(k.hash(0), Kel::hashMix(Kel::hashMix(0, k.manAddrSubtype().hash()), Kel::String("\x01").hash()));
  ManagementAddress::Key k6 = k;
  k6.manAddrSubtypeIs(Platform::AddressFamilyNumbers::ipV6);
  EXPECT_LT(k, k6);
  EXPECT_TRUE(!RemoteSystem::Msap());
  EXPECT_FALSE(!m);
}

}  // namespace
