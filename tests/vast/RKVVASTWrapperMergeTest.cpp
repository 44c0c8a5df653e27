// Wrapper chains resolved by the VAST manager over real HTTP on 127.0.0.1: what merging the
// levels leaves in the final ad, for a real chain and for one built to grow.
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "rkv/foundation/RKVBackgroundExecutor.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/vast/RKVVASTManager.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using test::RKVTestHTTPServer;
using test::RKVTestRoute;

struct JoinTheSharedExecutor : ::testing::Environment {
  void TearDown() override { RKVBackgroundExecutor::sharedInstance().shutdown(); }
};
const auto* const kJoinTheSharedExecutor =
    ::testing::AddGlobalTestEnvironment(new JoinTheSharedExecutor);

class HandedOutAd : public RKVConsumableVideoAd {
 public:
  explicit HandedOutAd(std::shared_ptr<RKVVASTAd> vastAd) : ad(std::move(vastAd)) {}
  std::shared_ptr<RKVVASTAd> ad;
};

class QuietDelegate : public RKVVASTManagerDelegate {};

class PassThroughAdapter : public RKVVASTManagerAdapter {
 public:
  std::shared_ptr<RKVConsumableVideoAd> convertVASTAdToConsumableVideoAd(
      const std::shared_ptr<RKVVASTAd>& ad) override {
    return std::make_shared<HandedOutAd>(ad);
  }
};

const char* const kEventNames[] = {"start",      "firstQuartile", "midpoint", "thirdQuartile",
                                   "complete",   "creativeView",  "mute",     "unmute",
                                   "pause",      "resume",        "rewind",   "skip",
                                   "fullscreen", "exitFullscreen"};

// One level of a chain: `creatives` linear creatives of `events` tracking events each, with the
// URLs http://t.example/<id>/<creative>/<event>; a wrapper follows `adTag`, an inline ad carries
// a media file in every creative.
std::string levelXML(const std::string& id, const std::string& adTag, int creatives, int events,
                     const std::vector<std::string>& extraTracking = {}) {
  const bool wrapper = !adTag.empty();
  const std::string kind = wrapper ? "Wrapper" : "InLine";
  std::string xml = "<?xml version=\"1.0\"?><VAST version=\"3.0\"><Ad id=\"" + id + "\"><" + kind +
                    "><AdSystem>s</AdSystem><AdTitle>" + id + "</AdTitle>";
  if (wrapper) xml += "<VASTAdTagURI><![CDATA[" + adTag + "]]></VASTAdTagURI>";
  xml += "<Impression>http://i.example/" + id + "</Impression><Creatives>";
  for (int c = 0; c < creatives; ++c) {
    xml += "<Creative><Linear><Duration>00:00:15</Duration><TrackingEvents>";
    for (int e = 0; e < events; ++e) {
      xml += std::string("<Tracking event=\"") + kEventNames[e % std::size(kEventNames)] +
             "\">http://t.example/" + id + "/" + std::to_string(c) + "/" + std::to_string(e) +
             "</Tracking>";
    }
    for (const std::string& tracking : extraTracking)
      xml += tracking;
    xml += "</TrackingEvents>";
    if (!wrapper) {
      xml += "<MediaFiles><MediaFile type=\"video/mp4\">http://m.example/" + id + "/" +
             std::to_string(c) + ".mp4</MediaFile></MediaFiles>";
    }
    xml += "</Linear></Creative>";
  }
  return xml + "</Creatives></" + kind + "></Ad></VAST>";
}

// (name, offset, URL) of every tracking event of the creative, in order.
using EventKey = std::tuple<std::string, std::string, std::string>;
std::vector<EventKey> eventKeys(const RKVVASTCreative& creative) {
  std::vector<EventKey> keys;
  for (const auto& event : creative.trackingEvents())
    keys.emplace_back(event->name(), event->offset().value_or("-"), event->url().absoluteString());
  return keys;
}

