#include "rkv/vast/RKVVASTModel.h"

#include <algorithm>
#include <utility>

#include "rkv/foundation/RKVTextValues.h"
#include "rkv/vast/internal/RKVVASTModelBuilder.h"

namespace rkv {

RKVVASTModel::RKVVASTModel(std::string version, Ads ads, std::vector<RKVVASTURL> errorPixels)
    : version_(std::move(version)), ads_(std::move(ads)), errorPixels_(std::move(errorPixels)) {}

std::shared_ptr<RKVVASTModel> RKVVASTModel::withDictionary(
    const RKVXMLDictionary& root, std::optional<RKVError>* error,
    const RKVVASTInnerErrorHandler& errorHandler) {
  return internal::RKVVASTModelBuilder(error, errorHandler).finish(root);
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
