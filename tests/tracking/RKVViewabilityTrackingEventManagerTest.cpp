#include <sstream>

#include "rkv/tracking/RKVViewabilityTrackingEventManager.h"

#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

using RKVViewabilityTrackingEventManagerTest = RKVTrackingTest;

// A script, one token per step: S start, P stop, R reset, vN / nN a report viewable (v) or not
// (n) at N percent, t the next quarter-second tick, T a tick a second late, w a quarter second
// while stopped. A "*" marks the tick that fires the pixel.
TEST_F(RKVViewabilityTrackingEventManagerTest, ContinuousExposureAtTheAreaFiresOnce) {
  const struct {
    const char* what;
    double area, seconds;
    const char* script;
  } cases[] = {
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
    auto manager = this->manager<RKVViewabilityTrackingEventManager>(
        {std::make_shared<RKVBasicViewabilityTrackingEvent>("viewable", url("/p"), c.area,
                                                            c.seconds),
         event("start", "e=start")});
    std::istringstream script(c.script);
    size_t fired = 0;
    for (std::string step; script >> step;) {
      if (step == "S") {
        manager.startViewabilityTracking();
      } else if (step == "P") {
        manager.stopViewabilityTracking();
      } else if (step == "R") {
        manager.resetViewabilityTracking();
      } else if (step[0] == 'v' || step[0] == 'n') {
        manager.viewabilityUpdated(step[0] == 'v', std::stof(step.substr(1)));
      } else {
        clock->advance(std::chrono::milliseconds(step[0] == 'T' ? 1000 : 250));
        loop->poll();
      }
      fired += step.back() == '*' ? 1 : 0;
      ASSERT_EQ(delegate->calls, RKVDelegateCalls(fired, {"viewable", 1})) << step;
    }
    EXPECT_EQ(sentTargets(), std::vector<std::string>(fired, "/p"));
    EXPECT_EQ(manager.eventProgressionItems().size(), 1 - fired);
  }
}

}  // namespace
}  // namespace rkv::test
