#pragma once
// LLDP frames for the receive-path tests, built TLV by TLV as IEEE 802.1AB lays them out,
// and a receiver with its own roots.
#include <cstdint>
#include <string>
#include <vector>

#include "Kel/EventLog.h"
#include "Tracing/Duolog.h"
#include "tools/LldpRx/LldpRx.h"

namespace RxTest {

using Bytes = std::string;

inline Bytes bytes(std::initializer_list<int> b) { return Bytes(b.begin(), b.end()); }
inline Bytes be16(unsigned v) { return bytes({static_cast<int>(v >> 8 & 0xff), static_cast<int>(v & 0xff)}); }

// A TLV: 7-bit type, 9-bit length, the information string.
inline Bytes tlv(unsigned type, Bytes const& info) { return be16(type << 9 | static_cast<unsigned>(info.size())) + info; }

inline Bytes chassisMac(int last) { return tlv(1, bytes({4, 2, 0, 0, 0, 0, last})); }
inline Bytes portName(Bytes const& name) { return tlv(2, "\x05" + name); }
inline Bytes ttl(unsigned seconds) { return tlv(3, be16(seconds)); }
inline Bytes end() { return tlv(0, ""); }

// An Ethernet frame to the nearest-bridge address from 02:00:00:00:00:<source>.
inline Bytes ethernet(Bytes const& lldpdu, int source = 1) {
  return bytes({1, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, source, 0x88, 0xcc}) + lldpdu;
}
// A frame of neighbour n (chassis 02:00:00:00:00:n, port "eth0"): mandatory TLVs, `rest`,
// End.
inline Bytes frame(int n, std::vector<Bytes> const& rest = {}, unsigned seconds = 120) {
  Bytes pdu = chassisMac(n) + portName("eth0") + ttl(seconds);
  for (Bytes const& t : rest) pdu += t;
  return ethernet(pdu + end(), n);
}

// A Status and Config with one port, Ethernet1, made at time 0; event-log messages
// collected.
struct Rx {
  Lldp::Status::Ptr status = Lldp::statusFactory("status");
  Lldp::Config::Ptr config = Lldp::configFactory("config");
  LldpRx::Receiver receiver{status, config};
  LldpRx::Port& port = receiver.portIs(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
  Lldp::PortStatus& ps = *port.status();
  std::vector<std::string> events;
  double clock = 0;  // the messages' repeat intervals run on frame time
  Kel::EventLog::Sink previousSink;
  Kel::EventLog::Clock previousClock;

  Rx() {
    // Malformed frames are the point of many tests: their trace lines would be noise.
    Duolog::handle("LldpRx").levelIs(-1);
    previousSink = Kel::EventLog::sinkIs([this](Kel::EventLog::Record const& r) {
      events.push_back(r.handle->name().stdString() + ": " + r.text.stdString());
    });
    previousClock = Kel::EventLog::clockIs([this] { return clock; });
  }
  ~Rx() {
    Kel::EventLog::sinkIs(previousSink);
    Kel::EventLog::clockIs(previousClock);
  }

  LldpRx::FrameResult operator()(Bytes const& f, double now = 1.0) {
    clock = now;
    return port.frameIs(f, now);
  }};

}  // namespace RxTest
