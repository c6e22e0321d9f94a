// The IEEE 802.3 TLVs: the receive parser (every length class of each subtype, the
// neighbour left untouched by a short TLV, the trace lines), the Power via MDI builder, send
// decision and fallback (bytes and trace lines for port states chosen field by field from the
// TLV's layout), and tshark as an independent decoder of the bodies we build. (What we parse
// is compared with tshark through the neighbour tool, over the sample and the device
// captures, in Tools/InteropTest.)
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Lldp/Dot3TestUtil.h"
#include "Lldp/Lldp.h"
#include "Lldp/LldpExtDot3Parser.h"
#include "Lldp/LldpPoe.h"

namespace {

using namespace Lldp;
using namespace Dot3Test;


using Lldp::Agent::Protocol::parseExtDot3Tlv;

RemoteSystem::Ptr neighbour(PortStatus::Ptr const& port) { return port->remoteSystemIs(1, msapOf(1)); }

// A bt body whose every field differs from its neighbours, then 5 extra bytes.
Bytes const powerBody(
    "\xFD\x02\x05\x9E\x01\x2C\x00\xFA\x01\x63\x01\x64\x00\xFF\x01\x00\xDA\x35\x0B\x03\x84\x05\x75\x23\x45"
    "\xAA\xBB\xCC\xDD\xEE",
    30);

// The same body decoded by hand from the TLV's layout, up to the given layer.
PowerViaMdiInfo powerInfo(PowerViaMdiInfo::IeeeStandard layer) {
  PowerViaMdiInfo p;
  p.ieeeStandardIs(layer);
  p.portClassIs(pClassPSE);  // 0xFD: PSE, not supported, enabled, pairs controllable
  p.enabledIs(true);
  p.powerPairControllableIs(true);
  p.powerPairsIs(2);
  p.powerClassIs(5);
  if (layer == PowerViaMdiInfo::IeeeStandard_802_3af) return p;
  PowerViaMdiInfo::At at;  // 0x9E: type 2, source 1, (reserved 1, 4PID 1), priority 2
  at.powerTypeIs(Power::PowerType::type1Pse);
  at.powerSourceIs(Power::PowerSource::primary);
  at.powerPriorityIs(Power::PowerPriority::high);
  at.pdRequestedPowerValueIs(300);
  at.pseAllocatedPowerValueIs(250);
  p.atIs(at);
  if (layer == PowerViaMdiInfo::IeeeStandard_802_3at) return p;
  PowerViaMdiInfo::Bt bt;
  bt.pd4PidIs(true);
  bt.pdRequestedPowerValueModeAIs(355);
  bt.pdRequestedPowerValueModeBIs(356);
  bt.pseAllocatedPowerValueAlternativeAIs(255);
  bt.pseAllocatedPowerValueAlternativeBIs(256);
  // 0xDA35 = 11 01 10 100 011 0101
  bt.psePoweringStatusIs(Power::PsePoweringStatus::fourPairDualSignature);
  bt.pdPoweredStatusIs(PowerViaMdiInfo::Bt::PoweredSingleSignaturePd);
  bt.psePowerPairsExtIs(Power::PsePowerPairsExt::alternativeB);
  bt.dualSignaturePowerClassExtModeAIs(Power::DualSignaturePowerClassExtMode::class4);
  bt.dualSignaturePowerClassExtModeBIs(Power::DualSignaturePowerClassExtMode::class3);
  bt.powerClassExtIs(PowerViaMdiInfo::Bt::PowerClassExt5);
  bt.powerTypeExtIs(Power::PowerTypeExt::type4PdDualSignature);  // 0x0B: type ext 5, PD load
  bt.pdLoadIs(true);
  bt.pseMaximumAvailablePowerValueIs(900);
  bt.pseAutoclassSupportIs(true);  // 0x05: support, request
  bt.autoclassRequestIs(true);
  bt.powerDownRequestIs(true);  // 0x75 >> 2 == 0x1D
  bt.powerDownTimeIs(0x12345);
  p.btIs(bt);
  return p;
}

struct Case {
  const char* what;
  int subtype;
  Bytes body;
  int length;
  int result;
  std::function<void(Dot3State&)> change;  // from the state before, none when null
  std::vector<std::string> trace;          // at level 8
};

auto power(PowerViaMdiInfo::IeeeStandard layer) {
  return [layer](Dot3State& s) {
    s.power = powerInfo(layer);
    s.powerFlag = true;
  };
}
void macPhy(Dot3State& s) {  // 03 6C01 0010
  s.mac = MacPhyConfigStatusInfo();
  s.mac.autoNegSupportedIs(true);
  s.mac.autoNegEnabledIs(true);
  s.mac.autoNegAdvertisedCapIs(Platform::AutoNegCapBits(0x8036));  // field bits 14 13 11 10 0
  s.mac.operMauTypeIs(16);
  s.macFlag = true;
}
void linkAggregation(Dot3State& s) {  // 03 80000001
  s.agg = LinkAggregationInfo();
  s.agg.statusIs(LinkAggStatusMap(3));
  s.agg.portIdIs(-2147483647);
  s.aggFlag = true;
}
void frameSize(Dot3State& s) {  // 05EE
  s.mfs = MaximumFrameSizeInfo(1518);
  s.mfsFlag = true;
}

#define AF "6 Parsing Power Via MDI @ IEEE 802.3af fields"
#define AT "6 Parsing Power Via MDI @ IEEE 802.3at fields"
#define BT "6 Parsing Power Via MDI @ IEEE 802.3bt fields"
#define UNRECOGNIZED "8 Unrecognized 802.3 Organizationally Specific TLV (subtype="

using enum PowerViaMdiInfo::IeeeStandard;
// clang-format off
std::vector<Case> const cases = {
    {"power, 2 bytes", 2, powerBody, 2, 4, nullptr, {AF, "0 Error: Power Via MDI TLV is too short (length=2)"}},
    {"power, af", 2, powerBody, 3, 1, power(IeeeStandard_802_3af),
     {AF, "6 Power Via MDI:Value('Lldp::PowerViaMdiInfo', ** {'ieeeStandard': IeeeStandard_802_3af, 'portClass': pClassPSE*"}},
    {"power, one short of at", 2, powerBody, 7, 1, power(IeeeStandard_802_3af), {AF, "6 Power Via MDI:*"}},
    {"power, at", 2, powerBody, 8, 1, power(IeeeStandard_802_3at), {AF, AT, "6 Power Via MDI:*"}},
    {"power, one short of bt", 2, powerBody, 24, 1, power(IeeeStandard_802_3at), {AF, AT, "6 Power Via MDI:*"}},
    {"power, bt", 2, powerBody, 25, 1, power(IeeeStandard_802_3bt),
     {AF, AT, BT, "6 Power Via MDI:Value('Lldp::PowerViaMdiInfo', ** {'ieeeStandard': IeeeStandard_802_3bt*"}},
    {"power, bt and 5 more", 2, powerBody, 30, 1, power(IeeeStandard_802_3bt),
     {AF, AT, BT, "6 Unknown Power Via MDI with extra 5 bytes", "6 Power Via MDI:*"}},
    {"MAC/PHY", 1, Bytes("\xFF\x6C\x01\x00\x10\x99", 6), 6, 1, macPhy,
     {"6 MAC/PHY Configuration/Status: Value('Lldp::MacPhyConfigStatusInfo', ** {'autoNegSupported': *"}},
    {"MAC/PHY, enabled only", 1, Bytes("\x02\x6C\x01\x00\x10", 5), 5, 1,
     [](Dot3State& s) { macPhy(s); s.mac.autoNegSupportedIs(false); }, {"6 MAC/PHY*"}},
    {"MAC/PHY without its MAU type", 1, Bytes("\x03\x6C\x01\x00", 4), 4, 4, nullptr,
     {"0 Error: MAC/PHY Configuration/Status TLV is too short (length=4)"}},
    {"link aggregation", 3, Bytes("\x03\x80\x00\x00\x01\x99", 6), 6, 1, linkAggregation,
     {"6 Link Aggregation: Value('Lldp::LinkAggregationInfo', ** {'status': Value('Lldp::LinkAggStatusMap', *"}},
    {"link aggregation, port id cut", 3, Bytes("\x03\x00\x00\x30", 4), 4, 4, nullptr,
     {"0 Error: Link Aggregation TLV is too short (length=4)"}},
    {"frame size", 4, Bytes("\x05\xEE\x07", 3), 3, 1, frameSize, {"6 Maximum Frame Size: 1518"}},
    {"frame size, 1 byte", 4, Bytes("\x05", 1), 1, 4, nullptr, {"0 Error: Maximum Frame Size TLV is too short (length=1)"}},
    {"subtype 0", 0, powerBody, 25, 2, nullptr, {UNRECOGNIZED "0)"}},
    {"subtype 5", 5, powerBody, 25, 2, nullptr, {UNRECOGNIZED "5)"}},
    {"subtype -1", -1, powerBody, 25, 2, nullptr, {UNRECOGNIZED "-1)"}},
    {"negative length", 2, powerBody, -1, 4, nullptr, {}},  // refused before a byte is read
};
// clang-format on

TEST(ExtDot3ParserTest, DecodesEachLengthClassOrLeavesTheNeighbourAlone) {
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    PortStatus::Ptr const port = portStatusFactory(Platform::IntfId("Ethernet1"), 0.0);
    RemoteSystem::Ptr const remote = neighbour(port);
    // Records from an earlier frame whose flags were cleared: a short TLV must keep both.
    MacPhyConfigStatusInfo mac;
    mac.operMauTypeIs(30);
    remote->macPhyConfigStatusInfoIs(mac);
    LinkAggregationInfo agg;
    agg.portIdIs(7);
    remote->linkAggregationInfoIs(agg);
    remote->maximumFrameSizeInfoIs(MaximumFrameSizeInfo(9000));
    PowerViaMdiInfo old;
    old.powerClassIs(3);
    remote->powerViaMdiInfoIs(old);
    Dot3State expected = Dot3State::of(*remote);
    if (c.change) c.change(expected);

    TraceLines trace("LldpExtDot3Parser", 8);
    EXPECT_EQ(parseExtDot3Tlv(c.subtype, c.length, c.body.data(), remote), c.result);
    EXPECT_EQ(Dot3State::of(*remote), expected);
    expectLines(trace.lines, c.trace);
  }
}

