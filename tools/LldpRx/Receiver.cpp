#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
// 32-byte compares where the compiler can target them per function.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define LLDPRX_AVX2 1
#include <immintrin.h>
#else
#define LLDPRX_AVX2 0
#endif

#include "Kel/EventLog.h"
#include "Lldp/Lldp/EventLogMessages.h"
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

std::uint64_t word(unsigned char const* p) noexcept {
  std::uint64_t w;
  std::memcpy(&w, p, 8);
  return w;
}

// Whether two keys of n bytes are equal, a word at a time (keys are short: a call to
// memcmp would cost as much as the compare).
bool sameKeys(unsigned char const* a, unsigned char const* b, std::size_t n) noexcept {
  if (n < 8) return std::memcmp(a, b, n) == 0;
  std::uint64_t diff = word(a + n - 8) ^ word(b + n - 8);
  for (std::size_t i = 0; i + 8 < n && !diff; i += 8) diff = word(a + i) ^ word(b + i);
  return diff == 0;
}

// A neighbour key (two ID TLVs, 8 to 516 bytes) and its hash, taken once per frame: the
// look-up and the insertion of a new neighbour share it.
struct Key {
  std::string_view bytes;
  std::size_t hash;

  explicit Key(std::string_view s) noexcept : bytes(s), hash(Kel::hashBytes(s.data(), s.size())) {}
};

// What the receiver keeps of a neighbour besides its RemoteSystem: the last LLDPDU it
// accepted and its TLVs, so that a repeat costs one compare and a change only the TLVs
// that changed. One buffer holds the TLVs, the table key and the frame; the key in the
// table views it.
// Frames are at most maxRxFrameSize bytes: their offsets and sizes fit 16 bits, which
// keeps a table slot at 40 bytes and a kept TLV at 8.
static_assert(Lldp::Config::maxRxFrameSize() + 6 <= UINT16_MAX);
struct Neighbour {
  RemoteSystem::Ptr rs;  // null: a free slot of the table
  std::unique_ptr<unsigned char[]> buf;  // slots, key, source MAC and LLDPDU
  std::uint32_t hash = 0;  // the key's, its low half: all a table's mask takes
  std::uint16_t slotCap = 0, frameCap = 0;
  std::uint16_t slotCount = 0, frameLen = 0;
  std::uint16_t keyLen = 0;
  std::uint32_t unrecognized = 0;  // the LLDPDU's counts, added again for every repeat
  std::uint32_t discarded = 0;

  Slot* slots() const noexcept { return reinterpret_cast<Slot*>(buf.get()); }
  unsigned char* keyData() const noexcept { return buf.get() + slotCap * sizeof(Slot); }
  std::string_view key() const noexcept { return {reinterpret_cast<const char*>(keyData()), keyLen}; }
  unsigned char* frame() const noexcept { return keyData() + keyLen; }  // source MAC, then the LLDPDU
  unsigned char const* pdu() const noexcept { return frame() + 6; }
  Tlv tlv(std::size_t i, unsigned char const* pdu) const noexcept {
    Slot const& s = slots()[i];
    return Tlv{s, pdu + s.offset};
  }
};

// A port's neighbours by key, open addressing with linear probing: a look-up reads the
// slot array, where the hashes sit side by side, and then only the matching neighbour's
// buffer (its key, then its frame), where a table of nodes would chase a pointer per
// node first. A neighbour's place changes when the table grows or another leaves.
class Table {
 public:
  Neighbour* find(Key const& k) noexcept {
    if (slots_.empty()) return nullptr;
    for (std::size_t i = k.hash & mask();; i = (i + 1) & mask()) {
      Neighbour& n = slots_[i];
      if (!n.rs) return nullptr;
      if (n.hash == static_cast<std::uint32_t>(k.hash) && n.keyLen == k.bytes.size() &&
          sameKeys(n.keyData(), reinterpret_cast<unsigned char const*>(k.bytes.data()), n.keyLen))
        return &n;
    }
  }
  // Enters a neighbour whose key the table does not hold.
  Neighbour& insert(Neighbour n) {
    if ((count_ + 1) * 4 > slots_.size() * 3) grow();
    ++count_;
    return place(std::move(n));
  }
  // Removes the neighbour; a later one of its probe run may move into its slot.
  void erase(Neighbour& n) noexcept {
    std::size_t hole = static_cast<std::size_t>(&n - slots_.data());
    slots_[hole] = Neighbour();
    --count_;
    for (std::size_t j = (hole + 1) & mask(); slots_[j].rs; j = (j + 1) & mask()) {
      // It may fill the hole unless its home lies cyclically after the hole.
      if (((j - (slots_[j].hash & mask())) & mask()) >= ((j - hole) & mask())) {
        slots_[hole] = std::move(slots_[j]);
        hole = j;
      }
    }
  }
  // Visits every neighbour; visit(n) may remove n, and returns whether it did. A neighbour
  // may be visited twice (one that moved back past the start), never missed.
  template <class F>
  void forEach(F visit) {
    for (std::size_t i = 0; i < slots_.size(); ++i)
      while (slots_[i].rs && visit(slots_[i])) {
      }
  }
  bool empty() const noexcept { return count_ == 0; }

 private:
  std::size_t mask() const noexcept { return slots_.size() - 1; }
  Neighbour& place(Neighbour&& n) noexcept {
    std::size_t i = n.hash & mask();
    while (slots_[i].rs) i = (i + 1) & mask();
    slots_[i] = std::move(n);
    return slots_[i];
  }
  void grow() {
    std::vector<Neighbour> old(std::max<std::size_t>(16, slots_.size() * 2));
    old.swap(slots_);
    for (Neighbour& n : old)
      if (n.rs) place(std::move(n));
  }
  std::vector<Neighbour> slots_;  // a power of two of them, at most three quarters used
  std::size_t count_ = 0;
};

void chassisText(void const* rs, std::string& out) {
  out += static_cast<RemoteSystem const*>(rs)->msap().chassisIdentifier().stringValue(Lldp::colon, true).view();
}
void portText(void const* rs, std::string& out) {
  out += static_cast<RemoteSystem const*>(rs)->msap().portIdentifier().stringValue(Lldp::colon, true).view();
}
void intfText(void const* intf, std::string& out) { out += static_cast<Platform::IntfId const*>(intf)->stringValue().view(); }

// A neighbour message's arguments, made into text only if the message is read.
// Where two byte strings of n bytes first differ, or n. (Words are little-endian here: the
// lowest set bit of their difference is the first byte that differs.)
constexpr bool littleEndian = std::endian::native == std::endian::little;

