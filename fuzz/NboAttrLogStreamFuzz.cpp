// Arbitrary bytes on the reading side of the attribute log. The first byte picks what
// reads them:
//   even: a reading Stream, fed in chunks whose sizes the second byte seeds. The trees it
//         builds must print, must be the same as when the bytes arrive in one piece, and
//         must stream on to a second mirror that prints the same, references aside;
//   odd:  the log constructor of the value type the second byte picks; what it accepts
//         must write back and read again to the same bytes.
// Bad input may only raise a Kel exception; every chunk and value is read from a buffer of
// its exact size, so that a read past its end is reported.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/AttrLogStream.h"
#include "Lldp/Lldp.h"
#include "Lldp/ModelTypes.h"

namespace {

using namespace Lldp;
using Kel::NboAttrLog::Stream;

void check(bool ok) {
  if (!ok) std::abort();
}

// ---- the text of a mirror: every attribute of every entity, children in key order

template <class C>
auto sortedKeys(C const& c) {
  auto keys = c.keys();
  std::sort(keys.begin(), keys.end(), [](auto const& a, auto const& b) {
    return valueToStrep(a).stdString() < valueToStrep(b).stdString();
  });
  return keys;
}

std::string who(Kel::Entity const* e) {
  if (!e) return "none";
  return e->fullName().stdString() + (e->parent() ? "" : " (detached)");
}

// Whether the text shows references to other entities (and what is computed from them).
bool withReferences = true;

template <class E>
bool isReference(Kel::AttributeId id) {
  if constexpr (std::is_same_v<E, PortStatus>) return id == PortStatus::AttrId::remoteSystemByMsap;
  if constexpr (std::is_same_v<E, AllStatus>) return id == AllStatus::AttrId::portStatus;
  if constexpr (std::is_same_v<E, ExternalTlvConfig>) return id == ExternalTlvConfig::AttrId::externalTlvPortConfig;
  if constexpr (std::is_same_v<E, LocalPortPoeInfo>)
    return id == LocalPortPoeInfo::AttrId::remoteSystem || id == LocalPortPoeInfo::AttrId::readyToSendTlv;
  return false;
}

template <class E>
void attrs(std::string& out, E const& e) {
  std::vector<Kel::KelType const*> chain;
  for (Kel::KelType const* t = &E::_kelType; t; t = t->base()) chain.insert(chain.begin(), t);
  out += who(&e) + "\n";
  for (auto const* t : chain)
    for (auto const& a : t->attrs()) {
      // When a mirror made its status, not a streamed value: it differs between mirrors.
      if (std::is_same_v<E, RemTablesStatus> && a.id == RemTablesStatus::AttrId::remTablesLastClearTime) continue;
      if (!withReferences && isReference<E>(a.id)) continue;
      // The derived multiplier divides by the interval without a guard, and the interval's
      // setter stores a refused 0 before it throws.
      if constexpr (std::is_same_v<E, Config>)
        if (a.id == Config::AttrId::messageTxHoldMultiplier && e.messageTxInterval() == 0) continue;
      out += std::string(" ") + a.name + " = " + e.kelAttributeText(a.id).stdString() + "\n";
    }
}

void dump(std::string& out, Kel::Entity const& e);

template <class C>
void children(std::string& out, C const& coll) {
  for (auto const& k : sortedKeys(coll)) dump(out, *coll.find(k));
}
template <class C>
void references(std::string& out, C const& coll) {
  if (withReferences)
    for (auto const& k : sortedKeys(coll)) out += " ref " + valueToStrep(k).stdString() + " -> " + who(coll.find(k)->get()) + "\n";
}

void dump(std::string& out, Kel::Entity const& e) {
  if (auto const* x = dynamic_cast<Status const*>(&e)) {
    attrs(out, *x);
    children(out, x->portStatus());
  } else if (auto const* x = dynamic_cast<AllStatus const*>(&e)) {
    attrs(out, *x);
    references(out, x->portStatus());
  } else if (auto const* x = dynamic_cast<StatusBase const*>(&e)) {
    attrs(out, *x);
  } else if (auto const* x = dynamic_cast<PortStatus const*>(&e)) {
    attrs(out, *x);
    children(out, x->remoteSystem());
    references(out, x->remoteSystemByMsap());
  } else if (auto const* x = dynamic_cast<RemoteSystem const*>(&e)) {
    attrs(out, *x);
  } else if (auto const* x = dynamic_cast<Config const*>(&e)) {
    attrs(out, *x);
    children(out, x->portConfig());
  } else if (auto const* x = dynamic_cast<PortConfig const*>(&e)) {
    attrs(out, *x);
  } else if (auto const* x = dynamic_cast<CliConfig const*>(&e)) {
    attrs(out, *x);
    children(out, x->portConfig());
  } else if (auto const* x = dynamic_cast<CliPortConfig const*>(&e)) {
    attrs(out, *x);
  } else if (auto const* x = dynamic_cast<LocalSystem const*>(&e)) {
    attrs(out, *x);
    children(out, x->localPort());
  } else if (auto const* x = dynamic_cast<LocalPort const*>(&e)) {
    attrs(out, *x);
    if (auto poe = x->localPortPoeInfo()) dump(out, *poe);
  } else if (auto const* x = dynamic_cast<LocalPortPoeInfo const*>(&e)) {
    attrs(out, *x);
    if (withReferences) out += " neighbour " + who(x->remoteSystem().get()) + "\n";
  } else if (auto const* x = dynamic_cast<ExternalTlvConfig const*>(&e)) {
    attrs(out, *x);
    children(out, x->portInstance());
    references(out, x->externalTlvPortConfig());
  } else if (auto const* x = dynamic_cast<ExternalTlvPortConfig const*>(&e)) {
    attrs(out, *x);
  } else if (auto const* x = dynamic_cast<RemTablesCliConfig const*>(&e)) {
    attrs(out, *x);
  } else if (auto const* x = dynamic_cast<RemTablesStatus const*>(&e)) {
    attrs(out, *x);
  } else if (auto const* x = dynamic_cast<CounterCheckpoint const*>(&e)) {
    attrs(out, *x);
  } else {
    out += "an entity of another type\n";
  }
}

std::string dumpAll(Stream const& s, bool references = true) {
  withReferences = references;
  std::string out;
  for (auto const& root : s.roots()) dump(out, *root);
  if (!references) {  // the setters take -0.0 for the 0.0 a new entity holds, and keep that
    for (std::size_t at; (at = out.find("-0.0")) != std::string::npos;) out.erase(at, 1);
  }
  return out;
}

// Applies bytes; a refused record is dropped and the records after it still count.
void applyAll(Stream& s, const char* data, std::size_t size) {
  for (bool more = true; more;) {
    try {
      s.apply(data, size);
      more = false;
    } catch (Kel::Exception const&) {
      more = !s.framingLost();
      size = 0;  // what remains is already in the stream
    }
  }
}

// The same bytes in chunks, each in a buffer of its own exact size.
void applyInChunks(Stream& s, const std::uint8_t* data, std::size_t size, std::uint8_t seed) {
  std::uint32_t x = seed * 2654435761u + 1;
  for (std::size_t at = 0; at < size;) {
    x ^= x << 13, x ^= x >> 17, x ^= x << 5;
    std::size_t n = std::min<std::size_t>(size - at, seed == 0 ? size : 1 + x % (4u * seed));
    std::unique_ptr<char[]> chunk(new char[n]);
    std::memcpy(chunk.get(), data + at, n);
    applyAll(s, chunk.get(), n);
    at += n;
  }
}

void fromStream(const std::uint8_t* data, std::size_t size, std::uint8_t seed, bool readOnly) {
  Kel::Ptr<Stream> chunked(new Stream());
  chunked->readOnlyRemoteIs(readOnly);
  applyInChunks(*chunked, data, size, seed);
  std::string text = dumpAll(*chunked);

  Kel::Ptr<Stream> whole(new Stream());
  whole->readOnlyRemoteIs(readOnly);
  std::unique_ptr<char[]> copy(new char[size ? size : 1]);
  std::memcpy(copy.get(), data, size);
  applyAll(*whole, copy.get(), size);
  check(dumpAll(*whole) == text);

  // What a mirror holds must stream on: a second mirror fed from it prints the same. Not
  // its references: a corrupt stream can leave a mirror referring to entities outside its
  // trees, which no stream carries on.
  Kel::Ptr<Stream> second(new Stream());
  {
    Kel::Ptr<Stream> out(new Stream([&](const char* d, std::size_t n) {
      applyAll(*second, d, n);
      return n;
    }));
    for (auto const& root : chunked->roots()) out->streamRoot(root);
    check(out->continueFlowOut());
  }
  check(dumpAll(*second, false) == dumpAll(*chunked, false));
}

// ---- values

template <class T>
void fromLog(const std::uint8_t* data, std::size_t size) {
  std::unique_ptr<char[]> copy(new char[size ? size : 1]);
  std::memcpy(copy.get(), data, size);
  try {
    Kel::NboAttrLog::In in(copy.get(), size);
    T v(&in, Kel::StreamBogon{});
    (void)valueToStrep(v);
    Kel::NboAttrLog::Out out;
    out << v;
    Kel::NboAttrLog::In again(out.bytes());
    T back(&again, Kel::StreamBogon{});
    Kel::NboAttrLog::Out out2;
    out2 << back;
    check(again.atEnd() && out2.bytes() == out.bytes());
  } catch (Kel::Exception const&) {
  }
}

using Civic = LocationId::CivicAddressLCI;
// The model's value types and the platform's and power subsystem's that it carries.
using Values = decltype(std::tuple_cat(
    LldpTest::AllValueTypes{},
    std::tuple<Platform::IntfId, Platform::EthAddr, Platform::VrfName, Platform::VlanId, Platform::VlanIdOrNone,
               Platform::AddressFamilyNumbers, Platform::ObjectIdentifier, Platform::AutoNegCapBits,
               Power::PoePortStatus>{}));

template <std::size_t... I>
void fromLogOf(std::size_t pick, const std::uint8_t* data, std::size_t size, std::index_sequence<I...>) {
  ((pick == I ? fromLog<std::tuple_element_t<I, Values>>(data, size) : void()), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  std::uint8_t mode = data[0], pick = data[1];
  if (mode & 1) {
    constexpr std::size_t n = std::tuple_size_v<Values>;
    fromLogOf(pick % n, data + 2, size - 2, std::make_index_sequence<n>());
  } else {
    fromStream(data + 2, size - 2, pick, (mode & 0x80) != 0);
  }
  return 0;
}
