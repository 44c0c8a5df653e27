#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTAdInline.h"
#include "rkv/vast/model/RKVVASTAdWrapper.h"

#include "tests/vast/RKVReportRecorder.h"
#include "tests/vast/model/RKVModelTestSupport.h"

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
const std::string kCompanion =
    "<Creative><CompanionAds><Companion><StaticResource>http://c.test/1.png</StaticResource>"
    "</Companion></CompanionAds></Creative>";

std::string creatives(const std::string& entries) {
  return "<Creatives>" + entries + "</Creatives>";
}

std::shared_ptr<RKVVASTAdInline> readInline(const std::string& content,
                                            test::RKVReportRecorder* recorder = nullptr,
                                            std::optional<RKVError>* error = nullptr,
                                            const std::string& attributes = "") {
  return RKVVASTAdInline::withDictionary(
      *element("<Ad" + attributes + "><InLine>" + content + "</InLine></Ad>"), error,
      recorder ? recorder->inner() : RKVVASTInnerErrorHandler());
}

std::shared_ptr<RKVVASTAdWrapper> readWrapper(const std::string& content,
                                              test::RKVReportRecorder* recorder = nullptr,
                                              std::optional<RKVError>* error = nullptr) {
  return RKVVASTAdWrapper::withDictionary(
      *element("<Ad><Wrapper>" + content + "</Wrapper></Ad>"), error,
      recorder ? recorder->inner() : RKVVASTInnerErrorHandler());
}

Strings trackingURLs(const RKVVASTCreative& creative) {
  Strings urls;
  for (const auto& event : creative.trackingEvents())
    urls.push_back(event->url().absoluteString());
  return urls;
}

std::string tracking(const std::string& url) {
  return "<Tracking event='start'>" + url + "</Tracking>";
}

TEST(RKVVASTAdTest, SequenceAttribute) {
  struct Case {
    const char* attributes;
    std::optional<std::string> sequence;
  };
  const Case cases[] = {
      {"", std::nullopt},
      {" sequence='3'", "3"},
      {" sequence=' 7x'", " 7x"},  // read as 7: kept as written
      {" sequence='-2'", "-2"},
      // Anything that reads as 0 sorts last but still counts as a sequence.
      {" sequence='0'", "2147483647"},
      {" sequence='abc'", "2147483647"},
      {" sequence=''", "2147483647"},
  };
  for (const Case& c : cases) {
    auto ad = readInline(kBasics + creatives(kLinear), nullptr, nullptr, c.attributes);
    ASSERT_TRUE(ad) << c.attributes;
    EXPECT_EQ(ad->adSequence(), c.sequence) << c.attributes;
    EXPECT_EQ(ad->hasSequence(), c.sequence.has_value()) << c.attributes;
  }
  auto base = RKVVASTAd::withDictionary(*element("<Ad id='x' sequence='0'><InLine/></Ad>"));
  EXPECT_EQ(base->adID(), "x");
  EXPECT_EQ(base->adSequence(), "2147483647");
  EXPECT_FALSE(base->isInline() || base->isWrapper());
  EXPECT_TRUE(base->isValid());
}

TEST(RKVVASTAdTest, AdOfTheOtherKindIsNotMade) {
  struct Case {
    bool readAsWrapper;
    const char* xml;
    std::string error;
  };
  const Case cases[] = {
      {false, "<Ad><Wrapper><AdSystem>S</AdSystem></Wrapper></Ad>", "XML_PARSING_ERROR"},
      {true, "<Ad><InLine><AdSystem>S</AdSystem></InLine></Ad>", "XML_PARSING_ERROR_WRAPPER"},
  };
  for (const Case& c : cases) {
    test::RKVReportRecorder recorder;
    std::optional<RKVError> error;
    const bool made =
        c.readAsWrapper
            ? RKVVASTAdWrapper::withDictionary(*element(c.xml), &error, recorder.inner()) != nullptr
            : RKVVASTAdInline::withDictionary(*element(c.xml), &error, recorder.inner()) != nullptr;
    EXPECT_FALSE(made) << c.xml;
    EXPECT_EQ(recorder.names(), Strings{c.error});
    EXPECT_TRUE(recorder.reports()[0].urls.empty());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->vastError->errorName(), c.error);
    // Without a place or a handler it is simply not made.
    EXPECT_FALSE(c.readAsWrapper ? RKVVASTAdWrapper::withDictionary(*element(c.xml)) != nullptr
                                 : RKVVASTAdInline::withDictionary(*element(c.xml)) != nullptr);
  }
}

