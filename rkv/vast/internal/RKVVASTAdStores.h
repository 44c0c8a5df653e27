// RKVVASTAdStores: the ordered stores of a VAST manager: the main ads (the root document's, grown
// by the ads that wrappers lead to) and the inline and wrapper passback ads (each ad at most
// once). Taking an ad checks and consumes it in one step. Not thread-safe: its owner guards it
// (the manager's mutex), so that checking and consuming happen under one lock.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "rkv/vast/RKVVASTModel.h"
#include "rkv/vast/model/RKVVASTAd.h"
#include "rkv/vast/model/RKVVASTURL.h"

namespace rkv::internal {

class RKVVASTAdStores {
 public:
  using Ads = std::vector<std::shared_ptr<RKVVASTAd>>;

  const Ads& mainAds() const { return main_; }
  const Ads& inlinePassbackAds() const { return inlinePassbacks_; }
  const Ads& wrapperPassbackAds() const { return wrapperPassbacks_; }

  // Appends the ads to the main store; with `replaced` (an ad of the store), puts them in its
  // place instead: in order right after it, then removes it.
  void addMainAds(const Ads& ads, const RKVVASTAd* replaced);
  // Puts the ads in order right after `ad` in the main store (after the first ad when the store
  // lacks it).
  void insertMainAdsAfter(const RKVVASTAd* ad, const Ads& ads);
  // Of the ads `root` owns, inline ads go to the inline passback store and wrappers to the
  // wrapper passback store, each at most once.
  void addPassbackAds(const Ads& ads, const RKVVASTModel& root);
  // Appends an inline ad to the inline passback store unless it is there already.
  void addInlinePassback(const std::shared_ptr<RKVVASTAd>& ad);

  // The main ads not yet consumed, in store order.
  Ads consumableMainAds() const;
  bool hasInlinePassbacksAvailable() const { return hasUnconsumed(inlinePassbacks_); }
  bool hasWrapperPassbacksAvailable() const { return hasUnconsumed(wrapperPassbacks_); }
  // The first inline passback not yet consumed, consumed now; null when none is left.
  std::shared_ptr<RKVVASTAd> takeInlinePassback();
  // The error URLs of the main ad at `ad`'s place (adIndex); none when the main store is empty.
  std::vector<RKVVASTURL> mainErrorPixelsAtPlaceOf(const RKVVASTAd* ad) const;

  // Consumes `ad` unless it was consumed already; true when this call consumed it.
  static bool take(RKVVASTAd& ad);
  // The ad's position in the store (the same object), or 0 when the store lacks it, so that a
  // missing ad counts as the first.
  static size_t adIndex(const RKVVASTAd* ad, const Ads& store);

 private:
  static bool hasUnconsumed(const Ads& store);
  static bool contains(const Ads& store, const RKVVASTAd* ad);

  Ads main_;
  Ads inlinePassbacks_;
  Ads wrapperPassbacks_;
};

}  // namespace rkv::internal
