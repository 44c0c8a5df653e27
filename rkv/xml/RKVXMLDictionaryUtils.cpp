#include "rkv/xml/RKVXMLDictionaryUtils.h"

#include <charconv>
#include <limits>

#include "rkv/foundation/RKVUtils.h"

namespace rkv {

const RKVXMLArray* RKVXMLDictionaryUtils::findArrayForKey(std::string_view key,
                                                          const RKVXMLDictionary* dictionary) {
  if (!dictionary) return nullptr;
  const RKVXMLValue* value = dictionary->find(key);
  return value ? value->array() : nullptr;
}

const RKVXMLDictionary* RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary(
    std::string_view key, const RKVXMLDictionary* dictionary) {
  return findObjectAtIndexOfArray(0, key, dictionary);
}

const RKVXMLDictionary* RKVXMLDictionaryUtils::findObjectAtIndexOfArray(
    size_t index, std::string_view key, const RKVXMLDictionary* dictionary) {
  const RKVXMLArray* list = findArrayForKey(key, dictionary);
  if (!list || list->size() <= index) return nullptr;
  return (*list)[index].dictionary();
}

const std::string* RKVXMLDictionaryUtils::findFirstObjectOfArrayAsString(
    std::string_view key, const RKVXMLDictionary* dictionary) {
  return findNodeText(findFirstObjectOfArrayAsDictionary(key, dictionary));
}

const std::string* RKVXMLDictionaryUtils::findAttribute(std::string_view key,
                                                        const RKVXMLDictionary* dictionary) {
  if (!dictionary) return nullptr;
  const RKVXMLValue* value = dictionary->find(key);
  return value ? value->string() : nullptr;
}

const std::string* RKVXMLDictionaryUtils::findNodeText(const RKVXMLDictionary* dictionary) {
  return findAttribute("__text", dictionary);
}

std::optional<double> RKVXMLDictionaryUtils::stringToNSNumber(std::string_view string) {
  if (!RKVUtils::stringIsDigitsOnly(string)) return std::nullopt;
  double value = 0;
  auto [end, error] = std::from_chars(string.data(), string.data() + string.size(), value);
  if (error == std::errc::result_out_of_range) return std::numeric_limits<double>::infinity();
  if (error != std::errc() || end != string.data() + string.size()) return std::nullopt;
  return value;
}

std::optional<double> RKVXMLDictionaryUtils::stringToNSNumber(const std::string* string) {
  if (!string) return std::nullopt;
  return stringToNSNumber(std::string_view(*string));
}

std::optional<double> RKVXMLDictionaryUtils::findNodeTextAsNSNumber(
    const RKVXMLDictionary* dictionary) {
  return stringToNSNumber(findNodeText(dictionary));
}

}  // namespace rkv
