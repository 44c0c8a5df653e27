// RKVConsumableVideoAd: the base of the player's own ad objects, the ones a VAST manager's
// adapter makes from resolved VAST ads and the manager hands out. It carries nothing: a host
// derives its ad type from it and gets it back with std::dynamic_pointer_cast (or wraps a type
// it cannot change in a small derived holder). Thread-safety is the deriving type's.
#pragma once

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVConsumableVideoAd {
 public:
  virtual ~RKVConsumableVideoAd() = default;

 protected:
  RKVConsumableVideoAd() = default;
  RKVConsumableVideoAd(const RKVConsumableVideoAd&) = default;
  RKVConsumableVideoAd& operator=(const RKVConsumableVideoAd&) = default;
};

}  // namespace rkv
