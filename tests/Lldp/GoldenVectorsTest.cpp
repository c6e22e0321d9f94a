// Golden vectors: the exact text form and attribute-log bytes of the value types, kept in
// tests/data/golden-values.txt. Other processes and tools read both forms, so a field that
// moves, changes width or changes key must fail here, however the value types come to be
// declared. The full value is read from the expected bytes, and then must print as the
// expected text: a reader and a writer wrong in the same way still print wrong.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "Kel/NboAttrLog.h"
#include "Kel/Printf.h"
#include "Kel/Strep.h"
#include "Lldp/ValueTestUtil.h"
#include "Platform/Platform.h"
#include "Power/PoePortStatus.h"

namespace {

using namespace LldpTest;
using Kel::String;

// "0000 000a 61*3" -> the bytes 00 00 00 0a 61 61 61; blanks only group the fields.
String unhex(std::string const& hex) {
  std::istringstream words(hex);
  std::string out;
  for (std::string w; words >> w;) {
    auto star = w.find('*');
    std::string const digits = w.substr(0, star), times = star == w.npos ? "1" : w.substr(star + 1);
    EXPECT_TRUE(digits.size() % 2 == 0 && digits.find_first_not_of("0123456789abcdef") == w.npos &&
                times.find_first_not_of("0123456789") == w.npos) << "not hex: " << w;
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
      bytes += static_cast<char>(Kel::hexDigitValue(digits[i]) * 16 + Kel::hexDigitValue(digits[i + 1]));
    for (int n = std::stoi(times); n > 0; --n) out += bytes;
  }
  return String(std::move(out));
}

std::string hexOf(String const& bytes) {
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) out += Kel::format("%02x", bytes[i]).view();
  return out;
}

struct Line {
  int no;
  std::string kind, in;
  std::optional<std::string> want;  // none: read, and accepted
};

struct Block {
  int no;
  std::string flag;
  std::vector<std::string> text, log;
  std::vector<Line> checks;
  bool ran = false;
};

template <class T>
std::string printed(T const& v) {
  using Kel::valueToStrep;
  if constexpr (std::is_enum_v<T>) {
    return std::to_string(static_cast<int>(v));
  } else {
    return valueToStrep(v).stdString();
  }
}

template <class T>
void golden(Block const& b) {
  for (int full : {0, 1}) {
    SCOPED_TRACE(full ? "full" : "default");
    String const bytes = unhex(b.log[full]);
    Kel::NboAttrLog::In in(bytes);
    T const v = full ? T(&in, Kel::StreamBogon{}) : T();
    EXPECT_TRUE(!full || in.atEnd()) << in.remaining() << " bytes not read";
    EXPECT_EQ(printed(v), b.text[full]);
    EXPECT_EQ(hexOf(logBytes(v)), hexOf(bytes));
    EXPECT_TRUE(full || fromLog<T>(bytes) == v) << "log read back";
    if (b.flag == "refused" && !full) {
      EXPECT_THROW(Kel::strepToValue<T>(String(b.text[full])), Kel::RangeException);
    } else if (b.flag != "noparser") {
      EXPECT_TRUE(Kel::strepToValue<T>(String(b.text[full])) == v) << "text read back";
    }
  }
}

template <class T>
struct Named {
  using Type = T;
  const char* name;
};

// The text, parsed as a whole: primitives through the field name "f".
template <class T>
T parseText(String const& text) {
  if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, String>) {
    Kel::StrepIt pos = text.begin();
    T v = Kel::deserializeAttr<T>(pos, text.end(), "f");
    Kel::strepToValueEnd(text, pos);
    return v;
  } else if constexpr (std::is_enum_v<T>) {
    throw std::logic_error("no text form");
  } else {
    return Kel::strepToValue<T>(text);
  }
}

