// The background executor, serial queues, futures and the notification center.
#include <atomic>
#include <barrier>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/foundation/RKVFuture.h"
#include "rkv/foundation/RKVNotificationCenter.h"
#include "rkv/foundation/RKVSerialQueue.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::RKVTestEvent;
using Names = std::vector<std::string>;

RKVBackgroundExecutorOptions pool(size_t maxThreads, std::chrono::milliseconds idle = 30s) {
  RKVBackgroundExecutorOptions options;
  options.minThreads = 2;
  options.maxThreads = maxThreads;
  options.idleTimeout = idle;
  return options;
}

// Submits a task to `executor` that blocks until the returned gate opens, and waits for it to run.
std::shared_ptr<RKVTestEvent> occupy(RKVBackgroundExecutor& executor) {
  auto gate = std::make_shared<RKVTestEvent>();
  RKVTestEvent running;
  EXPECT_TRUE(executor.submit([gate, &running] {
    running.set();
    (void)gate->wait();
  }));
  EXPECT_TRUE(running.wait());
  return gate;
}

TEST(RKVBackgroundExecutorTest, TasksThatWaitForEachOtherGrowThePoolThenIdleThreadsRetire) {
  // With only the two minimum threads these five would deadlock: all must run at once.
  RKVBackgroundExecutor executor(pool(64, 5ms));
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
  RKVTestEvent ran;  // the two that stay still take work
  ASSERT_TRUE(executor.submit([&] { ran.set(); }));
  EXPECT_TRUE(ran.wait());
}

TEST(RKVBackgroundExecutorTest, AtTheCapTasksWaitInPriorityThenSubmissionOrder) {
  RKVBackgroundExecutor executor(pool(1));
  auto gate = occupy(executor);
  Names order;  // written by the pool's single thread only
  const std::pair<const char*, RKVTaskPriority> tasks[] = {{"b1", RKVTaskPriority::kBackground},
                                                           {"d1", RKVTaskPriority::kDefault},
                                                           {"b2", RKVTaskPriority::kBackground},
                                                           {"d2", RKVTaskPriority::kDefault}};
  for (const auto& [name, priority] : tasks)
    ASSERT_TRUE(executor.submit([&order, name = name] { order.push_back(name); }, priority));
  EXPECT_EQ(executor.pendingCount(), 4u);
  gate->set();
  RKVTestEvent last;
  ASSERT_TRUE(executor.submit([&] { last.set(); }, RKVTaskPriority::kBackground));
  ASSERT_TRUE(last.wait());
  EXPECT_EQ(order, (Names{"d1", "d2", "b1", "b2"}));
  EXPECT_EQ(executor.threadCount(), 1u);
}

TEST(RKVBackgroundExecutorTest, ShutdownWaitsForRunningTasksAndDropsQueuedOnes) {
  RKVBackgroundExecutor executor(pool(1));
  RKVTestEvent running;
  RKVTestEvent gate;
  std::atomic<bool> runningFinished{false};
  ASSERT_TRUE(executor.submit([&] {
    running.set();
    (void)gate.wait();
    runningFinished = true;
  }));
  ASSERT_TRUE(running.wait());
  auto queuedState = std::make_shared<int>(0);
  std::weak_ptr<int> watch = queuedState;
  std::atomic<bool> queuedRan{false};
  ASSERT_TRUE(executor.submit([&queuedRan, queuedState] { queuedRan = true; }));
  queuedState.reset();
  std::thread opener([&] {
    // Opened once the queued task is gone, i.e. once shutdown() is under way.
    ASSERT_TRUE(eventually([&] { return watch.expired(); }));
    gate.set();
  });
  executor.shutdown();
  opener.join();
  EXPECT_TRUE(runningFinished) << "shutdown() returned before the running task did";
  EXPECT_FALSE(queuedRan);
  EXPECT_EQ(executor.threadCount(), 0u);
  EXPECT_FALSE(executor.submit([] {}));
}

