#include "rkv/foundation/RKVSerialQueue.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/foundation/internal/RKVThreadName.h"
#include "rkv/foundation/internal/RKVTimerState.h"

namespace rkv {

namespace {

// A real-time wait for a deadline is re-checked after this long at most, so that no wait is
// handed a duration that the standard clock cannot add to its own now().
constexpr auto kLongestWait = std::chrono::hours(24);

// Below this size the heap of delayed tasks is never scanned for cancelled ones.
constexpr size_t kCompactionThreshold = 64;

}  // namespace

// Shared by the queue and its thread, so that a thread left to finish on its own (the queue
// destroyed from one of its tasks) never touches freed memory.
struct RKVSerialQueue::State {
  using Delayed = internal::RKVTimerEntry;
  static constexpr auto later = &internal::RKVTimerEntry::later;

  State(std::string l, std::shared_ptr<RKVClock> c)
      : label(std::move(l)),
        taskSite("A task on the serial queue " + label),
        delayedSite("A delayed task on the serial queue " + label),
        clock(c ? std::move(c) : RKVClock::system()) {}

  static void work(const std::shared_ptr<State>& self);
  bool isCurrent() const { return workerID.load() == std::this_thread::get_id(); }
  // Starts the thread unless it was started before; false when it cannot be started.
  bool startLocked(const std::shared_ptr<State>& self) RKV_REQUIRES(mu);
  // Queues a task; its ticket (the number of tasks accepted so far) or 0 when refused.
  uint64_t submit(std::function<void()> task, const std::shared_ptr<State>& self) RKV_EXCLUDES(mu);
  // Waits until `ticket` tasks have completed.
  void waitFor(uint64_t ticket) RKV_EXCLUDES(mu);
  // Moves the delayed tasks that are due to the end of the queue.
  void queueDueLocked() RKV_REQUIRES(mu);
  // Waits for a task, a move of a manual clock, or the earliest deadline of the real clock.
  void waitLocked() RKV_REQUIRES(mu);
  void dropCancelledFrontLocked() RKV_REQUIRES(mu);
  void compactIfNeededLocked() RKV_REQUIRES(mu);

  const std::string label;
  const std::string taskSite;     // names the queue when a task throws
  const std::string delayedSite;  // ... and when a delayed task does
  const std::shared_ptr<RKVClock> clock;
  uint64_t clockObserverID = 0;  // set by the queue's constructor, before any other use
  std::atomic<std::thread::id> workerID{std::thread::id()};

