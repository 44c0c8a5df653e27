#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTAdExtensionAdVerification.h"
#include "rkv/vast/model/RKVVASTAdVerification.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

using Resource = RKVVASTAdVerificationResource;
using Event = RKVVASTAdVerificationEvent;
using Script = RKVVASTAdExtensionAdVerification;

std::shared_ptr<RKVVASTAdVerification> verificationFrom(std::string_view xml) {
  return RKVVASTAdVerification::withDictionary(*test::element(xml));
}

RKVURL url(std::string_view text) {
  return RKVURL::withString(text).value();
}

// Every value differs from `base`, both ways round.
template <typename T>
void expectAllDiffer(const T& base, const std::vector<T>& others) {
  for (const T& other : others) {
    EXPECT_FALSE(base == other) << other.archive();
    EXPECT_FALSE(other == base) << other.archive();
  }
}

std::string unknownNameMessage(std::string_view name) {
  return "Event '" + std::string(name) +
         "' is neither consumable nor nonconsumable! It has been assumed as consumable.";
}

TEST(RKVVASTAdVerificationTest, ResourcesFromBothSpellingsThenExecutables) {
  auto verification = verificationFrom(
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
      "<ExecutableResource type='no-text'></ExecutableResource>"
      "<VerificationParameters><![CDATA[{\"k\":1}]]></VerificationParameters>"
      "</Verification>");
  ASSERT_NE(verification, nullptr);
  EXPECT_EQ(verification->vendor(), "iabtechlab.com-omid");
  EXPECT_EQ(verification->verificationParameters(), "{\"k\":1}");
  EXPECT_TRUE(verification->trackingEvents().empty());
  const std::vector<Resource> expected = {
      Resource(0, url("http://j/1"), "omid", true, std::nullopt),
      Resource(0, url("http://j/2"), std::nullopt, false, std::nullopt),
      Resource(0, url("http://j/lower"), "omid", true, std::nullopt),
      Resource(0, url("http://e/1"), "native", false, "bin"),  // never browser-optional
  };
  ASSERT_EQ(verification->resources().size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(*verification->resources()[i], expected[i]) << i;

  auto lowerOnly = verificationFrom(
      "<Verification><JavascriptResource>http://j</JavascriptResource></Verification>");
  ASSERT_NE(lowerOnly, nullptr);
  EXPECT_EQ(lowerOnly->resources().size(), 1u);
}

TEST(RKVVASTAdVerificationTest, NoUsableResourceGivesNoVerification) {
  for (const char* xml : {
           "<Verification vendor='v'><VerificationParameters>p</VerificationParameters>"
           "</Verification>",
           "<Verification><JavaScriptResource apiFramework='omid'/>"
           "<JavascriptResource apiFramework='omid'></JavascriptResource>"
           "<ExecutableResource type='x'/></Verification>",
           "<Verification><JavaScriptResource>a<b/>c</JavaScriptResource></Verification>",
           "<Verification><JavaScriptResource>http://bad host/</JavaScriptResource>"
           "<ExecutableResource>:nothing</ExecutableResource></Verification>",
           "<Verification><TrackingEvents><Tracking event='verificationNotExecuted'>http://t"
           "</Tracking></TrackingEvents></Verification>",
       }) {
    EXPECT_EQ(verificationFrom(xml), nullptr) << xml;
  }
}

TEST(RKVVASTAdVerificationTest, OnlyVerificationNotExecutedEventsAreKept) {
  test::RKVLogCapture log;
  auto verification = verificationFrom(
      "<Verification><JavaScriptResource>http://j</JavaScriptResource><TrackingEvents>"
      "<Tracking event='creativeView'>http://t/view</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://t/1?reason=[REASON]</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://bad host</Tracking>"
      "<Tracking event='verificationNotExecuted'/>"
      "<Tracking>http://t/nameless</Tracking>"
      "<Tracking event='VerificationNotExecuted'>http://t/case</Tracking>"
      "<Tracking event='verificationNotExecuted'>http://t/2</Tracking>"
      "</TrackingEvents></Verification>");
  ASSERT_NE(verification, nullptr);
  ASSERT_EQ(verification->trackingEvents().size(), 2u);
  const Event& first = *verification->trackingEvents()[0];
  EXPECT_EQ(first.eventName(), "verificationNotExecuted");
  EXPECT_EQ(first.eventURL().absoluteString(), "http://t/1?reason=%5BREASON%5D");
  EXPECT_TRUE(first.isEventConsumable());
  EXPECT_EQ(verification->trackingEvents()[1]->url().absoluteString(), "http://t/2");
  // The refused names were logged, word for word; the unknown name answers non-consumable.
  EXPECT_EQ(log.debugMessages(),
            (std::vector<std::string>{unknownNameMessage("creativeView"),
                                      unknownNameMessage("VerificationNotExecuted")}));
  EXPECT_FALSE(Event::isEventConsumableFromName("start"));
  EXPECT_EQ(Event::withName("start", url("http://t")), nullptr);
}

TEST(RKVVASTAdVerificationTest, EqualityComparesEveryField) {
  const Resource resource(0, url("http://r"), "omid", true, std::nullopt);
  EXPECT_EQ(resource, *resource.copy());
  expectAllDiffer(resource, {Resource(1, url("http://r"), "omid", true, std::nullopt),
                             Resource(0, url("http://r2"), "omid", true, std::nullopt),
                             Resource(0, url("http://r"), std::nullopt, true, std::nullopt),
                             Resource(0, url("http://r"), "omid", false, std::nullopt),
                             Resource(0, url("http://r"), "omid", true, "js")});

  auto event = Event::withName("verificationNotExecuted", url("http://t"));
  auto otherEvent = Event::withName("verificationNotExecuted", url("http://u"));
  EXPECT_TRUE(event->isEqual(*event->copy()));
  EXPECT_FALSE(event->isEqual(*otherEvent));
  // An event of another class with the same name and URL is not equal.
  RKVVASTTrackingEvent tracking("verificationNotExecuted", std::nullopt, url("http://t"));
  EXPECT_FALSE(event->isEqual(tracking));
  EXPECT_FALSE(tracking.isEqual(*event));

  auto resourceAt = [](const char* text) {
    return std::make_shared<Resource>(0, url(text), "omid", false, std::nullopt);
  };
  const RKVVASTAdVerification base("v", {resourceAt("http://a"), resourceAt("http://b")}, {event},
                                   "p");
  EXPECT_EQ(base, *base.copy());
  EXPECT_EQ(base, RKVVASTAdVerification("v", {resourceAt("http://a"), resourceAt("http://b")},
                                        {event->copy()}, "p"));
  expectAllDiffer(base, {RKVVASTAdVerification(std::nullopt, base.resources(), {event}, "p"),
                         RKVVASTAdVerification("v", {resourceAt("http://a")}, {event}, "p"),
                         RKVVASTAdVerification(
                             "v", {resourceAt("http://b"), resourceAt("http://a")}, {event}, "p"),
                         RKVVASTAdVerification("v", base.resources(), {}, "p"),
                         RKVVASTAdVerification("v", base.resources(), {otherEvent}, "p"),
                         RKVVASTAdVerification("v", base.resources(), {event}, std::nullopt)});

  const Script script(url("http://s.js"), "v", "p");
  EXPECT_EQ(script, *script.copy());
  expectAllDiffer(script, {Script(url("http://t.js"), "v", "p"), Script(url("http://s.js"), "v"),
                           Script(url("http://s.js"), std::nullopt, "p")});

  // The script form of the extension, as a verification of its own.
  auto omid = RKVVASTAdVerification::withOMIDJavascriptResourceURL(url("https://s/o.js"), "v", "p");
  EXPECT_EQ(*omid, RKVVASTAdVerification("v",
                                         {std::make_shared<Resource>(0, url("https://s/o.js"),
                                                                     "omid", true, std::nullopt)},
                                         {}, "p"));
}

TEST(RKVVASTAdVerificationTest, ArchivesReadBackThroughTheInitializers) {
  auto verification = verificationFrom(
      "<Verification vendor='v'>"
      "<JavaScriptResource apiFramework='omid' browserOptional='true'>http://j/1"
      "</JavaScriptResource>"
      "<ExecutableResource apiFramework='native' type='bin'>http://e/1</ExecutableResource>"
      "<TrackingEvents><Tracking event='verificationNotExecuted'>http://t/[REASON]</Tracking>"
      "</TrackingEvents><VerificationParameters>p&amp;q</VerificationParameters>"
      "</Verification>");
  ASSERT_NE(verification, nullptr);
  const std::string archive = verification->archive();
  EXPECT_EQ(archive,
            R"({"vendor":"v","resources":[)"
            R"({"type":0,"url":"http://j/1","apiFramework":"omid","browserOptional":true},)"
            R"({"type":0,"url":"http://e/1","apiFramework":"native","browserOptional":false,)"
            R"("executableType":"bin"}],"trackingEvents":[)"
            R"({"name":"verificationNotExecuted","url":"http://t/%5BREASON%5D"}],)"
            R"("verificationParameters":"p&q"})");
  auto readBack = RKVVASTAdVerification::unarchive(archive);
  ASSERT_NE(readBack, nullptr);
  EXPECT_EQ(*readBack, *verification);
  EXPECT_TRUE(readBack->trackingEvents().at(0)->isEventConsumable());
  const Script script(url("http://s.js"), std::nullopt, "p");
  EXPECT_EQ(script.archive(),
            R"({"javascriptResourceURL":"http://s.js","verificationParameters":"p"})");
  EXPECT_EQ(*Script::unarchive(script.archive()), script);

  // What reads back as absent: an event under another name goes through the same check.
  EXPECT_EQ(Event::unarchive(R"({"name":"creativeView","url":"http://t"})"), nullptr);
  EXPECT_NE(Event::unarchive(R"({"name":"verificationNotExecuted","url":"http://t"})"), nullptr);
  for (std::string_view bad : {R"({"name":"verificationNotExecuted"})",
                               R"({"name":"verificationNotExecuted","url":""})", R"(["x"])", "{"})
    EXPECT_EQ(Event::unarchive(bad), nullptr) << bad;
  EXPECT_EQ(Resource::unarchive(R"({"type":0,"browserOptional":true})"), nullptr);
  EXPECT_EQ(Script::unarchive(R"({"vendor":"v"})"), nullptr);
  EXPECT_EQ(RKVVASTAdVerification::unarchive("not json"), nullptr);
  // Missing keys take their defaults; entries that read back as absent are dropped.
  auto partial = RKVVASTAdVerification::unarchive(
      R"({"resources":[{"url":"http://r"},{"type":1},7,{"type":1e30,"url":"http://s"}],)"
      R"("trackingEvents":[{"name":"start","url":"http://t"}],"vendor":5})");
  ASSERT_NE(partial, nullptr);
  EXPECT_EQ(*partial,
            RKVVASTAdVerification(
                std::nullopt,
                {std::make_shared<Resource>(0, url("http://r"), std::nullopt, false, std::nullopt),
                 std::make_shared<Resource>(0, url("http://s"), std::nullopt, false, std::nullopt)},
                {}, std::nullopt));
}

}  // namespace
}  // namespace rkv
