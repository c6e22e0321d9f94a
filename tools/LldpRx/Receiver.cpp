#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "Lldp/Lldp/EventLogMessages.h"
#include "Lldp/LldpExtDot3Parser.h"
#include "Tracing/Duolog.h"
#include "tools/LldpRx/LldpRx.h"
#include "tools/LldpRx/Tlvs.h"

namespace LldpRx {

using namespace Detail;
using Lldp::RemoteSystem;
using R = Lldp::RemoteSystem;

namespace {

DUOLOG_HANDLE(rxTrace, "LldpRx");

constexpr double never = std::numeric_limits<double>::infinity();

struct KeyHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
};

// What the receiver keeps of a neighbour besides its RemoteSystem: the last LLDPDU it
// accepted, so that a repeat costs one compare and a change only the TLVs that changed.
struct Neighbour {
  RemoteSystem::Ptr rs;
  std::string frame;               // source MAC, then the LLDPDU
  std::vector<Outcome> outcomes;   // per TLV of that LLDPDU
  std::uint32_t unrecognized = 0;  // its counts, added again for every repeat
  std::uint32_t discarded = 0;
};

Kel::String idText(RemoteSystem const& rs, bool chassis) {
  return chassis ? rs.msap().chassisIdentifier().stringValue(Lldp::colon, true)
                 : rs.msap().portIdentifier().stringValue(Lldp::colon, true);
}

}  // namespace

const char* toString(FrameResult r) noexcept {
  switch (r) {
    case FrameResult::refreshed: return "refreshed";
    case FrameResult::updated: return "updated";
    case FrameResult::added: return "added";
    case FrameResult::removed: return "removed";
    case FrameResult::shutdownIgnored: return "shutdown of an unknown neighbour";
    case FrameResult::notLldp: return "not LLDP";
    case FrameResult::malformed: return "malformed";
    case FrameResult::rateLimited: return "rate limited";
    case FrameResult::tagged: return "VLAN-tagged, dropped";
    case FrameResult::tableFull: return "table full";
    case FrameResult::portDisabled: return "port not receiving";
  }
  return "?";
}

// Scratch shared by the ports of one receiver: reused from frame to frame so that a
// steady stream allocates nothing.
struct Shared {
  Lldp::Status::Ptr root;
  Lldp::Config::Ptr config;
  bool const* incremental;
  Kel::Ptr<Lldp::UnknownOrgDefTlvParseContext> orgContext{new Lldp::UnknownOrgDefTlvParseContext()};
  std::vector<Tlv> tlvs, oldTlvs;
  std::vector<Outcome> outcomes;
  std::string keyBuffer;
  std::vector<Lldp::ManagementAddress> addresses;
  std::vector<Lldp::UnknownTlv> unknownTlvs;
  std::vector<Lldp::UnknownOrgDefTlv> orgTlvs;
  std::vector<Lldp::PortAndProtocolVlan> ppvids;
  std::vector<Lldp::VlanName> vlanNames;
  std::vector<Lldp::ProtocolIdentityInfo> protocols;
  std::vector<Lldp::NetworkPolicyTlv> policies;
};

namespace {

// Applies one accepted LLDPDU's optional TLVs to a neighbour: in full, or only the TLVs
// that differ from the neighbour's previous LLDPDU of the same shape. Both end in the
// same attributes; `changed` tells whether any of them moved.
class Update {
 public:
  Update(Shared& sh, RemoteSystem::Ptr const& rs) : sh_(sh), rsPtr_(rs), r_(*rs) {}

  bool changed = false;

  // fresh: the neighbour was just made, so every attribute holds its default and there
  // is nothing to clear.
  void full(bool fresh) {
    std::uint32_t seen = 0, present = 0;
    std::vector<Tlv> const& tlvs = sh_.tlvs;
    for (std::size_t i = 0; i < tlvs.size(); ++i) {
      Tlv const& t = tlvs[i];
      present |= 1u << t.kind;
      sh_.outcomes[i] = accepted;
      if (t.kind == kMalformedOrg) {
        sh_.outcomes[i] = discarded;
      } else if (isSingle(t.kind)) {
        bool const first = !(seen & (1u << t.kind));
        seen |= 1u << t.kind;
        // Only the first TLV of a kind counts; a repeat is dropped.
        sh_.outcomes[i] = first ? single(t) : repeat(t);
      }
    }
    if (!fresh)
      for (unsigned k = 0; k < singleKinds; ++k)
        if (!(seen & (1u << k))) clear(static_cast<Kind>(k));
    for (unsigned k = singleKinds; k < kindCount; ++k)
      if (!fresh || (present & (1u << k))) collection(static_cast<Kind>(k));
  }

  // The previous LLDPDU's TLVs have the same shapes, one for one.
  void incremental(std::vector<Tlv> const& old, std::vector<Outcome> const& oldOutcomes) {
    std::uint32_t seen = 0, dirty = 0;
    std::vector<Tlv> const& tlvs = sh_.tlvs;
    for (std::size_t i = 0; i < tlvs.size(); ++i) {
      Tlv const& t = tlvs[i];
      bool first = true;
      if (isSingle(t.kind)) {
        first = !(seen & (1u << t.kind));
        seen |= 1u << t.kind;
      }
      if (t.bytes() == old[i].bytes()) {
        sh_.outcomes[i] = oldOutcomes[i];
      } else if (isSingle(t.kind)) {
        sh_.outcomes[i] = first ? single(t) : repeat(t);
      } else if (isCollection(t.kind)) {
        dirty |= 1u << t.kind;
      } else {
        sh_.outcomes[i] = t.kind == kMalformedOrg ? discarded : accepted;
      }
    }
    for (unsigned k = singleKinds; k < kindCount; ++k)
      if (dirty & (1u << k)) collection(static_cast<Kind>(k));
  }

