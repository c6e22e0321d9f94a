#pragma once
// The bindings of the value types, written once: text form (print and parse), attribute
// log (write and read) and the generic interface's attribute operations. kelgen describes
// each record, wrapper and bit map by a nested X::KelFields, defined in the generated
// source: its fields in order, each with its getter, setter, storage, range check and
// flags. Included by the generated binding sources only.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "Kel/Exception.h"
#include "Kel/GenericIf.h"
#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Kel/Type.h"
#include "Kel/ValueSupport.h"

namespace Kel {

// A member function pointer of any class and signature, kept as its bytes; whoever stored
// it knows its type and restores it.
class AnyFn {
 public:
  template <class F>
  static AnyFn of(F f) noexcept {
    static_assert(sizeof(F) == sizeof(Bytes));
    AnyFn a;
    std::memcpy(a.bytes_, &f, sizeof f);
    return a;
  }
  template <class F>
  F as() const noexcept {
    F f;
    std::memcpy(&f, bytes_, sizeof f);
    return f;
  }

 private:
  struct Any;
  using Bytes = void (Any::*)();
  alignas(Bytes) unsigned char bytes_[sizeof(Bytes)] = {};
};

namespace NboAttrLog {

template <class T>
struct LogInt;
#define KEL_LOG_INT(T, W, R)                                   \
  template <>                                                  \
  struct LogInt<T> {                                           \
    using Wire = W;                                            \
    static T read(In* in) { return static_cast<T>(in->R()); } \
  }
KEL_LOG_INT(std::uint8_t, unsigned char, nextU8);
KEL_LOG_INT(std::uint16_t, unsigned short, nextU16);
KEL_LOG_INT(std::uint32_t, unsigned int, nextU32);
KEL_LOG_INT(std::uint64_t, unsigned long, nextU64);
KEL_LOG_INT(std::int32_t, int, nextS32);
KEL_LOG_INT(std::int64_t, long, nextS64);
#undef KEL_LOG_INT

template <class T>
concept BitMap = requires { T::kelShape; } && (T::kelShape == Shape::bitMap);

// How one value goes to and comes from the attribute log: integers at their own width,
// enumerations as a u32, a bit map inside a record as its u32 (checked), anything else
// through its own operator<< and log constructor.
template <class T>
struct LogIo {
  static void write(Out& o, T const& v) {
    if constexpr (std::is_enum_v<T>)
      o << static_cast<unsigned int>(v);
    else if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>)
      o << static_cast<typename LogInt<T>::Wire>(v);
    else
      o << v;
  }
  static T read(In* in, bool inRecord = true) {
    if constexpr (std::is_enum_v<T>) {
      return static_cast<T>(in->nextU32());
    } else if constexpr (std::is_same_v<T, bool>) {
      return in->nextbool();
    } else if constexpr (std::is_integral_v<T>) {
      return LogInt<T>::read(in);
    } else if constexpr (std::is_same_v<T, double>) {
      return in->nextDouble();
    } else if constexpr (std::is_same_v<T, String>) {
      return in->nextString();
    } else if constexpr (BitMap<T>) {
      if (inRecord) return T(in->nextU32());
      return T(in, StreamBogon{});
    } else {
      return T(in, StreamBogon{});
    }
  }
};

}  // namespace NboAttrLog

namespace Vb {

using NboAttrLog::LogIo;

template <class M>
struct Getter;
template <class C, class R>
struct Getter<R (C::*)() const noexcept> {
  using Type = std::remove_cvref_t<R>;
};
template <class C, class R>
struct Getter<R (C::*)() const> {
  using Type = std::remove_cvref_t<R>;
};
// A static getter (a constant shared by every instance).
template <class R>
struct Getter<R (*)() noexcept> {
  using Type = std::remove_cvref_t<R>;
};

enum : unsigned {
  logUnchecked = 1,  // the log reader takes the value as it comes
  getOnly = 2,       // the generic interface does not set it
};

// One field: its getter and setter, its storage (null for a bit), its range check (or
// null), its flags; its name and the text that precedes its value in the text form.
template <auto Get, auto Set, auto M, auto Check = nullptr, unsigned Flags = 0>
struct Field {
  using T = typename Getter<decltype(Get)>::Type;
  static constexpr auto get = Get;
  static constexpr auto set = Set;
  static constexpr auto member = M;
  static constexpr auto check = Check;
  static constexpr unsigned flags = Flags;
  const char* name;
  std::string_view label;
};

// ---- one value

template <class T>
struct IsMap : std::false_type {};
template <class K, class V, class C, class A>
struct IsMap<std::map<K, V, C, A>> : std::true_type {};

template <class T>
void appendOne(String& out, T const& v) {
  if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, String>)
    Kel::appendStrep(out, v);
  else if constexpr (std::is_enum_v<T>)
    enumType(v).appendName(out, static_cast<std::uint32_t>(v));
  else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>)
    Kel::appendStrep(out, static_cast<long long>(v));
  else if constexpr (std::is_integral_v<T>)
    Kel::appendStrep(out, static_cast<unsigned long long>(v));
  else if constexpr (std::is_floating_point_v<T>)
    Kel::appendStrep(out, static_cast<double>(v));
  else if constexpr (IsMap<T>::value)
    out += "None";  // a collection inside a value is not printed
  else if constexpr (requires { T::kelShape; })
    appendStrep(out, v);  // the type's own, in its namespace
  else
    out += valueToStrep(v);
}

