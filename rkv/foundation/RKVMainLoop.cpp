#include "rkv/foundation/RKVMainLoop.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <thread>
#include <vector>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/foundation/internal/RKVMainLoopAccess.h"
#include "rkv/foundation/internal/RKVTimerState.h"

namespace rkv {
namespace {

// Runs a callable when the scope ends.
template <class F>
class ScopeExit {
 public:
  explicit ScopeExit(F f) : f_(std::move(f)) {}
  ~ScopeExit() { f_(); }
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;

 private:
  F f_;
};

// The real-time wait for a deadline is re-armed after this long at most, so that the loop never
// hands asio a duration it cannot add to its own clock.
constexpr auto kLongestWait = std::chrono::hours(24);

constexpr std::string_view kHandlerSite = "A handler posted to the main loop";
constexpr std::string_view kTimerSite = "A timer callback on the main loop";

// Below this size the heap is never scanned for cancelled timers.
constexpr size_t kCompactionThreshold = 64;

}  // namespace

struct RKV_HIDDEN RKVMainLoop::Impl {
  // What one round of processing may run: handlers and timers queued before the round (or, in
  // poll(), before the poll) and timers due by `now`.
  struct Limits {
    uint64_t postSeq = 0;
    uint64_t timerSeq = 0;
    RKVClock::time_point now;
  };
  struct Handler {
    uint64_t seq;
    std::function<void()> fn;
  };
  using Entry = internal::RKVTimerEntry;
  static constexpr auto later = &internal::RKVTimerEntry::later;

  explicit Impl(std::shared_ptr<RKVClock> c) : clock(std::move(c)) {}
  ~Impl();

  bool beginDriving(bool polling) RKV_EXCLUDES(mu);
  void endDriving() RKV_EXCLUDES(mu);
  void queueKick() RKV_EXCLUDES(mu);
  Limits currentLimits() RKV_EXCLUDES(mu);
  Limits limits() { return pollLimits ? *pollLimits : currentLimits(); }
  void process(const Limits& limits) RKV_EXCLUDES(mu);
  void afterProcessing() RKV_EXCLUDES(mu);
  void armWake() RKV_EXCLUDES(mu);
  void fire(const std::shared_ptr<internal::RKVTimerState>& state);
  void dropCancelledFront() RKV_REQUIRES(mu);
  void compactIfNeeded() RKV_REQUIRES(mu);
  bool hasWorkDue(RKVClock::time_point now) RKV_EXCLUDES(mu);

  const std::shared_ptr<RKVClock> clock;
  uint64_t clockObserverID = 0;
  asio::io_context io;
  asio::steady_timer wake{io};  // declared after io: destroyed before it

  RKVMutex mu;
  std::deque<Handler> ready RKV_GUARDED_BY(mu);
  std::vector<Entry> heap RKV_GUARDED_BY(mu);
  size_t heapSizeAfterCompaction RKV_GUARDED_BY(mu) = 0;
  uint64_t nextPostSeq RKV_GUARDED_BY(mu) = 0;
  uint64_t nextTimerSeq RKV_GUARDED_BY(mu) = 0;
  bool kickQueued RKV_GUARDED_BY(mu) = false;
  bool driving RKV_GUARDED_BY(mu) = false;
  bool running RKV_GUARDED_BY(mu) = false;
  bool stopPending RKV_GUARDED_BY(mu) = false;

  std::atomic<bool> stopping{false};
  std::atomic<std::thread::id> mainThread{std::thread::id()};

