#include <atomic>
#include <barrier>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"

#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::RKVLoopThread;
using test::RKVTestEvent;
using Names = std::vector<std::string>;

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
  // Advance, then how many fire and all fired so far.
  const std::tuple<std::chrono::milliseconds, size_t, Names> steps[] = {
      {0ms, 1, {"a"}},
      {9ms, 0, {"a"}},
      {21ms, 5, {"a", "b1", "b2", "c1", "c2", "d"}},
      {1ms, 1, {"a", "b1", "b2", "c1", "c2", "d", "e"}},
      {1h, 0, {"a", "b1", "b2", "c1", "c2", "d", "e"}},
  };
  for (const auto& [advance, count, expected] : steps) {
    clock_->advance(advance);
    EXPECT_EQ(loop_.poll(), count) << "after +" << advance.count() << "ms";
    EXPECT_EQ(fired, expected) << "after +" << advance.count() << "ms";
  }
}

TEST_F(RKVMainLoopTest, CancelledTimerNeverRunsAndReleasesItsCallback) {
  auto captured = std::make_shared<int>(0);
  std::weak_ptr<int> watch = captured;
  bool fired = false;
  auto cancelled = loop_.scheduleAfter(10ms, [&, captured] { fired = true; });
  // A timer that falls due in the same poll as another one cancels it first.
  RKVMainLoop::TimerHandle victim;
  loop_.scheduleAfter(5ms, [&] { victim.cancel(); });
  victim = loop_.scheduleAfter(6ms, [&] { fired = true; });
  captured.reset();
  clock_->advance(10ms);  // all three are due now, none has run
  EXPECT_TRUE(cancelled.cancel());
  EXPECT_TRUE(watch.expired()) << "cancel() must release what the callback captured";
  EXPECT_FALSE(cancelled.cancel()) << "a second cancel() prevents nothing";
  EXPECT_EQ(loop_.poll(), 1u);
  EXPECT_FALSE(fired);
  auto handle = loop_.scheduleAfter(0ms, [&] { fired = true; });
  EXPECT_EQ(loop_.poll(), 1u);
  EXPECT_FALSE(handle.cancel()) << "too late: it has run";
}

TEST_F(RKVMainLoopTest, PollRunsOnlyWhatWasReadyWhenItStarted) {
  // A handler that reposts itself and a timer that re-arms itself with no delay would spin an
  // unbounded poll() forever; each poll() runs one round of them.
  int posts = 0;
  int ticks = 0;
  std::function<void()> repost = [&] {
    ++posts;
    loop_.post(repost);
  };
  std::function<void()> tick = [&] {
    ++ticks;
    loop_.scheduleAfter(0ms, tick);
  };
  loop_.post(repost);
  loop_.scheduleAfter(0ms, tick);
  for (int round = 1; round <= 3; ++round) {
    EXPECT_EQ(loop_.poll(), 2u);
    EXPECT_EQ(posts + ticks, 2 * round);
  }
}

TEST_F(RKVMainLoopTest, EndlessDelaysNeverFireAndDestructionDropsPendingWork) {
  bool fired = false;
  loop_.scheduleAt(RKVClock::time_point::max(), [&] { fired = true; });
  // A delay whose deadline does not fit must not wrap around into the past.
  loop_.scheduleAfter(RKVClock::duration::max(), [&] { fired = true; });
  clock_->advance(24h * 365 * 100);
  EXPECT_EQ(loop_.poll(), 0u);
  EXPECT_FALSE(fired);

  auto captured = std::make_shared<int>(0);
  std::weak_ptr<int> watch = captured;
  {
    RKVMainLoop loop(clock_);
    loop.scheduleAfter(1ms, [captured] {});
    loop.post([captured] {});
    captured.reset();
  }
  EXPECT_TRUE(watch.expired());
  clock_->advance(1s);  // the clock no longer knows the loop
}

TEST(RKVMainLoopDriving, RunStopAndTheMainThread) {
  RKVMainLoop loop;
  EXPECT_FALSE(loop.isMainThread()) << "nobody has driven it yet";
  // A stop() before run() is kept: run() returns at once, and the next run() is not affected.
  loop.stop();
  loop.run();
  bool insideIsMain = false;
  size_t nestedPoll = 1;
  loop.post([&] {
    insideIsMain = loop.isMainThread();
    nestedPoll = loop.poll();  // re-entry is refused
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(insideIsMain);
  EXPECT_EQ(nestedPoll, 0u);
  EXPECT_TRUE(loop.isMainThread()) << "the thread that drove it last stays the main thread";
  bool otherIsMain = true;
  std::thread([&] { otherIsMain = loop.isMainThread(); }).join();
  EXPECT_FALSE(otherIsMain);
}

TEST(RKVMainLoopThreads, PostsFromManyThreadsRunOnTheLoopThreadInEachPostersOrder) {
  RKVLoopThread loopThread;
  RKVMainLoop& loop = loopThread.loop();
  constexpr int kThreads = 8;
  constexpr int kPostsEach = 500;
  // Written only by handlers; a handler running off the loop thread would race here.
  std::vector<int> lastSeen(kThreads, -1);
  int outOfOrder = 0;
  int offLoop = 0;
  int total = 0;
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < kPostsEach; ++i) {
        loop.post([&, t, i] {
          offLoop += !loop.isMainThread();
          outOfOrder += i != lastSeen[t] + 1;
          lastSeen[t] = i;
          ++total;
        });
      }
    });
  }
  for (auto& poster : posters)
    poster.join();
  ASSERT_TRUE(loopThread.runOnLoop([&] {
    EXPECT_EQ(total, kThreads * kPostsEach);
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_EQ(offLoop, 0);
  }));
}

