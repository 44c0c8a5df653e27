#include "rkv/system/RKVTCFString.h"

#include <fmt/format.h>

#include "rkv/foundation/RKVUtils.h"
#include "rkv/log/RKVLog.h"

namespace rkv {

RKVTCFString::RKVTCFString(std::optional<std::string> TCFString)
    : TCFString_(std::move(TCFString)) {
  if (!TCFString_ || TCFString_->empty()) return;
  if (!RKVUtils::isValidGDPRConsentString(*TCFString_)) {
    RKVLog::sharedInstance()->logErrorWithFormat(
        "Consent string '{}' is invalid! An valid IAB consent string must be encoded in "
        "base64url without padding.",
        *TCFString_);
    return;
  }
  version_ = TCFVersionFromString(*TCFString_);
  isValid_ = version_ != TCFVersion::unknown;
}

RKVTCFString::TCFVersion RKVTCFString::TCFVersionFromString(std::string_view string) {
  if (string.empty()) return TCFVersion::unknown;
  return TCFVersionFromInteger(static_cast<int64_t>(static_cast<unsigned char>(string[0])) - 'A');
}

RKVTCFString::TCFVersion RKVTCFString::TCFVersionFromInteger(int64_t integer) {
  switch (integer) {
    case 1:
      return TCFVersion::v1;
    case 2:
      return TCFVersion::v2;
    default:
      return TCFVersion::unknown;
  }
}

std::string RKVTCFString::description() const {
  return fmt::format("RKVTCFString(TCFString: {}, isValid: {}, version: {})",
                     RKVUtils::nullableDescription(TCFString_), isValid_ ? "YES" : "NO",
                     static_cast<int64_t>(version_));
}

}  // namespace rkv
