// A stream's sink is the user's code: it may change the very tree the stream is sending,
// also while a slow reader has cut a complete resend half-way through a collection. The
// mirror must end up equal to the source, and nothing may trip an iteration check.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "Kel/AttrLogStream.h"
#include "Lldp/ModelSupport.h"

namespace {

using namespace Lldp;
using Kel::NboAttrLog::Stream;
using LldpTest::msapOf;

BoundedString255Tlv tlv(std::string text) {
  BoundedString255Tlv t;
  t.valueIs(BoundedString255(Kel::String(std::move(text))));
  return t;
}

void learn(PortStatus& p, int i) {
  auto n = p.remoteSystemIs(i, msapOf(i));
  p.remoteSystemByMsapIs(n);
  n->sysDescIs(tlv(std::string(200, static_cast<char>('a' + i % 26))));
  n->sysNameIs(tlv("n" + std::to_string(i)));
  n->unknownTlvIs(UnknownTlv(static_cast<std::uint32_t>(9 + i % 3)));
}

// Every attribute of the port and of each neighbour, as text.
std::string text(Kel::Ptr<Kel::Entity> const& root) { return LldpTest::treeText({root}); }

TEST(StreamSinkTest, SinkChangingTheTreeMidWalk) {
  struct Case {
    std::size_t window;      // backlog before the stream holds back
    std::size_t perCall;     // bytes the sink takes per call
    bool reenter;            // the sink asks the stream to go on before it reads its bytes
  } const cases[] = {
      {Stream::unlimited, Stream::unlimited, false},  // changes after each hand-over
      {4096, 1500, false},                            // and between the pieces of cut walks
      {4096, 1500, true},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.window << (c.reenter ? " re-entered" : ""));
    auto port = portStatusFactory(Platform::IntfId("Ethernet1"), 1.0);
    for (int i = 1; i <= 1000; ++i) learn(*port, i);
    Kel::Ptr<Stream> mirror(new Stream());
    int calls = 0, next = 1001;
    Kel::Ptr<Stream> out;
    out = Kel::Ptr<Stream>(new Stream(
        [&](const char* data, std::size_t size) {
          std::size_t n = std::min(size, c.perCall);
          // Drop one neighbour, learn another, rename a third and clear a fourth's TLVs;
          // then let the stream catch up.
          if (++calls > 40) {
            mirror->apply(data, n);
            return n;
          }
          if (!c.reenter) mirror->apply(data, n);
          auto keys = port->remoteSystem().keys();
          port->remoteSystemDel(keys[static_cast<std::size_t>(calls * 7) % keys.size()]);
          learn(*port, next++);
          keys = port->remoteSystem().keys();
          port->remoteSystem(keys[static_cast<std::size_t>(calls * 13) % keys.size()])->sysNameIs(tlv("renamed-" + std::to_string(calls)));
          port->remoteSystem(keys[static_cast<std::size_t>(calls * 5) % keys.size()])->unknownTlvDelAll();
          if (c.reenter) {
            out->continueFlowOut();
            mirror->apply(data, n);  // still the bytes it was given
          }
          return n;
        },
        c.window));
    out->streamRoot(port);
    for (int i = 0; i < 100000 && !out->continueFlowOut(); ++i) {
    }
    ASSERT_TRUE(out->backlog().empty());  // true means all of it was handed over
    EXPECT_THROW(out->streamRoot(port), Kel::AttrLogException);  // once is enough
    EXPECT_THROW(out->streamRoot(nullptr), Kel::AttrLogException);
    EXPECT_GT(calls, 3);
    ASSERT_EQ(mirror->roots().size(), 1u);
    // The sink leaves the index by MSAP to the neighbours it drops, which the mirror cannot follow.
    EXPECT_EQ(LldpTest::firstDifference(LldpTest::treeText({port}, false), LldpTest::treeText({mirror->roots()[0]}, false)), "");
  }
}

// The bytes that stream a port with three neighbours.
std::string streamedPort() {
  auto port = portStatusFactory(Platform::IntfId("Ethernet1"), 1.0);
  for (int i = 1; i <= 3; ++i) learn(*port, i);
  Kel::Ptr<Stream> out(new Stream());
  out->streamRoot(port);
  return std::string(out->backlog());
}

