// RKVPixelStoreProviderProtocol: where an RKVPixelStore persists its list. Implementations are
// called under the store's lock.
#pragma once

#include <optional>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/net/RKVPixel.h"

namespace rkv {

class RKV_EXPORT RKVPixelStoreProviderProtocol {
 public:
  virtual ~RKVPixelStoreProviderProtocol() = default;
  // The stored list in order, or std::nullopt when nothing (readable) is stored.
  virtual std::optional<std::vector<RKVPixel>> loadPixels() = 0;
  // Stores the whole list, durably; false when the write failed (what was stored before stays).
  virtual bool savePixels(const std::vector<RKVPixel>& pixels) = 0;
};

}  // namespace rkv
