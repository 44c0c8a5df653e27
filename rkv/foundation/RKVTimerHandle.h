// RKVTimerHandle: one callback scheduled for a deadline (a main-loop timer, a serial queue's
// delayed task) and the way to cancel it. Copies refer to the same callback. Thread-safe.
#pragma once

#include <memory>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVClock.h"

namespace rkv {

namespace internal {
class RKVTimerState;
}

class RKV_EXPORT RKVTimerHandle {
 public:
  RKVTimerHandle() = default;
  // Made by the loop or queue that scheduled the callback.
  RKV_HIDDEN explicit RKVTimerHandle(std::shared_ptr<internal::RKVTimerState> state);

  // Makes sure the callback does not start after this returns; its captured state is released.
  // Returns true when this call prevented it from running, false when it has run, is running,
  // was cancelled before (or dropped by its loop or queue), or the handle is empty. Called from
  // another thread while the callback is running, waits until the callback has returned (so the
  // callback must not wait for the cancelling thread); called from inside the callback, returns
  // at once.
  bool cancel();
  // True while the callback is scheduled: neither run, running, cancelled nor dropped.
  bool isPending() const;
  // The deadline on the clock of the loop or queue; time_point() for an empty handle.
  RKVClock::time_point deadline() const;

  explicit operator bool() const { return state_ != nullptr; }

 private:
  std::shared_ptr<internal::RKVTimerState> state_;
};

}  // namespace rkv
