// RKVClock: where the library reads the time. Implementations are thread-safe.
//
// Everything whose behaviour depends on elapsed time reads it from an RKVClock instead of
// std::chrono directly, so that tests move time by hand (RKVManualClock) instead of sleeping:
//
//   - now() is monotonic time: deadlines, intervals, how long a condition has held. Measure a
//     duration as the difference of two now() values of the same clock.
//   - date() is wall-clock time, for dates that are stored or sent (expiry dates, timestamps).
//     It may jump; never measure durations with it.
//
// An RKVMainLoop is built on a clock and keeps its timers on that clock: a timer scheduled for
// `now() + 5s` fires on the loop once that clock's now() has reached the deadline. Code that runs
// on a loop takes its clock from RKVMainLoop::clock(), so a test that builds the loop on an
// RKVManualClock controls both the timers and every elapsed-time measurement:
//
//   auto clock = std::make_shared<RKVManualClock>();
//   RKVMainLoop loop(clock);
//   loop.scheduleAfter(std::chrono::seconds(5), fire);
//   clock->advance(std::chrono::seconds(5));
//   loop.poll();  // fire runs here, on this thread
//
// A clock that advancesByItself() (the real one) is waited for in real time: the loop sleeps for
// deadline - now(). A clock that does not (a test clock) is never waited for; instead it tells
// its observers each time it is moved, and the loop re-examines its timers then.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVClock {
 public:
  using duration = std::chrono::nanoseconds;
  using time_point = std::chrono::time_point<std::chrono::steady_clock, duration>;
  using Observer = std::function<void()>;

  virtual ~RKVClock() = default;

  // Monotonic time; never goes backwards.
  virtual time_point now() const = 0;
  // Wall-clock time.
  virtual std::chrono::system_clock::time_point date() const = 0;

  // True when now() moves with real time, so that waiting (deadline - now()) in real time reaches
  // the deadline. False for clocks that move only when told to.
  virtual bool advancesByItself() const = 0;

  // Registers a callback run each time the clock is moved by hand (never for real time passing),
  // on the thread that moved it, after the move, with no lock of the clock held. Returns an id
  // for removeObserver (0 from clocks that are never moved by hand, which keep no observers).
  virtual uint64_t addObserver(Observer observer);
  // Unregisters an observer; unknown ids are ignored. A call already under way may still finish.
  virtual void removeObserver(uint64_t id);

  // The process's real clock: std::chrono::steady_clock and std::chrono::system_clock.
  static std::shared_ptr<RKVClock> system();

  // Seconds as a duration, for the interfaces that take seconds as a double: negative values and
  // NaN are 0; std::nullopt when the nanosecond count does not fit in 64 bits (including
  // infinity), which callers treat as "never".
  static std::optional<duration> durationFromSeconds(double seconds);

  // from + delta, or std::nullopt when the sum would not fit (a deadline that never comes).
  // A negative delta is added as it is.
  static std::optional<time_point> addSaturating(time_point from, duration delta);
};

}  // namespace rkv
