// URLs, tracking, viewability and click events, and universal ad ids.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTClickEvent.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/vast/model/RKVVASTUniversalAdId.h"
#include "rkv/vast/model/RKVVASTViewabilityEvent.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

using std::nullopt;
using test::element;
using Strings = std::vector<std::string>;
using Tracking = RKVVASTTrackingEvent;

std::shared_ptr<Tracking> tracking(const std::string& attributes,
                                   const std::string& text = "http://t.test/") {
  return Tracking::withDictionary(*element("<Tracking " + attributes + ">" + text + "</Tracking>"));
}

RKVURL url(std::string_view text) {
  return RKVURL::withString(text).value();
}

TEST(RKVVASTURLTest, TextsAndTreeValues) {
  for (const char* text : {"", "\xC2\xA0\t", "http://bad host/"})
    EXPECT_FALSE(RKVVASTURL::withString(text)) << text;
  const std::optional<RKVVASTURL> expected = RKVVASTURL::withString("http://a.test/i?e=[E]");
  EXPECT_EQ(expected->description(), "RKVVASTURL(url=http://a.test/i?e=%5BE%5D)");
  // A string is read as it is and an element through its text; anything else is no URL.
  EXPECT_EQ(RKVVASTURL::fromXML(RKVXMLValue("http://a.test/i?e=[E]")), expected);
  EXPECT_EQ(RKVVASTURL::fromXML(RKVXMLValue(element("<I> http://a.test/i?e=[E] </I>"))), expected);
  for (const RKVXMLValue& value :
       {RKVXMLValue("   "), RKVXMLValue(), RKVXMLValue(element("<I id='1'/>")),
        RKVXMLValue(element("<I>http://a.test/<B/>x</I>")),  // interrupted text
        RKVXMLValue(RKVXMLArray::make({"http://a.test/"}))})
    EXPECT_FALSE(RKVVASTURL::fromXML(value));
}

TEST(RKVVASTTrackingEventTest, EventNames) {
  test::RKVLogCapture log;
  for (const char* name : {"creativeView", "start", "firstSecond", "firstQuartile", "midpoint",
                           "thirdQuartile", "complete", "progress", "loaded"})
    EXPECT_TRUE(tracking(std::string("event='") + name + "'")->isEventConsumable()) << name;
  for (const char* name :
       {"click", "mute", "unmute", "pause", "rewind", "resume", "fullscreen", "exitFullscreen",
        "timeToClick", "skip", "vpaidAdInteraction", "playerExpand", "playerCollapse"})
    EXPECT_FALSE(tracking(std::string("event='") + name + "'")->isEventConsumable()) << name;
  // "viewcount" is consumable but comes only from extension metrics; names are case-sensitive.
  EXPECT_TRUE(Tracking::isEventConsumableFromName("viewcount"));
  for (const char* name : {"viewcount", "Start", "acceptInvitation", ""})
    EXPECT_EQ(tracking(std::string("event='") + name + "'"), nullptr) << name;
  EXPECT_TRUE(log.debugMessages().empty());  // refusing a name logs nothing

  // An unknown name made by hand is logged and never consumed, whatever the message says.
  EXPECT_FALSE(Tracking("acceptInvitation", nullopt, url("http://t/")).isEventConsumable());
  EXPECT_TRUE(RKVVASTViewabilityEvent("notviewable", url("http://v/")).isEventConsumable());
  EXPECT_FALSE(RKVVASTViewabilityEvent("start", url("http://v/")).isEventConsumable());
  EXPECT_EQ(log.debugMessages().size(), 2u);
}

