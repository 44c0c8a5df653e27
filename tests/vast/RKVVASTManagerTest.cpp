// The VAST manager against real HTTP servers on 127.0.0.1.
#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/vast/RKVVASTManager.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestTLSServer.h"
#include "tests/support/RKVTestThreads.h"
#include "tests/support/RKVTestVASTDocuments.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::inlineAd;
using test::RKVTestAd;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using test::RKVTestServerBehavior;
using test::vastXML;
using test::wrapperAd;
using Calls = std::vector<std::string>;

const std::string kNoMoreAds = "10005 No more ads available.";
const std::string kNoMorePassback = "10007 No more Passback.";
constexpr size_t kResponseLimit = 1024 * 1024;

class HandedOutAd : public RKVConsumableVideoAd {
 public:
  explicit HandedOutAd(std::shared_ptr<RKVVASTAd> vastAd) : ad(std::move(vastAd)) {}
  std::shared_ptr<RKVVASTAd> ad;
};

class PassThroughAdapter : public RKVVASTManagerAdapter {
 public:
  std::shared_ptr<RKVConsumableVideoAd> convertVASTAdToConsumableVideoAd(
      const std::shared_ptr<RKVVASTAd>& ad) override {
    return std::make_shared<HandedOutAd>(ad);
  }
};

// Every delegate call as one line: "ready", "failed <code>", "start <ad id>", "fail <ad id>",
// "error <name> [<error URLs>] text|-".
class RecordingDelegate : public RKVVASTManagerDelegate {
 public:
  void vastManagerIsReadyToProvideAds() override { add("ready"); }
  void vastManagerDidFailWithError(const std::optional<RKVError>& error) override {
    add("failed " + (error ? std::to_string(error->code) : std::string("-")));
  }
  void didEncounterError(RKVVASTManager& /*manager*/, const RKVVASTError& error,
                         const std::vector<RKVVASTURL>& errorURLs,
                         const std::optional<std::string>& text) override {
    std::string line = "error " + error.errorName().value_or("?") + " [";
    for (size_t i = 0; i < errorURLs.size(); ++i)
      line += (i ? " " : "") + errorURLs[i].url().absoluteString();
    add(line + "] " + (text ? "text" : "-"));
  }
  void didStartToResolveWrapperAd(RKVVASTManager& manager,
                                  const std::shared_ptr<RKVVASTAd>& ad) override {
    add("start " + ad->adID().value_or("?"));
    if (onStart) onStart(manager);
  }
  void didFailToResolveWrapperAd(RKVVASTManager& /*manager*/,
                                 const std::shared_ptr<RKVVASTAd>& ad) override {
    add("fail " + ad->adID().value_or("?"));
  }

  Calls calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  std::function<void(RKVVASTManager&)> onStart;

 private:
  void add(std::string line) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(line));
  }
  mutable std::mutex mutex_;
  Calls calls_;
};

// "<ad id>/<wrapper depth>" for an ad, "<code> <description>" for an error.
std::string answer(const RKVVASTManagerResponse& response) {
  if (auto handed = std::dynamic_pointer_cast<HandedOutAd>(response.ad())) {
    EXPECT_FALSE(response.error());
    return handed->ad->adID().value_or("?") + "/" + std::to_string(handed->ad->wrapperDepth());
  }
  if (!response.error()) return "neither ad nor error";
  EXPECT_EQ(response.error()->domain, "RKVVASTErrorDomain");
  return std::to_string(response.error()->code) + " " +
         response.error()->localizedDescription.value_or("");
}

