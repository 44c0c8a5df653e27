// The VAST manager, and the VAST pixels, against real HTTP servers on 127.0.0.1.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/RKVURLSessionProviderProtocol.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/vast/RKVVASTManager.h"
#include "rkv/vast/RKVVASTPixelManager.h"
#include "rkv/vast/RKVVASTTrackingEventFactory.h"
#include "rkv/vast/errors/RKVVASTErrorCodes.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestThreads.h"
#include "tests/support/RKVTestVASTDocuments.h"
#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::inlineAd;
using test::RKVTestAd;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using test::url;
using test::vastXML;
using test::wrapperAd;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Behavior = test::RKVTestServerBehavior;
using Lines = std::vector<std::string>;

// The shared executor joins threads that retired after their idle time only at its next task;
// shutting it down after the last test joins them before exit, as a host may.
struct JoinTheSharedExecutor : ::testing::Environment {
  void TearDown() override { RKVBackgroundExecutor::sharedInstance().shutdown(); }
};
const auto* const kJoinTheSharedExecutor =
    ::testing::AddGlobalTestEnvironment(new JoinTheSharedExecutor);

const std::string kNoMoreAds = "10005 No more ads available.";
const std::string kNoMorePassback = "10007 No more Passback.";
const std::string kIncomplete = "10006 Passback resolution incomplete.";

class HandedOutAd : public RKVConsumableVideoAd {
 public:
  explicit HandedOutAd(std::shared_ptr<RKVVASTAd> vastAd) : ad(std::move(vastAd)) {}
  std::shared_ptr<RKVVASTAd> ad;
};

class PassThroughAdapter : public RKVVASTManagerAdapter {
 public:
  std::shared_ptr<RKVConsumableVideoAd> convertVASTAdToConsumableVideoAd(
      const std::shared_ptr<RKVVASTAd>& ad) override {
    if (throws) throw std::runtime_error("adapter failure");
    return std::make_shared<HandedOutAd>(ad);
  }
  std::atomic<bool> throws{false};
};

std::string joined(const Lines& lines, const std::string& separator = " | ") {
  std::string text;
  for (const auto& line : lines)
    text += (text.empty() ? "" : separator) + line;
  return text;
}

std::string urls(const std::vector<RKVVASTURL>& list) {
  return joined(test::urlTexts(list), " ");
}

// Every delegate call as one line: "ready", "failed <code>", "start <ad id>", "fail <ad id>",
// "error <name> [<error URLs>] text|-"; the lines joined by " | ", in order or sorted (for calls
// made from parallel tasks).
class RecordingDelegate : public RKVVASTManagerDelegate {
 public:
  void vastManagerIsReadyToProvideAds() override { add("ready"); }
  void vastManagerDidFailWithError(const std::optional<RKVError>& error) override {
    add("failed " + (error ? std::to_string(error->code) : std::string("-")));
  }
  void didEncounterError(RKVVASTManager&, const RKVVASTError& error,
                         const std::vector<RKVVASTURL>& errorURLs,
                         const std::optional<std::string>& text) override {
    add("error " + error.errorName().value_or("?") + " [" + urls(errorURLs) + "] " +
        (text ? "text" : "-"));
  }
  void didStartToResolveWrapperAd(RKVVASTManager& manager,
                                  const std::shared_ptr<RKVVASTAd>& ad) override {
    add("start " + ad->adID().value_or("?"));
    if (onStart) onStart(manager);
  }
  void didFailToResolveWrapperAd(RKVVASTManager&, const std::shared_ptr<RKVVASTAd>& ad) override {
    add("fail " + ad->adID().value_or("?"));
  }

  std::string calls(bool sorted = false) const {
    std::lock_guard lock(mutex_);
    Lines lines = calls_;
    if (sorted) std::sort(lines.begin(), lines.end());
    return joined(lines);
  }
  std::function<void(RKVVASTManager&)> onStart;

 private:
  void add(std::string line) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(line));
  }
  mutable std::mutex mutex_;
  Lines calls_;
};

// "<ad id>/<wrapper depth>" for an ad, "<code> <description>" for an error.
std::string answer(const RKVVASTManagerResponse& response) {
  if (auto handed = std::dynamic_pointer_cast<HandedOutAd>(response.ad())) {
    EXPECT_FALSE(response.error());
    return handed->ad->adID().value_or("?") + "/" + std::to_string(handed->ad->wrapperDepth());
  }
  if (!response.error()) return "neither ad nor error";
  EXPECT_TRUE(RKVVASTErrorCodes::isInDomain(*response.error())) << response.error()->domain;
  return std::to_string(response.error()->code) + " " +
         response.error()->localizedDescription.value_or("");
}

