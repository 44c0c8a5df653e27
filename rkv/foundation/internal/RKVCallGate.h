// RKVCallGate: lets an owner detach from callers and then wait for the calls already under way.
// A call enters the gate before it runs and leaves after; close() refuses later calls and waits
// for those under way on other threads. A call under way on the closing thread itself (a
// delegate that cancels from its own callback) is not waited for, since it cannot end first.
// Thread-safe.
//
//   if (auto pass = gate.enter()) callObserver();   // skipped once the gate is closed
//   gate.close();                                   // no call starts after this returns
#pragma once

#include <thread>
#include <vector>

#include "rkv/foundation/RKVMutex.h"

namespace rkv::internal {

class RKVCallGate {
 public:
  // Leaves the gate when destroyed; converts to false when the gate was closed.
  class Pass {
   public:
    Pass(Pass&& other) noexcept : gate_(other.gate_) { other.gate_ = nullptr; }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    Pass& operator=(Pass&&) = delete;
    ~Pass() {
      if (gate_) gate_->leave();
    }
    explicit operator bool() const { return gate_ != nullptr; }

   private:
    friend class RKVCallGate;
    explicit Pass(RKVCallGate* gate) : gate_(gate) {}
    RKVCallGate* gate_;
  };

  RKVCallGate() = default;
  RKVCallGate(const RKVCallGate&) = delete;
  RKVCallGate& operator=(const RKVCallGate&) = delete;

  // Registers a call by this thread; an empty pass when the gate is closed.
  [[nodiscard]] Pass enter() RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    if (closed_) return Pass(nullptr);
    calls_.push_back(std::this_thread::get_id());
    return Pass(this);
  }

  // Refuses later calls, then waits for calls under way on other threads.
  void close() RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    closed_ = true;
    waitLocked();
  }

  // Waits for calls under way on other threads without closing. Calls that enter meanwhile are
  // waited for too; the owner makes sure none can start (it has forgotten what they would call).
  void drain() RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    waitLocked();
  }

  bool isClosed() const RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    return closed_;
  }

 private:
  void leave() RKV_EXCLUDES(mu_) {
    RKVMutexLock lock(mu_);
    for (auto it = calls_.begin(); it != calls_.end(); ++it) {
      if (*it == std::this_thread::get_id()) {
        calls_.erase(it);
        break;
      }
    }
    ended_.notifyAll();
  }

  void waitLocked() RKV_REQUIRES(mu_) {
    while (hasCallsOnOtherThreads())
      ended_.wait(mu_);
  }

  bool hasCallsOnOtherThreads() const RKV_REQUIRES(mu_) {
    const std::thread::id self = std::this_thread::get_id();
    for (const std::thread::id& id : calls_) {
      if (id != self) return true;
    }
    return false;
  }

  mutable RKVMutex mu_;
  RKVCondVar ended_;
  bool closed_ RKV_GUARDED_BY(mu_) = false;
  std::vector<std::thread::id> calls_ RKV_GUARDED_BY(mu_);
};

}  // namespace rkv::internal
