#pragma once
// Event-log messages: named, formatted operator-facing messages with a severity, an
// explanation and a recommended action. Each message is a Handle, usually a static
// object created when its library is loaded. Emitting a handle hands a record to the
// process-wide sink, unless the same text was emitted less than the handle's repeat
// interval ago. The record keeps the message's arguments and makes its text only when
// it is read, so a sink that drops records costs no formatting (a handle with a repeat
// interval formats at once: its suppression goes by text).
//
// A handle is declared with the types of its format's arguments; the format is checked
// against them at compile time, and log() takes only arguments that suit the same
// conversions (any integer for %d, any string for %s, ...), or for a string a Deferred,
// whose text is made only when the record's text is read or the record copied:
//   EventLog::Handle<String, String> const neighborNew("NEIGHBOR_NEW", 5, "neighbor %s on %s",
//       "A neighbor was added.", EventLog::noActionRequired, 0.0);
//   neighborNew.log(name, intf);
#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "Kel/Printf.h"
#include "Kel/String.h"

namespace Kel::EventLog {

// The standard recommended action of messages that need none.
inline constexpr char noActionRequired[] = "No action is required.";

class HandleBase;

// A string argument made only when needed: render(ctx, out) appends its text to out.
// ctx must stay valid until log() returns.
struct Deferred {
  void (*render)(void const* ctx, std::string& out);
  void const* ctx;
};

// The most arguments a format takes.
inline constexpr std::size_t maxArgs = 8;

// A message's text: its handle's format and the arguments, made on first read. Within the
// sink call it views the caller's arguments; a copy owns copies of them.
class Text {
 public:
  Text() = default;
  explicit Text(String text) : text_(std::move(text)), made_(true) {}
  Text(Text const& o) { adopt(o); }
  Text(Text&& o) { adopt(o); }
  Text& operator=(Text const& o) {
    if (this != &o) adopt(o);
    return *this;
  }
  Text& operator=(Text&& o) {
    if (this != &o) adopt(o);
    return *this;
  }

  String const& str() const;
  operator String const&() const { return str(); }
  std::string_view view() const { return str().view(); }
  std::string const stdString() const { return str().stdString(); }
  // The arguments (string ones as text once the record was copied), for sinks that keep
  // them apart from the text.
  std::span<const Printf::Arg> args() const noexcept { return {viewArgs_ ? viewArgs_ : args_.a.data(), count_}; }

  friend bool operator==(Text const& a, Text const& b) { return a.str() == b.str(); }
  friend bool operator==(Text const& a, String const& b) { return a.str() == b; }
  friend std::ostream& operator<<(std::ostream& os, Text const& t);

 private:
  friend class HandleBase;
  friend struct Record;
  Text(const char* format, std::span<const Printf::Arg> args, std::span<const Deferred> deferred);
  void adopt(Text const& o);

  // The caller's argument i, or the copy's; a Deferred with render null when none.
  Deferred deferredAt(std::size_t i) const noexcept {
    if (viewArgs_) return viewDeferred_ ? viewDeferred_[i] : Deferred{nullptr, nullptr};
    return deferred_.a[i];
  }

  const char* format_ = nullptr;
  std::uint8_t count_ = 0;
  // Within the sink call the caller's arguments, viewed, not copied; null in a copy.
  Printf::Arg const* viewArgs_ = nullptr;
  Deferred const* viewDeferred_ = nullptr;
  // Only the first count_ are written: a message of three arguments pays for three, on
  // every emission.
  template <class T>
  union Slots {
    Slots() noexcept {}
    std::array<T, maxArgs> a;
  };
  Slots<Printf::Arg> args_;
  Slots<Deferred> deferred_;  // render null: the argument is in args_
  std::string owned_;                         // the string arguments a copy holds
  mutable String text_;
  mutable bool made_ = false;
};

// One emitted message, as a sink sees it.
struct Record {
  HandleBase const* handle;
  Text text;                      // the handle's format applied to the arguments
  Seconds time;                   // when it was emitted
  std::uint64_t suppressedBefore; // copies of this text dropped since it was last emitted

 private:
  friend class HandleBase;
  // Made by the handle with its text in place. A constructor rather than braces: the
  // compiler clears a brace-made record (half a kilobyte) before filling it.
  Record(HandleBase const* h, const char* format, std::span<const Printf::Arg> args, std::span<const Deferred> deferred)
      : handle(h), text(format, args, deferred), time(0), suppressedBefore(0) {}
};

using Sink = std::function<void(Record const&)>;
using Clock = std::function<Seconds()>;

// Replaces the sink (an empty one restores the default, which writes one line per
// record to stderr) and returns a copy of the previous one. Emitting reads the sink in
// force without a lock, so a replaced sink is kept, not destroyed, until the process ends:
// what it captured must stay harmless to call until the replacement returns.
Sink sinkIs(Sink sink);
// Replaces the time source used for repeat intervals (empty: Kel::now); returns the previous.
Clock clockIs(Clock clock);

// What every handle has, whatever its arguments; sinks and handle() see this.
class HandleBase {
 public:
  HandleBase(HandleBase const&) = delete;
  HandleBase& operator=(HandleBase const&) = delete;