// Every answer up to and including the first error.
Calls drain(RKVVASTManager& manager, bool dueToAdFailure = false) {
  Calls answers;
  for (int i = 0; i < 20; ++i) {
    RKVVASTManagerResponse response = manager.nextAdWithTimeout(5.0, dueToAdFailure);
    answers.push_back(answer(response));
    if (!response.ad()) break;
  }
  return answers;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class RKVVASTManagerTest : public ::testing::Test {
 protected:
  std::unique_ptr<RKVVASTManager> makeManager(RKVVASTManagerConfig config = {}) {
    return std::make_unique<RKVVASTManager>(delegate_, adapter_, session_, config);
  }
  // A manager that has read a root document of these ads.
  std::unique_ptr<RKVVASTManager> managerOver(const std::vector<RKVTestAd>& ads,
                                              RKVVASTManagerConfig config = {}) {
    auto manager = makeManager(config);
    manager->createAdsStoreWithXML(vastXML(ads), std::nullopt, 5.0);
    return manager;
  }
  void serve(const std::string& path, const std::vector<RKVTestAd>& ads,
             std::chrono::milliseconds delay = 0ms) {
    server_.setRoute(path, RKVTestRoute::answer(200, vastXML(ads), delay));
  }
  std::string url(const std::string& path) const { return server_.url(path); }

  static RKVURLSessionConfiguration limited() {
    RKVURLSessionConfiguration configuration;
    configuration.maximumResponseBytes = kResponseLimit;
    return configuration;
  }

  RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSessionProvider> provider_ =
      std::make_shared<RKVURLSessionProvider>(limited());
  std::shared_ptr<RKVURLSession> session_ = std::make_shared<RKVURLSession>(provider_);
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  std::shared_ptr<PassThroughAdapter> adapter_ = std::make_shared<PassThroughAdapter>();
};

TEST(RKVVASTManagerConfigTest, DefaultsDescriptionAndTheShortInitialisers) {
  EXPECT_EQ(RKVVASTManagerConfig().description(),
            "RKVVASTManagerConfig(requestTimeout: 5.000000, maximumWrappers: 5, "
            "handleWrappersAdpods: NO, strictWrapperFirstLevelImpressionValidation: NO)");
  EXPECT_EQ(RKVVASTManagerConfig(0.25, 12, true, true).description(),
            "RKVVASTManagerConfig(requestTimeout: 0.250000, maximumWrappers: 12, "
            "handleWrappersAdpods: YES, strictWrapperFirstLevelImpressionValidation: YES)");

  // The pixel manager is ignored, strict validation stays off, no session means the shared one.
  auto delegate = std::make_shared<RecordingDelegate>();
  auto adapter = std::make_shared<PassThroughAdapter>();
  RKVVASTManager manager(delegate, adapter, nullptr, nullptr, 1.5, 7, true);
  EXPECT_EQ(manager.config().description(),
            "RKVVASTManagerConfig(requestTimeout: 1.500000, maximumWrappers: 7, "
            "handleWrappersAdpods: YES, strictWrapperFirstLevelImpressionValidation: NO)");
  EXPECT_EQ(manager.urlSessionManager(), RKVURLSession::sharedInstance());
}

TEST_F(RKVVASTManagerTest, WithoutDelegateOrAdapterItOnlyLogs) {
  struct Case {
    bool delegate, adapter, cancelled;
    std::string message;
  };
  for (const Case& c : std::vector<Case>{
           {false, true, false, "VAST Manager cannot work without its delegate set!"},
           {true, false, false, "VAST Manager cannot work without its adapter set!"},
           {true, true, true, "VAST Manager cannot work without its delegate set!"}}) {
    SCOPED_TRACE(c.message);
    test::RKVLogCapture log;
    auto delegate = std::make_shared<RecordingDelegate>();
    RKVVASTManager manager(c.delegate ? delegate : nullptr,
                           c.adapter ? adapter_ : std::shared_ptr<PassThroughAdapter>(), session_,
                           {});
    if (c.cancelled) manager.cancel();
    manager.createAdsStoreWithXML(vastXML({inlineAd("a")}), std::nullopt, 5.0);
    EXPECT_EQ(log.debugMessages(), Calls{c.message});
    EXPECT_EQ(delegate->calls(), Calls{});
    EXPECT_EQ(answer(manager.nextAdWithTimeout(5.0, false)), "10004 Unable to create VAST Model.");
  }
}

TEST_F(RKVVASTManagerTest, ErrorCodesWhereTheyArise) {
  auto manager = makeManager();
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), "10004 Unable to create VAST Model.");
  manager->createAdsStoreWithXML(std::nullopt, std::nullopt, 5.0);
  const std::string closed = "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort());
  manager->createAdsStoreWithXML(std::nullopt, RKVURL::withString(closed + "/vast"), 5.0);
  manager->createAdsStoreWithXML(vastXML({inlineAd("a"), inlineAd("b")}), std::nullopt, 5.0);
  EXPECT_EQ(delegate_->calls(), (Calls{"failed 10002", "error VAST_WRAPPER_ERROR_FETCH [] -",
                                       "failed 10003", "ready"}));

  // A time-out of zero or less is refused even while ads remain.
  EXPECT_EQ(answer(manager->nextAdWithTimeout(0.0, false)), "10001 VASTManager Timeout.");
  EXPECT_EQ(answer(manager->nextAdWithTimeout(-1.0, true)), "10001 VASTManager Timeout.");
  EXPECT_EQ(drain(*manager), (Calls{"a/0", kNoMoreAds}));
  EXPECT_EQ(drain(*manager, true), (Calls{"b/0", kNoMorePassback}));

  const RKVVASTParserResponse notAWrapper =
      manager->resolveWrapper(manager->mainAdsStore().at(0), 5.0, nullptr);
  EXPECT_FALSE(notAWrapper.model());
  ASSERT_TRUE(notAWrapper.error());
  EXPECT_EQ(notAWrapper.error()->description(),
            "Error Domain=RKVVASTErrorDomain Code=10008 \"No ad available.\"");
}