TEST(RKVBackgroundExecutorTest, ShutdownFromOneOfItsOwnTasks) {
  auto executor = std::make_unique<RKVBackgroundExecutor>(pool(64));
  auto gate = occupy(*executor);
  RKVTestEvent shutDown;
  ASSERT_TRUE(executor->submit([&] {
    gate->set();
    executor->shutdown();  // joins the other thread, not its own
    shutDown.set();
  }));
  ASSERT_TRUE(shutDown.wait());
  EXPECT_FALSE(executor->submit([] {}));
  executor.reset();  // waits for the thread that ran shutdown() to end
}

TEST(RKVSerialQueueTest, TasksFromManyThreadsNeverOverlapAndKeepEachSubmittersOrder) {
  RKVSerialQueue queue("test.serial");
  constexpr int kSubmitters = 6;
  constexpr int kTasksEach = 400;
  std::atomic<int> inFlight{0};
  std::atomic<int> overlaps{0};
  // Plain data, written by the tasks only: the queue's ordering is what makes this race-free.
  std::vector<int> lastSeen(kSubmitters, -1);
  int outOfOrder = 0;
  int ran = 0;
  std::thread::id taskThread;
  int threadChanges = 0;
  std::vector<std::thread> submitters;
  for (int s = 0; s < kSubmitters; ++s) {
    submitters.emplace_back([&, s] {
      for (int i = 0; i < kTasksEach; ++i) {
        auto task = [&, s, i] {
          overlaps += inFlight.fetch_add(1) != 0;
          if (taskThread != std::this_thread::get_id()) {
            ++threadChanges;
            taskThread = std::this_thread::get_id();
          }
          outOfOrder += i != lastSeen[s] + 1;
          lastSeen[s] = i;
          ++ran;
          std::this_thread::yield();
          inFlight.fetch_sub(1);
        };
        // Every third task goes through sync(), which must also keep its place in line.
        EXPECT_TRUE(i % 3 == 0 ? queue.sync(task) : queue.async(task));
      }
    });
  }
  for (auto& submitter : submitters)
    submitter.join();
  ASSERT_TRUE(queue.drain());
  EXPECT_EQ(ran, kSubmitters * kTasksEach);
  EXPECT_EQ(overlaps.load(), 0);
  EXPECT_EQ(outOfOrder, 0);
  EXPECT_EQ(threadChanges, 1) << "all tasks run on the queue's one thread";
  EXPECT_NE(taskThread, std::this_thread::get_id());
}

TEST(RKVSerialQueueTest, WaitingForItselfIsRefusedInsteadOfDeadlocking) {
  RKVSerialQueue queue;
  bool current = false, syncAccepted = true, innerRan = false, drainAccepted = true;
  RKVTestEvent done;
  ASSERT_TRUE(queue.async([&] {
    current = queue.isCurrent();
    syncAccepted = queue.sync([&] { innerRan = true; });
    drainAccepted = queue.drain();
    done.set();
  }));
  ASSERT_TRUE(done.wait()) << "a task waiting for its own queue deadlocked";
  ASSERT_TRUE(queue.drain());
  EXPECT_TRUE(current);
  EXPECT_FALSE(queue.isCurrent());
  EXPECT_FALSE(syncAccepted);
  EXPECT_FALSE(innerRan) << "a refused task must not run later either";
  EXPECT_FALSE(drainAccepted);
}

TEST(RKVSerialQueueTest, ShutdownRunsQueuedTasksThenRefusesNewOnes) {
  RKVSerialQueue queue;
  RKVTestEvent gate;
  std::atomic<int> ran{0};
  ASSERT_TRUE(queue.async([&] {
    (void)gate.wait();
    ++ran;
  }));
  for (int i = 0; i < 50; ++i)
    ASSERT_TRUE(queue.async([&] { ++ran; }));
  std::thread opener([&] { gate.set(); });
  queue.shutdown();
  EXPECT_EQ(ran.load(), 51) << "shutdown() returns once every queued task has run";
  EXPECT_FALSE(queue.async([&] { ++ran; }));
  EXPECT_FALSE(queue.sync([&] { ++ran; }));
  EXPECT_FALSE(queue.drain());
  opener.join();
}

