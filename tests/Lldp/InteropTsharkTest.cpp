// tshark as an independent 802.3 decoder: the bodies we build must decode to the values
// we meant. (What we parse is compared with tshark through the neighbour tool, over the
// sample and the device captures, in Tools/InteropTest.)
#include <gtest/gtest.h>

#include <cstdio>
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