TEST(RKVVASTAdTest, MissingAdSystemAndTitleAreReportedButKeepTheAdValid) {
  struct Case {
    std::string basics;
    Strings reports;
  };
  const Case cases[] = {
      {"<AdSystem>S</AdSystem>", {"VAST_VALIDATION_ERROR_MISSING_ADTITLE"}},
      {"<AdTitle>T</AdTitle>", {"VAST_VALIDATION_ERROR_MISSING_ADSYSTEM"}},
      {"<AdSystem> </AdSystem><AdTitle></AdTitle>",
       {"VAST_VALIDATION_ERROR_MISSING_ADSYSTEM", "VAST_VALIDATION_ERROR_MISSING_ADTITLE"}},
      {kBasics, {}},
  };
  for (const Case& c : cases) {
    for (const bool wrapper : {false, true}) {
      test::RKVReportRecorder recorder;
      const std::shared_ptr<RKVVASTAd> ad =
          wrapper ? std::shared_ptr<RKVVASTAd>(readWrapper(c.basics + kErrors, &recorder))
                  : readInline(c.basics + kErrors + creatives(kLinear), &recorder);
      ASSERT_TRUE(ad);
      EXPECT_EQ(recorder.names(), c.reports) << c.basics;
      for (const auto& report : recorder.reports())
        EXPECT_TRUE(report.urls.empty());  // filling them is the document's business
      EXPECT_TRUE(ad->isValid()) << c.basics;
    }
  }
  auto ad = readInline(kBasics + creatives(kLinear));
  EXPECT_EQ(ad->adSystem(), "S");
  EXPECT_EQ(ad->adTitle(), "T");
}

