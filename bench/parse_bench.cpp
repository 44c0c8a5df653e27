// Reading VAST bytes: raw expat with empty handlers (the floor), bytes to dictionary tree, and
// (with the VAST model) bytes to parser response. Each runs over the whole IAB corpus and over the
// large synthetic document, in the same process, so their ratios are comparable.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <expat.h>

#include "rkv/vast/RKVVASTParser.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace {

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

const std::vector<std::string>& corpusDocuments() {
  static const std::vector<std::string> documents = [] {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(
             std::filesystem::path(RKV_CORPUS_DIR) / "iab")) {
      if (entry.path().extension() == ".xml") paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> contents;
    for (const auto& path : paths)
      contents.push_back(readFile(path));
    return contents;
  }();
  return documents;
}

const std::vector<std::string>& syntheticDocument() {
  static const std::vector<std::string> document{
      readFile(std::filesystem::path(RKV_CORPUS_DIR) / "synthetic/vast-4.2-200ads.xml")};
  return document;
}

void XMLCALL startElement(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL endElement(void*, const XML_Char*) {}
void XMLCALL characters(void*, const XML_Char*, int) {}

template <typename Parse>
void run(benchmark::State& state, const std::vector<std::string>& documents, Parse parse) {
  if (documents.empty() || documents.front().empty()) {
    state.SkipWithError("corpus not found");
    return;
  }
  size_t bytes = 0;
  for (const std::string& d : documents)
    bytes += d.size();
  for (auto _ : state) {
    for (const std::string& d : documents)
      parse(d);
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

void expatRaw(const std::string& bytes) {
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetElementHandler(parser, startElement, endElement);
  XML_SetCharacterDataHandler(parser, characters);
  benchmark::DoNotOptimize(XML_Parse(parser, bytes.data(), static_cast<int>(bytes.size()), 1));
  XML_ParserFree(parser);
}

void tree(const std::string& bytes) {
  rkv::RKVXMLDictionaryPtr root = rkv::RKVXMLDictionary::rkv_dictionaryWithXMLData(bytes);
  benchmark::DoNotOptimize(root.get());
}

// Bytes to parser response: tree, model, and the tree dropped again, with a handler that takes
// the reports (as the VAST manager's does).
void model(const std::string& bytes) {
  size_t reports = 0;
  rkv::RKVVASTParserResponse response = rkv::RKVVASTParser::parseXMLAndGenerateVASTObjectModel(
      bytes, false,
      [&reports](const rkv::RKVVASTError&, std::vector<rkv::RKVVASTURL>&,
                 const std::optional<std::string>&) { ++reports; });
  benchmark::DoNotOptimize(response.model().get());
  benchmark::DoNotOptimize(reports);
}

void BM_ExpatRaw_corpus(benchmark::State& s) {
  run(s, corpusDocuments(), expatRaw);
}
void BM_ExpatRaw_synthetic(benchmark::State& s) {
  run(s, syntheticDocument(), expatRaw);
}
void BM_Tree_corpus(benchmark::State& s) {
  run(s, corpusDocuments(), tree);
}
void BM_Tree_synthetic(benchmark::State& s) {
  run(s, syntheticDocument(), tree);
}
void BM_Model_corpus(benchmark::State& s) {
  run(s, corpusDocuments(), model);
}
void BM_Model_synthetic(benchmark::State& s) {
  run(s, syntheticDocument(), model);
}

}  // namespace

BENCHMARK(BM_ExpatRaw_corpus)->Name("BM_ExpatRaw/corpus");
BENCHMARK(BM_ExpatRaw_synthetic)->Name("BM_ExpatRaw/synthetic");
BENCHMARK(BM_Tree_corpus)->Name("BM_Tree/corpus");
BENCHMARK(BM_Tree_synthetic)->Name("BM_Tree/synthetic");
BENCHMARK(BM_Model_corpus)->Name("BM_Model/corpus");
BENCHMARK(BM_Model_synthetic)->Name("BM_Model/synthetic");

BENCHMARK_MAIN();
