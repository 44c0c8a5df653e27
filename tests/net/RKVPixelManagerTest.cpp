// Sending rounds against a loopback server: which answers delete a pixel and which keep it, the
// order and the snapshot of a round, expiry before sending, persistence across managers, failing
// saves, and pixels added from several threads while rounds run.
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/log/RKVLog.h"
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
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const RKVPixel::Date kFuture = std::chrono::system_clock::now() + 1h;

RKVPixel pixel(uint32_t ID, const std::string& text, RKVPixel::Date expiration = kFuture) {
  return RKVPixel(ID, *RKVURL::withString(text), expiration, RKVPixelStatus::pending);
}

std::shared_ptr<RKVURLSession> newSession() {
  return std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>());
}

// Runs one round and waits for its report.
RKVPixelRoundReport runRound(RKVPixelManager& manager) {
  auto promise = std::make_shared<std::promise<RKVPixelRoundReport>>();
  std::future<RKVPixelRoundReport> future = promise->get_future();
  manager.callPixelsWithReport(
      [promise](const RKVPixelRoundReport& report) { promise->set_value(report); });
  if (future.wait_for(test::kHangGuard) != std::future_status::ready) {
    ADD_FAILURE() << "the round never ended";
    return {};
  }
  return future.get();
}

// A manager over a store in memory and a real session.
struct Pixels {
  std::shared_ptr<RKVMemoryUserDefaultsStore> memory =
      std::make_shared<RKVMemoryUserDefaultsStore>();
  std::shared_ptr<RKVPixelStoreProvider> provider =
      std::make_shared<RKVPixelStoreProvider>(std::make_shared<RKVUserDefaults>(memory), "test");
  std::shared_ptr<RKVPixelStore> store = std::make_shared<RKVPixelStore>(provider);
  std::shared_ptr<RKVPixelManager> manager = std::make_shared<RKVPixelManager>(store, newSession());

  // The list as last written to the defaults' store.
  std::vector<RKVPixel> onDisk() const {
    const auto entries = memory->entries();
    const auto it = entries.find(provider->pixelStoreKey());
    if (it == entries.end()) return {};
    return *RKVPixelStoreProvider::unarchivePixels(std::get<RKVDataBlob>(it->second).bytes);
  }
};

// Calls `hook` with every message the shared console log writes while it lives.
class RKVLogHook final : public RKVLogOutput, public RKVLogDataSource {
 public:
  explicit RKVLogHook(std::function<void(std::string_view)> hook) : hook_(std::move(hook)) {}
  void logMessage(std::string_view message, int64_t, std::string_view) override { hook_(message); }
  bool shouldLogMessageWithLevel(const RKVLog&, int64_t) override { return true; }

 private:
  std::function<void(std::string_view)> hook_;
};

TEST(RKVPixelManagerTest, StatusCodes) {
  for (int64_t code : {200, 204, 299, 300, 302, 399, 404})
    EXPECT_TRUE(RKVPixelManager::isStatusCodeValid(code)) << code;
  for (int64_t code : {0, 100, 199, 400, 401, 403, 405, 500, 503, 999})
    EXPECT_FALSE(RKVPixelManager::isStatusCodeValid(code)) << code;
}

TEST(RKVPixelManagerTest, ARoundDeletesAcceptedPixelsAndKeepsTheOthers) {
  RKVTestHTTPServer server;
  struct Case {
    int status;  // 0: not routed (the server's 404)
    bool accepted;
  };
  const std::vector<Case> cases = {{200, true},  {204, true},  {302, true},  {399, true},
                                   {0, true},    {400, false}, {401, false}, {403, false},
                                   {500, false}, {503, false}};
  Pixels pixels;
  std::vector<uint32_t> sent, failed;
  std::vector<std::string> targets, failures;
  for (uint32_t i = 0; i < cases.size(); ++i) {
    const std::string path = "/pixel" + std::to_string(i);
    if (cases[i].status) server.setRoute(path, RKVTestRoute::answer(cases[i].status, ""));
    const std::string target = path + "?n=" + std::to_string(i);
    ASSERT_TRUE(pixels.manager->addPixel(pixel(100 + i, server.url(target))));
    targets.push_back(target);
    (cases[i].accepted ? sent : failed).push_back(100 + i);
    if (!cases[i].accepted) failures.push_back("Can't send pixel '" + server.url(target) + "'!");
  }
  // A transport error keeps the pixel too.
  const std::string refused =
      "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort()) + "/refused";
  pixels.manager->addPixel(pixel(999, refused));
  failed.push_back(999);
  failures.push_back("Can't send pixel '" + refused + "'!");

  RKVLogCapture capture;
  const RKVPixelRoundReport report = runRound(*pixels.manager);
  std::vector<std::string> requested;
  for (const auto& request : server.requests())
    requested.push_back(request.target);
  EXPECT_EQ(requested, targets);  // each once, in the order added
  EXPECT_EQ(ids(report.sent), sent);
  EXPECT_EQ(ids(report.failed), failed);
  EXPECT_THAT(report.dropped, IsEmpty());
  EXPECT_TRUE(report.saved);
  EXPECT_EQ(capture.debugMessages(), failures);
  EXPECT_EQ(ids(pixels.manager->allPixels()), failed);
  EXPECT_EQ(ids(pixels.onDisk()), failed);
}