// One byte of the bt body changed: fields that share a byte each come from their own bits.
TEST(ExtDot3ParserTest, EachFieldFromItsOwnBits) {
  PortStatus::Ptr const port = portStatusFactory(Platform::IntfId("Ethernet1"), 0.0);
  RemoteSystem::Ptr const remote = neighbour(port);
  using P = PowerViaMdiInfo;
  struct {
    std::size_t at;
    unsigned char byte;
    std::function<bool(P const&)> ok;
  } const rows[] = {
      {0, 0x15, [](P const& p) { return p.portClass() == pClassPSE && !p.supported() && p.enabled() &&
                                        !p.powerPairControllable(); }},
      {0, 0x0A, [](P const& p) { return p.portClass() == pClassPD && p.supported() && !p.enabled() &&
                                        p.powerPairControllable(); }},
      {3, 0x9A, [](P const& p) { return !p.bt().pd4Pid() && p.at().powerPriority() == Power::PowerPriority::high; }},
      {3, 0x66, [](P const& p) { return p.bt().pd4Pid() && p.at().powerType() == Power::PowerType::type2Pd &&
                                        p.at().powerSource() == Power::PowerSource::backup; }},
      {18, 0x0A, [](P const& p) { return !p.bt().pdLoad() && p.bt().powerTypeExt() == Power::PowerTypeExt::type4PdDualSignature; }},
      {21, 0x02, [](P const& p) { return !p.bt().pseAutoclassSupport() && p.bt().autoclassCompleted() &&
                                         !p.bt().autoclassRequest(); }},
      {22, 0x74, [](P const& p) { return p.bt().powerDownRequest() && p.bt().powerDownTime() == 0x2345; }},
      {22, 0x75, [](P const& p) { return p.bt().powerDownRequest() && p.bt().powerDownTime() == 0x12345; }},
      {22, 0x70, [](P const& p) { return !p.bt().powerDownRequest() && p.bt().powerDownTime() == 0x2345; }},
      {22, 0xFF, [](P const& p) { return !p.bt().powerDownRequest() && p.bt().powerDownTime() == 0x32345; }},
  };
  for (auto const& row : rows) {
    Bytes body = powerBody.substr(0, 25);
    body[row.at] = static_cast<char>(row.byte);
    ASSERT_EQ(parseExtDot3Tlv(2, 25, body.data(), remote), 1);
    EXPECT_TRUE(row.ok(remote->powerViaMdiInfo())) << row.at << " " << int(row.byte) << " "
                                                   << valueToStrep(remote->powerViaMdiInfo());
  }
}


