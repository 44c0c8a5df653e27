#include "rkv/foundation/RKVBackgroundExecutor.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/foundation/internal/RKVThreadName.h"

namespace rkv {
namespace {

RKVBackgroundExecutorOptions sanitized(RKVBackgroundExecutorOptions options) {
  options.maxThreads = std::max<size_t>(options.maxThreads, 1);
  options.minThreads = std::min(options.minThreads, options.maxThreads);
  options.idleTimeout = std::max(options.idleTimeout, std::chrono::milliseconds::zero());
  return options;
}

}  // namespace

// Shared by the executor and its threads: a thread left to end on its own (shutdown from one of
// its tasks) keeps it alive until it has.
struct RKVBackgroundExecutor::State {
  explicit State(RKVBackgroundExecutorOptions o)
      : options(sanitized(std::move(o))),
        taskSite("A task on the background executor " + options.threadName) {}

  static void work(const std::shared_ptr<State>& self);
  bool startThread(const std::shared_ptr<State>& self) RKV_REQUIRES(mu);
  std::function<void()> takeTask() RKV_REQUIRES(mu);
  size_t pending() const RKV_REQUIRES(mu) { return queues[0].size() + queues[1].size(); }
  std::vector<std::thread> takeFinished() RKV_EXCLUDES(mu);

  const RKVBackgroundExecutorOptions options;
  const std::string taskSite;  // names the executor when a task throws

  mutable RKVMutex mu;
  RKVCondVar wakeup;  // idle threads wait here for tasks
  RKVCondVar exits;   // shutdown() waits here for threads it does not join itself
  // Index 0: default priority, 1: background.
  std::array<std::deque<std::function<void()>>, 2> queues RKV_GUARDED_BY(mu);
  size_t idle RKV_GUARDED_BY(mu) = 0;  // threads waiting on `wakeup`
  size_t live RKV_GUARDED_BY(mu) = 0;  // threads started and not yet ended
  bool closed RKV_GUARDED_BY(mu) = false;
  std::map<std::thread::id, std::thread> threads RKV_GUARDED_BY(mu);
  std::vector<std::thread> finished RKV_GUARDED_BY(mu);  // ended on their own, to be joined
};

namespace {
// The executor whose task the current thread is running, if any.
thread_local const void* currentExecutorState = nullptr;
}  // namespace

void RKVBackgroundExecutor::State::work(const std::shared_ptr<State>& self) {
  currentExecutorState = self.get();
  setCurrentThreadName(self->options.threadName);
  RKVMutexLock lock(self->mu);
  for (;;) {
    if (std::function<void()> task = self->takeTask()) {
      self->mu.unlock();
      internal::callHost(self->taskSite, task);
      task = nullptr;  // captured state goes before the thread counts as idle again
      self->mu.lock();
      continue;
    }
    if (self->closed) break;
    ++self->idle;
    const bool notified = self->wakeup.waitFor(self->mu, self->options.idleTimeout);
    --self->idle;
    if (!notified && self->pending() == 0 && !self->closed &&
        self->live > self->options.minThreads) {
      break;
    }
  }
  --self->live;
  auto it = self->threads.find(std::this_thread::get_id());
  if (it != self->threads.end()) {
    self->finished.push_back(std::move(it->second));
    self->threads.erase(it);
  }
  self->exits.notifyAll();
}

bool RKVBackgroundExecutor::State::startThread(const std::shared_ptr<State>& self) {
  try {
    std::thread thread([self] { work(self); });
    const std::thread::id id = thread.get_id();
    threads.emplace(id, std::move(thread));
    ++live;
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

std::function<void()> RKVBackgroundExecutor::State::takeTask() {
  for (auto& queue : queues) {
    if (!queue.empty()) {
      std::function<void()> task = std::move(queue.front());
      queue.pop_front();
      return task;
    }
  }
  return nullptr;
}

std::vector<std::thread> RKVBackgroundExecutor::State::takeFinished() {
  RKVMutexLock lock(mu);
  return std::exchange(finished, {});
}

RKVBackgroundExecutor::RKVBackgroundExecutor()
    : RKVBackgroundExecutor(RKVBackgroundExecutorOptions()) {}

RKVBackgroundExecutor::RKVBackgroundExecutor(RKVBackgroundExecutorOptions options)
    : state_(std::make_shared<State>(std::move(options))) {}

RKVBackgroundExecutor::~RKVBackgroundExecutor() {
  shutdown();
}

RKVBackgroundExecutor& RKVBackgroundExecutor::sharedInstance() {
  static auto* const instance = new RKVBackgroundExecutor();
  return *instance;
}

bool RKVBackgroundExecutor::submit(std::function<void()> task, RKVTaskPriority priority) {
  if (!task) return false;
  // Threads that ended on their own are joined here, off the lock (they are past their last
  // access to the state, so this does not wait).
  for (std::thread& thread : state_->takeFinished())
    thread.join();

  RKVMutexLock lock(state_->mu);
  if (state_->closed) return false;
  auto& queue = state_->queues[priority == RKVTaskPriority::kDefault ? 0 : 1];
  queue.push_back(std::move(task));
  // Every queued task needs a thread that is free for it; the busy ones may be blocked for good.
  if (state_->pending() > state_->idle && state_->live < state_->options.maxThreads) {
    if (!state_->startThread(state_) && state_->live == 0) {
      queue.pop_back();
      return false;
    }
  }
  state_->wakeup.notifyOne();
  return true;
}

void RKVBackgroundExecutor::shutdown() {
  const bool onWorker = currentExecutorState == state_.get();
  std::array<std::deque<std::function<void()>>, 2> dropped;
  std::vector<std::thread> toJoin;
  {
    RKVMutexLock lock(state_->mu);
    state_->closed = true;
    dropped.swap(state_->queues);
    state_->wakeup.notifyAll();
    for (auto& [id, thread] : state_->threads) {
      if (onWorker && id == std::this_thread::get_id()) {
        thread.detach();
      } else {
        toJoin.push_back(std::move(thread));
      }
    }
    state_->threads.clear();
    for (std::thread& thread : state_->finished)
      toJoin.push_back(std::move(thread));
    state_->finished.clear();
  }
  // Dropped tasks are destroyed before waiting: their captured state may be what a running task
  // waits for (a future's completion is signalled when its task is destroyed unrun).
  for (auto& queue : dropped)
    queue.clear();
  for (std::thread& thread : toJoin)
    thread.join();

  // A concurrent shutdown() may have taken some threads to join: wait until they have ended.
  RKVMutexLock lock(state_->mu);
  const size_t self = onWorker ? 1 : 0;
  while (state_->live > self)
    state_->exits.wait(state_->mu);
}

size_t RKVBackgroundExecutor::threadCount() const {
  RKVMutexLock lock(state_->mu);
  return state_->live;
}

size_t RKVBackgroundExecutor::pendingCount() const {
  RKVMutexLock lock(state_->mu);
  return state_->pending();
}

}  // namespace rkv
