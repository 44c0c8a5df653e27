// RKVSerialQueue: runs tasks one at a time, in submission order, on a thread of its own.
// Thread-safe.
//
// The thread starts with the first task and lives until shutdown() or destruction. Tasks may
// block (on I/O, on a future); the queue then waits for them, and nothing else is delayed.
// A task must not throw: an exception escaping it ends the process (std::terminate).
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVSerialQueue {
 public:
  // `label` names the thread (shortened to the system's limit) for debuggers.
  explicit RKVSerialQueue(std::string label = "rkv.serial");
  // shutdown(): the tasks submitted before run, then the thread is joined. When the queue is
  // destroyed by one of its own tasks (its owner released there), the thread finishes the
  // remaining tasks on its own after the destructor has returned.
  ~RKVSerialQueue();

  RKVSerialQueue(const RKVSerialQueue&) = delete;
  RKVSerialQueue& operator=(const RKVSerialQueue&) = delete;

  // Queues `task` and returns at once. False (task dropped) after shutdown began, for a null task,
  // or when no thread could be started.
  bool async(std::function<void()> task);
  // Queues `task` and waits until it has run. Refused (false, the task does not run) when called
  // from one of this queue's own tasks, which would wait for itself forever, and wherever async()
  // would refuse.
  [[nodiscard]] bool sync(std::function<void()> task);
  // Waits until every task submitted before the call has run. False without waiting when called
  // from one of this queue's own tasks or after shutdown began.
  bool drain();
  // Refuses new tasks, lets the queued ones run, and joins the thread. Idempotent; from one of the
  // queue's own tasks it returns without waiting.
  void shutdown();

  // True inside one of this queue's tasks.
  bool isCurrent() const;
  const std::string& label() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace rkv
