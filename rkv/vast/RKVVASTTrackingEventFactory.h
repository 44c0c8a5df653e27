// RKVVASTTrackingEventFactory: the tracking events of a linear VAST creative, each given the
// time at which it fires, in seconds from the start of the content. Immutable once built;
// thread-safe to read.
//
// Quartile events get their share of the content's length ("start" 0 %, "firstQuartile" 25 %,
// "midpoint" 50 %, "thirdQuartile" 75 %, "complete" 100 %); an offset attribute, as a clock time
// or a percentage, wins over the name. Every other event keeps -1: it is not fired by time.
#pragma once

#include <memory>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVTrackingEventFactory.h"
#include "rkv/vast/model/RKVVASTTrackingEvent.h"

namespace rkv {

class RKV_EXPORT RKVVASTTrackingEventFactory final : public RKVTrackingEventFactory {
 public:
  // trackingEventsFromVASTTrackingEvents of the arguments.
  RKVVASTTrackingEventFactory(const std::vector<std::shared_ptr<RKVVASTTrackingEvent>>& events,
                              double contentTotalTime);

  // The events, in order.
  std::vector<std::shared_ptr<RKVTrackingEvent>> trackingEvents() const override;
  const std::vector<std::shared_ptr<RKVVASTTrackingEvent>>& events() const { return events_; }

  // Sets each event's eventOffset (the events are changed in place) and returns the same events
  // in the same order; null entries are left out.
  static std::vector<std::shared_ptr<RKVVASTTrackingEvent>> trackingEventsFromVASTTrackingEvents(
      const std::vector<std::shared_ptr<RKVVASTTrackingEvent>>& events, double contentTotalTime);

 private:
  const std::vector<std::shared_ptr<RKVVASTTrackingEvent>> events_;
};

}  // namespace rkv
