// Small readings of the dictionary tree shared by the VAST model classes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "rkv/foundation/RKVTextValues.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv::internal {

// A copy of the text, or nullopt for a null one.
inline std::optional<std::string> optionalText(const std::string* text) {
  if (text == nullptr) return std::nullopt;
  return *text;
}

// A copy of the attribute ("_" included in the key), or nullopt.
inline std::optional<std::string> attributeText(std::string_view key,
                                                const RKVXMLDictionary& element) {
  return optionalText(RKVXMLDictionaryUtils::findAttribute(key, &element));
}

// The float reading of the attribute (0 when absent).
inline float floatAttribute(std::string_view key, const RKVXMLDictionary& element) {
  return RKVTextValues::floatValue(RKVXMLDictionaryUtils::findAttribute(key, &element));
}

// The boolean reading of the attribute (false when absent).
inline bool boolAttribute(std::string_view key, const RKVXMLDictionary& element) {
  return RKVTextValues::boolValue(RKVXMLDictionaryUtils::findAttribute(key, &element));
}

// A copy of the text of the first child under the key, or nullopt.
inline std::optional<std::string> childText(std::string_view key, const RKVXMLDictionary& element) {
  return optionalText(RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString(key, &element));
}

}  // namespace rkv::internal
