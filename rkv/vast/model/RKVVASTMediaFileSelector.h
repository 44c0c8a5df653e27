// RKVVASTMediaFileSelector: picks the media file to play from the files' declared bitrates, a
// bitrate cap and the kind of network connection. Made for one choice; immutable, so it may be
// read from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTMediaFile.h"

namespace rkv {

class RKV_EXPORT RKVVASTMediaFileSelector {
 public:
  // The network access type the network information reports for Wi-Fi: a caller that does not
  // give one is treated as well connected.
  static constexpr int64_t kDefaultNetworkAccessType = 6;

  // Bitrates in kbit/s. Null entries of `media` are ignored.
  RKVVASTMediaFileSelector(float minBitrate, float maxBitrate,
                           std::vector<std::shared_ptr<RKVVASTMediaFile>> media,
                           int64_t networkAccessType = kDefaultNetworkAccessType);

  // Stored and readable; the choice does not use it.
  float minBitrate() const { return minBitrate_; }
  // The cap on good connections.
  float maxBitrate() const { return maxBitrate_; }
  const std::vector<std::shared_ptr<RKVVASTMediaFile>>& media() const { return media_; }
  int64_t networkAccessType() const { return networkAccessType_; }

  // The chosen file; null only when there is no candidate. A file whose declaresBitrate() is
  // false (its bitrate attribute absent or not a number) counts as bitrate -1, none declared. With
  // the files ordered by bitrate, highest first (equal bitrates in list order):
  // - good connection: the richest file whose bitrate is within [0, maxBitrate];
  // - low connection: the leanest file whose bitrate is above -1 (-1 = none declared), walking
  //   up from the lowest; the cap is not consulted;
  // - when that finds nothing: the largest (good) or smallest (low) frame, width times height,
  //   the first of equal frames in the bitrate order winning.
  std::shared_ptr<RKVVASTMediaFile> mediaFile() const;

  // False for the access types 4, 5 and 6; true for every other value (0 included).
  static bool isConsideredLowNetworkConnection(int64_t networkAccessType);

 private:
  float minBitrate_;
  float maxBitrate_;
  std::vector<std::shared_ptr<RKVVASTMediaFile>> media_;
  int64_t networkAccessType_;
};

}  // namespace rkv
