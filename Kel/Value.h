#pragma once
// Value types declared once. A value type lists its fields (or, for a bit map, its bit
// names) in one macro; everything else (accessors, limits, equality, ordering, hashing,
// the text form and its parser, the attribute-log encoding) is derived here from that
// one table, so a fix to any binding lands in this file for every type.
//
//   class ChassisIdentifier : public Kel::ValueBase {
//     KEL_RECORD(ChassisIdentifier, "Lldp::ChassisIdentifier", Kel::opEq | Kel::opLt,
//                (ChassisIdSubtype, chassisIdSubtype, cidReserved),
//                (ChassisId, chassisId, ))
//   };
//
// A field is (Type, name, default[, limit and options]); an empty default means Type{}.
#include <atomic>
#include <cstdint>
#include <map>
#include <ostream>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/EnumType.h"
#include "Kel/Exception.h"
#include "Kel/NboAttrLog.h"
#include "Kel/Preprocessor.h"
#include "Kel/Strep.h"
#include "Kel/String.h"

namespace Kel {

// Tag base: makes Kel an associated namespace of every declared value type, so the
// generic operators below are found by argument-dependent lookup.
struct ValueBase {};

enum class Shape {
  record,      // Value('Lldp::X', ** {'key': strep, ...})
  wrapper,     // one field, printed as that field's strep
  bitMap,      // a record of bools, one per named bit
};

// Which comparison operators a type offers; equality is always there.
enum : unsigned { opEq = 0, opLt = 1, opHash = 2, opNot = 4 };

// A declared limit on a number or on a string's byte count. Its message names the
// innermost type and the field: "Oui::value > 0xffffff not allowed".
struct Limit {
  long long min = 0;
  unsigned long long max = 0;
  bool hasMin = false;
  bool hasMax = false;
  bool hex = false;      // print the maximum as 0x...
  bool onBytes = false;  // limit the byte count of a string ("::bytes")
};
constexpr Limit atLeast(long long min) { return {min, 0, true, false, false, false}; }
constexpr Limit atMost(unsigned long long max, bool hex = false) { return {0, max, false, true, hex, false}; }
constexpr Limit between(long long min, unsigned long long max) { return {min, max, true, true, false, false}; }
constexpr Limit maxBytes(unsigned long long max) { return {0, max, false, true, false, true}; }

// Options of one field, stated at the type that declares it.
struct FieldOpts {
  Limit limit{};
  // The attribute log does not re-check this field's limit when it reads it back (a
  // few fields are taken as the writer stored them); every other limit is checked.
  bool logUnchecked = false;
  // Get only through the generic interface.
  bool readOnly = false;
};
constexpr FieldOpts uncheckedInLog(Limit l) { return FieldOpts{l, true, false}; }

template <class C, class T>
struct Field {
  using Owner = C;
  using Type = T;
  const char* name;
  T C::*member;
  FieldOpts opts;
};
template <class C, class T>
constexpr Field<C, T> field(const char* name, T C::*member, FieldOpts o = {}) {
  return {name, member, o};
}
template <class C, class T>
constexpr Field<C, T> field(const char* name, T C::*member, Limit l) {
  return {name, member, FieldOpts{l}};
}

template <class T>
concept KelValue = std::is_base_of_v<ValueBase, T> && requires { T::kelShape; };

template <class T>
concept KelBitMap = KelValue<T> && (T::kelShape == Shape::bitMap);

template <class T>
struct IsValueCollection : std::false_type {};
template <class K, class V, class C, class A>
struct IsValueCollection<std::map<K, V, C, A>> : std::true_type {};

// The type's own name without namespace or enclosing types: the prefix of its messages.
constexpr std::string_view shortName(std::string_view qualified) {
  auto p = qualified.rfind("::");
  return p == std::string_view::npos ? qualified : qualified.substr(p + 2);
}

[[noreturn]] void throwLimit(std::string_view owner, const char* field, Limit const& l);
[[noreturn]] void failNoStringConstructor(std::string_view owner);
[[noreturn]] void failWithAttrLogValueCollectionDefaultKey(const char* owner, const char* field);

template <class T>
void checkLimit(std::string_view owner, const char* field, T const& v, Limit const& l) {
  if (!l.hasMin && !l.hasMax) return;
  if constexpr (std::is_same_v<T, String>) {
    if (l.onBytes && l.hasMax && v.size() > l.max) throwLimit(owner, field, l);
  } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    if constexpr (std::is_signed_v<T>) {
      long long x = static_cast<long long>(v);
      if ((l.hasMin && x < l.min) || (l.hasMax && x >= 0 && static_cast<unsigned long long>(x) > l.max))
        throwLimit(owner, field, l);
    } else {
      auto x = static_cast<unsigned long long>(v);
      if ((l.hasMin && l.min > 0 && x < static_cast<unsigned long long>(l.min)) || (l.hasMax && x > l.max))
        throwLimit(owner, field, l);
    }
  }
}

