#include "rkv/vast/model/internal/RKVAdVerificationArchive.h"

#include <limits>
#include <utility>

namespace rkv::internal {

namespace {

// Each object of the list under the key read with `read`; entries that are not objects or read
// back as null are skipped.
template <typename Read>
auto unarchiveList(const RKVArchiveObject& object, const char* key, Read read) {
  std::vector<decltype(read(object))> list;
  auto it = object.find(key);
  if (it == object.end() || !it->is_array()) return list;
  list.reserve(it->size());
  for (const RKVArchiveObject& entry : *it) {
    if (!entry.is_object()) continue;
    if (auto value = read(entry)) list.push_back(std::move(value));
  }
  return list;
}

template <typename T>
RKVArchiveObject archiveList(const std::vector<std::shared_ptr<T>>& list) {
  RKVArchiveObject array = RKVArchiveObject::array();
  for (const auto& entry : list)
    array.push_back(archiveObject(*entry));
  return array;
}

}  // namespace

RKVArchiveObject archiveObject(const RKVVASTAdVerificationEvent& event) {
  RKVArchiveObject object;
  object["name"] = event.name();
  object["url"] = event.url().absoluteString();
  return object;
}

RKVArchiveObject archiveObject(const RKVVASTAdVerificationResource& resource) {
  RKVArchiveObject object;
  object["type"] = resource.type();
  object["url"] = resource.url().absoluteString();
  archiveString(object, "apiFramework", resource.apiFramework());
  object["browserOptional"] = resource.browserOptional();
  archiveString(object, "executableType", resource.executableType());
  return object;
}

RKVArchiveObject archiveObject(const RKVVASTAdVerification& verification) {
  RKVArchiveObject object;
  archiveString(object, "vendor", verification.vendor());
  object["resources"] = archiveList(verification.resources());
  object["trackingEvents"] = archiveList(verification.trackingEvents());
  archiveString(object, "verificationParameters", verification.verificationParameters());
  return object;
}

RKVArchiveObject archiveObject(const RKVVASTAdExtensionAdVerification& script) {
  RKVArchiveObject object;
  object["javascriptResourceURL"] = script.javascriptResourceURL().absoluteString();
  archiveString(object, "vendor", script.vendor());
  archiveString(object, "verificationParameters", script.verificationParameters());
  return object;
}

std::shared_ptr<RKVVASTAdVerificationEvent> unarchiveVerificationEvent(
    const RKVArchiveObject& object) {
  std::optional<std::string> name = unarchiveString(object, "name");
  std::optional<RKVURL> url = unarchiveURL(object, "url");
  if (!name || !url) return nullptr;
  return RKVVASTAdVerificationEvent::withName(std::move(*name), std::move(*url));
}

std::shared_ptr<RKVVASTAdVerificationResource> unarchiveVerificationResource(
    const RKVArchiveObject& object) {
  std::optional<RKVURL> url = unarchiveURL(object, "url");
  if (!url) return nullptr;
  return std::make_shared<RKVVASTAdVerificationResource>(
      unarchiveInteger(object, "type").value_or(0), std::move(*url),
      unarchiveString(object, "apiFramework"),
      unarchiveBool(object, "browserOptional").value_or(false),
      unarchiveString(object, "executableType"));
}

std::shared_ptr<RKVVASTAdVerification> unarchiveAdVerification(const RKVArchiveObject& object) {
  return std::make_shared<RKVVASTAdVerification>(
      unarchiveString(object, "vendor"),
      unarchiveList(object, "resources", unarchiveVerificationResource),
      unarchiveList(object, "trackingEvents", unarchiveVerificationEvent),
      unarchiveString(object, "verificationParameters"));
}

std::shared_ptr<RKVVASTAdExtensionAdVerification> unarchiveExtensionScript(
    const RKVArchiveObject& object) {
  std::optional<RKVURL> url = unarchiveURL(object, "javascriptResourceURL");
  if (!url) return nullptr;
  return std::make_shared<RKVVASTAdExtensionAdVerification>(
      std::move(*url), unarchiveString(object, "vendor"),
      unarchiveString(object, "verificationParameters"));
}

std::optional<int64_t> unarchiveInteger(const RKVArchiveObject& object, const char* key) {
  auto it = object.find(key);
  if (it == object.end() || !it->is_number_integer()) return std::nullopt;
  if (it->is_number_unsigned()) {
    const uint64_t value = it->get<uint64_t>();
    if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return std::nullopt;
    return static_cast<int64_t>(value);
  }
  return it->get<int64_t>();
}

}  // namespace rkv::internal