// Every answer up to and including the first error.
std::string drain(RKVVASTManager& manager, bool dueToAdFailure = false) {
  Lines answers;
  for (int i = 0; i < 20; ++i) {
    RKVVASTManagerResponse response = manager.nextAdWithTimeout(5.0, dueToAdFailure);
    answers.push_back(answer(response));
    if (!response.ad()) break;
  }
  return joined(answers);
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

size_t logged(const test::RKVLogCapture& log, const std::string& prefix) {
  return std::ranges::count_if(log.debugMessages(),
                               [&](const std::string& m) { return m.starts_with(prefix); });
}

// One level of a wrapper chain: `creatives` linear creatives of `events` start events each, with
// the URLs http://t.example/<id>/<creative>/<event>; a wrapper follows `adTag`, an inline ad
// carries a media file in every creative.
std::string levelXML(const std::string& id, const std::string& adTag, int creatives, int events) {
  const bool wrapper = !adTag.empty();
  const std::string kind = wrapper ? "Wrapper" : "InLine";
  std::string xml = "<?xml version=\"1.0\"?><VAST version=\"3.0\"><Ad id=\"" + id + "\"><" + kind +
                    "><AdSystem>s</AdSystem><AdTitle>" + id + "</AdTitle>";
  if (wrapper) xml += "<VASTAdTagURI><![CDATA[" + adTag + "]]></VASTAdTagURI>";
  xml += "<Impression>http://i.example/" + id + "</Impression><Creatives>";
  for (int c = 0; c < creatives; ++c) {
    xml += "<Creative><Linear><Duration>00:00:15</Duration><TrackingEvents>";
    for (int e = 0; e < events; ++e) {
      xml += "<Tracking event=\"start\">http://t.example/" + id + "/" + std::to_string(c) + "/" +
             std::to_string(e) + "</Tracking>";
    }
    xml += "</TrackingEvents>";
    if (!wrapper) {
      xml += "<MediaFiles><MediaFile type=\"video/mp4\">http://m.example/" + id + "/" +
             std::to_string(c) + ".mp4</MediaFile></MediaFiles>";
    }
    xml += "</Linear></Creative>";
  }
  return xml + "</Creatives></" + kind + "></Ad></VAST>";
}

// The URL of every tracking event of the creative, in order.
Lines eventURLs(const RKVVASTCreative& creative) {
  Lines urls;
  for (const auto& event : creative.trackingEvents())
    urls.push_back(event->url().absoluteString());
  return urls;
}

class RKVVASTManagerTest : public ::testing::Test {
 protected:
  // A manager that has read a root document of these ads, with a fresh delegate.
  std::unique_ptr<RKVVASTManager> managerOver(const std::vector<RKVTestAd>& ads,
                                              RKVVASTManagerConfig config = {}) {
    delegate_ = std::make_shared<RecordingDelegate>();
    auto manager = std::make_unique<RKVVASTManager>(delegate_, adapter_, session_, config);
    if (!ads.empty()) manager->createAdsStoreWithXML(vastXML(ads), std::nullopt, 5.0);
    return manager;
  }
  void serve(const std::string& path, const std::vector<RKVTestAd>& ads,
             std::chrono::milliseconds delay = 0ms) {
    server_.setRoute(path, RKVTestRoute::answer(200, vastXML(ads), delay));
  }
  std::string url(const std::string& path) const { return server_.url(path); }
  RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSession> session_ = test::testSession();
  std::shared_ptr<RecordingDelegate> delegate_;
  std::shared_ptr<PassThroughAdapter> adapter_ = std::make_shared<PassThroughAdapter>();
  const std::string closed_ =
      "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort()) + "/vast";
};

TEST_F(RKVVASTManagerTest, ConfigAndErrorCodesWhereTheyArise) {
  // Without a delegate (or after cancel) or without an adapter, nothing but a log line.
  for (int missing = 0; missing < 3; ++missing) {
    test::RKVLogCapture log;
    auto delegate = std::make_shared<RecordingDelegate>();
    RKVVASTManager manager(missing == 0 ? nullptr : delegate, missing == 1 ? nullptr : adapter_,
                           session_, {});
    if (missing == 2) manager.cancel();
    manager.createAdsStoreWithXML(vastXML({inlineAd("a")}), std::nullopt, 5.0);
    EXPECT_EQ(log.debugMessages(), Lines{std::string("VAST Manager cannot work without its ") +
                                         (missing == 1 ? "adapter" : "delegate") + " set!"});
    EXPECT_EQ(delegate->calls(), "");
    EXPECT_EQ(answer(manager.nextAdWithTimeout(5.0, false)), "10004 Unable to create VAST Model.");
  }

  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  auto manager = managerOver({}, {1.0, 5, false, false});
  manager->createAdsStoreWithXML(std::nullopt, std::nullopt, 5.0);
  manager->createAdsStoreWithXML(std::nullopt, RKVURL::withString(closed_), 5.0);
  // The root document's download is bounded by the time-out it is given.
  const auto start = std::chrono::steady_clock::now();
  manager->createAdsStoreWithXML(std::nullopt, RKVURL::withString(url("/silent")), 1.0);
  EXPECT_LE(secondsSince(start), 2.0);  // the time-out, and a margin only a hang exceeds
  manager->createAdsStoreWithXML(vastXML({inlineAd("a"), inlineAd("b")}), std::nullopt, 5.0);
  EXPECT_EQ(delegate_->calls(),
            "failed 10002 | error VAST_WRAPPER_ERROR_FETCH [] - | failed 10003 | "
            "error VAST_WRAPPER_ERROR_FETCH_TIMEOUT [] - | failed 301 | ready");
  // A time-out of zero or less is refused even while ads remain.
  EXPECT_EQ(answer(manager->nextAdWithTimeout(0.0, true)), "10001 VASTManager Timeout.");
  EXPECT_EQ(drain(*manager), "a/0 | " + kNoMoreAds);
  EXPECT_EQ(drain(*manager, true), "b/0 | " + kNoMorePassback);
  const RKVVASTParserResponse notAWrapper =
      manager->resolveWrapper(manager->mainAdsStore().at(0), 5.0, nullptr);
  EXPECT_FALSE(notAWrapper.model());
  EXPECT_EQ(notAWrapper.error(),
            RKVError(std::string(RKVVASTErrorCodes::Domain), 10008, "No ad available."));
}

// The root document's w0, then /c1 ... /c5 answer the wrappers w1 ... w5 and /c6 the inline ad,
// which has no title; every level carries its impression, error and start pixels.
TEST_F(RKVVASTManagerTest, ChainsAreMergedUpToTheWrapperLimitPassbacksGoOneLevelDeeper) {
  const std::vector<std::string> levels = {"w0", "w1", "w2", "w3", "w4", "w5", "i"};
  auto level = [&](size_t n) {
    RKVTestAd ad = n < 6 ? wrapperAd(levels[n], url("/c" + std::to_string(n + 1))) : inlineAd("i");
    ad.hasTitle = n < 6;
    ad.impressions = {"http://imp.example/" + ad.id};
    ad.errors = {"http://err.example/" + ad.id};
    ad.starts = {"http://start.example/" + ad.id};
    return ad;
  };
  for (size_t n = 1; n <= 6; ++n)
    serve("/c" + std::to_string(n), {level(n)});
  // The pixels of levels `from` down to w0, as merged lists hold them.
  auto pixels = [&](const std::string& kind, size_t from) {
    std::string text;
    for (size_t n = from + 1; n-- > 0;)
      text += (text.empty() ? "" : " ") + ("http://" + kind + ".example/" + levels[n]);
    return text;
  };
  const std::string refused = " | error VAST_WRAPPER_ERROR_LIMIT_REACHED [";
  EXPECT_EQ(drain(*managerOver({level(0)}, {5.0, 0, false, false})), kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready" + refused + pixels("err", 0) + "] -");
  // The main path refuses the wrapper at depth 5, the passback path still fetches its ad.
  EXPECT_EQ(drain(*managerOver({level(0)}, {5.0, 5, false, false})), kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready | start w0" + refused + pixels("err", 5) + "] -");
  EXPECT_EQ(server_.requestCount("/c6"), 0u);
  auto passbackPath = managerOver({inlineAd("main"), level(0)}, {5.0, 5, false, false});
  EXPECT_EQ(drain(*passbackPath), "main/0 | " + kNoMoreAds);
  EXPECT_EQ(drain(*passbackPath, true), "i/6 | " + kNoMorePassback);
  // An error without a VAST code fires the pixels on the passback path only.
  EXPECT_EQ(delegate_->calls(), "ready | start w0 | error VAST_VALIDATION_ERROR_MISSING_ADTITLE [" +
                                    pixels("err", 6) + "] text");

  // Under a higher limit the main path merges every level; only the root's wrapper is announced.
  auto manager = managerOver({level(0)}, {5.0, 6, false, false});
  RKVVASTManagerResponse response = manager->nextAdWithTimeout(5.0, false);
  ASSERT_EQ(answer(response), "i/6");
  const RKVVASTAd& ad = *std::dynamic_pointer_cast<HandedOutAd>(response.ad())->ad;
  EXPECT_EQ(urls(ad.impressions()), pixels("imp", 6));
  EXPECT_EQ(urls(ad.errorPixels()), pixels("err", 6));
  EXPECT_EQ(joined(eventURLs(*ad.linearCreatives().at(0)), " "), pixels("start", 6));
  EXPECT_EQ(delegate_->calls(),
            "ready | start w0 | error VAST_VALIDATION_ERROR_MISSING_ADTITLE [] text");
  EXPECT_EQ(server_.requestCount("/c6"), 2u);  // once per path that reached it
}

// The ways a wrapper's fetch can fail, each bounded by the time-out (plus 10 %) and reported
// with the wrapper's error URLs. Other transport errors (an untrusted certificate, a redirect to
// another scheme, a body without end, a server that drips) map to the same report: the HTTP
// session's and the tool's tests tell them apart.
TEST_F(RKVVASTManagerTest, FailedAndRefusedWrappersReachTheDelegateWithinTheTimeOut) {
  RKVTestHTTPServer stalled;
  stalled.setStallConnections(true);
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({}, {"http://err.example/noad"})));
  server_.setRoute("/missing", RKVTestRoute::answer(404, vastXML({inlineAd("i404")})));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  RKVTestRoute slowLoop = RKVTestRoute::redirect("/slow-loop");
  slowLoop.delay = 300ms;
  server_.setRoute("/slow-loop", slowLoop);

  const std::string pixels = " [http://err.example/w] ";
  const std::string fetch = "start w | error VAST_WRAPPER_ERROR_FETCH" + pixels + "-";
  const std::string timedOut = "start w | error VAST_WRAPPER_ERROR_FETCH_TIMEOUT" + pixels + "-";
  struct Case {
    std::string adTag;
    std::string calls;  // after "ready"
    std::string answer = kNoMoreAds;
  };
  const Case cases[] = {
      {url("/noad"),
       "start w | error VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE [http://err.example/noad "
       "http://err.example/w] text | fail w"},
      {url("/missing"), "start w", "i404/1 | " + kNoMoreAds},  // the body of a 404 is read
      {url("/silent"), timedOut},
      {stalled.url("/stalled"), timedOut},
      {url("/slow-loop"), timedOut},  // redirects without end, each answer late
      {closed_, fetch},
      {"file:///etc/passwd", fetch},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.adTag);
    RKVTestAd wrapper = wrapperAd("w", c.adTag);
    wrapper.errors = {"http://err.example/w"};
    // A 2 s time-out leaves a loaded or sanitized machine time to answer; the bound is the
    // time-out plus a margin that only a fetch left unbounded exceeds.
    auto manager = managerOver({wrapper}, {2.0, 5, false, false});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(drain(*manager), c.answer);
    EXPECT_LE(secondsSince(start), 3.0);
    EXPECT_EQ(delegate_->calls(), "ready | " + c.calls);
  }
}

