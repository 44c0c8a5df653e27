#include "tools/rkv/RKVAdPlayer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

#include "rkv/foundation/RKVMainLoop.h"
#include "rkv/foundation/RKVManualClock.h"
#include "rkv/foundation/RKVTimeUtils.h"
#include "rkv/platform/RKVApplication.h"
#include "rkv/tracking/RKVSimpleView.h"
#include "rkv/tracking/RKVTrackingEventDefaultFactory.h"
#include "rkv/tracking/RKVTrackingEventManager.h"
#include "rkv/tracking/RKVVideoTrackingEventManager.h"
#include "rkv/tracking/RKVViewabilityManager.h"
#include "rkv/tracking/RKVViewabilityTrackingEvent.h"
#include "rkv/tracking/RKVViewabilityTrackingEventManager.h"
#include "rkv/vast/RKVVASTPixelManager.h"
#include "rkv/vast/RKVVASTTrackingEventFactory.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTMediaFile.h"

namespace rkv::cli {

namespace {

// How often the player reports its position, in simulated seconds.
constexpr double kProgressPeriod = 0.25;
// The common viewability criterion: half of the view's area for two continuous seconds.
constexpr double kViewableArea = 0.5;
constexpr double kViewableSeconds = 2.0;
// "firstSecond" has no offset of its own: the player fires it once a second of the ad has played.
constexpr double kFirstSecond = 1.0;
// The screen the ad's view is measured on.
constexpr RKVRect kScreen{{0, 0}, {1920, 1080}};

RKVClock::duration simulated(double seconds) {
  return std::chrono::duration_cast<RKVClock::duration>(std::chrono::duration<double>(seconds));
}

// An impression URL as a tracking event: fired once, by name.
class ImpressionEvent final : public RKVTrackingEvent {
 public:
  explicit ImpressionEvent(RKVURL url) : url_(std::move(url)) {}
  const std::string& eventName() const override { return name_; }
  const RKVURL& eventURL() const override { return url_; }
  bool isEventConsumable() const override { return true; }
  // Each impression is its own: two levels may well give the same URL, and both are fired.
  bool isEqual(const RKVTrackingEvent& other) const override { return &other == this; }

 private:
  std::string name_ = "impression";
  RKVURL url_;
};

}  // namespace

// The pixel manager of the play: keeps each pixel as it is queued, until the tracking manager
// that queued it tells its delegate which event it was. Main thread only.
class RKVAdPlayer::QueuedPixels final : public RKVPixelManager {
 public:
  using RKVPixelManager::RKVPixelManager;

  bool addPixel(const RKVPixel& pixel) override {
    queued_.push_back(pixel);
    return RKVPixelManager::addPixel(pixel);
  }
  bool addPixels(const std::vector<RKVPixel>& pixels) override {
    queued_.insert(queued_.end(), pixels.begin(), pixels.end());
    return RKVPixelManager::addPixels(pixels);
  }
  std::vector<RKVPixel> take() { return std::exchange(queued_, {}); }

 private:
  std::vector<RKVPixel> queued_;
};

namespace {

// Names the pixels queued since the last call after the event a tracking manager reports.
class EventLog final : public RKVTrackingEventManagerDelegate {
 public:
  using Name = std::function<void(const std::string& eventName)>;
  explicit EventLog(Name name) : name_(std::move(name)) {}
  void trackingEventManager(RKVTrackingEventManager& /*manager*/, const std::string& eventName,
                            uint64_t /*count*/) override {
    name_(eventName);
  }

 private:
  Name name_;
};

// Passes the view's measurements on to the viewability tracking.
class ViewabilityRelay final : public RKVViewabilityManagerDelegate {
 public:
  explicit ViewabilityRelay(RKVViewabilityTrackingEventManager& tracking) : tracking_(tracking) {}
  void viewableStatus(RKVViewabilityManager& /*manager*/, bool viewableStatus,
                      double percentage) override {
    tracking_.viewabilityUpdated(viewableStatus, static_cast<float>(percentage));
  }

