// parseExtDot3Tlv over any bytes: only the results 1, 2 and 4, no read outside the given
// bytes (the TLV is copied into a buffer of exactly its length), and a TLV that is refused
// leaves the neighbour exactly as it was.
//
// Input: byte 0 selects the subtype (low 3 bits, minus 1: -1 to 6) and, with bit 3, every
// trace level; bytes 1 and 2 the length (big-endian, modulo 601); the rest the TLV's
// bytes, zero-filled up to the length.
#include <cstddef>
#include <cstdint>

#include "FuzzUtil.h"
#include "Lldp/ModelSupport.h"
#include "Lldp/LldpExtDot3Parser.h"
#include "Tracing/Duolog.h"

namespace {

using namespace Lldp;

using LldpTest::Dot3State;
using Fuzz::check;

RemoteSystem::Ptr const& neighbour() {
  static PortStatus::Ptr const port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
  static RemoteSystem::Ptr const remote = port->remoteSystemIs(1, RemoteSystem::Msap());
  return remote;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Traced inputs go through the text forms, but nothing is printed.
  Duolog::sinkIs([](Duolog::Line const&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size < 3) return 0;
  int const subtype = (data[0] & 0x7) - 1;
  static Duolog::Handle& trace = Duolog::handle("LldpExtDot3Parser");
  trace.levelIs((data[0] & 0x8) ? Duolog::allLevels : -1);
  std::size_t const length = ((std::size_t{data[1]} << 8) | data[2]) % 601;
  auto const tlv = Fuzz::exactCopy(data + 3, length, size - 3 < length ? size - 3 : length);

  RemoteSystem::Ptr const& remote = neighbour();
  // Cleared flags make a refused TLV's "nothing stored" visible; the records keep whatever
  // earlier inputs left.
  remote->macPhyConfigStatusTlvReceivedIs(false);
  remote->linkAggregationTlvReceivedIs(false);
  remote->maximumFrameSizeTlvReceivedIs(false);
  remote->powerViaMdiTlvReceivedIs(false);
  Dot3State const before = Dot3State::of(*remote);

  int const result = Agent::Protocol::parseExtDot3Tlv(subtype, static_cast<int>(length), tlv.get(), remote);

  Dot3State after = Dot3State::of(*remote);
  check(result == 1 || result == 2 || result == 4);
  bool const known = subtype >= 1 && subtype <= 4;
  check((result == 2) == !known);
  // The bytes each subtype needs: MAC/PHY 5, Power via MDI 3, Link Aggregation 5, frame size 2.
  static constexpr std::size_t need[] = {0, 5, 3, 5, 2};
  if (known) check((result == 4) == (length < need[subtype]));
  if (result != 1) {
    check(after == before);
    return 0;
  }
  // Parsed (so a known subtype): exactly its flag and record may have moved.
  auto const moved = [](bool& flag, auto& record, auto const& old) {
    check(flag);
    flag = false;
    record = old;
  };
  if (subtype == 1) moved(after.macFlag, after.mac, before.mac);
  if (subtype == 3) moved(after.aggFlag, after.agg, before.agg);
  if (subtype == 4) moved(after.mfsFlag, after.mfs, before.mfs);
  if (subtype == 2) {
    check(after.power.ieeeStandard() == (length > 24  ? PowerViaMdiInfo::IeeeStandard_802_3bt
                                         : length > 7 ? PowerViaMdiInfo::IeeeStandard_802_3at
                                                      : PowerViaMdiInfo::IeeeStandard_802_3af));
    moved(after.powerFlag, after.power, before.power);
  }
  check(after == before);
  return 0;
}
