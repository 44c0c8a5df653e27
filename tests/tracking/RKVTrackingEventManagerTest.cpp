#include <gtest/gtest.h>

#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVTrackingEventManager.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

using Calls = std::vector<std::pair<std::string, uint64_t>>;

class RKVTrackingEventManagerTest : public RKVTrackingTest {
 protected:
  RKVTrackingEventManager manager(RKVTrackingEventDefaultFactory::Events events,
                                  RKVTrackingMacros macros = {}) {
    return RKVTrackingEventManager(RKVTrackingEventDefaultFactory(std::move(events)),
                                   std::move(macros), delegate, pixelManager, loop);
  }
};

TEST_F(RKVTrackingEventManagerTest, TrackingByNameQueuesLastToFirstAndFlushesOncePerCall) {
  struct Case {
    const char* what;
    std::vector<std::string> tracked;
    std::vector<bool> answers;
    std::vector<std::string> sent;
    Calls calls;
    size_t eventsLeft;
  };
  const Case cases[] = {
      {"three alike, last to first",
       {"pause"},
       {true},
       {"/p?n=3", "/p?n=2", "/p?n=1"},
       {{"pause", 3}},
       5},
      {"a consumable event fires once",
       {"start", "start"},
       {true, false},
       {"/p?n=start"},
       {{"start", 1}, {"start", 0}},
       4},
      {"names are exact", {"Start", "paus"}, {false, false}, {}, {{"Start", 0}, {"paus", 0}}, 5},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    delegate->calls.clear();
    auto pause = [&](const std::string& query) { return event("pause", query); };
    auto tracking = manager({pause("n=1"), event("start", "n=start"), pause("n=2"), pause("n=3"),
                             event("complete", "n=complete")});
    const size_t requestsBefore = server.requests().size();
    const int savesBefore = provider->saves;
    for (size_t i = 0; i < c.tracked.size(); ++i)
      EXPECT_EQ(tracking.trackEvent(c.tracked[i], {}), c.answers[i]) << c.tracked[i];

    auto sent = sentTargets();
    sent.erase(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(requestsBefore));
    EXPECT_EQ(sent, c.sent);
    EXPECT_EQ(delegate->calls, c.calls);
    EXPECT_EQ(tracking.events().size(), c.eventsLeft);
    // One save per pixel, one per round asked by a successful track, one for the wait.
    int successes = 0;
    for (bool answer : c.answers)
      successes += answer ? 1 : 0;
    EXPECT_EQ(provider->saves - savesBefore, static_cast<int>(c.sent.size()) + successes + 1);
  }
}

TEST_F(RKVTrackingEventManagerTest, AnEventNoLongerListedIsRefusedWithOneDebugLine) {
  auto start = event("start", "e=start");
  auto tracking = manager({start});
  ASSERT_TRUE(tracking.trackEvent("start", {}));
  RKVLogCapture log;
  tracking.trackEventByReference(start, {}, {}, true);
  tracking.trackEventByReference(event("pause", "e=foreign"), {}, {}, true);

  EXPECT_EQ(sentTargets(), std::vector<std::string>{"/p?e=start"});
  const std::string prefix =
      "Event tracking cancelled because the event was not contained in the events array: '";
  EXPECT_EQ(log.debugMessages(),
            (std::vector<std::string>{prefix + server.url("/p?e=start") + "'!",
                                      prefix + server.url("/p?e=foreign") + "'!"}));
  EXPECT_EQ(delegate->calls, (Calls{{"start", 1}}));
}

