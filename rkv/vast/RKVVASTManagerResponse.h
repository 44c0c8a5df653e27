// RKVVASTManagerResponse: one answer of a VAST manager: the next player ad, or the error saying
// why there is none. Every response a manager builds has exactly one of the two. Immutable.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/vast/RKVConsumableVideoAd.h"

namespace rkv {

class RKV_EXPORT RKVVASTManagerResponse {
 public:
  RKVVASTManagerResponse(std::shared_ptr<RKVConsumableVideoAd> ad, std::optional<RKVError> error)
      : ad_(std::move(ad)), error_(std::move(error)) {}

  const std::shared_ptr<RKVConsumableVideoAd>& ad() const { return ad_; }
  const std::optional<RKVError>& error() const { return error_; }

 private:
  std::shared_ptr<RKVConsumableVideoAd> ad_;
  std::optional<RKVError> error_;
};

}  // namespace rkv