using Power::PoePortStatus;
using Status = std::function<void(PoePortStatus&)>;

// The lines of "LldpPoe" with every level on.
struct PoeTrace : TraceLines {
  PoeTrace() : TraceLines("LldpPoe", Duolog::allLevels) {}
};

// "0F 01 ?? ..." against the bytes written; "??" is a byte the case does not look at.
void expectBytes(const char* out, int count, std::string hex) {
  std::erase_if(hex, [](char c) { return std::isspace(static_cast<unsigned char>(c)); });
  ASSERT_EQ(static_cast<std::size_t>(count) * 2, hex.size());
  for (int i = 0; i < count; ++i) {
    std::string const want = hex.substr(static_cast<std::size_t>(i) * 2, 2);
    if (want == "??") continue;
    EXPECT_EQ(static_cast<unsigned char>(out[i]), std::stoul(want, nullptr, 16)) << "offset " << i;
  }
}

// The 802.3bt bytes of btPortStatus() with the local requests.
#define BT_LOCAL "0078 0086 0078 0086 C623 02 0384 04 000000"

// Changes to btPortStatus() that the tables below combine.
void at(PoePortStatus& s) { s.lldpPoeNegotiationSupportIs(Power::LldpPoeNegotiationSupport::Ieee802_3at); }
void bt(PoePortStatus& s) { s.lldpPoeNegotiationSupportIs(Power::LldpPoeNegotiationSupport::Ieee802_3bt); }
void searching(PoePortStatus& s) { s.poePortStateIs(Power::PoePortState::searching); }
void pairsFixed(PoePortStatus& s) { s.psePairsControllableIs(false); }
void granted15_4(PoePortStatus& s) { s.grantedPowerIs(15.4); }
void granted30_05(PoePortStatus& s) { s.grantedPowerIs(30.05); }
// Wider than their fields: they spill into the neighbouring bits.
void widePrioritySource(PoePortStatus& s) {
  s.powerPriorityIs(static_cast<Power::PowerPriority>(7));
  s.powerSourceIs(static_cast<Power::PowerSource>(5));
}
template <void (*... F)(PoePortStatus&)>
void all(PoePortStatus& s) {
  (F(s), ...);
}

