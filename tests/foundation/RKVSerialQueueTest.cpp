#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVSerialQueue.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using test::RKVTestEvent;

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
          if (inFlight.fetch_add(1) != 0) ++overlaps;
          if (taskThread != std::this_thread::get_id()) {
            ++threadChanges;
            taskThread = std::this_thread::get_id();
          }
          if (i != lastSeen[s] + 1) ++outOfOrder;
          lastSeen[s] = i;
          ++ran;
          std::this_thread::yield();
          inFlight.fetch_sub(1);
        };
        // Every third task goes through sync(), which must also keep its place in line.
        if (i % 3 == 0) {
          EXPECT_TRUE(queue.sync(task));
        } else {
          EXPECT_TRUE(queue.async(task));
        }
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
  bool syncAccepted = true;
  bool innerRan = false;
  bool drainAccepted = true;
  bool current = false;
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

TEST(RKVSerialQueueTest, DestructionRunsQueuedTasksThenRefusesNewOnes) {
  auto queue = std::make_unique<RKVSerialQueue>();
  RKVTestEvent gate;
  std::atomic<int> ran{0};
  ASSERT_TRUE(queue->async([&] {
    (void)gate.wait();
    ++ran;
  }));
  for (int i = 0; i < 50; ++i)
    ASSERT_TRUE(queue->async([&] { ++ran; }));
  std::thread opener([&] { gate.set(); });
  queue->shutdown();
  EXPECT_EQ(ran.load(), 51) << "shutdown() returns once every queued task has run";
  EXPECT_FALSE(queue->async([&] { ++ran; }));
  EXPECT_FALSE(queue->sync([&] { ++ran; }));
  EXPECT_FALSE(queue->drain());
  queue.reset();
  opener.join();
  EXPECT_EQ(ran.load(), 51);
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
  EXPECT_TRUE(test::eventually([&] { return watch.expired(); }));
}

}  // namespace
}  // namespace rkv
