#pragma once
// Event-log messages: named, formatted operator-facing messages with a severity, an
// explanation and a recommended action. Each message is a Handle, usually a static
// object created when its library is loaded. Emitting a handle formats its text and
// hands it to the process-wide sink, unless the same text was emitted less than the
// handle's repeat interval ago.
//
// A handle is declared with the types of its format's arguments; the format is checked
// against them at compile time, and log() takes only arguments that suit the same
// conversions (any integer for %d, any string for %s, ...):
//   EventLog::Handle<String, String> const neighborNew("NEIGHBOR_NEW", 5, "neighbor %s on %s",
//       "A neighbor was added.", EventLog::noActionRequired, 0.0);
//   neighborNew.log(name, intf);
#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <string_view>

#include "Kel/Printf.h"
#include "Kel/String.h"

namespace Kel::EventLog {

// The standard recommended action of messages that need none.
inline constexpr char noActionRequired[] = "No action is required.";

class HandleBase;

// One emitted message, as a sink sees it.
struct Record {
  HandleBase const* handle;
  String text;                    // the handle's format applied to the arguments
  Seconds time;                   // when it was emitted
  std::uint64_t suppressedBefore; // copies of this text dropped since it was last emitted
};

using Sink = std::function<void(Record const&)>;
using Clock = std::function<Seconds()>;

// Replaces the sink (an empty one restores the default, which writes one line per
// record to stderr) and returns the previous one.
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

  // Formats the message and emits it; false when the repeat interval suppressed it.
  bool logArgs(std::span<const Printf::Arg> args) const;
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

// A handle whose format takes arguments of types A (see Kel/Printf.h for the conversions
// each kind of type suits).
template <class... A>
class Handle : public HandleBase {
 public:
  Handle(String name, int severity, Printf::Format<A...> format, String explanation, String recommendedAction,
         Seconds repeatInterval, double param = 1.0, int flag = 0)
      : HandleBase(std::move(name), severity, format.text(), std::move(explanation), std::move(recommendedAction),
                   repeatInterval, param, flag) {}

  // Formats the message with args and emits it. Returns false when it was suppressed by
  // the repeat interval.
  template <class... B>
    requires(sizeof...(B) == sizeof...(A) && (Printf::interchangeable<B, A>() && ...))
  bool log(B const&... args) const {
    std::array<Printf::Arg, sizeof...(B)> argv{Printf::argOf(args)...};
    return logArgs(argv);
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