// --- per-field bindings ------------------------------------------------------------

// What one field mixes into its record's hash: numbers as they are, a wrapper as its
// field, a record through its own hash(0), platform types through their hash.
template <class T>
std::size_t fieldHash(T const& v) {
  if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    return static_cast<std::size_t>(v);
  } else if constexpr (KelValue<T>) {
    if constexpr (T::kelShape == Shape::wrapper)
      return fieldHash(v.*(std::get<0>(T::kelFields()).member));  // a wrapper hashes as its field
    else
      return v.hash(0);
  } else if constexpr (requires { v.hash(); }) {
    return v.hash();
  } else {
    return std::hash<T>{}(v);
  }
}

template <class T>
void appendValueStrep(String& out, T const& v);

template <class T>
void appendFieldStrep(String& out, T const& v) {
  if constexpr (std::is_same_v<T, bool>) {
    appendStrep(out, v);
  } else if constexpr (std::is_enum_v<T>) {
    // The enumeration's own text, found by ADL; straight from its descriptor when it
    // has one, without a temporary string.
    if constexpr (requires { enumType(v); })
      enumType(v).appendName(out, static_cast<std::uint32_t>(v));
    else
      out += valueToStrep(v);
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    appendStrep(out, static_cast<long long>(v));
  } else if constexpr (std::is_integral_v<T>) {
    appendStrep(out, static_cast<unsigned long long>(v));
  } else if constexpr (std::is_floating_point_v<T>) {
    appendStrep(out, static_cast<double>(v));
  } else if constexpr (std::is_same_v<T, String>) {
    appendStrep(out, v);
  } else if constexpr (KelValue<T>) {
    appendValueStrep(out, v);
  } else if constexpr (IsValueCollection<T>::value) {
    out += "None";  // collections inside a value are not printed
  } else {
    out += valueToStrep(v);  // a platform type's own text form
  }
}

template <class T>
T parseField(StrepIt& pos, StrepIt const& end, const char* name) {
  if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, String>) {
    return deserializeAttr<T>(pos, end, name);
  } else if constexpr (std::is_enum_v<T>) {
    return sequenceToValue(pos, end, static_cast<T*>(nullptr));
  } else {
    return T(pos, end);
  }
}

template <class T>
void writeField(NboAttrLog::Out& o, T const& v) {
  using namespace NboAttrLog;
  if constexpr (std::is_same_v<T, bool>) {
    o << v;
  } else if constexpr (std::is_enum_v<T>) {
    o << static_cast<unsigned int>(v);
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) == 1) {
    o << static_cast<unsigned char>(v);
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) == 2) {
    o << static_cast<unsigned short>(v);
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) == 4) {
    o << static_cast<unsigned int>(v);
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
    o << static_cast<unsigned long>(v);
  } else if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) {
    o << static_cast<int>(v);
  } else if constexpr (std::is_integral_v<T>) {
    o << static_cast<long>(v);
  } else if constexpr (std::is_floating_point_v<T>) {
    o << static_cast<double>(v);
  } else {
    o << v;  // strings, declared values and platform types
  }
}

