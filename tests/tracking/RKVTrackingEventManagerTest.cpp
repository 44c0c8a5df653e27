// The tracking event managers on a main loop over a manual clock driven by the test's thread,
// a pixel manager over memory defaults whose saves are counted, a loopback server that answers the
// pixels, and a delegate that records what it is told: by name, by playback time, by viewability,
// and the IAB macros they fill.
#include <atomic>
#include <cmath>
#include <future>
#include <sstream>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/tracking/RKVIABMacros.h"
#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVTrackingEventManager.h"
#include "rkv/tracking/RKVTrackingEventManagerDelegate.h"
#include "rkv/tracking/RKVVideoTrackingEventManager.h"
#include "rkv/tracking/RKVViewabilityTrackingEventManager.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"

namespace rkv::test {
namespace {

// The pixel manager saves once per added pixel and once at the end of each sending round.
struct RKVCountingPixelStoreProvider final : RKVPixelStoreProviderProtocol {
  std::optional<std::vector<RKVPixel>> loadPixels() override { return inner.loadPixels(); }
  bool savePixels(const std::vector<RKVPixel>& pixels) override {
    ++saves;
    return inner.savePixels(pixels);
  }
  RKVPixelStoreProvider inner{
      std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>()), "test"};
  std::atomic<int> saves{0};
};

using RKVDelegateCalls = std::vector<std::pair<std::string, uint64_t>>;

struct RKVRecordingTrackingDelegate final : RKVTrackingEventManagerDelegate {
  void trackingEventManager(RKVTrackingEventManager&, const std::string& name,
                            uint64_t count) override {
    calls.emplace_back(name, count);
  }
  RKVDelegateCalls calls;
};

class RKVTrackingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    loop->poll();  // this thread becomes the loop's main thread
    server.setRoute("/p", RKVTestRoute::answer(200, ""));
  }
  RKVURL url(const std::string& pathAndQuery) const {
    return RKVURL::withString(server.url(pathAndQuery)).value();
  }
  // A manager of type M over the events, with this fixture's delegate, pixel manager and loop.
  template <typename M>
  M manager(RKVTrackingEventDefaultFactory::Events events, RKVTrackingMacros macros = {}) {
    return M(RKVTrackingEventDefaultFactory(std::move(events)), std::move(macros), delegate,
             pixelManager, loop);
  }
  // A VAST tracking event calling the server's /p?<query>.
  std::shared_ptr<RKVVASTTrackingEvent> event(const std::string& name, const std::string& query,
                                              double offset = -1.0) const {
    return std::make_shared<RKVVASTTrackingEvent>(name, std::nullopt, url("/p?" + query), offset);
  }
  // Waits for every sending round asked so far (they run in order) and returns the targets the
  // server received since the last call, in order. Also counts the rounds the code under test
  // asked for: the saves that were neither a pixel's (each sent once, answered 200) nor a wait's.
  std::vector<std::string> sentTargets() {
    std::promise<void> done;
    pixelManager->callPixelsWithCompletionHandler([&] { done.set_value(); });
    done.get_future().wait();
    auto requests = server.requests();
    std::vector<std::string> targets;
    for (size_t i = seen_; i < requests.size(); ++i)
      targets.push_back(requests[i].target);
    rounds = provider->saves - savesAtLastWait_ - static_cast<int>(targets.size()) - 1;
    seen_ = requests.size();
    savesAtLastWait_ = provider->saves;
    return targets;
  }

  std::shared_ptr<RKVManualClock> clock = std::make_shared<RKVManualClock>();
  std::shared_ptr<RKVMainLoop> loop = std::make_shared<RKVMainLoop>(clock);
  RKVTestHTTPServer server;
  std::shared_ptr<RKVCountingPixelStoreProvider> provider =
      std::make_shared<RKVCountingPixelStoreProvider>();
  std::shared_ptr<RKVPixelManager> pixelManager = std::make_shared<RKVPixelManager>(
      std::make_shared<RKVPixelStore>(provider),
      std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>()));
  std::shared_ptr<RKVRecordingTrackingDelegate> delegate =
      std::make_shared<RKVRecordingTrackingDelegate>();
  int rounds = 0;  // sending rounds asked between the last two sentTargets()

 private:
  size_t seen_ = 0;
  int savesAtLastWait_ = 0;
};

using RKVTrackingEventManagerTest = RKVTrackingTest;

