// rkv resolve FILE|-|URL: runs a VAST manager over one VAST answer as a player would: asks for
// ads until an error comes back, and shows every delegate call and every answer in the order they
// happened. The adapter hands the resolved VAST ad itself back. Why a download failed goes to the
// error stream.
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "rkv/net/RKVURLSession.h"
#include "rkv/vast/RKVVASTManager.h"

#include "tools/rkv/RKVAdJSON.h"
#include "tools/rkv/RKVCommandLine.h"
#include "tools/rkv/RKVHandBackAdapter.h"
#include "tools/rkv/RKVInput.h"
#include "tools/rkv/RKVInspection.h"
#include "tools/rkv/RKVShownText.h"
#include "tools/rkv/RKVTransportLog.h"

namespace rkv::cli {

namespace {

using Json = nlohmann::ordered_json;

struct ResolveOptions {
  std::string input;
  double timeout = RKVVASTManagerConfig::DEFAULT_REQUEST_TIMEOUT;
  std::optional<double> deadline;
  int64_t maximumWrappers = RKVVASTManagerConfig::DEFAULT_MAXIMUM_WRAPPERS;
  bool pods = false;
  bool strictImpressions = false;
  bool failAds = false;
  bool json = false;
};

// One line of the log: the JSON entry, and the ad an answer handed out.
struct LogEntry {
  Json json;
  std::shared_ptr<RKVVASTAd> ad;
};

// Records the delegate calls (some come from background threads) and the answers, in order.
class ResolveLog final : public RKVVASTManagerDelegate {
 public:
  void vastManagerIsReadyToProvideAds() override { add({{"event", "ready"}}); }
  void vastManagerDidFailWithError(const std::optional<RKVError>& error) override {
    add({{"event", "failed"}, {"error", errorJSON(error)}});
  }
  void didEncounterError(RKVVASTManager& /*vastManager*/, const RKVVASTError& error,
                         const std::vector<RKVVASTURL>& errorURLs,
                         const std::optional<std::string>& VASTResponse) override {
    noteParsingError(error, VASTResponse);
    Json urls = Json::array();
    for (const RKVVASTURL& url : errorURLs)
      urls.push_back(url.url().absoluteString());
    add({{"event", "vastError"},
         {"name", textJSON(error.errorName())},
         {"vastCode", error.VASTCode()},
         {"vendorCode", error.vireoCode()},
         {"errorURLs", std::move(urls)},
         {"hasVASTResponse", VASTResponse.has_value()}});
  }
  void didStartToResolveWrapperAd(RKVVASTManager& /*vastManager*/,
                                  const std::shared_ptr<RKVVASTAd>& ad) override {
    add({{"event", "startResolveWrapper"}, {"adID", textJSON(ad->adID())}});
  }
  void didFailToResolveWrapperAd(RKVVASTManager& /*vastManager*/,
                                 const std::shared_ptr<RKVVASTAd>& ad) override {
    add({{"event", "failResolveWrapper"}, {"adID", textJSON(ad->adID())}});
  }

  void add(Json json, std::shared_ptr<RKVVASTAd> ad = nullptr) {
    std::lock_guard lock(mutex_);
    entries_.push_back({std::move(json), std::move(ad)});
  }
  std::vector<LogEntry> entries() const {
    std::lock_guard lock(mutex_);
    return entries_;
  }

  // Why documents were not XML, in the order they were reported: the ad call's form of the
  // parsing error comes from the root document, the wrapper form from a wrapper's answer.
  struct ParsingError {
    bool wrapperAnswer;
    std::optional<RKVXMLParseError> error;  // nullopt: the document text was not UTF-8
  };
  std::vector<ParsingError> parsingErrors() const {
    std::lock_guard lock(mutex_);
    return parsingErrors_;
  }

 private:
  // An XML parsing error is also reported for a well-formed Ad without InLine: reading the
  // document again tells the two apart.
  void noteParsingError(const RKVVASTError& error, const std::optional<std::string>& text) {
    const bool wrapperAnswer = error == RKVVASTError::XML_PARSING_ERROR_WRAPPER();
    if (!wrapperAnswer && error != RKVVASTError::XML_PARSING_ERROR()) return;
    std::optional<RKVXMLParseError> reason;
    if (text) {
      reason = xmlParseError(*text);
      if (!reason) return;
    }
    std::lock_guard lock(mutex_);
    parsingErrors_.push_back({wrapperAnswer, std::move(reason)});
  }

