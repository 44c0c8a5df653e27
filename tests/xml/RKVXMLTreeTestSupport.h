// Helpers for the XML tree tests: an ordered, unambiguous dump of a tree, so that tests can
// compare shape and key order in one assertion.
#pragma once

#include <string>

#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv::test {

// {"k":v,...} with keys in key order, [a,b] for lists, "text" for strings, null for absent.
inline std::string dump(const RKVXMLValue& value) {
  if (value.isNull()) return "null";
  if (const std::string* text = value.string()) return "\"" + *text + "\"";
  if (const RKVXMLArray* list = value.array()) {
    std::string out = "[";
    for (size_t i = 0; i < list->size(); ++i) {
      if (i) out += ",";
      out += dump((*list)[i]);
    }
    return out + "]";
  }
  std::string out = "{";
  bool first = true;
  for (const auto& [key, item] : value.dictionary()->entries()) {
    if (!first) out += ",";
    first = false;
    out += "\"" + key + "\":" + dump(item);
  }
  return out + "}";
}

inline std::string dump(const RKVXMLDictionaryPtr& dictionary) {
  return dump(RKVXMLValue(dictionary));
}

}  // namespace rkv::test