TEST_F(RKVVASTManagerTest, AWrapperChainIsMergedIntoTheInlineAdWithEveryLevelsPixels) {
  auto level = [](RKVTestAd ad) {
    ad.impressions = {"http://imp.example/" + ad.id};
    ad.errors = {"http://err.example/" + ad.id};
    ad.starts = {"http://start.example/" + ad.id};
    return ad;
  };
  serve("/w1", {level(wrapperAd("w1", url("/inline")))});
  serve("/inline", {level(inlineAd("i"))});
  auto manager = managerOver({level(wrapperAd("w0", url("/w1")))});

  RKVVASTManagerResponse response = manager->nextAdWithTimeout(5.0, false);
  ASSERT_EQ(answer(response), "i/2");
  const RKVVASTAd& ad = *std::dynamic_pointer_cast<HandedOutAd>(response.ad())->ad;
  const Calls levels = {"i", "w1", "w0"};
  auto texts = [](const std::vector<RKVVASTURL>& urls, const std::string& host) {
    Calls paths;
    for (const auto& url : urls) {
      EXPECT_EQ(url.url().absoluteString().rfind("http://" + host + "/", 0), 0u);
      paths.push_back(url.url().absoluteString().substr(host.size() + 8));
    }
    return paths;
  };
  EXPECT_EQ(texts(ad.impressions(), "imp.example"), levels);
  EXPECT_EQ(texts(ad.errorPixels(), "err.example"), levels);
  ASSERT_EQ(ad.linearCreatives().size(), 1u);
  std::vector<RKVVASTURL> starts;
  for (const auto& event : ad.linearCreatives()[0]->trackingEvents())
    starts.push_back(RKVVASTURL(event->eventURL()));
  EXPECT_EQ(texts(starts, "start.example"), levels);

  // Only the root document's wrapper is announced; every document is fetched once.
  EXPECT_EQ(delegate_->calls(), (Calls{"ready", "start w0"}));
  EXPECT_EQ(drain(*manager), Calls{kNoMoreAds});
  EXPECT_EQ(server_.requestCount("/w1") + server_.requestCount("/inline"), 2u);
}

TEST_F(RKVVASTManagerTest, TheMainPathStopsAtTheWrapperLimitThePassbackPathGoesOneLevelDeeper) {
  for (int64_t limit : {0, 1, 5}) {
    SCOPED_TRACE(limit);
    // /L/c1 ... /L/c<limit> answer wrappers, /L/c<limit+1> the inline ad.
    const std::string prefix = "/" + std::to_string(limit) + "/c";
    for (int64_t n = 1; n <= limit; ++n) {
      RKVTestAd next = wrapperAd("w" + std::to_string(n), url(prefix + std::to_string(n + 1)));
      next.errors = {"http://err.example/w" + std::to_string(n)};
      serve(prefix + std::to_string(n), {next});
    }
    const std::string last = prefix + std::to_string(limit + 1);
    serve(last, {inlineAd("i")});
    RKVTestAd root = wrapperAd("w0", url(prefix + "1"));
    root.errors = {"http://err.example/w0"};
    const RKVVASTManagerConfig config(5.0, limit, false, false);

    delegate_ = std::make_shared<RecordingDelegate>();
    auto mainPath = managerOver({root}, config);
    EXPECT_EQ(drain(*mainPath), Calls{kNoMoreAds});
    std::string pixels;  // the refused wrapper's own error URL and those of the levels above
    for (int64_t n = limit; n >= 0; --n)
      pixels += std::string(n == limit ? "" : " ") + "http://err.example/w" + std::to_string(n);
    const Calls refused = {"error VAST_WRAPPER_ERROR_LIMIT_REACHED [" + pixels + "] -"};
    Calls expected = {"ready"};
    if (limit > 0) expected.push_back("start w0");
    expected.insert(expected.end(), refused.begin(), refused.end());
    EXPECT_EQ(delegate_->calls(), expected);
    EXPECT_EQ(server_.requestCount(last), 0u);

    auto passbackPath = managerOver({inlineAd("main"), root}, config);
    EXPECT_EQ(drain(*passbackPath), (Calls{"main/0", kNoMoreAds}));
    EXPECT_EQ(drain(*passbackPath, true),
              (Calls{"i/" + std::to_string(limit + 1), kNoMorePassback}));
    EXPECT_EQ(server_.requestCount(last), 1u);
  }
}

