// Pixels: sending and saving.
//
// BM_PixelRound: one sending round of the pixel manager over 1,000 pending pixels, against the
// tests' loopback server answering 204, through an RKVURLSession with its own provider. The
// store is an RKVPixelStore over RKVPixelStoreProvider over in-memory user defaults, so the
// figure is the round's sending and bookkeeping, not the disk (BM_PixelAdd measures that). The
// 1,000 pixels are added, untimed, before each round. BM_RawCurlPixels is the floor: one libcurl
// easy handle fetching the same 1,000 URLs over its one reused connection. BM_SessionPixels
// splits the round's time: the same 1,000 synchronous requests through the session alone, no
// store.
//
// BM_PixelAdd: the pixel manager's addPixel (add, archive the whole list, write it durably) on a
// store holding 10,000 pixels, over RKVPixelStoreProvider over RKVSQLiteUserDefaultsStore (WAL,
// synchronous=FULL) in the temporary folder; the pixel is taken out again, untimed, after each
// add. BM_RawSQLiteBlob is the floor: a blob of the same size written into the same kind of file
// (same table, same pragmas) with one INSERT OR REPLACE in a transaction. BM_PixelArchive is the
// archiving alone (the list of 10,001 pixels to its blob), to split BM_PixelAdd's time.
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <sqlite3.h>
#include <stdlib.h>

#include "rkv/net/RKVPixel.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"

#include "tests/support/RKVTestHTTPServer.h"

namespace {

constexpr int kRoundPixels = 1000;
constexpr int kStoredPixels = 10000;

struct Server {
  rkv::test::RKVTestHTTPServer server;
  std::vector<std::string> urls;
  Server() {
    server.setRecordsRequests(false);
    server.setRoute("/pixel", rkv::test::RKVTestRoute::answer(204, ""));
    for (int n = 0; n < kRoundPixels; ++n)
      urls.push_back(server.url("/pixel?ad=" + std::to_string(n) + "&event=impression"));
  }
};

Server& server() {
  static Server* shared = new Server();  // left running until the process ends
  return *shared;
}

void BM_PixelRound(benchmark::State& state) {
  Server& served = server();
  auto defaults = std::make_shared<rkv::RKVUserDefaults>(nullptr);  // in memory
  auto store = std::make_shared<rkv::RKVPixelStore>(
      std::make_shared<rkv::RKVPixelStoreProvider>(defaults, "bench"));
  rkv::RKVPixelManager manager(
      store, std::make_shared<rkv::RKVURLSession>(std::make_shared<rkv::RKVURLSessionProvider>()));
  std::vector<rkv::RKVPixel> pixels;
  for (const std::string& url : served.urls)
    pixels.emplace_back(*rkv::RKVURL::withString(url));

  std::mutex mutex;
  std::condition_variable condition;
  for (auto _ : state) {
    state.PauseTiming();
    manager.addPixels(pixels);
    state.ResumeTiming();
    bool done = false;
    size_t sent = 0;
    manager.callPixelsWithReport([&](const rkv::RKVPixelRoundReport& report) {
      std::lock_guard lock(mutex);
      sent = report.sent.size();
      done = true;
      condition.notify_one();
    });
    std::unique_lock lock(mutex);
    condition.wait(lock, [&] { return done; });
    if (sent != pixels.size()) {
      state.SkipWithError("a pixel was not sent");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * kRoundPixels);
}

void BM_SessionPixels(benchmark::State& state) {
  Server& served = server();
  rkv::RKVURLSession session(std::make_shared<rkv::RKVURLSessionProvider>());
  std::vector<rkv::RKVURL> urls;
  for (const std::string& url : served.urls)
    urls.push_back(*rkv::RKVURL::withString(url));
  for (auto _ : state) {
    for (const rkv::RKVURL& url : urls) {
      const rkv::RKVURLSessionResponse response = session.synchronousDataRequestWithURL(
          url, rkv::RKVPixelManager::kRequestCachePolicy, rkv::RKVPixelManager::kRequestTimeout);
      if (!rkv::RKVPixelManager::isResponseSuccessful(response)) {
        state.SkipWithError("a request failed");
        break;
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * kRoundPixels);
}

size_t ignoreBody(char* /*data*/, size_t size, size_t count, void* /*user*/) {
  return size * count;
}

void BM_RawCurlPixels(benchmark::State& state) {
  Server& served = server();
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, ignoreBody);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, 10000L);
  for (auto _ : state) {
    for (const std::string& url : served.urls) {
      curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
      long status = 0;
      if (curl_easy_perform(easy) != CURLE_OK ||
          curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status != 204) {
        state.SkipWithError("fetch failed");
        break;
      }
    }
  }
  curl_easy_cleanup(easy);
  state.SetItemsProcessed(state.iterations() * kRoundPixels);
}

// A fresh folder in the temporary folder, removed with its files.
struct Folder {
  std::filesystem::path path;
  Folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "rkv-bench-XXXXXX").string();
    if (mkdtemp(pattern.data())) path = pattern;
  }
  ~Folder() {
    std::error_code error;
    std::filesystem::remove_all(path, error);
  }
};

