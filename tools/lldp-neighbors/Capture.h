#pragma once
// Frames from a capture file (pcap or pcapng) or a live interface, through libpcap.
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct pcap;

namespace LldpNeighbors {

// A capture that cannot be opened or read; the message names it and says why.
struct CaptureError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class FrameSource {
 public:
  // A file ("-" for standard input). Only Ethernet captures are taken.
  static std::unique_ptr<FrameSource> file(std::string const& path);
  // Live LLDP frames an interface receives, not those it sends (promiscuous, so that a
  // NIC filtering the LLDP group address still passes them).
  static std::unique_ptr<FrameSource> live(std::string const& interface);
  ~FrameSource();

  enum class Next { frame, idle, end };
  // The next frame and its time stamp (seconds since the epoch); `idle` when a live
  // capture had nothing for idleMilliseconds (or a signal came).
  static constexpr int idleMilliseconds = 200;
  Next next(std::string_view& frame, double& time);
  // Why next() ended early (a file cut short, a failing interface); empty at a clean end.
  std::string const& error() const noexcept { return error_; }
  // Frames the capture kept only the start of (its snap length): counted against the
  // neighbour as malformed when cut inside a TLV, though the neighbour sent them whole.
  std::uint64_t cutShort() const noexcept { return cutShort_; }

 private:
  FrameSource(pcap* p, std::string name) : pcap_(p), name_(std::move(name)) {}
  pcap* pcap_;
  std::string name_;
  std::string error_;
  std::uint64_t cutShort_ = 0;
  bool live_ = false;
};

}  // namespace LldpNeighbors
