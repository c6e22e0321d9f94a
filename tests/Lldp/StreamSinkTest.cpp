// A stream's sink is the user's code: it may change the very tree the stream is sending,
// also while a slow reader has cut a complete resend half-way through a collection. The
// mirror must end up equal to the source, and nothing may trip an iteration check.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "Kel/AttrLogStream.h"
#include "Lldp/Lldp.h"

namespace {

using namespace Lldp;
using Kel::NboAttrLog::Stream;

BoundedString255Tlv tlv(std::string text) {
  BoundedString255Tlv t;
  t.valueIs(BoundedString255(Kel::String(std::move(text))));
  return t;
}

RemoteSystem::Msap msapOf(int i) {
  ChassisIdentifier c;
  c.chassisIdSubtypeIs(cidLocal);
  c.chassisIdIs(ChassisId(Kel::String("chassis-" + std::to_string(i))));
  PortIdentifier p;
  p.portIdSubtypeIs(pidLocal);
  p.portIdIs(PortId(Kel::String("port-" + std::to_string(i))));
  RemoteSystem::Msap m;
  m.chassisIdentifierIs(std::move(c));
  m.portIdentifierIs(std::move(p));
  return m;
}

void learn(PortStatus& p, int i) {
  auto n = p.remoteSystemIs(i, msapOf(i));
  p.remoteSystemByMsapIs(n);
  n->sysDescIs(tlv(std::string(200, static_cast<char>('a' + i % 26))));
  n->sysNameIs(tlv("n" + std::to_string(i)));
  n->unknownTlvIs(UnknownTlv(static_cast<std::uint32_t>(9 + i % 3)));
}

// Neighbours by index, with the attributes the sink changes.
std::vector<std::string> neighbours(PortStatus const& p) {
  std::vector<std::string> out;
  for (auto it = p.remoteSystem().begin(); it; ++it) {
    RemoteSystem const& n = *it;
    out.push_back(std::to_string(n.index()) + " " + n.sysName().value().value().stdString() + " " +
                  std::to_string(n.unknownTlv().size()) + " " + valueToStrep(n.msap()).stdString());
  }
  std::sort(out.begin(), out.end());
  return out;
}

TEST(StreamSinkTest, SinkChangingTheTreeMidWalk) {
  struct Case {
    std::size_t window;      // backlog before the stream holds back
    std::size_t perCall;     // bytes the sink takes per call
    bool reenter;            // the sink also asks the stream to go on
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
          mirror->apply(data, n);
          // Drop one neighbour, learn another, rename a third and clear a fourth's TLVs;
          // then let the stream catch up.
          if (++calls > 40) return n;
          auto keys = port->remoteSystem().keys();
          port->remoteSystemDel(keys[static_cast<std::size_t>(calls * 7) % keys.size()]);
          learn(*port, next++);
          keys = port->remoteSystem().keys();
          port->remoteSystem(keys[static_cast<std::size_t>(calls * 13) % keys.size()])->sysNameIs(tlv("renamed-" + std::to_string(calls)));
          port->remoteSystem(keys[static_cast<std::size_t>(calls * 5) % keys.size()])->unknownTlvDelAll();
          if (c.reenter) out->continueFlowOut();
          return n;
        },
        c.window));
    out->streamRoot(port);
    for (int i = 0; i < 100000 && !(out->continueFlowOut() && out->backlog().empty()); ++i) {
    }
    ASSERT_TRUE(out->backlog().empty());
    EXPECT_GT(calls, 3);
    ASSERT_EQ(mirror->roots().size(), 1u);
    auto const* copy = dynamic_cast<PortStatus const*>(mirror->roots()[0].get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(neighbours(*copy), neighbours(*port));
  }
}

}  // namespace