  mutable std::mutex mutex_;
  std::vector<LogEntry> entries_;
  std::vector<ParsingError> parsingErrors_;
};

std::string quotedOrNull(const Json& text) {
  return text.is_string() ? "\"" + shownText(text.get<std::string>()) + "\"" : "(null)";
}

std::string adSummary(const RKVVASTAd& ad) {
  std::ostringstream line;
  line << "ad " << quotedOrNull(textJSON(ad.adID())) << " ("
       << (ad.isInline()    ? "inline"
           : ad.isWrapper() ? "wrapper"
                            : "neither inline nor wrapper")
       << ", wrapper depth " << ad.wrapperDepth() << "): AdSystem "
       << quotedOrNull(textJSON(ad.adSystem())) << ", AdTitle "
       << quotedOrNull(textJSON(ad.adTitle())) << ", " << ad.impressions().size()
       << " impression(s), " << ad.errorPixels().size() << " error URL(s), "
       << ad.linearCreatives().size() << " linear, " << ad.nonLinearCreatives().size()
       << " non-linear and " << ad.companionCreatives().size() << " companion creative(s)";
  return line.str();
}

void writeReadable(std::ostream& out, const std::vector<LogEntry>& entries) {
  for (const LogEntry& entry : entries) {
    const Json& json = entry.json;
    if (json.contains("next")) {
      out << (json["next"]["dueToAdFailure"].get<bool>() ? "next ad (the last one failed): "
                                                         : "next ad: ");
      if (entry.ad) {
        out << adSummary(*entry.ad) << '\n';
      } else {
        const Json& error = json["error"];
        out << "error " << error["code"].get<int64_t>() << ' ' << quotedOrNull(error["description"])
            << '\n';
      }
      continue;
    }
    const std::string event = json["event"].get<std::string>();
    if (event == "ready") {
      out << "ready to provide ads\n";
    } else if (event == "failed") {
      const Json& error = json["error"];
      if (error.is_null()) {
        out << "failed: the answer gave neither a model nor an error\n";
      } else {
        out << "failed: " << shownText(error["domain"].get<std::string>()) << ' '
            << error["code"].get<int64_t>() << ' ' << quotedOrNull(error["description"]) << '\n';
      }
    } else if (event == "vastError") {
      out << "VAST error " << quotedOrNull(json["name"]) << " (VAST code "
          << json["vastCode"].get<int64_t>() << ", vendor code "
          << json["vendorCode"].get<int64_t>() << "), "
          << (json["hasVASTResponse"].get<bool>() ? "in a VAST response" : "no response") << ", "
          << json["errorURLs"].size() << " error URL(s) to fire\n";
      for (const Json& url : json["errorURLs"])
        out << "  " << shownText(url.get<std::string>()) << '\n';
    } else if (event == "startResolveWrapper") {
      out << "resolving wrapper ad " << quotedOrNull(json["adID"]) << '\n';
    } else if (event == "failResolveWrapper") {
      out << "wrapper ad " << quotedOrNull(json["adID"]) << " led to a VAST answer without ads\n";
    }
  }
}

int resolve(const ResolveOptions& options, RKVCommandStreams& streams) {
  std::string problem;
  std::optional<RKVInput> input = readInput(options.input, std::cin, problem);
  if (!input) {
    streams.err << "rkv resolve: " << problem << '\n';
    return kExitUsage;
  }
  const std::optional<std::string>& xml = input->bytes;
  const std::optional<RKVURL>& url = input->url;

  auto log = std::make_shared<ResolveLog>();
  auto adapter = std::make_shared<RKVHandBackAdapter>();
  const auto transport = std::make_shared<RKVTransportLog>();
  int handedOut = 0;
  {
    RKVVASTManagerConfig config(options.timeout, options.maximumWrappers, options.pods,
                                options.strictImpressions);
    config.setAdRequestDeadline(options.deadline);
    RKVVASTManager manager(log, adapter, std::make_shared<RKVURLSession>(transport), config);
    manager.createAdsStoreWithXML(xml ? std::optional<std::string_view>(*xml) : std::nullopt, url,
                                  options.timeout);
    while (true) {
      // A player whose ads fail to play asks for a fallback after each one.
      const bool dueToAdFailure = options.failAds && handedOut > 0;
      const RKVVASTManagerResponse response =
          manager.nextAdWithTimeout(options.timeout, dueToAdFailure);
      Json entry{{"next", {{"dueToAdFailure", dueToAdFailure}}}};
      auto handed = std::dynamic_pointer_cast<RKVHandedOutVASTAd>(response.ad());
      if (!handed) {
        entry["error"] = response.error() ? errorJSON(*response.error()) : Json(nullptr);
        log->add(std::move(entry));
        break;
      }
      entry["ad"] = adJSON(*handed->ad());  // with its wrapperDepth
      log->add(std::move(entry), handed->ad());
      ++handedOut;
    }
    // Destroying the manager ends its delegate calls: passback wrappers still resolving in the
    // background go on silently, and the log is complete.
  }

  const std::vector<LogEntry> entries = log->entries();
  if (options.json) {
    Json list = Json::array();
    for (const LogEntry& entry : entries)
      list.push_back(entry.json);
    streams.out << dumpJSON(Json{{"log", std::move(list)}}) << '\n';
  } else {
    writeReadable(streams.out, entries);
    streams.out << handedOut << " ad(s) handed out\n";
  }
  for (const RKVTransportLog::Failure& failure : transport->failures()) {
    streams.err << "rkv resolve: download of " << shownText(failure.url)
                << " failed: " << shownText(failure.error.description()) << '\n';
  }
  for (const ResolveLog::ParsingError& parsing : log->parsingErrors()) {
    std::optional<RKVXMLParseError> reason = parsing.error;
    // A root document in hand that is not UTF-8 has no text in the report: read its bytes.
    if (!reason && !parsing.wrapperAnswer && xml) reason = xmlParseError(*xml);
    if (reason) {
      writeXMLParseError(streams.err, "rkv resolve: ",
                         parsing.wrapperAnswer ? "a wrapper's answer is not well-formed XML"
                                               : "not well-formed XML",
                         *reason);
    }
  }
  return handedOut > 0 ? kExitSuccess : kExitFailure;
}

}  // namespace

void registerRKVResolveCommand(RKVCommandLine& commandLine) {
  auto options = std::make_shared<ResolveOptions>();
  CLI::App& sub = commandLine.addSubcommand(
      "resolve",
      "Resolve a VAST document or URL with the VAST manager: ask for ads until an error comes "
      "back, showing every delegate call and answer",
      [options](RKVCommandStreams& streams) { return resolve(*options, streams); });
  sub.add_option("input", options->input,
                 "A VAST file, - for standard input, or an http(s) URL to download")
      ->required();
  sub.add_option("--timeout", options->timeout,
                 "Seconds: bounds the download and each wrapper fetch (not a request for an ad, "
                 "which may wait for many passback fetches; see --deadline)")
      ->check(positiveSeconds())
      ->capture_default_str();
  sub.add_option("--deadline", options->deadline,
                 "Seconds from the start of a request for an ad: past it, the request stops "
                 "waiting for passback wrappers and goes on as if none had answered (a fallback "
                 "asked for with --fail answers 10006); no limit by default")
      ->check(positiveSeconds());
  sub.add_option("--max-wrappers", options->maximumWrappers,
                 "Wrapper levels followed on the main path (passbacks follow one more)")
      ->transform(nonNegativeCount())
      ->capture_default_str();
  sub.add_flag("--pods", options->pods,
               "A wrapper that leads to several ads contributes all of them, as a pod");
  sub.add_flag("--strict-impressions", options->strictImpressions,
               "Refuse first-level wrappers without Impression");
  sub.add_flag("--fail", options->failAds,
               "After the first ad, ask for fallbacks, as a player whose ads fail to play");
  sub.add_flag("--json", options->json, "Print one JSON object {\"log\": [...]}");
}

}  // namespace rkv::cli
