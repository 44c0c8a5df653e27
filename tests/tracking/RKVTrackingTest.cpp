// Tracking on a main loop over a manual clock: event managers, IAB macros, viewability.
#include <atomic>
#include <chrono>
#include <cmath>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/foundation/RKVNotificationCenter.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/platform/RKVApplication.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/tracking/RKVIABMacros.h"
#include "rkv/tracking/RKVSimpleView.h"
#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVTrackingEventManager.h"
#include "rkv/tracking/RKVTrackingEventManagerDelegate.h"
#include "rkv/tracking/RKVVideoTrackingEventManager.h"
#include "rkv/tracking/RKVViewabilityManager.h"
#include "rkv/tracking/RKVViewabilityTrackingEventManager.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"

namespace rkv::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Strings = std::vector<std::string>;

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
  RKVURL url(const std::string& path) const { return RKVURL::withString(server.url(path)).value(); }
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
  Strings sentTargets() {
    std::promise<void> done;
    pixelManager->callPixelsWithCompletionHandler([&] { done.set_value(); });
    done.get_future().wait();
    auto requests = server.requests();
    Strings targets;
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

TEST_F(RKVTrackingTest, TrackingByNameQueuesLastToFirstWithOneRoundPerCall) {
  // clang-format off
  const struct {
    const char* what;
    Strings tracked, sent;
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

TEST_F(RKVTrackingTest, FinalURLReplacesMacrosThenVariables) {
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
    const bool broken = expected == "macros" || expected == "variables";
    EXPECT_EQ(result.absoluteString(), broken ? templateURL.absoluteString() : expected);
    EXPECT_EQ(log.debugMessages(),
              broken
                  ? Strings{"Replacing " + expected + " in URL '" + templateURL.absoluteString() +
                            "' has resulted in a invalid URL! Using the original URL instead."}
                  : Strings{});
  }
}

// Each report fires the listed events (by label, /p?t=<label>), in that order, with one round.
TEST_F(RKVTrackingTest, VideoProgressFiresEachPassedEventOnceInOffsetOrder) {
  using Timed = std::tuple<const char*, double, const char*>;  // name, offset, label
  // clang-format off
  const std::vector<Timed> quartiles = {{"progress", 10, "b"}, {"firstQuartile", 5, "a"}, {"progress", 10, "c"}, {"complete", 15, "d"}};
  const struct {
    const char* what;
    std::vector<Timed> events;
    std::vector<std::pair<double, Strings>> reports;
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
    for (const auto& [name, offset, label] : c.events)
      events.push_back(event(name, std::string("t=") + label, offset));
    auto tracking = manager<RKVVideoTrackingEventManager>(events);
    for (const auto& [time, fired] : c.reports) {
      SCOPED_TRACE(time);
      delegate->calls.clear();
      tracking.playbackProgressedToTime(time, {});
      Strings expected;
      for (const auto& label : fired)
        expected.push_back("/p?t=" + label);
      EXPECT_EQ(sentTargets(), expected);
      EXPECT_EQ(rounds, fired.empty() ? 0 : 1);
      EXPECT_EQ(delegate->calls.size(), fired.size());  // one call, count 1, per event
    }
  }
}

TEST_F(RKVTrackingTest, VideoTrackingByTypeGoesByNameWhateverTheOffsets) {
  auto tracking = manager<RKVVideoTrackingEventManager>(
      {event("progress", "t=timed", 4), event("progress", "t=untimed"), event("pause", "t=p", 2)});
  tracking.trackVideoEvent(RKVVideoEventType::progress, {});
  tracking.trackVideoEvent(static_cast<RKVVideoEventType>(22), {});
  tracking.trackVideoEvent(RKVVideoEventType::pause, {});
  EXPECT_EQ(delegate->calls, (RKVDelegateCalls{{"progress", 2}, {"pause", 1}}));
  EXPECT_EQ(sentTargets(), (Strings{"/p?t=untimed", "/p?t=timed", "/p?t=p"}));

  // By time the consumable event, gone from the list, is refused; the other fires again.
  RKVLogCapture log;
  tracking.playbackProgressedToTime(5, {});
  EXPECT_TRUE(tracking.videoEvents().empty());
  EXPECT_EQ(sentTargets(), Strings{"/p?t=p"});
  EXPECT_EQ(log.debugMessages(), Strings{"Event tracking cancelled because the event was not "
                                         "contained in the events array: '" +
                                         server.url("/p?t=timed") + "'!"});
}

// A script, one token per step: S start, P stop, R reset, vN / nN a report viewable (v) or not
// (n) at N percent, t the next quarter-second tick, T a tick a second late, w a quarter second
// while stopped. A "*" marks the tick that fires the pixel.
TEST_F(RKVTrackingTest, ViewabilityContinuousExposureAtTheAreaFiresOnce) {
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
      if (step == "S")
        manager.startViewabilityTracking();
      else if (step == "P")
        manager.stopViewabilityTracking();
      else if (step == "R")
        manager.resetViewabilityTracking();
      else if (step[0] == 'v' || step[0] == 'n')
        manager.viewabilityUpdated(step[0] == 'v', std::stof(step.substr(1)));
      else
        clock->advance(step[0] == 'T' ? 1000ms : 250ms), loop->poll();
      fired += step.back() == '*' ? 1 : 0;
      ASSERT_EQ(delegate->calls, RKVDelegateCalls(fired, {"viewable", 1})) << step;
    }
    EXPECT_EQ(sentTargets(), Strings(fired, "/p"));
    EXPECT_EQ(manager.eventProgressionItems().size(), 1 - fired);
  }
}

