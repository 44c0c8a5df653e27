// rkv pixels add|list|flush|clear: the pending pixels of the tool's data folder, through the
// library's pixel manager over an SQLite user defaults file. Every subcommand holds the data
// folder's lock for its whole run, so that concurrent rkv processes never write back a list
// that misses another one's pixels.
#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "rkv/foundation/RKVRandom.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/net/RKVPixel.h"
#include "rkv/net/RKVPixelManager.h"
#include "rkv/net/RKVPixelStore.h"
#include "rkv/net/RKVPixelStoreProvider.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/platform/RKVFrameworkInfo.h"
#include "rkv/system/RKVSQLiteUserDefaultsStore.h"
#include "rkv/system/RKVUserDefaults.h"

#include "tools/rkv/RKVAdJSON.h"
#include "tools/rkv/RKVCommandLine.h"
#include "tools/rkv/RKVDataLock.h"
#include "tools/rkv/RKVInput.h"
#include "tools/rkv/RKVShownText.h"

namespace rkv::cli {

namespace {

using Json = nlohmann::ordered_json;

struct PixelsOptions {
  std::vector<std::string> urls;
  double expires = RKVPixel::DEFAULT_EXPIRATION_INTERVAL;
  bool json = false;
};

// The data folder's store, opened under its lock. The user defaults are read once, when they
// are made, so they are made only once the lock is held: what they load is the latest list.
class PixelSession {
 public:
  static std::optional<PixelSession> open(const RKVCommandLine& commandLine, const std::string& who,
                                          std::ostream& err) {
    std::string problem;
    std::optional<RKVDataLock> lock =
        RKVDataLock::acquire(commandLine.dataDirectory(), err, who, problem);
    if (!lock) {
      err << who << ": " << problem << '\n';
      return std::nullopt;
    }
    auto defaults = std::make_shared<RKVUserDefaults>(
        std::make_shared<RKVSQLiteUserDefaultsStore>(commandLine.userDefaultsPath()));
    auto provider = std::make_shared<RKVPixelStoreProvider>(
        std::move(defaults), RKVFrameworkInfo::sharedInstance()->frameworkVersionString());
    auto store = std::make_shared<RKVPixelStore>(std::move(provider));
    auto manager = std::make_unique<RKVPixelManager>(store, RKVURLSession::sharedInstance());
    return PixelSession(std::move(*lock), std::move(manager));
  }

  RKVPixelManager& manager() { return *manager_; }
  RKVPixelStore& store() { return *manager_->pixelStore(); }

 private:
  PixelSession(RKVDataLock lock, std::unique_ptr<RKVPixelManager> manager)
      : lock_(std::move(lock)), manager_(std::move(manager)) {}

  // Declared first, destroyed last: the manager, store and defaults (whose destruction may
  // still write) go before the lock is released.
  RKVDataLock lock_;
  std::unique_ptr<RKVPixelManager> manager_;
};

const char* statusText(RKVPixelStatus status) {
  return status == RKVPixelStatus::success ? "success" : "pending";
}

// RFC 3339 in UTC, whole seconds (the expiry test compares whole seconds too).
std::string rfc3339(RKVPixel::Date date) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
  const std::time_t time = static_cast<std::time_t>(seconds);
  std::tm utc{};
  if (!::gmtime_r(&time, &utc)) return std::to_string(seconds);
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

Json urlList(const std::vector<RKVPixel>& pixels) {
  Json list = Json::array();
  for (const RKVPixel& pixel : pixels)
    list.push_back(pixel.url().absoluteString());
  return list;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n\f\v");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n\f\v") - first + 1);
}

// The pixel URL of a text, or std::nullopt with `problem` set.
std::optional<RKVURL> pixelURL(const std::string& text, std::string& problem) {
  std::optional<RKVURL> url = RKVURL::withString(text);
  if (!url || !url->hasAuthority() || !url->host() || url->host()->empty()) {
    problem = "not a valid URL: " + shownText(text);
    return std::nullopt;
  }
  const std::string_view scheme = url->scheme().value_or("");
  if (!equalsIgnoringASCIICase(scheme, "http") && !equalsIgnoringASCIICase(scheme, "https")) {
    problem = "not an http or https URL: " + shownText(text);
    return std::nullopt;
  }
  return url;
}

