#include "rkv/vast/model/RKVVASTURL.h"

#include "rkv/foundation/RKVUtils.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

std::optional<RKVVASTURL> RKVVASTURL::withString(std::string_view string) {
  if (RKVUtils::stringIsEmptyOrWhiteSpace(string)) return std::nullopt;
  std::optional<RKVURL> url = RKVURL::withString(string);
  if (!url) return std::nullopt;
  return RKVVASTURL(std::move(*url));
}

std::optional<RKVVASTURL> RKVVASTURL::fromXML(const RKVXMLValue& value) {
  if (const std::string* string = value.string()) return withString(*string);
  if (const RKVXMLDictionary* element = value.dictionary()) {
    return fromXML(RKVXMLDictionaryUtils::findNodeText(element));
  }
  return std::nullopt;
}

std::optional<RKVVASTURL> RKVVASTURL::fromXML(const std::string* text) {
  if (text == nullptr) return std::nullopt;
  return withString(*text);
}

std::string RKVVASTURL::description() const {
  return "RKVVASTURL(url=" + url_.absoluteString() + ")";
}

}  // namespace rkv
