// The receive path against IEEE 802.1AB (LLDPDU validation, 9.2.7.7; the basic TLVs,
// clause 8.5; the table's counters and timers), the IEEE 802.1 and 802.3 TLVs (802.1AB
// annexes E and F) and ANSI/TIA-1057 (LLDP-MED): frames built byte by byte from those
// layouts, results read back from the model and from the tool's JSON of it.
#include <gtest/gtest.h>

#include <random>

#include "Tools/RxTestUtil.h"
#include "tools/lldp-neighbors/Show.h"

namespace {

using namespace RxTest;
using LldpRx::FrameResult;
using json = nlohmann::ordered_json;

// ---- LLDPDU validation: an invalid LLDPDU is counted in error and discarded whole.

Bytes const zero(1, '\0');  // an empty OID string's length octet
// An OID string of 129 octets, one over the limit: 1.3, then 64 arcs of two octets.
Bytes const oid129 = [] { Bytes s = "\x81\x2b"; for (int i = 0; i < 64; ++i) s += "\x81\x01"; return s; }();
Bytes const header = bytes({1, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1});
Bytes pdu3(Bytes a, Bytes b, Bytes c) { return ethernet(a + b + c + end()); }

TEST(LldpRxTest, ValidatesTheLldpdu) {
  Bytes const c = chassisMac(1), p = portName("eth0"), t = ttl(120), tagged = header + bytes({0x81, 0, 0, 5, 0x88, 0xcc}) + c + p + t;
  struct {
    const char* name;
    Bytes frame;
    FrameResult result;
    std::uint32_t total, discarded, errors;
    bool dropTagged = false;
    Lldp::AdminStatus admin = Lldp::txAndRx;
  } const cases[] = {
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
      {"another EtherType", header + bytes({0x08, 0x00}) + c + p + t, FrameResult::notLldp, 0, 0, 0},
      {"runt", Bytes(13, '\0'), FrameResult::notLldp, 0, 0, 0},
      {"VLAN tagged", tagged, FrameResult::added, 1, 0, 0},
      {"VLAN tagged, dropped", tagged, FrameResult::tagged, 0, 1, 0, true},
      {"rxOnly port", pdu3(c, p, t), FrameResult::added, 1, 0, 0, false, Lldp::rxOnly},
      {"txOnly port", pdu3(c, p, t), FrameResult::portDisabled, 0, 0, 0, false, Lldp::txOnly},
      {"disabled port", pdu3(c, p, t), FrameResult::portDisabled, 0, 0, 0, false, Lldp::disabled},
  };
  for (auto const& k : cases) {
    SCOPED_TRACE(k.name);
    Rx rx;
    rx.config->rxTaggedPacketsDropIs(k.dropTagged);
    rx.port.config()->adminStatusIs(k.admin);
    EXPECT_EQ(rx(k.frame), k.result);
    EXPECT_EQ(rx.ps.rxFramesTotal(), k.total);
    EXPECT_EQ(rx.ps.rxFramesDiscardedTotal(), k.discarded);
    EXPECT_EQ(rx.ps.rxFramesErrors(), k.errors);
    EXPECT_EQ(rx.ps.remoteSystem().size(), k.result == FrameResult::added ? 1u : 0u);
    EXPECT_EQ(rx.ps.remoteSystemByMsap().size(), rx.ps.remoteSystem().size());
  }
}

// ---- TLVs: what each one stores (in the neighbour's JSON), and how it counts.

// `want` found in `got`: an object's keys (null: the key is absent), a list element by element.
void expectWithin(json const& want, json const& got, std::string const& at) {
  if (want.is_object() && got.is_object()) {
    for (auto const& [k, v] : want.items()) {
      if (v.is_null() || !got.contains(k)) {
        EXPECT_TRUE(v.is_null() && !got.contains(k)) << at << "/" << k << (v.is_null() ? " present" : " missing");
      } else {
        expectWithin(v, got.at(k), at + "/" + k);
      }
    }
  } else if (want.is_array() && got.is_array() && want.size() == got.size()) {
    for (std::size_t i = 0; i < want.size(); ++i) expectWithin(want[i], got[i], at + "/" + std::to_string(i));
  } else {
    EXPECT_EQ(got, want) << at;
  }
}

TEST(LldpRxTest, DecodesEveryTlv) {
  struct {
    const char* name;
    std::vector<Bytes> tlvs;
    std::uint32_t unrecognized, discarded;
    const char* neighbour;  // JSON within the neighbour's
  } const cases[] = {
      {"basic TLVs, text in UTF-8 of 1 to 4 octets",
       {tlv(4, "Gi1/0/2"), tlv(5, ""), tlv(5, "second"), tlv(6, "Z\xc3\xbcrich \xe2\x82\xac \xf0\x9f\x98\x80"), tlv(7, be16(0x0014) + be16(0x0004))},
       0, 1,
       R"({"portDesc": "Gi1/0/2", "sysName": "", "sysDesc": "Zürich € 😀",
           "systemCapabilities": {"supported": ["bridge", "router"], "enabled": ["bridge"]}})"},
      {"basic TLVs out of range", {tlv(5, Bytes(256, 'n')), tlv(7, bytes({0, 4, 0}))}, 0, 2, R"({"sysName": null, "systemCapabilities": null})"},
      {"management addresses: IPv4 with an OID, IPv6, MAC",
       {tlv(8, bytes({5, 1, 192, 0, 2, 1, 2}) + be32(5) + bytes({9, 0x2b, 6, 1, 2, 1, 2, 2, 1, 1})),
        tlv(8, bytes({17, 2}) + Bytes(15, '\0') + "\x01" + bytes({3}) + be32(7) + zero), tlv(8, bytes({7, 6, 2, 0, 0, 0, 0, 9, 1}) + be32(0) + zero)},
       0, 0,
       R"({"managementAddresses": [
           {"address": "192.0.2.1", "addressSubtypeCode": 1, "interfaceSubtypeCode": 2, "interfaceNumber": 5, "oid": "1.3.6.1.2.1.2.2.1.1"},
           {"address": "::1", "addressSubtypeCode": 2, "interfaceSubtypeCode": 3, "interfaceNumber": 7, "oid": null},
           {"address": "02:00:00:00:00:09", "addressSubtypeCode": 6, "interfaceSubtypeCode": 1, "interfaceNumber": 0}]})"},
      {"management addresses out of range: a string of 33 octets, interface subtype 4, an OID of 129 octets",
       {tlv(8, bytes({33, 1}) + Bytes(32, 'a') + "\x02" + be32(1) + zero), tlv(8, bytes({5, 1, 192, 0, 2, 1, 4}) + be32(1) + zero),
        tlv(8, bytes({5, 1, 192, 0, 2, 1, 2}) + be32(1) + oid129)}, 0, 3,
       R"({"managementAddresses": null})"},
      {"reserved TLV types, unknown organizations numbered per OUI and subtype, an organization without subtype",
       {tlv(9, "nine"), tlv(126, ""), tlv(9, "again"), org(0x000142, 1, "\x09"), org(0x000142, 1, "xy"), org(0x000142, 2, ""), dot3(9, "eee"),
        tlv(127, bytes({0, 0x12, 0x0f}))},
       6, 2,
       R"({"unknownTlvs": [{"type": 9, "info": "6e 69 6e 65"}, {"type": 126, "info": ""}],
           "unknownOrgDefTlvs": [{"oui": "00-01-42", "subtype": 1, "index": 1, "info": "09"}, {"oui": "00-01-42", "subtype": 1, "index": 2, "info": "78 79"},
                                 {"oui": "00-01-42", "subtype": 2, "index": 1, "info": ""}, {"oui": "00-12-0f", "subtype": 9, "index": 1, "info": "65 65 65"}]})"},
      {"IEEE 802.1", {dot1(1, be16(100)), dot1(2, "\x06" + be16(200)), dot1(2, "\x02" + be16(300)), dot1(3, be16(100) + "\x05voice"), dot1(3, be16(20) + zero),
        dot1(4, "\x02\x88\x8e"), dot1(4, "\x01\x42"), dot1(5, be32(0xdeadbeef)), dot1(6, be16(10)), dot1(7, "\x03" + be32(5))},
       0, 0,
       R"({"ieee8021": {"portVlanId": 100,
           "portAndProtocolVlans": [{"ppvid": 200, "supported": true, "enabled": true}, {"ppvid": 300, "supported": true, "enabled": false}],
           "vlanNames": [{"vlanId": 20, "name": ""}, {"vlanId": 100, "name": "voice"}],
           "protocolIdentities": [{"index": 1, "protocolId": "88 8e"}, {"index": 2, "protocolId": "42"}],
           "vidUsageDigest": "0xdeadbeef", "managementVid": 10,
           "linkAggregation": {"aggCapable": true, "aggEnabled": true, "portId": 5}}})"},
      {"IEEE 802.3 through the 802.3 parser (field by field in ExtDot3ParserTest)",
       {dot3(1, bytes({3, 0x6c, 0, 0, 16})), dot3(2, bytes({0x0f, 1, 5, 0x12}) + be16(255) + be16(250)), dot3(4, be16(1522))}, 0, 0,
       R"({"ieee8023": {"macPhyConfigStatus": {"autoNegSupported": true, "autoNegEnabled": true, "operMauTypeCode": 16},
           "powerViaMdi": {"at": {"pdRequestedPower": 25.5, "pseAllocatedPower": 25.0}}, "maximumFrameSize": 1522}})"},
      {"IEEE 802.1 and 802.3 out of range",
       {dot1(1, be16(4095)), dot1(3, be16(0) + "\x01x"), dot1(3, be16(7) + "\x09short"), dot1(3, be16(8) + "\x21" + Bytes(33, 'v')), dot1(4, "\x05" "ab"),
        dot3(1, bytes({3, 0x6c, 0, 0})), dot3(2, bytes({0x0f, 1})), dot3(3, bytes({1, 0, 0, 0})), dot3(4, "\x05")},
       0, 9, R"({"ieee8021": null, "ieee8023": null})"},
      {"LLDP-MED capabilities, policies, inventory",
       {med(1, be16(0x002f) + "\x04"), med(2, "\x01" + bytes({0x43, 0xe9, 0x6e})), med(2, "\x02" + bytes({0x80, 0, 0})), med(5, "HW1"), med(11, "asset")}, 0, 0,
       R"({"lldpMed": {"capabilities": {"capability": ["capabilities", "networkPolicy", "location", "extendedPse", "inventory"], "deviceTypeCode": 4},
           "networkPolicies": [{"applicationCode": 1, "unknownPolicy": false, "tagged": true, "vlanId": 500, "cosValue": 5, "dscpValue": 46},
                               {"applicationCode": 2, "unknownPolicy": true, "tagged": false, "vlanId": 0, "cosValue": 0, "dscpValue": 0}],
           "hardwareRevision": "HW1", "assetId": "asset", "serialNumber": null}})"},
      {"LLDP-MED reserved device type", {med(1, be16(1) + "\x09")}, 0, 0, R"({"lldpMed": {"capabilities": {"deviceTypeCode": 5}}})"},
      {"LLDP-MED out of range", {med(1, be16(0x0080) + "\x01"), med(6, Bytes(33, 'f')), med(2, "\x01\x00")}, 0, 3, R"({"lldpMed": null})"},
      {"LLDP-MED locations: coordinates, civic address, ELIN",
       {med(3, "\x01" + bytes({0x2b, 0xfd, 0, 0, 0, 0, 2, 0, 0, 0, 0x17, 0x80, 0, 1, 0, 1})),
        med(3, "\x02" + bytes({15, 2}) + "DE" + bytes({3, 6}) + "Berlin" + bytes({0, 2}) + "de" + Bytes(5, '\0')), med(3, "\x03" "0123456789")},
       0, 0,
       R"({"lldpMed": {"coordinate": {"latitude": -1.5, "latitudeResolution": 10, "longitude": 1.0, "longitudeResolution": 0,
                                      "altitude": 1.0, "altitudeTypeCode": 1, "altitudeResolution": 30, "datumCode": 1},
           "civicAddress": {"what": 2, "countryCode": "DE", "elements": [{"caType": 3, "caValue": "Berlin"}]}, "elin": "0123456789"}})"},
      {"LLDP-MED broken locations: LCIs too short or overrun by an element, an ELIN of 3 digits, format 4",
       {med(3, "\x02" + bytes({2, 0x41, 0x46, 0x35, 0})), med(3, "\x02" + bytes({7, 2}) + "DE" + bytes({3, 9}) + "Berlin" + Bytes(3, '\0')),
        med(3, "\x03" "911"), med(3, "\x04")},
       0, 4, R"({"lldpMed": null})"},
  };
  for (auto const& k : cases) {
    SCOPED_TRACE(k.name);
    Rx rx;
    ASSERT_EQ(rx(frame(1, k.tlvs)), FrameResult::added);
    EXPECT_EQ(rx.ps.rxTLVsUnrecognizedTotal(), k.unrecognized);
    EXPECT_EQ(rx.ps.rxTLVsDiscardedTotal(), k.discarded);
    expectWithin(json::parse(k.neighbour), LldpNeighbors::toJson(LldpNeighbors::describe(*rx.status))["ports"][0]["neighbors"][0], "");
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
  EXPECT_EQ(a->ethAddr().stringValue(), "02:00:00:00:00:01");
  EXPECT_EQ(root.remTablesInserts(), 2u);
  EXPECT_EQ(a->creationTime(), 10.0);
  EXPECT_EQ(a->expiryTime(), 40.0);

  // The same LLDPDU refreshes; a different one changes.
  ASSERT_EQ(rx(frame(1, {tlv(5, "a")}, 30), 20.0), FrameResult::refreshed);
  EXPECT_EQ(a->lastRefreshTime(), 20.0);
  EXPECT_EQ(a->lastChangeTime(), 10.0);
  EXPECT_EQ(a->expiryTime(), 50.0);
  ASSERT_EQ(rx(frame(1, {tlv(5, "b")}, 30), 25.0), FrameResult::updated);
  EXPECT_EQ(a->sysName().value().value(), "b");
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

  std::string const n1 = "LLDP neighbor with chassisId 02:00:00:00:00:01 and portId \"eth0\"",
                    n2 = "LLDP neighbor with chassisId 02:00:00:00:00:02 and portId \"eth0\"";
  std::vector<std::string> const want = {"LLDP_NEIGHBOR_NEW: " + n1 + " added on interface Ethernet1",
                                         "LLDP_NEIGHBOR_NEW: " + n2 + " added on interface Ethernet1",
                                         "LLDP_NEIGHBOR_TIMEOUT: " + n2 + " timed out on interface Ethernet1",
                                         "LLDP_NEIGHBOR_GONE: Received a shutdown frame from " + n1 + " on interface Ethernet1",
                                         "LLDP_NEIGHBOR_NEW: " + n1 + " added on interface Ethernet1"};
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

TEST(LldpRxTest, FoldsReservedIdSubtypesIntoOneNeighbour) {
  Rx rx;
  auto withSubtype = [](int subtype) { return ethernet(tlv(1, bytes({subtype, 1, 2, 3})) + portName("p") + ttl(120)); };
  EXPECT_EQ(rx(withSubtype(9)), FrameResult::added);
  EXPECT_EQ(rx(withSubtype(200)), FrameResult::updated);  // other bytes, the same neighbour
  EXPECT_EQ(rx.ps.remoteSystem(1)->chassisIdSubtype(), Lldp::cidUnknown);
  EXPECT_EQ(rx(withSubtype(0)), FrameResult::added);
  EXPECT_EQ(rx.ps.remoteSystemByMsap().size(), 2u);
}

// ---- a neighbour's frames decoded TLV by TLV against its previous frame must leave the
// tree a full decode leaves, and no input may throw or break the indexes.

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
  auto pick = [&](std::size_t lo, std::size_t hi) { return std::uniform_int_distribution<std::size_t>(lo, hi)(rng); };
  double now = 0;
  for (int i = 0; i < 4000; ++i) {
    // Up to three edits past the Ethernet header: a byte changed, up to 8 cut, one inserted.
    Bytes f = bases[static_cast<std::size_t>(i) % bases.size()];
    for (std::size_t e = pick(0, 3); e > 0 && f.size() > 14; --e) {
      std::size_t const at = pick(14, f.size() - 1), how = pick(0, 2);
      if (how == 0) f[at] = static_cast<char>(pick(0, 255));
      else if (how == 1) f.erase(at, pick(1, 8));
      else f.insert(at, 1, static_cast<char>(pick(0, 255)));
    }
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
