#include "rkv/vast/internal/RKVPassbackResolution.h"

#include <utility>

namespace rkv::internal {

RKVPassbackResolution::RKVPassbackResolution(uint64_t generation, size_t tasks)
    : generation_(generation), unfinishedTasks_(tasks) {}

bool RKVPassbackResolution::claim() {
  RKVMutexLock lock(mu_);
  if (claimed_ || filled_) return false;
  claimed_ = true;
  return true;
}

void RKVPassbackResolution::fill(std::shared_ptr<RKVConsumableVideoAd> ad,
                                 std::shared_ptr<RKVVASTAd> vastAd) {
  RKVMutexLock lock(mu_);
  claimed_ = false;
  filled_ = true;
  slot_ = std::move(ad);
  slotAd_ = std::move(vastAd);
  changed_.notifyAll();  // a caller past its deadline may wait for the claim to end
}

void RKVPassbackResolution::release() {
  RKVMutexLock lock(mu_);
  claimed_ = false;
  changed_.notifyAll();
}

bool RKVPassbackResolution::finishTask() {
  RKVMutexLock lock(mu_);
  return --unfinishedTasks_ == 0;
}

void RKVPassbackResolution::wakeAfterTask(bool filledSlot, bool settled) {
  RKVMutexLock lock(mu_);
  if (filledSlot || (settled && !filled_ && !claimed_)) {
    woken_ = true;
    changed_.notifyAll();
  }
}

RKVPassbackResolution::Outcome RKVPassbackResolution::wait(
    std::optional<Clock::time_point> deadline) {
  RKVMutexLock lock(mu_);
  bool deadlinePassed = false;
  while (!woken_) {
    if (!deadline) {
      changed_.wait(mu_);
    } else if (!changed_.waitUntil(mu_, *deadline) && !woken_) {
      deadlinePassed = true;
      break;
    }
  }
  while (deadlinePassed && claimed_)
    changed_.wait(mu_);
  return {slot_, slotAd_, deadlinePassed};
}

}  // namespace rkv::internal
