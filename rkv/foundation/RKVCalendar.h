// RKVCalendar: how a date maps to a time of day, either in the device's current time zone (as
// the C library's local time sees it, TZ included) or at a fixed offset from UTC. A plain value;
// safe to use from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVCalendar {
 public:
  struct TimeOfDay {
    int64_t hour = 0;    // 0 to 23
    int64_t minute = 0;  // 0 to 59
    int64_t second = 0;  // 0 to 60 (a leap second, where the time zone data has them)
  };

  // The user's current calendar: the local time zone, looked up again at every use.
  static RKVCalendar currentCalendar();
  // A calendar at a fixed offset east of UTC (negative offsets are west).
  static RKVCalendar withUTCOffset(std::chrono::seconds offset);

  // True for currentCalendar().
  bool isCurrent() const { return !offset_; }
  // The fixed offset; absent for the current calendar.
  std::optional<std::chrono::seconds> utcOffset() const { return offset_; }

  // The hour, minute and second of `date` (sub-second parts are dropped toward the past), or
  // absent when the C library cannot convert it.
  std::optional<TimeOfDay> timeOfDay(std::chrono::system_clock::time_point date) const;

 private:
  explicit RKVCalendar(std::optional<std::chrono::seconds> offset) : offset_(offset) {}

  std::optional<std::chrono::seconds> offset_;
};

}  // namespace rkv