TEST_F(RKVVASTManagerTest, PassbackWrappersResolveInParallelAndLaterResultsWaitTheirTurn) {
  const auto delay = 1000ms;
  std::vector<RKVTestAd> ads = {inlineAd("main")};
  for (const std::string n : {"1", "2", "3", "4"}) {
    serve("/slow" + n, {inlineAd("s" + n)}, delay);
    ads.push_back(wrapperAd("w" + n, url("/slow" + n)));
  }
  test::RKVLogCapture log;
  auto manager = managerOver(ads);
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, false)), "main/0");

  const auto start = std::chrono::steady_clock::now();
  const std::string first = answer(manager->nextAdWithTimeout(5.0, true));
  EXPECT_LT(secondsSince(start), 2 * std::chrono::duration<double>(delay).count())
      << "four fetches of " << delay.count() << " ms each ran one after the other";
  ASSERT_EQ(first.size(), 4u) << first;  // "s<n>/1"

  // The three results that lost the race wait in the inline passback store, each handed out once.
  ASSERT_TRUE(test::eventually([&] { return logged(log, "Resolved wrapper ad: ") == 4; }));
  Lines answers = {first};
  for (auto response = manager->nextAdWithTimeout(5.0, true); response.ad();
       response = manager->nextAdWithTimeout(5.0, true))
    answers.push_back(answer(response));
  std::sort(answers.begin(), answers.end());
  EXPECT_EQ(joined(answers), "s1/1 | s2/1 | s3/1 | s4/1");
  EXPECT_EQ(delegate_->calls(true), "ready | start w1 | start w2 | start w3 | start w4");
}

