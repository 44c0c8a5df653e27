// RKVTrackingEventDefaultFactory: a tracking event factory over a plain list of events, optionally
// filtered once when it is built. Immutable after construction; safe to share between threads.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVTrackingEvent.h"
#include "rkv/vast/model/RKVTrackingEventFactory.h"

namespace rkv {

class RKV_EXPORT RKVTrackingEventDefaultFactory final : public RKVTrackingEventFactory {
 public:
  using Events = std::vector<std::shared_ptr<RKVTrackingEvent>>;
  // Answers true for the events to keep. Called once per event, in list order, while the
  // factory is built; it may throw (the event is then dropped and the throw reported).
  using Filter = std::function<bool(const RKVTrackingEvent&)>;

  // The list unchanged (null entries are dropped: a manager cannot fire them).
  explicit RKVTrackingEventDefaultFactory(Events events);
  // The events the filter keeps, in list order; a null filter keeps them all.
  RKVTrackingEventDefaultFactory(Events events, const Filter& filter);

  // The events the filter keeps, in list order; a null filter keeps them all.
  static Events filterEvents(const Events& events, const Filter& filter);

  const Events& events() const { return events_; }
  Events trackingEvents() const override { return events_; }

 private:
  Events events_;
};

}  // namespace rkv