// A record spoilt by one byte (anywhere but in the length fields, which frame the
// records) is refused whole: the mirror is what the records before it made.
TEST(StreamSinkTest, CorruptRecordChangesNothing) {
  std::string const good = streamedPort();
  std::vector<std::size_t> starts;  // where each record begins
  for (std::size_t at = 0; at < good.size();) {
    starts.push_back(at);
    at += 4 + Kel::NboAttrLog::In(good.data() + at, 4).nextU32();
  }
  int refused = 0;
  for (std::size_t r = 0; r < starts.size(); ++r) {
    std::size_t const end = r + 1 < starts.size() ? starts[r + 1] : good.size();
    for (std::size_t i = starts[r] + 4; i < end; ++i)
    for (char mask : {'\x5a', '\x03'}) {  // the second turns small entity ids into others, or 0
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] ^ mask);
      Kel::Ptr<Stream> in(new Stream());
      in->apply(bad.data(), starts[r]);
      std::string const before = r ? text(in->roots().at(0)) : "";
      try {
        in->apply(bad.data() + starts[r], end - starts[r]);
        continue;  // a flip may make another valid record
      } catch (Kel::AttrLogException const&) {
        ++refused;
      } catch (Kel::RangeException const&) {
        continue;  // stored, then refused by the setter, as at a source
      }
      SCOPED_TRACE(testing::Message() << "record " << r << ", byte " << i << ", mask " << int(mask));
      EXPECT_EQ(in->roots().size(), r ? 1u : 0u);
      if (r) {
        EXPECT_EQ(text(in->roots()[0]), before);
      }
    }
  }
  EXPECT_GT(refused, 100);
}

// Records without their end are refused; a stream that announces a huge record is
// refused at once, and for good, rather than waited for.
TEST(StreamSinkTest, ImpossibleLengthsAreRefused) {
  Kel::Ptr<Stream> in(new Stream());
  EXPECT_THROW(in->apply(std::string("\0\0\0\3abc", 7).data(), 7), Kel::AttrLogException);
  EXPECT_NO_THROW(in->apply(std::string("\0\0\0\x10", 4).data(), 4));
  EXPECT_TRUE(in->midRecord());
  Kel::Ptr<Stream> lost(new Stream());
  EXPECT_THROW(lost->apply(std::string("\x7f\xff\xff\xff", 4).data(), 4), Kel::AttrLogException);
  EXPECT_THROW(lost->apply(std::string("\0\0\0\0", 4).data(), 4), Kel::AttrLogException);  // framing is gone
}

// A corrupt record in the middle of the bytes is left out; those after it are applied,
// and the refusal comes once they are.
TEST(StreamSinkTest, RecordsAfterACorruptOneStillApply) {
  std::string const good = streamedPort();
  // The last record sets the port's last attribute; spoil the token of the one before.
  std::size_t last = 0, before = 0;
  for (std::size_t at = 0; at < good.size(); at += 4 + Kel::NboAttrLog::In(good.data() + at, 4).nextU32())
    before = last, last = at;
  std::string bad = good;
  bad[last - 1] = '\0';
  Kel::Ptr<Stream> in(new Stream()), want(new Stream());
  EXPECT_THROW(in->apply(bad.data(), bad.size()), Kel::AttrLogException);
  EXPECT_FALSE(in->midRecord());
  want->apply(good.data(), before);
  want->apply(good.data() + last, good.size() - last);
  EXPECT_EQ(text(in->roots().at(0)),
            text(want->roots().at(0)));
}

// A root whose changes would never reach the stream is refused before anything is sent.
TEST(StreamRootTest, RootWithoutNotificationsIsRefused) {
  Kel::Ptr<Stream> out(new Stream());
  EXPECT_THROW(out->streamRoot(Kel::makePtr<Status>(Kel::Name("x"))), Kel::AttrLogException);
  EXPECT_TRUE(out->backlog().empty());
  // The same tree from its factory streams, and so do its later changes.
  auto status = statusFactory(Kel::Name("x"));
  out->streamRoot(status);
  auto const sent = out->backlog().size();
  status->portStatusIs(Platform::IntfId("Ethernet1"), 1.0);
  EXPECT_GT(out->backlog().size(), sent);
}

}  // namespace
