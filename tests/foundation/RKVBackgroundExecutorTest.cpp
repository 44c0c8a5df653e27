#include <array>
#include <atomic>
#include <barrier>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVBackgroundExecutor.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::RKVTestEvent;

RKVBackgroundExecutorOptions smallPool(size_t maxThreads = 64) {
  RKVBackgroundExecutorOptions options;
  options.minThreads = 2;
  options.maxThreads = maxThreads;
  return options;
}

TEST(RKVBackgroundExecutorTest, TasksThatWaitForEachOtherAllComplete) {
  // With two threads and nothing more, each of these shapes deadlocks: the first two tasks block
  // waiting for work that is queued behind them.
  struct Case {
    std::string name;
    // Runs task `i` of 5, given the events each task sets when it is done.
    std::function<void(int, std::array<RKVTestEvent, 5>&)> body;
  };
  auto meeting = std::make_shared<std::barrier<>>(5);
  const std::vector<Case> cases = {
      {"each waits for the next one's result",
       [](int i, std::array<RKVTestEvent, 5>& done) {
         if (i < 4) {
           ASSERT_TRUE(done[i + 1].wait());
         }
       }},
      {"all five meet before any finishes",
       [meeting](int, std::array<RKVTestEvent, 5>&) { meeting->arrive_and_wait(); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RKVBackgroundExecutor executor(smallPool());
    std::array<RKVTestEvent, 5> done;
    for (int i = 0; i < 5; ++i) {
      ASSERT_TRUE(executor.submit([&, i] {
        c.body(i, done);
        done[i].set();
      }));
    }
    for (auto& event : done)
      EXPECT_TRUE(event.wait()) << "the pool did not grow";
  }
}

TEST(RKVBackgroundExecutorTest, AtTheCapTasksWaitInPriorityThenSubmissionOrder) {
  RKVBackgroundExecutor executor(smallPool(1));
  RKVTestEvent blocked;
  RKVTestEvent gate;
  ASSERT_TRUE(executor.submit([&] {
    blocked.set();
    (void)gate.wait();
  }));
  ASSERT_TRUE(blocked.wait());
  std::vector<std::string> order;  // written by the pool's single thread only
  const std::vector<std::pair<std::string, RKVTaskPriority>> tasks = {
      {"b1", RKVTaskPriority::kBackground},
      {"d1", RKVTaskPriority::kDefault},
      {"b2", RKVTaskPriority::kBackground},
      {"d2", RKVTaskPriority::kDefault}};
  for (const auto& [name, priority] : tasks) {
    ASSERT_TRUE(executor.submit([&order, label = name] { order.push_back(label); }, priority));
  }
  EXPECT_EQ(executor.threadCount(), 1u);
  EXPECT_EQ(executor.pendingCount(), 4u);
  gate.set();
  RKVTestEvent last;
  ASSERT_TRUE(executor.submit([&] { last.set(); }, RKVTaskPriority::kBackground));
  ASSERT_TRUE(last.wait());
  EXPECT_EQ(order, (std::vector<std::string>{"d1", "d2", "b1", "b2"}));
  EXPECT_EQ(executor.threadCount(), 1u);
}

TEST(RKVBackgroundExecutorTest, IdleThreadsRetireDownToTheMinimum) {
  RKVBackgroundExecutorOptions options = smallPool();
  options.idleTimeout = 5ms;
  RKVBackgroundExecutor executor(options);
  RKVTestEvent gate;
  std::atomic<int> started{0};
  for (int i = 0; i < 6; ++i) {
    ASSERT_TRUE(executor.submit([&] {
      ++started;
      (void)gate.wait();
    }));
  }
  ASSERT_TRUE(eventually([&] { return started.load() == 6; }));
  EXPECT_GE(executor.threadCount(), 6u);
  gate.set();
  EXPECT_TRUE(eventually([&] { return executor.threadCount() == 2; }));
  // The two that stay still take work.
  RKVTestEvent ran;
  ASSERT_TRUE(executor.submit([&] { ran.set(); }));
  EXPECT_TRUE(ran.wait());
}

TEST(RKVBackgroundExecutorTest, ShutdownWaitsForRunningTasksAndDropsQueuedOnes) {
  auto executor = std::make_unique<RKVBackgroundExecutor>(smallPool(1));
  RKVTestEvent blocked;
  RKVTestEvent gate;
  std::atomic<bool> runningFinished{false};
  ASSERT_TRUE(executor->submit([&] {
    blocked.set();
    (void)gate.wait();
    runningFinished = true;
  }));
  ASSERT_TRUE(blocked.wait());
  auto queuedState = std::make_shared<int>(0);
  std::weak_ptr<int> watch = queuedState;
  std::atomic<int> queuedRan{0};
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(executor->submit([&queuedRan, queuedState] { ++queuedRan; }));
  }
  queuedState.reset();

  std::thread opener([&] {
    // Opened once the queued tasks are gone, i.e. once shutdown() is under way.
    ASSERT_TRUE(eventually([&] { return watch.expired(); }));
    gate.set();
  });
  executor->shutdown();
  opener.join();
  EXPECT_TRUE(runningFinished) << "shutdown() returned before the running task did";
  EXPECT_EQ(queuedRan.load(), 0);
  EXPECT_EQ(executor->threadCount(), 0u);
  EXPECT_FALSE(executor->submit([] {}));
  executor.reset();
}

TEST(RKVBackgroundExecutorTest, ShutdownFromOneOfItsOwnTasks) {
  auto executor = std::make_unique<RKVBackgroundExecutor>(smallPool());
  RKVTestEvent otherBlocked;
  RKVTestEvent gate;
  RKVTestEvent shutDown;
  ASSERT_TRUE(executor->submit([&] {
    otherBlocked.set();
    (void)gate.wait();
  }));
  ASSERT_TRUE(otherBlocked.wait());
  ASSERT_TRUE(executor->submit([&] {
    gate.set();
    executor->shutdown();  // joins the other thread, not its own
    shutDown.set();
  }));
  ASSERT_TRUE(shutDown.wait());
  EXPECT_FALSE(executor->submit([] {}));
  executor.reset();  // waits for the thread that ran shutdown() to end
}

}  // namespace
}  // namespace rkv
