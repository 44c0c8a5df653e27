#include "rkv/vast/model/RKVVASTAdVerificationEvent.h"

#include <optional>
#include <utility>

#include "rkv/vast/model/internal/RKVAdVerificationArchive.h"
#include "rkv/vast/model/internal/RKVEventNames.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

namespace {

constexpr std::string_view kVerificationNotExecuted = "verificationNotExecuted";

}  // namespace

RKVVASTAdVerificationEvent::RKVVASTAdVerificationEvent(std::string name, RKVURL url,
                                                       bool consumable)
    : name_(std::move(name)), url_(std::move(url)), consumable_(consumable) {}

std::shared_ptr<RKVVASTAdVerificationEvent> RKVVASTAdVerificationEvent::withName(std::string name,
                                                                                 RKVURL url) {
  const bool consumable = isEventConsumableFromName(name);
  if (name != kVerificationNotExecuted) return nullptr;
  return std::shared_ptr<RKVVASTAdVerificationEvent>(
      new RKVVASTAdVerificationEvent(std::move(name), std::move(url), consumable));
}

std::shared_ptr<RKVVASTAdVerificationEvent> RKVVASTAdVerificationEvent::withDictionary(
    const RKVXMLDictionary& element) {
  const std::string* name = RKVXMLDictionaryUtils::findAttribute("_event", &element);
  const std::string* text = RKVXMLDictionaryUtils::findNodeText(&element);
  if (name == nullptr || text == nullptr) return nullptr;
  std::optional<RKVURL> url = RKVURL::withString(*text);
  if (!url) return nullptr;
  return withName(*name, std::move(*url));
}

bool RKVVASTAdVerificationEvent::isEventConsumableFromName(std::string_view name) {
  if (name == kVerificationNotExecuted) return true;
  // No verification event is non-consumable; every other name is unknown.
  internal::logUnknownEventName(name);
  return false;
}

bool RKVVASTAdVerificationEvent::isEqual(const RKVTrackingEvent& other) const {
  const auto* event = dynamic_cast<const RKVVASTAdVerificationEvent*>(&other);
  return event != nullptr && isEqualToVerificationEvent(*event);
}

bool RKVVASTAdVerificationEvent::isEqualToVerificationEvent(
    const RKVVASTAdVerificationEvent& other) const {
  return this == &other || (name_ == other.name_ && url_ == other.url_);
}

std::shared_ptr<RKVVASTAdVerificationEvent> RKVVASTAdVerificationEvent::copy() const {
  return std::shared_ptr<RKVVASTAdVerificationEvent>(new RKVVASTAdVerificationEvent(*this));
}

std::string RKVVASTAdVerificationEvent::archive() const {
  return internal::toJSON(internal::archiveObject(*this));
}

std::shared_ptr<RKVVASTAdVerificationEvent> RKVVASTAdVerificationEvent::unarchive(
    std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  return object ? internal::unarchiveVerificationEvent(*object) : nullptr;
}

}  // namespace rkv
