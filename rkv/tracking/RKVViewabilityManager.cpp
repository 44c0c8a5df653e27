#include "rkv/tracking/RKVViewabilityManager.h"

#include <utility>

#include "rkv/foundation/RKVMainThread.h"
#include "rkv/foundation/RKVTimerInterval.h"
#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/tracking/RKVGeometry.h"

namespace rkv {

RKVViewabilityManager::RKVViewabilityManager(std::weak_ptr<RKVView> view,
                                             std::weak_ptr<RKVViewabilityManagerDelegate> delegate,
                                             std::shared_ptr<RKVMainLoop> loop,
                                             std::shared_ptr<RKVApplication> application)
    : view_(std::move(view)),
      delegate_(std::move(delegate)),
      loop_(loop ? std::move(loop) : RKVMainLoop::sharedInstance()),
      application_(application ? std::move(application) : RKVApplication::sharedApplication()),
      life_(std::make_shared<RKVViewabilityManager*>(this)) {}

RKVViewabilityManager::~RKVViewabilityManager() {
  *life_ = nullptr;
}

void RKVViewabilityManager::startViewabilityTracking() {
  if (!RKV_ASSERT_MAIN_THREAD(*loop_, "RKVViewabilityManager::startViewabilityTracking")) return;
  lastViewabilityStatus_.reset();
  lastViewabilityPercentage_.reset();
  startViewabilityTimer();
}

void RKVViewabilityManager::stopViewabilityTracking() {
  if (!RKV_ASSERT_MAIN_THREAD(*loop_, "RKVViewabilityManager::stopViewabilityTracking")) return;
  stopViewabilityTimer();
}

void RKVViewabilityManager::startViewabilityTimer() {
  if (timer_) return;
  // The timer's delegate pointer shares the ownership of life_: it expires with the manager.
  const std::shared_ptr<RKVTimerDelegate> self(life_, this);
  timer_ = std::make_unique<RKVTimer>(
      RKVTimerInterval::infiniteRepetitionsWithTime(kMeasurementInterval), self, loop_);
  timer_->start();
}

void RKVViewabilityManager::stopViewabilityTimer() {
  // Taken out first: the timer's stop handler may call back into the manager.
  std::unique_ptr<RKVTimer> timer = std::move(timer_);
  if (!timer) return;
  timer->stop();
  timer->setDelegate({});
}

void RKVViewabilityManager::timerFired(RKVTimer& /*timer*/) {
  const double percentage = viewabilityPercentage();
  const bool viewable = isViewViewableWithViewabilityPercentage(percentage);
  // The last fraction is kept in single precision and compared widened back, so a fraction that
  // single precision cannot hold exactly reports a change on every tick; consumers take repeats.
  const bool changed = !lastViewabilityStatus_ || !lastViewabilityPercentage_ ||
                       *lastViewabilityStatus_ != viewable ||
                       static_cast<double>(*lastViewabilityPercentage_) != percentage;
  if (changed) {
    if (const std::shared_ptr<RKVViewabilityManagerDelegate> delegate = delegate_.lock()) {
      const std::shared_ptr<RKVViewabilityManager*> alive = life_;
      internal::callHost("RKVViewabilityManager delegate viewableStatus",
                         [&] { delegate->viewableStatus(*this, viewable, percentage); });
      if (*alive == nullptr) return;  // the delegate destroyed the manager
    }
  }
  lastViewabilityStatus_ = viewable;
  lastViewabilityPercentage_ = static_cast<float>(percentage);
}

double RKVViewabilityManager::viewabilityPercentage() const {
  const std::shared_ptr<RKVView> view = view_.lock();
  const std::shared_ptr<RKVView> window = parentWindowForView(view);
  const std::shared_ptr<RKVView> reference = window ? window->rootView() : nullptr;
  if (!reference) return 0.0;
  return viewPercentageOfView(*view, *reference);
}

bool RKVViewabilityManager::isViewViewable() const {
  return isViewViewableWithViewabilityPercentage(viewabilityPercentage());
}

bool RKVViewabilityManager::isViewViewableWithViewabilityPercentage(double /*percentage*/) const {
  if (!isApplicationViewable()) return false;
  const std::shared_ptr<RKVView> view = view_.lock();
  return isIndividualViewVisible(view.get()) && isCompleteViewHierarchyVisible(view.get());
}

bool RKVViewabilityManager::isApplicationViewable() const {
  const int64_t state = applicationState();
  return state != RKVApplicationStateInactive && state != RKVApplicationStateBackground;
}

int64_t RKVViewabilityManager::applicationState() const {
  return application_->applicationState();
}

double RKVViewabilityManager::viewPercentageOfView(const RKVView& view,
                                                   const RKVView& referenceView) {
  const RKVSize size = view.frame().size;
  const RKVPoint origin = view.convertPoint(view.bounds().origin, &referenceView);
  const RKVRect visible =
      RKVRect::intersection(RKVRect{origin, size}, RKVRect{{0, 0}, referenceView.frame().size});
  return visible.size.width * visible.size.height / (size.width * size.height);
}

bool RKVViewabilityManager::isIndividualViewVisible(const RKVView* view) {
  return view != nullptr && !view->isHidden() && view->alpha() > 0;
}

bool RKVViewabilityManager::isCompleteViewHierarchyVisible(const RKVView* view) {
  if (view == nullptr) return true;
  for (std::shared_ptr<RKVView> ancestor = view->superview(); ancestor;
       ancestor = ancestor->superview()) {
    if (!isIndividualViewVisible(ancestor.get())) return false;
  }
  return true;
}

std::shared_ptr<RKVView> RKVViewabilityManager::parentWindowForView(
    const std::shared_ptr<RKVView>& view) {
  for (std::shared_ptr<RKVView> candidate = view; candidate; candidate = candidate->superview())
    if (candidate->isWindow()) return candidate;
  return nullptr;
}

}  // namespace rkv
