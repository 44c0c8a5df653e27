// rkv play FILE|-|URL: plays the first ad of a VAST answer as a host of the library would, in
// simulated time: resolves it with a VAST manager, picks its media file, fires its impressions,
// its time-based and player events and its viewable impression through the pixel manager and the
// data folder's pixel store, and waits for the last sending round.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <future>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>
#include <unistd.h>

#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/platform/RKVAppInfo.h"
#include "rkv/platform/RKVDeviceInfoProvider.h"
#include "rkv/platform/RKVFrameworkInfo.h"
#include "rkv/system/RKVIdentity.h"
#include "rkv/system/RKVIdentityProvider.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"
#include "rkv/vast/RKVVASTManager.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTURL.h"

#include "tools/rkv/RKVAdJSON.h"
#include "tools/rkv/RKVAdPlayer.h"
#include "tools/rkv/RKVCommandLine.h"
#include "tools/rkv/RKVDataLock.h"
#include "tools/rkv/RKVHandBackAdapter.h"
#include "tools/rkv/RKVInput.h"
#include "tools/rkv/RKVShownText.h"
#include "tools/rkv/RKVTransportLog.h"

namespace rkv::cli {

namespace {

using Json = nlohmann::ordered_json;

struct PlayOptions {
  std::string input;
  double timeout = RKVVASTManagerConfig::DEFAULT_REQUEST_TIMEOUT;
  RKVAdPlayerOptions player;
  bool json = false;
};

// The failures the manager met on the way, each with the error URLs the host is to fire.
struct ReportedError {
  int64_t VASTCode;
  std::vector<RKVVASTURL> errorURLs;
};

// The player wants the ad, and the error URLs to fire; the other reports are not shown. Reports
// of passback wrappers come from background threads.
class ErrorCollector final : public RKVVASTManagerDelegate {
 public:
  void didEncounterError(RKVVASTManager& /*vastManager*/, const RKVVASTError& error,
                         const std::vector<RKVVASTURL>& errorURLs,
                         const std::optional<std::string>& /*VASTResponse*/) override {
    std::lock_guard lock(mutex_);
    errors_.push_back({error.VASTCode(), errorURLs});
  }
  std::vector<ReportedError> errors() const {
    std::lock_guard lock(mutex_);
    return errors_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<ReportedError> errors_;
};

// The first ad of the answer, or null with `problem` saying why there is none. `errors` hears of
// the failures met on the way; the manager is gone, and with it every report, when this returns.
std::shared_ptr<RKVVASTAd> resolveFirstAd(const RKVInput& input, double timeout,
                                          const std::shared_ptr<RKVTransportLog>& transport,
                                          const std::shared_ptr<ErrorCollector>& errors,
                                          std::string& problem) {
  RKVVASTManagerConfig config(timeout, RKVVASTManagerConfig::DEFAULT_MAXIMUM_WRAPPERS, false,
                              false);
  // The manager holds its delegate and adapter weakly: they live beside it.
  auto adapter = std::make_shared<RKVHandBackAdapter>();
  RKVVASTManager manager(errors, adapter, std::make_shared<RKVURLSession>(transport), config);
  manager.createAdsStoreWithXML(
      input.bytes ? std::optional<std::string_view>(*input.bytes) : std::nullopt, input.url,
      timeout);
  const RKVVASTManagerResponse response = manager.nextAdWithTimeout(timeout, false);
  if (auto played = std::dynamic_pointer_cast<RKVHandedOutVASTAd>(response.ad()))
    return played->ad();
  problem = "no ad to play";
  if (response.error()) problem += ": " + shownText(response.error()->description());
  return nullptr;
}

// Whether GDPR applies, as a consent management platform records it beside its consent string:
// "IABTCF_gdprApplies" (TCF 2, a number 1 or 0), else "IABConsent_SubjectToGDPR" (TCF 1, the text
// "1" or "0"). Anything else leaves it unknown.
std::optional<bool> gdprApplies(const RKVUserDefaults& defaults) {
  auto flag = [](std::optional<RKVUserDefaultsValue> value) -> std::optional<bool> {
    if (!value) return std::nullopt;
    if (const auto* number = std::get_if<int64_t>(&*value)) {
      if (*number == 0 || *number == 1) return *number == 1;
    } else if (const auto* boolean = std::get_if<bool>(&*value)) {
      return *boolean;
    } else if (const auto* text = std::get_if<std::string>(&*value)) {
      if (*text == "0" || *text == "1") return *text == "1";
    }
    return std::nullopt;
  };
  if (auto applies = flag(defaults.objectForKey("IABTCF_gdprApplies"))) return applies;
  return flag(defaults.objectForKey("IABConsent_SubjectToGDPR"));
}

// What the host knows for the IAB macros: identity and consent from the data folder's defaults,
// the application and the device.
RKVIABMacroFacts macroFacts(const std::shared_ptr<RKVUserDefaults>& defaults) {
  RKVIABMacroFacts facts;
  RKVIdentity identity(std::make_shared<RKVIdentityProvider>(defaults), false, false, std::nullopt);
  facts.ifa = identity.ifa();
  facts.gdprApplies = gdprApplies(*defaults);
  if (auto tcf = identity.TCFString()) facts.gdprConsent = tcf->TCFString();
  if (auto ccpa = identity.CCPAString()) facts.usPrivacy = ccpa->CCPAString();
  const std::string& bundle = RKVAppInfo::sharedInstance()->appBundleIdentifier();
  if (bundle != "(unknown)") facts.appBundle = bundle;
  facts.deviceUserAgent = RKVDeviceInfoProvider::userAgent();
  return facts;
}

std::string seconds(double value) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << value;
  return text.str();
}

int play(const PlayOptions& options, const RKVCommandLine& commandLine,
         RKVCommandStreams& streams) {
  std::string problem;
  std::optional<RKVInput> input = readInput(options.input, std::cin, problem);
  if (!input) {
    streams.err << "rkv play: " << problem << '\n';
    return kExitUsage;
  }
  // The pixel store is the data folder's: hold its lock from before the store loads until the
  // last round has saved.
  std::optional<RKVDataLock> lock =
      RKVDataLock::acquire(commandLine.dataDirectory(), streams.err, "rkv play", problem);
  if (!lock) {
    streams.err << "rkv play: " << problem << '\n';
    return kExitFailure;
  }

  const auto transport = std::make_shared<RKVTransportLog>();
  const auto errors = std::make_shared<ErrorCollector>();
  std::shared_ptr<RKVVASTAd> ad =
      resolveFirstAd(*input, options.timeout, transport, errors, problem);
  for (const RKVTransportLog::Failure& failure : transport->failures()) {
    streams.err << "rkv play: download of " << shownText(failure.url)
                << " failed: " << shownText(failure.error.description()) << '\n';
  }

  auto defaults = std::make_shared<RKVUserDefaults>(
      std::make_shared<RKVSQLiteUserDefaultsStore>(commandLine.userDefaultsPath()));
  auto store = std::make_shared<RKVPixelStore>(std::make_shared<RKVPixelStoreProvider>(
      defaults, RKVFrameworkInfo::sharedInstance()->frameworkVersionString()));
  RKVAdPlayer player(store, RKVURLSession::sharedInstance(), macroFacts(defaults), options.player);

  // On a terminal, one line that keeps the content time and the next event; elsewhere (and with
  // --json) nothing moves.
  const bool terminal = !options.json && &streams.out == &std::cout && isatty(STDOUT_FILENO);
  bool lineShown = false;
  if (terminal) {
    player.setProgress([&](double t, double content, double duration,
                           const std::optional<std::pair<std::string, double>>& next) {
      streams.out << "\r\033[K" << seconds(t) << " s  content " << seconds(content) << " / "
                  << seconds(duration) << " s";
      if (next) streams.out << "  next: " << next->first << " at " << seconds(next->second) << " s";
      streams.out << std::flush;
      lineShown = true;
    });
  }
  if (!options.json) {
    player.setEventObserver([&](const RKVPlayedEvent& event) {
      if (lineShown) streams.out << "\r\033[K";
      streams.out << std::setw(8) << seconds(event.t) << " s  " << event.event << "  "
                  << shownText(event.url) << '\n';
      lineShown = false;
    });
  }

  // The error pixels of the failures met on the way go first, whether an ad plays or not.
  for (const ReportedError& error : errors->errors())
    player.fireErrorPixels(error.errorURLs, error.VASTCode);
  std::optional<RKVPlayResult> result = ad ? player.play(*ad, problem) : std::nullopt;
  if (lineShown) streams.out << "\r\033[K";

  // The last round, waited for: rounds run one after the other, so every pixel queued by the
  // play has had its chance once it is done.
  std::promise<void> done;
  player.pixelManager()->callPixelsWithCompletionHandler([&done] { done.set_value(); });
  done.get_future().wait();
  if (!result) {
    streams.err << "rkv play: " << problem << '\n';
    return kExitFailure;
  }
  std::set<uint32_t> stored;
  for (const RKVPixel& pixel : store->allPixels())
    stored.insert(pixel.ID());
  int64_t pending = 0;
  for (const RKVPlayedEvent& event : result->events)
    pending += stored.count(event.pixelID) ? 1 : 0;
  const auto queued = static_cast<int64_t>(result->events.size());

  if (options.json) {
    Json events = Json::array();
    for (const RKVPlayedEvent& event : result->events)
      events.push_back({{"t", event.t}, {"event", event.event}, {"url", event.url}});
    Json output{{"ad", {{"id", textJSON(ad->adID())}, {"wrapperDepth", ad->wrapperDepth()}}},
                {"mediaFile", result->mediaFile},
                {"duration", result->duration},
                {"events", std::move(events)},
                {"pixels", {{"queued", queued}, {"sent", queued - pending}, {"pending", pending}}}};
    streams.out << dumpJSON(output) << '\n';
  } else {
    streams.out << (result->skipped ? "skipped" : "played to the end") << ": "
                << shownText(result->mediaFile) << " (" << seconds(result->duration) << " s)\n"
                << "pixels: " << queued << " queued, " << queued - pending << " sent, " << pending
                << " pending\n";
  }
  return kExitSuccess;
}

}  // namespace

void registerRKVPlayCommand(RKVCommandLine& commandLine) {
  auto options = std::make_shared<PlayOptions>();
  CLI::App& sub = commandLine.addSubcommand(
      "play",
      "Play the first ad of a VAST document or URL in simulated time, firing its impressions, "
      "progress, player and viewability pixels through the data folder's pixel store (holds the "
      "data folder's lock while it runs)",
      [options, &commandLine](RKVCommandStreams& streams) {
        return play(*options, commandLine, streams);
      });
  sub.add_option("input", options->input,
                 "A VAST file, - for standard input, or an http(s) URL to download")
      ->required();
  sub.add_option("--timeout", options->timeout,
                 "Seconds: bounds the download and each wrapper fetch")
      ->check(positiveSeconds())
      ->capture_default_str();
  const CLI::Validator simulatedSeconds =
      numberWithin(0, kLongestSimulatedSeconds, "a number of seconds from 0 to 86400");
  sub.add_option("--speed", options->player.speed,
                 "Simulated seconds per real second (20: twenty times faster than real time)")
      ->check(numberWithin(kSlowestSpeed, kFastestSpeed, "a number from 0.001 to 1000000"))
      ->capture_default_str();
  sub.add_option("--visible", options->player.visibleFraction,
                 "The share of the ad's view on screen, 0 to 1 (viewable needs half of it for "
                 "two continuous seconds)")
      ->check(fraction())
      ->capture_default_str();
  CLI::Option* pauseAt =
      sub.add_option("--pause-at", options->player.pauseAt, "Pause at this content time (s)")
          ->check(simulatedSeconds);
  CLI::Option* pauseFor = sub.add_option("--pause-for", options->player.pauseFor,
                                         "Stay paused for this many simulated seconds")
                              ->check(simulatedSeconds);
  pauseAt->needs(pauseFor);
  pauseFor->needs(pauseAt);
  sub.add_option("--mute-at", options->player.muteAt, "Mute at this content time (s)")
      ->check(simulatedSeconds);
  sub.add_option("--skip-at", options->player.skipAt,
                 "Skip at this content time (s), which ends the ad")
      ->check(simulatedSeconds);
  sub.add_option("--duration", options->player.duration,
                 "The ad's length in seconds when its creative gives none")
      ->check(positiveSeconds())
      ->check(simulatedSeconds);
  sub.add_flag("--json", options->json,
               "Print one JSON object: the ad, its media file, its duration, every event with "
               "its simulated time and final URL, and the pixel counts");
}

}  // namespace rkv::cli
