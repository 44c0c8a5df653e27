#include <memory>
#include <optional>
#include <string>
#include <utility>
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

std::shared_ptr<RKVVASTTrackingEvent> tracking(const std::string& attributes,
                                               const std::string& text) {
  return RKVVASTTrackingEvent::withDictionary(
      *element("<Tracking " + attributes + ">" + text + "</Tracking>"));
}

RKVURL url(std::string_view text) {
  std::optional<RKVURL> parsed = RKVURL::withString(text);
  EXPECT_TRUE(parsed) << text;
  return parsed.value_or(*RKVURL::withString("http://invalid.test/"));
}

std::string unknownNameMessage(const std::string& name) {
  return "Event '" + name +
         "' is neither consumable nor nonconsumable! It has been assumed as consumable.";
}

TEST(RKVVASTURLTest, ReadsTextsAndTreeValues) {
  EXPECT_FALSE(RKVVASTURL::withString(""));
  EXPECT_FALSE(RKVVASTURL::withString("   "));
  EXPECT_FALSE(RKVVASTURL::withString("\xC2\xA0\t"));  // no-break space and tab only
  EXPECT_FALSE(RKVVASTURL::withString("http://bad host/"));
  EXPECT_FALSE(RKVVASTURL::fromXML(RKVXMLValue("   ")));
  EXPECT_FALSE(RKVVASTURL::fromXML(RKVXMLValue()));
  EXPECT_FALSE(RKVVASTURL::fromXML(static_cast<const std::string*>(nullptr)));

  std::optional<RKVVASTURL> error = RKVVASTURL::withString("http://ads.test/e?c=[ERRORCODE]");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->url().absoluteString(), "http://ads.test/e?c=%5BERRORCODE%5D");
  EXPECT_EQ(error->description(), "RKVVASTURL(url=http://ads.test/e?c=%5BERRORCODE%5D)");

  // An element is read through its text; interrupted text, lists and bare elements are no URLs.
  EXPECT_EQ(RKVVASTURL::fromXML(RKVXMLValue(element("<I> http://a.test/i </I>"))),
            RKVVASTURL::withString("http://a.test/i"));
  EXPECT_EQ(RKVVASTURL::fromXML(RKVXMLValue("http://a.test/i")),
            RKVVASTURL::withString("http://a.test/i"));
  EXPECT_FALSE(RKVVASTURL::fromXML(RKVXMLValue(element("<I id='1'/>"))));
  EXPECT_FALSE(RKVVASTURL::fromXML(RKVXMLValue(element("<I>http://a.test/<B/>x</I>"))));
  EXPECT_FALSE(RKVVASTURL::fromXML(RKVXMLValue(RKVXMLArray::make({"http://a.test/"}))));

  EXPECT_EQ(RKVVASTURL::withURL(url("http://a.test/")), *RKVVASTURL::withString("http://a.test/"));
  EXPECT_FALSE(RKVVASTURL::withURL(url("http://a.test/")) == *RKVVASTURL::withString("http://b/"));
}

// Every name of the table, with whether a Tracking element may carry it and whether it is
// consumable.
TEST(RKVVASTTrackingEventTest, EventNamesFromTrackingElements) {
  struct Case {
    const char* name;
    bool accepted;
    bool consumable;
  };
  const Case cases[] = {
      {"viewcount", false, true},
      {"creativeView", true, true},
      {"start", true, true},
      {"firstSecond", true, true},
      {"firstQuartile", true, true},
      {"midpoint", true, true},
      {"thirdQuartile", true, true},
      {"complete", true, true},
      {"progress", true, true},
      {"loaded", true, true},
      {"click", true, false},
      {"mute", true, false},
      {"unmute", true, false},
      {"pause", true, false},
      {"rewind", true, false},
      {"resume", true, false},
      {"fullscreen", true, false},
      {"exitFullscreen", true, false},
      {"timeToClick", true, false},
      {"skip", true, false},
      {"vpaidAdInteraction", true, false},
      {"playerExpand", true, false},
      {"playerCollapse", true, false},
      {"Start", false, false},
      {"acceptInvitation", false, false},
      {"", false, false},
  };
  test::RKVLogCapture log;
  int accepted = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto event =
        tracking(std::string("event='") + c.name + "'", "http://t.test/" + std::string(c.name));
    ASSERT_EQ(event != nullptr, c.accepted);
    if (event) {
      ++accepted;
      EXPECT_EQ(event->eventName(), c.name);
      EXPECT_EQ(event->isEventConsumable(), c.consumable);
      EXPECT_EQ(event->eventOffset(), -1.0);
      EXPECT_EQ(event->offset(), std::nullopt);
    }
  }
  EXPECT_EQ(accepted, 22);
  // Refusing a name is not a reason to log it.
  EXPECT_TRUE(log.debugMessages().empty());
}

