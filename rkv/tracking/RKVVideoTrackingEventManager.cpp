#include "rkv/tracking/RKVVideoTrackingEventManager.h"

#include <algorithm>
#include <array>
#include <utility>

#include "rkv/foundation/RKVMainThread.h"

namespace rkv {

namespace {

constexpr std::array<const char*, 22> kVideoEventNames = {
    "click",         "creativeView",   "loaded",
    "start",         "firstQuartile",  "midpoint",
    "thirdQuartile", "complete",       "mute",
    "unmute",        "pause",          "rewind",
    "resume",        "fullscreen",     "exitFullscreen",
    "playerExpand",  "playerCollapse", "progress",
    "timeToClick",   "skip",           "vpaidAdInteraction",
    "firstSecond"};

}  // namespace

RKVVideoTrackingEventManager::RKVVideoTrackingEventManager(
    const RKVTrackingEventFactory& factory, RKVTrackingMacros macros,
    std::weak_ptr<RKVTrackingEventManagerDelegate> delegate,
    std::shared_ptr<RKVPixelManager> pixelManager, std::shared_ptr<RKVMainLoop> mainLoop)
    : RKVTrackingEventManager(factory, std::move(macros), std::move(delegate),
                              std::move(pixelManager), std::move(mainLoop)) {
  initializeVideoTrackingEventTable();
}

std::optional<std::string> RKVVideoTrackingEventManager::eventNameForVideoEventType(
    RKVVideoEventType type) {
  auto index = static_cast<int64_t>(type);
  if (index < 0 || index >= static_cast<int64_t>(kVideoEventNames.size())) return std::nullopt;
  return kVideoEventNames[static_cast<size_t>(index)];
}

void RKVVideoTrackingEventManager::initializeVideoTrackingEventTable() {
  videoEvents_.clear();
  for (const auto& event : events()) {
    auto video = std::dynamic_pointer_cast<RKVVideoTrackingEvent>(event);
    if (video != nullptr && video->eventOffset() >= 0) videoEvents_.push_back(std::move(video));
  }
  std::stable_sort(videoEvents_.begin(), videoEvents_.end(), [](const auto& a, const auto& b) {
    return a->eventOffset() < b->eventOffset();
  });
}

void RKVVideoTrackingEventManager::trackVideoEvent(RKVVideoEventType type,
                                                   const RKVTrackingMacros& variables,
                                                   const RKVTrackingMacros& additionalMacros) {
  if (auto name = eventNameForVideoEventType(type)) trackEvent(*name, variables, additionalMacros);
}

void RKVVideoTrackingEventManager::playbackProgressedToTime(
    double time, const RKVTrackingMacros& variables, const RKVTrackingMacros& additionalMacros) {
  if (!RKV_ASSERT_MAIN_THREAD(*mainLoop(),
                              "RKVVideoTrackingEventManager::playbackProgressedToTime"))
    return;
  bool tracked = false;
  while (!videoEvents_.empty() && time >= videoEvents_.front()->eventOffset()) {
    std::shared_ptr<RKVTrackingEvent> first = videoEvents_.front();
    auto before = videoEvents_.size();
    trackEventByReference(first, variables, additionalMacros, false);
    tracked = true;
    // The override removes the event; should a subclass not, drop it here so the loop ends.
    if (videoEvents_.size() == before && !videoEvents_.empty() && videoEvents_.front() == first)
      videoEvents_.erase(videoEvents_.begin());
  }
  if (tracked) pixelManager()->callPixels();
}

void RKVVideoTrackingEventManager::trackEventByReference(
    const std::shared_ptr<RKVTrackingEvent>& eventRef, const RKVTrackingMacros& variables,
    const RKVTrackingMacros& additionalMacros, bool callPixelsImmediately) {
  const std::shared_ptr<RKVTrackingEvent> event = eventRef;
  RKVTrackingEventManager::trackEventByReference(event, variables, additionalMacros,
                                                 callPixelsImmediately);
  if (event == nullptr || dynamic_cast<const RKVVideoTrackingEvent*>(event.get()) == nullptr)
    return;
  auto found = std::find_if(videoEvents_.begin(), videoEvents_.end(),
                            [&](const auto& candidate) { return candidate->isEqual(*event); });
  if (found != videoEvents_.end()) videoEvents_.erase(found);
}

}  // namespace rkv
