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
  std::vector<RKVPixel> pixels;
  pixels.reserve(errorPixels->size());
  for (const RKVVASTURL& errorPixel : *errorPixels)
    pixels.emplace_back(RKVURLUtils::replaceMacro("[ERRORCODE]", errorPixel.url(), code));
  // One save for the whole list: nothing is sent before the round below anyway.
  pixelManager_->addPixels(pixels);
  pixelManager_->callPixels();
}

}  // namespace rkv