TEST_F(RKVVASTManagerTest, ADelegateMayCancelFromItsCallbackOrOutliveTheManager) {
  RKVTestAd late = inlineAd("late");
  late.hasTitle = false;  // reported when read
  serve("/late", {late}, 500ms);
  serve("/untitled", {late});
  serve("/fast", {inlineAd("fast")});
  {
    test::RKVLogCapture log;
    auto manager = managerOver(
        {inlineAd("main"), wrapperAd("w1", url("/fast")), wrapperAd("w2", url("/late"))});
    EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
    EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), "fast/1");
    ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/late") == 1; }));
    manager.reset();  // while /late is still being fetched
    ASSERT_TRUE(test::eventually([&] { return logged(log, "Resolved wrapper ad: late") == 1; }));
  }
  EXPECT_EQ(delegate_->calls(true), "ready | start w1 | start w2");

  auto manager = managerOver({});
  delegate_->onStart = [](RKVVASTManager& cancelled) { cancelled.cancel(); };
  manager->createAdsStoreWithXML(vastXML({wrapperAd("w", url("/untitled"))}), std::nullopt, 5.0);
  EXPECT_EQ(drain(*manager), "late/1 | " + kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready | start w") << "no report of the missing title";
}

// One passback wrapper fails fast, the other answers late. The fast failure is the end of the
// last wrapper to be taken up, so the caller is woken with an empty slot; the late result then
// finds the slot empty and is consumed into it, and nobody hands it out afterwards.
TEST_F(RKVVASTManagerTest, AResultAfterTheCallerWasWokenEmptyGoesIntoTheSlotNobodyReads) {
  server_.setRoute("/fails", RKVTestRoute::answer(200, vastXML({}), 300ms));
  serve("/slow", {inlineAd("slow")}, 1500ms);
  auto manager =
      managerOver({inlineAd("main"), wrapperAd("f", url("/fails")), wrapperAd("s", url("/slow"))});
  EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kNoMorePassback);
  ASSERT_TRUE(test::eventually([&] {
    const RKVVASTManager::Ads store = manager->inlinePassbackAdsStore();
    return store.size() == 1 && store[0]->hasBeenConsumed();
  })) << "the late result was left unconsumed for a later call";
  EXPECT_EQ(drain(*manager, true), kNoMorePassback);
  EXPECT_EQ(delegate_->calls(true),
            "error VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE [] text | ready | start f | start s");
}

