// The pixel value and its archive, the store's identity and obsolescence rules, and the provider
// over the user defaults (SQLite files, framework versions, unreadable blobs).
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "rkv/net/RKVPixel.h"
#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/internal/RKVPixelArchive.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"

#include "tests/net/RKVPixelTestSupport.h"
#include "tests/support/RKVLogCapture.h"
#include "tests/support/RKVTempDir.h"

namespace rkv {

namespace {

using namespace std::chrono_literals;
using Date = RKVPixel::Date;
using test::ids;
using test::RKVLogCapture;
using test::RKVTempDir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

RKVURL url(const std::string& text) {
  return *RKVURL::withString(text);
}

const Date kFuture = std::chrono::system_clock::now() + 1h;

// Same ID, URL, date (to the nanosecond) and status.
void expectSamePixels(const std::vector<RKVPixel>& actual, const std::vector<RKVPixel>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < actual.size(); ++i) {
    EXPECT_TRUE(actual[i].isEqualToPixel(expected[i])) << actual[i].description();
    EXPECT_EQ(actual[i].status(), expected[i].status()) << i;
  }
}

TEST(RKVPixelTest, DescriptionAndConstruction) {
  RKVPixel pixel(7, url("http://t.example/p?a=1"), Date(86400s + 1500ms), RKVPixelStatus::pending);
  EXPECT_EQ(pixel.description(),
            "RKVPixel(url=http://t.example/p?a=1, expiration=1970-01-02 00:00:01 +0000, "
            "status=pending)");
  pixel.setStatus(RKVPixelStatus::success);
  EXPECT_THAT(pixel.description(), HasSubstr("status=success)"));

  // A fresh pixel is pending and expires a day from now.
  const Date before = std::chrono::system_clock::now();
  RKVPixel fresh(url("http://t.example/q"));
  EXPECT_EQ(fresh.status(), RKVPixelStatus::pending);
  EXPECT_GE(fresh.expirationDate(), before + 24h);
  EXPECT_LE(fresh.expirationDate(), std::chrono::system_clock::now() + 24h);
  // Equality ignores the status, not the ID, URL or date.
  RKVPixel copy = fresh;
  copy.setStatus(RKVPixelStatus::success);
  EXPECT_EQ(copy, fresh);
  copy.setExpirationDate(fresh.expirationDate() + 1ns);
  EXPECT_FALSE(copy == fresh);
}

TEST(RKVPixelTest, ExpiryComparesWholeSeconds) {
  const Date expiration(1'000'000s + 200ms);
  RKVPixel pixel(1, url("http://t.example/"), expiration, RKVPixelStatus::pending);
  EXPECT_FALSE(pixel.isExpiredAt(Date(1'000'000s)));
  EXPECT_FALSE(pixel.isExpiredAt(expiration));
  EXPECT_FALSE(pixel.isExpiredAt(Date(1'000'000s + 999ms)));  // same second
  EXPECT_TRUE(pixel.isExpiredAt(Date(1'000'001s)));
  EXPECT_FALSE(RKVPixel(url("http://t.example/"), kFuture).isExpired());
  EXPECT_TRUE(
      RKVPixel(url("http://t.example/"), std::chrono::system_clock::now() - 2s).isExpired());
}

TEST(RKVPixelTest, ArchiveRoundTripsEveryField) {
  const std::vector<RKVPixel> pixels = {
      {4294967294u, url("http://t.example/a?x=%22y%22&z=%E2%82%AC"), Date(123456789123456789ns),
       RKVPixelStatus::pending},
      {0, url("https://t.example/b#frag"), Date(-5s), RKVPixelStatus::success},
  };
  const std::string blob = RKVPixelStoreProvider::archivePixels(pixels);
  // Plain JSON that any reader takes.
  const auto json = nlohmann::json::parse(blob);
  ASSERT_TRUE(json.is_array());
  EXPECT_EQ(json[0]["id"], 4294967294u);
  EXPECT_EQ(json[0]["expirationDate"], 123456789123456789);
  EXPECT_EQ(json[1]["status"], 1);
  expectSamePixels(*RKVPixelStoreProvider::unarchivePixels(blob), pixels);
  expectSamePixels({*RKVPixel::unarchive(pixels[0].archive())}, {pixels[0]});
  EXPECT_EQ(RKVPixelStoreProvider::archivePixels({}), "[]");
}

TEST(RKVPixelTest, StringsAreEscaped) {
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
  // Bytes that need none are copied as they are (UTF-8 included).
  const std::string plain = " ~\x7f/\xE2\x82\xAC\xA2\xDC http://t.example/?a=1&b=%22";
  std::string out;
  internal::appendJSONString(out, plain);
  EXPECT_EQ(out, "\"" + plain + "\"");
}

TEST(RKVPixelTest, EntriesThatDoNotDecodeAreSkipped) {
  const std::string good = R"({"id":5,"url":"http://t.example/ok","expirationDate":1,"status":0})";
  const std::vector<std::string> bad = {
      R"(7)",
      R"({"url":"http://t.example/","expirationDate":1,"status":0})",
      R"({"id":-1,"url":"http://t.example/","expirationDate":1,"status":0})",
      R"({"id":4294967296,"url":"http://t.example/","expirationDate":1,"status":0})",
      R"({"id":1.5,"url":"http://t.example/","expirationDate":1,"status":0})",
      R"({"id":1,"url":"","expirationDate":1,"status":0})",
      R"({"id":1,"url":3,"expirationDate":1,"status":0})",
      R"({"id":1,"url":"http://t.example/","expirationDate":"1","status":0})",
      R"({"id":1,"url":"http://t.example/","expirationDate":1.5,"status":0})",
      R"({"id":1,"url":"http://t.example/","expirationDate":1,"status":null})",
  };
  for (const std::string& entry : bad) {
    SCOPED_TRACE(entry);
    EXPECT_FALSE(RKVPixel::unarchive(entry));
    auto list = RKVPixelStoreProvider::unarchivePixels("[" + entry + "," + good + "]");
    ASSERT_TRUE(list);
    EXPECT_THAT(ids(*list), ElementsAre(5u));
  }
  for (const char* notAList : {"", "{}", "[1,", "null", "\"[]\""})
    EXPECT_FALSE(RKVPixelStoreProvider::unarchivePixels(notAList)) << notAList;
}

TEST(RKVPixelStoreTest, IdentityIsTheID) {
  RKVPixelStore store(nullptr);
  RKVPixel a(1, url("http://t.example/a"), kFuture, RKVPixelStatus::pending);
  RKVPixel sameID(1, url("http://t.example/other"), kFuture, RKVPixelStatus::pending);
  RKVPixel b(2, url("http://t.example/b"), kFuture, RKVPixelStatus::pending);
  EXPECT_TRUE(store.addPixel(a));
  EXPECT_FALSE(store.addPixel(a));
  EXPECT_FALSE(store.addPixel(sameID));
  EXPECT_TRUE(store.addPixel(b));
  EXPECT_THAT(ids(store.allPixels()), ElementsAre(1u, 2u));
  EXPECT_EQ(store.pixelWithID(1)->url(), a.url());
  EXPECT_EQ(store.pixelIndexInStore(b), 1);
  EXPECT_EQ(store.pixelIndexInStoreWithID(3), RKVPixelStore::kNotFound);
  EXPECT_FALSE(store.pixelWithID(3));

  // An update replaces by ID and moves the pixel to the end.
  EXPECT_TRUE(store.updatePixel(sameID));
  EXPECT_THAT(ids(store.allPixels()), ElementsAre(2u, 1u));
  EXPECT_EQ(store.pixelWithID(1)->url(), sameID.url());
  EXPECT_FALSE(store.updatePixel(RKVPixel(9, a.url(), kFuture, RKVPixelStatus::pending)));

  EXPECT_TRUE(store.deletePixel(a));
  EXPECT_FALSE(store.deletePixel(a));
  EXPECT_THAT(ids(store.allPixels()), ElementsAre(2u));
  EXPECT_FALSE(store.saveToDisk());  // no provider: nothing persists
}

TEST(RKVPixelStoreTest, ObsoletePixelsAreExpiredOrSent) {
  RKVPixelStore store(nullptr);
  const Date now = std::chrono::system_clock::now();
  const RKVPixel first(2, url("http://t.example/2"), kFuture, RKVPixelStatus::pending);
  const RKVPixel last(4, url("http://t.example/4"), kFuture, RKVPixelStatus::pending);
  store.addPixel(first);
  store.addPixel({1, url("http://t.example/1"), now - 5s, RKVPixelStatus::pending});
  store.addPixel({3, url("http://t.example/3"), kFuture, RKVPixelStatus::success});
  store.addPixel(last);
  EXPECT_THAT(ids(store.validPendingPixels()), ElementsAre(2u, 4u));
  EXPECT_EQ(store.allPixels().size(), 4u);
  EXPECT_THAT(ids(store.deleteObsoletePixels()), ElementsAre(1u, 3u));
  expectSamePixels(store.allPixels(), {first, last});
}

TEST(RKVPixelStoreTest, SavedPixelsComeBackFromTheFile) {
  RKVTempDir dir;
  const std::string path = dir.file("defaults.sqlite");
  const std::vector<RKVPixel> pixels = {
      {10, url("http://t.example/x?n=1"), kFuture, RKVPixelStatus::pending},
      {3, url("http://t.example/y"), kFuture + 1ns, RKVPixelStatus::success},
      {7, url("http://t.example/z"), kFuture + 2s, RKVPixelStatus::pending},
  };
  {
    auto defaults =
        std::make_shared<RKVUserDefaults>(std::make_shared<RKVSQLiteUserDefaultsStore>(path));
    RKVPixelStore store(std::make_shared<RKVPixelStoreProvider>(defaults, "1.0.0"));
    for (const RKVPixel& pixel : pixels)
      store.addPixel(pixel);
    ASSERT_TRUE(store.saveToDisk());
  }
  auto defaults =
      std::make_shared<RKVUserDefaults>(std::make_shared<RKVSQLiteUserDefaultsStore>(path));
  auto provider = std::make_shared<RKVPixelStoreProvider>(defaults, "1.0.0");
  EXPECT_EQ(provider->pixelStoreKey(), "com.vireohub.coresdk.pixelManager.pixelList1.0.0");
  expectSamePixels(RKVPixelStore(provider).allPixels(), pixels);

  // Another version neither sees the list nor overwrites it.
  auto other = std::make_shared<RKVPixelStoreProvider>(defaults, "1.0.1");
  RKVPixelStore newer(other);
  EXPECT_TRUE(newer.allPixels().empty());
  newer.addPixel({99, url("http://t.example/new"), kFuture, RKVPixelStatus::pending});
  ASSERT_TRUE(newer.saveToDisk());
  expectSamePixels(RKVPixelStore(provider).allPixels(), pixels);
}

TEST(RKVPixelStoreTest, UnreadableBlobsAreLoggedOnce) {
  const std::string key = std::string(RKVPixelStoreProvider::kPixelListKeyPrefix) + "v";
  const std::string good = R"({"id":5,"url":"http://t.example/ok","expirationDate":1,"status":0})";
  struct Case {
    RKVUserDefaultsValue stored;
    std::vector<uint32_t> loaded;
    size_t errors;
  };
  const std::vector<Case> cases = {
      {RKVDataBlob{"not json"}, {}, 1},
      {RKVDataBlob{"{\"id\":5}"}, {}, 1},
      {RKVDataBlob{"[" + good + ",{}, 3]"}, {5}, 1},
      {RKVDataBlob{"[" + good + "]"}, {5}, 0},
      {std::string("[" + good + "]"), {}, 0},  // text, not a blob: nothing this library stored
  };
  for (const Case& c : cases) {
    RKVLogCapture capture;
    auto defaults = std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>(
        std::map<std::string, RKVUserDefaultsValue>{{key, c.stored}}));
    RKVPixelStore store(std::make_shared<RKVPixelStoreProvider>(defaults, "v"));
    EXPECT_EQ(ids(store.allPixels()), c.loaded);
    EXPECT_EQ(capture.errorMessages().size(), c.errors);
  }
}

TEST(RKVPixelStoreTest, AFailedSaveIsWrittenByTheNextOne) {
  auto memory = std::make_shared<RKVMemoryUserDefaultsStore>();
  auto provider =
      std::make_shared<RKVPixelStoreProvider>(std::make_shared<RKVUserDefaults>(memory), "v");
  RKVPixelStore store(provider);
  memory->failNextWrites(1);
  store.addPixel({1, url("http://t.example/1"), kFuture, RKVPixelStatus::pending});
  {
    RKVLogCapture quiet;
    EXPECT_FALSE(store.saveToDisk());
  }
  EXPECT_TRUE(memory->entries().empty());
  EXPECT_THAT(ids(store.allPixels()), ElementsAre(1u));
  store.addPixel({2, url("http://t.example/2"), kFuture, RKVPixelStatus::pending});
  EXPECT_TRUE(store.saveToDisk());
  const auto blob = std::get<RKVDataBlob>(memory->entries().at(provider->pixelStoreKey()));
  EXPECT_THAT(ids(*RKVPixelStoreProvider::unarchivePixels(blob.bytes)), ElementsAre(1u, 2u));
}

}  // namespace
}  // namespace rkv
