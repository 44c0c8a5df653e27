// The main loop and its clocks, the background executor, serial queues, futures, the
// notification center, timers, the main-thread check, and host code that throws on any of them.

#include <atomic>
#include <barrier>
#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/foundation/RKVFuture.h"
#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVMainThread.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/foundation/RKVNotificationCenter.h"
#include "rkv/foundation/RKVSerialQueue.h"
#include "rkv/foundation/RKVTimer.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::RKVLoopThread;
using test::RKVTestEvent;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Names = std::vector<std::string>;

// Something for a callback to own: `watch` expires once every owner has released it.
std::shared_ptr<int> owned(std::weak_ptr<int>& watch) {
  auto value = std::make_shared<int>(0);
  watch = value;
  return value;
}

// Host code that fails: each executor reports it as one error line naming it, and goes on.
void failHost() {
  throw std::runtime_error("host failure");
}
auto hostFailure(const std::string& site) {
  return ElementsAre(AllOf(HasSubstr(site), HasSubstr("host failure")));
}

class RKVMainLoopTest : public ::testing::Test {
 protected:
  std::shared_ptr<RKVManualClock> clock_ = std::make_shared<RKVManualClock>();
  RKVMainLoop loop_{clock_};
};

TEST_F(RKVMainLoopTest, TimersFireInDeadlineOrderOnlyOnceDue) {
  Names fired;
  // Scheduled out of order, with ties (b1/b2, c1/c2) that must keep their scheduling order.
  const std::pair<const char*, std::chrono::milliseconds> timers[] = {
      {"d", 30ms}, {"b1", 10ms}, {"c1", 20ms}, {"b2", 10ms}, {"a", 0ms}, {"c2", 20ms}, {"e", 31ms}};
  for (const auto& [name, delay] : timers)
    loop_.scheduleAfter(delay, [&fired, name = name] { fired.push_back(name); });
  // Advance, then the timers that fire.
  const std::pair<std::chrono::milliseconds, Names> steps[] = {
      {0ms, {"a"}}, {9ms, {}}, {21ms, {"b1", "b2", "c1", "c2", "d"}}, {1ms, {"e"}}, {1h, {}}};
  for (const auto& [advance, expected] : steps) {
    fired.clear();
    clock_->advance(advance);
    EXPECT_EQ(loop_.poll(), expected.size()) << "after +" << advance.count() << "ms";
    EXPECT_EQ(fired, expected) << "after +" << advance.count() << "ms";
  }
}

TEST_F(RKVMainLoopTest, CancelledTimerNeverRunsAndReleasesItsCallback) {
  std::weak_ptr<int> watch;
  bool fired = false;
  auto cancelled = loop_.scheduleAfter(10ms, [&, captured = owned(watch)] { fired = true; });
  // A timer that falls due in the same poll as another one cancels it first.
  RKVMainLoop::TimerHandle victim;
  loop_.scheduleAfter(5ms, [&] { victim.cancel(); });
  victim = loop_.scheduleAfter(6ms, [&] { fired = true; });
  clock_->advance(10ms);  // all three are due now, none has run
  EXPECT_TRUE(cancelled.cancel());
  EXPECT_TRUE(watch.expired()) << "cancel() must release what the callback captured";
  EXPECT_EQ(loop_.poll(), 1u);
  EXPECT_FALSE(fired);
  auto handle = loop_.scheduleAfter(0ms, [&] { fired = true; });
  EXPECT_EQ(loop_.poll(), 1u);
  EXPECT_FALSE(handle.cancel()) << "too late: it has run";
}

