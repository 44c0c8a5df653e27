// Resolving a chain of wrappers with the VAST manager: a root wrapper whose ad-tag URI leads
// through four more wrappers to an inline ad, five documents fetched from a loopback server,
// parsed and merged. The baseline is a plain libcurl easy handle fetching the same five
// documents over one reused connection, without parsing them. The argument is the server's
// delay before each answer, in milliseconds (0: an instant server, the harshest comparison).
// BM_ChainSessionFetches and BM_ChainDocumentsParsed split the manager's time into its two
// parts: the HTTP session's five synchronous requests and the parsing of the five documents;
// BM_ChainDocumentsExpat is bare expat over the same five documents, its floor.
// BM_RawCurlChainExpat is the floor of any resolver that reads its documents with expat: the
// baseline's loop with bare expat (no handler doing any work) run over the root document and
// each fetched body.
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <expat.h>

#include "rkv/net/RKVURLSession.h"
#include "rkv/net/RKVURLSessionProvider.h"
#include "rkv/vast/RKVVASTManager.h"
#include "rkv/vast/RKVVASTParser.h"

#include "tests/support/RKVTestHTTPServer.h"
#include "tests/support/RKVTestVASTDocuments.h"

namespace {

using rkv::test::RKVTestAd;

constexpr int kLevels = 5;  // documents fetched per resolution

// A level as ad servers write them: impressions, an error URL and the quartile tracking.
RKVTestAd withPixels(RKVTestAd ad) {
  const std::string base = "https://track.example.com/" + ad.id;
  ad.impressions = {base + "/imp?cb=[CACHEBUSTING]", base + "/imp2"};
  ad.errors = {base + "/err?code=[ERRORCODE]"};
  for (const char* event : {"start", "q1", "mid", "q3", "complete"})
    ad.starts.push_back(base + "/" + event);
  return ad;
}

// The loopback server and the chain it serves: /w1 -> /w2 -> /w3 -> /w4 -> /inline.
struct Chain {
  rkv::test::RKVTestHTTPServer server;
  std::string rootDocument;
  std::vector<std::string> urls;       // the five documents, in the order they are fetched
  std::vector<std::string> documents;  // what they answer

  explicit Chain(std::chrono::milliseconds delay) {
    server.setRecordsRequests(false);
    for (int level = 1; level <= kLevels; ++level)
      urls.push_back(server.url(level < kLevels ? "/w" + std::to_string(level) : "/inline"));
    for (int level = 1; level <= kLevels; ++level) {
      const RKVTestAd ad =
          level < kLevels
              ? withPixels(rkv::test::wrapperAd("w" + std::to_string(level), urls[level]))
              : withPixels(rkv::test::inlineAd("inline"));
      const std::string path = urls[level - 1].substr(urls[level - 1].rfind('/'));
      documents.push_back(rkv::test::vastXML({ad}));
      server.setRoute(path, rkv::test::RKVTestRoute::answer(200, documents.back(), delay));
    }
    rootDocument = rkv::test::vastXML({withPixels(rkv::test::wrapperAd("w0", urls[0]))});
  }
};

// One chain per server delay, left running until the process ends.
Chain& chain(const benchmark::State& state) {
  static std::map<int64_t, Chain*> chains;
  Chain*& served = chains[state.range(0)];
  if (served == nullptr) served = new Chain(std::chrono::milliseconds(state.range(0)));
  return *served;
}

class Delegate : public rkv::RKVVASTManagerDelegate {};

class PassThrough : public rkv::RKVConsumableVideoAd {
 public:
  explicit PassThrough(std::shared_ptr<rkv::RKVVASTAd> vastAd) : ad(std::move(vastAd)) {}
  std::shared_ptr<rkv::RKVVASTAd> ad;
};

class Adapter : public rkv::RKVVASTManagerAdapter {
 public:
  std::shared_ptr<rkv::RKVConsumableVideoAd> convertVASTAdToConsumableVideoAd(
      const std::shared_ptr<rkv::RKVVASTAd>& ad) override {
    return std::make_shared<PassThrough>(ad);
  }
};

void BM_WrapperChain(benchmark::State& state) {
  Chain& served = chain(state);
  auto session =
      std::make_shared<rkv::RKVURLSession>(std::make_shared<rkv::RKVURLSessionProvider>());
  auto delegate = std::make_shared<Delegate>();
  auto adapter = std::make_shared<Adapter>();
  const rkv::RKVVASTManagerConfig config(5.0, 10, false, false);
  for (auto _ : state) {
    rkv::RKVVASTManager manager(delegate, adapter, session, config);
    manager.createAdsStoreWithXML(served.rootDocument, std::nullopt, 5.0);
    const rkv::RKVVASTManagerResponse response = manager.nextAdWithTimeout(5.0, false);
    auto ad = std::dynamic_pointer_cast<PassThrough>(response.ad());
    if (!ad || ad->ad->wrapperDepth() != kLevels) {
      state.SkipWithError("the chain did not resolve");
      break;
    }
    benchmark::DoNotOptimize(ad);
  }
}

size_t appendBody(char* data, size_t size, size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, size * count);
  return size * count;
}

