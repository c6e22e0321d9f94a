#pragma once
// Brisklog: a fixed-size in-memory ring of binary trace records.
//
// A record keeps its format and source by pointer (both must outlive the ring: string
// literals, or the names of Duolog handles, which are never destroyed), its level, a
// wall-clock time stamp, and its arguments in binary: integers, doubles and pointers as
// 64-bit values, strings copied and cut to maxStringBytes. Arguments that no longer fit
// the record's payloadBytes are dropped; either cut marks the record truncated(). When
// the ring is full the oldest record is overwritten. Text is only produced when a record
// is read back, so writing costs a time stamp, a lock and a few copies.
//
// Thread-safe: writers and readers serialise on one mutex per ring.
#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "Tracing/Format.h"

namespace Brisklog {

inline constexpr std::size_t maxStringBytes = 120;
inline constexpr std::size_t payloadBytes = 208;

class Record {
 public:
  std::uint64_t sequence() const noexcept { return sequence_; }  // 0 for the first record of a ring
  std::int64_t timeNs() const noexcept { return timeNs_; }        // nanoseconds since the epoch
  const char* source() const noexcept { return source_; }
  int level() const noexcept { return level_; }
  const char* format() const noexcept { return format_; }
  bool truncated() const noexcept { return truncated_; }

  // The stored arguments; their text views point into this record.
  std::vector<Arg> args() const;
  // The format applied to the stored arguments.
  std::string message() const;
  // "<YYYY-MM-DD HH:MM:SS.nnnnnnnnn UTC time> <source> <level> <message>".
  std::string text() const;

 private:
  friend class Ring;
  std::uint64_t sequence_ = 0;
  std::int64_t timeNs_ = 0;
  const char* source_ = "";
  const char* format_ = "";
  std::int32_t level_ = 0;
  std::uint16_t used_ = 0;  // payload bytes in use
  std::uint8_t argCount_ = 0;
  bool truncated_ = false;
  std::array<unsigned char, payloadBytes> payload_{};
};

class Ring {
 public:
  // capacity: the number of records kept; must be at least 1 (Kel::RangeException).
  explicit Ring(std::size_t capacity);
  Ring(Ring const&) = delete;
  Ring& operator=(Ring const&) = delete;

  std::size_t capacity() const noexcept { return capacity_; }
  std::uint64_t written() const;  // records written since construction or clear()
  std::size_t size() const;       // records held now

  void write(const char* source, int level, const char* format, std::span<const Arg> args) noexcept;

  template <typename... A>
  void log(const char* source, int level, Format<std::type_identity_t<A>...> format, A const&... args) noexcept {
    std::array<Arg, sizeof...(A)> argv{argOf(args)...};
    write(source, level, format.text(), argv);
  }

  // The newest `count` records (all by default), oldest first.
  std::vector<Record> records(std::size_t count = std::numeric_limits<std::size_t>::max()) const;
  void clear();
  // One text() line per record, oldest first.
  void dump(std::ostream& os) const;

 private:
  std::size_t const capacity_;
  std::unique_ptr<Record[]> records_;
  std::uint64_t next_ = 0;
  mutable std::mutex mutex_;
};

// The process's ring (ringCapacity records), created on first use and never destroyed,
// so that traces written during static destruction still land.
inline constexpr std::size_t ringCapacity = 4096;
Ring& ring();

}  // namespace Brisklog
