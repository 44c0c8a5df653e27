// RKVViewabilityTrackingEvent: what a viewability tracking event manager needs from an event: the
// minimum visible share and how long it must be held without interruption before the event's
// pixel fires. Implementations are immutable model objects.
#pragma once

#include <string>
#include <utility>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/vast/model/RKVTrackingEvent.h"

namespace rkv {

class RKV_EXPORT RKVViewabilityTrackingEvent : public RKVTrackingEvent {
 public:
  // The minimum visible share, in the unit of the percentages reported to the manager (a fraction
  // from 0 to 1 when they come from RKVViewabilityManager's measurement).
  virtual double eventArea() const = 0;
  // Seconds the share must be held without interruption.
  virtual double eventExpositionTime() const = 0;
};

// A plain viewability event: a name, a URL, an area and an exposure time. Immutable.
class RKV_EXPORT RKVBasicViewabilityTrackingEvent final : public RKVViewabilityTrackingEvent {
 public:
  RKVBasicViewabilityTrackingEvent(std::string name, RKVURL url, double area, double expositionTime,
                                   bool consumable = true)
      : name_(std::move(name)),
        url_(std::move(url)),
        area_(area),
        expositionTime_(expositionTime),
        consumable_(consumable) {}

  const std::string& eventName() const override { return name_; }
  const RKVURL& eventURL() const override { return url_; }
  bool isEventConsumable() const override { return consumable_; }
  double eventArea() const override { return area_; }
  double eventExpositionTime() const override { return expositionTime_; }
  // Another RKVBasicViewabilityTrackingEvent with the same five fields.
  bool isEqual(const RKVTrackingEvent& other) const override {
    const auto* basic = dynamic_cast<const RKVBasicViewabilityTrackingEvent*>(&other);
    return basic != nullptr && name_ == basic->name_ && url_ == basic->url_ &&
           area_ == basic->area_ && expositionTime_ == basic->expositionTime_ &&
           consumable_ == basic->consumable_;
  }

 private:
  std::string name_;
  RKVURL url_;
  double area_;
  double expositionTime_;
  bool consumable_;
};

}  // namespace rkv
