// RKVBackgroundExecutor: the library's concurrent background queue, a thread pool that grows
// when its threads are busy. Thread-safe.
//
// Tasks here may block: on network I/O, on a future, on a semaphore that another task signals.
// A fixed pool deadlocks as soon as every thread waits for a task still queued behind it, so this
// pool never lets a task wait for a thread while it may start one:
//
//   - A submitted task is taken by an idle thread; when there is none, a new thread is started
//     for it at once, up to maxThreads.
//   - At maxThreads, tasks wait in the queue (default priority first, then background, each in
//     submission order) until a thread is free. Only there can tasks that wait for queued tasks
//     deadlock; the default cap is far above what the library ever runs at once.
//   - A thread idle for idleTimeout ends, as long as more than minThreads remain. Threads are
//     started on demand, so an executor that is never used has none.
//
// A task that throws is reported at error level and dropped; the thread goes on with the next.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

enum class RKVTaskPriority {
  kDefault,     // ahead of background tasks when threads are scarce
  kBackground,  // work nobody waits for
};

struct RKV_EXPORT RKVBackgroundExecutorOptions {
  // Idle threads kept however long they idle.
  size_t minThreads = 2;
  // Threads at most (at least 1; minThreads is lowered to it when larger).
  size_t maxThreads = 64;
  // How long a thread above minThreads waits for work before it ends.
  std::chrono::milliseconds idleTimeout = std::chrono::seconds(30);
  // Thread name (shortened to the system's limit), for debuggers.
  std::string threadName = "rkv.worker";
};

class RKV_EXPORT RKVBackgroundExecutor {
 public:
  RKVBackgroundExecutor();
  explicit RKVBackgroundExecutor(RKVBackgroundExecutorOptions options);
  // shutdown().
  ~RKVBackgroundExecutor();

  RKVBackgroundExecutor(const RKVBackgroundExecutor&) = delete;
  RKVBackgroundExecutor& operator=(const RKVBackgroundExecutor&) = delete;

  // The process's executor (default options). Created on first use and never destroyed; a host
  // that wants its threads joined before exit calls shutdown() on it.
  static RKVBackgroundExecutor& sharedInstance();

  // Queues `task`. False (task dropped) after shutdown began, for a null task, or when no thread
  // exists and none can be started.
  bool submit(std::function<void()> task, RKVTaskPriority priority = RKVTaskPriority::kDefault);

  // Refuses new tasks, destroys the queued ones without running them, waits for the running ones
  // to return and joins every thread. Idempotent. Called from one of its own tasks, it joins the
  // other threads and leaves the caller's thread to end when its task returns.
  void shutdown();

  // Threads alive now (running a task or idle).
  size_t threadCount() const;
  // Tasks queued and not yet started.
  size_t pendingCount() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace rkv
