// Sending rounds against a loopback server: which answers delete a pixel and which keep it, the
// order and the snapshot of a round, expiry before sending, persistence across managers and
// versions, failing saves, and pixels added from several threads while rounds run.
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"

#include "tests/net/RKVPixelTestSupport.h"
#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTempDir.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using test::ids;
using test::RKVLogCapture;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

RKVPixel pixel(uint32_t ID, const std::string& text,
               RKVPixel::Date expiration = std::chrono::system_clock::now() + 1h) {
  return RKVPixel(ID, *RKVURL::withString(text), expiration, RKVPixelStatus::pending);
}

std::vector<std::string> targets(const RKVTestHTTPServer& server) {
  std::vector<std::string> result;
  for (const auto& request : server.requests())
    result.push_back(request.target);
  return result;
}

// Runs one round and waits for its report.
RKVPixelRoundReport runRound(RKVPixelManager& manager) {
  auto promise = std::make_shared<std::promise<RKVPixelRoundReport>>();
  auto future = promise->get_future();
  manager.callPixelsWithReport([promise](const auto& report) { promise->set_value(report); });
  if (future.wait_for(test::kHangGuard) != std::future_status::ready) {
    ADD_FAILURE() << "the round never ended";
    return {};
  }
  return future.get();
}

std::shared_ptr<RKVPixelManager> managerOver(std::shared_ptr<RKVUserDefaultsStore> store,
                                             const std::string& version = "test") {
  auto defaults = std::make_shared<RKVUserDefaults>(std::move(store));
  return std::make_shared<RKVPixelManager>(
      std::make_shared<RKVPixelStore>(std::make_shared<RKVPixelStoreProvider>(defaults, version)),
      std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>()));
}

// A manager over user defaults in memory, and the list they last stored.
struct Pixels {
  std::shared_ptr<RKVMemoryUserDefaultsStore> memory =
      std::make_shared<RKVMemoryUserDefaultsStore>();
  std::shared_ptr<RKVPixelManager> manager = managerOver(memory);

  std::vector<uint32_t> onDisk() const {
    const auto entries = memory->entries();
    const auto it = entries.find(std::string(RKVPixelStoreProvider::kPixelListKeyPrefix) + "test");
    if (it == entries.end()) return {};
    return ids(*RKVPixelStoreProvider::unarchivePixels(std::get<RKVDataBlob>(it->second).bytes));
  }
};

TEST(RKVPixelManagerTest, ARoundDeletesAcceptedPixelsAndKeepsTheOthers) {
  EXPECT_FALSE(RKVPixelManager::isStatusCodeValid(199));
  EXPECT_FALSE(RKVPixelManager::isStatusCodeValid(405));
  RKVTestHTTPServer server;
  // The first five are accepted (0: not routed, the server's 404), the others refused.
  const int statuses[] = {200, 204, 302, 399, 0, 400, 401, 403, 500};
  Pixels pixels;
  std::vector<std::string> sentTargets, failures;
  uint32_t ID = 0;
  for (int status : statuses) {
    const std::string path = "/p" + std::to_string(ID);
    if (status) server.setRoute(path, RKVTestRoute::answer(status, ""));
    ASSERT_TRUE(pixels.manager->addPixel(pixel(ID, server.url(path + "?s=1"))));
    sentTargets.push_back(path + "?s=1");
    if (ID++ >= 5) failures.push_back("Can't send pixel '" + server.url(path + "?s=1") + "'!");
  }
  // A transport error keeps the pixel too.
  const std::string closed =
      "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort()) + "/closed";
  pixels.manager->addPixel(pixel(ID, closed));
  failures.push_back("Can't send pixel '" + closed + "'!");

  RKVLogCapture capture;
  const RKVPixelRoundReport report = runRound(*pixels.manager);
  EXPECT_EQ(targets(server), sentTargets);  // each once, in the order added
  EXPECT_THAT(ids(report.sent), ElementsAre(0u, 1u, 2u, 3u, 4u));
  EXPECT_THAT(ids(report.failed), ElementsAre(5u, 6u, 7u, 8u, 9u));
  EXPECT_TRUE(report.saved);
  EXPECT_EQ(capture.debugMessages(), failures);
  EXPECT_EQ(ids(pixels.manager->allPixels()), ids(report.failed));
  EXPECT_EQ(pixels.onDisk(), ids(report.failed));
}

