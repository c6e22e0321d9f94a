#pragma once
// When a port sends: the transmit timer and transmit state machines of IEEE 802.1AB-2016
// as pure logic on the caller's clock (seconds, never running backwards), so that tests
// and benchmarks drive it without sockets or real time.
//
// - A frame every msgTxInterval; after start and when a new neighbour appears, txFastInit
//   frames msgFastTx apart (fast start).
// - A change of what the port advertises asks for a frame at once, but not sooner than
//   txDelay after the previous one.
// - Every frame costs one transmit credit; credits come back one per second up to
//   txCreditMax, so a burst of changes cannot flood the link.
// - Disabling sends one shutdown LLDPDU; enabling again waits reinitDelay after that.
#include <cstdint>
#include <limits>

namespace Lldp {
class Config;
}

namespace LldpTx {

struct TxTiming {
  double msgTxInterval = 30;   // Config::messageTxInterval
  double txDelay = 2;          // Config::txDelay
  double reinitDelay = 2;      // Config::reinitDelay
  // IEEE 802.1AB-2016 defaults; the model has no attribute for them.
  double msgFastTx = 1;
  std::uint32_t txFastInit = 4;
  std::uint32_t txCreditMax = 5;
};
TxTiming timingFrom(Lldp::Config const& config);

class TxMachine {
 public:
  enum class Action : std::uint8_t { none, send, shutdown };
  static constexpr double never = std::numeric_limits<double>::infinity();

  explicit TxMachine(TxTiming timing = {}) : t_(timing), credit_(timing.txCreditMax) {}
  void timingIs(TxTiming const& timing) noexcept { t_ = timing; }

  // The port may send (admin status with transmit, link up) or not. Turning it off after
  // it started asks for a shutdown LLDPDU.
  void enabledIs(bool on, double now) noexcept;
  bool enabled() const noexcept { return enabled_; }
  // Something the LLDPDU carries changed.
  void localChange() noexcept { localChange_ = true; }
  // A neighbour entered the port's table: fast start again.
  void newNeighbour(double now) noexcept;

  // What to do at `now`: at most one frame per call; after a send, call again.
  Action poll(double now) noexcept;
  // The earliest time poll() may have something to do; `never` when idle.
  double nextWake() const noexcept;

  std::uint32_t credit() const noexcept { return credit_; }
  std::uint32_t fastLeft() const noexcept { return fast_; }

 private:
  void refill(double now) noexcept;

  TxTiming t_;
  std::uint32_t credit_;
  std::uint32_t fast_ = 0;
  bool enabled_ = false, started_ = false, txNow_ = false, localChange_ = false, shutdown_ = false;
  double lastTick_ = -never;   // when the last credit came back
  double ttr_ = never;         // when the timed frame is due
  double startAt_ = 0;         // enabled, but waiting for reinitDelay
  double lastTx_ = -never;
  double disabledAt_ = -never;
};

}  // namespace LldpTx
