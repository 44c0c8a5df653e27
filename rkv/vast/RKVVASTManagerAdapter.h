// RKVVASTManagerAdapter: turns a resolved VAST ad into the player's own ad, the object a VAST
// manager hands out. Called on the thread that called the manager, or on background threads
// while passback wrappers resolve (possibly several at once): implementations must be
// thread-safe. The manager holds its adapter weakly.
#pragma once

#include <memory>

#include "rkv/RKVExport.h"
#include "rkv/vast/RKVConsumableVideoAd.h"
#include "rkv/vast/model/RKVVASTAd.h"

namespace rkv {

class RKV_EXPORT RKVVASTManagerAdapter {
 public:
  virtual ~RKVVASTManagerAdapter() = default;

  // The player's ad for `ad` (an inline ad with its wrappers merged in), or null when the
  // player cannot use it (the manager then has nothing to hand out for that ad).
  virtual std::shared_ptr<RKVConsumableVideoAd> convertVASTAdToConsumableVideoAd(
      const std::shared_ptr<RKVVASTAd>& ad) = 0;

 protected:
  RKVVASTManagerAdapter() = default;
  RKVVASTManagerAdapter(const RKVVASTManagerAdapter&) = default;
  RKVVASTManagerAdapter& operator=(const RKVVASTManagerAdapter&) = default;
};

}  // namespace rkv