TEST_F(RKVVASTManagerTest, AWrapperLeadingToAPodContributesItsFirstAdOrTheWholePod) {
  auto sequenced = [](std::string id, std::string sequence) {
    RKVTestAd ad = inlineAd(std::move(id));
    ad.sequence = std::move(sequence);
    return ad;
  };
  serve("/pod", {sequenced("p2", "2"), sequenced("p1", "1"), sequenced("p3", "3")});
  EXPECT_EQ(drain(*managerOver({wrapperAd("w", url("/pod"))})), (Calls{"p2/1", kNoMoreAds}));
  EXPECT_EQ(drain(*managerOver({wrapperAd("w", url("/pod"))}, {5.0, 5, true, false})),
            (Calls{"p1/1", "p2/1", "p3/1", kNoMoreAds}));
}

TEST_F(RKVVASTManagerTest, FailedWrapperFetchesReachTheDelegateWithTheWrappersErrorURLs) {
  // A peer's reset must never reach the default action of SIGPIPE, which ends the process.
  struct sigaction previous {};
  struct sigaction defaultAction {};
  defaultAction.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &defaultAction, &previous);

  test::RKVTestTLSServer tls(vastXML({inlineAd("tls")}));
  ASSERT_TRUE(tls.isRunning()) << "needs the openssl command";
  server_.setRoute("/noad", RKVTestRoute::answer(200, vastXML({}, {"http://err.example/noad"})));
  server_.setRoute("/missing", RKVTestRoute::answer(404, vastXML({inlineAd("i404")})));
  server_.setRoute("/garbage", RKVTestRoute::answer(500, "<html>oops"));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(RKVTestServerBehavior::NeverAnswer));
  server_.setRoute("/reset", RKVTestRoute::misbehaving(RKVTestServerBehavior::Reset));
  server_.setRoute("/to-file", RKVTestRoute::redirect("file:///etc/passwd"));
  const std::string closed = "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort());

  struct Case {
    std::string adTag;
    Calls calls;  // after "ready" and "start w"
    Calls answers;
  };
  const std::string pixel = "http://err.example/w";
  const std::vector<Case> cases = {
      {url("/noad"),
       {"error VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE [http://err.example/noad " + pixel + "] text",
        "fail w"},
       {kNoMoreAds}},
      {url("/missing"), {}, {"i404/1", kNoMoreAds}},
      {url("/garbage"), {"error XML_PARSING_ERROR_WRAPPER [" + pixel + "] text"}, {kNoMoreAds}},
      {url("/silent"), {"error VAST_WRAPPER_ERROR_FETCH_TIMEOUT [" + pixel + "] -"}, {kNoMoreAds}},
      {url("/reset"), {"error VAST_WRAPPER_ERROR_FETCH [" + pixel + "] -"}, {kNoMoreAds}},
      {url("/to-file"), {"error VAST_WRAPPER_ERROR_FETCH [" + pixel + "] -"}, {kNoMoreAds}},
      {"file:///etc/passwd", {"error VAST_WRAPPER_ERROR_FETCH [" + pixel + "] -"}, {kNoMoreAds}},
      {closed + "/vast", {"error VAST_WRAPPER_ERROR_FETCH [" + pixel + "] -"}, {kNoMoreAds}},
      {tls.url("/vast"), {"error VAST_WRAPPER_ERROR_FETCH [" + pixel + "] -"}, {kNoMoreAds}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.adTag);
    delegate_ = std::make_shared<RecordingDelegate>();
    RKVTestAd wrapper = wrapperAd("w", c.adTag);
    wrapper.errors = {pixel};
    auto manager = managerOver({wrapper}, {1.0, 5, false, false});
    EXPECT_EQ(drain(*manager), c.answers);
    Calls expected = {"ready", "start w"};
    expected.insert(expected.end(), c.calls.begin(), c.calls.end());
    EXPECT_EQ(delegate_->calls(), expected);
  }
  sigaction(SIGPIPE, &previous, nullptr);
}

