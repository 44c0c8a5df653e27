#include "rkv/vast/model/RKVVASTTrackingEvent.h"

#include <utility>

#include "rkv/vast/model/internal/RKVElementReading.h"
#include "rkv/vast/model/internal/RKVEventNames.h"
#include "rkv/vast/model/internal/RKVModelArchive.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

RKVVASTTrackingEvent::RKVVASTTrackingEvent(std::string name, std::optional<std::string> offset,
                                           RKVURL url, double eventOffset)
    : name_(std::move(name)),
      offset_(std::move(offset)),
      url_(std::move(url)),
      eventOffset_(eventOffset),
      consumable_(isEventConsumableFromName(name_)) {}

std::shared_ptr<RKVVASTTrackingEvent> RKVVASTTrackingEvent::withDictionary(
    const RKVXMLDictionary& element) {
  const std::string* name = RKVXMLDictionaryUtils::findAttribute("_event", &element);
  const std::string* text = RKVXMLDictionaryUtils::findNodeText(&element);
  if (name == nullptr || text == nullptr) return nullptr;
  if (!internal::isAcceptedTrackingElementName(*name)) return nullptr;
  std::optional<RKVURL> url = RKVURL::withString(*text);
  if (!url) return nullptr;
  return std::make_shared<RKVVASTTrackingEvent>(*name, internal::attributeText("_offset", element),
                                                std::move(*url));
}

std::shared_ptr<RKVVASTTrackingEvent> RKVVASTTrackingEvent::withExtensionDictionary(
    const RKVXMLDictionary& element) {
  const std::string* name = RKVXMLDictionaryUtils::findAttribute("_name", &element);
  const std::string* text = RKVXMLDictionaryUtils::findNodeText(&element);
  if (name == nullptr || text == nullptr) return nullptr;
  std::optional<std::string> eventName = convertExtensionNameToVASTTrackingName(*name);
  if (!eventName) return nullptr;
  std::optional<RKVURL> url = RKVURL::withString(*text);
  if (!url) return nullptr;
  return std::make_shared<RKVVASTTrackingEvent>(
      std::move(*eventName), internal::attributeText("_offset", element), std::move(*url));
}

std::optional<std::vector<std::shared_ptr<RKVVASTTrackingEvent>>>
RKVVASTTrackingEvent::findTrackingEvents(const RKVXMLDictionary& element) {
  const RKVXMLDictionary* trackingEvents =
      RKVXMLDictionaryUtils::findFirstObjectOfArrayAsDictionary("TrackingEvents", &element);
  if (trackingEvents == nullptr) return std::nullopt;
  const RKVXMLArray* entries = RKVXMLDictionaryUtils::findArrayForKey("Tracking", trackingEvents);
  if (entries == nullptr) return std::nullopt;
  std::vector<std::shared_ptr<RKVVASTTrackingEvent>> events;
  events.reserve(entries->size());
  for (const RKVXMLValue& entry : *entries) {
    const RKVXMLDictionary* tracking = entry.dictionary();
    if (tracking == nullptr) continue;
    if (auto event = withDictionary(*tracking)) events.push_back(std::move(event));
  }
  if (events.empty()) return std::nullopt;
  return events;
}

std::optional<std::string> RKVVASTTrackingEvent::convertExtensionNameToVASTTrackingName(
    std::string_view name) {
  if (name == "viewcount") return std::string("viewcount");
  return std::nullopt;
}

bool RKVVASTTrackingEvent::isEventConsumableFromName(std::string_view name) {
  switch (internal::trackingEventNameKind(name)) {
    case internal::RKVEventNameKind::consumable:
      return true;
    case internal::RKVEventNameKind::nonConsumable:
      return false;
    case internal::RKVEventNameKind::unknown:
      break;
  }
  internal::logUnknownEventName(name);
  return false;
}

bool RKVVASTTrackingEvent::isEqual(const RKVTrackingEvent& other) const {
  const auto* event = dynamic_cast<const RKVVASTTrackingEvent*>(&other);
  return event != nullptr && isEqualToTrackingEvent(*event);
}

bool RKVVASTTrackingEvent::isEqualToTrackingEvent(const RKVVASTTrackingEvent& other) const {
  return this == &other || (name_ == other.name_ && offset_ == other.offset_ &&
                            url_ == other.url_ && eventOffset_ == other.eventOffset_);
}

std::shared_ptr<RKVVASTTrackingEvent> RKVVASTTrackingEvent::copy() const {
  return std::make_shared<RKVVASTTrackingEvent>(*this);
}

std::string RKVVASTTrackingEvent::archive() const {
  internal::RKVArchiveObject object;
  object["name"] = name_;
  internal::archiveString(object, "offset", offset_);
  object["url"] = url_.absoluteString();
  object["eventOffset"] = eventOffset_;
  return internal::toJSON(object);
}

std::shared_ptr<RKVVASTTrackingEvent> RKVVASTTrackingEvent::unarchive(std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  if (!object) return nullptr;
  std::optional<std::string> name = internal::unarchiveString(*object, "name");
  std::optional<RKVURL> url = internal::unarchiveURL(*object, "url");
  if (!name || !url) return nullptr;
  return std::make_shared<RKVVASTTrackingEvent>(
      std::move(*name), internal::unarchiveString(*object, "offset"), std::move(*url),
      internal::unarchiveNumber(*object, "eventOffset").value_or(-1.0));
}

}  // namespace rkv
