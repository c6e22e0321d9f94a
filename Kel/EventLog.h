#pragma once
// Event-log messages: named, formatted operator-facing messages with a severity, an
// explanation and a recommended action. Each message is a Handle, usually a static
// object created when its library is loaded. Emitting a handle formats its text and
// hands it to the process-wide sink, unless the same text was emitted less than the
// handle's repeat interval ago.
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string_view>
#include <type_traits>

#include "Kel/String.h"

namespace Kel::EventLog {

// The standard recommended action of messages that need none.
inline constexpr char noActionRequired[] = "No action is required.";

class Handle;

// One emitted message, as a sink sees it.
struct Record {
  Handle const* handle;
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

class Handle {
 public:
  // format is a printf format; its arguments are given to log(). A repeat interval of
  // 0 never suppresses. param and flag are stored for the log consumer's use.
  Handle(String name, int severity, String format, String explanation, String recommendedAction,
         Seconds repeatInterval, double param = 1.0, int flag = 0);
  ~Handle();
  Handle(Handle const&) = delete;
  Handle& operator=(Handle const&) = delete;

  String const& name() const noexcept { return name_; }
  int severity() const noexcept { return severity_; }
  String const& format() const noexcept { return format_; }
  String const& explanation() const noexcept { return explanation_; }
  String const& recommendedAction() const noexcept { return recommendedAction_; }
  Seconds repeatInterval() const noexcept { return repeatInterval_; }
  double param() const noexcept { return param_; }
  int flag() const noexcept { return flag_; }

  // Formats the message with args (numbers, C strings, Kel::String) and emits it.
  // Returns false when it was suppressed by the repeat interval.
  template <class... A>
  bool log(A const&... args) const {
    return logf(0, passable(args)...);
  }

  // The text log() would emit, without emitting it.
  template <class... A>
  String text(A const&... args) const {
    return textf(0, passable(args)...);
  }

  // Messages of this handle dropped by the repeat interval so far.
  std::uint64_t suppressedCount() const noexcept { return suppressed_.load(std::memory_order_relaxed); }

 private:
  // Only what survives C variadic passing unharmed goes through to the formatter.
  template <class T>
  static auto passable(T const& v) {
    if constexpr (std::is_same_v<T, String>) {
      return v.c_str();
    } else {
      static_assert(std::is_arithmetic_v<T> || std::is_pointer_v<T> || std::is_enum_v<T> ||
                        std::is_array_v<T>,
                    "EventLog::Handle::log takes numbers, C strings and Kel::String");
      if constexpr (std::is_array_v<T>)
        return static_cast<std::remove_extent_t<T> const*>(v);
      else if constexpr (std::is_enum_v<T>)
        return static_cast<std::underlying_type_t<T>>(v);
      else
        return v;
    }
  }
  // The leading int only anchors va_start.
  bool logf(int, ...) const;
  String textf(int, ...) const;

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

// The live handle with this name (the first one created when several share it), or null.
Handle const* handle(std::string_view name) noexcept;

}  // namespace Kel::EventLog
