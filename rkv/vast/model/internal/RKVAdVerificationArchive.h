// Archives of the verification classes as JSON objects, so that they nest inside the archives
// of the classes that hold them (a verification's resources, an ad's verifications, the ad
// extension's scripts). Each reader goes through the class's own initializer and answers null
// where the class's unarchive does.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "rkv/vast/model/RKVVASTAdExtensionAdVerification.h"
#include "rkv/vast/model/RKVVASTAdVerification.h"
#include "rkv/vast/model/RKVVASTAdVerificationEvent.h"
#include "rkv/vast/model/RKVVASTAdVerificationResource.h"
#include "rkv/vast/model/internal/RKVModelArchive.h"

namespace rkv::internal {

RKVArchiveObject archiveObject(const RKVVASTAdVerificationEvent& event);
RKVArchiveObject archiveObject(const RKVVASTAdVerificationResource& resource);
RKVArchiveObject archiveObject(const RKVVASTAdVerification& verification);
RKVArchiveObject archiveObject(const RKVVASTAdExtensionAdVerification& script);

std::shared_ptr<RKVVASTAdVerificationEvent> unarchiveVerificationEvent(
    const RKVArchiveObject& object);
std::shared_ptr<RKVVASTAdVerificationResource> unarchiveVerificationResource(
    const RKVArchiveObject& object);
std::shared_ptr<RKVVASTAdVerification> unarchiveAdVerification(const RKVArchiveObject& object);
std::shared_ptr<RKVVASTAdExtensionAdVerification> unarchiveExtensionScript(
    const RKVArchiveObject& object);

// The integer under the key, or nullopt when it is absent, not an integer or outside the
// signed 64-bit range.
std::optional<int64_t> unarchiveInteger(const RKVArchiveObject& object, const char* key);

}  // namespace rkv::internal