TEST(RKVVASTTrackingEventTest, ElementsMetricsAndLists) {
  for (const char* xml : {"<Tracking event='start'>   </Tracking>", "<Tracking event='start'/>",
                          "<Tracking>http://t.test/</Tracking>",
                          "<Tracking event='start'>http://bad host/</Tracking>",
                          "<Tracking event='start'>http://t.test/<B/>x</Tracking>"})
    EXPECT_EQ(Tracking::withDictionary(*element(xml)), nullptr) << xml;
  auto progress = tracking("event='progress' offset='00:00:05.000'", "http://t.test/p?x=[A]");
  EXPECT_EQ(progress->offset(), "00:00:05.000");
  EXPECT_EQ(progress->eventOffset(), -1.0);
  EXPECT_EQ(progress->eventURL().absoluteString(), "http://t.test/p?x=%5BA%5D");

  auto metric = Tracking::withExtensionDictionary(
      *element("<Metric name='viewcount' offset='10%'>http://m.test/v</Metric>"));
  EXPECT_EQ(metric->eventName() + " " + *metric->offset(), "viewcount 10%");
  for (const char* xml :
       {"<Metric name='start'>http://m.test/</Metric>",
        "<Metric name='ViewCount'>http://m/</Metric>", "<Metric name='viewcount'/>"})
    EXPECT_EQ(Tracking::withExtensionDictionary(*element(xml)), nullptr) << xml;

  // Only the first TrackingEvents is read; invalid entries are skipped, order is kept; a list
  // with nothing valid is absent.
  auto found = Tracking::findTrackingEvents(
      *element("<Linear><TrackingEvents><Tracking event='start'>http://t.test/1</Tracking>"
               "<Tracking event='Start'>http://t.test/x</Tracking>"
               "<Tracking event='pause'>http://t.test/2</Tracking></TrackingEvents>"
               "<TrackingEvents><Tracking event='mute'>http://t.test/3</Tracking>"
               "</TrackingEvents></Linear>"));
  Strings urls;
  for (const auto& event : found.value())
    urls.push_back(event->eventURL().absoluteString());
  EXPECT_EQ(urls, (Strings{"http://t.test/1", "http://t.test/2"}));
  for (const char* xml : {"<Linear><TrackingEvents/></Linear>",
                          "<Linear><TrackingEvents><Tracking event='x'>http://t/</Tracking>"
                          "</TrackingEvents></Linear>"})
    EXPECT_EQ(Tracking::findTrackingEvents(*element(xml)), nullopt) << xml;
}

