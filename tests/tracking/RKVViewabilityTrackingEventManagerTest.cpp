#include <sstream>

#include <gtest/gtest.h>

#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVViewabilityTrackingEventManager.h"

#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

class RKVViewabilityTrackingEventManagerTest : public RKVTrackingTest {
 protected:
  // Moves the clock and lets the loop run what fell due (the manager's timer ticks).
  void advance(std::chrono::milliseconds by) {
    clock->advance(by);
    loop->poll();
  }
};

// A script, one token per step: S start, P stop, R reset, vN / nN a report viewable (v) or not
// (n) at N percent, t a quarter-second tick, T a tick one second late, w a quarter second
// without a tick. A "*" after a tick marks it as the one that fires the pixel.
TEST_F(RKVViewabilityTrackingEventManagerTest, ContinuousExposureAtTheAreaFiresOnce) {
  struct Case {
    const char* what;
    double area, seconds;
    const char* script;
  };
  const Case cases[] = {
      {"one second of 60 %", 50, 1, "S v60 t t t t t* t t"},
      {"the first tick only sets the time base", 50, 0.25, "S v60 t t* t"},
      {"one tick under the area restarts the count", 50, 1, "S v60 t t t v40 t v60 t t t t*"},
      {"the area itself is enough", 50, 0.5, "S v50 t t t*"},
      {"not viewable counts as 0", 50, 1, "S n80 t t t t t t"},
      {"area 0, time 0: the second tick, even not viewable", 0, 0, "S n80 t t* t"},
      {"nothing before a report", 50, 1, "S t t t t t v60 t t t t t*"},
      {"stopped time does not count", 50, 1, "S v60 t t t P w w w w w w S t t t*"},
      {"a late tick counts its real length", 50, 1, "S v60 t T*"},
      {"reset clears the exposure", 50, 1, "S v60 t t t t R t t t t t*"},
      {"a fired event never fires again", 50, 0.5, "S v60 t t t* R t t t t t v70 t t"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    delegate->calls.clear();
    auto viewable = std::make_shared<RKVBasicViewabilityTrackingEvent>(
        "viewable", url(std::string("/p?v=") + c.what), c.area, c.seconds);
    RKVViewabilityTrackingEventManager manager(
        RKVTrackingEventDefaultFactory({viewable, event("start", "e=start")}), {}, delegate,
        pixelManager, loop);
    ASSERT_EQ(manager.eventProgressionItems().size(), 1u);
    const size_t requestsBefore = server.requests().size();

    std::istringstream script(c.script);
    std::string step;
    size_t expectedFires = 0;
    for (int index = 0; script >> step; ++index) {
      SCOPED_TRACE(testing::Message() << "step " << index << " '" << step << "'");
      switch (step[0]) {
        case 'S':
          manager.startViewabilityTracking();
          break;
        case 'P':
          manager.stopViewabilityTracking();
          break;
        case 'R':
          manager.resetViewabilityTracking();
          break;
        case 'v':
        case 'n':
          manager.viewabilityUpdated(step[0] == 'v', std::stof(step.substr(1)));
          break;
        case 't':
          advance(std::chrono::milliseconds(250));
          break;
        case 'T':
          advance(std::chrono::milliseconds(1000));
          break;
        case 'w':
          advance(std::chrono::milliseconds(250));
          break;
        default:
          FAIL() << "bad step";
      }
      if (step.back() == '*') ++expectedFires;
      ASSERT_EQ(delegate->calls.size(), expectedFires);
    }
    for (const auto& call : delegate->calls)
      EXPECT_EQ(call, (std::pair<std::string, uint64_t>{"viewable", 1}));
    auto sent = sentTargets();
    EXPECT_EQ(sent.size() - requestsBefore, expectedFires);
    EXPECT_EQ(manager.eventProgressionItems().size(), 1 - expectedFires);
  }
}

TEST_F(RKVViewabilityTrackingEventManagerTest, StoppingDropsTheTimerAndStartingTwiceKeepsOne) {
  RKVViewabilityTrackingEventManager manager(
      RKVTrackingEventDefaultFactory(
          {std::make_shared<RKVBasicViewabilityTrackingEvent>("viewable", url("/p"), 50, 1)}),
      {}, delegate, pixelManager, loop);
  manager.startViewabilityTracking();
  auto first = manager.timer();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->status(), RKVTimerStatusRunning);
  manager.startViewabilityTracking();
  EXPECT_EQ(manager.timer(), first);
  manager.stopViewabilityTracking();
  EXPECT_EQ(manager.timer(), nullptr);
  EXPECT_EQ(first->status(), RKVTimerStatusStopped);
  EXPECT_EQ(first->delegate(), nullptr);
}

}  // namespace
}  // namespace rkv::test
