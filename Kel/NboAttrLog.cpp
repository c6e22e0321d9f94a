#include "Kel/NboAttrLog.h"

#include <limits>

// Every multi-byte integer goes most significant byte first (network byte order),
// whatever the host's order, so that logs are portable between processes and hosts.
// Signed integers are their two's complement bit pattern in the unsigned field of the
// same width. Nothing is aligned or padded: each primitive starts right after the
// previous one, and no primitive carries a type tag, so the reader must know the
// sequence it expects.
//
// The primitives (the fixed-width ones are written and read inline, in NboAttrLog.h):
//   u8                one byte.
//   u16               two bytes, big-endian (0x1234 -> 12 34).
//   u32               four bytes, big-endian (0x01020304 -> 01 02 03 04).
//   u64               eight bytes, big-endian.
//   s32, s64          the two's complement bits as a u32 or u64 (-2 -> ff ff ff fe).
//   bool              one byte, 00 for false and 01 for true; a reader treats any other
//                     byte as corrupt.
//   double, Seconds   the IEEE-754 binary64 bit pattern as a u64, so every value,
//                     including -0.0, infinities and NaN payloads, reads back bit for bit
//                     (1.0 -> 3f f0 00 ..).
//   string            a u32 byte count, then the bytes unchanged (any value, embedded
//                     zeros too); no terminator ("ab" -> 00 00 00 02 61 62).
//   transaction token one byte, 01 begin, 02 end of a record; other bytes are corrupt.
//   attribute id      a u32.

namespace Kel::NboAttrLog {

static_assert(std::numeric_limits<double>::is_iec559, "doubles travel as their IEEE-754 bits");

void Out::failStringTooLong(std::size_t size) {
  throw AttrLogException(format("NboAttrLog::Out: string of %zu bytes exceeds the u32 length field", size));
}

void Out::patchU32(std::size_t at, std::uint32_t v) noexcept {
  for (std::size_t i = 0; i < 4; ++i) buf_.data()[at + i] = static_cast<char>(static_cast<unsigned char>(v >> (24 - 8 * i)));
}

// ---- readers ---------------------------------------------------------------------------

void In::failTruncated(const char* what) const {
  throw AttrLogException(format("NboAttrLog::In: truncated %s at offset %zu (%zu bytes left)", what, pos_,
                                remaining()));
}

bool In::nextbool() {
  std::size_t at = pos_;
  auto b = static_cast<unsigned char>(*take(1, "bool"));
  if (b > 1) {
    pos_ = at;  // a refused read consumes nothing
    throw AttrLogException(format("NboAttrLog::In: corrupt bool 0x%02x at offset %zu (expected 0 or 1)", b, at));
  }
  return b == 1;
}

String In::nextString() {
  std::size_t at = pos_;
  std::uint32_t n = getBigEndian<std::uint32_t>(take(4, "string length"));
  // Check before allocating: a corrupt length must not turn into a 4 GB allocation.
  if (n > remaining()) {
    pos_ = at;
    throw AttrLogException(format("NboAttrLog::In: truncated string at offset %zu (length %u, %zu bytes left)",
                                  at, n, remaining() - 4));
  }
  if (n == 0) return String();
  const char* p = take(n, "string");
  return String(p, n);
}

Out::TransactToken In::nextToken() {
  std::size_t at = pos_;
  auto b = static_cast<unsigned char>(*take(1, "transaction token"));
  if (b != static_cast<unsigned char>(Out::TransactToken::begin) &&
      b != static_cast<unsigned char>(Out::TransactToken::end)) {
    pos_ = at;
    throw AttrLogException(
        format("NboAttrLog::In: corrupt transaction token 0x%02x at offset %zu (expected 1 or 2)", b, at));
  }
  return static_cast<Out::TransactToken>(b);
}

}  // namespace Kel::NboAttrLog
