#include "rkv/net/internal/RKVHeaderFields.h"

#include <algorithm>

namespace rkv::internal {

namespace {

char asciiLower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool headerNamesEqual(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return asciiLower(x) == asciiLower(y);
         });
}

std::string lowercasedHeaderName(std::string_view name) {
  std::string lowered(name);
  std::transform(lowered.begin(), lowered.end(), lowered.begin(), asciiLower);
  return lowered;
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
  if (name.empty()) return false;
  for (char c : name) {
    if (c <= ' ' || c >= 127 || c == ':') return false;
  }
  return value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace rkv::internal
