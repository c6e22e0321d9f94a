// The Power via MDI builder, the send decision and the fallback: bytes and trace lines
// for port states chosen field by field from the TLV's layout.
#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <string>
#include <vector>

#include "Lldp/Dot3TestUtil.h"
#include "Lldp/Lldp.h"
#include "Lldp/LldpPoe.h"

namespace {

using namespace Lldp;
using namespace Dot3Test;
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

}  // namespace