template <class T>
T parseOne(StrepIt& pos, StrepIt const& end, const char* name) {
  if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, String>)
    return deserializeAttr<T>(pos, end, name);
  else if constexpr (std::is_enum_v<T>)
    return sequenceToValue(pos, end, static_cast<T*>(nullptr));
  else
    return T(pos, end);
}

// ---- a whole value, from its description D (X::KelFields)
//
// For the text form the description is turned into a row per field, once per type; the
// print and parse walks are written once and call functions per field type through the
// row, so a record costs its rows, not a copy of each walk.

template <class T>
void writeOne(NboAttrLog::Out& o, T const& v, const char* owner, const char* field) {
  if constexpr (IsMap<T>::value) {
    using K = typename T::key_type;
    for (auto const& [k, e] : v) {
      if (k == 0) failWithAttrLogValueCollectionDefaultKey(owner, field);
      LogIo<K>::write(o, k);
      o << e;
    }
    LogIo<K>::write(o, K(0));
  } else {
    LogIo<T>::write(o, v);
  }
}

// What a field's type does with the text of one value at a field's storage.
struct FieldOps {
  void (*append)(String& out, void const* at);
  void (*parse)(void* at, StrepIt& pos, StrepIt const& end, const char* name);  // null: a collection
};

struct Row {
  FieldOps const* ops;
  void* (*at)(void* x);  // the field's storage, or null for a bit of a bit map
  bool (*getBit)(void const* x);
  void (*setBit)(void* x, bool b);
  void (*check)(void const* at);  // its range check, or null
  unsigned flags;
  const char* name;
  std::string_view label;
};

struct Rows {
  Row const* rows;
  std::size_t size;
  bool wrapper;
  const char* full;
  std::string_view open;
};

template <class T>
void appendAt(String& out, void const* at) {
  appendOne(out, *static_cast<T const*>(at));
}
template <class T>
void parseAt(void* at, StrepIt& pos, StrepIt const& end, const char* name) {
  *static_cast<T*>(at) = parseOne<T>(pos, end, name);
}
template <class T>
void readAt(void* at, NboAttrLog::In* in, bool inRecord) {
  T& v = *static_cast<T*>(at);
  if constexpr (IsMap<T>::value) {
    // Elements in ascending key order, each its key and the element; key 0 ends them.
    using K = typename T::key_type;
    for (K k = LogIo<K>::read(in); k != 0; k = LogIo<K>::read(in))
      v.insert_or_assign(k, typename T::mapped_type(in, StreamBogon{}));
  } else {
    v = LogIo<T>::read(in, inRecord);
  }
}

template <class T>
constexpr auto parseAtOf() {
  if constexpr (IsMap<T>::value)
    return static_cast<decltype(&parseAt<bool>)>(nullptr);
  else
    return &parseAt<T>;
}

template <class T>
inline constexpr FieldOps fieldOps{&appendAt<T>, parseAtOf<T>()};

template <class X, auto M>
void* memberAt(void* x) {
  return &(static_cast<X*>(x)->*M);
}
template <class X, auto Get>
bool bitOf(void const* x) {
  return (static_cast<X const*>(x)->*Get)();
}
template <class X, auto Set>
void bitIs(void* x, bool b) {
  (static_cast<X*>(x)->*Set)(b);
}
template <class T, auto Check>
void checkAt(void const* at) {
  Check(*static_cast<T const*>(at));
}

