#include "Kel/EventLog.h"

#include <cstdio>
#include <memory>
#include <new>
#include <vector>
#include <ostream>

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
  // The sink and the clock in force (null: the defaults), read without the lock on every
  // emission. One replaced stays alive till the process ends, in `kept`: an emission in
  // another thread may still be calling it, and sinks are replaced a handful of times.
  std::atomic<Sink const*> sink{nullptr};
  std::atomic<Clock const*> clock{nullptr};
  std::vector<std::unique_ptr<Sink const>> keptSinks;
  std::vector<std::unique_ptr<Clock const>> keptClocks;
  std::multimap<std::string_view, HandleBase const*, std::less<>> handles;  // keys view the handles' names
};

// Puts `next` in force in `slot` (kept alive in `kept`) and returns what was.
template <class F>
F replace(std::atomic<F const*>& slot, std::vector<std::unique_ptr<F const>>& kept, F next) {
  F const* const put = next ? kept.emplace_back(std::make_unique<F const>(std::move(next))).get() : nullptr;
  F const* const was = slot.exchange(put, std::memory_order_acq_rel);
  return was ? *was : F();
}

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
  return replace(g.sink, g.keptSinks, std::move(sink));
}

Clock clockIs(Clock clock) {
  Global& g = global();
  std::lock_guard lock(g.mutex);
  return replace(g.clock, g.keptClocks, std::move(clock));
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

// log() passes either no deferred arguments or one per argument.
Text::Text(const char* format, std::span<const Printf::Arg> args, std::span<const Deferred> deferred)
    : format_(format),
      count_(static_cast<std::uint8_t>(args.size())),
      viewArgs_(args.data()),
      viewDeferred_(deferred.size() == args.size() ? deferred.data() : nullptr) {}

void Text::adopt(Text const& o) {
  format_ = o.format_;
  count_ = o.count_;
  text_ = o.text_;
  made_ = o.made_;
  // The string arguments end to end in owned_, then the views move onto them: the
  // caller's own buffers and deferred contexts are gone once log() returns.
  std::string owned;
  std::array<std::size_t, maxArgs> at{};
  std::span<const Printf::Arg> const from = o.args();
  viewArgs_ = nullptr;
  viewDeferred_ = nullptr;
  for (std::size_t i = 0; i < count_; ++i) {
    ::new (&args_.a[i]) Printf::Arg(from[i]);
    ::new (&deferred_.a[i]) Deferred{nullptr, nullptr};
    at[i] = owned.size();
    if (Deferred const d = o.deferredAt(i); d.render)
      d.render(d.ctx, owned);
    else if (from[i].kind == Printf::Arg::Kind::String)
      owned += from[i].text;
  }
  owned_ = std::move(owned);
  for (std::size_t i = 0; i < count_; ++i)
    if (args_.a[i].kind == Printf::Arg::Kind::String)
      args_.a[i].text = std::string_view(owned_).substr(at[i], (i + 1 < count_ ? at[i + 1] : owned_.size()) - at[i]);
}

String const& Text::str() const {
  if (made_) return text_;
  std::array<Printf::Arg, maxArgs> args;
  std::array<std::string, maxArgs> made;
  std::span<const Printf::Arg> const given = this->args();
  for (std::size_t i = 0; i < count_; ++i) {
    args[i] = given[i];
    if (Deferred const d = deferredAt(i); d.render) {
      d.render(d.ctx, made[i]);
      args[i].text = made[i];
    }
  }
  text_ = String(Printf::render(format_ ? format_ : "", std::span<const Printf::Arg>(args.data(), count_)));
  made_ = true;
  return text_;
}

std::ostream& operator<<(std::ostream& os, Text const& t) { return os << t.str(); }

String HandleBase::textArgs(std::span<const Printf::Arg> args) const {
  return String(Printf::render(format_.c_str(), args));
}

bool HandleBase::logArgs(std::span<const Printf::Arg> args, std::span<const Deferred> deferred) const {
  // Made in place: moving a text that views the caller's arguments would copy them.
  Record record(this, format_.c_str(), args, deferred);
  Text const& text = record.text;

  Global& g = global();
  Clock const* const clock = g.clock.load(std::memory_order_acquire);
  Seconds const t = clock ? (*clock)() : now();

  std::uint64_t suppressedBefore = 0;
  if (repeatInterval_ > 0) {
    std::lock_guard lock(mutex_);
    String const& made = text.str();  // repeats are told apart by their text
    auto it = lastSeen_.find(made);
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
      lastSeen_.emplace(made, LastSeen{t, 0});
    }
  }

  record.time = t;
  record.suppressedBefore = suppressedBefore;
  if (Sink const* const sink = g.sink.load(std::memory_order_acquire))
    (*sink)(record);
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