template <class T>
T readLog(Kel::NboAttrLog::In& in) {
  if constexpr (std::is_same_v<T, std::uint8_t>) return in.nextU8();
  else if constexpr (std::is_same_v<T, std::uint16_t>) return in.nextU16();
  else if constexpr (std::is_same_v<T, std::uint32_t>) return in.nextU32();
  else if constexpr (std::is_same_v<T, std::uint64_t>) return in.nextU64();
  else if constexpr (std::is_same_v<T, std::int32_t>) return in.nextS32();
  else if constexpr (std::is_same_v<T, std::int64_t>) return in.nextS64();
  else if constexpr (std::is_same_v<T, bool>) return in.nextbool();
  else if constexpr (std::is_same_v<T, double>) return in.nextSeconds();
  else if constexpr (std::is_same_v<T, String>) return in.nextString();
  else if constexpr (std::is_same_v<T, Kel::NboAttrLog::Out::TransactToken>) return in.nextToken();
  else if constexpr (std::is_class_v<T>) return T(&in, Kel::StreamBogon{});
  else throw std::logic_error("no log form");
}

// What one check line yields: the printed value, or "!range|!parse|!log MESSAGE".
template <class T>
std::string outcome(Line const& l) {
  try {
    if (l.kind == "read") {
      String const bytes = unhex(l.in);
      Kel::NboAttrLog::In in(bytes);
      try {
        T const v = readLog<T>(in);
        EXPECT_TRUE(in.atEnd()) << in.remaining() << " bytes not read";
        if constexpr (requires(Kel::NboAttrLog::Out o) { o << v; }) {
          EXPECT_EQ(hexOf(logBytes(v)), hexOf(bytes)) << "written back";
        }
        for (std::size_t n = 0; n < bytes.size(); ++n) {
          Kel::NboAttrLog::In cut(bytes.data(), n);
          EXPECT_THROW(readLog<T>(cut), Kel::AttrLogException) << "cut at " << n;
        }
        return printed(v);
      } catch (Kel::AttrLogException const&) {
        EXPECT_TRUE((std::is_class_v<T> && !std::is_same_v<T, String>) || in.position() == 0) << "read consumed bytes";
        throw;
      }
    }
    if (l.kind == "shows") {
      std::string text = l.in;
      auto word = [&](std::string const& w) {
        if (!text.starts_with(w + " ")) return false;
        text.erase(0, w.size() + 1);
        return true;
      };
      bool const period = word("period"), quoted = (period || word("colon")) && word("quoted");
      T const v = parseText<T>(String(text));
      if constexpr (requires { v.stringValue(); }) return v.stringValue().stdString();
      if constexpr (requires { v.stringValue(Lldp::colon, true); })
        return v.stringValue(period ? Lldp::period : Lldp::colon, quoted).stdString();
      return "!other no stringValue";
    }
    T const v = parseText<T>(String(l.in));
    if (l.kind == "stream") {
      std::ostringstream os;
      if constexpr (requires { os << v; }) os << v;
      return os.str();
    }
    std::string const text = printed(v);
    EXPECT_EQ(printed(parseText<T>(String(text))), text) << "reads back as printed";
    return text;
  } catch (Kel::RangeException const& e) {
    return std::string("!range ") + e.what();
  } catch (Kel::ParseException const& e) {
    return std::string("!parse ") + e.what();
  } catch (Kel::AttrLogException const& e) {
    return std::string("!log ") + e.what();
  } catch (std::exception const& e) {
    return std::string("!other ") + e.what();
  }
}

// The types that are not in the generated list: the platform's and the primitives.
std::tuple const otherTypes{
    Named<Platform::IntfId>{"Platform::IntfId"}, Named<Platform::EthAddr>{"Platform::EthAddr"},
    Named<Platform::VlanId>{"Platform::VlanId"}, Named<Platform::VlanIdOrNone>{"Platform::VlanIdOrNone"},
    Named<Platform::VrfName>{"Platform::VrfName"}, Named<Platform::ObjectIdentifier>{"Platform::ObjectIdentifier"},
    Named<Platform::AddressFamilyNumbers>{"Platform::AddressFamilyNumbers"},
    Named<Platform::AutoNegCapBits>{"Platform::AutoNegCapBits"}, Named<std::uint8_t>{"u8"},
    Named<std::uint16_t>{"u16"}, Named<std::uint32_t>{"u32"}, Named<std::uint64_t>{"u64"}, Named<std::int8_t>{"i8"},
    Named<std::int32_t>{"i32"}, Named<std::int64_t>{"i64"}, Named<bool>{"bool"}, Named<double>{"double"},
    Named<String>{"String"}, Named<Kel::NboAttrLog::Out::TransactToken>{"token"}};

