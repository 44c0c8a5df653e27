#include "rkv/net/internal/RKVHeaderFields.h"

#include <algorithm>

#include "rkv/foundation/internal/RKVText.h"

namespace rkv::internal {

bool headerNamesEqual(std::string_view a, std::string_view b) {
  return asciiEqualsIgnoringCase(a, b);
}

std::string lowercasedHeaderName(std::string_view name) {
  return asciiLowercased(name);
}

RKVHTTPHeaderFields::iterator findHeaderField(RKVHTTPHeaderFields& fields, std::string_view name) {
  return std::find_if(fields.begin(), fields.end(),
                      [&](const auto& field) { return headerNamesEqual(field.first, name); });
}

RKVHTTPHeaderFields::const_iterator findHeaderField(const RKVHTTPHeaderFields& fields,
                                                    std::string_view name) {
  return std::find_if(fields.begin(), fields.end(),
                      [&](const auto& field) { return headerNamesEqual(field.first, name); });
}

bool isSendableHeaderField(std::string_view name, std::string_view value) {
  return isHTTPToken(name) &&
         value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace rkv::internal
