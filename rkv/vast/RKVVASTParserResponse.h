// RKVVASTParserResponse: the result of reading one VAST answer: the model when one was built,
// the error record when there was a failure; both may be set (a document without ads). Immutable.
#pragma once

#include <memory>
#include <optional>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/vast/RKVVASTModel.h"

namespace rkv {

class RKV_EXPORT RKVVASTParserResponse {
 public:
  RKVVASTParserResponse(std::shared_ptr<RKVVASTModel> model, std::optional<RKVError> error)
      : model_(std::move(model)), error_(std::move(error)) {}

  const std::shared_ptr<RKVVASTModel>& model() const { return model_; }
  const std::optional<RKVError>& error() const { return error_; }

 private:
  std::shared_ptr<RKVVASTModel> model_;
  std::optional<RKVError> error_;
};

}  // namespace rkv