TEST_F(RKVMainLoopTest, PollIsBoundedEndlessDelaysNeverFireAndDestructionDropsWork) {
  // A handler that reposts itself and a timer that re-arms itself with no delay would spin an
  // unbounded poll() forever; each poll() runs one round of them.
  test::RKVLogCapture capture;
  int runs = 0;
  std::function<void()> repost = [&] { ++runs, loop_.post(repost); };
  std::function<void()> tick = [&] { ++runs, loop_.scheduleAfter(0ms, tick); };
  loop_.post(failHost);
  loop_.post(repost);
  loop_.scheduleAfter(0ms, failHost);
  loop_.scheduleAfter(0ms, tick);
  EXPECT_EQ(loop_.poll(), 4u);
  EXPECT_EQ(loop_.poll(), 2u);
  EXPECT_EQ(runs, 4);
  EXPECT_THAT(
      capture.errorMessages(),
      ElementsAre(
          AllOf(HasSubstr("A timer callback on the main loop"), HasSubstr("host failure")),
          AllOf(HasSubstr("A handler posted to the main loop"), HasSubstr("host failure"))));
  size_t nested = 1;
  RKVMainLoop other(clock_);
  other.post([&] { nested = other.poll(); });  // re-entry is refused
  other.post([] {});
  EXPECT_EQ(other.poll(), 2u);
  EXPECT_EQ(nested, 0u);

  // A delay whose deadline does not fit must not wrap around into the past.
  std::optional<RKVMainLoop> loop(std::in_place, clock_);
  std::weak_ptr<int> watch;
  loop->scheduleAt(RKVClock::time_point::max(), [captured = owned(watch)] { ADD_FAILURE(); });
  loop->scheduleAfter(RKVClock::duration::max(), [captured = watch.lock()] { ADD_FAILURE(); });
  clock_->advance(24h * 365 * 100);
  EXPECT_EQ(loop->poll(), 0u);
  loop.reset();
  EXPECT_TRUE(watch.expired()) << "a destroyed loop releases what its timers captured";
  clock_->advance(1s);  // the clock no longer knows the loop
}

// Tasks posted from many threads run one at a time, on the executor's own thread, in each poster's
// order. A third of the serial queue's go through sync(), which must keep its place in line too.
TEST(RKVSerialExecutionTest, TasksFromManyThreadsNeverOverlapAndKeepEachPostersOrder) {
  RKVLoopThread loopThread;
  RKVMainLoop& loop = loopThread.loop();
  RKVSerialQueue queue("test.serial");
  struct Executor {
    const char* name;
    std::function<bool(int i, std::function<void()> task)> post;
    std::function<bool()> onItsThread, finish;
  };
  const Executor executors[] = {
      {"main loop", [&](int, auto task) { return loop.post(task), true; },
       [&] { return loop.isMainThread(); }, [&] { return loopThread.runOnLoop([] {}); }},
      {"serial queue",
       [&](int i, auto task) { return i % 3 ? queue.async(task) : queue.sync(task); },
       [&] { return queue.isCurrent(); }, [&] { return queue.drain(); }},
  };
  constexpr int kPosters = 8, kTasksEach = 400;
  for (const Executor& executor : executors) {
    SCOPED_TRACE(executor.name);
    std::atomic<int> inFlight{0}, overlaps{0};
    // Plain data, written by the tasks only: the executor's ordering is what makes this race-free.
    std::vector<int> lastSeen(kPosters, -1);
    int outOfOrder = 0, offThread = 0, ran = 0;
    test::onThreads(kPosters, [&](int p) {
      for (int i = 0; i < kTasksEach; ++i) {
        EXPECT_TRUE(executor.post(i, [&, p, i] {
          overlaps += inFlight.fetch_add(1) != 0;
          offThread += !executor.onItsThread();
          outOfOrder += i != lastSeen[p] + 1;
          lastSeen[p] = i;
          ++ran;
          std::this_thread::yield();
          inFlight.fetch_sub(1);
        }));
      }
    });
    ASSERT_TRUE(executor.finish());
    EXPECT_EQ(ran, kPosters * kTasksEach);
    EXPECT_EQ(overlaps.load() + outOfOrder + offThread, 0)
        << overlaps << " overlapping, " << outOfOrder << " out of order, " << offThread
        << " off the executor's thread";
  }
}

