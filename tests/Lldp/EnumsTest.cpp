#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

using Table = std::vector<std::pair<std::string, unsigned>>;

// Descriptor, text, parse and both Instance entries of one enumeration against its table.
template <class E, class ByNumber, class ByName>
void checkEnum(Kel::EnumType const& type, const char* qualified, Table const& table, ByNumber byNumber,
               ByName byName) {
  SCOPED_TRACE(qualified);
  EXPECT_STREQ(type.KelType::name(), qualified);
  ASSERT_EQ(type.enumerators().size(), table.size());
  for (std::size_t i = 0; i < table.size(); ++i) {
    auto const& [name, number] = table[i];
    E e = static_cast<E>(number);
    EXPECT_STREQ(type.enumerators()[i].name, name.c_str());
    EXPECT_EQ(type.enumerators()[i].value, number);
    EXPECT_EQ(stringValue(e), name);
    EXPECT_EQ(Kel::strepToValue<E>(name), e);
    EXPECT_EQ(byNumber(number), e);
    EXPECT_EQ(byName(Kel::String(name)), e);
  }
  EXPECT_THROW(Kel::strepToValue<E>("noSuchName"), Kel::RangeException);
  EXPECT_THROW(byNumber(99), Kel::RangeException);
  EXPECT_THROW(byName("noSuchName"), Kel::RangeException);
}

#define CHECK_ENUM(Scope, E, qualified, ...)                                                                  \
  checkEnum<Scope E>(Scope _kelType_##E, qualified, Table{__VA_ARGS__},                                       \
                     [](unsigned v) { return Scope E##Instance(v); },                                         \
                     [](Kel::String const& n) { return Scope E##Instance(n); })

TEST(EnumsTest, EveryEnumeratorByNameAndNumber) {
  CHECK_ENUM(, ChassisIdSubtype, "Lldp::ChassisIdSubtype", {"cidReserved", 0}, {"cidChassisComponent", 1},
             {"cidInterfaceAlias", 2}, {"cidPortComponent", 3}, {"cidMacAddress", 4}, {"cidNetworkAddress", 5},
             {"cidInterfaceName", 6}, {"cidLocal", 7}, {"cidUnknown", 8});
  CHECK_ENUM(, PortIdSubtype, "Lldp::PortIdSubtype", {"pidReserved", 0}, {"pidInterfaceAlias", 1},
             {"pidPortComponent", 2}, {"pidMacAddress", 3}, {"pidNetworkAddress", 4}, {"pidInterfaceName", 5},
             {"pidAgentCircuitId", 6}, {"pidLocal", 7}, {"pidUnknown", 8});
  CHECK_ENUM(, ManAddrIfSubtype, "Lldp::ManAddrIfSubtype", {"unknown", 1}, {"ifIndex", 2},
             {"systemPortNumber", 3});
  CHECK_ENUM(, AdminStatus, "Lldp::AdminStatus", {"txOnly", 1}, {"rxOnly", 2}, {"txAndRx", 3}, {"disabled", 4});
  CHECK_ENUM(, PowerPortClass, "Lldp::PowerPortClass", {"pClassPSE", 1}, {"pClassPD", 2});
  CHECK_ENUM(ManAddrPriority::, ManAddrType, "Lldp::ManAddrPriority::ManAddrType", {"primary", 0},
             {"secondary", 1});
  CHECK_ENUM(, LocationIdDataFormat, "Lldp::LocationIdDataFormat", {"CoordinateBased", 1}, {"CivicAddress", 2},
             {"EcsElin", 3});
  CHECK_ENUM(PowerViaMdiInfo::, IeeeStandard, "Lldp::PowerViaMdiInfo::IeeeStandard", {"IeeeStandard_802_3af", 0},
             {"IeeeStandard_802_3at", 1}, {"IeeeStandard_802_3bt", 2});
  CHECK_ENUM(PowerViaMdiInfo::Bt::, PdPoweredStatus, "Lldp::PowerViaMdiInfo::Bt::PdPoweredStatus",
             {"PdPoweredStatusReserved0", 0}, {"PoweredSingleSignaturePd", 1},
             {"TwoPairPoweringDualSignaturePd", 2}, {"FourPairPoweringDualSignaturePd", 3});
  CHECK_ENUM(PowerViaMdiInfo::Bt::, PowerClassExt, "Lldp::PowerViaMdiInfo::Bt::PowerClassExt",
             {"PowerClassExtReserved0", 0}, {"PowerClassExt1", 1}, {"PowerClassExt2", 2}, {"PowerClassExt3", 3},
             {"PowerClassExt4", 4}, {"PowerClassExt5", 5}, {"PowerClassExt6", 6}, {"PowerClassExt7", 7},
             {"PowerClassExt8", 8}, {"PowerClassExtReserved9", 9}, {"PowerClassExtReserved10", 10},
             {"PowerClassExtReserved11", 11}, {"PowerClassExtReserved12", 12}, {"PowerClassExtReserved13", 13},
             {"PowerClassExtReserved14", 14}, {"DualSignaturePd", 15});
  CHECK_ENUM(MedCapabilitiesInfo::, MedDeviceType, "Lldp::MedCapabilitiesInfo::MedDeviceType",
             {"MedDeviceType_NotDefined", 0}, {"MedDeviceType_EndpointClass1", 1},
             {"MedDeviceType_EndpointClass2", 2}, {"MedDeviceType_EndpointClass3", 3},
             {"MedDeviceType_NetworkConnectivity", 4}, {"MedDeviceType_Reserved", 5});
  CHECK_ENUM(, MgmtAddrTxMode, "Lldp::MgmtAddrTxMode", {"mgmtAddrTxModeBest", 0}, {"mgmtAddrTxModeAll", 1},
             {"mgmtAddrTxModeIntfName", 2});
  CHECK_ENUM(, MacSeparator, "Lldp::MacSeparator", {"colon", 0}, {"period", 1});
}

TEST(EnumsTest, StreamAndParseCursor) {
  std::ostringstream os;
  os << cidMacAddress << ' ' << PowerViaMdiInfo::Bt::DualSignaturePd;
  EXPECT_EQ(os.str(), "cidMacAddress DualSignaturePd");
  // The parser stops behind the name and leaves the rest to the caller.
  Kel::String text("pidLocal, x");
  Kel::StrepIt pos = text.begin();
  EXPECT_EQ(sequenceToValue(pos, text.end(), static_cast<PortIdSubtype*>(nullptr)), pidLocal);
  EXPECT_EQ(std::string(pos, text.end()), ", x");
}

}  // namespace
