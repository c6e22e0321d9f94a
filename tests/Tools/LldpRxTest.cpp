// The receive path against IEEE 802.1AB (LLDPDU validation, 9.2.7.7; the basic TLVs,
// clause 8.5; the table's counters and timers), the IEEE 802.1 and 802.3 TLVs (802.1AB
// annexes E and F) and ANSI/TIA-1057 (LLDP-MED): frames built byte by byte from those
// layouts, results read back from the model.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "Tools/RxTestUtil.h"

namespace {

using namespace RxTest;
using LldpRx::FrameResult;
using R = Lldp::RemoteSystem;

// ---- LLDPDU validation: an invalid LLDPDU is counted in error and discarded whole.

struct FrameCase {
  const char* name;
  Bytes frame;
  FrameResult result;
  std::uint32_t total, discarded, errors;
};

Bytes const zero(1, '\0');  // an empty OID string's length octet

Bytes pdu3(Bytes a, Bytes b, Bytes c) { return ethernet(a + b + c + end()); }

TEST(LldpRxTest, ValidatesTheLldpdu) {
  Bytes const c = chassisMac(1), p = portName("eth0"), t = ttl(120);
  FrameCase const cases[] = {
      {"minimal", pdu3(c, p, t), FrameResult::added, 1, 0, 0},
      {"no End TLV (optional)", ethernet(c + p + t), FrameResult::added, 1, 0, 0},
      {"padding after End", ethernet(c + p + t + end() + Bytes(20, '\x55')), FrameResult::added, 1, 0, 0},
      {"port ID first", pdu3(p, c, t), FrameResult::malformed, 0, 1, 1},
      {"TTL second", pdu3(c, t, p), FrameResult::malformed, 0, 1, 1},
      {"no TTL", ethernet(c + p + end()), FrameResult::malformed, 0, 1, 1},
      {"chassis ID without octets", pdu3(tlv(1, "\x04"), p, t), FrameResult::malformed, 0, 1, 1},
      {"chassis ID of 256 octets", pdu3(tlv(1, "\x07" + Bytes(256, 'a')), p, t), FrameResult::malformed, 0, 1, 1},
      {"chassis ID of 255 octets", pdu3(tlv(1, "\x07" + Bytes(255, 'a')), p, t), FrameResult::added, 1, 0, 0},
      {"port ID without octets", pdu3(c, tlv(2, "\x05"), t), FrameResult::malformed, 0, 1, 1},
      {"TTL of one octet", pdu3(c, p, tlv(3, "\x01")), FrameResult::malformed, 0, 1, 1},
      {"TLV past the end", ethernet(c + p + t + be16(5 << 9 | 10) + "abc"), FrameResult::malformed, 0, 1, 1},
      {"second chassis ID", ethernet(c + p + t + c + end()), FrameResult::malformed, 0, 1, 1},
      {"second TTL", ethernet(c + p + t + t + end()), FrameResult::malformed, 0, 1, 1},
      {"oversize frame", ethernet(c + p + t + Bytes(10240, '\0')), FrameResult::malformed, 0, 1, 1},
      {"TTL 0 of an unknown neighbour", pdu3(c, p, ttl(0)), FrameResult::shutdownIgnored, 1, 0, 0},
      {"another EtherType", bytes({1, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x08, 0x00}) + c + p + t,
       FrameResult::notLldp, 0, 0, 0},
      {"runt", Bytes(13, '\0'), FrameResult::notLldp, 0, 0, 0},
      {"VLAN tagged", bytes({1, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x81, 0, 0, 5, 0x88, 0xcc}) + c + p + t,
       FrameResult::added, 1, 0, 0},
  };
  for (FrameCase const& k : cases) {
    SCOPED_TRACE(k.name);
    Rx rx;
    EXPECT_EQ(rx(k.frame), k.result);
    EXPECT_EQ(rx.ps.rxFramesTotal(), k.total);
    EXPECT_EQ(rx.ps.rxFramesDiscardedTotal(), k.discarded);
    EXPECT_EQ(rx.ps.rxFramesErrors(), k.errors);
    EXPECT_EQ(rx.ps.remoteSystem().size(), k.result == FrameResult::added ? 1u : 0u);
    EXPECT_EQ(rx.ps.remoteSystemByMsap().size(), rx.ps.remoteSystem().size());
  }
}

TEST(LldpRxTest, DropsTaggedFramesWhenConfigured) {
  Rx rx;
  rx.config->rxTaggedPacketsDropIs(true);
  Bytes const tagged = bytes({1, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x81, 0, 0, 5, 0x88, 0xcc}) +
                       chassisMac(1) + portName("eth0") + ttl(120);
  EXPECT_EQ(rx(tagged), FrameResult::tagged);
  EXPECT_EQ(rx.ps.rxFramesDiscardedTotal(), 1u);
  EXPECT_TRUE(rx.ps.remoteSystem().empty());
}

// ---- TLVs: what each one stores, and how it counts.

struct TlvCase {
  const char* name;
  std::vector<Bytes> tlvs;
  std::uint32_t unrecognized, discarded;
  std::function<void(R const&)> check;
};

Lldp::ManagementAddress::Key addressKey(int family, Bytes const& address) {
  Lldp::ManagementAddress::Key k;
  k.manAddrSubtypeIs(Platform::AddressFamilyNumbers(family));
  k.manAddrIs(Lldp::ManAddress(Kel::String(address)));
  return k;
}
Lldp::UnknownOrgDefTlv::Key orgKey(std::uint32_t oui, unsigned subtype, int index) {
  Lldp::UnknownOrgDefTlv::Key k;
  k.ouiIs(Lldp::Oui(oui));
  k.subtypeIs(subtype);
  k.indexIs(index);
  return k;
}
std::string text(Lldp::BoundedString255Tlv const& v) { return v.value().value().stdString(); }
std::string text(Lldp::BoundedString32Tlv const& v) { return v.value().value().stdString(); }

TEST(LldpRxTest, DecodesEveryTlv) {
  using namespace Lldp;
  TlvCase const cases[] = {
      {"port description, system name and description",
       {tlv(4, "Gi1/0/2"), tlv(5, "sw1"), tlv(6, "switch software 1.0")}, 0, 0,
       [](R const& r) {
         EXPECT_EQ(text(r.portDesc()), "Gi1/0/2");
         EXPECT_EQ(text(r.sysName()), "sw1");
         EXPECT_EQ(text(r.sysDesc()), "switch software 1.0");
       }},
      {"empty system name", {tlv(5, "")}, 0, 0, [](R const& r) { EXPECT_TRUE(r.sysName().isSet() && text(r.sysName()).empty()); }},
      {"system name over 255 octets", {tlv(5, Bytes(256, 'n'))}, 0, 1, [](R const& r) { EXPECT_FALSE(r.sysName().isSet()); }},
      {"second system name", {tlv(5, "first"), tlv(5, "second")}, 0, 1, [](R const& r) { EXPECT_EQ(text(r.sysName()), "first"); }},
      {"capabilities", {tlv(7, be16(0x0014) + be16(0x0004))}, 0, 0,
       [](R const& r) {
         EXPECT_TRUE(r.systemCapabilities().isSet());
         EXPECT_TRUE(r.systemCapabilities().sysCapSupported().bridge() && r.systemCapabilities().sysCapSupported().router());
         EXPECT_EQ(r.systemCapabilities().sysCapEnabled().value(), 0x0004u);
       }},
      {"capabilities of 3 octets", {tlv(7, bytes({0, 4, 0}))}, 0, 1, [](R const& r) { EXPECT_FALSE(r.systemCapabilities().isSet()); }},
      {"IPv4 management address with an OID",
       {tlv(8, bytes({5, 1, 192, 0, 2, 1, 2}) + be32(5) + bytes({9, 0x2b, 6, 1, 2, 1, 2, 2, 1, 1}))}, 0, 0,
       [](R const& r) {
         ManagementAddress const* a = r.managementAddress(addressKey(1, bytes({192, 0, 2, 1})));
         ASSERT_TRUE(a);
         EXPECT_EQ(a->ifSubtype(), ifIndex);
         EXPECT_EQ(a->ifId(), 5u);
         EXPECT_EQ(a->oid().stringValue(), "1.3.6.1.2.1.2.2.1.1");
       }},
      {"two management addresses, IPv6 and MAC",
       {tlv(8, bytes({17, 2}) + Bytes(15, '\0') + "\x01" + bytes({3}) + be32(7) + zero),
        tlv(8, bytes({7, 6, 2, 0, 0, 0, 0, 9, 1}) + be32(0) + zero)},
       0, 0,
       [](R const& r) {
         EXPECT_EQ(r.managementAddress().size(), 2u);
         ASSERT_TRUE(r.managementAddress(addressKey(2, Bytes(15, '\0') + "\x01")));
         EXPECT_EQ(r.managementAddress(addressKey(2, Bytes(15, '\0') + "\x01"))->ifSubtype(), systemPortNumber);
         EXPECT_TRUE(r.managementAddress(addressKey(6, bytes({2, 0, 0, 0, 0, 9}))));
       }},
      {"management address string of 33 octets", {tlv(8, bytes({33, 1}) + Bytes(32, 'a') + "\x02" + be32(1) + zero)}, 0, 1,
       [](R const& r) { EXPECT_TRUE(r.managementAddress().empty()); }},
      {"management interface subtype 4", {tlv(8, bytes({5, 1, 192, 0, 2, 1, 4}) + be32(1) + zero)}, 0, 1,
       [](R const& r) { EXPECT_TRUE(r.managementAddress().empty()); }},
      {"reserved TLV types", {tlv(9, "nine"), tlv(126, ""), tlv(9, "again")}, 2, 1,
       [](R const& r) {
         ASSERT_TRUE(r.unknownTlv(9));
         EXPECT_EQ(r.unknownTlv(9)->info().value(), "nine");
         EXPECT_TRUE(r.unknownTlv(126));
       }},
      {"unknown organizations, numbered per OUI and subtype",
       {org(0x000142, 1, "\x09"), org(0x000142, 1, "xy"), org(0x000142, 2, ""), dot3(9, "eee")}, 4, 0,
       [](R const& r) {
         ASSERT_TRUE(r.unknownOrgDefTlv(orgKey(0x000142, 1, 2)));
         EXPECT_EQ(r.unknownOrgDefTlv(orgKey(0x000142, 1, 2))->orgDefInfo().value(), "xy");
         EXPECT_TRUE(r.unknownOrgDefTlv(orgKey(0x000142, 2, 1)));
         EXPECT_TRUE(r.unknownOrgDefTlv(orgKey(0x00120f, 9, 1)));
         EXPECT_EQ(r.unknownOrgDefTlv().size(), 4u);
       }},
      {"organizational TLV without its subtype", {tlv(127, bytes({0, 0x12, 0x0f}))}, 0, 1,
       [](R const& r) { EXPECT_TRUE(r.unknownOrgDefTlv().empty()); }},
      {"IEEE 802.1", {dot1(1, be16(100)), dot1(2, "\x06" + be16(200)), dot1(2, "\x02" + be16(300)), dot1(3, be16(100) + "\x05voice"),
        dot1(4, "\x02\x88\x8e"), dot1(4, "\x01\x42"), dot1(5, be32(0xdeadbeef)), dot1(6, be16(10)), dot1(7, "\x03" + be32(5))},
       0, 0,
       [](R const& r) {
         EXPECT_TRUE(r.portVlanIdTlvReceived());
         EXPECT_EQ(r.portVlanId().value(), 100);
         ASSERT_TRUE(r.portAndProtocolVlan(Platform::VlanIdOrNone(200)));
         EXPECT_TRUE(r.portAndProtocolVlan(Platform::VlanIdOrNone(200))->supported());
         EXPECT_TRUE(r.portAndProtocolVlan(Platform::VlanIdOrNone(200))->enabled());
         EXPECT_FALSE(r.portAndProtocolVlan(Platform::VlanIdOrNone(300))->enabled());
         ASSERT_TRUE(r.vlanName(Platform::VlanId(100)));
         EXPECT_EQ(r.vlanName(Platform::VlanId(100))->vlanName().value(), "voice");
         EXPECT_EQ(r.protocolIdentityInfo(1)->protocolId().value(), "\x88\x8e");
         EXPECT_EQ(r.protocolIdentityInfo(2)->protocolId().value(), "\x42");
         EXPECT_TRUE(r.vidUsageDigestTlvReceived());
         EXPECT_EQ(r.vidUsageDigest(), 0xdeadbeefu);
         EXPECT_EQ(r.managementVid().value(), 10);
         EXPECT_TRUE(r.linkAggregationTlvReceived() && r.linkAggregationInfo().status().aggEnabled());
         EXPECT_EQ(r.linkAggregationInfo().portId(), 5);
       }},
      {"IEEE 802.1 out of range", {dot1(1, be16(4095)), dot1(3, be16(0) + "\x01x"), dot1(3, be16(7) + "\x09short"),
        dot1(3, be16(8) + "\x21" + Bytes(33, 'v')), dot1(4, "\x05" "ab")},
       0, 5,
       [](R const& r) {
         EXPECT_FALSE(r.portVlanIdTlvReceived());
         EXPECT_TRUE(r.vlanName().empty());
         EXPECT_TRUE(r.protocolIdentityInfo().empty());
       }},
      {"IEEE 802.3 through the 802.3 parser",
       {dot3(1, bytes({3, 0x6c, 0, 0, 16})), dot3(2, bytes({0x0f, 1, 5, 0x12}) + be16(255) + be16(250)), dot3(4, be16(1522))}, 0, 0,
       [](R const& r) {  // field by field in ExtDot3ParserTest
         EXPECT_TRUE(r.macPhyConfigStatusTlvReceived() && r.powerViaMdiTlvReceived() && r.maximumFrameSizeTlvReceived());
         EXPECT_EQ(r.macPhyConfigStatusInfo().operMauType(), 16u);
         EXPECT_EQ(r.powerViaMdiInfo().at().pseAllocatedPowerValue(), 250);
         EXPECT_EQ(r.maximumFrameSizeInfo().maxFrameSize(), 1522);
       }},
      {"IEEE 802.3 too short", {dot3(1, bytes({3, 0x6c, 0, 0})), dot3(2, bytes({0x0f, 1})), dot3(3, bytes({1, 0, 0, 0})),
        dot3(4, "\x05")},
       0, 4,
       [](R const& r) {
         EXPECT_FALSE(r.macPhyConfigStatusTlvReceived() || r.powerViaMdiTlvReceived() || r.linkAggregationTlvReceived() ||
                      r.maximumFrameSizeTlvReceived());
       }},
      {"LLDP-MED capabilities, policy, inventory",
       {med(1, be16(0x002f) + "\x04"), med(2, "\x01" + bytes({0x43, 0xe9, 0x6e})), med(5, "HW1"), med(11, "asset")}, 0, 0,
       [](R const& r) {
         EXPECT_TRUE(r.medCapabilitiesTlvReceived());
         EXPECT_EQ(r.medCapabilitiesInfo().capability().value(), 0x2fu);
         EXPECT_EQ(r.medCapabilitiesInfo().deviceType(), MedCapabilitiesInfo::MedDeviceType_NetworkConnectivity);
         NetworkPolicyTlv const* v = r.networkPolicyTlv(1);
         ASSERT_TRUE(v);
         EXPECT_FALSE(v->unknownPolicy());
         EXPECT_TRUE(v->tagged());
         EXPECT_EQ(v->vlanId(), 500);
         EXPECT_EQ(v->cosValue(), 5);
         EXPECT_EQ(v->dscpValue(), 46);
         EXPECT_EQ(text(r.hardwareRevisionTlvInfo()), "HW1");
         EXPECT_EQ(text(r.assetIDTlvInfo()), "asset");
         EXPECT_FALSE(r.serialNumberTlvInfo().isSet());
       }},
      {"LLDP-MED reserved device type", {med(1, be16(1) + "\x09")}, 0, 0,
       [](R const& r) { EXPECT_EQ(r.medCapabilitiesInfo().deviceType(), MedCapabilitiesInfo::MedDeviceType_Reserved); }},
      {"LLDP-MED out of range", {med(1, be16(0x0080) + "\x01"), med(6, Bytes(33, 'f')), med(2, "\x01\x00")}, 0, 3,
       [](R const& r) {
         EXPECT_FALSE(r.medCapabilitiesTlvReceived());
         EXPECT_FALSE(r.firmwareRevisionTlvInfo().isSet());
         EXPECT_TRUE(r.networkPolicyTlv().empty());
       }},
      {"LLDP-MED locations: coordinates, civic address, ELIN",
       {med(3, "\x01" + bytes({0x2b, 0xff, 0xff, 0xff, 0xff, 0, 2, 0, 0, 0, 0x17, 0x80, 0, 1, 0, 1})),
        med(3, "\x02" + bytes({15, 2}) + "DE" + bytes({3, 6}) + "Berlin" + bytes({0, 2}) + "de" + Bytes(5, '\0')),
        med(3, "\x03" "0123456789")},
       0, 0,
       [](R const& r) {
         LocationId::CoordinateBasedLCI const& c = r.locationId().coordinateBasedLCI();
         EXPECT_TRUE(c.received());
         EXPECT_EQ(c.laRes(), 10);
         EXPECT_EQ(c.latitude(), -1);
         EXPECT_EQ(c.longitude(), 1 << 25);
         EXPECT_EQ(c.aT(), 1);
         EXPECT_EQ(c.altRes(), 30);
         EXPECT_EQ(c.altitude(), 256);
         EXPECT_EQ(c.datum(), 1);
         LocationId::CivicAddressLCI const& a = r.locationId().civicAddressLCI();
         EXPECT_TRUE(a.received());
         EXPECT_EQ(a.what(), 2);
         EXPECT_EQ(a.countryCode(), "DE");
         EXPECT_EQ(a.caElements(3).caValue(), "Berlin");
         EXPECT_EQ(a.caElements().size(), 1u);  // CA type 0 keys nothing
         EXPECT_EQ(r.locationId().ecsElin().elin(), "0123456789");
       }},
      {"LLDP-MED broken locations", {med(3, "\x02" + bytes({2, 0x41, 0x46, 0x35, 0})), med(3, "\x03" "911"), med(3, "\x04")}, 0, 3,
       [](R const& r) { EXPECT_TRUE(!r.locationId()); }},
  };
  for (TlvCase const& k : cases) {
    SCOPED_TRACE(k.name);
    Rx rx;
    ASSERT_EQ(rx(frame(1, k.tlvs)), FrameResult::added);
    EXPECT_EQ(rx.ps.rxTLVsUnrecognizedTotal(), k.unrecognized);
    EXPECT_EQ(rx.ps.rxTLVsDiscardedTotal(), k.discarded);
    k.check(*rx.only());
    // A repeat counts the same TLVs again.
    EXPECT_EQ(rx(frame(1, k.tlvs), 2.0), FrameResult::refreshed);
    EXPECT_EQ(rx.ps.rxTLVsUnrecognizedTotal(), 2 * k.unrecognized);
    EXPECT_EQ(rx.ps.rxTLVsDiscardedTotal(), 2 * k.discarded);
  }
}

// ---- the table

TEST(LldpRxTest, KeepsBothIndexesTimesAndCountersThroughALife) {
  Rx rx;
  Lldp::Status const& root = *rx.status;
  ASSERT_EQ(rx(frame(1, {tlv(5, "a")}, 30), 10.0), FrameResult::added);
  ASSERT_EQ(rx(frame(2, {}, 30), 11.0), FrameResult::added);
  Lldp::RemoteSystem::Ptr const a = rx.ps.remoteSystem(1);
  ASSERT_TRUE(a && rx.ps.remoteSystem(2));
  EXPECT_EQ(rx.ps.remoteSystemByMsap(a->msap()), a);
  EXPECT_EQ(a->chassisIdSubtype(), Lldp::cidMacAddress);
  EXPECT_EQ(a->portId().value(), "eth0");
  EXPECT_EQ(a->ethAddr().stringValue(), "02:00:00:00:00:01");
  EXPECT_EQ(rx.ps.nextRemoteSystemIndex(), 3u);
  EXPECT_EQ(root.remTablesInserts(), 2u);
  EXPECT_EQ(a->creationTime(), 10.0);
  EXPECT_EQ(a->expiryTime(), 40.0);

  // The same LLDPDU refreshes; a different one changes.
  ASSERT_EQ(rx(frame(1, {tlv(5, "a")}, 30), 20.0), FrameResult::refreshed);
  EXPECT_EQ(a->lastRefreshTime(), 20.0);
  EXPECT_EQ(a->lastChangeTime(), 10.0);
  EXPECT_EQ(a->expiryTime(), 50.0);
  ASSERT_EQ(rx(frame(1, {tlv(5, "b")}, 30), 25.0), FrameResult::updated);
  EXPECT_EQ(text(a->sysName()), "b");
  EXPECT_EQ(a->lastChangeTime(), 25.0);
  EXPECT_EQ(root.remTablesLastChangeTime(), 25.0);
  // A TLV left out is gone from the neighbour.
  ASSERT_EQ(rx(frame(1, {}, 30), 26.0), FrameResult::updated);
  EXPECT_FALSE(a->sysName().isSet());

  // Neighbour 2 (expiring at 41) ages out when time passes it.
  ASSERT_EQ(rx(frame(1, {}, 30), 42.0), FrameResult::refreshed);
  EXPECT_FALSE(rx.ps.remoteSystem(2));
  EXPECT_EQ(rx.ps.remoteSystemByMsap().size(), 1u);
  EXPECT_EQ(rx.ps.rxAgeoutsTotal(), 1u);
  EXPECT_EQ(root.remTablesAgeouts(), 1u);
  // Neighbour 1 says goodbye.
  ASSERT_EQ(rx(frame(1, {}, 0), 43.0), FrameResult::removed);
  EXPECT_TRUE(rx.ps.remoteSystem().empty() && rx.ps.remoteSystemByMsap().empty());
  EXPECT_EQ(root.remTablesDeletes(), 2u);
  EXPECT_EQ(root.remTablesLastChangeTime(), 43.0);
  // A neighbour that comes back takes the next index.
  ASSERT_EQ(rx(frame(1), 44.0), FrameResult::added);
  EXPECT_TRUE(rx.ps.remoteSystem(3));
  EXPECT_EQ(rx.ps.rxFramesTotal(), 8u);

  std::vector<std::string> const want = {
      "LLDP_NEIGHBOR_NEW: LLDP neighbor with chassisId 02:00:00:00:00:01 and portId \"eth0\" added on interface Ethernet1",
      "LLDP_NEIGHBOR_NEW: LLDP neighbor with chassisId 02:00:00:00:00:02 and portId \"eth0\" added on interface Ethernet1",
      "LLDP_NEIGHBOR_TIMEOUT: LLDP neighbor with chassisId 02:00:00:00:00:02 and portId \"eth0\" timed out on interface Ethernet1",
      "LLDP_NEIGHBOR_GONE: Received a shutdown frame from LLDP neighbor with chassisId 02:00:00:00:00:01 and portId \"eth0\" on interface Ethernet1",
      "LLDP_NEIGHBOR_NEW: LLDP neighbor with chassisId 02:00:00:00:00:01 and portId \"eth0\" added on interface Ethernet1"};
  EXPECT_EQ(rx.events, want);

  rx.receiver.clear("admin", "console", 50.0);
  EXPECT_TRUE(rx.ps.remoteSystem().empty());
  EXPECT_EQ(rx.events.back(), "LLDP_REMOTE_TABLES_CLEARED: LLDP neighbor table cleared by admin on console");

  // A port that goes away takes its neighbours and its status with it.
  ASSERT_EQ(rx(frame(1), 51.0), FrameResult::added);
  Platform::IntfId const intf = rx.ps.intfId();
  rx.receiver.portDel(intf, 52.0);
  EXPECT_FALSE(root.portStatus(intf));
  EXPECT_FALSE(rx.receiver.port(intf));
  EXPECT_EQ(root.remTablesDeletes(), 4u);  // aged out, shutdown, cleared, and this one
  EXPECT_EQ(root.remTablesLastChangeTime(), 52.0);
}

TEST(LldpRxTest, HonoursTheNeighbourLimitAndTheRateLimit) {
  Rx rx;
  Lldp::PortConfig& pc = *rx.port.config();
  pc.maxRemoteSystemsIs(2);
  pc.rxRateLimitMaxIs(3);
  pc.rxRateLimitPeriodIs(5.0);
  EXPECT_EQ(rx(frame(1), 0.0), FrameResult::added);
  EXPECT_EQ(rx(frame(2), 1.0), FrameResult::added);
  EXPECT_EQ(rx(frame(3), 2.0), FrameResult::tableFull);
  EXPECT_EQ(rx.status->remTablesDrops(), 1u);
  EXPECT_EQ(rx(frame(1), 3.0), FrameResult::rateLimited);
  EXPECT_EQ(rx(frame(1), 4.0), FrameResult::rateLimited);
  EXPECT_EQ(rx(frame(1), 5.0), FrameResult::refreshed);  // a new period
  EXPECT_EQ(rx.ps.rxFramesDiscardedTotal(), 3u);
  EXPECT_EQ(rx.ps.rxFramesTotal(), 4u);
  EXPECT_EQ(std::count(rx.events.begin(), rx.events.end(),
                       "LLDP_RX_RATELIMIT: Exceeded Rx LLDPDU rate limit on Ethernet1 (more than 3 LLDPDUs in 5.000000 seconds)"),
            1);
  pc.rxRateLimitingEnabledIs(false);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(rx(frame(2), 6.0), FrameResult::refreshed);
}

TEST(LldpRxTest, ReceivesOnlyWhereTheAdminStatusReceives) {
  using Lldp::AdminStatus;
  for (auto [status, receives] : {std::pair{Lldp::txAndRx, true}, std::pair{Lldp::rxOnly, true},
                                  std::pair{Lldp::txOnly, false}, std::pair{Lldp::disabled, false}}) {
    Rx rx;
    rx.port.config()->adminStatusIs(status);
    EXPECT_EQ(rx(frame(1)), receives ? FrameResult::added : FrameResult::portDisabled) << Lldp::stringValue(status);
    EXPECT_EQ(rx.ps.rxFramesTotal(), receives ? 1u : 0u);
  }
}

TEST(LldpRxTest, FoldsReservedIdSubtypesIntoOneNeighbour) {
  Rx rx;
  auto withSubtype = [](int subtype) { return ethernet(tlv(1, bytes({subtype, 1, 2, 3})) + portName("p") + ttl(120)); };
  EXPECT_EQ(rx(withSubtype(9)), FrameResult::added);
  EXPECT_EQ(rx(withSubtype(200)), FrameResult::updated);  // other bytes, the same neighbour
  EXPECT_EQ(rx.only()->chassisIdSubtype(), Lldp::cidUnknown);
  EXPECT_EQ(rx(withSubtype(0)), FrameResult::added);
  EXPECT_EQ(rx.ps.remoteSystemByMsap().size(), 2u);
}

// ---- a neighbour's frames decoded TLV by TLV against its previous frame must leave the
// tree a full decode leaves, and no input may throw or break the indexes.

Bytes mutate(std::mt19937& rng, Bytes f) {
  std::uniform_int_distribution<int> byte(0, 255);
  int const edits = std::uniform_int_distribution<int>(0, 3)(rng);
  for (int i = 0; i < edits && f.size() > 14; ++i) {
    std::size_t const at = std::uniform_int_distribution<std::size_t>(14, f.size() - 1)(rng);
    switch (std::uniform_int_distribution<int>(0, 2)(rng)) {
      case 0: f[at] = static_cast<char>(byte(rng)); break;
      case 1: f.erase(at, std::uniform_int_distribution<std::size_t>(1, 8)(rng)); break;
      default: f.insert(at, 1, static_cast<char>(byte(rng))); break;
    }
  }
  return f;
}

TEST(LldpRxTest, IncrementalDecodeLeavesTheTreeAFullDecodeLeaves) {
  std::vector<Bytes> const bases = {
      frame(1, {tlv(4, "port"), tlv(5, "name"), tlv(8, bytes({5, 1, 192, 0, 2, 1, 2}) + be32(5) + zero), dot1(1, be16(1)),
                dot1(3, be16(10) + "\x01v"), dot3(2, bytes({0x0f, 1, 5, 0x12}) + be16(255) + be16(250)),
                med(2, "\x01" + bytes({0x43, 0xe9, 0x6e})), org(0x000142, 1, "\x09"), tlv(9, "x")}),
      frame(2, {med(1, be16(0x2f) + "\x04"), med(3, "\x03" "0123456789"), med(5, "HW"), dot3(1, bytes({3, 0x6c, 0, 0, 16}))}),
      frame(3, {tlv(6, "desc"), dot1(4, "\x01\x42"), dot1(4, "\x01\x43"), dot3(4, be16(1500))}, 5)};
  Rx full, incremental;
  full.receiver.incrementalIs(false);
  full.port.config()->rxRateLimitingEnabledIs(false);
  incremental.port.config()->rxRateLimitingEnabledIs(false);
  std::mt19937 rng(7);
  double now = 0;
  for (int i = 0; i < 4000; ++i) {
    Bytes const f = mutate(rng, bases[static_cast<std::size_t>(i) % bases.size()]);
    now += 0.25;
    FrameResult a{}, b{};
    ASSERT_NO_THROW(a = full(f, now));
    ASSERT_NO_THROW(b = incremental(f, now));
    ASSERT_EQ(a, b) << "frame " << i;
    if (i % 50 == 0) {
      ASSERT_EQ(LldpRx::treeText(*full.status), LldpRx::treeText(*incremental.status)) << "frame " << i;
    }
    ASSERT_EQ(full.ps.remoteSystem().size(), full.ps.remoteSystemByMsap().size());
  }
  EXPECT_EQ(LldpRx::treeText(*full.status), LldpRx::treeText(*incremental.status));
  EXPECT_GT(full.ps.rxFramesErrors(), 100u);
  EXPECT_GT(full.ps.rxFramesTotal(), 1000u);
}

}  // namespace
