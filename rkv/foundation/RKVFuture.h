// RKVFuture<T>: one task run in the background at creation, and a way to wait for its single
// result, without limit or until a time-out. Thread-safe; copies share the same task and result.
//
// Why a template over the result type: the result is read where it was asked for, by code that
// knows what the task makes, and a typed std::optional<T> says all there is to say (a value, or
// none: the task returned none, or the wait timed out), where std::any or a type-erased pointer
// would leave every caller a cast that can fail at run time. For an object with identity use
// RKVFuture<std::shared_ptr<Object>>. Results are handed out by copy, so that any number of
// callers on any threads can read the same one.
//
// The task runs on RKVBackgroundExecutor::sharedInstance() (default priority) unless another
// executor is given. It may block. A task that throws (the exception is reported at error level),
// or that the executor destroys unrun (shut down), ends with no result, exactly like a task that
// returned none.
#pragma once

#include <chrono>
#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVHostCall.h"

namespace rkv {

// The error of a wait that timed out: domain "RKVFutureError", code 1000, no description.
inline constexpr const char* kRKVFutureErrorDomain = "RKVFutureError";
inline constexpr int64_t kRKVFutureErrorTimeout = 1000;

template <class T>
class RKV_EXPORT RKVFuture {
 public:
  using Task = std::function<std::optional<T>()>;

  // Submits `task` (a copyable callable returning T or std::optional<T>) at once. `executor` is
  // used only here.
  template <class F>
  requires std::convertible_to<std::invoke_result_t<F&>, std::optional<T>>
  explicit RKVFuture(F&& task,
                     RKVBackgroundExecutor& executor = RKVBackgroundExecutor::sharedInstance())
      : state_(std::make_shared<State>()) {
    // The completion travels inside the submitted job: run or destroyed unrun, it ends the wait.
    auto job = [completion = std::make_shared<Completion>(state_),
                fn = Task(std::forward<F>(task))]() mutable {
      completion->finish(internal::callHostOrDefault("An RKVFuture's task", fn));
    };
    executor.submit(std::move(job));  // refused: the job is destroyed, which ends the future
  }

  // Waits at most 1 millisecond for the task: true when it has finished. Not a pure poll.
  bool isDone() const { return waitUntil(std::chrono::steady_clock::now() + kDoneWait); }

  // Waits without limit and returns the result.
  std::optional<T> get() const { return waitForever(); }

  // Waits at most `seconds` (negative and NaN: not at all; so large that its nanosecond count
  // does not fit in 64 bits: without limit). On time-out, stores the "RKVFutureError" 1000 error
  // in *error when `error` is not null and returns std::nullopt; *error is left alone otherwise.
  std::optional<T> getWithTimeout(double seconds, std::optional<RKVError>* error) const {
    const std::optional<RKVClock::duration> timeout = RKVClock::durationFromSeconds(seconds);
    if (!timeout) return waitForever();
    const auto now = std::chrono::steady_clock::now();
    if (*timeout > std::chrono::steady_clock::time_point::max() - now) return waitForever();
    return getWithDeadline(now + *timeout, error);
  }

  // As getWithTimeout() with an absolute deadline; time_point::max() waits without limit.
  std::optional<T> getWithDeadline(std::chrono::steady_clock::time_point deadline,
                                   std::optional<RKVError>* error) const {
    if (isDone() || waitUntil(deadline)) return result();
    if (error) *error = RKVError(kRKVFutureErrorDomain, kRKVFutureErrorTimeout);
    return std::nullopt;
  }

 private:
  static constexpr std::chrono::milliseconds kDoneWait{1};

  struct State {
    RKVMutex mu;
    RKVCondVar finished;
    bool done RKV_GUARDED_BY(mu) = false;
    std::optional<T> result RKV_GUARDED_BY(mu);
  };

  // Ends the future once: with the task's result, or with none when destroyed unfinished.
  class Completion {
   public:
    explicit Completion(std::shared_ptr<State> state) : state_(std::move(state)) {}
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;
    ~Completion() {
      if (state_) finish(std::nullopt);
    }
    void finish(std::optional<T> result) {
      std::shared_ptr<State> state = std::exchange(state_, nullptr);
      if (!state) return;
      RKVMutexLock lock(state->mu);
      state->result = std::move(result);
      state->done = true;
      state->finished.notifyAll();
    }

   private:
    std::shared_ptr<State> state_;
  };

  bool waitUntil(std::chrono::steady_clock::time_point deadline) const {
    if (deadline == std::chrono::steady_clock::time_point::max()) {
      waitForever();
      return true;
    }
    RKVMutexLock lock(state_->mu);
    while (!state_->done) {
      if (!state_->finished.waitUntil(state_->mu, deadline) && !state_->done) return false;
    }
    return true;
  }

  std::optional<T> waitForever() const {
    RKVMutexLock lock(state_->mu);
    while (!state_->done)
      state_->finished.wait(state_->mu);
    return state_->result;
  }

  std::optional<T> result() const {
    RKVMutexLock lock(state_->mu);
    return state_->result;
  }

  std::shared_ptr<State> state_;
};

}  // namespace rkv