// The peak resident set of the process so far, in KiB.
long peakResidentKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

class RKVVASTWrapperMergeTest : public ::testing::Test {
 protected:
  // The first ad of a manager over the root document, or null.
  std::shared_ptr<RKVVASTAd> firstAd(const std::string& rootXML, int64_t maximumWrappers) {
    auto delegate = std::make_shared<QuietDelegate>();
    RKVVASTManager manager(delegate, adapter_, session_, {10.0, maximumWrappers, false, false});
    manager.createAdsStoreWithXML(rootXML, std::nullopt, 10.0);
    RKVVASTManagerResponse response = manager.nextAdWithTimeout(10.0, false);
    EXPECT_FALSE(response.error()) << response.error()->code;
    auto handed = std::dynamic_pointer_cast<HandedOutAd>(response.ad());
    return handed ? handed->ad : nullptr;
  }

  RKVTestHTTPServer server_;
  std::shared_ptr<RKVURLSession> session_ = test::testSession();
  std::shared_ptr<PassThroughAdapter> adapter_ = std::make_shared<PassThroughAdapter>();
};

// Three wrappers of one creative each: every level's events reach the inline's creative, after
// its own and nearest level first; a measurement pixel that every level repeats comes once, and
// the same URL under another event name or offset is a different event.
TEST_F(RKVVASTWrapperMergeTest, ARealChainMergesEveryLevelIntoTheInlineCreative) {
  const std::vector<std::string> shared = {
      "<Tracking event=\"start\">http://measure.example/start</Tracking>",
      "<Tracking event=\"progress\" offset=\"00:00:05\">http://measure.example/p</Tracking>"};
  const std::vector<std::string> inlineOnly = {
      shared[0], shared[1], "<Tracking event=\"complete\">http://measure.example/start</Tracking>",
      "<Tracking event=\"progress\" offset=\"00:00:10\">http://measure.example/p</Tracking>"};
  server_.setRoute("/w2",
                   RKVTestRoute::answer(200, levelXML("w2", server_.url("/w3"), 1, 2, shared)));
  server_.setRoute("/w3",
                   RKVTestRoute::answer(200, levelXML("w3", server_.url("/i"), 1, 2, shared)));
  server_.setRoute("/i", RKVTestRoute::answer(200, levelXML("i", "", 1, 1, inlineOnly)));
  test::RKVLogCapture log;

  auto ad = firstAd(levelXML("w1", server_.url("/w2"), 1, 2, shared), 5);
  ASSERT_TRUE(ad);
  EXPECT_EQ(ad->adID(), "i");
  EXPECT_EQ(ad->wrapperDepth(), 3);
  ASSERT_EQ(ad->linearCreatives().size(), 1u);
  const std::vector<EventKey> expected = {
      {"start", "-", "http://t.example/i/0/0"},
      {"start", "-", "http://measure.example/start"},
      {"progress", "00:00:05", "http://measure.example/p"},
      {"complete", "-", "http://measure.example/start"},
      {"progress", "00:00:10", "http://measure.example/p"},
      {"start", "-", "http://t.example/w3/0/0"},
      {"firstQuartile", "-", "http://t.example/w3/0/1"},
      {"start", "-", "http://t.example/w2/0/0"},
      {"firstQuartile", "-", "http://t.example/w2/0/1"},
      {"start", "-", "http://t.example/w1/0/0"},
      {"firstQuartile", "-", "http://t.example/w1/0/1"},
  };
  EXPECT_EQ(eventKeys(*ad->linearCreatives()[0]), expected);
  std::vector<std::string> impressions;
  for (const RKVVASTURL& url : ad->impressions())
    impressions.push_back(url.url().absoluteString());
  EXPECT_EQ(impressions, (std::vector<std::string>{"http://i.example/i", "http://i.example/w3",
                                                   "http://i.example/w2", "http://i.example/w1"}));
  EXPECT_EQ(ad->mergedEntryCount(), 6u + 3u);  // six events, three impressions
  EXPECT_EQ(log.messages(3), std::vector<std::string>{});
}

