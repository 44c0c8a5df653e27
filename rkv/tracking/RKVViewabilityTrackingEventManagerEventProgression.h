// RKVViewabilityTrackingEventManagerEventProgression: the running state of one viewability event:
// how long the ad has been continuously visible enough for it. Main-loop only, as its manager.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/tracking/RKVViewabilityTrackingEvent.h"

namespace rkv {

class RKV_EXPORT RKVViewabilityTrackingEventManagerEventProgression {
 public:
  // A random ID (RKVRandom::randomUnsignedInt), duration 0; null when `event` is null.
  static std::shared_ptr<RKVViewabilityTrackingEventManagerEventProgression> withEvent(
      std::shared_ptr<RKVViewabilityTrackingEvent> event);

  uint32_t ID() const { return ID_; }
  const std::shared_ptr<RKVViewabilityTrackingEvent>& event() const { return event_; }
  // Seconds of continuous exposure so far.
  double currentDuration() const { return currentDuration_; }

  const std::string& name() const { return event_->eventName(); }
  const RKVURL& URL() const { return event_->eventURL(); }
  double area() const { return event_->eventArea(); }
  double duration() const { return event_->eventExpositionTime(); }

  void increaseCurrentDuration(double seconds) { currentDuration_ += seconds; }
  void resetCurrentDuration() { currentDuration_ = 0; }
  bool isDurationReached() const { return currentDuration_ >= duration(); }

  // Same ID.
  bool isEqual(const RKVViewabilityTrackingEventManagerEventProgression& other) const {
    return ID_ == other.ID_;
  }

 private:
  explicit RKVViewabilityTrackingEventManagerEventProgression(
      std::shared_ptr<RKVViewabilityTrackingEvent> event);

  uint32_t ID_;
  std::shared_ptr<RKVViewabilityTrackingEvent> event_;
  double currentDuration_ = 0;
};

}  // namespace rkv
