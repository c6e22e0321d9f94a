#include "Kel/NboAttrLog.h"

#include <cstring>
#include <limits>

// Every multi-byte integer goes most significant byte first (network byte order),
// whatever the host's order, so that logs are portable between processes and hosts.
// Signed integers are their two's complement bit pattern in the unsigned field of the
// same width. Nothing is aligned or padded: each primitive starts right after the
// previous one, and no primitive carries a type tag, so the reader must know the
// sequence it expects.

namespace Kel::NboAttrLog {

namespace {

template <class U>
void putBigEndian(String& buf, U v) {
  char bytes[sizeof(U)];
  for (std::size_t i = 0; i < sizeof(U); ++i)
    bytes[i] = static_cast<char>(static_cast<unsigned char>(v >> (8 * (sizeof(U) - 1 - i))));
  buf.stdString().append(bytes, sizeof(U));
}

template <class U>
U getBigEndian(const char* p) {
  U v = 0;
  for (std::size_t i = 0; i < sizeof(U); ++i)
    v = static_cast<U>((v << 8) | static_cast<unsigned char>(p[i]));
  return v;
}

}  // namespace

// ---- writers, each with its byte layout ----------------------------------------------

// u8: one byte.
void Out::putU8(std::uint8_t v) { buf_ += static_cast<char>(v); }

// u16: two bytes, big-endian (0x1234 -> 12 34).
void Out::putU16(std::uint16_t v) { putBigEndian(buf_, v); }

// u32: four bytes, big-endian (0x01020304 -> 01 02 03 04).
void Out::putU32(std::uint32_t v) { putBigEndian(buf_, v); }

void Out::patchU32(std::size_t at, std::uint32_t v) noexcept {
  for (std::size_t i = 0; i < 4; ++i) buf_.stdString()[at + i] = static_cast<char>(static_cast<unsigned char>(v >> (24 - 8 * i)));
}

// u64: eight bytes, big-endian.
void Out::putU64(std::uint64_t v) { putBigEndian(buf_, v); }

// s32: the two's complement bits as a u32 (-2 -> ff ff ff fe).
void Out::putS32(std::int32_t v) { putU32(static_cast<std::uint32_t>(v)); }

// s64: the two's complement bits as a u64.
void Out::putS64(std::int64_t v) { putU64(static_cast<std::uint64_t>(v)); }

// bool: one byte, 00 for false and 01 for true. A reader treats any other byte as corrupt.
void Out::putBool(bool v) { putU8(v ? 1 : 0); }

// double (also Seconds): the IEEE-754 binary64 bit pattern as a u64, so every value,
// including -0.0, infinities and NaN payloads, reads back bit for bit (1.0 -> 3f f0 00 ..).
void Out::putDouble(double v) {
  static_assert(sizeof(double) == sizeof(std::uint64_t) && std::numeric_limits<double>::is_iec559);
  std::uint64_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  putU64(bits);
}

// string: a u32 byte count, then the bytes unchanged (any value, embedded zeros too);
// no terminator ("ab" -> 00 00 00 02 61 62).
void Out::putString(String const& v) {
  if (v.size() > std::numeric_limits<std::uint32_t>::max())
    throw AttrLogException(format("NboAttrLog::Out: string of %zu bytes exceeds the u32 length field",
                                  v.size()));
  putU32(static_cast<std::uint32_t>(v.size()));
  buf_ += v.view();
}

// transaction token: one byte, 01 begin, 02 end of a record. Other bytes are corrupt.
void Out::putToken(TransactToken t) { putU8(static_cast<std::uint8_t>(t)); }

// attribute id: a u32.
void Out::putAttributeId(AttributeId id) { putU32(id); }

Out& operator<<(Out& o, unsigned char v) { o.putU8(v); return o; }
Out& operator<<(Out& o, unsigned short v) { o.putU16(v); return o; }
Out& operator<<(Out& o, unsigned int v) { o.putU32(v); return o; }
Out& operator<<(Out& o, unsigned long v) { o.putU64(v); return o; }
Out& operator<<(Out& o, unsigned long long v) { o.putU64(v); return o; }
Out& operator<<(Out& o, int v) { o.putS32(v); return o; }
Out& operator<<(Out& o, long v) { o.putS64(v); return o; }
Out& operator<<(Out& o, long long v) { o.putS64(v); return o; }
Out& operator<<(Out& o, bool v) { o.putBool(v); return o; }
Out& operator<<(Out& o, double v) { o.putDouble(v); return o; }
Out& operator<<(Out& o, String const& v) { o.putString(v); return o; }
Out& operator<<(Out& o, Out::TransactToken t) { o.putToken(t); return o; }

// ---- readers ---------------------------------------------------------------------------

// A refused read (truncated or corrupt) leaves the position at the primitive's start.
const char* In::take(std::size_t n, const char* what) {
  if (n > remaining())
    throw AttrLogException(format("NboAttrLog::In: truncated %s at offset %zu (%zu bytes left)", what,
                                  pos_, remaining()));
  const char* p = data_ + pos_;
  pos_ += n;
  return p;
}

std::uint8_t In::nextU8() { return static_cast<std::uint8_t>(*take(1, "u8")); }
std::uint16_t In::nextU16() { return getBigEndian<std::uint16_t>(take(2, "u16")); }
std::uint32_t In::nextU32() { return getBigEndian<std::uint32_t>(take(4, "u32")); }
std::uint64_t In::nextU64() { return getBigEndian<std::uint64_t>(take(8, "u64")); }
std::int32_t In::nextS32() { return static_cast<std::int32_t>(getBigEndian<std::uint32_t>(take(4, "s32"))); }
std::int64_t In::nextS64() { return static_cast<std::int64_t>(getBigEndian<std::uint64_t>(take(8, "s64"))); }

bool In::nextbool() {
  std::size_t at = pos_;
  auto b = static_cast<unsigned char>(*take(1, "bool"));
  if (b > 1) {
    pos_ = at;  // a refused read consumes nothing
    throw AttrLogException(format("NboAttrLog::In: corrupt bool 0x%02x at offset %zu (expected 0 or 1)", b, at));
  }
  return b == 1;
}

double In::nextDouble() {
  std::uint64_t bits = getBigEndian<std::uint64_t>(take(8, "double"));
  double v;
  std::memcpy(&v, &bits, sizeof v);
  return v;
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

AttributeId In::nextAttributeId() { return getBigEndian<std::uint32_t>(take(4, "attribute id")); }

}  // namespace Kel::NboAttrLog
