#include "rkv/foundation/RKVManualClock.h"

#include <utility>
#include <vector>

namespace rkv {

RKVManualClock::RKVManualClock(time_point start, std::chrono::system_clock::time_point startDate)
    : now_(start), date_(startDate) {}

RKVClock::time_point RKVManualClock::now() const {
  RKVMutexLock lock(mu_);
  return now_;
}

std::chrono::system_clock::time_point RKVManualClock::date() const {
  RKVMutexLock lock(mu_);
  return date_;
}

void RKVManualClock::advance(duration delta) {
  if (delta <= duration::zero()) return;
  {
    RKVMutexLock lock(mu_);
    now_ = addSaturating(now_, delta).value_or(time_point::max());
    date_ += std::chrono::duration_cast<std::chrono::system_clock::duration>(delta);
  }
  notifyObservers();
}

void RKVManualClock::advanceTo(time_point to) {
  {
    RKVMutexLock lock(mu_);
    if (to <= now_) return;
    date_ += std::chrono::duration_cast<std::chrono::system_clock::duration>(to - now_);
    now_ = to;
  }
  notifyObservers();
}

uint64_t RKVManualClock::addObserver(Observer observer) {
  if (!observer) return 0;
  RKVMutexLock lock(mu_);
  const uint64_t id = nextObserverID_++;
  observers_.emplace(id, std::move(observer));
  return id;
}

void RKVManualClock::removeObserver(uint64_t id) {
  Observer removed;
  {
    RKVMutexLock lock(mu_);
    auto it = observers_.find(id);
    if (it == observers_.end()) return;
    removed = std::move(it->second);
    observers_.erase(it);
  }
  // The observer is destroyed here, outside the lock: it may own things that use the clock.
}

void RKVManualClock::notifyObservers() {
  std::vector<Observer> observers;
  {
    RKVMutexLock lock(mu_);
    observers.reserve(observers_.size());
    for (const auto& entry : observers_)
      observers.push_back(entry.second);
  }
  for (const auto& observer : observers)
    observer();
}

}  // namespace rkv
