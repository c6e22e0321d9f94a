// The transmit path: what we build, as tshark (an independent decoder) reads it, and the
// frame-size limit. The fallback, a refused Power via MDI TLV and the shutdown LLDPDU are
// checked against lldpd in AgentInteropTest.
#include <gtest/gtest.h>
#include <linux/ethtool.h>

#include "Lldp/Dot3TestUtil.h"
#include "Tools/AgentTestUtil.h"
#include "tools/lldp-agent/Host.h"

namespace {

using namespace AgentTest;

// tshark's reading of the one frame in pcap against rows of field and value: numbers
// compare as numbers (tshark prints some in hex), the rest as text.
void expectFields(std::string const& pcap, std::vector<std::vector<std::string>> const& want) {
  std::vector<std::string> names;
  for (auto const& row : want) names.push_back(row.at(0));
  auto const rows = Dot3Test::tsharkFields(pcap, names);
  ASSERT_EQ(rows.size(), 1u);
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::string const& theirs = rows[0][i];
    std::string const& value = want[i].at(1);
    bool const numeric = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
    if (numeric && !theirs.empty())
      EXPECT_EQ(std::stoull(theirs, nullptr, 0), std::stoull(value)) << names[i];
    else
      EXPECT_EQ(theirs, value) << names[i];
  }
}

TEST(AgentTxTest, TsharkDecodesEveryTlvWeBuild) {
  if (!Dot3Test::haveTool("tshark")) GTEST_SKIP() << "tshark is not installed (Debian package tshark)";
  TxModel m;
  LldpTx::Frame frame;
  LldpTx::buildLldpdu(m.src, frame);
  EXPECT_EQ(frame.poe, LldpTx::PoeTlv::decided);
  std::string const pcap = "/tmp/lldp-agent-tx-" + std::to_string(::getpid()) + ".pcap";
  Dot3Test::writePcap(pcap, {std::string(frame.view())});
  expectFields(pcap, dataRows(LLDP_TEST_DATA_DIR "/tx-tshark-fields.txt"));
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

TEST(AgentTxTest, AnOidOfExactly128BytesIsSentWhole) {
  TxModel m;
  std::vector<std::uint32_t> ids{1, 3, 300};
  ids.resize(Platform::ObjectIdentifier::maxSubIds, 1);
  auto a = ipv4(192, 0, 2, 7, 3);
  a.oidIs(Platform::ObjectIdentifier(ids));
  m.system->managementAddressIs(a);
  LldpTx::Frame frame;
  LldpTx::buildLldpdu(m.src, frame);
  // OID string length 128, then BER: 1.3 in one byte, 300 in two, 125 ones.
  std::string const want = "\x80\x2b\x82\x2c" + std::string(125, '\x01');
  EXPECT_NE(frame.view().find(want), std::string_view::npos);
}

// ethtool's link settings to the MAC/PHY TLV: the MAU type (IETF MAU-MIB dot3MauType) and the
// 16-bit advertised field (capability bit 0 the most significant: 1 10BASE-T, 2 10BASE-T FD,
// 4 100BASE-TX, 5 100BASE-TX FD, 8 PAUSE, 9 asymmetric PAUSE, 14 1000BASE-T, 15 1000BASE-T FD).
TEST(AgentTxTest, LinkSettingsToMacPhy) {
  struct Row {
    std::uint32_t speed;
    std::uint8_t duplex;
    std::uint32_t modes;
    std::uint32_t mau;
    std::uint16_t field;
  } const rows[] = {
      {1000, DUPLEX_FULL, ADVERTISED_1000baseT_Full | ADVERTISED_Pause, 30, 0x0081},
      {1000, DUPLEX_HALF, ADVERTISED_1000baseT_Half, 29, 0x0002},
      {100, DUPLEX_HALF, ADVERTISED_10baseT_Half | ADVERTISED_100baseT_Half, 15, 0x4800},
      {100, DUPLEX_FULL, ADVERTISED_100baseT_Full, 16, 0x0400},
      {10, DUPLEX_FULL, ADVERTISED_10baseT_Full | ADVERTISED_Asym_Pause, 11, 0x2040},
      {10, DUPLEX_HALF, 0, 10, 0x0000},
  };
  for (auto const& r : rows) {
    auto m = LldpAgent::macPhyFrom(r.speed, r.duplex, true, false, r.modes);
    ASSERT_TRUE(m) << r.speed;
    EXPECT_EQ(m->operMauType(), r.mau) << r.speed;
    EXPECT_EQ(m->autoNegAdvertisedCapAsU16(), r.field) << r.speed << " " << r.modes;
    EXPECT_TRUE(m->autoNegSupported());
    EXPECT_FALSE(m->autoNegEnabled());
  }
  EXPECT_FALSE(LldpAgent::macPhyFrom(0, DUPLEX_FULL, true, true, 0));
}

}  // namespace