TEST(RKVPixelManagerTest, ObsoletePixelsAreDroppedUnsent) {
  RKVTestHTTPServer server;
  Pixels pixels;
  RKVPixel sentBefore = pixel(3, server.url("/c"));
  sentBefore.setStatus(RKVPixelStatus::success);
  // A pixel made while the device clock read 1970 expires a day later.
  pixels.manager->addPixels({pixel(1, server.url("/a"), std::chrono::system_clock::now() - 60s),
                             pixel(2, server.url("/b"), RKVPixel::Date(86400s)), sentBefore,
                             pixel(4, server.url("/d"))});
  RKVLogCapture capture;
  const RKVPixelRoundReport report = runRound(*pixels.manager);
  EXPECT_THAT(ids(report.dropped), ElementsAre(1u, 2u, 3u));
  EXPECT_THAT(targets(server), ElementsAre("/d"));
  EXPECT_THAT(pixels.onDisk(), IsEmpty());
  // One warning, for the one pixel no correct clock makes; a pixel past its day is no news.
  EXPECT_THAT(capture.messages(3),
              ElementsAre(::testing::StartsWith("Dropped 1 expired pixel(s)")));
}

TEST(RKVPixelManagerTest, SavesWhatIsNewAndRetriesAFailedSave) {
  Pixels pixels;
  EXPECT_TRUE(pixels.manager->addPixel(pixel(1, "http://t.example/1")));
  const int64_t writes = pixels.memory->writeCount();
  EXPECT_FALSE(pixels.manager->addPixel(pixel(1, "http://t.example/other")));
  EXPECT_EQ(pixels.memory->writeCount(), writes);  // nothing new, nothing saved
  pixels.memory->failNextWrites(1);
  {
    RKVLogCapture quiet;
    EXPECT_FALSE(pixels.manager->addPixels(
        {pixel(2, "http://t.example/2"), pixel(3, "http://t.example/3")}));
  }
  EXPECT_THAT(pixels.onDisk(), ElementsAre(1u));
  EXPECT_THAT(ids(pixels.manager->validPendingPixels()), ElementsAre(1u, 2u, 3u));
  EXPECT_TRUE(pixels.manager->addPixel(pixel(4, "http://t.example/4")));
  EXPECT_THAT(pixels.onDisk(), ElementsAre(1u, 2u, 3u, 4u));
}

TEST(RKVPixelManagerTest, APixelAddedDuringARoundWaitsForTheNext) {
  RKVTestHTTPServer server;
  server.setRoute("/fail", RKVTestRoute::answer(500, ""));
  Pixels pixels;
  pixels.manager->addPixels({pixel(1, server.url("/fail")), pixel(2, server.url("/ok?n=2"))});
  server.setRoute("/ok", RKVTestRoute::answer(204, ""));
  // The first pixel's failure is logged from inside the round: a pixel is added right then.
  std::once_flag once;
  RKVLogCapture hook([&](std::string_view message) {
    if (message.find("/fail") != std::string_view::npos)
      std::call_once(once, [&] { pixels.manager->addPixel(pixel(3, server.url("/ok?n=3"))); });
  });
  const RKVPixelRoundReport first = runRound(*pixels.manager);
  EXPECT_THAT(ids(first.sent), ElementsAre(2u));
  EXPECT_THAT(ids(first.failed), ElementsAre(1u));
  EXPECT_THAT(pixels.onDisk(), ElementsAre(1u, 3u));
  EXPECT_THAT(ids(runRound(*pixels.manager).sent), ElementsAre(3u));
}

TEST(RKVPixelManagerTest, PixelsLeftByOneRunAreSentByTheNext) {
  RKVTestHTTPServer server;
  test::RKVTempDir dir;
  auto file = [&] { return std::make_shared<RKVSQLiteUserDefaultsStore>(dir.file("d.sqlite")); };
  {
    auto first = managerOver(file());
    first->addPixel(pixel(1, server.url("/a")));
    EXPECT_THAT(ids(runRound(*first).sent), ElementsAre(1u));
    first->addPixels({pixel(2, server.url("/b")), pixel(3, server.url("/c"))});
  }
  EXPECT_THAT(managerOver(file(), "2.0.0")->allPixels(), IsEmpty());  // another version's list
  EXPECT_THAT(ids(runRound(*managerOver(file())).sent), ElementsAre(2u, 3u));
  EXPECT_THAT(targets(server), ElementsAre("/a", "/b", "/c"));
  EXPECT_THAT(managerOver(file())->allPixels(), IsEmpty());
}