TEST(RKVMainLoopThreads, CancelRacingTheDeadlineFromAnotherThread) {
  // The loop fires while another thread cancels, the cancel landing at varying points of the
  // firing. When cancel() wins the callback never starts; when it loses, cancel() has waited for
  // the callback to end. The serial queue's delayed tasks share this handle and its rule.
  auto clock = std::make_shared<RKVManualClock>();
  RKVLoopThread loopThread(clock);
  constexpr int kRounds = 400;
  // Handed between the threads at the barrier.
  RKVMainLoop::TimerHandle handle;
  int delay = 0;  // how long the canceller spins before cancel()
  bool prevented = false, finishedAtCancel = false;
  std::atomic<bool> started{false}, finished{false};
  std::barrier meet(2);
  std::atomic<int> busy{0};
  std::thread canceller([&] {
    for (int round = 0; round < kRounds; ++round) {
      meet.arrive_and_wait();
      for (int spin = 0; spin < delay; ++spin)
        busy.fetch_add(1, std::memory_order_relaxed);
      prevented = handle.cancel();
      finishedAtCancel = finished.load();
      meet.arrive_and_wait();
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    started = finished = false;
    handle = loopThread.loop().scheduleAfter(1ms, [&] {
      started = true;
      for (int i = 0; i < 20; ++i)
        std::this_thread::yield();
      finished = true;
    });
    meet.arrive_and_wait();
    clock->advance(1ms);
    meet.arrive_and_wait();
    ASSERT_TRUE(loopThread.runOnLoop([] {}));  // whatever was due has had its chance
    EXPECT_TRUE(prevented ? !started : finishedAtCancel)
        << "round " << round << (prevented ? " started" : " still running");
    // The delay follows the outcome, so that the cancel keeps landing near the firing.
    delay = prevented ? delay * 2 + 16 : delay / 2;
  }
  canceller.join();
}

TEST(RKVClockTest, SecondsToDurationAndTheManualClock) {
  // 9.3e9 s are the first whole seconds past what 64 bits of nanoseconds hold.
  // clang-format off
  const std::pair<double, std::optional<RKVClock::duration>> cases[] = {
      {1.5, 1500ms}, {1e-9, 1ns}, {-3, 0ns}, {std::nan(""), 0ns},
      {9.2e9, std::chrono::seconds(9200000000)}, {9.3e9, std::nullopt},
      {std::numeric_limits<double>::infinity(), std::nullopt}};
  // clang-format on
  for (const auto& [seconds, expected] : cases)
    EXPECT_EQ(RKVClock::durationFromSeconds(seconds), expected) << seconds;
  EXPECT_EQ(RKVClock::addSaturating(RKVClock::time_point(1h), RKVClock::duration::max()),
            std::nullopt);

  RKVManualClock clock;
  const auto start = clock.now();
  int moves = 0;
  clock.addObserver([&] { ++moves; });
  clock.advance(1500ms);
  clock.advance(-1s);
  clock.advanceTo(start);
  EXPECT_EQ(clock.now() - start, 1500ms) << "monotonic time never goes back";
  EXPECT_EQ(moves, 1) << "only real moves are reported";
}

TEST(RKVBackgroundExecutorTest, TasksThatWaitForEachOtherGrowThePoolThenIdleThreadsRetire) {
  // With only the two minimum threads these five would deadlock: all must run at once.
  RKVBackgroundExecutor executor({.idleTimeout = 5ms});
  auto meeting = std::make_shared<std::barrier<>>(5);
  std::atomic<int> met{0};
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(executor.submit([meeting, &met] {
      meeting->arrive_and_wait();
      ++met;
    }));
  }
  EXPECT_TRUE(eventually([&] { return met == 5; })) << "the pool did not grow";
  EXPECT_TRUE(eventually([&] { return executor.threadCount() == 2; }));
}

TEST(RKVBackgroundExecutorTest, AtTheCapTasksWaitDefaultPriorityFirst) {
  using P = RKVTaskPriority;
  test::RKVLogCapture capture;
  RKVTestEvent running, gate, last;
  RKVBackgroundExecutor executor({.maxThreads = 1});
  ASSERT_TRUE(executor.submit([&] { running.set(), (void)gate.wait(); }));  // occupies the thread
  ASSERT_TRUE(running.wait());
  ASSERT_TRUE(executor.submit(failHost));  // the pool's one thread survives it
  Names order;                             // written by the pool's single thread only
  for (const char* name : {"b1", "d1", "b2", "d2"}) {
    const P priority = name[0] == 'b' ? P::kBackground : P::kDefault;
    ASSERT_TRUE(executor.submit([&order, name] { order.push_back(name); }, priority));
  }
  ASSERT_TRUE(executor.submit([&] { last.set(); }, P::kBackground));
  gate.set();
  ASSERT_TRUE(last.wait());
  EXPECT_EQ(order, (Names{"d1", "d2", "b1", "b2"}));
  EXPECT_THAT(capture.errorMessages(), hostFailure("A task on the background executor"));
}

TEST(RKVBackgroundExecutorTest, ShutdownWaitsForRunningTasksAndDropsQueuedOnes) {
  RKVBackgroundExecutor executor({.maxThreads = 1});
  RKVTestEvent running, gate;
  std::atomic<bool> runningFinished{false};
  ASSERT_TRUE(executor.submit([&] {
    running.set();
    (void)gate.wait();
    // Still busy for a while after the gate opens, so that a shutdown() that does not wait
    // returns before the task ends.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    runningFinished = true;
  }));
  ASSERT_TRUE(running.wait());
  std::weak_ptr<int> watch;
  std::atomic<bool> queuedRan{false};
  ASSERT_TRUE(executor.submit([&queuedRan, captured = owned(watch)] { queuedRan = true; }));
  RKVFuture<int> dropped([] { return 1; }, executor);  // its waiter is woken, with no result
  std::optional<int> seen = 0;
  std::atomic<bool> woken{false};
  std::thread waiter([&] { seen = dropped.get(), woken = true; });
  std::thread opener([&] {
    // Opened once the queued tasks are gone, i.e. once shutdown() is under way.
    ASSERT_TRUE(eventually([&] { return watch.expired() && woken; }));
    gate.set();
  });
  executor.shutdown();
  const bool finishedWhenShutdownReturned = runningFinished;
  opener.join();
  waiter.join();
  EXPECT_EQ(seen, std::nullopt);
  EXPECT_TRUE(finishedWhenShutdownReturned) << "shutdown() returned before the running task did";
  EXPECT_FALSE(queuedRan);
  EXPECT_EQ(executor.threadCount(), 0u);
  EXPECT_FALSE(executor.submit([] {}));
}

TEST(RKVSerialQueueTest, WaitingForItselfIsRefusedInsteadOfDeadlocking) {
  RKVSerialQueue queue;
  bool syncAccepted = true, innerRan = false, drainAccepted = true;
  RKVTestEvent done;
  ASSERT_TRUE(queue.async([&] {
    syncAccepted = queue.sync([&] { innerRan = true; });
    drainAccepted = queue.drain();
    done.set();
  }));
  ASSERT_TRUE(done.wait()) << "a task waiting for its own queue deadlocked";
  ASSERT_TRUE(queue.drain());
  EXPECT_FALSE(syncAccepted);
  EXPECT_FALSE(innerRan) << "a refused task must not run later either";
  EXPECT_FALSE(drainAccepted);
}

TEST(RKVSerialQueueTest, DestroyedByItsOwnTaskItFinishesTheRest) {
  // The last owner of the queue is a task on it: the queue's thread cannot join itself and must
  // finish the remaining tasks on its own.
  test::RKVLogCapture capture;
  auto queue = std::make_shared<RKVSerialQueue>("test.owned");
  RKVTestEvent gate, later;
  std::weak_ptr<RKVSerialQueue> watch = queue;
  ASSERT_TRUE(queue->async([owner = queue, &gate] { (void)gate.wait(); }));
  ASSERT_TRUE(queue->async(failHost));
  ASSERT_TRUE(queue->async([&later] { later.set(); }));
  queue.reset();
  gate.set();
  EXPECT_TRUE(later.wait());
  EXPECT_TRUE(eventually([&] { return watch.expired(); }));
  EXPECT_THAT(capture.errorMessages(), hostFailure("A task on the serial queue test.owned"));
}

class RKVSerialQueueDelayTest : public ::testing::Test {
 protected:
  // Moves the clock by `delta` and waits until what fell due has run: a marker due at the new
  // time, scheduled last, joins the queue after every other task due by then.
  void advanceAndSettle(RKVClock::duration delta) {
    RKVTestEvent settled;
    queue_.asyncAfter(delta, [&] { settled.set(); });
    clock_->advance(delta);
    ASSERT_TRUE(settled.wait());
  }

  std::shared_ptr<RKVManualClock> clock_ = std::make_shared<RKVManualClock>();
  RKVSerialQueue queue_{"test.delayed", clock_};
  Names ran_;  // written by the queue's tasks, read by the test after a settle
};

TEST_F(RKVSerialQueueDelayTest, DelayedTasksJoinTheQueueInDeadlineOrderOnceTheClockIsThere) {
  test::RKVLogCapture capture;
  auto record = [this](const char* name) { return [this, name] { ran_.push_back(name); }; };
  // Out of order, with a tie (b1/b2) that keeps its scheduling order.
  queue_.asyncAfter(30ms, record("c"));
  queue_.asyncAfter(10ms, record("b1"));
  queue_.asyncAfter(10ms, failHost);
  queue_.asyncAfter(-5ms, record("a"));  // a negative delay is none
  queue_.asyncAfter(10ms, record("b2"));
  auto cancelled = queue_.asyncAfter(20ms, record("cancelled"));
  queue_.asyncAt(RKVClock::time_point::max(), record("never"));
  ASSERT_TRUE(queue_.sync(record("now")));
  EXPECT_TRUE(cancelled.isPending());
  EXPECT_TRUE(cancelled.cancel());
  EXPECT_FALSE(cancelled.cancel()) << "cancelled before";

  advanceAndSettle(10ms);
  // "a" may run before or after "now": it was due at once but waited for the queue's thread.
  EXPECT_THAT(ran_, ::testing::UnorderedElementsAre("a", "now", "b1", "b2"));
  EXPECT_EQ(Names(ran_.end() - 2, ran_.end()), (Names{"b1", "b2"}));
  advanceAndSettle(24h);
  EXPECT_EQ(ran_.back(), "c");
  EXPECT_EQ(ran_.size(), 5u) << "a cancelled task or an endless delay ran";
  EXPECT_THAT(capture.errorMessages(),
              hostFailure("A delayed task on the serial queue test.delayed"));
}

TEST_F(RKVSerialQueueDelayTest, ShutdownDropsWhatIsNotDueAndTheRealClockIsWaitedFor) {
  std::weak_ptr<int> watch;
  auto pending = queue_.asyncAfter(1h, [this, captured = owned(watch)] { ran_.push_back("late"); });
  ASSERT_TRUE(queue_.async([this] { ran_.push_back("queued"); }));
  queue_.shutdown();
  EXPECT_EQ(ran_, (Names{"queued"}));
  EXPECT_TRUE(watch.expired()) << "a dropped task must release what it captured";
  EXPECT_FALSE(pending.isPending());
  EXPECT_FALSE(pending.cancel());
  EXPECT_FALSE(queue_.asyncAfter(0ms, [] {})) << "refused after shutdown";
  EXPECT_FALSE(queue_.asyncAfter(0ms, nullptr));
  clock_->advance(2h);  // the clock still knows the queue; nothing runs

  // On the real clock the queue's thread sleeps until the deadline.
  RKVSerialQueue real("test.real");
  EXPECT_EQ(real.clock(), RKVClock::system());
  RKVTestEvent ran;
  RKVClock::time_point ranAt;
  const auto scheduled = real.clock()->now();
  auto handle = real.asyncAfter(5ms, [&] {
    ranAt = real.clock()->now();
    ran.set();
  });
  ASSERT_TRUE(ran.wait());
  EXPECT_GE(handle.deadline(), scheduled + 5ms);
  EXPECT_GE(ranAt, handle.deadline()) << "ran before its deadline";
}

TEST(RKVFutureTest, TimeOutsThenTheValue) {
  auto gate = std::make_shared<RKVTestEvent>();
  RKVFuture<std::string> future([gate] {
    (void)gate->wait();
    return std::string("late");
  });
  std::optional<RKVError> error;
  EXPECT_EQ(future.getWithTimeout(0.02, &error), std::nullopt);
  EXPECT_EQ(error, RKVError("RKVFutureError", 1000));
  EXPECT_FALSE(error->hasUserInfo());
  EXPECT_EQ(future.getWithDeadline(std::chrono::steady_clock::now() - 1s, nullptr), std::nullopt);
  // Seconds too many for a deadline wait without limit (the conversion has its own test).
  std::thread opener([gate] {
    std::this_thread::sleep_for(20ms);  // opening earlier only makes the case weaker
    gate->set();
  });
  error.reset();
  EXPECT_EQ(future.getWithTimeout(std::numeric_limits<double>::infinity(), &error), "late");
  opener.join();
  EXPECT_EQ(future.get(), "late");
  EXPECT_EQ(future.getWithTimeout(0, &error), "late");
  EXPECT_FALSE(error) << "an answer in time leaves the error place alone";
}

TEST(RKVFutureTest, NoResultWithoutATimeOut) {
  // A task that answers nothing, one that throws (reported) and one that never gets to run all
  // end the future with no result and no error.
  test::RKVLogCapture capture;
  RKVBackgroundExecutor stopped;
  stopped.shutdown();
  for (const auto& future : {
           RKVFuture<int>([]() -> std::optional<int> { return std::nullopt; }),
           RKVFuture<int>([]() -> int { throw std::runtime_error("task failed"); }),
           RKVFuture<int>([] { return 1; }, stopped),
       }) {
    std::optional<RKVError> error;
    EXPECT_EQ(future.getWithTimeout(30, &error), std::nullopt);
    EXPECT_FALSE(error);
  }
  EXPECT_THAT(capture.errorMessages(),
              ElementsAre(AllOf(HasSubstr("RKVFuture"), HasSubstr("task failed"))));
}

// Observers that throw are reported, and the later ones still called.
TEST(RKVNotificationCenterTest, DeliveryOnThePostingThreadWhileObserversChangeOrThrow) {
  test::RKVLogCapture capture;
  RKVNotificationCenter center;
  Names calls;
  std::thread::id callThread;
  RKVNotificationCenter::Token second;
  RKVNotificationCenter::Token self;
  center.addObserver("", [&](const RKVNotification& n) {
    calls.push_back("any:" + n.name + std::to_string(std::any_cast<int>(n.userInfo.at("s"))));
    callThread = std::this_thread::get_id();
  });
  center.addObserver("", [](const RKVNotification&) { throw 42; });  // not a std::exception
  center.addObserver("n", [&](const RKVNotification&) {
    calls.push_back("first");
    center.removeObserver(second);  // not yet called for this notification
    center.addObserver("n", [&](const RKVNotification&) { calls.push_back("added"); });
  });
  second = center.addObserver("n", [&](const RKVNotification&) { calls.push_back("second"); });
  center.addObserver("n", [](const RKVNotification&) { failHost(); });
  self = center.addObserver("n", [&](const RKVNotification&) {
    center.removeObserver(self);
    calls.push_back("self");  // its own call goes on, captures intact
  });
  center.addObserver("other", [&](const RKVNotification&) { calls.push_back("other"); });
  std::thread poster([&] { center.post("n", {{"s", 2}}); });
  poster.join();
  EXPECT_EQ(calls, (Names{"any:n2", "first", "self"}));
  EXPECT_NE(callThread, std::this_thread::get_id());
  EXPECT_THAT(capture.errorMessages(),
              ElementsAre(AllOf(HasSubstr("every notification"), HasSubstr("unknown exception")),
                          AllOf(HasSubstr("\"n\""), HasSubstr("host failure"))));
  calls.clear();
  center.post("n", {{"s", 3}});
  EXPECT_EQ(calls, (Names{"any:n3", "first", "added"}));
}

// Once removeObserver() returns, no call of the observer is under way or starts, whichever
// thread posts.
TEST(RKVNotificationCenterTest, NoCallAfterRemovalUnderConcurrentPosts) {
  RKVNotificationCenter center;
  std::atomic<bool> stop{false};
  std::atomic<int> lateCalls{0};
  // Thread 0 adds and removes an observer, the others post.
  test::onThreads(5, [&](int t) {
    if (t > 0) {
      while (!stop)
        center.post("tick");
      return;
    }
    for (int round = 0; round < 200; ++round) {
      auto removed = std::make_shared<std::atomic<bool>>(false);
      const auto token = center.addObserver(
          "tick", [removed, &lateCalls](const RKVNotification&) { lateCalls += removed->load(); });
      std::this_thread::yield();
      center.removeObserver(token);
      removed->store(true);
    }
    stop = true;
  });
  EXPECT_EQ(lateCalls.load(), 0);
}

class RKVMainThreadTest : public ::testing::Test {
 protected:
  void SetUp() override { setMainThreadViolationsAbort(false); }
  void TearDown() override { setMainThreadViolationsAbort(aborted_); }
  const bool aborted_ = mainThreadViolationsAbort();
};

TEST_F(RKVMainThreadTest, OffTheMainThreadIsDetectedAndLogged) {
  test::RKVLogCapture capture;
  RKVMainLoop idle;
  EXPECT_FALSE(isMainThread(idle)) << "before a loop is driven no thread is its main thread";
  test::RKVLoopThread loopThread;
  RKVMainLoop& loop = loopThread.loop();
  std::pair<bool, bool> onLoop;  // isMainThread, RKV_ASSERT_MAIN_THREAD
  ASSERT_TRUE(loopThread.runOnLoop([&] {
    onLoop = {isMainThread(loop), RKV_ASSERT_MAIN_THREAD(loop, "onLoop")};
  }));
  EXPECT_EQ(onLoop, std::pair(true, true));
  EXPECT_TRUE(capture.errorMessages().empty());

  EXPECT_FALSE(isMainThread(loop));
  EXPECT_FALSE(RKV_ASSERT_MAIN_THREAD(loop, "RKVSample::start"));
  EXPECT_FALSE(RKV_ASSERT_MAIN_THREAD(idle, "RKVSample::stop"));
  EXPECT_THAT(capture.errorMessages(),
              ElementsAre(HasSubstr("RKVSample::start must be called on the main thread"),
                          HasSubstr("RKVSample::stop must be called on the main thread")));
}

// Counts firings and runs an optional action on each.
struct CountingDelegate : RKVTimerDelegate {
  void timerFired(RKVTimer& timer) override {
    ++fired;
    if (action) action(timer);
  }
  int fired = 0;
  std::function<void(RKVTimer&)> action;
};

class RKVTimerTest : public ::testing::Test {
 protected:
  std::unique_ptr<RKVTimer> makeTimer(RKVTimerInterval interval) {
    auto timer = std::make_unique<RKVTimer>(interval, delegate_, loop_);
    timer->setStopHandler([this](RKVTimer&) { ++stops_; });
    return timer;
  }
  // Moves the clock and runs what fell due.
  void tick(RKVClock::duration by = 1s) {
    clock_->advance(by);
    loop_->poll();
  }

  std::shared_ptr<RKVManualClock> clock_ = std::make_shared<RKVManualClock>();
  std::shared_ptr<RKVMainLoop> loop_ = std::make_shared<RKVMainLoop>(clock_);
  std::shared_ptr<CountingDelegate> delegate_ = std::make_shared<CountingDelegate>();
  int stops_ = 0;
};

TEST_F(RKVTimerTest, EachKindFiresItsNumberOfTimesOnePeriodApart) {
  // The kind, and its firings in all over 10 periods (10 for a timer that never finishes).
  const std::tuple<const char*, RKVTimerInterval, int> cases[] = {
      {"non-repeating", RKVTimerInterval::nonRepeatingWithTime(1.0), 1},
      {"finite 3", RKVTimerInterval::finiteRepetitionsWithTime(1.0, 3), 3},
      {"finite 0", RKVTimerInterval::finiteRepetitionsWithTime(1.0, 0), 1},
      {"infinite", RKVTimerInterval::infiniteRepetitionsWithTime(1.0), 10},
      {"unknown kind", RKVTimerInterval(7, 1.0, 5), 1},
  };
  for (const auto& [name, interval, firings] : cases) {
    SCOPED_TRACE(name);
    delegate_->fired = 0;
    auto timer = makeTimer(interval);
    timer->start();
    for (int period = 1; period <= 10; ++period) {
      tick(999ms);  // not yet due
      EXPECT_EQ(delegate_->fired, std::min(period - 1, firings));
      tick(1ms);
      EXPECT_EQ(delegate_->fired, std::min(period, firings));
      // While running, the next firing is armed as soon as one fires.
      const int armed = delegate_->fired + (timer->status() == RKVTimerStatusRunning ? 1 : 0);
      EXPECT_EQ(timer->timerCount(), static_cast<uint32_t>(armed));
    }
    const bool endless = interval.type() == RKVTimerIntervalTypeInfiniteRepetitions;
    EXPECT_EQ(timer->status(), endless ? RKVTimerStatusRunning : RKVTimerStatusFinished);
    EXPECT_EQ(timer->timerCanBeStarted(), !endless);
    timer->stop();
  }
  EXPECT_EQ(stops_, 5);
}

TEST_F(RKVTimerTest, StatusRulesForStartAndStopFromOutsideOrFromTheDelegate) {
  auto timer = makeTimer(RKVTimerInterval::finiteRepetitionsWithTime(1.0, 2));
  // Stopping a timer that never ran still stops it and calls the handler.
  timer->stop();
  EXPECT_EQ(timer->status(), RKVTimerStatusStopped);
  EXPECT_EQ(stops_, 1);

  // A second start while running arms nothing more.
  timer->start();
  timer->start();
  EXPECT_EQ(timer->timerCount(), 1u);
  tick();
  EXPECT_EQ(delegate_->fired, 1);

  // Stopped midway: nothing fires, the target is gone, and a new start counts from zero.
  timer->stop();
  EXPECT_EQ(timer->timerTarget(), nullptr);
  EXPECT_FALSE(timer->timer());
  tick(5s);
  EXPECT_EQ(delegate_->fired, 1);
  timer->start();
  EXPECT_EQ(timer->timerCount(), 1u);
  tick(), tick();
  EXPECT_EQ(delegate_->fired, 3);
  EXPECT_EQ(timer->status(), RKVTimerStatusFinished);

  // A finished timer runs the whole sequence again.
  timer->start();
  tick(), tick(), tick();
  EXPECT_EQ(delegate_->fired, 5);
  EXPECT_EQ(timer->status(), RKVTimerStatusFinished);
  EXPECT_EQ(stops_, 2);

  // Restarted by its delegate: one loop timer at a time, and a finite timer's count restarts. A
  // cancel from inside the firing must not wait for itself. (Dropped by its own delegate:
  // RKVViewabilityManagerTest drops the manager owning the timer from its delegate, under ASan.)
  delegate_->action = [](RKVTimer& t) { t.stop(), t.start(); };
  timer->start();
  for (int i = 0; i < 4; ++i)
    tick();
  EXPECT_EQ(delegate_->fired, 9);
  EXPECT_EQ(timer->status(), RKVTimerStatusRunning);
  EXPECT_EQ(timer->timerCount(), 1u);

  // Stopped by its delegate: stays stopped, not finished.
  delegate_->action = [](RKVTimer& t) { t.stop(); };
  tick(), tick();
  EXPECT_EQ(delegate_->fired, 10);
  EXPECT_EQ(timer->status(), RKVTimerStatusStopped);
}

TEST_F(RKVTimerTest, DroppedByItsOwnerWhileRunningItWarnsStopsAndNeverFiresAgain) {
  test::RKVLogCapture capture;
  auto timer = makeTimer(RKVTimerInterval::infiniteRepetitionsWithTime(1.0));
  const uint32_t ID = timer->ID();
  timer->start();
  tick();
  std::shared_ptr<RKVTimerTarget> target = timer->timerTarget();  // outlives the timer
  timer.reset();
  EXPECT_THAT(capture.debugMessages(),
              ElementsAre("Warning: RKVTimer instance " + std::to_string(ID) +
                          "ld is being deallocated while running!"));
  EXPECT_EQ(stops_, 1);
  EXPECT_TRUE(target->invalidated());
  tick(5s);
  EXPECT_EQ(delegate_->fired, 1);
}

TEST_F(RKVTimerTest, AbsentSilentOrThrowingDelegatesDoNotStopTheRepetition) {
  test::RKVLogCapture capture;
  auto thrower = std::make_shared<CountingDelegate>();
  thrower->action = [](RKVTimer&) { throw std::runtime_error("delegate failure"); };
  // None, one that does not answer timerFired, one that throws.
  for (std::shared_ptr<RKVTimerDelegate> delegate :
       {std::shared_ptr<RKVTimerDelegate>(), std::make_shared<RKVTimerDelegate>(),
        std::shared_ptr<RKVTimerDelegate>(thrower)}) {
    RKVTimer timer(RKVTimerInterval::finiteRepetitionsWithTime(0.5, 2), delegate, loop_);
    timer.start();
    tick(500ms), tick(500ms);
    EXPECT_EQ(timer.status(), RKVTimerStatusFinished);
  }
  EXPECT_EQ(thrower->fired, 2);
  EXPECT_THAT(capture.errorMessages(),
              ElementsAre(HasSubstr("delegate failure"), HasSubstr("delegate failure")));
}

}  // namespace
}  // namespace rkv
