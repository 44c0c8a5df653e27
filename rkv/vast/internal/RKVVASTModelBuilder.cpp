#include "rkv/vast/internal/RKVVASTModelBuilder.h"

#include <string>

#include "rkv/log/RKVLog.h"
#include "rkv/vast/model/RKVVASTAdInline.h"
#include "rkv/vast/model/RKVVASTAdWrapper.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv::internal {

namespace {

using Utils = RKVXMLDictionaryUtils;

std::vector<RKVVASTURL> errorURLsOf(const RKVXMLArray* entries) {
  std::vector<RKVVASTURL> urls;
  if (entries == nullptr) return urls;
  for (const RKVXMLValue& entry : *entries) {
    if (std::optional<RKVVASTURL> url = RKVVASTURL::fromXML(entry)) urls.push_back(std::move(*url));
  }
  return urls;
}

}  // namespace

bool RKVVASTModelBuilder::acceptsAdsAhead(const RKVXMLDictionary& root) {
  return Utils::findAttribute("_version", &root) != nullptr;
}

void RKVVASTModelBuilder::hold(const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs) {
  heldReports_.emplace_back(error, std::move(errorURLs));
}

void RKVVASTModelBuilder::addAd(const RKVXMLDictionary& adElement) {
  // The ads' handlers would add the model's own error pixels too, but those are only set once
  // every ad is built, so there is nothing to add while the ads report.
  if (!adElement.contains("InLine")) {
    if (!adElement.contains("Wrapper")) return;  // neither kind: skipped silently
    RKVVASTInnerErrorHandler handler;
    if (errorHandler_) {
      handler = [this](const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs) {
        hold(error, errorURLs);
      };
    }
    if (auto ad = RKVVASTAdWrapper::withDictionary(adElement, error_, handler))
      ads_.push_back(std::move(ad));
    return;
  }
  // An inline ad's reports that come without URLs get the InLine's Error URLs, read only when
  // such a report comes (they are the URLs the ad reads into its own error pixels).
  RKVVASTInnerErrorHandler handler;
  if (errorHandler_) {
    const RKVXMLDictionary* content =
        Utils::findFirstObjectOfArrayAsDictionary("InLine", &adElement);
    handler = [this, content](const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs) {
      if (errorURLs.empty()) errorURLs = errorURLsOf(Utils::findArrayForKey("Error", content));
      hold(error, errorURLs);
    };
  }
  if (auto ad = RKVVASTAdInline::withDictionary(adElement, error_, handler))
    ads_.push_back(std::move(ad));
}

std::shared_ptr<RKVVASTModel> RKVVASTModelBuilder::finish(const RKVXMLDictionary& root) {
  const RKVXMLValue* adValue = root.find("Ad");
  // Root Error elements are the "no ad" answer: they are read only from a document without ads.
  std::vector<RKVVASTURL> rootErrorURLs;
  if (adValue == nullptr && root.contains("Error"))
    rootErrorURLs = errorURLsOf(Utils::findArrayForKey("Error", &root));

  const std::string* version = Utils::findAttribute("_version", &root);
  if (version == nullptr) {
    ads_.clear();
    heldReports_.clear();
    RKVLog::sharedInstance()->logError(
        "VAST XML Tag does not contain the version attribute and is invalid.");
    const RKVVASTError missing = RKVVASTError::VAST_VALIDATION_ERROR_MISSING_VERSION();
    if (error_ != nullptr) *error_ = missing.error();
    if (errorHandler_) errorHandler_(missing, rootErrorURLs);
    return nullptr;
  }

  if (const RKVXMLArray* entries = adValue != nullptr ? adValue->array() : nullptr) {
    ads_.reserve(ads_.size() + entries->size());
    for (const RKVXMLValue& entry : *entries) {
      if (const RKVXMLDictionary* adElement = entry.dictionary()) addAd(*adElement);
    }
  }
  for (auto& [error, errorURLs] : heldReports_)
    errorHandler_(error, errorURLs);
  heldReports_.clear();
  return std::make_shared<RKVVASTModel>(*version, std::move(ads_), std::move(rootErrorURLs));
}

}  // namespace rkv::internal
