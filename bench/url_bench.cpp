// URL parsing over every URL text of the shared corpus, against copying the same texts into
// strings (the least any URL value must do). The ratio of the two is the figure to watch.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "rkv/foundation/RKVURL.h"

namespace {

// The CDATA texts of the corpus that look like URLs, trimmed as the XML reader trims them.
const std::vector<std::string>& corpusURLTexts() {
  static const std::vector<std::string> texts = [] {
    std::vector<std::string> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(RKV_CORPUS_DIR, error)) {
      if (entry.path().extension() != ".xml") continue;
      std::ifstream in(entry.path(), std::ios::binary);
      std::stringstream buffer;
      buffer << in.rdbuf();
      const std::string document = buffer.str();
      for (size_t at = document.find("<![CDATA["); at != std::string::npos;
           at = document.find("<![CDATA[", at)) {
        at += 9;
        size_t end = document.find("]]>", at);
        if (end == std::string::npos) break;
        std::string text = document.substr(at, end - at);
        size_t first = text.find_first_not_of(" \t\r\n");
        size_t last = text.find_last_not_of(" \t\r\n");
        if (first == std::string::npos) continue;
        text = text.substr(first, last - first + 1);
        if (text.starts_with("http")) found.push_back(std::move(text));
      }
    }
    return found;
  }();
  return texts;
}

void BM_CopyTexts(benchmark::State& state) {
  const std::vector<std::string>& texts = corpusURLTexts();
  for (auto _ : state) {
    for (const std::string& text : texts) {
      std::string copy(text);
      benchmark::DoNotOptimize(copy);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(texts.size()));
}
BENCHMARK(BM_CopyTexts);

void BM_ParseURLs(benchmark::State& state) {
  const std::vector<std::string>& texts = corpusURLTexts();
  for (auto _ : state) {
    for (const std::string& text : texts) {
      std::optional<rkv::RKVURL> url = rkv::RKVURL::withString(text);
      benchmark::DoNotOptimize(url);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(texts.size()));
  state.counters["urls"] = static_cast<double>(texts.size());
}
BENCHMARK(BM_ParseURLs);

}  // namespace

BENCHMARK_MAIN();
