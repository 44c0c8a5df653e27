// Shared fixture of the tracking tests: a main loop on a manual clock driven by the test's
// thread, a pixel manager over memory defaults whose saves are counted, a loopback server that
// answers the pixels, and a delegate that records what it is told.
#pragma once

#include <atomic>
#include <future>

#include <gtest/gtest.h>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVTrackingEventManagerDelegate.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"

#include "tests/support/RKVTestHTTPServer.h"

namespace rkv::test {

// The pixel manager saves once per added pixel and once at the end of each sending round.
struct RKVCountingPixelStoreProvider final : RKVPixelStoreProviderProtocol {
  std::optional<std::vector<RKVPixel>> loadPixels() override { return inner.loadPixels(); }
  bool savePixels(const std::vector<RKVPixel>& pixels) override {
    ++saves;
    return inner.savePixels(pixels);
  }
  RKVPixelStoreProvider inner{
      std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>()), "test"};
  std::atomic<int> saves{0};
};

using RKVDelegateCalls = std::vector<std::pair<std::string, uint64_t>>;

struct RKVRecordingTrackingDelegate final : RKVTrackingEventManagerDelegate {
  void trackingEventManager(RKVTrackingEventManager&, const std::string& name,
                            uint64_t count) override {
    calls.emplace_back(name, count);
  }
  RKVDelegateCalls calls;
};

class RKVTrackingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    loop->poll();  // this thread becomes the loop's main thread
    server.setRoute("/p", RKVTestRoute::answer(200, ""));
  }
  RKVURL url(const std::string& pathAndQuery) const {
    return RKVURL::withString(server.url(pathAndQuery)).value();
  }
  // A manager of type M over the events, with this fixture's delegate, pixel manager and loop.
  template <typename M>
  M manager(RKVTrackingEventDefaultFactory::Events events, RKVTrackingMacros macros = {}) {
    return M(RKVTrackingEventDefaultFactory(std::move(events)), std::move(macros), delegate,
             pixelManager, loop);
  }
  // A VAST tracking event calling the server's /p?<query>.
  std::shared_ptr<RKVVASTTrackingEvent> event(const std::string& name, const std::string& query,
                                              double offset = -1.0) const {
    return std::make_shared<RKVVASTTrackingEvent>(name, std::nullopt, url("/p?" + query), offset);
  }
  // Waits for every sending round asked so far (they run in order) and returns the targets the
  // server received since the last call, in order. Also counts the rounds the code under test
  // asked for: the saves that were neither a pixel's (each sent once, answered 200) nor a wait's.
  std::vector<std::string> sentTargets() {
    std::promise<void> done;
    pixelManager->callPixelsWithCompletionHandler([&] { done.set_value(); });
    done.get_future().wait();
    auto requests = server.requests();
    std::vector<std::string> targets;
    for (size_t i = seen_; i < requests.size(); ++i)
      targets.push_back(requests[i].target);
    rounds = provider->saves - savesAtLastWait_ - static_cast<int>(targets.size()) - 1;
    seen_ = requests.size();
    savesAtLastWait_ = provider->saves;
    return targets;
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
  int rounds = 0;  // sending rounds asked between the last two sentTargets()

 private:
  size_t seen_ = 0;
  int savesAtLastWait_ = 0;
};

}  // namespace rkv::test
