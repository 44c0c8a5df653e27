#include "rkv/tracking/RKVViewabilityTrackingEventManagerEventProgression.h"

#include <utility>

#include "rkv/foundation/RKVRandom.h"

namespace rkv {

std::shared_ptr<RKVViewabilityTrackingEventManagerEventProgression>
RKVViewabilityTrackingEventManagerEventProgression::withEvent(
    std::shared_ptr<RKVViewabilityTrackingEvent> event) {
  if (event == nullptr) return nullptr;
  return std::shared_ptr<RKVViewabilityTrackingEventManagerEventProgression>(
      new RKVViewabilityTrackingEventManagerEventProgression(std::move(event)));
}

RKVViewabilityTrackingEventManagerEventProgression::
    RKVViewabilityTrackingEventManagerEventProgression(
        std::shared_ptr<RKVViewabilityTrackingEvent> event)
    : ID_(RKVRandom::randomUnsignedInt()), event_(std::move(event)) {}

}  // namespace rkv
