// The vendor extension record, ad verifications and the extension's verification scripts.
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTAdExtension.h"
#include "rkv/vast/model/RKVVASTAdExtensionAdVerification.h"
#include "rkv/vast/model/RKVVASTAdVerification.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using Extension = RKVVASTAdExtension;
using Resource = RKVVASTAdVerificationResource;
using Event = RKVVASTAdVerificationEvent;
using Script = RKVVASTAdExtensionAdVerification;
using V = RKVVASTAdVerification;
using Strings = std::vector<std::string>;
using test::url;

// One Extensions element with one Extension holding `content`.
std::shared_ptr<Extension> extensionWith(const std::string& content) {
  return Extension::withDictionary(
      *test::element("<Extensions><Extension>" + content + "</Extension></Extensions>"));
}

// `<parent><child>text</child></parent>`; the child may carry attributes ("name attr='v'").
std::string block(std::string_view parent, std::string_view child, std::string_view text) {
  return "<" + std::string(parent) + "><" + std::string(child) + ">" + std::string(text) + "</" +
         std::string(child.substr(0, child.find(' '))) + "></" + std::string(parent) + ">";
}

// The archive of a record holding `entry` besides the fields every record has.
std::string archiveWith(const std::string& entry) {
  return R"({"offsetIsForced":false,"instanceCount":0)" + (entry.empty() ? "" : "," + entry) + "}";
}

TEST(RKVVASTAdExtensionTest, EverySpellingIsReadUnderItsElementAndArchivedUnderItsKey) {
  // Element and archive key of each text field; the "rtb" ones are read from RtbMacros.
  // clang-format off
  const std::pair<const char*, std::string> texts[] = {
      {"pageID", "pageID"}, {"target", "target"}, {"referrer", "referer"}, {"ip", "clientIP"},
      {"contentID", "contentID"}, {"contentProviderID", "contentProviderID"},
      {"AdvertiserId", "rtbAdvertiserID"}, {"DspId", "rtbDspID"}, {"BuyerId", "rtbBuyerID"},
      {"DealId", "rtbDealID"}, {"AuctionId", "rtbAuctionID"}, {"PublisherId", "rtbPublisherID"},
      {"BidLogTimeTicks", "rtbBidLogTimeTicks"}, {"EnvironmentType", "rtbEnvironmentType"},
      {"ImpressionHash", "rtbImpressionHash"}};
  // clang-format on
  for (const auto& [element, key] : texts) {
    const char* parent = key.starts_with("rtb") ? "RtbMacros" : "VireoMacros";
    auto extension = extensionWith(block(parent, element, "abc 1"));
    EXPECT_EQ(extension->archive(), archiveWith("\"" + key + "\":\"abc 1\""));
    EXPECT_EQ(*Extension::unarchive(extension->archive()), *extension) << key;
    EXPECT_FALSE(*extension == Extension() || Extension() == *extension) << key;
  }
  // The number fields take digits only; element and archive key are alike.
  for (const char* element :
       {"sessionID", "statDomainID", "networkID", "templateID", "advertiserID", "campaignID",
        "insertionID", "siteID", "formatID", "adBreakType", "instances", "videoPlayerWidth",
        "videoPlayerHeight"}) {
    auto extension = extensionWith(block("VireoMacros", element, "123"));
    EXPECT_EQ(extension->archive(), archiveWith("\"" + std::string(element) + "\":123.0"));
    EXPECT_EQ(*Extension::unarchive(extension->archive()), *extension) << element;
    for (const char* text : {"abc", "12.5", "-3"})
      EXPECT_EQ(extensionWith(block("VireoMacros", element, text))->archive(), archiveWith(""));
  }
  // Archive keys are not element names, and macros belong in their block.
  EXPECT_EQ(extensionWith("<VireoMacros><referer>r</referer><clientIP>i</clientIP>"
                          "<baseURL>http://b</baseURL></VireoMacros><RtbMacros><DealID>d</DealID>"
                          "<rtbDealID>d</rtbDealID></RtbMacros><customScript>s</customScript>"
                          "<DspId>a</DspId>")
                ->archive(),
            archiveWith(""));
  // More digits than a double holds read as infinity, which survives the archive.
  auto huge = extensionWith(block("VireoMacros", "siteID", std::string(400, '9')));
  EXPECT_TRUE(std::isinf(huge->siteID().value_or(0)));
  EXPECT_EQ(*Extension::unarchive(huge->archive()), *huge);
}

