// RKVSerialQueue: runs tasks one at a time, in submission order, on a thread of its own.
// Thread-safe.
//
// The thread starts with the first task and lives until shutdown() or destruction. Tasks may
// block (on I/O, on a future); the queue then waits for them, and nothing else is delayed.
// A task that throws is reported at error level and dropped; the queue goes on with the next.
//
// Delayed tasks (asyncAfter, asyncAt) wait on the queue's own thread, in one deadline heap, for
// the queue's RKVClock: no thread per task. A delayed task joins the queue, behind the tasks
// already there, once the clock reaches its deadline; tasks due at the same time join in deadline
// order, ties in the order they were scheduled. On an RKVManualClock nothing is waited for in real
// time: moving the clock wakes the queue's thread, which queues what has fallen due.
//
//   auto clock = std::make_shared<RKVManualClock>();
//   RKVSerialQueue queue("test", clock);
//   auto handle = queue.asyncAfter(std::chrono::seconds(5), task);
//   clock->advance(std::chrono::seconds(5));  // task runs on the queue's thread after this
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVClock.h"
#include "rkv/foundation/RKVTimerHandle.h"

namespace rkv {

class RKV_EXPORT RKVSerialQueue {
 public:
  // `label` names the thread (shortened to the system's limit) for debuggers. Delayed tasks use
  // `clock` (RKVClock::system() when null).
  explicit RKVSerialQueue(std::string label = "rkv.serial", std::shared_ptr<RKVClock> clock = {});
  // shutdown(): the tasks submitted before run, then the thread is joined. When the queue is
  // destroyed by one of its own tasks (its owner released there), the thread finishes the
  // remaining tasks on its own after the destructor has returned.
  ~RKVSerialQueue();

  RKVSerialQueue(const RKVSerialQueue&) = delete;
  RKVSerialQueue& operator=(const RKVSerialQueue&) = delete;

  // Queues `task` and returns at once. False (task dropped) after shutdown began, for a null task,
  // or when no thread could be started.
  bool async(std::function<void()> task);
  // Queues `task` once clock()->now() has reached now() + delay (negative delays are 0) and
  // returns at once. Keep the handle to cancel it (RKVTimerHandle::cancel: from another thread
  // while the task runs, waits for it to return); dropping the handle does not cancel. An empty
  // handle (task dropped) where async() would refuse. Delayed tasks not yet due when shutdown()
  // begins never run: they are dropped when the queued tasks are done.
  RKVTimerHandle asyncAfter(RKVClock::duration delay, std::function<void()> task);
  // As asyncAfter() for an absolute deadline on clock(); time_point::max() never comes.
  RKVTimerHandle asyncAt(RKVClock::time_point deadline, std::function<void()> task);
  // Queues `task` and waits until it has run. Refused (false, the task does not run) when called
  // from one of this queue's own tasks, which would wait for itself forever, and wherever async()
  // would refuse.
  [[nodiscard]] bool sync(std::function<void()> task);
  // Waits until every task submitted before the call has run (delayed tasks that have joined the
  // queue included, those still waiting for their deadline not). False without waiting when
  // called from one of this queue's own tasks or after shutdown began.
  bool drain();
  // Refuses new tasks, lets the queued ones run, drops the delayed ones not yet due, and joins the
  // thread. Idempotent; from one of the queue's own tasks it returns without waiting.
  void shutdown();

  // True inside one of this queue's tasks.
  bool isCurrent() const;
  const std::string& label() const;
  // The clock of the delayed tasks.
  const std::shared_ptr<RKVClock>& clock() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace rkv