TEST(RKVSerialQueueTest, DestroyedByItsOwnTaskFinishesTheRest) {
  // The last owner of the queue is a task on it: the queue is destroyed on its own thread, which
  // cannot join itself and must finish the remaining tasks on its own.
  auto queue = std::make_shared<RKVSerialQueue>();
  RKVTestEvent gate;
  RKVTestEvent later;
  std::weak_ptr<RKVSerialQueue> watch = queue;
  ASSERT_TRUE(queue->async([owner = queue, &gate] { (void)gate.wait(); }));
  ASSERT_TRUE(queue->async([&later] { later.set(); }));
  queue.reset();
  gate.set();
  EXPECT_TRUE(later.wait());
  EXPECT_TRUE(eventually([&] { return watch.expired(); }));
}

TEST(RKVFutureTest, TimeOutsThenTheValue) {
  const RKVError timeout("RKVFutureError", 1000);
  auto gate = std::make_shared<RKVTestEvent>();
  RKVFuture<std::string> future([gate] {
    (void)gate->wait();
    return std::string("late");
  });
  EXPECT_FALSE(future.isDone());
  std::optional<RKVError> error;
  EXPECT_EQ(future.getWithTimeout(0.02, &error), std::nullopt);
  EXPECT_EQ(error, timeout);
  EXPECT_FALSE(error->hasUserInfo());
  EXPECT_EQ(future.getWithDeadline(std::chrono::steady_clock::now() - 1s, nullptr), std::nullopt);
  gate->set();
  EXPECT_EQ(future.get(), "late");
  std::optional<RKVError> untouched;
  EXPECT_EQ(future.getWithTimeout(0, &untouched), "late");
  EXPECT_FALSE(untouched);

  // Seconds too many for a deadline wait without limit (the conversion has its own test).
  auto opened = std::make_shared<RKVTestEvent>();
  RKVFuture<int> waited([opened] {
    (void)opened->wait();
    return 7;
  });
  std::thread opener([opened] {
    std::this_thread::sleep_for(20ms);  // opening earlier only makes the case weaker
    opened->set();
  });
  EXPECT_EQ(waited.getWithTimeout(std::numeric_limits<double>::infinity(), &error), 7);
  opener.join();
}

TEST(RKVFutureTest, NoResultWithoutATimeOut) {
  // A task that answers nothing, one that throws and one that never gets to run all end the
  // future with no result and no error.
  RKVBackgroundExecutor stopped;
  stopped.shutdown();
  std::vector<RKVFuture<int>> futures = {
      RKVFuture<int>([]() -> std::optional<int> { return std::nullopt; }),
      RKVFuture<int>([]() -> int { throw std::runtime_error("task failed"); }),
      RKVFuture<int>([] { return 1; }, stopped),
  };
  for (const auto& future : futures) {
    std::optional<RKVError> error;
    EXPECT_EQ(future.getWithTimeout(30, &error), std::nullopt);
    EXPECT_FALSE(error);
  }

  // A waiter of a task that a shutdown drops unrun is woken.
  RKVBackgroundExecutor executor(pool(1));
  auto gate = occupy(executor);
  RKVFuture<int> queued([] { return 1; }, executor);  // waits behind the blocked task
  std::optional<int> seen = 0;
  std::thread waiter([&] { seen = queued.get(); });
  std::thread closer([&] { executor.shutdown(); });
  waiter.join();  // woken when shutdown() destroys the queued task
  gate->set();
  closer.join();
  EXPECT_EQ(seen, std::nullopt);
}