TEST(RKVPixelManagerTest, ExpiredPixelsAreDroppedUnsent) {
  RKVTestHTTPServer server;
  Pixels pixels;
  const auto now = std::chrono::system_clock::now();
  RKVPixel sentBefore = pixel(3, server.url("/c"));
  sentBefore.setStatus(RKVPixelStatus::success);
  // A pixel made while the device clock read 1970 expires a day later.
  const RKVPixel madeIn1970 = pixel(2, server.url("/b"), RKVPixel::Date(86400s));
  pixels.manager->addPixels(
      {pixel(1, server.url("/a"), now - 60s), madeIn1970, sentBefore, pixel(4, server.url("/d"))});

  RKVLogCapture capture;
  RKVPixelRoundReport report = runRound(*pixels.manager);
  EXPECT_THAT(ids(report.dropped), ElementsAre(1u, 2u, 3u));
  EXPECT_THAT(ids(report.sent), ElementsAre(4u));
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_THAT(pixels.onDisk(), IsEmpty());
  // One warning, for the pixel no correct clock makes; a pixel past its day is no news.
  const auto warnings = capture.messages(3);
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_THAT(warnings[0], ::testing::StartsWith("Dropped 1 expired pixel(s)"));

  pixels.manager->addPixel(pixel(5, server.url("/e"), now - 60s));
  report = runRound(*pixels.manager);
  EXPECT_THAT(ids(report.dropped), ElementsAre(5u));
  EXPECT_EQ(capture.messages(3).size(), 1u);
}

TEST(RKVPixelManagerTest, AddingSavesOnlyWhatIsNew) {
  Pixels pixels;
  EXPECT_TRUE(pixels.manager->addPixel(pixel(1, "http://t.example/1")));
  const int64_t writes = pixels.memory->writeCount();
  EXPECT_FALSE(pixels.manager->addPixel(pixel(1, "http://t.example/other")));
  EXPECT_FALSE(pixels.manager->addPixels({pixel(1, "http://t.example/1")}));
  EXPECT_EQ(pixels.memory->writeCount(), writes);
  // Two new and one known: one save, and not every pixel was added.
  EXPECT_FALSE(
      pixels.manager->addPixels({pixel(2, "http://t.example/2"), pixel(1, "http://t.example/1"),
                                 pixel(3, "http://t.example/3")}));
  EXPECT_EQ(pixels.memory->writeCount(), writes + 1);
  EXPECT_THAT(ids(pixels.onDisk()), ElementsAre(1u, 2u, 3u));

  // A round over nothing still saves and answers.
  Pixels empty;
  const RKVPixelRoundReport report = runRound(*empty.manager);
  EXPECT_TRUE(report.saved);
  EXPECT_THAT(report.sent, IsEmpty());
}

TEST(RKVPixelManagerTest, AFailedSaveKeepsThePixelForTheNextSave) {
  Pixels pixels;
  pixels.memory->failNextWrites(1);
  {
    RKVLogCapture quiet;
    EXPECT_FALSE(pixels.manager->addPixel(pixel(1, "http://t.example/1")));
  }
  EXPECT_THAT(pixels.onDisk(), IsEmpty());
  EXPECT_THAT(ids(pixels.manager->validPendingPixels()), ElementsAre(1u));
  EXPECT_TRUE(pixels.manager->addPixel(pixel(2, "http://t.example/2")));
  EXPECT_THAT(ids(pixels.onDisk()), ElementsAre(1u, 2u));
}

