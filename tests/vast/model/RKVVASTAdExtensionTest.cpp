#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTAdExtension.h"

#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

using Extension = RKVVASTAdExtension;

std::shared_ptr<Extension> extensionFrom(std::string_view xml) {
  return Extension::withDictionary(*test::element(xml));
}

// One Extensions element with one Extension holding `content`.
std::shared_ptr<Extension> extensionWith(const std::string& content) {
  return extensionFrom("<Extensions><Extension type='vireo'>" + content +
                       "</Extension></Extensions>");
}

// `<parent><child>text</child></parent>`; the child may carry attributes ("name attr='v'").
std::string block(std::string_view parent, std::string_view child, std::string_view text) {
  const std::string_view childName = child.substr(0, child.find(' '));
  return "<" + std::string(parent) + "><" + std::string(child) + ">" + std::string(text) + "</" +
         std::string(childName) + "></" + std::string(parent) + ">";
}

template <typename List>
std::vector<std::string> urls(const std::optional<List>& list) {
  std::vector<std::string> texts;
  for (const auto& entry : list.value_or(List())) {
    if constexpr (requires { entry->eventURL(); }) {
      texts.push_back(entry->eventURL().absoluteString());
    } else {
      texts.push_back(entry->javascriptResourceURL().absoluteString());
    }
  }
  return texts;
}

struct TextField {
  const char* block;
  const char* element;  // differs from the archive key where the format says so
  const char* archiveKey;
  const std::optional<std::string>& (Extension::*get)() const;
};

const TextField kTextFields[] = {
    {"VireoMacros", "pageID", "pageID", &Extension::pageID},
    {"VireoMacros", "target", "target", &Extension::target},
    {"VireoMacros", "referrer", "referer", &Extension::referer},
    {"VireoMacros", "ip", "clientIP", &Extension::clientIP},
    {"VireoMacros", "contentID", "contentID", &Extension::contentID},
    {"VireoMacros", "contentProviderID", "contentProviderID", &Extension::contentProviderID},
    {"RtbMacros", "AdvertiserId", "rtbAdvertiserID", &Extension::rtbAdvertiserID},
    {"RtbMacros", "DspId", "rtbDspID", &Extension::rtbDspID},
    {"RtbMacros", "BuyerId", "rtbBuyerID", &Extension::rtbBuyerID},
    {"RtbMacros", "DealId", "rtbDealID", &Extension::rtbDealID},
    {"RtbMacros", "AuctionId", "rtbAuctionID", &Extension::rtbAuctionID},
    {"RtbMacros", "PublisherId", "rtbPublisherID", &Extension::rtbPublisherID},
    {"RtbMacros", "BidLogTimeTicks", "rtbBidLogTimeTicks", &Extension::rtbBidLogTimeTicks},
    {"RtbMacros", "EnvironmentType", "rtbEnvironmentType", &Extension::rtbEnvironmentType},
    {"RtbMacros", "ImpressionHash", "rtbImpressionHash", &Extension::rtbImpressionHash},
};

// The number fields of VireoMacros; element, field and archive key are spelled alike.
const std::pair<const char*, const std::optional<double>& (Extension::*)() const> kNumberFields[] =
    {
        {"sessionID", &Extension::sessionID},
        {"statDomainID", &Extension::statDomainID},
        {"networkID", &Extension::networkID},
        {"templateID", &Extension::templateID},
        {"advertiserID", &Extension::advertiserID},
        {"campaignID", &Extension::campaignID},
        {"insertionID", &Extension::insertionID},
        {"siteID", &Extension::siteID},
        {"formatID", &Extension::formatID},
        {"adBreakType", &Extension::adBreakType},
        {"instances", &Extension::instances},
        {"videoPlayerWidth", &Extension::videoPlayerWidth},
        {"videoPlayerHeight", &Extension::videoPlayerHeight},
};

// Every text and number field absent except those filled from the named elements.
void expectOnlyFieldsSet(const Extension& extension, std::initializer_list<std::string_view> set) {
  auto isSet = [&](std::string_view element) {
    return std::find(set.begin(), set.end(), element) != set.end();
  };
  for (const TextField& field : kTextFields) {
    if (!isSet(field.element)) {
      EXPECT_EQ((extension.*field.get)(), std::nullopt) << field.element;
    }
  }
  for (const auto& [element, get] : kNumberFields) {
    if (!isSet(element)) {
      EXPECT_EQ((extension.*get)(), std::nullopt) << element;
    }
  }
}

