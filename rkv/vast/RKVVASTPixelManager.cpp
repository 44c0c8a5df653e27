#include "rkv/vast/RKVVASTPixelManager.h"

#include <string>

#include "rkv/log/RKVLog.h"
#include "rkv/net/RKVURLUtils.h"

namespace rkv {

RKVVASTPixelManager::RKVVASTPixelManager(std::shared_ptr<RKVPixelManager> pixelManager)
    : pixelManager_(pixelManager ? std::move(pixelManager) : RKVPixelManager::sharedInstance()) {}

void RKVVASTPixelManager::callVASTErrorPixels(
    const std::optional<std::vector<RKVVASTURL>>& errorPixels, int64_t errorCode) {
  // -1 is the code of a failure that has none; every other value, negative ones too, is sent.
  if (errorCode == -1) {
    RKVLog::sharedInstance()->logDebugWithFormat("Error pixels cannot be called for error code: {}",
                                                 errorCode);
    return;
  }
  if (!errorPixels || errorPixels->empty()) {
    RKVLog::sharedInstance()->logDebugWithFormat("No error pixels to call for error code: {}",
                                                 errorCode);
    return;
  }
  const std::string code = std::to_string(errorCode);
  // One addPixel per URL, in order, so that a pixel manager that watches what is queued sees
  // each; a save each (error pixels are few).
  for (const RKVVASTURL& errorPixel : *errorPixels)
    pixelManager_->addPixel(
        RKVPixel(RKVURLUtils::replaceMacro("[ERRORCODE]", errorPixel.url(), code)));
  pixelManager_->callPixels();
}

}  // namespace rkv
