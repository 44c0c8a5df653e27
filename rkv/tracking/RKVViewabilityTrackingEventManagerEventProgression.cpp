#include "rkv/tracking/RKVViewabilityTrackingEventManagerEventProgression.h"

#include <utility>

#include "rkv/foundation/RKVRandom.h"

namespace rkv {

RKVViewabilityTrackingEventManagerEventProgression::
    RKVViewabilityTrackingEventManagerEventProgression(
        std::shared_ptr<RKVViewabilityTrackingEvent> event)
    : ID_(RKVRandom::randomUnsignedInt()), event_(std::move(event)) {}

}  // namespace rkv
