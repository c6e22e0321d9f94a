// The state entities: what every mutator announces, the range-checked timers, the derived
// queries and views, what the factories make, and how long removed or dropped entities live.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Kel/AttrLogStream.h"
#include "Kel/GenericIf.h"
#include "Kel/NotificationRecorder.h"
#include "Kel/TypeRegistry.h"
#include "Lldp/ModelSupport.h"
#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;
using Kel::AttributeId;
using Kel::NotificationRecorder;
using Platform::IntfId;

namespace {

constexpr std::uint32_t u32Max = std::numeric_limits<std::uint32_t>::max();

IntfId intf(std::string const& name) { return IntfId(Kel::String(name)); }

// Runs an action from inside a notification.
struct Hook : Kel::Entity::Notifiee {
  using Notifiee::Notifiee;
  std::function<void(AttributeId, Kel::AttrKey const&)> action;
  void onAttribute(AttributeId a, Kel::AttrKey const& k) override {
    if (action) action(a, k);
  }
};

// One row of a table: a label and the checks to run.
struct Row {
  std::string name;
  std::function<void()> check;
};
void run(std::vector<Row> const& rows) {
  for (auto const& r : rows) {
    SCOPED_TRACE(r.name);
    r.check();
  }
}

// A value other than `than`: the type's far sample, else its default.
template <class V>
V otherThan(V const& than) {
  V v = filled<V>();
  if (v == than) v = V{};
  return v;
}

// Through the generic interface: set another value twice, then (a double also NaN, which
// equals nothing and so notifies every time) the old one back. One keyless notification
// per change, none for the repeat.
template <class T>
void setTwiceAndBack(Kel::Entity& e, Kel::KelAttr const& a) {
  auto const op = e.kelType()->ops()->genericIfAttributeOp;
  auto const get = [&] {
    T v{};
    EXPECT_EQ(op(&v, &e, &a, Kel::GenericIf::attrGet, nullptr, nullptr), Kel::GenericIf::attrOpDone);
    return v;
  };
  T const before = get(), other = otherThan(before);
  std::vector<T> values{other, other, before};
  if constexpr (std::is_same_v<T, double>) values.insert(values.begin() + 2, 2, std::nan(""));
  NotificationRecorder rec(&e);
  for (T const& v : values) {
    ASSERT_EQ(op(nullptr, &e, &a, Kel::GenericIf::attrSet, nullptr, &v), Kel::GenericIf::attrOpDone);
    if constexpr (std::is_same_v<T, double>) EXPECT_TRUE(get() == v || (std::isnan(v) && std::isnan(get())));
    else EXPECT_TRUE(get() == v);
  }
  EXPECT_EQ(rec.count(a.id), values.size() - 1);
  EXPECT_EQ(rec.size(), values.size() - 1);
  for (auto const& r : rec.records()) EXPECT_FALSE(r.hasKey());
}

// One entity of every type, as its factory or its owner makes it.
std::vector<Kel::Entity::Ptr> everyEntity() {
  std::vector<Kel::Entity::Ptr> all;
  for (Kel::KelType const* t : Kel::typeNodesInRegistrationOrder())
    if (t->isPolymorphic() && t->streaming()->newEntityForDir) all.push_back(t->streaming()->newEntityForDir("e", nullptr));
  auto port = portStatusFactory(intf("Ethernet1"), 0.0);
  auto localPort = localSystemFactory("l")->localPortIs(intf("Ethernet1"));
  UnknownOrgDefTlvParseContext::Ptr parseContext = new UnknownOrgDefTlvParseContext();
  parseContext->deliversNotificationsIs(true);
  for (Kel::Entity::Ptr e : std::initializer_list<Kel::Entity::Ptr>{
           port, port->remoteSystemIs(1, msapOf(1)), configFactory("c")->portConfigIs(intf("Ethernet1")),
           cliPortConfigFactory(intf("Ethernet1")), localPort, localPort->localPortPoeInfoIs(intf("Ethernet1")),
           externalTlvConfigFactory("x")->portInstanceIs(ExternalTlvPortConfig::Key()), parseContext,
           parseContext->counterIs(UnknownOrgDefTlvCounter::Key())})
    all.push_back(e);
  return all;
}

// Every value attribute of every entity type the generic interface sets; the views and the
// range-checked ones have their own tests below.
TEST(EntityMutators, EveryValueSetterNotifiesOnlyOnChange) {
  std::set<Kel::KelType const*> types;
  for (auto const& e : everyEntity()) {
    types.insert(e->kelType());
    for (Kel::KelAttr const* a : settable(e->kelType())) {
      SCOPED_TRACE(std::string(e->kelType()->name()) + "::" + a->name);
      if (a->has(Kel::KelAttr::checked)) continue;
      EXPECT_TRUE(withType(a->type, [&]<class T>() { setTwiceAndBack<T>(*e, *a); })) << a->type;
    }
  }
  std::size_t entityTypes = 0;
  for (Kel::KelType const* t : Kel::typeNodes()) entityTypes += t->isPolymorphic();
  EXPECT_EQ(types.size(), entityTypes) << "an entity type the walk does not make";
}

template <class P, class Get, class C>
Row counter(P e, std::string name, AttributeId id, Get get, void (C::*set)(std::uint32_t),
            std::uint32_t (C::*inc)(std::uint32_t)) {
  return {std::move(name), [=] {
            NotificationRecorder rec(e.get());
            ((*e).*set)(u32Max);
            EXPECT_EQ(((*e).*inc)(0), u32Max);
            EXPECT_EQ(((*e).*inc)(1), 0u);  // wraps modulo 2^32
            EXPECT_EQ(((*e).*get)(), 0u);
            EXPECT_EQ(((*e).*inc)(7), 7u);
            ((*e).*set)(7);
            EXPECT_EQ(rec.count(id), 3u);
            EXPECT_EQ(rec.size(), 3u);
          }};
}
#define COUNTER(e, E, a) counter(e, #E "::" #a, E::AttrId::a, &E::a, &E::a##Is, &E::a##Inc)

// The field called `name` of v.
template <class K, class V>
K field(V v, std::string const& name) {
  K k{};
  v.kelForEachField([&](const char* n, auto& f, Kel::FieldLimit const&) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(f)>, K>)
      if (name == n) k = f;
  });
  return k;
}

