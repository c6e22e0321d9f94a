// String, exceptions, enumerations, type descriptors and their registry.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <thread>
#include <vector>

#include "Kel/EnumType.h"
#include "Kel/GenericIf.h"
#include "Kel/Strep.h"
#include "Kel/TypeRegistry.h"

using namespace Kel;
using GenericIfImpl::genericIfVoidPtrIs;

namespace {

// The message of the E that f throws.
template <class E, class F>
std::string thrown(F&& f) {
  try {
    f();
  } catch (E const& e) {
    return e.what();
  }
  ADD_FAILURE() << "nothing thrown";
  return "";
}

KelType const entity("Test::Entity", KelType::Kind::Entity);
KelType const derivedEntity("Test::DerivedEntity", KelType::Kind::Entity, &entity);
KelType const value("Test::Value", KelType::Kind::Value);
KelType const derivedValue("Test::DerivedValue", KelType::Kind::Value, &value);
KelType const valueFromEntity("Test::ValueFromEntity", KelType::Kind::Value, &entity);
KelType const entityFromValue("Test::EntityFromValue", KelType::Kind::Entity, &value);
KelType const impostor("Test::Value", KelType::Kind::Value);

// Registered by a static initialiser, as libraries do: the registry must already work.
const bool registeredAtLoad = [] {
  typeNodeIs(&entity);
  return true;
}();

// Consecutive values and a gap without zero take different lookup paths.
EnumType const consecutive("Lldp::ChassisIdSubtype",
                           {{"cidReserved", 0}, {"cidChassisComponent", 1}, {"cidMacAddress", 2}});
EnumType const sparse("Lldp::AdminStatus", {{"txOnly", 1}, {"rxOnly", 2}, {"disabled", 4}, {"big", 0xffffffffu}});

TEST(String, KeepsEveryByteOrdersBytewiseAndFormats) {
  std::string raw("a\0b\xff", 4);
  String s(raw);
  EXPECT_EQ(s.size(), 4u);
  EXPECT_EQ(s[3], 0xffu);
  std::ostringstream os;
  os << s;
  EXPECT_EQ(os.str(), raw);
  std::pair<String, String> const ordered[] = {{"", "a"}, {"ab", "abc"}, {String("a\0", 2), "a\x01"}, {"\x7f", "\x80"}};
  for (auto const& [a, b] : ordered) EXPECT_TRUE(a < b && !(b < a) && a != b) << a.view();
  EXPECT_NE(String("Ethernet1").hash(), String("Ethernet2").hash());
  EXPECT_NE(String("").hash(), String(std::string(1, '\0')).hash());
  EXPECT_NE(hashMix(0, 1), hashMix(1, 0));
  EXPECT_EQ(format("%02hhx:%d %s", static_cast<unsigned char>(10), -3, "x"), String("0a:-3 x"));
  EXPECT_EQ(format("<%s>", std::string(1000, 'q').c_str()).size(), 1002u);
  EXPECT_GT(now(), 1.6e9);  // seconds since the epoch, not a monotonic clock
}

// Lengths either side of what fits in the object, each operation checked against std::string
// (contents, zero terminator, and that a moved-from or cleared string is empty and usable).
TEST(String, EveryOperationAgreesWithStdStringAcrossThePlaceLimit) {
  auto const same = [](String const& k, std::string const& want) {
    return k.view() == want && k.c_str()[want.size()] == '\0' && k.size() == want.size();
  };
  for (std::size_t const n : {0, 1, 21, 22, 23, 24, 45, 300}) {
    std::string want;
    for (std::size_t i = 0; i < n; ++i) want.push_back(static_cast<char>(i * 7));  // zeros too
    String k(want);
    String copy(k), assigned("x"), big(std::string(100, 'b'));
    assigned = k;
    big = k;
    EXPECT_TRUE(same(copy, want) && same(assigned, want) && same(big, want)) << n;
    String moved(std::move(copy));
    EXPECT_TRUE(same(moved, want) && same(copy, "")) << n;
    copy = std::move(moved);
    copy += std::string("z");
    EXPECT_TRUE(same(copy, want + "z") && same(moved, "")) << n;
    String const& self = k;
    k = self;  // self-assignment keeps the bytes
    for (std::size_t const by : {1, 2, 22, 40}) {
      String grown(k);
      std::string w = want;
      for (std::size_t i = 0; i < by; ++i) grown.push_back('p'), w.push_back('p');
      grown.append(w.data(), 3 < w.size() ? 3 : w.size());
      w.append(w.data(), 3 < w.size() ? 3 : w.size());
      EXPECT_TRUE(same(grown, w)) << n << "+" << by;
      grown.erasePrefix(by);
      w.erase(0, by);
      EXPECT_TRUE(same(grown, w)) << n << "-" << by;
      grown.truncate(w.size() / 2);
      EXPECT_TRUE(same(grown, w.substr(0, w.size() / 2))) << n << "/" << by;
      EXPECT_EQ(grown < k, w.substr(0, w.size() / 2) < want) << n << "<" << by;
    }
    // Appending its own bytes, whether they fit or force a move to a bigger block.
    String twice(k), tail(k);
    twice += twice;
    tail.append(tail.data() + n / 2, n - n / 2);
    EXPECT_TRUE(same(twice, want + want) && same(tail, want + want.substr(n / 2))) << n;
    std::string letters;  // as C text: no zero bytes
    for (std::size_t i = 0; i < n; ++i) letters.push_back(static_cast<char>('a' + i % 26));
    String quoted(k), quotedText(letters);
    appendStrep(quoted, quoted);
    appendStrep(quotedText, quotedText.c_str());
    EXPECT_EQ(quoted, [&] { String q(k); appendStrep(q, String(k)); return q; }()) << n;
    EXPECT_EQ(quotedText.view(), letters + "'" + letters + "'") << n;
    k.clear();
    k += "again";
    EXPECT_TRUE(same(k, "again")) << n;
  }
}

// Text of other types compares without converting either side (which was ambiguous), in
// the byte order of std::string: bytes above 0x7f after the others, a prefix first.
TEST(String, ComparesWithViewsStdStringsAndLiterals) {
  std::string const texts[] = {"", "a", "ab", "abc", std::string("ab\0c", 4), "\x80", "b", std::string(30, 'x')};
  for (std::string const& a : texts)
    for (std::string const& b : texts) {
      String const k(a);
      std::string_view const v(b);
      EXPECT_EQ(k == v, a == b) << a << " " << b;
      EXPECT_EQ(b == k, a == b) << a << " " << b;
      EXPECT_EQ(k < v, a < b) << a << " " << b;
      EXPECT_EQ(b > k, a < b) << a << " " << b;
      EXPECT_EQ((k <=> b.c_str()) == 0, a == b.c_str()) << a << " " << b;
    }
  EXPECT_TRUE(String("abc") == "abc" && "abd" > String("abc") && String("ab") != "abc");
  // A null C string and a default view are empty text, as String(nullptr) is.
  const char* const none = nullptr;
  EXPECT_TRUE(String() == none && String("a") != none && String() == nullptr);
  EXPECT_TRUE((String() <=> std::string_view()) == 0 && String("a") > std::string_view());
  std::vector<String> const names{"x", "b"};
  EXPECT_EQ(std::ranges::find(names, std::string_view("b")) - names.begin(), 1);
}

TEST(Exception, MessagesAreExact) {
  EXPECT_EQ(thrown<RangeException>([] { throwRangeException("Oui::value > 0xffffff not allowed"); }),
            "Oui::value > 0xffffff not allowed");
  EXPECT_EQ(thrown<UnhashableException>([] { GenericIfImpl::throwUnhashableException(&value); }),
            "GenericIf: type Test::Value is not hashable");
  EXPECT_EQ(thrown<ReinstantiationException>([] {
              GenericIfImpl::throwReinstantiationException(&entity, "Ethernet1", "creationTime=2.0");
            }),
            "GenericIf: Test::Entity 'Ethernet1' already exists with different constructor arguments"
            " (refused: creationTime=2.0)");
}

TEST(CoreDeathTest, AssertionsPrintTheExpressionText) {
  int version_ = 1, expected = 2, object = 0;
  EXPECT_DEATH(KEL_ASSERT(version_ == expected), "Assertion failed: version_ == expected");
  // A value handed over with a descriptor other than its own.
  EXPECT_DEATH(genericIfVoidPtrIs(&object, &derivedValue, &value), "Assertion failed: type->isPolymorphic\\(\\)");
  EXPECT_DEATH(genericIfVoidPtrIs(&object, &entity, &valueFromEntity), "Assertion failed: !t->isPolymorphic\\(\\)");
}

TEST(EnumType, RoundTripsEveryEnumerator) {
  for (EnumType const* t : {&consecutive, &sparse}) {
    for (auto const& e : t->enumerators()) {
      EXPECT_EQ(t->name(e.value), e.name);
      EXPECT_EQ(t->value(e.name), e.value);
      String text = String(e.name) + ", rest";
      StrepIt pos = text.begin();
      EXPECT_EQ(t->parse(pos, text.end()), e.value);
      EXPECT_EQ(String(pos, text.end()), ", rest");
      std::ostringstream os;
      t->write(os, e.value);
      EXPECT_EQ(os.str(), e.name);
    }
  }
  // The characters just outside those ranges end a name.
  for (char const* after : {"`", "{", "@", "[", "/", ":"}) {
    String text = String("txOnly") + after;
    StrepIt pos = text.begin();
    EXPECT_EQ(sparse.parse(pos, text.end()), 1u) << after;
    EXPECT_EQ(String(pos, text.end()), after);
  }
  for (auto [t, v] : {std::pair{&consecutive, 3u}, {&consecutive, 0xffffffffu}, {&sparse, 0u}, {&sparse, 3u}}) {
    EXPECT_FALSE(t->hasValue(v));
    EXPECT_EQ(t->name(v), "<undefined " + std::to_string(v) + ">");
  }
}

TEST(EnumType, ParseErrors) {
  EXPECT_EQ(thrown<RangeException>([] { consecutive.value("foo"); }),
            "Lldp::ChassisIdSubtype: no enumerator named 'foo'");
  struct Case { String text; const char* message; };
  Case const cases[] = {
      // A known name followed by more name characters is a different, unknown name.
      {"txOnly2", "Lldp::AdminStatus: no enumerator named 'txOnly2'"},
      // Every end of every name-character range, and the underscore, is taken.
      {"txOnly_azAZ09", "Lldp::AdminStatus: no enumerator named 'txOnly_azAZ09'"},
      {"'txOnly'", "Lldp::AdminStatus: expected an enumerator name but found \"'txOnly'\""},
      {"", "Lldp::AdminStatus: expected an enumerator name but found end of text"},
  };
  for (auto const& c : cases) {
    StrepIt pos = c.text.begin();
    EXPECT_EQ(thrown<RangeException>([&] { sparse.parse(pos, c.text.end()); }), c.message);
    EXPECT_EQ(pos, c.text.begin());
  }
}

TEST(GenericIf, VoidPtrConversions) {
  int object = 0;
  struct Case { KelType const* given; KelType const* wanted; bool accepted; };
  const Case cases[] = {
      {&value, &value, true},
      {&entity, &derivedEntity, true},  // wanted derives from given
      {&value, &derivedValue, true},
      {&derivedEntity, &entity, false},  // upward is not "derives from given"
      {&value, &entityFromValue, false},  // derived, but polymorphism differs
  };
  for (auto const& c : cases) {
    if (c.accepted) {
      EXPECT_EQ(genericIfVoidPtrIs(&object, c.given, c.wanted), &object) << c.wanted->name();
    } else {
      EXPECT_EQ(String(thrown<TypeException>([&] { genericIfVoidPtrIs(&object, c.given, c.wanted); })),
                format("GenericIf: cannot convert a pointer to %s into a pointer to %s", c.given->name(),
                       c.wanted->name()));
    }
  }
}

TEST(TypeRegistry, RegistersLooksUpIteratesAndRefusesConflicts) {
  ASSERT_TRUE(registeredAtLoad);
  std::size_t before = typeNodeCount();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      typeNodeIs(&derivedEntity);
      typeNodeIs(&value);
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(typeNodeCount(), before + 2);  // registering again changes nothing
  EXPECT_EQ(typeNode("Test::DerivedEntity"), &derivedEntity);
  for (const char* missing : {"Test::Valu", "Test::Value::", ""}) EXPECT_EQ(typeNode(missing), nullptr) << missing;
  auto all = typeNodes();
  EXPECT_EQ(all.size(), typeNodeCount());
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end(),
                             [](auto a, auto b) { return std::string_view(a->name()) < b->name(); }));

  EXPECT_EQ(thrown<TypeRegistryException>([] { typeNodeIs(&impostor); }),
            "typeNodeIs: type Test::Value is already registered with a different descriptor");
  EXPECT_THROW(typeNodeIs(nullptr), TypeRegistryException);
  typeNodeDel(&impostor);  // not the registered one: ignored
  EXPECT_EQ(typeNode("Test::Value"), &value);
  typeNodeDel(&value);
  EXPECT_EQ(typeNode("Test::Value"), nullptr);
}

}  // namespace