int add(const RKVCommandLine& commandLine, const PixelsOptions& options,
        RKVCommandStreams& streams) {
  const std::string who = "rkv pixels add";
  // The texts in order, "-" replaced by the lines of standard input.
  std::vector<std::string> texts;
  bool readStandardInput = false;
  for (const std::string& argument : options.urls) {
    if (argument != "-") {
      texts.push_back(argument);
      continue;
    }
    if (readStandardInput) continue;  // standard input has one content
    readStandardInput = true;
    for (std::string line; std::getline(std::cin, line);) {
      const std::string_view text = trimmed(line);
      if (!text.empty()) texts.emplace_back(text);
    }
    if (std::cin.bad()) {
      streams.err << who << ": cannot read standard input\n";
      return kExitUsage;
    }
  }

  const auto expiration = std::chrono::system_clock::now() +
                          std::chrono::duration_cast<std::chrono::system_clock::duration>(
                              std::chrono::duration<double>(options.expires));
  std::vector<RKVURL> urls;
  bool skipped = false;
  for (const std::string& text : texts) {
    std::string problem;
    if (std::optional<RKVURL> url = pixelURL(text, problem)) {
      urls.push_back(std::move(*url));
    } else {
      streams.err << who << ": " << problem << " (skipped)\n";
      skipped = true;
    }
  }
  if (urls.empty()) {
    streams.out << "0 pixel(s) added\n";
    return skipped ? kExitFailure : kExitSuccess;
  }

  std::optional<PixelSession> session = PixelSession::open(commandLine, who, streams.err);
  if (!session) return kExitFailure;
  // Pixels are identified by ID alone and the store refuses an ID it holds: a random ID that
  // collides (with the store or the batch) is drawn again, or that pixel would be lost.
  std::vector<RKVPixel> pixels;
  std::set<uint32_t> batchIDs;
  for (RKVURL& url : urls) {
    RKVPixel pixel(std::move(url), expiration);
    while (batchIDs.count(pixel.ID()) != 0 || session->store().isPixelInStore(pixel))
      pixel.setID(RKVRandom::randomUnsignedInt());
    batchIDs.insert(pixel.ID());
    pixels.push_back(std::move(pixel));
  }
  if (!session->manager().addPixels(pixels)) {
    // Take the batch back out of memory and hand the list without it to the defaults: they still
    // hold the failed list as pending and write what is pending when they go, which would store
    // a batch the caller was told failed. If this save fails too, what stays pending is this
    // list.
    for (const RKVPixel& pixel : pixels)
      session->store().deletePixel(pixel);
    session->store().saveToDisk();
    streams.err << who << ": the pixels could not be saved to " << commandLine.userDefaultsPath()
                << "; none was added\n";
    return kExitFailure;
  }
  streams.out << pixels.size() << " pixel(s) added\n";
  return skipped ? kExitFailure : kExitSuccess;
}

int list(const RKVCommandLine& commandLine, const PixelsOptions& options,
         RKVCommandStreams& streams) {
  std::optional<PixelSession> session =
      PixelSession::open(commandLine, "rkv pixels list", streams.err);
  if (!session) return kExitFailure;
  const std::vector<RKVPixel> pixels = session->store().allPixels();
  if (options.json) {
    Json entries = Json::array();
    for (const RKVPixel& pixel : pixels) {
      entries.push_back({{"id", pixel.ID()},
                         {"url", pixel.url().absoluteString()},
                         {"status", statusText(pixel.status())},
                         {"expirationDate", rfc3339(pixel.expirationDate())}});
    }
    streams.out << dumpJSON(Json{{"pixels", std::move(entries)}}) << '\n';
    return kExitSuccess;
  }
  for (const RKVPixel& pixel : pixels) {
    streams.out << pixel.ID() << ' ' << statusText(pixel.status())
                << (pixel.isExpired() ? " expired" : "") << " until "
                << rfc3339(pixel.expirationDate()) << ' ' << shownText(pixel.url().absoluteString())
                << '\n';
  }
  streams.out << pixels.size() << " pixel(s)\n";
  return kExitSuccess;
}

int flush(const RKVCommandLine& commandLine, const PixelsOptions& options,
          RKVCommandStreams& streams) {
  const std::string who = "rkv pixels flush";
  std::optional<PixelSession> session = PixelSession::open(commandLine, who, streams.err);
  if (!session) return kExitFailure;
  std::promise<RKVPixelRoundReport> done;
  std::future<RKVPixelRoundReport> report = done.get_future();
  session->manager().callPixelsWithReport(
      [&done](const RKVPixelRoundReport& round) { done.set_value(round); });
  const RKVPixelRoundReport round = report.get();
  const std::vector<RKVPixel> pending = session->store().allPixels();

  if (options.json) {
    streams.out << dumpJSON(Json{{"sent", urlList(round.sent)},
                                 {"pending", urlList(pending)},
                                 {"dropped", urlList(round.dropped)}})
                << '\n';
  } else {
    for (const RKVPixel& pixel : round.sent)
      streams.out << "sent " << shownText(pixel.url().absoluteString()) << '\n';
    for (const RKVPixel& pixel : round.dropped)
      streams.out << "dropped " << shownText(pixel.url().absoluteString()) << '\n';
    for (const RKVPixel& pixel : pending)
      streams.out << "pending " << shownText(pixel.url().absoluteString()) << '\n';
    streams.out << round.sent.size() << " sent, " << round.dropped.size() << " dropped, "
                << pending.size() << " pending\n";
  }
  if (!round.saved) {
    streams.err << who << ": the pixel list could not be saved to "
                << commandLine.userDefaultsPath()
                << "; pixels sent in this round may be sent again\n";
    return kExitFailure;
  }
  return kExitSuccess;
}

