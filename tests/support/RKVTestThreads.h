// Helpers for tests of threaded code. Every wait has a hang guard: a deadlock fails the test with
// a message instead of stalling the suite. The guard is never an assertion of speed.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "rkv/foundation/RKVMainLoop.h"

namespace rkv::test {

inline constexpr std::chrono::seconds kHangGuard{30};

// Re-evaluates `condition` until it holds (true) or the guard runs out (false).
[[nodiscard]] inline bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kHangGuard;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// A flag that is set once and waited for.
class RKVTestEvent {
 public:
  void set() { set_ = true; }
  // True once set; false when the guard ran out first.
  [[nodiscard]] bool wait() const {
    return eventually([this] { return set_.load(); });
  }

 private:
  std::atomic<bool> set_{false};
};

// Runs `body(0)` ... `body(count - 1)` on threads of their own, all at once, and joins them.
inline void onThreads(int count, const std::function<void(int)>& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i)
    threads.emplace_back(body, i);
  for (auto& thread : threads)
    thread.join();
}

// An RKVMainLoop run on its own thread from construction until destruction.
class RKVLoopThread {
 public:
  explicit RKVLoopThread(std::shared_ptr<RKVClock> clock = nullptr)
      : loop_(std::make_unique<RKVMainLoop>(std::move(clock))), thread_([this] { loop_->run(); }) {
    // Once a handler has run, the loop is being driven and isMainThread() names its thread.
    (void)runOnLoop([] {});
  }
  ~RKVLoopThread() {
    loop_->stop();
    thread_.join();
  }
  RKVMainLoop& loop() { return *loop_; }
  // Posts `fn` and waits until it has run on the loop; false when the guard ran out.
  [[nodiscard]] bool runOnLoop(std::function<void()> fn) {
    auto done = std::make_shared<RKVTestEvent>();
    loop_->post([fn = std::move(fn), done] {
      fn();
      done->set();
    });
    return done->wait();
  }

 private:
  std::unique_ptr<RKVMainLoop> loop_;
  std::thread thread_;
};

}  // namespace rkv::test
