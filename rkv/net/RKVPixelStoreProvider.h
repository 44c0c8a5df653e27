// RKVPixelStoreProvider: keeps the pixel list in the user defaults, as one data blob (the JSON
// array of the pixels' archives) under pixelStoreKey(). Thread-safe as its user defaults are.
//
// The framework version is part of the key: a library of another version neither reads nor
// overwrites the list, so pixels left by an older version are abandoned on upgrade, on purpose.
#pragma once

#include <memory>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/net/RKVPixelStoreProviderProtocol.h"
#include "rkv/system/RKVUserDefaults.h"

namespace rkv {

class RKV_EXPORT RKVPixelStoreProvider final : public RKVPixelStoreProviderProtocol {
 public:
  static constexpr const char* kPixelListKeyPrefix = "com.vireohub.coresdk.pixelManager.pixelList";

  // Over RKVUserDefaults::standardUserDefaults() and this framework's version.
  RKVPixelStoreProvider();
  // Over the given defaults (standardUserDefaults() when null), under the key for
  // `frameworkVersion`.
  RKVPixelStoreProvider(std::shared_ptr<RKVUserDefaults> userDefaults,
                        std::string frameworkVersion);

  // Absent when there is no blob; a blob that does not decode is logged at error level and reads
  // as absent. Pixels whose entry does not decode are skipped, the others kept.
  std::optional<std::vector<RKVPixel>> loadPixels() override;
  // Stores the blob and synchronizes the defaults; what synchronize() answers.
  bool savePixels(const std::vector<RKVPixel>& pixels) override;

  // kPixelListKeyPrefix followed by the framework version, no separator.
  const std::string& pixelStoreKey() const { return key_; }
  const std::shared_ptr<RKVUserDefaults>& standardUserDefaults() const { return defaults_; }

  // The blob for a list, and the list of a blob (std::nullopt when it does not decode).
  static std::string archivePixels(const std::vector<RKVPixel>& pixels);
  static std::optional<std::vector<RKVPixel>> unarchivePixels(std::string_view blob);

 private:
  std::shared_ptr<RKVUserDefaults> defaults_;
  std::string key_;
};

}  // namespace rkv
