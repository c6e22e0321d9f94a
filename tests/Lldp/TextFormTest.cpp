#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

TEST(TextFormTest, EveryTypeReadsBackItsOwnText) {
  forEachValueType([](auto tag) {
    using T = decltype(tag);
    for (T const& v : {T(), filled<T>()}) {
      Kel::String text = valueToStrep(v);
      std::ostringstream os;
      os << v;
      if constexpr (!Kel::KelValue<T> || T::kelShape != Kel::Shape::wrapper) {
        EXPECT_EQ(os.str(), text.view());
        EXPECT_EQ(text.view().substr(0, 8 + std::string_view(T::kelName).size()),
                  "Value('" + std::string(T::kelName) + "'");
      }
      if constexpr (hasCollection<T>) {
        EXPECT_NE(text.view().find("'caElements': None, "), std::string_view::npos);
      } else if constexpr (!std::is_same_v<T, LocationId>) {
        // Defaults below a field's minimum print but, like any value out of range, do not read back.
        constexpr bool defaultOutOfRange =
            std::is_same_v<T, UnknownTlv> || std::is_same_v<T, ProtocolIdentityInfo> ||
            std::is_same_v<T, UnknownOrgDefTlv::Key> || std::is_same_v<T, UnknownOrgDefTlv> ||
            std::is_same_v<T, UnknownOrgDefTlvCounter::Key>;
        if (defaultOutOfRange && v == T())
          EXPECT_THROW(Kel::strepToValue<T>(text), Kel::RangeException);
        else
          EXPECT_EQ(Kel::strepToValue<T>(text), v) << text;
      }
    }
  });
}

