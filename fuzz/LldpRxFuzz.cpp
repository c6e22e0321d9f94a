// The receive path on frames straight from the wire: a run of frames goes through two
// receivers, one decoding only what changed from a neighbour's previous LLDPDU and one
// decoding every LLDPDU in full. Nothing may throw or crash, every frame must come out the
// same in both, and so must the trees and their two neighbour indexes.
//
// Input: a configuration byte, then frames, each a time step (tenths of a second), a
// big-endian 16-bit length and the frame.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzUtil.h"
#include "Tools/RxTestUtil.h"

namespace {

struct Side : RxTest::Rx {
  Side(bool incremental, std::uint8_t flags) {
    receiver.incrementalIs(incremental);
    Lldp::PortConfig& pc = *port.config();
    pc.maxRemoteSystemsIs(1u + (flags & 7u));
    pc.rxRateLimitingEnabledIs(flags & 8u);
    pc.rxRateLimitMaxIs(4);
    pc.rxRateLimitPeriodIs(1.0);
    config->rxTaggedPacketsDropIs(flags & 16u);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using Fuzz::check;
  static bool const quiet = (Duolog::handle("LldpExtDot3Parser").levelIs(-1), true);
  (void)quiet;
  if (size < 1) return 0;
  Side incremental(true, data[0]), full(false, data[0]);
  double now = 0;
  std::size_t updates = 0;
  for (std::size_t at = 1; at + 3 <= size;) {
    now += data[at] / 10.0;
    std::size_t const length = std::size_t{data[at + 1]} << 8 | data[at + 2];
    at += 3;
    std::string_view const frame(reinterpret_cast<const char*>(data + at), std::min(length, size - at));
    at += frame.size();
    LldpRx::FrameResult const r = incremental.port.frameIs(frame, now);
    check(r == full.port.frameIs(frame, now));
    updates += r == LldpRx::FrameResult::updated;
    check(incremental.ps.remoteSystem().size() == incremental.ps.remoteSystemByMsap().size());
    check(incremental.ps.remoteSystem().size() <= incremental.port.config()->maxRemoteSystems());
  }
  // The two decodes part only where a known neighbour's LLDPDU changed.
  if (updates) check(LldpRx::treeText(*incremental.status) == LldpRx::treeText(*full.status));
  return 0;
}