TEST_F(RKVVASTManagerTest, VendorOnlyErrorsFireNothingOnTheMainPathButTheWrapperPixelsAsPassback) {
  RKVTestAd untitled = inlineAd("untitled");
  untitled.hasTitle = false;
  untitled.errors = {"http://err.example/untitled"};
  serve("/untitled", {untitled});
  RKVTestAd wrapper = wrapperAd("w", url("/untitled"));
  wrapper.errors = {"http://err.example/w"};

  EXPECT_EQ(drain(*managerOver({wrapper})), (Calls{"untitled/1", kNoMoreAds}));
  EXPECT_EQ(delegate_->calls(),
            (Calls{"ready", "start w", "error VAST_VALIDATION_ERROR_MISSING_ADTITLE [] text"}));

  delegate_ = std::make_shared<RecordingDelegate>();
  auto passback = managerOver({inlineAd("main"), wrapper});
  EXPECT_EQ(drain(*passback), (Calls{"main/0", kNoMoreAds}));
  EXPECT_EQ(drain(*passback, true), (Calls{"untitled/1", kNoMorePassback}));
  EXPECT_EQ(delegate_->calls(),
            (Calls{"ready", "start w",
                   "error VAST_VALIDATION_ERROR_MISSING_ADTITLE [http://err.example/untitled "
                   "http://err.example/w] text"}));
}

TEST_F(RKVVASTManagerTest, WrappersRefusedBeforeTheyAreFetched) {
  serve("/inline", {inlineAd("i")});
  RKVTestAd noImpression = wrapperAd("w2", url("/inline"));
  serve("/deeper", {noImpression});
  auto wrapper = [&](std::string adTag, bool impressions, bool hasAdTag) {
    RKVTestAd ad = wrapperAd("w", std::move(adTag));
    ad.errors = {"http://err.example/w"};
    if (impressions) ad.impressions = {"http://imp.example/w"};
    ad.hasAdTag = hasAdTag;
    return ad;
  };
  struct Case {
    RKVTestAd root;
    bool strict;
    Calls calls;
    Calls answers;
  };
  const std::vector<Case> cases = {
      {wrapper(url("/inline"), true, false),
       false,
       {"ready", "error VAST_VALIDATION_ERROR_MISSING_VASTADTAGURI [http://err.example/w] -"},
       {kNoMoreAds}},
      {wrapper(url("/inline"), false, true),
       true,
       {"ready", "error VAST_VALIDATION_ERROR_MISSING_IMPRESSION [http://err.example/w] -"},
       {kNoMoreAds}},
      {wrapper(url("/inline"), false, true), false, {"ready", "start w"}, {"i/1", kNoMoreAds}},
      // Only first-level wrappers are held to having impressions.
      {wrapper(url("/deeper"), true, true), true, {"ready", "start w"}, {"i/2", kNoMoreAds}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.root.adTag.value() + (c.strict ? " strict" : ""));
    delegate_ = std::make_shared<RecordingDelegate>();
    const size_t fetched = server_.requests().size();
    auto manager = managerOver({c.root}, {5.0, 5, false, c.strict});
    EXPECT_EQ(drain(*manager), c.answers);
    EXPECT_EQ(delegate_->calls(), c.calls);
    if (c.answers.size() == 1) {
      EXPECT_EQ(server_.requests().size(), fetched);
    }
  }
}

