#include "rkv/vast/model/RKVVASTCreative.h"

#include <algorithm>
#include <utility>

namespace rkv {

std::shared_ptr<RKVVASTCreative> RKVVASTCreative::withDictionary(
    const RKVXMLDictionary& /*element*/, std::optional<RKVError>* /*error*/,
    const RKVVASTInnerErrorHandler& /*errorHandler*/, bool /*isWrapper*/) {
  return std::make_shared<RKVVASTCreative>();
}

std::shared_ptr<RKVVASTCreative> RKVVASTCreative::withDictionary(const RKVXMLDictionary& element) {
  return withDictionary(element, nullptr, {}, false);
}

std::shared_ptr<RKVVASTCreative> RKVVASTCreative::initEmptyCreative() {
  return std::make_shared<RKVVASTCreative>();
}

void RKVVASTCreative::setClickThrough(std::optional<RKVVASTURL> clickThrough) {
  clickThrough_ = std::move(clickThrough);
}

void RKVVASTCreative::addTrackingEvents(const RKVVASTTrackingEventList& events) {
  trackingEvents_.insert(trackingEvents_.end(), events.begin(), events.end());
}

void RKVVASTCreative::addUniversalAdIds(const std::vector<RKVVASTUniversalAdId>& ids) {
  for (const RKVVASTUniversalAdId& id : ids) {
    if (std::find(universalAdIds_.begin(), universalAdIds_.end(), id) == universalAdIds_.end())
      universalAdIds_.push_back(id);
  }
}

bool RKVVASTCreative::isValidForWrapper(bool /*isWrapper*/) const {
  return false;
}

void RKVVASTCreative::readTrackingEvents(const RKVXMLDictionary& element) {
  std::optional<RKVVASTTrackingEventList> events =
      RKVVASTTrackingEvent::findTrackingEvents(element);
  if (!events) return;
  if (trackingEvents_.empty()) {
    trackingEvents_ = std::move(*events);
  } else {
    addTrackingEvents(*events);
  }
}

void RKVVASTCreative::readClickThrough(const std::string* text) {
  if (std::optional<RKVVASTURL> url = RKVVASTURL::fromXML(text)) clickThrough_ = std::move(url);
}

void RKVVASTCreative::readClickTracking(const RKVXMLArray* entries) {
  if (entries == nullptr) return;
  for (const RKVXMLValue& entry : *entries) {
    if (std::optional<RKVVASTURL> url = RKVVASTURL::fromXML(entry))
      clickTracking_.push_back(std::move(*url));
  }
}

}  // namespace rkv