 private:
  template <class V, class Set>
  void set(V const& current, V&& v, Set setter) {
    if (current == v) return;
    (r_.*setter)(std::move(v));
    changed = true;
  }
  void flag(bool current, void (RemoteSystem::*setter)(bool), bool v) {
    if (current == v) return;
    (r_.*setter)(v);
    changed = true;
  }

  template <class Tlv_, class Bounded>
  Outcome text(Tlv_ const& current, void (RemoteSystem::*setter)(Tlv_), std::string_view v) {
    if (!Bounded::valueValid(v)) return discarded;
    if (current.isSet() && current.value().value().view() == v) return accepted;
    // The bound was checked above: the string is moved in, not copied as create() would.
    Tlv_ t;
    t.valueIs(Bounded(Kel::String(v)));
    (r_.*setter)(std::move(t));
    changed = true;
    return accepted;
  }

  // An 802.3 TLV through the 802.3 parser, once it is long enough for the parser to
  // decode it without meeting the end.
  // An 802.3 TLV through the 802.3 parser, once it is long enough for the parser to
  // decode it without meeting the end.
  template <class Get>
  Outcome dot3(Tlv const& t, std::size_t needed, Get get) {
    if (t.orgLength() < needed) return discarded;
    auto const before = get(r_);
    int const result = Lldp::Agent::Protocol::parseExtDot3Tlv(
        t.subtype(), static_cast<int>(t.orgLength()), reinterpret_cast<const char*>(t.orgInfo()), rsPtr_);
    if (!(before == get(r_))) changed = true;
    return result == Lldp::Agent::Protocol::extDot3TlvParsed ? accepted : discarded;
  }

  static Outcome repeat(Tlv const& t) {
    DUOLOG(rxTrace(), 4, "TLV type %u (length %u) discarded: a repeat of an earlier one", unsigned{t.type}, unsigned{t.length});
    return discarded;
  }

  Outcome single(Tlv const& t) {
    Outcome const o = decodeSingle(t);
    if (o == discarded) {
      DUOLOG(rxTrace(), 4, "TLV type %u (length %u) discarded: a field is out of its range", unsigned{t.type},
             unsigned{t.length});
      clear(t.kind);
    }
    return o;
  }

  Outcome decodeSingle(Tlv const& t) {
    using namespace Lldp;
    switch (t.kind) {
      case kPortDesc:
        return text<BoundedString255Tlv, BoundedString255>(r_.portDesc(), &RemoteSystem::portDescIs, Detail::text(t.value(), t.length));
      case kSysName:
        return text<BoundedString255Tlv, BoundedString255>(r_.sysName(), &RemoteSystem::sysNameIs, Detail::text(t.value(), t.length));
      case kSysDesc:
        return text<BoundedString255Tlv, BoundedString255>(r_.sysDesc(), &RemoteSystem::sysDescIs, Detail::text(t.value(), t.length));
      case kSysCap:
        if (t.length != 4) return discarded;
        set(r_.systemCapabilities(),
            SystemCapabilitiesTlv::create(SystemCapabilitiesMap(be16(t.value())), SystemCapabilitiesMap(be16(t.value() + 2))),
            &RemoteSystem::systemCapabilitiesIs);
        return accepted;
      case kPortVlanId: {
        if (t.orgLength() < 2 || be16(t.orgInfo()) > Platform::VlanIdOrNone::max) return discarded;
        set(r_.portVlanId(), Platform::VlanIdOrNone(be16(t.orgInfo())), &RemoteSystem::portVlanIdIs);
        flag(r_.portVlanIdTlvReceived(), &RemoteSystem::portVlanIdTlvReceivedIs, true);
        return accepted;
      }
      case kVidUsageDigest:
        if (t.orgLength() < 4) return discarded;
        set(r_.vidUsageDigest(), be32(t.orgInfo()), &RemoteSystem::vidUsageDigestIs);
        flag(r_.vidUsageDigestTlvReceived(), &RemoteSystem::vidUsageDigestTlvReceivedIs, true);
        return accepted;
      case kManagementVid:
        if (t.orgLength() < 2 || be16(t.orgInfo()) > Platform::VlanIdOrNone::max) return discarded;
        set(r_.managementVid(), Platform::VlanIdOrNone(be16(t.orgInfo())), &RemoteSystem::managementVidIs);
        flag(r_.managementVidTlvReceived(), &RemoteSystem::managementVidTlvReceivedIs, true);
        return accepted;
      case kLinkAggregation: {
        if (t.oui() == ouiDot3)
          return dot3(t, 5, [](R const& r) { return std::pair(r.linkAggregationTlvReceived(), r.linkAggregationInfo()); });
        // The 802.1 form has the 802.3 form's layout: status, then the port id.
        if (t.orgLength() < 5) return discarded;
        LinkAggregationInfo v;
        v.statusIs(LinkAggStatusMap(t.orgInfo()[0]));
        v.portIdIs(static_cast<std::int32_t>(be32(t.orgInfo() + 1)));
        set(r_.linkAggregationInfo(), std::move(v), &RemoteSystem::linkAggregationInfoIs);
        flag(r_.linkAggregationTlvReceived(), &RemoteSystem::linkAggregationTlvReceivedIs, true);
        return accepted;
      }
      case kMacPhy:
        return dot3(t, 5, [](R const& r) { return std::pair(r.macPhyConfigStatusTlvReceived(), r.macPhyConfigStatusInfo()); });
      case kPowerViaMdi:
        return dot3(t, 3, [](R const& r) { return std::pair(r.powerViaMdiTlvReceived(), r.powerViaMdiInfo()); });
      case kMaxFrameSize:
        return dot3(t, 2, [](R const& r) { return std::pair(r.maximumFrameSizeTlvReceived(), r.maximumFrameSizeInfo()); });
      case kMedCapabilities: {
        if (t.orgLength() < 3 || !MedCapabilitiesInfo::Capability::valueValid(be16(t.orgInfo()))) return discarded;
        MedCapabilitiesInfo v;
        v.capabilityIs(MedCapabilitiesInfo::Capability(be16(t.orgInfo())));
        std::uint8_t const type = t.orgInfo()[2];
        v.deviceTypeIs(type < MedCapabilitiesInfo::MedDeviceType_Reserved ? static_cast<MedCapabilitiesInfo::MedDeviceType>(type)
                                                                           : MedCapabilitiesInfo::MedDeviceType_Reserved);
        set(r_.medCapabilitiesInfo(), std::move(v), &RemoteSystem::medCapabilitiesInfoIs);
        flag(r_.medCapabilitiesTlvReceived(), &RemoteSystem::medCapabilitiesTlvReceivedIs, true);
        return accepted;
      }
      default: break;
    }
    // The inventory strings.
    static constexpr std::pair<BoundedString32Tlv const& (RemoteSystem::*)() const noexcept,
                               void (RemoteSystem::*)(BoundedString32Tlv)>
        inventory[] = {{&RemoteSystem::hardwareRevisionTlvInfo, &RemoteSystem::hardwareRevisionTlvInfoIs},
                       {&RemoteSystem::firmwareRevisionTlvInfo, &RemoteSystem::firmwareRevisionTlvInfoIs},
                       {&RemoteSystem::softwareRevisionTlvInfo, &RemoteSystem::softwareRevisionTlvInfoIs},
                       {&RemoteSystem::serialNumberTlvInfo, &RemoteSystem::serialNumberTlvInfoIs},
                       {&RemoteSystem::manufacturerNameTlvInfo, &RemoteSystem::manufacturerNameTlvInfoIs},
                       {&RemoteSystem::modelNameTlvInfo, &RemoteSystem::modelNameTlvInfoIs},
                       {&RemoteSystem::assetIDTlvInfo, &RemoteSystem::assetIDTlvInfoIs}};
    auto const& [get, setter] = inventory[t.kind - kHardwareRev];
    return text<BoundedString32Tlv, BoundedString32>((r_.*get)(), setter, Detail::text(t.orgInfo(), t.orgLength()));
  }

