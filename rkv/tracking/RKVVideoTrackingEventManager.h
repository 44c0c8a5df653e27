// RKVVideoTrackingEventManager: the tracking event manager of a video ad. Adds tracking by video
// event type, and time-based events (quartiles, progress offsets) that fire by themselves as the
// player reports its position: each once, in offset order, the first time the position reaches
// its offset. A jump forward fires every event passed over in one call with one sending round;
// a jump back fires nothing again. Main-loop only, as its base.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/tracking/RKVTrackingEventManager.h"

namespace rkv {

// The standard video events, tracked by name through RKVVideoTrackingEventManager::trackVideoEvent.
enum class RKVVideoEventType : int64_t {
  click = 0,
  creativeView = 1,
  loaded = 2,
  start = 3,
  firstQuartile = 4,
  midpoint = 5,
  thirdQuartile = 6,
  complete = 7,
  mute = 8,
  unmute = 9,
  pause = 10,
  rewind = 11,
  resume = 12,
  fullscreen = 13,
  exitFullscreen = 14,
  playerExpand = 15,
  playerCollapse = 16,
  progress = 17,
  timeToClick = 18,
  skip = 19,
  vpaidAdInteraction = 20,
  firstSecond = 21,
};

class RKV_EXPORT RKVVideoTrackingEventManager : public RKVTrackingEventManager {
 public:
  using VideoEvents = std::vector<std::shared_ptr<RKVVideoTrackingEvent>>;

  // As RKVTrackingEventManager, then initializeVideoTrackingEventTable().
  RKVVideoTrackingEventManager(const RKVTrackingEventFactory& factory, RKVTrackingMacros macros,
                               std::weak_ptr<RKVTrackingEventManagerDelegate> delegate,
                               std::shared_ptr<RKVPixelManager> pixelManager = nullptr,
                               std::shared_ptr<RKVMainLoop> mainLoop = nullptr);

  // The event name of a type ("click" for 0 ... "firstSecond" for 21); nullopt for any other
  // value.
  static std::optional<std::string> eventNameForVideoEventType(RKVVideoEventType type);

  // videoEvents() becomes the video events of events() whose offset is 0 or more (not NaN),
  // sorted by offset; equal offsets keep the list order.
  void initializeVideoTrackingEventTable();

  // trackEvent with the type's name; a type outside the table does nothing (no delegate call).
  void trackVideoEvent(RKVVideoEventType type, const RKVTrackingMacros& variables,
                       const RKVTrackingMacros& additionalMacros = {});

  // Fires, in offset order, every time-based event whose offset is at or before `time`
  // (seconds), each tracked with callPixelsImmediately false and the delegate told count 1;
  // then, when any fired, asks for one sending round. NaN fires nothing.
  // The factory puts "complete" and 100 % offsets at duration * 100 / 100, which for some
  // durations lies one step above the duration itself: a host whose last report is exactly the
  // duration should report RKVTimeUtils::timeIntervalFromPercentage(100, duration) at the end
  // (the larger of the two), or "complete" never fires.
  void playbackProgressedToTime(double time, const RKVTrackingMacros& variables,
                                const RKVTrackingMacros& additionalMacros = {});

  using RKVTrackingEventManager::trackEventByReference;
  // The base's tracking; then the event leaves videoEvents() (first equal entry) whether it was
  // tracked or refused, so a time-based event is attempted by time at most once.
  void trackEventByReference(const std::shared_ptr<RKVTrackingEvent>& event,
                             const RKVTrackingMacros& variables,
                             const RKVTrackingMacros& additionalMacros,
                             bool callPixelsImmediately) override;

  // The time-based events still to fire, by offset.
  const VideoEvents& videoEvents() const { return videoEvents_; }

 private:
  VideoEvents videoEvents_;
};

}  // namespace rkv