TEST(RKVVASTTrackingEventTest, UnknownNamesAreLoggedAndNotConsumable) {
  test::RKVLogCapture log;
  RKVVASTTrackingEvent event("acceptInvitation", std::nullopt, url("http://t.test/a"));
  EXPECT_FALSE(event.isEventConsumable());
  EXPECT_EQ(log.debugMessages(), std::vector<std::string>{unknownNameMessage("acceptInvitation")});

  log.clear();
  EXPECT_TRUE(RKVVASTTrackingEvent::isEventConsumableFromName("viewcount"));
  EXPECT_FALSE(RKVVASTTrackingEvent::isEventConsumableFromName("pause"));
  EXPECT_TRUE(log.debugMessages().empty());
  EXPECT_FALSE(RKVVASTTrackingEvent::isEventConsumableFromName("Start"));
  EXPECT_EQ(log.debugMessages(), std::vector<std::string>{unknownNameMessage("Start")});

  log.clear();
  RKVVASTViewabilityEvent viewability("viewable", url("http://v.test/"));
  EXPECT_TRUE(viewability.isEventConsumable());
  EXPECT_TRUE(
      RKVVASTViewabilityEvent::viewUndeterminedEventWithURL(url("http://v/"))->isEventConsumable());
  EXPECT_TRUE(log.debugMessages().empty());
  EXPECT_FALSE(RKVVASTViewabilityEvent("start", url("http://v.test/")).isEventConsumable());
  EXPECT_EQ(log.debugMessages(), std::vector<std::string>{unknownNameMessage("start")});
}

TEST(RKVVASTTrackingEventTest, TrackingElementsThatGiveNoEvent) {
  const char* elements[] = {
      "<Tracking event='start'>   </Tracking>",  // the tree drops white-space-only text
      "<Tracking event='start'/>",
      "<Tracking>http://t.test/</Tracking>",
      "<Tracking event='start'>http://bad host/</Tracking>",
      "<Tracking event='start'>http://t.test/<B/>x</Tracking>",  // interrupted text
      "<Tracking name='viewcount'>http://t.test/</Tracking>",
  };
  for (const char* xml : elements)
    EXPECT_EQ(RKVVASTTrackingEvent::withDictionary(*element(xml)), nullptr) << xml;
}

TEST(RKVVASTTrackingEventTest, OffsetsAndExtensionMetrics) {
  auto progress = tracking("event='progress' offset='00:00:05.000'", "http://t.test/p?x=[A]");
  ASSERT_TRUE(progress);
  EXPECT_EQ(progress->offset(), "00:00:05.000");
  EXPECT_EQ(progress->eventURL().absoluteString(), "http://t.test/p?x=%5BA%5D");
  progress->setEventOffset(5);
  EXPECT_EQ(progress->eventOffset(), 5.0);

  auto metric = RKVVASTTrackingEvent::withExtensionDictionary(
      *element("<Metric name='viewcount' offset='10%'>http://m.test/v</Metric>"));
  ASSERT_TRUE(metric);
  EXPECT_EQ(metric->eventName(), "viewcount");
  EXPECT_EQ(metric->offset(), "10%");
  EXPECT_TRUE(metric->isEventConsumable());
  EXPECT_EQ(metric->eventOffset(), -1.0);

  for (const char* xml :
       {"<Metric name='start'>http://m.test/</Metric>", "<Metric name='viewcount'/>",
        "<Metric>http://m.test/</Metric>", "<Metric event='viewcount'>http://m.test/</Metric>",
        "<Metric name='viewcount'>http://bad host/</Metric>"}) {
    EXPECT_EQ(RKVVASTTrackingEvent::withExtensionDictionary(*element(xml)), nullptr) << xml;
  }
  EXPECT_EQ(RKVVASTTrackingEvent::convertExtensionNameToVASTTrackingName("viewcount"), "viewcount");
  EXPECT_EQ(RKVVASTTrackingEvent::convertExtensionNameToVASTTrackingName("ViewCount"),
            std::nullopt);
}

