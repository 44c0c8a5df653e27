// For the VAST tests: trees from small XML texts, and what the model, parser and generator report
// through their error handlers.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv::test {

// The root element of the text's tree; the test fails when the text does not parse.
inline RKVXMLDictionaryPtr element(std::string_view xml) {
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLString(xml);
  EXPECT_NE(root, nullptr) << xml;
  return root ? root : RKVXMLDictionary::make();
}

// A URL that parses.
inline RKVURL url(std::string_view text) {
  return RKVURL::withString(text).value();
}

// The URL of each entry, in order: VAST URLs or events.
template <typename List>
std::vector<std::string> urlTexts(const List& list) {
  std::vector<std::string> texts;
  for (const auto& entry : list) {
    if constexpr (std::is_same_v<std::decay_t<decltype(entry)>, RKVVASTURL>)
      texts.push_back(entry.url().absoluteString());
    else
      texts.push_back(entry->url().absoluteString());
  }
  return texts;
}

// Records what the model, parser and generator report through their error handlers.
struct RKVReportRecorder {
  RKVVASTInnerErrorHandler inner() {
    return [this](const RKVVASTError& error, std::vector<RKVVASTURL>& urls) {
      record(error, urls, std::nullopt);
    };
  }
  RKVVASTErrorHandler outer() {
    return [this](const RKVVASTError& error, std::vector<RKVVASTURL>& urls,
                  const std::optional<std::string>& text) { record(error, urls, text); };
  }
  void record(const RKVVASTError& error, const std::vector<RKVVASTURL>& urls,
              const std::optional<std::string>& text) {
    std::string line = error.errorName().value_or("(null)");
    for (const std::string& url : urlTexts(urls))
      line += " " + url;
    lines.push_back(std::move(line));
    texts.push_back(text);
  }

  std::vector<std::string> lines;  // per report: the error's name, then the error URLs handed over
  std::vector<std::optional<std::string>> texts;  // the document text (outer handler only)
};

}  // namespace rkv::test