  // Touched only by the thread driving the loop (handed over under mu in begin/endDriving).
  size_t ranCount = 0;
  std::optional<Limits> pollLimits;
  std::optional<RKVClock::time_point> armedFor;
};

RKVMainLoop::Impl::~Impl() {
  std::vector<Entry> entries;
  std::deque<Handler> handlers;
  {
    RKVMutexLock lock(mu);
    entries.swap(heap);
    handlers.swap(ready);
  }
  // No thread drives the loop any more, so cancelling waits for nothing.
  for (const Entry& entry : entries)
    entry.timer->cancel();
}

bool RKVMainLoop::Impl::beginDriving(bool polling) {
  const RKVClock::time_point now = clock->now();
  {
    RKVMutexLock lock(mu);
    if (driving) return false;
    if (!polling && stopPending) {
      stopPending = false;
      return false;
    }
    driving = true;
    running = !polling;
    stopping.store(false);
    io.restart();
    if (polling) {
      pollLimits = Limits{nextPostSeq, nextTimerSeq, now};
    } else {
      pollLimits.reset();
    }
  }
  mainThread.store(std::this_thread::get_id());
  ranCount = 0;
  return true;
}

void RKVMainLoop::Impl::endDriving() {
  const bool polled = pollLimits.has_value();
  pollLimits.reset();
  {
    RKVMutexLock lock(mu);
    driving = false;
    running = false;
    stopping.store(false);
  }
  // Work left by a poll (queued or falling due while it ran) waits for the next run() or poll().
  if (polled && hasWorkDue(clock->now())) queueKick();
}

void RKVMainLoop::Impl::queueKick() {
  {
    RKVMutexLock lock(mu);
    if (kickQueued) return;
    kickQueued = true;
  }
  asio::post(io, [this] {
    {
      RKVMutexLock lock(mu);
      kickQueued = false;
    }
    process(limits());
    afterProcessing();
  });
}

RKVMainLoop::Impl::Limits RKVMainLoop::Impl::currentLimits() {
  const RKVClock::time_point now = clock->now();
  RKVMutexLock lock(mu);
  return Limits{nextPostSeq, nextTimerSeq, now};
}

void RKVMainLoop::Impl::dropCancelledFront() {
  while (!heap.empty()) {
    if (heap.front().timer->isPending()) return;
    std::pop_heap(heap.begin(), heap.end(), later);
    heap.pop_back();
  }
}

void RKVMainLoop::Impl::compactIfNeeded() {
  if (heap.size() < kCompactionThreshold || heap.size() < 2 * heapSizeAfterCompaction) return;
  std::erase_if(heap, [](const Entry& entry) { return !entry.timer->isPending(); });
  std::make_heap(heap.begin(), heap.end(), later);
  heapSizeAfterCompaction = heap.size();
}

bool RKVMainLoop::Impl::hasWorkDue(RKVClock::time_point now) {
  RKVMutexLock lock(mu);
  dropCancelledFront();
  return !ready.empty() || (!heap.empty() && heap.front().deadline <= now &&
                            heap.front().deadline != RKVClock::time_point::max());
}

void RKVMainLoop::Impl::fire(const std::shared_ptr<internal::RKVTimerState>& state) {
  if (state->fire(kTimerSite)) ++ranCount;
}

void RKVMainLoop::Impl::process(const Limits& limits) {
  const bool polling = pollLimits.has_value();
  // Timers first, one at a time: a callback may cancel or schedule others.
  while (polling || !stopping.load()) {
    std::shared_ptr<internal::RKVTimerState> due;
    {
      RKVMutexLock lock(mu);
      dropCancelledFront();
      if (heap.empty()) break;
      const Entry& front = heap.front();
      if (front.deadline > limits.now || front.seq >= limits.timerSeq ||
          front.deadline == RKVClock::time_point::max()) {
        break;
      }
      due = front.timer;
      std::pop_heap(heap.begin(), heap.end(), later);
      heap.pop_back();
    }
    fire(due);
  }
  while (polling || !stopping.load()) {
    std::function<void()> handler;
    {
      RKVMutexLock lock(mu);
      if (ready.empty() || ready.front().seq >= limits.postSeq) break;
      handler = std::move(ready.front().fn);
      ready.pop_front();
    }
    ++ranCount;
    internal::callHost(kHandlerSite, handler);
  }
}

void RKVMainLoop::Impl::afterProcessing() {
  // A poll() leaves what remains to its own epilogue; re-queuing here would spin inside it.
  if (pollLimits) return;
  if (hasWorkDue(clock->now())) queueKick();
  armWake();
}

void RKVMainLoop::Impl::armWake() {
  if (!clock->advancesByItself()) return;
  std::optional<RKVClock::time_point> earliest;
  {
    RKVMutexLock lock(mu);
    dropCancelledFront();
    if (!heap.empty() && heap.front().deadline != RKVClock::time_point::max()) {
      earliest = heap.front().deadline;
    }
  }
  if (earliest == armedFor) return;
  armedFor = earliest;
  if (!earliest) {
    wake.cancel();
    return;
  }
  const RKVClock::duration wait = std::clamp<RKVClock::duration>(
      *earliest - clock->now(), RKVClock::duration::zero(), kLongestWait);
  wake.expires_after(wait);
  wake.async_wait([this](const std::error_code& error) {
    if (error) return;  // re-armed or cancelled
    armedFor.reset();
    process(limits());
    afterProcessing();
  });
}

// --- RKVMainLoop ---------------------------------------------------------------------------

RKVMainLoop::RKVMainLoop() : RKVMainLoop(RKVClock::system()) {}

RKVMainLoop::RKVMainLoop(std::shared_ptr<RKVClock> clock)
    : impl_(std::make_shared<Impl>(clock ? std::move(clock) : RKVClock::system())) {
  std::weak_ptr<Impl> weak = impl_;
  impl_->clockObserverID = impl_->clock->addObserver([weak] {
    if (auto impl = weak.lock()) impl->queueKick();
  });
}

RKVMainLoop::~RKVMainLoop() {
  impl_->clock->removeObserver(impl_->clockObserverID);
}

const std::shared_ptr<RKVMainLoop>& RKVMainLoop::sharedInstance() {
  static const auto* const instance =
      new std::shared_ptr<RKVMainLoop>(std::make_shared<RKVMainLoop>());
  return *instance;
}

void RKVMainLoop::run() {
  if (!impl_->beginDriving(false)) return;
  ScopeExit end([this] { impl_->endDriving(); });
  impl_->queueKick();
  auto work = asio::make_work_guard(impl_->io);
  impl_->io.run();
}

size_t RKVMainLoop::poll() {
  if (!impl_->beginDriving(true)) return 0;
  ScopeExit end([this] { impl_->endDriving(); });
  impl_->process(*impl_->pollLimits);
  impl_->io.poll();
  return impl_->ranCount;
}

void RKVMainLoop::stop() {
  RKVMutexLock lock(impl_->mu);
  if (impl_->running) {
    impl_->stopping.store(true);
    impl_->io.stop();
  } else {
    impl_->stopPending = true;
  }
}

void RKVMainLoop::post(std::function<void()> handler) {
  if (!handler) return;
  {
    RKVMutexLock lock(impl_->mu);
    impl_->ready.push_back(Impl::Handler{impl_->nextPostSeq++, std::move(handler)});
  }
  impl_->queueKick();
}

bool RKVMainLoop::isMainThread() const {
  return impl_->mainThread.load() == std::this_thread::get_id();
}

const std::shared_ptr<RKVClock>& RKVMainLoop::clock() const {
  return impl_->clock;
}

RKVMainLoop::TimerHandle RKVMainLoop::scheduleAfter(RKVClock::duration delay,
                                                    std::function<void()> callback) {
  const RKVClock::duration wait = std::max(delay, RKVClock::duration::zero());
  const RKVClock::time_point deadline =
      RKVClock::addSaturating(impl_->clock->now(), wait).value_or(RKVClock::time_point::max());
  return scheduleAt(deadline, std::move(callback));
}

RKVMainLoop::TimerHandle RKVMainLoop::scheduleAt(RKVClock::time_point deadline,
                                                 std::function<void()> callback) {
  if (!callback) return TimerHandle();
  auto state = std::make_shared<internal::RKVTimerState>(deadline, std::move(callback));
  bool first = false;
  {
    RKVMutexLock lock(impl_->mu);
    impl_->compactIfNeeded();
    impl_->heap.push_back(Impl::Entry{deadline, impl_->nextTimerSeq++, state});
    std::push_heap(impl_->heap.begin(), impl_->heap.end(), Impl::later);
    first = impl_->heap.front().timer == state;
  }
  // A new earliest deadline may be due already, or need a shorter wait than the one armed.
  if (first) impl_->queueKick();
  return TimerHandle(std::move(state));
}

// --- internal access -----------------------------------------------------------------------

asio::io_context& RKVMainLoopAccess::ioContext(RKVMainLoop& loop) {
  return loop.impl_->io;
}

}  // namespace rkv
