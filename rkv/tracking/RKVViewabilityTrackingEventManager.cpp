#include "rkv/tracking/RKVViewabilityTrackingEventManager.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "rkv/foundation/RKVMainThread.h"
#include "rkv/log/RKVLog.h"

namespace rkv {

struct RKVViewabilityTrackingEventManager::TimerRelay final : RKVTimerDelegate {
  explicit TimerRelay(RKVViewabilityTrackingEventManager* manager) : owner(manager) {}
  void timerFired(RKVTimer& timer) override {
    if (owner != nullptr) owner->timerFired(timer);
  }
  RKVViewabilityTrackingEventManager* owner;
};

RKVViewabilityTrackingEventManager::RKVViewabilityTrackingEventManager(
    const RKVTrackingEventFactory& factory, RKVTrackingMacros macros,
    std::weak_ptr<RKVTrackingEventManagerDelegate> delegate,
    std::shared_ptr<RKVPixelManager> pixelManager, std::shared_ptr<RKVMainLoop> mainLoop)
    : RKVTrackingEventManager(factory, std::move(macros), std::move(delegate),
                              std::move(pixelManager), std::move(mainLoop)),
      relay_(std::make_shared<TimerRelay>(this)) {
  initializeViewabilityTrackingEventTable();
}

RKVViewabilityTrackingEventManager::~RKVViewabilityTrackingEventManager() {
  relay_->owner = nullptr;
  stopTrackingTimer();
}

void RKVViewabilityTrackingEventManager::initializeViewabilityTrackingEventTable() {
  eventProgressionItems_.clear();
  for (const auto& event : events())
    if (auto viewability = std::dynamic_pointer_cast<RKVViewabilityTrackingEvent>(event))
      eventProgressionItems_.push_back(Progression::withEvent(std::move(viewability)));
}

void RKVViewabilityTrackingEventManager::viewabilityUpdated(bool viewable, float withPercentage) {
  if (!RKV_ASSERT_MAIN_THREAD(*mainLoop(),
                              "RKVViewabilityTrackingEventManager::viewabilityUpdated"))
    return;
  currentViewableStatus_ = viewable;
  currentPercentage_ = withPercentage;
}

void RKVViewabilityTrackingEventManager::startViewabilityTracking() {
  if (!RKV_ASSERT_MAIN_THREAD(*mainLoop(),
                              "RKVViewabilityTrackingEventManager::startViewabilityTracking"))
    return;
  previousTimestamp_ = -1;
  startTrackingTimer();
}

void RKVViewabilityTrackingEventManager::stopViewabilityTracking() {
  if (!RKV_ASSERT_MAIN_THREAD(*mainLoop(),
                              "RKVViewabilityTrackingEventManager::stopViewabilityTracking"))
    return;
  stopTrackingTimer();
}

void RKVViewabilityTrackingEventManager::resetViewabilityTracking() {
  if (!RKV_ASSERT_MAIN_THREAD(*mainLoop(),
                              "RKVViewabilityTrackingEventManager::resetViewabilityTracking"))
    return;
  previousTimestamp_ = -1;
  for (const auto& progression : eventProgressionItems_)
    progression->resetCurrentDuration();
}

void RKVViewabilityTrackingEventManager::startTrackingTimer() {
  if (timer_ != nullptr) return;
  timer_ = std::make_shared<RKVTimer>(RKVTimerInterval::infiniteRepetitionsWithTime(kTimerInterval),
                                      relay_, mainLoop());
  timer_->start();
}

void RKVViewabilityTrackingEventManager::stopTrackingTimer() {
  if (timer_ == nullptr) return;
  // Dropped before it is stopped: a stop handler or delegate that comes back here finds none.
  auto timer = std::move(timer_);
  timer_ = nullptr;
  timer->stop();
  timer->setDelegate({});
}

void RKVViewabilityTrackingEventManager::timerFired(RKVTimer& /*timer*/) {
  if (!currentViewableStatus_ || !currentPercentage_) return;
  fireOrPostponeViewabilityPixels(*currentPercentage_, *currentViewableStatus_);
}

double RKVViewabilityTrackingEventManager::timestampInterval() {
  const double now =
      std::chrono::duration<double>(mainLoop()->clock()->now().time_since_epoch()).count();
  const double previous = previousTimestamp_;
  previousTimestamp_ = now;
  return previous == -1 ? -1 : now - previous;
}

void RKVViewabilityTrackingEventManager::fireOrPostponeViewabilityPixels(float percentage,
                                                                         bool viewable) {
  const float effective = viewable ? percentage : 0.0f;
  const double interval = timestampInterval();
  if (interval == -1) return;
  // A snapshot: tracking calls the delegate, which may reset or stop tracking meanwhile.
  const Progressions snapshot = eventProgressionItems_;
  for (auto it = snapshot.rbegin(); it != snapshot.rend(); ++it) {
    const bool waiting = std::any_of(eventProgressionItems_.begin(), eventProgressionItems_.end(),
                                     [&](const auto& item) { return item->isEqual(**it); });
    if (waiting) updatePixelVisibilityStatus(*it, effective, interval);
  }
}

void RKVViewabilityTrackingEventManager::updatePixelVisibilityStatus(
    const std::shared_ptr<Progression>& progression, float withPercentageOfVisibility,
    double timestampInterval) {
  if (progression == nullptr) return;
  // Compared in single precision, the precision of the reports: a report of 0.7f meets an area
  // of 0.7 although 0.7f is below the double 0.7.
  if (!(withPercentageOfVisibility >= static_cast<float>(progression->area()))) {
    progression->resetCurrentDuration();
    return;
  }
  progression->increaseCurrentDuration(timestampInterval);
  if (!progression->isDurationReached()) return;
  const std::shared_ptr<Progression> reached = progression;
  RKVLog::sharedInstance()->logDebugWithFormat("Viewability criteria reached for pixel: {}",
                                               reached->name());
  const auto& event = *reached->event();
  trackEventByReference(reached->event(), variablesForEvent(event), additionalMacrosForEvent(event),
                        true);
  auto found = std::find_if(eventProgressionItems_.begin(), eventProgressionItems_.end(),
                            [&](const auto& item) { return item->isEqual(*reached); });
  if (found != eventProgressionItems_.end()) eventProgressionItems_.erase(found);
}

RKVTrackingMacros RKVViewabilityTrackingEventManager::variablesForEvent(
    const RKVViewabilityTrackingEvent& /*event*/) const {
  return {};
}

RKVTrackingMacros RKVViewabilityTrackingEventManager::additionalMacrosForEvent(
    const RKVViewabilityTrackingEvent& /*event*/) const {
  return {};
}

}  // namespace rkv
