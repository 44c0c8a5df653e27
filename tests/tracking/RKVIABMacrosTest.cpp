#include <cmath>

#include "rkv/tracking/RKVIABMacros.h"

#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

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
