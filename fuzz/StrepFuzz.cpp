// Feeds arbitrary text to every text primitive parser. Malformed input must end in a
// Kel exception; whatever parses must print and parse back to the same value.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "FuzzUtil.h"
#include "Kel/EnumType.h"
#include "Kel/Strep.h"

namespace {

using Kel::StrepIt;
using Kel::String;

using Fuzz::check;

// Parses T at the start of text; on success checks that its strep reads back equal.
template <class T>
void roundTrip(String const& text) {
  StrepIt pos = text.begin();
  T v;
  try {
    v = Kel::deserializeAttr<T>(pos, text.end(), "f");
  } catch (Kel::ParseException const&) {
    return;
  } catch (Kel::RangeException const&) {
    return;
  }
  check(pos > text.begin() && pos <= text.end());
  String printed;
  Kel::appendStrep(printed, v);
  T back = Kel::strepToValue<T>(printed);  // the printer's own text must never fail
  if constexpr (std::is_floating_point_v<T>) {
    check(std::isnan(v) ? std::isnan(back) : std::memcmp(&v, &back, sizeof v) == 0);
  } else {
    check(back == v);
  }
}

template <class... T>
void roundTrips(String const& text) {
  (roundTrip<T>(text), ...);
}

Kel::EnumType const fuzzEnum("Fuzz::Enum", {{"alpha", 1}, {"beta_2", 2}, {"Gamma", 7}});

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  String text(reinterpret_cast<const char*>(data), size);
  roundTrips<bool, char, signed char, unsigned char, short, unsigned short, int, unsigned, long, unsigned long,
             long long, unsigned long long, float, double, String>(text);

  // Any byte string survives print and parse.
  check(Kel::strepToValue<String>(Kel::valueToStrep(text)) == text);

  try {
    StrepIt pos = text.begin();
    Kel::needString(pos, text.end(), "Value('Lldp::X', ** {");
    Kel::strepToValueEnd(text, pos);
  } catch (Kel::ParseException const&) {
  }
  try {
    StrepIt pos = text.begin();
    std::uint32_t v = fuzzEnum.parse(pos, text.end());
    check(fuzzEnum.name(v) == String(text.begin(), pos));
  } catch (Kel::RangeException const&) {
  }
  return 0;
}
