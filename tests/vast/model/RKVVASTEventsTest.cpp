#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/model/RKVVASTClickEvent.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/vast/model/RKVVASTViewabilityEvent.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/vast/model/RKVModelTestSupport.h"

namespace rkv {
namespace {

using test::element;
using Strings = std::vector<std::string>;

std::shared_ptr<RKVVASTTrackingEvent> tracking(const std::string& attributes,
                                               const std::string& text = "http://t.test/") {
  return RKVVASTTrackingEvent::withDictionary(
      *element("<Tracking " + attributes + ">" + text + "</Tracking>"));
}

RKVURL url(std::string_view text) {
  return RKVURL::withString(text).value_or(*RKVURL::withString("http://invalid.test/"));
}

std::string unknownName(const std::string& name) {
  return "Event '" + name +
         "' is neither consumable nor nonconsumable! It has been assumed as consumable.";
}

TEST(RKVVASTURLTest, TextsAndTreeValues) {
  for (const char* text : {"", "   ", "\xC2\xA0\t", "http://bad host/"})
    EXPECT_FALSE(RKVVASTURL::withString(text)) << text;
  const std::optional<RKVVASTURL> expected = RKVVASTURL::withString("http://a.test/i?e=[E]");
  ASSERT_TRUE(expected);
  EXPECT_EQ(expected->description(), "RKVVASTURL(url=http://a.test/i?e=%5BE%5D)");
  EXPECT_EQ(RKVVASTURL::withURL(url("http://a.test/i?e=[E]")), *expected);
  // A string is read as it is and an element through its text; anything else is no URL.
  EXPECT_EQ(RKVVASTURL::fromXML(RKVXMLValue("http://a.test/i?e=[E]")), expected);
  EXPECT_EQ(RKVVASTURL::fromXML(RKVXMLValue(element("<I> http://a.test/i?e=[E] </I>"))), expected);
  const RKVXMLValue notURLs[] = {
      RKVXMLValue("   "), RKVXMLValue(), RKVXMLValue(element("<I id='1'/>")),
      RKVXMLValue(element("<I>http://a.test/<B/>x</I>")),  // interrupted text
      RKVXMLValue(RKVXMLArray::make({"http://a.test/"}))};
  for (const RKVXMLValue& value : notURLs)
    EXPECT_FALSE(RKVVASTURL::fromXML(value));
}

TEST(RKVVASTTrackingEventTest, EventNames) {
  const Strings consumable = {"creativeView",  "start",    "firstSecond",
                              "firstQuartile", "midpoint", "thirdQuartile",
                              "complete",      "progress", "loaded"};
  const Strings nonConsumable = {"click",
                                 "mute",
                                 "unmute",
                                 "pause",
                                 "rewind",
                                 "resume",
                                 "fullscreen",
                                 "exitFullscreen",
                                 "timeToClick",
                                 "skip",
                                 "vpaidAdInteraction",
                                 "playerExpand",
                                 "playerCollapse"};
  test::RKVLogCapture log;
  for (const Strings* names : {&consumable, &nonConsumable}) {
    for (const std::string& name : *names) {
      auto event = tracking("event='" + name + "'");
      ASSERT_TRUE(event) << name;
      EXPECT_EQ(event->eventName(), name);
      EXPECT_EQ(event->isEventConsumable(), names == &consumable) << name;
      EXPECT_EQ(event->eventOffset(), -1.0);
      EXPECT_EQ(event->offset(), std::nullopt);
    }
  }
  EXPECT_EQ(consumable.size() + nonConsumable.size(), 22u);
  // "viewcount" is consumable but comes only from extension metrics; names are case-sensitive.
  EXPECT_TRUE(RKVVASTTrackingEvent::isEventConsumableFromName("viewcount"));
  for (const char* name : {"viewcount", "Start", "acceptInvitation", ""})
    EXPECT_EQ(tracking(std::string("event='") + name + "'"), nullptr) << name;
  EXPECT_TRUE(log.debugMessages().empty());  // refusing a name logs nothing

  // Unknown names are logged and never consumed, whatever the message says.
  RKVVASTTrackingEvent unknown("acceptInvitation", std::nullopt, url("http://t.test/a"));
  EXPECT_FALSE(unknown.isEventConsumable());
  EXPECT_FALSE(RKVVASTTrackingEvent::isEventConsumableFromName("Start"));
  EXPECT_TRUE(RKVVASTViewabilityEvent("notviewable", url("http://v/")).isEventConsumable());
  EXPECT_FALSE(RKVVASTViewabilityEvent("start", url("http://v/")).isEventConsumable());
  EXPECT_EQ(log.debugMessages(),
            (Strings{unknownName("acceptInvitation"), unknownName("Start"), unknownName("start")}));
}

TEST(RKVVASTTrackingEventTest, ElementsAndMetrics) {
  for (const char* xml : {"<Tracking event='start'>   </Tracking>",  // white space is dropped
                          "<Tracking event='start'/>", "<Tracking>http://t.test/</Tracking>",
                          "<Tracking event='start'>http://bad host/</Tracking>",
                          "<Tracking event='start'>http://t.test/<B/>x</Tracking>"})
    EXPECT_EQ(RKVVASTTrackingEvent::withDictionary(*element(xml)), nullptr) << xml;

  auto progress = tracking("event='progress' offset='00:00:05.000'", "http://t.test/p?x=[A]");
  ASSERT_TRUE(progress);
  EXPECT_EQ(progress->offset(), "00:00:05.000");
  EXPECT_EQ(progress->eventURL().absoluteString(), "http://t.test/p?x=%5BA%5D");

  auto metric = RKVVASTTrackingEvent::withExtensionDictionary(
      *element("<Metric name='viewcount' offset='10%'>http://m.test/v</Metric>"));
  ASSERT_TRUE(metric);
  EXPECT_EQ(metric->eventName(), "viewcount");
  EXPECT_EQ(metric->offset(), "10%");
  EXPECT_TRUE(metric->isEventConsumable());
  for (const char* xml :
       {"<Metric name='start'>http://m.test/</Metric>",
        "<Metric name='ViewCount'>http://m.test/</Metric>", "<Metric name='viewcount'/>",
        "<Metric event='viewcount'>http://m/</Metric>",
        "<Metric name='viewcount'>http://bad host/</Metric>"})
    EXPECT_EQ(RKVVASTTrackingEvent::withExtensionDictionary(*element(xml)), nullptr) << xml;
}

TEST(RKVVASTTrackingEventTest, FindTrackingEvents) {
  auto found = RKVVASTTrackingEvent::findTrackingEvents(
      *element("<Linear><TrackingEvents>"
               "<Tracking event='start'>http://t.test/1</Tracking>"
               "<Tracking event='Start'>http://t.test/x</Tracking>"
               "<Tracking event='pause'>http://t.test/2</Tracking>"
               "</TrackingEvents><TrackingEvents><Tracking event='mute'>http://t.test/3</Tracking>"
               "</TrackingEvents></Linear>"));
  ASSERT_TRUE(found);
  Strings urls;
  for (const auto& event : *found)
    urls.push_back(event->eventURL().absoluteString());
  // Only the first TrackingEvents is read; invalid entries are skipped, order is kept.
  EXPECT_EQ(urls, (Strings{"http://t.test/1", "http://t.test/2"}));

  for (const char* xml : {"<Linear/>", "<Linear><TrackingEvents/></Linear>",
                          "<Linear><TrackingEvents><Tracking event='Start'>http://t/</Tracking>"
                          "<Tracking event='viewcount'>http://t/</Tracking><Tracking event='x'/>"
                          "</TrackingEvents></Linear>"})
    EXPECT_EQ(RKVVASTTrackingEvent::findTrackingEvents(*element(xml)), std::nullopt) << xml;
}

TEST(RKVVASTTrackingEventTest, EqualityCopyAndArchive) {
  auto a = tracking("event='progress' offset='25%'");
  auto b = tracking("event='progress' offset='25%'");
  ASSERT_TRUE(a && b);
  EXPECT_TRUE(a->isEqual(*b));  // built from identical elements
  for (const auto& other : {tracking("event='progress' offset='50%'"), tracking("event='progress'"),
                            tracking("event='complete' offset='25%'"),
                            tracking("event='progress' offset='25%'", "http://t.test/q")})
    EXPECT_FALSE(a->isEqual(*other));
  b->setEventOffset(3);
  EXPECT_FALSE(*a == *b);
  auto copy = b->copy();
  EXPECT_TRUE(copy != b && *copy == *b);
  copy->setEventOffset(4);
  EXPECT_EQ(b->eventOffset(), 3.0);

  auto pause = tracking("event='pause'", "http://t.test/p?e=[ERRORCODE]");
  EXPECT_EQ(pause->archive(),
            R"({"name":"pause","url":"http://t.test/p?e=%5BERRORCODE%5D","eventOffset":-1.0})");
  for (const auto& event : {a, b, pause}) {
    auto back = RKVVASTTrackingEvent::unarchive(event->archive());
    ASSERT_TRUE(back) << event->archive();
    EXPECT_TRUE(*back == *event) << event->archive();
    EXPECT_EQ(back->isEventConsumable(), event->isEventConsumable());
  }
  for (const char* json :
       {"", "[]", "{", R"({"name":"start"})", R"({"url":"http://t.test/"})",
        R"({"name":"start","url":"http://bad host/"})", R"({"name":7,"url":"http://t.test/"})"})
    EXPECT_EQ(RKVVASTTrackingEvent::unarchive(json), nullptr) << json;
  auto noOffset = RKVVASTTrackingEvent::unarchive(R"({"name":"start","url":"http://t.test/"})");
  ASSERT_TRUE(noOffset);
  EXPECT_EQ(noOffset->eventOffset(), -1.0);
}

TEST(RKVVASTViewabilityEventTest, ConstructorsEqualityAndArchive) {
  const auto events = {
      RKVVASTViewabilityEvent::viewableEventWithURL(url("http://v.test/1")),
      RKVVASTViewabilityEvent::notViewableEventWithURL(url("http://v.test/1")),
      RKVVASTViewabilityEvent::viewUndeterminedEventWithURL(url("http://v.test/1"))};
  Strings names;
  for (const auto& event : events) {
    names.push_back(event->eventName());
    EXPECT_TRUE(event->isEventConsumable());
    auto back = RKVVASTViewabilityEvent::unarchive(event->archive());
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == *event && *event->copy() == *event);
  }
  EXPECT_EQ(names, (Strings{"viewable", "notviewable", "viewundetermined"}));
  const auto viewable = *events.begin();
  EXPECT_EQ(viewable->archive(), R"({"name":"viewable","url":"http://v.test/1"})");
  EXPECT_FALSE(*viewable == *RKVVASTViewabilityEvent::viewableEventWithURL(url("http://v.test/2")));
  EXPECT_EQ(RKVVASTViewabilityEvent::unarchive(R"({"name":"viewable"})"), nullptr);

  // Events of different classes are never equal, even with the same name and URL.
  RKVVASTTrackingEvent tracked("viewcount", std::nullopt, url("http://v.test/1"));
  RKVVASTViewabilityEvent viewed("viewcount", url("http://v.test/1"));
  EXPECT_FALSE(viewed.isEqual(tracked) || tracked.isEqual(viewed));
}

TEST(RKVVASTClickEventTest, TypeAndURLText) {
  auto click = RKVVASTClickEvent::withType("clickThrough", "http://c.test/landing");
  ASSERT_TRUE(click);
  EXPECT_TRUE(*click == RKVVASTClickEvent("clickThrough", url("http://c.test/landing")));
  EXPECT_FALSE(*click == RKVVASTClickEvent("clickTracking", url("http://c.test/landing")));
  EXPECT_FALSE(*click == RKVVASTClickEvent("clickThrough", url("http://c.test/other")));
  const std::pair<const char*, const char*> refused[] = {{"", "http://c/"},
                                                         {" \t", "http://c/"},
                                                         {"click", ""},
                                                         {"click", "  "},
                                                         {"click", "http://bad host/"}};
  for (const auto& [type, text] : refused)
    EXPECT_EQ(RKVVASTClickEvent::withType(type, text), nullptr) << type << " / " << text;
}

}  // namespace
}  // namespace rkv