TEST_F(RKVTrackingEventManagerTest, TrackingByNameQueuesLastToFirstWithOneRoundPerCall) {
  // clang-format off
  const struct {
    const char* what;
    std::vector<std::string> tracked;
    std::vector<std::string> sent;
    RKVDelegateCalls calls;
    int rounds;
  } cases[] = {
      {"three alike, last to first", {"pause"}, {"/p?n=3", "/p?n=2", "/p?n=1"}, {{"pause", 3}}, 1},
      {"a consumable event once", {"start", "start"}, {"/p?n=s"}, {{"start", 1}, {"start", 0}}, 1},
      {"names are exact", {"Start", "paus"}, {}, {{"Start", 0}, {"paus", 0}}, 0},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    delegate->calls.clear();
    auto tracking =
        manager<RKVTrackingEventManager>({event("pause", "n=1"), event("start", "n=s"),
                                          event("pause", "n=2"), event("pause", "n=3")});
    for (const auto& name : c.tracked)
      tracking.trackEvent(name, {});
    EXPECT_EQ(sentTargets(), c.sent);
    EXPECT_EQ(rounds, c.rounds);
    EXPECT_EQ(delegate->calls, c.calls);
  }
}

TEST_F(RKVTrackingEventManagerTest, FinalURLReplacesMacrosThenVariables) {
  // clang-format off
  const struct {
    const char* what;
    const char* templateURL;
    RKVTrackingMacros macros, additional, variables;
    const char* expected;  // "macros" or "variables": that step broke it, the template is used
  } cases[] = {
      {"the manager's macro wins", "http://h/p?a=[T]", {{"T", "1"}}, {{"T", "2"}}, {}, "http://h/p?a=1"},
      {"additional macros fill the rest", "http://h/p?a=[A]&b=[B]&c=[A]", {{"A", "1"}}, {{"B", "2"}}, {},
       "http://h/p?a=1&b=2&c=1"},
      {"only %5BKEY%5D matches", "http://h/p?a=%5bK%5d&b=[K]", {{"K", "v"}}, {{"[K]", "w"}}, {},
       "http://h/p?a=%5bK%5d&b=v"},
      {"macro names are case-sensitive", "http://h/p?a=[K]", {{"k", "v"}}, {}, {}, "http://h/p?a=%5BK%5D"},
      {"a macro value that breaks the host", "http://%5BH%5D.example/p?a=[K]", {{"H", "a b"}, {"K", "v"}}, {},
       {}, "macros"},
      {"one brace pair", "http://h/p?pos=pos&x=pos", {}, {}, {{"pos={pos}", "12"}}, "http://h/p?pos=12&x=pos"},
      {"prefix and suffix", "http://h/p/ax/c", {}, {}, {{"/a{x}/", "X"}}, "http://h/p/aX/c"},
      {"no braces", "http://h/p?pos=pos", {}, {}, {{"pos=pos", "12"}}, "http://h/p?pos=pos"},
      {"two brace pairs", "http://h/p?ab=ab", {}, {}, {{"{a}{b}", "1"}, {"a{b}}", "2"}, {"a{{b}", "3"}},
       "http://h/p?ab=ab"},
      {"a plain form not in the URL", "http://h/p?pos=1", {}, {}, {{"cur={cur}", "5"}}, "http://h/p?pos=1"},
      {"a variable that breaks the host", "http://hx/p?[K]", {{"K", "v"}}, {}, {{"h{x}", " y"}}, "variables"},
      {"macros before variables", "http://h/p?[K]", {{"K", "pos=pos"}}, {}, {{"pos={pos}", "3"}},
       "http://h/p?pos=3"},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const auto templateURL = RKVURL::withString(c.templateURL).value();
    RKVLogCapture log;
    auto result = manager<RKVTrackingEventManager>({}, c.macros)
                      .finalEventURLWithURL(templateURL, c.variables, c.additional);
    const std::string expected = c.expected;
    if (expected == "macros" || expected == "variables") {
      EXPECT_EQ(result, templateURL);
      EXPECT_EQ(log.debugMessages(),
                std::vector<std::string>{"Replacing " + expected + " in URL '" +
                                         templateURL.absoluteString() +
                                         "' has resulted in a invalid URL! Using the original "
                                         "URL instead."});
    } else {
      EXPECT_EQ(result.absoluteString(), expected);
      EXPECT_TRUE(log.debugMessages().empty());
    }
  }
}

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

using std::chrono::minutes;
const auto kDate = std::chrono::system_clock::time_point(
    std::chrono::milliseconds(1453036507127));  // 2016-01-17T13:15:07.127Z