class LldpPoeTest : public ::testing::Test {
 protected:
  LocalPortPoeInfo::Ptr port(Status const& change) {
    PoePortStatus s = btPortStatus();
    if (change) change(s);
    info_->poePortStatusIs(s);
    return info_;
  }
  // A neighbour of portStatus_ requesting `at`, and in 802.3bt modes A and B.
  RemoteSystem::Ptr neighbour(int index, std::uint16_t at, std::uint16_t modeA = 0, std::uint16_t modeB = 0) {
    RemoteSystem::Msap msap;
    PortIdentifier pid;
    pid.portIdSubtypeIs(pidLocal);
    pid.portIdIs(PortId(Kel::String(std::to_string(index))));
    msap.portIdentifierIs(pid);
    RemoteSystem::Ptr r = portStatus_->remoteSystemIs(index, msap);
    PowerViaMdiInfo p;
    PowerViaMdiInfo::At a;
    a.pdRequestedPowerValueIs(at);
    p.atIs(a);
    PowerViaMdiInfo::Bt b;
    b.pdRequestedPowerValueModeAIs(modeA);
    b.pdRequestedPowerValueModeBIs(modeB);
    p.btIs(b);
    r->powerViaMdiInfoIs(p);
    return r;
  }

  Platform::IntfId const intf_{Kel::String("Ethernet7")};
  LocalSystem::Ptr system_ = localSystemFactory("local");
  LocalPortPoeInfo::Ptr info_ = system_->localPortIs(intf_)->localPortPoeInfoIs(intf_);
  Config::Ptr config_ = configFactory("config");
  PortConfig::Ptr portConfig_ = config_->portConfigIs(intf_);
  PortStatus::Ptr portStatus_ = portStatusFactory(intf_, 0.0);
};

