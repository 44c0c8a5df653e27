// Pixels: the value and its archive, the store, and sending rounds against a loopback server.
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
#include <nlohmann/json.hpp>

#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/net/internal/RKVPixelArchive.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"

#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv {

void PrintTo(const RKVPixel& pixel, std::ostream* out) {
  *out << pixel.description();
}

namespace {

using namespace std::chrono_literals;
using Date = RKVPixel::Date;
using test::RKVLogCapture;
using test::RKVTestHTTPServer;
using test::RKVTestRoute;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

RKVURL url(const std::string& text) {
  return *RKVURL::withString(text);
}

std::vector<uint32_t> ids(const std::vector<RKVPixel>& pixels) {
  std::vector<uint32_t> result;
  for (const RKVPixel& pixel : pixels)
    result.push_back(pixel.ID());
  return result;
}

RKVPixel pixel(uint32_t ID, const std::string& text,
               Date expiration = std::chrono::system_clock::now() + 1h) {
  return RKVPixel(ID, url(text), expiration, RKVPixelStatus::pending);
}

// Runs one round and waits for its report.
RKVPixelRoundReport runRound(RKVPixelManager& manager) {
  auto promise = std::make_shared<std::promise<RKVPixelRoundReport>>();
  auto future = promise->get_future();
  manager.callPixelsWithReport([promise](const auto& report) { promise->set_value(report); });
  const bool ended = future.wait_for(test::kHangGuard) == std::future_status::ready;
  EXPECT_TRUE(ended) << "the round never ended";
  return ended ? future.get() : RKVPixelRoundReport{};
}

std::shared_ptr<RKVPixelManager> managerOver(std::shared_ptr<RKVPixelStoreProviderProtocol> saves) {
  return std::make_shared<RKVPixelManager>(
      std::make_shared<RKVPixelStore>(std::move(saves)),
      std::make_shared<RKVURLSession>(std::make_shared<RKVURLSessionProvider>()));
}

// A loopback server answering /ok with 204 and /fail with 500, and a manager over user defaults
// in memory.
class RKVPixelManagerTest : public ::testing::Test {
 protected:
  RKVPixelManagerTest() {
    server.setRoute("/ok", RKVTestRoute::answer(204, ""));
    server.setRoute("/fail", RKVTestRoute::answer(500, ""));
  }
  // The targets the server received, in order.
  std::vector<std::string> targets() const {
    std::vector<std::string> result;
    for (const auto& request : server.requests())
      result.push_back(request.target);
    return result;
  }
  // The IDs of the list the user defaults last stored.
  std::vector<uint32_t> onDisk() const {
    const auto entries = memory->entries();
    const auto it = entries.find(std::string(RKVPixelStoreProvider::kPixelListKeyPrefix) + "test");
    if (it == entries.end()) return {};
    return ids(*RKVPixelStoreProvider::unarchivePixels(std::get<RKVDataBlob>(it->second).bytes));
  }

  RKVTestHTTPServer server;
  std::shared_ptr<RKVMemoryUserDefaultsStore> memory =
      std::make_shared<RKVMemoryUserDefaultsStore>();
  std::shared_ptr<RKVPixelManager> manager = managerOver(
      std::make_shared<RKVPixelStoreProvider>(std::make_shared<RKVUserDefaults>(memory), "test"));
};

TEST(RKVPixelTest, EqualityAndExpiry) {
  RKVPixel pixel(7, url("http://t.example/p?a=1"), Date(86400s + 200ms), RKVPixelStatus::pending);
  // Whole seconds: expiring within the current second is not yet expired.
  EXPECT_FALSE(pixel.isExpiredAt(Date(86400s)));
  EXPECT_FALSE(pixel.isExpiredAt(Date(86400s + 999ms)));
  EXPECT_TRUE(pixel.isExpiredAt(Date(86401s)));
  // The status is not part of equality; the date is, to the nanosecond.
  RKVPixel copy = pixel;
  copy.setStatus(RKVPixelStatus::success);
  EXPECT_EQ(copy, pixel);
  copy.setExpirationDate(pixel.expirationDate() + 1ns);
  EXPECT_FALSE(copy == pixel);
  // A fresh pixel is pending, under a random ID, for a day.
  RKVPixel fresh(url("http://t.example/q"));
  EXPECT_EQ(fresh.status(), RKVPixelStatus::pending);
  EXPECT_FALSE(fresh.isExpiredAt(std::chrono::system_clock::now() + 23h));
  EXPECT_TRUE(fresh.isExpiredAt(std::chrono::system_clock::now() + 25h));
}

TEST(RKVPixelTest, ArchiveRoundTripsAndEscapes) {
  const std::vector<RKVPixel> pixels = {
      {4294967294u, url("http://t.example/a?x=%22y%22&z=%E2%82%AC"), Date(123456789123456789ns),
       RKVPixelStatus::pending},
      {0, url("https://t.example/b#frag"), Date(-5s), RKVPixelStatus::success},
  };
  const std::string blob = RKVPixelStoreProvider::archivePixels(pixels);
  const auto json = nlohmann::json::parse(blob);  // plain JSON that any reader takes
  EXPECT_EQ(json[0]["expirationDate"], 123456789123456789);
  const auto back = RKVPixelStoreProvider::unarchivePixels(blob);
  ASSERT_EQ(back->size(), 2u);
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ((*back)[i], pixels[i]);
    EXPECT_EQ((*back)[i].status(), pixels[i].status());
  }
  EXPECT_EQ(*RKVPixel::unarchive(pixels[1].archive()), pixels[1]);

