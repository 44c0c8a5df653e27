// The VAST tracking event factory's offsets and the VAST error pixels, sent through a pixel
// manager to a loopback server.
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/vast/RKVVASTPixelManager.h"
#include "rkv/vast/RKVVASTTrackingEventFactory.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestThreads.h"
#include "tests/vast/RKVVASTTestSupport.h"

namespace rkv {
namespace {

using test::RKVLogCapture;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using test::url;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::shared_ptr<RKVVASTTrackingEvent> event(const std::string& name,
                                            std::optional<std::string> offset = std::nullopt) {
  return std::make_shared<RKVVASTTrackingEvent>(name, std::move(offset),
                                                url("http://t.example/" + name));
}

TEST(RKVVASTTrackingEventFactoryTest, OffsetsFromNamesAndAttributes) {
  struct Case {
    std::string name;
    std::optional<std::string> offset;
    double expected;  // for a content of 30 s
  };
  // A clock offset or a percentage wins over the name; an offset of no known kind leaves the
  // name's; "pause" is fired by the player, not by time.
  // clang-format off
  const std::vector<Case> cases = {
      {"start", std::nullopt, 0}, {"firstQuartile", std::nullopt, 7.5},
      {"midpoint", std::nullopt, 15}, {"thirdQuartile", std::nullopt, 22.5},
      {"complete", std::nullopt, 30}, {"midpoint", "00:00:05", 5}, {"midpoint", "10%", 3},
      {"midpoint", "soon", 15}, {"progress", "00:01:02.500", 62.5}, {"pause", std::nullopt, -1}};
  // clang-format on
  std::vector<std::shared_ptr<RKVVASTTrackingEvent>> events = {nullptr};  // left out
  for (const Case& c : cases) {
    events.push_back(event(c.name, c.offset));
    events.back()->setEventOffset(123);  // whatever it was, it is recomputed
  }
  RKVVASTTrackingEventFactory factory(events, 30);
  const auto tracking = factory.trackingEvents();
  ASSERT_EQ(tracking.size(), cases.size());
  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].name + " " + cases[i].offset.value_or("-"));
    EXPECT_EQ(tracking[i], events[i + 1]);  // the same objects, in order, changed in place
    EXPECT_DOUBLE_EQ(events[i + 1]->eventOffset(), cases[i].expected);
  }
  // Without a content length there is no share of it.
  RKVVASTTrackingEventFactory unknownLength({event("midpoint")}, 0);
  EXPECT_DOUBLE_EQ(unknownLength.events()[0]->eventOffset(), -1);
}

// A pixel manager that notes each pixel handed to addPixel, as a host watching the queue would.
struct WatchedPixelManager : RKVPixelManager {
  using RKVPixelManager::RKVPixelManager;
  bool addPixel(const RKVPixel& pixel) override {
    added.push_back(pixel.url().absoluteString());
    return RKVPixelManager::addPixel(pixel);
  }
  std::vector<std::string> added;
};

// A VAST pixel manager over a pixel manager whose store lives in memory.
struct VASTPixels {
  std::shared_ptr<WatchedPixelManager> manager = std::make_shared<WatchedPixelManager>(
      std::make_shared<RKVPixelStore>(std::make_shared<RKVPixelStoreProvider>(
          std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>()),
          "test")),
      test::testSession());
  RKVVASTPixelManager vast{manager};

  // Waits until the rounds requested so far have ended (rounds run one after the other).
  void waitForRounds() {
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    manager->callPixelsWithCompletionHandler([done] { done->set_value(); });
    ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  }
};

TEST(RKVVASTPixelManagerTest, ErrorPixelsCarryTheCodeOrAreNotCalled) {
  RKVTestHTTPServer server;
  server.setRoute("/error", RKVTestRoute::answer(200, ""));
  server.setRoute("/other", RKVTestRoute::answer(204, ""));
  VASTPixels pixels;
  RKVLogCapture capture;
  pixels.vast.callVASTErrorPixels(std::vector{RKVVASTURL(url("http://t.example/e"))}, -1);
  pixels.vast.callVASTErrorPixels(std::vector<RKVVASTURL>{}, 402);
  pixels.vast.callVASTErrorPixels(std::nullopt, 900);
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
  EXPECT_THAT(capture.debugMessages(),
              ElementsAre("Error pixels cannot be called for error code: -1",
                          "No error pixels to call for error code: 402",
                          "No error pixels to call for error code: 900"));
  for (int64_t code : {301, -2}) {
    SCOPED_TRACE(code);
    pixels.vast.callVASTErrorPixels(
        std::vector{RKVVASTURL(url(server.url("/error?code=[ERRORCODE]&n=1"))),
                    RKVVASTURL(url(server.url("/other?c=%5BERRORCODE%5D")))},
        code);
    pixels.waitForRounds();
  }
  std::vector<std::string> targets;
  for (const auto& request : server.requests())
    targets.push_back(request.target);
  // The round each call requests sends its pixels, in order; the macro is found written either
  // way.
  EXPECT_THAT(targets, ElementsAre("/error?code=301&n=1", "/other?c=301", "/error?code=-2&n=1",
                                   "/other?c=-2"));
  EXPECT_EQ(pixels.manager->added,
            (std::vector{server.url("/error?code=301&n=1"), server.url("/other?c=301"),
                         server.url("/error?code=-2&n=1"), server.url("/other?c=-2")}));
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
}

}  // namespace
}  // namespace rkv