 private:
  RKVViewabilityTrackingEventManager& tracking_;
};

}  // namespace

RKVAdPlayer::RKVAdPlayer(std::shared_ptr<RKVPixelStore> store,
                         std::shared_ptr<RKVURLSession> session, RKVIABMacroFacts facts,
                         RKVAdPlayerOptions options)
    : pixels_(std::make_shared<QueuedPixels>(std::move(store), std::move(session))),
      facts_(std::move(facts)),
      options_(std::move(options)) {}

RKVAdPlayer::~RKVAdPlayer() = default;

std::shared_ptr<RKVPixelManager> RKVAdPlayer::pixelManager() const {
  return pixels_;
}

std::optional<double> RKVAdPlayer::durationOf(const std::optional<std::string>& text,
                                              std::optional<double> fallback) {
  if (text) {
    double seconds = RKVTimeUtils::timeIntervalFromVASTDuration(*text);
    if (std::isfinite(seconds) && seconds > 0) return seconds;
  }
  if (fallback && std::isfinite(*fallback) && *fallback > 0) return fallback;
  return std::nullopt;
}

void RKVAdPlayer::fireErrorPixels(const std::vector<RKVVASTURL>& urls, int64_t code) {
  RKVVASTPixelManager(pixels_).callVASTErrorPixels(urls, code);
  for (RKVPixel& pixel : pixels_->take()) {
    RKVPlayedEvent event{0, "error", pixel.url().absoluteString(), pixel.ID()};
    if (observer_) observer_(event);
    errors_.push_back(std::move(event));
  }
}

std::optional<RKVPlayResult> RKVAdPlayer::play(const RKVVASTAd& ad, std::string& problem) {
  // The creative: the first linear one with a media file to play.
  std::shared_ptr<RKVVASTCreativeLinear> linear;
  std::shared_ptr<RKVVASTMediaFile> mediaFile;
  for (const auto& candidate : ad.linearCreatives()) {
    if (auto file = candidate ? candidate->mostAppropriateMediaFile() : nullptr) {
      linear = candidate;
      mediaFile = std::move(file);
      break;
    }
  }
  if (!linear) {
    const bool noLinear = ad.linearCreatives().empty();
    problem = noLinear ? "the ad has no linear creative" : "no media file of the ad can be played";
    fireErrorPixels(ad.errorPixels(),
                    (noLinear ? RKVVASTError::VAST_CREATIVE_ERROR_MISMATCHED_AD_LINEARITY()
                              : RKVVASTError::VAST_LINEAR_ERROR_MEDIA_NO_VALID_FORMAT())
                        .VASTCode());
    return std::nullopt;
  }
  std::optional<double> duration = durationOf(linear->duration(), options_.duration);
  if (!duration) {
    problem = "the creative gives no duration (use --duration S)";
    return std::nullopt;
  }
  if (*duration > kLongestSimulatedSeconds) {
    problem = "the ad lasts more than a day, longer than rkv play simulates";
    fireErrorPixels(ad.errorPixels(),
                    RKVVASTError::VAST_CREATIVE_ERROR_MISMATCHED_AD_DURATION().VASTCode());
    return std::nullopt;
  }

  RKVPlayResult result;
  result.events = std::exchange(errors_, {});
  result.mediaFile = mediaFile->url() ? mediaFile->url()->absoluteString() : std::string();
  result.duration = *duration;

  // Simulated time: a manual clock that starts at the real date, under a loop this thread drives.
  auto clock = std::make_shared<RKVManualClock>(RKVClock::time_point(std::chrono::hours(24)),
                                                std::chrono::system_clock::now());
  auto loop = std::make_shared<RKVMainLoop>(clock);
  loop->poll();        // this thread is the loop's main thread from here on
  double sim = 0;      // simulated seconds since the play began
  double content = 0;  // the ad's playhead

  auto log = std::make_shared<EventLog>([&](const std::string& name) {
    for (RKVPixel& pixel : pixels_->take()) {
      RKVPlayedEvent event{std::round(sim * 1000) / 1000, name, pixel.url().absoluteString(),
                           pixel.ID()};
      if (observer_) observer_(event);
      result.events.push_back(std::move(event));
    }
  });
  auto macros = [&] {
    RKVIABMacroFacts facts = facts_;
    facts.adPlayhead = content;
    return RKVIABMacros::macrosWithFacts(facts, *clock);
  };

  // Impressions of every level (the resolved ad carries its wrappers').
  RKVTrackingEventManager::Events impressionEvents;
  for (const auto& impression : ad.impressions())
    impressionEvents.push_back(std::make_shared<ImpressionEvent>(impression.url()));
  RKVTrackingEventManager impressions(RKVTrackingEventDefaultFactory(impressionEvents), macros(),
                                      log, pixels_, loop);

  // Time-based and player events of the creative.
  RKVVASTTrackingEventFactory factory(linear->trackingEvents(), *duration);
  RKVVideoTrackingEventManager video(factory, macros(), log, pixels_, loop);
  auto trackVideo = [&](RKVVideoEventType type) {
    video.setMacros(macros());
    video.trackVideoEvent(type, {});
  };

  // Viewability: the ad's view is a full-screen view, moved right until only the asked share of
  // it is on the screen.
  RKVTrackingEventManager::Events viewableEvents;
  for (const auto& event : ad.viewabilityEvents()) {
    if (event && event->name() == "viewable") {
      viewableEvents.push_back(std::make_shared<RKVBasicViewabilityTrackingEvent>(
          "viewable", event->url(), kViewableArea, kViewableSeconds));
    }
  }
  RKVViewabilityTrackingEventManager viewability(RKVTrackingEventDefaultFactory(viewableEvents),
                                                 macros(), log, pixels_, loop);
  auto window = RKVSimpleView::makeWindow(kScreen);
  auto root = std::make_shared<RKVSimpleView>(kScreen);
  window->setRootView(root);
  auto adView = std::make_shared<RKVSimpleView>(
      RKVRect{{kScreen.size.width * (1 - options_.visibleFraction), 0}, kScreen.size});
  root->addSubview(adView);
  auto application = std::make_shared<RKVApplication>();
  auto relay = std::make_shared<ViewabilityRelay>(viewability);
  RKVViewabilityManager measurement(adView, relay, loop, application);

  // One step of simulated time, which leaves the ad at `contentAfter`: paced against the real
  // clock, then the loop's timers (the viewability measurement and its tracking) run for it, with
  // the macros of the step's end, the moment their pixels are stamped with.
  const auto realStart = std::chrono::steady_clock::now();
  auto step = [&](double seconds, double contentAfter) {
    sim += seconds;
    std::this_thread::sleep_until(realStart +
                                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                      std::chrono::duration<double>(sim / options_.speed)));
    clock->advance(simulated(seconds));
    content = contentAfter;
    viewability.setMacros(macros());
    for (int i = 0; i < 8 && loop->poll() > 0; ++i) {
    }
  };
  // Where the library puts the end of the content: "complete" and "100%" offsets are the
  // duration times 100 / 100, which may lie a little past the duration itself.
  const double end = std::max(*duration, RKVTimeUtils::timeIntervalFromPercentage(100, *duration));
  auto showProgress = [&] {
    if (!progress_) return;
    std::optional<std::pair<std::string, double>> next;
    if (!video.videoEvents().empty()) {
      const auto& first = video.videoEvents().front();
      next.emplace(first->eventName(), first->eventOffset());
    }
    progress_(sim, content, *duration, next);
  };
  auto report = [&] {
    video.setMacros(macros());
    video.playbackProgressedToTime(content >= *duration ? end : content, {});
    showProgress();
  };

