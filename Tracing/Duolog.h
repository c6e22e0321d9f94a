#pragma once
// Duolog: named trace handles with levels; every enabled line goes both into the
// Brisklog ring (binary, with its arguments) and into the text trace.
//
// Levels. A handle has a level; a line of level L is written when L <= the handle's
// level. A new handle starts at defaultLevel (0): errors, written at level 0, are on and
// everything else is off. A negative level silences even errors.
//
// Usage:
//   DUOLOG_HANDLE(parserTrace, "MyParser");            // Duolog::Handle& parserTrace()
//   DUOLOG(parserTrace(), 0, "Error: %s is too short (length=%d)", name, size);
//   BRISKLOG(parserTrace(), 6, "decoded %u", value);   // the ring only
//   if (Duolog::enabled(parserTrace(), 6)) { std::string t = costlyText(); DUOLOG(...); }
// A statement whose level is off costs one compare and branch: it neither formats nor
// evaluates its arguments. Formats are printf-style literals checked at compile time
// (see Tracing/Format.h).
//
// Environment, read when a handle is created:
//   TRACE="<entry>,<entry>,..."  each entry <pattern>/<level> or a bare <pattern>
//     <pattern>  a handle name, "*" for every handle, or a prefix ending in "*"
//                ("Lldp*" matches "LldpPoe")
//     <level>    decimal digits; a bare pattern turns on all levels
//     The last entry matching a handle wins: "*/6,LldpPoe/8" puts LldpPoe at 8 and
//     every other handle at 6. Spaces around entries are ignored; a malformed entry
//     (empty pattern, '*' inside a pattern, a level that is not a decimal int) is
//     skipped and the rest still apply.
//   TRACEFILE=<path>  text trace appended to that file instead of stderr; read when the
//     first text line is written (a file that cannot be opened leaves stderr in use).
//
// Text trace. Each line reaches the installed sink as a Line (handle name, level and
// the bare message); without a sink it is written to the trace file as
// "<handle> <level> <message>\n" (textOf). Sinks run under Duolog's output lock, one
// line at a time: a sink must not trace itself.
//
// Trace statements never throw: a line that fails (no memory, a throwing sink) is
// dropped so that tracing cannot change what the traced code does.
#include <array>
#include <atomic>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Tracing/Brisklog.h"
#include "Tracing/Format.h"

namespace Duolog {

inline constexpr int defaultLevel = 0;
inline constexpr int allLevels = std::numeric_limits<int>::max();
inline constexpr const char* levelVariable = "TRACE";
inline constexpr const char* fileVariable = "TRACEFILE";

class Handle;
Handle& handle(std::string_view name);

class Handle {
 public:
  Handle(Handle const&) = delete;
  Handle& operator=(Handle const&) = delete;

  std::string const& name() const noexcept { return name_; }
  int level() const noexcept { return level_.load(std::memory_order_relaxed); }
  void levelIs(int level) noexcept { level_.store(level, std::memory_order_relaxed); }
  bool enabled(int level) const noexcept { return level <= this->level(); }

  // Write a line whatever the level: to the ring and the text trace (write), or to the
  // ring only (writeBrisk). The macros test enabled() first.
  template <typename... A>
  void write(int level, Brisklog::Format<std::type_identity_t<A>...> format, A const&... args) noexcept {
    std::array<Brisklog::Arg, sizeof...(A)> argv{Brisklog::argOf(args)...};
    writeArgs(level, format.text(), argv, true);
  }
  template <typename... A>
  void writeBrisk(int level, Brisklog::Format<std::type_identity_t<A>...> format, A const&... args) noexcept {
    std::array<Brisklog::Arg, sizeof...(A)> argv{Brisklog::argOf(args)...};
    writeArgs(level, format.text(), argv, false);
  }
  // format must outlive the process's ring (a string literal).
  void writeArgs(int level, const char* format, std::span<const Brisklog::Arg> args, bool text) noexcept;

 private:
  friend Handle& handle(std::string_view name);
  Handle(std::string name, int level) : name_(std::move(name)), level_(level) {}

  std::string const name_;
  std::atomic<int> level_;
};

// The handle named `name`, created on the first call (its level from TRACE, else
// defaultLevel) and never destroyed; later calls return the same handle. Thread-safe.
// A name must be non-empty and hold none of ",/*" nor spaces (Kel::RangeException).
Handle& handle(std::string_view name);

inline bool enabled(Handle const& h, int level) noexcept { return h.enabled(level); }

// The text trace.
struct Line {
  std::string_view handle;
  int level;
  std::string_view message;
};
using Sink = std::function<void(Line const&)>;

// Replaces the text output by sink; an empty sink restores the trace file.
void sinkIs(Sink sink);
// Appends the text trace to path from now on; "" means stderr. Throws Kel::Exception
// naming the path when it cannot be opened (the output is then unchanged).
void fileIs(std::string const& path);
// "<handle> <level> <message>", the form written to the trace file (without newline).
std::string textOf(Line const& line);

// The TRACE syntax, for tools and tests.
struct LevelSetting {
  std::string pattern;
  int level;
  friend bool operator==(LevelSetting const&, LevelSetting const&) = default;
};
std::vector<LevelSetting> parseLevelSettings(std::string_view text);
// The level the last matching setting gives to a handle named name, if any.
std::optional<int> levelFor(std::span<const LevelSetting> settings, std::string_view name);

}  // namespace Duolog

// Defines `Duolog::Handle& fn()`, which creates the handle `name` on its first call.
// Inlined so that a statement using fn() adds only the guard's test to its own.
#define DUOLOG_HANDLE(fn, name)                                      \
  [[maybe_unused, gnu::always_inline]] inline static ::Duolog::Handle& fn() { \
    static ::Duolog::Handle& duologHandle_ = ::Duolog::handle(name); \
    return duologHandle_;                                            \
  }

// Calls handle.method(level, format, args...) when level is on for handle; the
// arguments are not evaluated otherwise.
#define DUOLOG_WRITE_(method, handle, level, format, ...)                         \
  do {                                                                             \
    ::Duolog::Handle& duologH_ = (handle);                                         \
    int const duologL_ = (level);                                                  \
    if (duologH_.enabled(duologL_)) [[unlikely]]                                   \
      duologH_.method(duologL_, format __VA_OPT__(, ) __VA_ARGS__);                \
  } while (0)

// A line to the ring and the text trace when level is on for handle.
#define DUOLOG(handle, level, format, ...) \
  DUOLOG_WRITE_(write, handle, level, format __VA_OPT__(, ) __VA_ARGS__)

// A line to the ring only when level is on for handle.
#define BRISKLOG(handle, level, format, ...) \
  DUOLOG_WRITE_(writeBrisk, handle, level, format __VA_OPT__(, ) __VA_ARGS__)
