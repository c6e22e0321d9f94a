// The IEEE 802.3 TLVs: the receive parser and the Power via MDI send decision, builder and
// fallback, each run over the rows of a data file (tests/data/dot3-tlvs.txt and
// poe-bodies.txt, whose headers give the format), and tshark as an independent decoder of
// the bodies we build. (What we parse is compared with tshark through the neighbour tool,
// over the sample and the device captures, in Tools/InteropTest.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
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
using Power::PoePortStatus;

// ---- the data files: blocks of a name line and keyword lines, blank lines between

struct Block {
  int number;
  std::string name;
  std::map<std::string, std::string> f;  // keyword -> the rest of its lines, joined by blanks
  std::vector<std::string> trace;        // the "trace" lines
  bool traced = false;
};

// The blocks of tests/data/<file>; a line whose keyword is not one of `words` fails the read.
std::vector<Block> readBlocks(std::string const& file, std::vector<std::string> const& words) {
  std::ifstream in(LLDP_TEST_DATA_DIR "/" + file);
  std::vector<Block> blocks;
  bool open = false;
  int number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (line.empty() || line[0] == '#') {
      open = open && !line.empty();
    } else if (!open) {
      blocks.push_back({number, line, {}, {}});
      open = true;
    } else {
      auto const space = std::min(line.find(' '), line.size());
      std::string const word = line.substr(0, space), rest = line.substr(std::min(space + 1, line.size()));
      EXPECT_TRUE(std::find(words.begin(), words.end(), word) != words.end()) << file << ":" << number << ": " << line;
      Block& b = blocks.back();
      if (word == "trace" && rest != "none") b.trace.push_back(rest);
      b.traced = b.traced || word == "trace";
      if (word != "trace") b.f[word] += (b.f[word].empty() ? "" : " ") + rest;
    }
  }
  EXPECT_FALSE(blocks.empty()) << "no blocks in " << file;
  return blocks;
}

std::string squeeze(std::string s) {
  std::erase(s, ' ');
  return s;
}

// "FD02 05" -> its bytes; anything but pairs of hex digits fails naming the line.
Bytes unhex(std::string const& hex, int line) {
  std::string const d = squeeze(hex);
  Bytes out;
  bool const ok = d.size() % 2 == 0 && d.find_first_not_of("0123456789ABCDEF") == std::string::npos;
  EXPECT_TRUE(ok) << "line " << line << ": not hex: " << hex;
  for (std::size_t i = 0; ok && i < d.size(); i += 2) out += static_cast<char>(std::stoi(d.substr(i, 2), nullptr, 16));
  return out;
}

// `text` (a value's text form) with each "<field>=<value>" of `fields` written in; a lone
// value replaces the whole text. A field not in the text exactly once fails naming the line.
std::string withFields(std::string text, std::string const& fields, int line) {
  std::istringstream words(fields);
  for (std::string w; words >> w;) {
    auto const eq = w.find('=');
    std::string const key = "'" + w.substr(0, eq) + "': ";
    auto const at = text.find(key);
    if (eq == std::string::npos) {
      text = w;
    } else if (at == std::string::npos || text.find(key, at + 1) != std::string::npos) {
      ADD_FAILURE() << "line " << line << ": no single field " << key;
    } else {
      text.replace(at + key.size(), text.find_first_of(",})", at + key.size()) - at - key.size(), w.substr(eq + 1));
    }
  }
  return text;
}

std::string strep(auto const& value) { return valueToStrep(value).stdString(); }

// `base` with `fields` written into its text.
template <class T>
T with(T const& base, std::string const& fields, int line = 0) {
  return Kel::strepToValue<T>(Kel::String(withFields(strep(base), fields, line)));
}

// ---- the 802.3 parser

