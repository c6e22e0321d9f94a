// The receive path against IEEE 802.1AB (LLDPDU validation, 9.2.7.7; the basic TLVs,
// clause 8.5; the table's counters and timers), the IEEE 802.1 and 802.3 TLVs (802.1AB
// annexes E and F) and ANSI/TIA-1057 (LLDP-MED): frames built byte by byte from those
// layouts, results read back from the model and from the tool's JSON of it.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>

#include "Tools/AgentTestUtil.h"
#include "Tools/RxTestUtil.h"
#include "tools/lldp-neighbors/Show.h"

namespace {

using namespace RxTest;
using LldpRx::FrameResult;
using json = nlohmann::ordered_json;

// Frames and TLVs from the hex of tests/data: blank-separated words, "HEX*N" for N times HEX.
Bytes fromHex(std::string const& text) {
  Bytes out;
  std::istringstream words(text);
  for (std::string w; words >> w;) {
    std::size_t const star = w.find('*');
    Bytes b;
    for (std::size_t i = 0; i + 1 < std::min(star, w.size()); i += 2) b += static_cast<char>(std::stoi(w.substr(i, 2), nullptr, 16));
    for (int n = star == std::string::npos ? 1 : std::stoi(w.substr(star + 1)); n > 0; --n) out += b;
  }
  return out;
}
std::vector<std::vector<std::string>> rows(const char* file) {
  auto const r = AgentTest::dataRows(std::string(LLDP_TEST_DATA_DIR "/") + file);
  EXPECT_GT(r.size(), 10u) << file;
  return r;
}

// An invalid LLDPDU is counted in error and discarded whole.
TEST(LldpRxTest, ValidatesTheLldpdu) {
  for (auto const& k : rows("lldp-rx-lldpdus.txt")) {
    SCOPED_TRACE(k.at(0));
    Rx rx;
    std::string const options = k.at(6);
    rx.config->rxTaggedPacketsDropIs(options == "drop-tagged");
    rx.port.config()->adminStatusIs(options == "rxOnly" ? Lldp::rxOnly : options == "txOnly" ? Lldp::txOnly : options == "disabled" ? Lldp::disabled : Lldp::txAndRx);
    std::string const result = LldpRx::toString(rx(fromHex(k.at(1))));
    EXPECT_EQ(result, k.at(2));
    EXPECT_EQ(rx.ps.rxFramesTotal(), std::stoul(k.at(3)));
    EXPECT_EQ(rx.ps.rxFramesDiscardedTotal(), std::stoul(k.at(4)));
    EXPECT_EQ(rx.ps.rxFramesErrors(), std::stoul(k.at(5)));
    EXPECT_EQ(rx.ps.remoteSystem().size(), result == "added" ? 1u : 0u);
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
  for (auto const& k : rows("lldp-rx-tlvs.txt")) {
    SCOPED_TRACE(k.at(0));
    Rx rx;
    Bytes const f = frame(1, {fromHex(k.at(1))});
    std::uint32_t const unrecognized = std::stoul(k.at(2)), discarded = std::stoul(k.at(3));
    ASSERT_EQ(rx(f), FrameResult::added);
    EXPECT_EQ(rx.ps.rxTLVsUnrecognizedTotal(), unrecognized);
    EXPECT_EQ(rx.ps.rxTLVsDiscardedTotal(), discarded);
    expectWithin(json::parse(k.at(4)), LldpNeighbors::toJson(LldpNeighbors::describe(*rx.status))["ports"][0]["neighbors"][0], "");
    // The tool's table, made a neighbour at a time, is the one the whole tree makes.
    EXPECT_EQ(LldpNeighbors::renderTable(*rx.status), LldpNeighbors::renderTable(LldpNeighbors::describe(*rx.status)));
    // A repeat counts the same TLVs again.
    EXPECT_EQ(rx(f, 2.0), FrameResult::refreshed);
    EXPECT_EQ(rx.ps.rxTLVsUnrecognizedTotal(), 2 * unrecognized);
    EXPECT_EQ(rx.ps.rxTLVsDiscardedTotal(), 2 * discarded);
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

// Hundreds of neighbours coming, refreshing, saying goodbye and ageing out in any order:
// each frame's result follows from who is in the table, so none is lost or found twice.
TEST(LldpRxTest, ManyNeighboursChurnWithoutLosingOne) {
  Rx rx;
  rx.port.config()->maxRemoteSystemsIs(1000);
  rx.port.config()->rxRateLimitingEnabledIs(false);
  std::map<int, double> expiry;  // who should be in the table, until when
  std::mt19937 rng(11);
  double now = 0;
  for (int i = 0; i < 20000; ++i) {
    now += 0.01;
    std::erase_if(expiry, [&](auto const& e) { return e.second <= now; });
    int const n = static_cast<int>(rng() % 600);
    unsigned const seconds = rng() % 8 ? 1 + n % 50 : 0;
    Bytes const f = ethernet(tlv(1, bytes({4, 2, 0, 0, 0, n >> 8, n & 0xff})) + portName("eth0") + ttl(seconds) + end());
    bool const known = expiry.erase(n) > 0;
    if (seconds) expiry[n] = now + seconds;
    FrameResult const want = seconds ? (known ? FrameResult::refreshed : FrameResult::added)
                                     : (known ? FrameResult::removed : FrameResult::shutdownIgnored);
    ASSERT_EQ(rx(f, now), want) << "frame " << i << ", neighbour " << n;
  }
  EXPECT_EQ(rx.ps.remoteSystem().size(), expiry.size());
  EXPECT_EQ(rx.ps.remoteSystemByMsap().size(), expiry.size());
  // A clear takes them all, those a removal moved back into a slot already passed too.
  ASSERT_GT(expiry.size(), 100u);
  rx.receiver.clear("admin", "console", now);
  EXPECT_TRUE(rx.ps.remoteSystem().empty());
  EXPECT_TRUE(rx.ps.remoteSystemByMsap().empty());
}

// ---- a neighbour's frames decoded TLV by TLV against its previous frame must leave the
// tree a full decode leaves, and no input may throw or break the indexes.

TEST(LldpRxTest, IncrementalDecodeLeavesTheTreeAFullDecodeLeaves) {
  // The decoding table's neighbours, every fourth one with a TTL of 5 s to age out between
  // its frames.
  std::vector<Bytes> bases;
  for (auto const& k : rows("lldp-rx-tlvs.txt")) bases.push_back(frame(static_cast<int>(bases.size()) + 1, {fromHex(k.at(1))}, bases.size() % 4 ? 120 : 5));
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
