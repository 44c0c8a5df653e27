// RKVCCPAString: an IAB US Privacy string with its validity and version. The raw text is kept
// even when it is invalid, so that callers can forward it. Immutable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVCCPAString {
 public:
  enum class CCPAVersion : int64_t { invalid = -1, v1 = 1 };

  // Valid, version 1, when the text has exactly 4 characters, the first is "1" and the other
  // three are each "Y", "N" or "-" (upper case only). Nothing is logged.
  explicit RKVCCPAString(std::optional<std::string> CCPAString);

  // The raw text as given.
  const std::optional<std::string>& CCPAString() const { return CCPAString_; }
  bool isValid() const { return isValid_; }
  // v1, or invalid.
  CCPAVersion version() const { return version_; }

  // True when a character at an index in [fromIndex, toIndex) is not "Y", "N" or "-". An index
  // the text does not reach counts as an invalid character; an empty range has none.
  static bool hasInvalidCharacters(std::string_view string, size_t fromIndex, size_t toIndex);

 private:
  std::optional<std::string> CCPAString_;
  bool isValid_ = false;
  CCPAVersion version_ = CCPAVersion::invalid;
};

}  // namespace rkv