  // A single kind that the LLDPDU does not carry (or carries broken): a flag goes down and
  // keeps its record; a value with a presence flag of its own goes back to its default.
  void clear(Kind k) {
    using namespace Lldp;
    switch (k) {
      case kPortDesc: return set(r_.portDesc(), BoundedString255Tlv(), &RemoteSystem::portDescIs);
      case kSysName: return set(r_.sysName(), BoundedString255Tlv(), &RemoteSystem::sysNameIs);
      case kSysDesc: return set(r_.sysDesc(), BoundedString255Tlv(), &RemoteSystem::sysDescIs);
      case kSysCap: return set(r_.systemCapabilities(), SystemCapabilitiesTlv(), &RemoteSystem::systemCapabilitiesIs);
      case kPortVlanId: return flag(r_.portVlanIdTlvReceived(), &RemoteSystem::portVlanIdTlvReceivedIs, false);
      case kVidUsageDigest: return flag(r_.vidUsageDigestTlvReceived(), &RemoteSystem::vidUsageDigestTlvReceivedIs, false);
      case kManagementVid: return flag(r_.managementVidTlvReceived(), &RemoteSystem::managementVidTlvReceivedIs, false);
      case kLinkAggregation:
        return flag(r_.linkAggregationTlvReceived(), &RemoteSystem::linkAggregationTlvReceivedIs, false);
      case kMacPhy: return flag(r_.macPhyConfigStatusTlvReceived(), &RemoteSystem::macPhyConfigStatusTlvReceivedIs, false);
      case kPowerViaMdi: return flag(r_.powerViaMdiTlvReceived(), &RemoteSystem::powerViaMdiTlvReceivedIs, false);
      case kMaxFrameSize: return flag(r_.maximumFrameSizeTlvReceived(), &RemoteSystem::maximumFrameSizeTlvReceivedIs, false);
      case kMedCapabilities: return flag(r_.medCapabilitiesTlvReceived(), &RemoteSystem::medCapabilitiesTlvReceivedIs, false);
      case kHardwareRev: return set(r_.hardwareRevisionTlvInfo(), BoundedString32Tlv(), &RemoteSystem::hardwareRevisionTlvInfoIs);
      case kFirmwareRev: return set(r_.firmwareRevisionTlvInfo(), BoundedString32Tlv(), &RemoteSystem::firmwareRevisionTlvInfoIs);
      case kSoftwareRev: return set(r_.softwareRevisionTlvInfo(), BoundedString32Tlv(), &RemoteSystem::softwareRevisionTlvInfoIs);
      case kSerialNumber: return set(r_.serialNumberTlvInfo(), BoundedString32Tlv(), &RemoteSystem::serialNumberTlvInfoIs);
      case kManufacturer: return set(r_.manufacturerNameTlvInfo(), BoundedString32Tlv(), &RemoteSystem::manufacturerNameTlvInfoIs);
      case kModelName: return set(r_.modelNameTlvInfo(), BoundedString32Tlv(), &RemoteSystem::modelNameTlvInfoIs);
      case kAssetId: return set(r_.assetIDTlvInfo(), BoundedString32Tlv(), &RemoteSystem::assetIDTlvInfoIs);
      default: return;
    }
  }