std::size_t firstDiffPortable(unsigned char const* a, unsigned char const* b, std::size_t n) noexcept {
  std::size_t i = 0;
#if defined(__SSE2__)
  // 64 bytes a step while they agree (a change sits anywhere in a frame of hundreds).
  auto const same = [&](std::size_t at) {
    return _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const*>(a + at)),
                          _mm_loadu_si128(reinterpret_cast<__m128i const*>(b + at)));
  };
  for (; i + 64 <= n; i += 64)
    if (_mm_movemask_epi8(_mm_and_si128(_mm_and_si128(same(i), same(i + 16)), _mm_and_si128(same(i + 32), same(i + 48)))) !=
        0xffff)
      break;
  for (; i + 16 <= n; i += 16) {
    __m128i const eq = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const*>(a + i)),
                                      _mm_loadu_si128(reinterpret_cast<__m128i const*>(b + i)));
    if (unsigned const ne = ~static_cast<unsigned>(_mm_movemask_epi8(eq)) & 0xffffu)
      return i + static_cast<std::size_t>(std::countr_zero(ne));
  }
#endif
  for (; littleEndian && i + 8 <= n; i += 8)
    if (std::uint64_t const x = word(a + i) ^ word(b + i)) return i + static_cast<std::size_t>(std::countr_zero(x)) / 8;
  while (i < n && a[i] == b[i]) ++i;
  return i;
}

#if LLDPRX_AVX2
// The same with 32-byte compares, on processors that have them: a repeated LLDPDU is
// compared whole, and this is most of what a repeat costs.
[[gnu::target("avx2")]] std::size_t firstDiffAvx2(unsigned char const* a, unsigned char const* b, std::size_t n) noexcept {
  if (n < 32) return firstDiffPortable(a, b, n);
  // The mask of bytes that differ in the 32 at `at`.
#define LLDPRX_NE32(at)                                                                                    \
  ~static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(                                          \
      _mm256_loadu_si256(reinterpret_cast<__m256i const*>(a + (at))), _mm256_loadu_si256(reinterpret_cast<__m256i const*>(b + (at))))))
  std::size_t i = 0;
  for (; i + 64 <= n; i += 64)
    if ((LLDPRX_NE32(i) | LLDPRX_NE32(i + 32)) != 0) break;
  for (; i + 32 <= n; i += 32)
    if (unsigned const ne = LLDPRX_NE32(i)) return i + static_cast<std::size_t>(std::countr_zero(ne));
  // The last bytes in one window ending at n, overlapping what agreed.
  if (unsigned const ne = LLDPRX_NE32(n - 32)) return n - 32 + static_cast<std::size_t>(std::countr_zero(ne));
#undef LLDPRX_NE32
  return n;
}
#endif

std::size_t firstDiff(unsigned char const* a, unsigned char const* b, std::size_t n) noexcept {
#if LLDPRX_AVX2
  if (__builtin_cpu_supports("avx2")) return firstDiffAvx2(a, b, n);
#endif
  return firstDiffPortable(a, b, n);
}
// Whether two MAC addresses are equal: two loads each, where memcmp is a call.
bool sameMacs(unsigned char const* a, unsigned char const* b) noexcept {
  std::uint32_t a4, b4;
  std::uint16_t a2, b2;
  std::memcpy(&a4, a, 4);
  std::memcpy(&b4, b, 4);
  std::memcpy(&a2, a + 4, 2);
  std::memcpy(&b2, b + 4, 2);
  return ((a4 ^ b4) | static_cast<std::uint32_t>(a2 ^ b2)) == 0;
}

