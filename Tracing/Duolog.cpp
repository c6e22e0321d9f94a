#include "Tracing/Duolog.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "Kel/Exception.h"

namespace Duolog {

namespace {

// Handles are never destroyed: code traces from static destructors and other threads.
struct Registry {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Handle>, std::less<>> handles;
};

Registry& registry() {
  static Registry* const r = new Registry;
  return *r;
}

struct Output {
  std::mutex mutex;
  Sink sink;
  std::FILE* file = nullptr;  // nullptr until the first line or fileIs
};

Output& output() {
  static Output* const o = new Output;
  return *o;
}

std::FILE* openOrThrow(std::string const& path) {
  std::FILE* f = std::fopen(path.c_str(), "a");
  if (!f) {
    throw Kel::Exception(Kel::String("Duolog trace file '") + Kel::String(path) + "' cannot be opened: " +
                         std::strerror(errno));
  }
  std::setvbuf(f, nullptr, _IOLBF, 0);
  return f;
}

// Called with the output lock held.
std::FILE* traceFile(Output& o) {
  if (o.file) return o.file;
  o.file = stderr;
  if (const char* path = std::getenv(fileVariable); path && *path) {
    try {
      o.file = openOrThrow(path);
    } catch (Kel::Exception const& e) {
      std::fprintf(stderr, "%s; tracing to stderr\n", e.what());
    }
  }
  return o.file;
}

void emit(Line const& line) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  if (o.sink) {
    o.sink(line);
    return;
  }
  std::string text = textOf(line);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), traceFile(o));
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
  return s;
}

bool validName(std::string_view name) {
  if (name.empty()) return false;
  for (char c : name) {
    if (c == ',' || c == '/' || c == '*' || isSpace(c)) return false;
  }
  return true;
}

// A pattern is a name, optionally ending in '*', or "*" alone.
bool validPattern(std::string_view p) {
  if (p == "*") return true;
  if (!p.empty() && p.back() == '*') p.remove_suffix(1);
  return validName(p);
}

}  // namespace

void Handle::writeArgs(int level, const char* format, std::span<const Brisklog::Arg> args, bool text) noexcept {
  Brisklog::ring().write(name_.c_str(), level, format, args);
  if (!text) return;
  try {
    std::string message = Brisklog::render(format, args);
    emit(Line{name_, level, message});
  } catch (...) {
    // Dropped: see the header.
  }
}

Handle& handle(std::string_view name) {
  if (!validName(name)) {
    Kel::throwRangeException(Kel::String("Duolog::handle name '") + Kel::String(name) +
                             "' must be non-empty without ',', '/', '*' or spaces");
  }
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  if (auto it = r.handles.find(name); it != r.handles.end()) return *it->second;
  int level = defaultLevel;
  if (const char* env = std::getenv(levelVariable)) {
    level = levelFor(parseLevelSettings(env), name).value_or(defaultLevel);
  }
  auto [it, inserted] = r.handles.emplace(std::string(name), std::unique_ptr<Handle>(new Handle(std::string(name), level)));
  return *it->second;
}

void sinkIs(Sink sink) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  o.sink = std::move(sink);
}

void fileIs(std::string const& path) {
  std::FILE* f = path.empty() ? stderr : openOrThrow(path);
  Output& o = output();
  std::lock_guard lock(o.mutex);
  if (o.file && o.file != stderr) std::fclose(o.file);
  o.file = f;
}

std::string textOf(Line const& line) {
  std::string out(line.handle);
  out += ' ';
  out += std::to_string(line.level);
  out += ' ';
  out += line.message;
  return out;
}

std::vector<LevelSetting> parseLevelSettings(std::string_view text) {
  std::vector<LevelSetting> out;
  while (!text.empty()) {
    std::size_t comma = text.find(',');
    std::string_view entry = trim(text.substr(0, comma));
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    if (entry.empty()) continue;
    std::size_t slash = entry.find('/');
    std::string_view pattern = trim(entry.substr(0, slash));
    int level = allLevels;
    if (slash != std::string_view::npos) {
      std::string_view digits = trim(entry.substr(slash + 1));
      if (digits.empty() || digits.front() < '0' || digits.front() > '9') continue;
      auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), level);
      if (ec != std::errc() || end != digits.data() + digits.size()) continue;
    }
    if (!validPattern(pattern)) continue;
    out.push_back(LevelSetting{std::string(pattern), level});
  }
  return out;
}

std::optional<int> levelFor(std::span<const LevelSetting> settings, std::string_view name) {
  std::optional<int> level;
  for (LevelSetting const& s : settings) {
    std::string_view p = s.pattern;
    bool match = (!p.empty() && p.back() == '*') ? name.substr(0, p.size() - 1) == p.substr(0, p.size() - 1)
                                                  : name == p;
    if (match) level = s.level;
  }
  return level;
}

}  // namespace Duolog