  // Makes a collection hold exactly the staged values: deletes the keys the LLDPDU no
  // longer carries, then enters what is new or different.
  template <class V, class Coll, class KeyOf, class Find, class Is, class Del>
  void sync(std::vector<V> const& staged, Coll const& coll, KeyOf keyOf, Find find, Is is, Del del) {
    using Key = std::remove_cvref_t<decltype(keyOf(staged.front()))>;
    std::vector<Key> gone;
    for (auto const& e : coll)
      if (std::none_of(staged.begin(), staged.end(), [&](V const& v) { return keyOf(v) == keyOf(e); }))
        gone.push_back(keyOf(e));
    for (Key const& k : gone) (r_.*del)(k);
    if (!gone.empty()) changed = true;
    for (V const& v : staged) {
      auto const* current = (r_.*find)(keyOf(v));
      if (current && *current == v) continue;
      (r_.*is)(v);
      changed = true;
    }
  }

  // Stages every TLV of kind k through decode(tlv, staged) (which returns its outcome);
  // a key met a second time is dropped.
  template <class V, class KeyOf, class Decode>
  void stage(Kind k, std::vector<V>& staged, KeyOf keyOf, Decode decode) {
    staged.clear();
    for (std::size_t i = 0; i < sh_.tlvs.size(); ++i) {
      if (sh_.tlvs[i].kind != k) continue;
      std::size_t const before = staged.size();
      Outcome o = decode(sh_.tlvs[i], staged);
      if (staged.size() > before &&
          std::any_of(staged.begin(), staged.begin() + static_cast<std::ptrdiff_t>(before),
                      [&](V const& v) { return keyOf(v) == keyOf(staged.back()); })) {
        staged.pop_back();
        o = discarded;
      }
      if (o == discarded)
        DUOLOG(rxTrace(), 4, "TLV type %u (length %u) discarded: broken, out of range or a repeat", unsigned{sh_.tlvs[i].type},
               unsigned{sh_.tlvs[i].length});
      sh_.outcomes[i] = o;
    }
  }

