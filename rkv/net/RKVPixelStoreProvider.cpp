#include "rkv/net/RKVPixelStoreProvider.h"

#include "rkv/log/RKVLog.h"
#include "rkv/net/internal/RKVPixelArchive.h"
#include "rkv/platform/RKVFrameworkInfo.h"

namespace rkv {

RKVPixelStoreProvider::RKVPixelStoreProvider()
    : RKVPixelStoreProvider(nullptr, RKVFrameworkInfo::sharedInstance()->frameworkVersionString()) {
}

RKVPixelStoreProvider::RKVPixelStoreProvider(std::shared_ptr<RKVUserDefaults> userDefaults,
                                             std::string frameworkVersion)
    : defaults_(userDefaults ? std::move(userDefaults) : RKVUserDefaults::standardUserDefaults()),
      key_(std::string(kPixelListKeyPrefix) + frameworkVersion) {}

std::optional<std::vector<RKVPixel>> RKVPixelStoreProvider::loadPixels() {
  const std::optional<std::string> blob = defaults_->dataForKey(key_);
  if (!blob) return std::nullopt;
  internal::RKVPixelListDecoding decoded = internal::decodePixelList(*blob);
  if (!decoded.pixels) {
    RKVLog::sharedInstance()->logErrorWithFormat(
        "The stored pixel list under '{}' is not a JSON array; starting with no pixels", key_);
    return std::nullopt;
  }
  if (decoded.skipped > 0) {
    RKVLog::sharedInstance()->logErrorWithFormat(
        "Skipped {} stored pixel(s) under '{}' that could not be read; {} kept", decoded.skipped,
        key_, decoded.pixels->size());
  }
  return std::move(decoded.pixels);
}

bool RKVPixelStoreProvider::savePixels(const std::vector<RKVPixel>& pixels) {
  defaults_->setData(key_, archivePixels(pixels));
  return defaults_->synchronize();
}

std::string RKVPixelStoreProvider::archivePixels(const std::vector<RKVPixel>& pixels) {
  std::string out;
  // About 80 bytes of keys and numbers per pixel besides its URL.
  size_t size = 2;
  for (const RKVPixel& pixel : pixels)
    size += pixel.url().absoluteString().size() + 96;
  out.reserve(size);
  out.push_back('[');
  for (size_t i = 0; i < pixels.size(); ++i) {
    if (i > 0) out.push_back(',');
    internal::appendPixelArchive(out, pixels[i]);
  }
  out.push_back(']');
  return out;
}

std::optional<std::vector<RKVPixel>> RKVPixelStoreProvider::unarchivePixels(std::string_view blob) {
  return internal::decodePixelList(blob).pixels;
}

}  // namespace rkv