TEST(RKVVASTTrackingEventTest, FindTrackingEvents) {
  auto found = RKVVASTTrackingEvent::findTrackingEvents(
      *element("<Linear><TrackingEvents>"
               "<Tracking event='start'>http://t.test/1</Tracking>"
               "<Tracking event='Start'>http://t.test/x</Tracking>"
               "<Tracking event='pause'>http://t.test/2</Tracking>"
               "<Tracking event='start'>http://t.test/3</Tracking>"
               "</TrackingEvents><TrackingEvents><Tracking event='mute'>http://t.test/4</Tracking>"
               "</TrackingEvents></Linear>"));
  ASSERT_TRUE(found);
  std::vector<std::string> urls;
  for (const auto& event : *found)
    urls.push_back(event->eventURL().absoluteString());
  // Only the first TrackingEvents is read; invalid entries are skipped, order is kept.
  EXPECT_EQ(urls,
            (std::vector<std::string>{"http://t.test/1", "http://t.test/2", "http://t.test/3"}));

  const char* without[] = {
      "<Linear/>",
      "<Linear><TrackingEvents/></Linear>",
      "<Linear><TrackingEvents><Tracking event='Start'>http://t.test/</Tracking>"
      "<Tracking event='viewcount'>http://t.test/</Tracking><Tracking event='x'/>"
      "</TrackingEvents></Linear>",
  };
  for (const char* xml : without)
    EXPECT_EQ(RKVVASTTrackingEvent::findTrackingEvents(*element(xml)), std::nullopt) << xml;
}