TEST_F(RKVVASTManagerTest, AskingWhileAPassbackResolvesAndCancellingDuringADelegateCall) {
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({})));
  auto manager = managerOver({inlineAd("main"), wrapperAd("w", url("/noad"))});
  EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
  test::RKVTestEvent entered;
  test::RKVTestEvent release;
  std::atomic<bool> callEnded{false};
  delegate_->onStart = [&](RKVVASTManager&) {  // on the passback task's thread
    entered.set();
    EXPECT_TRUE(release.wait());
    callEnded = true;
  };
  auto resolving =
      std::async(std::launch::async, [&] { return answer(manager->nextAdWithTimeout(5.0, true)); });
  ASSERT_TRUE(entered.wait());
  // Another request while the passback wrapper resolves does not wait for it.
  EXPECT_TRUE(manager->isResolvingPassbackWrappers());
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kIncomplete);
  auto cancelling = std::async(std::launch::async, [&] {
    manager->cancel();
    return callEnded.load();
  });
  std::this_thread::sleep_for(200ms);  // lets cancel reach its wait; not a bound on anything
  release.set();
  ASSERT_EQ(cancelling.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_TRUE(cancelling.get()) << "cancel returned while a delegate call was under way";
  ASSERT_EQ(resolving.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_EQ(resolving.get(), kNoMorePassback);
  // The errors of the wrapper's answer were met after cancel.
  EXPECT_EQ(delegate_->calls(), "ready | start w");
}

// On a passback task's thread an exception would end the process; it is logged once instead, and
// resolution goes on (an adapter that threw made nothing of its ad).
TEST_F(RKVVASTManagerTest, ADelegateOrAdapterThatThrowsIsLoggedOnceAndResolutionGoesOn) {
  serve("/p", {inlineAd("p")});
  struct Case {
    bool delegateThrows;
    std::string answers;
    std::string logged;
  };
  const Case cases[] = {
      {true, "p/1 | " + kNoMorePassback,
       "RKVVASTManagerDelegate::didStartToResolveWrapperAd threw (delegate failure); the "
       "exception was dropped."},
      {false, kNoMorePassback,
       "RKVVASTManagerAdapter::convertVASTAdToConsumableVideoAd threw (adapter failure); the "
       "exception was dropped."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.logged);
    auto manager = managerOver({inlineAd("main"), wrapperAd("w", url("/p"))});
    EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
    test::RKVLogCapture log;
    if (c.delegateThrows) {
      delegate_->onStart = [](RKVVASTManager&) { throw std::runtime_error("delegate failure"); };
    }
    adapter_->throws = !c.delegateThrows;
    EXPECT_EQ(drain(*manager, true), c.answers);
    adapter_->throws = false;
    EXPECT_EQ(log.errorMessages(), Lines{c.logged});
    EXPECT_EQ(delegate_->calls(), "ready | start w");
  }
}

TEST_F(RKVVASTManagerTest, ADeadlineBoundsARequestThatWaitsForPassbackWrappers) {
  RKVVASTManagerConfig config(30.0, 5, false, false);
  EXPECT_FALSE(config.adRequestDeadline()) << "off by default";
  const std::string description = config.description();
  constexpr double kDeadline = 1.0;
  config.setAdRequestDeadline(kDeadline);
  EXPECT_EQ(config.description(), description);

  server_.setRoute("/silent", RKVTestRoute::misbehaving(Behavior::NeverAnswer));
  auto manager = managerOver(
      {inlineAd("main"), wrapperAd("w1", url("/silent")), wrapperAd("w2", url("/silent"))}, config);
  EXPECT_EQ(drain(*manager), "main/0 | " + kNoMoreAds);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kIncomplete);
  EXPECT_GE(secondsSince(start), kDeadline);
  EXPECT_LT(secondsSince(start), kDeadline + 2.0) << "the fetches take 30 s";
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), kIncomplete);
  // Destruction does not wait for the fetches either.
  manager.reset();
  EXPECT_LT(secondsSince(start), kDeadline + 2.0);
  EXPECT_EQ(server_.requestCount("/silent"), 2u);
}