TEST_F(LldpPoeTest, ConvertsWattsHalfAwayFromZero) {
  struct {
    double watts;
    long deciWatts;
  } const rows[] = {{1.25, 13},  {1.24, 12},   {12.95, 130}, {12.94, 129},
                    {15.4, 154}, {30.05, 301}, {-1.25, -13}, {0.04, 0}};
  for (auto const& r : rows) EXPECT_EQ(PoeUtils::wattsToDeciWatts(r.watts), r.deciWatts) << r.watts;
  EXPECT_DOUBLE_EQ(PoeUtils::deciWattsToWatts(255), 25.5);
}

TEST_F(LldpPoeTest, BuildsTheBodyOfEachPortState) {
  struct Case {
    const char* what;
    Status change;
    bool echo, withNeighbour;
    const char* bytes;
    std::vector<std::string> trace;
  };
  std::string const added = "6 Added Power Via MDI TLV (IEEE Std 802.3";
  // clang-format off
  Case const cases[] = {
      {"bt, local values", nullptr, false, false, "0F 01 04 92 00FF 00FF" BT_LOCAL,
       {"4 getRequestedPowerModeB 2 : ", added + "bt) to Ethernet7 with: grantedPower=255"}},
      {"at", at, false, false, "0F 01 04 92 00FF 00FF", {added + "at) to Ethernet7 with: grantedPower=255"}},
      {"echoing the neighbour", nullptr, true, true, "0F 01 04 92 0123 00FF 0111 0222 0078 0086 C623 02 0384 04 000000",
       {"4 getRequestedPowerModeB 1 : ", added + "bt) to Ethernet7 with: requestedPower=291, grantedPower=255"}},
      {"echo without a neighbour", nullptr, true, false, "0F 01 04 92 00FF 00FF" BT_LOCAL,
       {"4 getRequestedPowerModeB 2 : ", added + "bt) to Ethernet7 with: requestedPower=255, grantedPower=255"}},
      {"neighbour, not echoed", nullptr, false, true, "0F 01 04 92 00FF 00FF" BT_LOCAL,
       {"4 getRequestedPowerModeB 2 : ", added + "bt) to Ethernet7 with: grantedPower=255"}},
      {"powered, pairs fixed", pairsFixed, false, false, "07 ?? ?? ?? ???? ????" BT_LOCAL, {"4 *", "6 *"}},
      {"searching, pairs controllable", searching, false, false, "0B ?? ?? ?? ???? ????" BT_LOCAL, {"4 *", "6 *"}},
      {"15.4 W granted", granted15_4, false, false, "?? ?? ?? ?? 009A 009A" BT_LOCAL,
       {"4 *", added + "bt) to Ethernet7 with: grantedPower=154"}},
      {"30.05 W granted", granted30_05, false, false, "?? ?? ?? ?? 012D 012D" BT_LOCAL, {"4 *", "6 *"}},
      {"wide priority and source", widePrioritySource, false, false, "?? ?? ?? D7 ???? ????" BT_LOCAL, {"4 *", "6 *"}},
  };
  // clang-format on
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    LocalPortPoeInfo::Ptr const info = port(c.change);
    RemoteSystem::Ptr const remote = neighbour(1, 0x123, 0x111, 0x222);
    info->remoteSystemIs(c.withNeighbour ? RemoteSystem::PtrConst(remote) : nullptr);
    PoeTrace trace;
    char out[PoeUtils::maxPowerViaMdiBodyBytes + 1];
    out[PoeUtils::maxPowerViaMdiBodyBytes] = 0x5A;
    int const count = PoeUtils::buildPowerViaMdiTlv(out, *info, c.echo);
    expectBytes(out, count, c.bytes);
    EXPECT_EQ(out[PoeUtils::maxPowerViaMdiBodyBytes], 0x5A);
    expectLines(trace.lines, c.trace);
  }
}