// The field reads back from the archive, and makes the record differ from an empty one.
void expectArchivedAndCompared(const Extension& extension, const std::string& archiveEntry) {
  EXPECT_NE(extension.archive().find(archiveEntry), std::string::npos)
      << archiveEntry << " in " << extension.archive();
  auto readBack = Extension::unarchive(extension.archive());
  ASSERT_NE(readBack, nullptr);
  EXPECT_EQ(*readBack, extension);
  EXPECT_FALSE(extension == Extension());
  EXPECT_FALSE(Extension() == extension);
}

TEST(RKVVASTAdExtensionTest, EveryTextFieldHasItsOwnSpelling) {
  for (const TextField& field : kTextFields) {
    SCOPED_TRACE(field.element);
    auto extension = extensionWith(block(field.block, field.element, "abc 1"));
    EXPECT_EQ((*extension.*field.get)(), "abc 1");
    expectOnlyFieldsSet(*extension, {field.element});
    expectArchivedAndCompared(*extension, std::string("\"") + field.archiveKey + "\":\"abc 1\"");
  }
  // The field spellings are not the element names.
  auto wrongSpellings = extensionWith(
      "<VireoMacros><referer>r</referer><clientIP>i</clientIP><baseURL>http://b</baseURL>"
      "</VireoMacros><RtbMacros><DealID>d</DealID><rtbDealID>d</rtbDealID></RtbMacros>"
      "<customScript>s</customScript><DspId>a</DspId>");
  EXPECT_EQ(*wrongSpellings, Extension());
}

TEST(RKVVASTAdExtensionTest, NumberFieldsTakeDigitsOnly) {
  for (const auto& [element, get] : kNumberFields) {
    SCOPED_TRACE(element);
    auto number = extensionWith(block("VireoMacros", element, "123"));
    EXPECT_EQ((*number.*get)(), 123.0);
    expectOnlyFieldsSet(*number, {element});
    expectArchivedAndCompared(*number, std::string("\"") + element + "\":123.0");
    for (const char* text : {"abc", "12.5", "-3"})
      EXPECT_EQ((*extensionWith(block("VireoMacros", element, text)).*get)(), std::nullopt);
  }
  // Unlike the other identifiers, pageID is text.
  EXPECT_EQ(extensionWith(block("VireoMacros", "pageID", "abc"))->pageID(), "abc");
  // More digits than a double holds read as infinity, which survives the archive.
  auto huge = extensionWith(block("VireoMacros", "siteID", std::string(400, '9')));
  EXPECT_TRUE(std::isinf(huge->siteID().value_or(0)));
  EXPECT_EQ(*Extension::unarchive(huge->archive()), *huge);
}

