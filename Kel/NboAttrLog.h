#pragma once
// NboAttrLog: the framework's network-byte-order attribute log. Out appends
// primitives to a byte buffer; In reads them back with bounds checks.
// (The byte layout of each primitive is documented beside its writer in NboAttrLog.cpp.)
#include <cstddef>
#include <cstdint>

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

  void putU8(std::uint8_t v);
  void putU16(std::uint16_t v);
  void putU32(std::uint32_t v);
  void putU64(std::uint64_t v);
  void putS32(std::int32_t v);
  void putS64(std::int64_t v);
  void putBool(bool v);
  void putDouble(double v);
  void putString(String const& v);
  void putToken(TransactToken t);
  // Starts a record for one attribute: writes the attribute id.
  void putAttributeId(AttributeId id);

  String const& bytes() const noexcept { return buf_; }
  std::size_t size() const noexcept { return buf_.size(); }
  void clear() noexcept { buf_.clear(); }
  // Drops what was written after the first n bytes: a writer that fails half-way takes
  // its partial record back.
  void truncate(std::size_t n) noexcept { buf_.truncate(n); }
  // Overwrites the u32 at byte offset `at` (a length written before it was known).
  void patchU32(std::size_t at, std::uint32_t v) noexcept;
  // Drops the first n bytes.
  void erasePrefix(std::size_t n) { buf_.stdString().erase(0, n); }

 private:
  String buf_;
};

Out& operator<<(Out& o, unsigned char v);
Out& operator<<(Out& o, unsigned short v);
Out& operator<<(Out& o, unsigned int v);
Out& operator<<(Out& o, unsigned long v);       // u64
Out& operator<<(Out& o, unsigned long long v);  // u64
Out& operator<<(Out& o, int v);
Out& operator<<(Out& o, long v);       // s64
Out& operator<<(Out& o, long long v);  // s64
Out& operator<<(Out& o, bool v);
Out& operator<<(Out& o, double v);
Out& operator<<(Out& o, String const& v);
Out& operator<<(Out& o, Out::TransactToken t);

// Reads from a byte range it does not own. Every read is bounds-checked: a truncated
// or corrupt stream raises AttrLogException naming what was being read and where.
class In {
 public:
  In(const char* data, std::size_t size) : data_(data), size_(size) {}
  explicit In(String const& bytes) : In(bytes.data(), bytes.size()) {}
  // In does not own its bytes: reading a temporary would dangle.
  explicit In(String&&) = delete;

  std::uint8_t nextU8();
  std::uint16_t nextU16();
  std::uint32_t nextU32();
  std::uint64_t nextU64();
  std::int32_t nextS32();
  std::int64_t nextS64();
  bool nextbool();
  double nextDouble();
  Seconds nextSeconds() { return nextDouble(); }
  String nextString();
  Out::TransactToken nextToken();
  AttributeId nextAttributeId();

  std::size_t position() const noexcept { return pos_; }
  std::size_t remaining() const noexcept { return size_ - pos_; }
  bool atEnd() const noexcept { return pos_ == size_; }

 private:
  const char* take(std::size_t n, const char* what);
  const char* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

}  // namespace NboAttrLog
}  // namespace Kel
