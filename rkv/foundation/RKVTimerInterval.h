// RKVTimerInterval: what an RKVTimer is to do: fire once, a given number of times, or until it is
// stopped, with a fixed number of seconds before each firing. An immutable value.
#pragma once

#include <cstdint>

#include "rkv/RKVExport.h"

namespace rkv {

// The kinds of interval. A kind outside these fires once, as a non-repeating one.
enum RKVTimerIntervalType : int64_t {
  RKVTimerIntervalTypeNonRepeating = 0,
  RKVTimerIntervalTypeFiniteRepetitions = 1,
  RKVTimerIntervalTypeInfiniteRepetitions = 2,
};

class RKV_EXPORT RKVTimerInterval {
 public:
  // `time` is in seconds (negative and NaN mean 0, too large to count in nanoseconds means the
  // timer never fires); `count` matters only for the finite kind.
  RKVTimerInterval(int64_t type, double time, uint32_t count)
      : type_(type), time_(time), count_(count) {}

  static RKVTimerInterval nonRepeatingWithTime(double time) {
    return RKVTimerInterval(RKVTimerIntervalTypeNonRepeating, time, 0);
  }
  // Fires `count` times in all; a count of 0 still fires once.
  static RKVTimerInterval finiteRepetitionsWithTime(double time, uint32_t count) {
    return RKVTimerInterval(RKVTimerIntervalTypeFiniteRepetitions, time, count);
  }
  static RKVTimerInterval infiniteRepetitionsWithTime(double time) {
    return RKVTimerInterval(RKVTimerIntervalTypeInfiniteRepetitions, time, 0);
  }

  int64_t type() const { return type_; }
  // Seconds between the start (or the previous firing) and the next firing.
  double time() const { return time_; }
  uint32_t count() const { return count_; }

  friend bool operator==(const RKVTimerInterval&, const RKVTimerInterval&) = default;

 private:
  int64_t type_;
  double time_;
  uint32_t count_;
};

}  // namespace rkv
