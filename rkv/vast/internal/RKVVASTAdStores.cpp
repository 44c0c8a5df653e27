#include "rkv/vast/internal/RKVVASTAdStores.h"

#include <algorithm>
#include <cstddef>

namespace rkv::internal {

void RKVVASTAdStores::addMainAds(const Ads& ads, const RKVVASTAd* replaced) {
  if (!replaced) {
    main_.insert(main_.end(), ads.begin(), ads.end());
    return;
  }
  insertMainAdsAfter(replaced, ads);
  std::erase_if(main_,
                [replaced](const std::shared_ptr<RKVVASTAd>& ad) { return ad.get() == replaced; });
}

void RKVVASTAdStores::insertMainAdsAfter(const RKVVASTAd* ad, const Ads& ads) {
  const size_t at = std::min(adIndex(ad, main_) + 1, main_.size());
  main_.insert(main_.begin() + static_cast<std::ptrdiff_t>(at), ads.begin(), ads.end());
}

void RKVVASTAdStores::addPassbackAds(const Ads& ads, const RKVVASTModel& root) {
  for (const auto& ad : ads) {
    if (!ad || !root.isOwnerOf(ad.get())) continue;
    if (ad->isInline()) {
      addInlinePassback(ad);
    } else if (ad->isWrapper() && !contains(wrapperPassbacks_, ad.get())) {
      wrapperPassbacks_.push_back(ad);
    }
  }
}

void RKVVASTAdStores::addInlinePassback(const std::shared_ptr<RKVVASTAd>& ad) {
  if (!contains(inlinePassbacks_, ad.get())) inlinePassbacks_.push_back(ad);
}

RKVVASTAdStores::Ads RKVVASTAdStores::consumableMainAds() const {
  Ads consumable;
  for (const auto& ad : main_) {
    if (!ad->hasBeenConsumed()) consumable.push_back(ad);
  }
  return consumable;
}

std::shared_ptr<RKVVASTAd> RKVVASTAdStores::takeInlinePassback() {
  for (const auto& ad : inlinePassbacks_) {
    if (take(*ad)) return ad;
  }
  return nullptr;
}

std::vector<RKVVASTURL> RKVVASTAdStores::mainErrorPixelsAtPlaceOf(const RKVVASTAd* ad) const {
  if (main_.empty()) return {};
  return main_[adIndex(ad, main_)]->errorPixels();
}

bool RKVVASTAdStores::take(RKVVASTAd& ad) {
  if (ad.hasBeenConsumed()) return false;
  ad.consume();
  return true;
}

size_t RKVVASTAdStores::adIndex(const RKVVASTAd* ad, const Ads& store) {
  for (size_t i = 0; i < store.size(); ++i) {
    if (store[i].get() == ad) return i;
  }
  return 0;
}

bool RKVVASTAdStores::hasUnconsumed(const Ads& store) {
  return std::any_of(store.begin(), store.end(), [](const std::shared_ptr<RKVVASTAd>& entry) {
    return !entry->hasBeenConsumed();
  });
}

bool RKVVASTAdStores::contains(const Ads& store, const RKVVASTAd* ad) {
  return std::any_of(store.begin(), store.end(),
                     [ad](const std::shared_ptr<RKVVASTAd>& entry) { return entry.get() == ad; });
}

}  // namespace rkv::internal
