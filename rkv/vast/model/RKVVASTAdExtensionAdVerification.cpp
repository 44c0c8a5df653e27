#include "rkv/vast/model/RKVVASTAdExtensionAdVerification.h"

#include <utility>

#include "rkv/vast/model/internal/RKVAdVerificationArchive.h"

namespace rkv {

RKVVASTAdExtensionAdVerification::RKVVASTAdExtensionAdVerification(
    RKVURL javascriptResourceURL, std::optional<std::string> vendor,
    std::optional<std::string> verificationParameters)
    : javascriptResourceURL_(std::move(javascriptResourceURL)),
      vendor_(std::move(vendor)),
      verificationParameters_(std::move(verificationParameters)) {}

bool RKVVASTAdExtensionAdVerification::isEqualToScript(
    const RKVVASTAdExtensionAdVerification& other) const {
  return this == &other ||
         (javascriptResourceURL_ == other.javascriptResourceURL_ && vendor_ == other.vendor_ &&
          verificationParameters_ == other.verificationParameters_);
}

std::shared_ptr<RKVVASTAdExtensionAdVerification> RKVVASTAdExtensionAdVerification::copy() const {
  return std::make_shared<RKVVASTAdExtensionAdVerification>(*this);
}

std::string RKVVASTAdExtensionAdVerification::archive() const {
  return internal::toJSON(internal::archiveObject(*this));
}

std::shared_ptr<RKVVASTAdExtensionAdVerification> RKVVASTAdExtensionAdVerification::unarchive(
    std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  return object ? internal::unarchiveExtensionScript(*object) : nullptr;
}

}  // namespace rkv