TEST_F(RKVVASTManagerTest, PassbackWrappersResolveInParallelAndLaterResultsWaitTheirTurn) {
  const auto delay = 300ms;
  std::vector<RKVTestAd> ads = {inlineAd("main")};
  for (int i = 1; i <= 4; ++i) {
    const std::string n = std::to_string(i);
    serve("/slow" + n, {inlineAd("s" + n)}, delay);
    ads.push_back(wrapperAd("w" + n, url("/slow" + n)));
  }
  test::RKVLogCapture log;
  auto manager = managerOver(ads);
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, false)), "main/0");

  const auto start = std::chrono::steady_clock::now();
  const std::string first = answer(manager->nextAdWithTimeout(5.0, true));
  const double elapsed = secondsSince(start);
  EXPECT_LT(elapsed, 2 * std::chrono::duration<double>(delay).count())
      << "four fetches of " << delay.count() << " ms each took " << elapsed << " s";
  ASSERT_EQ(first.size(), 4u) << first;  // "s<n>/1"

  // The three results that lost the race wait in the inline passback store, each handed out once.
  ASSERT_TRUE(test::eventually([&] {
    const Calls messages = log.debugMessages();
    return std::count_if(messages.begin(), messages.end(), [](const std::string& message) {
             return message.rfind("Resolved wrapper ad: ", 0) == 0;
           }) == 4;
  }));
  EXPECT_EQ(manager->inlinePassbackAdsStore().size(), 4u);
  EXPECT_TRUE(manager->didResolvePassbackWrappers());
  EXPECT_FALSE(manager->isResolvingPassbackWrappers());
  Calls answers = drain(*manager, true);
  answers.push_back(first);
  std::sort(answers.begin(), answers.end());
  EXPECT_EQ(answers, (Calls{kNoMorePassback, "s1/1", "s2/1", "s3/1", "s4/1"}));

  Calls calls = delegate_->calls();
  std::sort(calls.begin(), calls.end());
  EXPECT_EQ(calls, (Calls{"ready", "start w1", "start w2", "start w3", "start w4"}));
  const Calls messages = log.debugMessages();
  auto logged = [&](const std::string& message) {
    return std::count(messages.begin(), messages.end(), message);
  };
  EXPECT_EQ(logged("Returning resolved ad: " + first.substr(0, 2)), 1);
  for (const std::string n : {"1", "2", "3", "4"}) {
    EXPECT_EQ(logged("Transforming wrapper ad: w" + n), 1);
    EXPECT_EQ(logged("Transforming wrapper ad: s" + n), 1);
    EXPECT_EQ(logged("Resolved wrapper ad: s" + n), 1);
  }
}

TEST_F(RKVVASTManagerTest, AskingWhilePassbacksResolveAndCancellingSilenceTheLateResults) {
  server_.setRoute("/silent", RKVTestRoute::misbehaving(RKVTestServerBehavior::NeverAnswer));
  auto manager =
      managerOver({inlineAd("main"), wrapperAd("w", url("/silent"))}, {1.0, 5, false, false});
  EXPECT_EQ(drain(*manager), (Calls{"main/0", kNoMoreAds}));

  auto resolving =
      std::async(std::launch::async, [&] { return answer(manager->nextAdWithTimeout(5.0, true)); });
  ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/silent") == 1; }));
  EXPECT_TRUE(manager->isResolvingPassbackWrappers());
  EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), "10006 Passback resolution incomplete.");
  manager->cancel();
  ASSERT_EQ(resolving.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_EQ(resolving.get(), kNoMorePassback);
  // The fetch's time-out came after cancel: the former delegate never hears of it.
  EXPECT_EQ(delegate_->calls(), (Calls{"ready", "start w"}));
}

TEST_F(RKVVASTManagerTest, ADelegateMayCancelFromItsCallbackOrOutliveTheManager) {
  RKVTestAd late = inlineAd("late");
  late.hasTitle = false;  // reported when read
  RKVTestAd untitled = late;
  untitled.id = "untitled";
  serve("/fast", {inlineAd("fast")});
  serve("/late", {late}, 500ms);
  serve("/untitled", {untitled});
  {
    test::RKVLogCapture log;
    auto manager = managerOver(
        {inlineAd("main"), wrapperAd("w1", url("/fast")), wrapperAd("w2", url("/late"))});
    EXPECT_EQ(drain(*manager), (Calls{"main/0", kNoMoreAds}));
    EXPECT_EQ(answer(manager->nextAdWithTimeout(5.0, true)), "fast/1");
    ASSERT_TRUE(test::eventually([&] { return server_.requestCount("/late") == 1; }));
    manager.reset();  // while /late is still being fetched
    ASSERT_TRUE(test::eventually([&] {
      const Calls messages = log.debugMessages();
      return std::count(messages.begin(), messages.end(), "Resolved wrapper ad: late") == 1;
    }));
  }
  Calls calls = delegate_->calls();
  std::sort(calls.begin(), calls.end());
  EXPECT_EQ(calls, (Calls{"ready", "start w1", "start w2"})) << "no report of the untitled ad";

  delegate_ = std::make_shared<RecordingDelegate>();
  delegate_->onStart = [](RKVVASTManager& manager) { manager.cancel(); };
  auto manager = managerOver({wrapperAd("w", url("/untitled"))});
  EXPECT_EQ(drain(*manager), (Calls{"untitled/1", kNoMoreAds}));
  EXPECT_EQ(delegate_->calls(), (Calls{"ready", "start w"})) << "no report of the untitled ad";
}

