#include "rkv/vast/model/RKVVASTMediaFileSelector.h"

#include <algorithm>
#include <utility>

namespace rkv {

RKVVASTMediaFileSelector::RKVVASTMediaFileSelector(
    float minBitrate, float maxBitrate, std::vector<std::shared_ptr<RKVVASTMediaFile>> media,
    int64_t networkAccessType)
    : minBitrate_(minBitrate),
      maxBitrate_(maxBitrate),
      media_(std::move(media)),
      networkAccessType_(networkAccessType) {}

bool RKVVASTMediaFileSelector::isConsideredLowNetworkConnection(int64_t networkAccessType) {
  return networkAccessType != 4 && networkAccessType != 5 && networkAccessType != 6;
}

std::shared_ptr<RKVVASTMediaFile> RKVVASTMediaFileSelector::mediaFile() const {
  const bool low = isConsideredLowNetworkConnection(networkAccessType_);

  std::vector<const RKVVASTMediaFile*> sorted;
  sorted.reserve(media_.size());
  for (const auto& file : media_) {
    if (file) sorted.push_back(file.get());
  }
  if (sorted.empty()) return nullptr;
  // Bitrates are float readings of text, never NaN, so ">" is a strict weak order.
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const RKVVASTMediaFile* a, const RKVVASTMediaFile* b) {
                     return a->bitrate() > b->bitrate();
                   });

  const RKVVASTMediaFile* choice = nullptr;
  if (!low) {
    for (const RKVVASTMediaFile* file : sorted) {
      if (file->bitrate() < 0) continue;
      if (file->bitrate() <= maxBitrate_) {
        choice = file;
        break;
      }
    }
  } else {
    for (auto it = sorted.rbegin(); it != sorted.rend(); ++it) {
      if ((*it)->bitrate() > -1) {
        choice = *it;
        break;
      }
    }
  }

  if (choice == nullptr) {
    // The running best starts at the marker -1, which the first file always replaces.
    float bestArea = -1;
    for (const RKVVASTMediaFile* file : sorted) {
      const float area = file->width() * file->height();
      if (bestArea == -1 || (low ? area < bestArea : area > bestArea)) {
        bestArea = area;
        choice = file;
      }
    }
  }

  for (const auto& file : media_) {
    if (file.get() == choice) return file;
  }
  return nullptr;
}

}  // namespace rkv
