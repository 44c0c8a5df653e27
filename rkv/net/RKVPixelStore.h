// RKVPixelStore: the ordered list of pixels waiting to be sent, in memory, over a provider that
// persists it. Thread-safe: every operation holds the store's recursive lock.
//
// Pixels are identified by ID only. Adding, updating and deleting change memory; saveToDisk()
// persists the whole list (the pixel manager calls it after each change).
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/net/RKVPixel.h"
#include "rkv/net/RKVPixelStoreProviderProtocol.h"

namespace rkv {

class RKV_EXPORT RKVPixelStore {
 public:
  // What pixelIndexInStoreWithID answers when the ID is not there.
  static constexpr int64_t kNotFound = std::numeric_limits<int64_t>::max();

  // The process-wide store over a new RKVPixelStoreProvider, created on first use.
  static std::shared_ptr<RKVPixelStore> sharedInstance();

  // Keeps the provider and loads its list (empty when it has none).
  explicit RKVPixelStore(std::shared_ptr<RKVPixelStoreProviderProtocol> provider);

  // The provider's list, or an empty one.
  std::vector<RKVPixel> loadPixels();
  // Hands the current list to the provider; what it answers.
  bool saveToDisk();

  // Appends the pixel unless one with its ID is present; true when appended.
  bool addPixel(const RKVPixel& pixel);
  // Replaces the pixel with the same ID by this one, moved to the end; false when none is there.
  bool updatePixel(const RKVPixel& pixel);
  // Removes the pixel with the same ID; true when one was removed.
  bool deletePixel(const RKVPixel& pixel);
  // Removes every obsolete pixel (expired, or marked success) and returns them, in list order.
  std::vector<RKVPixel> deleteObsoletePixels();

  std::optional<RKVPixel> pixelWithID(uint32_t ID) const;
  // A copy of the whole list.
  std::vector<RKVPixel> allPixels() const;
  // The pixels that are not obsolete, in list order.
  std::vector<RKVPixel> validPendingPixels() const;
  bool isPixelInStore(const RKVPixel& pixel) const;
  int64_t pixelIndexInStoreWithID(uint32_t ID) const;
  int64_t pixelIndexInStore(const RKVPixel& pixel) const {
    return pixelIndexInStoreWithID(pixel.ID());
  }
  // Expired, or marked success.
  static bool isPixelObsolete(const RKVPixel& pixel);

  const std::shared_ptr<RKVPixelStoreProviderProtocol>& provider() const { return provider_; }

 private:
  std::shared_ptr<RKVPixelStoreProviderProtocol> provider_;
  mutable std::recursive_mutex mu_;
  std::vector<RKVPixel> pixels_;  // guarded by mu_
};

}  // namespace rkv