  void collection(Kind k) {
    using namespace Lldp;
    switch (k) {
      case kManagementAddress: {
        auto keyOf = [](ManagementAddress const& v) -> ManagementAddress::Key const& { return v.key(); };
        stage(k, sh_.addresses, keyOf, [](Tlv const& t, std::vector<ManagementAddress>& out) {
          ManagementAddress v;
          if (!decodeManagementAddress(t, v)) return discarded;
          out.push_back(std::move(v));
          return accepted;
        });
        return sync(sh_.addresses, r_.managementAddress(), keyOf,
                    static_cast<ManagementAddress const* (RemoteSystem::*)(ManagementAddress::Key const&) const>(
                        &RemoteSystem::managementAddress),
                    &RemoteSystem::managementAddressIs, &RemoteSystem::managementAddressDel);
      }
      case kUnknownTlv: {
        auto keyOf = [](UnknownTlv const& v) { return v.type(); };
        stage(k, sh_.unknownTlvs, keyOf, [](Tlv const& t, std::vector<UnknownTlv>& out) {
          UnknownTlv v(t.type);
          v.infoIs(BoundedString511(Kel::String(Detail::text(t.value(), t.length))));
          out.push_back(std::move(v));
          return unrecognized;
        });
        return sync(sh_.unknownTlvs, r_.unknownTlv(), keyOf,
                    static_cast<UnknownTlv const* (RemoteSystem::*)(std::uint32_t) const>(&RemoteSystem::unknownTlv),
                    &RemoteSystem::unknownTlvIs, &RemoteSystem::unknownTlvDel);
      }
      case kUnknownOrgDefTlv: {
        // Several TLVs of one OUI and subtype are told apart by their order: the parse
        // context counts them, from 1 in every LLDPDU.
        UnknownOrgDefTlvParseContext& ctx = *sh_.orgContext;
        if (ctx.counter().size() > 64) ctx.counterDelAll();
        for (auto& c : ctx.counter()) const_cast<UnknownOrgDefTlvCounter&>(c).countIs(0);
        auto keyOf = [](UnknownOrgDefTlv const& v) -> UnknownOrgDefTlv::Key const& { return v.key(); };
        stage(k, sh_.orgTlvs, keyOf, [&ctx](Tlv const& t, std::vector<UnknownOrgDefTlv>& out) {
          if (!UnknownOrgDefTlv::Key::subtypeValid(t.subtype())) return discarded;
          UnknownOrgDefTlvCounter::Key ck;
          ck.ouiIs(Oui(t.oui()));
          ck.subtypeIs(t.subtype());
          UnknownOrgDefTlv::Key key;
          key.ouiIs(Oui(t.oui()));
          key.subtypeIs(t.subtype());
          key.indexIs(static_cast<std::int32_t>(ctx.counterIs(ck)->countInc(1)));
          UnknownOrgDefTlv v(std::move(key));
          v.orgDefInfoIs(BoundedString507(Kel::String(Detail::text(t.orgInfo(), t.orgLength()))));
          out.push_back(std::move(v));
          return unrecognized;
        });
        return sync(sh_.orgTlvs, r_.unknownOrgDefTlv(), keyOf,
                    static_cast<UnknownOrgDefTlv const* (RemoteSystem::*)(UnknownOrgDefTlv::Key const&) const>(
                        &RemoteSystem::unknownOrgDefTlv),
                    &RemoteSystem::unknownOrgDefTlvIs, &RemoteSystem::unknownOrgDefTlvDel);
      }
      case kPortAndProtocolVlan: {
        auto keyOf = [](PortAndProtocolVlan const& v) -> Platform::VlanIdOrNone const& { return v.portAndProtocolVlanId(); };
        stage(k, sh_.ppvids, keyOf, [](Tlv const& t, std::vector<PortAndProtocolVlan>& out) {
          PortAndProtocolVlan v;
          if (!decodePortAndProtocolVlan(t, v)) return discarded;
          out.push_back(v);
          return accepted;
        });
        return sync(sh_.ppvids, r_.portAndProtocolVlan(), keyOf,
                    static_cast<PortAndProtocolVlan const* (RemoteSystem::*)(Platform::VlanIdOrNone const&) const>(
                        &RemoteSystem::portAndProtocolVlan),
                    &RemoteSystem::portAndProtocolVlanIs, &RemoteSystem::portAndProtocolVlanDel);
      }
      case kVlanName: {
        auto keyOf = [](VlanName const& v) -> Platform::VlanId const& { return v.vlanId(); };
        stage(k, sh_.vlanNames, keyOf, [](Tlv const& t, std::vector<VlanName>& out) {
          std::uint16_t id;
          std::string_view name;
          if (!decodeVlanName(t, id, name)) return discarded;
          VlanName v{Platform::VlanId(id)};
          v.vlanNameIs(BoundedString32(Kel::String(name)));
          out.push_back(std::move(v));
          return accepted;
        });
        return sync(sh_.vlanNames, r_.vlanName(), keyOf,
                    static_cast<VlanName const* (RemoteSystem::*)(Platform::VlanId const&) const>(&RemoteSystem::vlanName),
                    &RemoteSystem::vlanNameIs, &RemoteSystem::vlanNameDel);
      }
      case kProtocolIdentity: {
        auto keyOf = [](ProtocolIdentityInfo const& v) { return v.index(); };
        stage(k, sh_.protocols, keyOf, [](Tlv const& t, std::vector<ProtocolIdentityInfo>& out) {
          std::string_view protocol;
          if (!decodeProtocolIdentity(t, protocol)) return discarded;
          // Numbered in order of arrival.
          ProtocolIdentityInfo v(static_cast<std::int32_t>(out.size() + 1));
          v.protocolIdIs(BoundedString255(Kel::String(protocol)));
          out.push_back(std::move(v));
          return accepted;
        });
        return sync(sh_.protocols, r_.protocolIdentityInfo(), keyOf,
                    static_cast<ProtocolIdentityInfo const* (RemoteSystem::*)(std::int32_t) const>(
                        &RemoteSystem::protocolIdentityInfo),
                    &RemoteSystem::protocolIdentityInfoIs, &RemoteSystem::protocolIdentityInfoDel);
      }
      case kNetworkPolicy: {
        auto keyOf = [](NetworkPolicyTlv const& v) { return v.appValue(); };
        stage(k, sh_.policies, keyOf, [](Tlv const& t, std::vector<NetworkPolicyTlv>& out) {
          NetworkPolicyTlv v;
          if (!decodeNetworkPolicy(t, v)) return discarded;
          out.push_back(v);
          return accepted;
        });
        return sync(sh_.policies, r_.networkPolicyTlv(), keyOf,
                    static_cast<NetworkPolicyTlv const* (RemoteSystem::*)(std::uint8_t) const>(&RemoteSystem::networkPolicyTlv),
                    &RemoteSystem::networkPolicyTlvIs, &RemoteSystem::networkPolicyTlvDel);
      }
      case kLocation: return location();
      default: return;
    }
  }

  // One record per data format; the first TLV of a format counts, and a format the
  // LLDPDU no longer carries keeps its record with the received flag down.
  void location() {
    Lldp::LocationId v = r_.locationId();
    unsigned seen = 0;
    for (std::size_t i = 0; i < sh_.tlvs.size(); ++i) {
      Tlv const& t = sh_.tlvs[i];
      if (t.kind != kLocation) continue;
      unsigned const format = t.orgLength() >= 1 ? t.orgInfo()[0] : 0;
      bool const first = format >= 1 && format <= 3 && !(seen & (1u << format));
      if (format >= 1 && format <= 3) seen |= 1u << format;
      sh_.outcomes[i] = first && decodeLocation(t, v) ? accepted : discarded;
      if (first && sh_.outcomes[i] == discarded) seen &= ~(1u << format);
    }
    if (!(seen & (1u << Lldp::CoordinateBased))) {
      auto c = v.coordinateBasedLCI();
      c.receivedIs(false);
      v.coordinateBasedLCIIs(c);
    }
    if (!(seen & (1u << Lldp::CivicAddress))) {
      auto c = v.civicAddressLCI();
      c.receivedIs(false);
      v.civicAddressLCIIs(std::move(c));
    }
    if (!(seen & (1u << Lldp::EcsElin))) {
      auto e = v.ecsElin();
      e.receivedIs(false);
      v.ecsElinIs(std::move(e));
    }
    set(r_.locationId(), std::move(v), &RemoteSystem::locationIdIs);
  }