// One easy handle that appends what it fetches to `body`, its connection reused from fetch to
// fetch.
CURL* fetcher(std::string& body) {
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, appendBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, 5000L);
  return easy;
}

void BM_RawCurlChain(benchmark::State& state) {
  Chain& served = chain(state);
  std::string body;
  CURL* easy = fetcher(body);
  for (auto _ : state) {
    for (const std::string& url : served.urls) {
      body.clear();
      curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
      if (curl_easy_perform(easy) != CURLE_OK || body.empty()) {
        state.SkipWithError("fetch failed");
        break;
      }
    }
    benchmark::DoNotOptimize(body.data());
  }
  curl_easy_cleanup(easy);
}

void XMLCALL ignoreStart(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL ignoreEnd(void*, const XML_Char*) {}
void XMLCALL ignoreText(void*, const XML_Char*, int) {}

// One reused parser, reset per document, as the library reads documents.
bool readWithExpat(XML_Parser parser, const std::string& document) {
  XML_ParserReset(parser, nullptr);
  XML_SetElementHandler(parser, ignoreStart, ignoreEnd);
  XML_SetCharacterDataHandler(parser, ignoreText);
  return XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
}

void BM_RawCurlChainExpat(benchmark::State& state) {
  Chain& served = chain(state);
  XML_Parser parser = XML_ParserCreate(nullptr);
  std::string body;
  CURL* easy = fetcher(body);
  for (auto _ : state) {
    if (!readWithExpat(parser, served.rootDocument)) {
      state.SkipWithError("the root did not parse");
      break;
    }
    for (const std::string& url : served.urls) {
      body.clear();
      curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
      if (curl_easy_perform(easy) != CURLE_OK || !readWithExpat(parser, body)) {
        state.SkipWithError("fetch or parse failed");
        break;
      }
    }
  }
  XML_ParserFree(parser);
  curl_easy_cleanup(easy);
}

// The same loop reading the root and each body into the model with the library's parser, as
// the manager does: the floor of any resolver built on that parser, without the HTTP session,
// the ad store and the merging of the levels.
void BM_RawCurlChainParsed(benchmark::State& state) {
  Chain& served = chain(state);
  std::string body;
  CURL* easy = fetcher(body);
  auto parsed = [](const std::string& document) {
    return rkv::RKVVASTParser::parseXMLAndGenerateVASTObjectModel(document, true, nullptr)
               .model() != nullptr;
  };
  for (auto _ : state) {
    if (!parsed(served.rootDocument)) {
      state.SkipWithError("the root did not parse");
      break;
    }
    for (const std::string& url : served.urls) {
      body.clear();
      curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
      if (curl_easy_perform(easy) != CURLE_OK || !parsed(body)) {
        state.SkipWithError("fetch or parse failed");
        break;
      }
    }
  }
  curl_easy_cleanup(easy);
}

void BM_ChainSessionFetches(benchmark::State& state) {
  Chain& served = chain(state);
  auto session =
      std::make_shared<rkv::RKVURLSession>(std::make_shared<rkv::RKVURLSessionProvider>());
  std::vector<rkv::RKVURL> urls;
  for (const std::string& url : served.urls)
    urls.push_back(*rkv::RKVURL::withString(url));
  for (auto _ : state) {
    for (const rkv::RKVURL& url : urls) {
      const rkv::RKVURLSessionResponse response =
          session->synchronousDataRequestWithURL(url, 0, 5.0);
      if (!response.data) {
        state.SkipWithError("fetch failed");
        break;
      }
    }
  }
}

void BM_ChainDocumentsParsed(benchmark::State& state) {
  Chain& served = chain(state);
  for (auto _ : state) {
    for (const std::string& document : served.documents) {
      const rkv::RKVVASTParserResponse response =
          rkv::RKVVASTParser::parseXMLAndGenerateVASTObjectModel(document, true, nullptr);
      benchmark::DoNotOptimize(response.model());
    }
  }
}

void BM_ChainDocumentsExpat(benchmark::State& state) {
  Chain& served = chain(state);
  XML_Parser parser = XML_ParserCreate(nullptr);
  for (auto _ : state) {
    for (const std::string& document : served.documents)
      benchmark::DoNotOptimize(readWithExpat(parser, document));
  }
  XML_ParserFree(parser);
}

BENCHMARK(BM_WrapperChain)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RawCurlChain)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RawCurlChainExpat)->Arg(0)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RawCurlChainParsed)->Arg(0)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ChainSessionFetches)->Arg(0)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ChainDocumentsParsed)->Arg(0)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ChainDocumentsExpat)->Arg(0)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
