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
#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

using Extension = RKVVASTAdExtension;
using Resource = RKVVASTAdVerificationResource;
using Event = RKVVASTAdVerificationEvent;
using Script = RKVVASTAdExtensionAdVerification;
using V = RKVVASTAdVerification;
using Strings = std::vector<std::string>;

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

RKVURL url(std::string_view text) {
  return RKVURL::withString(text).value();
}

// The archive of a record holding `entry` besides the fields every record has.
std::string archiveWith(const std::string& entry) {
  return R"({"offsetIsForced":false,"instanceCount":0)" + (entry.empty() ? "" : "," + entry) + "}";
}

TEST(RKVVASTAdExtensionTest, EverySpellingIsReadUnderItsElementAndArchivedUnderItsKey) {
  // Block, element, archive key.
  const std::tuple<const char*, const char*, const char*> texts[] = {
      {"VireoMacros", "pageID", "pageID"},
      {"VireoMacros", "target", "target"},
      {"VireoMacros", "referrer", "referer"},
      {"VireoMacros", "ip", "clientIP"},
      {"VireoMacros", "contentID", "contentID"},
      {"VireoMacros", "contentProviderID", "contentProviderID"},
      {"RtbMacros", "AdvertiserId", "rtbAdvertiserID"},
      {"RtbMacros", "DspId", "rtbDspID"},
      {"RtbMacros", "BuyerId", "rtbBuyerID"},
      {"RtbMacros", "DealId", "rtbDealID"},
      {"RtbMacros", "AuctionId", "rtbAuctionID"},
      {"RtbMacros", "PublisherId", "rtbPublisherID"},
      {"RtbMacros", "BidLogTimeTicks", "rtbBidLogTimeTicks"},
      {"RtbMacros", "EnvironmentType", "rtbEnvironmentType"},
      {"RtbMacros", "ImpressionHash", "rtbImpressionHash"},
  };
  for (const auto& [parent, element, key] : texts) {
    auto extension = extensionWith(block(parent, element, "abc 1"));
    EXPECT_EQ(extension->archive(), archiveWith("\"" + std::string(key) + "\":\"abc 1\""));
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
    EXPECT_FALSE(*extension == Extension()) << element;
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

TEST(RKVVASTAdExtensionTest, MetricsAndVerificationScriptsAccumulateInDocumentOrder) {
  auto extension = Extension::withDictionary(*test::element(
      "<Extensions><Extension><VireoMetrics>"
      "<VireoMetric name='viewcount'>http://m/1</VireoMetric>"
      "<VireoMetric name='impression'>http://m/other</VireoMetric>"
      "<VireoMetric name='viewcount' offset='00:00:02'>http://m/2</VireoMetric>"
      "</VireoMetrics></Extension><Extension><VireoMetrics>"
      "<VireoMetric name='viewcount'>http://bad host</VireoMetric>"
      "<VireoMetric name='viewcount'>http://m/3</VireoMetric>"
      "</VireoMetrics></Extension>"
      "<Extension type='AdVerifications'><AdVerifications>"
      "<Verification vendor='a'><JavaScriptResource>http://s/a.js</JavaScriptResource>"
      "<VerificationParameters>pa</VerificationParameters></Verification>"
      "<Verification vendor='c'><JavaScriptResource apiFramework='omid'/>"
      "<JavaScriptResource>http://bad host</JavaScriptResource>"
      "<JavaScriptResource>http://s/c.js</JavaScriptResource>"
      "<JavascriptResource>http://s/c-lower.js</JavascriptResource></Verification>"
      "<Verification vendor='d'><JavaScriptResource>http://bad host</JavaScriptResource>"
      "<JavascriptResource>http://s/d-lower.js</JavascriptResource></Verification>"
      "<Verification><ExecutableResource>http://s/e</ExecutableResource></Verification>"
      "</AdVerifications></Extension><Extension>" +
      block("AdVerifications", "Verification",
            "<JavaScriptResource>http://s/z.js</JavaScriptResource>") +
      "</Extension></Extensions>"));
  Strings found;
  for (const auto& metric : *extension->metrics())
    found.push_back(metric->url().absoluteString() + metric->offset().value_or(""));
  EXPECT_EQ(found, (Strings{"http://m/1", "http://m/200:00:02", "http://m/3"}));
  // One script per verification: the first usable "JavaScriptResource", else "JavascriptResource".
  found.clear();
  for (const auto& script : *extension->adVerifications())
    found.push_back(script->javascriptResourceURL().absoluteString());
  EXPECT_EQ(found,
            (Strings{"http://s/a.js", "http://s/c.js", "http://s/d-lower.js", "http://s/z.js"}));
  EXPECT_EQ(*extension->adVerifications()->at(0), Script(url("http://s/a.js"), "a", "pa"));

  // A block whose entries are all refused still makes the list, and an empty list is not an
  // absent one; an empty block leaves it absent.
  auto refused = extensionWith(block("VireoMetrics", "VireoMetric name='click'", "http://m"));
  EXPECT_EQ(refused->archive(), archiveWith(R"("metrics":[])"));
  EXPECT_FALSE(*refused == Extension());
  EXPECT_EQ(extensionWith("<VireoMetrics/><AdVerifications/>")->archive(), archiveWith(""));
}

TEST(RKVVASTAdExtensionTest, CopyArchiveAndEqualityCoverTheLists) {
  auto extension =
      extensionWith("<offset isForced='1'/><instanceCount>3</instanceCount>" +
                    block("VireoMetrics", "VireoMetric name='viewcount'", "http://m/1") +
                    block("VireoMacros", "baseUrl", "http://b") +
                    block("AdVerifications", "Verification",
                          "<JavaScriptResource>http://s.js</JavaScriptResource>"));
  // The copy is equal and owns its metrics.
  auto copy = extension->copy();
  EXPECT_EQ(*copy, *extension);
  copy->metrics()->front()->setEventOffset(4.0);
  EXPECT_EQ(extension->metrics()->front()->eventOffset(), -1.0);

  // The record and each variant of one field read back equal; every variant differs.
  std::vector<std::shared_ptr<Extension>> variants = {extension};
  for (int i = 0; i < 6; ++i)
    variants.push_back(extension->copy());
  variants[1]->setInstanceCount(4);
  variants[2]->setBaseURL(RKVURL::withString("http://c"));
  variants[3]->metrics()->front()->setEventOffset(2.0);
  variants[4]->adVerifications()->clear();
  variants[5]->setAdVerifications(std::nullopt);
  variants[6]->setOffsetIsForced(false);
  for (const auto& variant : variants) {
    EXPECT_TRUE(variant == extension || !(*variant == *extension)) << variant->archive();
    EXPECT_EQ(*Extension::unarchive(variant->archive()), *variant) << variant->archive();
  }

  // Bad archives: not an object; keys of the wrong type read as missing.
  EXPECT_EQ(Extension::unarchive("[1]"), nullptr);
  EXPECT_EQ(Extension::unarchive("{\"siteID\":"), nullptr);
  auto wrongTypes = Extension::unarchive(
      R"({"siteID":"5","pageID":5,"offsetIsForced":"yes","instanceCount":1.5,)"
      R"("metrics":[{"name":"viewcount"},3,{"name":"viewcount","url":"http://m"}],)"
      R"("adVerifications":{"x":1},"baseURL":"http://bad host"})");
  EXPECT_EQ(wrongTypes->archive(),
            archiveWith(R"("metrics":[{"name":"viewcount","url":"http://m","eventOffset":-1.0}])"));
}

TEST(RKVVASTAdVerificationTest, ResourcesFromBothSpellingsThenExecutables) {
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
      "<VerificationParameters><![CDATA[{\"k\":1}]]></VerificationParameters>"
      "</Verification>"));
  ASSERT_NE(verification, nullptr);
  EXPECT_EQ(verification->vendor(), "iabtechlab.com-omid");
  EXPECT_EQ(verification->verificationParameters(), "{\"k\":1}");
  const Resource expected[] = {
      Resource(0, url("http://j/1"), "omid", true, std::nullopt),
      Resource(0, url("http://j/2"), std::nullopt, false, std::nullopt),
      Resource(0, url("http://j/lower"), "omid", true, std::nullopt),
      Resource(0, url("http://e/1"), "native", false, "bin"),  // never browser-optional
  };
  ASSERT_EQ(verification->resources().size(), std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i)
    EXPECT_EQ(*verification->resources()[i], expected[i]) << i;
  // No usable resource, no verification.
  for (const char* xml :
       {"<Verification vendor='v'><VerificationParameters>p</VerificationParameters>"
        "</Verification>",
        "<Verification><JavaScriptResource>a<b/>c</JavaScriptResource>"
        "<ExecutableResource>:nothing</ExecutableResource><TrackingEvents>"
        "<Tracking event='verificationNotExecuted'>http://t</Tracking></TrackingEvents>"
        "</Verification>"})
    EXPECT_EQ(V::withDictionary(*test::element(xml)), nullptr) << xml;
}

TEST(RKVVASTAdVerificationTest, OnlyVerificationNotExecutedEventsAreKept) {
  test::RKVLogCapture log;
  auto verification = V::withDictionary(*test::element(
      "<Verification><JavaScriptResource>http://j</JavaScriptResource><TrackingEvents>"
      "<Tracking event='creativeView'>http://t/view</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://t/1?reason=[REASON]</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://bad host</Tracking>"
      "<Tracking>http://t/nameless</Tracking>"
      "<Tracking event='VerificationNotExecuted'>http://t/case</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://t/2</Tracking>"
      "</TrackingEvents></Verification>"));
  Strings kept;
  for (const auto& event : verification->trackingEvents()) {
    kept.push_back(event->eventName() + " " + event->eventURL().absoluteString());
    EXPECT_TRUE(event->isEventConsumable());
  }
  EXPECT_EQ(kept, (Strings{"verificationNotExecuted http://t/1?reason=%5BREASON%5D",
                           "verificationNotExecuted http://t/2"}));
  // The refused names were logged, word for word.
  const std::string rest =
      "' is neither consumable nor nonconsumable! It has been assumed as consumable.";
  EXPECT_EQ(log.debugMessages(),
            (Strings{"Event 'creativeView" + rest, "Event 'VerificationNotExecuted" + rest}));
  EXPECT_EQ(Event::withName("start", url("http://t")), nullptr);
}

TEST(RKVVASTAdVerificationTest, EqualityAndArchivesCoverEveryField) {
  auto verification = V::withDictionary(*test::element(
      "<Verification vendor='v'>"
      "<JavaScriptResource apiFramework='omid' browserOptional='true'>http://j/1"
      "</JavaScriptResource>"
      "<ExecutableResource apiFramework='native' type='bin'>http://e/1</ExecutableResource>"
      "<TrackingEvents><Tracking event='verificationNotExecuted'>http://t/[REASON]</Tracking>"
      "</TrackingEvents><VerificationParameters>p&amp;q</VerificationParameters>"
      "</Verification>"));
  EXPECT_EQ(verification->archive(),
            R"({"vendor":"v","resources":[)"
            R"({"type":0,"url":"http://j/1","apiFramework":"omid","browserOptional":true},)"
            R"({"type":0,"url":"http://e/1","apiFramework":"native","browserOptional":false,)"
            R"("executableType":"bin"}],"trackingEvents":[)"
            R"({"name":"verificationNotExecuted","url":"http://t/%5BREASON%5D"}],)"
            R"("verificationParameters":"p&q"})");
  EXPECT_EQ(*V::unarchive(verification->archive()), *verification);
  const Script script(url("http://s.js"), std::nullopt, "p");
  EXPECT_EQ(script.archive(),
            R"({"javascriptResourceURL":"http://s.js","verificationParameters":"p"})");
  EXPECT_EQ(*Script::unarchive(script.archive()), script);

  // Each variant differs from its base in one field, both ways round, and reads back equal.
  const Resource resource(0, url("http://r"), "omid", true, std::nullopt);
  for (const Resource& other : {Resource(1, url("http://r"), "omid", true, std::nullopt),
                                Resource(0, url("http://r2"), "omid", true, std::nullopt),
                                Resource(0, url("http://r"), std::nullopt, true, std::nullopt),
                                Resource(0, url("http://r"), "omid", false, std::nullopt),
                                Resource(0, url("http://r"), "omid", true, "js")}) {
    EXPECT_FALSE(resource == other || other == resource) << other.archive();
    EXPECT_EQ(*Resource::unarchive(other.archive()), other) << other.archive();
  }
  auto event = Event::withName("verificationNotExecuted", url("http://t"));
  auto otherEvent = Event::withName("verificationNotExecuted", url("http://u"));
  auto at = [](const char* text) {
    return std::make_shared<Resource>(0, url(text), "omid", false, std::nullopt);
  };
  const V base("v", {at("http://a"), at("http://b")}, {event}, "p");
  EXPECT_EQ(base, V("v", {at("http://a"), at("http://b")}, {event->copy()}, "p"));
  for (const V& other :
       {V(std::nullopt, base.resources(), {event}, "p"), V("v", {at("http://a")}, {event}, "p"),
        V("v", {at("http://b"), at("http://a")}, {event}, "p"), V("v", base.resources(), {}, "p"),
        V("v", base.resources(), {otherEvent}, "p"),
        V("v", base.resources(), {event}, std::nullopt)}) {
    EXPECT_FALSE(base == other || other == base) << other.archive();
    EXPECT_EQ(*V::unarchive(other.archive()), other) << other.archive();
  }
  // An event of another class with the same name and URL is not equal.
  RKVVASTTrackingEvent tracking("verificationNotExecuted", std::nullopt, url("http://t"));
  EXPECT_FALSE(event->isEqual(tracking) || tracking.isEqual(*event));
  EXPECT_EQ(
      *V::withOMIDJavascriptResourceURL(url("https://s/o.js"), "v", "p"),
      V("v", {std::make_shared<Resource>(0, url("https://s/o.js"), "omid", true, std::nullopt)}, {},
        "p"));

  // What reads back as absent; entries that read back as absent are dropped.
  for (std::string_view bad : {R"({"name":"creativeView","url":"http://t"})",
                               R"({"name":"verificationNotExecuted","url":""})", "{"})
    EXPECT_EQ(Event::unarchive(bad), nullptr) << bad;
  EXPECT_EQ(Resource::unarchive(R"({"type":0,"browserOptional":true})"), nullptr);
  EXPECT_EQ(V::unarchive("not json"), nullptr);
  auto partial = V::unarchive(
      R"({"resources":[{"url":"http://r"},{"type":1},7,{"type":1e30,"url":"http://s"}],)"
      R"("trackingEvents":[{"name":"start","url":"http://t"}],"vendor":5})");
  EXPECT_EQ(partial->archive(),
            R"({"resources":[{"type":0,"url":"http://r","browserOptional":false},)"
            R"({"type":0,"url":"http://s","browserOptional":false}],"trackingEvents":[]})");
}

}  // namespace
}  // namespace rkv
