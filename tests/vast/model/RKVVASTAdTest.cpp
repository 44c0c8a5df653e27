#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTAdInline.h"
#include "rkv/vast/model/RKVVASTAdWrapper.h"

#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using test::element;
using test::urlTexts;
using Strings = std::vector<std::string>;

const std::string kBasics = "<AdSystem>S</AdSystem><AdTitle>T</AdTitle>";
const std::string kErrors = "<Error>http://e.test/1?c=[ERRORCODE]</Error>";
const std::string kMedia =
    "<MediaFiles><MediaFile type='video/mp4'>http://m.test/1.mp4</MediaFile></MediaFiles>";
const std::string kLinear =
    "<Creative><Linear><Duration>00:00:10</Duration>" + kMedia + "</Linear></Creative>";
const std::string kNonLinear =
    "<Creative><NonLinearAds><NonLinear><StaticResource>http://n.test/1.png</StaticResource>"
    "</NonLinear></NonLinearAds></Creative>";

std::string creatives(const std::string& entries) {
  return "<Creatives>" + entries + "</Creatives>";
}
std::string tracking(const std::string& url, const char* event = "start") {
  return std::string("<Tracking event='") + event + "'>" + url + "</Tracking>";
}

// An inline ad, or a wrapper, read from the content of its InLine (Wrapper) element.
std::shared_ptr<RKVVASTAd> readAd(bool wrapper, const std::string& content,
                                  test::RKVReportRecorder* recorder = nullptr,
                                  std::optional<RKVError>* error = nullptr) {
  const std::string kind = wrapper ? "Wrapper" : "InLine";
  const auto ad = element("<Ad><" + kind + ">" + content + "</" + kind + "></Ad>");
  const auto handler = recorder ? recorder->inner() : RKVVASTInnerErrorHandler();
  if (wrapper) return RKVVASTAdWrapper::withDictionary(*ad, error, handler);
  return RKVVASTAdInline::withDictionary(*ad, error, handler);
}

Strings trackingURLs(const RKVVASTCreative& creative) {
  Strings urls;
  for (const auto& event : creative.trackingEvents())
    urls.push_back(event->url().absoluteString());
  return urls;
}

// What an inline ad's creatives say about the ad: reports, the error placed, validity and the
// creatives kept. Reports name the error without its "VAST_VALIDATION_ERROR_" prefix, with "+"
// when the ad's error pixels were handed over.
TEST(RKVVASTAdTest, CreativesDecideTheInlineAd) {
  const std::string noDuration = "<Creative><Linear>" + kMedia + "<TrackingEvents>" +
                                 tracking("http://t.test/l") +
                                 "</TrackingEvents></Linear></Creative>";
  const std::string noMedia = "<Creative><Linear><Duration>00:00:05</Duration></Linear></Creative>";
  const std::string companion =
      "<Creative><CompanionAds><Companion><StaticResource>http://c.test/1.png</StaticResource>"
      "</Companion></CompanionAds></Creative>";
  const std::string bareNonLinear =
      "<Creative><NonLinearAds><NonLinear width='1'/></NonLinearAds></Creative>";
  struct Case {
    std::string creatives;
    bool place;
    std::string reports, placed;
    bool valid;
    std::string kept;  // linear, non-linear and companion creatives
  };
  const std::string mediaFiles = "LINEAR_MISSING_MEDIAFILES";
  const Case cases[] = {
      {creatives(kLinear), true, "", "", true, "100"},
      {"", false, "MISSING_CREATIVES+", "", false, "000"},
      // Companions alone do not make an ad.
      {creatives(companion), true, "MISSING_CREATIVES+", "MISSING_CREATIVES", false, "001"},
      {creatives(noMedia), true, mediaFiles + "+", mediaFiles, false, "000"},
      {creatives(noMedia), false, "", "", false, "000"},
      // Only errors without a VAST code are reported, and only the last linear error is kept.
      {creatives(noDuration), true, "LINEAR_MISSING_DURATION", "", true, "100"},
      {creatives(noDuration + kNonLinear), true, "", "", true, "110"},
      {creatives(noDuration + noMedia), true, "", mediaFiles, true, "100"},
      {creatives(bareNonLinear), true, "MISSING_CREATIVES+", "MISSING_CREATIVES", false, "000"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.creatives + (c.place ? "" : " without a place"));
    test::RKVReportRecorder recorder;
    std::optional<RKVError> error;
    auto ad = readAd(false, kBasics + kErrors + c.creatives, &recorder, c.place ? &error : nullptr);
    std::string reports;
    for (std::string line : recorder.lines()) {
      const size_t pixels = line.find(" http://e.test/1?c=%5BERRORCODE%5D");
      if (pixels != std::string::npos) line.replace(pixels, std::string::npos, "+");
      reports += line.substr(line.find("ERROR_") + 6);
    }
    EXPECT_EQ(reports, c.reports);
    EXPECT_EQ(error ? error->vastError->errorName().value_or("").substr(22) : "", c.placed);
    EXPECT_EQ(ad->isValid(), c.valid);
    EXPECT_EQ(ad->hasTriggeredAParsingError(), !c.valid);
    EXPECT_EQ(std::to_string(ad->linearCreatives().size()) +
                  std::to_string(ad->nonLinearCreatives().size()) +
                  std::to_string(ad->companionCreatives().size()),
              c.kept);
  }
}

