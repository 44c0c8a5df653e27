#include "rkv/tracking/RKVTrackingEventManager.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/tracking/RKVTrackingTestSupport.h"

namespace rkv::test {
namespace {

using RKVTrackingEventManagerTest = RKVTrackingTest;

TEST_F(RKVTrackingEventManagerTest, TrackingByNameQueuesLastToFirstWithOneRoundPerCall) {
  // clang-format off
  const struct {
    const char* what;
    std::vector<std::string> tracked;
    std::vector<std::string> sent;
    RKVDelegateCalls calls;
    int rounds;
  } cases[] = {
      {"three alike, last to first", {"pause"}, {"/p?n=3", "/p?n=2", "/p?n=1"}, {{"pause", 3}}, 1},
      {"a consumable event once", {"start", "start"}, {"/p?n=s"}, {{"start", 1}, {"start", 0}}, 1},
      {"names are exact", {"Start", "paus"}, {}, {{"Start", 0}, {"paus", 0}}, 0},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    delegate->calls.clear();
    auto tracking =
        manager<RKVTrackingEventManager>({event("pause", "n=1"), event("start", "n=s"),
                                          event("pause", "n=2"), event("pause", "n=3")});
    for (const auto& name : c.tracked)
      tracking.trackEvent(name, {});
    EXPECT_EQ(sentTargets(), c.sent);
    EXPECT_EQ(rounds, c.rounds);
    EXPECT_EQ(delegate->calls, c.calls);
  }
}

TEST_F(RKVTrackingEventManagerTest, FinalURLReplacesMacrosThenVariables) {
  // clang-format off
  const struct {
    const char* what;
    const char* templateURL;
    RKVTrackingMacros macros, additional, variables;
    const char* expected;  // "macros" or "variables": that step broke it, the template is used
  } cases[] = {
      {"the manager's macro wins", "http://h/p?a=[T]", {{"T", "1"}}, {{"T", "2"}}, {}, "http://h/p?a=1"},
      {"additional macros fill the rest", "http://h/p?a=[A]&b=[B]&c=[A]", {{"A", "1"}}, {{"B", "2"}}, {},
       "http://h/p?a=1&b=2&c=1"},
      {"only %5BKEY%5D matches", "http://h/p?a=%5bK%5d&b=[K]", {{"K", "v"}}, {{"[K]", "w"}}, {},
       "http://h/p?a=%5bK%5d&b=v"},
      {"macro names are case-sensitive", "http://h/p?a=[K]", {{"k", "v"}}, {}, {}, "http://h/p?a=%5BK%5D"},
      {"a macro value that breaks the host", "http://%5BH%5D.example/p?a=[K]", {{"H", "a b"}, {"K", "v"}}, {},
       {}, "macros"},
      {"one brace pair", "http://h/p?pos=pos&x=pos", {}, {}, {{"pos={pos}", "12"}}, "http://h/p?pos=12&x=pos"},
      {"prefix and suffix", "http://h/p/ax/c", {}, {}, {{"/a{x}/", "X"}}, "http://h/p/aX/c"},
      {"no braces", "http://h/p?pos=pos", {}, {}, {{"pos=pos", "12"}}, "http://h/p?pos=pos"},
      {"two brace pairs", "http://h/p?ab=ab", {}, {}, {{"{a}{b}", "1"}, {"a{b}}", "2"}, {"a{{b}", "3"}},
       "http://h/p?ab=ab"},
      {"a plain form not in the URL", "http://h/p?pos=1", {}, {}, {{"cur={cur}", "5"}}, "http://h/p?pos=1"},
      {"a variable that breaks the host", "http://hx/p?[K]", {{"K", "v"}}, {}, {{"h{x}", " y"}}, "variables"},
      {"macros before variables", "http://h/p?[K]", {{"K", "pos=pos"}}, {}, {{"pos={pos}", "3"}},
       "http://h/p?pos=3"},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const auto templateURL = RKVURL::withString(c.templateURL).value();
    RKVLogCapture log;
    auto result = manager<RKVTrackingEventManager>({}, c.macros)
                      .finalEventURLWithURL(templateURL, c.variables, c.additional);
    const std::string expected = c.expected;
    if (expected == "macros" || expected == "variables") {
      EXPECT_EQ(result, templateURL);
      EXPECT_EQ(log.debugMessages(),
                std::vector<std::string>{"Replacing " + expected + " in URL '" +
                                         templateURL.absoluteString() +
                                         "' has resulted in a invalid URL! Using the original "
                                         "URL instead."});
    } else {
      EXPECT_EQ(result.absoluteString(), expected);
      EXPECT_TRUE(log.debugMessages().empty());
    }
  }
}

}  // namespace
}  // namespace rkv::test
