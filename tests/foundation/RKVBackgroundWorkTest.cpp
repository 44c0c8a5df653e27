// The background executor, serial queues, futures and the notification center.
#include <atomic>
#include <barrier>
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
}

TEST(RKVBackgroundExecutorTest, AtTheCapTasksWaitInPriorityThenSubmissionOrder) {
  RKVBackgroundExecutor executor(pool(1));
  auto gate = occupy(executor);
  Names order;  // written by the pool's single thread only
  for (const auto& [name, priority] : {std::pair{"b1", RKVTaskPriority::kBackground},
                                       {"d1", RKVTaskPriority::kDefault},
                                       {"b2", RKVTaskPriority::kBackground},
                                       {"d2", RKVTaskPriority::kDefault}})
    ASSERT_TRUE(executor.submit([&order, name = name] { order.push_back(name); }, priority));
  gate->set();
  RKVTestEvent last;
  ASSERT_TRUE(executor.submit([&] { last.set(); }, RKVTaskPriority::kBackground));
  ASSERT_TRUE(last.wait());
  EXPECT_EQ(order, (Names{"d1", "d2", "b1", "b2"}));
}

TEST(RKVBackgroundExecutorTest, ShutdownWaitsForRunningTasksAndDropsQueuedOnes) {
  RKVBackgroundExecutor executor(pool(1));
  RKVTestEvent running, gate;
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

  // Shut down from one of its own tasks: it joins the other threads, not its own.
  auto owned = std::make_unique<RKVBackgroundExecutor>(pool(64));
  auto other = occupy(*owned);
  RKVTestEvent shutDown;
  ASSERT_TRUE(owned->submit([&] {
    other->set();
    owned->shutdown();
    shutDown.set();
  }));
  ASSERT_TRUE(shutDown.wait());
  owned.reset();  // waits for the thread that ran shutdown() to end
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
  std::vector<std::thread> submitters;
  for (int s = 0; s < kSubmitters; ++s) {
    submitters.emplace_back([&, s] {
      for (int i = 0; i < kTasksEach; ++i) {
        auto task = [&, s, i] {
          overlaps += inFlight.fetch_add(1) != 0;
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

TEST(RKVSerialQueueTest, ShutdownOrDestructionByItsOwnTaskRunsWhatWasQueued) {
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
  EXPECT_EQ(ran.load(), 51);
  EXPECT_FALSE(queue.async([&] { ++ran; }));
  EXPECT_FALSE(queue.sync([&] { ++ran; }));
  opener.join();

  // The last owner of a queue is a task on it: the queue's thread cannot join itself and must
  // finish the remaining tasks on its own.
  auto owned = std::make_shared<RKVSerialQueue>();
  RKVTestEvent later;
  std::weak_ptr<RKVSerialQueue> watch = owned;
  RKVTestEvent ownerGate;
  ASSERT_TRUE(owned->async([owner = owned, &ownerGate] { (void)ownerGate.wait(); }));
  ASSERT_TRUE(owned->async([&later] { later.set(); }));
  owned.reset();
  ownerGate.set();
  EXPECT_TRUE(later.wait());
  EXPECT_TRUE(eventually([&] { return watch.expired(); }));
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
  for (const auto& future : {
           RKVFuture<int>([]() -> std::optional<int> { return std::nullopt; }),
           RKVFuture<int>([]() -> int { throw std::runtime_error("task failed"); }),
           RKVFuture<int>([] { return 1; }, stopped),
       }) {
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

TEST(RKVNotificationCenterTest, DeliveryOnThePostingThreadWhileObserversChange) {
  RKVNotificationCenter center;
  Names calls;
  std::thread::id callThread;
  RKVNotificationCenter::Token second;
  RKVNotificationCenter::Token self;
  center.addObserver("", [&](const RKVNotification& n) {
    calls.push_back("any:" + n.name + std::to_string(std::any_cast<int>(n.userInfo.at("s"))));
    callThread = std::this_thread::get_id();
  });
  center.addObserver("n", [&](const RKVNotification&) {
    calls.push_back("first");
    center.removeObserver(second);  // not yet called for this notification
    center.addObserver("n", [&](const RKVNotification&) { calls.push_back("added"); });
  });
  second = center.addObserver("n", [&](const RKVNotification&) { calls.push_back("second"); });
  self = center.addObserver("n", [&](const RKVNotification&) {
    center.removeObserver(self);
    calls.push_back("self");  // its own call goes on, captures intact
  });
  center.addObserver("other", [&](const RKVNotification&) { calls.push_back("other"); });
  EXPECT_FALSE(center.addObserver("n", nullptr));
  std::thread poster([&] { center.post("n", {{"s", 2}}); });
  poster.join();
  EXPECT_EQ(calls, (Names{"any:n2", "first", "self"}));
  EXPECT_NE(callThread, std::this_thread::get_id());
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
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i) {
    posters.emplace_back([&center, &stop] {
      while (!stop)
        center.post("tick");
    });
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
  for (auto& poster : posters)
    poster.join();
  EXPECT_EQ(lateCalls.load(), 0);
}

}  // namespace
}  // namespace rkv