TEST(RKVPixelManagerTest, RoundsQueuedWhenTheManagerGoesAreDropped) {
  // The manager is released by a round's handler, on its own queue, with another round queued.
  std::shared_ptr<RKVPixelManager> holder =
      managerOver(std::make_shared<RKVMemoryUserDefaultsStore>());
  auto dropped = std::make_shared<std::promise<RKVPixelRoundReport>>();
  holder->callPixelsWithReport([&holder, dropped](const RKVPixelRoundReport& first) {
    EXPECT_TRUE(first.saved);
    holder->callPixelsWithReport([dropped](const auto& second) { dropped->set_value(second); });
    holder.reset();
  });
  auto future = dropped->get_future();
  ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_FALSE(future.get().saved);  // not run: a round over an empty store saves
}

// A provider that throws on saving: the add reports a failed save, and a round still ends with
// its handler called (a dropped handler would leave its caller waiting forever).
TEST(RKVPixelManagerTest, AProviderThatThrowsFailsTheSaveAndTheRoundStillEnds) {
  struct Throwing final : RKVPixelStoreProviderProtocol {
    std::optional<std::vector<RKVPixel>> loadPixels() override { return std::nullopt; }
    bool savePixels(const std::vector<RKVPixel>&) override { throw std::runtime_error("disk"); }
  };
  RKVPixelManager manager(
      std::make_shared<RKVPixelStore>(std::make_shared<Throwing>()),
      std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>()));
  RKVLogCapture quiet;
  bool added = true;
  EXPECT_NO_THROW(added = manager.addPixel(pixel(1, "http://t.example/1", RKVPixel::Date(1s))));
  EXPECT_FALSE(added);
  // Only the handler holds the promise: a handler destroyed uncalled breaks it at once.
  auto promise = std::make_shared<std::promise<bool>>();
  auto future = promise->get_future();
  manager.callPixelsWithReport([promise](const auto& report) { promise->set_value(report.saved); });
  ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  bool saved = true;
  EXPECT_NO_THROW(saved = future.get());
  EXPECT_FALSE(saved);
  EXPECT_THAT(manager.allPixels(), IsEmpty());  // dropped as expired, unsent
}

// A log output that throws while the round logs a failed pixel ends the round there, but its
// handler is still called and the pixel stays pending.
TEST(RKVPixelManagerTest, ALogOutputThatThrowsStillEndsTheRound) {
  RKVTestHTTPServer server;
  server.setRoute("/fail", RKVTestRoute::answer(500, ""));
  Pixels pixels;
  pixels.manager->addPixel(pixel(1, server.url("/fail")));
  RKVLogCapture throwing([](std::string_view message) {
    if (message.rfind("Can't send pixel", 0) == 0) throw std::runtime_error("output");
  });
  auto promise = std::make_shared<std::promise<void>>();
  auto future = promise->get_future();
  pixels.manager->callPixelsWithCompletionHandler([promise] { promise->set_value(); });
  ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_NO_THROW(future.get());
  EXPECT_THAT(ids(pixels.manager->allPixels()), ElementsAre(1u));
  EXPECT_THAT(pixels.onDisk(), ElementsAre(1u));
}

TEST(RKVPixelManagerTest, PixelsAddedFromSeveralThreadsDuringRoundsAreAllDelivered) {
  RKVTestHTTPServer server;
  server.setRoute("/p", RKVTestRoute::answer(204, ""));
  Pixels pixels;
  constexpr uint32_t kThreads = 4, kEach = 25;
  test::onThreads(kThreads, [&](int thread) {
    for (uint32_t i = 0; i < kEach; ++i) {
      const uint32_t ID = static_cast<uint32_t>(thread) * kEach + i;
      pixels.manager->addPixel(pixel(ID, server.url("/p?id=" + std::to_string(ID))));
      if (i % 5 == 0) pixels.manager->callPixels();
    }
  });
  // Each pixel has been sent once, or is pending and sent by the next round.
  runRound(*pixels.manager);
  std::vector<std::string> expected;
  for (uint32_t ID = 0; ID < kThreads * kEach; ++ID)
    expected.push_back("/p?id=" + std::to_string(ID));
  EXPECT_THAT(targets(server), ::testing::UnorderedElementsAreArray(expected));
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
  EXPECT_THAT(pixels.onDisk(), IsEmpty());
}

}  // namespace
}  // namespace rkv
