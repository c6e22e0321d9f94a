#pragma once
// Helpers of the 802.3 protocol tests: trace lines, a PoE port, and for the tshark test LLDP
// frames, a pcap file, a command's output and tshark's reading of it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Lldp/ModelSupport.h"
#include "Tracing/Duolog.h"

namespace Dot3Test {

using LldpTest::Dot3State;
using LldpTest::msapOf;

using Bytes = std::string;

// The lines of one trace handle at the given level, as "<level> <message>".
class TraceLines {
 public:
  TraceLines(const char* name, int level) : handle_(Duolog::handle(name)) {
    handle_.levelIs(level);
    Duolog::sinkIs([this](Duolog::Line const& l) {
      if (l.handle == handle_.name()) lines.push_back(std::to_string(l.level) + " " + std::string(l.message));
    });
  }
  ~TraceLines() {
    Duolog::sinkIs(nullptr);
    handle_.levelIs(Duolog::defaultLevel);
  }
  TraceLines(TraceLines const&) = delete;
  TraceLines& operator=(TraceLines const&) = delete;
  std::vector<std::string> lines;

 private:
  Duolog::Handle& handle_;
};

// An expected line ending in '*' is a prefix.
inline void expectLines(std::vector<std::string> const& got, std::vector<std::string> const& want) {
  ASSERT_EQ(got.size(), want.size()) << ::testing::PrintToString(got);
  for (std::size_t i = 0; i < want.size(); ++i) {
    if (!want[i].empty() && want[i].back() == '*')
      EXPECT_EQ(got[i].substr(0, want[i].size() - 1), want[i].substr(0, want[i].size() - 1));
    else
      EXPECT_EQ(got[i], want[i]);
  }
}

// A powered 802.3bt PSE port whose fields all differ. On the wire: MDI power support 0x0F,
// pair 1, class 4, type/source/priority 0x92, granted 255, modes A and B 120 and 134, power
// status 0xC623, system setup 0x02, maximum 900, autoclass 0x04.
inline Power::PoePortStatus btPortStatus() {
  return Kel::strepToValue<Power::PoePortStatus>(
      "Value('Power::PoePortStatus', ** {'poePortState': powered, 'poweredDeviceClass': class3, 'grantedPower': 25.5, "
      "'lldpPoeNegotiationSupport': Ieee802_3bt, 'psePairsControllable': True, 'psePowerPair': signal, 'powerType': "
      "type1Pse, 'powerSource': primary, 'powerPriority': high, 'allocatedPowerAlternativeA': 12.0, "
      "'allocatedPowerAlternativeB': 13.4, 'psePoweringStatus': fourPairDualSignature, 'psePowerPairsExt': "
      "alternativeA, 'dualSignaturePowerClassExtModeA': class4, 'dualSignaturePowerClassExtModeB': class2, "
      "'powerTypeExt': type4Pse, 'pseMaximumAvailablePower': 90.0, 'pseAutoclassSupport': True, "
      "'autoclassCompleted': False})");
}

inline Bytes tlv(unsigned type, Bytes const& value) {
  unsigned const header = (type << 9) | static_cast<unsigned>(value.size());
  return Bytes{static_cast<char>(header >> 8), static_cast<char>(header & 0xff)} + value;
}

// An IEEE 802.3 organizationally specific TLV: OUI 00-12-0F, the subtype, the body.
inline Bytes dot3Tlv(unsigned subtype, Bytes const& body) {
  return tlv(127, Bytes("\x00\x12\x0f", 3) + static_cast<char>(subtype) + body);
}

// An LLDPDU in an Ethernet frame to the nearest-bridge address from 02:00:00:00:00:01:
// chassis id (that MAC), port id (interface name eth0), TTL 120, the given TLVs, End.
inline Bytes lldpFrame(std::vector<Bytes> const& tlvs) {
  Bytes f("\x01\x80\xc2\x00\x00\x0e\x02\x00\x00\x00\x00\x01\x88\xcc"
          "\x02\x07\x04\x02\x00\x00\x00\x00\x01\x04\x05\x05"
          "eth0"
          "\x06\x02\x00\x78",
          34);
  for (Bytes const& t : tlvs) f += t;
  return f + tlv(0, "");
}

// Classic pcap in host byte order, Ethernet link type (what tcpdump writes here).
inline void writePcap(std::string const& path, std::vector<Bytes> const& frames) {
  std::ofstream os(path, std::ios::binary);
  auto put32 = [&os](std::uint32_t v) { os.write(reinterpret_cast<const char*>(&v), 4); };
  for (std::uint32_t v : {0xa1b2c3d4u, 0x00040002u, 0u, 0u, 65535u, 1u}) put32(v);
  for (Bytes const& f : frames) {
    for (std::uint32_t v : {1u, 0u, static_cast<std::uint32_t>(f.size()), static_cast<std::uint32_t>(f.size())})
      put32(v);
    os << f;
  }
}

// Runs a shell command and returns what it printed on stdout.
inline std::string run(std::string const& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    std::array<char, 4096> buf;
    for (std::size_t n; (n = std::fread(buf.data(), 1, buf.size(), p)) > 0;) out.append(buf.data(), n);
    ::pclose(p);
  }
  return out;
}

inline bool haveTool(std::string const& name) {
  return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

// tshark's raw value of each field, for every frame of the file: one row per frame, one
// column per field ("" when the frame lacks it).
inline std::vector<std::vector<std::string>> tsharkFields(std::string const& pcap,
                                                          std::vector<std::string> const& fields) {
  std::string command = "tshark -r '" + pcap + "' -T fields -E separator=/t -E occurrence=f";
  for (std::string const& f : fields) command += " -e " + f;
  std::istringstream lines(run(command + " 2>/dev/null"));
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> row;
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, '\t');) row.push_back(cell);
    row.resize(fields.size());
    rows.push_back(row);
  }
  return rows;
}

}  // namespace Dot3Test
