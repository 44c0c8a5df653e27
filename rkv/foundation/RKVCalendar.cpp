#include "rkv/foundation/RKVCalendar.h"

#include <ctime>

namespace rkv {

RKVCalendar RKVCalendar::currentCalendar() {
  return RKVCalendar(std::nullopt);
}

RKVCalendar RKVCalendar::withUTCOffset(std::chrono::seconds offset) {
  return RKVCalendar(offset);
}

std::optional<RKVCalendar::TimeOfDay> RKVCalendar::timeOfDay(
    std::chrono::system_clock::time_point date) const {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  if (offset_) {
    constexpr int64_t kDay = 86400;
    int64_t local = seconds % kDay + offset_->count() % kDay;
    local = ((local % kDay) + kDay) % kDay;
    return TimeOfDay{local / 3600, (local % 3600) / 60, local % 60};
  }
  // Re-read TZ each time so that a change of time zone shows in the next line.
  tzset();
  const time_t t = static_cast<time_t>(seconds);
  std::tm parts{};
  if (localtime_r(&t, &parts) == nullptr) return std::nullopt;
  return TimeOfDay{parts.tm_hour, parts.tm_min, parts.tm_sec};
}

}  // namespace rkv