void logNeighbour(Lldp::NeighborMessage const& m, RemoteSystem const& rs, Platform::IntfId const& intf) {
  m.log(Kel::EventLog::Deferred{chassisText, &rs}, Kel::EventLog::Deferred{portText, &rs},
        Kel::EventLog::Deferred{intfText, &intf});
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
  // How many TLVs of each OUI and subtype (OUI << 8 | subtype) the LLDPDU carried so far.
  std::vector<std::pair<std::uint32_t, std::int32_t>> orgCounts;
  TlvList tlvs, oldTlvs;
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

// Writes decoded values into one neighbour: one setter call for each attribute whose
// value moved, and `changed` tells whether any did.
struct Update {
  Update(Shared& sh, RemoteSystem& r) : sh(sh), r(r) {}
  Shared& sh;
  RemoteSystem& r;
  bool changed = false;

  template <auto Get, auto Set, class V>
  void set(V&& v) {
    if ((r.*Get)() == v) return;
    (r.*Set)(std::forward<V>(v));
    changed = true;
  }
};

// ---- The TLV kinds, one row each

// A single kind: decode(u, tlv) decodes the TLV and sets what it carries, clear(u) is what
// the neighbour keeps when an LLDPDU lacks the kind (or carries it broken). A collection
// kind: collect(u) makes its collection hold exactly what the LLDPDU's TLVs of the kind
// carry, writing each TLV's outcome.
// Which TLVs feed a kind: a type, and for an organizationally specific one (127) its OUI and
// subtype. Type 0: none named (the unknown kinds take what no other row names).
struct TlvId {
  std::uint8_t type = 0;
  std::uint32_t oui = 0;
  std::uint8_t subtype = 0;
};

struct Row {
  Outcome (*decode)(Update&, Tlv const&);
  void (*clear)(Update&);
  void (*collect)(Update&);
  // A collection kind whose values go into an empty collection one TLV at a time (a new
  // neighbour's), `entered` counting those in so far.
  Outcome (*enter)(Update&, Tlv const&, std::size_t& entered) = nullptr;
  TlvId id{}, alt{};  // alt: a second form of the TLV
};

// A row with the TLVs it takes.
constexpr Row takes(TlvId id, Row r, TlvId alt = {}) {
  r.id = id;
  r.alt = alt;
  return r;
}
constexpr TlvId dot1(std::uint8_t subtype) { return {127, ouiDot1, subtype}; }
constexpr TlvId dot3(std::uint8_t subtype) { return {127, ouiDot3, subtype}; }
constexpr TlvId med(std::uint8_t subtype) { return {127, ouiMed, subtype}; }

// A string with a presence flag of its own (its Tlv record): absent, it goes back to unset.
template <class TlvV, class Bounded, bool (*Decode)(Tlv const&, std::string_view&), auto Get, auto Set>
struct TextRow {
  static Outcome decode(Update& u, Tlv const& t) {
    std::string_view v;
    if (!Decode(t, v)) return discarded;
    TlvV const& current = (u.r.*Get)();
    if (current.isSet() && current.value().value().view() == v) return accepted;
    // Made straight into the setter's parameter.
    (u.r.*Set)(made(v));
    u.changed = true;
    return accepted;
  }
  // Decode checked the bound: the string is moved in, not copied as create() would.
  static TlvV made(std::string_view v) {
    TlvV n;
    fieldOf<bool>(n) = true;  // isSet
    fieldOf<Kel::String>(fieldOf<Bounded>(n)) = Kel::String(v);  // sized exactly, as assign() would not be
    return n;
  }
  static void clear(Update& u) { u.set<Get, Set>(TlvV()); }
  static constexpr Row row{decode, clear, nullptr};
};

// A record with a received flag beside it: absent, the flag goes down and the record keeps
// its last value.
template <class V, bool (*Decode)(Tlv const&, V&), auto Get, auto Set, auto Flag, auto FlagSet>
struct FlaggedRow {
  static Outcome decode(Update& u, Tlv const& t) {
    V v{};
    if (!Decode(t, v)) return discarded;
    u.set<Get, Set>(std::move(v));
    u.set<Flag, FlagSet>(true);
    return accepted;
  }
  static void clear(Update& u) { u.set<Flag, FlagSet>(false); }
  static constexpr Row row{decode, clear, nullptr};
};

// The same for an 802.3 TLV, decoded by the 802.3 parser's decoder.
template <std::size_t Needed, class V, auto Get, auto Set, auto Flag, auto FlagSet>
using Dot3Row = FlaggedRow<V, decodeDot3<Needed, V>, Get, Set, Flag, FlagSet>;

// A value whose default means "not received": absent, it goes back to the default.
template <class V, bool (*Decode)(Tlv const&, V&), auto Get, auto Set>
struct ValueRow {
  static Outcome decode(Update& u, Tlv const& t) {
    V v{};
    if (!Decode(t, v)) return discarded;
    u.set<Get, Set>(std::move(v));
    return accepted;
  }
  static void clear(Update& u) { u.set<Get, Set>(V()); }
  static constexpr Row row{decode, clear, nullptr};
};

// Link aggregation comes in the 802.1 and the (older) 802.3 form.
struct LinkAggregationRow {
  using Dot1 = FlaggedRow<Lldp::LinkAggregationInfo, decodeLinkAggregationDot1, &R::linkAggregationInfo,
                          &R::linkAggregationInfoIs, &R::linkAggregationTlvReceived, &R::linkAggregationTlvReceivedIs>;
  using Dot3 = Dot3Row<5, Lldp::LinkAggregationInfo, &R::linkAggregationInfo, &R::linkAggregationInfoIs,
                       &R::linkAggregationTlvReceived, &R::linkAggregationTlvReceivedIs>;
  static Outcome decode(Update& u, Tlv const& t) { return t.oui() == ouiDot3 ? Dot3::decode(u, t) : Dot1::decode(u, t); }
  static constexpr Row row{decode, Dot1::clear, nullptr};
};

Outcome traced(Tlv const& t, Outcome o) {
  if (o == discarded)
    DUOLOG(rxTrace(), 4, "TLV type %u (length %u) discarded: broken, out of range or a repeat", unsigned{t.type},
           unsigned{t.length});
  return o;
}

// Stages every TLV of kind k through decode(tlv, staged) (which returns its outcome); a
// key met a second time is dropped.
template <class V, class KeyOf, class Decode>
void stage(Update& u, Kind k, std::vector<V>& staged, KeyOf keyOf, Decode decode) {
  staged.clear();
  for (std::size_t i = 0, count = u.sh.tlvs.size(); i < count; ++i) {
    Tlv const& t = u.sh.tlvs[i];
    if (t.kind != k) continue;
    std::size_t const before = staged.size();
    Outcome o = decode(t, staged);
    if (staged.size() > before &&
        std::any_of(staged.begin(), staged.begin() + static_cast<std::ptrdiff_t>(before),
                    [&](V const& v) { return keyOf(v) == keyOf(staged.back()); })) {
      staged.pop_back();
      o = discarded;
    }
    u.sh.tlvs[i].outcome = traced(t, o);
  }
}

// Makes a collection hold exactly the staged values: deletes the keys the LLDPDU no
// longer carries, then enters what is new or different.
template <class V, class Coll, class KeyOf, class Find, class Is, class Del>
void sync(Update& u, std::vector<V>& staged, Coll const& coll, KeyOf keyOf, Find find, Is is, Del del) {
  using Key = std::remove_cvref_t<decltype(keyOf(staged.front()))>;
  std::vector<Key> gone;
  for (auto const& e : coll)
    if (std::none_of(staged.begin(), staged.end(), [&](V const& v) { return keyOf(v) == keyOf(e); }))
      gone.push_back(keyOf(e));
  for (Key const& k : gone) (u.r.*del)(k);
  if (!gone.empty()) u.changed = true;
  // The staged values are scratch: they move in.
  for (V& v : staged) {
    if (auto const* current = (u.r.*find)(keyOf(v)); current && *current == v) continue;
    (u.r.*is)(std::move(v));
    u.changed = true;
  }
}

// A collection kind: Decode(tlv, value) fills a default-made value with the TLV's (true)
// or refuses it (false, the TLV is discarded); accepted values count as Counted.
template <class V, Kind K, Outcome Counted, auto Staged, auto Decode, class KeyOf, auto Coll, auto Find, auto Is, auto Del>
struct CollectionRow {
  static void collect(Update& u) {
    if ((u.r.*Coll)().empty()) return fill(u);
    std::vector<V>& staged = u.sh.*Staged;
    stage(u, K, staged, KeyOf{}, [&u](Tlv const& t, std::vector<V>& out) {
      V v;
      if (!Decode(u, t, out.size(), v)) return discarded;
      out.push_back(std::move(v));
      return Counted;
    });
    sync(u, staged, (u.r.*Coll)(), KeyOf{}, Find, Is, Del);
  }
  // Into an empty collection each value goes straight in, unstaged; a key met again is
  // dropped.
  static void fill(Update& u) {
    std::size_t entered = 0;
    for (std::size_t i = 0, count = u.sh.tlvs.size(); i < count; ++i)
      if (Tlv& t = u.sh.tlvs[i]; t.kind == K) t.outcome = enter(u, t, entered);
  }
  static Outcome enter(Update& u, Tlv const& t, std::size_t& entered) {
    V v;
    if (!Decode(u, t, entered, v) || (entered != 0 && (u.r.*Find)(KeyOf{}(v)))) return traced(t, discarded);
    (u.r.*Is)(std::move(v));
    ++entered;
    u.changed = true;
    return Counted;
  }
  static constexpr Row row{nullptr, nullptr, collect, enter};
};

using namespace Lldp;

constexpr auto addressKey = [](ManagementAddress const& v) -> ManagementAddress::Key const& { return v.key(); };
constexpr auto unknownTlvKey = [](UnknownTlv const& v) { return v.type(); };
constexpr auto orgTlvKey = [](UnknownOrgDefTlv const& v) -> UnknownOrgDefTlv::Key const& { return v.key(); };
constexpr auto ppvidKey = [](PortAndProtocolVlan const& v) -> Platform::VlanIdOrNone const& { return v.portAndProtocolVlanId(); };
constexpr auto vlanNameKey = [](VlanName const& v) -> Platform::VlanId const& { return v.vlanId(); };
constexpr auto protocolKey = [](ProtocolIdentityInfo const& v) { return v.index(); };
constexpr auto policyKey = [](NetworkPolicyTlv const& v) { return v.appValue(); };

bool decodeAddress(Update&, Tlv const& t, std::size_t, ManagementAddress& v) { return decodeManagementAddress(t, v); }
bool decodeUnknown(Update&, Tlv const& t, std::size_t, UnknownTlv& v) {
  v.typeIs(t.type);
  fieldOf<Kel::String>(fieldOf<BoundedString511>(v)) = Kel::String(Detail::text(t.value(), t.length));  // 511 at most
  return true;
}
// Several TLVs of one OUI and subtype are told apart by their order: counted from 1 in
// every LLDPDU (a handful of kinds per LLDPDU: a short list beats a table).
bool decodeOrg(Update& u, Tlv const& t, std::size_t staged, UnknownOrgDefTlv& v) {
  auto& counts = u.sh.orgCounts;
  if (staged == 0) counts.clear();
  if (!UnknownOrgDefTlv::Key::subtypeValid(t.subtype())) return false;
  std::uint32_t const kind = t.oui() << 8 | t.subtype();
  auto c = std::find_if(counts.begin(), counts.end(), [kind](auto const& e) { return e.first == kind; });
  if (c == counts.end()) c = counts.insert(c, {kind, 0});
  UnknownOrgDefTlv::Key key;
  key.ouiIs(Oui(t.oui()));
  key.subtypeIs(t.subtype());
  key.indexIs(++c->second);
  v.keyIs(std::move(key));
  fieldOf<Kel::String>(fieldOf<BoundedString507>(v)) = Kel::String(Detail::text(t.orgInfo(), t.orgLength()));  // 507 at most
  return true;
}
bool decodePpvid(Update&, Tlv const& t, std::size_t, PortAndProtocolVlan& v) { return decodePortAndProtocolVlan(t, v); }
bool decodeVlan(Update&, Tlv const& t, std::size_t, VlanName& v) {
  std::uint16_t id;
  std::string_view name;
  if (!decodeVlanName(t, id, name)) return false;
  v.vlanIdIs(Platform::VlanId(id));
  v.vlanNameIs(BoundedString32(Kel::String(name)));
  return true;
}
bool decodeProtocol(Update&, Tlv const& t, std::size_t staged, ProtocolIdentityInfo& v) {
  std::string_view protocol;
  if (!decodeProtocolIdentity(t, protocol)) return false;
  // Numbered in order of arrival.
  v.indexIs(static_cast<std::int32_t>(staged + 1));
  v.protocolIdIs(BoundedString255(Kel::String(protocol)));
  return true;
}
bool decodePolicy(Update&, Tlv const& t, std::size_t, NetworkPolicyTlv& v) { return decodeNetworkPolicy(t, v); }

// One record per data format; the first TLV of a format counts, and a format the LLDPDU
// no longer carries keeps its record with the received flag down.
void collectLocation(Update& u) {
  LocationId v = u.r.locationId();
  unsigned seen = 0;
  for (std::size_t i = 0, count = u.sh.tlvs.size(); i < count; ++i) {
    Tlv& t = u.sh.tlvs[i];
    if (t.kind != kLocation) continue;
    unsigned const format = t.orgLength() >= 1 ? t.orgInfo()[0] : 0;
    bool const first = format >= 1 && format <= 3 && !(seen & (1u << format));
    if (format >= 1 && format <= 3) seen |= 1u << format;
    t.outcome = first && decodeLocation(t, v) ? accepted : discarded;
    if (first && t.outcome == discarded) seen &= ~(1u << format);
  }
  if (!(seen & (1u << CoordinateBased)) && v.coordinateBasedLCI().received()) {
    auto c = v.coordinateBasedLCI();
    c.receivedIs(false);
    v.coordinateBasedLCIIs(c);
  }
  if (!(seen & (1u << CivicAddress)) && v.civicAddressLCI().received()) {
    auto c = v.civicAddressLCI();
    c.receivedIs(false);
    v.civicAddressLCIIs(std::move(c));
  }
  if (!(seen & (1u << EcsElin)) && v.ecsElin().received()) {
    auto e = v.ecsElin();
    e.receivedIs(false);
    v.ecsElinIs(std::move(e));
  }
  u.set<&R::locationId, &R::locationIdIs>(std::move(v));
}

template <auto Get, auto Set>
using Text255 = TextRow<BoundedString255Tlv, BoundedString255, decodeText255, Get, Set>;
template <auto Get, auto Set>
using Inventory = TextRow<BoundedString32Tlv, BoundedString32, decodeInventory, Get, Set>;

// The getter of a collection, and its look-up by key.
template <class C>
using CollGet = C const& (R::*)() const noexcept;
template <class V, class K>
using CollFind = V const* (R::*)(K) const;

constexpr Row locationRow{nullptr, nullptr, collectLocation};

// Indexed by Kind. Adding a kind: its Kind, its decoder and its row, which names its TLV.
constexpr Row rows[kindCount] = {
    takes({4}, Text255<&R::portDesc, &R::portDescIs>::row),
    takes({5}, Text255<&R::sysName, &R::sysNameIs>::row),
    takes({6}, Text255<&R::sysDesc, &R::sysDescIs>::row),
    takes({7}, ValueRow<SystemCapabilitiesTlv, decodeSystemCapabilities, &R::systemCapabilities, &R::systemCapabilitiesIs>::row),
    takes(dot1(1), FlaggedRow<Platform::VlanIdOrNone, decodeVlanIdOrNone, &R::portVlanId, &R::portVlanIdIs,
                              &R::portVlanIdTlvReceived, &R::portVlanIdTlvReceivedIs>::row),
    takes(dot1(5), FlaggedRow<std::uint32_t, decodeVidUsageDigest, &R::vidUsageDigest, &R::vidUsageDigestIs,
                              &R::vidUsageDigestTlvReceived, &R::vidUsageDigestTlvReceivedIs>::row),
    takes(dot1(6), FlaggedRow<Platform::VlanIdOrNone, decodeVlanIdOrNone, &R::managementVid, &R::managementVidIs,
                              &R::managementVidTlvReceived, &R::managementVidTlvReceivedIs>::row),
    // Moved to 802.1 from 802.3 in 802.1AB-2009; both forms are still sent.
    takes(dot1(7), LinkAggregationRow::row, dot3(3)),
    takes(dot3(1), Dot3Row<5, MacPhyConfigStatusInfo, &R::macPhyConfigStatusInfo, &R::macPhyConfigStatusInfoIs,
                           &R::macPhyConfigStatusTlvReceived, &R::macPhyConfigStatusTlvReceivedIs>::row),
    takes(dot3(2), Dot3Row<3, PowerViaMdiInfo, &R::powerViaMdiInfo, &R::powerViaMdiInfoIs, &R::powerViaMdiTlvReceived,
                           &R::powerViaMdiTlvReceivedIs>::row),
    takes(dot3(4), Dot3Row<2, MaximumFrameSizeInfo, &R::maximumFrameSizeInfo, &R::maximumFrameSizeInfoIs,
                           &R::maximumFrameSizeTlvReceived, &R::maximumFrameSizeTlvReceivedIs>::row),
    takes(med(1), FlaggedRow<MedCapabilitiesInfo, decodeMedCapabilities, &R::medCapabilitiesInfo, &R::medCapabilitiesInfoIs,
                             &R::medCapabilitiesTlvReceived, &R::medCapabilitiesTlvReceivedIs>::row),
    takes(med(5), Inventory<&R::hardwareRevisionTlvInfo, &R::hardwareRevisionTlvInfoIs>::row),
    takes(med(6), Inventory<&R::firmwareRevisionTlvInfo, &R::firmwareRevisionTlvInfoIs>::row),
    takes(med(7), Inventory<&R::softwareRevisionTlvInfo, &R::softwareRevisionTlvInfoIs>::row),
    takes(med(8), Inventory<&R::serialNumberTlvInfo, &R::serialNumberTlvInfoIs>::row),
    takes(med(9), Inventory<&R::manufacturerNameTlvInfo, &R::manufacturerNameTlvInfoIs>::row),
    takes(med(10), Inventory<&R::modelNameTlvInfo, &R::modelNameTlvInfoIs>::row),
    takes(med(11), Inventory<&R::assetIDTlvInfo, &R::assetIDTlvInfoIs>::row),
    takes({8}, CollectionRow<ManagementAddress, kManagementAddress, accepted, &Shared::addresses, decodeAddress,
                             decltype(addressKey), static_cast<CollGet<R::KelManagementAddress>>(&R::managementAddress),
                             static_cast<CollFind<ManagementAddress, ManagementAddress::Key const&>>(&R::managementAddress),
                             &R::managementAddressIs, &R::managementAddressDel>::row),
    // Every type without a row of its own.
    takes({}, CollectionRow<UnknownTlv, kUnknownTlv, unrecognized, &Shared::unknownTlvs, decodeUnknown,
                            decltype(unknownTlvKey), static_cast<CollGet<R::KelUnknownTlv>>(&R::unknownTlv),
                            static_cast<CollFind<UnknownTlv, std::uint32_t>>(&R::unknownTlv), &R::unknownTlvIs,
                            &R::unknownTlvDel>::row),
    // Every OUI and subtype without a row of its own (the extended power TLV among them).
    takes({}, CollectionRow<UnknownOrgDefTlv, kUnknownOrgDefTlv, unrecognized, &Shared::orgTlvs, decodeOrg,
                            decltype(orgTlvKey), static_cast<CollGet<R::KelUnknownOrgDefTlv>>(&R::unknownOrgDefTlv),
                            static_cast<CollFind<UnknownOrgDefTlv, UnknownOrgDefTlv::Key const&>>(&R::unknownOrgDefTlv),
                            &R::unknownOrgDefTlvIs, &R::unknownOrgDefTlvDel>::row),
    takes(dot1(2), CollectionRow<PortAndProtocolVlan, kPortAndProtocolVlan, accepted, &Shared::ppvids, decodePpvid,
                                 decltype(ppvidKey), static_cast<CollGet<R::KelPortAndProtocolVlan>>(&R::portAndProtocolVlan),
                                 static_cast<CollFind<PortAndProtocolVlan, Platform::VlanIdOrNone const&>>(&R::portAndProtocolVlan),
                                 &R::portAndProtocolVlanIs, &R::portAndProtocolVlanDel>::row),
    takes(dot1(3), CollectionRow<VlanName, kVlanName, accepted, &Shared::vlanNames, decodeVlan, decltype(vlanNameKey),
                                 static_cast<CollGet<R::KelVlanName>>(&R::vlanName),
                                 static_cast<CollFind<VlanName, Platform::VlanId const&>>(&R::vlanName), &R::vlanNameIs,
                                 &R::vlanNameDel>::row),
    takes(dot1(4), CollectionRow<ProtocolIdentityInfo, kProtocolIdentity, accepted, &Shared::protocols, decodeProtocol,
                                 decltype(protocolKey), static_cast<CollGet<R::KelProtocolIdentityInfo>>(&R::protocolIdentityInfo),
                                 static_cast<CollFind<ProtocolIdentityInfo, std::int32_t>>(&R::protocolIdentityInfo),
                                 &R::protocolIdentityInfoIs, &R::protocolIdentityInfoDel>::row),
    takes(med(2), CollectionRow<NetworkPolicyTlv, kNetworkPolicy, accepted, &Shared::policies, decodePolicy,
                                decltype(policyKey), static_cast<CollGet<R::KelNetworkPolicyTlv>>(&R::networkPolicyTlv),
                                static_cast<CollFind<NetworkPolicyTlv, std::uint8_t>>(&R::networkPolicyTlv),
                                &R::networkPolicyTlvIs, &R::networkPolicyTlvDel>::row),
    takes(med(3), locationRow),
};

// The kinds by TLV, made from the rows' ids when the program is built.
struct KindTable {
  static constexpr std::size_t maxOuis = 4, subtypes = 32;
  Kind byType[128]{};  // 127: by OUI and subtype
  std::uint32_t ouis[maxOuis]{};
  std::size_t ouiCount = 0;
  Kind byOrg[maxOuis][subtypes]{};

  constexpr KindTable() {
    for (Kind& k : byType) k = kUnknownTlv;
    for (unsigned t = 0; t <= 3; ++t) byType[t] = kMandatory;  // splitLldpdu sorts these out
    for (auto& row : byOrg)
      for (Kind& k : row) k = kUnknownOrgDefTlv;
    for (unsigned k = 0; k < kindCount; ++k) {
      enter(rows[k].id, static_cast<Kind>(k));
      enter(rows[k].alt, static_cast<Kind>(k));
    }
  }
  // A TLV named twice, or an id out of the table's bounds, stops the build here.
  constexpr void enter(TlvId id, Kind k) {
    if (id.type == 0) return;
    if (id.type != 127) {
      if (id.type <= 3 || id.type >= 127 || byType[id.type] != kUnknownTlv) throw "a TLV type named twice";
      byType[id.type] = k;
      return;
    }
    std::size_t o = 0;
    while (o < ouiCount && ouis[o] != id.oui) ++o;
    if (o == ouiCount) {
      if (ouiCount == maxOuis) throw "too many OUIs";
      ouis[ouiCount++] = id.oui;
    }
    if (id.subtype >= subtypes || byOrg[o][id.subtype] != kUnknownOrgDefTlv) throw "an OUI and subtype named twice";
    byOrg[o][id.subtype] = k;
  }
};
constexpr KindTable kindTable;

// What a TLV (other than the three mandatory ones) feeds: the kinds table says.
[[gnu::always_inline]] inline Kind kindOf(std::uint16_t type, unsigned char const* value, std::uint16_t length) noexcept {
  if (type != 127) return kindTable.byType[type & 127];
  if (length < 4) return kMalformedOrg;
  std::uint32_t const oui = (std::uint32_t{value[0]} << 16) | (std::uint32_t{value[1]} << 8) | value[2];
  std::uint8_t const subtype = value[3];
  for (std::size_t o = 0; o < kindTable.ouiCount; ++o)
    if (kindTable.ouis[o] == oui) return subtype < KindTable::subtypes ? kindTable.byOrg[o][subtype] : kUnknownOrgDefTlv;
  return kUnknownOrgDefTlv;
}
}  // namespace