TEST(RKVFutureTest, ManyWaitersOnManyThreadsShareOneResult) {
  auto gate = std::make_shared<RKVTestEvent>();
  auto runs = std::make_shared<std::atomic<int>>(0);
  RKVFuture<std::shared_ptr<const std::string>> future([gate, runs] {
    ++*runs;
    (void)gate->wait();
    return std::make_shared<const std::string>("shared");
  });
  std::vector<std::thread> waiters;
  std::vector<std::shared_ptr<const std::string>> seen(8);
  for (size_t i = 0; i < seen.size(); ++i)
    waiters.emplace_back([&, i, copy = future] { seen[i] = copy.get().value_or(nullptr); });
  gate->set();
  for (auto& waiter : waiters)
    waiter.join();
  EXPECT_EQ(runs->load(), 1);
  ASSERT_NE(seen[0], nullptr);
  for (const auto& value : seen)
    EXPECT_EQ(value, seen[0]) << "the same object, not a copy of it";
}

TEST(RKVNotificationCenterTest, DeliversMatchingNotificationsOnThePostingThreadInOrder) {
  RKVNotificationCenter center;
  Names calls;
  std::thread::id callThread;
  int status = -1;
  for (std::string name : {"change", "other", ""}) {
    center.addObserver(name, [&calls, &callThread, name](const RKVNotification& n) {
      calls.push_back(name + ":" + n.name);
      callThread = std::this_thread::get_id();
    });
  }
  center.addObserver("change", [&](const RKVNotification& n) {
    status = std::any_cast<int>(n.userInfo.at("status"));
  });
  EXPECT_FALSE(center.addObserver("change", nullptr));
  std::thread poster([&] { center.post("change", {{"status", 2}}); });
  poster.join();
  EXPECT_EQ(calls, (Names{"change:change", ":change"}));
  EXPECT_EQ(status, 2);
  EXPECT_NE(callThread, std::this_thread::get_id());
}

TEST(RKVNotificationCenterTest, ObserversChangingDuringDelivery) {
  RKVNotificationCenter center;
  Names calls;
  RKVNotificationCenter::Token second;
  RKVNotificationCenter::Token self;
  auto selfState = std::make_shared<int>(0);
  std::weak_ptr<int> selfWatch = selfState;
  bool selfStateAliveAfterRemoval = false;
  center.addObserver("n", [&](const RKVNotification&) {
    calls.push_back("first");
    center.removeObserver(second);  // not yet called for this notification
    center.addObserver("n", [&](const RKVNotification&) { calls.push_back("added"); });
  });
  second = center.addObserver("n", [&](const RKVNotification&) { calls.push_back("second"); });
  self = center.addObserver("n", [&, selfState](const RKVNotification&) {
    calls.push_back("self");
    center.removeObserver(self);
    selfStateAliveAfterRemoval = !selfWatch.expired();  // its own call goes on
  });
  selfState.reset();
  center.post("n");
  EXPECT_EQ(calls, (Names{"first", "self"}));
  EXPECT_TRUE(selfStateAliveAfterRemoval);
  EXPECT_TRUE(selfWatch.expired()) << "destroyed once its last call returned";
  calls.clear();
  center.post("n");
  EXPECT_EQ(calls, (Names{"first", "added"}));
}

// Once removeObserver() returns, no call of the observer is under way or starts, whichever
// thread posts.
TEST(RKVNotificationCenterTest, NoCallAfterRemovalUnderConcurrentPosts) {
  RKVNotificationCenter center;
  std::atomic<bool> stop{false};
  std::atomic<int> lateCalls{0};
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i) {
    posters.emplace_back([&center, &stop, i] {
      while (!stop)
        center.post("tick", {{"from", i}});
    });
  }
  for (int round = 0; round < 200; ++round) {
    auto removed = std::make_shared<std::atomic<bool>>(false);
    const auto token = center.addObserver("tick", [removed, &lateCalls](const RKVNotification& n) {
      (void)std::any_cast<int>(n.userInfo.at("from"));
      lateCalls += removed->load();
    });
    std::this_thread::yield();
    center.removeObserver(token);
    removed->store(true);
  }
  stop = true;
  for (auto& poster : posters)
    poster.join();
  EXPECT_EQ(lateCalls.load(), 0);
}

}  // namespace
}  // namespace rkv
