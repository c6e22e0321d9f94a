// Reads arbitrary bytes as a sequence of attribute-log primitives. The first byte gives
// the length of a script of primitive kinds, the rest is the stream; the script is
// repeated until the stream ends or is refused. Checks that In never reads outside its
// buffer, refuses bad input only with AttrLogException, and that everything it accepted
// writes back to exactly the bytes it consumed.
#include <cstddef>
#include <cstdint>

#include "FuzzUtil.h"
#include "Kel/NboAttrLog.h"

using namespace Kel::NboAttrLog;

namespace {
constexpr unsigned kinds = 11;

void copyOne(unsigned kind, In& in, Out& out) {
  switch (kind) {
    case 0: out.putU8(in.nextU8()); break;
    case 1: out.putU16(in.nextU16()); break;
    case 2: out.putU32(in.nextU32()); break;
    case 3: out.putU64(in.nextU64()); break;
    case 4: out.putS32(in.nextS32()); break;
    case 5: out.putS64(in.nextS64()); break;
    case 6: out.putBool(in.nextbool()); break;
    case 7: out.putDouble(in.nextSeconds()); break;
    case 8: out.putString(in.nextString()); break;
    case 9: out.putToken(in.nextToken()); break;
    default: out.putAttributeId(in.nextAttributeId()); break;
  }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::size_t scriptLen = data[0];
  if (scriptLen == 0 || scriptLen > size - 1) return 0;
  const std::uint8_t* script = data + 1;
  std::size_t streamSize = size - 1 - scriptLen;

  auto const stream = Fuzz::exactCopy(script + scriptLen, streamSize);

  In in(stream.get(), streamSize);
  Out out;
  for (std::size_t step = 0; !in.atEnd(); ++step) {
    std::size_t before = in.position();
    try {
      copyOne(script[step % scriptLen] % kinds, in, out);
    } catch (Kel::AttrLogException const&) {
      Fuzz::check(in.position() == before);  // a refused read must not consume
      break;
    }
  }
  Fuzz::check(out.bytes() == Kel::String(stream.get(), in.position()));
  return 0;
}