  // Every byte that needs an escape, at every place of an eight-byte word and of the tail.
  for (const char special : {'"', '\\', '\0', '\x01', '\n', '\x1f'}) {
    for (size_t at = 0; at < 19; ++at) {
      std::string text(19, 'a');
      text[at] = special;
      std::string out;
      internal::appendJSONString(out, text);
      EXPECT_EQ(nlohmann::json::parse(out).get<std::string>(), text) << int(special) << " " << at;
    }
  }
  const std::string plain = " ~\x7f/\xE2\x82\xAC\xA2\xDC http://t.example/?a=1&b=%22";
  std::string out;
  internal::appendJSONString(out, plain);
  EXPECT_EQ(out, "\"" + plain + "\"");  // copied as it is
}

TEST(RKVPixelStoreTest, LoadingSkipsWhatDoesNotDecode) {
  const std::string key = std::string(RKVPixelStoreProvider::kPixelListKeyPrefix) + "v";
  const std::string good = R"({"id":5,"url":"http://t.example/ok","expirationDate":1,"status":0})";
  const std::string bad =
      R"(7, {"url":"http://t.example/","expirationDate":1,"status":0},
      {"id":-1,"url":"http://t.example/","expirationDate":1,"status":0},
      {"id":4294967296,"url":"http://t.example/","expirationDate":1,"status":0},
      {"id":1,"url":"","expirationDate":1,"status":0},
      {"id":1,"url":"http://t.example/","expirationDate":1.5,"status":0},
      {"id":1,"url":"http://t.example/","expirationDate":1,"status":null})";
  const struct {
    RKVUserDefaultsValue stored;
    std::vector<uint32_t> loaded;
    size_t errors;
  } cases[] = {
      {RKVDataBlob{"[" + bad + "," + good + "]"}, {5}, 1},  // the rest is kept, one line
      {RKVDataBlob{"[" + good + "]"}, {5}, 0},
      {RKVDataBlob{"{\"id\":5}"}, {}, 1},  // not a list
      {RKVDataBlob{"[1,"}, {}, 1},
      {std::string("[" + good + "]"), {}, 0},  // a text, not a blob: nothing this library wrote
  };
  for (const auto& c : cases) {
    test::RKVLogCapture capture;
    auto defaults = std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>(
        std::map<std::string, RKVUserDefaultsValue>{{key, c.stored}}));
    RKVPixelStore store(std::make_shared<RKVPixelStoreProvider>(defaults, "v"));
    EXPECT_EQ(ids(store.allPixels()), c.loaded);
    EXPECT_EQ(capture.errorMessages().size(), c.errors);
  }
  // Another framework version's list is not seen.
  auto defaults = std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>());
  ASSERT_TRUE(RKVPixelStoreProvider(defaults, "v").savePixels({pixel(5, "http://t.example/5")}));
  EXPECT_THAT(RKVPixelStore(std::make_shared<RKVPixelStoreProvider>(defaults, "v2")).allPixels(),
              IsEmpty());
}