template <class X, class F>
constexpr Row rowOf(F const& f) {
  using T = typename F::T;
  if constexpr (std::is_null_pointer_v<decltype(F::member)>) {
    return Row{&fieldOps<bool>, nullptr, &bitOf<X, F::get>, &bitIs<X, F::set>, nullptr, F::flags, f.name, f.label};
  } else {
    static_assert(std::is_same_v<std::remove_cvref_t<decltype(std::declval<X&>().*F::member)>, T>);
    void (*check)(void const*) = nullptr;
    if constexpr (!std::is_null_pointer_v<decltype(F::check)>) check = &checkAt<T, F::check>;
    return Row{&fieldOps<T>, &memberAt<X, F::member>, nullptr, nullptr, check, F::flags, f.name, f.label};
  }
}

template <class D, class X>
inline constexpr auto rowArray = std::apply([](auto const&... f) { return std::array<Row, sizeof...(f)>{rowOf<X>(f)...}; }, D::list);

template <class D, class X>
inline constexpr Rows rowsOf{rowArray<D, X>.data(), rowArray<D, X>.size(), D::wrapper, D::full, D::open};

void append(Rows const& t, String& out, void const* x);
void parse(Rows const& t, void* x, StrepIt& pos, StrepIt const& end);

// Value('Ns::X', ** {'a': ..., 'b': ...}); a wrapper prints its one field alone.
template <class D, class X>
void append(String& out, X const& v) {
  append(rowsOf<D, X>, out, &v);
}

template <class D, class X>
String text(X const& v) {
  String out;
  out.reserve(D::reserve);
  append(rowsOf<D, X>, out, &v);
  return out;
}

// Parses the text form into x: a range error names the field.
template <class D, class X>
void parse(X& x, StrepIt& pos, StrepIt const& end) {
  parse(rowsOf<D, X>, &x, pos, end);
}

// The attribute log is the stream's path: read and write stay unrolled per field, where a
// walk of the rows costs a tenth more per record streamed.

// Reads the attribute log into x, field after field.
template <class D, class X>
void read(X& x, NboAttrLog::In* in) {
  std::apply(
      [&](auto const&... f) {
        (
            [&](auto const& g) {
              using F = std::remove_cvref_t<decltype(g)>;
              using T = typename F::T;
              if constexpr (IsMap<T>::value) {
                readAt<T>(&(x.*F::member), in, !D::wrapper);
              } else {
                x.*F::member = LogIo<T>::read(in, !D::wrapper);
                if constexpr (!std::is_null_pointer_v<decltype(F::check)> && !(F::flags & logUnchecked))
                  F::check(x.*F::member);
              }
            }(f),
            ...);
      },
      D::list);
}

template <class D, class X>
NboAttrLog::Out& write(NboAttrLog::Out& o, X const& v) {
  auto all = [&] {
    std::apply([&](auto const&... f) { (writeOne(o, (v.*f.get)(), D::full, f.name), ...); }, D::list);
  };
  if constexpr (D::guarded) {
    // A refused element must leave the stream as it was.
    std::size_t const mark = o.size();
    try {
      all();
    } catch (...) {
      o.truncate(mark);
      throw;
    }
  } else {
    all();
  }
  return o;
}

// The generic interface's attribute operations: on the whole value without an attribute,
// else on the field whose id is its position from 2 on.
template <class D, class X>
int attributeOp(void* result, void* object, KelAttr const* attr, unsigned op, void const* key, void const* argument) {
  auto* o = static_cast<X*>(object);
  if (!attr) {
    switch (op) {
      case GenericIf::valueIsDefault:
        *static_cast<bool*>(result) = *o == X();
        return GenericIf::attrOpDone;
      case GenericIf::valueEquals:
        *static_cast<bool*>(result) = *o == *static_cast<X const*>(key);
        return GenericIf::attrOpDone;
      case GenericIf::valueLess:
        if constexpr (D::less) {
          *static_cast<bool*>(result) = *o < *static_cast<X const*>(key);
          return GenericIf::attrOpDone;
        }
        return GenericIf::attrOpUnsupported;
      default:
        return GenericIf::attrOpUnsupported;
    }
  }
  int r = GenericIf::attrOpNoSuchAttribute;
  AttributeId id = 2;
  auto one = [&](auto const& f) {
    using F = std::remove_cvref_t<decltype(f)>;
    using T = typename F::T;
    if (op == GenericIf::attrGet) {
      *static_cast<T*>(result) = (o->*F::get)();
      return GenericIf::attrOpDone;
    }
    if constexpr (!(F::flags & getOnly)) {
      if (op == GenericIf::attrSet) {
        (o->*F::set)(*static_cast<T const*>(argument));
        return GenericIf::attrOpDone;
      }
    }
    return GenericIf::attrOpUnsupported;
  };
  std::apply([&](auto const&... f) { (void)((attr->id == id++ && (r = one(f), true)) || ...); }, D::list);
  return r;
}

}  // namespace Vb

}  // namespace Kel
