// RKVXMLDictionaryUtils: the look-ups through which the VAST model reads the dictionary tree.
//
// Every operation answers null (or nullopt) instead of a value of the wrong kind and never fails;
// a null element reads as an element without the key. Returned pointers point into the tree and
// live as long as it. Stateless; any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVXMLDictionaryUtils {
 public:
  // The list under the key, or null when the value is absent or not a list.
  static const RKVXMLArray* findArrayForKey(std::string_view key,
                                            const RKVXMLDictionary* dictionary);
  // The first entry of the list under the key, when the list is non-empty and that entry is a
  // dictionary ("a child" of the element).
  static const RKVXMLDictionary* findFirstObjectOfArrayAsDictionary(
      std::string_view key, const RKVXMLDictionary* dictionary);
  // The entry at `index` of the list under the key, when it exists and is a dictionary.
  static const RKVXMLDictionary* findObjectAtIndexOfArray(size_t index, std::string_view key,
                                                          const RKVXMLDictionary* dictionary);
  // The "__text" string of the first child under the key ("the text of a child").
  static const std::string* findFirstObjectOfArrayAsString(std::string_view key,
                                                           const RKVXMLDictionary* dictionary);
  // The attribute stored under `key` ("_" included, e.g. "_version") when it is a string.
  static const std::string* findAttribute(std::string_view key, const RKVXMLDictionary* dictionary);
  // The element's "__text" when it is a string (text interrupted by children yields null).
  static const std::string* findNodeText(const RKVXMLDictionary* dictionary);
  // The string's value as a double, only when it is non-empty and made of decimal digits only:
  // "15" gives 15, "007" gives 7; "1.5", "-3", " 7" and "" give nullopt.
  static std::optional<double> stringToNSNumber(const std::string* string);
  static std::optional<double> stringToNSNumber(std::string_view string);
  // stringToNSNumber of findNodeText.
  static std::optional<double> findNodeTextAsNSNumber(const RKVXMLDictionary* dictionary);
};

}  // namespace rkv