// Here, beside the kinds table, so that the kind of each TLV is looked up inline.
const char* Detail::splitLldpdu(std::string_view pdu, TlvList& tlvs) {
  auto const* p = reinterpret_cast<unsigned char const*>(pdu.data());
  std::size_t const n = pdu.size();
  // Every TLV takes at least its two-byte header: room for all of them, written in place.
  tlvs.clear();
  tlvs.reserve(n / 2 + 1);
  Tlv* const first = tlvs.data();
  Tlv* out = first;
  std::size_t pos = 0;
  static_assert(kMandatory < 32);
  std::uint32_t seen = 0;  // the single kinds met so far
  std::uint16_t type = 0, length = 0;
  // Reads the header at pos; false when the TLV runs past the end.
  auto const header = [&] {
    std::uint16_t const h = be16(p + pos);
    type = static_cast<std::uint16_t>(h >> 9);
    length = static_cast<std::uint16_t>(h & 0x1ff);
    return pos + 2 + length <= n;
  };
  // Appends the TLV at pos, counted as accepted until it is applied.
  auto const emit = [&](Kind kind, bool repeat) {
    *out++ = Tlv{{static_cast<std::uint16_t>(pos), length, static_cast<std::uint8_t>(type), kind, accepted, repeat}, p + pos};
  };
  char const* const runsPast = "a TLV runs past the end of the LLDPDU";
  // Chassis ID, Port ID and Time To Live, in this order. Chassis and port ID: a subtype and
  // 1 to 255 octets; TTL: two octets (more are ignored).
  static const char* const missing[] = {"the first TLV is not a Chassis ID TLV", "the second TLV is not a Port ID TLV",
                                        "the third TLV is not a Time To Live TLV"};
  for (std::uint16_t i = 1; i <= 3; ++i) {
    if (pos + 2 > n) return "the LLDPDU lacks a mandatory TLV";
    if (!header()) return runsPast;
    if (type == 0) return "the LLDPDU lacks a mandatory TLV";
    if (type != i) return missing[i - 1];
    if (length < 2 || (i < 3 && length > 256)) return "a mandatory TLV has an invalid length";
    emit(kMandatory, false);
    pos += 2u + length;
  }
  // The others, up to the End TLV. Fewer than two bytes left cannot hold a TLV: the End
  // TLV is optional, and what follows the last TLV may be padding.
  for (; pos + 2 <= n; pos += 2u + length) {
    if (!header()) return runsPast;
    if (type == 0) break;
    if (type <= 3) return "a second Chassis ID, Port ID or Time To Live TLV";
    Kind const kind = kindOf(type, p + pos + 2, length);
    std::uint32_t const bit = (1u << kind) & ((1u << singleKinds) - 1);
    emit(kind, (seen & bit) != 0);
    seen |= bit;
  }
  tlvs.resize(static_cast<std::size_t>(out - first));
  return nullptr;
}

