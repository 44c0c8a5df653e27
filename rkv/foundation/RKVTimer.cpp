#include "rkv/foundation/RKVTimer.h"

#include <string>
#include <utility>

#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/RKVRandom.h"
#include "rkv/foundation/internal/RKVErrorReport.h"
#include "rkv/foundation/internal/RKVHostCall.h"

namespace rkv {

RKVTimer::RKVTimer(RKVTimerInterval interval, std::weak_ptr<RKVTimerDelegate> delegate,
                   std::shared_ptr<RKVMainLoop> loop)
    : ID_(RKVRandom::randomUnsignedInt()),
      interval_(interval),
      delegate_(std::move(delegate)),
      loop_(loop ? std::move(loop) : RKVMainLoop::sharedInstance()),
      anchor_(std::make_shared<Anchor>(Anchor{this})) {}

RKVTimer::~RKVTimer() {
  if (status_ == RKVTimerStatusRunning) {
    try {
      // "%uld" printed the ID followed by the letters "ld"; the line keeps that shape.
      internal::reportMessage(0, "Warning: RKVTimer instance " + std::to_string(ID_) +
                                     "ld is being deallocated while running!");
    } catch (...) {
      // Out of memory: the line is lost, the timer still stops.
    }
    stop();
  }
  // A firing already on its way finds no timer from here on.
  anchor_->timer = nullptr;
}

void RKVTimer::start() {
  if (!timerCanBeStarted()) return;
  const uint64_t run = ++run_;
  std::weak_ptr<Anchor> anchor = anchor_;
  timerTarget_ = std::make_shared<RKVTimerTarget>(
      [anchor = std::move(anchor), run](const RKVTimerHandle&) { fired(anchor, run); });
  timerCount_ = 0;
  status_ = RKVTimerStatusRunning;
  scheduleTimerWithInterval(interval_, timerTarget_);
}

void RKVTimer::stop() {
  if (timerTarget_) {
    timerTarget_->invalidate();
    timerTarget_.reset();
  }
  timer_.cancel();
  timer_ = RKVTimerHandle();
  status_ = RKVTimerStatusStopped;
  if (stopHandler_) {
    // A copy: the handler may replace itself or destroy the timer.
    const StopHandler handler = stopHandler_;
    internal::callHost("RKVTimer stop handler", [&] { handler(*this); });
  }
}

bool RKVTimer::timerCanBeStarted() const {
  return status_ != RKVTimerStatusRunning;
}

void RKVTimer::scheduleTimerWithInterval(const RKVTimerInterval& interval,
                                         const std::shared_ptr<RKVTimerTarget>& target) {
  // The callback hands the target its own loop timer; the slot is filled once the loop answers.
  // The loop drops the callback (and with it the slot) when it fires or is cancelled.
  auto slot = std::make_shared<RKVTimerHandle>();
  auto callback = [target, slot] {
    if (target) target->timerFired(*slot);
  };
  const std::optional<RKVClock::duration> delay = RKVClock::durationFromSeconds(interval.time());
  timer_ = delay ? loop_->scheduleAfter(*delay, std::move(callback))
                 : loop_->scheduleAt(RKVClock::time_point::max(), std::move(callback));
  *slot = timer_;
  ++timerCount_;
}

void RKVTimer::fired(const std::weak_ptr<Anchor>& weakAnchor, uint64_t run) {
  const std::shared_ptr<Anchor> anchor = weakAnchor.lock();
  if (!anchor || !anchor->timer) return;
  RKVTimer* timer = anchor->timer;
  if (const std::shared_ptr<RKVTimerDelegate> delegate = timer->delegate_.lock())
    internal::callHost("RKVTimer delegate timerFired", [&] { delegate->timerFired(*timer); });
  // The delegate may have destroyed the timer, or stopped it (and perhaps started a new run,
  // which armed its own loop timer): then this firing re-arms nothing and finishes nothing.
  if (!anchor->timer || timer->run_ != run || timer->status_ != RKVTimerStatusRunning) return;
  const RKVTimerInterval& interval = timer->interval_;
  const bool again = (interval.type() == RKVTimerIntervalTypeFiniteRepetitions &&
                      timer->timerCount_ < interval.count()) ||
                     interval.type() == RKVTimerIntervalTypeInfiniteRepetitions;
  if (again) {
    timer->scheduleTimerWithInterval(interval, timer->timerTarget_);
  } else {
    timer->status_ = RKVTimerStatusFinished;
  }
}

}  // namespace rkv