TEST(RKVVASTTrackingEventTest, EqualityCopyAndArchive) {
  auto a = tracking("event='progress' offset='25%'");
  auto b = tracking("event='progress' offset='25%'");
  EXPECT_TRUE(a->isEqual(*b));
  for (const auto& other : {tracking("event='progress' offset='50%'"), tracking("event='progress'"),
                            tracking("event='complete' offset='25%'"),
                            tracking("event='progress' offset='25%'", "http://t.test/q")})
    EXPECT_FALSE(a->isEqual(*other));
  b->setEventOffset(3);
  EXPECT_FALSE(*a == *b);
  auto copy = b->copy();
  EXPECT_TRUE(copy != b && *copy == *b);

  auto pause = tracking("event='pause'", "http://t.test/p?e=[ERRORCODE]");
  EXPECT_EQ(pause->archive(),
            R"({"name":"pause","url":"http://t.test/p?e=%5BERRORCODE%5D","eventOffset":-1.0})");
  for (const auto& event : {a, b, pause}) {
    auto back = Tracking::unarchive(event->archive());
    ASSERT_TRUE(back) << event->archive();
    EXPECT_TRUE(*back == *event) << event->archive();
  }
  for (const char* json :
       {"[]", "{", R"({"name":"start"})", R"({"name":"start","url":"http://bad host/"})"})
    EXPECT_EQ(Tracking::unarchive(json), nullptr) << json;
}

TEST(RKVVASTViewabilityAndClickEventTest, ConstructorsEqualityAndArchive) {
  const RKVURL one = url("http://v.test/1");
  Strings names;
  for (const auto& event : {RKVVASTViewabilityEvent::viewableEventWithURL(one),
                            RKVVASTViewabilityEvent::notViewableEventWithURL(one),
                            RKVVASTViewabilityEvent::viewUndeterminedEventWithURL(one)}) {
    names.push_back(event->eventName());
    EXPECT_TRUE(*RKVVASTViewabilityEvent::unarchive(event->archive()) == *event);
  }
  EXPECT_EQ(names, (Strings{"viewable", "notviewable", "viewundetermined"}));
  EXPECT_FALSE(*RKVVASTViewabilityEvent::viewableEventWithURL(one) ==
               *RKVVASTViewabilityEvent::viewableEventWithURL(url("http://v.test/2")));
  // Events of different classes are never equal, even with the same name and URL.
  Tracking tracked("viewcount", nullopt, one);
  RKVVASTViewabilityEvent viewed("viewcount", one);
  EXPECT_FALSE(viewed.isEqual(tracked) || tracked.isEqual(viewed));

  auto click = RKVVASTClickEvent::withType("clickThrough", "http://c.test/landing");
  EXPECT_TRUE(*click == RKVVASTClickEvent("clickThrough", url("http://c.test/landing")));
  EXPECT_FALSE(*click == RKVVASTClickEvent("clickTracking", url("http://c.test/landing")));
  for (const auto& [type, text] : {std::pair{" \t", "http://c/"}, std::pair{"click", "  "},
                                   std::pair{"click", "http://bad host/"}})
    EXPECT_EQ(RKVVASTClickEvent::withType(type, text), nullptr) << type << " / " << text;
}

TEST(RKVVASTUniversalAdIdTest, ReadsElementsAndArchives) {
  // The text wins over the older idValue attribute; interrupted text is no text; "unknown"
  // (exactly) as the value means no id.
  const std::pair<const char*, const char*> cases[] = {
      {"<UniversalAdId idRegistry='REG-A'>ABCD0001</UniversalAdId>", "REG-A/ABCD0001"},
      {"<UniversalAdId idRegistry='REG-A'>unknown</UniversalAdId>", "-"},
      {"<UniversalAdId idRegistry='REG-A'>Unknown</UniversalAdId>", "REG-A/Unknown"},
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-1'/>", "REG-A/OLD-1"},
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-1'>NEW-1</UniversalAdId>", "REG-A/NEW-1"},
      {"<UniversalAdId idRegistry='REG-A' idValue='unknown'/>", "-"},
      {"<UniversalAdId idRegistry='REG-A' idValue='OLD-2'>a<B/>b</UniversalAdId>", "REG-A/OLD-2"},
      {"<UniversalAdId idRegistry='REG-A'/>", "-"},
      {"<UniversalAdId idRegistry=''>X1</UniversalAdId>", "-"},
      {"<UniversalAdId idValue='OLD-1'>ABCD0001</UniversalAdId>", "-"},
  };
  for (const auto& [xml, expected] : cases) {
    auto id = RKVVASTUniversalAdId::withDictionary(*element(xml));
    EXPECT_EQ(id ? id->registry() + "/" + id->value() : "-", expected) << xml;
  }
  // The same rule holds when the text is empty in a tree built by hand.
  auto handMade = RKVXMLDictionary::make({{"_idRegistry", "R"}, {"__text", ""}, {"_idValue", "V"}});
  EXPECT_EQ(RKVVASTUniversalAdId::withDictionary(*handMade)->value(), "V");

  auto a = RKVVASTUniversalAdId::withRegistry("REG-A", "ABCD0001");
  EXPECT_NE(a, RKVVASTUniversalAdId::withRegistry("REG-B", "ABCD0001"));
  EXPECT_NE(a, RKVVASTUniversalAdId::withRegistry("REG-A", "abcd0001"));
  EXPECT_EQ(a->archive(), R"({"registry":"REG-A","value":"ABCD0001"})");
  EXPECT_EQ(RKVVASTUniversalAdId::unarchive(a->archive()), a);
  for (const char* json :
       {R"({"registry":"R","value":1})", R"({"registry":"R","value":"unknown"})"})
    EXPECT_FALSE(RKVVASTUniversalAdId::unarchive(json)) << json;
}

}  // namespace
}  // namespace rkv
