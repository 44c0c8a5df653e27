// RKVTimer on a main loop driven by a manual clock: firing counts of each kind, the status rules,
// and timers that their owner drops, or their delegate stops or restarts, while they run.

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/foundation/RKVTimer.h"

#include "tests/support/RKVLogCapture.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

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
  struct Case {
    const char* name;
    RKVTimerInterval interval;
    int firings;  // in all, over 10 periods (10 for a timer that never finishes)
  };
  const Case cases[] = {
      {"non-repeating", RKVTimerInterval::nonRepeatingWithTime(1.0), 1},
      {"finite 3", RKVTimerInterval::finiteRepetitionsWithTime(1.0, 3), 3},
      {"finite 0", RKVTimerInterval::finiteRepetitionsWithTime(1.0, 0), 1},
      {"infinite", RKVTimerInterval::infiniteRepetitionsWithTime(1.0), 10},
      {"unknown kind", RKVTimerInterval(7, 1.0, 5), 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    delegate_->fired = 0;
    auto timer = makeTimer(c.interval);
    timer->start();
    for (int period = 1; period <= 10; ++period) {
      tick(999ms);  // not yet due
      EXPECT_EQ(delegate_->fired, std::min(period - 1, c.firings));
      tick(1ms);
      EXPECT_EQ(delegate_->fired, std::min(period, c.firings));
      // While running, the next firing is armed as soon as one fires.
      const int armed = delegate_->fired + (timer->status() == RKVTimerStatusRunning ? 1 : 0);
      EXPECT_EQ(timer->timerCount(), static_cast<uint32_t>(armed));
    }
    const bool endless = c.interval.type() == RKVTimerIntervalTypeInfiniteRepetitions;
    EXPECT_EQ(timer->status(), endless ? RKVTimerStatusRunning : RKVTimerStatusFinished);
    EXPECT_EQ(timer->timerCanBeStarted(), !endless);
    timer->stop();
  }
  EXPECT_EQ(stops_, 5);
}

TEST_F(RKVTimerTest, StatusRulesForStartAndStop) {
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

// Dropped by its own delegate from its firing: RKVViewabilityManagerTest drops the manager
// owning the timer from the manager's delegate, under ASan in CI.
TEST_F(RKVTimerTest, DelegateMayStopOrRestartTheTimerFromItsFiring) {
  // Restarted by its delegate: one loop timer at a time, and a finite timer's count restarts.
  auto timer = makeTimer(RKVTimerInterval::finiteRepetitionsWithTime(1.0, 2));
  delegate_->action = [](RKVTimer& t) { t.stop(), t.start(); };
  timer->start();
  for (int i = 0; i < 4; ++i)
    tick();
  EXPECT_EQ(delegate_->fired, 4);
  EXPECT_EQ(timer->status(), RKVTimerStatusRunning);
  EXPECT_EQ(timer->timerCount(), 1u);

  // Stopped by its delegate: stays stopped, not finished.
  delegate_->action = [](RKVTimer& t) { t.stop(); };
  tick(), tick();
  EXPECT_EQ(delegate_->fired, 5);
  EXPECT_EQ(timer->status(), RKVTimerStatusStopped);
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