  RKVMutex mu;
  RKVCondVar wakeup;    // the worker waits for tasks, deadlines and clock moves
  RKVCondVar progress;  // sync(), drain() and shutdown() wait for completions
  std::deque<std::function<void()>> tasks RKV_GUARDED_BY(mu);
  std::vector<Delayed> delayed RKV_GUARDED_BY(mu);  // a heap, earliest deadline first
  uint64_t nextDelayedSeq RKV_GUARDED_BY(mu) = 0;
  size_t delayedSizeAfterCompaction RKV_GUARDED_BY(mu) = 0;
  uint64_t accepted RKV_GUARDED_BY(mu) = 0;
  uint64_t completed RKV_GUARDED_BY(mu) = 0;
  bool started RKV_GUARDED_BY(mu) = false;
  bool closed RKV_GUARDED_BY(mu) = false;
  bool exited RKV_GUARDED_BY(mu) = false;
  std::thread thread RKV_GUARDED_BY(mu);
};

void RKVSerialQueue::State::work(const std::shared_ptr<State>& self) {
  self->workerID.store(std::this_thread::get_id());
  setCurrentThreadName(self->label);
  for (;;) {
    std::function<void()> task;
    std::vector<Delayed> dropped;
    {
      RKVMutexLock lock(self->mu);
      for (;;) {
        self->queueDueLocked();
        if (!self->tasks.empty() || self->closed) break;
        self->waitLocked();
      }
      if (self->tasks.empty()) {
        dropped.swap(self->delayed);
        self->exited = true;
        self->progress.notifyAll();
      } else {
        task = std::move(self->tasks.front());
        self->tasks.pop_front();
      }
    }
    if (!task) {
      // Delayed tasks not yet due when the queue closed never run; what they captured goes here.
      for (const Delayed& entry : dropped)
        entry.timer->cancel();
      return;
    }
    internal::callHost(self->taskSite, task);
    task = nullptr;  // captured state is released before the task counts as done
    RKVMutexLock lock(self->mu);
    ++self->completed;
    self->progress.notifyAll();
  }
}

bool RKVSerialQueue::State::startLocked(const std::shared_ptr<State>& self) {
  if (started) return true;
  try {
    thread = std::thread([self] { work(self); });
  } catch (const std::system_error&) {
    return false;
  }
  started = true;
  return true;
}

uint64_t RKVSerialQueue::State::submit(std::function<void()> task,
                                       const std::shared_ptr<State>& self) {
  if (!task) return 0;
  RKVMutexLock lock(mu);
  if (closed || !startLocked(self)) return 0;
  tasks.push_back(std::move(task));
  wakeup.notifyOne();
  return ++accepted;
}

void RKVSerialQueue::State::waitFor(uint64_t ticket) {
  RKVMutexLock lock(mu);
  while (completed < ticket)
    progress.wait(mu);
}

void RKVSerialQueue::State::queueDueLocked() {
  if (delayed.empty()) return;
  const RKVClock::time_point now = clock->now();
  while (!delayed.empty() && delayed.front().deadline <= now &&
         delayed.front().deadline != RKVClock::time_point::max()) {
    std::shared_ptr<internal::RKVTimerState> timer = std::move(delayed.front().timer);
    std::pop_heap(delayed.begin(), delayed.end(), later);
    delayed.pop_back();
    if (!timer->isPending()) continue;  // cancelled
    // A cancel() between here and the run still wins: fire() checks again.
    tasks.push_back(
        [timer = std::move(timer), site = std::string_view(delayedSite)] { timer->fire(site); });
    ++accepted;
  }
}

void RKVSerialQueue::State::waitLocked() {
  dropCancelledFrontLocked();
  // A clock that does not move by itself is never waited for: its observer wakes this thread.
  if (delayed.empty() || !clock->advancesByItself() ||
      delayed.front().deadline == RKVClock::time_point::max()) {
    wakeup.wait(mu);
    return;
  }
  const RKVClock::duration wait = std::clamp<RKVClock::duration>(
      delayed.front().deadline - clock->now(), RKVClock::duration::zero(), kLongestWait);
  wakeup.waitFor(mu, wait);
}

void RKVSerialQueue::State::dropCancelledFrontLocked() {
  while (!delayed.empty() && !delayed.front().timer->isPending()) {
    std::pop_heap(delayed.begin(), delayed.end(), later);
    delayed.pop_back();
  }
}

void RKVSerialQueue::State::compactIfNeededLocked() {
  if (delayed.size() < kCompactionThreshold || delayed.size() < 2 * delayedSizeAfterCompaction) {
    return;
  }
  std::erase_if(delayed, [](const Delayed& entry) { return !entry.timer->isPending(); });
  std::make_heap(delayed.begin(), delayed.end(), later);
  delayedSizeAfterCompaction = delayed.size();
}

RKVSerialQueue::RKVSerialQueue(std::string label, std::shared_ptr<RKVClock> clock)
    : state_(std::make_shared<State>(std::move(label), std::move(clock))) {
  std::weak_ptr<State> weak = state_;
  state_->clockObserverID = state_->clock->addObserver([weak] {
    if (auto state = weak.lock()) {
      RKVMutexLock lock(state->mu);
      state->wakeup.notifyAll();
    }
  });
}

RKVSerialQueue::~RKVSerialQueue() {
  shutdown();
  state_->clock->removeObserver(state_->clockObserverID);
}

bool RKVSerialQueue::async(std::function<void()> task) {
  return state_->submit(std::move(task), state_) != 0;
}

RKVTimerHandle RKVSerialQueue::asyncAfter(RKVClock::duration delay, std::function<void()> task) {
  const RKVClock::duration wait = std::max(delay, RKVClock::duration::zero());
  const RKVClock::time_point deadline =
      RKVClock::addSaturating(state_->clock->now(), wait).value_or(RKVClock::time_point::max());
  return asyncAt(deadline, std::move(task));
}

RKVTimerHandle RKVSerialQueue::asyncAt(RKVClock::time_point deadline, std::function<void()> task) {
  if (!task) return RKVTimerHandle();
  // Declared before the lock: a refused task is destroyed after the lock is released.
  auto timer = std::make_shared<internal::RKVTimerState>(deadline, std::move(task));
  RKVMutexLock lock(state_->mu);
  if (state_->closed || !state_->startLocked(state_)) return RKVTimerHandle();
  state_->compactIfNeededLocked();
  state_->delayed.push_back(State::Delayed{deadline, state_->nextDelayedSeq++, timer});
  std::push_heap(state_->delayed.begin(), state_->delayed.end(), State::later);
  // A new earliest deadline may be due already, or need a shorter wait than the one under way.
  if (state_->delayed.front().timer == timer) state_->wakeup.notifyAll();
  return RKVTimerHandle(std::move(timer));
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
  while (state_->started && !state_->exited)
    state_->progress.wait(state_->mu);
}

bool RKVSerialQueue::isCurrent() const {
  return state_->isCurrent();
}

const std::string& RKVSerialQueue::label() const {
  return state_->label;
}

const std::shared_ptr<RKVClock>& RKVSerialQueue::clock() const {
  return state_->clock;
}

}  // namespace rkv
