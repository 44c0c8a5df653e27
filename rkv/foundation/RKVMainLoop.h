// RKVMainLoop: the library's main loop, an event loop that the host drives. Thread-safe: post(),
// scheduleAfter(), scheduleAt(), stop() and isMainThread() may be called from any thread;
// handlers and timer callbacks run only on the thread driving the loop.
//
// The host either hands a thread to the loop (run(), which blocks until stop()) or pumps it from
// its own event loop (poll(), which runs what is ready and returns). The thread that drives the
// loop is "the main thread"; tracking, timers and viewability work there.
//
// Timers are kept on the loop's RKVClock (see RKVClock.h for the testing seam): a loop built on
// an RKVManualClock fires its timers when the test moves the clock and then runs or polls it.
// Timers that are due at the same time fire in deadline order, ties in the order they were
// scheduled. A handler or timer callback that throws is reported at error level and dropped;
// the loop goes on with the rest of its work.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/RKVTimerHandle.h"

namespace rkv {

class RKV_EXPORT RKVMainLoop {
 public:
  // One scheduled callback; see RKVTimerHandle.h.
  using TimerHandle = RKVTimerHandle;

  // A loop on the real clock.
  RKVMainLoop();
  // A loop whose timers use `clock` (shared; RKVClock::system() when null).
  explicit RKVMainLoop(std::shared_ptr<RKVClock> clock);
  // Drops queued handlers and pending timers without running them (their callbacks are destroyed
  // here). The loop must not be driven, and no other thread may use it, while it is destroyed.
  ~RKVMainLoop();

  RKVMainLoop(const RKVMainLoop&) = delete;
  RKVMainLoop& operator=(const RKVMainLoop&) = delete;

  // The process's main loop, on the real clock. Created on first use and never destroyed.
  static const std::shared_ptr<RKVMainLoop>& sharedInstance();

  // Runs handlers and timers on the calling thread until stop(). Returns at once, without running
  // anything, when a stop() is pending (it is consumed) or when the loop is already being driven
  // (by another thread, or by the caller from inside a handler).
  void run();
  // Runs on the calling thread the handlers queued and the timers due when poll() was entered,
  // and returns how many ran. What is queued or falls due while it runs waits for the next call,
  // so a handler that posts itself again cannot keep poll() from returning. Returns 0 without
  // running anything when the loop is already being driven. Ignores a pending stop().
  size_t poll();
  // Makes run() return after the handler under way; when no run() is under way, the next run()
  // returns at once. Queued handlers stay queued for the next run() or poll().
  void stop();

  // Queues `handler` to run on the main thread, in posting order with other posts. Null handlers
  // are ignored.
  void post(std::function<void()> handler);

  // True on the thread that is driving the loop, or that drove it last (a host that pumps the
  // loop with poll() stays the main thread between its polls). False everywhere before the loop
  // was first run or polled. See RKVMainThread.h for the check of main-thread-only operations.
  bool isMainThread() const;

  // The clock this loop's timers use.
  const std::shared_ptr<RKVClock>& clock() const;

  // Arms a one-shot timer: `callback` runs on the main thread once clock()->now() has reached
  // now() + delay (negative delays are 0). Keep the handle to cancel it; dropping the handle does
  // not cancel. A null callback gives an empty handle.
  TimerHandle scheduleAfter(RKVClock::duration delay, std::function<void()> callback);
  // As scheduleAfter() for an absolute deadline on clock(); time_point::max() never fires.
  TimerHandle scheduleAt(RKVClock::time_point deadline, std::function<void()> callback);

 private:
  friend struct RKVMainLoopAccess;
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace rkv