TEST(RKVVASTAdTest, VerificationsFromEitherPlace) {
  auto verification = [](const std::string& vendor) {
    return "<Verification vendor='" + vendor + "'><JavaScriptResource>http://s.test/" + vendor +
           ".js</JavaScriptResource></Verification>";
  };
  const std::string current = "<AdVerifications>" + verification("a") + verification("b") +
                              "<Verification vendor='no-script'/></AdVerifications>";
  const std::string older = "<Extensions><Extension type='AdVerifications'><AdVerifications>" +
                            verification("old") +
                            "</AdVerifications></Extension><Extension type='other'>"
                            "<AdVerifications>" +
                            verification("other") + "</AdVerifications></Extension></Extensions>";
  // The older form is read only when the current one holds no Verification.
  const std::pair<std::string, Strings> cases[] = {
      {current + older, {"a", "b"}},
      {"<AdVerifications><Verification/></AdVerifications>" + older, {"old"}},
  };
  for (const auto& [content, expected] : cases) {
    Strings vendors;
    const auto ad = readAd(true, kBasics + content);
    for (const auto& v : ad->adVerifications())
      vendors.push_back(v->vendor().value_or("(null)"));
    EXPECT_EQ(vendors, expected) << content;
  }
}

TEST(RKVVASTAdTest, MergePoursTheWrapperIntoTheAd) {
  auto extension = [](const char* url, const char* page) {
    return std::string("<Extensions><Extension><VireoMetrics><VireoMetric name='viewcount'>") +
           url + "</VireoMetric></VireoMetrics><VireoMacros><pageID>" + page +
           "</pageID></VireoMacros></Extension></Extensions>";
  };
  auto linearWith = [](const std::string& n) {
    return "<Creative><Linear><TrackingEvents>" + tracking("http://w.test/t" + n) +
           "</TrackingEvents><VideoClicks><ClickTracking>http://w.test/c" + n +
           "</ClickTracking></VideoClicks></Linear></Creative>";
  };
  auto wrapper = readAd(
      true, kBasics +
                "<ViewableImpression><Viewable>http://w.test/view</Viewable></ViewableImpression>" +
                creatives(linearWith("1") + linearWith("2") +
                          "<Creative><NonLinearAds><NonLinear><StaticResource>http://w.test/nl.png"
                          "</StaticResource></NonLinear><TrackingEvents>" +
                          tracking("http://w.test/nl") +
                          "</TrackingEvents></NonLinearAds><CompanionAds><Companion>"
                          "<TrackingEvents>" +
                          tracking("http://w.test/co", "creativeView") +
                          "</TrackingEvents></Companion></CompanionAds></Creative>") +
                extension("http://w.test/metric", "wrapper") +
                "<AdVerifications><Verification vendor='w'><JavaScriptResource>http://w.test/v.js"
                "</JavaScriptResource></Verification></AdVerifications>");
  auto ad = readAd(false, kBasics +
                              creatives("<Creative><Linear><Duration>00:00:10</Duration>" + kMedia +
                                        "<TrackingEvents>" + tracking("http://a.test/t") +
                                        "</TrackingEvents></Linear></Creative>") +
                              extension("http://a.test/metric", "ad"));
  const auto wrapperExtension = wrapper->extensions();

  ad->merge(*wrapper);
  EXPECT_EQ(ad->wrapperDepth(), 1);
  // The manager's chain test checks the impressions and error URLs of every level, in order.
  ASSERT_EQ(ad->viewabilityEvents().size(), 3u);  // its metric, the wrapper's view and metric
  EXPECT_EQ(ad->viewabilityEvents()[1]->eventURL().absoluteString(), "http://w.test/view");
  // Every wrapper linear creative's tracking and clicks go to every linear creative of the ad.
  ASSERT_EQ(ad->linearCreatives().size(), 1u);
  EXPECT_EQ(trackingURLs(*ad->linearCreatives()[0]),
            (Strings{"http://a.test/t", "http://w.test/t1", "http://w.test/t2"}));
  EXPECT_EQ(urlTexts(ad->linearCreatives()[0]->clickTracking()),
            (Strings{"http://w.test/c1", "http://w.test/c2"}));
  // Kinds the ad lacked get an empty creative carrying the wrapper's tracking of that kind.
  ASSERT_EQ(ad->companionCreatives().size(), 1u);
  EXPECT_EQ(trackingURLs(*ad->companionCreatives()[0]), Strings{"http://w.test/co"});
  EXPECT_FALSE(ad->companionCreatives()[0]->staticResource());
  ASSERT_EQ(ad->nonLinearCreatives().size(), 1u);
  EXPECT_EQ(trackingURLs(*ad->nonLinearCreatives()[0]), Strings{"http://w.test/nl"});
  EXPECT_FALSE(ad->nonLinearCreatives()[0]->staticResource());
  // The wrapper's extension replaces the ad's and collects the ad's metrics.
  EXPECT_EQ(ad->extensions(), wrapperExtension);
  EXPECT_EQ(ad->extensions()->metrics()->back()->url().absoluteString(), "http://a.test/metric");
  ASSERT_EQ(ad->adVerifications().size(), 1u);
  EXPECT_EQ(ad->adVerifications()[0]->vendor(), "w");

  // A wrapper without metrics leaves the ad's extension alone, and still gives empty creatives
  // of the kinds the ad lacks (the manager's tests count the depth of longer chains).
  auto third =
      readAd(false, kBasics + creatives(kNonLinear) +
                        "<Extensions><Extension><sort rank='2'/></Extension></Extensions>");
  third->merge(*readAd(true, kBasics));
  EXPECT_EQ(third->wrapperDepth(), 1);
  EXPECT_EQ(third->extensions()->sortRank(), "2");
  EXPECT_EQ(third->linearCreatives().size() + third->companionCreatives().size(), 2u);
}

