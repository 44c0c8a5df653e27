#include "rkv/foundation/RKVClock.h"

#include <cmath>
#include <limits>

namespace rkv {
namespace {

class RKVSystemClock final : public RKVClock {
 public:
  time_point now() const override {
    return std::chrono::time_point_cast<duration>(std::chrono::steady_clock::now());
  }
  std::chrono::system_clock::time_point date() const override {
    return std::chrono::system_clock::now();
  }
  bool advancesByItself() const override { return true; }
};

}  // namespace

uint64_t RKVClock::addObserver(Observer) {
  return 0;
}

void RKVClock::removeObserver(uint64_t) {}

std::shared_ptr<RKVClock> RKVClock::system() {
  static const auto* const clock =
      new std::shared_ptr<RKVClock>(std::make_shared<RKVSystemClock>());
  return *clock;
}

std::optional<RKVClock::duration> RKVClock::durationFromSeconds(double seconds) {
  if (std::isnan(seconds) || seconds <= 0) return duration::zero();
  const double nanoseconds = seconds * 1e9;
  // 2^63: the first count that does not fit; every double below it converts exactly enough.
  if (nanoseconds >= 9223372036854775808.0) return std::nullopt;
  return duration(static_cast<int64_t>(nanoseconds));
}

std::optional<RKVClock::time_point> RKVClock::addSaturating(time_point from, duration delta) {
  const int64_t base = from.time_since_epoch().count();
  const int64_t step = delta.count();
  if (step > 0 && base > std::numeric_limits<int64_t>::max() - step) return std::nullopt;
  if (step < 0 && base < std::numeric_limits<int64_t>::min() - step) {
    return time_point::min();
  }
  return from + delta;
}

}  // namespace rkv