template <class T>
T readField(NboAttrLog::In* in) {
  if constexpr (std::is_same_v<T, bool>) {
    return in->nextbool();
  } else if constexpr (std::is_enum_v<T>) {
    return static_cast<T>(in->nextU32());
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) == 1) {
    return static_cast<T>(in->nextU8());
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) == 2) {
    return static_cast<T>(in->nextU16());
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) == 4) {
    return static_cast<T>(in->nextU32());
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
    return static_cast<T>(in->nextU64());
  } else if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) {
    return static_cast<T>(in->nextS32());
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<T>(in->nextS64());
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(in->nextDouble());
  } else if constexpr (std::is_same_v<T, String>) {
    return in->nextString();
  } else if constexpr (KelBitMap<T>) {
    // A bit map inside a record is checked; a bare one is taken as it comes.
    return T::kelChecked(T(in, StreamBogon{}));
  } else {
    return T(in, StreamBogon{});
  }
}

// Ordered maps inside a value: entries in ascending key order, each its key and its
// element, ended by the key's default value, which can therefore not be stored.
template <class K, class V, class C, class A>
void writeCollection(NboAttrLog::Out& o, std::map<K, V, C, A> const& m, const char* owner, const char* name) {
  for (auto const& [k, v] : m) {
    if (k == K{}) failWithAttrLogValueCollectionDefaultKey(owner, name);
    writeField(o, k);
    writeField(o, v);
  }
  writeField(o, K{});
}
template <class K, class V, class C, class A>
void readCollection(NboAttrLog::In* in, std::map<K, V, C, A>& m) {
  m.clear();
  for (K k = readField<K>(in); !(k == K{}); k = readField<K>(in)) m.insert_or_assign(k, readField<V>(in));
}

// --- whole-value bindings -------------------------------------------------------------

template <class T, class F>
constexpr void forEachField(F&& f) {
  std::apply([&](auto const&... fd) { (f(fd), ...); }, T::kelFields());
}

template <KelValue T>
bool fieldsEqual(T const& a, T const& b) {
  return std::apply([&](auto const&... fd) { return ((a.*fd.member == b.*fd.member) && ...); }, T::kelFields());
}

// What a field orders by: a wrapper by its one field, so that a key can order by a
// wrapper (Oui) that offers no operator< of its own.
template <class T>
auto const& orderKey(T const& v) {
  if constexpr (KelValue<T>) {
    if constexpr (T::kelShape == Shape::wrapper) return orderKey(v.*(std::get<0>(T::kelFields()).member));
    else return v;
  } else {
    return v;
  }
}

template <KelValue T>
bool fieldsLess(T const& a, T const& b) {
  int c = 0;
  forEachField<T>([&](auto const& fd) {
    if (c != 0) return;
    auto const& x = orderKey(a.*fd.member);
    auto const& y = orderKey(b.*fd.member);
    if (x < y) c = -1;
    else if (y < x) c = 1;
  });
  return c < 0;
}

template <KelValue T>
std::size_t fieldsHash(T const& v, std::size_t seed) {
  forEachField<T>([&](auto const& fd) { seed = hashMix(seed, fieldHash(v.*fd.member)); });
  return seed;
}

template <KelValue T>
bool operator==(T const& a, T const& b) {
  return fieldsEqual(a, b);
}
template <KelValue T>
  requires((T::kelOps & opLt) != 0)
bool operator<(T const& a, T const& b) {
  return fieldsLess(a, b);
}
template <KelValue T>
  requires((T::kelOps & opNot) != 0)
bool operator!(T const& a) {
  return a == T{};
}

// The record header and key literals of a type's text form, made once per type
// and shared by the printer and the parser.
template <class T>
struct StrepLiterals {
  String header;
  std::vector<String> keys;
  StrepLiterals() {
    header = String("Value('") + String(T::kelName) + String("', ** {");
    bool first = true;
    auto add = [&](const char* name) {
      keys.push_back(String(first ? "'" : ", '") + String(name) + String("': "));
      first = false;
    };
    if constexpr (T::kelShape == Shape::bitMap) {
      for (unsigned i = 0; i < T::kelBitCount; ++i) add(T::kelBitNames()[i]);
    } else {
      forEachField<T>([&](auto const& fd) { add(fd.name); });
    }
  }
  static StrepLiterals const& get() {
    static const StrepLiterals l;
    return l;
  }
};

