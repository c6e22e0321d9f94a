#include <gtest/gtest.h>

#include <string_view>
#include <unordered_set>
#include <vector>

#include "Platform/Platform.h"

using namespace Platform;

// Text, log, limits and malformed text of these types: golden-values.txt.

TEST(PlatformTypes, ObjectIdentifierReadsOnlyTheTextGiven) {
  EXPECT_EQ(ObjectIdentifier::fromText(std::string_view("1.23", 3)), (ObjectIdentifier{1, 2}));
}

TEST(PlatformTypes, AutoNegCapBitsSetAndClear) {
  AutoNegCapBits bits(0x8000);
  bits.bitIs(22, true);
  bits.bitIs(AutoNegCapBits::b1000baseTFD, false);
  EXPECT_EQ(bits.value(), 0x400000u);
  EXPECT_TRUE(bits.bit(22) && !bits.bit(15) && !bits.bit(21));
  try {
    (void)bits.bit(23);
    ADD_FAILURE() << "bit 23 read";
  } catch (Kel::RangeException const& e) {
    EXPECT_STREQ(e.what(), "AutoNegCapBits::bit > 22 not allowed");
  }
}

// Numbers inside names compare by value, and the order is a strict total order agreeing
// with == (spellings of one number stay distinct), or containers keyed by IntfId break.
TEST(PlatformTypes, IntfIdOrdersNaturally) {
  std::vector<IntfId> const sorted = {
      IntfId(),           IntfId("Ethernet"),     IntfId("Ethernet1"),     IntfId("Ethernet1/2"),
      IntfId("Ethernet01/3"), IntfId("Ethernet1/10"), IntfId("Ethernet2"), IntfId("Ethernet10"),
      IntfId("Ethernet99999999999999999999"), IntfId("Management1"), IntfId("Port-Channel5"),
  };
  for (std::size_t i = 0; i < sorted.size(); ++i)
    for (std::size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(sorted[i] <=> sorted[j], i <=> j) << sorted[i] << " vs " << sorted[j];
      EXPECT_EQ(sorted[i] == sorted[j], i == j);
    }
  EXPECT_EQ(std::unordered_set<IntfId>(sorted.begin(), sorted.end()).size(), sorted.size());
  EXPECT_TRUE(IntfId("Ethernet01") < IntfId("Ethernet1") || IntfId("Ethernet1") < IntfId("Ethernet01"));
}