int clear(const RKVCommandLine& commandLine, RKVCommandStreams& streams) {
  const std::string who = "rkv pixels clear";
  std::optional<PixelSession> session = PixelSession::open(commandLine, who, streams.err);
  if (!session) return kExitFailure;
  const std::vector<RKVPixel> pixels = session->store().allPixels();
  for (const RKVPixel& pixel : pixels)
    session->store().deletePixel(pixel);
  if (!session->store().saveToDisk()) {
    // Put the list back and hand it to the defaults, which write what is pending when they go:
    // a clear the caller was told failed must not happen later.
    for (const RKVPixel& pixel : pixels)
      session->store().addPixel(pixel);
    session->store().saveToDisk();
    streams.err << who << ": the pixel list could not be saved to "
                << commandLine.userDefaultsPath() << '\n';
    return kExitFailure;
  }
  streams.out << pixels.size() << " pixel(s) removed\n";
  return kExitSuccess;
}

// Any finite number of seconds, negative included (a pixel that is already expired), whose
// expiration date the system clock can hold: beyond its range (about 292 years either side of
// 1970) the date would wrap around and the pixel expire centuries ago. A day is kept in hand
// for the time between this check and the add.
CLI::Validator finiteSeconds() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        try {
          size_t used = 0;
          const double value = std::stod(text, &used);
          using Seconds = std::chrono::duration<double>;
          const double limit =
              Seconds(std::chrono::system_clock::duration::max()).count() - 86400.0;
          const double now = Seconds(std::chrono::system_clock::now().time_since_epoch()).count();
          if (used == text.size() && std::isfinite(value) && std::fabs(value) < limit &&
              std::fabs(now + value) < limit)
            return "";
        } catch (const std::exception&) {
        }
        return "must be a number of seconds (-1 or less: already expired) that keeps the "
               "expiration within the clock's range";
      },
      "SECONDS");
}

}  // namespace

void registerRKVPixelsCommand(RKVCommandLine& commandLine) {
  static const char* const kLockNote =
      " Holds an exclusive lock on the data folder's rkv.lock for its whole run: another rkv "
      "command on the same folder waits for it.";
  auto options = std::make_shared<PixelsOptions>();
  // Filled once the subcommands exist; the action runs after parsing.
  auto subcommands = std::make_shared<std::vector<CLI::App*>>();
  CLI::App& pixels = commandLine.addSubcommand(
      "pixels",
      "The pending pixels of the data folder (--data-dir): add, list, send a round, clear",
      [&commandLine, options, subcommands](RKVCommandStreams& streams) {
        const std::vector<CLI::App*>& apps = *subcommands;
        if (apps[0]->parsed()) return add(commandLine, *options, streams);
        if (apps[1]->parsed()) return list(commandLine, *options, streams);
        if (apps[2]->parsed()) return flush(commandLine, *options, streams);
        return clear(commandLine, streams);
      });
  pixels.require_subcommand(1);

  CLI::App* addApp = pixels.add_subcommand(
      "add", std::string("Add one pixel per URL through the pixel manager; the batch is saved "
                         "whole or not at all. Texts that are not http(s) URLs are named on "
                         "stderr and skipped (exit status 1).") +
                 kLockNote);
  addApp->add_option("urls", options->urls, "http(s) URLs; - reads one URL a line from stdin")
      ->required();
  addApp
      ->add_option("--expires", options->expires,
                   "Seconds from now to the pixels' expiration (-1 or less: already expired; "
                   "expiry counts whole seconds)")
      ->check(finiteSeconds())
      ->capture_default_str();

  CLI::App* listApp = pixels.add_subcommand(
      "list", std::string("Show the stored pixels in store order.") + kLockNote);
  listApp->add_flag("--json", options->json,
                    "Print {\"pixels\": [{\"id\", \"url\", \"status\", \"expirationDate\"}]}");

  CLI::App* flushApp = pixels.add_subcommand(
      "flush", std::string("Run one sending round of the pixel manager and wait for it: "
                           "obsolete pixels are dropped, the others sent one at a time; those "
                           "not answered acceptably stay pending.") +
                   kLockNote);
  flushApp->add_flag("--json", options->json,
                     "Print {\"sent\": [url], \"pending\": [url], \"dropped\": [url]}");

  CLI::App* clearApp =
      pixels.add_subcommand("clear", std::string("Remove every stored pixel.") + kLockNote);
  *subcommands = {addApp, listApp, flushApp, clearApp};
}

}  // namespace rkv::cli
