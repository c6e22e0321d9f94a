// tshark as an independent 802.3 decoder: the bodies we build must decode to the values
// we meant, and what we parse from other devices' frames must read as tshark reads it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Lldp/Dot3TestUtil.h"
#include "Lldp/Lldp.h"
#include "Lldp/LldpPoe.h"

namespace {

using namespace Dot3Test;
using namespace Lldp;

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

  TempDir dir;
  std::string const pcap = dir.path() + "/built.pcap";
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
}

// Our own test vectors, one of each subtype, read by tshark and by us.
TEST(InteropTsharkTest, HandDecodedVectorsReadAlikeInTshark) {
  SKIP_WITHOUT_TSHARK();
  TempDir dir;
  std::string const pcap = dir.path() + "/vectors.pcap";
  writePcap(pcap,
            {lldpFrame({dot3Tlv(1, Bytes("\x03\x6C\x01\x00\x10", 5)), dot3Tlv(3, Bytes("\x03\x80\x00\x00\x01", 5)),
                        dot3Tlv(4, Bytes("\x05\xEE", 2)),
                        dot3Tlv(2, Bytes("\x0D\x02\x05\x9E\x01\x2C\x00\xFA\x01\x63\x01\x64\x00\xFF\x01\x00\xDA\x35"
                                         "\x0B\x03\x84\x05\x75\x23\x45",
                                         25))})});
  PortStatus::Ptr const port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
  RemoteSystem::Ptr const remote = expectParsedAsTshark(pcap, 0, port);
  ASSERT_TRUE(remote);
  EXPECT_TRUE(remote->macPhyConfigStatusTlvReceived() && remote->linkAggregationTlvReceived() &&
              remote->maximumFrameSizeTlvReceived() && remote->powerViaMdiTlvReceived());
}

TEST(InteropTsharkTest, OtherDevicesFramesReadAsTsharkReadsThem) {
  SKIP_WITHOUT_TSHARK();
  struct {
    const char* file;
    PowerViaMdiInfo::IeeeStandard power;  // IeeeStandard_802_3af: no power TLV expected
  } const captures[] = {{"8023bt.pcap", PowerViaMdiInfo::IeeeStandard_802_3bt},
                        {"sg200.pcap", PowerViaMdiInfo::IeeeStandard_802_3af}};
  for (auto const& c : captures) {
    std::string const path = std::string(LLDP_CAPTURES_DIR) + "/" + c.file;
    if (!std::filesystem::exists(path))
      GTEST_SKIP() << path << " is missing: the shared captures are not beside the repository";
    SCOPED_TRACE(c.file);
    PortStatus::Ptr const port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
    RemoteSystem::Ptr const remote = expectParsedAsTshark(path, 0, port);
    ASSERT_TRUE(remote);
    EXPECT_TRUE(remote->macPhyConfigStatusTlvReceived());
    EXPECT_EQ(remote->powerViaMdiTlvReceived(), c.power != PowerViaMdiInfo::IeeeStandard_802_3af);
    if (remote->powerViaMdiTlvReceived()) {
      EXPECT_EQ(remote->powerViaMdiInfo().ieeeStandard(), c.power);
    }
  }
}

}  // namespace
