// The event protocols of the tracking machinery: what a tracking event manager needs from an
// event to fire it. Implementations are model objects, built on one thread and then read.
#pragma once

#include <string>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"

namespace rkv {

// An event that turns into one URL call when it happens.
class RKV_EXPORT RKVTrackingEvent {
 public:
  virtual ~RKVTrackingEvent() = default;

  // The event's name ("start", "viewable", ...); names are compared exactly.
  virtual const std::string& eventName() const = 0;
  // The URL to call; a template that may hold macros.
  virtual const RKVURL& eventURL() const = 0;
  // True when the event fires at most once and is then removed; false when it may fire every
  // time it happens.
  virtual bool isEventConsumable() const = 0;
  // Equality as the event's own type defines it; false for an event of another type. Tracking
  // managers find and remove events with it.
  virtual bool isEqual(const RKVTrackingEvent& other) const = 0;
};

// An event that may also fire by itself at a position of the media.
class RKV_EXPORT RKVVideoTrackingEvent : public RKVTrackingEvent {
 public:
  // Seconds from the start of the media at which the event fires; negative when the event is not
  // fired by time.
  virtual double eventOffset() const = 0;
};

}  // namespace rkv
