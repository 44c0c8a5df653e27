#include "rkv/vast/model/internal/RKVEventNames.h"

#include <iterator>

#include "rkv/log/RKVLog.h"

namespace rkv::internal {

namespace {

struct NamedKind {
  std::string_view name;
  RKVEventNameKind kind;
};

constexpr NamedKind kTrackingEventNames[] = {
    {"viewcount", RKVEventNameKind::consumable},
    {"creativeView", RKVEventNameKind::consumable},
    {"start", RKVEventNameKind::consumable},
    {"firstSecond", RKVEventNameKind::consumable},
    {"firstQuartile", RKVEventNameKind::consumable},
    {"midpoint", RKVEventNameKind::consumable},
    {"thirdQuartile", RKVEventNameKind::consumable},
    {"complete", RKVEventNameKind::consumable},
    {"progress", RKVEventNameKind::consumable},
    {"loaded", RKVEventNameKind::consumable},
    {"click", RKVEventNameKind::nonConsumable},
    {"mute", RKVEventNameKind::nonConsumable},
    {"unmute", RKVEventNameKind::nonConsumable},
    {"pause", RKVEventNameKind::nonConsumable},
    {"rewind", RKVEventNameKind::nonConsumable},
    {"resume", RKVEventNameKind::nonConsumable},
    {"fullscreen", RKVEventNameKind::nonConsumable},
    {"exitFullscreen", RKVEventNameKind::nonConsumable},
    {"timeToClick", RKVEventNameKind::nonConsumable},
    {"skip", RKVEventNameKind::nonConsumable},
    {"vpaidAdInteraction", RKVEventNameKind::nonConsumable},
    {"playerExpand", RKVEventNameKind::nonConsumable},
    {"playerCollapse", RKVEventNameKind::nonConsumable},
};
static_assert(std::size(kTrackingEventNames) == 23);

}  // namespace

RKVEventNameKind trackingEventNameKind(std::string_view name) {
  for (const NamedKind& entry : kTrackingEventNames) {
    if (entry.name == name) return entry.kind;
  }
  return RKVEventNameKind::unknown;
}

bool isAcceptedTrackingElementName(std::string_view name) {
  return name != "viewcount" && trackingEventNameKind(name) != RKVEventNameKind::unknown;
}

void logUnknownEventName(std::string_view name) {
  // The text says "assumed as consumable" but the callers answer non-consumable: an unknown
  // event is never removed after firing. Both stay as they are.
  RKVLog::sharedInstance()->logDebugWithFormat(
      "Event '{}' is neither consumable nor nonconsumable! It has been assumed as consumable.",
      name);
}

}  // namespace rkv::internal
