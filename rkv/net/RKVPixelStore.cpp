#include "rkv/net/RKVPixelStore.h"

#include <algorithm>
#include <chrono>

#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/log/RKVLog.h"
#include "rkv/net/RKVPixelStoreProvider.h"

namespace rkv {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

bool isObsoleteAt(const RKVPixel& pixel, RKVPixel::Date now) {
  return pixel.status() == RKVPixelStatus::success || pixel.isExpiredAt(now);
}

}  // namespace

std::shared_ptr<RKVPixelStore> RKVPixelStore::sharedInstance() {
  // Never destroyed: pixels may be added from threads still running at exit.
  static auto* const instance = new std::shared_ptr<RKVPixelStore>(
      std::make_shared<RKVPixelStore>(std::make_shared<RKVPixelStoreProvider>()));
  return *instance;
}

RKVPixelStore::RKVPixelStore(std::shared_ptr<RKVPixelStoreProviderProtocol> provider)
    : provider_(std::move(provider)) {
  if (!provider_)
    RKVLog::sharedInstance()->logError(
        "A pixel store without a provider keeps pixels in memory only");
  std::vector<RKVPixel> loaded = loadPixels();
  Lock lock(mu_);
  pixels_ = std::move(loaded);
}

std::vector<RKVPixel> RKVPixelStore::loadPixels() {
  Lock lock(mu_);
  if (!provider_) return {};
  // A provider is the host's to replace; one that throws reads as one with nothing stored.
  return internal::callHostOrDefault("the pixel store provider's loadPixels",
                                     [&] { return provider_->loadPixels(); })
      .value_or(std::vector<RKVPixel>());
}

bool RKVPixelStore::saveToDisk() {
  // The provider writes under the lock, so that saves reach the disk in the order the list
  // changed: a later save never carries an older list.
  Lock lock(mu_);
  // A provider that throws has not saved: a sending round goes on to its handler, and the list
  // is written again at the next save.
  return provider_ && internal::callHostOrDefault("the pixel store provider's savePixels",
                                                  [&] { return provider_->savePixels(pixels_); });
}

bool RKVPixelStore::addPixel(const RKVPixel& pixel) {
  Lock lock(mu_);
  if (isPixelInStore(pixel)) return false;
  pixels_.push_back(pixel);
  return true;
}

bool RKVPixelStore::updatePixel(const RKVPixel& pixel) {
  Lock lock(mu_);
  if (!deletePixel(pixel)) return false;
  pixels_.push_back(pixel);
  return true;
}

bool RKVPixelStore::deletePixel(const RKVPixel& pixel) {
  Lock lock(mu_);
  const int64_t index = pixelIndexInStoreWithID(pixel.ID());
  if (index == kNotFound) return false;
  pixels_.erase(pixels_.begin() + index);
  return true;
}

std::vector<RKVPixel> RKVPixelStore::deleteObsoletePixels() {
  const RKVPixel::Date now = std::chrono::system_clock::now();
  std::vector<RKVPixel> obsolete;
  Lock lock(mu_);
  auto kept = pixels_.begin();
  for (auto it = pixels_.begin(); it != pixels_.end(); ++it) {
    if (isObsoleteAt(*it, now)) {
      obsolete.push_back(std::move(*it));
    } else {
      if (kept != it) *kept = std::move(*it);  // a string moved onto itself would be emptied
      ++kept;
    }
  }
  pixels_.erase(kept, pixels_.end());
  return obsolete;
}

std::optional<RKVPixel> RKVPixelStore::pixelWithID(uint32_t ID) const {
  Lock lock(mu_);
  const int64_t index = pixelIndexInStoreWithID(ID);
  if (index == kNotFound) return std::nullopt;
  return pixels_[static_cast<size_t>(index)];
}

std::vector<RKVPixel> RKVPixelStore::allPixels() const {
  Lock lock(mu_);
  return pixels_;
}

std::vector<RKVPixel> RKVPixelStore::validPendingPixels() const {
  const RKVPixel::Date now = std::chrono::system_clock::now();
  Lock lock(mu_);
  std::vector<RKVPixel> valid;
  valid.reserve(pixels_.size());
  for (const RKVPixel& pixel : pixels_)
    if (!isObsoleteAt(pixel, now)) valid.push_back(pixel);
  return valid;
}

bool RKVPixelStore::isPixelInStore(const RKVPixel& pixel) const {
  return pixelIndexInStoreWithID(pixel.ID()) != kNotFound;
}

int64_t RKVPixelStore::pixelIndexInStoreWithID(uint32_t ID) const {
  Lock lock(mu_);
  const auto it = std::find_if(pixels_.begin(), pixels_.end(),
                               [ID](const RKVPixel& pixel) { return pixel.ID() == ID; });
  return it == pixels_.end() ? kNotFound : static_cast<int64_t>(it - pixels_.begin());
}

bool RKVPixelStore::isPixelObsolete(const RKVPixel& pixel) {
  return isObsoleteAt(pixel, std::chrono::system_clock::now());
}

}  // namespace rkv
