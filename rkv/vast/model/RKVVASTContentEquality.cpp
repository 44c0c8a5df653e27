#include "rkv/vast/model/RKVVASTContentEquality.h"

#include <memory>
#include <vector>

#include "rkv/vast/model/RKVVASTAdWrapper.h"

namespace rkv {

namespace {

// Lists of shared entries, compared entry by entry; two null entries are equal.
template <typename T, typename Equal>
bool equalEntries(const std::vector<std::shared_ptr<T>>& a,
                  const std::vector<std::shared_ptr<T>>& b, Equal equal) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i] == b[i]) continue;
    if (!a[i] || !b[i] || !equal(*a[i], *b[i])) return false;
  }
  return true;
}

template <typename T>
bool equalEntries(const std::vector<std::shared_ptr<T>>& a,
                  const std::vector<std::shared_ptr<T>>& b) {
  return equalEntries(a, b, [](const T& x, const T& y) { return x == y; });
}

template <typename T>
bool equalPointees(const std::shared_ptr<T>& a, const std::shared_ptr<T>& b) {
  return a == b || (a && b && *a == *b);
}

bool equalCreativeBase(const RKVVASTCreative& a, const RKVVASTCreative& b) {
  return equalEntries(a.trackingEvents(), b.trackingEvents()) &&
         a.clickThrough() == b.clickThrough() && a.clickTracking() == b.clickTracking() &&
         a.universalAdIds() == b.universalAdIds();
}

template <typename Creative>
bool equalResources(const Creative& a, const Creative& b) {
  return a.staticResource() == b.staticResource() && a.iFrameResource() == b.iFrameResource() &&
         a.htmlResource() == b.htmlResource();
}

template <typename Creative>
bool equalCreatives(const std::vector<std::shared_ptr<Creative>>& a,
                    const std::vector<std::shared_ptr<Creative>>& b) {
  return equalEntries(a, b,
                      [](const Creative& x, const Creative& y) { return isEqualContent(x, y); });
}

std::optional<RKVVASTURL> adTagURL(const RKVVASTAd& ad) {
  const auto* wrapper = dynamic_cast<const RKVVASTAdWrapper*>(&ad);
  return wrapper ? wrapper->adTagURL() : std::nullopt;
}

}  // namespace

bool isEqualContent(const RKVVASTMediaFile& a, const RKVVASTMediaFile& b) {
  return a.id() == b.id() && a.delivery() == b.delivery() && a.type() == b.type() &&
         a.codec() == b.codec() && a.apiFramework() == b.apiFramework() &&
         a.scalable() == b.scalable() && a.maintainAspectRatio() == b.maintainAspectRatio() &&
         a.bitrate() == b.bitrate() && a.minBitrate() == b.minBitrate() &&
         a.maxBitrate() == b.maxBitrate() && a.width() == b.width() && a.height() == b.height() &&
         a.fileSize() == b.fileSize() && a.url() == b.url();
}

bool isEqualContent(const RKVVASTCreativeIcon& a, const RKVVASTCreativeIcon& b) {
  return a.program() == b.program() && a.duration() == b.duration() && a.offset() == b.offset() &&
         a.apiFramework() == b.apiFramework() && a.width() == b.width() &&
         a.height() == b.height() && a.xPosition() == b.xPosition() &&
         a.yPosition() == b.yPosition() && equalResources(a, b) && equalCreativeBase(a, b);
}

bool isEqualContent(const RKVVASTCreativeLinear& a, const RKVVASTCreativeLinear& b) {
  return a.duration() == b.duration() && a.skipOffset() == b.skipOffset() &&
         a.adParameters() == b.adParameters() &&
         equalEntries(a.mediaFiles(), b.mediaFiles(),
                      [](const RKVVASTMediaFile& x, const RKVVASTMediaFile& y) {
                        return isEqualContent(x, y);
                      }) &&
         equalCreatives(a.icons(), b.icons()) && equalCreativeBase(a, b);
}

bool isEqualContent(const RKVVASTCreativeNonLinear& a, const RKVVASTCreativeNonLinear& b) {
  return a.id() == b.id() && a.minSuggestedDuration() == b.minSuggestedDuration() &&
         a.apiFramework() == b.apiFramework() && a.scalable() == b.scalable() &&
         a.maintainAspectRatio() == b.maintainAspectRatio() && a.width() == b.width() &&
         a.height() == b.height() && a.expandedWidth() == b.expandedWidth() &&
         a.expandedHeight() == b.expandedHeight() && a.adParameters() == b.adParameters() &&
         equalResources(a, b) && equalCreativeBase(a, b);
}

bool isEqualContent(const RKVVASTCreativeCompanion& a, const RKVVASTCreativeCompanion& b) {
  return a.id() == b.id() && a.adSlotID() == b.adSlotID() && a.width() == b.width() &&
         a.height() == b.height() && a.assetWidth() == b.assetWidth() &&
         a.assetHeight() == b.assetHeight() && a.adParameters() == b.adParameters() &&
         equalResources(a, b) && equalCreativeBase(a, b);
}

bool isEqualContent(const RKVVASTAd& a, const RKVVASTAd& b) {
  if (&a == &b) return true;
  return a.isInline() == b.isInline() && a.isWrapper() == b.isWrapper() && a.adID() == b.adID() &&
         a.adSequence() == b.adSequence() && a.adSystem() == b.adSystem() &&
         a.adTitle() == b.adTitle() && a.isValid() == b.isValid() &&
         a.hasTriggeredAParsingError() == b.hasTriggeredAParsingError() &&
         a.wrapperDepth() == b.wrapperDepth() && adTagURL(a) == adTagURL(b) &&
         a.impressions() == b.impressions() && a.errorPixels() == b.errorPixels() &&
         equalEntries(a.viewabilityEvents(), b.viewabilityEvents()) &&
         equalCreatives(a.linearCreatives(), b.linearCreatives()) &&
         equalCreatives(a.nonLinearCreatives(), b.nonLinearCreatives()) &&
         equalCreatives(a.companionCreatives(), b.companionCreatives()) &&
         equalEntries(a.adVerifications(), b.adVerifications()) &&
         equalPointees(a.extensions(), b.extensions());
}

}  // namespace rkv
