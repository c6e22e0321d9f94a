// The transmit path: what we build, as tshark (an independent decoder) reads it, and the
// frame-size limit. The fallback, a refused Power via MDI TLV and the shutdown LLDPDU are
// checked against lldpd in AgentInteropTest.
#include <gtest/gtest.h>

#include "Lldp/Dot3TestUtil.h"
#include "Tools/AgentTestUtil.h"

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

}  // namespace