template <class T>
void appendValueStrep(String& out, T const& v) {
  if constexpr (T::kelShape == Shape::wrapper) {
    appendFieldStrep(out, v.*(std::get<0>(T::kelFields()).member));
  } else if constexpr (T::kelShape == Shape::bitMap) {
    auto const& lit = StrepLiterals<T>::get();
    out += lit.header;
    for (unsigned i = 0; i < T::kelBitCount; ++i) {
      out += lit.keys[i];
      appendStrep(out, ((v.value() >> i) & 1u) != 0);
    }
    out += "})";
  } else {
    auto const& lit = StrepLiterals<T>::get();
    out += lit.header;
    std::size_t i = 0;
    forEachField<T>([&](auto const& fd) {
      out += lit.keys[i++];
      appendFieldStrep(out, v.*fd.member);
    });
    out += "})";
  }
}

template <KelValue T>
String valueToStrep(T const& v) {
  // Reserve what the longest text of this type so far needed: one allocation per call.
  static std::atomic<std::size_t> longest{64};
  String out;
  out.reserve(longest.load(std::memory_order_relaxed));
  appendValueStrep(out, v);
  if (out.size() > longest.load(std::memory_order_relaxed)) longest.store(out.size(), std::memory_order_relaxed);
  return out;
}

// Writes a string wrapper's bytes as they are, everything else as its text form.
template <KelValue T>
std::ostream& operator<<(std::ostream& os, T const& v) {
  if constexpr (T::kelShape == Shape::wrapper &&
                std::is_same_v<typename std::tuple_element_t<0, decltype(T::kelFields())>::Type, String>) {
    return os << v.*(std::get<0>(T::kelFields()).member);
  } else {
    return os << valueToStrep(v);
  }
}

template <KelValue T>
NboAttrLog::Out& operator<<(NboAttrLog::Out& o, T const& v) {
  if constexpr (T::kelShape == Shape::bitMap) {
    o << static_cast<unsigned int>(v.value());
  } else {
    forEachField<T>([&](auto const& fd) {
      using F = typename std::decay_t<decltype(fd)>::Type;
      if constexpr (IsValueCollection<F>::value)
        writeCollection(o, v.*fd.member, T::kelName, fd.name);
      else
        writeField(o, v.*fd.member);
    });
  }
  return o;
}


template <class T>
void parseValue(T& v, StrepIt& pos, StrepIt const& end) {
  constexpr std::string_view owner = shortName(T::kelName);
  if constexpr (T::kelShape == Shape::wrapper) {
    // By value: kelFields() is a temporary, a reference into it would dangle.
    constexpr auto fd = std::get<0>(T::kelFields());
    using F = typename std::decay_t<decltype(fd)>::Type;
    auto x = parseField<F>(pos, end, fd.name);
    checkLimit(owner, fd.name, x, fd.opts.limit);
    v.*fd.member = std::move(x);
  } else if constexpr (T::kelShape == Shape::bitMap) {
    auto const& lit = StrepLiterals<T>::get();
    needString(pos, end, lit.header);
    std::uint32_t value = 0;
    for (unsigned i = 0; i < T::kelBitCount; ++i) {
      needString(pos, end, lit.keys[i]);
      if (deserializeAttr<bool>(pos, end, T::kelBitNames()[i])) value |= 1u << i;
    }
    needString(pos, end, "})");
    v = T(value);
  } else {
    auto const& lit = StrepLiterals<T>::get();
    needString(pos, end, lit.header);
    std::size_t i = 0;
    forEachField<T>([&](auto const& fd) {
      using F = typename std::decay_t<decltype(fd)>::Type;
      needString(pos, end, lit.keys[i++]);
      try {
        auto x = parseField<F>(pos, end, fd.name);
        checkLimit(owner, fd.name, x, fd.opts.limit);
        v.*fd.member = std::move(x);
      } catch (RangeException const& e) {
        rethrowFromDeserializeAttr(e, fd.name);
      }
    });
    needString(pos, end, "})");
  }
}