TEST(RKVPixelManagerTest, APixelAddedDuringARoundWaitsForTheNext) {
  RKVTestHTTPServer server;
  server.setRoute("/fail", RKVTestRoute::answer(500, ""));
  server.setRoute("/ok", RKVTestRoute::answer(204, ""));
  Pixels pixels;
  pixels.manager->addPixels({pixel(1, server.url("/fail")), pixel(2, server.url("/ok?n=2"))});

  // The first pixel's failure is logged from inside the round: add a pixel right then.
  auto log = RKVLog::sharedInstance();
  auto previousOutput = log->output();
  auto previousSource = log->dataSource();
  const bool previousDebug = log->isDebugLoggingEnabled();
  std::once_flag once;
  auto hook = std::make_shared<RKVLogHook>([&](std::string_view message) {
    if (message.find("/fail") != std::string_view::npos)
      std::call_once(once, [&] { pixels.manager->addPixel(pixel(3, server.url("/ok?n=3"))); });
  });
  log->setOutput(hook);
  log->setDataSource(hook);
  log->setDebugLoggingEnabled(true);
  const RKVPixelRoundReport first = runRound(*pixels.manager);
  log->setOutput(previousOutput);
  log->setDataSource(previousSource);
  log->setDebugLoggingEnabled(previousDebug);

  EXPECT_THAT(ids(first.sent), ElementsAre(2u));
  EXPECT_THAT(ids(first.failed), ElementsAre(1u));
  EXPECT_THAT(ids(pixels.onDisk()), ElementsAre(1u, 3u));
  const RKVPixelRoundReport second = runRound(*pixels.manager);
  EXPECT_THAT(ids(second.sent), ElementsAre(3u));
  EXPECT_EQ(server.requestCount("/ok"), 2u);
}

TEST(RKVPixelManagerTest, PixelsLeftByOneRunAreSentByTheNext) {
  RKVTestHTTPServer server;
  test::RKVTempDir dir;
  const std::string path = dir.file("defaults.sqlite");
  auto managerOver = [&](const std::string& version) {
    auto defaults =
        std::make_shared<RKVUserDefaults>(std::make_shared<RKVSQLiteUserDefaultsStore>(path));
    auto store =
        std::make_shared<RKVPixelStore>(std::make_shared<RKVPixelStoreProvider>(defaults, version));
    return std::make_shared<RKVPixelManager>(store, newSession());
  };
  {
    auto first = managerOver("1.0.0");
    first->addPixel(pixel(1, server.url("/a")));
    EXPECT_THAT(ids(runRound(*first).sent), ElementsAre(1u));
    first->addPixel(pixel(2, server.url("/b")));
    first->addPixel(pixel(3, server.url("/c")));
  }
  // Another version's list is not this one's.
  EXPECT_THAT(managerOver("2.0.0")->allPixels(), IsEmpty());
  auto second = managerOver("1.0.0");
  EXPECT_THAT(ids(runRound(*second).sent), ElementsAre(2u, 3u));
  std::vector<std::string> requested;
  for (const auto& request : server.requests())
    requested.push_back(request.target);
  EXPECT_THAT(requested, ElementsAre("/a", "/b", "/c"));
  EXPECT_THAT(managerOver("1.0.0")->allPixels(), IsEmpty());
}

TEST(RKVPixelManagerTest, PixelsAddedFromSeveralThreadsDuringRoundsAreAllDelivered) {
  RKVTestHTTPServer server;
  server.setRoute("/p", RKVTestRoute::answer(204, ""));
  Pixels pixels;
  constexpr int kThreads = 4;
  constexpr int kPerThread = 25;
  test::onThreads(kThreads, [&](int thread) {
    for (int i = 0; i < kPerThread; ++i) {
      const uint32_t ID = static_cast<uint32_t>(thread * kPerThread + i);
      pixels.manager->addPixel(pixel(ID, server.url("/p?id=" + std::to_string(ID))));
      if (i % 5 == 0) pixels.manager->callPixels();
    }
  });
  // Every pixel is sent by now or pending; the next round sends what is pending.
  std::set<uint32_t> pending;
  for (uint32_t ID : ids(runRound(*pixels.manager).sent))
    pending.insert(ID);
  std::set<uint32_t> delivered;
  for (const auto& request : server.requests())
    delivered.insert(
        static_cast<uint32_t>(std::stoul(request.target.substr(request.target.find('=') + 1))));
  std::set<uint32_t> expected;
  for (uint32_t ID = 0; ID < kThreads * kPerThread; ++ID)
    expected.insert(ID);
  EXPECT_EQ(delivered, expected);
  EXPECT_EQ(server.requests().size(), expected.size());  // none twice: each answer was accepted
  EXPECT_THAT(pixels.manager->allPixels(), IsEmpty());
  EXPECT_THAT(pixels.onDisk(), IsEmpty());
}

}  // namespace
}  // namespace rkv
