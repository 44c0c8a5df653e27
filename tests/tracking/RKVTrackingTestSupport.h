// Shared fixture of the tracking tests: a main loop on a manual clock driven by the test's
// thread, a pixel manager over an in-memory store whose saves are counted, a loopback server
// that answers the pixels, and a delegate that records what it is told.
#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"
#include "rkv/tracking/RKVTrackingEventManagerDelegate.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"

#include "tests/support/RKVTestHTTPServer.h"

namespace rkv::test {

// Persists through a real provider over memory defaults, counting the saves: the pixel manager
// saves once per added pixel and once at the end of each sending round.
class RKVCountingPixelStoreProvider final : public RKVPixelStoreProviderProtocol {
 public:
  std::optional<std::vector<RKVPixel>> loadPixels() override { return inner_.loadPixels(); }
  bool savePixels(const std::vector<RKVPixel>& pixels) override {
    ++saves;
    return inner_.savePixels(pixels);
  }
  std::atomic<int> saves{0};

 private:
  RKVPixelStoreProvider inner_{
      std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>()), "test"};
};

struct RKVRecordingTrackingDelegate final : RKVTrackingEventManagerDelegate {
  void trackingEventManager(RKVTrackingEventManager&, const std::string& eventName,
                            uint64_t count) override {
    calls.emplace_back(eventName, count);
  }
  std::vector<std::pair<std::string, uint64_t>> calls;
};

class RKVTrackingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    loop->poll();  // this thread becomes the loop's main thread
    server.setRoute("/p", RKVTestRoute::answer(200, ""));
  }

  // A VAST tracking event whose URL is the server's /p with `query`.
  std::shared_ptr<RKVVASTTrackingEvent> event(const std::string& name, const std::string& query,
                                              double offset = -1.0) const {
    return std::make_shared<RKVVASTTrackingEvent>(name, std::nullopt, url("/p?" + query), offset);
  }
  RKVURL url(const std::string& pathAndQuery) const {
    auto parsed = RKVURL::withString(server.url(pathAndQuery));
    EXPECT_TRUE(parsed.has_value());
    return *parsed;
  }

  // Waits for every sending round asked so far (rounds run one at a time, in order) and
  // returns the targets the server received, in order.
  std::vector<std::string> sentTargets() {
    std::promise<void> done;
    pixelManager->callPixelsWithCompletionHandler([&] { done.set_value(); });
    done.get_future().wait();
    ++drains_;
    std::vector<std::string> targets;
    for (const auto& request : server.requests())
      targets.push_back(request.target);
    return targets;
  }
  // Sending rounds the code under test asked for; valid after sentTargets(), with every pixel
  // answered 200 (so each pixel was added, saved and sent once).
  int roundsAsked() const {
    return provider->saves - static_cast<int>(server.requests().size()) - drains_;
  }

  std::shared_ptr<RKVManualClock> clock = std::make_shared<RKVManualClock>();
  std::shared_ptr<RKVMainLoop> loop = std::make_shared<RKVMainLoop>(clock);
  RKVTestHTTPServer server;
  std::shared_ptr<RKVCountingPixelStoreProvider> provider =
      std::make_shared<RKVCountingPixelStoreProvider>();
  std::shared_ptr<RKVPixelManager> pixelManager = std::make_shared<RKVPixelManager>(
      std::make_shared<RKVPixelStore>(provider),
      std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>()));
  std::shared_ptr<RKVRecordingTrackingDelegate> delegate =
      std::make_shared<RKVRecordingTrackingDelegate>();

 private:
  int drains_ = 0;
};

}  // namespace rkv::test