// What an inline ad's creatives say about the ad: kept creatives, reports and validity.
TEST(RKVVASTAdTest, CreativesDecideTheInlineAd) {
  const std::string noDuration = "<Creative><Linear>" + kMedia + "<TrackingEvents>" +
                                 tracking("http://t.test/l") +
                                 "</TrackingEvents></Linear></Creative>";
  const std::string noMedia = "<Creative><Linear><Duration>00:00:05</Duration></Linear></Creative>";
  const std::string errorPixel = "http://e.test/1?c=%5BERRORCODE%5D";
  struct Case {
    const char* name;
    std::string creatives;
    bool errorPlace;
    Strings reports;  // each "name" or "name+pixels" when handed the ad's error pixels
    std::optional<std::string> placed;
    bool valid;
    size_t linear, nonLinear, companion;
  };
  const std::string missing = "VAST_VALIDATION_ERROR_MISSING_CREATIVES";
  const Case cases[] = {
      {"valid linear", creatives(kLinear), true, {}, std::nullopt, true, 1, 0, 0},
      {"no Creatives", "", true, {missing + "+pixels"}, missing, false, 0, 0, 0},
      {"no Creatives, no place", "", false, {missing + "+pixels"}, std::nullopt, false, 0, 0, 0},
      {"no Creative entry",
       creatives("<Creative id='1'/>"),
       true,
       {missing + "+pixels"},
       missing,
       false,
       0,
       0,
       0},
      // Companions alone do not make an ad, whatever isValid would say of them.
      {"companion only",
       creatives(kCompanion),
       true,
       {missing + "+pixels"},
       missing,
       false,
       0,
       0,
       1},
      {"linear without media files",
       creatives(noMedia),
       true,
       {"VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES+pixels"},
       "VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES",
       false,
       0,
       0,
       0},
      // Without an error place that failure is not reported at all.
      {"linear without media files, no place",
       creatives(noMedia),
       false,
       {},
       std::nullopt,
       false,
       0,
       0,
       0},
      {"linear without duration",
       creatives(noDuration),
       true,
       {"VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION"},
       std::nullopt,
       true,
       1,
       0,
       0},
      {"linear without duration beside a non-linear",
       creatives(noDuration + kNonLinear),
       true,
       {},
       std::nullopt,
       true,
       1,
       1,
       0},
      // Only the last linear error counts, and it has a VAST code: nothing is reported.
      {"duration missing, then media files missing",
       creatives(noDuration + noMedia),
       true,
       {},
       "VAST_VALIDATION_ERROR_LINEAR_MISSING_MEDIAFILES",
       true,
       1,
       0,
       0},
      {"non-linear without resource",
       creatives("<Creative><NonLinearAds><NonLinear width='1'/>"
                 "</NonLinearAds></Creative>"),
       true,
       {missing + "+pixels"},
       missing,
       false,
       0,
       0,
       0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    test::RKVReportRecorder recorder;
    std::optional<RKVError> error;
    auto ad =
        readInline(kBasics + kErrors + c.creatives, &recorder, c.errorPlace ? &error : nullptr);
    ASSERT_TRUE(ad);
    Strings reports;
    for (const auto& report : recorder.reports()) {
      if (report.urls.empty()) {
        reports.push_back(report.name);
      } else {
        EXPECT_EQ(report.urls, Strings{errorPixel});
        reports.push_back(report.name + "+pixels");
      }
    }
    EXPECT_EQ(reports, c.reports);
    EXPECT_EQ(error && error->vastError ? error->vastError->errorName() : std::nullopt, c.placed);
    EXPECT_EQ(ad->isValid(), c.valid);
    EXPECT_EQ(ad->hasTriggeredAParsingError(), !c.valid);
    EXPECT_EQ(ad->linearCreatives().size(), c.linear);
    EXPECT_EQ(ad->nonLinearCreatives().size(), c.nonLinear);
    EXPECT_EQ(ad->companionCreatives().size(), c.companion);
  }
}

TEST(RKVVASTAdTest, WrapperCreativesAndAdTag) {
  // A wrapper's linear creative usually carries tracking only: it is kept, and the missing
  // duration is reported as a vendor-only error; the error place is never touched.
  test::RKVReportRecorder recorder;
  std::optional<RKVError> error;
  auto wrapper =
      readWrapper(kBasics + "<VASTAdTagURI>http://w.test/next.xml?a=[X]</VASTAdTagURI>" +
                      creatives("<Creative><Linear><TrackingEvents>" + tracking("http://t.test/w") +
                                "</TrackingEvents></Linear></Creative>"),
                  &recorder, &error);
  ASSERT_TRUE(wrapper);
  EXPECT_EQ(recorder.names(), Strings{"VAST_VALIDATION_ERROR_LINEAR_MISSING_DURATION"});
  EXPECT_FALSE(error);
  ASSERT_EQ(wrapper->linearCreatives().size(), 1u);
  EXPECT_EQ(trackingURLs(*wrapper->linearCreatives()[0]), Strings{"http://t.test/w"});
  EXPECT_TRUE(wrapper->isValid());
  ASSERT_TRUE(wrapper->nextActionURL());
  EXPECT_EQ(wrapper->nextActionURL()->absoluteString(), "http://w.test/next.xml?a=%5BX%5D");
  EXPECT_EQ(wrapper->adTagURL()->url(), *wrapper->nextActionURL());

  // No Creatives is fine for a wrapper; a missing or unusable ad tag does not make it invalid.
  for (const char* tag :
       {"", "<VASTAdTagURI> </VASTAdTagURI>", "<VASTAdTagURI>http://bad host/</VASTAdTagURI>"}) {
    test::RKVReportRecorder quiet;
    auto ad = readWrapper(kBasics + tag, &quiet);
    ASSERT_TRUE(ad) << tag;
    EXPECT_TRUE(quiet.reports().empty()) << tag;
    EXPECT_FALSE(ad->adTagURL()) << tag;
    EXPECT_FALSE(ad->nextActionURL()) << tag;
    EXPECT_TRUE(ad->isValid()) << tag;
    EXPECT_TRUE(ad->isWrapper() && !ad->isInline());
  }
  EXPECT_FALSE(readInline(kBasics + creatives(kLinear))->nextActionURL());
}

TEST(RKVVASTAdTest, CreativeEntriesAreReadAsTheyCome) {
  const std::string nonLinearAds = [] {
    std::string entries;
    for (const char* n : {"1", "2"}) {
      entries += std::string("<Creative><UniversalAdId idRegistry='r'>u") + n +
                 "</UniversalAdId><NonLinearAds><NonLinear id='n" + n +
                 "a'><StaticResource>http://n.test/" + n +
                 ".png</StaticResource></NonLinear><NonLinear id='n" + n +
                 "b'><StaticResource>http://n.test/x.png</StaticResource></NonLinear>"
                 "<TrackingEvents>" +
                 tracking(std::string("http://t.test/") + n) + "</TrackingEvents></NonLinearAds>" +
                 "<CompanionAds><Companion id='c" + n +
                 "a'><StaticResource>http://c.test/1.png</StaticResource></Companion>"
                 "<Companion id='c" +
                 n +
                 "b'><StaticResource>http://c.test/2.png</StaticResource></Companion>"
                 "</CompanionAds></Creative>";
    }
    return entries;
  }();
  const std::string linear =
      "<Creative><UniversalAdId idRegistry='ad-id.org'>U1</UniversalAdId>"
      "<UniversalAdId idRegistry='ad-id.org'>U1</UniversalAdId>"
      "<UniversalAdId idRegistry='x'>unknown</UniversalAdId>"
      "<UniversalAdId idRegistry='y'>U2</UniversalAdId>"
      "<Linear><Duration>00:00:10</Duration>" +
      kMedia + "</Linear></Creative>";
  auto ad = readInline(kBasics + creatives(nonLinearAds + linear));
  ASSERT_TRUE(ad);

  // Only the first NonLinear and the first Companion of each entry are read.
  ASSERT_EQ(ad->nonLinearCreatives().size(), 2u);
  EXPECT_EQ(ad->nonLinearCreatives()[0]->id(), "n1a");
  EXPECT_EQ(ad->nonLinearCreatives()[1]->id(), "n2a");
  ASSERT_EQ(ad->companionCreatives().size(), 2u);
  EXPECT_EQ(ad->companionCreatives()[1]->id(), "c2a");
  // A NonLinearAds' tracking goes to every non-linear creative read so far.
  EXPECT_EQ(trackingURLs(*ad->nonLinearCreatives()[0]),
            (Strings{"http://t.test/1", "http://t.test/2"}));
  EXPECT_EQ(trackingURLs(*ad->nonLinearCreatives()[1]), Strings{"http://t.test/2"});

  // The entry's universal ad ids go to its linear creative, each once, unusable ones dropped.
  ASSERT_EQ(ad->linearCreatives().size(), 1u);
  Strings ids;
  for (const auto& id : ad->linearCreatives()[0]->universalAdIds())
    ids.push_back(id.registry() + ":" + id.value());
  EXPECT_EQ(ids, (Strings{"ad-id.org:U1", "y:U2"}));
}

TEST(RKVVASTAdTest, URLListsKeepWhatParses) {
  auto ad = readInline(
      kBasics +
      "<Impression>http://i.test/1</Impression><Impression/><Impression>http://bad host/"
      "</Impression><Impression id='2'><![CDATA[ http://i.test/2 ]]></Impression>"
      "<Error>http://e.test/1</Error><Error>https://</Error>"
      "<ViewableImpression><ViewUndetermined>http://v.test/u</ViewUndetermined>"
      "<NotViewable>http://v.test/n</NotViewable><Viewable>http://v.test/v1</Viewable>"
      "<Viewable></Viewable><Viewable>http://[bad/</Viewable><Viewable>http://v.test/v2</Viewable>"
      "</ViewableImpression>" +
      creatives(kLinear) +
      "<Extensions><Extension><VireoMetrics><VireoMetric name='viewcount'>http://v.test/count"
      "</VireoMetric><VireoMetric name='other'>http://v.test/other</VireoMetric></VireoMetrics>"
      "</Extension></Extensions>");
  ASSERT_TRUE(ad);
  EXPECT_EQ(urlTexts(ad->impressions()), (Strings{"http://i.test/1", "http://i.test/2"}));
  EXPECT_EQ(urlTexts(ad->errorPixels()), Strings{"http://e.test/1"});
  // Viewable, then not viewable, then undetermined, then the extension's viewcount metrics.
  Strings events;
  for (const auto& event : ad->viewabilityEvents())
    events.push_back(event->eventName() + " " + event->eventURL().absoluteString());
  EXPECT_EQ(events, (Strings{"viewable http://v.test/v1", "viewable http://v.test/v2",
                             "notviewable http://v.test/n", "viewundetermined http://v.test/u",
                             "viewable http://v.test/count"}));
  ASSERT_TRUE(ad->extensions());
  ASSERT_TRUE(ad->extensions()->metrics());
  EXPECT_EQ(ad->extensions()->metrics()->size(), 1u);
}

TEST(RKVVASTAdTest, VerificationsFromEitherPlace) {
  auto verification = [](const std::string& vendor) {
    return "<Verification vendor='" + vendor + "'><JavaScriptResource apiFramework='omid'>" +
           "http://s.test/" + vendor + ".js</JavaScriptResource></Verification>";
  };
  const std::string current = "<AdVerifications>" + verification("a") + verification("b") +
                              "<Verification vendor='no-script'/></AdVerifications>";
  const std::string older =
      "<Extensions><Extension type='AdVerifications'><AdVerifications>" + verification("old") +
      "</AdVerifications></Extension><Extension type='other'>"
      "<AdVerifications>" +
      verification("other") + "</AdVerifications></Extension><Extension><AdVerifications>" +
      verification("untyped") + "</AdVerifications></Extension></Extensions>";
  struct Case {
    const char* name;
    std::string content;
    Strings vendors;
  };
  const Case cases[] = {
      {"current place", current, {"a", "b"}},
      {"older place", older, {"old"}},
      {"current place wins", current + older, {"a", "b"}},
      {"an empty current place falls back",
       "<AdVerifications><Verification/></AdVerifications>" + older,
       {"old"}},
      {"neither", "", {}},
  };
  for (const Case& c : cases) {
    for (const bool wrapper : {false, true}) {
      const std::shared_ptr<RKVVASTAd> ad =
          wrapper ? std::shared_ptr<RKVVASTAd>(readWrapper(kBasics + c.content))
                  : readInline(kBasics + creatives(kLinear) + c.content);
      ASSERT_TRUE(ad);
      Strings vendors;
      for (const auto& v : ad->adVerifications())
        vendors.push_back(v->vendor().value_or("(null)"));
      EXPECT_EQ(vendors, c.vendors) << c.name;
    }
  }
}

TEST(RKVVASTAdTest, MergePoursTheWrapperIntoTheAd) {
  auto extension = [](const char* url, const char* page) {
    return std::string("<Extensions><Extension><VireoMetrics><VireoMetric name='viewcount'>") +
           url + "</VireoMetric></VireoMetrics><VireoMacros><pageID>" + page +
           "</pageID></VireoMacros></Extension></Extensions>";
  };
  auto linearWith = [](const char* trackingURL, const char* clickURL) {
    return std::string("<Creative><Linear><TrackingEvents>") + tracking(trackingURL) +
           "</TrackingEvents><VideoClicks><ClickTracking>" + clickURL +
           "</ClickTracking></VideoClicks></Linear></Creative>";
  };
  auto wrapper = readWrapper(
      kBasics + "<Impression>http://w.test/imp</Impression><Error>http://w.test/err</Error>" +
      "<ViewableImpression><Viewable>http://w.test/view</Viewable></ViewableImpression>" +
      creatives(linearWith("http://w.test/t1", "http://w.test/c1") +
                linearWith("http://w.test/t2", "http://w.test/c2") +
                "<Creative><NonLinearAds><NonLinear><StaticResource>http://w.test/nl.png"
                "</StaticResource></NonLinear><TrackingEvents>" +
                tracking("http://w.test/nl") +
                "</TrackingEvents></NonLinearAds><CompanionAds><Companion><TrackingEvents>" +
                "<Tracking event='creativeView'>http://w.test/co</Tracking>" +
                "</TrackingEvents></Companion></CompanionAds></Creative>") +
      extension("http://w.test/metric", "wrapper") +
      "<AdVerifications><Verification vendor='w'><JavaScriptResource>http://w.test/v.js"
      "</JavaScriptResource></Verification></AdVerifications>");
  auto ad = readInline(
      kBasics + "<Impression>http://a.test/imp</Impression><Error>http://a.test/err</Error>" +
      creatives("<Creative><Linear><Duration>00:00:10</Duration>" + kMedia + "<TrackingEvents>" +
                tracking("http://a.test/t") +
                "</TrackingEvents></Linear>"
                "</Creative>") +
      extension("http://a.test/metric", "ad"));
  ASSERT_TRUE(wrapper && ad);
  ASSERT_EQ(wrapper->nonLinearCreatives().size(), 1u);
  ASSERT_EQ(wrapper->companionCreatives().size(), 1u);  // kept in a wrapper without resource
  const auto wrapperExtension = wrapper->extensions();

  ad->merge(*wrapper);
  EXPECT_EQ(ad->wrapperDepth(), 1);
  EXPECT_EQ(urlTexts(ad->impressions()), (Strings{"http://a.test/imp", "http://w.test/imp"}));
  EXPECT_EQ(urlTexts(ad->errorPixels()), (Strings{"http://a.test/err", "http://w.test/err"}));
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
  EXPECT_EQ(ad->extensions()->pageID(), "wrapper");
  Strings metrics;
  for (const auto& m : *ad->extensions()->metrics())
    metrics.push_back(m->url().absoluteString());
  EXPECT_EQ(metrics, (Strings{"http://w.test/metric", "http://a.test/metric"}));
  ASSERT_EQ(ad->adVerifications().size(), 1u);
  EXPECT_EQ(ad->adVerifications()[0]->vendor(), "w");

  // Merging the result as the next level counts on; a wrapper without an extension metrics list
  // leaves the ad's extension alone, but still gives empty creatives.
  auto outer = readInline(kBasics + creatives(kNonLinear) +
                          "<Extensions><Extension><sort rank='2'"
                          "/></Extension></Extensions>");
  ASSERT_TRUE(outer && outer->extensions());
  outer->merge(*ad);
  EXPECT_EQ(outer->wrapperDepth(), 2);
  EXPECT_EQ(outer->extensions(), wrapperExtension);
  auto plainWrapper = readWrapper(kBasics);
  auto third = readInline(kBasics + creatives(kNonLinear) +
                          "<Extensions><Extension><sort rank='2'"
                          "/></Extension></Extensions>");
  third->merge(*plainWrapper);
  EXPECT_EQ(third->wrapperDepth(), 1);
  EXPECT_EQ(third->extensions()->sortRank(), "2");
  EXPECT_EQ(third->linearCreatives().size(), 1u);
  EXPECT_EQ(third->companionCreatives().size(), 1u);
  EXPECT_EQ(third->nonLinearCreatives().size(), 1u);
}

}  // namespace
}  // namespace rkv