// A transport that keeps every completion and never calls it.
class NeverCompletingProvider : public RKVURLSessionProviderProtocol {
 public:
  std::shared_ptr<RKVURLSessionTask> dataRequest(const RKVURLRequest& /*request*/,
                                                 RKVURLSessionCompletion completion) override {
    std::lock_guard lock(mutex_);
    kept_.push_back(std::move(completion));
    return std::make_shared<RKVURLSessionTask>();
  }
  // Destroys the completions uncalled, which ends any wait for them.
  void forget() {
    std::vector<RKVURLSessionCompletion> kept;
    std::lock_guard lock(mutex_);
    kept.swap(kept_);
  }

 private:
  std::mutex mutex_;
  std::vector<RKVURLSessionCompletion> kept_;
};

TEST_F(RKVVASTManagerTest, ATransportThatNeverCompletesDoesNotHangARequestForAnAd) {
  auto provider = std::make_shared<NeverCompletingProvider>();
  session_ = std::make_shared<RKVURLSession>(provider);
  std::shared_ptr<RKVVASTManager> manager =
      managerOver({wrapperAd("w", closed_)}, {1.0, 5, false, false});
  // On a thread of its own, so that a hang fails the test instead of stalling the suite.
  auto answered = std::make_shared<std::promise<std::string>>();
  std::future<std::string> answer_ = answered->get_future();
  std::thread([manager, answered] {
    answered->set_value(answer(manager->nextAdWithTimeout(5.0, false)));
  }).detach();
  const bool ended = answer_.wait_for(test::kHangGuard) == std::future_status::ready;
  provider->forget();  // ends the wait, had it hung
  ASSERT_TRUE(ended) << "the request for an ad waits for a completion that never comes";
  EXPECT_EQ(answer_.get(), kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), "ready | start w | error VAST_WRAPPER_ERROR_FETCH_TIMEOUT [] -");
}

