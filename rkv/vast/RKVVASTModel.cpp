#include "rkv/vast/RKVVASTModel.h"

#include <algorithm>
#include <utility>

#include "rkv/foundation/RKVTextValues.h"
#include "rkv/log/RKVLog.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTAdInline.h"
#include "rkv/vast/model/RKVVASTAdWrapper.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

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

RKVVASTModel::RKVVASTModel(std::string version, Ads ads, std::vector<RKVVASTURL> errorPixels)
    : version_(std::move(version)), ads_(std::move(ads)), errorPixels_(std::move(errorPixels)) {}

std::shared_ptr<RKVVASTModel> RKVVASTModel::withDictionary(
    const RKVXMLDictionary& root, std::optional<RKVError>* error,
    const RKVVASTInnerErrorHandler& errorHandler) {
  const RKVXMLValue* adValue = root.find("Ad");
  // Root Error elements are the "no ad" answer: they are read only from a document without ads.
  std::vector<RKVVASTURL> rootErrorURLs;
  if (adValue == nullptr && root.contains("Error"))
    rootErrorURLs = errorURLsOf(Utils::findArrayForKey("Error", &root));

  const std::string* version = Utils::findAttribute("_version", &root);
  if (version == nullptr) {
    RKVLog::sharedInstance()->logError(
        "VAST XML Tag does not contain the version attribute and is invalid.");
    const RKVVASTError missing = RKVVASTError::VAST_VALIDATION_ERROR_MISSING_VERSION();
    if (error != nullptr) *error = missing.error();
    if (errorHandler) {
      std::vector<RKVVASTURL> errorURLs = rootErrorURLs;
      errorHandler(missing, errorURLs);
    }
    return nullptr;
  }

  // The ads' handlers would add the model's own error pixels too, but those are only set once
  // every ad is built, so there is nothing to add while the ads report.
  Ads ads;
  const RKVXMLArray* entries = adValue != nullptr ? adValue->array() : nullptr;
  if (entries != nullptr) {
    ads.reserve(entries->size());
    for (const RKVXMLValue& entry : *entries) {
      const RKVXMLDictionary* adElement = entry.dictionary();
      if (adElement == nullptr) continue;
      if (!adElement->contains("InLine")) {
        if (!adElement->contains("Wrapper")) continue;  // neither kind: skipped silently
        if (auto ad = RKVVASTAdWrapper::withDictionary(*adElement, error, errorHandler))
          ads.push_back(std::move(ad));
        continue;
      }
      // An inline ad's reports without URLs get the InLine's Error URLs. They are read only when
      // such a report comes (the same URLs the ad reads into its error pixels).
      const RKVXMLDictionary* content =
          Utils::findFirstObjectOfArrayAsDictionary("InLine", adElement);
      RKVVASTInnerErrorHandler inlineHandler;
      if (errorHandler) {
        inlineHandler = [content, &errorHandler](const RKVVASTError& adError,
                                                 std::vector<RKVVASTURL>& errorURLs) {
          if (errorURLs.empty()) errorURLs = errorURLsOf(Utils::findArrayForKey("Error", content));
          errorHandler(adError, errorURLs);
        };
      }
      if (auto ad = RKVVASTAdInline::withDictionary(*adElement, error, inlineHandler))
        ads.push_back(std::move(ad));
    }
  }
  return std::make_shared<RKVVASTModel>(*version, std::move(ads), std::move(rootErrorURLs));
}

std::shared_ptr<RKVVASTModel> RKVVASTModel::withDictionary(const RKVXMLDictionary& root) {
  return withDictionary(root, nullptr, {});
}

bool RKVVASTModel::versionIsSupported() const {
  return version_ == "2.0" || version_ == "3.0" || version_ == "4.0" || version_ == "4.1" ||
         version_ == "4.2";
}

int64_t RKVVASTModel::sequencedAdsCount() const {
  return std::count_if(ads_.begin(), ads_.end(), [](const auto& ad) { return ad->hasSequence(); });
}

int64_t RKVVASTModel::wrapperCount() const {
  return std::count_if(ads_.begin(), ads_.end(), [](const auto& ad) { return ad->isWrapper(); });
}

bool RKVVASTModel::isAdPod() const {
  return std::any_of(ads_.begin(), ads_.end(), [](const auto& ad) { return ad->hasSequence(); });
}

std::shared_ptr<RKVVASTAd> RKVVASTModel::firstAd() const {
  return ads_.empty() ? nullptr : ads_.front();
}

bool RKVVASTModel::isOwnerOf(const RKVVASTAd* ad) const {
  return std::any_of(ads_.begin(), ads_.end(), [ad](const auto& own) { return own.get() == ad; });
}

std::shared_ptr<RKVVASTAd> RKVVASTModel::adAfter(const RKVVASTAd* ad) const {
  if (ad == nullptr) return firstAd();
  auto found =
      std::find_if(ads_.begin(), ads_.end(), [ad](const auto& own) { return own.get() == ad; });
  if (found == ads_.end() || std::next(found) == ads_.end()) return nullptr;
  return *std::next(found);
}

RKVVASTModel::Ads RKVVASTModel::mainAds() const {
  Ads main;
  if (ads_.empty()) return main;
  if (isAdPod()) {
    std::copy_if(ads_.begin(), ads_.end(), std::back_inserter(main),
                 [](const auto& ad) { return ad->hasSequence(); });
    std::stable_sort(main.begin(), main.end(), [](const auto& a, const auto& b) {
      return RKVTextValues::integerValue(*a->adSequence()) <
             RKVTextValues::integerValue(*b->adSequence());
    });
    return main;
  }
  auto firstInline =
      std::find_if(ads_.begin(), ads_.end(), [](const auto& ad) { return ad->isInline(); });
  main.push_back(firstInline != ads_.end() ? *firstInline : ads_.front());
  return main;
}

RKVVASTModel::Ads RKVVASTModel::passbackAds() const {
  Ads passback;
  if (ads_.size() < 2) return passback;
  if (isAdPod()) {
    std::copy_if(ads_.begin(), ads_.end(), std::back_inserter(passback),
                 [](const auto& ad) { return !ad->hasSequence(); });
    return passback;
  }
  // Every ad but the first, even when the main ad is an inline ad found after leading wrappers.
  passback.assign(std::next(ads_.begin()), ads_.end());
  return passback;
}

}  // namespace rkv
