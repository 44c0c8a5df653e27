#include "rkv/foundation/RKVError.h"

#include <utility>

#include <fmt/format.h>

namespace rkv {

RKVError::RKVError(std::string errorDomain, int64_t errorCode,
                   std::optional<std::string> description,
                   std::shared_ptr<const RKVVASTError> originatingError)
    : domain(std::move(errorDomain)),
      code(errorCode),
      localizedDescription(std::move(description)),
      vastError(std::move(originatingError)) {}

std::string RKVError::description() const {
  if (localizedDescription) {
    return fmt::format("Error Domain={} Code={} \"{}\"", domain, code, *localizedDescription);
  }
  return fmt::format("Error Domain={} Code={}", domain, code);
}

bool operator==(const RKVError& a, const RKVError& b) {
  return a.domain == b.domain && a.code == b.code &&
         a.localizedDescription == b.localizedDescription;
}

}  // namespace rkv
