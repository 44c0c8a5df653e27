// RKVManualClock: a clock that moves only when told, for tests and simulated time. Thread-safe.
//
// Moving it runs its observers on the moving thread; every RKVMainLoop built on it is one of them
// and queues a check of its timers, which then fire on the loop's own thread at its next run()
// or poll(), in deadline order. See RKVClock.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/RKVMutex.h"

namespace rkv {

class RKV_EXPORT RKVManualClock final : public RKVClock {
 public:
  // Starts at `start` (monotonic) and `startDate` (wall clock). The default monotonic start is
  // one day after the epoch of time_point, so that it never equals a default-constructed one.
  explicit RKVManualClock(
      time_point start = time_point(std::chrono::hours(24)),
      std::chrono::system_clock::time_point startDate =
          std::chrono::system_clock::time_point(std::chrono::seconds(1700000000)));

  time_point now() const override;
  std::chrono::system_clock::time_point date() const override;
  bool advancesByItself() const override { return false; }

  // Moves both times forward by delta (a negative delta is ignored: monotonic time never goes
  // back), then runs the observers.
  void advance(duration delta);
  // Moves to `to` when it is later than now(), then runs the observers.
  void advanceTo(time_point to);

  uint64_t addObserver(Observer observer) override;
  void removeObserver(uint64_t id) override;

 private:
  void notifyObservers();

  mutable RKVMutex mu_;
  time_point now_ RKV_GUARDED_BY(mu_);
  std::chrono::system_clock::time_point date_ RKV_GUARDED_BY(mu_);
  uint64_t nextObserverID_ RKV_GUARDED_BY(mu_) = 1;
  std::map<uint64_t, Observer> observers_ RKV_GUARDED_BY(mu_);
};

}  // namespace rkv
