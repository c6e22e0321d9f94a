// The model through the framework's reflective interface: attributes by descriptor,
// whole-value operations, construction, hashing, text, pointer views and collection walks.
#include <dlfcn.h>
#include <link.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <vector>
#include <new>
#include <string>
#include <tuple>

#include "Kel/AttrLogStream.h"
#include "Kel/GenericIf.h"
#include "Kel/TypeRegistry.h"
#include "Lldp/Dot3TestUtil.h"
#include "Lldp/Lldp.h"

namespace {

using namespace Lldp;
using namespace Kel::GenericIf;
using Dot3Test::run;

Kel::GenericIf::TypeOps const& ops(const char* name) { return *Kel::typeNode(name)->ops(); }
Kel::KelAttr const* attr(const char* type, const char* name) { return Kel::typeNode(type)->attr(name); }

TEST(GenericIfTest, AttributesOfValues) {
  ManAddrPriority p(ManAddrPriority::secondary, 3, 4);
  auto const& o = ops("Lldp::ManAddrPriority");
  ManAddrPriority::ManAddrType type = ManAddrPriority::primary;
  EXPECT_EQ(o.genericIfAttributeOp(&type, &p, attr("Lldp::ManAddrPriority", "manAddrType"), attrGet, nullptr, nullptr),
            attrOpDone);
  EXPECT_EQ(type, ManAddrPriority::secondary);
  // Get only: the set is refused and changes nothing.
  ManAddrPriority::ManAddrType primary = ManAddrPriority::primary;
  EXPECT_EQ(o.genericIfAttributeOp(nullptr, &p, attr("Lldp::ManAddrPriority", "manAddrType"), attrSet, nullptr,
                                   &primary),
            attrOpUnsupported);
  EXPECT_EQ(p.manAddrType(), ManAddrPriority::secondary);
  std::uint32_t seven = 7;
  EXPECT_EQ(o.genericIfAttributeOp(nullptr, &p, attr("Lldp::ManAddrPriority", "primaryPriority"), attrSet, nullptr,
                                   &seven),
            attrOpDone);
  EXPECT_EQ(p.primaryPriority(), 7u);
  Kel::KelAttr const unknown{"nope", 99};
  EXPECT_EQ(o.genericIfAttributeOp(nullptr, &p, &unknown, attrGet, nullptr, nullptr), attrOpNoSuchAttribute);
  // A write through the interface is range-checked like any other.
  std::uint32_t tooBig = 0x1000000;
  Oui oui;
  EXPECT_THROW(ops("Lldp::Oui").genericIfAttributeOp(nullptr, &oui, attr("Lldp::Oui", "value"), attrSet, nullptr, &tooBig),
               Kel::RangeException);
}

// What the descriptors tell of a member, as the schemas declare it.
TEST(GenericIfTest, AttributeDescriptors) {
  using K = Kel::KelAttr;
  struct Row {
    const char *type, *attr, *spelled;
    K::Kind kind;
    unsigned flags;
    std::int64_t min = 0, max = 0;
    const char *keyType = nullptr, *keyField = nullptr;
  };
  Row const rows[] = {
      {"Lldp::RemoteSystem", "index", "s32", K::Kind::value, K::key | K::ctor | K::hasMin, 1},
      {"Lldp::RemoteSystem", "chassisId", "Lldp::ChassisId", K::Kind::from, 0},
      {"Lldp::RemoteSystem", "unknownTlv", "Lldp::UnknownTlv", K::Kind::hashmap, 0, 0, 0, "u32", "type"},
      {"Lldp::PortStatus", "txFramesTotal", "u32", K::Kind::value, K::counter},
      {"Lldp::PortStatus", "remoteSystem", "Lldp::RemoteSystem", K::Kind::entities, 0, 0, 0, "s32"},
      {"Lldp::Config", "messageTxHoldTime", "u32", K::Kind::value, K::checked | K::hasMin | K::hasMax, 3, 65535},
      {"Lldp::Config", "maxTxFrameSize", "u32", K::Kind::constant, 0},
      {"Lldp::LocalPort", "portIdSubtype", "Lldp::PortIdSubtype", K::Kind::view, 0},
      {"Lldp::LocalPortPoeInfo", "remoteSystem", "Lldp::RemoteSystem", K::Kind::ref, K::constElement},
      {"Lldp::LocalPortPoeInfo", "readyToSendTlv", "bool", K::Kind::computed, 0},
      {"Lldp::UnknownOrgDefTlvCounter::Key", "subtype", "u32", K::Kind::value,
       K::logUnchecked | K::defaultUnchecked | K::hasMin | K::hasMax, 1, 255},
      {"Lldp::Oui", "value", "u32", K::Kind::value, K::hasMax, 0, 0xffffff},
      {"Lldp::BoundedString255", "value", "String", K::Kind::value, K::hasMax | K::limitOnBytes, 0, 255},
  };
  for (Row const& r : rows) {
    SCOPED_TRACE(std::string(r.type) + "::" + r.attr);
    K const* a = attr(r.type, r.attr);
    ASSERT_NE(a, nullptr);
    auto const str = [](const char* s) { return std::string(s ? s : "-"); };
    EXPECT_EQ(std::tuple(str(a->type), a->kind, unsigned{a->flags}, a->min, a->max, str(a->keyType), str(a->keyField)),
              std::tuple(str(r.spelled), r.kind, r.flags, r.min, r.max, str(r.keyType), str(r.keyField)));
  }
}

TEST(GenericIfTest, WholeValueOperations) {
  bool result = false;
  ChassisIdentifier dflt, other;
  other.chassisIdSubtypeIs(cidLocal);
  auto const& o = ops("Lldp::ChassisIdentifier");
  EXPECT_EQ(o.genericIfAttributeOp(&result, &dflt, nullptr, valueIsDefault, nullptr, nullptr), attrOpDone);
  EXPECT_TRUE(result);
  EXPECT_EQ(o.genericIfAttributeOp(&result, &dflt, nullptr, valueEquals, &other, nullptr), attrOpDone);
  EXPECT_FALSE(result);
  EXPECT_EQ(o.genericIfAttributeOp(&result, &dflt, nullptr, valueLess, &other, nullptr), attrOpDone);
  EXPECT_TRUE(result);
  // No ordering, no operation 11.
  PortCounterCheckpoint c;
  EXPECT_EQ(ops("Lldp::PortCounterCheckpoint").genericIfAttributeOp(&result, &c, nullptr, valueLess, &c, nullptr),
            attrOpUnsupported);
}

TEST(GenericIfTest, HashingTextAndConstruction) {
  RemoteSystem::Msap m;
  ChassisIdentifier ci;
  ci.chassisIdSubtypeIs(cidLocal);
  m.chassisIdentifierIs(ci);
  EXPECT_EQ(ops("Lldp::RemoteSystem::Msap").genericIfHash(&m), m.hash(0));
  ChassisId id("abc");
  EXPECT_EQ(ops("Lldp::ChassisId").genericIfHash(&id), Kel::String("abc").hash());
  PortCounterCheckpoint c;
  EXPECT_THROW(ops("Lldp::PortCounterCheckpoint").genericIfHash(&c), Kel::UnhashableException);
  BoundedString32 b;
  EXPECT_THROW(ops("Lldp::BoundedString32").genericIfHash(&b), Kel::UnhashableException);

  Oui oui(5);
  EXPECT_EQ(ops("Lldp::Oui").genericIfStrRep(&oui), "5");
  alignas(UnknownTlv) unsigned char place[sizeof(UnknownTlv)];
  ops("Lldp::UnknownTlv").genericIfStrepToValue(place, valueToStrep(UnknownTlv(9)));
  auto* parsed = std::launder(reinterpret_cast<UnknownTlv*>(place));
  EXPECT_EQ(*parsed, UnknownTlv(9));
  parsed->~UnknownTlv();

  ManAddrPriority::ManAddrType t = ManAddrPriority::secondary;
  std::uint32_t p1 = 1, p2 = 2;
  void const* args[] = {&t, &p1, &p2};
  alignas(ManAddrPriority) unsigned char made[sizeof(ManAddrPriority)];
  ops("Lldp::ManAddrPriority").genericIfConstructFromCtorArgs(made, args);
  auto* prio = std::launder(reinterpret_cast<ManAddrPriority*>(made));
  EXPECT_EQ(*prio, ManAddrPriority(ManAddrPriority::secondary, 1, 2));
  prio->~ManAddrPriority();

  // An entity comes from its factory, delivering notifications.
  Kel::Name name("clears");
  void const* nameArg[] = {&name};
  Kel::Ptr<Kel::Entity> entity;
  ops("Lldp::RemTablesStatus").genericIfConstructFromCtorArgs(&entity, nameArg);
  ASSERT_TRUE(entity);
  EXPECT_EQ(entity->kelType(), &RemTablesStatus::_kelType);
  EXPECT_TRUE(entity->deliversNotifications());
}

TEST(GenericIfTest, EntitiesAndPointerViews) {
  auto status = statusFactory("s");
  auto const& o = ops("Lldp::Status");
  std::uint32_t inserts = 4;
  EXPECT_EQ(o.genericIfAttributeOp(nullptr, status.get(), attr("Lldp::Status", "remTablesInserts"), attrSet, nullptr,
                                   &inserts),
            attrOpDone);
  EXPECT_EQ(status->remTablesInserts(), 4u);
  // A derived entity's pointer views as its base; a value type's descriptor cannot be reached.
  void* p = status.get();
  EXPECT_EQ(o.genericIfVoidPtrIs(p, &StatusBase::_kelType), p);
  EXPECT_THROW(o.genericIfVoidPtrIs(p, &Config::_kelType), Kel::TypeException);

  auto port = portStatusFactory(Platform::IntfId("Ethernet1"), 1.0);
  Kel::KelAttr const* ttlOfPort = attr("Lldp::PortStatus", "creationTime");
  double created = 0;
  EXPECT_EQ(ops("Lldp::PortStatus").genericIfAttributeOp(&created, port.get(), ttlOfPort, attrGet, nullptr, nullptr),
            attrOpDone);
  EXPECT_EQ(created, 1.0);
  EXPECT_EQ(ops("Lldp::PortStatus").genericIfAttributeOp(nullptr, port.get(), ttlOfPort, attrSet, nullptr, &created),
            attrOpUnsupported);

  // Walking a collection attribute.
  RemoteSystem::Msap m;
  auto rs = port->remoteSystemIs(1, m);
  for (std::uint32_t type : {9u, 10u, 11u}) rs->unknownTlvIs(UnknownTlv(type));
  std::unique_ptr<Iterator> it(
      ops("Lldp::RemoteSystem").genericIfIterator(rs.get(), attr("Lldp::RemoteSystem", "unknownTlv")));
  ASSERT_TRUE(it);
  std::uint32_t sum = 0;
  for (; it->iterNonnull(); it->iterInc()) {
    sum += *static_cast<std::uint32_t const*>(it->iterKey());
    EXPECT_EQ(static_cast<UnknownTlv const*>(it->iterObj())->type(), *static_cast<std::uint32_t const*>(it->iterKey()));
  }
  EXPECT_EQ(sum, 30u);
  EXPECT_EQ(ops("Lldp::RemoteSystem").genericIfIterator(rs.get(), attr("Lldp::RemoteSystem", "ttl")), nullptr);
}

// The roots a factory makes from a name alone can be made for a directory and from a log;
// the rest are made only by their owner's collections.
TEST(GenericIfTest, EntitiesMadeFromTheirName) {
  int fromName = 0;
  for (Kel::KelType const* t : Kel::typeNodesInRegistrationOrder()) {
    if (!t->isPolymorphic()) continue;
    SCOPED_TRACE(t->name());
    ASSERT_NE(t->streaming(), nullptr);
    Kel::Ptr<Kel::Entity> e = t->streaming()->newEntityForDir ? t->streaming()->newEntityForDir("d1", nullptr)
                                                               : Kel::Ptr<Kel::Entity>();
    if (!e) continue;
    ++fromName;
    EXPECT_EQ(e->kelType(), t);
    EXPECT_EQ(e->name(), "d1");
    Kel::NboAttrLog::Out out;
    t->streaming()->serializeConstructorParams(out, e.get());
    Kel::NboAttrLog::In in(out.bytes());
    auto again = t->streaming()->newEntityForAttrLog(&in);
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(again->name(), "d1");
  }
  EXPECT_GT(fromName, 0);
}

// Every type is named in a read-only section of the library file that tools read.
TEST(RegistrationTest, TypeSectionOfTheLibraryFile) {
  // The library this program loaded (an address of its data may have been copied into
  // the executable, so ask the loader by name).
  void* handle = dlopen("libLldp.so." LLDP_SOVERSION, RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr) << dlerror();
  link_map* map = nullptr;
  ASSERT_EQ(dlinfo(handle, RTLD_DI_LINKMAP, &map), 0);
  std::string const lib = map->l_name;
  dlclose(handle);
  std::string headers = run("readelf -S -W '" + lib + "' 2>/dev/null");
  if (headers.empty()) GTEST_SKIP() << "readelf is not available";
  // Allocated, not writable, aligned to 8.
  auto at = headers.find(".kel.type");
  ASSERT_NE(at, std::string::npos) << headers;
  std::istringstream line(headers.substr(at, headers.find('\n', at) - at));
  std::string name, type, addr, off, size, es, flags, lk, inf, al;
  line >> name >> type >> addr >> off >> size >> es >> flags >> lk >> inf >> al;
  EXPECT_EQ(flags, "A");
  EXPECT_EQ(al, "8");
  // Every name NUL-terminated, starting on an 8-byte boundary, NUL padding between.
  std::istringstream dump(run("readelf -x .kel.type '" + lib + "'"));
  std::string bytes;
  for (std::string l; std::getline(dump, l);) {
    if (l.rfind("  0x", 0) != 0) continue;
    std::istringstream words(l.substr(13, 35));
    for (std::string w; words >> w;)
      for (std::size_t i = 0; i + 1 < w.size(); i += 2) bytes += static_cast<char>(std::stoi(w.substr(i, 2), nullptr, 16));
  }
  std::vector<std::string> names;
  for (std::size_t pos = 0; pos < bytes.size();) {
    EXPECT_EQ(pos % 8, 0u);
    std::string n(bytes.c_str() + pos);
    names.push_back(n);
    pos += n.size() + 1;
    while (pos < bytes.size() && pos % 8) EXPECT_EQ(bytes[pos++], '\0');
  }
  // The section names the model's types in the reverse of the order they register in.
  std::vector<std::string> lldp;
  for (Kel::KelType const* t : Kel::typeNodesInRegistrationOrder())
    if (std::string_view(t->name()).starts_with("Lldp::")) lldp.insert(lldp.begin(), t->name());
  EXPECT_EQ(names, lldp);
}

}  // namespace