TEST(RKVPixelStoreTest, IdentityAndObsolescence) {
  RKVPixelStore store(
      std::make_shared<RKVPixelStoreProvider>(std::make_shared<RKVUserDefaults>(nullptr), "v"));
  const RKVPixel a = pixel(1, "http://t.example/a"), sameID = pixel(1, "http://t.example/other");
  const RKVPixel four = pixel(4, "http://t.example/4");
  EXPECT_TRUE(store.addPixel(a));
  EXPECT_FALSE(store.addPixel(sameID));  // the ID is the identity
  EXPECT_TRUE(store.addPixel(four));
  EXPECT_TRUE(store.addPixel({2, url("http://t.example/2"), Date::max(), RKVPixelStatus::success}));
  EXPECT_TRUE(store.addPixel(pixel(3, "http://t.example/3", Date(1s))));
  EXPECT_EQ(store.pixelIndexInStoreWithID(9), RKVPixelStore::kNotFound);
  EXPECT_FALSE(store.updatePixel(pixel(9, "http://t.example/a")));
  EXPECT_TRUE(store.updatePixel(sameID));  // replaced, and moved to the end
  EXPECT_THAT(ids(store.allPixels()), ElementsAre(4u, 2u, 3u, 1u));
  EXPECT_EQ(store.pixelWithID(1)->url(), sameID.url());

  // Sent (2) or expired (3) is obsolete; the others stay, unchanged, in order.
  EXPECT_THAT(ids(store.validPendingPixels()), ElementsAre(4u, 1u));
  EXPECT_THAT(ids(store.deleteObsoletePixels()), ElementsAre(2u, 3u));
  EXPECT_THAT(store.allPixels(), ElementsAre(four, sameID));
  EXPECT_TRUE(store.deletePixel(a));
  EXPECT_FALSE(store.deletePixel(a));
  EXPECT_THAT(ids(store.allPixels()), ElementsAre(4u));
}

TEST_F(RKVPixelManagerTest, ARoundDeletesAcceptedPixelsAndKeepsTheOthers) {
  EXPECT_FALSE(RKVPixelManager::isStatusCodeValid(199) || RKVPixelManager::isStatusCodeValid(405));
  // The first five are accepted (0: not routed, the server's 404), the others refused.
  const int statuses[] = {200, 204, 302, 399, 0, 400, 401, 403, 500};
  std::vector<std::string> sentTargets, failures;
  uint32_t ID = 0;
  for (int status : statuses) {
    const std::string path = "/p" + std::to_string(ID);
    if (status) server.setRoute(path, RKVTestRoute::answer(status, ""));
    ASSERT_TRUE(manager->addPixel(pixel(ID, server.url(path + "?s=1"))));
    sentTargets.push_back(path + "?s=1");
    if (ID++ >= 5) failures.push_back("Can't send pixel '" + server.url(path + "?s=1") + "'!");
  }
  // A transport error keeps the pixel too.
  const std::string closed =
      "http://127.0.0.1:" + std::to_string(RKVTestHTTPServer::closedPort()) + "/closed";
  manager->addPixel(pixel(ID, closed));
  failures.push_back("Can't send pixel '" + closed + "'!");

  RKVLogCapture capture;
  const RKVPixelRoundReport report = runRound(*manager);
  EXPECT_EQ(targets(), sentTargets);  // each once, in the order added
  EXPECT_THAT(ids(report.sent), ElementsAre(0u, 1u, 2u, 3u, 4u));
  EXPECT_THAT(ids(report.failed), ElementsAre(5u, 6u, 7u, 8u, 9u));
  EXPECT_TRUE(report.saved);
  EXPECT_EQ(capture.debugMessages(), failures);
  EXPECT_EQ(ids(manager->allPixels()), ids(report.failed));
  EXPECT_EQ(onDisk(), ids(report.failed));
}

TEST_F(RKVPixelManagerTest, ObsoletePixelsAreDroppedUnsent) {
  RKVPixel sentBefore = pixel(3, server.url("/c"));
  sentBefore.setStatus(RKVPixelStatus::success);
  // A pixel made while the device clock read 1970 expires a day later.
  manager->addPixels({pixel(1, server.url("/a"), std::chrono::system_clock::now() - 60s),
                      pixel(2, server.url("/b"), Date(86400s)), sentBefore,
                      pixel(4, server.url("/d"))});
  RKVLogCapture capture;
  const RKVPixelRoundReport report = runRound(*manager);
  EXPECT_THAT(ids(report.dropped), ElementsAre(1u, 2u, 3u));
  EXPECT_THAT(targets(), ElementsAre("/d"));
  EXPECT_THAT(onDisk(), IsEmpty());
  // One warning, for the one pixel no correct clock makes; a pixel past its day is no news.
  EXPECT_THAT(capture.messages(3),
              ElementsAre(::testing::StartsWith("Dropped 1 expired pixel(s)")));
}

TEST_F(RKVPixelManagerTest, SavesWhatIsNewAndRetriesAFailedSave) {
  EXPECT_TRUE(manager->addPixel(pixel(1, "http://t.example/1")));
  const int64_t writes = memory->writeCount();
  EXPECT_FALSE(manager->addPixel(pixel(1, "http://t.example/other")));
  EXPECT_EQ(memory->writeCount(), writes);  // nothing new, nothing saved
  memory->failNextWrites(1);
  RKVLogCapture quiet;
  EXPECT_FALSE(
      manager->addPixels({pixel(2, "http://t.example/2"), pixel(3, "http://t.example/3")}));
  EXPECT_THAT(onDisk(), ElementsAre(1u));
  EXPECT_THAT(ids(manager->validPendingPixels()), ElementsAre(1u, 2u, 3u));
  EXPECT_TRUE(manager->addPixel(pixel(4, "http://t.example/4")));
  EXPECT_THAT(onDisk(), ElementsAre(1u, 2u, 3u, 4u));
}

