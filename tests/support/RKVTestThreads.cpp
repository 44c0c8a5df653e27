#include "tests/support/RKVTestThreads.h"

#include <utility>

namespace rkv::test {

void RKVTestEvent::set() {
  RKVMutexLock lock(mu_);
  set_ = true;
  changed_.notifyAll();
}

bool RKVTestEvent::isSet() const {
  RKVMutexLock lock(mu_);
  return set_;
}

bool RKVTestEvent::wait(std::chrono::nanoseconds guard) const {
  const auto deadline = std::chrono::steady_clock::now() + guard;
  RKVMutexLock lock(mu_);
  while (!set_) {
    if (!changed_.waitUntil(mu_, deadline) && !set_) return false;
  }
  return true;
}

bool eventually(const std::function<bool()>& condition, std::chrono::nanoseconds guard) {
  const auto deadline = std::chrono::steady_clock::now() + guard;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

RKVLoopThread::RKVLoopThread(std::shared_ptr<RKVClock> clock)
    : loop_(std::make_unique<RKVMainLoop>(std::move(clock))) {
  RKVTestEvent started;
  thread_ = std::thread([this, &started] {
    loop_->post([&started] { started.set(); });
    loop_->run();
  });
  // Once a handler has run, the loop is being driven and isMainThread() names its thread.
  (void)started.wait();
}

RKVLoopThread::~RKVLoopThread() {
  loop_->stop();
  thread_.join();
}

bool RKVLoopThread::runOnLoop(std::function<void()> fn) {
  auto done = std::make_shared<RKVTestEvent>();
  loop_->post([fn = std::move(fn), done] {
    fn();
    done->set();
  });
  return done->wait();
}

}  // namespace rkv::test