template <class T>
void run(Block const& b) {
  if constexpr (requires { T::kelName; }) {
    if (!b.text.empty()) golden<T>(b);
  }
  for (Line const& l : b.checks) {
    SCOPED_TRACE(testing::Message() << "golden-values.txt:" << l.no);
    std::string const got = outcome<T>(l);
    if (!l.want) {
      EXPECT_FALSE(got.starts_with("!")) << got;
    } else if (l.want == "!parse" || l.want == "!range" || l.want == "!log") {
      EXPECT_TRUE(got.starts_with(*l.want + " ")) << got;
    } else {
      EXPECT_EQ(got, *l.want);
    }
  }
}

TEST(GoldenVectorsTest, EveryValueTypePrintsAndLogsExactly) {
  std::ifstream in(LLDP_TEST_DATA_DIR "/golden-values.txt");
  ASSERT_TRUE(in) << "no golden-values.txt";
  std::map<std::string, Block> blocks;
  Block* b = nullptr;
  int no = 0;
  for (std::string line; std::getline(in, line);) {
    ++no;
    if (line.empty() || line[0] == '#') continue;
    auto space = line.find(' ');
    std::string const word = line.substr(0, space), rest = space == line.npos ? "" : line.substr(space + 1);
    auto arrow = rest.find(" => ");
    if (word == "text" || word == "log" || word == "parse" || word == "read" || word == "stream" || word == "shows") {
      ASSERT_TRUE(b) << "golden-values.txt:" << no << ": a line before the first type";
      if (word == "text") b->text.push_back(rest);
      else if (word == "log") b->log.push_back(rest);
      else if (arrow != rest.npos) b->checks.push_back({no, word, rest.substr(0, arrow), rest.substr(arrow + 4)});
      else if (word == "parse" || word == "read") b->checks.push_back({no, word, rest, word == "parse" ? rest : std::optional<std::string>()});
      else FAIL() << "golden-values.txt:" << no << ": " << word << " needs =>";
    } else {
      ASSERT_TRUE(rest.empty() || rest == "refused" || rest == "noparser") << "golden-values.txt:" << no;
      b = &blocks[word];
      ASSERT_EQ(b->no, 0) << "golden-values.txt:" << no << ": " << word << " again";
      *b = Block{no, rest, {}, {}, {}};
    }
  }
  for (auto const& [name, block] : blocks)
    EXPECT_TRUE(block.text.size() == block.log.size() && block.text.size() % 2 == 0 && block.text.size() <= 2 &&
                !(block.text.empty() && block.checks.empty()))
        << "golden-values.txt:" << block.no << ": " << name << " needs two text and two log lines or checks";
  auto one = [&](auto named) {
    using T = typename decltype(named)::Type;
    if (auto it = blocks.find(named.name); it != blocks.end()) {
      SCOPED_TRACE(named.name);
      run<T>(it->second);
      it->second.ran = true;
    }
  };
  std::apply([&](auto... tag) { (one(Named<decltype(tag)>{decltype(tag)::kelName}), ...); },
             std::tuple_cat(AllValueTypes{}, std::tuple<Power::PoePortStatus>{}));
  std::apply([&](auto... named) { (one(named), ...); }, otherTypes);
  for (auto const& [name, block] : blocks)
    EXPECT_TRUE(block.ran) << "golden-values.txt:" << block.no << ": " << name << " is not a type the test knows";
}

}  // namespace
