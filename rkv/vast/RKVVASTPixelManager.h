// RKVVASTPixelManager: calls the error pixels of a VAST ad for one error code, with the code put
// in place of the [ERRORCODE] macro, through a pixel manager (so they survive failures and
// restarts like any pixel). Thread-safe as its pixel manager is.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/vast/model/RKVVASTURL.h"

namespace rkv {

class RKV_EXPORT RKVVASTPixelManager {
 public:
  // A null manager means RKVPixelManager::sharedInstance().
  explicit RKVVASTPixelManager(std::shared_ptr<RKVPixelManager> pixelManager);

  // Code -1 (a failure without a VAST code) is refused and an absent or empty list has nothing
  // to call: each is logged at debug level and nothing is queued. Otherwise each URL, with
  // "[ERRORCODE]" replaced by the code in decimal, becomes a pixel expiring in a day; they are
  // added (and saved) together, then one sending round is requested.
  void callVASTErrorPixels(const std::optional<std::vector<RKVVASTURL>>& errorPixels,
                           int64_t errorCode);

  const std::shared_ptr<RKVPixelManager>& pixelManager() const { return pixelManager_; }

 private:
  const std::shared_ptr<RKVPixelManager> pixelManager_;
};

}  // namespace rkv
