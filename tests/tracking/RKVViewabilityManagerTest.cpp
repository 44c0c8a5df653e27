// The viewability manager over RKVSimpleView trees on a main loop driven by a manual clock: the
// visible fraction, the viewable status, and what reaches the delegate tick by tick.

#include <chrono>
#include <cmath>
#include <functional>
#include <memory>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/foundation/RKVNotificationCenter.h"
#include "rkv/platform/RKVApplication.h"
#include "rkv/tracking/RKVSimpleView.h"
#include "rkv/tracking/RKVViewabilityManager.h"

#include "tests/support/RKVLogCapture.h"

namespace rkv {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using View = std::shared_ptr<RKVSimpleView>;
using Report = std::pair<bool, double>;

View makeView(double x, double y, double width, double height) {
  return std::make_shared<RKVSimpleView>(RKVRect{{x, y}, {width, height}});
}

struct RecordingDelegate : RKVViewabilityManagerDelegate {
  void viewableStatus(RKVViewabilityManager& manager, bool viewable, double percentage) override {
    reports.emplace_back(viewable, percentage);
    if (action) action(manager);
  }
  std::vector<Report> reports;
  std::function<void(RKVViewabilityManager&)> action;
};

class RKVViewabilityManagerTest : public ::testing::Test {
 protected:
  RKVViewabilityManagerTest() {
    loop_->poll();  // the test's thread becomes the loop's main thread
    window_->setRootView(root_);
    root_->addSubview(ad_);
  }

  std::unique_ptr<RKVViewabilityManager> makeManager(std::shared_ptr<RKVView> view) {
    return std::make_unique<RKVViewabilityManager>(view, delegate_, loop_, application_);
  }
  // One measurement period later.
  void tick() {
    clock_->advance(250ms);
    loop_->poll();
  }