// Five wrappers of 20 linear creatives with 20 events each, then an inline ad of the same shape.
// Pouring every creative's list into every creative at every level would grow by a factor of 20
// a level (beyond 2 GB at the fifth); merged without duplicates and under the ceiling, the chain
// costs little and the ad holds each event at most once per creative.
TEST_F(RKVVASTWrapperMergeTest, AChainBuiltToGrowStaysBounded) {
  constexpr int kCreatives = 20;
  constexpr int kEvents = 20;
  const std::vector<std::string> levels = {"w1", "w2", "w3", "w4", "w5", "i"};
  for (size_t n = 1; n < levels.size(); ++n) {
    const std::string next = n + 1 < levels.size() ? server_.url("/" + levels[n + 1]) : "";
    server_.setRoute("/" + levels[n],
                     RKVTestRoute::answer(200, levelXML(levels[n], next, kCreatives, kEvents)));
  }
  test::RKVLogCapture log;
  const long peakBefore = peakResidentKiB();

  auto ad = firstAd(levelXML("w1", server_.url("/w2"), kCreatives, kEvents), 5);

  const long peakGrowthKiB = peakResidentKiB() - peakBefore;
  std::printf("peak resident set growth over the chain: %ld KiB\n", peakGrowthKiB);
  // A few MB are expected; the unbounded merge needs gigabytes.
  EXPECT_LT(peakGrowthKiB, 256 * 1024);
  ASSERT_TRUE(ad);
  EXPECT_EQ(ad->adID(), "i");
  EXPECT_EQ(ad->wrapperDepth(), 5);
  ASSERT_EQ(ad->linearCreatives().size(), static_cast<size_t>(kCreatives));

  // No creative holds an event twice; the ad holds its own events and at most the ceiling more.
  size_t held = 0;
  std::set<std::string> urls;
  for (const auto& creative : ad->linearCreatives()) {
    const std::vector<EventKey> keys = eventKeys(*creative);
    const std::set<EventKey> distinct(keys.begin(), keys.end());
    EXPECT_EQ(distinct.size(), keys.size());
    held += keys.size();
    for (const auto& [name, offset, url] : keys)
      urls.insert(url);
  }
  const size_t own = kCreatives * kEvents;
  EXPECT_EQ(ad->mergedEntryCount(), RKVVASTAd::kMaximumMergedEntries);
  EXPECT_EQ(held + ad->impressions().size(), own + 1 + RKVVASTAd::kMaximumMergedEntries);
  // Every level's impression, and the events nearest the ad, come first and are kept: the last
  // wrapper's first creative reaches the ad's first creative in its order.
  EXPECT_EQ(ad->impressions().size(), levels.size());
  const std::vector<EventKey> first = eventKeys(*ad->linearCreatives()[0]);
  ASSERT_GE(first.size(), static_cast<size_t>(2 * kEvents));
  for (int e = 0; e < kEvents; ++e) {
    EXPECT_EQ(std::get<2>(first[kEvents + e]), "http://t.example/w5/0/" + std::to_string(e));
  }
  EXPECT_TRUE(urls.contains("http://t.example/w1/0/0"));

  // One warning for each ad that reached the ceiling, naming it.
  const std::vector<std::string> warnings = log.messages(3);
  EXPECT_FALSE(warnings.empty());
  std::set<std::string> warned;
  for (const std::string& warning : warnings) {
    for (const std::string& id : levels) {
      if (warning.find("into ad '" + id + "'") != std::string::npos) warned.insert(id);
    }
  }
  EXPECT_EQ(warned.size(), warnings.size());
  EXPECT_TRUE(warned.contains("i"));
}

}  // namespace
}  // namespace rkv
