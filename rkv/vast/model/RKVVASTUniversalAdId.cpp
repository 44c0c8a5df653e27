#include "rkv/vast/model/RKVVASTUniversalAdId.h"

#include <utility>

#include "rkv/vast/model/internal/RKVModelArchive.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

RKVVASTUniversalAdId::RKVVASTUniversalAdId(std::string registry, std::string value)
    : registry_(std::move(registry)), value_(std::move(value)) {}

std::optional<RKVVASTUniversalAdId> RKVVASTUniversalAdId::withRegistry(std::string registry,
                                                                       std::string value) {
  RKVVASTUniversalAdId id(std::move(registry), std::move(value));
  if (!id.isValid()) return std::nullopt;
  return id;
}

std::optional<RKVVASTUniversalAdId> RKVVASTUniversalAdId::withDictionary(
    const RKVXMLDictionary& element) {
  const std::string* registry = RKVXMLDictionaryUtils::findAttribute("_idRegistry", &element);
  const std::string* text = RKVXMLDictionaryUtils::findNodeText(&element);
  const std::string* idValue = RKVXMLDictionaryUtils::findAttribute("_idValue", &element);
  if (registry == nullptr || (text == nullptr && idValue == nullptr)) return std::nullopt;
  const std::string* value = text;
  if (value == nullptr || value->empty()) value = idValue;
  if (value == nullptr) return std::nullopt;  // an empty text and no attribute: no identifier
  return withRegistry(*registry, *value);
}

bool RKVVASTUniversalAdId::isValid() const {
  if (value_ == "unknown") return false;
  return !registry_.empty() && !value_.empty();
}

std::string RKVVASTUniversalAdId::archive() const {
  internal::RKVArchiveObject object;
  object["registry"] = registry_;
  object["value"] = value_;
  return internal::toJSON(object);
}

std::optional<RKVVASTUniversalAdId> RKVVASTUniversalAdId::unarchive(std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  if (!object) return std::nullopt;
  std::optional<std::string> registry = internal::unarchiveString(*object, "registry");
  std::optional<std::string> value = internal::unarchiveString(*object, "value");
  if (!registry || !value) return std::nullopt;
  return withRegistry(std::move(*registry), std::move(*value));
}

}  // namespace rkv