std::vector<rkv::RKVPixel> storedPixels() {
  std::vector<rkv::RKVPixel> pixels;
  pixels.reserve(kStoredPixels);
  for (int n = 0; n < kStoredPixels; ++n) {
    pixels.emplace_back(*rkv::RKVURL::withString("https://track.example.com/ad/" +
                                                 std::to_string(n) + "/impression?cb=1234567890"));
  }
  return pixels;
}

rkv::RKVPixel onePixel() {
  return rkv::RKVPixel(*rkv::RKVURL::withString("https://track.example.com/ad/new/impression"));
}

void BM_PixelAdd(benchmark::State& state) {
  Folder folder;
  auto defaults =
      std::make_shared<rkv::RKVUserDefaults>(std::make_shared<rkv::RKVSQLiteUserDefaultsStore>(
          (folder.path / "defaults.sqlite").string()));
  auto store = std::make_shared<rkv::RKVPixelStore>(
      std::make_shared<rkv::RKVPixelStoreProvider>(defaults, "bench"));
  rkv::RKVPixelManager manager(store, rkv::RKVURLSession::sharedInstance());
  if (!manager.addPixels(storedPixels())) state.SkipWithError("the store could not be filled");
  const rkv::RKVPixel pixel = onePixel();
  for (auto _ : state) {
    if (!manager.addPixel(pixel)) {
      state.SkipWithError("the pixel was not saved");
      break;
    }
    state.PauseTiming();
    store->deletePixel(pixel);
    state.ResumeTiming();
  }
}

void BM_PixelArchive(benchmark::State& state) {
  std::vector<rkv::RKVPixel> pixels = storedPixels();
  pixels.push_back(onePixel());
  for (auto _ : state)
    benchmark::DoNotOptimize(rkv::RKVPixelStoreProvider::archivePixels(pixels));
}

bool exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

void BM_RawSQLiteBlob(benchmark::State& state) {
  std::vector<rkv::RKVPixel> pixels = storedPixels();
  pixels.push_back(onePixel());
  const std::string blob = rkv::RKVPixelStoreProvider::archivePixels(pixels);
  const std::string key = std::string(rkv::RKVPixelStoreProvider::kPixelListKeyPrefix) + "bench";
  Folder folder;
  sqlite3* db = nullptr;
  if (sqlite3_open((folder.path / "raw.sqlite").string().c_str(), &db) != SQLITE_OK ||
      !exec(db, "PRAGMA journal_mode=WAL") || !exec(db, "PRAGMA synchronous=FULL") ||
      !exec(db,
            "CREATE TABLE IF NOT EXISTS rkv_defaults("
            "key TEXT PRIMARY KEY NOT NULL, type INTEGER NOT NULL, value)")) {
    state.SkipWithError("cannot open the file");
    sqlite3_close(db);
    return;
  }
  sqlite3_stmt* upsert = nullptr;
  sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO rkv_defaults(key, type, value) VALUES(?1, 5, ?2)",
                     -1, &upsert, nullptr);
  for (auto _ : state) {
    bool ok = exec(db, "BEGIN IMMEDIATE");
    sqlite3_bind_text64(upsert, 1, key.data(), key.size(), SQLITE_STATIC, SQLITE_UTF8);
    sqlite3_bind_blob64(upsert, 2, blob.data(), blob.size(), SQLITE_STATIC);
    ok = ok && sqlite3_step(upsert) == SQLITE_DONE;
    sqlite3_reset(upsert);
    if (!ok || !exec(db, "COMMIT")) {
      state.SkipWithError("the write failed");
      break;
    }
  }
  state.counters["blobBytes"] = static_cast<double>(blob.size());
  sqlite3_finalize(upsert);
  sqlite3_close(db);
}

BENCHMARK(BM_PixelRound)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SessionPixels)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawCurlPixels)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixelAdd)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawSQLiteBlob)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixelArchive)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
