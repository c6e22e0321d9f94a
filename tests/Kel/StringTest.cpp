#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "Kel/Exception.h"
#include "Kel/String.h"

namespace {

using Kel::String;

TEST(String, KeepsEveryByte) {
  std::string raw("a\0b\xff", 4);
  String s(raw);
  EXPECT_EQ(s.size(), 4u);
  EXPECT_EQ(s[1], 0u);
  EXPECT_EQ(s[3], 0xffu);
  EXPECT_EQ(std::string(s.view()), raw);
  std::ostringstream os;
  os << s;
  EXPECT_EQ(os.str(), raw);
}

TEST(String, OrdersBytewiseWithPrefixFirst) {
  struct Case {
    String a, b;
  } const cases[] = {
      {"", "a"}, {"ab", "abc"}, {"abc", "abd"}, {String("a\0", 2), "a\x01"}, {"\x7f", "\x80"}, {"z", "\xff"},
  };
  for (auto const& c : cases) {
    EXPECT_TRUE(c.a < c.b) << c.a.view() << " < " << c.b.view();
    EXPECT_FALSE(c.b < c.a);
    EXPECT_NE(c.a, c.b);
  }
}

TEST(String, HashIsStableAndSpreads) {
  EXPECT_EQ(String("Ethernet1").hash(), String(std::string("Ethernet1")).hash());
  EXPECT_NE(String("Ethernet1").hash(), String("Ethernet2").hash());
  EXPECT_NE(String("").hash(), String(std::string(1, '\0')).hash());
  EXPECT_NE(Kel::hashMix(0, 1), Kel::hashMix(1, 0));
}

TEST(String, FormatHandlesShortAndLongOutput) {
  EXPECT_EQ(Kel::format("%02hhx:%d %s", static_cast<unsigned char>(10), -3, "x"), String("0a:-3 x"));
  std::string longText(1000, 'q');
  EXPECT_EQ(Kel::format("<%s>", longText.c_str()).size(), 1002u);
}

TEST(String, NowIsSecondsSinceTheEpoch) {
  Kel::Seconds t = Kel::now();
  EXPECT_GT(t, 1.6e9);
  EXPECT_LE(t, Kel::now());
}

TEST(Exception, RangeExceptionMessageIsExact) {
  try {
    Kel::throwRangeException("Oui::value > 0xffffff not allowed");
    FAIL();
  } catch (Kel::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Oui::value > 0xffffff not allowed");
  }
}

TEST(ExceptionDeathTest, AssertionPrintsTheExpressionText) {
  int version_ = 1, expected = 2;
  EXPECT_DEATH(KEL_ASSERT(version_ == expected), "Assertion failed: version_ == expected");
}

}  // namespace
