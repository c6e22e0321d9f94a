#pragma once
// The bindings of the value types, written once: text form (print and parse), attribute
// log (write and read) and the generic interface's attribute operations. kelgen describes
// each record, wrapper and bit map by a nested X::KelFields, defined in the generated
// source: its fields in order, each with its getter, setter, storage, range check and
// flags. Included by the generated binding sources only.
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

// Value('Ns::X', ** {'a': ..., 'b': ...}); a wrapper prints its one field alone.
template <class D, class X>
void append(String& out, X const& v) {
  if constexpr (D::wrapper) {
    auto const& f = std::get<0>(D::list);
    appendOne(out, (v.*f.get)());
  } else {
    out += D::open;
    std::apply([&](auto const&... f) { ((out += f.label, appendOne(out, (v.*f.get)())), ...); }, D::list);
    out += "})";
  }
}

template <class D, class X>
String text(X const& v) {
  String out;
  out.reserve(D::reserve);
  append<D>(out, v);
  return out;
}

// Parses the text form into x: a range error names the field.
template <class D, class X>
void parse(X& x, StrepIt& pos, StrepIt const& end) {
  auto one = [&](auto const& f) {
    using F = std::remove_cvref_t<decltype(f)>;
    using T = typename F::T;
    if constexpr (!D::wrapper) needString(pos, end, f.label);
    if constexpr (std::is_null_pointer_v<decltype(F::member)>) {
      (x.*F::set)(parseOne<T>(pos, end, f.name));
    } else {
      x.*F::member = parseOne<T>(pos, end, f.name);
      if constexpr (!std::is_null_pointer_v<decltype(F::check)>) F::check(x.*F::member);
    }
  };
  if constexpr (D::wrapper) {
    one(std::get<0>(D::list));
  } else {
    needString(pos, end, D::open);
    const char* field = nullptr;  // named again in a range error
    try {
      std::apply([&](auto const&... f) { ((field = f.name, one(f)), ...); }, D::list);
    } catch (RangeException const& e) {
      rethrowFromDeserializeAttr(e, field);
    }
    needString(pos, end, "})");
  }
}

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
                // Elements in ascending key order, each its key and the element; key 0 ends them.
                using K = typename T::key_type;
                for (K k = LogIo<K>::read(in); k != 0; k = LogIo<K>::read(in))
                  (x.*F::member).insert_or_assign(k, typename T::mapped_type(in, StreamBogon{}));
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
