#include "rkv/foundation/RKVTimerHandle.h"

#include <utility>

#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/foundation/internal/RKVTimerState.h"

namespace rkv {

namespace internal {

bool RKVTimerState::fire(std::string_view site) {
  // Declared first, released last: a cancel() on another thread waits until the callback and
  // what it captured are gone.
  const RKVCallGate::Pass pass = gate_.enter();
  if (!pass) return false;
  std::function<void()> callback;
  {
    RKVMutexLock lock(mu_);
    if (phase_ != Phase::kPending) return false;
    phase_ = Phase::kFired;
    callback.swap(callback_);
  }
  callHost(site, callback);
  callback = nullptr;
  return true;
}

bool RKVTimerState::cancel() {
  std::function<void()> dropped;
  bool prevented = false;
  {
    RKVMutexLock lock(mu_);
    if (phase_ == Phase::kPending) {
      phase_ = Phase::kCancelled;
      dropped.swap(callback_);
      prevented = true;
    }
  }
  dropped = nullptr;  // outside the lock: it may own things that use the loop or queue
  // A call under way on another thread ends before this returns; one on this thread (the
  // callback cancelling itself) cannot, and is not waited for.
  gate_.close();
  return prevented;
}

bool RKVTimerState::isPending() const {
  RKVMutexLock lock(mu_);
  return phase_ == Phase::kPending;
}

}  // namespace internal

RKVTimerHandle::RKVTimerHandle(std::shared_ptr<internal::RKVTimerState> state)
    : state_(std::move(state)) {}

bool RKVTimerHandle::cancel() {
  return state_ && state_->cancel();
}

bool RKVTimerHandle::isPending() const {
  return state_ && state_->isPending();
}

RKVClock::time_point RKVTimerHandle::deadline() const {
  return state_ ? state_->deadline() : RKVClock::time_point();
}

}  // namespace rkv
