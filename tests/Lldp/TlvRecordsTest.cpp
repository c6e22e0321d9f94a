#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

UnknownOrgDefTlv::Key orgKey(std::uint32_t oui, std::uint32_t subtype, std::int32_t index) {
  UnknownOrgDefTlv::Key k;
  k.ouiIs(Oui(oui));
  k.subtypeIs(subtype);
  k.indexIs(index);
  return k;
}

ManAddrPriority priority(ManAddrPriority::ManAddrType t, std::uint32_t p, std::uint32_t s, const char* intf) {
  ManAddrPriority m(t, p, s);
  m.intfIdIs(Platform::IntfId(intf));
  return m;
}

TEST(TlvRecordsTest, Constructors) {
  UnknownTlv u(42);
  EXPECT_EQ(u.type(), 42u);
  EXPECT_TRUE(u.info().value().empty());
  EXPECT_TRUE(!UnknownTlv());
  EXPECT_FALSE(!u);
  UnknownOrgDefTlv o(orgKey(0x00120f, 3, 1));
  EXPECT_EQ(o.key(), orgKey(0x00120f, 3, 1));
  EXPECT_TRUE(o.orgDefInfo().value().empty());
  EXPECT_EQ(VlanName(Platform::VlanId(10)).vlanId(), Platform::VlanId(10));
  EXPECT_EQ(ProtocolIdentityInfo(4).index(), 4);
  ManAddrPriority m(ManAddrPriority::secondary, 5, 6);
  EXPECT_EQ(m.manAddrType(), ManAddrPriority::secondary);
  EXPECT_EQ(m.primaryPriority(), 5u);
  EXPECT_EQ(m.secondaryPriority(), 6u);
  EXPECT_TRUE(m.intfId().empty());
  EXPECT_EQ(ExternalTlvPortConfig::Key().version(), 0u);
}

TEST(TlvRecordsTest, Orderings) {
  using enum ManAddrPriority::ManAddrType;
  std::vector<ManAddrPriority> const priorities = {
      priority(primary, 1, 9, "Ethernet9"), priority(primary, 2, 0, "Ethernet1"),
      priority(primary, 2, 1, "Ethernet1"), priority(primary, 2, 1, "Ethernet2"),
      priority(primary, 2, 1, "Ethernet10"), priority(secondary, 0, 0, ""),
  };
  std::vector<UnknownOrgDefTlv::Key> const keys = {orgKey(1, 255, 9), orgKey(2, 1, 2), orgKey(2, 1, 10),
                                                   orgKey(2, 2, 1), orgKey(0xffffff, 1, 1)};
  std::vector<ExternalTlvPortConfig::Key> ext(3);
  ext[0].intfIdIs(Platform::IntfId("Ethernet2"));
  ext[0].versionIs(9);
  ext[1].intfIdIs(Platform::IntfId("Ethernet10"));
  ext[2] = ext[1];
  ext[2].versionIs(10);
  for (std::size_t i = 1; i < priorities.size(); ++i) EXPECT_LT(priorities[i - 1], priorities[i]) << i;
  for (std::size_t i = 1; i < keys.size(); ++i) {
    EXPECT_LT(keys[i - 1], keys[i]) << i;
    EXPECT_NE(keys[i - 1].hash(0), keys[i].hash(0));
  }
  for (std::size_t i = 1; i < ext.size(); ++i) EXPECT_LT(ext[i - 1], ext[i]) << i;
  EXPECT_EQ(keys[0].hash(1), Kel::hashMix(Kel::hashMix(Kel::hashMix(1, 1), 255), 9));
  UnknownOrgDefTlv o(keys[1]);
  o.orgDefInfoIs(BoundedString507("info"));
  EXPECT_EQ(o.hash(2), Kel::hashMix(Kel::hashMix(2, keys[1].hash(0)), Kel::String("info").hash()));
}

TEST(TlvRecordsTest, EqualityCoversEveryField) {
  // Changing any one field of a fully set value makes it unequal.
  forEachValueType([](auto tag) {
    using T = decltype(tag);
    if constexpr (!Kel::KelBitMap<T>) {
      Kel::forEachField<T>([&](auto const& fd) {
        T v = filled<T>();
        T w = v;
        w.*fd.member = T().*fd.member;
        EXPECT_FALSE(v == w) << fd.name;
      });
    }
  });
  ClearRequest a, b;
  b.whereIs("cli");
  EXPECT_NE(a, b);
  EXPECT_TRUE(!a);
}

}  // namespace