TEST(RKVIABMacrosTest, TimestampsPlayheadsCacheBustersAndUnknownFacts) {
  EXPECT_EQ(RKVIABMacros::timestamp(kDate, minutes(-300)), "2016-01-17T08:15:07.127-05:00");
  EXPECT_EQ(RKVIABMacros::timestamp(kDate, minutes(11 * 60)), "2016-01-18T00:15:07.127+11:00");
  EXPECT_EQ(RKVIABMacros::timestamp(kDate - minutes(13 * 60 + 45) + std::chrono::microseconds(999),
                                    minutes(0)),
            "2016-01-16T23:30:07.127+00:00");
  EXPECT_EQ(RKVIABMacros::timestamp(kDate, minutes(330)), "2016-01-17T18:45:07.127+05:30");
  const std::pair<double, std::optional<std::string>> playheads[] = {
      {11.355, "00:00:11.355"},  {3725.5, "01:02:05.500"}, {59.9996, "00:01:00.000"},
      {360000, "100:00:00.000"}, {-0.5, std::nullopt},     {NAN, std::nullopt}};
  for (const auto& [seconds, expected] : playheads)
    EXPECT_EQ(RKVIABMacros::playhead(seconds), expected) << seconds;
  EXPECT_EQ(RKVIABMacros::cacheBusting(412345), "00412345");
  EXPECT_EQ(RKVIABMacros::cacheBusting(4294967294u), "94967294");
  EXPECT_EQ(RKVIABMacros::cacheBusting().find_first_not_of("0123456789"), std::string::npos);
  EXPECT_EQ(RKVIABMacros::percentEncode("az09-_.!~*'() #&+,/:;=?@[]%\xC3\xA9"),
            "az09-_.!~*'()%20%23%26%2B%2C%2F%3A%3B%3D%3F%40%5B%5D%25%C3%A9");

  // Unknown facts are marked as the frameworks say.
  auto unknown = RKVIABMacros::macrosWithFacts({}, kDate, minutes(0));
  EXPECT_EQ(unknown.count("ERRORCODE"), 0u);
  for (const char* name : {"ADPLAYHEAD", "CONTENTPLAYHEAD", "MEDIAPLAYHEAD", "LIMITADTRACKING",
                           "IFA", "IFATYPE", "GDPRCONSENT", "APPBUNDLE", "DEVICEUA", "DEVICEIP"})
    EXPECT_EQ(unknown[name], "-1") << name;
  EXPECT_EQ(unknown["GDPR"], "");
  EXPECT_EQ(unknown["US_PRIVACY"], "");
  EXPECT_EQ(unknown["CACHEBUSTING"].size(), 8u);
}

using RKVIABMacrosTrackingTest = RKVTrackingTest;

TEST_F(RKVIABMacrosTrackingTest, FilledTemplatesParseAndCarryTheValues) {
  auto tracking = manager<RKVTrackingEventManager>(
      {event("start",
             "ts=[TIMESTAMP]&ua=[DEVICEUA]&ap=[ADPLAYHEAD]&mp=[MEDIAPLAYHEAD]&lat=["
             "LIMITADTRACKING]&ifa=[IFA]&it=[IFATYPE]&g=[GDPR]&c=[GDPRCONSENT]&us=[US_"
             "PRIVACY]&b=[APPBUNDLE]&e=[ERRORCODE]")});
  // clang-format off
  RKVIABMacroFacts facts{.ifa = "6d92078a-8246-4ba4-ae5b-76104861e7dc", .ifaType = "rida",
                         .limitAdTracking = true, .gdprApplies = true, .gdprConsent = "CPXx-Rf_A",
                         .usPrivacy = "1YNN", .appBundle = "com.example.tv",
                         .deviceUserAgent = "Box/1.0 (a&b=c; d)", .adPlayhead = 2.0, .contentPlayhead = 321.1234, .errorCode = std::nullopt};
  // clang-format on
  tracking.setMacros(RKVIABMacros::macrosWithFacts(facts, kDate, minutes(60)));
  ASSERT_TRUE(tracking.trackEvent("start", {}));

  auto sent = sentTargets();
  ASSERT_EQ(sent.size(), 1u);
  std::map<std::string, std::optional<std::string>> items;
  for (const auto& item : RKVURL::withString("http://h" + sent[0])->queryItems())
    items[item.name] = item.value;
  // clang-format off
  EXPECT_EQ(items, (std::map<std::string, std::optional<std::string>>{
      {"ts", "2016-01-17T14:15:07.127+01:00"}, {"ua", "Box/1.0 (a&b=c; d)"}, {"ap", "00:00:02.000"},
      {"mp", "00:05:21.123"}, {"lat", "1"}, {"ifa", "6d92078a-8246-4ba4-ae5b-76104861e7dc"}, {"it", "rida"},
      {"g", "1"}, {"c", "CPXx-Rf_A"}, {"us", "1YNN"}, {"b", "com.example.tv"},
      {"e", "[ERRORCODE]"}}));  // not an error pixel: left for its owner
  // clang-format on
}

}  // namespace
}  // namespace rkv::test
