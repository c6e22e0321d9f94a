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
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "FuzzUtil.h"
#include "Kel/AttrLogStream.h"
#include "Lldp/Lldp.h"
#include "Lldp/ModelSupport.h"

namespace {

using namespace Lldp;
using Kel::NboAttrLog::Stream;
using LldpTest::treeText;
using Fuzz::check;

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
    applyAll(s, Fuzz::exactCopy(data + at, n).get(), n);
    at += n;
  }
}

void fromStream(const std::uint8_t* data, std::size_t size, std::uint8_t seed, bool readOnly) {
  Kel::Ptr<Stream> chunked(new Stream());
  chunked->readOnlyRemoteIs(readOnly);
  applyInChunks(*chunked, data, size, seed);
  std::string text = treeText(chunked->roots());

  Kel::Ptr<Stream> whole(new Stream());
  whole->readOnlyRemoteIs(readOnly);
  applyAll(*whole, Fuzz::exactCopy(data, size).get(), size);
  check(treeText(whole->roots()) == text);

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
  check(treeText(second->roots(), false) == treeText(chunked->roots(), false));
}

// ---- values

template <class T>
void fromLog(const std::uint8_t* data, std::size_t size) {
  auto const copy = Fuzz::exactCopy(data, size);
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
