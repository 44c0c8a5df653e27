// RKVAdPlayer: plays one resolved VAST ad as a host of the library would, in simulated time. It
// fires the impressions of every wrapper level, reports playback progress every 0.25 s of
// simulated time to a video tracking event manager (quartiles, progress offsets), measures a
// view for viewability and fires the "viewable" events once the view has been at least half on
// screen for two continuous seconds of playback (a pause counts nothing), and carries out the
// player events it is given (pause and resume, mute, skip). Every pixel goes through the pixel
// manager it is given.
//
// Simulated time is a manual clock under the player's own main loop, stepped by the player: the
// times it reports are exact, whatever the machine's load, and `speed` only paces the steps
// against the real clock (speed 20: one simulated second every 50 ms). Runs on the calling
// thread, which becomes the main thread of the player's loop.
//
// The player's pixel manager is its own (over the store and session it is given), so that it
// sees each pixel as the tracking managers queue it and can name the event it came from.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/tracking/RKVIABMacros.h"
#include "rkv/vast/model/RKVVASTAd.h"
#include "rkv/vast/model/RKVVASTURL.h"

namespace rkv::cli {

// The longest ad, and the longest pause, the player simulates: a day. With the slowest and the
// fastest speeds the tool accepts, every real deadline stays far inside the steady clock's range.
inline constexpr double kLongestSimulatedSeconds = 86400;
inline constexpr double kSlowestSpeed = 0.001;
inline constexpr double kFastestSpeed = 1000000;

struct RKVAdPlayerOptions {
  double speed = 1.0;              // simulated seconds per real second
  double visibleFraction = 1;      // the share of the ad's view on screen, 0 to 1
  std::optional<double> pauseAt;   // content time of the pause
  double pauseFor = 0;             // simulated seconds the pause lasts
  std::optional<double> muteAt;    // content time of the mute
  std::optional<double> skipAt;    // content time of the skip, which ends the ad
  std::optional<double> duration;  // the ad's length when its creative gives none
};

// One pixel the player queued: when, for which event, to which URL.
struct RKVPlayedEvent {
  double t = 0;  // simulated seconds since the play began (pauses included)
  std::string event;
  std::string url;
  uint32_t pixelID = 0;
};

struct RKVPlayResult {
  std::string mediaFile;
  double duration = 0;
  bool skipped = false;
  std::vector<RKVPlayedEvent> events;  // in firing order
};

class RKVAdPlayer {
 public:
  // Called on the player's thread after each step: the simulated time, the content time, the
  // content's duration, and the next time-based event (name and offset) when one is left.
  using Progress = std::function<void(double t, double content, double duration,
                                      const std::optional<std::pair<std::string, double>>& next)>;
  // Called for each pixel as it is queued.
  using EventObserver = std::function<void(const RKVPlayedEvent& event)>;

  // Pixels go to `store` and are sent through `session`. `facts` fill the IAB macros of every
  // pixel (the playheads are the player's own).
  RKVAdPlayer(std::shared_ptr<RKVPixelStore> store, std::shared_ptr<RKVURLSession> session,
              RKVIABMacroFacts facts, RKVAdPlayerOptions options);
  ~RKVAdPlayer();

  RKVAdPlayer(const RKVAdPlayer&) = delete;
  RKVAdPlayer& operator=(const RKVAdPlayer&) = delete;

  // The pixel manager every pixel of the play went through: ask it for a last round.
  std::shared_ptr<RKVPixelManager> pixelManager() const;

  void setProgress(Progress progress) { progress_ = std::move(progress); }
  void setEventObserver(EventObserver observer) { observer_ = std::move(observer); }

  // Fires the error URLs of a failure with its VAST code in place of [ERRORCODE], through the VAST
  // pixel manager (nothing for -1, a failure without a VAST code), as "error" events at time 0:
  // the next play's result begins with them.
  void fireErrorPixels(const std::vector<RKVVASTURL>& urls, int64_t code);

  // The ad's first linear creative with a media file is played to its end or to the skip.
  // std::nullopt, with `problem` saying why, when the ad has nothing to play or no duration; the
  // ad's error pixels are fired when it cannot be played (no linear creative, no media file the
  // player takes, longer than a day).
  std::optional<RKVPlayResult> play(const RKVVASTAd& ad, std::string& problem);

  // The linear creative's length in seconds: its Duration when it reads as a positive time,
  // else `fallback`; std::nullopt when neither gives one.
  static std::optional<double> durationOf(const std::optional<std::string>& text,
                                          std::optional<double> fallback);

 private:
  class QueuedPixels;
  std::shared_ptr<QueuedPixels> pixels_;
  RKVIABMacroFacts facts_;
  RKVAdPlayerOptions options_;
  Progress progress_;
  EventObserver observer_;
  std::vector<RKVPlayedEvent> errors_;  // fired before the play
};

}  // namespace rkv::cli
