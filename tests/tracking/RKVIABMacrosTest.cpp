#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "rkv/tracking/RKVIABMacros.h"
#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"

#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

using std::chrono::minutes;
using std::chrono::system_clock;

// 2016-01-17T13:15:07.127Z
const system_clock::time_point kDate =
    system_clock::time_point(std::chrono::milliseconds(1453036507127));

TEST(RKVIABMacrosTest, TimestampIsISO8601WithMillisecondsAndOffset) {
  struct Case {
    system_clock::time_point date;
    minutes offset;
    const char* expected;
  };
  const Case cases[] = {
      {kDate, minutes(-300), "2016-01-17T08:15:07.127-05:00"},
      {kDate, minutes(0), "2016-01-17T13:15:07.127+00:00"},
      {kDate, minutes(11 * 60), "2016-01-18T00:15:07.127+11:00"},
      {kDate, minutes(-(13 * 60 + 45)), "2016-01-16T23:30:07.127-13:45"},
      {kDate + std::chrono::microseconds(999), minutes(330), "2016-01-17T18:45:07.127+05:30"},
      {system_clock::time_point(std::chrono::milliseconds(951782400000)), minutes(0),
       "2000-02-29T00:00:00.000+00:00"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(RKVIABMacros::timestamp(c.date, c.offset), c.expected);
}

TEST(RKVIABMacrosTest, PlayheadsAndCacheBusters) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const std::pair<double, std::optional<std::string>> playheads[] = {
      {0, "00:00:00.000"},      {11.355, "00:00:11.355"},  {321.1234, "00:05:21.123"},
      {3725.5, "01:02:05.500"}, {59.9996, "00:01:00.000"}, {360000, "100:00:00.000"},
      {-0.5, std::nullopt},     {nan, std::nullopt},       {inf, std::nullopt},
  };
  for (const auto& [seconds, expected] : playheads)
    EXPECT_EQ(RKVIABMacros::playhead(seconds), expected) << seconds;

  EXPECT_EQ(RKVIABMacros::cacheBusting(412345), "00412345");
  EXPECT_EQ(RKVIABMacros::cacheBusting(0), "00000000");
  EXPECT_EQ(RKVIABMacros::cacheBusting(4294967294u), "94967294");
  for (int i = 0; i < 100; ++i) {
    auto drawn = RKVIABMacros::cacheBusting();
    ASSERT_EQ(drawn.size(), 8u) << drawn;
    EXPECT_EQ(drawn.find_first_not_of("0123456789"), std::string::npos) << drawn;
  }
}

TEST(RKVIABMacrosTest, KnownFactsAreEncodedUnknownOnesMarked) {
  RKVIABMacroFacts known;
  known.ifa = "6d92078a-8246-4ba4-ae5b-76104861e7dc";
  known.ifaType = "rida";
  known.limitAdTracking = false;
  known.gdprApplies = true;
  known.gdprConsent = "CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA";
  known.usPrivacy = "1YNN";
  known.appBundle = "com.example.player";
  known.deviceUserAgent = "Mozilla/5.0 (Linux; STB) Player/1.2";
  known.adPlayhead = 11.355;
  known.contentPlayhead = 321.123;
  known.errorCode = 402;
  auto macros = RKVIABMacros::macrosWithFacts(known, kDate, minutes(-300));
  macros.erase("CACHEBUSTING");
  EXPECT_EQ(macros, (RKVTrackingMacros{
                        {"TIMESTAMP", "2016-01-17T08%3A15%3A07.127-05%3A00"},
                        {"ADPLAYHEAD", "00%3A00%3A11.355"},
                        {"CONTENTPLAYHEAD", "00%3A05%3A21.123"},
                        {"MEDIAPLAYHEAD", "00%3A05%3A21.123"},
                        {"ERRORCODE", "402"},
                        {"LIMITADTRACKING", "0"},
                        {"IFA", "6d92078a-8246-4ba4-ae5b-76104861e7dc"},
                        {"IFATYPE", "rida"},
                        {"GDPR", "1"},
                        {"GDPRCONSENT", "CPXxRfAPXxRfAAfKABENB-CgAAAAAAAAAAYgAAAAAAAA"},
                        {"US_PRIVACY", "1YNN"},
                        {"APPBUNDLE", "com.example.player"},
                        {"DEVICEUA", "Mozilla%2F5.0%20(Linux%3B%20STB)%20Player%2F1.2"},
                        {"DEVICEIP", "-1"},
                    }));

  auto unknown = RKVIABMacros::macrosWithFacts({}, kDate, minutes(0));
  EXPECT_EQ(unknown.count("ERRORCODE"), 0u);
  for (const char* name : {"ADPLAYHEAD", "CONTENTPLAYHEAD", "MEDIAPLAYHEAD", "LIMITADTRACKING",
                           "IFA", "IFATYPE", "GDPRCONSENT", "APPBUNDLE", "DEVICEUA", "DEVICEIP"})
    EXPECT_EQ(unknown[name], "-1") << name;
  EXPECT_EQ(unknown["GDPR"], "");
  EXPECT_EQ(unknown["US_PRIVACY"], "");

  RKVIABMacroFacts withheld;
  withheld.ifa = "-2";
  withheld.limitAdTracking = true;
  auto policy = RKVIABMacros::macrosWithFacts(withheld, kDate, minutes(0));
  EXPECT_EQ(policy["IFA"], "-2");
  EXPECT_EQ(policy["LIMITADTRACKING"], "1");
}

TEST(RKVIABMacrosTest, PercentEncodingIsEncodeURIComponent) {
  EXPECT_EQ(RKVIABMacros::percentEncode("AZaz09-_.!~*'()"), "AZaz09-_.!~*'()");
  EXPECT_EQ(RKVIABMacros::percentEncode(" #$&+,/:;=?@[]%\"<>"),
            "%20%23%24%26%2B%2C%2F%3A%3B%3D%3F%40%5B%5D%25%22%3C%3E");
  EXPECT_EQ(RKVIABMacros::percentEncode("\xC3\xA9\x01"), "%C3%A9%01");
}

class RKVIABMacrosTrackingTest : public RKVTrackingTest {};

TEST_F(RKVIABMacrosTrackingTest, FilledTemplatesParseAndCarryTheValues) {
  auto tracking = RKVTrackingEventManager(
      RKVTrackingEventDefaultFactory(
          {event("start",
                 "cb=[CACHEBUSTING]&ts=[TIMESTAMP]&ua=[DEVICEUA]&ap=[ADPLAYHEAD]&"
                 "gdpr=[GDPR]&c=[GDPRCONSENT]&us=[US_PRIVACY]&e=[ERRORCODE]")}),
      {}, delegate, pixelManager, loop);
  RKVIABMacroFacts facts;
  facts.deviceUserAgent = "Box/1.0 (a&b=c)";
  facts.adPlayhead = 2;
  tracking.setMacros(RKVIABMacros::macrosWithFacts(facts, kDate, minutes(60)));
  ASSERT_TRUE(tracking.trackEvent("start", {}));

  auto sent = sentTargets();
  ASSERT_EQ(sent.size(), 1u);
  auto received = RKVURL::withString("http://h" + sent[0]);
  ASSERT_TRUE(received.has_value());
  std::map<std::string, std::optional<std::string>> items;
  for (const auto& item : received->queryItems())
    items[item.name] = item.value;
  EXPECT_EQ(items["cb"]->size(), 8u);
  EXPECT_EQ(items["ts"], "2016-01-17T14:15:07.127+01:00");
  EXPECT_EQ(items["ua"], "Box/1.0 (a&b=c)");
  EXPECT_EQ(items["ap"], "00:00:02.000");
  EXPECT_EQ(items["gdpr"], "");
  EXPECT_EQ(items["c"], "-1");
  EXPECT_EQ(items["us"], "");
  EXPECT_EQ(items["e"], "[ERRORCODE]");  // not an error pixel: left for its owner
}

}  // namespace
}  // namespace rkv::test
