#include <algorithm>
#include <cstring>

#include "Lldp/LldpPoe.h"
#include "tools/LldpTx/LldpTx.h"

namespace LldpTx {
namespace {

constexpr std::uint8_t tlvEnd = 0, tlvChassisId = 1, tlvPortId = 2, tlvTtl = 3, tlvPortDesc = 4,
                       tlvSysName = 5, tlvSysDesc = 6, tlvSysCap = 7, tlvMgmtAddr = 8, tlvOrg = 127;
constexpr std::uint32_t ouiDot1 = 0x0080c2, ouiDot3 = 0x00120f, ouiMed = 0x0012bb;
constexpr std::size_t ethHeader = 14;
constexpr std::size_t maxTlvInfo = 511;

// A cursor over the frame that refuses a TLV which would leave no room for the End TLV.
class Writer {
 public:
  Writer(Frame& f, std::size_t limit) : f_(f), p_(f.bytes.data() + ethHeader), end_(f.bytes.data() + limit) {}

  // Starts a TLV of `len` information bytes; false (nothing written) when it does not fit.
  bool open(std::uint8_t type, std::size_t len) {
    if (len > maxTlvInfo || static_cast<std::size_t>(end_ - p_) < 2 + len + 2) return false;
    p_[0] = static_cast<std::uint8_t>(type << 1 | len >> 8);
    p_[1] = static_cast<std::uint8_t>(len);
    p_ += 2;
    return true;
  }
  bool openOrg(std::uint32_t oui, std::uint8_t subtype, std::size_t len) {
    if (!open(tlvOrg, len + 4)) return false;
    u24(oui);
    u8(subtype);
    return true;
  }
  void u8(std::uint32_t v) { *p_++ = static_cast<std::uint8_t>(v); }
  void u16(std::uint32_t v) { u8(v >> 8), u8(v); }
  void u24(std::uint32_t v) { u8(v >> 16), u16(v); }
  void u32(std::uint32_t v) { u16(v >> 16), u16(v); }
  void bytes(void const* d, std::size_t n) {
    if (n) std::memcpy(p_, d, n);
    p_ += n;
  }
  void str(Kel::String const& s) { bytes(s.data(), s.size()); }
  bool strTlv(std::uint8_t type, Kel::String const& s) {
    if (!open(type, s.size())) return false;
    str(s);
    return true;
  }
  void finish() {
    *p_++ = tlvEnd;
    *p_++ = 0;
    f_.size = static_cast<std::size_t>(p_ - f_.bytes.data());
  }

