#include "rkv/system/RKVCCPAString.h"

namespace rkv {

RKVCCPAString::RKVCCPAString(std::optional<std::string> CCPAString)
    : CCPAString_(std::move(CCPAString)) {
  // Bytes and characters agree here: a text of 4 bytes with anything beyond ASCII fails the
  // character checks either way.
  if (!CCPAString_ || CCPAString_->size() != 4 || (*CCPAString_)[0] != '1') return;
  if (hasInvalidCharacters(*CCPAString_, 1, 4)) return;
  isValid_ = true;
  version_ = CCPAVersion::v1;
}

bool RKVCCPAString::hasInvalidCharacters(std::string_view string, size_t fromIndex,
                                         size_t toIndex) {
  for (size_t i = fromIndex; i < toIndex; ++i) {
    if (i >= string.size()) return true;
    const char c = string[i];
    if (c != 'Y' && c != 'N' && c != '-') return true;
  }
  return false;
}

}  // namespace rkv
