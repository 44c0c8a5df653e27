// The pixel value and its archive, and the store's identity and obsolescence rules. Saving and
// loading through the user defaults are covered with the manager (RKVPixelManagerTest).
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/internal/RKVPixelArchive.h"
#include "rkv/system/RKVMemoryUserDefaultsStore.h"

#include "tests/net/RKVPixelTestSupport.h"
#include "tests/support/RKVLogCapture.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using Date = RKVPixel::Date;
using test::ids;
using ::testing::ElementsAre;

RKVURL url(const std::string& text) {
  return *RKVURL::withString(text);
}

const Date kFuture = std::chrono::system_clock::now() + 1h;

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
  struct Case {
    RKVUserDefaultsValue stored;
    std::vector<uint32_t> loaded;
    size_t errors;
  };
  const std::vector<Case> cases = {
      {RKVDataBlob{"[" + bad + "," + good + "]"}, {5}, 1},  // the rest is kept, one line
      {RKVDataBlob{"[" + good + "]"}, {5}, 0},
      {RKVDataBlob{"{\"id\":5}"}, {}, 1},  // not a list
      {RKVDataBlob{"[1,"}, {}, 1},
      {std::string("[" + good + "]"), {}, 0},  // a text, not a blob: nothing this library wrote
  };
  for (const Case& c : cases) {
    test::RKVLogCapture capture;
    auto defaults = std::make_shared<RKVUserDefaults>(std::make_shared<RKVMemoryUserDefaultsStore>(
        std::map<std::string, RKVUserDefaultsValue>{{key, c.stored}}));
    RKVPixelStore store(std::make_shared<RKVPixelStoreProvider>(defaults, "v"));
    EXPECT_EQ(ids(store.allPixels()), c.loaded);
    EXPECT_EQ(capture.errorMessages().size(), c.errors);
  }
}

TEST(RKVPixelStoreTest, IdentityAndObsolescence) {
  RKVPixelStore store(
      std::make_shared<RKVPixelStoreProvider>(std::make_shared<RKVUserDefaults>(nullptr), "v"));
  const RKVPixel a(1, url("http://t.example/a"), kFuture, RKVPixelStatus::pending);
  const RKVPixel sameID(1, url("http://t.example/other"), kFuture, RKVPixelStatus::pending);
  const RKVPixel four(4, url("http://t.example/4"), kFuture, RKVPixelStatus::pending);
  EXPECT_TRUE(store.addPixel(a));
  EXPECT_FALSE(store.addPixel(sameID));  // the ID is the identity
  EXPECT_TRUE(store.addPixel(four));
  EXPECT_TRUE(store.addPixel({2, url("http://t.example/2"), kFuture, RKVPixelStatus::success}));
  EXPECT_TRUE(
      store.addPixel({3, url("http://t.example/3"), kFuture - 2h, RKVPixelStatus::pending}));
  EXPECT_EQ(store.pixelIndexInStoreWithID(9), RKVPixelStore::kNotFound);
  EXPECT_FALSE(store.updatePixel({9, a.url(), kFuture, RKVPixelStatus::pending}));
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

}  // namespace
}  // namespace rkv