const auto kDate =
    std::chrono::system_clock::time_point(1453036507127ms);  // 2016-01-17T13:15:07.127Z

TEST(RKVIABMacrosTest, TimestampsPlayheadsCacheBustersAndUnknownFacts) {
  EXPECT_EQ(RKVIABMacros::timestamp(kDate, -300min), "2016-01-17T08:15:07.127-05:00");
  EXPECT_EQ(RKVIABMacros::timestamp(kDate, 11h), "2016-01-18T00:15:07.127+11:00");
  EXPECT_EQ(RKVIABMacros::timestamp(kDate - 13h - 45min + 999us, 0min),
            "2016-01-16T23:30:07.127+00:00");
  EXPECT_EQ(RKVIABMacros::timestamp(kDate, 330min), "2016-01-17T18:45:07.127+05:30");
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
  auto unknown = RKVIABMacros::macrosWithFacts({}, kDate, 0min);
  EXPECT_EQ(unknown.count("ERRORCODE"), 0u);
  for (const char* name : {"ADPLAYHEAD", "CONTENTPLAYHEAD", "MEDIAPLAYHEAD", "LIMITADTRACKING",
                           "IFA", "IFATYPE", "GDPRCONSENT", "APPBUNDLE", "DEVICEUA", "DEVICEIP"})
    EXPECT_EQ(unknown[name], "-1") << name;
  EXPECT_EQ(unknown["GDPR"], "");
  EXPECT_EQ(unknown["US_PRIVACY"], "");
  EXPECT_EQ(unknown["CACHEBUSTING"].size(), 8u);
}