// Random elements under distinct keys: insert, repeat, replace, delete a missing and a
// present key, then delete all. The notifications carry the member's key, DelAll gives one
// per key. A key is the element's field the schema names, or passed beside it.
template <class K, class V, class Is, class Del, class DelAll, class Find>
void valueColl(Kel::Entity const* e, Kel::KelAttr const& desc, Is is, Del del, DelAll delAll, Find find) {
  AttributeId const id = desc.id;
  char const* const keyField = desc.keyField;
  Rng r{1};
  std::vector<std::pair<K, V>> el;  // a, b, c, and one never inserted
  while (el.size() < 4) {
    Gen g(r);
    V v = g.make<V>();
    K k = keyField ? field<K>(v, keyField) : g.make<K>();
    if (std::none_of(el.begin(), el.end(), [&](auto const& x) { return x.first == k; })) el.emplace_back(k, v);
  }
  auto const& [a, b, c, missing] = std::tie(el[0].first, el[1].first, el[2].first, el[3].first);
  V a2 = el[0].second;
  keyField ? Gen(r).fill(a2, keyField) : void(a2 = otherThan(a2));
  ASSERT_FALSE(a2 == el[0].second);
  NotificationRecorder rec(e);
  for (auto const& [k, v] : {el[0], el[0], std::pair(a, a2), el[1], el[2]}) is(k, v);
  ASSERT_NE(find(a), nullptr);
  EXPECT_TRUE(*find(a) == a2);
  EXPECT_FALSE(del(missing));
  EXPECT_TRUE(del(b));
  EXPECT_EQ(find(b), nullptr);
  EXPECT_EQ(rec.keys<K>(id), (std::vector<K>{a, a, b, c, b}));
  EXPECT_EQ(rec.size(), 5u);
  is(b, el[1].second);
  rec.clear();
  delAll();
  std::vector<K> const all{a, b, c}, keys = rec.keys<K>(id);
  EXPECT_EQ(rec.size(), 3u);
  EXPECT_TRUE(keys.size() == 3 && std::is_permutation(keys.begin(), keys.end(), all.begin()));
  for (auto const& k : all) EXPECT_EQ(find(k), nullptr);
}
#define VCOLL(e, E, a)                                                                              \
  Row{#E "::" #a, [x = e] {                                                                          \
        using C = std::remove_cvref_t<decltype(x->a())>;                                              \
        valueColl<typename C::KeyType, typename C::ValueType>(                                        \
            x.get(), *E::_kelType.attr(#a),                                            \
            [&](auto const& k, auto const& v) {                                                       \
              if constexpr (requires { x->a##Is(k, v); }) x->a##Is(k, v);                              \
              else x->a##Is(v);                                                               \
            },                                                                                        \
            [&](auto const& k) { return x->a##Del(k); }, [&] { x->a##DelAll(); },                       \
            [&](auto const& k) { return x->a(k); });                                                  \
      }}

// Create (parented, delivering, owned), create again (the same member, silent), delete
// one and a missing one, delete all: the notifications carry the key.
template <class P, class Key, class Make, class Del, class DelAll, class Get>
Row entityColl(P owner, std::string name, AttributeId id, Key key, Make make, Del del, DelAll delAll, Get get) {
  return {std::move(name), [=] {
            using K = decltype(key(0));
            NotificationRecorder rec(owner.get());
            auto c1 = make(*owner, 1);
            ASSERT_TRUE(c1);
            EXPECT_EQ(c1->parent(), owner.get());
            EXPECT_TRUE(c1->deliversNotifications());
            EXPECT_EQ(make(*owner, 1), c1);
            auto* raw = c1.get();
            c1.reset();
            EXPECT_EQ(get(*owner, key(1)).get(), raw) << "the collection owns its member";
            auto c2 = make(*owner, 2);
            make(*owner, 3);
            auto removed = del(*owner, key(2));
            EXPECT_EQ(removed, c2);
            EXPECT_EQ(c2->parent(), nullptr);
            EXPECT_FALSE(del(*owner, key(2)));
            EXPECT_FALSE(get(*owner, key(2)));
            EXPECT_EQ(rec.keys<K>(id), (std::vector<K>{key(1), key(2), key(3), key(2)}));
            rec.clear();
            auto c3 = get(*owner, key(3));
            delAll(*owner);
            auto const keys = rec.keys<K>(id);
            std::vector<K> const all{key(1), key(3)};
            EXPECT_TRUE(keys.size() == 2 && std::is_permutation(keys.begin(), keys.end(), all.begin()));
            EXPECT_EQ(rec.size(), 2u);
            EXPECT_EQ(c3->parent(), nullptr);
            EXPECT_FALSE(get(*owner, key(1)));
          }};
}
#define ECOLL(o, E, a, key, make)                                                                     \
  entityColl(                                                                                         \
      o, #E "::" #a, E::AttrId::a, key, make, [](E& x, auto const& k) { return x.a##Del(k); },        \
      [](E& x) { x.a##DelAll(); }, [](E const& x, auto const& k) { return x.a(k); })

auto const byIntf = [](int i) { return intf("Ethernet" + std::to_string(i)); };
// The entities the tables below work on, as the agent gets them.
struct Model {
  PortStatus::Ptr port = portStatusFactory(intf("Ethernet1"), 100.0);
  RemoteSystem::Ptr neighbour = port->remoteSystemIs(1, msapOf(1));
  StatusBase::Ptr statusBase = statusBaseFactory("statusBase");
  LocalSystem::Ptr localSystem = localSystemFactory("localSystem");
  UnknownOrgDefTlvParseContext::Ptr parseContext = new UnknownOrgDefTlvParseContext();
  CounterCheckpoint::Ptr checkpoint = counterCheckpointFactory("checkpoint");
  Model() { parseContext->deliversNotificationsIs(true); }
};

using RS = RemoteSystem;
using PS = PortStatus;

TEST(EntityMutators, CountersWrapAndReturnTheNewValue) {
  Model m;
  auto tlvCounter = m.parseContext->counterIs(UnknownOrgDefTlvCounter::Key());
  run({
      COUNTER(m.port, PS, txFramesTotal), COUNTER(m.statusBase, StatusBase, remTablesInserts),
      COUNTER(tlvCounter, UnknownOrgDefTlvCounter, count),
  });
}

// Every collection of values of every entity type.
TEST(EntityMutators, ValueCollectionsNotifyPerChangedKey) {
  Model m;
  auto const localPort = m.localSystem->localPortIs(intf("Ethernet1"));
  auto const portConfig = configFactory("c")->portConfigIs(intf("Ethernet1"));
  auto const cliPort = cliPortConfigFactory(intf("Ethernet1"));
  auto const external = externalTlvConfigFactory("x")->portInstanceIs(ExternalTlvPortConfig::Key());
  run({VCOLL(m.neighbour, RemoteSystem, managementAddress), VCOLL(m.neighbour, RemoteSystem, unknownTlv),
       VCOLL(m.neighbour, RemoteSystem, unknownOrgDefTlv), VCOLL(m.neighbour, RemoteSystem, portAndProtocolVlan),
       VCOLL(m.neighbour, RemoteSystem, vlanName), VCOLL(m.neighbour, RemoteSystem, protocolIdentityInfo),
       VCOLL(m.neighbour, RemoteSystem, networkPolicyTlv), VCOLL(portConfig, PortConfig, networkPolicyConfig),
       VCOLL(cliPort, CliPortConfig, networkPolicyConfig), VCOLL(localPort, LocalPort, unknownOrgDefTlv),
       VCOLL(localPort, LocalPort, localNetworkPolicyTlv), VCOLL(m.localSystem, LocalSystem, managementAddress),
       VCOLL(m.localSystem, LocalSystem, managementAddressPrio), VCOLL(external, ExternalTlvPortConfig, unknownOrgDefTlv),
       VCOLL(m.checkpoint, CounterCheckpoint, portCounterCheckpoint)});
}

TEST(EntityMutators, EntityCollectionsCreateParentAndOwnTheirMembers) {
  auto const extKey = [](int i) {
    ExternalTlvPortConfig::Key k;
    k.intfIdIs(intf("Ethernet1"));
    k.versionIs(static_cast<std::uint32_t>(i));
    return k;
  };
  auto const counterKey = [](int i) {
    UnknownOrgDefTlvCounter::Key k;
    k.ouiIs(Oui(0x00120f));
    k.subtypeIs(static_cast<std::uint32_t>(i));
    return k;
  };
  auto const index = [](int i) { return std::int32_t{i}; };
  UnknownOrgDefTlvParseContext::Ptr parseContext = new UnknownOrgDefTlvParseContext();
  parseContext->deliversNotificationsIs(true);
  run({
      ECOLL(statusFactory("s"), Status, portStatus, byIntf,
            [](Status& x, int i) { return x.portStatusIs(byIntf(i), 5.0); }),
      ECOLL(portStatusFactory(intf("Ethernet1"), 0.0), PS, remoteSystem, index,
            [](PS& x, int i) { return x.remoteSystemIs(i, msapOf(i)); }),
      ECOLL(externalTlvConfigFactory("e"), ExternalTlvConfig, portInstance, extKey,
            [=](ExternalTlvConfig& x, int i) { return x.portInstanceIs(extKey(i)); }),
      ECOLL(parseContext, UnknownOrgDefTlvParseContext, counter, counterKey,
            [=](UnknownOrgDefTlvParseContext& x, int i) { return x.counterIs(counterKey(i)); }),
  });
}

TEST(EntityMutators, ReinstantiatingWithOtherArgumentsFailsAndChangesNothing) {
  auto port = portStatusFactory(intf("Ethernet1"), 0.0);
  NotificationRecorder rec(port.get());
  auto first = port->remoteSystemIs(3, msapOf(3));
  EXPECT_EQ(port->remoteSystemIs(3, msapOf(3)), first);
  EXPECT_THROW(port->remoteSystemIs(3, msapOf(4)), Kel::ReinstantiationException);
  EXPECT_EQ(port->remoteSystem(3), first);
  EXPECT_TRUE(first->msap() == msapOf(3));
  EXPECT_EQ(port->remoteSystem().size(), 1u);
  EXPECT_EQ(rec.size(), 1u);
  for (int bad : {0, -5}) {
    EXPECT_EQ(messageOf<Kel::RangeException>([&] { port->remoteSystemIs(bad, msapOf(5)); }),
              "RemoteSystem::index < 1 not allowed");
    EXPECT_EQ(messageOf<Kel::RangeException>([&] { RemoteSystem(bad, msapOf(5)); }),
              "RemoteSystem::index < 1 not allowed");
  }
  EXPECT_EQ(port->remoteSystem().size(), 1u);
  EXPECT_EQ(rec.size(), 1u);

  // A port's creation time is taken when it is made and ignored afterwards.
  auto status = statusFactory("s");
  auto ps = status->portStatusIs(intf("Ethernet2"), 10.0);
  EXPECT_EQ(status->portStatusIs(intf("Ethernet2"), 20.0), ps);
  EXPECT_EQ(ps->creationTime(), 10.0);
}

TEST(EntityMutators, ReferenceCollectionsNeitherOwnNorFollowTheOwners) {
  auto port = portStatusFactory(intf("Ethernet1"), 0.0);
  NotificationRecorder rec(port.get());
  auto rs = port->remoteSystemIs(3, msapOf(3));
  EXPECT_FALSE(port->remoteSystemByMsap(msapOf(3))) << "the index is the caller's to fill";
  port->remoteSystemByMsapIs(rs);
  port->remoteSystemByMsapIs(rs);
  EXPECT_EQ(port->remoteSystemByMsap(msapOf(3)), rs);
  EXPECT_EQ(rs->parent(), port.get());
  EXPECT_EQ(rec.keys<RemoteSystem::Msap>(PS::AttrId::remoteSystemByMsap), std::vector{msapOf(3)});
  port->remoteSystemDel(3);
  EXPECT_EQ(port->remoteSystemByMsap(msapOf(3)), rs) << "deleting the neighbour leaves the index alone";
  EXPECT_EQ(rs->parent(), nullptr);
  EXPECT_TRUE(port->remoteSystemByMsapDel(msapOf(3)));
  EXPECT_FALSE(port->remoteSystemByMsapDel(msapOf(3)));
  EXPECT_EQ(rec.count(PS::AttrId::remoteSystemByMsap), 2u);
  EXPECT_EQ(rs->references(), 1u);
  for (int i : {5, 6}) port->remoteSystemByMsapIs(port->remoteSystemIs(i, msapOf(i)));
  rec.clear();
  port->remoteSystemByMsapDelAll();
  EXPECT_EQ(rec.size(), 2u);
  EXPECT_EQ(port->remoteSystem().size(), 2u);
  // The key given lives in the entity the deletion frees: the observers still get it whole.
  port->remoteSystemByMsapIs(port->remoteSystemIs(7, msapOf(7)));
  port->remoteSystemDel(7);
  rec.clear();
  EXPECT_TRUE(port->remoteSystemByMsapDel(port->remoteSystemByMsap(msapOf(7))->msap()));
  EXPECT_EQ(rec.keys<RemoteSystem::Msap>(PS::AttrId::remoteSystemByMsap), std::vector{msapOf(7)});

  // A reference under a key a different entity took over is replaced and announced.
  auto status = statusFactory("s");
  auto all = allStatusFactory("all");
  NotificationRecorder allRec(all.get());
  auto p1 = status->portStatusIs(intf("Ethernet1"), 0.0);
  all->portStatusIs(p1);
  all->portStatusIs(p1);
  auto p1Again = portStatusFactory(intf("Ethernet1"), 0.0);
  all->portStatusIs(p1Again);
  EXPECT_EQ(all->portStatus(intf("Ethernet1")), p1Again);
  EXPECT_EQ(p1->parent(), status.get());
  EXPECT_EQ(p1Again->parent(), nullptr);
  EXPECT_EQ(allRec.keys<IntfId>(AllStatus::AttrId::portStatus), (std::vector{intf("Ethernet1"), intf("Ethernet1")}));
  status->portStatusDel(intf("Ethernet1"));
  EXPECT_TRUE(all->portStatusDel(intf("Ethernet1")));
  EXPECT_EQ(allRec.size(), 3u);

  auto local = localSystemFactory("l");
  auto poe = local->localPortIs(intf("Ethernet1"))->localPortPoeInfoIs(intf("Ethernet1"));
  NotificationRecorder poeRec(poe.get());
  poe->remoteSystemIs(rs);
  poe->remoteSystemIs(rs);
  EXPECT_EQ(poe->remoteSystem(), rs);
  EXPECT_EQ(rs->parent(), nullptr);
  EXPECT_EQ(poeRec.count(LocalPortPoeInfo::AttrId::remoteSystem), 1u);
}

// Every range-checked attribute at and beyond its bounds: a refused value is stored, then
// refused without a notification; set again, it is already there and nothing happens.
TEST(EntityRanges, CheckedTimersStoreThenRefuseWithoutNotifying) {
  // The same bounds on both configurations.
  std::map<std::string, std::pair<std::uint32_t, std::uint32_t>> const bounds = {
      {"messageTxInterval", {1, 32768}}, {"messageTxHoldTime", {3, 65535}}, {"reinitDelay", {1, 10}}};
  auto config = configFactory("c");
  std::size_t checked = 0;
  for (Kel::Entity::Ptr e : {Kel::Entity::Ptr(config), Kel::Entity::Ptr(cliConfigFactory("c"))})
    for (Kel::KelAttr const* a : settable(e->kelType())) {
      if (!a->has(Kel::KelAttr::checked)) continue;
      ++checked;
      auto const [lo, hi] = bounds.at(a->name);
      std::string const error = std::string(e->kelType()->name()).substr(6) + "::" + a->name + " < " +
                                std::to_string(lo) + " or > " + std::to_string(hi) + " not allowed";
      auto const op = e->kelType()->ops()->genericIfAttributeOp;
      for (auto const& [value, ok] : std::vector<std::pair<std::uint32_t, bool>>{
               {hi, true}, {hi + 1, false}, {lo, true}, {lo - 1, false}, {lo + 1, true}}) {
        SCOPED_TRACE(error + " " + std::to_string(value));
        NotificationRecorder rec(e.get());
        auto const set = [&, v = value] { op(nullptr, e.get(), a, Kel::GenericIf::attrSet, nullptr, &v); };
        if (ok) set();
        else EXPECT_EQ(messageOf<Kel::RangeException>(set), error);
        std::uint32_t got = 0;
        op(&got, e.get(), a, Kel::GenericIf::attrGet, nullptr, nullptr);
        EXPECT_EQ(got, value);
        if (!ok) set();
        EXPECT_EQ(rec.size(), ok ? 1u : 0u);
        EXPECT_EQ(rec.count(a->id), rec.size());
      }
    }
  EXPECT_EQ(checked, 2 * bounds.size());

  // The multiplier truncates; txDelay has no bound.
  struct Multiplier { std::uint32_t interval, holdTime, expected; };
  for (auto [interval, holdTime, expected] : {Multiplier{30, 120, 4}, {30, 100, 3}, {7, 3, 0}, {1, 65535, 65535}}) {
    config->messageTxIntervalIs(interval);
    config->messageTxHoldTimeIs(holdTime);
    EXPECT_EQ(config->messageTxHoldMultiplier(), expected) << interval << " " << holdTime;
  }
  config->txDelayIs(0);
  EXPECT_EQ(config->txDelay(), 0u);
}

TEST(EntityQueries, PortStatusAsksItsNeighbours) {
  struct Neighbour { bool powerViaMdi, medCapabilities; int policies; };
  struct Case {
    std::vector<Neighbour> neighbours;
    bool powerViaMdi, anyMed, medCapabilities, networkPolicy;
  };
  const Case cases[] = {
      {{}, false, false, false, false},
      {{{false, false, 0}, {true, false, 0}}, true, false, false, false},  // Power via MDI alone is not MED
      {{{false, true, 0}}, false, true, true, false},
      {{{false, false, 1}}, false, true, false, true},
      {{{false, false, 0}, {false, true, 0}, {false, false, 2}}, false, true, true, true},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.neighbours.size());
    auto port = portStatusFactory(intf("Ethernet1"), 0.0);
    int index = 0;
    for (auto const& n : c.neighbours) {
      ++index;
      auto rs = port->remoteSystemIs(index, msapOf(index));
      rs->powerViaMdiTlvReceivedIs(n.powerViaMdi);
      rs->medCapabilitiesTlvReceivedIs(n.medCapabilities);
      for (NetworkPolicyTlv p; p.appValue() < n.policies; rs->networkPolicyTlvIs(p)) p.appValueIs(p.appValue() + 1);
    }
    EXPECT_EQ(port->powerViaMdiTlvReceived(), c.powerViaMdi);
    EXPECT_EQ(port->anyLldpMedReceived(), c.anyMed);
    EXPECT_EQ(port->medCapabilitiesTlvReceived(), c.medCapabilities);
    EXPECT_EQ(port->networkPolicyTlvReceived(), c.networkPolicy);
  }
}

TEST(EntityDefaults, LocalPortAdvertisesItselfAsNetworkConnectivity) {
  auto local = localSystemFactory("l");
  auto port = local->localPortIs(intf("Ethernet1"));
  auto const networkConnectivity = [&] {
    return port->medCapabilities().capability().value() == 1u &&
           port->medCapabilities().deviceType() == MedCapabilitiesInfo::MedDeviceType_NetworkConnectivity;
  };
  EXPECT_TRUE(networkConnectivity());
  EXPECT_FALSE(port->localPortPoeInfo());

  NotificationRecorder rec(port.get());
  port->initilizeLocalPortPoeInfo();
  auto child = port->localPortPoeInfo();
  port->initilizeLocalPortPoeInfo();
  ASSERT_TRUE(child);
  EXPECT_EQ(port->localPortPoeInfo(), child);
  EXPECT_EQ(child->intfId(), intf("Ethernet1"));
  EXPECT_EQ(child->parent(), port.get());
  EXPECT_TRUE(child->deliversNotifications());
  EXPECT_FALSE(child->remoteSystem());
  EXPECT_TRUE(child->poePortStatus() == Power::PoePortStatus());
  EXPECT_EQ(rec.count(LocalPort::AttrId::localPortPoeInfo), 1u);
  port->localPortPoeInfoDel();
  EXPECT_FALSE(port->localPortPoeInfo());
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_EQ(rec.count(LocalPort::AttrId::localPortPoeInfo), 2u);

  MedCapabilitiesInfo endpoint;
  endpoint.deviceTypeIs(MedCapabilitiesInfo::MedDeviceType_EndpointClass3);
  port->medCapabilitiesIs(endpoint);
  rec.clear();
  port->setupMedCapabilities();
  EXPECT_TRUE(networkConnectivity());
  EXPECT_TRUE(rec.empty());
}

// How long a child lives once its table goes (a child deleted from its table is in the
// collection tables above): as long as someone holds it, with no link back to the parent.
TEST(EntityLifeCycle, RemovedChildWorksWhileHeldAndIsFreedAfterTheLastReference) {
  struct Case {
    const char* what;
    // Makes a child, removes it (or drops its parent) and returns it with a setter.
    std::function<std::pair<Kel::Entity::Ptr, std::function<void()>>()> removeChild;
  };
  const Case cases[] = {
      {"port dropped while its neighbour is held",
       [] {
         RemoteSystem::Ptr rs = portStatusFactory(intf("Ethernet1"), 0.0)->remoteSystemIs(1, msapOf(1));
         return std::pair{Kel::Entity::Ptr(rs), std::function<void()>([rs] { rs->ttlIs(9); })};
       }},
      {"local port dropped while its PoE information is held",
       [] {
         auto poe = localSystemFactory("l")->localPortIs(intf("Ethernet1"))->localPortPoeInfoIs(intf("Ethernet1"));
         return std::pair{Kel::Entity::Ptr(poe), std::function<void()>([poe] {
                            poe->poePortStatusIs(filled<Power::PoePortStatus>());
                          })};
       }},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    auto [child, set] = c.removeChild();
    EXPECT_EQ(child->parent(), nullptr);
    EXPECT_EQ(child->fullName(), "/" + child->name());
    NotificationRecorder watch(child.get());
    set();
    EXPECT_EQ(watch.size(), 1u);
    set = nullptr;  // the setter held a reference too
    EXPECT_EQ(child->references(), 1u);
    child.reset();
    EXPECT_EQ(watch.notifier(), nullptr) << "freed with the last reference";
  }
}

// An observer may drop the last reference to the entity it hears from (a neighbour
// removed as it expires, a port removed while its table is cleared): the mutator must
// finish, the observers after it still hear, and the entity goes when all is done.
TEST(EntityLifeCycle, ObserverMayDropTheLastReferenceDuringANotification) {
  struct Case {
    const char* what;
    int notifications;  // heard by an observer after the one that drops the entity
    std::function<Kel::Entity::Ptr()> make;
    std::function<void(Kel::Entity*)> mutate;
  };
  auto const neighbour = [] {
    auto port = portStatusFactory(intf("Ethernet1"), 0.0);
    RemoteSystem::Ptr rs = port->remoteSystemIs(1, msapOf(1));
    for (std::uint32_t type : {9u, 10u, 11u}) rs->unknownTlvIs(UnknownTlv(type));
    return Kel::Entity::Ptr(rs);
  };
  auto const port = [] {
    auto ps = portStatusFactory(intf("Ethernet1"), 0.0);
    for (int i = 1; i <= 3; ++i) ps->remoteSystemIs(i, msapOf(i));
    return Kel::Entity::Ptr(ps);
  };
  auto const rs = [](Kel::Entity* e) { return static_cast<RemoteSystem*>(e); };
  auto const ps = [](Kel::Entity* e) { return static_cast<PortStatus*>(e); };
  const Case cases[] = {
      {"value setter", 1, neighbour, [=](Kel::Entity* e) { rs(e)->expiryTimeIs(12.5); }},
      {"counter", 1, port, [=](Kel::Entity* e) { EXPECT_EQ(ps(e)->rxAgeoutsTotalInc(1), 1u); }},
      {"value collection delete", 1, neighbour, [=](Kel::Entity* e) { rs(e)->unknownTlvDel(10); }},
      {"value collection delete all", 3, neighbour, [=](Kel::Entity* e) { rs(e)->unknownTlvDelAll(); }},
      {"entity collection delete all", 3, port, [=](Kel::Entity* e) { ps(e)->remoteSystemDelAll(); }},
      {"entity collection create", 1, port,
       [=](Kel::Entity* e) {
         auto created = ps(e)->remoteSystemIs(7, msapOf(7));
         ASSERT_TRUE(created);
         EXPECT_EQ(created->index(), 7);
         EXPECT_EQ(created->parent(), nullptr) << "its port is gone";
       }},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    Kel::Entity::Ptr held = c.make();
    Kel::Entity* entity = held.get();
    Hook dropper(entity);
    dropper.action = [&](AttributeId, Kel::AttrKey const&) { held.reset(); };
    NotificationRecorder after(entity);
    c.mutate(entity);
    EXPECT_EQ(after.size(), static_cast<std::size_t>(c.notifications));
    EXPECT_EQ(after.notifier(), nullptr) << "freed once the mutator is done";
  }

  // An observer may also refuse a neighbour the moment it is announced.
  auto table = portStatusFactory(intf("Ethernet1"), 0.0);
  Hook refuse(table.get());
  refuse.action = [&](AttributeId, Kel::AttrKey const& k) {
    if (auto const* index = k.as<std::int32_t>()) table->remoteSystemDel(*index);
  };
  auto refused = table->remoteSystemIs(4, msapOf(4));
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->index(), 4);
  EXPECT_EQ(refused->parent(), nullptr);
  EXPECT_FALSE(table->remoteSystem(4));
}

}  // namespace
