// RKVTrackingEventManagerDelegate: what a tracking event manager tells its owner. Called on the
// main thread, from inside the tracking call. The manager holds its delegate weakly.
#pragma once

#include <cstdint>
#include <string>

#include "rkv/RKVExport.h"

namespace rkv {

class RKVTrackingEventManager;

class RKV_EXPORT RKVTrackingEventManagerDelegate {
 public:
  virtual ~RKVTrackingEventManagerDelegate() = default;

  // Events named `eventName` were tracked: `count` of them (0 when a track by name found none).
  // Optional; the default does nothing.
  virtual void trackingEventManager(RKVTrackingEventManager& /*manager*/,
                                    const std::string& /*eventName*/, uint64_t /*count*/) {}

 protected:
  RKVTrackingEventManagerDelegate() = default;
  RKVTrackingEventManagerDelegate(const RKVTrackingEventManagerDelegate&) = default;
  RKVTrackingEventManagerDelegate& operator=(const RKVTrackingEventManagerDelegate&) = default;
};

}  // namespace rkv
