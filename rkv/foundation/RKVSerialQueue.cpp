#include "rkv/foundation/RKVSerialQueue.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <system_error>
#include <thread>
#include <utility>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVThreadName.h"

namespace rkv {

// Shared by the queue and its thread, so that a thread left to finish on its own (the queue
// destroyed from one of its tasks) never touches freed memory.
struct RKVSerialQueue::State {
  explicit State(std::string l) : label(std::move(l)) {}

  static void work(const std::shared_ptr<State>& self);
  bool isCurrent() const { return workerID.load() == std::this_thread::get_id(); }
  // Queues a task; its ticket (the number of tasks accepted so far) or 0 when refused.
  uint64_t submit(std::function<void()> task, const std::shared_ptr<State>& self) RKV_EXCLUDES(mu);
  // Waits until `ticket` tasks have completed.
  void waitFor(uint64_t ticket) RKV_EXCLUDES(mu);

  const std::string label;
  std::atomic<std::thread::id> workerID{std::thread::id()};

  RKVMutex mu;
  RKVCondVar wakeup;    // the worker waits for tasks
  RKVCondVar progress;  // sync(), drain() and shutdown() wait for completions
  std::deque<std::function<void()>> tasks RKV_GUARDED_BY(mu);
  uint64_t accepted RKV_GUARDED_BY(mu) = 0;
  uint64_t completed RKV_GUARDED_BY(mu) = 0;
  bool closed RKV_GUARDED_BY(mu) = false;
  bool exited RKV_GUARDED_BY(mu) = false;
  std::thread thread RKV_GUARDED_BY(mu);
};

void RKVSerialQueue::State::work(const std::shared_ptr<State>& self) {
  self->workerID.store(std::this_thread::get_id());
  setCurrentThreadName(self->label);
  for (;;) {
    std::function<void()> task;
    {
      RKVMutexLock lock(self->mu);
      while (self->tasks.empty() && !self->closed)
        self->wakeup.wait(self->mu);
      if (self->tasks.empty()) {
        self->exited = true;
        self->progress.notifyAll();
        return;
      }
      task = std::move(self->tasks.front());
      self->tasks.pop_front();
    }
    task();
    task = nullptr;  // captured state is released before the task counts as done
    RKVMutexLock lock(self->mu);
    ++self->completed;
    self->progress.notifyAll();
  }
}

uint64_t RKVSerialQueue::State::submit(std::function<void()> task,
                                       const std::shared_ptr<State>& self) {
  if (!task) return 0;
  RKVMutexLock lock(mu);
  if (closed) return 0;
  if (!thread.joinable() && accepted == 0) {
    try {
      thread = std::thread([self] { work(self); });
    } catch (const std::system_error&) {
      return 0;
    }
  }
  tasks.push_back(std::move(task));
  wakeup.notifyOne();
  return ++accepted;
}

void RKVSerialQueue::State::waitFor(uint64_t ticket) {
  RKVMutexLock lock(mu);
  while (completed < ticket)
    progress.wait(mu);
}

RKVSerialQueue::RKVSerialQueue(std::string label)
    : state_(std::make_shared<State>(std::move(label))) {}

RKVSerialQueue::~RKVSerialQueue() {
  shutdown();
}

bool RKVSerialQueue::async(std::function<void()> task) {
  return state_->submit(std::move(task), state_) != 0;
}

bool RKVSerialQueue::sync(std::function<void()> task) {
  if (state_->isCurrent()) return false;
  const uint64_t ticket = state_->submit(std::move(task), state_);
  if (ticket == 0) return false;
  state_->waitFor(ticket);
  return true;
}

bool RKVSerialQueue::drain() {
  if (state_->isCurrent()) return false;
  uint64_t ticket = 0;
  {
    RKVMutexLock lock(state_->mu);
    if (state_->closed) return false;
    ticket = state_->accepted;
  }
  state_->waitFor(ticket);
  return true;
}

void RKVSerialQueue::shutdown() {
  std::thread thread;
  {
    RKVMutexLock lock(state_->mu);
    state_->closed = true;
    state_->wakeup.notifyAll();
    if (state_->isCurrent()) {
      // Called from a task: the thread cannot join itself; it finishes the queue on its own.
      if (state_->thread.joinable()) state_->thread.detach();
      return;
    }
    thread = std::move(state_->thread);
  }
  if (thread.joinable()) {
    thread.join();
    return;
  }
  // Another caller is joining, or the thread was left to finish on its own: wait for the end.
  RKVMutexLock lock(state_->mu);
  while (state_->accepted > 0 && !state_->exited)
    state_->progress.wait(state_->mu);
}

bool RKVSerialQueue::isCurrent() const {
  return state_->isCurrent();
}

const std::string& RKVSerialQueue::label() const {
  return state_->label;
}

}  // namespace rkv
