#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVVideoTrackingEventManager.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

class RKVVideoTrackingEventManagerTest : public RKVTrackingTest {
 protected:
  RKVVideoTrackingEventManager manager(RKVTrackingEventDefaultFactory::Events events) {
    return RKVVideoTrackingEventManager(RKVTrackingEventDefaultFactory(std::move(events)), {},
                                        delegate, pixelManager, loop);
  }
};

TEST_F(RKVVideoTrackingEventManagerTest, ProgressFiresEachPassedEventOnceInOffsetOrder) {
  struct Timed {
    const char* name;
    double offset;
    const char* label;
  };
  struct Case {
    const char* what;
    std::vector<Timed> events;
    std::vector<double> reports;
    std::vector<std::vector<std::string>> firedPerReport;  // labels, in order
  };
  const std::vector<Timed> quartiles = {{"progress", 10, "b"},
                                        {"firstQuartile", 5, "a"},
                                        {"progress", 10, "c"},
                                        {"complete", 15, "d"}};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {
      {"a seek forward fires everything passed, equal offsets in list order",
       quartiles,
       {12},
       {{"a", "b", "c"}}},
      {"a seek back fires nothing again",
       quartiles,
       {12, 3, 12, 16},
       {{"a", "b", "c"}, {}, {}, {"d"}}},
      {"offset 0 fires on the first report",
       {{"start", 0, "s"}, {"progress", 5, "p"}},
       {0, 0},
       {{"s"}, {}}},
      {"the offset itself is reached, not a moment before", quartiles, {4.999, 5.0}, {{}, {"a"}}},
      {"no time position, no firing by time",
       {{"progress", -1, "n"}, {"progress", 1, "p"}},
       {1e9},
       {{"p"}}},
      {"an unknown position fires nothing", quartiles, {nan, 5}, {{}, {"a"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    delegate->calls.clear();
    RKVTrackingEventDefaultFactory::Events events;
    for (const auto& timed : c.events)
      events.push_back(event(timed.name, std::string("t=") + timed.label, timed.offset));
    auto tracking = manager(events);
    const size_t requestsBefore = server.requests().size();
    const int roundsBefore = roundsAsked();

    std::vector<std::string> expectedSent;
    int expectedRounds = 0;
    for (size_t i = 0; i < c.reports.size(); ++i) {
      const size_t callsBefore = delegate->calls.size();
      tracking.playbackProgressedToTime(c.reports[i], {});
      EXPECT_EQ(delegate->calls.size() - callsBefore, c.firedPerReport[i].size()) << i;
      for (const auto& label : c.firedPerReport[i])
        expectedSent.push_back("/p?t=" + label);
      expectedRounds += c.firedPerReport[i].empty() ? 0 : 1;
    }
    auto sent = sentTargets();
    sent.erase(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(requestsBefore));
    EXPECT_EQ(sent, expectedSent);
    EXPECT_EQ(roundsAsked() - roundsBefore, expectedRounds);
    for (const auto& [name, count] : delegate->calls)
      EXPECT_EQ(count, 1u) << name;
  }
}

TEST_F(RKVVideoTrackingEventManagerTest, TrackingByTypeGoesByNameWhateverTheOffsets) {
  auto timedProgress = event("progress", "t=timed", 4);
  auto timedPause = event("pause", "t=pause", 2);
  auto tracking = manager({timedProgress, event("progress", "t=untimed"), timedPause});
  ASSERT_EQ(tracking.videoEvents().size(), 2u);

  tracking.trackVideoEvent(RKVVideoEventType::progress, {});
  tracking.trackVideoEvent(static_cast<RKVVideoEventType>(22), {});
  tracking.trackVideoEvent(static_cast<RKVVideoEventType>(-1), {});
  tracking.trackVideoEvent(RKVVideoEventType::pause, {});
  EXPECT_EQ(delegate->calls,
            (std::vector<std::pair<std::string, uint64_t>>{{"progress", 2}, {"pause", 1}}));

  // By time: the consumable event fired by name is refused (and leaves the table), the
  // non-consumable one fires again.
  RKVLogCapture log;
  tracking.playbackProgressedToTime(5, {});
  EXPECT_TRUE(tracking.videoEvents().empty());
  EXPECT_EQ(sentTargets(),
            (std::vector<std::string>{"/p?t=untimed", "/p?t=timed", "/p?t=pause", "/p?t=pause"}));
  ASSERT_EQ(log.debugMessages().size(), 1u);
  EXPECT_NE(log.debugMessages()[0].find(server.url("/p?t=timed")), std::string::npos);
}

TEST(RKVVideoEventTypeTest, NamesOfTheTable) {
  EXPECT_EQ(RKVVideoTrackingEventManager::eventNameForVideoEventType(RKVVideoEventType::click),
            "click");
  EXPECT_EQ(RKVVideoTrackingEventManager::eventNameForVideoEventType(RKVVideoEventType::progress),
            "progress");
  EXPECT_EQ(
      RKVVideoTrackingEventManager::eventNameForVideoEventType(RKVVideoEventType::firstSecond),
      "firstSecond");
  EXPECT_EQ(
      RKVVideoTrackingEventManager::eventNameForVideoEventType(static_cast<RKVVideoEventType>(22)),
      std::nullopt);
}

}  // namespace
}  // namespace rkv::test
