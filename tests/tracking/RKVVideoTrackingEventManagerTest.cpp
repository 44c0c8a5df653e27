#include <cmath>

#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVVideoTrackingEventManager.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

using RKVVideoTrackingEventManagerTest = RKVTrackingTest;

// Each report fires the listed events (by label, /p?t=<label>), in that order, with one round.
TEST_F(RKVVideoTrackingEventManagerTest, ProgressFiresEachPassedEventOnceInOffsetOrder) {
  struct Timed {
    const char* name;
    double offset;
    const char* label;
  };
  const std::vector<Timed> quartiles = {{"progress", 10, "b"},
                                        {"firstQuartile", 5, "a"},
                                        {"progress", 10, "c"},
                                        {"complete", 15, "d"}};
  // clang-format off
  const struct {
    const char* what;
    std::vector<Timed> events;
    std::vector<std::pair<double, std::vector<std::string>>> reports;
  } cases[] = {
      {"a seek forward fires all passed, equal offsets in list order", quartiles, {{12, {"a", "b", "c"}}}},
      {"a seek back fires nothing again", quartiles, {{12, {"a", "b", "c"}}, {3, {}}, {12, {}}, {16, {"d"}}}},
      {"offset 0 fires on the first report", {{"start", 0, "s"}, {"progress", 5, "p"}}, {{0, {"s"}}, {0, {}}}},
      {"not a moment before the offset", quartiles, {{4.999, {}}, {5.0, {"a"}}}},
      {"no time position, no firing by time", {{"progress", -1, "n"}, {"progress", 1, "p"}}, {{1e9, {"p"}}}},
      {"an unknown position fires nothing", quartiles, {{NAN, {}}, {5, {"a"}}}},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    RKVTrackingEventDefaultFactory::Events events;
    for (const auto& timed : c.events)
      events.push_back(event(timed.name, std::string("t=") + timed.label, timed.offset));
    auto tracking = manager<RKVVideoTrackingEventManager>(events);
    for (const auto& [time, fired] : c.reports) {
      SCOPED_TRACE(time);
      delegate->calls.clear();
      tracking.playbackProgressedToTime(time, {});
      std::vector<std::string> expected;
      for (const auto& label : fired)
        expected.push_back("/p?t=" + label);
      EXPECT_EQ(sentTargets(), expected);
      EXPECT_EQ(rounds, fired.empty() ? 0 : 1);
      EXPECT_EQ(delegate->calls.size(), fired.size());  // one call, count 1, per event
    }
  }
}

TEST_F(RKVVideoTrackingEventManagerTest, TrackingByTypeGoesByNameWhateverTheOffsets) {
  auto tracking = manager<RKVVideoTrackingEventManager>(
      {event("progress", "t=timed", 4), event("progress", "t=untimed"), event("pause", "t=p", 2)});
  tracking.trackVideoEvent(RKVVideoEventType::progress, {});
  tracking.trackVideoEvent(static_cast<RKVVideoEventType>(22), {});
  tracking.trackVideoEvent(RKVVideoEventType::pause, {});
  EXPECT_EQ(delegate->calls, (RKVDelegateCalls{{"progress", 2}, {"pause", 1}}));
  EXPECT_EQ(sentTargets(), (std::vector<std::string>{"/p?t=untimed", "/p?t=timed", "/p?t=p"}));

  // By time the consumable event, gone from the list, is refused; the other fires again.
  RKVLogCapture log;
  tracking.playbackProgressedToTime(5, {});
  EXPECT_TRUE(tracking.videoEvents().empty());
  EXPECT_EQ(sentTargets(), std::vector<std::string>{"/p?t=p"});
  EXPECT_EQ(log.debugMessages(),
            std::vector<std::string>{"Event tracking cancelled because the event was not "
                                     "contained in the events array: '" +
                                     server.url("/p?t=timed") + "'!"});
}

}  // namespace
}  // namespace rkv::test
