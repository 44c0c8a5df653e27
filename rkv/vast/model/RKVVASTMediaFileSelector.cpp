#include "rkv/vast/model/RKVVASTMediaFileSelector.h"

#include <algorithm>
#include <utility>

namespace rkv {

namespace {

// The bitrate the choice works with: -1, the "none declared" marker, for a file whose bitrate
// attribute is absent or not a number (its bitrate() reads 0, which would otherwise make it the
// leanest file on a low connection and a candidate under any cap).
float declaredBitrate(const RKVVASTMediaFile& file) {
  return file.declaresBitrate() ? file.bitrate() : -1.0f;
}

struct Candidate {
  const RKVVASTMediaFile* file;
  float bitrate;
};

}  // namespace

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

  std::vector<Candidate> sorted;
  sorted.reserve(media_.size());
  for (const auto& file : media_) {
    if (file) sorted.push_back({file.get(), declaredBitrate(*file)});
  }
  if (sorted.empty()) return nullptr;
  // Bitrates are float readings of text, never NaN, so ">" is a strict weak order.
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Candidate& a, const Candidate& b) { return a.bitrate > b.bitrate; });

  const RKVVASTMediaFile* choice = nullptr;
  if (!low) {
    for (const Candidate& candidate : sorted) {
      if (candidate.bitrate < 0) continue;
      if (candidate.bitrate <= maxBitrate_) {
        choice = candidate.file;
        break;
      }
    }
  } else {
    for (auto it = sorted.rbegin(); it != sorted.rend(); ++it) {
      if (it->bitrate > -1) {
        choice = it->file;
        break;
      }
    }
  }

  if (choice == nullptr) {
    // The running best starts at the marker -1, which the first file always replaces.
    float bestArea = -1;
    for (const Candidate& candidate : sorted) {
      const float area = candidate.file->width() * candidate.file->height();
      if (bestArea == -1 || (low ? area < bestArea : area > bestArea)) {
        bestArea = area;
        choice = candidate.file;
      }
    }
  }

  for (const auto& file : media_) {
    if (file.get() == choice) return file;
  }
  return nullptr;
}

}  // namespace rkv