TEST(RKVVASTAdExtensionTest, BaseURLAndPlayerHints) {
  auto extension = extensionWith(
      "<offset isForced='1' skipoffset='00:00:05'/><sort rank='3'/>"
      "<customisedScript><![CDATA[run(<x>)]]></customisedScript>"
      "<instanceCount>7 instances</instanceCount>"
      "<VireoMacros><baseUrl>https://ads.example/a b</baseUrl></VireoMacros>");
  EXPECT_TRUE(extension->offsetIsForced());
  EXPECT_EQ(extension->skipOffset(), "00:00:05");
  EXPECT_EQ(extension->sortRank(), "3");
  EXPECT_EQ(extension->customScript(), "run(<x>)");
  EXPECT_EQ(extension->instanceCount(), 7);
  EXPECT_EQ(extension->baseURL(), RKVURL::withString("https://ads.example/a%20b"));
  expectArchivedAndCompared(*extension,
                            R"x("offsetIsForced":true,"skipOffset":"00:00:05","sortRank":"3",)x"
                            R"x("customScript":"run(<x>)","instanceCount":7,)x"
                            R"x("baseURL":"https://ads.example/a%20b")x");
  EXPECT_EQ(extensionWith(block("VireoMacros", "baseUrl", "http://bad host"))->baseURL(),
            std::nullopt);

  // Only the text "1" forces the offset.
  const std::pair<const char*, bool> forced[] = {
      {"isForced='1'", true},   {"isForced='true'", false}, {"isForced='0'", false},
      {"isForced='01'", false}, {"isForced=' 1'", false},   {"other=''", false},
  };
  for (const auto& [attribute, expected] : forced)
    EXPECT_EQ(extensionWith(std::string("<offset ") + attribute + "/>")->offsetIsForced(), expected)
        << attribute;
}

TEST(RKVVASTAdExtensionTest, LaterExtensionsOverwriteFieldByField) {
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
  auto extension = Extension::withDictionary(*extensions);
  // The same through the list operation.
  Extension listed;
  listed.processExtensions(*extensions->find("Extension")->array());
  EXPECT_EQ(listed, *extension);
  EXPECT_FALSE(extension->offsetIsForced());
  EXPECT_EQ(extension->skipOffset(), "5");  // the later offset has no skipoffset
  EXPECT_EQ(extension->sortRank(), "1");    // nor the later sort a rank
  EXPECT_EQ(extension->customScript(), "first");
  EXPECT_EQ(extension->instanceCount(), 0);  // "x" reads 0
  EXPECT_EQ(extension->siteID(), 2.0);
  EXPECT_EQ(extension->networkID(), std::nullopt);  // present, but not a number
  EXPECT_EQ(extension->pageID(), "p1");
  EXPECT_EQ(extension->rtbDealID(), "d1");
  EXPECT_EQ(extension->rtbDspID(), "s2");
  EXPECT_EQ(extension->metrics(), std::nullopt);
  EXPECT_EQ(extension->adVerifications(), std::nullopt);
}

TEST(RKVVASTAdExtensionTest, MetricsAccumulateInDocumentOrder) {
  auto extension = extensionFrom(
      "<Extensions>"
      "<Extension><VireoMetrics>"
      "<VireoMetric name='viewcount'>http://m/1</VireoMetric>"
      "<VireoMetric name='impression'>http://m/other</VireoMetric>"
      "<VireoMetric name='viewcount' offset='00:00:02'>http://m/2</VireoMetric>"
      "</VireoMetrics></Extension>"
      "<Extension><VireoMetrics>"
      "<VireoMetric name='viewcount'>http://m/3</VireoMetric>"
      "<VireoMetric name='viewcount'>http://bad host</VireoMetric>"
      "<VireoMetric name='viewcount'>http://m/4</VireoMetric>"
      "</VireoMetrics></Extension>"
      "</Extensions>");
  EXPECT_EQ(urls(extension->metrics()),
            (std::vector<std::string>{"http://m/1", "http://m/2", "http://m/3", "http://m/4"}));
  EXPECT_EQ(extension->metrics()->at(1)->offset(), "00:00:02");

  // A block whose metrics are all refused still makes the list, and an empty list is not an
  // absent one; no block leaves it absent.
  auto refused = extensionWith(block("VireoMetrics", "VireoMetric name='click'", "http://m"));
  ASSERT_TRUE(refused->metrics().has_value());
  EXPECT_TRUE(refused->metrics()->empty());
  EXPECT_FALSE(*refused == Extension());
  EXPECT_EQ(extensionWith("<VireoMetrics/>")->metrics(), std::nullopt);
}

TEST(RKVVASTAdExtensionTest, VerificationScriptsTakeTheFirstUsableURL) {
  auto extension = extensionFrom(
      "<Extensions><Extension type='AdVerifications'><AdVerifications>"
      "<Verification vendor='a'><JavaScriptResource>http://s/a.js</JavaScriptResource>"
      "<VerificationParameters>pa</VerificationParameters><VerificationParameters>x"
      "</VerificationParameters></Verification>"
      "<Verification vendor='b'><JavascriptResource>http://s/b.js</JavascriptResource>"
      "</Verification>"
      "<Verification vendor='c'><JavaScriptResource apiFramework='omid'/>"
      "<JavaScriptResource>http://bad host</JavaScriptResource>"
      "<JavaScriptResource>http://s/c.js</JavaScriptResource>"
      "<JavaScriptResource>http://s/c2.js</JavaScriptResource>"
      "<JavascriptResource>http://s/c-lower.js</JavascriptResource></Verification>"
      "<Verification vendor='d'><JavaScriptResource>http://bad host</JavaScriptResource>"
      "<JavascriptResource>http://s/d-lower.js</JavascriptResource></Verification>"
      "<Verification vendor='none'><ExecutableResource>http://s/e</ExecutableResource>"
      "</Verification>"
      "</AdVerifications></Extension>"
      "<Extension>" +
      block("AdVerifications", "Verification",
            "<JavaScriptResource>http://s/later.js"
            "</JavaScriptResource>") +
      "</Extension></Extensions>");
  EXPECT_EQ(urls(extension->adVerifications()),
            (std::vector<std::string>{"http://s/a.js", "http://s/b.js", "http://s/c.js",
                                      "http://s/d-lower.js", "http://s/later.js"}));
  EXPECT_EQ(
      *extension->adVerifications()->at(0),
      RKVVASTAdExtensionAdVerification(RKVURL::withString("http://s/a.js").value(), "a", "pa"));
  EXPECT_EQ(extensionWith("<AdVerifications/>")->adVerifications(), std::nullopt);
}

TEST(RKVVASTAdExtensionTest, CopyArchiveAndEqualityCoverTheLists) {
  auto extension =
      extensionWith("<offset isForced='1'/><instanceCount>3</instanceCount>" +
                    block("VireoMetrics", "VireoMetric name='viewcount'", "http://m/1") +
                    block("VireoMacros", "baseUrl", "http://b") +
                    block("AdVerifications", "Verification",
                          "<JavaScriptResource>http://s.js"
                          "</JavaScriptResource>"));
  auto readBack = Extension::unarchive(extension->archive());
  ASSERT_NE(readBack, nullptr);
  EXPECT_EQ(*readBack, *extension);
  EXPECT_EQ(urls(readBack->metrics()), (std::vector<std::string>{"http://m/1"}));
  EXPECT_EQ(urls(readBack->adVerifications()), (std::vector<std::string>{"http://s.js"}));

  // The copy is equal and owns its metrics.
  auto copy = extension->copy();
  EXPECT_EQ(*copy, *extension);
  copy->metrics()->front()->setEventOffset(4.0);
  copy->metrics()->push_back(copy->metrics()->front());
  EXPECT_EQ(extension->metrics()->size(), 1u);
  EXPECT_EQ(extension->metrics()->front()->eventOffset(), -1.0);

  // Each of the remaining fields makes a difference, and survives the archive.
  std::vector<std::shared_ptr<Extension>> variants;
  for (int i = 0; i < 6; ++i)
    variants.push_back(extension->copy());
  variants[0]->setOffsetIsForced(false);
  variants[1]->setInstanceCount(4);
  variants[2]->setBaseURL(RKVURL::withString("http://c"));
  variants[3]->metrics()->front()->setEventOffset(2.0);
  variants[4]->adVerifications()->clear();
  variants[5]->setAdVerifications(std::nullopt);
  for (const auto& variant : variants) {
    EXPECT_FALSE(*variant == *extension) << variant->archive();
    EXPECT_EQ(*Extension::unarchive(variant->archive()), *variant) << variant->archive();
  }

  // Bad archives: not an object; keys of the wrong type read as missing.
  EXPECT_EQ(Extension::unarchive("[1]"), nullptr);
  EXPECT_EQ(Extension::unarchive("{\"siteID\":"), nullptr);
  auto wrongTypes = Extension::unarchive(
      R"({"siteID":"5","pageID":5,"offsetIsForced":"yes","instanceCount":1.5,)"
      R"("metrics":[{"name":"viewcount"},3,{"name":"viewcount","url":"http://m"}],)"
      R"("adVerifications":{"x":1},"baseURL":"http://bad host"})");
  ASSERT_NE(wrongTypes, nullptr);
  Extension expected;
  expected.setMetrics(Extension::Metrics{std::make_shared<RKVVASTTrackingEvent>(
      "viewcount", std::nullopt, RKVURL::withString("http://m").value())});
  EXPECT_EQ(*wrongTypes, expected);
}

}  // namespace
}  // namespace rkv