  std::shared_ptr<RKVManualClock> clock_ = std::make_shared<RKVManualClock>();
  std::shared_ptr<RKVMainLoop> loop_ = std::make_shared<RKVMainLoop>(clock_);
  RKVNotificationCenter center_;
  std::shared_ptr<RKVApplication> application_ = std::make_shared<RKVApplication>(center_);
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  // A screen-sized window at a screen offset, its root view filling it, an ad inside.
  View window_ = RKVSimpleView::makeWindow({{50, 20}, {1920, 1080}});
  View root_ = makeView(0, 0, 1920, 1080);
  View ad_ = makeView(100, 100, 400, 200);
};

TEST_F(RKVViewabilityManagerTest, VisibleFractionOfTheViewInsideTheRootView) {
  // The root view's frame in the window, the ad's frame in the root view, the fraction.
  const std::tuple<const char*, RKVRect, RKVRect, double> cases[] = {
      {"inside", {{0, 0}, {1920, 1080}}, {{100, 100}, {400, 200}}, 1.0},
      {"half off the right edge", {{0, 0}, {1920, 1080}}, {{1720, 0}, {400, 200}}, 0.5},
      {"a quarter in, bottom left", {{0, 0}, {1920, 1080}}, {{-200, 980}, {400, 200}}, 0.25},
      {"off screen", {{0, 0}, {1920, 1080}}, {{0, 2000}, {400, 200}}, 0.0},
      {"a smaller root view", {{100, 100}, {800, 600}}, {{600, 500}, {400, 200}}, 0.25},
  };
  auto manager = makeManager(ad_);
  for (const auto& [name, rootFrame, adFrame, expected] : cases) {
    root_->setFrame(rootFrame), ad_->setFrame(adFrame);
    EXPECT_DOUBLE_EQ(manager->viewabilityPercentage(), expected) << name;
  }

  // In a scrolled container: content from y 1000 on is shown at its top, so half the ad shows.
  root_->setFrame({{0, 0}, {1920, 1080}});
  View container = makeView(0, 0, 1920, 4000);
  container->setBoundsOrigin({0, 1000});
  root_->addSubview(container), container->addSubview(ad_);
  ad_->setFrame({{0, 900}, {400, 200}});
  EXPECT_DOUBLE_EQ(manager->viewabilityPercentage(), 0.5);
  EXPECT_EQ(ad_->convertPoint({10, 10}, nullptr), (RKVPoint{10, -90}));  // window coordinates

  // Nothing to measure against: in a window without a root view, or in no window at all.
  window_->setRootView(nullptr), window_->addSubview(ad_);
  EXPECT_EQ(manager->viewabilityPercentage(), 0.0);
  ad_->removeFromSuperview();
  EXPECT_EQ(manager->viewabilityPercentage(), 0.0);
  // A view of no area has no share at all.
  ad_->setFrame({{0, 0}, {0, 200}});
  EXPECT_TRUE(std::isnan(RKVViewabilityManager::viewPercentageOfView(*ad_, *root_)));
}

TEST_F(RKVViewabilityManagerTest, ViewableStatusIsAboutVisibilityNotTheFraction) {
  View container = makeView(0, 0, 1920, 1080);
  root_->addSubview(container);
  container->addSubview(ad_);
  const RKVRect offScreen{{5000, 0}, {400, 200}};
  const std::tuple<const char*, std::function<void()>, bool> cases[] = {
      {"visible", [] {}, true},
      {"off screen", [&] { ad_->setFrame(offScreen); }, true},
      {"hidden", [&] { ad_->setHidden(true); }, false},
      {"transparent", [&] { ad_->setAlpha(0); }, false},
      {"nearly transparent", [&] { ad_->setAlpha(0.01); }, true},
      {"hidden ancestor", [&] { container->setHidden(true); }, false},
      {"transparent window", [&] { window_->setAlpha(0); }, false},
      {"inactive application",
       [&] { application_->setApplicationState(RKVApplicationStateInactive); }, false},
      {"application in the background",
       [&] { application_->setApplicationState(RKVApplicationStateBackground); }, false},
      {"not in any window", [&] { ad_->removeFromSuperview(); }, true},
  };
  for (const auto& [name, change, expected] : cases) {
    SCOPED_TRACE(name);
    ad_->setFrame({{100, 100}, {400, 200}}), ad_->setHidden(false), ad_->setAlpha(1);
    container->setHidden(false), window_->setAlpha(1), container->addSubview(ad_);
    application_->setApplicationState(RKVApplicationStateActive);
    change();
    EXPECT_EQ(makeManager(ad_)->isViewViewable(), expected);
  }
  // A view that is gone is not viewable.
  auto manager = makeManager(ad_);
  container->removeFromSuperview(), ad_.reset(), container.reset();
  EXPECT_FALSE(manager->isViewViewable());
  EXPECT_EQ(manager->viewabilityPercentage(), 0.0);
}

TEST_F(RKVViewabilityManagerTest, ReportsChangesEveryQuarterSecondAndMayBeDroppedWhileRunning) {
  auto manager = makeManager(ad_);
  manager->startViewabilityTracking();
  clock_->advance(249ms), loop_->poll();
  EXPECT_TRUE(delegate_->reports.empty());
  clock_->advance(1ms), loop_->poll();
  EXPECT_THAT(delegate_->reports, ElementsAre(Report{true, 1.0}));
  EXPECT_EQ(manager->lastViewabilityPercentage(), 1.0f);
  tick(), tick();  // unchanged: nothing reported
  ad_->setFrame({{1720, 0}, {400, 200}});
  tick();
  application_->setApplicationState(RKVApplicationStateInactive);
  tick(), tick();
  EXPECT_THAT(delegate_->reports,
              ElementsAre(Report{true, 1.0}, Report{true, 0.5}, Report{false, 0.5}));

  // Stopped: no timer, no report. Started again: the first tick reports what was known before.
  manager->stopViewabilityTracking();
  EXPECT_EQ(manager->timer(), nullptr);
  tick();
  EXPECT_EQ(delegate_->reports.size(), 3u);
  manager->startViewabilityTracking();
  EXPECT_FALSE(manager->lastViewabilityStatus().has_value());
  tick();
  EXPECT_EQ(delegate_->reports.size(), 4u);
  EXPECT_EQ(delegate_->reports.back(), (Report{false, 0.5}));

  // A fraction single precision cannot hold is reported on every tick.
  application_->setApplicationState(RKVApplicationStateActive);
  ad_->setFrame({{1920 - 400.0 / 3, 0}, {400, 200}});
  tick(), tick(), tick();
  EXPECT_EQ(delegate_->reports.size(), 7u);
  EXPECT_DOUBLE_EQ(delegate_->reports.back().second, 1.0 / 3);

  // Dropped while tracking, even by its own delegate: its running timer goes with it and says so.
  test::RKVLogCapture capture;
  manager.reset();
  EXPECT_THAT(capture.debugMessages(), ElementsAre(HasSubstr("being deallocated while running")));
  manager = makeManager(ad_);
  delegate_->action = [&](RKVViewabilityManager&) { manager.reset(); };
  manager->startViewabilityTracking();
  tick(), tick();
  EXPECT_EQ(manager, nullptr);
  EXPECT_EQ(delegate_->reports.size(), 8u);  // one more, for the second manager
  EXPECT_EQ(capture.debugMessages().size(), 2u);
}

}  // namespace
}  // namespace rkv