  Shared& sh_;
  RemoteSystem::Ptr const& rsPtr_;
  RemoteSystem& r_;
};

}  // namespace

struct Port::State {
  Shared* sh;
  Platform::IntfId intf;
  Lldp::PortStatus::Ptr status;
  Lldp::PortConfig::Ptr config;
  std::unordered_map<std::string, Neighbour, KeyHash, std::equal_to<>> neighbours;
  double nextExpiry = never;  // no neighbour expires before this
  double windowStart = -never;
  std::uint64_t windowFrames = 0;

  enum class Why { ageout, shutdown, cleared };

  // The neighbour's key: its Chassis ID and Port ID TLVs as they came, unless a subtype
  // is one the model folds into its "unknown" marker, in which case with that marker.
  // Empty when the LLDPDU does not start with two valid such TLVs.
  std::string_view msapKey(std::string_view pdu) {
    auto const* p = reinterpret_cast<unsigned char const*>(pdu.data());
    if (pdu.size() < 4 || p[0] >> 1 != 1) return {};
    std::size_t const chassisLen = be16(p) & 0x1ff;
    if (chassisLen < 2 || chassisLen > 256 || pdu.size() < chassisLen + 4) return {};
    unsigned char const* port = p + 2 + chassisLen;
    std::size_t const portLen = be16(port) & 0x1ff;
    if (port[0] >> 1 != 2 || portLen < 2 || portLen > 256 || pdu.size() < chassisLen + portLen + 4) return {};
    std::string_view key = pdu.substr(0, chassisLen + portLen + 4);
    if (p[2] <= Lldp::cidUnknown && port[2] <= Lldp::pidUnknown) return key;
    sh->keyBuffer.assign(key);
    sh->keyBuffer[2] = static_cast<char>(std::min<unsigned>(p[2], Lldp::cidUnknown));
    sh->keyBuffer[chassisLen + 4] = static_cast<char>(std::min<unsigned>(port[2], Lldp::pidUnknown));
    return sh->keyBuffer;
  }

  static RemoteSystem::Msap msapOf(std::string_view key) {
    std::size_t const chassisLen = be16(reinterpret_cast<unsigned char const*>(key.data())) & 0x1ff;
    Lldp::ChassisIdentifier c;
    c.chassisIdSubtypeIs(static_cast<Lldp::ChassisIdSubtype>(static_cast<unsigned char>(key[2])));
    c.chassisIdIs(Lldp::ChassisId(Kel::String(key.substr(3, chassisLen - 1))));
    Lldp::PortIdentifier p;
    p.portIdSubtypeIs(static_cast<Lldp::PortIdSubtype>(static_cast<unsigned char>(key[chassisLen + 4])));
    p.portIdIs(Lldp::PortId(Kel::String(key.substr(chassisLen + 5))));
    RemoteSystem::Msap m;
    m.chassisIdentifierIs(std::move(c));
    m.portIdentifierIs(std::move(p));
    return m;
  }

  void remove(decltype(neighbours)::iterator it, Why why, double now) {
    RemoteSystem::Ptr const rs = it->second.rs;
    status->remoteSystemDel(rs->index());
    status->remoteSystemByMsapDel(rs->msap());
    Lldp::Status& root = *sh->root;
    root.remTablesDeletesInc(1);
    root.remTablesLastChangeTimeIs(now);
    DUOLOG(rxTrace(), 6, "%s: neighbour %d removed (%s)", intf.stringValue(), rs->index(),
           why == Why::ageout ? "aged out" : why == Why::shutdown ? "TTL 0" : "cleared");
    if (why == Why::ageout) {
      status->rxAgeoutsTotalInc(1);
      root.remTablesAgeoutsInc(1);
      Lldp::LLDP_NEIGHBOR_TIMEOUT.log(idText(*rs, true), idText(*rs, false), intf.stringValue());
    } else if (why == Why::shutdown) {
      Lldp::LLDP_NEIGHBOR_GONE.log(idText(*rs, true), idText(*rs, false), intf.stringValue());
    }
    neighbours.erase(it);
  }

  std::size_t ageOut(double now) {
    if (now < nextExpiry) return 0;
    std::size_t n = 0;
    nextExpiry = never;
    for (auto it = neighbours.begin(); it != neighbours.end();) {
      double const expiry = it->second.rs->expiryTime();
      if (expiry <= now) {
        remove(it++, Why::ageout, now);
        ++n;
      } else {
        nextExpiry = std::min(nextExpiry, expiry);
        ++it;
      }
    }
    return n;
  }

  void clear(double now) {
    while (!neighbours.empty()) remove(neighbours.begin(), Why::cleared, now);
    nextExpiry = never;
  }

  void refreshed(Neighbour& n, double now) {
    RemoteSystem& r = *n.rs;
    status->rxFramesTotalInc(1);
    if (n.unrecognized) status->rxTLVsUnrecognizedTotalInc(n.unrecognized);
    if (n.discarded) status->rxTLVsDiscardedTotalInc(n.discarded);
    r.lastRefreshTimeIs(now);
    r.expiryTimeIs(now + r.ttl());
    nextExpiry = std::min(nextExpiry, r.expiryTime());
    sh->root->lastPacketParsedTimeIs(now);
  }

  FrameResult discard(FrameResult why) {
    status->rxFramesDiscardedTotalInc(1);
    return why;
  }