TEST(ExtDot3ParserTest, EachTlvOfTheDataFile) {
  using namespace Lldp::Agent::Protocol;
  std::map<std::string, int> const results = {
      {"parsed", extDot3TlvParsed}, {"unrecognized", extDot3TlvUnrecognized}, {"too-short", extDot3TlvTooShort}};
  auto text = [](Dot3State const& s, std::string const& r) {
    return r == "mac" ? strep(s.mac) : r == "agg" ? strep(s.agg) : r == "mfs" ? strep(s.mfs) : strep(s.power);
  };
  auto flag = [](Dot3State const& s, std::string const& r) {
    return r == "mac" ? s.macFlag : r == "agg" ? s.aggFlag : r == "mfs" ? s.mfsFlag : s.powerFlag;
  };
  for (Block b : readBlocks("dot3-tlvs.txt", {"tlv", "mac", "agg", "mfs", "power", "power-fields", "trace"})) {
    SCOPED_TRACE("dot3-tlvs.txt:" + std::to_string(b.number) + ": " + b.name);
    int subtype = 0, length = 0;
    std::string result, hex;
    std::istringstream tlv(b.f["tlv"]);
    ASSERT_TRUE(tlv >> subtype >> length >> result && results.contains(result) && std::getline(tlv, hex))
        << "line " << b.number << ": no well-formed tlv line";
    Bytes const body = unhex(std::string(hex).replace(std::min(hex.find('|'), hex.size()), 1, ""), b.number);
    ASSERT_TRUE(length < 0 || unhex(hex.substr(0, hex.find('|')), b.number).size() == static_cast<std::size_t>(length))
        << "line " << b.number << ": the length is not the bytes before '|'";

    PortStatus::Ptr const port = portStatusFactory(Platform::IntfId("Ethernet1"), 0.0);
    RemoteSystem::Ptr const remote = port->remoteSystemIs(1, msapOf(1));
    // Records from an earlier frame whose flags were cleared: a short TLV must keep both.
    remote->macPhyConfigStatusInfoIs(with(MacPhyConfigStatusInfo(), "operMauType=30"));
    remote->linkAggregationInfoIs(with(LinkAggregationInfo(), "portId=7"));
    remote->maximumFrameSizeInfoIs(MaximumFrameSizeInfo(9000));
    remote->powerViaMdiInfoIs(with(PowerViaMdiInfo(), "powerClass=3"));
    Dot3State const before = Dot3State::of(*remote);

    TraceLines lines("LldpExtDot3Parser", 8);
    EXPECT_EQ(parseExtDot3Tlv(subtype, length, body.data(), remote), results.at(result));
    Dot3State const got = Dot3State::of(*remote);
    for (std::string const r : {"mac", "agg", "mfs", "power"}) {
      SCOPED_TRACE(r);
      bool const all = b.f.contains(r), some = b.f.contains(r + "-fields");
      EXPECT_EQ(flag(got, r), all || some || flag(before, r));
      std::string const want = all ? withFields(text(Dot3State{}, r), b.f[r], b.number)
                               : some ? withFields(text(got, r), b.f[r + "-fields"], b.number)
                                      : text(before, r);
      EXPECT_EQ(text(got, r), want);
    }
    if (b.traced) expectLines(lines.lines, b.trace);
  }
}

// ---- the Power via MDI body

// ---- the Power via MDI body

class LldpPoeTest : public ::testing::Test {
 protected:
  // A neighbour of portStatus_ requesting `at`, and in 802.3bt modes A and B.
  RemoteSystem::Ptr neighbour(int index, std::uint16_t at, std::uint16_t modeA = 0, std::uint16_t modeB = 0) {
    RemoteSystem::Ptr r = portStatus_->remoteSystemIs(index, msapOf(index));
    r->powerViaMdiInfoIs(with(PowerViaMdiInfo(), "pdRequestedPowerValue=" + std::to_string(at) +
                                                     " pdRequestedPowerValueModeA=" + std::to_string(modeA) +
                                                     " pdRequestedPowerValueModeB=" + std::to_string(modeB)));
    return r;
  }

  // One block of poe-bodies.txt: the port set up, the call made, its trace lines and result
  // checked; `built` gets the body.
  void runBlock(Block b, Bytes& built) {
    std::map<std::string, std::string>& f = b.f;
    SCOPED_TRACE("poe-bodies.txt:" + std::to_string(b.number) + ": " + b.name);
    try {
      info_->poePortStatusIs(with(btPortStatus(), f["port"], b.number));
    } catch (std::exception const& e) {
      FAIL() << "line " << b.number << ": " << e.what();
    }
    bool const send = f.contains("send"), build = f.contains("build"), fallback = f.contains("fallback");
    ASSERT_TRUE(send + build + fallback == 1 && (send ? f["send"] == "yes" || f["send"] == "no" : f.contains("bytes")))
        << "line " << b.number << ": one of send yes|no, build or fallback, and for these the bytes";
    std::istringstream op(f["build"] + f["fallback"]);
    std::uint32_t configured = 0;
    std::vector<std::uint16_t> requests;
    std::set<std::string> words;
    ASSERT_TRUE(!fallback || static_cast<bool>(op >> configured)) << "line " << b.number << ": no value";
    for (std::string w; op >> w;) {
      if (w.find_first_not_of("0123456789") == std::string::npos) requests.push_back(std::stoul(w) & 0xffff);
      else words.insert(w);
    }
    ASSERT_TRUE(std::ranges::includes(std::set<std::string>{"echo", "neighbour", "no-status", "requests"}, words))
        << "line " << b.number << ": an unknown word";

    char out[PoeUtils::maxPowerViaMdiBodyBytes + 1];
    out[PoeUtils::maxPowerViaMdiBodyBytes] = 0x5A;
    int count = 0;
    RemoteSystem::Ptr const remote = neighbour(1, 0x123, 0x111, 0x222);
    info_->remoteSystemIs(words.contains("neighbour") ? RemoteSystem::PtrConst(remote) : nullptr);
    if (fallback) {
      portConfig_->poeAllocatedPowerFallbackIs(configured);
      portStatus_->remoteSystemDelAll();
      for (std::size_t i = 0; i < requests.size(); ++i) neighbour(static_cast<int>(i) + 1, requests[i]);
    }
    // Traced at the level of its most detailed line expected: a line that needs more to
    // appear than its own level is missed.
    int level = b.trace.empty() ? Duolog::allLevels : 0;
    for (std::string const& t : b.trace) level = std::max(level, std::stoi(t));
    TraceLines lines("LldpPoe", level);
    if (send) {
      EXPECT_EQ(PoeUtils::canWeSendPowerViaMdiTlv(*info_), f["send"] == "yes");
    } else if (build) {
      count = PoeUtils::buildPowerViaMdiTlv(out, *info_, words.contains("echo"));
    } else {
      count = PoeUtils::maybeBuildFallbackPowerViaMdiTlv(out, *info_, false, portConfig_,
                                                         words.contains("no-status") ? nullptr : portStatus_);
    }
    if (b.traced) expectLines(lines.lines, b.trace);
    if (send) {
      EXPECT_EQ(info_->readyToSendTlv(), f["send"] == "yes");
    }
    EXPECT_EQ(out[PoeUtils::maxPowerViaMdiBodyBytes], 0x5A);
    built.assign(out, static_cast<std::size_t>(count));
    std::string const want = squeeze(f["bytes"]);
    std::string got;
    for (int i = 0; i < count; ++i) {
      char hex[3];
      std::snprintf(hex, sizeof hex, "%02X", static_cast<unsigned>(static_cast<unsigned char>(out[i])));
      got += hex;
    }
    for (std::size_t i = 0; i < std::min(got.size(), want.size()); ++i)
      if (want[i] == '?') got[i] = '?';
    EXPECT_EQ(got, want);
  }