// Five wrappers of 20 linear creatives with 20 events each, then an inline ad of the same shape.
// Pouring every creative's list into every creative at every level would grow by a factor of 20
// a level (beyond 2 GB at the fifth); merged without duplicates and under the ceiling, the chain
// costs little and the ad holds each event at most once per creative.
TEST_F(RKVVASTManagerTest, AChainBuiltToGrowStaysBounded) {
  constexpr int kCreatives = 20;
  constexpr int kEvents = 20;
  const std::vector<std::string> levels = {"w1", "w2", "w3", "w4", "w5", "i"};
  for (size_t n = 1; n < levels.size(); ++n) {
    const std::string next = n + 1 < levels.size() ? server_.url("/" + levels[n + 1]) : "";
    server_.setRoute("/" + levels[n],
                     RKVTestRoute::answer(200, levelXML(levels[n], next, kCreatives, kEvents)));
  }
  test::RKVLogCapture log;
  rusage before{};
  getrusage(RUSAGE_SELF, &before);

  auto manager = managerOver({}, {10.0, 5, false, false});
  manager->createAdsStoreWithXML(levelXML("w1", server_.url("/w2"), kCreatives, kEvents),
                                 std::nullopt, 10.0);
  RKVVASTManagerResponse response = manager->nextAdWithTimeout(10.0, false);

  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  // A few MB are expected; the unbounded merge needs gigabytes.
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 256 * 1024) << "kilobytes";
  ASSERT_EQ(answer(response), "i/5");
  const auto ad = std::dynamic_pointer_cast<HandedOutAd>(response.ad())->ad;
  ASSERT_EQ(ad->linearCreatives().size(), static_cast<size_t>(kCreatives));

  // No creative holds an event twice; the ad holds its own events and at most the ceiling more.
  size_t held = 0;
  std::set<std::string> urls;
  for (const auto& creative : ad->linearCreatives()) {
    const Lines own = eventURLs(*creative);
    EXPECT_EQ(std::set<std::string>(own.begin(), own.end()).size(), own.size());
    held += own.size();
    urls.insert(own.begin(), own.end());
  }
  const size_t own = kCreatives * kEvents;
  EXPECT_EQ(ad->mergedEntryCount(), RKVVASTAd::kMaximumMergedEntries);
  EXPECT_EQ(held + ad->impressions().size(), own + 1 + RKVVASTAd::kMaximumMergedEntries);
  // Every level's impression, and the events nearest the ad, come first and are kept: the last
  // wrapper's first creative reaches the ad's first creative in its order.
  EXPECT_EQ(ad->impressions().size(), levels.size());
  const Lines first = eventURLs(*ad->linearCreatives()[0]);
  ASSERT_GE(first.size(), static_cast<size_t>(2 * kEvents));
  for (int e = 0; e < kEvents; ++e)
    EXPECT_EQ(first[kEvents + e], "http://t.example/w5/0/" + std::to_string(e));
  EXPECT_TRUE(urls.contains("http://t.example/w1/0/0"));
  // One warning for each ad that reached the ceiling, naming it and the wrapper merged into it.
  Lines warnings;
  for (size_t n = 1; n < levels.size(); ++n) {
    warnings.push_back("Merging wrapper ad '" + levels[n - 1] + "' into ad '" + levels[n] +
                       "': the ad reached its ceiling of 5000 merged entries; the rest of what "
                       "the wrapper brings is dropped.");
  }
  EXPECT_EQ(log.messages(3), warnings);
}

// The VAST tracking event factory's offsets and the VAST error pixels, sent through a pixel
// manager to a loopback server.
std::shared_ptr<RKVVASTTrackingEvent> event(const std::string& name,
                                            std::optional<std::string> offset = std::nullopt) {
  return std::make_shared<RKVVASTTrackingEvent>(name, std::move(offset),
                                                url("http://t.example/" + name));
}

