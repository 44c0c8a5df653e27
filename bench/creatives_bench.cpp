// Building the creatives of a document from its dictionary tree (linear creatives with their
// media files, icons, tracking and clicks; companions; non-linear creatives; universal ad ids),
// against raw expat over the same bytes. The tree is built once, outside the timing: this is the
// creatives' share of the bytes-to-model budget.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <expat.h>

#include "rkv/vast/model/RKVVASTCreativeCompanion.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"
#include "rkv/vast/model/RKVVASTUniversalAdId.h"
#include "rkv/xml/RKVXMLDictionary.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace {

using rkv::RKVXMLDictionary;
using rkv::RKVXMLDictionaryUtils;

const std::string& syntheticDocument() {
  static const std::string document = [] {
    std::ifstream in(std::filesystem::path(RKV_CORPUS_DIR) / "synthetic/vast-4.2-200ads.xml",
                     std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }();
  return document;
}

void XMLCALL startElement(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL endElement(void*, const XML_Char*) {}
void XMLCALL characters(void*, const XML_Char*, int) {}

// The Creative elements of every InLine or Wrapper of the document.
std::vector<const RKVXMLDictionary*> creativeElements(const RKVXMLDictionary& root) {
  std::vector<const RKVXMLDictionary*> creatives;
  const rkv::RKVXMLArray* ads = RKVXMLDictionaryUtils::findArrayForKey("Ad", &root);
  if (ads == nullptr) return creatives;
  for (const rkv::RKVXMLValue& ad : *ads) {
    for (const char* kind : {"InLine", "Wrapper"}) {
      const RKVXMLDictionary* content =
          RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary(kind, ad.dictionary());
      const RKVXMLDictionary* list =
          RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("Creatives", content);
      const rkv::RKVXMLArray* entries = RKVXMLDictionaryUtils::findArrayForKey("Creative", list);
      if (entries == nullptr) continue;
      for (const rkv::RKVXMLValue& entry : *entries) {
        if (entry.dictionary() != nullptr) creatives.push_back(entry.dictionary());
      }
    }
  }
  return creatives;
}

void buildCreatives(const std::vector<const RKVXMLDictionary*>& creatives) {
  for (const RKVXMLDictionary* creative : creatives) {
    std::vector<rkv::RKVVASTUniversalAdId> ids;
    if (const rkv::RKVXMLArray* list =
            RKVXMLDictionaryUtils::findArrayForKey("UniversalAdId", creative)) {
      for (const rkv::RKVXMLValue& id : *list) {
        if (id.dictionary() == nullptr) continue;
        if (auto made = rkv::RKVVASTUniversalAdId::withDictionary(*id.dictionary()))
          ids.push_back(std::move(*made));
      }
    }
    if (const RKVXMLDictionary* linear =
            RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("Linear", creative)) {
      std::optional<rkv::RKVError> error;
      auto made = rkv::RKVVASTCreativeLinear::withDictionary(*linear, &error, {}, false);
      if (made) made->addUniversalAdIds(ids);
      benchmark::DoNotOptimize(made.get());
    }
    const RKVXMLDictionary* companions =
        RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("CompanionAds", creative);
    if (const RKVXMLDictionary* companion =
            RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("Companion", companions)) {
      benchmark::DoNotOptimize(rkv::RKVVASTCreativeCompanion::withDictionary(*companion).get());
    }
    const RKVXMLDictionary* nonLinears =
        RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("NonLinearAds", creative);
    if (const RKVXMLDictionary* nonLinear =
            RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("NonLinear", nonLinears)) {
      benchmark::DoNotOptimize(rkv::RKVVASTCreativeNonLinear::withDictionary(*nonLinear).get());
    }
  }
}

void BM_ExpatRaw(benchmark::State& state) {
  const std::string& bytes = syntheticDocument();
  if (bytes.empty()) return state.SkipWithError("corpus not found");
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(parser, startElement, endElement);
    XML_SetCharacterDataHandler(parser, characters);
    benchmark::DoNotOptimize(XML_Parse(parser, bytes.data(), static_cast<int>(bytes.size()), 1));
    XML_ParserFree(parser);
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes.size()) * state.iterations());
}

void BM_Creatives(benchmark::State& state) {
  const std::string& bytes = syntheticDocument();
  rkv::RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLData(bytes);
  if (!root) return state.SkipWithError("corpus not found");
  const std::vector<const RKVXMLDictionary*> creatives = creativeElements(*root);
  for (auto _ : state)
    buildCreatives(creatives);
  state.SetBytesProcessed(static_cast<int64_t>(bytes.size()) * state.iterations());
  state.counters["creatives"] = static_cast<double>(creatives.size());
}

}  // namespace

BENCHMARK(BM_ExpatRaw)->Name("BM_ExpatRaw/synthetic");
BENCHMARK(BM_Creatives)->Name("BM_Creatives/synthetic");

BENCHMARK_MAIN();