TEST(TextFormTest, ExactTexts) {
  PortConfig::EnabledTlvs sysCap;
  sysCap.sysCapIs(true);
  LocationId::CoordinateBasedLCI lci;
  lci.latitudeIs(-5);
  lci.aTIs(255);
  ClearRequest clear;
  clear.timestampIs(1.5);
  clear.whoIs("it's");
  ManagementAddress::Key key;
  key.manAddrSubtypeIs(Platform::AddressFamilyNumbers::ipV4);
  key.manAddrIs(ManAddress(std::string("\xc0\x00\x02\x01", 4)));
  struct Case {
    Kel::String got;
    std::string want;
  };
  std::vector<Case> const cases = {
      {valueToStrep(cidMacAddress), "cidMacAddress"},
      {valueToStrep(ChassisId("a'b")), "'a\\'b'"},
      {valueToStrep(Oui(0xffffff)), "16777215"},
      {valueToStrep(MaximumFrameSizeInfo(1518)), "1518"},
      {valueToStrep(TlvBase(true)), "True"},
      {valueToStrep(ChassisIdentifier()),
       "Value('Lldp::ChassisIdentifier', ** {'chassisIdSubtype': cidReserved, 'chassisId': ''})"},
      {valueToStrep(sysCap),
       "Value('Lldp::PortConfig::EnabledTlvs', ** {'portDesc': False, 'sysName': False, 'sysDesc': False, "
       "'sysCap': True})"},
      {valueToStrep(BoundedString32Tlv::create("x")), "Value('Lldp::BoundedString32Tlv', ** {'isSet': True, 'value': 'x'})"},
      {valueToStrep(lci),
       "Value('Lldp::LocationId::CoordinateBasedLCI', ** {'laRes': 0, 'latitude': -5, 'loRes': 0, 'longitude': 0, "
       "'aT': 255, 'altRes': 0, 'altitude': 0, 'datum': 0, 'received': False})"},
      {valueToStrep(clear), "Value('Lldp::ClearRequest', ** {'timestamp': 1.5, 'who': 'it\\'s', 'where': ''})"},
      {valueToStrep(key),
       "Value('Lldp::ManagementAddress::Key', ** {'manAddrSubtype': ipV4, 'manAddr': '\\xc0\\x00\\x02\\x01'})"},
      {valueToStrep(MedCapabilitiesInfo()),
       "Value('Lldp::MedCapabilitiesInfo', ** {'capability': Value('Lldp::MedCapabilitiesInfo::Capability', ** "
       "{'capabilities': False, 'networkPolicy': False, 'location': False, 'extendedPse': False, 'extendedPd': "
       "False, 'inventory': False, 'reserved': False}), 'deviceType': MedDeviceType_NotDefined})"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;

  std::ostringstream os;
  os << ChassisId("a'b") << ' ' << Oui(7) << ' ' << BoundedString511("raw");
  EXPECT_EQ(os.str(), "a'b 7 raw");
}

TEST(TextFormTest, Errors) {
  using Parse = std::function<void(Kel::String const&)>;
  auto as = []<class T>(T*) -> Parse { return [](Kel::String const& s) { Kel::strepToValue<T>(s); }; };
  Kel::String const chassis = valueToStrep(ChassisIdentifier());
  auto withField = [](Kel::String text, std::string const& field, std::string const& value) {
    std::string s(text.view());
    auto at = s.find("'" + field + "': ") + field.size() + 4;
    auto end = s.find_first_of(",}", at);
    return Kel::String(s.replace(at, end - at, value));
  };
  struct Case {
    Parse parse;
    Kel::String text;
    bool range;  // RangeException, else ParseException
    std::string message;  // the whole message, or its start when it ends in "..."
  };
  std::vector<Case> const cases = {
      {as((ChassisIdentifier*)0),
       Kel::String("Value('Lldp::ChassisIdentifier', ** {'chassisIdSubtype': cidLocal, 'chassisId':''})"), false,
       "expected \", 'chassisId': \" but found \", 'chassisId':''})\""},
      {as((ChassisIdentifier*)0), Kel::String("Value('Lldp::ChassisIdentifier', ** {'chassisIdSubtype':cidLocal"), false,
       "expected \"'chassisIdSubtype': \"..."},
      {as((ChassisIdentifier*)0), chassis + Kel::String(" "), false, "unexpected text after the value: \" \""},
      {as((ChassisIdentifier*)0), Kel::String(""), false, "expected \"Value('Lldp::ChassisIdentifier', ** {\"..."},
      {as((PortIdentifier*)0), chassis, false, "expected \"Value('Lldp::PortIdentifier', ** {\"..."},
      {as((ChassisId*)0), valueToStrep(awkwardBytes(256)), true, "ChassisId::value::bytes > 255 not allowed"},
      {as((ChassisIdentifier*)0), withField(chassis, "chassisId", std::string(valueToStrep(awkwardBytes(256)).view())),
       true, "chassisId: ChassisId::value::bytes > 255 not allowed"},
      {as((Oui*)0), "16777216", true, "Oui::value > 0xffffff not allowed"},
      {as((UnknownTlv*)0), withField(valueToStrep(UnknownTlv(9)), "type", "127"), true,
       "type: UnknownTlv::type < 9 or > 126 not allowed"},
      {as((ProtocolIdentityInfo*)0), valueToStrep(ProtocolIdentityInfo()), true,
       "index: ProtocolIdentityInfo::index < 1 not allowed"},
      {as((UnknownOrgDefTlv*)0), valueToStrep(UnknownOrgDefTlv()), true,
       "key: subtype: Key::subtype < 1 or > 255 not allowed"},
      {as((UnknownOrgDefTlvCounter::Key*)0), withField(valueToStrep(UnknownOrgDefTlvCounter::Key()), "subtype", "256"),
       true, "subtype: Key::subtype < 1 or > 255 not allowed"},
      {as((NetworkPolicyTlv*)0), withField(valueToStrep(NetworkPolicyTlv()), "appValue", "256"), true,
       "appValue: 256 does not fit unsigned 8-bit"},
      {as((PowerViaMdiInfo*)0), withField(valueToStrep(PowerViaMdiInfo()), "ieeeStandard", "IeeeStandard_802_3ab"),
       true, "ieeeStandard: ..."},
      {as((PowerViaMdiInfo*)0), withField(valueToStrep(PowerViaMdiInfo()), "powerType", "bogus"), true,
       "at: powerType: ..."},
      {as((VlanName*)0), withField(valueToStrep(VlanName()), "vlanId", "4095"), true,
       "vlanId: VlanId::value < 1 or > 4094 not allowed"},
      {as((LinkAggStatusMap*)0), withField(valueToStrep(LinkAggStatusMap()), "unused6", "true"), false,
       "unused6: expected True or False..."},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    auto const& c = cases[i];
    SCOPED_TRACE(testing::Message() << "case " << i << ": " << c.text);
    std::string got = c.range ? messageOf<Kel::RangeException>([&] { c.parse(c.text); })
                              : messageOf<Kel::ParseException>([&] { c.parse(c.text); });
    bool prefix = c.message.ends_with("...");
    EXPECT_EQ(prefix ? got.substr(0, c.message.size() - 3) : got, prefix ? c.message.substr(0, c.message.size() - 3) : c.message);
  }
}

}  // namespace