template <class T>
constexpr bool hasCollectionField() {
  bool any = false;
  if constexpr (T::kelShape == Shape::record)
    forEachField<T>([&](auto const& fd) {
      any = any || IsValueCollection<typename std::decay_t<decltype(fd)>::Type>::value;
    });
  return any;
}

// A value that holds a collection has no text constructor, by design.
template <class T>
void constructFromText(T& v, StrepIt& pos, StrepIt const& end) {
  if constexpr (hasCollectionField<T>())
    failNoStringConstructor(shortName(T::kelName));
  else
    parseValue(v, pos, end);
}

template <class T>
void readValue(T& v, NboAttrLog::In* in) {
  forEachField<T>([&](auto const& fd) {
    using F = typename std::decay_t<decltype(fd)>::Type;
    if constexpr (IsValueCollection<F>::value) {
      readCollection(in, v.*fd.member);
    } else {
      auto x = readField<F>(in);
      if (!fd.opts.logUnchecked) checkLimit(shortName(T::kelName), fd.name, x, fd.opts.limit);
      v.*fd.member = std::move(x);
    }
  });
}

// --- enumerations ---------------------------------------------------------------------
template <class E>
E enumInstance(EnumType const& t, std::uint32_t value) {
  if (!t.hasValue(value)) throwRangeException(format("%s: no enumerator with value %u", t.KelType::name(), value));
  return static_cast<E>(value);
}

}  // namespace Kel

// ---- declaration macros ----------------------------------------------------------------

