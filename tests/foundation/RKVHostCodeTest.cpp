// Host code that throws on every path that calls it, the call gate and the main-thread check.

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVMainThread.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/foundation/RKVNotificationCenter.h"
#include "rkv/foundation/RKVSerialQueue.h"
#include "rkv/foundation/internal/RKVCallGate.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::RKVTestEvent;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Names = std::vector<std::string>;

void failHost() {
  throw std::runtime_error("host failure");
}

TEST(RKVHostCodeTest, AThrowingObserverIsReportedAndTheLaterOnesAreStillCalled) {
  test::RKVLogCapture capture;
  RKVNotificationCenter center;
  Names calls;
  center.addObserver("n", [&](const RKVNotification&) { calls.push_back("first"); });
  center.addObserver("n", [](const RKVNotification&) { failHost(); });
  center.addObserver("", [](const RKVNotification&) { throw 42; });  // not a std::exception
  center.addObserver("n", [&](const RKVNotification&) { calls.push_back("last"); });
  center.post("n");
  EXPECT_EQ(calls, (Names{"first", "last"}));
  EXPECT_THAT(capture.errorMessages(),
              ElementsAre(AllOf(HasSubstr("\"n\""), HasSubstr("host failure")),
                          AllOf(HasSubstr("every notification"), HasSubstr("unknown exception"))));
}

// Each path runs a task that throws, then a later one on the same thread; the later one runs and
// the failure is one error line naming the path.
TEST(RKVHostCodeTest, AThrowingTaskIsReportedAndTheThreadGoesOn) {
  auto clock = std::make_shared<RKVManualClock>();
  using Run = std::function<void(std::function<void()> failing, std::function<void()> later)>;
  const std::tuple<const char*, const char*, Run> paths[] = {
      {"executor", "background executor",
       [](auto failing, auto later) {
         RKVBackgroundExecutor executor({.maxThreads = 1});  // one thread: it must survive
         ASSERT_TRUE(executor.submit(failing));
         RKVTestEvent done;
         ASSERT_TRUE(executor.submit([&] { later(), done.set(); }));
         ASSERT_TRUE(done.wait());
       }},
      {"serial queue", "serial queue host.queue",
       [](auto failing, auto later) {
         RKVSerialQueue queue("host.queue");
         ASSERT_TRUE(queue.async(failing));
         ASSERT_TRUE(queue.async(later));
         ASSERT_TRUE(queue.drain());
       }},
      {"delayed task", "delayed task on the serial queue host.delayed",
       [clock](auto failing, auto later) {
         RKVSerialQueue queue("host.delayed", clock);
         queue.asyncAfter(1ms, failing);
         RKVTestEvent done;
         queue.asyncAfter(1ms, [&] { later(), done.set(); });
         clock->advance(1ms);
         ASSERT_TRUE(done.wait());
       }},
      {"main loop post", "handler posted to the main loop",
       [clock](auto failing, auto later) {
         RKVMainLoop loop(clock);
         loop.post(failing);
         loop.post(later);
         EXPECT_EQ(loop.poll(), 2u);
       }},
      {"main loop timer", "timer callback on the main loop",
       [clock](auto failing, auto later) {
         RKVMainLoop loop(clock);
         loop.scheduleAfter(1ms, failing);
         loop.scheduleAfter(1ms, later);
         clock->advance(1ms);
         EXPECT_EQ(loop.poll(), 2u);
       }},
  };
  for (const auto& [name, site, run] : paths) {
    SCOPED_TRACE(name);
    test::RKVLogCapture capture;
    std::atomic<bool> laterRan{false};
    run(failHost, [&] { laterRan = true; });
    EXPECT_TRUE(laterRan);
    EXPECT_THAT(capture.errorMessages(),
                ElementsAre(AllOf(HasSubstr(site), HasSubstr("host failure"))));
  }
}

// A call under way on the closing thread itself is not waited for: the serial queue's self-cancel
// (RKVSerialQueueDelayTest) and the VAST manager's cancel from its delegate (drain) use that.
TEST(RKVCallGateTest, CloseWaitsForCallsOnOtherThreads) {
  internal::RKVCallGate gate;
  RKVTestEvent entered, release;
  std::atomic<bool> closeReturned{false};
  bool returnedDuringCall = true;
  std::thread caller([&] {
    auto pass = gate.enter();
    ASSERT_TRUE(pass);
    entered.set();
    ASSERT_TRUE(release.wait());
    returnedDuringCall = closeReturned.load();
  });
  ASSERT_TRUE(entered.wait());
  std::thread closer([&] {
    gate.close();
    closeReturned = true;
  });
  ASSERT_TRUE(test::eventually([&] { return gate.isClosed(); }));
  EXPECT_FALSE(gate.enter()) << "no call starts once close() has begun";
  std::this_thread::sleep_for(20ms);  // a shorter pause only makes the check weaker
  release.set();
  caller.join();
  closer.join();
  EXPECT_FALSE(returnedDuringCall) << "close() returned while a call was under way";
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
  bool onLoop = false, assertedOnLoop = false;
  ASSERT_TRUE(loopThread.runOnLoop([&] {
    onLoop = isMainThread(loop);
    assertedOnLoop = RKV_ASSERT_MAIN_THREAD(loop, "onLoop");
  }));
  EXPECT_TRUE(onLoop);
  EXPECT_TRUE(assertedOnLoop);
  EXPECT_TRUE(capture.errorMessages().empty());

  EXPECT_FALSE(isMainThread(loop));
  EXPECT_FALSE(RKV_ASSERT_MAIN_THREAD(loop, "RKVSample::start"));
  EXPECT_FALSE(RKV_ASSERT_MAIN_THREAD(idle, "RKVSample::stop"));
  EXPECT_THAT(capture.errorMessages(),
              ElementsAre(HasSubstr("RKVSample::start must be called on the main thread"),
                          HasSubstr("RKVSample::stop must be called on the main thread")));
}

}  // namespace
}  // namespace rkv
