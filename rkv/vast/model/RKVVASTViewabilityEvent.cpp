#include "rkv/vast/model/RKVVASTViewabilityEvent.h"

#include <utility>

#include "rkv/vast/model/internal/RKVEventNames.h"
#include "rkv/vast/model/internal/RKVModelArchive.h"

namespace rkv {

RKVVASTViewabilityEvent::RKVVASTViewabilityEvent(std::string name, RKVURL url)
    : name_(std::move(name)), url_(std::move(url)), consumable_(isEventConsumableFromName(name_)) {}

std::shared_ptr<RKVVASTViewabilityEvent> RKVVASTViewabilityEvent::viewableEventWithURL(RKVURL url) {
  return std::make_shared<RKVVASTViewabilityEvent>("viewable", std::move(url));
}

std::shared_ptr<RKVVASTViewabilityEvent> RKVVASTViewabilityEvent::notViewableEventWithURL(
    RKVURL url) {
  return std::make_shared<RKVVASTViewabilityEvent>("notviewable", std::move(url));
}

std::shared_ptr<RKVVASTViewabilityEvent> RKVVASTViewabilityEvent::viewUndeterminedEventWithURL(
    RKVURL url) {
  return std::make_shared<RKVVASTViewabilityEvent>("viewundetermined", std::move(url));
}

bool RKVVASTViewabilityEvent::isEventConsumableFromName(std::string_view name) {
  if (name == "viewable" || name == "notviewable" || name == "viewundetermined") return true;
  internal::logUnknownEventName(name);
  return false;
}

bool RKVVASTViewabilityEvent::isEqual(const RKVTrackingEvent& other) const {
  const auto* event = dynamic_cast<const RKVVASTViewabilityEvent*>(&other);
  return event != nullptr && isEqualToViewabilityEvent(*event);
}

bool RKVVASTViewabilityEvent::isEqualToViewabilityEvent(
    const RKVVASTViewabilityEvent& other) const {
  return name_ == other.name_ && url_ == other.url_;
}

std::shared_ptr<RKVVASTViewabilityEvent> RKVVASTViewabilityEvent::copy() const {
  return std::make_shared<RKVVASTViewabilityEvent>(*this);
}

std::string RKVVASTViewabilityEvent::archive() const {
  internal::RKVArchiveObject object;
  object["name"] = name_;
  object["url"] = url_.absoluteString();
  return internal::toJSON(object);
}

std::shared_ptr<RKVVASTViewabilityEvent> RKVVASTViewabilityEvent::unarchive(std::string_view json) {
  std::optional<internal::RKVArchiveObject> object = internal::fromJSON(json);
  if (!object) return nullptr;
  std::optional<std::string> name = internal::unarchiveString(*object, "name");
  std::optional<RKVURL> url = internal::unarchiveURL(*object, "url");
  if (!name || !url) return nullptr;
  return std::make_shared<RKVVASTViewabilityEvent>(std::move(*name), std::move(*url));
}

}  // namespace rkv