TEST(RKVVASTAdExtensionTest, PlayerHintsAndLaterExtensionsOverwritingFieldByField) {
  auto hints = extensionWith(
      "<offset isForced='1' skipoffset='00:00:05'/><sort rank='3'/>"
      "<customisedScript><![CDATA[run(<x>)]]></customisedScript>"
      "<instanceCount>7 instances</instanceCount>"
      "<VireoMacros><baseUrl>https://ads.example/a b</baseUrl></VireoMacros>");
  EXPECT_EQ(hints->archive(), R"x({"offsetIsForced":true,"skipOffset":"00:00:05","sortRank":"3",)x"
                              R"x("customScript":"run(<x>)","instanceCount":7,)x"
                              R"x("baseURL":"https://ads.example/a%20b"})x");
  EXPECT_EQ(*Extension::unarchive(hints->archive()), *hints);
  // Only the text "1" forces the offset.
  for (const char* attribute : {"isForced='true'", "isForced=' 1'", "other='1'"})
    EXPECT_FALSE(extensionWith(std::string("<offset ") + attribute + "/>")->offsetIsForced());

  RKVXMLDictionaryPtr extensions = test::element(
      "<Extensions>"
      "<Extension><offset isForced='1' skipoffset='5'/><sort rank='1'/>"
      "<customisedScript>first</customisedScript><instanceCount>2</instanceCount>"
      "<VireoMacros><siteID>1</siteID><pageID>p1</pageID><networkID>9</networkID></VireoMacros>"
      "<RtbMacros><DealId>d1</DealId><DspId>s1</DspId></RtbMacros></Extension>"
      "<Extension type='other'/>"
      "<Extension><offset isForced='0'/><sort order='2'/><instanceCount>x</instanceCount>"
      "<VireoMacros><siteID>2</siteID><networkID>n/a</networkID></VireoMacros>"
      "<RtbMacros><DspId>s2</DspId></RtbMacros></Extension>"
      "</Extensions>");
  // The later offset has no skipoffset, nor the later sort a rank; "x" reads 0; a present
  // networkID that is not a number empties the field.
  auto extension = Extension::withDictionary(*extensions);
  EXPECT_EQ(extension->archive(),
            R"({"offsetIsForced":false,"skipOffset":"5","sortRank":"1","customScript":"first",)"
            R"("instanceCount":0,"pageID":"p1","siteID":2.0,"rtbDspID":"s2","rtbDealID":"d1"})");
  Extension listed;
  listed.processExtensions(*extensions->find("Extension")->array());
  EXPECT_EQ(listed, *extension);
}

TEST(RKVVASTAdExtensionTest, CopyArchiveAndEqualityCoverTheLists) {
  auto extension =
      extensionWith("<offset isForced='1'/><instanceCount>3</instanceCount>" +
                    block("VireoMetrics", "VireoMetric name='viewcount'", "http://m/1") +
                    block("VireoMacros", "baseUrl", "http://b") +
                    block("AdVerifications", "Verification",
                          "<JavaScriptResource>http://s.js</JavaScriptResource>"));
  // The record and each copy changed in one field read back equal, and every copy differs. The
  // first copy shows that a copy owns its metrics.
  std::vector<std::shared_ptr<Extension>> variants = {extension};
  for (int i = 0; i < 7; ++i)
    variants.push_back(extension->copy());
  variants[1]->metrics()->front()->setEventOffset(2.0);
  variants[2]->setInstanceCount(4);
  variants[3]->setBaseURL(RKVURL::withString("http://c"));
  variants[4]->adVerifications()->clear();
  variants[5]->setAdVerifications(std::nullopt);
  variants[6]->setOffsetIsForced(false);
  for (const auto& variant : variants) {
    EXPECT_EQ(variant == extension || variant == variants[7], *variant == *extension)
        << variant->archive();
    EXPECT_EQ(*Extension::unarchive(variant->archive()), *variant) << variant->archive();
  }
  // Keys of the wrong type read as missing.
  auto wrongTypes = Extension::unarchive(
      R"({"siteID":"5","pageID":5,"offsetIsForced":"yes","adVerifications":{"x":1},)"
      R"("metrics":[{"name":"viewcount"},3,{"name":"viewcount","url":"http://m"}]})");
  EXPECT_EQ(wrongTypes->archive(),
            archiveWith(R"("metrics":[{"name":"viewcount","url":"http://m","eventOffset":-1.0}])"));
}

TEST(RKVVASTAdVerificationTest, ResourcesAndTheVerificationNotExecutedEvents) {
  test::RKVLogCapture log;
  auto verification = V::withDictionary(*test::element(
      "<Verification vendor='iabtechlab.com-omid'>"
      "<ExecutableResource apiFramework='native' type='bin' browserOptional='true'>http://e/1"
      "</ExecutableResource>"
      "<JavascriptResource apiFramework='omid' browserOptional='1'>http://j/lower"
      "</JavascriptResource>"
      "<JavaScriptResource apiFramework='omid' browserOptional='true'>http://j/1"
      "</JavaScriptResource>"
      "<JavaScriptResource browserOptional='false'>http://j/2</JavaScriptResource>"
      "<JavaScriptResource apiFramework='no-text'/>"
      "<JavaScriptResource>http://[not a host/</JavaScriptResource>"
      "<VerificationParameters><![CDATA[{\"k\":1}]]></VerificationParameters><TrackingEvents>"
      "<Tracking event='creativeView'>http://t/view</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://t/1?reason=[REASON]</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://bad host</Tracking>"
      "<Tracking>http://t/nameless</Tracking>"
      "<Tracking event='VerificationNotExecuted'>http://t/case</Tracking>"
      "</TrackingEvents></Verification>"));
  EXPECT_EQ(verification->verificationParameters(), "{\"k\":1}");
  // Both spellings of the script resource in that order, then the executables, which are never
  // browser-optional.
  const Resource expected[] = {
      Resource(0, url("http://j/1"), "omid", true, std::nullopt),
      Resource(0, url("http://j/2"), std::nullopt, false, std::nullopt),
      Resource(0, url("http://j/lower"), "omid", true, std::nullopt),
      Resource(0, url("http://e/1"), "native", false, "bin"),
  };
  ASSERT_EQ(verification->resources().size(), std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i)
    EXPECT_EQ(*verification->resources()[i], expected[i]) << i;
  ASSERT_EQ(verification->trackingEvents().size(), 1u);
  EXPECT_EQ(verification->trackingEvents()[0]->eventURL().absoluteString(),
            "http://t/1?reason=%5BREASON%5D");
  // The refused names were logged, word for word.
  const std::string rest =
      "' is neither consumable nor nonconsumable! It has been assumed as consumable.";
  EXPECT_EQ(log.debugMessages(),
            (Strings{"Event 'creativeView" + rest, "Event 'VerificationNotExecuted" + rest}));
  // No usable resource, no verification.
  EXPECT_EQ(V::withDictionary(*test::element("<Verification><JavaScriptResource>a<b/>c"
                                             "</JavaScriptResource></Verification>")),
            nullptr);
}

TEST(RKVVASTAdVerificationTest, EqualityAndArchivesCoverEveryField) {
  auto event = Event::withName("verificationNotExecuted", url("http://t/[REASON]"));
  auto at = [](const char* text, int64_t type = 0, std::optional<std::string> api = "omid",
               bool optional = false, std::optional<std::string> executable = "bin") {
    return std::make_shared<Resource>(type, url(text), api, optional, executable);
  };
  const V base("v", {at("http://a", 0, "omid", true, std::nullopt), at("http://b")}, {event}, "p");
  EXPECT_EQ(*V::unarchive(base.archive()), base);
  EXPECT_EQ(base, V("v", base.resources(), {event->copy()}, "p"));
  // Each variant differs from the base in one field, both ways round, and reads back equal.
  const auto a = base.resources()[0];
  for (const V& other :
       {V(std::nullopt, base.resources(), {event}, "p"), V("v", {a}, {event}, "p"),
        V("v", {at("http://b"), a}, {event}, "p"), V("v", {a, at("http://b", 1)}, {event}, "p"),
        V("v", {a, at("http://b", 0, std::nullopt)}, {event}, "p"),
        V("v", {a, at("http://b", 0, "omid", true)}, {event}, "p"),
        V("v", {a, at("http://b", 0, "omid", false, "js")}, {event}, "p"),
        V("v", base.resources(), {Event::withName("verificationNotExecuted", url("http://u"))},
          "p"),
        V("v", base.resources(), {event}, std::nullopt)}) {
    EXPECT_FALSE(base == other || other == base) << other.archive();
    EXPECT_EQ(*V::unarchive(other.archive()), other) << other.archive();
  }
  // An event of another class with the same name and URL is not equal.
  RKVVASTTrackingEvent tracking("verificationNotExecuted", std::nullopt, event->url());
  EXPECT_FALSE(event->isEqual(tracking) || tracking.isEqual(*event));
}

}  // namespace
}  // namespace rkv