  FrameResult frameIs(std::string_view frame, double now);
  FrameResult lldpdu(unsigned char const* source, std::string_view pdu, double now);
};

FrameResult Port::State::frameIs(std::string_view frame, double now) {
  if (now >= nextExpiry) ageOut(now);
  auto const* p = reinterpret_cast<unsigned char const*>(frame.data());
  if (frame.size() < 14) return FrameResult::notLldp;
  // Skip VLAN tags (802.1Q, 802.1ad).
  std::size_t typeAt = 12;
  while ((be16(p + typeAt) == 0x8100 || be16(p + typeAt) == 0x88a8) && frame.size() >= typeAt + 6) typeAt += 4;
  if (be16(p + typeAt) != lldpEtherType) return FrameResult::notLldp;
  if (typeAt != 12 && sh->config->rxTaggedPacketsDrop()) return discard(FrameResult::tagged);

  Lldp::PortConfig const& pc = *config;
  // A port that only transmits, or not at all, has its receive side off.
  if (pc.adminStatus() == Lldp::txOnly || pc.adminStatus() == Lldp::disabled) return FrameResult::portDisabled;
  if (pc.rxRateLimitingEnabled()) {
    if (!(now - windowStart < pc.rxRateLimitPeriod()) || now < windowStart) {
      windowStart = now;
      windowFrames = 0;
    }
    if (++windowFrames > pc.rxRateLimitMax()) {
      // One message per period that overflowed; the message's own repeat interval
      // thins them further.
      if (windowFrames == pc.rxRateLimitMax() + 1)
        Lldp::LLDP_RX_RATELIMIT.log(intf.stringValue(), pc.rxRateLimitMax(), pc.rxRateLimitPeriod());
      DUOLOG(rxTrace(), 4, "%s: frame dropped by the receive rate limit", intf.stringValue());
      return discard(FrameResult::rateLimited);
    }
  }
  if (frame.size() > sh->config->maxRxFrameSize()) {
    DUOLOG(rxTrace(), 0, "%s: LLDPDU discarded: frame of %zu bytes is over the limit", intf.stringValue(), frame.size());
    status->rxFramesErrorsInc(1);
    return discard(FrameResult::malformed);
  }
  FrameResult const r = lldpdu(p + 6, frame.substr(typeAt + 2), now);
  DUOLOG(rxTrace(), 8, "%s: frame of %zu bytes: %s", intf.stringValue(), frame.size(), toString(r));
  return r;
}

FrameResult Port::State::lldpdu(unsigned char const* source, std::string_view pdu, double now) {
  // The steady state: a neighbour repeats its last LLDPDU.
  std::string_view key = msapKey(pdu);
  auto it = key.empty() ? neighbours.end() : neighbours.find(key);
  if (it != neighbours.end()) {
    std::string const& last = it->second.frame;
    if (last.size() == pdu.size() + 6 && std::memcmp(last.data(), source, 6) == 0 &&
        std::memcmp(last.data() + 6, pdu.data(), pdu.size()) == 0) {
      refreshed(it->second, now);
      return FrameResult::refreshed;
    }
  }

  if (const char* why = splitLldpdu(pdu, sh->tlvs)) {
    DUOLOG(rxTrace(), 0, "%s: LLDPDU discarded: %s", intf.stringValue(), why);
    status->rxFramesErrorsInc(1);
    return discard(FrameResult::malformed);
  }
  Lldp::Status& root = *sh->root;
  std::uint16_t const ttl = be16(sh->tlvs[2].value());
  status->rxFramesTotalInc(1);
  if (ttl == 0) {
    if (it == neighbours.end()) return FrameResult::shutdownIgnored;
    remove(it, Why::shutdown, now);
    return FrameResult::removed;
  }

  bool const fresh = it == neighbours.end();
  if (fresh) {
    if (status->remoteSystem().size() >= config->maxRemoteSystems()) {
      DUOLOG(rxTrace(), 4, "%s: new neighbour dropped: the table holds %u", intf.stringValue(), config->maxRemoteSystems());
      root.remTablesDropsInc(1);
      return discard(FrameResult::tableFull);
    }
    // The next free index from nextRemoteSystemIndex, wrapping within 1..INT32_MAX.
    std::uint32_t next = status->nextRemoteSystemIndex();
    std::int32_t index;
    do {
      if (next < 1 || next > INT32_MAX) next = 1;
      index = static_cast<std::int32_t>(next++);
    } while (status->remoteSystem(index));
    status->nextRemoteSystemIndexIs(next);
    RemoteSystem::Ptr rs = status->remoteSystemIs(index, msapOf(key));
    status->remoteSystemByMsapIs(rs);
    rs->creationTimeIs(now);
    root.remTablesInsertsInc(1);
    Neighbour entry;
    entry.rs = std::move(rs);
    it = neighbours.emplace(std::string(key), std::move(entry)).first;
  }

  Neighbour& n = it->second;
  RemoteSystem& r = *n.rs;
  sh->outcomes.assign(sh->tlvs.size(), accepted);
  Update u(*sh, n.rs);
  bool sameShape = false;
  if (!fresh && *sh->incremental) {
    splitLldpdu(std::string_view(n.frame).substr(6), sh->oldTlvs);
    sameShape = sh->oldTlvs.size() == sh->tlvs.size() && n.outcomes.size() == sh->tlvs.size() &&
                std::equal(sh->tlvs.begin(), sh->tlvs.end(), sh->oldTlvs.begin(),
                           [](Tlv const& a, Tlv const& b) { return a.shape() == b.shape(); });
  }
  if (sameShape)
    u.incremental(sh->oldTlvs, n.outcomes);
  else
    u.full(fresh);

  if (r.ttl() != ttl) {
    r.ttlIs(ttl);
    u.changed = true;
  }
  std::array<std::uint8_t, 6> mac;
  std::memcpy(mac.data(), source, 6);
  if (!(r.ethAddr() == Platform::EthAddr(mac))) {
    r.ethAddrIs(Platform::EthAddr(mac));
    u.changed = true;
  }
  if (u.changed || fresh) {
    r.lastChangeTimeIs(now);
    root.remTablesLastChangeTimeIs(now);
  }
  r.lastRefreshTimeIs(now);
  r.expiryTimeIs(now + ttl);
  nextExpiry = std::min(nextExpiry, now + ttl);

  n.unrecognized = static_cast<std::uint32_t>(std::count(sh->outcomes.begin(), sh->outcomes.end(), unrecognized));
  n.discarded = static_cast<std::uint32_t>(std::count(sh->outcomes.begin(), sh->outcomes.end(), discarded));
  if (n.unrecognized) status->rxTLVsUnrecognizedTotalInc(n.unrecognized);
  if (n.discarded) status->rxTLVsDiscardedTotalInc(n.discarded);
  root.lastPacketParsedTimeIs(now);
  // Kept for the next frame; the old TLVs point into the old copy, and are done with.
  n.outcomes.assign(sh->outcomes.begin(), sh->outcomes.end());
  n.frame.resize(pdu.size() + 6);
  std::memcpy(n.frame.data(), source, 6);
  std::memcpy(n.frame.data() + 6, pdu.data(), pdu.size());

  if (fresh) {
    DUOLOG(rxTrace(), 6, "%s: neighbour %d added", intf.stringValue(), r.index());
    Lldp::LLDP_NEIGHBOR_NEW.log(idText(r, true), idText(r, false), intf.stringValue());
    return FrameResult::added;
  }
  return FrameResult::updated;
}

