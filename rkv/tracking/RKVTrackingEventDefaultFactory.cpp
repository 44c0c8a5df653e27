#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"

#include <utility>

#include "rkv/foundation/internal/RKVHostCall.h"

namespace rkv {

RKVTrackingEventDefaultFactory::RKVTrackingEventDefaultFactory(Events events)
    : events_(filterEvents(events, nullptr)) {}

RKVTrackingEventDefaultFactory::RKVTrackingEventDefaultFactory(Events events, const Filter& filter)
    : events_(filterEvents(events, filter)) {}

RKVTrackingEventDefaultFactory::Events RKVTrackingEventDefaultFactory::filterEvents(
    const Events& events, const Filter& filter) {
  Events kept;
  kept.reserve(events.size());
  for (const auto& event : events) {
    if (event == nullptr) continue;
    if (filter && !internal::callHostOrDefault("RKVTrackingEventDefaultFactory filter",
                                               [&] { return filter(*event); }))
      continue;
    kept.push_back(event);
  }
  return kept;
}

}  // namespace rkv
