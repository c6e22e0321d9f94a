#include "tools/LldpTx/TxMachine.h"

#include <algorithm>
#include <cmath>

#include "Lldp/Lldp.h"

namespace LldpTx {

TxTiming timingFrom(Lldp::Config const& config) {
  TxTiming t;
  t.msgTxInterval = config.messageTxInterval();
  t.txDelay = config.txDelay();
  t.reinitDelay = config.reinitDelay();
  return t;
}

void TxMachine::enabledIs(bool on, double now) noexcept {
  if (on == enabled_) return;
  enabled_ = on;
  if (on) {
    startAt_ = std::max(now, disabledAt_ + t_.reinitDelay);
    return;
  }
  if (started_) shutdown_ = true;
  started_ = txNow_ = localChange_ = false;
  fast_ = 0;
  ttr_ = never;
  disabledAt_ = now;
}

void TxMachine::newNeighbour(double now) noexcept {
  if (!started_ || fast_ > 0) return;
  fast_ = t_.txFastInit;
  ttr_ = now;
}

void TxMachine::refill(double now) noexcept {
  if (lastTick_ == -never) {
    lastTick_ = now;
    return;
  }
  double ticks = std::floor(now - lastTick_);
  if (ticks < 1) return;
  lastTick_ += ticks;
  credit_ = static_cast<std::uint32_t>(std::min<double>(t_.txCreditMax, credit_ + ticks));
}

TxMachine::Action TxMachine::poll(double now) noexcept {
  refill(now);
  if (shutdown_) {
    shutdown_ = false;
    return Action::shutdown;
  }
  if (!enabled_ || now < startAt_) return Action::none;
  if (!started_) {
    // Start as if a neighbour had just appeared: the first of the fast frames now.
    started_ = true;
    fast_ = t_.txFastInit;
    ttr_ = now;
    localChange_ = false;
  }
  if (now >= ttr_) {
    if (fast_ > 0) --fast_;
    txNow_ = true;
    ttr_ = now + (fast_ > 0 ? t_.msgFastTx : t_.msgTxInterval);
  }
  if (localChange_ && now >= lastTx_ + t_.txDelay) {
    localChange_ = false;
    txNow_ = true;
  }
  if (!txNow_ || credit_ == 0) return Action::none;
  --credit_;
  txNow_ = false;
  lastTx_ = now;
  return Action::send;
}

double TxMachine::nextWake() const noexcept {
  if (shutdown_) return -never;
  if (!enabled_) return never;
  if (!started_) return startAt_;
  double at = ttr_;
  if (localChange_) at = std::min(at, lastTx_ + t_.txDelay);
  if (txNow_) at = std::min(at, lastTick_ + 1);  // txNow_ outlives a poll only without credit
  // Without credit a frame waits for the next one; the timer still runs.
  if (credit_ == 0) at = std::min(ttr_, std::max(at, lastTick_ + 1));
  return at;
}

}  // namespace LldpTx
