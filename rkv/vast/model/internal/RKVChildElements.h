// Visiting the child elements of a tree element.
#pragma once

#include <string_view>

#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv::internal {

// Calls visit(const RKVXMLDictionary&) for every element under the key of `parent`, in document
// order: each dictionary of a list, or the value itself when it is a single dictionary. Strings
// and other entries are skipped. A null parent has no children.
template <typename Visit>
void forEachChildElement(const RKVXMLDictionary* parent, std::string_view key, Visit&& visit) {
  if (parent == nullptr) return;
  const RKVXMLValue* value = parent->find(key);
  if (value == nullptr) return;
  if (const RKVXMLArray* list = value->array()) {
    for (const RKVXMLValue& entry : *list) {
      if (const RKVXMLDictionary* element = entry.dictionary()) visit(*element);
    }
  } else if (const RKVXMLDictionary* element = value->dictionary()) {
    visit(*element);
  }
}

}  // namespace rkv::internal
