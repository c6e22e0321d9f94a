#include <gtest/gtest.h>

#include "Power/PoePortStatus.h"

using namespace Power;

namespace {

// Its text and log forms are pinned with the model's values in Lldp/GoldenVectorsTest.
TEST(PoePortStatus, PoweredOnlyInThePoweredState) {
  PoePortStatus s;
  EXPECT_TRUE(!s);
  EXPECT_FALSE(s.isPowered());
  s.grantedPowerIs(15.4);
  EXPECT_FALSE(s.isPowered());
  s.poePortStateIs(PoePortState::powered);
  EXPECT_TRUE(s.isPowered());
}

}  // namespace
