// The player ad of the tool's VAST managers: the VAST ad itself, handed back by the adapter.
#pragma once

#include <memory>
#include <utility>

#include "rkv/vast/RKVConsumableVideoAd.h"
#include "rkv/vast/RKVVASTManagerAdapter.h"
#include "rkv/vast/model/RKVVASTAd.h"

namespace rkv::cli {

class RKVHandedOutVASTAd final : public RKVConsumableVideoAd {
 public:
  explicit RKVHandedOutVASTAd(std::shared_ptr<RKVVASTAd> ad) : ad_(std::move(ad)) {}
  const std::shared_ptr<RKVVASTAd>& ad() const { return ad_; }

 private:
  std::shared_ptr<RKVVASTAd> ad_;
};

class RKVHandBackAdapter final : public RKVVASTManagerAdapter {
 public:
  std::shared_ptr<RKVConsumableVideoAd> convertVASTAdToConsumableVideoAd(
      const std::shared_ptr<RKVVASTAd>& ad) override {
    return std::make_shared<RKVHandedOutVASTAd>(ad);
  }
};

}  // namespace rkv::cli