TEST_F(LldpPoeTest, MapsTheDeviceClassToPowerClassAndExtension) {
  struct {
    unsigned deviceClass;
    const char* bytes;  // offsets 2, and 16 to 17
  } const rows[] = {{0, "00 C620"}, {1, "00 C620"}, {2, "01 C620"},  {5, "04 C623"},
                    {6, "05 C624"}, {7, "05 C625"}, {10, "05 C628"}, {200, "05 C6E6"}};
  for (auto const& r : rows) {
    LocalPortPoeInfo::Ptr const info =
        port([&r](PoePortStatus& s) { s.poweredDeviceClassIs(static_cast<Power::PoweredDeviceClass>(r.deviceClass)); });
    char out[PoeUtils::maxPowerViaMdiBodyBytes];
    ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(out, *info, false), 25);
    std::string const got{out[2], out[16], out[17]};
    expectBytes(got.data(), 3, r.bytes);
  }
}

TEST_F(LldpPoeTest, SendsOnlyFromAPoweredPseWithAGrantAndNegotiation) {
  std::string const notAdding = "Not adding Power Via MDI TLV (IEEE Std 802.3) to Ethernet7 because ";
  struct {
    const char* what;
    Status change;
    const char* line;  // null: sent
  } const cases[] = {
      {"ready", nullptr, nullptr},
      {"searching", searching, "6 PoE port state is searching"},
      {"type 2 PD", [](PoePortStatus& s) { s.powerTypeIs(Power::PowerType::type2Pd); }, "4 power type is type2Pd"},
      {"type 1 PD", [](PoePortStatus& s) { s.powerTypeIs(Power::PowerType::type1Pd); }, "4 power type is type1Pd"},
      {"type 2 PSE", [](PoePortStatus& s) { s.powerTypeIs(Power::PowerType::type2Pse); }, nullptr},
      {"class invalid", [](PoePortStatus& s) { s.poweredDeviceClassIs(Power::PoweredDeviceClass::invalid); },
       "4 power class is invalid"},
      {"class 0", [](PoePortStatus& s) { s.poweredDeviceClassIs(Power::PoweredDeviceClass::class0); }, nullptr},
      {"0.04 W", [](PoePortStatus& s) { s.grantedPowerIs(0.04); }, "4 PoE Agent did not set grantedPower"},
      {"0.05 W", [](PoePortStatus& s) { s.grantedPowerIs(0.05); }, nullptr},
      {"no negotiation",
       [](PoePortStatus& s) { s.lldpPoeNegotiationSupportIs(Power::LldpPoeNegotiationSupport::NotSupported); },
       "4 PoE Agent set lldpPoeNegotiationSupport == NotSupported"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    LocalPortPoeInfo::Ptr const info = port(c.change);
    PoeTrace trace;
    EXPECT_EQ(PoeUtils::canWeSendPowerViaMdiTlv(*info), c.line == nullptr);
    if (c.line) {
      std::string const line(c.line);
      EXPECT_EQ(trace.lines, std::vector<std::string>{line.substr(0, 2) + notAdding + line.substr(2)});
    } else {
      EXPECT_TRUE(trace.lines.empty());
    }
    EXPECT_EQ(info->readyToSendTlv(), c.line == nullptr);
  }
}

TEST_F(LldpPoeTest, FallbackAdvertisesTheConfiguredOrLargestRequestedPower) {
  std::string const self =
      "int PoeUtils::maybeBuildFallbackPowerViaMdiTlv(char*, const Lldp::LocalPortPoeInfo&, bool, "
      "Lldp::PortConfig::PtrConst, Lldp::PortStatus::Ptr): ";
  std::string const notAdding = self + "Not adding fallback Power Via MDI TLV (IEEE Std 802.3) to Ethernet7 because ";
  std::string const added = self + "Added Power Via MDI TLV (IEEE Std 802.3";
  constexpr std::uint32_t largest = PortConfig::poeAllocatedPowerFallbackMax();
  Status const unpowered = all<searching, pairsFixed, at>;
  struct {
    const char* what;
    Status change;
    std::uint32_t fallback;
    std::vector<std::uint16_t> requests;  // of the neighbours
    bool withStatus;
    const char* bytes;
    std::vector<std::string> trace;  // after the call trace
  } const cases[] = {
      // clang-format off
      {"150", unpowered, 150, {}, true, "03 01 04 92 0096 0096", {"6 " + added + "at) to Ethernet7 with fallback grantedPower=150"}},
      {"150, pairs controllable", all<searching, at>, 150, {}, true, "0B 01 04 92 0096 0096", {"6 *"}},
      {"150, bt", all<searching, pairsFixed, bt>, 150, {}, true, "03 01 04 92 0096 0096" BT_LOCAL,
       {"4 getRequestedPowerModeB 2 : ", "6 " + added + "bt) to Ethernet7 with fallback grantedPower=150"}},
      {"disabled", unpowered, 0, {130}, true, "", {}},
      {"65535", unpowered, 65535, {}, true, "03 01 04 92 FFFF FFFF", {"6 *"}},
      {"65536", unpowered, 65536, {}, true, "", {"1 " + notAdding + "the configured value is invalid "}},
      {"largest request", unpowered, largest, {130, 255, 0}, true, "03 01 04 92 00FF 00FF",
       {"6 " + added + "at) to Ethernet7 with fallback grantedPower=255"}},
      {"no neighbour", unpowered, largest, {}, true, "", {"5 " + notAdding + "no requested power found "}},
      {"no port status", unpowered, largest, {130}, false, "", {"5 " + notAdding + "no requested power found "}},
      {"powered", nullptr, 150, {}, true, "", {}},
      // clang-format on
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    LocalPortPoeInfo::Ptr const info = port(c.change);
    portConfig_->poeAllocatedPowerFallbackIs(c.fallback);
    portStatus_->remoteSystemDelAll();
    for (std::size_t i = 0; i < c.requests.size(); ++i) neighbour(static_cast<int>(i) + 1, c.requests[i]);
    PoeTrace trace;
    char out[PoeUtils::maxPowerViaMdiBodyBytes];
    int const count = PoeUtils::maybeBuildFallbackPowerViaMdiTlv(out, *info, false, portConfig_,
                                                                 c.withStatus ? portStatus_ : nullptr);
    expectBytes(out, count, c.bytes);
    std::vector<std::string> want{"8 " + self + "Ethernet7"};
    want.insert(want.end(), c.trace.begin(), c.trace.end());
    expectLines(trace.lines, want);
  }
}



#define SKIP_WITHOUT_TSHARK()                                            \
  do {                                                                   \
    if (!haveTool("tshark"))                                             \
      GTEST_SKIP() << "tshark is not installed (Debian package tshark; " \
                      "scripts/build.sh deps)";                          \
  } while (0)

using Expected = std::vector<std::pair<const char*, const char*>>;  // tshark field, value ("" absent)

TEST(InteropTsharkTest, BuiltBodiesDecodeToTheValuesMeant) {
  SKIP_WITHOUT_TSHARK();
  Platform::IntfId const intf(Kel::String("Ethernet7"));
  LocalSystem::Ptr const system = localSystemFactory("local");
  LocalPortPoeInfo::Ptr const info = system->localPortIs(intf)->localPortPoeInfoIs(intf);
  PortConfig::Ptr const portConfig = configFactory("config")->portConfigIs(intf);
  portConfig->poeAllocatedPowerFallbackIs(150);

  // clang-format off
  Expected const common = {{"mdi_power_support.port_class", "1"}, {"mdi_power_support.supported", "1"},
                           {"mdi_power_support.pse_pairs", "1"}, {"mdi_pse_pair", "1"}, {"mdi_power_class", "4"},
                           {"mdi_power_type", "2"}, {"mdi_power_source", "1"}, {"mdi_power_priority", "2"}};
  Expected const bt = {{"bt_ds_pd_requested_power_value_mode_a", "120"}, {"bt_ds_pd_requested_power_value_mode_b", "134"},
                       {"bt_ds_pse_allocated_power_value_alt_a", "120"}, {"bt_ds_pse_allocated_power_value_alt_b", "134"},
                       {"bt_pse_powering_status", "3"}, {"bt_pd_powered_status", "0"}, {"bt_pse_power_pairs_ext", "1"},
                       {"bt_ds_pwr_class_ext_a", "4"}, {"bt_ds_pwr_class_ext_b", "2"}, {"bt_pwr_class_ext_", "3"},
                       {"bt_power_type_ext", "1"}, {"bt_pse_maximum_available_power_value", "900"},
                       {"bt_pse_autoclass_support", "1"}, {"bt_autoclass_completed", "1"}, {"bt_autoclass_request", "0"},
                       {"bt_power_down_request", "0"}, {"bt_power_down_time", "0"}};
  // clang-format on
  Expected const noBt = {{"bt_pse_powering_status", ""}, {"bt_power_down_time", ""}};

  struct Case {
    const char* what;
    Expected fields;
  };
  std::vector<Bytes> frames;
  std::vector<Case> cases;
  char out[PoeUtils::maxPowerViaMdiBodyBytes];
  auto add = [&](const char* what, int count, std::vector<Expected> const& parts) {
    frames.push_back(lldpFrame({dot3Tlv(2, Bytes(out, static_cast<std::size_t>(count)))}));
    Case c{what, {}};
    for (Expected const& p : parts) c.fields.insert(c.fields.end(), p.begin(), p.end());
    cases.push_back(c);
  };

  Power::PoePortStatus s = btPortStatus();
  s.autoclassCompletedIs(true);
  info->poePortStatusIs(s);
  add("bt", PoeUtils::buildPowerViaMdiTlv(out, *info, false),
      {common, bt, {{"mdi_power_support.enabled", "1"}, {"mdi_pde_requested", "255"}, {"mdi_pse_allocated", "255"}}});
  s.lldpPoeNegotiationSupportIs(Power::LldpPoeNegotiationSupport::Ieee802_3at);
  s.grantedPowerIs(15.4);
  info->poePortStatusIs(s);
  add("at", PoeUtils::buildPowerViaMdiTlv(out, *info, false),
      {common, noBt, {{"mdi_power_support.enabled", "1"}, {"mdi_pde_requested", "154"}, {"mdi_pse_allocated", "154"}}});
  s.poePortStateIs(Power::PoePortState::searching);
  info->poePortStatusIs(s);
  add("fallback", PoeUtils::maybeBuildFallbackPowerViaMdiTlv(out, *info, false, portConfig, nullptr),
      {common, noBt, {{"mdi_power_support.enabled", "0"}, {"mdi_pde_requested", "150"}, {"mdi_pse_allocated", "150"}}});

  std::string const pcap = "/tmp/lldp-built-" + std::to_string(::getpid()) + ".pcap";
  writePcap(pcap, frames);
  for (std::size_t f = 0; f < cases.size(); ++f) {
    SCOPED_TRACE(cases[f].what);
    std::vector<std::string> names;
    for (auto const& [name, value] : cases[f].fields) names.push_back(std::string("lldp.ieee.802_3.") + name);
    auto const rows = tsharkFields(pcap, names);
    ASSERT_EQ(rows.size(), frames.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
      std::string const& theirs = rows[f][i];
      std::string const want = cases[f].fields[i].second;
      if (want.empty())
        EXPECT_EQ(theirs, "") << names[i];
      else
        EXPECT_EQ(theirs.empty() ? -1 : static_cast<long long>(std::stoull(theirs, nullptr, 0)), std::stoll(want))
            << names[i];
    }
  }
  std::remove(pcap.c_str());
}

}  // namespace