TEST_F(RKVPixelManagerTest, APixelAddedDuringARoundWaitsForTheNext) {
  manager->addPixels({pixel(1, server.url("/fail")), pixel(2, server.url("/ok?n=2"))});
  // The first pixel's failure is logged from inside the round: a pixel is added right then.
  std::once_flag once;
  RKVLogCapture hook([&](std::string_view message) {
    if (message.find("/fail") != std::string_view::npos)
      std::call_once(once, [&] { manager->addPixel(pixel(3, server.url("/ok?n=3"))); });
  });
  const RKVPixelRoundReport first = runRound(*manager);
  EXPECT_THAT(ids(first.sent), ElementsAre(2u));
  EXPECT_THAT(ids(first.failed), ElementsAre(1u));
  EXPECT_THAT(onDisk(), ElementsAre(1u, 3u));
  EXPECT_THAT(ids(runRound(*manager).sent), ElementsAre(3u));
}

TEST_F(RKVPixelManagerTest, RoundsQueuedWhenTheManagerGoesAreDropped) {
  // The manager is released by a round's handler, on its own queue, with another round queued.
  auto dropped = std::make_shared<std::promise<RKVPixelRoundReport>>();
  manager->callPixelsWithReport([this, dropped](const RKVPixelRoundReport& first) {
    EXPECT_TRUE(first.saved);
    manager->callPixelsWithReport([dropped](const auto& second) { dropped->set_value(second); });
    manager.reset();
  });
  auto future = dropped->get_future();
  ASSERT_EQ(future.wait_for(test::kHangGuard), std::future_status::ready);
  EXPECT_FALSE(future.get().saved);  // not run: a round over an empty store saves
}

// A provider that throws on saving: the add reports a failed save, and a round still ends with
// its handler called (a dropped handler would leave its caller waiting forever).
TEST_F(RKVPixelManagerTest, AProviderThatThrowsFailsTheSaveAndTheRoundStillEnds) {
  struct Throwing final : RKVPixelStoreProviderProtocol {
    std::optional<std::vector<RKVPixel>> loadPixels() override { return std::nullopt; }
    bool savePixels(const std::vector<RKVPixel>&) override { throw std::runtime_error("disk"); }
  };
  const auto throwing = managerOver(std::make_shared<Throwing>());
  RKVLogCapture quiet;
  bool added = true;
  EXPECT_NO_THROW(added = throwing->addPixel(pixel(1, "http://t.example/1", Date(1s))));
  EXPECT_FALSE(added);
  // Only the handler holds runRound's promise: a handler destroyed uncalled breaks it at once.
  EXPECT_FALSE(runRound(*throwing).saved);
  EXPECT_THAT(throwing->allPixels(), IsEmpty());  // dropped as expired, unsent
}

// A log output that throws while the round logs a failed pixel ends the round there, but its
// handler is still called and the pixel stays pending.
TEST_F(RKVPixelManagerTest, ALogOutputThatThrowsStillEndsTheRound) {
  manager->addPixel(pixel(1, server.url("/fail")));
  RKVLogCapture throwing([](std::string_view message) {
    if (message.rfind("Can't send pixel", 0) == 0) throw std::runtime_error("output");
  });
  runRound(*manager);
  EXPECT_THAT(ids(manager->allPixels()), ElementsAre(1u));
  EXPECT_THAT(onDisk(), ElementsAre(1u));
}

TEST_F(RKVPixelManagerTest, PixelsAddedFromSeveralThreadsDuringRoundsAreAllDelivered) {
  constexpr uint32_t kThreads = 4, kEach = 25;
  test::onThreads(kThreads, [&](int thread) {
    for (uint32_t i = 0; i < kEach; ++i) {
      const uint32_t ID = static_cast<uint32_t>(thread) * kEach + i;
      manager->addPixel(pixel(ID, server.url("/ok?id=" + std::to_string(ID))));
      if (i % 5 == 0) manager->callPixels();
    }
  });
  // Each pixel has been sent once, or is pending and sent by the next round.
  runRound(*manager);
  std::vector<std::string> expected;
  for (uint32_t ID = 0; ID < kThreads * kEach; ++ID)
    expected.push_back("/ok?id=" + std::to_string(ID));
  EXPECT_THAT(targets(), ::testing::UnorderedElementsAreArray(expected));
  EXPECT_THAT(manager->allPixels(), IsEmpty());
  EXPECT_THAT(onDisk(), IsEmpty());
}

}  // namespace
}  // namespace rkv
