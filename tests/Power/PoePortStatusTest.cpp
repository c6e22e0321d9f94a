#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/TypeRegistry.h"
#include "Kel/EnumType.h"
#include "Power/PoePortStatus.h"

using namespace Power;

namespace {

// The names by value from 0 up, and each enumeration registered under its name.
template <class E>
void expectNames(const char* typeName, std::vector<std::string> const& names) {
  EXPECT_EQ(Kel::typeNode(typeName), &enumType(E{}));
  EXPECT_EQ(enumType(E{}).enumerators().size(), names.size()) << typeName;
  for (std::uint32_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(valueToStrep(static_cast<E>(i)).stdString(), names[i]) << typeName;
    EXPECT_EQ(Kel::strepToValue<E>(names[i]), static_cast<E>(i));
  }
}

TEST(PoeEnums, NamesFollowTheIeeeCodes) {
  expectNames<PoePortState>("Power::PoePortState",
                            {"disabled", "searching", "detected", "classified", "powered", "fault", "powerDenied"});
  expectNames<PoweredDeviceClass>("Power::PoweredDeviceClass", {"unknown", "invalid", "class0", "class1", "class2",
                                                                "class3", "class4", "class5", "class6", "class7",
                                                                "class8"});
  expectNames<PowerType>("Power::PowerType", {"type2Pse", "type2Pd", "type1Pse", "type1Pd"});
  expectNames<PowerPriority>("Power::PowerPriority", {"unknown", "critical", "high", "low"});
  expectNames<LldpPoeNegotiationSupport>("Power::LldpPoeNegotiationSupport",
                                         {"NotSupported", "Ieee802_3at", "Ieee802_3bt"});
  expectNames<DualSignaturePowerClassExtMode>(
      "Power::DualSignaturePowerClassExtMode",
      {"reserved0", "class1", "class2", "class3", "class4", "class5", "reserved6", "singleSignature"});
}

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
