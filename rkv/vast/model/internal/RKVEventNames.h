// The event names of the VAST model and what they mean for firing.
#pragma once

#include <string_view>

namespace rkv::internal {

enum class RKVEventNameKind {
  consumable,     // fired at most once, then removed
  nonConsumable,  // fired every time it happens
  unknown,
};

// The kind of a tracking event name (exact, case-sensitive).
RKVEventNameKind trackingEventNameKind(std::string_view name);
// True for the names a Tracking element may carry: every known name but "viewcount".
bool isAcceptedTrackingElementName(std::string_view name);
// Logs, at debug level, that the name is neither consumable nor non-consumable.
void logUnknownEventName(std::string_view name);

}  // namespace rkv::internal