#define KEL_FIELD_MEMBER_(T, n, d, ...) T n##_ = T{d};
#define KEL_FIELD_MEMBER(i, f) KEL_FIELD_MEMBER_ f
#define KEL_FIELD_ACCESS_(T, n, d, ...)                                                   \
  T const& n() const noexcept { return n##_; }                                          \
  void n##Is(T const& v) {                                                              \
    ::Kel::checkLimit(::Kel::shortName(kelName), #n, v, kelField_##n().opts.limit);     \
    n##_ = v;                                                                           \
    kelFieldSet();                                                                      \
  }                                                                                     \
  static constexpr ::Kel::Field<KelSelf, T> kelField_##n() {                            \
    return ::Kel::field(#n, &KelSelf::n##_ __VA_OPT__(, __VA_ARGS__));                  \
  }
#define KEL_FIELD_ACCESS(i, f) KEL_FIELD_ACCESS_ f
#define KEL_FIELD_DESC_(T, n, d, ...) kelField_##n()
#define KEL_FIELD_DESC(i, f) KEL_FIELD_DESC_ f

// Common part of every declared value: name, shape, operators, constructors from text
// and from the attribute log.
#define KEL_VALUE_COMMON_(Self, qualifiedName, shape, ops)                                  \
 public:                                                                                  \
  using KelSelf = Self;                                                                   \
  static constexpr const char* kelName = qualifiedName;                                   \
  static constexpr ::Kel::Shape kelShape = shape;                                         \
  static constexpr unsigned kelOps = ops;                                                 \
  Self(::Kel::String::IteratorConst& pos, ::Kel::String::IteratorConst const& end) {      \
    ::Kel::constructFromText(*this, pos, end);                                            \
  }                                                                                       \
  Self(::Kel::NboAttrLog::In* in, ::Kel::StreamBogon) { ::Kel::readValue(*this, in); }   \
  template <class S = Self>                                                               \
    requires((S::kelOps & ::Kel::opHash) != 0)                                            \
  std::size_t hash(std::size_t seed) const {                                              \
    return ::Kel::fieldsHash(*this, seed);                                                \
  }

// A record, or a single-field wrapper when shape is Kel::Shape::wrapper.
#define KEL_VALUE(Self, qualifiedName, shape, ops, ...)                                     \
  KEL_VALUE_COMMON_(Self, qualifiedName, shape, ops)                                      \
  Self() = default;                                                                       \
  KEL_PP_FOR_EACH(KEL_FIELD_ACCESS, KEL_PP_EMPTY, __VA_ARGS__)                            \
  static constexpr auto kelFields() {                                                     \
    return std::make_tuple(KEL_PP_FOR_EACH(KEL_FIELD_DESC, KEL_PP_COMMA, __VA_ARGS__));   \
  }                                                                                       \
                                                                                          \
 private:                                                                                 \
  void kelFieldSet() {}                                                                   \
  KEL_PP_FOR_EACH(KEL_FIELD_MEMBER, KEL_PP_EMPTY, __VA_ARGS__)                            \
 public:

#define KEL_RECORD(Self, qualifiedName, ops, ...) \
  KEL_VALUE(Self, qualifiedName, ::Kel::Shape::record, ops, __VA_ARGS__)

// A single-field wrapper; it also converts from its field's type, with the limit checked.
#define KEL_WRAPPER(Self, qualifiedName, ops, T, n, d, ...)                                  \
  KEL_VALUE(Self, qualifiedName, ::Kel::Shape::wrapper, ops, (T, n, d __VA_OPT__(, __VA_ARGS__))) \
  explicit Self(T const& v) { n##Is(v); }

// A record that extends a declared base record: the base's fields come first, and
// setting any own field calls the base's kelFieldSet() (TlvBase marks itself set).
#define KEL_DERIVED_RECORD(Self, Base, qualifiedName, ops, ...)                              \
  KEL_VALUE_COMMON_(Self, qualifiedName, ::Kel::Shape::record, ops)                        \
  Self() = default;                                                                       \
  KEL_PP_FOR_EACH(KEL_FIELD_ACCESS, KEL_PP_EMPTY, __VA_ARGS__)                            \
  static constexpr auto kelFields() {                                                     \
    return std::tuple_cat(Base::kelFields(),                                              \
                          std::make_tuple(KEL_PP_FOR_EACH(KEL_FIELD_DESC, KEL_PP_COMMA, __VA_ARGS__))); \
  }                                                                                       \
                                                                                          \
 private:                                                                                 \
  void kelFieldSet() { Base::kelDerivedFieldSet(); }                                      \
  KEL_PP_FOR_EACH(KEL_FIELD_MEMBER, KEL_PP_EMPTY, __VA_ARGS__)                            \
 public:

// A bit map: one unsigned 32-bit value whose named bits count from the least
// significant; its maximum is all named bits set.
#define KEL_BIT_ACCESS(i, n)                                                               \
  bool n() const noexcept { return (value_ >> (i)) & 1u; }                                \
  void n##Is(bool on) noexcept { value_ = on ? (value_ | (1u << (i))) : (value_ & ~(1u << (i))); }
#define KEL_BIT_NAME(i, n) #n
#define KEL_BITMAP(Self, qualifiedName, ...)                                                 \
  KEL_VALUE_COMMON_(Self, qualifiedName, ::Kel::Shape::bitMap, ::Kel::opLt | ::Kel::opHash) \
  static constexpr unsigned kelBitCount = KEL_PP_NARGS(__VA_ARGS__);                      \
  static constexpr std::uint32_t kelMax = static_cast<std::uint32_t>((1ull << kelBitCount) - 1); \
  static constexpr const char* kelBitNameTable[] = {KEL_PP_FOR_EACH(KEL_BIT_NAME, KEL_PP_COMMA, __VA_ARGS__)}; \
  static constexpr const char* const* kelBitNames() { return kelBitNameTable; }           \
  static constexpr auto kelFields() {                                                     \
    /* a bare bit map is read from the log as it comes; records holding one check it */    \
    return std::make_tuple(                                                               \
        ::Kel::field("value", &Self::value_, ::Kel::uncheckedInLog(::Kel::atMost(kelMax, true)))); \
  }                                                                                       \
  static Self kelChecked(Self v) {                                                        \
    ::Kel::checkLimit(::Kel::shortName(kelName), "value", v.value_, ::Kel::atMost(kelMax, true)); \
    return v;                                                                             \
  }                                                                                       \
  Self() = default;                                                                       \
  explicit Self(std::uint32_t v) : value_(v) { kelChecked(*this); }                       \
  std::uint32_t value() const noexcept { return value_; }                                 \
  bool isZero() const noexcept { return value_ == 0; }                                    \
  Self complement() const noexcept { return Self(~value_ & kelMax); }                     \
  Self andNot(Self const& o) const { return Self(value_ & ~o.value_); }                   \
  friend Self operator&(Self const& a, Self const& b) { return Self(a.value_ & b.value_); } \
  friend Self operator|(Self const& a, Self const& b) { return Self(a.value_ | b.value_); } \
  friend Self operator^(Self const& a, Self const& b) { return Self(a.value_ ^ b.value_); } \
  KEL_PP_FOR_EACH(KEL_BIT_ACCESS, KEL_PP_EMPTY, __VA_ARGS__)                              \
                                                                                          \
 private:                                                                                 \
  std::uint32_t value_ = 0;                                                               \
                                                                                          \
 public:

// An enumeration with an unsigned 32-bit underlying type and its descriptor
// _kelType_<E>. Enumerators are (name, value). Use KEL_ENUM at namespace scope,
// KEL_NESTED_ENUM inside a class and KEL_SCOPED_ENUM for an enum class; then
// KEL_ENUM_FUNCTIONS at namespace scope.
#define KEL_ENUMERATOR_(n, v) n = v
#define KEL_ENUMERATOR(i, e) KEL_ENUMERATOR_ e
#define KEL_ENUM_ENTRY_(n, v) {#n, v}
#define KEL_ENUM_ENTRY(i, e) KEL_ENUM_ENTRY_ e
#define KEL_ENUM_BODY_(E, kind, qualifiedName, storage, ...)                                \
  kind E : std::uint32_t { KEL_PP_FOR_EACH(KEL_ENUMERATOR, KEL_PP_COMMA, __VA_ARGS__) };   \
  storage const ::Kel::EnumType _kelType_##E{                                              \
      qualifiedName, {KEL_PP_FOR_EACH(KEL_ENUM_ENTRY, KEL_PP_COMMA, __VA_ARGS__)}};        \
  storage E E##Instance(unsigned value) { return ::Kel::enumInstance<E>(_kelType_##E, value); } \
  storage E E##Instance(::Kel::String const& name) { return static_cast<E>(_kelType_##E.value(name)); }
#define KEL_ENUM(E, qualifiedName, ...) KEL_ENUM_BODY_(E, enum, qualifiedName, inline, __VA_ARGS__)
#define KEL_NESTED_ENUM(E, qualifiedName, ...) KEL_ENUM_BODY_(E, enum, qualifiedName, static inline, __VA_ARGS__)
#define KEL_SCOPED_ENUM(E, qualifiedName, ...) KEL_ENUM_BODY_(E, enum class, qualifiedName, inline, __VA_ARGS__)

// The text bindings of an enumeration, as free functions of the enclosing namespace.
#define KEL_ENUM_FUNCTIONS(E, descriptor)                                                   \
  inline ::Kel::EnumType const& enumType(E) { return (descriptor); }                      \
  inline ::Kel::String stringValue(E value) { return (descriptor).name(static_cast<std::uint32_t>(value)); } \
  inline ::Kel::String valueToStrep(E value) { return stringValue(value); }               \
  inline E sequenceToValue(::Kel::StrepIt& pos, ::Kel::StrepIt const& end, E*) {          \
    return static_cast<E>((descriptor).parse(pos, end));                                   \
  }                                                                                       \
  inline std::ostream& operator<<(std::ostream& os, E value) {                            \
    (descriptor).write(os, static_cast<std::uint32_t>(value));                            \
    return os;                                                                            \
  }
