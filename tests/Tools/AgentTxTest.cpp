// The transmit path: what we build, as tshark (an independent decoder) reads it, and the
// frame-size limit. The fallback, a refused Power via MDI TLV and the shutdown LLDPDU are
// checked against lldpd in AgentInteropTest.
#include <gtest/gtest.h>

#include "Lldp/Dot3TestUtil.h"
#include "Tools/AgentTestUtil.h"

namespace {

using namespace AgentTest;
using Expected = std::vector<std::pair<std::string, std::string>>;  // tshark field, value ("" absent)

// Numbers compare as numbers (tshark prints some in hex), the rest as text.
void expectFields(std::string const& pcap, Expected const& want) {
  std::vector<std::string> names;
  for (auto const& [name, value] : want) names.push_back(name);
  auto const rows = Dot3Test::tsharkFields(pcap, names);
  ASSERT_EQ(rows.size(), 1u);
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::string const& theirs = rows[0][i];
    std::string const& value = want[i].second;
    bool const numeric = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    if (numeric && !theirs.empty())
      EXPECT_EQ(std::stoull(theirs, nullptr, 0), std::stoull(value)) << names[i];
    else
      EXPECT_EQ(theirs, value) << names[i];
  }
}

std::string bytesOf(LldpTx::Frame const& f) { return std::string(f.view()); }

TEST(AgentTxTest, TsharkDecodesEveryTlvWeBuild) {
  if (!Dot3Test::haveTool("tshark")) GTEST_SKIP() << "tshark is not installed (Debian package tshark)";
  TxModel m;
  LldpTx::Frame frame;
  // Every TLV: the basic ones, a management address, the port VLAN, the four 802.3 TLVs
  // with a bt Power via MDI body, LLDP-MED, an extra organizationally specific TLV.
  // clang-format off
  Expected const full = {{"lldp.ieee.802_3.bt_ds_pd_requested_power_value_mode_a", "120"},
    {"lldp.ieee.802_3.bt_ds_pd_requested_power_value_mode_b", "135"},
    {"lldp.ieee.802_3.bt_ds_pse_allocated_power_value_alt_a", "120"},
    {"lldp.ieee.802_3.bt_ds_pse_allocated_power_value_alt_b", "135"},
    {"lldp.ieee.802_3.bt_pse_powering_status", "3"}, {"lldp.ieee.802_3.bt_pse_power_pairs_ext", "3"},
    {"lldp.ieee.802_3.bt_ds_pwr_class_ext_a", "3"}, {"lldp.ieee.802_3.bt_ds_pwr_class_ext_b", "2"},
    {"lldp.ieee.802_3.bt_pwr_class_ext_", "4"}, {"lldp.ieee.802_3.bt_power_type_ext", "1"},
    {"lldp.ieee.802_3.bt_pse_maximum_available_power_value", "900"},
    {"_ws.malformed", ""}, {"lldp.chassis.id.mac", "02:00:00:00:00:07"}, {"lldp.port.id", "eth7"},
    {"lldp.time_to_live", "121"}, {"lldp.port.desc", "uplink to lab"}, {"lldp.tlv.system.name", "agent.example"},
    {"lldp.tlv.system.desc", "Debian GNU/Linux 12 test"}, {"lldp.tlv.system_cap", "20"},
    {"lldp.tlv.enable_system_cap", "4"}, {"lldp.mgn.addr.ip4", "192.0.2.7"}, {"lldp.mgn.interface.subtype", "2"},
    {"lldp.mgn.interface.number", "3"}, {"lldp.ieee.802_1.port_vlan.id", "42"},
    {"lldp.ieee.802_3.mac_phy_auto_neg_status", "3"}, {"lldp.ieee.802_3.pmd_auto_neg_advertised_caps", "27649"},
    {"lldp.ieee.802_3.pmd_mau_type", "30"}, {"lldp.ieee.802_3.mdi_power_support.enabled", "1"},
    {"lldp.ieee.802_3.mdi_pse_pair", "1"}, {"lldp.ieee.802_3.mdi_power_class", "5"},
    {"lldp.ieee.802_3.mdi_power_type", "2"}, {"lldp.ieee.802_3.mdi_power_source", "1"},
    {"lldp.ieee.802_3.mdi_power_priority", "2"}, {"lldp.ieee.802_3.mdi_pde_requested", "255"},
    {"lldp.ieee.802_3.mdi_pse_allocated", "255"}, {"lldp.ieee.802_3.aggregation_status", "3"},
    {"lldp.ieee.802_3.aggregated_port_id", "12"}, {"lldp.ieee.802_3.max_frame_size", "9216"},
    {"lldp.media.subtype.caps", "1"}, {"lldp.media.subtype.class", "4"}, {"lldp.media.app_type", "1"},
    {"lldp.media.tag_flag", "1"}, {"lldp.media.vlan_id", "100"}, {"lldp.media.l2_prio", "5"}, {"lldp.media.dscp", "46"},
    {"lldp.unknown_subtype", "9"}};
  // clang-format on
  LldpTx::buildLldpdu(m.src, frame);
  EXPECT_EQ(frame.poe, LldpTx::PoeTlv::decided);
  std::string const pcap = "/tmp/lldp-agent-tx-" + std::to_string(::getpid()) + ".pcap";
  Dot3Test::writePcap(pcap, {bytesOf(frame)});
  expectFields(pcap, full);
  std::remove(pcap.c_str());
}

TEST(AgentTxTest, OversizeContentIsCutToMaxTxFrameSize) {
  TxModel m;
  m.config->maxTxMgmtAddrsIs(200);
  for (int i = 0; i < 120; ++i) {
    auto a = ipv4(10, 0, static_cast<std::uint8_t>(i / 250), static_cast<std::uint8_t>(i % 250 + 1), 1);
    m.system->managementAddressIs(a);
    m.system->managementAddressPrioIs(Lldp::ManAddrPriority(Lldp::ManAddrPriority::primary, 10 + i, 0), a.key());
  }
  for (int i = 1; i <= 3; ++i) m.port->unknownOrgDefTlvIs(orgTlv(0x00aabb, 10, i, std::string(400, 'x')));
  LldpTx::Frame frame;
  LldpTx::buildLldpdu(m.src, frame);
  // 1518 bytes on the wire with the FCS; every mandatory TLV still there.
  EXPECT_LE(frame.size + LldpTx::fcsBytes, m.config->maxTxFrameSize());
  EXPECT_GT(frame.size, 1400u);
  EXPECT_EQ(frame.dropped & (LldpTx::droppedMgmtAddr | LldpTx::droppedOrg), LldpTx::droppedMgmtAddr | LldpTx::droppedOrg);
  EXPECT_EQ(frame.dropped & LldpTx::droppedBasic, 0u);
}

}  // namespace
