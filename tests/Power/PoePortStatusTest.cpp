#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Kel/TypeRegistry.h"
#include "Power/PoePortStatus.h"

using namespace Power;
using Kel::NboAttrLog::In;
using Kel::NboAttrLog::Out;

namespace {

// Names by value from 0 up; checks the descriptor, the text form, the stream output, the
// parser and the attribute log of every enumerator of E.
template <class E>
void expectNames(const char* typeName, std::vector<std::string> const& names) {
  Kel::EnumType const& t = enumType(E{});
  EXPECT_STREQ(t.Kel::KelType::name(), typeName);
  EXPECT_EQ(Kel::typeNode(typeName), &t) << typeName;
  EXPECT_EQ(t.enumerators().size(), names.size()) << typeName;
  for (std::uint32_t i = 0; i < names.size(); ++i) {
    E const e = static_cast<E>(i);
    EXPECT_EQ(valueToStrep(e).stdString(), names[i]) << typeName;
    std::ostringstream os;
    os << e;
    EXPECT_EQ(os.str(), names[i]);
    EXPECT_EQ(Kel::strepToValue<E>(names[i]), e) << names[i];
    Out out;
    out << e;
    Out want;
    want << i;
    EXPECT_EQ(out.bytes(), want.bytes());
    In in(out.bytes());
    E back{};
    in >> back;
    EXPECT_EQ(back, e);
  }
  EXPECT_THROW(Kel::strepToValue<E>("noSuchName"), Kel::Exception) << typeName;
}

PoePortStatus sample() {
  PoePortStatus s;
  s.poePortState = PoePortState::powered;
  s.poweredDeviceClass = PoweredDeviceClass::class4;
  s.grantedPower = 15.4;
  s.lldpPoeNegotiationSupport = LldpPoeNegotiationSupport::Ieee802_3bt;
  s.psePairsControllable = true;
  s.psePowerPair = PsePowerPair::signal;
  s.powerType = PowerType::type1Pse;
  s.powerSource = PowerSource::primary;
  s.powerPriority = PowerPriority::high;
  s.allocatedPowerAlternativeA = 7.5;
  s.allocatedPowerAlternativeB = 0.1;
  s.psePoweringStatus = PsePoweringStatus::fourPairDualSignature;
  s.psePowerPairsExt = PsePowerPairsExt::bothAlternatives;
  s.dualSignaturePowerClassExtModeA = DualSignaturePowerClassExtMode::class3;
  s.dualSignaturePowerClassExtModeB = DualSignaturePowerClassExtMode::singleSignature;
  s.powerTypeExt = PowerTypeExt::type4Pse;
  s.pseMaximumAvailablePower = 90.0;
  s.pseAutoclassSupport = true;
  s.autoclassCompleted = true;
  return s;
}

}  // namespace

TEST(PoeEnums, NameTablesAreTheIeeeCodes) {
  expectNames<PoePortState>("Power::PoePortState", {"disabled", "searching", "detected", "classified",
                                                     "powered", "fault", "powerDenied"});
  expectNames<PoweredDeviceClass>("Power::PoweredDeviceClass",
                                  {"unknown", "invalid", "class0", "class1", "class2", "class3",
                                   "class4", "class5", "class6", "class7", "class8"});
  expectNames<PowerType>("Power::PowerType", {"type2Pse", "type2Pd", "type1Pse", "type1Pd"});
  expectNames<PowerSource>("Power::PowerSource", {"unknown", "primary", "backup", "reserved"});
  expectNames<PowerPriority>("Power::PowerPriority", {"unknown", "critical", "high", "low"});
  expectNames<PsePoweringStatus>("Power::PsePoweringStatus",
                                 {"ignore", "twoPair", "fourPairSingleSignature", "fourPairDualSignature"});
  expectNames<PsePowerPairsExt>("Power::PsePowerPairsExt",
                                {"ignore", "alternativeA", "alternativeB", "bothAlternatives"});
  expectNames<DualSignaturePowerClassExtMode>(
      "Power::DualSignaturePowerClassExtMode",
      {"reserved0", "class1", "class2", "class3", "class4", "class5", "reserved6", "singleSignature"});
  expectNames<PowerTypeExt>("Power::PowerTypeExt",
                            {"type3Pse", "type4Pse", "type3PdSingleSignature", "type3PdDualSignature",
                             "type4PdSingleSignature", "type4PdDualSignature", "reserved6", "reserved7"});
  expectNames<LldpPoeNegotiationSupport>("Power::LldpPoeNegotiationSupport",
                                         {"NotSupported", "Ieee802_3at", "Ieee802_3bt"});
  expectNames<PsePowerPair>("Power::PsePowerPair", {"unknown", "signal", "spare"});
  // A value without a name still prints, so a status from a newer peer can be shown.
  EXPECT_EQ(valueToStrep(static_cast<PowerType>(9)).stdString(), "<undefined 9>");
}