namespace {

Outcome repeat(Tlv const& t) {
  DUOLOG(rxTrace(), 4, "TLV type %u (length %u) discarded: a repeat of an earlier one", unsigned{t.type}, unsigned{t.length});
  return discarded;
}

// A single kind's first TLV in an LLDPDU; broken, the kind is cleared.
[[gnu::always_inline]] inline Outcome single(Update& u, Tlv const& t) {
  Row const& row = rows[t.kind];
  Outcome const o = row.decode(u, t);
  if (o == discarded) {
    DUOLOG(rxTrace(), 4, "TLV type %u (length %u) discarded: a field is out of its range", unsigned{t.type}, unsigned{t.length});
    row.clear(u);
  }
  return o;
}

// Applies a whole accepted LLDPDU (u.sh.tlvs) to the neighbour. fresh: the neighbour was
// just made, so every attribute holds its default and there is nothing to clear.
// A new neighbour's collections fill in the same pass, their TLVs in order.
void applyFull(Update& u, bool fresh) {
  std::uint32_t present = 0;
  std::size_t entered[kindCount - singleKinds] = {};
  TlvList& tlvs = u.sh.tlvs;
  for (std::size_t i = 0, count = tlvs.size(); i < count; ++i) {
    Tlv& t = tlvs[i];
    present |= 1u << t.kind;
    if (t.kind == kMalformedOrg) {
      t.outcome = discarded;
    } else if (isSingle(t.kind)) {
      // Only the first TLV of a kind counts; a repeat is dropped.
      t.outcome = t.repeat ? repeat(t) : single(u, t);
    } else if (fresh && isCollection(t.kind) && rows[t.kind].enter) {
      t.outcome = rows[t.kind].enter(u, t, entered[t.kind - singleKinds]);
    }
  }
  if (!fresh)
    for (unsigned k = 0; k < singleKinds; ++k)
      if (!(present & (1u << k))) rows[k].clear(u);
  for (unsigned k = singleKinds; k < kindCount; ++k)
    if (!fresh || ((present & (1u << k)) && !rows[k].enter)) rows[k].collect(u);
}

// Applies an LLDPDU whose TLVs have the shapes of the previous one's (`old`, one for one):
// only the TLVs whose bytes differ.
void applyChanged(Update& u, TlvList const& old) {
  std::uint32_t dirty = 0;
  TlvList& tlvs = u.sh.tlvs;
  for (std::size_t i = 0, count = tlvs.size(); i < count; ++i) {
    Tlv& t = tlvs[i];
    if (t.bytes() == old[i].bytes()) {
      t.outcome = old[i].outcome;
    } else if (isSingle(t.kind)) {
      t.outcome = t.repeat ? repeat(t) : single(u, t);
    } else if (isCollection(t.kind)) {
      dirty |= 1u << t.kind;
    } else if (t.kind == kMalformedOrg) {
      t.outcome = discarded;
    }
  }
  for (unsigned k = singleKinds; k < kindCount; ++k)
    if (dirty & (1u << k)) rows[k].collect(u);
}

}  // namespace

