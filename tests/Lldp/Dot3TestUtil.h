#pragma once
// Helpers of the 802.3 protocol tests: trace lines, a neighbour's 802.3 state, a PoE port,
// and for the interoperability tests LLDP frames, pcap files and the independent tools
// (tshark, lldpd) whose readings are compared with ours.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Lldp/Lldp.h"
#include "Lldp/LldpExtDot3Parser.h"
#include "Tracing/Duolog.h"

namespace Dot3Test {

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

// What the 802.3 parser may touch on a neighbour.
struct Dot3State {
  bool macFlag = false, aggFlag = false, mfsFlag = false, powerFlag = false;
  Lldp::MacPhyConfigStatusInfo mac;
  Lldp::LinkAggregationInfo agg;
  Lldp::MaximumFrameSizeInfo mfs;
  Lldp::PowerViaMdiInfo power;
  friend bool operator==(Dot3State const&, Dot3State const&) = default;
  static Dot3State of(Lldp::RemoteSystem const& r) {
    return {r.macPhyConfigStatusTlvReceived(), r.linkAggregationTlvReceived(),
            r.maximumFrameSizeTlvReceived(),   r.powerViaMdiTlvReceived(),
            r.macPhyConfigStatusInfo(),        r.linkAggregationInfo(),
            r.maximumFrameSizeInfo(),          r.powerViaMdiInfo()};
  }
};

// A powered 802.3bt PSE port whose fields all differ. On the wire: MDI power support 0x0F,
// pair 1, class 4, type/source/priority 0x92, granted 255, modes A and B 120 and 134, power
// status 0xC623, system setup 0x02, maximum 900, autoclass 0x04.
inline Power::PoePortStatus btPortStatus() {
  Power::PoePortStatus s;
  s.poePortStateIs(Power::PoePortState::powered);
  s.poweredDeviceClassIs(Power::PoweredDeviceClass::class3);
  s.grantedPowerIs(25.5);
  s.lldpPoeNegotiationSupportIs(Power::LldpPoeNegotiationSupport::Ieee802_3bt);
  s.psePairsControllableIs(true);
  s.psePowerPairIs(Power::PsePowerPair::signal);
  s.powerTypeIs(Power::PowerType::type1Pse);
  s.powerSourceIs(Power::PowerSource::primary);
  s.powerPriorityIs(Power::PowerPriority::high);
  s.allocatedPowerAlternativeAIs(12.0);
  s.allocatedPowerAlternativeBIs(13.4);
  s.psePoweringStatusIs(Power::PsePoweringStatus::fourPairDualSignature);
  s.psePowerPairsExtIs(Power::PsePowerPairsExt::alternativeA);
  s.dualSignaturePowerClassExtModeAIs(Power::DualSignaturePowerClassExtMode::class4);
  s.dualSignaturePowerClassExtModeBIs(Power::DualSignaturePowerClassExtMode::class2);
  s.powerTypeExtIs(Power::PowerTypeExt::type4Pse);
  s.pseMaximumAvailablePowerIs(90.0);
  s.pseAutoclassSupportIs(true);
  return s;
}

inline Bytes tlv(unsigned type, Bytes const& value) {
  unsigned const header = (type << 9) | static_cast<unsigned>(value.size());
  return Bytes{static_cast<char>(header >> 8), static_cast<char>(header & 0xff)} + value;
}

// An IEEE 802.3 organizationally specific TLV: OUI 00-12-0F, the subtype, the body.
inline Bytes dot3Tlv(unsigned subtype, Bytes const& body) {
  return tlv(127, Bytes("\x00\x12\x0f", 3) + static_cast<char>(subtype) + body);
}

// An LLDPDU in an Ethernet frame to the nearest-bridge address: chassis id (MAC), port id
// (interface name), TTL 120, the given TLVs, End.
inline Bytes lldpFrame(std::vector<Bytes> const& tlvs) {
  Bytes const mac("\x02\x00\x00\x00\x00\x01", 6);
  Bytes f = Bytes("\x01\x80\xc2\x00\x00\x0e", 6) + mac + Bytes("\x88\xcc", 2);
  f += tlv(1, "\x04" + mac) +
       tlv(2,
           "\x05"
           "eth0") +
       tlv(3, Bytes("\x00\x78", 2));
  for (Bytes const& t : tlvs) f += t;
  return f + tlv(0, "");
}

// The 802.3 TLVs of an LLDP frame: subtype and the bytes after it.
struct Dot3Tlv {
  int subtype;
  Bytes body;
};
inline std::vector<Dot3Tlv> dot3TlvsOf(Bytes const& frame) {
  std::vector<Dot3Tlv> out;
  if (frame.size() < 14 || frame.compare(12, 2, "\x88\xcc", 2) != 0) return out;
  for (std::size_t p = 14; p + 2 <= frame.size();) {
    unsigned const header = (static_cast<unsigned char>(frame[p]) << 8) | static_cast<unsigned char>(frame[p + 1]);
    std::size_t const length = header & 0x1ff;
    if ((header >> 9) == 0 || p + 2 + length > frame.size()) break;
    if ((header >> 9) == 127 && length >= 4 && frame.compare(p + 2, 3, "\x00\x12\x0f", 3) == 0)
      out.push_back({static_cast<unsigned char>(frame[p + 5]), frame.substr(p + 6, length - 4)});
    p += 2 + length;
  }
  return out;
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

// The frames of such a file (none when it is not one).
inline std::vector<Bytes> readPcap(std::string const& path) {
  std::ifstream is(path, std::ios::binary);
  Bytes const all((std::istreambuf_iterator<char>(is)), std::istreambuf_iterator<char>());
  auto u32 = [&all](std::size_t at) {
    std::uint32_t v = 0;
    all.copy(reinterpret_cast<char*>(&v), 4, at);
    return v;
  };
  std::vector<Bytes> frames;
  if (all.size() < 24 || u32(0) != 0xa1b2c3d4u) return frames;
  for (std::size_t p = 24; p + 16 <= all.size() && p + 16 + u32(p + 8) <= all.size(); p += 16 + u32(p + 8))
    frames.push_back(all.substr(p + 16, u32(p + 8)));
  return frames;
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

// A scratch directory, removed with its contents.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/lldp-interop-XXXXXX";
    if (::mkdtemp(tmpl)) path_ = tmpl;
  }
  ~TempDir() {
    if (!path_.empty()) std::system(("rm -rf '" + path_ + "'").c_str());
  }
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;
  std::string const& path() const { return path_; }

 private:
  std::string path_;
};

// Our reading of each 802.3 field that tshark decodes, by tshark's field name.
using U = std::uint64_t;
using R = Lldp::RemoteSystem const&;
struct Field {
  const char* tshark;
  U (*ours)(R);
  U tsharkMask = ~U{0};  // the bits of tshark's value that are the field
};
inline Lldp::MacPhyConfigStatusInfo const& mac(R r) { return r.macPhyConfigStatusInfo(); }
inline Lldp::PowerViaMdiInfo const& pw(R r) { return r.powerViaMdiInfo(); }
// clang-format off
inline std::vector<Field> const dot3Fields = {
    {"mac_phy_auto_neg_status.supported", [](R r) -> U { return mac(r).autoNegSupported(); }},
    {"mac_phy_auto_neg_status.enabled", [](R r) -> U { return mac(r).autoNegEnabled(); }},
    {"pmd_auto_neg_advertised_caps", [](R r) -> U { return mac(r).autoNegAdvertisedCapAsU16(); }},
    {"pmd_mau_type", [](R r) -> U { return mac(r).operMauType(); }},
    {"aggregation_status", [](R r) -> U { return r.linkAggregationInfo().status().value(); }},
    {"aggregated_port_id", [](R r) -> U { return static_cast<std::uint32_t>(r.linkAggregationInfo().portId()); }},
    {"max_frame_size", [](R r) -> U { return r.maximumFrameSizeInfo().maxFrameSize(); }},
    {"mdi_power_support.port_class", [](R r) -> U { return pw(r).portClass() == Lldp::pClassPSE; }},
    {"mdi_power_support.supported", [](R r) -> U { return pw(r).supported(); }},
    {"mdi_power_support.enabled", [](R r) -> U { return pw(r).enabled(); }},
    {"mdi_power_support.pse_pairs", [](R r) -> U { return pw(r).powerPairControllable(); }},
    {"mdi_pse_pair", [](R r) -> U { return pw(r).powerPairs(); }},
    {"mdi_power_class", [](R r) -> U { return pw(r).powerClass(); }},
    {"mdi_power_type", [](R r) -> U { return Power::toU32(pw(r).at().powerType()); }},
    {"mdi_power_source", [](R r) -> U { return Power::toU32(pw(r).at().powerSource()); }},
    // tshark takes the whole low nibble; bits 3 and 2 are 802.3bt's reserved and PD 4PID bits.
    {"mdi_power_priority", [](R r) -> U { return Power::toU32(pw(r).at().powerPriority()); }, 0x3},
    {"mdi_pde_requested", [](R r) -> U { return pw(r).at().pdRequestedPowerValue(); }},
    {"mdi_pse_allocated", [](R r) -> U { return pw(r).at().pseAllocatedPowerValue(); }},
    {"bt_ds_pd_requested_power_value_mode_a", [](R r) -> U { return pw(r).bt().pdRequestedPowerValueModeA(); }},
    {"bt_ds_pd_requested_power_value_mode_b", [](R r) -> U { return pw(r).bt().pdRequestedPowerValueModeB(); }},
    {"bt_ds_pse_allocated_power_value_alt_a", [](R r) -> U { return pw(r).bt().pseAllocatedPowerValueAlternativeA(); }},
    {"bt_ds_pse_allocated_power_value_alt_b", [](R r) -> U { return pw(r).bt().pseAllocatedPowerValueAlternativeB(); }},
    {"bt_pse_powering_status", [](R r) -> U { return Power::toU32(pw(r).bt().psePoweringStatus()); }},
    {"bt_pd_powered_status", [](R r) -> U { return pw(r).bt().pdPoweredStatus(); }},
    {"bt_pse_power_pairs_ext", [](R r) -> U { return Power::toU32(pw(r).bt().psePowerPairsExt()); }},
    {"bt_ds_pwr_class_ext_a", [](R r) -> U { return Power::toU32(pw(r).bt().dualSignaturePowerClassExtModeA()); }},
    {"bt_ds_pwr_class_ext_b", [](R r) -> U { return Power::toU32(pw(r).bt().dualSignaturePowerClassExtModeB()); }},
    {"bt_pwr_class_ext_", [](R r) -> U { return pw(r).bt().powerClassExt(); }},
    {"bt_power_type_ext", [](R r) -> U { return Power::toU32(pw(r).bt().powerTypeExt()); }},
    {"bt_pse_maximum_available_power_value", [](R r) -> U { return pw(r).bt().pseMaximumAvailablePowerValue(); }},
    {"bt_pse_autoclass_support", [](R r) -> U { return pw(r).bt().pseAutoclassSupport(); }},
    {"bt_autoclass_completed", [](R r) -> U { return pw(r).bt().autoclassCompleted(); }},
    {"bt_autoclass_request", [](R r) -> U { return pw(r).bt().autoclassRequest(); }},
    // tshark shows the request field's code; 0x1D is the request.
    {"bt_power_down_request", [](R r) -> U { return pw(r).bt().powerDownRequest() ? 0x1D : 0; }},
    {"bt_power_down_time", [](R r) -> U { return pw(r).bt().powerDownTime(); }},
};
// clang-format on

// Parses the 802.3 TLVs of frame `index` of a capture into a new neighbour, and expects
// every 802.3 field that tshark decodes in that frame to read the same with us. Returns
// the neighbour, or null when the frame holds no 802.3 TLV.
inline Lldp::RemoteSystem::Ptr expectParsedAsTshark(std::string const& pcap, std::size_t index,
                                                    Lldp::PortStatus::Ptr const& port) {
  std::vector<Bytes> const frames = readPcap(pcap);
  if (index >= frames.size()) {
    ADD_FAILURE() << pcap << " has no frame " << index;
    return nullptr;
  }
  std::vector<Dot3Tlv> const tlvs = dot3TlvsOf(frames[index]);
  if (tlvs.empty()) return nullptr;
  Lldp::RemoteSystem::Ptr const remote =
      port->remoteSystemIs(static_cast<std::int32_t>(index) + 1, Lldp::RemoteSystem::Msap());
  for (Dot3Tlv const& t : tlvs)
    EXPECT_EQ(Lldp::Agent::Protocol::parseExtDot3Tlv(t.subtype, static_cast<int>(t.body.size()), t.body.data(), remote),
              Lldp::Agent::Protocol::extDot3TlvParsed)
        << "subtype " << t.subtype;
  std::vector<std::string> names;
  for (Field const& f : dot3Fields) names.push_back(std::string("lldp.ieee.802_3.") + f.tshark);
  auto const rows = tsharkFields(pcap, names);
  if (index >= rows.size()) {
    ADD_FAILURE() << "tshark read no frame " << index << " in " << pcap;
    return remote;
  }
  int shown = 0;
  for (std::size_t i = 0; i < dot3Fields.size(); ++i) {
    std::string const& theirs = rows[index][i];
    if (theirs.empty()) continue;
    ++shown;
    EXPECT_EQ(dot3Fields[i].ours(*remote), std::stoull(theirs, nullptr, 0) & dot3Fields[i].tsharkMask)
        << dot3Fields[i].tshark << " in " << pcap;
  }
  EXPECT_GT(shown, 0) << "tshark decoded no 802.3 field of " << pcap;
  // The layer we chose agrees with the fields tshark found.
  auto const shows = [&](std::string const& name) {
    for (std::size_t i = 0; i < dot3Fields.size(); ++i)
      if (dot3Fields[i].tshark == name) return !rows[index][i].empty();
    return false;
  };
  if (remote->powerViaMdiTlvReceived()) {
    EXPECT_EQ(remote->powerViaMdiInfo().ieeeStandard(),
              shows("bt_pse_powering_status") ? Lldp::PowerViaMdiInfo::IeeeStandard_802_3bt
              : shows("mdi_power_type")       ? Lldp::PowerViaMdiInfo::IeeeStandard_802_3at
                                              : Lldp::PowerViaMdiInfo::IeeeStandard_802_3af);
  }
  return remote;
}

}  // namespace Dot3Test