 private:
  Frame& f_;
  std::uint8_t* p_;
  std::uint8_t* end_;
};

void header(PortSources const& src, Frame& out) {
  std::memcpy(out.bytes.data(), nearestBridge.data(), 6);
  std::memcpy(out.bytes.data() + 6, src.sourceMac.data(), 6);
  out.bytes[12] = lldpEtherType >> 8;
  out.bytes[13] = lldpEtherType & 0xff;
  out.size = 0;
  out.dropped = 0;
  out.poe = PoeTlv::none;
}

// The mandatory TLVs; always fit (at most 3 x 257 bytes + 4 + 2).
void mandatory(Writer& w, PortSources const& src, std::uint16_t ttl) {
  auto const& chassis = src.system->chassisIdentifier();
  auto const& cid = chassis.chassisId().value();
  w.open(tlvChassisId, 1 + cid.size());
  w.u8(chassis.chassisIdSubtype());
  w.str(cid);
  auto const& port = src.port->portIdentifier();
  auto const& pid = port.portId().value();
  w.open(tlvPortId, 1 + pid.size());
  w.u8(port.portIdSubtype());
  w.str(pid);
  w.open(tlvTtl, 2);
  w.u16(ttl);
}

std::size_t limitFor(PortSources const& src) {
  std::size_t max = src.config->maxTxFrameSize();
  std::size_t limit = std::min(frameCapacity, max > fcsBytes ? max - fcsBytes : 0);
  return src.linkLimit ? std::min(limit, src.linkLimit) : limit;
}

// An SNMP object identifier in BER (the Management Address TLV's OID field); 0 when it
// does not fit in `cap` bytes.
std::size_t encodeOid(Platform::ObjectIdentifier const& oid, std::uint8_t* out, std::size_t cap) {
  auto const& ids = oid.subIds();
  if (ids.size() < 2) return 0;
  std::size_t n = 0;
  auto put = [&](std::uint64_t v) {
    std::uint8_t tmp[10];
    std::size_t k = 0;
    do tmp[k++] = static_cast<std::uint8_t>(v & 0x7f), v >>= 7;
    while (v);
    if (n + k > cap) return false;
    while (k) {
      --k;
      out[n++] = static_cast<std::uint8_t>(tmp[k] | (k ? 0x80 : 0));  // more bytes follow
    }
    return true;
  };
  if (!put(std::uint64_t{ids[0]} * 40 + ids[1])) return 0;
  for (std::size_t i = 2; i < ids.size(); ++i)
    if (!put(ids[i])) return 0;
  return n;
}

bool mgmtAddr(Writer& w, Lldp::ManagementAddress const& a) {
  auto const& addr = a.key().manAddr().value();
  std::uint8_t oid[128];
  std::size_t oidLen = encodeOid(a.oid(), oid, sizeof oid);
  if (!w.open(tlvMgmtAddr, 1 + 1 + addr.size() + 1 + 4 + 1 + oidLen)) return false;
  w.u8(1 + addr.size());
  w.u8(static_cast<std::uint32_t>(a.key().manAddrSubtype().value()));
  w.str(addr);
  w.u8(a.ifSubtype());
  w.u32(a.ifId());
  w.u8(oidLen);
  w.bytes(oid, oidLen);
  return true;
}

bool orgTlv(Writer& w, Lldp::UnknownOrgDefTlv const& t) {
  auto const& info = t.orgDefInfo().value();
  if (!w.openOrg(t.key().oui().value(), static_cast<std::uint8_t>(t.key().subtype()), info.size())) return false;
  w.str(info);
  return true;
}

// The Power via MDI TLV exactly as the library decides: the port's own state when it may
// be sent, else the configured fallback.
bool powerViaMdi(Writer& w, PortSources const& src, Frame& out) {
  auto const& info = src.port->localPortPoeInfo();
  if (!info) return true;
  char body[PoeUtils::maxPowerViaMdiBodyBytes];
  int n = 0;
  PoeTlv kind = PoeTlv::decided;
  if (PoeUtils::canWeSendPowerViaMdiTlv(*info)) {
    n = PoeUtils::buildPowerViaMdiTlv(body, *info, src.echoPdRequest);
  } else {
    n = PoeUtils::maybeBuildFallbackPowerViaMdiTlv(body, *info, src.echoPdRequest,
                                                   Lldp::PortConfig::PtrConst(src.portConfig), src.status);
    kind = PoeTlv::fallback;
  }
  if (n <= 0) return true;
  if (!w.openOrg(ouiDot3, 2, static_cast<std::size_t>(n))) return false;
  w.bytes(body, static_cast<std::size_t>(n));
  out.poe = kind;
  return true;
}

}  // namespace

std::uint16_t txTtl(Lldp::Config const& config) noexcept {
  return static_cast<std::uint16_t>(std::min<std::uint64_t>(65535, std::uint64_t{config.messageTxHoldTime()} + 1));
}

void buildShutdownLldpdu(PortSources const& src, Frame& out) {
  header(src, out);
  Writer w(out, frameCapacity);
  mandatory(w, src, 0);
  w.finish();
}

void buildLldpdu(PortSources const& src, Frame& out) {
  header(src, out);
  Writer w(out, limitFor(src));
  mandatory(w, src, txTtl(*src.config));
  auto const& sys = *src.system;
  auto const& port = *src.port;
  auto const& pc = *src.portConfig;
  auto drop = [&](bool fitted, Dropped what) {
    if (!fitted) out.dropped |= what;
  };

  auto const tlvs = pc.enabledTlvs();
  if (tlvs.portDesc()) drop(w.strTlv(tlvPortDesc, port.portDesc().value()), droppedBasic);
  if (tlvs.sysName()) drop(w.strTlv(tlvSysName, sys.sysName().value()), droppedBasic);
  if (tlvs.sysDesc()) drop(w.strTlv(tlvSysDesc, sys.sysDesc().value()), droppedBasic);
  if (tlvs.sysCap()) {
    bool fit = w.open(tlvSysCap, 4);
    if (fit) w.u16(sys.sysCapSupported().value()), w.u16(sys.sysCapEnabled().value());
    drop(fit, droppedBasic);
  }

  if (pc.mgmtAddrTxEnable()) {
    std::uint32_t left = src.config->maxTxMgmtAddrs();
    for (auto it = sys.managementAddressPrio().begin(); it && left; ++it) {
      auto const* a = sys.managementAddress(*it);
      if (!a) continue;
      drop(mgmtAddr(w, *a), droppedMgmtAddr);
      --left;
    }
    if (!!sys.ip6ManagementAddress()) drop(mgmtAddr(w, sys.ip6ManagementAddress()), droppedMgmtAddr);
  }

  if (pc.portVlanTxEnable() && port.portVlanId().value() != 0) {
    bool fit = w.openOrg(ouiDot1, 1, 2);
    if (fit) w.u16(port.portVlanId().value());
    drop(fit, droppedPortVlan);
  }

  auto const dot3 = pc.dot3EnabledTlvs();
  if (dot3.macPhyConfigStatus() && src.macPhy) {
    bool fit = w.openOrg(ouiDot3, 1, 5);
    if (fit) {
      w.u8((src.macPhy->autoNegSupported() ? 1u : 0u) | (src.macPhy->autoNegEnabled() ? 2u : 0u));
      w.u16(src.macPhy->autoNegAdvertisedCapAsU16());
      w.u16(src.macPhy->operMauType());
    }
    drop(fit, droppedDot3);
  }
  if (dot3.powerViaMdi()) drop(powerViaMdi(w, src, out), droppedDot3);
  if (dot3.linkAggregation()) {
    bool fit = w.openOrg(ouiDot3, 3, 5);
    if (fit) w.u8(port.linkAggregationInfo().status().value()), w.u32(static_cast<std::uint32_t>(port.linkAggregationInfo().portId()));
    drop(fit, droppedDot3);
  }
  if (dot3.maxFrameSize() && port.maximumFrameSizeInfo().maxFrameSize() != 0) {
    bool fit = w.openOrg(ouiDot3, 4, 2);
    if (fit) w.u16(port.maximumFrameSizeInfo().maxFrameSize());
    drop(fit, droppedDot3);
  }

  if (pc.tiaEnabledTlvs().networkPolicy() && src.status && src.status->anyLldpMedReceived()) {
    bool fit = w.openOrg(ouiMed, 1, 3);
    if (fit) w.u16(port.medCapabilities().capability().value()), w.u8(port.medCapabilities().deviceType());
    drop(fit, droppedMed);
    for (auto it = port.localNetworkPolicyTlv().begin(); it; ++it) {
      auto const& p = *it;
      fit = w.openOrg(ouiMed, 2, 4);
      if (fit) {
        w.u8(p.appValue());
        w.u24((p.unknownPolicy() ? 1u << 23 : 0u) | (p.tagged() ? 1u << 22 : 0u) | (p.vlanId() & 0xfffu) << 9 |
              (p.cosValue() & 7u) << 6 | (p.dscpValue() & 0x3fu));
      }
      drop(fit, droppedMed);
    }
  }

  for (auto it = port.unknownOrgDefTlv().begin(); it; ++it) drop(orgTlv(w, *it), droppedOrg);
  if (src.external)
    for (auto it = src.external->unknownOrgDefTlv().begin(); it; ++it) drop(orgTlv(w, *it), droppedOrg);
  w.finish();
}

void frameSent(Lldp::PortStatus& status, Frame const& frame, double now) {
  status.txFramesTotalInc(1);
  if (frame.dropped) status.txFramesLengthExceededInc(1);
  status.lastTxTimeIs(now);
}

}  // namespace LldpTx