struct Port::State {
  Shared* sh;
  Platform::IntfId intf;
  Lldp::PortStatus::Ptr status;
  Lldp::PortConfig::Ptr config;
  Table neighbours;
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
    // msapKey checked both IDs' lengths (1 to 255 bytes).
    RemoteSystem::Msap m;
    auto& c = fieldOf<Lldp::ChassisIdentifier>(m);
    c.chassisIdSubtypeIs(static_cast<Lldp::ChassisIdSubtype>(static_cast<unsigned char>(key[2])));
    fieldOf<Kel::String>(fieldOf<Lldp::ChassisId>(c)) = Kel::String(key.substr(3, chassisLen - 1));
    auto& p = fieldOf<Lldp::PortIdentifier>(m);
    p.portIdSubtypeIs(static_cast<Lldp::PortIdSubtype>(static_cast<unsigned char>(key[chassisLen + 4])));
    fieldOf<Kel::String>(fieldOf<Lldp::PortId>(p)) = Kel::String(key.substr(chassisLen + 5));
    return m;
  }

  void remove(Neighbour& n, Why why, double now) {
    RemoteSystem::Ptr const rs = n.rs;
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
      logNeighbour(Lldp::LLDP_NEIGHBOR_TIMEOUT, *rs, intf);
    } else if (why == Why::shutdown) {
      logNeighbour(Lldp::LLDP_NEIGHBOR_GONE, *rs, intf);
    }
    neighbours.erase(n);
  }

  std::size_t ageOut(double now) {
    if (now < nextExpiry) return 0;
    std::size_t n = 0;
    nextExpiry = never;
    neighbours.forEach([&](Neighbour& m) {
      double const expiry = m.rs->expiryTime();
      if (expiry > now) {
        nextExpiry = std::min(nextExpiry, expiry);
        return false;
      }
      remove(m, Why::ageout, now);
      ++n;
      return true;
    });
    return n;
  }

  void clear(double now) {
    neighbours.forEach([&](Neighbour& m) {
      remove(m, Why::cleared, now);
      return true;
    });
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
  FrameResult oneTlvChanged(Neighbour& n, unsigned char const* source, std::string_view pdu, std::size_t from,
                            double now);
  void bookkeep(Neighbour& n, unsigned char const* source, bool sameMac, std::uint16_t ttl, bool changed, bool fresh, double now);
  void keep(Neighbour& n, unsigned char const* source, std::string_view pdu);
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
        Lldp::LLDP_RX_RATELIMIT.log(Kel::EventLog::Deferred{intfText, &intf}, pc.rxRateLimitMax(), pc.rxRateLimitPeriod());
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

// A known neighbour's LLDPDU of the same length as its last one, differing in the value of
// one TLV only (past an organizationally specific TLV's OUI and subtype): the TLVs keep
// their places, kinds and validity, so only that one is decoded. `from`: the first byte
// that differs. Returns notLldp when the change is not of that sort.
FrameResult Port::State::oneTlvChanged(Neighbour& n, unsigned char const* source, std::string_view pdu, std::size_t from,
                                       double now) {
  auto const* p = reinterpret_cast<unsigned char const*>(pdu.data());
  unsigned char const* old = n.pdu();
  if (from == pdu.size()) return FrameResult::notLldp;  // only the source MAC moved
  Slot* const slots = n.slots();
  // The last TLV that starts at or before `from`.
  std::size_t lo = 0, hi = n.slotCount;
  while (hi - lo > 1) {
    std::size_t const mid = (lo + hi) / 2;
    (slots[mid].offset <= from ? lo : hi) = mid;
  }
  std::size_t const i = lo;
  Slot& s = slots[i];
  std::size_t const fixed = s.type == 127 ? 6 : 2;  // the header, and an OUI and subtype
  std::size_t const end = s.offset + s.length + 2u;
  if (from < s.offset + fixed || from >= end) return FrameResult::notLldp;  // also past the TLVs
  // A shutdown goes the full way before anything is compared further.
  std::uint16_t const ttl = be16(p + slots[2].offset + 2);
  if (ttl == 0) return FrameResult::notLldp;
  if (firstDiff(p + end, old + end, pdu.size() - end) != pdu.size() - end) return FrameResult::notLldp;

  Tlv const t = n.tlv(i, p);
  Update u(*sh, *n.rs);
  if (isSingle(t.kind)) {
    Outcome const was = s.outcome;
    s.outcome = s.repeat ? repeat(t) : single(u, t);
    n.unrecognized += (s.outcome == unrecognized) - (was == unrecognized);
    n.discarded += (s.outcome == discarded) - (was == discarded);
  } else if (isCollection(t.kind)) {
    // A collection is rebuilt from every TLV of its kind.
    sh->tlvs.resize(n.slotCount);
    for (std::size_t j = 0; j < n.slotCount; ++j) sh->tlvs[j] = n.tlv(j, p);
    rows[t.kind].collect(u);
    n.unrecognized = n.discarded = 0;
    for (std::size_t j = 0; j < n.slotCount; ++j) {
      slots[j].outcome = sh->tlvs[j].outcome;
      n.unrecognized += slots[j].outcome == unrecognized;
      n.discarded += slots[j].outcome == discarded;
    }
  }
  status->rxFramesTotalInc(1);
  bool const sameMac = sameMacs(n.frame(), source);
  std::memcpy(n.frame(), source, 6);
  std::memcpy(n.frame() + 6 + from, p + from, end - from);
  bookkeep(n, source, sameMac, ttl, u.changed, false, now);
  return FrameResult::updated;
}

// Stores the neighbour's new LLDPDU (its bytes and the slots of sh->tlvs), growing the
// buffer when it no longer fits.
void Port::State::keep(Neighbour& m, unsigned char const* source, std::string_view pdu) {
  std::size_t const count = sh->tlvs.size(), frameLen = pdu.size() + 6;
  if (count > m.slotCap || frameLen > m.frameCap) {
    auto const slotCap = static_cast<std::uint16_t>(std::max<std::size_t>(count, m.slotCap));
    auto const frameCap = static_cast<std::uint16_t>(std::max<std::size_t>(frameLen, m.frameCap));
    std::unique_ptr<unsigned char[]> buf(new unsigned char[slotCap * sizeof(Slot) + m.keyLen + frameCap]);
    std::memcpy(buf.get() + slotCap * sizeof(Slot), m.keyData(), m.keyLen);
    m.buf = std::move(buf);
    m.slotCap = slotCap;
    m.frameCap = frameCap;
  }
  m.slotCount = static_cast<std::uint16_t>(count);
  m.frameLen = static_cast<std::uint16_t>(frameLen);
  std::memcpy(m.frame(), source, 6);
  std::memcpy(m.frame() + 6, pdu.data(), pdu.size());
  // In locals: the slots' stores could otherwise alias them, one reload per TLV.
  Slot* const slots = m.slots();
  Tlv const* const tlvs = sh->tlvs.data();
  std::uint32_t unrecognizedCount = 0, discardedCount = 0;
  for (std::size_t i = 0; i < count; ++i) {
    slots[i] = tlvs[i];
    Outcome const o = tlvs[i].outcome;
    unrecognizedCount += o == unrecognized;
    discardedCount += o == discarded;
  }
  m.unrecognized = unrecognizedCount;
  m.discarded = discardedCount;
}

// The bookkeeping of every accepted LLDPDU: TTL, source MAC, times and counters.
// sameMac: the source MAC is the one of the neighbour's previous LLDPDU.
void Port::State::bookkeep(Neighbour& n, unsigned char const* source, bool sameMac, std::uint16_t ttl, bool changed,
                           bool fresh, double now) {
  RemoteSystem& r = *n.rs;
  Lldp::Status& root = *sh->root;
  if (r.ttl() != ttl) {
    r.ttlIs(ttl);
    changed = true;
  }
  if (!sameMac) {
    std::array<std::uint8_t, 6> bytes;
    std::memcpy(bytes.data(), source, 6);
    Platform::EthAddr const mac(bytes);
    if (!(r.ethAddr() == mac)) {
      r.ethAddrIs(mac);
      changed = true;
    }
  }
  if (changed || fresh) {
    r.lastChangeTimeIs(now);
    root.remTablesLastChangeTimeIs(now);
  }
  r.lastRefreshTimeIs(now);
  r.expiryTimeIs(now + ttl);
  nextExpiry = std::min(nextExpiry, now + ttl);
  if (n.unrecognized) status->rxTLVsUnrecognizedTotalInc(n.unrecognized);
  if (n.discarded) status->rxTLVsDiscardedTotalInc(n.discarded);
  root.lastPacketParsedTimeIs(now);
}

FrameResult Port::State::lldpdu(unsigned char const* source, std::string_view pdu, double now) {
  // The steady state: a neighbour repeats its last LLDPDU.
  std::string_view const key = msapKey(pdu);
  Key const lookup(key);
  Neighbour* known = key.empty() ? nullptr : neighbours.find(lookup);
  if (known) {
    Neighbour& n = *known;
    if (n.frameLen == pdu.size() + 6) {
      // Where the LLDPDU first differs from the last one: the end for a repeat, else where
      // a changed TLV is looked for.
      std::size_t const from = firstDiff(reinterpret_cast<unsigned char const*>(pdu.data()), n.pdu(), pdu.size());
      if (from == pdu.size() && sameMacs(n.frame(), source)) {
        refreshed(n, now);
        return FrameResult::refreshed;
      }
      if (*sh->incremental) {
        FrameResult const r = oneTlvChanged(n, source, pdu, from, now);
        if (r != FrameResult::notLldp) return r;
      }
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
    if (!known) return FrameResult::shutdownIgnored;
    remove(*known, Why::shutdown, now);
    return FrameResult::removed;
  }

  bool const fresh = !known;
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
    // One buffer for the TLVs, the key and the frame, sized to fit.
    Neighbour entry;
    entry.rs = std::move(rs);
    entry.hash = static_cast<std::uint32_t>(lookup.hash);
    entry.slotCap = static_cast<std::uint16_t>(sh->tlvs.size());
    entry.frameCap = static_cast<std::uint16_t>(pdu.size() + 6);
    entry.keyLen = static_cast<std::uint16_t>(key.size());
    entry.buf.reset(new unsigned char[entry.slotCap * sizeof(Slot) + key.size() + entry.frameCap]);
    std::memcpy(entry.keyData(), key.data(), key.size());
    known = &neighbours.insert(std::move(entry));
  }

  Neighbour& n = *known;
  Update u(*sh, *n.rs);
  bool sameShape = false;
  if (!fresh && *sh->incremental && n.slotCount == sh->tlvs.size()) {
    // The previous LLDPDU's TLVs, from what was kept of it.
    sh->oldTlvs.resize(n.slotCount);
    sameShape = true;
    for (std::size_t i = 0; i < n.slotCount; ++i) {
      sh->oldTlvs[i] = n.tlv(i, n.pdu());
      sameShape = sameShape && sh->oldTlvs[i].shape() == sh->tlvs[i].shape();
    }
  }
  if (sameShape)
    applyChanged(u, sh->oldTlvs);
  else
    applyFull(u, fresh);
  bool const sameMac = !fresh && sameMacs(n.frame(), source);
  keep(n, source, pdu);
  bookkeep(n, source, sameMac, ttl, u.changed, fresh, now);

  if (fresh) {
    DUOLOG(rxTrace(), 6, "%s: neighbour %d added", intf.stringValue(), n.rs->index());
    logNeighbour(Lldp::LLDP_NEIGHBOR_NEW, *n.rs, intf);
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

void Receiver::portDel(Platform::IntfId const& intf, double now) {
  auto it = ports_->byIntf.find(intf);
  if (it == ports_->byIntf.end()) return;
  it->second->state_->clear(now);
  ports_->byIntf.erase(it);
  status_->portStatusDel(intf);
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