TEST(RKVVASTTrackingEventTest, EqualityCopyAndArchive) {
  const std::string xml = "event='progress' offset='25%'";
  auto a = tracking(xml, "http://t.test/p");
  auto b = tracking(xml, "http://t.test/p");
  ASSERT_TRUE(a && b);
  EXPECT_TRUE(a->isEqual(*b));  // built from identical elements
  EXPECT_FALSE(a->isEqual(*tracking("event='progress' offset='50%'", "http://t.test/p")));
  EXPECT_FALSE(a->isEqual(*tracking("event='progress'", "http://t.test/p")));
  EXPECT_FALSE(a->isEqual(*tracking("event='complete' offset='25%'", "http://t.test/p")));
  EXPECT_FALSE(a->isEqual(*tracking(xml, "http://t.test/q")));
  b->setEventOffset(3);
  EXPECT_FALSE(*a == *b);

  auto copy = b->copy();
  EXPECT_NE(copy.get(), b.get());
  EXPECT_TRUE(*copy == *b);
  copy->setEventOffset(4);  // the copy is independent
  EXPECT_EQ(b->eventOffset(), 3.0);

  for (const auto& event : {a, b}) {
    auto back = RKVVASTTrackingEvent::unarchive(event->archive());
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == *event) << event->archive();
    EXPECT_TRUE(back->isEventConsumable());
  }
  auto pause = tracking("event='pause'", "http://t.test/p?e=[ERRORCODE]");
  auto back = RKVVASTTrackingEvent::unarchive(pause->archive());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->offset(), std::nullopt);
  EXPECT_FALSE(back->isEventConsumable());
  EXPECT_TRUE(*back == *pause);
  EXPECT_EQ(pause->archive(),
            R"({"name":"pause","url":"http://t.test/p?e=%5BERRORCODE%5D","eventOffset":-1.0})");

  for (const char* json :
       {"", "[]", "{", R"({"name":"start"})", R"({"url":"http://t.test/"})",
        R"({"name":"start","url":"http://bad host/"})", R"({"name":7,"url":"http://t.test/"})"}) {
    EXPECT_EQ(RKVVASTTrackingEvent::unarchive(json), nullptr) << json;
  }
  auto noOffset = RKVVASTTrackingEvent::unarchive(R"({"name":"start","url":"http://t.test/"})");
  ASSERT_TRUE(noOffset);
  EXPECT_EQ(noOffset->eventOffset(), -1.0);
}

TEST(RKVVASTViewabilityEventTest, ConstructorsEqualityAndArchive) {
  auto viewable = RKVVASTViewabilityEvent::viewableEventWithURL(url("http://v.test/1"));
  auto notViewable = RKVVASTViewabilityEvent::notViewableEventWithURL(url("http://v.test/1"));
  auto undetermined = RKVVASTViewabilityEvent::viewUndeterminedEventWithURL(url("http://v.test/1"));
  EXPECT_EQ(viewable->eventName(), "viewable");
  EXPECT_EQ(notViewable->eventName(), "notviewable");
  EXPECT_EQ(undetermined->eventName(), "viewundetermined");
  EXPECT_FALSE(*viewable == *notViewable);
  EXPECT_TRUE(*viewable == *viewable->copy());
  EXPECT_FALSE(*viewable == *RKVVASTViewabilityEvent::viewableEventWithURL(url("http://v.test/2")));

  // Events of different kinds are never equal, even with the same name and URL.
  RKVVASTTrackingEvent trackingViewable("viewcount", std::nullopt, url("http://v.test/1"));
  RKVVASTViewabilityEvent viewcount("viewcount", url("http://v.test/1"));
  EXPECT_FALSE(viewcount.isEqual(trackingViewable));
  EXPECT_FALSE(trackingViewable.isEqual(viewcount));
  EXPECT_TRUE(
      viewable->isEqual(*RKVVASTViewabilityEvent::viewableEventWithURL(url("http://v.test/1"))));

  for (const auto& event : {viewable, notViewable, undetermined}) {
    auto back = RKVVASTViewabilityEvent::unarchive(event->archive());
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == *event);
    EXPECT_TRUE(back->isEventConsumable());
  }
  EXPECT_EQ(viewable->archive(), R"({"name":"viewable","url":"http://v.test/1"})");
  EXPECT_EQ(RKVVASTViewabilityEvent::unarchive(R"({"name":"viewable"})"), nullptr);
  EXPECT_EQ(RKVVASTViewabilityEvent::unarchive("not json"), nullptr);
}

TEST(RKVVASTClickEventTest, TypeAndURLText) {
  auto click = RKVVASTClickEvent::withType("clickThrough", "http://c.test/landing");
  ASSERT_TRUE(click);
  EXPECT_EQ(click->type(), "clickThrough");
  EXPECT_EQ(click->url().absoluteString(), "http://c.test/landing");
  EXPECT_TRUE(*click == RKVVASTClickEvent("clickThrough", url("http://c.test/landing")));
  EXPECT_FALSE(*click == RKVVASTClickEvent("clickTracking", url("http://c.test/landing")));
  EXPECT_FALSE(*click == RKVVASTClickEvent("clickThrough", url("http://c.test/other")));

  const std::pair<const char*, const char*> refused[] = {
      {"", "http://c.test/"}, {" \t", "http://c.test/"},     {"click", ""},
      {"click", "  "},        {"click", "http://bad host/"},
  };
  for (const auto& [type, text] : refused)
    EXPECT_EQ(RKVVASTClickEvent::withType(type, text), nullptr) << type << " / " << text;
}

}  // namespace
}  // namespace rkv
