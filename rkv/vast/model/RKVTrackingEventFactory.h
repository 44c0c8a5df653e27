// RKVTrackingEventFactory: what gives a tracking event manager its events (the VAST factory for
// video ads, the default factory for a plain list). Implementations are immutable once built.
#pragma once

#include <memory>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVTrackingEvent.h"

namespace rkv {

class RKV_EXPORT RKVTrackingEventFactory {
 public:
  virtual ~RKVTrackingEventFactory() = default;
  // The events, in order. The manager copies the list when it is built.
  virtual std::vector<std::shared_ptr<RKVTrackingEvent>> trackingEvents() const = 0;
};

}  // namespace rkv
