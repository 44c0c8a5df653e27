// RKVTimer: a one-shot, finitely or endlessly repeating timer on an RKVMainLoop, with a random
// identity, a weakly held delegate, a stop handler and a status that says whether it may be
// (re)started. Main-loop only: start, stop and the accessors are called on the loop's main
// thread (or before the loop first runs); the delegate and the stop handler are called there.
//
// Each firing is a fresh one-shot loop timer armed after the previous one fired, so a delegate
// that takes long delays the later firings instead of bunching them. The loop's pending callback
// reaches the RKVTimer through an RKVTimerTarget holding it weakly: an owner may drop a running
// RKVTimer at any time (even from inside its delegate's timerFired); it is destroyed then, logs
// "Warning: RKVTimer instance <ID>ld is being deallocated while running!" at debug level, stops
// (its stop handler runs) and never calls its delegate again.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVTimerHandle.h"
#include "rkv/foundation/RKVTimerInterval.h"
#include "rkv/foundation/RKVTimerTarget.h"

namespace rkv {

class RKVTimer;

// Told of each firing. The operation is optional: the default does nothing.
class RKV_EXPORT RKVTimerDelegate {
 public:
  virtual ~RKVTimerDelegate() = default;
  // Called on the main thread; may stop, restart or destroy the timer.
  virtual void timerFired(RKVTimer& /*timer*/) {}
};

enum RKVTimerStatus : int64_t {
  RKVTimerStatusCreated = 0,
  RKVTimerStatusRunning = 1,
  RKVTimerStatusFinished = 2,  // every firing is done
  RKVTimerStatusStopped = 3,
};

class RKV_EXPORT RKVTimer {
 public:
  // Given the timer being stopped.
  using StopHandler = std::function<void(RKVTimer& timer)>;

  // Draws the ID (RKVRandom::randomUnsignedInt); status created. The timer fires on `loop`
  // (RKVMainLoop::sharedInstance() when null) and measures its intervals on the loop's clock.
  explicit RKVTimer(RKVTimerInterval interval, std::weak_ptr<RKVTimerDelegate> delegate = {},
                    std::shared_ptr<RKVMainLoop> loop = nullptr);
  // A running timer logs the warning above and stops (see stop()).
  ~RKVTimer();

  RKVTimer(const RKVTimer&) = delete;
  RKVTimer& operator=(const RKVTimer&) = delete;

  // Arms the first firing `interval().time()` seconds from now: a new target, timerCount() 0,
  // status running. Does nothing unless timerCanBeStarted().
  void start();
  // Allowed in any status: invalidates and drops the target, cancels and drops the pending loop
  // timer, sets status stopped, then calls the stop handler (if set) with this timer.
  void stop();
  // True when the status is created, finished or stopped; false while running.
  bool timerCanBeStarted() const;

  // Arms one loop timer firing `interval.time()` seconds from now into `target`, keeps it as
  // timer() and counts it in timerCount(). start() and each re-arming call it.
  void scheduleTimerWithInterval(const RKVTimerInterval& interval,
                                 const std::shared_ptr<RKVTimerTarget>& target);

  // Two timers are equal exactly when their IDs are.
  bool isEqualToTimer(const RKVTimer& other) const { return ID_ == other.ID_; }
  // True for this very timer; otherwise isEqualToTimer. False for null.
  bool isEqual(const RKVTimer* other) const {
    return other == this || (other != nullptr && isEqualToTimer(*other));
  }
  friend bool operator==(const RKVTimer& a, const RKVTimer& b) { return a.isEqualToTimer(b); }

  uint32_t ID() const { return ID_; }
  const RKVTimerInterval& interval() const { return interval_; }
  // Takes effect at the next arming (the next start(), or the re-arming after a firing).
  void setInterval(RKVTimerInterval interval) { interval_ = interval; }
  // An RKVTimerStatus.
  int64_t status() const { return status_; }
  std::shared_ptr<RKVTimerDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<RKVTimerDelegate> delegate) { delegate_ = std::move(delegate); }
  const StopHandler& stopHandler() const { return stopHandler_; }
  void setStopHandler(StopHandler stopHandler) { stopHandler_ = std::move(stopHandler); }
  // The current target; null before the first start() and after stop().
  const std::shared_ptr<RKVTimerTarget>& timerTarget() const { return timerTarget_; }
  // Loop timers armed since the last start().
  uint32_t timerCount() const { return timerCount_; }
  // The current loop timer; empty before the first start() and after stop(). After the last
  // firing it is the timer that fired (no longer pending) until the next start() or stop().
  const RKVTimerHandle& timer() const { return timer_; }
  const std::shared_ptr<RKVMainLoop>& loop() const { return loop_; }

 private:
  // What a target's completion handler holds weakly; cleared when the timer is destroyed.
  struct Anchor {
    RKVTimer* timer;
  };

  // One firing of the run started as `run`.
  static void fired(const std::weak_ptr<Anchor>& anchor, uint64_t run);

  const uint32_t ID_;
  RKVTimerInterval interval_;
  std::weak_ptr<RKVTimerDelegate> delegate_;
  StopHandler stopHandler_;
  std::shared_ptr<RKVMainLoop> loop_;
  int64_t status_ = RKVTimerStatusCreated;
  std::shared_ptr<RKVTimerTarget> timerTarget_;
  uint32_t timerCount_ = 0;
  RKVTimerHandle timer_;
  // Counts start() calls, so that a firing of an earlier run never re-arms the current one.
  uint64_t run_ = 0;
  std::shared_ptr<Anchor> anchor_;
};

}  // namespace rkv