TEST_F(RKVTrackingTest, IABMacroTemplatesParseAndCarryTheValues) {
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
  tracking.setMacros(RKVIABMacros::macrosWithFacts(facts, kDate, 60min));
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

// The viewability manager.
using View = std::shared_ptr<RKVSimpleView>;
using Report = std::pair<bool, double>;

View makeView(double x, double y, double width, double height) {
  return std::make_shared<RKVSimpleView>(RKVRect{{x, y}, {width, height}});
}

struct RecordingDelegate : RKVViewabilityManagerDelegate {
  void viewableStatus(RKVViewabilityManager& manager, bool viewable, double percentage) override {
    reports.emplace_back(viewable, percentage);
    if (action) action(manager);
  }
  std::vector<Report> reports;
  std::function<void(RKVViewabilityManager&)> action;
};

class RKVViewabilityManagerTest : public RKVTrackingTest {
 protected:
  RKVViewabilityManagerTest() {
    window_->setRootView(root_);
    root_->addSubview(ad_);
  }

  std::unique_ptr<RKVViewabilityManager> makeManager(std::shared_ptr<RKVView> view) {
    return std::make_unique<RKVViewabilityManager>(view, delegate_, loop, application_);
  }
  // One measurement period later.
  void tick() {
    clock->advance(250ms);
    loop->poll();
  }

  RKVNotificationCenter center_;
  std::shared_ptr<RKVApplication> application_ = std::make_shared<RKVApplication>(center_);
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  // A screen-sized window at a screen offset, its root view filling it, an ad inside.
  View window_ = RKVSimpleView::makeWindow({{50, 20}, {1920, 1080}});
  View root_ = makeView(0, 0, 1920, 1080);
  View ad_ = makeView(100, 100, 400, 200);
};

TEST_F(RKVViewabilityManagerTest, VisibleFractionOfTheViewInsideTheRootView) {
  // The root view's frame in the window, the ad's frame in the root view, the fraction.
  const std::tuple<const char*, RKVRect, RKVRect, double> cases[] = {
      {"inside", {{0, 0}, {1920, 1080}}, {{100, 100}, {400, 200}}, 1.0},
      {"half off the right edge", {{0, 0}, {1920, 1080}}, {{1720, 0}, {400, 200}}, 0.5},
      {"a quarter in, bottom left", {{0, 0}, {1920, 1080}}, {{-200, 980}, {400, 200}}, 0.25},
      {"off screen", {{0, 0}, {1920, 1080}}, {{0, 2000}, {400, 200}}, 0.0},
      {"a smaller root view", {{100, 100}, {800, 600}}, {{600, 500}, {400, 200}}, 0.25},
  };
  auto manager = makeManager(ad_);
  for (const auto& [name, rootFrame, adFrame, expected] : cases) {
    root_->setFrame(rootFrame), ad_->setFrame(adFrame);
    EXPECT_DOUBLE_EQ(manager->viewabilityPercentage(), expected) << name;
  }

  // In a scrolled container: content from y 1000 on is shown at its top, so half the ad shows.
  root_->setFrame({{0, 0}, {1920, 1080}});
  View container = makeView(0, 0, 1920, 4000);
  container->setBoundsOrigin({0, 1000});
  root_->addSubview(container), container->addSubview(ad_);
  ad_->setFrame({{0, 900}, {400, 200}});
  EXPECT_DOUBLE_EQ(manager->viewabilityPercentage(), 0.5);
  EXPECT_EQ(ad_->convertPoint({10, 10}, nullptr), (RKVPoint{10, -90}));  // window coordinates

  // Nothing to measure against: in a window without a root view, or in no window at all.
  window_->setRootView(nullptr), window_->addSubview(ad_);
  EXPECT_EQ(manager->viewabilityPercentage(), 0.0);
  ad_->removeFromSuperview();
  EXPECT_EQ(manager->viewabilityPercentage(), 0.0);
  // A view of no area has no share at all.
  ad_->setFrame({{0, 0}, {0, 200}});
  EXPECT_TRUE(std::isnan(RKVViewabilityManager::viewPercentageOfView(*ad_, *root_)));
}

TEST_F(RKVViewabilityManagerTest, ViewableStatusIsAboutVisibilityNotTheFraction) {
  View container = makeView(0, 0, 1920, 1080);
  root_->addSubview(container);
  container->addSubview(ad_);
  const RKVRect offScreen{{5000, 0}, {400, 200}};
  const std::tuple<const char*, std::function<void()>, bool> cases[] = {
      {"visible", [] {}, true},
      {"off screen", [&] { ad_->setFrame(offScreen); }, true},
      {"hidden", [&] { ad_->setHidden(true); }, false},
      {"transparent", [&] { ad_->setAlpha(0); }, false},
      {"nearly transparent", [&] { ad_->setAlpha(0.01); }, true},
      {"hidden ancestor", [&] { container->setHidden(true); }, false},
      {"transparent window", [&] { window_->setAlpha(0); }, false},
      {"inactive", [&] { application_->setApplicationState(RKVApplicationStateInactive); }, false},
      {"application in the background",
       [&] { application_->setApplicationState(RKVApplicationStateBackground); }, false},
      {"not in any window", [&] { ad_->removeFromSuperview(); }, true},
  };
  for (const auto& [name, change, expected] : cases) {
    SCOPED_TRACE(name);
    ad_->setFrame({{100, 100}, {400, 200}}), ad_->setHidden(false), ad_->setAlpha(1);
    container->setHidden(false), window_->setAlpha(1), container->addSubview(ad_);
    application_->setApplicationState(RKVApplicationStateActive);
    change();
    EXPECT_EQ(makeManager(ad_)->isViewViewable(), expected);
  }
  // A view that is gone is not viewable.
  auto manager = makeManager(ad_);
  container->removeFromSuperview(), ad_.reset(), container.reset();
  EXPECT_FALSE(manager->isViewViewable());
  EXPECT_EQ(manager->viewabilityPercentage(), 0.0);
}

TEST_F(RKVViewabilityManagerTest, ReportsChangesEveryQuarterSecondAndMayBeDroppedWhileRunning) {
  auto manager = makeManager(ad_);
  manager->startViewabilityTracking();
  clock->advance(249ms), loop->poll();
  EXPECT_TRUE(delegate_->reports.empty());
  clock->advance(1ms), loop->poll();
  EXPECT_THAT(delegate_->reports, ElementsAre(Report{true, 1.0}));
  EXPECT_EQ(manager->lastViewabilityPercentage(), 1.0f);
  tick(), tick();  // unchanged: nothing reported
  ad_->setFrame({{1720, 0}, {400, 200}});
  tick();
  application_->setApplicationState(RKVApplicationStateInactive);
  tick(), tick();
  EXPECT_THAT(delegate_->reports,
              ElementsAre(Report{true, 1.0}, Report{true, 0.5}, Report{false, 0.5}));

  // Stopped: no timer, no report. Started again: the first tick reports what was known before.
  manager->stopViewabilityTracking();
  EXPECT_EQ(manager->timer(), nullptr);
  tick();
  EXPECT_EQ(delegate_->reports.size(), 3u);
  manager->startViewabilityTracking();
  EXPECT_FALSE(manager->lastViewabilityStatus().has_value());
  tick();
  EXPECT_EQ(delegate_->reports.size(), 4u);
  EXPECT_EQ(delegate_->reports.back(), (Report{false, 0.5}));

  // A fraction single precision cannot hold is reported on every tick.
  application_->setApplicationState(RKVApplicationStateActive);
  ad_->setFrame({{1920 - 400.0 / 3, 0}, {400, 200}});
  tick(), tick(), tick();
  EXPECT_EQ(delegate_->reports.size(), 7u);
  EXPECT_DOUBLE_EQ(delegate_->reports.back().second, 1.0 / 3);

  // Dropped while tracking, even by its own delegate: its running timer goes with it and says so.
  RKVLogCapture capture;
  manager.reset();
  EXPECT_THAT(capture.debugMessages(), ElementsAre(HasSubstr("being deallocated while running")));
  manager = makeManager(ad_);
  delegate_->action = [&](RKVViewabilityManager&) { manager.reset(); };
  manager->startViewabilityTracking();
  tick(), tick();
  EXPECT_EQ(manager, nullptr);
  EXPECT_EQ(delegate_->reports.size(), 8u);  // one more, for the second manager
  EXPECT_EQ(capture.debugMessages().size(), 2u);
}

}  // namespace
}  // namespace rkv::test