// ---- Port

Port::Port(std::unique_ptr<State> state) : state_(std::move(state)) {}
Port::~Port() = default;
FrameResult Port::frameIs(std::string_view frame, double now) { return state_->frameIs(frame, now); }
std::size_t Port::ageOut(double now) { return state_->ageOut(now); }
Lldp::PortStatus::Ptr const& Port::status() const noexcept { return state_->status; }
Lldp::PortConfig::Ptr const& Port::config() const noexcept { return state_->config; }

// ---- Receiver

struct Receiver::Ports {
  Shared shared;
  std::unordered_map<Platform::IntfId, std::unique_ptr<Port>> byIntf;
};

Receiver::Receiver(Lldp::Status::Ptr status, Lldp::Config::Ptr config)
    : status_(std::move(status)), config_(std::move(config)), ports_(std::make_unique<Ports>()) {
  ports_->shared.root = status_;
  ports_->shared.config = config_;
  ports_->shared.incremental = &incremental_;
}

Receiver::~Receiver() = default;

Port& Receiver::portIs(Platform::IntfId const& intf, double now) {
  auto it = ports_->byIntf.find(intf);
  if (it != ports_->byIntf.end()) return *it->second;
  auto state = std::make_unique<Port::State>();
  state->sh = &ports_->shared;
  state->intf = intf;
  state->status = status_->portStatusIs(intf, now);
  state->config = config_->portConfigIs(intf);
  return *ports_->byIntf.emplace(intf, std::unique_ptr<Port>(new Port(std::move(state)))).first->second;
}

Port* Receiver::port(Platform::IntfId const& intf) const {
  auto it = ports_->byIntf.find(intf);
  return it == ports_->byIntf.end() ? nullptr : it->second.get();
}

std::size_t Receiver::ageOut(double now) {
  std::size_t n = 0;
  for (auto& [intf, port] : ports_->byIntf) n += port->ageOut(now);
  return n;
}

void Receiver::clear(Kel::String const& who, Kel::String const& where, double now) {
  for (auto& [intf, port] : ports_->byIntf) port->state_->clear(now);
  Lldp::LLDP_REMOTE_TABLES_CLEARED.log(who, where);
}

// ---- treeText

namespace {

template <class E>
void attrsText(std::string& out, E const& e, std::string const& path) {
  std::vector<Kel::KelType const*> chain;
  for (Kel::KelType const* t = &E::_kelType; t; t = t->base()) chain.insert(chain.begin(), t);
  for (Kel::KelType const* t : chain)
    for (Kel::KelAttr const& a : t->attrs())
      out += path + "." + a.name + " = " + e.kelAttributeText(a.id).stdString() + "\n";
}

}  // namespace

std::string treeText(Lldp::Status const& status) {
  std::string out;
  attrsText(out, status, status.name().stdString());
  auto intfs = status.portStatus().keys();
  std::sort(intfs.begin(), intfs.end());
  for (auto const& intf : intfs) {
    Lldp::PortStatus const& p = *status.portStatus(intf);
    std::string const path = status.name().stdString() + "/" + intf.stringValue().stdString();
    attrsText(out, p, path);
    auto indexes = p.remoteSystem().keys();
    std::sort(indexes.begin(), indexes.end());
    for (std::int32_t i : indexes) attrsText(out, *p.remoteSystem(i), path + "/" + std::to_string(i));
  }
  return out;
}

}  // namespace LldpRx