TEST(PoePortStatus, TextForm) {
  PoePortStatus const def;
  EXPECT_TRUE(!def);
  EXPECT_FALSE(!sample());
  EXPECT_EQ(valueToStrep(def).stdString(),
            "Value('Power::PoePortStatus', ** {'poePortState': disabled, 'poweredDeviceClass': unknown, "
            "'grantedPower': 0.0, 'lldpPoeNegotiationSupport': NotSupported, 'psePairsControllable': False, "
            "'psePowerPair': unknown, 'powerType': type2Pse, 'powerSource': unknown, 'powerPriority': "
            "unknown, 'allocatedPowerAlternativeA': 0.0, 'allocatedPowerAlternativeB': 0.0, "
            "'psePoweringStatus': ignore, 'psePowerPairsExt': ignore, 'dualSignaturePowerClassExtModeA': "
            "reserved0, 'dualSignaturePowerClassExtModeB': reserved0, 'powerTypeExt': type3Pse, "
            "'pseMaximumAvailablePower': 0.0, 'pseAutoclassSupport': False, 'autoclassCompleted': False})");
  for (PoePortStatus const& s : {def, sample()}) {
    Kel::String const text = valueToStrep(s);
    EXPECT_EQ(Kel::strepToValue<PoePortStatus>(text), s) << text;
    std::ostringstream os;
    os << s;
    EXPECT_EQ(os.str(), text.stdString());
  }
}

TEST(PoePortStatus, MalformedTextNamesTheField) {
  std::string const good = valueToStrep(sample()).stdString();
  auto replaced = [&](std::string const& from, std::string const& to) {
    std::string t = good;
    t.replace(t.find(from), from.size(), to);
    return t;
  };
  struct Case {
    std::string text;
    std::string messagePrefix;  // "" = ParseException expected
  } const cases[] = {
      {replaced("'powerType': type1Pse", "'powerType': bogus"), "powerType: "},
      {replaced("'grantedPower': 15.4", "'grantedPower': x"), ""},
      {replaced("'pseAutoclassSupport': True", "'pseAutoclassSupport': 1"), ""},
      {replaced(", 'powerSource': primary", ""), ""},
      {replaced("'poePortState': ", "'poePortState':"), ""},
      {good.substr(0, good.size() - 1), ""},
      {good + " ", ""},
  };
  for (auto const& c : cases) {
    try {
      Kel::strepToValue<PoePortStatus>(c.text);
      ADD_FAILURE() << "accepted: " << c.text;
    } catch (Kel::RangeException const& e) {
      EXPECT_EQ(std::string(e.what()).rfind(c.messagePrefix, 0), 0u) << e.what();
      EXPECT_FALSE(c.messagePrefix.empty()) << e.what();
    } catch (Kel::ParseException const& e) {
      EXPECT_TRUE(c.messagePrefix.empty()) << e.what();
    }
  }
}

TEST(PoePortStatus, AttributeLog) {
  PoePortStatus const s = sample();
  Out got;
  got << s;
  // Declaration order: enumerations as u32, watts as double, flags as bool.
  Out want;
  want << 4u << 6u << 15.4 << 2u << true << 1u << 2u << 1u << 2u << 7.5 << 0.1 << 3u << 3u << 3u << 7u
       << 1u << 90.0 << true << true;
  EXPECT_EQ(got.bytes(), want.bytes());
  In in(got.bytes());
  EXPECT_EQ(PoePortStatus(&in, Kel::StreamBogon{}), s);
  EXPECT_TRUE(in.atEnd());
  for (std::size_t n = 0; n < got.bytes().size(); ++n) {
    In cut(got.bytes().data(), n);
    EXPECT_THROW(PoePortStatus(&cut, Kel::StreamBogon{}), Kel::AttrLogException) << "cut at " << n;
  }
}
