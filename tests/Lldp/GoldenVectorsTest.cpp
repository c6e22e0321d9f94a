// Golden vectors: the exact text form and attribute-log bytes of the value types, kept in
// tests/data/golden-values.txt. Other processes and tools read both forms, so a field that
// moves, changes width or changes key must fail here, however the value types come to be
// declared. The full value is read from the expected bytes, and then must print as the
// expected text: a reader and a writer wrong in the same way still print wrong.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <tuple>

#include "Kel/NboAttrLog.h"
#include "Kel/Printf.h"
#include "Kel/Strep.h"
#include "Lldp/ValueTestUtil.h"
#include "Power/PoePortStatus.h"

namespace {

using namespace LldpTest;
using Kel::String;

// "0000 000a" -> the bytes 00 00 00 0a; blanks only group the fields for the reader.
String unhex(std::string const& hex) {
  std::string digits, out;
  for (char c : hex) if (c != ' ') digits += c;
  EXPECT_TRUE(digits.size() % 2 == 0 && digits.find_first_not_of("0123456789abcdef") == std::string::npos) << hex;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    out += static_cast<char>(Kel::hexDigitValue(digits[i]) * 16 + Kel::hexDigitValue(digits[i + 1]));
  return String(std::move(out));
}

std::string hexOf(String const& bytes) {
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) out += Kel::format("%02x", bytes[i]).view();
  return out;
}

struct Block {
  std::string flag, text[2], log[2];
};

template <class T>
std::string textOf(T const& v) {
  if constexpr (std::is_same_v<T, Power::PoePortStatus>) {
    return Power::valueToStrep(v).stdString();
  } else {
    return Lldp::valueToStrep(v).stdString();
  }
}

template <class T>
void check(Block const& b) {
  for (int full : {0, 1}) {
    SCOPED_TRACE(full ? "full" : "default");
    String const bytes = unhex(b.log[full]);
    Kel::NboAttrLog::In in(bytes);
    T const v = full ? T(&in, Kel::StreamBogon{}) : T();
    EXPECT_TRUE(!full || in.atEnd()) << in.remaining() << " bytes not read";
    EXPECT_EQ(textOf(v), b.text[full]);
    EXPECT_EQ(hexOf(logBytes(v)), hexOf(bytes));
    EXPECT_TRUE(full || fromLog<T>(bytes) == v) << "log read back";
    if (b.flag == "refused" && !full) {
      EXPECT_THROW(Kel::strepToValue<T>(String(b.text[full])), Kel::RangeException);
    } else if (b.flag != "noparser") {
      EXPECT_TRUE(Kel::strepToValue<T>(String(b.text[full])) == v) << "text read back";
    }
  }
}

TEST(GoldenVectorsTest, EveryValueTypePrintsAndLogsExactly) {
  std::ifstream in(LLDP_TEST_DATA_DIR "/golden-values.txt");
  ASSERT_TRUE(in) << "no golden-values.txt";
  std::map<std::string, Block> blocks;
  Block* b = nullptr;
  int texts = 0, logs = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line.starts_with("text ")) {
      b->text[texts++ % 2] = line.substr(5);
    } else if (line.starts_with("log ")) {
      b->log[logs++ % 2] = line.substr(4);
    } else {
      auto space = line.find(' ');
      b = &blocks[line.substr(0, space)];
      if (space != std::string::npos) b->flag = line.substr(space + 1);
    }
  }
  ASSERT_TRUE(texts == 2 * static_cast<int>(blocks.size()) && logs == texts);
  std::size_t checked = 0;
  std::apply([&](auto... tag) {
    auto one = [&](auto t) {
      using T = decltype(t);
      if (auto it = blocks.find(T::kelName); it != blocks.end()) {
        SCOPED_TRACE(T::kelName);
        check<T>(it->second);
        ++checked;
      }
    };
    (one(tag), ...);
  }, std::tuple_cat(AllValueTypes{}, std::tuple<Power::PoePortStatus>{}));
  EXPECT_EQ(checked, blocks.size()) << "a type in the file that is not a value type";
}

}  // namespace
