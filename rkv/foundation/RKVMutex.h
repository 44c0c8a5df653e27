// RKVMutex: a std::mutex that clang's -Wthread-safety understands, with its scoped lock and a
// condition variable. Thread-safe.
//
// libstdc++'s std::mutex carries no capability attributes, so data guarded by it cannot be
// checked. Every mutex of the library is an RKVMutex and the data behind it is annotated:
//
//   RKVMutex mu_;
//   std::deque<Task> tasks_ RKV_GUARDED_BY(mu_);
//   void pushLocked(Task t) RKV_REQUIRES(mu_);
//   void push(Task t) RKV_EXCLUDES(mu_) { RKVMutexLock lock(mu_); pushLocked(std::move(t)); }
//
// Waiting on a condition takes the mutex explicitly (cv_.wait(mu_)), so the analysis sees that
// the mutex is held across the wait. Write waits as loops (`while (!ready_) cv_.wait(mu_);`):
// the analysis does not look into predicate lambdas. With GCC the annotations compile to nothing.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "rkv/RKVExport.h"

#if defined(__clang__)
#define RKV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define RKV_THREAD_ANNOTATION(x)
#endif

#define RKV_CAPABILITY(x) RKV_THREAD_ANNOTATION(capability(x))
#define RKV_SCOPED_CAPABILITY RKV_THREAD_ANNOTATION(scoped_lockable)
#define RKV_GUARDED_BY(x) RKV_THREAD_ANNOTATION(guarded_by(x))
#define RKV_PT_GUARDED_BY(x) RKV_THREAD_ANNOTATION(pt_guarded_by(x))
#define RKV_ACQUIRED_BEFORE(...) RKV_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define RKV_ACQUIRED_AFTER(...) RKV_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define RKV_REQUIRES(...) RKV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define RKV_ACQUIRE(...) RKV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RKV_RELEASE(...) RKV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RKV_TRY_ACQUIRE(...) RKV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RKV_EXCLUDES(...) RKV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RKV_ASSERT_CAPABILITY(x) RKV_THREAD_ANNOTATION(assert_capability(x))
#define RKV_RETURN_CAPABILITY(x) RKV_THREAD_ANNOTATION(lock_returned(x))
#define RKV_NO_THREAD_SAFETY_ANALYSIS RKV_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace rkv {

class RKVCondVar;

// Not recursive: locking it twice on one thread is undefined, as with std::mutex.
class RKV_EXPORT RKV_CAPABILITY("mutex") RKVMutex {
 public:
  RKVMutex() = default;
  RKVMutex(const RKVMutex&) = delete;
  RKVMutex& operator=(const RKVMutex&) = delete;

  void lock() RKV_ACQUIRE() { mu_.lock(); }
  void unlock() RKV_RELEASE() { mu_.unlock(); }
  // True when the mutex was free and is now held by the caller.
  bool tryLock() RKV_TRY_ACQUIRE(true) { return mu_.try_lock(); }
  // Tells the analysis that the caller holds the mutex (checked nowhere at run time).
  void assertHeld() const RKV_ASSERT_CAPABILITY(this) {}

 private:
  friend class RKVCondVar;
  std::mutex mu_;
};

// Holds an RKVMutex for its scope.
class RKV_EXPORT RKV_SCOPED_CAPABILITY RKVMutexLock {
 public:
  explicit RKVMutexLock(RKVMutex& mu) RKV_ACQUIRE(mu) : mu_(mu) { mu_.lock(); }
  ~RKVMutexLock() RKV_RELEASE() { mu_.unlock(); }
  RKVMutexLock(const RKVMutexLock&) = delete;
  RKVMutexLock& operator=(const RKVMutexLock&) = delete;

 private:
  RKVMutex& mu_;
};

// A condition variable for RKVMutex. Every wait may wake spuriously: re-check the condition.
class RKV_EXPORT RKVCondVar {
 public:
  RKVCondVar() = default;
  RKVCondVar(const RKVCondVar&) = delete;
  RKVCondVar& operator=(const RKVCondVar&) = delete;

  // Releases mu while waiting and holds it again on return.
  void wait(RKVMutex& mu) RKV_REQUIRES(mu) {
    std::unique_lock<std::mutex> lock(mu.mu_, std::adopt_lock);
    cv_.wait(lock);
    lock.release();
  }
  // As wait(); false when the deadline passed without a notification.
  bool waitUntil(RKVMutex& mu, std::chrono::steady_clock::time_point deadline) RKV_REQUIRES(mu) {
    std::unique_lock<std::mutex> lock(mu.mu_, std::adopt_lock);
    const bool notified = cv_.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return notified;
  }
  // As waitUntil(now + timeout); a timeout too large to add to now waits without a limit.
  bool waitFor(RKVMutex& mu, std::chrono::nanoseconds timeout) RKV_REQUIRES(mu) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point now = Clock::now();
    const bool fits = timeout <= Clock::time_point::max() - now;
    return waitUntil(mu, fits ? now + timeout : Clock::time_point::max());
  }

  void notifyOne() { cv_.notify_one(); }
  void notifyAll() { cv_.notify_all(); }

 private:
  std::condition_variable cv_;
};

}  // namespace rkv
