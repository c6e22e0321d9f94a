// A root whose changes would never reach the stream is refused before anything is sent.
#include <gtest/gtest.h>

#include "Kel/AttrLogStream.h"
#include "Lldp/Lldp.h"

namespace {

TEST(StreamRootTest, RootWithoutNotificationsIsRefused) {
  Kel::Ptr<Kel::NboAttrLog::Stream> out(new Kel::NboAttrLog::Stream());
  auto silent = Kel::makePtr<Lldp::Status>(Kel::Name("x"));
  EXPECT_THROW(out->streamRoot(silent), Kel::AttrLogException);
  EXPECT_TRUE(out->backlog().empty());
  // The same tree from its factory streams, and so do its later changes.
  auto status = Lldp::statusFactory(Kel::Name("x"));
  out->streamRoot(status);
  auto const sent = out->backlog().size();
  status->portStatusIs(Platform::IntfId("Ethernet1"), 1.0);
  EXPECT_GT(out->backlog().size(), sent);
}

}  // namespace