  std::vector<std::string> const words_{"port", "send", "build", "fallback", "bytes", "trace", "tshark"};
  Platform::IntfId const intf_{Kel::String("Ethernet7")};
  LocalSystem::Ptr system_ = localSystemFactory("local");
  LocalPortPoeInfo::Ptr info_ = system_->localPortIs(intf_)->localPortPoeInfoIs(intf_);
  PortConfig::Ptr portConfig_ = configFactory("config")->portConfigIs(intf_);
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

TEST_F(LldpPoeTest, EachPortStateOfTheDataFile) {
  Bytes built;
  for (Block const& b : readBlocks("poe-bodies.txt", words_)) runBlock(b, built);
}

// The blocks with tshark lines, built into one capture: tshark must read each field as written.
TEST_F(LldpPoeTest, TsharkDecodesTheBodiesToTheValuesMeant) {
  if (!haveTool("tshark")) GTEST_SKIP() << "tshark is not installed (Debian package tshark; scripts/build.sh deps)";
  std::vector<Bytes> frames;
  std::vector<std::pair<int, std::string>> cases;  // block line, the fields
  for (Block const& b : readBlocks("poe-bodies.txt", words_)) {
    if (!b.f.contains("tshark")) continue;
    Bytes built;
    ASSERT_NO_FATAL_FAILURE(runBlock(b, built));
    frames.push_back(lldpFrame({dot3Tlv(2, built)}));
    cases.emplace_back(b.number, b.f.at("tshark"));
  }
  ASSERT_FALSE(cases.empty());
  std::string const pcap = "/tmp/lldp-built-" + std::to_string(::getpid()) + ".pcap";
  writePcap(pcap, frames);
  for (std::size_t f = 0; f < cases.size(); ++f) {
    SCOPED_TRACE("poe-bodies.txt:" + std::to_string(cases[f].first));
    std::vector<std::string> names, want;
    std::istringstream words(cases[f].second);
    for (std::string w; words >> w;) {
      names.push_back("lldp.ieee.802_3." + w.substr(0, w.find('=')));
      want.push_back(w.substr(std::min(w.find('=') + 1, w.size())));
    }
    auto const rows = tsharkFields(pcap, names);
    ASSERT_EQ(rows.size(), frames.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
      std::string const& theirs = rows[f][i];
      if (want[i].empty())
        EXPECT_EQ(theirs, "") << names[i];
      else
        EXPECT_EQ(theirs.empty() ? -1 : static_cast<long long>(std::stoull(theirs, nullptr, 0)), std::stoll(want[i]))
            << names[i];
    }
  }
  std::remove(pcap.c_str());
}

// Values no name stands for, so with no text form: too wide for their fields, they spill
// into their neighbours (type/source/priority) or are sent as class 4.
TEST_F(LldpPoeTest, ValuesWiderThanTheirFields) {
  PoePortStatus s = btPortStatus();
  s.powerPriorityIs(static_cast<Power::PowerPriority>(7));
  s.powerSourceIs(static_cast<Power::PowerSource>(5));
  s.poweredDeviceClassIs(static_cast<Power::PoweredDeviceClass>(200));
  info_->poePortStatusIs(s);
  char out[PoeUtils::maxPowerViaMdiBodyBytes];
  ASSERT_EQ(PoeUtils::buildPowerViaMdiTlv(out, *info_, false), 25);
  EXPECT_EQ(Bytes(out + 2, 2), Bytes("\x05\xD7", 2));
  EXPECT_EQ(Bytes(out + 16, 2), Bytes("\xC6\xE6", 2));
}

}  // namespace