  String const& name() const noexcept { return name_; }
  int severity() const noexcept { return severity_; }
  String const& format() const noexcept { return format_; }
  String const& explanation() const noexcept { return explanation_; }
  String const& recommendedAction() const noexcept { return recommendedAction_; }
  Seconds repeatInterval() const noexcept { return repeatInterval_; }
  double param() const noexcept { return param_; }
  int flag() const noexcept { return flag_; }

  // Messages of this handle dropped by the repeat interval so far.
  std::uint64_t suppressedCount() const noexcept { return suppressed_.load(std::memory_order_relaxed); }

 protected:
  // A repeat interval of 0 never suppresses. param and flag are stored for the log
  // consumer's use.
  HandleBase(String name, int severity, const char* format, String explanation, String recommendedAction,
             Seconds repeatInterval, double param, int flag);
  ~HandleBase();

  // Emits the message; false when the repeat interval suppressed it.
  bool logArgs(std::span<const Printf::Arg> args, std::span<const Deferred> deferred = {}) const;
  String textArgs(std::span<const Printf::Arg> args) const;

 private:
  String name_;
  int severity_;
  String format_;
  String explanation_;
  String recommendedAction_;
  Seconds repeatInterval_;
  double param_;
  int flag_;

  struct LastSeen {
    Seconds time;
    std::uint64_t suppressed;
  };
  mutable std::mutex mutex_;
  mutable std::map<String, LastSeen> lastSeen_;  // by text: each distinct message has its own interval
  mutable std::atomic<std::uint64_t> suppressed_{0};
};

namespace Detail {
// Whether an argument of type B may stand where the format expects an A.
template <class B, class A>
constexpr bool suits() {
  if constexpr (std::is_same_v<std::remove_cvref_t<B>, Deferred>)
    return Printf::Printable<A> && Printf::kindOf<A>() == Printf::Arg::Kind::String;
  else
    return Printf::interchangeable<B, A>();
}
template <class B>
Printf::Arg argOf(B const& v) noexcept {
  if constexpr (std::is_same_v<B, Deferred>) {
    Printf::Arg a;
    a.kind = Printf::Arg::Kind::String;
    return a;
  } else {
    return Printf::argOf(v);
  }
}
template <class B>
Deferred deferredOf(B const& v) noexcept {
  if constexpr (std::is_same_v<B, Deferred>)
    return v;
  else
    return Deferred{nullptr, nullptr};
}
}  // namespace Detail

// A handle whose format takes arguments of types A (see Kel/Printf.h for the conversions
// each kind of type suits).
template <class... A>
class Handle : public HandleBase {
  static_assert(sizeof...(A) <= maxArgs, "too many arguments for an event-log message");

 public:
  Handle(String name, int severity, Printf::Format<A...> format, String explanation, String recommendedAction,
         Seconds repeatInterval, double param = 1.0, int flag = 0)
      : HandleBase(std::move(name), severity, format.text(), std::move(explanation), std::move(recommendedAction),
                   repeatInterval, param, flag) {}

  // Emits the message with args. Returns false when it was suppressed by the repeat
  // interval.
  template <class... B>
    requires(sizeof...(B) == sizeof...(A) && (Detail::suits<B, A>() && ...))
  bool log(B const&... args) const {
    std::array<Printf::Arg, sizeof...(B)> argv{Detail::argOf(args)...};
    if constexpr ((std::is_same_v<B, Deferred> || ...)) {
      std::array<Deferred, sizeof...(B)> deferred{Detail::deferredOf(args)...};
      return logArgs(argv, deferred);
    } else {
      return logArgs(argv);
    }
  }

  // The text log() would emit, without emitting it.
  template <class... B>
    requires(sizeof...(B) == sizeof...(A) && (Printf::interchangeable<B, A>() && ...))
  String text(B const&... args) const {
    std::array<Printf::Arg, sizeof...(B)> argv{Printf::argOf(args)...};
    return textArgs(argv);
  }
};

// The live handle with this name (the first one created when several share it), or null.
HandleBase const* handle(std::string_view name) noexcept;

}  // namespace Kel::EventLog
