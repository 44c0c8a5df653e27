// Records what the VAST model, parser and generator report through their error handlers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "rkv/vast/model/RKVVASTErrorHandler.h"

namespace rkv::test {

struct RKVReport {
  std::string name;                 // the error's name
  int64_t vireoCode = 0;            // tells apart errors that share a name
  std::vector<std::string> urls;    // the error URLs handed over, as absolute strings
  std::optional<std::string> text;  // the document text (outer handler only)
};

class RKVReportRecorder {
 public:
  RKVVASTInnerErrorHandler inner() {
    return [this](const RKVVASTError& error, std::vector<RKVVASTURL>& urls) {
      record(error, urls, std::nullopt);
    };
  }
  RKVVASTErrorHandler outer() {
    return [this](const RKVVASTError& error, std::vector<RKVVASTURL>& urls,
                  const std::optional<std::string>& text) { record(error, urls, text); };
  }

  const std::vector<RKVReport>& reports() const { return reports_; }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const RKVReport& report : reports_)
      names.push_back(report.name);
    return names;
  }

 private:
  void record(const RKVVASTError& error, const std::vector<RKVVASTURL>& urls,
              const std::optional<std::string>& text) {
    RKVReport report{error.errorName().value_or("(null)"), error.vireoCode(), {}, text};
    for (const RKVVASTURL& url : urls)
      report.urls.push_back(url.url().absoluteString());
    reports_.push_back(std::move(report));
  }

  std::vector<RKVReport> reports_;
};

// The absolute strings of a list of URLs.
inline std::vector<std::string> urlTexts(const std::vector<RKVVASTURL>& urls) {
  std::vector<std::string> texts;
  for (const RKVVASTURL& url : urls)
    texts.push_back(url.url().absoluteString());
  return texts;
}

}  // namespace rkv::test
