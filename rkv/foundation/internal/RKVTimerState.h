// RKVTimerState: the shared state behind an RKVTimerHandle, used by the main loop and the serial
// queue: the callback, whether it has run or was cancelled, and the gate that lets cancel() wait
// for a call under way on another thread. Thread-safe. Not public API.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVCallGate.h"

namespace rkv::internal {

class RKVTimerState {
 public:
  RKVTimerState(RKVClock::time_point deadline, std::function<void()> callback)
      : deadline_(deadline), callback_(std::move(callback)) {}
  RKVTimerState(const RKVTimerState&) = delete;
  RKVTimerState& operator=(const RKVTimerState&) = delete;

  // Runs the callback on this thread unless it has run or was cancelled; an exception it throws
  // is reported under `site` and dropped. The callback is destroyed before a cancel() waiting
  // for it is let through. True when the callback ran.
  bool fire(std::string_view site) RKV_EXCLUDES(mu_);
  // See RKVTimerHandle::cancel().
  bool cancel() RKV_EXCLUDES(mu_);
  bool isPending() const RKV_EXCLUDES(mu_);
  RKVClock::time_point deadline() const { return deadline_; }

 private:
  enum class Phase { kPending, kFired, kCancelled };

  const RKVClock::time_point deadline_;
  RKVCallGate gate_;
  mutable RKVMutex mu_;
  Phase phase_ RKV_GUARDED_BY(mu_) = Phase::kPending;
  std::function<void()> callback_ RKV_GUARDED_BY(mu_);
};

// One timer in a deadline heap (std::push_heap / pop_heap with `later`): the earliest deadline
// at the front, ties in scheduling order (`seq`).
struct RKVTimerEntry {
  RKVClock::time_point deadline;
  uint64_t seq;
  std::shared_ptr<RKVTimerState> timer;

  // std::push_heap builds a max-heap; "later" entries sink, so the front is the earliest.
  static bool later(const RKVTimerEntry& a, const RKVTimerEntry& b) {
    return a.deadline != b.deadline ? a.deadline > b.deadline : a.seq > b.seq;
  }
};

}  // namespace rkv::internal
