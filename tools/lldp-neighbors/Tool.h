#pragma once
// The neighbour tool: LLDP frames from a capture file or an interface through the receive
// path, then the neighbour table, in detail or as JSON; or the same from a neighbour tree
// streamed as an attribute log by another run.
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Lldp/Lldp.h"
#include "tools/LldpRx/LldpRx.h"

namespace LldpNeighbors {

class FrameSource;

// What a run of frames through a receiver came to.
struct Feed {
  std::uint64_t frames = 0;  // every frame read
  std::uint64_t results[11] = {};  // per LldpRx::FrameResult
  std::uint64_t count(LldpRx::FrameResult r) const { return results[static_cast<int>(r)]; }
};

// A receiver with its own Status and Config roots, whose ports keep `maxNeighbors`
// neighbours and, unless `rateLimit` is false, the default receive rate limit.
struct Agent {
  Agent(std::uint32_t maxNeighbors, bool rateLimit);
  Lldp::Status::Ptr status;
  Lldp::Config::Ptr config;
  std::unique_ptr<LldpRx::Receiver> receiver;
  std::uint32_t maxNeighbors;
  bool rateLimit;
  // The port, configured as above, made at `now` on first use.
  LldpRx::Port& port(std::string const& name, double now);
};

// When a run of frames ends early, and what to do along the way.
struct FeedControl {
  volatile std::sig_atomic_t const* stop = nullptr;  // set (by a signal): stop now
  std::uint64_t maxLldpFrames = 0;                   // stop after this many LLDP frames (0: no limit)
  double seconds = 0;                                // stop after this long, by the clock (0: no limit)
  std::function<void(double now)> each;              // after every frame, and while idle
};

// Runs every frame of `source` into `port` of `agent` (made at the first frame's time);
// while a live source is idle, neighbours age by the clock. Throws CaptureError when the
// source fails.
Feed feed(FrameSource& source, Agent& agent, std::string const& port, FeedControl const& control = {});

// The command line; returns the exit status.
int main(int argc, char** argv);

}  // namespace LldpNeighbors
