// RKVViewabilityTrackingEventManager: the tracking event manager of an ad's viewability events.
// Each event's pixel fires once, the first time the ad has stayed visible at or above the
// event's area for the event's exposure time without interruption. The owner reports the
// visibility (viewabilityUpdated); a 0.25-second RKVTimer on the manager's loop turns the
// reports into exposure, measured on the loop's clock. Main-loop only.
//
// The first tick after a start or reset only sets the time base, so the time while tracking was
// stopped never counts; stopping keeps the exposure accumulated so far, resetting clears it. A
// report that is not viewable counts as 0, whatever its percentage.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVTimer.h"
#include "rkv/tracking/RKVTrackingEventManager.h"
#include "rkv/tracking/RKVViewabilityTrackingEvent.h"
#include "rkv/tracking/RKVViewabilityTrackingEventManagerEventProgression.h"

namespace rkv {

class RKV_EXPORT RKVViewabilityTrackingEventManager : public RKVTrackingEventManager {
 public:
  using Progression = RKVViewabilityTrackingEventManagerEventProgression;
  using Progressions = std::vector<std::shared_ptr<Progression>>;

  // Seconds between two ticks.
  static constexpr double kTimerInterval = 0.25;

  // As RKVTrackingEventManager, then initializeViewabilityTrackingEventTable().
  RKVViewabilityTrackingEventManager(const RKVTrackingEventFactory& factory,
                                     RKVTrackingMacros macros,
                                     std::weak_ptr<RKVTrackingEventManagerDelegate> delegate,
                                     std::shared_ptr<RKVPixelManager> pixelManager = nullptr,
                                     std::shared_ptr<RKVMainLoop> mainLoop = nullptr);
  // Stops the timer.
  ~RKVViewabilityTrackingEventManager() override;

  // One progression, at duration 0, per viewability event of events(), in list order.
  void initializeViewabilityTrackingEventTable();

  // Stores the current visibility; it counts from the next tick on.
  void viewabilityUpdated(bool viewable, float withPercentage);
  // Resets the time base and starts the timer (a running one is left alone).
  void startViewabilityTracking();
  // Stops the timer; accumulated exposure is kept.
  void stopViewabilityTracking();
  // Resets the time base and every waiting progression's exposure.
  void resetViewabilityTracking();

  // Creates and starts the timer when there is none.
  void startTrackingTimer();
  // Stops and drops the timer, if any.
  void stopTrackingTimer();

  // The tick: nothing until both a status and a percentage were reported; then
  // fireOrPostponeViewabilityPixels with them.
  void timerFired(RKVTimer& timer);
  // Seconds since the previous call, or -1 on the first since a start or reset; the current
  // time becomes the previous one.
  double timestampInterval();
  // Applies one tick: the percentage (0 when not viewable) and the interval to every waiting
  // progression, last to first. The first tick after a start or reset only sets the time base.
  void fireOrPostponeViewabilityPixels(float percentage, bool viewable);
  // At or above the progression's area: adds the interval and, once the exposure time is
  // reached, logs "Viewability criteria reached for pixel: <name>" at debug level, tracks the
  // event (pixels sent at once, delegate told count 1) and drops the progression. Below it: the
  // exposure restarts from 0.
  void updatePixelVisibilityStatus(const std::shared_ptr<Progression>& progression,
                                   float withPercentageOfVisibility, double timestampInterval);

  // The variables and additional macros of an event's pixel; none here.
  virtual RKVTrackingMacros variablesForEvent(const RKVViewabilityTrackingEvent& event) const;
  virtual RKVTrackingMacros additionalMacrosForEvent(
      const RKVViewabilityTrackingEvent& event) const;

  // The progressions still waiting.
  const Progressions& eventProgressionItems() const { return eventProgressionItems_; }
  // The running timer; null when tracking is stopped.
  const std::shared_ptr<RKVTimer>& timer() const { return timer_; }
  std::optional<bool> currentViewableStatus() const { return currentViewableStatus_; }
  std::optional<float> currentPercentage() const { return currentPercentage_; }
  // Seconds on the loop clock's monotonic time of the previous tick; -1 when there is none.
  double previousTimestamp() const { return previousTimestamp_; }

 private:
  // The timer's delegate: forwards ticks to the manager while it lives.
  struct TimerRelay;

  Progressions eventProgressionItems_;
  std::shared_ptr<RKVTimer> timer_;
  std::shared_ptr<TimerRelay> relay_;
  std::optional<bool> currentViewableStatus_;
  std::optional<float> currentPercentage_;
  double previousTimestamp_ = -1;
};

}  // namespace rkv
