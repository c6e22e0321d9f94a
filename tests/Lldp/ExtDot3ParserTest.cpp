// The receive parser of the IEEE 802.3 TLVs: every length class of each subtype, the
// neighbour left untouched by a short TLV, and the trace lines.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Lldp/Dot3TestUtil.h"
#include "Lldp/Lldp.h"
#include "Lldp/LldpExtDot3Parser.h"

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

}  // namespace