TEST(RKVVASTAdTest, MergeLeavesOutWhatACreativeHoldsAndStopsAtTheCeiling) {
  auto linear = [](const std::string& tracking, const std::string& clicks = "") {
    return "<Creative><Linear><Duration>00:00:10</Duration>" + kMedia + "<TrackingEvents>" +
           tracking + "</TrackingEvents><VideoClicks>" + clicks +
           "</VideoClicks></Linear></Creative>";
  };
  auto progress = [](const char* offset) {
    return std::string("<Tracking event='progress' offset='") + offset +
           "'>http://x.test/a</Tracking>";
  };
  const std::string click = "<ClickTracking>http://x.test/click</ClickTracking>";
  // Short lists: an event equal in name, offset and URL, or a click URL, comes once, whether the
  // creative held it or an earlier wrapper creative brought it.
  auto ad = readAd(false, kBasics + creatives(linear(tracking("http://x.test/a"))));
  auto wrapper = readAd(
      true, kBasics + creatives(linear(tracking("http://x.test/a") +
                                           tracking("http://x.test/a", "complete") + progress("5"),
                                       click) +
                                linear(progress("5") + progress("10"), click)));
  ad->merge(*wrapper);
  EXPECT_EQ(trackingURLs(*ad->linearCreatives()[0]), Strings(4, "http://x.test/a"));
  Strings names;
  for (const auto& event : ad->linearCreatives()[0]->trackingEvents())
    names.push_back(event->name() + event->offset().value_or(""));
  EXPECT_EQ(names, (Strings{"start", "complete", "progress5", "progress10"}));
  EXPECT_EQ(urlTexts(ad->linearCreatives()[0]->clickTracking()), Strings{"http://x.test/click"});
  EXPECT_EQ(ad->mergedEntryCount(), 4u);
  // Merged into itself, the ad's creatives already hold everything.
  ad->merge(*ad);
  EXPECT_EQ(ad->linearCreatives()[0]->trackingEvents().size(), 4u);

  // Long lists go through a set of the keys, with the same outcome and order.
  auto numbered = [](int from, int to) {
    std::string xml;
    for (int i = from; i < to; ++i)
      xml += tracking("http://x.test/" + std::to_string(i));
    return xml;
  };
  auto longAd = readAd(false, kBasics + creatives(linear(numbered(0, 50))));
  longAd->merge(
      *readAd(true, kBasics + creatives(linear(numbered(25, 100)) + linear(numbered(90, 110)))));
  Strings expected;
  for (int i = 0; i < 110; ++i)
    expected.push_back("http://x.test/" + std::to_string(i));
  EXPECT_EQ(trackingURLs(*longAd->linearCreatives()[0]), expected);

  // Beyond the ceiling the rest is dropped, impressions first in, tracking last; later merges
  // add nothing more.
  auto big = readAd(true, kBasics + creatives(linear(tracking("http://x.test/w"))));
  const size_t ceiling = RKVVASTAd::kMaximumMergedEntries;
  for (size_t i = 0; i < ceiling + 10; ++i)
    big->impressions().emplace_back(test::url("http://x.test/i" + std::to_string(i)));
  auto full = readAd(false, kBasics + "<Impression>http://x.test/own</Impression>" +
                                creatives(linear(tracking("http://x.test/own"))));
  full->merge(*big);
  full->merge(*wrapper);
  EXPECT_EQ(full->mergedEntryCount(), ceiling);
  EXPECT_EQ(full->impressions().size(), 1 + ceiling);
  EXPECT_EQ(full->impressions().back().url().absoluteString(),
            "http://x.test/i" + std::to_string(ceiling - 1));
  EXPECT_EQ(trackingURLs(*full->linearCreatives()[0]), Strings{"http://x.test/own"});
  EXPECT_EQ(full->wrapperDepth(), 1);
}

}  // namespace
}  // namespace rkv
