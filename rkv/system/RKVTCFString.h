// RKVTCFString: an IAB Transparency and Consent Framework string with its validity and version.
// The raw text is kept even when it is invalid, so that callers can forward it. Immutable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVTCFString {
 public:
  enum class TCFVersion : int64_t { unknown = -1, v1 = 1, v2 = 2 };

  // Valid when the text is present, not empty, made of the base64url alphabet and "." (no
  // padding; RKVUtils::isValidGDPRConsentString) and its first character names version 1 ("B")
  // or 2 ("C"). A text that fails the character check is logged at error level; a missing or
  // empty text and an unknown version are not.
  explicit RKVTCFString(std::optional<std::string> TCFString);

  // The raw text as given.
  const std::optional<std::string>& TCFString() const { return TCFString_; }
  bool isValid() const { return isValid_; }
  // v1, v2, or unknown when the text is invalid.
  TCFVersion version() const { return version_; }

  // TCFVersionFromInteger of the first character's code minus that of "A"; unknown for the empty
  // text.
  static TCFVersion TCFVersionFromString(std::string_view string);
  // 1 and 2 are themselves; anything else is unknown (-1).
  static TCFVersion TCFVersionFromInteger(int64_t integer);

  // "RKVTCFString(TCFString: <text or (null)>, isValid: <YES|NO>, version: <number>)".
  std::string description() const;

 private:
  std::optional<std::string> TCFString_;
  bool isValid_ = false;
  TCFVersion version_ = TCFVersion::unknown;
};

}  // namespace rkv
