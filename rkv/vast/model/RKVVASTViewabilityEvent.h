// RKVVASTViewabilityEvent: one viewability URL of a VAST ad ("viewable", "notviewable" or
// "viewundetermined"). Immutable after construction; safe to share between threads.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/vast/model/RKVTrackingEvent.h"

namespace rkv {

class RKV_EXPORT RKVVASTViewabilityEvent : public RKVTrackingEvent {
 public:
  // isEventConsumable is isEventConsumableFromName(name).
  RKVVASTViewabilityEvent(std::string name, RKVURL url);

  static std::shared_ptr<RKVVASTViewabilityEvent> viewableEventWithURL(RKVURL url);
  static std::shared_ptr<RKVVASTViewabilityEvent> notViewableEventWithURL(RKVURL url);
  static std::shared_ptr<RKVVASTViewabilityEvent> viewUndeterminedEventWithURL(RKVURL url);

  // True for "viewable", "notviewable" and "viewundetermined". Any other name is logged at debug
  // level and answers false.
  static bool isEventConsumableFromName(std::string_view name);

  const std::string& name() const { return name_; }
  const RKVURL& url() const { return url_; }

  // RKVTrackingEvent.
  const std::string& eventName() const override { return name_; }
  const RKVURL& eventURL() const override { return url_; }
  bool isEventConsumable() const override { return consumable_; }
  bool isEqual(const RKVTrackingEvent& other) const override;

  // Name and URL equal.
  bool isEqualToViewabilityEvent(const RKVVASTViewabilityEvent& other) const;
  friend bool operator==(const RKVVASTViewabilityEvent& a, const RKVVASTViewabilityEvent& b) {
    return a.isEqualToViewabilityEvent(b);
  }

  std::shared_ptr<RKVVASTViewabilityEvent> copy() const;

  // Keys "name", "url".
  std::string archive() const;
  // Null when the text is not a JSON object, or "name" or "url" is missing or "url" does not
  // parse.
  static std::shared_ptr<RKVVASTViewabilityEvent> unarchive(std::string_view json);

 private:
  std::string name_;
  RKVURL url_;
  bool consumable_;
};

}  // namespace rkv
