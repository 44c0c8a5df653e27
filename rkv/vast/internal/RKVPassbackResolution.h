// RKVPassbackResolution: one resolution of a VAST manager's passback wrappers, seen from the
// result slot that its tasks share and the caller that waits for it. Thread-safe.
//
// The protocol, one task per wrapper passback:
//   - A task with a result claims the slot (under the manager's mutex, together with consuming
//     the result, so that lock order is the manager's mutex first): only the first task to find
//     the slot empty gets it; a result that loses stays, unconsumed, in the inline passback store.
//   - The winner converts its result and fills the slot (or releases it, the result being
//     invalid), then finishTask, then wakeAfterTask once the manager's flags are settled.
//   - The caller is woken by the task that filled the slot, or, with the slot empty, by the task
//     that ended when every wrapper had been taken up. The slot does not close when the caller
//     takes it: a result that comes after the caller was woken with an empty slot still finds it
//     empty and is consumed into it, and nobody reads it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/vast/RKVConsumableVideoAd.h"
#include "rkv/vast/model/RKVVASTAd.h"

namespace rkv::internal {

class RKVPassbackResolution {
 public:
  using Clock = std::chrono::steady_clock;

  // What the caller takes: the slot's player ad and the VAST ad it was made of (both null for an
  // empty slot), and whether the wait ended at the deadline rather than by a task.
  struct Outcome {
    std::shared_ptr<RKVConsumableVideoAd> ad;
    std::shared_ptr<RKVVASTAd> vastAd;
    bool deadlinePassed = false;
  };

  // `generation` is the manager's passback generation when the resolution starts; `tasks` the
  // number of tasks it submits.
  RKVPassbackResolution(uint64_t generation, size_t tasks);

  RKVPassbackResolution(const RKVPassbackResolution&) = delete;
  RKVPassbackResolution& operator=(const RKVPassbackResolution&) = delete;

  uint64_t generation() const { return generation_; }

  // True when the slot is empty (neither filled nor claimed by another task); it then counts as
  // full until fill() or release().
  bool claim() RKV_EXCLUDES(mu_);
  // The claimed slot takes the player ad made of `vastAd`.
  void fill(std::shared_ptr<RKVConsumableVideoAd> ad, std::shared_ptr<RKVVASTAd> vastAd)
      RKV_EXCLUDES(mu_);
  // The claimed slot stays empty (the result was not valid).
  void release() RKV_EXCLUDES(mu_);

  // One task ended; true for the last one.
  bool finishTask() RKV_EXCLUDES(mu_);
  // Wakes the caller when the task filled the slot, or when `settled` (every wrapper passback
  // has been taken up) and the slot is empty and unclaimed.
  void wakeAfterTask(bool filledSlot, bool settled) RKV_EXCLUDES(mu_);

  // Waits until woken, or until `deadline` (none: no limit), and takes the slot as it is then. A
  // slot claimed at the deadline is waited for: its result is consumed already, and the claiming
  // task only converts it.
  Outcome wait(std::optional<Clock::time_point> deadline) RKV_EXCLUDES(mu_);

 private:
  const uint64_t generation_;
  RKVMutex mu_;
  RKVCondVar changed_;
  std::shared_ptr<RKVConsumableVideoAd> slot_ RKV_GUARDED_BY(mu_);
  std::shared_ptr<RKVVASTAd> slotAd_ RKV_GUARDED_BY(mu_);
  bool claimed_ RKV_GUARDED_BY(mu_) = false;
  bool filled_ RKV_GUARDED_BY(mu_) = false;
  bool woken_ RKV_GUARDED_BY(mu_) = false;
  size_t unfinishedTasks_ RKV_GUARDED_BY(mu_);
};

}  // namespace rkv::internal
