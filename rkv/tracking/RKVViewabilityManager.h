// RKVViewabilityManager: measures, four times a second, how much of one view lies inside its
// window's root view and whether the view can be seen at all, and tells its delegate whenever
// either answer changes (and on the first measurement of each run). It only measures: what to do
// with the answers (viewability pixels) is the delegate's affair. Main-loop only: the manager is
// created, started, stopped and destroyed on the main thread of its loop, where it measures.
//
// The visible fraction runs from 0 to 1 (the share of the view's area). The viewable status is
// about visibility alone: an active application, the view not hidden and with a positive alpha,
// and the same for each of its ancestors; a view wholly off screen can be viewable with
// fraction 0, and the consumer weighs the fraction against its own thresholds.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVTimer.h"
#include "rkv/platform/RKVApplication.h"
#include "rkv/tracking/RKVView.h"

namespace rkv {

class RKVViewabilityManager;

// Told of changes. The operation is optional: the default does nothing.
class RKV_EXPORT RKVViewabilityManagerDelegate {
 public:
  virtual ~RKVViewabilityManagerDelegate() = default;
  // The status or the fraction (0 to 1) differs from the previous measurement, or this is the
  // first measurement since startViewabilityTracking. Called on the main thread; may stop or
  // destroy the manager.
  virtual void viewableStatus(RKVViewabilityManager& /*manager*/, bool /*viewableStatus*/,
                              double /*percentage*/) {}
};

class RKV_EXPORT RKVViewabilityManager : public RKVTimerDelegate {
 public:
  // Seconds between two measurements.
  static constexpr double kMeasurementInterval = 0.25;

  // Measures `view` for `delegate` (both held weakly) on `loop` (the shared main loop when null)
  // against `application`'s state (the shared application when null). Idle until started.
  RKVViewabilityManager(std::weak_ptr<RKVView> view,
                        std::weak_ptr<RKVViewabilityManagerDelegate> delegate,
                        std::shared_ptr<RKVMainLoop> loop = nullptr,
                        std::shared_ptr<RKVApplication> application = nullptr);
  // A manager destroyed while tracking drops its running timer (which notes it in the debug log).
  ~RKVViewabilityManager() override;

  RKVViewabilityManager(const RKVViewabilityManager&) = delete;
  RKVViewabilityManager& operator=(const RKVViewabilityManager&) = delete;

  // Forgets the last measurement (so the first tick reports), then startViewabilityTimer. Off
  // the main thread: reported (see RKVMainThread.h) and ignored.
  void startViewabilityTracking();
  // stopViewabilityTimer. Off the main thread: reported and ignored.
  void stopViewabilityTracking();
  // Without a timer, creates one repeating every kMeasurementInterval seconds with this manager
  // as its delegate, and starts it; with one, does nothing.
  void startViewabilityTimer();
  // Stops the timer, clears its delegate and drops it.
  void stopViewabilityTimer();

  // One measurement; reports to the delegate when it differs from the last one.
  void timerFired(RKVTimer& timer) override;

  // The visible fraction of view(): 0 when the view is gone, outside any window or its window
  // has no root view; otherwise viewPercentageOfView against the root view.
  double viewabilityPercentage() const;
  // isViewViewableWithViewabilityPercentage(viewabilityPercentage()).
  bool isViewViewable() const;
  // isApplicationViewable, then isIndividualViewVisible(view), then
  // isCompleteViewHierarchyVisible(view), stopping at the first false. The fraction is not
  // part of the decision.
  bool isViewViewableWithViewabilityPercentage(double percentage) const;
  // Only the active state counts.
  bool isApplicationViewable() const;
  // The application's RKVApplicationState.
  int64_t applicationState() const;

  // The share of `view`'s frame area inside `referenceView`'s frame size placed at (0, 0) in its
  // own coordinates, `view` placed where its bounds origin falls in those coordinates. A view of
  // zero area has no share: NaN (every tick then reports a change).
  static double viewPercentageOfView(const RKVView& view, const RKVView& referenceView);
  // Not hidden and alpha above 0; false for null.
  static bool isIndividualViewVisible(const RKVView* view);
  // Every ancestor of `view` (from its superview up) is individually visible; true for null and
  // for a view without a superview.
  static bool isCompleteViewHierarchyVisible(const RKVView* view);
  // `view` when it is a window, else its nearest ancestor that is; null for null or outside any
  // window.
  static std::shared_ptr<RKVView> parentWindowForView(const std::shared_ptr<RKVView>& view);

  std::shared_ptr<RKVView> view() const { return view_.lock(); }
  std::shared_ptr<RKVViewabilityManagerDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<RKVViewabilityManagerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  // The running timer; null while idle.
  RKVTimer* timer() const { return timer_.get(); }
  // Absent before the first measurement of a run.
  std::optional<bool> lastViewabilityStatus() const { return lastViewabilityStatus_; }
  std::optional<float> lastViewabilityPercentage() const { return lastViewabilityPercentage_; }
  const std::shared_ptr<RKVMainLoop>& loop() const { return loop_; }
  const std::shared_ptr<RKVApplication>& application() const { return application_; }

 private:
  std::weak_ptr<RKVView> view_;
  std::weak_ptr<RKVViewabilityManagerDelegate> delegate_;
  std::shared_ptr<RKVMainLoop> loop_;
  std::shared_ptr<RKVApplication> application_;
  // Points to the manager until it is destroyed. The timer holds the manager as its delegate
  // through a weak pointer sharing this ownership (so no shared_ptr to the manager is needed),
  // and a delegate call tells from it whether it destroyed the manager.
  std::shared_ptr<RKVViewabilityManager*> life_;
  std::optional<bool> lastViewabilityStatus_;
  std::optional<float> lastViewabilityPercentage_;
  std::unique_ptr<RKVTimer> timer_;
};

}  // namespace rkv