TEST_F(RKVVASTManagerTest, MisbehavingServersCannotHoldTheCallerBeyondTheTimeOut) {
  const double timeout = 1.0;
  RKVTestHTTPServer stalled;
  stalled.setStallConnections(true);
  RKVTestRoute slowLoop = RKVTestRoute::redirect("/slow-loop");
  slowLoop.delay = 300ms;
  server_.setRoute("/slow-loop", slowLoop);
  server_.setRoute("/loop", RKVTestRoute::redirect("/loop"));
  server_.setRoute("/silent", RKVTestRoute::misbehaving(RKVTestServerBehavior::NeverAnswer));
  server_.setRoute("/drip", RKVTestRoute::misbehaving(RKVTestServerBehavior::Drip));
  server_.setRoute("/endless", RKVTestRoute::misbehaving(RKVTestServerBehavior::EndlessBody));
  rusage before{};
  getrusage(RUSAGE_SELF, &before);

  struct Case {
    std::string adTag;
    std::string error;
  };
  for (const Case& c : std::vector<Case>{
           {url("/silent"), "VAST_WRAPPER_ERROR_FETCH_TIMEOUT"},
           {stalled.url("/stalled"), "VAST_WRAPPER_ERROR_FETCH_TIMEOUT"},
           {url("/drip"), "VAST_WRAPPER_ERROR_FETCH_TIMEOUT"},
           {url("/slow-loop"), "VAST_WRAPPER_ERROR_FETCH_TIMEOUT"},
           {url("/loop"), "VAST_WRAPPER_ERROR_FETCH"},
           {url("/endless"), "VAST_WRAPPER_ERROR_FETCH"},
       }) {
    SCOPED_TRACE(c.adTag);
    delegate_ = std::make_shared<RecordingDelegate>();
    auto manager = managerOver({wrapperAd("w", c.adTag)}, {timeout, 5, false, false});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(answer(manager->nextAdWithTimeout(timeout, false)), kNoMoreAds);
    EXPECT_LE(secondsSince(start), timeout * 1.1);
    EXPECT_EQ(delegate_->calls(), (Calls{"ready", "start w", "error " + c.error + " [] -"}));
  }
  // The endless body was cut at the session's limit, not kept.
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024) << "kilobytes";

  // The root document's download is bounded by the time-out it is given.
  delegate_ = std::make_shared<RecordingDelegate>();
  auto manager = makeManager();
  const auto start = std::chrono::steady_clock::now();
  manager->createAdsStoreWithXML(std::nullopt, RKVURL::withString(url("/silent")), timeout);
  EXPECT_LE(secondsSince(start), timeout * 1.1);
  EXPECT_EQ(delegate_->calls(),
            (Calls{"error VAST_WRAPPER_ERROR_FETCH_TIMEOUT [] -", "failed 301"}));
}

TEST_F(RKVVASTManagerTest, ShuttingTheSessionDownEndsAFetchInFlight) {
  RKVTestHTTPServer stalled;
  stalled.setStallConnections(true);
  auto manager = managerOver({wrapperAd("w", stalled.url("/stalled"))}, {600.0, 5, false, false});
  auto asking = std::async(std::launch::async,
                           [&] { return answer(manager->nextAdWithTimeout(5.0, false)); });
  ASSERT_TRUE(test::eventually([&] { return stalled.connectionCount() == 1; }));
  auto stopped = std::async(std::launch::async, [&] { provider_->shutdown(); });
  ASSERT_EQ(stopped.wait_for(test::kHangGuard), std::future_status::ready);
  ASSERT_EQ(asking.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_EQ(asking.get(), kNoMoreAds);
  EXPECT_EQ(delegate_->calls(), (Calls{"ready", "start w", "error VAST_WRAPPER_ERROR_FETCH [] -"}));
}

}  // namespace
}  // namespace rkv
