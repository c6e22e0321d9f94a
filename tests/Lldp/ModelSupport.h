#pragma once
// What tests and fuzzers share about the model (no test framework here): a seeded random
// source, random values within every field's limits, a neighbour's identity and 802.3 state,
// and the text of entity trees.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Kel/EnumType.h"
#include "Kel/GenericIf.h"
#include "Lldp/Lldp.h"
#include "Lldp/ModelTypes.h"

namespace LldpTest {

using namespace Lldp;

struct Rng {
  std::uint64_t s;
  std::uint64_t next() {  // splitmix64: the same sequence with every standard library
    std::uint64_t z = (s += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  std::uint64_t below(std::uint64_t n) { return next() % n; }
  bool oneIn(std::uint64_t n) { return below(n) == 0; }
};

// Bytes that need escaping in text and that are not text at all.
inline Kel::String awkwardBytes(std::size_t n) {
  static constexpr char pattern[] = "a'\"\\\n\t\x00\xff\x7f" "b";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += pattern[i % (sizeof pattern - 1)];
  return Kel::String(std::move(s));
}

// Values within every field's limits, walking records through their field lists: random
// ones, or with `far` every field as far from its default as it goes (width and sign
// extremes, strings at their bound in awkward bytes, three elements per collection).
class Gen {
 public:
  explicit Gen(Rng& r, bool far = false) : r_(r), far_(far) {}

  template <class T>
  T make(Kel::FieldLimit const& limit = {}) {
    T v{};
    field(v, limit);
    return v;
  }
  // Every field of v but the one named `keep` (a collection element's key).
  template <class T>
  void fill(T& v, std::string_view keep = {}) {
    v.kelForEachField([&](const char* name, auto& f, Kel::FieldLimit const& l) {
      if (keep != name) field(f, l);
    });
  }
  Kel::String bytes(std::size_t max) {
    if (far_) return awkwardBytes(max);
    std::size_t n = r_.oneIn(8) ? max : r_.below(std::min<std::size_t>(max, 9) + 1);
    std::string s;
    for (std::size_t i = 0; i < n; ++i) s += static_cast<char>(r_.below(256));
    return Kel::String(std::move(s));
  }
  double real() {
    switch (far_ ? 4 : r_.below(16)) {
      // No -0.0: the setters take it for the 0.0 they may already hold, and keep that.
      case 0: return std::numeric_limits<double>::quiet_NaN();
      case 1: return 0.0;
      case 2: return -std::numeric_limits<double>::infinity();
      case 3: return 1e300 * static_cast<double>(r_.below(100));
      case 4: return 1712345678.125;
      default: return static_cast<double>(r_.below(1u << 30)) / 16;
    }
  }
  template <class F>
  F integral(Kel::FieldLimit const& l) {
    using L = std::numeric_limits<F>;
    using W = std::conditional_t<std::is_signed_v<F>, long long, unsigned long long>;
    W lo = l.hasMin ? static_cast<W>(l.min) : static_cast<W>(L::min());
    W hi = l.hasMax ? static_cast<W>(std::min<unsigned long long>(l.max, L::max())) : static_cast<W>(L::max());
    switch (far_ ? (std::is_signed_v<F> && !l.hasMin && !l.hasMax ? 0 : 1) : r_.below(8)) {
      case 0: return static_cast<F>(lo);
      case 1: return static_cast<F>(hi);
      default: {
        unsigned long long span = static_cast<unsigned long long>(hi) - static_cast<unsigned long long>(lo);
        unsigned long long off = span == ~0ull ? r_.next() : r_.below(span + 1);
        return static_cast<F>(static_cast<unsigned long long>(lo) + off);
      }
    }
  }

 private:
  template <class F>
  void field(F& f, Kel::FieldLimit const& l) {
    if constexpr (std::is_same_v<F, bool>) {
      f = far_ || r_.below(2) != 0;
    } else if constexpr (std::is_enum_v<F>) {
      auto const& es = enumType(F{}).enumerators();
      f = static_cast<F>(es[far_ ? es.size() - 1 : r_.below(es.size())].value);
      if (far_ && f == F{}) f = static_cast<F>(es.front().value);
    } else if constexpr (std::is_integral_v<F>) {
      f = integral<F>(l);
    } else if constexpr (std::is_floating_point_v<F>) {
      f = real();
    } else if constexpr (std::is_same_v<F, Kel::String>) {
      f = bytes(l.onBytes ? l.max : far_ ? 13 : 40);
    } else if constexpr (KelBitMap<F>) {
      f = F(static_cast<std::uint32_t>(far_ ? F::kelMax : r_.next() & F::kelMax));
    } else if constexpr (KelValue<F>) {
      fill(f);
    } else if constexpr (IsValueCollection<F>::value) {
      f.clear();
      for (auto n = far_ ? 3 : r_.below(4); n--;) {
        typename F::mapped_type e;
        fill(e);
        f.insert_or_assign(static_cast<typename F::key_type>(far_ ? (n == 2 ? 200 : n ? 1 : 29) : 1 + r_.below(255)), e);
      }
    } else if constexpr (std::is_same_v<F, Platform::IntfId>) {
      f = F(Kel::String(far_ ? std::string("Ethernet3/1") : "Ethernet" + std::to_string(1 + r_.below(48))));
    } else if constexpr (std::is_same_v<F, Platform::EthAddr>) {
      f = F(far_ ? 0xffffffffffffull : r_.next() & 0xffffffffffffull);
    } else if constexpr (std::is_same_v<F, Platform::VrfName>) {
      f = F(bytes(Platform::VrfName::maxLength));
    } else if constexpr (std::is_same_v<F, Platform::VlanId>) {
      f = F(static_cast<std::int64_t>(far_ ? 4094 : 1 + r_.below(4094)));
    } else if constexpr (std::is_same_v<F, Platform::VlanIdOrNone>) {
      f = F(static_cast<std::int64_t>(far_ ? 4094 : r_.below(4095)));
    } else if constexpr (std::is_same_v<F, Platform::AddressFamilyNumbers>) {
      f = F(static_cast<std::int32_t>(far_ ? -5 : r_.next()));
    } else if constexpr (std::is_same_v<F, Platform::ObjectIdentifier>) {
      std::vector<std::uint32_t> ids(far_ ? 5 : r_.below(7));
      for (auto& id : ids) id = far_ ? 4294967295u : static_cast<std::uint32_t>(r_.next());
      f = F(std::move(ids));
    } else if constexpr (std::is_same_v<F, Platform::AutoNegCapBits>) {
      f = F(far_ ? 0x7fffff : r_.below(0x800000));
    } else {
      static_assert(!sizeof(F), "no generator for this field type");
    }
  }

  Rng& r_;
  bool far_;
};

// A value of T (a record, or any field type) as far from its default as it goes.
template <class T>
T filled() {
  Rng r{0};
  return Gen(r, true).make<T>();
}

// A neighbour's identity: chassis 00:1c:73:00:00:<n>, port "Ethernet<n>".
inline RemoteSystem::Msap msapOf(int n) {
  ChassisIdentifier c;
  c.chassisIdSubtypeIs(cidMacAddress);
  c.chassisIdIs(ChassisId(Kel::String(std::string("\x00\x1c\x73\x00\x00", 5) + static_cast<char>(n))));
  PortIdentifier p;
  p.portIdSubtypeIs(pidInterfaceName);
  p.portIdIs(PortId(Kel::String("Ethernet" + std::to_string(n))));
  RemoteSystem::Msap m;
  m.chassisIdentifierIs(c);
  m.portIdentifierIs(p);
  return m;
}

// ---- attributes by their descriptors (Kel::KelAttr)

template <class T>
inline constexpr T* typeTag = nullptr;

// Calls f.template operator()<T>() with the type of the model an attribute's descriptor
// names (as the schemas spell it); false when none is spelled so.
template <class F>
bool withType(std::string_view name, F&& f) {
  auto const is = [&]<class T>(T*, std::string_view spelled) {
    return name == spelled && (f.template operator()<T>(), true);
  };
  auto const model = [&]<class... T>(std::tuple<T...>*) { return (is(typeTag<T>, T::kelName) || ...); };
  return model(typeTag<AllValueTypes>) || model(typeTag<std::tuple<Power::PoePortStatus>>) ||
         is(typeTag<bool>, "bool") || is(typeTag<std::uint16_t>, "u16") || is(typeTag<std::uint32_t>, "u32") ||
         is(typeTag<std::uint64_t>, "u64") || is(typeTag<std::int32_t>, "s32") || is(typeTag<double>, "double") ||
         is(typeTag<Kel::String>, "String") || is(typeTag<ChassisIdSubtype>, "Lldp::ChassisIdSubtype") ||
         is(typeTag<PortIdSubtype>, "Lldp::PortIdSubtype") || is(typeTag<AdminStatus>, "Lldp::AdminStatus") ||
         is(typeTag<Platform::IntfId>, "Platform::IntfId") || is(typeTag<Platform::EthAddr>, "Platform::EthAddr") ||
         is(typeTag<Platform::VrfName>, "Platform::VrfName") ||
         is(typeTag<Platform::VlanIdOrNone>, "Platform::VlanIdOrNone");
}

// The attributes of t and its bases that hold one value the generic interface sets (no
// views, no collections).
inline std::vector<Kel::KelAttr const*> settable(Kel::KelType const* t) {
  std::vector<Kel::KelAttr const*> out;
  for (; t; t = t->base())
    for (auto const& a : t->attrs())
      if (!a.readOnly && a.kind == Kel::KelAttr::Kind::value) out.push_back(&a);
  return out;
}

// Sets a to a random value within its limit through the generic interface.
inline void setRandom(Kel::Entity& e, Kel::KelAttr const& a, Gen& gen) {
  using K = Kel::KelAttr;
  Kel::FieldLimit const limit{a.min, static_cast<unsigned long long>(a.max), a.has(K::hasMin), a.has(K::hasMax), false};
  bool const known = withType(a.type, [&]<class T>() {
    T const v = gen.make<T>(limit);
    e.kelType()->ops()->genericIfAttributeOp(nullptr, &e, &a, Kel::GenericIf::attrSet, nullptr, &v);
  });
  if (!known) throw std::logic_error(std::string("no generator for ") + a.type);
}
inline void setAny(Kel::Entity& e, Rng& r, Gen& gen) {
  auto const all = settable(e.kelType());
  setRandom(e, *all[r.below(all.size())], gen);
}

// What the 802.3 parser may touch on a neighbour.
struct Dot3State {
  bool macFlag = false, aggFlag = false, mfsFlag = false, powerFlag = false;
  MacPhyConfigStatusInfo mac;
  LinkAggregationInfo agg;
  MaximumFrameSizeInfo mfs;
  PowerViaMdiInfo power;
  friend bool operator==(Dot3State const&, Dot3State const&) = default;
  static Dot3State of(RemoteSystem const& r) {
    return {r.macPhyConfigStatusTlvReceived(), r.linkAggregationTlvReceived(), r.maximumFrameSizeTlvReceived(),
            r.powerViaMdiTlvReceived(),        r.macPhyConfigStatusInfo(),     r.linkAggregationInfo(),
            r.maximumFrameSizeInfo(),          r.powerViaMdiInfo()};
  }
};

// ---- the text of a tree: every attribute of every entity, children in key order

template <class C>
auto sortedKeys(C const& c) {
  auto keys = c.keys();
  std::sort(keys.begin(), keys.end(), [](auto const& a, auto const& b) {
    return valueToStrep(a).stdString() < valueToStrep(b).stdString();
  });
  return keys;
}

inline std::string who(Kel::Entity const* e) {
  if (!e) return "none";
  return e->fullName().stdString() + (e->parent() ? "" : " (detached)");
}

// Whether the text shows references to other entities (and what is computed from them).
inline bool withReferences = true;

template <class E>
void attrs(std::string& out, E const& e) {
  std::vector<Kel::KelType const*> chain;
  for (Kel::KelType const* t = &E::_kelType; t; t = t->base()) chain.insert(chain.begin(), t);
  out += who(&e) + "\n";
  for (auto const* t : chain)
    for (auto const& a : t->attrs()) {
      // When a mirror made its status, not a streamed value: it differs between mirrors.
      if (std::is_same_v<E, RemTablesStatus> && a.id == RemTablesStatus::AttrId::remTablesLastClearTime) continue;
      // References, and what is computed from them.
      bool const reference = a.kind == Kel::KelAttr::Kind::ref || a.kind == Kel::KelAttr::Kind::refs ||
                             (std::is_same_v<E, LocalPortPoeInfo> && a.id == LocalPortPoeInfo::AttrId::readyToSendTlv);
      if (!withReferences && reference) continue;
      // The derived multiplier divides by the interval without a guard, and the interval's
      // setter stores a refused 0 before it throws.
      if constexpr (std::is_same_v<E, Config>)
        if (a.id == Config::AttrId::messageTxHoldMultiplier && e.messageTxInterval() == 0) continue;
      out += std::string(" ") + a.name + " = " + e.kelAttributeText(a.id).stdString() + "\n";
    }
}

inline void dump(std::string& out, Kel::Entity const& e);

template <class C>
void children(std::string& out, C const& coll) {
  for (auto const& k : sortedKeys(coll)) dump(out, *coll.find(k));
}
template <class C>
void references(std::string& out, C const& coll) {
  if (withReferences)
    for (auto const& k : sortedKeys(coll)) out += " ref " + valueToStrep(k).stdString() + " -> " + who(coll.find(k)->get()) + "\n";
}

// e's attributes, then what `more` adds, when e is exactly an E.
template <class E, class F = void (*)(E const&)>
bool as(std::string& out, Kel::Entity const& e, F&& more = [](E const&) {}) {
  if (e.kelType() != &E::_kelType) return false;
  attrs(out, static_cast<E const&>(e));
  more(static_cast<E const&>(e));
  return true;
}

inline void dump(std::string& out, Kel::Entity const& e) {
  bool const known =
      as<Status>(out, e, [&](auto const& x) { children(out, x.portStatus()); }) ||
      as<AllStatus>(out, e, [&](auto const& x) { references(out, x.portStatus()); }) ||
      as<PortStatus>(out, e, [&](auto const& x) {
        children(out, x.remoteSystem());
        references(out, x.remoteSystemByMsap());
      }) ||
      as<Config>(out, e, [&](auto const& x) { children(out, x.portConfig()); }) ||
      as<CliConfig>(out, e, [&](auto const& x) { children(out, x.portConfig()); }) ||
      as<LocalSystem>(out, e, [&](auto const& x) { children(out, x.localPort()); }) ||
      as<LocalPort>(out, e, [&](auto const& x) {
        if (auto poe = x.localPortPoeInfo()) dump(out, *poe);
      }) ||
      as<LocalPortPoeInfo>(out, e, [&](auto const& x) {
        if (withReferences) out += " neighbour " + who(x.remoteSystem().get()) + "\n";
      }) ||
      as<ExternalTlvConfig>(out, e, [&](auto const& x) {
        children(out, x.portInstance());
        references(out, x.externalTlvPortConfig());
      }) ||
      as<StatusBase>(out, e) || as<RemoteSystem>(out, e) || as<PortConfig>(out, e) || as<CliPortConfig>(out, e) ||
      as<ExternalTlvPortConfig>(out, e) || as<RemTablesCliConfig>(out, e) || as<RemTablesStatus>(out, e) ||
      as<CounterCheckpoint>(out, e);
  if (!known) out += "an entity of another type\n";
}

inline std::string treeText(std::vector<Kel::Ptr<Kel::Entity>> const& roots, bool references = true) {
  withReferences = references;
  std::string out;
  for (auto const& root : roots) dump(out, *root);
  if (!references) {  // the setters take -0.0 for the 0.0 a new entity holds, and keep that
    for (std::size_t at; (at = out.find("-0.0")) != std::string::npos;) out.erase(at, 1);
  }
  return out;
}

// Where two texts part: the line's attribute and the text around the first difference;
// empty when they are equal.
inline std::string firstDifference(std::string const& want, std::string const& got) {
  if (want == got) return "";
  std::size_t at = std::mismatch(want.begin(), want.end(), got.begin(), got.end()).first - want.begin();
  std::size_t line = want.rfind('\n', at == 0 ? 0 : at - 1);
  line = line == std::string::npos ? 0 : line + 1;
  std::size_t from = std::max(line, at < 60 ? 0 : at - 60);
  auto around = [&](std::string const& s) {
    return s.substr(from, std::min(s.find('\n', from), at + 60) - from);
  };
  return want.substr(line, want.find(" = ", line) - line) + "\n  source: ..." + around(want) +
         "\n  mirror: ..." + around(got);
}

}  // namespace LldpTest
