#include "rkv/foundation/RKVTimerTarget.h"

#include "rkv/foundation/internal/RKVHostCall.h"

namespace rkv {

void RKVTimerTarget::timerFired(const RKVTimerHandle& timer) {
  if (invalidated_ || !completionHandler_) return;
  internal::callHost("RKVTimerTarget completion handler", [&] { completionHandler_(timer); });
}

}  // namespace rkv
