#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVFuture.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::RKVTestEvent;

const RKVError kTimeout("RKVFutureError", 1000);

TEST(RKVFutureTest, AFinishedTaskAnswersAtOnce) {
  RKVFuture<int> future([] { return 42; });
  EXPECT_EQ(future.get(), 42);
  EXPECT_TRUE(future.isDone());
  std::optional<RKVError> error;
  EXPECT_EQ(future.getWithTimeout(0, &error), 42);
  EXPECT_EQ(future.getWithDeadline(std::chrono::steady_clock::time_point(), &error), 42);
  EXPECT_FALSE(error.has_value());
}

TEST(RKVFutureTest, TimeOutThenALaterGetReturnsTheValue) {
  auto gate = std::make_shared<RKVTestEvent>();
  RKVFuture<std::string> future([gate] {
    (void)gate->wait();
    return std::string("late");
  });
  EXPECT_FALSE(future.isDone());

  std::optional<RKVError> error;
  EXPECT_EQ(future.getWithTimeout(0.02, &error), std::nullopt);
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(*error, kTimeout);
  EXPECT_FALSE(error->hasUserInfo());

  // No error slot: the time-out is only seen as an absent result.
  EXPECT_EQ(future.getWithDeadline(std::chrono::steady_clock::now() - 1s, nullptr), std::nullopt);

  gate->set();
  EXPECT_EQ(future.get(), "late");
  EXPECT_TRUE(future.isDone());
  std::optional<RKVError> untouched;
  EXPECT_EQ(future.getWithTimeout(0, &untouched), "late");
  EXPECT_FALSE(untouched.has_value());
}

TEST(RKVFutureTest, TimeOutsThatDoNotWaitAndTimeOutsThatWaitForever) {
  struct Case {
    double seconds;
    bool waitsForever;
  };
  const std::vector<Case> cases = {
      {0, false},
      {-5, false},
      {std::nan(""), false},
      {18446744073709551616.0, true},  // 2^64 seconds, the unlimited wait of get()
      {std::numeric_limits<double>::infinity(), true},
      {1e300, true},
      {9.3e9, true},  // the first whole seconds past what 64 bits of nanoseconds hold
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.seconds);
    auto gate = std::make_shared<RKVTestEvent>();
    RKVFuture<int> future([gate] {
      (void)gate->wait();
      return 7;
    });
    std::thread opener([gate] {
      // Gives the wait below time to start; opening earlier only makes the case weaker.
      std::this_thread::sleep_for(20ms);
      gate->set();
    });
    std::optional<RKVError> error;
    const std::optional<int> result = future.getWithTimeout(c.seconds, &error);
    opener.join();
    if (c.waitsForever) {
      EXPECT_EQ(result, 7);
      EXPECT_FALSE(error.has_value());
    } else if (!result) {
      EXPECT_EQ(error, kTimeout);
    }
  }
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
  for (size_t i = 0; i < futures.size(); ++i) {
    SCOPED_TRACE(i);
    std::optional<RKVError> error;
    EXPECT_EQ(futures[i].getWithTimeout(30, &error), std::nullopt);
    EXPECT_FALSE(error.has_value());
    EXPECT_TRUE(futures[i].isDone());
  }
}

TEST(RKVFutureTest, TaskDroppedByAShutdownWakesItsWaiters) {
  RKVBackgroundExecutorOptions options;
  options.maxThreads = 1;
  RKVBackgroundExecutor executor(options);
  RKVTestEvent blocked;
  RKVTestEvent gate;
  ASSERT_TRUE(executor.submit([&] {
    blocked.set();
    (void)gate.wait();
  }));
  ASSERT_TRUE(blocked.wait());
  RKVFuture<int> queued([] { return 1; }, executor);  // waits behind the blocked task
  std::optional<int> seen = 0;
  std::thread waiter([&] { seen = queued.get(); });
  std::thread closer([&] { executor.shutdown(); });
  waiter.join();  // woken when shutdown() destroys the queued task
  gate.set();
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
  for (size_t i = 0; i < seen.size(); ++i) {
    waiters.emplace_back([&, i, copy = future] { seen[i] = copy.get().value_or(nullptr); });
  }
  gate->set();
  for (auto& waiter : waiters)
    waiter.join();
  EXPECT_EQ(runs->load(), 1);
  for (const auto& value : seen) {
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value, seen.front()) << "the same object, not a copy of it";
  }
}

}  // namespace
}  // namespace rkv