  // The player events still to come, by content time.
  bool firstSecondDone = false;
  bool muted = !options_.muteAt.has_value();
  bool pauseDone = !options_.pauseAt.has_value();
  std::optional<double> resumeAt;
  bool ended = false;
  auto playerEventsAt = [&](double at) {
    // At the end the ad has completed: there is nothing left to mute, pause or skip.
    if (at >= *duration) return;
    if (!muted && *options_.muteAt <= at) {
      muted = true;
      trackVideo(RKVVideoEventType::mute);
    }
    if (!pauseDone && *options_.pauseAt <= at) {
      pauseDone = true;
      trackVideo(RKVVideoEventType::pause);
      // Viewable counts seconds of the ad played on screen: a pause keeps what was seen so far
      // and counts nothing until the resume.
      viewability.stopViewabilityTracking();
      resumeAt = sim + options_.pauseFor;
    }
    if (options_.skipAt && *options_.skipAt <= at) {
      trackVideo(RKVVideoEventType::skip);
      result.skipped = true;
      ended = true;
    }
  };
  auto nextPlayerEvent = [&]() {
    double next = *duration;
    if (!firstSecondDone) next = std::min(next, kFirstSecond);
    if (!muted) next = std::min(next, *options_.muteAt);
    if (!pauseDone) next = std::min(next, *options_.pauseAt);
    if (options_.skipAt) next = std::min(next, *options_.skipAt);
    return next;
  };

  // The media is ready before its first frame counts the impression.
  trackVideo(RKVVideoEventType::loaded);
  impressions.setMacros(macros());
  impressions.trackEvent("impression", {});
  trackVideo(RKVVideoEventType::creativeView);
  measurement.startViewabilityTracking();
  viewability.startViewabilityTracking();
  report();
  playerEventsAt(0);

  while (!ended) {
    if (resumeAt) {
      step(std::min(kProgressPeriod, std::max(0.0, *resumeAt - sim)), content);
      showProgress();  // the time moves on while the content waits
      if (sim + 1e-9 >= *resumeAt) {
        resumeAt.reset();
        trackVideo(RKVVideoEventType::resume);
        viewability.startViewabilityTracking();
      }
      continue;
    }
    if (content >= *duration) break;
    const double target = std::min(content + kProgressPeriod, nextPlayerEvent());
    step(target - content, target);
    if (!firstSecondDone && content >= kFirstSecond) {
      firstSecondDone = true;
      trackVideo(RKVVideoEventType::firstSecond);
    }
    report();
    playerEventsAt(content);
  }

  measurement.stopViewabilityTracking();
  viewability.stopViewabilityTracking();
  return result;
}

}  // namespace rkv::cli
