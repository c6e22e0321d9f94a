// Feeds arbitrary text to the text parsers of the model's records (their attribute-log
// readers have NboAttrLogStreamFuzz). Bad input must end in a Kel exception, never a
// crash; whatever is accepted must print and read back to the same text.
#include <cstddef>
#include <cstdint>

#include <tuple>
#include <type_traits>

#include "FuzzUtil.h"
#include "Lldp/ModelTypes.h"

namespace {

using namespace Lldp;

using Fuzz::check;

template <class T>
void fromText(Kel::String const& text) {
  try {
    T v = Kel::strepToValue<T>(text);
    Kel::String printed = valueToStrep(v);
    check(valueToStrep(Kel::strepToValue<T>(printed)) == printed);  // NaN-safe: compares texts
  } catch (Kel::Exception const&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Kel::String input(reinterpret_cast<const char*>(data), size);
  // Every value type but the civic address and LocationId, which holds one: no text
  // parser by design.
  std::apply([&](auto... tag) {
    auto one = [&](auto t) {
      using T = decltype(t);
      if constexpr (!std::is_same_v<T, LocationId::CivicAddressLCI> && !std::is_same_v<T, LocationId>) fromText<T>(input);
    };
    (one(tag), ...);
  }, LldpTest::AllValueTypes{});
  return 0;
}
