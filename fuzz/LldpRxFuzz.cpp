// The receive path on frames straight from the wire: a run of frames goes through two
// receivers, one decoding only what changed from a neighbour's previous LLDPDU and one
// decoding every LLDPDU in full. Nothing may throw or crash, every frame must come out the
// same in both, and so must the trees and their two neighbour indexes.
//
// Input: a configuration byte, then frames, each a time step (tenths of a second), a
// big-endian 16-bit length and the frame.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Kel/EventLog.h"
#include "Tracing/Duolog.h"
#include "tools/LldpRx/LldpRx.h"

namespace {

struct Side {
  Lldp::Status::Ptr status = Lldp::statusFactory("fuzz");
  Lldp::Config::Ptr config = Lldp::configFactory("fuzz");
  LldpRx::Receiver receiver{status, config};
  LldpRx::Port& port;

  Side(bool incremental, std::uint8_t flags) : port(makePort(flags)) { receiver.incrementalIs(incremental); }

  LldpRx::Port& makePort(std::uint8_t flags) {
    Platform::IntfId const intf(Kel::String("Ethernet1"));
    Lldp::PortConfig& pc = *config->portConfigIs(intf);
    pc.maxRemoteSystemsIs(1u + (flags & 7u));
    pc.rxRateLimitingEnabledIs(flags & 8u);
    pc.rxRateLimitMaxIs(4);
    pc.rxRateLimitPeriodIs(1.0);
    config->rxTaggedPacketsDropIs(flags & 16u);
    return receiver.portIs(intf, 0.0);
  }
};

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static bool const quiet = [] {
    Duolog::handle("LldpRx").levelIs(-1);
    Duolog::handle("LldpExtDot3Parser").levelIs(-1);
    Kel::EventLog::sinkIs([](Kel::EventLog::Record const&) {});
    return true;
  }();
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
    Lldp::PortStatus const& ps = *incremental.port.status();
    check(ps.remoteSystem().size() == ps.remoteSystemByMsap().size());
    check(ps.remoteSystem().size() <= incremental.port.config()->maxRemoteSystems());
  }
  // The two decodes part only where a known neighbour's LLDPDU changed.
  if (updates) check(LldpRx::treeText(*incremental.status) == LldpRx::treeText(*full.status));
  return 0;
}