TEST(RKVVASTTrackingEventFactoryTest, OffsetsFromNamesAndAttributes) {
  struct Case {
    std::string name;
    std::optional<std::string> offset;
    double expected;  // for a content of 30 s
  };
  // A clock offset or a percentage wins over the name; an offset of no known kind leaves the
  // name's; "pause" is fired by the player, not by time.
  // clang-format off
  const std::vector<Case> cases = {
      {"start", std::nullopt, 0}, {"firstQuartile", std::nullopt, 7.5},
      {"midpoint", std::nullopt, 15}, {"thirdQuartile", std::nullopt, 22.5},
      {"complete", std::nullopt, 30}, {"midpoint", "00:00:05", 5}, {"midpoint", "10%", 3},
      {"midpoint", "soon", 15}, {"progress", "00:01:02.500", 62.5}, {"pause", std::nullopt, -1}};
  // clang-format on
  std::vector<std::shared_ptr<RKVVASTTrackingEvent>> events = {nullptr};  // left out
  for (const Case& c : cases) {
    events.push_back(event(c.name, c.offset));
    events.back()->setEventOffset(123);  // whatever it was, it is recomputed
  }
  RKVVASTTrackingEventFactory factory(events, 30);
  const auto tracking = factory.trackingEvents();
  ASSERT_EQ(tracking.size(), cases.size());
  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].name + " " + cases[i].offset.value_or("-"));
    EXPECT_EQ(tracking[i], events[i + 1]);  // the same objects, in order, changed in place
    EXPECT_DOUBLE_EQ(events[i + 1]->eventOffset(), cases[i].expected);
  }
  // Without a content length there is no share of it.
  RKVVASTTrackingEventFactory unknownLength({event("midpoint")}, 0);
  EXPECT_DOUBLE_EQ(unknownLength.events()[0]->eventOffset(), -1);
}

// A pixel manager that notes each pixel handed to addPixel, as a host watching the queue would.
struct WatchedPixelManager : RKVPixelManager {
  using RKVPixelManager::RKVPixelManager;
  bool addPixel(const RKVPixel& pixel) override {
    added.push_back(pixel.url().absoluteString());
    return RKVPixelManager::addPixel(pixel);
  }
  Lines added;
};

// A VAST pixel manager over a pixel manager whose store lives in memory.
struct VASTPixels {
  std::shared_ptr<WatchedPixelManager> manager = std::make_shared<WatchedPixelManager>(
      std::make_shared<RKVPixelStore>(std::make_shared<RKVPixelStoreProvider>(
          std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>()),
          "test")),
      test::testSession());
  RKVVASTPixelManager vast{manager};

  // Waits until the rounds requested so far have ended (rounds run one after the other).
  void waitForRounds() {
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    manager->callPixelsWithCompletionHandler([done] { done->set_value(); });
    ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  }
};

TEST(RKVVASTPixelManagerTest, ErrorPixelsCarryTheCodeOrAreNotCalled) {
  RKVTestHTTPServer server;
  server.setRoute("/error", RKVTestRoute::answer(200, ""));
  server.setRoute("/other", RKVTestRoute::answer(204, ""));
  VASTPixels pixels;
  test::RKVLogCapture capture;
  pixels.vast.callVASTErrorPixels(std::vector{RKVVASTURL(url("http://t.example/e"))}, -1);
  pixels.vast.callVASTErrorPixels(std::vector<RKVVASTURL>{}, 402);
  pixels.vast.callVASTErrorPixels(std::nullopt, 900);
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
  EXPECT_THAT(capture.debugMessages(),
              ElementsAre("Error pixels cannot be called for error code: -1",
                          "No error pixels to call for error code: 402",
                          "No error pixels to call for error code: 900"));
  for (int64_t code : {301, -2}) {
    SCOPED_TRACE(code);
    pixels.vast.callVASTErrorPixels(
        std::vector{RKVVASTURL(url(server.url("/error?code=[ERRORCODE]&n=1"))),
                    RKVVASTURL(url(server.url("/other?c=%5BERRORCODE%5D")))},
        code);
    pixels.waitForRounds();
  }
  // The round each call requests sends its pixels, in order; the macro is found either way.
  const Lines sent = {"/error?code=301&n=1", "/other?c=301", "/error?code=-2&n=1", "/other?c=-2"};
  Lines targets, added;
  for (const auto& request : server.requests())
    targets.push_back(request.target);
  for (const std::string& target : sent)
    added.push_back(server.url(target));
  EXPECT_EQ(targets, sent);
  EXPECT_EQ(pixels.manager->added, added);
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
}

}  // namespace
}  // namespace rkv
