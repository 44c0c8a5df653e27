#include "rkv/vast/model/internal/RKVModelArchive.h"

namespace rkv::internal {

namespace {

const RKVArchiveObject* member(const RKVArchiveObject& object, const char* key) {
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

}  // namespace

std::string toJSON(const RKVArchiveObject& object) {
  return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<RKVArchiveObject> fromJSON(std::string_view text) {
  RKVArchiveObject object =
      RKVArchiveObject::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
  if (!object.is_object()) return std::nullopt;  // also a discarded (malformed) text
  return object;
}

void archiveString(RKVArchiveObject& object, const char* key,
                   const std::optional<std::string>& value) {
  if (value) object[key] = *value;
}

std::optional<std::string> unarchiveString(const RKVArchiveObject& object, const char* key) {
  const RKVArchiveObject* value = member(object, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<double> unarchiveNumber(const RKVArchiveObject& object, const char* key) {
  const RKVArchiveObject* value = member(object, key);
  if (value == nullptr || !value->is_number()) return std::nullopt;
  return value->get<double>();
}

std::optional<bool> unarchiveBool(const RKVArchiveObject& object, const char* key) {
  const RKVArchiveObject* value = member(object, key);
  if (value == nullptr || !value->is_boolean()) return std::nullopt;
  return value->get<bool>();
}

std::optional<RKVURL> unarchiveURL(const RKVArchiveObject& object, const char* key) {
  std::optional<std::string> text = unarchiveString(object, key);
  if (!text) return std::nullopt;
  return RKVURL::withString(*text);
}

}  // namespace rkv::internal