TEST(RKVMainLoopThreads, MovingAManualClockWakesARunningLoop) {
  auto clock = std::make_shared<RKVManualClock>();
  RKVLoopThread manual(clock);
  std::atomic<bool> onLoop{false};
  RKVTestEvent done;
  manual.loop().scheduleAfter(5s, [&] {
    onLoop = manual.loop().isMainThread();
    done.set();
  });
  ASSERT_TRUE(manual.runOnLoop([] {}));
  EXPECT_FALSE(done.isSet()) << "no real time counts on a manual clock";
  clock->advance(5s);
  ASSERT_TRUE(done.wait());
  EXPECT_TRUE(onLoop);
}

TEST(RKVMainLoopThreads, CancelRacingTheDeadlineFromAnotherThread) {
  // The loop fires while another thread cancels, the cancel landing at varying points of the
  // firing. When cancel() wins the callback never starts; when it loses, cancel() has waited for
  // the callback to end.
  auto clock = std::make_shared<RKVManualClock>();
  RKVLoopThread loopThread(clock);
  constexpr int kRounds = 400;
  struct Round {
    RKVMainLoop::TimerHandle handle;
    std::atomic<bool> started{false};
    std::atomic<bool> finished{false};
    int delay = 0;  // how long the canceller spins before cancel()
    bool prevented = false;
    bool finishedAtCancel = false;
  };
  std::vector<Round> rounds(kRounds);
  std::barrier meet(2);
  std::atomic<int> busy{0};
  std::thread canceller([&] {
    for (Round& round : rounds) {
      meet.arrive_and_wait();
      for (int spin = 0; spin < round.delay; ++spin)
        busy.fetch_add(1, std::memory_order_relaxed);
      round.prevented = round.handle.cancel();
      round.finishedAtCancel = round.finished.load();
      meet.arrive_and_wait();
    }
  });
  int delay = 0;
  for (Round& round : rounds) {
    round.delay = delay;
    round.handle = loopThread.loop().scheduleAfter(1ms, [&round] {
      round.started = true;
      for (int i = 0; i < 20; ++i)
        std::this_thread::yield();
      round.finished = true;
    });
    meet.arrive_and_wait();
    clock->advance(1ms);
    meet.arrive_and_wait();
    ASSERT_TRUE(loopThread.runOnLoop([] {}));  // whatever was due has had its chance
    // The delay follows the outcome, so that the cancel keeps landing near the firing.
    delay = round.prevented ? delay * 2 + 16 : delay / 2;
    EXPECT_TRUE(round.prevented ? !round.started : round.finishedAtCancel)
        << "round " << &round - rounds.data() << (round.prevented ? " started" : " still running");
  }
  canceller.join();
}

TEST(RKVClockTest, SecondsToDurationAndTheManualClock) {
  const std::pair<double, std::optional<RKVClock::duration>> cases[] = {
      {1.5, 1500ms},
      {1e-9, 1ns},
      {-3, 0ns},
      {std::nan(""), 0ns},
      {9.2e9, std::chrono::seconds(9200000000)},
      {9.3e9, std::nullopt},  // the first whole seconds past what 64 bits of nanoseconds hold
      {std::numeric_limits<double>::infinity(), std::nullopt},
  };
  for (const auto& [seconds, expected] : cases)
    EXPECT_EQ(RKVClock::durationFromSeconds(seconds), expected) << seconds;
  EXPECT_EQ(RKVClock::addSaturating(RKVClock::time_point(1h), RKVClock::duration::max()),
            std::nullopt);

  RKVManualClock clock;
  const auto start = clock.now();
  int moves = 0;
  const uint64_t id = clock.addObserver([&] { ++moves; });
  clock.advance(1500ms);
  clock.advance(-1s);
  clock.advanceTo(start);
  EXPECT_EQ(clock.now() - start, 1500ms) << "monotonic time never goes back";
  EXPECT_EQ(moves, 1) << "only real moves are reported";
  clock.removeObserver(id);
  clock.advance(1s);
  EXPECT_EQ(moves, 1);
}

}  // namespace
}  // namespace rkv
