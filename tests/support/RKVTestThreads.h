// Helpers for tests of threaded code: a one-shot event, waiting for a condition, and a main loop
// running on a thread of its own. Every wait has a hang guard: a deadlock fails the test with a
// message instead of stalling the suite. The guard is never an assertion of speed.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVMutex.h"

namespace rkv::test {

// How long a test waits for something that should happen before calling it a hang.
inline constexpr std::chrono::seconds kHangGuard{30};

// A flag that is set once and waited for.
class RKVTestEvent {
 public:
  void set();
  bool isSet() const;
  // True once set; false when the guard ran out first.
  [[nodiscard]] bool wait(std::chrono::nanoseconds guard = kHangGuard) const;

 private:
  mutable RKVMutex mu_;
  mutable RKVCondVar changed_;
  bool set_ RKV_GUARDED_BY(mu_) = false;
};

// Re-evaluates `condition` until it holds (true) or the guard runs out (false).
[[nodiscard]] bool eventually(const std::function<bool()>& condition,
                              std::chrono::nanoseconds guard = kHangGuard);

// An RKVMainLoop run on its own thread from construction until destruction.
class RKVLoopThread {
 public:
  explicit RKVLoopThread(std::shared_ptr<RKVClock> clock = nullptr);
  ~RKVLoopThread();

  RKVMainLoop& loop() { return *loop_; }
  std::thread::id threadID() const { return thread_.get_id(); }
  // Posts `fn` and waits until it has run on the loop; false when the guard ran out.
  [[nodiscard]] bool runOnLoop(std::function<void()> fn);

 private:
  std::unique_ptr<RKVMainLoop> loop_;
  std::thread thread_;
};

}  // namespace rkv::test