TEST_F(RKVTrackingEventManagerTest, FinalURLReplacesMacrosThenVariables) {
  const std::string macroLine =
      "Replacing macros in URL '{}' has resulted in a invalid URL! Using the original URL "
      "instead.";
  const std::string variableLine =
      "Replacing variables in URL '{}' has resulted in a invalid URL! Using the original URL "
      "instead.";
  struct Case {
    const char* what;
    const char* templateURL;
    RKVTrackingMacros macros, additional, variables;
    const char* expected;  // nullptr: the template, with the debug line
    const std::string* line;
  };
  const Case cases[] = {
      {"the manager's macro wins",
       "http://h/p?a=[TIMESTAMP]",
       {{"TIMESTAMP", "1"}},
       {{"TIMESTAMP", "2"}},
       {},
       "http://h/p?a=1",
       nullptr},
      {"additional macros fill the rest",
       "http://h/p?a=%5BA%5D&b=%5BB%5D&a2=%5BA%5D",
       {{"A", "1"}},
       {{"B", "2"}},
       {},
       "http://h/p?a=1&b=2&a2=1",
       nullptr},
      {"only the encoded brackets match",
       "http://h/p?a=%5bK%5d&b=%5BK%5D",
       {{"K", "v"}},
       {{"[K]", "w"}},
       {},
       "http://h/p?a=%5bK%5d&b=v",
       nullptr},
      {"macro names are case-sensitive",
       "http://h/p?a=%5BK%5D",
       {{"k", "v"}},
       {},
       {},
       "http://h/p?a=%5BK%5D",
       nullptr},
      {"a value that breaks the host",
       "http://%5BHOST%5D.example/p?a=%5BK%5D",
       {{"HOST", "a b"}, {"K", "v"}},
       {},
       {},
       nullptr,
       &macroLine},
      {"a variable with one brace pair",
       "http://h/p?pos=pos&x=pos",
       {},
       {},
       {{"pos={pos}", "12"}},
       "http://h/p?pos=12&x=pos",
       nullptr},
      {"a variable with a prefix and suffix",
       "http://h/p/ax/c",
       {},
       {},
       {{"/a{x}/", "X"}},
       "http://h/p/aX/c",
       nullptr},
      {"a key without braces changes nothing",
       "http://h/p?pos=pos",
       {},
       {},
       {{"pos=pos", "12"}},
       "http://h/p?pos=pos",
       nullptr},
      {"a key with two brace pairs changes nothing",
       "http://h/p?ab=ab",
       {},
       {},
       {{"{a}{b}", "12"}, {"a{b}}", "9"}, {"a{{b}", "9"}},
       "http://h/p?ab=ab",
       nullptr},
      {"a key whose plain form is absent changes nothing",
       "http://h/p?pos=1",
       {},
       {},
       {{"cur={cur}", "5"}},
       "http://h/p?pos=1",
       nullptr},
      {"a variable that breaks the host",
       "http://hostx/p",
       {{"K", "v"}},
       {},
       {{"host{x}", " y"}},
       nullptr,
       &variableLine},
      {"macros apply before variables",
       "http://h/p?%5BK%5D",
       {{"K", "pos=pos"}},
       {},
       {{"pos={pos}", "3"}},
       "http://h/p?pos=3",
       nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto templateURL = RKVURL::withString(c.templateURL);
    ASSERT_TRUE(templateURL.has_value());
    RKVLogCapture log;
    auto result =
        manager({}, c.macros).finalEventURLWithURL(*templateURL, c.variables, c.additional);
    if (c.expected != nullptr) {
      EXPECT_EQ(result.absoluteString(), c.expected);
      EXPECT_TRUE(log.debugMessages().empty());
    } else {
      EXPECT_EQ(result, *templateURL);
      std::string line = *c.line;
      line.replace(line.find("{}"), 2, templateURL->absoluteString());
      EXPECT_EQ(log.debugMessages(), std::vector<std::string>{line});
    }
  }
}

TEST_F(RKVTrackingEventManagerTest, APixelWhoseMacrosBreakItIsQueuedWithItsTemplate) {
  auto templateURL = RKVURL::withString("http://h%5BK%5D.example/p?a=%5BA%5D");
  ASSERT_TRUE(templateURL.has_value());
  auto broken = std::make_shared<RKVVASTTrackingEvent>("start", std::nullopt, *templateURL);
  auto tracking = manager({broken}, {{"K", "a b"}, {"A", "1"}});
  RKVLogCapture log;
  tracking.trackEventByReference(broken, {}, {}, false, false);

  auto queued = pixelManager->allPixels();
  ASSERT_EQ(queued.size(), 1u);
  EXPECT_EQ(queued[0].url(), *templateURL);
  EXPECT_EQ(log.debugMessages().size(), 1u);
  EXPECT_TRUE(tracking.events().empty());
  EXPECT_TRUE(delegate->calls.empty());
}

TEST_F(RKVTrackingEventManagerTest, DefaultFactoryFiltersInOrder) {
  RKVTrackingEventDefaultFactory factory(
      {event("start", "1"), nullptr, event("pause", "2"), event("start", "3")},
      [](const RKVTrackingEvent& e) { return e.eventName() == "start"; });
  ASSERT_EQ(factory.trackingEvents().size(), 2u);
  EXPECT_EQ(factory.trackingEvents()[0]->eventURL(), url("/p?1"));
  EXPECT_EQ(factory.trackingEvents()[1]->eventURL(), url("/p?3"));
  RKVTrackingEventDefaultFactory throwing(
      {event("start", "1")},
      [](const RKVTrackingEvent&) -> bool { throw std::runtime_error("x"); });
  EXPECT_TRUE(throwing.trackingEvents().empty());
}

}  // namespace
}  // namespace rkv::test
