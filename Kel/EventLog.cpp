#include "Kel/EventLog.h"

#include <cstdio>

namespace Kel::EventLog {

namespace {

void writeToStderr(Record const& r) {
  String line = format("%s[%d]: ", r.handle->name().c_str(), r.handle->severity());
  line += r.text;
  if (r.suppressedBefore) line += format(" (%llu similar messages suppressed)",
                                         static_cast<unsigned long long>(r.suppressedBefore));
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

// Process-wide state, created on first use so that handles created by static
// initialisers of any library find it, and never destroyed so that messages emitted
// from static destructors still work.
struct Global {
  std::mutex mutex;
  Sink sink;
  Clock clock;
  std::multimap<std::string_view, HandleBase const*, std::less<>> handles;  // keys view the handles' names
};

Global& global() {
  static Global* g = new Global;
  return *g;
}

// Entries older than their interval suppress nothing; dropping them keeps the table
// as small as the set of texts seen within one interval.
constexpr std::size_t pruneThreshold = 256;

}  // namespace

Sink sinkIs(Sink sink) {
  Global& g = global();
  std::lock_guard lock(g.mutex);
  std::swap(g.sink, sink);
  return sink;
}

Clock clockIs(Clock clock) {
  Global& g = global();
  std::lock_guard lock(g.mutex);
  std::swap(g.clock, clock);
  return clock;
}

HandleBase::HandleBase(String name, int severity, const char* format, String explanation, String recommendedAction,
                       Seconds repeatInterval, double param, int flag)
    : name_(std::move(name)),
      severity_(severity),
      format_(format),
      explanation_(std::move(explanation)),
      recommendedAction_(std::move(recommendedAction)),
      repeatInterval_(repeatInterval),
      param_(param),
      flag_(flag) {
  Global& g = global();
  std::lock_guard lock(g.mutex);
  g.handles.emplace(name_.view(), this);
}

HandleBase::~HandleBase() {
  Global& g = global();
  std::lock_guard lock(g.mutex);
  auto [b, e] = g.handles.equal_range(name_.view());
  for (auto it = b; it != e; ++it)
    if (it->second == this) {
      g.handles.erase(it);
      break;
    }
}

String HandleBase::textArgs(std::span<const Printf::Arg> args) const {
  return String(Printf::render(format_.c_str(), args));
}

bool HandleBase::logArgs(std::span<const Printf::Arg> args) const {
  String text = textArgs(args);

  Global& g = global();
  Clock clock;
  {
    std::lock_guard lock(g.mutex);
    clock = g.clock;
  }
  Seconds t = clock ? clock() : now();

  std::uint64_t suppressedBefore = 0;
  if (repeatInterval_ > 0) {
    std::lock_guard lock(mutex_);
    auto it = lastSeen_.find(text);
    if (it != lastSeen_.end()) {
      Seconds elapsed = t - it->second.time;
      // A clock stepped backwards (elapsed < 0) must not silence the message for long.
      if (elapsed >= 0 && elapsed < repeatInterval_) {
        ++it->second.suppressed;
        suppressed_.fetch_add(1, std::memory_order_relaxed);
        return false;
      }
      suppressedBefore = it->second.suppressed;
      it->second = {t, 0};
    } else {
      if (lastSeen_.size() >= pruneThreshold)
        std::erase_if(lastSeen_, [&](auto const& kv) { return !(t - kv.second.time < repeatInterval_); });
      lastSeen_.emplace(text, LastSeen{t, 0});
    }
  }

  // Fetched only now: a flood of suppressed messages does not copy the sink each time.
  Sink sink;
  {
    std::lock_guard lock(g.mutex);
    sink = g.sink;
  }
  Record record{this, std::move(text), t, suppressedBefore};
  if (sink)
    sink(record);
  else
    writeToStderr(record);
  return true;
}

HandleBase const* handle(std::string_view name) noexcept {
  Global& g = global();
  std::lock_guard lock(g.mutex);
  auto it = g.handles.lower_bound(name);  // equal names keep their creation order
  return it == g.handles.end() || it->first != name ? nullptr : it->second;
}

}  // namespace Kel::EventLog
