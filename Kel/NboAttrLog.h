#pragma once
// NboAttrLog: the framework's network-byte-order attribute log. Out appends
// primitives to a byte buffer; In reads them back with bounds checks.
// (The byte layout of each primitive is documented in NboAttrLog.cpp.)
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Kel/Exception.h"
#include "Kel/String.h"

namespace Kel {

// Also declared by Kel/Type.h; repeated here so that value headers need not pull in the
// descriptors.
using AttributeId = std::uint32_t;

// Tag that selects the attribute-log reading constructor of a value type: X(In*, StreamBogon).
struct StreamBogon {};

namespace NboAttrLog {

class Out {
 public:
  // Transaction markers; 2 ends one log record.
  enum class TransactToken : std::uint8_t { begin = 1, end = 2 };

  // Inline: a record is a handful of primitives, and a call each costs more than the bytes.
  void putU8(std::uint8_t v) { buf_.push_back(static_cast<char>(v)); }
  void putU16(std::uint16_t v) { putBigEndian(v); }
  void putU32(std::uint32_t v) { putBigEndian(v); }
  void putU64(std::uint64_t v) { putBigEndian(v); }
  void putS32(std::int32_t v) { putU32(static_cast<std::uint32_t>(v)); }
  void putS64(std::int64_t v) { putU64(static_cast<std::uint64_t>(v)); }
  void putBool(bool v) { putU8(v ? 1 : 0); }
  void putDouble(double v) {
    static_assert(sizeof(double) == sizeof(std::uint64_t));
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    putU64(bits);
  }
  void putString(String const& v) {
    if (v.size() > 0xffffffffu) failStringTooLong(v.size());
    putU32(static_cast<std::uint32_t>(v.size()));
    buf_.append(v.data(), v.size());
  }
  void putToken(TransactToken t) { putU8(static_cast<std::uint8_t>(t)); }
  // Starts a record for one attribute: writes the attribute id.
  void putAttributeId(AttributeId id) { putU32(id); }

  String const& bytes() const noexcept { return buf_; }
  std::size_t size() const noexcept { return buf_.size(); }
  void clear() noexcept { buf_.clear(); }
  // Drops what was written after the first n bytes: a writer that fails half-way takes
  // its partial record back.
  void truncate(std::size_t n) noexcept { buf_.truncate(n); }
  // Overwrites the u32 at byte offset `at` (a length written before it was known).
  void patchU32(std::size_t at, std::uint32_t v) noexcept;
  // Drops the first n bytes.
  void erasePrefix(std::size_t n) { buf_.erasePrefix(n); }

 private:
  template <class U>
  void putBigEndian(U v) {
    char bytes[sizeof(U)];
    for (std::size_t i = 0; i < sizeof(U); ++i)
      bytes[i] = static_cast<char>(static_cast<unsigned char>(v >> (8 * (sizeof(U) - 1 - i))));
    buf_.append(bytes, sizeof(U));
  }
  [[noreturn]] static void failStringTooLong(std::size_t size);
  String buf_;
};

inline Out& operator<<(Out& o, unsigned char v) { o.putU8(v); return o; }
inline Out& operator<<(Out& o, unsigned short v) { o.putU16(v); return o; }
inline Out& operator<<(Out& o, unsigned int v) { o.putU32(v); return o; }
inline Out& operator<<(Out& o, unsigned long v) { o.putU64(v); return o; }       // u64
inline Out& operator<<(Out& o, unsigned long long v) { o.putU64(v); return o; }  // u64
inline Out& operator<<(Out& o, int v) { o.putS32(v); return o; }
inline Out& operator<<(Out& o, long v) { o.putS64(v); return o; }       // s64
inline Out& operator<<(Out& o, long long v) { o.putS64(v); return o; }  // s64
inline Out& operator<<(Out& o, bool v) { o.putBool(v); return o; }
inline Out& operator<<(Out& o, double v) { o.putDouble(v); return o; }
inline Out& operator<<(Out& o, String const& v) { o.putString(v); return o; }
inline Out& operator<<(Out& o, Out::TransactToken t) { o.putToken(t); return o; }

// Reads from a byte range it does not own. Every read is bounds-checked: a truncated
// or corrupt stream raises AttrLogException naming what was being read and where.
class In {
 public:
  In(const char* data, std::size_t size) : data_(data), size_(size) {}
  explicit In(String const& bytes) : In(bytes.data(), bytes.size()) {}
  // In does not own its bytes: reading a temporary would dangle.
  explicit In(String&&) = delete;

  std::uint8_t nextU8() { return static_cast<std::uint8_t>(*take(1, "u8")); }
  std::uint16_t nextU16() { return getBigEndian<std::uint16_t>(take(2, "u16")); }
  std::uint32_t nextU32() { return getBigEndian<std::uint32_t>(take(4, "u32")); }
  std::uint64_t nextU64() { return getBigEndian<std::uint64_t>(take(8, "u64")); }
  std::int32_t nextS32() { return static_cast<std::int32_t>(getBigEndian<std::uint32_t>(take(4, "s32"))); }
  std::int64_t nextS64() { return static_cast<std::int64_t>(getBigEndian<std::uint64_t>(take(8, "s64"))); }
  bool nextbool();
  double nextDouble() {
    std::uint64_t bits = getBigEndian<std::uint64_t>(take(8, "double"));
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }
  Seconds nextSeconds() { return nextDouble(); }
  String nextString();
  Out::TransactToken nextToken();
  AttributeId nextAttributeId() { return getBigEndian<std::uint32_t>(take(4, "attribute id")); }

  std::size_t position() const noexcept { return pos_; }
  std::size_t remaining() const noexcept { return size_ - pos_; }
  bool atEnd() const noexcept { return pos_ == size_; }

 private:
  // A refused read (truncated or corrupt) leaves the position at the primitive's start.
  const char* take(std::size_t n, const char* what) {
    if (n > remaining()) [[unlikely]]
      failTruncated(what);
    const char* p = data_ + pos_;
    pos_ += n;
    return p;
  }
  [[noreturn]] void failTruncated(const char* what) const;
  template <class U>
  static U getBigEndian(const char* p) noexcept {
    U v = 0;
    for (std::size_t i = 0; i < sizeof(U); ++i) v = static_cast<U>((v << 8) | static_cast<unsigned char>(p[i]));
    return v;
  }
  const char* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Kel
